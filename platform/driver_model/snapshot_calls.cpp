// Pipeline snapshots: creation over a range of stages of one pipe (or all) in one direction, the
// trigger, the size of the driver's capture buffer, and the captures packets make
// (drvm_snapshot_packet).
//
// The chip is configured by drvm_snapshot_configure: its stage count, the size of one stage's block
// in the capture buffer and the size of the field record. A snapshot keeps its trigger (value and
// mask, a field record each) and, per pipe, the record of the packet it captured; a capture is taken
// once per arming (trigger set) and pipe.
#include <algorithm>
#include <cstring>
#include <map>
#include <utility>
#include <vector>

#include "telemetry.h"

using namespace drvm;

namespace {

constexpr uint32_t kDefaultStages = 20;
constexpr uint32_t kDefaultPerStage = 1024;
constexpr uint32_t kDefaultRecord = 809;
constexpr uint32_t kLastSerial = 0x3FFFFFFFu;  // handles are the serial shifted left by two

struct Config {
  uint32_t stages = kDefaultStages;
  uint32_t per_stage = kDefaultPerStage;
  uint32_t record = kDefaultRecord;
};

struct Snap {
  bf_dev_id_t dev = 0;
  uint32_t pipe = 0;
  uint32_t start = 0, end = 0;
  bool has_trigger = false;
  std::vector<uint8_t> value, mask;
  std::map<uint32_t, std::vector<uint8_t>> captures;  // pipe -> the record captured there

  uint32_t stages() const { return end - start + 1; }
  bool covers(uint32_t p) const { return pipe == BF_DEV_PIPE_ALL || pipe == p; }
};

Config g_cfg;
std::map<uint32_t, Snap> g_snaps;
uint32_t g_serial = 0;  // the last serial issued

Snap *find_snap(uint32_t hdl) {
  auto it = g_snaps.find(hdl);
  return it == g_snaps.end() ? nullptr : &it->second;
}

bool matches(const Snap &s, const uint8_t *phv) {
  for (size_t i = 0; i < s.value.size(); ++i)
    if (((phv[i] ^ s.value[i]) & s.mask[i]) != 0) return false;
  return true;
}

}  // namespace

namespace drvm {

void reset_snapshots() {
  g_cfg = Config{};
  g_snaps.clear();
  g_serial = 0;
}

}  // namespace drvm

