#!/usr/bin/env bash
# Builds the benchmarks in Release and runs them all, then prints one table of their figures:
# workload, benchmark, figure and unit (median of the repetitions), the target set for it, and
# its speed against the benchmark it is compared with in the same run (ALSA where installed).
# Exits non-zero when a benchmark's checksum differs. The tests never run this.
# Usage: scripts/bench.sh [google-benchmark flags, e.g. --benchmark_filter=W2]
# BENCH_BUILD_DIR chooses the build folder (default build-release).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
dir=${BENCH_BUILD_DIR:-$root/build-release}
"$root/scripts/install-deps.sh" python3-minimal
launcher=(); command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
cmake -S "$root" -B "$dir" "${launcher[@]}" -DCMAKE_BUILD_TYPE=Release -DVELA_WERROR=ON \
  -DVELA_BUILD_BENCHMARKS=ON -DVELA_BUILD_TESTS=OFF -DVELA_BUILD_TOOLS=OFF >/dev/null
cmake --build "$dir" -j"$(nproc)" --target vela_bench
json="$dir/bench.json"
"$dir/bench/vela_bench" --benchmark_out="$json" --benchmark_out_format=json "$@"
echo
python3 - "$json" <<'EOF'
# One row per benchmark: the median of its repetitions, or its single run. A benchmark's label
# "figure=<counter> target=<number> peer=<name> ratio=<number>" (bench/Figure.h) names the
# counter shown and what it is held against; without one, its time per iteration is shown.
import json, re, sys

def number(value):
    for scale, prefix in ((1e9, "G"), (1e6, "M"), (1e3, "k")):
        if abs(value) >= scale:
            return f"{value / scale:.3g}{prefix}"
    return f"{value:.3g}"

def display(run_name):  # without the run options every repeated benchmark carries
    return re.sub(r"/(iterations|repeats):\d+|/(real|manual)_time", "", run_name)

runs = json.load(open(sys.argv[1]))["benchmarks"]
rows = {}
for run in runs:
    base = display(run["run_name"])
    if run.get("error_occurred"):
        rows[base] = dict(name=base, error=run.get("error_message", "failed"))
        continue
    aggregate = run.get("aggregate_name")
    if run["run_type"] == "aggregate" and aggregate != "median":
        continue
    if run["run_type"] == "iteration" and run.get("repetitions", 1) > 1:
        continue
    label = dict(re.findall(r"(\w+)=(\S+)", run.get("label", "")))
    unit = label.get("figure")
    if unit in run:
        value = run[unit]
    else:
        unit, value = f"{run['time_unit']}/iter", run["real_time"]
    rows[base] = dict(name=base, unit=unit, value=value, target=float(label.get("target", 0)),
                      peer=label.get("peer", "-"), ratio=float(label.get("ratio", 0)))

def workload_of(name):
    match = re.match(r"W(\d+)", name)
    return match.group(0) if match else "-"

lines = [("workload", "benchmark", "figure", "unit", "target", "vs peer (same run)", "")]
for name, row in sorted(rows.items(), key=lambda item: int(workload_of(item[0])[1:] or 99)):
    workload = workload_of(name)
    if "error" in row:
        lines.append((workload, name, "-", "-", "-", "-", "CHECKSUM/ERROR: " + row["error"]))
        continue
    rate = row["unit"].endswith("/s")
    verdicts = []
    target = "-"
    if row["target"]:
        target = ("≥ " if rate else "≤ ") + number(row["target"])
        met = row["value"] >= row["target"] if rate else row["value"] <= row["target"]
        verdicts.append("met" if met else "MISSED")
    versus = "-"
    peer = rows.get(row["peer"])
    if peer and "value" in peer and peer["unit"] == row["unit"] and peer["value"]:
        speed = row["value"] / peer["value"] if rate else peer["value"] / row["value"]
        versus = f"{speed:.2f}x {row['peer']}"
        if row["ratio"]:
            versus += f" (≥ {row['ratio']:g}x)"
            verdicts.append("met" if speed >= row["ratio"] else "MISSED")
    elif row["peer"] != "-":
        versus = f"{row['peer']} not run"
    lines.append((workload, name, number(row["value"]), row["unit"], target, versus, " ".join(verdicts)))

widths = [max(len(line[i]) for line in lines) for i in range(len(lines[0]))]
for line in lines:
    print("  ".join(cell.ljust(width) for cell, width in zip(line, widths)).rstrip())
failed = [name for name, row in rows.items() if "error" in row]
if failed:
    print("\nFAILED: " + ", ".join(failed), file=sys.stderr)
    sys.exit(1)
EOF
