// The action-profile families against the driver model: every member action and every bound table
// from the catalog, the roads of a route through an ECMP group, a LAG, a mirror LAG and a tunnel
// next hop, and the orders and edge cases that a catalog-wide round trip cannot reach.
#include <cjson/cJSON.h>

#include <string>
#include <vector>

#include "table_cases.h"
#include "test_support.h"

namespace {

constexpr uint32_t kEcmpAdt = 0x2201000e, kEcmpSel = 0x23010001;
constexpr uint32_t kSetEcmpNextHop = 0x20000098, kEcmpNoAction = 0x20000099;
constexpr uint32_t kLagAdt = 0x22010021, kLagSel = 0x23010003;
constexpr uint32_t kSetLagPort = 0x200000e3, kSetPhysicalPort = 0x200000e4;
constexpr size_t kEcmp = 3, kLag = 5;  // positions in the canonical profile order

class Profiles : public cvtest::LibraryTest {
 protected:
  static uint32_t ecmp_member(uint8_t table, uint32_t next_hop, p4_pd_dev_target_t tgt = kTgt) {
    p4_pd_corvin_switch_setEcmpNextHop_action_spec_t a = {table, next_hop};
    uint32_t m = 0;
    EXPECT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_add_member_with_setEcmpNextHop(kSess, tgt, &a, &m), 0u);
    return m;
  }
  static uint32_t lag_port(uint16_t port) {
    p4_pd_corvin_switch_setLagPort_action_spec_t a = {port};
    uint32_t m = 0;
    EXPECT_EQ(p4_pd_corvin_switch_lagPortActionProfile_add_member_with_setLagPort(kSess, kTgt, &a, &m), 0u);
    return m;
  }
  static uint32_t ecmp_group(std::initializer_list<uint32_t> members, uint32_t size = 8) {
    uint32_t g = 0;
    EXPECT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_create_group(kSess, kTgt, size, &g), 0u);
    for (uint32_t m : members)
      EXPECT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_add_member_to_group(kSess, kTgt.device_id, g, m), 0u);
    return g;
  }
};

// What the library's state holds for one profile of a device, as its device state record gives it.
std::string logged(bf_dev_id_t dev, size_t profile) {
  cJSON *root = cJSON_CreateObject();
  EXPECT_EQ(drvm_fire_dev_log(dev, root), 0);
  char *text = cJSON_PrintUnformatted(cJSON_GetArrayItem(cJSON_GetObjectItem(root, "act_profs"), int(profile)));
  std::string out = text ? text : "";
  cJSON_free(text);
  cJSON_Delete(root);
  return out;
}

// ---- Every member action and every bound table ----

TEST_F(Profiles, EveryMemberActionRoundTrips) {
  for (size_t i = 0; i < kMemberCaseCount; ++i) {
    SCOPED_TRACE(kMemberCases[i].name);
    drvm_reset();
    p4_pd_corvin_switch_init();
    kMemberCases[i].run();
  }
  EXPECT_EQ(drvm_log_count(), 0u);
}

TEST_F(Profiles, EveryBoundTableBindsToMembersAndGroups) {
  for (size_t i = 0; i < kBoundCaseCount; ++i) {
    SCOPED_TRACE(kBoundCases[i].name);
    drvm_reset();
    p4_pd_corvin_switch_init();
    kBoundCases[i].run();
  }
  EXPECT_EQ(drvm_live_allocs(), 0u);
  EXPECT_EQ(drvm_log_count(), 0u);
}

// ---- The roads of a packet ----

