#include "etcdsource.h"

#include "qtcompat_p.h"
#include "reportlog.h"
#include "tessivane.h"

#include <QEventLoop>
#include <QNetworkReply>
#include <QNetworkRequest>

namespace {

const int s_firstBackoffMs = 100;

QString fromUtf8Strictly(const QByteArray &bytes, bool &isUtf8)
{
    const QString text = TessivaneTemplatePrivate::fromUtf8(bytes);
    isUtf8 = text.toUtf8() == bytes;
    return text;
}

// A reply that timed out or was aborted is closed: reading it would only warn.
QByteArray bodyOf(QNetworkReply *reply)
{
    return reply->isOpen() ? reply->readAll() : QByteArray();
}

// Aborting a reply from inside one of its own signals is not safe; it is
// dropped now and aborted once control is back in the event loop.
void abortLater(QPointer<QNetworkReply> &slot, QObject *receiver)
{
    QNetworkReply *reply = slot;
    slot = nullptr;
    if (!reply)
        return;
    reply->disconnect(receiver);
    QTimer::singleShot(0, reply, [reply] {
        reply->abort();
        reply->deleteLater();
    });
}

} // namespace

EtcdRegistrySource::EtcdRegistrySource(const EtcdSettings &settings, int backoffMaxMs,
                                       QObject *parent)
    : RegistrySource(parent)
    , m_settings(settings)
    , m_backoffMaxMs(backoffMaxMs)
    , m_ssl(QSslConfiguration::defaultConfiguration())
{
    for (const QString &endpoint : settings.endpoints)
        m_endpoints << QUrl(endpoint);
    if (!settings.caCertificates.isEmpty())
        m_ssl.setCaCertificates(settings.caCertificates);
    m_ssl.setLocalCertificateChain(settings.certificateChain);
    m_ssl.setPrivateKey(settings.privateKey);
    // The reply says only that the handshake failed; these say why.
    connect(&m_network, &QNetworkAccessManager::sslErrors, this,
            [](QNetworkReply *reply, const QList<QSslError> &errors) {
                QStringList texts;
                for (const QSslError &error : errors)
                    texts << error.errorString();
                reply->setProperty("sslErrors", texts.join(QLatin1String("; ")));
            });
    m_retry.setSingleShot(true);
    connect(&m_retry, &QTimer::timeout, this, &EtcdRegistrySource::connectToEtcd);
    m_deadline.setSingleShot(true);
    connect(&m_deadline, &QTimer::timeout, this,
            [this] { fail(failureOf(nullptr, QByteArray(), QString())); });
    m_nextProbe.setSingleShot(true);
    connect(&m_nextProbe, &QTimer::timeout, this, &EtcdRegistrySource::probe);
}

EtcdRegistrySource::~EtcdRegistrySource()
{
    for (QNetworkReply *reply : {m_reply.data(), m_probe.data()}) {
        if (reply) {
            reply->disconnect(this);
            reply->abort();
        }
    }
}

bool EtcdRegistrySource::isReady() const
{
    return !m_isStarted || m_isLive;
}

void EtcdRegistrySource::log(const QString &message) const
{
    ReportLog::printError(QLatin1String("etcd: ") + message);
}

QString EtcdRegistrySource::endpointName() const
{
    return m_endpoints.at(m_endpoint % m_endpoints.size()).toDisplayString(QUrl::RemoveUserInfo);
}

bool EtcdRegistrySource::fill(Tessivane &registry, QString &error)
{
    if (!m_isStarted && !m_hasSnapshot && !readOnce(error))
        return false;
    if (m_isStarted && !m_isLive) {
        error = QLatin1String("etcd: waiting for etcd: ") + m_error;
        return false;
    }
    for (auto it = m_values.cbegin(); it != m_values.cend(); ++it)
        registry.set(it.key(), it.value());
    return true;
}

