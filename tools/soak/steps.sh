# The steps of the soak: what each is called, what it proves and how it runs. A step writes what it
# counted to build/soak/<step>.figure.

readonly JOBS=${UMBRA_JOBS:-$(nproc)}
STEPS=(
  scopes-x86 scopes-x64 lockstep-x86 lockstep-x64 driverlockstep-x86 driverlockstep-x64
  simulation-x86 simulation-x64 driversimulation-x86 driversimulation-x64 reentrancy-x86 reentrancy-x64
  callouts-x86 callouts-x64 ndebug-x86 asan-x86 asan-x64 clang-asan-x86 clang-asan-x64 tsan-x64 unsigned-x64
  rows-x86-x64
  memcheck-x86 helgrind-x86 fleet rig rtl consumers
)
# shellcheck source=tools/soak/builds.sh
source tools/soak/builds.sh
STEPS+=("${BUILDS[@]}")
# Programs that are quick enough for valgrind, which slows them down thirty times and more.
VALGRIND_PROGRAMS=(Hardware-tests runtime-tests scenario-tests contract-tests platform-tests Driver-tests)
# Left out there: death tests fork and abort by intent; the sizes of the limits are for real speed;
# valgrind puts its own operator new and delete in the place of those that count, and takes a block
# that the address space cannot hold for an error.
VALGRIND_FILTER='-*Death*:*atal*:*Assertion*:*ssertion*:Limits.*:Million*:*aMillion*:*65535*:*65536*:*Ndebug*:*Wrapped*:*noMemory*:*ithoutMemory*:*llocatesNothing:*theStorageIsZero*:*AddressSpaceCannotHold*'

say() { printf 'soak: %s\n' "$*" >&2; }
die() {
  say "error: $*"
  exit 1
}
bad_usage() {
  say "$* (see ./dev soak --help)"
  exit 2
}

what_is() {
  case $1 in
    scopes-*) echo "every sequence of five operations on a small world, and of six merged by state" ;;
    lockstep-*) echo "library and independent model, compared after each operation" ;;
    driverlockstep-*) echo "patrol and independent model, compared after each operation" ;;
    simulation-*) echo "whole systems of random clients, chips and faults" ;;
    driversimulation-*) echo "whole systems of chips that vanish, reset and stick" ;;
    reentrancy-*) echo "every pair of operation and interfering observer" ;;
    callouts-*) echo "every call out of the driver layer throws, or does what it may do; every block is refused" ;;
    ndebug-*) echo "every assertion stays in a build with NDEBUG" ;;
    asan-*) echo "tests, g++ with address and undefined sanitizers" ;;
    clang-asan-*) echo "tests, clang with address and undefined sanitizers" ;;
    tsan-*) echo "two activities and posters under the thread sanitizer" ;;
    unsigned-*) echo "no unsigned number wraps but those listed" ;;
    memcheck-*) echo "tests under valgrind: no bad access, no leak" ;;
    rows-*) echo "rows that one process writes and others read, in each pair of pointer widths" ;;
    builds-*) echo "contract, data path and audit in this build" ;;
    helgrind-*) echo "two activities under helgrind" ;;
    consumers) echo "each way to use the library, in both widths and with both compilers" ;;
    rig) echo "a driver of a PCI card in a virtual machine: damaged, unplugged, plugged, both widths" ;;
    rtl) echo "a driver of a switch chip in RTL, a fake in lockstep with it: every damage and access accounted for, both widths" ;;
    fleet) echo "three drivers under Prometheus: each alert fires and resolves" ;;
  esac
}

list_steps() {
  local step
  for step in "${STEPS[@]}"; do printf '%-32s %s\n' "$step" "$(what_is "$step")"; done
}

# needed_folder <step>: the folder of tests/ it runs; nothing when it runs several.
needed_folder() {
  case $1 in
    scopes-* | lockstep-* | driverlockstep-* | simulation-* | driversimulation-* | reentrancy-* | callouts-*) echo "${1%%-*}" ;;
    tsan-* | helgrind-*) echo threads ;;
    rows-*) echo rows ;;
  esac
}

is_there() {
  local folder
  folder=$(needed_folder "$1")
  [[ -z $folder || -d tests/$folder ]]
}

