// Transactions of the member-selector state layer: per device, over every state object.
#include <gtest/gtest.h>

#include <cjson/cJSON.h>

#include <functional>
#include <string>
#include <vector>

#include "drv/pd_ms.h"
#include "pd_ms_view.h"

namespace {

using pdms_test::dump;
using pdms_test::Json;
using pdms_test::new_state;
using pdms_test::parse;
using pdms_test::State;
using pdms_test::View;
using pdms_test::view_of;

constexpr bf_dev_id_t kDev = 3, kOther = 4;
const std::vector<uint32_t> kProbes = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 20, 21, 30, 0xFFFFFFFF};

uint32_t txn_changes(bf_dev_id_t dev) {
  uint32_t n = 0xDEAD;
  EXPECT_EQ(p4_pd_ms_get_txn_changes(dev, &n), BF_SUCCESS);
  return n;
}

// Members 1..6 (1..4 with actions, 3 with a resource pair), groups 10, 11, 12: 10 holds 1, 2, 3;
// 11 holds 3, 4; 12 is empty; 10 and 11 have actions, 10 has 3's resource pair.
void populate(p4_pd_ms_state_t *s, bf_dev_id_t dev) {
  for (uint32_t m = 1; m <= 6; ++m) ASSERT_EQ(p4_pd_ms_new_mbr(0, s, dev, m), BF_SUCCESS);
  for (uint32_t m = 1; m <= 4; ++m) ASSERT_EQ(p4_pd_ms_set_mbr_act(s, dev, m, 0x100 + m), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_set_mbr_res(s, dev, 3, 0x24000003, 33), BF_SUCCESS);
  for (uint32_t g : {10, 11, 12}) ASSERT_EQ(p4_pd_ms_new_grp(0, s, dev, g), BF_SUCCESS);
  for (uint32_t m : {1, 2, 3}) ASSERT_EQ(p4_pd_ms_add_mbr_to_grp(0, s, dev, m, 10), BF_SUCCESS);
  for (uint32_t m : {3, 4}) ASSERT_EQ(p4_pd_ms_add_mbr_to_grp(0, s, dev, m, 11), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_set_grp_act(s, dev, 10, 0x200), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_set_grp_act(s, dev, 11, 0x201), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_grp_update_res(dev, 3, 10, s), BF_SUCCESS);
}

class TxnTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(p4_pd_ms_init(), BF_SUCCESS);
    populate(s.get(), kDev);
    populate(s.get(), kOther);
    populate(t.get(), kDev);
  }
  // A failed test leaves no transaction open for the next.
  void TearDown() override {
    for (bf_dev_id_t dev : {kDev, kOther}) p4_pd_ms_destroy_txn_state_for_dev(dev);
  }
  State s = new_state(), t = new_state();
};

