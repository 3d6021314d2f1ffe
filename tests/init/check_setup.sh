#!/usr/bin/env bash
# usage: check_setup.sh MADE PACKAGING
# zor-setup makes the places and users that systemd's files name, twice without a difference.
set -euo pipefail
made=$1 packaging=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0
wrong() { echo "$*"; failed=1; }
lines() { cat "$packaging/systemd/$1" "$packaging/zorweb/$1" | grep -Ev '^ *(#|$)'; }

export ZOR_ROOT=$work/root
mkdir "$ZOR_ROOT"
umask 077
"$made/init/zor-setup"
state() { find "$ZOR_ROOT" ! -name zor-setup.lock -printf '%P %y %m %l\n' | sort; }
state >"$work/first"
while read -r type path mode _ _ _ argument; do
  case $type in
    d) [ "$(stat -c %a "$ZOR_ROOT$path")" = "${mode#0}" ] || wrong "$path: not $mode" ;;
    L | L+) [ "$(readlink "$ZOR_ROOT$path")" = "$ZOR_ROOT$argument" ] || wrong "$path: no link to $argument" ;;
    a+) ;;
    *) wrong "$type: a kind of line that this test does not know" ;;
  esac
done < <(lines tmpfiles.conf)
[ "$(readlink -f "$ZOR_ROOT/var/run")" = "$(readlink -f "$ZOR_ROOT/run")" ] || wrong "/var/run is not /run"

# What strangers have put in the place of a link, and a mode that has changed.
ln -sfn /elsewhere "$ZOR_ROOT/var/msgsvr"
chmod 777 "$ZOR_ROOT/var/cfg"
"$made/init/zor-setup"
state | diff "$work/first" - || failed=1

# The owner of a link could let it lead elsewhere later, that of a directory have another one's mode changed.
if [ "$(id -u)" = 0 ]; then
  chown -h 1 "$ZOR_ROOT/var/msgsvr"
  "$made/init/zor-setup"
  [ "$(stat -c %u "$ZOR_ROOT/var/msgsvr")" = 0 ] || wrong "keeps a link of another user"
  mkdir "$work/elsewhere"
  rmdir "$ZOR_ROOT/var/lib/zor/shared"
  ln -s "$work/elsewhere" "$ZOR_ROOT/var/lib/zor/shared"
  chown -h 1 "$ZOR_ROOT/var/lib/zor/shared"
  ! "$made/init/zor-setup" 2>/dev/null || wrong "follows a link of another user"
fi

# A system that has only /var/run.
ZOR_ROOT=$work/other
mkdir -p "$ZOR_ROOT/var/run"
"$made/init/zor-setup"
[ "$(readlink "$ZOR_ROOT/run")" = var/run ] || wrong "only /var/run: no link to it"

# The users of an image.
etc=$work/etc
mkdir "$etc"
# Their last lines may lack the end.
printf 'root:x:0:0::/:/bin/sh' >"$etc/passwd"
printf 'root:x:0:\nother:x:998:someone' >"$etc/group"
"$made/init/zor-setup" --users "$etc"
{ grep -qx 'root:x:0:0::/:/bin/sh' "$etc/passwd" && grep -qx 'other:x:998:someone' "$etc/group"; } ||
  wrong 'what was there is damaged'
cp -a "$etc" "$work/once"
"$made/init/zor-setup" --users "$etc"
diff -r "$work/once" "$etc" || failed=1
number_of() { sed -n "s/^$2:[^:]*:\([0-9]*\):.*/\1/p" "$etc/$1"; }
primary_group() { sed -n "s/^$1:[^:]*:[0-9]*:\([0-9]*\):.*/\1/p" "$etc/passwd"; }
while read -r type name id _; do
  case $type in
    g) [ -n "$(number_of group "$name")" ] || wrong "$name: no group" ;;
    u)
      group=${id#-}
      group=${group#:}
      [ "$(primary_group "$name")" = "$(number_of group "${group:-$name}")" ] || wrong "$name: not in its group"
      ;;
    m) grep -q "^$id:.*[:,]$name\(,\|$\)" "$etc/group" || wrong "$name: not a member of $id" ;;
    *) wrong "$type: a kind of line that this test does not know" ;;
  esac
done < <(lines sysusers.conf)
[ -z "$(cut -d : -f 3 "$etc/passwd" | sort | uniq -d)" ] || wrong "two users have one number"
[ -z "$(cut -d : -f 3 "$etc/group" | sort | uniq -d)" ] || wrong "two groups have one number"

# An image: its own files count, and one without its lists of users is no success.
image=$work/image
mkdir -p "$image$made/init"
cp "$made/init/zor-setup" "$made/init/zor-functions" "$image$made/init/"
mkdir "$work/none"
touch "$work/none/passwd" "$work/none/group"
! "$image$made/init/zor-setup" --users "$work/none" 2>"$work/error" || wrong "an image without lists of users has some"
grep -q 'zor-setup: missing: ' "$work/error" || wrong "does not say that the lists are missing"
for kind in systemd zorweb; do install -D "$packaging/$kind/sysusers.conf" "$image$packaging/$kind/sysusers.conf"; done
"$image$made/init/zor-setup" --users "$work/none" && [ -s "$work/none/passwd" ] || wrong "reads no lists of the image"
[ $failed = 0 ]
