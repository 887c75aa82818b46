#include "tessivanetemplateparser.h"

#include "enginestate_p.h"
#include "linereader_p.h"
#include "outputsink_p.h"
#include "qtcompat_p.h"
#include "syntaxscan_p.h"
#include "tessivanetemplate.h"
#include "tessivanetemplatecommand.h"
#include "tessivanetemplatecommandcomment.h"
#include "tessivanetemplatecommandforeach.h"
#include "tessivanetemplatecommandif.h"
#include "tessivanetemplatecommandinclude.h"
#include "tessivanetemplatecommandreg.h"
#include "tessivanetemplatecommandtag.h"
#include "tessivanetemplatecommandversion.h"

#include <cstdarg>

using namespace TessivaneTemplatePrivate;

namespace {

void writeLine(OutputSink *sink, const LineReader::Bytes &bytes)
{
    if (bytes.hasFeed) {
        sink->writeUtf8(bytes.data, bytes.size + 1);
        return;
    }
    sink->writeUtf8(bytes.data, bytes.size);
    sink->writeUtf8("\n", 1);
}

QString formatV(const char *format, va_list args)
{
    return QString::vasprintf(format, args);
}

// Empties a buffer the parser reuses for every command, keeping its memory;
// most commands find it empty already or fill it anew.
void clear(QString &buffer)
{
    if (!buffer.isEmpty())
        buffer.resize(0);
}

// The version-2 loop command has this place in a parser's command list.
const int LoopPosition = 6;

// "FOREACH", or "FOREACH" and a blank and the rest of a header.
bool isLoopHeader(const QString &name)
{
    const QLatin1String keyword("FOREACH");
    return name.startsWith(keyword)
        && (name.size() == keyword.size() || name.at(keyword.size()).isSpace());
}

bool isControlCommand(const QString &name)
{
    return name.startsWith(QLatin1String("IF")) || name == QLatin1String("ELSE")
        || name == QLatin1String("ENDIF") || isLoopHeader(name)
        || name == QLatin1String("ENDFOREACH") || name.startsWith(QLatin1Char('*'))
        || name == QLatin1String("TEMPLATE_VERSION");
}

// In version 2 a line of nothing but control commands and blanks writes no
// line at all, so that blocks leave no blank lines behind.
bool isControlLine(const QString &line)
{
    TokenWalker walker(line);
    QStringView token;
    bool isCommand = false;
    bool hasCommand = false;
    QString name;
    QString parameter;
    while (walker.next(token, isCommand)) {
        if (!isCommand) {
            if (!token.trimmed().isEmpty())
                return false;
            continue;
        }
        splitCommandToken(token, name, parameter);
        if (!isControlCommand(name))
            return false;
        hasCommand = true;
    }
    return hasCommand;
}

} // namespace

TessivaneTemplateParser::TessivaneTemplateParser(TessivaneTemplate *engine, QTextStream *in,
                                                 QTextStream *out, QString fileName)
    : m_engine(engine)
    , m_in(in)
    , m_out(out)
    , m_version(-1)
    , m_fileName(std::move(fileName))
    , m_lineNumber(0)
{
    m_engine->setCurrentParser(this);
    // The order is the order in which a command name is offered to them.
    m_commands.append(new TessivaneTemplateCommandReg);
    m_commands.append(new TessivaneTemplateCommandInclude);
    m_commands.append(new TessivaneTemplateCommandComment);
    m_commands.append(new TessivaneTemplateCommandVersion);
    m_commands.append(new TessivaneTemplateCommandIf);
    m_commands.append(new TessivaneTemplateCommandTag);
    // Version 1 knows no loops: its parsers have the six commands alone.
    if (m_engine->languageVersion() >= 2)
        m_commands.append(new TessivaneTemplateCommandForeach);
}

TessivaneTemplateParser::~TessivaneTemplateParser()
{
    while (!m_commands.isEmpty())
        delete m_commands.takeFirst();
    m_engine->removeCurrentParser(this);
    forgetParser(this);
}

