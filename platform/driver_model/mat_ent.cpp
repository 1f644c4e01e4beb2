// Match-table entry changes of the driver (add, change of action, delete), and the model's view of
// its entry store.
#include <new>

#include "mat_common.h"

using namespace drvm;

extern "C" {

pipe_status_t pipe_mgr_mat_ent_add(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                   pipe_mat_tbl_hdl_t mat_tbl_hdl,
                                   pipe_tbl_match_spec_t *match_spec,
                                   pipe_act_fn_hdl_t act_fn_hdl, pipe_action_spec_t *act_spec,
                                   uint32_t ttl, uint32_t pipe_api_flags,
                                   pipe_mat_ent_hdl_t *ent_hdl_p) {
  if (g_passthrough) {
    *ent_hdl_p = ++g_passthrough_hdl;
    return BF_SUCCESS;
  }
  RecordedCall *rec = nullptr;
  bf_status_t st;
  Notice notice;
  try {
    rec = record_mat("pipe_mgr_mat_ent_add", sess_hdl, dev_tgt, mat_tbl_hdl);
    if (rec) {
      drvm_call_t &c = rec->call;
      c.act_fn_hdl = act_fn_hdl;
      c.ttl = ttl;
      c.flags = pipe_api_flags;
      c.ptr_arg = ent_hdl_p;
      rec->copy_match(match_spec);
      rec->copy_action(act_spec);
    }
    if (take_fault("pipe_mgr_mat_ent_add", &st)) return finish(rec, st);
    if (bad_match(match_spec) || bad_action(act_spec) || ent_hdl_p == nullptr)
      return finish(rec, BF_INVALID_ARG);

    uint32_t hdl = 0;
    Table *t = nullptr;
    st = store_add(dev_tgt.device_id, mat_tbl_hdl, *match_spec, act_fn_hdl, *act_spec, ttl, &hdl, &t);
    if (st == BF_SUCCESS) {
      *ent_hdl_p = hdl;
      if (rec) rec->call.ent_hdl = hdl;
      notice = Notice(*t, dev_tgt.device_id, PIPE_MAT_UPDATE_ADD, hdl, act_fn_hdl);
    }
  } catch (const std::bad_alloc &) {
    st = BF_NO_SYS_RESOURCES;
  }
  return finish_and_notify(rec, st, notice);
}

pipe_status_t pipe_mgr_mat_ent_set_action(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                          pipe_mat_tbl_hdl_t mat_tbl_hdl, pipe_mat_ent_hdl_t mat_ent_hdl,
                                          pipe_act_fn_hdl_t act_fn_hdl, pipe_action_spec_t *act_spec,
                                          uint32_t pipe_api_flags) {
  if (g_passthrough) return BF_SUCCESS;
  RecordedCall *rec = nullptr;
  bf_status_t st;
  Notice notice;
  try {
    rec = record_mat("pipe_mgr_mat_ent_set_action", sess_hdl, all_pipes(dev_id), mat_tbl_hdl);
    if (rec) {
      rec->call.ent_hdl = mat_ent_hdl;
      rec->call.act_fn_hdl = act_fn_hdl;
      rec->call.flags = pipe_api_flags;
      rec->copy_action(act_spec);
    }
    if (take_fault("pipe_mgr_mat_ent_set_action", &st)) return finish(rec, st);
    if (bad_action(act_spec)) return finish(rec, BF_INVALID_ARG);
    const Lookup l = store_lookup(dev_id, mat_tbl_hdl, mat_ent_hdl);
    if (l.entry == nullptr) return finish(rec, BF_OBJECT_NOT_FOUND);
    const uint32_t slot = static_cast<uint32_t>(l.entry - l.table->entries.data());
    st = store_set_action(*l.table, slot, act_fn_hdl, *act_spec);
    if (st == BF_SUCCESS)
      notice = Notice(*l.table, dev_id, PIPE_MAT_UPDATE_SET_ACTION, mat_ent_hdl, act_fn_hdl);
  } catch (const std::bad_alloc &) {
    st = BF_NO_SYS_RESOURCES;
  }
  return finish_and_notify(rec, st, notice);
}

pipe_status_t pipe_mgr_mat_ent_set_action_by_match_spec(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                                        pipe_mat_tbl_hdl_t mat_tbl_hdl,
                                                        pipe_tbl_match_spec_t *match_spec,
                                                        pipe_act_fn_hdl_t act_fn_hdl,
                                                        pipe_action_spec_t *act_spec, uint32_t pipe_api_flags) {
  if (g_passthrough) return BF_SUCCESS;
  RecordedCall *rec = nullptr;
  bf_status_t st;
  Notice notice;
  try {
    rec = record_mat("pipe_mgr_mat_ent_set_action_by_match_spec", sess_hdl, dev_tgt, mat_tbl_hdl);
    if (rec) {
      rec->call.act_fn_hdl = act_fn_hdl;
      rec->call.flags = pipe_api_flags;
      rec->copy_match(match_spec);
      rec->copy_action(act_spec);
    }
    if (take_fault("pipe_mgr_mat_ent_set_action_by_match_spec", &st)) return finish(rec, st);
    if (bad_match(match_spec) || bad_action(act_spec)) return finish(rec, BF_INVALID_ARG);
    Table *t = nullptr;
    uint32_t slot = 0;
    st = store_find_key(dev_tgt.device_id, mat_tbl_hdl, *match_spec, &t, &slot);
    if (st != BF_SUCCESS) return finish(rec, st);
    const uint32_t hdl = t->entries[slot].handle;
    if (rec) rec->call.ent_hdl = hdl;
    st = store_set_action(*t, slot, act_fn_hdl, *act_spec);
    if (st == BF_SUCCESS)
      notice = Notice(*t, dev_tgt.device_id, PIPE_MAT_UPDATE_SET_ACTION, hdl, act_fn_hdl);
  } catch (const std::bad_alloc &) {
    st = BF_NO_SYS_RESOURCES;
  }
  return finish_and_notify(rec, st, notice);
}

pipe_status_t pipe_mgr_mat_ent_del(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_mat_tbl_hdl_t mat_tbl_hdl,
                                   pipe_mat_ent_hdl_t mat_ent_hdl, uint32_t pipe_api_flags) {
  if (g_passthrough) return BF_SUCCESS;
  RecordedCall *rec = nullptr;
  bf_status_t st;
  Notice notice;
  try {
    rec = record_mat("pipe_mgr_mat_ent_del", sess_hdl, all_pipes(dev_id), mat_tbl_hdl);
    if (rec) {
      rec->call.ent_hdl = mat_ent_hdl;
      rec->call.flags = pipe_api_flags;
    }
    if (take_fault("pipe_mgr_mat_ent_del", &st)) return finish(rec, st);
    const Lookup l = store_lookup(dev_id, mat_tbl_hdl, mat_ent_hdl);
    if (l.entry == nullptr) return finish(rec, BF_OBJECT_NOT_FOUND);
    if (rec) rec->call.act_fn_hdl = l.entry->act_fn_hdl;
    notice = Notice(*l.table, dev_id, PIPE_MAT_UPDATE_DEL, mat_ent_hdl, l.entry->act_fn_hdl);
    store_delete(dev_id, *l.table, static_cast<uint32_t>(l.entry - l.table->entries.data()));
    st = BF_SUCCESS;
  } catch (const std::bad_alloc &) {
    st = BF_NO_SYS_RESOURCES;
  }
  return finish_and_notify(rec, st, notice);
}

pipe_status_t pipe_mgr_mat_ent_del_by_match_spec(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                                 pipe_mat_tbl_hdl_t mat_tbl_hdl,
                                                 pipe_tbl_match_spec_t *match_spec, uint32_t pipe_api_flags) {
  if (g_passthrough) return BF_SUCCESS;
  RecordedCall *rec = nullptr;
  bf_status_t st;
  Notice notice;
  try {
    rec = record_mat("pipe_mgr_mat_ent_del_by_match_spec", sess_hdl, dev_tgt, mat_tbl_hdl);
    if (rec) {
      rec->call.flags = pipe_api_flags;
      rec->copy_match(match_spec);
    }
    if (take_fault("pipe_mgr_mat_ent_del_by_match_spec", &st)) return finish(rec, st);
    if (bad_match(match_spec)) return finish(rec, BF_INVALID_ARG);
    Table *t = nullptr;
    uint32_t slot = 0;
    st = store_find_key(dev_tgt.device_id, mat_tbl_hdl, *match_spec, &t, &slot);
    if (st != BF_SUCCESS) return finish(rec, st);
    const StoredEntry &e = t->entries[slot];
    if (rec) {
      rec->call.ent_hdl = e.handle;
      rec->call.act_fn_hdl = e.act_fn_hdl;
    }
    notice = Notice(*t, dev_tgt.device_id, PIPE_MAT_UPDATE_DEL, e.handle, e.act_fn_hdl);
    store_delete(dev_tgt.device_id, *t, slot);
  } catch (const std::bad_alloc &) {
    st = BF_NO_SYS_RESOURCES;
  }
  return finish_and_notify(rec, st, notice);
}

size_t drvm_entry_count(bf_dev_id_t dev, uint32_t tbl_hdl) {
  const Table *t = store_table(dev, tbl_hdl);
  return t ? t->entries.size() : 0;
}

bf_status_t drvm_entry_get(bf_dev_id_t dev, uint32_t tbl_hdl, uint32_t ent_hdl,
                           pipe_tbl_match_spec_t *match, uint32_t *act_fn_hdl,
                           pipe_action_spec_t *action, uint32_t *ttl) {
  const Lookup l = store_lookup(dev, tbl_hdl, ent_hdl);
  if (l.entry == nullptr) return BF_OBJECT_NOT_FOUND;
  store_read(*l.table, *l.entry, match, action);
  if (act_fn_hdl) *act_fn_hdl = l.entry->act_fn_hdl;
  if (ttl) *ttl = l.entry->ttl;
  return BF_SUCCESS;
}

}  // extern "C"
