// Placement data: a client keeps the driver's records of what it placed, decodes them without a
// device read, prints them, and checks them against the device later, by table name or by handle
// alone.
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "entry_dump.h"
#include "test_support.h"

namespace {

using cvtest::printed;

constexpr uint32_t kL2Lookup = 0x100002c;
constexpr uint32_t kL2LookupKnownUcast = 0x2000006e;
constexpr uint32_t kEcmpGroup = 0x21010028;
constexpr uint32_t kEcmpProfile = 0x2201000e;  // its action data table
constexpr uint32_t kEcmpSelector = 0x23010001;

// A placement list the driver gave, destroyed with the test.
struct List {
  void *list = nullptr;
  ~List() { pipe_mgr_plcmt_list_destroy(list); }
  uint32_t size() const { return pipe_mgr_plcmt_list_count(list); }
  void *datum(uint32_t i, uint32_t *hdl = nullptr) const { return pipe_mgr_plcmt_list_datum(list, i, hdl); }
  // The datum of an entry, member or group handle; null if the list has none.
  void *of(uint32_t hdl) const {
    for (uint32_t i = 0, h = 0; i < size(); ++i)
      if (void *d = datum(i, &h); h == hdl) return d;
    return nullptr;
  }
};

class Placement : public cvtest::LibraryTest {
 protected:
  static constexpr p4_pd_dev_target_t kDev0 = {0, 0xFFFF};

  static p4_pd_corvin_switch_l2Lookup_match_spec_t l2_key(uint32_t station) {
    p4_pd_corvin_switch_l2Lookup_match_spec_t k{};
    k.egrMd_dmacOui = 0xaabb;
    k.egrMd_dmacStation = station;
    k.egrMd_egrL2Domain = 0x123;
    return k;
  }
  p4_pd_entry_hdl_t add_l2(uint32_t station, uint32_t aintf) {
    auto k = l2_key(station);
    p4_pd_corvin_switch_l2LookupKnownUcast_action_spec_t a{};
    a.action_egrL2Aintf = aintf;
    p4_pd_entry_hdl_t h = 0;
    EXPECT_EQ(p4_pd_corvin_switch_l2Lookup_table_add_with_l2LookupKnownUcast(kSess, kDev0, &k, &a, &h), 0u);
    return h;
  }
  p4_pd_mbr_hdl_t add_ecmp_member(uint32_t next_hop) {
    p4_pd_corvin_switch_setEcmpNextHop_action_spec_t a{};
    a.action_nextHop = next_hop;
    a.action_nextHopTable = 1;
    p4_pd_mbr_hdl_t m = 0;
    EXPECT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_add_member_with_setEcmpNextHop(kSess, kDev0, &a, &m), 0u);
    return m;
  }
  static List placed(uint32_t tbl_hdl) {
    List l;
    EXPECT_EQ(pipe_mgr_plcmt_mat_data_get(0, &l.list, tbl_hdl), 0);
    return l;
  }
};

// ---- The decoders ----

TEST_F(Placement, AnEntrysDatumDecodesToWhatWasAddedAndOutlivesTheEntry) {
  p4_pd_entry_hdl_t h = add_l2(0xccdd, 0x123);
  List l;
  ASSERT_EQ(p4_pd_corvin_switch_l2Lookup_get_plcmt_data(0, &l.list), 0u);
  const drvm_call_t *c = drvm_last_call("pipe_mgr_plcmt_mat_data_get");
  ASSERT_NE(c, nullptr);
  EXPECT_EQ(c->tbl_hdl, kL2Lookup);
  EXPECT_EQ(c->ptr_arg, &l.list);
  ASSERT_EQ(l.size(), 1u);
  ASSERT_EQ(p4_pd_corvin_switch_l2Lookup_table_delete(kSess, 0, h), 0u);

  p4_pd_corvin_switch_l2Lookup_match_spec_t k;
  p4_pd_corvin_switch_action_spec_t a;
  uint8_t dflt = 7;
  ASSERT_EQ(p4_pd_corvin_switch_l2Lookup_get_entry_from_plcmt_data(l.of(h), &k, &a, &dflt), 0u);
  EXPECT_EQ(std::make_tuple(k.egrMd_dmacOui, k.egrMd_dmacStation, k.egrMd_egrL2Domain),
            std::make_tuple(0xaabbu, 0xccddu, uint16_t(0x123)));
  EXPECT_EQ(dflt, 0);
  EXPECT_EQ(a.name, p4_pd_corvin_switch_action_enum_t(92));
  EXPECT_EQ(a.u.p4_pd_corvin_switch_l2LookupKnownUcast.action_egrL2Aintf, 0x123u);
}

