// The member-selector state layer.
#include <gtest/gtest.h>

#include <cjson/cJSON.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "drv/pd_ms.h"

namespace {

constexpr bf_dev_id_t kDev = 0;
constexpr uint32_t kActA = 0x20000098;
constexpr uint32_t kActB = 0x20000099;

struct StateDeleter {
  void operator()(p4_pd_ms_state_t *s) const { p4_pd_ms_free_state(s); }
};
using State = std::unique_ptr<p4_pd_ms_state_t, StateDeleter>;
struct JsonDeleter {
  void operator()(cJSON *j) const { cJSON_Delete(j); }
};
using Json = std::unique_ptr<cJSON, JsonDeleter>;

class MsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(p4_pd_ms_init(), BF_SUCCESS);
    s.reset(p4_pd_ms_init_state());
    ASSERT_NE(s, nullptr);
  }
  p4_pd_ms_state_t *st() { return s.get(); }
  State s;
};

uint32_t mbr_act(p4_pd_ms_state_t *s, uint32_t mbr, bf_status_t *status, bf_dev_id_t dev = kDev) {
  uint32_t act = 0xDEADu;
  *status = p4_pd_ms_get_mbr_act(s, dev, mbr, &act);
  return act;
}

uint32_t grp_act(p4_pd_ms_state_t *s, uint32_t grp, bf_status_t *status, bf_dev_id_t dev = kDev) {
  uint32_t act = 0xDEADu;
  *status = p4_pd_ms_get_grp_act(s, dev, grp, &act);
  return act;
}

// The device's state as log_state writes it, printed.
std::string dump(p4_pd_ms_state_t *s, bf_dev_id_t dev = kDev) {
  Json obj(cJSON_CreateObject());
  cJSON_AddStringToObject(obj.get(), "name", "profile");
  EXPECT_EQ(p4_pd_ms_log_state(dev, s, obj.get()), BF_SUCCESS);
  char *text = cJSON_PrintUnformatted(obj.get());
  std::string out = text;
  cJSON_free(text);
  return out;
}

// The groups a member is in, as p4_pd_ms_mbr_apply_to_grps visits them.
std::vector<uint32_t> g_visited;
bf_status_t note_group(bf_dev_id_t, pipe_adt_ent_hdl_t, pipe_sel_grp_hdl_t grp, void *) {
  g_visited.push_back(grp);
  return BF_SUCCESS;
}
std::vector<uint32_t> groups_of(p4_pd_ms_state_t *s, uint32_t mbr, bf_dev_id_t dev = kDev) {
  g_visited.clear();
  EXPECT_EQ(p4_pd_ms_mbr_apply_to_grps(s, dev, mbr, note_group, nullptr), BF_SUCCESS);
  return g_visited;
}

