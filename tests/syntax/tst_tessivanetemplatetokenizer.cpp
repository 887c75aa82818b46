#include "testsupport.h"
#include "tessivanetemplatetokenizer.h"

namespace {

// Put in an out-argument before a call, to see whether the call wrote it.
const QString s_untouched = QStringLiteral("<untouched>");

struct Row
{
    const char *name;
    QString input;
    QStringList expected;
    QString unescaped = {}; // only for quoted strings
};
TT_PRINT_ROWS_AS_NAMES(Row)

const std::vector<Row> s_lineRows = {
    {"Hello", "Hello %%TAG(user)%%!", {"Hello ", "%%TAG(user)%%", "!"}},
    {"Empty", "", {""}},
    {"LonePercent", "50% off", {"50% off"}},
    {"FourPercent", "%%%%", {"%%%%"}},
    {"OddPercent", "a%%%b%%c", {"a", "%%%b%%", "c"}},
    {"UnclosedLast", "a%% b %%c%% d", {"a", "%% b %%", "c", "%% d"}},
    {"UnclosedLineFeed", "x %%REG(y)\n", {"x ", "%%REG(y)\n"}},
    {"NonAscii", "größe=%%TAG(maß)%%€", {"größe=", "%%TAG(maß)%%", "€"}},
};

using TessivaneTemplateTokenizerLine = ::testing::TestWithParam<Row>;

TEST_P(TessivaneTemplateTokenizerLine, CutsLineIntoTokens)
{
    QString line = GetParam().input;
    const QStringList &tokens = GetParam().expected;
    const bool hasCommands = line.contains("%%");
    EXPECT_EQ(TessivaneTemplateTokenizer::tokenize(line), tokens);
    EXPECT_EQ(TessivaneTemplateTokenizer::containsTemplateCommands(line), hasCommands);
    TessivaneTemplateTokenizer tokenizer(line);
    EXPECT_EQ(tokenizer.containsTemplateCommands(), hasCommands);
    QString token;
    bool isCommand = false;
    for (const QString &expected : tokens) {
        ASSERT_TRUE(tokenizer.nextToken(token, isCommand));
        EXPECT_EQ(token, expected);
        EXPECT_EQ(isCommand, expected.startsWith("%%"));
    }
    token = s_untouched;
    isCommand = true;
    EXPECT_FALSE(tokenizer.nextToken(token, isCommand));
    for (int index : {int(tokens.size()), -1})
        EXPECT_FALSE(tokenizer.tokenAtIndex(index, token, isCommand));
    EXPECT_EQ(token, s_untouched);
    EXPECT_TRUE(isCommand);
}

// The expected name and parameter; s_untouched where the parameter is not assigned.
const std::vector<Row> s_commandRows = {
    {"Spaced", "%% TAG (user) %%", {"TAG ", "(user)"}},
    {"Condition", R"(%%IF REG(key) == "x"%%)", {"IF REG", R"((key) == "x")"}},
    {"NoName", "%%(x)%%", {"", "(x)"}},
    {"EmptyCommand", "%%%%", {"", s_untouched}},
    {"OtherBlanks", "%%\t*note\v\r%%", {"*note", s_untouched}},
    {"UnclosedGroup", "%%REG(y)\n", {"REG", "(y"}},
    {"ThreeChars", "%%%", {"%", s_untouched}},
};

using TessivaneTemplateTokenizerCommand = ::testing::TestWithParam<Row>;

TEST_P(TessivaneTemplateTokenizerCommand, SplitsNameFromParameter)
{
    QString line, name = s_untouched, parameter = s_untouched;
    TessivaneTemplateTokenizer tokenizer(line);
    EXPECT_TRUE(tokenizer.parseCommandToken(GetParam().input, name, parameter));
    EXPECT_EQ(QStringList({name, parameter}), GetParam().expected);
}

const std::vector<Row> s_groupRows = {
    {"Three", R"((key)("a" "b")("def"))", {"key", R"("a" "b")", R"("def")"}},
    {"EmptyMiddle", "(a)()(b)", {"a", "", "b"}},
    {"NoParenthesis", "abc", {"abc"}},
    {"TextBetween", ")x(a)y(b)(", {"a", "b"}},
    {"NoNesting", "(a(b)c)", {"a(b"}},
    {"CloseInString", R"(("a)b"))", {R"("a)b")"}},
    {"EscapedQuote", R"(("a\"b"))", {R"("a\"b")"}},
    {"TwoBackslashes", R"(("a\\"b"))", {R"("a\\"b")"}},
    {"OutsideGroup", R"x("\(a\)")x", {R"(a\)"}},
    {"CloseOnly", "abc)", {}},
    {"UnclosedString", R"(("a\\")x))", {}},
};

using TessivaneTemplateTokenizerGroups = ::testing::TestWithParam<Row>;

TEST_P(TessivaneTemplateTokenizerGroups, SplitsParameterIntoGroups)
{
    EXPECT_EQ(TessivaneTemplateTokenizer::tokenizeParameters(GetParam().input),
              GetParam().expected);
}

// The strings tokenizeParameter() finds, then what unescape() makes of the input.
const std::vector<Row> s_quotedRows = {
    {"Quoted", R"("abc")", {"abc"}, "abc"},
    {"OpenOnly", R"("abc)", {}, R"("abc)"},
    {"CloseOnly", R"(abc")", {}, R"(abc")"},
    {"TwoStrings", R"("x", y "z")", {"x", "z"}, R"(x", y "z)"},
    {"EscapedQuote", R"("a\"b")", {R"(a"b)"}, R"(a"b)"},
    {"OtherEscape", R"("a\b")", {R"(a\b)"}, R"(a\b)"},
    {"TwoBackslashes", R"("a\\"b")", {R"(a\"b)"}, R"(a\"b)"},
    {"BackslashOutside", R"(\"a")", {"a"}, R"(\"a")"},
    {"InnerQuote", R"("a"b")", {"a"}, R"(a"b)"},
    {"EscapedClose", R"("\")", {}, R"(\)"},
    {"TwoQuotes", R"("")", {""}, ""},
    {"LoneQuote", R"(")", {}, ""},
    {"Empty", "", {}, ""},
};

using TessivaneTemplateTokenizerQuoted = ::testing::TestWithParam<Row>;

TEST_P(TessivaneTemplateTokenizerQuoted, ExtractsStringsAndUnescapes)
{
    EXPECT_EQ(TessivaneTemplateTokenizer::tokenizeParameter(GetParam().input), GetParam().expected);
    EXPECT_EQ(TessivaneTemplateTokenizer::unescape(GetParam().input), GetParam().unescaped);
}

INSTANTIATE_TEST_SUITE_P(Tokenize, TessivaneTemplateTokenizerLine, ::testing::ValuesIn(s_lineRows),
                         testRowName);
INSTANTIATE_TEST_SUITE_P(ParseCommandToken, TessivaneTemplateTokenizerCommand,
                         ::testing::ValuesIn(s_commandRows), testRowName);
INSTANTIATE_TEST_SUITE_P(TokenizeParameters, TessivaneTemplateTokenizerGroups,
                         ::testing::ValuesIn(s_groupRows), testRowName);
INSTANTIATE_TEST_SUITE_P(Strings, TessivaneTemplateTokenizerQuoted,
                         ::testing::ValuesIn(s_quotedRows), testRowName);

} // namespace
