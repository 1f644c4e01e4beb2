// Action numbers and their name texts.
#include <set>
#include <string>

#include "test_support.h"

namespace {

constexpr uint32_t kActions = 375;

TEST(ActionNames, EveryNumberRoundTripsThroughItsText) {
  std::set<std::string> seen;
  for (uint32_t n = 0; n < kActions; ++n) {
    const char *text = p4_pd_corvin_switch_action_enum_to_string(n);
    ASSERT_NE(text, nullptr) << n;
    EXPECT_EQ(std::string(text).rfind("p4_pd_corvin_switch_", 0), 0u) << text;
    EXPECT_TRUE(seen.insert(text).second) << "duplicate text " << text;
    EXPECT_EQ(p4_pd_corvin_switch_action_string_to_enum(text), n) << text;
    EXPECT_EQ(text, p4_pd_corvin_switch_action_name_strings[n]);
  }
}

TEST(ActionNames, EnumeratorsAndTextsAgree) {
  EXPECT_STREQ(p4_pd_corvin_switch_action_enum_to_string(p4_pd_corvin_switch_setPhase0), "p4_pd_corvin_switch_setPhase0");
  EXPECT_EQ(p4_pd_corvin_switch_setPhase0, 0);
  EXPECT_EQ(p4_pd_corvin_switch_NoAction, 9);
  EXPECT_EQ(p4_pd_corvin_switch_l2LookupKnownUcast, 92);
  EXPECT_EQ(p4_pd_corvin_switch_setPruneParamsUnused, 374);
  EXPECT_EQ(p4_pd_corvin_switch_action_enum_none, 375);
  EXPECT_STREQ(p4_pd_corvin_switch_action_enum_to_string(374), "p4_pd_corvin_switch_setPruneParamsUnused");
}

TEST(ActionNames, OutOfRangeNumbersGiveNull) {
  EXPECT_EQ(p4_pd_corvin_switch_action_enum_to_string(375), nullptr);
  EXPECT_EQ(p4_pd_corvin_switch_action_enum_to_string(0xFFFFFFFFu), nullptr);
}

TEST(ActionNames, OnlyTheWholeExactTextMatches) {
  EXPECT_EQ(p4_pd_corvin_switch_action_string_to_enum(nullptr), 375);
  EXPECT_EQ(p4_pd_corvin_switch_action_string_to_enum(""), 375);
  EXPECT_EQ(p4_pd_corvin_switch_action_string_to_enum("setPhase0"), 375);
  EXPECT_EQ(p4_pd_corvin_switch_action_string_to_enum("P4_PD_CORVIN_SWITCH_SETPHASE0"), 375);
  EXPECT_EQ(p4_pd_corvin_switch_action_string_to_enum("p4_pd_corvin_switch_setPhase0 "), 375);
}

TEST(ActionNames, ExportedArrayIsWritableAndReadAtEachCall) {
  EXPECT_EQ(sizeof p4_pd_corvin_switch_action_name_strings, kActions * sizeof(void *));
  const char *saved = p4_pd_corvin_switch_action_name_strings[5];
  p4_pd_corvin_switch_action_name_strings[5] = "renamed";
  EXPECT_STREQ(p4_pd_corvin_switch_action_enum_to_string(5), "renamed");
  // The reverse conversion keeps its own texts.
  EXPECT_EQ(p4_pd_corvin_switch_action_string_to_enum("renamed"), 375);
  EXPECT_EQ(p4_pd_corvin_switch_action_string_to_enum("p4_pd_corvin_switch_applyTunnelDip4"), 5);
  p4_pd_corvin_switch_action_name_strings[5] = saved;
}

}  // namespace
