#include "testsupport.h"

#include <QDir>
#include <QProcess>
#include <QTemporaryDir>

#include <unistd.h>

#include <string>

// Input far beyond what a configuration template holds, or broken on purpose.
// Every run must come to its end, with the output the rules give for it.

using namespace std::string_literals;

namespace {

const int s_megabyte = 1 << 20;

// Writes 50 MB in one piece.
bool writeHugeTag(const QString &, QTextStream *out, bool, int *)
{
    *out << QString(50 * s_megabyte, QLatin1Char('z'));
    return true;
}

// Large outputs are compared by size and content without printing them whole.
void expectLarge(const QByteArray &actual, const QByteArray &expected)
{
    EXPECT_EQ(actual.size(), expected.size());
    EXPECT_TRUE(actual == expected) << "the content differs";
}

} // namespace

class HostileInput : public ::testing::Test
{
protected:
    HostileInput()
    {
        backend.set(QStringLiteral("/k/one"), QStringLiteral("1"));
        backend.set(QStringLiteral("/k/zero"), QStringLiteral("0"));
        backend.set(QStringLiteral("/k/nul"), QString::fromUtf8("a\0b", 3));
        backend.set(QString::fromUtf8("/k/n\0ul", 7), QStringLiteral("whole key"));
        backend.set(QStringLiteral("/k/n"), QStringLiteral("key cut at the NUL"));
        backend.set(QStringLiteral("/k/\uFFFD"), QStringLiteral("replaced"));
        backend.set(QStringLiteral("/k/surrogate"), QString(QChar(0xD800)));
        engine.setRegistryBackend(&backend);
    }

    Tessivane backend;
    TessivaneTemplate engine;
};

TEST_F(HostileInput, WritesHundredMegabyteLine)
{
    const QByteArray text(100 * s_megabyte, 'x');
    expectLarge(render(engine, text + '\n').output, text + '\n');
    expectLarge(render(engine, text + "%%REG(/k/one)%%\n").output, text + "1\n");
}

TEST_F(HostileInput, NestsHundredThousandBlocks)
{
    const int depth = 100000;
    const QByteArray ends = QByteArray("%%ENDIF%%y\n").repeated(depth) + "after\n";
    const QByteArray written =
        QByteArray("x\n").repeated(depth) + QByteArray(ends).replace("%%ENDIF%%", "");
    expectLarge(render(engine, QByteArray("%%IF REG(/k/one)%%x\n").repeated(depth) + ends).output,
                written);
    // A false block drops all it holds; the rest of the line of its ENDIF is written.
    const Rendered dropped =
        render(engine, QByteArray("%%IF REG(/k/zero)%%x\n").repeated(depth) + ends);
    EXPECT_EQ(dropped.output, QByteArray("y\nafter\n"));
    EXPECT_EQ(dropped.warnings, QStringList());
}

TEST_F(HostileInput, PairsTenThousandMarksOnOneLine)
{
    // An empty command has an empty name, which no command serves.
    const Rendered empty = render(engine, QByteArray("%%").repeated(10000) + '\n');
    EXPECT_EQ(empty.output, QByteArray("\n"));
    EXPECT_EQ(empty.warnings.size(), 5000);
    // An odd count leaves the line end inside an unclosed last command.
    const Rendered odd = render(engine, QByteArray("%%").repeated(10001) + "\nnext\n");
    EXPECT_EQ(odd.output, QByteArray("next\n"));
    EXPECT_EQ(odd.warnings.size(), 5001);
}

TEST_F(HostileInput, WritesFiftyMegabyteTag)
{
    TessivaneTemplateTagPtr tag;
    tag.setTagPtr(writeHugeTag);
    tag.addTagName("huge");
    ASSERT_TRUE(engine.addTag(&tag));
    expectLarge(render(engine, "<%%TAG(huge)%%>\n").output,
                '<' + QByteArray(50 * s_megabyte, 'z') + ">\n");
}

