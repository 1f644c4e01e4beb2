// The match-table families beyond add: modify and delete, default entries, read-back, iteration
// and the table accessors. Each makes one driver call with records built on the stack.
#pragma once

#include "decode.h"

extern "C" {
#include "corvin_switch/pd.h"
}

namespace cv::pd {

// ---- Modify and delete ----

// Modify by handle: the action record exactly as add builds it, with the whole index of an
// index-bearing action and a spec-less meter left to the driver (tag 0).
template <const TableDesc &T, const TableActionDesc &U>
CV_INLINE p4_pd_status_t table_modify(const char *function, p4_pd_sess_hdl_t sess, uint32_t dev,
                                      p4_pd_entry_hdl_t ent, const void *params, const p4_pd_meter_spec_t *meter) {
  ActionRecord<T, U, Family::modify> action(params, meter, function);
  return static_cast<p4_pd_status_t>(pipe_mgr_mat_ent_set_action(sess, dev, T.handle, ent, U.handle, &action.as, 0));
}

template <const TableDesc &T, const TableActionDesc &U>
CV_INLINE p4_pd_status_t table_modify_by_match_spec(const char *function, p4_pd_sess_hdl_t sess,
                                                    p4_pd_dev_target_t tgt, const void *key, uint32_t priority,
                                                    const void *params, const p4_pd_meter_spec_t *meter) {
  MatchRecord<T> match(key, priority);
  ActionRecord<T, U, Family::modify> action(params, meter, function);
  return static_cast<p4_pd_status_t>(pipe_mgr_mat_ent_set_action_by_match_spec(sess, driver_target(tgt), T.handle,
                                                                               &match.ms, U.handle, &action.as, 0));
}

template <const TableDesc &T>
CV_INLINE p4_pd_status_t table_delete(p4_pd_sess_hdl_t sess, uint32_t dev, p4_pd_entry_hdl_t ent) {
  return static_cast<p4_pd_status_t>(pipe_mgr_mat_ent_del(sess, dev, T.handle, ent, 0));
}

template <const TableDesc &T>
CV_INLINE p4_pd_status_t table_delete_by_match_spec(p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt, const void *key,
                                                    uint32_t priority) {
  MatchRecord<T> match(key, priority);
  return static_cast<p4_pd_status_t>(
      pipe_mgr_mat_ent_del_by_match_spec(sess, driver_target(tgt), T.handle, &match.ms, 0));
}

// ---- Default entries ----

template <const TableDesc &T, const TableActionDesc &U>
CV_INLINE p4_pd_status_t set_default_action(const char *function, p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt,
                                            const void *params, const p4_pd_meter_spec_t *meter,
                                            p4_pd_entry_hdl_t *ent) {
  ActionRecord<T, U, Family::default_entry> action(params, meter, function);
  return static_cast<p4_pd_status_t>(
      pipe_mgr_mat_default_entry_set(sess, driver_target(tgt), T.handle, U.handle, &action.as, 0, ent));
}

template <const TableDesc &T>
CV_INLINE p4_pd_status_t table_reset_default_entry(p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt) {
  return static_cast<p4_pd_status_t>(pipe_mgr_mat_tbl_default_entry_reset(sess, driver_target(tgt), T.handle, 0));
}

template <const TableDesc &T>
CV_INLINE p4_pd_status_t table_get_default_entry_handle(p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt,
                                                        p4_pd_entry_hdl_t *ent) {
  return static_cast<p4_pd_status_t>(pipe_mgr_table_get_default_entry_handle(sess, driver_target(tgt), T.handle, ent));
}

// An action record prepared for read-back: zeroed, its image buffer of the given capacity.
CV_INLINE void prepare_read_back(pipe_action_spec_t &as, uint8_t *image, uint16_t capacity) {
  std::memset(&as, 0, sizeof as);
  if (capacity) {
    std::memset(image, 0, capacity);
    as.act_data.action_data_bytes = image;
    as.act_data.num_action_data_bytes = capacity;
  }
}

// Finds the table's action of a read-back handle and runs `on_action(TableActionDesc)` for it.
// Returns false for a handle the table does not have.
template <const TableDesc &T, class F, size_t... I>
CV_INLINE bool dispatch_action(uint32_t handle, F &&on_action, std::index_sequence<I...>) {
  return ((handle == T.actions[I]->handle ? (on_action.template operator()<*T.actions[I]>(), true) : false) || ...);
}

template <const TableDesc &T, class F>
CV_INLINE bool dispatch_action(uint32_t handle, F &&on_action) {
  return dispatch_action<T>(handle, on_action, std::make_index_sequence<T.nactions>{});
}

// The tagged action record of a table's default entry. A handle or record type the table cannot
// have gives 15, unlogged; the resource list is then left as it is.
template <const TableDesc &T>
CV_INLINE p4_pd_status_t table_get_default_entry(p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt, uint8_t from_hw,
                                                 p4_pd_corvin_switch_action_spec_t *out) {
  pipe_action_spec_t as;
  uint8_t image[kReadBackImageBytes];
  prepare_read_back(as, image, kReadBackImageBytes);
  pipe_act_fn_hdl_t act = 0;
  pipe_status_t st = pipe_mgr_table_get_default_entry(sess, driver_target(tgt), T.handle, &as, &act, from_hw != 0, 1,
                                                      nullptr);
  if (st != 0) return static_cast<p4_pd_status_t>(st);
  if (as.action_data_type != PIPE_ACTION_DATA_TYPE) return kStatusInconsistent;
  ResPair *list = nullptr;
  int count = 0;
  build_pd_res_spec(as, &list, &count);
  bool known = dispatch_action<T>(act, [&]<const TableActionDesc &U>() {
    constexpr const ActionDesc &A = *U.action;
    if constexpr (A.record_size) std::memset(&out->u, 0, A.record_size);
    out->name = static_cast<p4_pd_corvin_switch_action_enum_t>(A.number);
    if constexpr (A.nparams) unbuild_action_spec<A>(as.act_data, list, count, &out->u);
  });
  if (!known) return kStatusInconsistent;
  if (list) bf_sys_free(list);
  return 0;
}

// What a read-back record binds an entry of a profile-bound table to: a member (type 2) or a group
// (type 4). Returns false for any other type, writing nothing.
CV_INLINE bool read_binding(const pipe_action_spec_t &as, uint8_t *is_mbr, uint8_t *is_grp, p4_pd_grp_hdl_t *grp,
                            p4_pd_mbr_hdl_t *mbr) {
  if (as.action_data_type == PIPE_ACTION_MBR_TYPE) {
    *is_mbr = 1;
    *is_grp = 0;
    *mbr = as.member_hdl;
    return true;
  }
  if (as.action_data_type == PIPE_ACTION_GRP_TYPE) {
    *is_mbr = 0;
    *is_grp = 1;
    *grp = as.group_hdl;
    return true;
  }
  return false;
}

template <const TableDesc &T>
CV_INLINE p4_pd_status_t profile_table_get_default_entry(p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt,
                                                         uint8_t from_hw, uint8_t *is_mbr, uint8_t *is_grp,
                                                         p4_pd_grp_hdl_t *grp, p4_pd_mbr_hdl_t *mbr) {
  pipe_action_spec_t as;
  prepare_read_back(as, nullptr, 0);
  pipe_act_fn_hdl_t act = 0;
  pipe_status_t st = pipe_mgr_table_get_default_entry(sess, driver_target(tgt), T.handle, &as, &act, from_hw != 0, 1,
                                                      nullptr);
  if (st != 0) return static_cast<p4_pd_status_t>(st);
  return read_binding(as, is_mbr, is_grp, grp, mbr) ? 0 : kStatusInconsistent;
}

// ---- Read-back ----

// Reads an entry's key, as the read-back match record holds it, into the caller's records; a
// default entry (no value image) clears the key record. Writes the default flag and, for a
// ternary table, the priority.
template <const TableDesc &T>
CV_SHARED void read_key(const pipe_tbl_match_spec_t &ms, void *key, uint32_t *priority, uint8_t *is_default) {
  bool dflt = ms.match_value_bytes == nullptr || ms.num_match_bytes == 0;
  *is_default = dflt ? 1 : 0;
  if constexpr (T.record_size != 0) {
    if (dflt) {
      std::memset(key, 0, T.record_size);
    } else {
      unbuild_key<T>(ms, key);
      if constexpr (T.kind == TableKind::ternary || T.kind == TableKind::lpm) unbuild_mask<T>(ms, key);
    }
  }
  if constexpr (T.kind == TableKind::ternary) *priority = ms.priority;
}

CV_INLINE void prepare_read_back_key(pipe_tbl_match_spec_t &ms, uint8_t *value, uint8_t *mask, uint16_t bits,
                                     uint16_t bytes, uint16_t buf) {
  std::memset(value, 0, buf);
  std::memset(mask, 0, buf);
  ms.match_value_bytes = value;
  ms.match_mask_bytes = mask;
  ms.partition_index = 0;
  ms.priority = 0;
  ms.num_valid_match_bits = bits;
  ms.num_match_bytes = bytes;
  ms.reserved = 0;
}

// The whole entry of a handle: key, priority, action name, number and parameters, default flag.
// A record type other than an action image fails at once (15 after the soft assertion, nothing
// written); an action handle the table lacks still yields the key (15 after the soft assertion).
template <const TableDesc &T>
CV_INLINE p4_pd_status_t get_entry(const char *function, p4_pd_sess_hdl_t sess, uint32_t dev, p4_pd_entry_hdl_t ent,
                                   uint8_t from_hw, void *key, uint32_t *priority, char *name, void *params,
                                   p4_pd_corvin_switch_action_enum_t *number, uint8_t *is_default) {
  pipe_tbl_match_spec_t ms;
  uint8_t value[Key<T>::kBuf];
  uint8_t mask[Key<T>::kBuf];
  prepare_read_back_key(ms, value, mask, T.key_bits, T.key_bytes, Key<T>::kBuf);
  pipe_action_spec_t as;
  uint8_t image[kReadBackImageBytes];
  prepare_read_back(as, image, kReadBackImageBytes);
  pipe_act_fn_hdl_t act = 0;
  pipe_status_t st = pipe_mgr_get_entry(sess, T.handle, all_pipes(dev), ent, &ms, &as, &act, from_hw != 0, 1, nullptr);
  if (st != 0) return static_cast<p4_pd_status_t>(st);
  if (as.action_data_type != PIPE_ACTION_DATA_TYPE) return CV_SOFT_ASSERT(Soft::zero, function);
  ResPair *list = nullptr;
  int count = 0;
  build_pd_res_spec(as, &list, &count);
  p4_pd_status_t status = 0;
  bool known = dispatch_action<T>(act, [&]<const TableActionDesc &U>() {
    constexpr const ActionDesc &A = *U.action;
    if (name) std::strcpy(name, p4_pd_corvin_switch_action_name_strings[A.number]);
    if (number) *number = static_cast<p4_pd_corvin_switch_action_enum_t>(A.number);
    if constexpr (A.nparams) unbuild_action_spec<A>(as.act_data, list, count, params);
  });
  if (!known) status = CV_SOFT_ASSERT(Soft::null_pointer, function);
  read_key<T>(ms, key, priority, is_default);
  if (list) bf_sys_free(list);
  return status;
}

// The entry of a profile-bound table: its key and what it binds to. A record that binds to neither
// member nor group (a default entry, an unbound entry) reads as both flags 0.
template <const TableDesc &T>
CV_INLINE p4_pd_status_t profile_get_entry(p4_pd_sess_hdl_t sess, uint32_t dev, p4_pd_entry_hdl_t ent,
                                           uint8_t from_hw, void *key, uint32_t *priority, uint8_t *is_mbr,
                                           uint8_t *is_grp, p4_pd_grp_hdl_t *grp, p4_pd_mbr_hdl_t *mbr,
                                           uint8_t *is_default) {
  pipe_tbl_match_spec_t ms;
  uint8_t value[Key<T>::kBuf];
  uint8_t mask[Key<T>::kBuf];
  prepare_read_back_key(ms, value, mask, T.key_bits, T.key_bytes, Key<T>::kBuf);
  pipe_action_spec_t as;
  prepare_read_back(as, nullptr, 0);
  pipe_act_fn_hdl_t act = 0;
  pipe_status_t st = pipe_mgr_get_entry(sess, T.handle, all_pipes(dev), ent, &ms, &as, &act, from_hw != 0, 1, nullptr);
  if (st != 0) return static_cast<p4_pd_status_t>(st);
  if (!read_binding(as, is_mbr, is_grp, grp, mbr)) {
    *is_mbr = 0;
    *is_grp = 0;
  }
  read_key<T>(ms, key, priority, is_default);
  return 0;
}

template <const TableDesc &T>
CV_INLINE p4_pd_status_t match_spec_to_entry_hdl(p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt, const void *key,
                                                 uint32_t priority, p4_pd_entry_hdl_t *ent) {
  MatchRecord<T> match(key, priority);
  return static_cast<p4_pd_status_t>(
      pipe_mgr_match_spec_to_ent_hdl(sess, driver_target(tgt), T.handle, &match.ms, ent, false));
}

// ---- Iteration ----

template <const TableDesc &T>
CV_INLINE p4_pd_status_t get_first_entry_handle(p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt,
                                                p4_pd_entry_hdl_t *ent) {
  return static_cast<p4_pd_status_t>(pipe_mgr_get_first_entry_handle(sess, T.handle, driver_target(tgt), ent));
}

template <const TableDesc &T>
CV_INLINE p4_pd_status_t get_next_entry_handles(p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt, p4_pd_entry_hdl_t ent,
                                                int n, p4_pd_entry_hdl_t *next) {
  return static_cast<p4_pd_status_t>(pipe_mgr_get_next_entry_handles(sess, T.handle, driver_target(tgt), ent, n, next));
}

template <const TableDesc &T>
CV_INLINE p4_pd_status_t get_entry_count(p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt, uint32_t *count) {
  return static_cast<p4_pd_status_t>(pipe_mgr_get_entry_count(sess, driver_target(tgt), T.handle, false, count));
}

// ---- Table accessors ----

template <const TableDesc &T>
CV_INLINE p4_pd_status_t set_property(p4_pd_sess_hdl_t sess, uint32_t dev, uint32_t property, uint32_t value,
                                      uint32_t args) {
  return static_cast<p4_pd_status_t>(pipe_mgr_tbl_set_property(sess, dev, T.handle, property, value, args, 0));
}

// On a refusal both outputs read 0xFFFFFFFF.
template <const TableDesc &T>
CV_INLINE p4_pd_status_t get_property(p4_pd_sess_hdl_t sess, uint32_t dev, uint32_t property, uint32_t *value,
                                      uint32_t *args) {
  uint32_t v = 0, a = 0;
  pipe_status_t st = pipe_mgr_tbl_get_property(sess, dev, T.handle, property, &v, &a);
  if (st == 0) {
    *value = v;
    *args = a;
  } else {
    *value = 0xFFFFFFFFu;
    *args = 0xFFFFFFFFu;
  }
  return static_cast<p4_pd_status_t>(st);
}

template <const TableDesc &T>
CV_INLINE p4_pd_status_t register_mat_update_cb(p4_pd_sess_hdl_t sess, uint32_t dev, p4_pd_mat_update_cb cb,
                                                void *cookie) {
  return static_cast<p4_pd_status_t>(
      pipe_register_mat_update_cb(sess, dev, T.handle, cb, cookie));
}

template <const TableDesc &T>
CV_INLINE p4_pd_status_t get_mat_table_handle(uint32_t *handle) {
  if (handle) *handle = T.handle;
  return 0;
}

template <const TableDesc &T>
CV_INLINE int supports_entry_priority() {
  return T.kind == TableKind::ternary ? 1 : 0;
}

}  // namespace cv::pd
