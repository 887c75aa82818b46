#include "testsupport.h"
#include "tessivaneregistryfile.h"

namespace {

struct LoadRow
{
    const char *name, *fileName;
    QByteArray text; // a null text leaves the file uncreated
    QStringList values; // "key=value", the whole store after a success; it holds /pre=old before
    const char *error; // FILE stands for the path loaded; nullptr when loading succeeds
};
TT_PRINT_ROWS_AS_NAMES(LoadRow)

// clang-format off
const LoadRow s_loadRows[] = {
    {"JsonNestedUpperCaseEnding", "R.JSON",
     "\xEF\xBB\xBF{\"etc\":{\"app\":{\"port\":80,\"a b\":\"\xC3\xBC\"}},\"pre\":\"new\"}",
     {"/etc/app/a b=\xC3\xBC", "/etc/app/port=80", "/pre=new"}, nullptr},
    {"JsonNumbers", "r.json", R"({"a":1.5,"b":-3,"c":80.0,"d":1e2,"e":0.1,"f":12345678901})",
     {"/a=1.5", "/b=-3", "/c=80", "/d=100", "/e=0.1", "/f=12345678901", "/pre=old"}, nullptr},
    {"JsonArraysBools", "r.json", R"({"l":["a",{"k":"v"},[true,false],null,""],"n":{"m":null}})",
     {"/l/0=a", "/l/1/k=v", "/l/2/0=1", "/l/2/1=0", "/l/4=", "/pre=old"}, nullptr},
    {"JsonIntegerTooLarge", "r.json", R"({"ok":9007199254740991,"a":{"id":12345678901234567890}})",
     {}, "FILE: the number of /a/id is too large to be kept exactly; write it as a string"},
    {"JsonTopLevelArray", "r.json", "[1]", {},
     "FILE: the top level of a JSON registry file must be an object"},
    // The column counts characters, not bytes.
    {"JsonSyntaxError", "r.json", "{\n\"\xC3\xBC\": 1} x\n", {},
     "FILE:2:9: JSON syntax error: garbage at the end of the document"},
    // ... and only those before the first NUL byte of the line.
    {"JsonSyntaxErrorAfterNul", "r.json", QByteArray("{\"a\": 1 \0 x}", 12), {},
     "FILE:1:9: JSON syntax error: unterminated object"},
    // Only a name that ends in .json is read as JSON; blank lines count.
    {"LinesNoEquals", "r.json.bak", "a = 1\n\n{\"a\":1}\n", {},
     "FILE:3: expected 'key = value', found no '='"},
    {"LinesSkippedTrimmedSplit", "r.conf", "\n  # k = v\n\t\n#\n  a b  =\t c  d \t\n/pre=new\n"
     "e = b = c\nd==\nf = v # c", {"a b=c  d", "/pre=new", "e=b = c", "d==", "f=v # c"}, nullptr},
    // Escapes are resolved inside double quotes only, and only these four.
    {"LinesQuoted", "r.conf", "a =\nb = \"\"\nc = \"  x  \"\nd = \"q\\\"b\\\\c\\nd\\te\"\n"
     "e = \"x\\qy\\z\"\nf = x\\ny\\\"z\ng = a\"b\"", {"a=", "b=", "c=  x  ", "d=q\"b\\c\nd\te",
     "e=x\\qy\\z", "f=x\\ny\\\"z", "g=a\"b\"", "/pre=old"}, nullptr},
    {"LinesBomCrLf", "r.conf", "\xEF\xBB\xBF" "a = 1\r\n\r\nb = \"x \"\r\n# c\r\na = \xC3\xA9\r\n",
     {"a=\xC3\xA9", "b=x ", "/pre=old"}, nullptr},
    {"LinesEmptyKey", "r.conf", "a = 1\n  = v", {}, "FILE:2: empty key before '='"},
    {"LinesUnclosedQuote", "r.conf", "a = \"a\\\"", {},
     "FILE:1: double quote opened and not closed"},
    {"LinesTextAfterQuote", "r.conf", "a = 1\r\nb = \"x\" y", {},
     "FILE:2: text after the closing double quote"},
    {"LinesInvalidUtf8", "r.conf", "a = 1\nb = \xFF\n", {}, "FILE:2: not valid UTF-8"},
    {"MissingFile", "absent.conf", QByteArray(), {},
     "FILE: cannot read registry file: No such file or directory"},
    {"JsonInvalidUtf8", "r.json", "{\"a\": \"\xFF\"}", {},
     "FILE:1:8: JSON syntax error: invalid UTF8 string"},
};
// clang-format on

using TessivaneRegistryFile = ::testing::TestWithParam<LoadRow>;

TEST_P(TessivaneRegistryFile, StoresAllValuesOrNothing)
{
    const LoadRow &row = GetParam();
    QTemporaryDir dir;
    const QString path = dir.filePath(row.fileName);
    if (!row.text.isNull())
        writeFile(path, row.text);
    Tessivane backend;
    backend.set("/pre", "old");
    ::TessivaneRegistryFile file;
    EXPECT_EQ(file.load(path, &backend), row.error == nullptr);
    EXPECT_EQ(file.errorString(), row.error ? QString(row.error).replace("FILE", path) : QString());
    QStringList stored, expected = row.error ? QStringList("/pre=old") : row.values;
    for (const QString &key : backend.keys()) {
        QString value;
        backend.get(key, value, _RegEntryParam {0}, QString());
        stored << key + '=' + value;
    }
    stored.sort();
    expected.sort();
    EXPECT_EQ(stored, expected);
}

INSTANTIATE_TEST_SUITE_P(Files, TessivaneRegistryFile, ::testing::ValuesIn(s_loadRows),
                         testRowName);

// A later file overrides as layered configuration does: an array replaces the earlier one whole,
// null removes, objects merge; the line format only sets, "null" included.
TEST(TessivaneRegistryFileLoad, LaterFilesOverrideAsLayers)
{
    QTemporaryDir dir;
    writeFile(dir.filePath("base.json"),
              R"({"l":["a","b",{"w":1}],"n":{"a":1,"b":2},"o":{"x":1}})");
    writeFile(dir.filePath("top.json"), R"({"l":["x","y"],"n":null,"o":{"y":2}})");
    writeFile(dir.filePath("last.conf"), "o/x = null\n");
    Tessivane backend;
    for (const char *name : {"base.json", "top.json", "last.conf"}) {
        ::TessivaneRegistryFile file;
        ASSERT_TRUE(file.load(dir.filePath(name), &backend)) << name;
    }
    QStringList stored;
    for (const QString &key : backend.keys()) {
        QString value;
        backend.get(key, value, _RegEntryParam {0}, QString());
        stored << key + '=' + value;
    }
    EXPECT_EQ(stored, QStringList({"/l/0=x", "/l/1=y", "/o/x=1", "/o/y=2", "o/x=null"}));
}

TEST(TessivaneRegistryFileLoad, RefusesNullBackend)
{
    ::TessivaneRegistryFile file;
    EXPECT_FALSE(file.load("absent.conf", nullptr));
    EXPECT_EQ(file.errorString(), "absent.conf: no registry backend to load the file into");
}

} // namespace