TEST_F(TxnTest, StatusesOfBeginCommitAndAbort) {
  uint32_t n = 0xDEAD;
  EXPECT_EQ(p4_pd_ms_commit_txn(kDev), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(p4_pd_ms_abort_txn(kDev), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(p4_pd_ms_get_txn_changes(kDev, &n), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(n, 0xDEADu);
  EXPECT_EQ(p4_pd_ms_destroy_txn_state_for_dev(kDev), BF_SUCCESS);  // none: fine

  ASSERT_EQ(p4_pd_ms_begin_txn(kDev), BF_SUCCESS);
  EXPECT_EQ(p4_pd_ms_begin_txn(kDev), BF_ALREADY_EXISTS);  // no nesting
  EXPECT_EQ(p4_pd_ms_get_txn_changes(kDev, nullptr), BF_INVALID_ARG);
  EXPECT_EQ(txn_changes(kDev), 0u);
  EXPECT_EQ(p4_pd_ms_get_txn_changes(kOther, &n), BF_OBJECT_NOT_FOUND);
  ASSERT_EQ(p4_pd_ms_begin_txn(kOther), BF_SUCCESS);  // devices are independent
  EXPECT_EQ(p4_pd_ms_commit_txn(kDev), BF_SUCCESS);
  EXPECT_EQ(p4_pd_ms_commit_txn(kDev), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(p4_pd_ms_abort_txn(kDev), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(p4_pd_ms_abort_txn(kOther), BF_SUCCESS);
  EXPECT_EQ(p4_pd_ms_abort_txn(kOther), BF_OBJECT_NOT_FOUND);
  ASSERT_EQ(p4_pd_ms_begin_txn(kDev), BF_SUCCESS);  // a closed transaction may be followed by another
  EXPECT_EQ(p4_pd_ms_destroy_txn_state_for_dev(kDev), BF_SUCCESS);
  EXPECT_EQ(p4_pd_ms_commit_txn(kDev), BF_OBJECT_NOT_FOUND);  // closed by the destroy
}

// One change of each kind, and some runs of them; each is undone exactly by an abort, and kept
// exactly by a commit (compared with the same changes made outside any transaction).
TEST_F(TxnTest, AbortUndoesEachKindOfChangeExactlyAndCommitKeepsIt) {
  using Change = std::function<void(p4_pd_ms_state_t *)>;
  const pipe_adt_ent_hdl_t list[] = {1, 2, 3, 99};
  const std::string record =
      R"({"members":[{"mbr_hdl":7,"act_fn_hdl":9,"res":[1,2]},{"mbr_hdl":1,"res":[0,0]}],)"
      R"("groups":[{"grp_hdl":20,"res":[1,2],"mbrs":[7,1]}]})";
  const struct {
    const char *what;
    uint32_t changes;  // journaled
    Change change;
  } rows[] = {
      {"new_mbr", 1, [](auto s) { ASSERT_EQ(p4_pd_ms_new_mbr(0, s, kDev, 7), BF_SUCCESS); }},
      {"set_mbr_act, first", 1, [](auto s) { ASSERT_EQ(p4_pd_ms_set_mbr_act(s, kDev, 5, 0x155), BF_SUCCESS); }},
      {"set_mbr_act, over another", 1, [](auto s) { ASSERT_EQ(p4_pd_ms_set_mbr_act(s, kDev, 1, 0x155), BF_SUCCESS); }},
      {"set_mbr_res", 1, [](auto s) { ASSERT_EQ(p4_pd_ms_set_mbr_res(s, kDev, 3, 1, 2), BF_SUCCESS); }},
      {"del_mbr, in two groups", 1, [](auto s) { ASSERT_EQ(p4_pd_ms_del_mbr(0, s, kDev, 3), BF_SUCCESS); }},
      {"del_mbr, in none", 1, [](auto s) { ASSERT_EQ(p4_pd_ms_del_mbr(0, s, kDev, 6), BF_SUCCESS); }},
      {"new_grp", 1, [](auto s) { ASSERT_EQ(p4_pd_ms_new_grp(0, s, kDev, 20), BF_SUCCESS); }},
      {"set_grp_act, first", 1, [](auto s) { ASSERT_EQ(p4_pd_ms_set_grp_act(s, kDev, 12, 0x202), BF_SUCCESS); }},
      {"set_grp_act, over another", 1, [](auto s) { ASSERT_EQ(p4_pd_ms_set_grp_act(s, kDev, 10, 0x202), BF_SUCCESS); }},
      {"del_grp, with its list", 1, [&](auto s) { ASSERT_EQ(p4_pd_ms_del_grp(0, s, kDev, 10, 4, list), BF_SUCCESS); }},
      {"del_grp, no list", 1, [](auto s) { ASSERT_EQ(p4_pd_ms_del_grp(0, s, kDev, 11, 0, nullptr), BF_SUCCESS); }},
      {"del_grp, empty", 1, [](auto s) { ASSERT_EQ(p4_pd_ms_del_grp(0, s, kDev, 12, 0, nullptr), BF_SUCCESS); }},
      {"add_mbr_to_grp", 1, [](auto s) { ASSERT_EQ(p4_pd_ms_add_mbr_to_grp(0, s, kDev, 5, 10), BF_SUCCESS); }},
      {"del_mbr_from_grp", 1, [](auto s) { ASSERT_EQ(p4_pd_ms_del_mbr_from_grp(0, s, kDev, 3, 11), BF_SUCCESS); }},
      {"grp_update_res", 1, [](auto s) { ASSERT_EQ(p4_pd_ms_grp_update_res(kDev, 3, 12, s), BF_SUCCESS); }},
      {"apply_to_grps of update_res", 3, [](auto s) {
         ASSERT_EQ(p4_pd_ms_set_mbr_res(s, kDev, 3, 5, 6), BF_SUCCESS);
         ASSERT_EQ(p4_pd_ms_mbr_apply_to_grps(s, kDev, 3, p4_pd_ms_grp_update_res, s), BF_SUCCESS);
       }},
      {"destroy_state_for_dev", 1, [](auto s) { ASSERT_EQ(p4_pd_ms_destroy_state_for_dev(s, kDev), BF_SUCCESS); }},
      {"restore", 1, [&](auto s) {
         Json obj = parse(record);
         ASSERT_EQ(p4_pd_ms_restore_state(kDev, s, obj.get()), BF_SUCCESS);
       }},
      {"destroy, then new_mbr and restore", 3, [&](auto s) {
         Json obj = parse(record);
         ASSERT_EQ(p4_pd_ms_destroy_state_for_dev(s, kDev), BF_SUCCESS);
         ASSERT_EQ(p4_pd_ms_new_mbr(0, s, kDev, 3), BF_SUCCESS);
         ASSERT_EQ(p4_pd_ms_restore_state(kDev, s, obj.get()), BF_SUCCESS);
       }},
      {"restore, then changes to what it loaded", 4, [&](auto s) {
         Json obj = parse(record);
         ASSERT_EQ(p4_pd_ms_restore_state(kDev, s, obj.get()), BF_SUCCESS);
         ASSERT_EQ(p4_pd_ms_del_mbr(0, s, kDev, 7), BF_SUCCESS);
         ASSERT_EQ(p4_pd_ms_new_mbr(0, s, kDev, 3), BF_SUCCESS);
         ASSERT_EQ(p4_pd_ms_add_mbr_to_grp(0, s, kDev, 3, 20), BF_SUCCESS);
       }},
      {"a member deleted, made again and linked anew", 7, [](auto s) {
         ASSERT_EQ(p4_pd_ms_del_mbr(0, s, kDev, 3), BF_SUCCESS);
         ASSERT_EQ(p4_pd_ms_new_mbr(0, s, kDev, 3), BF_SUCCESS);
         ASSERT_EQ(p4_pd_ms_add_mbr_to_grp(0, s, kDev, 3, 12), BF_SUCCESS);
         ASSERT_EQ(p4_pd_ms_add_mbr_to_grp(0, s, kDev, 3, 10), BF_SUCCESS);
         ASSERT_EQ(p4_pd_ms_set_mbr_act(s, kDev, 3, 0x999), BF_SUCCESS);
         ASSERT_EQ(p4_pd_ms_del_mbr_from_grp(0, s, kDev, 3, 10), BF_SUCCESS);
         ASSERT_EQ(p4_pd_ms_del_mbr(0, s, kDev, 3), BF_SUCCESS);
       }},
      {"a group deleted, made again with other members", 5, [](auto s) {
         ASSERT_EQ(p4_pd_ms_del_grp(0, s, kDev, 10, 0, nullptr), BF_SUCCESS);
         ASSERT_EQ(p4_pd_ms_new_grp(0, s, kDev, 10), BF_SUCCESS);
         ASSERT_EQ(p4_pd_ms_add_mbr_to_grp(0, s, kDev, 5, 10), BF_SUCCESS);
         ASSERT_EQ(p4_pd_ms_add_mbr_to_grp(0, s, kDev, 1, 10), BF_SUCCESS);
         ASSERT_EQ(p4_pd_ms_del_mbr(0, s, kDev, 1), BF_SUCCESS);
       }},
      {"every link of a member undone, one redone, one new", 4, [](auto s) {
         ASSERT_EQ(p4_pd_ms_del_mbr_from_grp(0, s, kDev, 3, 10), BF_SUCCESS);
         ASSERT_EQ(p4_pd_ms_del_mbr_from_grp(0, s, kDev, 3, 11), BF_SUCCESS);
         ASSERT_EQ(p4_pd_ms_add_mbr_to_grp(0, s, kDev, 3, 11), BF_SUCCESS);
         ASSERT_EQ(p4_pd_ms_add_mbr_to_grp(0, s, kDev, 3, 12), BF_SUCCESS);
       }},
  };
  const View before = view_of(s.get(), kDev, kProbes);
  const std::string logged = dump(s.get(), kDev);
  const std::string other = dump(s.get(), kOther);
  for (const auto &r : rows) {
    SCOPED_TRACE(r.what);
    // The change outside a transaction, in a twin state: what a commit must keep.
    State twin = new_state();
    populate(twin.get(), kDev);
    r.change(twin.get());
    const View after = view_of(twin.get(), kDev, kProbes);
    ASSERT_NE(after, before) << "the change changes nothing";

    ASSERT_EQ(p4_pd_ms_begin_txn(kDev), BF_SUCCESS);
    r.change(s.get());
    EXPECT_EQ(view_of(s.get(), kDev, kProbes), after);
    EXPECT_EQ(txn_changes(kDev), r.changes);
    ASSERT_EQ(p4_pd_ms_abort_txn(kDev), BF_SUCCESS);
    EXPECT_EQ(view_of(s.get(), kDev, kProbes), before);
    EXPECT_EQ(dump(s.get(), kDev), logged);
    EXPECT_EQ(dump(s.get(), kOther), other);

    ASSERT_EQ(p4_pd_ms_begin_txn(kDev), BF_SUCCESS);
    r.change(s.get());
    ASSERT_EQ(p4_pd_ms_commit_txn(kDev), BF_SUCCESS);
    EXPECT_EQ(view_of(s.get(), kDev, kProbes), after);
    EXPECT_EQ(dump(s.get(), kDev), dump(twin.get(), kDev));
    // Back to the start for the next row, outside any transaction.
    Json obj = parse(logged);
    ASSERT_EQ(p4_pd_ms_restore_state(kDev, s.get(), obj.get()), BF_SUCCESS);
  }
}

// The case an abort most easily gets half right: a deleted group must come back into the lists of
// its members, not only with its own list.
TEST_F(TxnTest, AbortOfADeletedGroupRestoresItInItsMembersToo) {
  ASSERT_EQ(p4_pd_ms_begin_txn(kDev), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_del_grp(0, s.get(), kDev, 10, 0, nullptr), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_abort_txn(kDev), BF_SUCCESS);
  uint32_t g[4] = {}, n = 0;
  ASSERT_EQ(p4_pd_ms_get_mbr_grps(s.get(), kDev, 3, 4, g, &n), BF_SUCCESS);
  EXPECT_EQ(std::vector<uint32_t>(g, g + n), (std::vector<uint32_t>{10, 11}));
  std::vector<uint32_t> seen;
  ASSERT_EQ(p4_pd_ms_mbr_apply_to_grps(s.get(), kDev, 1, pdms_test::record_group, &seen), BF_SUCCESS);
  EXPECT_EQ(seen, std::vector<uint32_t>{10});
  // And a deleted member comes back into its groups.
  ASSERT_EQ(p4_pd_ms_begin_txn(kDev), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_del_mbr(0, s.get(), kDev, 3), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_abort_txn(kDev), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_get_grp_mbrs(s.get(), kDev, 11, 4, g, &n), BF_SUCCESS);
  EXPECT_EQ(std::vector<uint32_t>(g, g + n), (std::vector<uint32_t>{3, 4}));
}

TEST_F(TxnTest, RefusalsInATransactionJournalNothing) {
  const View before = view_of(s.get(), kDev, kProbes);
  ASSERT_EQ(p4_pd_ms_begin_txn(kDev), BF_SUCCESS);
  uint32_t w = 0, n = 0;
  EXPECT_EQ(p4_pd_ms_new_mbr(0, s.get(), kDev, 1), BF_ALREADY_EXISTS);
  EXPECT_EQ(p4_pd_ms_new_grp(0, s.get(), kDev, 10), BF_ALREADY_EXISTS);
  EXPECT_EQ(p4_pd_ms_add_mbr_to_grp(0, s.get(), kDev, 1, 10), BF_ALREADY_EXISTS);
  EXPECT_EQ(p4_pd_ms_set_mbr_act(s.get(), kDev, 9, 1), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(p4_pd_ms_set_grp_act(s.get(), kDev, 9, 1), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(p4_pd_ms_set_mbr_res(s.get(), kDev, 9, 1, 1), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(p4_pd_ms_del_mbr(0, s.get(), kDev, 9), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(p4_pd_ms_del_grp(0, s.get(), kDev, 9, 0, nullptr), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(p4_pd_ms_del_grp(0, s.get(), kDev, 10, 1, nullptr), BF_INVALID_ARG);
  EXPECT_EQ(p4_pd_ms_del_mbr_from_grp(0, s.get(), kDev, 1, 11), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(p4_pd_ms_grp_update_res(kDev, 9, 10, s.get()), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(p4_pd_ms_mbr_apply_to_grps(s.get(), kDev, 0, p4_pd_ms_grp_update_res, s.get()), BF_OBJECT_NOT_FOUND);
  Json bad = parse(R"({"members":[{"mbr_hdl":1.5,"res":[0,0]}],"groups":[]})");
  EXPECT_EQ(p4_pd_ms_restore_state(kDev, s.get(), bad.get()), BF_INVALID_ARG);
  // Queries change nothing either.
  EXPECT_EQ(p4_pd_ms_get_mbr_act(s.get(), kDev, 1, &w), BF_SUCCESS);
  EXPECT_EQ(p4_pd_ms_get_mbrs(s.get(), kDev, 1, &w, &n), BF_SUCCESS);
  EXPECT_EQ(dump(s.get(), kDev), dump(s.get(), kDev));
  EXPECT_EQ(txn_changes(kDev), 0u);
  // A destroy of a device the state holds nothing for changes nothing.
  EXPECT_EQ(p4_pd_ms_destroy_state_for_dev(s.get(), 77), BF_SUCCESS);
  EXPECT_EQ(txn_changes(kDev), 0u);
  ASSERT_EQ(p4_pd_ms_abort_txn(kDev), BF_SUCCESS);
  EXPECT_EQ(view_of(s.get(), kDev, kProbes), before);
}

// A transaction covers every state object, the device's changes only, and state objects made
// while it is open.
TEST_F(TxnTest, ATransactionSpansStatesButNotDevices) {
  const std::string s_dev = dump(s.get(), kDev), t_dev = dump(t.get(), kDev);
  ASSERT_EQ(p4_pd_ms_begin_txn(kDev), BF_SUCCESS);
  State u = new_state();  // made inside the transaction
  for (p4_pd_ms_state_t *x : {s.get(), t.get(), u.get()}) {
    ASSERT_EQ(p4_pd_ms_new_mbr(0, x, kDev, 30), BF_SUCCESS);
    ASSERT_EQ(p4_pd_ms_new_mbr(0, x, kOther, 30), BF_SUCCESS);  // another device: kept
  }
  ASSERT_EQ(p4_pd_ms_del_grp(0, t.get(), kDev, 11, 0, nullptr), BF_SUCCESS);
  EXPECT_EQ(txn_changes(kDev), 4u);
  const std::string s_other = dump(s.get(), kOther);
  ASSERT_EQ(p4_pd_ms_abort_txn(kDev), BF_SUCCESS);
  EXPECT_EQ(dump(s.get(), kDev), s_dev);
  EXPECT_EQ(dump(t.get(), kDev), t_dev);
  EXPECT_EQ(dump(u.get(), kDev), R"({"name":"profile","members":[],"groups":[]})");
  EXPECT_EQ(dump(s.get(), kOther), s_other);
  EXPECT_NE(s_other.find(R"("mbr_hdl":30)"), std::string::npos);
  EXPECT_NE(dump(u.get(), kOther).find(R"("mbr_hdl":30)"), std::string::npos);
}

// A state object freed inside a transaction is gone; the others are undone all the same, and its
// journal goes with it (the sanitizer build checks for leaks).
TEST_F(TxnTest, AStateFreedInATransactionIsGoneAndTheRestIsUndone) {
  const std::string s_dev = dump(s.get(), kDev);
  ASSERT_EQ(p4_pd_ms_begin_txn(kDev), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_del_mbr(0, t.get(), kDev, 3), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_destroy_state_for_dev(t.get(), kDev), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_del_mbr(0, s.get(), kDev, 3), BF_SUCCESS);
  EXPECT_EQ(txn_changes(kDev), 3u);
  t.reset();
  EXPECT_EQ(txn_changes(kDev), 1u);
  ASSERT_EQ(p4_pd_ms_abort_txn(kDev), BF_SUCCESS);
  EXPECT_EQ(dump(s.get(), kDev), s_dev);
}

// As the library removes a device: its states are destroyed, then its transaction state. The
// destroys stay, the journal is freed and the transaction closed.
TEST_F(TxnTest, DestroyTxnStateKeepsTheChangesAndClosesTheTransaction) {
  ASSERT_EQ(p4_pd_ms_begin_txn(kDev), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_new_mbr(0, s.get(), kDev, 30), BF_SUCCESS);
  for (p4_pd_ms_state_t *x : {s.get(), t.get()}) ASSERT_EQ(p4_pd_ms_destroy_state_for_dev(x, kDev), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_destroy_txn_state_for_dev(kDev), BF_SUCCESS);
  EXPECT_EQ(p4_pd_ms_abort_txn(kDev), BF_OBJECT_NOT_FOUND);
  for (p4_pd_ms_state_t *x : {s.get(), t.get()})
    EXPECT_EQ(dump(x, kDev), R"({"name":"profile","members":[],"groups":[]})");
  EXPECT_NE(dump(s.get(), kOther), R"({"name":"profile","members":[],"groups":[]})");
}

// Many changes: an abort of them all is exact, and a commit after it starts afresh.
TEST_F(TxnTest, ALongJournalIsUndoneExactly) {
  const std::string logged = dump(s.get(), kDev);
  ASSERT_EQ(p4_pd_ms_begin_txn(kDev), BF_SUCCESS);
  uint32_t changes = 0;
  for (uint32_t round = 0; round < 20; ++round) {
    for (uint32_t m = 100; m < 600; ++m) {
      ASSERT_EQ(p4_pd_ms_new_mbr(0, s.get(), kDev, m), BF_SUCCESS);
      ASSERT_EQ(p4_pd_ms_add_mbr_to_grp(0, s.get(), kDev, m, 10 + m % 3), BF_SUCCESS);
      changes += 2;
    }
    ASSERT_EQ(p4_pd_ms_del_grp(0, s.get(), kDev, 10 + round % 3, 0, nullptr), BF_SUCCESS);
    ASSERT_EQ(p4_pd_ms_new_grp(0, s.get(), kDev, 10 + round % 3), BF_SUCCESS);
    changes += 2;
    for (uint32_t m = 100; m < 600; ++m) ASSERT_EQ(p4_pd_ms_del_mbr(0, s.get(), kDev, m), BF_SUCCESS);
    changes += 500;
  }
  EXPECT_EQ(txn_changes(kDev), changes);
  ASSERT_EQ(p4_pd_ms_abort_txn(kDev), BF_SUCCESS);
  EXPECT_EQ(dump(s.get(), kDev), logged);
  ASSERT_EQ(p4_pd_ms_begin_txn(kDev), BF_SUCCESS);
  EXPECT_EQ(txn_changes(kDev), 0u);
  ASSERT_EQ(p4_pd_ms_commit_txn(kDev), BF_SUCCESS);
}

}  // namespace
