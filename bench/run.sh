#!/usr/bin/env bash
# Runs every benchmark of a build: bench/run.sh [BUILD]. Tables on the terminal, JSON in BUILD/bench/.
# ROWS: largest library (default 1000000). FILES: files of a whole sync (default 2000).
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
tools/install-dependencies.sh packaging/debian-packages-bench.txt
mkdir -p "$build/bench"
ORLITH_BENCH_ROWS=${ROWS:-1000000} "$build/bin/library_bench" \
    --benchmark_out="$build/bench/library.json" --benchmark_out_format=json
"$build/bin/resize_bench" --benchmark_out="$build/bench/resize.json" --benchmark_out_format=json
"$build/bin/request_bench" --benchmark_out="$build/bench/requests.json" --benchmark_out_format=json
bench/whole_sync.py --build "$build" --files "${FILES:-2000}" --output "$build/bench/whole_sync.json"
bench/mirror.py --build "$build" --files "${FILES:-2000}" --output "$build/bench/mirror.json"
bench/backup.py --build "$build" --files "${FILES:-2000}" --output "$build/bench/backup.json"
