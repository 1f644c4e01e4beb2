// The JSON form of the member-selector state layer: log and restore give the same state back, and
// restore refuses anything but a record of the form, leaving the state as it was.
#include <gtest/gtest.h>

#include <cjson/cJSON.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <optional>
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
using pdms_test::print;
using pdms_test::State;
using pdms_test::View;
using pdms_test::view_of;

constexpr bf_dev_id_t kDev = 2;
const std::vector<uint32_t> kProbes = {0, 1, 3, 5, 6, 7, 12, 40, 0x20000001u, 0xFFFFFFFEu, 0xFFFFFFFFu};

// Members with and without an action and resources, groups with and without an action and
// members, members in several groups, the smallest and largest handles.
void populate(p4_pd_ms_state_t *s, bf_dev_id_t dev) {
  for (uint32_t m : {7u, 3u, 0xFFFFFFFFu, 12u, 0u}) ASSERT_EQ(p4_pd_ms_new_mbr(1, s, dev, m), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_set_mbr_act(s, dev, 7, 0x20000098), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_set_mbr_act(s, dev, 3, 0x20000099), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_set_mbr_act(s, dev, 0xFFFFFFFFu, 0xFFFFFFFFu), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_set_mbr_act(s, dev, 0, 0), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_set_mbr_res(s, dev, 3, 0x24010001, 0x80000000u), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_set_mbr_res(s, dev, 0xFFFFFFFFu, 0xFFFFFFFFu, 0xFFFFFFFFu), BF_SUCCESS);
  for (uint32_t g : {0x20000001u, 5u, 6u, 0u}) ASSERT_EQ(p4_pd_ms_new_grp(1, s, dev, g), BF_SUCCESS);
  for (uint32_t m : {7u, 3u, 0xFFFFFFFFu}) ASSERT_EQ(p4_pd_ms_add_mbr_to_grp(1, s, dev, m, 5), BF_SUCCESS);
  for (uint32_t m : {3u, 0u}) ASSERT_EQ(p4_pd_ms_add_mbr_to_grp(1, s, dev, m, 0x20000001u), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_add_mbr_to_grp(1, s, dev, 3, 0), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_set_grp_act(s, dev, 5, 0x20000099), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_set_grp_act(s, dev, 0, 0), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_mbr_apply_to_grps(s, dev, 3, p4_pd_ms_grp_update_res, s), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_grp_update_res(dev, 0xFFFFFFFFu, 6, s), BF_SUCCESS);
}

class JsonTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(p4_pd_ms_init(), BF_SUCCESS);
    populate(s.get(), kDev);
  }
  State s = new_state();
};

TEST_F(JsonTest, LogDestroyRestoreGivesEveryAnswerBack) {
  const View before = view_of(s.get(), kDev, kProbes);
  const std::string logged = dump(s.get(), kDev);
  Json record = parse(logged);  // through text, as a stored record goes
  ASSERT_NE(record, nullptr);
  ASSERT_EQ(p4_pd_ms_destroy_state_for_dev(s.get(), kDev), BF_SUCCESS);
  EXPECT_EQ(view_of(s.get(), kDev, kProbes), View{});
  ASSERT_EQ(p4_pd_ms_restore_state(kDev, s.get(), record.get()), BF_SUCCESS);
  EXPECT_EQ(view_of(s.get(), kDev, kProbes), before);
  EXPECT_EQ(dump(s.get(), kDev), logged);
  // Into another state and device, from the record as log_state left it (not through text).
  Json direct = parse(R"({"name":"x"})");
  ASSERT_EQ(p4_pd_ms_log_state(kDev, s.get(), direct.get()), BF_SUCCESS);
  State other = new_state();
  ASSERT_EQ(p4_pd_ms_restore_state(9, other.get(), direct.get()), BF_SUCCESS);
  EXPECT_EQ(view_of(other.get(), 9, kProbes), before);
  const std::string renamed = "{\"name\":\"x\"" + logged.substr(logged.find(','));
  EXPECT_EQ(print(direct.get()), renamed);
}

