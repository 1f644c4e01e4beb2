// The hitless restore: the driver replays every member, group and membership of the program's
// action profiles, and the member-selector state is rebuilt from them.
#include "catalog_desc.h"
#include "state.h"

extern "C" {
#include "corvin_switch/pd.h"
}

namespace cv::pd {
namespace {

bool accepts(const ProfileDesc &p, uint32_t act) {
  for (uint8_t i = 0; i < p.nmembers; ++i)
    if (p.members[i]->handle == act) return true;
  return false;
}

}  // namespace
}  // namespace cv::pd

extern "C" {

p4_pd_status_t p4_pd_corvin_switch_restore_virtual_dev_state(p4_pd_sess_hdl_t sess_hdl, uint32_t dev_id,
                                                             uint32_t pipe_id, uint32_t arg3, uint32_t arg4) {
  return static_cast<p4_pd_status_t>(pipe_mgr_hitless_ha_restore_virtual_dev_state(
      sess_hdl, dev_id, pipe_id, arg3, arg4, &p4_pd_corvin_switch_ha_restore_state_from_adt_sel));
}

// A record names a member, a group or the link between them by which of its handles are not 0. A
// membership takes the group's action from the state, so a member is to be replayed before its
// memberships. The state calls' results are dropped, but for that one.
void p4_pd_corvin_switch_ha_restore_state_from_adt_sel(p4_pd_sess_hdl_t sess_hdl, uint32_t dev_id,
                                                       uint32_t adt_tbl_hdl, uint32_t act_fn_hdl,
                                                       p4_pd_grp_hdl_t grp_hdl, p4_pd_mbr_hdl_t mbr_hdl,
                                                       uint32_t res_indicator) {
  using namespace cv::pd;
  const ProfileDesc *profile = nullptr;
  for (const ProfileDesc *p : desc::kProfiles) {
    if (p->adt_handle == adt_tbl_hdl) {
      profile = p;
      break;
    }
  }
  if (profile == nullptr) return;
  p4_pd_ms_state_t *state = ms_states[profile->index];
  if (grp_hdl == 0 && mbr_hdl != 0) {
    p4_pd_ms_new_mbr(sess_hdl, state, dev_id, mbr_hdl);
    p4_pd_ms_set_mbr_act(state, dev_id, mbr_hdl, act_fn_hdl);
  } else if (mbr_hdl == 0 && grp_hdl != 0) {
    p4_pd_ms_new_grp(sess_hdl, state, dev_id, grp_hdl);
  } else if (mbr_hdl != 0 && grp_hdl != 0) {
    p4_pd_ms_add_mbr_to_grp(sess_hdl, state, dev_id, mbr_hdl, grp_hdl);
    pipe_act_fn_hdl_t act = 0;
    if (p4_pd_ms_get_mbr_act(state, dev_id, mbr_hdl, &act) != 0) return;
    p4_pd_ms_set_grp_act(state, dev_id, grp_hdl, act);
  }
  // The action handle the record carries must be one of this profile's: a record of another
  // profile's action does its work above and stops here.
  if (res_indicator != 0 && accepts(*profile, act_fn_hdl))
    p4_pd_ms_mbr_apply_to_grps(state, dev_id, mbr_hdl, p4_pd_ms_grp_update_res, state);
}

}  // extern "C"
