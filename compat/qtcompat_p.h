#ifndef TESSIVANETEMPLATE_QTCOMPAT_P_H
#define TESSIVANETEMPLATE_QTCOMPAT_P_H

// The few text conversions whose Qt calls differ between Qt versions, kept in
// one place so that a port touches only this file. Every folder of the library
// may use it; it uses nothing of ours. Not installed.

#include <QByteArray>
#include <QString>
#include <QTextCodec>
#include <QTextStream>

namespace TessivaneTemplatePrivate {

// The engine's public interface takes 8-bit strings as Latin-1 ("ASCII" in
// the old Qt naming), so every byte maps to one character and back.
inline QString fromAscii(const char *text)
{
    return QString::fromLatin1(text);
}

inline QByteArray toAscii(const QString &text)
{
    return text.toLatin1();
}

// A text handed to a printf-style "%s" (ours, or qWarning's and qDebug's) must
// come back unchanged. Qt 5 reads "%s" arguments as UTF-8, so that is the
// encoding they are given in; the message handler then prints them in the
// locale's encoding.
inline QByteArray formatArgument(const QString &text)
{
    return text.toUtf8();
}

inline void setUtf8Codec(QTextStream &stream)
{
    stream.setCodec("UTF-8");
}

// Decodes strict UTF-8: returns false when \a bytes hold a sequence that is
// not UTF-8, where a plain conversion would put a replacement character.
inline bool decodeUtf8(const QByteArray &bytes, QString &text)
{
    QTextCodec::ConverterState state;
    text = QTextCodec::codecForMib(106)->toUnicode(bytes.constData(), bytes.size(), &state);
    return state.invalidChars == 0 && state.remainingChars == 0;
}

// Checks UTF-8 that arrives in pieces; a character cut in two by a piece
// boundary is no fault.
class Utf8Checker
{
public:
    // Returns false once the bytes so far hold a sequence that is not UTF-8.
    bool feed(const char *bytes, int size)
    {
        QTextCodec::codecForMib(106)->toUnicode(bytes, size, &m_state);
        return m_state.invalidChars == 0;
    }

private:
    QTextCodec::ConverterState m_state;
};

} // namespace TessivaneTemplatePrivate

#endif
