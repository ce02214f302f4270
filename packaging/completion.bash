# SPDX-License-Identifier: MIT
# bash completion for corvane. It asks the command itself what may appear on the command line.
# shellcheck shell=bash

_corvane() {
    local word=$2 previous=$3 index subcommand="" help choices words=()
    COMPREPLY=()
    help=$("${COMP_WORDS[0]}" --help 2>/dev/null) || return
    for ((index = 1; index < COMP_CWORD; ++index)); do
        [[ ${COMP_WORDS[index]} == -- ]] && return # what follows is for the control program
        if _corvane_subcommands | grep -qxFe "${COMP_WORDS[index]}"; then
            words+=("${COMP_WORDS[index]}") # `corvane messages show` has help of its own
            help=$("${COMP_WORDS[0]}" "${words[@]}" --help 2>/dev/null) || return
        fi
    done
    subcommand=${words[0]:-}

    case $previous in
    --addin) _corvane_files '*.so' && return ;;
    --config) _corvane_files '*.conf' && return ;;
    --store) _corvane_files '*.db' && return ;;
    --web-token-file | --scenario) _corvane_files '*' && return ;;
    --*)
        # The help shows an option's choices: --log-level TEXT:{trace,debug,...}
        choices=$(sed -nE "s/^ *(-.,)?$previous [A-Z]+:\{([^}]*)\}.*/\2/p" <<<"$help")
        if [[ -n $choices ]]; then
            mapfile -t COMPREPLY < <(compgen -W "${choices//,/ }" -- "$word")
            return
        fi
        # An option with any other value gets no completion.
        grep -qE "^ *(-.,)?$previous [A-Z]+" <<<"$help" && return
        ;;
    esac

    if [[ $word == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$(sed -nE 's/^ *(-.,)?(--[a-z-]+).*/\2/p' <<<"$help")" -- "$word")
    elif [[ $help == *$'\nSubcommands:\n'* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$(_corvane_subcommands)" -- "$word")
    elif [[ $subcommand == run || $subcommand == test ]]; then
        _corvane_files '*.lua'
    elif [[ $subcommand == check-modem ]]; then
        _corvane_files '/dev/*'
    elif [[ $subcommand == log-level && $previous != log-level ]]; then
        choices=$(sed -nE 's/^ *LEVEL [A-Z]+:\{([^}]*)\}.*/\1/p' <<<"$help")
        mapfile -t COMPREPLY < <(compgen -W "${choices//,/ }" -- "$word")
    elif [[ $subcommand == watch || $subcommand == log-level ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$("${COMP_WORDS[0]}" list 2>/dev/null | sed -nE '2,$ s/ .*//p')" -- "$word")
    elif [[ $subcommand == blocks ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$("${COMP_WORDS[0]}" blocks 2>/dev/null | sed '/^ /d')" -- "$word")
    fi
}

# The subcommands that $help lists.
_corvane_subcommands() {
    sed -nE '/^Subcommands:/,/^$/ s/^  ([a-z-]+) .*/\1/p' <<<"$help"
}

# Files that match a pattern, and folders that may lead to them.
_corvane_files() {
    local file
    compopt -o filenames
    while IFS= read -r file; do
        # shellcheck disable=SC2053 # $1 is meant as a pattern
        if [[ -d $file || $file == $1 ]]; then COMPREPLY+=("$file"); fi
    done < <(compgen -f -- "$word")
}

complete -F _corvane corvane
