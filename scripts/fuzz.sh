#!/usr/bin/env bash
# Builds the libFuzzer targets (preset "fuzz") and runs each for a fixed time, one after the
# other. Exits non-zero when any target finds something: a crash, a sanitizer report, a leak,
# a broken check, a timeout or running out of memory. The input is kept in
# BUILD/findings/<target>/ (replay it with the target binary and the file as argument).
#
#   scripts/fuzz.sh [-t SECONDS] [-k] [-B BUILD] [TARGET...]
#     -t SECONDS  time per target (default 60)
#     -k          fuzz a working corpus kept in BUILD/corpus/<target> (started from the
#                 committed one and grown from run to run), for long runs; without -k each
#                 target fuzzes a throwaway copy, so the committed corpus never changes
#     -B BUILD    the build folder of the fuzz preset (default build/fuzz)
#     TARGET      config, format, runs or json (default: all four)
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=60
keep=0
build=build/fuzz
while getopts "t:kB:h" opt; do
  case "${opt}" in
    t) seconds="${OPTARG}" ;;
    k) keep=1 ;;
    B) build="${OPTARG}" ;;
    *) sed -n '2,14p' "$0"; exit 2 ;;
  esac
done
shift $((OPTIND - 1))
targets=("$@")
if [ "${#targets[@]}" -eq 0 ]; then targets=(config format runs json); fi

bash scripts/setup.sh >/dev/null
cmake --preset fuzz -B "${build}" >/dev/null
cmake --build "${build}" -j "$(nproc)"

work=""
cleanup() { if [ -n "${work}" ]; then rm -rf "${work}"; fi; }
trap cleanup EXIT

failed=()
summary=()
for target in "${targets[@]}"; do
  binary="${build}/fuzz/formatv2_fuzz_${target}"
  if [ ! -x "${binary}" ] || [ ! -d "fuzz/corpus/${target}" ]; then
    echo "fuzz: unknown target '${target}'" >&2
    exit 2
  fi
  findings="${build}/findings/${target}"
  mkdir -p "${findings}"
  if [ "${keep}" = 1 ]; then
    corpus="${build}/corpus/${target}"
    if [ ! -d "${corpus}" ]; then
      mkdir -p "${corpus}"
      cp -r "fuzz/corpus/${target}/." "${corpus}/"
    fi
  else
    cleanup
    work="$(mktemp -d)"
    corpus="${work}/${target}"
    cp -r "fuzz/corpus/${target}" "${corpus}"
  fi
  options=(-max_total_time="${seconds}" -timeout=20 -rss_limit_mb=2048
           -artifact_prefix="${findings}/" -print_final_stats=1)
  case "${target}" in
    config) options+=(-dict=fuzz/config.dict) ;;
    runs) options+=(-dict=fuzz/config.dict -max_len=8192) ;;
    json) options+=(-dict=fuzz/json.dict) ;;
  esac
  log="${build}/${target}.log"
  echo "=== fuzz ${target}: ${seconds} s on $( [ "${keep}" = 1 ] && echo "${corpus}" || echo "a copy of fuzz/corpus/${target}" ) ==="
  status=0
  "${binary}" "${options[@]}" "${corpus}" >"${log}" 2>&1 || status=$?
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "${log}" | tail -n 1)
  rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "${log}" | tail -n 1)
  # The runs target counts its whole runs too: each input holds one to four.
  calls=$(sed -n 's/^stat::formatv2_process_calls: *//p' "${log}" | tail -n 1)
  summary+=("${target}: ${runs:-?} executions${calls:+ (${calls} whole runs)}, ${rate:-?} exec/s, exit ${status}")
  if [ "${status}" -ne 0 ]; then
    failed+=("${target}")
    echo "--- ${target} found something (exit ${status}); the end of ${log}:" >&2
    tail -n 60 "${log}" >&2
  fi
done

printf '%s\n' "${summary[@]}"
if [ "${#failed[@]}" -ne 0 ]; then
  echo "fuzz: findings in ${failed[*]}; inputs in ${build}/findings/" >&2
  exit 1
fi
echo "fuzz: no findings"
