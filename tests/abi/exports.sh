# The shared library shows the calls that the public header declares, nothing else, under its SONAME.
# Arguments: C compiler, public header, shared library, expected SONAME.
set -euo pipefail
compiler=$1 header=$2 library=$3 soname=$4

declared=$("$compiler" -E -P "$header" | tr '\n' ' ' | tr ';' '\n' |
    sed -nE 's/.*visibility\("default"\).*[ *](trk_[a-z0-9_]+) *\(.*/\1/p' | sort)
exported=$(nm -D --defined-only "$library" | awk '{ print $NF }' | sort)
[ -n "$declared" ]
diff <(echo "$declared") <(echo "$exported") || { echo "declared (<) and exported (>) calls differ" >&2; exit 1; }

dynamic=$(objdump -p "$library" | awk '$1 == "SONAME" || $1 == "NEEDED" { print $1, $2 }')
grep -qx "SONAME $soname" <<<"$dynamic" || { echo "no SONAME $soname" >&2; exit 1; }
if grep NEEDED <<<"$dynamic" | grep -vE ' (libz|libstdc\+\+|libm|libgcc_s|libc|ld-linux.*)\.so\.'; then
    echo "a run-time dependency beside zlib and the C++ run time" >&2
    exit 1
fi
