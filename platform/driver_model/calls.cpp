// Recording of driver calls, queued refusals, and whole-model control.
#include <cstring>
#include <deque>
#include <string>
#include <unordered_map>

#include "model_internal.h"

namespace drvm {

std::mutex g_lock;
std::atomic<bool> g_passthrough{false};
std::atomic<uint32_t> g_passthrough_hdl{0};
size_t g_faults_pending = 0;
uint64_t g_clock_us = 0;

namespace {

bool g_recording = true;
// A deque keeps every record at its address while more are appended.
std::deque<RecordedCall> g_calls;
std::unordered_map<std::string, std::deque<bf_status_t>> g_faults;

bool names_fn(const drvm_call_t &c, const char *fn) {
  return fn == nullptr || std::strcmp(c.fn, fn) == 0;
}

}  // namespace

uint8_t *RecordedCall::copy_image(const uint8_t *src, size_t n) {
  if (src == nullptr) return nullptr;
  std::unique_ptr<uint8_t[]> copy(new uint8_t[n ? n : 1]);
  if (n) std::memcpy(copy.get(), src, n);
  images.push_back(std::move(copy));
  return images.back().get();
}

void RecordedCall::copy_match(const pipe_tbl_match_spec_t *match) {
  if (match == nullptr) return;
  call.has_match = 1;
  call.match = *match;
  call.match.match_value_bytes = copy_image(match->match_value_bytes, match->num_match_bytes);
  call.match.match_mask_bytes = copy_image(match->match_mask_bytes, match->num_match_bytes);
}

void RecordedCall::copy_action(const pipe_action_spec_t *action) {
  if (action == nullptr) return;
  call.has_action = 1;
  call.action = *action;
  call.action.act_data.action_data_bytes =
      copy_image(action->act_data.action_data_bytes, action->act_data.num_action_data_bytes);
}

void RecordedCall::copy_bytes(const uint8_t *src, size_t n) {
  call.bytes = copy_image(src, n);
  call.num_bytes = static_cast<uint32_t>(n);
}

void RecordedCall::copy_bytes2(const uint8_t *src, size_t n) {
  call.bytes2 = copy_image(src, n);
  call.num_bytes2 = static_cast<uint32_t>(n);
}

void Notice::fire() const {
  switch (kind) {
    case Kind::mat:
      reinterpret_cast<pipe_mat_update_cb>(cb)(dev, tbl, static_cast<pipe_mat_update_type_t>(type), a, b, cookie);
      break;
    case Kind::adt:
      reinterpret_cast<pipe_adt_update_cb>(cb)(dev, tbl, static_cast<pipe_adt_update_type_t>(type), a, b, cookie);
      break;
    case Kind::sel:
      reinterpret_cast<pipe_sel_update_cb>(cb)(dev, tbl, static_cast<pipe_sel_update_type_t>(type), a, b, cookie);
      break;
    case Kind::sel_tbl:
      reinterpret_cast<pipe_sel_tbl_update_cb>(cb)(dev, tbl, a, b, is_add, cookie);
      break;
    case Kind::sync:
      reinterpret_cast<pipe_mgr_sync_cb>(cb)(dev, cookie);
      break;
  }
}

void RecordedCall::set_text(const char *s) {
  if (s == nullptr) return;
  text = s;
  call.text = text.c_str();
}

RecordedCall *record(const char *fn) {
  if (!g_recording) return nullptr;
  g_calls.emplace_back();
  RecordedCall &rec = g_calls.back();
  rec.call.fn = fn;
  return &rec;
}

bool take_fault_slow(const char *fn, bf_status_t *status) {
  auto it = g_faults.find(fn);
  if (it == g_faults.end() || it->second.empty()) return false;
  *status = it->second.front();
  it->second.pop_front();
  if (it->second.empty()) g_faults.erase(it);
  --g_faults_pending;
  return true;
}

void reset_calls_and_faults() {
  g_calls.clear();
  g_faults.clear();
  g_faults_pending = 0;
  g_recording = true;
  g_passthrough.store(false, std::memory_order_relaxed);
  g_passthrough_hdl.store(0, std::memory_order_relaxed);
}

}  // namespace drvm

using namespace drvm;

extern "C" {

void drvm_reset(void) {
  const ModelLock lock;
  reset_calls_and_faults();
  reset_sys();
  reset_clients();
  reset_profiles();
  reset_cells();
  reset_telemetry();
  reset_store();
  g_clock_us = 0;
}

uint64_t drvm_clock_us(void) {
  const ModelLock lock;
  return g_clock_us;
}

void drvm_advance_clock(uint64_t usecs) {
  {
    const ModelLock lock;
    g_clock_us += usecs;
  }
  idle_clock_tick();
  learn_clock_tick();
}

void drvm_set_recording(int on) {
  const ModelLock lock;
  g_recording = on != 0;
}

void drvm_set_passthrough(int on) { g_passthrough.store(on != 0, std::memory_order_relaxed); }

size_t drvm_call_count(void) {
  const ModelLock lock;
  return g_calls.size();
}

const drvm_call_t *drvm_call(size_t i) {
  const ModelLock lock;
  return i < g_calls.size() ? &g_calls[i].call : nullptr;
}

const drvm_call_t *drvm_last_call(const char *fn) {
  const ModelLock lock;
  for (auto it = g_calls.rbegin(); it != g_calls.rend(); ++it)
    if (names_fn(it->call, fn)) return &it->call;
  return nullptr;
}

size_t drvm_count_calls(const char *fn) {
  const ModelLock lock;
  size_t n = 0;
  for (const RecordedCall &rec : g_calls) n += names_fn(rec.call, fn) ? 1 : 0;
  return n;
}

void drvm_clear_calls(void) {
  const ModelLock lock;
  g_calls.clear();
}

void drvm_fail_next(const char *fn, bf_status_t status) {
  if (fn == nullptr) return;
  const ModelLock lock;
  g_faults[fn].push_back(status);
  ++g_faults_pending;
}

}  // extern "C"
