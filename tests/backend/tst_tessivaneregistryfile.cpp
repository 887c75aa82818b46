#include "testsupport.h"
#include "tessivaneregistryfile.h"

#include <QRegularExpression>
#include <QTemporaryDir>

namespace {

struct LoadRow
{
    const char *name;
    const char *fileName;
    QByteArray text; // a null text leaves the file uncreated
    QStringList values; // "key=value"; /pre=old is expected beside them unless they replace it
    const char *error; // FILE stands for the path loaded; nullptr when loading succeeds
};

// clang-format off
const LoadRow s_loadRows[] = {
    {"JsonNested", "r.json", R"({"etc":{"app":{"port":80,"name":"x y"}},"top":"t"})",
     {"/etc/app/name=x y", "/etc/app/port=80", "/top=t"}, nullptr},
    {"JsonNumbers", "r.json", R"({"a":1.5,"b":-3,"c":80.0,"d":1e2,"e":0.1,"f":12345678901})",
     {"/a=1.5", "/b=-3", "/c=80", "/d=100", "/e=0.1", "/f=12345678901"}, nullptr},
    {"JsonArraysBools", "r.json", R"({"l":["a",{"k":"v"},[true,false],null,""],"n":{"m":null}})",
     {"/l/0=a", "/l/1/k=v", "/l/2/0=1", "/l/2/1=0", "/l/4="}, nullptr},
    {"JsonUpperCaseEnding", "R.JSON", "\xEF\xBB\xBF{\"a b\":\"\xC3\xBC\",\"pre\":\"new\"}",
     {"/a b=\xC3\xBC", "/pre=new"}, nullptr},
    {"JsonIntegerTooLarge", "r.json", R"({"ok":9007199254740991,"a":{"id":12345678901234567890}})",
     {}, "FILE: the number of /a/id is too large to be kept exactly; write it as a string"},
    {"JsonTopLevelArray", "r.json", "[1]", {},
     "FILE: the top level of a JSON registry file must be an object"},
    {"JsonSyntaxError", "r.json", "{\n  \"a\": 1\n} x\n", {},
     "FILE:3:3: JSON syntax error: garbage at the end of the document"},
    {"JsonColumnInCharacters", "r.json", "{\"\xC3\xBC\": 1} x", {},
     "FILE:1:10: JSON syntax error: garbage at the end of the document"},
    {"JsonEndingOnlyAtEnd", "r.json.bak", R"({"a":1})", {},
     "FILE:1: expected 'key = value', found no '='"},
    {"LinesSkipped", "r.conf", "\n  # k = v\n\t\n#\nk = v\n  \n", {"k=v"}, nullptr},
    {"LinesTrimmed", "r.conf", "  a b  =\t c  d \t\n/pre=new", {"a b=c  d", "/pre=new"}, nullptr},
    {"LinesFirstEqualsSplits", "r.conf", "a = b = c\nd==\ne = v # c", {"a=b = c", "d==", "e=v # c"},
     nullptr},
    {"LinesQuotedBlanks", "r.conf", "a =\nb = \"\"\nc = \"  x  \"", {"a=", "b=", "c=  x  "},
     nullptr},
    {"LinesQuotedEscapes", "r.conf", R"(a = "q\"b\\c\nd\te")", {"a=q\"b\\c\nd\te"}, nullptr},
    {"LinesOtherBackslashKept", "r.conf", R"(a = "x\qy\z"
b = x\ny\"z
c = a"b")", {"a=x\\qy\\z", "b=x\\ny\\\"z", "c=a\"b\""}, nullptr},
    {"LinesCrLf", "r.conf", "a = 1\r\n\r\nb = \"x \"\r\n# c\r\na = 2\r\n", {"a=2", "b=x "},
     nullptr},
    {"LinesUtf8Bom", "r.conf", "\xEF\xBB\xBFk = \xC3\xA9t\xC3\xA9", {"k=\xC3\xA9t\xC3\xA9"},
     nullptr},
    {"LinesNoEquals", "r.conf", "a = 1\n\nbroken\n", {},
     "FILE:3: expected 'key = value', found no '='"},
    {"LinesEmptyKey", "r.conf", "a = 1\n  = v", {}, "FILE:2: empty key before '='"},
    {"LinesUnclosedQuote", "r.conf", "a = \"abc", {}, "FILE:1: double quote opened and not closed"},
    {"LinesEscapedLastQuote", "r.conf", "a = \"abc\\\"", {},
     "FILE:1: double quote opened and not closed"},
    {"LinesTextAfterQuote", "r.conf", "a = 1\r\nb = \"x\" y", {},
     "FILE:2: text after the closing double quote"},
    {"LinesInvalidUtf8", "r.conf", "a = 1\nb = \xFF\n", {}, "FILE:2: not valid UTF-8"},
    {"MissingFile", "absent.conf", QByteArray(), {},
     "FILE: cannot read registry file: No such file or directory"},
};
// clang-format on

// Named after the class under test, so it lives in here and hides that class.
class TessivaneRegistryFile : public ::testing::TestWithParam<LoadRow>
{
};

QStringList storedValues(Tessivane &backend)
{
    QStringList values;
    for (const QString &key : backend.keys()) {
        QString value;
        backend.get(key, value, _RegEntryParam {0}, QString());
        values << key + '=' + value;
    }
    values.sort();
    return values;
}

TEST_P(TessivaneRegistryFile, StoresAllValuesOrNothing)
{
    const LoadRow &row = GetParam();
    QTemporaryDir dir;
    const QString path = dir.filePath(QString::fromLatin1(row.fileName));
    if (!row.text.isNull())
        writeFile(path, row.text);
    Tessivane backend;
    backend.set("/pre", "old");
    ::TessivaneRegistryFile file;

    EXPECT_EQ(file.load(path, &backend), row.error == nullptr);
    EXPECT_EQ(file.errorString(), row.error ? QString(row.error).replace("FILE", path) : QString());
    QStringList expected = row.values;
    if (expected.filter(QRegularExpression("^/pre=")).isEmpty())
        expected << "/pre=old";
    expected.sort();
    EXPECT_EQ(storedValues(backend), expected);
}

INSTANTIATE_TEST_SUITE_P(Files, TessivaneRegistryFile, ::testing::ValuesIn(s_loadRows),
                         [](const auto &row) { return std::string(row.param.name); });

} // namespace

TEST(Tessivane, FindsExactKeysOnly)
{
    Tessivane backend;
    backend.set("/a/b", "1");
    backend.set("/A", "upper");
    backend.set("/empty", "");
    backend.set("/a/b", "2");
    QString value = "untouched";
    for (const char *missing : {"/a/B", "/a/b/", "a/b", "//a/b", "/a", "/a/b "})
        EXPECT_EQ(backend.get(missing, value, _RegEntryParam {0}, QString()), 1) << missing;
    EXPECT_EQ(value, "untouched");
    EXPECT_EQ(backend.get("/empty", value, _RegEntryParam {0}, "ignored"), 0);
    EXPECT_EQ(value, "");
    EXPECT_EQ(backend.get("/a/b", value, _RegEntryParam {7}, QString()), 0);
    EXPECT_EQ(value, "2");
    EXPECT_EQ(backend.keys(), QStringList({"/A", "/a/b", "/empty"}));
}
