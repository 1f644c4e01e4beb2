// Helpers shared by the driver model tests.
#ifndef CV_PLATFORM_TEST_UTIL_H
#define CV_PLATFORM_TEST_UTIL_H

#include <gtest/gtest.h>

#include <cstdint>
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

#endif
