#ifndef TESSIVANETEMPLATEPARSER_H
#define TESSIVANETEMPLATEPARSER_H

#include "tessivanetemplate_export.h"

#include <QList>
#include <QString>
#include <QTextStream>

class Tessivane;
class TessivaneTemplate;
class TessivaneTemplateCommand;
class TessivaneTemplateCommandForeach;
namespace TessivaneTemplatePrivate {
class LineReader;
class OutputSink;
} // namespace TessivaneTemplatePrivate

/**
 * \brief Runs one template input from its first line to its last.
 *
 * Reads the input line by line, copies text to the output, hands every
 * command between two "%%" marks to the first of its six command objects that
 * is responsible for it and acts on the result code. While a command has
 * opened a region to be dropped (the active-command list is not empty), no
 * text is written and command names go only to the listed commands.
 *
 * A parser registers itself with its engine while it exists and owns its
 * command objects; the engine, the streams and the file name's file are the
 * caller's. It also carries the diagnostics every command uses: warning() and
 * debug() report through qWarning() and qDebug() and, when the engine has a
 * comment prefix, into the output as an inline comment.
 *
 * \sa TessivaneTemplate, TessivaneTemplateCommand, TessivaneTemplateTokenizer
 */
class TESSIVANETEMPLATE_EXPORT TessivaneTemplateParser
{
public:
    /// The version of the template language this parser understands.
    enum { ParserVersion = 1 };

    TessivaneTemplateParser(TessivaneTemplate *engine, QTextStream *in, QTextStream *out,
                            QString fileName);
    ~TessivaneTemplateParser();

    /**
     * Runs the input to its end. Returns 0 when it was read to its end, 1 when
     * a template version newer than ParserVersion stopped it, 3 when the input
     * could not be read to its end (a read error, or a line longer than the
     * engine can hold), with a warning that says why. Call it once.
     *
     * The parser reads the bytes of the input stream's device itself, so
     * that a pipe is read to its end and a read error is told from the end;
     * a stream over a pipe must not have been read from before.
     */
    int process();
    /// Dispatches to the active-command list when it is not empty, else to all commands.
    int executeCommand(QString &name, QString &parameter);
    /**
     * Offers \a name to the commands of \a list in order; the first responsible
     * one executes. Returns its result, or CommandUnhandled when none is.
     */
    int executeCommandForList(QString &name, QString &parameter,
                              QList<TessivaneTemplateCommand *> *list);

    QTextStream *getOutStream();
    TessivaneTemplate *getTemplate();
    void setVersion(int version);
    /// The engine's registry backend at the moment of the call, or null.
    Tessivane *registryBackend();
    /// The name diagnostics print for this input.
    QString fileName() const;
    /// The 1-based number of the line being processed.
    int lineNumber() const;

    /// Reports "WARNING file/line: message" to qWarning() and into the output.
    void warning(const char *format, ...) Q_ATTRIBUTE_FORMAT_PRINTF(2, 3);
    /// As warning(), with "DEBUG" and qDebug(), and only when the engine shows debug messages.
    void debug(const char *format, ...) Q_ATTRIBUTE_FORMAT_PRINTF(2, 3);
    /// Writes " prefix text [suffix]" into the output when the engine has a comment prefix.
    void warningInOutstream(const char *format, ...) Q_ATTRIBUTE_FORMAT_PRINTF(2, 3);

private:
    Q_DISABLE_COPY(TessivaneTemplateParser)
    // Renders a loop's block with a parser whose lines count from the block's first.
    friend class TessivaneTemplateCommandForeach;

    bool processCommandLine(const QString &line, QString &name, QString &parameter,
                            TessivaneTemplateCommandForeach *loop);
    bool copyPlainLines(TessivaneTemplatePrivate::LineReader &reader,
                        TessivaneTemplatePrivate::OutputSink *sink);
    bool processLineBytes(QLatin1String line, bool isAscii,
                          TessivaneTemplatePrivate::LineReader &reader,
                          TessivaneTemplatePrivate::OutputSink *sink, QString &command,
                          QString &name, QString &parameter, bool &hasCommand);
    bool processCommand(QString &name, QString &parameter);
    void report(const char *kind, const QString &message, bool isDebug);
    int readFailed(const QString &reason);

    TessivaneTemplate *m_engine;
    QTextStream *m_in;
    QTextStream *m_out;
    QList<TessivaneTemplateCommand *> m_commands;
    // Commands that have opened a region to be dropped, once per open region.
    QList<TessivaneTemplateCommand *> m_activeCommands;
    // The version the template declared last; -1 when none was declared.
    int m_version;
    QString m_fileName;
    int m_lineNumber;
};

#endif
