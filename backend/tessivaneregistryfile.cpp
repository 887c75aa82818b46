#include "tessivaneregistryfile.h"

#include "qtcompat_p.h"
#include "tessivane.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>

using namespace TessivaneTemplatePrivate;

namespace {

const QByteArray s_utf8Bom("\xEF\xBB\xBF");

// A registry file is read whole. One larger than this is refused rather than
// read until memory runs out: /dev/zero given by mistake never ends.
const qint64 s_largestFile = qint64(1) << 30;
const int s_chunkSize = 1 << 16;

using Values = QList<QPair<QString, QString>>;

// JSON numbers arrive as doubles, which hold every integer up to 2^53 exactly.
const double s_largestExactInteger = 9007199254740992.0;

// Integers print as integers (80, not 80.0); other numbers in the shortest
// form that reads back the same. Only numbers below 2^53 come here.
QString numberText(double number)
{
    if (std::floor(number) == number)
        return QString::number(qint64(number));
    return QString::number(number, 'g', QLocale::FloatingPointShortest);
}

// What a JSON file makes of the registry: keys removed with everything below
// them, then values stored.
struct JsonContent
{
    Values values;
    QStringList removals;
    QString inexact; // the key of a number too large to be held exactly
};

// Collects the values below \a key. An array replaces whatever earlier files
// stored under its key as a whole, and null removes it, so that a shorter
// list leaves no stale element behind.
void collectJson(const QString &key, const QJsonValue &value, JsonContent &content)
{
    switch (value.type()) {
    case QJsonValue::Object: {
        const QJsonObject object = value.toObject();
        for (auto it = object.begin(); it != object.end(); ++it)
            collectJson(key + QLatin1Char('/') + it.key(), it.value(), content);
        break;
    }
    case QJsonValue::Array: {
        content.removals << key;
        const QJsonArray array = value.toArray();
        for (int i = 0; i < array.size(); ++i)
            collectJson(key + QLatin1Char('/') + QString::number(i), array.at(i), content);
        break;
    }
    case QJsonValue::String:
        content.values.append(qMakePair(key, value.toString()));
        break;
    case QJsonValue::Double:
        if (std::fabs(value.toDouble()) < s_largestExactInteger)
            content.values.append(qMakePair(key, numberText(value.toDouble())));
        else if (content.inexact.isNull())
            content.inexact = key;
        break;
    case QJsonValue::Bool:
        content.values.append(
            qMakePair(key, QString(value.toBool() ? QLatin1Char('1') : QLatin1Char('0'))));
        break;
    case QJsonValue::Null:
        content.removals << key;
        break;
    case QJsonValue::Undefined:
        break;
    }
}

// A value in double quotes keeps its blanks and resolves \" \\ \n \t; any
// other backslash stays as written. Returns an error text, empty on success.
QString unquote(const QString &raw, QString &value)
{
    value.clear();
    for (int i = 1; i < raw.size(); ++i) {
        const QChar c = raw.at(i);
        if (c == QLatin1Char('"')) {
            if (i + 1 != raw.size())
                return QStringLiteral("text after the closing double quote");
            return QString();
        }
        const QChar next = i + 1 < raw.size() ? raw.at(i + 1) : QChar();
        if (c != QLatin1Char('\\') || !QStringLiteral("\"\\nt").contains(next)) {
            value += c;
            continue;
        }
        value += next == QLatin1Char('n') ? QChar(QLatin1Char('\n'))
            : next == QLatin1Char('t')    ? QChar(QLatin1Char('\t'))
                                          : next;
        ++i;
    }
    return QStringLiteral("double quote opened and not closed");
}

// Splits one "key = value" line. Returns an error text, empty on success.
QString parseLine(const QString &line, QString &key, QString &value)
{
    const int equals = line.indexOf(QLatin1Char('='));
    if (equals < 0)
        return QStringLiteral("expected 'key = value', found no '='");
    key = line.left(equals).trimmed();
    if (key.isEmpty())
        return QStringLiteral("empty key before '='");
    const QString raw = line.mid(equals + 1).trimmed();
    if (!raw.startsWith(QLatin1Char('"'))) {
        value = raw;
        return QString();
    }
    return unquote(raw, value);
}

QString tooLarge()
{
    return QStringLiteral("larger than 1 GiB");
}

// Reads \a file to its end into \a data. Returns an empty text, or why the
// file could not be read to its end: a failed read is never taken for the end.
// Reading stops early at the first byte that is not UTF-8, which the parser
// then refuses, so that /dev/urandom given by mistake is told at once.
QString readWhole(QFile &file, QByteArray &data)
{
    if (!file.isSequential() && file.size() > s_largestFile)
        return tooLarge();
    Utf8Checker checker;
    for (;;) {
        const int kept = data.size();
        if (kept > s_largestFile)
            return tooLarge();
        data.resize(kept + s_chunkSize);
        const qint64 got = file.read(data.data() + kept, s_chunkSize);
        data.resize(kept + int(qMax<qint64>(got, 0)));
        if (got < 0)
            return file.errorString();
        if (got == 0 || !checker.feed(data.constData() + kept, int(got)))
            return QString();
    }
}

// Opens and reads \a fileName. Returns an empty text, or why it could not.
QString readFile(const QString &fileName, QByteArray &data)
{
    // QFile would print a complaint of its own about an empty name.
    if (fileName.isEmpty())
        return QString::fromLocal8Bit(std::strerror(ENOENT));
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly))
        return file.errorString();
    return readWhole(file, data);
}

} // namespace

