// Helpers shared by the library's tests: hex images and access to the driver model's record.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

extern "C" {
#include "corvin_switch/pd.h"
#include "drv/model.h"
}

namespace cvtest {

// The value of a driver record's 64-bit field, which is aligned to 4 bytes only: gtest's macros
// bind references, and a reference to such a field is misaligned on x86-64.
inline uint64_t u64(pipe_u64_a4_t v) { return v; }

inline std::string hex(const uint8_t *p, size_t n) {
  static const char *digits = "0123456789abcdef";
  std::string s;
  for (size_t i = 0; i < n; ++i) {
    s += digits[p[i] >> 4];
    s += digits[p[i] & 15];
  }
  return s;
}

// Hex of bytes written with spaces, as images are shown in the system's examples: "00 11 22".
inline std::string spaced(const std::string &text) {
  std::string s;
  for (char ch : text)
    if (ch != ' ') s += static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
  return s;
}

inline std::string value_of(const drvm_call_t &c) { return hex(c.match.match_value_bytes, c.match.num_match_bytes); }
inline std::string mask_of(const drvm_call_t &c) { return hex(c.match.match_mask_bytes, c.match.num_match_bytes); }
inline std::string image_of(const drvm_call_t &c) {
  return hex(c.action.act_data.action_data_bytes, c.action.act_data.num_action_data_bytes);
}

inline const drvm_call_t &last_add() {
  const drvm_call_t *c = drvm_last_call("pipe_mgr_mat_ent_add");
  if (!c) {
    ADD_FAILURE() << "no pipe_mgr_mat_ent_add recorded";
    static drvm_call_t none{};
    return none;
  }
  return *c;
}

// The lines a printer writes, read back from a temporary file.
inline std::string printed(const std::function<int(int)> &print, int *returned) {
  FILE *f = std::tmpfile();
  if (f == nullptr) {
    ADD_FAILURE() << "no temporary file";
    return "";
  }
  *returned = print(fileno(f));
  std::string out;
  char chunk[4096];
  lseek(fileno(f), 0, SEEK_SET);
  for (ssize_t n; (n = read(fileno(f), chunk, sizeof chunk)) > 0;) out.append(chunk, size_t(n));
  std::fclose(f);
  return out;
}

// Every test starts from a fresh model with the library started on it.
class LibraryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    drvm_reset();
    p4_pd_corvin_switch_init();
    drvm_clear_calls();
  }
  static constexpr p4_pd_sess_hdl_t kSess = 7;
  static constexpr p4_pd_dev_target_t kTgt = {1, 0xFFFF};
};

}  // namespace cvtest
