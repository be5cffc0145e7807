# shellcheck shell=bash
# To be sourced, from the top of the tree. What commands print goes to build/log/<script>.log.

step_log=build/log/${0##*/}.log
mkdir -p build/log
: >"$step_log"

# run_quietly TEXT COMMAND...: runs a command; prints one line that says what and, on a terminal, how far it is.
# Returns the command's status.
run_quietly() {
    local text=$1 status=0 begin=$SECONDS
    shift
    step_begin=$(($(wc -l <"$step_log") + 1))
    printf '%s ... ' "$text"
    "$@" </dev/null 2>&1 | show_progress "$text" || status=$?
    [ ! -t 1 ] || printf '\r\e[K%s ... ' "$text"
    echo "$([ "$status" -eq 0 ] && echo done || echo failed) ($((SECONDS - begin)) s)"
    return "$status"
}

# Counts by what ninja and ctest print before each step, else in lines.
show_progress() {
    local line lines=0 far=''
    while IFS= read -r line; do
        echo "$line" >&3
        lines=$((lines + 1))
        if [[ $line =~ ^\[?\ *([0-9]+/[0-9]+)[]\ ] ]]; then
            far=${BASH_REMATCH[1]}
        elif [[ $far != */* ]]; then
            far="$lines lines"
        fi
        [ ! -t 1 ] || printf '\r\e[K%s ... %s' "$1" "$far"
    done 3>>"$step_log"
}

# What the last command printed.
step_output() { tail -n "+$step_begin" "$step_log"; }

# step TEXT COMMAND...: the same, and shows the end of what a command printed that failed.
step() {
    local status=0
    run_quietly "$@" || status=$?
    if [ "$status" -ne 0 ]; then
        step_output | tail -n 40 >&2
        echo "All of its output: $step_log" >&2
    fi
    return "$status"
}
