#!/usr/bin/env bash
# Makes the Debian packages of the build and checks them without installing them.
#
# usage: packages.sh
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

for tool in dpkg-deb dpkg-shlibdeps file pkg-config; do
    command -v "$tool" >/dev/null || skip "$tool is not installed"
done

readonly work=$SCRATCH/packages root=$SCRATCH/packages/root revision=$VERSION-1
readonly library=liblumtar${VERSION%%.*} development=liblumtar-dev tools=lumtar-tools
architecture=$(dpkg --print-architecture)
readonly architecture

package_file() { echo "$work/$1_${revision}_$architecture.deb"; }

field() { dpkg-deb -f "$(package_file "$1")" "$2"; }

# expect_dependency PACKAGE PATTERN...: each extended regular expression matches one whole entry of
# Depends.
expect_dependency() {
    local package=$1 entries pattern
    entries=$(field "$package" Depends | sed 's/, */\n/g')
    shift
    for pattern in "$@"; do
        grep -qxE "$pattern" <<<"$entries" || fail "$package does not depend on $pattern: $entries"
    done
}

make_packages() {
    rm -rf "$work"
    # Whoever builds with a strict umask gets packages that others can use.
    (umask 077 && "$CPACK" -G DEB -B "$work" --config "$BUILD/CPackConfig.cmake") ||
        fail "cpack ended with exit status $?"
    expect_equal "packages" "$(printf '%s\n' "$work"/*.deb)" \
        "$(for p in "$development" "$library" "$tools"; do package_file "$p"; done)"
}

check_fields() {
    local qt=(libqt6core6 libqt6network6 libqt6xml6 qt6-base-dev)
    [[ $QT = 6 ]] || qt=(libqt5core5 libqt5network5 libqt5xml5 qtbase5-dev)
    local version=' \(>= [^)]*\)' same="$library \(= $revision\)"
    qt=("${qt[@]/%/(a|t64)?$version}") # some releases of Debian add to the names
    expect_dependency "$library" "libc6$version" "${qt[@]:0:3}"
    expect_dependency "$tools" "$same" "libc6$version" "${qt[@]:0:2}" "libqt${QT}svg$QT$version" \
        'fonts-dejavu-core .*'
    expect_dependency "$development" "$same" "${qt[3]}"
    [[ $(field "$library" Depends) != *lumtar* ]] || fail "the library depends on its own packages"

    local package section
    for package in "$library libs" "$development libdevel" "$tools utils"; do
        read -r package section <<<"$package"
        expect_equal "section of $package" "$(field "$package" Section)" "$section"
        [[ $(field "$package" Maintainer) == *@* ]] || fail "$package has no maintainer"
    done

    local control=$work/control
    dpkg-deb -e "$(package_file "$library")" "$control"
    expect_equal "shlibs" "$(cat "$control/shlibs")" \
        "liblumtar ${VERSION%%.*} $library (>= $revision)"
    expect_equal "triggers" "$(cat "$control/triggers")" "activate-noawait ldconfig"
}

# The files that a package must have and no other; *.h and *.cmake stand for what the consumer needs.
expected_files() {
    printf '%s\n' "usr/share/doc/$1/"{changelog.Debian.gz,changelog.gz,copyright}
    case $1 in
    "$library") printf '%s\n' "usr/$LIBDIR/liblumtar.so."{"${VERSION%%.*}","$VERSION"} ;;
    "$development")
        printf '%s\n' 'usr/include/lumtar/*.h' "usr/share/lintian/overrides/$1" \
            "usr/$LIBDIR/"{'cmake/Lumtar/*.cmake',liblumtar.so,pkgconfig/lumtar.pc}
        ;;
    "$tools")
        printf '%s\n' usr/bin/{lumtar-board,lumtarctl} "usr/$LIBDIR/wireshark/plugins/lumtar.lua" \
            usr/share/{man/man1/,bash-completion/completions/}{lumtar-board,lumtarctl} \
            usr/share/zsh/vendor-completions/_lumtar | sed '/man1/s/$/.1.gz/'
        (cd "$SOURCE" && printf 'usr/share/lumtar/%s\n' schemas/*.schema.json &&
            find examples docs/*.md -type f -printf 'usr/share/doc/lumtar/%p\n')
        ;;
    esac
}

check_contents() {
    local package contents odd actual
    for package in "$library" "$development" "$tools"; do
        contents=$(dpkg-deb --contents "$(package_file "$package")" | sed 's| \./| |; s| -> .*||')
        odd=$(awk '$2 != "root/root" || $1 !~ /^(drwxr-xr-x|lrwxrwxrwx|-rw-r--r--)$/ &&
            ($1 != "-rwxr-xr-x" || $6 !~ /^usr\/bin\//)' <<<"$contents")
        expect_equal "odd owners and permissions in $package" "$odd" ""
        actual=$(awk '$6 !~ /\/$/ { print $6 }' <<<"$contents" |
            sed 's|^\(usr/include/lumtar/\).*\.h$|\1*.h|; s|^\(.*/cmake/Lumtar/\).*\.cmake$|\1*.cmake|')
        expect_equal "files of $package" "$(sort -u <<<"$actual")" \
            "$(expected_files "$package" | sort -u)"
    done
}

check_binaries() {
    local binary
    for binary in "$root/usr/$LIBDIR/liblumtar.so.$VERSION" "$root"/usr/bin/*; do
        [[ $(file -b "$binary") == *", stripped" ]] || fail "$binary has debug symbols"
        if readelf -d "$binary" | grep -E 'R(UN)?PATH'; then
            fail "$binary looks for libraries in a place of its own"
        fi
    done
    expect_equal "lumtarctl --version" \
        "$(LD_LIBRARY_PATH=$root/usr/$LIBDIR "$root/usr/bin/lumtarctl" --version)" "lumtarctl $VERSION"
}

# With the files of both packages in place, another project finds what it asks for.
check_development() {
    "$CMAKE" -S consumer -B "$work/consumer" \
        -DCMAKE_CXX_COMPILER="$CXX" -DCMAKE_PREFIX_PATH="$root/usr" >/dev/null
    PKG_CONFIG_PATH=$root/usr/$LIBDIR/pkgconfig pkg-config --cflags --libs lumtar >/dev/null
}

check_with_lintian() {
    if ! command -v lintian >/dev/null; then
        echo "lintian is not installed, so its opinion is missing"
        return
    fi
    lintian --allow-root --fail-on error "$work"/*.deb || fail "lintian found errors"
}

make_packages
check_fields
for package in "$library" "$development" "$tools"; do
    dpkg-deb -x "$(package_file "$package")" "$root"
done
check_contents
check_binaries
check_development
check_with_lintian
