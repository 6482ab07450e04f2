"""Prints the comparison table of one benchmark run (the JSON output of qel_bench)."""

import json
import sys

CASES = ["dropped", "console", "file", "file_buffered", "both"]
PEERS = ["spdlog", "glog", "log4cplus"]
FLOORS = [("write", "write(2)"), ("write_check", "epoll_wait+write(2)"),
          ("access_fwrite", "access+fwrite"), ("snprintf", "snprintf")]


def load(path):
    with open(path) as f:
        data = json.load(f)
    runs = {}
    for b in data["benchmarks"]:
        if b.get("run_type", "iteration") != "iteration":
            continue
        parts = b["name"].split("/")
        runs[(parts[0], parts[1], int(b["threads"]))] = b
    return data.get("context", {}), runs


def rate(runs, case, impl, threads):
    b = runs.get((case, impl, threads))
    return b["items_per_second"] if b else None


def human(value):
    if value is None:
        return "-"
    for unit, scale in (("G", 1e9), ("M", 1e6), ("k", 1e3)):
        if value >= scale:
            return "%.3g%s" % (value / scale, unit)
    return "%.3g" % value


def ratio(ours, other):
    return "%.2fx" % (ours / other) if ours and other else "-"


def main():
    context, runs = load(sys.argv[1])
    header = ["case", "thr", "qel rec/s", "allocs/rec", "4T/1T"]
    header += ["%s rec/s (qel/it)" % p for p in PEERS]
    header += ["qel/%s floor" % label for _, label in FLOORS]
    rows = []
    for case in CASES:
        for threads in (1, 4):
            ours = rate(runs, case, "qel", threads)
            allocs = runs.get((case, "qel", threads), {}).get("allocs_per_rec")
            scaling = "-"
            if threads == 4:
                scaling = ratio(ours, rate(runs, case, "qel", 1))
            row = [case, str(threads), human(ours),
                   "-" if allocs is None else "%.4g" % allocs, scaling]
            for peer in PEERS:
                other = rate(runs, case, peer, threads)
                row.append("-" if other is None else "%s (%s)" % (human(other), ratio(ours, other)))
            for floor, _ in FLOORS:
                row.append(ratio(ours, rate(runs, "floor", floor, threads)))
            rows.append(row)
    for floor, label in FLOORS:
        for threads in (1, 4):
            row = ["floor " + label, str(threads), human(rate(runs, "floor", floor, threads)),
                   "-", "-"]
            rows.append(row + ["-"] * (len(header) - len(row)))

    print("| " + " | ".join(header) + " |")
    print("|" + "|".join("---" for _ in header) + "|")
    for row in rows:
        print("| " + " | ".join(row) + " |")

    def r(case, impl, threads, other_case, other, other_threads):
        ours = rate(runs, case, impl, threads)
        theirs = rate(runs, other_case, other, other_threads)
        return ours / theirs if ours and theirs else None

    targets = []
    for t in (1, 4):
        targets.append(("dropped record <= 2x the time of spdlog's, %dT" % t,
                        r("dropped", "qel", t, "dropped", "spdlog", t), 0.5))
        targets.append(("console >= 1.0x spdlog stdout_sink_mt, %dT" % t,
                        r("console", "qel", t, "console", "spdlog", t), 1.0))
        # Write-through: within 1.3x of the time of one write(2) per line, and at least the
        # throughput of log4cplus's RollingFileAppender, which buffers.
        targets.append(("file (write-through) <= 1.3x the time of the write(2) floor, %dT" % t,
                        r("file", "qel", t, "floor", "write", t), 1 / 1.3))
        targets.append(("file (write-through) >= 1.0x log4cplus RollingFileAppender, %dT" % t,
                        r("file", "qel", t, "file", "log4cplus", t), 1.0))
        targets.append(("file_buffered >= 1.2x spdlog rotating_file_sink_mt, %dT" % t,
                        r("file_buffered", "qel", t, "file", "spdlog", t), 1.2))
    for case in CASES[1:]:
        bound = 0.8 if case.startswith("file") else 0.7
        targets.append(("%s: 4 threads >= %.1fx 1 thread" % (case, bound),
                        r(case, "qel", 4, case, "qel", 1), bound))
    print()
    print("| target | ratio | met |")
    print("|---|---|---|")
    for name, value, bound in targets:
        shown = "-" if value is None else "%.2f" % value
        met = "-" if value is None else ("yes" if value >= bound else "no")
        print("| %s | %s | %s |" % (name, shown, met))
    worst = max((runs[k].get("allocs_per_rec", 0) for k in runs if k[1] == "qel" and k[0] != "dropped"),
                default=None)
    print("| heap allocations per written record = 0 | %s | %s |" % (
        "-" if worst is None else "%.4g" % worst,
        "-" if worst is None else ("yes" if worst == 0 else "amortised rotation only" if worst < 0.01 else "no")))

    print_latencies(runs)
    print_formatted(runs)