// The elements may come in any order; the state is the same, and log writes it in order.
TEST_F(JsonTest, RestoreTakesElementsInAnyOrder) {
  const std::string logged = dump(s.get(), kDev);
  Json record = parse(
      R"({"groups":[{"mbrs":[0,3],"res":[604045313,2147483648],"grp_hdl":536870913},)"
      R"({"grp_hdl":0,"res":[604045313,2147483648],"act_fn_hdl":0,"mbrs":[3]},)"
      R"({"grp_hdl":6,"res":[4294967295,4294967295],"mbrs":[]},)"
      R"({"grp_hdl":5,"act_fn_hdl":536871065,"res":[604045313,2147483648],"mbrs":[4294967295,3,7]}],)"
      R"("name":"profile","members":[{"mbr_hdl":12,"res":[0,0]},)"
      R"({"res":[4294967295,4294967295],"mbr_hdl":4294967295,"act_fn_hdl":4294967295},)"
      R"({"mbr_hdl":7,"act_fn_hdl":536871064,"res":[0,0]},{"mbr_hdl":0,"act_fn_hdl":0,"res":[0,0]},)"
      R"({"mbr_hdl":3,"act_fn_hdl":536871065,"res":[604045313,2147483648]}]})");
  ASSERT_NE(record, nullptr);
  State other = new_state();
  ASSERT_EQ(p4_pd_ms_restore_state(kDev, other.get(), record.get()), BF_SUCCESS);
  EXPECT_EQ(dump(other.get(), kDev), logged);
  EXPECT_EQ(view_of(other.get(), kDev, kProbes), view_of(s.get(), kDev, kProbes));
}

// Restore replaces the device's state whole: members, groups and links not in the record go.
TEST_F(JsonTest, RestoreReplacesTheDevicesStateWhole) {
  populate(s.get(), kDev + 1);
  const std::string other_dev = dump(s.get(), kDev + 1);
  Json record = parse(R"({"members":[{"mbr_hdl":3,"res":[0,0]},{"mbr_hdl":8,"res":[1,1]}],)"
                      R"("groups":[{"grp_hdl":6,"res":[0,0],"mbrs":[8]}]})");
  ASSERT_EQ(p4_pd_ms_restore_state(kDev, s.get(), record.get()), BF_SUCCESS);
  Model want;
  want.new_mbr(3);
  want.new_mbr(8);
  want.set_mbr_res(8, 1, 1);
  want.new_grp(6);
  want.link(8, 6);
  EXPECT_EQ(view_of(s.get(), kDev, kProbes), want.view());
  EXPECT_EQ(dump(s.get(), kDev + 1), other_dev);  // only that device
  Json empty = parse(R"({"members":[],"groups":[]})");
  ASSERT_EQ(p4_pd_ms_restore_state(kDev, s.get(), empty.get()), BF_SUCCESS);
  EXPECT_EQ(view_of(s.get(), kDev, kProbes), View{});
}

