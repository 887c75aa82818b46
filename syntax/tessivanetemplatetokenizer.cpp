#include "tessivanetemplatetokenizer.h"

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
    int position = 0;
    bool inCommand = false;
    while (position < line.size()) {
        // A closing mark is searched from behind the opening one, so "%%%%"
        // is one empty command while "%%%" stays unclosed.
        const int from = inCommand ? position + 2 : position;
        const int mark = line.indexOf(s_mark, from);
        if (mark < 0)
            break;
        if (inCommand) {
            result.append(line.mid(position, mark + 2 - position));
            position = mark + 2;
        } else {
            if (mark > position)
                result.append(line.mid(position, mark - position));
            position = mark;
        }
        inCommand = !inCommand;
    }
    if (position < line.size() || result.isEmpty())
        result.append(position == 0 ? line : line.mid(position));
    return result;
}

bool TessivaneTemplateTokenizer::containsTemplateCommands(const QString &line)
{
    const QStringList lineTokens = tokenize(line);
    if (lineTokens.size() != 1)
        return lineTokens.size() > 1;
    return lineTokens.first().startsWith(s_mark);
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
    const QString content =
        (token.size() >= 4 ? token.mid(2, token.size() - 4) : token.mid(2)).trimmed();
    const int open = content.indexOf(QLatin1Char('('));
    if (open < 0) {
        name = content;
        return true;
    }
    name = content.left(open);
    parameter = content.mid(open);
    return true;
}

QStringList TessivaneTemplateTokenizer::tokenizeParameters(const QString &parameter)
{
    if (!parameter.contains(QLatin1Char('(')) && !parameter.contains(QLatin1Char(')')))
        return QStringList(parameter);

    // Nothing inside a group is removed (an escape keeps both characters), so
    // a group is the plain text between its parentheses.
    QStringList groups;
    int groupStart = -1;
    bool inString = false;
    for (int i = 0; i < parameter.size(); ++i) {
        const QChar c = parameter.at(i);
        if (groupStart < 0) {
            if (c == QLatin1Char('('))
                groupStart = i + 1;
        } else if (inString && isEscapedQuote(parameter, i)) {
            ++i;
        } else if (c == s_quote) {
            inString = !inString;
        } else if (!inString && c == QLatin1Char(')')) {
            groups.append(parameter.mid(groupStart, i - groupStart));
            groupStart = -1;
        }
    }
    return groups;
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
