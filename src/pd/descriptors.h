// Descriptors of the pipeline's tables and actions, as the generator emits them from the catalog.
// The engine reads nothing else about a table: widths, kinds, record offsets, handles and the flags
// of every exception are here, as constants the compiler specialises each operation on.
#pragma once

#include <cstddef>
#include <cstdint>

namespace cv::pd {

enum class Match : uint8_t { exact, ternary, lpm };
enum class TableKind : uint8_t { exact, ternary, lpm, keyless };

// One key field: its width, match kind, where its image starts, and where its members lie in the
// caller's key record (aux is the `_mask` or `_prefix_length` member).
struct FieldDesc {
  uint16_t width;
  Match match;
  bool partition;
  uint16_t image_off;
  uint16_t value_off;
  uint16_t aux_off;
};

// The resource whose record a table's entries carry (a direct or indirect counter or meter). The
// flags are plain booleans, never pointer tests, so that they stay constant expressions in every
// build, sanitised ones included.
struct ResourceDesc {
  uint32_t handle = 0;      // 0: the table's entries carry no resource record
  bool meter_spec = false;  // add, modify and default entries take the caller's meter spec
  // Hard-assertion expression of a null meter spec on add; null when the table takes no spec.
  const char *spec_expr = nullptr;
};

// One action parameter: width and offset of its member in the parameter record.
struct ParamDesc {
  uint16_t width;
  uint16_t member_off;
};

inline constexpr uint8_t kNoIndex = 0xFF;

struct ActionDesc {
  uint16_t number;  // the action's enumerator
  uint16_t data_bits;
  uint16_t data_bytes;
  uint16_t record_size;  // of the caller's parameter record; 0 without parameters
  uint8_t nparams;
  const ParamDesc *params;
  // A parameter that names the index of its table's resource: kNoIndex, or its position. Its image
  // bytes stay zero unless index_in_image, and read-back takes it from the resource list.
  uint8_t index_param;
  bool index_in_image;
  uint32_t index_resource;  // the resource handle the index belongs to
};

// An action as one table uses it: its handle there and its resource tags.
struct TableActionDesc {
  uint32_t handle;
  const ActionDesc *action;
  uint8_t tag;          // on add and modify
  uint8_t default_tag;  // on a default entry set without the meter spec its table takes
};

struct TableDesc {
  uint32_t handle;
  TableKind kind;
  uint16_t key_bits;
  uint16_t key_bytes;
  uint16_t record_size;  // of the caller's key record; 0 for a keyless table
  uint8_t nfields;
  const FieldDesc *fields;
  ResourceDesc resource;
  uint8_t nactions;              // 0 for a table bound to an action profile
  const TableActionDesc *const *actions;
};

// An action as a member of one action profile: its handle there.
struct MemberDesc {
  uint32_t handle;
  const ActionDesc *action;
};

// An action profile: its action data and selector tables, its place in the library's canonical
// order (which names its member-selector state) and its member actions.
struct ProfileDesc {
  uint32_t adt_handle;
  uint32_t sel_handle;
  uint8_t index;
  uint8_t nmembers;
  const MemberDesc *const *members;
};

// A counter: the handle its calls take (the match table's for a direct counter, its own for an
// indirect one).
struct CounterDesc {
  uint32_t handle;
  bool direct;
};

// A meter: its own handle, the match table's for a direct meter, and its unit (the driver's unit
// word: 0 bytes, 1 packets).
struct MeterDesc {
  uint32_t handle;
  uint32_t table;
  bool direct;
  uint32_t unit;
};

// A register, a digest, a parser value set: the handle their calls take.
struct HandleDesc {
  uint32_t handle;
};

// A dynamic hash with the one input field list and the one algorithm it has.
struct HashDesc {
  uint32_t handle;
  uint32_t input;
  uint32_t algorithm;
};

// A field of a learning digest's record.
struct DigestField {
  const char *name;
  uint16_t offset;
  uint16_t length;
};

struct DigestDesc {
  const char *name;
  uint16_t entry_bytes;
  uint8_t nfields;
  const DigestField *fields;
};

// A multi-byte field of the snapshot record that changes byte order: its offset and width in bytes.
struct SwapField {
  uint16_t offset;
  uint8_t bytes;
};

constexpr uint16_t image_bytes(uint16_t width) { return static_cast<uint16_t>((width + 7) / 8); }

// Capacity of the action image buffer handed to the driver on read-back.
inline constexpr uint16_t kReadBackImageBytes = 56;

}  // namespace cv::pd
