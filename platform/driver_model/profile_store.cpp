// The model's action profiles: see profile_store.h for the layout.
#include "profile_store.h"

#include <new>

namespace drvm {
namespace {

std::map<bf_dev_id_t, ProfileDevice> g_profile_devices;

// An action profile as the model knows it: any of the three handles may still be unknown (0).
struct Pairing {
  uint32_t adt = 0;
  uint32_t sel = 0;
  uint32_t mat = 0;
};
std::vector<Pairing> g_pairings;

Pairing *pairing_with(uint32_t tbl) {
  if (tbl == 0) return nullptr;
  for (Pairing &p : g_pairings)
    if (p.adt == tbl || p.sel == tbl || p.mat == tbl) return &p;
  return nullptr;
}

}  // namespace

GroupMember *Group::find(uint32_t mbr) {
  for (GroupMember &gm : mbrs)
    if (gm.mbr == mbr) return &gm;
  return nullptr;
}

ProfileDevice *profile_device(bf_dev_id_t dev) {
  auto it = g_profile_devices.find(dev);
  return it == g_profile_devices.end() ? nullptr : &it->second;
}

ProfileDevice &touch_profile_device(bf_dev_id_t dev) { return g_profile_devices[dev]; }

AdtTable *find_adt(bf_dev_id_t dev, uint32_t adt_tbl_hdl) {
  ProfileDevice *d = profile_device(dev);
  if (d == nullptr) return nullptr;
  auto it = d->adts.find(adt_tbl_hdl);
  return it == d->adts.end() ? nullptr : &it->second;
}

SelTable *find_sel(bf_dev_id_t dev, uint32_t sel_tbl_hdl) {
  ProfileDevice *d = profile_device(dev);
  if (d == nullptr) return nullptr;
  auto it = d->sels.find(sel_tbl_hdl);
  return it == d->sels.end() ? nullptr : &it->second;
}

MemberRef find_member(bf_dev_id_t dev, uint32_t mbr) {
  ProfileDevice *d = profile_device(dev);
  if (d == nullptr) return {};
  for (auto &[hdl, t] : d->adts) {
    auto it = t.members.find(mbr);
    if (it != t.members.end()) return MemberRef{hdl, &it->second};
  }
  return {};
}

GroupRef find_group(bf_dev_id_t dev, uint32_t grp) {
  ProfileDevice *d = profile_device(dev);
  if (d == nullptr) return {};
  for (auto &[hdl, t] : d->sels) {
    auto it = t.groups.find(grp);
    if (it != t.groups.end()) return GroupRef{hdl, &it->second};
  }
  return {};
}

// ---- Profiles ----

uint32_t adt_of(uint32_t tbl_hdl) {
  const Pairing *p = pairing_with(tbl_hdl);
  return p ? p->adt : 0;
}

uint32_t sel_of(uint32_t tbl_hdl) {
  const Pairing *p = pairing_with(tbl_hdl);
  return p ? p->sel : 0;
}

namespace {

uint32_t &place(Pairing &p, Role r) { return r == Role::adt ? p.adt : r == Role::sel ? p.sel : p.mat; }

}  // namespace

bf_status_t check_profile(uint32_t a, Role ra, uint32_t b, Role rb) {
  Pairing *pa = pairing_with(a), *pb = pairing_with(b);
  if (pa != nullptr && pb != nullptr) return pa == pb ? BF_SUCCESS : BF_TABLE_MISMATCH;
  if (pa == nullptr && pb == nullptr) {
    room_for_one(g_pairings);
    return BF_SUCCESS;
  }
  // One of them is known: the other's place in its profile is free, or its own.
  Pairing &known = pa ? *pa : *pb;
  const Role role = pa ? rb : ra;
  const uint32_t other = pa ? b : a;
  const uint32_t there = place(known, role);
  return there == 0 || there == other || role == Role::mat ? BF_SUCCESS : BF_TABLE_MISMATCH;
}

void learn_profile(uint32_t a, Role ra, uint32_t b, Role rb) {
  Pairing *pa = pairing_with(a), *pb = pairing_with(b);
  if (pa != nullptr && pb != nullptr) return;
  if (pa == nullptr && pb == nullptr) {
    Pairing p;
    place(p, ra) = a;
    place(p, rb) = b;
    g_pairings.push_back(p);  // check_profile made room
    return;
  }
  uint32_t &there = place(pa ? *pa : *pb, pa ? rb : ra);
  if (there == 0) there = pa ? b : a;
}

// ---- Bindings ----

Binding binding_of(const pipe_action_spec_t &a) {
  if (a.action_data_type == PIPE_ACTION_MBR_TYPE) return Binding{Binding::Kind::member, a.member_hdl};
  if (a.action_data_type == PIPE_ACTION_GRP_TYPE) return Binding{Binding::Kind::group, a.group_hdl};
  return {};
}

Binding binding_of(const StoredEntry &e) {
  if (e.act_type == PIPE_ACTION_MBR_TYPE) return Binding{Binding::Kind::member, e.member_hdl};
  if (e.act_type == PIPE_ACTION_GRP_TYPE) return Binding{Binding::Kind::group, e.group_hdl};
  return {};
}

bf_status_t check_binding(bf_dev_id_t dev, uint32_t mat_tbl_hdl, uint32_t act_fn_hdl, const Binding &b) {
  if (b.kind == Binding::Kind::member) {
    const MemberRef r = find_member(dev, b.hdl);
    if (r.m == nullptr) return BF_OBJECT_NOT_FOUND;
    if (bf_status_t st = check_profile(r.adt, Role::adt, mat_tbl_hdl, Role::mat); st != BF_SUCCESS) return st;
    if (r.m->action.act_fn_hdl() != act_fn_hdl) return BF_INVALID_ARG;
  } else if (b.kind == Binding::Kind::group) {
    const GroupRef r = find_group(dev, b.hdl);
    if (r.g == nullptr) return BF_OBJECT_NOT_FOUND;
    return check_profile(r.sel, Role::sel, mat_tbl_hdl, Role::mat);
  }
  return BF_SUCCESS;
}

void rebind(bf_dev_id_t dev, uint32_t mat_tbl_hdl, const Binding &before, const Binding &after) {
  if (before.kind == Binding::Kind::member) {
    if (Member *m = find_member(dev, before.hdl).m; m && m->refs) --m->refs;
  } else if (before.kind == Binding::Kind::group) {
    if (Group *g = find_group(dev, before.hdl).g; g && g->bound) --g->bound;
  }
  if (after.kind == Binding::Kind::member) {
    const MemberRef r = find_member(dev, after.hdl);
    if (r.m == nullptr) return;
    ++r.m->refs;
    learn_profile(r.adt, Role::adt, mat_tbl_hdl, Role::mat);
  } else if (after.kind == Binding::Kind::group) {
    const GroupRef r = find_group(dev, after.hdl);
    if (r.g == nullptr) return;
    ++r.g->bound;
    learn_profile(r.sel, Role::sel, mat_tbl_hdl, Role::mat);
  }
}

void reset_profiles() {
  g_profile_devices.clear();
  g_pairings.clear();
}

}  // namespace drvm