def print_formatted(runs):
    """Formatted records: qelLogFormat against spdlog's logger->info(fmt, args) and qelLogWrite."""
    cases = [("fmt_dropped", "dropped"), ("fmt_dropped_4_modules", "dropped, 4 module thresholds"),
             ("fmt_file", "file")]
    if not any((case, "qel_format", 1) in runs for case, _ in cases):
        return
    print()
    print("| formatted record | thr | qelLogFormat rec/s | qelLogWrite rec/s | spdlog fmt rec/s "
          "| Format/Write | Format/spdlog |")
    print("|---|---|---|---|---|---|---|")
    for case, label in cases:
        for threads in (1, 4):
            ours = rate(runs, case, "qel_format", threads)
            write = rate(runs, case, "qel_write", threads)
            peer = rate(runs, case, "spdlog", threads)
            print("| %s | %d | %s | %s | %s | %s | %s |" % (
                label, threads, human(ours), human(write), human(peer), ratio(ours, write),
                ratio(ours, peer)))
    for threads in (1, 4):
        value = r_of(runs, "fmt_dropped", "qel_format", threads, "fmt_dropped", "spdlog")
        print("dropped qelLogFormat <= 2x the time of spdlog's, %dT: %s" % (
            threads, "-" if value is None else "%.2f (%s)" % (value, "met" if value >= 0.5 else
                                                             "not met")))


def r_of(runs, case, impl, threads, other_case, other):
    ours = rate(runs, case, impl, threads)
    theirs = rate(runs, other_case, other, threads)
    return ours / theirs if ours and theirs else None


def print_latencies(runs):
    """Per-call latency of the file writers (qel's writing each record through), 1 thread."""
    columns = [("p50_ns", "p50"), ("p99_ns", "p99"), ("p999_ns", "p99.9"), ("max_ns", "max")]
    ours = runs.get(("latency", "qel", 1))
    if ours is None:
        return
    print()
    print("| file writer, 1 thread, ns per call | " + " | ".join(c[1] for c in columns) + " |")
    print("|---|" + "---|" * len(columns))
    for impl, label in (("qel", "qel"), ("spdlog", "spdlog"), ("floor_write", "write(2) floor")):
        b = runs.get(("latency", impl, 1))
        if b is not None:
            print("| %s | %s |" % (label, " | ".join("%.0f" % b[c[0]] for c in columns)))
    theirs = runs.get(("latency", "spdlog", 1))
    if theirs is not None:
        print("| qel/spdlog | %s |" % " | ".join(
            "%.2fx" % (ours[c[0]] / theirs[c[0]]) if theirs[c[0]] else "-" for c in columns))
    tail = ours["p999_ns"] / ours["p50_ns"] if ours["p50_ns"] else None
    print()
    print("| target | ratio | met |")
    print("|---|---|---|")
    print("| file writer p99.9 <= 4x its p50, 1T | %s | %s |" % (
        "-" if tail is None else "%.2f" % tail, "-" if tail is None else ("yes" if tail <= 4 else "no")))


if __name__ == "__main__":
    main()
