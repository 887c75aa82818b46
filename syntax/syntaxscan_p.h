#ifndef TESSIVANETEMPLATE_SYNTAXSCAN_P_H
#define TESSIVANETEMPLATE_SYNTAXSCAN_P_H

// The scanning rules of the template syntax, working on views of the text so
// that the parser's path through a line copies only what it hands on. The
// tokenizer's public operations are built on these, so the rules live here
// once. Not installed.

#include <QString>
#include <QStringView>
#include <QVarLengthArray>

namespace TessivaneTemplatePrivate {

// The position of the first \a needle in \a text at or after \a from, or -1.
// QString searches for one character with vector instructions but for a
// string with a general algorithm that costs more than the whole search on
// the short texts of a template.
int indexOfText(QStringView text, QLatin1String needle, int from = 0);

// Whether \a text is \a name. Command names are short and compared for every
// command; this costs less than the call that QString's comparison is.
inline bool isName(QStringView text, QLatin1String name)
{
    if (text.size() != name.size())
        return false;
    for (int i = 0; i < name.size(); ++i) {
        if (text.at(i) != QLatin1Char(name.at(i)))
            return false;
    }
    return true;
}

// Widens ASCII bytes into UTF-16 characters, sixteen at a time where the
// processor allows: this runs over the bytes of every line that is decoded.
// Returns false at a byte above 0x7F, with \a out partly written.
bool widenAscii(const char *in, int size, ushort *out);

// The position of the first "%%" in \a line at or after \a from, or -1.
int indexOfMark(QStringView line, int from = 0);
// The same in the bytes of a line in an encoding where '%' is one byte.
int indexOfMark(QLatin1String line, int from = 0);

// The length of the run of bytes from \a data that holds no "%%", no byte
// above 0x7F and no carriage return: text that goes out as it came in.
// \a lineFeeds is set to the number of line feeds in the run, counted in the
// same pass.
int plainTextPrefix(const char *data, int size, int &lineFeeds);

// Walks the tokens of a line from left to right: text tokens, and command
// tokens that begin with "%%". Marks pair from left to right; an unmatched
// last mark opens a command that runs to the end of the line. A line without
// a mark is one text token, even when it is empty; no other token is empty.
//
// \a Text is QStringView, or QLatin1String for a view of a line's bytes in
// an encoding where '%' is one byte: the tokens are cut at the same places.
template<typename Text> class BasicTokenWalker
{
public:
    explicit BasicTokenWalker(Text line)
        : m_line(line)
    {
    }

    // Sets \a token to the next token and \a isCommand to its kind; false at the end.
    bool next(Text &token, bool &isCommand);

private:
    Text m_line;
    int m_position = 0;
    bool m_inCommand = false;
    bool m_hasToken = false;
};

using TokenWalker = BasicTokenWalker<QStringView>;
using ByteTokenWalker = BasicTokenWalker<QLatin1String>;

// Splits a command token into the name before the first "(" and the
// parameter from there on, after dropping two characters at each end and
// trimming; without "(" the parameter is not assigned. Returns whether it was.
bool splitCommandToken(QStringView token, QString &name, QString &parameter);
// The same for a token in bytes that are all ASCII, each its own character.
bool splitCommandToken(QLatin1String asciiToken, QString &name, QString &parameter);

using GroupList = QVarLengthArray<QStringView, 4>;

// The parenthesised groups of \a parameter, without their parentheses; a
// parameter without any parenthesis is one group.
void splitGroups(QStringView parameter, GroupList &groups);

} // namespace TessivaneTemplatePrivate

#endif
