#include "synccycle.h"

#include "commandrunner.h"
#include "etcdsource.h"
#include "optiontaghandler.h"
#include "qtcompat_p.h"
#include "registrysource.h"
#include "replacingfile.h"
#include "reportlog.h"
#include "tessivane.h"
#include "tessivanetemplate.h"

#include <QCoreApplication>
#include <QFile>
#include <QProcess>

#include <cstdio>

namespace {

QString reloadLabel(const QString &command)
{
    return QLatin1String("reload '") + command + QLatin1Char('\'');
}

} // namespace

void logEvent(const QString &name, const QString &message)
{
    const QStringList lines = message.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    for (const QString &line : lines)
        ReportLog::printError(name + QLatin1String(": ") + line);
}

SyncCycle::SyncCycle(const SyncConfiguration &configuration, const QList<RegistrySource *> &sources)
    : m_configuration(configuration)
    , m_sources(sources)
{
}

QList<RegistrySource *> SyncCycle::sourcesFor(const SyncConfiguration &configuration,
                                              QObject *parent)
{
    LocalRegistry local = configuration.registry;
    local.values.clear();
    QList<RegistrySource *> sources {new LocalRegistrySource(local, parent)};
    if (configuration.etcd.isSet)
        sources << new EtcdRegistrySource(configuration.etcd, configuration.watch.backoffMaxMs,
                                          parent);
    return sources;
}

void SyncCycle::setDryRun(bool isDryRun)
{
    m_isDryRun = isDryRun;
}

void SyncCycle::setSelection(const QStringList &names)
{
    m_selection = names;
}

void SyncCycle::setFailedReloads(const QStringList &names)
{
    m_failedReloads = names;
}

QStringList SyncCycle::failedReloads() const
{
    return m_failedReloads;
}

CycleResult SyncCycle::run(const volatile sig_atomic_t *stopRequested)
{
    m_stopRequested = stopRequested;
    CycleResult result;
    Tessivane registry;
    result.isRegistryRead = readRegistry(registry);
    if (!result.isRegistryRead)
        return result;
    QList<const TemplateSettings *> reloads;
    for (const TemplateSettings &settings : m_configuration.templates) {
        if (*stopRequested)
            break;
        if (!m_selection.isEmpty() && !m_selection.contains(settings.name))
            continue;
        bool isChanged = false;
        if (!renderTemplate(settings, registry, isChanged))
            ++result.failed;
        else
            ++(isChanged ? result.changed : result.unchanged);
        // A reload that failed before is owed, changed or not.
        const bool isOwed = isChanged || m_failedReloads.contains(settings.name);
        if (isOwed && !m_isDryRun && !settings.reload.isEmpty())
            reloads << &settings;
    }
    result.failed += runReloads(reloads);
    return result;
}

// Sources in their order of precedence, then the single values over all.
bool SyncCycle::readRegistry(Tessivane &registry)
{
    for (RegistrySource *source : qAsConst(m_sources)) {
        QString error;
        if (!source->fill(registry, error)) {
            ReportLog::printError(error);
            return false;
        }
    }
    for (const auto &value : m_configuration.registry.values)
        registry.set(value.first, value.second);
    return true;
}

bool SyncCycle::renderTemplate(const TemplateSettings &settings, Tessivane &registry,
                               bool &isChanged)
{
    ReplacingFile output(settings.destination);
    output.setAttributes(settings.mode, settings.owner, settings.group);
    if (!output.open()) {
        logEvent(settings.name, output.errorString());
        return false;
    }
    output.removeLeftovers();
    if (!render(settings, registry, output) || !runCheck(settings, output))
        return false;
    if (m_isDryRun) {
        isChanged = output.differsFromTarget();
        if (!isChanged)
            logEvent(settings.name, QLatin1String("unchanged ") + settings.destination);
        return !isChanged || showDifference(settings, output);
    }
    if (!output.commit()) {
        logEvent(settings.name, output.errorString());
        return false;
    }
    isChanged = output.wasReplaced();
    logEvent(settings.name,
             QLatin1String(isChanged ? "replaced " : "unchanged ") + settings.destination);
    return true;
}

