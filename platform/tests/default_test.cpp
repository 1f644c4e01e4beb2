// The driver model's default entries: their handles, setting, resetting and reading back.
#include <cstring>

#include "test_util.h"

namespace {

using DefaultTest = ModelTest;

const Bytes kValue = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x01, 0x23};
const Bytes kMask(8, 0xFF);
constexpr uint32_t kMissAct = 0x20000072;
constexpr uint32_t kInitAct = 0x20000071;

// An action record on its own, with the image it points at.
struct Action {
  Bytes image;
  pipe_action_spec_t spec{};
  explicit Action(Bytes img) : image(std::move(img)) {
    spec.action_data_type = PIPE_ACTION_DATA_TYPE;
    spec.act_data.num_action_data_bytes = static_cast<uint16_t>(image.size());
    spec.act_data.num_valid_action_data_bits = static_cast<uint16_t>(image.empty() ? 0 : image.size() * 8 - 1);
    spec.act_data.action_data_bytes = image.data();
  }
  Action(const Action &) = delete;
  Action &operator=(const Action &) = delete;
};

bf_status_t set_default(Action &a, uint32_t *hdl, uint32_t act = kMissAct, uint32_t tbl = kTbl,
                        bf_dev_id_t dev = 0) {
  return pipe_mgr_mat_default_entry_set(2, tgt(dev), tbl, act, &a.spec, 0, hdl);
}

bf_status_t reset_default(uint32_t tbl = kTbl, bf_dev_id_t dev = 0) {
  return pipe_mgr_mat_tbl_default_entry_reset(2, tgt(dev), tbl, 0);
}

uint32_t default_hdl(uint32_t tbl = kTbl, bf_dev_id_t dev = 0) {
  uint32_t h = 0;
  EXPECT_EQ(pipe_mgr_table_get_default_entry_handle(2, tgt(dev), tbl, &h), BF_SUCCESS);
  return h;
}

