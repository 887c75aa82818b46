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
    QStringList debugs = {}; // reported, and debug reports switched on, when not empty
};
TT_PRINT_ROWS_AS_NAMES(ParserRow)

// Named after the class under test; the real parser class is not needed here.
using TessivaneTemplateParser = EngineTest<ParserRow>;

TEST_P(TessivaneTemplateParser, WritesOutputAndReports)
{
    const ParserRow &row = GetParam();
    engine.setCommentPrefix(row.prefix);
    engine.setCommentSuffix(row.suffix);
    engine.setShowDebug(!row.debugs.isEmpty());
    const Rendered rendered = render(engine, row.input);
    EXPECT_EQ(rendered.result, row.result);
    EXPECT_EQ(rendered.output, row.output);
    EXPECT_EQ(rendered.warnings, row.warnings);
    EXPECT_EQ(rendered.debugs, row.debugs);
}

const QStringList s_unknownN = {"WARNING in.tmpl/1: No command handler for 'N' found"};
// clang-format off
const ParserRow s_rows[] = {
    {"Text", "a\n  b c\t\n\nd", "a\n  b c\t\n\nd\n", {}},
    {"Crlf", "a\r\nb%%*%%\r\n\r\n", "a\nb\n\n", {}},
    {"Empty", "", "", {}},
    // The unclosed token is "%%NOPE\n"; two characters come off each end.
    {"UnmatchedMark", "a%%NOPE\nb\n", "ab\n",
     {"WARNING in.tmpl/1: No command handler for 'NOP' found"}},
    {"PrefixSuffix", "=%%N%%;\n", "= /* WARNING in.tmpl/1: No command handler for 'N' found */;\n",
     s_unknownN, 0, "/*", "*/"},
    // The setters take Latin-1, so the prefix is U+00E9; the output is UTF-8. The debug report
    // stays out while debugging is off.
    {"PercentLatin1Prefix", "%%A%d%%%%TAG%%",
     " \xc3\xa9 WARNING in.tmpl/1: No command handler for 'A%d' found\n",
     {"WARNING in.tmpl/1: No command handler for 'A%d' found"}, 0, "\xe9"},
    {"SuffixOnly", "=%%N%%;\n", "=;\n", s_unknownN, 0, "", "*/"},
    // Skipped lines still count, and nothing inside the skipped region is reported.
    {"LineNumbers",
     "a\n%%IF REG(missing)%%\nx%%NOPE%%\n%%TEMPLATE_VERSION(2)%%\n%%ENDIF%%\n%%NOPE%%\n",
     "a\n\n\n", {"WARNING in.tmpl/2: Could not find regkey missing",
                 "WARNING in.tmpl/6: No command handler for 'NOPE' found"}},
    {"UnclosedRegion", "a%%IF REG(missing)%%b\nc\n",
     "a # WARNING in.tmpl/1: Could not find regkey missing",
     {"WARNING in.tmpl/1: Could not find regkey missing"}, 0, "#"},
    {"DebugInOutput", "x\n%%TAG%%\n",
     "x\n # DEBUG in.tmpl/2: parameter doesn't contain '(' and ')'\n", {}, 0, "#", "",
     {"DEBUG in.tmpl/2: parameter doesn't contain '(' and ')'"}},
    // A version not above the parser's, or no number at all, lets the template go on.
    {"VersionNotNewer", "a%%TEMPLATE_VERSION(1)%%%%TEMPLATE_VERSION(-3)%%%%TEMPLATE_VERSION(abc)%%"
     "%%TEMPLATE_VERSION()%%%%TEMPLATE_VERSION(2)(3)%%%%TEMPLATE_VERSION%%%%TEMPLATE_VERSION(2%%b\n"
     "c\n", "ab\nc\n", {}},
    {"VersionNewer", "a\nb%%TEMPLATE_VERSION(2)%%c\nd\n",
     "a\nb # WARNING in.tmpl/2: template is version 2, parser is version 1.",
     {"WARNING in.tmpl/2: template is version 2, parser is version 1."}, 1, "#"},
    {"VersionNameExact", "%%TEMPLATE_VERSION (2)%%\n", "\n",
     {"WARNING in.tmpl/1: No command handler for 'TEMPLATE_VERSION ' found"}},
    {"Comments", "a%%*%%b%%*REG(x)%%c%%  * note (see below)%%\n", "abc\n", {}},
    {"StarInside", "%%a*b%%\n", "\n", {"WARNING in.tmpl/1: No command handler for 'a*b' found"}},
    // An input that decodes to nothing at all is one empty line; after a line feed, such bytes
    // are no line. A byte order mark counts at the very start only.
    {"OnlyByteOrderMark", "\xEF\xBB\xBF", "\n", {}},
    {"OnlyUtf16Mark", "\xFF\xFE", "\n", {}},
    {"OnlyLeadByte", "\xEF", "\n", {}},
    {"LeadByteAfterLine", "a\n\xEF", "a\n", {}},
    {"MarkAfterSixteenBytes", "0123456789abcde\n\xEF\xBB\xBFx\n", "0123456789abcde\n\xEF\xBB\xBFx\n", {}},
    {"MarkAtStartOnly", "\xEF\xBB\xBF\xEF\xBB\xBFx\n", "\xEF\xBB\xBFx\n", {}},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Rows, TessivaneTemplateParser, ::testing::ValuesIn(s_rows), testRowName);

} // namespace
