// Shared parts of the model's match-table functions: recording, request checks and update notices.
#ifndef CV_DRIVER_MODEL_MAT_COMMON_H
#define CV_DRIVER_MODEL_MAT_COMMON_H

#include "entry_store.h"
#include "model_internal.h"

namespace drvm {

// The device target recorded for a function that takes a bare device id.
inline dev_target_t all_pipes(bf_dev_id_t dev) { return dev_target_t{dev, BF_DEV_PIPE_ALL}; }

// The fields every match-table call records: its session, device target and table.
inline void record_mat(RecordedCall &r, uint32_t sess, dev_target_t tgt, uint32_t tbl) {
  r.call.sess_hdl = sess;
  r.call.dev_tgt = tgt;
  r.call.tbl_hdl = tbl;
}

// Records a callback's address as two words (the second is 0 on a 32-bit target) and its cookie.
template <class Cb>
inline void record_callback(RecordedCall &r, Cb cb, void *cookie) {
  const uint64_t addr = reinterpret_cast<uintptr_t>(cb);
  r.call.arg_u32[0] = static_cast<uint32_t>(addr);
  r.call.arg_u32[1] = static_cast<uint32_t>(addr >> 32);
  r.call.ptr_arg = cookie;
}

// A match record the model cannot read: null, or a null image with num_match_bytes not 0.
inline bool bad_match(const pipe_tbl_match_spec_t *m) {
  return m == nullptr ||
         (m->num_match_bytes != 0 && (m->match_value_bytes == nullptr || m->match_mask_bytes == nullptr));
}

// An action record the model cannot store: null, a null image with num_action_data_bytes not 0,
// or resource_count over 4.
inline bool bad_action(const pipe_action_spec_t *a) {
  return a == nullptr ||
         (a->act_data.num_action_data_bytes != 0 && a->act_data.action_data_bytes == nullptr) ||
         a->resource_count > PIPE_NUM_RES_SPECS;
}

// An update of a match table to report to its callback.
inline Notice mat_notice(const Table &t, bf_dev_id_t dev, pipe_mat_update_type_t type, uint32_t ent, uint32_t act) {
  Notice n;
  n.kind = Notice::Kind::mat;
  n.cb = reinterpret_cast<void (*)()>(t.update_cb);
  n.cookie = t.update_cookie;
  n.dev = dev;
  n.tbl = t.hdl;
  n.type = type;
  n.a = ent;
  n.b = act;
  return n;
}

}  // namespace drvm

#endif
