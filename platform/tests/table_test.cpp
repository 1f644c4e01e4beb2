// The driver model's per-table settings: default entries (their handles, setting, resetting, reading
// back), properties, and the update callbacks it calls. Refusals are in mat_calls_test.cpp.
#include <algorithm>
#include <cstring>
#include <tuple>

#include "test_util.h"

namespace {

using TableSettingsTest = ModelTest;
using DefaultTest = ModelTest;

constexpr uint32_t kMissAct = 0x20000072, kInitAct = 0x20000071;

bf_status_t set_default(const Request &a, uint32_t *hdl, uint32_t act = kMissAct, uint32_t tbl = kTbl) {
  return pipe_mgr_mat_default_entry_set(2, tgt(), tbl, act, &a.action, 0, hdl);
}
bf_status_t reset_default(uint32_t tbl = kTbl) { return pipe_mgr_mat_tbl_default_entry_reset(2, tgt(), tbl, 0); }
uint32_t default_hdl(uint32_t tbl = kTbl, bf_dev_id_t dev = 0) {
  uint32_t h = 0;
  EXPECT_EQ(pipe_mgr_table_get_default_entry_handle(2, tgt(dev), tbl, &h), BF_SUCCESS);
  return h;
}
uint32_t default_act(uint32_t tbl = kTbl) {  // 0 while unset
  uint32_t act = 0;
  drvm_default_entry_get(0, tbl, nullptr, &act, nullptr);
  return act;
}

TEST_F(DefaultTest, ItsHandleIsIssuedOnceByTheFirstDefaultCallAndIsNoEntry) {
  const Request a({}, {}, 0, 0, {1});
  uint32_t e = 0, h = 0;
  ASSERT_EQ(add({key(1), kMask4}, &e), BF_SUCCESS);
  ASSERT_EQ(drvm_set_initial_default(0, kTbl, kInitAct, &a.action), BF_SUCCESS);  // issues nothing
  ASSERT_EQ(drvm_default_entry_get(0, kTbl, &h, nullptr, nullptr), BF_SUCCESS);
  EXPECT_EQ(h, 0u);
  const uint32_t d = default_hdl();
  EXPECT_EQ(d, 2u);
  EXPECT_EQ(default_hdl(), d);
  ASSERT_EQ(set_default(a, &h), BF_SUCCESS);
  EXPECT_EQ(h, d);
  ASSERT_EQ(reset_default(), BF_SUCCESS);
  ASSERT_EQ(add({key(2), kMask4}, &e), BF_SUCCESS);
  EXPECT_EQ(e, 3u);
  EXPECT_EQ(default_hdl(kTbl + 1), 4u);
  EXPECT_EQ(default_hdl(kTbl, 1), 1u);
  ASSERT_EQ(set_default(a, &h, kMissAct, kTbl + 2), BF_SUCCESS);  // a set issues it
  EXPECT_EQ(h, 5u);
  ASSERT_EQ(reset_default(kTbl + 3), BF_SUCCESS);  // and so does a reset
  EXPECT_EQ(default_hdl(kTbl + 3), 6u);
  EXPECT_EQ(default_hdl(), d);
  // It is no entry: not in the model's entry view, the count or a walk.
  EXPECT_EQ(stored(d).st, BF_OBJECT_NOT_FOUND);
  uint32_t count = 0;
  ASSERT_EQ(pipe_mgr_get_entry_count(1, tgt(), kTbl, false, &count), BF_SUCCESS);
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(walk(4), (std::vector<uint32_t>{1, 3}));
  EXPECT_TRUE(walk(4, kTbl + 2).empty());
}

TEST_F(DefaultTest, SetKeepsADeepCopyThatReadsBackIntoTheCallersBuffer) {
  Request a({}, {}, 0, 0, {0xC1, 0xC2, 0xC3});
  a.action = {PIPE_ACTION_DATA_TYPE, 1, 0, {23, 3, a.adata.data()}, 11, 12, {}};
  a.action.resources[0] = {0x5000001, 0, {{0, 0, 0, 0, 0, 0x1234567890ull, 0}}, PIPE_RES_TAG_DETACHED};
  const std::string sent = describe(a.action);
  uint32_t h = 0, kept_hdl = 0, kept_act = 0;
  ASSERT_EQ(add({key(1), kMask4}, &h), BF_SUCCESS);
  ASSERT_EQ(set_default(a, &h), BF_SUCCESS);
  std::fill(a.adata.begin(), a.adata.end(), 0);
  std::memset(&a.action.resources, 0, sizeof a.action.resources);
  pipe_action_spec_t kept;
  ASSERT_EQ(drvm_default_entry_get(0, kTbl, &kept_hdl, &kept_act, &kept), BF_SUCCESS);
  EXPECT_EQ(kept_hdl, h);
  EXPECT_EQ(kept_act, kMissAct);
  EXPECT_EQ(describe(kept), sent);
  Readback rb(0, 56), by_hdl(4, 56);
  ASSERT_EQ(rb.get_default(), BF_SUCCESS);
  EXPECT_EQ(rb.act, kMissAct);
  EXPECT_EQ(rb.action.act_data.action_data_bytes, rb.image.data());
  EXPECT_EQ(describe(rb.action), sent);
  EXPECT_EQ(rb.image[3], 0xA5);  // nothing past the image is written
  // By its handle, the default reads back without a value image; no key buffer is written.
  by_hdl.match = {by_hdl.value.data(), by_hdl.mask.data(), 6, 5, 7, 4, 8};
  ASSERT_EQ(by_hdl.get(h), BF_SUCCESS);
  EXPECT_EQ(by_hdl.match.match_mask_bytes, by_hdl.mask.data());
  EXPECT_EQ(describe(by_hdl.match), "p=0 part=0 bits=7 bytes=0 rsv=8 key=null/");
  EXPECT_EQ(by_hdl.value, Bytes(4, 0xA5));
  EXPECT_EQ(by_hdl.mask, Bytes(4, 0xA5));
  EXPECT_EQ(by_hdl.act, kMissAct);
  EXPECT_EQ(describe(by_hdl.action), sent);
  // A later set replaces the action whole; one without an image reads back into no buffer.
  Request b({}, {}, 0, 0, {});
  b.action.act_data.action_data_bytes = nullptr;
  ASSERT_EQ(set_default(b, &h, kMissAct + 1), BF_SUCCESS);
  Readback none(0, 0);
  none.action.act_data.action_data_bytes = nullptr;
  ASSERT_EQ(none.get_default(), BF_SUCCESS);
  EXPECT_EQ(none.act, kMissAct + 1);
  EXPECT_EQ(describe(none.action), describe(b.action));
}

TEST_F(DefaultTest, ResetRestoresACopyOfTheInitialDefaultOrUnsetsIt) {
  Request a({}, {}, 0, 0, {9}), init({}, {}, 0, 0, {0x5A, 0x5B}), init2({}, {}, 0, 0, {1, 2, 3});
  uint32_t h = 0;
  Readback unset(4, 56), rb(0, 56);
  ASSERT_EQ(set_default(a, &h), BF_SUCCESS);
  ASSERT_EQ(reset_default(), BF_SUCCESS);  // none configured: unset; by its handle too
  EXPECT_EQ(drvm_default_entry_get(0, kTbl, nullptr, nullptr, nullptr), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(unset.get_default(), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(unset.get(h), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(unset.act, 0xDEADu);
  EXPECT_EQ(unset.image, Bytes(56, 0xA5));
  ASSERT_EQ(drvm_set_initial_default(0, kTbl + 1, kInitAct, &init.action), BF_SUCCESS);
  init.adata[0] = 0;
  EXPECT_EQ(default_act(kTbl + 1), kInitAct);  // never set since the model's reset: it applies at once
  ASSERT_EQ(set_default(a, &h, kMissAct, kTbl + 1), BF_SUCCESS);
  EXPECT_EQ(default_act(kTbl + 1), kMissAct);
  ASSERT_EQ(reset_default(kTbl + 1), BF_SUCCESS);
  ASSERT_EQ(rb.get_default(kTbl + 1), BF_SUCCESS);
  EXPECT_EQ(rb.act, kInitAct);
  EXPECT_EQ(rb.action_image(), (Bytes{0x5A, 0x5B}));
  // Once set, a new initial default changes only what a later reset restores.
  ASSERT_EQ(set_default(a, &h, kMissAct, kTbl + 1), BF_SUCCESS);
  ASSERT_EQ(drvm_set_initial_default(0, kTbl + 1, kInitAct + 8, &init2.action), BF_SUCCESS);
  EXPECT_EQ(default_act(kTbl + 1), kMissAct);
  ASSERT_EQ(reset_default(kTbl + 1), BF_SUCCESS);
  EXPECT_EQ(default_act(kTbl + 1), kInitAct + 8);
}

TEST_F(TableSettingsTest, APropertyReadsBackAsLastSetPerDeviceTableAndCode) {
  auto get = [](uint32_t prop, uint32_t tbl = kTbl, bf_dev_id_t dev = 0) {
    uint32_t v = 0, a = 0;
    EXPECT_EQ(pipe_mgr_tbl_get_property(1, dev, tbl, prop, &v, &a), BF_SUCCESS);
    return std::to_string(v) + "," + std::to_string(a);
  };
  ASSERT_EQ(pipe_mgr_tbl_set_property(1, 0, kTbl, 2, 1, 0, 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_tbl_set_property(1, 0, kTbl, 3, 7, 0xFFFFFFFF, 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_tbl_set_property(1, 0, kTbl + 1, 2, 5, 6, 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_tbl_set_property(1, 1, kTbl, 2, 8, 9, 0), BF_SUCCESS);
  EXPECT_EQ(get(2), "1,0");
  ASSERT_EQ(pipe_mgr_tbl_set_property(1, 0, kTbl, 2, 0, 4, 0), BF_SUCCESS);
  EXPECT_EQ(get(2), "0,4");
  EXPECT_EQ(get(3), "7,4294967295");
  EXPECT_EQ(get(2, kTbl + 1), "5,6");
  EXPECT_EQ(get(2, kTbl, 1), "8,9");
}

// What a callback was told: which callback, device, table, type, entry, action, cookie, and the table's
// entry count when it ran.
using Update = std::tuple<char, bf_dev_id_t, uint32_t, int, uint32_t, uint32_t, void *, size_t>;
std::vector<Update> g_updates;
template <char W>
void on_update(bf_dev_id_t dev, pipe_mat_tbl_hdl_t tbl, pipe_mat_update_type_t type, pipe_mat_ent_hdl_t ent,
               pipe_act_fn_hdl_t act, void *cookie) {
  g_updates.emplace_back(W, dev, tbl, type, ent, act, cookie, drvm_entry_count(dev, tbl));
}

TEST_F(TableSettingsTest, EveryChangeIsReportedToTheCallbackOfItsDeviceAndTableAfterItIsMade) {
  g_updates.clear();
  int c1 = 0, c2 = 0;
  void *const c = &c1;
  pipe_mat_update_cb cb = nullptr;
  void *cookie = nullptr;
  ASSERT_EQ(pipe_register_mat_update_cb(1, 0, kTbl, on_update<'a'>, c), BF_SUCCESS);
  ASSERT_EQ(pipe_register_mat_update_cb(1, 1, kTbl + 1, on_update<'b'>, &c2), BF_SUCCESS);
  ASSERT_EQ(drvm_mat_update_cb(0, kTbl, &cb, &cookie), BF_SUCCESS);
  EXPECT_EQ(cb, &on_update<'a'>);
  EXPECT_EQ(cookie, c);
  EXPECT_EQ(drvm_mat_update_cb(0, kTbl + 1, &cb, &cookie), BF_OBJECT_NOT_FOUND);
  const Request r(key(1), kMask4, 1), n(key(1), kMask4, 1, 0, {5});
  uint32_t h1 = 0, h2 = 0, h3 = 0, d = 0, other = 0;
  ASSERT_EQ(add(r, &h1), BF_SUCCESS);
  ASSERT_EQ(set_action(h1, &n.action, kAct + 1), BF_SUCCESS);
  ASSERT_EQ(set_action_by_key(n, &n.action, kAct + 2), BF_SUCCESS);
  ASSERT_EQ(del(h1), BF_SUCCESS);
  ASSERT_EQ(add(r, &h2), BF_SUCCESS);
  ASSERT_EQ(del_by_key(r), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_mat_default_entry_set(1, tgt(), kTbl, 0x20000072, &n.action, 0, &d), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_mat_tbl_default_entry_reset(1, tgt(), kTbl, 0), BF_SUCCESS);
  ASSERT_EQ(drvm_set_initial_default(0, kTbl, 0x20000071, &n.action), BF_SUCCESS);  // no change of the driver's
  ASSERT_EQ(pipe_mgr_mat_tbl_default_entry_reset(1, tgt(), kTbl, 0), BF_SUCCESS);
  ASSERT_EQ(add(r, &other, kTbl + 1), BF_SUCCESS);  // a table and a device without a callback
  ASSERT_EQ(add(r, &other, kTbl, 1), BF_SUCCESS);
  ASSERT_EQ(pipe_register_mat_update_cb(1, 0, kTbl, on_update<'b'>, &c2), BF_SUCCESS);  // replaces both
  ASSERT_EQ(add(r, &h3), BF_SUCCESS);
  ASSERT_EQ(pipe_register_mat_update_cb(1, 0, kTbl, nullptr, c), BF_SUCCESS);  // removes it
  EXPECT_EQ(drvm_mat_update_cb(0, kTbl, &cb, &cookie), BF_OBJECT_NOT_FOUND);
  ASSERT_EQ(del(h3), BF_SUCCESS);
  ASSERT_EQ(add(r, &other, kTbl + 1, 1), BF_SUCCESS);
  EXPECT_EQ(g_updates, (std::vector<Update>{{'a', 0, kTbl, PIPE_MAT_UPDATE_ADD, h1, kAct, c, 1},
                                            {'a', 0, kTbl, PIPE_MAT_UPDATE_SET_ACTION, h1, kAct + 1, c, 1},
                                            {'a', 0, kTbl, PIPE_MAT_UPDATE_SET_ACTION, h1, kAct + 2, c, 1},
                                            {'a', 0, kTbl, PIPE_MAT_UPDATE_DEL, h1, kAct + 2, c, 0},
                                            {'a', 0, kTbl, PIPE_MAT_UPDATE_ADD, h2, kAct, c, 1},
                                            {'a', 0, kTbl, PIPE_MAT_UPDATE_DEL, h2, kAct, c, 0},
                                            {'a', 0, kTbl, PIPE_MAT_UPDATE_SET_DEFAULT, d, 0x20000072, c, 0},
                                            {'a', 0, kTbl, PIPE_MAT_UPDATE_CLEAR_DEFAULT, d, 0, c, 0},
                                            {'a', 0, kTbl, PIPE_MAT_UPDATE_CLEAR_DEFAULT, d, 0x20000071, c, 0},
                                            {'b', 0, kTbl, PIPE_MAT_UPDATE_ADD, h3, kAct, &c2, 1},
                                            {'b', 1, kTbl + 1, PIPE_MAT_UPDATE_ADD, 2, kAct, &c2, 1}}));
}

// A callback that reads the entry back through the driver while it is told of it.
void read_back(bf_dev_id_t dev, pipe_mat_tbl_hdl_t tbl, pipe_mat_update_type_t, pipe_mat_ent_hdl_t ent,
               pipe_act_fn_hdl_t, void *cookie) {
  EXPECT_EQ(static_cast<Readback *>(cookie)->get(ent, tbl, dev), BF_SUCCESS);
}

TEST_F(TableSettingsTest, ACallbackMayCallTheDriverAndItsCallsAreRecordedAfter) {
  Readback rb(4, 56);
  uint32_t h = 0;
  ASSERT_EQ(pipe_register_mat_update_cb(1, 0, kTbl, read_back, &rb), BF_SUCCESS);
  ASSERT_EQ(add({key(1), kMask4, 0, 0, {0x31, 0x32, 0x33}}, &h), BF_SUCCESS);
  EXPECT_EQ(rb.value, key(1));
  EXPECT_EQ(rb.act, kAct);
  EXPECT_EQ(rb.action_image(), (Bytes{0x31, 0x32, 0x33}));
  ASSERT_EQ(drvm_call_count(), 3u);
  EXPECT_STREQ(drvm_call(1)->fn, "pipe_mgr_mat_ent_add");
  EXPECT_EQ(drvm_call(1)->status, BF_SUCCESS);
  EXPECT_STREQ(drvm_call(2)->fn, "pipe_mgr_get_entry");
}

}  // namespace