TEST_F(Placement, ADefaultEntrysDatumHasAClearedKeyItsActionAndItsPriority) {
  p4_pd_corvin_switch_setPruneParamsForL2Flood_action_spec_t a{};
  a.action_l1xId = 0x5a5;
  p4_pd_entry_hdl_t h = 0;
  ASSERT_EQ(p4_pd_corvin_switch_mcastPrune_set_default_action_setPruneParamsForL2Flood(kSess, kDev0, &a, &h), 0u);
  List l = placed(0x2101004c);
  p4_pd_corvin_switch_mcastPrune_match_spec_t k;
  std::memset(&k, 0xAB, sizeof k);
  uint32_t prio = 99;
  p4_pd_corvin_switch_action_spec_t spec;
  uint8_t dflt = 0;
  ASSERT_EQ(p4_pd_corvin_switch_mcastPrune_get_entry_from_plcmt_data(l.of(h), &k, &prio, &spec, &dflt), 0u);
  EXPECT_EQ(dflt, 1);
  EXPECT_EQ(prio, 0u);
  p4_pd_corvin_switch_mcastPrune_match_spec_t zero{};
  EXPECT_EQ(std::memcmp(&k, &zero, sizeof k), 0);
  EXPECT_EQ(spec.u.p4_pd_corvin_switch_setPruneParamsForL2Flood.action_l1xId, 0x5a5u);
  char buf[400];
  EXPECT_GT(p4_pd_corvin_switch_mcastPrune_plcmt_data_value(l.of(h), buf), 0);
  EXPECT_STREQ(buf, "((),('setPruneParamsForL2Flood',(0x05a5,)),)");
}

TEST_F(Placement, AKeylessTablesDatumIsAlwaysADefault) {
  p4_pd_entry_hdl_t h = 0;
  ASSERT_EQ(p4_pd_corvin_switch_samePortBridgingTest_set_default_action_samePortBridgingTestAction(kSess, kDev0, &h),
            0u);
  List l = placed(0x1000049);
  p4_pd_corvin_switch_action_spec_t spec;
  uint8_t dflt = 0;
  ASSERT_EQ(p4_pd_corvin_switch_samePortBridgingTest_get_entry_from_plcmt_data(l.of(h), &spec, &dflt), 0u);
  EXPECT_EQ(dflt, 1);
  char buf[400];
  int n = p4_pd_corvin_switch_samePortBridgingTest_plcmt_data_value(l.of(h), buf);
  EXPECT_EQ(n, int(std::strlen(buf)));
  EXPECT_STREQ(buf, "((),('samePortBridgingTestAction',()),)");
}

TEST_F(Placement, ASelectorTablesDatumTellsMemberOrGroupAndLeavesTheOtherOutputAlone) {
  p4_pd_mbr_hdl_t m = add_ecmp_member(0x42);
  p4_pd_grp_hdl_t g = 0;
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_create_group(kSess, kDev0, 4, &g), 0u);
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_add_member_to_group(kSess, 0, g, m), 0u);
  p4_pd_corvin_switch_ecmpGroup_match_spec_t k1{1}, k2{2};
  p4_pd_entry_hdl_t by_mbr = 0, by_grp = 0;
  ASSERT_EQ(p4_pd_corvin_switch_ecmpGroup_add_entry(kSess, kDev0, &k1, m, &by_mbr), 0u);
  ASSERT_EQ(p4_pd_corvin_switch_ecmpGroup_add_entry_with_selector(kSess, kDev0, &k2, g, &by_grp), 0u);
  List l = placed(kEcmpGroup);

  p4_pd_corvin_switch_ecmpGroup_match_spec_t k;
  p4_pd_mbr_hdl_t mbr = 0xAAAA;
  p4_pd_grp_hdl_t grp = 0xBBBB;
  uint8_t has_m = 9, has_g = 9, dflt = 9;
  ASSERT_EQ(p4_pd_corvin_switch_ecmpGroup_get_entry_from_plcmt_data(l.of(by_grp), &k, &mbr, &grp, &has_m, &has_g, &dflt),
            0u);
  EXPECT_EQ(std::make_tuple(k.l3_nextHop, mbr, grp, has_m, has_g, dflt),
            std::make_tuple(2u, 0xAAAAu, g, uint8_t(0), uint8_t(1), uint8_t(0)));
  grp = 0xBBBB;
  ASSERT_EQ(p4_pd_corvin_switch_ecmpGroup_get_entry_from_plcmt_data(l.of(by_mbr), &k, &mbr, &grp, &has_m, &has_g, &dflt),
            0u);
  EXPECT_EQ(std::make_tuple(k.l3_nextHop, mbr, grp, has_m, has_g), std::make_tuple(1u, m, 0xBBBBu, uint8_t(1), uint8_t(0)));

  // The value text shows the binding; the printer deliberately does not.
  char buf[400];
  EXPECT_GT(p4_pd_corvin_switch_ecmpGroup_plcmt_data_value(l.of(by_grp), buf), 0);
  EXPECT_EQ(std::string(buf), "(( 0x0002,),('setGrpHdl',(0x" + [&] {
    char h[16];
    std::snprintf(h, sizeof h, "%x", g);
    return std::string(h);
  }() + ",)))");
  int r = -1;
  EXPECT_EQ(printed([&](int fd) { return p4_pd_corvin_switch_ecmpGroup_plcmt_data_print(fd, 2, l.of(by_mbr)); }, &r),
            "  p4_pd_corvin_switch_ecmpGroup_match_spec_t:\n   l3_nextHop mask 0x7ff: 0x0001\n");
  EXPECT_EQ(r, 0);
}

