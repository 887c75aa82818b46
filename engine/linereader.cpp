#include "linereader_p.h"

#include <QIODevice>
#include <QTextCodec>

#include <cstring>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace TessivaneTemplatePrivate {

namespace {

const int s_chunkSize = 1 << 16;
const int s_utf8Mib = 106;
const int s_latin1Mib = 4;

// Widens ASCII bytes into UTF-16 characters, sixteen at a time where the
// processor allows: this runs over every byte of a template. Returns false at
// the first byte above 0x7F, with \a out partly written.
bool widenAscii(const char *in, int size, ushort *out)
{
    int i = 0;
#ifdef __SSE2__
    const __m128i zero = _mm_setzero_si128();
    for (; i + 16 <= size; i += 16) {
        const __m128i chunk = _mm_loadu_si128(reinterpret_cast<const __m128i *>(in + i));
        if (_mm_movemask_epi8(chunk))
            return false;
        _mm_storeu_si128(reinterpret_cast<__m128i *>(out + i), _mm_unpacklo_epi8(chunk, zero));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(out + i + 8), _mm_unpackhi_epi8(chunk, zero));
    }
#endif
    for (; i < size; ++i) {
        const unsigned char c = static_cast<unsigned char>(in[i]);
        if (c > 0x7F)
            return false;
        out[i] = c;
    }
    return true;
}

} // namespace

LineReader::LineReader(QTextStream *stream)
    : m_stream(stream)
{
    if (!takeOverDevice())
        m_device = nullptr;
}

LineReader::~LineReader() = default;

bool LineReader::takeOverDevice()
{
    QIODevice *device = m_stream->device();
    // A pipe keeps its reading to the stream: whether the stream holds text
    // of its own that it has read ahead cannot be told there. On a file,
    // pos() puts the device where the stream's reader stands.
    if (!device || device->isSequential())
        return false;
    const qint64 streamPosition = m_stream->pos();
    if (streamPosition < 0 || streamPosition != device->pos())
        return false;
    // A byte order mark counts only at the very start of the input.
    const bool isAtStart = streamPosition == 0;
    QTextCodec *codec = m_stream->codec();
    if (isAtStart && m_stream->autoDetectUnicode()) {
        codec = QTextCodec::codecForUtfText(device->peek(4), codec);
        if (device->pos() != 0)
            return false;
    }
    if (!codec || (codec->mibEnum() != s_utf8Mib && codec->mibEnum() != s_latin1Mib))
        return false;
    m_device = device;
    m_decoder.reset(
        codec->makeDecoder(isAtStart ? QTextCodec::DefaultConversion : QTextCodec::IgnoreHeader));
    return true;
}

bool LineReader::readLine(QString &line)
{
    // A pipe may say it is not at its end and then deliver nothing more.
    if (!m_device)
        return !m_stream->atEnd() && m_stream->readLineInto(&line);
    const int end = findLineEnd();
    const bool hasFeed = end >= 0;
    const int size = (hasFeed ? end + 1 : m_buffer.size()) - m_position;
    if (size == 0)
        return false;
    decode(m_buffer.constData() + m_position, size, line);
    m_position += size;
    // Bytes after the last line feed that decode to nothing, a sequence cut
    // short, are no line: QTextStream finds itself at the end there too.
    if (!hasFeed && line.isEmpty())
        return false;
    if (hasFeed)
        line.chop(1);
    if (line.endsWith(QLatin1Char('\r')))
        line.chop(1);
    return true;
}

// The position of the next line feed in the buffer, reading on as needed, or
// -1 at the end of the input. Each byte is searched once, however long the line.
int LineReader::findLineEnd()
{
    int searched = 0;
    for (;;) {
        const int available = m_buffer.size() - m_position;
        const char *start = m_buffer.constData() + m_position;
        const void *found = std::memchr(start + searched, '\n', size_t(available - searched));
        if (found)
            return int(static_cast<const char *>(found) - m_buffer.constData());
        searched = available;
        if (!fill())
            return -1;
    }
}

// Keeps the unread rest of the buffer and appends the next chunk.
bool LineReader::fill()
{
    m_buffer.remove(0, m_position);
    m_position = 0;
    const int kept = m_buffer.size();
    m_buffer.resize(kept + s_chunkSize);
    const qint64 got = m_device->read(m_buffer.data() + kept, s_chunkSize);
    m_buffer.resize(kept + int(qMax<qint64>(got, 0)));
    return got > 0;
}

// The line feed goes through the decoder with its line, so that a broken
// sequence at the end of a line is reported in that line.
void LineReader::decode(const char *bytes, int size, QString &line)
{
    if (!m_isFirstLine) {
        line.resize(size);
        if (widenAscii(bytes, size, reinterpret_cast<ushort *>(line.data())))
            return;
    }
    m_isFirstLine = false;
    line = m_decoder->toUnicode(bytes, size);
}

} // namespace TessivaneTemplatePrivate
