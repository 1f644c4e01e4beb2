// Per-call cost of the resource families a control plane runs most: a hash calculation over an
// IPv4 5-tuple and over a stream with 128-bit fields, a counter read, and a register range read
// of 1,024 indexes, each beside a version written by hand for that one resource, with the same
// contract (the same driver calls, the stream and arrays from the driver's allocator). Goal: within
// 1.2 times the hand version.
#include <benchmark/benchmark.h>

#include <cstring>

extern "C" {
#include "corvin_switch/pd.h"
#include "drv/bf_sys.h"
#include "drv/model.h"
}

namespace {

constexpr p4_pd_dev_target_t kTgt = {0, 0};
constexpr uint32_t kHashOuterIpAndL4 = 0x8000006;
constexpr uint32_t kHaloCounters = 0x1000055;
constexpr uint32_t kIngStp = 0x6000001;

void pass_through() {
  drvm_reset();
  drvm_set_recording(0);
  drvm_set_passthrough(1);
}

// ---- Hash of an IPv4 5-tuple: 32 + 32 + 8 + 16 + 16 bits, 13 bytes ----

constexpr uint32_t kTupleWidths[5] = {32, 32, 8, 16, 16};

__attribute__((noinline)) p4_pd_status_t hand_hash_5tuple(uint32_t sess, uint32_t dev,
                                                          const p4_pd_hash_calc_input_field_attribute_t *f,
                                                          uint8_t *hash, uint32_t hash_len) {
  auto *s = static_cast<uint8_t *>(bf_sys_calloc(13, 1));
  uint32_t sip = f[0].value.val, dip = f[1].value.val;
  s[0] = uint8_t(sip >> 24), s[1] = uint8_t(sip >> 16), s[2] = uint8_t(sip >> 8), s[3] = uint8_t(sip);
  s[4] = uint8_t(dip >> 24), s[5] = uint8_t(dip >> 16), s[6] = uint8_t(dip >> 8), s[7] = uint8_t(dip);
  s[8] = uint8_t(f[2].value.val);
  s[9] = uint8_t(f[3].value.val >> 8), s[10] = uint8_t(f[3].value.val);
  s[11] = uint8_t(f[4].value.val >> 8), s[12] = uint8_t(f[4].value.val);
  pipe_status_t st = pipe_mgr_hash_calc_calculate_hash_value(sess, dev, kHashOuterIpAndL4, s, 13, hash, hash_len);
  bf_sys_free(s);
  return static_cast<p4_pd_status_t>(st);
}

void tuple(p4_pd_hash_calc_input_field_attribute_t *f) {
  const uint32_t values[5] = {0x0a000001, 0xc0a80101, 6, 49152, 443};
  for (int i = 0; i < 5; ++i) f[i] = {uint32_t(i), 0, {values[i]}};
}

// ---- Hash of an IPv6 5-tuple: two 128-bit addresses by pointer, 8 + 16 + 16 bits, 37 bytes ----

constexpr uint32_t kWideWidths[5] = {128, 128, 8, 16, 16};

__attribute__((noinline)) p4_pd_status_t hand_hash_wide(uint32_t sess, uint32_t dev,
                                                        const p4_pd_hash_calc_input_field_attribute_t *f,
                                                        uint8_t *hash, uint32_t hash_len) {
  auto *s = static_cast<uint8_t *>(bf_sys_calloc(37, 1));
  std::memcpy(s, f[0].value.stream, 16);
  std::memcpy(s + 16, f[1].value.stream, 16);
  s[32] = uint8_t(f[2].value.val);
  s[33] = uint8_t(f[3].value.val >> 8), s[34] = uint8_t(f[3].value.val);
  s[35] = uint8_t(f[4].value.val >> 8), s[36] = uint8_t(f[4].value.val);
  pipe_status_t st = pipe_mgr_hash_calc_calculate_hash_value(sess, dev, kHashOuterIpAndL4, s, 37, hash, hash_len);
  bf_sys_free(s);
  return static_cast<p4_pd_status_t>(st);
}

uint8_t g_sip6[16] = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
uint8_t g_dip6[16] = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2};

void wide(p4_pd_hash_calc_input_field_attribute_t *f) {
  f[0] = {0, 0, {0}};
  f[0].value.stream = g_sip6;
  f[1] = {1, 0, {0}};
  f[1].value.stream = g_dip6;
  f[2] = {2, 0, {17}};
  f[3] = {3, 0, {4789}};
  f[4] = {4, 0, {53}};
}

// The library and the hand version over the same five fields.
using Fields = void (*)(p4_pd_hash_calc_input_field_attribute_t *);
using HandHash = p4_pd_status_t (*)(uint32_t, uint32_t, const p4_pd_hash_calc_input_field_attribute_t *, uint8_t *,
                                    uint32_t);

void BM_Hash_Library(benchmark::State &bm, Fields fields, const uint32_t *field_widths) {
  pass_through();
  p4_pd_hash_calc_input_field_attribute_t f[5];
  fields(f);
  uint32_t widths[5];
  std::memcpy(widths, field_widths, sizeof widths);
  uint8_t hash[4];
  for (auto _ : bm) {
    benchmark::DoNotOptimize(
        p4_pd_corvin_switch_hash_calc_hashOuterIpAndL4Hdr_calculate_hash_value(1, 0, 5, f, widths, hash, 4));
    benchmark::ClobberMemory();
  }
}

