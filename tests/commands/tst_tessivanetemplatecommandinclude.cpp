#include "testsupport.h"
#include "tessivanetemplatecommandinclude.h"
#include "tessivanetemplateparser.h"

#include <QDir>
#include <QTemporaryDir>

#include <vector>

// The fixture bears the library class's name; the namespace keeps the two apart.
namespace tst {

struct IncludeRow
{
    const char *name;
    const char *tmpl;
    QByteArray output;
    std::vector<const char *> warnings;
};

// Every test runs in a fresh directory of its own, so that include names are relative.
class TessivaneTemplateCommandInclude : public ::testing::TestWithParam<IncludeRow>
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_dir.isValid());
        ASSERT_TRUE(QDir::setCurrent(m_dir.path()));
        m_backend.set(QStringLiteral("/k"), QStringLiteral("0")); // "IF REG(/k)" skips
        m_engine.setRegistryBackend(&m_backend);
        const char *files[][2] = {
            {"inc.tmpl", "x\n%%NOPE%%\n"}, {"openif.tmpl", "in\n%%IF REG(/k)%%\nhidden\n"},
            {"version.tmpl", "in\nv%%TEMPLATE_VERSION(2)%%rest\nmore\n"},
            {"plain", "p\n"}, {"a)(b", "ab!\n"},
            {"self.tmpl", "s1\n%%INCLUDE_FILE(./self.tmpl)%%\ns2\n"},
            {"a.tmpl", "A%%INCLUDE_FILE(b.tmpl)%%a\n"}, {"b.tmpl", "B%%INCLUDE_FILE(a.tmpl)%%b\n"},
            {"cyc.tmpl", "c%%INCLUDE_FILE(link)%%\n"},
            {"loop/x.tmpl", "x%%INCLUDE_DIR(loop)%%y\n"}, {"slash/n.txt", "%%NOPE%%\n"},
            {"order/b.txt", "b\n"}, {"order/A.txt", "A\n"}, {"order/.hidden", "h\n"},
            {"order/sub/c.txt", "c\n"}, {"stop/1.txt", "one\n"},
            {"stop/2.txt", "two%%TEMPLATE_VERSION(2)%%\n"}, {"stop/3.txt", "three\n"},
        };
        for (const auto &file : files) {
            QDir().mkpath(QFileInfo(QString::fromUtf8(file[0])).path());
            writeFile(QString::fromUtf8(file[0]), file[1]);
        }
        ASSERT_TRUE(QFile::link(QStringLiteral("cyc.tmpl"), QStringLiteral("link")));
        ASSERT_TRUE(QFile::link(QStringLiteral("../plain"), QStringLiteral("order/link.txt")));
        ASSERT_TRUE(QFileInfo(QStringLiteral("order/link.txt")).isFile()); // not dangling
    }

    QTemporaryDir m_dir;
    struct CwdGuard
    {
        QString saved = QDir::currentPath();
        ~CwdGuard() { QDir::setCurrent(saved); }
    } m_cwd;
    Tessivane m_backend;
    TessivaneTemplate m_engine;
};

