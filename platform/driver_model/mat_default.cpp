// Default entries of the driver's match tables: set, reset to the initial default, read back.
#include <new>
#include <optional>
#include <utility>

#include "mat_common.h"

using namespace drvm;

extern "C" {

pipe_status_t pipe_mgr_mat_default_entry_set(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                             pipe_mat_tbl_hdl_t mat_tbl_hdl, pipe_act_fn_hdl_t act_fn_hdl,
                                             pipe_action_spec_t *act_spec, uint32_t pipe_api_flags,
                                             pipe_mat_ent_hdl_t *ent_hdl_p) {
  if (g_passthrough) {
    passthrough_hdl(ent_hdl_p);
    return BF_SUCCESS;
  }
  RecordedCall *rec = nullptr;
  bf_status_t st;
  Notice notice;
  try {
    rec = record_mat("pipe_mgr_mat_default_entry_set", sess_hdl, dev_tgt, mat_tbl_hdl);
    if (rec) {
      rec->call.act_fn_hdl = act_fn_hdl;
      rec->call.flags = pipe_api_flags;
      rec->call.ptr_arg = ent_hdl_p;
      rec->copy_action(act_spec);
    }
    if (take_fault("pipe_mgr_mat_default_entry_set", &st)) return finish(rec, st);
    if (bad_action(act_spec) || ent_hdl_p == nullptr) return finish(rec, BF_INVALID_ARG);
    Device &d = store_touch_device(dev_tgt.device_id);
    Table &t = d.touch_table(mat_tbl_hdl);
    ActionCopy copy = ActionCopy::of(act_fn_hdl, *act_spec);
    st = d.ensure_default_hdl(t);
    if (st != BF_SUCCESS) return finish(rec, st);
    t.default_entry = std::move(copy);
    t.default_ever_set = true;
    *ent_hdl_p = t.default_hdl;
    if (rec) rec->call.ent_hdl = t.default_hdl;
    notice = Notice(t, dev_tgt.device_id, PIPE_MAT_UPDATE_SET_DEFAULT, t.default_hdl, act_fn_hdl);
  } catch (const std::bad_alloc &) {
    st = BF_NO_SYS_RESOURCES;
  }
  return finish_and_notify(rec, st, notice);
}

pipe_status_t pipe_mgr_mat_tbl_default_entry_reset(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                                   pipe_mat_tbl_hdl_t mat_tbl_hdl, uint32_t pipe_api_flags) {
  if (g_passthrough) return BF_SUCCESS;
  RecordedCall *rec = nullptr;
  bf_status_t st;
  Notice notice;
  try {
    rec = record_mat("pipe_mgr_mat_tbl_default_entry_reset", sess_hdl, dev_tgt, mat_tbl_hdl);
    if (rec) rec->call.flags = pipe_api_flags;
    if (take_fault("pipe_mgr_mat_tbl_default_entry_reset", &st)) return finish(rec, st);
    Device &d = store_touch_device(dev_tgt.device_id);
    Table &t = d.touch_table(mat_tbl_hdl);
    std::optional<ActionCopy> restored = t.initial_default;
    st = d.ensure_default_hdl(t);
    if (st != BF_SUCCESS) return finish(rec, st);
    const uint32_t act = restored ? restored->act_fn_hdl : 0;
    t.default_entry = std::move(restored);
    if (rec) {
      rec->call.ent_hdl = t.default_hdl;
      rec->call.act_fn_hdl = act;
    }
    notice = Notice(t, dev_tgt.device_id, PIPE_MAT_UPDATE_CLEAR_DEFAULT, t.default_hdl, act);
  } catch (const std::bad_alloc &) {
    st = BF_NO_SYS_RESOURCES;
  }
  return finish_and_notify(rec, st, notice);
}

pipe_status_t pipe_mgr_table_get_default_entry_handle(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                                      pipe_mat_tbl_hdl_t mat_tbl_hdl,
                                                      pipe_mat_ent_hdl_t *ent_hdl_p) {
  if (g_passthrough) {
    passthrough_hdl(ent_hdl_p);
    return BF_SUCCESS;
  }
  RecordedCall *rec = nullptr;
  try {
    rec = record_mat("pipe_mgr_table_get_default_entry_handle", sess_hdl, dev_tgt, mat_tbl_hdl);
    if (rec) rec->call.ptr_arg = ent_hdl_p;
    bf_status_t st;
    if (take_fault("pipe_mgr_table_get_default_entry_handle", &st)) return finish(rec, st);
    if (ent_hdl_p == nullptr) return finish(rec, BF_INVALID_ARG);
    Device &d = store_touch_device(dev_tgt.device_id);
    Table &t = d.touch_table(mat_tbl_hdl);
    st = d.ensure_default_hdl(t);
    if (st != BF_SUCCESS) return finish(rec, st);
    *ent_hdl_p = t.default_hdl;
    if (rec) rec->call.ent_hdl = t.default_hdl;
    return finish(rec, BF_SUCCESS);
  } catch (const std::bad_alloc &) {
    return finish(rec, BF_NO_SYS_RESOURCES);
  }
}

pipe_status_t pipe_mgr_table_get_default_entry(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                               pipe_mat_tbl_hdl_t mat_tbl_hdl, pipe_action_spec_t *act_spec,
                                               pipe_act_fn_hdl_t *act_fn_hdl_p, bool from_hw,
                                               uint32_t res_get_flags, void *res_data) {
  if (g_passthrough) return BF_SUCCESS;
  RecordedCall *rec = nullptr;
  try {
    rec = record_mat("pipe_mgr_table_get_default_entry", sess_hdl, dev_tgt, mat_tbl_hdl);
    if (rec) {
      rec->call.arg_u32[0] = from_hw ? 1 : 0;
      rec->call.arg_u32[1] = res_get_flags;
      rec->call.ptr_arg = res_data;
      rec->copy_action(act_spec);
    }
    bf_status_t st;
    if (take_fault("pipe_mgr_table_get_default_entry", &st)) return finish(rec, st);
    if (act_spec == nullptr || act_fn_hdl_p == nullptr) return finish(rec, BF_INVALID_ARG);
    const Table *t = store_table(dev_tgt.device_id, mat_tbl_hdl);
    if (t == nullptr || !t->default_entry) return finish(rec, BF_OBJECT_NOT_FOUND);
    const ActionView v{t->default_entry->act_fn_hdl, t->default_entry->view()};
    st = check_action_fits(v, *act_spec);
    if (st != BF_SUCCESS) return finish(rec, st);
    write_action(v, act_spec, act_fn_hdl_p);
    if (rec) rec->call.act_fn_hdl = v.act_fn_hdl;
    return finish(rec, BF_SUCCESS);
  } catch (const std::bad_alloc &) {
    return finish(rec, BF_NO_SYS_RESOURCES);
  }
}

bf_status_t drvm_set_initial_default(bf_dev_id_t dev, uint32_t tbl_hdl, uint32_t act_fn_hdl,
                                     const pipe_action_spec_t *action) {
  if (bad_action(action)) return BF_INVALID_ARG;
  try {
    Table &t = store_touch_device(dev).touch_table(tbl_hdl);
    ActionCopy initial = ActionCopy::of(act_fn_hdl, *action);
    std::optional<ActionCopy> current;
    if (!t.default_ever_set) current = initial;
    t.initial_default = std::move(initial);
    if (!t.default_ever_set) t.default_entry = std::move(current);
    return BF_SUCCESS;
  } catch (const std::bad_alloc &) {
    return BF_NO_SYS_RESOURCES;
  }
}

bf_status_t drvm_default_entry_get(bf_dev_id_t dev, uint32_t tbl_hdl, uint32_t *ent_hdl,
                                   uint32_t *act_fn_hdl, pipe_action_spec_t *action) {
  const Table *t = store_table(dev, tbl_hdl);
  if (t == nullptr || !t->default_entry) return BF_OBJECT_NOT_FOUND;
  if (ent_hdl) *ent_hdl = t->default_hdl;
  if (act_fn_hdl) *act_fn_hdl = t->default_entry->act_fn_hdl;
  if (action) *action = t->default_entry->view();
  return BF_SUCCESS;
}

}  // extern "C"
