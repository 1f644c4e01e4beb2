// What the fuzz targets share: reading the input, failing loudly, buffers of an exact size, and
// the library started on a fresh driver model.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "fuzz_catalog.h"

namespace fz {

// The input as a stream of numbers and bytes; past its end every read gives zeros.
class Input {
 public:
  Input(const uint8_t *data, size_t size) : p_(data), end_(data + size) {}
  size_t left() const { return static_cast<size_t>(end_ - p_); }
  uint8_t u8() { return p_ != end_ ? *p_++ : 0; }
  uint16_t u16() { return static_cast<uint16_t>(u8() | u8() << 8); }
  uint32_t u32() { return u16() | static_cast<uint32_t>(u16()) << 16; }
  uint64_t u64() { return u32() | static_cast<uint64_t>(u32()) << 32; }
  bool bit() { return u8() & 1; }
  // Fills n bytes from the input, zeros past its end.
  void bytes(void *out, size_t n) {
    size_t k = n < left() ? n : left();
    if (k) std::memcpy(out, p_, k);
    std::memset(static_cast<uint8_t *>(out) + k, 0, n - k);
    p_ += k;
  }
  // The rest of the input.
  std::string rest() {
    std::string s(reinterpret_cast<const char *>(p_), left());
    p_ = end_;
    return s;
  }

 private:
  const uint8_t *p_;
  const uint8_t *end_;
};

// A broken expectation: says what and where on stderr, then aborts (a crash to the fuzzer).
[[noreturn]] inline void fail(const char *what, ...) __attribute__((format(printf, 1, 2)));
inline void fail(const char *what, ...) {
  va_list ap;
  va_start(ap, what);
  std::fputs("fuzz check failed: ", stderr);
  std::vfprintf(stderr, what, ap);
  std::fputc('\n', stderr);
  va_end(ap);
  std::abort();
}

#define FZ_CHECK(cond, ...)                  \
  do {                                       \
    if (!(cond)) ::fz::fail(__VA_ARGS__);    \
  } while (0)

inline std::string hex(const void *p, size_t n) {
  static const char *digits = "0123456789abcdef";
  std::string s;
  for (size_t i = 0; i < n; ++i) {
    uint8_t b = static_cast<const uint8_t *>(p)[i];
    s += digits[b >> 4];
    s += digits[b & 15];
  }
  return s;
}

// A heap buffer of exactly n bytes, so that AddressSanitizer reports any write past it, filled with
// a pattern so that a check can see which bytes were written.
class Buffer {
 public:
  static constexpr uint8_t kFill = 0xA7;
  explicit Buffer(size_t n) : n_(n), p_(static_cast<char *>(std::malloc(n ? n : 1))) { std::memset(p_, kFill, n_); }
  ~Buffer() { std::free(p_); }
  Buffer(const Buffer &) = delete;
  Buffer &operator=(const Buffer &) = delete;
  char *data() { return p_; }
  size_t size() const { return n_; }
  // Whether bytes [from, n) still hold the fill pattern: nothing written past a text.
  bool untouched_from(size_t from) const {
    for (size_t i = from; i < n_; ++i)
      if (static_cast<uint8_t>(p_[i]) != kFill) return false;
    return true;
  }

 private:
  size_t n_;
  char *p_;
};

// A fresh model with the program declared to it and the library started on it; debug mode on, so
// that any assertion the library takes ends the process and shows as a crash.
inline void start_library(uint32_t (*algorithm_kind)(uint32_t)) {
  drvm_reset();
  declare_program(algorithm_kind);
  p4_pd_corvin_switch_init();
  drvm_set_debug_mode(1);
  drvm_clear_calls();
}

// The kinds the program's two algorithm handles stand for, as in the library's tests.
inline uint32_t default_algorithm_kind(uint32_t handle) {
  return handle == 0x23000000u ? DRVM_HASH_CRC_32 : DRVM_HASH_CRC_32C;
}

// Records and images are handled in aligned scratch of this size, larger than any of them.
inline constexpr size_t kRecordMax = 512;

inline uint32_t load(const uint8_t *rec, uint16_t off, uint8_t bytes) {
  uint32_t v = 0;
  switch (bytes) {
    case 1: v = rec[off]; break;
    case 2: { uint16_t x; std::memcpy(&x, rec + off, 2); v = x; break; }
    default: std::memcpy(&v, rec + off, 4); break;
  }
  return v;
}

inline void store(uint8_t *rec, uint16_t off, uint8_t bytes, uint32_t v) {
  switch (bytes) {
    case 1: rec[off] = static_cast<uint8_t>(v); break;
    case 2: { uint16_t x = static_cast<uint16_t>(v); std::memcpy(rec + off, &x, 2); break; }
    default: std::memcpy(rec + off, &v, 4); break;
  }
}

inline uint32_t width_mask(uint32_t w) { return w >= 32 ? 0xFFFFFFFFu : (1u << w) - 1; }

}  // namespace fz
