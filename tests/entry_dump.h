// One entry of a table per call, made through the library on the driver model, with its value
// text; and the table's handle and placement functions (tests/gen_entry_dump.py).
#pragma once

#include <cstddef>
#include <random>

extern "C" {
#include "corvin_switch/pd.h"
}

struct EntryDump {
  const char *name;
  uint32_t handle;
  // Makes an entry (the n-th call of the table: a bound table alternates member and group), writes
  // its handle to *h and its value text to buf; the text's length, or -1 if the entry could not be
  // made (a key drawn twice).
  int (*run)(std::mt19937 &rng, int call, p4_pd_entry_hdl_t *h, char *buf);
  p4_pd_status_t (*get_plcmt_data)(uint32_t dev_id, void **plcmt_data);
  int (*eq_to_hw)(p4_pd_sess_hdl_t sess_hdl, uint8_t dev_id, uint32_t tbl_hdl, p4_pd_entry_hdl_t entry_hdl,
                  void *plcmt_data, char *buf);
};

extern const EntryDump kEntryDumps[];
extern const size_t kEntryDumpCount;
