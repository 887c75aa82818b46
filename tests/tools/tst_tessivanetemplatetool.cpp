#include "testsupport.h"

#include <QProcess>
#include <QRegularExpression>

#include <sys/stat.h>
#include <utime.h>

namespace {

struct ToolRun
{
    int code;
    QByteArray out, err;
};

// One tool process in \a dir, with \a input on its standard input.
ToolRun runTool(const QString &dir, const QStringList &args, const QByteArray &input = {})
{
    QProcess process;
    process.setWorkingDirectory(dir);
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    // Reports must come out exactly as composed, whatever Qt's own pattern says.
    environment.insert("QT_MESSAGE_PATTERN", "[%{type}] %{function}: %{message}");
    environment.insert("TT_RUN", "tool");
    process.setProcessEnvironment(environment);
    process.start(TT_TOOL_PATH, args);
    process.write(input);
    process.closeWriteChannel();
    EXPECT_TRUE(process.waitForFinished(30000));
    const int code = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    return {code, process.readAllStandardOutput(), process.readAllStandardError()};
}

QStringList entries(const QString &dir)
{
    return QDir(dir).entryList(QDir::AllEntries | QDir::Hidden | QDir::System
                               | QDir::NoDotAndDotDot);
}

struct stat fileStatus(const QString &path)
{
    struct stat status = {};
    EXPECT_EQ(::stat(QFile::encodeName(path).constData(), &status), 0) << path.toStdString();
    return status;
}

struct ToolRow
{
    const char *name;
    // Before the run, out.conf and real.conf hold "old" with mode 0640, and out.link links to
    // real.conf. When the arguments name one of them, the run renders into it.
    QStringList args;
    QByteArray templateText; // in t.tmpl and on standard input
    int code;
    QByteArray out; // standard output, or the output file when rendered into one
    QByteArray err;
};
TT_PRINT_ROWS_AS_NAMES(ToolRow)

const QByteArray s_nope = "WARNING t.tmpl/1: No command handler for 'NOPE' found\n";
const QByteArray s_newer = "WARNING t.tmpl/2: template is version 2, parser is version 1.\n";
const QByteArray s_tool = "tessivane-template: ";
const QByteArray s_default = "WARNING t.tmpl/1: Could not find regkey /x, but have default value. "
                             "writing default value d\n";

QByteArray usage(const char *message)
{
    return s_tool + message + " (see 'tessivane-template --help')\n";
}

// clang-format off
const ToolRow s_rows[] = {
    {"PlainToFile", {"t.tmpl", "out.conf"}, "a\n\nb", 0, "a\n\nb\n", ""},
    {"LinkTargetReplaced", {"t.tmpl", "out.link"}, "new", 0, "new\n", ""},
    {"IdenticalUntouched", {"t.tmpl", "out.conf"}, "old", 0, "old\n", ""},
    {"LaterFileWins", {"-r", "r.json", "--registry", "r.conf", "t.tmpl", "out.conf"},
     "%%REG(/app/name)%%/%%REG(/app/port)%%/%%REG(/app/host)%%", 0, "conf/80/h 1\n", ""},
    {"RootAndSetLastWin", {"-R", "/none", "-s", "/app/name=set", "--root", "/app", "-r", "r.json",
     "--set", "/k= a=b ", "t.tmpl"}, "%%REG($REGROOT/port)%%%%REG(/app/name)%%[%%REG(/k)%%]", 0,
     "80set[ a=b ]\n", ""},
    // The backend is empty, there is no default tag handler, and debug reports are off.
    {"NothingGiven", {"t.tmpl"}, "%%REG(/x)%%%%TAG(m)%%x%%TAG%%", 0, "x\n",
     "WARNING t.tmpl/1: Could not find regkey /x\nWARNING t.tmpl/1: tag for 'm' not found.\n"},
    // The first definition of a name wins; IF compares a decimal integer only.
    {"Tags", {"-t", "n=one", "--tag", "n=two", "-t", "e=", "-t", "z=0", "-t", "m=-7", "-t", "x=7x",
     "-t", "s= 7", "t.tmpl"}, "%%TAG(n)%%[%%TAG(e)%%]%%IF TAG(z)%%a%%ENDIF%%"
     "%%IF TAG(m) == -7%%b%%ENDIF%%%%IF TAG(m)%%c%%ENDIF%%%%IF TAG(x) != 5%%d%%ENDIF%%"
     "%%IF TAG(s) != 5%%e%%ENDIF%%%%IF TAG(e) != 5%%f%%ENDIF%%", 0, "one[]bc\n", ""},
    // A number out of an int's range is no number, as the bounds are.
    {"TagIntegers", {"-t", "a=2147483647", "-t", "b=2147483648", "-t", "c=-2147483648", "-t",
     "d=-2147483649", "-t", "e=+007", "t.tmpl"}, "%%IF TAG(a) == 2147483647%%a%%ENDIF%%"
     "%%IF TAG(b) != 1%%b%%ENDIF%%%%IF TAG(c) == -2147483648%%c%%ENDIF%%"
     "%%IF TAG(d) != 1%%d%%ENDIF%%%%IF TAG(e) == 7%%e%%ENDIF%%", 0, "ace\n", ""},
    {"CommentAffixes", {"--comment-prefix", "/*", "--comment-suffix", "*/", "t.tmpl"}, "=%%NOPE%%",
     0, "= /* WARNING t.tmpl/1: No command handler for 'NOPE' found */\n", s_nope},
    {"StandardInput", {"-", "-"}, "%%NOPE%%x", 0, "x\n",
     "WARNING -/1: No command handler for 'NOPE' found\n"},
    {"NewerVersion", {"t.tmpl"}, "a\nb%%TEMPLATE_VERSION(2)%%c\nd\n", 1, "a\nb", s_newer},
    {"NewerVersionToFile", {"t.tmpl", "out.conf"}, "a\n%%TEMPLATE_VERSION(2)%%", 1, "", s_newer},
    {"StrictWarning", {"--strict", "t.tmpl", "out.conf"}, "%%NOPE%%a", 4, "", s_nope},
    {"StrictIgnoresDebug", {"--strict", "--debug", "t.tmpl", "out.conf"}, "x%%TAG%%", 0, "x\n",
     "DEBUG t.tmpl/1: parameter doesn't contain '(' and ')'\n"},
    {"StrictNewerVersion", {"--strict", "t.tmpl", "out.conf"}, "%%NOPE%%\n%%TEMPLATE_VERSION(2)%%",
     1, "", s_nope + s_newer},
    {"StrictMissingTemplate", {"--strict", "missing.tmpl", "out.conf"}, "", 3, "",
     "Could not open template file 'missing.tmpl'\n"},
    // Under --strict standard output gets nothing from a run that fails, and a default is the
    // template's own answer to a missing key.
    {"StrictHoldsStandardOutputBack", {"--strict", "t.tmpl"}, "a%%NOPE%%", 4, "", s_nope},
    {"StrictAcceptsDefault", {"--strict", "t.tmpl"}, "%%REG(/x)()(\"d\")%%", 0, "d\n", s_default},
    {"OutputDirectoryMissing", {"t.tmpl", "nodir/out.conf"}, "%%TEMPLATE_VERSION(2)%%", 3, "",
     s_tool + "cannot write 'nodir/out.conf': No such file or directory\n"},
    {"OutputUnderProcFile", {"--strict", "t.tmpl", "/proc/version/x"}, "%%NOPE%%", 3, "",
     s_tool + "cannot write '/proc/version/x': Not a directory\n"},
    // The environment comes after the files and before --set.
    {"Environment", {"-e", "-s", "/env/QT_MESSAGE_PATTERN=set", "-r", "r.conf", "--env", "t.tmpl"},
     "%%REG(/env/QT_MESSAGE_PATTERN)%%|%%REG(/env/TT_RUN)%%", 0, "set|tool\n", ""},
    {"LanguageTwo", {"--language", "2", "-s", "/t=1", "t.tmpl"},
     "%%IF REG(/t)%%a%%ELSE%%b%%ENDIF%% %%%%", 0, "a %%\n", ""},
    {"LanguageUnknown", {"--language", "3", "t.tmpl"}, "", 2, "",
     usage("--language takes 1 or 2, not '3'")},
    {"UnknownOption", {"--bogus", "missing.tmpl", "out.conf"}, "", 2, "",
     usage("Unknown option 'bogus'.")},
    {"OptionWithoutValue", {"t.tmpl", "-r"}, "", 2, "", usage("Missing value after '-r'.")},
    {"SetNoEquals", {"-s", "k", "t.tmpl"}, "", 2, "", usage("--set expects KEY=VALUE, got 'k'")},
    {"TagNoEquals", {"-t", "n", "t.tmpl"}, "", 2, "", usage("--tag expects NAME=TEXT, got 'n'")},
    {"ThirdArgument", {"t.tmpl", "o.conf", "x"}, "", 2, "", usage("unexpected argument 'x'")},
    {"NoTemplate", {}, "", 2, "", usage("missing TEMPLATE")},
    // An empty argument is an unset variable in a script, not standard input or output.
    {"EmptyTemplate", {"", "out.conf"}, "", 2, "", usage("empty TEMPLATE argument")},
    {"EmptyOutput", {"t.tmpl", ""}, "", 2, "", usage("empty OUTPUT argument")},
    // The first bad file stops the run.
    {"BadRegistryFile", {"-r", "none.json", "-r", "bad.conf", "missing.tmpl", "o.conf"}, "", 2, "",
     s_tool + "none.json: cannot read registry file: No such file or directory\n"},
    {"BadRegistryBeforeVersion", {"--strict", "-r", "bad.conf", "t.tmpl", "out.conf"},
     "%%NOPE%%%%TEMPLATE_VERSION(2)%%", 2, "",
     s_tool + "bad.conf:2: expected 'key = value', found no '='\n"},
};
// clang-format on

using TessivaneTemplateTool = ::testing::TestWithParam<ToolRow>;

} // namespace

