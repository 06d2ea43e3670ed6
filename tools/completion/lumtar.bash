# Completion for lumtarctl and lumtar-board in bash. It asks the programs themselves (--help), so that
# it knows what this version knows.

_lumtar() {
    local program=$1 current=$2 previous=$3 help
    local -a command=()
    if [[ ${program##*/} == lumtarctl ]]; then
        if ((COMP_CWORD == 1)); then
            help=$("$program" --help 2>/dev/null | sed -n '/^Arguments:/,$ s/^  \([a-z][a-z-]*\) .*/\1/p')
            mapfile -t COMPREPLY < <(compgen -W "$help --help --version" -- "$current")
            return
        fi
        command=("${COMP_WORDS[1]}")
    fi
    help=$("$program" "${command[@]}" --help 2>/dev/null | sed '/^Arguments:/,$d')
    if [[ $previous == -* ]] && grep -q -- "$previous <" <<<"$help"; then
        if grep -q -- "$previous <FILE" <<<"$help"; then
            compopt -o filenames
            mapfile -t COMPREPLY < <(compgen -f -- "$current")
        elif [[ $previous == --interface ]]; then
            mapfile -t COMPREPLY < <(cd /sys/class/net && compgen -W "$(echo *)" -- "$current")
        fi
    elif [[ $current == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$(grep -o -- '--[a-z][a-z-]*' <<<"$help" | sort -u)" -- "$current")
    else
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
    fi
}
complete -F _lumtar lumtarctl lumtar-board
