# Every strong definition, and what is needed from elsewhere.
$1 == "nm:" {
  wrong($0)
  next
}
$1 != file {
  file = $1
  room = room_of(file)
  if (room == "" && !($1 in unplaced)) {
    unplaced[$1]
    wrong($1 ": no room is known for this file")
  }
}
$3 ~ /^[ABCDGRST]$/ { defined[$2] = defined[$2] " " room }
$3 == "U" && $2 ~ /^(strn?case(cmp|str)|to(upper|lower)|__ctype_.*_loc)$/ {
  wrong($1 " needs " $2 ", which follows the locale: see common/ascii.h")
}
$3 ~ /^[Uvw]$/ { needed[++count] = $2; by[count] = $1 }

END {
  for (i = 1; i <= count; ++i) {
    if (!(needed[i] in defined)) continue
    ++arrows
    room = room_of(by[i])
    found = 0
    places = split(defined[needed[i]], place, " ")
    for (j = 1; j <= places; ++j) found = found || may_use(room, place[j])
    if (!found) wrong(by[i] " needs " needed[i] " of" defined[needed[i]])
  }
  if (arrows == 0) wrong("no object needs a symbol of another: the lists are empty")
  if (!failed) print arrows " symbols are needed, none of a room that is not allowed"
  exit failed
}
