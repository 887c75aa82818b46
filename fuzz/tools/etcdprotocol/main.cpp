// Feeds arbitrary bytes to the readers of etcd's gateway replies: a range
// page, an authentication reply, and a watch stream, whole, cut in two at
// every byte of a short input, and cut into pieces whose sizes the input
// chooses. A stream must give the same messages however its bytes arrive, and
// a message that is an error carries no event, so that half an event is never
// applied.

#include "etcdprotocol.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

bool isSame(const EtcdProtocol::WatchMessage &a, const EtcdProtocol::WatchMessage &b)
{
    if (a.error != b.error || a.isCreated != b.isCreated || a.isCanceled != b.isCanceled
        || a.isTooLarge != b.isTooLarge || a.cancelReason != b.cancelReason
        || a.revision != b.revision || a.compactRevision != b.compactRevision
        || a.events.size() != b.events.size())
        return false;
    for (int i = 0; i < a.events.size(); ++i) {
        const EtcdProtocol::KeyValue &x = a.events.at(i);
        const EtcdProtocol::KeyValue &y = b.events.at(i);
        if (x.key != y.key || x.value != y.value || x.isDeleted != y.isDeleted
            || x.modRevision != y.modRevision)
            return false;
    }
    return true;
}

void expectSame(const QList<EtcdProtocol::WatchMessage> &messages,
                const QList<EtcdProtocol::WatchMessage> &expected)
{
    if (messages.size() != expected.size())
        std::abort();
    for (int i = 0; i < messages.size(); ++i) {
        if (!isSame(messages.at(i), expected.at(i)))
            std::abort();
        if (!messages.at(i).error.isEmpty() && !messages.at(i).events.isEmpty())
            std::abort();
    }
}

// Every cut is tried while that stays cheap: the cost grows with the square of the size.
const int s_largestInputCutEverywhere = 256;

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    const QByteArray data(reinterpret_cast<const char *>(bytes), int(size));
    EtcdProtocol::RangePage page;
    QString error;
    if (!EtcdProtocol::parseRangePage(data, page, error) && error.isEmpty())
        std::abort();
    QByteArray token;
    if (EtcdProtocol::parseToken(data, token, error) == token.isEmpty())
        std::abort();

    const QList<EtcdProtocol::WatchMessage> expected = EtcdProtocol::WatchStream().feed(data);
    for (int at = 1; at < data.size() && data.size() <= s_largestInputCutEverywhere; ++at) {
        EtcdProtocol::WatchStream halves;
        QList<EtcdProtocol::WatchMessage> messages = halves.feed(data.left(at));
        messages += halves.feed(data.mid(at));
        expectSame(messages, expected);
    }
    EtcdProtocol::WatchStream pieces;
    QList<EtcdProtocol::WatchMessage> messages;
    for (int at = 0; at < data.size();) {
        const int length = 1 + uchar(data.at(at)) % 13;
        messages += pieces.feed(data.mid(at, length));
        at += length;
    }
    expectSame(messages, expected);
    return 0;
}
