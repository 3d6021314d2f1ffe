# Lines of "FILE INCLUDED", both beginning with the names of their rooms.
{
  ++count
  from = room_of($1)
  to = room_of($2)
  if (from == "") wrong($1 ": no room is known for this file")
  else if (to == "") wrong($1 ": \"" $2 "\" does not name its room")
  else if (!may_use(from, to)) wrong($1 ": \"" $2 "\" is in a room that " from " may not use")
}

END {
  if (!failed) print count " includes, none of a room that is not allowed"
  exit failed
}
