# The rows of kNames in programs/access/type_names.cpp.
END {
  for (i = 1; i <= count; i++) {
    short = name[i]
    sub(/^ZOR_(MSG_)?/, "", short)
    printf "{{%s, %s}, \"%s\"},\n", first[i], last[i], short
  }
}
