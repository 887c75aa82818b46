#include "testsupport.h"

#include <string>
#include <vector>

// The etcd registry source against real etcd members (tools/etcd.sh starts
// them on free ports): snapshots, the watch, a cluster that loses members or
// all of them, compaction, authentication and TLS. Each row is a transcript
// (testsupport.h).

namespace {

// A one-template configuration over the members in $EP: sync_config FILE TEMPLATE [KEYS...]
// writes it, with the keys given added to [etcd].
const std::string s_library = R"sh(
source $ETCDLIB
sync_config() {
    local file=$1 source=$2; shift 2
    { echo '[etcd]'; echo "endpoints = [\"${EP//,/\", \"}\"]"; echo 'prefix = "/app/"'
      for key in "$@"; do echo "$key"; done
      printf '[watch]\nwait = "0ms"\nbackoff_max = "1s"\n'
      printf '[[template]]\nname = "t"\nsource = "%s"\ndestination = "out"\nlanguage = 2\n' $source
    } > $file
}
shows() { timeout ${2:-10} sh -c "until grep -qx '$1' out 2>/dev/null; do sleep 0.02; done" && echo "seen $1"; }
)sh";

// clang-format off
const std::vector<TranscriptRow> s_rows = {
    // 100,000 keys read 1,000 at a time while a writer keeps putting: what the snapshot holds
    // is what etcd itself holds at the snapshot's revision.
    {"SnapshotIsOneRevision", s_library + R"sh(
etcd_cluster 1 --max-txn-ops 10000
for t in $(seq 0 9); do
    { echo; seq -f "put /app/k%05g v0" $((t * 10000)) $((t * 10000 + 9999)); echo; echo; } | ectl txn >/dev/null
done
( i=0; while :; do i=$((i + 1)); ectl put /app/k00042 w$i >/dev/null; ectl put /app/k99999 w$i >/dev/null; done ) &
writer=$!
awk 'BEGIN { for (i = 0; i < 100000; i++) printf "k%05d %%%%REG(/app/k%05d)%%%%\n", i, i }' > all.tmpl
sync_config s.toml all.tmpl 'page_size = 1000'
sleep 0.3; $S s.toml 2> log; echo $?; kill $writer
revision=$(grep -o 'snapshot of 100000 keys at revision [0-9]*' log | grep -o '[0-9]*$')
ectl get --prefix /app/ --rev=$revision | paste - - | sed 's|^/app/||; s|\t| |' > expected
wc -l < out; cmp expected out && echo "the revision's own values")sh",
     "0\n100000\nthe revision's own values\n", ""},

    // A put, a delete and a burst each arrive; two keys changed in one transaction are never
    // seen one without the other; a key that is not UTF-8 is skipped, and a key whose value
    // is not is left out, each with a line that names it.
    {"WatchFollowsPutsDeletesAndTransactions", s_library + R"sh(
etcd_cluster 1
ectl put /app/a 1 >/dev/null; ectl put /app/b 1 >/dev/null
echo 'a=%%REG(/app/a)()("-")%% b=%%REG(/app/b)()("-")%%' > t.tmpl
sync_config w.toml t.tmpl
$S --watch w.toml 2> log & sync=$!
shows 'a=1 b=1'
ectl put /app/a 2 >/dev/null; shows 'a=2 b=1'
ectl del /app/b >/dev/null; shows 'a=2 b=-'
for i in $(seq 3 40); do ectl put /app/a $i >/dev/null; done; shows 'a=40 b=-'
( while :; do cat out; done ) > seen 2>/dev/null & reader=$!
for i in $(seq 1 30); do printf '\nput /app/a t%s\nput /app/b t%s\n\n\n' $i $i | ectl txn >/dev/null; done
shows 'a=t30 b=t30'; kill $reader
awk '{ split($1, a, "="); split($2, b, "="); if (a[2] ~ /^t/ && a[2] != b[2]) print "torn:", $0 }' seen | head -1
ectl put $'/app/\xff' x >/dev/null; ectl put /app/a $'\xfe' >/dev/null; shows 'a=- b=t30'
grep -o 'etcd: skipped .*' log
kill $sync; wait $sync; echo $?)sh",
     "seen a=1 b=1\nseen a=2 b=1\nseen a=2 b=-\nseen a=40 b=-\nseen a=t30 b=t30\nseen a=- b=t30\n"
     "etcd: skipped a key that is not UTF-8: /app/%FF\netcd: skipped /app/a: its value is not UTF-8\n"
     "0\n", ""},

    // A cluster of three: the member the watch is on stops answering (SIGSTOP), which only a
    // read on the side notices; all stop for 10 s, in which the destination stays and the
    // process idles; a compaction passes the watch while the
    // process is stopped; every key is deleted under a strict template.
    {"ClusterFaults", s_library + R"sh(
etcd_cluster 3
ectl put /app/v 1 >/dev/null
echo 'v=%%REG(/app/v)%%' > t.tmpl
sync_config w.toml t.tmpl 'timeout = "1s"'
$S --watch w.toml 2> log & sync=$!
shows 'v=1'
kill -STOP ${etcd_pids[1]} # a put that reached a stopped leader is lost: it is tried again
until EP=$EP2 ectl put /app/v 2 >/dev/null 2>&1; do sleep 0.2; done; shows 'v=2' 20
grep -q "waiting for etcd: $EP1: no answer within 1 s" log && echo "the silence noticed"
kill -CONT ${etcd_pids[1]}; etcd_stop 1; etcd_stop 2; etcd_stop 3
cpu() { awk '{ print $14 + $15 }' /proc/$sync/stat; }
before=$(cpu); sleep 10; after=$(cpu); cat out
[ $((after - before)) -lt 50 ] && echo "idle while etcd was away"
for i in 1 2 3; do etcd_start $i; done; etcd_healthy
ectl put /app/v 3 >/dev/null; shows 'v=3' 20
kill -STOP $sync
for i in 1 2 3; do etcd_stop $i; done; for i in 1 2 3; do etcd_start $i; done; etcd_healthy
for i in 4 5 6; do ectl put /app/v $i >/dev/null; done
ectl compact $(ectl get /app/v -w fields | grep '"Revision"' | grep -o '[0-9]*') >/dev/null
kill -CONT $sync; shows 'v=6' 20
grep -c 'reading a fresh snapshot' log
ectl del --prefix /app/ >/dev/null; sleep 1; cat out
grep -c 't: not rendered' log
kill $sync; wait $sync; echo $?)sh",
     "seen v=1\nseen v=2\nthe silence noticed\nv=2\nidle while etcd was away\nseen v=3\nseen v=6\n1\nv=6\n1\n0\n", ""},

    // A token is fetched, and fetched again once it expires; a wrong password is an error at
    // once without --watch, and retried with --watch.
    {"Authentication", s_library + R"sh(
etcd_cluster 1 --auth-token simple --auth-token-ttl 1
ectl user add root:rootpw >/dev/null; ectl user add app:apppw >/dev/null
ectl role add reader >/dev/null; ectl role grant-permission reader read /app/ --prefix >/dev/null
ectl user grant-role app reader >/dev/null; ectl user grant-role root root >/dev/null
ectl auth enable >/dev/null
etcdctl_flags=(--user root:rootpw); ectl put /app/v 1 >/dev/null
echo 'v=%%REG(/app/v)%%' > t.tmpl; echo apppw > pw
sync_config s.toml t.tmpl 'username = "app"' 'password_file = "pw"'
$S --watch s.toml 2> log & sync=$!
shows 'v=1'; sleep 2.5; etcd_stop 1; etcd_start 1; etcd_healthy
ectl put /app/v 2 >/dev/null; shows 'v=2' 20
kill $sync; wait $sync; echo $?
echo wrong > pw; $S s.toml 2>&1 | sed "s|$EP|EP|"; echo ${PIPESTATUS[0]}
$S --watch s.toml 2> log & sync=$!; sleep 2
kill -0 $sync && echo "still trying"; kill $sync; wait $sync
grep -c 'waiting for etcd: .*: authentication failed' log
ectl user add other:otherpw >/dev/null; echo otherpw > pw; sed -i 's/"app"/"other"/' s.toml
timeout 10 $S s.toml 2>&1 | sed "s|$EP|EP|"; echo ${PIPESTATUS[0]})sh",
     "seen v=1\nseen v=2\n0\ntessivane-sync: etcd: no endpoint answered: EP: authentication failed: "
     "etcdserver: authentication failed, invalid user ID or password\n2\nstill trying\n1\n"
     "tessivane-sync: etcd: no endpoint answered: EP: etcdserver: permission denied\n2\n", ""},

    // A client certificate signed by the CA the member trusts works; a CA that did not sign
    // the member's certificate is refused.
    {"TransportSecurity", R"sh(
command -v openssl >/dev/null || { echo "openssl is not installed here" >&2; exit 77; }
certificate() { # NAME ISSUER [SUBJECT-ALTERNATIVE-NAME]
    openssl req -newkey rsa:2048 -nodes -keyout $1.key -subj /CN=$1 -out $1.csr 2>/dev/null
    printf 'subjectAltName=%s\nextendedKeyUsage=serverAuth,clientAuth\n' "${3:-DNS:$1}" > $1.ext
    openssl x509 -req -in $1.csr -CA $2.pem -CAkey $2.key -CAcreateserial -days 2 \
        -extfile $1.ext -out $1.pem 2>/dev/null
}
for ca in ca other; do
    openssl req -x509 -newkey rsa:2048 -nodes -keyout $ca.key -subj /CN=$ca -days 2 -out $ca.pem 2>/dev/null
done
certificate server ca IP:127.0.0.1; certificate client ca
etcd_scheme=https
)sh" + s_library + R"sh(
etcdctl_flags=(--cacert ca.pem --cert client.pem --key client.key)
etcd_cluster 1 --cert-file server.pem --key-file server.key --client-cert-auth --trusted-ca-file ca.pem
ectl put /app/v secure >/dev/null
echo 'v=%%REG(/app/v)%%' > t.tmpl
sync_config s.toml t.tmpl 'ca_file = "ca.pem"' 'cert_file = "client.pem"' 'key_file = "client.key"'
$S s.toml 2>/dev/null; echo $?; cat out
sed -i 's/ca_file = "ca.pem"/ca_file = "other.pem"/' s.toml; $S s.toml 2> log; echo $?
grep -c 'no endpoint answered' log)sh", "0\nv=secure\n2\n1\n", ""},

    // Nothing listens on the first endpoint; the second is a member that does not answer.
    {"NoEndpointAnswers", s_library + R"sh(
etcd_cluster 1; kill -STOP ${etcd_pids[1]}
EP=http://127.0.0.1:$(free_port),$EP
echo 'v=%%REG(/app/v)%%' > t.tmpl
sync_config s.toml t.tmpl 'timeout = "1s"'
timeout 20 $S s.toml 2>&1 | sed "s|${EP%,*}|DOWN|; s|$EP1|STOPPED|"; echo ${PIPESTATUS[0]}
[ -e out ] || echo "nothing written"; kill -CONT ${etcd_pids[1]})sh",
     "tessivane-sync: etcd: no endpoint answered: DOWN: Connection refused; STOPPED: no answer "
     "within 1 s\n2\nnothing written\n", ""},
};
// clang-format on

using EtcdSource = ::testing::TestWithParam<TranscriptRow>;

TEST_P(EtcdSource, KeepsTheRegistryOfTheCluster)
{
    QTemporaryDir dir;
    expectTranscript(GetParam(), dir.path());
}

INSTANTIATE_TEST_SUITE_P(Rows, EtcdSource, ::testing::ValuesIn(s_rows), testRowName);

} // namespace
