// Speed and memory of the driver model's entry store at one million entries shaped like those of an
// exact-match MAC table: 8-byte value and mask images, a 3-byte action image, no resources.
// Recording is off throughout. Goals: at least one million adds per second, and no more than 128
// bytes per entry beyond its images (the counter overhead_per_entry). Then the cost of an add in
// pass-through mode, and adds of 100,000 action-profile members (5-byte images), 10,000 selector
// groups and the 100,000 memberships of those members in those groups, with the heap each takes.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "drv/model.h"

namespace {

constexpr uint32_t kTbl = 0x100002C;
constexpr uint32_t kAct = 0x2000006E;
constexpr uint32_t kMillion = 1000000;
constexpr size_t kImageBytes = 8 + 8 + 3;  // value, mask and action images of one entry

// The caller's records of one entry, rewritten in place for each key.
struct Records {
  uint8_t value[8] = {0x00, 0x11, 0x22, 0, 0, 0, 0, 0};
  uint8_t mask[8];
  uint8_t image[3] = {0x12, 0x34, 0x56};
  pipe_tbl_match_spec_t match{};
  pipe_action_spec_t action{};

  Records() {
    std::memset(mask, 0xFF, sizeof mask);
    match.match_value_bytes = value;
    match.match_mask_bytes = mask;
    match.num_valid_match_bits = 61;
    match.num_match_bytes = 8;
    action.action_data_type = PIPE_ACTION_DATA_TYPE;
    action.act_data.num_valid_action_data_bits = 21;
    action.act_data.num_action_data_bytes = 3;
    action.act_data.action_data_bytes = image;
  }
  Records(const Records &) = delete;
  Records &operator=(const Records &) = delete;

