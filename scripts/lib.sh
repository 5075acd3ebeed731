# What the scripts of this folder share. Sourced by bash, never run by itself.
#
# A script names what it needs (need_packages, need_modules), calls
# install_missing once, and then builds and runs with the tools of /usr/bin.
# Nothing is changed before install_missing has found a way to supply
# everything. Exit status 2 means that something is missing, 1 that a build or
# a test failed.
#
# PYTHON in the environment picks another interpreter than Debian's own. What
# it needs of Python packages comes from PyPI into a virtual environment in
# its build folder; compiler, CMake and libraries stay the system's.

set -euo pipefail

script=scripts/${0##*/}
root=$(cd "${BASH_SOURCE[0]%/*}/.." && pwd -P)
cd "$root"

say() { printf '\n==> %s\n' "$*"; }
warn() { printf '%s: %s\n' "$script" "$*" >&2; }
cannot() {
    warn "$@"
    exit 2
}

# --- The interpreter and the environment --------------------------------------

# Sets `python` (what is built for), `tag` (the name of its build folder; empty
# for Debian's own) and, later, `runner` (what runs Python code). Runs before
# the environment is cleaned: PYTHON may be found through the caller's PATH, or
# be a shim that resolves by its variables.
choose_interpreter() {
    python=/usr/bin/python3
    runner=$python
    tag=
    local chosen=${PYTHON:-$python} facts version headers
    if [[ $chosen != /usr/bin/python3 ]]; then
        facts=$("$chosen" -I -c '
import os, sys, sysconfig
header = os.path.join(sysconfig.get_path("include"), "Python.h")
print(sys.executable, "%d.%02d" % sys.version_info[:2],
      sys.implementation.cache_tag + sys.abiflags, header, os.path.exists(header),
      sep="\n")') || cannot "PYTHON=$chosen does not run."
        { read -r python && read -r version && read -r tag && read -r headers &&
            read -r found; } <<<"$facts"
        [[ ! $version < 3.08 ]] || cannot "PYTHON=$chosen is older than Python 3.8."
        [[ $found == True ]] || cannot "PYTHON=$chosen has no development headers ($headers)."
        "$python" -I -c 'import ensurepip, venv' 2>/dev/null ||
            cannot "PYTHON=$chosen cannot make virtual environments (venv, ensurepip)."
    fi
    build_root=build${tag:+/$tag}
}

# Neither an activated environment nor a variable of the caller's changes what
# is built or which packages Python sees.
clean_environment() {
    local name
    for name in "${!PYTHON@}" "${!PYTEST_@}" "${!PYENV_@}" "${!CONDA_@}" "${!CMAKE_@}" \
        "${!CTEST_@}" "${!GTEST_@}" "${!BOOST_@}" "${!Boost_@}" VIRTUAL_ENV BASH_ENV \
        CC CXX CPP CFLAGS CXXFLAGS CPPFLAGS LDFLAGS MAKEFLAGS DESTDIR NINJA_STATUS \
        CPATH C_INCLUDE_PATH CPLUS_INCLUDE_PATH LIBRARY_PATH; do
        unset "$name"
    done
    # Another interpreter may need the library path that it was found with.
    [[ $tag ]] || unset LD_LIBRARY_PATH LD_PRELOAD
    export PATH=/usr/sbin:/usr/bin:/sbin:/bin
    export LC_ALL=C.UTF-8
    export PYTHONNOUSERSITE=1
}

# --- What is needed -----------------------------------------------------------

packages=()
modules=()

need_packages() { packages+=("$@"); }

# Python packages, by their names on PyPI.
need_modules() { modules+=("$@"); }

declare -A module_package=(
    [numpy]=python3-numpy
    [pillow]=python3-pil
    [pyflakes]=python3-pyflakes
    [pytest]=python3-pytest
)
declare -A module_import=([pillow]=PIL)

import_name() { printf '%s' "${module_import[$1]:-$1}"; }

# How a package is recognised where no package manager can be asked.
declare -A package_file=(
    [clang]=/usr/bin/clang++
    [clang-format]=/usr/bin/clang-format
    [clang-tidy]=/usr/bin/clang-tidy
    [cmake]=/usr/bin/cmake
    [g++]=/usr/bin/g++
    [libclang-rt-14-dev]=/usr/lib/llvm-14/lib/clang/14.0.6/lib/linux/libclang_rt.fuzzer-x86_64.a
    [libboost-dev]=/usr/include/boost/numeric/conversion/cast.hpp
    [libgtest-dev]=/usr/include/gtest/gtest.h
    [ninja-build]=/usr/bin/ninja
    [python-matplotlib-data]=/usr/share/matplotlib/mpl-data/sample_data/jacksboro_fault_dem.npz
    [valgrind]=/usr/bin/valgrind
)

has_apt() { [[ -x /usr/bin/apt-get && -x /usr/bin/dpkg-query ]]; }

python_has_headers() {
    "$python" -c 'import os, sys, sysconfig
sys.exit(not os.path.exists(os.path.join(sysconfig.get_path("include"), "Python.h")))' 2>/dev/null
}

imports() { # interpreter, names
    "$1" -c 'import importlib.util, sys
sys.exit(not all(map(importlib.util.find_spec, sys.argv[1:])))' "${@:2}" 2>/dev/null
}

# Fills `missing` with lines "package what".
find_missing() {
    local name
    missing=()
    local wanted=("${packages[@]}")
    if [[ ! $tag ]]; then
        wanted+=(python3-dev)
        for name in "${modules[@]}"; do
            wanted+=("${module_package[$name]}")
        done
    fi
    for name in "${wanted[@]}"; do
        if has_apt; then
            dpkg-query -W -f '${db:Status-Status}\n' "$name" 2>/dev/null |
                grep -qx installed || missing+=("$name")
        elif [[ $name == python3-dev ]]; then
            python_has_headers || missing+=("$name")
        elif [[ $name == python-matplotlib-data ]] && imports "$python" matplotlib; then
            continue
        elif [[ -n ${package_file[$name]:-} ]]; then
            [[ -e ${package_file[$name]} ]] || missing+=("$name")
        fi
    done
    if ! has_apt && [[ ! $tag ]]; then
        for name in "${modules[@]}"; do
            imports "$python" "$(import_name "$name")" || missing+=("${module_package[$name]}")
        done
    fi
}

list_missing() {
    local name what module
    for name in "${missing[@]}"; do
        what=${package_file[$name]:-}
        [[ $name != python3-dev ]] || what="Python 3 with its development headers"
        for module in "${modules[@]}"; do
            [[ ${module_package[$module]} != "$name" ]] ||
                what="the Python module $(import_name "$module") for $python"
        done
        printf '  %-24s %s\n' "$name" "$what"
    done
}

install_missing() {
    find_missing
    if ((${#missing[@]})); then
        install_packages
    fi
    if [[ $tag ]]; then
        prepare_virtual_environment
    fi
}

install_packages() {
    local elevate=()
    if ! has_apt; then
        cannot $'there is no apt here, so nothing was installed or changed. Missing:\n'"$(list_missing)"
    fi
    if ((EUID != 0)); then
        [[ -x /usr/bin/sudo ]] ||
            cannot $'not root, and there is no sudo, so nothing was changed. Missing:\n'"$(list_missing)"
        elevate=(/usr/bin/sudo)
    fi
    say "Installing ${missing[*]}"
    elevate+=(env DEBIAN_FRONTEND=noninteractive)
    "${elevate[@]}" true </dev/null ||
        cannot $'sudo does not let this user install, so nothing was changed. Missing:\n'"$(list_missing)"
    local apt=("${elevate[@]}" /usr/bin/apt-get -q -o DPkg::Lock::Timeout=300 -o Dpkg::Use-Pty=0)
    # An earlier run may have been stopped half-way.
    "${elevate[@]}" /usr/bin/dpkg --configure -a </dev/null || true
    # A list that cannot be fetched may belong to a source that isn't needed.
    "${apt[@]}" update </dev/null || warn "apt-get update failed; trying with the lists at hand."
    # Never at the price of a package that is there.
    "${apt[@]}" install -y --no-install-recommends --no-remove "${missing[@]}" </dev/null || true
    find_missing
    ((${#missing[@]} == 0)) || cannot $'could not be installed:\n'"$(list_missing)"
}

prepare_virtual_environment() {
    local environment=$root/$build_root/venv names=() name
    runner=$environment/bin/python
    for name in "${modules[@]}"; do
        names+=("$(import_name "$name")")
    done
    # The one in this folder may have been made for another of this version.
    if grep -qx "home = ${python%/*}" "$environment/pyvenv.cfg" 2>/dev/null; then
        ! imports "$runner" "${names[@]}" || return 0
    else
        rm -rf "$environment"
    fi
    say "Fetching ${modules[*]} from PyPI for $python"
    if ! "$runner" -m pip --version >/dev/null 2>&1; then
        "$python" -m venv --clear "$environment" || cannot "no virtual environment in $environment."
    fi
    "$runner" -m pip install --disable-pip-version-check --only-binary :all: "${modules[@]}" ||
        cannot "PyPI did not supply ${modules[*]} for $python."
}

# --- Building and running -----------------------------------------------------

compiler=/usr/bin/g++ # a script may name another

# A cache that was made for another place, interpreter, compiler or generator
# would be refused or, worse, used.
drop_foreign_cache() { # folder
    local cache=$1/CMakeCache.txt
    [[ -e $cache ]] || return 0
    if ! grep -qx "CMAKE_HOME_DIRECTORY:INTERNAL=$root" "$cache" ||
        ! grep -qx "CMAKE_GENERATOR:INTERNAL=Ninja" "$cache" ||
        ! grep -qx "CMAKE_CXX_COMPILER:[A-Z]*=$compiler" "$cache" ||
        ! grep -qx "Python_EXECUTABLE:[A-Z]*=$python" "$cache"; then
        rm -rf "$cache" "$1/CMakeFiles"
    fi
}

configure() { # folder, arguments for CMake
    drop_foreign_cache "$1"
    /usr/bin/cmake -S . -B "$1" -G Ninja -DCMAKE_MAKE_PROGRAM=/usr/bin/ninja \
        -DCMAKE_CXX_COMPILER="$compiler" -DPython_EXECUTABLE="$python" "${@:2}"
}

# Two scripts that use one folder build in it one after the other.
build() { # folder, arguments for CMake
    say "Building in $1"
    mkdir -p "$1"
    {
        flock -n 9 || {
            echo "waiting for the build that is running there"
            flock 9
        }
        configure "$@" 9>&-
        /usr/bin/cmake --build "$1" --parallel "$(nproc)" 9>&-
    } 9>"$1/.lock"
}

# What a script sets for what it runs: variables as for env(1), one more folder for
# Python's path, and a command that runs Python.
test_environment=()
python_environment=()
python_folder=
launcher=()

# Python with the build's packages first, Debian's next: what was installed
# beside them, under /usr/local, stays behind both.
run_python() { # build folder, arguments for Python
    local path=$root/$1/python
    [[ $tag ]] || path+=:/usr/lib/python3/dist-packages
    env "${test_environment[@]}" "${python_environment[@]}" \
        PYTHONPATH="$path${python_folder:+:$python_folder}" "${launcher[@]}" "$runner" "${@:2}"
}

# Both runners run, whatever the first says.
run_tests() { # build folder, arguments for pytest
    local status=0
    say "GoogleTest"
    env "${test_environment[@]}" /usr/bin/ctest --test-dir "$1" --parallel "$(nproc)" \
        --output-on-failure --no-tests=error || status=1
    say "pytest"
    run_python "$1" -m pytest -o cache_dir="$root/$1/.pytest_cache" "${@:2}" || status=1
    return $status
}

# The drivers of tests/harden.
sweeps=(allocations imports hostile interrupts endurance)

run_sweep() { # build folder, sweep, its arguments
    say "$2"
    run_python "$1" "tests/harden/$2.py" "${@:3}"
}

choose_interpreter
clean_environment
