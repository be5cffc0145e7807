#!/bin/bash
# Holds the manual pages and the completions against --help, and runs all examples:
# manual.sh TRK SCRATCH
# shellcheck disable=SC2016,SC2086 # programs of other shells; empty words are to go
. "$(dirname "$0")/head.bash"
export LC_ALL=C.UTF-8
program=$trk source=$(cd "$here/../.." && pwd)
completion=$source/tools/completion pages=$(cd "$(dirname "$program")/.." && pwd)/docs/man
PATH=$(dirname "$program"):$PATH
mkdir recordings

same() { # WHAT EXPECTED FOUND: lists, a line each, in any order
    diff <(sort <<<"$2") <(sort <<<"$3") >differences || fail "$1: $(cat differences)"
}
there() { command -v "$1" >/dev/null; }

# What each shell offers at the end of a line, which is given as words.
offers_bash() {
    COMP_WORDS=(trk "$@") COMP_CWORD=$#
    _trk
    printf '%s\n' "${COMPREPLY[@]}"
}
offers_fish() { fish -N -c "source '$completion/trk.fish'; complete -C 'trk $*'" </dev/null | cut -f1; }
offers_zsh() {
    local specs
    specs=$(zsh -f -c '_arguments() if [[ $1 == -C && $words[2] == [a-z]* ]]; then state=command line=($words[2])
        else print -rl -- "$@"; fi; words=(trk $2); . $1/_trk' zsh "$completion" "$1")
    case ${*: -1} in
    -) sed -nE 's/^(\(- \*\))?\*?(--?[a-z-]+).*/\2/p' <<<"$specs" ;;
    '') sed -nE "s/^\*?$2=.*(\(|compadd - )([^)]*)\)?$/\2/p" <<<"$specs" | tr ' ' '\n' ;;
    *) # a line that is typed: its last word behind the tabulator
        timeout 60 zsh -f -s "$completion" "trk $*" <<'END'
        zmodload zsh/zpty
        zpty z zsh -f -i
        zpty -w z "PS1= fpath=($1 \$fpath); autoload -U compinit; compinit -u -D; show() print -r \"<\$BUFFER>\"
            zle -N show; bindkey '^X' show; bindkey '^I' complete-word; print READY"
        zpty -r z line $'*READY\r*'
        zpty -w -n z "$2"$'\t\x18'
        zpty -r z line '*<*>*'
        print -r -- ${${${${line##*<}%%>*}%[, ]}##* }
END
        ;;
    esac
}

there scdoc || echo "no scdoc here, and so no pages" >&2
. "$completion/trk.bash"
shells=bash
for shell in zsh fish; do
    if there $shell; then shells+=" $shell"; else echo "no $shell here" >&2; fi
done
commands=$("$program" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z]*\) .*/\1/p')
for command in '' $commands; do
    page=$pages/trk${command:+-$command}.1
    options=$("$program" $command --help | sed -n 's/^  \(-[^ ]*\).*/\1/p' | tr , '\n')
    if there scdoc; then
        same "$page" "$options" "$(awk '/^\.RS/ && last ~ /^\\fB-/ { print last } { last = $0 }' "$page" |
            sed -E 's/\\f.//g; s/ [^-]*$//; s/, /\n/g')"
        grep -q "^.fBtrk${command:+-$command}.fR" "$pages/trk.1" || fail "trk.1 lacks $command"
    fi
    for shell in $shells; do
        same "$shell: options of $command" "$options" "$(offers_$shell $command -)"
    done
    for option in $options; do # the program names what it would have taken
        taken=$({ "$program" $command $option '?' -h 2>&1 || true; } | sed -nE 's/.* not in \{(.*)\}.*/\1/p')
        for shell in ${taken:+$shells}; do
            same "$shell: $command $option" "${taken//,/$'\n'}" "$(offers_$shell $command $option '')"
        done
    done
done

"$program" synth s07.trk && cp s07.trk recordings/s08.trk
for shell in $shells; do
    for line in $commands 'info s07.trk' 'dump --kind samples,events' 'dump --kind messages --columns +length'; do
        [ "$(offers_$shell ${line%??})" = "${line##* }" ] || fail "$shell: ${line%??}: $(offers_$shell ${line%??})"
    done
done

trk() {
    local status=0
    [[ $commands != *"$1"* ]] || "$program" "$@" >>out 2>err || status=$?
    [ $status -lt 2 ] || fail "trk $*: $(cat err)"
}
eval "$(awk '/^```/ { on = !on } on && /^(trk|  )/' "$source"/docs/man/*.scd | sed 's/\\\\/\\/g')"
rm -f practice.trk noisy.trk broken.trk # synth replaces nothing
for command in '' $commands; do
    eval "$("$program" $command --help | sed -n '/^Examples:/,/^$/s/^  trk/trk/p')"
done