TEST_P(TessivaneTemplateTool, RendersOrLeavesOutputAsItWas)
{
    const ToolRow &row = GetParam();
    QTemporaryDir temporary;
    const QDir dir(temporary.path());
    writeFile(dir.filePath("t.tmpl"), row.templateText);
    writeFile(dir.filePath("r.json"), R"({"app":{"port":80,"name":"json"}})");
    writeFile(dir.filePath("r.conf"),
              "# app\n/app/name = conf\n/app/host = \"h 1\"\n/env/TT_RUN = file\n");
    writeFile(dir.filePath("bad.conf"), "a = 1\nbroken\n");
    const struct utimbuf past = {1000000000, 1000000000};
    for (const char *name : {"out.conf", "real.conf"}) {
        writeFile(dir.filePath(name), "old\n");
        const QByteArray path = QFile::encodeName(dir.filePath(name));
        ASSERT_TRUE(::chmod(path.constData(), 0640) == 0 && ::utime(path.constData(), &past) == 0);
    }
    ASSERT_TRUE(QFile::link("real.conf", dir.filePath("out.link")));
    const QStringList listing = entries(dir.path());
    const QString named = row.args.filter("out.").value(0); // the output file, if any
    const QString target = QFileInfo(dir.filePath(named)).canonicalFilePath();

    const ToolRun run = runTool(dir.path(), row.args, row.templateText);
    EXPECT_EQ(run.code, row.code);
    EXPECT_EQ(run.err, row.err);
    EXPECT_EQ(run.out, named.isEmpty() ? row.out : QByteArray());
    for (const char *name : {"out.conf", "real.conf"}) {
        const QString path = dir.filePath(name);
        const bool isRendered = QFileInfo(path).canonicalFilePath() == target && row.code == 0;
        EXPECT_EQ(readFile(path), isRendered ? row.out : "old\n") << name;
        EXPECT_EQ(fileStatus(path).st_mode & 07777, 0640u) << name;
        // Not touched, unless its content changes.
        EXPECT_EQ(fileStatus(path).st_mtime != past.modtime, isRendered && row.out != "old\n");
    }
    EXPECT_EQ(QFileInfo(dir.filePath("out.link")).symLinkTarget(), dir.filePath("real.conf"));
    EXPECT_EQ(entries(dir.path()), listing);
}

