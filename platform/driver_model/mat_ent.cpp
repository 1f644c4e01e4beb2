// Match-table entry changes of the driver (add, change of action, delete), and the model's view of
// its entry store. An entry bound to a profile's member or group names one that exists, of the
// table's profile; the member or group stays referred to while the entry stands.
#include "cells.h"
#include "mat_common.h"
#include "profile_store.h"

using namespace drvm;

extern "C" {

pipe_status_t pipe_mgr_mat_ent_add(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                   pipe_mat_tbl_hdl_t mat_tbl_hdl,
                                   pipe_tbl_match_spec_t *match_spec,
                                   pipe_act_fn_hdl_t act_fn_hdl, pipe_action_spec_t *act_spec,
                                   uint32_t ttl, uint32_t pipe_api_flags,
                                   pipe_mat_ent_hdl_t *ent_hdl_p) {
  return DRIVER_CALL(
      "pipe_mgr_mat_ent_add", PassThrough::handle(ent_hdl_p),
      [&](RecordedCall &r) {
        record_mat(r, sess_hdl, dev_tgt, mat_tbl_hdl);
        r.call.act_fn_hdl = act_fn_hdl;
        r.call.ttl = ttl;
        r.call.flags = pipe_api_flags;
        r.call.ptr_arg = ent_hdl_p;
        r.copy_match(match_spec);
        r.copy_action(act_spec);
      },
      [&](RecordedCall *rec, Notices &notices) -> bf_status_t {
        if (bad_match(match_spec) || bad_action(act_spec) || ent_hdl_p == nullptr) return BF_INVALID_ARG;
        const Binding b = binding_of(*act_spec);
        bf_status_t st = check_binding(dev_tgt.device_id, mat_tbl_hdl, act_fn_hdl, b);
        if (st != BF_SUCCESS) return st;
        notices.reserve(1);
        EntryPrep cells = cells_prepare_entry(dev_tgt.device_id, mat_tbl_hdl, 0, *act_spec);
        uint32_t hdl = 0;
        Table *t = nullptr;
        st = store_add(dev_tgt.device_id, mat_tbl_hdl, *match_spec, act_fn_hdl, *act_spec, ttl, &hdl, &t);
        if (st != BF_SUCCESS) return st;
        cells_commit_entry(cells, dev_tgt.device_id, hdl);
        rebind(dev_tgt.device_id, mat_tbl_hdl, Binding{}, b);
        *ent_hdl_p = hdl;
        if (rec) rec->call.ent_hdl = hdl;
        notices.add(mat_notice(*t, dev_tgt.device_id, PIPE_MAT_UPDATE_ADD, hdl, act_fn_hdl));
        return BF_SUCCESS;
      });
}

namespace {

// Replaces the action of the entry in a slot of a table, keeping its binding counts right.
bf_status_t set_action(bf_dev_id_t dev, Table &t, uint32_t slot, uint32_t act_fn_hdl, const pipe_action_spec_t &a,
                       Notices &notices) {
  const Binding after = binding_of(a);
  bf_status_t st = check_binding(dev, t.hdl, act_fn_hdl, after);
  if (st != BF_SUCCESS) return st;
  notices.reserve(1);
  const uint32_t hdl = t.entries[slot].handle;
  EntryPrep cells = cells_prepare_entry(dev, t.hdl, hdl, a);
  const Binding before = binding_of(t.entries[slot]);
  st = store_set_action(t, slot, act_fn_hdl, a);
  if (st != BF_SUCCESS) return st;
  cells_commit_entry(cells, dev, hdl);
  rebind(dev, t.hdl, before, after);
  notices.add(mat_notice(t, dev, PIPE_MAT_UPDATE_SET_ACTION, hdl, act_fn_hdl));
  return BF_SUCCESS;
}

// Deletes the entry in a slot of a table, releasing what it was bound to.
void delete_entry(bf_dev_id_t dev, Table &t, uint32_t slot, Notices &notices) {
  const StoredEntry &e = t.entries[slot];
  const Notice n = mat_notice(t, dev, PIPE_MAT_UPDATE_DEL, e.handle, e.act_fn_hdl);
  const Binding before = binding_of(e);
  notices.reserve(1);
  cells_forget_entry(dev, t.hdl, e.handle);
  store_delete(dev, t, slot);
  rebind(dev, t.hdl, before, Binding{});
  notices.add(n);
}

}  // namespace

pipe_status_t pipe_mgr_mat_ent_set_action(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                          pipe_mat_tbl_hdl_t mat_tbl_hdl, pipe_mat_ent_hdl_t mat_ent_hdl,
                                          pipe_act_fn_hdl_t act_fn_hdl, pipe_action_spec_t *act_spec,
                                          uint32_t pipe_api_flags) {
  return DRIVER_CALL(
      "pipe_mgr_mat_ent_set_action", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_mat(r, sess_hdl, all_pipes(dev_id), mat_tbl_hdl);
        r.call.ent_hdl = mat_ent_hdl;
        r.call.act_fn_hdl = act_fn_hdl;
        r.call.flags = pipe_api_flags;
        r.copy_action(act_spec);
      },
      [&](RecordedCall *, Notices &notices) -> bf_status_t {
        if (bad_action(act_spec)) return BF_INVALID_ARG;
        const Lookup l = store_lookup(dev_id, mat_tbl_hdl, mat_ent_hdl);
        if (l.entry == nullptr) return BF_OBJECT_NOT_FOUND;
        const uint32_t slot = static_cast<uint32_t>(l.entry - l.table->entries.data());
        return set_action(dev_id, *l.table, slot, act_fn_hdl, *act_spec, notices);
      });
}

