#!/bin/bash
# R CMD check of the package, on recordings that trk makes: check.sh BUILD-TREE TRK SCRATCH LIBRARY-FOLDER
set -euo pipefail
build=$1 trk=$2 scratch=$3 libdir=$4
source=$(cd "$(dirname "$0")" && pwd)
rm -rf "$scratch"
mkdir -p "$scratch"
cd "$scratch"
export LC_ALL=C.UTF-8 # R shows texts that its locale lacks as <U+...>
cmake --install "$build" --prefix "$scratch/prefix" >install.log
export PKG_CONFIG_PATH=$scratch/prefix/$libdir/pkgconfig LD_LIBRARY_PATH=$scratch/prefix/$libdir
export TRKAPI_TRK=$trk TRKAPI_EXAMPLE=$scratch/example.trk TRKAPI_TEXTS=$scratch/texts.trk
grep -qx "Version: $(pkg-config --modversion trkapi)" "$source/DESCRIPTION" || { echo "another version"; exit 1; }
python3 "$source/../../tests/tools/odd_texts.py" >texts.trk
"$trk" synth example.trk --minutes 0.5
R CMD build "$source" >build.log 2>&1 || { cat build.log; exit 1; }
# Nothing is asked for over the network.
export _R_CHECK_SYSTEM_CLOCK_=0 _R_CHECK_XREFS_REPOSITORIES_=file://$scratch/none
R CMD check --no-manual trkapi_*.tar.gz || {
    tail -n 30 trkapi.Rcheck/00install.out trkapi.Rcheck/tests/*.fail
    exit 1
}
grep -q '^TRKAPI_TRK' trkapi.Rcheck/tests/recordings.Rout && { echo "its tests did not run"; exit 1; }
tail -n 1 trkapi.Rcheck/00check.log | grep -x 'Status: OK'
