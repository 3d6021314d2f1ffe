# The table that the generators read, of a type file: a row for each type with its number or range, name, receiver, kind,
# fields of the message and of the reply, and meaning. A field is KIND:NAME, "data" for the data word; "-" for none.
def shape: map((if .in == "data" then "data" else .type end) + ":" + .name) | if . == [] then "-" else join(" ") end;

.types[]
| [.type, .name, .to // "any", .kind, (.request // .message // [] | shape), (.reply // [] | shape), .meaning]
| join("\t")
