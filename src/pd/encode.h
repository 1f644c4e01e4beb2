// Encoding of keys, actions and resources into the driver's records and big-endian images.
//
// Every rule is written once here and specialised per table by the compiler: the descriptors are
// compile-time constants, so each operation's loops over fields unfold into straight-line code.
#pragma once

#include <cstring>
#include <utility>

#include "assertion.h"
#include "descriptors.h"

extern "C" {
#include "corvin_switch/pd_types.h"
#include "drv/pipe_mgr.h"
}

#define CV_INLINE inline __attribute__((always_inline))
// The steps that every export of a table or an action repeats (encoding a key, decoding a key or an
// action's parameters): one copy per table or action, called, instead of one per export inlined.
// Still specialised on the descriptors; never cloned per caller, which would undo the sharing
// (gcc's noclone; clang has no such attribute and does not clone a noinline function per caller).
#if defined(__clang__)
#define CV_SHARED inline __attribute__((noinline))
#else
#define CV_SHARED inline __attribute__((noinline, noclone))
#endif

namespace cv::pd {

// ---- One field image ----

// A member of a field of width W as a number: 8, 16 or 32 bits as the member type is.
template <uint16_t W>
CV_INLINE uint32_t load_member(const uint8_t *member) {
  static_assert(W <= 32, "wide fields are byte strings");
  if constexpr (W <= 8) {
    return member[0];
  } else if constexpr (W <= 16) {
    uint16_t v;
    std::memcpy(&v, member, 2);
    return v;
  } else {
    uint32_t v;
    std::memcpy(&v, member, 4);
    return v;
  }
}

// Writes the image of a number for a field of width W: ceil(W/8) bytes, big-endian. Bits above the
// width stay as given, except the top byte of a 24-bit field's 32-bit member, which has no room.
template <uint16_t W>
CV_INLINE void store_image(uint8_t *dst, uint32_t v) {
  if constexpr (W <= 8) {
    dst[0] = static_cast<uint8_t>(v);
  } else if constexpr (W <= 16) {
    dst[0] = static_cast<uint8_t>(v >> 8);
    dst[1] = static_cast<uint8_t>(v);
  } else if constexpr (W <= 24) {
    dst[0] = static_cast<uint8_t>(v >> 16);
    dst[1] = static_cast<uint8_t>(v >> 8);
    dst[2] = static_cast<uint8_t>(v);
  } else {
    v = __builtin_bswap32(v);
    std::memcpy(dst, &v, 4);
  }
}

// The image of a member; a wide field's bytes are copied as they stand, already in wire order.
template <uint16_t W>
CV_INLINE void put_field(uint8_t *dst, const uint8_t *member) {
  if constexpr (W <= 32) {
    store_image<W>(dst, load_member<W>(member));
  } else {
    static_assert(W % 8 == 0, "wide fields are whole bytes");
    std::memcpy(dst, member, W / 8);
  }
}

// The images of a ternary field's value and mask, the value ANDed with the whole mask.
template <uint16_t W>
CV_INLINE void put_masked_field(uint8_t *value, uint8_t *mask, const uint8_t *member, const uint8_t *mask_member) {
  if constexpr (W <= 32) {
    uint32_t m = load_member<W>(mask_member);
    store_image<W>(mask, m);
    store_image<W>(value, load_member<W>(member) & m);
  } else {
    std::memcpy(mask, mask_member, W / 8);
#pragma GCC unroll 16
    for (uint16_t b = 0; b < W / 8; ++b) value[b] = static_cast<uint8_t>(member[b] & mask_member[b]);
  }
}

// Mask of the first image byte of a field whose width is not whole bytes: its low (width mod 8) bits.
constexpr uint8_t first_byte_cut(uint16_t width) {
  return width % 8 ? static_cast<uint8_t>((1u << (width % 8)) - 1) : 0xFF;
}

// ---- Keys ----

template <const TableDesc &T>
struct Key {
  static constexpr uint16_t kBytes = T.key_bytes;
  // Never zero-sized: a keyless table still hands the driver valid (unused) buffers.
  static constexpr uint16_t kBuf = kBytes ? kBytes : 1;
  static constexpr bool kPartition = T.nfields > 0 && T.fields[0].partition;

  template <size_t I>
  static constexpr const FieldDesc &field() { return T.fields[I]; }

  template <size_t I>
  static CV_INLINE void value_one(uint8_t *value, const uint8_t *rec) {
    constexpr const FieldDesc &f = field<I>();
    if constexpr (!f.partition) put_field<f.width>(value + f.image_off, rec + f.value_off);
  }

  // Ternary table: the mask member's image goes in the mask, the value ANDed with the whole mask
  // before the first mask byte of a partial-width field, ternary or exact, is cut to its width.
  template <size_t I>
  static CV_INLINE void ternary_one(uint8_t *value, uint8_t *mask, const uint8_t *rec) {
    constexpr const FieldDesc &f = field<I>();
    if constexpr (f.match == Match::ternary) {
      put_masked_field<f.width>(value + f.image_off, mask + f.image_off, rec + f.value_off, rec + f.aux_off);
    } else {
      put_field<f.width>(value + f.image_off, rec + f.value_off);
      std::memset(mask + f.image_off, 0xFF, image_bytes(f.width));
    }
    if constexpr (f.width % 8 != 0) mask[f.image_off] &= first_byte_cut(f.width);
  }