TEST_F(Placement, ADriverRefusalLeavesEveryOutputAsItWas) {
  add_l2(0xccdd, 0x123);
  List l = placed(kL2Lookup);
  p4_pd_corvin_switch_l2Lookup_match_spec_t k;
  p4_pd_corvin_switch_action_spec_t a;
  std::memset(&k, 0x5c, sizeof k);
  std::memset(&a, 0x5c, sizeof a);
  uint8_t dflt = 0x5c;
  drvm_fail_next("pipe_mgr_plcmt_mat_data_get_entry", BF_INJECTED_FAULT);
  EXPECT_EQ(p4_pd_corvin_switch_l2Lookup_get_entry_from_plcmt_data(l.datum(0), &k, &a, &dflt), uint32_t(BF_INJECTED_FAULT));
  const auto *bytes = reinterpret_cast<const uint8_t *>(&k);
  for (size_t i = 0; i < sizeof k; ++i) ASSERT_EQ(bytes[i], 0x5c);
  bytes = reinterpret_cast<const uint8_t *>(&a);
  for (size_t i = 0; i < sizeof a; ++i) ASSERT_EQ(bytes[i], 0x5c);
  EXPECT_EQ(dflt, 0x5c);
  // A pointer that is no datum is refused by the driver itself, and the text is then empty.
  int marker = 0;
  EXPECT_EQ(p4_pd_corvin_switch_l2Lookup_get_entry_from_plcmt_data(&marker, &k, &a, &dflt), uint32_t(BF_INVALID_ARG));
  char buf[8] = "keep";
  EXPECT_EQ(p4_pd_corvin_switch_l2Lookup_plcmt_data_value(&marker, buf), 0);
  EXPECT_STREQ(buf, "keep");
}

TEST_F(Placement, AnActionTheTableLacksIsLoggedAs3ByATableAnd15ByAProfile) {
  // Placed through the driver directly, with an action handle of no action of the tables.
  uint8_t value[8] = {0, 0xaa, 0xbb, 0, 0xcc, 0xdd, 0x01, 0x23}, mask[8];
  std::memset(mask, 0xff, sizeof mask);
  pipe_tbl_match_spec_t ms{};
  ms.match_value_bytes = value;
  ms.match_mask_bytes = mask;
  ms.num_match_bytes = 8;
  ms.num_valid_match_bits = 64;
  pipe_action_spec_t as{};
  as.action_data_type = PIPE_ACTION_DATA_TYPE;
  uint32_t ent = 0, mbr = 0;
  ASSERT_EQ(pipe_mgr_mat_ent_add(kSess, {0, 0xFFFF}, kL2Lookup, &ms, 0x2000FFFF, &as, 0, 0, &ent), 0);
  ASSERT_EQ(pipe_mgr_adt_ent_add(kSess, {0, 0xFFFF}, kEcmpProfile, 0x2000FFFF, 0, &as, &mbr, 0), 0);
  List table = placed(kL2Lookup);
  List profile;
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_get_plcmt_data(0, &profile.list), 0u);

  size_t logged = drvm_log_count();
  p4_pd_corvin_switch_l2Lookup_match_spec_t k;
  p4_pd_corvin_switch_action_spec_t a;
  uint8_t dflt;
  EXPECT_EQ(p4_pd_corvin_switch_l2Lookup_get_entry_from_plcmt_data(table.of(ent), &k, &a, &dflt), 3u);
  EXPECT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_get_member_from_plcmt_data(profile.of(mbr), &a), 15u);
  EXPECT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_get_full_member_info_from_plcmt_data(0, mbr, profile.of(mbr), &a),
            15u);
  EXPECT_EQ(drvm_log_count(), logged + 3);
  EXPECT_NE(std::string(drvm_log_line(logged)).find("p4_pd_corvin_switch_l2Lookup_get_entry_from_plcmt_data"),
            std::string::npos);

  drvm_set_debug_mode(1);
  EXPECT_DEATH(p4_pd_corvin_switch_l2Lookup_get_entry_from_plcmt_data(table.of(ent), &k, &a, &dflt), "");
  drvm_set_debug_mode(0);
}

