#ifndef TESSIVANETEMPLATE_QTCOMPAT_P_H
#define TESSIVANETEMPLATE_QTCOMPAT_P_H

// The few calls, most of them text conversions, that differ between Qt
// versions, kept in one place so that a port touches only this file. Every
// folder of the library may use it, and so may the tools; it uses nothing of
// ours. Not installed.
//
// The library and the tools build against Qt 5.15 and Qt 6 and behave the
// same on both, byte for byte: where Qt 6 changed what a call does, the Qt 6
// branch here does what Qt 5 did. Nothing here needs Qt 6's compatibility
// module but codecOf(), which only the template reader calls.

#include <QByteArray>
#include <QDir>
#include <QIODevice>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTextStream>

#include <algorithm>
#include <cstring>
#include <functional>
#include <vector>

#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
#include <QStringDecoder>
class QTextCodec;
#else
#include <QSysInfo>
#include <QTextCodec>
#endif

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
// come back unchanged. Qt reads "%s" arguments as UTF-8, so that is the
// encoding they are given in; the message handler then prints them in the
// locale's encoding.
inline QByteArray formatArgument(const QString &text)
{
    return text.toUtf8();
}

// Qt 5 converts a QByteArray only up to its first NUL byte, where Qt 6 takes
// the whole array. Bytes from outside (files, commands, the network) may hold
// a NUL, and what they turn into must not depend on the Qt version: these cut
// at the first NUL on both.
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
namespace Detail {
inline qsizetype lengthBeforeNul(const QByteArray &bytes)
{
    const void *nul = std::memchr(bytes.constData(), 0, size_t(bytes.size()));
    return nul ? static_cast<const char *>(nul) - bytes.constData() : bytes.size();
}
} // namespace Detail

inline QString fromLatin1(const QByteArray &bytes)
{
    return bytes.isNull() ? QString()
                          : QString::fromLatin1(bytes.constData(), Detail::lengthBeforeNul(bytes));
}

inline QString fromUtf8(const QByteArray &bytes)
{
    return bytes.isNull() ? QString()
                          : QString::fromUtf8(bytes.constData(), Detail::lengthBeforeNul(bytes));
}

inline QString fromLocal8Bit(const QByteArray &bytes)
{
    return bytes.isNull()
        ? QString()
        : QString::fromLocal8Bit(bytes.constData(), Detail::lengthBeforeNul(bytes));
}
#else
inline QString fromLatin1(const QByteArray &bytes)
{
    return QString::fromLatin1(bytes);
}

inline QString fromUtf8(const QByteArray &bytes)
{
    return QString::fromUtf8(bytes);
}

inline QString fromLocal8Bit(const QByteArray &bytes)
{
    return QString::fromLocal8Bit(bytes);
}
#endif

// A file name to hand to QFile, QFileInfo or QDir so that the system sees the
// bytes Qt 5 gave it in a UTF-8 locale: Qt 5 encoded a surrogate without its
// partner as '?' and left out one at the very end, where Qt 6 writes U+FFFD.
// Names read from a UTF-16 template may hold such a surrogate.
inline QString fileSystemName(const QString &name)
{
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
    if (std::none_of(name.cbegin(), name.cend(), [](QChar c) { return c.isSurrogate(); }))
        return name;
    QStringView view(name);
    const qsizetype size = view.size();
    const bool closesPair =
        size >= 2 && view.at(size - 1).isLowSurrogate() && view.at(size - 2).isHighSurrogate();
    if (view.back().isSurrogate() && !closesPair)
        view.chop(1);
    // Every lone surrogate left is '?' now, and the bytes are UTF-8 that Qt 6
    // encodes back to themselves.
    return QString::fromUtf8(view.toUtf8());
#else
    return name;
#endif
}

#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
namespace Detail {
// \a text in lower case as Qt 5 made it: Qt 5 knows Unicode 13.0, and leaves
// the letters added since as they are. Qt lowers each character on its own,
// so the text is lowered a run of known characters at a time.
inline QString toLowerAsQt5(const QString &text)
{
    QString lowered;
    qsizetype runStart = 0;
    for (qsizetype i = 0; i < text.size();) {
        const bool isPair =
            text.at(i).isHighSurrogate() && i + 1 < text.size() && text.at(i + 1).isLowSurrogate();
        const char32_t code =
            isPair ? QChar::surrogateToUcs4(text.at(i), text.at(i + 1)) : text.at(i).unicode();
        const qsizetype length = isPair ? 2 : 1;
        if (QChar::unicodeVersion(code) > QChar::Unicode_13_0) {
            lowered += QStringView(text).mid(runStart, i - runStart).toString().toLower();
            lowered += QStringView(text).mid(i, length);
            runStart = i + length;
        }
        i += length;
    }
    if (runStart == 0)
        return text.toLower();
    return lowered + QStringView(text).mid(runStart).toString().toLower();
}
} // namespace Detail
#endif