// A host route selects ECMP group 7; ecmpGroup binds index 7 to a group of two next hops in banks 0
// and 3; the banks hold the next hops' details. Every part reads back as it was written.
TEST_F(Profiles, AnEcmpRouteResolvesThroughAGroupOfNextHops) {
  uint32_t m1 = ecmp_member(0, 100), m2 = ecmp_member(3, 200);
  uint32_t g = ecmp_group({m1, m2});
  p4_pd_corvin_switch_ipv4Host_match_spec_t host = {12, 0x0A000001};
  p4_pd_corvin_switch_setEcmp_action_spec_t route = {7};
  uint32_t hh = 0, eh = 0, nh = 0;
  ASSERT_EQ(p4_pd_corvin_switch_ipv4Host_table_add_with_setEcmp(kSess, kTgt, &host, &route, &hh), 0u);
  p4_pd_corvin_switch_ecmpGroup_match_spec_t ecmp = {7};
  ASSERT_EQ(p4_pd_corvin_switch_ecmpGroup_add_entry_with_selector(kSess, kTgt, &ecmp, g, &eh), 0u);
  EXPECT_EQ(drvm_last_call("pipe_mgr_mat_ent_add")->act_fn_hdl, kSetEcmpNextHop) << "the group's action";
  p4_pd_corvin_switch_routerNextHop3_match_spec_t bank = {200};
  p4_pd_corvin_switch_setRouterNextHopDetails_action_spec_t details = {0x1ABCDE, 0x1FF, 2};
  ASSERT_EQ(p4_pd_corvin_switch_routerNextHop3_table_add_with_setRouterNextHopDetails(kSess, kTgt, &bank, &details,
                                                                                      &nh), 0u);

  p4_pd_corvin_switch_ecmpGroup_match_spec_t key;
  uint8_t is_mbr = 9, is_grp = 9, dflt = 9;
  uint32_t mbr = 0, grp = 0;
  ASSERT_EQ(p4_pd_corvin_switch_ecmpGroup_get_entry(kSess, 1, eh, 0, &key, &is_mbr, &is_grp, &grp, &mbr, &dflt), 0u);
  EXPECT_EQ(key.l3_nextHop, 7);
  EXPECT_EQ(is_grp, 1);
  EXPECT_EQ(is_mbr, 0);
  EXPECT_EQ(grp, g);
  EXPECT_EQ(dflt, 0);
  // The group's members by the walk, and each by get_member.
  uint32_t first = 0, next[4] = {};
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_get_first_group_member(kSess, 1, g, &first), 0u);
  p4_pd_corvin_switch_ecmpMemberActionProfile_get_next_group_members(kSess, 1, g, first, 4, next);
  std::vector<uint32_t> walked = {first, next[0]};
  EXPECT_EQ(walked, (std::vector<uint32_t>{m1, m2}));
  EXPECT_EQ(next[1], 0xFFFFFFFFu);
  uint32_t count = 0;
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_get_selector_group_member_count(kSess, 1, g, &count), 0u);
  EXPECT_EQ(count, 2u);
  p4_pd_corvin_switch_action_spec_t spec;
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_get_member(kSess, 1, m2, 0, &spec), 0u);
  EXPECT_EQ(spec.name, p4_pd_corvin_switch_setEcmpNextHop);
  EXPECT_EQ(spec.u.p4_pd_corvin_switch_setEcmpNextHop.action_nextHopTable, 3);
  EXPECT_EQ(spec.u.p4_pd_corvin_switch_setEcmpNextHop.action_nextHop, 200u);
  // Members and groups by the profile's walks and counts.
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_get_first_member(kSess, kTgt, &first), 0u);
  EXPECT_EQ(first, m1);
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_get_next_members(kSess, kTgt, m1, 4, next), 0u);
  EXPECT_EQ(next[0], m2);
  EXPECT_EQ(next[1], 0xFFFFFFFFu);
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_get_first_group(kSess, kTgt, &first), 0u);
  EXPECT_EQ(first, g);
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_get_act_prof_entry_count(kSess, kTgt, &count), 0u);
  EXPECT_EQ(count, 2u);
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_get_selector_group_count(kSess, kTgt, &count), 0u);
  EXPECT_EQ(count, 1u);
  // The hash picks one of the two; with one of them inactive, always the other.
  uint8_t hash[2] = {0x12, 0x34};
  uint32_t picked = 0;
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_group_member_get_from_hash(kSess, 1, g, hash, 2, &picked), 0u);
  EXPECT_TRUE(picked == m1 || picked == m2);
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_group_member_state_set(kSess, 1, g, m1,
                                                                               P4_PD_GRP_MBR_STATE_INACTIVE), 0u);
  for (uint8_t b = 0; b < 16; ++b) {
    hash[1] = b;
    ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_group_member_get_from_hash(kSess, 1, g, hash, 2, &picked),
              0u);
    EXPECT_EQ(picked, m2);
  }
  p4_pd_grp_mbr_state_e st = P4_PD_GRP_MBR_STATE_ACTIVE;
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_group_member_state_get(kSess, 1, g, m1, &st), 0u);
  EXPECT_EQ(st, P4_PD_GRP_MBR_STATE_INACTIVE);
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_get_word_llp_active_member_count(kSess, kTgt, 0, &count), 0u);
  EXPECT_EQ(count, 1u);
}

// lagGroup is ternary: entries take a priority, and a value bit outside the mask never reaches the
// driver. The LAG's ports read back through the group.
TEST_F(Profiles, ALagResolvesThroughATernaryEntryBoundToAGroup) {
  uint32_t p1 = lag_port(5), p2 = lag_port(6);
  uint32_t g = 0, h = 0;
  ASSERT_EQ(p4_pd_corvin_switch_lagPortActionProfile_create_group(kSess, kTgt, 2, &g), 0u);
  ASSERT_EQ(p4_pd_corvin_switch_lagPortActionProfile_add_member_to_group(kSess, 1, g, p1), 0u);
  ASSERT_EQ(p4_pd_corvin_switch_lagPortActionProfile_add_member_to_group(kSess, 1, g, p2), 0u);
  p4_pd_corvin_switch_lagGroup_match_spec_t key = {0x1FFFFF, 0x00FFFF};
  ASSERT_EQ(p4_pd_corvin_switch_lagGroup_add_entry_with_selector(kSess, kTgt, &key, 10, g, &h), 0u);
  const drvm_call_t &c = cvtest::last_add();
  EXPECT_EQ(cvtest::value_of(c), "00ffff");
  EXPECT_EQ(cvtest::mask_of(c), "00ffff");
  EXPECT_EQ(c.match.priority, 10u);
  // A mask with bits above the 21st: the first mask byte loses its top three bits, the value byte
  // was ANDed with the uncut mask.
  p4_pd_corvin_switch_lagGroup_match_spec_t wide = {0xFFFFFF, 0xFFFFFF};
  uint32_t h2 = 0;
  ASSERT_EQ(p4_pd_corvin_switch_lagGroup_add_entry_with_selector(kSess, kTgt, &wide, 11, g, &h2), 0u);
  EXPECT_EQ(cvtest::value_of(cvtest::last_add()), "ffffff");
  EXPECT_EQ(cvtest::mask_of(cvtest::last_add()), "1fffff");

  p4_pd_corvin_switch_lagGroup_match_spec_t got;
  uint32_t prio = 0, grp = 0, mbr = 0x5A5A5A5A;
  uint8_t is_mbr = 9, is_grp = 9, dflt = 9;
  ASSERT_EQ(p4_pd_corvin_switch_lagGroup_get_entry(kSess, 1, h, 0, &got, &prio, &is_mbr, &is_grp, &grp, &mbr, &dflt),
            0u);
  EXPECT_EQ(is_mbr, 0);
  EXPECT_EQ(is_grp, 1);
  EXPECT_EQ(grp, g);
  EXPECT_EQ(mbr, 0x5A5A5A5Au) << "the member handle word stays as it was";
  EXPECT_EQ(prio, 10u);
  EXPECT_EQ(got.egrMd_egrL2AintfUnresolved, 0x00FFFFu);
  EXPECT_EQ(got.egrMd_egrL2AintfUnresolved_mask, 0x00FFFFu);
  p4_pd_corvin_switch_action_spec_t spec;
  ASSERT_EQ(p4_pd_corvin_switch_lagPortActionProfile_get_member(kSess, 1, p2, 0, &spec), 0u);
  EXPECT_EQ(spec.name, p4_pd_corvin_switch_setLagPort);
  EXPECT_EQ(spec.u.p4_pd_corvin_switch_setLagPort.action_egrL2AintfPort, 6);
  // The group is full at two.
  uint32_t p3 = lag_port(7);
  EXPECT_EQ(p4_pd_corvin_switch_lagPortActionProfile_add_member_to_group(kSess, 1, g, p3),
            static_cast<uint32_t>(BF_NO_SPACE));
}

