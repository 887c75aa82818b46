#include "linereader_p.h"

#include "qtcompat_p.h"
#include "syntaxscan_p.h"

#include <QFileDevice>
#include <QIODevice>
#include <QTextCodec>

#include <cerrno>
#include <cstring>
#include <unistd.h>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace TessivaneTemplatePrivate {

namespace {

const int s_chunkSize = 1 << 20;
const int s_utf8Mib = 106;
const int s_latin1Mib = 4;
// QTextCodec::codecForUtfText() tells an encoding by its byte order mark,
// which is at most four bytes long.
const int s_longestByteOrderMark = 4;

// Whether \a in is well-formed UTF-8, which decodes and encodes back to the
// same bytes: no overlong form, no surrogate, nothing above U+10FFFF.
bool isUtf8(const unsigned char *in, int size)
{
    for (int i = 0; i < size;) {
        const unsigned char lead = in[i];
        if (lead < 0x80) {
            ++i;
            continue;
        }
        int length;
        unsigned char low = 0x80;
        unsigned char high = 0xBF;
        if (lead >= 0xC2 && lead <= 0xDF) {
            length = 2;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            length = 3;
            if (lead == 0xE0)
                low = 0xA0;
            else if (lead == 0xED)
                high = 0x9F;
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            length = 4;
            if (lead == 0xF0)
                low = 0x90;
            else if (lead == 0xF4)
                high = 0x8F;
        } else {
            return false;
        }
        if (size - i < length || in[i + 1] < low || in[i + 1] > high)
            return false;
        for (int k = 2; k < length; ++k) {
            if ((in[i + k] & 0xC0) != 0x80)
                return false;
        }
        i += length;
    }
    return true;
}

// The first line feed in [\a from, \a end), or null. Sets \a hasHighBit when
// a byte before it is above 0x7F: the one pass over a line that finds its end
// tells whether it is ASCII, sixteen bytes at a time where the processor allows.
const char *findFeed(const char *from, const char *end, bool &hasHighBit)
{
#ifdef __SSE2__
    const __m128i feed = _mm_set1_epi8('\n');
    const auto find = [&](const char *at) -> const char * {
        const __m128i chunk = _mm_loadu_si128(reinterpret_cast<const __m128i *>(at));
        const uint feeds = uint(_mm_movemask_epi8(_mm_cmpeq_epi8(chunk, feed)));
        const uint high = uint(_mm_movemask_epi8(chunk));
        if (feeds) {
            const uint found = qCountTrailingZeroBits(feeds);
            hasHighBit = hasHighBit || (high & ((1u << found) - 1)) != 0;
            return at + found;
        }
        hasHighBit = hasHighBit || high != 0;
        return nullptr;
    };
    const char *begin = from;
    for (; end - from >= 16; from += 16) {
        if (const char *found = find(from))
            return found;
    }
    // The last sixteen in one step: those already searched hold no feed.
    if (from < end && end - begin >= 16)
        return find(end - 16);
#endif
    for (; from < end; ++from) {
        if (*from == '\n')
            return from;
        hasHighBit = hasHighBit || static_cast<unsigned char>(*from) > 0x7F;
    }
    return nullptr;
}

// A line of \a size bytes at \a data, its line feed included when it has
// one, as the caller gets it: without its terminator.
LineReader::Bytes bytesOf(const char *data, int size, bool hasFeed, bool hasHighBit)
{
    int kept = hasFeed ? size - 1 : size;
    const bool endsWithReturn = kept > 0 && data[kept - 1] == '\r';
    if (endsWithReturn)
        --kept;
    return LineReader::Bytes {data, kept, hasFeed && !endsWithReturn, !hasHighBit};
}

QString lineTooLong()
{
    return QStringLiteral("a line is longer than %1 bytes").arg(LineReader::MaxLineBytes);
}

} // namespace

LineReader::LineReader(QTextStream *stream)
    : m_stream(stream)
{
    if (!takeOverDevice())
        m_device = nullptr;
}

LineReader::~LineReader() = default;

QString LineReader::errorString() const
{
    return m_error;
}

bool LineReader::fail(const QString &reason)
{
    m_error = reason;
    return false;
}

bool LineReader::takeOverDevice()
{
    QIODevice *device = m_stream->device();
    if (!device)
        return false;
    if (device->isSequential()) {
        // Whether a stream has read ahead of a pipe cannot be told; a stream
        // handed to a parser is taken to be unread. The descriptor is read
        // directly because QFile waits for a whole chunk from a pipe and may
        // take a failed read for its end.
        auto *file = qobject_cast<QFileDevice *>(device);
        if (file && file->handle() >= 0 && device->bytesAvailable() == 0)
            m_descriptor = file->handle();
        m_isAtStart = true;
    } else {
        // On a file, pos() puts the device where the stream's reader stands.
        const qint64 streamPosition = m_stream->pos();
        if (streamPosition < 0 || streamPosition != device->pos())
            return false;
        m_isAtStart = streamPosition == 0;
    }
    m_device = device;
    return true;
}

