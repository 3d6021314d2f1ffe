#!/usr/bin/env bash
# Lets release.sh judge fabricated trees, and sbom.py describe fabricated packages.
# Usage: check_release.sh SOURCE-DIRECTORY
set -euo pipefail
source=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
umask 022 # or dpkg-deb refuses
export HOME=$work GIT_CONFIG_GLOBAL=/dev/null GIT_CONFIG_SYSTEM=/dev/null GIT_{AUTHOR,COMMITTER}_{NAME,EMAIL}=tester@example

entry() { # VERSION
  printf 'libmsgapi (%s) bookworm; urgency=medium\n\n  * Changes.\n\n' "$1"
  printf ' -- Tester <tester@example>  Mon, 23 Nov 2026 00:00:00 +0000\n\n'
}

# A tree that may be released as 1.3.0 after 1.2.0, which has a tag.
mkdir -p "$work/tree"/{scripts,debian,tests/interface}
cd "$work/tree"
git init -q -b main
cp "$source/scripts/release.sh" scripts/
printf '#!/bin/sh\n' >scripts/setup.sh
chmod +x scripts/setup.sh
entry 1.2.0-1 >debian/changelog
printf '# Changelog\n\n## 1.2.0\n\n- Old.\n' >CHANGELOG.md
printf '%s\n' ZOR_A ZOR_B >tests/interface/exports.txt
printf 'API_1.0 {\n};\nAPI_1.2 {\n} API_1.0;\n' >api.map
git add -A && git commit -qm old && git tag v1.2.0
{ entry 1.3.0-1 && entry 1.2.0-1; } >debian/changelog
printf '# Changelog\n\n## 1.3.0\n\n### Subject\n\n- New.\n\n## 1.2.0\n\n- Old.\n' >CHANGELOG.md
echo ZOR_C >>tests/interface/exports.txt
git add -A && git commit -qm new

