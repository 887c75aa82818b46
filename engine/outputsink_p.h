#ifndef TESSIVANETEMPLATE_OUTPUTSINK_P_H
#define TESSIVANETEMPLATE_OUTPUTSINK_P_H

#include <QByteArray>
#include <QIODevice>
#include <QStringView>
#include <QTextStream>

#include <cstring>

namespace TessivaneTemplatePrivate {

// The UTF-8 output of one process() call. Tag handlers write QStrings into
// stream(); the engine's own text, which is most of the output, skips the
// stream: write() encodes a text straight into the sink's buffer, and
// writeUtf8() copies bytes that are UTF-8 already, such as a template line
// that holds no command.
//
// All three ways end in one buffer, in the order they were taken, as long as
// the engine writes only directly and has the stream pass on what a tag
// handler wrote into it (passOn()) before it writes again: a handler is the
// only code that writes into the stream while a template renders. The stream
// keeps what it is given in a string, without a codec, so that one encoder
// serves every way and encodes as Qt 5's UTF-8 codec did: a surrogate without
// its partner becomes '?', one at the end of a piece waits for the next, and
// one at the very end is dropped.
//
// The buffer goes to the target device when it is full and at finish(); the
// first failure to write or flush it is kept and drops everything after it.
class OutputSink final
{
public:
    explicit OutputSink(QIODevice *target);
    ~OutputSink();

    // The sink behind \a stream when it is a sink's own stream, else null: a
    // caller with another stream writes into the stream itself.
    static OutputSink *of(QTextStream *stream);

    // Writes \a text into \a stream, through its sink when it has one.
    static void write(QTextStream *stream, QStringView text);
    // Has the sink behind \a stream take what was written into the stream.
    static void passOn(QTextStream *stream);

    QTextStream &stream() { return m_stream; }
    void write(QStringView text)
    {
        // A short ASCII text, such as most values, is narrowed here.
        const qsizetype size = text.size();
        if (size < SmallSize && size <= BufferSize - m_used && !m_pendingSurrogate
            && !m_hasFailed) {
            char *out = m_buffer.data() + m_used;
            qsizetype i = 0;
            while (i < size && text[i].unicode() < 0x80) {
                out[i] = char(text[i].unicode());
                ++i;
            }
            if (i == size) {
                m_used += size;
                return;
            }
        }
        writeText(text);
    }
    void writeUtf8(const char *data, qsizetype size)
    {
        // Most pieces are the short text around commands: they are copied
        // here, without the checks for long ones.
        if (size < DirectSize && size <= BufferSize - m_used && !m_pendingSurrogate
            && !m_hasFailed) {
            std::memcpy(m_buffer.data() + m_used, data, size_t(size));
            m_used += size;
            return;
        }
        writeUtf8Piece(data, size);
    }
    // Writes out what is left. Returns false when anything could not be written.
    bool finish();

private:
    Q_DISABLE_COPY(OutputSink)

    // The stream of a sink, which its type tells from any other.
    class Stream final : public QTextStream
    {
    public:
        Stream(OutputSink *owner, QString *text);
        ~Stream() override;

        OutputSink *const sink;
    };

    static constexpr qsizetype BufferSize = 1 << 17;
    // Texts shorter than this are narrowed inline.
    static constexpr qsizetype SmallSize = 256;
    // Bytes of at least this many go to the target without a copy: most of a
    // template copied as it is comes in runs of lines as long as the reader's
    // reads, which are far longer.
    static constexpr qsizetype DirectSize = 1 << 15;

    void writeText(QStringView text);
    void writeUtf8Piece(const char *data, qsizetype size);
    void closePending();
    void append(const char *data, qsizetype size);
    bool drain();
    void pass(const char *data, qsizetype size);

    QIODevice *m_target;
    QString m_streamText; // what was written into the stream and not passed on
    Stream m_stream;
    QByteArray m_buffer; // of a fixed size, filled up to m_used
    qsizetype m_used = 0;
    char16_t m_pendingSurrogate = 0;
    bool m_hasFailed = false;
};

} // namespace TessivaneTemplatePrivate

#endif
