// The model's action profiles: on one world of members, groups and bound entries, what each call
// records, pass-through, every documented refusal (exact status, nothing written, nothing changed,
// the call recorded), each call with each allocation of the model's own memory failing in turn, and
// the behaviour of members, groups, states, picks, fallbacks, pipes, walks, words, bindings,
// pairings, callbacks and the hitless replay.
#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "alloc_fault.h"
#include "test_util.h"

namespace {

constexpr uint32_t kA1 = 0x2000100, kS1 = 0x3000100, kM1 = 0x1000100;  // a declared profile
constexpr uint32_t kA2 = 0x2000101, kS2 = 0x3000101;                   // one known by use
constexpr uint32_t kAct1 = 0x20000011, kAct2 = 0x20000012, kAct4 = 0x20000021;
constexpr uint32_t kUnset = 0xBEEFu;

// Member and group handles of the world, from the device's one running count.
enum : uint32_t { m1 = 1, m2, m3, m4, g1, g2, g3, e1, d1, kNext };

struct Image {
  Bytes bytes;
  pipe_action_spec_t spec{};
  explicit Image(Bytes b, uint8_t type = 0) : bytes(std::move(b)) {
    spec.action_data_type = type;
    spec.act_data = {static_cast<uint16_t>(bytes.size() * 8), static_cast<uint16_t>(bytes.size()), bytes.data()};
  }
  Image(const Image &) = delete;
};

pipe_action_spec_t binding(uint8_t type, uint32_t hdl) {
  pipe_action_spec_t a{};
  a.action_data_type = type;
  (type == PIPE_ACTION_MBR_TYPE ? a.member_hdl : a.group_hdl) = hdl;
  return a;
}

// What the callbacks were told, in order.
std::vector<std::string> g_told;
// Each stops failing allocations first (see ProfileAllocationFailureTest): it runs after a call succeeded.
void adt_cb(bf_dev_id_t dev, pipe_adt_tbl_hdl_t t, pipe_adt_update_type_t type, pipe_adt_ent_hdl_t m,
            pipe_act_fn_hdl_t act, void *) {
  alloc_fault::disarm();
  g_told.push_back(cat("adt ", dev, " ", t, " ", uint32_t(type), " ", m, " ", act));
}
void sel_cb(bf_dev_id_t dev, pipe_sel_tbl_hdl_t t, pipe_sel_update_type_t type, pipe_sel_grp_hdl_t g,
            pipe_adt_ent_hdl_t m, void *) {
  alloc_fault::disarm();
  g_told.push_back(cat("sel ", dev, " ", t, " ", uint32_t(type), " ", g, " ", m));
}
void tbl_cb(bf_dev_id_t dev, pipe_sel_tbl_hdl_t t, pipe_sel_grp_hdl_t g, pipe_adt_ent_hdl_t m, bool add, void *) {
  alloc_fault::disarm();
  g_told.push_back(cat("mbr ", dev, " ", t, " ", g, " ", m, add ? " +" : " -"));
}

// A hitless replay that only counts the facts, and a cookie.
int g_replays = 0, g_cookie;
void count_replay(pipe_sess_hdl_t, bf_dev_id_t, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t) { ++g_replays; }

// The world, on device 0. Profile (kA1, kS1, kM1) is declared; kA2 and kS2 are paired by use.
// Members m1 (kAct1, image 0102), m2 (kAct2, no image), m3 (kAct1, pipe 1) of kA1, m4 (kAct4) of kA2.
// Groups g1 (max 4: m1, m2 inactive) and g2 (max 1, pipe 1: m3 inactive) of kS1, g3 (max 2: m4)
// of kS2. Entry e1 of kM1 (key 0a0b) binds m1; kM1's default entry (d1) binds g1. m2 is kS1's
// fallback on pipe 0. kA1 and kS1 have callbacks. No call is recorded, nothing told.
class ProfileTest : public ModelTest {
 protected:
  void SetUp() override {
    ModelTest::SetUp();
    ASSERT_EQ(drvm_set_profile(kA1, kS1, kM1), BF_SUCCESS);
    uint32_t h = 0;
    Image i1({1, 2}), i2({});
    ASSERT_EQ(pipe_mgr_adt_ent_add(1, tgt(), kA1, kAct1, 0, &i1.spec, &h, 0), BF_SUCCESS);
    ASSERT_EQ(pipe_mgr_adt_ent_add(1, tgt(), kA1, kAct2, 0, &i2.spec, &h, 0), BF_SUCCESS);
    ASSERT_EQ(pipe_mgr_adt_ent_add(1, tgt(0, 1), kA1, kAct1, 0, &i1.spec, &h, 0), BF_SUCCESS);
    ASSERT_EQ(pipe_mgr_adt_ent_add(1, tgt(), kA2, kAct4, 0, &i1.spec, &h, 0), BF_SUCCESS);
    ASSERT_EQ(pipe_mgr_sel_grp_add(1, tgt(), kS1, 0, 4, 0xdeadbeef, &h, 0), BF_SUCCESS);
    ASSERT_EQ(pipe_mgr_sel_grp_add(1, tgt(0, 1), kS1, 0, 1, 0xdeadbeef, &h, 0), BF_SUCCESS);
    ASSERT_EQ(pipe_mgr_sel_grp_add(1, tgt(), kS2, 0, 2, 0xdeadbeef, &h, 0), BF_SUCCESS);
    ASSERT_EQ(pipe_mgr_sel_grp_mbr_add(1, 0, kS1, g1, kAct1, m1, 0), BF_SUCCESS);
    ASSERT_EQ(pipe_mgr_sel_grp_mbr_add(1, 0, kS1, g1, kAct2, m2, 0), BF_SUCCESS);
    ASSERT_EQ(pipe_mgr_sel_grp_mbr_disable(1, 0, kS1, g1, m2, 0), BF_SUCCESS);
    ASSERT_EQ(pipe_mgr_sel_grp_mbr_add(1, 0, kS1, g2, kAct1, m3, 0), BF_SUCCESS);
    ASSERT_EQ(pipe_mgr_sel_grp_mbr_add(1, 0, kS2, g3, kAct4, m4, 0), BF_SUCCESS);
    pipe_action_spec_t to_m1 = binding(PIPE_ACTION_MBR_TYPE, m1), to_g1 = binding(PIPE_ACTION_GRP_TYPE, g1);
    ASSERT_EQ(pipe_mgr_mat_ent_add(1, tgt(), kM1, match_of({{0x0A, 0x0B}, {0xFF, 0xFF}}), kAct1, &to_m1, 0, 0, &h),
              BF_SUCCESS);
    ASSERT_EQ(h, e1);
    ASSERT_EQ(pipe_mgr_mat_default_entry_set(1, tgt(), kM1, kAct1, &to_g1, 0, &h), BF_SUCCESS);
    ASSERT_EQ(h, d1);
    ASSERT_EQ(pipe_mgr_sel_grp_mbr_disable(1, 0, kS1, g2, m3, 0), BF_SUCCESS);
    ASSERT_EQ(pipe_mgr_sel_fallback_mbr_set(1, tgt(0, 0), kS1, m2, 0), BF_SUCCESS);
    ASSERT_EQ(pipe_register_adt_update_cb(1, 0, kA1, adt_cb, nullptr), BF_SUCCESS);
    ASSERT_EQ(pipe_register_sel_update_cb(1, 0, kS1, sel_cb, nullptr), BF_SUCCESS);
    ASSERT_EQ(pipe_mgr_sel_tbl_register_cb(1, 0, kS1, tbl_cb, nullptr), BF_SUCCESS);
    drvm_clear_calls();
    g_told.clear();
    g_replays = 0;
  }
  void Restart() {
    drvm_reset();
    SetUp();
  }

