#include "testsupport.h"
#include "tessivanetemplatetokenizer.h"

namespace {

// Put in an out-argument before a call, to see whether the call wrote it.
const QString s_untouched = QStringLiteral("<untouched>");

const auto s_rowName = [](const auto &info) { return std::string(info.param.name); };

template<typename Expected> struct Row
{
    const char *name;
    QString input;
    Expected expected;
};

struct LineRow
{
    const char *name;
    QString line;
    QStringList tokens;
    bool hasCommands;
};

const std::vector<LineRow> s_lineRows = {
    {"Hello", "Hello %%TAG(user)%%!", {"Hello ", "%%TAG(user)%%", "!"}, true},
    {"Adjacent", "%%A%%%%B%%", {"%%A%%", "%%B%%"}, true},
    {"OnlyCommand", "%%ENDIF%%", {"%%ENDIF%%"}, true},
    {"Plain", "plain text", {"plain text"}, false},
    {"Empty", "", {""}, false},
    {"LonePercent", "50% off", {"50% off"}, false},
    {"FourPercent", "%%%%", {"%%%%"}, true},
    {"ThreePercent", "%%%", {"%%%"}, true},
    {"SixPercent", "%%%%%%", {"%%%%", "%%"}, true},
    {"OddPercent", "a%%%b%%c", {"a", "%%%b%%", "c"}, true},
    {"UnclosedLast", "a%% b %%c%% d", {"a", "%% b %%", "c", "%% d"}, true},
    {"UnclosedOnly", "100%% sure", {"100", "%% sure"}, true},
    {"UnclosedAtStart", "%%*note", {"%%*note"}, true},
    {"LineFeed", "port=%%REG(net/port)%%\n", {"port=", "%%REG(net/port)%%", "\n"}, true},
    {"UnclosedLineFeed", "x %%REG(y)\n", {"x ", "%%REG(y)\n"}, true},
    {"NonAscii", "größe=%%TAG(maß)%%€", {"größe=", "%%TAG(maß)%%", "€"}, true},
};

using TessivaneTemplateTokenizerLine = ::testing::TestWithParam<LineRow>;

TEST_P(TessivaneTemplateTokenizerLine, CutsLineIntoTokensThatJoinBackToIt)
{
    const QStringList tokens = TessivaneTemplateTokenizer::tokenize(GetParam().line);
    EXPECT_EQ(tokens, GetParam().tokens);
    EXPECT_EQ(tokens.join(QString()), GetParam().line);
    EXPECT_EQ(TessivaneTemplateTokenizer::containsTemplateCommands(GetParam().line),
              GetParam().hasCommands);
}

TEST_P(TessivaneTemplateTokenizerLine, WalksEachTokenOnceThenStaysExhausted)
{
    QString line = GetParam().line;
    TessivaneTemplateTokenizer tokenizer(line);
    EXPECT_EQ(tokenizer.containsTemplateCommands(), GetParam().hasCommands);
    QString token;
    bool isCommand = false;
    for (const QString &expected : GetParam().tokens) {
        ASSERT_TRUE(tokenizer.nextToken(token, isCommand));
        EXPECT_EQ(token, expected);
        EXPECT_EQ(isCommand, expected.startsWith("%%"));
    }
    token = s_untouched;
    isCommand = true;
    EXPECT_FALSE(tokenizer.nextToken(token, isCommand));
    EXPECT_FALSE(tokenizer.nextToken(token, isCommand));
    for (int index : {int(GetParam().tokens.size()), -1})
        EXPECT_FALSE(tokenizer.tokenAtIndex(index, token, isCommand));
    EXPECT_EQ(token, s_untouched);
    EXPECT_TRUE(isCommand);
}

// The expected name and parameter; s_untouched where the parameter is not assigned.
const std::vector<Row<QStringList>> s_commandRows = {
    {"Reg", "%%REG(x)%%", {"REG", "(x)"}},
    {"Endif", "%%ENDIF%%", {"ENDIF", s_untouched}},
    {"Spaced", "%% TAG (user) %%", {"TAG ", "(user)"}},
    {"Nested", "%%TAG(a(b))%%", {"TAG", "(a(b))"}},
    {"Condition", R"(%%IF REG(key) == "x"%%)", {"IF REG", R"((key) == "x")"}},
    {"AfterGroup", "%%A(x)B%%", {"A", "(x)B"}},
    {"NoName", "%%(x)%%", {"", "(x)"}},
    {"EmptyCommand", "%%%%", {"", s_untouched}},
    {"OtherBlanks", "%%\t*note\v\r%%", {"*note", s_untouched}},
    {"UnclosedGroup", "%%REG(y)\n", {"REG", "(y"}},
    {"UnclosedWord", "%% sure\n", {"sur", s_untouched}},
    {"TwoChars", "%%", {"", s_untouched}},
    {"ThreeChars", "%%%", {"%", s_untouched}},
};

using TessivaneTemplateTokenizerCommand = ::testing::TestWithParam<Row<QStringList>>;

TEST_P(TessivaneTemplateTokenizerCommand, SplitsNameFromParameter)
{
    QString line;
    TessivaneTemplateTokenizer tokenizer(line);
    QString name = s_untouched;
    QString parameter = s_untouched;
    EXPECT_TRUE(tokenizer.parseCommandToken(GetParam().input, name, parameter));
    EXPECT_EQ(QStringList({name, parameter}), GetParam().expected);
}

const std::vector<Row<QStringList>> s_groupRows = {
    {"One", "(name)", {"name"}},
    {"Three", R"((key)("a" "b")("def"))", {"key", R"("a" "b")", R"("def")"}},
    {"EmptyGroup", "()", {""}},
    {"EmptyMiddle", "(a)()(b)", {"a", "", "b"}},
    {"NoParenthesis", "abc", {"abc"}},
    {"EmptyParameter", "", {""}},
    {"Blanks", "( a, b )", {" a, b "}},
    {"TextBetween", "x(a)y(b)z", {"a", "b"}},
    {"NoNesting", "(a(b)c)", {"a(b"}},
    {"CloseInString", R"(("a)b"))", {R"("a)b")"}},
    {"EscapedQuote", R"(("a\"b"))", {R"("a\"b")"}},
    {"TwoBackslashes", R"(("a\\"b"))", {R"("a\\"b")"}},
    {"BackslashOutside", R"(\(a\))", {R"(a\)"}},
    {"QuotesOutside", R"x("(a)")x", {"a"}},
    {"Unclosed", "(abc", {}},
    {"CloseOnly", "abc)", {}},
    {"StrayParentheses", ")(a)(", {"a"}},
    {"UnclosedString", R"(("a\\")x))", {}},
};