// Records that are not of the form; each is refused and changes nothing.
TEST_F(JsonTest, AMalformedRecordIsRefusedAndChangesNothing) {
  const View before = view_of(s.get(), kDev, kProbes);
  const std::string logged = dump(s.get(), kDev);
  const std::string m = R"({"mbr_hdl":2,"res":[0,0]})";  // a valid member
  auto rec = [](const std::string &mbrs, const std::string &grps) {
    return R"({"members":[)" + mbrs + R"(],"groups":[)" + grps + "]}";
  };
  // Number forms, missing, renamed and duplicated keys and values of the wrong type at each place
  // are covered node by node by the test against the reader below; these are the rest.
  const std::vector<std::string> bad = {
      "[]", "0", "null", R"("members")", "{}", R"({"members":[]})", R"({"Members":[],"groups":[]})",
      R"({"members":[],"groups":[],"members":[]})", rec(m + ",[1]", ""), rec(R"({"mbr_hdl":1e999,"res":[0,0]})", ""),
      rec(R"({"mbr_hdl":1,"res":[0,0],"mbrs":[]})", ""),  // a group's key in a member
      rec(R"({"mbr_hdl":1,"grp_hdl":1,"res":[0,0]})", ""),
      rec(R"({"mbr_hdl":1,"res":[0,0]},{"mbr_hdl":1,"res":[0,0]})", ""),
      rec(m, R"({"grp_hdl":1,"res":[0,0],"mbrs":[3]})"),  // not a member
      rec(m, R"({"grp_hdl":1,"res":[0,0],"mbrs":[2,3,2]})"),
      rec(m, R"({"grp_hdl":1,"res":[0,0],"mbrs":[{"mbr_hdl":2}]})"),
      rec(m, R"({"mbr_hdl":1,"res":[0,0],"mbrs":[]})"),  // a member's key in a group
      rec(m, R"({"grp_hdl":1,"res":[0,0],"mbrs":[2]},{"grp_hdl":1,"res":[0,0],"mbrs":[]})"),
      // A valid member part, then a fault late in the record: nothing of it may stay.
      rec(m + R"(,{"mbr_hdl":4,"res":[0,0]})", R"({"grp_hdl":1,"res":[0,0],"mbrs":[2,4]},{"grp_hdl":2,"res":[0,0],"mbrs":[5]})"),
  };

  for (const std::string &text : bad) {
    SCOPED_TRACE(text);
    Json obj = parse(text);
    ASSERT_NE(obj, nullptr) << "the test's text is not JSON";
    const std::string printed = print(obj.get());
    EXPECT_EQ(p4_pd_ms_restore_state(kDev, s.get(), obj.get()), BF_INVALID_ARG);
    EXPECT_EQ(dump(s.get(), kDev), logged);
    EXPECT_EQ(print(obj.get()), printed) << "restore changed the record";
  }
  EXPECT_EQ(view_of(s.get(), kDev, kProbes), before);
  // Numbers written other ways that are still 32-bit unsigned integers are taken.
  Json odd = parse(R"({"members":[{"mbr_hdl":1e1,"act_fn_hdl":2.0,"res":[4294967295.0,0E0]}],"groups":[]})");
  ASSERT_EQ(p4_pd_ms_restore_state(kDev, s.get(), odd.get()), BF_SUCCESS);
  EXPECT_EQ(dump(s.get(), kDev),
            R"({"name":"profile","members":[{"mbr_hdl":10,"act_fn_hdl":2,"res":[4294967295,0]}],"groups":[]})");
}

// A record cut short anywhere: cJSON either gives nothing, or restore refuses what it gives.
TEST_F(JsonTest, ATruncatedRecordIsRefused) {
  const std::string logged = dump(s.get(), kDev);
  size_t parsed = 0;
  for (size_t n = 0; n < logged.size(); ++n) {
    const std::string cut = logged.substr(0, n);
    Json objs[] = {parse(cut), Json(cJSON_ParseWithLength(logged.c_str(), n), cJSON_Delete)};
    for (const Json &obj : objs) {
      if (obj == nullptr) continue;
      ++parsed;
      EXPECT_EQ(p4_pd_ms_restore_state(kDev, s.get(), obj.get()), BF_INVALID_ARG) << n;
    }
    EXPECT_EQ(dump(s.get(), kDev), logged);
  }
  RecordProperty("prefixes_cjson_parsed", static_cast<int>(parsed));
}

// ---- Every small change of a valid record, against a reader written apart ----

// Reads a record into a model, or nothing if it is not a record of the form. Written from the
// header's description, independently of the layer.
std::optional<uint32_t> u32_of(const cJSON *n) {
  if (!cJSON_IsNumber(n)) return std::nullopt;
  const double d = n->valuedouble;
  if (std::isnan(d) || d < 0 || std::signbit(d) || d > 4294967295.0 || d != std::trunc(d)) return std::nullopt;
  return static_cast<uint32_t>(d);
}

bool keys_ok(const cJSON *o, const std::vector<std::string> &required, const std::vector<std::string> &optional) {
  std::vector<std::string> seen;
  for (const cJSON *c = o->child; c; c = c->next) {
    const std::string k = c->string ? c->string : "";
    if (std::find(seen.begin(), seen.end(), k) != seen.end()) return false;
    if (std::find(required.begin(), required.end(), k) == required.end() &&
        std::find(optional.begin(), optional.end(), k) == optional.end())
      return false;
    seen.push_back(k);
  }
  for (const std::string &k : required)
    if (std::find(seen.begin(), seen.end(), k) == seen.end()) return false;
  return true;
}

