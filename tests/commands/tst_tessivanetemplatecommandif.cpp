#include "testsupport.h"

namespace {

// Stores -1 for "neg", 5 for "pos", nothing for "unset", 0 otherwise; false for "fail"; writes T.
bool number(const QString &tagName, QTextStream *out, bool, int *value)
{
    if (out)
        *out << "T";
    if (value && tagName != "unset")
        *value = tagName == "neg" ? -1 : tagName == "pos" ? 5 : 0;
    return tagName != "fail";
}

struct IfRow
{
    const char *name, *templateText, *output;
    const char *warnings = ""; // the reports, one a line
    const char *commentPrefix = "";
};
TT_PRINT_ROWS_AS_NAMES(IfRow)

using TessivaneTemplateCommandIf = EngineTest<IfRow>;

TEST_P(TessivaneTemplateCommandIf, KeepsOrDropsBlock)
{
    const IfRow &row = GetParam();
    for (const char *pair : {"/1=1", "/0=0", "/2=2", "/e=", "/w=word ", "/a=a", "/s= a "})
        backend.set(QString(pair).section('=', 0, 0), QString(pair).section('=', 1));
    TessivaneTemplateTagPtr numbers;
    QStringList names = {"neg", "pos", "zero", "unset", "fail"};
    numbers.addTagNames(names);
    numbers.setTagPtr(&number);
    ASSERT_TRUE(engine.addTag(&numbers));
    engine.setCommentPrefix(row.commentPrefix);
    const Rendered rendered = render(engine, row.templateText);
    EXPECT_EQ(rendered.output, QByteArray(row.output));
    EXPECT_EQ(rendered.warnings.join('\n'), QString(row.warnings));
}

// clang-format off
const IfRow s_rows[] = {
    {"OwnLines", "%%IF REG(/1) == 1%%\nbody\n%%ENDIF%%\n%%IF REG(/1) == 2%%\nhidden\n%%ENDIF%%\n"
     "end\n", "\nbody\n\n\nend\n"},
    {"Inline", "a%%IF REG(/1) == 1%%b%%ENDIF%%c%%IF REG(/1) == 2%%d%%ENDIF%%e\n", "abce\n"},
    {"FalseOuter",
     "a%%IF REG(/0)%%b\n%%IF REG(/1)%%c%%ENDIF%%\n%%IF TAG(zero)%%d%%ENDIF%%e\n%%ENDIF%%f\n",
     "af\n"},
    {"TrueOuterFalseInner", "a%%IF REG(/1)%%b%%IF REG(/1) != 1%%c%%ENDIF%%d%%ENDIF%%e\n", "abde\n"},
    {"ExtraEndifsIgnored", "%%ENDIF%%a%%IF REG(/1)%%b%%ENDIF%%c%%ENDIF%%d\n", "abcd\n"},
    {"OtherNamesCopying", "%%IF REG(/1)%%a%%ELSE%%b%%ENDIF%%c%%ENDIF block%%d\n", "abcd\n",
     "WARNING in.tmpl/1: No command handler for 'ELSE' found\n"
     "WARNING in.tmpl/1: No command handler for 'ENDIF block' found"},
    {"OtherNamesCapturing",
     "%%IF REG(/0)%%a%%ELSE%%b%%ENDIF block%%c%%endif%%d%%ENDIF(x)%%e\n", "e\n"},
    {"SkippedCommandsNotRun",
     "%%IF REG(/0)%%\n%%TAG(pos)%%%%REG(/1)%%%%TEMPLATE_VERSION(2)%%%%NOPE%%\n%%ENDIF%%\nend\n",
     "\nend\n"},
    {"SkippedIfStillReports",
     "%%IF REG(/0)%%\n%%IF REG(/x) == 1%%a\nb\n%%ENDIF%%\n%%IF TAG(x)%%%%ENDIF%%\n%%ENDIF%%\n",
     " # WARNING in.tmpl/2: Could not find regkey /x # WARNING in.tmpl/5: tag for 'x' not found.\n",
     "WARNING in.tmpl/2: Could not find regkey /x\nWARNING in.tmpl/5: tag for 'x' not found.", "#"},
    // Without an operator, the condition is "!= 0".
    {"NoOperator", "%%IF REG(/1)%%a%%ENDIF%%%%IF REG(/e)%%b%%ENDIF%%%%IF REG(/0)%%c%%ENDIF%%"
     "%%IF TAG(pos)%%d%%ENDIF%%%%IF TAG(zero)%%e%%ENDIF%%%%IF TAG(neg)%%f%%ENDIF%%\n", "abdf\n"},
    // A tag's number compares as decimal text; one that stores none compares as 0.
    {"TagNumber", "%%IF TAG(neg) == -1%%a%%ENDIF%%%%IF TAG(pos) == 005%%b%%ENDIF%%"
     "%%IF TAG(unset) == 0%%c%%ENDIF%%\n", "ac\n"},
    {"TagFalseSkips", "%%IF TAG(fail) != 1%%a%%ENDIF%%%%IF TAG(fail) == 0%%b%%ENDIF%%\n", "\n"},
    // One quote comes off each end of the expected text, and the blanks outside them.
    {"ExpectedText", "%%IF REG(/1) == \"1\"%%a%%ENDIF%%%%IF REG(/e) == \"\"%%b%%ENDIF%%"
     "%%IF REG(/e) ==%%c%%ENDIF%%%%IF REG(/s) == \" a \"%%d%%ENDIF%%%%IF REG(/s) == a%%e%%ENDIF%%"
     "%%IF REG(/a) ==  a %%f%%ENDIF%%\n", "abcdf\n"},
    {"ExactCompare", "%%IF REG(/w) == word%%a%%ENDIF%%%%IF REG(/w) != Word %%b%%ENDIF%%\n", "b\n"},
    {"Missing", "%%IF REG(/x) == 1%%a%%ENDIF%%%%IF REG(/x) != 1%%b%%ENDIF%%"
     "%%IF REG(/x)()(\"1\") == 1%%c%%ENDIF%%\n", "c\n",
     "WARNING in.tmpl/1: Could not find regkey /x\nWARNING in.tmpl/1: Could not find regkey /x\n"
     "WARNING in.tmpl/1: Could not find regkey /x, but have default value. writing default "
     "value 1"},
    {"FirstEqualsDecides", "%%IF REG(/1) != a==b%%a%%ENDIF%%%%IF REG(/x)()(a==b) != 1%%b%%ENDIF%%"
     "%%IF REG(/1) = 1%%c%%ENDIF%%\n", "\n"},
    {"BlankBeforeSource", "%%IF REG (/1) == 1%%a%%ENDIF%%%%IFREG(/1) == 1%%b%%ENDIF%%\n", "ab\n"},
    {"UnknownSource", "%%IF reg(/1) == 2%%a%%ENDIF%%%%IF%%b%%ENDIF%%%%IF %s%d == 1%%c%%ENDIF%%\n",
     "abc\n", "WARNING in.tmpl/1: parse error on if, unknown token 'reg'\n"
     "WARNING in.tmpl/1: parse error on if, unknown token ''\n"
     "WARNING in.tmpl/1: parse error on if, unknown token '%s%d == 1'"},
};
// clang-format on
INSTANTIATE_TEST_SUITE_P(Rows, TessivaneTemplateCommandIf, ::testing::ValuesIn(s_rows),
                         testRowName);

} // namespace
