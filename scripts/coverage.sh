#!/usr/bin/env bash
# Line and branch coverage of src/ per folder, from a --coverage build that
# has just run the test suite.  Usage: scripts/coverage.sh BUILD_DIR
set -euo pipefail
build=$1
root=$(cd "$(dirname "$0")/.." && pwd)
json=$build/coverage.json
gcovr --root "$root" --object-directory "$build" --filter "$root/src/" \
      --exclude "$root/src/ctype/ctype_tables.cpp" --exclude "$root/src/convert/ebcdic_tables.cpp" \
      --exclude-unreachable-branches --exclude-throw-branches \
      --json-summary "$json" --json-summary-pretty > /dev/null
python3 - "$json" <<'PY'
import json, sys, collections
files = json.load(open(sys.argv[1]))["files"]
agg = collections.defaultdict(lambda: [0, 0, 0, 0])
for f in files:
    parts = f["filename"].split("/")
    folder = "/".join(parts[:2]) if len(parts) > 2 else parts[0]
    for key, fld in ((folder, None), ("src (all)", None)):
        a = agg[key]
        a[0] += f["line_covered"]; a[1] += f["line_total"]
        a[2] += f["branch_covered"]; a[3] += f["branch_total"]
pct = lambda c, t: f"{100.0 * c / t:5.1f}%" if t else "   - "
print(f"{'folder':<16}{'lines':>16}{'':>8}{'branches':>16}")
for key in sorted(agg, key=lambda k: (k == "src (all)", k)):
    lc, lt, bc, bt = agg[key]
    print(f"{key:<16}{lc:>7}/{lt:<7}{pct(lc, lt)} {bc:>7}/{bt:<7}{pct(bc, bt)}")
PY
