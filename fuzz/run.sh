#!/usr/bin/env bash
# Runs every built harness for a bounded time; fails on the first crash.
set -euo pipefail
build=$1
seconds=${2:-30}
status=0
for bin in "$build"/*_fuzz; do
  [ -x "$bin" ] || continue
  name=$(basename "$bin")
  corpus="$build/corpus/$name"
  mkdir -p "$corpus"
  echo "== $name (${seconds}s)"
  if ! "$bin" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=0 "$corpus" \
      > "$build/$name.log" 2>&1; then
    tail -n 40 "$build/$name.log"
    status=1
  else
    grep -E '^(Done|#[0-9]+.*DONE)' "$build/$name.log" | tail -n 1 || true
  fi
done
exit $status
