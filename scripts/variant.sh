#!/usr/bin/env bash
# Builds with another compiler, optimisation or C library, warnings as errors, and runs all tests; musl has no C++ library
# in Debian, so with it public headers and C daemons are compiled and nothing is run (docs/platforms.md).
# Needs Debian 12, and root only when packages are missing.
# Usage: variant.sh clang|lto|fortify|musl [CTEST ARGUMENT...]
set -euo pipefail
cd "$(dirname "$0")/.."

name=${1:-}
build=build/$name
# A build type of its own, so that nothing but these flags decides.
case $name in
  clang) compilers=(clang-16 clang++-16) flags='-O2' ;;
  lto) compilers=(gcc g++) flags='-O3 -flto=auto -Werror=odr -Werror=lto-type-mismatch' ;;
  # With these assertions GCC 12 takes the joining of some strings for an overflow.
  fortify)
    compilers=(gcc g++) flags='-O2 -D_FORTIFY_SOURCE=3 -D_GLIBCXX_ASSERTIONS'
    flags+=' -Wno-array-bounds -Wno-stringop-overflow -Wno-stringop-overread'
    ;;
  musl) ;;
  *)
    sed -n 's/^# Usage: /usage: /p' "$0" >&2
    exit 2
    ;;
esac
shift
scripts/setup.sh variants

check_with_musl() {
  local strict=(musl-gcc -std=c11 -Wall -Wextra -Wpedantic -Werror -Iinclude)
  mkdir -p "$build/include"
  ln -sfn /usr/include/cjson "$build/include/cjson"
  (cd include && find zor -name '*.h' ! -path 'zor/cpp/*') | while read -r header; do
    printf '#include <%s>\ntypedef int unit;\n' "$header" | "${strict[@]}" -x c -fsyntax-only -
    printf 'ok %s\n' "$header"
  done
  # Daemons also use POSIX.
  for source in examples/*.c man/examples/*.c tests/faces/c_*.c; do
    "${strict[@]}" -D_GNU_SOURCE "-I$build/include" -c "$source" -o "$build/$(basename "$source").o"
    printf 'ok %s\n' "$source"
  done
}

if [ "$name" = musl ]; then
  check_with_musl
  echo 'variant: headers and C daemons compile with musl; there is no C++ library for it, so nothing was linked or run'
  exit
fi
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Variant -DCMAKE_C_COMPILER="${compilers[0]}" \
  -DCMAKE_CXX_COMPILER="${compilers[1]}" -DCMAKE_C_FLAGS_VARIANT="$flags" -DCMAKE_CXX_FLAGS_VARIANT="$flags" \
  -DCMAKE_AR="$(command -v gcc-ar)" -DCMAKE_RANLIB="$(command -v gcc-ranlib)"
cmake --build "$build"
exec ctest --test-dir "$build" --output-on-failure --no-tests=error -j 4 --timeout 300 "$@"
