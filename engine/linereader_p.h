#ifndef TESSIVANETEMPLATE_LINEREADER_P_H
#define TESSIVANETEMPLATE_LINEREADER_P_H

#include <QByteArray>
#include <QString>
#include <QTextStream>

#include <memory>

class QIODevice;
class QTextCodec;
class QTextDecoder;

namespace TessivaneTemplatePrivate {

// Reads the lines of a template input: without their terminator ("\n", or
// "\r\n", and a lone "\r" at the very end), decoded in the stream's encoding,
// as QTextStream::readLine() would cut them. Unlike a QTextStream it tells a
// read error from the end of the input, reads a pipe or a terminal to its end
// however slowly it delivers, and refuses a line too long to be held.
//
// The reader takes the bytes from the stream's device itself: a pipe, FIFO or
// terminal through its file descriptor, so that a read returns what is there
// and reports the system's error; anything else through QIODevice::read().
// In an encoding where a 0x0A byte always ends a line (UTF-8, Latin-1) the
// lines are cut from the bytes, and an ASCII line is widened in one step,
// which costs far less than QTextStream's decoding a character at a time;
// other encodings are decoded first and cut afterwards. A stream without a
// device, or one that has read ahead of its file, is read through QTextStream.
//
// Two rules are the reader's own, so that a template renders the same however
// its bytes arrive: a byte order mark counts only at the very start of the
// input, and bytes that decode to nothing make a line only when they are the
// whole input.
class LineReader
{
public:
    // The longest line, line feed included, in bytes of the input: a QString
    // holds little more than 2^30 characters.
    static constexpr int MaxLineBytes = (1 << 30) - (1 << 16);

    explicit LineReader(QTextStream *stream);
    ~LineReader();

    // A line left in the bytes of the input, without its terminator: valid
    // until the next read. A line feed follows it there when hasFeed is set.
    struct Bytes
    {
        const char *data = nullptr;
        int size = 0;
        bool hasFeed = false;
        bool isAscii = false;
    };

    // Reads the next line into \a line. Returns false at the end of the input,
    // and when the input cannot be read on; errorString() then says why.
    bool readLine(QString &line);
    // As readLine(), but a line whose bytes are its own UTF-8 encoding (valid
    // UTF-8 in an input read as UTF-8, ASCII in one read as Latin-1) is left
    // undecoded in \a bytes, with \a line untouched; for any other line
    // \a bytes has no data. Text decoded from a line's bytes by decode() and
    // written out as UTF-8 is those bytes again, so a caller that only copies
    // a line need not decode it at all. The first line, where a byte order
    // mark counts, is always decoded.
    bool readLine(QString &line, Bytes &bytes);
    // Decodes a line that readLine() left in \a bytes.
    void decode(const Bytes &bytes, QString &line);
    // The whole lines from here on that the buffer holds and that are plain
    // ASCII text (see plainTextPrefix()) ending in a bare line feed, up to the
    // first that is not: bytes that are their own UTF-8 in any input read as
    // bytes, to be copied without being looked at line by line. Empty where
    // readLine() must go on, and before the first line. \a lineCount is set to
    // how many lines they are. skip() consumes what the caller took of them.
    QLatin1String asciiLines(int &lineCount) const;
    void skip(int size);
    // Why the input could not be read to its end; empty after a clean end.
    QString errorString() const;

private:
    Q_DISABLE_COPY(LineReader)

    bool takeOverDevice();
    bool start();
    bool read(QString &line, Bytes *bytes);
    bool readThroughStream(QString &line);
    bool takeBufferedLine(Bytes &bytes);
    bool readBytes(QString &line, Bytes *bytes);
    bool readDecoded(QString &line);
    int findLineEnd(bool &hasHighBit);
    int findTextLineEnd();
    bool readMore();
    qint64 readChunk(char *data, qint64 size);
    void decode(const char *bytes, int size, QString &line);
    bool finishLine(QString &line, bool hasFeed);
    bool fail(const QString &reason);

    QTextStream *m_stream;
    QIODevice *m_device = nullptr; // null while reading through the stream
    int m_descriptor = -1; // the device's file descriptor when it is read directly
    QTextCodec *m_codec = nullptr; // chosen at the first read
    std::unique_ptr<QTextDecoder> m_decoder;
    bool m_isAtStart = false; // whether the device stands at the start of the input
    bool m_cutsBytes = true; // lines are cut from the bytes, not from decoded text
    bool m_isUtf8 = false; // the input is read as UTF-8
    bool m_isFirstLine = true;
    QByteArray m_buffer; // bytes read and not yet handed on
    int m_position = 0;
    QString m_text; // decoded text not yet handed on, where lines are cut from text
    int m_textPosition = 0;
    QString m_error;
};

} // namespace TessivaneTemplatePrivate

#endif
