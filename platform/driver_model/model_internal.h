// Shared internals of the driver model: recording, faults and the per-module reset hooks.
#ifndef CV_DRIVER_MODEL_INTERNAL_H
#define CV_DRIVER_MODEL_INTERNAL_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <vector>

#include "drv/model.h"

namespace drvm {

#define CV_DRVM_HIDDEN __attribute__((visibility("hidden")))

// ---- The model's lock ----
//
// One lock guards all of the model's state: stores, profiles, cells, telemetry, clients, system
// services, recorded calls and queued refusals. A driver call holds it from its record to its last
// change (serve_call); every drvm_* function, bf_sys_* function and placement-list function holds
// it while it reads or changes the model. Nothing is called back while it is held: update notices,
// the hitless replay, idle expiries, learning deliveries and device hooks are taken under it and
// called after it is released, so a callback may call the model from any thread. It is not
// recursive: no code that holds it calls an exported function of the model.
extern std::mutex g_lock CV_DRVM_HIDDEN;

// Holds the model's lock for a scope.
class ModelLock {
 public:
  ModelLock() { g_lock.lock(); }
  ~ModelLock() { g_lock.unlock(); }
  ModelLock(const ModelLock &) = delete;
  ModelLock &operator=(const ModelLock &) = delete;
};

// Pass-through mode: globals hidden in the library and used without the lock, so that the fast
// path of a driver function is one load and a branch (a relaxed atomic load is a plain load). The
// handle count is moved on by a relaxed load and store, not a locked read-modify-write (which
// nearly tripled the cost of a pass-through add): threads in pass-through mode at once are no data
// race, but may be given the same number. Pass-through is for measuring one thread's speed.
extern std::atomic<bool> g_passthrough CV_DRVM_HIDDEN;
extern std::atomic<uint32_t> g_passthrough_hdl CV_DRVM_HIDDEN;

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
  void copy_bytes(const uint8_t *src, size_t n);
  void copy_bytes2(const uint8_t *src, size_t n);
  void set_text(const char *s);
};

// Appends a record for a call of fn (a string literal) and returns it, or null while recording
// is off. The record stays at the same address until drvm_clear_calls or drvm_reset. Under the lock.
RecordedCall *record(const char *fn);

// Finishes a record (if any) with the status the call returns, and passes the status on.
inline bf_status_t finish(RecordedCall *rec, bf_status_t status) {
  if (rec) rec->call.status = status;
  return status;
}

// True if a refusal is queued for fn; *status is then its status and the refusal is used up. Under
// the lock.
extern size_t g_faults_pending CV_DRVM_HIDDEN;
bool take_fault_slow(const char *fn, bf_status_t *status);
inline bool take_fault(const char *fn, bf_status_t *status) {
  return g_faults_pending != 0 && take_fault_slow(fn, status);
}

// ---- Update notices ----

// One update to report to a callback once the call that made it is finished.
struct Notice {
  // sync: a completion callback (dev, cookie), as of a database sync or a hit-state update.
  enum class Kind : uint8_t { mat, adt, sel, sel_tbl, sync };
  Kind kind = Kind::mat;
  void (*cb)() = nullptr;  // the registered callback, of the kind's type
  void *cookie = nullptr;
  bf_dev_id_t dev = 0;
  uint32_t tbl = 0;
  uint32_t type = 0;
  uint32_t a = 0;  // entry, member or group handle
  uint32_t b = 0;  // action handle or member handle
  bool is_add = false;

  void fire() const;
};

// The notices of one call. Room for them is made before the store changes (reserve), so that
// adding one cannot fail once it has.
class Notices {
 public:
  // May throw std::bad_alloc.
  void reserve(size_t n) { list_.reserve(list_.size() + n); }
  // Adds a notice for a registered callback (a null cb adds nothing); reserve made room for it.
  void add(const Notice &n) {
    if (n.cb != nullptr) list_.push_back(n);
  }
  void clear() { list_.clear(); }
  void fire() const {
    for (const Notice &n : list_) n.fire();
  }

 private:
  std::vector<Notice> list_;
};

