#!/bin/sh
# usage: check_header.sh INCLUDE_DIR
# Every header of the C++ face compiles alone, without a warning, as C++17 and C++20, with and without exceptions, with
# each compiler that is here.
set -eu
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for header in "$1"/zor/zor.hpp "$1"/zor/cpp/*.hpp; do
  echo "#include <${header#"$1"/}>"
done >"$work/headers"
for compiler in g++ clang++-16; do
  command -v $compiler >/dev/null || continue
  for mode in '-std=c++17' '-std=c++20' '-std=c++17 -fno-exceptions -fno-rtti' '-std=c++20 -fno-exceptions'; do
    while read -r line; do
      # All of it in the whole header; each of the others needs to be complete, whatever the mode.
      [ "$line" = '#include <zor/zor.hpp>' ] || [ "$compiler$mode" = 'g++-std=c++17' ] || continue
      echo "$line" >"$work/alone.cpp"
      # shellcheck disable=SC2086 # the mode is several words
      $compiler $mode -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror -I "$1" -fsyntax-only "$work/alone.cpp" ||
        { echo "$compiler $mode: $line"; exit 1; }
    done <"$work/headers"
  done
done
