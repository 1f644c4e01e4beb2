// The learning timeout: the one learning function that is not a digest's.
extern "C" {
#include "corvin_switch/pd.h"
}

extern "C" {

// The learning timeout is the whole device's, not one digest's.
P4_PD_EXPORT p4_pd_status_t p4_pd_corvin_switch_set_learning_timeout(p4_pd_sess_hdl_t sess_hdl, uint8_t dev_id,
                                                                     uint32_t timeout) {
  return static_cast<p4_pd_status_t>(pipe_mgr_flow_lrn_set_timeout(sess_hdl, dev_id, timeout));
}

}  // extern "C"
