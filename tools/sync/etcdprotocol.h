#ifndef ETCDPROTOCOL_H
#define ETCDPROTOCOL_H

#include <QByteArray>
#include <QList>
#include <QString>

/**
 * \brief The messages of etcd's JSON gateway that the etcd source reads and writes.
 *
 * Keys and values travel base64-encoded, 64-bit numbers as JSON strings, and
 * fields with zero values are left out. A watch is one long response of JSON
 * objects one after the other, which WatchStream cuts into messages however
 * the bytes arrive. Nothing here touches the network, so that a fuzzer can
 * feed it anything: a reply that is not what etcd sends is an error, never a
 * half-read event.
 */
namespace EtcdProtocol {

struct KeyValue
{
    QByteArray key;
    QByteArray value;
    qint64 modRevision = 0; // of the change that made it; 0 when the reply left it out
    bool isDeleted = false; // in a watch event
};

/// One page of a range read.
struct RangePage
{
    qint64 revision = 0;
    QList<KeyValue> keyValues;
    bool hasMore = false;
};

/// One message of a watch stream.
struct WatchMessage
{
    bool isCreated = false;
    bool isCanceled = false;
    bool isTooLarge = false; // cut off unread: the stream cannot be followed any further
    // Of the header. Only a progress notification (no event, neither created nor
    // canceled) promises that every event up to it has been delivered: a batch
    // that catches up carries the store's current revision.
    qint64 revision = 0;
    qint64 compactRevision = 0; // set when the watch started at a compacted revision
    QList<KeyValue> events;
    QString cancelReason;
    QString error; // the gateway's error object, or why the message was not understood
};

/// The body of a range request for the keys under \a prefix, from \a start, at \a revision (0:
/// now).
QByteArray rangeRequest(const QByteArray &prefix, const QByteArray &start, qint64 revision,
                        int limit);
/// The body of a watch request for the keys under \a prefix from \a revision on.
QByteArray watchRequest(const QByteArray &prefix, qint64 revision);
QByteArray authenticateRequest(const QString &name, const QString &password);

/// Reads a range reply. Returns false, with \a error set, when it is not one.
bool parseRangePage(const QByteArray &reply, RangePage &page, QString &error);
/// Reads an authenticate reply. Returns false, with \a error set, when it holds no token.
bool parseToken(const QByteArray &reply, QByteArray &token, QString &error);
/// The message of the gateway's error object in \a reply, or nothing when it holds none.
QString errorOf(const QByteArray &reply);

/// Cuts a watch stream into its messages, however its bytes arrive.
class WatchStream
{
public:
    /// Takes the next bytes of the stream and returns the messages they complete.
    QList<WatchMessage> feed(const QByteArray &bytes);

private:
    void reset();

    QByteArray m_pending; // the message read so far
    int m_depth = 0; // of braces, outside strings
    bool m_isInString = false;
    bool m_isEscaped = false;
};

/// Reads one watch message.
WatchMessage parseWatchMessage(const QByteArray &message);

} // namespace EtcdProtocol

#endif
