# shellcheck shell=bash disable=SC2034
# To be sourced, from the top of the tree. need_packages NAME...: installs the Debian packages that are missing,
# without a question. Does not touch apt when nothing is missing.
. scripts/steps.sh

build_packages=(g++ cmake ninja-build zlib1g-dev libisal-dev libcli11-dev nlohmann-json3-dev libhdf5-dev libpcre2-dev pkg-config scdoc)
sanitizer_packages=(clang libclang-rt-14-dev)
# The Python package and its tests.
python_packages=(python3-numpy python3-pandas python3-matplotlib python3-dask python3-distributed python3-pytest
    python3-hypothesis python3-venv mypy chromium)
# The engines of examples/many.
many_packages=(slurm-wlm munge snakemake python3-dask python3-distributed)
test_packages=("${build_packages[@]}" "${sanitizer_packages[@]}" libgtest-dev libbenchmark-dev pkg-config python3
    "${python_packages[@]}" "${many_packages[@]}" python3-h5py r-base-core make octave-dev zsh fish)
package_packages=("${build_packages[@]}" debhelper dh-python dpkg-dev fakeroot lintian abigail-tools debootstrap
    autopkgtest python3)
lint_packages=("${test_packages[@]}" clang-format clang-tidy)

need_packages() {
    local package missing=()
    for package in "$@"; do
        dpkg-query -W -f='${db:Status-Status}\n' "$package" 2>/dev/null | grep -x installed >/dev/null ||
            missing+=("$package")
    done
    [ "${#missing[@]}" -gt 0 ] || return 0

    local as_root=()
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || { echo "neither root nor sudo; install: ${missing[*]}" >&2; return 1; }
        as_root=(sudo)
    fi
    local apt=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q -y -o DPkg::Lock::Timeout=300)
    echo "To be installed: ${missing[*]}"
    step "Reading the package lists" "${apt[@]}" update
    (
        [[ " ${missing[*]} " != *" munge "* && " ${missing[*]} " != *" slurm"* ]] || keep_services_down
        step "Installing" "${apt[@]}" install --no-install-recommends "${missing[@]}"
    )
}

# As long as this shell lives, services that are installed are not started: the tests start their own. A machine that
# has a policy decides by it.
keep_services_down() {
    local policy=/usr/sbin/policy-rc.d own=$BASHPID
    # One that was killed has left its own.
    ! grep -qs '^# Of scripts/packages.sh:' $policy || "${as_root[@]}" rm -f $policy
    [ ! -e $policy ] || return 0
    # shellcheck disable=SC2064
    trap "${as_root[*]} rm -f $policy" EXIT
    printf '%s\n' '#!/bin/sh' "# Of scripts/packages.sh: nothing starts while process $own installs." \
        "! kill -0 $own 2>/dev/null || exit 101" | "${as_root[@]}" tee $policy >/dev/null
    "${as_root[@]}" chmod 755 $policy
}
