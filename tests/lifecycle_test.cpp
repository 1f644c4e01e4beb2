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

TEST_F(Lifecycle, DevLogThenRestoreRoundTrips) {
  p4_pd_corvin_switch_init();
  cJSON *first = cJSON_CreateObject();
  ASSERT_EQ(drvm_fire_dev_log(0, first), 0);
  ASSERT_EQ(drvm_fire_dev_restore(0, first), 0);
  cJSON *second = cJSON_CreateObject();
  ASSERT_EQ(drvm_fire_dev_log(0, second), 0);
  char *a = cJSON_PrintUnformatted(first);
  char *b = cJSON_PrintUnformatted(second);
  EXPECT_STREQ(a, b);
  cJSON_free(a);
  cJSON_free(b);
  cJSON_Delete(first);
  cJSON_Delete(second);
}

TEST_F(Lifecycle, DevRestoreWithAnEmptyArrayReturnsZero) {
  p4_pd_corvin_switch_init();
  cJSON *root = cJSON_Parse("{\"name\":\"other_program\",\"act_profs\":[]}");
  drvm_clear_calls();
  EXPECT_EQ(drvm_fire_dev_restore(0, root), 0);
  EXPECT_EQ(drvm_call_count(), 0u);
  cJSON_Delete(root);
}

TEST_F(Lifecycle, DevRestoreSkipsUnknownNamesAndGoesOn) {
  p4_pd_corvin_switch_init();
  cJSON *root = cJSON_Parse("{\"act_profs\":[{\"name\":\"noSuchProfile\"},{\"name\":\"lagPortActionProfile\"}]}");
  EXPECT_EQ(drvm_fire_dev_restore(0, root), 0);
  cJSON_Delete(root);
}

TEST_F(Lifecycle, DevRemoveReturnsZero) {
  p4_pd_corvin_switch_init();
  EXPECT_EQ(drvm_fire_dev_remove(0), 0);
  EXPECT_EQ(drvm_fire_dev_remove(9), 0);
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
