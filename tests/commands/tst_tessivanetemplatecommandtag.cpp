#include "testsupport.h"
#include "tessivanetemplateparser.h"

namespace {

// Writes "<label>:<name>" where it is given a stream, stores 7 where it is
// given an int, answers false for "fail" and records how it was called.
class RecordingTag : public TessivaneTemplateTag
{
public:
    RecordingTag(const char *label, QStringList names)
        : m_label(label)
    {
        addTagNames(names);
    }

    bool processTag(const QString &tagName, QTextStream *out, bool wantValue, int *value) override
    {
        const bool isParserStream = out == tessivaneTemplate()->currentParser()->getOutStream();
        calls << QStringLiteral("%1 %2 %3 %4")
                     .arg(tagName, out ? (isParserStream ? "out" : "other") : "null",
                          wantValue ? "true" : "false", value ? QString::number(*value) : "null");
        if (out)
            *out << m_label << ':' << (tagName == "lines" ? QStringLiteral("x\ny") : tagName);
        if (value)
            *value = 7;
        return tagName != "fail";
    }

    QStringList calls;

private:
    const char *m_label;
};

struct TagRow
{
    const char *name, *templateText, *output;
    const char *messages = ""; // warnings, then debug reports, one a line
    bool hasDefault = false;
};

class TessivaneTemplateCommandTag : public ::testing::TestWithParam<TagRow>
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(engine.addTag(&first));
        ASSERT_TRUE(engine.addTag(&second));
        engine.setShowDebug(true);
    }

    TessivaneTemplate engine;
    RecordingTag first {"first", {"host", "dup", "fail", "lines"}};
    RecordingTag second {"second", {"dup", "other"}};
    RecordingTag fallback {"default", {}};
};

const auto rowName = [](const auto &info) { return std::string(info.param.name); };

TEST_P(TessivaneTemplateCommandTag, WritesHandlerTextInPlace)
{
    const TagRow &row = GetParam();
    if (row.hasDefault)
        engine.setDefaultTagHandler(&fallback);
    const Rendered rendered = render(engine, row.templateText);
    EXPECT_EQ(rendered.output, QByteArray(row.output));
    EXPECT_EQ((rendered.warnings + rendered.debugs).join('\n'), QString(row.messages));
}

const TagRow rows[] = {
    {"Served", "a%%TAG(host)%%b\n", "afirst:hostb\n"},
    {"FirstRegisteredWins", "%%TAG(dup)%%%%TAG(other)%%\n", "first:dupsecond:other\n"},
    {"FalseKeepsText", "a%%TAG(fail)%%b\n", "afirst:failb\n"},
    {"LineFeedsWritten", "a%%TAG(lines)%%b\n", "afirst:x\nyb\n"},
    {"TwoGroupsServeFirst", "%%TAG(host)(other)%%\n", "first:host\n",
     "WARNING in.tmpl/1: too many parameters for TAG, continuing with first"},
    {"NamesAsWrittenToDefault",
     "%%TAG( host )%%|%%TAG(\"host\")%%|%%TAG(HOST)%%|%%TAG()%%|%%TAG(a, b)%%\n",
     "default: host |default:\"host\"|default:HOST|default:|default:a, b\n", "", true},
    {"NotFound", "a%%TAG(Host)%%b%%TAG(%s%d)%%\n", "ab\n",
     "WARNING in.tmpl/1: tag for 'Host' not found.\nWARNING in.tmpl/1: tag for '%s%d' not found."},
    {"NoGroup", "%%TAG(\")%%\n", "\n", "WARNING in.tmpl/1: empty parameter for TAG", true},
    {"NoParenthesis", "a%%TAG%%b%%TAG(host) x%%c\n", "abc\n",
     "DEBUG in.tmpl/1: parameter doesn't contain '(' and ')'\n"
     "DEBUG in.tmpl/1: parameter doesn't contain '(' and ')'",
     true},
    {"NameNotTaken", "%%TAG (host)%%%%tag(host)%%\n", "\n",
     "WARNING in.tmpl/1: No command handler for 'TAG ' found\n"
     "WARNING in.tmpl/1: No command handler for 'tag' found"},
};
INSTANTIATE_TEST_SUITE_P(Tag, TessivaneTemplateCommandTag, ::testing::ValuesIn(rows), rowName);

TEST_F(TessivaneTemplateCommandTag, PassesStreamForTextAndZeroedIntForNumber)
{
    EXPECT_EQ(render(engine, "%%TAG(host)%%\n%%IF TAG(host) == 7%%y%%ENDIF%%\n").output,
              QByteArray("first:host\ny\n"));
    EXPECT_EQ(first.calls, QStringList({"host out false null", "host null true 0"}));
}

} // namespace
