#include "outputsink_p.h"

#include <QFileDevice>

#include <cstring>
#include <typeinfo>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace TessivaneTemplatePrivate {

namespace {

// The buffer is passed on when the next piece might not fit: a piece of
// SliceSize characters (and the partner of a surrogate at its end) takes at
// most three bytes each.
const qsizetype SliceSize = 1 << 14;

// Narrows ASCII characters into bytes, sixteen at a time where the processor
// allows. Returns how many were ASCII, from the start.
qsizetype narrowAscii(const QChar *in, qsizetype size, char *out)
{
    const auto *from = reinterpret_cast<const ushort *>(in);
    qsizetype i = 0;
#ifdef __SSE2__
    const __m128i high = _mm_set1_epi16(short(0xFF80));
    const auto narrow = [&](qsizetype at) {
        const __m128i first = _mm_loadu_si128(reinterpret_cast<const __m128i *>(from + at));
        const __m128i second = _mm_loadu_si128(reinterpret_cast<const __m128i *>(from + at + 8));
        const __m128i either = _mm_or_si128(first, second);
        if (_mm_movemask_epi8(_mm_cmpeq_epi16(_mm_and_si128(either, high), _mm_setzero_si128()))
            != 0xFFFF)
            return false;
        _mm_storeu_si128(reinterpret_cast<__m128i *>(out + at), _mm_packus_epi16(first, second));
        return true;
    };
    const auto narrowEight = [&](qsizetype at) {
        const __m128i chars = _mm_loadu_si128(reinterpret_cast<const __m128i *>(from + at));
        if (_mm_movemask_epi8(_mm_cmpeq_epi16(_mm_and_si128(chars, high), _mm_setzero_si128()))
            != 0xFFFF)
            return false;
        _mm_storel_epi64(reinterpret_cast<__m128i *>(out + at), _mm_packus_epi16(chars, chars));
        return true;
    };
    for (; i + 16 <= size; i += 16) {
        if (!narrow(i))
            break;
    }
    // A last piece shorter than sixteen in one or two overlapping steps,
    // writing again what was written before.
    if (i + 16 > size && i < size
        && (size >= 16 ? narrow(size - 16) : size >= 8 && narrowEight(0) && narrowEight(size - 8)))
        return size;
#endif
    for (; i < size && from[i] < 0x80; ++i)
        out[i] = char(from[i]);
    return i;
}

} // namespace

OutputSink::Stream::Stream(OutputSink *owner, QString *text)
    : QTextStream(text, QIODevice::WriteOnly)
    , sink(owner)
{
}

OutputSink::Stream::~Stream() = default;

OutputSink::OutputSink(QIODevice *target)
    : m_target(target)
    , m_stream(this, &m_streamText)
    , m_buffer(BufferSize, Qt::Uninitialized)
{
    static_assert(3 * (SliceSize + 1) <= BufferSize, "a slice fits in an empty buffer");
}

OutputSink::~OutputSink() = default;

// The stream class is final, so its type identifies it, at the cost of two loads.
OutputSink *OutputSink::of(QTextStream *stream)
{
    if (typeid(*stream) != typeid(Stream))
        return nullptr;
    return static_cast<Stream *>(stream)->sink;
}

void OutputSink::write(QTextStream *stream, QStringView text)
{
    if (OutputSink *sink = of(stream)) {
        sink->write(text);
        return;
    }
    // A stream copies what it is given into a buffer of its own before it
    // encodes it. A long text goes in slices, so that a line of a gigabyte is
    // not held twice more on its way out; the encoder keeps a pair cut in two
    // whole.
    if (text.size() <= SliceSize) {
        *stream << text;
        return;
    }
    for (qsizetype at = 0; at < text.size(); at += SliceSize)
        *stream << text.mid(at, qMin(SliceSize, text.size() - at));
}

// The stream's string keeps its memory for the next handler, unless one
// wrote far more than a tag's text usually is.
void OutputSink::passOn(QTextStream *stream)
{
    OutputSink *sink = of(stream);
    if (!sink || sink->m_streamText.isEmpty())
        return;
    sink->write(sink->m_streamText);
    if (sink->m_streamText.capacity() > SliceSize)
        sink->m_streamText.clear();
    else
        sink->m_streamText.resize(0);
}

void OutputSink::writeUtf8Piece(const char *data, qsizetype size)
{
    if (size == 0)
        return;
    // UTF-8 never starts with half a surrogate pair.
    closePending();
    if (m_hasFailed)
        return;
    if (size < DirectSize) {
        append(data, size);
        return;
    }
    if (drain())
        pass(data, size);
}

bool OutputSink::finish()
{
    passOn(&m_stream);
    // A surrogate still waiting for its partner is dropped.
    m_pendingSurrogate = 0;
    drain();
    return !m_hasFailed;
}

void OutputSink::writeText(QStringView text)
{
    if (text.isEmpty() || m_hasFailed)
        return;
    if (m_pendingSurrogate) {
        const QChar pending(m_pendingSurrogate);
        if (pending.isHighSurrogate() && text.front().isLowSurrogate()) {
            const QChar pair[2] = {pending, text.front()};
            const QByteArray bytes = QStringView(pair, 2).toUtf8();
            append(bytes.constData(), bytes.size());
            text = text.mid(1);
            m_pendingSurrogate = 0;
        } else {
            closePending();
        }
    }
    // A last surrogate that does not close a pair waits for the next piece.
    const qsizetype size = text.size();
    if (size > 0 && text.back().isSurrogate()
        && !(size >= 2 && text.back().isLowSurrogate() && text.at(size - 2).isHighSurrogate())) {
        m_pendingSurrogate = text.back().unicode();
        text.chop(1);
    }
    while (!text.isEmpty()) {
        qsizetype slice = qMin(text.size(), SliceSize);
        // A pair is encoded whole.
        if (slice < text.size() && text.at(slice - 1).isHighSurrogate())
            ++slice;
        if (m_used + 3 * slice > BufferSize && !drain())
            return;
        const qsizetype ascii = narrowAscii(text.data(), slice, m_buffer.data() + m_used);
        m_used += ascii;
        if (ascii < slice) {
            const QByteArray bytes = text.mid(ascii, slice - ascii).toUtf8();
            append(bytes.constData(), bytes.size());
        }
        text = text.mid(slice);
    }
}

// A surrogate that the next character does not pair with is written as '?'.
void OutputSink::closePending()
{
    if (!m_pendingSurrogate)
        return;
    m_pendingSurrogate = 0;
    append("?", 1);
}

void OutputSink::append(const char *data, qsizetype size)
{
    if (m_used + size > BufferSize && !drain())
        return;
    std::memcpy(m_buffer.data() + m_used, data, size_t(size));
    m_used += size;
}

// Passes the buffer on: a failure to write or flush it is kept, as the first
// one. Returns false once anything has failed.
bool OutputSink::drain()
{
    if (m_used > 0 && !m_hasFailed)
        pass(m_buffer.constData(), m_used);
    m_used = 0;
    return !m_hasFailed;
}

// The target is flushed each time, so that a file's own buffer holds nothing
// back and its failure shows here.
void OutputSink::pass(const char *data, qsizetype size)
{
    auto *file = qobject_cast<QFileDevice *>(m_target);
    if (m_target->write(data, size) != size || (file && !file->flush()))
        m_hasFailed = true;
}

} // namespace TessivaneTemplatePrivate