// ---- One driver call ----

// What a call answers in pass-through mode.
struct PassThrough {
  enum class Mode : uint8_t { not_affected, zero, handle } mode;
  uint32_t *hdl = nullptr;  // the handle pointer of Mode::handle; a null one is skipped

  static PassThrough none() { return {Mode::not_affected}; }
  static PassThrough zero() { return {Mode::zero}; }
  static PassThrough handle(uint32_t *p) { return {Mode::handle, p}; }
};

// Whether pass-through mode answers a call at once: it is on, and the function is one of
// drv/pipe_mgr.h.
inline bool passes_through(PassThrough pt) {
  return pt.mode != PassThrough::Mode::not_affected && g_passthrough.load(std::memory_order_relaxed);
}

// The answer of pass-through mode: 0, and for a function that writes one handle the next number of
// the running count (a null handle pointer skips the write, not the count).
inline bf_status_t pass_through(PassThrough pt) {
  if (pt.mode == PassThrough::Mode::handle) {
    const uint32_t hdl = g_passthrough_hdl.load(std::memory_order_relaxed) + 1;
    g_passthrough_hdl.store(hdl, std::memory_order_relaxed);
    if (pt.hdl) *pt.hdl = hdl;
  }
  return BF_SUCCESS;
}

// Steps 2 to 6 of a driver call (see DRIVER_CALL): 2 to 5 and the record's status under the
// model's lock, the callbacks after it is released.
template <class Fill, class Serve>
[[gnu::noinline]] bf_status_t serve_call(const char *fn, Fill &&fill, Serve &&serve) {
  Notices notices;
  bf_status_t st;
  {
    const ModelLock lock;
    RecordedCall *rec = nullptr;
    try {
      rec = record(fn);
      if (rec) fill(*rec);
      if (!take_fault(fn, &st)) st = serve(rec, notices);
    } catch (const std::bad_alloc &) {
      st = BF_NO_SYS_RESOURCES;
    }
    finish(rec, st);
  }
  if (st == BF_SUCCESS) notices.fire();
  return st;
}

}  // namespace drvm

// One call of a driver function, the skeleton every one of them shares. A driver function is
//   return DRIVER_CALL("its name", what pass-through answers, fill, serve);
// and the skeleton runs:
//  1. pass-through mode answers at once as the PassThrough says, recording nothing;
//  2. the call is recorded: `fill(RecordedCall &)` writes the function's own fields;
//  3. a queued refusal is taken: its status, no effect;
//  4. `serve(RecordedCall *rec, Notices &notices)` checks the request and, if good, changes the
//     store and queues the updates to report; it returns the status. It must leave the store as it
//     was whenever it returns a refusal or throws, making room for everything before it commits;
//  5. an allocation failure (std::bad_alloc) answers BF_NO_SYS_RESOURCES;
//  6. the record is finished with the status, and only then, on success, the callbacks run, so
//     that a callback may call the driver.
// Steps 2 to 6, up to the record's status, run under the model's lock; the callbacks run after it
// is released, so a callback may call the driver from its own thread or wait for another that does.
// It is a macro only so that step 1 comes before the two lambdas are even made: the pass-through
// path of a driver function is then one load and a branch. The PassThrough is evaluated twice and
// must have no side effects.
#define DRIVER_CALL(fn, pt, ...)                                                                  \
  (::drvm::passes_through(pt) ? ::drvm::pass_through(pt) : ::drvm::serve_call(fn, __VA_ARGS__))

namespace drvm {

// Per-module parts of drvm_reset, run under the lock.
void reset_calls_and_faults();
void reset_sys();
void reset_clients();
void reset_store();
void reset_profiles();
void reset_cells();
void reset_telemetry();

// The clock (drvm_advance_clock): the model's time now (under the lock), and the per-module steps
// of moving it, run in this order without the lock held: each takes it while it reads or changes
// the model, and releases it for the callbacks it calls.
extern uint64_t g_clock_us CV_DRVM_HIDDEN;
void idle_clock_tick();
void learn_clock_tick();

}  // namespace drvm

#endif
