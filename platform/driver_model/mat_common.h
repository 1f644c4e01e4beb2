// Shared parts of the model's match-table functions: recording, request checks and update notices.
#ifndef CV_DRIVER_MODEL_MAT_COMMON_H
#define CV_DRIVER_MODEL_MAT_COMMON_H

#include "entry_store.h"
#include "model_internal.h"

namespace drvm {

// The device target recorded for a function that takes a bare device id.
inline dev_target_t all_pipes(bf_dev_id_t dev) { return dev_target_t{dev, BF_DEV_PIPE_ALL}; }

// Appends a record of a match-table call with its session, device target and table (or null
// while recording is off).
inline RecordedCall *record_mat(const char *fn, uint32_t sess, dev_target_t tgt, uint32_t tbl) {
  RecordedCall *rec = record(fn);
  if (rec) {
    rec->call.sess_hdl = sess;
    rec->call.dev_tgt = tgt;
    rec->call.tbl_hdl = tbl;
  }
  return rec;
}

// A handle written by a pass-through call: the next number of the running count.
inline void passthrough_hdl(uint32_t *p) {
  ++g_passthrough_hdl;
  if (p) *p = g_passthrough_hdl;
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

// An update to report to a table's callback once the call's record is finished.
struct Notice {
  pipe_mat_update_cb cb = nullptr;
  void *cookie = nullptr;
  bf_dev_id_t dev = 0;
  uint32_t tbl = 0;
  pipe_mat_update_type_t type = PIPE_MAT_UPDATE_ADD;
  uint32_t ent = 0;
  uint32_t act = 0;

  Notice() = default;
  Notice(const Table &t, bf_dev_id_t dev, pipe_mat_update_type_t type, uint32_t ent, uint32_t act)
      : cb(t.update_cb), cookie(t.update_cookie), dev(dev), tbl(t.hdl), type(type), ent(ent),
        act(act) {}
  void fire() const {
    if (cb) cb(dev, tbl, type, ent, act, cookie);
  }
};

// Finishes the record with the status and, on success, reports the update. The callback runs
// last, so it may call back into the model.
inline bf_status_t finish_and_notify(RecordedCall *rec, bf_status_t st, const Notice &n) {
  finish(rec, st);
  if (st == BF_SUCCESS) n.fire();
  return st;
}

}  // namespace drvm

#endif
