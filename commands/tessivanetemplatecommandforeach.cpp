#include "tessivanetemplatecommandforeach.h"

#include "enginestate_p.h"
#include "parameter_p.h"
#include "qtcompat_p.h"
#include "registrykey_p.h"
#include "syntaxscan_p.h"
#include "tessivane.h"
#include "tessivanetemplate.h"
#include "tessivanetemplateparser.h"

#include <QRegularExpression>
#include <QSet>
#include <QStringList>
#include <QTextStream>

#include <algorithm>

using namespace TessivaneTemplatePrivate;

namespace {

const QLatin1String s_foreach("FOREACH");
const QLatin1String s_endForeach("ENDFOREACH");
const QLatin1String s_item("ITEM");

QString commandName(const QStringRef &token)
{
    QString name;
    QString parameter;
    splitCommandToken(token, name, parameter);
    return name;
}

bool isDecimal(const QString &text)
{
    return !text.isEmpty() && std::all_of(text.cbegin(), text.cend(), [](QChar c) {
        return c >= QLatin1Char('0') && c <= QLatin1Char('9');
    });
}

// Decimal numbers of any length, compared by value; equal values by their text.
bool isNumericallyBefore(const QString &a, const QString &b)
{
    const auto significant = [](const QString &text) {
        int zeros = 0;
        while (zeros + 1 < text.size() && text.at(zeros) == QLatin1Char('0'))
            ++zeros;
        return text.midRef(zeros);
    };
    const QStringRef x = significant(a);
    const QStringRef y = significant(b);
    if (x.size() != y.size())
        return x.size() < y.size();
    return x != y ? x < y : a < b;
}

// The distinct next path segments of the keys below \a prefix, in numeric
// order when every one is a decimal number and by character code otherwise.
QStringList children(Tessivane *registry, const QString &prefix)
{
    const QString start = prefix + QLatin1Char('/');
    QSet<QString> seen;
    QStringList items;
    for (const QString &key : registry->keys()) {
        if (!key.startsWith(start))
            continue;
        const QString item = key.mid(start.size()).section(QLatin1Char('/'), 0, 0);
        if (!item.isEmpty() && !seen.contains(item)) {
            seen.insert(item);
            items << item;
        }
    }
    if (std::all_of(items.cbegin(), items.cend(), isDecimal))
        std::sort(items.begin(), items.end(), isNumericallyBefore);
    else
        std::sort(items.begin(), items.end());
    return items;
}

} // namespace

TessivaneTemplateCommandForeach::~TessivaneTemplateCommandForeach() = default;

bool TessivaneTemplateCommandForeach::isResponsibleFor(const QString &name)
{
    return name.startsWith(s_foreach) || name == s_endForeach || name == s_item;
}

int TessivaneTemplateCommandForeach::executeCommand(TessivaneTemplateParser *parser,
                                                    const QString &name, const QString &parameter)
{
    if (name == s_item)
        return writeItem(parser, parameter);
    if (name == s_endForeach)
        return end(parser);
    return begin(parser, name, parameter);
}

bool TessivaneTemplateCommandForeach::isCapturing() const
{
    return m_isCapturing;
}

// "FOREACH $NAME IN REG" is the name as the parser splits it, "(prefix)" the parameter.
int TessivaneTemplateCommandForeach::begin(TessivaneTemplateParser *parser, const QString &name,
                                           const QString &parameter)
{
    static const QRegularExpression header(
        QStringLiteral("^FOREACH\\s+(\\$[A-Z0-9_]+)\\s+IN\\s+REG$"));
    const QRegularExpressionMatch match = header.match(name);
    GroupList groups;
    if (isParenthesized(parameter))
        splitGroups(parameter, groups);
    m_isValid =
        match.hasMatch() && match.captured(1) != QLatin1String("$REGROOT") && groups.size() == 1;
    if (!m_isValid)
        parser->warning("malformed loop header '%s', expected FOREACH $NAME IN REG(prefix)",
                        formatArgument(name + parameter).constData());
    m_name = match.captured(1);
    m_prefix = m_isValid ? expandRegistryKey(groups.at(0), parser->getTemplate()) : QString();
    while (m_prefix.endsWith(QLatin1Char('/')))
        m_prefix.chop(1);
    m_isCapturing = true;
    m_depth = 0;
    m_headerLine = parser->lineNumber();
    m_bodyLine = 0;
    m_lastLine = 0;
    m_body.clear();
    // The block is read even when its header is wrong, so that its ENDFOREACH closes it.
    return CommandSkipBegin;
}