// Reads the first bytes and chooses the decoding from them. A byte order mark
// counts only at the very start of the input, and is looked for in the first
// four bytes however they arrive, so that a slow pipe reads as a file does.
bool LineReader::start()
{
    while (m_buffer.size() < s_longestByteOrderMark) {
        if (!readMore())
            break;
    }
    if (!m_error.isEmpty() || m_buffer.isEmpty())
        return false;
    m_codec = codecOf(*m_stream);
    if (m_isAtStart && m_stream->autoDetectUnicode())
        m_codec = QTextCodec::codecForUtfText(m_buffer, m_codec);
    m_isUtf8 = m_codec->mibEnum() == s_utf8Mib;
    m_cutsBytes = m_isUtf8 || m_codec->mibEnum() == s_latin1Mib;
    m_decoder.reset(m_codec->makeDecoder(m_isAtStart ? QTextCodec::DefaultConversion
                                                     : QTextCodec::IgnoreHeader));
    return true;
}

bool LineReader::readLine(QString &line)
{
    return read(line, nullptr);
}

bool LineReader::readLine(QString &line, Bytes &bytes)
{
    // Most lines lie whole in the buffer: they are taken without the layers
    // that start the input, read on, decode or report.
    if (m_codec && m_cutsBytes && !m_isFirstLine && m_error.isEmpty() && takeBufferedLine(bytes))
        return true;
    bytes.data = nullptr;
    return read(line, &bytes);
}

// The next line when the buffer holds it whole, line feed and all, and its
// bytes are its own UTF-8. Returns false, and reads nothing, otherwise.
bool LineReader::takeBufferedLine(Bytes &bytes)
{
    const char *start = m_buffer.constData() + m_position;
    bool hasHighBit = false;
    const char *feed = findFeed(start, m_buffer.constData() + m_buffer.size(), hasHighBit);
    if (!feed || feed + 1 - start > MaxLineBytes)
        return false;
    const int size = int(feed + 1 - start);
    if (hasHighBit && !(m_isUtf8 && isUtf8(reinterpret_cast<const unsigned char *>(start), size)))
        return false;
    m_position += size;
    bytes = bytesOf(start, size, true, hasHighBit);
    return true;
}

bool LineReader::read(QString &line, Bytes *bytes)
{
    if (!m_error.isEmpty())
        return false;
    if (!m_device)
        return readThroughStream(line);
    if (!m_codec && !start())
        return false;
    return m_cutsBytes ? readBytes(line, bytes) : readDecoded(line);
}

void LineReader::decode(const Bytes &bytes, QString &line)
{
    decode(bytes.data, bytes.size, line);
}

// A pipe may say it is not at its end and then deliver nothing more.
bool LineReader::readThroughStream(QString &line)
{
    if (!m_stream->atEnd() && m_stream->readLineInto(&line))
        return true;
    auto *file = qobject_cast<QFileDevice *>(m_stream->device());
    if (file && file->error() == QFileDevice::ReadError)
        fail(file->errorString());
    return false;
}

bool LineReader::readBytes(QString &line, Bytes *bytes)
{
    bool hasHighBit = false;
    const int end = findLineEnd(hasHighBit);
    if (!m_error.isEmpty())
        return false;
    const bool hasFeed = end >= 0;
    const int size = (hasFeed ? end + 1 : m_buffer.size()) - m_position;
    if (size == 0)
        return false;
    const char *data = m_buffer.constData() + m_position;
    m_position += size;
    if (bytes && !m_isFirstLine
        && (!hasHighBit
            || (m_isUtf8 && isUtf8(reinterpret_cast<const unsigned char *>(data), size)))) {
        *bytes = bytesOf(data, size, hasFeed, hasHighBit);
        return true;
    }
    decode(data, size, line);
    return finishLine(line, hasFeed);
}

// The plain text runs to its last line feed: whatever follows it is no whole
// line, and so holds no line feed of the count.
QLatin1String LineReader::asciiLines(int &lineCount) const
{
    lineCount = 0;
    if (!m_device || m_isFirstLine || !m_cutsBytes || !m_error.isEmpty())
        return QLatin1String();
    const char *data = m_buffer.constData() + m_position;
    const int plain = plainTextPrefix(data, m_buffer.size() - m_position, lineCount);
    const auto *lastFeed = static_cast<const char *>(memrchr(data, '\n', size_t(plain)));
    return QLatin1String(data, lastFeed ? int(lastFeed + 1 - data) : 0);
}

