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
  MatchRecord<T> match(key, priority);
  ActionRecord<T, U, Family::add> action(params, meter, function);
  return static_cast<p4_pd_status_t>(
      pipe_mgr_mat_ent_add(sess, driver_target(tgt), T.handle, &match.ms, U.handle, &action.as, ttl, 0, entry_hdl));
}

}  // namespace cv::pd
