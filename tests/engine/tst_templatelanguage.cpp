#include "testsupport.h"

// Version 2 of the template language, feature by feature and together, and
// the same templates under version 1, which must render as they always did.

namespace {

struct LanguageRow
{
    const char *name;
    int version;
    QStringList registry; // "key=value"
    QByteArray input;
    QByteArray output;
    QStringList warnings;
    const char *prefix = "";
};
TT_PRINT_ROWS_AS_NAMES(LanguageRow)

using TemplateLanguage = EngineTest<LanguageRow>;

TEST_P(TemplateLanguage, RendersTheVersionChosen)
{
    const LanguageRow &row = GetParam();
    for (const QString &entry : row.registry)
        backend.set(entry.section('=', 0, 0), entry.section('=', 1));
    engine.setLanguageVersion(row.version);
    engine.setCommentPrefix(row.prefix);
    const Rendered rendered = render(engine, row.input);
    EXPECT_EQ(rendered.output, row.output);
    EXPECT_EQ(rendered.warnings, row.warnings);
}

QString report(int line, const char *message)
{
    return QStringLiteral("WARNING in.tmpl/%1: %2").arg(line).arg(QLatin1String(message));
}

const QStringList s_list = {"/l/0=a", "/l/1=b", "/l/2=c"};
const QByteArray s_ifElse = "%%IF REG(/t) == \"1\"%%yes%%ELSE%%no%%ENDIF%%\n";
const QByteArray s_controlLines = "a\n%%IF REG(/t)%%\nyes\n%%ELSE%%\nno\n%%ENDIF%%\nb\n";
const QByteArray s_loop = "%%FOREACH $X IN REG(/l)%%\n%%ITEM($X)%%=%%REG($X)%%\n%%ENDFOREACH%%\n";

// clang-format off
const LanguageRow s_rows[] = {
    {"ElseWhenTrue", 2, {"/t=1"}, s_ifElse, "yes\n", {}},
    {"ElseWhenFalse", 2, {"/t=0"}, s_ifElse, "no\n", {}},
    // Lines of nothing but control commands and blanks write no line.
    {"ControlLinesDropped", 2, {"/t=0"}, s_controlLines, "a\nno\nb\n", {}},
    {"TrailingTextKeepsTheLine", 2, {"/t=1"}, "%%IF REG(/t)%% after\nx\n  %%ENDIF%%  \n",
     " after\nx\n", {}},
    {"CommentAndVersionLines", 2, {}, "%%* note%%\n%%TEMPLATE_VERSION(2)%%\nbody\n", "body\n", {}},
    {"NewerThanTwo", 2, {}, "a\n%%TEMPLATE_VERSION(3)%%\nb\n", "a\n",
     {report(2, "template is version 3, parser is version 2.")}},
    {"ElseNestedInSkippedBlock", 2, {"/f=0", "/t=1"},
     "%%IF REG(/f)%%%%IF REG(/t)%%x%%ELSE%%y%%ENDIF%%%%ELSE%%z%%ENDIF%%\n", "z\n", {}},
    {"ElseWithoutIf", 2, {}, "%%ELSE%%x\n", "x\n", {report(1, "ELSE without IF")}},
    {"SecondElse", 2, {"/t=1"}, "%%IF REG(/t)%%a%%ELSE%%b%%ELSE%%c%%ENDIF%%d\n", "ad\n",
     {report(1, "a second ELSE in one IF block")}},
    {"LoopOverList", 2, s_list, s_loop, "0=a\n1=b\n2=c\n", {}},
    {"NumericOrder", 2, {"/n/10=x", "/n/9/k=y", "/n/02=z"},
     "%%FOREACH $X IN REG(/n/)%%%%ITEM($X)%% %%ENDFOREACH%%\n", "02 9 10 \n", {}},
    {"TextOrder", 2, {"/m/b=1", "/m/a=2", "/m/10=3", "/m/B=4"},
     "%%FOREACH $X IN REG(/m)%%%%ITEM($X)%% %%ENDFOREACH%%\n", "10 B a b \n", {}},
    {"EmptyPrefix", 2, s_list, "a%%FOREACH $X IN REG(/none)%%x%%ENDFOREACH%%b\n", "ab\n", {}},
    {"LoopInIfInLoop", 2, {"/g/x/on=1", "/g/x/m/0=p", "/g/x/m/1=q", "/g/y/on=0", "/g/y/m/0=r"},
     "%%FOREACH $A IN REG(/g)%%\n%%IF REG($A/on) == \"1\"%%\n%%FOREACH $B IN REG($A/m)%%\n"
     "%%ITEM($A)%%.%%ITEM($B)%%=%%REG($B)%%\n%%ENDFOREACH%%\n%%ENDIF%%\n%%ENDFOREACH%%\n",
     "x.0=p\nx.1=q\n", {}},
    {"ElseInLoop", 2, s_list,
     "%%FOREACH $X IN REG(/l)%%%%IF REG($X) == \"b\"%%B%%ELSE%%-%%ENDIF%%%%ENDFOREACH%%\n",
     "-B-\n", {}},
    {"InnerNameShadows", 2, {"/o/1/i/a=", "/o/2/i/b=", "/o/2/i/c="},
     "%%FOREACH $X IN REG(/o)%%%%FOREACH $X IN REG($X/i)%%%%ITEM($X)%%%%ENDFOREACH%%;"
     "%%ENDFOREACH%%\n", "a;bc;\n", {}},
    {"RegRootInPrefix", 2, {"/l/0=a"}, "%%FOREACH $X IN REG($REGROOT/l)%%%%REG($X)%%%%ENDFOREACH%%\n",
     "a\n", {}},
    // Reports inside a block name the line of the template.
    {"LinesInsideBlock", 2, {"/l/0=a", "/l/1=b"},
     "%%FOREACH $X IN REG(/l)%%\n%%NOPE%%\n%%ENDFOREACH%%\n", "\n\n",
     {report(2, "No command handler for 'NOPE' found"),
      report(2, "No command handler for 'NOPE' found")}},
    {"LiteralMarks", 2, {"/t=1"}, "a%%%%b%%REG(/t)%%%%%%c\nExecStart=/usr/bin/printf %%%%s\n",
     "a%%b1%%c\nExecStart=/usr/bin/printf %%s\n", {}},
    {"JsonEscaping", 2,
     {"/q=say \"hi\" \\", "/c=\n\t\x01", "/u=caf\u00e9", "/e="},
     "%%REG_JSON(/q)%% %%REG_JSON(/c)%% %%REG_JSON(/u)%% %%REG_JSON(/e)%%\n",
     "\"say \\\"hi\\\" \\\\\" \"\\n\\t\\u0001\" \"caf\xc3\xa9\" \"\"\n", {}},
    {"ShellEscaping", 2, {"/q=it's \"x\" \\", "/e="}, "%%REG_SHELL(/q)%% %%REG_SHELL(/e)%%\n",
     "'it'\\''s \"x\" \\' ''\n", {}},
    {"DefaultAfterEscapedValue", 2, {}, "%%REG_JSON(/none)()(\"d\")%%\n", "\"d\" # "
     "WARNING in.tmpl/1: Could not find regkey /none, but have default value. writing default "
     "value d\n", {report(1, "Could not find regkey /none, but have default value. writing "
                            "default value d")}, "#"},
    // A report written into a control line still ends with a line feed.
    {"LoopDiagnostics", 2, s_list,
     "%%ENDFOREACH%%\n%%FOREACH X IN REG(/l)%%\nx\n%%ENDFOREACH%%\n%%ITEM($Y)%%\n"
     "%%FOREACH $Z IN REG(/l)%%\nopen\n",
     " # WARNING in.tmpl/1: ENDFOREACH without FOREACH\n # WARNING in.tmpl/2: malformed loop header "
     "'FOREACH X IN REG(/l)', expected FOREACH $NAME IN REG(prefix)\n # WARNING in.tmpl/5: ITEM of "
     "an unknown loop name '$Y'\n # WARNING in.tmpl/7: FOREACH of line 6 is not closed with "
     "ENDFOREACH\n",
     {report(1, "ENDFOREACH without FOREACH"),
      report(2, "malformed loop header 'FOREACH X IN REG(/l)', expected FOREACH $NAME IN "
                "REG(prefix)"),
      report(5, "ITEM of an unknown loop name '$Y'"),
      report(7, "FOREACH of line 6 is not closed with ENDFOREACH")}, "#"},

    // A loop in a dropped region is read to its end and never run.
    {"LoopInDroppedRegion", 2, {"/a/1/on=1", "/a/2/on=0"},
     "a\n%%IF REG(/a/2/on)%%\n%%FOREACH $S IN REG(/a)%%\n%%IF REG($S/on)==\"1\"%%\non\n%%ENDIF%%\n"
     "%%ENDFOREACH%%\n%%ELSE%%\ndisabled\n%%ENDIF%%\n", "a\ndisabled\n", {}},
    // The reports of a block's own parsers are no reports of the line that closes it.
    {"ReportsInsideAndTheClosingLine", 2, {"/b/x=", "/b/y="},
     "%%FOREACH $H IN REG(/b)%%\n%%ITEM($H)%%%%NOPE%%\n%%ENDFOREACH%%\nb\n",
     "x # WARNING in.tmpl/2: No command handler for 'NOPE' found\n"
     "y # WARNING in.tmpl/2: No command handler for 'NOPE' found\nb\n",
     {report(2, "No command handler for 'NOPE' found"),
      report(2, "No command handler for 'NOPE' found")}, "#"},
    // Commands after the header, and before the closing ENDFOREACH, on control lines.
    {"CommandsBesideHeaderAndEnd", 2, {"/b/x=", "/b/y=", "/b/x/r/1=", "/b/y/r/2="},
     "%%FOREACH $S IN REG(/b)%% %%* servers%%\n\n%%FOREACH $R IN REG($S/r)%%\n"
     "%%ITEM($S)%%%%ITEM($R)%% %%NOPE%%\n%%ENDFOREACH%% %%ENDFOREACH%%\nend\n",
     "\nx1 \n\ny2 \nend\n",
     {report(4, "No command handler for 'NOPE' found"),
      report(4, "No command handler for 'NOPE' found")}},
    // A newer version ends the block, as it ends an included file.
    {"NewerVersionEndsTheLoop", 2, {"/b/x=", "/b/y="},
     "%%FOREACH $S IN REG(/b)%%\n%%TEMPLATE_VERSION(3)%%\nx\n%%ENDFOREACH%%\nafter\n", "after\n",
     {report(2, "template is version 3, parser is version 2.")}},
    {"OrderByCodePoint", 2, {"/u/\U0001F600=", "/u/\uFF61=", "/u/a="},
     "%%FOREACH $U IN REG(/u)%%%%ITEM($U)%% %%ENDFOREACH%%\n",
     "a \xEF\xBD\xA1 \xF0\x9F\x98\x80 \n", {}},
    {"NamesThatAreNoLoops", 2, {}, "%%FOREACH $REGROOTS IN REG(/b)%%%%ENDFOREACH%%%%FOREACHX%%\n",
     "\n", {report(1, "malformed loop header 'FOREACH $REGROOTS IN REG(/b)', expected FOREACH "
                      "$NAME IN REG(prefix)"),
            report(1, "No command handler for 'FOREACHX' found")}},

    // Version 1 as it always was: no ELSE, no loops, blank lines kept, "%%%%" an empty name.
    {"VersionOneElse", 1, {"/t=1"}, s_ifElse, "yesno\n",
     {report(1, "No command handler for 'ELSE' found")}},
    {"VersionOneControlLines", 1, {"/t=1"}, s_controlLines, "a\n\nyes\n\nno\n\nb\n",
     {report(4, "No command handler for 'ELSE' found")}},
    {"VersionOneLoop", 1, s_list, s_loop, "\n=\n\n",
     {report(1, "No command handler for 'FOREACH $X IN REG' found"),
      report(2, "No command handler for 'ITEM' found"), report(2, "Could not find regkey $X"),
      report(3, "No command handler for 'ENDFOREACH' found")}},
    {"VersionOneMarksAndForms", 1, {"/t=1"}, "a%%%%b%%REG_JSON(/t)%%%%REG_SHELL(/t)%%\n", "ab\n",
     {report(1, "No command handler for '' found"),
      report(1, "No command handler for 'REG_JSON' found"),
      report(1, "No command handler for 'REG_SHELL' found")}},
    {"VersionOneStopsAtTwo", 1, {}, "a\n%%TEMPLATE_VERSION(2)%%\nb\n", "a\n",
     {report(2, "template is version 2, parser is version 1.")}},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Rows, TemplateLanguage, ::testing::ValuesIn(s_rows), testRowName);

TEST_F(TemplateLanguage, RefusesUnknownVersions)
{
    MessageRecorder recorder;
    engine.setLanguageVersion(2);
    engine.setLanguageVersion(3);
    engine.setLanguageVersion(0);
    EXPECT_EQ(engine.languageVersion(), 2);
    EXPECT_EQ(recorder.warnings,
              QStringList(
                  {"unknown template language version 3", "unknown template language version 0"}));
}

} // namespace
