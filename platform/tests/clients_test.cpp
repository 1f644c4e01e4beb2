// The driver model's clients: registration, callback tables and device hooks.
#include <string>
#include <utility>
#include <vector>

#include "test_util.h"

namespace {

using ClientsTest = ModelTest;

TEST_F(ClientsTest, HandlesStartAtOneAndFollowRegistration) {
  bf_drv_client_handle_t a = 0, b = 0;
  ASSERT_EQ(bf_drv_register("a", &a), BF_SUCCESS);
  ASSERT_EQ(bf_drv_register("b", &b), BF_SUCCESS);
  EXPECT_EQ(a, 1u);
  EXPECT_EQ(b, 2u);
  EXPECT_EQ(drvm_client_handle("a"), 1u);
  EXPECT_EQ(drvm_client_handle("b"), 2u);
  EXPECT_EQ(drvm_client_handle("c"), 0u);
  EXPECT_EQ(drvm_client_handle(nullptr), 0u);
}

TEST_F(ClientsTest, SameNameTwiceIsRefused) {
  bf_drv_client_handle_t a = 0;
  ASSERT_EQ(bf_drv_register("p4_pd_client", &a), BF_SUCCESS);
  bf_drv_client_handle_t again = 0xDEADu;
  EXPECT_EQ(bf_drv_register("p4_pd_client", &again), BF_ALREADY_EXISTS);
  EXPECT_EQ(again, 0xDEADu);
  EXPECT_EQ(drvm_client_handle("p4_pd_client"), a);
}

TEST_F(ClientsTest, NullArgumentsAreRefused) {
  bf_drv_client_handle_t h = 0xDEADu;
  EXPECT_EQ(bf_drv_register(nullptr, &h), BF_INVALID_ARG);
  EXPECT_EQ(bf_drv_register("x", nullptr), BF_INVALID_ARG);
  EXPECT_EQ(h, 0xDEADu);
  EXPECT_EQ(drvm_client_handle("x"), 0u);
  ASSERT_EQ(bf_drv_register("x", &h), BF_SUCCESS);
  EXPECT_EQ(h, 1u);  // the refusals used no handle
  EXPECT_EQ(bf_drv_client_register_callbacks(h, nullptr, 2), BF_INVALID_ARG);
}

TEST_F(ClientsTest, DeregisterForgetsTheClientOnce) {
  bf_drv_client_handle_t a = 0, b = 0;
  ASSERT_EQ(bf_drv_register("a", &a), BF_SUCCESS);
  ASSERT_EQ(bf_drv_register("b", &b), BF_SUCCESS);
  EXPECT_EQ(bf_drv_deregister(a), BF_SUCCESS);
  EXPECT_EQ(drvm_client_handle("a"), 0u);
  EXPECT_EQ(drvm_client_handle("b"), b);
  EXPECT_EQ(bf_drv_deregister(a), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(bf_drv_deregister(77), BF_OBJECT_NOT_FOUND);
  // The name is free again; the handle is new.
  bf_drv_client_handle_t again = 0;
  ASSERT_EQ(bf_drv_register("a", &again), BF_SUCCESS);
  EXPECT_EQ(again, 3u);
}

bf_status_t dummy_remove(bf_dev_id_t) { return BF_SUCCESS; }

TEST_F(ClientsTest, CallbackTableIsCopied) {
  bf_drv_client_handle_t h = 0;
  ASSERT_EQ(bf_drv_register("a", &h), BF_SUCCESS);
  EXPECT_EQ(drvm_client_callback_prio(h), -1);
  EXPECT_EQ(drvm_client_callback(h, 3), nullptr);
  bf_drv_client_callbacks_t cbs{};
  cbs.slot[3] = reinterpret_cast<bf_drv_generic_cb_t>(&dummy_remove);
  cbs.slot[30] = reinterpret_cast<bf_drv_generic_cb_t>(&dummy_remove);
  ASSERT_EQ(bf_drv_client_register_callbacks(h, &cbs, 2), BF_SUCCESS);
  cbs.slot[3] = nullptr;  // the caller's table was a local; the driver keeps its own copy
  cbs.slot[4] = reinterpret_cast<bf_drv_generic_cb_t>(&dummy_remove);
  EXPECT_EQ(drvm_client_callback_prio(h), 2);
  EXPECT_EQ(drvm_client_callback(h, 3), reinterpret_cast<bf_drv_generic_cb_t>(&dummy_remove));
  EXPECT_EQ(drvm_client_callback(h, 30), reinterpret_cast<bf_drv_generic_cb_t>(&dummy_remove));
  EXPECT_EQ(drvm_client_callback(h, 4), nullptr);
  EXPECT_EQ(drvm_client_callback(h, 31), nullptr);
  EXPECT_EQ(drvm_client_callback(h + 1, 3), nullptr);
  EXPECT_EQ(drvm_client_callback_prio(h + 1), -1);
  EXPECT_EQ(bf_drv_client_register_callbacks(h + 1, &cbs, 2), BF_OBJECT_NOT_FOUND);
  // A second table replaces the first.
  bf_drv_client_callbacks_t none{};
  ASSERT_EQ(bf_drv_client_register_callbacks(h, &none, 5), BF_SUCCESS);
  EXPECT_EQ(drvm_client_callback(h, 3), nullptr);
  EXPECT_EQ(drvm_client_callback_prio(h), 5);
}

// Hooks that note each call as "<client>:<hook>:<dev>".
std::vector<std::string> g_hook_calls;
struct cJSON *g_seen_state;

bf_status_t a_remove(bf_dev_id_t dev) {
  g_hook_calls.push_back("a:remove:" + std::to_string(dev));
  return BF_SUCCESS;
}
bf_status_t a_log(bf_dev_id_t dev, struct cJSON *state) {
  g_hook_calls.push_back("a:log:" + std::to_string(dev));
  g_seen_state = state;
  return BF_SUCCESS;
}
bf_status_t a_restore(bf_dev_id_t dev, struct cJSON *) {
  g_hook_calls.push_back("a:restore:" + std::to_string(dev));
  return BF_UNEXPECTED;
}
bf_status_t b_remove(bf_dev_id_t dev) {
  g_hook_calls.push_back("b:remove:" + std::to_string(dev));
  return BF_NO_SPACE;
}
bf_status_t b_restore(bf_dev_id_t dev, struct cJSON *) {
  g_hook_calls.push_back("b:restore:" + std::to_string(dev));
  return BF_NO_SPACE;
}

bf_drv_client_callbacks_t table(bf_drv_generic_cb_t remove, bf_drv_generic_cb_t log,
                                bf_drv_generic_cb_t restore) {
  bf_drv_client_callbacks_t t{};
  t.slot[BF_DRV_CB_DEVICE_REMOVE] = remove;
  t.slot[BF_DRV_CB_DEVICE_LOG] = log;
  t.slot[BF_DRV_CB_DEVICE_RESTORE] = restore;
  return t;
}

template <class F>
bf_drv_generic_cb_t cb(F *f) {
  return reinterpret_cast<bf_drv_generic_cb_t>(f);
}

TEST_F(ClientsTest, DeviceHooksFireForEveryClientThatHasThem) {
  g_hook_calls.clear();
  g_seen_state = nullptr;
  bf_drv_client_handle_t a = 0, none = 0, b = 0, gone = 0;
  ASSERT_EQ(bf_drv_register("a", &a), BF_SUCCESS);
  ASSERT_EQ(bf_drv_register("no_callbacks", &none), BF_SUCCESS);
  ASSERT_EQ(bf_drv_register("b", &b), BF_SUCCESS);
  ASSERT_EQ(bf_drv_register("gone", &gone), BF_SUCCESS);
  bf_drv_client_callbacks_t ta = table(cb(&a_remove), cb(&a_log), cb(&a_restore));
  bf_drv_client_callbacks_t tb = table(cb(&b_remove), nullptr, cb(&b_restore));
  ASSERT_EQ(bf_drv_client_register_callbacks(a, &ta, 2), BF_SUCCESS);
  ASSERT_EQ(bf_drv_client_register_callbacks(b, &tb, 2), BF_SUCCESS);
  ASSERT_EQ(bf_drv_client_register_callbacks(gone, &ta, 2), BF_SUCCESS);
  ASSERT_EQ(bf_drv_deregister(gone), BF_SUCCESS);
  drvm_clear_calls();

  EXPECT_EQ(drvm_fire_dev_remove(4), BF_NO_SPACE);
  int marker;
  struct cJSON *state = reinterpret_cast<struct cJSON *>(&marker);
  EXPECT_EQ(drvm_fire_dev_log(5, state), BF_SUCCESS);
  EXPECT_EQ(drvm_fire_dev_restore(6, state), BF_UNEXPECTED);  // the first failure wins
  EXPECT_EQ(g_hook_calls, (std::vector<std::string>{"a:remove:4", "b:remove:4", "a:log:5",
                                                    "a:restore:6", "b:restore:6"}));
  EXPECT_EQ(g_seen_state, state);
  EXPECT_EQ(drvm_call_count(), 0u);  // firing is the model's doing, not a driver call
}

TEST_F(ClientsTest, ResetForgetsClientsAndRestartsHandles) {
  bf_drv_client_handle_t a = 0;
  ASSERT_EQ(bf_drv_register("a", &a), BF_SUCCESS);
  ASSERT_EQ(bf_drv_register("b", &a), BF_SUCCESS);
  drvm_reset();
  EXPECT_EQ(drvm_client_handle("a"), 0u);
  EXPECT_EQ(bf_drv_deregister(1), BF_OBJECT_NOT_FOUND);
  ASSERT_EQ(bf_drv_register("b", &a), BF_SUCCESS);
  EXPECT_EQ(a, 1u);
}

}  // namespace
