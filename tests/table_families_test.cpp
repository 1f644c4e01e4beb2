// The match-table families beyond add, over the whole catalog and on the cases the catalog-wide
// round trips cannot reach: driver refusals, unknown handles and types, and the asymmetries between
// add, modify and default entries.
#include <set>
#include <vector>

#include "table_cases.h"
#include "test_support.h"

namespace {

using cvtest::last_add;

class TableFamilies : public cvtest::LibraryTest {};

TEST_F(TableFamilies, EveryEntryActionRoundTrips) {
  for (size_t i = 0; i < kEntryCaseCount; ++i) {
    SCOPED_TRACE(kEntryCases[i].name);
    drvm_reset();
    kEntryCases[i].run();
  }
  EXPECT_EQ(drvm_live_allocs(), 0u) << "every read-back frees its resource list";
  EXPECT_EQ(drvm_log_count(), 0u);
}

TEST_F(TableFamilies, EveryDefaultActionReadsBack) {
  for (size_t i = 0; i < kDefaultCaseCount; ++i) {
    SCOPED_TRACE(kDefaultCases[i].name);
    drvm_reset();
    kDefaultCases[i].run();
  }
  EXPECT_EQ(drvm_live_allocs(), 0u);
}

// ---- Modify and delete ----

TEST_F(TableFamilies, ModifyByKeyHandsTheSameMatchRecordAsAdd) {
  p4_pd_corvin_switch_l2Lookup_match_spec_t key = {0x001122, 0x334455, 0x0123};
  p4_pd_corvin_switch_l2LookupKnownUcast_action_spec_t act = {0x112233};
  p4_pd_entry_hdl_t h;
  ASSERT_EQ(p4_pd_corvin_switch_l2Lookup_table_add_with_l2LookupKnownUcast(kSess, kTgt, &key, &act, &h), 0u);
  std::string value = cvtest::value_of(last_add()), mask = cvtest::mask_of(last_add());
  ASSERT_EQ(p4_pd_corvin_switch_l2Lookup_table_modify_with_l2LookupKnownUcast_by_match_spec(kSess, kTgt, &key, &act), 0u);
  const drvm_call_t &c = *drvm_last_call("pipe_mgr_mat_ent_set_action_by_match_spec");
  EXPECT_EQ(c.tbl_hdl, 0x100002Cu);
  EXPECT_EQ(c.act_fn_hdl, 0x2000006Eu);
  EXPECT_EQ(cvtest::value_of(c), value);
  EXPECT_EQ(cvtest::mask_of(c), mask);
  EXPECT_EQ((uint32_t(c.match.num_match_bytes) << 16) + c.match.num_valid_match_bits, 0x8003Du);
  EXPECT_EQ((uint32_t(c.action.act_data.num_action_data_bytes) << 16) + c.action.act_data.num_valid_action_data_bits,
            0x30015u);
  EXPECT_EQ(c.flags, 0u);
  // No cache: the same change twice is two driver calls.
  ASSERT_EQ(p4_pd_corvin_switch_l2Lookup_table_modify_with_l2LookupKnownUcast_by_match_spec(kSess, kTgt, &key, &act), 0u);
  EXPECT_EQ(drvm_count_calls("pipe_mgr_mat_ent_set_action_by_match_spec"), 2u);
}

TEST_F(TableFamilies, ModifyKeepsTheWholeIndexWhereAddKeepsSixteenBits) {
  p4_pd_corvin_switch_egrL3AintfMeter_match_spec_t key = {};
  p4_pd_corvin_switch_meterEgrL3Aintf_action_spec_t act = {0x12345678};
  p4_pd_entry_hdl_t h;
  ASSERT_EQ(p4_pd_corvin_switch_egrL3AintfMeter_table_add_with_meterEgrL3Aintf(kSess, kTgt, &key, &act, &h), 0u);
  EXPECT_EQ(last_add().action.resources[0].tbl_idx, 0x5678u);
  ASSERT_EQ(p4_pd_corvin_switch_egrL3AintfMeter_table_modify_with_meterEgrL3Aintf(kSess, kTgt.device_id, h, &act), 0u);
  const drvm_call_t &c = *drvm_last_call("pipe_mgr_mat_ent_set_action");
  EXPECT_EQ(c.ent_hdl, h);
  EXPECT_EQ(c.action.resources[0].tbl_idx, 0x12345678u);
  EXPECT_EQ(c.action.resources[0].tag, 1u);
}

TEST_F(TableFamilies, NullMeterSpecIsTagZeroOnModifyAndTwoOnDefault) {
  p4_pd_meter_spec_t meter = {1, 2, 3, 4, 1};
  p4_pd_corvin_switch_l2LookupMiss_match_spec_t key = {};
  p4_pd_entry_hdl_t h;
  ASSERT_EQ(p4_pd_corvin_switch_l2LookupMiss_table_add_with_NoAction(kSess, kTgt, &key, 1, &meter, &h), 0u);
  ASSERT_EQ(p4_pd_corvin_switch_l2LookupMiss_table_modify_with_l2LookupBcastHit(kSess, kTgt.device_id, h, nullptr), 0u);
  const pipe_action_spec_t &m = drvm_last_call("pipe_mgr_mat_ent_set_action")->action;
  EXPECT_EQ(m.resource_count, 1);
  EXPECT_EQ(m.resources[0].tbl_hdl, 0x5000001u);
  EXPECT_EQ(m.resources[0].tag, 0u);
  EXPECT_EQ(cvtest::u64(m.resources[0].data.meter.cir), 0u);
  ASSERT_EQ(p4_pd_corvin_switch_l2LookupMiss_table_modify_with_l2LookupBcastHit_by_match_spec(kSess, kTgt, &key, 1,
                                                                                              &meter), 0u);
  EXPECT_EQ(drvm_last_call("pipe_mgr_mat_ent_set_action_by_match_spec")->action.resources[0].tag, 1u);
  p4_pd_entry_hdl_t d;
  ASSERT_EQ(p4_pd_corvin_switch_l2LookupMiss_set_default_action_NoAction(kSess, kTgt, nullptr, &d), 0u);
  const pipe_action_spec_t &s = drvm_last_call("pipe_mgr_mat_default_entry_set")->action;
  EXPECT_EQ(s.resources[0].tag, 2u);
  EXPECT_EQ(cvtest::u64(s.resources[0].data.meter.cir), 0u);
  ASSERT_EQ(p4_pd_corvin_switch_l2LookupMiss_set_default_action_NoAction(kSess, kTgt, &meter, &d), 0u);
  EXPECT_EQ(drvm_last_call("pipe_mgr_mat_default_entry_set")->action.resources[0].tag, 1u);
  EXPECT_EQ(cvtest::u64(drvm_last_call("pipe_mgr_mat_default_entry_set")->action.resources[0].data.meter.cburst), 2u);
}

TEST_F(TableFamilies, DeleteByKeyOnATernaryTablePassesThePriority) {
  p4_pd_corvin_switch_l2SmacCheck_match_spec_t key = {0x1, 0xFFFFFF, 0x2, 0xFFFFFF};
  ASSERT_EQ(p4_pd_corvin_switch_l2SmacCheck_table_delete_by_match_spec(kSess, kTgt, &key, 77),
            static_cast<uint32_t>(BF_KEY_NOT_FOUND));
  EXPECT_EQ(drvm_last_call("pipe_mgr_mat_ent_del_by_match_spec")->match.priority, 77u);
}

TEST_F(TableFamilies, DriverStatusesPassThroughUnchanged) {
  EXPECT_EQ(p4_pd_corvin_switch_l2Lookup_table_delete(kSess, kTgt.device_id, 12345),
            static_cast<uint32_t>(BF_OBJECT_NOT_FOUND));
  drvm_fail_next("pipe_mgr_mat_ent_set_action", 0x4242);
  EXPECT_EQ(p4_pd_corvin_switch_l2Lookup_table_modify_with_onMiss(kSess, kTgt.device_id, 1), 0x4242u);
}

// ---- Default entries ----

TEST_F(TableFamilies, DefaultEntryReadBackFailuresLeaveTheRecordAndLogNothing) {
  p4_pd_corvin_switch_action_spec_t spec;
  std::memset(&spec, 0x5A, sizeof spec);
  p4_pd_corvin_switch_action_spec_t before = spec;
  drvm_fail_next("pipe_mgr_table_get_default_entry", 0x77);
  EXPECT_EQ(p4_pd_corvin_switch_l2Lookup_table_get_default_entry(kSess, kTgt, 1, &spec), 0x77u);
  EXPECT_EQ(std::memcmp(&spec, &before, sizeof spec), 0);

  // An action handle the table does not have: 15, no log, even in debug mode.
  pipe_action_spec_t foreign;
  std::memset(&foreign, 0, sizeof foreign);
  foreign.action_data_type = PIPE_ACTION_DATA_TYPE;
  ASSERT_EQ(drvm_set_initial_default(kTgt.device_id, 0x100002C, 0x20000001, &foreign), 0);
  drvm_set_debug_mode(1);
  EXPECT_EQ(p4_pd_corvin_switch_l2Lookup_table_get_default_entry(kSess, kTgt, 0, &spec), 15u);
  EXPECT_EQ(std::memcmp(&spec, &before, sizeof spec), 0);
  // A record that is not an action image (a member's, which the driver holds): 15 as well.
  uint32_t m = 0, h = 0;
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_add_member_with_NoAction(kSess, kTgt, &m), 0u);
  foreign.action_data_type = PIPE_ACTION_MBR_TYPE;
  foreign.member_hdl = m;
  ASSERT_EQ(pipe_mgr_mat_default_entry_set(kSess, {kTgt.device_id, kTgt.dev_pipe_id}, 0x100002C, 0x20000099, &foreign,
                                           0, &h), 0);
  EXPECT_EQ(p4_pd_corvin_switch_l2Lookup_table_get_default_entry(kSess, kTgt, 0, &spec), 15u);
  EXPECT_EQ(std::memcmp(&spec, &before, sizeof spec), 0);
  EXPECT_EQ(drvm_log_count(), 0u);
}

