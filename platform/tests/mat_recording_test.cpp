// The match-table functions beyond add: what each records, injected refusals of each, and
// pass-through mode.
#include <cstring>
#include <functional>
#include <string>

#include "test_util.h"

namespace {

const Bytes kValue = {0xAA, 0xBB, 0xCC, 0xDD};
const Bytes kMask(4, 0xFF);
constexpr uint32_t kDefAct = 0x20000072;

Bytes key_value(uint8_t i) { return Bytes{0xAA, 0xBB, 0xCC, i}; }

int g_updates = 0;
void count_update(bf_dev_id_t, pipe_mat_tbl_hdl_t, pipe_mat_update_type_t, pipe_mat_ent_hdl_t,
                  pipe_act_fn_hdl_t, void *) {
  ++g_updates;
}

// A table with entries of handles 1 to 3 (keys ending 1 to 3), its default entry (handle 4) set, a
// property and an update callback; then the call records are cleared.
class MatCallTest : public ModelTest {
 protected:
  void SetUp() override {
    ModelTest::SetUp();
    g_updates = 0;
    for (uint8_t i = 1; i <= 3; ++i) {
      Request r(key_value(i), kMask, 0, 0, {i, i});
      uint32_t h = 0;
      ASSERT_EQ(add(r, &h), BF_SUCCESS);
      ASSERT_EQ(h, i);
    }
    uint32_t d = 0;
    Request a(kValue, kMask, 0, 0, {0xDD});
    ASSERT_EQ(pipe_mgr_mat_default_entry_set(1, tgt(), kTbl, kDefAct, &a.action, 0, &d), BF_SUCCESS);
    ASSERT_EQ(d, 4u);
    ASSERT_EQ(pipe_mgr_tbl_set_property(1, 0, kTbl, 2, 1, 0, 0), BF_SUCCESS);
    ASSERT_EQ(pipe_register_mat_update_cb(1, 0, kTbl, count_update, nullptr), BF_SUCCESS);
    drvm_clear_calls();
  }

