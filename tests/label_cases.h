// Catalog-driven cases of the counter labels (tests/gen_label_cases.py): key records with the labels
// the label rules give them, and per table with a counter label what a test of the whole table needs.
#pragma once

#include <cstddef>
#include <cstdint>

extern "C" {
#include "corvin_switch/pd.h"
}

struct LabelCase {
  const char *name;
  int (*label)(char *buf);  // writes the case's record's label through the table's export
  const char *want;
};

struct CountedTable {
  const char *name;
  uint32_t handle;
  size_t record_bytes;
  int (*label)(const void *key, char *buf);  // the table's _match_spec_stringify_for_counter
  size_t bound;                              // the longest label the table's fragments can make
  // Adds an entry through the library, with a random key and the table's first entry action.
  uint32_t (*add)(uint32_t sess, p4_pd_dev_target_t tgt, uint32_t *entry_hdl);
  const char *entry_label;  // the label of that entry's key as the device gives it back
};

extern const LabelCase kLabelCases[];
extern const size_t kLabelCaseCount;
extern const CountedTable kCountedTables[];
extern const size_t kCountedTableCount;
