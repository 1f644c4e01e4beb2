// The member-selector layer: the JSON form of a large state (a device log and restore), and the
// calls the library makes on every member add, group add and bind.
#include <benchmark/benchmark.h>

#include <cjson/cJSON.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "drv/pd_ms.h"

namespace {

constexpr bf_dev_id_t kDev = 0, kScratchDev = 1;
constexpr uint32_t kMembers = 100000, kGroups = 10000, kPerGroup = 10;
constexpr uint32_t kAct = 0x20000098, kResHdl = 0x24000001, kGrpBase = 0x40000000;

void check(bf_status_t st, const char *what) {
  if (st != BF_SUCCESS) {
    std::fprintf(stderr, "%s: status %d\n", what, st);
    std::abort();
  }
}

// Members 1 .. 100,000, each with an action and a resource pair; groups kGrpBase + 0 .. 9,999,
// each with an action, 10 members and its first member's resource pair.
void fill(p4_pd_ms_state_t *s, bf_dev_id_t dev) {
  for (uint32_t m = 1; m <= kMembers; ++m) {
    check(p4_pd_ms_new_mbr(1, s, dev, m), "new_mbr");
    check(p4_pd_ms_set_mbr_act(s, dev, m, kAct + m % 5), "set_mbr_act");
    check(p4_pd_ms_set_mbr_res(s, dev, m, kResHdl, m * 3), "set_mbr_res");
  }
  for (uint32_t g = 0; g < kGroups; ++g) {
    const uint32_t grp = kGrpBase + g;
    check(p4_pd_ms_new_grp(1, s, dev, grp), "new_grp");
    for (uint32_t k = 0; k < kPerGroup; ++k) check(p4_pd_ms_add_mbr_to_grp(1, s, dev, g * kPerGroup + k + 1, grp), "add");
    check(p4_pd_ms_set_grp_act(s, dev, grp, kAct + g % 5), "set_grp_act");
    check(p4_pd_ms_grp_update_res(dev, g * kPerGroup + 1, grp, s), "grp_update_res");
  }
}

p4_pd_ms_state_t *big_state() {
  static p4_pd_ms_state_t *s = [] {
    p4_pd_ms_init();
    p4_pd_ms_state_t *st = p4_pd_ms_init_state();
    fill(st, kDev);
    return st;
  }();
  return s;
}

cJSON *logged() {
  cJSON *obj = cJSON_CreateObject();
  cJSON_AddStringToObject(obj, "name", "ecmpMemberActionProfile");
  check(p4_pd_ms_log_state(kDev, big_state(), obj), "log_state");
  return obj;
}

void BM_LogState(benchmark::State &bm) {
  big_state();
  for (auto _ : bm) {
    cJSON *obj = logged();
    bm.PauseTiming();
    cJSON_Delete(obj);
    bm.ResumeTiming();
  }
  bm.counters["members"] = kMembers;
}
BENCHMARK(BM_LogState)->Unit(benchmark::kMillisecond);

// The log as a stored record: printed to text too.
void BM_LogStateAndPrint(benchmark::State &bm) {
  big_state();
  size_t bytes = 0;
  for (auto _ : bm) {
    cJSON *obj = logged();
    char *text = cJSON_PrintUnformatted(obj);
    bm.PauseTiming();
    bytes = std::strlen(text);
    cJSON_free(text);
    cJSON_Delete(obj);
    bm.ResumeTiming();
  }
  bm.counters["bytes"] = static_cast<double>(bytes);
}
BENCHMARK(BM_LogStateAndPrint)->Unit(benchmark::kMillisecond);

// Restore of the record into a state that holds nothing for the device (as after a device
// remove), then read back.
void BM_RestoreState(benchmark::State &bm) {
  cJSON *record = logged();
  p4_pd_ms_state_t *s = p4_pd_ms_init_state();
  for (auto _ : bm) {
    check(p4_pd_ms_restore_state(kDev, s, record), "restore_state");
    bm.PauseTiming();
    check(p4_pd_ms_destroy_state_for_dev(s, kDev), "destroy");
    bm.ResumeTiming();
  }
  pipe_act_fn_hdl_t act = 0;
  check(p4_pd_ms_get_grp_act(s, kDev, kGrpBase + 7, &act) == BF_OBJECT_NOT_FOUND ? 0 : 1, "destroyed");
  p4_pd_ms_free_state(s);
  cJSON_Delete(record);
  bm.counters["members"] = kMembers;
}
BENCHMARK(BM_RestoreState)->Unit(benchmark::kMillisecond);

// Restore over the same device's full state, which it replaces (and frees).
void BM_RestoreStateOverAFullOne(benchmark::State &bm) {
  cJSON *record = logged();
  p4_pd_ms_state_t *s = p4_pd_ms_init_state();
  check(p4_pd_ms_restore_state(kDev, s, record), "restore_state");
  for (auto _ : bm) check(p4_pd_ms_restore_state(kDev, s, record), "restore_state");
  p4_pd_ms_free_state(s);
  cJSON_Delete(record);
}
BENCHMARK(BM_RestoreStateOverAFullOne)->Unit(benchmark::kMillisecond);

// From stored text: parsed by cJSON, then restored.
void BM_ParseAndRestoreState(benchmark::State &bm) {
  cJSON *record = logged();
  char *text = cJSON_PrintUnformatted(record);
  cJSON_Delete(record);
  p4_pd_ms_state_t *s = p4_pd_ms_init_state();
  for (auto _ : bm) {
    cJSON *obj = cJSON_Parse(text);
    check(p4_pd_ms_restore_state(kDev, s, obj), "restore_state");
    bm.PauseTiming();
    cJSON_Delete(obj);
    check(p4_pd_ms_destroy_state_for_dev(s, kDev), "destroy");
    bm.ResumeTiming();
  }
  p4_pd_ms_free_state(s);
  cJSON_free(text);
}
BENCHMARK(BM_ParseAndRestoreState)->Unit(benchmark::kMillisecond);

// ---- Per call, in a state of 100,000 members and 10,000 groups ----

// A member add: new_mbr and set_mbr_act, on another device of the big state, emptied every
// 100,000 members.
void BM_NewMbrSetAct(benchmark::State &bm) {
  p4_pd_ms_state_t *s = big_state();
  uint32_t m = 0;
  for (auto _ : bm) {
    if (++m > kMembers) {
      bm.PauseTiming();
      check(p4_pd_ms_destroy_state_for_dev(s, kScratchDev), "destroy");
      m = 1;
      bm.ResumeTiming();
    }
    p4_pd_ms_new_mbr(1, s, kScratchDev, m);
    p4_pd_ms_set_mbr_act(s, kScratchDev, m, kAct);
  }
  p4_pd_ms_destroy_state_for_dev(s, kScratchDev);
}
BENCHMARK(BM_NewMbrSetAct);

// A group member add: each of 100,000 members into one of 64 groups, member-major, so that groups
// grow to 100,000 members; the groups are made anew when all pairs are used.
void BM_AddMbrToGrp(benchmark::State &bm) {
  constexpr uint32_t kPool = 64;
  p4_pd_ms_state_t *s = p4_pd_ms_init_state();
  auto reset = [&] {
    check(p4_pd_ms_destroy_state_for_dev(s, kDev), "destroy");
    for (uint32_t m = 1; m <= kMembers; ++m) check(p4_pd_ms_new_mbr(1, s, kDev, m), "new_mbr");
    for (uint32_t g = 0; g < kPool; ++g) check(p4_pd_ms_new_grp(1, s, kDev, g), "new_grp");
  };
  reset();
  uint64_t i = 0;
  for (auto _ : bm) {
    if (i == uint64_t{kMembers} * kPool) {
      bm.PauseTiming();
      reset();
      i = 0;
      bm.ResumeTiming();
    }
    p4_pd_ms_add_mbr_to_grp(1, s, kDev, static_cast<uint32_t>(i % kMembers) + 1, static_cast<uint32_t>(i / kMembers));
    ++i;
  }
  p4_pd_ms_free_state(s);
}
BENCHMARK(BM_AddMbrToGrp);

// Handles in a scattered order, so that each lookup misses the caches as a bind would.
std::vector<uint32_t> scattered(uint32_t n, uint32_t base) {
  std::vector<uint32_t> v(n);
  uint32_t x = 12345;
  for (uint32_t &h : v) {
    x = x * 1103515245u + 12345u;
    h = base + (x >> 8) % n;
  }
  return v;
}

void BM_GetMbrAct(benchmark::State &bm) {
  p4_pd_ms_state_t *s = big_state();
  const std::vector<uint32_t> hdls = scattered(kMembers, 1);
  size_t i = 0;
  pipe_act_fn_hdl_t act = 0;
  for (auto _ : bm) {
    benchmark::DoNotOptimize(p4_pd_ms_get_mbr_act(s, kDev, hdls[i], &act));
    if (++i == hdls.size()) i = 0;
  }
  benchmark::DoNotOptimize(act);
}
BENCHMARK(BM_GetMbrAct);

void BM_GetGrpAct(benchmark::State &bm) {
  p4_pd_ms_state_t *s = big_state();
  const std::vector<uint32_t> hdls = scattered(kGroups, kGrpBase);
  size_t i = 0;
  pipe_act_fn_hdl_t act = 0;
  for (auto _ : bm) {
    benchmark::DoNotOptimize(p4_pd_ms_get_grp_act(s, kDev, hdls[i], &act));
    if (++i == hdls.size()) i = 0;
  }
  benchmark::DoNotOptimize(act);
}
BENCHMARK(BM_GetGrpAct);

// A bind of a group reads its action and resource pair.
void BM_GetGrpActAndRes(benchmark::State &bm) {
  p4_pd_ms_state_t *s = big_state();
  const std::vector<uint32_t> hdls = scattered(kGroups, kGrpBase);
  size_t i = 0;
  pipe_act_fn_hdl_t act = 0;
  uint32_t w1 = 0, w2 = 0;
  for (auto _ : bm) {
    benchmark::DoNotOptimize(p4_pd_ms_get_grp_act(s, kDev, hdls[i], &act));
    benchmark::DoNotOptimize(p4_pd_ms_grp_get_res(s, kDev, hdls[i], &w1, &w2));
    if (++i == hdls.size()) i = 0;
  }
}
BENCHMARK(BM_GetGrpActAndRes);

// The same member add inside an open transaction: the journal's cost.
void BM_NewMbrSetActInATransaction(benchmark::State &bm) {
  p4_pd_ms_state_t *s = big_state();
  check(p4_pd_ms_begin_txn(kScratchDev), "begin");
  uint32_t m = 0;
  for (auto _ : bm) {
    if (++m > kMembers) {
      bm.PauseTiming();
      check(p4_pd_ms_commit_txn(kScratchDev), "commit");
      check(p4_pd_ms_destroy_state_for_dev(s, kScratchDev), "destroy");
      check(p4_pd_ms_begin_txn(kScratchDev), "begin");
      m = 1;
      bm.ResumeTiming();
    }
    p4_pd_ms_new_mbr(1, s, kScratchDev, m);
    p4_pd_ms_set_mbr_act(s, kScratchDev, m, kAct);
  }
  check(p4_pd_ms_commit_txn(kScratchDev), "commit");
  p4_pd_ms_destroy_state_for_dev(s, kScratchDev);
}
BENCHMARK(BM_NewMbrSetActInATransaction);

// An abort of 10,000 member adds with a link each.
void BM_AbortOf10000Changes(benchmark::State &bm) {
  p4_pd_ms_state_t *s = big_state();
  for (auto _ : bm) {
    bm.PauseTiming();
    check(p4_pd_ms_begin_txn(kDev), "begin");
    for (uint32_t m = kMembers + 1; m <= kMembers + 5000; ++m) {
      check(p4_pd_ms_new_mbr(1, s, kDev, m), "new_mbr");
      check(p4_pd_ms_add_mbr_to_grp(1, s, kDev, m, kGrpBase + m % kGroups), "add");
    }
    bm.ResumeTiming();
    check(p4_pd_ms_abort_txn(kDev), "abort");
  }
}
BENCHMARK(BM_AbortOf10000Changes)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
