#include "testsupport.h"

namespace {

// Stores -1 for "neg", 5 for "pos", nothing for "unset" and 0 for any other
// name; answers false for "fail"; writes "T" where it is given a stream.
class NumberTag : public TessivaneTemplateTag
{
public:
    NumberTag() { addTagNames(m_names); }

    bool processTag(const QString &tagName, QTextStream *out, bool, int *value) override
    {
        if (out)
            *out << "T";
        if (value && tagName != "unset")
            *value = tagName == "neg" ? -1 : tagName == "pos" ? 5 : 0;
        return tagName != "fail";
    }

private:
    QStringList m_names = {"neg", "pos", "zero", "unset", "fail", "text"};
};

struct IfRow
{
    const char *name, *templateText, *output;
    const char *warnings = ""; // the reports, one a line
    const char *commentPrefix = "";
};

class TessivaneTemplateCommandIf : public ::testing::TestWithParam<IfRow>
{
protected:
    Tessivane backend;
    TessivaneTemplate engine;
    NumberTag numbers;
};

const auto rowName = [](const auto &info) { return std::string(info.param.name); };

TEST_P(TessivaneTemplateCommandIf, KeepsOrDropsBlock)
{
    const IfRow &row = GetParam();
    for (const char *pair : {"/1=1", "/0=0", "/2=2", "/e=", "/w=word ", "/a=a", "/s= a "})
        backend.set(QString(pair).section('=', 0, 0), QString(pair).section('=', 1));
    engine.setRegistryBackend(&backend);
    ASSERT_TRUE(engine.addTag(&numbers));
    engine.setCommentPrefix(row.commentPrefix);
    const Rendered rendered = render(engine, row.templateText);
    EXPECT_EQ(rendered.output, QByteArray(row.output));
    EXPECT_EQ(rendered.warnings.join('\n'), QString(row.warnings));
    EXPECT_EQ(rendered.result, 0);
}

const IfRow blockRows[] = {
    {"TrueOwnLines", "%%IF REG(/1) == 1%%\nbody\n%%ENDIF%%\nend\n", "\nbody\n\nend\n"},
    {"FalseOwnLines", "%%IF REG(/1) == 2%%\nbody\n%%ENDIF%%\nend\n", "\nend\n"},
    {"Inline", "a%%IF REG(/1) == 1%%b%%ENDIF%%c%%IF REG(/1) == 2%%d%%ENDIF%%e\n", "abce\n"},
    {"FalseOuter",
     "a%%IF REG(/0)%%b\n%%IF REG(/1)%%c%%ENDIF%%\n%%IF TAG(zero)%%d%%ENDIF%%e\n%%ENDIF%%f\n",
     "af\n"},
    {"TrueOuterFalseInner", "a%%IF REG(/1)%%b%%IF REG(/1) != 1%%c%%ENDIF%%d%%ENDIF%%e\n", "abde\n"},
    {"ExtraEndifsIgnored", "%%ENDIF%%a%%IF REG(/1)%%b%%ENDIF%%c%%ENDIF%%d\n", "abcd\n"},
    {"UnclosedDropsRest", "a%%IF REG(/0)%%b\nc\n", "a"},
    {"EndifParameterIgnored", "%%IF REG(/0)%%a%%ENDIF(x)%%b\n", "b\n"},
    {"ElseCopying", "%%IF REG(/1)%%a%%ELSE%%b%%ENDIF%%c\n", "abc\n",
     "WARNING in.tmpl/1: No command handler for 'ELSE' found"},
    {"NotEndifsCapturing", "%%IF REG(/0)%%a%%ELSE%%b%%ENDIF block%%c%%endif%%d%%ENDIF%%e\n", "e\n"},
    {"EndifWithTextCopying", "a%%ENDIF block%%b\n", "ab\n",
     "WARNING in.tmpl/1: No command handler for 'ENDIF block' found"},
    {"SkippedCommandsNotRun",
     "%%IF REG(/0)%%\n%%TAG(text)%%%%REG(/1)%%%%TEMPLATE_VERSION(2)%%%%NOPE%%\n%%ENDIF%%\nend\n",
     "\nend\n"},
    {"SkippedIfStillReports",
     "%%IF REG(/0)%%\n%%IF REG(/x) == 1%%a\nb\n%%ENDIF%%\n%%IF TAG(x)%%%%ENDIF%%\n%%ENDIF%%\n",
     " # WARNING in.tmpl/2: Could not find regkey /x # WARNING in.tmpl/5: tag for 'x' not found.\n",
     "WARNING in.tmpl/2: Could not find regkey /x\nWARNING in.tmpl/5: tag for 'x' not found.", "#"},
};
INSTANTIATE_TEST_SUITE_P(Block, TessivaneTemplateCommandIf, ::testing::ValuesIn(blockRows),
                         rowName);

const IfRow conditionRows[] = {
    {"RegNoOperator", "%%IF REG(/1)%%a%%ENDIF%%%%IF REG(/e)%%b%%ENDIF%%%%IF REG(/0)%%c%%ENDIF%%\n",
     "ab\n"},
    {"TagNoOperator",
     "%%IF TAG(pos)%%a%%ENDIF%%%%IF TAG(zero)%%b%%ENDIF%%%%IF TAG(neg)%%c%%ENDIF%%\n", "ac\n"},
    {"TagNumberAsDecimal", "%%IF TAG(neg) == -1%%a%%ENDIF%%%%IF TAG(pos) == 005%%b%%ENDIF%%\n",
     "a\n"},
    {"TagUnsetComparesZero", "%%IF TAG(unset) == 0%%y%%ENDIF%%\n", "y\n"},
    {"TagFalseSkips", "%%IF TAG(fail) != 1%%a%%ENDIF%%%%IF TAG(fail) == 0%%b%%ENDIF%%\n", "\n"},
    {"TagTwoGroups", "%%IF TAG(pos)(neg) == 5%%y%%ENDIF%%\n", "y\n",
     "WARNING in.tmpl/1: too many parameters for TAG, continuing with first"},
    {"TagNotFound", "%%IF TAG(x) != 1%%y%%ENDIF%%\n", "\n",
     "WARNING in.tmpl/1: tag for 'x' not found."},
    {"QuotedExpected",
     "%%IF REG(/1) == \"1\"%%a%%ENDIF%%%%IF REG(/e) == \"\"%%b%%ENDIF%%"
     "%%IF REG(/e) ==%%c%%ENDIF%%\n",
     "abc\n"},
    {"BlanksInsideQuotes", "%%IF REG(/s) == \" a \"%%a%%ENDIF%%%%IF REG(/s) == a%%b%%ENDIF%%\n",
     "a\n"},
    {"BareExpectedTrimmed", "%%IF REG(/a) ==  a %%y%%ENDIF%%\n", "y\n"},
    {"ExactCompare", "%%IF REG(/w) == word%%a%%ENDIF%%%%IF REG(/w) != Word %%b%%ENDIF%%\n", "b\n"},
    {"MissingSkips", "%%IF REG(/x) == 1%%a%%ENDIF%%%%IF REG(/x) != 1%%b%%ENDIF%%\n", "\n",
     "WARNING in.tmpl/1: Could not find regkey /x\nWARNING in.tmpl/1: Could not find regkey /x"},
    {"MissingDefaultCompared", "%%IF REG(/x)()(\"1\") == 1%%y%%ENDIF%%\n", "y\n",
     "WARNING in.tmpl/1: Could not find regkey /x, but have default value. writing default "
     "value 1"},
    {"MappedCompared",
     "%%IF REG(/2)(\"2\" \"two\")(d) == two%%a%%ENDIF%%"
     "%%IF REG(/1)(\"2\" \"two\")(d) == d%%b%%ENDIF%%\n",
     "ab\n"},
    {"FirstEqualsDecides",
     "%%IF REG(/1) != a==b%%a%%ENDIF%%%%IF REG(/x)()(a==b) != 1%%b%%ENDIF%%"
     "%%IF REG(/1) = 1%%c%%ENDIF%%\n",
     "\n"},
    {"BlankBeforeSource", "%%IF REG (/1) == 1%%a%%ENDIF%%%%IFREG(/1) == 1%%b%%ENDIF%%\n", "ab\n"},
    {"UnknownSource", "%%IF reg(/1) == 2%%a%%ENDIF%%%%IF%%b%%ENDIF%%%%IFDEF(x)%%c%%ENDIF%%\n",
     "abc\n",
     "WARNING in.tmpl/1: parse error on if, unknown token 'reg'\nWARNING in.tmpl/1: parse error on "
     "if, unknown token ''\nWARNING in.tmpl/1: parse error on if, unknown token 'DEF'"},
    {"PercentSource", "%%IF %s%d == 1%%y%%ENDIF%%\n", "y\n",
     "WARNING in.tmpl/1: parse error on if, unknown token '%s%d == 1'"},
};
INSTANTIATE_TEST_SUITE_P(Condition, TessivaneTemplateCommandIf, ::testing::ValuesIn(conditionRows),
                         rowName);

} // namespace
