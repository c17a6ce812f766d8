# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# Completion of zelctl for bash; needs nothing but bash.

# The ids of the open sessions.
_zelctl_sessions() {
    zelctl sessions 2>/dev/null | sed -n '2,$s/  .*//p'
}

# The words that may stand behind a verb.
_zelctl_options() {
    case $1 in
        status) echo --json --timeout --help ;;
        sessions | watch) echo --json --help ;;
        report) echo --json --html --timeout --help ;;
        explain) echo --without --timeout --help ;;
        run) echo --trace --timeout --help -- ;;
        open) echo --keep --timeout --help ;;
        trace) echo open close --help ;;
        'trace open') echo --id --language --timeout --help ;;
        'trace close') echo --help ;;
        self-test) echo --with-session --timeout --help ;;
        *) echo status sessions report explain run open trace watch self-test --help ;;
    esac
}

_zelctl() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} verb='' words i
    COMPREPLY=()
    if ((COMP_CWORD > 1)); then
        verb=${COMP_WORDS[1]}
    fi
    if [ "$verb" = trace ] && ((COMP_CWORD > 2)); then
        verb="trace ${COMP_WORDS[2]}"
    fi
    if [ "$verb" = run ]; then
        # Behind -- stands another command, with the completion of its own.
        for ((i = 2; i < COMP_CWORD; i++)); do
            if [ "${COMP_WORDS[i]}" = -- ]; then
                if ((COMP_CWORD == i + 1)); then
                    mapfile -t COMPREPLY < <(compgen -c -- "$current")
                else
                    mapfile -t COMPREPLY < <(compgen -f -- "$current")
                fi
                return
            fi
        done
    fi
    case $previous in
        --html)
            mapfile -t COMPREPLY < <(compgen -f -- "$current")
            return
            ;;
        --language) words='C++ C#' ;;
        --timeout | --trace | --id) return ;;
        --without) words=$(_zelctl_sessions) ;;
        *) words=$(_zelctl_options "$verb") ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}

complete -F _zelctl zelctl
