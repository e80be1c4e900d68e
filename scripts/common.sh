# Sourced by the other scripts: the folder of the project, messages, builds.
# shellcheck shell=bash

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
script=$(realpath "$0")
cd "$root" || exit
# Requests to this machine bypass a proxy.
export no_proxy=127.0.0.1,localhost

# say MESSAGE: prints a line on standard error.
say() { printf '%s\n' "$*" >&2; }

# fail MESSAGE: prints a line and ends the script with status 1.
fail() {
  say "$(basename "$0"): $*"
  exit 1
}

# jobs_at_once: how many compilers or tests may run at once.
jobs_at_once() { nproc 2>/dev/null || echo 2; }

# fix_addresses ARGUMENT ...: restarts the script with these arguments and without address space randomisation. The
# sanitizers of older compilers sometimes fail when addresses are strongly randomised.
fix_addresses() {
  if [[ -z ${ZR_FIXED_ADDRESSES-} ]] && setarch -R true 2>/dev/null; then
    ZR_FIXED_ADDRESSES=1 exec setarch -R "$script" "$@"
  fi
}

# usage: prints the comment at the head of the script, for --help.
usage() { sed -n '2,/^$/s/^# \{0,1\}//p' "$script"; }

# build PRESET [-D... options of cmake] [TARGET ...]: configures and builds. Progress goes to the terminal. Without one,
# only a failure is printed, with the last lines of its log.
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