TEST_F(TableFamilies, ResetRestoresTheInitialDefault) {
  pipe_action_spec_t initial;
  std::memset(&initial, 0, sizeof initial);
  initial.action_data_type = PIPE_ACTION_DATA_TYPE;
  ASSERT_EQ(drvm_set_initial_default(kTgt.device_id, 0x100002C, 0x20000072, &initial), 0);
  p4_pd_entry_hdl_t h;
  ASSERT_EQ(p4_pd_corvin_switch_l2Lookup_set_default_action_onMiss(kSess, kTgt, &h), 0u);
  EXPECT_EQ(drvm_last_call("pipe_mgr_mat_default_entry_set")->act_fn_hdl, 0x20000072u);
  ASSERT_EQ(p4_pd_corvin_switch_l2Lookup_table_reset_default_entry(kSess, kTgt), 0u);
  p4_pd_corvin_switch_action_spec_t spec;
  ASSERT_EQ(p4_pd_corvin_switch_l2Lookup_table_get_default_entry(kSess, kTgt, 1, &spec), 0u);
  EXPECT_EQ(spec.name, p4_pd_corvin_switch_onMiss);
}

TEST_F(TableFamilies, ProfileBoundDefaultEntryReadsItsBinding) {
  uint8_t is_mbr = 9, is_grp = 9;
  p4_pd_grp_hdl_t grp = 0xAAAA;
  p4_pd_mbr_hdl_t mbr = 0xBBBB;
  uint32_t m = 0, g = 0, d = 0;
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_add_member_with_NoAction(kSess, kTgt, &m), 0u);
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_create_group(kSess, kTgt, 2, &g), 0u);
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_add_member_to_group(kSess, kTgt.device_id, g, m), 0u);
  ASSERT_EQ(p4_pd_corvin_switch_ecmpGroup_set_default_entry_with_selector(kSess, kTgt, g, &d), 0u);
  ASSERT_EQ(p4_pd_corvin_switch_ecmpGroup_table_get_default_entry(kSess, kTgt, 0, &is_mbr, &is_grp, &grp, &mbr), 0u);
  EXPECT_EQ(is_mbr, 0);
  EXPECT_EQ(is_grp, 1);
  EXPECT_EQ(grp, g);
  EXPECT_EQ(mbr, 0xBBBBu) << "the handle not named stays";
  EXPECT_EQ(drvm_last_call("pipe_mgr_table_get_default_entry")->action.act_data.num_action_data_bytes, 0)
      << "no image buffer on a profile-bound table";
  // The program's initial default carries an action image, which a bound table cannot read: 15.
  pipe_action_spec_t initial;
  std::memset(&initial, 0, sizeof initial);
  initial.action_data_type = PIPE_ACTION_DATA_TYPE;
  uint32_t table = 0;
  ASSERT_EQ(p4_pd_corvin_switch_ecmpGroup_get_mat_table_handle(&table), 0u);
  ASSERT_EQ(drvm_set_initial_default(kTgt.device_id, table, 0, &initial), 0);
  ASSERT_EQ(p4_pd_corvin_switch_ecmpGroup_table_reset_default_entry(kSess, kTgt), 0u);
  is_mbr = is_grp = 9;
  EXPECT_EQ(p4_pd_corvin_switch_ecmpGroup_table_get_default_entry(kSess, kTgt, 0, &is_mbr, &is_grp, &grp, &mbr), 15u);
  EXPECT_EQ(is_mbr, 9);
  EXPECT_EQ(is_grp, 9);
}

