#!/usr/bin/env bash
# Builds the Debian packages into build/packages/ARCH, from the source package that it makes in build/packages/source.
# Usage: package.sh [--twice] [ARCH]
#        package.sh --needed [ARCH]    builds them unless those that are there are of this source
# Those of this machine (the default) are checked: the libraries' binary interface against the last release's, the
# packages by lintian. Those of another one (armhf, arm64) are cross built in a bare Debian folder. --twice builds once
# more, in another folder, language, time zone and umask, and compares. Needs Debian 12, and root to install what is
# missing and for another machine.
set -euo pipefail
cd "$(dirname "$0")/.."

mode=
if [[ ${1:-} == --twice || ${1:-} == --needed ]]; then
  mode=$1
  shift
fi
here=$(dpkg --print-architecture)
arch=${1:-$here}
[[ $# -le 1 && " $here amd64 armhf arm64 " == *" $arch "* ]] || {
  sed -n 's/^# \(Usage:\|      \)/\1/p' "$0" >&2
  exit 2
}
scripts/setup.sh package
packages=build/packages
version=$(dpkg-parsechangelog -S Version)
# With it, the debugging symbols would have other paths than without a compiler cache.
unset CCACHE_BASEDIR
options="parallel=$(nproc) ${DEB_BUILD_OPTIONS:-}"

# The tree as it is.
make_source() {
  local work name=libmsgapi-${version%-*}
  local -x SOURCE_DATE_EPOCH
  SOURCE_DATE_EPOCH=$(dpkg-parsechangelog -S Timestamp)
  rm -rf $packages/source
  mkdir -p $packages/source
  work=$(mktemp -d)
  scripts/files.sh >"$work/files"
  # The same whoever makes it.
  # shellcheck disable=SC2054
  local -a archive=(tar --create --format=gnu --mtime="@$SOURCE_DATE_EPOCH" --owner=0 --group=0 --numeric-owner
    --mode=u+rwX,go=rX --null "--transform=s,^,$name/,S")
  "${archive[@]}" -T "$work/files" | tar --extract -C "$work"
  grep -zv '^debian/' "$work/files" >"$work/upstream"
  "${archive[@]}" -T "$work/upstream" | xz -T1 >"$packages/source/libmsgapi_${version%-*}.orig.tar.xz"
  mv "$work/$name" $packages/source/
  (cd $packages/source && dpkg-source --build "$name" >/dev/null)
  rm -rf "$work" "${packages:?}/source/$name"
}

unpack() { # DIRECTORY: where the packages of the build in its folder "tree" will be
  rm -rf "$1"
  mkdir -p "$1"
  dpkg-source --no-copy --extract "$packages/source/libmsgapi_$version.dsc" "$1/tree" >/dev/null 2>&1
}

build_here() { # DIRECTORY
  unpack "$1"
  (cd "$1/tree" && DEB_BUILD_OPTIONS=$options dpkg-buildpackage --build=binary --unsigned-changes --unsigned-buildinfo) \
    >"$1/build.log" 2>&1 || { tail -n 60 "$1/build.log" >&2 && return 1; }
}

# What is needed to build stays in the folder for the next time.
build_crossed() { # DIRECTORY [PLACE]: where the directory is in that folder
  local folder=$PWD/build/folders/cross-$arch place=${2:-/build} needs
  local -a cache=() inside=(env "--chdir=$place/tree" "DEB_BUILD_OPTIONS=$options" ${TZ:+"TZ=$TZ"})
  if [ "${CMAKE_CXX_COMPILER_LAUNCHER:-}" = ccache ]; then
    cache=(--bind "$(ccache --get-config cache_dir)" /ccache)
    inside+=(CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache CCACHE_DIR=/ccache
      ${CCACHE_DISABLE:+CCACHE_DISABLE=1})
  fi
  needs=$(sed -n '/^Build-Depends/,/^$/p' debian/control)
  scripts/debian-folder.sh make "$folder" "$here,$arch" "crossbuild-essential-$arch,ccache"
  if [ "$(cat "$folder/needs" 2>/dev/null)" != "$needs" ]; then
    scripts/debian-folder.sh run "$folder" --bind "$PWD/$packages/source" /source sh -c \
      "apt-get -qq update && apt-get -qq build-dep -y --no-install-recommends -a$arch /source/libmsgapi_$version.dsc" \
      >"$folder.log" 2>&1 || { tail -n 30 "$folder.log" >&2 && return 1; }
    rm -f "$folder.log"
    echo "$needs" >"$folder/needs"
  fi
  unpack "$1"
  scripts/debian-folder.sh run "$folder" --bind "$(realpath "$1")" "$place" "${cache[@]}" "${inside[@]}" \
    dpkg-buildpackage --build=any --host-arch="$arch" --unsigned-changes --unsigned-buildinfo \
    >"$1/build.log" 2>&1 || { tail -n 60 "$1/build.log" >&2 && return 1; }
}

build() { if [ "$arch" = "$here" ]; then build_here "$1"; else build_crossed "$@"; fi; }

# Two builds, in which nothing is alike that need not be, must give the same packages.
compare() {
  local again=build/packages.again/a/folder/of/another/name
  (
    umask 0002
    export LC_ALL=C.UTF-8 LANGUAGE=de TZ=Pacific/Kiritimati USER=somebody HOME=/nonexistent CCACHE_DISABLE=1
    build $again /elsewhere
  )
  (cd $packages/"$arch" && sha256sum -- *.deb) | (cd $again && sha256sum --check --quiet) || {
    echo "package: built twice, these differ; the second ones are in $again" >&2
    return 1
  }
  rm -rf build/packages.again
  echo 'package: built twice, the same packages'
}

make_source
source=$(sha256sum <"$packages/source/libmsgapi_$version.dsc")
[[ $mode != --needed || $source != "$(cat $packages/"$arch"/built-from 2>/dev/null)" ]] || exit 0
build $packages/"$arch"
if [ "$arch" = "$here" ]; then
  scripts/check-abi.sh $packages/"$arch"/tree/build
  # Overrides that nothing needs are only information.
  lintian --allow-root --display-info --fail-on error,warning $packages/"$arch"/*.changes $packages/source/*.dsc \
    >$packages/lintian.log || { cat $packages/lintian.log >&2 && exit 1; }
  if grep unused-override $packages/lintian.log >&2; then exit 1; fi
  echo 'package: lintian finds no fault'
fi
echo "$source" >$packages/"$arch"/built-from
[ "$mode" != --twice ] || compare
ls -l $packages/"$arch"/*.deb
