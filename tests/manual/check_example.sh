#!/usr/bin/env bash
# usage: check_example.sh PAGE SOURCE_DIR BUILD_DIR COMPILER [FLAG...]
# The example of msgapi(7) works as printed: its daemon builds, and its commands, typed in order, get replies. The README
# shows the same daemon.
set -euo pipefail
page=$1 source=$2 build=$3

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
block() { # NUMBER: a literal block of the page's examples
  awk -v number="$1" '/^\.Sh / { on = $2 == "EXAMPLES" } on && /^\.Bd/ { ++found; next } /^\.Ed/ { on = on && found < number }
    on && found == number { sub(/^\\&/, ""); gsub(/\\e/, "\\"); print }' "$page"
}
block 1 >"$work/greeter.c"
block 2 >"$work/commands"
awk '/^```c$/ { on = 1; next } /^```$/ { on = 0 } on' "$source/README.md" | diff - "$work/greeter.c"

cd "$work"
"${@:4}" -Wall -Werror -I "$source/include" -o greeter greeter.c -L "$build/libraries/private/msg" -L "$build/platform" \
  -lmsgapi -lzorplatform -Wl,-rpath,"$build/libraries/private/msg:$build/platform"

for program in daemons/msgsvr/msgsvr tools/zorctl/zorctl; do
  [ -x "$build/$program" ] || { echo "$program is not built"; exit 1; }
done
PATH=$build/daemons/msgsvr:$build/tools/zorctl:$PATH
{
  echo 'set -e; trap '\''kill $(jobs -p); rm -rf "$ZOR_ROOT"'\'' EXIT'
  cat commands
} >run
timeout 60 bash run >output 2>&1 || { cat output; exit 1; }
cat output
grep -q '\<42\>' output
grep -q '\<greeter\>' output
