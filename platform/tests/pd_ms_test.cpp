// The member-selector state layer.
#include <gtest/gtest.h>

#include <cjson/cJSON.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "drv/pd_ms.h"
#include "pd_ms_view.h"

namespace {

using pdms_test::Json;
using pdms_test::new_state;
using pdms_test::parse;
using pdms_test::State;

constexpr bf_dev_id_t kDev = 0;
constexpr uint32_t kActA = 0x20000098, kActB = 0x20000099;

std::string dump(p4_pd_ms_state_t *s, bf_dev_id_t dev = kDev) { return pdms_test::dump(s, dev); }
const std::string kEmpty = R"({"name":"profile","members":[],"groups":[]})";

// The groups of a member, as p4_pd_ms_mbr_apply_to_grps visits them (noted in *seen).
std::vector<uint32_t> g_unused;
bf_status_t note_group(bf_dev_id_t, pipe_adt_ent_hdl_t, pipe_sel_grp_hdl_t grp, void *seen) {
  static_cast<std::vector<uint32_t> *>(seen)->push_back(grp);
  return grp == 20 ? BF_NO_SPACE : grp == 30 ? BF_UNEXPECTED : BF_SUCCESS;
}
std::vector<uint32_t> groups_of(p4_pd_ms_state_t *s, uint32_t mbr, bf_dev_id_t dev = kDev) {
  std::vector<uint32_t> seen;
  p4_pd_ms_mbr_apply_to_grps(s, dev, mbr, note_group, &seen);
  return seen;
}

class MsTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(p4_pd_ms_init(), BF_SUCCESS); }
  p4_pd_ms_state_t *st() { return s.get(); }
  State s = new_state();
};

// A state with all that the JSON form must carry: members with and without an action and resources,
// groups with and without an action and members, shared members, large handles.
void populate(p4_pd_ms_state_t *s, bf_dev_id_t dev) {
  for (uint32_t m : {7u, 3u, 0xFFFFFFFFu, 12u}) ASSERT_EQ(p4_pd_ms_new_mbr(1, s, dev, m), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_set_mbr_act(s, dev, 7, kActA), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_set_mbr_act(s, dev, 3, kActB), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_set_mbr_act(s, dev, 0xFFFFFFFFu, 0xFFFFFFFEu), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_set_mbr_res(s, dev, 3, 0x24010001, 0x80000000u), BF_SUCCESS);
  for (uint32_t g : {0x20000001u, 5u, 6u}) ASSERT_EQ(p4_pd_ms_new_grp(1, s, dev, g), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_add_mbr_to_grp(1, s, dev, 7, 5), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_add_mbr_to_grp(1, s, dev, 3, 5), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_add_mbr_to_grp(1, s, dev, 3, 0x20000001u), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_set_grp_act(s, dev, 5, kActB), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_set_grp_act(s, dev, 0x20000001u, kActB), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_grp_update_res(dev, 3, 0x20000001u, s), BF_SUCCESS);
}

