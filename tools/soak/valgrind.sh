# Valgrind in 32 bits. It starts only with debugging information of the C library, and for the one of
# g++-multilib there is none: so programs run on the C library of the architecture i386, which
# `./dev setup soak` unpacks below build/i386 with its debugging information. The machine itself never
# hears of that architecture.
readonly I386=$PWD/build/i386/valgrind
readonly I386_LOADER=$I386/lib/i386-linux-gnu/ld-linux.so.2

valgrind_ready() {
  local libraries=$I386/lib/i386-linux-gnu
  command -v valgrind >/dev/null && [[ -x $I386_LOADER && -d $I386/usr/lib/debug ]] ||
    die "valgrind or the i386 C library is missing (./dev setup soak)"
  # Besides the machine's own, the folder .debug next to a library is where valgrind looks.
  [[ -d $libraries/.debug ]] || {
    mkdir -p "$libraries/.debug"
    find "$I386/usr/lib/debug/.build-id" -name '*.debug' -exec ln -sf -t "$libraries/.debug" {} +
  }
}

# under_valgrind <log> <tool and its options...> -- <program> <argument...>
under_valgrind() {
  local log=$1 options=()
  shift
  while [[ $1 != -- ]]; do
    options+=("$1")
    shift
  done
  shift
  valgrind --error-exitcode=97 --suppressions=tools/soak/valgrind.supp \
    --child-silent-after-fork=yes --fair-sched=yes "${options[@]}" \
    "$I386_LOADER" --library-path "$I386/lib/i386-linux-gnu:/usr/lib32" "$@" >"$log" 2>&1 || {
    grep -vE '^\[ |^Note' "$log" | head -n 60
    return 1
  }
}

run_memcheck() {
  local program mismatches outputs=() verdict=0
  valgrind_ready
  built x86 "${VALGRIND_PROGRAMS[@]}"
  for program in "${VALGRIND_PROGRAMS[@]}"; do
    outputs+=("build/soak/$step-$program.out")
    # Two programs count through an operator new of their own, of which valgrind sees only the
    # other half, delete.
    [[ $program =~ ^(runtime|Hardware)-tests$ ]] && mismatches=no || mismatches=yes
    under_valgrind "${outputs[-1]}" --leak-check=full --errors-for-leak-kinds=definite \
      --show-mismatched-frees="$mismatches" -- \
      "build/x86/tests/$program" --gtest_filter="$VALGRIND_FILTER" || verdict=1
  done
  figure "$(passed "${outputs[@]}") tests"
  return "$verdict"
}

# Without the posters, whose ring is made of atomics, which helgrind does not know, and without the
# parts of the trace that move, where threads wait for each other without a lock of the system.
run_helgrind() {
  valgrind_ready
  built x86 threads-tests
  under_valgrind "build/soak/$step.out" --tool=helgrind -- build/x86/tests/threads-tests \
    --gtest_filter=-'Posters*:Outside*' &&
    figure "$(passed "build/soak/$step.out") tests"
}
