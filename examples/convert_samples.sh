#!/usr/bin/env bash
# Sends the bundled samples through nuvconv and back, and shows the result.
# Usage: convert_samples.sh NUVCONV DATA_DIR WORK_DIR
set -euo pipefail
nuvconv=$1 data=$2 work=$3
mkdir -p "$work"

roundtrip() {  # file, source encoding, middle encoding
  local file=$1 from=$2 via=$3 name
  name=$(basename "$file")
  "$nuvconv" -f "$from" -t "$via" "$file" "$work/$name.$via"
  "$nuvconv" -f "$via" -t "$from" "$work/$name.$via" "$work/$name.back"
  if cmp -s "$file" "$work/$name.back"; then
    printf '  %-22s %-6s -> %-8s -> %-6s  identical (%s bytes, %s as %s)\n' "$name" "$from" "$via" "$from" \
      "$(wc -c < "$file")" "$(wc -c < "$work/$name.$via")" "$via"
  else
    echo "  $name: round trip through $via differs" >&2
    return 1
  fi
}

echo "== nuvconv round trips of the bundled samples"
for via in utf-16le utf-16be ucs-4le ucs-4be; do roundtrip "$data/greetings-utf8.txt" utf-8 "$via"; done
for via in ebcdic utf-16be ucs-2le; do roundtrip "$data/invoice-ascii.txt" ascii "$via"; done
echo "== greetings-utf8.txt after utf-8 -> utf-16be -> utf-8:"
cat "$work/greetings-utf8.txt.back"
echo "== invoice-ascii.txt in EBCDIC (hex, first line):"
head -c 18 "$work/invoice-ascii.txt.ebcdic" | od -An -tx1
echo "== a character UCS-2 cannot hold, in strict mode:"
"$nuvconv" -f utf-8 -t ucs-2le "$data/greetings-utf8.txt" /dev/null || true
