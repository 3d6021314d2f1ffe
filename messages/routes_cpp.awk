# The rows of kDefaultRoutes in daemons/msgsvr/settings.cpp.
END {
  for (i = 1; i <= count; i++) {
    if (to[i] ~ /^(cms|lctrl)$/) printf "{%s, %s, \"%s\"},\n", first[i], last[i], to[i]
  }
}
