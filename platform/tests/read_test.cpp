// The driver model's read-back: an entry by handle, a handle by key, and counts.
#include <cstring>

#include "test_util.h"

namespace {

using ReadTest = ModelTest;

const Bytes kValue = {0x0A, 0x00, 0x00, 0x01, 0x00, 0x0A, 0x08, 0x00, 0x00, 0x01};
const Bytes kMask = {0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0xFF, 0xFF, 0x00, 0x00, 0x0F};

TEST_F(ReadTest, GetEntryFillsTheCallersBuffersAndRecords) {
  Request r(kValue, kMask, 17, 3, {0x12, 0x34, 0x56, 0x78});
  r.action.resource_count = 2;
  r.action.member_hdl = 21;
  r.action.group_hdl = 22;
  r.action.resources[0].tbl_hdl = 0x4000003;
  r.action.resources[0].tbl_idx = 9;
  r.action.resources[0].tag = PIPE_RES_TAG_ATTACHED;
  r.action.resources[1].tbl_hdl = 0x5000002;
  r.action.resources[1].data.meter.cir = 0x1122334455ull;
  r.action.resources[1].data.meter.pburst = 77;
  r.action.resources[1].tag = PIPE_RES_TAG_ATTACHED;
  uint32_t hdl = 0;
  ASSERT_EQ(add(r, &hdl, kTbl, 0, 5), BF_SUCCESS);

  Readback rb(10, 56);
  uint8_t *const value = rb.value.data();
  uint8_t *const mask = rb.mask.data();
  uint8_t *const image = rb.image.data();
  ASSERT_EQ(rb.get(hdl), BF_SUCCESS);
  EXPECT_EQ(rb.match.match_value_bytes, value);
  EXPECT_EQ(rb.match.match_mask_bytes, mask);
  EXPECT_EQ(rb.value, kValue);
  EXPECT_EQ(rb.mask, kMask);
  EXPECT_EQ(rb.match.num_match_bytes, 10);
  EXPECT_EQ(rb.match.priority, 17u);
  EXPECT_EQ(rb.match.partition_index, 3u);
  EXPECT_EQ(rb.act, kAct);
  EXPECT_EQ(rb.action.action_data_type, PIPE_ACTION_DATA_TYPE);
  EXPECT_EQ(rb.action.resource_count, 2);
  EXPECT_EQ(rb.action.act_data.num_action_data_bytes, 4);
  EXPECT_EQ(rb.action.act_data.num_valid_action_data_bits, 32);
  EXPECT_EQ(rb.action.act_data.action_data_bytes, image);
  EXPECT_EQ(rb.action_image(), (Bytes{0x12, 0x34, 0x56, 0x78}));
  EXPECT_EQ(rb.image[4], 0xA5);
  EXPECT_EQ(rb.action.member_hdl, 21u);
  EXPECT_EQ(rb.action.group_hdl, 22u);
  EXPECT_EQ(std::memcmp(rb.action.resources, r.action.resources, sizeof r.action.resources), 0);

  // from_hw makes no difference to the model.
  Readback hw(10, 56);
  ASSERT_EQ(hw.get(hdl, kTbl, 0, true), BF_SUCCESS);
  EXPECT_EQ(hw.value, kValue);
  EXPECT_EQ(hw.act, kAct);
  EXPECT_EQ(hw.action_image(), rb.action_image());
}

TEST_F(ReadTest, GetEntryRefusalsWriteNothing) {
  Request r(kValue, kMask, 1, 0, {1, 2, 3, 4, 5, 6});
  uint32_t hdl = 0;
  ASSERT_EQ(add(r, &hdl), BF_SUCCESS);
  auto untouched = [](const Readback &rb, size_t nb, size_t cap) {
    EXPECT_EQ(rb.value, Bytes(nb, 0xA5));
    EXPECT_EQ(rb.mask, Bytes(nb, 0xA5));
    EXPECT_EQ(rb.image, Bytes(cap, 0xA5));
    EXPECT_EQ(rb.act, 0xDEADu);
    EXPECT_EQ(rb.match.priority, 0u);
    EXPECT_EQ(rb.action.action_data_type, 0);
    EXPECT_EQ(rb.action.act_data.num_action_data_bytes, cap);
  };

  Readback unknown(10, 56);
  EXPECT_EQ(unknown.get(hdl + 1), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(unknown.get(hdl, kTbl + 1), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(unknown.get(hdl, kTbl, 1), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(unknown.get(0), BF_OBJECT_NOT_FOUND);
  untouched(unknown, 10, 56);

  Readback wrong_size(8, 56);
  EXPECT_EQ(wrong_size.get(hdl), BF_INVALID_ARG);
  untouched(wrong_size, 8, 56);

  Readback no_value(10, 56);
  no_value.match.match_value_bytes = nullptr;
  EXPECT_EQ(no_value.get(hdl), BF_INVALID_ARG);
  no_value.match.match_value_bytes = no_value.value.data();
  no_value.match.match_mask_bytes = nullptr;
  EXPECT_EQ(no_value.get(hdl), BF_INVALID_ARG);
  untouched(no_value, 10, 56);

  Readback small(10, 5);
  EXPECT_EQ(small.get(hdl), BF_NO_SPACE);
  untouched(small, 10, 5);
  Readback null_image(10, 56);
  null_image.action.act_data.action_data_bytes = nullptr;
  EXPECT_EQ(null_image.get(hdl), BF_NO_SPACE);
  EXPECT_EQ(null_image.value, Bytes(10, 0xA5));
  EXPECT_EQ(null_image.act, 0xDEADu);

  Readback rb(10, 56);
  EXPECT_EQ(pipe_mgr_get_entry(1, kTbl, tgt(), hdl, nullptr, &rb.action, &rb.act, false, 1, nullptr),
            BF_INVALID_ARG);
  EXPECT_EQ(pipe_mgr_get_entry(1, kTbl, tgt(), hdl, &rb.match, nullptr, &rb.act, false, 1, nullptr),
            BF_INVALID_ARG);
  EXPECT_EQ(pipe_mgr_get_entry(1, kTbl, tgt(), hdl, &rb.match, &rb.action, nullptr, false, 1, nullptr),
            BF_INVALID_ARG);
  drvm_fail_next("pipe_mgr_get_entry", BF_INJECTED_FAULT);
  EXPECT_EQ(rb.get(hdl), BF_INJECTED_FAULT);
  untouched(rb, 10, 56);

  Readback exact(10, 6);
  ASSERT_EQ(exact.get(hdl), BF_SUCCESS);
  EXPECT_EQ(exact.action_image(), (Bytes{1, 2, 3, 4, 5, 6}));
}

TEST_F(ReadTest, GetEntryOfAKeylessTablesEntryNeedsNoBuffers) {
  Request r(Bytes(), Bytes(), 0, 0, {0x42});
  r.match.match_value_bytes = nullptr;
  r.match.match_mask_bytes = nullptr;
  r.match.num_valid_match_bits = 0;
  uint32_t hdl = 0;
  ASSERT_EQ(add(r, &hdl), BF_SUCCESS);
  Readback rb(0, 56);
  rb.match.match_value_bytes = nullptr;
  rb.match.match_mask_bytes = nullptr;
  ASSERT_EQ(rb.get(hdl), BF_SUCCESS);
  EXPECT_EQ(rb.action_image(), Bytes{0x42});
}

TEST_F(ReadTest, MatchSpecToEntHdlFindsTheEntryOfExactlyThatKey) {
  Request a(kValue, kMask, 3, 1), b(kValue, kMask, 4, 1);
  uint32_t ha = 0, hb = 0;
  ASSERT_EQ(add(a, &ha), BF_SUCCESS);
  ASSERT_EQ(add(b, &hb), BF_SUCCESS);
  auto find = [](Request &k, uint32_t *h, uint32_t tbl = kTbl, bf_dev_id_t dev = 0) {
    return pipe_mgr_match_spec_to_ent_hdl(1, tgt(dev), tbl, &k.match, h, false);
  };
  uint32_t h = 0;
  Request ka(kValue, kMask, 3, 1), kb(kValue, kMask, 4, 1);
  ASSERT_EQ(find(ka, &h), BF_SUCCESS);
  EXPECT_EQ(h, ha);
  ASSERT_EQ(find(kb, &h), BF_SUCCESS);
  EXPECT_EQ(h, hb);

  h = 0xBEEF;
  Bytes m2 = kMask;
  m2[9] = 0xFF;
  Bytes v2 = kValue;
  v2[0] = 0x0B;
  Request mask(kValue, m2, 3, 1), value(v2, kMask, 3, 1), prio(kValue, kMask, 5, 1),
      part(kValue, kMask, 3, 2);
  for (Request *k : {&mask, &value, &prio, &part}) EXPECT_EQ(find(*k, &h), BF_KEY_NOT_FOUND);
  EXPECT_EQ(find(ka, &h, kTbl + 1), BF_KEY_NOT_FOUND);
  EXPECT_EQ(find(ka, &h, kTbl, 1), BF_KEY_NOT_FOUND);
  Request shorter(Bytes(8, 0), Bytes(8, 0xFF), 3, 1);
  EXPECT_EQ(find(shorter, &h), BF_INVALID_ARG);
  EXPECT_EQ(find(ka, nullptr), BF_INVALID_ARG);
  EXPECT_EQ(pipe_mgr_match_spec_to_ent_hdl(1, tgt(), kTbl, nullptr, &h, false), BF_INVALID_ARG);
  drvm_fail_next("pipe_mgr_match_spec_to_ent_hdl", BF_INJECTED_FAULT);
  EXPECT_EQ(find(ka, &h), BF_INJECTED_FAULT);
  EXPECT_EQ(h, 0xBEEFu);
}

TEST_F(ReadTest, CountsFollowAddsAndDeletesPerTableAndDevice) {
  auto count = [](uint32_t tbl = kTbl, bf_dev_id_t dev = 0) {
    uint32_t c = 0xBEEF;
    EXPECT_EQ(pipe_mgr_get_entry_count(1, tgt(dev), tbl, false, &c), BF_SUCCESS);
    return c;
  };
  EXPECT_EQ(count(), 0u);  // a table never used
  std::vector<uint32_t> hdls;
  for (uint8_t i = 0; i < 10; ++i) {
    Request r(Bytes(10, i), kMask);
    uint32_t h = 0;
    ASSERT_EQ(add(r, &h), BF_SUCCESS);
    hdls.push_back(h);
    ASSERT_EQ(add(r, &h, kTbl + 1), BF_SUCCESS);
  }
  Request one(Bytes(10, 1), kMask);
  uint32_t h = 0;
  ASSERT_EQ(add(one, &h, kTbl, 1), BF_SUCCESS);
  EXPECT_EQ(count(), 10u);
  EXPECT_EQ(count(kTbl + 1), 10u);
  EXPECT_EQ(count(kTbl, 1), 1u);
  ASSERT_EQ(pipe_mgr_mat_ent_del(1, 0, kTbl, hdls[3], 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_mat_ent_del(1, 0, kTbl, hdls[0], 0), BF_SUCCESS);
  EXPECT_EQ(count(), 8u);
  EXPECT_EQ(count(kTbl + 1), 10u);
  uint32_t c = 0xBEEF;
  uint32_t *null_count = nullptr;
  EXPECT_EQ(pipe_mgr_get_entry_count(1, tgt(), kTbl, false, null_count), BF_INVALID_ARG);
  drvm_fail_next("pipe_mgr_get_entry_count", BF_INJECTED_FAULT);
  EXPECT_EQ(pipe_mgr_get_entry_count(1, tgt(), kTbl, false, &c), BF_INJECTED_FAULT);
  EXPECT_EQ(c, 0xBEEFu);
  ASSERT_EQ(pipe_mgr_get_entry_count(1, tgt(), kTbl, true, &c), BF_SUCCESS);
  EXPECT_EQ(c, 8u);
}

}  // namespace
