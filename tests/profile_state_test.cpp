// The member-selector state the library keeps beside the driver, after a long random history of
// member, group and membership changes through the exports: it holds what a reference model of the
// rules says; the device state record carries it through a device removal; the hitless restore
// rebuilds it from what the driver replays. Each time every query answers as it should.
#include <cjson/cJSON.h>

#include <algorithm>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "ms_answers.h"
#include "test_support.h"

namespace {

using cvtest::Answers;
using cvtest::expected;
using cvtest::library_answers;
using cvtest::record_text;
using cvtest::Reference;

constexpr size_t kEcmp = 3, kLag = 5;  // positions in the canonical profile order
constexpr uint32_t kSetEcmpNextHop = 0x20000098, kEcmpNoAction = 0x20000099;
constexpr uint32_t kLagActions[] = {0x200000e3, 0x200000e4, 0x200000e5, 0x200000e6, 0x200000e7};

class ProfileState : public cvtest::LibraryTest {
 protected:
  static constexpr bf_dev_id_t kDev = 0, kOtherDev = 1;

  // One random step on a profile and device through the exports, mirrored in the reference.
  void step(std::mt19937 &rng, size_t profile, bf_dev_id_t dev) {
    Reference &r = ref_[{profile, dev}];
    const bool ecmp = profile == kEcmp;
    auto pick = [&](const auto &m) {
      auto it = m.begin();
      std::advance(it, std::uniform_int_distribution<size_t>(0, m.size() - 1)(rng));
      return it->first;
    };
    p4_pd_dev_target_t tgt = {dev, 0xFFFF};
    switch (std::uniform_int_distribution<int>(0, 9)(rng)) {
      case 0:
      case 1: {  // a member of a random action of the profile
        uint32_t m = 0, act = 0, st = 0;
        int which = std::uniform_int_distribution<int>(0, ecmp ? 1 : 4)(rng);
        if (ecmp && which == 0) {
          p4_pd_corvin_switch_setEcmpNextHop_action_spec_t a = {uint8_t(rng()), uint32_t(rng())};
          st = p4_pd_corvin_switch_ecmpMemberActionProfile_add_member_with_setEcmpNextHop(kSess, tgt, &a, &m);
          act = kSetEcmpNextHop;
        } else if (ecmp) {
          st = p4_pd_corvin_switch_ecmpMemberActionProfile_add_member_with_NoAction(kSess, tgt, &m);
          act = kEcmpNoAction;
        } else if (which == 0) {
          p4_pd_corvin_switch_setLagPort_action_spec_t a = {uint16_t(rng() & 0x1FF)};
          st = p4_pd_corvin_switch_lagPortActionProfile_add_member_with_setLagPort(kSess, tgt, &a, &m);
          act = kLagActions[0];
        } else {
          using Add = p4_pd_status_t (*)(p4_pd_sess_hdl_t, p4_pd_dev_target_t, p4_pd_mbr_hdl_t *);
          const Add adds[] = {p4_pd_corvin_switch_lagPortActionProfile_add_member_with_setPhysicalPort,
                              p4_pd_corvin_switch_lagPortActionProfile_add_member_with_setTunnelInfo,
                              p4_pd_corvin_switch_lagPortActionProfile_add_member_with_invalidateUcastEgressPort,
                              p4_pd_corvin_switch_lagPortActionProfile_add_member_with_fixL2SubintfAlignment};
          st = adds[which - 1](kSess, tgt, &m);
          act = kLagActions[which];
        }
        ASSERT_EQ(st, 0u);
        r.mbrs[m] = act;
        break;
      }
      case 2: {  // delete a member: the driver refuses one that is still in a group
        if (r.mbrs.empty()) return;
        uint32_t m = pick(r.mbrs);
        uint32_t st = ecmp ? p4_pd_corvin_switch_ecmpMemberActionProfile_del_member(kSess, dev, m)
                           : p4_pd_corvin_switch_lagPortActionProfile_del_member(kSess, dev, m);
        if (r.in_any_group(m)) {
          ASSERT_NE(st, 0u);
        } else {
          ASSERT_EQ(st, 0u);
          r.mbrs.erase(m);
        }
        break;
      }
      case 3: {
        uint32_t g = 0, max = std::uniform_int_distribution<uint32_t>(1, 6)(rng);
        uint32_t st = ecmp ? p4_pd_corvin_switch_ecmpMemberActionProfile_create_group(kSess, tgt, max, &g)
                           : p4_pd_corvin_switch_lagPortActionProfile_create_group(kSess, tgt, max, &g);
        ASSERT_EQ(st, 0u);
        r.grps[g].max = max;
        break;
      }
      case 4: {  // delete a group, members and all
        if (r.grps.empty() || rng() % 2) return;
        uint32_t g = pick(r.grps);
        uint32_t st = ecmp ? p4_pd_corvin_switch_ecmpMemberActionProfile_del_group(kSess, dev, g)
                           : p4_pd_corvin_switch_lagPortActionProfile_del_group(kSess, dev, g);
        ASSERT_EQ(st, 0u);
        r.grps.erase(g);
        break;
      }
      case 5:
      case 6:
      case 7: {  // a member joins a group: refused when it is there already or the group is full
        if (r.mbrs.empty() || r.grps.empty()) return;
        uint32_t m = pick(r.mbrs), g = pick(r.grps);
        Reference::Group &grp = r.grps[g];
        uint32_t st = ecmp ? p4_pd_corvin_switch_ecmpMemberActionProfile_add_member_to_group(kSess, dev, g, m)
                           : p4_pd_corvin_switch_lagPortActionProfile_add_member_to_group(kSess, dev, g, m);
        bool there = std::count(grp.mbrs.begin(), grp.mbrs.end(), m) != 0;
        if (there || grp.mbrs.size() == grp.max) {
          ASSERT_NE(st, 0u);
        } else {
          ASSERT_EQ(st, 0u);
          grp.mbrs.push_back(m);
          grp.act = r.mbrs[m];
        }
        break;
      }
      case 8: {  // a member leaves; the group keeps its action
        if (r.grps.empty()) return;
        uint32_t g = pick(r.grps);
        Reference::Group &grp = r.grps[g];
        if (grp.mbrs.empty()) return;
        uint32_t m = grp.mbrs[rng() % grp.mbrs.size()];
        uint32_t st = ecmp ? p4_pd_corvin_switch_ecmpMemberActionProfile_del_member_from_group(kSess, dev, g, m)
                           : p4_pd_corvin_switch_lagPortActionProfile_del_member_from_group(kSess, dev, g, m);
        ASSERT_EQ(st, 0u);
        grp.mbrs.erase(std::find(grp.mbrs.begin(), grp.mbrs.end(), m));
        break;
      }
      case 9: {  // activity is the driver's alone
        if (r.grps.empty()) return;
        uint32_t g = pick(r.grps);
        const Reference::Group &grp = r.grps[g];
        if (grp.mbrs.empty()) return;
        auto state = static_cast<p4_pd_grp_mbr_state_e>(rng() % 2);
        uint32_t m = grp.mbrs[rng() % grp.mbrs.size()];
        uint32_t st = ecmp ? p4_pd_corvin_switch_ecmpMemberActionProfile_group_member_state_set(kSess, dev, g, m, state)
                           : p4_pd_corvin_switch_lagPortActionProfile_group_member_state_set(kSess, dev, g, m, state);
        ASSERT_EQ(st, 0u);
        break;
      }
    }
  }

