#!/bin/sh
# usage: check_limits.sh SOURCE_DIR DOCUMENT
# The tables of limits in the document match the headers.
set -eu
source=$1 document=$2

copy=$(mktemp)
trap 'rm -f "$copy"' EXIT
cp "$document" "$copy"
perl "$source/man/limits.pl" "$source" "$copy"
diff "$document" "$copy" || { echo "man/limits.pl . ${document#"$source"/} puts it right"; exit 1; }
