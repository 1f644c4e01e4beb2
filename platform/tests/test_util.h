// Helpers shared by the driver model tests.
#ifndef CV_PLATFORM_TEST_UTIL_H
#define CV_PLATFORM_TEST_UTIL_H

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "drv/model.h"

using Bytes = std::vector<uint8_t>;

// Every test starts from a fresh model.
class ModelTest : public ::testing::Test {
 protected:
  void SetUp() override { drvm_reset(); }
  void TearDown() override { drvm_reset(); }
};

// An entry request: the caller's buffers and the two records pointing at them.
struct Request {
  Bytes value;
  Bytes mask;
  Bytes adata;
  pipe_tbl_match_spec_t match{};
  pipe_action_spec_t action{};

  Request(Bytes v, Bytes m, uint32_t priority = 0, uint32_t partition = 0,
          Bytes action_image = {0x11, 0x22, 0x33})
      : value(std::move(v)), mask(std::move(m)), adata(std::move(action_image)) {
    match.match_value_bytes = value.data();
    match.match_mask_bytes = mask.data();
    match.partition_index = partition;
    match.priority = priority;
    match.num_match_bytes = static_cast<uint16_t>(value.size());
    match.num_valid_match_bits = static_cast<uint16_t>(value.size() * 8 - 3);
    action.action_data_type = PIPE_ACTION_DATA_TYPE;
    action.act_data.num_action_data_bytes = static_cast<uint16_t>(adata.size());
    action.act_data.num_valid_action_data_bits = static_cast<uint16_t>(adata.size() * 8);
    action.act_data.action_data_bytes = adata.data();
  }
  // Copies hold pointers into the source's buffers; forbid them.
  Request(const Request &) = delete;
  Request &operator=(const Request &) = delete;
};

constexpr uint32_t kTbl = 0x100002C;
constexpr uint32_t kAct = 0x2000006E;

inline bf_status_t add(Request &r, uint32_t *hdl, uint32_t tbl = kTbl, bf_dev_id_t dev = 0,
                       uint32_t ttl = 0, uint32_t act = kAct) {
  return pipe_mgr_mat_ent_add(5, dev_target_t{dev, BF_DEV_PIPE_ALL}, tbl, &r.match, act, &r.action,
                              ttl, 0, hdl);
}

inline Bytes bytes_at(const uint8_t *p, size_t n) { return p ? Bytes(p, p + n) : Bytes(); }

inline dev_target_t tgt(bf_dev_id_t dev = 0, uint32_t pipe = BF_DEV_PIPE_ALL) {
  return dev_target_t{dev, pipe};
}

// A caller's read-back records: value and mask buffers of num_match_bytes each, an action image
// buffer whose capacity the action record gives, all filled with a sentinel byte.
struct Readback {
  Bytes value;
  Bytes mask;
  Bytes image;
  pipe_tbl_match_spec_t match{};
  pipe_action_spec_t action{};
  uint32_t act = 0xDEADu;

  explicit Readback(size_t num_match_bytes, size_t capacity = 56, uint8_t fill = 0xA5)
      : value(num_match_bytes, fill), mask(num_match_bytes, fill), image(capacity, fill) {
    match.match_value_bytes = value.data();
    match.match_mask_bytes = mask.data();
    match.num_match_bytes = static_cast<uint16_t>(num_match_bytes);
    action.act_data.action_data_bytes = image.data();
    action.act_data.num_action_data_bytes = static_cast<uint16_t>(capacity);
  }
  Readback(const Readback &) = delete;
  Readback &operator=(const Readback &) = delete;

  bf_status_t get(uint32_t hdl, uint32_t tbl = kTbl, bf_dev_id_t dev = 0, bool from_hw = false) {
    return pipe_mgr_get_entry(1, tbl, tgt(dev), hdl, &match, &action, &act, from_hw, 1, nullptr);
  }
  bf_status_t get_default(uint32_t tbl = kTbl, bf_dev_id_t dev = 0) {
    return pipe_mgr_table_get_default_entry(1, tgt(dev), tbl, &action, &act, false, 1, nullptr);
  }
  Bytes action_image() const {
    return bytes_at(action.act_data.action_data_bytes, action.act_data.num_action_data_bytes);
  }
};

// Everything the model holds for a table, as text, from the model's own view (no driver call):
// the entries of handles 1 to max_hdl and the default entry. Two equal texts mean no change.
inline std::string table_state(bf_dev_id_t dev = 0, uint32_t tbl = kTbl, uint32_t max_hdl = 64) {
  std::string out;
  char buf[64];
  auto hex = [&](const uint8_t *p, size_t n) {
    if (p == nullptr) {
      out += "null";
      return;
    }
    for (size_t i = 0; i < n; ++i) {
      std::snprintf(buf, sizeof buf, "%02x", p[i]);
      out += buf;
    }
  };
  auto action = [&](uint32_t act, const pipe_action_spec_t &a) {
    std::snprintf(buf, sizeof buf, " act=%x type=%u rc=%u bits=%u m=%u g=%u img=", act,
                  a.action_data_type, a.resource_count, a.act_data.num_valid_action_data_bits,
                  a.member_hdl, a.group_hdl);
    out += buf;
    hex(a.act_data.action_data_bytes, a.act_data.num_action_data_bytes);
    out += " res=";
    hex(reinterpret_cast<const uint8_t *>(a.resources), sizeof a.resources);
  };
  for (uint32_t h = 1; h <= max_hdl; ++h) {
    pipe_tbl_match_spec_t m;
    pipe_action_spec_t a;
    uint32_t act = 0, ttl = 0;
    if (drvm_entry_get(dev, tbl, h, &m, &act, &a, &ttl) != BF_SUCCESS) continue;
    std::snprintf(buf, sizeof buf, "[%u p=%u part=%u ttl=%u key=", h, m.priority, m.partition_index,
                  ttl);
    out += buf;
    hex(m.match_value_bytes, m.num_match_bytes);
    out += "/";
    hex(m.match_mask_bytes, m.num_match_bytes);
    action(act, a);
    out += "]\n";
  }
  uint32_t dh = 0, dact = 0;
  pipe_action_spec_t da;
  if (drvm_default_entry_get(dev, tbl, &dh, &dact, &da) == BF_SUCCESS) {
    std::snprintf(buf, sizeof buf, "[default %u", dh);
    out += buf;
    action(dact, da);
    out += "]\n";
  }
  std::snprintf(buf, sizeof buf, "count=%zu\n", drvm_entry_count(dev, tbl));
  out += buf;
  return out;
}

#endif
