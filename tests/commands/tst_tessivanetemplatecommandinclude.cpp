#include "testsupport.h"
#include "tessivanetemplatecommandinclude.h"
#include "tessivanetemplateparser.h"

// The fixture bears the library class's name; the namespace keeps the two apart.
namespace tst {

struct IncludeRow
{
    const char *name, *tmpl;
    QByteArray output;
    QStringList warnings;
};
TT_PRINT_ROWS_AS_NAMES(IncludeRow)

// Every test runs in a fresh working directory of its own, so that include names are relative.
struct TessivaneTemplateCommandInclude : EngineTest<IncludeRow>
{
    void SetUp() override
    {
        backend.set("/k", "0"); // "IF REG(/k)" skips
        // clang-format off
        const char *files[][2] = {
            {"inc.tmpl", "x\n%%NOPE%%\n"}, {"openif.tmpl", "in\n%%IF REG(/k)%%\nhidden\n"},
            {"version.tmpl", "in\nv%%TEMPLATE_VERSION(2)%%rest\nmore\n"}, {"plain", "p\n"},
            {"a)(b", "ab!\n"}, {"self.tmpl", ""}, {"a.tmpl", "A%%INCLUDE_FILE(b.tmpl)%%a\n"},
            {"b.tmpl", "B%%INCLUDE_FILE(a.tmpl)%%b\n"}, {"cyc.tmpl", "c%%INCLUDE_FILE(link)%%\n"},
            {"loop/x.tmpl", "x%%INCLUDE_DIR(loop)%%y\n"}, {"slash/n.txt", "%%NOPE%%\n"},
            {"order/B.txt", "B\n"}, {"order/a.txt", "a\n"}, {"order/.hidden", "h\n"},
            {"order/sub/c.txt", "c\n"}, {"stop/1.txt", "one\n"},
            {"stop/2.txt", "two%%TEMPLATE_VERSION(2)%%\n"}, {"stop/3.txt", "three\n"},
            {"letters/\u2c2f", "1\n"}, {"letters/\u2c40", "2\n"},
        };
        // clang-format on
        for (const auto &file : files) {
            QDir().mkpath(QFileInfo(file[0]).path());
            writeFile(file[0], file[1]);
        }
        ASSERT_TRUE(QFile::link("cyc.tmpl", "link"));
        ASSERT_TRUE(QFile::link("../plain", "order/link.txt"));
        ASSERT_TRUE(QFileInfo("order/link.txt").isFile()); // not dangling
    }