  pipe_tbl_match_spec_t *key(uint32_t i) {
    value[3] = uint8_t(i >> 24);
    value[4] = uint8_t(i >> 16);
    value[5] = uint8_t(i >> 8);
    value[6] = uint8_t(i);
    value[7] = uint8_t(i * 7);
    return &match;
  }
};

// A fresh model, recording off.
void fresh_model() {
  drvm_reset();
  drvm_set_recording(0);
}

// Adds n entries with keys 0 to n-1; their handles are 1 to n.
void fill(Records &r, uint32_t n) {
  for (uint32_t i = 0; i < n; ++i) {
    uint32_t h;
    if (pipe_mgr_mat_ent_add(1, dev_target_t{0, BF_DEV_PIPE_ALL}, kTbl, r.key(i), kAct, &r.action, 0, 0,
                             &h) != BF_SUCCESS)
      std::abort();
  }
}

size_t heap_in_use() {
  const struct mallinfo2 mi = mallinfo2();
  return mi.uordblks + mi.hblkhd;
}

void BM_Add(benchmark::State &state) {
  Records r;
  for (auto _ : state) {
    state.PauseTiming();
    fresh_model();
    state.ResumeTiming();
    fill(r, kMillion);
  }
  state.SetItemsProcessed(int64_t(state.iterations()) * kMillion);
  drvm_reset();
}
BENCHMARK(BM_Add)->Unit(benchmark::kMillisecond)->Iterations(5);

void BM_FindByKey(benchmark::State &state) {
  Records r;
  fresh_model();
  fill(r, kMillion);
  const dev_target_t tgt{0, BF_DEV_PIPE_ALL};
  for (auto _ : state) {
    for (uint32_t i = 0; i < kMillion; ++i) {
      uint32_t h = 0;
      if (pipe_mgr_match_spec_to_ent_hdl(1, tgt, kTbl, r.key(i), &h, false) != BF_SUCCESS || h != i + 1)
        std::abort();
    }
  }
  state.SetItemsProcessed(int64_t(state.iterations()) * kMillion);
  drvm_reset();
}
BENCHMARK(BM_FindByKey)->Unit(benchmark::kMillisecond)->Iterations(5);

void BM_GetEntry(benchmark::State &state) {
  Records r;
  fresh_model();
  fill(r, kMillion);
  const dev_target_t tgt{0, BF_DEV_PIPE_ALL};
  uint8_t value[8], mask[8], image[56];
  for (auto _ : state) {
    for (uint32_t h = 1; h <= kMillion; ++h) {
      pipe_tbl_match_spec_t m{};
      m.match_value_bytes = value;
      m.match_mask_bytes = mask;
      m.num_match_bytes = 8;
      pipe_action_spec_t a{};
      a.act_data.action_data_bytes = image;
      a.act_data.num_action_data_bytes = sizeof image;
      uint32_t act = 0;
      if (pipe_mgr_get_entry(1, kTbl, tgt, h, &m, &a, &act, false, 1, nullptr) != BF_SUCCESS) std::abort();
      benchmark::DoNotOptimize(value);
    }
  }
  state.SetItemsProcessed(int64_t(state.iterations()) * kMillion);
  drvm_reset();
}
BENCHMARK(BM_GetEntry)->Unit(benchmark::kMillisecond)->Iterations(5);

void BM_Delete(benchmark::State &state) {
  Records r;
  for (auto _ : state) {
    state.PauseTiming();
    fresh_model();
    fill(r, kMillion);
    state.ResumeTiming();
    for (uint32_t h = 1; h <= kMillion; ++h)
      if (pipe_mgr_mat_ent_del(1, 0, kTbl, h, 0) != BF_SUCCESS) std::abort();
  }
  state.SetItemsProcessed(int64_t(state.iterations()) * kMillion);
  drvm_reset();
}
BENCHMARK(BM_Delete)->Unit(benchmark::kMillisecond)->Iterations(5);

void BM_DeleteByKey(benchmark::State &state) {
  Records r;
  const dev_target_t tgt{0, BF_DEV_PIPE_ALL};
  for (auto _ : state) {
    state.PauseTiming();
    fresh_model();
    fill(r, kMillion);
    state.ResumeTiming();
    for (uint32_t i = 0; i < kMillion; ++i)
      if (pipe_mgr_mat_ent_del_by_match_spec(1, tgt, kTbl, r.key(i), 0) != BF_SUCCESS) std::abort();
  }
  state.SetItemsProcessed(int64_t(state.iterations()) * kMillion);
  drvm_reset();
}
BENCHMARK(BM_DeleteByKey)->Unit(benchmark::kMillisecond)->Iterations(5);

// A walk of a table handle by handle (n = 1) or in batches (n = state.range(1)).
void BM_Walk(benchmark::State &state) {
  const uint32_t entries = static_cast<uint32_t>(state.range(0));
  const int batch = static_cast<int>(state.range(1));
  Records r;
  fresh_model();
  fill(r, entries);
  const dev_target_t tgt{0, BF_DEV_PIPE_ALL};
  std::vector<uint32_t> out(batch);
  for (auto _ : state) {
    uint32_t h = 0, seen = 1;
    if (pipe_mgr_get_first_entry_handle(1, kTbl, tgt, &h) != BF_SUCCESS) std::abort();
    for (;;) {
      if (pipe_mgr_get_next_entry_handles(1, kTbl, tgt, h, batch, out.data()) != BF_SUCCESS) break;
      int k = 0;
      while (k < batch && out[k] != 0xFFFFFFFFu) ++k;
      seen += k;
      h = out[k - 1];
    }
    if (seen != entries) std::abort();
  }
  state.SetItemsProcessed(int64_t(state.iterations()) * entries);
  drvm_reset();
}
BENCHMARK(BM_Walk)->Args({kMillion, 1})->Args({kMillion, 256})->Args({4096, 1})->Args({4096, 64})
    ->Unit(benchmark::kMicrosecond);

// Heap in use per stored entry, measured around filling one million entries.
void BM_BytesPerEntry(benchmark::State &state) {
  Records r;
  double per_entry = 0;
  for (auto _ : state) {
    state.PauseTiming();
    fresh_model();
    malloc_trim(0);
    const size_t before = heap_in_use();
    state.ResumeTiming();
    fill(r, kMillion);
    state.PauseTiming();
    per_entry = double(heap_in_use() - before) / kMillion;
    state.ResumeTiming();
  }
  state.counters["bytes_per_entry"] = per_entry;
  state.counters["image_bytes"] = double(kImageBytes);
  state.counters["overhead_per_entry"] = per_entry - double(kImageBytes);
  state.SetItemsProcessed(int64_t(state.iterations()) * kMillion);
  drvm_reset();
}
BENCHMARK(BM_BytesPerEntry)->Unit(benchmark::kMillisecond)->Iterations(1);

// ---- Pass-through ----

// One add in pass-through mode: what a caller's own speed measurement pays the model per call.
void BM_PassThroughAdd(benchmark::State &state) {
  Records r;
  fresh_model();
  drvm_set_passthrough(1);
  const dev_target_t tgt{0, BF_DEV_PIPE_ALL};
  uint32_t h = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(pipe_mgr_mat_ent_add(1, tgt, kTbl, &r.match, kAct, &r.action, 0, 0, &h));
    benchmark::DoNotOptimize(h);
  }
  state.SetItemsProcessed(int64_t(state.iterations()));
  drvm_reset();
}
BENCHMARK(BM_PassThroughAdd);

