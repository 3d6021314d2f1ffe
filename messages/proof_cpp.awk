# A source that compiles only when the numbers are those of the headers.
END {
  print "#include <zor/config_wire.h>\n#include <zor/control_wire.h>\n#include <zor/dmmsg.h>\n#include <zor/event.h>"
  print "#include <zor/introspect_wire.h>\n#include <zor/kiva_wire.h>\n#include <zor/lctrl.h>\n#include <zor/log_wire.h>"
  print "#include <zor/msg_wire.h>\n#include <zor/pubutil.h>\n"
  for (i = 1; i <= count; i++) {
    isRange = first[i] != last[i]
    printf "static_assert(%s == %s, \"zor.json\");\n", name[i] (isRange ? "_FIRST" : ""), first[i]
    if (isRange) printf "static_assert(%s_LAST == %s, \"zor.json\");\n", name[i], last[i]
  }
}