// ---- Read-back ----

class GetEntry : public TableFamilies {
 protected:
  p4_pd_entry_hdl_t add_known_ucast() {
    p4_pd_corvin_switch_l2Lookup_match_spec_t key = {0x001122, 0x334455, 0x0123};
    p4_pd_corvin_switch_l2LookupKnownUcast_action_spec_t act = {0x112233};
    p4_pd_entry_hdl_t h = 0;
    EXPECT_EQ(p4_pd_corvin_switch_l2Lookup_table_add_with_l2LookupKnownUcast(kSess, kTgt, &key, &act, &h), 0u);
    return h;
  }
  p4_pd_corvin_switch_l2Lookup_match_spec_t key_{};
  char name_[128] = "untouched";
  p4_pd_corvin_switch_l2LookupKnownUcast_action_spec_t params_{0xABCDEF};
  p4_pd_corvin_switch_action_enum_t number_ = p4_pd_corvin_switch_action_enum_none;
  uint8_t dflt_ = 9;
  uint32_t get(p4_pd_entry_hdl_t h) {
    return p4_pd_corvin_switch_l2Lookup_get_entry(kSess, kTgt.device_id, h, 0, &key_, name_, &params_, &number_, &dflt_);
  }
};

TEST_F(GetEntry, ReadsAcrossAllPipesWithTheKeyWordAndACapacityOf56) {
  p4_pd_entry_hdl_t h = add_known_ucast();
  ASSERT_EQ(get(h), 0u);
  const drvm_call_t &c = *drvm_last_call("pipe_mgr_get_entry");
  EXPECT_EQ(c.dev_tgt.dev_pipe_id, 0xFFFFu);
  EXPECT_EQ(c.tbl_hdl, 0x100002Cu);
  EXPECT_EQ(c.ent_hdl, h);
  EXPECT_EQ(key_.egrMd_dmacOui, 0x001122u);
  EXPECT_EQ(key_.egrMd_dmacStation, 0x334455u);
  EXPECT_EQ(key_.egrMd_egrL2Domain, 0x0123u);
  EXPECT_STREQ(name_, "p4_pd_corvin_switch_l2LookupKnownUcast");
  EXPECT_EQ(number_, 92);
  EXPECT_EQ(params_.action_egrL2Aintf, 0x112233u);
  EXPECT_EQ(dflt_, 0);
}

