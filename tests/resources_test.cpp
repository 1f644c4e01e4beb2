// The resource families against the driver model: every counter, meter, register, idle-time
// table, digest, value set and hash of the catalog, with the driver traffic each call must make and
// the values that come back; the generic functions by handle; and the snapshot record's byte order.
#include <set>
#include <string>
#include <vector>

#include "resource_cases.h"
#include "test_support.h"

namespace {

using cvtest::u64;

constexpr p4_pd_dev_target_t kPipe0 = {1, 0};  // one pipe: indirect cells read back as written
constexpr p4_pd_dev_target_t kAllPipes = {1, 0xFFFF};
constexpr uint32_t kInstances = 2;  // values per register index, as declared here

class Resources : public cvtest::LibraryTest {
 protected:
  void SetUp() override {
    cvtest::LibraryTest::SetUp();
    declare_program_resources(kInstances);
  }

  // An entry of a match table as the driver holds it, added straight to the driver: direct cells
  // belong to entries.
  static uint32_t entry_of(uint32_t table, uint32_t key = 1) {
    uint8_t value[4] = {uint8_t(key >> 24), uint8_t(key >> 16), uint8_t(key >> 8), uint8_t(key)};
    uint8_t mask[4] = {0xFF, 0xFF, 0xFF, 0xFF};
    pipe_tbl_match_spec_t m{};
    m.match_value_bytes = value;
    m.match_mask_bytes = mask;
    m.num_match_bytes = 4;
    m.num_valid_match_bits = 32;
    pipe_action_spec_t a{};
    a.action_data_type = PIPE_ACTION_DATA_TYPE;
    uint32_t h = 0;
    EXPECT_EQ(pipe_mgr_mat_ent_add(kSess, {kTgt.device_id, kTgt.dev_pipe_id}, table, &m, 0x20000001, &a, 0, 0, &h), 0);
    return h;
  }

  static const drvm_call_t &last(const char *fn) {
    const drvm_call_t *c = drvm_last_call(fn);
    if (c == nullptr) {
      ADD_FAILURE() << "no call of " << fn;
      static drvm_call_t none{};
      return none;
    }
    return *c;
  }

