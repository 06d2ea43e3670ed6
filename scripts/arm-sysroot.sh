#!/usr/bin/env bash
# Unpacks what a cross build for 32-bit ARM links to and runs with: Debian's armhf packages of the
# release that this machine runs, from the mirror that it uses. Nothing of it is installed here.
#
# usage: scripts/arm-sysroot.sh FOLDER
set -euo pipefail

folder=$1
release=$(. /etc/os-release && echo "$VERSION_CODENAME")
gcc_major=$(g++ -dumpversion | cut -d. -f1)
packages="qt6-base-dev,qt6-5compat-dev,qt6-svg-dev,qt6-qpa-plugins,libpcap-dev,libc6-dev,libstdc++-$gcc_major-dev"
packages+=",libexpected-dev,libreaderwriterqueue-dev"
unpacked=$folder.packages # written last, so that an interrupted run starts again
[ "$(cat "$unpacked" 2>/dev/null)" != "$release $packages" ] || exit 0

mirror=$(apt-get indextargets --format '$(CODENAME) $(COMPONENT) $(REPO_URI)' 'Created-By: Packages' |
    awk -v release="$release" '$1 == release && $2 == "main" { print $3; exit }')
if [ -z "$mirror" ]; then
    echo "arm-sysroot.sh: apt knows no mirror of $release main; run apt-get update first" >&2
    exit 1
fi

rm -rf "$folder" "$unpacked"
mkdir -p "$(dirname "$folder")"
echo "arm-sysroot.sh: unpacking armhf packages of $release into $folder"
mmdebstrap --quiet --variant=extract --architectures=armhf \
    --include="$packages" "$release" "$folder" "$mirror"
echo "$release $packages" >"$unpacked"