TEST_F(GetEntry, NameAndNumberMayBeNull) {
  p4_pd_entry_hdl_t h = add_known_ucast();
  ASSERT_EQ(p4_pd_corvin_switch_l2Lookup_get_entry(kSess, kTgt.device_id, h, 1, &key_, nullptr, &params_, nullptr, &dflt_),
            0u);
  EXPECT_EQ(params_.action_egrL2Aintf, 0x112233u);
}

TEST_F(GetEntry, DriverRefusalTouchesNothing) {
  EXPECT_EQ(get(999), static_cast<uint32_t>(BF_OBJECT_NOT_FOUND));
  EXPECT_STREQ(name_, "untouched");
  EXPECT_EQ(dflt_, 9);
  EXPECT_EQ(params_.action_egrL2Aintf, 0xABCDEFu);
}

TEST_F(GetEntry, UnknownActionHandleFinishesTheKeyAndYields15) {
  p4_pd_corvin_switch_l2Lookup_match_spec_t key = {0x001122, 0x334455, 0x0123};
  p4_pd_entry_hdl_t h;
  ASSERT_EQ(p4_pd_corvin_switch_l2Lookup_table_add_with_l2LookupDrop(kSess, kTgt, &key, &h), 0u);
  // The action handle of another table's action, put there behind the library's back.
  pipe_action_spec_t empty;
  std::memset(&empty, 0, sizeof empty);
  empty.action_data_type = PIPE_ACTION_DATA_TYPE;
  ASSERT_EQ(pipe_mgr_mat_ent_set_action(kSess, kTgt.device_id, 0x100002C, h, 0x20000001, &empty, 0), 0);
  drvm_clear_log();
  EXPECT_EQ(get(h), 15u);
  EXPECT_STREQ(name_, "untouched");
  EXPECT_EQ(number_, p4_pd_corvin_switch_action_enum_none);
  EXPECT_EQ(params_.action_egrL2Aintf, 0xABCDEFu);
  EXPECT_EQ(key_.egrMd_dmacStation, 0x334455u) << "the key is read all the same";
  EXPECT_EQ(dflt_, 0);
  ASSERT_EQ(drvm_log_count(), 1u);
  EXPECT_EQ(std::string(drvm_log_line(0)).rfind("ASSERTION FAILED: \"((void *)0)\" (NULL) from "
                                                "p4_pd_corvin_switch_l2Lookup_get_entry:", 0), 0u);
}

