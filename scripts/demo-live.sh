#!/usr/bin/env bash
# Shows a relay test in real time: the board publishes on one end of a virtual cable, a stand-in
# relay at the other end watches the sampled values, trips and says so with GOOSE. Makes two network
# namespaces and a veth pair for that, and removes them at the end, also after Ctrl-C.
# Usage: scripts/demo-live.sh BUILD_DIRECTORY
# Exit status 0 only if the relay tripped and the board received everything; 2 without privileges.
set -euo pipefail
export LC_ALL=C.UTF-8

# A table is as wide as the terminal, also behind a pipe.
[[ ! -t 1 ]] || export COLUMNS=$(tput cols)

fail() {
    echo "demo-live: $1" >&2
    exit "${2:-1}"
}

[[ $# -eq 1 ]] || fail "usage: $0 BUILD_DIRECTORY"
readonly build=$1
readonly examples=$(cd "$(dirname "${BASH_SOURCE[0]}")/../examples" && pwd)
readonly capture=$build/demo/live.pcap picture=$build/demo/live.svg
readonly board_space=lumtar-board-$$ relay_space=lumtar-relay-$$
readonly address=127.0.20.2
readonly seconds=60 # the most that any part may take

[[ $(id -u) -eq 0 ]] ||
    fail "network namespaces and raw sockets need root: run \`sudo make demo-live\`" 2
command -v ip >/dev/null || fail "the program \"ip\" (package iproute2) is not there"
for program in tools/lumtarctl/lumtarctl tools/lumtar-board/lumtar-board tests/standinrelay; do
    [[ -f $build/$program ]] || fail "$build/$program is not there; build the project first"
done

mkdir -p "$build/demo"
log=$(mktemp)
relay_log=$(mktemp)
watched=$(mktemp)
board=
relay=
cleanup() {
    trap - EXIT INT TERM
    for process in $board $relay; do
        kill "$process" 2>/dev/null || true
        wait "$process" 2>/dev/null || true
    done
    ip netns del "$board_space" 2>/dev/null || true
    ip netns del "$relay_space" 2>/dev/null || true
    rm -f "$log" "$relay_log" "$watched"
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

ip netns add "$board_space" 2>"$log" ||
    fail "no network namespace can be made here: $(cat "$log")" 2
ip netns add "$relay_space"
ip -n "$board_space" link add process-bus type veth peer name process-bus netns "$relay_space"
for space in "$board_space" "$relay_space"; do
    ip netns exec "$space" sysctl -qw net.ipv6.conf.all.disable_ipv6=1 2>/dev/null || true
    ip -n "$space" link set lo up
    ip -n "$space" link set process-bus up
done
at_board=(ip netns exec "$board_space")
at_relay=(ip netns exec "$relay_space")

cat <<TEXT
A relay test in real time, on a virtual cable between two network namespaces.
The stand-in relay trips 20 ms after the current of phase A has exceeded 5 A.

TEXT
# Ia1 is dataset entry 2 of the feeder's merging unit; 5 A are 5000 counts.
"${at_relay[@]}" "$build/tests/standinrelay" --interface process-bus \
    --sv-appid 0x4001 --channel 2 --threshold 5000 --delay 20 --goose-appid 0x0101 --entries 8 --entry 1 >"$relay_log" 2>&1 &
relay=$!
sleep 0.2
kill -0 "$relay" 2>/dev/null || { cat "$relay_log" >&2; fail "the relay did not start"; }
"${at_board[@]}" "$build/tools/lumtar-board/lumtar-board" --listen "$address" --interface process-bus --once \
    --timeout "$seconds" --capture "$capture" >"$log" 2>&1 &
board=$!
for ((i = 0; i < 100; ++i)); do
    ! grep -q '^ready' "$log" || break
    kill -0 "$board" 2>/dev/null || break
    sleep 0.1
done
grep -q '^ready' "$log" || { cat "$log" >&2; fail "the board did not start"; }

cat <<TEXT
\$ lumtarctl run --board $address --config examples/feeder-bay.xml \\
    --sequence examples/earth-fault.json --watch
TEXT
status=0
timeout --foreground "$seconds" "${at_board[@]}" "$build/tools/lumtarctl/lumtarctl" run --board "$address" \
    --config "$examples/feeder-bay.xml" --sequence "$examples/earth-fault.json" --watch |
    tee "$watched" || status=$?
# A machine with other things to do does not keep time: that is told, and no fault of the test.
[[ $status -eq 0 ]] || grep -q 'doubtful: ' "$watched" || fail "lumtarctl run ended with exit status $status"
"${at_board[@]}" "$build/tools/lumtarctl/lumtarctl" stop --board "$address" >/dev/null

status=0
wait "$board" || status=$?
board=
echo
sed -n '/^── Problems/,$p' "$log"
[[ $status -eq 0 ]] || fail "the board had problems (exit status $status)"
trip=$(tr -s '\n ' ' ' <"$watched" |
    sed -n 's/.*binary input: logic channel 0, \([0-9.]* ms\) after entry into step 1 (fault).*/\1/p')
[[ -n $trip ]] || fail "the relay did not trip in the fault"
echo
"$build/tools/lumtarctl/lumtarctl" plot "$capture" --sequence "$examples/earth-fault.json" -o "$picture"
echo
echo "The relay tripped $trip after the fault began."
echo "Capture, for Wireshark: $capture"
echo "Picture:                $picture"
