// The driver model's system services: debug mode, log capture and the counted allocator.
#include <cstring>
#include <string>
#include <vector>

#include "drv/bf_sys.h"
#include "test_util.h"

namespace {

using SysTest = ModelTest;

TEST_F(SysTest, DebugModeSwitch) {
  EXPECT_EQ(bf_sys_dbg_mode(), 0);
  drvm_set_debug_mode(1);
  EXPECT_NE(bf_sys_dbg_mode(), 0);
  drvm_set_debug_mode(0);
  EXPECT_EQ(bf_sys_dbg_mode(), 0);
  drvm_set_debug_mode(5);
  drvm_reset();
  EXPECT_EQ(bf_sys_dbg_mode(), 0);
}

TEST_F(SysTest, LogLinesAreCapturedFormatted) {
  EXPECT_EQ(drvm_log_count(), 0u);
  bf_sys_log_and_trace(0, 2, "ASSERTION FAILED: \"%s\" (%d) from %s:%d", "0", 0, "fn_name", 123);
  bf_sys_log_and_trace(7, 4, "%s", "second");
  ASSERT_EQ(drvm_log_count(), 2u);
  EXPECT_STREQ(drvm_log_line(0), "ASSERTION FAILED: \"0\" (0) from fn_name:123");
  EXPECT_EQ(drvm_log_module(0), 0);
  EXPECT_EQ(drvm_log_level(0), 2);
  EXPECT_STREQ(drvm_log_line(1), "second");
  EXPECT_EQ(drvm_log_module(1), 7);
  EXPECT_EQ(drvm_log_level(1), 4);
  EXPECT_EQ(drvm_log_line(2), nullptr);
  EXPECT_EQ(drvm_log_module(2), -1);
  EXPECT_EQ(drvm_log_level(2), -1);
  drvm_clear_log();
  EXPECT_EQ(drvm_log_count(), 0u);
  bf_sys_log_and_trace(0, 2, "x");
  drvm_reset();
  EXPECT_EQ(drvm_log_count(), 0u);
}

TEST_F(SysTest, LongAndEmptyLinesAreKeptWhole) {
  const std::string long_text(5000, 'q');
  bf_sys_log_and_trace(0, 2, "<%s>", long_text.c_str());
  bf_sys_log_and_trace(0, 2, "%s", "");
  ASSERT_EQ(drvm_log_count(), 2u);
  EXPECT_EQ(std::string(drvm_log_line(0)), "<" + long_text + ">");
  EXPECT_STREQ(drvm_log_line(1), "");
}

TEST_F(SysTest, EarlierLinesStayValid) {
  bf_sys_log_and_trace(0, 2, "%s", "first");
  const char *first = drvm_log_line(0);
  for (int i = 0; i < 1000; ++i) bf_sys_log_and_trace(0, 2, "%d", i);
  EXPECT_EQ(drvm_log_line(0), first);
  EXPECT_STREQ(first, "first");
}

TEST_F(SysTest, CallocIsZeroedAndCounted) {
  const size_t base = drvm_live_allocs();
  uint32_t *a = static_cast<uint32_t *>(bf_sys_calloc(16, sizeof(uint32_t)));
  ASSERT_NE(a, nullptr);
  for (int i = 0; i < 16; ++i) EXPECT_EQ(a[i], 0u);
  void *b = bf_sys_calloc(0, 8);  // an empty request still gets a block of its own
  ASSERT_NE(b, nullptr);
  EXPECT_NE(b, static_cast<void *>(a));
  EXPECT_EQ(drvm_live_allocs(), base + 2);
  bf_sys_free(a);
  EXPECT_EQ(drvm_live_allocs(), base + 1);
  bf_sys_free(nullptr);
  EXPECT_EQ(drvm_live_allocs(), base + 1);
  bf_sys_free(b);
  EXPECT_EQ(drvm_live_allocs(), base);
}

TEST_F(SysTest, OverflowingRequestFails) {
  const size_t base = drvm_live_allocs();
  EXPECT_EQ(bf_sys_calloc(static_cast<size_t>(-1) / 2, 4), nullptr);
  EXPECT_EQ(drvm_live_allocs(), base);
}

TEST_F(SysTest, AllocationFailsFromTheNthCallOn) {
  const size_t base = drvm_live_allocs();
  drvm_fail_alloc_after(2);
  void *a = bf_sys_calloc(1, 4);
  void *b = bf_sys_calloc(1, 4);
  EXPECT_NE(a, nullptr);
  EXPECT_NE(b, nullptr);
  EXPECT_EQ(bf_sys_calloc(1, 4), nullptr);
  EXPECT_EQ(bf_sys_calloc(1, 4), nullptr);
  EXPECT_EQ(drvm_live_allocs(), base + 2);
  drvm_fail_alloc_off();
  void *c = bf_sys_calloc(1, 4);
  EXPECT_NE(c, nullptr);
  drvm_fail_alloc_after(0);
  EXPECT_EQ(bf_sys_calloc(1, 4), nullptr);
  drvm_reset();  // turns failure off
  void *d = bf_sys_calloc(1, 4);
  EXPECT_NE(d, nullptr);
  for (void *p : {a, b, c, d}) bf_sys_free(p);
  EXPECT_EQ(drvm_live_allocs(), base);
}

TEST_F(SysTest, AllocationFailureLeavesTheModelsOwnMemoryAlone) {
  drvm_fail_alloc_after(0);
  Request r(Bytes(4, 1), Bytes(4, 0xFF));
  uint32_t hdl = 0;
  EXPECT_EQ(add(r, &hdl), BF_SUCCESS);
  EXPECT_EQ(drvm_entry_count(0, kTbl), 1u);
}

TEST_F(SysTest, LiveBlocksOutliveReset) {
  const size_t base = drvm_live_allocs();
  void *p = bf_sys_calloc(1, 1);
  drvm_reset();
  EXPECT_EQ(drvm_live_allocs(), base + 1);
  bf_sys_free(p);
  EXPECT_EQ(drvm_live_allocs(), base);
}

TEST(SysDeathTest, FreeingForeignOrFreedMemoryAborts) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        static int not_ours;
        bf_sys_free(&not_ours);
      },
      "not allocated by bf_sys_calloc");
  EXPECT_DEATH(
      {
        void *p = bf_sys_calloc(1, 1);
        bf_sys_free(p);
        bf_sys_free(p);
      },
      "freed twice");
}

}  // namespace
