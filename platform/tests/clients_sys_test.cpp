// The driver model's clients (registration, callback tables, device hooks) and system services
// (debug mode, log capture, the counted allocator). Refusals are in mat_calls_test.cpp.
#include <string>
#include <vector>

#include "drv/bf_sys.h"
#include "test_util.h"

namespace {

using ClientsTest = ModelTest;
using SysTest = ModelTest;

TEST_F(ClientsTest, HandlesFollowRegistrationAndAreNeverReusedUntilReset) {
  bf_drv_client_handle_t a = 0, b = 0;
  ASSERT_EQ(bf_drv_register("a", &a), BF_SUCCESS);
  ASSERT_EQ(bf_drv_register("b", &b), BF_SUCCESS);
  EXPECT_EQ(std::make_pair(a, b), std::make_pair(1u, 2u));
  EXPECT_EQ(drvm_client_handle("b"), 2u);
  EXPECT_EQ(drvm_client_handle("c"), 0u);
  EXPECT_EQ(drvm_client_handle(nullptr), 0u);
  ASSERT_EQ(bf_drv_deregister(a), BF_SUCCESS);
  EXPECT_EQ(drvm_client_handle("a"), 0u);
  EXPECT_EQ(bf_drv_deregister(a), BF_OBJECT_NOT_FOUND);  // the second time
  ASSERT_EQ(bf_drv_register("a", &a), BF_SUCCESS);      // the name is free again, under a new handle
  EXPECT_EQ(a, 3u);
  EXPECT_EQ(drvm_client_handle("b"), 2u);
  drvm_reset();
  EXPECT_EQ(drvm_client_handle("b"), 0u);
  ASSERT_EQ(bf_drv_register("b", &b), BF_SUCCESS);
  EXPECT_EQ(b, 1u);
}

// Hooks that note each call as "<client>:<hook>:<dev>", and return St.
std::vector<std::string> g_hook_calls;
struct cJSON *g_seen_state;
template <char C, bf_status_t St>
bf_status_t on_remove(bf_dev_id_t dev) {
  g_hook_calls.push_back(std::string(1, C) + ":remove:" + std::to_string(dev));
  return St;
}
template <char C, bf_status_t St>
bf_status_t on_state(bf_dev_id_t dev, struct cJSON *state) {
  g_hook_calls.push_back(std::string(1, C) + ":state:" + std::to_string(dev));
  g_seen_state = state;
  return St;
}
template <class F>
bf_drv_generic_cb_t cb(F *f) {
  return reinterpret_cast<bf_drv_generic_cb_t>(f);
}

// Callback tables are copied and a later one replaces the first; the device hooks in them fire for
// every client that has one, in registration order.
TEST_F(ClientsTest, CallbackTablesAreCopiedAndTheirDeviceHooksFireInRegistrationOrder) {
  g_hook_calls.clear();
  bf_drv_client_handle_t a = 0, none = 0, b = 0, gone = 0;
  for (auto [name, h] : {std::pair{"a", &a}, {"no_callbacks", &none}, {"b", &b}, {"gone", &gone}})
    ASSERT_EQ(bf_drv_register(name, h), BF_SUCCESS);
  bf_drv_client_callbacks_t ta{}, tb{};
  ta.slot[BF_DRV_CB_DEVICE_REMOVE] = cb(&on_remove<'a', BF_SUCCESS>);
  ta.slot[BF_DRV_CB_DEVICE_LOG] = cb(&on_state<'a', BF_SUCCESS>);
  ta.slot[BF_DRV_CB_DEVICE_RESTORE] = ta.slot[30] = cb(&on_state<'a', BF_UNEXPECTED>);
  tb.slot[BF_DRV_CB_DEVICE_LOG] = cb(&on_state<'b', BF_NO_SPACE>);  // replaced below
  EXPECT_EQ(drvm_client_callback_prio(b), -1);
  ASSERT_EQ(bf_drv_client_register_callbacks(a, &ta, 2), BF_SUCCESS);
  ASSERT_EQ(bf_drv_client_register_callbacks(b, &tb, 7), BF_SUCCESS);
  ASSERT_EQ(bf_drv_client_register_callbacks(gone, &ta, 2), BF_SUCCESS);
  ASSERT_EQ(bf_drv_deregister(gone), BF_SUCCESS);
  tb = {};
  tb.slot[BF_DRV_CB_DEVICE_REMOVE] = cb(&on_remove<'b', BF_NO_SPACE>);
  tb.slot[BF_DRV_CB_DEVICE_RESTORE] = cb(&on_state<'b', BF_NO_SPACE>);
  ASSERT_EQ(bf_drv_client_register_callbacks(b, &tb, 3), BF_SUCCESS);
  ta = tb = {};  // the driver keeps its own copies
  EXPECT_EQ(std::make_pair(drvm_client_callback_prio(a), drvm_client_callback_prio(b)), std::make_pair(2, 3));
  EXPECT_EQ(drvm_client_callback(a, 30), cb(&on_state<'a', BF_UNEXPECTED>));
  EXPECT_EQ(drvm_client_callback(a, 31), nullptr);
  EXPECT_EQ(drvm_client_callback(b, BF_DRV_CB_DEVICE_LOG), nullptr);
  drvm_clear_calls();
  int marker;
  struct cJSON *state = reinterpret_cast<struct cJSON *>(&marker);
  EXPECT_EQ(drvm_fire_dev_remove(4), BF_NO_SPACE);
  EXPECT_EQ(drvm_fire_dev_log(5, state), BF_SUCCESS);
  EXPECT_EQ(g_seen_state, state);
  EXPECT_EQ(drvm_fire_dev_restore(6, state), BF_UNEXPECTED);  // the first failure, all hooks called
  EXPECT_EQ(g_hook_calls,
            (std::vector<std::string>{"a:remove:4", "b:remove:4", "a:state:5", "a:state:6", "b:state:6"}));
  EXPECT_EQ(drvm_call_count(), 0u);  // firing is no driver call
}

TEST_F(SysTest, DebugModeAndLogLines) {
  drvm_set_debug_mode(5);
  EXPECT_EQ(bf_sys_dbg_mode(), 1);
  drvm_set_debug_mode(0);
  EXPECT_EQ(bf_sys_dbg_mode(), 0);
  drvm_set_debug_mode(1);
  const std::string long_text(5000, 'q');
  bf_sys_log_and_trace(0, 2, "ASSERTION FAILED: \"%s\" (%d) from %s:%d", "0", 0, "fn_name", 123);
  const char *first = drvm_log_line(0);
  bf_sys_log_and_trace(7, 4, "<%s>", long_text.c_str());
  bf_sys_log_and_trace(1, 1, "%s", "");
  for (int i = 0; i < 1000; ++i) bf_sys_log_and_trace(0, 3, "%d", i);
  ASSERT_EQ(drvm_log_count(), 1003u);
  EXPECT_EQ(drvm_log_line(0), first);  // earlier lines stay where they are
  EXPECT_STREQ(first, "ASSERTION FAILED: \"0\" (0) from fn_name:123");
  EXPECT_EQ(drvm_log_line(1), "<" + long_text + ">");
  EXPECT_EQ(std::make_pair(drvm_log_module(1), drvm_log_level(1)), std::make_pair(7, 4));
  EXPECT_STREQ(drvm_log_line(2), "");
  EXPECT_STREQ(drvm_log_line(1002), "999");
  EXPECT_EQ(drvm_log_line(1003), nullptr);
  EXPECT_EQ(std::make_pair(drvm_log_module(1003), drvm_log_level(1003)), std::make_pair(-1, -1));
  drvm_clear_log();
  EXPECT_EQ(drvm_log_count(), 0u);
  bf_sys_log_and_trace(0, 2, "x");
  drvm_reset();  // drops the lines and turns debug mode off
  EXPECT_EQ(drvm_log_count(), 0u);
  EXPECT_EQ(bf_sys_dbg_mode(), 0);
}

TEST_F(SysTest, CallocIsZeroedCountedAndFailsFromTheNthCallOn) {
  const size_t base = drvm_live_allocs();
  uint32_t *a = static_cast<uint32_t *>(bf_sys_calloc(16, sizeof(uint32_t)));
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(std::vector<uint32_t>(a, a + 16), std::vector<uint32_t>(16, 0));
  void *b = bf_sys_calloc(0, 8);  // an empty request still gets a block of its own
  ASSERT_NE(b, nullptr);
  EXPECT_NE(b, static_cast<void *>(a));
  EXPECT_EQ(bf_sys_calloc(static_cast<size_t>(-1) / 2, 4), nullptr);  // overflows
  EXPECT_EQ(drvm_live_allocs(), base + 2);
  bf_sys_free(a);
  bf_sys_free(nullptr);
  EXPECT_EQ(drvm_live_allocs(), base + 1);
  drvm_fail_alloc_after(2);
  void *c = bf_sys_calloc(1, 4), *d = bf_sys_calloc(1, 4);
  EXPECT_TRUE(c && d);
  EXPECT_EQ(bf_sys_calloc(1, 4), nullptr);
  EXPECT_EQ(bf_sys_calloc(1, 4), nullptr);
  uint32_t h = 0;
  EXPECT_EQ(add({key(1), kMask4}, &h), BF_SUCCESS);  // the model's own memory is not affected
  drvm_fail_alloc_off();
  void *e = bf_sys_calloc(1, 4);
  EXPECT_NE(e, nullptr);
  drvm_fail_alloc_after(0);
  EXPECT_EQ(bf_sys_calloc(1, 4), nullptr);
  drvm_reset();  // turns failure off and forgets no live block
  void *f = bf_sys_calloc(1, 4);
  EXPECT_NE(f, nullptr);
  EXPECT_EQ(drvm_live_allocs(), base + 5);
  for (void *p : {b, c, d, e, f}) bf_sys_free(p);
  EXPECT_EQ(drvm_live_allocs(), base);
}

TEST(SysDeathTest, FreeingForeignOrFreedMemoryAborts) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  static int not_ours;
  EXPECT_DEATH(bf_sys_free(&not_ours), "not allocated by bf_sys_calloc");
  EXPECT_DEATH(
      {
        void *p = bf_sys_calloc(1, 1);
        bf_sys_free(p);
        bf_sys_free(p);
      },
      "freed twice");
}

}  // namespace
