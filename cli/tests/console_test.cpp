// The console's engine, driven directly: refusals change nothing on the device, completion, the
// value forms and the descriptions.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "console.h"
#include "drv/model.h"

namespace {

struct Result {
  bool ok;
  std::string out, err;
};

class ConsoleTest : public ::testing::Test {
 protected:
  void SetUp() override {
    drvm_reset();
    p4_pd_corvin_switch_init();
    drvm_clear_calls();
    console_ = std::make_unique<cvcli::Console>();
  }

  Result run(const std::string &line) {
    Result r;
    r.ok = console_->execute(line, r.out, r.err);
    return r;
  }

  // The whole device as the console shows it: every table's entries and default entry.
  std::string device() {
    std::string all;
    const cvcli::CatalogDesc &cat = cvcli::catalog();
    for (size_t i = 0; i < cat.ntables; ++i) {
      Result r = run(std::string("table_dump ") + cat.tables[i].name);
      EXPECT_TRUE(r.ok) << r.err;
      all += r.out;
    }
    return all;
  }

  std::vector<std::string> complete(const std::string &before) { return console_->complete(before); }

  std::unique_ptr<cvcli::Console> console_;
};

std::vector<std::string> lines_of(const std::string &path) {
  std::ifstream f(path);
  std::vector<std::string> out;
  for (std::string line; std::getline(f, line);) out.push_back(line);
  return out;
}

// The driver calls that change a device (the first question for a default entry's handle issues it).
bool changes_device(const char *fn) {
  static const std::set<std::string> changing = {
      "pipe_mgr_mat_ent_add", "pipe_mgr_mat_ent_set_action", "pipe_mgr_mat_ent_set_action_by_match_spec",
      "pipe_mgr_mat_ent_del", "pipe_mgr_mat_ent_del_by_match_spec", "pipe_mgr_mat_default_entry_set",
      "pipe_mgr_mat_tbl_default_entry_reset", "pipe_mgr_table_get_default_entry_handle"};
  return changing.count(fn) != 0;
}

// Every refusal of refusals.cli (the transcript test holds its texts byte for byte): one line that
// names the command, and the device, dumped whole, is as it was; no call that changes a device
// succeeded.
TEST_F(ConsoleTest, EveryRefusalIsOneLineAndChangesNothing) {
  std::vector<std::string> script = lines_of(CV_CLI_TESTS_DIR "/refusals.cli");
  ASSERT_FALSE(script.empty());
  bool refusals = false;
  size_t checked = 0;
  for (const std::string &line : script) {
    if (line.rfind("# Names", 0) == 0) refusals = true;
    if (line.rfind("# The device as it was", 0) == 0) refusals = false;
    if (line.empty() || line[0] == '#') continue;
    if (!refusals) {
      Result r = run(line);
      ASSERT_TRUE(r.ok) << line << ": " << r.err;
      continue;
    }
    std::string before = device();
    drvm_clear_calls();
    Result r = run(line);
    EXPECT_FALSE(r.ok) << line;
    EXPECT_EQ(r.out, "") << line;
    EXPECT_FALSE(r.err.empty()) << line;
    EXPECT_EQ(r.err.find('\n'), std::string::npos) << line << ": " << r.err;
    std::string command = line.substr(0, line.find(' '));
    bool unknown_command = r.err.rfind("the console has no command", 0) == 0;
    EXPECT_TRUE(r.err.rfind(command + ": ", 0) == 0 || unknown_command) << r.err;
    for (size_t i = 0; i < drvm_call_count(); ++i) {
      const drvm_call_t *c = drvm_call(i);
      EXPECT_FALSE(changes_device(c->fn) && c->status == 0) << line << ": " << c->fn << " succeeded";
    }
    EXPECT_EQ(device(), before) << line;
    ++checked;
  }
  EXPECT_GE(checked, 50u);
}

// A refusal of the driver leaves the records of the request unchanged in the device, and the same
// request with a good value then succeeds.
TEST_F(ConsoleTest, DriverRefusalNamesTheStatus) {
  ASSERT_TRUE(run("table_add l2Lookup onMiss 00:00:00:00:00:01 1 =>").ok);
  drvm_fail_next("pipe_mgr_mat_ent_add", 9);
  std::string before = device();
  Result r = run("table_add l2Lookup onMiss 00:00:00:00:00:02 1 =>");
  EXPECT_FALSE(r.ok);
  EXPECT_EQ(r.err, "table_add: p4_pd_corvin_switch_l2Lookup_table_add_with_onMiss returned 9 (BF_NO_SPACE)");
  EXPECT_EQ(device(), before);
  EXPECT_TRUE(run("table_add l2Lookup onMiss 00:00:00:00:00:02 1 =>").ok);
}

TEST_F(ConsoleTest, CompletesCommandsTablesActionsFieldsAndParameters) {
  using V = std::vector<std::string>;
  // A partial table name.
  EXPECT_EQ(complete("table_add l2Look"), (V{"l2Lookup", "l2LookupMiss"}));
  EXPECT_EQ(complete("table_dump ipv4Sh"), (V{"ipv4ShortMaskLpm"}));
  EXPECT_EQ(complete("schema ecmpM"), (V{"ecmpMemberActionProfile"}));
  // A partial field of the key, with its '='; the common stem of a MAC pair and its halves.
  EXPECT_EQ(complete("table_add l2Lookup l2LookupKnownUcast egr"), (V{"egrL2Domain="}));
  EXPECT_EQ(complete("table_add l2Lookup l2LookupKnownUcast dm"), (V{"dmac=", "dmacOui=", "dmacStation="}));
  EXPECT_EQ(complete("table_add trapToCpu trapPacket ether"), (V{"etherType=", "etherTypeMask="}));
  EXPECT_EQ(complete("table_add ipv4ShortMaskLpm setEcmp di"), (V{"dip=", "dipPrefixLength="}));
  // Names given already are not offered again; '=>' closes the key.
  EXPECT_EQ(complete("table_add l2Lookup l2LookupKnownUcast egrL2Domain=1 "),
            (V{"=>", "dmac=", "dmacOui=", "dmacStation="}));
  // Parameters after '=>', and of table_set_default and table_modify.
  EXPECT_EQ(complete("table_add l2Lookup l2LookupKnownUcastTunnel 00:11:22:33:44:55 1 => t"), (V{"tunnelNextHop="}));
  EXPECT_EQ(complete("table_set_default l2ForwardParams l2ForwardParamsSet "), (V{"=>", "port="}));
  EXPECT_EQ(complete("table_modify l2Lookup l2LookupKnownUcast 0x1 => e"), (V{"egrL2Aintf="}));
  EXPECT_EQ(complete("table_modify l2Lookup l2LookupKnownUcast "), V{});  // the handle
  // Actions: those the command takes.
  EXPECT_EQ(complete("table_add l2Lookup l2LookupK"),
            (V{"l2LookupKnownMcast", "l2LookupKnownUcast", "l2LookupKnownUcastTunnel"}));
  EXPECT_EQ(complete("table_set_default l2Lookup "), (V{"onMiss"}));
  // Commands.
  EXPECT_EQ(complete("table_d"), (V{"table_delete", "table_dump", "table_dump_entry"}));
  EXPECT_EQ(complete("help show"), (V{"show_actions", "show_tables"}));
  EXPECT_EQ(complete("").size(), 19u);
  // Nothing for a value, an unknown table, or past a command's arguments.
  EXPECT_EQ(complete("table_add l2Lookup l2LookupKnownUcast dmac=00:1"), V{});
  EXPECT_EQ(complete("table_add l2Lokup "), V{});
  EXPECT_EQ(complete("table_dump l2Lookup "), V{});
}

TEST_F(ConsoleTest, ValueFormsMeanTheSame) {
  // One key in several forms: each later form finds the entry of the first (BF_ALREADY_EXISTS).
  ASSERT_TRUE(run("table_add l2Lookup l2LookupDrop 00:11:22:33:44:55 291 =>").ok);
  for (const char *key : {"00:11:22:33:44:55 0x123", "00-11-22-33-44-55 0b100100011", "0x001122334455 0o443",
                          "dmac=00:11:22:33:44:55 egrL2Domain=0x123", "dmacOui=00:11:22 dmacStation=0x334455 egrL2Domain=291",
                          "egrL2Domain=291 egrMd_dmacOui=0x1122 egrMd_dmacStation=3359829", "00:11:22:33:44:55 0x1_23"}) {
    Result r = run(std::string("table_add l2Lookup l2LookupDrop ") + key + " =>");
    EXPECT_EQ(r.err, "table_add: p4_pd_corvin_switch_l2Lookup_table_add_with_l2LookupDrop returned 4 (BF_ALREADY_EXISTS)")
        << key;
  }
  // A ternary value alone matches exactly; mask and value by their own names.
  ASSERT_TRUE(run("table_add l2SmacCheck setIllegalSmac 00:11:22:00:00:00 => 3").ok);
  EXPECT_FALSE(run("table_add l2SmacCheck setIllegalSmac 00:11:22:00:00:00&&&ff:ff:ff:ff:ff:ff => 3").ok);
  EXPECT_FALSE(run("table_add l2SmacCheck setIllegalSmac smacOui=0x001122 smacOuiMask=0xffffff "
                   "smacStation=0 smacStationMask=0xffffff => priority=3")
                   .ok);
  // A prefix without a length is the whole width; with the length by name.
  ASSERT_TRUE(run("table_add ipv4ShortMaskLpm setEcmp 1 10.0.0.0 => 4").ok);
  EXPECT_FALSE(run("table_add ipv4ShortMaskLpm setEcmp 1 10.0.0.0/32 => 4").ok);
  EXPECT_FALSE(run("table_add ipv4ShortMaskLpm setEcmp vrfId=1 dip=167772160 dipPrefixLength=32 => 4").ok);
  Result dump = run("table_dump ipv4ShortMaskLpm");
  EXPECT_EQ(dump.out,
            "ipv4ShortMaskLpm: 1 entry\n"
            "ipv4ShortMaskLpm 0x3: vrfId=0x001 dip=10.0.0.0/32 -> setEcmp(ecmpGroup=0x00000004)\n"
            "ipv4ShortMaskLpm: no default entry\n");
}

TEST_F(ConsoleTest, Ipv6AddressesAsPeopleWriteThem) {
  ASSERT_TRUE(run("table_add ipv6ShortMaskLpm setEcmp 1 2001:DB8:0:0:1:0:0:1/128 => 4").ok);
  ASSERT_TRUE(run("table_add ipv6ShortMaskLpm setEcmp 2 ::/0 => 4").ok);
  ASSERT_TRUE(run("table_add ipv6ShortMaskLpm setEcmp 3 0x20010db8000000000000000000000001 => 4").ok);
  Result dump = run("table_dump ipv6ShortMaskLpm");
  EXPECT_EQ(dump.out,
            "ipv6ShortMaskLpm: 3 entries\n"
            "ipv6ShortMaskLpm 0x1: vrfId=0x001 dip=2001:db8::1:0:0:1/128 -> setEcmp(ecmpGroup=0x00000004)\n"
            "ipv6ShortMaskLpm 0x2: vrfId=0x002 dip=::/0 -> setEcmp(ecmpGroup=0x00000004)\n"
            "ipv6ShortMaskLpm 0x3: vrfId=0x003 dip=2001:db8::1/128 -> setEcmp(ecmpGroup=0x00000004)\n"
            "ipv6ShortMaskLpm: no default entry\n");
  EXPECT_EQ(cvcli::show_ipv6(cvcli::U128{0x0001000000000001ull, 0x0000000000000001ull}), "1:0:0:1::1");
  EXPECT_EQ(cvcli::show_ipv6(cvcli::U128{0, 1}), "::1");
  EXPECT_EQ(cvcli::show_ipv6(cvcli::U128{0x20010db800000000ull, 0}), "2001:db8::");
}

TEST_F(ConsoleTest, NearestNamesAsTheClientGivesThem) {
  std::vector<std::string> tables;
  const cvcli::CatalogDesc &cat = cvcli::catalog();
  for (size_t i = 0; i < cat.ntables; ++i) tables.push_back(cat.tables[i].name);
  using V = std::vector<std::string>;
  EXPECT_EQ(cvcli::nearest("l2Lokup", tables), (V{"l2Lookup", "l2LookupMiss", "l2DomainLookup", "l2LearningLookup"}));
  EXPECT_EQ(cvcli::nearest("ipv4Lpm", tables), (V{"ipv4ShortMaskLpm"}));
  EXPECT_EQ(cvcli::nearest("acl", tables), (V{"tcamRaclId", "tcamRaclBank1", "tcamRaclBank2", "haloPaclCrlId"}));
  EXPECT_EQ(cvcli::nearest("x", tables), (V{"l2XRemap", "nextHop0", "nextHop1", "nextHop2"}));
}

TEST_F(ConsoleTest, ListsEveryTableAndAction) {
  Result tables = run("show_tables");
  ASSERT_TRUE(tables.ok);
  EXPECT_EQ(size_t(std::count(tables.out.begin(), tables.out.end(), '\n')), cvcli::catalog().ntables);
  EXPECT_NE(tables.out.find("\nl2Lookup                    exact    0x0100002c\n"), std::string::npos) << tables.out;
  EXPECT_NE(tables.out.find("ecmpGroup                   exact    0x21010028  profile ecmpMemberActionProfile\n"),
            std::string::npos);
  Result actions = run("show_actions");
  ASSERT_TRUE(actions.ok);
  EXPECT_EQ(size_t(std::count(actions.out.begin(), actions.out.end(), '\n')), cvcli::catalog().nactions);
  EXPECT_NE(actions.out.find("\nl2LookupKnownUcastTunnel(egrL2Aintf:21, tunnelNextHop:9)\n"), std::string::npos);
  // Every command has its help with an example.
  for (const std::string &name : console_->command_names()) {
    Result h = run("help " + name);
    EXPECT_TRUE(h.ok) << name;
    EXPECT_NE(h.out.find("  Example: "), std::string::npos) << name;
  }
}

// A table bound to a profile: its entries and default entry, bound through the library, read back
// as the member or group they bind to; deleting and clearing them works as for any table.
TEST_F(ConsoleTest, EntriesBoundToMembersAndGroups) {
  p4_pd_dev_target_t tgt{0, PD_DEV_PIPE_ALL};
  p4_pd_corvin_switch_setEcmpNextHop_action_spec_t hop{3, 9};
  p4_pd_mbr_hdl_t mbr = 0;
  p4_pd_grp_hdl_t grp = 0;
  p4_pd_entry_hdl_t e1 = 0, e2 = 0, dflt = 0;
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_add_member_with_setEcmpNextHop(0, tgt, &hop, &mbr), 0u);
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_create_group(0, tgt, 4, &grp), 0u);
  ASSERT_EQ(p4_pd_corvin_switch_ecmpMemberActionProfile_add_member_to_group(0, 0, grp, mbr), 0u);
  p4_pd_corvin_switch_ecmpGroup_match_spec_t k1{5}, k2{6};
  ASSERT_EQ(p4_pd_corvin_switch_ecmpGroup_add_entry(0, tgt, &k1, mbr, &e1), 0u);
  ASSERT_EQ(p4_pd_corvin_switch_ecmpGroup_add_entry_with_selector(0, tgt, &k2, grp, &e2), 0u);
  ASSERT_EQ(p4_pd_corvin_switch_ecmpGroup_set_default_entry(0, tgt, mbr, &dflt), 0u);
  Result dump = run("table_dump ecmpGroup");
  ASSERT_TRUE(dump.ok) << dump.err;
  char want[512];
  std::snprintf(want, sizeof want,
                "ecmpGroup: 2 entries\n"
                "ecmpGroup 0x%x: nextHop=0x0005 -> member 0x%x\n"
                "ecmpGroup 0x%x: nextHop=0x0006 -> group 0x%x\n"
                "ecmpGroup 0x%x (default): () -> member 0x%x\n",
                e1, mbr, e2, grp, dflt, mbr);
  EXPECT_EQ(dump.out, want);
  Result add = run("table_add ecmpGroup setEcmpNextHop 7 => 3 9");
  EXPECT_EQ(add.err, "table_add: table ecmpGroup binds its entries to members and groups of action profile "
                     "ecmpMemberActionProfile, not to actions of its own; this console does not bind entries yet");
  EXPECT_TRUE(run("table_delete ecmpGroup " + std::to_string(e1)).ok);
  EXPECT_EQ(run("table_clear ecmpGroup").out, "ecmpGroup: 1 entry deleted\n");
  EXPECT_EQ(run("table_num_entries ecmpGroup").out, "0\n");
}

