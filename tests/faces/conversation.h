/* The numbers of the conversations that every face of the library can hold, as provider and as consumer. */
#ifndef FACES_CONVERSATION_H
#define FACES_CONVERSATION_H

enum {
  TALK_STATE = 0x6101,      /* no body; reply: JSON, "actual" and "label" */
  TALK_WORD = 0x6102,       /* data word n; reply: n + 1 */
  TALK_LATER = 0x6103,      /* data word: ms until the reply, whose data word is 42 */
  TALK_ERROR = 0x6104,      /* reply: an error, "no such room" */
  TALK_SILENT = 0x6105,     /* no reply */
  TALK_ECHO = 0x6106,       /* a body; reply: the same */
  TALK_NOTE = 0x6107,       /* one-way, data word n: publishes "note" of the module "network" with {"n":n} */
  TALK_DESCRIPTOR = 0x6108, /* one-way, a descriptor follows: writes to it and closes it */
  TALK_BURST = 0x6109       /* one-way, data word n: publishes "burst" n times */
};

#define TALK_MODULE "network"
#define TALK_ACTUAL 21.5
#define TALK_LABEL "hall"
#define TALK_WHY "no such room"
#define TALK_HELLO "hello from provider"
#define TALK_LARGE 1500000u

#endif
