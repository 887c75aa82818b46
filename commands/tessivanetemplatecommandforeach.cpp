#include "tessivanetemplatecommandforeach.h"

#include "enginestate_p.h"
#include "outputsink_p.h"
#include "parameter_p.h"
#include "qtcompat_p.h"
#include "registrykey_p.h"
#include "syntaxscan_p.h"
#include "tessivane.h"
#include "tessivanetemplate.h"
#include "tessivanetemplateparser.h"

#include <QRegularExpression>
#include <QStringList>
#include <QTextStream>
#include <QVector>

#include <algorithm>

using namespace TessivaneTemplatePrivate;

namespace {

const QLatin1String s_foreach("FOREACH");
const QLatin1String s_endForeach("ENDFOREACH");
const QLatin1String s_item("ITEM");

QString commandName(QStringView token)
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
        return QStringView(text).mid(zeros);
    };
    const QStringView x = significant(a);
    const QStringView y = significant(b);
    if (x.size() != y.size())
        return x.size() < y.size();
    return x != y ? x < y : a < b;
}

// By character code: QString compares UTF-16 units, which put characters
// beyond U+FFFF before U+E000..U+FFFF.
bool isBeforeByCode(const QString &a, const QString &b)
{
    const QVector<uint> x = a.toUcs4();
    const QVector<uint> y = b.toUcs4();
    return std::lexicographical_compare(x.cbegin(), x.cend(), y.cbegin(), y.cend());
}

// The children of \a prefix, in numeric order when every one is a decimal
// number and by character code otherwise.
QStringList children(Tessivane *registry, const QString &prefix)
{
    QStringList items = registry->children(prefix);
    if (std::all_of(items.cbegin(), items.cend(), isDecimal))
        std::sort(items.begin(), items.end(), isNumericallyBefore);
    else
        std::sort(items.begin(), items.end(), isBeforeByCode);
    return items;
}

// The loop's name is bound while its block renders, and unbound on every way out.
struct BindingScope
{
    BindingScope(TessivaneTemplate *engine, const LoopBinding &binding)
        : m_engine(engine)
    {
        pushLoopBinding(engine, binding);
    }
    ~BindingScope() { popLoopBinding(m_engine); }
    Q_DISABLE_COPY(BindingScope)

private:
    TessivaneTemplate *m_engine;
};

} // namespace

TessivaneTemplateCommandForeach::~TessivaneTemplateCommandForeach() = default;

bool TessivaneTemplateCommandForeach::isResponsibleFor(const QString &name)
{
    const bool isHeader = name.startsWith(s_foreach)
        && (name.size() == s_foreach.size() || name.at(s_foreach.size()).isSpace());
    return isHeader || name == s_endForeach || name == s_item;
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
    // "$REGROOT..." would be taken for the registry root in every key.
    m_isValid = match.hasMatch() && !match.captured(1).startsWith(QLatin1String("$REGROOT"))
        && groups.size() == 1;
    if (!m_isValid)
        parser->warning("malformed loop header '%s', expected FOREACH $NAME IN REG(prefix)",
                        formatArgument(name + parameter).constData());
    m_isDropped = !parser->m_activeCommands.isEmpty();
    m_name = match.captured(1);
    m_prefix = m_isValid ? expandRegistryKey(groups.at(0), parser->getTemplate()) : QString();
    while (m_prefix.endsWith(QLatin1Char('/')))
        m_prefix.chop(1);
    m_isCapturing = true;
    m_depth = 0;
    m_headerLine = parser->lineNumber();
    m_bodyLine = 0;
    m_lastLine = 0;
    m_headerRest.clear();
    m_hasHeaderRestCommand = false;
    m_body.clear();
    // The block is read even when its header is wrong, so that its ENDFOREACH closes it.
    return CommandSkipBegin;
}

