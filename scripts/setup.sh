#!/usr/bin/env bash
# Installs what the project needs and this machine lacks.
#
# usage: scripts/setup.sh GROUP...
# Groups: qt6, qt5 (compiler, CMake, that version of Qt and what our programs use besides), test,
# live (virtual networks), packages (a deeper look at ours), arm, bench, docs, format.
# LUMTAR_SETUP=no skips it, for systems whose packages go by other names.
set -euo pipefail

either_qt="g++ make cmake ninja-build libpcap-dev libexpected-dev libreaderwriterqueue-dev"
either_qt+=" fonts-dejavu-core"
declare -A packages=(
    [qt6]="$either_qt qt6-base-dev qt6-5compat-dev qt6-svg-dev qt6-qpa-plugins"
    [qt5]="$either_qt qtbase5-dev libqt5svg5-dev"
    [test]="tshark dpkg-dev file pkg-config libxml2-utils poppler-utils python3-jsonschema"
    [live]="iproute2"
    [arm]="g++-arm-linux-gnueabihf mmdebstrap qemu-user"
    [packages]="lintian"
    [bench]="libbenchmark-dev"
    [docs]="make doxygen"
    [format]="git clang-format clang-tidy"
)

if [ "${LUMTAR_SETUP:-yes}" = no ]; then
    exit 0
fi

wanted=()
for group in "$@"; do
    if [ -z "${packages[$group]:-}" ]; then
        echo "setup.sh: unknown group \"$group\"; known are: ${!packages[*]}" >&2
        exit 2
    fi
    read -ra members <<<"${packages[$group]}"
    wanted+=("${members[@]}")
done

if ! command -v apt-get >/dev/null || ! command -v dpkg-query >/dev/null; then
    cat >&2 <<EOF
setup.sh: this system has no apt. Please install, under whatever names your system has them:
  ${wanted[*]}
(a C++17 compiler, CMake 3.21 or later, Ninja, Qt 6.4 with Core5Compat and Svg or Qt 5.15 with Svg),
then run the same command again with LUMTAR_SETUP=no.
EOF
    exit 1
fi

missing=()
for package in "${wanted[@]}"; do
    status=$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null || true)
    [ "$status" = installed ] || missing+=("$package")
done
[ "${#missing[@]}" -gt 0 ] || exit 0

as_root=()
if [ "$(id -u)" -ne 0 ]; then
    if ! command -v sudo >/dev/null; then
        echo "setup.sh: need root or sudo to install: ${missing[*]}" >&2
        exit 1
    fi
    as_root=(sudo)
fi

echo "setup.sh: installing ${missing[*]}"
"${as_root[@]}" apt-get -o DPkg::Lock::Timeout=120 update -qq
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get -o DPkg::Lock::Timeout=120 install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
