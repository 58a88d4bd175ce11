#!/usr/bin/env python3
"""Runs every benchmark program in a folder with repetitions and prints a
table of medians, with each peer's time divided by ours (above 1: we win).
Times are CPU times: on a shared machine they are steadier than wall time.

Benchmark names are OP/IMPL/ARG, for example strlen/ours/4096."""
import json
import os
import subprocess
import sys
from collections import defaultdict

REPS = os.environ.get("BENCH_REPS", "5")


def run(binary):
    out = subprocess.run(
        [binary, f"--benchmark_repetitions={REPS}", "--benchmark_report_aggregates_only=true",
         "--benchmark_format=json", "--benchmark_min_time=0.05"] + sys.argv[2:],
        check=True, capture_output=True, text=True).stdout
    return json.loads(out)["benchmarks"]


def main():
    folder = sys.argv[1]
    rows = defaultdict(dict)  # (op, arg) -> impl -> (ns, bytes/s)
    order = []
    for name in sorted(os.listdir(folder)):
        path = os.path.join(folder, name)
        if not (name.endswith("_bench") and os.access(path, os.X_OK)):
            continue
        for b in run(path):
            if b.get("aggregate_name") != "median":
                continue
            parts = b["run_name"].split("/")
            if len(parts) < 2:
                continue
            op, impl, arg = parts[0], parts[1], "/".join(parts[2:])
            key = (op, arg)
            if key not in rows:
                order.append(key)
            rows[key][impl] = (b["cpu_time"], b.get("bytes_per_second", 0.0))
    print(f"{'operation':<28} {'arg':>8} {'impl':<14} {'median cpu ns':>14} {'GB/s':>8} {'peer/ours':>10}")
    for key in order:
        impls = rows[key]
        ours = impls.get("ours")
        for impl, (ns, bps) in sorted(impls.items(), key=lambda kv: kv[0] != "ours"):
            ratio = f"{ns / ours[0]:.2f}" if ours and impl != "ours" else ""
            gbs = f"{bps / 1e9:.2f}" if bps else ""
            print(f"{key[0]:<28} {key[1]:>8} {impl:<14} {ns:>14.1f} {gbs:>8} {ratio:>10}")


if __name__ == "__main__":
    main()