bool read_common(const cJSON *o, const char *hdl_key, uint32_t *hdl, std::optional<uint32_t> *act, uint32_t res[2]) {
  auto h = u32_of(cJSON_GetObjectItemCaseSensitive(o, hdl_key));
  if (!h) return false;
  *hdl = *h;
  if (const cJSON *a = cJSON_GetObjectItemCaseSensitive(o, "act_fn_hdl")) {
    *act = u32_of(a);
    if (!*act) return false;
  }
  const cJSON *r = cJSON_GetObjectItemCaseSensitive(o, "res");
  if (!cJSON_IsArray(r) || cJSON_GetArraySize(r) != 2) return false;
  auto r0 = u32_of(cJSON_GetArrayItem(r, 0)), r1 = u32_of(cJSON_GetArrayItem(r, 1));
  if (!r0 || !r1) return false;
  res[0] = *r0;
  res[1] = *r1;
  return true;
}

std::optional<Model> reference_read(const cJSON *obj) {
  if (!cJSON_IsObject(obj)) return std::nullopt;
  int n_mbrs = 0, n_grps = 0;
  for (const cJSON *c = obj->child; c; c = c->next) {
    n_mbrs += c->string && std::strcmp(c->string, "members") == 0;
    n_grps += c->string && std::strcmp(c->string, "groups") == 0;
  }
  const cJSON *mbrs = cJSON_GetObjectItemCaseSensitive(obj, "members");
  const cJSON *grps = cJSON_GetObjectItemCaseSensitive(obj, "groups");
  if (n_mbrs != 1 || n_grps != 1 || !cJSON_IsArray(mbrs) || !cJSON_IsArray(grps)) return std::nullopt;
  Model model;
  for (const cJSON *e = mbrs->child; e; e = e->next) {
    uint32_t hdl = 0, res[2];
    std::optional<uint32_t> act;
    if (!cJSON_IsObject(e) || !keys_ok(e, {"mbr_hdl", "res"}, {"act_fn_hdl"}) ||
        !read_common(e, "mbr_hdl", &hdl, &act, res) || model.new_mbr(hdl) != BF_SUCCESS)
      return std::nullopt;
    if (act) model.set_mbr_act(hdl, *act);
    model.set_mbr_res(hdl, res[0], res[1]);
  }
  for (const cJSON *e = grps->child; e; e = e->next) {
    uint32_t hdl = 0, res[2];
    std::optional<uint32_t> act;
    if (!cJSON_IsObject(e) || !keys_ok(e, {"grp_hdl", "res", "mbrs"}, {"act_fn_hdl"}) ||
        !read_common(e, "grp_hdl", &hdl, &act, res) || model.new_grp(hdl) != BF_SUCCESS)
      return std::nullopt;
    if (act) model.set_grp_act(hdl, *act);
    model.grps[hdl].res_hdl = res[0];
    model.grps[hdl].res_idx = res[1];
    const cJSON *list = cJSON_GetObjectItemCaseSensitive(e, "mbrs");
    if (!cJSON_IsArray(list)) return std::nullopt;
    for (const cJSON *m = list->child; m; m = m->next) {
      auto mbr = u32_of(m);
      if (!mbr || model.link(*mbr, hdl) != BF_SUCCESS) return std::nullopt;
    }
  }
  return model;
}

// Every node of a JSON tree, in document order.
void nodes_of(cJSON *item, std::vector<cJSON *> *out) {
  out->push_back(item);
  for (cJSON *c = item->child; c; c = c->next) nodes_of(c, out);
}

// Small changes to one node of a record (given by its index in document order); false if the
// change does not apply to that node.
using Mutation = std::function<bool(cJSON *root, cJSON *node)>;

cJSON *parent_of(cJSON *root, cJSON *node) {
  if (root == node) return nullptr;
  for (cJSON *c = root->child; c; c = c->next) {
    if (c == node) return root;
    if (cJSON *p = parent_of(c, node)) return p;
  }
  return nullptr;
}

bool replace_with(cJSON *root, cJSON *node, cJSON *with) {
  cJSON *parent = parent_of(root, node);
  if (parent == nullptr) {
    cJSON_Delete(with);
    return false;
  }
  if (!cJSON_ReplaceItemViaPointer(parent, node, with)) {
    cJSON_Delete(with);
    return false;
  }
  return true;
}

