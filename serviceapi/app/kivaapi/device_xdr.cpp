#include "app/kivaapi/device_xdr.h"

#include <rpc/types.h>
#include <rpc/xdr.h>

#include <cerrno>
#include <cstdint>
#include <limits>

#include "app/kivaapi/device_records.h"
#include "base/list.h"

namespace zor {
namespace {

// Codes in the direction of its stream, which holds at most streamLength bytes.
class Coder {
 public:
  Coder(XDR *xdrs, std::uint32_t streamLength) noexcept : xdrs_(xdrs), streamLength_(streamLength) {}

  bool Code(kiva_info_status &status) const;
  bool Code(dev_crash_info &record) const;
  bool Code(dev_kiva_info &record) const;
  template <class Node>
  bool List(Node &first) const;
  // The list into a zeroed node. *lostCount is the number of records behind it that are not there.
  template <class Node>
  bool DecodeList(Node &first, std::uint32_t *lostCount) const;

 private:
  bool Is(xdr_op operation) const { return xdrs_->x_op == operation; }
  bool Word(std::uint32_t &word) const { return xdr_u_int(xdrs_, &word) != FALSE; }
  bool Text(char *&text) const;
  template <class Record>
  bool Texts(Record &record) const;
  template <class Record>
  bool WholeOrEmpty(bool coded, Record &record) const;
  bool CountMarkers(std::uint32_t *count) const;
  template <class Node>
  bool AddDecoded(Node *&list) const;
  template <class Node>
  bool EncodeList(Node &first) const;
  template <class Node>
  bool FreeList(Node &first) const;

  XDR *xdrs_;
  std::uint32_t streamLength_;
};

// XDR libraries allocate what a length claims, and some take the largest one for a null string that was read well.
bool Coder::Text(char *&text) const {
  if (Is(XDR_ENCODE) && text == nullptr) return false;
  const u_int longest = Is(XDR_DECODE) ? streamLength_ : std::numeric_limits<u_int>::max();
  return xdr_string(xdrs_, &text, longest) != FALSE;
}

template <class Record>
bool Coder::Texts(Record &record) const {
  return std::all_of(kTexts<Record>.begin(), kTexts<Record>.end(),
                     [&](char *Record::*text) { return Text(record.*text); });
}

// A record that is cut off in the middle must not pass for a whole one.
template <class Record>
bool Coder::WholeOrEmpty(bool coded, Record &record) const {
  if (!coded && Is(XDR_DECODE)) ReleaseTexts(record);
  return coded;
}

bool Coder::Code(kiva_info_status &status) const {
  return Word(status.dlSize) && Word(status.param1) && Word(status.state) && Word(status.param3) && Word(status.flags);
}

bool Coder::Code(dev_crash_info &record) const {
  return WholeOrEmpty(Texts(record) && Word(record.ResultState), record);
}

bool Coder::Code(dev_kiva_info &record) const {
  return WholeOrEmpty(Code(record.status) && Texts(record), record);
}

// How many nodes follow the first one; false when the markers do not end within the stream.
bool Coder::CountMarkers(std::uint32_t *count) const {
  for (*count = 0; *count < streamLength_ / BYTES_PER_XDR_UNIT; ++*count) {
    bool_t follows = FALSE;
    if (xdr_bool(xdrs_, &follows) == FALSE) break;
    if (follows == FALSE) return true;
  }
  *count = 0;  // what never ends is no list
  return false;
}

// Puts the next record in front of the list.
template <class Node>
bool Coder::AddDecoded(Node *&list) const {
  MallocPtr<Node> node = NewNode<Node>();
  if (node == nullptr || !Code(node->info)) return false;
  node->next = list;
  list = node.release();
  return true;
}

template <class Node>
bool Coder::DecodeList(Node &first, std::uint32_t *lostCount) const {
  if (!CountMarkers(lostCount)) return false;
  while (*lostCount > 0 && AddDecoded(first.next)) --*lostCount;
  return *lostCount == 0 && Code(first.info);
}

// Turns the links of a list round; the new first node.
template <class Node>
Node *Reverse(Node *list) {
  Node *reversed = nullptr;
  while (list != nullptr) {
    Node *next = std::exchange(list->next, reversed);
    reversed = std::exchange(list, next);
  }
  return reversed;
}

template <class Node>
bool Coder::EncodeList(Node &first) const {
  for (const Node *node : ListView<const Node>(&first)) {
    bool_t follows = node->next == nullptr ? FALSE : TRUE;
    if (xdr_bool(xdrs_, &follows) == FALSE) return false;
  }
  Node *last = Reverse(&first);
  bool good = true;
  for (Node *node = last; node != nullptr && good; node = node->next) good = Code(node->info);
  Reverse(last);
  return good;
}

template <class Node>
bool Coder::FreeList(Node &first) const {
  ReleaseList(first.next);
  return Code(first.info);
}

template <class Node>
bool Coder::List(Node &first) const {
  if (Is(XDR_FREE)) return FreeList(first);
  std::uint32_t lostCount = 0;
  return Is(XDR_DECODE) ? DecodeList(first, &lostCount) : EncodeList(first);
}

// A malformed list tail is expected: the KIVA list always ends in a missing string.
template <class Node>
Decoded Decode(std::span<char> bytes, Node &first) {
  const auto length = static_cast<std::uint32_t>(bytes.size());
  XDR xdrs = {};
  xdrmem_create(&xdrs, bytes.data(), length, XDR_DECODE);
  Decoded decoded = {false, 0};
  errno = 0;
  static_cast<void>(Coder(&xdrs, length).DecodeList(first, &decoded.lostCount));
  decoded.outOfMemory = errno == ENOMEM;
  xdr_destroy(&xdrs);
  return decoded;
}

template <class Node>
void Encode(std::FILE *stream, Node &first) {
  XDR xdrs = {};
  xdrstdio_create(&xdrs, stream, XDR_ENCODE);
  static_cast<void>(Coder(&xdrs, 0).List(first));
  xdr_destroy(&xdrs);
}

}  // namespace

Decoded DecodeList(std::span<char> bytes, dev_crashinfo_list &first) noexcept {
  return Decode(bytes, first);
}

Decoded DecodeList(std::span<char> bytes, dev_kivainfo_list &first) noexcept {
  return Decode(bytes, first);
}

void EncodeList(std::FILE *stream, dev_crashinfo_list &first) noexcept {
  Encode(stream, first);
}

void EncodeList(std::FILE *stream, dev_kivainfo_list &first) noexcept {
  Encode(stream, first);
}

}  // namespace zor

int32_t xdr_dev_crash_info(XDR *xdrs, dev_crash_info *record) {
  return zor::Coder(xdrs, ZOR_ALLOC_MAX).Code(*record) ? TRUE : FALSE;
}

int32_t xdr_dev_crashinfo_list(XDR *xdrs, dev_crashinfo_list *first) {
  return zor::Coder(xdrs, ZOR_ALLOC_MAX).List(*first) ? TRUE : FALSE;
}

int32_t xdr_kiva_info_status(XDR *xdrs, kiva_info_status *status) {
  return zor::Coder(xdrs, ZOR_ALLOC_MAX).Code(*status) ? TRUE : FALSE;
}

int32_t xdr_dev_kiva_info(XDR *xdrs, dev_kiva_info *record) {
  return zor::Coder(xdrs, ZOR_ALLOC_MAX).Code(*record) ? TRUE : FALSE;
}

int32_t xdr_dev_kivainfo_list(XDR *xdrs, dev_kivainfo_list *first) {
  return zor::Coder(xdrs, ZOR_ALLOC_MAX).List(*first) ? TRUE : FALSE;
}
