// What the consumer's themes share: the transcript, and messages with a text.
#ifndef EXAMPLES_CONSUMER_H
#define EXAMPLES_CONSUMER_H

#include <zor/msg.h>

#include <cstdlib>
#include <memory>
#include <string>

constexpr uint32_t kWaitMs = 5000;

struct FreeBlock {
  void operator()(void *block) const { std::free(block); }
};
using Message = std::unique_ptr<ZOR_MSG_HEAD, FreeBlock>;

// Prints one step and remembers when it went wrong.
void Check(bool good, const std::string &what);

// A new message with a text as its body, and the text of a message.
Message Build(const char *destination, uint32_t type, const std::string &text = {});
std::string Text(ZOR_MSG_HEAD *msg);

// Sends a request and waits for its reply. Null without one; *status is then the reason.
Message Ask(const Message &request, uint32_t *status = nullptr);

// The themes, each in a file of its own.
void Requests();
void Transfers();
void Channels();
void NamedData();

#endif
