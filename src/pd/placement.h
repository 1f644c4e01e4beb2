// Placement data: the driver's own records of entries and members as they were placed. The getters
// hand the driver's answer through; the decoders turn a datum back into the caller's records with
// no device access, by the same decoding as read-back.
#pragma once

#include "profile.h"
#include "table_ops.h"

namespace cv::pd {

// What a placement decoder reports for a datum whose action the table or profile does not have.
inline constexpr uint32_t kStatusUnknownPlacedAction = 3;
inline constexpr uint16_t kPlacedImageBytes = 56;

// The zeroed action record a placement decoder hands the driver, pointing at its zeroed image.
struct PlacedAction {
  pipe_action_spec_t as;
  uint8_t image[kPlacedImageBytes];
  pipe_act_fn_hdl_t act = 0;

  CV_INLINE PlacedAction() {
    std::memset(&as, 0, sizeof as);
    std::memset(image, 0, sizeof image);
    as.act_data.action_data_bytes = image;
  }
  PlacedAction(const PlacedAction &) = delete;
  PlacedAction &operator=(const PlacedAction &) = delete;
};

template <const TableDesc &T>
CV_INLINE p4_pd_status_t get_plcmt_data(uint32_t dev, void **out) {
  return static_cast<p4_pd_status_t>(pipe_mgr_plcmt_mat_data_get(dev, out, T.handle));
}

template <const ProfileDesc &P>
CV_INLINE p4_pd_status_t adt_get_plcmt_data(uint32_t dev, void **out) {
  return static_cast<p4_pd_status_t>(pipe_mgr_plcmt_adt_data_get(dev, out, P.adt_handle));
}

template <const ProfileDesc &P>
CV_INLINE p4_pd_status_t sel_get_plcmt_data(uint32_t dev, void **out) {
  return static_cast<p4_pd_status_t>(pipe_mgr_plcmt_sel_data_get(dev, out, P.sel_handle));
}

// An entry's datum as its key (a default entry: a cleared key record and the flag set; a keyless
// table: always the flag), its priority, and either its action (a table with actions) or the member
// or group it binds to (a table of a profile: outputs of a binding of neither kind stay as they
// were). A refusal of the driver returns at once with nothing written.
template <const TableDesc &T>
CV_INLINE p4_pd_status_t get_entry_from_plcmt_data(const char *function, const void *datum, void *key,
                                                uint32_t *priority, p4_pd_corvin_switch_action_spec_t *spec,
                                                p4_pd_mbr_hdl_t *mbr, p4_pd_grp_hdl_t *grp, uint8_t *is_mbr,
                                                uint8_t *is_grp, uint8_t *is_default) {
  pipe_tbl_match_spec_t ms;
  std::memset(&ms, 0, sizeof ms);
  uint8_t value[Key<T>::kBuf];
  uint8_t mask[Key<T>::kBuf];
  std::memset(value, 0, sizeof value);
  std::memset(mask, 0, sizeof mask);
  ms.match_value_bytes = value;
  ms.match_mask_bytes = mask;
  PlacedAction a;
  const pipe_action_spec_t &as = a.as;
  pipe_status_t st = pipe_mgr_plcmt_mat_data_get_entry(datum, &ms, &a.as, &a.act);
  if (st != 0) return static_cast<p4_pd_status_t>(st);

  if constexpr (T.record_size != 0)
    read_key<T>(ms, key, priority, is_default);
  else
    *is_default = 1;
  if constexpr (T.nactions == 0) {
    read_binding(as, is_mbr, is_grp, grp, mbr);
    return 0;
  } else {
    ResPair *list = nullptr;
    int count = 0;
    build_pd_res_spec(as, &list, &count);
    bool known = dispatch_action<T>(a.act, [&]<const TableActionDesc &U>() {
      constexpr const ActionDesc &A = *U.action;
      spec->name = static_cast<p4_pd_corvin_switch_action_enum_t>(A.number);
      if constexpr (A.nparams) unbuild_action_spec<A>(as.act_data, list, count, &spec->u);
    });
    if (list) bf_sys_free(list);
    if (known) return 0;
    CV_SOFT_ASSERT(Soft::null_pointer, function);
    return kStatusUnknownPlacedAction;
  }
}

// A member's datum as its tagged action record. The dispatch on the action handle runs whatever
// the driver answered, and the driver's status is returned unless the handle is no member action of
// the profile (15 after the soft assertion). With `Full`, the member's resource words are read
// from the profile's state first (a state not made yet refuses the read), and not used.
template <const ProfileDesc &P, bool Full>
CV_INLINE p4_pd_status_t member_from_plcmt_data(const char *function, uint32_t dev, p4_pd_mbr_hdl_t mbr,
                                             const void *datum, p4_pd_corvin_switch_action_spec_t *out) {
  PlacedAction a;
  pipe_status_t st = pipe_mgr_plcmt_adt_data_get_entry(datum, &a.as, &a.act);
  bool known =
      dispatch_member<P>(a.act, [&]<const MemberDesc &M>() { read_member<P, M, Full>(dev, mbr, a.image, out); });
  if (!known) return CV_SOFT_ASSERT(Soft::null_pointer, function);
  return static_cast<p4_pd_status_t>(st);
}

template <const ProfileDesc &P>
CV_INLINE p4_pd_status_t get_member_from_plcmt_data(const char *function, const void *datum,
                                                    p4_pd_corvin_switch_action_spec_t *out) {
  return member_from_plcmt_data<P, false>(function, 0, 0, datum, out);
}

template <const ProfileDesc &P>
CV_INLINE p4_pd_status_t get_full_member_info_from_plcmt_data(const char *function, uint32_t dev,
                                                              p4_pd_mbr_hdl_t mbr, const void *datum,
                                                              p4_pd_corvin_switch_action_spec_t *out) {
  return member_from_plcmt_data<P, true>(function, dev, mbr, datum, out);
}

}  // namespace cv::pd
