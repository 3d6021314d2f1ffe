#!/usr/bin/env bash
# Makes a release of the checked-out commit in build/release-VERSION: packages for three machines, the source package, the
# source archive, SBOM (SPDX 2.3), NOTES.md and SHA256SUMS. It tags and signs nothing; it says how at the end. First it
# checks that this is a release: the tree is clean and on main, the changelogs agree on a version that is new and that says
# enough about what changed in the interface. Then it runs all gates. Needs Debian 12, its package mirror and root.
# Usage: release.sh [--check | --no-tests] [COMMIT]
#   --check: the checks only    --no-tests: no gates; NOTES.md says so
#   COMMIT: what is checked out, if it is not on main
set -euo pipefail
cd "$(dirname "$0")/.."

problems=0
problem() {
  echo "release: $*" >&2
  problems=1
}

check_commit() { # [COMMIT]
  [ -z "$(git status --porcelain)" ] || problem 'there are changes or new files that are not committed'
  if [ $# -gt 0 ]; then
    [ "$(git rev-parse --verify --quiet "$1^{commit}")" = "$(git rev-parse HEAD)" ] || problem "$1 is not what is checked out"
  else
    git merge-base --is-ancestor HEAD main || problem 'HEAD is not on main; a release of another commit takes its name'
  fi
}

# Hours later somebody may have gone on working here.
check_unchanged() {
  [ "$(git rev-parse HEAD)" = "$commit" ] && [ -z "$(git status --porcelain)" ] || {
    echo "release: the tree is no longer that of $commit" >&2
    exit 1
  }
}

# The version is in debian/changelog alone; CHANGELOG.md must describe it.
check_changelogs() {
  [[ $version =~ ^(0|[1-9][0-9]*)(\.(0|[1-9][0-9]*)){2}$ ]] || problem "$version is not a version X.Y.Z"
  [ "$(dpkg-parsechangelog -S Distribution)" != UNRELEASED ] || problem 'debian/changelog says UNRELEASED'
  local described
  described=$(sed -n '/^## /{s/^## //p;q}' CHANGELOG.md)
  [ "$described" = "$version" ] || problem "CHANGELOG.md begins with $described, debian/changelog with $version"
  [ -n "$(notes_of_changes)" ] || problem "CHANGELOG.md says nothing about $version"
  ! git rev-parse --verify --quiet "refs/tags/$tag" >/dev/null || problem "there is a tag $tag already"
}

notes_of_changes() { # the first section of CHANGELOG.md, without its heading
  awk '/^## / { if (++sections == 2) exit; next } sections { print }' CHANGELOG.md | sed '/./,$!d'
}

at_least() { # VERSION WHY
  dpkg --compare-versions "$version" ge "$1" || problem "$version is too small: $2, so $1 at least"
}

# Semantic versions; the major one is the soname, too. Whether types and signatures are as before is what
# scripts/check-abi.sh says about the built libraries.
check_version() {
  local last last_version major minor patch node name
  last=$(git describe --tags --abbrev=0 --match 'v[0-9]*' 2>/dev/null || true)
  last_version=${last#v}
  [ -n "$last" ] || last_version=$(dpkg-parsechangelog --offset 1 --count 1 -S Version 2>/dev/null | sed 's/-[^-]*$//')
  if [ -n "$last_version" ]; then
    IFS=. read -r major minor patch <<<"$last_version"
    case $version in
      "$major.$minor.$((patch + 1))" | "$major.$((minor + 1)).0" | "$((major + 1)).0.0") ;;
      *) problem "$version does not follow $last_version" ;;
    esac
  fi
  if [ -n "$last" ]; then
    name=tests/interface/exports.txt
    git show "$last:$name" | LC_ALL=C sort >"$work/old"
    LC_ALL=C sort $name >"$work/new"
    [ -z "$(comm -13 "$work/old" "$work/new")" ] || at_least "$major.$((minor + 1)).0" "names were added since $last"
    [ -z "$(comm -23 "$work/old" "$work/new")" ] || at_least "$((major + 1)).0.0" "names were removed since $last"
  fi
  while read -r node; do
    at_least "$node.0" "a version script has names of $node"
  done < <(git ls-files -z '*.map' | xargs -0 sed -n 's/^[A-Z]*_\([0-9]*\.[0-9]*\) {.*/\1/p' | sort -uV)
}

write_notes() { # TESTS
  printf '# libmsgapi %s\n\nMade from commit %s. %s\n\nSHA256SUMS has the checksums of all files, %s what they consist of.\n\n' \
    "$version" "$(git rev-parse HEAD)" "$1" "libmsgapi-$version.spdx.json"
  notes_of_changes
}

mode=''
case ${1:-} in
  --check | --no-tests) mode=$1 && shift ;;
esac
case $#${1:-} in
  0 | 1[!-]*) ;;
  *)
    sed -n 's/^# \(Usage:\|  \)/\1/p' "$0" >&2
    exit 2
    ;;
esac
scripts/setup.sh package
version=$(dpkg-parsechangelog -S Version | sed 's/-[^-]*$//')
tag=v$version
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

check_commit "$@"
check_changelogs
check_version
[ $problems -eq 0 ] || exit 1
echo "release: $version of $(git rev-parse --short HEAD) may be released"
[ "$mode" != --check ] || exit 0
commit=$(git rev-parse HEAD)

SOURCE_DATE_EPOCH=$(dpkg-parsechangelog -S Timestamp)
export SOURCE_DATE_EPOCH
if [ "$mode" = --no-tests ]; then
  tests='**Its tests were not run by the script that made these files.**'
else
  .ci/run
  tests='All stages of .ci/run passed on it, and the packages of each machine were installed and tried.'
fi
check_unchanged
target=build/release-$version
rm -rf "$target"
files=$work/files
mkdir "$files"
: >"$work/tried"
here=$(dpkg --print-architecture)
for arch in "$here" $(printf '%s\n' amd64 armhf arm64 | grep -vx "$here"); do
  scripts/package.sh "$arch"
  [ "$arch" != "$here" ] || scripts/check-abi.sh --recorded "build/packages/$arch/tree/build"
  [ "$mode" = --no-tests ] || scripts/package-test.sh "$arch" | tee -a "$work/tried"
  find "build/packages/$arch" -maxdepth 1 -type f \( -name '*.deb' -o -name '*.changes' -o -name '*.buildinfo' \) \
    -exec cp -t "$files" {} +
done
find build/packages/source -maxdepth 1 -type f -exec cp -t "$files" {} +
git archive --format=tar --prefix="libmsgapi-$version/" HEAD | gzip -n -9 >"$files/libmsgapi-$version.tar.gz"
scripts/sbom.py "$version" "$files"/* >"$work/sbom"
mv "$work/sbom" "$files/libmsgapi-$version.spdx.json"
untested=$(sed -n 's/^package-test: NOT TESTED: //p' "$work/tried" | sort -u)
[ -z "$untested" ] || tests+=" **Not tested there: $untested.**"
write_notes "$tests" >"$files/NOTES.md"
(cd "$files" && sha256sum -- *) >"$work/sums"
mv "$work/sums" "$files/SHA256SUMS"
check_unchanged
mkdir -p build
mv "$files" "$target"
echo "release: $target is complete. What is left:"
echo "  git tag -s $tag -F $target/NOTES.md && gpg --detach-sign --armor $target/SHA256SUMS"
