// Comparison of two key records or two parameter records, field by field in schema order, with a
// line of text for the first difference only; equal records leave the text buffer as it was. A
// field counts only within its slice mask (a 128-bit one too, byte by byte, first byte most
// significant), a parameter within its width; a ternary field's value and mask members are two
// fields, and so are an lpm field's value and prefix length.
#include <cstdio>
#include <cstring>

#include "reflect.h"

namespace cv::pd {
namespace {

uint32_t load(const void *rec, uint16_t off, uint8_t bytes) {
  const uint8_t *p = static_cast<const uint8_t *>(rec) + off;
  uint32_t v = 0;
  if (bytes == 1) return *p;
  if (bytes == 2) {
    uint16_t h;
    std::memcpy(&h, p, 2);
    return h;
  }
  std::memcpy(&v, p, 4);
  return v;
}

uint32_t width_mask(uint16_t width) { return width >= 32 ? 0xFFFFFFFFu : (1u << width) - 1; }

// One member of up to 32 bits under a mask; the text names it with an optional suffix.
bool same_word(const void *a, const void *b, uint16_t off, uint8_t bytes, uint32_t mask, const char *name,
               const char *suffix, char *buf) {
  uint32_t x = load(a, off, bytes) & mask, y = load(b, off, bytes) & mask;
  if (x == y) return true;
  sprintf(buf, "mspec %s%s differs 0x%x vs 0x%x", name, suffix, x, y);
  return false;
}

bool same_wide(const void *a, const void *b, uint16_t off, const TextField &f, const char *suffix, char *buf) {
  const uint8_t *x = static_cast<const uint8_t *>(a) + off, *y = static_cast<const uint8_t *>(b) + off;
  for (int i = 0; i < 16; ++i) {
    uint64_t word = i < 8 ? f.slice_hi : f.slice_lo;
    uint8_t mask = static_cast<uint8_t>(word >> (8 * (7 - i % 8)));
    if ((x[i] ^ y[i]) & mask) {
      sprintf(buf, "mspec %s%s differs", f.name, suffix);
      return false;
    }
  }
  return true;
}

}  // namespace

int keys_equal(const TextTable &t, const void *a, const void *b, char *buf) {
  for (uint8_t i = 0; i < t.nfields; ++i) {
    const TextField &f = t.fields[i];
    bool wide = f.width > 32;
    uint32_t slice = static_cast<uint32_t>(f.slice_lo) & width_mask(f.width);
    if (wide ? !same_wide(a, b, f.value_off, f, "", buf)
             : !same_word(a, b, f.value_off, f.member_bytes, slice, f.name, "", buf))
      return 0;
    if (f.match == Match::ternary &&
        (wide ? !same_wide(a, b, f.aux_off, f, "_mask", buf)
              : !same_word(a, b, f.aux_off, f.member_bytes, slice, f.name, "_mask", buf)))
      return 0;
    if (f.match == Match::lpm && !same_word(a, b, f.aux_off, 2, 0xFFFF, f.name, "_prefix_length", buf)) return 0;
  }
  return 1;
}

int params_equal(const TextAction &act, const void *a, const void *b, char *buf) {
  for (uint8_t i = 0; i < act.nparams; ++i) {
    const TextParam &p = act.params[i];
    uint32_t x = load(a, p.member_off, p.member_bytes) & width_mask(p.width);
    uint32_t y = load(b, p.member_off, p.member_bytes) & width_mask(p.width);
    if (x != y) {
      sprintf(buf, "aspec action_%s differs 0x%x vs 0x%x", p.name, x, y);
      return 0;
    }
  }
  return 1;
}

}  // namespace cv::pd
