#!/usr/bin/env bash
# Shows a whole relay test against a board made of software: load, execute, watch, stop. Leaves a
# capture of the process bus and a picture of it in BUILD_DIRECTORY/demo. Then plays a test plan with
# eleven cases, and leaves its report there.
# Usage: scripts/demo.sh BUILD_DIRECTORY
# Exit status 0 only if every part succeeded and the board received everything.
set -euo pipefail
export LC_ALL=C.UTF-8 # the board's table has characters beyond ASCII

# A table is as wide as the terminal, also behind a pipe.
[[ ! -t 1 ]] || export COLUMNS=$(tput cols)

fail() {
    echo "demo: $*" >&2
    exit 1
}

[[ $# -eq 1 ]] || fail "usage: $0 BUILD_DIRECTORY"
readonly build=$1
readonly examples=$(cd "$(dirname "${BASH_SOURCE[0]}")/../examples" && pwd)
readonly address=127.0.20.1
read -ra launcher <<<"${LUMTAR_LAUNCHER:-}" # an emulator, for programs of another machine
readonly seconds=60 # the most that any part may take
readonly output=$build/demo
readonly capture=$output/earth-fault.pcap picture=$output/earth-fault.svg
readonly report=$output/report.html

# What the two example files hold.
readonly sv_streams=2 goose_streams=2 subscriptions=2 steps=5 outputs=16
readonly expected=(
    --expect "reset message parameters=1"
    --expect "frame-template download=$((sv_streams + goose_streams))"
    --expect "SV stream description=$sv_streams"
    --expect "GOOSE stream description=$goose_streams"
    --expect "GOOSE subscription=$subscriptions"
    --expect "channel signal=$((steps * outputs))"
    --expect "GOOSE signal control=$((steps * goose_streams))" # both carry binary outputs
    --expect "step option=$steps"
    --expect "step condition=$steps"
    --expect "start/stop=2"
)

for program in lumtarctl lumtar-board; do
    [[ -f $build/tools/$program/$program ]] || fail "$build/tools/$program/$program is not there; build the project first"
done

mkdir -p "$output"
board=
log=$(mktemp)
watched=$(mktemp)
cleanup() {
    if [[ -n $board ]]; then
        kill "$board" 2>/dev/null || true
        wait "$board" 2>/dev/null || true
    fi
    rm -f "$log" "$watched"
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

"${launcher[@]}" "$build/tools/lumtar-board/lumtar-board" --listen "$address" --once --timeout "$seconds" \
    --capture "$capture" --inputs "$examples/relay.txt" --start-time 2026-01-01T00:00:00Z \
    "${expected[@]}" >"$log" 2>&1 &
board=$!
for ((i = 0; i < 100; ++i)); do
    grep -q '^ready' "$log" && break
    kill -0 "$board" 2>/dev/null || break
    sleep 0.1
done
if ! grep -q '^ready' "$log"; then
    cat "$log" >&2
    fail "the board did not start; is something else using UDP port 2001 of $address?"
fi

# A command as one would type it; an option and its value stay in one line of 80 characters.
echo_command() {
    local line="\$ lumtarctl" part
    while (($# > 0)); do
        part=$1
        shift
        if [[ $part == -* && $# -gt 0 && $1 != -* ]]; then
            part+=" $1"
            shift
        fi
        if ((${#line} + ${#part} > 80 - 3)); then
            echo "$line \\"
            line="   "
        fi
        line+=" $part"
    done
    echo "$line"
}

show() {
    echo_command "${@/#"$examples"/examples}" # the reader is in the project's directory
    timeout --foreground "$seconds" "${launcher[@]}" "$build/tools/lumtarctl/lumtarctl" "$@" ||
        fail "lumtarctl $1 failed with exit status $?"
    echo
}

cat <<TEXT
A relay test from end to end, against a board made of software at $address.
An earth fault in phase A of a 110 kV feeder: prefault, fault, trip, dead time,
reclose. The relay is a script (examples/relay.txt) that trips 30 ms after the
fault begins.

TEXT
show run --board "$address" --config "$examples/feeder-bay.xml" \
    --sequence "$examples/earth-fault.json" --watch | tee "$watched"
show stop --board "$address"

status=0
wait "$board" || status=$?
board=
cat <<TEXT
What the board received. Amplitudes are peak values: 57.735 V RMS is 81.65 V.

TEXT
grep -v '^ready' "$log"
[[ $status -eq 0 ]] || fail "the board did not receive what was expected (exit status $status)"
echo "The board received everything: $sv_streams SV and $goose_streams GOOSE streams,"
echo "$subscriptions subscriptions, $steps steps, start, stop."
echo
show plot "$capture" --sequence "$examples/earth-fault.json" -o "$picture"
trip=$(tr -s '\n ' ' ' <"$watched" |
    sed -n 's/.*binary input: logic channel 0, \([0-9.]* ms\) after entry into step 1 (fault).*/\1/p')
[[ -n $trip ]] || fail "the relay did not trip in the fault"
if [[ ${#launcher[@]} -eq 0 ]]; then # the plan's programs start each other, which no emulator can
    cat <<TEXT
Eleven cases of a feeder protection, as a test plan with verdicts. A script in
each case (examples/feeder-test/plan.json) stands in for the relay.

TEXT
    show test "$examples/feeder-test/plan.json" --html "$report" --pdf "$output/report.pdf" \
        --junit "$output/junit.xml" --record "$output/record.json"
fi
echo "The relay tripped $trip after the fault began."
echo "Capture, for Wireshark: $capture"
echo "Picture:                $picture"
[[ ! -e $report ]] || echo "Report of the plan:     $report"