// Every entry action of every table through the console: added with 1 in every key position and
// every parameter (by name, MAC halves included), read back with its parameters, modified, deleted; every default action set,
// read back and reset. Each descriptor and thunk is used once.
TEST_F(ConsoleTest, EveryEntryAndDefaultActionRoundTrips) {
  const cvcli::CatalogDesc &cat = cvcli::catalog();
  size_t adds = 0, defaults = 0;
  for (size_t i = 0; i < cat.ntables; ++i) {
    const cvcli::TableDesc &t = cat.tables[i];
    std::string positions;
    Result info = run(std::string("table_info ") + t.name);
    ASSERT_TRUE(info.ok);
    // One "1" per key position: the lines of table_info's key list.
    size_t from = info.out.find("table_add takes it:\n");
    if (from != std::string::npos) {
      size_t end = info.out.find('\n', from);
      while (end + 1 < info.out.size() && info.out.compare(end + 1, 2, "  ") == 0) {
        positions += " 1";
        end = info.out.find('\n', end + 1);
      }
    }
    for (int a = 0; a < t.nactions; ++a) {
      const cvcli::TableActionDesc &ta = t.actions[a];
      const cvcli::ActionDesc *act = ta.action;
      std::string params, shown = std::string(act->name) + "(";
      for (int p = 0; p < act->nparams; ++p) {
        params += " " + std::string(act->params[p].name) + "=1";
        shown += (p ? ", " : "") + std::string(act->params[p].name) + "=" +
                 cvcli::show(cvcli::U128{0, 1}, act->params[p].width, act->params[p].hint);
      }
      shown += ")";
      if (ta.add) {
        Result add = run(std::string("table_add ") + t.name + " " + act->name + positions + " =>" + params);
        ASSERT_TRUE(add.ok) << add.err;
        std::string handle = add.out.substr(add.out.rfind(' ') + 1);
        handle.pop_back();
        Result entry = run(std::string("table_dump_entry ") + t.name + " " + handle);
        ASSERT_TRUE(entry.ok) << entry.err;
        EXPECT_NE(entry.out.find("-> " + shown + "\n"), std::string::npos) << entry.out << " wants " << shown;
        Result mod = run(std::string("table_modify ") + t.name + " " + act->name + " " + handle + " =>" + params);
        EXPECT_TRUE(mod.ok) << mod.err;
        Result del = run(std::string("table_delete ") + t.name + " " + handle);
        EXPECT_TRUE(del.ok) << del.err;
        ++adds;
      }
      if (ta.set_default) {
        Result set = run(std::string("table_set_default ") + t.name + " " + act->name + params);
        ASSERT_TRUE(set.ok) << set.err;
        Result dump = run(std::string("table_dump ") + t.name);
        EXPECT_NE(dump.out.find(" (default): () -> " + shown + "\n"), std::string::npos) << dump.out;
        EXPECT_TRUE(run(std::string("table_reset_default ") + t.name).ok);
        ++defaults;
      }
    }
    EXPECT_EQ(run(std::string("table_num_entries ") + t.name).out, "0\n") << t.name;
  }
  EXPECT_EQ(adds, 589u);
  EXPECT_GT(defaults, 200u);
}

// Every table can be described, dumped empty, and its entry count read.
TEST_F(ConsoleTest, EveryTableDescribes) {
  const cvcli::CatalogDesc &cat = cvcli::catalog();
  for (size_t i = 0; i < cat.ntables; ++i) {
    std::string name = cat.tables[i].name;
    for (const char *cmd : {"table_info ", "table_show_actions ", "table_dump ", "table_num_entries ", "schema "}) {
      Result r = run(cmd + name);
      EXPECT_TRUE(r.ok) << cmd << name << ": " << r.err;
    }
  }
}

}  // namespace
