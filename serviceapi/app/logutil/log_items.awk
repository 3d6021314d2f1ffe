# Turns the table of log items into three parallel C++ arrays: the rows, and their texts in the two languages.
BEGIN { FS = "\t" }
/^#/ { next }
NF != 4 || $1 !~ /^0x[0-9A-F]+$/ || length($1) != 10 || $2 !~ /^0x[0-9A-F]+$/ || $3 == "" || $4 == "" || /\\/ {
  printf "log_items.tsv:%d: not \"index, type-level, English, second language\"\n", NR > "/dev/stderr"
  exit failed = 1
}
{
  gsub(/"/, "\\\"")
  rows = rows "    {" $1 ", " $2 ", 1},\n"
  english = english "    \"" $3 "\",\n"
  second = second "    \"" $4 "\",\n"
}
END {
  if (failed) exit 1
  print "constexpr ZOR_LOG_ITEM kItems[] = {\n" rows "    {0, 0, 0},\n};\n"
  print "constexpr const char *kEnglishTexts[] = {\n" english "};\n"
  print "constexpr const char *kSecondTexts[] = {\n" second "};"
}
