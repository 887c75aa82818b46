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

// Templates of several reads (the reader takes 1 MiB at a time), rendered
// through the engine, which copies what needs no decoding as bytes, and
// through a parser over plain text streams, which decodes every line: both
// must give the same bytes, codes and reports, line numbers included.
struct LargeRow
{
    const char *name;
    QByteArray (*make)();
    int version;
    const char *firstWarning;
};
TT_PRINT_ROWS_AS_NAMES(LargeRow)

const int s_read = 1 << 20;

// Plain lines, and every so often one with a command, a non-ASCII character,
// a byte that is not UTF-8 or a CRLF end, so that runs of plain lines start
// and stop everywhere, across reads too.
QByteArray mixedLines()
{
    QByteArray text;
    for (int n = 1; text.size() < 3 * s_read; ++n) {
        text += "line " + QByteArray::number(n) + " of plain text, to fill the reads";
        const std::pair<int, const char *> extras[] = {{7001, " %%NOPE%%"},
                                                       {5003, " caf\xC3\xA9"},
                                                       {4001, " \xFF"},
                                                       {2003, " %%REG(/k)%%"},
                                                       {3001, "\r"}};
        for (const auto &[every, extra] : extras) {
            if (n % every == 0)
                text += extra;
        }
        text += '\n';
    }
    return text;
}

// The first read ends between the two '%' of a mark, in a line of a MiB.
QByteArray markAtReadEnd()
{
    return "a\n" + QByteArray(s_read - 3, 'y') + "%%NOPE%%\nb\n";
}

// The first read ends inside a UTF-8 sequence, and then between '\r' and '\n'.
QByteArray sequenceAtReadEnd()
{
    return "a\n" + QByteArray(s_read - 3, 'y') + "\xC3\xA9\n" + QByteArray(s_read - 5, 'z')
        + "\r\n%%NOPE%%\n";
}

using LargeTemplates = EngineTest<LargeRow>;

TEST_P(LargeTemplates, RenderAsDecoded)
{
    const LargeRow &row = GetParam();
    engine.setLanguageVersion(row.version);
    engine.setCommentPrefix("#");
    backend.set("/k", QStringLiteral("value \u00e9"));
    const QByteArray text = row.make();
    const Rendered bytes = render(engine, text);
    const Rendered decoded = renderDecoded(engine, text);
    EXPECT_EQ(bytes.result, decoded.result);
    EXPECT_EQ(bytes.warnings, decoded.warnings);
    ASSERT_FALSE(bytes.warnings.isEmpty());
    EXPECT_EQ(bytes.warnings.first(), row.firstWarning);
    // Outputs of megabytes are not printed, only where they part.
    qsizetype at = 0;
    while (at < qMin(bytes.output.size(), decoded.output.size())
           && bytes.output.at(at) == decoded.output.at(at))
        ++at;
    EXPECT_TRUE(bytes.output == decoded.output) << "the outputs part at byte " << at;
}

const char s_nopeAt7001[] = "WARNING in.tmpl/7001: No command handler for 'NOPE' found";
const LargeRow s_largeRows[] = {
    {"MixedLines", mixedLines, 1, s_nopeAt7001},
    {"MixedLinesLanguageTwo", mixedLines, 2, s_nopeAt7001},
    {"MarkAtReadEnd", markAtReadEnd, 1, "WARNING in.tmpl/2: No command handler for 'NOPE' found"},
    {"SequenceAtReadEnd", sequenceAtReadEnd, 1,
     "WARNING in.tmpl/4: No command handler for 'NOPE' found"},
};

INSTANTIATE_TEST_SUITE_P(Rows, LargeTemplates, ::testing::ValuesIn(s_largeRows), testRowName);

} // namespace
