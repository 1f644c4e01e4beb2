// Tables over the driver functions, on one world holding every kind of object: what a good call of
// each records, pass-through, every refusal (a queued fault of each function, every documented one),
// and each call with each allocation of the model's own memory failing in turn. The action-profile
// functions have the same tables in profile_calls_test.cpp.
#include <cstring>
#include <functional>
#include <string>
#include <utility>

#include "alloc_fault.h"
#include "test_util.h"

namespace {

constexpr uint32_t kDefAct = 0x20000072;
constexpr uint32_t kUnset = 0xBEEFu;

int g_updates = 0, g_cookie, g_data;
bf_drv_client_callbacks_t g_cbs;
void count_update(bf_dev_id_t, pipe_mat_tbl_hdl_t, pipe_mat_update_type_t, pipe_mat_ent_hdl_t, pipe_act_fn_hdl_t,
                  void *) {
  ++g_updates;
}
pipe_action_spec_t *bare() {  // an action record with a 3-byte image
  static const Request r({}, {});
  return &r.action;
}

// The world. Table kTbl of device 0 holds entries 1 to 3 (key(i), priority i, partition 5, image
// {i, i}), its default entry (handle 4, image {0xDD}), property 2 = (1, 7) and a counting update
// callback; its entry 6 was deleted. Table kTbl + 1 holds entry 5. Client "c" (handle 1) has
// callbacks at priority 2. The next entry handle is 7, the next client handle 2. No call is recorded.
class MatCallTest : public ModelTest {
 protected:
  void SetUp() override {
    ModelTest::SetUp();
    uint32_t h = 0;
    for (uint8_t i = 1; i <= 3; ++i) ASSERT_EQ(add({key(i), kMask4, i, 5, {i, i}}, &h), BF_SUCCESS);
    ASSERT_EQ(pipe_mgr_mat_default_entry_set(1, tgt(), kTbl, kDefAct, action_of({{}, {}, 0, 0, {0xDD}}), 0, &h), 0);
    ASSERT_EQ(add({key(1), kMask4}, &h, kTbl + 1), BF_SUCCESS);
    ASSERT_EQ(add({key(9), kMask4, 9, 5}, &h), BF_SUCCESS);
    ASSERT_EQ(del(h), BF_SUCCESS);
    ASSERT_EQ(h, 6u);
    ASSERT_EQ(pipe_mgr_tbl_set_property(1, 0, kTbl, 2, 1, 7, 0), BF_SUCCESS);
    ASSERT_EQ(pipe_register_mat_update_cb(1, 0, kTbl, count_update, nullptr), BF_SUCCESS);
    ASSERT_EQ(bf_drv_register("c", &h), BF_SUCCESS);
    ASSERT_EQ(bf_drv_client_register_callbacks(h, &g_cbs, 2), BF_SUCCESS);
    drvm_clear_calls();
    g_updates = 0;
  }
  void Restart() {
    drvm_reset();
    SetUp();
  }
  // All the world holds, as text.
  static std::string state() {
    uint32_t v = 0, a = 0;
    pipe_mat_update_cb cb = nullptr;
    std::string s = table_state(0, kTbl) + table_state(0, kTbl + 1) + table_state(1, kTbl);
    drvm_set_recording(0);
    s += "prop " + std::to_string(pipe_mgr_tbl_get_property(1, 0, kTbl, 2, &v, &a)) + ":" + std::to_string(v) + "," +
         std::to_string(a);
    drvm_set_recording(1);
    s += drvm_mat_update_cb(0, kTbl, &cb, nullptr) == BF_SUCCESS && cb == count_update ? " cb" : " no cb";
    return s + " clients " + std::to_string(drvm_client_handle("c")) + "," + std::to_string(drvm_client_handle("d")) +
           " prio " + std::to_string(drvm_client_callback_prio(1));
  }
};
using RecordingTest = MatCallTest;

// The caller's output memory of one call, unwritten.
struct Out {
  uint32_t w[4] = {kUnset, kUnset, kUnset, kUnset};
  Readback rb{4, 8};
  // What a call wrote into it, as text ("" for nothing).
  std::string written() const {
    std::string s;
    for (int i = 0; i < 4; ++i) s += w[i] != kUnset ? " w" + std::to_string(i) + "=" + std::to_string(w[i]) : "";
    if (rb.value != Bytes(4, 0xA5) || rb.mask != Bytes(4, 0xA5)) s += " key";
    if (rb.image != Bytes(8, 0xA5)) s += " image";
    if (rb.act != 0xDEADu) s += " act";
    if (rb.match.priority != 0 || rb.match.partition_index != 0) s += " match";
    if (rb.action.action_data_type != 0 || rb.action.act_data.num_valid_action_data_bits != 0) s += " action";
    return s;
  }
};
using Call = std::function<bf_status_t(Out &)>;

// A call record as text, but for its copies of records: the function, then every field that is not 0
// (so a field of no use to the function must be 0), numbers from 0xffff up in hex.
std::string fields(const drvm_call_t &c, const Out &o) {
  std::string s = c.fn;
  const std::pair<const char *, uint32_t> f[] = {{"st", uint32_t(c.status)},
                                                 {"sess", c.sess_hdl},
                                                 {"dev", c.dev_tgt.device_id},
                                                 {"pipe", c.dev_tgt.dev_pipe_id},
                                                 {"tbl", c.tbl_hdl},
                                                 {"act", c.act_fn_hdl},
                                                 {"ttl", c.ttl},
                                                 {"flags", c.flags},
                                                 {"ent", c.ent_hdl},
                                                 {"a0", c.arg_u32[0]},
                                                 {"a1", c.arg_u32[1]},
                                                 {"a2", c.arg_u32[2]},
                                                 {"a3", c.arg_u32[3]}};
  char buf[16];
  for (auto [name, v] : f)
    if (v) s += std::string(" ") + name + "=" + (std::snprintf(buf, sizeof buf, v < 0xFFFF ? "%u" : "0x%x", v), buf);
  s += std::string(c.text ? " text=" : "") + (c.text ? c.text : "") + (c.has_match ? " match" : "") +
       (c.has_action ? " action" : "");
  const std::pair<const void *, const char *> ptrs[] = {
      {nullptr, ""}, {o.w, " ptr=w0"}, {&g_cookie, " ptr=cookie"}, {&g_data, " ptr=data"}, {&g_cbs, " ptr=cbs"}};
  std::string ptr = " ptr=?";
  for (auto p : ptrs) ptr = c.ptr_arg == p.first ? p.second : ptr;
  return s + ptr;
}

// ---- A good call of each function: what it records, pass-through (and a queued fault, below) ----

enum : unsigned { kMat = 1, kHdlOut = 2 };  // of drv/pipe_mgr.h; writes one entry handle, to w[0]
struct Op {
  unsigned flags;
  Call call;
  std::string record;  // starts with the function's name
  std::string fn() const { return record.substr(0, record.find(' ')); }
};

std::vector<Op> ops() {
  const uint64_t cb = reinterpret_cast<uintptr_t>(&count_update);  // its address in two words, as fields() prints them
  Out none;
  drvm_call_t words{.fn = "", .arg_u32 = {uint32_t(cb), uint32_t(cb >> 32)}};
  const std::string cb_words = fields(words, none).substr(1) + " ";
  // The keys sent, made once: a call allocates nothing of its own (see MatAllocationFailureTest).
  static const Request k20(key(20), kMask4), k2(key(2), kMask4, 2, 5), k3(key(3), kMask4, 3, 5);
  return {
      {kMat | kHdlOut, CALL(pipe_mgr_mat_ent_add(9, tgt(0, 1), kTbl, match_of(k20), kAct, bare(), 30, 4, &o.w[0])),
       "pipe_mgr_mat_ent_add sess=9 pipe=1 tbl=0x100002c act=0x2000006e ttl=30 flags=4 ent=7 match action ptr=w0"},
      {kMat, CALL(pipe_mgr_mat_ent_set_action(7, 0, kTbl, 1, kAct + 1, bare(), 3)),
       "pipe_mgr_mat_ent_set_action sess=7 pipe=0xffff tbl=0x100002c act=0x2000006f flags=3 ent=1 action"},
      {kMat, CALL(pipe_mgr_mat_ent_set_action_by_match_spec(8, tgt(0, 2), kTbl, match_of(k2), kAct + 2, bare(), 1)),
       "pipe_mgr_mat_ent_set_action_by_match_spec sess=8 pipe=2 tbl=0x100002c act=0x20000070 flags=1 ent=2 "
       "match action"},
      {kMat, CALL(pipe_mgr_mat_ent_del(9, 0, kTbl, 3, 1)),
       "pipe_mgr_mat_ent_del sess=9 pipe=0xffff tbl=0x100002c act=0x2000006e flags=1 ent=3"},
      {kMat, CALL(pipe_mgr_mat_ent_del_by_match_spec(9, tgt(0, 3), kTbl, match_of(k2), 2)),
       "pipe_mgr_mat_ent_del_by_match_spec sess=9 pipe=3 tbl=0x100002c act=0x2000006e flags=2 ent=2 match"},
      {kMat | kHdlOut, CALL(pipe_mgr_mat_default_entry_set(3, tgt(0, 2), kTbl, kDefAct + 1, bare(), 8, o.w)),
       "pipe_mgr_mat_default_entry_set sess=3 pipe=2 tbl=0x100002c act=0x20000073 flags=8 ent=4 action ptr=w0"},
      {kMat, CALL(pipe_mgr_mat_tbl_default_entry_reset(3, tgt(), kTbl, 2)),
       "pipe_mgr_mat_tbl_default_entry_reset sess=3 pipe=0xffff tbl=0x100002c flags=2 ent=4"},
      {kMat | kHdlOut, CALL(pipe_mgr_table_get_default_entry_handle(3, tgt(), kTbl + 1, o.w)),
       "pipe_mgr_table_get_default_entry_handle sess=3 pipe=0xffff tbl=0x100002d ent=7 ptr=w0"},
      {kMat, CALL(pipe_mgr_table_get_default_entry(3, tgt(), kTbl, &o.rb.action, &o.rb.act, true, 5, &g_data)),
       "pipe_mgr_table_get_default_entry sess=3 pipe=0xffff tbl=0x100002c act=0x20000072 a0=1 a1=5 action ptr=data"},
      {kMat, CALL(pipe_mgr_get_entry(5, kTbl, tgt(0, 3), 2, &o.rb.match, &o.rb.action, &o.rb.act, true, 6, &g_data)),
       "pipe_mgr_get_entry sess=5 pipe=3 tbl=0x100002c act=0x2000006e ent=2 a0=1 a1=6 match action ptr=data"},
      {kMat | kHdlOut, CALL(pipe_mgr_match_spec_to_ent_hdl(5, tgt(), kTbl, match_of(k3), o.w, 1)),
       "pipe_mgr_match_spec_to_ent_hdl sess=5 pipe=0xffff tbl=0x100002c ent=3 a0=1 match ptr=w0"},
      {kMat | kHdlOut, CALL(pipe_mgr_get_first_entry_handle(5, kTbl, tgt(), o.w)),
       "pipe_mgr_get_first_entry_handle sess=5 pipe=0xffff tbl=0x100002c ent=1 ptr=w0"},
      {kMat, CALL(pipe_mgr_get_next_entry_handles(5, kTbl, tgt(), 1, 4, o.w)),
       "pipe_mgr_get_next_entry_handles sess=5 pipe=0xffff tbl=0x100002c ent=1 a0=4 a1=2 ptr=w0"},
      {kMat, CALL(pipe_mgr_get_entry_count(5, tgt(), kTbl, true, o.w)),
       "pipe_mgr_get_entry_count sess=5 pipe=0xffff tbl=0x100002c a0=1 a1=3 ptr=w0"},
      {kMat, CALL(pipe_mgr_tbl_set_property(6, 1, kTbl, 11, 12, 13, 4)),
       "pipe_mgr_tbl_set_property sess=6 dev=1 pipe=0xffff tbl=0x100002c flags=4 a0=11 a1=12 a2=13"},
      {kMat, CALL(pipe_mgr_tbl_get_property(6, 0, kTbl, 2, &o.w[0], &o.w[1])),
       "pipe_mgr_tbl_get_property sess=6 pipe=0xffff tbl=0x100002c a0=2 a1=1 a2=7 ptr=w0"},
      {kMat, CALL(pipe_register_mat_update_cb(6, 2, kTbl, count_update, &g_cookie)),
       "pipe_register_mat_update_cb sess=6 dev=2 pipe=0xffff tbl=0x100002c " + cb_words + "ptr=cookie"},
      {0, CALL(bf_drv_register("d", o.w)), "bf_drv_register a0=2 text=d ptr=w0"},
      {0, CALL(bf_drv_deregister(1)), "bf_drv_deregister a0=1"},
      {0, CALL(bf_drv_client_register_callbacks(1, &g_cbs, 5)), "bf_drv_client_register_callbacks a0=1 a1=5 ptr=cbs"},
  };
}

TEST_F(RecordingTest, EachCallIsRecordedWithItsArgumentsAndResults) {
  std::vector<std::pair<Call, std::string>> rows;
  for (const Op &op : ops()) rows.emplace_back(op.call, op.record);
  // Refused calls, and what is 0 when nothing was found or written.
  rows.insert(rows.end(),
              {{CALL(add({key(1), kMask4, 1, 5}, o.w)),
                "pipe_mgr_mat_ent_add st=4 sess=5 pipe=0xffff tbl=0x100002c act=0x2000006e match action ptr=w0"},
               {CALL(pipe_mgr_mat_ent_del(9, 1, kTbl, 3, 0)),
                "pipe_mgr_mat_ent_del st=6 sess=9 dev=1 pipe=0xffff tbl=0x100002c ent=3"},
               {[](Out &) {
                  drvm_set_initial_default(0, kTbl, kAct + 9, bare());
                  return pipe_mgr_mat_tbl_default_entry_reset(3, tgt(), kTbl, 0);
                },
                "pipe_mgr_mat_tbl_default_entry_reset sess=3 pipe=0xffff tbl=0x100002c act=0x20000077 ent=4"},
               {CALL(pipe_mgr_get_next_entry_handles(5, kTbl, tgt(), 3, 4, o.w)),
                "pipe_mgr_get_next_entry_handles st=10 sess=5 pipe=0xffff tbl=0x100002c ent=3 a0=4 ptr=w0"},
               {CALL(bf_drv_register(nullptr, o.w)), "bf_drv_register st=3 ptr=w0"}});
  for (const auto &[call, want] : rows) {
    SCOPED_TRACE(want);
    Restart();
    Out o;
    const bf_status_t st = call(o);
    ASSERT_EQ(drvm_call_count(), 1u);
    EXPECT_EQ(drvm_call(0)->status, st);
    EXPECT_EQ(fields(*drvm_call(0), o), want);
  }
}

TEST_F(MatCallTest, PassThroughAnswersEveryTableFunctionAtOnce) {
  const std::string before = state();
  drvm_fail_next("pipe_mgr_mat_ent_del", BF_INJECTED_FAULT);
  drvm_set_passthrough(1);
  uint32_t running = 0;
  for (const Op &op : ops()) {
    Out o;
    if (!(op.flags & kMat)) continue;
    EXPECT_EQ(op.call(o), BF_SUCCESS) << op.fn();
    if (op.flags & kHdlOut) {
      EXPECT_EQ(std::exchange(o.w[0], kUnset), ++running) << op.fn();  // one running count
    }
    EXPECT_EQ(o.written(), "") << op.fn();
  }
  Out o;  // nothing is looked at; a null handle pointer skips the write but not the count
  EXPECT_EQ(o.rb.get(77), BF_SUCCESS);
  EXPECT_EQ(pipe_mgr_get_first_entry_handle(1, kTbl, tgt(), nullptr), BF_SUCCESS);
  EXPECT_EQ(pipe_mgr_get_first_entry_handle(1, kTbl, tgt(), &o.w[1]), BF_SUCCESS);
  EXPECT_EQ(std::exchange(o.w[1], kUnset), running + 2);
  EXPECT_EQ(o.written(), "");
  drvm_set_passthrough(0);
  EXPECT_EQ(drvm_call_count(), 0u);
  EXPECT_EQ(g_updates, 0);
  EXPECT_EQ(state(), before);
  EXPECT_EQ(del(1), BF_INJECTED_FAULT);  // the queued refusal waited
  drvm_set_passthrough(1);
  drvm_reset();  // turns pass-through off and restarts its count
  uint32_t h = 0;
  ASSERT_EQ(add({key(1), kMask4}, &h), BF_SUCCESS);
  EXPECT_EQ(drvm_entry_count(0, kTbl), 1u);
  drvm_set_passthrough(1);
  ASSERT_EQ(add({key(1), kMask4}, &h), BF_SUCCESS);
  EXPECT_EQ(h, 1u);
}

// ---- Every documented refusal ----

struct Refusal {
  std::string what;
  bf_status_t st;
  Call call;
  bool recorded;  // a driver call (drvm_* calls are not recorded)
  Call retry;     // if set, then succeeds
};

std::vector<Refusal> refusals() {
  std::vector<Refusal> v;
  auto row = [&v](std::string what, bf_status_t st, Call call, bool recorded = true, Call retry = nullptr) {
    v.push_back({std::move(what), st, std::move(call), recorded, std::move(retry)});
  };
  // A queued fault of each driver function; it is used up by that call.
  for (const Op &op : ops())
    row(
        op.fn() + ": a queued fault", BF_INJECTED_FAULT,
        [op](Out &o) {
          drvm_fail_next(op.fn().c_str(), BF_INJECTED_FAULT);
          return op.call(o);
        },
        true, op.call);
  // By handle: each handle that names no entry of the table on the device.
  struct Hdl {
    const char *what;
    uint32_t hdl, tbl;
    bf_dev_id_t dev;
  };
  const Hdl handles[] = {{"handle 0", 0, kTbl, 0},
                         {"a handle never issued", 99, kTbl, 0},
                         {"a deleted handle", 6, kTbl, 0},
                         {"another table's entry", 5, kTbl, 0},
                         {"another device", 1, kTbl, 1},
                         {"the default entry's handle", 4, kTbl, 0},
                         {"another table's default handle", 4, kTbl + 1, 0}};
  const std::pair<std::string, std::function<bf_status_t(const Hdl &, Out &)>> by_handle[] = {
      {"set_action", [](auto &h, auto &) { return set_action(h.hdl, bare(), kAct, h.tbl, h.dev); }},
      {"del", [](auto &h, auto &) { return del(h.hdl, h.tbl, h.dev); }},
      {"get_entry", [](auto &h, auto &o) { return o.rb.get(h.hdl, h.tbl, h.dev); }},
      {"get_next_entry_handles",
       [](auto &h, auto &o) { return pipe_mgr_get_next_entry_handles(1, h.tbl, tgt(h.dev), h.hdl, 4, o.w); }}};
  for (const auto &f : by_handle)
    for (const Hdl &h : handles)
      if (!(f.first == "get_entry" && h.hdl == 4 && h.tbl == kTbl))  // that reads the default entry
        row(f.first + ": " + h.what, BF_OBJECT_NOT_FOUND, [call = f.second, h](Out &o) { return call(h, o); });

  // By key: entry 1's key (key(1), priority 1, partition 5), edited; the status of the by-key
  // functions, and of an add (0: the add is no refusal).
  struct Key {
    const char *what;
    bf_status_t st, add_st;
    uint32_t tbl;
    bf_dev_id_t dev;
    std::function<void(Request &)> edit;
  };
  const Key keys[] = {
      {"as added", BF_SUCCESS, BF_ALREADY_EXISTS, kTbl, 0, [](Request &) {}},
      {"another priority", BF_KEY_NOT_FOUND, 0, kTbl, 0, [](Request &k) { k.match.priority = 2; }},
      {"another partition", BF_KEY_NOT_FOUND, 0, kTbl, 0, [](Request &k) { k.match.partition_index = 4; }},
      {"another mask", BF_KEY_NOT_FOUND, 0, kTbl, 0, [](Request &k) { k.mask[0] = 0x7F; }},
      {"another value", BF_KEY_NOT_FOUND, 0, kTbl, 0, [](Request &k) { k.value[0] = 0x80; }},
      {"another device", BF_KEY_NOT_FOUND, 0, kTbl, 1, [](Request &) {}},
      {"a table never added to", BF_KEY_NOT_FOUND, 0, kTbl + 2, 0, [](Request &) {}},
      {"a table never added to, other sizes", BF_KEY_NOT_FOUND, 0, kTbl + 2, 0,
       [](Request &k) { k.match.num_match_bytes = 3; }},
      {"other num_match_bytes", BF_INVALID_ARG, BF_INVALID_ARG, kTbl, 0,
       [](Request &k) { k.match.num_match_bytes = 3; }},
      {"other num_valid_match_bits (checked before the key)", BF_INVALID_ARG, BF_INVALID_ARG, kTbl, 0,
       [](Request &k) { k.match.num_valid_match_bits = 32; }},
      {"a null value image", BF_INVALID_ARG, BF_INVALID_ARG, kTbl, 0,
       [](Request &k) { k.match.match_value_bytes = nullptr; }},
      {"a null mask image, another device", BF_INVALID_ARG, BF_INVALID_ARG, kTbl, 1,
       [](Request &k) { k.match.match_mask_bytes = nullptr; }}};
  const std::pair<std::string, std::function<bf_status_t(const Request &, const Key &, Out &)>> by_key[] = {
      {"add", [](auto &r, auto &k, auto &o) { return add(r, &o.w[0], k.tbl, k.dev); }},
      {"set_action_by_match_spec",
       [](auto &r, auto &k, auto &) { return set_action_by_key(r, &r.action, kAct + 1, k.tbl, k.dev); }},
      {"del_by_match_spec", [](auto &r, auto &k, auto &) { return del_by_key(r, k.tbl, k.dev); }},
      {"match_spec_to_ent_hdl", [](auto &r, auto &k, auto &o) { return find_key(r, &o.w[0], k.tbl, k.dev); }}};
  for (const auto &f : by_key)
    for (const Key &k : keys)
      if (bf_status_t st = f.first == "add" ? k.add_st : k.st)
        row(f.first + ": " + k.what, st, [call = f.second, k](Out &o) {
          Request r(key(1), kMask4, 1, 5);
          k.edit(r);
          return call(r, k, o);
        });
  REFUSE(BF_INVALID_ARG, pipe_mgr_mat_ent_add(1, tgt(), kTbl, nullptr, kAct, bare(), 0, 0, &o.w[0]));
  REFUSE(BF_INVALID_ARG, add({key(20), kMask4}, nullptr));  // add: a null handle pointer
  REFUSE(BF_INVALID_ARG, pipe_mgr_mat_ent_set_action_by_match_spec(1, tgt(), kTbl, nullptr, 1, bare(), 0));
  REFUSE(BF_INVALID_ARG, pipe_mgr_mat_ent_del_by_match_spec(1, tgt(), kTbl, nullptr, 0));
  REFUSE(BF_INVALID_ARG, pipe_mgr_match_spec_to_ent_hdl(1, tgt(), kTbl, nullptr, &o.w[0], false));
  REFUSE(BF_INVALID_ARG, find_key({key(1), kMask4, 1, 5}, nullptr));  // match_spec_to_ent_hdl: a null handle pointer

  // Action records the model cannot store, sent with entry 1's key or handle (checked after them).
  const std::pair<std::string, std::function<pipe_action_spec_t *(Request &)>> actions[] = {
      {"a null action record", [](Request &) -> pipe_action_spec_t * { return nullptr; }},
      {"resource_count over 4",
       [](Request &r) {
         r.action.resource_count = 5;
         return &r.action;
       }},
      {"a null action image", [](Request &r) {
         r.action.act_data.action_data_bytes = nullptr;
         return &r.action;
       }}};
  const std::pair<std::string, std::function<bf_status_t(const Request &, pipe_action_spec_t *, Out &)>> takers[] = {
      {"add", [](auto &r, auto a, auto &o) { return pipe_mgr_mat_ent_add(1, tgt(), kTbl, &r.match, 1, a, 0, 0, o.w); }},
      {"set_action", [](auto &, auto a, auto &) { return set_action(1, a, kAct + 1); }},
      {"set_action of an unknown handle", [](auto &, auto a, auto &) { return set_action(99, a, kAct); }},
      {"set_action_by_match_spec", [](auto &r, auto a, auto &) { return set_action_by_key(r, a, kAct + 1); }},
      {"default_entry_set",
       [](auto &, auto a, auto &o) { return pipe_mgr_mat_default_entry_set(1, tgt(), kTbl, 1, a, 0, &o.w[0]); }},
      {"drvm_set_initial_default", [](auto &, auto a, auto &) { return drvm_set_initial_default(0, kTbl, 1, a); }}};
  for (const auto &t : takers)
    for (const auto &a : actions)
      row(
          t.first + ": " + a.first, BF_INVALID_ARG,
          [call = t.second, edit = a.second](Out &o) {
            Request r(key(1), kMask4, 1, 5);
            return call(r, edit(r), o);
          },
          t.first != "drvm_set_initial_default");

  // Reading back into the caller's records and buffers.
  const std::pair<std::string, Call> readers[] = {{"get_entry", CALL(o.rb.get(1))},
                                                  {"get_default_entry", CALL(o.rb.get_default())},
                                                  {"get_entry of the default", CALL(o.rb.get(4))}};
  for (const auto &r : readers) {
    row(r.first + ": a buffer too small", BF_NO_SPACE, [read = r.second](Out &o) {
      o.rb.action.act_data.num_action_data_bytes = 0;
      return read(o);
    });
    row(r.first + ": a null image buffer", BF_NO_SPACE, [read = r.second](Out &o) {
      o.rb.action.act_data.action_data_bytes = nullptr;
      return read(o);
    });
  }
  row("get_entry: other sizes (checked before the buffer)", BF_INVALID_ARG, [](Out &o) {
    o.rb.match.num_match_bytes = 3;
    o.rb.action.act_data.num_action_data_bytes = 0;
    return o.rb.get(1);
  });
  row("get_entry: a null value buffer", BF_INVALID_ARG, [](Out &o) {
    o.rb.match.match_value_bytes = nullptr;
    return o.rb.get(1);
  });
  REFUSE(BF_INVALID_ARG, pipe_mgr_get_entry(1, kTbl, tgt(), 1, nullptr, &o.rb.action, &o.rb.act, 0, 0, nullptr));
  REFUSE(BF_INVALID_ARG, pipe_mgr_get_entry(1, kTbl, tgt(), 1, &o.rb.match, nullptr, &o.rb.act, 0, 0, nullptr));
  REFUSE(BF_INVALID_ARG, pipe_mgr_get_entry(1, kTbl, tgt(), 99, &o.rb.match, &o.rb.action, nullptr, 0, 0, nullptr));
  REFUSE(BF_OBJECT_NOT_FOUND, o.rb.get_default(kTbl + 1));  // get_default_entry: unset
  REFUSE(BF_INVALID_ARG, pipe_mgr_table_get_default_entry(1, tgt(), kTbl, nullptr, &o.rb.act, 0, 0, nullptr));
  REFUSE(BF_INVALID_ARG, pipe_mgr_table_get_default_entry(1, tgt(), kTbl, &o.rb.action, nullptr, 0, 0, nullptr));

  // Default entries, walks, counts, properties, clients.
  REFUSE(BF_INVALID_ARG, pipe_mgr_mat_default_entry_set(1, tgt(), kTbl, kDefAct, bare(), 0, nullptr));
  REFUSE(BF_INVALID_ARG, pipe_mgr_table_get_default_entry_handle(1, tgt(), kTbl + 1, nullptr));
  REFUSE(BF_INVALID_ARG, pipe_mgr_get_first_entry_handle(1, kTbl, tgt(), nullptr));
  REFUSE(BF_END_OF_WALK, pipe_mgr_get_first_entry_handle(1, kTbl + 2, tgt(), &o.w[0]));
  for (int n : {0, -1})
    row("get_next_entry_handles: n " + std::to_string(n), BF_INVALID_ARG,
        [n](Out &o) { return pipe_mgr_get_next_entry_handles(1, kTbl, tgt(), 1, n, o.w); });
  REFUSE(BF_INVALID_ARG, pipe_mgr_get_next_entry_handles(1, kTbl, tgt(), 1, 4, nullptr));
  REFUSE(BF_INVALID_ARG, pipe_mgr_get_entry_count(1, tgt(), kTbl, false, nullptr));  // get_entry_count: a null pointer
  for (Hdl p : {Hdl{"another code", 3, kTbl, 0}, {"another table", 2, kTbl + 1, 0}, {"another device", 2, kTbl, 1}})
    row(std::string("get_property: ") + p.what, BF_OBJECT_NOT_FOUND,
        [p](Out &o) { return pipe_mgr_tbl_get_property(1, p.dev, p.tbl, p.hdl, &o.w[0], &o.w[1]); });
  REFUSE(BF_INVALID_ARG, pipe_mgr_tbl_get_property(1, 0, kTbl, 2, nullptr, &o.w[1]));
  REFUSE(BF_ALREADY_EXISTS, bf_drv_register("c", &o.w[0]));                     // register: a name registered
  REFUSE(BF_INVALID_ARG, bf_drv_register(nullptr, &o.w[0]));                    // register: a null name
  REFUSE(BF_INVALID_ARG, bf_drv_register("d", nullptr));                        // register: a null handle pointer
  REFUSE(BF_OBJECT_NOT_FOUND, bf_drv_deregister(2));                            // deregister: an unknown client
  REFUSE(BF_INVALID_ARG, bf_drv_client_register_callbacks(1, nullptr, 3));      // register_callbacks: a null table
  REFUSE(BF_OBJECT_NOT_FOUND, bf_drv_client_register_callbacks(2, &g_cbs, 3));  // register_callbacks: an unknown client
  return v;
}

TEST_F(MatCallTest, EachRefusalReturnsItsStatusAndChangesNothing) {
  static_assert(BF_NO_SYS_RESOURCES == 2 && BF_INVALID_ARG == 3 && BF_ALREADY_EXISTS == 4 && BF_OBJECT_NOT_FOUND == 6 &&
                    BF_KEY_NOT_FOUND == 7 && BF_NO_SPACE == 9 && BF_END_OF_WALK == 10,
                "the statuses as documented");
  for (const Refusal &r : refusals()) {
    SCOPED_TRACE(r.what);
    Restart();
    const std::string before = state();
    Out o;
    EXPECT_EQ(r.call(o), r.st);
    EXPECT_EQ(o.written(), "");
    EXPECT_EQ(g_updates, 0);
    ASSERT_EQ(drvm_call_count(), r.recorded ? 1u : 0u);
    EXPECT_TRUE(!r.recorded || drvm_call(0)->status == r.st);
    EXPECT_EQ(state(), before);
    uint32_t h = 0;  // nor did it use an entry or client handle
    EXPECT_EQ(add({key(30), kMask4}, &h), BF_SUCCESS);
    EXPECT_EQ(h, 7u);
    EXPECT_EQ(bf_drv_register("z", &h), BF_SUCCESS);
    EXPECT_EQ(h, 2u);
    Out again;
    EXPECT_TRUE(!r.retry || r.retry(again) == BF_SUCCESS);
  }
}

// Every driver function, on a good call, with each allocation of the model's own memory failing in
// turn (the first, the second, ... until the call needs no more): BF_NO_SYS_RESOURCES, the model
// as it was, nothing written, nothing reported, no handle used; the call recorded with that status
// unless the record itself could not be made.
using MatAllocationFailureTest = MatCallTest;
TEST_F(MatAllocationFailureTest, EachCallAnswersNoSysResourcesAndChangesNothing) {
  struct Case {
    std::string what;
    Call call;
    std::function<void()> then;  // more checks after a failed call
  };
  std::vector<Case> cases;
  for (const Op &op : ops()) cases.push_back({op.fn(), op.call, nullptr});
  // The first add to a table and to a device make room for them: nothing of that stays either, the
  // key size of the table included.
  static const Request k5({1, 2, 3, 4, 5}, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF}), k2({1, 2}, {0xFF, 0xFF});
  cases.push_back({"the first add to a table", CALL(add(k5, &o.w[0], kTbl + 2)), [] {
                     uint32_t h = 0;
                     EXPECT_EQ(add(k2, &h, kTbl + 2), BF_SUCCESS) << "the table's key size is still free";
                     EXPECT_EQ(drvm_entry_count(0, kTbl + 2), 1u);
                   }});
  cases.push_back({"the first add to a device", CALL(add(k5, &o.w[0], kTbl, 3)), [] {
                     uint32_t h = 0;
                     EXPECT_EQ(add(k2, &h, kTbl, 3), BF_SUCCESS);
                     EXPECT_EQ(h, 1u) << "the device's first handle";
                   }});
  for (const Case &c : cases) {
    Restart();
    Out plain;
    const bf_status_t normal = c.call(plain);
    const auto [st, failures] = alloc_fault::sweep<Out>(
        c.what, [&] { Restart(); }, c.call, [&] { return state(); },
        [&] {
          EXPECT_EQ(g_updates, 0);
          uint32_t h = 0;  // nor did it use a handle
          EXPECT_EQ(add({key(30), kMask4}, &h), BF_SUCCESS);
          EXPECT_EQ(h, 7u);
          EXPECT_EQ(bf_drv_register("z", &h), BF_SUCCESS);
          EXPECT_EQ(h, 2u);
          if (c.then) c.then();
        });
    EXPECT_EQ(st, normal);
    EXPECT_GT(failures, 0u) << c.what << " allocates at least its record";
  }
}

