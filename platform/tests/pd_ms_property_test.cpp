// Random changes to member-selector states, mirrored in the reference model of pd_ms_view.h: every
// status and, every few steps, every query must agree with the model; a log, destroy and restore
// must give every answer back; transactions must undo exactly.
#include <gtest/gtest.h>

#include <cjson/cJSON.h>

#include <algorithm>
#include <array>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "drv/pd_ms.h"
#include "pd_ms_view.h"

namespace {

using pdms_test::dump;
using pdms_test::Json;
using pdms_test::Model;
using pdms_test::new_state;
using pdms_test::parse;
using pdms_test::State;
using pdms_test::view_of;

constexpr uint32_t kMbrs = 40, kGrps = 16;  // the usual handles; a few large ones besides

std::vector<uint32_t> probes() {
  std::vector<uint32_t> v;
  for (uint32_t h = 0; h < kMbrs + 2; ++h) v.push_back(h);
  for (uint32_t h : {0x80000000u, 0xFFFFFFFEu, 0xFFFFFFFFu}) v.push_back(h);
  return v;
}

class Rng {
 public:
  explicit Rng(uint32_t seed) : gen_(seed) {}
  uint32_t below(uint32_t n) { return std::uniform_int_distribution<uint32_t>(0, n - 1)(gen_); }
  uint32_t any() { return static_cast<uint32_t>(gen_()); }
  bool percent(uint32_t p) { return below(100) < p; }
  uint32_t mbr() { return percent(95) ? below(kMbrs) : std::array{0x80000000u, 0xFFFFFFFFu}[below(2)]; }
  uint32_t grp() { return percent(95) ? below(kGrps) : 0xFFFFFFFFu; }
  std::mt19937 &gen() { return gen_; }

