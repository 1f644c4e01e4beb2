// Catalog-driven cases of entry addition: a call of one add export, and the driver records it must
// produce, as the reference encoder of gen_add_cases.py computed them.
#pragma once

#include <cstddef>
#include <cstdint>

extern "C" {
#include "corvin_switch/pd.h"
}

struct AddCase {
  const char *name;
  uint32_t (*call)(uint32_t sess, p4_pd_dev_target_t tgt, uint32_t *entry_hdl);
  uint32_t tbl_hdl;
  uint32_t act_hdl;
  uint16_t key_bits;
  uint16_t key_bytes;
  const char *value_hex;
  const char *mask_hex;
  uint32_t priority;
  uint32_t partition_index;
  uint16_t data_bits;
  uint16_t data_bytes;
  const char *image_hex;
  uint8_t resource_count;
  struct {
    uint32_t tbl_hdl, tbl_idx, tag;
  } resource;
  struct {
    uint32_t present, cir, cburst, pir, pburst, meter_type;
  } meter;
  uint32_t ttl;
};

extern const AddCase kAddCases[];
extern const size_t kAddCaseCount;
extern const size_t kEntryPairCount;
