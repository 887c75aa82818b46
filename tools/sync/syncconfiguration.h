#ifndef SYNCCONFIGURATION_H
#define SYNCCONFIGURATION_H

#include "localregistry.h"

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QSslCertificate>
#include <QSslKey>
#include <QString>
#include <QStringList>

#include <sys/types.h>

/// One [[template]] of the configuration: what to render where, and how to check and reload it.
struct TemplateSettings
{
    QString name; // unique; the destination's path unless given
    QString source;
    QString destination;
    QByteArray root; // the registry root; [registry] root unless given
    QList<QPair<QString, QString>> tags;
    QByteArray commentPrefix;
    QByteArray commentSuffix;
    int language = 1;
    bool isStrict = true;
    int mode = -1; // -1: the destination's own
    uid_t owner = uid_t(-1);
    gid_t group = gid_t(-1);
    QString check;
    QString reload;
    int timeoutMs = 30000;
    QString directory; // of the configuration file: commands run there
    QString origin; // FILE:LINE of its table, for messages
};

/// The [etcd] table: read and checked here, served by the etcd registry source.
struct EtcdSettings
{
    bool isSet = false;
    QStringList endpoints;
    QString prefix;
    QString username;
    QString passwordFile;
    QString password; // read from passwordFile
    QString caFile;
    QString certFile;
    QString keyFile;
    QList<QSslCertificate> caCertificates; // read from caFile, certFile and keyFile
    QList<QSslCertificate> certificateChain;
    QSslKey privateKey;
    int timeoutMs = 5000;
    int pageSize = 10000; // keys a range read asks for at a time
};

/// The [watch] table: how changes are debounced and how long reconnections wait at most.
struct WatchSettings
{
    int waitMs = 200;
    int waitMaxMs = 2000;
    int backoffMaxMs = 30000;
};

/**
 * \brief The sync tool's configuration, read from TOML files and directories.
 *
 * load() reads every file given, and every "*.toml" of every directory given
 * in name order, with toml++, and merges them: [registry], [etcd] and [watch]
 * at most once in all, [[template]] any number with unique names. Relative
 * paths are taken relative to the directory of the file that names them.
 * Every key is checked: an unknown key, a value of the wrong type or out of
 * range is an error that names the file, the line and the key, and nothing of
 * the configuration is used.
 */
class SyncConfiguration
{
public:
    /// Reads \a paths. Returns true on success; otherwise false, and errorString() says why.
    bool load(const QStringList &paths);
    /// Why the configuration cannot serve a run of the templates \a names (all when empty); empty
    /// when it can.
    QString problemWith(const QStringList &names) const;
    QString errorString() const;

    LocalRegistry registry;
    QByteArray registryRoot;
    EtcdSettings etcd;
    WatchSettings watch;
    QList<TemplateSettings> templates;
    QStringList files; // the configuration files read
    QStringList directories; // the configuration directories read

private:
    bool loadFile(const QString &path);

    QString m_error;
    QString m_registryOrigin;
    QString m_etcdOrigin;
    QString m_watchOrigin;
};

#endif
