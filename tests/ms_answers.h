// What the member-selector state of a profile holds, as a reference model of the rules keeps it
// and as the layer answers its queries; the library's device state record of a device, whole and
// per profile. Shared by the tests of the state after long histories.
#pragma once

#include <cjson/cJSON.h>

#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "test_support.h"

extern "C" {
#include "drv/pd_ms.h"
}

namespace cvtest {

// What the rules say one profile's state holds on one device.
struct Reference {
  struct Group {
    uint32_t max = 0;
    std::optional<uint32_t> act;
    std::vector<uint32_t> mbrs;  // in the order they joined
  };
  std::map<uint32_t, uint32_t> mbrs;  // member -> its action
  std::map<uint32_t, Group> grps;

  bool in_any_group(uint32_t m) const {
    return std::any_of(grps.begin(), grps.end(), [&](const auto &g) {
      return std::count(g.second.mbrs.begin(), g.second.mbrs.end(), m) != 0;
    });
  }
};

// What a state answers, read through the layer's own queries.
struct Answers {
  std::map<uint32_t, std::optional<uint32_t>> mbr_act, grp_act;
  std::map<uint32_t, std::vector<uint32_t>> grp_mbrs, mbr_grps;  // in increasing order

  bool operator==(const Answers &) const = default;
};

inline std::vector<uint32_t> walk(bf_status_t (*fn)(p4_pd_ms_state_t *, bf_dev_id_t, uint32_t, uint32_t, uint32_t *,
                                             uint32_t *),
                           p4_pd_ms_state_t *s, bf_dev_id_t dev, uint32_t hdl) {
  uint32_t count = 0;
  EXPECT_EQ(fn(s, dev, hdl, 0, nullptr, &count), 0);
  std::vector<uint32_t> out(count);
  EXPECT_EQ(fn(s, dev, hdl, count, out.data(), &count), 0);
  return out;
}

inline Answers ask(p4_pd_ms_state_t *s, bf_dev_id_t dev) {
  Answers a;
  uint32_t n = 0;
  EXPECT_EQ(p4_pd_ms_get_mbrs(s, dev, 0, nullptr, &n), 0);
  std::vector<uint32_t> mbrs(n);
  EXPECT_EQ(p4_pd_ms_get_mbrs(s, dev, n, mbrs.data(), &n), 0);
  EXPECT_EQ(p4_pd_ms_get_grps(s, dev, 0, nullptr, &n), 0);
  std::vector<uint32_t> grps(n);
  EXPECT_EQ(p4_pd_ms_get_grps(s, dev, n, grps.data(), &n), 0);
  for (uint32_t m : mbrs) {
    uint32_t act = 0;
    a.mbr_act[m] = p4_pd_ms_get_mbr_act(s, dev, m, &act) == 0 ? std::optional<uint32_t>(act) : std::nullopt;
    a.mbr_grps[m] = walk(p4_pd_ms_get_mbr_grps, s, dev, m);
  }
  for (uint32_t g : grps) {
    uint32_t act = 0;
    a.grp_act[g] = p4_pd_ms_get_grp_act(s, dev, g, &act) == 0 ? std::optional<uint32_t>(act) : std::nullopt;
    a.grp_mbrs[g] = walk(p4_pd_ms_get_grp_mbrs, s, dev, g);
  }
  return a;
}

// What a reference answers; with `replayed`, a group's action is that of its member replayed last
// (the member that joined last), as a hitless restore rebuilds it.
inline Answers expected(const Reference &r, bool replayed) {
  Answers a;
  for (const auto &[m, act] : r.mbrs) {
    a.mbr_act[m] = act;
    a.mbr_grps[m];
  }
  for (const auto &[g, grp] : r.grps) {
    a.grp_act[g] = replayed ? (grp.mbrs.empty() ? std::nullopt : std::optional<uint32_t>(r.mbrs.at(grp.mbrs.back())))
                            : grp.act;
    std::vector<uint32_t> sorted = grp.mbrs;
    std::sort(sorted.begin(), sorted.end());
    a.grp_mbrs[g] = sorted;
    for (uint32_t m : grp.mbrs) a.mbr_grps[m].push_back(g);
  }
  for (auto &[m, gs] : a.mbr_grps) std::sort(gs.begin(), gs.end());
  return a;
}

// The library's device state record of a device, whole.
inline std::string record_text(bf_dev_id_t dev) {
  cJSON *root = cJSON_CreateObject();
  EXPECT_EQ(drvm_fire_dev_log(dev, root), 0);
  char *text = cJSON_PrintUnformatted(root);
  std::string out = text;
  cJSON_free(text);
  cJSON_Delete(root);
  return out;
}

// What the library's state answers for one profile and device: its record of the device, loaded
// into a state object of the test's own.
inline Answers library_answers(bf_dev_id_t dev, size_t profile) {
  cJSON *root = cJSON_CreateObject();
  EXPECT_EQ(drvm_fire_dev_log(dev, root), 0);
  p4_pd_ms_state_t *s = p4_pd_ms_init_state();
  EXPECT_EQ(p4_pd_ms_restore_state(dev, s, cJSON_GetArrayItem(cJSON_GetObjectItem(root, "act_profs"), int(profile))),
            0);
  Answers a = ask(s, dev);
  p4_pd_ms_free_state(s);
  cJSON_Delete(root);
  return a;
}

}  // namespace cvtest
