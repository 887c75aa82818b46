#include "testsupport.h"

#include <string>
#include <vector>

// How the tool meets a failing machine: full disks, broken reads, pipes,
// links, access control lists and signals, each provoked for real. A row is a
// transcript run in a fresh directory that holds t.tmpl ("new") and out
// ("old", mode 0640); $SHIM names the library that makes system calls fail
// (failshim.cpp).

namespace {

using FailureRow = TranscriptRow;

const std::string s_tool = "tessivane-template: ";
const std::string s_bigTemplate =
    "yes 'line of text padding padding padding' | head -c 2000000 > big.tmpl\n";

// clang-format off
const std::vector<FailureRow> s_rows = {
    {"DiskFull", R"sh(
mkdir s; mount -t tmpfs -o size=512k tmpfs s 2>/dev/null \
    || { echo "mounting a tmpfs is not permitted here" >&2; exit 77; }
trap 'umount s' EXIT
echo old > s/out
)sh" + s_bigTemplate + "$T big.tmpl s/out; echo $?; cat s/out; ls -A s",
     "3\nold\nout\n", s_tool + "cannot write 's/out': No space left on device\n"},
    {"FileSizeLimit", s_bigTemplate + "(ulimit -f 100; $T big.tmpl out); echo $?; cat out; ls -A",
     "3\nold\nbig.tmpl\nout\nt.tmpl\n", s_tool + "cannot write 'out': File too large\n"},
    // A bind-mounted file cannot be renamed over: no fallback to writing in place.
    {"BindMountedFile", R"sh(
echo other > src; mount --bind src out 2>/dev/null \
    || { echo "bind mounts are not permitted here" >&2; exit 77; }
trap 'umount out' EXIT
$T t.tmpl out; echo $?; cat out src; ls -A)sh",
     "3\nother\nother\nout\nsrc\nt.tmpl\n", s_tool + "cannot replace 'out': Device or resource busy\n"},

    // Lines of 37 bytes: the read that breaks off at byte 100,000 is in line 2,703.
    {"ReadErrorInTemplate", s_bigTemplate
     + "LD_PRELOAD=$SHIM TT_FAIL_READ=big.tmpl:100000 $T big.tmpl out; echo $?; cat out",
     "3\nold\n", "WARNING big.tmpl/2703: Could not read file 'big.tmpl': Input/output error\n"},
    {"ReadErrorInInclude", s_bigTemplate + R"sh(
echo 'a%%INCLUDE_FILE(big.tmpl)%%b' > i.tmpl
LD_PRELOAD=$SHIM TT_FAIL_READ=big.tmpl:100000 $T i.tmpl out; echo $?; cat out)sh",
     "3\nold\n", "WARNING big.tmpl/2703: Could not read file 'big.tmpl': Input/output error\n"},
    {"ReadErrorInFifo", s_bigTemplate + R"sh(
mkfifo f; cat big.tmpl > f &
LD_PRELOAD=$SHIM TT_FAIL_READ=f:100000 $T f out; echo $?; cat out)sh",
     "3\nold\n", "WARNING f/2703: Could not read file 'f': Input/output error\n"},
    {"ReadErrorInRegistry", R"sh(
printf 'a = 1\nb = 2\n' > r.conf
LD_PRELOAD=$SHIM TT_FAIL_READ=r.conf:6 $T -r r.conf t.tmpl out; echo $?; cat out)sh",
     "2\nold\n", s_tool + "r.conf: cannot read registry file: Input/output error\n"},
    {"ReadErrorProcMemory", "$T /proc/self/mem out; echo $?; cat out", "3\nold\n",
     "WARNING /proc/self/mem/1: Could not read file '/proc/self/mem': Input/output error\n"},
    // Every write is checked, however short; a failed flush to disk fails the run.
    {"ShortWrites", s_bigTemplate + R"sh(
LD_PRELOAD=$SHIM TT_SHORT_WRITES=7 $T big.tmpl out; echo $?; (cat big.tmpl; echo) | cmp - out && echo same)sh",
     "0\nsame\n", ""},
    {"FailedFlushToDisk", "LD_PRELOAD=$SHIM TT_FAIL_FSYNC=1 $T t.tmpl out; echo $?; cat out",
     "3\nold\n", s_tool + "cannot write 'out': Input/output error\n"},
    // A failed write outranks a newer template version.
    {"FullStandardOutputAndNewerVersion",
     "printf 'a\\n%%%%TEMPLATE_VERSION(2)%%%%\\n' > v.tmpl; $T v.tmpl > /dev/full; echo $?", "3\n",
     "WARNING v.tmpl/2: template is version 2, parser is version 1.\n" + s_tool
         + "cannot write standard output: No space left on device\n"},
    {"DirectoryOnStandardInput", "$T - out < .; echo $?; cat out", "3\nold\n",
     "WARNING -/1: Could not read file '-': Is a directory\n"},

    {"ProcessSubstitution", "$T <(printf 'from a process\\n') out; echo $?; cat out",
     "0\nfrom a process\n", ""},
    {"DevStdinAndSlowPipe", R"sh(
printf 'piped\n' | $T /dev/stdin
{ printf 'a\n'; sleep 0.2; printf 'b\n'; } | $T /dev/stdin out; cat out)sh", "piped\na\nb\n", ""},
    {"Fifo", "mkfifo f; printf 'fifo\\n' > f & $T f out; echo $?; cat out", "0\nfifo\n", ""},
    // A byte order mark split over two reads of a pipe still tells UTF-16.
    {"Utf16MarkSplitOverReads",
     "{ printf '\\377'; sleep 0.2; printf '\\376a\\0\\n\\0'; } | $T -", "a\n", ""},
    {"IncludedStandardInput",
     "echo '<%%INCLUDE_FILE(/dev/stdin)%%>' > i.tmpl; printf 'in\\n' | $T i.tmpl", "<in\n>\n", ""},

    // The kernel resolves dl2 before "..": dl2/../x is p/x, and ../real beside p/q/out is p/real.
    {"LinksResolvedByTheSystem", R"sh(
mkdir -p p/q; echo target > p/real; echo unrelated > real
ln -s p/q dl2; ln -s ../real p/q/out
$T t.tmpl dl2/out; echo $?; cat p/real real; readlink p/q/out
$T t.tmpl dl2/../x; cat p/x; ls -A p)sh",
     "0\nnew\nunrelated\n../real\nnew\nq\nreal\nx\n", ""},
    {"LinkLoop", "ln -s loop loop; $T t.tmpl loop; echo $?", "3\n",
     s_tool + "cannot write 'loop': Too many levels of symbolic links\n"},
    // Names of streams already open are written where they lead, never replaced.
    {"StreamNames", R"sh(
echo earlier > app.log
$T t.tmpl /dev/stdout >> app.log; echo $?
$T t.tmpl /proc/self/fd/3 3>> app.log
cat app.log
$T t.tmpl /dev/stdout | cat
$T t.tmpl /dev/stderr 2>&1 >/dev/null | cat
ln -s /dev/stdout so; $T t.tmpl so >> app.log; $T t.tmpl /dev//stdout >> app.log
$T t.tmpl /proc/self/fd/../fd/1 >> app.log; tail -3 app.log
$T t.tmpl /dev/fd/7; echo $?)sh",
     "0\nearlier\nnew\nnew\nnew\nnew\nnew\nnew\nnew\n3\n",
     s_tool + "cannot write '/dev/fd/7': Bad file descriptor\n"},
    // A regular file under /dev is replaced like any other: a failed run leaves it whole.
    {"RegularFileUnderDev", R"sh(
[ -d /dev/shm ] || { echo "no /dev/shm here" >&2; exit 77; }
shm=/dev/shm/tt-failures-$$; echo old > $shm
$T /proc/self/mem $shm 2>/dev/null; echo $?; cat $shm; rm $shm)sh", "3\nold\n", ""},
    // Without the privilege to link by descriptor alone, /proc links the temporary.
    {"LinkedThroughProc", "LD_PRELOAD=$SHIM TT_FAIL_EMPTY_PATH=1 $T t.tmpl out; echo $?; cat out",
     "0\nnew\n", ""},
    {"OwnerAndGroupKept", "chown 12345:12345 out; $T t.tmpl out; stat -c %u:%g:%a out; cat out",
     "12345:12345:640\nnew\n", ""},

    {"AccessControlListKept", R"sh(
setfacl -m u:12345:--- out 2>/dev/null || { echo "no ACLs on this file system" >&2; exit 77; }
$T t.tmpl out; echo $?; getfacl -c out; cat out)sh",
     "0\nuser::rw-\nuser:12345:---\ngroup::r--\nmask::r--\nother::---\n\nnew\n", ""},
    {"DefaultAclGrantsNothingNew", R"sh(
mkdir d; setfacl -d -m u:12345:rw d 2>/dev/null || { echo "no ACLs on this file system" >&2; exit 77; }
echo old > d/out; setfacl -b d/out; chmod 640 d/out
$T t.tmpl d/out; echo $?; getfacl -c d/out)sh",
     "0\nuser::rw-\ngroup::r--\nother::---\n\n", ""},
    {"ExtendedAttributesKept", R"sh(
setfattr -n user.note -v hello out 2>/dev/null \
    || { echo "no user attributes on this file system" >&2; exit 77; }
$T t.tmpl out; echo $?; getfattr -d out)sh",
     "0\n# file: out\nuser.note=\"hello\"\n\n", ""},

    // One byte too many, from a file and from a pipe alike.
    {"LineTooLong", R"sh(
truncate -s 1073676288 long.tmpl; echo >> long.tmpl
$T long.tmpl out; echo $?; cat long.tmpl | $T - out; echo $?; cat out)sh", "3\n3\nold\n",
     "WARNING long.tmpl/1: Could not read file 'long.tmpl': a line is longer than 1073676288 bytes\n"
     "WARNING -/1: Could not read file '-': a line is longer than 1073676288 bytes\n"},
    {"EndlessRegistryFile", "$T -r /dev/zero t.tmpl out; echo $?; cat out", "2\nold\n",
     s_tool + "/dev/zero: cannot read registry file: larger than 1 GiB\n"},
    // Refused at the first line that is not UTF-8, not after a gigabyte.
    {"RandomRegistryFile", "$T -r /dev/urandom t.tmpl out; echo $?; cat out", "2\nold\n",
     "^" + s_tool + "/dev/urandom:\\d+: .*\n$"},
    {"HugeRegistryFile", "truncate -s 3G s.conf; $T -r s.conf t.tmpl out; echo $?; cat out",
     "2\nold\n", s_tool + "s.conf: cannot read registry file: larger than 1 GiB\n"},
    // The temporary's name is shortened to fit beside a name of the longest length.
    {"LongestNames", R"sh(
for length in 248 255; do
    name=$(head -c $length /dev/zero | tr '\0' n); $T t.tmpl $name; echo $?; cat $name; rm $name
done; ls -A)sh", "0\nnew\n0\nnew\nout\nt.tmpl\n", ""},

    // The caller's choice stands: nohup and trap '' keep their signals away.
    {"IgnoredSignalsStayIgnored", R"sh(
set -m; mkfifo f
{ echo '%%NOPE%%'; exec sleep 30; } > f & writer=$!; disown
trap '' HUP INT
$T f out 2> err & tool=$!
until grep -qs WARNING err; do sleep 0.01; done
kill -HUP $tool; kill -INT $tool; sleep 0.1
{ kill $writer; wait $tool; echo $?; } 2>/dev/null; cat out)sh", "0\n\n", ""},
    {"BrokenPipeOnStandardError", R"sh(
for i in $(seq 5000); do echo '%%NOPE%%'; done > many.tmpl
$T many.tmpl out 2>&1 | head -1; echo ${PIPESTATUS[0]}; cat out; ls -A)sh",
     "WARNING many.tmpl/1: No command handler for 'NOPE' found\n141\nold\nmany.tmpl\nout\nt.tmpl\n",
     ""},
};
// clang-format on

