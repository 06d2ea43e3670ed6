# shellcheck shell=bash
# What the scripts here share. CTest gives the settings as environment variables.
set -euo pipefail
unset LD_LIBRARY_PATH
export LC_ALL=C.UTF-8 QT_QPA_PLATFORM=offscreen

fail() {
    echo "failed: $*" >&2
    exit 1
}

skip() {
    echo "skipped: $*"
    exit 77
}

# expect_equal WHAT ACTUAL EXPECTED
expect_equal() {
    [[ $2 == "$3" ]] || fail "$1"$'\n'"actual:"$'\n'"$2"$'\n'"expected:"$'\n'"$3"
}

[[ -z ${SKIP:-} ]] || skip "$SKIP"