TEST_F(Profiles, AMirrorLagIsTheIngressProfilesAloneAndTheEgressOneIsSeparate) {
  p4_pd_corvin_switch_setLagMemberSelector_action_spec_t sel = {0x3FF};
  uint32_t m = 0, g = 0, h = 0;
  ASSERT_EQ(p4_pd_corvin_switch_mirrorLagPortActionProfile_add_member_with_setLagMemberSelector(kSess, kTgt, &sel, &m),
            0u);
  EXPECT_EQ(cvtest::image_of(*drvm_last_call("pipe_mgr_adt_ent_add")), "03ff");
  ASSERT_EQ(p4_pd_corvin_switch_mirrorLagPortActionProfile_create_group(kSess, kTgt, 4, &g), 0u);
  ASSERT_EQ(p4_pd_corvin_switch_mirrorLagPortActionProfile_add_member_to_group(kSess, 1, g, m), 0u);
  p4_pd_corvin_switch_ingressMirrorLagGroup_match_spec_t key = {0x55};
  ASSERT_EQ(p4_pd_corvin_switch_ingressMirrorLagGroup_add_entry_with_selector(kSess, kTgt, &key, g, &h), 0u);
  EXPECT_EQ(cvtest::last_add().act_fn_hdl, 0x200000d1u);
  // The egress mirror LAG has the same shape and a state of its own: it knows neither handle.
  p4_pd_corvin_switch_egressMirrorLagGroup_match_spec_t ekey = {0x55};
  size_t adds = drvm_count_calls("pipe_mgr_mat_ent_add");
  EXPECT_NE(p4_pd_corvin_switch_egressMirrorLagGroup_add_entry(kSess, kTgt, &ekey, m, &h), 0u);
  EXPECT_NE(p4_pd_corvin_switch_egressMirrorLagGroup_add_entry_with_selector(kSess, kTgt, &ekey, g, &h), 0u);
  EXPECT_EQ(drvm_count_calls("pipe_mgr_mat_ent_add"), adds) << "refused by the state, the driver is not asked";
}

TEST_F(Profiles, ATunnelNextHopResolvesToAMemberWithItsWideParameterWhole) {
  p4_pd_corvin_switch_setTunnelEgressInfo_action_spec_t info = {0x123456, 0xCAFEF00D};
  uint32_t m = 0, h = 0;
  ASSERT_EQ(p4_pd_corvin_switch_tunnelMemberActionProfile_add_member_with_setTunnelEgressInfo(kSess, kTgt, &info, &m),
            0u);
  EXPECT_EQ(cvtest::image_of(*drvm_last_call("pipe_mgr_adt_ent_add")), "123456cafef00d")
      << "a 21-bit parameter fills 24 bits of image, uncut";
  p4_pd_corvin_switch_tunnelResolve_match_spec_t key = {0x1AB};
  ASSERT_EQ(p4_pd_corvin_switch_tunnelResolve_add_entry(kSess, kTgt, &key, m, &h), 0u);
  EXPECT_EQ(cvtest::last_add().act_fn_hdl, 0x200000c8u);
  EXPECT_EQ(cvtest::value_of(cvtest::last_add()), "01ab");
  p4_pd_corvin_switch_action_spec_t spec;
  std::memset(&spec, 0xA5, sizeof spec);
  ASSERT_EQ(p4_pd_corvin_switch_tunnelMemberActionProfile_get_member(kSess, 1, m, 0, &spec), 0u);
  EXPECT_EQ(spec.name, p4_pd_corvin_switch_setTunnelEgressInfo);
  EXPECT_EQ(spec.u.p4_pd_corvin_switch_setTunnelEgressInfo.action_egrL2AintfUnresolved, 0x123456u);
  EXPECT_EQ(spec.u.p4_pd_corvin_switch_setTunnelEgressInfo.action_tunnelInfoIdx, 0xCAFEF00Du);
  // The two tunnel actions share an image, not an identity.
  p4_pd_corvin_switch_setTunnelEgressInfoGre_action_spec_t gre = {0x123456, 0xCAFEF00D};
  EXPECT_EQ(p4_pd_corvin_switch_tunnelMemberActionProfile_modify_member_with_setTunnelEgressInfoGre(kSess, 1, m, &gre),
            0xFFFFFFFFu);
  EXPECT_EQ(drvm_count_calls("pipe_mgr_adt_ent_set"), 0u);
}

// ---- Members ----

TEST_F(Profiles, ADriverRefusalOfAMemberLeavesTheStateAlone) {
  std::string before = logged(kTgt.device_id, kEcmp);
  drvm_fail_next("pipe_mgr_adt_ent_add", 0x4321);
  p4_pd_corvin_switch_setEcmpNextHop_action_spec_t a = {1, 2};
  uint32_t m = 0x77;
  EXPECT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_add_member_with_setEcmpNextHop(kSess, kTgt, &a, &m), 0x4321u);
  EXPECT_EQ(m, 0x77u) << "the handle is whatever the driver left";
  EXPECT_EQ(logged(kTgt.device_id, kEcmp), before);
  // Nor do refused changes and deletes move the state.
  uint32_t real = ecmp_member(1, 2);
  std::string with = logged(kTgt.device_id, kEcmp);
  drvm_fail_next("pipe_mgr_adt_ent_del", 0x99);
  EXPECT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_del_member(kSess, 1, real), 0x99u);
  EXPECT_EQ(logged(kTgt.device_id, kEcmp), with);
  drvm_fail_next("pipe_mgr_adt_ent_set", 0x98);
  EXPECT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_modify_member_with_setEcmpNextHop(kSess, 1, real, &a), 0x98u);
  EXPECT_EQ(logged(kTgt.device_id, kEcmp), with);
}