  template <class T>
  static T bytes_as(const drvm_call_t &c) {
    T v{};
    EXPECT_EQ(c.num_bytes, sizeof(T)) << c.fn;
    if (c.bytes && c.num_bytes == sizeof(T)) std::memcpy(&v, c.bytes, sizeof(T));
    return v;
  }
};

void sync_cb(bf_dev_id_t, void *cookie) { ++*static_cast<int *>(cookie); }

// ---- Counters ----

TEST_F(Resources, EveryCounterExchangesPacketsAndBytesBothWays) {
  for (size_t i = 0; i < kCounterCount; ++i) {
    const CounterCase &k = kCounters[i];
    SCOPED_TRACE(k.name);
    uint32_t cell = k.direct ? entry_of(k.call_handle, uint32_t(i) + 1) : 7;
    drvm_clear_calls();
    ASSERT_EQ(k.write(kSess, kPipe0, cell, {1, 2}), 0u);
    const drvm_call_t &w = last(k.direct ? "pipe_mgr_mat_ent_direct_stat_set" : "pipe_mgr_stat_ent_set");
    EXPECT_EQ(w.tbl_hdl, k.call_handle);
    EXPECT_EQ(w.ent_hdl, cell);
    pipe_stat_data_t sent = bytes_as<pipe_stat_data_t>(w);
    EXPECT_EQ(u64(sent.bytes), 2u);  // the driver's first field
    EXPECT_EQ(u64(sent.packets), 1u);
    if (!k.direct) {
      EXPECT_EQ(w.dev_tgt.dev_pipe_id, 0u);
    }

    // Flags 0xFE do not ask for the hardware: no sync, one query.
    p4_pd_counter_value_t v{};
    ASSERT_EQ(k.read(kSess, kPipe0, cell, 0xFE, &v), 0u);
    EXPECT_EQ(v.packets, 1u);
    EXPECT_EQ(v.bytes, 2u);
    EXPECT_EQ(drvm_count_calls(k.direct ? "pipe_mgr_direct_stat_ent_database_sync" : "pipe_mgr_stat_ent_database_sync"),
              0u);
    const drvm_call_t &q = last(k.direct ? "pipe_mgr_mat_ent_direct_stat_query" : "pipe_mgr_stat_ent_query");
    EXPECT_EQ(q.tbl_hdl, k.call_handle);
    if (!k.direct) {
      EXPECT_EQ(q.arg_u32[0], 1u);  // one index, always
    }

    // Flags 1 sync that one cell first, with the target's pipe.
    ASSERT_EQ(k.read(kSess, kPipe0, cell, 1, &v), 0u);
    const drvm_call_t &s = last(k.direct ? "pipe_mgr_direct_stat_ent_database_sync" : "pipe_mgr_stat_ent_database_sync");
    EXPECT_EQ(s.tbl_hdl, k.call_handle);
    EXPECT_EQ(s.ent_hdl, cell);
    EXPECT_EQ(s.dev_tgt.dev_pipe_id, 0u);

    // A failing sync: no query, the caller's record as it was.
    drvm_fail_next(k.direct ? "pipe_mgr_direct_stat_ent_database_sync" : "pipe_mgr_stat_ent_database_sync", 42);
    size_t queries = drvm_count_calls(nullptr);
    p4_pd_counter_value_t kept = {0xAAAA, 0xBBBB};
    EXPECT_EQ(k.read(kSess, kPipe0, cell, 1, &kept), 42u);
    EXPECT_EQ(drvm_count_calls(nullptr), queries + 1);
    EXPECT_EQ(kept.packets, 0xAAAAu);
    EXPECT_EQ(kept.bytes, 0xBBBBu);

    // A failing query leaves it too.
    drvm_fail_next(k.direct ? "pipe_mgr_mat_ent_direct_stat_query" : "pipe_mgr_stat_ent_query", 43);
    EXPECT_EQ(k.read(kSess, kPipe0, cell, 0, &kept), 43u);
    EXPECT_EQ(kept.packets, 0xAAAAu);

    // The whole counter's sync: the callback and cookie go to the driver as they are.
    int done = 0;
    ASSERT_EQ(k.hw_sync(kSess, kPipe0, sync_cb, &done), 0u);
    const drvm_call_t &all = last(k.direct ? "pipe_mgr_direct_stat_database_sync" : "pipe_mgr_stat_database_sync");
    EXPECT_EQ(all.tbl_hdl, k.call_handle);
    EXPECT_EQ(all.ptr_arg, reinterpret_cast<const void *>(sync_cb));
    EXPECT_EQ(all.ptr_arg2, &done);
    EXPECT_EQ(done, 1);  // the driver's callback, never the library's doing
  }
}

TEST_F(Resources, CountedTrafficShowsAfterTheHardwareSyncOnly) {
  uint32_t e = entry_of(0x1000055);  // haloCounters
  ASSERT_EQ(drvm_stat_direct_count(kTgt.device_id, 0x1000055, e, 10, 1500), 0);
  p4_pd_counter_value_t v{};
  ASSERT_EQ(p4_pd_corvin_switch_counter_read_haloCount(kSess, kTgt, e, 0, &v), 0u);
  EXPECT_EQ(v.packets, 0u);
  ASSERT_EQ(p4_pd_corvin_switch_counter_read_haloCount(kSess, kTgt, e, COUNTER_READ_HW_SYNC, &v), 0u);
  EXPECT_EQ(v.packets, 10u);
  EXPECT_EQ(v.bytes, 1500u);
  // The indirect counter of queues, per pipe.
  ASSERT_EQ(drvm_stat_count(kTgt.device_id, 0, 0x4000013, 5, 3, 300), 0);
  int done = 0;
  ASSERT_EQ(p4_pd_corvin_switch_counter_hw_sync_egressPortQueueCount(kSess, kPipe0, sync_cb, &done), 0u);
  ASSERT_EQ(p4_pd_corvin_switch_counter_read_egressPortQueueCount(kSess, kPipe0, 5, 0, &v), 0u);
  EXPECT_EQ(v.packets, 3u);
  EXPECT_EQ(v.bytes, 300u);
  EXPECT_EQ(done, 1);
}

// ---- Meters ----

TEST_F(Resources, EveryMeterSendsItsUnitAndRoundTrips) {
  for (size_t i = 0; i < kMeterCount; ++i) {
    const MeterCase &k = kMeters[i];
    SCOPED_TRACE(k.name);
    uint32_t cell = k.direct ? entry_of(k.table) : 9;
    p4_pd_meter_spec_t spec = {100, 200, 300, 400, PD_METER_TYPE_COLOR_AWARE};
    drvm_clear_calls();
    ASSERT_EQ(k.set(kSess, kPipe0, cell, &spec), 0u);
    pipe_meter_spec_t m;
    if (k.direct) {
      const drvm_call_t &c = last("pipe_mgr_mat_ent_set_resource");
      EXPECT_EQ(c.tbl_hdl, k.table);  // the table's handle, not the meter's
      EXPECT_EQ(c.ent_hdl, cell);
      pipe_res_spec_t r = bytes_as<pipe_res_spec_t>(c);
      EXPECT_EQ(r.tbl_hdl, k.handle);
      EXPECT_EQ(r.tag, 1u);
      m = r.data.meter;
    } else {
      const drvm_call_t &c = last("pipe_mgr_meter_ent_set");
      EXPECT_EQ(c.tbl_hdl, k.handle);
      EXPECT_EQ(c.ent_hdl, cell);
      EXPECT_EQ(c.flags, 0u);
      m = bytes_as<pipe_meter_spec_t>(c);
    }
    EXPECT_EQ(m.meter_type, 0u);  // colour-aware, pre-coloured
    EXPECT_EQ(m.cir_unit, k.unit);
    EXPECT_EQ(m.pir_unit, k.unit);
    EXPECT_EQ(u64(m.cir), 100u);
    EXPECT_EQ(u64(m.cburst), 200u);
    EXPECT_EQ(u64(m.pir), 300u);
    EXPECT_EQ(u64(m.pburst), 400u);

    p4_pd_meter_spec_t back = {};
    ASSERT_EQ(k.read(kSess, kPipe0, cell, &back), 0u);
    EXPECT_EQ(back.cir, 100u);
    EXPECT_EQ(back.pburst, 400u);
    EXPECT_EQ(back.meter_type, 0u);
    EXPECT_EQ(last(k.direct ? "pipe_mgr_meter_read_entry" : "pipe_mgr_meter_read_entry_idx").tbl_hdl,
              k.direct ? k.table : k.handle);

    // The byte count adjustment goes by the meter's own handle, the direct one's resource handle too.
    ASSERT_EQ(k.adjust_set(kSess, kPipe0, -4), 0u);
    EXPECT_EQ(last("pipe_mgr_meter_set_bytecount_adjust").tbl_hdl, k.handle);
    int32_t adj = 0;
    ASSERT_EQ(k.adjust_get(kSess, kPipe0, &adj), 0u);
    EXPECT_EQ(adj, -4);
    drvm_fail_next("pipe_mgr_meter_get_bytecount_adjust", 44);
    EXPECT_EQ(k.adjust_get(kSess, kPipe0, &adj), 44u);
    EXPECT_EQ(adj, -4);
  }
  EXPECT_EQ(drvm_log_count(), 0u);
}

TEST_F(Resources, AnUnknownMeterTypeLogsOnceAndGoesAsColourAware) {
  p4_pd_meter_spec_t spec = {1, 2, 3, 4, 5};
  ASSERT_EQ(p4_pd_corvin_switch_meter_set_egressMirrorMeter(kSess, kPipe0, 3, &spec), 0u);
  EXPECT_EQ(drvm_log_count(), 1u);
  EXPECT_EQ(bytes_as<pipe_meter_spec_t>(last("pipe_mgr_meter_ent_set")).meter_type, 0u);
  EXPECT_NE(std::string(drvm_log_line(0)).find("p4_pd_corvin_switch_meter_set_egressMirrorMeter"), std::string::npos);
}

TEST_F(Resources, MeterReadsCutToTheLowWordAndKeepTheDriversType) {
  pipe_meter_spec_t m{};
  m.meter_type = 7;
  m.cir = 0x100000005ull;
  m.pburst = 0xFFFFFFFF00000009ull;
  ASSERT_EQ(pipe_mgr_meter_ent_set(kSess, 1, 0, 0x25010002, 11, &m, 0), 0);
  p4_pd_meter_spec_t back = {};
  ASSERT_EQ(p4_pd_corvin_switch_meter_read_pdpMeter(kSess, kPipe0, 11, &back), 0u);
  EXPECT_EQ(back.cir, 5u);
  EXPECT_EQ(back.pburst, 9u);
  EXPECT_EQ(back.meter_type, 7u);
  drvm_fail_next("pipe_mgr_meter_read_entry_idx", 45);
  p4_pd_meter_spec_t kept = {1, 1, 1, 1, 1};
  EXPECT_EQ(p4_pd_corvin_switch_meter_read_pdpMeter(kSess, kPipe0, 11, &kept), 45u);
  EXPECT_EQ(kept.cir, 1u);
}

TEST_F(Resources, GenericMetersTakeTheirUnitAndCheckTheType) {
  p4_pd_meter_spec_t spec = {10, 20, 30, 40, PD_METER_TYPE_COLOR_UNAWARE};
  ASSERT_EQ(p4_pd_corvin_switch_bytes_meter_set(kSess, kPipe0, 0x5000002, 4, &spec, 0), 0u);
  pipe_meter_spec_t m = bytes_as<pipe_meter_spec_t>(last("pipe_mgr_meter_ent_set"));
  EXPECT_EQ(m.meter_type, 1u);
  EXPECT_EQ(m.cir_unit, 0u);
  spec.meter_type = PD_METER_TYPE_COLOR_AWARE;
  ASSERT_EQ(p4_pd_corvin_switch_packets_meter_set(kSess, kPipe0, 0x25010001, 4, &spec, 1), 0u);
  m = bytes_as<pipe_meter_spec_t>(last("pipe_mgr_meter_ent_set"));
  EXPECT_EQ(m.meter_type, 0u);
  EXPECT_EQ(m.cir_unit, 1u);
  EXPECT_EQ(m.pir_unit, 1u);
  EXPECT_EQ(last("pipe_mgr_meter_ent_set").tbl_hdl, 0x25010001u);
  p4_pd_meter_spec_t back = {};
  ASSERT_EQ(p4_pd_corvin_switch_packets_meter_read(kSess, kPipe0, 0x25010001, 4, &back), 0u);
  EXPECT_EQ(back.pir, 30u);
  ASSERT_EQ(p4_pd_corvin_switch_bytes_meter_read(kSess, kPipe0, 0x5000002, 4, &back), 0u);
  EXPECT_EQ(back.meter_type, 1u);
  EXPECT_EQ(drvm_log_count(), 0u);

  // The program has no WRED table of its own: the handle is the caller's.
  constexpr uint32_t kWred = 0x5000010;
  ASSERT_EQ(drvm_declare_wred(kWred, 8), 0);
  p4_pd_wred_spec_t w = {1, 2, 3, 4};
  EXPECT_EQ(p4_pd_corvin_switch_wred_set(kSess, kPipe0, kWred, 2, &w), 0u);
  const drvm_call_t &c = last("pipe_mgr_wred_ent_set");
  EXPECT_EQ(c.tbl_hdl, kWred);
  EXPECT_EQ(c.ent_hdl, 2u);
  pipe_wred_spec_t sent = bytes_as<pipe_wred_spec_t>(c);
  EXPECT_EQ(sent.time_constant, 1u);
  EXPECT_EQ(sent.max_probability, 4u);
  pipe_wred_spec_t stored{};
  ASSERT_EQ(drvm_wred_get(kTgt.device_id, 0, kWred, 2, &stored), 0);
  EXPECT_EQ(stored.red_min_threshold, 2u);
}

using ResourcesDeath = Resources;

TEST_F(ResourcesDeath, GenericMeterTypeChecksEndTheProcess) {
  p4_pd_meter_spec_t aware = {1, 2, 3, 4, PD_METER_TYPE_COLOR_AWARE};
  EXPECT_DEATH(p4_pd_corvin_switch_bytes_meter_set(kSess, kPipe0, 0x5000002, 0, &aware, 0),
               "src/pd_corvin.*get_bytes_meter_type.*has_pre_color == true");
  p4_pd_meter_spec_t bad = {1, 2, 3, 4, 2};
  EXPECT_DEATH(p4_pd_corvin_switch_packets_meter_set(kSess, kPipe0, 0x25010001, 0, &bad, 1),
               "get_packets_meter_type.*requested_meter_type == PD_METER_TYPE_COLOR_AWARE \\|\\| "
               "requested_meter_type == PD_METER_TYPE_COLOR_UNAWARE");
}

// ---- Registers ----

TEST_F(Resources, EveryRegisterWritesOneBitAndReadsEveryInstance) {
  for (size_t i = 0; i < kRegisterCount; ++i) {
    const RegisterCase &k = kRegisters[i];
    SCOPED_TRACE(k.name);
    uint8_t one = 0x80;
    ASSERT_EQ(k.write(kSess, kAllPipes, 5, &one), 0u);
    const drvm_call_t &w = last("pipe_stful_ent_set");
    EXPECT_EQ(w.tbl_hdl, k.handle);
    EXPECT_EQ(w.ent_hdl, 5u);
    EXPECT_EQ(w.flags, 0u);
    ASSERT_NE(w.bytes, nullptr);
    EXPECT_EQ(w.bytes[0], 1u);  // any non-zero byte is a 1

    uint8_t values[8] = {};
    int count = 0;
    ASSERT_EQ(k.read(kSess, kAllPipes, 5, 2, values, &count), 0u);
    EXPECT_EQ(last("pipe_stful_ent_query").flags, 0u);  // flags 2: bit 0 clear
    EXPECT_EQ(count, int(kInstances));
    EXPECT_EQ(values[0], 1u);
    EXPECT_EQ(values[1], 1u);
    ASSERT_EQ(k.read(kSess, kAllPipes, 5, 3, values, &count), 0u);
    EXPECT_EQ(last("pipe_stful_ent_query").flags, 1u);

    uint8_t zero = 0;
    ASSERT_EQ(k.write_all(kSess, kAllPipes, &zero), 0u);
    const drvm_call_t &wa = last("pipe_stful_table_reset");
    EXPECT_EQ(wa.tbl_hdl, k.handle);
    ASSERT_NE(wa.bytes, nullptr);
    EXPECT_EQ(wa.bytes[0], 0u);
    ASSERT_EQ(k.reset_all(kSess, kAllPipes), 0u);
    EXPECT_EQ(last("pipe_stful_table_reset").bytes, nullptr);  // the driver's reset value
    ASSERT_EQ(k.range_reset(kSess, kAllPipes, 3, 4), 0u);
    const drvm_call_t &rr = last("pipe_stful_table_reset_range");
    EXPECT_EQ(rr.tbl_hdl, k.handle);
    EXPECT_EQ(rr.bytes, nullptr);
    int done = 0;
    ASSERT_EQ(k.hw_sync(kSess, kAllPipes, sync_cb, &done), 0u);
    EXPECT_EQ(last("pipe_stful_database_sync").tbl_hdl, k.handle);
    EXPECT_EQ(done, 1);
  }
  EXPECT_EQ(drvm_live_allocs(), 0u);
}

// With two values per index, a range of three indexes gives six values: index, then instance.
TEST_F(Resources, RangeReadsPackIndexThenInstance) {
  for (uint32_t idx = 10; idx < 13; ++idx)
    for (uint32_t pipe = 0; pipe < kInstances; ++pipe) {
      pipe_stful_mem_spec_t v{};
      v.bytes[0] = uint8_t(idx * 2 + pipe) & 1;
      ASSERT_EQ(drvm_register_hw_write(kTgt.device_id, pipe, 0x6000002, idx, &v), 0);
    }
  uint8_t values[6] = {};
  uint32_t read = 0;
  int count = 0;
  ASSERT_EQ(p4_pd_corvin_switch_register_range_read_ingVlanCheckData(kSess, kAllPipes, 10, 3, REGISTER_READ_HW_SYNC,
                                                                      &read, values, &count),
            0u);
  EXPECT_EQ(read, 3u);
  EXPECT_EQ(count, 6);
  for (int i = 0; i < 6; ++i) EXPECT_EQ(values[i], uint8_t(i & 1)) << i;
  const drvm_call_t &c = last("pipe_stful_ent_query_range");
  EXPECT_EQ(c.tbl_hdl, 0x6000002u);
  EXPECT_EQ(drvm_live_allocs(), 0u);
}

TEST_F(Resources, RegisterReadsWithoutMemoryAnswerTwoAndLeaveTheResults) {
  uint8_t values[2] = {0xEE, 0xEE};
  int count = -1;
  uint32_t read = 99;
  drvm_fail_alloc_after(0);
  EXPECT_EQ(p4_pd_corvin_switch_register_read_egrStpCheckData(kSess, kAllPipes, 1, 0, values, &count), 2u);
  // An empty range still asks for both arrays; without memory the answer is 2.
  EXPECT_EQ(p4_pd_corvin_switch_register_range_read_egrStpCheckData(kSess, kAllPipes, 1, 0, 0, &read, values, &count),
            2u);
  drvm_fail_alloc_after(1);  // the first array, not the second
  EXPECT_EQ(p4_pd_corvin_switch_register_range_read_egrStpCheckData(kSess, kAllPipes, 1, 2, 0, &read, values, &count),
            2u);
  drvm_fail_alloc_off();
  EXPECT_EQ(count, -1);
  EXPECT_EQ(values[0], 0xEEu);
  EXPECT_EQ(drvm_count_calls("pipe_stful_ent_query"), 0u);
  EXPECT_EQ(drvm_count_calls("pipe_stful_ent_query_range"), 0u);
  EXPECT_EQ(drvm_live_allocs(), 0u);
  // An empty range with memory goes to the driver.
  EXPECT_EQ(p4_pd_corvin_switch_register_range_read_egrStpCheckData(kSess, kAllPipes, 1, 0, 0, &read, values, &count),
            0u);
  EXPECT_EQ(drvm_count_calls("pipe_stful_ent_query_range"), 1u);
  EXPECT_EQ(count, 0);
  // A refused query frees what it took and leaves the results.
  drvm_fail_next("pipe_stful_ent_query", 46);
  count = -1;
  EXPECT_EQ(p4_pd_corvin_switch_register_read_egrStpCheckData(kSess, kAllPipes, 1, 0, values, &count), 46u);
  EXPECT_EQ(count, -1);
  drvm_fail_next("pipe_stful_query_get_sizes", 47);
  EXPECT_EQ(p4_pd_corvin_switch_register_read_egrStpCheckData(kSess, kAllPipes, 1, 0, values, &count), 47u);
  EXPECT_EQ(drvm_live_allocs(), 0u);
}

TEST_F(Resources, GenericRegistersPassTheDriversRecordsOn) {
  uint32_t table = 0x1000055;
  ASSERT_EQ(drvm_declare_direct_register(table, table, 1, 16), 0);
  uint32_t e = entry_of(table);
  uint8_t data[16];
  for (int i = 0; i < 16; ++i) data[i] = uint8_t(0xA0 + i);
  ASSERT_EQ(p4_pd_corvin_switch_register_write_direct(kSess, uint8_t(kTgt.device_id), table, e, data), 0u);
  const drvm_call_t &w = last("pipe_mgr_mat_ent_set_resource");
  EXPECT_EQ(w.dev_tgt.device_id, kTgt.device_id);
  EXPECT_EQ(w.tbl_hdl, table);
  pipe_res_spec_t r = bytes_as<pipe_res_spec_t>(w);
  EXPECT_EQ(r.tbl_hdl, table);  // one handle for the table and the resource
  EXPECT_EQ(r.tag, 1u);
  EXPECT_EQ(std::memcmp(r.data.bytes, data, 16), 0);

  pipe_stful_mem_spec_t cell{};
  pipe_stful_mem_query_t q = {1, &cell};
  ASSERT_EQ(p4_pd_corvin_switch_register_read_direct(kSess, {1, 3}, table, e, 1, &q), 0u);
  EXPECT_EQ(std::memcmp(cell.bytes, data, 16), 0);
  EXPECT_EQ(last("pipe_stful_direct_ent_query").flags, 1u);

  pipe_stful_mem_spec_t one{};
  one.bytes[0] = 1;
  ASSERT_EQ(p4_pd_corvin_switch_register_write_indirect(kSess, kPipe0, 0x6000006, 8, &one), 0u);
  pipe_stful_mem_spec_t got[kInstances] = {};
  pipe_stful_mem_query_t q2 = {kInstances, got};
  ASSERT_EQ(p4_pd_corvin_switch_register_read_indirect(kSess, kAllPipes, 0x6000006, 8, 1, &q2), 0u);
  EXPECT_EQ(got[0].bytes[0], 1u);
  ASSERT_EQ(p4_pd_corvin_switch_register_write_all_indirect(kSess, kAllPipes, 0x6000006, &one), 0u);
  EXPECT_NE(last("pipe_stful_table_reset").bytes, nullptr);
  ASSERT_EQ(p4_pd_corvin_switch_register_reset_all_indirect(kSess, kAllPipes, 0x6000006), 0u);
  EXPECT_EQ(last("pipe_stful_table_reset").bytes, nullptr);
  ASSERT_EQ(p4_pd_corvin_switch_register_range_reset_indirect(kSess, kAllPipes, 0x6000006, 2, 3), 0u);
  EXPECT_EQ(last("pipe_stful_table_reset_range").tbl_hdl, 0x6000006u);
  int done = 0;
  ASSERT_EQ(p4_pd_corvin_switch_register_hw_sync_indirect(kSess, kAllPipes, 0x6000006, sync_cb, &done), 0u);
  ASSERT_EQ(p4_pd_corvin_switch_register_hw_sync_direct(kSess, kAllPipes, table, sync_cb, &done), 0u);
  EXPECT_EQ(last("pipe_stful_direct_database_sync").tbl_hdl, table);
  EXPECT_EQ(done, 2);
}

// ---- Idle time ----

void expiry_cb(bf_dev_id_t, pipe_mat_ent_hdl_t ent, void *cookie) {
  static_cast<std::vector<uint32_t> *>(cookie)->push_back(ent);
}

TEST_F(Resources, EveryIdleTableSendsItsHandleAndTheEightWords) {
  for (size_t i = 0; i < kIdleTableCount; ++i) {
    const IdleCase &k = kIdleTables[i];
    SCOPED_TRACE(k.name);
    std::vector<uint32_t> expired;
    p4_pd_idle_time_params_t p = {PD_IDLE_TIME_MODE_NOTIFY, 100, 5000, 1000, expiry_cb, &expired, 0x5A};
    drvm_clear_calls();
    ASSERT_EQ(k.enable(kSess, 1, p), 0u);
    ASSERT_EQ(drvm_call_count(), 2u);
    const drvm_call_t &set = *drvm_call(0);
    EXPECT_STREQ(set.fn, "pipe_mgr_idle_set_params");
    EXPECT_EQ(set.tbl_hdl, k.table);
    pipe_idle_time_params_t d = bytes_as<pipe_idle_time_params_t>(set);
    EXPECT_EQ(d.mode, 1u);
    EXPECT_EQ(d.ttl_query_interval, 100u);
    EXPECT_EQ(d.max_ttl, 5000u);
    EXPECT_EQ(d.min_ttl, 1000u);
    EXPECT_EQ(d.callback_fn, expiry_cb);
    EXPECT_EQ(d.reserved, 0u);
    EXPECT_EQ(d.client_data, &expired);
    EXPECT_EQ(d.reserved2, 0u);
    EXPECT_STREQ(drvm_call(1)->fn, "pipe_mgr_idle_tmo_set_enable");
    EXPECT_EQ(drvm_call(1)->tbl_hdl, k.table);

    p4_pd_idle_time_params_t back = {};
    back.flag = 0x77;
    ASSERT_EQ(k.params_get(kSess, 1, &back), 0u);
    EXPECT_EQ(back.mode, 1u);
    EXPECT_EQ(back.max_ttl, 5000u);
    EXPECT_EQ(back.callback, expiry_cb);
    EXPECT_EQ(back.cookie, &expired);
    EXPECT_EQ(back.flag, 0u);

    uint32_t e = entry_of(k.table);
    ASSERT_EQ(k.set_ttl(kSess, 1, e, 2000), 0u);
    const drvm_call_t &st = last("pipe_mgr_mat_ent_set_idle_ttl");
    EXPECT_EQ(st.tbl_hdl, k.table);
    EXPECT_EQ(st.ent_hdl, e);
    uint32_t ttl = 0;
    ASSERT_EQ(k.get_ttl(kSess, 1, e, &ttl), 0u);
    EXPECT_EQ(ttl, 2000u);
    drvm_advance_clock(1500 * 1000);
    ASSERT_EQ(k.get_ttl(kSess, 1, e, &ttl), 0u);
    EXPECT_EQ(ttl, 500u);
    ASSERT_EQ(k.reset_ttl(kSess, 1, e), 0u);
    ASSERT_EQ(k.get_ttl(kSess, 1, e, &ttl), 0u);
    EXPECT_EQ(ttl, 2000u);
    drvm_advance_clock(2500 * 1000);
    EXPECT_EQ(expired, std::vector<uint32_t>{e});

    ASSERT_EQ(k.disable(kSess, 1), 0u);
    EXPECT_EQ(last("pipe_mgr_idle_tmo_set_enable").tbl_hdl, k.table);
    ASSERT_EQ(k.register_tmo_cb(kSess, 1, expiry_cb, nullptr), 0u);
    EXPECT_EQ(last("pipe_mgr_idle_register_tmo_cb").tbl_hdl, k.table);
    ASSERT_EQ(k.update_hit_state(kSess, 1, sync_cb, &ttl), 0u);
    EXPECT_EQ(last("pipe_mgr_idle_time_update_hit_state").tbl_hdl, k.table);
  }
}

TEST_F(Resources, IdleReadsAndFailures) {
  const IdleCase &k = kIdleTables[0];
  // A failing set_params: not enabled.
  drvm_fail_next("pipe_mgr_idle_set_params", 48);
  p4_pd_idle_time_params_t p = {PD_IDLE_TIME_MODE_POLL, 1, 2, 3, nullptr, nullptr, 0};
  EXPECT_EQ(k.enable(kSess, 1, p), 48u);
  EXPECT_EQ(drvm_count_calls("pipe_mgr_idle_tmo_set_enable"), 0u);
  // In poll mode a read gives the mode and leaves the other words.
  ASSERT_EQ(k.enable(kSess, 1, p), 0u);
  p4_pd_idle_time_params_t back = {9, 9, 9, 9, expiry_cb, &back, 9};
  ASSERT_EQ(k.params_get(kSess, 1, &back), 0u);
  EXPECT_EQ(back.mode, 0u);
  EXPECT_EQ(back.ttl_query_interval, 9u);
  EXPECT_EQ(back.min_ttl, 9u);
  EXPECT_EQ(back.callback, expiry_cb);
  EXPECT_EQ(back.cookie, &back);
  EXPECT_EQ(back.flag, 9u);
  // A refused read writes nothing.
  drvm_fail_next("pipe_mgr_idle_get_params", 49);
  back.mode = 7;
  EXPECT_EQ(k.params_get(kSess, 1, &back), 49u);
  EXPECT_EQ(back.mode, 7u);
  // Poll mode: a hit shows after the hit-state update.
  uint32_t e = entry_of(k.table);
  p4_pd_idle_time_hit_state_e hs = 0xAB;
  ASSERT_EQ(drvm_idle_hit(kTgt.device_id, k.table, e), 0);
  int done = 0;
  ASSERT_EQ(k.update_hit_state(kSess, 1, sync_cb, &done), 0u);
  ASSERT_EQ(k.get_hit_state(kSess, 1, e, &hs), 0u);
  EXPECT_EQ(hs, uint32_t(PIPE_IDLE_TIME_HIT_STATE_ACTIVE));
  EXPECT_EQ(done, 1);
  // get_hit_state writes the caller's word on a failing driver too.
  hs = 0xAB;
  drvm_fail_next("pipe_mgr_idle_time_get_hit_state", 50);
  EXPECT_EQ(k.get_hit_state(kSess, 1, e, &hs), 50u);
  EXPECT_NE(hs, 0xABu);
}

TEST_F(Resources, BfdRxOffloadSetsTtlOnItsOwnTable) {
  uint32_t e = entry_of(0x21010038);
  ASSERT_EQ(p4_pd_corvin_switch_bfdRxOffload_set_ttl(kSess, 1, e, 300), 0u);
  const drvm_call_t &c = last("pipe_mgr_mat_ent_set_idle_ttl");
  EXPECT_EQ(c.tbl_hdl, 0x21010038u);
}

// ---- Learning digests ----

TEST_F(Resources, DigestFieldsLieWhereTheCatalogPutsThem) {
  for (size_t i = 0; i < kDigestCount; ++i) {
    const DigestCase &d = kDigestCases[i];
    SCOPED_TRACE(d.name);
    EXPECT_EQ(p4_pd_corvin_switch_get_digest_entry_size(d.name), d.entry_bytes);
    uint8_t record[64];
    for (size_t f = 0; f < d.nfields; ++f) {
      uint32_t len = 0;
      uint8_t *p = p4_pd_corvin_switch_get_digest_entry_field(record, d.name, d.fields[f].name, &len);
      EXPECT_EQ(p, record + d.fields[f].offset) << d.fields[f].name;
      EXPECT_EQ(len, d.fields[f].length) << d.fields[f].name;
    }
  }
  EXPECT_EQ(p4_pd_corvin_switch_get_digest_entry_size("macLearningDigest"), 14u);
  EXPECT_EQ(p4_pd_corvin_switch_get_digest_entry_size(""), 0u);
  EXPECT_EQ(p4_pd_corvin_switch_get_digest_entry_size("maclearningdigest"), 0u);
  uint8_t r[36];
  uint32_t len = 0;
  EXPECT_EQ(p4_pd_corvin_switch_get_digest_entry_field(r, "vtepLearningDigest", "ingMd_ingL2Domain", &len), r);
  EXPECT_EQ(len, 2u);
  EXPECT_EQ(p4_pd_corvin_switch_get_digest_entry_field(r, "macLearningDigest", "ingMd_ingL2Domain", &len), r + 8);
  EXPECT_EQ(p4_pd_corvin_switch_get_digest_entry_field(r, "vtepLearningDigest", "outerIpv6Hdr_sip", &len), r + 14);
  EXPECT_EQ(len, 16u);
}

TEST_F(ResourcesDeath, UnknownDigestsAndFieldsEndTheProcess) {
  uint8_t r[36];
  uint32_t len = 0;
  EXPECT_DEATH(p4_pd_corvin_switch_get_digest_entry_field(r, "vtepLearningDigest", "ingMd_smacOui", &len),
               "src/pd_corvin.*p4_pd_corvin_switch_get_digest_entry_field.*Assertion `0' failed");
  EXPECT_DEATH(p4_pd_corvin_switch_get_digest_entry_field(r, "nosuchDigest", "ingMd_smacOui", &len),
               "Assertion `0' failed");
}

struct Learned {
  std::vector<std::vector<uint8_t>> batches;
  uint32_t digest = 0;
  bool ack = true;
};

pipe_status_t learn_cb(pipe_sess_hdl_t sess, pipe_flow_lrn_msg_t *msg, void *cookie) {
  auto *l = static_cast<Learned *>(cookie);
  l->batches.emplace_back(msg->entries, msg->entries + size_t(msg->num_entries) * msg->entry_size);
  if (l->ack) {
    Status (*ack)(Sess, p4_pd_digest_msg_t *) = l->digest == 0x9000000
                                                    ? p4_pd_corvin_switch_macLearningDigest_notify_ack
                                                    : p4_pd_corvin_switch_vtepLearningDigest_notify_ack;
    EXPECT_EQ(ack(sess, msg), 0u);
  }
  return 0;
}

TEST_F(Resources, EveryDigestRegistersDeliversAndIsAcknowledged) {
  for (size_t i = 0; i < kDigestCount; ++i) {
    const DigestCase &d = kDigestCases[i];
    SCOPED_TRACE(d.name);
    Learned l;
    l.digest = d.handle;
    ASSERT_EQ(d.reg(kSess, 1, learn_cb, &l), 0u);
    const drvm_call_t &r = last("pipe_mgr_lrn_digest_notification_register");
    EXPECT_EQ(r.tbl_hdl, d.handle);
    EXPECT_EQ(r.ptr_arg, reinterpret_cast<const void *>(learn_cb));
    EXPECT_EQ(r.ptr_arg2, &l);
    std::vector<uint8_t> records(d.entry_bytes * 2);
    for (size_t b = 0; b < records.size(); ++b) records[b] = uint8_t(b * 7 + 1);
    ASSERT_EQ(drvm_learn(1, 0, d.handle, records.data(), 2), 0);
    drvm_advance_clock(2000000);  // past the learning timeout
    ASSERT_EQ(l.batches.size(), 1u);
    EXPECT_EQ(l.batches[0], records);
    EXPECT_EQ(last("pipe_mgr_flow_lrn_notify_ack").tbl_hdl, d.handle);
    EXPECT_EQ(drvm_learn_outstanding_count(1, d.handle), 0u);
    ASSERT_EQ(d.dereg(kSess, 1), 0u);
    EXPECT_EQ(last("pipe_mgr_lrn_digest_notification_deregister").tbl_hdl, d.handle);
  }
  ASSERT_EQ(p4_pd_corvin_switch_set_learning_timeout(kSess, 1, 500), 0u);
  EXPECT_EQ(drvm_learn_timeout(1), 500u);
}

// ---- Parser value sets ----

TEST_F(Resources, EveryValueSetAddsWalksAndReadsByItsHandle) {
  for (size_t i = 0; i < kValueSetCount; ++i) {
    const ValueSetCase &k = kValueSets[i];
    SCOPED_TRACE(k.name);
    uint32_t h1 = 0, h2 = 0;
    ASSERT_EQ(k.add(kSess, 1, PD_PVS_GRESS_INGRESS, 0, 2, 4789, 0xFFFF, &h1), 0u);
    const drvm_call_t &a = last("pipe_mgr_pvs_entry_add");
    EXPECT_EQ(a.tbl_hdl, k.handle);
    ASSERT_EQ(k.add(kSess, 1, PD_PVS_GRESS_INGRESS, 0, 2, 4790, 0xFFFF, &h2), 0u);
    uint32_t v = 0, m = 0;
    ASSERT_EQ(k.get(kSess, 1, h1, &v, &m), 0u);
    EXPECT_EQ(v, 4789u);
    EXPECT_EQ(m, 0xFFFFu);
    ASSERT_EQ(k.modify(kSess, 1, h1, 8472, 0xFFFF), 0u);
    ASSERT_EQ(k.get(kSess, 1, h1, &v, &m), 0u);
    EXPECT_EQ(v, 8472u);
    uint32_t found = 0;
    ASSERT_EQ(k.handle_get(kSess, 1, PD_PVS_GRESS_INGRESS, 0, 2, 4790, 0xFFFF, &found), 0u);
    EXPECT_EQ(found, h2);
    uint32_t first = 0, next[2] = {};
    ASSERT_EQ(k.get_first(kSess, 1, PD_PVS_GRESS_INGRESS, 0, 2, &first), 0u);
    EXPECT_EQ(first, std::min(h1, h2));
    ASSERT_EQ(k.get_next(kSess, 1, PD_PVS_GRESS_INGRESS, 0, 2, first, 1, next), 0u);
    EXPECT_EQ(next[0], std::max(h1, h2));
    uint32_t count = 0;
    ASSERT_EQ(k.get_count(kSess, 1, PD_PVS_GRESS_INGRESS, 0, 2, 0, &count), 0u);
    EXPECT_EQ(count, 2u);
    ASSERT_EQ(k.del(kSess, 1, h1), 0u);
    ASSERT_EQ(k.get_count(kSess, 1, PD_PVS_GRESS_INGRESS, 0, 2, 1, &count), 0u);
    EXPECT_EQ(count, 1u);
    for (const char *fn : {"pipe_mgr_pvs_entry_modify", "pipe_mgr_pvs_entry_delete", "pipe_mgr_pvs_entry_get",
                           "pipe_mgr_pvs_entry_handle_get", "pipe_mgr_pvs_entry_get_first",
                           "pipe_mgr_pvs_entry_get_next", "pipe_mgr_pvs_entry_get_count"})
      EXPECT_EQ(last(fn).tbl_hdl, k.handle) << fn;

    // Properties: the aggregates of value and argument, read back; all ones on failure.
    ASSERT_EQ(k.set_property(kSess, 1, PD_PVS_GRESS_SCOPE, PD_PVS_SCOPE_SINGLE, PD_PVS_GRESS_INGRESS), 0u);
    const drvm_call_t &sp = last("pipe_mgr_pvs_set_property");
    EXPECT_EQ(sp.tbl_hdl, k.handle);
    pipe_mgr_pvs_prop_value_t pv = bytes_as<pipe_mgr_pvs_prop_value_t>(sp);
    EXPECT_EQ(pv.value, uint32_t(PD_PVS_SCOPE_SINGLE));
    EXPECT_EQ(pv.reserved, 0u);
    ASSERT_EQ(sp.num_bytes2, sizeof(pipe_mgr_pvs_prop_args_t));
    pipe_mgr_pvs_prop_args_t pa;
    std::memcpy(&pa, sp.bytes2, sizeof pa);
    EXPECT_EQ(pa.value, uint32_t(PD_PVS_GRESS_INGRESS));
    EXPECT_EQ(pa.reserved, 0u);
    p4_pd_pvs_prop_value_t got = 0;
    ASSERT_EQ(k.get_property(kSess, 1, PD_PVS_GRESS_SCOPE, &got, PD_PVS_GRESS_INGRESS), 0u);
    EXPECT_EQ(got, uint32_t(PD_PVS_SCOPE_SINGLE));
    drvm_fail_next("pipe_mgr_pvs_get_property", 51);
    EXPECT_EQ(k.get_property(kSess, 1, PD_PVS_GRESS_SCOPE, &got, PD_PVS_GRESS_INGRESS), 51u);
    EXPECT_EQ(got, 0xFFFFFFFFu);
  }
}

// ---- Dynamic hashes ----

TEST_F(Resources, EveryHashMapsItsEnumeratorsToItsHandles) {
  std::set<uint32_t> algorithms;
  for (size_t i = 0; i < kHashCount; ++i) {
    const HashCase &k = kHashes[i];
    SCOPED_TRACE(k.name);
    ASSERT_EQ(k.input_set(kSess, 1, PD_HASH_CALC_INPUT_FIELD_LIST), 0u);
    const drvm_call_t &is = last("pipe_mgr_hash_calc_input_set");
    EXPECT_EQ(is.tbl_hdl, k.handle);
    EXPECT_EQ(is.arg_u32[0], k.input);
    EXPECT_NE(k.input_set(kSess, 1, 1), 0u);  // goes to the driver as 0, which refuses
    EXPECT_EQ(last("pipe_mgr_hash_calc_input_set").arg_u32[0], 0u);
    p4_pd_hash_calc_input_t in = 9;
    ASSERT_EQ(k.input_get(kSess, 1, &in), 0u);
    EXPECT_EQ(in, 0u);

    ASSERT_EQ(k.algorithm_set(kSess, 1, PD_HASH_CALC_ALGORITHM), 0u);
    const drvm_call_t &as = last("pipe_mgr_hash_calc_algorithm_set");
    EXPECT_EQ(as.arg_u32[0], k.algorithm);
    EXPECT_EQ(as.arg_u32[1], 0u);
    EXPECT_EQ(as.arg_u32[2], 0u);
    EXPECT_EQ(as.ptr_arg, nullptr);
    algorithms.insert(as.arg_u32[0]);
    p4_pd_hash_calc_algorithm_t alg = 9;
    ASSERT_EQ(k.algorithm_get(kSess, 1, &alg), 0u);
    EXPECT_EQ(alg, 0u);

    ASSERT_EQ(k.seed_set(kSess, 1, 0x123456789ull), 0u);
    EXPECT_EQ(last("pipe_mgr_hash_calc_seed_set").arg_u64, 0x123456789ull);
    uint64_t seed = 0;
    ASSERT_EQ(k.seed_get(kSess, 1, &seed), 0u);
    EXPECT_EQ(seed, 0x123456789ull);

    p4_pd_hash_calc_input_field_attribute_t attrs[2] = {{3, 1, {0}}, {5, 2, {7}}};
    ASSERT_EQ(k.attribute_set(kSess, 1, PD_HASH_CALC_INPUT_FIELD_LIST, 2, attrs), 0u);
    const drvm_call_t &at = last("pipe_mgr_hash_calc_input_field_attribute_set");
    EXPECT_EQ(at.arg_u32[0], k.input);
    EXPECT_EQ(at.arg_u32[1], 2u);
    ASSERT_EQ(at.num_bytes, 2 * sizeof(pipe_hash_calc_input_field_attribute_t));
    pipe_hash_calc_input_field_attribute_t sent[2];
    std::memcpy(sent, at.bytes, sizeof sent);
    EXPECT_EQ(sent[1].input_field, 5u);
    EXPECT_EQ(sent[1].slice_start, 0u);
    EXPECT_EQ(sent[1].slice_length, 0u);
    EXPECT_EQ(sent[1].order, 6u);  // the field id plus 1
    EXPECT_EQ(sent[1].type, 2u);
    EXPECT_EQ(sent[1].value, 7u);
    uint32_t count = 99;
    ASSERT_EQ(k.attribute_count_get(kSess, 1, PD_HASH_CALC_INPUT_FIELD_LIST, &count), 0u);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(k.attribute_count_get(kSess, 1, 1, &count), 3u);  // a non-zero input with the known one in force
    p4_pd_hash_calc_input_field_attribute_t back[4] = {};
    uint32_t filled = 99;
    ASSERT_EQ(k.attribute_get(kSess, 1, PD_HASH_CALC_INPUT_FIELD_LIST, 0, back, &filled), 0u);
    EXPECT_EQ(filled, 0u);  // capacity 0: no driver call, the number zeroed
    ASSERT_EQ(k.attribute_get(kSess, 1, PD_HASH_CALC_INPUT_FIELD_LIST, 4, back, &filled), 0u);
    EXPECT_EQ(filled, 2u);
    EXPECT_EQ(back[1].input_field, 5u);
    EXPECT_EQ(back[1].type, 2u);
    EXPECT_EQ(back[1].value.val, 7u);
    ASSERT_EQ(k.attribute_set(kSess, 1, PD_HASH_CALC_INPUT_FIELD_LIST, 0, nullptr), 0u);
    EXPECT_EQ(last("pipe_mgr_hash_calc_input_field_attribute_set").bytes, nullptr);
  }
  EXPECT_EQ(algorithms.size(), 2u);  // the hashes share two algorithm handles
  EXPECT_EQ(drvm_live_allocs(), 0u);
}

TEST_F(Resources, HashReadsOfAnotherHandleAreStatusThree) {
  // The driver answers with another hash's input: 3, the caller's word untouched.
  ASSERT_EQ(pipe_mgr_hash_calc_input_set(kSess, 1, 0x8000007, 0x21000007), 0);
  p4_pd_hash_calc_input_t in = 9;
  drvm_fail_next("pipe_mgr_hash_calc_input_get", 52);
  EXPECT_EQ(p4_pd_corvin_switch_hash_calc_hashOuterIpv4Hdr_input_get(kSess, 1, &in), 3u);
  EXPECT_EQ(in, 9u);
  p4_pd_hash_calc_algorithm_t alg = 9;
  drvm_fail_next("pipe_mgr_hash_calc_algorithm_get", 53);
  EXPECT_EQ(p4_pd_corvin_switch_hash_calc_hashOuterIpv4Hdr_algorithm_get(kSess, 1, &alg), 3u);
  EXPECT_EQ(alg, 9u);
}

// The stream of fields of 1, 9 and 8 bits holding 1, 0x1AB and 0xCD.
TEST_F(Resources, HashStreamsPackFieldsRightAligned) {
  p4_pd_hash_calc_input_field_attribute_t f[3] = {{0, 0, {1}}, {1, 0, {0x1AB}}, {2, 0, {0xCD}}};
  uint32_t widths[3] = {1, 9, 8};
  uint8_t hash[4];
  ASSERT_EQ(p4_pd_corvin_switch_hash_calc_queueCounterHash_calculate_hash_value(kSess, 1, 3, f, widths, hash, 4), 0u);
  const drvm_call_t &c = last("pipe_mgr_hash_calc_calculate_hash_value");
  EXPECT_EQ(c.tbl_hdl, 0x800000au);
  EXPECT_EQ(cvtest::hex(c.bytes, c.num_bytes), "03abcd");

  // 32 bits use the whole copy; 33 go by pointer.
  uint8_t wide[5] = {0x01, 0x23, 0x45, 0x67, 0x89};
  p4_pd_hash_calc_input_field_attribute_t g[2] = {{0, 0, {0xDEADBEEF}}, {1, 0, {0}}};
  g[1].value.stream = wide;
  uint32_t w2[2] = {32, 33};
  ASSERT_EQ(p4_pd_corvin_switch_hash_calc_queueCounterHash_calculate_hash_value(kSess, 1, 2, g, w2, hash, 4), 0u);
  const drvm_call_t &c2 = last("pipe_mgr_hash_calc_calculate_hash_value");
  // DEADBEEF then the 33 bits 1_23456789: 65 bits in 9 bytes, the top bit unused.
  EXPECT_EQ(cvtest::hex(c2.bytes, c2.num_bytes), "01bd5b7ddf23456789");

  // No field at all: an empty stream still goes to the driver.
  ASSERT_EQ(p4_pd_corvin_switch_hash_calc_queueCounterHash_calculate_hash_value(kSess, 1, 0, f, widths, hash, 4), 0u);
  EXPECT_EQ(last("pipe_mgr_hash_calc_calculate_hash_value").num_bytes, 0u);
  EXPECT_EQ(drvm_live_allocs(), 0u);
}

// ---- Snapshots ----

// Every byte of a record stays, except the listed fields of the handle's form, whose bytes turn.
void expect_swapped(const uint8_t *in, const uint8_t *out, const SnapshotForm &form) {
  std::vector<int> width(kSnapshotRecordSize, 0), start(kSnapshotRecordSize, -1);
  for (size_t i = 0; i < form.n16; ++i)
    for (int b = 0; b < 2; ++b) width[form.u16[i] + b] = 2, start[form.u16[i] + b] = form.u16[i];
  for (size_t i = 0; i < form.n32; ++i)
    for (int b = 0; b < 4; ++b) width[form.u32[i] + b] = 4, start[form.u32[i] + b] = form.u32[i];
  for (size_t i = 0; i < kSnapshotRecordSize; ++i) {
    size_t from = width[i] ? start[i] + (width[i] - 1 - (i - start[i])) : i;
    ASSERT_EQ(out[i], in[from]) << "byte " << i;
  }
}

TEST_F(Resources, TriggersTurnTheFieldsOfTheirFormToNetworkOrder) {
  p4_pd_corvin_switch_snapshot_trig_spec_t value, mask;
  for (size_t i = 0; i < sizeof value; ++i) {
    value.bytes[i] = uint8_t(i * 13 + 5);
    mask.bytes[i] = uint8_t(255 - i);
  }
  const auto value0 = value, mask0 = mask;
  for (uint32_t dir : {PD_SNAPSHOT_DIR_INGRESS, PD_SNAPSHOT_DIR_EGRESS}) {
    SCOPED_TRACE(dir);
    p4_pd_snapshot_hdl_t hdl = 0;
    ASSERT_EQ(p4_pd_corvin_switch_snapshot_create(kPipe0, 0, 5, dir, &hdl), 0u);
    EXPECT_EQ((hdl & BF_SNAPSHOT_HDL_EGRESS_BIT) != 0, dir == PD_SNAPSHOT_DIR_EGRESS);
    ASSERT_EQ(p4_pd_corvin_switch_snapshot_capture_trigger_set(hdl, &value, &mask), 0u);
    EXPECT_EQ(std::memcmp(&value, &value0, sizeof value), 0);  // the caller's records unchanged
    EXPECT_EQ(std::memcmp(&mask, &mask0, sizeof mask), 0);
    const drvm_call_t &c = last("bf_snapshot_capture_trigger_set");
    ASSERT_EQ(c.num_bytes, kSnapshotRecordSize);
    ASSERT_EQ(c.num_bytes2, kSnapshotRecordSize);
    const SnapshotForm &form = dir == PD_SNAPSHOT_DIR_EGRESS ? kSnapshotEgressForm : kSnapshotIngressForm;
    expect_swapped(value.bytes, c.bytes, form);
    expect_swapped(mask.bytes, c.bytes2, form);
    ASSERT_EQ(p4_pd_corvin_switch_snapshot_delete(hdl), 0u);
    EXPECT_EQ(last("bf_snapshot_delete").tbl_hdl, hdl);
  }
}

TEST_F(Resources, CapturesCopyAtTheDriversStrideAndNoMoreStagesThanTheChipHas) {
  ASSERT_EQ(drvm_snapshot_configure(30, 1000, uint32_t(kSnapshotRecordSize)), 0);
  p4_pd_snapshot_hdl_t hdl = 0;
  ASSERT_EQ(p4_pd_corvin_switch_snapshot_create(kPipe0, 0, 29, PD_SNAPSHOT_DIR_INGRESS, &hdl), 0u);
  p4_pd_corvin_switch_snapshot_trig_spec_t value{}, mask{};
  ASSERT_EQ(p4_pd_corvin_switch_snapshot_capture_trigger_set(hdl, &value, &mask), 0u);
  std::vector<uint8_t> phv(kSnapshotRecordSize);
  for (size_t i = 0; i < phv.size(); ++i) phv[i] = uint8_t(i ^ 0x5A);
  int captured = 0;
  ASSERT_EQ(drvm_snapshot_packet(hdl, 0, phv.data(), &captured), 0);
  ASSERT_EQ(captured, 1);
  // Room for all 30 past the result array, to see that nothing is written beyond its 20 records.
  std::vector<uint8_t> room(30 * kSnapshotRecordSize, 0xEE);
  auto *out = reinterpret_cast<p4_pd_corvin_switch_snapshot_capture_arr_t *>(room.data());
  p4_pd_snapshot_capture_ctrl_info_arr_t ctrl{};
  int n = -1;
  ASSERT_EQ(p4_pd_corvin_switch_snapshot_capture_data_get(hdl, 0, out, &ctrl, &n), 0u);
  EXPECT_EQ(n, 30);  // the driver's count; the copy stops at the chip's stages
  for (size_t s = 0; s < kSnapshotStages; ++s)
    ASSERT_EQ(std::memcmp(out->captured_stages[s].bytes, phv.data(), phv.size()), 0) << "stage " << s;
  for (size_t i = sizeof *out; i < room.size(); ++i) ASSERT_EQ(room[i], 0xEEu) << "byte " << i;
  EXPECT_EQ(drvm_live_allocs(), 0u);
}

TEST_F(Resources, CaptureWithoutMemoryAnswersTwo) {
  p4_pd_snapshot_hdl_t hdl = 0;
  ASSERT_EQ(p4_pd_corvin_switch_snapshot_create(kPipe0, 0, 3, PD_SNAPSHOT_DIR_EGRESS, &hdl), 0u);
  p4_pd_corvin_switch_snapshot_capture_arr_t out;
  p4_pd_snapshot_capture_ctrl_info_arr_t ctrl{};
  int n = -1;
  drvm_fail_alloc_after(0);
  EXPECT_EQ(p4_pd_corvin_switch_snapshot_capture_data_get(hdl, 0, &out, &ctrl, &n), 2u);
  drvm_fail_alloc_off();
  EXPECT_EQ(n, 0);
  EXPECT_EQ(drvm_count_calls("bf_snapshot_capture_get"), 0u);
}

}  // namespace

