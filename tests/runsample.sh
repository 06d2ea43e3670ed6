#!/usr/bin/env bash
# runsample.sh BOARD PROGRAM ADDRESS TEXT...: runs a sample of the documentation against the board made
# of software. The sample must succeed, and the board's report of what it played must hold every TEXT
# (compared with single spaces).
#
# runsample.sh BOARD PROGRAM ADDRESS --transcript FILE: runs it as FILE shows it in a terminal. If that
# starts a board, so does this, with the same options. The program must print what stands there and end
# with the status that `echo $?` tells, 0 without that line.
set -euo pipefail
board=$1 program=$2 address=$3
shift 3

# start_board OPTION...
start_board() {
    "$board" --timeout 60 "$@" > "$report" 2>&1 9>&- &
    pid=$!
    for _ in $(seq 100); do
        grep -q '^ready on' "$report" && return
        sleep 0.1
    done
    echo "the board does not begin"
}

end_board() {
    [ -n "$pid" ] || return 0
    kill -INT "$pid"
    wait "$pid" || { echo "the board ended with $?"; status=1; }
    pid=
}

play() {
    start_board --listen "$address"
    "$program" || status=$?
    end_board
    for text in "$@"; do
        if ! tr -s ' \n' '  ' < "$report" | grep -qF -- "$text"; then
            echo "the board's report lacks: $text"
            status=1
        fi
    done
}

# What FILE has below the line that matches a pattern, up to the next command line.
below() {
    sed -n "/$1/,\$p" "$transcript" | sed -e 1d -e '/^\$ /,$d'
}

follow() {
    transcript=$1
    local options result=0
    options=$(sed -n 's/^\$ lumtar-board \(.*\) > .*/\1/p' "$transcript")
    local commands
    commands=$(grep -c '^\$ [.l]' "$transcript" || true) # the program, and a board
    if [ "$commands" -ne $((${#options} > 0 ? 2 : 1)) ]; then
        echo "not understood: $transcript"
        exit 1
    fi
    # shellcheck disable=SC2086 # options are separated by blanks
    [ -z "$options" ] || start_board $options
    "$program" > "$output" || result=$?
    end_board
    below '^\$ \.\/' | diff - "$output" || { echo "other output than the page shows (<)"; status=1; }
    local shown
    shown=$(below '^\$ echo \$?')
    [ "$result" -eq "${shown:-0}" ] || { echo "ended with $result, not ${shown:-0}"; status=1; }
}

exec 9> "${TMPDIR:-/tmp}/lumtar-test-$address"
flock 9
report=$(mktemp) output=$(mktemp) pid='' status=0
trap '[ -z "$pid" ] || kill "$pid" 2> /dev/null || true; rm -f "$report" "$output"' EXIT
if [ "$1" = --transcript ]; then
    follow "$2"
else
    play "$@"
fi
[ "$status" -eq 0 ] || cat "$report"
exit "$status"