TEST(Tessivane, FindsExactKeysOnly)
{
    Tessivane backend;
    backend.set("/empty", "");
    backend.set("/a/b", "2");
    QString value = "untouched";
    for (const char *missing : {"/a/B", "/a/b/", "a/b", "//a/b", "/a", "/a/b "})
        EXPECT_EQ(backend.get(missing, value, _RegEntryParam {0}, QString()), 1) << missing;
    EXPECT_EQ(value, "untouched");
    EXPECT_EQ(backend.get("/empty", value, _RegEntryParam {0}, "ignored"), 0);
    EXPECT_EQ(value, "");
}

// A child's keys sort among those of other children ("a-b" before "a/x"): none is lost or doubled.
TEST(Tessivane, FindsChildrenInTheSortedKeys)
{
    Tessivane backend;
    for (const char *key :
         {"/l/b/c/d", "/l/a/x", "/l/a", "/l//e", "/l/a.c", "/l/a-b", "/l/a/y/z", "/lx/q", "/l"})
        backend.set(key, "v");
    EXPECT_EQ(backend.children("/l"), QStringList({"a", "a-b", "a.c", "b"}));
    EXPECT_EQ(backend.children("/l/a"), QStringList({"x", "y"}));
    EXPECT_EQ(backend.children("/none"), QStringList());
    backend.remove("/l/b/c/d");
    EXPECT_EQ(backend.children("/l"), QStringList({"a", "a-b", "a.c"}));
}
