// Feeds arbitrary bytes to the readers of etcd's gateway replies: a range
// page, an authentication reply, and a watch stream, whole and cut into
// pieces whose sizes the input chooses. A stream must give the same messages
// however its bytes arrive, and a message that is an error carries no event,
// so that half an event is never applied.

#include "etcdprotocol.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

bool isSame(const EtcdProtocol::WatchMessage &a, const EtcdProtocol::WatchMessage &b)
{
    if (a.error != b.error || a.isCreated != b.isCreated || a.isCanceled != b.isCanceled
        || a.revision != b.revision || a.compactRevision != b.compactRevision
        || a.events.size() != b.events.size())
        return false;
    for (int i = 0; i < a.events.size(); ++i) {
        const EtcdProtocol::KeyValue &x = a.events.at(i);
        const EtcdProtocol::KeyValue &y = b.events.at(i);
        if (x.key != y.key || x.value != y.value || x.isDeleted != y.isDeleted)
            return false;
    }
    return true;
}

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

    EtcdProtocol::WatchStream whole;
    EtcdProtocol::WatchStream pieces;
    const QList<EtcdProtocol::WatchMessage> expected = whole.feed(data);
    QList<EtcdProtocol::WatchMessage> messages;
    for (int at = 0; at < data.size();) {
        const int length = 1 + uchar(data.at(at)) % 13;
        messages += pieces.feed(data.mid(at, length));
        at += length;
    }
    if (messages.size() != expected.size()
        || whole.hasPartialMessage() != pieces.hasPartialMessage())
        std::abort();
    for (int i = 0; i < messages.size(); ++i) {
        if (!isSame(messages.at(i), expected.at(i)))
            std::abort();
        if (!messages.at(i).error.isEmpty() && !messages.at(i).events.isEmpty())
            std::abort();
    }
    return 0;
}
