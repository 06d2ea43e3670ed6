#compdef lumtarctl lumtar-board
# Completion for zsh. It asks the programs themselves (--help), so that it knows what this version knows.

local help
local -a command options
if [[ ${words[1]:t} == lumtarctl ]]; then
    if ((CURRENT == 2)); then
        options=(${(f)"$($words[1] --help 2>/dev/null | sed -n '/^Arguments:/,$ s/^  \([a-z][a-z-]*\)  *\(.*\)/\1:\2/p')"})
        _describe command options
        return
    fi
    command=($words[2])
fi
help=$($words[1] $command --help 2>/dev/null | sed '/^Arguments:/,$d')
if [[ $words[CURRENT-1] == -* && $help == *"$words[CURRENT-1] <"* ]]; then
    if [[ $words[CURRENT-1] == --interface ]]; then
        _net_interfaces
    elif [[ $help == *"$words[CURRENT-1] <FILE"* ]]; then
        _files
    fi
elif [[ $PREFIX == -* ]]; then
    options=(${(f)"$(print -r -- $help | sed -n 's/^  \(-[a-z], \)\{0,1\}\(--[a-z][a-z-]*\)\( <[^>]*>\)\{0,1\}  *\(.*\)/\2:\4/p')"})
    _describe option options
else
    _files
fi
