# The rows of kRows in programs/types/own_types.cpp.
END {
  for (i = 1; i <= count; i++) {
    printf "{%s, %s, \"%s\", \"%s\", \"%s\", \"%s\", \"%s\", \"%s\"},\n", first[i], last[i], name[i], to[i], kind[i],
      request[i], reply[i], meaning[i]
  }
}
