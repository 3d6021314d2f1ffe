/*
 * The XDR form of the device lists.
 *
 * A node is a marker that says whether another node follows, that node if so, and its own record: the markers of all
 * nodes come first, then the records from the last to the first. Lists of any length and files of any content are
 * coded without recursion. What a file claims is not believed: a node is made for each record that is there, and no
 * string is longer than the file.
 */
#ifndef APP_KIVAAPI_DEVICE_XDR_H
#define APP_KIVAAPI_DEVICE_XDR_H

#include <zor/kiva.h>

#include <cstdint>
#include <cstdio>
#include <span>

namespace zor {

struct Decoded {
  bool outOfMemory;
  std::uint32_t lostCount;  // how many records behind the first node were claimed, but are not there in whole
};

// Decodes into a zeroed node and whole nodes behind it, for the caller to release whatever comes back. The first node's
// own record is whole or lacks its strings.
Decoded DecodeList(std::span<char> bytes, dev_crashinfo_list &first) noexcept;
Decoded DecodeList(std::span<char> bytes, dev_kivainfo_list &first) noexcept;

// Ends before the first string that is null. A failure to write shows in the stream.
void EncodeList(std::FILE *stream, dev_crashinfo_list &first) noexcept;
void EncodeList(std::FILE *stream, dev_kivainfo_list &first) noexcept;

}  // namespace zor

#endif