TEST_F(Placement, AMembersDatumDecodesPrintsAndWritesItsActionEvenAfterTheMemberIsGone) {
  p4_pd_mbr_hdl_t m = add_ecmp_member(0x1234);
  List l;
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_get_plcmt_data(0, &l.list), 0u);
  EXPECT_EQ(drvm_last_call("pipe_mgr_plcmt_adt_data_get")->tbl_hdl, kEcmpProfile);
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_del_member(kSess, 0, m), 0u);

  p4_pd_corvin_switch_action_spec_t a{}, full{};
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_get_member_from_plcmt_data(l.of(m), &a), 0u);
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_get_full_member_info_from_plcmt_data(0, m, l.of(m), &full), 0u);
  EXPECT_EQ(std::memcmp(&a, &full, sizeof a), 0);
  EXPECT_EQ(a.u.p4_pd_corvin_switch_setEcmpNextHop.action_nextHop, 0x1234u);

  char buf[400];
  int n = p4_pd_corvin_switch_ecmpMemberActionProfile_plcmt_data_value(l.of(m), buf);
  EXPECT_STREQ(buf, "('setEcmpNextHop',(0x01,0x00001234,)),");
  EXPECT_EQ(n, int(std::strlen(buf)));
  EXPECT_EQ(p4_pd_corvin_switch_adt_plcmt_data_value(kEcmpProfile, l.of(m), buf), n);
  int r = -1;
  std::string lines = printed(
      [&](int fd) { return p4_pd_corvin_switch_ecmpMemberActionProfile_adt_plcmt_data_print(fd, 1, l.of(m)); }, &r);
  EXPECT_EQ(r, 0);
  EXPECT_EQ(lines.substr(0, lines.find('\n')), " p4_pd_corvin_switch_setEcmpNextHop:");
  EXPECT_EQ(printed([&](int fd) { return p4_pd_corvin_switch_adt_plcmt_data_print(fd, 1, kEcmpProfile, l.of(m)); }, &r),
            lines);

  // A refused datum (the driver then gives no action, which is logged): the message names the
  // whole function, at column 0.
  int marker = 0;
  EXPECT_EQ(printed([&](int fd) { return p4_pd_corvin_switch_ecmpMemberActionProfile_adt_plcmt_data_print(fd, 6, &marker); },
                    &r),
            "cannot decode plcmt_data for p4_pd_corvin_switch_ecmpMemberActionProfile_adt_plcmt_data_print\n");
  EXPECT_EQ(r, 15);
}

// ---- The printers ----

TEST_F(Placement, AnEntryPrintsItsKeyThenItsActionAndADefaultItsActionAlone) {
  add_l2(0xccdd, 0x123);
  List l = placed(kL2Lookup);
  int r = -1;
  EXPECT_EQ(printed([&](int fd) { return p4_pd_corvin_switch_l2Lookup_plcmt_data_print(fd, 4, l.datum(0)); }, &r),
            "    p4_pd_corvin_switch_l2Lookup_match_spec_t:\n"
            "     egrMd_dmacOui: 0x00aabb\n"
            "     egrMd_dmacStation: 0x00ccdd\n"
            "     egrMd_egrL2Domain: 0x0123\n"
            "    p4_pd_corvin_switch_l2LookupKnownUcast:\n"
            "     action_egrL2Aintf: 0x000123\n");
  EXPECT_EQ(r, 0);
  EXPECT_EQ(printed([&](int fd) { return p4_pd_corvin_switch_plcmt_data_print(fd, 8, 0x1000002, l.datum(0)); }, &r),
            "0x01000002 table not found\n");

  int marker = 0;
  EXPECT_EQ(printed([&](int fd) { return p4_pd_corvin_switch_l2Lookup_plcmt_data_print(fd, 8, &marker); }, &r),
            "cannot decode plcmt_data for p4_pd_corvin_switch_l2Lookup\n");
  EXPECT_EQ(r, int(BF_INVALID_ARG));

  p4_pd_entry_hdl_t d = 0;
  ASSERT_EQ(p4_pd_corvin_switch_l2Lookup_set_default_action_onMiss(kSess, kDev0, &d), 0u);
  List with_default = placed(kL2Lookup);
  EXPECT_EQ(printed([&](int fd) { return p4_pd_corvin_switch_plcmt_data_print(fd, 0, kL2Lookup, with_default.of(d)); },
                    &r),
            "p4_pd_corvin_switch_onMiss:\n");
  EXPECT_EQ(r, 0);
}