TEST_F(GetEntry, RecordOfAnotherTypeYields15AtOnce) {
  p4_pd_entry_hdl_t h = add_known_ucast();
  // The driver binds the entry to a member: a record type l2Lookup never uses.
  uint32_t m = 0;
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_add_member_with_NoAction(kSess, kTgt, &m), 0u);
  pipe_action_spec_t member;
  std::memset(&member, 0, sizeof member);
  member.action_data_type = PIPE_ACTION_MBR_TYPE;
  member.member_hdl = m;
  ASSERT_EQ(pipe_mgr_mat_ent_set_action(kSess, kTgt.device_id, 0x100002C, h, 0x20000099, &member, 0), 0);
  drvm_clear_log();
  EXPECT_EQ(get(h), 15u);
  EXPECT_STREQ(name_, "untouched");
  EXPECT_EQ(dflt_, 9) << "nothing is written on this path";
  ASSERT_EQ(drvm_log_count(), 1u);
  EXPECT_EQ(std::string(drvm_log_line(0)).rfind("ASSERTION FAILED: \"0\" (0) from p4_pd_corvin_switch_l2Lookup_get_entry:", 0),
            0u);
}

using GetEntryDeath = GetEntry;

TEST_F(GetEntryDeath, UnknownActionHandleInDebugModeEndsTheProcess) {
  p4_pd_entry_hdl_t h = add_known_ucast();
  pipe_action_spec_t empty;
  std::memset(&empty, 0, sizeof empty);
  empty.action_data_type = PIPE_ACTION_DATA_TYPE;
  ASSERT_EQ(pipe_mgr_mat_ent_set_action(kSess, kTgt.device_id, 0x100002C, h, 0x20000001, &empty, 0), 0);
  drvm_set_debug_mode(1);
  EXPECT_DEATH(get(h), "p4_pd_corvin_switch_l2Lookup_get_entry: Assertion `\\(\\(void \\*\\)0\\)' failed");
}

