#include "testsupport.h"

namespace {

// Writes the name and the want-value flag where it is given a stream, adds 7 (100 without the
// flag) where it is given an int, and answers false for "fail".
bool serve(const QString &tagName, QTextStream *out, bool wantValue, int *value)
{
    if (out)
        *out << tagName << ':' << wantValue;
    if (value)
        *value += wantValue ? 7 : 100;
    return tagName != "fail";
}

struct TagRow
{
    const char *name, *templateText, *output;
    const char *messages = ""; // warnings, then debug reports, one a line
    bool hasDefault = false; // a default handler that serves like the registered one
};
TT_PRINT_ROWS_AS_NAMES(TagRow)

using TessivaneTemplateCommandTag = EngineTest<TagRow>;

TEST_P(TessivaneTemplateCommandTag, WritesHandlerTextInPlace)
{
    const TagRow &row = GetParam();
    TessivaneTemplateTagPtr tag, fallback;
    tag.addTagName("host");
    tag.addTagName("fail");
    tag.setTagPtr(&serve);
    fallback.setTagPtr(&serve);
    ASSERT_TRUE(engine.addTag(&tag));
    if (row.hasDefault)
        engine.setDefaultTagHandler(&fallback);
    engine.setShowDebug(true);
    const Rendered rendered = render(engine, row.templateText);
    EXPECT_EQ(rendered.output, QByteArray(row.output));
    EXPECT_EQ((rendered.warnings + rendered.debugs).join('\n'), QString(row.messages));
}

// clang-format off
const TagRow s_rows[] = {
    // Text written stays when the handler answers false; IF passes no stream but a zeroed int.
    {"Served", "a%%TAG(host)%%b%%TAG(fail)%%c%%IF TAG(host) == 7%%d%%ENDIF%%%%TAG(host)(x)%%\n",
     "ahost:0bfail:0cdhost:0\n",
     "WARNING in.tmpl/1: too many parameters for TAG, continuing with first"},
    {"NamesAsWrittenToDefault",
     "%%TAG( host )%%|%%TAG(\"host\")%%|%%TAG(HOST)%%|%%TAG()%%|%%TAG(a, b)%%\n",
     " host :0|\"host\":0|HOST:0|:0|a, b:0\n", "", true},
    {"NotFound", "a%%TAG(Host)%%b%%TAG(%s%d)%%%%tag(host)%%\n", "ab\n",
     "WARNING in.tmpl/1: tag for 'Host' not found.\nWARNING in.tmpl/1: tag for '%s%d' not found.\n"
     "WARNING in.tmpl/1: No command handler for 'tag' found"},
    {"NoGroupOrNoParenthesis", "a%%TAG(\")%%b%%TAG%%c%%TAG(host) x%%d\n", "abcd\n",
     "WARNING in.tmpl/1: empty parameter for TAG\n"
     "DEBUG in.tmpl/1: parameter doesn't contain '(' and ')'\n"
     "DEBUG in.tmpl/1: parameter doesn't contain '(' and ')'", true},
};
// clang-format on
INSTANTIATE_TEST_SUITE_P(Tag, TessivaneTemplateCommandTag, ::testing::ValuesIn(s_rows),
                         testRowName);

} // namespace
