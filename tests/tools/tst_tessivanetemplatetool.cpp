#include "testsupport.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <sys/stat.h>
#include <utime.h>

namespace {

struct ToolRun
{
    int code;
    QByteArray out;
    QByteArray err;
};

// One tool process in \a dir, with \a input on its standard input.
ToolRun runTool(const QString &dir, const QStringList &args, const QByteArray &input = {})
{
    QProcess process;
    process.setWorkingDirectory(dir);
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    // Reports must come out exactly as composed, whatever Qt's own pattern says.
    environment.insert("QT_MESSAGE_PATTERN", "[%{type}] %{function}: %{message}");
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
    QStringList args;
    const char *output; // appended to args, "" for none; out.conf is made first, holding "old"
    QByteArray templateText; // in t.tmpl and on standard input
    int code;
    QByteArray out; // standard output, or the output file when rendered into one
    QByteArray err;
};

const QByteArray s_nope = "WARNING t.tmpl/1: No command handler for 'NOPE' found\n";
const QByteArray s_newer = "WARNING t.tmpl/2: template is version 2, parser is version 1.\n";
const QByteArray s_debug = "DEBUG t.tmpl/1: parameter doesn't contain '(' and ')'\n";
const QByteArray s_missing = "Could not open template file 'missing.tmpl'\n";
const QByteArray s_hint = " (see 'tessivane-template --help')\n";
const QByteArray s_tool = "tessivane-template: ";
const QByteArray s_noTemporary = s_tool + "cannot create a temporary file beside ";

// clang-format off
const ToolRow s_rows[] = {
    {"PlainToFile", {"t.tmpl"}, "out.conf", "a\n\nb", 0, "a\n\nb\n", ""},
    {"LaterFileWins", {"-r", "r.json", "--registry", "r.conf", "t.tmpl"}, "out.conf",
     "%%REG(/app/name)%%/%%REG(/app/port)%%/%%REG(/app/host)%%", 0, "conf/80/h 1\n", ""},
    {"SetAfterFiles", {"-s", "/app/name=set", "-r", "r.json", "--set", "/k= a=b ", "t.tmpl"}, "",
     "%%REG(/app/name)%%[%%REG(/k)%%]", 0, "set[ a=b ]\n", ""},
    {"EmptyBackend", {"t.tmpl"}, "", "%%REG(/x)%%", 0, "\n",
     "WARNING t.tmpl/1: Could not find regkey /x\n"},
    {"RootLastWins", {"-R", "/none", "--root", "/app", "-r", "r.json", "t.tmpl"}, "",
     "%%REG($REGROOT/port)%%", 0, "80\n", ""},
    {"TagFirstWins", {"-t", "n=one", "--tag", "n=two", "-t", "e=", "t.tmpl"}, "",
     "%%TAG(n)%%[%%TAG(e)%%]", 0, "one[]\n", ""},
    {"IfTag", {"-t", "z=0", "-t", "m=-7", "-t", "n=7x", "-t", "s= 7", "-t", "e=", "t.tmpl"}, "",
     "%%IF TAG(z)%%a%%ENDIF%%%%IF TAG(m) == -7%%b%%ENDIF%%%%IF TAG(m)%%c%%ENDIF%%\n"
     "%%IF TAG(n) != 5%%d%%ENDIF%%%%IF TAG(s) != 5%%e%%ENDIF%%%%IF TAG(e) != 5%%f%%ENDIF%%",
     0, "bc\n\n", ""},
    {"UnknownTag", {"t.tmpl"}, "", "%%TAG(m)%%x", 0, "x\n",
     "WARNING t.tmpl/1: tag for 'm' not found.\n"},
    {"CommentAffixes", {"--comment-prefix", "#", "--comment-prefix", "/*", "--comment-suffix", "*/",
     "t.tmpl"}, "", "b=%%NOPE%% end", 0,
     "b= /* WARNING t.tmpl/1: No command handler for 'NOPE' found */ end\n", s_nope},
    {"NoDebug", {"t.tmpl"}, "", "x%%TAG%%", 0, "x\n", ""},
    {"OneReportALine", {"t.tmpl"}, "", "%%NOPE%%%%A%%\n%%B%%", 0, "\n\n",
     s_nope + "WARNING t.tmpl/1: No command handler for 'A' found\n"
              "WARNING t.tmpl/2: No command handler for 'B' found\n"},
    {"StandardInput", {"-", "-"}, "", "%%NOPE%%x", 0, "x\n",
     "WARNING -/1: No command handler for 'NOPE' found\n"},
    {"NewerVersion", {"t.tmpl"}, "", "a\nb%%TEMPLATE_VERSION(2)%%c\nd\n", 1, "a\nb", s_newer},
    {"NewerVersionToFile", {"t.tmpl"}, "out.conf", "a\n%%TEMPLATE_VERSION(2)%%", 1, "", s_newer},
    {"StrictWarning", {"--strict", "t.tmpl"}, "", "%%NOPE%%a", 4, "a\n", s_nope},
    {"StrictWarningToFile", {"--strict", "t.tmpl"}, "out.conf", "%%NOPE%%a", 4, "", s_nope},
    {"StrictIgnoresDebug", {"--strict", "--debug", "t.tmpl"}, "out.conf", "x%%TAG%%", 0, "x\n",
     s_debug},
    {"StrictNewerVersion", {"--strict", "t.tmpl"}, "out.conf", "%%NOPE%%\n%%TEMPLATE_VERSION(2)%%",
     1, "", s_nope + s_newer},
    {"MissingTemplate", {"missing.tmpl"}, "out.conf", "", 3, "", s_missing},
    {"StrictMissingTemplate", {"--strict", "missing.tmpl"}, "", "", 3, "", s_missing},
    {"TemplateIsDirectory", {"d"}, "out.conf", "", 3, "", "Could not open template file 'd'\n"},
    {"OutputDirectoryMissing", {"t.tmpl"}, "nodir/out.conf", "%%TEMPLATE_VERSION(2)%%", 3,
     "",
     s_noTemporary + "'nodir/out.conf': No such file or directory\n"},
    {"OutputUnderProcFile", {"--strict", "t.tmpl"}, "/proc/version/x", "%%NOPE%%", 3, "",
     s_noTemporary + "'/proc/version/x': Not a directory\n"},
    {"OutputInProc", {"t.tmpl"}, "/proc/version", "", 3, "",
     s_noTemporary + "'/proc/version': No such file or directory\n"},
    {"UnknownOption", {"--bogus", "missing.tmpl"}, "out.conf", "", 2, "",
     s_tool + "Unknown option 'bogus'." + s_hint},
    {"OptionWithoutValue", {"t.tmpl", "-r"}, "", "", 2, "",
     s_tool + "Missing value after '-r'." + s_hint},
    {"SetWithoutEquals", {"-s", "k", "t.tmpl"}, "", "", 2, "",
     s_tool + "--set expects KEY=VALUE, got 'k'" + s_hint},
    {"TagWithoutEquals", {"--tag", "n", "t.tmpl"}, "", "", 2, "",
     s_tool + "--tag expects NAME=TEXT, got 'n'" + s_hint},
    {"ThirdArgument", {"t.tmpl", "o.conf", "x"}, "", "", 2, "",
     s_tool + "unexpected argument 'x'" + s_hint},
    {"NoTemplate", {}, "", "", 2, "", s_tool + "missing TEMPLATE" + s_hint},
    {"BadRegistryFile", {"-r", "r.json", "-r", "bad.json", "missing.tmpl"}, "out.conf", "", 2, "",
     s_tool + "bad.json: the top level of a JSON registry file must be an object\n"},
    {"BadRegistryBeforeVersion", {"--strict", "-r", "bad.conf", "t.tmpl"}, "out.conf",
     "%%NOPE%%%%TEMPLATE_VERSION(2)%%", 2, "",
     s_tool + "bad.conf:2: expected 'key = value', found no '='\n"},
    {"MissingRegistryFile", {"-r", "none.json", "t.tmpl"}, "", "", 2, "",
     s_tool + "none.json: cannot read registry file: No such file or directory\n"},
};
// clang-format on

// The parameterised runs use the rows; the other tests only the directory.
class TessivaneTemplateTool : public ::testing::TestWithParam<ToolRow>
{
protected:
    QTemporaryDir m_dir;
};

} // namespace

