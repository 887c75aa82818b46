#include "etcdsource.h"

#include "reportlog.h"
#include "tessivane.h"

#include <QEventLoop>
#include <QFile>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QSslKey>

namespace {

const int s_firstBackoffMs = 100;

QString fromUtf8Strictly(const QByteArray &bytes, bool &isUtf8)
{
    const QString text = QString::fromUtf8(bytes);
    isUtf8 = text.toUtf8() == bytes;
    return text;
}

QString readPassword(const QString &path, QString &error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        error = path + QLatin1String(": ") + file.errorString();
        return QString();
    }
    return QString::fromUtf8(file.readAll()).trimmed();
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
    if (!settings.caFile.isEmpty())
        m_ssl.setCaCertificates(QSslCertificate::fromPath(settings.caFile));
    if (!settings.certFile.isEmpty())
        m_ssl.setLocalCertificateChain(QSslCertificate::fromPath(settings.certFile));
    if (!settings.keyFile.isEmpty()) {
        QFile key(settings.keyFile);
        if (key.open(QIODevice::ReadOnly))
            m_ssl.setPrivateKey(QSslKey(&key, QSsl::Rsa));
        if (m_ssl.privateKey().isNull() && key.reset())
            m_ssl.setPrivateKey(QSslKey(&key, QSsl::Ec));
    }
    if (!settings.passwordFile.isEmpty())
        m_password = readPassword(settings.passwordFile, m_error);
    m_retry.setSingleShot(true);
    connect(&m_retry, &QTimer::timeout, this, &EtcdRegistrySource::connectToEtcd);
}

