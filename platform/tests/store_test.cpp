// The driver model's entry store: what pipe_mgr_mat_ent_add keeps, issues and refuses.
#include <algorithm>
#include <cstddef>
#include <cstring>

#include "test_util.h"

extern "C" size_t cv_c_layout(unsigned i);

namespace {

using StoreTest = ModelTest;

const Bytes kValue = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x01, 0x23};
const Bytes kMask(8, 0xFF);

struct Stored {
  bf_status_t st;
  pipe_tbl_match_spec_t match;
  uint32_t act;
  pipe_action_spec_t action;
  uint32_t ttl;
};

Stored get(uint32_t hdl, uint32_t tbl = kTbl, bf_dev_id_t dev = 0) {
  Stored s{};
  s.st = drvm_entry_get(dev, tbl, hdl, &s.match, &s.act, &s.action, &s.ttl);
  return s;
}

TEST_F(StoreTest, AddStoresTheEntryAsSent) {
  Request r(kValue, kMask, 7, 3);
  r.match.reserved = 0x55;
  uint32_t hdl = 0;
  ASSERT_EQ(add(r, &hdl, kTbl, 0, 42), BF_SUCCESS);
  EXPECT_EQ(hdl, 1u);
  EXPECT_EQ(drvm_entry_count(0, kTbl), 1u);

  Stored s = get(hdl);
  ASSERT_EQ(s.st, BF_SUCCESS);
  EXPECT_EQ(bytes_at(s.match.match_value_bytes, 8), kValue);
  EXPECT_EQ(bytes_at(s.match.match_mask_bytes, 8), kMask);
  EXPECT_EQ(s.match.priority, 7u);
  EXPECT_EQ(s.match.partition_index, 3u);
  EXPECT_EQ(s.match.num_match_bytes, 8);
  EXPECT_EQ(s.match.num_valid_match_bits, 61);
  EXPECT_EQ(s.match.reserved, 0x55u);
  EXPECT_EQ(s.act, kAct);
  EXPECT_EQ(s.ttl, 42u);
  EXPECT_EQ(s.action.action_data_type, PIPE_ACTION_DATA_TYPE);
  EXPECT_EQ(s.action.act_data.num_action_data_bytes, 3);
  EXPECT_EQ(s.action.act_data.num_valid_action_data_bits, 24);
  EXPECT_EQ(bytes_at(s.action.act_data.action_data_bytes, 3), (Bytes{0x11, 0x22, 0x33}));
}