TEST_F(MsTest, EachRefusalReturnsItsStatusAndChangesNothing) {
  populate(st(), kDev);
  ASSERT_EQ(p4_pd_ms_new_grp(0, st(), kDev, 40), BF_SUCCESS);
  const std::string before = dump(st());
  uint32_t w[2] = {0xDEAD, 0xDEAD}, n = 0xDEAD;
  using Fn = std::function<bf_status_t(p4_pd_ms_state_t *)>;
  const struct {
    const char *what;
    bf_status_t st;
    Fn call;
  } rows[] = {
      {"new_mbr of a member", BF_ALREADY_EXISTS, [](auto s) { return p4_pd_ms_new_mbr(0, s, kDev, 7); }},
      {"new_grp of a group", BF_ALREADY_EXISTS, [](auto s) { return p4_pd_ms_new_grp(0, s, kDev, 5); }},
      {"a second link", BF_ALREADY_EXISTS, [](auto s) { return p4_pd_ms_add_mbr_to_grp(0, s, kDev, 3, 5); }},
      {"set_mbr_act, unknown", BF_OBJECT_NOT_FOUND, [](auto s) { return p4_pd_ms_set_mbr_act(s, kDev, 5, kActA); }},
      {"set_grp_act, unknown", BF_OBJECT_NOT_FOUND, [](auto s) { return p4_pd_ms_set_grp_act(s, kDev, 7, kActA); }},
      {"get_mbr_act, no action", BF_OBJECT_NOT_FOUND, [&](auto s) { return p4_pd_ms_get_mbr_act(s, kDev, 12, w); }},
      {"get_mbr_act, unknown", BF_OBJECT_NOT_FOUND, [&](auto s) { return p4_pd_ms_get_mbr_act(s, 1, 7, w); }},
      {"get_grp_act, no action", BF_OBJECT_NOT_FOUND, [&](auto s) { return p4_pd_ms_get_grp_act(s, kDev, 6, w); }},
      {"get_grp_act, unknown", BF_OBJECT_NOT_FOUND, [&](auto s) { return p4_pd_ms_get_grp_act(s, kDev, 7, w); }},
      {"del_mbr, unknown", BF_OBJECT_NOT_FOUND, [](auto s) { return p4_pd_ms_del_mbr(0, s, kDev, 5); }},
      {"del_grp, unknown", BF_OBJECT_NOT_FOUND, [](auto s) { return p4_pd_ms_del_grp(0, s, kDev, 7, 0, nullptr); }},
      {"del_grp, a null list", BF_INVALID_ARG, [](auto s) { return p4_pd_ms_del_grp(0, s, kDev, 5, 2, nullptr); }},
      {"link, unknown member", BF_OBJECT_NOT_FOUND, [](auto s) { return p4_pd_ms_add_mbr_to_grp(0, s, kDev, 5, 6); }},
      {"link, unknown group", BF_OBJECT_NOT_FOUND, [](auto s) { return p4_pd_ms_add_mbr_to_grp(0, s, kDev, 7, 7); }},
      {"unlink, not linked", BF_OBJECT_NOT_FOUND, [](auto s) { return p4_pd_ms_del_mbr_from_grp(0, s, kDev, 7, 6); }},
      {"unlink, unknown", BF_OBJECT_NOT_FOUND, [](auto s) { return p4_pd_ms_del_mbr_from_grp(0, s, 1, 7, 5); }},
      {"apply, unknown member", BF_OBJECT_NOT_FOUND,
       [](auto s) { return p4_pd_ms_mbr_apply_to_grps(s, kDev, 5, note_group, &g_unused); }},
      {"apply, member 0 (a hitless replay's group record), unknown", BF_OBJECT_NOT_FOUND,
       [](auto s) { return p4_pd_ms_mbr_apply_to_grps(s, kDev, 0, p4_pd_ms_grp_update_res, s); }},
      {"apply, a null function", BF_INVALID_ARG,
       [](auto s) { return p4_pd_ms_mbr_apply_to_grps(s, kDev, 3, nullptr, nullptr); }},
      {"set_mbr_res, unknown", BF_OBJECT_NOT_FOUND, [](auto s) { return p4_pd_ms_set_mbr_res(s, kDev, 5, 1, 1); }},
      {"mbr_get_res, unknown", BF_OBJECT_NOT_FOUND, [&](auto s) { return p4_pd_ms_mbr_get_res(s, kDev, 5, w, w + 1); }},
      {"grp_get_res, unknown", BF_OBJECT_NOT_FOUND, [&](auto s) { return p4_pd_ms_grp_get_res(s, kDev, 7, w, w + 1); }},
      {"update_res, unknown mbr", BF_OBJECT_NOT_FOUND, [](auto s) { return p4_pd_ms_grp_update_res(kDev, 5, 5, s); }},
      {"update_res, unknown group", BF_OBJECT_NOT_FOUND, [](auto s) { return p4_pd_ms_grp_update_res(kDev, 3, 7, s); }},
      {"update_res, a null state", BF_INVALID_ARG, [](auto) { return p4_pd_ms_grp_update_res(kDev, 3, 5, nullptr); }},
      {"get_mbr_act, a null output", BF_INVALID_ARG, [](auto s) { return p4_pd_ms_get_mbr_act(s, kDev, 7, nullptr); }},
      {"get_grp_act, a null output", BF_INVALID_ARG, [](auto s) { return p4_pd_ms_get_grp_act(s, kDev, 5, nullptr); }},
      {"new_mbr, a null state", BF_INVALID_ARG, [](auto) { return p4_pd_ms_new_mbr(0, nullptr, kDev, 1); }},
      {"destroy, a null state", BF_INVALID_ARG, [](auto) { return p4_pd_ms_destroy_state_for_dev(nullptr, kDev); }},
      {"log, a null state (the object stays empty)", BF_INVALID_ARG, [](auto) {
         Json obj = parse("{}");
         const bf_status_t r = p4_pd_ms_log_state(kDev, nullptr, obj.get());
         return cJSON_GetArraySize(obj.get()) == 0 ? r : BF_UNEXPECTED;
       }},
      {"log, a null object", BF_INVALID_ARG, [](auto s) { return p4_pd_ms_log_state(kDev, s, nullptr); }},
      {"restore, a null object", BF_INVALID_ARG, [](auto s) { return p4_pd_ms_restore_state(kDev, s, nullptr); }},
      {"restore, a null state", BF_INVALID_ARG, [](auto) {
         Json obj = parse(R"({"members":[],"groups":[]})");
         return p4_pd_ms_restore_state(kDev, nullptr, obj.get());
       }},
      {"log, an object with members already (unchanged)", BF_ALREADY_EXISTS, [](auto s) {
         Json obj = parse(R"({"name":"p","members":1})");
         const bf_status_t r = p4_pd_ms_log_state(kDev, s, obj.get());
         return pdms_test::print(obj.get()) == R"({"name":"p","members":1})" ? r : BF_UNEXPECTED;
       }},
      {"log, an object with groups already (unchanged)", BF_ALREADY_EXISTS, [](auto s) {
         Json obj = parse(R"({"groups":[]})");
         const bf_status_t r = p4_pd_ms_log_state(kDev, s, obj.get());
         return pdms_test::print(obj.get()) == R"({"groups":[]})" ? r : BF_UNEXPECTED;
       }},
      {"log, an array (unchanged)", BF_INVALID_ARG, [](auto s) {
         Json obj = parse("[]");
         const bf_status_t r = p4_pd_ms_log_state(kDev, s, obj.get());
         return cJSON_GetArraySize(obj.get()) == 0 ? r : BF_UNEXPECTED;
       }},
      {"get_mbrs, a null count", BF_INVALID_ARG, [&](auto s) { return p4_pd_ms_get_mbrs(s, kDev, 2, w, nullptr); }},
      {"get_mbrs, a null array", BF_INVALID_ARG, [&](auto s) { return p4_pd_ms_get_mbrs(s, kDev, 1, nullptr, &n); }},
      {"get_mbrs, a null state", BF_INVALID_ARG, [&](auto) { return p4_pd_ms_get_mbrs(nullptr, kDev, 2, w, &n); }},
      {"get_grps, a null count", BF_INVALID_ARG, [&](auto s) { return p4_pd_ms_get_grps(s, kDev, 2, w, nullptr); }},
      {"get_grps, a null array", BF_INVALID_ARG, [&](auto s) { return p4_pd_ms_get_grps(s, kDev, 1, nullptr, &n); }},
      {"get_grp_mbrs, unknown", BF_OBJECT_NOT_FOUND, [&](auto s) { return p4_pd_ms_get_grp_mbrs(s, kDev, 7, 2, w, &n); }},
      {"get_grp_mbrs, a null array", BF_INVALID_ARG, [&](auto s) { return p4_pd_ms_get_grp_mbrs(s, kDev, 5, 1, nullptr, &n); }},
      {"get_mbr_grps, unknown", BF_OBJECT_NOT_FOUND, [&](auto s) { return p4_pd_ms_get_mbr_grps(s, kDev, 5, 2, w, &n); }},
      {"get_mbr_grps, a null count", BF_INVALID_ARG, [&](auto s) { return p4_pd_ms_get_mbr_grps(s, kDev, 3, 2, w, nullptr); }},
      {"commit, no transaction", BF_OBJECT_NOT_FOUND, [](auto) { return p4_pd_ms_commit_txn(kDev); }},
      {"abort, no transaction", BF_OBJECT_NOT_FOUND, [](auto) { return p4_pd_ms_abort_txn(kDev); }},
      {"txn changes, no transaction", BF_OBJECT_NOT_FOUND, [&](auto) { return p4_pd_ms_get_txn_changes(kDev, &n); }},
  };
  for (const auto &r : rows) {
    SCOPED_TRACE(r.what);
    EXPECT_EQ(r.call(st()), r.st);
    EXPECT_EQ(w[0], 0xDEADu);
    EXPECT_EQ(w[1], 0xDEADu);
    EXPECT_EQ(n, 0xDEADu);
    EXPECT_EQ(dump(st()), before);
  }
}

