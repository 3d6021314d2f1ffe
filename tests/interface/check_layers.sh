#!/bin/sh
# usage: check_layers.sh SOURCE_DIR
# Prints every include that points upward in the layers of the library, or out of a part that stands alone; fails if
# there is one.
set -eu
cd "$1"

# The layer of a file below libraries/private/msg.
layer_of() {
  case $1 in
    common/*) echo 1 ;;
    base/*) echo 2 ;;
    message/* | trace/* | mlogapi/*) echo 3 ;;
    sdk/loop/* | sdk/sockutil/*) echo 4 ;;
    notifyclient/* | sdk/msgapi/*) echo 5 ;;
    sdk/dmmsg/* | sdk/event/* | sdk/cfmdbinit/* | main/*) echo 6 ;;
    sdk/notifyutil/* | sdk/urlutil/* | sdk/iconvconvert/* | sdk/caltime/* | sdk/zorutil/*) echo 4 ;;
  esac
}

# Lines of "file included", relative to the directory given first; the pattern picks the opening delimiter.
includes_below() {
  (cd "$1" && find . -name '*.h' -o -name '*.cpp' | sed 's|^\./||' | sort | while read -r file; do
    sed -n "s|^ *# *include *$2\\([^\">]*\\)[\">].*|$file \\1|p" "$file"
  done)
}

check_library() {
  includes_below libraries/private/msg '"' | while read -r file included; do
    from=$(layer_of "$file")
    to=$(layer_of "$included")
    if [ -z "$from" ]; then
      echo "$file: no layer is known for this file"
    elif [ -z "$to" ]; then
      echo "$file: \"$included\" does not name its layer"
    elif [ "$to" -gt "$from" ]; then
      echo "$file: \"$included\" points upward, from layer $from to $to"
    fi
  done
}

# A part that stands alone includes only what the expression allows.
check_alone() {
  includes_below "$1" "$2" | while read -r file included; do
    echo "$included" | grep -Eqx "$3" || echo "$1/$file: \"$included\" does not belong to this part"
  done
}

check_daemons() {
  includes_below daemons '"' | while read -r file included; do
    case $included in
      common/* | programs/* | *.inc) ;; # a file that is made has that ending
      *) [ -f "daemons/$included" ] || echo "daemons/$file: \"$included\" is not a header of the daemons" ;;
    esac
  done
}

wrong=$(
  check_library
  check_daemons
  check_alone include/zor '"' 'none'
  check_alone include/zor/platform '<' 'zor/(platform/.*|export.h)|std[a-z]+.h'
  check_alone platform '<' 'zor/platform/.*|[^z].*'
  check_alone platform '"' 'common/[^/]*|[^/]*'
  check_alone programs '"' '(common|programs)/[^/]*'
  check_alone common '"' 'common/[^/]*'
  check_alone common '<' '[^z].*'
)
[ -z "$wrong" ] || { echo "$wrong"; exit 1; }
echo "$(includes_below libraries/private/msg '"' | wc -l) includes, none points upward"