const IncludeRow s_rows[] = {
    {"NestedDiagnostics", "a\n%%INCLUDE_FILE(inc.tmpl)%%b\n%%NOPE%%\n", "a\nx\n\nb\n\n",
     {"WARNING inc.tmpl/2: No command handler for 'NOPE' found",
      "WARNING in.tmpl/3: No command handler for 'NOPE' found"}},
    {"OpenIfStaysInside", "a%%INCLUDE_FILE(openif.tmpl)%%b\nc\n", "ain\nb\nc\n", {}},
    {"VersionStaysInside", "a%%INCLUDE_FILE(version.tmpl)%%b\nc\n", "ain\nvb\nc\n",
     {"WARNING version.tmpl/2: template is version 2, parser is version 1."}},
    {"SkippedNotRun", "%%IF REG(/k)%%%%INCLUDE_FILE(none)%%%%ENDIF%%x\n", "x\n", {}},
    {"OpenFails", "a%%INCLUDE_FILE(none)%%b%%INCLUDE_FILE(\"plain\")%%c\n", "abc\n",
     {"WARNING in.tmpl/1: Could not open file 'none': No such file or directory",
      "WARNING in.tmpl/1: Could not open file '\"plain\"': No such file or directory"}},
    {"NoParens", "a%%INCLUDE_FILE(plain)x%%b%%INCLUDE_DIR%%c\n", "abc\n", {}},
    {"TwoGroups", "%%INCLUDE_FILE(a)(b)%%\n", "ab!\n\n", {}},
    {"SameFileTwice", "%%INCLUDE_FILE(plain)%%%%INCLUDE_FILE(plain)%%\n", "p\np\n\n", {}},
    {"DirectCycle", "%%INCLUDE_FILE(self.tmpl)%%end\n", "s1\n\ns2\nend\n",
     {"WARNING self.tmpl/2: Could not include file './self.tmpl': it is already being "
      "processed (include cycle)"}},
    {"IndirectCycle", "%%INCLUDE_FILE(a.tmpl)%%.\n", "ABb\na\n.\n",
     {"WARNING b.tmpl/1: Could not include file 'a.tmpl': it is already being processed "
      "(include cycle)"}},
    {"LinkCycle", "%%INCLUDE_FILE(cyc.tmpl)%%.\n", "c\n.\n",
     {"WARNING cyc.tmpl/1: Could not include file 'link': it is already being processed "
      "(include cycle)"}},
    {"DirCycle", "%%INCLUDE_DIR(loop)%%end\n", "xy\nend\n",
     {"WARNING loop/x.tmpl/1: Could not include file 'loop/x.tmpl': it is already being "
      "processed (include cycle)"}},
    {"DirOrder", "%%INCLUDE_DIR(order)%%.\n", "A\nb\n.\n", {}},
    {"DirTrailingSlash", "%%INCLUDE_DIR(slash/)%%\n", "\n\n",
     {"WARNING slash//n.txt/1: No command handler for 'NOPE' found"}},
    {"DirStopsAtFailure", "%%INCLUDE_DIR(stop)%%!\n", "one\ntwo!\n",
     {"WARNING stop/2.txt/1: template is version 2, parser is version 1."}},
    {"DirOpenFails", "a%%INCLUDE_DIR(none)%%b%%INCLUDE_DIR(plain)%%c%%INCLUDE_DIR()%%d\n",
     "abcd\n",
     {"WARNING in.tmpl/1: Could not open directory 'none'",
      "WARNING in.tmpl/1: Could not open directory 'plain'",
      "WARNING in.tmpl/1: Could not open directory ''"}},
    {"ExecEmpty", "[%%INCLUDE_EXECUTABLE(true)%%%%INCLUDE_EXECUTABLE(./nocmd 2>/dev/null)%%]\n",
     "[]\n", {}},
    {"ExecNulByte", "[%%INCLUDE_EXECUTABLE(printf 'ab\\0cd\\nef')%%]\n", "[abef]\n", {}},
};

TEST_P(TessivaneTemplateCommandInclude, WritesIncludedTextAndReportsFailures)
{
    const IncludeRow &row = GetParam();
    const Rendered r = render(m_engine, row.tmpl);
    QStringList warnings;
    for (const char *w : row.warnings)
        warnings << QString::fromUtf8(w);
    EXPECT_EQ(r.result, 0);
    EXPECT_EQ(r.output, row.output);
    EXPECT_EQ(r.warnings, warnings);
}

INSTANTIATE_TEST_SUITE_P(Rows, TessivaneTemplateCommandInclude, ::testing::ValuesIn(s_rows),
                         [](const ::testing::TestParamInfo<IncludeRow> &row) {
                             return std::string(row.param.name);
                         });