bool TessivaneTemplateCommandForeach::capture(const QStringRef &token, bool isCommand,
                                              int lineNumber, bool isControlLine)
{
    if (isCommand) {
        const QString name = commandName(token);
        if (name == s_endForeach && m_depth == 0) {
            if (isControlLine && m_lastLine == lineNumber && lineNumber != m_headerLine)
                m_body.truncate(m_lastLineStart);
            return false;
        }
        if (name.startsWith(s_foreach))
            ++m_depth;
        else if (name == s_endForeach)
            --m_depth;
    } else if (isControlLine && lineNumber == m_headerLine) {
        return true; // the rest of the header's line
    }
    if (lineNumber != m_lastLine) {
        m_lastLine = lineNumber;
        m_lastLineStart = m_body.size();
        if (m_bodyLine == 0)
            m_bodyLine = lineNumber;
    }
    m_body += token;
    return true;
}

int TessivaneTemplateCommandForeach::end(TessivaneTemplateParser *parser)
{
    if (!m_isCapturing) {
        parser->warning("ENDFOREACH without FOREACH");
        return CommandFailed;
    }
    m_isCapturing = false;
    Tessivane *registry = parser->registryBackend();
    if (m_isValid && !registry)
        parser->warning("no registry backend set, can't lookup reg key");
    if (m_isValid && registry) {
        for (const QString &item : children(registry, m_prefix))
            render(parser, item);
    }
    m_body.clear();
    return CommandSkipEnd;
}

// The block runs through a parser of its own, into a text that is then
// written out; a block that does not end with a line feed gets none.
void TessivaneTemplateCommandForeach::render(TessivaneTemplateParser *parser, const QString &item)
{
    TessivaneTemplate *engine = parser->getTemplate();
    pushLoopBinding(engine, {m_name, m_prefix + QLatin1Char('/') + item, item});
    QString body = m_body;
    QTextStream in(&body);
    QString rendered;
    QTextStream out(&rendered);
    {
        TessivaneTemplateParser nested(engine, &in, &out, parser->fileName());
        nested.m_lineNumber = m_bodyLine - 1;
        nested.process();
    }
    out.flush();
    popLoopBinding(engine);
    if (!m_body.endsWith(QLatin1Char('\n')) && rendered.endsWith(QLatin1Char('\n')))
        rendered.chop(1);
    *parser->getOutStream() << rendered;
}

int TessivaneTemplateCommandForeach::writeItem(TessivaneTemplateParser *parser,
                                               const QString &parameter)
{
    const QString name =
        isParenthesized(parameter) ? parameter.mid(1, parameter.size() - 2).trimmed() : parameter;
    LoopBinding binding;
    if (!findLoopBinding(parser->getTemplate(), name, binding)) {
        parser->warning("ITEM of an unknown loop name '%s'", formatArgument(name).constData());
        return CommandFailed;
    }
    *parser->getOutStream() << binding.item;
    return CommandDone;
}

void TessivaneTemplateCommandForeach::finish(TessivaneTemplateParser *parser)
{
    if (!m_isCapturing)
        return;
    m_isCapturing = false;
    parser->warning("FOREACH of line %d is not closed with ENDFOREACH", m_headerLine);
}