TEST_F(MsTest, LinksAreKeptBothWaysAndApplyVisitsEachGroupInOrderWithoutTheLock) {
  for (uint32_t m : {1, 2, 3}) ASSERT_EQ(p4_pd_ms_new_mbr(0, st(), kDev, m), BF_SUCCESS);
  for (uint32_t g : {30, 10, 20}) ASSERT_EQ(p4_pd_ms_new_grp(0, st(), kDev, g), BF_SUCCESS);
  for (uint32_t g : {30, 10, 20}) ASSERT_EQ(p4_pd_ms_add_mbr_to_grp(0, st(), kDev, 1, g), BF_SUCCESS);
  for (uint32_t m : {2, 3}) ASSERT_EQ(p4_pd_ms_add_mbr_to_grp(0, st(), kDev, m, 10), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_add_mbr_to_grp(0, st(), kDev, 2, 20), BF_SUCCESS);
  uint32_t act = 0, h = 0, i = 0;
  EXPECT_EQ(p4_pd_ms_get_grp_act(st(), kDev, 10, &act), BF_OBJECT_NOT_FOUND);  // a link sets no action
  // The function runs for every group, in order, and the first failure (20, then 30) is returned.
  std::vector<uint32_t> seen;
  EXPECT_EQ(p4_pd_ms_mbr_apply_to_grps(st(), kDev, 1, note_group, &seen), BF_NO_SPACE);
  EXPECT_EQ(seen, (std::vector<uint32_t>{10, 20, 30}));
  // As the restore runs it: the layer's own function, which takes the state's lock again.
  ASSERT_EQ(p4_pd_ms_set_mbr_res(st(), kDev, 1, 0x4000001, 7), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_mbr_apply_to_grps(st(), kDev, 1, p4_pd_ms_grp_update_res, st()), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_grp_get_res(st(), kDev, 20, &h, &i), BF_SUCCESS);
  EXPECT_EQ(std::make_pair(h, i), std::make_pair(0x4000001u, 7u));
  ASSERT_EQ(p4_pd_ms_grp_update_res(kDev, 2, 30, st()), BF_SUCCESS);  // by handle, linked or not
  ASSERT_EQ(p4_pd_ms_grp_get_res(st(), kDev, 30, nullptr, &i), BF_SUCCESS);  // a null output is skipped
  EXPECT_EQ(i, 0u);

  for (uint32_t a : {kActB, kActA}) ASSERT_EQ(p4_pd_ms_set_grp_act(st(), kDev, 30, a), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_set_mbr_act(st(), kDev, 2, kActB), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_del_mbr_from_grp(0, st(), kDev, 1, 30), BF_SUCCESS);  // emptied, 30 keeps its action
  EXPECT_EQ(groups_of(st(), 1), (std::vector<uint32_t>{10, 20}));
  ASSERT_EQ(p4_pd_ms_del_mbr(0, st(), kDev, 2), BF_SUCCESS);  // out of its groups (10, 20) too
  ASSERT_EQ(p4_pd_ms_new_mbr(0, st(), kDev, 2), BF_SUCCESS);  // made anew: no action, in no group
  EXPECT_TRUE(groups_of(st(), 2).empty());
  const pipe_adt_ent_hdl_t list[] = {1, 99};  // some members and an unknown one: every link goes
  ASSERT_EQ(p4_pd_ms_del_grp(0, st(), kDev, 10, 2, list), BF_SUCCESS);
  EXPECT_EQ(groups_of(st(), 3), std::vector<uint32_t>());
  EXPECT_EQ(dump(st()), R"({"name":"profile","members":[{"mbr_hdl":1,"res":[67108865,7]},{"mbr_hdl":2,"res":[0,0]},)"
                        R"({"mbr_hdl":3,"res":[0,0]}],"groups":[{"grp_hdl":20,"res":[67108865,7],"mbrs":[1]},)"
                        R"({"grp_hdl":30,"act_fn_hdl":536871064,"res":[0,0],"mbrs":[]}]})");
}

