#!/usr/bin/env bash
# runsample.sh BOARD PROGRAM TEXT...: runs a sample of the documentation against the board made of
# software. The sample must succeed, and the board's report of what it played must hold every TEXT
# (compared with single spaces).
set -euo pipefail
board=$1 program=$2
shift 2
exec 9> "${TMPDIR:-/tmp}/lumtar-test-samples" # all samples use one address
flock 9
report=$(mktemp)
trap 'kill "$pid" 2> /dev/null || true; rm -f "$report"' EXIT
"$board" --listen 127.0.63.1 --timeout 60 > "$report" 2>&1 9>&- &
pid=$!
for _ in $(seq 100); do
    grep -q '^ready on' "$report" && break
    sleep 0.1
done
status=0
"$program" || status=$?
kill -INT "$pid"
wait "$pid" || { echo "the board ended with $?"; status=1; }
for text in "$@"; do
    if ! tr -s ' \n' '  ' < "$report" | grep -qF -- "$text"; then
        echo "the board's report lacks: $text"
        status=1
    fi
done
[ "$status" -eq 0 ] || cat "$report"
exit "$status"
