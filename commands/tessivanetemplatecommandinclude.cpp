#include "tessivanetemplatecommandinclude.h"

#include "parameter_p.h"
#include "qtcompat_p.h"
#include "tessivanetemplate.h"
#include "tessivanetemplateparser.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstdio>
#include <cstring>

using namespace TessivaneTemplatePrivate;

namespace {

const QLatin1String s_includeFile("INCLUDE_FILE");
const QLatin1String s_includeDir("INCLUDE_DIR");
const QLatin1String s_includeExecutable("INCLUDE_EXECUTABLE");

QByteArray arg(const QString &text)
{
    return formatArgument(text);
}

} // namespace

TessivaneTemplateCommandInclude::~TessivaneTemplateCommandInclude() = default;

bool TessivaneTemplateCommandInclude::isResponsibleFor(const QString &name)
{
    return name == s_includeFile || name == s_includeDir || name == s_includeExecutable;
}

int TessivaneTemplateCommandInclude::executeCommand(TessivaneTemplateParser *parser,
                                                    const QString &name, const QString &parameter)
{
    if (!isParenthesized(parameter))
        return CommandFailed;
    const QString argument = parameter.mid(1, parameter.size() - 2);
    if (name == s_includeFile)
        return includeFile(parser, argument);
    if (name == s_includeDir)
        return includeDir(parser, argument);
    if (name == s_includeExecutable)
        return includeExecutable(parser, argument);
    return CommandFailed;
}

int TessivaneTemplateCommandInclude::includeFile(TessivaneTemplateParser *parser,
                                                 const QString &path)
{
    if (isRefused(parser, path))
        return CommandFailed;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        // For a failed open QFile's error text is the system's description of
        // the error (a directory aside, which QFile refuses in words of its own).
        parser->warning("Could not open file '%s': %s", arg(path).constData(),
                        arg(file.errorString()).constData());
        return CommandFailed;
    }
    QTextStream in(&file);
    TessivaneTemplateParser nested(parser->getTemplate(), &in, parser->getOutStream(), path);
    return nested.process() == 0 ? CommandDone : CommandFailed;
}

// Guards against a file that includes itself, directly or through others:
// without it the nesting would go on until the stack or the file descriptors
// run out. Canonical paths see through relative names and links.
bool TessivaneTemplateCommandInclude::isRefused(TessivaneTemplateParser *parser,
                                                const QString &path)
{
    const QList<TessivaneTemplateParser *> &running = parser->getTemplate()->runningParsers();
    if (running.size() >= MaxIncludeDepth) {
        parser->warning("Could not include file '%s': includes nested more than %d deep",
                        arg(path).constData(), int(MaxIncludeDepth));
        return true;
    }
    const QString canonical = QFileInfo(path).canonicalFilePath();
    if (canonical.isEmpty())
        return false;
    for (TessivaneTemplateParser *outer : running) {
        if (QFileInfo(outer->fileName()).canonicalFilePath() == canonical) {
            parser->warning("Could not include file '%s': it is already being processed "
                            "(include cycle)",
                            arg(path).constData());
            return true;
        }
    }
    return false;
}

int TessivaneTemplateCommandInclude::includeDir(TessivaneTemplateParser *parser,
                                                const QString &path)
{
    // An empty name is no directory: QDir would read it as the working
    // directory and give its entries absolute paths under "/".
    const QDir dir(path);
    if (path.isEmpty() || !dir.exists()) {
        parser->warning("Could not open directory '%s'", arg(path).constData());
        return CommandFailed;
    }
    const QStringList entries = dir.entryList(QDir::Files | QDir::NoSymLinks | QDir::Readable,
                                              QDir::Name | QDir::IgnoreCase);
    for (const QString &entry : entries) {
        if (entry == QLatin1String(".") || entry == QLatin1String(".."))
            continue;
        if (includeFile(parser, path + QLatin1Char('/') + entry) != 0)
            return CommandFailed;
    }
    return CommandDone;
}

int TessivaneTemplateCommandInclude::includeExecutable(TessivaneTemplateParser *parser,
                                                       const QString &command)
{
#ifdef TESSIVANETEMPLATE_NO_EXECUTABLES
    parser->warning("Could not open executable '%s': %s", arg(command).constData(),
                    "disabled in this build");
    return CommandFailed;
#else
    std::FILE *pipe = ::popen(toAscii(command).constData(), "r");
    if (!pipe) {
        parser->warning("Could not open executable '%s': %s", arg(command).constData(),
                        std::strerror(errno));
        return CommandFailed;
    }
    // Each chunk is written as it comes; a NUL byte ends the text of its chunk.
    LocaleDecoder decoder;
    QTextStream &out = *parser->getOutStream();
    char buffer[1024];
    while (std::fgets(buffer, sizeof buffer, pipe))
        out << decoder.decode(buffer, int(std::strlen(buffer)));
    ::pclose(pipe);
    return CommandDone;
#endif
}
