#include "tessivanetemplatetokenizer.h"

#include "syntaxscan_p.h"

using namespace TessivaneTemplatePrivate;

namespace {

const QLatin1String s_mark("%%");
const QChar s_quote(QLatin1Char('"'));
const QChar s_backslash(QLatin1Char('\\'));

bool isEscapedQuote(const QString &text, int index)
{
    return text.at(index) == s_backslash && index + 1 < text.size()
        && text.at(index + 1) == s_quote;
}

} // namespace

TessivaneTemplateTokenizer::TessivaneTemplateTokenizer(QString &text)
    : line(text)
    , tokens(tokenize(text))
    , currentIndex(-1)
{
}

TessivaneTemplateTokenizer::~TessivaneTemplateTokenizer() = default;

QStringList TessivaneTemplateTokenizer::tokenize(const QString &line)
{
    QStringList result;
    // Most command lines are text, a command and the rest of the line.
    result.reserve(3);
    TokenWalker walker(line);
    QStringView token;
    bool isCommand = false;
    while (walker.next(token, isCommand))
        result.append(token.size() == line.size() ? line : token.toString());
    return result;
}

// The tokens of a line hold a command exactly when the line holds a mark, so
// the line is searched without being cut.
bool TessivaneTemplateTokenizer::containsTemplateCommands(const QString &line)
{
    return indexOfMark(line, 0) >= 0;
}

bool TessivaneTemplateTokenizer::containsTemplateCommands()
{
    if (tokens.size() != 1)
        return tokens.size() > 1;
    return tokens.first().startsWith(s_mark);
}

bool TessivaneTemplateTokenizer::tokenAtIndex(int index, QString &token, bool &isCommand)
{
    if (index < 0 || index >= tokens.size())
        return false;
    token = tokens.at(index);
    isCommand = token.startsWith(s_mark);
    return true;
}

bool TessivaneTemplateTokenizer::nextToken(QString &token, bool &isCommand)
{
    if (currentIndex >= tokens.size())
        return false;
    ++currentIndex;
    return tokenAtIndex(currentIndex, token, isCommand);
}

bool TessivaneTemplateTokenizer::parseCommandToken(const QString &token, QString &name,
                                                   QString &parameter)
{
    splitCommandToken(token, name, parameter);
    return true;
}

QStringList TessivaneTemplateTokenizer::tokenizeParameters(const QString &parameter)
{
    GroupList groups;
    splitGroups(parameter, groups);
    QStringList result;
    result.reserve(groups.size());
    for (const QStringView &group : qAsConst(groups))
        result.append(group.toString());
    return result;
}

QStringList TessivaneTemplateTokenizer::tokenizeParameter(const QString &group)
{
    QStringList strings;
    QString current;
    bool inString = false;
    for (int i = 0; i < group.size(); ++i) {
        const QChar c = group.at(i);
        if (!inString) {
            if (c == s_quote) {
                inString = true;
                current = QLatin1String("");
            }
        } else if (isEscapedQuote(group, i)) {
            current += s_quote;
            ++i;
        } else if (c == s_quote) {
            strings.append(current);
            inString = false;
        } else {
            current += c;
        }
    }
    return strings;
}

QString TessivaneTemplateTokenizer::unescape(const QString &text)
{
    if (!text.startsWith(s_quote) || !text.endsWith(s_quote))
        return text;
    if (text.size() <= 2)
        return QLatin1String("");
    QString inner = text.mid(1, text.size() - 2);
    return inner.replace(QLatin1String("\\\""), QLatin1String("\""));
}