  // All the model holds for the table, including what table_state does not show.
  static std::string state() {
    std::string s = table_state();
    uint32_t v = 0, a = 0;
    drvm_set_recording(0);
    const bf_status_t st = pipe_mgr_tbl_get_property(1, 0, kTbl, 2, &v, &a);
    drvm_set_recording(1);
    s += "prop " + std::to_string(st) + " " + std::to_string(v) + " " + std::to_string(a);
    pipe_mat_update_cb cb = nullptr;
    s += drvm_mat_update_cb(0, kTbl, &cb, nullptr) == BF_SUCCESS && cb == count_update ? " cb" : " no cb";
    return s;
  }
};

// One valid call of each function on the fixture's table. `out` receives a handle the call
// writes, where it writes one.
struct Op {
  const char *fn;
  std::function<bf_status_t(uint32_t *out)> call;
};

std::vector<Op> ops() {
  return {
      {"pipe_mgr_mat_ent_add",
       [](uint32_t *out) {
         Request r(key_value(9), kMask);
         return add(r, out);
       }},
      {"pipe_mgr_mat_ent_set_action",
       [](uint32_t *) {
         Request r(kValue, kMask, 0, 0, {0x77});
         return pipe_mgr_mat_ent_set_action(1, 0, kTbl, 1, kAct + 1, &r.action, 0);
       }},
      {"pipe_mgr_mat_ent_set_action_by_match_spec",
       [](uint32_t *) {
         Request r(key_value(2), kMask, 0, 0, {0x77});
         return pipe_mgr_mat_ent_set_action_by_match_spec(1, tgt(), kTbl, &r.match, kAct + 1, &r.action, 0);
       }},
      {"pipe_mgr_mat_ent_del", [](uint32_t *) { return pipe_mgr_mat_ent_del(1, 0, kTbl, 1, 0); }},
      {"pipe_mgr_mat_ent_del_by_match_spec",
       [](uint32_t *) {
         Request r(key_value(2), kMask);
         return pipe_mgr_mat_ent_del_by_match_spec(1, tgt(), kTbl, &r.match, 0);
       }},
      {"pipe_mgr_mat_default_entry_set",
       [](uint32_t *out) {
         Request r(kValue, kMask, 0, 0, {0x66});
         return pipe_mgr_mat_default_entry_set(1, tgt(), kTbl, kDefAct + 1, &r.action, 0, out);
       }},
      {"pipe_mgr_mat_tbl_default_entry_reset",
       [](uint32_t *) { return pipe_mgr_mat_tbl_default_entry_reset(1, tgt(), kTbl, 0); }},
      {"pipe_mgr_table_get_default_entry_handle",
       [](uint32_t *out) { return pipe_mgr_table_get_default_entry_handle(1, tgt(), kTbl + 1, out); }},
      {"pipe_mgr_table_get_default_entry",
       [](uint32_t *) {
         Readback rb(0, 56);
         return rb.get_default();
       }},
      {"pipe_mgr_get_entry",
       [](uint32_t *) {
         Readback rb(4, 56);
         return rb.get(1);
       }},
      {"pipe_mgr_match_spec_to_ent_hdl",
       [](uint32_t *out) {
         Request r(key_value(3), kMask);
         return pipe_mgr_match_spec_to_ent_hdl(1, tgt(), kTbl, &r.match, out, false);
       }},
      {"pipe_mgr_get_first_entry_handle",
       [](uint32_t *out) { return pipe_mgr_get_first_entry_handle(1, kTbl, tgt(), out); }},
      {"pipe_mgr_get_next_entry_handles",
       [](uint32_t *) {
         uint32_t next[2];
         return pipe_mgr_get_next_entry_handles(1, kTbl, tgt(), 1, 2, next);
       }},
      {"pipe_mgr_get_entry_count",
       [](uint32_t *) {
         uint32_t c = 0;
         return pipe_mgr_get_entry_count(1, tgt(), kTbl, false, &c);
       }},
      {"pipe_mgr_tbl_set_property",
       [](uint32_t *) { return pipe_mgr_tbl_set_property(1, 0, kTbl, 2, 0, 5, 0); }},
      {"pipe_mgr_tbl_get_property",
       [](uint32_t *) {
         uint32_t v = 0, a = 0;
         return pipe_mgr_tbl_get_property(1, 0, kTbl, 2, &v, &a);
       }},
      {"pipe_register_mat_update_cb",
       [](uint32_t *) { return pipe_register_mat_update_cb(1, 0, kTbl, nullptr, nullptr); }},
  };
}

TEST_F(MatCallTest, AnInjectedRefusalOfEachFunctionHasNoEffect) {
  for (const Op &op : ops()) {
    SCOPED_TRACE(op.fn);
    drvm_reset();
    SetUp();
    const std::string before = state();
    drvm_fail_next(op.fn, BF_INJECTED_FAULT);
    uint32_t out = 0xBEEF;
    EXPECT_EQ(op.call(&out), BF_INJECTED_FAULT);
    EXPECT_EQ(out, 0xBEEFu);
    EXPECT_EQ(state(), before);
    EXPECT_EQ(g_updates, 0);
    ASSERT_EQ(drvm_count_calls(nullptr), 1u);
    EXPECT_STREQ(drvm_call(0)->fn, op.fn);
    EXPECT_EQ(drvm_call(0)->status, BF_INJECTED_FAULT);
    // Used once: the same call now goes through, and no handle was used up by the refusal.
    EXPECT_EQ(op.call(&out), BF_SUCCESS);
    Request fresh(key_value(200), kMask);
    uint32_t h = 0;
    ASSERT_EQ(add(fresh, &h), BF_SUCCESS);
    const bool issues = std::string(op.fn) == "pipe_mgr_mat_ent_add" ||
                        std::string(op.fn) == "pipe_mgr_table_get_default_entry_handle";
    EXPECT_EQ(h, issues ? 6u : 5u);
  }
}

TEST_F(MatCallTest, PassThroughAnswersEveryFunctionAtOnce) {
  const std::string before = state();
  drvm_set_passthrough(1);
  drvm_fail_next("pipe_mgr_mat_ent_del", BF_INJECTED_FAULT);
  uint32_t running = 0;
  for (const Op &op : ops()) {
    SCOPED_TRACE(op.fn);
    uint32_t out = 0xBEEF;
    EXPECT_EQ(op.call(&out), BF_SUCCESS);
    if (out != 0xBEEF) {
      EXPECT_EQ(out, ++running);  // a running count where a handle is written
    }
  }
  EXPECT_EQ(running, 5u);  // add, default set, default handle, key to handle, first handle
  Readback rb(4, 56);
  EXPECT_EQ(rb.get(77), BF_SUCCESS);  // an unknown handle: not looked at
  EXPECT_EQ(rb.value, Bytes(4, 0xA5));
  EXPECT_EQ(rb.act, 0xDEADu);
  drvm_set_passthrough(0);
  EXPECT_EQ(drvm_call_count(), 0u);
  EXPECT_EQ(g_updates, 0);
  EXPECT_EQ(state(), before);
  // The queued refusal waited.
  EXPECT_EQ(pipe_mgr_mat_ent_del(1, 0, kTbl, 1, 0), BF_INJECTED_FAULT);
}

// ---- What each function records ----

TEST_F(MatCallTest, ChangesAreRecordedWithTheirArguments) {
  Request r(key_value(2), kMask, 0, 0, {0x10, 0x20});
  ASSERT_EQ(pipe_mgr_mat_ent_set_action(7, 0, kTbl, 1, kAct + 1, &r.action, 0x3), BF_SUCCESS);
  const drvm_call_t *c = drvm_last_call("pipe_mgr_mat_ent_set_action");
  ASSERT_NE(c, nullptr);
  EXPECT_EQ(c->sess_hdl, 7u);
  EXPECT_EQ(c->dev_tgt.device_id, 0u);
  EXPECT_EQ(c->dev_tgt.dev_pipe_id, BF_DEV_PIPE_ALL);
  EXPECT_EQ(c->tbl_hdl, kTbl);
  EXPECT_EQ(c->ent_hdl, 1u);
  EXPECT_EQ(c->act_fn_hdl, kAct + 1);
  EXPECT_EQ(c->flags, 0x3u);
  EXPECT_FALSE(c->has_match);
  ASSERT_TRUE(c->has_action);
  EXPECT_EQ(bytes_at(c->action.act_data.action_data_bytes, 2), (Bytes{0x10, 0x20}));
  EXPECT_NE(c->action.act_data.action_data_bytes, r.adata.data());

  ASSERT_EQ(pipe_mgr_mat_ent_set_action_by_match_spec(8, tgt(0, 1), kTbl, &r.match, kAct + 2, &r.action, 0),
            BF_SUCCESS);
  c = drvm_last_call(nullptr);
  EXPECT_STREQ(c->fn, "pipe_mgr_mat_ent_set_action_by_match_spec");
  EXPECT_EQ(c->sess_hdl, 8u);
  EXPECT_EQ(c->dev_tgt.dev_pipe_id, 1u);
  EXPECT_EQ(c->ent_hdl, 2u);  // the entry the key found
  EXPECT_EQ(c->act_fn_hdl, kAct + 2);
  ASSERT_TRUE(c->has_match);
  EXPECT_EQ(bytes_at(c->match.match_value_bytes, 4), key_value(2));
  EXPECT_TRUE(c->has_action);

  ASSERT_EQ(pipe_mgr_mat_ent_del(9, 0, kTbl, 3, 0x1), BF_SUCCESS);
  c = drvm_last_call(nullptr);
  EXPECT_STREQ(c->fn, "pipe_mgr_mat_ent_del");
  EXPECT_EQ(c->dev_tgt.dev_pipe_id, BF_DEV_PIPE_ALL);
  EXPECT_EQ(c->ent_hdl, 3u);
  EXPECT_EQ(c->act_fn_hdl, kAct);  // the action the deleted entry had
  EXPECT_EQ(c->flags, 0x1u);
  EXPECT_FALSE(c->has_match);
  EXPECT_FALSE(c->has_action);

  EXPECT_EQ(pipe_mgr_mat_ent_del(9, 0, kTbl, 3, 0), BF_OBJECT_NOT_FOUND);
  c = drvm_last_call(nullptr);
  EXPECT_EQ(c->status, BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(c->ent_hdl, 3u);
  EXPECT_EQ(c->act_fn_hdl, 0u);

  ASSERT_EQ(pipe_mgr_mat_ent_del_by_match_spec(9, tgt(), kTbl, &r.match, 0), BF_SUCCESS);
  c = drvm_last_call(nullptr);
  EXPECT_EQ(c->ent_hdl, 2u);
  EXPECT_EQ(c->act_fn_hdl, kAct + 2);
  EXPECT_TRUE(c->has_match);
  EXPECT_FALSE(c->has_action);
  EXPECT_EQ(pipe_mgr_mat_ent_del_by_match_spec(9, tgt(), kTbl, &r.match, 0), BF_KEY_NOT_FOUND);
  EXPECT_EQ(drvm_last_call(nullptr)->ent_hdl, 0u);
}

TEST_F(MatCallTest, DefaultEntryCallsAreRecordedWithTheirArguments) {
  Request r(kValue, kMask, 0, 0, {0x44});
  uint32_t d = 0;
  ASSERT_EQ(pipe_mgr_mat_default_entry_set(3, tgt(0, 2), kTbl, kDefAct, &r.action, 0x8, &d), BF_SUCCESS);
  const drvm_call_t *c = drvm_last_call(nullptr);
  EXPECT_STREQ(c->fn, "pipe_mgr_mat_default_entry_set");
  EXPECT_EQ(c->sess_hdl, 3u);
  EXPECT_EQ(c->dev_tgt.dev_pipe_id, 2u);
  EXPECT_EQ(c->act_fn_hdl, kDefAct);
  EXPECT_EQ(c->flags, 0x8u);
  EXPECT_EQ(c->ent_hdl, 4u);
  EXPECT_EQ(c->ptr_arg, &d);
  EXPECT_TRUE(c->has_action);

  ASSERT_EQ(pipe_mgr_mat_tbl_default_entry_reset(3, tgt(), kTbl, 0x2), BF_SUCCESS);
  c = drvm_last_call(nullptr);
  EXPECT_STREQ(c->fn, "pipe_mgr_mat_tbl_default_entry_reset");
  EXPECT_EQ(c->ent_hdl, 4u);
  EXPECT_EQ(c->act_fn_hdl, 0u);  // no initial default: none restored
  EXPECT_EQ(c->flags, 0x2u);

  uint32_t h = 0;
  ASSERT_EQ(pipe_mgr_table_get_default_entry_handle(3, tgt(), kTbl, &h), BF_SUCCESS);
  c = drvm_last_call(nullptr);
  EXPECT_EQ(c->ent_hdl, 4u);
  EXPECT_EQ(c->ptr_arg, &h);

  ASSERT_EQ(pipe_mgr_mat_default_entry_set(3, tgt(), kTbl, kDefAct, &r.action, 0, &d), BF_SUCCESS);
  Readback rb(0, 56);
  int res_data = 0;
  ASSERT_EQ(pipe_mgr_table_get_default_entry(3, tgt(), kTbl, &rb.action, &rb.act, true, 1, &res_data),
            BF_SUCCESS);
  c = drvm_last_call(nullptr);
  EXPECT_STREQ(c->fn, "pipe_mgr_table_get_default_entry");
  EXPECT_EQ(c->act_fn_hdl, kDefAct);  // the one written
  EXPECT_EQ(c->arg_u32[0], 1u);       // from_hw
  EXPECT_EQ(c->arg_u32[1], 1u);       // res_get_flags
  EXPECT_EQ(c->ptr_arg, &res_data);
  ASSERT_TRUE(c->has_action);         // as the caller passed it: the empty buffer's capacity
  EXPECT_EQ(c->action.act_data.num_action_data_bytes, 56);
  EXPECT_EQ(bytes_at(c->action.act_data.action_data_bytes, 56), Bytes(56, 0xA5));
}

TEST_F(MatCallTest, ReadsAreRecordedWithTheirArguments) {
  Readback rb(4, 56);
  ASSERT_EQ(pipe_mgr_get_entry(5, kTbl, tgt(0, 3), 2, &rb.match, &rb.action, &rb.act, true, 1, nullptr),
            BF_SUCCESS);
  const drvm_call_t *c = drvm_last_call(nullptr);
  EXPECT_STREQ(c->fn, "pipe_mgr_get_entry");
  EXPECT_EQ(c->sess_hdl, 5u);
  EXPECT_EQ(c->tbl_hdl, kTbl);
  EXPECT_EQ(c->dev_tgt.dev_pipe_id, 3u);
  EXPECT_EQ(c->ent_hdl, 2u);
  EXPECT_EQ(c->act_fn_hdl, kAct);
  EXPECT_EQ(c->arg_u32[0], 1u);
  EXPECT_EQ(c->arg_u32[1], 1u);
  EXPECT_EQ(c->ptr_arg, nullptr);
  ASSERT_TRUE(c->has_match);
  EXPECT_EQ(bytes_at(c->match.match_value_bytes, 4), Bytes(4, 0xA5));  // as passed, before filling
  EXPECT_TRUE(c->has_action);

  Request k(key_value(3), kMask);
  uint32_t h = 0;
  ASSERT_EQ(pipe_mgr_match_spec_to_ent_hdl(5, tgt(), kTbl, &k.match, &h, true), BF_SUCCESS);
  c = drvm_last_call(nullptr);
  EXPECT_EQ(c->ent_hdl, 3u);
  EXPECT_EQ(c->arg_u32[0], 1u);
  EXPECT_EQ(c->ptr_arg, &h);
  EXPECT_TRUE(c->has_match);

  ASSERT_EQ(pipe_mgr_get_first_entry_handle(5, kTbl, tgt(), &h), BF_SUCCESS);
  c = drvm_last_call(nullptr);
  EXPECT_EQ(c->ent_hdl, 1u);
  EXPECT_EQ(c->ptr_arg, &h);

  uint32_t next[4];
  ASSERT_EQ(pipe_mgr_get_next_entry_handles(5, kTbl, tgt(), 1, 4, next), BF_SUCCESS);
  c = drvm_last_call(nullptr);
  EXPECT_EQ(c->ent_hdl, 1u);
  EXPECT_EQ(c->arg_u32[0], 4u);  // n
  EXPECT_EQ(c->arg_u32[1], 2u);  // handles written
  EXPECT_EQ(c->ptr_arg, next);

  uint32_t count = 0;
  ASSERT_EQ(pipe_mgr_get_entry_count(5, tgt(), kTbl, true, &count), BF_SUCCESS);
  c = drvm_last_call(nullptr);
  EXPECT_EQ(c->arg_u32[0], 1u);
  EXPECT_EQ(c->arg_u32[1], 3u);
  EXPECT_EQ(c->ptr_arg, &count);
}

TEST_F(MatCallTest, TableSettingsAreRecordedWithTheirArguments) {
  ASSERT_EQ(pipe_mgr_tbl_set_property(6, 1, kTbl, 11, 12, 13, 0x4), BF_SUCCESS);
  const drvm_call_t *c = drvm_last_call(nullptr);
  EXPECT_STREQ(c->fn, "pipe_mgr_tbl_set_property");
  EXPECT_EQ(c->dev_tgt.device_id, 1u);
  EXPECT_EQ(c->dev_tgt.dev_pipe_id, BF_DEV_PIPE_ALL);
  EXPECT_EQ(c->arg_u32[0], 11u);
  EXPECT_EQ(c->arg_u32[1], 12u);
  EXPECT_EQ(c->arg_u32[2], 13u);
  EXPECT_EQ(c->flags, 0x4u);

  uint32_t v = 0, a = 0;
  ASSERT_EQ(pipe_mgr_tbl_get_property(6, 1, kTbl, 11, &v, &a), BF_SUCCESS);
  c = drvm_last_call(nullptr);
  EXPECT_EQ(c->arg_u32[0], 11u);
  EXPECT_EQ(c->arg_u32[1], 12u);
  EXPECT_EQ(c->arg_u32[2], 13u);
  EXPECT_EQ(c->ptr_arg, &v);

  int cookie = 0;
  ASSERT_EQ(pipe_register_mat_update_cb(6, 2, kTbl, count_update, &cookie), BF_SUCCESS);
  c = drvm_last_call(nullptr);
  EXPECT_STREQ(c->fn, "pipe_register_mat_update_cb");
  EXPECT_EQ(c->dev_tgt.device_id, 2u);
  EXPECT_EQ(c->dev_tgt.dev_pipe_id, BF_DEV_PIPE_ALL);
  EXPECT_EQ(c->ptr_arg, &cookie);
  const uint64_t addr = reinterpret_cast<uintptr_t>(&count_update);
  EXPECT_EQ(c->arg_u32[0], static_cast<uint32_t>(addr));
  EXPECT_EQ(c->arg_u32[1], static_cast<uint32_t>(addr >> 32));
}

}  // namespace
