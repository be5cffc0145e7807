# Builds and runs a program, as C++ by the CMake package and as C by pkg-config, against the installed
# library. Arguments: build tree, scratch directory, library directory below the prefix, C compiler, C++ compiler,
# then the flags that a program must be linked with when the library is built with sanitizers.
set -euo pipefail
build=$1 scratch=$2 libdir=$3 cc=$4 cxx=$5
flags=("${@:6}")
source=$(cd "$(dirname "$0")" && pwd)
prefix=$scratch/prefix

rm -rf "$scratch"
mkdir -p "$scratch"
cmake --install "$build" --prefix "$prefix" >"$scratch/install.log"
# Nothing may depend on the place that was named at install time.
mv "$prefix" "$scratch/moved"
prefix=$scratch/moved

check() { # the program's output names the version and, above it, says why the file did not open
    echo "$1:"
    (cd "$scratch" && "$@") | tee "$scratch/output"
    grep -qx 'version 4\.2\.762\..*' "$scratch/output"
}

cmake -S "$source" -B "$scratch/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_COMPILER="$cxx" \
    -DCMAKE_EXE_LINKER_FLAGS="${flags[*]}" >"$scratch/configure.log"
cmake --build "$scratch/cmake"
check "$scratch/cmake/consumer"
(cd "$scratch" && cmake/record && grep -q GO package.trk)

export PKG_CONFIG_PATH=$prefix/$libdir/pkgconfig
# shellcheck disable=SC2046 # lists of flags
"$cc" -std=c99 -pedantic -Wall -Wextra -Werror "${flags[@]}" $(pkg-config --cflags trkapi) "$source/consumer.c" \
    -o "$scratch/consumer" $(pkg-config --libs trkapi)
LD_LIBRARY_PATH=$prefix/$libdir check "$scratch/consumer"

if [ -e "$prefix/bin/trk" ]; then
    "$prefix/bin/trk" --help >/dev/null
fi
