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
 * to its copy and announces it with changed(). A broken stream resumes after
 * the last revision whose events have all been applied, on the next
 * endpoint, after a pause that doubles up to backoff_max; a compacted
 * revision, or a message too large to read, takes a fresh snapshot. A stream
 * that is quiet may be dead: it must be created within the timeout, and its
 * member must keep answering a small read every timeout. While no stream is
 * live, fill() refuses, so that every destination keeps its last good
 * content. A token is fetched when a user is given and fetched once more when
 * etcd refuses it; TLS uses the CA, certificate and key given.
 *
 * Each etcd key is stored under its whole key; a key that is not UTF-8 is
 * skipped, and one whose value is not is left out, both logged.
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
    void start() override;

private:
    using Step = void (EtcdRegistrySource::*)();

    bool readOnce(QString &error);
    void connectToEtcd();
    void authenticate(QPointer<QNetworkReply> &slot, Step next);
    void readPage(const QByteArray &start);
    void watch();
    void probe();
    void authenticated(QNetworkReply *reply, Step next);
    void pageRead(QNetworkReply *reply);
    void watchRead();
    void watchEnded();
    void probed(QNetworkReply *reply);
    bool apply(const EtcdProtocol::WatchMessage &message);
    void takeKeyValue(const EtcdProtocol::KeyValue &keyValue, QMap<QString, QString> &values);
    bool readRange(QNetworkReply *reply, QPointer<QNetworkReply> &slot, Step retry,
                   EtcdProtocol::RangePage &page);
    bool renewsToken(QNetworkReply *reply, QPointer<QNetworkReply> &slot, Step next);
    QString failureOf(QNetworkReply *reply, const QByteArray &body, const QString &error) const;
    void fail(const QString &reason);
    QString endpointName() const;
    QNetworkReply *post(const char *path, const QByteArray &body, bool isStream = false);
    void log(const QString &message) const;

    EtcdSettings m_settings;
    int m_backoffMaxMs;
    QNetworkAccessManager m_network;
    QSslConfiguration m_ssl;
    QList<QUrl> m_endpoints;
    int m_endpoint = 0;
    bool m_isStarted = false;
    bool m_isLive = false; // a watch stream is open and its creation confirmed
    bool m_hasSnapshot = false;
    QByteArray m_token;
    bool m_isTokenFresh = false; // fetched for the request in flight: refused again is a failure
    QString m_error; // ENDPOINT: why the last attempt failed
    QMap<QString, QString> m_values; // the keys under the prefix, as of m_revision
    QMap<QString, QString> m_reading; // the snapshot being read
    qint64 m_revision = 0; // every event up to it is applied to m_values
    qint64 m_readingRevision = 0;
    QPointer<QNetworkReply> m_reply; // the request or watch stream in flight
    QPointer<QNetworkReply> m_probe; // the read that shows the watch's member still answers
    EtcdProtocol::WatchStream m_stream;
    QTimer m_retry;
    QTimer m_deadline; // for the watch's creation
    QTimer m_nextProbe;
    int m_backoffMs = 0;
    bool m_hasFailedBefore = false; // for the log: a reconnection after a failure
    QString m_loggedReason; // the last failure logged, so that a streak logs each reason once
};

#endif
