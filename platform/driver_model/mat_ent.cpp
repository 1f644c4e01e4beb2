// Match-table entry functions of the driver, and the model's view of its entry store.
#include <new>

#include "entry_store.h"
#include "model_internal.h"

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
  try {
    rec = record("pipe_mgr_mat_ent_add");
    if (rec) {
      drvm_call_t &c = rec->call;
      c.sess_hdl = sess_hdl;
      c.dev_tgt = dev_tgt;
      c.tbl_hdl = mat_tbl_hdl;
      c.act_fn_hdl = act_fn_hdl;
      c.ttl = ttl;
      c.flags = pipe_api_flags;
      c.ptr_arg = ent_hdl_p;
      rec->copy_match(match_spec);
      rec->copy_action(act_spec);
    }
    bf_status_t st;
    if (take_fault("pipe_mgr_mat_ent_add", &st)) return finish(rec, st);
    if (match_spec == nullptr || act_spec == nullptr || ent_hdl_p == nullptr)
      return finish(rec, BF_INVALID_ARG);
    if (match_spec->num_match_bytes != 0 &&
        (match_spec->match_value_bytes == nullptr || match_spec->match_mask_bytes == nullptr))
      return finish(rec, BF_INVALID_ARG);
    if (act_spec->act_data.num_action_data_bytes != 0 &&
        act_spec->act_data.action_data_bytes == nullptr)
      return finish(rec, BF_INVALID_ARG);
    if (act_spec->resource_count > PIPE_NUM_RES_SPECS) return finish(rec, BF_INVALID_ARG);

    uint32_t hdl = 0;
    st = store_add(dev_tgt.device_id, mat_tbl_hdl, *match_spec, act_fn_hdl, *act_spec, ttl, &hdl);
    if (st == BF_SUCCESS) {
      *ent_hdl_p = hdl;
      if (rec) rec->call.ent_hdl = hdl;
    }
    return finish(rec, st);
  } catch (const std::bad_alloc &) {
    return finish(rec, BF_NO_SYS_RESOURCES);
  }
}

size_t drvm_entry_count(bf_dev_id_t dev, uint32_t tbl_hdl) {
  const Table *t = store_table(dev, tbl_hdl);
  return t ? t->entries.size() : 0;
}

bf_status_t drvm_entry_get(bf_dev_id_t dev, uint32_t tbl_hdl, uint32_t ent_hdl,
                           pipe_tbl_match_spec_t *match, uint32_t *act_fn_hdl,
                           pipe_action_spec_t *action, uint32_t *ttl) {
  const Table *t = nullptr;
  const StoredEntry *e = store_find(dev, tbl_hdl, ent_hdl, &t);
  if (e == nullptr) return BF_OBJECT_NOT_FOUND;
  store_read(*t, *e, match, action);
  if (act_fn_hdl) *act_fn_hdl = e->act_fn_hdl;
  if (ttl) *ttl = e->ttl;
  return BF_SUCCESS;
}

}  // extern "C"
