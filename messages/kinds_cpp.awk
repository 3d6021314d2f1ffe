# The rows of kKinds in programs/message_kind.cpp.
END {
  for (i = 1; i <= count; i++) {
    printf "{%s, %s, MessageKind::%s},\n", first[i], last[i], kind[i] == "request" ? "kRequest" : "kNoRequest"
  }
}