TessivaneRegistryFile::TessivaneRegistryFile() = default;

TessivaneRegistryFile::~TessivaneRegistryFile() = default;

bool TessivaneRegistryFile::load(const QString &fileName, Tessivane *backend)
{
    if (!backend)
        return fail(fileName + QLatin1String(": no registry backend to load the file into"));
    QByteArray data;
    const QString error = readFile(fileName, data);
    if (!error.isEmpty())
        return fail(fileName + QLatin1String(": cannot read registry file: ") + error);
    if (!parse(fileName, data))
        return false;
    // One sorted list serves every removal: the keys below one stand together.
    const QStringList sorted = m_removals.isEmpty() ? QStringList() : backend->keys();
    for (const QString &removed : qAsConst(m_removals)) {
        backend->remove(removed);
        const QString below = removed + QLatin1Char('/');
        for (auto it = std::lower_bound(sorted.cbegin(), sorted.cend(), below);
             it != sorted.cend() && it->startsWith(below); ++it)
            backend->remove(*it);
    }
    for (const auto &entry : qAsConst(m_values))
        backend->set(entry.first, entry.second);
    return true;
}

bool TessivaneRegistryFile::parse(const QString &fileName, const QByteArray &data)
{
    m_values.clear();
    m_removals.clear();
    m_errorString.clear();
    const QByteArray content = data.startsWith(s_utf8Bom) ? data.mid(s_utf8Bom.size()) : data;
    const bool isOk = fileName.endsWith(QLatin1String(".json"), Qt::CaseInsensitive)
        ? parseJson(fileName, content)
        : parseLines(fileName, content);
    if (!isOk) {
        m_values.clear();
        m_removals.clear();
    }
    return isOk;
}

QList<QPair<QString, QString>> TessivaneRegistryFile::values() const
{
    return m_values;
}

QString TessivaneRegistryFile::errorString() const
{
    return m_errorString;
}

bool TessivaneRegistryFile::parseJson(const QString &fileName, const QByteArray &data)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(data, &error);
    if (error.error != QJsonParseError::NoError) {
        const int offset = qBound(0, error.offset, int(data.size()));
        const int lineStart = int(data.lastIndexOf('\n', offset - 1)) + 1;
        const int line = int(data.left(offset).count('\n')) + 1;
        const int column = int(fromUtf8(data.mid(lineStart, offset - lineStart)).size()) + 1;
        return fail(QStringLiteral("%1:%2:%3: JSON syntax error: %4")
                        .arg(fileName, QString::number(line), QString::number(column),
                             error.errorString()));
    }
    if (!document.isObject())
        return fail(fileName
                    + QLatin1String(": the top level of a JSON registry file must be an object"));
    JsonContent content;
    collectJson(QString(), QJsonValue(document.object()), content);
    if (!content.inexact.isNull())
        return fail(fileName + QLatin1String(": the number of ") + content.inexact
                    + QLatin1String(" is too large to be kept exactly; write it as a string"));
    m_values = content.values;
    m_removals = content.removals;
    return true;
}

bool TessivaneRegistryFile::parseLines(const QString &fileName, const QByteArray &data)
{
    const QList<QByteArray> lines = data.split('\n');
    for (int i = 0; i < lines.size(); ++i) {
        QByteArray bytes = lines.at(i);
        if (bytes.endsWith('\r'))
            bytes.chop(1);
        QString line;
        QString key;
        QString value;
        QString error;
        if (!decodeUtf8(bytes, line))
            error = QStringLiteral("not valid UTF-8");
        else if (line.trimmed().isEmpty() || line.trimmed().startsWith(QLatin1Char('#')))
            continue;
        else
            error = parseLine(line, key, value);
        if (!error.isEmpty())
            return fail(QStringLiteral("%1:%2: %3").arg(fileName, QString::number(i + 1), error));
        m_values.append(qMakePair(key, value));
    }
    return true;
}

bool TessivaneRegistryFile::fail(const QString &message)
{
    m_errorString = message;
    return false;
}
