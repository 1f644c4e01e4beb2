// Helpers shared by the member-selector layer's tests: what a state answers to every query for a
// device, and a reference model of a device's state that answers the same.
#ifndef CV_PLATFORM_PD_MS_VIEW_H
#define CV_PLATFORM_PD_MS_VIEW_H

#include <gtest/gtest.h>

#include <cjson/cJSON.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "drv/pd_ms.h"

namespace pdms_test {

using State = std::unique_ptr<p4_pd_ms_state_t, decltype(&p4_pd_ms_free_state)>;
using Json = std::unique_ptr<cJSON, decltype(&cJSON_Delete)>;

inline State new_state() { return State(p4_pd_ms_init_state(), p4_pd_ms_free_state); }
inline Json parse(const char *text) { return Json(cJSON_Parse(text), cJSON_Delete); }
inline Json parse(const std::string &text) { return parse(text.c_str()); }

inline std::string print(const cJSON *item) {
  char *text = cJSON_PrintUnformatted(item);
  std::string out = text ? text : "";
  cJSON_free(text);
  return out;
}

// The device's state as log_state writes it into {"name":"profile"}, printed.
inline std::string dump(p4_pd_ms_state_t *s, bf_dev_id_t dev) {
  Json obj = parse(R"({"name":"profile"})");
  EXPECT_EQ(p4_pd_ms_log_state(dev, s, obj.get()), BF_SUCCESS);
  return print(obj.get());
}

struct MbrView {
  uint32_t hdl = 0;
  std::optional<uint32_t> act;
  uint32_t res_hdl = 0, res_idx = 0;
  std::vector<uint32_t> grps;
  bool operator==(const MbrView &) const = default;
};

struct GrpView {
  uint32_t hdl = 0;
  std::optional<uint32_t> act;
  uint32_t res_hdl = 0, res_idx = 0;
  std::vector<uint32_t> mbrs;
  bool operator==(const GrpView &) const = default;
};

// A device's state as the queries tell it: members and groups in increasing handle order.
struct View {
  std::vector<MbrView> mbrs;
  std::vector<GrpView> grps;
  bool operator==(const View &) const = default;
};

inline std::ostream &operator<<(std::ostream &os, const std::optional<uint32_t> &act) {
  return act ? os << *act : os << "-";
}

inline std::ostream &operator<<(std::ostream &os, const View &v) {
  os << "members:";
  for (const MbrView &m : v.mbrs) {
    os << " " << m.hdl << "(act " << m.act << " res " << m.res_hdl << "," << m.res_idx << " grps";
    for (uint32_t g : m.grps) os << " " << g;
    os << ")";
  }
  os << "\ngroups:";
  for (const GrpView &g : v.grps) {
    os << " " << g.hdl << "(act " << g.act << " res " << g.res_hdl << "," << g.res_idx << " mbrs";
    for (uint32_t m : g.mbrs) os << " " << m;
    os << ")";
  }
  return os << "\n";
}

// A walk by count, then fill; checks the two calls agree and the order is increasing.
template <class F>
std::vector<uint32_t> walk_all(F &&walk) {
  uint32_t count = 0xDEAD;
  EXPECT_EQ(walk(0u, nullptr, &count), BF_SUCCESS);
  std::vector<uint32_t> v(count + 1, 0xDEADBEEF);
  uint32_t again = 0;
  EXPECT_EQ(walk(count + 1, v.data(), &again), BF_SUCCESS);
  EXPECT_EQ(again, count);
  EXPECT_EQ(v[count], 0xDEADBEEFu) << "a walk wrote past its total";
  v.resize(count);
  for (size_t i = 1; i < v.size(); ++i) EXPECT_LT(v[i - 1], v[i]) << "a walk out of order";
  return v;
}

inline bf_status_t record_group(bf_dev_id_t, pipe_adt_ent_hdl_t, pipe_sel_grp_hdl_t grp, void *seen) {
  static_cast<std::vector<uint32_t> *>(seen)->push_back(grp);
  return BF_SUCCESS;
}

// What every query answers for the device: the walks, each member's and group's action and
// resource pair, each member's groups (by the walk and by apply_to_grps, which must agree) and each
// group's members. Also checks that links agree both ways, and that for each handle of probes that
// is not a member (group), every member (group) query refuses with BF_OBJECT_NOT_FOUND and writes
// nothing.
inline View view_of(p4_pd_ms_state_t *s, bf_dev_id_t dev, const std::vector<uint32_t> &probes = {}) {
  View v;
  for (uint32_t h : walk_all([&](uint32_t max, uint32_t *out, uint32_t *n) { return p4_pd_ms_get_mbrs(s, dev, max, out, n); })) {
    MbrView m;
    m.hdl = h;
    uint32_t act = 0xDEAD;
    const bf_status_t st = p4_pd_ms_get_mbr_act(s, dev, h, &act);
    if (st == BF_SUCCESS) {
      m.act = act;
    } else {
      EXPECT_EQ(st, BF_OBJECT_NOT_FOUND);
      EXPECT_EQ(act, 0xDEADu);
    }
    EXPECT_EQ(p4_pd_ms_mbr_get_res(s, dev, h, &m.res_hdl, &m.res_idx), BF_SUCCESS);
    m.grps = walk_all([&](uint32_t max, uint32_t *out, uint32_t *n) { return p4_pd_ms_get_mbr_grps(s, dev, h, max, out, n); });
    std::vector<uint32_t> applied;
    EXPECT_EQ(p4_pd_ms_mbr_apply_to_grps(s, dev, h, record_group, &applied), BF_SUCCESS);
    EXPECT_EQ(applied, m.grps) << "apply_to_grps and the walk of member " << h << " disagree";
    v.mbrs.push_back(m);
  }
  for (uint32_t h : walk_all([&](uint32_t max, uint32_t *out, uint32_t *n) { return p4_pd_ms_get_grps(s, dev, max, out, n); })) {
    GrpView g;
    g.hdl = h;
    uint32_t act = 0xDEAD;
    const bf_status_t st = p4_pd_ms_get_grp_act(s, dev, h, &act);
    if (st == BF_SUCCESS) {
      g.act = act;
    } else {
      EXPECT_EQ(st, BF_OBJECT_NOT_FOUND);
      EXPECT_EQ(act, 0xDEADu);
    }
    EXPECT_EQ(p4_pd_ms_grp_get_res(s, dev, h, &g.res_hdl, &g.res_idx), BF_SUCCESS);
    g.mbrs = walk_all([&](uint32_t max, uint32_t *out, uint32_t *n) { return p4_pd_ms_get_grp_mbrs(s, dev, h, max, out, n); });
    v.grps.push_back(g);
  }
  // Both directions of every link.
  std::set<std::pair<uint32_t, uint32_t>> by_mbr, by_grp;
  for (const MbrView &m : v.mbrs)
    for (uint32_t g : m.grps) by_mbr.emplace(m.hdl, g);
  for (const GrpView &g : v.grps)
    for (uint32_t m : g.mbrs) by_grp.emplace(m, g.hdl);
  EXPECT_EQ(by_mbr, by_grp) << "links disagree between members and groups";
  // Handles that are not members or groups.
  std::set<uint32_t> mbrs, grps;
  for (const MbrView &m : v.mbrs) mbrs.insert(m.hdl);
  for (const GrpView &g : v.grps) grps.insert(g.hdl);
  for (uint32_t h : probes) {
    uint32_t w[2] = {0xDEAD, 0xDEAD}, n = 0xDEAD;
    std::vector<uint32_t> applied;
    if (!mbrs.count(h)) {
      EXPECT_EQ(p4_pd_ms_get_mbr_act(s, dev, h, w), BF_OBJECT_NOT_FOUND) << h;
      EXPECT_EQ(p4_pd_ms_mbr_get_res(s, dev, h, w, w + 1), BF_OBJECT_NOT_FOUND) << h;
      EXPECT_EQ(p4_pd_ms_get_mbr_grps(s, dev, h, 2, w, &n), BF_OBJECT_NOT_FOUND) << h;
      EXPECT_EQ(p4_pd_ms_mbr_apply_to_grps(s, dev, h, record_group, &applied), BF_OBJECT_NOT_FOUND) << h;
    }
    if (!grps.count(h)) {
      EXPECT_EQ(p4_pd_ms_get_grp_act(s, dev, h, w), BF_OBJECT_NOT_FOUND) << h;
      EXPECT_EQ(p4_pd_ms_grp_get_res(s, dev, h, w, w + 1), BF_OBJECT_NOT_FOUND) << h;
      EXPECT_EQ(p4_pd_ms_get_grp_mbrs(s, dev, h, 2, w, &n), BF_OBJECT_NOT_FOUND) << h;
    }
    EXPECT_EQ(w[0], 0xDEADu);
    EXPECT_EQ(w[1], 0xDEADu);
    EXPECT_EQ(n, 0xDEADu);
    EXPECT_TRUE(applied.empty());
  }
  return v;
}

// A device's state kept the simplest way, with the statuses the layer must give.
struct Model {
  struct Mbr {
    std::optional<uint32_t> act;
    uint32_t res_hdl = 0, res_idx = 0;
    std::set<uint32_t> grps;
  };
  struct Grp {
    std::optional<uint32_t> act;
    uint32_t res_hdl = 0, res_idx = 0;
    std::set<uint32_t> mbrs;
  };
  std::map<uint32_t, Mbr> mbrs;
  std::map<uint32_t, Grp> grps;