TEST_F(Placement, ASelectorTablesDefaultPrintsNothing) {
  p4_pd_mbr_hdl_t m = add_ecmp_member(1);
  p4_pd_entry_hdl_t d = 0;
  ASSERT_EQ(p4_pd_corvin_switch_ecmpGroup_set_default_entry(kSess, kDev0, m, &d), 0u);
  List l = placed(kEcmpGroup);
  int r = -1;
  EXPECT_EQ(printed([&](int fd) { return p4_pd_corvin_switch_ecmpGroup_plcmt_data_print(fd, 3, l.of(d)); }, &r), "");
  EXPECT_EQ(r, 0);
}

// ---- Dispatch by handle: each function's own miss ----

TEST_F(Placement, EachDispatcherMissesHandleZeroAHoleAndAHandleOfTheWrongKind) {
  add_l2(0xccdd, 0x123);
  List l = placed(kL2Lookup);
  for (uint32_t h : {0u, 0x1000002u, 0x10000a6u, 0x21010004u, kEcmpProfile, kEcmpSelector}) {
    SCOPED_TRACE(h);
    int r = -1;
    char want[40];
    std::snprintf(want, sizeof want, "0x%08x table not found\n", h);
    EXPECT_EQ(printed([&](int fd) { return p4_pd_corvin_switch_plcmt_data_print(fd, 5, h, l.datum(0)); }, &r), want);
    EXPECT_EQ(r, int(std::strlen(want)));
    char buf[16] = "untouched";
    EXPECT_EQ(p4_pd_corvin_switch_plcmt_data_value(h, l.datum(0), buf), 0);
    EXPECT_STREQ(buf, "untouched");
  }
  for (uint32_t h : {0u, kL2Lookup, kEcmpGroup, kEcmpSelector, 0x2000026u}) {
    SCOPED_TRACE(h);
    int r = -1;
    char want[40];
    std::snprintf(want, sizeof want, "0x%08x table not found\n", h);
    EXPECT_EQ(printed([&](int fd) { return p4_pd_corvin_switch_adt_plcmt_data_print(fd, 5, h, l.datum(0)); }, &r), want);
    EXPECT_EQ(r, int(std::strlen(want)));
    char buf[16] = "untouched";
    EXPECT_EQ(p4_pd_corvin_switch_adt_plcmt_data_value(h, l.datum(0), buf), 0);
    EXPECT_STREQ(buf, "untouched");
  }
  int r = 0;
  EXPECT_EQ(printed([&](int fd) { return p4_pd_corvin_switch_plcmt_data_print(fd, 0, 0, nullptr); }, &r).size(), 27u);
  EXPECT_EQ(r, 27);
  char buf[64];
  EXPECT_DEATH(p4_pd_corvin_switch_plcmt_data_eq_to_hw(kSess, 0, kEcmpProfile, 1, l.datum(0), 0, buf),
               "Assertion `false && \"unknown table\"' failed");
  EXPECT_DEATH(p4_pd_corvin_switch_plcmt_data_eq_to_hw(kSess, 0, 0, 1, l.datum(0), 0, buf), "unknown table");
}

// ---- Hardware agreement ----