TEST_F(RecordingTest, RecordsHoldTheirOwnCopiesAtFixedAddresses) {
  char name[] = "client_x";
  uint32_t hdl = 0;
  Request r(key(0x0A0B0C0D), {0x01, 0xFF, 0xFF, 0x00}, 7, 0, {0x11, 0x22, 0x33});
  r.action.resources[0].data.meter.cir = 1000;
  const std::string key_sent = describe(r.match), action_sent = describe(r.action);
  Readback rb(4, 6);
  ASSERT_EQ(bf_drv_register(name, &hdl), BF_SUCCESS);
  ASSERT_EQ(add(r, &hdl), BF_SUCCESS);
  ASSERT_EQ(rb.get(hdl), BF_SUCCESS);
  const drvm_call_t *reg = drvm_call(0), *c = drvm_call(1), *g = drvm_call(2);
  name[0] = 'Z';  // the caller reuses its buffers and records at once
  for (Bytes *b : {&r.value, &r.mask, &r.adata, &rb.value, &rb.image}) std::fill(b->begin(), b->end(), 0xEE);
  r.match = {};
  r.action = {};
  for (int i = 0; i < 1000; ++i) rb.get(hdl);  // and many more calls are recorded
  EXPECT_EQ(drvm_call(1), c);
  EXPECT_STREQ(reg->text, "client_x");
  EXPECT_NE(c->match.match_value_bytes, r.value.data());
  EXPECT_EQ(describe(c->match), key_sent);
  EXPECT_EQ(describe(c->action), action_sent);
  EXPECT_EQ(bytes_at(g->match.match_value_bytes, 4), Bytes(4, 0xA5));  // a read-back: as passed, before filling
  EXPECT_EQ(bytes_at(g->action.act_data.action_data_bytes, g->action.act_data.num_action_data_bytes), Bytes(6, 0xA5));
  static uint8_t some_byte;  // null images stay null and empty ones non-null, in refused calls too
  Request n(key(1), kMask4, 0, 0, {});
  n.match.match_mask_bytes = nullptr;
  n.action.act_data.action_data_bytes = &some_byte;
  EXPECT_EQ(add(n, &hdl), BF_INVALID_ARG);
  const drvm_call_t *last = drvm_last_call(nullptr);
  EXPECT_EQ(last->match.match_mask_bytes, nullptr);
  EXPECT_NE(last->match.match_value_bytes, nullptr);
  EXPECT_NE(last->action.act_data.action_data_bytes, nullptr);
  EXPECT_NE(last->action.act_data.action_data_bytes, &some_byte);
}

