#ifndef SYNCDAEMON_H
#define SYNCDAEMON_H

#include "syncconfiguration.h"

#include <QByteArray>
#include <QFileSystemWatcher>
#include <QHash>
#include <QObject>
#include <QStringList>
#include <QTimer>

#include <csignal>
#include <memory>

class QSocketNotifier;
class RegistrySource;

/**
 * \brief Keeps the destinations in step for as long as it runs (--watch).
 *
 * It runs a first cycle, then another after each change of a registry file,
 * a template's source or a configuration file (or a source's own change
 * notice), once the changes have been quiet for [watch] wait and at most
 * wait_max after the first of them. Files are watched together with their
 * directories, so that an editor that saves by writing a new file and
 * renaming it over the old one is seen too; a change counts only when a
 * watched file's identity, size or time changed, so the cycle's own writes
 * beside a source start nothing.
 *
 * SIGHUP reads the configuration again (an invalid one is logged and the old
 * one kept); SIGTERM and SIGINT end the event loop with status 0 once the
 * template in progress is written. Under systemd it reports READY=1 after the
 * first cycle and a STATUS= line after each.
 *
 * \sa SyncCycle
 */
class SyncDaemon : public QObject
{
    Q_OBJECT

public:
    SyncDaemon(const QStringList &configurationPaths, const QStringList &names,
               std::unique_ptr<SyncConfiguration> configuration);
    ~SyncDaemon() override;

    /// Installs the handlers of SIGHUP, SIGTERM and SIGINT; call before the first cycle.
    static void catchSignals();
    /// Non-zero once SIGTERM or SIGINT arrived: the cycle begins no further template.
    static const volatile sig_atomic_t *stopRequested();

    /// Runs the first cycle, then the event loop. Returns the exit status.
    int exec();

private Q_SLOTS:
    void somethingChanged();
    void runCycle();
    void readSignal();

private:
    void setUpSources();
    void watchFiles();
    void refreshWatches();
    void watchPath(const QString &path);
    void schedule();
    bool hasChanged(const QString &path);
    void reloadConfiguration();

    QStringList m_configurationPaths;
    QStringList m_names;
    std::unique_ptr<SyncConfiguration> m_configuration;
    QList<RegistrySource *> m_sources; // children of this object
    QFileSystemWatcher m_watcher;
    QStringList m_files; // watched: configuration, registry and template files
    QHash<QString, QByteArray> m_fingerprints; // watched file: identity, size and times
    QHash<QString, QByteArray> m_watchIds; // watched path: the device and inode watched
    QTimer m_quiet; // wait: restarted by every change
    QTimer m_longest; // wait_max: started by the first change of a burst
    bool m_isConfigurationChanged = false;
    QSocketNotifier *m_signals = nullptr;
    bool m_isReady = false;
    QStringList m_failedReloads; // owed again at the next cycle
};

#endif
