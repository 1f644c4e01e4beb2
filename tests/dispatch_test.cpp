// Dispatch by numeric handle: every table and profile is reached by its handle, and each
// dispatcher answers an unknown handle in its own way.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <set>
#include <string>

#include "schema_cases.h"
#include "test_support.h"

namespace {

class Dispatch : public cvtest::LibraryTest {};

// Handles no dispatcher knows: zero, a hole in the table range, a selector's, past the last.
constexpr uint32_t kUnknown[] = {0, 0x1000002, 0x10000a6, 0x21010004, 0x23010003, 0xFFFFFFFF};

TEST_F(Dispatch, TheSchemaOfEveryTableAndProfileByItsHandle) {
  std::set<uint32_t> handles;
  for (size_t i = 0; i < kTableSchemaCount; ++i) {
    const BufferTextCase &k = kTableSchemas[i];
    char buf[4096];
    ASSERT_EQ(p4_pd_corvin_switch_cli_schema(k.handle, buf), int(std::strlen(k.want))) << k.name;
    ASSERT_STREQ(buf, k.want) << k.name;
    handles.insert(k.handle);
  }
  EXPECT_EQ(handles.size(), 232u);
  for (uint32_t h : kUnknown) {
    char buf[8] = "xxxxxxx";
    EXPECT_EQ(p4_pd_corvin_switch_cli_schema(h, buf), 2) << std::hex << h;
    EXPECT_STREQ(buf, "()");
  }
}

TEST_F(Dispatch, EntryWalksAndValuesReachEveryTable) {
  // An entry of l2Lookup, found through the dispatchers alone.
  p4_pd_corvin_switch_l2Lookup_match_spec_t k = {0xaabb, 0xccdd, 0x123};
  p4_pd_corvin_switch_l2LookupKnownUcast_action_spec_t a = {0x123};
  uint32_t h = 0;
  ASSERT_EQ(p4_pd_corvin_switch_l2Lookup_table_add_with_l2LookupKnownUcast(kSess, kTgt, &k, &a, &h), 0u);
  uint32_t first = 0;
  ASSERT_EQ(p4_pd_corvin_switch_entry_hdl_first(kSess, kTgt, 0x100002c, &first), 0u);
  EXPECT_EQ(first, h);
  uint32_t next[2] = {};
  p4_pd_corvin_switch_entry_hdl_next(kSess, kTgt, 0x100002c, first, 2, next);
  EXPECT_EQ(next[0], 0xFFFFFFFFu) << "the end of the walk";
  char direct[400], dispatched[400];
  int n = p4_pd_corvin_switch_l2Lookup_value(kSess, uint8_t(kTgt.device_id), h, 0, direct);
  ASSERT_GT(n, 0);
  EXPECT_EQ(p4_pd_corvin_switch_entry_value(kSess, uint8_t(kTgt.device_id), 0x100002c, h, 0, dispatched), n);
  EXPECT_STREQ(dispatched, direct);
  // Every table's walk is reached: an empty table answers the end of the walk, not a miss.
  for (size_t i = 0; i < kTableSchemaCount - 6; ++i) {
    uint32_t t = kTableSchemas[i].handle;
    if (t == 0x100002c) continue;
    drvm_clear_calls();
    uint32_t e = 7;
    p4_pd_corvin_switch_entry_hdl_first(kSess, kTgt, t, &e);
    const drvm_call_t *c = drvm_last_call("pipe_mgr_get_first_entry_handle");
    ASSERT_NE(c, nullptr) << kTableSchemas[i].name;
    EXPECT_EQ(c->tbl_hdl, t);
  }
}

TEST_F(Dispatch, EachDispatcherMissesInItsOwnWay) {
  for (uint32_t h : kUnknown) {
    SCOPED_TRACE(h);
    uint32_t e = 7, next[2] = {7, 7};
    EXPECT_EQ(p4_pd_corvin_switch_entry_hdl_first(kSess, kTgt, h, &e), 0u);
    EXPECT_EQ(e, 0xFFFFFFFFu);
    EXPECT_EQ(p4_pd_corvin_switch_entry_hdl_next(kSess, kTgt, h, 1, 2, next), 0u);
    EXPECT_EQ(next[0], 0xFFFFFFFFu);
    e = 7;
    EXPECT_EQ(p4_pd_corvin_switch_entry_hdl_default(kSess, kTgt, h, &e), 0u);
    EXPECT_EQ(e, 0xFFFFFFFFu);
    e = 7;
    EXPECT_EQ(p4_pd_corvin_switch_member_hdl_first(kSess, kTgt, h, &e), 0xFFFFFFFFu);
    EXPECT_EQ(e, 0xFFFFFFFFu);
    next[0] = 7;
    EXPECT_EQ(p4_pd_corvin_switch_member_hdl_next(kSess, kTgt, h, 1, 2, next), 0xFFFFFFFFu);
    EXPECT_EQ(next[0], 0xFFFFFFFFu);
    char buf[8] = "xxxxxxx";
    EXPECT_EQ(p4_pd_corvin_switch_entry_value(kSess, 1, h, 1, 0, buf), 0);
    EXPECT_EQ(buf[0], 'x');
  }
  EXPECT_EQ(drvm_call_count(), 0u) << "a miss calls no driver function";
  // A profile's action data handle is a table dispatcher's miss, and a table's a member one's.
  uint32_t e = 7;
  EXPECT_EQ(p4_pd_corvin_switch_entry_hdl_first(kSess, kTgt, 0x2201000e, &e), 0u);
  EXPECT_EQ(e, 0xFFFFFFFFu);
  EXPECT_EQ(p4_pd_corvin_switch_member_hdl_first(kSess, kTgt, 0x100002c, &e), 0xFFFFFFFFu);
}

TEST_F(Dispatch, MembersOfEveryProfileByTheirActionDataHandle) {
  p4_pd_corvin_switch_setEcmpNextHop_action_spec_t a = {1, 2};
  uint32_t m = 0;
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_add_member_with_setEcmpNextHop(kSess, kTgt, &a, &m), 0u);
  uint32_t first = 0;
  ASSERT_EQ(p4_pd_corvin_switch_member_hdl_first(kSess, kTgt, 0x2201000e, &first), 0u);
  EXPECT_EQ(first, m);
  for (size_t i = kTableSchemaCount - 6; i < kTableSchemaCount; ++i) {
    drvm_clear_calls();
    uint32_t e = 0;
    p4_pd_corvin_switch_member_hdl_first(kSess, kTgt, kTableSchemas[i].handle, &e);
    EXPECT_EQ(drvm_call_count(), 1u) << kTableSchemas[i].name;
  }
}

}  // namespace