TEST_F(Profiles, EachProfileKnowsOnlyItsOwnMembers) {
  uint32_t m = 0;
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_add_member_with_NoAction(kSess, kTgt, &m), 0u);
  EXPECT_EQ(drvm_last_call("pipe_mgr_adt_ent_add")->act_fn_hdl, kEcmpNoAction);
  // The tunnel profile's NoAction has another handle, and its state has never heard of m.
  EXPECT_EQ(p4_pd_corvin_switch_tunnelMemberActionProfile_modify_member_with_NoAction(kSess, 1, m),
            static_cast<uint32_t>(BF_OBJECT_NOT_FOUND));
  EXPECT_EQ(drvm_count_calls("pipe_mgr_adt_ent_set"), 0u);
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_modify_member_with_NoAction(kSess, 1, m), 0u);
  const drvm_call_t &c = *drvm_last_call("pipe_mgr_adt_ent_set");
  EXPECT_EQ(c.act_fn_hdl, kEcmpNoAction);
  EXPECT_EQ(c.action.act_data.num_valid_action_data_bits, 0);
  EXPECT_EQ(c.action.act_data.num_action_data_bytes, 0);
}

TEST_F(Profiles, AMemberOfOnePipeIsChangedAndDeletedByDeviceAlone) {
  uint32_t m = ecmp_member(1, 2, {1, 1});
  EXPECT_EQ(drvm_last_call("pipe_mgr_adt_ent_add")->dev_tgt.dev_pipe_id, 1u);
  p4_pd_corvin_switch_setEcmpNextHop_action_spec_t a = {4, 5};
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_modify_member_with_setEcmpNextHop(kSess, 1, m, &a), 0u);
  EXPECT_EQ(drvm_last_call("pipe_mgr_adt_ent_set")->dev_tgt.device_id, 1u);
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_del_member(kSess, 1, m), 0u);
  // Twice: the driver is asked again, and its refusal is the result.
  uint32_t second = p4_pd_corvin_switch_ecmpMemberActionProfile_del_member(kSess, 1, m);
  EXPECT_NE(second, 0u);
  EXPECT_EQ(second, static_cast<uint32_t>(drvm_last_call("pipe_mgr_adt_ent_del")->status));
  EXPECT_EQ(drvm_count_calls("pipe_mgr_adt_ent_del"), 2u);
}

TEST_F(Profiles, GetMemberOfAnActionOutsideTheProfileAssertsSoftly) {
  // A member the driver holds with an action of another profile's.
  pipe_action_spec_t rec{};
  uint8_t byte = 0;
  rec.act_data.action_data_bytes = &byte;
  uint32_t m = 0;
  ASSERT_EQ(pipe_mgr_adt_ent_add(1, dev_target_t{1, 0xFFFF}, kEcmpAdt, kSetLagPort, 0, &rec, &m, 0), 0);
  p4_pd_corvin_switch_action_spec_t spec;
  std::memset(&spec, 0x5A, sizeof spec);
  p4_pd_corvin_switch_action_spec_t before = spec;
  drvm_clear_log();
  EXPECT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_get_member(kSess, 1, m, 0, &spec), 15u);
  EXPECT_EQ(std::memcmp(&spec, &before, sizeof spec), 0);
  ASSERT_EQ(drvm_log_count(), 1u);
  EXPECT_EQ(std::string(drvm_log_line(0)).find("ASSERTION FAILED: \"((void *)0)\" (NULL) from "
                                               "p4_pd_corvin_switch_ecmpMemberActionProfile_get_member:"),
            0u);
  // The driver's own refusal comes back untouched.
  EXPECT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_get_member(kSess, 1, 0xABCDEF, 0, &spec),
            static_cast<uint32_t>(BF_OBJECT_NOT_FOUND));
  EXPECT_EQ(std::memcmp(&spec, &before, sizeof spec), 0);
  EXPECT_EQ(drvm_log_count(), 1u);
}

TEST_F(Profiles, GetMemberReadsTheDriverNotTheState) {
  uint32_t m = ecmp_member(9, 0x01020304);
  // The state forgets the device; the driver still holds the member.
  ASSERT_EQ(drvm_fire_dev_remove(kTgt.device_id), 0);
  p4_pd_corvin_switch_action_spec_t spec;
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_get_member(kSess, kTgt.device_id, m, 1, &spec), 0u);
  EXPECT_EQ(spec.u.p4_pd_corvin_switch_setEcmpNextHop.action_nextHop, 0x01020304u);
  EXPECT_EQ(drvm_last_call("pipe_mgr_get_action_data_entry")->dev_tgt.dev_pipe_id, 0xFFFFu);
}

// ---- Groups ----

TEST_F(Profiles, AGroupTakesTheActionOfTheMemberAddedLast) {
  uint32_t hop = ecmp_member(1, 1), none = 0, g = ecmp_group({hop});
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_add_member_with_NoAction(kSess, kTgt, &none), 0u);
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_add_member_to_group(kSess, 1, g, none), 0u);
  EXPECT_EQ(drvm_last_call("pipe_mgr_sel_grp_mbr_add")->act_fn_hdl, kEcmpNoAction) << "the member's own action";
  p4_pd_corvin_switch_ecmpGroup_match_spec_t key = {1};
  uint32_t h = 0;
  ASSERT_EQ(p4_pd_corvin_switch_ecmpGroup_add_entry_with_selector(kSess, kTgt, &key, g, &h), 0u);
  EXPECT_EQ(cvtest::last_add().act_fn_hdl, kEcmpNoAction);
  // Removing that member does not give the group its former action back.
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_del_member_from_group(kSess, 1, g, none), 0u);
  ASSERT_EQ(p4_pd_corvin_switch_ecmpGroup_modify_entry_with_selector(kSess, 1, h, g), 0u);
  EXPECT_EQ(drvm_last_call("pipe_mgr_mat_ent_set_action")->act_fn_hdl, kEcmpNoAction);
}

