#!/usr/bin/env bash
# Refuses an #include that runs against the arrows between the rooms (docs/architecture.md), one that
# does not name its header from the root, and a Widgets header outside the source with the box.
# Exit status 0 only if there is none.
set -euo pipefail
cd "$(dirname "$0")/.."

# A room, and the nearest rooms below it: it may include them and what they may include. "all": any.
readonly arrows='
protocol
configuration        protocol
engine               configuration
virtualboard/wire
virtualboard/play    virtualboard/wire
virtualboard/capture virtualboard/play
virtualboard/inputs  virtualboard/capture
virtualboard/live    virtualboard/inputs
virtualboard/board   virtualboard/live
workbench            engine virtualboard/board
tools/terminal       workbench
tools/lumtarctl      tools/terminal
tools/lumtar-board   tools/terminal
tests                all
tests/installation
benchmarks           all
'
readonly widgets='<(QtWidgets/.*|QApplication|Q[A-Za-z]*(Widget|Box|Dialog|Button|Label|Layout|Window|View|Edit|Menu|Bar|Action|Style))>'
# Qt Gui has layouts of texts and pages, too.
readonly gui='<Q(AbstractTextDocument|Text|Page)Layout>'

installed=$(sed -n 's|^  \([a-z]*/.*\.h\)$|\1|p' cmake/Install.cmake)

git grep -nE '^ *# *include' -- '*.cpp' '*.h' | awk -v arrows="$arrows" -v installed="$installed" \
    -v widgets="$widgets" -v gui="$gui" '
function refuse(reason) { print where ": " name ": " reason; ++refused }
# The longest room of the table that the path starts with.
function room_of(path) {
    while (sub(/\/[^\/]*$/, "", path))
        if (path in may)
            return path
    return ""
}
BEGIN {
    rows = split(arrows, row, "\n")
    for (i = 1; i <= rows; ++i) {
        fields = split(row[i], field, " ")
        may[field[1]] = field[1] "/"
        for (j = 2; j <= fields; ++j)
            may[field[1]] = may[field[1]] " " (field[j] == "all" ? "all" : may[field[j]])
    }
    public_count = split(installed, header, " ")
    for (i = 1; i <= public_count; ++i) {
        public[header[i]]
        sub(/.*\//, "", header[i])
        flat[header[i]]
    }
}
{
    match($0, /^[^:]*:[0-9]+/)
    where = substr($0, 1, RLENGTH)
    source = where
    sub(/:.*/, "", source)
    name = $0
    sub(/^[^:]*:[0-9]+: *# *include */, "", name)
    sub(/ *\/\/.*/, "", name)
    if (name ~ widgets && name !~ gui && source != "protocol/warningbox.cpp" && source !~ /^tests\//)
        refuse("Widgets are for protocol/warningbox.cpp only")
    if (name !~ /^"/)
        next
    target = substr(name, 2, length(name) - 2)
    room = room_of(source)
    if (room == "") {
        refuse("its folder is in no row of scripts/arrows.sh")
    } else if (target !~ /\//) {
        if (target !~ /\.moc$/ && target != "lumtar_export.h" && !(source in public && target in flat))
            refuse("write it from the root")
    } else {
        allowed = may[room] ~ / all$/
        for (i = split(may[room], field, " "); i > 0; --i)
            allowed = allowed || index(target, field[i]) == 1
        if (!allowed)
            refuse(room "/ must not include this")
    }
}
END { exit refused > 0 }'
