#ifndef ETCDSOURCE_H
#define ETCDSOURCE_H

#include "etcdprotocol.h"
#include "registrysource.h"
#include "syncconfiguration.h"

#include <QByteArray>
#include <QMap>
#include <QNetworkAccessManager>
#include <QPointer>
#include <QSslConfiguration>
#include <QTimer>
#include <QUrl>

class QNetworkReply;

/**
 * \brief The keys under a prefix of etcd, read through its JSON gateway.
 *
 * A snapshot is one revision: the first page of the range read fixes it and
 * every further page is read at it, so that a render never mixes two states.
 * With start() the source then watches from the snapshot's revision + 1 (on a
 * member that has a leader, with progress notifications), applies each event
 * to its copy and announces it with changed(); a broken stream resumes from
 * the last revision seen + 1 on the next endpoint, after a pause that doubles
 * up to backoff_max, and a compacted revision takes a fresh snapshot. While
 * no stream is live, fill() refuses, so that every destination keeps its last
 * good content. A token is fetched when a user is given and fetched again
 * when etcd refuses it; TLS uses the CA, certificate and key given.
 *
 * Each etcd key is stored under its whole key; a key or value that is not
 * UTF-8 is skipped and logged.
 *
 * \sa EtcdProtocol, SyncCycle
 */
class EtcdRegistrySource : public RegistrySource
{
    Q_OBJECT

public:
    EtcdRegistrySource(const EtcdSettings &settings, int backoffMaxMs, QObject *parent = nullptr);
    ~EtcdRegistrySource() override;

    /**
     * Stores the current snapshot in \a registry. Without start(), it is read
     * now, each endpoint tried once within the timeout; after start(), it is
     * the one the watch keeps, refused while no stream is live.
     */
    bool fill(Tessivane &registry, QString &error) override;
    bool isReady() const override;
    /// Takes a snapshot and keeps it up to date for as long as the source lives.
    void start();

private:
    enum class State { Idle, Authenticating, Reading, Watching, Waiting };

    bool readOnce(QString &error);
    void connectToEtcd();
    void authenticate();
    void readPage(const QByteArray &start);
    void watch();
    void pageRead(QNetworkReply *reply);
    void authenticated(QNetworkReply *reply);
    void watchRead();
    void watchEnded();
    bool apply(const EtcdProtocol::WatchMessage &message);
    void takeKeyValue(const EtcdProtocol::KeyValue &keyValue, QMap<QString, QString> &values);
    void fail(const QString &reason);
    bool isRefusedToken(QNetworkReply *reply) const;
    QNetworkReply *post(const char *path, const QByteArray &body, bool isStream = false);
    void log(const QString &message) const;

    EtcdSettings m_settings;
    int m_backoffMaxMs;
    QNetworkAccessManager m_network;
    QSslConfiguration m_ssl;
    QList<QUrl> m_endpoints;
    int m_endpoint = 0;
    State m_state = State::Idle;
    bool m_isStarted = false;
    bool m_isLive = false; // a watch stream is open and its creation confirmed
    bool m_hasSnapshot = false;
    QByteArray m_token;
    QString m_password;
    QString m_error; // why the last attempt failed
    QMap<QString, QString> m_values; // the keys under the prefix, as of m_revision
    QMap<QString, QString> m_reading; // the snapshot being read
    qint64 m_revision = 0;
    qint64 m_readingRevision = 0;
    QPointer<QNetworkReply> m_reply; // the request in flight
    EtcdProtocol::WatchStream m_stream;
    QTimer m_retry;
    int m_backoffMs = 0;
    bool m_hasFailedBefore = false; // for the log: a reconnection after a failure
};

#endif
