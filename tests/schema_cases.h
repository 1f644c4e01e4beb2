// The expected schema text of every key, action, table and profile of the catalog, each with its
// export (tests/gen_schema_cases.py).
#pragma once

#include <cstddef>
#include <cstdint>

extern "C" {
#include "corvin_switch/pd.h"
}

struct StaticTextCase {
  const char *name;
  const char *(*text)();
  const char *want;
};

struct BufferTextCase {
  const char *name;
  int (*write)(char *);
  const char *want;
  uint32_t handle;  // the match table's, or the profile's action data table's
};

extern const StaticTextCase kKeySchemas[];
extern const size_t kKeySchemaCount;
extern const StaticTextCase kActionSchemas[];
extern const size_t kActionSchemaCount;
extern const BufferTextCase kTableSchemas[];  // the 226 tables, then the 6 profiles
extern const size_t kTableSchemaCount;

// The value-text writer of a key or an action, for records of record_size bytes (0: an action
// without parameters, which takes none).
struct ValueTextFn {
  const char *name;
  size_t record_size;
  int (*write)(void *record, char *buf);
};

extern const ValueTextFn kKeyValueFns[];
extern const size_t kKeyValueFnCount;
extern const ValueTextFn kActionValueFns[];
extern const size_t kActionValueFnCount;