bool TessivaneTemplateCommandForeach::capture(QStringView token, bool isCommand, int lineNumber,
                                              bool isControlLine)
{
    if (lineNumber != m_headerLine)
        takeHeaderRest();
    const QString name = isCommand ? commandName(token) : QString();
    if (name == s_endForeach && m_depth == 0) {
        takeHeaderRest();
        // The closing line is a control line: its blanks are no part of the
        // block, and the commands before the ENDFOREACH make a control line
        // of the block's own.
        if (isControlLine && m_lastLine == lineNumber && lineNumber != m_headerLine) {
            if (m_hasLastLineCommand)
                m_body += QLatin1Char('\n');
            else
                m_body.truncate(m_lastLineStart);
        }
        return false;
    }
    if (name.startsWith(s_foreach) && isResponsibleFor(name))
        ++m_depth;
    else if (name == s_endForeach)
        --m_depth;
    // The rest of a header's control line waits: blanks alone are dropped.
    if (isControlLine && lineNumber == m_headerLine) {
        m_headerRest += token;
        m_hasHeaderRestCommand = m_hasHeaderRestCommand || isCommand;
        return true;
    }
    if (lineNumber != m_lastLine) {
        m_lastLine = lineNumber;
        m_lastLineStart = m_body.size();
        m_hasLastLineCommand = false;
        if (m_bodyLine == 0)
            m_bodyLine = lineNumber;
    }
    m_hasLastLineCommand = m_hasLastLineCommand || isCommand;
    m_body += token;
    return true;
}

// Commands after the header on its control line are part of the block, on
// the header's line, where the block's own parser drops that control line.
void TessivaneTemplateCommandForeach::takeHeaderRest()
{
    if (m_hasHeaderRestCommand) {
        m_body.prepend(m_headerRest);
        m_bodyLine = m_headerLine;
        if (m_lastLine == 0) {
            m_lastLine = m_headerLine;
            m_hasLastLineCommand = true;
        }
    }
    m_headerRest.clear();
    m_hasHeaderRestCommand = false;
}

int TessivaneTemplateCommandForeach::end(TessivaneTemplateParser *parser)
{
    if (!m_isCapturing) {
        parser->warning("ENDFOREACH without FOREACH");
        return CommandFailed;
    }
    m_isCapturing = false;
    Tessivane *registry = parser->registryBackend();
    const bool isRendered = m_isValid && !m_isDropped;
    if (isRendered && !registry)
        parser->warning("no registry backend set, can't lookup reg key");
    if (isRendered && registry) {
        for (const QString &item : children(registry, m_prefix)) {
            if (!render(parser, item))
                break;
        }
    }
    m_body.clear();
    return CommandSkipEnd;
}

// The block runs through a parser of its own, into a text that is then
// written out; a block that does not end with a line feed gets none. Returns
// false when the block declared a newer template version, which ends the loop.
bool TessivaneTemplateCommandForeach::render(TessivaneTemplateParser *parser, const QString &item)
{
    TessivaneTemplate *engine = parser->getTemplate();
    const BindingScope binding(engine, {m_name, m_prefix + QLatin1Char('/') + item, item});
    QString body = m_body;
    QTextStream in(&body);
    QString rendered;
    QTextStream out(&rendered);
    int result;
    {
        TessivaneTemplateParser nested(engine, &in, &out, parser->fileName());
        nested.m_lineNumber = m_bodyLine - 1;
        result = nested.process();
    }
    out.flush();
    if (!m_body.endsWith(QLatin1Char('\n')) && rendered.endsWith(QLatin1Char('\n')))
        rendered.chop(1);
    OutputSink::write(parser->getOutStream(), rendered);
    return result != 1;
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
    OutputSink::write(parser->getOutStream(), binding.item);
    return CommandDone;
}

void TessivaneTemplateCommandForeach::finish(TessivaneTemplateParser *parser)
{
    if (!m_isCapturing)
        return;
    m_isCapturing = false;
    const uint comments = inlineComments(parser);
    parser->warning("FOREACH of line %d is not closed with ENDFOREACH", m_headerLine);
    // The report in the output ends a line of its own.
    if (inlineComments(parser) != comments)
        OutputSink::write(parser->getOutStream(), u"\n");
}