TEST_F(GetEntry, IndexBearingParameterComesFromTheResourceList) {
  p4_pd_corvin_switch_ingressMirrorRate_match_spec_t key = {};
  p4_pd_corvin_switch_setIngressMirrorColor_action_spec_t act = {0x00071234};
  p4_pd_entry_hdl_t h;
  ASSERT_EQ(p4_pd_corvin_switch_ingressMirrorRate_table_add_with_setIngressMirrorColor(kSess, kTgt, &key, &act, &h), 0u);
  p4_pd_corvin_switch_setIngressMirrorColor_action_spec_t got = {0};
  uint8_t dflt;
  ASSERT_EQ(p4_pd_corvin_switch_ingressMirrorRate_get_entry(kSess, kTgt.device_id, h, 0, &key, nullptr, &got, nullptr,
                                                             &dflt), 0u);
  EXPECT_EQ(got.action_meterIndex, 0x1234u);
  ASSERT_EQ(p4_pd_corvin_switch_ingressMirrorRate_table_modify_with_setIngressMirrorColor(kSess, kTgt.device_id, h, &act),
            0u);
  ASSERT_EQ(p4_pd_corvin_switch_ingressMirrorRate_get_entry(kSess, kTgt.device_id, h, 0, &key, nullptr, &got, nullptr,
                                                             &dflt), 0u);
  EXPECT_EQ(got.action_meterIndex, 0x71234u);
}

TEST_F(GetEntry, ProfileBoundEntryReadsItsBinding) {
  uint32_t table = 0;
  ASSERT_EQ(p4_pd_corvin_switch_lagGroup_get_mat_table_handle(&table), 0u);
  // Bind an entry to a member the way the driver would store it.
  uint32_t m = 0;
  ASSERT_EQ(p4_pd_corvin_switch_lagPortActionProfile_add_member_with_setPhysicalPort(kSess, kTgt, &m), 0u);
  uint8_t value[3] = {0x01, 0x23, 0x45}, mask[3] = {0x1F, 0xFF, 0xFF};
  pipe_tbl_match_spec_t ms = {value, mask, 0, 6, 21, 3, 0};
  pipe_action_spec_t as;
  std::memset(&as, 0, sizeof as);
  as.action_data_type = PIPE_ACTION_MBR_TYPE;
  as.member_hdl = m;
  p4_pd_entry_hdl_t h;
  ASSERT_EQ(pipe_mgr_mat_ent_add(kSess, {kTgt.device_id, kTgt.dev_pipe_id}, table, &ms, 0x200000e4, &as, 0, 0, &h), 0);
  p4_pd_corvin_switch_lagGroup_match_spec_t got;
  uint32_t prio = 0;
  uint8_t is_mbr = 9, is_grp = 9, dflt = 9;
  p4_pd_grp_hdl_t grp = 0;
  p4_pd_mbr_hdl_t mbr = 0;
  ASSERT_EQ(p4_pd_corvin_switch_lagGroup_get_entry(kSess, kTgt.device_id, h, 0, &got, &prio, &is_mbr, &is_grp, &grp, &mbr,
                                                    &dflt), 0u);
  EXPECT_EQ(is_mbr, 1);
  EXPECT_EQ(is_grp, 0);
  EXPECT_EQ(mbr, m);
  EXPECT_EQ(prio, 6u);
  EXPECT_EQ(dflt, 0);
  EXPECT_EQ(got.egrMd_egrL2AintfUnresolved, 0x12345u);
  EXPECT_EQ(got.egrMd_egrL2AintfUnresolved_mask, 0x1FFFFFu);
}

// ---- Iteration, counts, properties, accessors ----

TEST_F(TableFamilies, IterationVisitsEveryHandleOnce) {
  constexpr uint32_t kEntries = 3000;
  std::set<p4_pd_entry_hdl_t> added;
  for (uint32_t i = 0; i < kEntries; ++i) {
    p4_pd_corvin_switch_l2Lookup_match_spec_t key = {i >> 8, i, uint16_t(i & 0x1FFF)};
    p4_pd_entry_hdl_t h;
    ASSERT_EQ(p4_pd_corvin_switch_l2Lookup_table_add_with_l2LookupDrop(kSess, kTgt, &key, &h), 0u);
    added.insert(h);
  }
  uint32_t count = 0;
  ASSERT_EQ(p4_pd_corvin_switch_l2Lookup_get_entry_count(kSess, kTgt, &count), 0u);
  EXPECT_EQ(count, kEntries);
  std::vector<p4_pd_entry_hdl_t> seen;
  p4_pd_entry_hdl_t h;
  ASSERT_EQ(p4_pd_corvin_switch_l2Lookup_get_first_entry_handle(kSess, kTgt, &h), 0u);
  seen.push_back(h);
  for (;;) {
    p4_pd_entry_hdl_t next[64];
    uint32_t st = p4_pd_corvin_switch_l2Lookup_get_next_entry_handles(kSess, kTgt, seen.back(), 64, next);
    if (st != 0) {
      EXPECT_EQ(st, static_cast<uint32_t>(BF_END_OF_WALK));
      break;
    }
    for (p4_pd_entry_hdl_t n : next) {
      if (n == 0xFFFFFFFFu) break;
      seen.push_back(n);
    }
  }
  EXPECT_EQ(seen.size(), kEntries);
  EXPECT_EQ(std::set<p4_pd_entry_hdl_t>(seen.begin(), seen.end()), added);
}

