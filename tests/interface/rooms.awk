# What both checks of the layers share: the rules of layers.txt, which is read first.
FNR == NR {
  if ($0 ~ /^#/ || NF == 0) next
  room = $1
  sub(/:$/, "", room)
  for (i = 2; i <= NF; ++i) {
    if (!($i in rank)) wrong("layers.txt: " room " uses " $i ", which is not above it")
    allowed[room, $i]
  }
  rank[room] = FNR
  next
}

function wrong(text) {
  print text
  failed = 1
}

# The room of a file: the longest known name of a folder above it; empty when there is none.
function room_of(path) {
  while (sub(/\/[^\/]*$/, "", path)) if (path in rank) return path
  return ""
}

function may_use(from, to, whole) {
  if (from == to || ((from, "library") in allowed && rank[to] < rank["library"])) return 1
  for (whole = to "/"; sub(/\/[^\/]*$/, "", whole);) if ((from, whole) in allowed) return 1
  return 0
}
