# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# What the scripts beside this file share; sourced by them, never run. Leaves the caller in the
# repository's root with errors fatal.

set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# Objects of another clone of the same sources may be reused: paths count from the root.
export CCACHE_BASEDIR="${PWD}"

kJobs="$(nproc)"
readonly kJobs

# say TEXT: a headline.
say() {
  if [[ -t 1 ]]; then
    printf '\n\033[1m== %s\033[0m\n' "$*"
  else
    printf '\n== %s\n' "$*"
  fi
}

# die TEXT: one line on standard error, and the script ends.
die() {
  printf '%s: %s\n' "$(basename "$0")" "$*" >&2
  exit 1
}

# duration SECONDS: "7 s" or "3 min 07 s".
duration() {
  if (($1 < 60)); then
    printf '%d s' "$1"
  else
    printf '%d min %02d s' "$(($1 / 60))" "$(($1 % 60))"
  fi
}

# Where state folders go: shared memory, if there is any.
shared_memory() {
  if [[ -w /dev/shm ]]; then
    echo /dev/shm
  else
    echo "${TMPDIR:-/tmp}"
  fi
}

# demo_folder_is FOLDER: an empty folder for the demo; what an earlier demo left there goes. Dies when
# something is there that no demo of this user has made.
demo_folder_is() {
  local folder="$1" mark=".made-by-scripts-demo"
  if [[ -e "${folder}" || -L "${folder}" ]]; then
    [[ -d "${folder}" && ! -L "${folder}" && -O "${folder}" && -f "${folder}/${mark}" ]] ||
      die "${folder} is there and was not made by scripts/demo as this user; name another: scripts/demo /FOLDER"
    rm -rf "${folder}"
  fi
  mkdir --mode=0750 "${folder}"
  touch "${folder}/${mark}"
}

# build PRESET [TARGET...]: configures if there is nothing to build from yet, then builds.
build() {
  local preset="$1"
  shift
  if [[ ! -f "build/${preset}/build.ninja" ]]; then
    cmake --preset "${preset}" --log-level=WARNING
  fi
  cmake --build --preset "${preset}" --parallel "${kJobs}" ${1:+--target "$@"}
}

# run_tests PRESET [CTEST-OPTION...]: every test of what build made, or those that the options
# choose. A log shows the failures and the sum, a terminal also how far it is.
run_tests() {
  # The thread sanitizer's fixed address layout meets a randomised one only by luck.
  local preset="$1"
  shift
  local -a command=(ctest --preset "${preset}" --parallel "${kJobs}" "$@")
  if [[ "${preset}" == tsan ]] && setarch --addr-no-randomize true 2>/dev/null; then
    command=(setarch --addr-no-randomize "${command[@]}")
  fi
  if [[ -t 1 ]]; then
    "${command[@]}" --progress
  else
    "${command[@]}" | sed -E '/^ +Start +[0-9]+: /d; /^ *[0-9]+\/[0-9]+ Test .* Passed /d'
  fi
}
