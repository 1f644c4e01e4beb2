// Idle time, learning digests, parser value sets and dynamic hashes: thin calls that add the
// object's handle, with the few conversions each family has.
#pragma once

#include "encode.h"

extern "C" {
#include "corvin_switch/pd.h"
}

namespace cv::pd {

// The driver's answer to an enumerator or handle it does not know.
inline constexpr p4_pd_status_t kStatusInvalidArg = 3;

// ---- Idle time ----

// The driver's eight words: the caller's first five, a zero, the cookie, a zero.
template <const TableDesc &T>
CV_INLINE p4_pd_status_t idle_tmo_enable(p4_pd_sess_hdl_t sess, uint32_t dev, p4_pd_idle_time_params_t params) {
  pipe_idle_time_params_t d{};
  d.mode = params.mode;
  d.ttl_query_interval = params.ttl_query_interval;
  d.max_ttl = params.max_ttl;
  d.min_ttl = params.min_ttl;
  d.callback_fn = params.callback;
  d.client_data = params.cookie;
  pipe_status_t st = pipe_mgr_idle_set_params(sess, dev, T.handle, d);
  if (st != 0) return static_cast<p4_pd_status_t>(st);  // not enabled; nothing set
  return static_cast<p4_pd_status_t>(pipe_mgr_idle_tmo_set_enable(sess, dev, T.handle, true));
}

template <const TableDesc &T>
CV_INLINE p4_pd_status_t idle_tmo_disable(p4_pd_sess_hdl_t sess, uint32_t dev) {
  return static_cast<p4_pd_status_t>(pipe_mgr_idle_tmo_set_enable(sess, dev, T.handle, false));
}

template <const TableDesc &T>
CV_INLINE p4_pd_status_t idle_register_tmo_cb(p4_pd_sess_hdl_t sess, uint32_t dev, p4_pd_idle_tmo_expiry_cb cb,
                                              void *cookie) {
  return static_cast<p4_pd_status_t>(pipe_mgr_idle_register_tmo_cb(sess, dev, T.handle, cb, cookie));
}

// Only the notification mode has parameters: in another mode the read gives the mode alone.
template <const TableDesc &T>
CV_INLINE p4_pd_status_t idle_params_get(p4_pd_sess_hdl_t sess, uint32_t dev, p4_pd_idle_time_params_t *params) {
  pipe_idle_time_params_t d{};
  pipe_status_t st = pipe_mgr_idle_get_params(sess, dev, T.handle, &d);
  if (st != 0) return static_cast<p4_pd_status_t>(st);
  params->mode = d.mode;
  if (d.mode != PD_IDLE_TIME_MODE_NOTIFY) return 0;
  params->flag = 0;
  params->ttl_query_interval = d.ttl_query_interval;
  params->max_ttl = d.max_ttl;
  params->min_ttl = d.min_ttl;
  params->callback = d.callback_fn;
  params->cookie = d.client_data;
  return 0;
}

template <const TableDesc &T>
CV_INLINE p4_pd_status_t set_ttl(p4_pd_sess_hdl_t sess, uint32_t dev, p4_pd_entry_hdl_t ent, uint32_t ttl) {
  return static_cast<p4_pd_status_t>(pipe_mgr_mat_ent_set_idle_ttl(sess, dev, T.handle, ent, ttl, 0, false));
}

template <const TableDesc &T>
CV_INLINE p4_pd_status_t get_ttl(p4_pd_sess_hdl_t sess, uint32_t dev, p4_pd_entry_hdl_t ent, uint32_t *ttl) {
  return static_cast<p4_pd_status_t>(pipe_mgr_mat_ent_get_idle_ttl(sess, dev, T.handle, ent, ttl));
}

template <const TableDesc &T>
CV_INLINE p4_pd_status_t reset_ttl(p4_pd_sess_hdl_t sess, uint32_t dev, p4_pd_entry_hdl_t ent) {
  return static_cast<p4_pd_status_t>(pipe_mgr_mat_ent_reset_idle_ttl(sess, dev, T.handle, ent));
}

template <const TableDesc &T>
CV_INLINE p4_pd_status_t update_hit_state(p4_pd_sess_hdl_t sess, uint32_t dev, p4_pd_idle_tmo_update_complete_cb cb,
                                          void *cookie) {
  return static_cast<p4_pd_status_t>(pipe_mgr_idle_time_update_hit_state(sess, dev, T.handle, cb, cookie));
}

// Unlike the other reads, the caller's word is written whatever the driver answers: the caller
// looks at the status first.
template <const TableDesc &T>
CV_INLINE p4_pd_status_t get_hit_state(p4_pd_sess_hdl_t sess, uint32_t dev, p4_pd_entry_hdl_t ent,
                                       p4_pd_idle_time_hit_state_e *hit_state) {
  uint32_t local = PIPE_IDLE_TIME_HIT_STATE_IDLE;
  pipe_status_t st = pipe_mgr_idle_time_get_hit_state(sess, dev, T.handle, ent, &local);
  *hit_state = local;
  return static_cast<p4_pd_status_t>(st);
}

// ---- Learning digests ----

// The caller's callback goes to the driver as it is: the driver delivers to it directly.
template <const HandleDesc &D>
CV_INLINE p4_pd_status_t digest_register(p4_pd_sess_hdl_t sess, uint8_t dev, p4_pd_digest_notify_cb cb,
                                         void *cookie) {
  return static_cast<p4_pd_status_t>(pipe_mgr_lrn_digest_notification_register(sess, dev, D.handle, cb, cookie));
}

template <const HandleDesc &D>
CV_INLINE p4_pd_status_t digest_deregister(p4_pd_sess_hdl_t sess, uint8_t dev) {
  return static_cast<p4_pd_status_t>(pipe_mgr_lrn_digest_notification_deregister(sess, dev, D.handle));
}

template <const HandleDesc &D>
CV_INLINE p4_pd_status_t digest_notify_ack(p4_pd_sess_hdl_t sess, p4_pd_digest_msg_t *msg) {
  return static_cast<p4_pd_status_t>(pipe_mgr_flow_lrn_notify_ack(sess, D.handle, msg));
}

// ---- Parser value sets ----

// Properties travel as the driver's aggregates: the value and a zero word; the argument and two
// zero words. The enumerations are the driver's own numbers and pass unconverted.
template <const HandleDesc &V>
CV_INLINE p4_pd_status_t pvs_set_property(p4_pd_sess_hdl_t sess, uint32_t dev, p4_pd_pvs_prop_type_t property,
                                          p4_pd_pvs_prop_value_t value, p4_pd_pvs_prop_args_t args) {
  pipe_mgr_pvs_prop_value_t v{value, 0};
  pipe_mgr_pvs_prop_args_t a{args, 0, 0};
  return static_cast<p4_pd_status_t>(pipe_mgr_pvs_set_property(sess, dev, V.handle, property, v, a));
}

// The one read of value sets that writes on failure: all ones.
template <const HandleDesc &V>
CV_INLINE p4_pd_status_t pvs_get_property(p4_pd_sess_hdl_t sess, uint32_t dev, p4_pd_pvs_prop_type_t property,
                                          p4_pd_pvs_prop_value_t *value, p4_pd_pvs_prop_args_t args) {
  pipe_mgr_pvs_prop_value_t v{};
  pipe_mgr_pvs_prop_args_t a{args, 0, 0};
  pipe_status_t st = pipe_mgr_pvs_get_property(sess, dev, V.handle, property, &v, a);
  *value = st == 0 ? v.value : 0xFFFFFFFFu;
  return static_cast<p4_pd_status_t>(st);
}

template <const HandleDesc &V>
CV_INLINE p4_pd_status_t pvs_entry_add(p4_pd_sess_hdl_t sess, uint32_t dev, p4_pd_pvs_gress_t gress, uint32_t pipe,
                                       uint8_t parser_id, uint32_t value, uint32_t mask, p4_pd_pvs_hdl_t *hdl) {
  return static_cast<p4_pd_status_t>(
      pipe_mgr_pvs_entry_add(sess, dev, V.handle, gress, pipe, parser_id, value, mask, hdl));
}

template <const HandleDesc &V>
CV_INLINE p4_pd_status_t pvs_entry_modify(p4_pd_sess_hdl_t sess, uint32_t dev, p4_pd_pvs_hdl_t hdl, uint32_t value,
                                          uint32_t mask) {
  return static_cast<p4_pd_status_t>(pipe_mgr_pvs_entry_modify(sess, dev, V.handle, hdl, value, mask));
}

template <const HandleDesc &V>
CV_INLINE p4_pd_status_t pvs_entry_delete(p4_pd_sess_hdl_t sess, uint32_t dev, p4_pd_pvs_hdl_t hdl) {
  return static_cast<p4_pd_status_t>(pipe_mgr_pvs_entry_delete(sess, dev, V.handle, hdl));
}

// The entry's scope is not asked for.
template <const HandleDesc &V>
CV_INLINE p4_pd_status_t pvs_entry_get(p4_pd_sess_hdl_t sess, uint32_t dev, p4_pd_pvs_hdl_t hdl, uint32_t *value,
                                       uint32_t *mask) {
  return static_cast<p4_pd_status_t>(
      pipe_mgr_pvs_entry_get(sess, dev, V.handle, hdl, value, mask, nullptr, nullptr, nullptr));
}

template <const HandleDesc &V>
CV_INLINE p4_pd_status_t pvs_entry_handle_get(p4_pd_sess_hdl_t sess, uint32_t dev, p4_pd_pvs_gress_t gress,
                                              uint32_t pipe, uint8_t parser_id, uint32_t value, uint32_t mask,
                                              p4_pd_pvs_hdl_t *hdl) {
  return static_cast<p4_pd_status_t>(
      pipe_mgr_pvs_entry_handle_get(sess, dev, V.handle, gress, pipe, parser_id, value, mask, hdl));
}

template <const HandleDesc &V>
CV_INLINE p4_pd_status_t pvs_entry_get_first(p4_pd_sess_hdl_t sess, uint32_t dev, p4_pd_pvs_gress_t gress,
                                             uint32_t pipe, uint8_t parser_id, p4_pd_pvs_hdl_t *hdl) {
  return static_cast<p4_pd_status_t>(pipe_mgr_pvs_entry_get_first(sess, dev, V.handle, gress, pipe, parser_id, hdl));
}

template <const HandleDesc &V>
CV_INLINE p4_pd_status_t pvs_entry_get_next(p4_pd_sess_hdl_t sess, uint32_t dev, p4_pd_pvs_gress_t gress,
                                            uint32_t pipe, uint8_t parser_id, p4_pd_pvs_hdl_t hdl, int n,
                                            p4_pd_pvs_hdl_t *next) {
  return static_cast<p4_pd_status_t>(
      pipe_mgr_pvs_entry_get_next(sess, dev, V.handle, gress, pipe, parser_id, hdl, n, next));
}

template <const HandleDesc &V>
CV_INLINE p4_pd_status_t pvs_entry_get_count(p4_pd_sess_hdl_t sess, uint32_t dev, p4_pd_pvs_gress_t gress,
                                             uint32_t pipe, uint8_t parser_id, uint8_t read_from_hw,
                                             uint32_t *count) {
  return static_cast<p4_pd_status_t>(
      pipe_mgr_pvs_entry_get_count(sess, dev, V.handle, gress, pipe, parser_id, read_from_hw != 0, count));
}

// ---- Dynamic hashes ----

// The caller's enumerator 0 is the hash's one input field list or algorithm; any other goes to
// the driver as handle 0, for the driver to refuse.
template <const HashDesc &H>
CV_INLINE uint32_t input_handle(p4_pd_hash_calc_input_t input) {
  return input == PD_HASH_CALC_INPUT_FIELD_LIST ? H.input : 0;
}

template <const HashDesc &H>
CV_INLINE p4_pd_status_t hash_input_set(p4_pd_sess_hdl_t sess, uint32_t dev, p4_pd_hash_calc_input_t input) {
  return static_cast<p4_pd_status_t>(pipe_mgr_hash_calc_input_set(sess, dev, H.handle, input_handle<H>(input)));
}

// A handle read back that is not the hash's own is status 3, whatever the driver said.
template <const HashDesc &H>
CV_INLINE p4_pd_status_t hash_input_get(p4_pd_sess_hdl_t sess, uint32_t dev, p4_pd_hash_calc_input_t *input) {
  uint32_t h = 0;
  pipe_status_t st = pipe_mgr_hash_calc_input_get(sess, dev, H.handle, &h);
  if (h != H.input) return kStatusInvalidArg;
  *input = PD_HASH_CALC_INPUT_FIELD_LIST;
  return static_cast<p4_pd_status_t>(st);
}

template <const HashDesc &H>
CV_INLINE p4_pd_status_t hash_algorithm_set(p4_pd_sess_hdl_t sess, uint32_t dev, p4_pd_hash_calc_algorithm_t algorithm) {
  uint32_t a = algorithm == PD_HASH_CALC_ALGORITHM ? H.algorithm : 0;
  return static_cast<p4_pd_status_t>(pipe_mgr_hash_calc_algorithm_set(sess, dev, H.handle, a, nullptr, 0, 0));
}

template <const HashDesc &H>
CV_INLINE p4_pd_status_t hash_algorithm_get(p4_pd_sess_hdl_t sess, uint32_t dev,
                                            p4_pd_hash_calc_algorithm_t *algorithm) {
  uint32_t a = 0;
  pipe_status_t st = pipe_mgr_hash_calc_algorithm_get(sess, dev, H.handle, &a, nullptr, nullptr);
  if (a != H.algorithm) return kStatusInvalidArg;
  *algorithm = PD_HASH_CALC_ALGORITHM;
  return static_cast<p4_pd_status_t>(st);
}

template <const HashDesc &H>
CV_INLINE p4_pd_status_t hash_seed_set(p4_pd_sess_hdl_t sess, uint32_t dev, uint64_t seed) {
  return static_cast<p4_pd_status_t>(pipe_mgr_hash_calc_seed_set(sess, dev, H.handle, seed));
}

template <const HashDesc &H>
CV_INLINE p4_pd_status_t hash_seed_get(p4_pd_sess_hdl_t sess, uint32_t dev, uint64_t *seed) {
  return static_cast<p4_pd_status_t>(pipe_mgr_hash_calc_seed_get(sess, dev, H.handle, seed));
}

// The attribute functions and the calculation share one body for all hashes.
p4_pd_status_t hash_input_field_attribute_set(uint32_t hash, uint32_t input_hdl, p4_pd_sess_hdl_t sess, uint32_t dev,
                                              uint32_t attr_count, p4_pd_hash_calc_input_field_attribute_t *attr_list);
p4_pd_status_t hash_input_field_attribute_count_get(uint32_t hash, uint32_t input_hdl, p4_pd_sess_hdl_t sess,
                                                    uint32_t dev, p4_pd_hash_calc_input_t input, uint32_t *count);
p4_pd_status_t hash_input_field_attribute_get(uint32_t hash, uint32_t input_hdl, p4_pd_sess_hdl_t sess, uint32_t dev,
                                              p4_pd_hash_calc_input_t input, uint32_t max_attr_count,
                                              p4_pd_hash_calc_input_field_attribute_t *attr_list,
                                              uint32_t *num_attr_filled);
p4_pd_status_t hash_calculate_hash_value(uint32_t hash, p4_pd_sess_hdl_t sess, uint32_t dev, uint32_t attr_count,
                                         const p4_pd_hash_calc_input_field_attribute_t *attr_list,
                                         const uint32_t *attr_sizes, uint8_t *hash_value, uint32_t hash_len);

template <const HashDesc &H>
CV_INLINE p4_pd_status_t hash_input_field_attribute_set(p4_pd_sess_hdl_t sess, uint32_t dev,
                                                        p4_pd_hash_calc_input_t input, uint32_t attr_count,
                                                        p4_pd_hash_calc_input_field_attribute_t *attr_list) {
  return hash_input_field_attribute_set(H.handle, input_handle<H>(input), sess, dev, attr_count, attr_list);
}

template <const HashDesc &H>
CV_INLINE p4_pd_status_t hash_input_field_attribute_count_get(p4_pd_sess_hdl_t sess, uint32_t dev,
                                                              p4_pd_hash_calc_input_t input, uint32_t *count) {
  return hash_input_field_attribute_count_get(H.handle, H.input, sess, dev, input, count);
}

template <const HashDesc &H>
CV_INLINE p4_pd_status_t hash_input_field_attribute_get(p4_pd_sess_hdl_t sess, uint32_t dev,
                                                        p4_pd_hash_calc_input_t input, uint32_t max_attr_count,
                                                        p4_pd_hash_calc_input_field_attribute_t *attr_list,
                                                        uint32_t *num_attr_filled) {
  return hash_input_field_attribute_get(H.handle, H.input, sess, dev, input, max_attr_count, attr_list,
                                        num_attr_filled);
}

template <const HashDesc &H>
CV_INLINE p4_pd_status_t hash_calculate_hash_value(p4_pd_sess_hdl_t sess, uint32_t dev, uint32_t attr_count,
                                                   p4_pd_hash_calc_input_field_attribute_t *attr_list,
                                                   uint32_t *attr_sizes, uint8_t *hash_value, uint32_t hash_len) {
  return hash_calculate_hash_value(H.handle, sess, dev, attr_count, attr_list, attr_sizes, hash_value, hash_len);
}

}  // namespace cv::pd
