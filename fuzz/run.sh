#!/usr/bin/env bash
# Runs every built harness (or those named after the time) for a bounded
# time; fails on the first crash.  Each starts from the committed seeds in
# fuzz/corpus/<harness>/ and keeps what it finds in <build>/corpus/<harness>/.
set -euo pipefail
build=$1
seconds=${2:-30}
shift $(( $# < 2 ? $# : 2 ))
seeds=$(cd "$(dirname "$0")" && pwd)/corpus
status=0
for bin in "$build"/*_fuzz; do
  [ -x "$bin" ] || continue
  name=$(basename "$bin")
  if [ $# -gt 0 ] && [[ " $* " != *" $name "* ]]; then continue; fi
  corpus="$build/corpus/$name"
  mkdir -p "$corpus" "$seeds/$name"
  echo "== $name (${seconds}s)"
  if ! "$bin" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 "$corpus" "$seeds/$name" \
      > "$build/$name.log" 2>&1; then
    tail -n 40 "$build/$name.log"
    status=1
  else
    grep -E '^(#[0-9]+.*(INITED|DONE)|stat::number_of_executed_units)' "$build/$name.log" || true
  fi
done
exit $status
