# What ./dev and the tools' scripts share. `NAME` is what their messages begin with.

readonly JOBS=${UMBRA_JOBS:-$(nproc)}

say() { printf '%s: %s\n' "${NAME:-dev}" "$*" >&2; }

die() {
  say "error: $*"
  exit 1
}

# bad_usage <command> <message>: a wrong call, as opposed to something that failed.
bad_usage() {
  say "$1: $2 (see ./dev $1 --help)"
  exit 2
}

# wants_help <argument...>: is one of them, before `--`, a call for help?
wants_help() {
  local argument
  for argument in "$@"; do
    case $argument in
      --) return 1 ;;
      -h | --help) return 0 ;;
    esac
  done
  return 1
}

# logged <log> <what> <command...>: runs quietly: a line at the start, a dot every five seconds, the
# time at the end; on failure the log.
logged() {
  local log=$1 what=$2 began=$SECONDS dots verdict=0
  shift 2
  mkdir -p "$(dirname "$log")"
  say "$what ..."
  (while sleep 5; do printf . >&2; done) &
  dots=$!
  "$@" >"$log" 2>&1 </dev/null || verdict=$?
  kill "$dots" 2>/dev/null
  wait "$dots" 2>/dev/null || true
  ((SECONDS - began < 5)) || printf '\n' >&2
  if ((verdict)); then
    cat "$log" >&2
    die "$what failed (log: $log)"
  fi
  say "$what: done ($((SECONDS - began)) s)"
}

# The names of the presets to configure with.
presets() { cmake --list-presets=configure | sed -n 's/^ *"\([^"]*\)".*/\1/p'; }

# require_presets <command> <preset...>
require_presets() {
  local command=$1 known preset
  shift
  known=$(presets)
  for preset in "$@"; do
    grep -qxF -- "$preset" <<<"$known" ||
      bad_usage "$command" "no preset '$preset'; there are: ${known//$'\n'/ }"
  done
}

configure() { logged "build/$1-configure.log" "configuring $1" cmake --preset "$1"; }

# compile <preset> <target...>
compile() {
  local preset=$1
  shift
  say "building $preset"
  cmake --build "build/$preset" -j "$JOBS" --target "$@"
}

# cpp_files [folder...]: the project's C++ files, one a line; without git those outside build/.
cpp_files() {
  local file
  if git rev-parse --git-dir >/dev/null 2>&1; then
    git ls-files -co --exclude-standard -- "$@"
  else
    find "${@:-.}" -name build -prune -o -type f -print 2>/dev/null | sed 's|^\./||'
  fi | sort -u | while IFS= read -r file; do
    [[ $file =~ \.(h|cpp)$ && -f $file ]] && echo "$file"
  done || true
}