    WorkingDirectory cwd;
};

const QString s_cycle =
    "Could not include file '%1': it is already being processed (include cycle)";

// clang-format off
const IncludeRow s_rows[] = {
    {"NestedDiagnostics", "a\n%%INCLUDE_FILE(inc.tmpl)%%b\n%%NOPE%%\n", "a\nx\n\nb\n\n",
     {"WARNING inc.tmpl/2: No command handler for 'NOPE' found",
      "WARNING in.tmpl/3: No command handler for 'NOPE' found"}},
    // An open IF block and a newer version end the included file only.
    {"StaysInside", "a%%INCLUDE_FILE(openif.tmpl)%%b%%INCLUDE_FILE(version.tmpl)%%c\nd\n",
     "ain\nbin\nvc\nd\n", {"WARNING version.tmpl/2: template is version 2, parser is version 1."}},
    {"NotRunTwiceNoCycle", "%%IF REG(/k)%%%%INCLUDE_FILE(none)%%%%ENDIF%%a%%INCLUDE_FILE(plain)x%%b"
     "%%INCLUDE_DIR%%c%%INCLUDE_FILE(plain)%%%%INCLUDE_FILE(plain)%%%%INCLUDE_FILE(a)(b)%%\n",
     "abcp\np\nab!\n\n", {}},
    {"OpenFails", "a%%INCLUDE_FILE(none)%%b%%INCLUDE_FILE(\"plain\")%%c\n", "abc\n",
     {"WARNING in.tmpl/1: Could not open file 'none': No such file or directory",
      "WARNING in.tmpl/1: Could not open file '\"plain\"': No such file or directory"}},
    {"Cycles", "%%INCLUDE_FILE(a.tmpl)%%.%%INCLUDE_FILE(cyc.tmpl)%%.%%INCLUDE_DIR(loop)%%end\n",
     "ABb\na\n.c\n.xy\nend\n",
     {"WARNING b.tmpl/1: " + s_cycle.arg("a.tmpl"), "WARNING cyc.tmpl/1: " + s_cycle.arg("link"),
      "WARNING loop/x.tmpl/1: " + s_cycle.arg("loop/x.tmpl")}},
    // Files only, in name order regardless of case, without hidden files, directories or links;
    // the first that fails ends the directory.
    {"DirOrder", "%%INCLUDE_DIR(order)%%%%INCLUDE_DIR(slash/)%%.%%INCLUDE_DIR(stop)%%!\n",
     "a\nB\n\n.one\ntwo!\n", {"WARNING slash//n.txt/1: No command handler for 'NOPE' found",
                             "WARNING stop/2.txt/1: template is version 2, parser is version 1."}},
    // Case is ignored as Unicode 13.0 has it: U+2C2F, a capital of Unicode 14.0, has no lower
    // case there and sorts before U+2C40.
    {"DirOrderUnicode13", "%%INCLUDE_DIR(letters)%%\n", "1\n2\n\n", {}},
    {"DirOpenFails", "a%%INCLUDE_DIR(none)%%b%%INCLUDE_DIR(plain)%%c%%INCLUDE_DIR()%%d\n",
     "abcd\n", {"WARNING in.tmpl/1: Could not open directory 'none'",
                "WARNING in.tmpl/1: Could not open directory 'plain'",
                "WARNING in.tmpl/1: Could not open directory ''"}},
    // A failing command is no failure; a NUL byte ends its text; long lines come whole.
    {"Executable", "[%%INCLUDE_EXECUTABLE(./nocmd 2>/dev/null)%%|"
     "%%INCLUDE_EXECUTABLE(printf 'ab\\0cd\\nef')%%|"
     "%%INCLUDE_EXECUTABLE(printf '%03000d\\nend' 7)%%]\n",
     "[|abef|" + QByteArray(2999, '0') + "7\nend]\n", {}},
    // Every byte a command prints is one Latin-1 character, and every character of the command
    // one byte: C3 A9 comes out as U+00C3 U+00A9, and U+00E9 reaches the shell as E9.
    {"ExecutableLatin1", "%%INCLUDE_EXECUTABLE(printf '\\303\\251')%%|"
     "%%INCLUDE_EXECUTABLE(printf '\xc3\xa9' | od -An -tx1)%%\n", "\xc3\x83\xc2\xa9| e9\n\n", {}},
    // The system's own words, also where QFile has others.
    {"OpenFailsInSystemWords", "%%INCLUDE_FILE()%%%%INCLUDE_FILE(order)%%\n", "\n",
     {"WARNING in.tmpl/1: Could not open file '': No such file or directory",
      "WARNING in.tmpl/1: Could not open file 'order': Is a directory"}},
};
// clang-format on

TEST_P(TessivaneTemplateCommandInclude, WritesIncludedTextAndReportsFailures)
{
    const Rendered r = render(engine, GetParam().tmpl);
    EXPECT_EQ(r.output, GetParam().output);
    EXPECT_EQ(r.warnings, GetParam().warnings);
}

INSTANTIATE_TEST_SUITE_P(Rows, TessivaneTemplateCommandInclude, ::testing::ValuesIn(s_rows),
                         testRowName);

TEST_F(TessivaneTemplateCommandInclude, FailsWhenNotEverythingWasIncluded)
{
    using C = TessivaneTemplateCommand;
    const int done = C::CommandDone, failed = C::CommandFailed;
    // clang-format off
    const std::tuple<const char *, const char *, int> cases[] = { // as seen from self.tmpl
        {"INCLUDE_FILE", "(plain)", done}, {"INCLUDE_FILE", "(version.tmpl)", failed},
        {"INCLUDE_FILE", "(./self.tmpl)", failed}, {"INCLUDE_DIR", "(order)", done},
        {"INCLUDE_DIR", "(stop)", failed}, {"INCLUDE_EXECUTABLE", "(false)", done},
    };
    // clang-format on
    QString in, out;
    QTextStream inStream(&in), outStream(&out);
    TessivaneTemplateParser parser(&engine, &inStream, &outStream, "self.tmpl");
    ::TessivaneTemplateCommandInclude command;
    MessageRecorder recorder;
    for (const auto &[name, parameter, result] : cases)
        EXPECT_EQ(command.executeCommand(&parser, name, parameter), result) << name << parameter;
    // The outermost parser counts for cycles, too.
    EXPECT_EQ(recorder.warnings,
              QStringList({"WARNING version.tmpl/2: template is version 2, parser is version 1.",
                           "WARNING self.tmpl/0: " + s_cycle.arg("./self.tmpl"),
                           "WARNING stop/2.txt/1: template is version 2, parser is version 1."}));
}

// The template's parser and those of 0 .. 98 make 100; 98 may not open 99.
TEST_F(TessivaneTemplateCommandInclude, DeepChainStopsAtNestingCap)
{
    QByteArray expected;
    for (int i = 0; i < 99; ++i) {
        writeFile(QString::number(i),
                  QString("%1%%INCLUDE_FILE(%2)%%\n").arg(i).arg(i + 1).toUtf8());
        expected += QByteArray::number(i);
    }
    const Rendered r = render(engine, "%%INCLUDE_FILE(0)%%\n");
    EXPECT_EQ(r.output, expected + QByteArray(100, '\n'));
    EXPECT_EQ(r.warnings,
              QStringList("WARNING 98/1: Could not include file '99': includes nested "
                          "more than 100 deep"));
}

} // namespace tst
