// The driver model's entry store: what an add keeps, keys, handles and key sizes, changes of action,
// reading back, walks and counts, with many adds and deletes. Refusals are in mat_calls_test.cpp.
#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <map>
#include <numeric>
#include <random>

#include "test_util.h"

extern "C" size_t cv_c_layout(unsigned i);

namespace {

using StoreTest = ModelTest;
using ReadTest = ModelTest;
using WalkTest = ModelTest;

TEST_F(StoreTest, AnAddAndANewActionKeepTheWholeRequestAsTheirOwnCopy) {
  const Bytes v = {0x0A, 0x00, 0x01, 0x02, 0x03}, m = {0xFF, 0xFF, 0x00, 0xF0, 0x0F};
  Request r(v, m, 7, 3, {0x11, 0x22, 0x33});
  r.match.reserved = 0x55;
  // Every field, the member and group words of an action record that binds to neither included.
  r.action = {PIPE_ACTION_DATA_TYPE, 2, 0x66, r.action.act_data, 0x1234, 0x5678, {}};
  r.action.resources[0] = {0x5000001, 77, {{1, 2, 0x100000002ull, 3, 4, 5, 0xFFFFFFFFFull}}, PIPE_RES_TAG_ATTACHED};
  r.action.resources[2].tbl_hdl = 0x4000002;  // a record past resource_count is kept too
  const std::string sent = describe(r.action), key_sent = "p=7 part=3 bits=37 bytes=5 rsv=85 key=0a00010203/ffff00f00f";
  uint32_t hdl = 0, other = 0;
  ASSERT_EQ(add(r, &hdl, kTbl, 0, 42), BF_SUCCESS);
  EXPECT_EQ(hdl, 1u);
  for (Bytes *b : {&r.value, &r.mask, &r.adata}) std::fill(b->begin(), b->end(), 0xEE);  // the caller reuses them
  std::memset(&r.action.resources, 0, sizeof r.action.resources);
  r.match.priority = 99;
  Stored s = stored(hdl);
  ASSERT_EQ(s.st, BF_SUCCESS);
  EXPECT_NE(s.match.match_value_bytes, r.value.data());
  EXPECT_NE(s.action.act_data.action_data_bytes, r.adata.data());
  EXPECT_EQ(describe(s.match), key_sent);
  EXPECT_EQ(describe(s.action), sent);
  EXPECT_EQ(s.act, kAct);
  EXPECT_EQ(s.ttl, 42u);

  // A new action, by handle, then by key, replaces the whole action record; the key and the TTL stay.
  Request n({}, {}, 0, 0, {0xA1, 0xA2, 0xA3, 0xA4, 0xA5}), k(v, m, 7, 3, {});
  ASSERT_EQ(add({v, m, 8, 3}, &other), BF_SUCCESS);
  n.action.resource_count = 1;
  n.action.resources[1].tbl_hdl = 0x4000007;
  const std::string n_sent = describe(n.action), other_entry = describe(stored(other).action);
  ASSERT_EQ(set_action(hdl, &n.action, kAct + 1), BF_SUCCESS);
  std::fill(n.adata.begin(), n.adata.end(), 0xEE);
  EXPECT_EQ(stored(hdl).act, kAct + 1);
  EXPECT_EQ(describe(stored(hdl).action), n_sent);
  k.match.reserved = 1;  // not part of the key
  k.action.act_data.action_data_bytes = nullptr;  // an action without image or resources
  ASSERT_EQ(set_action_by_key(k, &k.action, kAct + 2), BF_SUCCESS);
  s = stored(hdl);
  EXPECT_EQ(s.act, kAct + 2);
  EXPECT_EQ(describe(s.action), describe(k.action));
  EXPECT_EQ(describe(s.match), key_sent);
  EXPECT_EQ(s.ttl, 42u);
  EXPECT_EQ(describe(stored(other).action), other_entry);  // its key differs in priority only
  EXPECT_EQ(stored(other).act, kAct);
}

TEST_F(StoreTest, NullAndEmptyImagesKeepTheirShapeAndAKeylessKeyIsPriorityAndPartition) {
  static uint8_t some_byte;
  Request r({}, {}, 0, 0, {});
  r.match.match_value_bytes = nullptr;
  r.match.match_mask_bytes = r.action.act_data.action_data_bytes = &some_byte;  // present but empty
  uint32_t h = 0;
  ASSERT_EQ(add(r, &h), BF_SUCCESS);
  Stored s = stored(h);
  EXPECT_EQ(s.match.match_value_bytes, nullptr);
  for (const uint8_t *p : {s.match.match_mask_bytes, s.action.act_data.action_data_bytes}) {
    EXPECT_NE(p, nullptr);
    EXPECT_NE(p, &some_byte);
  }
  r.action.act_data.action_data_bytes = nullptr;
  EXPECT_EQ(add(r, &h), BF_ALREADY_EXISTS);
  r.match.priority = 1;
  ASSERT_EQ(add(r, &h), BF_SUCCESS);
  EXPECT_EQ(stored(h).action.act_data.action_data_bytes, nullptr);
  r.match.partition_index = 1;
  EXPECT_EQ(add(r, &h), BF_SUCCESS);
}

TEST_F(StoreTest, AnyPartOfTheKeyMakesADistinctEntryAndTheMaskIsNotApplied) {
  const Request all[] = {{key(1), kMask4, 5, 2},           {key(1), kMask4, 6, 2},
                         {key(1), kMask4, 5, 3},           {key(1), {0xFF, 0xFF, 0xFF, 0xF0}, 5, 2},
                         {key(2), kMask4, 5, 2},           {key(1), Bytes(4, 0), 5, 2},
                         {key(2), Bytes(4, 0), 5, 2}};
  uint32_t h = 0;
  for (const Request &r : all) ASSERT_EQ(add(r, &h), BF_SUCCESS);
  for (uint32_t i = 0; i < 7; ++i) {
    EXPECT_EQ(add(all[i], &h), BF_ALREADY_EXISTS) << i;
    ASSERT_EQ(find_key(all[i], &h), BF_SUCCESS) << i;
    EXPECT_EQ(h, i + 1);
  }
}

TEST_F(StoreTest, HandlesArePerDeviceFromOneAndNeverIssuedTwice) {
  uint32_t h[4] = {};
  ASSERT_EQ(add({key(1), kMask4}, &h[0]), BF_SUCCESS);
  ASSERT_EQ(add({key(1), kMask4}, &h[1], kTbl + 1), BF_SUCCESS);  // another table of the device
  ASSERT_EQ(add({key(2), kMask4}, &h[2]), BF_SUCCESS);
  ASSERT_EQ(add({key(1), kMask4}, &h[3], kTbl, 1), BF_SUCCESS);  // another device
  EXPECT_EQ(std::vector<uint32_t>(h, h + 4), (std::vector<uint32_t>{1, 2, 3, 1}));
  EXPECT_EQ(stored(2, kTbl + 1).st, BF_SUCCESS);
  EXPECT_EQ(stored(2, kTbl).st, BF_OBJECT_NOT_FOUND);  // a handle names an entry of one table
  EXPECT_EQ(stored(3, kTbl, 1).st, BF_OBJECT_NOT_FOUND);
  ASSERT_EQ(del(3), BF_SUCCESS);  // the latest handle, deleted, is not issued again
  ASSERT_EQ(add({key(2), kMask4}, &h[0]), BF_SUCCESS);
  EXPECT_EQ(h[0], 4u);
  EXPECT_EQ(stored(3).st, BF_OBJECT_NOT_FOUND);
  drvm_reset();  // forgets every entry and starts the handles again
  EXPECT_EQ(drvm_entry_count(0, kTbl), 0u);
  EXPECT_EQ(stored(1).st, BF_OBJECT_NOT_FOUND);
  ASSERT_EQ(add({key(2), kMask4}, &h[0]), BF_SUCCESS);
  EXPECT_EQ(h[0], 1u);
}

TEST_F(StoreTest, TheFirstAddFixesTheTablesKeySizeForGood) {
  Request wide(Bytes(8, 1), Bytes(8, 0xFF)), narrow(key(1), kMask4), bits(Bytes(8, 2), Bytes(8, 0xFF));
  bits.match.num_valid_match_bits = 64;
  uint32_t h = 0;
  narrow.action.resource_count = PIPE_NUM_RES_SPECS + 1;
  ASSERT_EQ(add(narrow, &h), BF_INVALID_ARG);  // a refused add fixes nothing
  narrow.action.resource_count = 0;
  ASSERT_EQ(add(wide, &h), BF_SUCCESS);
  ASSERT_EQ(del(h), BF_SUCCESS);  // the size outlives the table's entries
  EXPECT_EQ(add(narrow, &h), BF_INVALID_ARG);
  EXPECT_EQ(add(bits, &h), BF_INVALID_ARG);
  EXPECT_EQ(add(narrow, &h, kTbl + 1), BF_SUCCESS);  // each table has its own
  EXPECT_EQ(add(wide, &h), BF_SUCCESS);
}

TEST_F(ReadTest, GetEntryFillsEveryFieldIntoTheCallersBuffersAndLeavesTheRestAlone) {
  Request r(key(0x0A000001), {0xFF, 0xFF, 0x00, 0x0F}, 17, 3, {0x12, 0x34, 0x56, 0x78});
  r.action = {PIPE_ACTION_DATA_TYPE, 2, 9, r.action.act_data, 21, 22, {}};
  r.action.resources[0] = {0x4000003, 0, {}, PIPE_RES_TAG_ATTACHED};
  r.action.resources[1].data.meter.pburst = 0x1122334455ull;
  uint32_t hdl = 0;
  ASSERT_EQ(add(r, &hdl, kTbl, 0, 5), BF_SUCCESS);
  Readback rb(4, 56), exact(4, 4), none(0, 1);
  rb.match.num_valid_match_bits = 1;
  rb.match.reserved = 2;
  ASSERT_EQ(rb.get(hdl), BF_SUCCESS);
  EXPECT_EQ(rb.match.match_value_bytes, rb.value.data());
  EXPECT_EQ(rb.match.match_mask_bytes, rb.mask.data());
  EXPECT_EQ(describe(rb.match), "p=17 part=3 bits=1 bytes=4 rsv=2 key=0a000001/ffff000f");  // bits, rsv: the caller's
  EXPECT_EQ(rb.act, kAct);
  EXPECT_EQ(rb.action.act_data.action_data_bytes, rb.image.data());
  EXPECT_EQ(describe(rb.action), describe(r.action));
  EXPECT_EQ(rb.image[4], 0xA5);  // nothing past the image is written
  ASSERT_EQ(exact.get(hdl), BF_SUCCESS);
  EXPECT_EQ(exact.action_image(), r.adata);
  // An entry of a keyless table needs no key buffers.
  Request keyless({}, {}, 0, 0, {0x42});
  keyless.match.match_value_bytes = keyless.match.match_mask_bytes = nullptr;
  none.match.match_value_bytes = none.match.match_mask_bytes = nullptr;
  ASSERT_EQ(add(keyless, &hdl, kTbl + 1), BF_SUCCESS);
  ASSERT_EQ(none.get(hdl, kTbl + 1), BF_SUCCESS);
  EXPECT_EQ(none.action_image(), Bytes{0x42});
}

// Walks over many entries are in ManyAddsAndDeletesKeepKeysHandlesAndWalksRight.
TEST_F(WalkTest, NextHandlesWritesNothingPastNAndGoesOnAcrossChanges) {
  constexpr uint32_t kNone = 0xFFFFFFFFu;
  std::vector<uint32_t> h(6);
  for (uint32_t i = 0; i < 5; ++i) ASSERT_EQ(add({key(i), kMask4}, &h[i]), BF_SUCCESS);
  uint32_t out[4] = {0, 0, 0, 0};
  EXPECT_EQ(pipe_mgr_get_next_entry_handles(1, kTbl, tgt(), h[4], 3, out), BF_END_OF_WALK);
  EXPECT_EQ(std::vector<uint32_t>(out, out + 4), (std::vector<uint32_t>{kNone, kNone, kNone, 0}));
  // Between calls, deletes and adds: the walk goes on from its start to the next handle present.
  ASSERT_EQ(del(h[2]), BF_SUCCESS);
  ASSERT_EQ(del(h[3]), BF_SUCCESS);
  ASSERT_EQ(add({key(5), kMask4}, &h[5]), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_get_next_entry_handles(1, kTbl, tgt(), h[1], 3, out), BF_SUCCESS);
  EXPECT_EQ(std::vector<uint32_t>(out, out + 4), (std::vector<uint32_t>{h[4], h[5], kNone, 0}));
  for (int i : {0, 1, 4, 5}) ASSERT_EQ(del(h[i]), BF_SUCCESS);  // an emptied table ends a walk at once
  uint32_t first = 0xBEEF;
  EXPECT_EQ(pipe_mgr_get_first_entry_handle(1, kTbl, tgt(), &first), BF_END_OF_WALK);
  EXPECT_EQ(first, 0xBEEFu);
}

// In a small table the key index's probe runs often wrap round its end; deleting in every order, each
// key left must still find its own entry.
TEST_F(StoreTest, KeysLeftStayFindableWhateverTheOrderOfDeletes) {
  std::mt19937 rng(3);
  for (int round = 0; round < 300; ++round) {
    drvm_reset();
    std::vector<uint32_t> keys(11);  // key k gets handle k - round * 11 + 1
    std::iota(keys.begin(), keys.end(), static_cast<uint32_t>(round * 11));
    uint32_t h = 0;
    for (uint32_t k : keys) ASSERT_EQ(add({key(k), kMask4}, &h), BF_SUCCESS);
    std::shuffle(keys.begin(), keys.end(), rng);
    for (size_t gone = 0; gone < keys.size(); ++gone) {
      ASSERT_EQ(del_by_key({key(keys[gone]), kMask4}), BF_SUCCESS) << round;
      for (size_t i = gone + 1; i < keys.size(); ++i) {
        ASSERT_EQ(find_key({key(keys[i]), kMask4}, &h), BF_SUCCESS) << round << " " << keys[i];
        ASSERT_EQ(h, keys[i] - round * 11 + 1);
      }
    }
  }
}

Request numbered(uint32_t i) { return Request(key(i), kMask4, i % 4, 0, {uint8_t(i), uint8_t(i >> 8)}); }

// Deletes move entries about inside the store and leave holes in the walk order. Deleting at random,
// a block of over 4096 handles, then nearly all, by handle and by key, every key and handle must still
// find its own entry, every walk give what remains in ascending order, every count be right, and
// deleted keys come back.
TEST_F(StoreTest, ManyAddsAndDeletesKeepKeysHandlesAndWalksRight) {
  const uint32_t n = 12000;
  std::vector<uint32_t> hdl(n), theirs;
  std::map<uint32_t, uint32_t> live;  // handle -> number, of kTbl
  uint32_t h = 0;
  ASSERT_EQ(add(numbered(1), &h, kTbl, 1), BF_SUCCESS);  // device 1 counts apart
  for (uint32_t i = 0; i < n; ++i) {
    ASSERT_EQ(add(numbered(i), &hdl[i]), BF_SUCCESS);
    live[hdl[i]] = i;
    if (i % 3 == 0) {
      ASSERT_EQ(add(numbered(i), &theirs.emplace_back(), kTbl + 1), BF_SUCCESS);  // handles in between
    }
  }
  auto count = [](uint32_t tbl, bf_dev_id_t dev = 0) {
    uint32_t c = 0xBEEF;
    EXPECT_EQ(pipe_mgr_get_entry_count(1, tgt(dev), tbl, dev != 0, &c), BF_SUCCESS);
    EXPECT_EQ(c, drvm_entry_count(dev, tbl));
    return c;
  };
  auto check = [&](const char *stage) {
    SCOPED_TRACE(stage);
    std::vector<uint32_t> want;
    for (const auto &kv : live) want.push_back(kv.first);
    EXPECT_EQ(count(kTbl), live.size());
    EXPECT_EQ(count(kTbl + 1), theirs.size());
    EXPECT_EQ(count(kTbl, 1), 1u);
    EXPECT_EQ(count(kTbl + 2), 0u);  // a table never used
    for (int batch : {1, 7, 1000}) EXPECT_EQ(walk(batch), want) << batch;
    EXPECT_EQ(walk(16, kTbl + 1), theirs);
    for (uint32_t i = 0; i < n; ++i) {
      const bool present = live.count(hdl[i]) != 0;
      uint32_t found = 0;
      ASSERT_EQ(find_key(numbered(i), &found), present ? BF_SUCCESS : BF_KEY_NOT_FOUND) << i;
      Stored s = stored(hdl[i]);
      ASSERT_EQ(s.st, present ? BF_SUCCESS : BF_OBJECT_NOT_FOUND) << i;
      if (!present) continue;
      ASSERT_EQ(found, hdl[i]) << i;
      ASSERT_EQ(bytes_at(s.match.match_value_bytes, 4), key(i)) << i;
      ASSERT_EQ(s.match.priority, i % 4) << i;
      ASSERT_EQ(bytes_at(s.action.act_data.action_data_bytes, 2), (Bytes{uint8_t(i), uint8_t(i >> 8)})) << i;
    }
  };
  auto remove = [&](uint32_t i, bool by_key) {
    ASSERT_EQ(by_key ? del_by_key(numbered(i)) : del(hdl[i]), BF_SUCCESS) << i;
    live.erase(hdl[i]);
  };
  std::vector<uint32_t> order(n);
  std::iota(order.begin(), order.end(), 0u);
  std::shuffle(order.begin(), order.end(), std::mt19937(7));
  for (uint32_t k = 0; k < n / 6; ++k) remove(order[k], k % 2);
  check("a sixth at random");
  for (uint32_t i = 3000; i < 7500; ++i)
    if (live.count(hdl[i])) remove(i, i % 2);
  check("a block");
  for (uint32_t k = 0; k < n && live.size() > 5; ++k)
    if (live.count(hdl[order[k]])) remove(order[k], k % 2);
  check("all but five");
  uint32_t next = n + static_cast<uint32_t>(theirs.size()) + 1;
  for (uint32_t i = 0; i < n; ++i) {
    if (live.count(hdl[i])) continue;
    ASSERT_EQ(add(numbered(i), &hdl[i]), BF_SUCCESS);
    ASSERT_EQ(hdl[i], next++);  // new handles, that walk after the others
    live[hdl[i]] = i;
  }
  check("all back");
  for (auto it = live.begin(); it != live.end(); it = live.erase(it)) {  // the first again and again
    ASSERT_EQ(pipe_mgr_get_first_entry_handle(1, kTbl, tgt(), &h), BF_SUCCESS);
    ASSERT_EQ(h, it->first);
    ASSERT_EQ(del(h), BF_SUCCESS);
  }
  EXPECT_TRUE(walk(4).empty());
}

// The records look the same from C (c_headers.c) and from C++, and have the documented sizes.
TEST(StoreLayoutTest, CAndCxxAgree) {
  const size_t cxx[] = {
      sizeof(pipe_tbl_match_spec_t), offsetof(pipe_tbl_match_spec_t, num_match_bytes),
      offsetof(pipe_tbl_match_spec_t, reserved), sizeof(pipe_action_spec_t), offsetof(pipe_action_spec_t, act_data),
      offsetof(pipe_action_spec_t, member_hdl), offsetof(pipe_action_spec_t, resources), sizeof(pipe_res_spec_t),
      offsetof(pipe_res_spec_t, data.meter.cir), offsetof(pipe_res_spec_t, data.meter.pburst),
      offsetof(pipe_res_spec_t, tag), sizeof(pipe_meter_spec_t), sizeof(drvm_call_t), offsetof(drvm_call_t, match),
      offsetof(drvm_call_t, action), sizeof(bf_drv_client_callbacks_t), static_cast<size_t>(-1)};
  for (unsigned i = 0; i < std::size(cxx); ++i) EXPECT_EQ(cv_c_layout(i), cxx[i]) << i;
  EXPECT_TRUE(sizeof(void *) != 4 || sizeof(pipe_action_spec_t) == 244u);
  EXPECT_EQ(sizeof(pipe_res_spec_t), 56u);
  EXPECT_EQ(sizeof(pipe_meter_spec_t), 44u);
}

}  // namespace
