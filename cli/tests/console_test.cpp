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
#include "drv/model_cells.h"
#include "drv/model_telemetry.h"

namespace {

struct Result {
  bool ok;
  std::string out, err;
};

class ConsoleTest : public ::testing::Test {
 protected:
  void SetUp() override {
    drvm_reset();
    cvcli::prepare_model(cvcli::catalog());
    p4_pd_corvin_switch_init();
    drvm_clear_calls();
    console_ = std::make_unique<cvcli::Console>();
  }

  Result run(const std::string &line) {
    Result r;
    r.ok = console_->execute(line, r.out, r.err);
    return r;
  }

  // The whole device as the console shows it: every table's entries and default entry, every
  // profile's members and groups, every value set's entries.
  std::string device() {
    std::string all;
    const cvcli::CatalogDesc &cat = cvcli::catalog();
    auto dump = [&](const std::string &line) {
      Result r = run(line);
      EXPECT_TRUE(r.ok) << line << ": " << r.err;
      all += r.out;
    };
    for (size_t i = 0; i < cat.ntables; ++i) dump(std::string("table_dump ") + cat.tables[i].name);
    for (size_t i = 0; i < cat.nprofiles; ++i) dump(std::string("act_prof_dump ") + cat.profiles[i].name);
    for (size_t i = 0; i < cat.nvalue_sets; ++i) dump(std::string("pvs_dump ") + cat.value_sets[i].name);
    return all;
  }