// A walk writes the smallest handles in increasing order, at most max of them, and the total; it
// writes nothing past what it reports.
TEST_F(MsTest, WalksWriteTheSmallestHandlesInOrderAndTheTotal) {
  for (uint32_t m : {9u, 2u, 0xFFFFFFFFu, 0u, 5u, 7u}) ASSERT_EQ(p4_pd_ms_new_mbr(0, st(), kDev, m), BF_SUCCESS);
  for (uint32_t g : {40u, 0u, 0x80000000u}) ASSERT_EQ(p4_pd_ms_new_grp(0, st(), kDev, g), BF_SUCCESS);
  for (uint32_t m : {9u, 0xFFFFFFFFu, 0u, 7u}) ASSERT_EQ(p4_pd_ms_add_mbr_to_grp(0, st(), kDev, m, 40), BF_SUCCESS);
  for (uint32_t g : {0x80000000u, 0u}) ASSERT_EQ(p4_pd_ms_add_mbr_to_grp(0, st(), kDev, 9, g), BF_SUCCESS);
  using V = std::vector<uint32_t>;
  auto walk = [](auto fn, uint32_t max) {
    V out(8, 0xAB);
    uint32_t n = 0xDEAD;
    EXPECT_EQ(fn(max, max ? out.data() : nullptr, &n), BF_SUCCESS);
    out.push_back(n);  // the total, last
    return out;
  };
  auto mbrs = [&](uint32_t max, uint32_t *o, uint32_t *n) { return p4_pd_ms_get_mbrs(st(), kDev, max, o, n); };
  auto grps = [&](uint32_t max, uint32_t *o, uint32_t *n) { return p4_pd_ms_get_grps(st(), kDev, max, o, n); };
  auto of40 = [&](uint32_t max, uint32_t *o, uint32_t *n) { return p4_pd_ms_get_grp_mbrs(st(), kDev, 40, max, o, n); };
  auto of9 = [&](uint32_t max, uint32_t *o, uint32_t *n) { return p4_pd_ms_get_mbr_grps(st(), kDev, 9, max, o, n); };
  const uint32_t x = 0xAB, top = 0xFFFFFFFF;
  EXPECT_EQ(walk(mbrs, 0), (V{x, x, x, x, x, x, x, x, 6}));
  EXPECT_EQ(walk(mbrs, 1), (V{0, x, x, x, x, x, x, x, 6}));
  EXPECT_EQ(walk(mbrs, 3), (V{0, 2, 5, x, x, x, x, x, 6}));
  EXPECT_EQ(walk(mbrs, 6), (V{0, 2, 5, 7, 9, top, x, x, 6}));
  EXPECT_EQ(walk(mbrs, 8), (V{0, 2, 5, 7, 9, top, x, x, 6}));
  EXPECT_EQ(walk(grps, 2), (V{0, 40, x, x, x, x, x, x, 3}));
  EXPECT_EQ(walk(grps, 8), (V{0, 40, 0x80000000u, x, x, x, x, x, 3}));
  EXPECT_EQ(walk(of40, 3), (V{0, 7, 9, x, x, x, x, x, 4}));
  EXPECT_EQ(walk(of40, 8), (V{0, 7, 9, top, x, x, x, x, 4}));
  EXPECT_EQ(walk(of9, 2), (V{0, 40, x, x, x, x, x, x, 3}));
  EXPECT_EQ(walk(of9, 8), (V{0, 40, 0x80000000u, x, x, x, x, x, 3}));
  // An empty group and a member in no group; a device with nothing.
  ASSERT_EQ(p4_pd_ms_new_grp(0, st(), kDev, 3), BF_SUCCESS);
  uint32_t n = 0xDEAD;
  EXPECT_EQ(p4_pd_ms_get_grp_mbrs(st(), kDev, 3, 0, nullptr, &n), BF_SUCCESS);
  EXPECT_EQ(n, 0u);
  n = 0xDEAD;
  EXPECT_EQ(p4_pd_ms_get_mbr_grps(st(), kDev, 5, 0, nullptr, &n), BF_SUCCESS);
  EXPECT_EQ(n, 0u);
  for (bf_dev_id_t dev : {1u, 0xFFFFFFFFu}) {
    n = 0xDEAD;
    EXPECT_EQ(p4_pd_ms_get_mbrs(st(), dev, 0, nullptr, &n), BF_SUCCESS);
    EXPECT_EQ(n, 0u);
    n = 0xDEAD;
    EXPECT_EQ(p4_pd_ms_get_grps(st(), dev, 0, nullptr, &n), BF_SUCCESS);
    EXPECT_EQ(n, 0u);
  }
  // Members deleted one by one leave the walks and their groups' lists.
  ASSERT_EQ(p4_pd_ms_del_mbr(0, st(), kDev, 0), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_del_grp(0, st(), kDev, 0, 0, nullptr), BF_SUCCESS);
  EXPECT_EQ(walk(mbrs, 8), (V{2, 5, 7, 9, top, x, x, x, 5}));
  EXPECT_EQ(walk(of40, 8), (V{7, 9, top, x, x, x, x, x, 3}));
  EXPECT_EQ(walk(of9, 8), (V{40, 0x80000000u, x, x, x, x, x, x, 2}));
}

