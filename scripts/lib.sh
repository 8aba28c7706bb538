# shellcheck shell=bash
# SPDX-License-Identifier: Apache-2.0
# Sourced by the scripts: where they are, what they print, and how they get what they need.

# The root of the project.
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

# Debian packages, by what they are for.
# shellcheck disable=SC2034  # they are used by who sources this
packages_build=(g++ cmake ninja-build pkgconf libssl-dev liburiparser-dev libxxhash-dev libcli11-dev)
# shellcheck disable=SC2034
packages_demo=(iso-codes python3)
# shellcheck disable=SC2034
packages_test=(libgtest-dev libgmock-dev libbotan-2-dev iso-codes python3 python3-cbor2 python3-msgpack strace)
# shellcheck disable=SC2034
packages_check=(clang-14 libclang-rt-14-dev llvm-14 clang-format-14 shellcheck git gdb valgrind ccache)
# shellcheck disable=SC2034
packages_budget=(valgrind)
# shellcheck disable=SC2034
packages_bench=(libbenchmark-dev iso-codes python3 nlohmann-json3-dev rapidjson-dev libsimdjson-dev
  libbson-dev libglib2.0-dev qtbase5-dev libflatbuffers-dev libprotobuf-dev libtbb-dev libbotan-2-dev
  libcrypto++-dev)
# shellcheck disable=SC2034
package_boost_json=libboost-json1.81-dev
# shellcheck disable=SC2034
packages_cppcheck=(cppcheck)
# shellcheck disable=SC2034
packages_tidy=(clang-14 clang-tidy-14)
# shellcheck disable=SC2034
packages_coverage=(gcovr)
# shellcheck disable=SC2034
packages_docs=(doxygen python3)
# shellcheck disable=SC2034
packages_fuzz_coverage=(clang-14 llvm-14 python3)

die() {
  printf '%s: %s\n' "$(basename "$0")" "$*" >&2
  exit 1
}

heading() {
  printf '\n== %s\n' "$*"
}

package_is_installed() {
  [ "$(dpkg-query --show --showformat='${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

# need_packages NAME...: installs those that are missing, without a question.
# With OVATTRIBUTE_NO_INSTALL set nothing is looked at or installed.
need_packages() {
  [ -z "${OVATTRIBUTE_NO_INSTALL:-}" ] || return 0
  local package missing=()
  if command -v dpkg-query >/dev/null; then
    for package in "$@"; do
      package_is_installed "$package" || missing+=("$package")
    done
    [ "${#missing[@]}" -gt 0 ] || return 0
  else
    missing=("$@")
  fi

  command -v apt-get >/dev/null ||
    die "apt-get is not here. Install what Debian calls ${missing[*]}, then set" \
      "OVATTRIBUTE_NO_INSTALL=1 and start again."
  local as_root=(env)
  if [ "$(id -u)" != 0 ]; then
    command -v sudo >/dev/null ||
      die "root or sudo is needed to install the missing packages: ${missing[*]}"
    as_root=(sudo env)
    # Where nobody can type a password, fail instead of waiting for one.
    [ -t 0 ] || as_root=(sudo --non-interactive env)
  fi
  printf 'Installing %s\n' "${missing[*]}"
  # The package lists may be empty (then the first try finds nothing) or old (then it downloads
  # nothing): one update mends both.
  local apt=("${as_root[@]}" DEBIAN_FRONTEND=noninteractive apt-get -q -y
    -o DPkg::Lock::Timeout=300 --no-install-recommends)
  local log
  log=$(mktemp)
  "${apt[@]}" install "${missing[@]}" >"$log" 2>&1 </dev/null ||
    { "${apt[@]}" update && "${apt[@]}" install "${missing[@]}"; } >>"$log" 2>&1 </dev/null ||
    { tail -n 30 "$log" >&2; rm -f "$log"; die "apt-get could not install ${missing[*]}"; }
  rm -f "$log"
}

# configure PRESET [OPTION...]: options as for `cmake`. Only a failure shows what CMake printed.
configure() {
  local preset=$1 log
  shift
  log=$(mktemp)
  if ! (cd "$root" && cmake --preset "$preset" "$@") >"$log" 2>&1; then
    cat "$log" >&2
    rm -f "$log"
    die "the preset $preset cannot be configured"
  fi
  rm -f "$log"
}

# compiler_of PRESET: the C++ compiler that a configured preset uses.
compiler_of() {
  sed -n 's/^CMAKE_CXX_COMPILER:[^=]*=//p' "$root/build/$1/CMakeCache.txt"
}

# build PRESET [OPTION...]: options as for `cmake --build`.
build() {
  local preset=$1
  shift
  (cd "$root" && cmake --build --preset "$preset" "$@")
}