  // Lpm table, legal prefix: cut the exact fields' first mask bytes; zero a partition field's mask.
  template <size_t I>
  static CV_INLINE void lpm_exact_one(uint8_t *mask) {
    constexpr const FieldDesc &f = field<I>();
    if constexpr (f.partition) {
      std::memset(mask + f.image_off, 0, image_bytes(f.width));
    } else if constexpr (f.match == Match::exact && f.width % 8 != 0) {
      mask[f.image_off] &= first_byte_cut(f.width);
    }
  }

  template <size_t... I>
  static CV_INLINE void build(pipe_tbl_match_spec_t &ms, uint8_t *value, uint8_t *mask, [[maybe_unused]] const uint8_t *rec,
                              uint32_t priority, std::index_sequence<I...>) {
    // Every image byte is written below but a partition field's, which stays zero; a keyless table
    // hands over buffers the driver never reads.
    if constexpr (kBytes == 0 || kPartition) std::memset(value, 0, kBuf);
    if constexpr (kBytes == 0) mask[0] = 0;
    ms.match_value_bytes = value;
    ms.match_mask_bytes = mask;
    ms.partition_index = 0;
    ms.priority = 0;
    ms.num_valid_match_bits = T.key_bits;
    ms.num_match_bytes = T.key_bytes;
    ms.reserved = 0;
    if constexpr (kBytes == 0) return;
    if constexpr (T.kind == TableKind::ternary) {
      ms.priority = priority;
      (ternary_one<I>(value, mask, rec), ...);
      return;
    }
    std::memset(mask, 0xFF, kBytes);
    (value_one<I>(value, rec), ...);
    if constexpr (T.kind == TableKind::lpm) {
      constexpr size_t last = sizeof...(I) - 1;
      constexpr const FieldDesc &lpm = field<last>();
      static_assert(lpm.match == Match::lpm, "the lpm field is the last key field");
      if constexpr (kPartition) {
        ms.partition_index = load_member<field<0>().width>(rec + field<0>().value_off);
      }
      uint16_t prefix;
      std::memcpy(&prefix, rec + lpm.aux_off, 2);
      if (prefix <= lpm.width) {
        ms.priority = static_cast<uint32_t>(lpm.width - prefix);
        apply_prefix<last>(value, mask, prefix);
        (lpm_exact_one<I>(mask), ...);
      } else {
        ms.priority = static_cast<uint32_t>(T.key_bits) + 1;  // no legal prefix gives this
      }
    }
  }

  // The leading `prefix` bits of the lpm field's mask stay set; the value keeps what the mask keeps.
  template <size_t I>
  static CV_INLINE void apply_prefix(uint8_t *value, uint8_t *mask, uint16_t prefix) {
    constexpr const FieldDesc &F = field<I>();
    constexpr uint16_t n = image_bytes(F.width);
#pragma GCC unroll 16
    for (uint16_t b = 0; b < n; ++b) {
      int bits = static_cast<int>(prefix) - 8 * b;
      uint8_t m = bits >= 8 ? 0xFF : bits <= 0 ? 0x00 : static_cast<uint8_t>(0xFF << (8 - bits));
      mask[F.image_off + b] = m;
      value[F.image_off + b] &= m;
    }
  }
};

// Fills a driver match record from a key record. `value` and `mask` have Key<T>::kBuf bytes.
template <const TableDesc &T>
CV_SHARED void build_match_spec(pipe_tbl_match_spec_t &ms, uint8_t *value, uint8_t *mask, const void *key,
                                uint32_t priority) {
  Key<T>::build(ms, value, mask, static_cast<const uint8_t *>(key), priority,
                std::make_index_sequence<T.nfields>{});
}

// ---- Actions ----

enum class Family : uint8_t { add, modify, default_entry };

template <const ActionDesc &A>
struct Act {
  static constexpr uint16_t kBuf = A.data_bytes ? A.data_bytes : 1;

  template <size_t I>
  static constexpr uint16_t image_off() {
    uint16_t off = 0;
    for (size_t i = 0; i < I; ++i) off = static_cast<uint16_t>(off + image_bytes(A.params[i].width));
    return off;
  }

  template <size_t I>
  static CV_INLINE void param_one(uint8_t *image, const uint8_t *rec) {
    constexpr const ParamDesc &p = A.params[I];
    // An index-bearing parameter goes to the resource record; its image bytes stay zero unless the
    // table keeps it in both places.
    if constexpr (I == A.index_param && !A.index_in_image) {
      std::memset(image + image_off<I>(), 0, image_bytes(p.width));
    } else {
      put_field<p.width>(image + image_off<I>(), rec + p.member_off);
    }
  }

