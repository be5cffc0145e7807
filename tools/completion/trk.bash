# Completion of trk for bash.

_trk_options() { # of a command
    local trials='--start --end' table='--columns --missing --encoding'
    local opening='--check --tolerant --salvage --message-offsets'
    case $1 in
    info) echo "--json $trials $opening" ;;
    check) echo --json ;;
    trials) echo "$trials --variable $table -o --output $opening" ;;
    dump) echo "--kind --from --to --trial $trials --log --log-file --raw $table -o --output $opening" ;;
    convert)
        echo "-o --output --format --what --velocities --jobs --force $trials --variable $table $opening" \
            --sub --task --ses --acq --run --datatype \
            --screen-size --screen-resolution --screen-distance --screen-origin
        ;;
    synth)
        echo --minutes --rate --eyes --trials --blocks --noise --dropout --blinks --drift --seed --compressed --force \
            --damage --truth --log
        ;;
    *) echo --version ;;
    esac
    echo -h --help
}

# Completes $3, what option $2 of command $1 takes. Fails where it takes nothing. The words of the line are $4...
_trk_value() {
    local words='' given=''
    case "$1 $2" in
    'convert -o' | 'convert --output') compopt -o dirnames 2>/dev/null ;;
    *' -o' | *' --output' | *' --log-file' | *' --truth' | 'synth --log') compopt -o default 2>/dev/null ;;
    *' --check') words='none basic full' ;;
    *' --format') words='tsv csv tsv.gz csv.gz hdf5 bids' ;;
    *' --datatype') words='beh eeg func ieeg meg nirs' ;;
    *' --screen-origin') words='top-left top-right bottom-left bottom-right' ;;
    *' --encoding') words='UTF-8 ISO-8859-1 WINDOWS-1252 SHIFT_JIS GB18030' ;;
    *' --rate') words='250 500 1000 2000' ;;
    *' --eyes') words='left right both' ;;
    *' --kind') words='samples events messages recordings' given=${3%"${3##*,}"} ;;
    *' --what') words='samples events messages trials blocks' given=${3%"${3##*,}"} ;;
    *' --damage') words='bit zero hole cut' given=${3%"${3##*,}"} ;;
    'dump --columns') words=$(_trk_columns "${@:4}") given=${3%"${3##*[,+]}"} ;;
    *' --json' | *' --tolerant' | *' --salvage' | *' --message-offsets') return 1 ;;
    'dump --log' | *' --raw' | *' --velocities' | *' --force' | *' --compressed') return 1 ;;
    *' --help' | *' --version') return 1 ;;
    *' --'*) ;; # what the user alone knows
    *) return 1 ;;
    esac
    mapfile -t COMPREPLY < <(compgen -P "$given" -W "$words" -- "${3#"$given"}")
}

# Names of the columns of the kinds that the words ask for.
_trk_columns() {
    local kinds=()
    for (( ; $# > 1; )); do
        [ "$1" != --kind ] || kinds+=(--kind "$2")
        shift
    done
    "${COMP_WORDS[0]}" dump - "${kinds[@]}" --columns help 2>/dev/null | sed -n 's/^  \([^ ]*\).*/\1/p'
}

_trk_recordings() {
    mapfile -t COMPREPLY < <(compgen -f -X '!*.[Tt][Rr][Kk]' -- "$1")
    if [ ${#COMPREPLY[@]} -gt 0 ]; then
        compopt -o filenames -o plusdirs 2>/dev/null
    else
        compopt -o default 2>/dev/null # any file
    fi
}

_trk() {
    local words=() word command='' current=${COMP_WORDS[COMP_CWORD]}
    # --format=csv comes as three words.
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        [ "$word" = = ] || words+=("$word")
    done
    [ "$current" != = ] || current=''
    for word in "${words[@]}"; do
        if [[ $word != -* ]]; then
            command=$word
            break
        fi
    done
    COMPREPLY=()
    if [ ${#words[@]} -gt 0 ] && _trk_value "$command" "${words[-1]}" "$current" "${words[@]}"; then
        return
    elif [[ $current == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$(_trk_options "$command")" -- "$current")
    elif [ -z "$command" ]; then
        mapfile -t COMPREPLY < <(compgen -W 'info check trials dump convert synth' -- "$current")
    else
        _trk_recordings "$current"
    fi
}

complete -F _trk trk
