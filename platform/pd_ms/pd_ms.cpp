// The member-selector state layer.
#include "drv/pd_ms.h"

#include <cjson/cJSON.h>

#include <cmath>
#include <map>
#include <mutex>
#include <new>
#include <set>
#include <utility>
#include <vector>

namespace {

struct Res {
  uint32_t hdl = 0;
  uint32_t idx = 0;
};

struct Member {
  bool has_act = false;
  uint32_t act = 0;
  Res res;
  std::set<uint32_t> grps;
};

struct Group {
  bool has_act = false;
  uint32_t act = 0;
  Res res;
  std::set<uint32_t> mbrs;
};

struct DevState {
  std::map<uint32_t, Member> mbrs;  // ordered, so that the JSON form is canonical
  std::map<uint32_t, Group> grps;
};

}  // namespace

struct p4_pd_ms_state {
  std::mutex mu;
  std::map<bf_dev_id_t, DevState> devs;
};

namespace {

using Lock = std::lock_guard<std::mutex>;

template <class M>
auto *find_in(M &m, uint32_t key) {
  auto it = m.find(key);
  return it == m.end() ? nullptr : &it->second;
}

DevState *find_dev(p4_pd_ms_state *s, bf_dev_id_t dev) { return find_in(s->devs, dev); }

Member *find_mbr(p4_pd_ms_state *s, bf_dev_id_t dev, uint32_t mbr) {
  DevState *d = find_dev(s, dev);
  return d ? find_in(d->mbrs, mbr) : nullptr;
}

Group *find_grp(p4_pd_ms_state *s, bf_dev_id_t dev, uint32_t grp) {
  DevState *d = find_dev(s, dev);
  return d ? find_in(d->grps, grp) : nullptr;
}

// Drops a device's entry once it holds nothing, so that an emptied device and one never seen are
// the same state.
void drop_if_empty(p4_pd_ms_state *s, bf_dev_id_t dev) {
  auto it = s->devs.find(dev);
  if (it != s->devs.end() && it->second.mbrs.empty() && it->second.grps.empty())
    s->devs.erase(it);
}

// Runs a change under the state's lock; a failed allocation becomes BF_NO_SYS_RESOURCES.
template <class F>
bf_status_t locked(p4_pd_ms_state *s, F &&f) {
  if (s == nullptr) return BF_INVALID_ARG;
  try {
    Lock lock(s->mu);
    return f();
  } catch (const std::bad_alloc &) {
    return BF_NO_SYS_RESOURCES;
  }
}

// ---- JSON form ----

cJSON *add_u32_array(cJSON *obj, const char *key, const std::vector<uint32_t> &v) {
  cJSON *arr = cJSON_AddArrayToObject(obj, key);
  if (arr == nullptr) return nullptr;
  for (uint32_t x : v) {
    cJSON *n = cJSON_CreateNumber(static_cast<double>(x));
    if (n == nullptr) return nullptr;
    cJSON_AddItemToArray(arr, n);
  }
  return arr;
}

bool add_common(cJSON *o, const char *hdl_key, uint32_t hdl, bool has_act, uint32_t act,
                const Res &res) {
  if (cJSON_AddNumberToObject(o, hdl_key, hdl) == nullptr) return false;
  if (has_act && cJSON_AddNumberToObject(o, "act_fn_hdl", act) == nullptr) return false;
  return add_u32_array(o, "res", {res.hdl, res.idx}) != nullptr;
}

bool as_u32(const cJSON *item, uint32_t *out) {
  if (!cJSON_IsNumber(item)) return false;
  double d = item->valuedouble;
  if (!(d >= 0 && d <= 4294967295.0) || std::floor(d) != d) return false;
  *out = static_cast<uint32_t>(d);
  return true;
}

bool get_u32(const cJSON *obj, const char *key, uint32_t *out) {
  return as_u32(cJSON_GetObjectItemCaseSensitive(obj, key), out);
}

bool get_act(const cJSON *obj, bool *has_act, uint32_t *act) {
  const cJSON *a = cJSON_GetObjectItemCaseSensitive(obj, "act_fn_hdl");
  *has_act = a != nullptr;
  return a == nullptr || as_u32(a, act);
}

bool get_res(const cJSON *obj, Res *res) {
  const cJSON *r = cJSON_GetObjectItemCaseSensitive(obj, "res");
  if (!cJSON_IsArray(r) || cJSON_GetArraySize(r) != 2) return false;
  return as_u32(cJSON_GetArrayItem(r, 0), &res->hdl) && as_u32(cJSON_GetArrayItem(r, 1), &res->idx);
}

bool parse_dev_state(const cJSON *obj, DevState *out) {
  const cJSON *mbrs = cJSON_GetObjectItemCaseSensitive(obj, "members");
  const cJSON *grps = cJSON_GetObjectItemCaseSensitive(obj, "groups");
  if (!cJSON_IsArray(mbrs) || !cJSON_IsArray(grps)) return false;
  const cJSON *it;
  cJSON_ArrayForEach(it, mbrs) {
    uint32_t hdl;
    Member m;
    if (!cJSON_IsObject(it) || !get_u32(it, "mbr_hdl", &hdl) || !get_act(it, &m.has_act, &m.act) ||
        !get_res(it, &m.res))
      return false;
    if (!out->mbrs.emplace(hdl, std::move(m)).second) return false;
  }
  cJSON_ArrayForEach(it, grps) {
    uint32_t hdl;
    Group g;
    if (!cJSON_IsObject(it) || !get_u32(it, "grp_hdl", &hdl) || !get_act(it, &g.has_act, &g.act) ||
        !get_res(it, &g.res))
      return false;
    const cJSON *list = cJSON_GetObjectItemCaseSensitive(it, "mbrs");
    if (!cJSON_IsArray(list)) return false;
    const cJSON *m;
    cJSON_ArrayForEach(m, list) {
      uint32_t mbr;
      if (!as_u32(m, &mbr)) return false;
      auto mit = out->mbrs.find(mbr);
      if (mit == out->mbrs.end() || !g.mbrs.insert(mbr).second) return false;
      mit->second.grps.insert(hdl);
    }
    if (!out->grps.emplace(hdl, std::move(g)).second) return false;
  }
  return true;
}

}  // namespace

