#!/usr/bin/env bash
# Makes the picture of a report's page that the README shows.
# Usage: scripts/report-page.sh BUILD_DIRECTORY, in which the demo has left its report.
set -euo pipefail
build=$1
cd "$(dirname "${BASH_SOURCE[0]}")/.."
page=$(for ((i = 1; i < 100; ++i)); do
    pdftotext -f "$i" -l "$i" "$build/demo/report.pdf" - 2>/dev/null | grep -q '^2 inverse-time' && echo "$i" && break
done)
[[ -n $page ]] || { echo "report-page.sh: the report has no characteristic" >&2; exit 1; }
pdftoppm -f "$page" -l "$page" -r 72 -png -singlefile "$build/demo/report.pdf" docs/report-page
echo "docs/report-page.png: page $page of $build/demo/report.pdf"
