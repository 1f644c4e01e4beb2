// Per-table settings of the driver: properties and the entry-update callback.
#include <cstdint>
#include <new>
#include <utility>

#include "mat_common.h"

using namespace drvm;

extern "C" {

pipe_status_t pipe_mgr_tbl_set_property(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_mat_tbl_hdl_t tbl_hdl,
                                        uint32_t property, uint32_t value, uint32_t args, uint32_t pipe_api_flags) {
  if (g_passthrough) return BF_SUCCESS;
  RecordedCall *rec = nullptr;
  try {
    rec = record_mat("pipe_mgr_tbl_set_property", sess_hdl, all_pipes(dev_id), tbl_hdl);
    if (rec) {
      rec->call.arg_u32[0] = property;
      rec->call.arg_u32[1] = value;
      rec->call.arg_u32[2] = args;
      rec->call.flags = pipe_api_flags;
    }
    bf_status_t st;
    if (take_fault("pipe_mgr_tbl_set_property", &st)) return finish(rec, st);
    Table &t = store_touch_device(dev_id).touch_table(tbl_hdl);
    t.properties[property] = std::make_pair(value, args);
    return finish(rec, BF_SUCCESS);
  } catch (const std::bad_alloc &) {
    return finish(rec, BF_NO_SYS_RESOURCES);
  }
}

pipe_status_t pipe_mgr_tbl_get_property(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_mat_tbl_hdl_t tbl_hdl,
                                        uint32_t property, uint32_t *value_p, uint32_t *args_p) {
  if (g_passthrough) return BF_SUCCESS;
  RecordedCall *rec = nullptr;
  try {
    rec = record_mat("pipe_mgr_tbl_get_property", sess_hdl, all_pipes(dev_id), tbl_hdl);
    if (rec) {
      rec->call.arg_u32[0] = property;
      rec->call.ptr_arg = value_p;
    }
    bf_status_t st;
    if (take_fault("pipe_mgr_tbl_get_property", &st)) return finish(rec, st);
    if (value_p == nullptr || args_p == nullptr) return finish(rec, BF_INVALID_ARG);
    const Table *t = store_table(dev_id, tbl_hdl);
    if (t == nullptr) return finish(rec, BF_OBJECT_NOT_FOUND);
    auto it = t->properties.find(property);
    if (it == t->properties.end()) return finish(rec, BF_OBJECT_NOT_FOUND);
    *value_p = it->second.first;
    *args_p = it->second.second;
    if (rec) {
      rec->call.arg_u32[1] = it->second.first;
      rec->call.arg_u32[2] = it->second.second;
    }
    return finish(rec, BF_SUCCESS);
  } catch (const std::bad_alloc &) {
    return finish(rec, BF_NO_SYS_RESOURCES);
  }
}

pipe_status_t pipe_register_mat_update_cb(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                          pipe_mat_tbl_hdl_t mat_tbl_hdl, pipe_mat_update_cb cb, void *cookie) {
  if (g_passthrough) return BF_SUCCESS;
  RecordedCall *rec = nullptr;
  try {
    rec = record_mat("pipe_register_mat_update_cb", sess_hdl, all_pipes(dev_id), mat_tbl_hdl);
    if (rec) {
      // The callback's address as two words (the second is 0 on a 32-bit target).
      const uint64_t addr = reinterpret_cast<uintptr_t>(cb);
      rec->call.arg_u32[0] = static_cast<uint32_t>(addr);
      rec->call.arg_u32[1] = static_cast<uint32_t>(addr >> 32);
      rec->call.ptr_arg = cookie;
    }
    bf_status_t st;
    if (take_fault("pipe_register_mat_update_cb", &st)) return finish(rec, st);
    Table &t = store_touch_device(dev_id).touch_table(mat_tbl_hdl);
    t.update_cb = cb;
    t.update_cookie = cb ? cookie : nullptr;
    return finish(rec, BF_SUCCESS);
  } catch (const std::bad_alloc &) {
    return finish(rec, BF_NO_SYS_RESOURCES);
  }
}

bf_status_t drvm_mat_update_cb(bf_dev_id_t dev, uint32_t tbl_hdl, pipe_mat_update_cb *cb, void **cookie) {
  const Table *t = store_table(dev, tbl_hdl);
  if (t == nullptr || t->update_cb == nullptr) return BF_OBJECT_NOT_FOUND;
  if (cb) *cb = t->update_cb;
  if (cookie) *cookie = t->update_cookie;
  return BF_SUCCESS;
}

}  // extern "C"
