# SPDX-License-Identifier: Apache-2.0
# Completion of zelctl for fish.

function __zelctl_sessions
    zelctl sessions 2>/dev/null | sed -n '2,$s/  .*//p'
end

function __zelctl_is_first
    test (count (commandline -opc)) -eq 1
end

# Whether the verb is that, and for trace also what stands behind it.
function __zelctl_has
    set -l words (commandline -opc)
    for i in (seq (count $argv))
        set -l at (math $i + 1)
        test "$words[$at]" = $argv[$i]; or return 1
    end
    not contains -- -- $words
end

function __zelctl_is_trace
    __zelctl_has trace; and test (count (commandline -opc)) -eq 2
end

# Whether the ids behind --without go on: it takes several.
function __zelctl_lists_sessions
    set -l options (string match -- '-*' (commandline -opc))
    test "$options[-1]" = --without
end

function __zelctl_runs
    set -l words (commandline -opc)
    test "$words[2]" = run; and contains -- -- $words
end

# What would complete the command behind -- if it stood alone.
function __zelctl_command
    set -l words (commandline -opc)
    set -l begin (math (contains -i -- -- $words) + 1)
    complete -C (string join -- ' ' (string escape -- $words[$begin..-1]) (commandline -ct))
end

complete -c zelctl -f
complete -c zelctl -s h -l help -d 'Help'

complete -c zelctl -n __zelctl_is_first -a status -d 'State of the daemon and the service'
complete -c zelctl -n __zelctl_is_first -a sessions -d 'Who holds the service'
complete -c zelctl -n __zelctl_is_first -a report -d 'The report of traces'
complete -c zelctl -n __zelctl_is_first -a explain -d 'Why the service runs or does not'
complete -c zelctl -n __zelctl_is_first -a run -d 'Hold a session while a command runs'
complete -c zelctl -n __zelctl_is_first -a open -d 'Hold a session until this is ended'
complete -c zelctl -n __zelctl_is_first -a trace -d 'Hold a trace, or end one'
complete -c zelctl -n __zelctl_is_first -a watch -d 'A line for each change'
complete -c zelctl -n __zelctl_is_first -a self-test -d 'Check the whole way'

complete -c zelctl -n __zelctl_is_trace -a open -d 'Hold a trace'
complete -c zelctl -n __zelctl_is_trace -a close -d 'End one that is held'

for verb in status sessions report watch
    complete -c zelctl -n "__zelctl_has $verb" -l json -d 'For programs'
end
for verb in status report explain run open 'trace open' self-test
    complete -c zelctl -n "__zelctl_has $verb" -l timeout -x -d 'Seconds for an answer'
end
complete -c zelctl -n '__zelctl_has report' -l html -r -F -d 'A page'
complete -c zelctl -n '__zelctl_has explain' -l without -x -a '(__zelctl_sessions)' -d 'Without these sessions'
complete -c zelctl -n '__zelctl_has explain; and __zelctl_lists_sessions' -a '(__zelctl_sessions)'
complete -c zelctl -n '__zelctl_has run' -l trace -x -d 'A trace that says why'
complete -c zelctl -n '__zelctl_has open' -l keep -d 'Also without the service'
complete -c zelctl -n '__zelctl_has trace open' -l id -x -d 'Number of the trace'
complete -c zelctl -n '__zelctl_has trace open' -l language -x -a 'C++ C#' -d 'Of the program'
complete -c zelctl -n '__zelctl_has self-test' -l with-session -d 'Also where it changes something'
complete -c zelctl -n __zelctl_runs -x -a '(__zelctl_command)'
