// The driver's action-profile functions: members, selector groups, their walks and words, update
// callbacks and the hitless replay.
#include <algorithm>
#include <cstring>

#include "mat_common.h"
#include "profile_store.h"

using namespace drvm;

namespace {

using CbFn = void (*)();

Notice adt_notice(const AdtTable &t, bf_dev_id_t dev, uint32_t adt, pipe_adt_update_type_t type, uint32_t mbr,
                  uint32_t act) {
  Notice n;
  n.kind = Notice::Kind::adt;
  n.cb = reinterpret_cast<CbFn>(t.cb);
  n.cookie = t.cookie;
  n.dev = dev;
  n.tbl = adt;
  n.type = type;
  n.a = mbr;
  n.b = act;
  return n;
}

Notice sel_notice(const SelTable &t, bf_dev_id_t dev, uint32_t sel, pipe_sel_update_type_t type, uint32_t grp,
                  uint32_t mbr) {
  Notice n;
  n.kind = Notice::Kind::sel;
  n.cb = reinterpret_cast<CbFn>(t.cb);
  n.cookie = t.cookie;
  n.dev = dev;
  n.tbl = sel;
  n.type = type;
  n.a = grp;
  n.b = mbr;
  return n;
}

Notice membership_notice(const SelTable &t, bf_dev_id_t dev, uint32_t sel, uint32_t grp, uint32_t mbr, bool is_add) {
  Notice n;
  n.kind = Notice::Kind::sel_tbl;
  n.cb = reinterpret_cast<CbFn>(t.tbl_cb);
  n.cookie = t.tbl_cookie;
  n.dev = dev;
  n.tbl = sel;
  n.a = grp;
  n.b = mbr;
  n.is_add = is_add;
  return n;
}

// A group of a selector table of the device, or why not.
struct GroupAt {
  SelTable *t = nullptr;
  Group *g = nullptr;
  bf_status_t st = BF_OBJECT_NOT_FOUND;
};
GroupAt group_at(bf_dev_id_t dev, uint32_t sel, uint32_t grp) {
  SelTable *t = find_sel(dev, sel);
  if (t == nullptr) return {};
  auto it = t->groups.find(grp);
  if (it == t->groups.end()) return {};
  return GroupAt{t, &it->second, BF_SUCCESS};
}

// A member that may serve a selector table: one of the device's (BF_OBJECT_NOT_FOUND), of the
// table's profile (BF_TABLE_MISMATCH). Makes room for the pairing it shows. May throw.
bf_status_t member_for(bf_dev_id_t dev, uint32_t sel, uint32_t mbr, MemberRef *out) {
  const MemberRef r = find_member(dev, mbr);
  if (r.m == nullptr) return BF_OBJECT_NOT_FOUND;
  if (bf_status_t st = check_profile(r.adt, Role::adt, sel, Role::sel); st != BF_SUCCESS) return st;
  *out = r;
  return BF_SUCCESS;
}

// Whether a member scoped to `mbr_pipe` may serve something scoped to `pipe`: one of the same pipe,
// or a member of all pipes.
bool pipes_fit(uint32_t mbr_pipe, uint32_t pipe) { return mbr_pipe == BF_DEV_PIPE_ALL || mbr_pipe == pipe; }

// The pick of a hash among n: the hash bytes as one big-endian number, modulo n.
uint32_t hash_mod(const uint8_t *hash, uint32_t len, uint32_t n) {
  uint64_t r = 0;
  for (uint32_t i = 0; i < len; ++i) r = (r * 256 + hash[i]) % n;
  return static_cast<uint32_t>(r);
}

// A walk's answer: up to n handles after `start` into out, the rest -1; BF_END_OF_WALK if none.
template <class It>
bf_status_t write_next(It from, It to, int n, uint32_t *out, uint32_t *written) {
  int k = 0;
  for (It it = from; it != to && k < n; ++it) out[k++] = *it;
  for (int i = k; i < n; ++i) out[i] = 0xFFFFFFFFu;
  *written = static_cast<uint32_t>(k);
  return k ? BF_SUCCESS : BF_END_OF_WALK;
}

// The groups of a selector table visible on a pipe, in ascending handle order.
std::vector<const Group *> visible_groups(const SelTable &t, uint32_t pipe) {
  std::vector<const Group *> out;
  for (const auto &[hdl, g] : t.groups)
    if (visible(g.pipe, pipe)) out.push_back(&g);
  return out;
}

pipe_status_t switch_member(const char *fn, pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, uint32_t sel_tbl_hdl,
                            uint32_t sel_grp_hdl, uint32_t adt_ent_hdl, uint32_t flags, bool active) {
  return DRIVER_CALL(
      fn, PassThrough::zero(),
      [&](RecordedCall &r) {
        record_mat(r, sess_hdl, all_pipes(dev_id), sel_tbl_hdl);
        r.call.ent_hdl = sel_grp_hdl;
        r.call.arg_u32[0] = adt_ent_hdl;
        r.call.flags = flags;
      },
      [&](RecordedCall *, Notices &notices) -> bf_status_t {
        GroupAt at = group_at(dev_id, sel_tbl_hdl, sel_grp_hdl);
        if (at.g == nullptr) return at.st;
        GroupMember *gm = at.g->find(adt_ent_hdl);
        if (gm == nullptr) return BF_OBJECT_NOT_FOUND;
        notices.reserve(1);
        gm->active = active;
        notices.add(sel_notice(*at.t, dev_id, sel_tbl_hdl,
                               active ? PIPE_SEL_UPDATE_ACTIVATE : PIPE_SEL_UPDATE_DEACTIVATE, sel_grp_hdl,
                               adt_ent_hdl));
        return BF_SUCCESS;
      });
}

}  // namespace

