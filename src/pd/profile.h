// The action-profile families: members, selector groups, entries bound to a member or a group,
// and profile read-back. Each keeps the driver and the profile's member-selector state in step:
// the driver first and the state second, except where a call needs the state's answer first.
// Results of state calls are not looked at unless a rule below says so: once the driver has
// accepted a change, the operation has succeeded.
#pragma once

#include "assertion.h"
#include "decode.h"
#include "state.h"

extern "C" {
#include "corvin_switch/pd.h"
}

namespace cv::pd {

template <const ProfileDesc &P>
CV_INLINE p4_pd_ms_state_t *state() {
  return ms_states[P.index];
}

inline constexpr uint32_t kMemberOfOtherAction = 0xFFFFFFFFu;
// What the selector is told of a new group's id: none.
inline constexpr uint32_t kNoGroupId = 0xdeadbeefu;
inline constexpr uint16_t kMemberReadBackBytes = 56;

// ---- Members ----

// A member's action record: zeroed, with no type (unlike an entry's), its two counts and its
// image, whose pointer is set also for an action without parameters.
template <const MemberDesc &M>
struct MemberRecord {
  pipe_action_spec_t as;
  uint8_t image[Act<*M.action>::kBuf];

  CV_INLINE explicit MemberRecord(const void *params) {
    build_action_spec<*M.action>(as, image, params);
    as.action_data_type = 0;
  }
  MemberRecord(const MemberRecord &) = delete;
  MemberRecord &operator=(const MemberRecord &) = delete;
};

template <const ProfileDesc &P, const MemberDesc &M>
CV_INLINE p4_pd_status_t add_member(p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt, const void *params,
                                    p4_pd_mbr_hdl_t *mbr) {
  MemberRecord<M> rec(params);
  pipe_status_t st = pipe_mgr_adt_ent_add(sess, driver_target(tgt), P.adt_handle, M.handle, 0, &rec.as, mbr, 0);
  if (st != 0) return static_cast<p4_pd_status_t>(st);
  p4_pd_ms_new_mbr(sess, state<P>(), tgt.device_id, *mbr);
  p4_pd_ms_set_mbr_act(state<P>(), tgt.device_id, *mbr, M.handle);
  return 0;
}

// A member keeps its action for life: only its parameters change.
template <const ProfileDesc &P, const MemberDesc &M>
CV_INLINE p4_pd_status_t modify_member(p4_pd_sess_hdl_t sess, uint32_t dev, p4_pd_mbr_hdl_t mbr,
                                       const void *params) {
  pipe_act_fn_hdl_t act = 0;
  bf_status_t st = p4_pd_ms_get_mbr_act(state<P>(), dev, mbr, &act);
  if (st != 0) return static_cast<p4_pd_status_t>(st);
  if (act != M.handle) return kMemberOfOtherAction;
  MemberRecord<M> rec(params);
  return static_cast<p4_pd_status_t>(pipe_mgr_adt_ent_set(sess, dev, P.adt_handle, mbr, M.handle, &rec.as, 0));
}

template <const ProfileDesc &P>
CV_INLINE p4_pd_status_t del_member(p4_pd_sess_hdl_t sess, uint32_t dev, p4_pd_mbr_hdl_t mbr) {
  pipe_status_t st = pipe_mgr_adt_ent_del(sess, dev, P.adt_handle, mbr, 0);
  if (st != 0) return static_cast<p4_pd_status_t>(st);
  p4_pd_ms_del_mbr(sess, state<P>(), dev, mbr);
  return 0;
}

// A selector-side callback, despite the name.
template <const ProfileDesc &P>
CV_INLINE p4_pd_status_t register_callback(p4_pd_sess_hdl_t sess, uint32_t dev, p4_pd_sel_tbl_update_cb cb,
                                           void *cookie) {
  return static_cast<p4_pd_status_t>(pipe_mgr_sel_tbl_register_cb(sess, dev, P.sel_handle, cb, cookie));
}

// ---- Selector groups ----

template <const ProfileDesc &P>
CV_INLINE p4_pd_status_t create_group(p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt, uint32_t max_size,
                                      p4_pd_grp_hdl_t *grp) {
  pipe_status_t st =
      pipe_mgr_sel_grp_add(sess, driver_target(tgt), P.sel_handle, 0, max_size, kNoGroupId, grp, 0);
  if (st != 0) return static_cast<p4_pd_status_t>(st);
  p4_pd_ms_new_grp(sess, state<P>(), tgt.device_id, *grp);
  return 0;
}

// The state must learn which members the group held, and once the driver has deleted the group it
// can no longer say: so the member list is taken first, and the delete runs only if it could be.
// Here the state's answer is the result.
template <const ProfileDesc &P>
inline p4_pd_status_t del_group(p4_pd_sess_hdl_t sess, uint32_t dev, p4_pd_grp_hdl_t grp) {
  uint32_t count = 0;
  uint32_t filled = 0;
  pipe_status_t st = pipe_mgr_get_sel_grp_mbr_count(sess, dev, P.sel_handle, grp, &count);
  if (st != 0) return static_cast<p4_pd_status_t>(st);
  pipe_adt_ent_hdl_t *mbrs = nullptr;
  uint8_t *states = nullptr;
  if (count == 0) {
    st = pipe_mgr_sel_grp_del(sess, dev, P.sel_handle, grp, 0);
    if (st != 0) return static_cast<p4_pd_status_t>(st);
  } else {
    // Both allocations are made before either is tested.
    mbrs = static_cast<pipe_adt_ent_hdl_t *>(bf_sys_calloc(count, sizeof *mbrs));
    states = static_cast<uint8_t *>(bf_sys_calloc(count, 1));
    if (mbrs == nullptr || states == nullptr) {
      if (mbrs) bf_sys_free(mbrs);
      if (states) bf_sys_free(states);
      return kStatusNoMemory;
    }
    st = pipe_mgr_sel_grp_mbrs_get(sess, dev, P.sel_handle, grp, count, mbrs, states, &filled, 0);
    if (st == 0) st = pipe_mgr_sel_grp_del(sess, dev, P.sel_handle, grp, 0);
    if (st != 0) {
      bf_sys_free(mbrs);
      bf_sys_free(states);
      return static_cast<p4_pd_status_t>(st);
    }
  }
  p4_pd_status_t result = static_cast<p4_pd_status_t>(p4_pd_ms_del_grp(sess, state<P>(), dev, grp, filled, mbrs));
  if (mbrs) bf_sys_free(mbrs);
  if (states) bf_sys_free(states);
  return result;
}

// The group takes the action of the member added last; nothing compares it with the group's
// former action. A member the state does not know cannot join, and the driver is not asked.
template <const ProfileDesc &P>
CV_INLINE p4_pd_status_t add_member_to_group(p4_pd_sess_hdl_t sess, uint32_t dev, p4_pd_grp_hdl_t grp,
                                             p4_pd_mbr_hdl_t mbr) {
  pipe_act_fn_hdl_t act = 0;
  bf_status_t st = p4_pd_ms_get_mbr_act(state<P>(), dev, mbr, &act);
  if (st != 0) return static_cast<p4_pd_status_t>(st);
  st = pipe_mgr_sel_grp_mbr_add(sess, dev, P.sel_handle, grp, act, mbr, 0);
  if (st != 0) return static_cast<p4_pd_status_t>(st);
  p4_pd_ms_add_mbr_to_grp(sess, state<P>(), dev, mbr, grp);
  p4_pd_ms_set_grp_act(state<P>(), dev, grp, act);
  return 0;
}

// Leaves the group's action as it is.
template <const ProfileDesc &P>
CV_INLINE p4_pd_status_t del_member_from_group(p4_pd_sess_hdl_t sess, uint32_t dev, p4_pd_grp_hdl_t grp,
                                               p4_pd_mbr_hdl_t mbr) {
  pipe_status_t st = pipe_mgr_sel_grp_mbr_del(sess, dev, P.sel_handle, grp, mbr, 0);
  if (st != 0) return static_cast<p4_pd_status_t>(st);
  p4_pd_ms_del_mbr_from_grp(sess, state<P>(), dev, mbr, grp);
  return 0;
}

// Being active is the driver's matter alone: the state is not told.
template <const ProfileDesc &P>
CV_INLINE p4_pd_status_t group_member_state_set(const char *function, p4_pd_sess_hdl_t sess, uint32_t dev,
                                                p4_pd_grp_hdl_t grp, p4_pd_mbr_hdl_t mbr,
                                                p4_pd_grp_mbr_state_e mbr_state) {
  switch (mbr_state) {
    case P4_PD_GRP_MBR_STATE_ACTIVE:
      return static_cast<p4_pd_status_t>(pipe_mgr_sel_grp_mbr_enable(sess, dev, P.sel_handle, grp, mbr, 0));
    case P4_PD_GRP_MBR_STATE_INACTIVE:
      return static_cast<p4_pd_status_t>(pipe_mgr_sel_grp_mbr_disable(sess, dev, P.sel_handle, grp, mbr, 0));
    default:
      CV_HARD_ASSERT("mbr_state == P4_PD_GRP_MBR_STATE_INACTIVE", function);
  }
}

// A state word other than the two known ones leaves the caller's word as it was.
template <const ProfileDesc &P>
CV_INLINE p4_pd_status_t group_member_state_get(p4_pd_sess_hdl_t sess, uint32_t dev, p4_pd_grp_hdl_t grp,
                                                p4_pd_mbr_hdl_t mbr, p4_pd_grp_mbr_state_e *mbr_state) {
  pipe_sel_grp_mbr_state_t word = 0;
  pipe_status_t st = pipe_mgr_sel_grp_mbr_state_get(sess, dev, P.sel_handle, grp, mbr, &word);
  if (st != 0) return static_cast<p4_pd_status_t>(st);
  if (word == PIPE_SEL_GRP_MBR_STATE_ACTIVE) *mbr_state = P4_PD_GRP_MBR_STATE_ACTIVE;
  if (word == PIPE_SEL_GRP_MBR_STATE_INACTIVE) *mbr_state = P4_PD_GRP_MBR_STATE_INACTIVE;
  return 0;
}

template <const ProfileDesc &P>
CV_INLINE p4_pd_status_t group_member_get_from_hash(p4_pd_sess_hdl_t sess, uint32_t dev, p4_pd_grp_hdl_t grp,
                                                    uint8_t *hash, uint32_t hash_len, p4_pd_mbr_hdl_t *mbr) {
  return static_cast<p4_pd_status_t>(
      pipe_mgr_sel_grp_mbr_get_from_hash(sess, dev, P.sel_handle, grp, hash, hash_len, mbr));
}

template <const ProfileDesc &P>
CV_INLINE p4_pd_status_t set_fallback_member(p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt, p4_pd_mbr_hdl_t mbr) {
  return static_cast<p4_pd_status_t>(pipe_mgr_sel_fallback_mbr_set(sess, driver_target(tgt), P.sel_handle, mbr, 0));
}

template <const ProfileDesc &P>
CV_INLINE p4_pd_status_t reset_fallback_member(p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt) {
  return static_cast<p4_pd_status_t>(pipe_mgr_sel_fallback_mbr_reset(sess, driver_target(tgt), P.sel_handle, 0));
}

// register_callback without a session: the driver gets session 0.
template <const ProfileDesc &P>
CV_INLINE p4_pd_status_t sel_track_updates(uint32_t dev, p4_pd_sel_tbl_update_cb cb, void *cookie) {
  return static_cast<p4_pd_status_t>(pipe_mgr_sel_tbl_register_cb(0, dev, P.sel_handle, cb, cookie));
}

// ---- Entries bound to a member or a group ----

enum class Bind : uint8_t { member, group };

// The driver action record of a binding: no image, no resources, the type and the one handle.
// The action handle the driver wants beside it comes from the state; the direct resources the
// state may hold are read and, by rule, not merged into the entry.
template <const ProfileDesc &P, Bind B>
struct BindingRecord {
  pipe_action_spec_t as;
  pipe_act_fn_hdl_t act = 0;
  p4_pd_status_t status;

