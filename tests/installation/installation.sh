#!/usr/bin/env bash
# Uses an installation of the build as another project would.
#
# usage: installation.sh files|cmake|pkgconfig|static
#   files      installs, moves everything to another place and looks at it
#   cmake      builds the consumer there with find_package, and runs it
#   pkgconfig  the same with pkg-config and make
#   static     builds the consumer with a static library as a part of it, installs that project, and
#              does all of the above there
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

prefix=$SCRATCH/prefix
[[ ${1:-} != static ]] || prefix=$SCRATCH/static-prefix
readonly prefix example=$SOURCE/examples/feeder-bay.xml

check_files() {
    local first=$SCRATCH/first-prefix
    rm -rf "$first" "$prefix"
    "$CMAKE" --install "$BUILD" --prefix "$first" >/dev/null
    mv "$first" "$prefix"

    local leaks
    leaks=$(grep -rIlF -e "$first" -e "$SOURCE" -e "$BUILD" "$prefix" || true)
    expect_equal "installed files that name a place of the build" "$leaks" ""
    local soname
    soname=$(readelf -d "$prefix/$LIBDIR/liblumtar.so" | sed -n 's/.*SONAME.*\[\(.*\)\]/\1/p')
    expect_equal "name that programs ask the library by" "$soname" "liblumtar.so.${VERSION%%.*}"
    local program
    for program in lumtarctl lumtar-board; do
        expect_equal "version" "$("$prefix/bin/$program" --version)" "$program $VERSION"
        check_manual "$program"
    done
    check_completion
    check_dissector
}

# options_of TEXT: the long options that it names, other than the toolkit's own --help-all.
options_of() {
    sed 's/\\-/-/g' <<<"$1" | grep -oE -- '--[a-z][a-z-]+' | grep -vx -- --help-all | sort -u
}

# help_of PROGRAM: of all of its commands.
help_of() {
    local help command
    help=$("$prefix/bin/$1" --help)
    echo "$help"
    for command in $(sed -n '/^Arguments:/,$ s/^  \([a-z]\+\) .*/\1/p' <<<"$help"); do
        "$prefix/bin/$1" "$command" --help
    done
}

# The manual page has every option that the program has, and no other.
check_manual() {
    local page
    page=$(sed -n '/^.SH OPTIONS/,/^.SH EXIT/p' "$prefix/share/man/man1/$1.1")
    expect_equal "options in the manual page of $1" "$(options_of "$page")" \
        "$(options_of "$(help_of "$1" | grep '^  *-')")"
}

# complete WORD...: what bash offers for the last of them.
complete_words() (
    source "$prefix/share/bash-completion/completions/lumtarctl"
    compopt() { :; } # which only works while somebody types
    COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)) COMPREPLY=()
    _lumtar "$prefix/bin/$1" "${@: -1}" "${@: -2:1}"
    echo "${COMPREPLY[@]}"
)

check_completion() {
    expect_equal "commands for st" "$(complete_words lumtarctl st)" "status stop"
    expect_equal "options of stop" "$(complete_words lumtarctl stop --)" \
        "--board --help --local-port --version"
    expect_equal "values of --config" \
        "$(complete_words lumtarctl run --config "$SOURCE/examples/feeder-b")" "$example"
    expect_equal "what --board offers" "$(complete_words lumtarctl stop --board '')" ""
    expect_equal "options for --on" "$(complete_words lumtar-board --on)" "--once"
    expect_equal "interfaces" "$(complete_words lumtar-board --interface lo)" "lo"
    if command -v zsh >/dev/null; then
        zsh -n "$prefix/share/zsh/vendor-completions/_lumtar"
    fi
}

# Below /usr, the dissector is in the folder where Wireshark looks for those of all users.
check_dissector() {
    cmp "$prefix/$LIBDIR/wireshark/plugins/lumtar.lua" "$SOURCE/tools/wireshark/lumtar.lua"
    command -v tshark >/dev/null || return 0
    expect_equal "Wireshark's folder" "/usr/$LIBDIR/wireshark/plugins" \
        "$(tshark -G folders 2>/dev/null | sed -n 's/^Global Lua Plugins:[[:space:]]*//p')"
}

# build_consumer PROJECT SETTING...
build_consumer() {
    local project=$1
    shift
    rm -rf "$project"
    cp -r consumer "$project"
    "$CMAKE" -S "$project" -B "$project/build" -DCMAKE_CXX_COMPILER="$CXX" "$@"
    "$CMAKE" --build "$project/build" --parallel 2
    "$project/build/consumer" "$example"
}

build_with_cmake() {
    local project=$prefix-cmake-consumer
    build_consumer "$project" -DCMAKE_PREFIX_PATH="$prefix"

    # A later major version does not replace an earlier one.
    local earlier=$((${VERSION%%.*} - 1)).9 output
    sed -i "s/find_package(Lumtar [0-9]*/find_package(Lumtar $earlier/" "$project/CMakeLists.txt"
    if output=$("$CMAKE" -S "$project" -B "$project/build" 2>&1); then
        fail "version $VERSION passed for $earlier"
    fi
    [[ $output == *"version: $VERSION"* ]] || fail "no word of the version at hand: $output"
}

build_with_pkgconfig() {
    command -v pkg-config >/dev/null || skip "pkg-config is not installed"
    local project=$prefix-pkgconfig-consumer
    rm -rf "$project"
    cp -r consumer "$project"
    export PKG_CONFIG_PATH=$prefix/$LIBDIR/pkgconfig
    expect_equal "version" "$(pkg-config --modversion lumtar)" "$VERSION"
    [[ $(pkg-config --cflags lumtar) != *-std=* ]] || fail "pkg-config chooses the language standard"
    make -C "$project" CXX="$CXX"
    LD_LIBRARY_PATH=$prefix/$LIBDIR "$project/consumer" "$example"

    # The consumer includes the whole interface: a header that it does not reach is internal.
    local flags reached
    read -ra flags <<<"$(pkg-config --cflags lumtar)"
    reached=$("$CXX" -M "${flags[@]}" consumer/main.cpp |
        grep -o '/include/lumtar/[^ ]*' | sed 's|.*/||' | sort -u)
    expect_equal "public headers" "$(ls "$prefix/include/lumtar")" "$reached"
}

build_as_part() {
    local project=$prefix-outer
    build_consumer "$project" -DLUMTAR_SOURCE="$SOURCE" -DBUILD_SHARED_LIBS=OFF \
        -DQT_MAJOR_VERSION="$QT" -DCMAKE_INSTALL_LIBDIR="$LIBDIR"
    rm -rf "$prefix"
    "$CMAKE" --install "$project/build" --prefix "$prefix" >/dev/null
    "$prefix/bin/consumer" "$example"
    build_with_cmake
    build_with_pkgconfig
}

case ${1:-} in
files) check_files ;;
cmake) build_with_cmake ;;
pkgconfig) build_with_pkgconfig ;;
static) build_as_part ;;
*) fail "usage: $0 files|cmake|pkgconfig|static" ;;
esac