set_figures() {
  local operations=200000000 driver_operations=20000000 seeds=200000 driver_seeds=20000 posts=10000000
  chunk=2500000 publications=1000000000
  if $1; then operations=2000000 driver_operations=200000 seeds=200 driver_seeds=100 chunk=500000 posts=1000000 publications=10000000; fi
  operations=${UMBRA_LOCKSTEP_OPERATIONS:-$operations}
  driver_operations=${UMBRA_DRIVERLOCKSTEP_OPERATIONS:-$driver_operations}
  seeds=${UMBRA_SIMULATION_SEEDS:-$seeds}
  driver_seeds=${UMBRA_DRIVERSIMULATION_SEEDS:-$driver_seeds}
  posts=${UMBRA_POSTS:-$posts}
  publications=${UMBRA_PUBLICATIONS:-$publications}
  first_seed=${UMBRA_LOCKSTEP_SEED:-1}
  local name
  for name in operations driver_operations seeds driver_seeds first_seed posts publications; do
    [[ ${!name} =~ ^[1-9][0-9]*$ ]] || bad_usage "'${!name}' is no number above 0"
  done
  OPERATIONS=$operations DRIVER_OPERATIONS=$driver_operations SEEDS=$seeds DRIVER_SEEDS=$driver_seeds POSTS=$posts
  PUBLICATIONS=$publications
  is_quick=$1
}

figure() { echo "$*" >"build/soak/$step.figure"; }

# built <preset> <target...>
built() {
  local preset=$1 target
  shift
  [[ -n $preset ]] || die "no preset"
  cmake --preset "$preset" >"build/soak/$preset-configure.log" 2>&1 ||
    { cat "build/soak/$preset-configure.log"; die "configuring $preset failed"; }
  for target in "$@"; do
    grep -q "^$target: " <(cmake --build "build/$preset" --target help) ||
      die "there is no program $target: tests/${target%-tests} has not been written yet"
  done
  cmake --build "build/$preset" -j "$JOBS" --target "$@" || die "building $preset failed"
}

# The numbers of tests that the given outputs of test programs say have passed.
passed() { sed -n 's/^\[  PASSED  \] \([0-9]*\) tests\{0,1\}\..*/\1/p' "$@" | awk '{ n += $1 } END { print n + 0 }'; }

# all_programs <preset>: the names of its test programs, less the ones that take long.
all_programs() {
  cmake --preset "$1" >/dev/null 2>&1
  ctest --test-dir "build/$1" -N | sed -n 's/^ *Test *#[0-9]*: //p'
}

