#include "testsupport.h"

#include <QBuffer>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryFile>
#include <QTextStream>

#include "tessivanetemplateparser.h"

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

Rendered renderDecoded(TessivaneTemplate &engine, const QByteArray &templateText,
                       const QString &name)
{
    QBuffer input;
    input.setData(templateText);
    input.open(QIODevice::ReadOnly);
    QBuffer output;
    output.open(QIODevice::WriteOnly);
    QTextStream in(&input);
    QTextStream out(&output);
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
    out.setEncoding(QStringConverter::Utf8);
#else
    out.setCodec("UTF-8");
#endif
    Rendered rendered;
    {
        MessageRecorder recorder;
        TessivaneTemplateParser parser(&engine, &in, &out, name);
        rendered.result = parser.process();
        rendered.warnings = recorder.warnings;
        rendered.debugs = recorder.debugs;
    }
    out.flush();
    rendered.output = output.data();
    return rendered;
}

void PrintTo(const TranscriptRow &row, std::ostream *os)
{
    *os << row.name;
}

void expectTranscript(const TranscriptRow &row, const QString &dir)
{
    QProcess shell;
    shell.setWorkingDirectory(dir);
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("T", TT_TOOL_PATH);
    environment.insert("S", TT_SYNC_PATH);
    environment.insert("SHIM", TT_FAILSHIM_PATH);
    environment.insert("EXAMPLES", TT_EXAMPLES_DIR);
    environment.insert("ETCDLIB", TT_ETCD_LIBRARY);
    environment.insert("LC_ALL", "C.UTF-8");
    shell.setProcessEnvironment(environment);
    shell.start("bash", {"-c", QString::fromStdString(row.script)});
    shell.closeWriteChannel();
    ASSERT_TRUE(shell.waitForFinished(120000));
    const QByteArray here = QFile::encodeName(dir);
    const QByteArray out = shell.readAllStandardOutput().replace(here, "@");
    const QByteArray err = shell.readAllStandardError().replace(here, "@");
    if (shell.exitCode() == 77)
        GTEST_SKIP() << err.toStdString();
    EXPECT_EQ(out.toStdString(), row.out);
    if (row.err.rfind('^', 0) == 0)
        EXPECT_TRUE(QRegularExpression(QString::fromStdString(row.err)).match(err).hasMatch())
            << err.data();
    else
        EXPECT_EQ(err.toStdString(), row.err);
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
