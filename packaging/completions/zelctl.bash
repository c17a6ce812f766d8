# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# Completion of zelctl for bash; needs nothing but bash.

# The ids of the open sessions, one a line.
_zelctl_sessions() {
    zelctl sessions 2>/dev/null | sed -n '2,$s/  .*//p'
}

# The words that may stand behind a verb, one a line.
_zelctl_options() {
    case $1 in
        status) printf '%s\n' --json --timeout --help ;;
        sessions | watch) printf '%s\n' --json --help ;;
        report) printf '%s\n' --json --html --timeout --help ;;
        explain) printf '%s\n' --without --timeout --help ;;
        run) printf '%s\n' --trace --timeout --help -- ;;
        open) printf '%s\n' --keep --timeout --help ;;
        trace) printf '%s\n' open close --help ;;
        'trace open') printf '%s\n' --id --language --timeout --help ;;
        'trace close') printf '%s\n' --help ;;
        self-test) printf '%s\n' --with-session --timeout --help ;;
        *) printf '%s\n' status sessions report explain run open trace watch self-test --help ;;
    esac
}

# Offers the lines that begin with what is typed, as they are to be typed: ids come from applications, and nothing in
# them may run, neither now nor with the line. Readline keeps the beginning of a word that has colons, so that is left out.
_zelctl_offer() {
    local kept=$1 typed=$2 line quoted
    while IFS= read -r line; do
        printf -v quoted %q "$line"
        if [[ $quoted == "$kept"* && ($quoted == "$typed"* || $line == "$typed"*) ]]; then
            COMPREPLY+=("${quoted#"$kept"}")
        fi
    done
}

_zelctl() {
    # For bash a colon begins another word; only the second argument is replaced.
    local before=${COMP_LINE:0:COMP_POINT} previous=${COMP_WORDS[COMP_CWORD - 1]} verb='' option='' i
    before=${before%"$2"}
    local kept=${before##*[[:space:]]}
    local typed=$kept$2
    COMPREPLY=()
    if ((COMP_CWORD > 1)); then
        verb=${COMP_WORDS[1]}
    fi
    if [ "$verb" = trace ] && ((COMP_CWORD > 2)); then
        verb="trace ${COMP_WORDS[2]}"
    fi
    for ((i = 2; i < COMP_CWORD; i++)); do
        if [[ $verb == run && ${COMP_WORDS[i]} == -- ]]; then
            # Behind it stands another command, with the completion of its own.
            if ((COMP_CWORD == i + 1)); then
                _zelctl_offer "$kept" "$typed" < <(compgen -c -- "$typed")
            else
                compopt -o default
            fi
            return
        fi
        if [[ ${COMP_WORDS[i]} == -* ]]; then
            option=${COMP_WORDS[i]}
        fi
    done
    case $previous in
        --html)
            compopt -o default
            return
            ;;
        --language)
            _zelctl_offer "$kept" "$typed" < <(printf '%s\n' C++ 'C#')
            return
            ;;
        --timeout | --trace | --id) return ;;
    esac
    # It takes several.
    if [[ $option == --without && $typed != -* ]]; then
        _zelctl_offer "$kept" "$typed" < <(_zelctl_sessions)
    else
        _zelctl_offer "$kept" "$typed" < <(_zelctl_options "$verb")
    fi
}

complete -F _zelctl zelctl
