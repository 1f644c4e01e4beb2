// Meters and WRED by handle, for callers that hold a resource handle themselves. Unlike the
// per-meter functions, these check the requested meter type with hard assertions.
#include "assertion.h"

extern "C" {
#include "corvin_switch/pd.h"
}

namespace {

// The type the driver takes: colour-aware only for a colour-aware request with pre-colouring.
// Out-of-range requests and colour-aware requests without pre-colouring end the process, reported
// from the conversion of the meter's unit.
uint32_t checked_meter_type(uint32_t requested_meter_type, bool has_pre_color, const char *function) {
  if (requested_meter_type > PD_METER_TYPE_COLOR_UNAWARE)
    CV_HARD_ASSERT("requested_meter_type == PD_METER_TYPE_COLOR_AWARE || "
                   "requested_meter_type == PD_METER_TYPE_COLOR_UNAWARE",
                   function);
  if (requested_meter_type == PD_METER_TYPE_COLOR_AWARE && !has_pre_color)
    CV_HARD_ASSERT("has_pre_color == true", function);
  return requested_meter_type == PD_METER_TYPE_COLOR_AWARE ? 0 : 1;
}

uint32_t get_packets_meter_type(uint32_t requested_meter_type, bool has_pre_color) {
  return checked_meter_type(requested_meter_type, has_pre_color, __func__);
}

uint32_t get_bytes_meter_type(uint32_t requested_meter_type, bool has_pre_color) {
  return checked_meter_type(requested_meter_type, has_pre_color, __func__);
}

p4_pd_status_t meter_set(p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt, uint32_t handle, uint32_t index,
                         const p4_pd_meter_spec_t &spec, uint32_t type, uint32_t unit) {
  pipe_meter_spec_t m{};
  m.meter_type = type;
  m.cir_unit = unit;
  m.cir = spec.cir;
  m.cburst = spec.cburst;
  m.pir_unit = unit;
  m.pir = spec.pir;
  m.pburst = spec.pburst;
  return static_cast<p4_pd_status_t>(pipe_mgr_meter_ent_set(sess, tgt.device_id, tgt.dev_pipe_id, handle, index, &m, 0));
}

p4_pd_status_t meter_read(p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt, uint32_t handle, uint32_t index,
                          p4_pd_meter_spec_t *spec) {
  pipe_meter_spec_t m{};
  pipe_status_t st = pipe_mgr_meter_read_entry_idx(sess, tgt.device_id, tgt.dev_pipe_id, handle, index, &m, 0);
  if (st != 0) return static_cast<p4_pd_status_t>(st);
  spec->cir = static_cast<uint32_t>(m.cir);
  spec->cburst = static_cast<uint32_t>(m.cburst);
  spec->pir = static_cast<uint32_t>(m.pir);
  spec->pburst = static_cast<uint32_t>(m.pburst);
  spec->meter_type = m.meter_type;
  return 0;
}

}  // namespace

extern "C" {

P4_PD_EXPORT p4_pd_status_t p4_pd_corvin_switch_packets_meter_set(p4_pd_sess_hdl_t sess_hdl,
                                                                  p4_pd_dev_target_t dev_tgt, uint32_t meter_handle,
                                                                  uint32_t index, p4_pd_meter_spec_t *meter_spec,
                                                                  uint8_t has_pre_color) {
  uint32_t type = get_packets_meter_type(meter_spec->meter_type, has_pre_color != 0);
  return meter_set(sess_hdl, dev_tgt, meter_handle, index, *meter_spec, type, PIPE_METER_RATE_UNIT_PACKETS);
}

P4_PD_EXPORT p4_pd_status_t p4_pd_corvin_switch_bytes_meter_set(p4_pd_sess_hdl_t sess_hdl, p4_pd_dev_target_t dev_tgt,
                                                                uint32_t meter_handle, uint32_t index,
                                                                p4_pd_meter_spec_t *meter_spec, uint8_t has_pre_color) {
  uint32_t type = get_bytes_meter_type(meter_spec->meter_type, has_pre_color != 0);
  return meter_set(sess_hdl, dev_tgt, meter_handle, index, *meter_spec, type, PIPE_METER_RATE_UNIT_BYTES);
}

P4_PD_EXPORT p4_pd_status_t p4_pd_corvin_switch_packets_meter_read(p4_pd_sess_hdl_t sess_hdl,
                                                                   p4_pd_dev_target_t dev_tgt, uint32_t meter_handle,
                                                                   uint32_t index, p4_pd_meter_spec_t *meter_spec) {
  return meter_read(sess_hdl, dev_tgt, meter_handle, index, meter_spec);
}

P4_PD_EXPORT p4_pd_status_t p4_pd_corvin_switch_bytes_meter_read(p4_pd_sess_hdl_t sess_hdl,
                                                                 p4_pd_dev_target_t dev_tgt, uint32_t meter_handle,
                                                                 uint32_t index, p4_pd_meter_spec_t *meter_spec) {
  return meter_read(sess_hdl, dev_tgt, meter_handle, index, meter_spec);
}

// The four words are copied in their order.
P4_PD_EXPORT p4_pd_status_t p4_pd_corvin_switch_wred_set(p4_pd_sess_hdl_t sess_hdl, p4_pd_dev_target_t dev_tgt,
                                                         uint32_t handle, uint32_t index,
                                                         p4_pd_wred_spec_t *wred_spec) {
  pipe_wred_spec_t w;
  w.time_constant = wred_spec->time_constant;
  w.red_min_threshold = wred_spec->red_min_threshold;
  w.red_max_threshold = wred_spec->red_max_threshold;
  w.max_probability = wred_spec->max_probability;
  return static_cast<p4_pd_status_t>(
      pipe_mgr_wred_ent_set(sess_hdl, dev_tgt.device_id, dev_tgt.dev_pipe_id, handle, index, &w, 0));
}

}  // extern "C"
