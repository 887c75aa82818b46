#!/usr/bin/env python3
"""Helper of run.sh: writes the workloads, times one run, prints the report.

  benchtool.py generate DIR           the workloads (kept when already there)
  benchtool.py generate-large DIR     the 1 GB template of the memory workload
  benchtool.py time [--stdout FILE] STDIN RESULTS CMD...
                                      runs CMD once under /usr/bin/time with
                                      STDIN as its standard input and standard
                                      output to FILE (emptied first) or to
                                      /dev/null, appends "seconds max-rss-kib"
                                      to RESULTS and exits with CMD's status
  benchtool.py report RESULTS_DIR     the table and the target checks

MB means 1,000,000 bytes throughout.
"""

import os
import statistics
import subprocess
import sys
import time

# Bump when the shape of a workload changes, so that old inputs are rebuilt.
DATA_FORMAT = "3"

REG_ROOT = "/etc/bench"
KEY_COUNT = 1000
PLAIN_LINES = 1_000_000
REG_LINES = 1_000_000
MIXED_BLOCKS = 100_000
INCLUDE_FILES = 1000
INCLUDE_REPEATS = 100
LINE_BYTES = 76  # 75 visible characters and the line feed
SMALL_MEMORY_BYTES = 10_000_000
LARGE_MEMORY_BYTES = 1_000_000_000
# One line of text this long, with a comment at its end: the engine holds a
# line whole, and must not hold it more than three times over.
LONG_LINE_BYTES = 100_000_000
TIME = "/usr/bin/time"

WORDS = ("alpha bravo charlie delta echo foxtrot golf hotel india juliet kilo lima mike "
         "november oscar papa quebec romeo sierra tango uniform victor whiskey xray yankee "
         "zulu server client port host path value option cache limit timeout retry").split()


def write_file(path, text_or_bytes):
    """Writes through a temporary name, so an interrupted run leaves no half file."""
    data = text_or_bytes.encode() if isinstance(text_or_bytes, str) else text_or_bytes
    temporary = path + ".part"
    with open(temporary, "wb") as out:
        out.write(data)
    os.replace(temporary, path)


def plain_lines(count):
    """Deterministic lines of words, each LINE_BYTES long with its line feed."""
    state = 12345
    lines = []
    for _ in range(count):
        line = ""
        while len(line) < LINE_BYTES - 1:
            state = (state * 1103515245 + 12345) & 0x7FFFFFFF
            line += WORDS[state % len(WORDS)] + " "
        line = line[:LINE_BYTES - 1]
        if line.endswith(" "):
            line = line[:-1] + "."
        lines.append(line + "\n")
    return lines


def mixed_block(copy):
    key = copy % KEY_COUNT
    flag = "on" if copy % 2 == 0 else "off"  # /etc/bench/flag/on is 1, .../off is 0
    return (
        f"[service_{copy}] %%* copy {copy} of the block%%\n"
        f'name = %%REG($REGROOT/k/{key})("value1" "one" "value2" "two")("other")%%\n'
        f"label = %%REG_QUOTE($REGROOT/k/{key})%%\n"
        f"ini = %%REG_INI($REGROOT/k/{key})%%\n"
        f"%%IF REG($REGROOT/flag/{flag}) == 1%%\n"
        "enabled = yes\n"
        "%%ENDIF%%\n"
        "%%IF TAG(n) == 3%%\n"
        "host = %%TAG(host)%%\n"
        "%%ENDIF%%\n")


def mixed_block_ctemplate(copy):
    """mixed_block for ctemplate: the names are those bench/ctemplate_driver.cpp sets."""
    key = copy % KEY_COUNT
    flag = "on" if copy % 2 == 0 else "off"
    return (
        f"[service_{copy}] {{{{! copy {copy} of the block}}}}\n"
        f"name = {{{{k_{key}_MAPPED}}}}\n"
        f"label = {{{{k_{key}_QUOTE}}}}\n"
        f"ini = {{{{k_{key}_INI}}}}\n"
        f"{{{{#flag_{flag}_IS_1}}}}\n"
        "enabled = yes\n"
        f"{{{{/flag_{flag}_IS_1}}}}\n"
        "{{#TAG_n_IS_3}}\n"
        "host = {{TAG_host}}\n"
        "{{/TAG_n_IS_3}}\n")


def include_part(part):
    return (f"# part {part}\n"
            f"[part_{part}]\n"
            f"value = %%REG($REGROOT/k/{part})%%\n"
            f"quoted = %%REG_QUOTE($REGROOT/k/{part * 7 % KEY_COUNT})%%\n")


