#include "sdk/iconvconvert/convert_engine.h"

#include <fcntl.h>
#include <iconv.h>
#include <sys/ioctl.h>
#include <zor/limits.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>

namespace zor {
namespace {

using SetName = std::array<char, ZOR_NLS_SET_NAME_SIZE>;

SetName CutName(const char *name) {
  SetName cut = {};
  std::memcpy(cut.data(), name, strnlen(name, ZOR_NLS_SET_NAME_SIZE - 1));
  return cut;
}

// The C library would take the locale's own set for one without a name. It ignores blanks and commas at the end of a
// name, and what is behind a '/' is options.
bool IsNameless(const SetName &name) {
  std::string_view code = name.data();
  code = code.substr(0, code.find('/'));
  return code.find_first_not_of(", \t\n\v\f\r") == std::string_view::npos;
}

#if UINTPTR_MAX == UINT32_MAX

// The device's record holds 32-bit addresses, so it exists for 32-bit processes only.
struct DeviceRequest {
  std::uint32_t mode;
  std::uint32_t incomplete;
  const char *input;
  std::uint32_t inputLength;
  SetName sourceSet;
  SetName targetSet;
  std::uint32_t outputLength;
  char *output;
};
static_assert(sizeof(DeviceRequest) == 88);
static_assert(offsetof(DeviceRequest, sourceSet) == 16 && offsetof(DeviceRequest, targetSet) == 48);
static_assert(offsetof(DeviceRequest, outputLength) == 80);

// Opened at first use and kept: -1 until then.
int g_deviceFd = -1;

bool OpenDevice() {
  if (g_deviceFd < 0) g_deviceFd = ::open("/proc/convert", O_RDWR | O_CLOEXEC);
  return g_deviceFd >= 0;
}

std::optional<Conversion> ConvertByDevice(const SetName &source, const SetName &target, std::string_view input,
                                          char *output, std::uint32_t size) {
  constexpr unsigned long kRequestCode = 0xc018470a;  // says 24 bytes, and always did
  DeviceRequest request = {};
  request.mode = output == nullptr ? 1 : 0;
  request.input = input.data();
  request.inputLength = static_cast<std::uint32_t>(input.size());
  request.sourceSet = source;
  request.targetSet = target;
  request.outputLength = size;
  request.output = output;
  if (::ioctl(g_deviceFd, kRequestCode, &request) < 0) return std::nullopt;
  return Conversion{request.outputLength, request.incomplete != 0};
}

#else

bool OpenDevice() {
  return false;
}

std::optional<Conversion> ConvertByDevice(const SetName &, const SetName &, std::string_view, char *, std::uint32_t) {
  return std::nullopt;
}

#endif

class Iconv {
 public:
  Iconv(const SetName &source, const SetName &target) noexcept : handle_(::iconv_open(target.data(), source.data())) {}
  Iconv(const Iconv &) = delete;
  Iconv &operator=(const Iconv &) = delete;
  ~Iconv() {
    if (valid()) ::iconv_close(handle_);
  }

  bool valid() const noexcept { return handle_ != kInvalid; }

  // One step; 0, or the errno of a step that failed.
  int Step(char **input, std::size_t *inputLeft, char **output, std::size_t *outputLeft) noexcept {
    return ::iconv(handle_, input, inputLeft, output, outputLeft) == static_cast<std::size_t>(-1) ? errno : 0;
  }

 private:
  inline static const auto kInvalid = reinterpret_cast<iconv_t>(-1);
  iconv_t handle_;
};

// Takes the converted bytes in pieces and hands them on to the caller's buffer, or only counts them. iconv does not
// write there itself: it wants room even to refuse input, so a buffer of the measured size would not do.
class Sink {
 public:
  Sink(char *output, std::uint32_t size) noexcept : output_(output), size_(size) {}

  char **at() noexcept { return &at_; }
  std::size_t *left() noexcept { return &left_; }
  std::uint64_t length() const noexcept { return length_; }

  // Hands the piece on; false when the caller's buffer is too small for it.
  bool Flush() noexcept {
    const std::size_t count = piece_.size() - left_;
    if (output_ != nullptr) {
      if (count > size_ - length_) return false;
      std::memcpy(output_ + length_, piece_.data(), count);
    }
    length_ += count;
    at_ = piece_.data();
    left_ = piece_.size();
    return true;
  }

 private:
  char *output_;
  std::uint64_t size_;
  std::uint64_t length_ = 0;
  std::array<char, 1024> piece_;
  char *at_ = piece_.data();
  std::size_t left_ = piece_.size();
};

// The bytes of input to leave out: a whole character if only the target set lacks it, so that the next
// one is met at its first byte; else a single byte.
std::size_t RefusedLength(Iconv &decoder, char *from, std::size_t left) {
  alignas(wchar_t) std::array<char, sizeof(wchar_t)> character;
  char *to = character.data();
  std::size_t room = character.size();
  const char *start = from;
  decoder.Step(nullptr, nullptr, nullptr, nullptr);
  decoder.Step(&from, &left, &to, &room);
  return from == start ? 1 : static_cast<std::size_t>(from - start);
}

std::optional<Conversion> ConvertByIconv(const SetName &source, const SetName &target, std::string_view input,
                                         char *output, std::uint32_t size) {
  Iconv iconv(source, target);
  Iconv decoder(source, CutName("wchar_t"));
  if (!iconv.valid() || !decoder.valid()) return std::nullopt;
  Sink sink(output, size);
  bool incomplete = false;
  auto *from = const_cast<char *>(input.data());
  for (std::size_t left = input.size(); left > 0;) {
    const int error = iconv.Step(&from, &left, sink.at(), sink.left());
    if (error == E2BIG && !sink.Flush()) return std::nullopt;
    if (error == 0 || error == E2BIG) continue;
    incomplete = true;
    if (error != EILSEQ) break;  // a sequence that the end of the input cuts
    const std::size_t refused = RefusedLength(decoder, from, left);
    from += refused;
    left -= refused;
  }
  // A stateful set ends in a shift back, which may need room of its own.
  while (iconv.Step(nullptr, nullptr, sink.at(), sink.left()) == E2BIG) {
    if (!sink.Flush()) return std::nullopt;
  }
  if (!sink.Flush()) return std::nullopt;
  return Conversion{sink.length(), incomplete};
}

}  // namespace

std::optional<Conversion> Convert(const char *sourceSet, const char *targetSet, std::string_view input, char *output,
                                  std::uint32_t size) noexcept {
  const SetName source = CutName(sourceSet);
  const SetName target = CutName(targetSet);
  if (IsNameless(source) || IsNameless(target)) return std::nullopt;
  return OpenDevice() ? ConvertByDevice(source, target, input, output, size)
                      : ConvertByIconv(source, target, input, output, size);
}

}  // namespace zor