  // Everything the world holds, as text.
  static std::string state() {
    std::string s;
    for (uint32_t adt : {kA1, kA2})
      for (uint32_t h = 1; h < kNext + 2; ++h) {
        uint32_t act = 0, pipe = 0, refs = 0;
        pipe_action_spec_t a;
        if (drvm_member_get(0, adt, h, &act, &a, &pipe, &refs) == BF_SUCCESS)
          s += cat("member ", h, " act=", act, " pipe=", pipe, " refs=", refs, " ", describe(a), "\n");
      }
    for (uint32_t sel : {kS1, kS2}) {
      for (uint32_t h = 1; h < kNext + 2; ++h) {
        uint32_t max = 0, pipe = 0, n = 0;
        if (drvm_group_get(0, sel, h, &max, &pipe, &n) != BF_SUCCESS) continue;
        s += cat("group ", h, " max=", max, " pipe=", pipe, ":");
        for (size_t i = 0; i < n; ++i) {
          uint32_t m = 0;
          int active = 0;
          drvm_group_member(0, sel, h, i, &m, &active);
          s += cat(" ", m, active ? "" : "(off)");
        }
        s += "\n";
      }
      for (uint32_t pipe : {0xFFFFu, 0u, 1u}) {
        uint32_t m = 0;
        if (drvm_fallback_member(0, sel, pipe, &m) == BF_SUCCESS) s += cat("fallback ", pipe, "=", m, "\n");
      }
    }
    for (uint32_t t : {kA1, kA2, kS1, kS2}) {
      pipe_adt_update_cb a = nullptr;
      pipe_sel_update_cb u = nullptr;
      pipe_sel_tbl_update_cb m = nullptr;
      void *ca = nullptr, *cu = nullptr, *cm = nullptr;
      drvm_adt_update_cb(0, t, &a, &ca);
      drvm_sel_update_cb(0, t, &u, &cu);
      drvm_sel_tbl_cb(0, t, &m, &cm);
      s += cat("callbacks ", t, ":", a == adt_cb, ca == &g_cookie, u == sel_cb, cu == &g_cookie, m == tbl_cb,
               cm == &g_cookie, "\n");
    }
    s += table_state(0, kM1);
    s += cat("pairs ", drvm_profile_adt(kS1), " ", drvm_profile_adt(kS2), " ", drvm_profile_mat(kA1), " ",
             drvm_profile_mat(kA2));
    return s;
  }
};

// The caller's output memory of one call, unwritten.
struct Out {
  uint32_t w[4] = {kUnset, kUnset, kUnset, kUnset};
  uint8_t bytes[4] = {0xA5, 0xA5, 0xA5, 0xA5};
  uint8_t image[8] = {0xA5, 0xA5, 0xA5, 0xA5, 0xA5, 0xA5, 0xA5, 0xA5};
  pipe_action_data_spec_t data{0, 8, image};
  std::string written() const {
    std::string s;
    for (int i = 0; i < 4; ++i) s += w[i] != kUnset ? cat(" w", i, "=", w[i]) : std::string();
    for (uint8_t b : bytes) s += b != 0xA5 ? " bytes" : "";
    for (uint8_t b : image) s += b != 0xA5 ? " image" : "";
    if (data.num_action_data_bytes != 8 || data.num_valid_action_data_bits != 0) s += " data";
    return s;
  }
};
using Call = std::function<bf_status_t(Out &)>;

uint8_t kHash[3] = {0x01, 0x00, 0x01};

// A call record as text: the function, then every field that is not 0, numbers from 0xffff up in hex;
// the image of its action copy, its byte string, and which of the caller's pointers ptr_arg is.
std::string fields(const drvm_call_t &c, const Out &o) {
  std::string s = c.fn;
  const std::pair<const char *, uint32_t> f[] = {
      {"st", uint32_t(c.status)}, {"sess", c.sess_hdl},  {"dev", c.dev_tgt.device_id}, {"pipe", c.dev_tgt.dev_pipe_id},
      {"tbl", c.tbl_hdl},         {"act", c.act_fn_hdl}, {"flags", c.flags},           {"ent", c.ent_hdl},
      {"a0", c.arg_u32[0]},       {"a1", c.arg_u32[1]},  {"a2", c.arg_u32[2]}};
  char buf[16];
  for (auto [name, v] : f)
    if (v) s += cat(" ", name, "=", (std::snprintf(buf, sizeof buf, v < 0xFFFF ? "%u" : "0x%x", v), buf));
  if (c.has_action)
    s += cat(" action=", hex(c.action.act_data.action_data_bytes, c.action.act_data.num_action_data_bytes));
  if (c.bytes) s += cat(" bytes=", hex(c.bytes, c.num_bytes));
  const std::pair<const void *, const char *> ptrs[] = {
      {nullptr, ""},           {o.w, " ptr=w0"},
      {o.bytes, " ptr=bytes"}, {&o.data, " ptr=data"},
      {&o.w[2], " ptr=w2"},    {&g_cookie, " ptr=cookie"},
      {kHash, " ptr=hash"},    {reinterpret_cast<const void *>(&count_replay), " ptr=replay"}};
  std::string ptr = " ptr=?";
  for (auto p : ptrs) ptr = c.ptr_arg == p.first ? p.second : ptr;
  return s + ptr;
}

// A callback's address as the two words a registration records (the high one is 0 on a 32-bit
// target), as fields() shows them.
template <class Cb>
std::string cb_words(Cb cb) {
  const uint64_t a = reinterpret_cast<uintptr_t>(cb);
  drvm_call_t c{};
  c.fn = "";
  c.arg_u32[0] = uint32_t(a);
  c.arg_u32[1] = uint32_t(a >> 32);
  const std::string f = fields(c, Out{});
  return f.substr(1, f.find(" ptr=") - 1);
}

struct Op {
  bool writes_handle;
  Call call;
  std::string record;  // what fields() shows of its record, starting with the function's name
  std::string fn() const { return record.substr(0, record.find(' ')); }
  // The status it returns in the world (a few of these calls are refusals).
  bf_status_t status() const {
    const size_t at = record.find(" st=");
    return at == std::string::npos ? BF_SUCCESS : std::stoi(record.substr(at + 4));
  }
};

// One call of each action-profile function on the world. None allocates anything of its own.
std::vector<Op> ops() {
  static Image img({7, 8, 9});
  return {
      {true, CALL(pipe_mgr_adt_ent_add(3, tgt(0, 2), kA1, kAct1, kM1, &img.spec, o.w, 5)),
       "pipe_mgr_adt_ent_add sess=3 pipe=2 tbl=0x2000100 act=0x20000011 flags=5 ent=10 a0=0x1000100 action=070809 "
       "ptr=w0"},
      {false, CALL(pipe_mgr_adt_ent_set(3, 0, kA1, m3, kAct2, &img.spec, 1)),
       "pipe_mgr_adt_ent_set sess=3 pipe=0xffff tbl=0x2000100 act=0x20000012 flags=1 ent=3 action=070809"},
      {false, CALL(pipe_mgr_adt_ent_del(3, 0, kA2, m4, 2)),
       "pipe_mgr_adt_ent_del st=11 sess=3 pipe=0xffff tbl=0x2000101 flags=2 ent=4"},
      {false, CALL(pipe_mgr_get_action_data_entry(kA1, tgt(), m1, &o.data, &o.w[0], true)),
       "pipe_mgr_get_action_data_entry pipe=0xffff tbl=0x2000100 act=0x20000011 ent=1 a0=1 a1=8 ptr=data"},
      {true, CALL(pipe_mgr_sel_grp_add(4, tgt(0, 1), kS1, kM1, 9, 0xdeadbeef, o.w, 3)),
       "pipe_mgr_sel_grp_add sess=4 pipe=1 tbl=0x3000100 flags=3 ent=10 a0=0x1000100 a1=9 a2=0xdeadbeef ptr=w0"},
      {false, CALL(pipe_mgr_sel_grp_del(4, 0, kS2, g3, 1)),
       "pipe_mgr_sel_grp_del sess=4 pipe=0xffff tbl=0x3000101 flags=1 ent=7 a0=1"},
      {false, CALL(pipe_mgr_sel_grp_mbr_add(4, 0, kS1, g1, kAct1, m3, 2)),
       "pipe_mgr_sel_grp_mbr_add st=12 sess=4 pipe=0xffff tbl=0x3000100 act=0x20000011 flags=2 ent=5 a0=3"},
      {false, CALL(pipe_mgr_sel_grp_mbr_del(4, 0, kS1, g1, m1, 2)),
       "pipe_mgr_sel_grp_mbr_del sess=4 pipe=0xffff tbl=0x3000100 flags=2 ent=5 a0=1"},
      {false, CALL(pipe_mgr_sel_grp_mbr_enable(4, 0, kS1, g1, m2, 2)),
       "pipe_mgr_sel_grp_mbr_enable sess=4 pipe=0xffff tbl=0x3000100 flags=2 ent=5 a0=2"},
      {false, CALL(pipe_mgr_sel_grp_mbr_disable(4, 0, kS1, g1, m1, 2)),
       "pipe_mgr_sel_grp_mbr_disable sess=4 pipe=0xffff tbl=0x3000100 flags=2 ent=5 a0=1"},
      {false, CALL(pipe_mgr_sel_grp_mbr_state_get(4, 0, kS1, g1, m2, &o.w[0])),
       "pipe_mgr_sel_grp_mbr_state_get sess=4 pipe=0xffff tbl=0x3000100 ent=5 a0=2 a1=1 ptr=w0"},
      {false, CALL(pipe_mgr_sel_grp_mbr_get_from_hash(4, 0, kS1, g1, kHash, 3, &o.w[0])),
       "pipe_mgr_sel_grp_mbr_get_from_hash sess=4 pipe=0xffff tbl=0x3000100 ent=5 a0=3 a1=1 bytes=010001 ptr=hash"},
      {false, CALL(pipe_mgr_get_sel_grp_mbr_count(4, 0, kS1, g1, &o.w[0])),
       "pipe_mgr_get_sel_grp_mbr_count sess=4 pipe=0xffff tbl=0x3000100 ent=5 a0=2 ptr=w0"},
      {false, CALL(pipe_mgr_sel_grp_mbrs_get(4, 0, kS1, g1, 2, &o.w[0], o.bytes, &o.w[2], 6)),
       "pipe_mgr_sel_grp_mbrs_get sess=4 pipe=0xffff tbl=0x3000100 flags=6 ent=5 a0=2 a1=2 ptr=w0"},
      {false, CALL(pipe_mgr_sel_fallback_mbr_set(4, tgt(0, 1), kS1, m3, 7)),
       "pipe_mgr_sel_fallback_mbr_set sess=4 pipe=1 tbl=0x3000100 flags=7 ent=3"},
      {false, CALL(pipe_mgr_sel_fallback_mbr_reset(4, tgt(0, 0), kS1, 7)),
       "pipe_mgr_sel_fallback_mbr_reset sess=4 tbl=0x3000100 flags=7 ent=2"},
      {false, CALL(pipe_mgr_get_first_group_member(4, kS1, 0, g1, &o.w[0])),
       "pipe_mgr_get_first_group_member sess=4 pipe=0xffff tbl=0x3000100 ent=5 a0=1 ptr=w0"},
      {false, CALL(pipe_mgr_get_next_group_members(4, kS1, 0, g1, m1, 3, o.w)),
       "pipe_mgr_get_next_group_members sess=4 pipe=0xffff tbl=0x3000100 ent=5 a0=1 a1=3 a2=1 ptr=w0"},
      {false, CALL(pipe_mgr_get_word_llp_active_member_count(4, tgt(), kS1, 0, &o.w[0])),
       "pipe_mgr_get_word_llp_active_member_count sess=4 pipe=0xffff tbl=0x3000100 a1=1 ptr=w0"},
      {false, CALL(pipe_mgr_get_word_llp_active_members(4, tgt(), kS1, 0, 2, o.w)),
       "pipe_mgr_get_word_llp_active_members sess=4 pipe=0xffff tbl=0x3000100 a1=2 a2=1 ptr=w0"},
      {false, CALL(pipe_mgr_sel_tbl_register_cb(4, 0, kS2, tbl_cb, &g_cookie)),
       "pipe_mgr_sel_tbl_register_cb sess=4 pipe=0xffff tbl=0x3000101 " + cb_words(tbl_cb) + " ptr=cookie"},
      {false, CALL(pipe_register_adt_update_cb(4, 0, kA2, adt_cb, &g_cookie)),
       "pipe_register_adt_update_cb sess=4 pipe=0xffff tbl=0x2000101 " + cb_words(adt_cb) + " ptr=cookie"},
      {false, CALL(pipe_register_sel_update_cb(4, 0, kS2, sel_cb, &g_cookie)),
       "pipe_register_sel_update_cb sess=4 pipe=0xffff tbl=0x3000101 " + cb_words(sel_cb) + " ptr=cookie"},
      {false, CALL(pipe_register_sel_update_cb(4, 0, kS1, nullptr, &g_cookie)),
       "pipe_register_sel_update_cb sess=4 pipe=0xffff tbl=0x3000100 ptr=cookie"},
      {false, CALL(pipe_mgr_hitless_ha_restore_virtual_dev_state(4, 0, 0xFFFF, 11, 12, count_replay)),
       "pipe_mgr_hitless_ha_restore_virtual_dev_state sess=4 pipe=0xffff a0=11 a1=12 a2=11 ptr=replay"},
  };
}

TEST_F(ProfileTest, EachCallIsRecordedWithItsArgumentsAndResults) {
  for (const Op &op : ops()) {
    SCOPED_TRACE(op.record);
    Restart();
    Out o;
    const bf_status_t st = op.call(o);
    ASSERT_EQ(drvm_call_count(), 1u);
    EXPECT_EQ(drvm_call(0)->status, st);
    EXPECT_EQ(st, op.status());
    EXPECT_EQ(fields(*drvm_call(0), o), op.record);
  }
  // Where a refused call or one that found nothing writes 0.
  const std::pair<Call, std::string> rows[] = {
      {CALL(pipe_mgr_adt_ent_add(3, tgt(), kA1, kAct1, 0, nullptr, o.w, 0)),
       "pipe_mgr_adt_ent_add st=3 sess=3 pipe=0xffff tbl=0x2000100 act=0x20000011 ptr=w0"},
      {CALL(pipe_mgr_adt_ent_del(3, 0, kA1, 99, 0)),
       "pipe_mgr_adt_ent_del st=6 sess=3 pipe=0xffff tbl=0x2000100 ent=99"},
      {CALL(pipe_mgr_sel_grp_add(3, tgt(), kS1, 0, 0, 5, o.w, 0)),
       "pipe_mgr_sel_grp_add st=3 sess=3 pipe=0xffff tbl=0x3000100 a2=5 ptr=w0"},
      {CALL(pipe_mgr_sel_grp_del(3, 0, kS1, g1, 0)),
       "pipe_mgr_sel_grp_del st=11 sess=3 pipe=0xffff tbl=0x3000100 ent=5"},
      {CALL(pipe_mgr_sel_grp_mbr_get_from_hash(3, 0, kS1, g2, kHash, 3, &o.w[0])),
       "pipe_mgr_sel_grp_mbr_get_from_hash st=6 sess=3 pipe=0xffff tbl=0x3000100 ent=6 a0=3 bytes=010001 ptr=hash"},
      {CALL(pipe_mgr_sel_fallback_mbr_reset(3, tgt(0, 1), kS1, 0)),
       "pipe_mgr_sel_fallback_mbr_reset sess=3 pipe=1 tbl=0x3000100"},
      {CALL(pipe_mgr_get_next_group_members(3, kS1, 0, g1, m2, 2, o.w)),
       "pipe_mgr_get_next_group_members st=10 sess=3 pipe=0xffff tbl=0x3000100 ent=5 a0=2 a1=2 ptr=w0"},
      {CALL(pipe_mgr_hitless_ha_restore_virtual_dev_state(3, 0, 2, 0, 0, nullptr)),
       "pipe_mgr_hitless_ha_restore_virtual_dev_state st=3 sess=3 pipe=2"}};
  for (const auto &[call, want] : rows) {
    SCOPED_TRACE(want);
    Restart();
    Out o;
    call(o);
    ASSERT_EQ(drvm_call_count(), 1u);
    EXPECT_EQ(fields(*drvm_call(0), o), want);
  }
}

TEST_F(ProfileTest, PassThroughAnswersEveryProfileFunctionAtOnce) {
  const std::string before = state();
  drvm_fail_next("pipe_mgr_adt_ent_del", BF_INJECTED_FAULT);
  drvm_set_passthrough(1);
  uint32_t running = 0;
  for (const Op &op : ops()) {
    Out o;
    EXPECT_EQ(op.call(o), BF_SUCCESS) << op.fn();
    if (op.writes_handle) {
      EXPECT_EQ(std::exchange(o.w[0], kUnset), ++running) << op.fn();
    }
    EXPECT_EQ(o.written(), "") << op.fn();
  }
  EXPECT_EQ(pipe_mgr_hitless_ha_restore_virtual_dev_state(
                1, 0, 0xFFFF, 0, 0,
                [](pipe_sess_hdl_t, bf_dev_id_t, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t) {
                  ADD_FAILURE() << "nothing is replayed in pass-through";
                }),
            BF_SUCCESS);
  drvm_set_passthrough(0);
  EXPECT_EQ(drvm_call_count(), 0u);
  EXPECT_TRUE(g_told.empty());
  EXPECT_EQ(g_replays, 0);
  EXPECT_EQ(state(), before);
  EXPECT_EQ(pipe_mgr_adt_ent_del(1, 0, kA1, m3, 0), BF_INJECTED_FAULT) << "the queued refusal waited";
}

// ---- Every documented refusal ----

struct Refusal {
  std::string what;
  bf_status_t st;
  Call call;
  std::function<void()> then;  // if set, runs after the checks
};

std::vector<Refusal> refusals() {
  std::vector<Refusal> v;
  auto row = [&v](std::string what, bf_status_t st, Call call, std::function<void()> then = nullptr) {
    v.push_back({std::move(what), st, std::move(call), std::move(then)});
  };
  // A queued fault of each function; it is used up, so that the same call then has its own answer.
  for (const Op &op : ops())
    row(
        cat(op.fn(), ": a queued fault"), BF_INJECTED_FAULT,
        [op](Out &o) {
          drvm_fail_next(op.fn().c_str(), BF_INJECTED_FAULT);
          return op.call(o);
        },
        [op] {
          Out again;
          EXPECT_EQ(op.call(again), op.status());
        });
  static Image img({7}), bad({7});
  bad.spec.resource_count = 5;
  // Members.
  REFUSE(BF_INVALID_ARG, pipe_mgr_adt_ent_add(1, tgt(), kA1, kAct1, 0, nullptr, o.w, 0));  // adt_ent_add: a null record
  REFUSE(BF_INVALID_ARG, pipe_mgr_adt_ent_add(1, tgt(), kA1, kAct1, 0, &bad.spec, o.w, 0));
  REFUSE(BF_INVALID_ARG, pipe_mgr_adt_ent_add(1, tgt(), kA1, kAct1, 0, &img.spec, nullptr, 0));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_adt_ent_set(1, 0, kA1, g1, kAct1, &img.spec, 0));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_adt_ent_set(1, 0, kA2, m1, kAct1, &img.spec, 0));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_adt_ent_set(1, 1, kA1, m1, kAct1, &img.spec, 0));  // adt_ent_set: another device
  REFUSE(BF_INVALID_ARG, pipe_mgr_adt_ent_set(1, 0, kA1, m1, kAct1, &bad.spec, 0));       // adt_ent_set: a bad record
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_adt_ent_del(1, 0, kA1, m4, 0));                    // adt_ent_del: unknown
  REFUSE(BF_IN_USE, pipe_mgr_adt_ent_del(1, 0, kA1, m1, 0));  // adt_ent_del: in a group and bound
  REFUSE(BF_IN_USE, pipe_mgr_adt_ent_del(1, 0, kA1, m2, 0));  // adt_ent_del: in a group and the fallback
  REFUSE(BF_IN_USE, pipe_mgr_adt_ent_del(1, 0, kA1, m3, 0));  // adt_ent_del: in a group only
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_get_action_data_entry(kA1, tgt(), m4, &o.data, &o.w[0], false));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_get_action_data_entry(kA1, tgt(0, 2), m3, &o.data, &o.w[0], false));
  row("get_action_data_entry: a buffer too small", BF_NO_SPACE, [](Out &o) {
    o.data.num_action_data_bytes = 1;
    bf_status_t st = pipe_mgr_get_action_data_entry(kA1, tgt(), m1, &o.data, &o.w[0], false);
    EXPECT_EQ(o.data.num_action_data_bytes, 1) << "the capacity is not written";
    o.data.num_action_data_bytes = 8;
    return st;
  });
  REFUSE(BF_INVALID_ARG, pipe_mgr_get_action_data_entry(kA1, tgt(), m1, nullptr, &o.w[0], false));
  // Groups.
  REFUSE(BF_INVALID_ARG, pipe_mgr_sel_grp_add(1, tgt(), kS1, 0, 0, 0, o.w, 0));  // sel_grp_add: size 0
  REFUSE(BF_INVALID_ARG, pipe_mgr_sel_grp_add(1, tgt(), kS1, 0, 2, 0, nullptr, 0));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_sel_grp_del(1, 0, kS1, g3, 0));  // sel_grp_del: unknown
  REFUSE(BF_IN_USE, pipe_mgr_sel_grp_del(1, 0, kS1, g1, 0));            // sel_grp_del: bound by the default entry
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_sel_grp_mbr_add(1, 0, kS1, g3, kAct4, m4, 0));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_sel_grp_mbr_add(1, 0, kS1, g1, kAct1, g2, 0));
  REFUSE(BF_TABLE_MISMATCH, pipe_mgr_sel_grp_mbr_add(1, 0, kS1, g1, kAct4, m4, 0));
  REFUSE(BF_INVALID_ARG, pipe_mgr_sel_grp_mbr_add(1, 0, kS1, g2, kAct2, m1, 0));
  REFUSE(BF_TABLE_MISMATCH, pipe_mgr_sel_grp_mbr_add(1, 0, kS1, g1, kAct1, m3, 0));
  REFUSE(BF_ALREADY_EXISTS, pipe_mgr_sel_grp_mbr_add(1, 0, kS1, g1, kAct1, m1, 0));  // sel_grp_mbr_add: already there
  REFUSE(BF_NO_SPACE, pipe_mgr_sel_grp_mbr_add(1, 0, kS1, g2, kAct1, m1, 0));        // sel_grp_mbr_add: a full group
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_sel_grp_mbr_del(1, 0, kS1, g2, m1, 0));  // sel_grp_mbr_del: not in the group
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_sel_grp_mbr_enable(1, 0, kS1, g2, m2, 0));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_sel_grp_mbr_disable(1, 0, kS1, g3, m4, 0));
  REFUSE(BF_INVALID_ARG, pipe_mgr_sel_grp_mbr_state_get(1, 0, kS1, g1, m1, nullptr));
  REFUSE(BF_INVALID_ARG, pipe_mgr_sel_grp_mbr_get_from_hash(1, 0, kS1, g1, kHash, 0, &o.w[0]));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_sel_grp_mbr_get_from_hash(1, 0, kS1, g2, kHash, 3, &o.w[0]));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_get_sel_grp_mbr_count(1, 0, kS1, 99, &o.w[0]));
  REFUSE(BF_INVALID_ARG, pipe_mgr_sel_grp_mbrs_get(1, 0, kS1, g1, 2, nullptr, o.bytes, &o.w[2], 0));
  REFUSE(BF_TABLE_MISMATCH, pipe_mgr_sel_fallback_mbr_set(1, tgt(), kS1, m4, 0));
  REFUSE(BF_TABLE_MISMATCH, pipe_mgr_sel_fallback_mbr_set(1, tgt(), kS1, m3, 0));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_sel_fallback_mbr_set(1, tgt(), kS1, 99, 0));  // fallback_mbr_set: unknown
  // Walks and words.
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_get_first_group_member(1, kS1, 0, g3, &o.w[0]));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_get_next_group_members(1, kS1, 0, g1, m3, 2, o.w));
  REFUSE(BF_INVALID_ARG, pipe_mgr_get_next_group_members(1, kS1, 0, g1, m1, 0, o.w));  // get_next_group_members: n 0
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_get_next_entry_handles(1, kA1, tgt(0, 2), m3, 2, o.w));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_get_next_entry_handles(1, kS1, tgt(), g3, 2, o.w));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_get_word_llp_active_member_count(1, tgt(), kS1, 2, &o.w[0]));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_get_word_llp_active_member_count(1, tgt(0, 2), kS1, 1, &o.w[0]));
  REFUSE(BF_INVALID_ARG, pipe_mgr_get_word_llp_active_members(1, tgt(), kS1, 0, 2, nullptr));
  // Bound entries.
  auto bind = [](uint8_t type, uint32_t hdl, uint32_t act) {
    return [=](Out &o) {
      pipe_action_spec_t a = binding(type, hdl);
      return pipe_mgr_mat_ent_add(1, tgt(), kM1, match_of({{0x0A, 0x0C}, {0xFF, 0xFF}}), act, &a, 0, 0, &o.w[0]);
    };
  };
  row("mat_ent_add: an unknown member", BF_OBJECT_NOT_FOUND, bind(PIPE_ACTION_MBR_TYPE, 99, kAct1));
  row("mat_ent_add: an unknown group", BF_OBJECT_NOT_FOUND, bind(PIPE_ACTION_GRP_TYPE, m1, kAct1));
  row("mat_ent_add: another profile's member", BF_TABLE_MISMATCH, bind(PIPE_ACTION_MBR_TYPE, m4, kAct4));
  row("mat_ent_add: another profile's group", BF_TABLE_MISMATCH, bind(PIPE_ACTION_GRP_TYPE, g3, kAct4));
  row("mat_ent_add: not the member's action", BF_INVALID_ARG, bind(PIPE_ACTION_MBR_TYPE, m1, kAct2));
  row("mat_ent_set_action: an unknown member", BF_OBJECT_NOT_FOUND, [](Out &) {
    pipe_action_spec_t a = binding(PIPE_ACTION_MBR_TYPE, 99);
    return pipe_mgr_mat_ent_set_action(1, 0, kM1, e1, kAct1, &a, 0);
  });
  row("default_entry_set: another profile's group", BF_TABLE_MISMATCH, [](Out &o) {
    pipe_action_spec_t a = binding(PIPE_ACTION_GRP_TYPE, g3);
    return pipe_mgr_mat_default_entry_set(1, tgt(), kM1, kAct4, &a, 0, &o.w[0]);
  });
  row("mat_ent_add: a member of another device only", BF_OBJECT_NOT_FOUND, [](Out &o) {
    pipe_action_spec_t a = binding(PIPE_ACTION_MBR_TYPE, m1);
    return pipe_mgr_mat_ent_add(1, tgt(1), kM1, match_of({{0x0A, 0x0C}, {0xFF, 0xFF}}), kAct1, &a, 0, 0, &o.w[0]);
  });
  row("mat_ent_set_action_by_match_spec: an unknown group", BF_OBJECT_NOT_FOUND, [](Out &) {
    pipe_action_spec_t a = binding(PIPE_ACTION_GRP_TYPE, 99);
    return pipe_mgr_mat_ent_set_action_by_match_spec(1, tgt(), kM1, match_of({{0x0A, 0x0B}, {0xFF, 0xFF}}), kAct1, &a,
                                                     0);
  });
  row("default_entry_set: not the member's action", BF_INVALID_ARG, [](Out &o) {
    pipe_action_spec_t a = binding(PIPE_ACTION_MBR_TYPE, m2);
    return pipe_mgr_mat_default_entry_set(1, tgt(), kM1, kAct1, &a, 0, &o.w[0]);
  });
  REFUSE(BF_INVALID_ARG, pipe_mgr_hitless_ha_restore_virtual_dev_state(1, 0, 0xFFFF, 0, 0, nullptr));
  // The rest of the checks, function by function.
  row("adt_ent_add: a null image with a byte count", BF_INVALID_ARG, [](Out &o) {
    Image i({1, 2});
    i.spec.act_data.action_data_bytes = nullptr;
    return pipe_mgr_adt_ent_add(1, tgt(), kA1, kAct1, 0, &i.spec, o.w, 0);
  });
  REFUSE(BF_INVALID_ARG, pipe_mgr_get_action_data_entry(kA1, tgt(), m1, &o.data, nullptr, false));
  row("get_action_data_entry: a null image buffer", BF_NO_SPACE, [](Out &o) {
    o.data.action_data_bytes = nullptr;
    const bf_status_t st = pipe_mgr_get_action_data_entry(kA1, tgt(), m1, &o.data, &o.w[0], false);
    o.data.action_data_bytes = o.image;
    return st;
  });
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_get_action_data_entry(kA1, tgt(), g1, &o.data, &o.w[0], false));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_sel_grp_del(1, 0, kS2, g2, 0));  // sel_grp_del: another selector's group
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_sel_grp_del(1, 1, kS2, g3, 0));  // sel_grp_del: another device
  REFUSE(BF_TABLE_MISMATCH, pipe_mgr_sel_grp_mbr_add(1, 0, kS2, g3, kAct1, m1, 0));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_sel_grp_mbr_del(1, 0, kS1, 99, m1, 0));  // sel_grp_mbr_del: an unknown group
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_sel_grp_mbr_state_get(1, 0, kS1, g2, m1, &o.w[0]));
  REFUSE(BF_INVALID_ARG, pipe_mgr_sel_grp_mbr_get_from_hash(1, 0, kS1, g1, nullptr, 3, &o.w[0]));
  REFUSE(BF_INVALID_ARG, pipe_mgr_sel_grp_mbr_get_from_hash(1, 0, kS1, g1, kHash, 3, nullptr));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_sel_grp_mbr_get_from_hash(1, 0, kS2, g1, kHash, 3, &o.w[0]));
  REFUSE(BF_INVALID_ARG, pipe_mgr_get_sel_grp_mbr_count(1, 0, kS1, g1, nullptr));
  REFUSE(BF_INVALID_ARG, pipe_mgr_sel_grp_mbrs_get(1, 0, kS1, g1, 2, &o.w[0], o.bytes, nullptr, 0));
  REFUSE(BF_INVALID_ARG, pipe_mgr_sel_grp_mbrs_get(1, 0, kS1, g1, 2, &o.w[0], nullptr, &o.w[2], 0));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_sel_grp_mbrs_get(1, 0, kS1, g3, 2, &o.w[0], o.bytes, &o.w[2], 0));
  REFUSE(BF_TABLE_MISMATCH, pipe_mgr_sel_fallback_mbr_set(1, tgt(0, 2), kS1, m3, 0));
  REFUSE(BF_TABLE_MISMATCH, pipe_mgr_sel_fallback_mbr_set(1, tgt(), 0x3000102, m1, 0));
  REFUSE(BF_INVALID_ARG, pipe_mgr_get_first_group_member(1, kS1, 0, g1, nullptr));
  REFUSE(BF_INVALID_ARG, pipe_mgr_get_next_group_members(1, kS1, 0, g1, m1, -1, o.w));  // get_next_group_members: n -1
  REFUSE(BF_INVALID_ARG, pipe_mgr_get_next_group_members(1, kS1, 0, g1, m1, 2, nullptr));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_get_next_group_members(1, kS1, 1, g1, m1, 2, o.w));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_get_next_entry_handles(1, kA2, tgt(), m1, 2, o.w));
  REFUSE(BF_INVALID_ARG, pipe_mgr_get_word_llp_active_member_count(1, tgt(), kS1, 0, nullptr));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_get_word_llp_active_member_count(1, tgt(), 0x3000102, 0, &o.w[0]));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_get_word_llp_active_members(1, tgt(), kS2, 1, 2, o.w));
  return v;
}

