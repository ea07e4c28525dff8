# Builds of the library and its clients. A step is builds-<compiler>-<width>-<optimization>-<client>-
# <library>; the nine hold each pair of values at least once:
#   compiler      gcc, clang
#   width         32, 64
#   optimization  O0, O2, LTO (O2, and linked as a whole)
#   client        pic, pie, nopic: how the test programs are compiled
#   library       shared, static
BUILDS=(
  builds-gcc-32-O2-pic-shared builds-gcc-32-LTO-pie-shared builds-gcc-64-O0-nopic-shared
  builds-gcc-64-LTO-nopic-static builds-clang-32-O0-pic-static builds-clang-32-O0-pie-static
  builds-clang-32-O2-nopic-static builds-clang-64-O2-pie-static builds-clang-64-LTO-pic-shared
)
# The contract, and the data path and the audit with it.
BUILDS_PROGRAMS=(contract-tests Hardware-tests scenario-tests)
# Whether operations are seen to be inherited, and the fast path is taken. These choose their own
# position independence: any with a shared library, that of the library with a static one.
BUILDS_CLIENTS=(pic pie no-pie no-pic)

run_build() {
  local compiler width optimization client library flags linking=() folder=build/$1 program
  IFS=- read -r _ compiler width optimization client library <<<"$1"
  flags="-m$width"
  case $client in
    pic) flags+=' -fPIC' ;;
    pie) flags+=' -fPIE' linking+=(-pie) ;;
    nopic) flags+=' -fno-pic' linking+=(-no-pie) ;;
  esac
  local options=(-G Ninja -DUMBRA_TESTS=ON -DUMBRA_DEMO=OFF -DCMAKE_UNITY_BUILD=ON
    -DCMAKE_BUILD_TYPE=Matrix)
  case $compiler in
    gcc) options+=(-DCMAKE_CXX_COMPILER=g++ -DCMAKE_AR=/usr/bin/gcc-ar -DCMAKE_RANLIB=/usr/bin/gcc-ranlib) ;;
    clang) options+=(-DCMAKE_CXX_COMPILER=clang++) ;;
  esac
  case $optimization in
    LTO)
      flags+=' -O2 -flto'
      if [[ $compiler == gcc ]]; then flags+=" -flto=$JOBS"; else linking+=(-fuse-ld=lld); fi
      ;;
    *) flags+=" -$optimization" ;;
  esac
  [[ $library == shared ]] || options+=(-DBUILD_SHARED_LIBS=OFF)
  # A static library is compiled as its client is. A shared one adds -fPIC itself, after these flags.
  cmake -S . -B "$folder" "${options[@]}" -DCMAKE_CXX_FLAGS="$flags -g0" \
    -DCMAKE_EXE_LINKER_FLAGS="${linking[*]}" || return 1
  local name clients=("${BUILDS_CLIENTS[@]}") overrides=()
  [[ $library == shared ]] || clients=("${client/#nopic/no-pic}")
  for name in "${clients[@]}"; do overrides+=("overrides-$name" "overrides-fast-path-$name"); done
  cmake --build "$folder" -j "$JOBS" --target "${BUILDS_PROGRAMS[@]}" "${overrides[@]}" || return 1
  for program in "${BUILDS_PROGRAMS[@]}"; do
    "$folder/tests/$program" --gtest_brief=1 >"build/soak/$step-$program.out" 2>&1 ||
      { grep -E 'FAILED|Failure' "build/soak/$step-$program.out" | head -n 20; return 1; }
  done
  for program in "${overrides[@]}"; do
    "$folder/tests/overrides/$program" || { echo "$program: FAILED"; return 1; }
  done
  figure "$(cat "build/soak/$step"-*.out | passed -) tests"
  rm -rf "$folder"
}