  template <size_t... I>
  static CV_INLINE void build(pipe_action_spec_t &as, uint8_t *image, [[maybe_unused]] const uint8_t *rec,
                              std::index_sequence<I...>) {
    std::memset(&as, 0, sizeof as);
    as.action_data_type = PIPE_ACTION_DATA_TYPE;
    as.act_data.num_valid_action_data_bits = A.data_bits;
    as.act_data.num_action_data_bytes = A.data_bytes;
    as.act_data.action_data_bytes = image;
    (param_one<I>(image, rec), ...);
  }

  static CV_INLINE uint32_t index_value(const uint8_t *rec) {
    uint32_t v;
    std::memcpy(&v, rec + A.params[A.index_param].member_off, 4);
    return v;
  }
};

// Zeroes a driver action record and fills it with the action image of a parameter record (null for
// an action without parameters). `image` has Act<A>::kBuf bytes.
template <const ActionDesc &A>
CV_INLINE void build_action_spec(pipe_action_spec_t &as, uint8_t *image, const void *params) {
  Act<A>::build(as, image, static_cast<const uint8_t *>(params), std::make_index_sequence<A.nparams>{});
}

// ---- Resources ----

// Meter type the driver takes for a requested one. Table operations pass has_pre_color 1.
CV_INLINE uint32_t get_bytes_meter_type(uint32_t requested, bool has_pre_color, const char *function) {
  if (has_pre_color) {
    if (requested <= PD_METER_TYPE_COLOR_UNAWARE) [[likely]]
      return requested;  // colour-aware 0, colour-unaware 1
    CV_SOFT_ASSERT(Soft::zero, function);
    return 0;
  }
  if (requested == PD_METER_TYPE_COLOR_AWARE) CV_SOFT_ASSERT(Soft::pre_color, function);
  return 1;
}

CV_INLINE void fill_meter(pipe_meter_spec_t &m, const p4_pd_meter_spec_t &spec, const char *function) {
  m.meter_type = get_bytes_meter_type(spec.meter_type, true, function);
  m.cir_unit = 0;
  m.cir = spec.cir;
  m.cburst = spec.cburst;
  m.pir_unit = 0;
  m.pir = spec.pir;
  m.pburst = spec.pburst;
}

// Fills the first resource record of a table that has a resource, after build_action_spec. The
// families differ on purpose: add keeps 16 bits of an index and takes a null meter spec as fatal;
// modify keeps the whole index and leaves the tag of a spec-less meter at 0; a default entry set
// without a spec takes the row's default tag (2).
template <const TableDesc &T, const TableActionDesc &U, Family F>
CV_INLINE void build_resources(pipe_action_spec_t &as, const void *params, const p4_pd_meter_spec_t *meter,
                               const char *function) {
  if constexpr (T.resource.handle != 0) {
    pipe_res_spec_t &r = as.resources[0];
    as.resource_count = 1;
    r.tbl_hdl = T.resource.handle;
    if constexpr (U.action->index_param != kNoIndex) {
      uint32_t idx = Act<*U.action>::index_value(static_cast<const uint8_t *>(params));
      r.tbl_idx = F == Family::add ? (idx & 0xFFFFu) : idx;
    }
    if constexpr (T.resource.meter_spec) {
      if (meter == nullptr) {
        if constexpr (F == Family::add) CV_HARD_ASSERT(T.resource.spec_expr, function);
        if constexpr (F == Family::default_entry) r.tag = U.default_tag;
        return;
      }
      fill_meter(r.data.meter, *meter, function);
    }
    r.tag = U.tag;
  } else {
    (void)as;
    (void)params;
    (void)meter;
    (void)function;
  }
}

inline dev_target_t driver_target(p4_pd_dev_target_t t) { return dev_target_t{t.device_id, t.dev_pipe_id}; }
// The target of a call that names a driver-issued handle: the device, all its pipes.
inline dev_target_t all_pipes(uint32_t dev) { return dev_target_t{dev, BF_DEV_PIPE_ALL}; }

// A driver match record with its images, built from a key record for one call.
template <const TableDesc &T>
struct MatchRecord {
  pipe_tbl_match_spec_t ms;
  uint8_t value[Key<T>::kBuf];
  uint8_t mask[Key<T>::kBuf];

  CV_INLINE MatchRecord(const void *key, uint32_t priority) { build_match_spec<T>(ms, value, mask, key, priority); }
  MatchRecord(const MatchRecord &) = delete;
  MatchRecord &operator=(const MatchRecord &) = delete;
};

// A driver action record with its image and resource record, built for one call of a family.
template <const TableDesc &T, const TableActionDesc &U, Family F>
struct ActionRecord {
  pipe_action_spec_t as;
  uint8_t image[Act<*U.action>::kBuf];

  CV_INLINE ActionRecord(const void *params, const p4_pd_meter_spec_t *meter, const char *function) {
    build_action_spec<*U.action>(as, image, params);
    build_resources<T, U, F>(as, params, meter, function);
  }
  ActionRecord(const ActionRecord &) = delete;
  ActionRecord &operator=(const ActionRecord &) = delete;
};

}  // namespace cv::pd