TEST_F(ProfileTest, EachRefusalReturnsItsStatusAndChangesNothing) {
  for (const Refusal &r : refusals()) {
    SCOPED_TRACE(r.what);
    Restart();
    const std::string before = state();
    Out o;
    EXPECT_EQ(r.call(o), r.st);
    EXPECT_EQ(o.written(), "");
    EXPECT_TRUE(g_told.empty());
    ASSERT_EQ(drvm_call_count(), 1u);
    EXPECT_EQ(drvm_call(0)->status, r.st);
    EXPECT_EQ(state(), before);
    EXPECT_EQ(g_replays, 0);
    uint32_t h = 0;  // nor did it use a handle
    Image img({1});
    EXPECT_EQ(pipe_mgr_adt_ent_add(1, tgt(), kA1, kAct1, 0, &img.spec, &h, 0), BF_SUCCESS);
    EXPECT_EQ(h, kNext);
    if (r.then) r.then();
  }
}

// Each call, with each allocation of the model's own memory failing in turn (as for the match-table
// functions): BF_NO_SYS_RESOURCES, the world as it was, nothing written, reported or replayed, no
// handle used.
using ProfileAllocationFailureTest = ProfileTest;
TEST_F(ProfileAllocationFailureTest, EachProfileCallAnswersNoSysResourcesAndChangesNothing) {
  for (const Op &op : ops()) {
    const auto [st, failures] = alloc_fault::sweep<Out>(
        op.fn(), [&] { Restart(); }, [&](Out &o) { return op.call(o); }, [&] { return state(); },
        [&] {
          EXPECT_TRUE(g_told.empty());
          EXPECT_EQ(g_replays, 0);
          uint32_t h = 0;  // nor did it use a handle
          Image img({1});
          EXPECT_EQ(pipe_mgr_adt_ent_add(1, tgt(), kA1, kAct1, 0, &img.spec, &h, 0), BF_SUCCESS);
          EXPECT_EQ(h, kNext);
        });
    EXPECT_EQ(st, op.status());
    EXPECT_GT(failures, 0u) << op.fn() << " allocates at least its record";
  }
}

