# shellcheck shell=bash disable=SC2034
# To be sourced, from the top of the tree. need_packages NAME...: installs the Debian packages that are missing,
# without a question. Does not touch apt when nothing is missing.
. scripts/steps.sh

build_packages=(g++ cmake ninja-build zlib1g-dev libisal-dev libcli11-dev nlohmann-json3-dev libhdf5-dev libpcre2-dev pkg-config scdoc)
sanitizer_packages=(clang libclang-rt-14-dev)
# The Python package and its tests.
python_packages=(python3-numpy python3-pandas python3-matplotlib python3-dask python3-distributed python3-pytest
    python3-hypothesis python3-venv mypy chromium)
test_packages=("${build_packages[@]}" "${sanitizer_packages[@]}" libgtest-dev libbenchmark-dev pkg-config python3
    "${python_packages[@]}" python3-h5py r-base-core octave-dev zsh fish)
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
    step "Installing" "${apt[@]}" install --no-install-recommends "${missing[@]}"
}