TEST_F(Profiles, AMemberTheStateDoesNotKnowCannotJoinAndTheDriverIsNotAsked) {
  uint32_t g = ecmp_group({});
  EXPECT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_add_member_to_group(kSess, 1, g, 0x1234),
            static_cast<uint32_t>(BF_OBJECT_NOT_FOUND));
  EXPECT_EQ(drvm_count_calls("pipe_mgr_sel_grp_mbr_add"), 0u);
  // Nor can an entry bind to a group the state does not know.
  p4_pd_corvin_switch_ecmpGroup_match_spec_t key = {1};
  uint32_t h = 0x77;
  EXPECT_EQ(p4_pd_corvin_switch_ecmpGroup_add_entry_with_selector(kSess, kTgt, &key, 0x4242, &h),
            static_cast<uint32_t>(BF_OBJECT_NOT_FOUND));
  EXPECT_EQ(h, 0x77u) << "the entry handle is not written";
  EXPECT_EQ(drvm_count_calls("pipe_mgr_mat_ent_add"), 0u);
}

TEST_F(Profiles, DeletingAnEmptyGroupTakesTwoDriverCallsAndNoList) {
  uint32_t g = ecmp_group({});
  drvm_clear_calls();
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_del_group(kSess, 1, g), 0u);
  ASSERT_EQ(drvm_call_count(), 2u);
  EXPECT_STREQ(drvm_call(0)->fn, "pipe_mgr_get_sel_grp_mbr_count");
  EXPECT_STREQ(drvm_call(1)->fn, "pipe_mgr_sel_grp_del");
  EXPECT_EQ(logged(1, kEcmp).find("grp_hdl"), std::string::npos) << logged(1, kEcmp);
  EXPECT_EQ(drvm_live_allocs(), 0u);
}

TEST_F(Profiles, DeletingAGroupWithMembersTellsTheStateWhichMembersItHad) {
  uint32_t a = ecmp_member(1, 1), b = ecmp_member(2, 2), c = ecmp_member(3, 3);
  uint32_t g = ecmp_group({a, b, c}), other = ecmp_group({a});
  drvm_clear_calls();
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_del_group(kSess, 1, g), 0u);
  ASSERT_EQ(drvm_call_count(), 3u);
  EXPECT_STREQ(drvm_call(1)->fn, "pipe_mgr_sel_grp_mbrs_get");
  EXPECT_STREQ(drvm_call(2)->fn, "pipe_mgr_sel_grp_del");
  EXPECT_EQ(drvm_live_allocs(), 0u) << "both arrays are freed";
  // The members stay, and now belong to the other group alone; they can be deleted.
  std::string state = logged(1, kEcmp);
  EXPECT_EQ(state.find("\"grp_hdl\":" + std::to_string(g) + ","), std::string::npos) << state;
  EXPECT_NE(state.find("\"grp_hdl\":" + std::to_string(other) + ","), std::string::npos) << state;
  EXPECT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_del_member(kSess, 1, b), 0u);
  EXPECT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_del_member(kSess, 1, c), 0u);
}

TEST_F(Profiles, OutOfMemoryInDelGroupLeavesTheGroupStanding) {
  uint32_t a = ecmp_member(1, 1), b = ecmp_member(2, 2), g = ecmp_group({a, b});
  std::string before = logged(1, kEcmp);
  for (size_t failing = 0; failing < 2; ++failing) {
    SCOPED_TRACE(failing == 0 ? "the first allocation fails" : "the second allocation fails");
    drvm_clear_calls();
    drvm_fail_alloc_after(failing);
    EXPECT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_del_group(kSess, 1, g), 2u);
    drvm_fail_alloc_off();
    EXPECT_EQ(drvm_live_allocs(), 0u) << "the allocation that succeeded is freed";
    EXPECT_EQ(drvm_count_calls("pipe_mgr_sel_grp_mbrs_get"), 0u);
    EXPECT_EQ(drvm_count_calls("pipe_mgr_sel_grp_del"), 0u);
    EXPECT_EQ(drvm_log_count(), 0u);
    EXPECT_EQ(logged(1, kEcmp), before);
    uint32_t count = 0;
    ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_get_selector_group_member_count(kSess, 1, g, &count), 0u);
    EXPECT_EQ(count, 2u);
  }
}

TEST_F(Profiles, ADriverRefusalInDelGroupFreesTheListAndKeepsTheState) {
  uint32_t a = ecmp_member(1, 1), g = ecmp_group({a});
  std::string before = logged(1, kEcmp);
  for (const char *fn : {"pipe_mgr_get_sel_grp_mbr_count", "pipe_mgr_sel_grp_mbrs_get", "pipe_mgr_sel_grp_del"}) {
    SCOPED_TRACE(fn);
    drvm_fail_next(fn, 0x55);
    EXPECT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_del_group(kSess, 1, g), 0x55u);
    EXPECT_EQ(drvm_live_allocs(), 0u);
    EXPECT_EQ(logged(1, kEcmp), before);
  }
}

TEST_F(Profiles, CreateGroupPassesItsConstantsWhateverTheArguments) {
  uint32_t g = 0;
  ASSERT_EQ(p4_pd_corvin_switch_foldedPipeActionProfile_create_group(9, {2, 3}, 77, &g), 0u);
  const drvm_call_t &c = *drvm_last_call("pipe_mgr_sel_grp_add");
  EXPECT_EQ(c.sess_hdl, 9u);
  EXPECT_EQ(c.dev_tgt.device_id, 2u);
  EXPECT_EQ(c.dev_tgt.dev_pipe_id, 3u);
  EXPECT_EQ(c.tbl_hdl, 0x3000002u);
  EXPECT_EQ(c.ent_hdl, g);
  EXPECT_EQ(c.flags, 0u);
  EXPECT_NE(logged(2, 2).find("\"grp_hdl\":" + std::to_string(g)), std::string::npos);
}

