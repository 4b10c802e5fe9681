# shellcheck shell=bash
# Shared by the scripts beside it: where things are, which Debian packages they need, how a preset is built.
# Everything said here goes to standard error, so that a script's standard output holds its result alone.

set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

declare -A packages=(
  [build]="g++ cmake ninja-build flex bison libcli11-dev libunistring-dev libxxhash-dev libtomlplusplus-dev prometheus-cpp-dev libsystemd-dev pkg-config logrotate libgtest-dev libbenchmark-dev rapidjson-dev libre2-dev libssl-dev openssl libsqlite3-dev libcurl4-openssl-dev zlib1g-dev libnats-dev librdkafka-dev"
  [services]="nats-server"  # what tests start
  [check]="clang-format clang-tidy shellcheck mandoc"
  [fuzz]="clang libclang-rt-14-dev"
  [bench]="pkg-config libpcre2-dev liblognorm-dev"  # to measure against; nothing else needs them
)

say() { printf '%s\n' "$*" >&2; }

fail() {
  say "${0##*/}: $*"
  exit 1
}

# need SET...: installs what is missing of the sets of packages named. When nothing is, the network is left alone.
need() {
  local set package missing=() as_root=()
  if ! command -v dpkg-query >/dev/null; then
    say "This is not Debian: make sure that you have what these packages hold: ${packages[*]}"
    return
  fi
  for set; do
    for package in ${packages[$set]}; do
      [ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null)" = installed ] || missing+=("$package")
    done
  done
  [ "${#missing[@]}" -gt 0 ] || return 0
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null ||
      fail "these Debian packages are missing: ${missing[*]}. Run scripts/setup as root, or install sudo."
    as_root=(sudo)
  fi
  say "Installing Debian packages: ${missing[*]}"
  "${as_root[@]}" apt-get update >&2 || fail "apt-get update failed; is the network up?"
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "${missing[@]}" >&2 ||
    fail "apt-get could not install ${missing[*]}"
}

# build PRESET [TARGET...]: configures and builds in build/PRESET, all that the preset names when no target is. Fails with the build's status.
build() {
  local preset=$1 targets=()
  [ "$#" -eq 1 ] || targets=(--target "${@:2}")
  say "Building ${*:2}${2:+ }($preset)"
  (cd "$root" && cmake --preset "$preset" >/dev/null && cmake --build --preset "$preset" "${targets[@]}") >&2
}
