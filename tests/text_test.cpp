// Record texts against the catalog: every key's and every action's value text and printed lines
// (tests/gen_text_cases.py), and the forms the cases cannot reach from random records.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "drv/model.h"
#include "test_support.h"
#include "text_cases.h"

namespace {

using cvtest::printed;

class Check : public TextCheck {
 public:
  char *buf() override {
    std::memset(buf_, 0x7f, sizeof buf_);
    return buf_;
  }
  void value(int returned, const char *want) override {
    EXPECT_STREQ(buf_, want);
    EXPECT_EQ(returned, int(std::strlen(want)));
    EXPECT_EQ(buf_[std::strlen(want) + 1], 0x7f) << "nothing past the terminator";
  }
  void equal(int returned, const char *difference) override {
    if (difference == nullptr) {
      EXPECT_EQ(returned, 1);
      EXPECT_EQ(buf_[0], 0x7f) << "equal records leave the text buffer alone";
    } else {
      EXPECT_EQ(returned, 0);
      EXPECT_STREQ(buf_, difference);
    }
  }
  void print(int, const std::function<int(int)> &print, const char *want) override {
    int returned = -1;
    std::string got = printed(print, &returned);
    EXPECT_EQ(got, want);
    // The last dprintf's result: the length of the last line.
    std::string w = want;
    size_t start = w.rfind('\n', w.size() - 2);
    EXPECT_EQ(returned, int(w.size() - (start == std::string::npos ? 0 : start + 1)));
  }

 private:
  char buf_[512];
};

TEST(RecordText, EveryKeyAndActionWritesAndPrintsItsCatalogText) {
  Check c;
  for (size_t i = 0; i < kTextCaseCount; ++i) {
    SCOPED_TRACE(kTextCases[i].name);
    kTextCases[i].run(c);
    if (::testing::Test::HasFailure()) break;
  }
}

TEST(RecordText, WideFieldsAreNeverCutToTheirSlice) {
  p4_pd_corvin_switch_ipv6ShortMaskLpm_match_spec_t k;
  std::memset(&k, 0xFF, sizeof k);
  char buf[256];
  int n = p4_pd_corvin_switch_ipv6ShortMaskLpm_match_spec_value(&k, buf);
  EXPECT_STREQ(buf, "( 0x3ff,0xFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFF,0xffff,),");
  EXPECT_EQ(n, int(std::strlen(buf)));
  p4_pd_corvin_switch_tunnelDipSelector_match_spec_t s;
  std::memset(&s, 0xFF, sizeof s);
  p4_pd_corvin_switch_tunnelDipSelector_match_spec_value(&s, buf);
  EXPECT_STREQ(buf, "( 0x001f0000,),");
}

TEST(RecordText, PrintingAtIndentZeroStillIndentsFieldLines) {
  p4_pd_corvin_switch_l2LookupKnownUcast_action_spec_t a = {0x123};
  int returned = 0;
  std::string got = printed([&](int fd) { return p4_pd_corvin_switch_l2LookupKnownUcast_print(fd, 0, &a); }, &returned);
  EXPECT_EQ(got, "  action_egrL2Aintf: 0x000123\n");
  got = printed([&](int fd) { return p4_pd_corvin_switch_l2LookupKnownUcast_print(fd, 4, &a); }, &returned);
  EXPECT_EQ(got, "     action_egrL2Aintf: 0x000123\n");
  EXPECT_EQ(returned, int(got.size()));
}

// A reading that fails writes nothing and answers 0.
TEST(RecordText, AnEntryTheDriverCannotReadHasNoText) {
  drvm_reset();
  p4_pd_corvin_switch_init();
  char buf[64];
  std::memset(buf, 0x7f, sizeof buf);
  EXPECT_EQ(p4_pd_corvin_switch_l2Lookup_value(1, 0, 12345, 0, buf), 0);
  EXPECT_EQ(buf[0], 0x7f);
  drvm_fail_next("pipe_mgr_get_entry", 99);
  EXPECT_EQ(p4_pd_corvin_switch_vxlanArp_value(1, 0, 1, 0, buf), 0);
  EXPECT_EQ(buf[0], 0x7f);
}

// An entry of a selector's table that the driver holds with neither a member nor a group: the key
// alone, no binding text.
TEST(RecordText, ASelectorTablesEntryBoundToNothingShowsItsKeyAlone) {
  drvm_reset();
  p4_pd_corvin_switch_init();
  uint8_t value[2] = {0x01, 0x23}, mask[2] = {0xFF, 0xFF};
  pipe_tbl_match_spec_t m{};
  m.match_value_bytes = value;
  m.match_mask_bytes = mask;
  m.num_match_bytes = 2;
  m.num_valid_match_bits = 16;
  pipe_action_spec_t a{};
  a.action_data_type = PIPE_ACTION_DATA_TYPE;
  uint32_t h = 0;
  ASSERT_EQ(pipe_mgr_mat_ent_add(1, {0, 0xFFFF}, 0x21010028, &m, 0x20000098, &a, 0, 0, &h), 0);
  char buf[64];
  int n = p4_pd_corvin_switch_ecmpGroup_value(1, 0, h, 0, buf);
  EXPECT_STREQ(buf, "((( 0x0123,),),(0,True))");
  EXPECT_EQ(n, int(std::strlen(buf)));
}

}  // namespace
