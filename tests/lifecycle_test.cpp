// Starting and stopping the library, its registration with the driver and the three device hooks.
#include <cjson/cJSON.h>

#include "test_support.h"

namespace {

const char *const kProfiles[] = {"egrMirrorLagPortActionProfile", "mirrorLagPortActionProfile",
                                 "foldedPipeActionProfile",       "ecmpMemberActionProfile",
                                 "tunnelMemberActionProfile",     "lagPortActionProfile"};

class Lifecycle : public ::testing::Test {
 protected:
  void SetUp() override { drvm_reset(); }
};

TEST_F(Lifecycle, InitRegistersTheClientWithThreeHooks) {
  p4_pd_corvin_switch_init();
  bf_drv_client_handle_t client = drvm_client_handle("p4_pd_corvin_switch_pd");
  ASSERT_NE(client, 0u);
  EXPECT_EQ(bf_drv_hdl, client);
  EXPECT_EQ(drvm_client_callback_prio(client), 2);
  for (unsigned slot = 0; slot < BF_DRV_CLIENT_CB_SLOTS; ++slot) {
    bool hook = slot == BF_DRV_CB_DEVICE_REMOVE || slot == BF_DRV_CB_DEVICE_LOG || slot == BF_DRV_CB_DEVICE_RESTORE;
    EXPECT_EQ(drvm_client_callback(client, slot) != nullptr, hook) << "slot " << slot;
  }
  ASSERT_EQ(drvm_count_calls("bf_drv_register"), 1u);
  EXPECT_STREQ(drvm_last_call("bf_drv_register")->text, "p4_pd_corvin_switch_pd");
  EXPECT_EQ(drvm_count_calls("bf_drv_client_register_callbacks"), 1u);
}

TEST_F(Lifecycle, CleanupDeregistersAndReturnsTheDriversStatusEachTime) {
  p4_pd_corvin_switch_init();
  uint32_t hdl = bf_drv_hdl;
  EXPECT_EQ(p4_pd_corvin_switch_cleanup(), 0u);
  EXPECT_EQ(drvm_last_call("bf_drv_deregister")->arg_u32[0], hdl);
  EXPECT_EQ(bf_drv_hdl, hdl) << "cleanup frees nothing and keeps the handle";
  // A second cleanup passes the same handle again and returns what the driver says of it.
  uint32_t second = p4_pd_corvin_switch_cleanup();
  EXPECT_EQ(second, static_cast<uint32_t>(drvm_last_call("bf_drv_deregister")->status));
  EXPECT_EQ(drvm_last_call("bf_drv_deregister")->arg_u32[0], hdl);
  EXPECT_EQ(drvm_count_calls("bf_drv_deregister"), 2u);
}

TEST_F(Lifecycle, DeviceStateCleanupDoesNothing) {
  p4_pd_corvin_switch_init();
  size_t calls = drvm_call_count();
  p4_pd_corvin_switch_device_state_cleanup();
  EXPECT_EQ(drvm_call_count(), calls);
}

TEST_F(Lifecycle, DevLogWritesSixProfilesInCanonicalOrderWithTheNameFirst) {
  p4_pd_corvin_switch_init();
  cJSON *root = cJSON_CreateObject();
  ASSERT_EQ(drvm_fire_dev_log(3, root), 0);
  EXPECT_STREQ(cJSON_GetObjectItem(root, "name")->valuestring, "corvin_switch");
  cJSON *profiles = cJSON_GetObjectItem(root, "act_profs");
  ASSERT_TRUE(cJSON_IsArray(profiles));
  ASSERT_EQ(cJSON_GetArraySize(profiles), 6);
  int i = 0;
  for (cJSON *p = profiles->child; p; p = p->next, ++i) {
    ASSERT_NE(p->child, nullptr);
    EXPECT_STREQ(p->child->string, "name") << "the profile's name is its first key";
    EXPECT_STREQ(p->child->valuestring, kProfiles[i]);
  }
  cJSON_Delete(root);
}

// What the device state record holds for one profile after a log, unformatted.
std::string logged_profile(bf_dev_id_t dev, int index) {
  cJSON *root = cJSON_CreateObject();
  EXPECT_EQ(drvm_fire_dev_log(dev, root), 0);
  char *text = cJSON_PrintUnformatted(cJSON_GetArrayItem(cJSON_GetObjectItem(root, "act_profs"), index));
  std::string out = text ? text : "";
  cJSON_free(text);
  cJSON_Delete(root);
  return out;
}

TEST_F(Lifecycle, DevRestoreLoadsEachProfileByNameAndLogGivesItBack) {
  p4_pd_corvin_switch_init();
  // Out of order, with an unknown name in the middle: each element goes to the profile it names.
  cJSON *root = cJSON_Parse(
      "{\"name\":\"another_program\",\"act_profs\":["
      "{\"name\":\"lagPortActionProfile\",\"members\":[{\"mbr_hdl\":12,\"act_fn_hdl\":7,\"res\":[0,0]}],"
      "\"groups\":[]},"
      "{\"name\":\"noSuchProfile\",\"members\":[{\"mbr_hdl\":99,\"res\":[0,0]}],\"groups\":[]},"
      "{\"name\":\"egrMirrorLagPortActionProfile\",\"members\":[{\"mbr_hdl\":3,\"res\":[0,0]}],"
      "\"groups\":[]}]}");
  ASSERT_NE(root, nullptr);
  EXPECT_EQ(drvm_fire_dev_restore(4, root), 0);
  cJSON_Delete(root);
  std::string lag = logged_profile(4, 5), egr = logged_profile(4, 0);
  EXPECT_NE(lag.find("\"mbr_hdl\":12"), std::string::npos) << lag;
  EXPECT_NE(egr.find("\"mbr_hdl\":3"), std::string::npos) << egr;
  for (int i = 0; i < 6; ++i) {
    EXPECT_EQ(logged_profile(4, i).find("\"mbr_hdl\":99"), std::string::npos) << "an unknown name restores nothing";
  }
  EXPECT_EQ(logged_profile(5, 5).find("mbr_hdl"), std::string::npos) << "another device holds nothing";
  // The device goes, and with it what the states held for it.
  EXPECT_EQ(drvm_fire_dev_remove(4), 0);
  EXPECT_EQ(logged_profile(4, 5).find("mbr_hdl"), std::string::npos);
}

TEST_F(Lifecycle, DevRestoreOfARepeatedNameKeepsTheLater) {
  p4_pd_corvin_switch_init();
  cJSON *root = cJSON_Parse(
      "{\"act_profs\":["
      "{\"name\":\"ecmpMemberActionProfile\",\"members\":[{\"mbr_hdl\":1,\"res\":[0,0]}],\"groups\":[]},"
      "{\"name\":\"ecmpMemberActionProfile\",\"members\":[{\"mbr_hdl\":2,\"res\":[0,0]}],\"groups\":[]}]}");
  ASSERT_NE(root, nullptr);
  EXPECT_EQ(drvm_fire_dev_restore(0, root), 0);
  cJSON_Delete(root);
  std::string ecmp = logged_profile(0, 3);
  EXPECT_EQ(ecmp.find("\"mbr_hdl\":1,"), std::string::npos) << ecmp;
  EXPECT_NE(ecmp.find("\"mbr_hdl\":2"), std::string::npos) << ecmp;
}

TEST_F(Lifecycle, DevRestoreWithAnEmptyArrayReturnsZero) {
  p4_pd_corvin_switch_init();
  cJSON *root = cJSON_Parse("{\"name\":\"other_program\",\"act_profs\":[]}");
  drvm_clear_calls();
  EXPECT_EQ(drvm_fire_dev_restore(0, root), 0);
  EXPECT_EQ(drvm_call_count(), 0u);
  cJSON_Delete(root);
}

TEST_F(Lifecycle, SuccessfulOperationsLogNothing) {
  p4_pd_corvin_switch_init();
  cJSON *root = cJSON_CreateObject();
  drvm_fire_dev_log(0, root);
  drvm_fire_dev_restore(0, root);
  drvm_fire_dev_remove(0);
  p4_pd_corvin_switch_cleanup();
  EXPECT_EQ(drvm_log_count(), 0u);
  cJSON_Delete(root);
}

using LifecycleDeath = Lifecycle;

TEST_F(LifecycleDeath, FailedRegistrationEndsTheProcessEvenOutOfDebugMode) {
  drvm_set_debug_mode(0);
  drvm_fail_next("bf_drv_register", BF_NO_SYS_RESOURCES);
  EXPECT_DEATH(p4_pd_corvin_switch_init(), "src/pd:[0-9]+: p4_pd_corvin_switch_init: Assertion `r == BF_SUCCESS' failed");
}

}  // namespace
