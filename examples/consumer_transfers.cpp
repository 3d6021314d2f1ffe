// Large bodies, which travel in a file, and a descriptor.
#include <poll.h>
#include <unistd.h>
#include <zor/paths.h>
#include <zor/platform/file.h>

#include <filesystem>

#include "consumer.h"
#include "demo.h"

namespace {

std::string Pattern(size_t size) {
  std::string bytes(size, '\0');
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i % 251);
  return bytes;
}

// The sender writes a file and the receiver deletes it; neither program sees it.
void LargeBodies() {
  char directory[256];
  ZOR_UTIL_FixedPath(ZOR_PATH_MSG_FILE_DIR, directory, sizeof directory);
  std::error_code error;
  const auto untouched = std::filesystem::last_write_time(directory, error);
  for (const size_t size : {ZOR_MSG_INLINE_BODY_MAX + 1, 1024u * 1024u}) {
    const std::string body = Pattern(size);
    const Message reply = Ask(Build(PROVIDER, DEMO_ECHO, body));
    Check(Text(reply.get()) == body, "body of " + std::to_string(size) + " bytes: came back equal");
  }
  const bool used = std::filesystem::last_write_time(directory, error) != untouched;
  // Where the server alone may list them, their removal is its business.
  const bool empty = std::filesystem::is_empty(directory, error) || error == std::errc::permission_denied;
  Check(used && empty, "large bodies: travelled in files, of which none is left");
}

void Descriptor() {
  int ends[2];
  if (pipe(ends) != 0) return Check(false, "descriptor: no pipe");
  ZOR_MSG_SendSimpleMsg(PROVIDER, DEMO_DESCRIPTOR, 0);
  const uint32_t status = ZOR_MSG_SendFd(ends[1]);
  close(ends[1]);

  char text[64] = {};
  pollfd readable = {ends[0], POLLIN, 0};
  if (status == ZOR_OK && poll(&readable, 1, kWaitMs) == 1 && read(ends[0], text, sizeof text - 1) < 0) text[0] = '\0';
  close(ends[0]);
  Check(std::string(text) == PROVIDER " wrote this", std::string("descriptor: out of the pipe came: ") + text);
}

}  // namespace

void Transfers() {
  LargeBodies();
  Descriptor();
}