pipe_status_t pipe_mgr_mat_ent_set_action_by_match_spec(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                                        pipe_mat_tbl_hdl_t mat_tbl_hdl,
                                                        pipe_tbl_match_spec_t *match_spec,
                                                        pipe_act_fn_hdl_t act_fn_hdl,
                                                        pipe_action_spec_t *act_spec, uint32_t pipe_api_flags) {
  return DRIVER_CALL(
      "pipe_mgr_mat_ent_set_action_by_match_spec", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_mat(r, sess_hdl, dev_tgt, mat_tbl_hdl);
        r.call.act_fn_hdl = act_fn_hdl;
        r.call.flags = pipe_api_flags;
        r.copy_match(match_spec);
        r.copy_action(act_spec);
      },
      [&](RecordedCall *rec, Notices &notices) -> bf_status_t {
        if (bad_match(match_spec) || bad_action(act_spec)) return BF_INVALID_ARG;
        Table *t = nullptr;
        uint32_t slot = 0;
        bf_status_t st = store_find_key(dev_tgt.device_id, mat_tbl_hdl, *match_spec, &t, &slot);
        if (st != BF_SUCCESS) return st;
        if (rec) rec->call.ent_hdl = t->entries[slot].handle;
        return set_action(dev_tgt.device_id, *t, slot, act_fn_hdl, *act_spec, notices);
      });
}

pipe_status_t pipe_mgr_mat_ent_del(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_mat_tbl_hdl_t mat_tbl_hdl,
                                   pipe_mat_ent_hdl_t mat_ent_hdl, uint32_t pipe_api_flags) {
  return DRIVER_CALL(
      "pipe_mgr_mat_ent_del", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_mat(r, sess_hdl, all_pipes(dev_id), mat_tbl_hdl);
        r.call.ent_hdl = mat_ent_hdl;
        r.call.flags = pipe_api_flags;
      },
      [&](RecordedCall *rec, Notices &notices) -> bf_status_t {
        const Lookup l = store_lookup(dev_id, mat_tbl_hdl, mat_ent_hdl);
        if (l.entry == nullptr) return BF_OBJECT_NOT_FOUND;
        if (rec) rec->call.act_fn_hdl = l.entry->act_fn_hdl;
        delete_entry(dev_id, *l.table, static_cast<uint32_t>(l.entry - l.table->entries.data()), notices);
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_mat_ent_del_by_match_spec(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                                 pipe_mat_tbl_hdl_t mat_tbl_hdl,
                                                 pipe_tbl_match_spec_t *match_spec, uint32_t pipe_api_flags) {
  return DRIVER_CALL(
      "pipe_mgr_mat_ent_del_by_match_spec", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_mat(r, sess_hdl, dev_tgt, mat_tbl_hdl);
        r.call.flags = pipe_api_flags;
        r.copy_match(match_spec);
      },
      [&](RecordedCall *rec, Notices &notices) -> bf_status_t {
        if (bad_match(match_spec)) return BF_INVALID_ARG;
        Table *t = nullptr;
        uint32_t slot = 0;
        bf_status_t st = store_find_key(dev_tgt.device_id, mat_tbl_hdl, *match_spec, &t, &slot);
        if (st != BF_SUCCESS) return st;
        if (rec) {
          rec->call.ent_hdl = t->entries[slot].handle;
          rec->call.act_fn_hdl = t->entries[slot].act_fn_hdl;
        }
        delete_entry(dev_tgt.device_id, *t, slot, notices);
        return BF_SUCCESS;
      });
}

size_t drvm_entry_count(bf_dev_id_t dev, uint32_t tbl_hdl) {
  const ModelLock lock;
  const Table *t = store_table(dev, tbl_hdl);
  return t ? t->entries.size() : 0;
}

bf_status_t drvm_entry_get(bf_dev_id_t dev, uint32_t tbl_hdl, uint32_t ent_hdl,
                           pipe_tbl_match_spec_t *match, uint32_t *act_fn_hdl,
                           pipe_action_spec_t *action, uint32_t *ttl) {
  const ModelLock lock;
  const Lookup l = store_lookup(dev, tbl_hdl, ent_hdl);
  if (l.entry == nullptr) return BF_OBJECT_NOT_FOUND;
  store_read(*l.table, *l.entry, match, action);
  if (act_fn_hdl) *act_fn_hdl = l.entry->act_fn_hdl;
  if (ttl) *ttl = l.entry->ttl;
  return BF_SUCCESS;
}

}  // extern "C"