TEST_F(RecordingTest, QueriesSwitchesAndQueuedRefusals) {
  uint32_t h = 0;
  ASSERT_EQ(bf_drv_register("a", &h), BF_SUCCESS);
  ASSERT_EQ(add({key(20), kMask4}, &h), BF_SUCCESS);
  EXPECT_EQ(add({key(20), kMask4}, &h), BF_ALREADY_EXISTS);
  ASSERT_EQ(bf_drv_deregister(2), BF_SUCCESS);
  EXPECT_EQ(drvm_call_count(), 4u);
  EXPECT_EQ(drvm_count_calls(nullptr), 4u);
  EXPECT_EQ(drvm_count_calls("pipe_mgr_mat_ent_add"), 2u);
  EXPECT_EQ(drvm_count_calls("pipe_mgr_mat_ent_del"), 0u);
  EXPECT_STREQ(drvm_call(0)->fn, "bf_drv_register");
  EXPECT_EQ(drvm_call(4), nullptr);
  EXPECT_EQ(drvm_last_call("pipe_mgr_mat_ent_add"), drvm_call(2));
  EXPECT_EQ(drvm_last_call(nullptr), drvm_call(3));
  EXPECT_EQ(drvm_last_call("pipe_mgr_mat_ent_del"), nullptr);
  drvm_clear_calls();
  EXPECT_EQ(drvm_call(0), nullptr);
  drvm_set_recording(0);  // calls are served without records, until a reset
  ASSERT_EQ(add({key(21), kMask4}, &h), BF_SUCCESS);
  EXPECT_EQ(drvm_call_count(), 0u);
  EXPECT_EQ(drvm_entry_count(0, kTbl), 5u);  // the store is left alone by clearing the records
  drvm_reset();
  ASSERT_EQ(add({key(21), kMask4}, &h), BF_SUCCESS);
  EXPECT_EQ(drvm_call_count(), 1u);
  // Refusals queue per function, in order; other functions go on; a reset drops them.
  drvm_fail_next("pipe_mgr_mat_ent_add", BF_NO_SPACE);
  drvm_fail_next("bf_drv_register", BF_NO_SYS_RESOURCES);
  drvm_fail_next("pipe_mgr_mat_ent_add", BF_UNEXPECTED);
  EXPECT_EQ(add({key(22), kMask4}, &h), BF_NO_SPACE);
  EXPECT_EQ(add({key(22), kMask4}, &h), BF_UNEXPECTED);
  EXPECT_EQ(add({key(22), kMask4}, &h), BF_SUCCESS);
  drvm_fail_next("pipe_mgr_mat_ent_add", BF_NO_SPACE);
  drvm_reset();
  EXPECT_EQ(bf_drv_register("a", &h), BF_SUCCESS);
  EXPECT_EQ(add({key(22), kMask4}, &h), BF_SUCCESS);
}

}  // namespace
