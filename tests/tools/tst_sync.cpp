#include "testsupport.h"

#include <QProcess>

#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

// The sync tool on real files: a cycle of three templates, dry runs,
// attributes, checks that hang, configuration errors, and --watch with its
// signals. Each row is a transcript (testsupport.h) that starts from the
// files s_setup writes.

namespace {

// Three templates: one that renders (with a registry default, which strict
// allows), one whose check fails, one that fails under strict. The last two
// destinations hold "old".
const std::string s_setup = R"sh(
mkdir out; echo old > out/badcheck.conf; echo old > out/strict.conf
printf '/app/port = 80\n' > reg.conf
echo 'port=%%REG($REGROOT/port)%% %%REG(/nope)()("d")%%' > good.tmpl
echo 'x=%%REG(/missing)%%' > strict.tmpl
echo plain > plain.tmpl
cat > sync.toml <<'EOF'
[registry]
files = ["reg.conf"]
root = "/app"

[[template]]
name = "good"
source = "good.tmpl"
destination = "out/good.conf"
check = "grep -q port= {staged}"
reload = "echo reloaded >> reloads.log"

[[template]]
name = "badcheck"
source = "good.tmpl"
destination = "out/badcheck.conf"
check = "echo checker says no; exit 1"
reload = "echo reloaded >> reloads.log"

[[template]]
name = "strict"
source = "strict.tmpl"
destination = "out/strict.conf"
EOF
)sh";

const std::string s_log = "tessivane-sync: ";
const std::string s_default = s_log
    + "good: WARNING @/good.tmpl/1: Could not find regkey /nope, but "
      "have default value. writing default value d\n";
const std::string s_failures = s_log
    + "badcheck: WARNING @/good.tmpl/1: Could not find regkey /nope, but have default value. "
      "writing default value d\n"
    + s_log + "badcheck: check failed (exit status 1): echo checker says no; exit 1\n" + s_log
    + "badcheck: checker says no\n" + s_log
    + "strict: WARNING @/strict.tmpl/1: Could not find regkey /missing\n" + s_log
    + "strict: not rendered: a warning under strict\n";

// One template watched, with a quiet time of 100 ms; seen PATTERN waits for the
// destination to show PATTERN, at most the quiet time and one second.
const std::string s_watch = R"sh(
cat > w.toml <<'EOF'
[registry]
files = ["reg.conf"]
root = "/app"
[watch]
wait = "100ms"
wait_max = "1s"
[[template]]
name = "w"
source = "good.tmpl"
destination = "out/w.conf"
EOF
until_shows() { timeout $1 sh -c "until grep -q '$2' out/w.conf 2>/dev/null; do sleep 0.02; done"; }
seen() { until_shows 1.1 "$1" && echo "seen $1"; }
$S --watch w.toml 2> log & sync=$!
until_shows 10 port=80
)sh";

