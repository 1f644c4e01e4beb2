/* The public headers compiled as strict C99, and the record layout as C sees it, for comparison
 * with C++ (StoreLayoutTest in store_test.cpp). */
#include <stddef.h>

#include "drv/bf_drv.h"
#include "drv/bf_sys.h"
#include "drv/bf_types.h"
#include "drv/model.h"
#include "drv/pd_ms.h"
#include "drv/pipe_mgr.h"

size_t cv_c_layout(unsigned i);

size_t cv_c_layout(unsigned i) {
  const size_t v[] = {
      sizeof(pipe_tbl_match_spec_t), offsetof(pipe_tbl_match_spec_t, num_match_bytes),
      offsetof(pipe_tbl_match_spec_t, reserved), sizeof(pipe_action_spec_t), offsetof(pipe_action_spec_t, act_data),
      offsetof(pipe_action_spec_t, member_hdl), offsetof(pipe_action_spec_t, resources), sizeof(pipe_res_spec_t),
      offsetof(pipe_res_spec_t, data.meter.cir), offsetof(pipe_res_spec_t, data.meter.pburst),
      offsetof(pipe_res_spec_t, tag), sizeof(pipe_meter_spec_t), sizeof(drvm_call_t), offsetof(drvm_call_t, match),
      offsetof(drvm_call_t, action), sizeof(bf_drv_client_callbacks_t)};
  return i < sizeof v / sizeof v[0] ? v[i] : (size_t)-1;
}
