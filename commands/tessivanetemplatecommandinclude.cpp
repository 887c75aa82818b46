#include "tessivanetemplatecommandinclude.h"

#include "outputsink_p.h"
#include "parameter_p.h"
#include "qtcompat_p.h"
#include "syntaxscan_p.h"
#include "tessivanetemplate.h"
#include "tessivanetemplateparser.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace TessivaneTemplatePrivate;

namespace {

const QLatin1String s_includeFile("INCLUDE_FILE");
const QLatin1String s_includeDir("INCLUDE_DIR");
const QLatin1String s_includeExecutable("INCLUDE_EXECUTABLE");

QByteArray arg(const QString &text)
{
    return formatArgument(text);
}

// No file name holds a NUL byte: the system would see only what stands
// before it, and so open another file.
bool canNameFile(const QString &path)
{
    return !path.isEmpty() && !path.contains(QChar(0));
}

// Opens \a path read-only into \a file. Returns 0, or the system's error
// number: the warning gives the system's description of the error, which QFile
// replaces with words of its own for a directory and an empty name.
int openForReading(const QString &path, QFile &file)
{
    if (path.contains(QChar(0)))
        return ENOENT;
    const int fd = ::open(QFile::encodeName(fileSystemName(path)).constData(),
                          O_RDONLY | O_NOCTTY | O_CLOEXEC);
    if (fd < 0)
        return errno;
    struct stat status;
    const bool isDirectory = ::fstat(fd, &status) == 0 && S_ISDIR(status.st_mode);
    if (isDirectory || !file.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
        ::close(fd);
        return isDirectory ? EISDIR : EBADF;
    }
    return 0;
}

// The path of the file \a path names, links and ".." resolved; empty when it
// names none. Asked only of names that can name a file, since QFileInfo
// complains aloud about the others.
QString canonicalPath(const QString &path)
{
    return canNameFile(path) ? QFileInfo(fileSystemName(path)).canonicalFilePath() : QString();
}

} // namespace

TessivaneTemplateCommandInclude::~TessivaneTemplateCommandInclude() = default;

bool TessivaneTemplateCommandInclude::isResponsibleFor(const QString &name)
{
    // Every command name is offered here: the first letter answers most of them.
    if (name.isEmpty() || name.at(0) != QLatin1Char('I'))
        return false;
    return isName(name, s_includeFile) || isName(name, s_includeDir)
        || isName(name, s_includeExecutable);
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
    QFile file;
    const int error = openForReading(path, file);
    if (error != 0) {
        parser->warning("Could not open file '%s': %s", arg(path).constData(),
                        std::strerror(error));
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
    const QString canonical = canonicalPath(path);
    if (canonical.isEmpty())
        return false;
    for (TessivaneTemplateParser *outer : running) {
        if (canonicalPath(outer->fileName()) == canonical) {
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
    const QDir dir(fileSystemName(path));
    if (path.isEmpty() || !dir.exists()) {
        parser->warning("Could not open directory '%s'", arg(path).constData());
        return CommandFailed;
    }
    const QStringList entries =
        entriesIgnoringCase(dir, QDir::Files | QDir::NoSymLinks | QDir::Readable);
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
    // Each chunk is written as it comes, every byte one Latin-1 character; a
    // NUL byte ends the text of its chunk.
    QTextStream *out = parser->getOutStream();
    char buffer[1024];
    while (std::fgets(buffer, sizeof buffer, pipe))
        OutputSink::write(out, fromAscii(buffer));
    ::pclose(pipe);
    return CommandDone;
#endif
}