// Without --watch: each endpoint once, each request within the timeout.
bool EtcdRegistrySource::readOnce(QString &error)
{
    QStringList failures;
    for (m_endpoint = 0; m_endpoint < m_endpoints.size() && !m_hasSnapshot; ++m_endpoint) {
        // Both the snapshot and a failure announce themselves with changed().
        QEventLoop loop;
        const auto done = connect(this, &RegistrySource::changed, &loop, &QEventLoop::quit);
        connectToEtcd();
        loop.exec();
        disconnect(done);
        if (!m_hasSnapshot)
            failures << m_error;
    }
    if (!m_hasSnapshot)
        error = QLatin1String("etcd: no endpoint answered: ") + failures.join(QLatin1String("; "));
    return m_hasSnapshot;
}

void EtcdRegistrySource::start()
{
    m_isStarted = true;
    log(QStringLiteral("waiting for etcd"));
    connectToEtcd();
}

void EtcdRegistrySource::connectToEtcd()
{
    if (!m_settings.username.isEmpty() && m_token.isEmpty())
        authenticate(m_reply, &EtcdRegistrySource::connectToEtcd);
    else if (!m_hasSnapshot)
        readPage(QByteArray());
    else
        watch();
}

QNetworkReply *EtcdRegistrySource::post(const char *path, const QByteArray &body, bool isStream)
{
    QUrl url = m_endpoints.at(m_endpoint % m_endpoints.size());
    url.setPath(url.path() + QLatin1String(path));
    QNetworkRequest request(url);
    request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
    request.setSslConfiguration(m_ssl);
    // HTTP/1.1, and a redirect is an answer like any other: the defaults of
    // Qt 5, which Qt 6 changed to HTTP/2 where the server offers it and
    // redirects followed.
    request.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::ManualRedirectPolicy);
    if (!m_token.isEmpty())
        request.setRawHeader("Authorization", m_token);
    // A stream is quiet while nothing changes: its creation has a deadline of its own.
    if (isStream)
        request.setRawHeader("Grpc-Metadata-hasleader", "true");
    else
        request.setTransferTimeout(m_settings.timeoutMs);
    return m_network.post(request, body);
}

void EtcdRegistrySource::authenticate(QPointer<QNetworkReply> &slot, Step next)
{
    QNetworkReply *reply =
        post("/v3/auth/authenticate",
             EtcdProtocol::authenticateRequest(m_settings.username, m_settings.password));
    slot = reply;
    connect(reply, &QNetworkReply::finished, this,
            [this, reply, next] { authenticated(reply, next); });
}

void EtcdRegistrySource::authenticated(QNetworkReply *reply, Step next)
{
    reply->deleteLater();
    const QByteArray body = bodyOf(reply);
    QString error;
    if (!EtcdProtocol::parseToken(body, m_token, error)) {
        fail(QLatin1String("authentication failed: ") + failureOf(reply, body, error));
        return;
    }
    m_isTokenFresh = true;
    (this->*next)();
}

// A token refused for the first time has expired, or belongs to another
// member: a new one is fetched and \a next taken again. One refused as soon
// as it was fetched is a failure, so that a refusal cannot loop.
bool EtcdRegistrySource::renewsToken(QNetworkReply *reply, QPointer<QNetworkReply> &slot, Step next)
{
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    if (status != 401 || m_token.isEmpty() || m_isTokenFresh)
        return false;
    m_token.clear();
    authenticate(slot, next);
    return true;
}

// Every page of a snapshot is read at the revision of the first.
void EtcdRegistrySource::readPage(const QByteArray &start)
{
    if (start.isEmpty()) {
        m_reading.clear();
        m_readingRevision = 0;
    }
    QNetworkReply *reply = post("/v3/kv/range",
                                EtcdProtocol::rangeRequest(m_settings.prefix.toUtf8(), start,
                                                           m_readingRevision, m_settings.pageSize));
    m_reply = reply;
    connect(reply, &QNetworkReply::finished, this, [this, reply] { pageRead(reply); });
}

