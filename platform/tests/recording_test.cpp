// The driver model's call records and injected refusals.
#include <algorithm>
#include <cstring>
#include <string>

#include "test_util.h"

namespace {

using RecordingTest = ModelTest;

const Bytes kValue = {0x00, 0x81, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x0A, 0xBC};
const Bytes kMask = {0x01, 0xFF, 0xFF, 0x00, 0x00, 0x00, 0x00, 0x00, 0x1F, 0xFF};

TEST_F(RecordingTest, AddIsRecordedWithCopiesOfEverything) {
  Request r(kValue, kMask, 7, 0, {0x11, 0x22, 0x33});
  r.action.resource_count = 1;
  r.action.resources[0].tbl_hdl = 0x5000001;
  r.action.resources[0].data.meter.cir = 1000;
  r.action.resources[0].tag = PIPE_RES_TAG_ATTACHED;
  uint32_t hdl = 0;
  ASSERT_EQ(pipe_mgr_mat_ent_add(9, dev_target_t{2, 1}, 0x1000010, &r.match, 0x2000001,
                                 &r.action, 30, 0x4, &hdl),
            BF_SUCCESS);
  const pipe_action_spec_t sent = r.action;
  // The caller reuses its buffers and records right after the call.
  std::fill(r.value.begin(), r.value.end(), 0xEE);
  std::fill(r.mask.begin(), r.mask.end(), 0xEE);
  std::fill(r.adata.begin(), r.adata.end(), 0xEE);
  std::memset(&r.match, 0, sizeof r.match);
  std::memset(&r.action, 0, sizeof r.action);

  ASSERT_EQ(drvm_call_count(), 1u);
  const drvm_call_t *c = drvm_call(0);
  ASSERT_NE(c, nullptr);
  EXPECT_STREQ(c->fn, "pipe_mgr_mat_ent_add");
  EXPECT_EQ(c->status, BF_SUCCESS);
  EXPECT_EQ(c->sess_hdl, 9u);
  EXPECT_EQ(c->dev_tgt.device_id, 2u);
  EXPECT_EQ(c->dev_tgt.dev_pipe_id, 1u);
  EXPECT_EQ(c->tbl_hdl, 0x1000010u);
  EXPECT_EQ(c->act_fn_hdl, 0x2000001u);
  EXPECT_EQ(c->ttl, 30u);
  EXPECT_EQ(c->flags, 0x4u);
  EXPECT_EQ(c->ent_hdl, hdl);
  EXPECT_EQ(c->ptr_arg, &hdl);
  EXPECT_EQ(c->text, nullptr);
  ASSERT_TRUE(c->has_match);
  EXPECT_EQ(c->match.priority, 7u);
  EXPECT_EQ(c->match.num_match_bytes, 10);
  EXPECT_EQ(bytes_at(c->match.match_value_bytes, 10), kValue);
  EXPECT_EQ(bytes_at(c->match.match_mask_bytes, 10), kMask);
  ASSERT_TRUE(c->has_action);
  EXPECT_EQ(c->action.action_data_type, PIPE_ACTION_DATA_TYPE);
  EXPECT_EQ(c->action.act_data.num_action_data_bytes, 3);
  EXPECT_EQ(bytes_at(c->action.act_data.action_data_bytes, 3), (Bytes{0x11, 0x22, 0x33}));
  EXPECT_EQ(std::memcmp(c->action.resources, sent.resources, sizeof sent.resources), 0);
}

TEST_F(RecordingTest, RefusedCallsAreRecordedWithTheirStatus) {
  Request r(kValue, kMask);
  uint32_t hdl = 0;
  ASSERT_EQ(add(r, &hdl), BF_SUCCESS);
  uint32_t dup = 0;
  ASSERT_EQ(add(r, &dup), BF_ALREADY_EXISTS);
  const drvm_call_t *c = drvm_last_call("pipe_mgr_mat_ent_add");
  ASSERT_NE(c, nullptr);
  EXPECT_EQ(c->status, BF_ALREADY_EXISTS);
  EXPECT_EQ(c->ent_hdl, 0u);
  EXPECT_EQ(c->ptr_arg, &dup);

  ASSERT_EQ(pipe_mgr_mat_ent_add(1, dev_target_t{0, 0}, kTbl, nullptr, kAct, &r.action, 0, 0, &dup),
            BF_INVALID_ARG);
  c = drvm_last_call(nullptr);
  EXPECT_EQ(c->status, BF_INVALID_ARG);
  EXPECT_FALSE(c->has_match);
  EXPECT_TRUE(c->has_action);
  EXPECT_EQ(drvm_call_count(), 3u);
}

TEST_F(RecordingTest, ImagePointersKeepTheirShape) {
  Request r(kValue, kMask, 0, 0, {});
  static uint8_t some_byte;
  r.action.act_data.action_data_bytes = &some_byte;  // an action without parameters
  r.match.match_mask_bytes = nullptr;                // refused, but recorded as sent
  uint32_t hdl = 0;
  ASSERT_EQ(add(r, &hdl), BF_INVALID_ARG);
  const drvm_call_t *c = drvm_last_call(nullptr);
  ASSERT_NE(c, nullptr);
  EXPECT_EQ(c->match.match_mask_bytes, nullptr);
  EXPECT_NE(c->match.match_value_bytes, nullptr);
  EXPECT_NE(c->match.match_value_bytes, r.value.data());
  EXPECT_NE(c->action.act_data.action_data_bytes, nullptr);
  EXPECT_NE(c->action.act_data.action_data_bytes, &some_byte);
  r.action.act_data.action_data_bytes = nullptr;
  add(r, &hdl);
  EXPECT_EQ(drvm_last_call(nullptr)->action.act_data.action_data_bytes, nullptr);
}

TEST_F(RecordingTest, RecordsStayValidWhileMoreAreAdded) {
  Request r(kValue, kMask);
  uint32_t hdl = 0;
  ASSERT_EQ(add(r, &hdl), BF_SUCCESS);
  const drvm_call_t *first = drvm_call(0);
  const uint8_t *image = first->match.match_value_bytes;
  for (uint32_t i = 0; i < 1000; ++i) {
    r.match.priority = i + 1;
    ASSERT_EQ(add(r, &hdl), BF_SUCCESS);
  }
  EXPECT_EQ(drvm_call(0), first);
  EXPECT_EQ(first->match.match_value_bytes, image);
  EXPECT_EQ(bytes_at(image, 10), kValue);
  EXPECT_EQ(first->match.priority, 0u);
}

TEST_F(RecordingTest, QueriesCountAndFindCalls) {
  bf_drv_client_handle_t client = 0;
  ASSERT_EQ(bf_drv_register("a", &client), BF_SUCCESS);
  Request r(kValue, kMask);
  uint32_t h1 = 0, h2 = 0;
  ASSERT_EQ(add(r, &h1), BF_SUCCESS);
  r.match.priority = 1;
  ASSERT_EQ(add(r, &h2), BF_SUCCESS);
  ASSERT_EQ(bf_drv_deregister(client), BF_SUCCESS);

  EXPECT_EQ(drvm_call_count(), 4u);
  EXPECT_EQ(drvm_count_calls(nullptr), 4u);
  EXPECT_EQ(drvm_count_calls("pipe_mgr_mat_ent_add"), 2u);
  EXPECT_EQ(drvm_count_calls("bf_drv_register"), 1u);
  EXPECT_EQ(drvm_count_calls("pipe_mgr_mat_ent_del"), 0u);
  EXPECT_STREQ(drvm_call(0)->fn, "bf_drv_register");
  EXPECT_STREQ(drvm_call(3)->fn, "bf_drv_deregister");
  EXPECT_EQ(drvm_call(4), nullptr);
  EXPECT_EQ(drvm_last_call("pipe_mgr_mat_ent_add")->ent_hdl, h2);
  EXPECT_STREQ(drvm_last_call(nullptr)->fn, "bf_drv_deregister");
  EXPECT_EQ(drvm_last_call("pipe_mgr_mat_ent_del"), nullptr);

  drvm_clear_calls();
  EXPECT_EQ(drvm_call_count(), 0u);
  EXPECT_EQ(drvm_call(0), nullptr);
  EXPECT_EQ(drvm_entry_count(0, kTbl), 2u);  // clearing records leaves the store alone
}

TEST_F(RecordingTest, RecordingOffServesCallsWithoutRecords) {
  drvm_set_recording(0);
  Request r(kValue, kMask);
  uint32_t hdl = 0;
  ASSERT_EQ(add(r, &hdl), BF_SUCCESS);
  EXPECT_EQ(add(r, &hdl), BF_ALREADY_EXISTS);
  EXPECT_EQ(drvm_call_count(), 0u);
  EXPECT_EQ(drvm_entry_count(0, kTbl), 1u);
  drvm_set_recording(1);
  r.match.priority = 4;
  ASSERT_EQ(add(r, &hdl), BF_SUCCESS);
  EXPECT_EQ(drvm_call_count(), 1u);
  drvm_set_recording(0);
  drvm_reset();  // recording goes back on
  ASSERT_EQ(add(r, &hdl), BF_SUCCESS);
  EXPECT_EQ(drvm_call_count(), 1u);
}

TEST_F(RecordingTest, ClientCallsAreRecorded) {
  char name[] = "client_x";
  bf_drv_client_handle_t hdl = 0;
  ASSERT_EQ(bf_drv_register(name, &hdl), BF_SUCCESS);
  name[0] = 'Z';
  const drvm_call_t *c = drvm_last_call("bf_drv_register");
  ASSERT_NE(c, nullptr);
  EXPECT_STREQ(c->text, "client_x");
  EXPECT_EQ(c->arg_u32[0], hdl);
  EXPECT_EQ(c->ptr_arg, &hdl);
  EXPECT_EQ(c->status, BF_SUCCESS);

  bf_drv_client_callbacks_t cbs{};
  ASSERT_EQ(bf_drv_client_register_callbacks(hdl, &cbs, 2), BF_SUCCESS);
  c = drvm_last_call(nullptr);
  EXPECT_STREQ(c->fn, "bf_drv_client_register_callbacks");
  EXPECT_EQ(c->arg_u32[0], hdl);
  EXPECT_EQ(c->arg_u32[1], 2u);
  EXPECT_EQ(c->ptr_arg, &cbs);

  ASSERT_EQ(bf_drv_deregister(hdl), BF_SUCCESS);
  EXPECT_EQ(bf_drv_deregister(hdl), BF_OBJECT_NOT_FOUND);
  c = drvm_last_call("bf_drv_deregister");
  EXPECT_EQ(c->arg_u32[0], hdl);
  EXPECT_EQ(c->status, BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(drvm_count_calls("bf_drv_deregister"), 2u);

  EXPECT_EQ(bf_drv_register(nullptr, &hdl), BF_INVALID_ARG);
  EXPECT_EQ(drvm_last_call(nullptr)->text, nullptr);
}

TEST_F(RecordingTest, InjectedRefusalHasNoEffect) {
  Request r(kValue, kMask);
  drvm_fail_next("pipe_mgr_mat_ent_add", BF_INJECTED_FAULT);
  uint32_t hdl = 0xDEADu;
  EXPECT_EQ(add(r, &hdl), BF_INJECTED_FAULT);
  EXPECT_EQ(hdl, 0xDEADu);
  EXPECT_EQ(drvm_entry_count(0, kTbl), 0u);
  const drvm_call_t *c = drvm_last_call(nullptr);
  ASSERT_NE(c, nullptr);
  EXPECT_EQ(c->status, BF_INJECTED_FAULT);
  EXPECT_TRUE(c->has_match);
  EXPECT_EQ(bytes_at(c->match.match_value_bytes, 10), kValue);
  // Used once: the same request now goes in, with the first handle.
  ASSERT_EQ(add(r, &hdl), BF_SUCCESS);
  EXPECT_EQ(hdl, 1u);
}

TEST_F(RecordingTest, RefusalsQueueInOrderPerFunction) {
  drvm_fail_next("pipe_mgr_mat_ent_add", BF_NO_SPACE);
  drvm_fail_next("bf_drv_register", BF_NO_SYS_RESOURCES);
  drvm_fail_next("pipe_mgr_mat_ent_add", BF_UNEXPECTED);
  Request r(kValue, kMask);
  uint32_t hdl = 0;
  EXPECT_EQ(add(r, &hdl), BF_NO_SPACE);
  EXPECT_EQ(add(r, &hdl), BF_UNEXPECTED);
  EXPECT_EQ(add(r, &hdl), BF_SUCCESS);

  bf_drv_client_handle_t client = 0xDEADu;
  EXPECT_EQ(bf_drv_register("c", &client), BF_NO_SYS_RESOURCES);
  EXPECT_EQ(client, 0xDEADu);
  EXPECT_EQ(drvm_client_handle("c"), 0u);
  ASSERT_EQ(bf_drv_register("c", &client), BF_SUCCESS);
  EXPECT_EQ(client, 1u);

  drvm_fail_next("bf_drv_deregister", BF_INJECTED_FAULT);
  drvm_fail_next("bf_drv_client_register_callbacks", BF_INJECTED_FAULT);
  bf_drv_client_callbacks_t cbs{};
  EXPECT_EQ(bf_drv_client_register_callbacks(client, &cbs, 2), BF_INJECTED_FAULT);
  EXPECT_EQ(drvm_client_callback_prio(client), -1);
  EXPECT_EQ(bf_drv_deregister(client), BF_INJECTED_FAULT);
  EXPECT_EQ(drvm_client_handle("c"), client);
}

TEST_F(RecordingTest, ResetDropsQueuedRefusals) {
  drvm_fail_next("pipe_mgr_mat_ent_add", BF_INJECTED_FAULT);
  drvm_reset();
  Request r(kValue, kMask);
  uint32_t hdl = 0;
  EXPECT_EQ(add(r, &hdl), BF_SUCCESS);
}

}  // namespace
