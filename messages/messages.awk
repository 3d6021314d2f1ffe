# Reads the table of types_tsv.jq for the generators, which come after this file on the command line of awk: count, and for each row
# from 1 its first and last (as they are written), name, to, kind, request, reply and meaning. Rejects what a generator
# could not use.
BEGIN { FS = "\t" }
/^#/ { next }

function reject(why) {
  printf "zor.json: type %d, %s: %s\n", NR, $2, why > "/dev/stderr"
  failed = 1
  exit 1
}

function checkShape(shape, part, fields, i) {
  if (shape == "-") return
  fields = split(shape, part, " ")
  for (i = 1; i <= fields; i++) {
    if (part[i] !~ /^(data|u16|u32|u64|name|text[0-9]*|bytes[0-9]*|items|json):[a-z][a-z0-9_]*$/) reject("no field: " part[i])
    if (i < fields && part[i] ~ /^(bytes|items|json):/) reject("nothing can follow " part[i])
  }
}

# Numbers of one length compare as text.
function padded(number) { return sprintf("%8s", number) }

NF != 7 || $7 == "" || /["\\|]/ { reject("not seven columns of plain text") }
$1 !~ /^0x[0-9A-F]+(-0x[0-9A-F]+)?$/ { reject("no type: " $1) }
$3 !~ /^(server|cms|syslog|lctrl|web|any)$/ { reject("no destination: " $3) }
$4 !~ /^(request|oneway|event|notice)$/ { reject("no kind: " $4) }
{
  checkShape($5)
  checkShape($6)
  if (split($1, ends, "-") == 1) ends[2] = ends[1]
  if (count > 0 && padded(ends[1]) <= padded(last[count])) reject("not in ascending order")
  count++
  first[count] = ends[1]
  last[count] = ends[2]
  name[count] = $2
  to[count] = $3
  kind[count] = $4
  request[count] = $5
  reply[count] = $6
  meaning[count] = $7
}

END { if (failed) exit 1 }
