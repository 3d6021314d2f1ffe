// The two device lists: the input is a file.
#include "app/kivaapi/device_records.h"
#include "app/kivaapi/device_xdr.h"
#include "base/list.h"
#include "fuzz.h"

namespace {

using zor::fuzz::Require;

template <class Node>
std::string Encoded(Node &first) {
  char *block = nullptr;
  size_t length = 0;
  std::FILE *stream = ::open_memstream(&block, &length);
  zor::EncodeList(stream, first);
  std::fclose(stream);
  const zor::MallocPtr<char> owner(block);
  return {block, length};
}

// Decodes the bytes and encodes the result.
template <class Node>
std::string Again(std::string bytes) {
  Node first = {};
  Require(!zor::DecodeList(bytes, first).outOfMemory, "no file is too large");
  size_t held = 0;
  for (const Node *node : zor::ListView<const Node>(first.next)) {
    Require(zor::IsWhole(node->info), "a record is whole");
    for (const auto text : zor::kTexts<decltype(node->info)>) held += 4 + std::strlen(node->info.*text);
  }
  Require(held <= bytes.size(), "nothing is held that is not in the file");
  const std::string encoded = Encoded(first);
  zor::ReleaseTexts(first.info);
  zor::ReleaseList(first.next);
  return encoded;
}

template <class Node>
void Check(const std::string &bytes) {
  const std::string once = Again<Node>(bytes);
  Require(Again<Node>(once) == once, "a list that is written back stays as it is");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string bytes(data, data + size);
  Check<dev_crashinfo_list>(bytes);
  Check<dev_kivainfo_list>(bytes);
  return 0;
}