// The record a property test would log: members in several groups, actions set and not.
TEST_F(JsonTest, EverySmallChangeOfARecordIsTakenOrRefusedAsAReaderOfTheFormWould) {
  const std::string logged = dump(s.get(), kDev);
  const View before = view_of(s.get(), kDev, kProbes);
  const std::vector<std::pair<const char *, Mutation>> mutations = {
      {"delete", [](cJSON *root, cJSON *node) {
         cJSON *p = parent_of(root, node);
         if (p == nullptr) return false;
         cJSON_Delete(cJSON_DetachItemViaPointer(p, node));
         return true;
       }},
      {"duplicate", [](cJSON *root, cJSON *node) {
         cJSON *p = parent_of(root, node);
         if (p == nullptr) return false;
         cJSON *copy = cJSON_Duplicate(node, true);
         if (cJSON_IsObject(p)) return cJSON_AddItemToObject(p, node->string, copy) != 0;
         return cJSON_AddItemToArray(p, copy) != 0;
       }},
      {"-1", [](cJSON *root, cJSON *node) { return cJSON_IsNumber(node) && replace_with(root, node, cJSON_CreateNumber(-1)); }},
      {"-0", [](cJSON *root, cJSON *node) { return cJSON_IsNumber(node) && replace_with(root, node, cJSON_CreateNumber(-0.0)); }},
      {"+0.5", [](cJSON *root, cJSON *node) {
         return cJSON_IsNumber(node) && replace_with(root, node, cJSON_CreateNumber(node->valuedouble + 0.5));
       }},
      {"+1", [](cJSON *root, cJSON *node) {
         return cJSON_IsNumber(node) && replace_with(root, node, cJSON_CreateNumber(node->valuedouble + 1));
       }},
      {"2^32", [](cJSON *root, cJSON *node) { return cJSON_IsNumber(node) && replace_with(root, node, cJSON_CreateNumber(4294967296.0)); }},
      {"string", [](cJSON *root, cJSON *node) { return replace_with(root, node, cJSON_CreateString("1")); }},
      {"null", [](cJSON *root, cJSON *node) { return replace_with(root, node, cJSON_CreateNull()); }},
      {"[]", [](cJSON *root, cJSON *node) { return replace_with(root, node, cJSON_CreateArray()); }},
      {"{}", [](cJSON *root, cJSON *node) { return replace_with(root, node, cJSON_CreateObject()); }},
      {"rename", [](cJSON *, cJSON *node) {
         if (node->string == nullptr) return false;
         const std::string renamed = std::string(node->string) + "x";
         cJSON_free(node->string);
         node->string = static_cast<char *>(cJSON_malloc(renamed.size() + 1));
         std::memcpy(node->string, renamed.c_str(), renamed.size() + 1);
         return true;
       }},
  };
  const Json original = parse(logged);
  std::vector<cJSON *> nodes;
  nodes_of(original.get(), &nodes);
  int taken = 0, refused = 0;
  for (const auto &[what, mutate] : mutations) {
    for (size_t i = 0; i < nodes.size(); ++i) {
      Json copy(cJSON_Duplicate(original.get(), true), cJSON_Delete);
      std::vector<cJSON *> copy_nodes;
      nodes_of(copy.get(), &copy_nodes);
      if (!mutate(copy.get(), copy_nodes[i])) continue;
      const std::string text = print(copy.get());
      SCOPED_TRACE(std::string(what) + " at node " + std::to_string(i) + ": " + text);
      const std::optional<Model> want = reference_read(copy.get());
      State fresh = new_state();
      ASSERT_EQ(p4_pd_ms_restore_state(kDev, fresh.get(), original.get()), BF_SUCCESS);
      const bf_status_t st = p4_pd_ms_restore_state(kDev, fresh.get(), copy.get());
      if (want) {
        ++taken;
        EXPECT_EQ(st, BF_SUCCESS);
        EXPECT_EQ(view_of(fresh.get(), kDev), want->view());
      } else {
        ++refused;
        EXPECT_EQ(st, BF_INVALID_ARG);
        EXPECT_EQ(dump(fresh.get(), kDev), logged);
      }
    }
  }
  EXPECT_GT(taken, 10);
  EXPECT_GT(refused, 100);
  EXPECT_EQ(view_of(s.get(), kDev, kProbes), before);
}

}  // namespace
