// Descriptors of the reflection layer, as the generator emits them from the catalog
// (catalog_text.h): what a text says of each key field, parameter, action, table and profile.
#pragma once

#include <cstdint>
#include <cstring>

#include "descriptors.h"

namespace cv::pd {

// A display hint for the reader of a schema; the library itself never acts on one.
enum class Hint : uint8_t { none, mac, v4addr, v6addr, port, vport, dec };

// A key field: its short name, its name in the key record, its width, match kind and slice mask
// (the bits the table matches, as low and high 64 bits), and hint; where its member lies in the key
// record and how many bytes it has (1, 2, 4, or 16 for a 128-bit field), and where its `_mask` or
// `_prefix_length` member lies.
struct TextField {
  const char *label;
  const char *name;
  uint16_t width;
  Match match;
  uint64_t slice_lo;
  uint64_t slice_hi;
  Hint hint;
  uint16_t value_off;
  uint16_t aux_off;
  uint8_t member_bytes;
};

// An action parameter, and where its member lies in the parameter record.
struct TextParam {
  const char *name;
  uint16_t width;
  Hint hint;
  uint16_t member_off;
  uint8_t member_bytes;
};

struct TextAction {
  const char *name;
  uint16_t number;  // the action's enumerator
  uint8_t nparams;
  const TextParam *params;
};

// A match table: whether its entries bind to a profile with a selector, its key fields in key order,
// and the actions it allows in ascending byte order of their names.
struct TextTable {
  const char *name;
  bool selector;
  bool priority;  // entries have a priority of their own (tables with ternary fields)
  uint8_t nfields;
  const TextField *fields;
  uint8_t nactions;
  const TextAction *const *actions;
};

// An action profile: its member actions in ascending byte order of their names.
struct TextProfile {
  const char *name;
  uint8_t nactions;
  const TextAction *const *actions;
};

// A record member of up to 32 bits (1, 2 or 4 bytes) at an offset of a record, as a number.
__attribute__((always_inline)) inline uint32_t load_member(const void *rec, uint16_t off, uint8_t bytes) {
  const uint8_t *p = static_cast<const uint8_t *>(rec) + off;
  switch (bytes) {
    case 1:
      return *p;
    case 2: {
      uint16_t v;
      std::memcpy(&v, p, 2);
      return v;
    }
    default: {
      uint32_t v;
      std::memcpy(&v, p, 4);
      return v;
    }
  }
}

// The ones of a field or parameter of a width.
inline uint32_t width_mask(uint16_t width) { return width >= 32 ? 0xFFFFFFFFu : (1u << width) - 1; }

}  // namespace cv::pd