TEST_F(Placement, EachDifferenceOfAnEntryIsToldByItsFirstField) {
  p4_pd_entry_hdl_t a = add_l2(0xccdd, 0x123), b = add_l2(0xccde, 0x124);
  List l = placed(kL2Lookup);
  char buf[128] = "untouched";
  EXPECT_EQ(p4_pd_corvin_switch_l2Lookup_plcmt_data_eq_to_hw(kSess, 0, 0, a, l.of(a), buf), 1);
  EXPECT_STREQ(buf, "untouched");
  // Another entry's datum: the keys differ first.
  EXPECT_EQ(p4_pd_corvin_switch_l2Lookup_plcmt_data_eq_to_hw(kSess, 0, 0, a, l.of(b), buf), 0);
  EXPECT_STREQ(buf, "mspec egrMd_dmacStation differs 0xccde vs 0xccdd");
  // The parameter changed behind the client's back, then the action.
  p4_pd_corvin_switch_l2LookupKnownUcast_action_spec_t p{};
  p.action_egrL2Aintf = 0x777;
  ASSERT_EQ(p4_pd_corvin_switch_l2Lookup_table_modify_with_l2LookupKnownUcast(kSess, 0, a, &p), 0u);
  EXPECT_EQ(p4_pd_corvin_switch_l2Lookup_plcmt_data_eq_to_hw(kSess, 0, 0, a, l.of(a), buf), 0);
  EXPECT_STREQ(buf, "aspec action_egrL2Aintf differs 0x123 vs 0x777");
  ASSERT_EQ(p4_pd_corvin_switch_l2Lookup_table_modify_with_onMiss(kSess, 0, a), 0u);
  EXPECT_EQ(p4_pd_corvin_switch_plcmt_data_eq_to_hw(kSess, 0, kL2Lookup, a, l.of(a), 0xdead, buf), 0);
  EXPECT_STREQ(buf, "actions differ 0x5c, vs 0x17");
  // A default datum against an entry that is none; an entry that is gone.
  p4_pd_entry_hdl_t d = 0;
  ASSERT_EQ(p4_pd_corvin_switch_l2Lookup_set_default_action_onMiss(kSess, kDev0, &d), 0u);
  List with_default = placed(kL2Lookup);
  EXPECT_EQ(p4_pd_corvin_switch_l2Lookup_plcmt_data_eq_to_hw(kSess, 0, 0, a, with_default.of(d), buf), 0);
  EXPECT_STREQ(buf, "pd entry is default but not hw");
  EXPECT_EQ(p4_pd_corvin_switch_l2Lookup_plcmt_data_eq_to_hw(kSess, 0, 0, d, with_default.of(d), buf), 1);
  ASSERT_EQ(p4_pd_corvin_switch_l2Lookup_table_delete(kSess, 0, b), 0u);
  EXPECT_EQ(p4_pd_corvin_switch_l2Lookup_plcmt_data_eq_to_hw(kSess, 0, 0, b, l.of(b), buf), 0);
  EXPECT_STREQ(buf, "p4_pd_corvin_switch_l2Lookup_get_entry failed");
  // A datum the driver cannot decode is corrupt: the process stops.
  int marker = 0;
  EXPECT_DEATH(p4_pd_corvin_switch_l2Lookup_plcmt_data_eq_to_hw(kSess, 0, 0, a, &marker, buf),
               "Assertion `false && \"Failed to decode plcmt_data in table l2Lookup\"' failed");
}

TEST_F(Placement, ASelectorTablesEntriesAgreeByTheirBindings) {
  p4_pd_mbr_hdl_t m1 = add_ecmp_member(1), m2 = add_ecmp_member(2);
  p4_pd_grp_hdl_t g1 = 0, g2 = 0;
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_create_group(kSess, kDev0, 4, &g1), 0u);
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_create_group(kSess, kDev0, 4, &g2), 0u);
  for (p4_pd_grp_hdl_t g : {g1, g2})
    ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_add_member_to_group(kSess, 0, g, m1), 0u);
  p4_pd_corvin_switch_ecmpGroup_match_spec_t k1{1}, k2{2};
  p4_pd_entry_hdl_t e1 = 0, e2 = 0;
  ASSERT_EQ(p4_pd_corvin_switch_ecmpGroup_add_entry(kSess, kDev0, &k1, m1, &e1), 0u);
  ASSERT_EQ(p4_pd_corvin_switch_ecmpGroup_add_entry_with_selector(kSess, kDev0, &k2, g1, &e2), 0u);
  List l = placed(kEcmpGroup);
  char buf[128] = "untouched";
  auto agree = [&](p4_pd_entry_hdl_t e) {
    return p4_pd_corvin_switch_ecmpGroup_plcmt_data_eq_to_hw(kSess, 0, kEcmpGroup, e, l.of(e), buf);
  };
  EXPECT_EQ(agree(e1) + agree(e2), 2);
  EXPECT_STREQ(buf, "untouched");

  ASSERT_EQ(p4_pd_corvin_switch_ecmpGroup_modify_entry(kSess, 0, e1, m2), 0u);
  EXPECT_EQ(agree(e1), 0);
  char want[80];
  std::snprintf(want, sizeof want, "mbr_hdl differs: mbr_hdl_pd=0x%x, mbr_hdl_hw=0x%x", m1, m2);
  EXPECT_STREQ(buf, want);
  ASSERT_EQ(p4_pd_corvin_switch_ecmpGroup_modify_entry_with_selector(kSess, 0, e1, g1), 0u);
  EXPECT_EQ(agree(e1), 0);
  EXPECT_STREQ(buf, "no mbr_hdl in hw");

  // Groups agree whatever their handles; a group against a member does not.
  std::strcpy(buf, "untouched");
  ASSERT_EQ(p4_pd_corvin_switch_ecmpGroup_modify_entry_with_selector(kSess, 0, e2, g2), 0u);
  EXPECT_EQ(agree(e2), 1);
  EXPECT_STREQ(buf, "untouched");
  ASSERT_EQ(p4_pd_corvin_switch_ecmpGroup_modify_entry(kSess, 0, e2, m1), 0u);
  EXPECT_EQ(agree(e2), 0);
  EXPECT_STREQ(buf, "pd has group handle but not hw");
}

