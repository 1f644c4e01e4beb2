// Default entries of the driver's match tables: set, reset to the initial default, read back.
#include <optional>
#include <utility>

#include "mat_common.h"
#include "profile_store.h"

using namespace drvm;

namespace {

Binding binding_of(const std::optional<ActionCopy> &a) { return a ? drvm::binding_of(a->spec) : Binding{}; }

}  // namespace

extern "C" {

pipe_status_t pipe_mgr_mat_default_entry_set(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                             pipe_mat_tbl_hdl_t mat_tbl_hdl, pipe_act_fn_hdl_t act_fn_hdl,
                                             pipe_action_spec_t *act_spec, uint32_t pipe_api_flags,
                                             pipe_mat_ent_hdl_t *ent_hdl_p) {
  return DRIVER_CALL(
      "pipe_mgr_mat_default_entry_set", PassThrough::handle(ent_hdl_p),
      [&](RecordedCall &r) {
        record_mat(r, sess_hdl, dev_tgt, mat_tbl_hdl);
        r.call.act_fn_hdl = act_fn_hdl;
        r.call.flags = pipe_api_flags;
        r.call.ptr_arg = ent_hdl_p;
        r.copy_action(act_spec);
      },
      [&](RecordedCall *rec, Notices &notices) -> bf_status_t {
        if (bad_action(act_spec) || ent_hdl_p == nullptr) return BF_INVALID_ARG;
        const Binding after = drvm::binding_of(*act_spec);
        bf_status_t st = check_binding(dev_tgt.device_id, mat_tbl_hdl, act_fn_hdl, after);
        if (st != BF_SUCCESS) return st;
        Device &d = store_touch_device(dev_tgt.device_id);
        Table &t = d.touch_table(mat_tbl_hdl);
        ActionCopy copy = ActionCopy::of(act_fn_hdl, *act_spec);
        notices.reserve(1);
        st = d.ensure_default_hdl(t);
        if (st != BF_SUCCESS) return st;
        const Binding before = binding_of(t.default_entry);
        t.default_entry = std::move(copy);
        t.default_ever_set = true;
        rebind(dev_tgt.device_id, mat_tbl_hdl, before, after);
        *ent_hdl_p = t.default_hdl;
        if (rec) rec->call.ent_hdl = t.default_hdl;
        notices.add(mat_notice(t, dev_tgt.device_id, PIPE_MAT_UPDATE_SET_DEFAULT, t.default_hdl, act_fn_hdl));
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_mat_tbl_default_entry_reset(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                                   pipe_mat_tbl_hdl_t mat_tbl_hdl, uint32_t pipe_api_flags) {
  return DRIVER_CALL(
      "pipe_mgr_mat_tbl_default_entry_reset", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_mat(r, sess_hdl, dev_tgt, mat_tbl_hdl);
        r.call.flags = pipe_api_flags;
      },
      [&](RecordedCall *rec, Notices &notices) -> bf_status_t {
        Device &d = store_touch_device(dev_tgt.device_id);
        Table &t = d.touch_table(mat_tbl_hdl);
        std::optional<ActionCopy> restored = t.initial_default;
        notices.reserve(1);
        bf_status_t st = d.ensure_default_hdl(t);
        if (st != BF_SUCCESS) return st;
        const uint32_t act = restored ? restored->act_fn_hdl : 0;
        const Binding before = binding_of(t.default_entry), after = binding_of(restored);
        t.default_entry = std::move(restored);
        rebind(dev_tgt.device_id, mat_tbl_hdl, before, after);
        if (rec) {
          rec->call.ent_hdl = t.default_hdl;
          rec->call.act_fn_hdl = act;
        }
        notices.add(mat_notice(t, dev_tgt.device_id, PIPE_MAT_UPDATE_CLEAR_DEFAULT, t.default_hdl, act));
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_table_get_default_entry_handle(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                                      pipe_mat_tbl_hdl_t mat_tbl_hdl,
                                                      pipe_mat_ent_hdl_t *ent_hdl_p) {
  return DRIVER_CALL(
      "pipe_mgr_table_get_default_entry_handle", PassThrough::handle(ent_hdl_p),
      [&](RecordedCall &r) {
        record_mat(r, sess_hdl, dev_tgt, mat_tbl_hdl);
        r.call.ptr_arg = ent_hdl_p;
      },
      [&](RecordedCall *rec, Notices &) -> bf_status_t {
        if (ent_hdl_p == nullptr) return BF_INVALID_ARG;
        Device &d = store_touch_device(dev_tgt.device_id);
        Table &t = d.touch_table(mat_tbl_hdl);
        bf_status_t st = d.ensure_default_hdl(t);
        if (st != BF_SUCCESS) return st;
        *ent_hdl_p = t.default_hdl;
        if (rec) rec->call.ent_hdl = t.default_hdl;
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_table_get_default_entry(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                               pipe_mat_tbl_hdl_t mat_tbl_hdl, pipe_action_spec_t *act_spec,
                                               pipe_act_fn_hdl_t *act_fn_hdl_p, bool from_hw,
                                               uint32_t res_get_flags, void *res_data) {
  return DRIVER_CALL(
      "pipe_mgr_table_get_default_entry", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_mat(r, sess_hdl, dev_tgt, mat_tbl_hdl);
        r.call.arg_u32[0] = from_hw ? 1 : 0;
        r.call.arg_u32[1] = res_get_flags;
        r.call.ptr_arg = res_data;
        r.copy_action(act_spec);
      },
      [&](RecordedCall *rec, Notices &) -> bf_status_t {
        if (act_spec == nullptr || act_fn_hdl_p == nullptr) return BF_INVALID_ARG;
        const Table *t = store_table(dev_tgt.device_id, mat_tbl_hdl);
        if (t == nullptr || !t->default_entry) return BF_OBJECT_NOT_FOUND;
        const ActionView v{t->default_entry->act_fn_hdl, t->default_entry->view()};
        bf_status_t st = check_action_fits(v, *act_spec);
        if (st != BF_SUCCESS) return st;
        write_action(v, act_spec, act_fn_hdl_p);
        if (rec) rec->call.act_fn_hdl = v.act_fn_hdl;
        return BF_SUCCESS;
      });
}

bf_status_t drvm_set_initial_default(bf_dev_id_t dev, uint32_t tbl_hdl, uint32_t act_fn_hdl,
                                     const pipe_action_spec_t *action) {
  const ModelLock lock;
  // An initial default is the program's: it carries an action, never a member or group.
  if (bad_action(action) || drvm::binding_of(*action).kind != Binding::Kind::none) return BF_INVALID_ARG;
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
  const ModelLock lock;
  const Table *t = store_table(dev, tbl_hdl);
  if (t == nullptr || !t->default_entry) return BF_OBJECT_NOT_FOUND;
  if (ent_hdl) *ent_hdl = t->default_hdl;
  if (act_fn_hdl) *act_fn_hdl = t->default_entry->act_fn_hdl;
  if (action) *action = t->default_entry->view();
  return BF_SUCCESS;
}

}  // extern "C"
