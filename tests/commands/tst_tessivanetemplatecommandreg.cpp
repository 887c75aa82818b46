#include "testsupport.h"

namespace {

struct RegRow
{
    const char *name, *templateText, *output;
    const char *warning = nullptr; // the report's text after "WARNING in.tmpl/1: "
    const char *regRoot = nullptr; // null: never set
    const char *commentPrefix = "";
    bool hasBackend = true;
};

class TessivaneTemplateCommandReg : public ::testing::TestWithParam<RegRow>
{
protected:
    Tessivane backend;
    TessivaneTemplate engine;
};

const auto rowName = [](const auto &info) { return std::string(info.param.name); };

TEST_P(TessivaneTemplateCommandReg, WritesLookupResultAndReportsFailures)
{
    const RegRow &row = GetParam();
    for (const char *pair :
         {"/etc/app/port=80", "/etc/app/net//etc/app=deep", "/k=1", "/two=2",
          "/empty=", "/ini=a=b]c", "/bracket=[x]", "/pct=100%3D", "/cmd=%%REG(/k)%%",
          "/quote=say \"hi\"", "/fmt=%s%d%%", "/%s=pk", "\"/q\"=quoted", "=emptykey"})
        backend.set(QString(pair).section('=', 0, 0), QString(pair).section('=', 1));
    if (row.regRoot)
        engine.setRegRoot(row.regRoot);
    engine.setCommentPrefix(row.commentPrefix);
    engine.setRegistryBackend(row.hasBackend ? &backend : nullptr);
    const Rendered rendered = render(engine, row.templateText);
    EXPECT_EQ(rendered.output, QByteArray(row.output));
    EXPECT_EQ(rendered.warnings,
              row.warning ? QStringList("WARNING in.tmpl/1: " + QString(row.warning))
                          : QStringList());
    EXPECT_EQ(rendered.result, 0);
}

const RegRow keyRows[] = {
    {"RootReplaced", "p=%%REG($REGROOT/port)%%;%%REG($REGROOT/net/$REGROOT)%%\n", "p=80;deep\n",
     nullptr, "/etc/app"},
    {"RootNeverSet", "%%REG($REGROOT/k)%%\n", "1\n"},
    {"RootLowerCase", "%%REG($regroot/k)%%\n", "\n", "Could not find regkey $regroot/k", "/x"},
    {"RootNotInMappingOrDefault", "%%REG(/k)(\"1\" \"$REGROOT\")%%%%REG(/none)()($REGROOT)%%\n",
     "$REGROOT$REGROOT\n",
     "Could not find regkey /none, but have default value. writing default value $REGROOT", "/x"},
    {"QuotedAndEmptyKey", "%%REG(\"/q\")%%|%%REG()%%\n", "quoted|emptykey\n"},
};
INSTANTIATE_TEST_SUITE_P(Key, TessivaneTemplateCommandReg, ::testing::ValuesIn(keyRows), rowName);

const RegRow mappingRows[] = {
    {"MappedOrKept", "%%REG(/k)(\"0\" \"off\" \"1\" \"on\")%%%%REG(/two)(\"1\" \"on\")%%\n",
     "on2\n"},
    {"UnmappedDefault", "%%REG(/two)(\"0\" \"off\" \"1\" \"on\")(\"off\")%%\n", "off\n"},
    {"LaterPairWinsUnpairedIgnored",
     "%%REG(/k)(\"1\" \"on\" \"1\" \"yes\")%%%%REG(/two)(\"1\" \"on\" \"2\")%%\n", "yes2\n"},
    {"NoMappingDefault", "%%REG(/two)()(x)%%%%REG(/two)(2 two)(x)%%\n", "22\n"},
    {"FourthGroupIgnored", "%%REG(/two)(\"1\" \"on\")(x)(y)%%\n", "x\n"},
    {"MissingDefault", "%%REG(/none)(\"1\" \"on\")(\"a\\\"b\")%%\n", "a\"b\n",
     "Could not find regkey /none, but have default value. writing default value a\"b"},
    {"MissingEmptyDefault", "%%REG(/none)()()%%\n", "\n",
     "Could not find regkey /none, but have default value. writing default value "},
};
INSTANTIATE_TEST_SUITE_P(Mapping, TessivaneTemplateCommandReg, ::testing::ValuesIn(mappingRows),
                         rowName);

const char s_defaultWarning[] =
    "Could not find regkey /none, but have default value. writing default value d";
const RegRow failureRows[] = {
    {"NoBackend", "a%%REG(\")%%b\n", "ab\n", "no registry backend set, can't lookup reg key",
     nullptr, "", false},
    {"NoGroup", "a%%REG(\")%%b\n", "ab\n", "empty parameter for REG"},
    {"NotFound", "a%%REG_QUOTE(/none)%%b\n", "ab\n", "Could not find regkey /none"},
    {"NoParenthesis", "a%%REG%%b\n", "ab\n", ""},
    {"TextAfterGroup", "a%%REG(/k) x%%b\n", "ab\n", ""},
    {"DefaultThenComment", "a%%REG(/none)()(d)%%b\n",
     "ad # WARNING in.tmpl/1: Could not find regkey /none, but have default value. writing default "
     "value db\n",
     s_defaultWarning, nullptr, "#"},
    {"QuoteDefaultThenComment", "a%%REG_QUOTE(/none)()(d)%%b\n",
     "a\"d\" # WARNING in.tmpl/1: Could not find regkey /none, but have default value. writing "
     "default value db\n",
     s_defaultWarning, nullptr, "#"},
};
INSTANTIATE_TEST_SUITE_P(Failure, TessivaneTemplateCommandReg, ::testing::ValuesIn(failureRows),
                         rowName);

const RegRow formRows[] = {
    {"IniEscaped", "%%REG_INI(/ini)%% %%REG_INI(/bracket)%% %%REG_INI(/pct)%%\n",
     "a%3Db%5Dc [x%5D 100%3D\n"},
    {"IniMappedText", "%%REG_INI(/k)(\"1\" \"x=]\")%%\n", "x%3D%5D\n"},
    {"IniDefault", "%%REG_INI(/none)()(a]=)%%\n", "a%5D%3D\n",
     "Could not find regkey /none, but have default value. writing default value a]="},
    {"Quoted", "%%REG_QUOTE(/empty)%% %%REG_QUOTE(/quote)%% %%REG_QUOTE(/ini)%%\n",
     "\"\" \"say \"hi\"\" \"a=b]c\"\n"},
    {"PercentValueAndKey", "%%REG(/cmd)%% %%REG(/fmt)%% %%REG(/%s)%%\n", "%%REG(/k)%% %s%d%% pk\n"},
    {"PercentKeyMissing", "%%REG(/%s%d)%%\n", "\n", "Could not find regkey /%s%d"},
    {"PercentDefault", "%%REG(/none)()(%s%n)%%\n", "%s%n\n",
     "Could not find regkey /none, but have default value. writing default value %s%n"},
    {"RegValueNotTaken", "%%REG_VALUE(/k)%%\n", "\n", "No command handler for 'REG_VALUE' found"},
    {"LowerCaseNotTaken", "%%reg(/k)%%\n", "\n", "No command handler for 'reg' found"},
    {"BlankNotTaken", "%%REG (/k)%%\n", "\n", "No command handler for 'REG ' found"},
};
INSTANTIATE_TEST_SUITE_P(Form, TessivaneTemplateCommandReg, ::testing::ValuesIn(formRows), rowName);

} // namespace
