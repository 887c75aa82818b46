#include "syncdaemon.h"

#include "registrysource.h"
#include "reportlog.h"
#include "synccycle.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QSocketNotifier>

#include <systemd/sd-daemon.h>

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// The signal handler's way into the event loop.
int s_signalPipe[2] = {-1, -1};
volatile sig_atomic_t s_stop = 0;

void onSignal(int signalNumber)
{
    if (signalNumber != SIGHUP)
        s_stop = 1;
    const char byte = char(signalNumber);
    [[maybe_unused]] const ssize_t written = ::write(s_signalPipe[1], &byte, 1);
}

// What tells a new version of a file: its identity, size and times.
QByteArray fingerprint(const QString &path)
{
    struct stat status;
    if (::stat(QFile::encodeName(path).constData(), &status) != 0)
        return QByteArray("missing");
    return QByteArray::number(quint64(status.st_dev)) + ':'
        + QByteArray::number(quint64(status.st_ino)) + ':'
        + QByteArray::number(qint64(status.st_size)) + ':'
        + QByteArray::number(qint64(status.st_mtim.tv_sec)) + '.'
        + QByteArray::number(qint64(status.st_mtim.tv_nsec)) + ':'
        + QByteArray::number(qint64(status.st_ctim.tv_sec)) + '.'
        + QByteArray::number(qint64(status.st_ctim.tv_nsec));
}

// A configuration directory changes when its list of configuration files does.
QByteArray listing(const QString &directory)
{
    return QDir(directory)
        .entryList({QStringLiteral("*.toml")}, QDir::Files)
        .join(QLatin1Char('/'))
        .toUtf8();
}

QByteArray statusLine(const CycleResult &result)
{
    if (!result.isRegistryRead)
        return "STATUS=registry not readable; destinations kept as they were";
    return QStringLiteral("STATUS=%1 replaced, %2 unchanged, %3 failed")
        .arg(result.changed)
        .arg(result.unchanged)
        .arg(result.failed)
        .toUtf8();
}

} // namespace

SyncDaemon::SyncDaemon(const QStringList &configurationPaths, const QStringList &names,
                       std::unique_ptr<SyncConfiguration> configuration)
    : m_configurationPaths(configurationPaths)
    , m_names(names)
    , m_configuration(std::move(configuration))
{
    m_quiet.setSingleShot(true);
    m_longest.setSingleShot(true);
    connect(&m_quiet, &QTimer::timeout, this, &SyncDaemon::runCycle);
    connect(&m_longest, &QTimer::timeout, this, &SyncDaemon::runCycle);
    connect(&m_watcher, &QFileSystemWatcher::fileChanged, this, &SyncDaemon::somethingChanged);
    connect(&m_watcher, &QFileSystemWatcher::directoryChanged, this, &SyncDaemon::somethingChanged);
}

SyncDaemon::~SyncDaemon() = default;

void SyncDaemon::catchSignals()
{
    ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, s_signalPipe);
    struct sigaction action = {};
    action.sa_handler = onSignal;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    for (int signalNumber : {SIGHUP, SIGTERM, SIGINT})
        ::sigaction(signalNumber, &action, nullptr);
}

const volatile sig_atomic_t *SyncDaemon::stopRequested()
{
    return &s_stop;
}

int SyncDaemon::exec()
{
    m_signals = new QSocketNotifier(s_signalPipe[0], QSocketNotifier::Read, this);
    connect(m_signals, &QSocketNotifier::activated, this, &SyncDaemon::readSignal);
    setUpSources();
    watchFiles();
    runCycle();
    return s_stop ? 0 : QCoreApplication::exec();
}

void SyncDaemon::setUpSources()
{
    qDeleteAll(m_sources);
    m_sources = SyncCycle::sourcesFor(*m_configuration, this);
    for (RegistrySource *source : qAsConst(m_sources)) {
        connect(source, &RegistrySource::changed, this, &SyncDaemon::schedule);
        source->start();
    }
}

void SyncDaemon::runCycle()
{
    m_quiet.stop();
    m_longest.stop();
    if (m_isConfigurationChanged)
        reloadConfiguration();
    // Nothing is rendered before every source has its first snapshot. The
    // service is up all the same: a unit waiting on etcd must not time out.
    for (RegistrySource *source : qAsConst(m_sources)) {
        if (!source->isReady()) {
            if (!m_isReady)
                ::sd_notify(0, "READY=1\nSTATUS=waiting for etcd");
            m_isReady = true;
            return;
        }
    }
    SyncCycle cycle(*m_configuration, m_sources);
    cycle.setSelection(m_names);
    cycle.setFailedReloads(m_failedReloads);
    const CycleResult result = cycle.run(&s_stop);
    m_failedReloads = cycle.failedReloads();
    refreshWatches();
    const QByteArray status = statusLine(result);
    ::sd_notify(0, (m_isReady ? status : "READY=1\n" + status).constData());
    m_isReady = true;
    if (s_stop)
        QCoreApplication::quit();
}

