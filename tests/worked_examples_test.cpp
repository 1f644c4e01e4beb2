// The system's worked examples of key, action and resource encoding, byte for byte, through the
// exported add functions and the driver model's record of what reached it.
#include "test_support.h"

namespace {

using cvtest::last_add;
using cvtest::spaced;

class WorkedExamples : public cvtest::LibraryTest {};

TEST_F(WorkedExamples, L2LookupKnownUcastRoad) {
  p4_pd_corvin_switch_l2Lookup_match_spec_t key = {0x001122, 0x334455, 0x0123};
  p4_pd_corvin_switch_l2LookupKnownUcast_action_spec_t act = {0x112233};
  p4_pd_entry_hdl_t hdl = 0;
  ASSERT_EQ(p4_pd_corvin_switch_l2Lookup_table_add_with_l2LookupKnownUcast(kSess, kTgt, &key, &act, &hdl), 0u);
  const drvm_call_t &c = last_add();
  EXPECT_EQ(c.tbl_hdl, 0x100002Cu);
  EXPECT_EQ(c.act_fn_hdl, 0x2000006Eu);
  EXPECT_EQ(cvtest::value_of(c), spaced("00 11 22 33 44 55 01 23"));
  EXPECT_EQ(cvtest::mask_of(c), spaced("FF FF FF FF FF FF FF FF"));
  EXPECT_EQ((uint32_t(c.match.num_match_bytes) << 16) + c.match.num_valid_match_bits, 0x8003Du);
  EXPECT_EQ(c.match.priority, 0u);
  EXPECT_EQ(c.match.partition_index, 0u);
  EXPECT_EQ(cvtest::image_of(c), spaced("11 22 33"));
  EXPECT_EQ((uint32_t(c.action.act_data.num_action_data_bytes) << 16) + c.action.act_data.num_valid_action_data_bits,
            0x30015u);
  EXPECT_EQ(c.ttl, 0u);
  EXPECT_EQ(c.flags, 0u);
  EXPECT_EQ(hdl, c.ent_hdl);
  EXPECT_EQ(drvm_entry_count(kTgt.device_id, 0x100002C), 1u);
}

TEST_F(WorkedExamples, L2LookupOnMissHasNoParametersButAnImagePointer) {
  p4_pd_corvin_switch_l2Lookup_match_spec_t key = {1, 2, 3};
  p4_pd_entry_hdl_t hdl;
  ASSERT_EQ(p4_pd_corvin_switch_l2Lookup_table_add_with_onMiss(kSess, kTgt, &key, &hdl), 0u);
  const drvm_call_t &c = last_add();
  EXPECT_EQ(c.act_fn_hdl, 0x20000072u);
  EXPECT_EQ(c.action.action_data_type, 1);
  EXPECT_EQ(c.action.act_data.num_valid_action_data_bits, 0);
  EXPECT_EQ(c.action.act_data.num_action_data_bytes, 0);
  EXPECT_NE(c.action.act_data.action_data_bytes, nullptr);
}

TEST_F(WorkedExamples, L2LookupMissTernaryKeys) {
  p4_pd_meter_spec_t meter = {1000, 2000, 3000, 4000, PD_METER_TYPE_COLOR_UNAWARE};
  p4_pd_corvin_switch_l2LookupMiss_match_spec_t key = {};
  key.ig_intr_md_ingress_port = 0x081;
  key.ig_intr_md_ingress_port_mask = 0x1FF;
  key.egrMd_dmacOui = 0x010000;
  key.egrMd_dmacOui_mask = 0xFF0000;
  key.egrMd_dmacStation = 0;
  key.egrMd_dmacStation_mask = 0;
  key.egrMd_egrL2Domain = 0x0ABC;
  p4_pd_entry_hdl_t hdl;
  ASSERT_EQ(p4_pd_corvin_switch_l2LookupMiss_table_add_with_l2LookupBcastHit(kSess, kTgt, &key, 7, &meter, &hdl), 0u);
  const drvm_call_t &c = last_add();
  EXPECT_EQ(cvtest::value_of(c), spaced("00 81 01 00 00 00 00 00 0A BC"));
  EXPECT_EQ(cvtest::mask_of(c), spaced("01 FF FF 00 00 00 00 00 1F FF"));
  EXPECT_EQ(c.match.priority, 7u);
  EXPECT_EQ((uint32_t(c.match.num_match_bytes) << 16) + c.match.num_valid_match_bits, 0xA0046u);

  key.ig_intr_md_ingress_port = 0xFFFF;
  key.ig_intr_md_ingress_port_mask = 0xFFFF;
  key.egrMd_dmacOui = 0x0100F0;
  key.egrMd_dmacOui_mask = 0xFFFFFF;
  key.egrMd_dmacStation = 0xFFFFFF;
  key.egrMd_dmacStation_mask = 0xF0F0F0;
  key.egrMd_egrL2Domain = 0xFFFF;
  ASSERT_EQ(p4_pd_corvin_switch_l2LookupMiss_table_add_with_l2LookupBcastHit(kSess, kTgt, &key, 0, &meter, &hdl), 0u);
  const drvm_call_t &d = last_add();
  EXPECT_EQ(cvtest::value_of(d), spaced("FF FF 01 00 F0 F0 F0 F0 FF FF"));
  EXPECT_EQ(cvtest::mask_of(d), spaced("01 FF FF FF FF F0 F0 F0 1F FF"));
  EXPECT_EQ(d.match.priority, 0u);
}

TEST_F(WorkedExamples, L2LookupMissCarriesTheStormControlMeter) {
  p4_pd_meter_spec_t meter = {1000, 2000, 3000, 4000, PD_METER_TYPE_COLOR_UNAWARE};
  p4_pd_corvin_switch_l2LookupMiss_match_spec_t key = {};
  p4_pd_entry_hdl_t hdl;
  ASSERT_EQ(p4_pd_corvin_switch_l2LookupMiss_table_add_with_NoAction(kSess, kTgt, &key, 3, &meter, &hdl), 0u);
  const drvm_call_t &c = last_add();
  ASSERT_EQ(c.action.resource_count, 1);
  const pipe_res_spec_t &r = c.action.resources[0];
  EXPECT_EQ(r.tbl_hdl, 0x5000001u);
  EXPECT_EQ(r.tbl_idx, 0u);
  EXPECT_EQ(r.tag, 1u);
  EXPECT_EQ(r.data.meter.meter_type, 1u);
  EXPECT_EQ(r.data.meter.cir_unit, 0u);
  EXPECT_EQ(cvtest::u64(r.data.meter.cir), 1000u);
  EXPECT_EQ(cvtest::u64(r.data.meter.cburst), 2000u);
  EXPECT_EQ(r.data.meter.pir_unit, 0u);
  EXPECT_EQ(cvtest::u64(r.data.meter.pir), 3000u);
  EXPECT_EQ(cvtest::u64(r.data.meter.pburst), 4000u);
}

TEST_F(WorkedExamples, UnknownMeterTypeLogsOnceAndGoesToTheDriverAsColourAware) {
  p4_pd_meter_spec_t meter = {1, 2, 3, 4, 2};
  p4_pd_corvin_switch_l2LookupMiss_match_spec_t key = {};
  p4_pd_entry_hdl_t hdl;
  ASSERT_EQ(p4_pd_corvin_switch_l2LookupMiss_table_add_with_NoAction(kSess, kTgt, &key, 3, &meter, &hdl), 0u);
  EXPECT_EQ(last_add().action.resources[0].data.meter.meter_type, 0u);
  ASSERT_EQ(drvm_log_count(), 1u);
  EXPECT_EQ(drvm_log_module(0), 0);
  EXPECT_EQ(drvm_log_level(0), 2);
  std::string line = drvm_log_line(0);
  EXPECT_EQ(line.rfind("ASSERTION FAILED: \"0\" (0) from "
                       "p4_pd_corvin_switch_l2LookupMiss_table_add_with_NoAction:", 0), 0u)
      << line;
}

using WorkedExamplesDeath = WorkedExamples;

TEST_F(WorkedExamplesDeath, NullMeterSpecOnAddEndsTheProcess) {
  p4_pd_corvin_switch_l2LookupMiss_match_spec_t key = {};
  p4_pd_entry_hdl_t hdl;
  EXPECT_DEATH(p4_pd_corvin_switch_l2LookupMiss_table_add_with_l2LookupCopyToCpu(kSess, kTgt, &key, 1, nullptr, &hdl),
               "stormControlMeter_spec && \"direct resource has no spec\"");
}

TEST_F(WorkedExamplesDeath, UnknownMeterTypeInDebugModeEndsTheProcess) {
  p4_pd_meter_spec_t meter = {1, 2, 3, 4, 7};
  p4_pd_corvin_switch_l2LookupMiss_match_spec_t key = {};
  p4_pd_entry_hdl_t hdl;
  drvm_set_debug_mode(1);
  EXPECT_DEATH(p4_pd_corvin_switch_l2LookupMiss_table_add_with_NoAction(kSess, kTgt, &key, 3, &meter, &hdl),
               "src/pd:[0-9]+: p4_pd_corvin_switch_l2LookupMiss_table_add_with_NoAction: Assertion `0' failed");
}

struct PrefixRow {
  uint16_t prefix;
  const char *value, *mask;
  uint32_t priority;
};

TEST_F(WorkedExamples, Ipv4Partition0Prefixes) {
  const PrefixRow rows[] = {
      {24, "01 55 0A 01 02 00", "03 FF FF FF FF 00", 8},  {32, "01 55 0A 01 02 03", "03 FF FF FF FF FF", 0},
      {9, "01 55 0A 00 00 00", "03 FF FF 80 00 00", 23},  {1, "01 55 00 00 00 00", "03 FF 80 00 00 00", 31},
      {0, "01 55 00 00 00 00", "03 FF 00 00 00 00", 32},  {33, "01 55 0A 01 02 03", "FF FF FF FF FF FF", 43},
  };
  for (const PrefixRow &row : rows) {
    SCOPED_TRACE(row.prefix);
    p4_pd_corvin_switch_ipv4Partition0_match_spec_t key = {0x155, 0x0A010203, row.prefix};
    p4_pd_entry_hdl_t hdl;
    ASSERT_EQ(p4_pd_corvin_switch_ipv4Partition0_table_add_with_onMiss(kSess, kTgt, &key, &hdl), 0u);
    const drvm_call_t &c = last_add();
    EXPECT_EQ((uint32_t(c.match.num_match_bytes) << 16) + c.match.num_valid_match_bits, 0x6002Au);
    EXPECT_EQ(cvtest::value_of(c), spaced(row.value));
    EXPECT_EQ(cvtest::mask_of(c), spaced(row.mask));
    EXPECT_EQ(c.match.priority, row.priority);
    EXPECT_EQ(c.match.partition_index, 0u);
  }
}

TEST_F(WorkedExamples, Ipv6ShortMaskLpm) {
  p4_pd_corvin_switch_ipv6ShortMaskLpm_match_spec_t key = {};
  key.l3Info_vrfId = 0x155;
  const uint8_t addr[16] = {0x20, 0x01, 0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
  std::memcpy(key.ingIpv6_dip, addr, 16);
  key.ingIpv6_dip_prefix_length = 48;
  p4_pd_entry_hdl_t hdl;
  ASSERT_EQ(p4_pd_corvin_switch_ipv6ShortMaskLpm_table_add_with_setFibMiss(kSess, kTgt, &key, &hdl), 0u);
  const drvm_call_t &c = last_add();
  EXPECT_EQ((uint32_t(c.match.num_match_bytes) << 16) + c.match.num_valid_match_bits, 0x12008Au);
  EXPECT_EQ(cvtest::value_of(c), spaced("01 55 20 01 0D B8 00 00 00 00 00 00 00 00 00 00 00 00"));
  EXPECT_EQ(cvtest::mask_of(c), spaced("03 FF FF FF FF FF FF FF 00 00 00 00 00 00 00 00 00 00"));
  EXPECT_EQ(c.match.priority, 80u);

  key.ingIpv6_dip_prefix_length = 128;
  ASSERT_EQ(p4_pd_corvin_switch_ipv6ShortMaskLpm_table_add_with_setFibMiss(kSess, kTgt, &key, &hdl), 0u);
  const drvm_call_t &d = last_add();
  EXPECT_EQ(cvtest::value_of(d), spaced("01 55 20 01 0D B8 00 00 00 00 00 00 00 00 00 00 00 01"));
  EXPECT_EQ(cvtest::mask_of(d), spaced("03 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF"));
  EXPECT_EQ(d.match.priority, 0u);

  key.ingIpv6_dip_prefix_length = 129;
  ASSERT_EQ(p4_pd_corvin_switch_ipv6ShortMaskLpm_table_add_with_setFibMiss(kSess, kTgt, &key, &hdl), 0u);
  EXPECT_EQ(last_add().match.priority, 139u);
}

TEST_F(WorkedExamples, Ipv4FinalResolve0PartitionField) {
  p4_pd_corvin_switch_ipv4FinalResolve0_match_spec_t key = {0x1234, 0x0A010203, 24};
  p4_pd_corvin_switch_setNextHop0First_action_spec_t act = {0x01020304};
  p4_pd_entry_hdl_t hdl;
  ASSERT_EQ(p4_pd_corvin_switch_ipv4FinalResolve0_table_add_with_setNextHop0First(kSess, kTgt, &key, &act, &hdl), 0u);
  const drvm_call_t &c = last_add();
  EXPECT_EQ((uint32_t(c.match.num_match_bytes) << 16) + c.match.num_valid_match_bits, 0x60030u);
  EXPECT_EQ(c.match.partition_index, 0x1234u);
  EXPECT_EQ(cvtest::value_of(c), spaced("00 00 0A 01 02 00"));
  EXPECT_EQ(cvtest::mask_of(c), spaced("00 00 FF FF FF 00"));
  EXPECT_EQ(c.match.priority, 8u);

  key.ingIpv4_dip_prefix_length = 33;
  ASSERT_EQ(p4_pd_corvin_switch_ipv4FinalResolve0_table_add_with_setNextHop0First(kSess, kTgt, &key, &act, &hdl), 0u);
  const drvm_call_t &d = last_add();
  EXPECT_EQ(d.match.partition_index, 0x1234u);
  EXPECT_EQ(cvtest::value_of(d), spaced("00 00 0A 01 02 03"));
  EXPECT_EQ(cvtest::mask_of(d), spaced("FF FF FF FF FF FF"));
  EXPECT_EQ(d.match.priority, 49u);
}

TEST_F(WorkedExamples, IndexBearingActionKeepsSixteenBitsOnAdd) {
  p4_pd_corvin_switch_egrL3AintfMeter_match_spec_t key = {};
  p4_pd_corvin_switch_meterEgrL3Aintf_action_spec_t act = {0x12345678};
  p4_pd_entry_hdl_t hdl;
  ASSERT_EQ(p4_pd_corvin_switch_egrL3AintfMeter_table_add_with_meterEgrL3Aintf(kSess, kTgt, &key, &act, &hdl), 0u);
  const drvm_call_t &c = last_add();
  EXPECT_EQ(cvtest::image_of(c), "00000000") << "the index goes to the resource record, not the image";
  EXPECT_EQ((uint32_t(c.action.act_data.num_action_data_bytes) << 16) + c.action.act_data.num_valid_action_data_bits,
            0x40020u);
  ASSERT_EQ(c.action.resource_count, 1);
  EXPECT_EQ(c.action.resources[0].tbl_hdl, 0x5000005u);
  EXPECT_EQ(c.action.resources[0].tbl_idx, 0x5678u);
  EXPECT_EQ(c.action.resources[0].tag, 1u);
}

TEST_F(WorkedExamples, MeterPdpClassKeepsItsIndexInBothPlaces) {
  p4_pd_corvin_switch_pdpClassify_match_spec_t key = {};
  p4_pd_corvin_switch_meterPdpClass_action_spec_t act = {0x00ABCDEF};
  p4_pd_entry_hdl_t hdl;
  ASSERT_EQ(p4_pd_corvin_switch_pdpClassify_table_add_with_meterPdpClass(kSess, kTgt, &key, 0, &act, &hdl), 0u);
  const drvm_call_t &c = last_add();
  EXPECT_EQ(cvtest::image_of(c), "00abcdef");
  EXPECT_EQ(c.action.resources[0].tbl_hdl, 0x25010002u);
  EXPECT_EQ(c.action.resources[0].tbl_idx, 0xCDEFu);
}

TEST_F(WorkedExamples, MeterBearingTablesTagNoActionTwo) {
  p4_pd_corvin_switch_ingL3AintfMeter_match_spec_t key = {};
  p4_pd_entry_hdl_t hdl;
  ASSERT_EQ(p4_pd_corvin_switch_ingL3AintfMeter_table_add_with_NoAction(kSess, kTgt, &key, &hdl), 0u);
  const drvm_call_t &c = last_add();
  ASSERT_EQ(c.action.resource_count, 1);
  EXPECT_EQ(c.action.resources[0].tbl_hdl, 0x5000002u);
  EXPECT_EQ(c.action.resources[0].tbl_idx, 0u);
  EXPECT_EQ(c.action.resources[0].tag, 2u);
}

TEST_F(WorkedExamples, TtlPassesAsGivenOnIdleTimeTables) {
  p4_pd_corvin_switch_l2LearningLookup_match_spec_t key = {1, 2, 3, 4};
  p4_pd_entry_hdl_t hdl;
  ASSERT_EQ(p4_pd_corvin_switch_l2LearningLookup_table_add_with_noOp(kSess, kTgt, &key, 5000, &hdl), 0u);
  EXPECT_EQ(last_add().ttl, 5000u);
  p4_pd_corvin_switch_ipv4McGroupVlan_match_spec_t mkey = {};
  ASSERT_EQ(p4_pd_corvin_switch_ipv4McGroupVlan_table_add_with_NoAction(kSess, kTgt, &mkey, &hdl), 0u);
  EXPECT_EQ(last_add().ttl, 0u) << "the other idle-time tables take no TTL";
}

TEST_F(WorkedExamples, DriverRefusalComesBackUnchangedAndTheHandleUntouched) {
  p4_pd_corvin_switch_l2Lookup_match_spec_t key = {0x001122, 0x334455, 0x0123};
  p4_pd_entry_hdl_t hdl = 0xABCD;
  drvm_fail_next("pipe_mgr_mat_ent_add", 0x1234);
  EXPECT_EQ(p4_pd_corvin_switch_l2Lookup_table_add_with_l2LookupDrop(kSess, kTgt, &key, &hdl), 0x1234u);
  EXPECT_EQ(hdl, 0xABCDu);
  ASSERT_EQ(p4_pd_corvin_switch_l2Lookup_table_add_with_l2LookupDrop(kSess, kTgt, &key, &hdl), 0u);
  EXPECT_EQ(p4_pd_corvin_switch_l2Lookup_table_add_with_l2LookupDrop(kSess, kTgt, &key, &hdl),
            static_cast<uint32_t>(BF_ALREADY_EXISTS))
      << "the model's refusal of a duplicate key passes through";
  EXPECT_EQ(drvm_entry_count(kTgt.device_id, 0x100002C), 1u);
}

}  // namespace