// The library's reports go to the log, each line naming the template.
bool SyncCycle::render(const TemplateSettings &settings, Tessivane &registry, ReplacingFile &output)
{
    ReportLog::setPrefix(QCoreApplication::applicationName().toLocal8Bit() + ": "
                         + settings.name.toLocal8Bit() + ": ");
    ReportLog::resetCount();
    OptionTagHandler tags;
    for (const auto &tag : settings.tags)
        tags.define(tag.first, tag.second);
    TessivaneTemplate engine;
    engine.setRegistryBackend(&registry);
    const QByteArray root = settings.root.isNull() ? m_configuration.registryRoot : settings.root;
    engine.setRegRoot(root.constData());
    engine.setCommentPrefix(settings.commentPrefix.constData());
    engine.setCommentSuffix(settings.commentSuffix.constData());
    engine.setLanguageVersion(settings.language);
    if (!tags.isEmpty())
        engine.addTag(&tags);
    const int result =
        engine.process(QFile::encodeName(settings.source).constData(), output.file());
    const int warnings = ReportLog::strictFailures();
    ReportLog::setPrefix(QByteArray());
    if (!output.checkWritten()) {
        logEvent(settings.name, output.errorString());
        return false;
    }
    const char *failure = result == 3       ? "not rendered: a file could not be read"
        : result == 1                       ? "not rendered: the template is for a newer version"
        : settings.isStrict && warnings > 0 ? "not rendered: a warning under strict"
                                            : nullptr;
    if (failure)
        logEvent(settings.name, QLatin1String(failure));
    return !failure;
}

// The check reads the staged file under its name beside the destination, so
// that what it resolves against the destination's directory is found.
bool SyncCycle::runCheck(const TemplateSettings &settings, ReplacingFile &output)
{
    if (settings.check.isEmpty())
        return true;
    if (!output.stage()) {
        logEvent(settings.name, output.errorString());
        return false;
    }
    QString command = settings.check;
    command.replace(QLatin1String("{staged}"), shellQuoted(output.stagedPath()));
    CommandRunner runner;
    if (runner.run(command, settings.directory, settings.timeoutMs, m_stopRequested))
        return true;
    logEvent(settings.name,
             QLatin1String("check failed (") + runner.failure() + QLatin1String("): ")
                 + settings.check);
    logEvent(settings.name, TessivaneTemplatePrivate::fromLocal8Bit(runner.output()));
    return false;
}

// diff(1) compares the destination with the rendering, which it reads from
// its standard input: nothing is written beside the destination for it.
bool SyncCycle::showDifference(const TemplateSettings &settings, ReplacingFile &output)
{
    std::fflush(stdout);
    const bool exists = QFile::exists(settings.destination);
    QProcess diff;
    diff.setProcessChannelMode(QProcess::ForwardedOutputChannel);
    diff.start(QStringLiteral("diff"),
               {QStringLiteral("-u"), QStringLiteral("--label"),
                exists ? settings.destination : QStringLiteral("/dev/null"),
                QStringLiteral("--label"), settings.destination,
                exists ? settings.destination : QStringLiteral("/dev/null"), QStringLiteral("-")});
    const bool isCopied = output.copyWritten(diff);
    diff.closeWriteChannel();
    diff.waitForFinished(-1);
    logEvent(settings.name, TessivaneTemplatePrivate::fromLocal8Bit(diff.readAllStandardError()));
    // 1 means the bytes differ, 0 that only the attributes do.
    if (isCopied && diff.exitStatus() == QProcess::NormalExit && diff.exitCode() <= 1) {
        logEvent(settings.name,
                 QLatin1String("would replace ") + settings.destination
                     + QLatin1String(diff.exitCode() == 0 ? " (its attributes)" : ""));
        return true;
    }
    logEvent(settings.name, QLatin1String("cannot compare with diff"));
    return false;
}

// Each distinct command runs once, named after the first template that asks for it.
int SyncCycle::runReloads(const QList<const TemplateSettings *> &reloads)
{
    int failed = 0;
    QStringList done;
    m_failedReloads.clear();
    for (const TemplateSettings *settings : reloads) {
        if (done.contains(settings->reload))
            continue;
        done << settings->reload;
        CommandRunner runner;
        const bool isDone =
            runner.run(settings->reload, settings->directory, settings->timeoutMs, m_stopRequested);
        logEvent(settings->name,
                 reloadLabel(settings->reload)
                     + (isDone ? QStringLiteral(" done")
                               : QLatin1String(" failed (") + runner.failure() + QLatin1Char(')')));
        logEvent(settings->name, TessivaneTemplatePrivate::fromLocal8Bit(runner.output()));
        if (isDone)
            continue;
        ++failed;
        for (const TemplateSettings *asking : reloads) {
            if (asking->reload == settings->reload)
                m_failedReloads << asking->name;
        }
    }
    return failed;
}