TEST_F(Profiles, MemberStatesSwitchInTheDriverAlone) {
  uint32_t a = ecmp_member(1, 1), g = ecmp_group({a});
  std::string before = logged(1, kEcmp);
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_group_member_state_set(kSess, 1, g, a,
                                                                               P4_PD_GRP_MBR_STATE_INACTIVE), 0u);
  EXPECT_EQ(drvm_count_calls("pipe_mgr_sel_grp_mbr_disable"), 1u);
  p4_pd_grp_mbr_state_e st = P4_PD_GRP_MBR_STATE_ACTIVE;
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_group_member_state_get(kSess, 1, g, a, &st), 0u);
  EXPECT_EQ(st, P4_PD_GRP_MBR_STATE_INACTIVE);
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_group_member_state_set(kSess, 1, g, a,
                                                                               P4_PD_GRP_MBR_STATE_ACTIVE), 0u);
  EXPECT_EQ(drvm_count_calls("pipe_mgr_sel_grp_mbr_enable"), 1u);
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_group_member_state_get(kSess, 1, g, a, &st), 0u);
  EXPECT_EQ(st, P4_PD_GRP_MBR_STATE_ACTIVE);
  EXPECT_EQ(logged(1, kEcmp), before) << "the state is not told";
  // A refused read leaves the caller's word.
  st = static_cast<p4_pd_grp_mbr_state_e>(7);
  drvm_fail_next("pipe_mgr_sel_grp_mbr_state_get", 0x31);
  EXPECT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_group_member_state_get(kSess, 1, g, a, &st), 0x31u);
  EXPECT_EQ(st, 7);
}

using ProfilesDeath = Profiles;

TEST_F(ProfilesDeath, AGroupMemberStateOtherThanTheTwoEndsTheProcess) {
  drvm_set_debug_mode(0);
  uint32_t a = ecmp_member(1, 1), g = ecmp_group({a});
  EXPECT_DEATH(p4_pd_corvin_switch_ecmpMemberActionProfile_group_member_state_set(
                   kSess, 1, g, a, static_cast<p4_pd_grp_mbr_state_e>(2)),
               "src/pd:[0-9]+: p4_pd_corvin_switch_ecmpMemberActionProfile_group_member_state_set: "
               "Assertion `mbr_state == P4_PD_GRP_MBR_STATE_INACTIVE' failed");
}

TEST_F(Profiles, SelTrackUpdatesIsRegisterCallbackWithSessionZero) {
  auto cb = [](bf_dev_id_t, pipe_sel_tbl_hdl_t, pipe_sel_grp_hdl_t, pipe_adt_ent_hdl_t, bool, void *) {};
  int cookie = 0;
  ASSERT_EQ(p4_pd_corvin_switch_lagPortActionProfile_register_callback(kSess, 1, cb, &cookie), 0u);
  const drvm_call_t reg = *drvm_last_call("pipe_mgr_sel_tbl_register_cb");
  ASSERT_EQ(p4_pd_corvin_switch_lagPortActionProfile_sel_track_updates(1, cb, &cookie), 0u);
  const drvm_call_t &track = *drvm_last_call("pipe_mgr_sel_tbl_register_cb");
  EXPECT_EQ(reg.sess_hdl, kSess);
  EXPECT_EQ(track.sess_hdl, 0u);
  for (const drvm_call_t *c : {&reg, &track}) {
    EXPECT_EQ(c->tbl_hdl, kLagSel) << "the selector table, not the action data table";
    EXPECT_EQ(c->dev_tgt.device_id, 1u);
    EXPECT_EQ(c->ptr_arg, &cookie);
  }
}

TEST_F(Profiles, FallbackMembersAreSetAndResetPerPipe) {
  uint32_t a = lag_port(1);
  ASSERT_EQ(p4_pd_corvin_switch_lagPortActionProfile_set_dynamic_action_selection_fallback_member(kSess, {1, 2}, a),
            0u);
  const drvm_call_t &c = *drvm_last_call("pipe_mgr_sel_fallback_mbr_set");
  EXPECT_EQ(c.tbl_hdl, kLagSel);
  EXPECT_EQ(c.dev_tgt.dev_pipe_id, 2u);
  EXPECT_EQ(c.ent_hdl, a);
  ASSERT_EQ(p4_pd_corvin_switch_lagPortActionProfile_reset_dynamic_action_selection_fallback_member(kSess, {1, 2}),
            0u);
  EXPECT_EQ(drvm_last_call("pipe_mgr_sel_fallback_mbr_reset")->tbl_hdl, kLagSel);
}

// ---- Bound entries ----