int TessivaneTemplateParser::process()
{
    // The same buffers serve every line and every command, so that a line
    // costs no allocation of its own.
    LineReader reader(m_in);
    QString line;
    QString name;
    QString parameter;
    auto *loop = dynamic_cast<TessivaneTemplateCommandForeach *>(m_commands.value(LoopPosition));
    // Into the engine's own output a line without a command goes as the bytes
    // it was read as, which is what decoding and encoding it would give.
    OutputSink *sink = OutputSink::of(m_out);
    LineReader::Bytes bytes;
    // Text tends to follow text: after a line without a command, the lines
    // ahead are copied in runs while they are plain.
    bool isAfterText = true;
    for (;;) {
        const bool isCapturing = loop && loop->isCapturing();
        if (isAfterText && sink && !isCapturing && copyPlainLines(reader, sink))
            continue;
        if (!(sink ? reader.readLine(line, bytes) : reader.readLine(line)))
            break;
        ++m_lineNumber;
        isAfterText = false;
        if (bytes.data) {
            // Version 1 takes a line apart in its bytes: only the commands are
            // decoded. The line feed is part of the line.
            if (!loop && bytes.hasFeed) {
                bool hasCommand = false;
                if (!processLineBytes(QLatin1String(bytes.data, bytes.size + 1), bytes.isAscii,
                                      reader, sink, line, name, parameter, hasCommand))
                    return 1;
                isAfterText = !hasCommand;
                continue;
            }
            if (!isCapturing && indexOfMark(QLatin1String(bytes.data, bytes.size)) < 0) {
                isAfterText = true;
                if (m_activeCommands.isEmpty())
                    writeLine(sink, bytes);
                continue;
            }
            reader.decode(bytes, line);
        }
        line += QLatin1Char('\n');
        if (indexOfMark(line) < 0 && !isCapturing) {
            if (m_activeCommands.isEmpty())
                OutputSink::write(m_out, line);
        } else if (!processCommandLine(line, name, parameter, loop)) {
            return 1;
        }
    }
    if (loop)
        loop->finish(this);
    return reader.errorString().isEmpty() ? 0 : readFailed(reader.errorString());
}

// An input that breaks off is never taken for one that ended: the report
// names the line that could not be read, and the engine's run fails.
int TessivaneTemplateParser::readFailed(const QString &reason)
{
    ++m_lineNumber;
    setReadFailed(m_engine, true);
    warning("Could not read file '%s': %s", formatArgument(m_fileName).constData(),
            formatArgument(reason).constData());
    return 3;
}

// Returns false when a declared template version stops the input. The line
// is walked as the tokenizer cuts it, without copying its text tokens.
bool TessivaneTemplateParser::processCommandLine(const QString &line, QString &name,
                                                 QString &parameter,
                                                 TessivaneTemplateCommandForeach *loop)
{
    // Only version 2 has a loop command, and only version 2 drops control lines.
    const bool isControl = loop && isControlLine(line);
    const uint comments = isControl ? inlineComments(this) : 0;
    TokenWalker walker(line);
    QStringView token;
    bool isCommand = false;
    while (walker.next(token, isCommand)) {
        if (loop && loop->isCapturing() && loop->capture(token, isCommand, m_lineNumber, isControl))
            continue;
        if (!isCommand) {
            if (m_activeCommands.isEmpty() && !isControl)
                OutputSink::write(m_out, token);
            continue;
        }
        // Version 2 writes an empty command, "%%%%", as a literal mark.
        if (loop && token == QLatin1String("%%%%")) {
            if (m_activeCommands.isEmpty())
                OutputSink::write(m_out, u"%%");
            continue;
        }
        // A command without "(" has an empty parameter.
        if (!splitCommandToken(token, name, parameter))
            clear(parameter);
        // A loop in a region being dropped is read to its end all the same, so
        // that what its block holds is not taken for commands of the region.
        if (loop && !m_activeCommands.isEmpty() && isLoopHeader(name)) {
            QList<TessivaneTemplateCommand *> loopOnly {loop};
            executeCommandForList(name, parameter, &loopOnly);
            continue;
        }
        if (!processCommand(name, parameter))
            return false;
    }
    // A report written into a control line still ends with the line.
    if (isControl && inlineComments(this) != comments)
        OutputSink::write(m_out, u"\n");
    return true;
}

// Copies the whole ASCII lines without a command that the reader holds from
// here on, in one piece: most of a template is such text. Returns false when
// the next line is not one of them.
bool TessivaneTemplateParser::copyPlainLines(LineReader &reader, OutputSink *sink)
{
    int lineCount = 0;
    const QLatin1String lines = reader.asciiLines(lineCount);
    const int size = int(lines.size());
    if (size == 0)
        return false;
    m_lineNumber += lineCount;
    if (m_activeCommands.isEmpty())
        sink->writeUtf8(lines.data(), size);
    reader.skip(size);
    return true;
}

