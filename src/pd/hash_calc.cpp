// The attribute functions of the dynamic hashes and the packing of a hash calculation's fields into
// one bit stream, shared by every hash.
#include <algorithm>
#include <cstring>

#include "telemetry.h"

extern "C" {
#include "drv/bf_sys.h"
}

namespace cv::pd {
namespace {

// Puts `width` bits of a big-endian source (the last (width + 7) / 8 bytes at src, its least
// significant byte last) in front of what the stream holds: *cursor is the byte being filled,
// moving towards the stream's start, and *bit the number of its low bits already taken. A byte at
// a time, no loop per bit. The high bits of a source's top byte are not masked: a value wider than
// its width spills into the field before it.
// On a byte boundary the source's bytes are stored as they stand: one copy, after which the cursor
// stays on the last byte if it is partly filled and moves before it otherwise.
inline void prepend_to_bytestream(uint8_t **cursor, uint8_t *bit, const uint8_t *src, uint32_t width) {
  if (width == 0) return;
  const uint32_t n = (width + 7) / 8;
  uint8_t *c = *cursor;
  uint32_t p = *bit;
  if (p == 0) {
    std::memcpy(c - (n - 1), src, n);
    *bit = static_cast<uint8_t>(width % 8);
    *cursor = width % 8 ? c - (n - 1) : c - n;
    return;
  }
  const uint8_t *s = src + n - 1;
  for (;;) {
    *c = static_cast<uint8_t>(*c | (*s << p));
    if (8 - p > width) {
      *bit = static_cast<uint8_t>(p + width);
      *cursor = c;
      return;
    }
    --c;
    *bit = 0;
    width -= 8 - p;
    if (width == 0) {
      *cursor = c;
      return;
    }
    *c = static_cast<uint8_t>(*c | (*s >> (8 - p)));
    if (p > width) {
      *bit = static_cast<uint8_t>(width);
      *cursor = c;
      return;
    }
    width -= p;
    *bit = static_cast<uint8_t>(p);
    --s;
    if (width == 0) {
      *cursor = c;
      return;
    }
  }
}

// The input handle in force, read back; the driver's status does not matter here.
uint32_t input_in_force(uint32_t hash, p4_pd_sess_hdl_t sess, uint32_t dev) {
  uint32_t h = 0;
  (void)pipe_mgr_hash_calc_input_get(sess, dev, hash, &h);
  return h;
}

}  // namespace

// The driver's records: field id, two zero words, the field's place from 1, kind and value.
p4_pd_status_t hash_input_field_attribute_set(uint32_t hash, uint32_t input_hdl, p4_pd_sess_hdl_t sess, uint32_t dev,
                                              uint32_t attr_count, p4_pd_hash_calc_input_field_attribute_t *attr_list) {
  if (attr_count == 0)
    return static_cast<p4_pd_status_t>(
        pipe_mgr_hash_calc_input_field_attribute_set(sess, dev, hash, input_hdl, 0, nullptr));
  auto *recs = static_cast<pipe_hash_calc_input_field_attribute_t *>(
      bf_sys_calloc(attr_count, sizeof(pipe_hash_calc_input_field_attribute_t)));
  if (recs == nullptr) return kStatusNoMemory;
  for (uint32_t i = 0; i < attr_count; ++i) {
    recs[i].input_field = attr_list[i].input_field;
    recs[i].slice_start = 0;
    recs[i].slice_length = 0;
    recs[i].order = attr_list[i].input_field + 1;
    recs[i].type = attr_list[i].type;
    recs[i].value = attr_list[i].value.val;
  }
  pipe_status_t st = pipe_mgr_hash_calc_input_field_attribute_set(sess, dev, hash, input_hdl, attr_count, recs);
  bf_sys_free(recs);
  return static_cast<p4_pd_status_t>(st);
}

// With the hash's own field list in force, only the caller's enumerator 0 names it.
p4_pd_status_t hash_input_field_attribute_count_get(uint32_t hash, uint32_t input_hdl, p4_pd_sess_hdl_t sess,
                                                    uint32_t dev, p4_pd_hash_calc_input_t input, uint32_t *count) {
  uint32_t h = input_in_force(hash, sess, dev);
  if (h == input_hdl && input != PD_HASH_CALC_INPUT_FIELD_LIST) return kStatusInvalidArg;
  *count = 0;
  return static_cast<p4_pd_status_t>(pipe_mgr_hash_calc_input_field_attribute_count_get(sess, dev, hash, h, count));
}

p4_pd_status_t hash_input_field_attribute_get(uint32_t hash, uint32_t input_hdl, p4_pd_sess_hdl_t sess, uint32_t dev,
                                              p4_pd_hash_calc_input_t input, uint32_t max_attr_count,
                                              p4_pd_hash_calc_input_field_attribute_t *attr_list,
                                              uint32_t *num_attr_filled) {
  *num_attr_filled = 0;
  uint32_t h = input_in_force(hash, sess, dev);
  if (h == input_hdl && input != PD_HASH_CALC_INPUT_FIELD_LIST) return kStatusInvalidArg;
  if (max_attr_count == 0) return 0;
  auto *recs = static_cast<pipe_hash_calc_input_field_attribute_t *>(
      bf_sys_calloc(max_attr_count, sizeof(pipe_hash_calc_input_field_attribute_t)));
  if (recs == nullptr) return kStatusNoMemory;
  pipe_status_t st =
      pipe_mgr_hash_calc_input_field_attribute_get(sess, dev, hash, h, max_attr_count, recs, num_attr_filled);
  if (st == 0) {
    uint32_t n = std::min(*num_attr_filled, max_attr_count);
    for (uint32_t i = 0; i < n; ++i) {
      attr_list[i].input_field = recs[i].input_field;
      attr_list[i].type = recs[i].type;
      attr_list[i].value.val = recs[i].value;
    }
  }
  bf_sys_free(recs);
  return static_cast<p4_pd_status_t>(st);
}

// The fields as one big-endian bit string, right-aligned in (sum of widths + 7) / 8 bytes: the
// first field at the most significant end, the last at the least significant bit of the last byte.
// A field of up to 32 bits is its value; a wider one, a big-endian byte string.
p4_pd_status_t hash_calculate_hash_value(uint32_t hash, p4_pd_sess_hdl_t sess, uint32_t dev, uint32_t attr_count,
                                         const p4_pd_hash_calc_input_field_attribute_t *attr_list,
                                         const uint32_t *attr_sizes, uint8_t *hash_value, uint32_t hash_len) {
  uint32_t bits = 0;
  for (uint32_t i = 0; i < attr_count; ++i) bits += attr_sizes[i];
  uint32_t len = (bits + 7) / 8;
  auto *stream = static_cast<uint8_t *>(bf_sys_calloc(len, 1));
  if (stream == nullptr && len != 0) return kStatusNoMemory;
  if (len != 0) {
    uint8_t *cursor = stream + len - 1;
    uint8_t bit = 0;
    for (uint32_t i = attr_count; i-- > 0;) {
      uint32_t w = attr_sizes[i];
      if (w < 33) {
        uint32_t v = attr_list[i].value.val;
        if (bit == 0 && w != 0) {
          // On a byte boundary: the value's low n bytes, stored big-endian ending at the cursor. The
          // bytes before the cursor are all still zero, so with room for them one four-byte store
          // of the value cut to its n bytes does it.
          uint32_t n = (w + 7) / 8;
          if (cursor - stream >= 3) {
            uint32_t be = __builtin_bswap32(n == 4 ? v : v & ((1u << (8 * n)) - 1));
            std::memcpy(cursor - 3, &be, 4);
          } else {
            for (uint32_t k = 0; k < n; ++k) cursor[-static_cast<ptrdiff_t>(k)] = static_cast<uint8_t>(v >> (8 * k));
          }
          bit = static_cast<uint8_t>(w % 8);
          cursor -= w % 8 ? n - 1 : n;
          continue;
        }
        uint8_t be[4] = {static_cast<uint8_t>(v >> 24), static_cast<uint8_t>(v >> 16), static_cast<uint8_t>(v >> 8),
                         static_cast<uint8_t>(v)};
        prepend_to_bytestream(&cursor, &bit, be + 4 - (w + 7) / 8, w);
      } else {
        prepend_to_bytestream(&cursor, &bit, attr_list[i].value.stream, w);
      }
    }
  }
  pipe_status_t st = pipe_mgr_hash_calc_calculate_hash_value(sess, dev, hash, stream, len, hash_value, hash_len);
  bf_sys_free(stream);
  return static_cast<p4_pd_status_t>(st);
}

}  // namespace cv::pd