TEST_F(StoreTest, HandlesArePerDeviceAndNeverRepeat) {
  Request a(kValue, kMask), b(kValue, kMask, 1);
  uint32_t h1 = 0, h2 = 0, h3 = 0, h4 = 0;
  ASSERT_EQ(add(a, &h1, kTbl, 0), BF_SUCCESS);
  ASSERT_EQ(add(a, &h2, kTbl + 1, 0), BF_SUCCESS);  // another table of the same device
  ASSERT_EQ(add(b, &h3, kTbl, 0), BF_SUCCESS);
  ASSERT_EQ(add(a, &h4, kTbl, 1), BF_SUCCESS);      // another device
  EXPECT_EQ(h1, 1u);
  EXPECT_EQ(h2, 2u);
  EXPECT_EQ(h3, 3u);
  EXPECT_EQ(h4, 1u);
  // A handle names an entry of one table only.
  EXPECT_EQ(get(h2, kTbl + 1).st, BF_SUCCESS);
  EXPECT_EQ(get(h2, kTbl).st, BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(get(h4, kTbl, 1).match.priority, 0u);
  EXPECT_EQ(get(h3, kTbl, 1).st, BF_OBJECT_NOT_FOUND);
}

TEST_F(StoreTest, DuplicateKeyIsRefusedAndChangesNothing) {
  Request first(kValue, kMask, 0, 0, {0xAA});
  Request again(kValue, kMask, 0, 0, {0xBB, 0xCC});
  uint32_t hdl = 0;
  ASSERT_EQ(add(first, &hdl), BF_SUCCESS);
  uint32_t dup = 0xDEADu;
  EXPECT_EQ(add(again, &dup, kTbl, 0, 9, kAct + 1), BF_ALREADY_EXISTS);
  EXPECT_EQ(dup, 0xDEADu);
  EXPECT_EQ(drvm_entry_count(0, kTbl), 1u);
  Stored s = get(hdl);
  EXPECT_EQ(s.act, kAct);
  EXPECT_EQ(s.ttl, 0u);
  EXPECT_EQ(bytes_at(s.action.act_data.action_data_bytes, s.action.act_data.num_action_data_bytes),
            Bytes{0xAA});
  // The refusal used no handle.
  Request other(Bytes(8, 0x77), kMask);
  uint32_t next = 0;
  ASSERT_EQ(add(other, &next), BF_SUCCESS);
  EXPECT_EQ(next, 2u);
}

TEST_F(StoreTest, PriorityPartitionMaskAndValueEachMakeADistinctKey) {
  Bytes other_mask = kMask;
  other_mask[7] = 0xF0;
  Bytes other_value = kValue;
  other_value[0] = 0x80;
  Request base(kValue, kMask, 5, 2);
  Request prio(kValue, kMask, 6, 2);
  Request part(kValue, kMask, 5, 3);
  Request mask(kValue, other_mask, 5, 2);
  Request value(other_value, kMask, 5, 2);
  Request *all[] = {&base, &prio, &part, &mask, &value};
  uint32_t hdl[5] = {};
  for (int i = 0; i < 5; ++i) ASSERT_EQ(add(*all[i], &hdl[i]), BF_SUCCESS) << i;
  EXPECT_EQ(drvm_entry_count(0, kTbl), 5u);
  for (int i = 0; i < 5; ++i) {
    uint32_t h = 0;
    EXPECT_EQ(add(*all[i], &h), BF_ALREADY_EXISTS) << i;
    Stored s = get(hdl[i]);
    EXPECT_EQ(bytes_at(s.match.match_value_bytes, 8), all[i]->value) << i;
    EXPECT_EQ(bytes_at(s.match.match_mask_bytes, 8), all[i]->mask) << i;
    EXPECT_EQ(s.match.priority, all[i]->match.priority) << i;
    EXPECT_EQ(s.match.partition_index, all[i]->match.partition_index) << i;
  }
}

TEST_F(StoreTest, FirstAddFixesTheTablesKeySize) {
  Request r(kValue, kMask);
  uint32_t hdl = 0;
  ASSERT_EQ(add(r, &hdl), BF_SUCCESS);
  Request shorter(Bytes(6, 1), Bytes(6, 0xFF));
  uint32_t h = 0xDEADu;
  EXPECT_EQ(add(shorter, &h), BF_INVALID_ARG);
  Request other_bits(Bytes(8, 1), kMask);
  other_bits.match.num_valid_match_bits = 64;
  EXPECT_EQ(add(other_bits, &h), BF_INVALID_ARG);
  EXPECT_EQ(h, 0xDEADu);
  EXPECT_EQ(drvm_entry_count(0, kTbl), 1u);
  // Each table has its own size.
  EXPECT_EQ(add(shorter, &h, kTbl + 1), BF_SUCCESS);
}

TEST_F(StoreTest, MalformedRequestsAreRefusedWithoutEffect) {
  Request r(kValue, kMask);
  uint32_t h = 0xDEADu;
  dev_target_t tgt{0, 0};
  EXPECT_EQ(pipe_mgr_mat_ent_add(1, tgt, kTbl, nullptr, kAct, &r.action, 0, 0, &h), BF_INVALID_ARG);
  EXPECT_EQ(pipe_mgr_mat_ent_add(1, tgt, kTbl, &r.match, kAct, nullptr, 0, 0, &h), BF_INVALID_ARG);
  EXPECT_EQ(pipe_mgr_mat_ent_add(1, tgt, kTbl, &r.match, kAct, &r.action, 0, 0, nullptr),
            BF_INVALID_ARG);
  r.match.match_value_bytes = nullptr;
  EXPECT_EQ(add(r, &h), BF_INVALID_ARG);
  r.match.match_value_bytes = r.value.data();
  r.match.match_mask_bytes = nullptr;
  EXPECT_EQ(add(r, &h), BF_INVALID_ARG);
  r.match.match_mask_bytes = r.mask.data();
  r.action.act_data.action_data_bytes = nullptr;
  EXPECT_EQ(add(r, &h), BF_INVALID_ARG);
  r.action.act_data.action_data_bytes = r.adata.data();
  r.action.resource_count = PIPE_NUM_RES_SPECS + 1;
  EXPECT_EQ(add(r, &h), BF_INVALID_ARG);
  EXPECT_EQ(h, 0xDEADu);
  EXPECT_EQ(drvm_entry_count(0, kTbl), 0u);
  // None of them fixed the table's key size, nor used a handle.
  Request small(Bytes(2, 1), Bytes(2, 0xFF));
  ASSERT_EQ(add(small, &h), BF_SUCCESS);
  EXPECT_EQ(h, 1u);
}

TEST_F(StoreTest, StoredEntryIsACopyOfTheCallersBuffers) {
  Request r(kValue, kMask, 1, 0, {1, 2, 3});
  r.action.resource_count = 1;
  r.action.resources[0].tbl_hdl = 0x4000001;
  r.action.resources[0].tag = PIPE_RES_TAG_ATTACHED;
  uint32_t hdl = 0;
  ASSERT_EQ(add(r, &hdl), BF_SUCCESS);
  std::fill(r.value.begin(), r.value.end(), 0xEE);
  std::fill(r.mask.begin(), r.mask.end(), 0x00);
  std::fill(r.adata.begin(), r.adata.end(), 0xEE);
  r.match.priority = 99;
  r.action.resources[0].tbl_hdl = 0;
  Stored s = get(hdl);
  EXPECT_NE(s.match.match_value_bytes, r.value.data());
  EXPECT_NE(s.action.act_data.action_data_bytes, r.adata.data());
  EXPECT_EQ(bytes_at(s.match.match_value_bytes, 8), kValue);
  EXPECT_EQ(bytes_at(s.match.match_mask_bytes, 8), kMask);
  EXPECT_EQ(bytes_at(s.action.act_data.action_data_bytes, 3), (Bytes{1, 2, 3}));
  EXPECT_EQ(s.match.priority, 1u);
  EXPECT_EQ(s.action.resources[0].tbl_hdl, 0x4000001u);
}

TEST_F(StoreTest, ActionRecordIsKeptWhole) {
  Request r(kValue, kMask, 0, 0, {});
  r.action.action_data_type = PIPE_ACTION_GRP_TYPE;
  r.action.resource_count = 2;
  r.action.member_hdl = 0x1234;
  r.action.group_hdl = 0x5678;
  pipe_res_spec_t &meter = r.action.resources[0];
  meter.tbl_hdl = 0x5000001;
  meter.tbl_idx = 77;
  meter.data.meter.meter_type = 1;
  meter.data.meter.cir = 0x100000002ull;
  meter.data.meter.cburst = 3;
  meter.data.meter.pir = 4;
  meter.data.meter.pburst = 0xFFFFFFFFFull;
  meter.tag = PIPE_RES_TAG_ATTACHED;
  r.action.resources[2].tbl_hdl = 0x4000002;  // a record past resource_count is kept too
  r.action.resources[2].tag = PIPE_RES_TAG_DETACHED;
  uint32_t hdl = 0;
  ASSERT_EQ(add(r, &hdl), BF_SUCCESS);
  Stored s = get(hdl);
  EXPECT_EQ(s.action.action_data_type, PIPE_ACTION_GRP_TYPE);
  EXPECT_EQ(s.action.resource_count, 2);
  EXPECT_EQ(s.action.member_hdl, 0x1234u);
  EXPECT_EQ(s.action.group_hdl, 0x5678u);
  EXPECT_EQ(std::memcmp(s.action.resources, r.action.resources, sizeof r.action.resources), 0);
  EXPECT_EQ(s.action.resources[0].data.meter.pburst, 0xFFFFFFFFFull);
}

TEST_F(StoreTest, NullAndEmptyImagesKeepTheirShape) {
  // A keyless table: no key bytes; one image pointer null, one not.
  Request r(Bytes(), Bytes(), 0, 0, {});
  static uint8_t some_byte;
  r.match.match_value_bytes = nullptr;
  r.match.match_mask_bytes = &some_byte;
  r.match.num_valid_match_bits = 0;
  r.action.act_data.action_data_bytes = &some_byte;  // an action without parameters
  uint32_t hdl = 0;
  ASSERT_EQ(add(r, &hdl), BF_SUCCESS);
  Stored s = get(hdl);
  EXPECT_EQ(s.match.match_value_bytes, nullptr);
  EXPECT_NE(s.match.match_mask_bytes, nullptr);
  EXPECT_NE(s.match.match_mask_bytes, &some_byte);
  EXPECT_NE(s.action.act_data.action_data_bytes, nullptr);
  EXPECT_NE(s.action.act_data.action_data_bytes, &some_byte);
  EXPECT_EQ(s.action.act_data.num_action_data_bytes, 0);

  // With no key bytes the key is priority and partition alone.
  r.action.act_data.action_data_bytes = nullptr;
  uint32_t h = 0;
  EXPECT_EQ(add(r, &h), BF_ALREADY_EXISTS);
  r.match.priority = 1;
  ASSERT_EQ(add(r, &h), BF_SUCCESS);
  EXPECT_EQ(get(h).action.act_data.action_data_bytes, nullptr);
}

TEST_F(StoreTest, UnknownEntryIsNotFoundAndOutputsStayUntouched) {
  Request r(kValue, kMask);
  uint32_t hdl = 0;
  ASSERT_EQ(add(r, &hdl), BF_SUCCESS);
  pipe_tbl_match_spec_t m;
  std::memset(&m, 0xA5, sizeof m);
  uint32_t act = 7, ttl = 8;
  EXPECT_EQ(drvm_entry_get(0, kTbl, 0, &m, &act, nullptr, &ttl), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(drvm_entry_get(0, kTbl, hdl + 1, &m, &act, nullptr, &ttl), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(drvm_entry_get(0, kTbl + 1, hdl, &m, &act, nullptr, &ttl), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(drvm_entry_get(1, kTbl, hdl, &m, &act, nullptr, &ttl), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(m.priority, 0xA5A5A5A5u);
  EXPECT_EQ(act, 7u);
  EXPECT_EQ(ttl, 8u);
  EXPECT_EQ(drvm_entry_count(0, kTbl + 1), 0u);
  EXPECT_EQ(drvm_entry_count(1, kTbl), 0u);
}

TEST_F(StoreTest, ResetForgetsEntriesAndRestartsHandles) {
  Request r(kValue, kMask);
  uint32_t hdl = 0;
  ASSERT_EQ(add(r, &hdl), BF_SUCCESS);
  ASSERT_EQ(add(r, &hdl, kTbl + 1), BF_SUCCESS);
  ASSERT_EQ(hdl, 2u);
  drvm_reset();
  EXPECT_EQ(drvm_entry_count(0, kTbl), 0u);
  EXPECT_EQ(get(1).st, BF_OBJECT_NOT_FOUND);
  ASSERT_EQ(add(r, &hdl), BF_SUCCESS);
  EXPECT_EQ(hdl, 1u);
}

TEST_F(StoreTest, ManyEntriesStayDistinctAndFindable) {
  const uint32_t n = 20000;
  std::vector<uint32_t> hdls(n);
  for (uint32_t i = 0; i < n; ++i) {
    Request r(Bytes{uint8_t(i >> 16), uint8_t(i >> 8), uint8_t(i), 0}, Bytes(4, 0xFF), i % 3, 0,
              Bytes{uint8_t(i), uint8_t(i >> 8)});
    ASSERT_EQ(add(r, &hdls[i]), BF_SUCCESS) << i;
    ASSERT_EQ(hdls[i], i + 1);
  }
  EXPECT_EQ(drvm_entry_count(0, kTbl), n);
  for (uint32_t i = 0; i < n; ++i) {
    Request r(Bytes{uint8_t(i >> 16), uint8_t(i >> 8), uint8_t(i), 0}, Bytes(4, 0xFF), i % 3);
    uint32_t h = 0;
    ASSERT_EQ(add(r, &h), BF_ALREADY_EXISTS) << i;
    Stored s = get(hdls[i]);
    ASSERT_EQ(bytes_at(s.match.match_value_bytes, 4), r.value) << i;
    ASSERT_EQ(s.match.priority, i % 3) << i;
    ASSERT_EQ(bytes_at(s.action.act_data.action_data_bytes, 2), (Bytes{uint8_t(i), uint8_t(i >> 8)}));
  }
}

TEST_F(StoreTest, PassthroughStoresAndRecordsNothing) {
  Request r(kValue, kMask);
  drvm_set_passthrough(1);
  drvm_fail_next("pipe_mgr_mat_ent_add", BF_INJECTED_FAULT);
  uint32_t h1 = 0, h2 = 0;
  EXPECT_EQ(add(r, &h1), BF_SUCCESS);
  EXPECT_EQ(add(r, &h2), BF_SUCCESS);  // the same key again: not looked at
  EXPECT_EQ(h1, 1u);
  EXPECT_EQ(h2, 2u);
  EXPECT_EQ(drvm_entry_count(0, kTbl), 0u);
  EXPECT_EQ(drvm_call_count(), 0u);
  drvm_set_passthrough(0);
  // The queued refusal was not used up by pass-through calls.
  EXPECT_EQ(add(r, &h1), BF_INJECTED_FAULT);
  ASSERT_EQ(add(r, &h1), BF_SUCCESS);
  EXPECT_EQ(h1, 1u);
  EXPECT_EQ(drvm_entry_count(0, kTbl), 1u);
  EXPECT_EQ(drvm_count_calls("pipe_mgr_mat_ent_add"), 2u);
}

// The records look the same from C and from C++, and on the 32-bit target have the documented
// offsets (also checked at compile time in the model).
TEST(LayoutTest, CAndCxxAgree) {
  const size_t cxx[] = {
      sizeof(pipe_tbl_match_spec_t),
      offsetof(pipe_tbl_match_spec_t, num_match_bytes),
      offsetof(pipe_tbl_match_spec_t, reserved),
      sizeof(pipe_action_spec_t),
      offsetof(pipe_action_spec_t, act_data),
      offsetof(pipe_action_spec_t, member_hdl),
      offsetof(pipe_action_spec_t, resources),
      sizeof(pipe_res_spec_t),
      offsetof(pipe_res_spec_t, data.meter.cir),
      offsetof(pipe_res_spec_t, data.meter.pburst),
      offsetof(pipe_res_spec_t, tag),
      sizeof(pipe_meter_spec_t),
      sizeof(drvm_call_t),
      offsetof(drvm_call_t, match),
      offsetof(drvm_call_t, action),
      sizeof(bf_drv_client_callbacks_t),
  };
  for (unsigned i = 0; i < sizeof cxx / sizeof cxx[0]; ++i) EXPECT_EQ(cv_c_layout(i), cxx[i]) << i;
  EXPECT_EQ(cv_c_layout(sizeof cxx / sizeof cxx[0]), static_cast<size_t>(-1));
  if (sizeof(void *) == 4) {
    EXPECT_EQ(sizeof(pipe_tbl_match_spec_t), 24u);
    EXPECT_EQ(sizeof(pipe_action_spec_t), 244u);
    EXPECT_EQ(sizeof(pipe_res_spec_t), 56u);
  }
  EXPECT_EQ(sizeof(pipe_meter_spec_t), 44u);
  EXPECT_EQ(sizeof(pipe_res_spec_t), 56u);
}

}  // namespace