// Reads the range in \a reply into \a page. Returns false when there is none:
// the token was refused and \a retry goes again once a new one is fetched
// (in \a slot), or the read has failed.
bool EtcdRegistrySource::readRange(QNetworkReply *reply, QPointer<QNetworkReply> &slot, Step retry,
                                   EtcdProtocol::RangePage &page)
{
    reply->deleteLater();
    if (renewsToken(reply, slot, retry))
        return false;
    const QByteArray body = bodyOf(reply);
    QString error;
    if (!EtcdProtocol::parseRangePage(body, page, error)) {
        fail(failureOf(reply, body, error));
        return false;
    }
    m_isTokenFresh = false;
    return true;
}

void EtcdRegistrySource::pageRead(QNetworkReply *reply)
{
    EtcdProtocol::RangePage page;
    if (!readRange(reply, m_reply, &EtcdRegistrySource::connectToEtcd, page))
        return;
    if (m_readingRevision == 0)
        m_readingRevision = page.revision;
    for (const EtcdProtocol::KeyValue &keyValue : qAsConst(page.keyValues))
        takeKeyValue(keyValue, m_reading);
    if (page.hasMore && !page.keyValues.isEmpty()) {
        readPage(page.keyValues.last().key + '\0');
        return;
    }
    m_values = m_reading;
    m_reading.clear();
    m_revision = m_readingRevision;
    m_hasSnapshot = true;
    log(QStringLiteral("snapshot of %1 keys at revision %2").arg(m_values.size()).arg(m_revision));
    if (m_isStarted)
        watch();
    else
        Q_EMIT changed();
}

void EtcdRegistrySource::watch()
{
    m_stream = EtcdProtocol::WatchStream();
    QNetworkReply *reply = post(
        "/v3/watch", EtcdProtocol::watchRequest(m_settings.prefix.toUtf8(), m_revision + 1), true);
    m_reply = reply;
    connect(reply, &QNetworkReply::readyRead, this, &EtcdRegistrySource::watchRead);
    connect(reply, &QNetworkReply::finished, this, &EtcdRegistrySource::watchEnded);
    m_deadline.start(m_settings.timeoutMs);
}

void EtcdRegistrySource::watchRead()
{
    if (!m_reply)
        return;
    const QList<EtcdProtocol::WatchMessage> messages = m_stream.feed(m_reply->readAll());
    bool isChanged = false;
    for (const EtcdProtocol::WatchMessage &message : messages) {
        if (!apply(message))
            return;
        isChanged = isChanged || !message.events.isEmpty() || message.isCreated;
    }
    if (isChanged)
        Q_EMIT changed();
}

// Returns false when the stream can serve no longer; it has been closed then.
bool EtcdRegistrySource::apply(const EtcdProtocol::WatchMessage &message)
{
    if (message.compactRevision > 0 || message.isTooLarge) {
        log(message.isTooLarge
                ? QStringLiteral("a watch message is larger than 64 MiB; reading a fresh snapshot")
                : QStringLiteral("revisions up to %1 are compacted; reading a fresh snapshot")
                      .arg(message.compactRevision));
        m_hasSnapshot = false;
        fail(message.isTooLarge ? message.error : QStringLiteral("compacted"));
        return false;
    }
    if (!message.error.isEmpty() || message.isCanceled) {
        fail(message.isCanceled ? QLatin1String("the watch was cancelled: ")
                     + (message.cancelReason.isEmpty() ? message.error : message.cancelReason)
                                : message.error);
        return false;
    }
    if (message.isCreated) {
        m_deadline.stop();
        m_nextProbe.start(m_settings.timeoutMs);
        m_isLive = true;
        m_isTokenFresh = false;
        if (m_hasFailedBefore)
            log(QStringLiteral("reconnected at revision %1").arg(m_revision));
        m_hasFailedBefore = false;
        m_loggedReason.clear();
        return true;
    }
    // The stream has served more than its creation: a failure from here on starts the
    // pauses from the shortest again.
    m_backoffMs = 0;
    for (const EtcdProtocol::KeyValue &event : message.events) {
        takeKeyValue(event, m_values);
        m_revision = qMax(m_revision, event.modRevision);
    }
    if (message.events.isEmpty())
        m_revision = qMax(m_revision, message.revision); // a progress notification
    return true;
}

