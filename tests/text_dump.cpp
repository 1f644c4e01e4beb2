// Prints every schema text of the library, and value texts of random records of every key and
// action, one per line as "<kind>\t<name>\t<length>\t<text>", for a client in Python to evaluate
// (tests/text_eval_test.py). Records are random bytes across their whole size; entries are made of
// such records through the library, one per table, on the driver model, and their texts are read
// back twice: from the driver, and from the driver's placement data.
#include <cstdio>
#include <random>
#include <vector>

#include "drv/model.h"
#include "entry_dump.h"
#include "schema_cases.h"

int main() {
  std::mt19937 rng(20261123);
  std::vector<char> buf(8192);
  for (size_t i = 0; i < kTableSchemaCount; ++i) {
    int n = kTableSchemas[i].write(buf.data());
    std::printf("table\t%s\t%d\t%s\n", kTableSchemas[i].name, n, buf.data());
  }
  for (size_t i = 0; i < kKeySchemaCount; ++i)
    std::printf("key_schema\t%s\t-\t%s\n", kKeySchemas[i].name, kKeySchemas[i].text());
  for (size_t i = 0; i < kActionSchemaCount; ++i)
    std::printf("action_schema\t%s\t-\t%s\n", kActionSchemas[i].name, kActionSchemas[i].text());
  auto values = [&](const char *kind, const ValueTextFn *fns, size_t count) {
    for (size_t i = 0; i < count; ++i) {
      for (int k = 0; k < 3; ++k) {
        std::vector<unsigned char> rec(fns[i].record_size + 1);
        for (auto &b : rec) b = static_cast<unsigned char>(k == 2 ? 0xFF : rng());
        int n = fns[i].write(rec.data(), buf.data());
        std::printf("%s\t%s\t%d\t%s\n", kind, fns[i].name, n, buf.data());
      }
    }
  };
  values("key_value", kKeyValueFns, kKeyValueFnCount);
  values("action_value", kActionValueFns, kActionValueFnCount);
  // Entries made through the library on the driver model, read back as value texts, and then as
  // placement data, found by the table's handle alone.
  drvm_reset();
  p4_pd_corvin_switch_init();
  for (size_t i = 0; i < kEntryDumpCount; ++i) {
    p4_pd_entry_hdl_t h = 0;
    int n = kEntryDumps[i].run(rng, 0, &h, buf.data());
    std::printf("entry\t%s\t%d\t%s\n", kEntryDumps[i].name, n, n > 0 ? buf.data() : "");
  }
  for (size_t i = 0; i < kEntryDumpCount; ++i) {
    void *list = nullptr;
    if (pipe_mgr_plcmt_mat_data_get(0, &list, kEntryDumps[i].handle) != 0) return 1;
    for (uint32_t k = 0; k < pipe_mgr_plcmt_list_count(list); ++k) {
      int n = p4_pd_corvin_switch_plcmt_data_value(kEntryDumps[i].handle, pipe_mgr_plcmt_list_datum(list, k, nullptr),
                                                   buf.data());
      std::printf("plcmt\t%s\t%d\t%s\n", kEntryDumps[i].name, n, n > 0 ? buf.data() : "");
    }
    pipe_mgr_plcmt_list_destroy(list);
  }
  return 0;
}
