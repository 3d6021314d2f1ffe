#!/usr/bin/env bash
# usage: check_platform_checker.sh SOURCES COMPILER...
# What the checker says of small libraries, each with mistakes of its own.
set -euo pipefail
sources=$1
shift
compiler=("$@")
list=$sources/platform/interface.list
map=$sources/platform/zorplatform.map
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
failed=0

# A function for each name; what the given sed commands make of that.
make_library() { # SONAME MAP SED...
  { echo 'int zor_unlisted(void) { return 0; }'; sed -n 's/^\([^# ]*\) .*/int \1(void) { return 0; }/p' "$list"; } |
    sed "${@:3}" >library.c
  "${compiler[@]}" -shared -fPIC -nostdlib -fno-builtin -fvisibility=default -w "-Wl,-soname,$1" \
    ${2:+"-Wl,--version-script,$2"} -o library.so library.c
}

expect() { # EXIT-STATUS [--list FILE] LIBRARY, the text is on standard input
  local status=0
  cat >wanted
  "$sources/scripts/check-platform.sh" "${@:2}" >said 2>&1 || status=$?
  sed 's/^[^:]*: //' said | diff wanted - || failed=1
  [ $status = "$1" ] || { echo "exit status $status"; failed=1; }
}
right=libzorplatform.so.1

make_library $right "$map" -e ''
expect 0 library.so <<<"complete, $(grep -vc '^#' "$list") names"

make_library $right "$map" -e '/FixedPath\|STORE_List/d' -e 's/\(int ZOR_DBGetPara\).*/\1;/' \
  -e 's/\(.*ZOR_UTIL_GetGlobalConfigId\)/static \1/'
expect 1 library.so <<'END'
ZOR_DBGetPara is no function (OBJECT), needed by libmsgapi, zorctl
ZOR_STORE_List is missing (zor/platform/config_list.h), needed by zorctl
ZOR_UTIL_FixedPath is missing (zor/platform/file.h), needed by libmsgapi, msgsvr, notifyserver, mlogserver, cms, syslogd, zortunnel, zorbridge, zorweb, zorweb-login, zorctl, lua-zor
ZOR_UTIL_GetGlobalConfigId is missing (zor/platform/system.h), needed by libmsgapi
END

# Another soname, no versions, and a call of the library above.
make_library libvendor.so.2 '' -e 's/\(.*ZOR_UTIL_Reboot(.*\)return 0/int ZOR_MSG_Send(void); \1return ZOR_MSG_Send()/'
expect 1 library.so <<'END'
needs ZOR_MSG_Send of libmsgapi
its soname is libvendor.so.2 instead of libzorplatform.so.1
no name has a version: link with the version script zorplatform.map
END

# One version for all names but two, of which one has none.
printf 'ZORPLATFORM_1.0 { ZOR_DB*; ZOR_[A-CE-Z]*; mem*; s[ns]*; strcpy_s; };\n' >one.map
make_library $right one.map -e 's/int ZOR_UTIL_ListFindItem/__attribute__((visibility("hidden"))) &/'
expect 1 library.so <<'END'
ZOR_STORE_List has the version @@ZORPLATFORM_1.0 instead of @@ZORPLATFORM_1.1, needed by zorctl
ZOR_UTIL_ListFindItem is missing (zor/platform/list.h), needed by applications
strncpy_s has no version instead of @@ZORPLATFORM_1.0, needed by libmsgapi
END

# It would find that nothing is missing.
expect 2 --list /dev/null library.so <<<'/dev/null names nothing'
echo 'no library' >text
expect 1 text <<<'no shared library'
"${compiler[@]}" -shared -fPIC -nostdlib -Wl,-soname,libmsgapi.so.1 -o libmsgapi.so -x c - <<<'int ZOR_MSG_Init(void) { return 0; }'
make_library $right "$map" -e '1s/$/\nint ZOR_MSG_Init(void); int zor_use(void) { return ZOR_MSG_Init(); }/'
"${compiler[@]}" -shared -fPIC -nostdlib -fno-builtin -w "-Wl,-soname,$right,--version-script,$map" -o library.so library.c libmsgapi.so
expect 1 library.so <<'END'
is linked with libmsgapi, which needs the platform itself
needs ZOR_MSG_Init of libmsgapi
END
[ $failed = 0 ]