void BM_Hash_Hand(benchmark::State &bm, Fields fields, HandHash hand) {
  pass_through();
  p4_pd_hash_calc_input_field_attribute_t f[5];
  fields(f);
  uint8_t hash[4];
  for (auto _ : bm) {
    benchmark::DoNotOptimize(hand(1, 0, f, hash, 4));
    benchmark::ClobberMemory();
  }
}

BENCHMARK_CAPTURE(BM_Hash_Library, 5tuple, tuple, kTupleWidths);
BENCHMARK_CAPTURE(BM_Hash_Hand, 5tuple, tuple, hand_hash_5tuple);
BENCHMARK_CAPTURE(BM_Hash_Library, wide, wide, kWideWidths);
BENCHMARK_CAPTURE(BM_Hash_Hand, wide, wide, hand_hash_wide);

// ---- Counter read of a direct counter, no hardware sync ----

__attribute__((noinline)) p4_pd_status_t hand_counter_read(uint32_t sess, p4_pd_dev_target_t tgt, uint32_t ent,
                                                           uint32_t flags, p4_pd_counter_value_t *v) {
  pipe_stat_data_t d{};
  if (flags & 1) {
    pipe_status_t st = pipe_mgr_direct_stat_ent_database_sync(sess, tgt.device_id, tgt.dev_pipe_id, kHaloCounters, ent);
    if (st) return static_cast<p4_pd_status_t>(st);
  }
  pipe_status_t st = pipe_mgr_mat_ent_direct_stat_query(sess, tgt.device_id, kHaloCounters, ent, &d);
  if (st) return static_cast<p4_pd_status_t>(st);
  v->packets = d.packets;
  v->bytes = d.bytes;
  return 0;
}

void BM_CounterRead_Library(benchmark::State &bm) {
  pass_through();
  p4_pd_counter_value_t v;
  for (auto _ : bm) {
    benchmark::DoNotOptimize(p4_pd_corvin_switch_counter_read_haloCount(1, kTgt, 7, 0, &v));
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_CounterRead_Library);

void BM_CounterRead_Hand(benchmark::State &bm) {
  pass_through();
  p4_pd_counter_value_t v;
  for (auto _ : bm) {
    benchmark::DoNotOptimize(hand_counter_read(1, kTgt, 7, 0, &v));
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_CounterRead_Hand);

// ---- Register range read of 1,024 indexes, against the model's real cells ----

constexpr uint32_t kRange = 1024;

void registers() {
  drvm_reset();
  drvm_set_recording(0);
  drvm_declare_register(kIngStp, kRange, 4, 1, nullptr);
}

__attribute__((noinline)) p4_pd_status_t hand_range_read(uint32_t sess, p4_pd_dev_target_t tgt, uint32_t index,
                                                         uint32_t count, uint32_t flags, uint32_t *num_read,
                                                         uint8_t *values, int *value_count) {
  int size = 0;
  pipe_status_t st = pipe_stful_query_get_sizes(sess, tgt.device_id, kIngStp, &size);
  if (st) return static_cast<p4_pd_status_t>(st);
  auto *q = static_cast<pipe_stful_mem_query_t *>(bf_sys_calloc(count, sizeof(pipe_stful_mem_query_t)));
  auto *cells = static_cast<pipe_stful_mem_spec_t *>(bf_sys_calloc(size_t(count) * size, sizeof(pipe_stful_mem_spec_t)));
  if (!q || !cells) {
    bf_sys_free(q);
    bf_sys_free(cells);
    return 2;
  }
  for (uint32_t i = 0; i < count; ++i) q[i] = {uint32_t(size), cells + size_t(i) * size};
  st = pipe_stful_ent_query_range(sess, tgt.device_id, tgt.dev_pipe_id, kIngStp, index, count, q, num_read, flags & 1);
  if (st == 0) {
    int n = 0;
    for (uint32_t i = 0; i < *num_read; ++i)
      for (uint32_t j = 0; j < q[i].pipe_count; ++j) values[n++] = q[i].data[j].bytes[0];
    *value_count = n;
  }
  bf_sys_free(q);
  bf_sys_free(cells);
  return static_cast<p4_pd_status_t>(st);
}

using RangeRead = p4_pd_status_t (*)(uint32_t, p4_pd_dev_target_t, uint32_t, uint32_t, uint32_t, uint32_t *, uint8_t *,
                                     int *);

void BM_RegisterRangeRead(benchmark::State &bm, RangeRead read) {
  registers();
  static uint8_t values[kRange * 4];
  uint32_t n = 0;
  int count = 0;
  p4_pd_dev_target_t all = {0, 0xFFFF};
  for (auto _ : bm) {
    benchmark::DoNotOptimize(read(1, all, 0, kRange, 0, &n, values, &count));
    benchmark::ClobberMemory();
  }
  if (count != int(kRange * 4)) bm.SkipWithError("range read gave the wrong count");
}
BENCHMARK_CAPTURE(BM_RegisterRangeRead, Library, p4_pd_corvin_switch_register_range_read_ingStpCheckData);
BENCHMARK_CAPTURE(BM_RegisterRangeRead, Hand, hand_range_read);

}  // namespace
