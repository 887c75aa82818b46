#include "testsupport.h"

#include <QBuffer>
#include <QTemporaryFile>

static MessageRecorder *s_recorder = nullptr;

void PrintTo(const QString &text, std::ostream *os)
{
    *os << '"' << text.toStdString() << '"';
}

void PrintTo(const QByteArray &bytes, std::ostream *os)
{
    *os << '"' << bytes.toStdString() << '"';
}

MessageRecorder::MessageRecorder()
{
    s_recorder = this;
    previous =
        qInstallMessageHandler([](QtMsgType type, const QMessageLogContext &, const QString &text) {
            (type == QtDebugMsg ? s_recorder->debugs : s_recorder->warnings).append(text);
        });
}

MessageRecorder::~MessageRecorder()
{
    qInstallMessageHandler(previous);
    s_recorder = nullptr;
}

Rendered render(TessivaneTemplate &engine, const QByteArray &templateText, const QString &name)
{
    QBuffer buffer;
    buffer.setData(templateText);
    buffer.open(QIODevice::ReadOnly);
    QTemporaryFile out;
    EXPECT_TRUE(out.open());
    Rendered rendered;
    {
        MessageRecorder recorder;
        rendered.result = engine.process(&buffer, name, out);
        rendered.warnings = recorder.warnings;
        rendered.debugs = recorder.debugs;
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
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}