def generate(directory):
    os.makedirs(directory, exist_ok=True)
    stamp = os.path.join(directory, "FORMAT")
    if os.path.exists(stamp) and open(stamp).read() == DATA_FORMAT:
        return
    print(f"benchtool: writing the workloads into {directory}", file=sys.stderr)
    path = lambda name: os.path.join(directory, name)

    write_file(path("registry.conf"),
               "".join(f"{REG_ROOT}/k/{key} = value{key}\n" for key in range(KEY_COUNT)))

    plain = "".join(plain_lines(PLAIN_LINES)).encode()
    write_file(path("plain.tmpl"), plain)
    # ctemplate takes the same text as it is: nothing in it opens a "{{" marker.
    assert b"{{" not in plain
    write_file(path("plain.ctpl"), plain)
    write_file(path("memory-10MB.tmpl"), plain[:SMALL_MEMORY_BYTES // LINE_BYTES * LINE_BYTES])
    write_file(path("memory-longline.tmpl"), b"x" * LONG_LINE_BYTES + b"%%* a comment%%\n")

    pad = " # trailing text to pad the line a bit\n"
    write_file(path("reg.tmpl"), "".join(
        f"key_{n} = %%REG($REGROOT/k/{n % KEY_COUNT})%%{pad}" for n in range(REG_LINES)))
    write_file(path("reg.ctpl"), "".join(
        f"key_{n} = {{{{k_{n % KEY_COUNT}}}}}{pad}" for n in range(REG_LINES)))

    write_file(path("mixed.tmpl"), "".join(mixed_block(copy) for copy in range(MIXED_BLOCKS)))
    write_file(path("mixed.ctpl"),
               "".join(mixed_block_ctemplate(copy) for copy in range(MIXED_BLOCKS)))

    os.makedirs(path("include.d"), exist_ok=True)
    for part in range(INCLUDE_FILES):
        write_file(path(f"include.d/part-{part:04d}.conf"), include_part(part))
    write_file(path("include.tmpl"), "%%INCLUDE_DIR(include.d)%%\n" * INCLUDE_REPEATS)

    # The large memory input is versioned with the rest; envsubst's inputs are no longer used.
    for name in ("memory-1GB.tmpl", "envsubst.env", "reg.envsubst"):
        if os.path.exists(path(name)):
            os.remove(path(name))
    write_file(stamp, DATA_FORMAT)


def generate_large(directory):
    """Repeats the plain lines up to LARGE_MEMORY_BYTES."""
    target = os.path.join(directory, "memory-1GB.tmpl")
    if os.path.exists(target):
        return
    print(f"benchtool: writing {target}", file=sys.stderr)
    with open(os.path.join(directory, "plain.tmpl"), "rb") as source:
        plain = source.read()
    remaining = LARGE_MEMORY_BYTES // LINE_BYTES * LINE_BYTES
    temporary = target + ".part"
    with open(temporary, "wb") as out:
        while remaining > 0:
            chunk = plain[:remaining]
            out.write(chunk)
            remaining -= len(chunk)
    os.replace(temporary, target)


def time_once(stdin_path, stdout_path, results, command):
    # GNU time reports the peak resident set of the program alone. Asking the
    # kernel from here would not do: a child forked from this interpreter keeps
    # the interpreter's own high-water mark across exec.
    rss_file = results + ".rss"
    # Each run writes a new file: one truncated in place would have ext4 start
    # writing it back at close, which times the file system, not the program.
    if os.path.isfile(stdout_path):
        os.remove(stdout_path)
    # What earlier runs left for the kernel to write back is written first, so
    # that no run, ours or ctemplate's, pays for another's output.
    os.sync()
    with open(stdin_path, "rb") as stdin, open(stdout_path, "wb") as stdout:
        start = time.perf_counter()
        code = subprocess.call([TIME, "-q", "-f", "%M", "-o", rss_file] + command,
                               stdin=stdin, stdout=stdout)
        elapsed = time.perf_counter() - start
    with open(rss_file) as rss:
        kib = rss.read().split()
    os.remove(rss_file)
    if code != 0:
        return code if code > 0 else 128 - code
    if not kib or not kib[-1].isdigit():
        print(f"benchtool: {TIME} gave no peak resident set for {command[0]}", file=sys.stderr)
        return 1
    with open(results, "a") as out:
        out.write(f"{elapsed:.6f} {int(kib[-1])}\n")
    return 0


def read_runs(results_dir, name):
    """Seconds and peak resident KiB of each run recorded for name."""
    path = os.path.join(results_dir, name)
    if not os.path.exists(path):
        return None
    runs = [line.split() for line in open(path) if line.strip()]
    return [float(seconds) for seconds, _ in runs], [int(kib) for _, kib in runs]


# The workloads rendered by ctemplate too, and the least ratio of ctemplate's
# median time over ours wanted for each way the tool writes.
COMPARED = ("plain", "reg", "mixed")
RATIO_TARGETS = {"stdout": {"plain": 1.5, "reg": 2.0, "mixed": 2.0},
                 "output": {"plain": 1.0, "reg": 1.0, "mixed": 1.0}}
RSS_TARGET_MB = 20.0


def report(results_dir):
    rows = [(workload, program) for workload in COMPARED
            for program in ("ctemplate", "stdout", "output")]
    rows += [("include", "tool"), ("memory-10MB", "tool"), ("memory-1GB", "tool"),
             ("memory-longline", "tool")]
    print()
    print(f"{'workload':<15} {'program':<9} {'input MB':>9} {'runs':>4} {'median s':>9} "
          f"{'MB/s':>8} {'peak RSS MB':>11} {'ctemplate/ours':>14}")
    medians = {}
    peak = {}
    ratios = {}
    for workload, program in rows:
        name = f"{workload}.{program}"
        runs = read_runs(results_dir, name)
        if runs is None:
            continue
        seconds, kib = runs
        input_mb = int(open(os.path.join(results_dir, name + ".bytes")).read()) / 1e6
        medians[name] = statistics.median(seconds)
        peak[name] = max(kib) * 1024 / 1e6
        ratio = ""
        theirs = medians.get(f"{workload}.ctemplate")
        if program in RATIO_TARGETS and theirs is not None:
            ratios[name] = theirs / medians[name]
            ratio = f"{ratios[name]:.2f}"
        print(f"{workload:<15} {program:<9} {input_mb:9.1f} {len(seconds):4d} "
              f"{medians[name]:9.3f} {input_mb / medians[name]:8.1f} {peak[name]:11.1f} "
              f"{ratio:>14}")
    print()
    print("Input MB counts the template bytes read (for include, every included file each time);")
    print("MB/s is input MB over the median of the timed runs; peak RSS is the highest of them.")
    print("ctemplate renders the same output from a template of its own, with what its language")
    print("cannot say computed per registry key by its driver; stdout is the tool writing to")
    print("standard output redirected to a file, output the tool replacing OUTPUT itself with the")
    print("safe write's fsync. The ratio is ctemplate's median time over ours, runs interleaved.")
    print()

    def verdict(label, value, target, passed, unit=""):
        print(f"{'PASS' if passed else 'MISS'}  {label}: {value:.2f}{unit} (target {target})")

    ways = {"stdout": "to standard output", "output": "writing OUTPUT"}
    for program, targets in RATIO_TARGETS.items():
        for workload in COMPARED:
            ratio = ratios.get(f"{workload}.{program}")
            if ratio is not None:
                target = targets[workload]
                verdict(f"{workload} {ways[program]}, ctemplate's time / ours", ratio,
                        f">= {target:.1f}", ratio >= target)
    for workload in COMPARED:
        ours = [peak[name] for name in (f"{workload}.stdout", f"{workload}.output") if name in peak]
        if ours:
            verdict(f"peak RSS on {workload}", max(ours), f"<= {RSS_TARGET_MB:.0f} MB",
                    max(ours) <= RSS_TARGET_MB, " MB")
    small, large = peak.get("memory-10MB.tool"), peak.get("memory-1GB.tool")
    if small is not None and large is not None:
        verdict("peak RSS 1 GB input minus 10 MB input", large - small, "<= 2 MB",
                large - small <= 2.0, " MB")
        verdict("peak RSS on the 1 GB input", large, f"<= {RSS_TARGET_MB:.0f} MB",
                large <= RSS_TARGET_MB, " MB")
    elif small is not None:
        verdict("peak RSS on the 10 MB input", small, f"<= {RSS_TARGET_MB:.0f} MB",
                small <= RSS_TARGET_MB, " MB")
        print("SKIP  memory growth: the 1 GB input was not run")
    long_line = peak.get("memory-longline.tool")
    if long_line is not None:
        limit = 3 * LONG_LINE_BYTES / 1e6 + 20
        verdict(f"peak RSS on one line of {LONG_LINE_BYTES // 1_000_000} MB", long_line,
                f"<= {limit:.0f} MB, 3 times the line and 20 MB", long_line <= limit, " MB")


def main(argv):
    if len(argv) >= 3 and argv[1] == "generate":
        generate(argv[2])
    elif len(argv) >= 3 and argv[1] == "generate-large":
        generate_large(argv[2])
    elif len(argv) >= 7 and argv[1:3] == ["time", "--stdout"]:
        return time_once(argv[4], argv[3], argv[5], argv[6:])
    elif len(argv) >= 5 and argv[1] == "time":
        return time_once(argv[2], os.devnull, argv[3], argv[4:])
    elif len(argv) >= 3 and argv[1] == "report":
        report(argv[2])
    else:
        print(__doc__, file=sys.stderr)
        return 2
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