# tests_pass <preset>: every test program of the preset, all of them even when one fails.
tests_pass() {
  local preset=$1 programs
  mapfile -t programs < <(all_programs "$preset")
  ((${#programs[@]})) || die "$preset has no tests: is GoogleTest installed?"
  cmake --build "build/$preset" -j "$JOBS" || die "building $preset failed"
  UMBRA_SIMULATION_SEEDS=200 UMBRA_LOCKSTEP_OPERATIONS=200000 \
    ctest --test-dir "build/$preset" --output-on-failure -j "$JOBS" -V >"build/soak/$preset.out" 2>&1
  local verdict=$?
  figure "$(sed -n 's/^[0-9]*: \(\[  PASSED.*\)/\1/p' "build/soak/$preset.out" | passed -) tests"
  if ((verdict)); then
    grep -nE 'FAILED|ERROR: |runtime error|WARNING: Thread' "build/soak/$preset.out" | head -n 20
    return 1
  fi
}

# in_parallel <count> <command...>: runs the command with 0 .. count-1 as its last argument, as many
# at a time as there are jobs.
in_parallel() {
  local count=$1
  shift
  seq 0 $((count - 1)) | xargs -P "$JOBS" -I{} "$@" {}
}

lockstep_chunk() {
  local program=$1 operations=$2 seed=$3 log=$4 number=$5
  UMBRA_LOCKSTEP_OPERATIONS=$operations UMBRA_DRIVERLOCKSTEP_OPERATIONS=$operations \
    UMBRA_LOCKSTEP_SEED=$((seed + number)) \
    "$program" --gtest_brief=1 >"$log.$number" 2>&1 || {
    cat "$log.$number"
    echo "chunk $number (seed $((seed + number))) failed"
    exit 255
  }
  rm -f "$log.$number"
  { printf 'soak: chunk %d done\n' "$number" >/dev/tty; } 2>/dev/null || true
}
export -f lockstep_chunk

# run_lockstep <preset> <program> <operations>
run_lockstep() {
  local preset=$1 program=$2 wanted=$3 count operations=$chunk
  built "$preset" "$program"
  ((wanted >= operations)) || operations=$wanted
  count=$(((wanted + operations - 1) / operations))
  figure "$((count * operations)) operations"
  in_parallel "$count" bash -c 'lockstep_chunk "$@"' - "build/$preset/tests/$program" \
    "$operations" "$first_seed" "build/soak/$step.chunk"
}

# One process per start, as many at a time as there are jobs.
run_scopes() {
  local depth=5 merged=6 entries=20 program=build/$1/tests/scopes/scopes-tests
  if $is_quick; then depth=3 merged=4 entries=14; fi
  built "$1" scopes-tests
  export UMBRA_SCOPES_DEPTH=$depth UMBRA_SCOPES_MERGED_DEPTH=$merged UMBRA_SCOPES_ENTRIES=$entries
  rm -f "build/soak/$step".out.*
  "$program" --gtest_list_tests --gtest_filter='*Scopes*' \
    | sed -n 's/^  \([^ ]*\).*/\1/p' | cat - <(echo '*ernels*') \
    | xargs -P "$JOBS" -I{} bash -c 'scopes_of "$@"' - "$program" "build/soak/$step.out" {} || return 1
  figure "$(sed -n 's/.*: \([0-9]*\) sequences.*/\1/p' "build/soak/$step".out.* | awk '{ n += $1 } END { print n + 0 }') sequences"
}

# scopes_of <program> <log> <test>
scopes_of() {
  local log=$2.${3//[^a-zA-Z]/}
  "$1" --gtest_filter="*$3" >"$log" 2>&1 || { cat "$log"; exit 255; }
  grep '^scopes:' "$log" || true
}
export -f scopes_of

run_simulation() {
  built "$1" simulation-tests
  figure "$SEEDS seeds"
  UMBRA_SIMULATION_SEEDS=$SEEDS "build/$1/tests/simulation-tests"
}

run_driversimulation() {
  built "$1" driversimulation-tests
  figure "$DRIVER_SEEDS seeds"
  UMBRA_DRIVERSIMULATION_SEEDS=$DRIVER_SEEDS "build/$1/tests/driversimulation-tests"
}

run_reentrancy() {
  built "$1" reentrancy-tests
  UMBRA_REENTRANCY_PAIRS=1 "build/$1/tests/reentrancy-tests" | tee "build/soak/$step.out" &&
    figure "$(passed "build/soak/$step.out") tests"
}

# In a test run every 59th to 101st call is taken, and every 11th block.
run_callouts() {
  local stride=1
  if $is_quick; then stride=23; fi
  built "$1" callouts-tests
  UMBRA_CALLOUTS_STRIDE=$stride "build/$1/tests/callouts/callouts-tests" | tee "build/soak/$step.out" &&
    figure "$(sed -n 's/^\([0-9]*\) \(calls\|calls and readings\|blocks\)$/\1/p' "build/soak/$step.out" | awk '{ n += $1 } END { print n + 0 }') failures, $(passed "build/soak/$step.out") tests"
}

run_ndebug() {
  built x86-ndebug Hardware-tests runtime-tests platform-tests Driver-tests
  tools/check/assertions build/x86-ndebug | tee "build/soak/$step.out" &&
    figure "$(sed -n 's/^check-assertions: \([0-9]* assertions\).*/\1/p' "build/soak/$step.out")"
}

run_tsan() {
  built x64-tsan threads-tests
  TSAN_OPTIONS=halt_on_error=0:exitcode=66 UMBRA_POSTS=$POSTS build/x64-tsan/tests/threads-tests \
    | tee "build/soak/$step.out" && figure "$(passed "build/soak/$step.out") tests, $POSTS posts"
}

# Two readers, through a mapping and by reads of the file, beside a writer of each width. Then trace
# records in the same pairs, until their writer is killed and after it.
run_rows() {
  local writer reader how row folder pid seconds=30 looks=() result=0
  if $is_quick; then seconds=2; fi
  built x86 row-process trace-process
  built x64 row-process trace-process
  : >"build/soak/$step.out"
  for writer in x86 x64; do
    for reader in x86 x64; do
      row=$(mktemp --tmpdir umbra-row-XXXXXX)
      "build/$writer/tests/rows/row-process" make "$row"
      looks=()
      for how in read read-file; do
        "build/$reader/tests/rows/row-process" "$how" "$row" 1000000000000 >>"build/soak/$step.out" &
        looks+=($!)
      done
      "build/$writer/tests/rows/row-process" write "$row" "$PUBLICATIONS" || result=1
      kill "${looks[@]}"
      for how in "${looks[@]}"; do wait "$how" || result=1; done
      rm -f "$row"
      folder=$(mktemp -d --tmpdir umbra-trace-XXXXXX)
      "build/$writer/tests/rows/trace-process" write "$folder/w.trace" &
      pid=$!
      until [[ -s $folder/w.trace ]]; do sleep 0.1; done
      "build/$reader/tests/rows/trace-process" read "$folder/w.trace" "$seconds" || result=1
      kill -KILL "$pid"
      wait "$pid" || true
      "build/$reader/tests/rows/trace-process" read "$folder/w.trace" 0 || result=1
      rm -rf "$folder"
    done
  done
  cat "build/soak/$step.out"
  figure "4 x $PUBLICATIONS publications, $(awk '{ n += $1 } END { print n }' "build/soak/$step.out") whole looks"
  return "$result"
}

# A wrap that is not listed is printed and the program goes on; so the output is what counts.
run_unsigned() {
  local program programs=(Hardware-tests runtime-tests platform-tests Driver-tests scenario-tests contract-tests)
  local reports=0
  # A compiler cache does not know that the list is part of the command.
  export CCACHE_DISABLE=1
  # Nor does the build that what it has made depends on it.
  if ! cmp -s cmake/unsigned-wraps.txt build/soak/unsigned-wraps.txt; then
    rm -rf build/x64-unsigned
    cp cmake/unsigned-wraps.txt build/soak/
  fi
  built x64-unsigned "${programs[@]}"
  for program in "${programs[@]}"; do
    "build/x64-unsigned/tests/$program" --gtest_brief=1 >"build/soak/$step-$program.out" 2>&1 ||
      { tail -n 20 "build/soak/$step-$program.out"; return 1; }
  done
  reports=$(cat "build/soak/$step"-*.out | grep 'runtime error' | sort -u | tee /dev/stderr | wc -l)
  figure "$reports wraps not listed"
  ((reports == 0))
}

source tools/soak/valgrind.sh

run_fleet() {
  tools/setup/run fleet || die "the packages of a fleet are missing"
  built x86 umbra-fleet-driver
  built x64 umbra-tool
  python3 tools/fleet/fleet.py build/x64/tools/umbra/umbra build/x86/tools/fleet/umbra-fleet-driver \
    >"build/soak/$step.out" 2>&1
  local verdict=$?
  cat "build/soak/$step.out"
  figure "$(grep -c ' resolved after ' "build/soak/$step.out") alerts"
  return "$verdict"
}

run_rig() {
  tools/rig/run >"build/soak/$step.out" 2>&1
  local verdict=$?
  cat "build/soak/$step.out"
  figure "$(grep -c 'all accounted for' "build/soak/$step.out") guests"
  return "$verdict"
}

run_rtl() {
  local figures=(--operations 2000000 --damages 20000)
  if $is_quick; then figures=(--operations 20000 --damages 100); fi
  tools/rtl/run "${figures[@]}" >"build/soak/$step.out" 2>&1
  local verdict=$?
  cat "build/soak/$step.out"
  figure "$(grep -c 'all accounted for' "build/soak/$step.out") chips"
  return "$verdict"
}

run_consumers() {
  built x86 umbra-product
  built x64 umbra-product
  tests/consumers/run --all >"build/soak/$step.out" 2>&1
  local verdict=$?
  cat "build/soak/$step.out"
  figure "$(grep -c ' ok (' "build/soak/$step.out") consumers"
  return "$verdict"
}

# run_step <step>: sets `step` for what it calls.
run_step() {
  step=$1
  case $step in
    scopes-*) run_scopes "${step##*-}" ;;
    lockstep-*) run_lockstep "${step##*-}" lockstep-tests "$OPERATIONS" ;;
    driverlockstep-*) run_lockstep "${step##*-}" driverlockstep-tests "$DRIVER_OPERATIONS" ;;
    simulation-*) run_simulation "${step##*-}" ;;
    driversimulation-*) run_driversimulation "${step##*-}" ;;
    reentrancy-*) run_reentrancy "${step##*-}" ;;
    callouts-*) run_callouts "${step##*-}" ;;
    ndebug-*) run_ndebug ;;
    asan-*) tests_pass "${step##*-}-asan" ;;
    clang-asan-*) tests_pass "${step##*-}-clang-asan" ;;
    tsan-*) run_tsan ;;
    unsigned-*) run_unsigned ;;
    rows-*) run_rows ;;
    memcheck-*) run_memcheck ;;
    helgrind-*) run_helgrind ;;
    fleet) run_fleet ;;
    rig) run_rig ;;
    rtl) run_rtl ;;
    consumers) run_consumers ;;
    builds-*) run_build "$step" ;;
  esac
}