INSTANTIATE_TEST_SUITE_P(Runs, TessivaneTemplateTool, ::testing::ValuesIn(s_rows), testRowName);

// The shipped version-2 example is a configuration nginx itself accepts.
TEST_F(TessivaneTemplateTool, RendersTheLanguageTwoExampleForNginx)
{
    QTemporaryDir dir;
    expectTranscript({"NginxExample", R"sh(
command -v nginx >/dev/null || { echo "no nginx here" >&2; exit 77; }
$T --strict --language 2 -r $EXAMPLES/language2/web.json $EXAMPLES/language2/nginx.conf.tmpl \
    nginx.conf 2>/dev/null
echo $?; grep -c 'server 10.0' nginx.conf
nginx -t -q -e stderr -c $PWD/nginx.conf -p $PWD/ -g "pid $PWD/nginx.pid;"; echo $?)sh",
                      "0\n3\n0\n", ""},
                     dir.path());
}

TEST_F(TessivaneTemplateTool, NewOutputGetsDefaultModeLessUmask)
{
    QTemporaryDir dir;
    writeFile(dir.filePath("t.tmpl"), "x\n");
    for (const mode_t mask : {022, 027, 002}) {
        const mode_t previous = ::umask(mask);
        EXPECT_EQ(runTool(dir.path(), {"t.tmpl", QString::number(mask)}).code, 0);
        ::umask(previous);
        EXPECT_EQ(fileStatus(dir.filePath(QString::number(mask))).st_mode & 07777, 0666 & ~mask);
    }
}

TEST_F(TessivaneTemplateTool, HelpListsEveryOptionAndVersionPrintsIt)
{
    QTemporaryDir dir;
    const ToolRun help = runTool(dir.path(), {"--help"});
    EXPECT_EQ(help.code, 0);
    for (const char *option :
         {"-r, --registry <FILE>", "-s, --set <KEY=VALUE>", "-e, --env", "-R, --root <PATH>",
          "--comment-prefix <TEXT>", "--comment-suffix <TEXT>", "-d, --debug",
          "-t, --tag <NAME=TEXT>", "--language <N>", "--strict", "-h, --help", "-V, --version"})
        EXPECT_TRUE(help.out.contains(option)) << option;
    const ToolRun version = runTool(dir.path(), {"-V", "missing.tmpl"});
    EXPECT_EQ(version.code, 0);
    const QRegularExpression versionLine("^tessivane-template 3\\.\\d+\\.\\d+\\n$");
    EXPECT_TRUE(versionLine.match(version.out).hasMatch()) << version.out.toStdString();
}