judge() { # WHAT COMPLAINT (none: may be released) CHANGE [COMMIT]
  local status=0 wanted=${2:-may be released}
  git checkout -q --detach main
  eval "$3"
  scripts/release.sh --check ${4:+"$4"} >"$work/out" 2>&1 || status=$?
  { [ $status -eq $((${#2} > 0)) ] && grep -qF -- "$wanted" "$work/out"; } || {
    echo "FAILED: $1: status $status without \"$wanted\": $(cat "$work/out")"
    failures=1
  }
  git reset -q --hard && git clean -qfd
}
to() { sed -i "s/1\.3\.0/$1/" debian/changelog CHANGELOG.md; }
record() { git add -A && git commit -qm changed; }

judge 'as it is' '' :
judge 'a commit beside main' '' 'touch new; record' HEAD
judge 'the same without its name' 'not on main' 'touch new; record'
judge 'the name of another commit' 'is not what is checked out' 'touch new; record' main
judge 'a new file' 'not committed' 'touch new'
judge 'a changed file' 'not committed' 'echo >>api.map'
judge 'a changelog without this version' 'CHANGELOG.md begins with 1.2.0, debian/changelog with 1.3.0' \
  'sed -i /1.3.0/,/New/d CHANGELOG.md; record' HEAD
judge 'a section without text' 'says nothing' 'sed -i "/Subject/d; /New/d" CHANGELOG.md; record' HEAD
judge 'a version that is not one' 'not a version' 'to 1.3; record' HEAD
judge 'an unfinished entry' 'UNRELEASED' 'sed -i 1s/bookworm/UNRELEASED/ debian/changelog; record' HEAD
judge 'what was released before' 'a tag v1.3.0 already' 'git tag v1.3.0; git tag -d v1.2.0 >/dev/null'
git tag -d v1.3.0 >/dev/null && git tag v1.2.0 main~1
judge 'a step back' 'does not follow 1.2.0' 'to 1.1.9; record' HEAD
judge 'two steps' 'does not follow 1.2.0' 'to 1.4.0; record' HEAD
judge 'a half step' 'does not follow 1.2.0' 'to 1.3.1; record' HEAD
judge 'a major step' '' 'to 2.0.0; record' HEAD
judge 'a patch with a new name' 'so 1.3.0 at least' 'to 1.2.1; record' HEAD
judge 'a patch without' '' 'to 1.2.1; sed -i /ZOR_C/d tests/interface/exports.txt; record' HEAD
judge 'a minor step that loses a name' 'so 2.0.0 at least' 'sed -i /ZOR_A/d tests/interface/exports.txt; record' HEAD
judge 'names of a version to come' 'so 1.4.0 at least' 'sed -i s/API_1.2/API_1.4/ api.map; record' HEAD
git tag -d v1.2.0 >/dev/null
judge 'the same, no tag to compare with' 'so 1.4.0 at least' 'sed -i s/API_1.2/API_1.4/ api.map; record' HEAD
judge 'two steps, no tag to compare with' 'does not follow 1.2.0' 'to 1.4.0; record' HEAD

# Two of our packages, one of which needs the other, a library that the build knows and one that it does not.
package() { # NAME FIELD...
  mkdir -p "$work/$1/DEBIAN" "$work/$1/usr/share/$1"
  echo "$1" >"$work/$1/usr/share/$1/file"
  printf '%s\n' "Package: $1" 'Version: 1.3.0-1' 'Architecture: armhf' 'Source: libmsgapi' 'Maintainer: Tester <tester@example>' \
    "Description: a package" "${@:2}" >"$work/$1/DEBIAN/control"
  dpkg-deb --root-owner-group --build "$work/$1" "$work/files/$1_1.3.0-1_armhf.deb" >/dev/null
}
mkdir "$work/files"
package libours
package ours 'Pre-Depends: libstrange1 (>= 2)' 'Depends: nothing | libouters2 (>= 1), libours (= 1.3.0-1) | libours-abi-1.3' 'Recommends: libours'
cat >"$work/files/libmsgapi_1.3.0-1_armhf.buildinfo" <<'END'
Format: 1.0
Architecture: armhf
Installed-Build-Depends:
 gcc (= 12.2),
 libouters2:armhf (= 1.4-2),
 libouters2 (= 1.4-3),
 libtirpc-dev:armhf (= 1.3.3-1)
Environment:
 LANG="C"
END
echo archive >"$work/files/libmsgapi-1.3.0.tar.gz"
printf '%s\n' 'Format: DEP-5' '' 'Files: *' 'Copyright: 2026 testers' 'License: none-stated' ' Nothing is granted.' >debian/copyright
cp "$source/scripts/sbom.py" scripts/
export SOURCE_DATE_EPOCH=1763856000
sbom() { scripts/sbom.py 1.3.0 "$work"/files/*; }
sbom >"$work/sbom"

holds() { # WHAT FILTER
  jq -e "$2" "$work/sbom" >/dev/null || { echo "FAILED: $1" && failures=1; }
}
holds 'the document is complete' '.spdxVersion == "SPDX-2.3" and .dataLicense == "CC0-1.0" and .SPDXID == "SPDXRef-DOCUMENT" and
  .creationInfo.created == "2025-11-23T00:00:00Z" and (.creationInfo.creators | length) > 0 and (.name | length) > 0 and
  (.documentNamespace | test("^https://[^#]+$"))'
holds 'identifiers are unique and well-formed' '[.SPDXID, (.packages, .files | .[].SPDXID)] |
  length == (unique | length) and all(test("^SPDXRef-[a-zA-Z0-9.-]+$"))'
holds 'packages and files have what they must have' 'all(.packages[]; has("name") and has("downloadLocation") and
    (.filesAnalyzed | not) == (has("packageVerificationCode") | not)) and
  all(.files[]; (.fileName | startswith("./")) and ([.checksums[].algorithm] | index("SHA1") and index("SHA256")))'
holds 'relations name what is there' '[.SPDXID, (.packages, .files | .[].SPDXID)] as $ids |
  all(.relationships[]; (.spdxElementId, .relatedSpdxElement) | IN($ids[]))'
holds 'licences that are none of the list are explained' '[.hasExtractedLicensingInfos[].licenseId] as $ids |
  [.packages[].licenseDeclared | select(startswith("LicenseRef-"))] | length > 0 and all(IN($ids[]))'
while read -r sum file; do
  holds "$file has its checksum" "any(.packages[]; .packageFileName == \"$(basename "$file")\" and
    any(.checksums[]; .algorithm == \"SHA256\" and .checksumValue == \"$sum\"))"
done < <(sha256sum "$work"/files/*.{deb,tar.gz})
holds 'a file of a package has its checksum' "any(.files[]; .fileName == \"./usr/share/ours/file\" and
  any(.checksums[]; .checksumValue == \"$(sha256sum <"$work/ours/usr/share/ours/file" | cut -d ' ' -f 1)\"))"
related() { # FROM RELATION TO VERSION
  holds "$*" "(.packages | map({(.SPDXID): .}) | add) as \$of | any(.relationships[]; .relationshipType == \"$2\" and
    \$of[.spdxElementId].name == \"$1\" and
    (\$of[.relatedSpdxElement] | .name == \"$3\" and (.versionInfo // \"\") == \"$4\"))"
}
related libmsgapi GENERATES ours 1.3.0-1
related ours DEPENDS_ON libours 1.3.0-1
related ours DEPENDS_ON libouters2 1.4-2
related ours DEPENDS_ON libstrange1 ''
related libmsgapi STATIC_LINK libtirpc-dev 1.3.3-1
holds 'what was only built with is no part of it' 'all(.packages[]; .name != "gcc")'
sbom | cmp - "$work/sbom" || failures=1

# A whole release of these files, twice.
git checkout -qf main
printf '#!/bin/sh\nmkdir -p build/packages/$1 build/packages/source && cp %s/files/*armhf* build/packages/$1\n' "$work" >scripts/package.sh
printf '#!/bin/sh\n' >scripts/check-abi.sh
chmod +x scripts/*.sh
echo build >.gitignore
record
for time in first second; do
  scripts/release.sh --no-tests HEAD >"$work/out" || { cat "$work/out" && failures=1; }
  mv build/release-1.3.0 "$work/$time"
done
# Somebody goes on working in the tree meanwhile.
echo 'echo more >>CHANGELOG.md' >>scripts/package.sh
record
if scripts/release.sh --no-tests HEAD >"$work/out" 2>&1 || [ -e build/release-1.3.0 ] ||
  ! grep -q 'no longer that of' "$work/out"; then
  echo "FAILED: a release of a tree that has changed: $(cat "$work/out")"
  failures=1
fi
diff -r "$work/first" "$work/second" || { echo 'FAILED: a release can be repeated' && failures=1; }
cd "$work/first"
sha256sum --check --quiet --strict SHA256SUMS || failures=1
[ "$(wc -l <SHA256SUMS)" -eq "$(find . -type f ! -name SHA256SUMS | wc -l)" ] || { echo 'FAILED: all files have sums' && failures=1; }
for file in ours_1.3.0-1_armhf.deb libmsgapi-1.3.0.{tar.gz,spdx.json}; do
  [ -s $file ] || { echo "FAILED: there is no $file" && failures=1; }
done
grep -q '^- New' NOTES.md && grep -q 'tests were not run' NOTES.md && ! grep -q '^- Old' NOTES.md || {
  echo "FAILED: notes: $(cat NOTES.md)"
  failures=1
}
exit $failures
