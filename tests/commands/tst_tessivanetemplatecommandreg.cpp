#include "testsupport.h"

namespace {

struct RegRow
{
    const char *name, *templateText, *output;
    const char *warnings = nullptr; // the reports' texts after "WARNING in.tmpl/1: ", one a line
    const char *regRoot = "";
    const char *commentPrefix = "";
    bool hasBackend = true;
};
TT_PRINT_ROWS_AS_NAMES(RegRow)

using TessivaneTemplateCommandReg = EngineTest<RegRow>;

TEST_P(TessivaneTemplateCommandReg, WritesLookupResultAndReportsFailures)
{
    const RegRow &row = GetParam();
    for (const char *pair : {"/r/port=80", "/r/net//r=deep", "/k=1", "/two=2",
                             "/empty=", "/ini=[a=b]%3D", "/cmd=%%REG(/k)%%", "/quote=say \"hi\"",
                             "/fmt=%s%d%%", "/%s=pk", "\"/q\"=quoted", "=emptykey"})
        backend.set(QString(pair).section('=', 0, 0), QString(pair).section('=', 1));
    engine.setRegRoot(row.regRoot);
    engine.setCommentPrefix(row.commentPrefix);
    engine.setRegistryBackend(row.hasBackend ? &backend : nullptr);
    const Rendered rendered = render(engine, row.templateText);
    EXPECT_EQ(rendered.output, QByteArray(row.output));
    QStringList warnings;
    for (const QString &text : row.warnings ? QString(row.warnings).split('\n') : QStringList())
        warnings << "WARNING in.tmpl/1: " + text;
    EXPECT_EQ(rendered.warnings, warnings);
    EXPECT_EQ(rendered.result, 0);
}

// clang-format off
const RegRow s_rows[] = {
    {"RootReplaced", "p=%%REG($REGROOT/port)%%;%%REG($REGROOT/net/$REGROOT)%%\n", "p=80;deep\n",
     nullptr, "/r"},
    {"RootNeverSet", "%%REG($REGROOT/k)%%\n", "1\n"},
    {"RootNotInMappingOrDefault", "%%REG(/k)(\"1\" \"$REGROOT\")%%%%REG(/none)()($REGROOT)%%\n",
     "$REGROOT$REGROOT\n",
     "Could not find regkey /none, but have default value. writing default value $REGROOT", "/x"},
    {"MappedLaterPairWinsOrKept",
     "%%REG(/k)(\"1\" \"on\" \"1\" \"yes\")%%%%REG(/two)(\"1\" \"on\" \"2\")%%\n", "yes2\n"},
    // The third group is the default; a fourth is ignored.
    {"UnmappedDefault", "%%REG(/two)(\"0\" \"off\" \"1\" \"on\")(\"off\")(y)%%\n", "off\n"},
    {"NoMappingDefault", "%%REG(/two)()(x)%%%%REG(/two)(2 two)(x)%%\n", "22\n"},
    {"MissingDefault", "%%REG(/none)(\"1\" \"on\")(\"a\\\"b\")%%|%%REG(/none)()()%%\n", "a\"b|\n",
     "Could not find regkey /none, but have default value. writing default value a\"b\n"
     "Could not find regkey /none, but have default value. writing default value "},
    {"NoBackend", "%%REG(\")%%\n", "\n", "no registry backend set, can't lookup reg key", "", "",
     false},
    {"NoGroup", "a%%REG(\")%%b\n", "ab\n", "empty parameter for REG"},
    {"NotFound", "a%%REG_QUOTE(/none)%%b\n", "ab\n", "Could not find regkey /none"},
    // Without a group the report is empty.
    {"NoParenthesis", "a%%REG%%b%%REG(/k) x%%c\n", "abc\n", "\n"},
    // The report follows the value and its closing quote.
    {"DefaultThenComment", "a%%REG_QUOTE(/none)()(d)%%b\n",
     "a\"d\" # WARNING in.tmpl/1: Could not find regkey /none, but have default value. writing "
     "default value db\n",
     "Could not find regkey /none, but have default value. writing default value d", "", "#"},
    {"IniEscaped", "%%REG_INI(/ini)%% %%REG_INI(/k)(\"1\" \"x=]\")%%\n", "[a%3Db%5D%3D x%3D%5D\n"},
    {"IniDefault", "%%REG_INI(/none)()(a]=)%%\n", "a%5D%3D\n",
     "Could not find regkey /none, but have default value. writing default value a]="},
    {"Quoted", "%%REG_QUOTE(/empty)%% %%REG_QUOTE(/quote)%% %%REG_QUOTE(/ini)%%\n",
     "\"\" \"say \"hi\"\" \"[a=b]%3D\"\n"},
    {"KeyAsWritten", "%%REG(\"/q\")%%|%%REG()%%|%%REG(/%s)%%|%%REG(/cmd)%%|%%REG(/fmt)%%\n",
     "quoted|emptykey|pk|%%REG(/k)%%|%s%d%%\n"},
    {"PercentMissing", "%%REG(/%s%d)%%%%REG(/none)()(%s%n)%%\n", "%s%n\n",
     "Could not find regkey /%s%d\n"
     "Could not find regkey /none, but have default value. writing default value %s%n"},
    {"OtherNamesNotTaken", "%%REG_VALUE(/k)%%%%reg(/k)%%\n", "\n",
     "No command handler for 'REG_VALUE' found\nNo command handler for 'reg' found"},
};
// clang-format on
INSTANTIATE_TEST_SUITE_P(Rows, TessivaneTemplateCommandReg, ::testing::ValuesIn(s_rows),
                         testRowName);

} // namespace
