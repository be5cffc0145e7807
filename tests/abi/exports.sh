# The shared library shows the calls that the public header declares, each under the version node that the map file
# gives it, nothing else, under its SONAME.
# Arguments: C compiler, public header, map file, shared library, expected SONAME.
set -euo pipefail
compiler=$1 header=$2 map=$3 library=$4 soname=$5

declared=$("$compiler" -E -P "$header" | tr '\n' ' ' | tr ';' '\n' |
    sed -nE 's/.*visibility\("default"\).*[ *](trk_[a-z0-9_]+) *\(.*/\1/p' | sort)
# Of the map file and of the library: call@@node.
mapped=$(sed -nE 's/^(TRKAPI_.*) \{$/\1/p; s/^ +(trk_[a-z0-9_]+);$/\1/p' "$map" |
    awk '/^TRKAPI_/ { node = $1; next } { print $1 "@@" node }' | sort)
exported=$(nm -D --defined-only --with-symbol-versions "$library" | awk '$2 != "A" { print $NF }' | sort)
[ -n "$declared" ]
differ() { echo "$1 (<) and $2 (>) differ" >&2 && exit 1; }
diff <(echo "$declared") <(cut -d @ -f 1 <<<"$mapped" | sort) || differ "header" "map file"
diff <(echo "$mapped") <(echo "$exported") || differ "map file" "library"

dynamic=$(objdump -p "$library" | awk '$1 == "SONAME" || $1 == "NEEDED" { print $1, $2 }')
grep -qx "SONAME $soname" <<<"$dynamic" || { echo "no SONAME $soname" >&2; exit 1; }
if grep NEEDED <<<"$dynamic" | grep -vE ' (libz|libisal|libstdc\+\+|libm|libgcc_s|libc|ld-linux.*)\.so\.'; then
    echo "a run-time dependency beside zlib, ISA-L and the C++ run time" >&2
    exit 1
fi
