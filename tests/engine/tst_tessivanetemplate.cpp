#include "testsupport.h"
#include "tessivanetemplateparser.h"

#include <QBuffer>
#include <QTemporaryFile>
#include <QTextCodec>

namespace {

// How the output reaches process(): by name, as an unopened QFile, or opened read-only.
enum OutputKind { ByName, Unopened, ReadOnly };

struct OpenFailureRow
{
    const char *name;
    const char *templateName; // only "in.tmpl" exists
    const char *outName; // "out.txt" exists and holds "old"
    OutputKind kind;
    const char *message;
    const char *outAfter; // null: the file does not exist afterwards
};
TT_PRINT_ROWS_AS_NAMES(OpenFailureRow)

// Named after the class under test; each test runs in a temporary working directory.
struct TessivaneTemplate : EngineTest<OpenFailureRow>
{
    WorkingDirectory cwd;
};

// Writes where the current parser is, how many parsers run and which file the innermost reads.
struct ParserProbe : TessivaneTemplateTag
{
    bool processTag(const QString &, QTextStream *out, bool, int *) override
    {
        TessivaneTemplateParser *current = tessivaneTemplate()->currentParser();
        const QList<TessivaneTemplateParser *> &running = tessivaneTemplate()->runningParsers();
        *out << current->fileName() << '/' << current->lineNumber() << ' ' << running.size() << ' '
             << running.last()->fileName();
        return true;
    }
};

TEST_F(TessivaneTemplate, NamesOutermostParserAndReportsAsTheFileSystemHoldsTheTemplate)
{
    ParserProbe probe;
    probe.addTagName("p");
    ASSERT_TRUE(engine.addTag(&probe));
    const QString name = QString::fromUtf8("caf\xc3\xa9 %d.tmpl");
    writeFile("inner.tmpl", "i%%TAG(p)%%\n");
    writeFile(name,
              "%%TAG(p)%%\n%%INCLUDE_FILE(inner.tmpl)%%%%NOPE%%\n%%TEMPLATE_VERSION(2)%%\nb\n");
    MessageRecorder recorder;
    EXPECT_EQ(engine.process(QFile::encodeName(name).constData(), "out.txt"), 1);
    EXPECT_EQ(engine.currentParser(), nullptr);
    EXPECT_EQ(QString::fromUtf8(readFile("out.txt")),
              name + "/1 1 " + name + "\ni" + name + "/2 2 inner.tmpl\n\n");
    const QString report = "WARNING " + name;
    EXPECT_EQ(recorder.warnings,
              QStringList({report + "/2: No command handler for 'NOPE' found",
                           report + "/3: template is version 2, parser is version 1."}));
}

TEST_P(TessivaneTemplate, ReturnsThreeWhenAFileCannotBeOpened)
{
    const OpenFailureRow &row = GetParam();
    writeFile("in.tmpl", "x\n");
    writeFile("out.txt", "old");
    QFile out(QString::fromLatin1(row.outName));
    ASSERT_TRUE(row.kind != ReadOnly || out.open(QIODevice::ReadOnly));
    MessageRecorder recorder;
    EXPECT_EQ(row.kind == ByName ? engine.process(row.templateName, row.outName)
                                 : engine.process(row.templateName, out),
              3);
    EXPECT_EQ(recorder.warnings, QStringList(QString::fromLatin1(row.message)));
    EXPECT_EQ(out.openMode(), row.kind == ReadOnly ? QIODevice::ReadOnly : QIODevice::NotOpen);
    EXPECT_EQ(QFile::exists(out.fileName()), row.outAfter != nullptr);
    EXPECT_EQ(readFile(out.fileName()), QByteArray(row.outAfter));
}

const OpenFailureRow s_openFailureRows[] = {
    {"MissingTemplate", "5%s.t", "out.txt", ByName, "Could not open template file '5%s.t'", ""},
    {"MissingTemplateUnopened", "a.t", "out.txt", Unopened, "Could not open template file 'a.t'",
     "old"},
    {"ReadOnlyOutput", "in.tmpl", "out.txt", ReadOnly, "File not opened in write mode 'out.txt'",
     "old"},
    {"NoOutputDir", "in.tmpl", "no/o", ByName, "Could not open out file 'no/o'", nullptr},
    {"NoOutputDirUnopened", "in.tmpl", "no/o", Unopened, "Could not open out file 'no/o'", nullptr},
    // No complaint of Qt's about the empty name goes with it.
    {"EmptyTemplateName", "", "out.txt", ByName, "Could not open template file ''", ""},
};

INSTANTIATE_TEST_SUITE_P(Open, TessivaneTemplate, ::testing::ValuesIn(s_openFailureRows),
                         testRowName);

// Delivers its bytes, then fails as a disk with a bad sector does.
class BreakingDevice : public QIODevice
{
public:
    explicit BreakingDevice(const QByteArray &bytes)
        : m_bytes(bytes)
    {
    }

protected:
    qint64 readData(char *data, qint64 size) override
    {
        if (m_bytes.isEmpty()) {
            setErrorString("Input/output error");
            return -1;
        }
        size = qMin<qint64>(size, m_bytes.size());
        memcpy(data, m_bytes.constData(), size_t(size));
        m_bytes.remove(0, int(size));
        return size;
    }
    qint64 writeData(const char *, qint64) override { return -1; }

private:
    QByteArray m_bytes;
};

TEST_F(TessivaneTemplate, FailsWhenAnInputCannotBeReadOrTheOutputWritten)
{
    BreakingDevice broken("a\nb%%NOPE%%\nc");
    QBuffer unopened, writeOnly;
    ASSERT_TRUE(broken.open(QIODevice::ReadOnly) && writeOnly.open(QIODevice::WriteOnly));
    QTemporaryFile out;
    ASSERT_TRUE(out.open());
    writeFile("in.tmpl", "x\n");
    QFile full("/dev/full");
    MessageRecorder recorder;
    // The line that could not be read is not written, and the report names it.
    EXPECT_EQ(engine.process(&broken, "b.tmpl", out), 3);
    for (QIODevice *input : std::initializer_list<QIODevice *> {nullptr, &unopened, &writeOnly})
        EXPECT_EQ(engine.process(input, "n.tmpl", out), 3);
    EXPECT_EQ(engine.process("in.tmpl", full), 3);
    // The engine keeps no failure from one run to the next.
    EXPECT_EQ(engine.process("in.tmpl", "in.out"), 0);
    const QString refused = "Could not open template file 'n.tmpl'";
    EXPECT_EQ(recorder.warnings,
              QStringList({"WARNING b.tmpl/2: No command handler for 'NOPE' found",
                           "WARNING b.tmpl/3: Could not read file 'b.tmpl': Input/output error",
                           refused, refused, refused,
                           "Could not write out file '/dev/full': No space left on device"}));
    out.seek(0);
    EXPECT_EQ(out.readAll(), "a\nb\n");
}

TEST_F(TessivaneTemplate, RefusesNullTagHandlers)
{
    MessageRecorder recorder;
    EXPECT_FALSE(engine.addTag(nullptr));
    engine.setDefaultTagHandler(nullptr);
    EXPECT_EQ(engine.defaultTagHandler(), nullptr);
    EXPECT_EQ(recorder.warnings,
              QStringList(
                  {"tried to add a null tag handler", "tried to set a null default tag handler"}));
}

TEST_F(TessivaneTemplate, WritesFromCurrentPositionAndLeavesOutputOpen)
{
    writeFile("in.tmpl", "ab");
    writeFile("out.txt", "0123456789");
    QFile out("out.txt");
    ASSERT_TRUE(out.open(QIODevice::ReadWrite) && out.seek(2));
    EXPECT_EQ(engine.process("in.tmpl", out), 0);
    EXPECT_TRUE(out.isOpen());
    out.close();
    EXPECT_EQ(readFile("out.txt"), "01ab\n56789");
}

TEST_F(TessivaneTemplate, WritesUtf8WhateverTheLocale)
{
    QTextCodec *const previous = QTextCodec::codecForLocale();
    for (const char *codec : {"UTF-8", "ISO-8859-1"}) {
        QTextCodec::setCodecForLocale(QTextCodec::codecForName(codec));
        const QByteArray input = QTextCodec::codecForLocale()->fromUnicode("caf\u00e9\n");
        EXPECT_EQ(render(engine, input).output, "caf\xc3\xa9\n") << codec;
    }
    QTextCodec::setCodecForLocale(previous);
}

} // namespace