void SyncDaemon::readSignal()
{
    char signalNumber = 0;
    if (::read(s_signalPipe[0], &signalNumber, 1) != 1)
        return;
    if (signalNumber != SIGHUP) {
        QCoreApplication::quit();
        return;
    }
    m_isConfigurationChanged = true;
    runCycle();
}

// An invalid configuration is logged and the one in use kept.
void SyncDaemon::reloadConfiguration()
{
    m_isConfigurationChanged = false;
    auto configuration = std::make_unique<SyncConfiguration>();
    const QString problem = configuration->load(m_configurationPaths)
        ? configuration->problemWith(m_names)
        : configuration->errorString();
    if (!problem.isEmpty()) {
        ReportLog::printError(QLatin1String("configuration kept, the new one is invalid: ")
                              + problem);
        return;
    }
    m_configuration = std::move(configuration);
    ReportLog::printError(QStringLiteral("configuration read again"));
    setUpSources();
    watchFiles();
}

// Every file and configuration directory is fingerprinted anew: called when
// the configuration is read.
void SyncDaemon::watchFiles()
{
    if (!m_watcher.files().isEmpty())
        m_watcher.removePaths(m_watcher.files());
    if (!m_watcher.directories().isEmpty())
        m_watcher.removePaths(m_watcher.directories());
    m_fingerprints.clear();
    m_watchIds.clear();
    m_files = m_configuration->files + m_configuration->registry.files;
    for (const TemplateSettings &settings : qAsConst(m_configuration->templates))
        m_files << settings.source;
    m_files.removeDuplicates();
    for (const QString &directory : qAsConst(m_configuration->directories))
        m_fingerprints.insert(directory, listing(directory));
    for (const QString &file : qAsConst(m_files))
        m_fingerprints.insert(file, fingerprint(file));
    refreshWatches();
}

// Watches each file that exists, and the nearest existing directory of each,
// so that a file, or a whole directory of them, that appears or is renamed
// into place is seen.
void SyncDaemon::refreshWatches()
{
    for (const QString &file : qAsConst(m_files)) {
        if (QFileInfo(file).isFile())
            watchPath(file);
        QString directory = QFileInfo(file).absolutePath();
        while (!QFileInfo(directory).isDir() && directory != QLatin1String("/"))
            directory = QFileInfo(directory).absolutePath();
        watchPath(directory);
    }
    for (const QString &directory : qAsConst(m_configuration->directories))
        watchPath(directory);
}

// A watch follows what it watches, also when it is renamed away: a path that
// now names something else is watched anew.
void SyncDaemon::watchPath(const QString &path)
{
    const QByteArray id = fingerprint(path).split(':').mid(0, 2).join(':');
    const bool isWatched =
        m_watcher.files().contains(path) || m_watcher.directories().contains(path);
    QByteArray &known = m_watchIds[path];
    if (known == id && isWatched)
        return;
    if (isWatched)
        m_watcher.removePath(path);
    m_watcher.addPath(path);
    known = id;
}

bool SyncDaemon::hasChanged(const QString &path)
{
    const QByteArray now =
        m_configuration->directories.contains(path) ? listing(path) : fingerprint(path);
    QByteArray &known = m_fingerprints[path];
    if (known == now)
        return false;
    known = now;
    if (m_configuration->files.contains(path) || m_configuration->directories.contains(path))
        m_isConfigurationChanged = true;
    return true;
}

// Any event may stand for any change (a rename moves files between
// directories): every watched file is looked at again, by its fingerprint.
void SyncDaemon::somethingChanged()
{
    refreshWatches();
    bool isChanged = false;
    const QStringList known = m_fingerprints.keys();
    for (const QString &path : known)
        isChanged = hasChanged(path) || isChanged;
    if (isChanged)
        schedule();
}

void SyncDaemon::schedule()
{
    m_quiet.start(m_configuration->watch.waitMs);
    if (!m_longest.isActive())
        m_longest.start(m_configuration->watch.waitMaxMs);
}