TEST_F(TableFamilies, GetPropertyWritesAllOnesOnRefusal) {
  uint32_t value = 1, args = 2;
  EXPECT_EQ(p4_pd_corvin_switch_l2Lookup_get_property(kSess, 0, 42, &value, &args),
            static_cast<uint32_t>(BF_OBJECT_NOT_FOUND));
  EXPECT_EQ(value, 0xFFFFFFFFu);
  EXPECT_EQ(args, 0xFFFFFFFFu);
  ASSERT_EQ(p4_pd_corvin_switch_l2Lookup_set_property(kSess, 0, 42, 7, 8), 0u);
  ASSERT_EQ(p4_pd_corvin_switch_l2Lookup_get_property(kSess, 0, 42, &value, &args), 0u);
  EXPECT_EQ(value, 7u);
  EXPECT_EQ(args, 8u);
  EXPECT_EQ(drvm_last_call("pipe_mgr_tbl_get_property")->tbl_hdl, 0x100002Cu);
}

struct UpdateLog {
  std::vector<std::pair<int, uint32_t>> events;
};

void on_update(bf_dev_id_t, pipe_mat_tbl_hdl_t, pipe_mat_update_type_t type, pipe_mat_ent_hdl_t ent, pipe_act_fn_hdl_t,
               void *cookie) {
  static_cast<UpdateLog *>(cookie)->events.push_back({type, ent});
}

TEST_F(TableFamilies, UpdateCallbackReachesTheDriverAndIsCalled) {
  UpdateLog log;
  ASSERT_EQ(p4_pd_corvin_switch_l2Lookup_register_mat_update_cb(kSess, kTgt.device_id, on_update, &log), 0u);
  p4_pd_corvin_switch_l2Lookup_match_spec_t key = {1, 2, 3};
  p4_pd_entry_hdl_t h;
  ASSERT_EQ(p4_pd_corvin_switch_l2Lookup_table_add_with_l2LookupDrop(kSess, kTgt, &key, &h), 0u);
  ASSERT_EQ(p4_pd_corvin_switch_l2Lookup_table_delete(kSess, kTgt.device_id, h), 0u);
  ASSERT_EQ(log.events.size(), 2u);
  EXPECT_EQ(log.events[0], std::make_pair(int(PIPE_MAT_UPDATE_ADD), h));
  EXPECT_EQ(log.events[1], std::make_pair(int(PIPE_MAT_UPDATE_DEL), h));
}

TEST_F(TableFamilies, AccessorsAnswerFromTheCatalog) {
  uint32_t handle = 0;
  EXPECT_EQ(p4_pd_corvin_switch_l2Lookup_get_mat_table_handle(&handle), 0u);
  EXPECT_EQ(handle, 0x100002Cu);
  EXPECT_EQ(p4_pd_corvin_switch_l2Lookup_get_mat_table_handle(nullptr), 0u);
  EXPECT_EQ(p4_pd_corvin_switch_ipv4Partition0_supports_entry_priority(), 0);
  EXPECT_EQ(p4_pd_corvin_switch_l2LookupMiss_supports_entry_priority(), 1);
  EXPECT_EQ(p4_pd_corvin_switch_l2Lookup_supports_entry_priority(), 0);
  EXPECT_EQ(p4_pd_corvin_switch_l2Lookup_egrMd_dmacOui_width(), 24);
  EXPECT_EQ(p4_pd_corvin_switch_ingMtu_outerIpv4Hdr_width(), 1);
  EXPECT_EQ(p4_pd_corvin_switch_l2DomainLookup_vlanHdr_0__width(), 1);
  EXPECT_EQ(p4_pd_corvin_switch_ipv6ShortMaskLpm_ingIpv6_dip_width(), 128);
  EXPECT_EQ(drvm_call_count(), 0u) << "none of these asks the driver";
}