// The entries of \a dir that pass \a filters, in the order of QDir::Name |
// QDir::IgnoreCase as Qt 5 made it: by name in lower case, under Unicode 13.0.
// Qt 6 lowers by a newer Unicode, which may put names with letters added
// since in another order. Names equal in lower case end up where Qt 5's
// std::sort of the directory's own order left them.
inline QStringList entriesIgnoringCase(const QDir &dir, QDir::Filters filters)
{
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
    struct Entry
    {
        QString key;
        QString name;
    };
    std::vector<Entry> entries;
    for (const QString &name : dir.entryList(filters, QDir::Unsorted))
        entries.push_back({Detail::toLowerAsQt5(name), name});
    std::sort(entries.begin(), entries.end(),
              [](const Entry &a, const Entry &b) { return a.key.compare(b.key) < 0; });
    QStringList names;
    names.reserve(qsizetype(entries.size()));
    for (const Entry &entry : entries)
        names.append(entry.name);
    return names;
#else
    return dir.entryList(filters, QDir::Name | QDir::IgnoreCase);
#endif
}

// Decodes strict UTF-8: returns false when \a bytes hold a sequence that is
// not UTF-8, or end inside one, where a plain conversion would put a
// replacement character. A byte order mark at the start is dropped.
inline bool decodeUtf8(const QByteArray &bytes, QString &text)
{
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
    // Stateless: a sequence cut short at the end counts as an error.
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    text = decoder.decode(bytes);
    return !decoder.hasError();
#else
    QTextCodec::ConverterState state;
    text = QTextCodec::codecForMib(106)->toUnicode(bytes.constData(), bytes.size(), &state);
    return state.invalidChars == 0 && state.remainingChars == 0;
#endif
}

// Checks UTF-8 that arrives in pieces; a character cut in two by a piece
// boundary is no fault.
class Utf8Checker
{
public:
    // Returns false once the bytes so far hold a sequence that is not UTF-8.
    bool feed(const char *bytes, int size)
    {
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
        // The decoder works when its result is taken.
        const QString text = m_decoder.decode(QByteArrayView(bytes, size));
        return !m_decoder.hasError();
#else
        QTextCodec::codecForMib(106)->toUnicode(bytes, size, &m_state);
        return m_state.invalidChars == 0;
#endif
    }

private:
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
    QStringDecoder m_decoder {QStringDecoder::Utf8};
#else
    QTextCodec::ConverterState m_state;
#endif
};

// The codec a stream reads its input in. A Qt 5 stream names its codec: the
// locale's unless another was set. A Qt 6 stream has an encoding instead, and
// cannot tell its default UTF-8 from a UTF-8 chosen on purpose; both read in
// the locale's encoding, as a Qt 5 stream does by default, which is UTF-8 in
// a UTF-8 locale. A template, so that only the code that asks for a codec
// needs Qt 6's compatibility module, which declares QTextCodec there.
template<typename Codec = QTextCodec> Codec *codecOf(const QTextStream &stream)
{
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
    const QStringConverter::Encoding encoding = stream.encoding();
    if (encoding == QStringConverter::Utf8 || encoding == QStringConverter::System)
        return Codec::codecForLocale();
    Codec *codec = Codec::codecForName(QStringConverter::nameForEncoding(encoding));
    return codec ? codec : Codec::codecForLocale();
#else
    return stream.codec();
#endif
}

// A process that runs \a setUp in the child, between fork() and exec().
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
class SetUpProcess : public QProcess
{
public:
    explicit SetUpProcess(std::function<void()> setUp)
    {
        setChildProcessModifier(std::move(setUp));
    }
};
#else
class SetUpProcess : public QProcess
{
public:
    explicit SetUpProcess(std::function<void()> setUp)
        : m_setUp(std::move(setUp))
    {
    }

protected:
    void setupChildProcess() override { m_setUp(); }

private:
    std::function<void()> m_setUp;
};
#endif

} // namespace TessivaneTemplatePrivate

#endif
