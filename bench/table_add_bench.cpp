// Per-call cost of entry addition, each beside an encoder written by hand for that one table, both
// against a driver that returns at once. The library's goal: within 1.2 times the hand encoder.
#include <benchmark/benchmark.h>

#include <cstring>

extern "C" {
#include "corvin_switch/pd.h"
#include "drv/model.h"
}

namespace {

constexpr p4_pd_dev_target_t kTgt = {0, 0xFFFF};

void passthrough_driver() {
  drvm_reset();
  drvm_set_passthrough(1);
}

// ---- Hand encoders: every constant and offset written out for one table ----

__attribute__((noinline)) uint32_t hand_l2lookup_known_ucast(p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt,
                                                             const p4_pd_corvin_switch_l2Lookup_match_spec_t *k,
                                                             const p4_pd_corvin_switch_l2LookupKnownUcast_action_spec_t *a,
                                                             p4_pd_entry_hdl_t *hdl) {
  uint8_t value[8], mask[8], image[3];
  value[0] = uint8_t(k->egrMd_dmacOui >> 16);
  value[1] = uint8_t(k->egrMd_dmacOui >> 8);
  value[2] = uint8_t(k->egrMd_dmacOui);
  value[3] = uint8_t(k->egrMd_dmacStation >> 16);
  value[4] = uint8_t(k->egrMd_dmacStation >> 8);
  value[5] = uint8_t(k->egrMd_dmacStation);
  value[6] = uint8_t(k->egrMd_egrL2Domain >> 8);
  value[7] = uint8_t(k->egrMd_egrL2Domain);
  std::memset(mask, 0xFF, 8);
  pipe_tbl_match_spec_t ms = {value, mask, 0, 0, 61, 8, 0};
  pipe_action_spec_t as;
  std::memset(&as, 0, sizeof as);
  as.action_data_type = 1;
  as.act_data.num_valid_action_data_bits = 21;
  as.act_data.num_action_data_bytes = 3;
  as.act_data.action_data_bytes = image;
  image[0] = uint8_t(a->action_egrL2Aintf >> 16);
  image[1] = uint8_t(a->action_egrL2Aintf >> 8);
  image[2] = uint8_t(a->action_egrL2Aintf);
  return pipe_mgr_mat_ent_add(sess, {tgt.device_id, tgt.dev_pipe_id}, 0x100002C, &ms, 0x2000006E, &as, 0, 0, hdl);
}

__attribute__((noinline)) uint32_t hand_l2lookup_miss(p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt,
                                                      const p4_pd_corvin_switch_l2LookupMiss_match_spec_t *k,
                                                      uint32_t priority, const p4_pd_meter_spec_t *m,
                                                      p4_pd_entry_hdl_t *hdl) {
  uint8_t value[10], mask[10], image[1];
  value[0] = uint8_t(k->ig_intr_md_ingress_port >> 8);
  value[1] = uint8_t(k->ig_intr_md_ingress_port);
  value[2] = uint8_t(k->egrMd_dmacOui >> 16);
  value[3] = uint8_t(k->egrMd_dmacOui >> 8);
  value[4] = uint8_t(k->egrMd_dmacOui);
  value[5] = uint8_t(k->egrMd_dmacStation >> 16);
  value[6] = uint8_t(k->egrMd_dmacStation >> 8);
  value[7] = uint8_t(k->egrMd_dmacStation);
  value[8] = uint8_t(k->egrMd_egrL2Domain >> 8);
  value[9] = uint8_t(k->egrMd_egrL2Domain);
  mask[0] = uint8_t(k->ig_intr_md_ingress_port_mask >> 8);
  mask[1] = uint8_t(k->ig_intr_md_ingress_port_mask);
  mask[2] = uint8_t(k->egrMd_dmacOui_mask >> 16);
  mask[3] = uint8_t(k->egrMd_dmacOui_mask >> 8);
  mask[4] = uint8_t(k->egrMd_dmacOui_mask);
  mask[5] = uint8_t(k->egrMd_dmacStation_mask >> 16);
  mask[6] = uint8_t(k->egrMd_dmacStation_mask >> 8);
  mask[7] = uint8_t(k->egrMd_dmacStation_mask);
  mask[8] = 0xFF;
  mask[9] = 0xFF;
  for (int i = 0; i < 8; ++i) value[i] &= mask[i];
  mask[0] &= 0x01;
  mask[8] &= 0x1F;
  pipe_tbl_match_spec_t ms = {value, mask, 0, priority, 70, 10, 0};
  pipe_action_spec_t as;
  std::memset(&as, 0, sizeof as);
  as.action_data_type = 1;
  as.act_data.action_data_bytes = image;
  as.resource_count = 1;
  pipe_res_spec_t &r = as.resources[0];
  r.tbl_hdl = 0x5000001;
  r.tag = 1;
  r.data.meter.meter_type = m->meter_type == 1 ? 1 : 0;
  r.data.meter.cir = m->cir;
  r.data.meter.cburst = m->cburst;
  r.data.meter.pir = m->pir;
  r.data.meter.pburst = m->pburst;
  return pipe_mgr_mat_ent_add(sess, {tgt.device_id, tgt.dev_pipe_id}, 0x100002D, &ms, 0x20000073, &as, 0, 0, hdl);
}

__attribute__((noinline)) uint32_t hand_ipv6_short_mask_lpm(p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt,
                                                            const p4_pd_corvin_switch_ipv6ShortMaskLpm_match_spec_t *k,
                                                            p4_pd_entry_hdl_t *hdl) {
  uint8_t value[18], mask[18], image[1];
  value[0] = uint8_t(k->l3Info_vrfId >> 8);
  value[1] = uint8_t(k->l3Info_vrfId);
  std::memcpy(value + 2, k->ingIpv6_dip, 16);
  std::memset(mask, 0xFF, 18);
  uint32_t priority;
  uint16_t p = k->ingIpv6_dip_prefix_length;
  if (p <= 128) {
    priority = 128u - p;
#pragma GCC unroll 16
    for (int b = 0; b < 16; ++b) {
      int bits = p - 8 * b;
      uint8_t m = bits >= 8 ? 0xFF : bits <= 0 ? 0 : uint8_t(0xFF << (8 - bits));
      mask[2 + b] = m;
      value[2 + b] &= m;
    }
    mask[0] &= 0x03;
  } else {
    priority = 139;
  }
  pipe_tbl_match_spec_t ms = {value, mask, 0, priority, 138, 18, 0};
  pipe_action_spec_t as;
  std::memset(&as, 0, sizeof as);
  as.action_data_type = 1;
  as.act_data.action_data_bytes = image;
  return pipe_mgr_mat_ent_add(sess, {tgt.device_id, tgt.dev_pipe_id}, 0x21010007, &ms, 0x20000096, &as, 0, 0, hdl);
}

// ---- Benchmarks ----

void BM_L2LookupAdd_Library(benchmark::State &state) {
  passthrough_driver();
  p4_pd_corvin_switch_l2Lookup_match_spec_t k = {0x001122, 0x334455, 0x0123};
  p4_pd_corvin_switch_l2LookupKnownUcast_action_spec_t a = {0x112233};
  p4_pd_entry_hdl_t h;
  for (auto _ : state) {
    benchmark::DoNotOptimize(p4_pd_corvin_switch_l2Lookup_table_add_with_l2LookupKnownUcast(1, kTgt, &k, &a, &h));
    ++k.egrMd_dmacStation;
  }
}
void BM_L2LookupAdd_Hand(benchmark::State &state) {
  passthrough_driver();
  p4_pd_corvin_switch_l2Lookup_match_spec_t k = {0x001122, 0x334455, 0x0123};
  p4_pd_corvin_switch_l2LookupKnownUcast_action_spec_t a = {0x112233};
  p4_pd_entry_hdl_t h;
  for (auto _ : state) {
    benchmark::DoNotOptimize(hand_l2lookup_known_ucast(1, kTgt, &k, &a, &h));
    ++k.egrMd_dmacStation;
  }
}

p4_pd_corvin_switch_l2LookupMiss_match_spec_t miss_key() {
  p4_pd_corvin_switch_l2LookupMiss_match_spec_t k = {};
  k.egrMd_dmacOui = 0x010000;
  k.egrMd_dmacOui_mask = 0xFF0000;
  k.egrMd_egrL2Domain = 0x0ABC;
  k.ig_intr_md_ingress_port = 0x81;
  k.ig_intr_md_ingress_port_mask = 0x1FF;
  return k;
}

void BM_L2LookupMissAdd_Library(benchmark::State &state) {
  passthrough_driver();
  auto k = miss_key();
  p4_pd_meter_spec_t m = {1000, 2000, 3000, 4000, 1};
  p4_pd_entry_hdl_t h;
  for (auto _ : state) {
    benchmark::DoNotOptimize(p4_pd_corvin_switch_l2LookupMiss_table_add_with_l2LookupBcastHit(1, kTgt, &k, 7, &m, &h));
    ++k.egrMd_dmacStation;
  }
}
void BM_L2LookupMissAdd_Hand(benchmark::State &state) {
  passthrough_driver();
  auto k = miss_key();
  p4_pd_meter_spec_t m = {1000, 2000, 3000, 4000, 1};
  p4_pd_entry_hdl_t h;
  for (auto _ : state) {
    benchmark::DoNotOptimize(hand_l2lookup_miss(1, kTgt, &k, 7, &m, &h));
    ++k.egrMd_dmacStation;
  }
}

p4_pd_corvin_switch_ipv6ShortMaskLpm_match_spec_t v6_key() {
  p4_pd_corvin_switch_ipv6ShortMaskLpm_match_spec_t k = {};
  k.l3Info_vrfId = 0x155;
  const uint8_t addr[16] = {0x20, 0x01, 0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
  std::memcpy(k.ingIpv6_dip, addr, 16);
  k.ingIpv6_dip_prefix_length = 48;
  return k;
}

void BM_Ipv6ShortMaskLpmAdd_Library(benchmark::State &state) {
  passthrough_driver();
  auto k = v6_key();
  p4_pd_entry_hdl_t h;
  for (auto _ : state) {
    benchmark::DoNotOptimize(p4_pd_corvin_switch_ipv6ShortMaskLpm_table_add_with_setFibMiss(1, kTgt, &k, &h));
    k.ingIpv6_dip_prefix_length = uint16_t((k.ingIpv6_dip_prefix_length + 1) & 127);
  }
}
void BM_Ipv6ShortMaskLpmAdd_Hand(benchmark::State &state) {
  passthrough_driver();
  auto k = v6_key();
  p4_pd_entry_hdl_t h;
  for (auto _ : state) {
    benchmark::DoNotOptimize(hand_ipv6_short_mask_lpm(1, kTgt, &k, &h));
    k.ingIpv6_dip_prefix_length = uint16_t((k.ingIpv6_dip_prefix_length + 1) & 127);
  }
}

BENCHMARK(BM_L2LookupAdd_Library);
BENCHMARK(BM_L2LookupAdd_Hand);
BENCHMARK(BM_L2LookupMissAdd_Library);
BENCHMARK(BM_L2LookupMissAdd_Hand);
BENCHMARK(BM_Ipv6ShortMaskLpmAdd_Library);
BENCHMARK(BM_Ipv6ShortMaskLpmAdd_Hand);

}  // namespace

BENCHMARK_MAIN();