// A device with entries in every table, bound ones among them, whose placement the client keeps.
class PlacementWalk : public Placement {
 protected:
  static constexpr int kCallsPerTable = 12;

  void SetUp() override {
    Placement::SetUp();
    std::mt19937 rng(7);
    std::vector<char> buf(400);
    for (size_t i = 0; i < kEntryDumpCount; ++i)
      for (int call = 0; call < kCallsPerTable; ++call) {
        p4_pd_entry_hdl_t h = 0;
        if (kEntryDumps[i].run(rng, call, &h, buf.data()) > 0) ++made;
      }
    lists.resize(kEntryDumpCount);
    for (size_t i = 0; i < kEntryDumpCount; ++i)
      ASSERT_EQ(kEntryDumps[i].get_plcmt_data(0, &lists[i].list), 0u);
  }

  // (table, entry) -> text of every disagreement, walked by name.
  std::map<std::pair<std::string, uint32_t>, std::string> walk_by_name() {
    std::map<std::pair<std::string, uint32_t>, std::string> out;
    for (size_t i = 0; i < kEntryDumpCount; ++i)
      for (uint32_t k = 0, h = 0; k < lists[i].size(); ++k) {
        void *d = lists[i].datum(k, &h);
        char buf[256] = "";
        if (!kEntryDumps[i].eq_to_hw(kSess, 0, kEntryDumps[i].handle, h, d, buf)) out[{kEntryDumps[i].name, h}] = buf;
      }
    return out;
  }

  // The same by handles alone: the tables' handles, the entries' handles from the dispatchers' walk,
  // the datums from the driver's lists, the check through the dispatcher.
  std::map<std::pair<std::string, uint32_t>, std::string> walk_by_handle() {
    std::map<std::pair<std::string, uint32_t>, std::string> out;
    for (size_t i = 0; i < kEntryDumpCount; ++i) {
      const uint32_t tbl = kEntryDumps[i].handle;
      List now;
      EXPECT_EQ(pipe_mgr_plcmt_mat_data_get(0, &now.list, tbl), 0);
      std::set<uint32_t> walked;
      p4_pd_entry_hdl_t h = 0;
      if (p4_pd_corvin_switch_entry_hdl_first(kSess, kDev0, tbl, &h) == 0)
        for (walked.insert(h); p4_pd_corvin_switch_entry_hdl_next(kSess, kDev0, tbl, h, 1, &h) == 0;) walked.insert(h);
      for (uint32_t k = 0, e = 0; k < lists[i].size(); ++k) {
        void *d = lists[i].datum(k, &e);
        char buf[256] = "";
        if (!p4_pd_corvin_switch_plcmt_data_eq_to_hw(kSess, 0, tbl, e, d, 0, buf))
          out[{kEntryDumps[i].name, e}] = buf;
        // Every entry the device still holds is one the walk of handles finds, and a default none.
        EXPECT_EQ(walked.count(e) == 1, now.of(e) != nullptr && e != default_of(tbl)) << kEntryDumps[i].name << " " << e;
      }
    }
    return out;
  }

