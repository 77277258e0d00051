# What the scripts share. Sourced, never run.

set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"

say() { printf '\n== %s\n' "$*"; }

jobs=$(nproc)

# build PRESET [TARGET...]: configures once and builds, saying what it does.
build() {
  local preset=$1
  shift
  say "Building ($preset)${*:+: $*}"
  [ -e "build/$preset/build.ninja" ] || cmake --preset "$preset" >"build-$preset.log" 2>&1 || {
    cat "build-$preset.log"
    return 1
  }
  rm -f "build-$preset.log"
  cmake --build --preset "$preset" -j "$jobs" ${*:+--target "$@"}
}
