#include "etcdprotocol.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <cmath>

namespace EtcdProtocol {

namespace {

// A message longer than this is no watch message but a stream gone wrong.
const int s_largestMessage = 64 << 20;

QString base64(const QByteArray &bytes)
{
    return QString::fromLatin1(bytes.toBase64());
}

// The first key after every key that begins with \a prefix: its last byte
// counted up, after dropping the 0xFF bytes that cannot be.
QByteArray rangeEnd(const QByteArray &prefix)
{
    QByteArray end = prefix;
    while (!end.isEmpty() && uchar(end.back()) == 0xFF)
        end.chop(1);
    if (end.isEmpty())
        return QByteArray(1, '\0'); // every key
    end.back() = char(uchar(end.back()) + 1);
    return end;
}

// 64-bit numbers travel as strings of digits; a number left out is 0. A JSON
// number is taken only while a double holds it exactly.
bool readNumber(const QJsonValue &value, qint64 &number)
{
    number = 0;
    if (value.isUndefined())
        return true;
    if (value.isDouble()) {
        const double exact = value.toDouble();
        if (!(exact >= 0 && exact < 9007199254740992.0 && exact == std::floor(exact)))
            return false;
        number = qint64(exact);
        return true;
    }
    const QString digits = value.toString();
    const bool isDigits = value.isString() && !digits.isEmpty() && digits.size() <= 18
        && std::all_of(digits.cbegin(), digits.cend(),
                       [](QChar c) { return c >= QLatin1Char('0') && c <= QLatin1Char('9'); });
    if (isDigits)
        number = digits.toLongLong();
    return isDigits;
}

bool readBytes(const QJsonValue &value, QByteArray &bytes)
{
    if (value.isUndefined()) {
        bytes.clear();
        return true;
    }
    if (!value.isString())
        return false;
    const auto decoded = QByteArray::fromBase64Encoding(value.toString().toLatin1(),
                                                        QByteArray::AbortOnBase64DecodingErrors);
    bytes = decoded.decoded;
    return decoded.decodingStatus == QByteArray::Base64DecodingStatus::Ok;
}

bool readKeyValue(const QJsonValue &value, KeyValue &keyValue)
{
    const QJsonObject object = value.toObject();
    return value.isObject() && object.contains(QLatin1String("key"))
        && readBytes(object.value(QLatin1String("key")), keyValue.key)
        && readBytes(object.value(QLatin1String("value")), keyValue.value)
        && readNumber(object.value(QLatin1String("mod_revision")), keyValue.modRevision)
        && !keyValue.key.isEmpty();
}

bool readObject(const QByteArray &reply, QJsonObject &object, QString &error)
{
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(reply, &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isObject()) {
        error = QStringLiteral("not a JSON object: ") + parseError.errorString();
        return false;
    }
    object = document.object();
    return true;
}

QString gatewayError(const QJsonObject &object)
{
    const QJsonObject error = object.value(QLatin1String("error")).toObject();
    QString text = error.value(QLatin1String("message")).toString();
    if (text.isEmpty())
        text = object.value(QLatin1String("message")).toString();
    return text.isEmpty() ? QStringLiteral("an error without a message") : text;
}

bool readEvents(const QJsonValue &value, QList<KeyValue> &events)
{
    if (value.isUndefined())
        return true;
    if (!value.isArray())
        return false;
    for (const QJsonValue &element : value.toArray()) {
        const QJsonObject event = element.toObject();
        KeyValue keyValue;
        if (!element.isObject() || !readKeyValue(event.value(QLatin1String("kv")), keyValue))
            return false;
        const QString type = event.value(QLatin1String("type")).toString(QStringLiteral("PUT"));
        if (type != QLatin1String("PUT") && type != QLatin1String("DELETE"))
            return false;
        keyValue.isDeleted = type == QLatin1String("DELETE");
        events << keyValue;
    }
    return true;
}

} // namespace

QByteArray rangeRequest(const QByteArray &prefix, const QByteArray &start, qint64 revision,
                        int limit)
{
    QJsonObject request {{QStringLiteral("key"), base64(start.isEmpty() ? prefix : start)},
                         {QStringLiteral("range_end"), base64(rangeEnd(prefix))},
                         {QStringLiteral("limit"), QString::number(limit)}};
    if (revision > 0)
        request.insert(QStringLiteral("revision"), QString::number(revision));
    return QJsonDocument(request).toJson(QJsonDocument::Compact);
}

QByteArray watchRequest(const QByteArray &prefix, qint64 revision)
{
    const QJsonObject create {{QStringLiteral("key"), base64(prefix)},
                              {QStringLiteral("range_end"), base64(rangeEnd(prefix))},
                              {QStringLiteral("start_revision"), QString::number(revision)},
                              {QStringLiteral("progress_notify"), true}};
    return QJsonDocument(QJsonObject {{QStringLiteral("create_request"), create}})
        .toJson(QJsonDocument::Compact);
}

QByteArray authenticateRequest(const QString &name, const QString &password)
{
    return QJsonDocument(
               QJsonObject {{QStringLiteral("name"), name}, {QStringLiteral("password"), password}})
        .toJson(QJsonDocument::Compact);
}

bool parseRangePage(const QByteArray &reply, RangePage &page, QString &error)
{
    QJsonObject object;
    if (!readObject(reply, object, error))
        return false;
    if (object.contains(QLatin1String("error")) || object.contains(QLatin1String("code"))) {
        error = gatewayError(object);
        return false;
    }
    const QJsonObject header = object.value(QLatin1String("header")).toObject();
    const QJsonValue more = object.value(QLatin1String("more"));
    if (!readNumber(header.value(QLatin1String("revision")), page.revision) || page.revision == 0
        || !(more.isUndefined() || more.isBool())) {
        error = QStringLiteral("not a range reply");
        return false;
    }
    page.hasMore = more.toBool();
    const QJsonValue keyValues = object.value(QLatin1String("kvs"));
    if (!keyValues.isUndefined() && !keyValues.isArray()) {
        error = QStringLiteral("not a range reply");
        return false;
    }
    page.keyValues.clear();
    for (const QJsonValue &element : keyValues.toArray()) {
        KeyValue keyValue;
        if (!readKeyValue(element, keyValue)) {
            error = QStringLiteral("a key or value that is not base64");
            return false;
        }
        page.keyValues << keyValue;
    }
    return true;
}

QString errorOf(const QByteArray &reply)
{
    const QJsonObject object = QJsonDocument::fromJson(reply).object();
    return object.contains(QLatin1String("error")) || object.contains(QLatin1String("code"))
        ? gatewayError(object)
        : QString();
}

bool parseToken(const QByteArray &reply, QByteArray &token, QString &error)
{
    QJsonObject object;
    if (!readObject(reply, object, error))
        return false;
    token = object.value(QLatin1String("token")).toString().toUtf8();
    if (!token.isEmpty())
        return true;
    error = gatewayError(object);
    return false;
}

WatchMessage parseWatchMessage(const QByteArray &message)
{
    WatchMessage watch;
    QJsonObject object;
    if (!readObject(message, object, watch.error))
        return watch;
    if (object.contains(QLatin1String("error"))) {
        watch.error = gatewayError(object);
        return watch;
    }
    const QJsonObject result = object.value(QLatin1String("result")).toObject();
    const QJsonObject header = result.value(QLatin1String("header")).toObject();
    const bool isRead = !result.isEmpty()
        && readNumber(header.value(QLatin1String("revision")), watch.revision)
        && readNumber(result.value(QLatin1String("compact_revision")), watch.compactRevision)
        && readEvents(result.value(QLatin1String("events")), watch.events);
    if (!isRead) {
        watch.events.clear();
        watch.error = QStringLiteral("not a watch message");
        return watch;
    }
    watch.isCreated = result.value(QLatin1String("created")).toBool();
    watch.isCanceled = result.value(QLatin1String("canceled")).toBool();
    watch.cancelReason = result.value(QLatin1String("cancel_reason")).toString();
    return watch;
}

QList<WatchMessage> WatchStream::feed(const QByteArray &bytes)
{
    QList<WatchMessage> messages;
    for (const char c : bytes) {
        if (m_depth == 0 && c != '{') {
            if (!QByteArrayLiteral(" \t\r\n").contains(c)) {
                WatchMessage garbage;
                garbage.error = QStringLiteral("not a watch message");
                messages << garbage;
            }
            continue;
        }
        m_pending += c;
        if (m_isEscaped)
            m_isEscaped = false;
        else if (m_isInString && c == '\\')
            m_isEscaped = true;
        else if (m_isInString)
            m_isInString = c != '"';
        else if (c == '"')
            m_isInString = true;
        else if (c == '{' || c == '}')
            m_depth += c == '{' ? 1 : -1;
        if (m_depth == 0) {
            messages << parseWatchMessage(m_pending);
        } else if (m_pending.size() > s_largestMessage) {
            WatchMessage tooLarge;
            tooLarge.isTooLarge = true;
            tooLarge.error = QStringLiteral("a watch message larger than 64 MiB");
            messages << tooLarge;
        } else {
            continue;
        }
        reset();
    }
    return messages;
}

void WatchStream::reset()
{
    m_pending.clear();
    m_depth = 0;
    m_isInString = false;
    m_isEscaped = false;
}

} // namespace EtcdProtocol