TEST_P(TessivaneTemplateTool, RendersOrLeavesOutputAsItWas)
{
    const ToolRow &row = GetParam();
    const bool hasOutput = *row.output, hasOldOutput = qstrcmp(row.output, "out.conf") == 0;
    writeFile(m_dir.filePath("t.tmpl"), row.templateText);
    writeFile(m_dir.filePath("r.json"), R"({"app":{"port":80,"name":"json"}})");
    writeFile(m_dir.filePath("r.conf"), "# app\n/app/name = conf\n/app/host = \"h 1\"\n");
    writeFile(m_dir.filePath("bad.conf"), "a = 1\nbroken\n");
    writeFile(m_dir.filePath("bad.json"), "[]");
    ASSERT_TRUE(QDir(m_dir.path()).mkdir("d"));
    const QString output = QDir(m_dir.path()).absoluteFilePath(QString::fromLatin1(row.output));
    if (hasOldOutput) {
        writeFile(output, "old\n");
        ASSERT_EQ(::chmod(QFile::encodeName(output).constData(), 0640), 0);
    }
    const QByteArray before = hasOutput ? readFile(output) : QByteArray();
    const QStringList listing = entries(m_dir.path());

    const ToolRun run = runTool(
        m_dir.path(), hasOutput ? row.args + QStringList(row.output) : row.args, row.templateText);
    EXPECT_EQ(run.code, row.code);
    EXPECT_EQ(run.err, row.err);
    EXPECT_EQ(run.out, hasOutput ? QByteArray() : row.out);
    if (hasOutput) {
        EXPECT_EQ(readFile(output), row.code == 0 ? row.out : before);
    }
    if (hasOldOutput) {
        EXPECT_EQ(fileStatus(output).st_mode & 07777, 0640u);
    }
    EXPECT_EQ(entries(m_dir.path()), listing);
}

