// The driver model's walks over a table: first handle, next handles, in ascending handle order.
#include <algorithm>
#include <random>

#include "test_util.h"

namespace {

using WalkTest = ModelTest;

constexpr uint32_t kNone = 0xFFFFFFFFu;

uint32_t add_key(uint32_t i, uint32_t tbl = kTbl) {
  Request r(Bytes{uint8_t(i >> 24), uint8_t(i >> 16), uint8_t(i >> 8), uint8_t(i)}, Bytes(4, 0xFF));
  uint32_t h = 0;
  EXPECT_EQ(add(r, &h, tbl), BF_SUCCESS);
  return h;
}

bf_status_t first(uint32_t *h, uint32_t tbl = kTbl, bf_dev_id_t dev = 0) {
  return pipe_mgr_get_first_entry_handle(1, tbl, tgt(dev), h);
}

bf_status_t next(uint32_t start, int n, uint32_t *out, uint32_t tbl = kTbl, bf_dev_id_t dev = 0) {
  return pipe_mgr_get_next_entry_handles(1, tbl, tgt(dev), start, n, out);
}

// The whole table, walked in batches of `batch`, checking the statuses on the way.
std::vector<uint32_t> walk(int batch, uint32_t tbl = kTbl) {
  std::vector<uint32_t> seen;
  uint32_t h = 0;
  bf_status_t st = first(&h, tbl);
  if (st == BF_END_OF_WALK) return seen;
  EXPECT_EQ(st, BF_SUCCESS);
  seen.push_back(h);
  std::vector<uint32_t> out(batch);
  for (;;) {
    std::fill(out.begin(), out.end(), 0u);
    st = next(seen.back(), batch, out.data(), tbl);
    if (st == BF_END_OF_WALK) {
      EXPECT_TRUE(std::all_of(out.begin(), out.end(), [](uint32_t x) { return x == kNone; }));
      return seen;
    }
    EXPECT_EQ(st, BF_SUCCESS);
    if (st != BF_SUCCESS) return seen;
    int k = 0;
    while (k < batch && out[k] != kNone) seen.push_back(out[k++]);
    EXPECT_GT(k, 0);
    for (int i = k; i < batch; ++i) EXPECT_EQ(out[i], kNone);
    if (k < batch) {
      // A short batch is the last one.
      EXPECT_EQ(next(seen.back(), batch, out.data(), tbl), BF_END_OF_WALK);
      return seen;
    }
  }
}

TEST_F(WalkTest, AnEmptyTableEndsTheWalkAtOnce) {
  uint32_t h = 0xBEEF;
  EXPECT_EQ(first(&h), BF_END_OF_WALK);  // a table never used
  EXPECT_EQ(h, 0xBEEFu);
  const uint32_t e = add_key(1);
  ASSERT_EQ(pipe_mgr_mat_ent_del(1, 0, kTbl, e, 0), BF_SUCCESS);
  EXPECT_EQ(first(&h), BF_END_OF_WALK);  // a table emptied
  EXPECT_EQ(h, 0xBEEFu);
  EXPECT_EQ(first(nullptr), BF_INVALID_ARG);
}

TEST_F(WalkTest, AWalkVisitsEveryHandleOnceInAscendingOrder) {
  // Two tables filled in turns, so that a table's handles are not consecutive.
  std::vector<uint32_t> mine, theirs;
  for (uint32_t i = 0; i < 3000; ++i) {
    mine.push_back(add_key(i));
    if (i % 3 == 0) theirs.push_back(add_key(i, kTbl + 1));
  }
  for (int batch : {1, 7, 64, 1000, 5000}) EXPECT_EQ(walk(batch), mine) << batch;
  EXPECT_EQ(walk(16, kTbl + 1), theirs);
  EXPECT_EQ(walk(16, kTbl + 2), std::vector<uint32_t>());
}

TEST_F(WalkTest, AWalkAfterDeletesVisitsWhatRemainsInAscendingOrder) {
  const uint32_t n = 4000;
  std::vector<uint32_t> hdls;
  for (uint32_t i = 0; i < n; ++i) hdls.push_back(add_key(i));
  std::vector<uint32_t> idx(n);
  for (uint32_t i = 0; i < n; ++i) idx[i] = i;
  std::mt19937 rng(7);
  std::shuffle(idx.begin(), idx.end(), rng);
  std::vector<bool> gone(n, false);
  // First a third, then past a half: the walk must stay right on both sides of any compaction.
  for (uint32_t stop : {n / 3, 3 * n / 5, n - 5}) {
    for (uint32_t k = 0; k < stop; ++k) {
      if (gone[idx[k]]) continue;
      ASSERT_EQ(pipe_mgr_mat_ent_del(1, 0, kTbl, hdls[idx[k]], 0), BF_SUCCESS);
      gone[idx[k]] = true;
    }
    std::vector<uint32_t> left;
    for (uint32_t i = 0; i < n; ++i)
      if (!gone[i]) left.push_back(hdls[i]);
    for (int batch : {1, 3, 100}) EXPECT_EQ(walk(batch), left) << stop << " " << batch;
  }
  // Entries added afterwards come last, having the highest handles.
  std::vector<uint32_t> left;
  for (uint32_t i = 0; i < n; ++i)
    if (!gone[i]) left.push_back(hdls[i]);
  for (uint32_t i = n; i < n + 100; ++i) left.push_back(add_key(i));
  EXPECT_EQ(walk(9), left);
}

TEST_F(WalkTest, FirstThenDeleteAgainAndAgainEmptiesTheTableInOrder) {
  const uint32_t n = 20000;
  std::vector<uint32_t> hdls;
  for (uint32_t i = 0; i < n; ++i) hdls.push_back(add_key(i));
  for (uint32_t i = 0; i < n; ++i) {
    uint32_t h = 0;
    ASSERT_EQ(first(&h), BF_SUCCESS) << i;
    ASSERT_EQ(h, hdls[i]);
    ASSERT_EQ(pipe_mgr_mat_ent_del(1, 0, kTbl, h, 0), BF_SUCCESS);
  }
  uint32_t h = 0;
  EXPECT_EQ(first(&h), BF_END_OF_WALK);
}

TEST_F(WalkTest, NextHandlesFillsUnusedSlotsAndRefusesBadStarts) {
  std::vector<uint32_t> hdls;
  for (uint32_t i = 0; i < 5; ++i) hdls.push_back(add_key(i));
  const uint32_t elsewhere = add_key(0, kTbl + 1);
  uint32_t out[8];

  std::fill(std::begin(out), std::end(out), 0u);
  ASSERT_EQ(next(hdls[1], 8, out), BF_SUCCESS);
  EXPECT_EQ(std::vector<uint32_t>(out, out + 8),
            (std::vector<uint32_t>{hdls[2], hdls[3], hdls[4], kNone, kNone, kNone, kNone, kNone}));
  ASSERT_EQ(next(hdls[0], 2, out), BF_SUCCESS);
  EXPECT_EQ(out[0], hdls[1]);
  EXPECT_EQ(out[1], hdls[2]);

  std::fill(std::begin(out), std::end(out), 0u);
  EXPECT_EQ(next(hdls[4], 3, out), BF_END_OF_WALK);
  EXPECT_EQ(out[0], kNone);
  EXPECT_EQ(out[2], kNone);
  EXPECT_EQ(out[3], 0u);  // past n: not the model's

  std::fill(std::begin(out), std::end(out), 0u);
  EXPECT_EQ(next(999, 3, out), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(next(elsewhere, 3, out), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(next(hdls[0], 3, out, kTbl, 1), BF_OBJECT_NOT_FOUND);
  ASSERT_EQ(pipe_mgr_mat_ent_del(1, 0, kTbl, hdls[2], 0), BF_SUCCESS);
  EXPECT_EQ(next(hdls[2], 3, out), BF_OBJECT_NOT_FOUND);  // a deleted start
  EXPECT_EQ(next(hdls[0], 0, out), BF_INVALID_ARG);
  EXPECT_EQ(next(hdls[0], -1, out), BF_INVALID_ARG);
  EXPECT_EQ(next(hdls[0], 3, nullptr), BF_INVALID_ARG);
  drvm_fail_next("pipe_mgr_get_next_entry_handles", BF_INJECTED_FAULT);
  EXPECT_EQ(next(hdls[0], 3, out), BF_INJECTED_FAULT);
  EXPECT_TRUE(std::all_of(std::begin(out), std::end(out), [](uint32_t x) { return x == 0; }));

  // The walk steps over the deleted handle.
  ASSERT_EQ(next(hdls[1], 3, out), BF_SUCCESS);
  EXPECT_EQ(out[0], hdls[3]);
  EXPECT_EQ(out[1], hdls[4]);
  EXPECT_EQ(out[2], kNone);
}

TEST_F(WalkTest, ABigTableWalkedOneHandleAtATimeIsCompleteAndOrdered) {
  const uint32_t n = 200000;
  for (uint32_t i = 0; i < n; ++i) add_key(i);
  // Delete every third entry, so the walk crosses holes throughout.
  for (uint32_t h = 1; h <= n; h += 3) ASSERT_EQ(pipe_mgr_mat_ent_del(1, 0, kTbl, h, 0), BF_SUCCESS);
  drvm_set_recording(0);
  uint32_t h = 0, seen = 0, prev = 0;
  ASSERT_EQ(first(&h), BF_SUCCESS);
  for (;;) {
    ++seen;
    ASSERT_GT(h, prev);
    ASSERT_NE(h % 3, 1u);
    prev = h;
    uint32_t out = 0;
    const bf_status_t st = next(h, 1, &out);
    if (st == BF_END_OF_WALK) break;
    ASSERT_EQ(st, BF_SUCCESS);
    h = out;
  }
  EXPECT_EQ(seen, n - (n + 2) / 3);
}

}  // namespace