TEST_F(Profiles, AnEntryOfAnotherTypeReadsBackBoundToNothing) {
  // An entry the driver holds with an action image, in a table whose entries should be bound.
  uint8_t value[3] = {0, 0, 1}, mask[3] = {0x1F, 0xFF, 0xFF}, byte = 0;
  pipe_tbl_match_spec_t ms = {value, mask, 0, 5, 21, 3, 0};
  pipe_action_spec_t as{};
  as.action_data_type = PIPE_ACTION_DATA_TYPE;
  as.act_data.action_data_bytes = &byte;
  uint32_t h = 0;
  ASSERT_EQ(pipe_mgr_mat_ent_add(1, dev_target_t{1, 0xFFFF}, 0x21010041, &ms, kSetLagPort, &as, 0, 0, &h), 0);
  uint8_t is_mbr = 9, is_grp = 9, dflt = 9;
  uint32_t mbr = 0x11, grp = 0x22, prio = 0;
  p4_pd_corvin_switch_lagGroup_match_spec_t key;
  EXPECT_EQ(p4_pd_corvin_switch_lagGroup_get_entry(kSess, 1, h, 0, &key, &prio, &is_mbr, &is_grp, &grp, &mbr, &dflt),
            0u);
  EXPECT_EQ(is_mbr, 0);
  EXPECT_EQ(is_grp, 0);
  EXPECT_EQ(mbr, 0x11u);
  EXPECT_EQ(grp, 0x22u);
  EXPECT_EQ(key.egrMd_egrL2AintfUnresolved, 1u);
  EXPECT_EQ(prio, 5u);
  EXPECT_EQ(drvm_log_count(), 0u) << "no assertion";
  // The default entry read back with such a record is an inconsistency: 15.
  ASSERT_EQ(pipe_mgr_mat_default_entry_set(1, dev_target_t{1, 0xFFFF}, 0x21010041, kSetLagPort, &as, 0, &h), 0);
  EXPECT_EQ(p4_pd_corvin_switch_lagGroup_table_get_default_entry(kSess, kTgt, 0, &is_mbr, &is_grp, &grp, &mbr), 15u);
}

TEST_F(Profiles, BindingRefusedByTheDriverReturnsItsStatus) {
  uint32_t a = ecmp_member(1, 1);
  p4_pd_corvin_switch_ecmpGroup_match_spec_t key = {3};
  uint32_t h = 0;
  drvm_fail_next("pipe_mgr_mat_ent_add", 0x66);
  EXPECT_EQ(p4_pd_corvin_switch_ecmpGroup_add_entry(kSess, kTgt, &key, a, &h), 0x66u);
  ASSERT_EQ(p4_pd_corvin_switch_ecmpGroup_add_entry(kSess, kTgt, &key, a, &h), 0u);
  // The driver keeps the member referred to: it refuses to delete it while the entry stands.
  EXPECT_NE(p4_pd_corvin_switch_ecmpMemberActionProfile_del_member(kSess, 1, a), 0u);
  EXPECT_NE(logged(1, kEcmp).find("\"mbr_hdl\":" + std::to_string(a)), std::string::npos) << "the state keeps it";
  ASSERT_EQ(p4_pd_corvin_switch_ecmpGroup_table_delete(kSess, 1, h), 0u);
  EXPECT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_del_member(kSess, 1, a), 0u);
}

// ---- Accessors ----

TEST(ProfileAccessors, HandleGettersNeedNoStateAndSkipANullPointer) {
  uint32_t adt = 0, sel = 0;
  EXPECT_EQ(p4_pd_corvin_switch_lagPortActionProfile_get_adt_table_handle(&adt), 0u);
  EXPECT_EQ(p4_pd_corvin_switch_lagPortActionProfile_get_sel_table_handle(&sel), 0u);
  EXPECT_EQ(adt, kLagAdt);
  EXPECT_EQ(sel, kLagSel);
  EXPECT_EQ(p4_pd_corvin_switch_egrMirrorLagPortActionProfile_get_adt_table_handle(nullptr), 0u);
  EXPECT_EQ(p4_pd_corvin_switch_egrMirrorLagPortActionProfile_get_sel_table_handle(nullptr), 0u);
  EXPECT_EQ(p4_pd_corvin_switch_egrMirrorLagPortActionProfile_get_adt_table_handle(&adt), 0u);
  EXPECT_EQ(adt, 0x2000038u);
}

TEST_F(Profiles, UpdateCallbacksAreRegisteredOnTheRightTables) {
  int cookie = 0;
  auto adt_cb = [](bf_dev_id_t, pipe_adt_tbl_hdl_t, pipe_adt_update_type_t, pipe_adt_ent_hdl_t, pipe_act_fn_hdl_t,
                   void *c) { ++*static_cast<int *>(c); };
  auto sel_cb = [](bf_dev_id_t, pipe_sel_tbl_hdl_t, pipe_sel_update_type_t, pipe_sel_grp_hdl_t, pipe_adt_ent_hdl_t,
                   void *c) { *static_cast<int *>(c) += 100; };
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_register_adt_update_cb(kSess, 1, adt_cb, &cookie), 0u);
  EXPECT_EQ(drvm_last_call("pipe_register_adt_update_cb")->tbl_hdl, kEcmpAdt);
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_register_sel_update_cb(kSess, 1, sel_cb, &cookie), 0u);
  EXPECT_EQ(drvm_last_call("pipe_register_sel_update_cb")->tbl_hdl, kEcmpSel);
  uint32_t m = ecmp_member(1, 1);
  EXPECT_EQ(cookie, 1) << "a member add reaches the action data table's callback";
  ecmp_group({m});
  EXPECT_GE(cookie, 201) << "a group and a membership reach the selector's";
}

}  // namespace

// ---- The hitless restore's callback, fact by fact ----

namespace {

// Loads one profile's state for device 1 from a record of the member-selector layer's form.
void seed(size_t profile, const char *members_and_groups) {
  static const char *const names[] = {"egrMirrorLagPortActionProfile", "mirrorLagPortActionProfile",
                                      "foldedPipeActionProfile",       "ecmpMemberActionProfile",
                                      "tunnelMemberActionProfile",     "lagPortActionProfile"};
  std::string text = std::string("{\"act_profs\":[{\"name\":\"") + names[profile] + "\"," + members_and_groups + "}]}";
  cJSON *root = cJSON_Parse(text.c_str());
  ASSERT_NE(root, nullptr) << text;
  ASSERT_EQ(drvm_fire_dev_restore(1, root), 0);
  ASSERT_NE(logged(1, profile).find("members"), std::string::npos);
  cJSON_Delete(root);
}

void replay(uint32_t adt, uint32_t act, uint32_t grp, uint32_t mbr, uint32_t res) {
  p4_pd_corvin_switch_ha_restore_state_from_adt_sel(5, 1, adt, act, grp, mbr, res);
}

}  // namespace

