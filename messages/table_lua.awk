# The table of tools/wireshark/zorbus.lua.
END {
  print "local message_types = {"
  for (i = 1; i <= count; i++) {
    printf "  { %s, %s, \"%s\", \"%s\", \"%s\", \"%s\", \"%s\" },\n", first[i], last[i], name[i], to[i], kind[i],
      request[i], reply[i]
  }
  print "}"
}
