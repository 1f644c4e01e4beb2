// Per-table settings of the driver: properties and the entry-update callback.
#include <cstdint>
#include <utility>

#include "mat_common.h"

using namespace drvm;

extern "C" {

pipe_status_t pipe_mgr_tbl_set_property(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_mat_tbl_hdl_t tbl_hdl,
                                        uint32_t property, uint32_t value, uint32_t args, uint32_t pipe_api_flags) {
  return DRIVER_CALL(
      "pipe_mgr_tbl_set_property", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_mat(r, sess_hdl, all_pipes(dev_id), tbl_hdl);
        r.call.arg_u32[0] = property;
        r.call.arg_u32[1] = value;
        r.call.arg_u32[2] = args;
        r.call.flags = pipe_api_flags;
      },
      [&](RecordedCall *, Notices &) -> bf_status_t {
        Table &t = store_touch_device(dev_id).touch_table(tbl_hdl);
        t.properties[property] = std::make_pair(value, args);
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_tbl_get_property(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_mat_tbl_hdl_t tbl_hdl,
                                        uint32_t property, uint32_t *value_p, uint32_t *args_p) {
  return DRIVER_CALL(
      "pipe_mgr_tbl_get_property", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_mat(r, sess_hdl, all_pipes(dev_id), tbl_hdl);
        r.call.arg_u32[0] = property;
        r.call.ptr_arg = value_p;
      },
      [&](RecordedCall *rec, Notices &) -> bf_status_t {
        if (value_p == nullptr || args_p == nullptr) return BF_INVALID_ARG;
        const Table *t = store_table(dev_id, tbl_hdl);
        if (t == nullptr) return BF_OBJECT_NOT_FOUND;
        auto it = t->properties.find(property);
        if (it == t->properties.end()) return BF_OBJECT_NOT_FOUND;
        *value_p = it->second.first;
        *args_p = it->second.second;
        if (rec) {
          rec->call.arg_u32[1] = it->second.first;
          rec->call.arg_u32[2] = it->second.second;
        }
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_register_mat_update_cb(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                          pipe_mat_tbl_hdl_t mat_tbl_hdl, pipe_mat_update_cb cb, void *cookie) {
  return DRIVER_CALL(
      "pipe_register_mat_update_cb", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_mat(r, sess_hdl, all_pipes(dev_id), mat_tbl_hdl);
        record_callback(r, cb, cookie);
      },
      [&](RecordedCall *, Notices &) -> bf_status_t {
        Table &t = store_touch_device(dev_id).touch_table(mat_tbl_hdl);
        t.update_cb = cb;
        t.update_cookie = cb ? cookie : nullptr;
        return BF_SUCCESS;
      });
}

bf_status_t drvm_mat_update_cb(bf_dev_id_t dev, uint32_t tbl_hdl, pipe_mat_update_cb *cb, void **cookie) {
  const ModelLock lock;
  const Table *t = store_table(dev, tbl_hdl);
  if (t == nullptr || t->update_cb == nullptr) return BF_OBJECT_NOT_FOUND;
  if (cb) *cb = t->update_cb;
  if (cookie) *cookie = t->update_cookie;
  return BF_SUCCESS;
}

}  // extern "C"