void EtcdRegistrySource::takeKeyValue(const EtcdProtocol::KeyValue &keyValue,
                                      QMap<QString, QString> &values)
{
    bool isUtf8 = false;
    const QString key = fromUtf8Strictly(keyValue.key, isUtf8);
    if (!isUtf8) {
        log(QLatin1String("skipped a key that is not UTF-8: ")
            + QString::fromLatin1(keyValue.key.toPercentEncoding("/")));
        return;
    }
    const QString value = fromUtf8Strictly(keyValue.value, isUtf8);
    if (keyValue.isDeleted || !isUtf8)
        values.remove(key);
    else
        values.insert(key, value);
    if (!keyValue.isDeleted && !isUtf8)
        log(QLatin1String("skipped ") + key + QLatin1String(": its value is not UTF-8"));
}

void EtcdRegistrySource::watchEnded()
{
    if (m_reply)
        fail(m_reply->error() == QNetworkReply::NoError
                 ? QStringLiteral("the watch stream ended")
                 : failureOf(m_reply, QByteArray(), QString()));
}

// A watch is silent while nothing changes, and so is one whose member has
// stopped or lost its cluster: a small read on the same member tells them
// apart long before etcd's own progress notification would.
void EtcdRegistrySource::probe()
{
    QNetworkReply *reply = post(
        "/v3/kv/range", EtcdProtocol::rangeRequest(m_settings.prefix.toUtf8(), QByteArray(), 0, 1));
    m_probe = reply;
    connect(reply, &QNetworkReply::finished, this, [this, reply] { probed(reply); });
}

void EtcdRegistrySource::probed(QNetworkReply *reply)
{
    EtcdProtocol::RangePage page;
    if (!readRange(reply, m_probe, &EtcdRegistrySource::probe, page))
        return;
    m_backoffMs = 0;
    m_nextProbe.start(m_settings.timeoutMs);
}

// What went wrong with \a reply, in the words most useful to an operator: the
// gateway's own message, the time limit, the TLS errors, the HTTP status, or
// \a error (why a reply that arrived was not understood). Without a reply,
// the watch was not created in time.
QString EtcdRegistrySource::failureOf(QNetworkReply *reply, const QByteArray &body,
                                      const QString &error) const
{
    const QString gateway = EtcdProtocol::errorOf(body);
    if (!gateway.isEmpty())
        return gateway;
    if (!reply || reply->error() == QNetworkReply::OperationCanceledError)
        return QStringLiteral("no answer within %1 s").arg(m_settings.timeoutMs / 1000.0);
    if (reply->error() == QNetworkReply::NoError)
        return error;
    const QString tls = reply->property("sslErrors").toString();
    if (!tls.isEmpty())
        return QLatin1String("TLS: ") + tls;
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    if (status != 0)
        return QStringLiteral("HTTP %1 %2")
            .arg(status)
            .arg(reply->attribute(QNetworkRequest::HttpReasonPhraseAttribute).toString());
    return reply->errorString();
}

// The stream is closed and the next endpoint tried after a pause that grows;
// a failed one-shot read ends at once.
void EtcdRegistrySource::fail(const QString &reason)
{
    const bool wasLive = m_isLive;
    m_isLive = false;
    m_deadline.stop();
    m_nextProbe.stop();
    abortLater(m_reply, this);
    abortLater(m_probe, this);
    // A token is a member's own: the next endpoint gets one of its own.
    m_token.clear();
    m_isTokenFresh = false;
    m_error = endpointName() + QLatin1String(": ") + reason;
    if (!m_isStarted) {
        Q_EMIT changed();
        return;
    }
    if (wasLive || reason != m_loggedReason)
        log(QLatin1String("waiting for etcd: ") + m_error);
    m_loggedReason = reason;
    m_hasFailedBefore = true;
    m_endpoint = (m_endpoint + 1) % m_endpoints.size();
    m_backoffMs = qMin(m_backoffMaxMs, m_backoffMs == 0 ? s_firstBackoffMs : m_backoffMs * 2);
    m_retry.start(m_backoffMs);
}