INSTANTIATE_TEST_SUITE_P(Runs, TessivaneTemplateTool, ::testing::ValuesIn(s_rows),
                         [](const auto &row) { return std::string(row.param.name); });

TEST_F(TessivaneTemplateTool, NewOutputGetsDefaultModeLessUmask)
{
    writeFile(m_dir.filePath("t.tmpl"), "x\n");
    for (const mode_t mask : {022, 027, 002}) {
        const mode_t previous = ::umask(mask);
        const QString name = QString::number(mask, 8) + ".conf";
        EXPECT_EQ(runTool(m_dir.path(), {"t.tmpl", name}).code, 0);
        ::umask(previous);
        EXPECT_EQ(fileStatus(m_dir.filePath(name)).st_mode & 07777, 0666 & ~mask);
    }
    EXPECT_EQ(entries(m_dir.path()), QStringList({"2.conf", "22.conf", "27.conf", "t.tmpl"}));
}

TEST_F(TessivaneTemplateTool, LeavesIdenticalOutputUntouched)
{
    const QString output = m_dir.filePath("out.conf");
    writeFile(m_dir.filePath("t.tmpl"), "same %%TAG(n)%%\n");
    writeFile(output, "same 1\n");
    const struct utimbuf past = {1000000000, 1000000000};
    ASSERT_EQ(::utime(QFile::encodeName(output).constData(), &past), 0);
    const struct stat before = fileStatus(output);

    EXPECT_EQ(runTool(m_dir.path(), {"-t", "n=1", "t.tmpl", "out.conf"}).code, 0);
    EXPECT_EQ(fileStatus(output).st_ino, before.st_ino);
    EXPECT_EQ(fileStatus(output).st_mtime, before.st_mtime);
    EXPECT_EQ(runTool(m_dir.path(), {"-t", "n=2", "t.tmpl", "out.conf"}).code, 0);
    EXPECT_EQ(readFile(output), "same 2\n");
    EXPECT_NE(fileStatus(output).st_mtime, before.st_mtime);
}

TEST_F(TessivaneTemplateTool, ReplacesTargetOfSymbolicLink)
{
    ASSERT_TRUE(QDir(m_dir.path()).mkdir("sub"));
    const QString target = m_dir.filePath("sub/real.conf");
    writeFile(target, "old\n");
    ASSERT_EQ(::chmod(QFile::encodeName(target).constData(), 0640), 0);
    ASSERT_TRUE(QFile::link("sub/real.conf", m_dir.filePath("out.link")));
    writeFile(m_dir.filePath("t.tmpl"), "new\n");

    EXPECT_EQ(runTool(m_dir.path(), {"t.tmpl", "out.link"}).code, 0);
    EXPECT_EQ(QFileInfo(m_dir.filePath("out.link")).symLinkTarget(), target);
    EXPECT_EQ(readFile(target), "new\n");
    EXPECT_EQ(fileStatus(target).st_mode & 07777, 0640u);
    EXPECT_EQ(entries(m_dir.path()), QStringList({"out.link", "sub", "t.tmpl"}));
    EXPECT_EQ(entries(m_dir.filePath("sub")), QStringList({"real.conf"}));
}

TEST_F(TessivaneTemplateTool, HelpListsEveryOptionAndVersionPrintsIt)
{
    const ToolRun help = runTool(m_dir.path(), {"--help"});
    EXPECT_EQ(help.code, 0);
    for (const char *option :
         {"-r, --registry <FILE>", "-s, --set <KEY=VALUE>", "-R, --root <PATH>",
          "--comment-prefix <TEXT>", "--comment-suffix <TEXT>", "-d, --debug",
          "-t, --tag <NAME=TEXT>", "--strict", "-h, --help", "-V, --version"})
        EXPECT_TRUE(help.out.contains(option)) << option;
    const ToolRun version = runTool(m_dir.path(), {"-V", "missing.tmpl"});
    EXPECT_EQ(version.code, 0);
    EXPECT_EQ(help.err + version.err, "");
    const QRegularExpression versionLine("^tessivane-template 3\\.\\d+\\.\\d+\\n$");
    EXPECT_TRUE(versionLine.match(version.out).hasMatch()) << version.out.toStdString();
}