TEST_F(MsTest, MemberLifecycle) {
  bf_status_t r;
  EXPECT_EQ(mbr_act(st(), 1, &r), 0xDEADu);
  EXPECT_EQ(r, BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(p4_pd_ms_set_mbr_act(st(), kDev, 1, kActA), BF_OBJECT_NOT_FOUND);

  ASSERT_EQ(p4_pd_ms_new_mbr(0, st(), kDev, 1), BF_SUCCESS);
  EXPECT_EQ(mbr_act(st(), 1, &r), 0xDEADu);  // no action yet
  EXPECT_EQ(r, BF_OBJECT_NOT_FOUND);
  ASSERT_EQ(p4_pd_ms_set_mbr_act(st(), kDev, 1, kActA), BF_SUCCESS);
  EXPECT_EQ(mbr_act(st(), 1, &r), kActA);
  EXPECT_EQ(r, BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_set_mbr_act(st(), kDev, 1, kActB), BF_SUCCESS);
  EXPECT_EQ(mbr_act(st(), 1, &r), kActB);

  EXPECT_EQ(p4_pd_ms_new_mbr(0, st(), kDev, 1), BF_ALREADY_EXISTS);
  EXPECT_EQ(mbr_act(st(), 1, &r), kActB);  // unchanged by the refusal

  EXPECT_EQ(p4_pd_ms_del_mbr(0, st(), kDev, 1), BF_SUCCESS);
  mbr_act(st(), 1, &r);
  EXPECT_EQ(r, BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(p4_pd_ms_del_mbr(0, st(), kDev, 1), BF_OBJECT_NOT_FOUND);
}

TEST_F(MsTest, DevicesAndStatesAreSeparate) {
  State other(p4_pd_ms_init_state());
  ASSERT_EQ(p4_pd_ms_new_mbr(0, st(), 0, 5), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_set_mbr_act(st(), 0, 5, kActA), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_new_mbr(0, st(), 1, 5), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_set_mbr_act(st(), 1, 5, kActB), BF_SUCCESS);
  bf_status_t r;
  EXPECT_EQ(mbr_act(st(), 5, &r, 0), kActA);
  EXPECT_EQ(mbr_act(st(), 5, &r, 1), kActB);
  mbr_act(other.get(), 5, &r, 0);
  EXPECT_EQ(r, BF_OBJECT_NOT_FOUND);
  mbr_act(st(), 5, &r, 2);
  EXPECT_EQ(r, BF_OBJECT_NOT_FOUND);
}

TEST_F(MsTest, GroupActionIsSetOverTheFormerOne) {
  bf_status_t r;
  EXPECT_EQ(p4_pd_ms_set_grp_act(st(), kDev, 9, kActA), BF_OBJECT_NOT_FOUND);
  ASSERT_EQ(p4_pd_ms_new_grp(0, st(), kDev, 9), BF_SUCCESS);
  EXPECT_EQ(p4_pd_ms_new_grp(0, st(), kDev, 9), BF_ALREADY_EXISTS);
  EXPECT_EQ(grp_act(st(), 9, &r), 0xDEADu);
  EXPECT_EQ(r, BF_OBJECT_NOT_FOUND);
  ASSERT_EQ(p4_pd_ms_set_grp_act(st(), kDev, 9, kActA), BF_SUCCESS);
  EXPECT_EQ(grp_act(st(), 9, &r), kActA);
  ASSERT_EQ(p4_pd_ms_set_grp_act(st(), kDev, 9, kActB), BF_SUCCESS);
  EXPECT_EQ(grp_act(st(), 9, &r), kActB);
  EXPECT_EQ(r, BF_SUCCESS);
  // A member's handle is not a group's.
  ASSERT_EQ(p4_pd_ms_new_mbr(0, st(), kDev, 10), BF_SUCCESS);
  grp_act(st(), 10, &r);
  EXPECT_EQ(r, BF_OBJECT_NOT_FOUND);
}

TEST_F(MsTest, MembershipLinksBothWays) {
  for (uint32_t m : {1, 2}) ASSERT_EQ(p4_pd_ms_new_mbr(0, st(), kDev, m), BF_SUCCESS);
  for (uint32_t g : {30, 10, 20}) ASSERT_EQ(p4_pd_ms_new_grp(0, st(), kDev, g), BF_SUCCESS);
  EXPECT_EQ(p4_pd_ms_add_mbr_to_grp(0, st(), kDev, 3, 10), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(p4_pd_ms_add_mbr_to_grp(0, st(), kDev, 1, 11), BF_OBJECT_NOT_FOUND);
  ASSERT_EQ(p4_pd_ms_add_mbr_to_grp(0, st(), kDev, 1, 30), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_add_mbr_to_grp(0, st(), kDev, 1, 10), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_add_mbr_to_grp(0, st(), kDev, 2, 10), BF_SUCCESS);
  EXPECT_EQ(p4_pd_ms_add_mbr_to_grp(0, st(), kDev, 1, 10), BF_ALREADY_EXISTS);
  EXPECT_EQ(groups_of(st(), 1), (std::vector<uint32_t>{10, 30}));
  EXPECT_EQ(groups_of(st(), 2), (std::vector<uint32_t>{10}));

  ASSERT_EQ(p4_pd_ms_set_grp_act(st(), kDev, 30, kActA), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_del_mbr_from_grp(0, st(), kDev, 1, 30), BF_SUCCESS);
  EXPECT_EQ(p4_pd_ms_del_mbr_from_grp(0, st(), kDev, 1, 30), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(p4_pd_ms_del_mbr_from_grp(0, st(), kDev, 1, 20), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(groups_of(st(), 1), (std::vector<uint32_t>{10}));
  bf_status_t r;
  EXPECT_EQ(grp_act(st(), 30, &r), kActA);  // an emptied group keeps its action
}

TEST_F(MsTest, DeletingAMemberTakesItOutOfItsGroups) {
  for (uint32_t m : {1, 2}) ASSERT_EQ(p4_pd_ms_new_mbr(0, st(), kDev, m), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_new_grp(0, st(), kDev, 10), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_add_mbr_to_grp(0, st(), kDev, 1, 10), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_add_mbr_to_grp(0, st(), kDev, 2, 10), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_del_mbr(0, st(), kDev, 1), BF_SUCCESS);
  EXPECT_EQ(dump(st()),
            R"({"name":"profile","members":[{"mbr_hdl":2,"res":[0,0]}],)"
            R"("groups":[{"grp_hdl":10,"res":[0,0],"mbrs":[2]}]})");
  // A member of the same handle, made anew, is in no group.
  ASSERT_EQ(p4_pd_ms_new_mbr(0, st(), kDev, 1), BF_SUCCESS);
  EXPECT_TRUE(groups_of(st(), 1).empty());
  EXPECT_EQ(p4_pd_ms_del_mbr_from_grp(0, st(), kDev, 1, 10), BF_OBJECT_NOT_FOUND);
}

TEST_F(MsTest, DeletingAGroupTakesItFromItsMembers) {
  for (uint32_t m : {1, 2, 3}) ASSERT_EQ(p4_pd_ms_new_mbr(0, st(), kDev, m), BF_SUCCESS);
  for (uint32_t g : {10, 20}) ASSERT_EQ(p4_pd_ms_new_grp(0, st(), kDev, g), BF_SUCCESS);
  for (uint32_t m : {1, 2, 3}) ASSERT_EQ(p4_pd_ms_add_mbr_to_grp(0, st(), kDev, m, 10), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_add_mbr_to_grp(0, st(), kDev, 1, 20), BF_SUCCESS);

  EXPECT_EQ(p4_pd_ms_del_grp(0, st(), kDev, 10, 2, nullptr), BF_INVALID_ARG);
  EXPECT_EQ(groups_of(st(), 2), (std::vector<uint32_t>{10}));
  EXPECT_EQ(p4_pd_ms_del_grp(0, st(), kDev, 11, 0, nullptr), BF_OBJECT_NOT_FOUND);
  // The list names only some members, and one unknown: all links of the group go.
  const pipe_adt_ent_hdl_t list[] = {1, 99};
  ASSERT_EQ(p4_pd_ms_del_grp(0, st(), kDev, 10, 2, list), BF_SUCCESS);
  EXPECT_EQ(groups_of(st(), 1), (std::vector<uint32_t>{20}));
  EXPECT_TRUE(groups_of(st(), 2).empty());
  EXPECT_TRUE(groups_of(st(), 3).empty());
  bf_status_t r;
  grp_act(st(), 10, &r);
  EXPECT_EQ(r, BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(p4_pd_ms_del_grp(0, st(), kDev, 10, 0, nullptr), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(p4_pd_ms_del_grp(0, st(), kDev, 20, 0, nullptr), BF_SUCCESS);
  EXPECT_TRUE(groups_of(st(), 1).empty());
}

bf_status_t fail_on_20(bf_dev_id_t, pipe_adt_ent_hdl_t, pipe_sel_grp_hdl_t grp, void *aux) {
  static_cast<std::vector<uint32_t> *>(aux)->push_back(grp);
  return grp == 20 ? BF_NO_SPACE : grp == 30 ? BF_UNEXPECTED : BF_SUCCESS;
}

TEST_F(MsTest, ApplyToGroupsCallsForEachGroupAndReportsTheFirstFailure) {
  ASSERT_EQ(p4_pd_ms_new_mbr(0, st(), kDev, 1), BF_SUCCESS);
  for (uint32_t g : {10, 20, 30, 40}) {
    ASSERT_EQ(p4_pd_ms_new_grp(0, st(), kDev, g), BF_SUCCESS);
    ASSERT_EQ(p4_pd_ms_add_mbr_to_grp(0, st(), kDev, 1, g), BF_SUCCESS);
  }
  std::vector<uint32_t> seen;
  EXPECT_EQ(p4_pd_ms_mbr_apply_to_grps(st(), kDev, 1, fail_on_20, &seen), BF_NO_SPACE);
  EXPECT_EQ(seen, (std::vector<uint32_t>{10, 20, 30, 40}));
  seen.clear();
  EXPECT_EQ(p4_pd_ms_mbr_apply_to_grps(st(), kDev, 0, fail_on_20, &seen), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(p4_pd_ms_mbr_apply_to_grps(st(), kDev, 1, nullptr, &seen), BF_INVALID_ARG);
  EXPECT_TRUE(seen.empty());
}

TEST_F(MsTest, GroupTakesItsMembersResources) {
  uint32_t h = 0xDEADu, i = 0xDEADu;
  EXPECT_EQ(p4_pd_ms_mbr_get_res(st(), kDev, 1, &h, &i), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(p4_pd_ms_grp_get_res(st(), kDev, 10, &h, &i), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(h, 0xDEADu);
  EXPECT_EQ(i, 0xDEADu);
  EXPECT_EQ(p4_pd_ms_set_mbr_res(st(), kDev, 1, 0x4000001, 7), BF_OBJECT_NOT_FOUND);

  for (uint32_t m : {1, 2}) ASSERT_EQ(p4_pd_ms_new_mbr(0, st(), kDev, m), BF_SUCCESS);
  for (uint32_t g : {10, 20, 30}) ASSERT_EQ(p4_pd_ms_new_grp(0, st(), kDev, g), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_set_mbr_res(st(), kDev, 1, 0x4000001, 7), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_add_mbr_to_grp(0, st(), kDev, 1, 10), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_add_mbr_to_grp(0, st(), kDev, 1, 20), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_add_mbr_to_grp(0, st(), kDev, 2, 30), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_mbr_get_res(st(), kDev, 1, &h, &i), BF_SUCCESS);
  EXPECT_EQ(h, 0x4000001u);
  EXPECT_EQ(i, 7u);
  ASSERT_EQ(p4_pd_ms_grp_get_res(st(), kDev, 10, &h, &i), BF_SUCCESS);
  EXPECT_EQ(h, 0u);
  EXPECT_EQ(i, 0u);

  // As the restore runs it: the layer's own function, with the state as its argument. It takes
  // the state's lock, which the walk must not hold.
  ASSERT_EQ(p4_pd_ms_mbr_apply_to_grps(st(), kDev, 1, p4_pd_ms_grp_update_res, st()), BF_SUCCESS);
  for (uint32_t g : {10, 20}) {
    ASSERT_EQ(p4_pd_ms_grp_get_res(st(), kDev, g, &h, &i), BF_SUCCESS);
    EXPECT_EQ(h, 0x4000001u) << g;
    EXPECT_EQ(i, 7u) << g;
  }
  ASSERT_EQ(p4_pd_ms_grp_get_res(st(), kDev, 30, &h, &i), BF_SUCCESS);
  EXPECT_EQ(h, 0u);
  EXPECT_EQ(p4_pd_ms_grp_get_res(st(), kDev, 30, nullptr, nullptr), BF_SUCCESS);

  EXPECT_EQ(p4_pd_ms_grp_update_res(kDev, 1, 99, st()), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(p4_pd_ms_grp_update_res(kDev, 99, 30, st()), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(p4_pd_ms_grp_update_res(kDev, 1, 30, nullptr), BF_INVALID_ARG);
  ASSERT_EQ(p4_pd_ms_grp_update_res(kDev, 1, 30, st()), BF_SUCCESS);  // by handle, linked or not
  ASSERT_EQ(p4_pd_ms_grp_get_res(st(), kDev, 30, &h, &i), BF_SUCCESS);
  EXPECT_EQ(h, 0x4000001u);
}

TEST_F(MsTest, DestroyForDeviceDropsOnlyThatDevice) {
  State other(p4_pd_ms_init_state());
  for (bf_dev_id_t dev : {0u, 1u}) {
    ASSERT_EQ(p4_pd_ms_new_mbr(0, st(), dev, 1), BF_SUCCESS);
    ASSERT_EQ(p4_pd_ms_set_mbr_act(st(), dev, 1, kActA), BF_SUCCESS);
    ASSERT_EQ(p4_pd_ms_new_grp(0, st(), dev, 10), BF_SUCCESS);
  }
  ASSERT_EQ(p4_pd_ms_new_mbr(0, other.get(), 0, 1), BF_SUCCESS);
  const std::string dev1 = dump(st(), 1);

  EXPECT_EQ(p4_pd_ms_destroy_state_for_dev(st(), 0), BF_SUCCESS);
  EXPECT_EQ(p4_pd_ms_destroy_state_for_dev(st(), 0), BF_SUCCESS);  // nothing left: fine
  EXPECT_EQ(p4_pd_ms_destroy_txn_state_for_dev(0), BF_SUCCESS);
  bf_status_t r;
  mbr_act(st(), 1, &r, 0);
  EXPECT_EQ(r, BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(dump(st(), 0), R"({"name":"profile","members":[],"groups":[]})");
  EXPECT_EQ(dump(st(), 1), dev1);
  EXPECT_EQ(p4_pd_ms_new_mbr(0, other.get(), 0, 1), BF_ALREADY_EXISTS);
  // The state object lives on.
  EXPECT_EQ(p4_pd_ms_new_mbr(0, st(), 0, 1), BF_SUCCESS);
}

TEST_F(MsTest, NullStateOrOutputIsRefused) {
  uint32_t act = 0, a = 0, b = 0;
  EXPECT_EQ(p4_pd_ms_new_mbr(0, nullptr, kDev, 1), BF_INVALID_ARG);
  EXPECT_EQ(p4_pd_ms_new_grp(0, nullptr, kDev, 1), BF_INVALID_ARG);
  EXPECT_EQ(p4_pd_ms_get_mbr_act(nullptr, kDev, 1, &act), BF_INVALID_ARG);
  EXPECT_EQ(p4_pd_ms_mbr_get_res(nullptr, kDev, 1, &a, &b), BF_INVALID_ARG);
  EXPECT_EQ(p4_pd_ms_destroy_state_for_dev(nullptr, kDev), BF_INVALID_ARG);
  ASSERT_EQ(p4_pd_ms_new_mbr(0, st(), kDev, 1), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_set_mbr_act(st(), kDev, 1, kActA), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_new_grp(0, st(), kDev, 2), BF_SUCCESS);
  EXPECT_EQ(p4_pd_ms_get_mbr_act(st(), kDev, 1, nullptr), BF_INVALID_ARG);
  EXPECT_EQ(p4_pd_ms_get_grp_act(st(), kDev, 2, nullptr), BF_INVALID_ARG);
  Json obj(cJSON_CreateObject());
  EXPECT_EQ(p4_pd_ms_log_state(kDev, nullptr, obj.get()), BF_INVALID_ARG);
  EXPECT_EQ(p4_pd_ms_log_state(kDev, st(), nullptr), BF_INVALID_ARG);
  EXPECT_EQ(p4_pd_ms_restore_state(kDev, st(), nullptr), BF_INVALID_ARG);
  EXPECT_EQ(cJSON_GetArraySize(obj.get()), 0);
}

// A state with all that the JSON form must carry: members with and without an action and
// resources, groups with and without an action and members, shared members, large handles.
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

TEST_F(MsTest, LogWritesTheDocumentedForm) {
  populate(st(), kDev);
  EXPECT_EQ(dump(st()),
            R"({"name":"profile",)"
            R"("members":[{"mbr_hdl":3,"act_fn_hdl":536871065,"res":[604045313,2147483648]},)"
            R"({"mbr_hdl":7,"act_fn_hdl":536871064,"res":[0,0]},{"mbr_hdl":12,"res":[0,0]},)"
            R"({"mbr_hdl":4294967295,"act_fn_hdl":4294967294,"res":[0,0]}],)"
            R"("groups":[{"grp_hdl":5,"act_fn_hdl":536871065,"res":[0,0],"mbrs":[3,7]},)"
            R"({"grp_hdl":6,"res":[0,0],"mbrs":[]},)"
            R"({"grp_hdl":536870913,"act_fn_hdl":536871065,"res":[604045313,2147483648],)"
            R"("mbrs":[3]}]})");
  EXPECT_EQ(dump(st(), 1), R"({"name":"profile","members":[],"groups":[]})");
}

TEST_F(MsTest, LogRestoreLogRoundTrip) {
  populate(st(), kDev);
  Json obj(cJSON_CreateObject());
  cJSON_AddStringToObject(obj.get(), "name", "profile");
  ASSERT_EQ(p4_pd_ms_log_state(kDev, st(), obj.get()), BF_SUCCESS);
  const std::string logged = dump(st());

  // Through text, as a stored record would go.
  char *text = cJSON_PrintUnformatted(obj.get());
  Json parsed(cJSON_Parse(text));
  cJSON_free(text);
  ASSERT_NE(parsed, nullptr);

  State fresh(p4_pd_ms_init_state());
  ASSERT_EQ(p4_pd_ms_restore_state(kDev, fresh.get(), parsed.get()), BF_SUCCESS);
  EXPECT_EQ(dump(fresh.get()), logged);

  // The restored state behaves like the original, also on another device number.
  State moved(p4_pd_ms_init_state());
  ASSERT_EQ(p4_pd_ms_restore_state(4, moved.get(), obj.get()), BF_SUCCESS);
  EXPECT_EQ(dump(moved.get(), 4), logged);
  bf_status_t r;
  EXPECT_EQ(grp_act(moved.get(), 5, &r, 4), kActB);
  EXPECT_EQ(groups_of(moved.get(), 3, 4), (std::vector<uint32_t>{5, 0x20000001u}));
  mbr_act(moved.get(), 12, &r, 4);
  EXPECT_EQ(r, BF_OBJECT_NOT_FOUND);
  ASSERT_EQ(p4_pd_ms_del_mbr(0, moved.get(), 4, 3), BF_SUCCESS);
  EXPECT_EQ(dump(fresh.get()), logged);  // separate states
}

TEST_F(MsTest, RestoreReplacesTheDevicesState) {
  populate(st(), kDev);
  populate(st(), 1);
  const std::string dev1 = dump(st(), 1);
  State empty(p4_pd_ms_init_state());
  Json obj(cJSON_CreateObject());
  ASSERT_EQ(p4_pd_ms_log_state(kDev, empty.get(), obj.get()), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_restore_state(kDev, st(), obj.get()), BF_SUCCESS);
  EXPECT_EQ(dump(st()), R"({"name":"profile","members":[],"groups":[]})");
  EXPECT_EQ(dump(st(), 1), dev1);
}

TEST_F(MsTest, MalformedRecordIsRefusedAndChangesNothing) {
  populate(st(), kDev);
  const std::string before = dump(st());
  const char *bad[] = {
      R"({})",
      R"({"members":[]})",
      R"({"members":{},"groups":[]})",
      R"({"members":[{"act_fn_hdl":1,"res":[0,0]}],"groups":[]})",
      R"({"members":[{"mbr_hdl":1}],"groups":[]})",
      R"({"members":[{"mbr_hdl":1,"res":[0]}],"groups":[]})",
      R"({"members":[{"mbr_hdl":-1,"res":[0,0]}],"groups":[]})",
      R"({"members":[{"mbr_hdl":1.5,"res":[0,0]}],"groups":[]})",
      R"({"members":[{"mbr_hdl":4294967296,"res":[0,0]}],"groups":[]})",
      R"({"members":[{"mbr_hdl":"1","res":[0,0]}],"groups":[]})",
      R"({"members":[{"mbr_hdl":1,"act_fn_hdl":null,"res":[0,0]}],"groups":[]})",
      R"({"members":[{"mbr_hdl":1,"res":[0,0]},{"mbr_hdl":1,"res":[0,0]}],"groups":[]})",
      R"({"members":[],"groups":[{"grp_hdl":1,"res":[0,0]}]})",
      R"({"members":[],"groups":[{"grp_hdl":1,"res":[0,0],"mbrs":[2]}]})",
      R"({"members":[{"mbr_hdl":2,"res":[0,0]}],"groups":[{"grp_hdl":1,"res":[0,0],"mbrs":[2,2]}]})",
      R"({"members":[],"groups":[{"grp_hdl":1,"res":[0,0],"mbrs":[]},{"grp_hdl":1,"res":[0,0],"mbrs":[]}]})",
  };
  for (const char *text : bad) {
    Json obj(cJSON_Parse(text));
    ASSERT_NE(obj, nullptr) << text;
    EXPECT_EQ(p4_pd_ms_restore_state(kDev, st(), obj.get()), BF_INVALID_ARG) << text;
    EXPECT_EQ(dump(st()), before) << text;
  }
  // Keys of others, such as the caller's "name", are no concern of the layer.
  Json ok(cJSON_Parse(R"({"name":"x","members":[{"mbr_hdl":1,"res":[0,0]}],"groups":[]})"));
  EXPECT_EQ(p4_pd_ms_restore_state(kDev, st(), ok.get()), BF_SUCCESS);
  EXPECT_EQ(dump(st()), R"({"name":"profile","members":[{"mbr_hdl":1,"res":[0,0]}],"groups":[]})");
}

// Several threads change one state at once: their own members, in the same two groups. Without
// the state's lock this loses changes or breaks the state; a few rounds make that near certain.
TEST_F(MsTest, ConcurrentChangesOnOneStateAreAllKept) {
  constexpr uint32_t kThreads = 4, kEach = 20000;
  for (int round = 0; round < 4; ++round) {
    SCOPED_TRACE(round);
    State s(p4_pd_ms_init_state());
    p4_pd_ms_state_t *state = s.get();
    for (uint32_t g : {0, 1}) ASSERT_EQ(p4_pd_ms_new_grp(0, state, kDev, g), BF_SUCCESS);
    std::atomic<uint32_t> ready{0};
    std::vector<std::thread> threads;
    for (uint32_t t = 0; t < kThreads; ++t) {
      threads.emplace_back([state, t, &ready] {
        ++ready;
        while (ready.load() < kThreads) std::this_thread::yield();  // start together
        for (uint32_t i = 0; i < kEach; ++i) {
          uint32_t m = i * kThreads + t + 1;
          p4_pd_ms_new_mbr(0, state, kDev, m);
          p4_pd_ms_set_mbr_act(state, kDev, m, kActA + t);
          p4_pd_ms_add_mbr_to_grp(0, state, kDev, m, 0);
          p4_pd_ms_add_mbr_to_grp(0, state, kDev, m, 1);
          p4_pd_ms_set_grp_act(state, kDev, i % 2, kActA + t);
          if (i % 2) p4_pd_ms_del_mbr(0, state, kDev, m);
        }
      });
    }
    for (std::thread &th : threads) th.join();

    Json obj(cJSON_CreateObject());
    ASSERT_EQ(p4_pd_ms_log_state(kDev, state, obj.get()), BF_SUCCESS);
    const int kept = static_cast<int>(kThreads * kEach / 2);
    ASSERT_EQ(cJSON_GetArraySize(cJSON_GetObjectItem(obj.get(), "members")), kept);
    const cJSON *g;
    cJSON_ArrayForEach(g, cJSON_GetObjectItem(obj.get(), "groups")) {
      ASSERT_EQ(cJSON_GetArraySize(cJSON_GetObjectItem(g, "mbrs")), kept);
    }
    for (uint32_t t = 0; t < kThreads; ++t) {
      bf_status_t r;
      ASSERT_EQ(mbr_act(state, t + 1, &r), kActA + t);
      ASSERT_EQ(groups_of(state, t + 1), (std::vector<uint32_t>{0, 1}));
    }
  }
}

}  // namespace