TEST_F(Profiles, ReplayedFactsRebuildMembersGroupsAndMemberships) {
  replay(kLagAdt, kSetLagPort, 0, 10, 0);
  replay(kLagAdt, kSetPhysicalPort, 0, 11, 0);
  replay(kLagAdt, 0, 20, 0, 0);
  replay(kLagAdt, kSetPhysicalPort, 20, 11, 0);
  replay(kLagAdt, kSetLagPort, 20, 10, 0);
  EXPECT_EQ(logged(1, kLag),
            "{\"name\":\"lagPortActionProfile\",\"members\":[{\"mbr_hdl\":10,\"act_fn_hdl\":" +
                std::to_string(kSetLagPort) + ",\"res\":[0,0]},{\"mbr_hdl\":11,\"act_fn_hdl\":" +
                std::to_string(kSetPhysicalPort) + ",\"res\":[0,0]}],\"groups\":[{\"grp_hdl\":20,\"act_fn_hdl\":" +
                std::to_string(kSetLagPort) + ",\"res\":[0,0],\"mbrs\":[10,11]}]}")
      << "the group's action is that of the member replayed last";
  // Another table's records, and records with neither handle, change nothing.
  std::string before = logged(1, kLag);
  replay(0x2000039, kSetLagPort, 0, 12, 1);
  replay(kLagAdt, kSetLagPort, 0, 0, 0);
  EXPECT_EQ(logged(1, kLag), before);
  for (size_t p = 0; p < 6; ++p) EXPECT_EQ(logged(1, p).find("\"mbr_hdl\":12"), std::string::npos);
}

TEST_F(Profiles, AMembershipOfAMemberTheStateLacksStopsBeforeTheGroupsAction) {
  seed(kLag, "\"members\":[],\"groups\":[{\"grp_hdl\":20,\"act_fn_hdl\":7,\"res\":[0,0],\"mbrs\":[]}]");
  std::string before = logged(1, kLag);
  replay(kLagAdt, kSetLagPort, 20, 10, 1);
  EXPECT_EQ(logged(1, kLag), before) << "no action set, no resource applied";
}

TEST_F(Profiles, TheResourceIndicatorAppliesTheMembersResourcesToItsGroupsForTheProfilesOwnActions) {
  const char *state =
      "\"members\":[{\"mbr_hdl\":10,\"act_fn_hdl\":" "536871139" ",\"res\":[5,6]}],"
      "\"groups\":[{\"grp_hdl\":20,\"act_fn_hdl\":536871139,\"res\":[0,0],\"mbrs\":[10]}]";
  ASSERT_EQ(536871139u, kSetLagPort);
  seed(kLag, state);
  replay(kLagAdt, kSetLagPort, 20, 10, 0);
  EXPECT_NE(logged(1, kLag).find("\"grp_hdl\":20,\"act_fn_hdl\":536871139,\"res\":[0,0]"), std::string::npos)
      << "indicator 0: nothing applied";
  replay(kLagAdt, kSetEcmpNextHop, 20, 10, 1);
  EXPECT_NE(logged(1, kLag).find("\"res\":[0,0],\"mbrs\""), std::string::npos)
      << "an action of another profile: the work of the record is done, the resources are not applied";
  replay(kLagAdt, kSetLagPort, 20, 10, 1);
  EXPECT_NE(logged(1, kLag).find("\"grp_hdl\":20,\"act_fn_hdl\":536871139,\"res\":[5,6]"), std::string::npos)
      << logged(1, kLag);
  // For a group record, the member handle passed on is 0: the groups of a member 0, if the state
  // has one, take its resources.
  seed(kLag,
       "\"members\":[{\"mbr_hdl\":0,\"act_fn_hdl\":536871139,\"res\":[8,9]}],"
       "\"groups\":[{\"grp_hdl\":30,\"act_fn_hdl\":536871139,\"res\":[0,0],\"mbrs\":[0]}]");
  replay(kLagAdt, kSetLagPort, 30, 0, 1);
  EXPECT_NE(logged(1, kLag).find("\"grp_hdl\":30,\"act_fn_hdl\":536871139,\"res\":[8,9]"), std::string::npos)
      << logged(1, kLag);
}

TEST_F(Profiles, RestoreVirtualDevStatePassesItsWordsAndReturnsTheDriversStatus) {
  drvm_fail_next("pipe_mgr_hitless_ha_restore_virtual_dev_state", 0x1234);
  EXPECT_EQ(p4_pd_corvin_switch_restore_virtual_dev_state(9, 1, 2, 3, 4), 0x1234u);
  const drvm_call_t &c = *drvm_last_call("pipe_mgr_hitless_ha_restore_virtual_dev_state");
  EXPECT_EQ(c.sess_hdl, 9u);
  EXPECT_EQ(c.dev_tgt.device_id, 1u);
  EXPECT_EQ(c.dev_tgt.dev_pipe_id, 2u);
  EXPECT_EQ(c.arg_u32[0], 3u);
  EXPECT_EQ(c.arg_u32[1], 4u);
  EXPECT_EQ(c.ptr_arg, reinterpret_cast<const void *>(&p4_pd_corvin_switch_ha_restore_state_from_adt_sel));
}

TEST_F(Profiles, WhenTheStateRefusesTheGroupsDeleteItsStatusIsTheResultAndTheDriversGroupIsGone) {
  uint32_t a = ecmp_member(1, 1), g = ecmp_group({a});
  // The state forgets the device (as after a removal) while the driver keeps the group.
  ASSERT_EQ(drvm_fire_dev_remove(kTgt.device_id), 0);
  EXPECT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_del_group(kSess, 1, g),
            static_cast<uint32_t>(BF_OBJECT_NOT_FOUND));
  EXPECT_EQ(drvm_last_call("pipe_mgr_sel_grp_del")->status, BF_SUCCESS);
  EXPECT_EQ(drvm_group_count(1, kEcmpSel), 0u);
  EXPECT_EQ(drvm_live_allocs(), 0u);
}