  // The handle a command printed last on its line ("... with handle 0x5").
  static std::string handle_of(const Result &r) {
    std::string h = r.out.substr(r.out.rfind(' ') + 1);
    if (!h.empty() && h.back() == '\n') h.pop_back();
    return h;
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
      "pipe_mgr_mat_tbl_default_entry_reset", "pipe_mgr_table_get_default_entry_handle",
      "pipe_mgr_adt_ent_add", "pipe_mgr_adt_ent_set", "pipe_mgr_adt_ent_del", "pipe_mgr_sel_grp_add",
      "pipe_mgr_sel_grp_del", "pipe_mgr_sel_grp_mbr_add", "pipe_mgr_sel_grp_mbr_del", "pipe_mgr_mat_ent_direct_stat_set",
      "pipe_mgr_stat_ent_set", "pipe_mgr_meter_ent_set", "pipe_mgr_mat_ent_set_resource", "pipe_stful_ent_set",
      "pipe_stful_table_reset", "pipe_stful_table_reset_range", "pipe_mgr_pvs_entry_add",
      "pipe_mgr_pvs_entry_modify", "pipe_mgr_pvs_entry_delete"};
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
  EXPECT_EQ(complete("table_d"), (V{"table_delete", "table_dump", "table_dump_entry", "table_dump_entry_from_key"}));
  EXPECT_EQ(complete("help show"), (V{"show_actions", "show_resources", "show_tables"}));
  EXPECT_EQ(complete("").size(), 50u);
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
                     "ecmpMemberActionProfile, not to actions of its own: use table_indirect_add(_with_group) and "
                     "table_indirect_set_default(_with_group)");
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

// Every profile through the console: a member of each of its actions (parameters 1), a group
// holding them, an entry of the bound table on each, the default on a member; the dumps show
// exactly that, and the library's own walks agree; then it is all taken down again.
TEST_F(ConsoleTest, EveryProfileBindsEntriesToMembersAndGroups) {
  const cvcli::CatalogDesc &cat = cvcli::catalog();
  for (size_t i = 0; i < cat.nprofiles; ++i) {
    const cvcli::ProfileDesc &p = cat.profiles[i];
    std::string P = p.name;
    std::vector<std::string> members;
    std::string want_members;
    for (int a = 0; a < p.nactions; ++a) {
      const cvcli::ActionDesc *act = p.actions[a].action;
      std::string params, shown = std::string(act->name) + "(";
      for (int k = 0; k < act->nparams; ++k) {
        params += " 1";
        shown += (k ? ", " : "") + std::string(act->params[k].name) + "=" +
                 cvcli::show(cvcli::U128{0, 1}, act->params[k].width, act->params[k].hint);
      }
      Result m = run("act_prof_create_member " + P + " " + act->name + " =>" + params);
      ASSERT_TRUE(m.ok) << m.err;
      members.push_back(handle_of(m));
      want_members += "  member " + members.back() + ": " + shown + ")\n";
    }
    Result g = run("act_prof_create_group " + P + " 64");
    ASSERT_TRUE(g.ok) << g.err;
    std::string group = handle_of(g);
    for (const std::string &m : members) {
      Result add = run("act_prof_add_member_to_group " + P + " " + m + " " + group);
      ASSERT_TRUE(add.ok) << add.err;
    }
    Result dump = run("act_prof_dump " + P);
    ASSERT_TRUE(dump.ok) << dump.err;
    std::string in_group;
    for (const std::string &m : members) in_group += (in_group.empty() ? "" : ", ") + m;
    EXPECT_EQ(dump.out, P + ": " + std::to_string(members.size()) + " members\n" + want_members + P + ": 1 group\n" +
                            "  group " + group + ": members " + in_group + "\n");
    // An entry on the first member and one on the group: key values 1 and 2 in every position.
    std::string t = p.table;
    Result info = run("table_info " + t);
    size_t positions = 0;
    for (size_t at = info.out.find("table_add takes it:\n"); at != std::string::npos;) {
      at = info.out.find('\n', at) + 1;
      if (info.out.compare(at, 2, "  ") != 0) break;
      ++positions;
    }
    auto key = [&](const char *v) {
      std::string k;
      for (size_t n = 0; n < positions; ++n) k += std::string(" ") + v;
      return k;
    };
    std::string e1, e2;
    if (positions) {
      Result a1 = run("table_indirect_add " + t + key("1") + " => " + members[0]);
      Result a2 = run("table_indirect_add_with_group " + t + key("0") + " => " + group);
      ASSERT_TRUE(a1.ok && a2.ok) << a1.err << a2.err;
      e1 = handle_of(a1), e2 = handle_of(a2);
      Result found = run("table_dump_entry_from_key " + t + key("1"));
      EXPECT_EQ(found.out.rfind(t + " " + e1 + (info.out.find("have a priority") != std::string::npos ? " priority 0: " : ": "), 0), 0u)
          << found.out << found.err;
      EXPECT_NE(found.out.find("-> member " + members[0] + "\n"), std::string::npos) << found.out;
      Result other = run("table_dump_entry " + t + " " + e2);
      EXPECT_NE(other.out.find("-> group " + group + "\n"), std::string::npos) << other.out;
    }
    Result d = run("table_indirect_set_default " + t + " " + members[0]);
    ASSERT_TRUE(d.ok) << d.err;
    Result table = run("table_dump " + t);
    EXPECT_NE(table.out.find(" (default): () -> member " + members[0] + "\n"), std::string::npos) << table.out;
    // In use: the driver keeps the member and the group, and says so.
    EXPECT_EQ(run("act_prof_delete_member " + P + " " + members[0]).err,
              "act_prof_delete_member: p4_pd_corvin_switch_" + P + "_del_member returned 11 (BF_IN_USE)");
    EXPECT_TRUE(run("table_clear " + t).ok);
    EXPECT_TRUE(run("table_reset_default " + t).ok);
    EXPECT_TRUE(run("act_prof_remove_member_from_group " + P + " " + members[0] + " " + group).ok);
    EXPECT_TRUE(run("act_prof_delete_group " + P + " " + group).ok);
    for (const std::string &m : members) EXPECT_TRUE(run("act_prof_delete_member " + P + " " + m).ok) << m;
    EXPECT_EQ(run("act_prof_dump " + P).out, P + ": 0 members\n" + P + ": 0 groups\n");
  }
}

// hash_calc packs its fields as the chip does, first field most significant: every hash, against
// the model's algorithm over a stream packed here by hand.
TEST_F(ConsoleTest, EveryHashOfPackedFields) {
  const cvcli::CatalogDesc &cat = cvcli::catalog();
  // 12 bits of 0x64, 9 of 7 and 40 of 0x123456789a: 61 bits, 8 bytes, right-aligned.
  uint64_t v = (uint64_t(0x64) << 49) | (uint64_t(7) << 40) | 0x123456789aull;
  uint8_t packed[8];
  for (int i = 0; i < 8; ++i) packed[i] = uint8_t(v >> (56 - 8 * i));
  for (size_t i = 0; i < cat.nhashes; ++i) {
    const cvcli::HashDesc &h = cat.hashes[i];
    Result r = run(std::string("hash_calc ") + h.name + " 12:100 9:7 40:0x123456789a");
    ASSERT_TRUE(r.ok) << r.err;
    uint8_t want[4];
    ASSERT_EQ(drvm_hash_compute((h.algorithm & 1) ? DRVM_HASH_CRC_32 : DRVM_HASH_CRC_16, 0, packed, 8, want, 4), 0);
    char text[64];
    std::snprintf(text, sizeof text, "%s = 0x%02x%02x%02x%02x\n", h.name, want[0], want[1], want[2], want[3]);
    EXPECT_EQ(r.out, text);
  }
}

// Counters, meters and registers by the console: traffic counted into an entry's direct counter
// reads back; every register keeps a value per pipe; the storm-control meter keeps its rates.
TEST_F(ConsoleTest, ResourcesReadBackWhatWasWritten) {
  ASSERT_TRUE(run("table_add arpCount countArpPkt 5 1 =>").ok);
  Result add = run("table_add arpCount countArpPkt 6 1 =>");
  std::string h = handle_of(add);
  EXPECT_EQ(run("model_traffic arpCount " + h + " 3 192").out, "arpCount entry " + h + ": 3 packets, 192 bytes counted\n");
  EXPECT_EQ(run("counter_read arpCounter " + h).out, "arpCounter[entry " + h + "]: packets=3 bytes=192\n");
  EXPECT_EQ(run("model_traffic arpCount " + h + " 1 64").ok, true);
  EXPECT_EQ(run("counter_read arpCounter " + h).out, "arpCounter[entry " + h + "]: packets=4 bytes=256\n");
  const cvcli::CatalogDesc &cat = cvcli::catalog();
  for (size_t i = 0; i < cat.nregisters; ++i) {
    std::string r = cat.registers[i].name;
    EXPECT_TRUE(run("register_write " + r + " 7 5").ok);
    EXPECT_EQ(run("register_read " + r + " 7").out, r + "[7]: 1 1 1 1 (one value per pipe)\n");
    EXPECT_EQ(run("register_read " + r + " 8").out, r + "[8]: 0 0 0 0 (one value per pipe)\n");
    EXPECT_TRUE(run("register_reset " + r).ok);
    EXPECT_EQ(run("register_read " + r + " 7").out, r + "[7]: 0 0 0 0 (one value per pipe)\n");
  }
  Result miss = run("table_add l2LookupMiss l2LookupBcastHit dmac=ff:ff:ff:ff:ff:ff egrL2Domain=0x1000 => 1");
  ASSERT_TRUE(miss.ok) << miss.err;
  std::string m = handle_of(miss);
  EXPECT_TRUE(run("meter_set_rates stormControlMeter " + m + " 100:10 200:20 color_aware").ok);
  EXPECT_EQ(run("meter_get_rates stormControlMeter " + m).out,
            "stormControlMeter[entry " + m + "]: committed 100:10, peak 200:20 (bytes, color aware)\n");
  for (size_t i = 0; i < cat.nmeters; ++i) {
    if (cat.meters[i].direct) continue;
    std::string name = cat.meters[i].name;
    EXPECT_TRUE(run("meter_set_rates " + name + " 9 5:6 7:8").ok);
    EXPECT_NE(run("meter_get_rates " + name + " 9").out.find("committed 5:6, peak 7:8"), std::string::npos) << name;
  }
}

// A learned record comes back field by field, MAC pairs joined; delivery waits for the learning
// timeout, and digest_show forgets what it showed.
TEST_F(ConsoleTest, LearnedDigestsAreShownOnce) {
  Result l = run("model_learn vtepLearningDigest ingMd_ingL2Domain=7 innerEthHdr_smac=02:00:00:00:00:09 "
                 "outerIpv4Hdr_sip=10.1.2.3 outerIpv6Hdr_sip=2001:db8::5 outerEthHdr_etherType=0x800");
  ASSERT_TRUE(l.ok) << l.err;
  EXPECT_EQ(run("digest_show vtepLearningDigest").out, "vtepLearningDigest: 0 records delivered\n");
  EXPECT_TRUE(run("model_advance_clock 1").ok);
  EXPECT_EQ(run("digest_show vtepLearningDigest").out,
            "vtepLearningDigest: 1 record delivered\n"
            "  ingMd_ingL2Domain=7 innerEthHdr_smac=02:00:00:00:00:09 outerIpv4Hdr_sip=10.1.2.3 "
            "outerIpv6Hdr_sip=2001:db8::5 outerEthHdr_etherType=2048 ingMd_ingressVniHigh=0 ingMd_ingressVniLow=0 "
            "vxlanHdr_vniReserved=0\n");
  EXPECT_EQ(run("digest_show vtepLearningDigest").out, "vtepLearningDigest: 0 records delivered\n");
  EXPECT_EQ(drvm_learn_outstanding_count(0, 0x9000001), 0u);  // acknowledged as it arrived
}

// check keeps what the console changed and finds a bit flipped behind its back, and only that.
TEST_F(ConsoleTest, CheckFindsTheFlippedEntry) {
  EXPECT_EQ(run("check").out, "no placement data kept: the console keeps it of the tables it changes\n");
  std::string a = handle_of(run("table_add l2Lookup l2LookupKnownUcast 00:11:22:33:44:55 1 => 7"));
  std::string b = handle_of(run("table_add l2Lookup l2LookupKnownUcast 00:11:22:33:44:56 1 => 8"));
  ASSERT_TRUE(run("table_add ipv4ShortMaskLpm setEcmp 1 10.0.0.0/8 => 4").ok);
  EXPECT_EQ(run("check").out,
            "l2Lookup: 2 entries agree\nipv4ShortMaskLpm: 1 entry agrees\n"
            "the device agrees with the kept placement data (3 entries)\n");
  ASSERT_TRUE(run("model_flip l2Lookup " + b).ok);
  EXPECT_EQ(run("check").out,
            "l2Lookup " + b + ": aspec action_egrL2Aintf differs 0x8 vs 0x9\nipv4ShortMaskLpm: 1 entry agrees\n"
            "1 of 3 entries differ from the kept placement data\n");
  // The console's own change is kept again: the device and the kept data agree once more.
  ASSERT_TRUE(run("table_modify l2Lookup l2LookupKnownUcast " + b + " => 8").ok);
  EXPECT_EQ(run("check l2Lookup").out, "l2Lookup: 2 entries agree\nthe device agrees with the kept placement data (2 entries)\n");
  (void)a;
}

// Completion of the new commands' first words: profiles, counters, registers, hashes, value sets,
// digests; and key fields for the bound tables' adds.
TEST_F(ConsoleTest, CompletesResourceAndProfileNames) {
  EXPECT_EQ(complete("act_prof_dump ecmp"), std::vector<std::string>{"ecmpMemberActionProfile"});
  EXPECT_EQ(complete("act_prof_create_member ecmpMemberActionProfile set"), std::vector<std::string>{"setEcmpNextHop"});
  EXPECT_EQ(complete("counter_read arpC"), std::vector<std::string>{"arpCounter"});
  EXPECT_EQ(complete("register_read ingS"), std::vector<std::string>{"ingStpCheckData"});
  EXPECT_EQ(complete("hash_calc hashOuterIpv"), (std::vector<std::string>{"hashOuterIpv4Hdr", "hashOuterIpv6Hdr"}));
  EXPECT_EQ(complete("pvs_add vxlan_"), (std::vector<std::string>{"vxlan_ports", "vxlan_ports_32bVni"}));
  EXPECT_EQ(complete("model_learn mac"), std::vector<std::string>{"macLearningDigest"});
  EXPECT_EQ(complete("table_indirect_add ecmpGroup "), (std::vector<std::string>{"=>", "nextHop="}));
  EXPECT_EQ(complete("table_dump_entry_from_key l2Lookup dm"),
            (std::vector<std::string>{"dmac=", "dmacOui=", "dmacStation="}));
}

// $NAME = COMMAND keeps the handle the command printed; $NAME stands for it alone or after NAME=.
// A name never kept, or a command that makes no handle, is refused before anything runs.
TEST_F(ConsoleTest, HandlesKeptByName) {
  Result m = run("$hop = act_prof_create_member ecmpMemberActionProfile setEcmpNextHop => 1 2");
  ASSERT_TRUE(m.ok) << m.err;
  Result g = run("$grp = act_prof_create_group ecmpMemberActionProfile");
  ASSERT_TRUE(run("act_prof_add_member_to_group ecmpMemberActionProfile $hop $grp").ok);
  Result e = run("$e = table_indirect_add_with_group ecmpGroup 9 => $grp");
  ASSERT_TRUE(e.ok) << e.err;
  EXPECT_EQ(run("table_dump_entry ecmpGroup $e").out,
            "ecmpGroup " + handle_of(e) + ": nextHop=0x0009 -> group " + handle_of(g) + "\n");
  ASSERT_TRUE(run("$x = table_add l2Lookup l2LookupKnownUcast 00:11:22:33:44:55 1 => 7").ok);
  EXPECT_TRUE(run("table_modify l2Lookup l2LookupKnownUcast $x => egrL2Aintf=$hop").ok);
  EXPECT_NE(run("table_dump_entry l2Lookup $x").out.find("egrL2Aintf=0x" ), std::string::npos);
  std::string before = device();
  EXPECT_EQ(run("table_delete l2Lookup $y").err, "table_delete: the session has no handle '$y'; it has: $e, $grp, $hop, $x");
  EXPECT_EQ(run("$z = table_clear l2Lookup").err, "table_clear: makes no handle for $z to keep");
  EXPECT_EQ(device(), before);
}

}  // namespace