struct TemplateRow
{
    const char *name;
    std::string tmpl; // "@" stands for the directory of the included files
    std::string output;
    const char *warning; // "" when there is none
    bool isRootImmune = false; // permission bits do not stop root
};
TT_PRINT_ROWS_AS_NAMES(TemplateRow)

class HostileTemplate : public HostileInput, public ::testing::WithParamInterface<TemplateRow>
{
protected:
    static void SetUpTestSuite()
    {
        // f0 includes f1, which includes f2, ... down to f999.
        for (int i = 0; i < 1000; ++i)
            put("f" + std::to_string(i), "%%INCLUDE_FILE(@/f" + std::to_string(i + 1) + ")%%\n");
        put("locked", "secret\n");
        QFile::setPermissions(dir().filePath(QStringLiteral("locked")), {});
        QDir(dir().path()).mkdir(QStringLiteral("sub"));
    }
    // Made at the first use and removed when the program ends.
    static QTemporaryDir &dir()
    {
        static QTemporaryDir s_dir;
        return s_dir;
    }
    static QByteArray at(const std::string &text)
    {
        return QByteArray::fromStdString(text).replace('@', QFile::encodeName(dir().path()));
    }
    static void put(const std::string &name, const std::string &content)
    {
        writeFile(dir().filePath(QString::fromStdString(name)), at(content));
    }
};

// Templates are decoded as UTF-8, a bad sequence giving U+FFFD ("\xef\xbf\xbd").
const TemplateRow s_templateRows[] = {
    {"NulInText", "a\0b\n"s, "a\0b\n"s, ""},
    {"NulInValue", "<%%REG(/k/nul)%%>\n", "<a\0b>\n"s, ""},
    {"NulInKey", "<%%REG(/k/n\0ul)%%>\n"s, "<whole key>\n", ""},
    {"InvalidInKey", "%%REG(/k/\xfe)%%\n", "replaced\n", ""},
    {"InvalidTagName", "%%TAG(\xff)%%\n", "\n",
     "WARNING in.tmpl/1: tag for '\xef\xbf\xbd' not found."},
    {"OverlongMarksAreNoMarks", "\xc0\xa5\xc0\xa5*\xc0\xa5\xc0\xa5\n",
     "\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd*"
     "\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\n",
     ""},
    {"TruncatedBeforeLineEnd", "a\xe2\x82\nb\n", "a\xef\xbf\xbd\xef\xbf\xbd\nb\n", ""},
    // The decoder keeps an unfinished sequence for more input, which never
    // comes: the bytes are dropped, and they make no line of their own.
    {"TruncatedAtEnd", "a\n\xe2\x82", "a\n", ""},
    // The encoder writes a question mark for what it cannot encode.
    {"LoneSurrogateInValue", "<%%REG(/k/surrogate)%%>\n", "<?>\n", ""},
    // A pair at the very end of the output, where no line feed follows, is written whole.
    {"PairAtTheEnd", "\xf0\x9f\x98\x80%%\n", "\xf0\x9f\x98\x80",
     "WARNING in.tmpl/1: No command handler for '' found"},
    {"IncludesThousandDeep", "<%%INCLUDE_FILE(@/f0)%%>\n", '<' + std::string(99, '\n') + ">\n",
     "WARNING @/f98/1: Could not include file '@/f99': includes nested more than 100 deep"},
    {"IncludeUnreadable", "<%%INCLUDE_FILE(@/locked)%%>\n", "<>\n",
     "WARNING in.tmpl/1: Could not open file '@/locked': Permission denied", true},
    {"IncludeDirectory", "<%%INCLUDE_FILE(@/sub)%%>\n", "<>\n",
     "WARNING in.tmpl/1: Could not open file '@/sub': Is a directory"},
    // Messages insert texts as printf's "%s" does: each ends at its first NUL byte. No file
    // name holds one, so no file is opened, and the include guard says nothing either.
    {"NulInKeyWithDefault", "v=%%REG(a\0b)()(\"x\")%%\n"s, "v=x\n",
     "WARNING in.tmpl/1: Could not find regkey a, but have default value. writing default value x"},
    {"NulInIncludedName", "<%%INCLUDE_FILE(@/f1\0x)%%>\n"s, "<>\n",
     "WARNING in.tmpl/1: Could not open file '@/f1': No such file or directory"},
};