// A signal ends the tool while it waits for the rest of its template. The
// script prints how many named temporaries there are before the signal, the
// exit status, OUTPUT and the directory after it.
FailureRow signalRow(const char *signal, int number, bool hasUnnamedFiles)
{
    const std::string fail = hasUnnamedFiles ? "" : "LD_PRELOAD=$SHIM TT_FAIL_TMPFILE=1 ";
    return {std::string(hasUnnamedFiles ? "Unnamed" : "Named") + signal,
            R"sh(
set -m; ulimit -c 0; mkfifo f
{ echo '%%NOPE%%'; exec sleep 30; } > f & writer=$!; disown
)sh" + fail + R"sh($T f out 2> err & tool=$!
until grep -qs WARNING err; do sleep 0.01; done
ls -A | grep -c '^\.out\.'
{ kill -)sh" + signal
                + R"sh( $tool; wait $tool; echo $?; } 2>/dev/null
kill $writer; cat out; ls -A)sh",
            (hasUnnamedFiles ? "0\n" : "1\n") + std::to_string(128 + number)
                + "\nold\nerr\nf\nout\nt.tmpl\n",
            ""};
}

std::vector<FailureRow> signalRows()
{
    const std::vector<std::pair<const char *, int>> endings = {
        {"HUP", 1},   {"INT", 2},     {"QUIT", 3},  {"ILL", 4},   {"TRAP", 5},
        {"ABRT", 6},  {"BUS", 7},     {"FPE", 8},   {"KILL", 9},  {"USR1", 10},
        {"SEGV", 11}, {"USR2", 12},   {"PIPE", 13}, {"ALRM", 14}, {"TERM", 15},
        {"XCPU", 24}, {"VTALRM", 26}, {"PROF", 27}, {"SYS", 31}};
    std::vector<FailureRow> rows;
    for (const auto &signal : endings) {
        rows.push_back(signalRow(signal.first, signal.second, true));
        // Without unnamed files a name exists from the start: every signal that can be
        // caught removes it.
        if (signal.second != 9)
            rows.push_back(signalRow(signal.first, signal.second, false));
    }
    return rows;
}

using ToolFailures = ::testing::TestWithParam<FailureRow>;

TEST_P(ToolFailures, LeavesOutputAsItWasAndNoTemporaryBehind)
{
    QTemporaryDir dir;
    writeFile(dir.filePath("t.tmpl"), "new\n");
    writeFile(dir.filePath("out"), "old\n");
    ASSERT_TRUE(QFile::setPermissions(dir.filePath("out"),
                                      QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup));
    expectTranscript(GetParam(), dir.path());
}

INSTANTIATE_TEST_SUITE_P(Rows, ToolFailures, ::testing::ValuesIn(s_rows), testRowName);
INSTANTIATE_TEST_SUITE_P(Signals, ToolFailures, ::testing::ValuesIn(signalRows()), testRowName);

} // namespace