extern "C" {

bf_status_t bf_snapshot_create(bf_dev_id_t dev_id, bf_dev_pipe_t pipe, uint32_t start_stage, uint32_t end_stage,
                               uint32_t direction, pipe_snapshot_hdl_t *hdl) {
  return DRIVER_CALL(
      "bf_snapshot_create", PassThrough::none(),
      [&](RecordedCall &r) {
        r.call.dev_tgt = dev_target_t{dev_id, pipe};
        r.call.arg_u32[0] = start_stage;
        r.call.arg_u32[1] = end_stage;
        r.call.arg_u32[2] = direction;
        r.call.ptr_arg = hdl;
      },
      [&](RecordedCall *rec, Notices &) -> bf_status_t {
        if (hdl == nullptr || (direction != BF_SNAPSHOT_DIR_INGRESS && direction != BF_SNAPSHOT_DIR_EGRESS) ||
            end_stage < start_stage || end_stage >= g_cfg.stages)
          return BF_INVALID_ARG;
        if (g_serial >= kLastSerial) return BF_NO_SPACE;
        const uint32_t h = ((g_serial + 1) << 2) | (direction == BF_SNAPSHOT_DIR_EGRESS ? BF_SNAPSHOT_HDL_EGRESS_BIT : 0);
        Snap s;
        s.dev = dev_id;
        s.pipe = pipe;
        s.start = start_stage;
        s.end = end_stage;
        g_snaps.emplace_hint(g_snaps.end(), h, std::move(s));  // may throw; the commit
        ++g_serial;
        *hdl = h;
        if (rec) rec->call.tbl_hdl = h;
        return BF_SUCCESS;
      });
}

bf_status_t bf_snapshot_delete(pipe_snapshot_hdl_t hdl) {
  return DRIVER_CALL(
      "bf_snapshot_delete", PassThrough::none(), [&](RecordedCall &r) { r.call.tbl_hdl = hdl; },
      [&](RecordedCall *, Notices &) -> bf_status_t { return g_snaps.erase(hdl) ? BF_SUCCESS : BF_OBJECT_NOT_FOUND; });
}

bf_status_t bf_snapshot_capture_trigger_set(pipe_snapshot_hdl_t hdl, void *trig_spec, void *trig_mask) {
  return DRIVER_CALL(
      "bf_snapshot_capture_trigger_set", PassThrough::none(),
      [&](RecordedCall &r) {
        r.call.tbl_hdl = hdl;
        r.copy_bytes(static_cast<const uint8_t *>(trig_spec), g_cfg.record);
        r.copy_bytes2(static_cast<const uint8_t *>(trig_mask), g_cfg.record);
      },
      [&](RecordedCall *, Notices &) -> bf_status_t {
        Snap *s = find_snap(hdl);
        if (s == nullptr) return BF_OBJECT_NOT_FOUND;
        if (trig_spec == nullptr || trig_mask == nullptr) return BF_INVALID_ARG;
        const uint8_t *v = static_cast<const uint8_t *>(trig_spec), *m = static_cast<const uint8_t *>(trig_mask);
        std::vector<uint8_t> value(v, v + g_cfg.record), mask(m, m + g_cfg.record);  // may throw
        s->value.swap(value);
        s->mask.swap(mask);
        s->has_trigger = true;
        s->captures.clear();  // re-armed
        return BF_SUCCESS;
      });
}

bf_status_t bf_snapshot_capture_phv_fields_dict_size(pipe_snapshot_hdl_t hdl, uint32_t *total_size,
                                                     uint32_t *per_stage_size) {
  return DRIVER_CALL(
      "bf_snapshot_capture_phv_fields_dict_size", PassThrough::none(),
      [&](RecordedCall &r) {
        r.call.tbl_hdl = hdl;
        r.call.ptr_arg = total_size;
        r.call.ptr_arg2 = per_stage_size;
      },
      [&](RecordedCall *rec, Notices &) -> bf_status_t {
        const Snap *s = find_snap(hdl);
        if (s == nullptr) return BF_OBJECT_NOT_FOUND;
        if (total_size == nullptr || per_stage_size == nullptr) return BF_INVALID_ARG;
        const uint32_t total = s->stages() * g_cfg.per_stage;
        *total_size = total;
        *per_stage_size = g_cfg.per_stage;
        if (rec) {
          rec->call.arg_u32[0] = total;
          rec->call.arg_u32[1] = g_cfg.per_stage;
        }
        return BF_SUCCESS;
      });
}

bf_status_t bf_snapshot_capture_get(pipe_snapshot_hdl_t hdl, bf_dev_pipe_t pipe, uint8_t *capture,
                                    bf_snapshot_capture_ctrl_info_arr_t *ctrl, int *num_captures) {
  return DRIVER_CALL(
      "bf_snapshot_capture_get", PassThrough::none(),
      [&](RecordedCall &r) {
        r.call.tbl_hdl = hdl;
        r.call.dev_tgt = dev_target_t{0, pipe};
        r.call.ptr_arg = capture;
        r.call.ptr_arg2 = ctrl;
      },
      [&](RecordedCall *rec, Notices &) -> bf_status_t {
        const Snap *s = find_snap(hdl);
        if (s == nullptr) return BF_OBJECT_NOT_FOUND;
        if (capture == nullptr || num_captures == nullptr) return BF_INVALID_ARG;
        if (pipe != BF_DEV_PIPE_ALL && !s->covers(pipe)) return BF_INVALID_ARG;
        const std::vector<uint8_t> *record = nullptr;
        if (pipe == BF_DEV_PIPE_ALL) {
          if (!s->captures.empty()) record = &s->captures.begin()->second;
        } else if (auto it = s->captures.find(pipe); it != s->captures.end()) {
          record = &it->second;
        }
        const uint32_t n = s->stages();
        std::memset(capture, 0, size_t(n) * g_cfg.per_stage);
        if (record)
          for (uint32_t i = 0; i < n; ++i) std::memcpy(capture + size_t(i) * g_cfg.per_stage, record->data(), g_cfg.record);
        if (ctrl) {
          std::memset(ctrl, 0, sizeof *ctrl);
          for (uint32_t i = 0; i < n && i < BF_SNAPSHOT_MAX_STAGES; ++i) {
            bf_snapshot_capture_ctrl_info_t &c = ctrl->ctrl[i];
            c.stage_id = s->start + i;
            c.valid = record ? 1 : 0;
            c.local_stage_trigger = record && i == 0 ? 1 : 0;
            c.prev_stage_trigger = record && i > 0 ? 1 : 0;
          }
        }
        const int num = record ? static_cast<int>(n) : 0;
        *num_captures = num;
        if (rec) rec->call.arg_u32[0] = static_cast<uint32_t>(num);
        return BF_SUCCESS;
      });
}

// ---- The model's side ----

bf_status_t drvm_snapshot_configure(uint32_t stages, uint32_t per_stage_size, uint32_t field_record_size) {
  const ModelLock lock;
  if (stages == 0 || field_record_size == 0 || per_stage_size < field_record_size ||
      uint64_t(stages) * per_stage_size > 0xFFFFFFFFu)
    return BF_INVALID_ARG;
  if (!g_snaps.empty()) return BF_IN_USE;
  g_cfg = Config{stages, per_stage_size, field_record_size};
  return BF_SUCCESS;
}

bf_status_t drvm_snapshot_packet(pipe_snapshot_hdl_t hdl, bf_dev_pipe_t pipe, const uint8_t *phv_record,
                                 int *captured) {
  const ModelLock lock;
  Snap *s = find_snap(hdl);
  if (s == nullptr) return BF_OBJECT_NOT_FOUND;
  if (phv_record == nullptr || pipe == BF_DEV_PIPE_ALL) return BF_INVALID_ARG;
  bool took = false;
  if (s->has_trigger && s->covers(pipe) && s->captures.count(pipe) == 0 && matches(*s, phv_record)) {
    try {
      s->captures.emplace(pipe, std::vector<uint8_t>(phv_record, phv_record + g_cfg.record));
    } catch (const std::bad_alloc &) {
      return BF_NO_SYS_RESOURCES;
    }
    took = true;
  }
  if (captured) *captured = took ? 1 : 0;
  return BF_SUCCESS;
}

size_t drvm_snapshot_count(void) {
  const ModelLock lock;
  return g_snaps.size();
}

bf_status_t drvm_snapshot_trigger(pipe_snapshot_hdl_t hdl, const uint8_t **value, const uint8_t **mask) {
  const ModelLock lock;
  const Snap *s = find_snap(hdl);
  if (s == nullptr || !s->has_trigger) return BF_OBJECT_NOT_FOUND;
  if (value) *value = s->value.data();
  if (mask) *mask = s->mask.data();
  return BF_SUCCESS;
}

}  // extern "C"