namespace {

// ---- One run of a switch's telemetry, end to end on the model ----

struct Telemetry {
  std::vector<std::vector<uint8_t>> learned;  // records of delivered batches
  pipe_flow_lrn_msg_t *unacked = nullptr;
  std::vector<uint32_t> aged;
};

pipe_status_t learned_cb(pipe_sess_hdl_t, pipe_flow_lrn_msg_t *msg, void *cookie) {
  auto *t = static_cast<Telemetry *>(cookie);
  for (uint16_t i = 0; i < msg->num_entries; ++i)
    t->learned.emplace_back(msg->entries + size_t(i) * msg->entry_size, msg->entries + size_t(i + 1) * msg->entry_size);
  t->unacked = msg;  // acknowledged once the control plane has handled it
  return 0;
}

void aged_cb(bf_dev_id_t, pipe_mat_ent_hdl_t ent, void *cookie) {
  static_cast<Telemetry *>(cookie)->aged.push_back(ent);
}

uint32_t field_u32(uint8_t *record, const char *field) {
  uint32_t len = 0;
  uint8_t *p = p4_pd_corvin_switch_get_digest_entry_field(record, "macLearningDigest", field, &len);
  uint32_t v = 0;
  for (uint32_t i = 0; i < len; ++i) v = v << 8 | p[i];
  return v;
}

TEST_F(Resources, ATelemetryRunCountsLearnsAgesAndHashes) {
  Telemetry t;
  // Counted ARP entries and traffic through them.
  uint32_t arp[2];
  for (uint16_t op = 1; op <= 2; ++op) {
    p4_pd_corvin_switch_arpCount_match_spec_t key = {12, op};
    ASSERT_EQ(p4_pd_corvin_switch_arpCount_table_add_with_countArpPkt(kSess, kTgt, &key, &arp[op - 1]), 0u);
    ASSERT_EQ(drvm_stat_direct_count(kTgt.device_id, 0x1000060, arp[op - 1], 100u * op, 6400u * op), 0);
  }
  int synced = 0;
  ASSERT_EQ(p4_pd_corvin_switch_counter_hw_sync_arpCounter(kSess, kTgt, sync_cb, &synced), 0u);
  EXPECT_EQ(synced, 1);
  for (int i = 0; i < 2; ++i) {
    p4_pd_counter_value_t v{};
    ASSERT_EQ(p4_pd_corvin_switch_counter_read_arpCounter(kSess, kTgt, arp[i], 0, &v), 0u);
    EXPECT_EQ(v.packets, 100u * (i + 1));
    EXPECT_EQ(v.bytes, 6400u * (i + 1));
  }

  // A MAC is learned: the digest comes within the learning timeout.
  ASSERT_EQ(p4_pd_corvin_switch_set_learning_timeout(kSess, uint8_t(kTgt.device_id), 500), 0u);
  ASSERT_EQ(p4_pd_corvin_switch_macLearningDigest_register(kSess, uint8_t(kTgt.device_id), learned_cb, &t), 0u);
  const uint8_t record[14] = {0, 0x00, 0x1b, 0x21, 0, 0x3a, 0x4b, 0x5c, 0x00, 0x0c, 0, 0, 0x01, 0x07};
  ASSERT_EQ(drvm_learn(kTgt.device_id, 0, 0x9000000, record, 1), 0);
  EXPECT_TRUE(t.learned.empty());
  drvm_advance_clock(600);
  ASSERT_EQ(t.learned.size(), 1u);
  uint8_t *r = t.learned[0].data();
  p4_pd_corvin_switch_l2LearningLookup_match_spec_t mac = {field_u32(r, "ingMd_smacOui"),
                                                            field_u32(r, "ingMd_smacStation"),
                                                            uint16_t(field_u32(r, "ingMd_ingL2Domain")),
                                                            field_u32(r, "ingMd_ingL2Aintf")};
  EXPECT_EQ(mac.ingMd_smacOui, 0x001b21u);
  EXPECT_EQ(mac.ingMd_smacStation, 0x3a4b5cu);
  EXPECT_EQ(mac.ingMd_ingL2Domain, 12u);
  EXPECT_EQ(mac.ingMd_ingL2Aintf, 0x107u);

  // The control plane installs it with a time to live and acknowledges the digest.
  p4_pd_idle_time_params_t idle = {PD_IDLE_TIME_MODE_NOTIFY, 100, 10000, 100, aged_cb, &t, 0};
  ASSERT_EQ(p4_pd_corvin_switch_l2LearningLookup_idle_tmo_enable(kSess, kTgt.device_id, idle), 0u);
  uint32_t learned = 0;
  ASSERT_EQ(p4_pd_corvin_switch_l2LearningLookup_table_add_with_noOp(kSess, kTgt, &mac, 1000, &learned), 0u);
  ASSERT_EQ(p4_pd_corvin_switch_macLearningDigest_notify_ack(kSess, t.unacked), 0u);
  EXPECT_EQ(drvm_learn_outstanding_count(kTgt.device_id, 0x9000000), 0u);

  // Traffic keeps it alive; silence ages it out, and the control plane removes it.
  drvm_advance_clock(800 * 1000);
  ASSERT_EQ(drvm_idle_hit(kTgt.device_id, 0x1000022, learned), 0);
  drvm_advance_clock(800 * 1000);
  EXPECT_TRUE(t.aged.empty());
  drvm_advance_clock(300 * 1000);
  ASSERT_EQ(t.aged, std::vector<uint32_t>{learned});
  ASSERT_EQ(p4_pd_corvin_switch_l2LearningLookup_table_delete(kSess, kTgt.device_id, learned), 0u);
  uint32_t count = 99;
  ASSERT_EQ(p4_pd_corvin_switch_l2LearningLookup_get_entry_count(kSess, kTgt, &count), 0u);
  EXPECT_EQ(count, 0u);

  // An IPv4 5-tuple hashes as the model's own CRC-32C of the same stream, seed included.
  ASSERT_EQ(p4_pd_corvin_switch_hash_calc_hashOuterIpAndL4Hdr_seed_set(kSess, kTgt.device_id, 0x5eed), 0u);
  p4_pd_hash_calc_input_field_attribute_t f[5] = {
      {0, 0, {0x0a000001}}, {1, 0, {0xc0a80101}}, {2, 0, {6}}, {3, 0, {49152}}, {4, 0, {443}}};
  uint32_t widths[5] = {32, 32, 8, 16, 16};
  uint8_t hash[4] = {};
  ASSERT_EQ(p4_pd_corvin_switch_hash_calc_hashOuterIpAndL4Hdr_calculate_hash_value(kSess, kTgt.device_id, 5, f, widths,
                                                                                   hash, 4),
            0u);
  const uint8_t stream[13] = {0x0a, 0, 0, 1, 0xc0, 0xa8, 1, 1, 6, 0xc0, 0x00, 0x01, 0xbb};
  uint8_t want[4] = {};
  ASSERT_EQ(drvm_hash_compute(DRVM_HASH_CRC_32C, 0x5eed, stream, 13, want, 4), 0);
  EXPECT_EQ(cvtest::hex(hash, 4), cvtest::hex(want, 4));
  EXPECT_EQ(drvm_live_allocs(), 0u);
}

}  // namespace
