#ifndef TESSIVANETEMPLATE_LINEREADER_P_H
#define TESSIVANETEMPLATE_LINEREADER_P_H

#include <QByteArray>
#include <QString>
#include <QTextStream>

#include <memory>

class QIODevice;
class QTextDecoder;

namespace TessivaneTemplatePrivate {

// Reads the lines of a template input exactly as QTextStream::readLine()
// would: without their terminator ("\n", or "\r\n", and a lone "\r" at the
// very end), decoded in the stream's encoding.
//
// QTextStream scans and decodes a character at a time, which costs more than
// everything else a plain line needs. When the stream reads a file that
// nothing has read yet in an encoding where a 0x0A byte always ends a line
// (UTF-8 or Latin-1), the lines are cut from the raw bytes and decoded in one
// step instead, an ASCII line by widening its bytes into the caller's buffer.
// Any other stream is read through QTextStream itself.
class LineReader
{
public:
    explicit LineReader(QTextStream *stream);
    ~LineReader();

    // Reads the next line into \a line; false at the end of the input.
    bool readLine(QString &line);

private:
    Q_DISABLE_COPY(LineReader)

    bool takeOverDevice();
    int findLineEnd();
    bool fill();
    void decode(const char *bytes, int size, QString &line);

    QTextStream *m_stream;
    QIODevice *m_device = nullptr; // null while reading through the stream
    std::unique_ptr<QTextDecoder> m_decoder;
    QByteArray m_buffer;
    int m_position = 0;
    // The decoder sees the first line, so that it drops a byte order mark
    // there and only there.
    bool m_isFirstLine = true;
};

} // namespace TessivaneTemplatePrivate

#endif
