// The driver model's entry changes: a new action, and deletion, by handle and by key.
#include <algorithm>
#include <cstring>
#include <random>
#include <set>

#include "test_util.h"

namespace {

using ChangeTest = ModelTest;

const Bytes kValue = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x01, 0x23};
const Bytes kMask(8, 0xFF);
constexpr uint32_t kAct2 = kAct + 2;

Bytes value_of(uint32_t i) {
  return Bytes{0x02, 0, uint8_t(i >> 24), uint8_t(i >> 16), uint8_t(i >> 8), uint8_t(i), 0, 1};
}

bf_status_t set_action(uint32_t hdl, pipe_action_spec_t *a, uint32_t act = kAct2, uint32_t tbl = kTbl,
                       bf_dev_id_t dev = 0) {
  return pipe_mgr_mat_ent_set_action(3, dev, tbl, hdl, act, a, 0);
}

bf_status_t set_action_by_key(Request &key, pipe_action_spec_t *a, uint32_t act = kAct2,
                              uint32_t tbl = kTbl, bf_dev_id_t dev = 0) {
  return pipe_mgr_mat_ent_set_action_by_match_spec(3, tgt(dev), tbl, &key.match, act, a, 0);
}

bf_status_t del(uint32_t hdl, uint32_t tbl = kTbl, bf_dev_id_t dev = 0) {
  return pipe_mgr_mat_ent_del(3, dev, tbl, hdl, 0);
}

bf_status_t del_by_key(Request &key, uint32_t tbl = kTbl, bf_dev_id_t dev = 0) {
  return pipe_mgr_mat_ent_del_by_match_spec(3, tgt(dev), tbl, &key.match, 0);
}

struct Entry {
  bf_status_t st;
  pipe_tbl_match_spec_t match;
  uint32_t act;
  pipe_action_spec_t action;
  uint32_t ttl;
};

Entry entry(uint32_t hdl, uint32_t tbl = kTbl, bf_dev_id_t dev = 0) {
  Entry e{};
  e.st = drvm_entry_get(dev, tbl, hdl, &e.match, &e.act, &e.action, &e.ttl);
  return e;
}

// ---- Change of action ----

TEST_F(ChangeTest, SetActionByHandleReplacesTheActionAndKeepsKeyAndTtl) {
  Request r(kValue, kMask, 4, 2, {0x11, 0x22, 0x33});
  uint32_t hdl = 0;
  ASSERT_EQ(add(r, &hdl, kTbl, 0, 42), BF_SUCCESS);

  Request n(kValue, kMask, 0, 0, {0xA1, 0xA2, 0xA3, 0xA4, 0xA5});
  n.action.resource_count = 1;
  n.action.resources[0].tbl_hdl = 0x4000007;
  n.action.resources[0].tbl_idx = 12;
  n.action.resources[0].tag = PIPE_RES_TAG_ATTACHED;
  n.action.member_hdl = 77;
  ASSERT_EQ(set_action(hdl, &n.action), BF_SUCCESS);
  // The model keeps its own copy.
  std::fill(n.adata.begin(), n.adata.end(), 0xEE);
  n.action.resources[0].tbl_hdl = 0;

  Entry e = entry(hdl);
  ASSERT_EQ(e.st, BF_SUCCESS);
  EXPECT_EQ(e.act, kAct2);
  EXPECT_EQ(e.ttl, 42u);
  EXPECT_EQ(bytes_at(e.match.match_value_bytes, 8), kValue);
  EXPECT_EQ(bytes_at(e.match.match_mask_bytes, 8), kMask);
  EXPECT_EQ(e.match.priority, 4u);
  EXPECT_EQ(e.match.partition_index, 2u);
  EXPECT_EQ(e.action.act_data.num_action_data_bytes, 5);
  EXPECT_EQ(e.action.act_data.num_valid_action_data_bits, 40);
  EXPECT_EQ(bytes_at(e.action.act_data.action_data_bytes, 5), (Bytes{0xA1, 0xA2, 0xA3, 0xA4, 0xA5}));
  EXPECT_EQ(e.action.resource_count, 1);
  EXPECT_EQ(e.action.resources[0].tbl_hdl, 0x4000007u);
  EXPECT_EQ(e.action.resources[0].tbl_idx, 12u);
  EXPECT_EQ(e.action.member_hdl, 77u);
  EXPECT_EQ(drvm_entry_count(0, kTbl), 1u);

  // Back to a smaller action without resources: nothing of the previous one remains.
  Request m(kValue, kMask, 0, 0, {});
  m.action.act_data.action_data_bytes = nullptr;
  ASSERT_EQ(set_action(hdl, &m.action, kAct), BF_SUCCESS);
  e = entry(hdl);
  EXPECT_EQ(e.act, kAct);
  EXPECT_EQ(e.action.act_data.num_action_data_bytes, 0);
  EXPECT_EQ(e.action.act_data.action_data_bytes, nullptr);
  EXPECT_EQ(e.action.resource_count, 0);
  EXPECT_EQ(e.action.resources[0].tbl_hdl, 0u);
  EXPECT_EQ(e.action.member_hdl, 0u);
  EXPECT_EQ(bytes_at(e.match.match_value_bytes, 8), kValue);
  EXPECT_EQ(e.ttl, 42u);
}

