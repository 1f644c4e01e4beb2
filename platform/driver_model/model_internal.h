// Shared internals of the driver model: recording, faults and the per-module reset hooks.
#ifndef CV_DRIVER_MODEL_INTERNAL_H
#define CV_DRIVER_MODEL_INTERNAL_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "drv/model.h"

namespace drvm {

// Pass-through mode of pipe_mgr_mat_ent_add; plain globals so the fast path is a load and a branch.
extern bool g_passthrough;
extern uint32_t g_passthrough_hdl;

// One recorded call with the memory its pointers point into.
struct RecordedCall {
  drvm_call_t call{};
  std::string text;
  std::vector<std::unique_ptr<uint8_t[]>> images;

  // A copy of n bytes at src, owned by this record; null for a null src. A non-null src of
  // length 0 gives a non-null pointer, so "present but empty" survives the copy.
  uint8_t *copy_image(const uint8_t *src, size_t n);
  void copy_match(const pipe_tbl_match_spec_t *match);
  void copy_action(const pipe_action_spec_t *action);
  void set_text(const char *s);
};

// Appends a record for a call of fn (a string literal) and returns it, or null while recording
// is off. The record stays at the same address until drvm_clear_calls or drvm_reset.
RecordedCall *record(const char *fn);

// Finishes a record (if any) with the status the call returns, and passes the status on.
inline bf_status_t finish(RecordedCall *rec, bf_status_t status) {
  if (rec) rec->call.status = status;
  return status;
}

// True if a refusal is queued for fn; *status is then its status and the refusal is used up.
extern size_t g_faults_pending;
bool take_fault_slow(const char *fn, bf_status_t *status);
inline bool take_fault(const char *fn, bf_status_t *status) {
  return g_faults_pending != 0 && take_fault_slow(fn, status);
}

// Per-module parts of drvm_reset.
void reset_calls_and_faults();
void reset_sys();
void reset_clients();
void reset_store();

}  // namespace drvm

#endif
