// Reading the driver's match tables: an entry by handle, a handle by key, walks and counts.
#include <cstring>
#include <new>

#include "mat_common.h"

using namespace drvm;

extern "C" {

pipe_status_t pipe_mgr_get_entry(pipe_sess_hdl_t sess_hdl, pipe_mat_tbl_hdl_t mat_tbl_hdl, dev_target_t dev_tgt,
                                 pipe_mat_ent_hdl_t mat_ent_hdl, pipe_tbl_match_spec_t *match_spec,
                                 pipe_action_spec_t *act_spec, pipe_act_fn_hdl_t *act_fn_hdl_p, bool from_hw,
                                 uint32_t res_get_flags, void *res_data) {
  if (g_passthrough) return BF_SUCCESS;
  RecordedCall *rec = nullptr;
  try {
    rec = record_mat("pipe_mgr_get_entry", sess_hdl, dev_tgt, mat_tbl_hdl);
    if (rec) {
      rec->call.ent_hdl = mat_ent_hdl;
      rec->call.arg_u32[0] = from_hw ? 1 : 0;
      rec->call.arg_u32[1] = res_get_flags;
      rec->call.ptr_arg = res_data;
      rec->copy_match(match_spec);
      rec->copy_action(act_spec);
    }
    bf_status_t st;
    if (take_fault("pipe_mgr_get_entry", &st)) return finish(rec, st);
    if (match_spec == nullptr || act_spec == nullptr || act_fn_hdl_p == nullptr)
      return finish(rec, BF_INVALID_ARG);
    const Lookup l = store_lookup(dev_tgt.device_id, mat_tbl_hdl, mat_ent_hdl);

    if (l.is_default) {
      // The default entry reads back with no value image and no key bytes.
      if (!l.table->default_entry) return finish(rec, BF_OBJECT_NOT_FOUND);
      const ActionView v{l.table->default_entry->act_fn_hdl, l.table->default_entry->view()};
      st = check_action_fits(v, *act_spec);
      if (st != BF_SUCCESS) return finish(rec, st);
      match_spec->match_value_bytes = nullptr;
      match_spec->num_match_bytes = 0;
      match_spec->priority = 0;
      match_spec->partition_index = 0;
      write_action(v, act_spec, act_fn_hdl_p);
      if (rec) rec->call.act_fn_hdl = v.act_fn_hdl;
      return finish(rec, BF_SUCCESS);
    }

    if (l.entry == nullptr) return finish(rec, BF_OBJECT_NOT_FOUND);
    const Table &t = *l.table;
    const StoredEntry &e = *l.entry;
    const uint16_t nb = t.match_bytes;
    if (match_spec->num_match_bytes != nb) return finish(rec, BF_INVALID_ARG);
    if (nb != 0 && (match_spec->match_value_bytes == nullptr || match_spec->match_mask_bytes == nullptr))
      return finish(rec, BF_INVALID_ARG);
    const ActionView v = action_of(t, e);
    st = check_action_fits(v, *act_spec);
    if (st != BF_SUCCESS) return finish(rec, st);
    if (nb) {
      std::memmove(match_spec->match_value_bytes, e.block, nb);
      std::memmove(match_spec->match_mask_bytes, e.block + nb, nb);
    }
    match_spec->priority = e.priority;
    match_spec->partition_index = e.partition_index;
    write_action(v, act_spec, act_fn_hdl_p);
    if (rec) rec->call.act_fn_hdl = v.act_fn_hdl;
    return finish(rec, BF_SUCCESS);
  } catch (const std::bad_alloc &) {
    return finish(rec, BF_NO_SYS_RESOURCES);
  }
}

pipe_status_t pipe_mgr_match_spec_to_ent_hdl(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                             pipe_mat_tbl_hdl_t mat_tbl_hdl, pipe_tbl_match_spec_t *match_spec,
                                             pipe_mat_ent_hdl_t *ent_hdl_p, bool light_pipe_validation) {
  if (g_passthrough) {
    passthrough_hdl(ent_hdl_p);
    return BF_SUCCESS;
  }
  RecordedCall *rec = nullptr;
  try {
    rec = record_mat("pipe_mgr_match_spec_to_ent_hdl", sess_hdl, dev_tgt, mat_tbl_hdl);
    if (rec) {
      rec->call.arg_u32[0] = light_pipe_validation ? 1 : 0;
      rec->call.ptr_arg = ent_hdl_p;
      rec->copy_match(match_spec);
    }
    bf_status_t st;
    if (take_fault("pipe_mgr_match_spec_to_ent_hdl", &st)) return finish(rec, st);
    if (bad_match(match_spec) || ent_hdl_p == nullptr) return finish(rec, BF_INVALID_ARG);
    Table *t = nullptr;
    uint32_t slot = 0;
    st = store_find_key(dev_tgt.device_id, mat_tbl_hdl, *match_spec, &t, &slot);
    if (st != BF_SUCCESS) return finish(rec, st);
    *ent_hdl_p = t->entries[slot].handle;
    if (rec) rec->call.ent_hdl = *ent_hdl_p;
    return finish(rec, BF_SUCCESS);
  } catch (const std::bad_alloc &) {
    return finish(rec, BF_NO_SYS_RESOURCES);
  }
}

pipe_status_t pipe_mgr_get_first_entry_handle(pipe_sess_hdl_t sess_hdl, pipe_mat_tbl_hdl_t mat_tbl_hdl,
                                              dev_target_t dev_tgt, pipe_mat_ent_hdl_t *ent_hdl_p) {
  if (g_passthrough) {
    passthrough_hdl(ent_hdl_p);
    return BF_SUCCESS;
  }
  RecordedCall *rec = nullptr;
  try {
    rec = record_mat("pipe_mgr_get_first_entry_handle", sess_hdl, dev_tgt, mat_tbl_hdl);
    if (rec) rec->call.ptr_arg = ent_hdl_p;
    bf_status_t st;
    if (take_fault("pipe_mgr_get_first_entry_handle", &st)) return finish(rec, st);
    if (ent_hdl_p == nullptr) return finish(rec, BF_INVALID_ARG);
    const Table *t = store_table(dev_tgt.device_id, mat_tbl_hdl);
    if (t == nullptr) return finish(rec, BF_END_OF_WALK);
    const size_t p = t->order.first_live();
    if (p == HandleOrder::npos) return finish(rec, BF_END_OF_WALK);
    t->order.note(p);
    *ent_hdl_p = t->order.at(p);
    if (rec) rec->call.ent_hdl = *ent_hdl_p;
    return finish(rec, BF_SUCCESS);
  } catch (const std::bad_alloc &) {
    return finish(rec, BF_NO_SYS_RESOURCES);
  }
}

pipe_status_t pipe_mgr_get_next_entry_handles(pipe_sess_hdl_t sess_hdl, pipe_mat_tbl_hdl_t mat_tbl_hdl,
                                              dev_target_t dev_tgt, pipe_mat_ent_hdl_t mat_ent_hdl, int n,
                                              pipe_mat_ent_hdl_t *next_ent_hdls) {
  if (g_passthrough) return BF_SUCCESS;
  RecordedCall *rec = nullptr;
  try {
    rec = record_mat("pipe_mgr_get_next_entry_handles", sess_hdl, dev_tgt, mat_tbl_hdl);
    if (rec) {
      rec->call.ent_hdl = mat_ent_hdl;
      rec->call.arg_u32[0] = static_cast<uint32_t>(n);
      rec->call.ptr_arg = next_ent_hdls;
    }
    bf_status_t st;
    if (take_fault("pipe_mgr_get_next_entry_handles", &st)) return finish(rec, st);
    if (n <= 0 || next_ent_hdls == nullptr) return finish(rec, BF_INVALID_ARG);
    const Lookup l = store_lookup(dev_tgt.device_id, mat_tbl_hdl, mat_ent_hdl);
    if (l.entry == nullptr) return finish(rec, BF_OBJECT_NOT_FOUND);
    const HandleOrder &order = l.table->order;
    size_t last = order.find(mat_ent_hdl);
    int k = 0;
    while (k < n) {
      const size_t p = order.next_live(last + 1);
      if (p == HandleOrder::npos) break;
      next_ent_hdls[k++] = order.at(p);
      last = p;
    }
    order.note(last);
    for (int i = k; i < n; ++i) next_ent_hdls[i] = 0xFFFFFFFFu;
    if (rec) rec->call.arg_u32[1] = static_cast<uint32_t>(k);
    return finish(rec, k ? BF_SUCCESS : BF_END_OF_WALK);
  } catch (const std::bad_alloc &) {
    return finish(rec, BF_NO_SYS_RESOURCES);
  }
}

pipe_status_t pipe_mgr_get_entry_count(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                       pipe_mat_tbl_hdl_t mat_tbl_hdl, bool read_from_hw, uint32_t *count_p) {
  if (g_passthrough) return BF_SUCCESS;
  RecordedCall *rec = nullptr;
  try {
    rec = record_mat("pipe_mgr_get_entry_count", sess_hdl, dev_tgt, mat_tbl_hdl);
    if (rec) {
      rec->call.arg_u32[0] = read_from_hw ? 1 : 0;
      rec->call.ptr_arg = count_p;
    }
    bf_status_t st;
    if (take_fault("pipe_mgr_get_entry_count", &st)) return finish(rec, st);
    if (count_p == nullptr) return finish(rec, BF_INVALID_ARG);
    const Table *t = store_table(dev_tgt.device_id, mat_tbl_hdl);
    *count_p = t ? static_cast<uint32_t>(t->entries.size()) : 0;
    if (rec) rec->call.arg_u32[1] = *count_p;
    return finish(rec, BF_SUCCESS);
  } catch (const std::bad_alloc &) {
    return finish(rec, BF_NO_SYS_RESOURCES);
  }
}

}  // extern "C"
