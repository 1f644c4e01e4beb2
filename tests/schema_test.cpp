// Schema texts against references written from the catalog and the grammar alone
// (tests/gen_schema_cases.py, which also evaluates every reference as a Python literal): every key,
// action, table and profile, byte for byte, with the lengths the table texts return.
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "schema_cases.h"

namespace {

TEST(Schema, EveryKeyAndActionHasItsStaticText) {
  ASSERT_EQ(kKeySchemaCount, 210u);
  ASSERT_EQ(kActionSchemaCount, 375u);
  for (size_t i = 0; i < kKeySchemaCount; ++i) {
    const char *text = kKeySchemas[i].text();
    ASSERT_STREQ(text, kKeySchemas[i].want) << kKeySchemas[i].name;
    EXPECT_EQ(kKeySchemas[i].text(), text) << "made once";
  }
  for (size_t i = 0; i < kActionSchemaCount; ++i) {
    const char *text = kActionSchemas[i].text();
    ASSERT_STREQ(text, kActionSchemas[i].want) << kActionSchemas[i].name;
    EXPECT_EQ(kActionSchemas[i].text(), text) << "made once";
  }
}

// Each text is written whole and NUL-terminated, nothing past it, and its length returned.
TEST(Schema, EveryTableAndProfileWritesItsTextAndLength) {
  ASSERT_EQ(kTableSchemaCount, 232u);
  size_t longest = 0;
  std::string longest_name;
  for (size_t i = 0; i < kTableSchemaCount; ++i) {
    const BufferTextCase &k = kTableSchemas[i];
    size_t want = std::strlen(k.want);
    std::vector<char> buf(want + 16, '\x7f');
    int n = k.write(buf.data());
    ASSERT_EQ(n, int(want)) << k.name;
    ASSERT_EQ(std::string(buf.data(), want), k.want) << k.name;
    ASSERT_EQ(buf[want], '\0') << k.name;
    ASSERT_EQ(buf[want + 1], '\x7f') << k.name;
    if (want > longest) longest = want, longest_name = k.name;
  }
  // A buffer of the longest text's length and one holds any table's.
  EXPECT_EQ(longest_name, "finalDropControl");
  EXPECT_EQ(longest, 3023u);
}

TEST(Schema, TheWorkedExamples) {
  char buf[4096];
  EXPECT_EQ(p4_pd_corvin_switch_l2Lookup_schema(buf), 466);
  EXPECT_STREQ(p4_pd_corvin_switch_onMiss_schema(), "( ('onMiss'),())");
  EXPECT_STREQ(p4_pd_corvin_switch_l2LookupKnownUcastTunnel_schema(),
               "( ('l2LookupKnownUcastTunnel'),(('egrL2Aintf',None,21,None),('tunnelNextHop',None,9,None),))");
  EXPECT_EQ(p4_pd_corvin_switch_vxlanArp_schema(buf), 63);
  EXPECT_STREQ(buf, "( ('vxlanArp','mat',(False,)),(),(( ('cancelVxlanDecap'),()),))");
  p4_pd_corvin_switch_lagGroup_schema(buf);
  EXPECT_STREQ(buf,
               "( ('lagGroup','mat',(True,)),(( 'egrL2AintfUnresolved','egrMd_egrL2AintfUnresolved',21,0x1fffff,None,"
               "None,None),( 'egrL2AintfUnresolvedMask','egrMd_egrL2AintfUnresolved_mask',21,0x1fffff,None,None,None),)"
               ",( ('setMbrHdl',(('mbrHdl',None,32,None),)),( 'setGrpHdl', ( ( 'grpHdl', None, 32, None ), ) ) ))");
  p4_pd_corvin_switch_ecmpMemberActionProfile_schema(buf);
  EXPECT_STREQ(buf,
               "(( ('NoAction'),()),( ('setEcmpNextHop'),(('nextHopTable',None,8,None),('nextHop',None,32,None),)),)");
}

}  // namespace
