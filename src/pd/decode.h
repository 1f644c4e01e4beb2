// Decoding of the driver's images back into the caller's records: the inverse of encode.h, field by
// field. What encoding lost (bits a mask cleared, an address cut by its prefix) stays lost.
#pragma once

#include "encode.h"

extern "C" {
#include "drv/bf_sys.h"
}

namespace cv::pd {

// The big-endian image of a field of width W as a number.
template <uint16_t W>
CV_INLINE uint32_t load_image(const uint8_t *src) {
  static_assert(W <= 32, "wide fields are byte strings");
  if constexpr (W <= 8) {
    return src[0];
  } else if constexpr (W <= 16) {
    return static_cast<uint32_t>(src[0]) << 8 | src[1];
  } else if constexpr (W <= 24) {
    return static_cast<uint32_t>(src[0]) << 16 | static_cast<uint32_t>(src[1]) << 8 | src[2];
  } else {
    uint32_t v;
    std::memcpy(&v, src, 4);
    return __builtin_bswap32(v);
  }
}

// Stores a number in a member of a field of width W, as the member type is.
template <uint16_t W>
CV_INLINE void store_member(uint8_t *member, uint32_t v) {
  if constexpr (W <= 8) {
    member[0] = static_cast<uint8_t>(v);
  } else if constexpr (W <= 16) {
    uint16_t h = static_cast<uint16_t>(v);
    std::memcpy(member, &h, 2);
  } else {
    std::memcpy(member, &v, 4);
  }
}

// A field's image back into its member.
template <uint16_t W>
CV_INLINE void get_field(uint8_t *member, const uint8_t *src) {
  if constexpr (W <= 32) {
    store_member<W>(member, load_image<W>(src));
  } else {
    std::memcpy(member, src, W / 8);
  }
}

// One pair of a read-back resource list: a resource the entry's action uses, and its index.
using ResPair = p4_pd_res_spec_t;

// The resources of a read-back action record whose tag says the action uses them. The list comes
// from bf_sys_calloc and the caller frees it by bf_sys_free when it is not null; it stays as the
// caller set it when the record names no resource.
CV_SHARED void build_pd_res_spec(const pipe_action_spec_t &as, ResPair **list, int *count) {
  if (as.resource_count == 0) {
    *count = 0;
    return;
  }
  auto *pairs = static_cast<ResPair *>(bf_sys_calloc(as.resource_count, sizeof(ResPair)));
  int n = 0;
  if (pairs != nullptr) {  // out of memory reads as an empty list
    for (unsigned i = 0; i < as.resource_count && i < PIPE_NUM_RES_SPECS; ++i) {
      if (as.resources[i].tag == PIPE_RES_TAG_ATTACHED) pairs[n++] = {as.resources[i].tbl_hdl, as.resources[i].tbl_idx};
    }
  }
  *list = pairs;
  *count = n;
}

// ---- Keys ----

template <const TableDesc &T>
struct Unkey {
  template <size_t I>
  static constexpr const FieldDesc &field() { return T.fields[I]; }

  template <size_t I>
  static CV_INLINE void key_one(const pipe_tbl_match_spec_t &ms, uint8_t *rec) {
    constexpr const FieldDesc &f = field<I>();
    if constexpr (f.partition) {
      store_member<f.width>(rec + f.value_off, ms.partition_index & 0xFFFFu);
    } else {
      get_field<f.width>(rec + f.value_off, ms.match_value_bytes + f.image_off);
    }
  }

  template <size_t I>
  static CV_INLINE void mask_one(const pipe_tbl_match_spec_t &ms, uint8_t *rec) {
    constexpr const FieldDesc &f = field<I>();
    if constexpr (f.match == Match::ternary) {
      get_field<f.width>(rec + f.aux_off, ms.match_mask_bytes + f.image_off);
    } else if constexpr (f.match == Match::lpm) {
      // The prefix is the position of the mask's lowest set bit, counted from the field's top: the
      // bits above it are not looked at.
      constexpr uint16_t w = f.width;
      const uint8_t *m = ms.match_mask_bytes + f.image_off;
      uint16_t p = w;
      while (p > 0) {
        unsigned bit = w - p;  // from the least significant bit of the field's image
        if (m[image_bytes(w) - 1 - bit / 8] >> (bit % 8) & 1) break;
        --p;
      }
      std::memcpy(rec + f.aux_off, &p, 2);
    }
  }

  template <size_t... I>
  static CV_INLINE void key(const pipe_tbl_match_spec_t &ms, uint8_t *rec, std::index_sequence<I...>) {
    std::memset(rec, 0, T.record_size);
    (key_one<I>(ms, rec), ...);
  }
  template <size_t... I>
  static CV_INLINE void mask(const pipe_tbl_match_spec_t &ms, uint8_t *rec, std::index_sequence<I...>) {
    (mask_one<I>(ms, rec), ...);
  }
};

// Clears a key record and decodes the value image into it.
template <const TableDesc &T>
CV_INLINE void unbuild_key(const pipe_tbl_match_spec_t &ms, void *key) {
  Unkey<T>::key(ms, static_cast<uint8_t *>(key), std::make_index_sequence<T.nfields>{});
}

// Decodes a ternary table's masks, or an lpm table's prefix length, into a key record that
// unbuild_key filled.
template <const TableDesc &T>
CV_INLINE void unbuild_mask(const pipe_tbl_match_spec_t &ms, void *key) {
  Unkey<T>::mask(ms, static_cast<uint8_t *>(key), std::make_index_sequence<T.nfields>{});
}

// ---- Actions ----

template <const ActionDesc &A>
struct Unact {
  template <size_t I>
  static CV_INLINE void param_one(const pipe_action_data_spec_t &data, const ResPair *list, int count, uint8_t *rec) {
    constexpr const ParamDesc &p = A.params[I];
    if constexpr (I == A.index_param && !A.index_in_image) {
      // The index stands in the resource list, not in the image: the last pair of the resource
      // wins, and no list at all reads as 0xFFFF.
      uint32_t v = count == 0 ? 0xFFFFu : 0u;
      for (int i = 0; i < count; ++i)
        if (list[i].tbl_hdl == A.index_resource) v = list[i].tbl_idx;
      store_member<p.width>(rec + p.member_off, v);
    } else {
      get_field<p.width>(rec + p.member_off, data.action_data_bytes + Act<A>::template image_off<I>());
    }
  }

  template <size_t... I>
  static CV_INLINE void run(const pipe_action_data_spec_t &data, const ResPair *list, int count, uint8_t *rec,
                            std::index_sequence<I...>) {
    std::memset(rec, 0, A.record_size);
    (param_one<I>(data, list, count, rec), ...);
  }
};

// Clears a parameter record and decodes the action image (and, for an index-bearing parameter, the
// resource list) into it.
template <const ActionDesc &A>
CV_SHARED void unbuild_action_spec(const pipe_action_data_spec_t &data, const ResPair *list, int count,
                                   void *params) {
  Unact<A>::run(data, list, count, static_cast<uint8_t *>(params), std::make_index_sequence<A.nparams>{});
}

}  // namespace cv::pd
