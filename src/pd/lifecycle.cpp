// Library start and stop, registration with the driver, and the three device hooks.
#include <cstring>

#include <cjson/cJSON.h>

#include "assertion.h"
#include "state.h"

extern "C" {
#include "corvin_switch/pd.h"
#include "drv/bf_drv.h"
}

uint32_t bf_drv_hdl = 0;

namespace cv::pd {

p4_pd_ms_state_t *ms_states[kProfileCount];

namespace {

constexpr const char *kClientName = "p4_pd_corvin_switch_pd";
constexpr bf_drv_client_prio_t kClientPrio = 2;

bf_status_t dev_remove(bf_dev_id_t dev) {
  for (auto *state : ms_states) p4_pd_ms_destroy_state_for_dev(state, dev);
  p4_pd_ms_destroy_txn_state_for_dev(dev);
  return 0;
}

bf_status_t dev_log(bf_dev_id_t dev, cJSON *root) {
  cJSON_AddStringToObject(root, "name", kProgramName);
  cJSON *profiles = cJSON_CreateArray();
  cJSON_AddItemToObject(root, "act_profs", profiles);
  for (size_t i = 0; i < kProfileCount; ++i) {
    cJSON *profile = cJSON_CreateObject();
    cJSON_AddItemToArray(profiles, profile);
    cJSON_AddStringToObject(profile, "name", kProfileNames[i]);
    p4_pd_ms_log_state(dev, ms_states[i], profile);
  }
  return 0;
}

// Restores every element whose name is a profile's, in record order; six independent tests per
// element, so a repeated name restores twice and an unknown one is passed over.
bf_status_t dev_restore(bf_dev_id_t dev, cJSON *root) {
  for (cJSON *element = cJSON_GetObjectItem(root, "act_profs")->child; element; element = element->next) {
    for (size_t i = 0; i < kProfileCount; ++i) {
      if (std::strcmp(cJSON_GetObjectItem(element, "name")->valuestring, kProfileNames[i]) == 0) {
        p4_pd_ms_restore_state(dev, ms_states[i], element);
      }
    }
  }
  return 0;
}

}  // namespace
}  // namespace cv::pd

extern "C" {

void p4_pd_corvin_switch_init(void) {
  using namespace cv::pd;
  p4_pd_ms_init();
  for (auto &state : ms_states) state = p4_pd_ms_init_state();
  bf_status_t r = bf_drv_register(kClientName, &bf_drv_hdl);
  if (r != BF_SUCCESS) CV_HARD_ASSERT("r == BF_SUCCESS", __func__);
  bf_drv_client_callbacks_t callbacks;
  std::memset(&callbacks, 0, sizeof callbacks);
  callbacks.slot[BF_DRV_CB_DEVICE_REMOVE] = reinterpret_cast<bf_drv_generic_cb_t>(&dev_remove);
  callbacks.slot[BF_DRV_CB_DEVICE_LOG] = reinterpret_cast<bf_drv_generic_cb_t>(&dev_log);
  callbacks.slot[BF_DRV_CB_DEVICE_RESTORE] = reinterpret_cast<bf_drv_generic_cb_t>(&dev_restore);
  bf_drv_client_register_callbacks(bf_drv_hdl, &callbacks, kClientPrio);
}

p4_pd_status_t p4_pd_corvin_switch_cleanup(void) { return static_cast<p4_pd_status_t>(bf_drv_deregister(bf_drv_hdl)); }

void p4_pd_corvin_switch_device_state_cleanup(void) {}

}  // extern "C"