  CV_INLINE BindingRecord(uint32_t dev, uint32_t hdl) {
    std::memset(&as, 0, sizeof as);
    uint32_t res_hdl = 0, res_idx = 0;
    if constexpr (B == Bind::member) {
      as.action_data_type = PIPE_ACTION_MBR_TYPE;
      as.member_hdl = hdl;
      status = static_cast<p4_pd_status_t>(p4_pd_ms_get_mbr_act(state<P>(), dev, hdl, &act));
      if (status == 0) p4_pd_ms_mbr_get_res(state<P>(), dev, hdl, &res_hdl, &res_idx);
    } else {
      as.action_data_type = PIPE_ACTION_GRP_TYPE;
      as.group_hdl = hdl;
      status = static_cast<p4_pd_status_t>(p4_pd_ms_get_grp_act(state<P>(), dev, hdl, &act));
      if (status == 0) p4_pd_ms_grp_get_res(state<P>(), dev, hdl, &res_hdl, &res_idx);
    }
  }
  BindingRecord(const BindingRecord &) = delete;
  BindingRecord &operator=(const BindingRecord &) = delete;
};

template <const TableDesc &T, const ProfileDesc &P, Bind B>
CV_INLINE p4_pd_status_t add_entry(p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt, const void *key, uint32_t priority,
                                   uint32_t hdl, p4_pd_entry_hdl_t *ent) {
  MatchRecord<T> match(key, priority);
  BindingRecord<P, B> bind(tgt.device_id, hdl);
  if (bind.status != 0) return bind.status;
  return static_cast<p4_pd_status_t>(
      pipe_mgr_mat_ent_add(sess, driver_target(tgt), T.handle, &match.ms, bind.act, &bind.as, 0, 0, ent));
}

template <const TableDesc &T, const ProfileDesc &P, Bind B>
CV_INLINE p4_pd_status_t modify_entry(p4_pd_sess_hdl_t sess, uint32_t dev, p4_pd_entry_hdl_t ent, uint32_t hdl) {
  BindingRecord<P, B> bind(dev, hdl);
  if (bind.status != 0) return bind.status;
  return static_cast<p4_pd_status_t>(pipe_mgr_mat_ent_set_action(sess, dev, T.handle, ent, bind.act, &bind.as, 0));
}

template <const TableDesc &T, const ProfileDesc &P, Bind B>
CV_INLINE p4_pd_status_t modify_entry_by_match_spec(p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt, const void *key,
                                                    uint32_t priority, uint32_t hdl) {
  MatchRecord<T> match(key, priority);
  BindingRecord<P, B> bind(tgt.device_id, hdl);
  if (bind.status != 0) return bind.status;
  return static_cast<p4_pd_status_t>(pipe_mgr_mat_ent_set_action_by_match_spec(
      sess, driver_target(tgt), T.handle, &match.ms, bind.act, &bind.as, 0));
}

template <const TableDesc &T, const ProfileDesc &P, Bind B>
CV_INLINE p4_pd_status_t set_default_entry(p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt, uint32_t hdl,
                                           p4_pd_entry_hdl_t *ent) {
  BindingRecord<P, B> bind(tgt.device_id, hdl);
  if (bind.status != 0) return bind.status;
  return static_cast<p4_pd_status_t>(
      pipe_mgr_mat_default_entry_set(sess, driver_target(tgt), T.handle, bind.act, &bind.as, 0, ent));
}

// ---- Read-back ----

// Writes a parameter record's members, each whole, from a member's image; bytes between members
// stay as they were.
template <const ActionDesc &A, size_t... I>
CV_INLINE void decode_member_params(const uint8_t *image, uint8_t *rec, std::index_sequence<I...>) {
  (get_field<A.params[I].width>(rec + A.params[I].member_off, image + Act<A>::template image_off<I>()), ...);
}

// The tag, and the parameters of an action that has them; with Res, the member's resource words
// are read from the profile's state first, and by rule not used.
template <const ProfileDesc &P, const MemberDesc &M, bool Res = true>
CV_INLINE void read_member(uint32_t dev, p4_pd_mbr_hdl_t mbr, const uint8_t *image,
                           p4_pd_corvin_switch_action_spec_t *out) {
  constexpr const ActionDesc &A = *M.action;
  out->name = static_cast<p4_pd_corvin_switch_action_enum_t>(A.number);
  if constexpr (A.nparams != 0) {
    if constexpr (Res) {
      uint32_t res_hdl = 0, res_idx = 0;
      p4_pd_ms_mbr_get_res(state<P>(), dev, mbr, &res_hdl, &res_idx);
    }
    decode_member_params<*M.action>(image, reinterpret_cast<uint8_t *>(&out->u),
                                    std::make_index_sequence<M.action->nparams>{});
  }
}

// Finds the member action of a handle read back and runs `on_member(MemberDesc)` for it; false for
// a handle of no member action of the profile.
template <const ProfileDesc &P, class F, size_t... I>
CV_INLINE bool dispatch_member(uint32_t handle, F &&on_member, std::index_sequence<I...>) {
  return ((handle == P.members[I]->handle ? (on_member.template operator()<*P.members[I]>(), true) : false) || ...);
}

template <const ProfileDesc &P, class F>
CV_INLINE bool dispatch_member(uint32_t handle, F &&on_member) {
  return dispatch_member<P>(handle, on_member, std::make_index_sequence<P.nmembers>{});
}

// One member, as the driver holds it: its action comes from the driver, not from the state, so this
// works also for a member the state has lost. An action outside the profile's takes the soft
// assertion, with the record untouched.
template <const ProfileDesc &P>
CV_INLINE p4_pd_status_t get_member(const char *function, p4_pd_sess_hdl_t, uint32_t dev, p4_pd_mbr_hdl_t mbr,
                                 uint8_t from_hw, p4_pd_corvin_switch_action_spec_t *out) {
  uint8_t image[kMemberReadBackBytes];
  std::memset(image, 0, sizeof image);
  pipe_action_data_spec_t data{};
  data.num_action_data_bytes = kMemberReadBackBytes;
  data.action_data_bytes = image;
  pipe_act_fn_hdl_t act = 0;
  pipe_status_t st = pipe_mgr_get_action_data_entry(P.adt_handle, all_pipes(dev), mbr, &data, &act, from_hw != 0);
  if (st != 0) return static_cast<p4_pd_status_t>(st);
  bool known = dispatch_member<P>(act, [&]<const MemberDesc &M>() { read_member<P, M>(dev, mbr, image, out); });
  return known ? 0 : CV_SOFT_ASSERT(Soft::null_pointer, function);
}

// ---- Walks, counts, accessors: one driver call each. Members are walked in the action data table
// and groups in the selector table, through the functions that walk entries. ----

template <const ProfileDesc &P>
CV_INLINE p4_pd_status_t get_first_member(p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt, p4_pd_mbr_hdl_t *mbr) {
  return static_cast<p4_pd_status_t>(pipe_mgr_get_first_entry_handle(sess, P.adt_handle, driver_target(tgt), mbr));
}

template <const ProfileDesc &P>
CV_INLINE p4_pd_status_t get_next_members(p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt, p4_pd_mbr_hdl_t mbr, int n,
                                          p4_pd_mbr_hdl_t *next) {
  return static_cast<p4_pd_status_t>(
      pipe_mgr_get_next_entry_handles(sess, P.adt_handle, driver_target(tgt), mbr, n, next));
}

template <const ProfileDesc &P>
CV_INLINE p4_pd_status_t get_first_group(p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt, p4_pd_grp_hdl_t *grp) {
  return static_cast<p4_pd_status_t>(pipe_mgr_get_first_entry_handle(sess, P.sel_handle, driver_target(tgt), grp));
}

template <const ProfileDesc &P>
CV_INLINE p4_pd_status_t get_next_groups(p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt, p4_pd_grp_hdl_t grp, int n,
                                         p4_pd_grp_hdl_t *next) {
  return static_cast<p4_pd_status_t>(
      pipe_mgr_get_next_entry_handles(sess, P.sel_handle, driver_target(tgt), grp, n, next));
}

template <const ProfileDesc &P>
CV_INLINE p4_pd_status_t get_first_group_member(p4_pd_sess_hdl_t sess, uint32_t dev, p4_pd_grp_hdl_t grp,
                                                p4_pd_mbr_hdl_t *mbr) {
  return static_cast<p4_pd_status_t>(pipe_mgr_get_first_group_member(sess, P.sel_handle, dev, grp, mbr));
}

template <const ProfileDesc &P>
CV_INLINE p4_pd_status_t get_next_group_members(p4_pd_sess_hdl_t sess, uint32_t dev, p4_pd_grp_hdl_t grp,
                                                p4_pd_mbr_hdl_t mbr, int n, p4_pd_mbr_hdl_t *next) {
  return static_cast<p4_pd_status_t>(pipe_mgr_get_next_group_members(sess, P.sel_handle, dev, grp, mbr, n, next));
}

template <const ProfileDesc &P>
CV_INLINE p4_pd_status_t get_act_prof_entry_count(p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt, uint32_t *count) {
  return static_cast<p4_pd_status_t>(pipe_mgr_get_entry_count(sess, driver_target(tgt), P.adt_handle, false, count));
}

template <const ProfileDesc &P>
CV_INLINE p4_pd_status_t get_selector_group_count(p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt, uint32_t *count) {
  return static_cast<p4_pd_status_t>(pipe_mgr_get_entry_count(sess, driver_target(tgt), P.sel_handle, false, count));
}

template <const ProfileDesc &P>
CV_INLINE p4_pd_status_t get_selector_group_member_count(p4_pd_sess_hdl_t sess, uint32_t dev, p4_pd_grp_hdl_t grp,
                                                         uint32_t *count) {
  return static_cast<p4_pd_status_t>(pipe_mgr_get_sel_grp_mbr_count(sess, dev, P.sel_handle, grp, count));
}

template <const ProfileDesc &P>
CV_INLINE p4_pd_status_t get_word_llp_active_member_count(p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt,
                                                          uint32_t word, uint32_t *count) {
  return static_cast<p4_pd_status_t>(
      pipe_mgr_get_word_llp_active_member_count(sess, driver_target(tgt), P.sel_handle, word, count));
}

template <const ProfileDesc &P>
CV_INLINE p4_pd_status_t get_word_llp_active_members(p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt, uint32_t word,
                                                     uint32_t count, p4_pd_mbr_hdl_t *mbrs) {
  return static_cast<p4_pd_status_t>(
      pipe_mgr_get_word_llp_active_members(sess, driver_target(tgt), P.sel_handle, word, count, mbrs));
}

template <const ProfileDesc &P>
CV_INLINE p4_pd_status_t register_adt_update_cb(p4_pd_sess_hdl_t sess, uint32_t dev, p4_pd_adt_update_cb cb,
                                                void *cookie) {
  return static_cast<p4_pd_status_t>(pipe_register_adt_update_cb(sess, dev, P.adt_handle, cb, cookie));
}

template <const ProfileDesc &P>
CV_INLINE p4_pd_status_t register_sel_update_cb(p4_pd_sess_hdl_t sess, uint32_t dev, p4_pd_sel_update_cb cb,
                                                void *cookie) {
  return static_cast<p4_pd_status_t>(pipe_register_sel_update_cb(sess, dev, P.sel_handle, cb, cookie));
}

// These two work before init: they only name a constant.
template <const ProfileDesc &P>
CV_INLINE p4_pd_status_t get_adt_table_handle(uint32_t *handle) {
  if (handle) *handle = P.adt_handle;
  return 0;
}

template <const ProfileDesc &P>
CV_INLINE p4_pd_status_t get_sel_table_handle(uint32_t *handle) {
  if (handle) *handle = P.sel_handle;
  return 0;
}

}  // namespace cv::pd