 private:
  std::mt19937 gen_;
};

// One random change (or point query) to a state's device and to its model; the statuses must
// agree. Returns the number of changes the layer journals for it (0 for a refusal or a query).
uint32_t step(Rng &rng, p4_pd_ms_state_t *s, bf_dev_id_t dev, Model &model) {
  const uint32_t m = rng.mbr(), g = rng.grp();
  uint32_t op = rng.below(100);
  auto same = [](bf_status_t got, bf_status_t want) {
    EXPECT_EQ(got, want);
    return want == BF_SUCCESS ? 1u : 0u;
  };
  if (op < 12) return same(p4_pd_ms_new_mbr(0, s, dev, m), model.new_mbr(m));
  if ((op -= 12) < 10) {
    const uint32_t act = rng.any();
    return same(p4_pd_ms_set_mbr_act(s, dev, m, act), model.set_mbr_act(m, act));
  }
  if ((op -= 10) < 5) return same(p4_pd_ms_del_mbr(0, s, dev, m), model.del_mbr(m));
  if ((op -= 5) < 7) return same(p4_pd_ms_new_grp(0, s, dev, g), model.new_grp(g));
  if ((op -= 7) < 4) {
    // As the library does: the group's members, here sometimes with others or none at all.
    std::vector<pipe_adt_ent_hdl_t> list;
    if (model.grps.count(g) && rng.percent(70)) list.assign(model.grps[g].mbrs.begin(), model.grps[g].mbrs.end());
    if (rng.percent(30)) list.push_back(rng.mbr());
    std::shuffle(list.begin(), list.end(), rng.gen());
    return same(p4_pd_ms_del_grp(0, s, dev, g, static_cast<uint32_t>(list.size()), list.empty() ? nullptr : list.data()),
                model.del_grp(g));
  }
  if ((op -= 4) < 22) return same(p4_pd_ms_add_mbr_to_grp(0, s, dev, m, g), model.link(m, g));
  if ((op -= 22) < 9) {
    // Mostly a link that exists.
    uint32_t mm = m, gg = g;
    if (model.mbrs.count(m) && !model.mbrs[m].grps.empty() && rng.percent(80)) {
      auto it = model.mbrs[m].grps.begin();
      std::advance(it, rng.below(static_cast<uint32_t>(model.mbrs[m].grps.size())));
      gg = *it;
    }
    return same(p4_pd_ms_del_mbr_from_grp(0, s, dev, mm, gg), model.unlink(mm, gg));
  }
  if ((op -= 9) < 7) {
    const uint32_t h = rng.any(), i = rng.percent(50) ? rng.below(4) : rng.any();
    return same(p4_pd_ms_set_mbr_res(s, dev, m, h, i), model.set_mbr_res(m, h, i));
  }
  if ((op -= 7) < 6) {
    const uint32_t act = rng.any();
    return same(p4_pd_ms_set_grp_act(s, dev, g, act), model.set_grp_act(g, act));
  }
  if ((op -= 6) < 6) {
    // As the library does on a member's change: its resource pair to each of its groups.
    if (!model.mbrs.count(m)) {
      EXPECT_EQ(p4_pd_ms_mbr_apply_to_grps(s, dev, m, p4_pd_ms_grp_update_res, s), BF_OBJECT_NOT_FOUND);
      return 0;
    }
    const std::set<uint32_t> grps = model.mbrs[m].grps;
    for (uint32_t gg : grps) model.grp_update_res(m, gg);
    EXPECT_EQ(p4_pd_ms_mbr_apply_to_grps(s, dev, m, p4_pd_ms_grp_update_res, s), BF_SUCCESS);
    return static_cast<uint32_t>(grps.size());
  }
  if ((op -= 6) < 3) return same(p4_pd_ms_grp_update_res(dev, m, g, s), model.grp_update_res(m, g));
  // A point query.
  uint32_t act = 0xDEAD;
  if (rng.percent(50)) {
    const bool known = model.mbrs.count(m) && model.mbrs[m].act;
    EXPECT_EQ(p4_pd_ms_get_mbr_act(s, dev, m, &act), known ? BF_SUCCESS : BF_OBJECT_NOT_FOUND);
    EXPECT_EQ(act, known ? *model.mbrs[m].act : 0xDEADu);
  } else {
    const bool known = model.grps.count(g) && model.grps[g].act;
    EXPECT_EQ(p4_pd_ms_get_grp_act(s, dev, g, &act), known ? BF_SUCCESS : BF_OBJECT_NOT_FOUND);
    EXPECT_EQ(act, known ? *model.grps[g].act : 0xDEADu);
  }
  return 0;
}

class PropertyTest : public ::testing::TestWithParam<uint32_t> {
 protected:
  void SetUp() override { ASSERT_EQ(p4_pd_ms_init(), BF_SUCCESS); }
};

// Random changes on one state; every 25 steps every query is compared with the model. Then the
// state goes through its JSON form and must answer the same, and log the same text again.
TEST_P(PropertyTest, EveryQueryAnswersAsTheModelAndTheJsonFormRoundTrips) {
  constexpr bf_dev_id_t kDev = 6;
  constexpr int kSteps = 4000, kEvery = 25;
  Rng rng(GetParam());
  State s = new_state();
  Model model;
  const std::vector<uint32_t> probe = probes();
  for (int i = 1; i <= kSteps; ++i) {
    step(rng, s.get(), kDev, model);
    if (i % kEvery == 0) {
      ASSERT_EQ(view_of(s.get(), kDev, probe), model.view()) << "after step " << i << " of seed " << GetParam();
    }
    if (i % 1000 == 0) {
      // Midway: the state through its JSON form into another state object.
      State copy = new_state();
      Json record = parse(dump(s.get(), kDev));
      ASSERT_EQ(p4_pd_ms_restore_state(kDev, copy.get(), record.get()), BF_SUCCESS);
      ASSERT_EQ(view_of(copy.get(), kDev, probe), model.view()) << "a copy, after step " << i;
    }
  }
  EXPECT_GT(model.mbrs.size(), 5u);
  EXPECT_GT(model.grps.size(), 3u);
  const std::string first = dump(s.get(), kDev);
  Json record = parse(first);
  ASSERT_NE(record, nullptr);
  ASSERT_EQ(p4_pd_ms_destroy_state_for_dev(s.get(), kDev), BF_SUCCESS);
  ASSERT_EQ(view_of(s.get(), kDev, probe), Model().view());
  ASSERT_EQ(p4_pd_ms_restore_state(kDev, s.get(), record.get()), BF_SUCCESS);
  EXPECT_EQ(view_of(s.get(), kDev, probe), model.view());
  EXPECT_EQ(dump(s.get(), kDev), first);
  // And the state restored goes on like the model.
  for (int i = 0; i < 500; ++i) step(rng, s.get(), kDev, model);
  EXPECT_EQ(view_of(s.get(), kDev, probe), model.view());
}

// Random changes on two states and two devices, with transactions on one of the devices: an abort
// takes the device's models back to the begin, in both states, and leaves the other device alone;
// the journal counts each change. Destroys and restores are among the changes.
TEST_P(PropertyTest, TransactionsAbortExactlyAndCommitKeep) {
  constexpr bf_dev_id_t kTxnDev = 7, kPlainDev = 8;
  constexpr int kSteps = 6000;
  Rng rng(GetParam() * 7919u + 1);
  State states[2] = {new_state(), new_state()};
  const bf_dev_id_t devs[2] = {kTxnDev, kPlainDev};
  Model models[2][2];  // [state][device]
  std::optional<std::array<Model, 2>> at_begin;  // the transaction device's models at the begin
  uint32_t journaled = 0;
  int aborts = 0, commits = 0;
  const std::vector<uint32_t> probe = probes();
  auto check_all = [&](int i) {
    for (int si = 0; si < 2; ++si)
      for (int di = 0; di < 2; ++di)
        ASSERT_EQ(view_of(states[si].get(), devs[di], probe), models[si][di].view())
            << "state " << si << ", device " << devs[di] << ", after step " << i;
  };
  for (int i = 1; i <= kSteps; ++i) {
    const int si = static_cast<int>(rng.below(2)), di = rng.percent(70) ? 0 : 1;
    p4_pd_ms_state_t *s = states[si].get();
    Model &model = models[si][di];
    uint32_t changes = 0;
    const uint32_t what = rng.below(1000);
    if (what < 15) {
      if (at_begin) {
        ASSERT_EQ(p4_pd_ms_begin_txn(kTxnDev), BF_ALREADY_EXISTS);
      } else {
        ASSERT_EQ(p4_pd_ms_begin_txn(kTxnDev), BF_SUCCESS);
        at_begin = std::array<Model, 2>{models[0][0], models[1][0]};
        journaled = 0;
      }
    } else if (what < 30) {
      const bool abort = rng.percent(60);
      const bf_status_t st = abort ? p4_pd_ms_abort_txn(kTxnDev) : p4_pd_ms_commit_txn(kTxnDev);
      if (!at_begin) {
        ASSERT_EQ(st, BF_OBJECT_NOT_FOUND);
        continue;
      }
      ASSERT_EQ(st, BF_SUCCESS);
      if (abort) {
        models[0][0] = (*at_begin)[0];
        models[1][0] = (*at_begin)[1];
        ++aborts;
      } else {
        ++commits;
      }
      at_begin.reset();
      check_all(i);
      continue;
    } else if (what < 35) {
      ASSERT_EQ(p4_pd_ms_destroy_state_for_dev(s, devs[di]), BF_SUCCESS);
      changes = model.mbrs.empty() && model.grps.empty() ? 0 : 1;  // a device emptied by deletes may still have an entry
      model = Model();
    } else if (what < 45) {
      // Another state's device through the JSON form.
      const int from_s = static_cast<int>(rng.below(2)), from_d = static_cast<int>(rng.below(2));
      Json record = parse(dump(states[from_s].get(), devs[from_d]));
      ASSERT_EQ(p4_pd_ms_restore_state(devs[di], s, record.get()), BF_SUCCESS);
      model = models[from_s][from_d];
      changes = 1;
    } else {
      changes = step(rng, s, devs[di], model);
    }
    if (di == 0 && at_begin) {
      if (what >= 30 && what < 35) {
        // Whether a destroy journals depends on whether the state still holds an entry for the
        // device, which deletes do not remove; read the count back instead.
        uint32_t n = 0;
        ASSERT_EQ(p4_pd_ms_get_txn_changes(kTxnDev, &n), BF_SUCCESS);
        ASSERT_GE(n, journaled + changes);
        ASSERT_LE(n, journaled + 1);
        journaled = n;
      } else {
        journaled += changes;
      }
      uint32_t n = 0;
      ASSERT_EQ(p4_pd_ms_get_txn_changes(kTxnDev, &n), BF_SUCCESS);
      ASSERT_EQ(n, journaled) << "after step " << i;
    }
    if (i % 50 == 0) check_all(i);
    if (HasFatalFailure()) return;
  }
  if (at_begin) {
    ASSERT_EQ(p4_pd_ms_abort_txn(kTxnDev), BF_SUCCESS);
    models[0][0] = (*at_begin)[0];
    models[1][0] = (*at_begin)[1];
  }
  check_all(kSteps);
  EXPECT_GT(aborts, 5);
  EXPECT_GT(commits, 3);
}

INSTANTIATE_TEST_SUITE_P(Seeds, PropertyTest, ::testing::Values(1u, 2u, 3u, 20261123u));

}  // namespace
