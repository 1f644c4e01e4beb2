// Entry addition: one driver call of pipe_mgr_mat_ent_add with records built on the stack.
#pragma once

#include "encode.h"

namespace cv::pd {

// Adds an entry carrying action U to table T. `priority` is used by ternary tables, `meter` by a
// table whose direct meter takes a spec, `ttl` by idle-time tables that take one; the generated
// export passes 0 or null for what its table lacks. The driver's status comes back unchanged, and
// the entry handle is the driver's to write.
template <const TableDesc &T, const TableActionDesc &U>
CV_INLINE p4_pd_status_t table_add(const char *function, p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt, const void *key,
                                uint32_t priority, const void *params, const p4_pd_meter_spec_t *meter, uint32_t ttl,
                                p4_pd_entry_hdl_t *entry_hdl) {
  pipe_tbl_match_spec_t ms;
  uint8_t value[Key<T>::kBuf];
  uint8_t mask[Key<T>::kBuf];
  build_match_spec<T>(ms, value, mask, key, priority);
  pipe_action_spec_t as;
  uint8_t image[Act<*U.action>::kBuf];
  build_action_spec<*U.action>(as, image, params);
  build_resources<T, U, Family::add>(as, params, meter, function);
  return static_cast<p4_pd_status_t>(
      pipe_mgr_mat_ent_add(sess, driver_target(tgt), T.handle, &ms, U.handle, &as, ttl, 0, entry_hdl));
}

}  // namespace cv::pd
