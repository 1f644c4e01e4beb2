// One entry of every table that takes entries without a profile, made through the library on the
// driver model, and its value text (tests/gen_entry_dump.py).
#pragma once

#include <cstddef>
#include <random>

extern "C" {
#include "corvin_switch/pd.h"
}

struct EntryDump {
  const char *name;
  // Makes the entry and writes its value text to buf; the text's length, or -1 if the entry could
  // not be made.
  int (*run)(std::mt19937 &rng, char *buf);
};

extern const EntryDump kEntryDumps[];
extern const size_t kEntryDumpCount;
