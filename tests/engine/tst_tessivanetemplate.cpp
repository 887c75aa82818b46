#include "testsupport.h"
#include "tessivanetemplateparser.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTextCodec>

#include <utility>

namespace {

using Engine = ::TessivaneTemplate;

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

// Named after the class under test, which is reached as Engine. Every test
// runs in its own temporary directory, so file names are short and relative.
class TessivaneTemplate : public ::testing::TestWithParam<OpenFailureRow>
{
protected:
    TessivaneTemplate() { QDir::setCurrent(dir.path()); }
    ~TessivaneTemplate() override { QDir::setCurrent(previousDir); }

    const QString previousDir = QDir::currentPath();
    QTemporaryDir dir;
    Engine engine;
};

// Writes, for every tag, what the engine tells about the running parsers.
class ParserProbe : public TessivaneTemplateTag
{
public:
    bool processTag(const QString &, QTextStream *out, bool, int *) override
    {
        TessivaneTemplateParser *current = tessivaneTemplate()->currentParser();
        const QList<TessivaneTemplateParser *> &running = tessivaneTemplate()->runningParsers();
        if (!current || running.first() != current)
            return false;
        *out << current->fileName() << '/' << current->lineNumber() << ' ' << running.size() << ' '
             << running.last()->fileName();
        return true;
    }
};

TEST_F(TessivaneTemplate, StartsWithEmptyConfiguration)
{
    EXPECT_EQ(engine.regRoot(), QString());
    EXPECT_EQ(engine.commentPrefix(), QString());
    EXPECT_EQ(engine.commentSuffix(), QString());
    EXPECT_FALSE(engine.showDebug());
    EXPECT_EQ(engine.registryBackend(), nullptr);
}

TEST_F(TessivaneTemplate, CurrentParserIsOutermostDuringProcessOnly)
{
    ParserProbe probe;
    probe.addTagName("p");
    ASSERT_TRUE(engine.addTag(&probe));
    writeFile("inner.tmpl", "i%%TAG(p)%%\n");
    writeFile("outer.tmpl", "%%TAG(p)%%\n%%INCLUDE_FILE(inner.tmpl)%%\n");
    EXPECT_EQ(engine.currentParser(), nullptr);
    EXPECT_EQ(engine.process("outer.tmpl", "out.txt"), 0);
    EXPECT_EQ(engine.currentParser(), nullptr);
    EXPECT_TRUE(engine.runningParsers().isEmpty());
    EXPECT_EQ(readFile("out.txt"), "outer.tmpl/1 1 outer.tmpl\niouter.tmpl/2 2 inner.tmpl\n\n");
}

TEST_F(TessivaneTemplate, ReportsTemplateNameAsTheFileSystemHoldsIt)
{
    const QString name = QString::fromUtf8("caf\xc3\xa9 %d.tmpl");
    writeFile(name, "a%%NOPE%%\n%%TEMPLATE_VERSION(2)%%\nb\n");
    MessageRecorder recorder;
    EXPECT_EQ(engine.process(QFile::encodeName(name).constData(), "out.txt"), 1);
    const QString report = "WARNING " + name;
    EXPECT_EQ(recorder.warnings(),
              QStringList({report + "/1: No command handler for 'NOPE' found",
                           report + "/2: template is version 2, parser is version 1."}));
    EXPECT_EQ(readFile("out.txt"), "a\n");
}

TEST_P(TessivaneTemplate, ReturnsThreeWhenAFileCannotBeOpened)
{
    const OpenFailureRow &row = GetParam();
    writeFile("in.tmpl", "x\n");
    writeFile("out.txt", "old");
    QFile out(QString::fromLatin1(row.outName));
    if (row.kind == ReadOnly) {
        ASSERT_TRUE(out.open(QIODevice::ReadOnly));
    }
    MessageRecorder recorder;
    EXPECT_EQ(row.kind == ByName ? engine.process(row.templateName, row.outName)
                                 : engine.process(row.templateName, out),
              3);
    EXPECT_EQ(recorder.warnings(), QStringList(QString::fromLatin1(row.message)));
    EXPECT_EQ(out.openMode(), row.kind == ReadOnly ? QIODevice::ReadOnly : QIODevice::NotOpen);
    EXPECT_EQ(QFile::exists(out.fileName()), row.outAfter != nullptr);
    EXPECT_EQ(readFile(out.fileName()), QByteArray(row.outAfter));
}

const OpenFailureRow s_openFailureRows[] = {
    {"MissingTemplateEmptiesOutput", "50%s.tmpl", "out.txt", ByName,
     "Could not open template file '50%s.tmpl'", ""},
    {"MissingTemplateCreatesOutput", "a.tmpl", "new.txt", ByName,
     "Could not open template file 'a.tmpl'", ""},
    {"MissingTemplateOutputUntouched", "a.tmpl", "out.txt", Unopened,
     "Could not open template file 'a.tmpl'", "old"},
    {"ReadOnlyOutput", "in.tmpl", "out.txt", ReadOnly, "File not opened in write mode 'out.txt'",
     "old"},
    {"NoOutputDir", "in.tmpl", "no/out.txt", ByName, "Could not open out file 'no/out.txt'",
     nullptr},
    {"NoOutputDirUnopened", "in.tmpl", "no/out.txt", Unopened,
     "Could not open out file 'no/out.txt'", nullptr},
};

// Keeps the rows' names, not their bytes, in the listed test names.
void PrintTo(const OpenFailureRow &row, std::ostream *os)
{
    *os << row.name;
}

std::string rowName(const ::testing::TestParamInfo<OpenFailureRow> &info)
{
    return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(Open, TessivaneTemplate, ::testing::ValuesIn(s_openFailureRows), rowName);

TEST_F(TessivaneTemplate, WritesFromCurrentPositionAndLeavesOutputOpen)
{
    writeFile("in.tmpl", "ab");
    QFile out("out.txt");
    ASSERT_TRUE(out.open(QIODevice::ReadWrite));
    out.write("0123456789");
    out.seek(2);
    EXPECT_EQ(engine.process("in.tmpl", out), 0);
    EXPECT_TRUE(out.isOpen());
    out.close();
    EXPECT_EQ(readFile("out.txt"), "01ab\n56789");
}

TEST_F(TessivaneTemplate, WritesUtf8WhateverTheLocale)
{
    QTextCodec *const previous = QTextCodec::codecForLocale();
    const std::pair<const char *, QByteArray> locales[] = {{"UTF-8", "caf\xc3\xa9\n"},
                                                           {"ISO-8859-1", "caf\xe9\n"}};
    for (const auto &[codec, input] : locales) {
        QTextCodec::setCodecForLocale(QTextCodec::codecForName(codec));
        EXPECT_EQ(render(engine, input).output, "caf\xc3\xa9\n") << codec;
    }
    QTextCodec::setCodecForLocale(previous);
    // The setters take Latin-1, so this is U+00E9.
    engine.setCommentPrefix("\xe9");
    EXPECT_EQ(render(engine, "%%X%%").output,
              " \xc3\xa9 WARNING in.tmpl/1: No command handler for 'X' found\n");
}

} // namespace
