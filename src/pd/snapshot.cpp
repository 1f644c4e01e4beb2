// Pipeline snapshots: the trigger's multi-byte fields turned into network order by the program's
// fixed lists, and the captured stages copied out of the driver's buffer.
#include <cstring>
#include <utility>

#include "assertion.h"
#include "catalog_desc.h"

extern "C" {
#include "corvin_switch/pd.h"
#include "drv/bf_sys.h"
}

namespace cv::pd {
namespace {

// A field by its offset and width as values: a reference to an element of the list is no template
// argument every compiler takes.
template <uint16_t Offset, uint8_t Bytes>
inline __attribute__((always_inline)) void swap_field(uint8_t *rec) {
  uint8_t *p = rec + Offset;
  if constexpr (Bytes == 2) {
    std::swap(p[0], p[1]);
  } else {
    static_assert(Bytes == 4);
    std::swap(p[0], p[3]);
    std::swap(p[1], p[2]);
  }
}

// One form's list, unrolled at compile time: a fixed sequence of byte swaps, no table walked.
template <const auto &List, size_t... I>
inline __attribute__((always_inline)) void swap_all(uint8_t *rec, std::index_sequence<I...>) {
  (swap_field<List[I].offset, List[I].bytes>(rec), ...);
}

template <const auto &List>
void to_network_order(uint8_t *value, uint8_t *mask) {
  constexpr size_t n = sizeof List / sizeof List[0];
  swap_all<List>(value, std::make_index_sequence<n>{});
  swap_all<List>(mask, std::make_index_sequence<n>{});
}

static_assert(sizeof(p4_pd_corvin_switch_snapshot_trig_spec_t) == desc::kSnapshotRecordBytes);
static_assert(sizeof(p4_pd_corvin_switch_snapshot_capture_arr_t) ==
              desc::kSnapshotRecordBytes * desc::kSnapshotMaxStages);

}  // namespace
}  // namespace cv::pd

using namespace cv::pd;

extern "C" {

P4_PD_EXPORT p4_pd_status_t p4_pd_corvin_switch_snapshot_create(p4_pd_dev_target_t dev_tgt, uint8_t start_stage,
                                                                uint8_t end_stage, p4_pd_snapshot_dir_t direction,
                                                                p4_pd_snapshot_hdl_t *hdl) {
  return static_cast<p4_pd_status_t>(
      bf_snapshot_create(dev_tgt.device_id, dev_tgt.dev_pipe_id, start_stage, end_stage, direction, hdl));
}

P4_PD_EXPORT p4_pd_status_t p4_pd_corvin_switch_snapshot_delete(p4_pd_snapshot_hdl_t hdl) {
  return static_cast<p4_pd_status_t>(bf_snapshot_delete(hdl));
}

// Bit 1 of the handle says the direction, and with it the form of the record.
P4_PD_EXPORT p4_pd_status_t p4_pd_corvin_switch_snapshot_capture_trigger_set(
    p4_pd_snapshot_hdl_t hdl, p4_pd_corvin_switch_snapshot_trig_spec_t *trig_spec,
    p4_pd_corvin_switch_snapshot_trig_spec_t *trig_mask) {
  p4_pd_corvin_switch_snapshot_trig_spec_t value, mask;
  std::memcpy(&value, trig_spec, sizeof value);
  std::memcpy(&mask, trig_mask, sizeof mask);
  if (hdl & BF_SNAPSHOT_HDL_EGRESS_BIT)
    to_network_order<desc::kSnapshotEgress>(value.bytes, mask.bytes);
  else
    to_network_order<desc::kSnapshotIngress>(value.bytes, mask.bytes);
  return static_cast<p4_pd_status_t>(bf_snapshot_capture_trigger_set(hdl, &value, &mask));
}

// The driver's per-stage blocks are at least a record long; what follows a record in its block is
// dropped. No more stages are copied than the chip has.
P4_PD_EXPORT p4_pd_status_t p4_pd_corvin_switch_snapshot_capture_data_get(
    p4_pd_snapshot_hdl_t hdl, uint32_t pipe_id, p4_pd_corvin_switch_snapshot_capture_arr_t *capture,
    p4_pd_snapshot_capture_ctrl_info_arr_t *capture_ctrl_arr, int *num_captures) {
  *num_captures = 0;
  uint32_t total = 0, per_stage = 0;
  (void)bf_snapshot_capture_phv_fields_dict_size(hdl, &total, &per_stage);
  auto *buf = static_cast<uint8_t *>(bf_sys_calloc(total, 1));
  if (buf == nullptr) return kStatusNoMemory;
  bf_status_t st = bf_snapshot_capture_get(hdl, pipe_id, buf, capture_ctrl_arr, num_captures);
  // A per-stage size of 0, or one shorter than a record, is the driver's fault: nothing is copied
  // that the buffer does not hold.
  size_t stages = per_stage ? total / per_stage : 0;
  for (size_t i = 0; i < stages && i < desc::kSnapshotMaxStages; ++i) {
    size_t at = i * per_stage;
    if (at + desc::kSnapshotRecordBytes > total) break;
    std::memcpy(capture->captured_stages[i].bytes, buf + at, desc::kSnapshotRecordBytes);
  }
  bf_sys_free(buf);
  return static_cast<p4_pd_status_t>(st);
}

}  // extern "C"
