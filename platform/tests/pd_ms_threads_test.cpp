// Several threads at once on several member-selector states: workers change members and groups of
// their own and link them into groups they share, apply resource pairs to groups and log states;
// beside them, transactions open and close on a device of their own and on a device the workers
// use, and state objects come and go. Every status must be what the thread's own model says, every
// logged record must be a consistent state, and the final state must be the union of the models.
#include <gtest/gtest.h>

#include <cjson/cJSON.h>

#include <atomic>
#include <random>
#include <set>
#include <string>
#include <thread>
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
using pdms_test::View;
using pdms_test::view_of;

constexpr int kStates = 3, kWorkers = 4;
constexpr bf_dev_id_t kDevs[2] = {10, 11};  // the workers'
constexpr bf_dev_id_t kTxnDev = 12;         // the transaction thread's own
constexpr uint32_t kShared[2] = {1000, 1001};
constexpr uint32_t kOwnMbrs = 24, kOwnGrps = 6;
constexpr uint32_t kResKey = 0xABCD;  // a resource pair is (h, h ^ kResKey): a torn one shows

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kIters = 6000;
#else
constexpr int kIters = 20000;
#endif

uint32_t own_mbr(int t, uint32_t k) { return k * kWorkers + static_cast<uint32_t>(t); }
uint32_t own_grp(int t, uint32_t k) { return 2000 + static_cast<uint32_t>(t) * 100 + k; }

// A logged record must be a state the layer accepts back.
void check_record(p4_pd_ms_state_t *s, bf_dev_id_t dev) {
  Json obj = parse("{}");
  ASSERT_EQ(p4_pd_ms_log_state(dev, s, obj.get()), BF_SUCCESS);
  State scratch = new_state();
  ASSERT_EQ(p4_pd_ms_restore_state(dev, scratch.get(), obj.get()), BF_SUCCESS);
}

// One worker: its own members and groups in every state and device, its links to the shared
// groups, all mirrored in its models (shared groups in them hold only its own links).
void work(int t, p4_pd_ms_state_t *const *states, Model (*models)[2]) {
  std::mt19937 rng(static_cast<uint32_t>(t) + 77);
  auto below = [&](uint32_t n) { return std::uniform_int_distribution<uint32_t>(0, n - 1)(rng); };
  for (int i = 0; i < kIters; ++i) {
    const int si = static_cast<int>(below(kStates)), di = static_cast<int>(below(2));
    p4_pd_ms_state_t *s = states[si];
    const bf_dev_id_t dev = kDevs[di];
    Model &model = models[si][di];
    const uint32_t m = own_mbr(t, below(kOwnMbrs));
    const uint32_t g = below(3) == 0 ? kShared[below(2)] : own_grp(t, below(kOwnGrps));
    const bool shared = g == kShared[0] || g == kShared[1];
    const uint32_t op = below(100);
    if (op < 15) {
      ASSERT_EQ(p4_pd_ms_new_mbr(0, s, dev, m), model.new_mbr(m));
      if (p4_pd_ms_set_mbr_act(s, dev, m, 0x7000 + m) == BF_SUCCESS) model.set_mbr_act(m, 0x7000 + m);
    } else if (op < 25) {
      const uint32_t h = below(1 << 20);
      ASSERT_EQ(p4_pd_ms_set_mbr_res(s, dev, m, h, h ^ kResKey), model.set_mbr_res(m, h, h ^ kResKey));
    } else if (op < 32) {
      ASSERT_EQ(p4_pd_ms_del_mbr(0, s, dev, m), model.del_mbr(m));
    } else if (op < 37) {
      if (!shared) {
        ASSERT_EQ(p4_pd_ms_new_grp(0, s, dev, g), model.new_grp(g));
      }
    } else if (op < 40) {
      if (!shared) {
        std::vector<pipe_adt_ent_hdl_t> list;
        if (model.grps.count(g)) list.assign(model.grps[g].mbrs.begin(), model.grps[g].mbrs.end());
        ASSERT_EQ(p4_pd_ms_del_grp(0, s, dev, g, static_cast<uint32_t>(list.size()), list.data()), model.del_grp(g));
      }
    } else if (op < 65) {
      ASSERT_EQ(p4_pd_ms_add_mbr_to_grp(0, s, dev, m, g), model.link(m, g));
    } else if (op < 75) {
      ASSERT_EQ(p4_pd_ms_del_mbr_from_grp(0, s, dev, m, g), model.unlink(m, g));
    } else if (op < 80) {
      if (shared) {
        ASSERT_EQ(p4_pd_ms_set_grp_act(s, dev, g, 0x5000 + static_cast<uint32_t>(t)), BF_SUCCESS);
      } else {
        ASSERT_EQ(p4_pd_ms_set_grp_act(s, dev, g, 0x6000 + g), model.set_grp_act(g, 0x6000 + g));
      }
    } else if (op < 92) {
      if (!model.mbrs.count(m)) {
        ASSERT_EQ(p4_pd_ms_mbr_apply_to_grps(s, dev, m, p4_pd_ms_grp_update_res, s), BF_OBJECT_NOT_FOUND);
      } else {
        for (uint32_t gg : model.mbrs[m].grps) model.grp_update_res(m, gg);
        ASSERT_EQ(p4_pd_ms_mbr_apply_to_grps(s, dev, m, p4_pd_ms_grp_update_res, s), BF_SUCCESS);
      }
    } else if (op < 97) {
      uint32_t act = 0;
      const bool known = model.mbrs.count(m) && model.mbrs[m].act;
      ASSERT_EQ(p4_pd_ms_get_mbr_act(s, dev, m, &act), known ? BF_SUCCESS : BF_OBJECT_NOT_FOUND);
      if (known) {
        ASSERT_EQ(act, *model.mbrs[m].act);
      }
    } else {
      check_record(s, dev);
    }
  }
}