TEST_F(DefaultTest, AnUnsetDefaultReadsAsNotFound) {
  Readback rb(0, 56);
  EXPECT_EQ(rb.get_default(), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(rb.act, 0xDEADu);
  EXPECT_EQ(rb.image, Bytes(56, 0xA5));
  EXPECT_EQ(rb.action.act_data.num_action_data_bytes, 56);
  // Its handle exists all the same, and get_entry of it finds nothing.
  const uint32_t h = default_hdl();
  EXPECT_NE(h, 0u);
  EXPECT_EQ(rb.get(h), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(drvm_default_entry_get(0, kTbl, nullptr, nullptr, nullptr), BF_OBJECT_NOT_FOUND);
}

TEST_F(DefaultTest, TheDefaultHandleComesFromTheDevicesHandlesAndStaysTheSame) {
  Request r(kValue, kMask);
  uint32_t e1 = 0;
  ASSERT_EQ(add(r, &e1), BF_SUCCESS);
  EXPECT_EQ(e1, 1u);
  const uint32_t d = default_hdl();
  EXPECT_EQ(d, 2u);
  EXPECT_EQ(default_hdl(), d);
  Action a({0x01});
  uint32_t written = 0;
  ASSERT_EQ(set_default(a, &written), BF_SUCCESS);
  EXPECT_EQ(written, d);
  ASSERT_EQ(reset_default(), BF_SUCCESS);
  ASSERT_EQ(set_default(a, &written), BF_SUCCESS);
  EXPECT_EQ(written, d);
  // The next entry takes the next number; other tables and devices have their own default handle.
  Request s(kValue, kMask, 1);
  uint32_t e2 = 0;
  ASSERT_EQ(add(s, &e2), BF_SUCCESS);
  EXPECT_EQ(e2, 3u);
  EXPECT_EQ(default_hdl(kTbl + 1), 4u);
  EXPECT_EQ(default_hdl(kTbl, 1), 1u);
  EXPECT_EQ(default_hdl(), d);
  // A reset issues it too, if nothing did before.
  ASSERT_EQ(reset_default(kTbl + 2), BF_SUCCESS);
  EXPECT_EQ(default_hdl(kTbl + 2), 5u);
}

TEST_F(DefaultTest, SetDefaultKeepsADeepCopyThatReadsBackIntoTheCallersBuffer) {
  Action a({0xC1, 0xC2, 0xC3});
  a.spec.resource_count = 1;
  a.spec.member_hdl = 11;
  a.spec.group_hdl = 12;
  a.spec.resources[0].tbl_hdl = 0x5000001;
  a.spec.resources[0].tag = PIPE_RES_TAG_DETACHED;
  a.spec.resources[0].data.meter.pir = 0x1234567890ull;
  uint32_t h = 0;
  ASSERT_EQ(set_default(a, &h), BF_SUCCESS);
  const pipe_action_spec_t sent = a.spec;
  std::fill(a.image.begin(), a.image.end(), 0);
  std::memset(&a.spec.resources, 0, sizeof a.spec.resources);

  Readback rb(0, 56);
  uint8_t *const buffer = rb.image.data();
  ASSERT_EQ(rb.get_default(), BF_SUCCESS);
  EXPECT_EQ(rb.act, kMissAct);
  EXPECT_EQ(rb.action.action_data_type, PIPE_ACTION_DATA_TYPE);
  EXPECT_EQ(rb.action.resource_count, 1);
  EXPECT_EQ(rb.action.act_data.num_action_data_bytes, 3);
  EXPECT_EQ(rb.action.act_data.num_valid_action_data_bits, 23);
  EXPECT_EQ(rb.action.act_data.action_data_bytes, buffer);
  EXPECT_EQ(rb.action_image(), (Bytes{0xC1, 0xC2, 0xC3}));
  EXPECT_EQ(rb.image[3], 0xA5);  // nothing past the image is written
  EXPECT_EQ(rb.action.member_hdl, 11u);
  EXPECT_EQ(rb.action.group_hdl, 12u);
  EXPECT_EQ(std::memcmp(rb.action.resources, sent.resources, sizeof sent.resources), 0);

  // A later set replaces the action whole.
  Action b({});
  b.spec.act_data.action_data_bytes = nullptr;
  ASSERT_EQ(set_default(b, &h, kMissAct + 1), BF_SUCCESS);
  Readback rb2(0, 56);
  ASSERT_EQ(rb2.get_default(), BF_SUCCESS);
  EXPECT_EQ(rb2.act, kMissAct + 1);
  EXPECT_EQ(rb2.action.act_data.num_action_data_bytes, 0);
  EXPECT_EQ(rb2.action.act_data.action_data_bytes, rb2.image.data());
  EXPECT_EQ(rb2.action.resource_count, 0);
  EXPECT_EQ(rb2.action.resources[0].tbl_hdl, 0u);
  EXPECT_EQ(rb2.image, Bytes(56, 0xA5));
}

TEST_F(DefaultTest, ReadingIntoTooSmallABufferIsRefusedWithNothingWritten) {
  Action a({1, 2, 3, 4});
  uint32_t h = 0;
  ASSERT_EQ(set_default(a, &h), BF_SUCCESS);
  Readback small(0, 3);
  EXPECT_EQ(small.get_default(), BF_NO_SPACE);
  EXPECT_EQ(small.act, 0xDEADu);
  EXPECT_EQ(small.image, Bytes(3, 0xA5));
  EXPECT_EQ(small.action.act_data.num_action_data_bytes, 3);
  EXPECT_EQ(small.action.action_data_type, 0);

  Readback none(0, 56);
  none.action.act_data.action_data_bytes = nullptr;
  EXPECT_EQ(none.get_default(), BF_NO_SPACE);
  EXPECT_EQ(none.act, 0xDEADu);

  Readback exact(0, 4);
  ASSERT_EQ(exact.get_default(), BF_SUCCESS);
  EXPECT_EQ(exact.action_image(), (Bytes{1, 2, 3, 4}));

  // An action without an image reads into no buffer at all.
  Action empty({});
  ASSERT_EQ(set_default(empty, &h), BF_SUCCESS);
  Readback nobuf(0, 0);
  nobuf.action.act_data.action_data_bytes = nullptr;
  ASSERT_EQ(nobuf.get_default(), BF_SUCCESS);
  EXPECT_EQ(nobuf.act, kMissAct);
  EXPECT_EQ(nobuf.action.act_data.action_data_bytes, nullptr);
}

TEST_F(DefaultTest, ResetRestoresTheInitialDefaultOrUnsetsIt) {
  Action a({9});
  uint32_t h = 0;
  ASSERT_EQ(set_default(a, &h), BF_SUCCESS);
  ASSERT_EQ(reset_default(), BF_SUCCESS);
  Readback rb(0, 56);
  EXPECT_EQ(rb.get_default(), BF_OBJECT_NOT_FOUND);  // no initial default configured

  Action init({0x5A, 0x5B});
  ASSERT_EQ(drvm_set_initial_default(0, kTbl + 1, kInitAct, &init.spec), BF_SUCCESS);
  init.image[0] = 0;  // the model keeps a copy
  // Never set: the initial default applies at once.
  ASSERT_EQ(rb.get_default(kTbl + 1), BF_SUCCESS);
  EXPECT_EQ(rb.act, kInitAct);
  EXPECT_EQ(rb.action_image(), (Bytes{0x5A, 0x5B}));

  Action b({0x77});
  ASSERT_EQ(set_default(b, &h, kMissAct, kTbl + 1), BF_SUCCESS);
  Readback rb2(0, 56);
  ASSERT_EQ(rb2.get_default(kTbl + 1), BF_SUCCESS);
  EXPECT_EQ(rb2.act, kMissAct);
  ASSERT_EQ(reset_default(kTbl + 1), BF_SUCCESS);
  Readback rb3(0, 56);
  ASSERT_EQ(rb3.get_default(kTbl + 1), BF_SUCCESS);
  EXPECT_EQ(rb3.act, kInitAct);
  EXPECT_EQ(rb3.action_image(), (Bytes{0x5A, 0x5B}));

  // Once set, a new initial default changes only what a reset restores.
  ASSERT_EQ(set_default(b, &h, kMissAct, kTbl + 1), BF_SUCCESS);
  Action init2({0x01, 0x02, 0x03});
  ASSERT_EQ(drvm_set_initial_default(0, kTbl + 1, kInitAct + 8, &init2.spec), BF_SUCCESS);
  uint32_t act = 0;
  ASSERT_EQ(drvm_default_entry_get(0, kTbl + 1, nullptr, &act, nullptr), BF_SUCCESS);
  EXPECT_EQ(act, kMissAct);
  ASSERT_EQ(reset_default(kTbl + 1), BF_SUCCESS);
  ASSERT_EQ(drvm_default_entry_get(0, kTbl + 1, nullptr, &act, nullptr), BF_SUCCESS);
  EXPECT_EQ(act, kInitAct + 8);

  EXPECT_EQ(drvm_set_initial_default(0, kTbl, kInitAct, nullptr), BF_INVALID_ARG);
}

TEST_F(DefaultTest, GetEntryOfTheDefaultHandleReadsWithoutAValueImage) {
  Request r(kValue, kMask);
  uint32_t e = 0;
  ASSERT_EQ(add(r, &e), BF_SUCCESS);
  Action a({0xD1, 0xD2});
  uint32_t d = 0;
  ASSERT_EQ(set_default(a, &d), BF_SUCCESS);

  Readback rb(8, 56);
  rb.match.priority = 5;
  rb.match.partition_index = 6;
  uint8_t *const mask = rb.mask.data();
  ASSERT_EQ(rb.get(d), BF_SUCCESS);
  EXPECT_EQ(rb.match.match_value_bytes, nullptr);
  EXPECT_EQ(rb.match.num_match_bytes, 0);
  EXPECT_EQ(rb.match.priority, 0u);
  EXPECT_EQ(rb.match.partition_index, 0u);
  EXPECT_EQ(rb.match.match_mask_bytes, mask);
  EXPECT_EQ(rb.value, Bytes(8, 0xA5));
  EXPECT_EQ(rb.act, kMissAct);
  EXPECT_EQ(rb.action_image(), (Bytes{0xD1, 0xD2}));

  // The default handle of one table is nothing in another.
  Readback other(8, 56);
  EXPECT_EQ(other.get(d, kTbl + 1), BF_OBJECT_NOT_FOUND);
  // After a reset to no default, the handle reads as not found.
  ASSERT_EQ(reset_default(), BF_SUCCESS);
  Readback after(8, 56);
  EXPECT_EQ(after.get(d), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(after.act, 0xDEADu);
}

TEST_F(DefaultTest, TheDefaultIsNoPartOfWalksOrCounts) {
  Action a({1});
  uint32_t d = 0;
  ASSERT_EQ(set_default(a, &d), BF_SUCCESS);
  uint32_t count = 99, first = 0;
  ASSERT_EQ(pipe_mgr_get_entry_count(1, tgt(), kTbl, false, &count), BF_SUCCESS);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(pipe_mgr_get_first_entry_handle(1, kTbl, tgt(), &first), BF_END_OF_WALK);
  Request r(kValue, kMask);
  uint32_t e = 0;
  ASSERT_EQ(add(r, &e), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_get_entry_count(1, tgt(), kTbl, false, &count), BF_SUCCESS);
  EXPECT_EQ(count, 1u);
  ASSERT_EQ(pipe_mgr_get_first_entry_handle(1, kTbl, tgt(), &first), BF_SUCCESS);
  EXPECT_EQ(first, e);
  uint32_t next[2] = {0, 0};
  EXPECT_EQ(pipe_mgr_get_next_entry_handles(1, kTbl, tgt(), e, 2, next), BF_END_OF_WALK);
  EXPECT_EQ(next[0], 0xFFFFFFFFu);
  EXPECT_EQ(pipe_mgr_get_next_entry_handles(1, kTbl, tgt(), d, 2, next), BF_OBJECT_NOT_FOUND);
}

TEST_F(DefaultTest, RefusalsLeaveTheDefaultAndTheHandlesUnchanged) {
  Action a({1, 2});
  uint32_t h = 0xBEEF;
  drvm_fail_next("pipe_mgr_table_get_default_entry_handle", BF_INJECTED_FAULT);
  EXPECT_EQ(pipe_mgr_table_get_default_entry_handle(2, tgt(), kTbl, &h), BF_INJECTED_FAULT);
  drvm_fail_next("pipe_mgr_mat_default_entry_set", BF_INJECTED_FAULT);
  EXPECT_EQ(set_default(a, &h), BF_INJECTED_FAULT);
  drvm_fail_next("pipe_mgr_mat_tbl_default_entry_reset", BF_INJECTED_FAULT);
  EXPECT_EQ(reset_default(), BF_INJECTED_FAULT);
  EXPECT_EQ(pipe_mgr_mat_default_entry_set(2, tgt(), kTbl, kMissAct, nullptr, 0, &h), BF_INVALID_ARG);
  EXPECT_EQ(pipe_mgr_mat_default_entry_set(2, tgt(), kTbl, kMissAct, &a.spec, 0, nullptr), BF_INVALID_ARG);
  EXPECT_EQ(pipe_mgr_table_get_default_entry_handle(2, tgt(), kTbl, nullptr), BF_INVALID_ARG);
  a.spec.resource_count = 5;
  EXPECT_EQ(set_default(a, &h), BF_INVALID_ARG);
  a.spec.resource_count = 0;
  a.spec.act_data.action_data_bytes = nullptr;
  EXPECT_EQ(set_default(a, &h), BF_INVALID_ARG);
  a.spec.act_data.action_data_bytes = a.image.data();
  EXPECT_EQ(h, 0xBEEFu);
  EXPECT_EQ(drvm_default_entry_get(0, kTbl, nullptr, nullptr, nullptr), BF_OBJECT_NOT_FOUND);
  // None of them issued a handle.
  Request r(kValue, kMask);
  uint32_t e = 0;
  ASSERT_EQ(add(r, &e), BF_SUCCESS);
  EXPECT_EQ(e, 1u);

  // With a default set, refusals keep it as it is.
  ASSERT_EQ(set_default(a, &h), BF_SUCCESS);
  const std::string before = table_state();
  Action b({7, 7, 7});
  drvm_fail_next("pipe_mgr_mat_default_entry_set", BF_INJECTED_FAULT);
  EXPECT_EQ(set_default(b, &h, kMissAct + 1), BF_INJECTED_FAULT);
  drvm_fail_next("pipe_mgr_mat_tbl_default_entry_reset", BF_INJECTED_FAULT);
  EXPECT_EQ(reset_default(), BF_INJECTED_FAULT);
  Readback rb(0, 56);
  drvm_fail_next("pipe_mgr_table_get_default_entry", BF_INJECTED_FAULT);
  EXPECT_EQ(rb.get_default(), BF_INJECTED_FAULT);
  EXPECT_EQ(rb.act, 0xDEADu);
  EXPECT_EQ(pipe_mgr_table_get_default_entry(2, tgt(), kTbl, nullptr, &rb.act, false, 1, nullptr),
            BF_INVALID_ARG);
  EXPECT_EQ(pipe_mgr_table_get_default_entry(2, tgt(), kTbl, &rb.action, nullptr, false, 1, nullptr),
            BF_INVALID_ARG);
  EXPECT_EQ(table_state(), before);
}

}  // namespace