TEST_F(ChangeTest, SetActionByMatchSpecChangesOnlyTheEntryOfThatExactKey) {
  Request a(kValue, kMask, 1, 0, {1, 1, 1});
  Request b(kValue, kMask, 2, 0, {2, 2, 2});
  uint32_t ha = 0, hb = 0;
  ASSERT_EQ(add(a, &ha), BF_SUCCESS);
  ASSERT_EQ(add(b, &hb, kTbl, 0, 9), BF_SUCCESS);

  Request key(kValue, kMask, 2, 0);
  Request n(Bytes(), Bytes(), 0, 0, {7, 7, 7});
  ASSERT_EQ(set_action_by_key(key, &n.action), BF_SUCCESS);
  EXPECT_EQ(entry(hb).act, kAct2);
  EXPECT_EQ(bytes_at(entry(hb).action.act_data.action_data_bytes, 3), (Bytes{7, 7, 7}));
  EXPECT_EQ(entry(hb).ttl, 9u);
  EXPECT_EQ(entry(ha).act, kAct);
  EXPECT_EQ(bytes_at(entry(ha).action.act_data.action_data_bytes, 3), (Bytes{1, 1, 1}));
}

TEST_F(ChangeTest, SetActionRefusalsLeaveTheTableUnchanged) {
  Request a(kValue, kMask, 1, 5);
  uint32_t hdl = 0, other = 0;
  ASSERT_EQ(add(a, &hdl), BF_SUCCESS);
  ASSERT_EQ(add(a, &other, kTbl + 1), BF_SUCCESS);
  const std::string before = table_state();
  Request n(Bytes(), Bytes(), 0, 0, {9, 9});

  EXPECT_EQ(set_action(hdl + 5, &n.action), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(set_action(0, &n.action), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(set_action(other, &n.action), BF_OBJECT_NOT_FOUND);         // another table's
  EXPECT_EQ(set_action(hdl, &n.action, kAct2, kTbl, 1), BF_OBJECT_NOT_FOUND);  // another device
  EXPECT_EQ(set_action(hdl, nullptr), BF_INVALID_ARG);
  n.action.resource_count = PIPE_NUM_RES_SPECS + 1;
  EXPECT_EQ(set_action(hdl, &n.action), BF_INVALID_ARG);
  n.action.resource_count = 0;
  n.action.act_data.action_data_bytes = nullptr;
  EXPECT_EQ(set_action(hdl, &n.action), BF_INVALID_ARG);
  n.action.act_data.action_data_bytes = n.adata.data();
  drvm_fail_next("pipe_mgr_mat_ent_set_action", BF_INJECTED_FAULT);
  EXPECT_EQ(set_action(hdl, &n.action), BF_INJECTED_FAULT);

  // By key: each part of the key must be as add sent it.
  Request prio(kValue, kMask, 2, 5), part(kValue, kMask, 1, 4);
  Bytes m2 = kMask;
  m2[0] = 0x0F;
  Request mask(kValue, m2, 1, 5), value(value_of(1), kMask, 1, 5);
  for (Request *k : {&prio, &part, &mask, &value})
    EXPECT_EQ(set_action_by_key(*k, &n.action), BF_KEY_NOT_FOUND);
  Request exact(kValue, kMask, 1, 5);
  EXPECT_EQ(set_action_by_key(exact, &n.action, kAct2, kTbl + 2), BF_KEY_NOT_FOUND);  // no such table
  EXPECT_EQ(set_action_by_key(exact, &n.action, kAct2, kTbl, 1), BF_KEY_NOT_FOUND);   // no such device
  Request shorter(Bytes(6, 0), Bytes(6, 0xFF), 1, 5);
  EXPECT_EQ(set_action_by_key(shorter, &n.action), BF_INVALID_ARG);
  Request other_bits(kValue, kMask, 1, 5);
  other_bits.match.num_valid_match_bits = 64;
  EXPECT_EQ(set_action_by_key(other_bits, &n.action), BF_INVALID_ARG);
  exact.match.match_mask_bytes = nullptr;
  EXPECT_EQ(set_action_by_key(exact, &n.action), BF_INVALID_ARG);
  exact.match.match_mask_bytes = exact.mask.data();
  EXPECT_EQ(pipe_mgr_mat_ent_set_action_by_match_spec(3, tgt(), kTbl, nullptr, kAct2, &n.action, 0),
            BF_INVALID_ARG);
  EXPECT_EQ(set_action_by_key(exact, nullptr), BF_INVALID_ARG);
  drvm_fail_next("pipe_mgr_mat_ent_set_action_by_match_spec", BF_INJECTED_FAULT);
  EXPECT_EQ(set_action_by_key(exact, &n.action), BF_INJECTED_FAULT);

  EXPECT_EQ(table_state(), before);
  // And the requests were good apart from what was refused.
  EXPECT_EQ(set_action_by_key(exact, &n.action), BF_SUCCESS);
  EXPECT_NE(table_state(), before);
}

// ---- Deletion ----

TEST_F(ChangeTest, DeleteByHandleRemovesTheEntryAndItsHandleIsNeverIssuedAgain) {
  Request a(value_of(1), kMask), b(value_of(2), kMask), c(value_of(3), kMask);
  uint32_t ha = 0, hb = 0, hc = 0;
  ASSERT_EQ(add(a, &ha), BF_SUCCESS);
  ASSERT_EQ(add(b, &hb), BF_SUCCESS);
  ASSERT_EQ(add(c, &hc), BF_SUCCESS);
  ASSERT_EQ(del(hb), BF_SUCCESS);
  EXPECT_EQ(drvm_entry_count(0, kTbl), 2u);
  EXPECT_EQ(entry(hb).st, BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(bytes_at(entry(ha).match.match_value_bytes, 8), value_of(1));
  EXPECT_EQ(bytes_at(entry(hc).match.match_value_bytes, 8), value_of(3));
  EXPECT_EQ(del(hb), BF_OBJECT_NOT_FOUND);

  // The key may be added again, under a new handle.
  uint32_t again = 0;
  ASSERT_EQ(add(b, &again), BF_SUCCESS);
  EXPECT_EQ(again, 4u);
  uint32_t found = 0;
  ASSERT_EQ(pipe_mgr_match_spec_to_ent_hdl(1, tgt(), kTbl, &b.match, &found, false), BF_SUCCESS);
  EXPECT_EQ(found, again);
  // Deleting everything empties the table; handles still go on.
  for (uint32_t h : {ha, hc, again}) ASSERT_EQ(del(h), BF_SUCCESS) << h;
  EXPECT_EQ(drvm_entry_count(0, kTbl), 0u);
  ASSERT_EQ(add(a, &again), BF_SUCCESS);
  EXPECT_EQ(again, 5u);
}

TEST_F(ChangeTest, DeleteByMatchSpecRemovesTheEntryOfThatExactKey) {
  Request a(kValue, kMask, 1), b(kValue, kMask, 2);
  uint32_t ha = 0, hb = 0;
  ASSERT_EQ(add(a, &ha), BF_SUCCESS);
  ASSERT_EQ(add(b, &hb), BF_SUCCESS);
  Request key(kValue, kMask, 2);
  ASSERT_EQ(del_by_key(key), BF_SUCCESS);
  EXPECT_EQ(entry(hb).st, BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(entry(ha).st, BF_SUCCESS);
  EXPECT_EQ(del_by_key(key), BF_KEY_NOT_FOUND);
  EXPECT_EQ(drvm_entry_count(0, kTbl), 1u);
}

TEST_F(ChangeTest, DeleteRefusalsLeaveTheTableUnchanged) {
  Request a(kValue, kMask, 3, 1);
  uint32_t hdl = 0, other = 0;
  ASSERT_EQ(add(a, &hdl), BF_SUCCESS);
  ASSERT_EQ(add(a, &other, kTbl + 1), BF_SUCCESS);
  uint32_t dflt = 0;
  ASSERT_EQ(pipe_mgr_table_get_default_entry_handle(1, tgt(), kTbl, &dflt), BF_SUCCESS);
  const std::string before = table_state();

  EXPECT_EQ(del(0), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(del(99), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(del(other), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(del(hdl, kTbl, 1), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(del(dflt), BF_OBJECT_NOT_FOUND);  // the default entry is no entry to delete
  drvm_fail_next("pipe_mgr_mat_ent_del", BF_INJECTED_FAULT);
  EXPECT_EQ(del(hdl), BF_INJECTED_FAULT);

  Request prio(kValue, kMask, 4, 1), part(kValue, kMask, 3, 0);
  EXPECT_EQ(del_by_key(prio), BF_KEY_NOT_FOUND);
  EXPECT_EQ(del_by_key(part), BF_KEY_NOT_FOUND);
  Request shorter(Bytes(6, 0), Bytes(6, 0xFF), 3, 1);
  EXPECT_EQ(del_by_key(shorter), BF_INVALID_ARG);
  EXPECT_EQ(pipe_mgr_mat_ent_del_by_match_spec(3, tgt(), kTbl, nullptr, 0), BF_INVALID_ARG);
  Request exact(kValue, kMask, 3, 1);
  exact.match.match_value_bytes = nullptr;
  EXPECT_EQ(del_by_key(exact), BF_INVALID_ARG);
  exact.match.match_value_bytes = exact.value.data();
  EXPECT_EQ(del_by_key(exact, kTbl + 2), BF_KEY_NOT_FOUND);
  drvm_fail_next("pipe_mgr_mat_ent_del_by_match_spec", BF_INJECTED_FAULT);
  EXPECT_EQ(del_by_key(exact), BF_INJECTED_FAULT);

  EXPECT_EQ(table_state(), before);
  EXPECT_EQ(drvm_entry_count(0, kTbl + 1), 1u);
  EXPECT_EQ(del_by_key(exact), BF_SUCCESS);
  EXPECT_EQ(drvm_entry_count(0, kTbl), 0u);
}

// Deletes move entries about inside the store; every key and handle must still find its own entry.
TEST_F(ChangeTest, ManyDeletesKeepKeysAndHandlesRight) {
  const uint32_t n = 5000;
  std::vector<uint32_t> hdl(n);
  for (uint32_t i = 0; i < n; ++i) {
    Request r(value_of(i), kMask, i % 4, 0, {uint8_t(i), uint8_t(i >> 8)});
    ASSERT_EQ(add(r, &hdl[i]), BF_SUCCESS);
  }
  std::vector<uint32_t> order(n);
  for (uint32_t i = 0; i < n; ++i) order[i] = i;
  std::mt19937 rng(12345);
  std::shuffle(order.begin(), order.end(), rng);
  std::set<uint32_t> gone;
  for (uint32_t k = 0; k < 3 * n / 4; ++k) {
    const uint32_t i = order[k];
    if (k % 2) {
      ASSERT_EQ(del(hdl[i]), BF_SUCCESS) << i;
    } else {
      Request key(value_of(i), kMask, i % 4);
      ASSERT_EQ(del_by_key(key), BF_SUCCESS) << i;
    }
    gone.insert(i);
  }
  EXPECT_EQ(drvm_entry_count(0, kTbl), n - gone.size());
  for (uint32_t i = 0; i < n; ++i) {
    Request key(value_of(i), kMask, i % 4);
    uint32_t found = 0;
    const bf_status_t st = pipe_mgr_match_spec_to_ent_hdl(1, tgt(), kTbl, &key.match, &found, false);
    Entry e = entry(hdl[i]);
    if (gone.count(i)) {
      ASSERT_EQ(st, BF_KEY_NOT_FOUND) << i;
      ASSERT_EQ(e.st, BF_OBJECT_NOT_FOUND) << i;
    } else {
      ASSERT_EQ(st, BF_SUCCESS) << i;
      ASSERT_EQ(found, hdl[i]);
      ASSERT_EQ(e.st, BF_SUCCESS);
      ASSERT_EQ(bytes_at(e.match.match_value_bytes, 8), value_of(i));
      ASSERT_EQ(e.match.priority, i % 4);
      ASSERT_EQ(bytes_at(e.action.act_data.action_data_bytes, 2), (Bytes{uint8_t(i), uint8_t(i >> 8)}));
      uint32_t dup = 0;
      ASSERT_EQ(add(key, &dup), BF_ALREADY_EXISTS) << i;
    }
  }
  // Every deleted key can come back.
  uint32_t next = n + 1;
  for (uint32_t i : gone) {
    Request r(value_of(i), kMask, i % 4);
    uint32_t h = 0;
    ASSERT_EQ(add(r, &h), BF_SUCCESS) << i;
    ASSERT_EQ(h, next++);
  }
  EXPECT_EQ(drvm_entry_count(0, kTbl), n);
}

// ---- Statuses ----

TEST_F(ChangeTest, EachKindOfRefusalHasItsOwnStatus) {
  Request r(kValue, kMask);
  uint32_t hdl = 0;
  ASSERT_EQ(add(r, &hdl), BF_SUCCESS);

  uint32_t dup_hdl = 0;
  const bf_status_t duplicate = add(r, &dup_hdl);
  const bf_status_t unknown_handle = del(hdl + 1);
  Request missing(value_of(5), kMask);
  const bf_status_t key_not_found = del_by_key(missing);
  Readback small(8, 2);
  const bf_status_t too_small = small.get(hdl);

  EXPECT_EQ(duplicate, BF_ALREADY_EXISTS);
  EXPECT_EQ(unknown_handle, BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(key_not_found, BF_KEY_NOT_FOUND);
  EXPECT_EQ(too_small, BF_NO_SPACE);
  EXPECT_EQ(std::set<bf_status_t>({duplicate, unknown_handle, key_not_found, too_small}).size(), 4u);
}

}  // namespace
