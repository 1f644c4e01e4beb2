// The driver model's per-table settings: properties, and entry-update callbacks that it calls.
#include "test_util.h"

namespace {

using PropertyTest = ModelTest;

const Bytes kValue = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x01, 0x23};
const Bytes kMask(8, 0xFF);

// ---- Properties ----

bf_status_t set_prop(uint32_t prop, uint32_t value, uint32_t args, uint32_t tbl = kTbl,
                     bf_dev_id_t dev = 0) {
  return pipe_mgr_tbl_set_property(1, dev, tbl, prop, value, args, 0);
}

bf_status_t get_prop(uint32_t prop, uint32_t *value, uint32_t *args, uint32_t tbl = kTbl,
                     bf_dev_id_t dev = 0) {
  return pipe_mgr_tbl_get_property(1, dev, tbl, prop, value, args);
}

TEST_F(PropertyTest, APropertyReadsBackAsLastSetPerDeviceTableAndCode) {
  ASSERT_EQ(set_prop(2, 1, 0), BF_SUCCESS);
  ASSERT_EQ(set_prop(3, 7, 0xFFFFFFFF), BF_SUCCESS);
  ASSERT_EQ(set_prop(2, 5, 6, kTbl + 1), BF_SUCCESS);
  ASSERT_EQ(set_prop(2, 8, 9, kTbl, 1), BF_SUCCESS);
  uint32_t v = 0, a = 0;
  ASSERT_EQ(get_prop(2, &v, &a), BF_SUCCESS);
  EXPECT_EQ(v, 1u);
  EXPECT_EQ(a, 0u);
  ASSERT_EQ(get_prop(3, &v, &a), BF_SUCCESS);
  EXPECT_EQ(v, 7u);
  EXPECT_EQ(a, 0xFFFFFFFFu);
  ASSERT_EQ(get_prop(2, &v, &a, kTbl + 1), BF_SUCCESS);
  EXPECT_EQ(v, 5u);
  EXPECT_EQ(a, 6u);
  ASSERT_EQ(get_prop(2, &v, &a, kTbl, 1), BF_SUCCESS);
  EXPECT_EQ(v, 8u);
  EXPECT_EQ(a, 9u);
  ASSERT_EQ(set_prop(2, 0, 4), BF_SUCCESS);
  ASSERT_EQ(get_prop(2, &v, &a), BF_SUCCESS);
  EXPECT_EQ(v, 0u);
  EXPECT_EQ(a, 4u);
}