  void history(size_t steps, uint32_t seed) {
    std::mt19937 rng(seed);
    for (size_t i = 0; i < steps && !HasFatalFailure(); ++i) {
      size_t profile = rng() % 2 ? kEcmp : kLag;
      step(rng, profile, profile == kEcmp && rng() % 4 == 0 ? kOtherDev : kDev);
    }
  }

  // Every query of the three states answers as the reference says; and through the library, every
  // group with an action binds an entry with that action, and every other group binds none.
  void expect_answers(bool replayed) {
    for (const auto &[key, r] : ref_) {
      SCOPED_TRACE(std::string(key.first == kEcmp ? "ecmp" : "lag") + " device " + std::to_string(key.second));
      EXPECT_TRUE(library_answers(key.second, key.first) == expected(r, replayed));
    }
    const Reference &ecmp = ref_[{kEcmp, kDev}];
    for (const auto &[g, grp] : ecmp.grps) {
      std::optional<uint32_t> act = expected(ecmp, replayed).grp_act.at(g);
      p4_pd_corvin_switch_ecmpGroup_match_spec_t key = {uint16_t(g)};
      uint32_t h = 0;
      uint32_t st = p4_pd_corvin_switch_ecmpGroup_add_entry_with_selector(kSess, {kDev, 0xFFFF}, &key, g, &h);
      if (act) {
        ASSERT_EQ(st, 0u);
        EXPECT_EQ(cvtest::last_add().act_fn_hdl, *act);
        ASSERT_EQ(p4_pd_corvin_switch_ecmpGroup_table_delete(kSess, kDev, h), 0u);
      } else {
        EXPECT_NE(st, 0u) << "a group without an action binds no entry";
      }
    }
  }

