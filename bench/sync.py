#!/usr/bin/env python3
"""Measures tessivane-sync against a real etcd on 127.0.0.1.

Usage: sync.py TOOL WORKDIR

- convergence: etcd holds 10,000 keys under the prefix; tessivane-sync --watch
  with wait = "0ms" and 1, then 100 templates; 200 puts, one at a time, each
  answered by etcd before the clock starts: the time until the destination
  (for 100 templates, the last of them) is replaced, seen by inotify on the
  directory; p50 and p99;
- snapshot: the time from the start of a one-shot run until it reports its
  snapshot of 100,000 keys;
- memory: the daemon's peak resident set while it holds 100,000 keys.
"""

import base64
import ctypes
import ctypes.util
import json
import os
import select
import shutil
import socket
import statistics
import struct
import subprocess
import sys
import tempfile
import time
import urllib.request

PREFIX = "/bench/"
IN_MOVED_TO = 0x00000080


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def b64(text):
    return base64.b64encode(text.encode()).decode()


class Etcd:
    def __init__(self, directory):
        self.client, peer = free_port(), free_port()
        self.url = f"http://127.0.0.1:{self.client}"
        self.process = subprocess.Popen(
            ["etcd", "--name", "b", "--data-dir", os.path.join(directory, "etcd"),
             "--listen-client-urls", self.url, "--advertise-client-urls", self.url,
             "--listen-peer-urls", f"http://127.0.0.1:{peer}",
             "--initial-advertise-peer-urls", f"http://127.0.0.1:{peer}",
             "--initial-cluster", f"b=http://127.0.0.1:{peer}", "--max-txn-ops", "10000",
             "--quota-backend-bytes", str(4 << 30)],
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        for _ in range(100):
            try:
                self.call("/v3/kv/range", {"key": b64("x")})
                return
            except OSError:
                time.sleep(0.1)
        raise RuntimeError("etcd did not start")

    def call(self, path, body):
        request = urllib.request.Request(self.url + path, json.dumps(body).encode(),
                                         {"Content-Type": "application/json"})
        with urllib.request.urlopen(request, timeout=30) as reply:
            return json.loads(reply.read())

    def put(self, key, value):
        self.call("/v3/kv/put", {"key": b64(key), "value": b64(value)})

    def fill(self, count):
        for start in range(0, count, 10000):
            puts = [{"request_put": {"key": b64(f"{PREFIX}k/{i:06d}"), "value": b64(f"v{i}")}}
                    for i in range(start, min(count, start + 10000))]
            self.call("/v3/kv/txn", {"success": puts})

    def stop(self):
        self.process.terminate()
        self.process.wait()


class Inotify:
    def __init__(self, directory):
        libc = ctypes.CDLL(ctypes.util.find_library("c"), use_errno=True)
        self.fd = libc.inotify_init1(os.O_CLOEXEC)
        libc.inotify_add_watch(self.fd, directory.encode(), IN_MOVED_TO)

    def wait_for(self, names, deadline):
        """Waits until each of names was renamed into the directory."""
        left = set(names)
        while left:
            if not select.select([self.fd], [], [], max(0, deadline - time.monotonic()))[0]:
                return False
            data = os.read(self.fd, 65536)
            at = 0
            while at < len(data):
                _, _, _, length = struct.unpack_from("iIII", data, at)
                name = data[at + 16:at + 16 + length].rstrip(b"\0").decode()
                left.discard(name)
                at += 16 + length
        return True


def write_config(directory, url, templates):
    with open(os.path.join(directory, "t.tmpl"), "w") as out:
        out.write("value=%%REG(/bench/changed)%% first=%%REG(/bench/k/000000)%%\n")
    with open(os.path.join(directory, "sync.toml"), "w") as out:
        out.write(f'[etcd]\nendpoints = ["{url}"]\nprefix = "{PREFIX}"\n')
        out.write('[watch]\nwait = "0ms"\n')
        for i in range(templates):
            out.write(f'[[template]]\nname = "t{i}"\nsource = "t.tmpl"\n'
                      f'destination = "out/{i}.conf"\n')


def convergence(tool, directory, etcd, templates):
    """Seconds from each put's answer to the last destination's replacement."""
    write_config(directory, etcd.url, templates)
    out = os.path.join(directory, "out")
    shutil.rmtree(out, ignore_errors=True)
    os.mkdir(out)
    etcd.put(PREFIX + "changed", "start")
    watcher = Inotify(out)
    daemon = subprocess.Popen([tool, "--watch", os.path.join(directory, "sync.toml")],
                              stderr=subprocess.DEVNULL)
    names = [f"{i}.conf" for i in range(templates)]
    if not watcher.wait_for(names, time.monotonic() + 60):
        raise RuntimeError("the first cycle did not finish")
    times = []
    for run in range(200):
        etcd.put(PREFIX + "changed", f"put {run}")
        start = time.monotonic()
        if not watcher.wait_for(names, start + 30):
            raise RuntimeError(f"put {run} did not arrive")
        times.append(time.monotonic() - start)
    daemon.terminate()
    daemon.wait()
    os.close(watcher.fd)
    return times


def snapshot_and_memory(tool, directory, etcd):
    write_config(directory, etcd.url, 1)
    config = os.path.join(directory, "sync.toml")
    start = time.monotonic()
    run = subprocess.Popen([tool, config], stderr=subprocess.PIPE, text=True)
    seconds = None
    for line in run.stderr:
        if "snapshot of 100" in line and seconds is None:
            seconds = time.monotonic() - start
    run.wait()
    daemon = subprocess.Popen([tool, "--watch", config], stderr=subprocess.DEVNULL)
    time.sleep(3)
    for run_number in range(5):
        etcd.put(PREFIX + "changed", f"memory {run_number}")
        time.sleep(0.3)
    with open(f"/proc/{daemon.pid}/status") as status:
        peak = next(int(line.split()[1]) for line in status if line.startswith("VmHWM"))
    daemon.terminate()
    daemon.wait()
    return seconds, peak / 1024


def verdict(label, value, target, passed, unit):
    print(f"{'PASS' if passed else 'MISS'}  {label}: {value:.1f}{unit} (target {target})")


def main(argv):
    if len(argv) != 3:
        print(__doc__, file=sys.stderr)
        return 2
    tool, work = argv[1], argv[2]
    if not shutil.which("etcd"):
        print("SKIP  sync: etcd is not installed")
        return 0
    directory = tempfile.mkdtemp(dir=work)
    etcd = Etcd(directory)
    try:
        etcd.fill(10000)
        print(f"\n{'templates':>9} {'puts':>5} {'p50 ms':>8} {'p99 ms':>8}")
        results = {}
        for templates in (1, 100):
            times = sorted(convergence(tool, directory, etcd, templates))
            results[templates] = (statistics.median(times) * 1e3, times[int(len(times) * 0.99) - 1] * 1e3)
            print(f"{templates:9d} {len(times):5d} {results[templates][0]:8.1f} {results[templates][1]:8.1f}")
        etcd.fill(100000)
        seconds, peak = snapshot_and_memory(tool, directory, etcd)
        print(f"snapshot of 100,000 keys: {seconds:.2f} s; daemon peak RSS: {peak:.1f} MB\n")
        verdict("sync p99, 1 template", results[1][1], "<= 20 ms", results[1][1] <= 20, " ms")
        verdict("sync p99, 100 templates", results[100][1], "<= 200 ms", results[100][1] <= 200, " ms")
        verdict("first snapshot of 100,000 keys", seconds, "<= 2 s", seconds <= 2, " s")
        verdict("daemon peak RSS with 100,000 keys", peak, "<= 60 MB", peak <= 60, " MB")
    finally:
        etcd.stop()
        shutil.rmtree(directory, ignore_errors=True)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
