#include "testsupport.h"

#include <QBuffer>
#include <QFile>
#include <QTemporaryFile>

namespace {

MessageRecorder *s_recorder = nullptr;

} // namespace

void PrintTo(const QString &text, std::ostream *os)
{
    *os << '"' << text.toStdString() << '"';
}

void PrintTo(const QByteArray &bytes, std::ostream *os)
{
    *os << '"' << bytes.toStdString() << '"';
}

void PrintTo(const QStringList &list, std::ostream *os)
{
    *os << '{';
    for (int i = 0; i < list.size(); ++i) {
        if (i)
            *os << ", ";
        PrintTo(list.at(i), os);
    }
    *os << '}';
}

MessageRecorder::MessageRecorder()
{
    s_recorder = this;
    m_previous = qInstallMessageHandler(&MessageRecorder::handle);
}

MessageRecorder::~MessageRecorder()
{
    qInstallMessageHandler(m_previous);
    s_recorder = nullptr;
}

void MessageRecorder::clear()
{
    m_warnings.clear();
    m_debugs.clear();
}

void MessageRecorder::handle(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    if (type == QtDebugMsg)
        s_recorder->m_debugs.append(message);
    else
        s_recorder->m_warnings.append(message);
}

Rendered render(TessivaneTemplate &engine, const QByteArray &templateText, const QString &name)
{
    Rendered rendered;
    QByteArray input = templateText;
    QBuffer buffer(&input);
    buffer.open(QIODevice::ReadOnly);
    QTemporaryFile out;
    EXPECT_TRUE(out.open());
    {
        MessageRecorder recorder;
        rendered.result = engine.process(&buffer, name, out);
        rendered.warnings = recorder.warnings();
        rendered.debugs = recorder.debugs();
    }
    out.seek(0);
    rendered.output = out.readAll();
    return rendered;
}

void writeFile(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly)) << path.toStdString();
    ASSERT_EQ(file.write(bytes), bytes.size());
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QByteArray();
    return file.readAll();
}
