#!/usr/bin/env bash
# Builds the fuzz targets with clang and runs each one: fuzz/run.sh [RUNS] [SECONDS]
# Without SECONDS every target does RUNS executions; with it, it stops at whichever comes first.
set -euo pipefail
cd "$(dirname "$0")/.."
runs=${1:-1000000}
seconds=${2:-0}
build=${FUZZ_BUILD:-build-fuzz}
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_C_COMPILER=clang \
    -DCMAKE_CXX_COMPILER=clang++ -DORLITH_FUZZ=ON -DORLITH_TESTS=OFF > /dev/null
mapfile -t targets < <(sed -n 's/^orlith_fuzz(\([a-z_]*\).*/\1/p' fuzz/CMakeLists.txt)
ninja -C "$build" "${targets[@]}"
failed=0
for target in "${targets[@]}"; do
    corpus=fuzz/corpus/${target%_fuzz}
    grown=$(mktemp -d)
    echo "== $target: $runs runs"
    # Up to 1 MB of input, a second and 256 MB for each.
    if ! "$build/bin/$target" -runs="$runs" -max_total_time="$seconds" -max_len=1048576 -timeout=1 \
        -rss_limit_mb=2048 -malloc_limit_mb=256 -print_final_stats=1 -verbosity=0 \
        -artifact_prefix="$grown/" "$grown" "$corpus" > "$grown/log" 2>&1; then
        failed=1
        tail -n 40 "$grown/log"
        echo "$target failed; its input lies in $grown"
    else
        grep -E 'number_of_executed_units|peak_rss_mb|slowest' "$grown/log" || true
        rm -rf "$grown"
    fi
done
exit $failed
