// tessivane-sync: keeps configuration files in step with their templates.
//
// Exit status without --watch:
//   0  every template is in step
//   1  a template, check or reload failed; the others were still done
//   2  usage or configuration error, or a registry that could not be read;
//      nothing was written
//   3  --dry-run: nothing failed, and at least one destination would change
// With --watch the process runs until SIGTERM or SIGINT and then exits 0;
// a configuration error at start exits 2.

#include "commandline.h"
#include "pendingnames.h"
#include "reportlog.h"
#include "syncconfiguration.h"
#include "synccycle.h"
#include "syncdaemon.h"

#include <QCommandLineParser>
#include <QCoreApplication>

#include <memory>

namespace {

enum ExitStatus { InStep = 0, Failed = 1, UsageError = 2, WouldChange = 3 };

const char s_toolName[] = "tessivane-sync";
const char s_defaultConfiguration[] = "/etc/tessivane-template/sync.d";

struct OptionSet
{
    QCommandLineOption watch {QStringLiteral("watch"),
                              QStringLiteral("Keep running, and render again on every change.")};
    QCommandLineOption dryRun {QStringLiteral("dry-run"),
                               QStringLiteral("Render and check, write nothing, reload nothing, "
                                              "and print a unified diff of every destination "
                                              "that would change.")};
    QCommandLineOption name {{QStringLiteral("n"), QStringLiteral("name")},
                             QStringLiteral("Only the template NAME; repeatable."),
                             QStringLiteral("NAME")};
    QCommandLineOption help {{QStringLiteral("h"), QStringLiteral("help")},
                             QStringLiteral("Show this help and exit.")};
    QCommandLineOption version {{QStringLiteral("V"), QStringLiteral("version")},
                                QStringLiteral("Show the version and exit.")};
};

void setUp(QCommandLineParser &parser, const OptionSet &options)
{
    parser.setApplicationDescription(
        QStringLiteral("Keep configuration files in step with their templates and the registry: "
                       "render each, check it, replace the file only when it changed, reload the "
                       "service.\nExit status: 0 in step, 1 a template, check or reload failed, "
                       "2 usage or configuration error, 3 --dry-run and something would change."));
    parser.addOptions({options.watch, options.dryRun, options.name, options.help, options.version});
    parser.addPositionalArgument(
        QStringLiteral("CONFIG"),
        QStringLiteral("TOML files, or directories whose *.toml files are read in name order; "
                       "default %1.")
            .arg(QLatin1String(s_defaultConfiguration)),
        QStringLiteral("[CONFIG...]"));
}

int runOnce(const SyncConfiguration &configuration, const QStringList &names, bool isDryRun)
{
    PendingNames::installSignalCleanup();
    QObject sourceOwner;
    SyncCycle cycle(configuration, SyncCycle::sourcesFor(configuration, &sourceOwner));
    cycle.setDryRun(isDryRun);
    cycle.setSelection(names);
    static const volatile sig_atomic_t never = 0;
    const CycleResult result = cycle.run(&never);
    if (!result.isRegistryRead)
        return UsageError;
    if (result.failed > 0)
        return Failed;
    return isDryRun && result.changed > 0 ? WouldChange : InStep;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QLatin1String(s_toolName));
    QCoreApplication::setApplicationVersion(QStringLiteral(TT_VERSION));
    ReportLog::install();

    QCommandLineParser parser;
    const OptionSet options;
    setUp(parser, options);
    int status = InStep;
    if (!CommandLine::parse(parser, options.help, options.version, status))
        return status;
    const bool isWatching = parser.isSet(options.watch);
    const bool isDryRun = parser.isSet(options.dryRun);
    if (isWatching && isDryRun)
        return CommandLine::usageError(QStringLiteral("--watch and --dry-run exclude each other"));
    QStringList paths = parser.positionalArguments();
    if (paths.isEmpty())
        paths << QLatin1String(s_defaultConfiguration);

    auto configuration = std::make_unique<SyncConfiguration>();
    if (!configuration->load(paths)) {
        ReportLog::printError(configuration->errorString());
        return UsageError;
    }
    const QStringList names = parser.values(options.name);
    const QString problem = configuration->problemWith(names);
    if (!problem.isEmpty())
        return CommandLine::usageError(problem);
    if (configuration->templates.isEmpty())
        ReportLog::printError(QStringLiteral("no template is configured"));
    if (!isWatching)
        return runOnce(*configuration, names, isDryRun);
    PendingNames::installSignalCleanup({SIGHUP, SIGTERM, SIGINT});
    SyncDaemon::catchSignals();
    SyncDaemon daemon(paths, names, std::move(configuration));
    return daemon.exec();
}