extern "C" {

bf_status_t p4_pd_ms_init(void) { return BF_SUCCESS; }

p4_pd_ms_state_t *p4_pd_ms_init_state(void) { return new (std::nothrow) p4_pd_ms_state(); }

void p4_pd_ms_free_state(p4_pd_ms_state_t *state) { delete state; }

bf_status_t p4_pd_ms_new_mbr(pipe_sess_hdl_t, p4_pd_ms_state_t *state, bf_dev_id_t dev,
                             pipe_adt_ent_hdl_t mbr_hdl) {
  return locked(state, [&] {
    return state->devs[dev].mbrs.emplace(mbr_hdl, Member()).second ? BF_SUCCESS
                                                                    : BF_ALREADY_EXISTS;
  });
}

bf_status_t p4_pd_ms_set_mbr_act(p4_pd_ms_state_t *state, bf_dev_id_t dev,
                                 pipe_adt_ent_hdl_t mbr_hdl, pipe_act_fn_hdl_t act_fn_hdl) {
  return locked(state, [&] {
    Member *m = find_mbr(state, dev, mbr_hdl);
    if (m == nullptr) return BF_OBJECT_NOT_FOUND;
    m->has_act = true;
    m->act = act_fn_hdl;
    return BF_SUCCESS;
  });
}

bf_status_t p4_pd_ms_get_mbr_act(p4_pd_ms_state_t *state, bf_dev_id_t dev,
                                 pipe_adt_ent_hdl_t mbr_hdl, pipe_act_fn_hdl_t *act_fn_hdl) {
  if (act_fn_hdl == nullptr) return BF_INVALID_ARG;
  return locked(state, [&] {
    const Member *m = find_mbr(state, dev, mbr_hdl);
    if (m == nullptr || !m->has_act) return BF_OBJECT_NOT_FOUND;
    *act_fn_hdl = m->act;
    return BF_SUCCESS;
  });
}

bf_status_t p4_pd_ms_del_mbr(pipe_sess_hdl_t, p4_pd_ms_state_t *state, bf_dev_id_t dev,
                             pipe_adt_ent_hdl_t mbr_hdl) {
  return locked(state, [&] {
    DevState *d = find_dev(state, dev);
    if (d == nullptr) return BF_OBJECT_NOT_FOUND;
    auto it = d->mbrs.find(mbr_hdl);
    if (it == d->mbrs.end()) return BF_OBJECT_NOT_FOUND;
    for (uint32_t grp : it->second.grps) d->grps.at(grp).mbrs.erase(mbr_hdl);
    d->mbrs.erase(it);
    drop_if_empty(state, dev);
    return BF_SUCCESS;
  });
}

bf_status_t p4_pd_ms_new_grp(pipe_sess_hdl_t, p4_pd_ms_state_t *state, bf_dev_id_t dev,
                             pipe_sel_grp_hdl_t grp_hdl) {
  return locked(state, [&] {
    return state->devs[dev].grps.emplace(grp_hdl, Group()).second ? BF_SUCCESS
                                                                   : BF_ALREADY_EXISTS;
  });
}

bf_status_t p4_pd_ms_set_grp_act(p4_pd_ms_state_t *state, bf_dev_id_t dev,
                                 pipe_sel_grp_hdl_t grp_hdl, pipe_act_fn_hdl_t act_fn_hdl) {
  return locked(state, [&] {
    Group *g = find_grp(state, dev, grp_hdl);
    if (g == nullptr) return BF_OBJECT_NOT_FOUND;
    g->has_act = true;
    g->act = act_fn_hdl;
    return BF_SUCCESS;
  });
}

bf_status_t p4_pd_ms_get_grp_act(p4_pd_ms_state_t *state, bf_dev_id_t dev,
                                 pipe_sel_grp_hdl_t grp_hdl, pipe_act_fn_hdl_t *act_fn_hdl) {
  if (act_fn_hdl == nullptr) return BF_INVALID_ARG;
  return locked(state, [&] {
    const Group *g = find_grp(state, dev, grp_hdl);
    if (g == nullptr || !g->has_act) return BF_OBJECT_NOT_FOUND;
    *act_fn_hdl = g->act;
    return BF_SUCCESS;
  });
}

bf_status_t p4_pd_ms_del_grp(pipe_sess_hdl_t, p4_pd_ms_state_t *state, bf_dev_id_t dev,
                             pipe_sel_grp_hdl_t grp_hdl, uint32_t num_mbrs,
                             const pipe_adt_ent_hdl_t *mbr_hdls) {
  if (num_mbrs != 0 && mbr_hdls == nullptr) return BF_INVALID_ARG;
  return locked(state, [&] {
    DevState *d = find_dev(state, dev);
    if (d == nullptr) return BF_OBJECT_NOT_FOUND;
    auto it = d->grps.find(grp_hdl);
    if (it == d->grps.end()) return BF_OBJECT_NOT_FOUND;
    for (uint32_t mbr : it->second.mbrs) d->mbrs.at(mbr).grps.erase(grp_hdl);
    for (uint32_t i = 0; i < num_mbrs; ++i)
      if (Member *m = find_in(d->mbrs, mbr_hdls[i])) m->grps.erase(grp_hdl);
    d->grps.erase(it);
    drop_if_empty(state, dev);
    return BF_SUCCESS;
  });
}

bf_status_t p4_pd_ms_add_mbr_to_grp(pipe_sess_hdl_t, p4_pd_ms_state_t *state, bf_dev_id_t dev,
                                    pipe_adt_ent_hdl_t mbr_hdl, pipe_sel_grp_hdl_t grp_hdl) {
  return locked(state, [&] {
    Member *m = find_mbr(state, dev, mbr_hdl);
    Group *g = find_grp(state, dev, grp_hdl);
    if (m == nullptr || g == nullptr) return BF_OBJECT_NOT_FOUND;
    if (g->mbrs.count(mbr_hdl)) return BF_ALREADY_EXISTS;
    // Insert the member's side first: if the second insert throws, undo the first.
    m->grps.insert(grp_hdl);
    try {
      g->mbrs.insert(mbr_hdl);
    } catch (...) {
      m->grps.erase(grp_hdl);
      throw;
    }
    return BF_SUCCESS;
  });
}

bf_status_t p4_pd_ms_del_mbr_from_grp(pipe_sess_hdl_t, p4_pd_ms_state_t *state, bf_dev_id_t dev,
                                      pipe_adt_ent_hdl_t mbr_hdl, pipe_sel_grp_hdl_t grp_hdl) {
  return locked(state, [&] {
    Member *m = find_mbr(state, dev, mbr_hdl);
    Group *g = find_grp(state, dev, grp_hdl);
    if (m == nullptr || g == nullptr || g->mbrs.erase(mbr_hdl) == 0) return BF_OBJECT_NOT_FOUND;
    m->grps.erase(grp_hdl);
    return BF_SUCCESS;
  });
}

bf_status_t p4_pd_ms_mbr_apply_to_grps(p4_pd_ms_state_t *state, bf_dev_id_t dev,
                                       pipe_adt_ent_hdl_t mbr_hdl, p4_pd_ms_grp_fn_t fn,
                                       void *aux) {
  if (fn == nullptr) return BF_INVALID_ARG;
  std::vector<uint32_t> grps;
  bf_status_t st = locked(state, [&] {
    const Member *m = find_mbr(state, dev, mbr_hdl);
    if (m == nullptr) return BF_OBJECT_NOT_FOUND;
    grps.assign(m->grps.begin(), m->grps.end());
    return BF_SUCCESS;
  });
  if (st != BF_SUCCESS) return st;
  // fn runs without the lock: the layer's own p4_pd_ms_grp_update_res takes it again.
  bf_status_t first = BF_SUCCESS;
  for (uint32_t grp : grps) {
    bf_status_t r = fn(dev, mbr_hdl, grp, aux);
    if (first == BF_SUCCESS) first = r;
  }
  return first;
}

bf_status_t p4_pd_ms_set_mbr_res(p4_pd_ms_state_t *state, bf_dev_id_t dev,
                                 pipe_adt_ent_hdl_t mbr_hdl, uint32_t res_hdl, uint32_t res_idx) {
  return locked(state, [&] {
    Member *m = find_mbr(state, dev, mbr_hdl);
    if (m == nullptr) return BF_OBJECT_NOT_FOUND;
    m->res = Res{res_hdl, res_idx};
    return BF_SUCCESS;
  });
}

bf_status_t p4_pd_ms_mbr_get_res(p4_pd_ms_state_t *state, bf_dev_id_t dev,
                                 pipe_adt_ent_hdl_t mbr_hdl, uint32_t *res_hdl, uint32_t *res_idx) {
  return locked(state, [&] {
    const Member *m = find_mbr(state, dev, mbr_hdl);
    if (m == nullptr) return BF_OBJECT_NOT_FOUND;
    if (res_hdl) *res_hdl = m->res.hdl;
    if (res_idx) *res_idx = m->res.idx;
    return BF_SUCCESS;
  });
}

bf_status_t p4_pd_ms_grp_get_res(p4_pd_ms_state_t *state, bf_dev_id_t dev,
                                 pipe_sel_grp_hdl_t grp_hdl, uint32_t *res_hdl, uint32_t *res_idx) {
  return locked(state, [&] {
    const Group *g = find_grp(state, dev, grp_hdl);
    if (g == nullptr) return BF_OBJECT_NOT_FOUND;
    if (res_hdl) *res_hdl = g->res.hdl;
    if (res_idx) *res_idx = g->res.idx;
    return BF_SUCCESS;
  });
}

bf_status_t p4_pd_ms_grp_update_res(bf_dev_id_t dev, pipe_adt_ent_hdl_t mbr_hdl,
                                    pipe_sel_grp_hdl_t grp_hdl, void *aux) {
  p4_pd_ms_state *state = static_cast<p4_pd_ms_state *>(aux);
  return locked(state, [&] {
    const Member *m = find_mbr(state, dev, mbr_hdl);
    Group *g = find_grp(state, dev, grp_hdl);
    if (m == nullptr || g == nullptr) return BF_OBJECT_NOT_FOUND;
    g->res = m->res;
    return BF_SUCCESS;
  });
}

bf_status_t p4_pd_ms_destroy_state_for_dev(p4_pd_ms_state_t *state, bf_dev_id_t dev) {
  return locked(state, [&] {
    state->devs.erase(dev);
    return BF_SUCCESS;
  });
}

bf_status_t p4_pd_ms_destroy_txn_state_for_dev(bf_dev_id_t) { return BF_SUCCESS; }

bf_status_t p4_pd_ms_log_state(bf_dev_id_t dev, p4_pd_ms_state_t *state, struct cJSON *obj) {
  if (obj == nullptr) return BF_INVALID_ARG;
  return locked(state, [&] {
    cJSON *mbrs = cJSON_AddArrayToObject(obj, "members");
    cJSON *grps = cJSON_AddArrayToObject(obj, "groups");
    if (mbrs == nullptr || grps == nullptr) return BF_NO_SYS_RESOURCES;
    const DevState *d = find_dev(state, dev);
    if (d == nullptr) return BF_SUCCESS;
    for (const auto &kv : d->mbrs) {
      cJSON *o = cJSON_CreateObject();
      if (o == nullptr) return BF_NO_SYS_RESOURCES;
      cJSON_AddItemToArray(mbrs, o);
      const Member &m = kv.second;
      if (!add_common(o, "mbr_hdl", kv.first, m.has_act, m.act, m.res)) return BF_NO_SYS_RESOURCES;
    }
    for (const auto &kv : d->grps) {
      cJSON *o = cJSON_CreateObject();
      if (o == nullptr) return BF_NO_SYS_RESOURCES;
      cJSON_AddItemToArray(grps, o);
      const Group &g = kv.second;
      if (!add_common(o, "grp_hdl", kv.first, g.has_act, g.act, g.res) ||
          add_u32_array(o, "mbrs", std::vector<uint32_t>(g.mbrs.begin(), g.mbrs.end())) == nullptr)
        return BF_NO_SYS_RESOURCES;
    }
    return BF_SUCCESS;
  });
}

bf_status_t p4_pd_ms_restore_state(bf_dev_id_t dev, p4_pd_ms_state_t *state, struct cJSON *obj) {
  if (obj == nullptr) return BF_INVALID_ARG;
  return locked(state, [&] {
    DevState parsed;
    if (!parse_dev_state(obj, &parsed)) return BF_INVALID_ARG;
    if (parsed.mbrs.empty() && parsed.grps.empty()) {
      state->devs.erase(dev);
    } else {
      state->devs[dev] = std::move(parsed);
    }
    return BF_SUCCESS;
  });
}

}  // extern "C"