TEST_P(HostileTemplate, RendersAsDecoded)
{
    const TemplateRow &row = GetParam();
    if (row.isRootImmune && ::geteuid() == 0)
        GTEST_SKIP() << "root reads the file all the same";
    const Rendered rendered = render(engine, at(row.tmpl));
    EXPECT_EQ(rendered.result, 0);
    EXPECT_EQ(rendered.output, at(row.output));
    const QString warning = QString::fromUtf8(at(row.warning));
    EXPECT_EQ(rendered.warnings, warning.isEmpty() ? QStringList() : QStringList(warning));
}

INSTANTIATE_TEST_SUITE_P(Rows, HostileTemplate, ::testing::ValuesIn(s_templateRows), testRowName);

struct ToolRow
{
    const char *name;
    const char *output; // the OUTPUT argument; null: standard output, going to /dev/full
    const char *error; // how the one line on standard error begins
};
TT_PRINT_ROWS_AS_NAMES(ToolRow)

using HostileTool = ::testing::TestWithParam<ToolRow>;

// /proc is written in place; the system refuses, at the open or at the write, depending on the
// user.
const ToolRow s_toolRows[] = {
    {"WrittenInPlaceUnderProc", "/proc/version", "cannot write '/proc/version': "},
    {"FullDevice", "/dev/full", "cannot write '/dev/full': No space left on device\n"},
    {"FullStandardOutput", nullptr, "cannot write standard output: No space left on device\n"},
};

TEST_P(HostileTool, FailsWithFileError)
{
    const ToolRow &row = GetParam();
    QTemporaryDir dir;
    // Larger than any buffer, so that writes fail while the engine runs.
    writeFile(dir.filePath(QStringLiteral("t.tmpl")), QByteArray("text\n").repeated(200000));
    QProcess tool;
    tool.setWorkingDirectory(dir.path());
    QStringList args(QStringLiteral("t.tmpl"));
    if (row.output)
        args << QString::fromUtf8(row.output);
    else
        tool.setStandardOutputFile(QStringLiteral("/dev/full"));
    tool.start(QStringLiteral(TT_TOOL_PATH), args);
    ASSERT_TRUE(tool.waitForFinished(30000));
    EXPECT_EQ(tool.exitCode(), 3);
    const QByteArray error = tool.readAllStandardError();
    EXPECT_TRUE(error.startsWith("tessivane-template: " + QByteArray(row.error))) << error.data();
    EXPECT_EQ(error.count('\n'), 1);
    EXPECT_EQ(tool.readAllStandardOutput(), QByteArray());
}

INSTANTIATE_TEST_SUITE_P(Rows, HostileTool, ::testing::ValuesIn(s_toolRows), testRowName);

// A producer still writing after its last line, as most pipes are: that the
// input has ended shows only when a read finds nothing, and nothing is no line.
TEST(HostileStandardInput, SlowPipeEndsWithoutExtraLine)
{
    QProcess tool;
    tool.setReadChannel(QProcess::StandardError);
    tool.start(QStringLiteral(TT_TOOL_PATH), {QStringLiteral("-")});
    tool.write("%%NOPE%%x\n");
    // The warning comes once the line is done and the tool waits for more.
    ASSERT_TRUE(tool.waitForReadyRead(30000));
    tool.closeWriteChannel();
    ASSERT_TRUE(tool.waitForFinished(30000));
    EXPECT_EQ(tool.exitCode(), 0);
    EXPECT_EQ(tool.readAllStandardOutput(), QByteArray("x\n"));
    EXPECT_EQ(tool.readAllStandardError(),
              QByteArray("WARNING -/1: No command handler for 'NOPE' found\n"));
}