  bf_status_t new_mbr(uint32_t m) { return mbrs.try_emplace(m).second ? BF_SUCCESS : BF_ALREADY_EXISTS; }
  bf_status_t set_mbr_act(uint32_t m, uint32_t act) {
    if (!mbrs.count(m)) return BF_OBJECT_NOT_FOUND;
    mbrs[m].act = act;
    return BF_SUCCESS;
  }
  bf_status_t set_mbr_res(uint32_t m, uint32_t h, uint32_t i) {
    if (!mbrs.count(m)) return BF_OBJECT_NOT_FOUND;
    mbrs[m].res_hdl = h;
    mbrs[m].res_idx = i;
    return BF_SUCCESS;
  }
  bf_status_t del_mbr(uint32_t m) {
    auto it = mbrs.find(m);
    if (it == mbrs.end()) return BF_OBJECT_NOT_FOUND;
    for (uint32_t g : it->second.grps) grps[g].mbrs.erase(m);
    mbrs.erase(it);
    return BF_SUCCESS;
  }
  bf_status_t new_grp(uint32_t g) { return grps.try_emplace(g).second ? BF_SUCCESS : BF_ALREADY_EXISTS; }
  bf_status_t set_grp_act(uint32_t g, uint32_t act) {
    if (!grps.count(g)) return BF_OBJECT_NOT_FOUND;
    grps[g].act = act;
    return BF_SUCCESS;
  }
  bf_status_t del_grp(uint32_t g) {
    auto it = grps.find(g);
    if (it == grps.end()) return BF_OBJECT_NOT_FOUND;
    for (uint32_t m : it->second.mbrs) mbrs[m].grps.erase(g);
    grps.erase(it);
    return BF_SUCCESS;
  }
  bf_status_t link(uint32_t m, uint32_t g) {
    if (!mbrs.count(m) || !grps.count(g)) return BF_OBJECT_NOT_FOUND;
    if (!grps[g].mbrs.insert(m).second) return BF_ALREADY_EXISTS;
    mbrs[m].grps.insert(g);
    return BF_SUCCESS;
  }
  bf_status_t unlink(uint32_t m, uint32_t g) {
    if (!mbrs.count(m) || !grps.count(g) || grps[g].mbrs.erase(m) == 0) return BF_OBJECT_NOT_FOUND;
    mbrs[m].grps.erase(g);
    return BF_SUCCESS;
  }
  bf_status_t grp_update_res(uint32_t m, uint32_t g) {
    if (!mbrs.count(m) || !grps.count(g)) return BF_OBJECT_NOT_FOUND;
    grps[g].res_hdl = mbrs[m].res_hdl;
    grps[g].res_idx = mbrs[m].res_idx;
    return BF_SUCCESS;
  }

  View view() const {
    View v;
    for (const auto &[h, m] : mbrs)
      v.mbrs.push_back(MbrView{h, m.act, m.res_hdl, m.res_idx, std::vector<uint32_t>(m.grps.begin(), m.grps.end())});
    for (const auto &[h, g] : grps)
      v.grps.push_back(GrpView{h, g.act, g.res_hdl, g.res_idx, std::vector<uint32_t>(g.mbrs.begin(), g.mbrs.end())});
    return v;
  }
};

}  // namespace pdms_test

#endif
