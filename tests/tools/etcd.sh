# Throwaway etcd members for the tests, sourced by their scripts. Each member
# listens on 127.0.0.1 on free ports and keeps its data in the test's
# directory; every member still running is stopped when the script ends.
#
#   etcd_cluster N [FLAGS...]  starts N members; sets EP (their client URLs,
#                              comma-separated) and EP1..EPN; with
#                              etcd_scheme=https the clients speak TLS
#   etcd_stop I, etcd_start I  stops member I, starts it again on its ports
#   ectl ARGS...               etcdctl on every member, with etcdctl_flags
#   etcd_healthy               waits until every member answers

command -v etcd >/dev/null || { echo "etcd is not installed here" >&2; exit 77; }
export ETCDCTL_API=3
declare -a etcd_pids etcd_clients etcd_peers etcd_flags
etcd_scheme=${etcd_scheme:-http}
trap 'for pid in "${etcd_pids[@]}"; do kill -9 $pid 2>/dev/null; done' EXIT

# A port nothing listens on, away from the ones handed out before, and below
# the range the system takes the ports of outgoing connections from, so that
# a client elsewhere cannot take it before the member binds it.
free_port() {
    local port first
    read -r first _ </proc/sys/net/ipv4/ip_local_port_range
    ((first > 12000)) || first=32768
    while :; do
        port=$((10000 + RANDOM % (first - 10000)))
        (exec 3<>/dev/tcp/127.0.0.1/$port) 2>/dev/null && continue
        [[ " ${etcd_clients[*]} ${etcd_peers[*]} " == *" $port "* ]] && continue
        echo $port
        return
    done
}

etcd_start() {
    local i=$1 cluster="" j
    for j in "${!etcd_peers[@]}"; do cluster+="${cluster:+,}m$j=http://127.0.0.1:${etcd_peers[$j]}"; done
    etcd --name m$i --data-dir etcd-m$i --initial-cluster "$cluster" \
        --listen-client-urls $etcd_scheme://127.0.0.1:${etcd_clients[$i]} \
        --advertise-client-urls $etcd_scheme://127.0.0.1:${etcd_clients[$i]} \
        --listen-peer-urls http://127.0.0.1:${etcd_peers[$i]} \
        --initial-advertise-peer-urls http://127.0.0.1:${etcd_peers[$i]} \
        ${etcd_flags[@]} >>etcd-m$i.log 2>&1 &
    etcd_pids[$i]=$!
}

etcd_stop() {
    kill ${etcd_pids[$1]} 2>/dev/null
    wait ${etcd_pids[$1]} 2>/dev/null
}

ectl() {
    etcdctl --endpoints "$EP" ${etcdctl_flags[@]} "$@"
}

# Waits until every member answers, 30 s at most.
etcd_healthy() {
    local until=$((SECONDS + 30))
    while ((SECONDS < until)); do
        ectl --dial-timeout 1s --command-timeout 2s endpoint health >/dev/null 2>&1 && return
        sleep 0.1
    done
    echo "etcd did not start:" >&2
    tail -n 3 etcd-m*.log >&2
    exit 1
}

etcd_cluster() {
    local n=$1 i
    shift
    etcd_flags=("$@")
    for ((i = 1; i <= n; i++)); do
        etcd_clients[$i]=$(free_port)
        etcd_peers[$i]=$(free_port)
    done
    EP=""
    for ((i = 1; i <= n; i++)); do
        etcd_start $i
        EP+="${EP:+,}$etcd_scheme://127.0.0.1:${etcd_clients[$i]}"
        eval "EP$i=$etcd_scheme://127.0.0.1:${etcd_clients[$i]}"
    done
    etcd_healthy
}
