#include "testsupport.h"

namespace {

struct ParserRow
{
    const char *name;
    QByteArray input;
    QByteArray output;
    QStringList warnings;
    int result = 0;
    const char *prefix = "";
    const char *suffix = "";
    const char *fileName = "in.tmpl";
    bool showDebug = false;
    QStringList debugs = {};
};

// Named after the class under test; the real parser class is not needed here.
class TessivaneTemplateParser : public ::testing::TestWithParam<ParserRow>
{
protected:
    Tessivane backend; // empty: every registry lookup misses
    TessivaneTemplateTagPtr defaultTag;
    TessivaneTemplate engine;
};

TEST_P(TessivaneTemplateParser, WritesOutputAndReports)
{
    const ParserRow &row = GetParam();
    engine.setRegistryBackend(&backend);
    engine.setDefaultTagHandler(&defaultTag);
    engine.setCommentPrefix(row.prefix);
    engine.setCommentSuffix(row.suffix);
    engine.setShowDebug(row.showDebug);
    const Rendered rendered = render(engine, row.input, QString::fromLatin1(row.fileName));
    EXPECT_EQ(rendered.result, row.result);
    EXPECT_EQ(rendered.output, row.output);
    EXPECT_EQ(rendered.warnings, row.warnings);
    EXPECT_EQ(rendered.debugs, row.debugs);
}

// Tables read best one row a line.
// clang-format off
const ParserRow s_lines[] = {
    {"Plain", "a\n  b c\t\n\n", "a\n  b c\t\n\n", {}},
    {"NoFinalLineFeed", "a\nb", "a\nb\n", {}},
    {"Crlf", "a\r\nb\r\n", "a\nb\n", {}},
    {"Empty", "", "", {}},
    {"Unknown", "a%%NOPE%%b\n", "ab\n", {"WARNING in.tmpl/1: No command handler for 'NOPE' found"}},
    // The unclosed token is "%%NOPE\n"; two characters come off each end.
    {"UnmatchedMark", "a%%NOPE\nb\n", "ab\n",
     {"WARNING in.tmpl/1: No command handler for 'NOP' found"}},
    {"PercentInNames", "%%A%d%%\n", " # WARNING 50%s.tmpl/1: No command handler for 'A%d' found\n",
     {"WARNING 50%s.tmpl/1: No command handler for 'A%d' found"}, 0, "#", "", "50%s.tmpl"},
};
const QStringList s_nope2 = {"WARNING in.tmpl/2: No command handler for 'NOPE' found"};
const QStringList s_noParens2 = {"DEBUG in.tmpl/2: parameter doesn't contain '(' and ')'"};
const ParserRow s_reports[] = {
    {"PrefixOnly", "a\nb=%%NOPE%% end\n",
     "a\nb= # WARNING in.tmpl/2: No command handler for 'NOPE' found end\n", s_nope2, 0, "#"},
    {"PrefixAndSuffix", "a\nb=%%NOPE%% end\n",
     "a\nb= /* WARNING in.tmpl/2: No command handler for 'NOPE' found */ end\n",
     s_nope2, 0, "/*", "*/"},
    {"SuffixOnly", "a\nb=%%NOPE%% end\n", "a\nb= end\n", s_nope2, 0, "", "*/"},
    // Skipped lines still count, and nothing inside the skipped region is reported.
    {"LineNumbers",
     "a\n%%IF REG(missing)%%\nx%%NOPE%%\n%%TEMPLATE_VERSION(2)%%\n%%ENDIF%%\n%%NOPE%%\n",
     "a\n\n\n", {"WARNING in.tmpl/2: Could not find regkey missing",
                 "WARNING in.tmpl/6: No command handler for 'NOPE' found"}},
    {"UnclosedRegion", "a%%IF REG(missing)%%b\nc\n",
     "a # WARNING in.tmpl/1: Could not find regkey missing",
     {"WARNING in.tmpl/1: Could not find regkey missing"}, 0, "#"},
    {"DebugOff", "x\n%%TAG%%\n", "x\n\n", {}, 0, "#", "", "in.tmpl", false, {}},
    {"DebugOn", "x\n%%TAG%%\n", "x\n\n", {}, 0, "", "", "in.tmpl", true, s_noParens2},
    {"DebugInOutput", "x\n%%TAG%%\n",
     "x\n # DEBUG in.tmpl/2: parameter doesn't contain '(' and ')'\n",
     {}, 0, "#", "", "in.tmpl", true, s_noParens2},
};
const ParserRow s_version[] = {
    {"One", "a%%TEMPLATE_VERSION(1)%%b\nc\n", "ab\nc\n", {}},
    {"Zero", "a%%TEMPLATE_VERSION(0)%%b\nc\n", "ab\nc\n", {}},
    {"Negative", "a%%TEMPLATE_VERSION(-3)%%b\nc\n", "ab\nc\n", {}},
    {"Letters", "a%%TEMPLATE_VERSION(abc)%%b\nc\n", "ab\nc\n", {}},
    {"EmptyNumber", "a%%TEMPLATE_VERSION()%%b\nc\n", "ab\nc\n", {}},
    {"TwoGroups", "a%%TEMPLATE_VERSION(1)(2)%%b\nc\n", "ab\nc\n", {}},
    {"NoParameter", "a%%TEMPLATE_VERSION%%b\n", "ab\n", {}},
    {"Unclosed", "a%%TEMPLATE_VERSION(2%%b\n", "ab\n", {}},
    {"Two", "a\nb%%TEMPLATE_VERSION(2)%%c\nd\n",
     "a\nb # WARNING in.tmpl/2: template is version 2, parser is version 1.",
     {"WARNING in.tmpl/2: template is version 2, parser is version 1."}, 1, "#"},
    {"Later", "%%TEMPLATE_VERSION(1)%%\nx%%TEMPLATE_VERSION(3)%%\n", "\nx",
     {"WARNING in.tmpl/2: template is version 3, parser is version 1."}, 1},
    {"BlankBeforeParameter", "%%TEMPLATE_VERSION (2)%%\n", "\n",
     {"WARNING in.tmpl/1: No command handler for 'TEMPLATE_VERSION ' found"}},
    {"LowerCase", "%%template_version(2)%%\n", "\n",
     {"WARNING in.tmpl/1: No command handler for 'template_version' found"}},
};
const ParserRow s_comment[] = {
    {"Bare", "a%%*%%b\n", "ab\n", {}},
    {"LooksLikeReg", "%%*REG(x)%%\n", "\n", {}},
    {"Spaced", "%%  * note (see below)%%\n", "\n", {}},
    {"StarInside", "%%a*b%%\n", "\n", {"WARNING in.tmpl/1: No command handler for 'a*b' found"}},
};
// clang-format on

// Keeps the rows' names, not their bytes, in the listed test names.
void PrintTo(const ParserRow &row, std::ostream *os)
{
    *os << row.name;
}

std::string rowName(const ::testing::TestParamInfo<ParserRow> &info)
{
    return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(Lines, TessivaneTemplateParser, ::testing::ValuesIn(s_lines), rowName);
INSTANTIATE_TEST_SUITE_P(Reports, TessivaneTemplateParser, ::testing::ValuesIn(s_reports), rowName);
INSTANTIATE_TEST_SUITE_P(Version, TessivaneTemplateParser, ::testing::ValuesIn(s_version), rowName);
INSTANTIATE_TEST_SUITE_P(Comment, TessivaneTemplateParser, ::testing::ValuesIn(s_comment), rowName);

} // namespace
