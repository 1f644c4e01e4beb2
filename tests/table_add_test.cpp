// Every entry action of every table, through its real export, checked against the reference
// encoder's records for random keys, all-ones keys and the prefix edges.
#include <set>

#include "add_cases.h"
#include "test_support.h"

namespace {

using cvtest::hex;

class TableAddCatalog : public cvtest::LibraryTest {};

TEST_F(TableAddCatalog, EveryEntryActionHasCases) {
  std::set<std::pair<uint32_t, uint32_t>> pairs;
  for (size_t i = 0; i < kAddCaseCount; ++i) pairs.insert({kAddCases[i].tbl_hdl, kAddCases[i].act_hdl});
  EXPECT_EQ(pairs.size(), kEntryPairCount);
}

TEST_F(TableAddCatalog, DriverReceivesTheReferenceRecords) {
  for (size_t i = 0; i < kAddCaseCount; ++i) {
    const AddCase &k = kAddCases[i];
    SCOPED_TRACE(k.name);
    drvm_reset();
    uint32_t hdl = 0xDEADBEEF;
    ASSERT_EQ(k.call(kSess, kTgt, &hdl), 0u);
    ASSERT_EQ(drvm_call_count(), 1u);
    const drvm_call_t &c = *drvm_call(0);
    ASSERT_STREQ(c.fn, "pipe_mgr_mat_ent_add");
    EXPECT_EQ(c.sess_hdl, kSess);
    EXPECT_EQ(c.dev_tgt.device_id, kTgt.device_id);
    EXPECT_EQ(c.dev_tgt.dev_pipe_id, kTgt.dev_pipe_id);
    EXPECT_EQ(c.tbl_hdl, k.tbl_hdl);
    EXPECT_EQ(c.act_fn_hdl, k.act_hdl);
    EXPECT_EQ(c.ttl, k.ttl);
    EXPECT_EQ(c.flags, 0u);
    EXPECT_EQ(c.ent_hdl, hdl) << "the model's handle reaches the caller";
    // Match record.
    EXPECT_EQ(c.match.num_valid_match_bits, k.key_bits);
    EXPECT_EQ(c.match.num_match_bytes, k.key_bytes);
    EXPECT_EQ(cvtest::value_of(c), k.value_hex);
    EXPECT_EQ(cvtest::mask_of(c), k.mask_hex);
    EXPECT_EQ(c.match.priority, k.priority);
    EXPECT_EQ(c.match.partition_index, k.partition_index);
    EXPECT_EQ(c.match.reserved, 0u);
    // Action record.
    EXPECT_EQ(c.action.action_data_type, PIPE_ACTION_DATA_TYPE);
    EXPECT_EQ(c.action.reserved, 0u);
    EXPECT_EQ(c.action.act_data.num_valid_action_data_bits, k.data_bits);
    EXPECT_EQ(c.action.act_data.num_action_data_bytes, k.data_bytes);
    EXPECT_NE(c.action.act_data.action_data_bytes, nullptr) << "set even without parameters";
    EXPECT_EQ(cvtest::image_of(c), k.image_hex);
    EXPECT_EQ(c.action.member_hdl, 0u);
    EXPECT_EQ(c.action.group_hdl, 0u);
    EXPECT_EQ(c.action.resource_count, k.resource_count);
    pipe_res_spec_t want[PIPE_NUM_RES_SPECS];
    std::memset(want, 0, sizeof want);
    if (k.resource_count) {
      want[0].tbl_hdl = k.resource.tbl_hdl;
      want[0].tbl_idx = k.resource.tbl_idx;
      want[0].tag = k.resource.tag;
      if (k.meter.present) {
        want[0].data.meter.meter_type = k.meter.meter_type;
        want[0].data.meter.cir = k.meter.cir;
        want[0].data.meter.cburst = k.meter.cburst;
        want[0].data.meter.pir = k.meter.pir;
        want[0].data.meter.pburst = k.meter.pburst;
      }
    }
    EXPECT_EQ(hex(reinterpret_cast<const uint8_t *>(c.action.resources), sizeof want),
              hex(reinterpret_cast<const uint8_t *>(want), sizeof want));
  }
  EXPECT_EQ(drvm_log_count(), 0u) << "no successful operation logs";
}

}  // namespace