  std::map<std::pair<size_t, bf_dev_id_t>, Reference> ref_;
};

TEST_F(ProfileState, AfterARandomHistoryTheStateIsWhatTheRulesSay) {
  history(3000, 1);
  ASSERT_FALSE(HasFatalFailure());
  size_t members = 0, links = 0;
  for (const auto &[key, r] : ref_) {
    members += r.mbrs.size();
    for (const auto &[g, grp] : r.grps) links += grp.mbrs.size();
  }
  EXPECT_GT(members, 100u) << "the history builds something worth checking";
  EXPECT_GT(links, 50u);
  expect_answers(false);
}

TEST_F(ProfileState, TheDeviceStateRecordCarriesTheStateThroughADeviceRemoval) {
  history(3000, 2);
  ASSERT_FALSE(HasFatalFailure());
  std::string before = record_text(kDev), other = record_text(kOtherDev);
  cJSON *saved = cJSON_CreateObject();
  ASSERT_EQ(drvm_fire_dev_log(kDev, saved), 0);
  ASSERT_EQ(drvm_fire_dev_remove(kDev), 0);
  EXPECT_TRUE(library_answers(kDev, kEcmp).mbr_act.empty()) << "a removed device holds nothing";
  EXPECT_EQ(record_text(kOtherDev), other) << "another device is untouched";
  ASSERT_EQ(drvm_fire_dev_restore(kDev, saved), 0);
  cJSON_Delete(saved);
  EXPECT_EQ(record_text(kDev), before);
  expect_answers(false);
}

TEST_F(ProfileState, AHitlessRestoreRebuildsTheStateFromTheDriversReplay) {
  history(3000, 3);
  ASSERT_FALSE(HasFatalFailure());
  std::string other = record_text(kOtherDev);
  ASSERT_EQ(drvm_fire_dev_remove(kDev), 0);
  drvm_clear_calls();
  ASSERT_EQ(p4_pd_corvin_switch_restore_virtual_dev_state(kSess, kDev, 0xFFFF, 0, 0), 0u);
  const drvm_call_t &c = *drvm_last_call("pipe_mgr_hitless_ha_restore_virtual_dev_state");
  EXPECT_EQ(c.sess_hdl, kSess);
  EXPECT_EQ(c.dev_tgt.device_id, kDev);
  EXPECT_EQ(record_text(kOtherDev), other) << "another device is untouched";
  // Members, their actions and every membership come back; a group's action is that of the member
  // replayed last, which is the action it had unless its latest member has left it since.
  expect_answers(true);
  size_t differ = 0;
  for (const auto &[key, r] : ref_)
    for (const auto &[g, grp] : r.grps) differ += expected(r, true).grp_act.at(g) != grp.act ? 1 : 0;
  RecordProperty("groups_whose_action_the_replay_changes", int(differ));
}

TEST_F(ProfileState, ARestoreIntoALiveStateKeepsWhatItHasAndTheReplayAddsNothingNew) {
  history(500, 4);
  ASSERT_FALSE(HasFatalFailure());
  // The state already holds every replayed member and group: each replayed fact is refused by the
  // layer as known, except that memberships set the groups' actions again.
  ASSERT_EQ(p4_pd_corvin_switch_restore_virtual_dev_state(kSess, kDev, 0xFFFF, 0, 0), 0u);
  for (const auto &[key, r] : ref_) {
    if (key.second != kDev) continue;
    Answers got = library_answers(kDev, key.first), want = expected(r, false);
    EXPECT_EQ(got.mbr_act, want.mbr_act);
    EXPECT_EQ(got.grp_mbrs, want.grp_mbrs);
    EXPECT_EQ(got.mbr_grps, want.mbr_grps);
    for (const auto &[g, grp] : r.grps) {
      if (!grp.mbrs.empty()) {
        EXPECT_EQ(got.grp_act.at(g), expected(r, true).grp_act.at(g));
      }
    }
  }
}

}  // namespace