EtcdRegistrySource::~EtcdRegistrySource()
{
    if (m_reply) {
        m_reply->disconnect(this);
        m_reply->abort();
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
    if (!m_error.isEmpty()) {
        error = QLatin1String("etcd: ") + m_error;
        return false;
    }
    for (m_endpoint = 0; m_endpoint < m_endpoints.size() && !m_hasSnapshot; ++m_endpoint) {
        // Both the snapshot and a failure announce themselves with changed().
        QEventLoop loop;
        const auto done = connect(this, &RegistrySource::changed, &loop, &QEventLoop::quit);
        m_token.clear();
        connectToEtcd();
        loop.exec();
        disconnect(done);
    }
    if (!m_hasSnapshot)
        error = QLatin1String("etcd: no endpoint answered: ") + m_error;
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
        authenticate();
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
    if (!m_token.isEmpty())
        request.setRawHeader("Authorization", m_token);
    // A stream is quiet while nothing changes; only single requests have a time limit.
    if (isStream)
        request.setRawHeader("Grpc-Metadata-hasleader", "true");
    else
        request.setTransferTimeout(m_settings.timeoutMs);
    m_reply = m_network.post(request, body);
    return m_reply;
}

void EtcdRegistrySource::authenticate()
{
    m_state = State::Authenticating;
    QNetworkReply *reply = post("/v3/auth/authenticate",
                                EtcdProtocol::authenticateRequest(m_settings.username, m_password));
    connect(reply, &QNetworkReply::finished, this, [this, reply] { authenticated(reply); });
}

void EtcdRegistrySource::authenticated(QNetworkReply *reply)
{
    reply->deleteLater();
    QString error;
    if (!EtcdProtocol::parseToken(reply->readAll(), m_token, error)) {
        fail(QLatin1String("authentication failed: ")
             + (reply->error() == QNetworkReply::NoError
                        || error != QLatin1String("an error without a message")
                    ? error
                    : reply->errorString()));
        return;
    }
    connectToEtcd();
}

// Every page of a snapshot is read at the revision of the first.
void EtcdRegistrySource::readPage(const QByteArray &start)
{
    m_state = State::Reading;
    if (start.isEmpty()) {
        m_reading.clear();
        m_readingRevision = 0;
    }
    QNetworkReply *reply = post("/v3/kv/range",
                                EtcdProtocol::rangeRequest(m_settings.prefix.toUtf8(), start,
                                                           m_readingRevision, m_settings.pageSize));
    connect(reply, &QNetworkReply::finished, this, [this, reply] { pageRead(reply); });
}

void EtcdRegistrySource::pageRead(QNetworkReply *reply)
{
    reply->deleteLater();
    if (isRefusedToken(reply)) {
        m_token.clear();
        connectToEtcd();
        return;
    }
    EtcdProtocol::RangePage page;
    QString error;
    if (!EtcdProtocol::parseRangePage(reply->readAll(), page, error)) {
        fail(reply->error() == QNetworkReply::NoError ? error : reply->errorString());
        return;
    }
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
    if (!m_isStarted) {
        m_state = State::Idle;
        Q_EMIT changed();
        return;
    }
    watch();
}

void EtcdRegistrySource::watch()
{
    m_state = State::Watching;
    m_stream = EtcdProtocol::WatchStream();
    QNetworkReply *reply = post(
        "/v3/watch", EtcdProtocol::watchRequest(m_settings.prefix.toUtf8(), m_revision + 1), true);
    connect(reply, &QNetworkReply::readyRead, this, &EtcdRegistrySource::watchRead);
    connect(reply, &QNetworkReply::finished, this, &EtcdRegistrySource::watchEnded);
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
    if (!message.error.isEmpty()) {
        fail(message.error);
        return false;
    }
    if (message.compactRevision > 0) {
        // The revisions since the last one seen are gone: read everything anew.
        log(QStringLiteral("revision %1 is compacted; reading a fresh snapshot")
                .arg(m_revision + 1));
        m_hasSnapshot = false;
        fail(QStringLiteral("compacted"));
        return false;
    }
    if (message.isCanceled) {
        fail(QStringLiteral("the watch was cancelled (no leader?)"));
        return false;
    }
    if (message.isCreated) {
        m_isLive = true;
        m_backoffMs = 0;
        m_error.clear();
        if (m_hasFailedBefore)
            log(QStringLiteral("reconnected at revision %1").arg(m_revision));
        m_hasFailedBefore = false;
    }
    for (const EtcdProtocol::KeyValue &event : message.events)
        takeKeyValue(event, m_values);
    // Every event up to the header's revision has been delivered.
    m_revision = qMax(m_revision, message.revision);
    return true;
}

void EtcdRegistrySource::takeKeyValue(const EtcdProtocol::KeyValue &keyValue,
                                      QMap<QString, QString> &values)
{
    bool isKeyUtf8 = false;
    bool isValueUtf8 = false;
    const QString key = fromUtf8Strictly(keyValue.key, isKeyUtf8);
    const QString value = fromUtf8Strictly(keyValue.value, isValueUtf8);
    if (!isKeyUtf8 || !isValueUtf8) {
        log(QLatin1String("skipped a key that is not UTF-8: ")
            + QString::fromLatin1(keyValue.key.toPercentEncoding("/")));
        return;
    }
    if (keyValue.isDeleted)
        values.remove(key);
    else
        values.insert(key, value);
}

void EtcdRegistrySource::watchEnded()
{
    if (m_reply && m_state == State::Watching)
        fail(m_reply->error() == QNetworkReply::NoError ? QStringLiteral("the watch stream ended")
                                                        : m_reply->errorString());
}

bool EtcdRegistrySource::isRefusedToken(QNetworkReply *reply) const
{
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    return !m_token.isEmpty() && (status == 401 || status == 403);
}

// The stream is closed and the next endpoint tried after a pause that grows;
// a failed one-shot read ends at once.
void EtcdRegistrySource::fail(const QString &reason)
{
    const bool wasLive = m_isLive;
    m_isLive = false;
    m_error = reason;
    if (m_reply) {
        QNetworkReply *reply = m_reply;
        m_reply = nullptr;
        reply->disconnect(this);
        reply->abort();
        reply->deleteLater();
    }
    // A token is a member's own: the next endpoint gets one of its own.
    m_token.clear();
    if (!m_isStarted) {
        m_state = State::Waiting;
        Q_EMIT changed();
        return;
    }
    if (wasLive || !m_hasFailedBefore)
        log(QLatin1String("waiting for etcd: ") + reason);
    m_hasFailedBefore = true;
    m_state = State::Waiting;
    m_endpoint = (m_endpoint + 1) % m_endpoints.size();
    m_backoffMs = qMin(m_backoffMaxMs, m_backoffMs == 0 ? s_firstBackoffMs : m_backoffMs * 2);
    m_retry.start(m_backoffMs);
}
