# The table of docs/protocol.md.
function code(shape) { return shape == "-" ? "" : "`" shape "`" }

END {
  print "| type | name | to | kind | message | reply | meaning |\n|---|---|---|---|---|---|---|"
  for (i = 1; i <= count; i++) {
    type = first[i] == last[i] ? first[i] : first[i] "-" last[i]
    printf "| %s | `%s` | %s | %s | %s | %s | %s |\n", type, name[i], to[i], kind[i], code(request[i]), code(reply[i]),
      meaning[i]
  }
}
