#ifndef TESSIVANETEMPLATETOKENIZER_H
#define TESSIVANETEMPLATETOKENIZER_H

#include "tessivanetemplate_export.h"

#include <QString>
#include <QStringList>

/**
 * \brief Cuts one template line into text and command tokens, and takes
 * command parameters apart.
 *
 * A command stands between an opening "%%" and the next "%%"; marks pair from
 * left to right, and an unmatched last mark opens a command that runs to the
 * end of the line. Joined in order, the tokens give back the line exactly.
 * The static helpers split a parameter into its parenthesised groups, a group
 * into its double-quoted strings, and unescape one string; the only escape is
 * a backslash before a double quote.
 *
 * Nothing here fails or reports: input that is not well formed is cut by the
 * same rules, and the parser and the commands decide what to make of it. A
 * tokenizer serves one line and is walked once.
 *
 * \sa TessivaneTemplateParser
 */
class TESSIVANETEMPLATE_EXPORT TessivaneTemplateTokenizer
{
public:
    explicit TessivaneTemplateTokenizer(QString &text);
    ~TessivaneTemplateTokenizer();

    /// The tokens of \a line in order; a line without "%%" is one token, even when empty.
    static QStringList tokenize(const QString &line);
    /// Whether \a line holds a command token, that is, contains "%%".
    static bool containsTemplateCommands(const QString &line);
    bool containsTemplateCommands();
    /**
     * Stores the token at \a index and whether it is a command token (begins
     * with "%%"). Returns false, leaving both untouched, when \a index is out
     * of range.
     */
    bool tokenAtIndex(int index, QString &token, bool &isCommand);
    /// Fetches the token after the one fetched last; false when none is left.
    bool nextToken(QString &token, bool &isCommand);
    /**
     * Splits a command token into the name before its first "(" and the
     * parameter from that "(" on, after removing two characters at each end
     * and trimming white space. Without a "(", \a parameter is not assigned.
     * Always returns true.
     */
    bool parseCommandToken(const QString &token, QString &name, QString &parameter);

    /// The parenthesised groups of \a parameter, without their parentheses.
    static QStringList tokenizeParameters(const QString &parameter);
    /// The double-quoted strings of \a group, without quotes, escapes resolved.
    static QStringList tokenizeParameter(const QString &group);
    /// \a text without its enclosing double quotes, escapes resolved; else unchanged.
    static QString unescape(const QString &text);

private:
    Q_DISABLE_COPY(TessivaneTemplateTokenizer)

    QString line;
    QStringList tokens;
    // The token nextToken() returned last; -1 before the first.
    int currentIndex;
};

#endif