// As processCommandLine() in version 1, for a line in bytes that are their own
// UTF-8: text goes out as it is, and each command is decoded into \a command.
// Sets \a hasCommand when the line holds one.
bool TessivaneTemplateParser::processLineBytes(QLatin1String line, bool isAscii, LineReader &reader,
                                               OutputSink *sink, QString &command, QString &name,
                                               QString &parameter, bool &hasCommand)
{
    ByteTokenWalker walker(line);
    QLatin1String token;
    bool isCommand = false;
    while (walker.next(token, isCommand)) {
        if (!isCommand) {
            if (m_activeCommands.isEmpty())
                sink->writeUtf8(token.data(), token.size());
            continue;
        }
        hasCommand = true;
        bool hasParameter = false;
        if (isAscii) {
            hasParameter = splitCommandToken(token, name, parameter);
        } else {
            reader.decode(LineReader::Bytes {token.data(), int(token.size())}, command);
            hasParameter = splitCommandToken(command, name, parameter);
        }
        if (!hasParameter)
            clear(parameter);
        if (!processCommand(name, parameter))
            return false;
    }
    return true;
}

bool TessivaneTemplateParser::processCommand(QString &name, QString &parameter)
{
    const int result = executeCommand(name, parameter);
    if (result == TessivaneTemplateCommand::CommandUnhandled && m_activeCommands.isEmpty()) {
        warning("No command handler for '%s' found", formatArgument(name).constData());
    } else if (result == TessivaneTemplateCommand::CommandVersionSet) {
        // The parser understands the engine's language version.
        const int version = m_engine->languageVersion();
        if (m_version > version) {
            warning("template is version %d, parser is version %d.", m_version, version);
            return false;
        }
    }
    return true;
}

int TessivaneTemplateParser::executeCommand(QString &name, QString &parameter)
{
    return executeCommandForList(name, parameter,
                                 m_activeCommands.isEmpty() ? &m_commands : &m_activeCommands);
}

int TessivaneTemplateParser::executeCommandForList(QString &name, QString &parameter,
                                                   QList<TessivaneTemplateCommand *> *list)
{
    TessivaneTemplateCommand *responsible = nullptr;
    for (TessivaneTemplateCommand *command : qAsConst(*list)) {
        if (command->isResponsibleFor(name)) {
            responsible = command;
            break;
        }
    }
    if (!responsible)
        return TessivaneTemplateCommand::CommandUnhandled;

    const int result = responsible->executeCommand(this, name, parameter);
    if (result == TessivaneTemplateCommand::CommandSkipBegin)
        m_activeCommands.append(responsible);
    else if (result == TessivaneTemplateCommand::CommandSkipEnd)
        m_activeCommands.removeOne(responsible);
    return result;
}

QTextStream *TessivaneTemplateParser::getOutStream()
{
    return m_out;
}

TessivaneTemplate *TessivaneTemplateParser::getTemplate()
{
    return m_engine;
}

void TessivaneTemplateParser::setVersion(int version)
{
    m_version = version;
}

Tessivane *TessivaneTemplateParser::registryBackend()
{
    return m_engine->registryBackend();
}

QString TessivaneTemplateParser::fileName() const
{
    return m_fileName;
}

int TessivaneTemplateParser::lineNumber() const
{
    return m_lineNumber;
}

void TessivaneTemplateParser::warning(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    const QString message = formatV(format, args);
    va_end(args);
    report("WARNING", message, false);
}

void TessivaneTemplateParser::debug(const char *format, ...)
{
    if (!m_engine->showDebug())
        return;
    va_list args;
    va_start(args, format);
    const QString message = formatV(format, args);
    va_end(args);
    report("DEBUG", message, true);
}

void TessivaneTemplateParser::warningInOutstream(const char *format, ...)
{
    const QString prefix = m_engine->commentPrefix();
    if (prefix.isEmpty())
        return;
    va_list args;
    va_start(args, format);
    const QString text = formatV(format, args);
    va_end(args);

    countInlineComment(this);
    QString comment = QLatin1Char(' ') + prefix + QLatin1Char(' ') + text;
    const QString suffix = m_engine->commentSuffix();
    if (!suffix.isEmpty())
        comment += QLatin1Char(' ') + suffix;
    OutputSink::write(m_out, comment);
}

// The report travels as the argument of "%s", never as a format, so that a
// "%" in a file name, a key or a value is printed as it is.
void TessivaneTemplateParser::report(const char *kind, const QString &message, bool isDebug)
{
    const QString text = QLatin1String(kind) + QLatin1Char(' ') + m_fileName + QLatin1Char('/')
        + QString::number(m_lineNumber) + QLatin1String(": ") + message;
    const QByteArray bytes = formatArgument(text);
    if (isDebug)
        qDebug("%s", bytes.constData());
    else
        qWarning("%s", bytes.constData());
    warningInOutstream("%s", bytes.constData());
}