extern "C" {

// ---- Members ----

pipe_status_t pipe_mgr_adt_ent_add(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt, pipe_adt_tbl_hdl_t adt_tbl_hdl,
                                   pipe_act_fn_hdl_t act_fn_hdl, pipe_mat_tbl_hdl_t mat_tbl_hdl,
                                   pipe_action_spec_t *action_spec, pipe_adt_ent_hdl_t *adt_ent_hdl_p,
                                   uint32_t pipe_api_flags) {
  return DRIVER_CALL(
      "pipe_mgr_adt_ent_add", PassThrough::handle(adt_ent_hdl_p),
      [&](RecordedCall &r) {
        record_mat(r, sess_hdl, dev_tgt, adt_tbl_hdl);
        r.call.act_fn_hdl = act_fn_hdl;
        r.call.flags = pipe_api_flags;
        r.call.arg_u32[0] = mat_tbl_hdl;
        r.call.ptr_arg = adt_ent_hdl_p;
        r.copy_action(action_spec);
      },
      [&](RecordedCall *rec, Notices &notices) -> bf_status_t {
        if (bad_action(action_spec) || adt_ent_hdl_p == nullptr) return BF_INVALID_ARG;
        Device &d = store_touch_device(dev_tgt.device_id);
        bf_status_t st = d.handle_room();
        if (st != BF_SUCCESS) return st;
        Member m;
        m.action = StoredAction::of(act_fn_hdl, *action_spec);
        m.pipe = dev_tgt.dev_pipe_id;
        AdtTable &t = touch_profile_device(dev_tgt.device_id).adts[adt_tbl_hdl];
        notices.reserve(1);
        const uint32_t hdl = static_cast<uint32_t>(d.by_handle.size());
        // The commit: nothing after it can fail. Handles only grow, so the new one goes last.
        t.members.emplace_hint(t.members.end(), hdl, std::move(m));
        d.issue_object_handle();
        *adt_ent_hdl_p = hdl;
        if (rec) rec->call.ent_hdl = hdl;
        notices.add(adt_notice(t, dev_tgt.device_id, adt_tbl_hdl, PIPE_ADT_UPDATE_ADD, hdl, act_fn_hdl));
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_adt_ent_set(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_adt_tbl_hdl_t adt_tbl_hdl,
                                   pipe_adt_ent_hdl_t adt_ent_hdl, pipe_act_fn_hdl_t act_fn_hdl,
                                   pipe_action_spec_t *action_spec, uint32_t pipe_api_flags) {
  return DRIVER_CALL(
      "pipe_mgr_adt_ent_set", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_mat(r, sess_hdl, all_pipes(dev_id), adt_tbl_hdl);
        r.call.ent_hdl = adt_ent_hdl;
        r.call.act_fn_hdl = act_fn_hdl;
        r.call.flags = pipe_api_flags;
        r.copy_action(action_spec);
      },
      [&](RecordedCall *, Notices &notices) -> bf_status_t {
        if (bad_action(action_spec)) return BF_INVALID_ARG;
        AdtTable *t = find_adt(dev_id, adt_tbl_hdl);
        if (t == nullptr) return BF_OBJECT_NOT_FOUND;
        auto it = t->members.find(adt_ent_hdl);
        if (it == t->members.end()) return BF_OBJECT_NOT_FOUND;
        StoredAction copy = StoredAction::of(act_fn_hdl, *action_spec);
        notices.reserve(1);
        it->second.action = std::move(copy);
        notices.add(adt_notice(*t, dev_id, adt_tbl_hdl, PIPE_ADT_UPDATE_SET, adt_ent_hdl, act_fn_hdl));
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_adt_ent_del(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_adt_tbl_hdl_t adt_tbl_hdl,
                                   pipe_adt_ent_hdl_t adt_ent_hdl, uint32_t pipe_api_flags) {
  return DRIVER_CALL(
      "pipe_mgr_adt_ent_del", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_mat(r, sess_hdl, all_pipes(dev_id), adt_tbl_hdl);
        r.call.ent_hdl = adt_ent_hdl;
        r.call.flags = pipe_api_flags;
      },
      [&](RecordedCall *rec, Notices &notices) -> bf_status_t {
        AdtTable *t = find_adt(dev_id, adt_tbl_hdl);
        if (t == nullptr) return BF_OBJECT_NOT_FOUND;
        auto it = t->members.find(adt_ent_hdl);
        if (it == t->members.end()) return BF_OBJECT_NOT_FOUND;
        const Member &m = it->second;
        if (m.refs) return BF_IN_USE;
        const uint32_t act = m.action.act_fn_hdl();
        if (rec) rec->call.act_fn_hdl = act;
        notices.reserve(1);
        t->members.erase(it);
        notices.add(adt_notice(*t, dev_id, adt_tbl_hdl, PIPE_ADT_UPDATE_DEL, adt_ent_hdl, act));
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_get_action_data_entry(pipe_adt_tbl_hdl_t adt_tbl_hdl, dev_target_t dev_tgt,
                                             pipe_adt_ent_hdl_t adt_ent_hdl,
                                             pipe_action_data_spec_t *adt_data_spec,
                                             pipe_act_fn_hdl_t *act_fn_hdl_p, bool from_hw) {
  return DRIVER_CALL(
      "pipe_mgr_get_action_data_entry", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_mat(r, 0, dev_tgt, adt_tbl_hdl);
        r.call.ent_hdl = adt_ent_hdl;
        r.call.arg_u32[0] = from_hw ? 1 : 0;
        r.call.arg_u32[1] = adt_data_spec ? adt_data_spec->num_action_data_bytes : 0;
        r.call.ptr_arg = adt_data_spec;
      },
      [&](RecordedCall *rec, Notices &) -> bf_status_t {
        if (adt_data_spec == nullptr || act_fn_hdl_p == nullptr) return BF_INVALID_ARG;
        AdtTable *t = find_adt(dev_tgt.device_id, adt_tbl_hdl);
        if (t == nullptr) return BF_OBJECT_NOT_FOUND;
        auto it = t->members.find(adt_ent_hdl);
        if (it == t->members.end() || !visible(it->second.pipe, dev_tgt.dev_pipe_id)) return BF_OBJECT_NOT_FOUND;
        const StoredAction &a = it->second.action;
        const uint16_t n = a.image_bytes();
        if (n != 0 && (adt_data_spec->action_data_bytes == nullptr || n > adt_data_spec->num_action_data_bytes))
          return BF_NO_SPACE;
        if (n) std::memmove(adt_data_spec->action_data_bytes, a.image(), n);
        adt_data_spec->num_valid_action_data_bits = a.image_bits();
        adt_data_spec->num_action_data_bytes = n;
        *act_fn_hdl_p = a.act_fn_hdl();
        if (rec) rec->call.act_fn_hdl = a.act_fn_hdl();
        return BF_SUCCESS;
      });
}

// ---- Groups ----

pipe_status_t pipe_mgr_sel_grp_add(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt, pipe_sel_tbl_hdl_t sel_tbl_hdl,
                                   pipe_mat_tbl_hdl_t mat_tbl_hdl, uint32_t max_grp_size, uint32_t grp_id,
                                   pipe_sel_grp_hdl_t *sel_grp_hdl_p, uint32_t pipe_api_flags) {
  return DRIVER_CALL(
      "pipe_mgr_sel_grp_add", PassThrough::handle(sel_grp_hdl_p),
      [&](RecordedCall &r) {
        record_mat(r, sess_hdl, dev_tgt, sel_tbl_hdl);
        r.call.flags = pipe_api_flags;
        r.call.arg_u32[0] = mat_tbl_hdl;
        r.call.arg_u32[1] = max_grp_size;
        r.call.arg_u32[2] = grp_id;
        r.call.ptr_arg = sel_grp_hdl_p;
      },
      [&](RecordedCall *rec, Notices &notices) -> bf_status_t {
        if (sel_grp_hdl_p == nullptr || max_grp_size == 0) return BF_INVALID_ARG;
        Device &d = store_touch_device(dev_tgt.device_id);
        bf_status_t st = d.handle_room();
        if (st != BF_SUCCESS) return st;
        Group g;
        g.pipe = dev_tgt.dev_pipe_id;
        g.max_size = max_grp_size;
        g.mat_tbl_hdl = mat_tbl_hdl;
        g.grp_id = grp_id;
        SelTable &t = touch_profile_device(dev_tgt.device_id).sels[sel_tbl_hdl];
        notices.reserve(1);
        const uint32_t hdl = static_cast<uint32_t>(d.by_handle.size());
        t.groups.emplace_hint(t.groups.end(), hdl, std::move(g));  // the commit
        d.issue_object_handle();
        *sel_grp_hdl_p = hdl;
        if (rec) rec->call.ent_hdl = hdl;
        notices.add(sel_notice(t, dev_tgt.device_id, sel_tbl_hdl, PIPE_SEL_UPDATE_GROUP_CREATE, hdl, 0));
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_sel_grp_del(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_sel_tbl_hdl_t sel_tbl_hdl,
                                   pipe_sel_grp_hdl_t sel_grp_hdl, uint32_t pipe_api_flags) {
  return DRIVER_CALL(
      "pipe_mgr_sel_grp_del", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_mat(r, sess_hdl, all_pipes(dev_id), sel_tbl_hdl);
        r.call.ent_hdl = sel_grp_hdl;
        r.call.flags = pipe_api_flags;
      },
      [&](RecordedCall *rec, Notices &notices) -> bf_status_t {
        GroupAt at = group_at(dev_id, sel_tbl_hdl, sel_grp_hdl);
        if (at.g == nullptr) return at.st;
        if (at.g->bound) return BF_IN_USE;
        notices.reserve(at.g->mbrs.size() + 1);
        // The group goes with its members, who leave it.
        for (const GroupMember &gm : at.g->mbrs) {
          if (Member *m = find_member(dev_id, gm.mbr).m) --m->refs;
          notices.add(membership_notice(*at.t, dev_id, sel_tbl_hdl, sel_grp_hdl, gm.mbr, false));
        }
        if (rec) rec->call.arg_u32[0] = static_cast<uint32_t>(at.g->mbrs.size());
        at.t->groups.erase(sel_grp_hdl);
        notices.add(sel_notice(*at.t, dev_id, sel_tbl_hdl, PIPE_SEL_UPDATE_GROUP_DESTROY, sel_grp_hdl, 0));
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_sel_grp_mbr_add(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_sel_tbl_hdl_t sel_tbl_hdl,
                                       pipe_sel_grp_hdl_t sel_grp_hdl, pipe_act_fn_hdl_t act_fn_hdl,
                                       pipe_adt_ent_hdl_t adt_ent_hdl, uint32_t pipe_api_flags) {
  return DRIVER_CALL(
      "pipe_mgr_sel_grp_mbr_add", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_mat(r, sess_hdl, all_pipes(dev_id), sel_tbl_hdl);
        r.call.ent_hdl = sel_grp_hdl;
        r.call.act_fn_hdl = act_fn_hdl;
        r.call.arg_u32[0] = adt_ent_hdl;
        r.call.flags = pipe_api_flags;
      },
      [&](RecordedCall *, Notices &notices) -> bf_status_t {
        GroupAt at = group_at(dev_id, sel_tbl_hdl, sel_grp_hdl);
        if (at.g == nullptr) return at.st;
        MemberRef mr;
        bf_status_t st = member_for(dev_id, sel_tbl_hdl, adt_ent_hdl, &mr);
        if (st != BF_SUCCESS) return st;
        if (mr.m->action.act_fn_hdl() != act_fn_hdl) return BF_INVALID_ARG;
        if (!pipes_fit(mr.m->pipe, at.g->pipe)) return BF_TABLE_MISMATCH;
        if (at.g->find(adt_ent_hdl)) return BF_ALREADY_EXISTS;
        if (at.g->mbrs.size() >= at.g->max_size) return BF_NO_SPACE;
        room_for_one(at.g->mbrs);
        notices.reserve(2);
        at.g->mbrs.push_back(GroupMember{adt_ent_hdl, true});
        ++mr.m->refs;
        learn_profile(mr.adt, Role::adt, sel_tbl_hdl, Role::sel);
        notices.add(membership_notice(*at.t, dev_id, sel_tbl_hdl, sel_grp_hdl, adt_ent_hdl, true));
        notices.add(sel_notice(*at.t, dev_id, sel_tbl_hdl, PIPE_SEL_UPDATE_ADD, sel_grp_hdl, adt_ent_hdl));
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_sel_grp_mbr_del(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_sel_tbl_hdl_t sel_tbl_hdl,
                                       pipe_sel_grp_hdl_t sel_grp_hdl, pipe_adt_ent_hdl_t adt_ent_hdl,
                                       uint32_t pipe_api_flags) {
  return DRIVER_CALL(
      "pipe_mgr_sel_grp_mbr_del", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_mat(r, sess_hdl, all_pipes(dev_id), sel_tbl_hdl);
        r.call.ent_hdl = sel_grp_hdl;
        r.call.arg_u32[0] = adt_ent_hdl;
        r.call.flags = pipe_api_flags;
      },
      [&](RecordedCall *, Notices &notices) -> bf_status_t {
        GroupAt at = group_at(dev_id, sel_tbl_hdl, sel_grp_hdl);
        if (at.g == nullptr) return at.st;
        GroupMember *gm = at.g->find(adt_ent_hdl);
        if (gm == nullptr) return BF_OBJECT_NOT_FOUND;
        notices.reserve(2);
        at.g->mbrs.erase(at.g->mbrs.begin() + (gm - at.g->mbrs.data()));
        if (Member *m = find_member(dev_id, adt_ent_hdl).m) --m->refs;
        notices.add(membership_notice(*at.t, dev_id, sel_tbl_hdl, sel_grp_hdl, adt_ent_hdl, false));
        notices.add(sel_notice(*at.t, dev_id, sel_tbl_hdl, PIPE_SEL_UPDATE_DEL, sel_grp_hdl, adt_ent_hdl));
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_sel_grp_mbr_enable(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                          pipe_sel_tbl_hdl_t sel_tbl_hdl, pipe_sel_grp_hdl_t sel_grp_hdl,
                                          pipe_adt_ent_hdl_t adt_ent_hdl, uint32_t pipe_api_flags) {
  return switch_member("pipe_mgr_sel_grp_mbr_enable", sess_hdl, dev_id, sel_tbl_hdl, sel_grp_hdl, adt_ent_hdl,
                       pipe_api_flags, true);
}

pipe_status_t pipe_mgr_sel_grp_mbr_disable(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                           pipe_sel_tbl_hdl_t sel_tbl_hdl, pipe_sel_grp_hdl_t sel_grp_hdl,
                                           pipe_adt_ent_hdl_t adt_ent_hdl, uint32_t pipe_api_flags) {
  return switch_member("pipe_mgr_sel_grp_mbr_disable", sess_hdl, dev_id, sel_tbl_hdl, sel_grp_hdl, adt_ent_hdl,
                       pipe_api_flags, false);
}

pipe_status_t pipe_mgr_sel_grp_mbr_state_get(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                             pipe_sel_tbl_hdl_t sel_tbl_hdl, pipe_sel_grp_hdl_t sel_grp_hdl,
                                             pipe_adt_ent_hdl_t adt_ent_hdl, pipe_sel_grp_mbr_state_t *mbr_state_p) {
  return DRIVER_CALL(
      "pipe_mgr_sel_grp_mbr_state_get", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_mat(r, sess_hdl, all_pipes(dev_id), sel_tbl_hdl);
        r.call.ent_hdl = sel_grp_hdl;
        r.call.arg_u32[0] = adt_ent_hdl;
        r.call.ptr_arg = mbr_state_p;
      },
      [&](RecordedCall *rec, Notices &) -> bf_status_t {
        if (mbr_state_p == nullptr) return BF_INVALID_ARG;
        GroupAt at = group_at(dev_id, sel_tbl_hdl, sel_grp_hdl);
        if (at.g == nullptr) return at.st;
        const GroupMember *gm = at.g->find(adt_ent_hdl);
        if (gm == nullptr) return BF_OBJECT_NOT_FOUND;
        *mbr_state_p = gm->active ? PIPE_SEL_GRP_MBR_STATE_ACTIVE : PIPE_SEL_GRP_MBR_STATE_INACTIVE;
        if (rec) rec->call.arg_u32[1] = *mbr_state_p;
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_sel_grp_mbr_get_from_hash(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                                 pipe_sel_tbl_hdl_t sel_tbl_hdl, pipe_sel_grp_hdl_t sel_grp_hdl,
                                                 uint8_t *hash, uint32_t hash_len,
                                                 pipe_adt_ent_hdl_t *adt_ent_hdl_p) {
  return DRIVER_CALL(
      "pipe_mgr_sel_grp_mbr_get_from_hash", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_mat(r, sess_hdl, all_pipes(dev_id), sel_tbl_hdl);
        r.call.ent_hdl = sel_grp_hdl;
        r.call.arg_u32[0] = hash_len;
        r.call.ptr_arg = hash;
        r.copy_bytes(hash, hash ? hash_len : 0);
      },
      [&](RecordedCall *rec, Notices &) -> bf_status_t {
        if (hash == nullptr || hash_len == 0 || adt_ent_hdl_p == nullptr) return BF_INVALID_ARG;
        GroupAt at = group_at(dev_id, sel_tbl_hdl, sel_grp_hdl);
        if (at.g == nullptr) return at.st;
        uint32_t active = 0;
        for (const GroupMember &gm : at.g->mbrs) active += gm.active ? 1 : 0;
        uint32_t pick = 0;
        if (active != 0) {
          uint32_t k = hash_mod(hash, hash_len, active);
          for (const GroupMember &gm : at.g->mbrs) {
            if (!gm.active) continue;
            if (k-- == 0) {
              pick = gm.mbr;
              break;
            }
          }
        } else {
          // No active member: the fallback member of the group's pipe, or of all pipes.
          auto it = at.t->fallback.find(at.g->pipe);
          if (it == at.t->fallback.end()) it = at.t->fallback.find(BF_DEV_PIPE_ALL);
          if (it == at.t->fallback.end()) return BF_OBJECT_NOT_FOUND;
          pick = it->second;
        }
        *adt_ent_hdl_p = pick;
        if (rec) rec->call.arg_u32[1] = pick;
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_get_sel_grp_mbr_count(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                             pipe_sel_tbl_hdl_t sel_tbl_hdl, pipe_sel_grp_hdl_t sel_grp_hdl,
                                             uint32_t *count_p) {
  return DRIVER_CALL(
      "pipe_mgr_get_sel_grp_mbr_count", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_mat(r, sess_hdl, all_pipes(dev_id), sel_tbl_hdl);
        r.call.ent_hdl = sel_grp_hdl;
        r.call.ptr_arg = count_p;
      },
      [&](RecordedCall *rec, Notices &) -> bf_status_t {
        if (count_p == nullptr) return BF_INVALID_ARG;
        GroupAt at = group_at(dev_id, sel_tbl_hdl, sel_grp_hdl);
        if (at.g == nullptr) return at.st;
        *count_p = static_cast<uint32_t>(at.g->mbrs.size());
        if (rec) rec->call.arg_u32[0] = *count_p;
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_sel_grp_mbrs_get(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_sel_tbl_hdl_t sel_tbl_hdl,
                                        pipe_sel_grp_hdl_t sel_grp_hdl, uint32_t mbrs_size,
                                        pipe_adt_ent_hdl_t *mbrs, uint8_t *mbr_states, uint32_t *mbrs_populated,
                                        uint32_t pipe_api_flags) {
  return DRIVER_CALL(
      "pipe_mgr_sel_grp_mbrs_get", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_mat(r, sess_hdl, all_pipes(dev_id), sel_tbl_hdl);
        r.call.ent_hdl = sel_grp_hdl;
        r.call.arg_u32[0] = mbrs_size;
        r.call.flags = pipe_api_flags;
        r.call.ptr_arg = mbrs;
      },
      [&](RecordedCall *rec, Notices &) -> bf_status_t {
        if (mbrs_populated == nullptr || (mbrs_size != 0 && (mbrs == nullptr || mbr_states == nullptr)))
          return BF_INVALID_ARG;
        GroupAt at = group_at(dev_id, sel_tbl_hdl, sel_grp_hdl);
        if (at.g == nullptr) return at.st;
        uint32_t n = 0;
        for (const GroupMember &gm : at.g->mbrs) {
          if (n == mbrs_size) break;
          mbrs[n] = gm.mbr;
          mbr_states[n] = gm.active ? PIPE_SEL_GRP_MBR_STATE_ACTIVE : PIPE_SEL_GRP_MBR_STATE_INACTIVE;
          ++n;
        }
        *mbrs_populated = n;
        if (rec) rec->call.arg_u32[1] = n;
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_sel_fallback_mbr_set(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                            pipe_sel_tbl_hdl_t sel_tbl_hdl, pipe_adt_ent_hdl_t adt_ent_hdl,
                                            uint32_t pipe_api_flags) {
  return DRIVER_CALL(
      "pipe_mgr_sel_fallback_mbr_set", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_mat(r, sess_hdl, dev_tgt, sel_tbl_hdl);
        r.call.ent_hdl = adt_ent_hdl;
        r.call.flags = pipe_api_flags;
      },
      [&](RecordedCall *, Notices &notices) -> bf_status_t {
        MemberRef mr;
        bf_status_t st = member_for(dev_tgt.device_id, sel_tbl_hdl, adt_ent_hdl, &mr);
        if (st != BF_SUCCESS) return st;
        if (!pipes_fit(mr.m->pipe, dev_tgt.dev_pipe_id)) return BF_TABLE_MISMATCH;
        SelTable &t = touch_profile_device(dev_tgt.device_id).sels[sel_tbl_hdl];
        notices.reserve(1);
        // The last step that may fail: a setting for a pipe that had none.
        const auto [it, fresh] = t.fallback.try_emplace(dev_tgt.dev_pipe_id, adt_ent_hdl);
        // Nothing below can fail: the former fallback member is released, the new one taken.
        if (!fresh) {
          if (Member *old = find_member(dev_tgt.device_id, it->second).m) --old->refs;
          it->second = adt_ent_hdl;
        }
        ++mr.m->refs;
        learn_profile(mr.adt, Role::adt, sel_tbl_hdl, Role::sel);
        notices.add(sel_notice(t, dev_tgt.device_id, sel_tbl_hdl, PIPE_SEL_UPDATE_SET_FALLBACK, 0, adt_ent_hdl));
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_sel_fallback_mbr_reset(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                              pipe_sel_tbl_hdl_t sel_tbl_hdl, uint32_t pipe_api_flags) {
  return DRIVER_CALL(
      "pipe_mgr_sel_fallback_mbr_reset", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_mat(r, sess_hdl, dev_tgt, sel_tbl_hdl);
        r.call.flags = pipe_api_flags;
      },
      [&](RecordedCall *rec, Notices &notices) -> bf_status_t {
        SelTable *t = find_sel(dev_tgt.device_id, sel_tbl_hdl);
        if (t == nullptr) return BF_SUCCESS;
        auto it = t->fallback.find(dev_tgt.dev_pipe_id);
        if (it == t->fallback.end()) return BF_SUCCESS;
        notices.reserve(1);
        const uint32_t mbr = it->second;
        if (Member *m = find_member(dev_tgt.device_id, mbr).m) --m->refs;
        t->fallback.erase(it);
        if (rec) rec->call.ent_hdl = mbr;
        notices.add(sel_notice(*t, dev_tgt.device_id, sel_tbl_hdl, PIPE_SEL_UPDATE_CLEAR_FALLBACK, 0, mbr));
        return BF_SUCCESS;
      });
}

// ---- Walks of a group ----

pipe_status_t pipe_mgr_get_first_group_member(pipe_sess_hdl_t sess_hdl, pipe_sel_tbl_hdl_t sel_tbl_hdl,
                                              bf_dev_id_t dev_id, pipe_sel_grp_hdl_t sel_grp_hdl,
                                              pipe_adt_ent_hdl_t *adt_ent_hdl_p) {
  return DRIVER_CALL(
      "pipe_mgr_get_first_group_member", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_mat(r, sess_hdl, all_pipes(dev_id), sel_tbl_hdl);
        r.call.ent_hdl = sel_grp_hdl;
        r.call.ptr_arg = adt_ent_hdl_p;
      },
      [&](RecordedCall *rec, Notices &) -> bf_status_t {
        if (adt_ent_hdl_p == nullptr) return BF_INVALID_ARG;
        GroupAt at = group_at(dev_id, sel_tbl_hdl, sel_grp_hdl);
        if (at.g == nullptr) return at.st;
        if (at.g->mbrs.empty()) return BF_END_OF_WALK;
        uint32_t first = UINT32_MAX;
        for (const GroupMember &gm : at.g->mbrs) first = std::min(first, gm.mbr);
        *adt_ent_hdl_p = first;
        if (rec) rec->call.arg_u32[0] = first;
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_get_next_group_members(pipe_sess_hdl_t sess_hdl, pipe_sel_tbl_hdl_t sel_tbl_hdl,
                                              bf_dev_id_t dev_id, pipe_sel_grp_hdl_t sel_grp_hdl,
                                              pipe_adt_ent_hdl_t adt_ent_hdl, int n,
                                              pipe_adt_ent_hdl_t *next_adt_ent_hdls) {
  return DRIVER_CALL(
      "pipe_mgr_get_next_group_members", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_mat(r, sess_hdl, all_pipes(dev_id), sel_tbl_hdl);
        r.call.ent_hdl = sel_grp_hdl;
        r.call.arg_u32[0] = adt_ent_hdl;
        r.call.arg_u32[1] = static_cast<uint32_t>(n);
        r.call.ptr_arg = next_adt_ent_hdls;
      },
      [&](RecordedCall *rec, Notices &) -> bf_status_t {
        if (n <= 0 || next_adt_ent_hdls == nullptr) return BF_INVALID_ARG;
        GroupAt at = group_at(dev_id, sel_tbl_hdl, sel_grp_hdl);
        if (at.g == nullptr) return at.st;
        if (at.g->find(adt_ent_hdl) == nullptr) return BF_OBJECT_NOT_FOUND;
        std::vector<uint32_t> sorted;
        sorted.reserve(at.g->mbrs.size());
        for (const GroupMember &gm : at.g->mbrs) sorted.push_back(gm.mbr);
        std::sort(sorted.begin(), sorted.end());
        uint32_t written = 0;
        bf_status_t st = write_next(std::upper_bound(sorted.begin(), sorted.end(), adt_ent_hdl), sorted.end(), n,
                                    next_adt_ent_hdls, &written);
        if (rec) rec->call.arg_u32[2] = written;
        return st;
      });
}

// ---- Words ----

pipe_status_t pipe_mgr_get_word_llp_active_member_count(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                                        pipe_sel_tbl_hdl_t sel_tbl_hdl, uint32_t word_index,
                                                        uint32_t *count_p) {
  return DRIVER_CALL(
      "pipe_mgr_get_word_llp_active_member_count", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_mat(r, sess_hdl, dev_tgt, sel_tbl_hdl);
        r.call.arg_u32[0] = word_index;
        r.call.ptr_arg = count_p;
      },
      [&](RecordedCall *rec, Notices &) -> bf_status_t {
        if (count_p == nullptr) return BF_INVALID_ARG;
        const SelTable *t = find_sel(dev_tgt.device_id, sel_tbl_hdl);
        if (t == nullptr) return BF_OBJECT_NOT_FOUND;
        std::vector<const Group *> words = visible_groups(*t, dev_tgt.dev_pipe_id);
        if (word_index >= words.size()) return BF_OBJECT_NOT_FOUND;
        uint32_t n = 0;
        for (const GroupMember &gm : words[word_index]->mbrs) n += gm.active ? 1 : 0;
        *count_p = n;
        if (rec) rec->call.arg_u32[1] = n;
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_get_word_llp_active_members(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                                   pipe_sel_tbl_hdl_t sel_tbl_hdl, uint32_t word_index,
                                                   uint32_t count, pipe_adt_ent_hdl_t *mbrs) {
  return DRIVER_CALL(
      "pipe_mgr_get_word_llp_active_members", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_mat(r, sess_hdl, dev_tgt, sel_tbl_hdl);
        r.call.arg_u32[0] = word_index;
        r.call.arg_u32[1] = count;
        r.call.ptr_arg = mbrs;
      },
      [&](RecordedCall *rec, Notices &) -> bf_status_t {
        if (count != 0 && mbrs == nullptr) return BF_INVALID_ARG;
        const SelTable *t = find_sel(dev_tgt.device_id, sel_tbl_hdl);
        if (t == nullptr) return BF_OBJECT_NOT_FOUND;
        std::vector<const Group *> words = visible_groups(*t, dev_tgt.dev_pipe_id);
        if (word_index >= words.size()) return BF_OBJECT_NOT_FOUND;
        uint32_t k = 0;
        for (const GroupMember &gm : words[word_index]->mbrs)
          if (gm.active && k < count) mbrs[k++] = gm.mbr;
        for (uint32_t i = k; i < count; ++i) mbrs[i] = 0xFFFFFFFFu;
        if (rec) rec->call.arg_u32[2] = k;
        return BF_SUCCESS;
      });
}

// ---- Update callbacks ----

pipe_status_t pipe_mgr_sel_tbl_register_cb(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                           pipe_sel_tbl_hdl_t sel_tbl_hdl, pipe_sel_tbl_update_cb cb,
                                           void *cookie) {
  return DRIVER_CALL(
      "pipe_mgr_sel_tbl_register_cb", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_mat(r, sess_hdl, all_pipes(dev_id), sel_tbl_hdl);
        record_callback(r, cb, cookie);
      },
      [&](RecordedCall *, Notices &) -> bf_status_t {
        SelTable &t = touch_profile_device(dev_id).sels[sel_tbl_hdl];
        t.tbl_cb = cb;
        t.tbl_cookie = cb ? cookie : nullptr;
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_register_adt_update_cb(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                          pipe_adt_tbl_hdl_t adt_tbl_hdl, pipe_adt_update_cb cb, void *cookie) {
  return DRIVER_CALL(
      "pipe_register_adt_update_cb", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_mat(r, sess_hdl, all_pipes(dev_id), adt_tbl_hdl);
        record_callback(r, cb, cookie);
      },
      [&](RecordedCall *, Notices &) -> bf_status_t {
        AdtTable &t = touch_profile_device(dev_id).adts[adt_tbl_hdl];
        t.cb = cb;
        t.cookie = cb ? cookie : nullptr;
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_register_sel_update_cb(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                          pipe_sel_tbl_hdl_t sel_tbl_hdl, pipe_sel_update_cb cb, void *cookie) {
  return DRIVER_CALL(
      "pipe_register_sel_update_cb", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_mat(r, sess_hdl, all_pipes(dev_id), sel_tbl_hdl);
        record_callback(r, cb, cookie);
      },
      [&](RecordedCall *, Notices &) -> bf_status_t {
        SelTable &t = touch_profile_device(dev_id).sels[sel_tbl_hdl];
        t.cb = cb;
        t.cookie = cb ? cookie : nullptr;
        return BF_SUCCESS;
      });
}

// ---- Hitless restart ----

pipe_status_t pipe_mgr_hitless_ha_restore_virtual_dev_state(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                                            bf_dev_pipe_t pipe_id, uint32_t arg3, uint32_t arg4,
                                                            pipe_adt_sel_restore_cb cb) {
  struct Fact {
    uint32_t adt, act, grp, mbr, res;
  };
  std::vector<Fact> facts;
  bf_status_t st = DRIVER_CALL(
      "pipe_mgr_hitless_ha_restore_virtual_dev_state", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_mat(r, sess_hdl, dev_target_t{dev_id, pipe_id}, 0);
        r.call.arg_u32[0] = arg3;
        r.call.arg_u32[1] = arg4;
        r.call.ptr_arg = reinterpret_cast<const void *>(cb);
      },
      [&](RecordedCall *rec, Notices &) -> bf_status_t {
        if (cb == nullptr) return BF_INVALID_ARG;
        const ProfileDevice *d = profile_device(dev_id);
        if (d != nullptr) {
          // Every member, then every group, then every membership, each kind by table and handle.
          for (const auto &[adt, t] : d->adts)
            for (const auto &[hdl, m] : t.members)
              if (visible(m.pipe, pipe_id)) facts.push_back({adt, m.action.act_fn_hdl(), 0, hdl, m.action.resource_count()});
          for (const auto &[sel, t] : d->sels)
            for (const auto &[hdl, g] : t.groups)
              if (visible(g.pipe, pipe_id)) facts.push_back({adt_of(sel), 0, hdl, 0, 0});
          for (const auto &[sel, t] : d->sels) {
            for (const auto &[hdl, g] : t.groups) {
              if (!visible(g.pipe, pipe_id)) continue;
              for (const GroupMember &gm : g.mbrs) {
                const MemberRef r = find_member(dev_id, gm.mbr);
                if (r.m != nullptr)
                  facts.push_back({r.adt, r.m->action.act_fn_hdl(), hdl, gm.mbr, r.m->action.resource_count()});
              }
            }
          }
        }
        if (rec) rec->call.arg_u32[2] = static_cast<uint32_t>(facts.size());
        return BF_SUCCESS;
      });
  // The replay runs once the call is finished and the model's lock released, so that the callback
  // may call into the model, from this thread or another.
  if (st == BF_SUCCESS)
    for (const Fact &f : facts) cb(sess_hdl, dev_id, f.adt, f.act, f.grp, f.mbr, f.res);
  return st;
}

}  // extern "C"
