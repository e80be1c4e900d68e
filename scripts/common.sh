# Sourced by the other scripts: where the project stands, and how they speak and build.
# shellcheck shell=bash

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
script=$(realpath "$0")
cd "$root" || exit
# What the programs say to each other stays on this machine, also where a proxy is set.
export no_proxy=127.0.0.1,localhost

# say MESSAGE: one line for the reader, on standard error.
say() { printf '%s\n' "$*" >&2; }

# fail MESSAGE: one line, then the end.
fail() {
  say "$(basename "$0"): $*"
  exit 1
}

# jobs_at_once: how many compilers or tests may run at once.
jobs_at_once() { nproc 2>/dev/null || echo 2; }

# fix_addresses ARGUMENT ...: starts the script again with these and without randomised addresses; the sanitizers of
# older compilers fail now and then where those are strongly randomised.
fix_addresses() {
  if [[ -z ${ZR_FIXED_ADDRESSES-} ]] && setarch -R true 2>/dev/null; then
    ZR_FIXED_ADDRESSES=1 exec setarch -R "$script" "$@"
  fi
}

# usage: the script's own head comment, for --help.
usage() { sed -n '2,/^$/s/^# \{0,1\}//p' "$script"; }

# build PRESET [-D... options of cmake] [TARGET ...]: configures and builds. Progress goes to the terminal; without one,
# only a failure is shown, with the end of its log.
build() {
  local preset=$1 log option=()
  shift
  while [[ ${1-} == -D* ]]; do
    option+=("$1")
    shift
  done
  local configure=(cmake --preset "$preset" "${option[@]}")
  local make=(cmake --build --preset "$preset" --parallel "$(jobs_at_once)")
  if (($#)); then make+=(--target "$@"); fi
  if [[ -t 1 || -n ${CI-} ]]; then
    "${configure[@]}" || fail "preset $preset does not configure"
    "${make[@]}" || fail "preset $preset does not build"
    return
  fi
  log=$root/build/$preset.log
  mkdir -p build
  say "building preset $preset (log: $log)"
  if ! { "${configure[@]}" && "${make[@]}"; } >"$log" 2>&1; then
    tail -n 40 "$log" >&2
    fail "preset $preset does not build; the whole log is $log"
  fi
}