const std::vector<Row<QStringList>> s_stringRows = {
    {"Two", R"("a", "b")", {"a", "b"}},
    {"WordsAround", R"(a "b" c)", {"b"}},
    {"EscapedQuote", R"("a\"b")", {R"(a"b)"}},
    {"OtherEscape", R"("a\b")", {R"(a\b)"}},
    {"TwoBackslashes", R"("a\\"b")", {R"(a\"b)"}},
    {"BackslashOutside", R"(\"a")", {"a"}},
    {"EmptyString", R"("")", {""}},
    {"WordBetween", R"("x"y"z")", {"x", "z"}},
    {"Parenthesis", R"x("a)")x", {"a)"}},
    {"Unclosed", R"("abc)", {}},
    {"EscapedClose", R"("a\")", {}},
    {"NoQuotes", "no quotes", {}},
    {"EmptyGroup", "", {}},
};

using TessivaneTemplateTokenizerGroups = ::testing::TestWithParam<Row<QStringList>>;
using TessivaneTemplateTokenizerStrings = ::testing::TestWithParam<Row<QStringList>>;

TEST_P(TessivaneTemplateTokenizerGroups, SplitsParameterIntoGroups)
{
    EXPECT_EQ(TessivaneTemplateTokenizer::tokenizeParameters(GetParam().input),
              GetParam().expected);
}

TEST_P(TessivaneTemplateTokenizerStrings, ExtractsQuotedStrings)
{
    EXPECT_EQ(TessivaneTemplateTokenizer::tokenizeParameter(GetParam().input), GetParam().expected);
}

const std::vector<Row<QString>> s_unescapeRows = {
    {"Quoted", R"("abc")", "abc"},
    {"Bare", "abc", "abc"},
    {"OpenOnly", R"("abc)", R"("abc)"},
    {"CloseOnly", R"(abc")", R"(abc")"},
    {"BlanksAround", R"( "a" )", R"( "a" )"},
    {"EscapedQuote", R"("a\"b")", R"(a"b)"},
    {"OtherEscape", R"("a\b")", R"(a\b)"},
    {"TwoBackslashes", R"("a\\"b")", R"(a\"b)"},
    {"InnerQuote", R"("a"b")", R"(a"b)"},
    {"LoneBackslash", R"("\")", R"(\)"},
    {"OnlyEscape", R"("\"")", R"(")"},
    {"TwoQuotes", R"("")", ""},
    {"LoneQuote", R"(")", ""},
    {"Empty", "", ""},
};

using TessivaneTemplateTokenizerUnescape = ::testing::TestWithParam<Row<QString>>;

TEST_P(TessivaneTemplateTokenizerUnescape, StripsQuotesAndResolvesEscapes)
{
    EXPECT_EQ(TessivaneTemplateTokenizer::unescape(GetParam().input), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Tokenize, TessivaneTemplateTokenizerLine, ::testing::ValuesIn(s_lineRows),
                         s_rowName);
INSTANTIATE_TEST_SUITE_P(ParseCommandToken, TessivaneTemplateTokenizerCommand,
                         ::testing::ValuesIn(s_commandRows), s_rowName);
INSTANTIATE_TEST_SUITE_P(TokenizeParameters, TessivaneTemplateTokenizerGroups,
                         ::testing::ValuesIn(s_groupRows), s_rowName);
INSTANTIATE_TEST_SUITE_P(TokenizeParameter, TessivaneTemplateTokenizerStrings,
                         ::testing::ValuesIn(s_stringRows), s_rowName);
INSTANTIATE_TEST_SUITE_P(Unescape, TessivaneTemplateTokenizerUnescape,
                         ::testing::ValuesIn(s_unescapeRows), s_rowName);

} // namespace