void LineReader::skip(int size)
{
    m_position += size;
}

bool LineReader::readDecoded(QString &line)
{
    const int end = findTextLineEnd();
    if (!m_error.isEmpty())
        return false;
    const bool hasFeed = end >= 0;
    const int size = (hasFeed ? end + 1 : m_text.size()) - m_textPosition;
    line = m_text.mid(m_textPosition, size);
    m_textPosition += size;
    return finishLine(line, hasFeed);
}

// Text after the last line feed that decodes to nothing, a sequence cut
// short, is no line; an input that decodes to nothing at all is one empty
// line, as QTextStream reads it.
bool LineReader::finishLine(QString &line, bool hasFeed)
{
    const bool isFirstLine = m_isFirstLine;
    m_isFirstLine = false;
    if (!hasFeed && line.isEmpty())
        return isFirstLine;
    if (hasFeed)
        line.chop(1);
    if (line.endsWith(QLatin1Char('\r')))
        line.chop(1);
    return true;
}

// The position of the next line feed in the buffer, reading on as needed, or
// -1 at the end of the input; \a hasHighBit tells whether a byte of the line
// is not ASCII. Each byte is searched once, however long the line.
int LineReader::findLineEnd(bool &hasHighBit)
{
    int searched = 0;
    for (;;) {
        const int available = m_buffer.size() - m_position;
        const char *start = m_buffer.constData() + m_position;
        const char *found = findFeed(start + searched, start + available, hasHighBit);
        // However the bytes arrive, in one read or many, a line is measured whole.
        if ((found ? found + 1 - start : available) > MaxLineBytes) {
            fail(lineTooLong());
            return -1;
        }
        if (found)
            return int(found - m_buffer.constData());
        searched = available;
        if (!readMore())
            return -1;
    }
}

// As findLineEnd(), in the decoded text of an encoding where a line feed may
// be more than one byte.
int LineReader::findTextLineEnd()
{
    int searched = m_textPosition;
    for (;;) {
        const int found = m_text.indexOf(QLatin1Char('\n'), searched);
        if ((found >= 0 ? found + 1 : m_text.size()) - m_textPosition > MaxLineBytes) {
            fail(lineTooLong());
            return -1;
        }
        if (found >= 0)
            return found;
        if (m_buffer.isEmpty() && !readMore())
            return -1;
        m_text.remove(0, m_textPosition);
        m_textPosition = 0;
        searched = m_text.size();
        m_text += m_decoder->toUnicode(m_buffer.constData(), m_buffer.size());
        m_buffer.clear();
    }
}

// Keeps the unread rest of the buffer and appends the next chunk. Returns
// false at the end of the input and when the read fails.
bool LineReader::readMore()
{
    m_buffer.remove(0, m_position);
    m_position = 0;
    // A very long line leaves a large buffer behind: give its memory back.
    if (m_buffer.capacity() > 4 * s_chunkSize && m_buffer.size() < s_chunkSize)
        m_buffer.squeeze();
    const int kept = m_buffer.size();
    m_buffer.resize(kept + s_chunkSize);
    const qint64 got = readChunk(m_buffer.data() + kept, m_buffer.size() - kept);
    m_buffer.resize(kept + int(qMax<qint64>(got, 0)));
    return got > 0;
}

qint64 LineReader::readChunk(char *data, qint64 size)
{
    if (m_descriptor >= 0) {
        for (;;) {
            const ssize_t got = ::read(m_descriptor, data, size_t(size));
            if (got >= 0)
                return got;
            if (errno != EINTR) {
                fail(QString::fromLocal8Bit(std::strerror(errno)));
                return -1;
            }
        }
    }
    for (;;) {
        const qint64 got = m_device->read(data, size);
        if (got < 0) {
            fail(m_device->errorString());
            return -1;
        }
        // A sequential device such as a process may have nothing yet.
        if (got > 0 || !m_device->isSequential() || !m_device->waitForReadyRead(-1))
            return got;
    }
}

// The line feed goes through the decoder with its line, so that a broken
// sequence at the end of a line is reported in that line. The line keeps room
// for the line feed that the parser appends, so that a long line is never
// copied to grow.
void LineReader::decode(const char *bytes, int size, QString &line)
{
    if (!m_isFirstLine) {
        line.reserve(size + 1);
        line.resize(size);
        if (widenAscii(bytes, size, reinterpret_cast<ushort *>(line.data())))
            return;
    }
    line = m_decoder->toUnicode(bytes, size);
    if (m_isFirstLine) {
        // From here on a byte order mark is a character like any other.
        m_decoder.reset(m_codec->makeDecoder(QTextCodec::IgnoreHeader));
    }
}

} // namespace TessivaneTemplatePrivate