// ---- Behaviour ----

TEST_F(ProfileTest, TheHashPicksAmongActiveMembersInJoinOrderAndTheFallbackServesAGroupWithNone) {
  Image img({1});
  uint32_t g = 0, extra[3];
  ASSERT_EQ(pipe_mgr_sel_grp_add(1, tgt(), kS1, 0, 8, 0, &g, 0), BF_SUCCESS);
  for (uint32_t &m : extra) {
    ASSERT_EQ(pipe_mgr_adt_ent_add(1, tgt(), kA1, kAct1, 0, &img.spec, &m, 0), BF_SUCCESS);
  }
  // Joined in the order 3rd, 1st, 2nd: the hash n picks the (n mod 3)-th in that order.
  for (uint32_t i : {2, 0, 1}) ASSERT_EQ(pipe_mgr_sel_grp_mbr_add(1, 0, kS1, g, kAct1, extra[i], 0), BF_SUCCESS);
  const uint32_t order[] = {extra[2], extra[0], extra[1]};
  std::map<uint32_t, int> seen;
  for (uint32_t n = 0; n < 300; ++n) {
    uint8_t hash[2] = {uint8_t(n >> 8), uint8_t(n)};
    uint32_t m = 0;
    ASSERT_EQ(pipe_mgr_sel_grp_mbr_get_from_hash(1, 0, kS1, g, hash, 2, &m), BF_SUCCESS);
    EXPECT_EQ(m, order[n % 3]) << n;
    ++seen[m];
  }
  EXPECT_EQ(seen.size(), 3u);
  // A long hash is one big number: 2^64 mod 3 = 1.
  uint8_t big[9] = {1, 0, 0, 0, 0, 0, 0, 0, 0};
  uint32_t m = 0;
  ASSERT_EQ(pipe_mgr_sel_grp_mbr_get_from_hash(1, 0, kS1, g, big, 9, &m), BF_SUCCESS);
  EXPECT_EQ(m, order[1]);
  // An inactive member is never picked; with none active the fallback (m2) serves.
  ASSERT_EQ(pipe_mgr_sel_fallback_mbr_set(1, tgt(), kS1, m2, 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_sel_grp_mbr_disable(1, 0, kS1, g, extra[0], 0), BF_SUCCESS);
  for (uint8_t n = 0; n < 20; ++n) {
    ASSERT_EQ(pipe_mgr_sel_grp_mbr_get_from_hash(1, 0, kS1, g, &n, 1, &m), BF_SUCCESS);
    EXPECT_EQ(m, n % 2 ? extra[1] : extra[2]);
  }
  for (uint32_t x : extra) ASSERT_EQ(pipe_mgr_sel_grp_mbr_disable(1, 0, kS1, g, x, 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_sel_grp_mbr_get_from_hash(1, 0, kS1, g, big, 9, &m), BF_SUCCESS);
  EXPECT_EQ(m, uint32_t(m2));
  ASSERT_EQ(pipe_mgr_sel_fallback_mbr_reset(1, tgt(), kS1, 0), BF_SUCCESS);
  EXPECT_EQ(pipe_mgr_sel_grp_mbr_get_from_hash(1, 0, kS1, g, big, 9, &m), BF_OBJECT_NOT_FOUND);
}

TEST_F(ProfileTest, WalksAndCountsSeeTheirPipe) {
  auto walk_of = [](uint32_t tbl, uint32_t pipe) {
    std::vector<uint32_t> out;
    uint32_t h = 0, next[8];
    if (pipe_mgr_get_first_entry_handle(1, tbl, tgt(0, pipe), &h) != BF_SUCCESS) return out;
    out.push_back(h);
    while (pipe_mgr_get_next_entry_handles(1, tbl, tgt(0, pipe), out.back(), 1, next) == BF_SUCCESS)
      out.push_back(next[0]);
    return out;
  };
  EXPECT_EQ(walk_of(kA1, 0xFFFF), (std::vector<uint32_t>{m1, m2, m3}));
  EXPECT_EQ(walk_of(kA1, 1), (std::vector<uint32_t>{m1, m2, m3}));
  EXPECT_EQ(walk_of(kA1, 2), (std::vector<uint32_t>{m1, m2}));
  EXPECT_EQ(walk_of(kS1, 0xFFFF), (std::vector<uint32_t>{g1, g2}));
  EXPECT_EQ(walk_of(kS1, 0), (std::vector<uint32_t>{g1}));
  EXPECT_EQ(walk_of(kS2, 0xFFFF), (std::vector<uint32_t>{g3}));
  EXPECT_EQ(walk_of(kM1, 0xFFFF), (std::vector<uint32_t>{e1})) << "entries walk as before";
  uint32_t n = 0;
  ASSERT_EQ(pipe_mgr_get_entry_count(1, tgt(0, 2), kA1, false, &n), BF_SUCCESS);
  EXPECT_EQ(n, 2u);
  ASSERT_EQ(pipe_mgr_get_entry_count(1, tgt(), kS1, false, &n), BF_SUCCESS);
  EXPECT_EQ(n, 2u);
  // A group's members, in handle order; a batch is filled with -1 past the last.
  uint32_t first = 0, next[3];
  ASSERT_EQ(pipe_mgr_get_first_group_member(1, kS1, 0, g1, &first), BF_SUCCESS);
  EXPECT_EQ(first, uint32_t(m1));
  ASSERT_EQ(pipe_mgr_get_next_group_members(1, kS1, 0, g1, m1, 3, next), BF_SUCCESS);
  EXPECT_EQ(std::vector<uint32_t>(next, next + 3), (std::vector<uint32_t>{m2, 0xFFFFFFFFu, 0xFFFFFFFFu}));
  EXPECT_EQ(pipe_mgr_get_next_group_members(1, kS1, 0, g1, m2, 3, next), BF_END_OF_WALK);
  uint32_t g = 0;
  ASSERT_EQ(pipe_mgr_sel_grp_add(1, tgt(), kS1, 0, 2, 0, &g, 0), BF_SUCCESS);
  EXPECT_EQ(pipe_mgr_get_first_group_member(1, kS1, 0, g, &first), BF_END_OF_WALK);
}

TEST_F(ProfileTest, WordsAreTheGroupsOfAPipeWithTheirActiveMembers) {
  uint32_t n = 0, mbrs[3];
  ASSERT_EQ(pipe_mgr_get_word_llp_active_member_count(1, tgt(), kS1, 0, &n), BF_SUCCESS);
  EXPECT_EQ(n, 1u) << "g1: m1 active, m2 not";
  ASSERT_EQ(pipe_mgr_get_word_llp_active_members(1, tgt(), kS1, 0, 3, mbrs), BF_SUCCESS);
  EXPECT_EQ(std::vector<uint32_t>(mbrs, mbrs + 3), (std::vector<uint32_t>{m1, 0xFFFFFFFFu, 0xFFFFFFFFu}));
  ASSERT_EQ(pipe_mgr_get_word_llp_active_member_count(1, tgt(), kS1, 1, &n), BF_SUCCESS);
  EXPECT_EQ(n, 0u) << "g2: m3 inactive";
  ASSERT_EQ(pipe_mgr_sel_grp_mbr_enable(1, 0, kS1, g2, m3, 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_get_word_llp_active_member_count(1, tgt(), kS1, 1, &n), BF_SUCCESS);
  EXPECT_EQ(n, 1u);
  // On pipe 1 both groups are seen; on pipe 0 only g1.
  ASSERT_EQ(pipe_mgr_get_word_llp_active_members(1, tgt(0, 1), kS1, 1, 1, mbrs), BF_SUCCESS);
  EXPECT_EQ(mbrs[0], uint32_t(m3));
  EXPECT_EQ(pipe_mgr_get_word_llp_active_member_count(1, tgt(0, 0), kS1, 1, &n), BF_OBJECT_NOT_FOUND);
  // Enabling m2 puts it in the word, after m1.
  ASSERT_EQ(pipe_mgr_sel_grp_mbr_enable(1, 0, kS1, g1, m2, 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_get_word_llp_active_members(1, tgt(), kS1, 0, 3, mbrs), BF_SUCCESS);
  EXPECT_EQ(std::vector<uint32_t>(mbrs, mbrs + 2), (std::vector<uint32_t>{m1, m2}));
}

TEST_F(ProfileTest, ABoundMemberOrGroupStaysUntilNothingBindsIt) {
  // e1 binds m1; rebinding e1 to g1 frees m1 of it, but m1 is still in g1.
  pipe_action_spec_t to_g1 = binding(PIPE_ACTION_GRP_TYPE, g1);
  ASSERT_EQ(pipe_mgr_mat_ent_set_action(1, 0, kM1, e1, kAct1, &to_g1, 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_sel_grp_mbr_del(1, 0, kS1, g1, m1, 0), BF_SUCCESS);
  EXPECT_EQ(pipe_mgr_adt_ent_del(1, 0, kA1, m1, 0), BF_SUCCESS);
  // g1 is bound by e1 and by the default entry: both must go.
  EXPECT_EQ(pipe_mgr_sel_grp_del(1, 0, kS1, g1, 0), BF_IN_USE);
  ASSERT_EQ(pipe_mgr_mat_ent_del(1, 0, kM1, e1, 0), BF_SUCCESS);
  EXPECT_EQ(pipe_mgr_sel_grp_del(1, 0, kS1, g1, 0), BF_IN_USE);
  ASSERT_EQ(pipe_mgr_mat_tbl_default_entry_reset(1, tgt(), kM1, 0), BF_SUCCESS);
  EXPECT_EQ(pipe_mgr_sel_grp_del(1, 0, kS1, g1, 0), BF_SUCCESS) << "with m2 still in it";
  // m2 was in g1 and is the fallback: once that goes too, it can be deleted.
  EXPECT_EQ(pipe_mgr_adt_ent_del(1, 0, kA1, m2, 0), BF_IN_USE);
  ASSERT_EQ(pipe_mgr_sel_fallback_mbr_reset(1, tgt(0, 0), kS1, 0), BF_SUCCESS);
  EXPECT_EQ(pipe_mgr_adt_ent_del(1, 0, kA1, m2, 0), BF_SUCCESS);
  // Read-back gives a binding as stored.
  uint32_t h = 0;
  pipe_action_spec_t to_m3 = binding(PIPE_ACTION_MBR_TYPE, m3);
  ASSERT_EQ(pipe_mgr_mat_ent_add(1, tgt(), kM1, match_of({{1, 2}, {0xFF, 0xFF}}), kAct1, &to_m3, 0, 0, &h), BF_SUCCESS);
  Readback rb(2, 0);
  rb.action.act_data = {0, 0, nullptr};
  ASSERT_EQ(rb.get(h, kM1), BF_SUCCESS);
  EXPECT_EQ(rb.action.action_data_type, PIPE_ACTION_MBR_TYPE);
  EXPECT_EQ(rb.action.member_hdl, uint32_t(m3));
  EXPECT_EQ(rb.act, kAct1);
}

TEST_F(ProfileTest, PairingsAreDeclaredOrLearntOnceAndThenHold) {
  EXPECT_EQ(drvm_profile_adt(kS2), kA2) << "learnt from the first member added to a group of kS2";
  EXPECT_EQ(drvm_profile_mat(kA1), kM1);
  EXPECT_EQ(drvm_profile_sel(kM1), kS1);
  EXPECT_EQ(drvm_set_profile(kA1, kS2, 0), BF_TABLE_MISMATCH);
  EXPECT_EQ(drvm_set_profile(kA2, kS2, kM1 + 1), BF_SUCCESS) << "completes the learnt pairing";
  EXPECT_EQ(drvm_profile_mat(kS2), kM1 + 1);
  EXPECT_EQ(drvm_set_profile(0, kS2, 0), BF_INVALID_ARG);
  // A table bound to nothing yet learns its profile from its first bound entry.
  uint32_t h = 0;
  pipe_action_spec_t to_m4 = binding(PIPE_ACTION_MBR_TYPE, m4);
  ASSERT_EQ(pipe_mgr_mat_ent_add(1, tgt(), kM1 + 5, match_of({{1}, {0xFF}}), kAct4, &to_m4, 0, 0, &h), BF_SUCCESS);
  EXPECT_EQ(drvm_profile_adt(kM1 + 5), 0u) << "kA2 is bound to kM1 + 1 already: no second table is learnt";
  drvm_reset();
  EXPECT_EQ(drvm_profile_adt(kS1), 0u) << "a reset forgets them";
}

TEST_F(ProfileTest, CallbacksAreToldEachChangeAfterItIsMade) {
  Image img({5});
  uint32_t m = 0, g = 0;
  ASSERT_EQ(pipe_mgr_adt_ent_add(1, tgt(), kA1, kAct1, 0, &img.spec, &m, 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_adt_ent_set(1, 0, kA1, m, kAct2, &img.spec, 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_sel_grp_add(1, tgt(), kS1, 0, 2, 0, &g, 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_sel_grp_mbr_add(1, 0, kS1, g, kAct2, m, 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_sel_grp_mbr_disable(1, 0, kS1, g, m, 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_sel_grp_mbr_enable(1, 0, kS1, g, m, 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_sel_grp_del(1, 0, kS1, g, 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_sel_fallback_mbr_set(1, tgt(), kS1, m, 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_sel_fallback_mbr_reset(1, tgt(), kS1, 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_adt_ent_del(1, 0, kA1, m, 0), BF_SUCCESS);
  EXPECT_EQ(g_told, (std::vector<std::string>{
                        cat("adt 0 ", kA1, " 0 ", m, " ", kAct1),
                        cat("adt 0 ", kA1, " 1 ", m, " ", kAct2),
                        cat("sel 0 ", kS1, " 0 ", g, " 0"),
                        cat("mbr 0 ", kS1, " ", g, " ", m, " +"),
                        cat("sel 0 ", kS1, " 2 ", g, " ", m),
                        cat("sel 0 ", kS1, " 5 ", g, " ", m),
                        cat("sel 0 ", kS1, " 4 ", g, " ", m),
                        cat("mbr 0 ", kS1, " ", g, " ", m, " -"),
                        cat("sel 0 ", kS1, " 1 ", g, " 0"),
                        cat("sel 0 ", kS1, " 6 0 ", m),
                        cat("sel 0 ", kS1, " 7 0 ", m),
                        cat("adt 0 ", kA1, " 2 ", m, " ", kAct2),
                    }));
  // Nothing for another device, and a null callback removes one.
  ASSERT_EQ(pipe_register_adt_update_cb(1, 0, kA1, nullptr, nullptr), BF_SUCCESS);
  g_told.clear();
  ASSERT_EQ(pipe_mgr_adt_ent_add(1, tgt(), kA1, kAct1, 0, &img.spec, &m, 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_adt_ent_add(1, tgt(1), kA1, kAct1, 0, &img.spec, &m, 0), BF_SUCCESS);
  EXPECT_TRUE(g_told.empty());
}

struct Replayed {
  uint32_t sess, dev, adt, act, grp, mbr, res;
  bool operator==(const Replayed &) const = default;
};
std::vector<Replayed> g_replayed;
void replay(pipe_sess_hdl_t s, bf_dev_id_t d, uint32_t adt, uint32_t act, uint32_t grp, uint32_t mbr, uint32_t res) {
  g_replayed.push_back({s, d, adt, act, grp, mbr, res});
}

TEST_F(ProfileTest, TheHitlessReplayGivesMembersThenGroupsThenMembershipsInJoinOrder) {
  // m5 with two resource records joins g1 after m1 and m2; then m1 leaves g1 and joins again, last.
  Image img({3});
  img.spec.resource_count = 2;
  uint32_t m5 = 0;
  ASSERT_EQ(pipe_mgr_adt_ent_add(1, tgt(), kA1, kAct1, 0, &img.spec, &m5, 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_sel_grp_mbr_add(1, 0, kS1, g1, kAct1, m5, 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_sel_grp_mbr_del(1, 0, kS1, g1, m1, 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_sel_grp_mbr_add(1, 0, kS1, g1, kAct1, m1, 0), BF_SUCCESS);
  g_replayed.clear();
  ASSERT_EQ(pipe_mgr_hitless_ha_restore_virtual_dev_state(7, 0, 0xFFFF, 3, 4, replay), BF_SUCCESS);
  const std::vector<Replayed> want = {
      {7, 0, kA1, kAct1, 0, m1, 0},  {7, 0, kA1, kAct2, 0, m2, 0},  {7, 0, kA1, kAct1, 0, m3, 0},
      {7, 0, kA1, kAct1, 0, m5, 2},  {7, 0, kA2, kAct4, 0, m4, 0},  {7, 0, kA1, 0, g1, 0, 0},
      {7, 0, kA1, 0, g2, 0, 0},      {7, 0, kA2, 0, g3, 0, 0},      {7, 0, kA1, kAct2, g1, m2, 0},
      {7, 0, kA1, kAct1, g1, m5, 2}, {7, 0, kA1, kAct1, g1, m1, 0}, {7, 0, kA1, kAct1, g2, m3, 0},
      {7, 0, kA2, kAct4, g3, m4, 0}};
  EXPECT_EQ(g_replayed, want);
  EXPECT_EQ(drvm_last_call(nullptr)->arg_u32[2], want.size());
  // On pipe 0: what is of pipe 1 stays out.
  g_replayed.clear();
  ASSERT_EQ(pipe_mgr_hitless_ha_restore_virtual_dev_state(7, 0, 0, 0, 0, replay), BF_SUCCESS);
  for (const Replayed &r : g_replayed) {
    EXPECT_NE(r.mbr, uint32_t(m3));
    EXPECT_NE(r.grp, uint32_t(g2));
  }
  EXPECT_EQ(g_replayed.size(), want.size() - 3);
  // Another device has nothing to replay; the replay changes nothing.
  g_replayed.clear();
  const std::string before = state();
  ASSERT_EQ(pipe_mgr_hitless_ha_restore_virtual_dev_state(7, 1, 0xFFFF, 0, 0, replay), BF_SUCCESS);
  EXPECT_TRUE(g_replayed.empty());
  EXPECT_EQ(state(), before);
}

TEST_F(ProfileTest, AMemberKeepsItsOwnCopyAndReadsBackOnItsPipe) {
  Bytes image = {0xA1, 0xB2, 0xC3};
  pipe_action_spec_t a{};
  a.action_data_type = PIPE_ACTION_DATA_TYPE;
  a.resource_count = 1;
  a.reserved = 7;
  a.act_data = {20, 3, image.data()};
  a.resources[0] = {0x5000001, 9, {{1, 2, 3, 4, 5, 6, 7}}, PIPE_RES_TAG_ATTACHED};
  const std::string sent = describe(a);
  uint32_t m = 0, act = 0, pipe = 0, refs = 9;
  ASSERT_EQ(pipe_mgr_adt_ent_add(1, tgt(0, 1), kA1, kAct2, kM1, &a, &m, 0), BF_SUCCESS);
  EXPECT_EQ(m, uint32_t(kNext)) << "the device's one running count";
  image.assign(3, 0xEE);  // the caller reuses its buffer at once
  a = {};
  pipe_action_spec_t kept;
  ASSERT_EQ(drvm_member_get(0, kA1, m, &act, &kept, &pipe, &refs), BF_SUCCESS);
  EXPECT_EQ(describe(kept), sent);
  EXPECT_EQ(act, kAct2);
  EXPECT_EQ(pipe, 1u);
  EXPECT_EQ(refs, 0u);
  EXPECT_EQ(drvm_member_count(0, kA1), 4u);
  // Read back on its pipe and on all pipes: the image, its counts and the action handle; nothing past
  // the image is written.
  for (uint32_t p : {1u, 0xFFFFu}) {
    uint8_t buf[6] = {0, 0, 0, 0, 0, 0x55};
    pipe_action_data_spec_t d{0, 5, buf};
    uint32_t got = 0;
    ASSERT_EQ(pipe_mgr_get_action_data_entry(kA1, tgt(0, p), m, &d, &got, false), BF_SUCCESS);
    EXPECT_EQ(Bytes(buf, buf + 6), (Bytes{0xA1, 0xB2, 0xC3, 0, 0, 0x55}));
    EXPECT_EQ(d.num_action_data_bytes, 3);
    EXPECT_EQ(d.num_valid_action_data_bits, 20);
    EXPECT_EQ(got, kAct2);
  }
  uint8_t buf[4];
  pipe_action_data_spec_t d{0, 4, buf};
  EXPECT_EQ(pipe_mgr_get_action_data_entry(kA1, tgt(0, 0), m, &d, &act, false), BF_OBJECT_NOT_FOUND);
  // A set replaces the action handle and the whole record; a null image stays null.
  pipe_action_spec_t b{};
  b.action_data_type = PIPE_ACTION_DATA_TYPE;
  ASSERT_EQ(pipe_mgr_adt_ent_set(1, 0, kA1, m, kAct1, &b, 0), BF_SUCCESS);
  ASSERT_EQ(drvm_member_get(0, kA1, m, &act, &kept, nullptr, nullptr), BF_SUCCESS);
  EXPECT_EQ(describe(kept), describe(b));
  EXPECT_EQ(kept.act_data.action_data_bytes, nullptr);
  EXPECT_EQ(act, kAct1);
  // Deleted, its handle is never issued again; another device counts on its own.
  ASSERT_EQ(pipe_mgr_adt_ent_del(1, 0, kA1, m, 0), BF_SUCCESS);
  EXPECT_EQ(drvm_member_get(0, kA1, m, nullptr, nullptr, nullptr, nullptr), BF_OBJECT_NOT_FOUND);
  uint32_t g = 0, e = 0, other = 0;
  ASSERT_EQ(pipe_mgr_sel_grp_add(1, tgt(), kS1, 0, 1, 0, &g, 0), BF_SUCCESS);
  EXPECT_EQ(g, m + 1);
  ASSERT_EQ(pipe_mgr_mat_ent_add(1, tgt(), kM1 + 1, match_of({{1}, {0xFF}}), kAct1, &b, 0, 0, &e), BF_SUCCESS);
  EXPECT_EQ(e, g + 1);
  ASSERT_EQ(pipe_mgr_adt_ent_add(1, tgt(3), kA1, kAct1, 0, &b, &other, 0), BF_SUCCESS);
  EXPECT_EQ(other, 1u);
}

TEST_F(ProfileTest, AGroupKeepsItsMembersInJoinOrderWithTheirStates) {
  Image img({1});
  uint32_t g = 0, x[3];
  ASSERT_EQ(pipe_mgr_sel_grp_add(1, tgt(), kS1, 0, 3, 77, &g, 0), BF_SUCCESS);
  for (uint32_t &m : x) ASSERT_EQ(pipe_mgr_adt_ent_add(1, tgt(), kA1, kAct1, 0, &img.spec, &m, 0), BF_SUCCESS);
  for (uint32_t i : {1, 2, 0}) ASSERT_EQ(pipe_mgr_sel_grp_mbr_add(1, 0, kS1, g, kAct1, x[i], 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_sel_grp_mbr_disable(1, 0, kS1, g, x[2], 0), BF_SUCCESS);
  auto members = [&](uint32_t size) {
    std::string out;
    std::vector<uint32_t> mbrs(size + 1, kUnset);
    std::vector<uint8_t> states(size + 1, 0xA5);
    uint32_t filled = kUnset;
    EXPECT_EQ(pipe_mgr_sel_grp_mbrs_get(1, 0, kS1, g, size, mbrs.data(), states.data(), &filled, 0), BF_SUCCESS);
    for (uint32_t i = 0; i < filled; ++i) out += cat(mbrs[i] - x[0], ":", states[i], " ");
    EXPECT_EQ(mbrs[filled], kUnset) << "nothing past what it filled";
    EXPECT_EQ(states[filled], 0xA5);
    return out;
  };
  EXPECT_EQ(members(8), "1:0 2:1 0:0 ");
  EXPECT_EQ(members(2), "1:0 2:1 ") << "a short array takes the first in join order";
  EXPECT_EQ(members(0), "");
  uint32_t state = kUnset, n = 0;
  ASSERT_EQ(pipe_mgr_sel_grp_mbr_state_get(1, 0, kS1, g, x[2], &state), BF_SUCCESS);
  EXPECT_EQ(state, uint32_t(PIPE_SEL_GRP_MBR_STATE_INACTIVE));
  // Enabling keeps a member's place; one that leaves and joins again goes last, active.
  ASSERT_EQ(pipe_mgr_sel_grp_mbr_enable(1, 0, kS1, g, x[2], 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_sel_grp_mbr_disable(1, 0, kS1, g, x[1], 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_sel_grp_mbr_del(1, 0, kS1, g, x[1], 0), BF_SUCCESS);
  EXPECT_EQ(members(8), "2:0 0:0 ");
  ASSERT_EQ(pipe_mgr_sel_grp_mbr_add(1, 0, kS1, g, kAct1, x[1], 0), BF_SUCCESS);
  EXPECT_EQ(members(8), "2:0 0:0 1:0 ");
  ASSERT_EQ(pipe_mgr_get_sel_grp_mbr_count(1, 0, kS1, g, &n), BF_SUCCESS);
  EXPECT_EQ(n, 3u);
  uint32_t max = 0, pipe = 0;
  ASSERT_EQ(drvm_group_get(0, kS1, g, &max, &pipe, &n), BF_SUCCESS);
  EXPECT_EQ(cat(max, " ", pipe, " ", n), "3 65535 3");
  ASSERT_STREQ(drvm_call(0)->fn, "pipe_mgr_sel_grp_add");
  EXPECT_EQ(drvm_call(0)->arg_u32[2], 77u) << "the group id word is recorded";
  // A group goes with its members, who leave it: each of them can go then.
  uint32_t refs = 0;
  ASSERT_EQ(drvm_member_get(0, kA1, x[0], nullptr, nullptr, nullptr, &refs), BF_SUCCESS);
  EXPECT_EQ(refs, 1u);
  g_told.clear();
  ASSERT_EQ(pipe_mgr_sel_grp_del(1, 0, kS1, g, 0), BF_SUCCESS);
  EXPECT_EQ(drvm_last_call(nullptr)->arg_u32[0], 3u);
  EXPECT_EQ(g_told, (std::vector<std::string>{
                        cat("mbr 0 ", kS1, " ", g, " ", x[2], " -"), cat("mbr 0 ", kS1, " ", g, " ", x[0], " -"),
                        cat("mbr 0 ", kS1, " ", g, " ", x[1], " -"), cat("sel 0 ", kS1, " 1 ", g, " 0")}));
  for (uint32_t m : x) EXPECT_EQ(pipe_mgr_adt_ent_del(1, 0, kA1, m, 0), BF_SUCCESS);
  EXPECT_EQ(drvm_group_count(0, kS1), 2u);
}

TEST_F(ProfileTest, PipeScopesMustMeet) {
  Image img({1});
  uint32_t on1 = 0, on2 = 0, all = 0, g_on1 = 0, g_on2 = 0;
  ASSERT_EQ(pipe_mgr_adt_ent_add(1, tgt(0, 1), kA1, kAct1, 0, &img.spec, &on1, 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_adt_ent_add(1, tgt(0, 2), kA1, kAct1, 0, &img.spec, &on2, 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_adt_ent_add(1, tgt(), kA1, kAct1, 0, &img.spec, &all, 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_sel_grp_add(1, tgt(0, 1), kS1, 0, 4, 0, &g_on1, 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_sel_grp_add(1, tgt(0, 2), kS1, 0, 4, 0, &g_on2, 0), BF_SUCCESS);
  EXPECT_EQ(pipe_mgr_sel_grp_mbr_add(1, 0, kS1, g_on1, kAct1, on1, 0), BF_SUCCESS);
  EXPECT_EQ(pipe_mgr_sel_grp_mbr_add(1, 0, kS1, g_on1, kAct1, all, 0), BF_SUCCESS);
  EXPECT_EQ(pipe_mgr_sel_grp_mbr_add(1, 0, kS1, g_on1, kAct1, on2, 0), BF_TABLE_MISMATCH);
  EXPECT_EQ(pipe_mgr_sel_grp_mbr_add(1, 0, kS1, g1, kAct1, on2, 0), BF_TABLE_MISMATCH);
  EXPECT_EQ(pipe_mgr_sel_fallback_mbr_set(1, tgt(0, 1), kS1, on2, 0), BF_TABLE_MISMATCH);
  EXPECT_EQ(pipe_mgr_sel_fallback_mbr_set(1, tgt(), kS1, on2, 0), BF_TABLE_MISMATCH);
  // A group with no active member takes the fallback of its pipe, or else that of all pipes.
  ASSERT_EQ(pipe_mgr_sel_grp_mbr_disable(1, 0, kS1, g_on1, on1, 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_sel_grp_mbr_disable(1, 0, kS1, g_on1, all, 0), BF_SUCCESS);
  uint32_t m = 0;
  EXPECT_EQ(pipe_mgr_sel_grp_mbr_get_from_hash(1, 0, kS1, g_on1, kHash, 3, &m), BF_OBJECT_NOT_FOUND);
  ASSERT_EQ(pipe_mgr_sel_fallback_mbr_set(1, tgt(), kS1, all, 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_sel_grp_mbr_get_from_hash(1, 0, kS1, g_on1, kHash, 3, &m), BF_SUCCESS);
  EXPECT_EQ(m, all);
  ASSERT_EQ(pipe_mgr_sel_fallback_mbr_set(1, tgt(0, 1), kS1, on1, 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_sel_grp_mbr_get_from_hash(1, 0, kS1, g_on1, kHash, 3, &m), BF_SUCCESS);
  EXPECT_EQ(m, on1);
  ASSERT_EQ(pipe_mgr_sel_grp_mbr_get_from_hash(1, 0, kS1, g_on2, kHash, 3, &m), BF_SUCCESS);
  EXPECT_EQ(m, all) << "pipe 2 has no fallback of its own";
  // A set replaces the member for its pipe; the one it replaces is free again.
  ASSERT_EQ(pipe_mgr_sel_fallback_mbr_set(1, tgt(0, 1), kS1, all, 0), BF_SUCCESS);
  uint32_t refs = 9;
  ASSERT_EQ(drvm_member_get(0, kA1, on1, nullptr, nullptr, nullptr, &refs), BF_SUCCESS);
  EXPECT_EQ(refs, 1u) << "only g_on1 holds it now";
  ASSERT_EQ(drvm_fallback_member(0, kS1, 1, &m), BF_SUCCESS);
  EXPECT_EQ(m, all);
}

TEST_F(ProfileTest, TheHashPickIsEvenOverTheActiveMembersAndTheSameForTheSameHash) {
  Image img({1});
  uint32_t g = 0, x[4];
  ASSERT_EQ(pipe_mgr_sel_grp_add(1, tgt(), kS1, 0, 4, 0, &g, 0), BF_SUCCESS);
  for (uint32_t &m : x) {
    ASSERT_EQ(pipe_mgr_adt_ent_add(1, tgt(), kA1, kAct1, 0, &img.spec, &m, 0), BF_SUCCESS);
    ASSERT_EQ(pipe_mgr_sel_grp_mbr_add(1, 0, kS1, g, kAct1, m, 0), BF_SUCCESS);
  }
  ASSERT_EQ(pipe_mgr_sel_grp_mbr_disable(1, 0, kS1, g, x[1], 0), BF_SUCCESS);
  std::map<uint32_t, int> count;
  std::vector<uint32_t> first;
  for (int round = 0; round < 2; ++round) {
    for (uint32_t n = 0; n < 600; ++n) {
      uint8_t hash[4] = {uint8_t(n >> 24), uint8_t(n >> 16), uint8_t(n >> 8), uint8_t(n)};
      uint32_t m = 0;
      ASSERT_EQ(pipe_mgr_sel_grp_mbr_get_from_hash(1, 0, kS1, g, hash, 4, &m), BF_SUCCESS);
      if (round == 0) {
        ++count[m];
        first.push_back(m);
      } else {
        EXPECT_EQ(m, first[n]) << "the same hash picks the same member";
      }
    }
  }
  EXPECT_EQ(count, (std::map<uint32_t, int>{{x[0], 200}, {x[2], 200}, {x[3], 200}}));
  // A member that comes back takes its place in join order again.
  ASSERT_EQ(pipe_mgr_sel_grp_mbr_enable(1, 0, kS1, g, x[1], 0), BF_SUCCESS);
  for (uint8_t n = 0; n < 8; ++n) {
    uint32_t m = 0;
    ASSERT_EQ(pipe_mgr_sel_grp_mbr_get_from_hash(1, 0, kS1, g, &n, 1, &m), BF_SUCCESS);
    EXPECT_EQ(m, x[n % 4]);
  }
}

// A hash of several bytes is one big-endian number: 0x0100 over seven members picks the fifth.
TEST_F(ProfileTest, AHashOfSeveralBytesIsOneBigEndianNumber) {
  Image img({1});
  uint32_t g = 0, x[7];
  ASSERT_EQ(pipe_mgr_sel_grp_add(1, tgt(), kS1, 0, 7, 0, &g, 0), BF_SUCCESS);
  for (uint32_t &m : x) {
    ASSERT_EQ(pipe_mgr_adt_ent_add(1, tgt(), kA1, kAct1, 0, &img.spec, &m, 0), BF_SUCCESS);
    ASSERT_EQ(pipe_mgr_sel_grp_mbr_add(1, 0, kS1, g, kAct1, m, 0), BF_SUCCESS);
  }
  uint8_t hash[3] = {0x00, 0x01, 0x00};
  uint32_t m = 0;
  ASSERT_EQ(pipe_mgr_sel_grp_mbr_get_from_hash(1, 0, kS1, g, hash, 3, &m), BF_SUCCESS);
  EXPECT_EQ(m, x[256 % 7]);
}

TEST_F(ProfileTest, ProfileWalksFollowTheEntryWalkConventions) {
  Image img({1});
  uint32_t m = 0;
  for (int i = 0; i < 5; ++i) ASSERT_EQ(pipe_mgr_adt_ent_add(1, tgt(), kA1, kAct1, 0, &img.spec, &m, 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_adt_ent_del(1, 0, kA1, kNext + 1, 0), BF_SUCCESS);
  // walk() checks the -1 fill of each short batch and the BF_END_OF_WALK at the end.
  const std::vector<uint32_t> want = {m1, m2, m3, kNext, kNext + 2, kNext + 3, kNext + 4};
  for (int batch : {1, 2, 3, 16}) EXPECT_EQ(walk(batch, kA1), want) << batch;
  EXPECT_EQ(walk(2, kS1), (std::vector<uint32_t>{g1, g2}));
  uint32_t n = 0;
  ASSERT_EQ(pipe_mgr_get_entry_count(1, tgt(), kA1, false, &n), BF_SUCCESS);
  EXPECT_EQ(n, want.size());
  // A table known to the model by a callback only walks as empty.
  ASSERT_EQ(pipe_register_adt_update_cb(1, 0, 0x2000109, adt_cb, nullptr), BF_SUCCESS);
  EXPECT_EQ(pipe_mgr_get_first_entry_handle(1, 0x2000109, tgt(), &n), BF_END_OF_WALK);
  // A group's walk: ascending handles whatever the join order.
  uint32_t g = 0, first = 0, next[4];
  ASSERT_EQ(pipe_mgr_sel_grp_add(1, tgt(), kS1, 0, 8, 0, &g, 0), BF_SUCCESS);
  for (uint32_t x : {kNext + 4, uint32_t(m2), kNext + 2})
    ASSERT_EQ(pipe_mgr_sel_grp_mbr_add(1, 0, kS1, g, x == m2 ? kAct2 : kAct1, x, 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_get_first_group_member(1, kS1, 0, g, &first), BF_SUCCESS);
  EXPECT_EQ(first, uint32_t(m2));
  ASSERT_EQ(pipe_mgr_get_next_group_members(1, kS1, 0, g, first, 4, next), BF_SUCCESS);
  EXPECT_EQ(std::vector<uint32_t>(next, next + 4),
            (std::vector<uint32_t>{kNext + 2, kNext + 4, 0xFFFFFFFFu, 0xFFFFFFFFu}));
  ASSERT_EQ(pipe_mgr_get_next_group_members(1, kS1, 0, g, kNext + 2, 1, next), BF_SUCCESS);
  EXPECT_EQ(next[0], kNext + 4);
  next[0] = 0;
  EXPECT_EQ(pipe_mgr_get_next_group_members(1, kS1, 0, g, kNext + 4, 1, next), BF_END_OF_WALK);
  EXPECT_EQ(next[0], 0xFFFFFFFFu);
}

TEST_F(ProfileTest, AProfilesTablesMayNotMixWithAnothersOnceKnown) {
  constexpr uint32_t kA3 = 0x2000102, kS3 = 0x3000102, kM3 = 0x1000102;
  Image img({1});
  uint32_t m = 0, g = 0, e = 0;
  // kS3 is new: a group of it bound by an entry of the new kM3 pairs those two.
  ASSERT_EQ(pipe_mgr_sel_grp_add(1, tgt(), kS3, 0, 4, 0, &g, 0), BF_SUCCESS);
  pipe_action_spec_t to_g = binding(PIPE_ACTION_GRP_TYPE, g);
  ASSERT_EQ(pipe_mgr_mat_ent_add(1, tgt(), kM3, match_of({{1}, {0xFF}}), 0, &to_g, 0, 0, &e), BF_SUCCESS);
  EXPECT_EQ(drvm_profile_sel(kM3), kS3);
  EXPECT_EQ(drvm_profile_adt(kS3), 0u);
  // kA1's members belong to kS1: not to kS3.
  EXPECT_EQ(pipe_mgr_sel_grp_mbr_add(1, 0, kS3, g, kAct1, m1, 0), BF_TABLE_MISMATCH);
  EXPECT_EQ(pipe_mgr_sel_fallback_mbr_set(1, tgt(), kS3, m1, 0), BF_TABLE_MISMATCH);
  // The first member of a new table fills the profile's place for one.
  ASSERT_EQ(pipe_mgr_adt_ent_add(1, tgt(), kA3, kAct1, 0, &img.spec, &m, 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_sel_grp_mbr_add(1, 0, kS3, g, kAct1, m, 0), BF_SUCCESS);
  EXPECT_EQ(drvm_profile_adt(kM3), kA3);
  // Now kM3 binds kA3's members and kS3's groups only.
  pipe_action_spec_t to_m = binding(PIPE_ACTION_MBR_TYPE, m), to_m4 = binding(PIPE_ACTION_MBR_TYPE, m4);
  EXPECT_EQ(pipe_mgr_mat_ent_set_action(1, 0, kM3, e, kAct1, &to_m, 0), BF_SUCCESS);
  EXPECT_EQ(pipe_mgr_mat_ent_set_action(1, 0, kM3, e, kAct4, &to_m4, 0), BF_TABLE_MISMATCH);
  pipe_action_spec_t to_g1 = binding(PIPE_ACTION_GRP_TYPE, g1);
  EXPECT_EQ(pipe_mgr_mat_ent_set_action(1, 0, kM3, e, 0, &to_g1, 0), BF_TABLE_MISMATCH);
  // A profile may serve a match table beside the one it knows (and learns nothing of it).
  uint32_t e2 = 0;
  pipe_action_spec_t to_m1 = binding(PIPE_ACTION_MBR_TYPE, m1);
  EXPECT_EQ(pipe_mgr_mat_ent_add(1, tgt(), kM3 + 1, match_of({{1}, {0xFF}}), kAct1, &to_m1, 0, 0, &e2), BF_SUCCESS);
  EXPECT_EQ(drvm_profile_adt(kM3 + 1), 0u);
  // A declaration that contradicts what use showed is refused; one that agrees is taken.
  EXPECT_EQ(drvm_set_profile(kA3, kS1, 0), BF_TABLE_MISMATCH);
  EXPECT_EQ(drvm_set_profile(kA3, kS3, kM3), BF_SUCCESS);
}

// A callback that calls the model: the call that reports is finished and recorded before it.
std::vector<std::string> g_seen_in_callback;
void calling_cb(bf_dev_id_t, pipe_sel_tbl_hdl_t sel, pipe_sel_update_type_t, pipe_sel_grp_hdl_t grp, pipe_adt_ent_hdl_t,
                void *cookie) {
  const drvm_call_t *last = drvm_last_call(nullptr);
  uint32_t n = kUnset;
  const bf_status_t st = pipe_mgr_get_sel_grp_mbr_count(9, 0, sel, grp, &n);
  g_seen_in_callback.push_back(cat(last->fn, " st=", last->status, " count=", st == BF_SUCCESS ? n : kUnset, " ",
                                   cookie == &g_cookie ? "cookie" : "?"));
}

TEST_F(ProfileTest, ACallbackIsReplacedByALaterOneAndMayCallTheModel) {
  ASSERT_EQ(pipe_register_sel_update_cb(1, 0, kS1, calling_cb, &g_cookie), BF_SUCCESS);
  g_seen_in_callback.clear();
  ASSERT_EQ(pipe_mgr_sel_grp_mbr_del(1, 0, kS1, g1, m1, 0), BF_SUCCESS);
  EXPECT_EQ(g_seen_in_callback, (std::vector<std::string>{"pipe_mgr_sel_grp_mbr_del st=0 count=1 cookie"}));
  EXPECT_EQ(g_told, (std::vector<std::string>{cat("mbr 0 ", kS1, " ", g1, " ", m1, " -")}))
      << "the other kinds of callback stay";
  EXPECT_STREQ(drvm_last_call(nullptr)->fn, "pipe_mgr_get_sel_grp_mbr_count");
  EXPECT_EQ(drvm_call_count(), 3u);
  // Registered for another device or table, it is not called here.
  g_seen_in_callback.clear();
  ASSERT_EQ(pipe_register_sel_update_cb(1, 0, kS1, nullptr, nullptr), BF_SUCCESS);
  ASSERT_EQ(pipe_register_sel_update_cb(1, 1, kS1, calling_cb, &g_cookie), BF_SUCCESS);
  ASSERT_EQ(pipe_register_sel_update_cb(1, 0, kS2, calling_cb, &g_cookie), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_sel_grp_mbr_disable(1, 0, kS1, g1, m2, 0), BF_SUCCESS);
  EXPECT_TRUE(g_seen_in_callback.empty());
  EXPECT_EQ(drvm_sel_update_cb(0, kS1, nullptr, nullptr), BF_OBJECT_NOT_FOUND);
}

// A replay callback that changes the model while it replays: the facts were taken before.
std::vector<std::string> g_replay_log;
void deleting_replay(pipe_sess_hdl_t, bf_dev_id_t dev, uint32_t adt, uint32_t act, uint32_t grp, uint32_t mbr,
                     uint32_t res) {
  if (g_replay_log.empty()) {
    EXPECT_EQ(pipe_mgr_sel_grp_del(1, dev, kS2, g3, 0), BF_SUCCESS);
    EXPECT_EQ(pipe_mgr_adt_ent_del(1, dev, kA2, m4, 0), BF_SUCCESS);
  }
  g_replay_log.push_back(cat(adt == kA1 ? "A1" : adt == kA2 ? "A2" : "?", " ", act, " ", grp, " ", mbr, " ", res));
}

TEST_F(ProfileTest, TheReplayTakesItsFactsBeforeTheFirstCallback) {
  g_replay_log.clear();
  ASSERT_EQ(pipe_mgr_hitless_ha_restore_virtual_dev_state(2, 0, 0xFFFF, 0, 0, deleting_replay), BF_SUCCESS);
  EXPECT_EQ(g_replay_log.size(), 11u);
  EXPECT_EQ(g_replay_log[3], cat("A2 ", kAct4, " 0 ", m4, " 0"));
  EXPECT_EQ(g_replay_log.back(), cat("A2 ", kAct4, " ", g3, " ", m4, " 0"));
  EXPECT_EQ(drvm_call_count(), 3u);
  EXPECT_STREQ(drvm_call(0)->fn, "pipe_mgr_hitless_ha_restore_virtual_dev_state");
  EXPECT_EQ(drvm_call(0)->arg_u32[2], 11u);
  g_replay_log.push_back("");  // the model holds less now
  ASSERT_EQ(pipe_mgr_hitless_ha_restore_virtual_dev_state(2, 0, 0xFFFF, 0, 0, deleting_replay), BF_SUCCESS);
  EXPECT_EQ(g_replay_log.size(), 12u + 8u);
}

}  // namespace
