/* Asking a daemon what it handles. The request has no body and may come from anyone who may send to the daemon. Those
   that are written with the C++, Python or Lua face answer it by themselves; others leave it without a reply, so wait
   for a short time only. The reply's data word is 0, its body a JSON object as UTF-8 without a NUL:

   {"name":"thermo","face":"c++","pid":123,
    "handles":[{"type":24833,"kind":"request","name":"GetState"}],"events":[{"type":186912}]}

   "kind" is request or oneway; "name" is there when the daemon knows a described type; "events" are those that it has
   subscribed to. Readers skip members that they do not know. Byte-level description: docs/protocol.md. */
#ifndef ZOR_INTROSPECT_WIRE_H
#define ZOR_INTROSPECT_WIRE_H

#define ZOR_MSG_INTROSPECT 0x110u

#endif