// clang-format off
const std::vector<TranscriptRow> s_rows = {
    // Only what passed is replaced, and its reload runs once; a second run touches nothing.
    // What a killed run left staged is removed.
    {"ReplacesOnlyWhatPassed", s_setup + R"sh(
touch out/.good.conf.tessivane-AbC123
$S sync.toml; echo $?; ls -A out; cat out/*; cat reloads.log
before=$(stat -c '%i %Y' out/good.conf)
$S sync.toml; echo $?; [ "$before" = "$(stat -c '%i %Y' out/good.conf)" ] && echo untouched
wc -l < reloads.log; $S -n good sync.toml; echo $?)sh",
     "1\nbadcheck.conf\ngood.conf\nstrict.conf\nold\nport=80 d\nold\nreloaded\n1\nuntouched\n1\n0\n",
     s_default + s_log + "good: replaced @/out/good.conf\n" + s_failures + s_log
         + "good: reload 'echo reloaded >> reloads.log' done\n" + s_default + s_log
         + "good: unchanged @/out/good.conf\n" + s_failures + s_default + s_log
         + "good: unchanged @/out/good.conf\n"},
    {"DryRunShowsWhatWouldChange", s_setup + R"sh(
$S --dry-run -n good sync.toml; echo $?; ls out
$S -n good sync.toml 2>/dev/null; $S --dry-run -n good sync.toml; echo $?)sh",
     "--- /dev/null\n+++ @/out/good.conf\n@@ -0,0 +1 @@\n+port=80 d\n3\nbadcheck.conf\n"
     "strict.conf\n0\n",
     s_default + s_log + "good: would replace @/out/good.conf\n" + s_default + s_log
         + "good: unchanged @/out/good.conf\n"},
    // Given attributes are applied, kept, and restored when they drift.
    {"AttributesAppliedAndKept", s_setup + R"sh(
printf '[[template]]\nsource = "plain.tmpl"\ndestination = "out/a"\nmode = "0640"\n' > a.toml
printf 'owner = "nobody"\ngroup = 12345\n' >> a.toml
$S a.toml; stat -c '%a %U %g' out/a; before=$(stat -c %i out/a)
$S a.toml; [ "$before" = "$(stat -c %i out/a)" ] && echo untouched
chmod 644 out/a; $S a.toml; stat -c '%a %U %g' out/a)sh",
     "640 nobody 12345\nuntouched\n640 nobody 12345\n",
     s_log + "@/out/a: replaced @/out/a\n" + s_log + "@/out/a: unchanged @/out/a\n" + s_log
         + "@/out/a: replaced @/out/a\n"},
    {"LanguageTwo", s_setup + R"sh(
echo '%%FOREACH $X IN REG(/l)%%%%ITEM($X)%%=%%REG_JSON($X)%% %%ENDFOREACH%%' > l.tmpl
printf '[registry]\nvalues = { "/l/a" = "1", "/l/b" = "2" }\n' > l.toml
printf '[[template]]\nname = "l"\nsource = "l.tmpl"\ndestination = "out/l"\nlanguage = 2\n' >> l.toml
$S l.toml; echo $?; cat out/l)sh", "0\na=\"1\" b=\"2\" \n", s_log + "l: replaced @/out/l\n"},
    // The timeout ends the check's whole process group.
    {"HangingCheckKilledWithChildren", s_setup + R"sh(
printf '[[template]]\nname = "hang"\nsource = "plain.tmpl"\ndestination = "out/h"\n' > h.toml
printf 'check = "sleep 300 & echo $! > child.pid; wait"\ntimeout = "1s"\n' >> h.toml
$S h.toml; echo $?; case $(ps -o stat= -p $(cat child.pid)) in "" | Z*) echo child ended ;; esac
ls -A out)sh", "1\nchild ended\nbadcheck.conf\nstrict.conf\n",
     s_log + "hang: check failed (timed out after 1 s): sleep 300 & echo $! > child.pid; wait\n"},
    // Every error names the file, the line and column, and the key; nothing is written.
    {"ConfigurationErrorsWriteNothing", s_setup + R"sh(
while read -r config; do printf "$config\n" > bad.toml; $S bad.toml; echo $?; done <<'EOF'
x = 1
[[template]]\nsource = "a"
[watch]\nwait = "soon"
[watch]\nwait = "2s"\nwait_max = "1s"
[[template]]\nsource = "a"\ndestination = "b"\nmode = "rw"
[[template]]\nsource = "a"\ndestination = "b"\nowner = "no-such-user"
[[template]]\nsource = "a"\ndestination = "b"\nrelaod = "x"
[registry\nfiles = 1
[registry]\nroot = "\u20ac"
[registry]\nroot = "a\\u0000b"
[[template]]\nsource = "a"\ndestination = "b"\nmode = 640
[[template]]\nsource = "a"\ndestination = "b"\ntimeout = "0s"
[etcd]\nendpoints = ["ftp://x"]\nprefix = "/a"
[etcd]\nprefix = "/a"\npassword_file = "nope"
[etcd]\nprefix = "/a"\nca_file = "sync.toml"
[etcd]\nprefix = "/a"\npage_size = 10
[watch]\nbackoff_max = "0s"
EOF
mkdir d; printf '[[template]]\nname = "x"\nsource = "a"\ndestination = "b"\n' > d/1.toml
cp d/1.toml d/2.toml; $S d; echo $?; sed -i 's/"x"/"y"/' d/2.toml; $S d; echo $?; $S -n nope sync.toml; echo $?; ls out)sh",
     "2\n2\n2\n2\n2\n2\n2\n2\n2\n2\n2\n2\n2\n2\n2\n2\n2\n2\n2\n2\nbadcheck.conf\nstrict.conf\n",
     s_log + "bad.toml:1:1: x: unknown key\n"
     + s_log + "bad.toml:1:1: template.destination: missing\n"
     + s_log + "bad.toml:2:8: watch.wait: expected a duration such as \"200ms\", \"30s\" or \"5m\"\n"
     + s_log + "bad.toml:1:1: watch.wait_max: shorter than watch.wait\n"
     + s_log + "bad.toml:4:8: template.mode: expected octal permission bits such as \"0640\"\n"
     + s_log + "bad.toml:4:9: template.owner: no such owner 'no-such-user'\n"
     + s_log + "bad.toml:4:1: template.relaod: unknown key\n"
     + s_log + "bad.toml:1:10: Error while parsing table header: expected ']', saw '\\n'\n"
     + s_log + "bad.toml:2:8: registry.root: takes Latin-1 text only\n"
     + s_log + "bad.toml:2:8: registry.root: takes Latin-1 text only\n"
     + s_log + "bad.toml:4:8: template.mode: expected octal permission bits such as \"0640\"\n"
     + s_log + "bad.toml:4:11: template.timeout: must be longer than 0\n"
     + s_log + "bad.toml:2:13: etcd.endpoints: not an http or https URL: ftp://x\n"
     + s_log + "bad.toml:3:17: etcd.password_file: @/nope: No such file or directory\n"
     + s_log + "bad.toml:3:11: etcd.ca_file: @/sync.toml: holds no PEM certificate\n"
     + s_log + "bad.toml:3:13: etcd.page_size: expected a number from 100 to 1000000\n"
     + s_log + "bad.toml:2:15: watch.backoff_max: shorter than 100ms\n"
     + s_log + "d/2.toml:1: template.name: 'x' is given before, at d/1.toml:1\n"
     + s_log + "d/2.toml:1: template.destination: '@/d/b' is given before, at d/1.toml:1\n"
     + s_log + "no template is named 'nope' (see 'tessivane-sync --help')\n"},

    // An edit in place and a save by rename are each seen within the quiet time and a
    // second; a burst of 50 edits makes at most two cycles.
    {"WatchSeesEditsRenamesAndDebounces", s_setup + s_watch + R"sh(
printf '/app/port = 81\n' > reg.conf; seen port=81
printf '/app/port = 82\n' > reg.new; mv reg.new reg.conf; seen port=82
cycles=$(grep -c replaced log)
for i in $(seq 50); do printf "/app/port = 9$i\n" > reg.conf; done
sleep 1.5; [ $(( $(grep -c replaced log) - cycles )) -le 2 ] && echo debounced; cat out/w.conf
kill $sync; wait $sync; echo $?)sh", "seen port=81\nseen port=82\ndebounced\nport=950 d\n0\n", ""},
    // A broken configuration, by SIGHUP or by an edit, is logged and the old one goes on.
    {"WatchKeepsConfigurationThatWorks", s_setup + s_watch + R"sh(
echo '[[broken' >> w.toml; kill -HUP $sync; sleep 0.3
printf '/app/port = 81\n' > reg.conf; seen port=81
grep 'configuration kept' log | sort -u | sed 's/.*invalid: //'
kill $sync; wait $sync; echo $?)sh", "seen port=81\nw.toml:11:9: Error while parsing table header: expected ']', saw '\\n'\n0\n", ""},
    // SIGTERM during a check ends the check, and with it the template, at once: no other is
    // begun, every destination stays whole, and no staged file is left behind.
    {"WatchEndsAfterTheWriteInProgress", s_setup + R"sh(
echo old > out/a; echo old > out/b
for name in a b; do
    printf '[[template]]\nname = "%s"\nsource = "plain.tmpl"\ndestination = "out/%s"\n' $name $name
    printf 'check = "touch checking; sleep 1"\n'
done > t.toml
$S --watch t.toml 2>/dev/null & sync=$!
until [ -e checking ]; do sleep 0.02; done; kill $sync; wait $sync; echo $?
cat out/a out/b; ls -A out)sh", "0\nold\nold\na\nb\nbadcheck.conf\nstrict.conf\n", ""},
    // A check may look at the staged file, not change it; a child that ignores SIGTERM is
    // killed at the end of the grace time.
    {"ChecksCannotTamperOrLinger", s_setup + R"sh(
printf '[[template]]\nname = "c"\nsource = "plain.tmpl"\ndestination = "out/c"\nmode = "0600"\n' > c.toml
printf 'check = "chmod 666 {staged}"\n' >> c.toml
$S c.toml 2>&1 | sed 's/c: check/c: check/'; echo ${PIPESTATUS[0]}; ls out
printf '[[template]]\nname = "d"\nsource = "plain.tmpl"\ndestination = "out/d"\ntimeout = "1s"\n' > d.toml
printf 'check = "sh -c \\"trap \\\\\\"\\\\\\" TERM; echo \\\\$\\\\$ > child.pid; exec sleep 300\\" & wait"\n' >> d.toml
$S d.toml 2>/dev/null; echo $?; sleep 0.2; case $(ps -o stat= -p $(cat child.pid)) in "" | Z*) echo child ended ;; esac)sh",
     "tessivane-sync: c: the check changed the staged file of '@/out/c': nothing is replaced\n1\n"
     "badcheck.conf\nstrict.conf\n1\nchild ended\n", ""},
    // A reload that failed is owed: it runs again at the next cycle, changed or not.
    {"WatchRetriesAFailedReload", s_setup + R"sh(
printf '[registry]\nfiles = ["reg.conf"]\n[watch]\nwait = "50ms"\n' > r.toml
printf '[[template]]\nname = "r"\nsource = "plain.tmpl"\ndestination = "out/r"\n' >> r.toml
printf 'reload = "test -e ready && touch reloaded"\n' >> r.toml
$S --watch r.toml 2> log & sync=$!
until grep -qs 'reload' log; do sleep 0.02; done
touch ready; echo '/other = 1' >> reg.conf
until [ -e reloaded ]; do sleep 0.02; done; kill $sync; wait $sync; echo $?
grep -o "r: .*" log)sh",
     "0\nr: replaced @/out/r\nr: reload 'test -e ready && touch reloaded' failed (exit status 1)\n"
     "r: unchanged @/out/r\nr: reload 'test -e ready && touch reloaded' done\n", ""},
    {"UnitAcceptedBySystemd", R"sh(
command -v systemd-analyze >/dev/null || { echo "no systemd-analyze here" >&2; exit 77; }
sed "s|^ExecStart=[^ ]*|ExecStart=$S|" "$(dirname $S)/tessivane-sync.service" > tessivane-sync.service
grep -c '^Type=notify$' tessivane-sync.service
MANPATH=$(dirname $S)/man systemd-analyze verify ./tessivane-sync.service
echo $?)sh", "1\n0\n", ""},
};
// clang-format on

using TessivaneSync = ::testing::TestWithParam<TranscriptRow>;

TEST_P(TessivaneSync, KeepsDestinationsInStep)
{
    QTemporaryDir dir;
    expectTranscript(GetParam(), dir.path());
}

INSTANTIATE_TEST_SUITE_P(Rows, TessivaneSync, ::testing::ValuesIn(s_rows), testRowName);

// Under systemd the first cycle ends with READY=1 on the notification socket;
// so does one that waits for etcd, so that the unit does not time out.
TEST(TessivaneSyncNotify, ReportsReadyAfterTheFirstCycle)
{
    const struct
    {
        QByteArray etcd;
        QByteArray notification;
        QByteArray output;
    } rows[] = {
        {"", "READY=1\nSTATUS=1 replaced, 0 unchanged, 0 failed", "x\n"},
        {"[etcd]\nendpoints = [\"http://127.0.0.1:1\"]\nprefix = \"/a/\"\n",
         "READY=1\nSTATUS=waiting for etcd", ""},
    };
    for (const auto &row : rows) {
        QTemporaryDir dir;
        writeFile(dir.filePath("t.tmpl"), "x\n");
        writeFile(dir.filePath("s.toml"),
                  row.etcd + "[[template]]\nsource = \"t.tmpl\"\ndestination = \"out\"\n");
        const QByteArray socketPath = QFile::encodeName(dir.filePath("notify"));
        const int socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, socketPath.constData(), sizeof address.sun_path - 1);
        ASSERT_EQ(::bind(socket, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
        const timeval timeout = {30, 0};
        ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);

        QProcess sync;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("NOTIFY_SOCKET", QString::fromLocal8Bit(socketPath));
        sync.setProcessEnvironment(environment);
        sync.setWorkingDirectory(dir.path());
        sync.start(TT_SYNC_PATH, {"--watch", "s.toml"});
        char message[256] = {};
        const ssize_t size = ::recv(socket, message, sizeof message - 1, 0);
        sync.terminate();
        EXPECT_TRUE(sync.waitForFinished(30000));
        ::close(socket);
        EXPECT_EQ(QByteArray(message, int(qMax<ssize_t>(size, 0))), row.notification);
        EXPECT_EQ(readFile(dir.filePath("out")), row.output);
        EXPECT_EQ(sync.exitCode(), 0);
    }
}

} // namespace
