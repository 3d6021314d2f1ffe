#include <fcntl.h>
#include <unistd.h>
#include <zor/blur.h>
#include <zor/limits.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "app/zorblurapi/mask_rules.h"
#include "base/alloc.h"
#include "common/unique_fd.h"

namespace {

// One piece of the file, always followed by a zero byte, so that it is a text.
struct Piece {
  std::array<char, ZOR_BLUR_PIECE_SIZE + 1> bytes = {};
  std::size_t length = 0;
};

// Fills the piece, or reads to the end of the file.
bool ReadPiece(int fd, off_t at, Piece &piece) {
  while (piece.length < ZOR_BLUR_PIECE_SIZE) {
    const ssize_t count = ::pread(fd, piece.bytes.data() + piece.length, ZOR_BLUR_PIECE_SIZE - piece.length,
                                  at + static_cast<off_t>(piece.length));
    if (count == 0) return true;
    if (count < 0 && errno != EINTR) return false;
    if (count > 0) piece.length += static_cast<std::size_t>(count);
  }
  return true;
}

bool WritePiece(int fd, off_t at, const Piece &piece) {
  ssize_t count;
  do {
    count = ::pwrite(fd, piece.bytes.data(), piece.length, at);
  } while (count < 0 && errno == EINTR);
  return count == static_cast<ssize_t>(piece.length);
}

uint32_t MaskFile(int fd) {
  for (off_t at = 0;; at += ZOR_BLUR_PIECE_SIZE) {
    Piece piece;
    if (!ReadPiece(fd, at, piece)) return ZOR_BLUR_E_IO;
    if (piece.length == 0) return ZOR_BLUR_OK;
    zor::ApplyMasks(zor::kMaskAll, piece.bytes.data());
    if (!WritePiece(fd, at, piece)) return ZOR_BLUR_E_WRITE;
    if (piece.length < ZOR_BLUR_PIECE_SIZE) return ZOR_BLUR_OK;
  }
}

}  // namespace

uint32_t ZOR_Blur_File(const char *path) {
  if (path == nullptr) return ZOR_BLUR_E_ARGUMENT;
  if (strnlen(path, ZOR_BLUR_PATH_MAX + 1) > ZOR_BLUR_PATH_MAX) return ZOR_BLUR_E_PATH_LONG;
  const zor::MallocPtr<char> resolved(::realpath(path, nullptr));
  if (resolved == nullptr) return ZOR_BLUR_E_PATH;
  const zor::UniqueFd file(::open(resolved.get(), O_RDWR | O_CLOEXEC));
  return file.valid() ? MaskFile(file.get()) : ZOR_BLUR_E_ARGUMENT;
}