  uint32_t default_of(uint32_t tbl) {
    p4_pd_entry_hdl_t d = 0;
    return p4_pd_corvin_switch_entry_hdl_default(kSess, kDev0, tbl, &d) == 0 ? d : 0;
  }

  // The n-th datum of a table's list with its entry handle.
  std::pair<void *, uint32_t> placed_entry(const char *table, uint32_t n) {
    for (size_t i = 0; i < kEntryDumpCount; ++i)
      if (std::strcmp(kEntryDumps[i].name, table) == 0) {
        uint32_t h = 0;
        void *d = lists[i].datum(n, &h);
        return {d, h};
      }
    ADD_FAILURE() << table;
    return {nullptr, 0};
  }

  size_t made = 0;
  std::vector<List> lists;
};

TEST_F(PlacementWalk, OnlyTheEntriesChangedBehindTheClientsBackAreReported) {
  size_t datums = 0;
  for (const List &l : lists) datums += l.size();
  EXPECT_GT(made, 2000u);
  EXPECT_GE(datums, 2000u);
  EXPECT_TRUE(walk_by_name().empty());

  // Behind the client's back: the last action image bit of an entry through the driver, one bound entry moved
  // to another member, one entry deleted.
  std::pair<std::string, uint32_t> changed;
  for (size_t i = 0; i < kEntryDumpCount && changed.second == 0; ++i) {
    const uint32_t tbl = kEntryDumps[i].handle;
    uint32_t h = 0;
    void *d = lists[i].datum(1, &h);
    if (d == nullptr) continue;
    pipe_tbl_match_spec_t ms{};
    uint8_t value[64], mask[64], image[64] = {};
    ms.match_value_bytes = value;
    ms.match_mask_bytes = mask;
    pipe_action_spec_t as{};
    as.act_data.action_data_bytes = image;
    uint32_t act = 0;
    ASSERT_EQ(pipe_mgr_plcmt_mat_data_get_entry(d, &ms, &as, &act), 0);
    if (as.action_data_type != PIPE_ACTION_DATA_TYPE || as.act_data.num_action_data_bytes == 0) continue;
    image[as.act_data.num_action_data_bytes - 1] ^= 1;
    ASSERT_EQ(pipe_mgr_mat_ent_set_action(kSess, 0, tbl, h, act, &as, 0), 0);
    changed = {kEntryDumps[i].name, h};
  }
  ASSERT_NE(changed.second, 0u);

  auto [e0, e0_hdl] = placed_entry("ecmpGroup", 0);  // bound to a member (even call)
  auto [e2, e2_hdl] = placed_entry("ecmpGroup", 2);
  p4_pd_corvin_switch_ecmpGroup_match_spec_t k;
  p4_pd_mbr_hdl_t m0 = 0, m2 = 0;
  p4_pd_grp_hdl_t g = 0;
  uint8_t is_m = 0, is_g = 0, dflt = 0;
  ASSERT_EQ(p4_pd_corvin_switch_ecmpGroup_get_entry_from_plcmt_data(e0, &k, &m0, &g, &is_m, &is_g, &dflt), 0u);
  ASSERT_EQ(p4_pd_corvin_switch_ecmpGroup_get_entry_from_plcmt_data(e2, &k, &m2, &g, &is_m, &is_g, &dflt), 0u);
  ASSERT_EQ(is_m, 1);
  ASSERT_EQ(p4_pd_corvin_switch_ecmpGroup_modify_entry(kSess, 0, e0_hdl, m2), 0u);

  auto [gone, gone_hdl] = placed_entry("ipv4ShortMaskLpm", 5);
  ASSERT_EQ(p4_pd_corvin_switch_ipv4ShortMaskLpm_table_delete(kSess, 0, gone_hdl), 0u);
  (void)e2_hdl;
  (void)gone;

  auto reported = walk_by_name();
  char member[80];
  std::snprintf(member, sizeof member, "mbr_hdl differs: mbr_hdl_pd=0x%x, mbr_hdl_hw=0x%x", m0, m2);
  const std::pair<std::string, uint32_t> moved{"ecmpGroup", e0_hdl}, deleted{"ipv4ShortMaskLpm", gone_hdl};
  ASSERT_EQ(reported.size(), 3u);
  EXPECT_EQ(reported[changed].rfind("aspec action_", 0), 0u) << reported[changed];
  EXPECT_EQ(reported[moved], member);
  EXPECT_EQ(reported[deleted], "p4_pd_corvin_switch_ipv4ShortMaskLpm_get_entry failed");
  EXPECT_EQ(walk_by_handle(), reported);
}

}  // namespace
