// Per-call cost of the action-profile families that a control plane runs most: adding a member,
// adding a member to a group and binding an entry to a group, each beside a version written by
// hand for ecmpMemberActionProfile, against a driver that returns at once and the real
// member-selector layer. Goal: within 1.2 times the hand version.
#include <benchmark/benchmark.h>

#include <cstring>

extern "C" {
#include "corvin_switch/pd.h"
#include "drv/model.h"
#include "drv/pd_ms.h"
}

namespace {

constexpr p4_pd_dev_target_t kTgt = {0, 0xFFFF};
constexpr uint32_t kAdt = 0x2201000e, kSel = 0x23010001, kEcmpGroup = 0x21010028;
constexpr uint32_t kSetEcmpNextHop = 0x20000098;

// The library started on a pass-through driver; the hand versions keep a state object of their own.
p4_pd_ms_state_t *fresh_start() {
  static p4_pd_ms_state_t *hand_state = nullptr;
  drvm_reset();
  p4_pd_corvin_switch_init();
  drvm_set_recording(0);
  drvm_set_passthrough(1);
  if (hand_state == nullptr) hand_state = p4_pd_ms_init_state();
  p4_pd_ms_destroy_state_for_dev(hand_state, kTgt.device_id);
  return hand_state;
}

// Forgets what the library's and the hand version's states hold, outside the timing.
void clear(benchmark::State &bm, p4_pd_ms_state_t *hand) {
  bm.PauseTiming();
  drvm_fire_dev_remove(kTgt.device_id);
  p4_pd_ms_destroy_state_for_dev(hand, kTgt.device_id);
  bm.ResumeTiming();
}

constexpr uint32_t kClearEvery = 1u << 16;

// ---- Add member ----

__attribute__((noinline)) uint32_t hand_add_member(p4_pd_ms_state_t *ms, uint32_t sess, p4_pd_dev_target_t tgt,
                                                   const p4_pd_corvin_switch_setEcmpNextHop_action_spec_t *a,
                                                   uint32_t *mbr) {
  uint8_t image[5];
  pipe_action_spec_t as;
  std::memset(&as, 0, sizeof as);
  as.act_data.num_valid_action_data_bits = 40;
  as.act_data.num_action_data_bytes = 5;
  as.act_data.action_data_bytes = image;
  image[0] = a->action_nextHopTable;
  image[1] = uint8_t(a->action_nextHop >> 24);
  image[2] = uint8_t(a->action_nextHop >> 16);
  image[3] = uint8_t(a->action_nextHop >> 8);
  image[4] = uint8_t(a->action_nextHop);
  pipe_status_t st = pipe_mgr_adt_ent_add(sess, {tgt.device_id, tgt.dev_pipe_id}, kAdt, kSetEcmpNextHop, 0, &as, mbr,
                                          0);
  if (st) return st;
  p4_pd_ms_new_mbr(sess, ms, tgt.device_id, *mbr);
  p4_pd_ms_set_mbr_act(ms, tgt.device_id, *mbr, kSetEcmpNextHop);
  return 0;
}

void BM_AddMember_Library(benchmark::State &bm) {
  p4_pd_ms_state_t *hand = fresh_start();
  p4_pd_corvin_switch_setEcmpNextHop_action_spec_t a = {3, 0x01020304};
  uint32_t m = 0, n = 0;
  for (auto _ : bm) {
    benchmark::DoNotOptimize(
        p4_pd_corvin_switch_ecmpMemberActionProfile_add_member_with_setEcmpNextHop(1, kTgt, &a, &m));
    if (++n % kClearEvery == 0) clear(bm, hand);
  }
}

void BM_AddMember_Hand(benchmark::State &bm) {
  p4_pd_ms_state_t *hand = fresh_start();
  p4_pd_corvin_switch_setEcmpNextHop_action_spec_t a = {3, 0x01020304};
  uint32_t m = 0, n = 0;
  for (auto _ : bm) {
    benchmark::DoNotOptimize(hand_add_member(hand, 1, kTgt, &a, &m));
    if (++n % kClearEvery == 0) clear(bm, hand);
  }
}

// ---- Add member to group ----

// Members and groups of both states: 256 of each, with handles 1..256 and 257..512 as the
// pass-through driver counts them. Each call links a pair not linked before, until all are.
constexpr uint32_t kSide = 256;

void populate(p4_pd_ms_state_t *hand) {
  p4_pd_corvin_switch_setEcmpNextHop_action_spec_t a = {1, 1};
  uint32_t h = 0;
  for (uint32_t i = 0; i < kSide; ++i) {
    p4_pd_corvin_switch_ecmpMemberActionProfile_add_member_with_setEcmpNextHop(1, kTgt, &a, &h);
    p4_pd_ms_new_mbr(1, hand, 0, h);
    p4_pd_ms_set_mbr_act(hand, 0, h, kSetEcmpNextHop);
  }
  for (uint32_t i = 0; i < kSide; ++i) {
    p4_pd_corvin_switch_ecmpMemberActionProfile_create_group(1, kTgt, kSide, &h);
    p4_pd_ms_new_grp(1, hand, 0, h);
  }
}

void repopulate(benchmark::State &bm, p4_pd_ms_state_t *hand) {
  bm.PauseTiming();
  drvm_fire_dev_remove(kTgt.device_id);
  p4_pd_ms_destroy_state_for_dev(hand, kTgt.device_id);
  drvm_reset();
  p4_pd_corvin_switch_init();
  drvm_set_recording(0);
  drvm_set_passthrough(1);
  populate(hand);
  bm.ResumeTiming();
}

__attribute__((noinline)) uint32_t hand_add_to_group(p4_pd_ms_state_t *ms, uint32_t sess, uint32_t dev, uint32_t grp,
                                                     uint32_t mbr) {
  pipe_act_fn_hdl_t act = 0;
  bf_status_t st = p4_pd_ms_get_mbr_act(ms, dev, mbr, &act);
  if (st) return st;
  st = pipe_mgr_sel_grp_mbr_add(sess, dev, kSel, grp, act, mbr, 0);
  if (st) return st;
  p4_pd_ms_add_mbr_to_grp(sess, ms, dev, mbr, grp);
  p4_pd_ms_set_grp_act(ms, dev, grp, act);
  return 0;
}

void BM_AddMemberToGroup_Library(benchmark::State &bm) {
  p4_pd_ms_state_t *hand = fresh_start();
  populate(hand);
  uint32_t k = 0;
  for (auto _ : bm) {
    uint32_t st = p4_pd_corvin_switch_ecmpMemberActionProfile_add_member_to_group(1, 0, kSide + 1 + (k / kSide) % kSide,
                                                                                  1 + k % kSide);
    benchmark::DoNotOptimize(st);
    if (++k == kSide * kSide) {
      k = 0;
      repopulate(bm, hand);
    }
  }
}

void BM_AddMemberToGroup_Hand(benchmark::State &bm) {
  p4_pd_ms_state_t *hand = fresh_start();
  populate(hand);
  uint32_t k = 0;
  for (auto _ : bm) {
    benchmark::DoNotOptimize(hand_add_to_group(hand, 1, 0, kSide + 1 + (k / kSide) % kSide, 1 + k % kSide));
    if (++k == kSide * kSide) {
      k = 0;
      repopulate(bm, hand);
    }
  }
}

// ---- Bind an entry to a group ----

__attribute__((noinline)) uint32_t hand_bind_group(p4_pd_ms_state_t *ms, uint32_t sess, p4_pd_dev_target_t tgt,
                                                   const p4_pd_corvin_switch_ecmpGroup_match_spec_t *key, uint32_t grp,
                                                   uint32_t *ent) {
  uint8_t value[2], mask[2] = {0xFF, 0xFF};
  value[0] = uint8_t(key->l3_nextHop >> 8);
  value[1] = uint8_t(key->l3_nextHop);
  pipe_tbl_match_spec_t ms_rec = {value, mask, 0, 0, 16, 2, 0};
  pipe_action_spec_t as;
  std::memset(&as, 0, sizeof as);
  as.action_data_type = PIPE_ACTION_GRP_TYPE;
  as.group_hdl = grp;
  pipe_act_fn_hdl_t act = 0;
  bf_status_t st = p4_pd_ms_get_grp_act(ms, tgt.device_id, grp, &act);
  if (st) return st;
  uint32_t w1 = 0, w2 = 0;
  p4_pd_ms_grp_get_res(ms, tgt.device_id, grp, &w1, &w2);
  return pipe_mgr_mat_ent_add(sess, {tgt.device_id, tgt.dev_pipe_id}, kEcmpGroup, &ms_rec, act, &as, 0, 0, ent);
}

void BM_BindEntryToGroup_Library(benchmark::State &bm) {
  fresh_start();
  uint32_t m = 0, g = 0, h = 0;
  p4_pd_corvin_switch_setEcmpNextHop_action_spec_t a = {1, 1};
  p4_pd_corvin_switch_ecmpMemberActionProfile_add_member_with_setEcmpNextHop(1, kTgt, &a, &m);
  p4_pd_corvin_switch_ecmpMemberActionProfile_create_group(1, kTgt, 8, &g);
  p4_pd_corvin_switch_ecmpMemberActionProfile_add_member_to_group(1, 0, g, m);
  p4_pd_corvin_switch_ecmpGroup_match_spec_t key = {7};
  for (auto _ : bm) {
    benchmark::DoNotOptimize(p4_pd_corvin_switch_ecmpGroup_add_entry_with_selector(1, kTgt, &key, g, &h));
    ++key.l3_nextHop;
  }
}

void BM_BindEntryToGroup_Hand(benchmark::State &bm) {
  p4_pd_ms_state_t *hand = fresh_start();
  uint32_t g = 77, h = 0;
  p4_pd_ms_new_mbr(1, hand, 0, 76);
  p4_pd_ms_set_mbr_act(hand, 0, 76, kSetEcmpNextHop);
  p4_pd_ms_new_grp(1, hand, 0, g);
  p4_pd_ms_add_mbr_to_grp(1, hand, 0, 76, g);
  p4_pd_ms_set_grp_act(hand, 0, g, kSetEcmpNextHop);
  p4_pd_corvin_switch_ecmpGroup_match_spec_t key = {7};
  for (auto _ : bm) {
    benchmark::DoNotOptimize(hand_bind_group(hand, 1, kTgt, &key, g, &h));
    ++key.l3_nextHop;
  }
}

BENCHMARK(BM_AddMember_Library);
BENCHMARK(BM_AddMember_Hand);
BENCHMARK(BM_AddMemberToGroup_Library);
BENCHMARK(BM_AddMemberToGroup_Hand);
BENCHMARK(BM_BindEntryToGroup_Library);
BENCHMARK(BM_BindEntryToGroup_Hand);

}  // namespace
