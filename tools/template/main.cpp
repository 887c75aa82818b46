// tessivane-template: renders a template into a configuration file.
//
// Exit status; where several apply, the first in the order 2, 3, 1, 4 wins:
//   0  rendered
//   1  the template declares a newer template version
//   2  usage error or bad registry file; nothing is rendered
//   3  a file could not be opened, read, written or replaced, or memory ran out
//   4  --strict, and a warning other than a registry default was reported
// On any status but 0 an OUTPUT file is left byte for byte as it was, and
// under --strict nothing reaches standard output.

#include "commandline.h"
#include "localregistry.h"
#include "optiontaghandler.h"
#include "pendingnames.h"
#include "qtcompat_p.h"
#include "replacingfile.h"
#include "reportlog.h"
#include "tessivane.h"
#include "tessivanetemplate.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>

#include <memory>
#include <new>
#include <unistd.h>

namespace {

enum ExitStatus {
    Rendered = 0,
    NewerVersion = 1,
    UsageError = 2,
    FileError = 3,
    StrictFailure = 4
};

const char s_toolName[] = "tessivane-template";

struct Options
{
    QString templateName;
    QString outputName;
    LocalRegistry registry;
    QList<QPair<QString, QString>> tags;
    QByteArray root;
    QByteArray commentPrefix;
    QByteArray commentSuffix;
    bool isDebug = false;
    bool isStrict = false;
    int language = 1;

