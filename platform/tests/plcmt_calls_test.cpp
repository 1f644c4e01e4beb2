// The model's placement data: lists are copies that outlive what they copied, decoders give back the
// records as placed and refuse whatever is no live datum of their kind, and a getter whose memory
// runs out writes nothing.
#include <cstring>

#include "alloc_fault.h"
#include "test_util.h"

namespace {

constexpr uint32_t kAdt = 0x2000200, kSel = 0x3000200;
constexpr uint32_t kMbrAct = 0x20000031;

struct List {
  void *list = nullptr;
  ~List() { pipe_mgr_plcmt_list_destroy(list); }
};

struct Decoded {
  Bytes value = Bytes(8, 0xA5), mask = Bytes(8, 0xA5), image = Bytes(56, 0xA5);
  pipe_tbl_match_spec_t match{};
  pipe_action_spec_t action{};
  uint32_t act = 0xDEAD;

  Decoded() {
    match.match_value_bytes = value.data();
    match.match_mask_bytes = mask.data();
    action.act_data.action_data_bytes = image.data();
  }
  bf_status_t entry(const void *datum) { return pipe_mgr_plcmt_mat_data_get_entry(datum, &match, &action, &act); }
  bf_status_t member(const void *datum) { return pipe_mgr_plcmt_adt_data_get_entry(datum, &action, &act); }
};

class PlcmtTest : public ModelTest {};

TEST_F(PlcmtTest, AListCopiesTheTableInHandleOrderWithTheDefaultLast) {
  uint32_t h1 = 0, h2 = 0, dflt = 0;
  ASSERT_EQ(add(Request(key(2), kMask4, 7, 1, {0xAB, 0xCD}), &h1), BF_SUCCESS);
  ASSERT_EQ(add(Request(key(1), kMask4), &h2), BF_SUCCESS);
  Request d(key(0), kMask4, 0, 0, {0xEE});
  ASSERT_EQ(pipe_mgr_mat_default_entry_set(1, tgt(), kTbl, kAct + 1, &d.action, 0, &dflt), BF_SUCCESS);
  List l;
  ASSERT_EQ(pipe_mgr_plcmt_mat_data_get(0, &l.list, kTbl), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_plcmt_list_count(l.list), 3u);
  uint32_t hdls[3];
  void *datums[3];
  for (uint32_t i = 0; i < 3; ++i) datums[i] = pipe_mgr_plcmt_list_datum(l.list, i, &hdls[i]);
  EXPECT_EQ(std::vector<uint32_t>(hdls, hdls + 3), (std::vector<uint32_t>{h1, h2, dflt}));
  EXPECT_EQ(pipe_mgr_plcmt_list_datum(l.list, 3, nullptr), nullptr);

  // The device changes; the list does not.
  ASSERT_EQ(del(h1), BF_SUCCESS);
  drvm_reset();
  Decoded e;
  ASSERT_EQ(e.entry(datums[0]), BF_SUCCESS);
  EXPECT_EQ(bytes_at(e.match.match_value_bytes, 4), key(2));
  EXPECT_EQ(bytes_at(e.match.match_mask_bytes, 4), kMask4);
  EXPECT_EQ(e.match.num_match_bytes, 4);
  EXPECT_EQ(e.match.priority, 7u);
  EXPECT_EQ(e.match.partition_index, 1u);
  EXPECT_EQ(e.act, kAct);
  EXPECT_EQ(e.action.action_data_type, PIPE_ACTION_DATA_TYPE);
  EXPECT_EQ(bytes_at(e.action.act_data.action_data_bytes, e.action.act_data.num_action_data_bytes),
            (Bytes{0xAB, 0xCD}));
  Decoded def;
  ASSERT_EQ(def.entry(datums[2]), BF_SUCCESS);
  EXPECT_EQ(def.match.num_match_bytes, 0);
  EXPECT_EQ(def.value, Bytes(8, 0xA5));  // no key bytes are copied for a default
  EXPECT_EQ(def.act, kAct + 1);
  EXPECT_EQ(def.image[0], 0xEE);

  // A table never stored to, and an unknown device, give empty lists.
  List none;
  ASSERT_EQ(pipe_mgr_plcmt_mat_data_get(9, &none.list, kTbl), BF_SUCCESS);
  EXPECT_EQ(pipe_mgr_plcmt_list_count(none.list), 0u);
  EXPECT_EQ(pipe_mgr_plcmt_list_count(nullptr), 0u);
}

TEST_F(PlcmtTest, DecodersRefuseWhatIsNoLiveDatumOfTheirKind) {
  uint32_t h = 0, m = 0, g = 0;
  ASSERT_EQ(add(Request(key(1), kMask4), &h), BF_SUCCESS);
  Request r(key(0), kMask4, 0, 0, {0x42});
  ASSERT_EQ(pipe_mgr_adt_ent_add(1, tgt(), kAdt, kMbrAct, 0, &r.action, &m, 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_sel_grp_add(1, tgt(), kSel, 0, 4, 0, &g, 0), BF_SUCCESS);
  List mat, adt, sel;
  ASSERT_EQ(pipe_mgr_plcmt_mat_data_get(0, &mat.list, kTbl), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_plcmt_adt_data_get(0, &adt.list, kAdt), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_plcmt_sel_data_get(0, &sel.list, kSel), BF_SUCCESS);
  uint32_t hdl = 0;
  void *entry = pipe_mgr_plcmt_list_datum(mat.list, 0, &hdl);
  EXPECT_EQ(hdl, h);
  void *member = pipe_mgr_plcmt_list_datum(adt.list, 0, &hdl);
  EXPECT_EQ(hdl, m);
  void *group = pipe_mgr_plcmt_list_datum(sel.list, 0, &hdl);
  EXPECT_EQ(hdl, g);

  Decoded ok;
  ASSERT_EQ(ok.member(member), BF_SUCCESS);
  EXPECT_EQ(ok.act, kMbrAct);
  EXPECT_EQ(ok.image[0], 0x42);

  int other = 0;
  for (const void *p : {static_cast<const void *>(member), static_cast<const void *>(group),
                        static_cast<const void *>(&other), static_cast<const void *>(nullptr)}) {
    Decoded e;
    EXPECT_EQ(e.entry(p), BF_INVALID_ARG);
    EXPECT_EQ(e.value, Bytes(8, 0xA5));
    EXPECT_EQ(e.act, 0xDEADu);
  }
  for (const void *p : {static_cast<const void *>(entry), static_cast<const void *>(group),
                        static_cast<const void *>(&other)}) {
    Decoded e;
    EXPECT_EQ(e.member(p), BF_INVALID_ARG);
    EXPECT_EQ(e.act, 0u);  // written whatever the answer
    EXPECT_EQ(e.image, Bytes(56, 0xA5));
  }
  Decoded no_buffers;
  no_buffers.match.match_value_bytes = nullptr;
  EXPECT_EQ(no_buffers.entry(entry), BF_INVALID_ARG);
  no_buffers.action.act_data.action_data_bytes = nullptr;
  EXPECT_EQ(no_buffers.member(member), BF_INVALID_ARG);
  EXPECT_EQ(pipe_mgr_plcmt_mat_data_get_entry(entry, nullptr, &ok.action, &ok.act), BF_INVALID_ARG);

  // An injected refusal still leaves the member's action handle, and the call is recorded.
  Decoded refused;
  drvm_fail_next("pipe_mgr_plcmt_adt_data_get_entry", BF_INJECTED_FAULT);
  EXPECT_EQ(refused.member(member), BF_INJECTED_FAULT);
  EXPECT_EQ(refused.act, kMbrAct);
  EXPECT_EQ(refused.image, Bytes(56, 0xA5));
  const drvm_call_t *c = drvm_last_call("pipe_mgr_plcmt_adt_data_get_entry");
  ASSERT_NE(c, nullptr);
  EXPECT_EQ(c->ptr_arg, member);
  EXPECT_EQ(c->status, BF_INJECTED_FAULT);

  // A destroyed list's datums are gone.
  pipe_mgr_plcmt_list_destroy(mat.list);
  mat.list = nullptr;
  Decoded gone;
  EXPECT_EQ(gone.entry(entry), BF_INVALID_ARG);
  EXPECT_EQ(pipe_mgr_plcmt_mat_data_get(0, nullptr, kTbl), BF_INVALID_ARG);
}

TEST_F(PlcmtTest, AGetterWhoseMemoryRunsOutWritesNoList) {
  uint32_t h = 0;
  for (uint32_t i = 0; i < 20; ++i) ASSERT_EQ(add(Request(key(i), kMask4), &h), BF_SUCCESS);
  size_t failed = 0;
  for (size_t k = 0;; ++k) {
    void *out = &h;  // a marker that a refusal leaves in place
    alloc_fault::arm(k);
    bf_status_t st = pipe_mgr_plcmt_mat_data_get(0, &out, kTbl);
    if (!alloc_fault::disarm()) {
      EXPECT_EQ(st, BF_SUCCESS);
      EXPECT_EQ(pipe_mgr_plcmt_list_count(out), 20u);
      pipe_mgr_plcmt_list_destroy(out);
      break;
    }
    ++failed;
    EXPECT_EQ(st, BF_NO_SYS_RESOURCES) << k;
    EXPECT_EQ(out, &h) << k;
  }
  EXPECT_GT(failed, 20u);
}

}  // namespace