TEST_F(PropertyTest, APropertyNeverSetIsNotFoundWithTheOutputsUntouched) {
  uint32_t v = 0xBEEF, a = 0xCAFE;
  EXPECT_EQ(get_prop(2, &v, &a), BF_OBJECT_NOT_FOUND);  // table never used
  ASSERT_EQ(set_prop(3, 1, 1), BF_SUCCESS);
  EXPECT_EQ(get_prop(2, &v, &a), BF_OBJECT_NOT_FOUND);  // another code of a used table
  EXPECT_EQ(get_prop(3, &v, &a, kTbl, 1), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(v, 0xBEEFu);
  EXPECT_EQ(a, 0xCAFEu);
  EXPECT_EQ(get_prop(3, nullptr, &a), BF_INVALID_ARG);
  EXPECT_EQ(get_prop(3, &v, nullptr), BF_INVALID_ARG);
  // A refused set stores nothing.
  drvm_fail_next("pipe_mgr_tbl_set_property", BF_INJECTED_FAULT);
  EXPECT_EQ(set_prop(4, 1, 1), BF_INJECTED_FAULT);
  EXPECT_EQ(get_prop(4, &v, &a), BF_OBJECT_NOT_FOUND);
  drvm_fail_next("pipe_mgr_tbl_get_property", BF_INJECTED_FAULT);
  EXPECT_EQ(get_prop(3, &v, &a), BF_INJECTED_FAULT);
  EXPECT_EQ(v, 0xBEEFu);
}

// ---- Update callbacks ----

struct Update {
  bf_dev_id_t dev;
  uint32_t tbl;
  pipe_mat_update_type_t type;
  uint32_t ent;
  uint32_t act;
  void *cookie;
  size_t count_then;  // the table's entry count when the callback ran
  bool operator==(const Update &o) const {
    return dev == o.dev && tbl == o.tbl && type == o.type && ent == o.ent && act == o.act &&
           cookie == o.cookie && count_then == o.count_then;
  }
};

std::vector<Update> g_updates;

void on_update(bf_dev_id_t dev, pipe_mat_tbl_hdl_t tbl, pipe_mat_update_type_t type,
               pipe_mat_ent_hdl_t ent, pipe_act_fn_hdl_t act, void *cookie) {
  g_updates.push_back(Update{dev, tbl, type, ent, act, cookie, drvm_entry_count(dev, tbl)});
}

std::vector<Update> g_other_updates;

void on_update_other(bf_dev_id_t dev, pipe_mat_tbl_hdl_t tbl, pipe_mat_update_type_t type,
                     pipe_mat_ent_hdl_t ent, pipe_act_fn_hdl_t act, void *cookie) {
  g_other_updates.push_back(Update{dev, tbl, type, ent, act, cookie, drvm_entry_count(dev, tbl)});
}

std::ostream &operator<<(std::ostream &os, const Update &u) {
  return os << "{dev " << u.dev << " tbl " << u.tbl << " type " << u.type << " ent " << u.ent
            << " act " << u.act << " cookie " << u.cookie << " count " << u.count_then << "}";
}

class UpdateCallbacks : public ModelTest {
 protected:
  void SetUp() override {
    ModelTest::SetUp();
    g_updates.clear();
    g_other_updates.clear();
  }
  int cookie_ = 0;
};

TEST_F(UpdateCallbacks, EveryChangeIsReportedAfterItIsMade) {
  ASSERT_EQ(pipe_register_mat_update_cb(1, 0, kTbl, on_update, &cookie_), BF_SUCCESS);
  void *const c = &cookie_;
  Request r(kValue, kMask, 1);
  uint32_t h = 0;
  ASSERT_EQ(add(r, &h), BF_SUCCESS);
  Request n(kValue, kMask, 1, 0, {5});
  ASSERT_EQ(pipe_mgr_mat_ent_set_action(1, 0, kTbl, h, kAct + 1, &n.action, 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_mat_ent_set_action_by_match_spec(1, tgt(), kTbl, &n.match, kAct + 2, &n.action, 0),
            BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_mat_ent_del(1, 0, kTbl, h, 0), BF_SUCCESS);
  uint32_t h2 = 0;
  ASSERT_EQ(add(r, &h2), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_mat_ent_del_by_match_spec(1, tgt(), kTbl, &r.match, 0), BF_SUCCESS);
  uint32_t d = 0;
  ASSERT_EQ(pipe_mgr_mat_default_entry_set(1, tgt(), kTbl, 0x20000072, &n.action, 0, &d), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_mat_tbl_default_entry_reset(1, tgt(), kTbl, 0), BF_SUCCESS);
  ASSERT_EQ(drvm_set_initial_default(0, kTbl, 0x20000071, &n.action), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_mat_tbl_default_entry_reset(1, tgt(), kTbl, 0), BF_SUCCESS);

  const std::vector<Update> want = {
      {0, kTbl, PIPE_MAT_UPDATE_ADD, h, kAct, c, 1},
      {0, kTbl, PIPE_MAT_UPDATE_SET_ACTION, h, kAct + 1, c, 1},
      {0, kTbl, PIPE_MAT_UPDATE_SET_ACTION, h, kAct + 2, c, 1},
      {0, kTbl, PIPE_MAT_UPDATE_DEL, h, kAct + 2, c, 0},
      {0, kTbl, PIPE_MAT_UPDATE_ADD, h2, kAct, c, 1},
      {0, kTbl, PIPE_MAT_UPDATE_DEL, h2, kAct, c, 0},
      {0, kTbl, PIPE_MAT_UPDATE_SET_DEFAULT, d, 0x20000072, c, 0},
      {0, kTbl, PIPE_MAT_UPDATE_CLEAR_DEFAULT, d, 0, c, 0},
      {0, kTbl, PIPE_MAT_UPDATE_CLEAR_DEFAULT, d, 0x20000071, c, 0},
  };
  EXPECT_EQ(g_updates, want);
}

TEST_F(UpdateCallbacks, RefusedRequestsAreNotReported) {
  ASSERT_EQ(pipe_register_mat_update_cb(1, 0, kTbl, on_update, &cookie_), BF_SUCCESS);
  Request r(kValue, kMask);
  uint32_t h = 0;
  ASSERT_EQ(add(r, &h), BF_SUCCESS);
  g_updates.clear();

  uint32_t x = 0;
  EXPECT_EQ(add(r, &x), BF_ALREADY_EXISTS);
  drvm_fail_next("pipe_mgr_mat_ent_add", BF_INJECTED_FAULT);
  Request other(Bytes(8, 1), kMask);
  EXPECT_EQ(add(other, &x), BF_INJECTED_FAULT);
  EXPECT_EQ(pipe_mgr_mat_ent_set_action(1, 0, kTbl, h + 9, kAct, &r.action, 0), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(pipe_mgr_mat_ent_set_action_by_match_spec(1, tgt(), kTbl, &other.match, kAct, &r.action, 0),
            BF_KEY_NOT_FOUND);
  EXPECT_EQ(pipe_mgr_mat_ent_del(1, 0, kTbl, h + 9, 0), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(pipe_mgr_mat_ent_del_by_match_spec(1, tgt(), kTbl, &other.match, 0), BF_KEY_NOT_FOUND);
  drvm_fail_next("pipe_mgr_mat_ent_del", BF_INJECTED_FAULT);
  EXPECT_EQ(pipe_mgr_mat_ent_del(1, 0, kTbl, h, 0), BF_INJECTED_FAULT);
  drvm_fail_next("pipe_mgr_mat_default_entry_set", BF_INJECTED_FAULT);
  EXPECT_EQ(pipe_mgr_mat_default_entry_set(1, tgt(), kTbl, kAct, &r.action, 0, &x), BF_INJECTED_FAULT);
  drvm_fail_next("pipe_mgr_mat_tbl_default_entry_reset", BF_INJECTED_FAULT);
  EXPECT_EQ(pipe_mgr_mat_tbl_default_entry_reset(1, tgt(), kTbl, 0), BF_INJECTED_FAULT);
  EXPECT_TRUE(g_updates.empty());
}

TEST_F(UpdateCallbacks, OneCallbackPerDeviceAndTableReplacedOrRemovedByRegistration) {
  int other_cookie = 0;
  ASSERT_EQ(pipe_register_mat_update_cb(1, 0, kTbl, on_update, &cookie_), BF_SUCCESS);
  ASSERT_EQ(pipe_register_mat_update_cb(1, 1, kTbl, on_update_other, &other_cookie), BF_SUCCESS);
  pipe_mat_update_cb cb = nullptr;
  void *cookie = nullptr;
  ASSERT_EQ(drvm_mat_update_cb(0, kTbl, &cb, &cookie), BF_SUCCESS);
  EXPECT_EQ(cb, &on_update);
  EXPECT_EQ(cookie, &cookie_);
  EXPECT_EQ(drvm_mat_update_cb(0, kTbl + 1, &cb, &cookie), BF_OBJECT_NOT_FOUND);

  Request r(kValue, kMask);
  uint32_t h = 0;
  ASSERT_EQ(add(r, &h, kTbl + 1), BF_SUCCESS);  // a table without a callback
  ASSERT_EQ(add(r, &h, kTbl, 1), BF_SUCCESS);   // the other device's
  EXPECT_TRUE(g_updates.empty());
  ASSERT_EQ(g_other_updates.size(), 1u);
  EXPECT_EQ(g_other_updates[0].dev, 1u);
  EXPECT_EQ(g_other_updates[0].cookie, &other_cookie);

  // A later registration replaces the callback and cookie.
  ASSERT_EQ(pipe_register_mat_update_cb(1, 0, kTbl, on_update_other, nullptr), BF_SUCCESS);
  ASSERT_EQ(add(r, &h), BF_SUCCESS);
  EXPECT_TRUE(g_updates.empty());
  ASSERT_EQ(g_other_updates.size(), 2u);
  EXPECT_EQ(g_other_updates[1].dev, 0u);
  EXPECT_EQ(g_other_updates[1].cookie, nullptr);

  // A null callback removes it.
  ASSERT_EQ(pipe_register_mat_update_cb(1, 0, kTbl, nullptr, &cookie_), BF_SUCCESS);
  EXPECT_EQ(drvm_mat_update_cb(0, kTbl, &cb, &cookie), BF_OBJECT_NOT_FOUND);
  ASSERT_EQ(pipe_mgr_mat_ent_del(1, 0, kTbl, h, 0), BF_SUCCESS);
  EXPECT_EQ(g_other_updates.size(), 2u);

  // A refused registration changes nothing.
  drvm_fail_next("pipe_register_mat_update_cb", BF_INJECTED_FAULT);
  EXPECT_EQ(pipe_register_mat_update_cb(1, 0, kTbl, on_update, &cookie_), BF_INJECTED_FAULT);
  EXPECT_EQ(drvm_mat_update_cb(0, kTbl, &cb, &cookie), BF_OBJECT_NOT_FOUND);
}

// A callback that reads the entry back through the driver while it is being told of it.
void read_back(bf_dev_id_t dev, pipe_mat_tbl_hdl_t tbl, pipe_mat_update_type_t type, pipe_mat_ent_hdl_t ent,
               pipe_act_fn_hdl_t, void *cookie) {
  if (type != PIPE_MAT_UPDATE_ADD) return;
  Readback *rb = static_cast<Readback *>(cookie);
  EXPECT_EQ(pipe_mgr_get_entry(1, tbl, tgt(dev), ent, &rb->match, &rb->action, &rb->act, false, 1, nullptr),
            BF_SUCCESS);
}

TEST_F(UpdateCallbacks, ACallbackMayCallTheDriver) {
  Readback rb(8, 56);
  ASSERT_EQ(pipe_register_mat_update_cb(1, 0, kTbl, read_back, &rb), BF_SUCCESS);
  Request r(kValue, kMask, 0, 0, {0x31, 0x32, 0x33});
  uint32_t h = 0;
  ASSERT_EQ(add(r, &h), BF_SUCCESS);
  EXPECT_EQ(rb.value, kValue);
  EXPECT_EQ(rb.act, kAct);
  EXPECT_EQ(rb.action_image(), (Bytes{0x31, 0x32, 0x33}));
  // The add is recorded, finished, before the call the callback made.
  ASSERT_EQ(drvm_call_count(), 3u);
  EXPECT_STREQ(drvm_call(1)->fn, "pipe_mgr_mat_ent_add");
  EXPECT_EQ(drvm_call(1)->status, BF_SUCCESS);
  EXPECT_STREQ(drvm_call(2)->fn, "pipe_mgr_get_entry");
}

}  // namespace