    bool writesToStandardOutput() const
    {
        return outputName.isNull() || outputName == QLatin1String("-");
    }
};

struct OptionSet
{
    QCommandLineOption registry {
        {QStringLiteral("r"), QStringLiteral("registry")},
        QStringLiteral("Load a registry file (.json or key = value lines); "
                       "repeatable, later values replace earlier ones."),
        QStringLiteral("FILE")};
    QCommandLineOption set {{QStringLiteral("s"), QStringLiteral("set")},
                            QStringLiteral("Store one registry value; repeatable, applied after "
                                           "all files."),
                            QStringLiteral("KEY=VALUE")};
    QCommandLineOption root {{QStringLiteral("R"), QStringLiteral("root")},
                             QStringLiteral("The registry root that replaces $REGROOT in keys."),
                             QStringLiteral("PATH")};
    QCommandLineOption prefix {QStringLiteral("comment-prefix"),
                               QStringLiteral("Write diagnostics into the output as comments "
                                              "opened by TEXT."),
                               QStringLiteral("TEXT")};
    QCommandLineOption suffix {QStringLiteral("comment-suffix"),
                               QStringLiteral("Close those comments with TEXT."),
                               QStringLiteral("TEXT")};
    QCommandLineOption env {{QStringLiteral("e"), QStringLiteral("env")},
                            QStringLiteral("Store every environment variable NAME as the registry "
                                           "key /env/NAME; applied after the files, before "
                                           "--set.")};
    QCommandLineOption debug {{QStringLiteral("d"), QStringLiteral("debug")},
                              QStringLiteral("Report debug messages too.")};
    QCommandLineOption tag {{QStringLiteral("t"), QStringLiteral("tag")},
                            QStringLiteral("TAG(NAME) writes TEXT; IF TAG(NAME) compares TEXT as "
                                           "an integer; repeatable, the first definition wins."),
                            QStringLiteral("NAME=TEXT")};
    QCommandLineOption language {QStringLiteral("language"),
                                 QStringLiteral("The template language version: 1 (the default) or "
                                                "2, with ELSE, FOREACH, ITEM, %%%%, REG_JSON and "
                                                "REG_SHELL."),
                                 QStringLiteral("N")};
    QCommandLineOption strict {QStringLiteral("strict"),
                               QStringLiteral("Treat any warning but a registry default as a "
                                              "failure (exit status 4, OUTPUT untouched, nothing "
                                              "on standard output).")};
    QCommandLineOption help {{QStringLiteral("h"), QStringLiteral("help")},
                             QStringLiteral("Show this help and exit.")};
    QCommandLineOption version {{QStringLiteral("V"), QStringLiteral("version")},
                                QStringLiteral("Show the library's version and exit.")};
};

void setUp(QCommandLineParser &parser, const OptionSet &options)
{
    parser.setApplicationDescription(
        QStringLiteral("Render the template TEMPLATE into OUTPUT, with registry values, tags, "
                       "conditional blocks and includes.\nExit status: 0 rendered, 1 newer "
                       "template version, 2 usage or registry file error, 3 file error, "
                       "4 warning under --strict."));
    parser.addOptions({options.registry, options.set, options.env, options.root, options.prefix,
                       options.suffix, options.debug, options.tag, options.language, options.strict,
                       options.help, options.version});
    parser.addPositionalArgument(QStringLiteral("TEMPLATE"),
                                 QStringLiteral("The template file, or - for standard input."));
    parser.addPositionalArgument(QStringLiteral("OUTPUT"),
                                 QStringLiteral("The output file; standard output when absent "
                                                "or -."),
                                 QStringLiteral("[OUTPUT]"));
}

// Splits NAME=VALUE at the first "="; nothing is trimmed.
bool splitAssignments(const QStringList &texts, const QString &option, const QString &shape,
                      QList<QPair<QString, QString>> &pairs, QString &error)
{
    for (const QString &text : texts) {
        const int equals = text.indexOf(QLatin1Char('='));
        if (equals < 0) {
            error = option + QLatin1String(" expects ") + shape + QLatin1String(", got '") + text
                + QLatin1String("'");
            return false;
        }
        pairs.append(qMakePair(text.left(equals), text.mid(equals + 1)));
    }
    return true;
}

// The engine takes its settings as Latin-1; anything beyond would be changed.
bool toLatin1(const QString &text, const QString &option, QByteArray &bytes, QString &error)
{
    bytes = text.toLatin1();
    if (TessivaneTemplatePrivate::fromLatin1(bytes) == text)
        return true;
    error = option + QLatin1String(" takes Latin-1 text only");
    return false;
}

bool readOptions(QCommandLineParser &parser, const OptionSet &set, Options &options, QString &error)
{
    const QStringList positional = parser.positionalArguments();
    if (positional.isEmpty()) {
        error = QStringLiteral("missing TEMPLATE");
        return false;
    }
    if (positional.size() > 2) {
        error = QLatin1String("unexpected argument '") + positional.at(2) + QLatin1String("'");
        return false;
    }
    // An empty argument is a variable a script forgot to set, not a request
    // for standard input or output.
    for (int i = 0; i < positional.size(); ++i) {
        if (positional.at(i).isEmpty()) {
            error = QLatin1String(i == 0 ? "empty TEMPLATE argument" : "empty OUTPUT argument");
            return false;
        }
    }
    options.templateName = positional.at(0);
    options.outputName = positional.value(1);
    options.registry.files = parser.values(set.registry);
    options.registry.includesEnvironment = parser.isSet(set.env);
    options.isDebug = parser.isSet(set.debug);
    options.isStrict = parser.isSet(set.strict);
    if (parser.isSet(set.language)) {
        const QString language = parser.value(set.language);
        options.language = language == QLatin1String("1") ? 1
            : language == QLatin1String("2")              ? 2
                                                          : 0;
        if (options.language == 0) {
            error = QLatin1String("--language takes 1 or 2, not '") + language + QLatin1Char('\'');
            return false;
        }
    }
    if (!splitAssignments(parser.values(set.set), QStringLiteral("--set"),
                          QStringLiteral("KEY=VALUE"), options.registry.values, error)
        || !splitAssignments(parser.values(set.tag), QStringLiteral("--tag"),
                             QStringLiteral("NAME=TEXT"), options.tags, error))
        return false;
    for (const auto &tag : qAsConst(options.tags)) {
        QByteArray unused;
        if (!toLatin1(tag.first, QStringLiteral("--tag NAME"), unused, error))
            return false;
    }
    return toLatin1(parser.value(set.root), QStringLiteral("--root"), options.root, error)
        && toLatin1(parser.value(set.prefix), QStringLiteral("--comment-prefix"),
                    options.commentPrefix, error)
        && toLatin1(parser.value(set.suffix), QStringLiteral("--comment-suffix"),
                    options.commentSuffix, error);
}

bool loadRegistry(Options &options, Tessivane &registry)
{
    try {
        if (options.registry.load(registry))
            return true;
        ReportLog::printError(options.registry.errorString());
    } catch (const std::bad_alloc &) {
        ReportLog::printError(QStringLiteral("cannot load the registry files: out of memory"));
    }
    return false;
}

int runEngine(TessivaneTemplate &engine, const Options &options, QFile &out)
{
    if (options.templateName != QLatin1String("-"))
        return engine.process(QFile::encodeName(options.templateName).constData(), out);
    QFile in;
    in.open(STDIN_FILENO, QIODevice::ReadOnly);
    return engine.process(&in, options.templateName, out);
}

std::unique_ptr<ReplacingFile> makeOutput(const Options &options)
{
    if (options.writesToStandardOutput())
        return std::make_unique<ReplacingFile>(STDOUT_FILENO, QStringLiteral("standard output"));
    return std::make_unique<ReplacingFile>(options.outputName);
}

// A failed run leaves OUTPUT as it was; a write that failed on the way
// outranks what the run itself reports.
int render(TessivaneTemplate &engine, const Options &options)
{
    const std::unique_ptr<ReplacingFile> output = makeOutput(options);
    if (options.isStrict)
        output->holdBack();
    if (!output->open()) {
        ReportLog::printError(output->errorString());
        return FileError;
    }
    const int result = runEngine(engine, options, output->file());
    if (result == 3)
        return FileError;
    const bool isComplete = result == 0 && !(options.isStrict && ReportLog::strictFailures() > 0);
    if (isComplete ? !output->commit() : !output->checkWritten()) {
        ReportLog::printError(output->errorString());
        return FileError;
    }
    if (result == 1)
        return NewerVersion;
    return isComplete ? Rendered : StrictFailure;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QLatin1String(s_toolName));
    QCoreApplication::setApplicationVersion(QStringLiteral(TT_VERSION));
    PendingNames::installSignalCleanup();
    ReportLog::install();

    QCommandLineParser parser;
    const OptionSet optionSet;
    setUp(parser, optionSet);
    int status = Rendered;
    if (!CommandLine::parse(parser, optionSet.help, optionSet.version, status))
        return status;
    Options options;
    QString error;
    if (!readOptions(parser, optionSet, options, error))
        return CommandLine::usageError(error);

    Tessivane registry;
    if (!loadRegistry(options, registry))
        return UsageError;
    OptionTagHandler tags;
    for (const auto &tag : qAsConst(options.tags))
        tags.define(tag.first, tag.second);

    TessivaneTemplate engine;
    engine.setRegistryBackend(&registry);
    engine.setRegRoot(options.root.constData());
    engine.setCommentPrefix(options.commentPrefix.constData());
    engine.setCommentSuffix(options.commentSuffix.constData());
    engine.setShowDebug(options.isDebug);
    engine.setLanguageVersion(options.language);
    if (!tags.isEmpty())
        engine.addTag(&tags);
    try {
        return render(engine, options);
    } catch (const std::bad_alloc &) {
        // The output's temporary has no name: nothing is left behind.
        ReportLog::printError(QLatin1String("cannot render '") + options.templateName
                              + QLatin1String("': out of memory"));
        return FileError;
    }
}
