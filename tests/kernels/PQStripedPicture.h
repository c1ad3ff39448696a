// Pictures of any height whose memory is a few real pages, mapped again and again: what would overflow an index shows
// without the memory. Not for sanitizers, whose shadow of the mapping is real.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <vector>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define PQ_NO_STRIPES 1
#else
#define PQ_NO_STRIPES 0
#endif

namespace pantiq::check {

// `side` rows of `step` bytes; every row is `line`. 64 steps must be whole pages, side a multiple of 64.
class StripedPicture {
 public:
  StripedPicture(int side, const std::vector<std::uint8_t>& line) : bytes_(line.size() * side) {
    const std::size_t stripe = line.size() * 64;
    char path[] = "/tmp/pantiq_stripes_XXXXXX";
    const int file = mkstemp(path);
    if (file < 0) throw std::runtime_error("no temporary file");
    unlink(path);
    if (ftruncate(file, static_cast<off_t>(stripe)) != 0) throw std::runtime_error("no room for a stripe");
    void* map = mmap(nullptr, bytes_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (map == MAP_FAILED) throw std::bad_alloc();
    data_ = static_cast<std::uint8_t*>(map);
    for (std::size_t at = 0; at < bytes_; at += stripe) {
      if (mmap(data_ + at, stripe, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, file, 0) == MAP_FAILED) {
        throw std::bad_alloc();
      }
    }
    close(file);
    for (int y = 0; y < 64; ++y) std::memcpy(data_ + line.size() * y, line.data(), line.size());
  }
  ~StripedPicture() { munmap(data_, bytes_); }
  StripedPicture(const StripedPicture&) = delete;
  StripedPicture& operator=(const StripedPicture&) = delete;
  const std::uint8_t* data() const { return data_; }

 private:
  std::size_t bytes_;
  std::uint8_t* data_;
};

}  // namespace pantiq::check