// ---- Action profiles ----

constexpr uint32_t kAdt = 0x2000100, kSel = 0x3000100;
constexpr uint32_t kMembers = 100000, kGroups = 10000;
constexpr size_t kMemberImageBytes = 5;

// A member's action record: a 5-byte image, no resources.
struct MemberRecord {
  uint8_t image[kMemberImageBytes] = {1, 2, 3, 4, 5};
  pipe_action_spec_t action{};
  MemberRecord() {
    action.action_data_type = PIPE_ACTION_DATA_TYPE;
    action.act_data.num_valid_action_data_bits = 40;
    action.act_data.num_action_data_bytes = kMemberImageBytes;
    action.act_data.action_data_bytes = image;
  }
};

// Adds n members; their handles are 1 to n on a fresh model.
void add_members(MemberRecord &r, uint32_t n) {
  for (uint32_t i = 0; i < n; ++i) {
    uint32_t h;
    r.image[0] = uint8_t(i);
    if (pipe_mgr_adt_ent_add(1, dev_target_t{0, BF_DEV_PIPE_ALL}, kAdt, kAct, 0, &r.action, &h, 0) != BF_SUCCESS)
      std::abort();
  }
}

void add_groups(uint32_t n, uint32_t max_size) {
  for (uint32_t i = 0; i < n; ++i) {
    uint32_t h;
    if (pipe_mgr_sel_grp_add(1, dev_target_t{0, BF_DEV_PIPE_ALL}, kSel, 0, max_size, i, &h, 0) != BF_SUCCESS)
      std::abort();
  }
}

// 100,000 member adds; the heap they take, per member and beyond its image.
void BM_MemberAdd(benchmark::State &state) {
  MemberRecord r;
  double per_member = 0;
  for (auto _ : state) {
    state.PauseTiming();
    fresh_model();
    malloc_trim(0);
    const size_t before = heap_in_use();
    state.ResumeTiming();
    add_members(r, kMembers);
    state.PauseTiming();
    per_member = double(heap_in_use() - before) / kMembers;
    state.ResumeTiming();
  }
  state.counters["bytes_per_member"] = per_member;
  state.counters["overhead_per_member"] = per_member - double(kMemberImageBytes);
  state.SetItemsProcessed(int64_t(state.iterations()) * kMembers);
  drvm_reset();
}
BENCHMARK(BM_MemberAdd)->Unit(benchmark::kMillisecond)->Iterations(5);

// 10,000 group adds (of up to 16 members); the heap they take per group.
void BM_GroupAdd(benchmark::State &state) {
  double per_group = 0;
  for (auto _ : state) {
    state.PauseTiming();
    fresh_model();
    malloc_trim(0);
    const size_t before = heap_in_use();
    state.ResumeTiming();
    add_groups(kGroups, 16);
    state.PauseTiming();
    per_group = double(heap_in_use() - before) / kGroups;
    state.ResumeTiming();
  }
  state.counters["bytes_per_group"] = per_group;
  state.SetItemsProcessed(int64_t(state.iterations()) * kGroups);
  drvm_reset();
}
BENCHMARK(BM_GroupAdd)->Unit(benchmark::kMillisecond)->Iterations(5);

// The 100,000 members joining the 10,000 groups, ten to a group; the heap per membership.
void BM_GroupMemberAdd(benchmark::State &state) {
  MemberRecord r;
  double per_membership = 0;
  for (auto _ : state) {
    state.PauseTiming();
    fresh_model();
    add_members(r, kMembers);
    add_groups(kGroups, 16);
    malloc_trim(0);
    const size_t before = heap_in_use();
    state.ResumeTiming();
    for (uint32_t m = 1; m <= kMembers; ++m) {
      const uint32_t g = kMembers + 1 + (m - 1) % kGroups;
      if (pipe_mgr_sel_grp_mbr_add(1, 0, kSel, g, kAct, m, 0) != BF_SUCCESS) std::abort();
    }
    state.PauseTiming();
    per_membership = double(heap_in_use() - before) / kMembers;
    state.ResumeTiming();
  }
  state.counters["bytes_per_membership"] = per_membership;
  state.SetItemsProcessed(int64_t(state.iterations()) * kMembers);
  drvm_reset();
}
BENCHMARK(BM_GroupMemberAdd)->Unit(benchmark::kMillisecond)->Iterations(5);

}  // namespace

BENCHMARK_MAIN();