TEST_F(MsTest, LogWritesTheDocumentedFormAndRestoreGivesTheSameStateBack) {
  populate(st(), kDev);
  const std::string logged = dump(st());
  EXPECT_EQ(logged, R"({"name":"profile",)"
                    R"("members":[{"mbr_hdl":3,"act_fn_hdl":536871065,"res":[604045313,2147483648]},)"
                    R"({"mbr_hdl":7,"act_fn_hdl":536871064,"res":[0,0]},{"mbr_hdl":12,"res":[0,0]},)"
                    R"({"mbr_hdl":4294967295,"act_fn_hdl":4294967294,"res":[0,0]}],)"
                    R"("groups":[{"grp_hdl":5,"act_fn_hdl":536871065,"res":[0,0],"mbrs":[3,7]},)"
                    R"({"grp_hdl":6,"res":[0,0],"mbrs":[]},)"
                    R"({"grp_hdl":536870913,"act_fn_hdl":536871065,"res":[604045313,2147483648],"mbrs":[3]}]})");
  // Restored under another device of another state, the same; the states stay apart.
  Json parsed = parse(logged.c_str());
  State fresh = new_state();
  ASSERT_EQ(p4_pd_ms_restore_state(4, fresh.get(), parsed.get()), BF_SUCCESS);
  EXPECT_EQ(dump(fresh.get(), 4), logged);
  ASSERT_EQ(p4_pd_ms_del_mbr(0, fresh.get(), 4, 3), BF_SUCCESS);
  EXPECT_EQ(dump(st()), logged);
  ASSERT_EQ(p4_pd_ms_destroy_state_for_dev(fresh.get(), 4), BF_SUCCESS);
  EXPECT_EQ(dump(fresh.get(), 4), kEmpty);
}

}  // namespace