// The union of the workers' models of a state's device: the shared groups hold every worker's
// links; their action and resource pair are whatever a worker wrote last, so they are taken from
// the state after checking they are such.
View expected(Model (*const per_worker[kWorkers])[2], int si, int di, const View &got) {
  Model all;
  for (uint32_t g : kShared) all.new_grp(g);
  for (int t = 0; t < kWorkers; ++t) {
    const Model &m = per_worker[t][si][di];
    for (const auto &[h, mbr] : m.mbrs) all.mbrs[h] = mbr;
    for (const auto &[h, grp] : m.grps) {
      if (h == kShared[0] || h == kShared[1]) {
        all.grps[h].mbrs.insert(grp.mbrs.begin(), grp.mbrs.end());
      } else {
        all.grps[h] = grp;
      }
    }
  }
  for (const pdms_test::GrpView &g : got.grps) {
    if (g.hdl != kShared[0] && g.hdl != kShared[1]) continue;
    EXPECT_TRUE(!g.act || (*g.act >= 0x5000 && *g.act < 0x5000 + kWorkers)) << g.hdl;
    EXPECT_EQ(g.res_idx, g.res_hdl == 0 && g.res_idx == 0 ? 0u : g.res_hdl ^ kResKey) << "a torn resource pair";
    all.grps[g.hdl].act = g.act;
    all.grps[g.hdl].res_hdl = g.res_hdl;
    all.grps[g.hdl].res_idx = g.res_idx;
  }
  return all.view();
}