// ---- Decoders ----

TEST(Decoders, PrefixIsThePositionOfTheLowestSetMaskBit) {
  uint8_t value[6] = {0x01, 0x55, 0x0A, 0x01, 0x02, 0x00};
  uint8_t mask[6] = {0x03, 0xFF, 0xFF, 0x00, 0xFF, 0x00};  // a hole above the lowest set bit
  pipe_tbl_match_spec_t ms = {value, mask, 0, 0, 42, 6, 0};
  p4_pd_corvin_switch_ipv4Partition0_match_spec_t key;
  unbuild_key_ipv4Partition0(&ms, &key);
  unbuild_mask_ipv4Partition0(&ms, &key);
  EXPECT_EQ(key.l3Info_vrfId, 0x155);
  EXPECT_EQ(key.ingIpv4_dipAndVrf, 0x0A010200u);
  EXPECT_EQ(key.ingIpv4_dipAndVrf_prefix_length, 24);
  std::memset(mask + 2, 0xFF, 4);
  unbuild_mask_ipv4Partition0(&ms, &key);
  EXPECT_EQ(key.ingIpv4_dipAndVrf_prefix_length, 32) << "an all-ones mask reads as the width";
  std::memset(mask + 2, 0, 4);
  unbuild_mask_ipv4Partition0(&ms, &key);
  EXPECT_EQ(key.ingIpv4_dipAndVrf_prefix_length, 0);
}

TEST(Decoders, PartitionFieldComesFromThePartitionIndex) {
  uint8_t value[6] = {0xAA, 0xBB, 0x0A, 0x01, 0x02, 0x00};
  uint8_t mask[6] = {0, 0, 0xFF, 0xFF, 0xFF, 0};
  pipe_tbl_match_spec_t ms = {value, mask, 0x51234, 8, 48, 6, 0};
  p4_pd_corvin_switch_ipv4FinalResolve0_match_spec_t key;
  unbuild_key_ipv4FinalResolve0(&ms, &key);
  unbuild_mask_ipv4FinalResolve0(&ms, &key);
  EXPECT_EQ(key.fibV4ResultX_partIdx, 0x1234) << "low 16 bits; the image bytes are skipped";
  EXPECT_EQ(key.ingIpv4_dip, 0x0A010200u);
  EXPECT_EQ(key.ingIpv4_dip_prefix_length, 24);
}

TEST(Decoders, IndexParameterFromTheResourceList) {
  uint8_t image[4] = {0xDE, 0xAD, 0xBE, 0xEF};
  pipe_action_data_spec_t data = {32, 4, image};
  p4_pd_corvin_switch_meterEgrL3Aintf_action_spec_t spec;
  unbuild_action_spec_meterEgrL3Aintf(&data, nullptr, 0, &spec);
  EXPECT_EQ(spec.action_meterId, 0xFFFFu) << "no list at all";
  p4_pd_res_spec_t other[1] = {{0x4000001, 9}};
  unbuild_action_spec_meterEgrL3Aintf(&data, other, 1, &spec);
  EXPECT_EQ(spec.action_meterId, 0u) << "a list without the meter";
  p4_pd_res_spec_t both[2] = {{0x5000005, 3}, {0x5000005, 4}};
  unbuild_action_spec_meterEgrL3Aintf(&data, both, 2, &spec);
  EXPECT_EQ(spec.action_meterId, 4u) << "the last pair wins";
  p4_pd_corvin_switch_meterPdpClass_action_spec_t pdp;
  unbuild_action_spec_meterPdpClass(&data, both, 2, &pdp);
  EXPECT_EQ(pdp.action_pdpClassId, 0xDEADBEEFu) << "meterPdpClass reads its image";
}

}  // namespace
