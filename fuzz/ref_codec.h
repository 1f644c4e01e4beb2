// The encoding rules of keys and actions written once more, plainly and a field at a time, from
// the catalog's widths and kinds: what the driver must receive for a record, and what reading its
// images back must give. Nothing here is shared with the library's engine.
#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

#include "fuzz_catalog.h"
#include "fuzz_support.h"

namespace fz::ref {

struct KeyImages {
  std::vector<uint8_t> value, mask;
  uint32_t priority = 0;
  uint32_t partition = 0;
};

inline size_t image_bytes(uint16_t width) { return (width + 7u) / 8u; }

// The big-endian image of a member: its low ceil(w/8) bytes; a 128-bit member's 16 bytes as stored.
inline void field_image(const Field &f, const uint8_t *member, uint8_t *out) {
  size_t n = image_bytes(f.width);
  if (f.width > 32) {
    std::memcpy(out, member, n);
    return;
  }
  uint32_t v = load(member, 0, f.member_bytes);
  for (size_t i = 0; i < n; ++i) out[i] = static_cast<uint8_t>(v >> (8 * (n - 1 - i)));
}

inline uint32_t image_number(const uint8_t *img, size_t n) {
  uint32_t v = 0;
  for (size_t i = 0; i < n; ++i) v = v << 8 | img[i];
  return v;
}

// The field's first mask byte keeps only the field's bits when the width is no multiple of 8.
inline uint8_t first_byte_cut(uint16_t width) {
  return width % 8 ? static_cast<uint8_t>((1u << (width % 8)) - 1) : 0xFF;
}

inline KeyImages encode_key(const Table &t, const uint8_t *rec, uint32_t priority_arg) {
  KeyImages im;
  im.value.assign(t.key_bytes, 0);
  im.mask.assign(t.key_bytes, 0xFF);
  for (size_t i = 0; i < t.nfields; ++i) {
    const Field &f = t.fields[i];
    if (!f.partition) field_image(f, rec + f.value_off, &im.value[f.image_off]);
  }
  if (t.kind == Kind::ternary) {
    im.priority = priority_arg;
    for (size_t i = 0; i < t.nfields; ++i) {
      const Field &f = t.fields[i];
      size_t n = image_bytes(f.width);
      if (f.match == Match::ternary) {
        field_image(f, rec + f.aux_off, &im.mask[f.image_off]);
        for (size_t b = 0; b < n; ++b) im.value[f.image_off + b] &= im.mask[f.image_off + b];
      }
      im.mask[f.image_off] &= first_byte_cut(f.width);
    }
  } else if (t.kind == Kind::lpm) {
    const Field &lpm = t.fields[t.nfields - 1];
    uint16_t w = lpm.width;
    uint16_t p = static_cast<uint16_t>(load(rec, lpm.aux_off, 2));
    for (size_t i = 0; i < t.nfields; ++i)
      if (t.fields[i].partition) im.partition = load(rec, t.fields[i].value_off, 2);
    if (p <= w) {
      im.priority = static_cast<uint32_t>(w - p);
      for (uint16_t bit = 0; bit < w; ++bit) {
        size_t byte = lpm.image_off + bit / 8;
        if (bit >= p) im.mask[byte] &= static_cast<uint8_t>(~(0x80u >> (bit % 8)));
      }
      for (size_t b = 0; b < image_bytes(w); ++b) im.value[lpm.image_off + b] &= im.mask[lpm.image_off + b];
      for (size_t i = 0; i + 1 < t.nfields; ++i) {
        const Field &f = t.fields[i];
        if (f.partition) {
          im.mask[f.image_off] = im.mask[f.image_off + 1] = 0;
        } else {
          im.mask[f.image_off] &= first_byte_cut(f.width);
        }
      }
    } else {
      im.priority = t.key_bits + 1u;
    }
  }
  return im;
}

// The key record that reading back images gives: cleared whole, then each field from its image,
// masks from the mask image, a prefix length from the position of the lowest set bit of the lpm
// field's mask.
inline void decode_key(const Table &t, const uint8_t *value, const uint8_t *mask, uint32_t partition, uint8_t *rec) {
  std::memset(rec, 0, t.record_size);
  for (size_t i = 0; i < t.nfields; ++i) {
    const Field &f = t.fields[i];
    size_t n = image_bytes(f.width);
    if (f.partition) {
      store(rec, f.value_off, 2, partition & 0xFFFF);
    } else if (f.width > 32) {
      std::memcpy(rec + f.value_off, value + f.image_off, n);
    } else {
      store(rec, f.value_off, f.member_bytes, image_number(value + f.image_off, n));
    }
    if (f.match == Match::ternary) {
      if (f.width > 32) std::memcpy(rec + f.aux_off, mask + f.image_off, n);
      else store(rec, f.aux_off, f.member_bytes, image_number(mask + f.image_off, n));
    } else if (f.match == Match::lpm) {
      uint16_t w = f.width, p = w;
      // Bit (w - p) of the field's mask counted from its least significant bit.
      while (p > 0) {
        uint16_t bit_from_lsb = static_cast<uint16_t>(w - p);
        size_t byte = f.image_off + n - 1 - bit_from_lsb / 8;
        if (mask[byte] >> (bit_from_lsb % 8) & 1) break;
        --p;
      }
      store(rec, f.aux_off, 2, p);
    }
  }
}

// The read-back of a record, by the losses the decoding rules name, field by field from the
// original record (independently of the images): bits of a member beyond its image, a ternary
// value cut by its whole mask, a ternary mask cut to the width, an lpm value cut by its prefix and a
// prefix beyond the width read as the width; every other byte of the record cleared.
inline void expected_after_round_trip(const Table &t, const uint8_t *orig, uint8_t *rec) {
  std::memset(rec, 0, t.record_size);
  uint16_t prefix = 0;
  bool legal_prefix = true;
  if (t.kind == Kind::lpm) {
    const Field &lpm = t.fields[t.nfields - 1];
    prefix = static_cast<uint16_t>(load(orig, lpm.aux_off, 2));
    legal_prefix = prefix <= lpm.width;
  }
  for (size_t i = 0; i < t.nfields; ++i) {
    const Field &f = t.fields[i];
    size_t n = image_bytes(f.width);
    if (f.width > 32) {
      for (size_t b = 0; b < n; ++b) {
        uint8_t v = orig[f.value_off + b];
        if (f.match == Match::ternary) v &= orig[f.aux_off + b];
        if (f.match == Match::lpm && legal_prefix) {
          int bits = static_cast<int>(prefix) - static_cast<int>(8 * b);
          uint8_t keep = bits >= 8 ? 0xFF : bits <= 0 ? 0 : static_cast<uint8_t>(0xFF << (8 - bits));
          v &= keep;
        }
        rec[f.value_off + b] = v;
        if (f.match == Match::ternary) rec[f.aux_off + b] = orig[f.aux_off + b];
      }
    } else {
      uint32_t in_image = n == 4 ? 0xFFFFFFFFu : (1u << (8 * n)) - 1;
      uint32_t v = load(orig, f.value_off, f.member_bytes) & in_image;
      if (f.match == Match::ternary) {
        uint32_t m = load(orig, f.aux_off, f.member_bytes) & in_image;
        v &= m;
        store(rec, f.aux_off, f.member_bytes, m & width_mask(f.width));
      }
      if (f.match == Match::lpm && legal_prefix) {
        uint32_t keep = prefix == 0 ? 0 : width_mask(f.width) & ~width_mask(static_cast<uint32_t>(f.width - prefix));
        v &= keep;
      }
      store(rec, f.value_off, f.member_bytes, f.partition ? load(orig, f.value_off, 2) : v);
    }
    if (f.match == Match::lpm) store(rec, f.aux_off, 2, legal_prefix ? prefix : f.width);
  }
}

// The action image of a parameter record: each parameter's image in order; the index parameter
// that names a resource index outside the image leaves its bytes zero.
inline std::vector<uint8_t> encode_action(const Action &a, const uint8_t *params, int index_param, bool index_in_image) {
  std::vector<uint8_t> img;
  for (uint8_t i = 0; i < a.nparams; ++i) {
    const Param &p = a.params[i];
    size_t n = image_bytes(p.width);
    uint32_t v = load(params, p.off, p.member_bytes);
    if (i == index_param && !index_in_image) v = 0;
    for (size_t b = 0; b < n; ++b) img.push_back(static_cast<uint8_t>(v >> (8 * (n - 1 - b))));
  }
  return img;
}

inline uint32_t action_bits(const Action &a) {
  uint32_t s = 0;
  for (uint8_t i = 0; i < a.nparams; ++i) s += a.params[i].width;
  return s;
}

// Each parameter read back from its image (bits beyond the image lost), with the index parameter as
// given: from the resource's index, for actions that keep it outside the image.
inline void decode_action(const Action &a, const uint8_t *img, uint8_t *params, int index_param, bool index_in_image,
                          uint32_t index_value) {
  std::memset(params, 0, a.record_size);
  size_t off = 0;
  for (uint8_t i = 0; i < a.nparams; ++i) {
    const Param &p = a.params[i];
    size_t n = image_bytes(p.width);
    uint32_t v = image_number(img + off, n);
    if (i == index_param && !index_in_image) v = index_value;
    store(params, p.off, p.member_bytes, v);
    off += n;
  }
}

}  // namespace fz::ref