using namespace drvm;

extern "C" {

bf_status_t drvm_set_profile(uint32_t adt_tbl_hdl, uint32_t sel_tbl_hdl, uint32_t mat_tbl_hdl) {
  const ModelLock lock;
  if (adt_tbl_hdl == 0 || sel_tbl_hdl == 0) return BF_INVALID_ARG;
  // A profile known in part (by inference) is completed; one that contradicts it is refused.
  Pairing *found = nullptr;
  for (Pairing &p : g_pairings) {
    const bool shares = p.adt == adt_tbl_hdl || p.sel == sel_tbl_hdl || (mat_tbl_hdl && p.mat == mat_tbl_hdl);
    if (!shares) continue;
    const bool fits = (p.adt == 0 || p.adt == adt_tbl_hdl) && (p.sel == 0 || p.sel == sel_tbl_hdl) &&
                      (p.mat == 0 || mat_tbl_hdl == 0 || p.mat == mat_tbl_hdl);
    if (!fits || found != nullptr) return BF_TABLE_MISMATCH;
    found = &p;
  }
  if (found != nullptr) {
    found->adt = adt_tbl_hdl;
    found->sel = sel_tbl_hdl;
    if (mat_tbl_hdl) found->mat = mat_tbl_hdl;
    return BF_SUCCESS;
  }
  try {
    g_pairings.push_back(Pairing{adt_tbl_hdl, sel_tbl_hdl, mat_tbl_hdl});
  } catch (const std::bad_alloc &) {
    return BF_NO_SYS_RESOURCES;
  }
  return BF_SUCCESS;
}

uint32_t drvm_profile_adt(uint32_t tbl_hdl) {
  const ModelLock lock;
  return adt_of(tbl_hdl);
}

uint32_t drvm_profile_sel(uint32_t tbl_hdl) {
  const ModelLock lock;
  return sel_of(tbl_hdl);
}

uint32_t drvm_profile_mat(uint32_t tbl_hdl) {
  const ModelLock lock;
  const Pairing *p = pairing_with(tbl_hdl);
  return p ? p->mat : 0;
}

size_t drvm_member_count(bf_dev_id_t dev, uint32_t adt_tbl_hdl) {
  const ModelLock lock;
  const AdtTable *t = find_adt(dev, adt_tbl_hdl);
  return t ? t->members.size() : 0;
}

bf_status_t drvm_member_get(bf_dev_id_t dev, uint32_t adt_tbl_hdl, uint32_t mbr_hdl, uint32_t *act_fn_hdl,
                            pipe_action_spec_t *action, uint32_t *pipe, uint32_t *refs) {
  const ModelLock lock;
  AdtTable *t = find_adt(dev, adt_tbl_hdl);
  if (t == nullptr) return BF_OBJECT_NOT_FOUND;
  auto it = t->members.find(mbr_hdl);
  if (it == t->members.end()) return BF_OBJECT_NOT_FOUND;
  const Member &m = it->second;
  if (act_fn_hdl) *act_fn_hdl = m.action.act_fn_hdl();
  if (action) *action = m.action.view();
  if (pipe) *pipe = m.pipe;
  if (refs) *refs = m.refs;
  return BF_SUCCESS;
}

size_t drvm_group_count(bf_dev_id_t dev, uint32_t sel_tbl_hdl) {
  const ModelLock lock;
  const SelTable *t = find_sel(dev, sel_tbl_hdl);
  return t ? t->groups.size() : 0;
}

bf_status_t drvm_group_get(bf_dev_id_t dev, uint32_t sel_tbl_hdl, uint32_t grp_hdl, uint32_t *max_size,
                           uint32_t *pipe, uint32_t *num_mbrs) {
  const ModelLock lock;
  SelTable *t = find_sel(dev, sel_tbl_hdl);
  if (t == nullptr) return BF_OBJECT_NOT_FOUND;
  auto it = t->groups.find(grp_hdl);
  if (it == t->groups.end()) return BF_OBJECT_NOT_FOUND;
  if (max_size) *max_size = it->second.max_size;
  if (pipe) *pipe = it->second.pipe;
  if (num_mbrs) *num_mbrs = static_cast<uint32_t>(it->second.mbrs.size());
  return BF_SUCCESS;
}

bf_status_t drvm_group_member(bf_dev_id_t dev, uint32_t sel_tbl_hdl, uint32_t grp_hdl, size_t i, uint32_t *mbr_hdl,
                              int *active) {
  const ModelLock lock;
  SelTable *t = find_sel(dev, sel_tbl_hdl);
  if (t == nullptr) return BF_OBJECT_NOT_FOUND;
  auto it = t->groups.find(grp_hdl);
  if (it == t->groups.end() || i >= it->second.mbrs.size()) return BF_OBJECT_NOT_FOUND;
  if (mbr_hdl) *mbr_hdl = it->second.mbrs[i].mbr;
  if (active) *active = it->second.mbrs[i].active ? 1 : 0;
  return BF_SUCCESS;
}

bf_status_t drvm_fallback_member(bf_dev_id_t dev, uint32_t sel_tbl_hdl, uint32_t pipe, uint32_t *mbr_hdl) {
  const ModelLock lock;
  SelTable *t = find_sel(dev, sel_tbl_hdl);
  if (t == nullptr) return BF_OBJECT_NOT_FOUND;
  auto it = t->fallback.find(pipe);
  if (it == t->fallback.end()) return BF_OBJECT_NOT_FOUND;
  if (mbr_hdl) *mbr_hdl = it->second;
  return BF_SUCCESS;
}

bf_status_t drvm_adt_update_cb(bf_dev_id_t dev, uint32_t adt_tbl_hdl, pipe_adt_update_cb *cb, void **cookie) {
  const ModelLock lock;
  const AdtTable *t = find_adt(dev, adt_tbl_hdl);
  if (t == nullptr || t->cb == nullptr) return BF_OBJECT_NOT_FOUND;
  if (cb) *cb = t->cb;
  if (cookie) *cookie = t->cookie;
  return BF_SUCCESS;
}

bf_status_t drvm_sel_update_cb(bf_dev_id_t dev, uint32_t sel_tbl_hdl, pipe_sel_update_cb *cb, void **cookie) {
  const ModelLock lock;
  const SelTable *t = find_sel(dev, sel_tbl_hdl);
  if (t == nullptr || t->cb == nullptr) return BF_OBJECT_NOT_FOUND;
  if (cb) *cb = t->cb;
  if (cookie) *cookie = t->cookie;
  return BF_SUCCESS;
}

bf_status_t drvm_sel_tbl_cb(bf_dev_id_t dev, uint32_t sel_tbl_hdl, pipe_sel_tbl_update_cb *cb, void **cookie) {
  const ModelLock lock;
  const SelTable *t = find_sel(dev, sel_tbl_hdl);
  if (t == nullptr || t->tbl_cb == nullptr) return BF_OBJECT_NOT_FOUND;
  if (cb) *cb = t->tbl_cb;
  if (cookie) *cookie = t->tbl_cookie;
  return BF_SUCCESS;
}

}  // extern "C"