// Seen from a parser that runs self.tmpl.
TEST_F(TessivaneTemplateCommandInclude, FailsWhenNotEverythingWasIncluded)
{
    using C = TessivaneTemplateCommand;
    const struct { const char *name, *parameter; int result; } cases[] = {
        {"INCLUDE_FILE", "(plain)", C::CommandDone}, {"INCLUDE_FILE", "(plain", C::CommandFailed},
        {"INCLUDE_FILE", "(version.tmpl)", C::CommandFailed},
        {"INCLUDE_FILE", "(self.tmpl)", C::CommandFailed}, {"INCLUDE_DIR", "()", C::CommandFailed},
        {"INCLUDE_DIR", "(order)", C::CommandDone}, {"INCLUDE_DIR", "(stop)", C::CommandFailed},
        {"INCLUDE_EXECUTABLE", "(./nocmd 2>/dev/null)", C::CommandDone},
    };
    QString in, out;
    QTextStream inStream(&in), outStream(&out);
    TessivaneTemplateParser parser(&m_engine, &inStream, &outStream, QStringLiteral("self.tmpl"));
    ::TessivaneTemplateCommandInclude command;
    MessageRecorder recorder;
    for (const auto &c : cases)
        EXPECT_EQ(command.executeCommand(&parser, QString::fromLatin1(c.name),
                                         QString::fromLatin1(c.parameter)),
                  c.result) << c.name << c.parameter;
}

TEST_F(TessivaneTemplateCommandInclude, ExecutableLongLineIsCopiedUnchanged)
{
    QByteArray line;
    for (int i = 0; i < 3000; ++i)
        line += char('a' + i % 26);
    writeFile(QStringLiteral("long"), line + "\nend");
    const Rendered r = render(m_engine, "<%%INCLUDE_EXECUTABLE(cat long)%%>");
    EXPECT_EQ(r.output, "<" + line + "\nend>\n");
    EXPECT_EQ(r.warnings, QStringList());
}

TEST_F(TessivaneTemplateCommandInclude, TemplateFileIncludingItselfIsACycle)
{
    writeFile(QStringLiteral("top.tmpl"), "1%%INCLUDE_FILE(./top.tmpl)%%2\n");
    MessageRecorder recorder;
    EXPECT_EQ(m_engine.process("top.tmpl", "out.txt"), 0);
    EXPECT_EQ(readFile(QStringLiteral("out.txt")), "12\n");
    EXPECT_EQ(recorder.warnings(),
              QStringList(QStringLiteral("WARNING top.tmpl/1: Could not include file "
                                         "'./top.tmpl': it is already being processed "
                                         "(include cycle)")));
}

TEST_F(TessivaneTemplateCommandInclude, DeepChainStopsAtNestingCap)
{
    for (int i = 0; i < 150; ++i)
        writeFile(QStringLiteral("c%1").arg(i),
                  QStringLiteral("%1%%INCLUDE_FILE(c%2)%%\n").arg(i).arg(i + 1).toUtf8());
    const Rendered r = render(m_engine, "%%INCLUDE_FILE(c0)%%\n");
    // The template's parser and those of c0 .. c98 make 100; c98 may not open c99.
    QByteArray expected;
    for (int i = 0; i <= 98; ++i)
        expected += QByteArray::number(i);
    EXPECT_EQ(r.output, expected + QByteArray(100, '\n'));
    EXPECT_EQ(r.warnings, QStringList(QStringLiteral("WARNING c98/1: Could not include file "
                                                     "'c99': includes nested more than 100 deep")));
}

// Notes the parser that the engine calls current at each call.
class ParserProbe : public TessivaneTemplateTag
{
public:
    ParserProbe() { addTagName("probe"); }
    bool processTag(const QString &, QTextStream *out, bool, int *) override
    {
        seen.append(tessivaneTemplate()->currentParser());
        *out << "t";
        return true;
    }
    QList<TessivaneTemplateParser *> seen;
};

TEST_F(TessivaneTemplateCommandInclude, CurrentParserIsOutermostInsideInclude)
{
    ParserProbe probe;
    ASSERT_TRUE(m_engine.addTag(&probe));
    writeFile(QStringLiteral("tag.tmpl"), "%%TAG(probe)%%\n");
    EXPECT_EQ(render(m_engine, "%%TAG(probe)%%%%INCLUDE_FILE(tag.tmpl)%%\n").output, "tt\n\n");
    ASSERT_EQ(probe.seen.size(), 2);
    EXPECT_NE(probe.seen.at(0), nullptr);
    EXPECT_EQ(probe.seen.at(1), probe.seen.at(0));
}

} // namespace tst