TEST(PdMsThreads, ManyThreadsOnSeveralStatesEndInTheUnionOfTheirChanges) {
  ASSERT_EQ(p4_pd_ms_init(), BF_SUCCESS);
  std::vector<State> owned;
  p4_pd_ms_state_t *states[kStates];
  for (int si = 0; si < kStates; ++si) {
    owned.push_back(new_state());
    states[si] = owned.back().get();
    for (bf_dev_id_t dev : kDevs)
      for (uint32_t g : kShared) ASSERT_EQ(p4_pd_ms_new_grp(0, states[si], dev, g), BF_SUCCESS);
  }
  static Model models[kWorkers][kStates][2];
  for (auto &w : models)
    for (auto &s : w)
      for (Model &m : s) {
        m = Model();
        for (uint32_t g : kShared) m.new_grp(g);
      }

  std::atomic<bool> done{false};
  std::atomic<int> txn_rounds{0}, churn_rounds{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kWorkers; ++t) threads.emplace_back([t, &states] { work(t, states, models[t]); });

  // Transactions: on its own device, with changes checked against its models after each end; and
  // on a workers' device, committed, which must keep every change they made meanwhile.
  Model txn_models[kStates];
  threads.emplace_back([&] {
    std::mt19937 rng(5);
    auto below = [&](uint32_t n) { return std::uniform_int_distribution<uint32_t>(0, n - 1)(rng); };
    while (!done.load()) {
      if (below(4) == 0) {
        ASSERT_EQ(p4_pd_ms_begin_txn(kDevs[0]), BF_SUCCESS);
        std::this_thread::yield();
        ASSERT_EQ(p4_pd_ms_commit_txn(kDevs[0]), BF_SUCCESS);
      }
      ASSERT_EQ(p4_pd_ms_begin_txn(kTxnDev), BF_SUCCESS);
      Model before[kStates];
      for (int si = 0; si < kStates; ++si) before[si] = txn_models[si];
      for (int k = 0; k < 20; ++k) {
        const int si = static_cast<int>(below(kStates));
        const uint32_t m = below(8), g = 100 + below(3);
        switch (below(4)) {
          case 0: ASSERT_EQ(p4_pd_ms_new_mbr(0, states[si], kTxnDev, m), txn_models[si].new_mbr(m)); break;
          case 1: ASSERT_EQ(p4_pd_ms_new_grp(0, states[si], kTxnDev, g), txn_models[si].new_grp(g)); break;
          case 2: ASSERT_EQ(p4_pd_ms_add_mbr_to_grp(0, states[si], kTxnDev, m, g), txn_models[si].link(m, g)); break;
          default: ASSERT_EQ(p4_pd_ms_del_mbr(0, states[si], kTxnDev, m), txn_models[si].del_mbr(m)); break;
        }
      }
      if (below(2) == 0) {
        ASSERT_EQ(p4_pd_ms_abort_txn(kTxnDev), BF_SUCCESS);
        for (int si = 0; si < kStates; ++si) txn_models[si] = before[si];
      } else {
        ASSERT_EQ(p4_pd_ms_commit_txn(kTxnDev), BF_SUCCESS);
      }
      for (int si = 0; si < kStates; ++si) ASSERT_EQ(view_of(states[si], kTxnDev), txn_models[si].view());
      ++txn_rounds;
    }
  });
  // State objects made and freed, also inside the transactions above.
  threads.emplace_back([&] {
    while (!done.load()) {
      State s = new_state();
      ASSERT_NE(s, nullptr);
      ASSERT_EQ(p4_pd_ms_new_mbr(0, s.get(), kTxnDev, 1), BF_SUCCESS);
      ASSERT_EQ(p4_pd_ms_new_mbr(0, s.get(), kDevs[0], 1), BF_SUCCESS);
      ++churn_rounds;
    }
  });

  for (int t = 0; t < kWorkers; ++t) threads[t].join();
  done = true;
  for (size_t i = kWorkers; i < threads.size(); ++i) threads[i].join();
  EXPECT_GT(txn_rounds.load(), 0);
  EXPECT_GT(churn_rounds.load(), 0);

  Model (*per_worker[kWorkers])[2];
  for (int t = 0; t < kWorkers; ++t) per_worker[t] = models[t];
  for (int si = 0; si < kStates; ++si) {
    for (int di = 0; di < 2; ++di) {
      SCOPED_TRACE("state " + std::to_string(si) + ", device " + std::to_string(kDevs[di]));
      const View got = view_of(states[si], kDevs[di]);
      EXPECT_EQ(got, expected(per_worker, si, di, got));
      check_record(states[si], kDevs[di]);
    }
    EXPECT_EQ(view_of(states[si], kTxnDev), txn_models[si].view());
  }
}

}  // namespace
