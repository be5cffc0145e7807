# What the scripts in this folder share. They source it with the arguments of their own: TRK SCRATCH [QUALITY]
# shellcheck shell=bash
set -euo pipefail
trk=$1 scratch=$2
here=$(cd "$(dirname "$0")" && pwd)
rm -rf "$scratch"
mkdir -p "$scratch"
cd "$scratch"

fail() {
    echo "FAILED: $1" >&2
    exit 1
}
status_of() { "$@" >out 2>err || echo $?; }
# A command that must fail with status $1 and say, in one line, something that matches $2.
refuses() {
    local expected=$1 pattern=$2 status=0
    shift 2
    "$@" >out 2>err || status=$?
    [ "$status" -eq "$expected" ] || fail "$*: status $status"
    [ "$(wc -l <err)" -eq 1 ] && grep -q -- "$pattern" err || fail "$*: says '$(cat err)'"
}
has() { grep -qE -- "$2" "$1" || fail "$1 lacks '$2': $(cat "$1")"; }
# Every cell of column $2 of the table $1.
cells() {
    awk -F'\t' -v name="$2" 'NR == 1 { for (i = 1; i <= NF; i++) if ($i == name) c = i } NR > 1 { print $c }' "$1"
}

# Recordings by hand, of records in hexadecimal digits.
start() { printf 'QM_OPTICORE_COMBFILE\nVERSION: PUPILON V2 7\nSOURCE: PUPILON LX\n%bENDP:\n' "${1-}"; }
hex() { printf "$(tr -d ' \n' <<<"$1" | sed 's/../\\x&/g')"; }
message_at() { # TIME TEXT, which may have \x and the like
    local text
    text=$(printf %b "$2" | od -An -v -tx1 | tr -d ' \n')
    printf '1800 21%08x 5e%04x %s 00' "$1" $((${#text} / 2)) "$text"
}
block_at() {
    printf 'cf00 21%08x 4103e80000 30000a 51000a 4b00120000 560001 b48540 00
            d100 21%08x 4103e80000 30000a 51000a 4b00120000 554000 560001 00' "$1" "$1" |
        sed "s/b48540/b4${2:-8540}/"
}
end_at() { printf '1000 21%08x 00 1200 21%08x 00' "$1" "$1"; }
