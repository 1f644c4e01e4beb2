// The console's commands: one engine over the generated descriptors (cli_catalog.h).
//
// A request is checked and turned into records before the first call into the library, by the
// rules of the Python client (python/corvin_switch_pd/requests.py): a refused request leaves the
// device as it was. Entries are read back through the library's own texts: walks by the handle
// dispatchers, values by p4_pd_corvin_switch_entry_value, schemas by p4_pd_corvin_switch_cli_schema.
#include "console.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>

#include "console_util.h"
#include "drv/model.h"

namespace cvcli {

namespace {

// ---- The value text: a Python literal of tuples, numbers, names and True ----

struct Node {
  enum Kind { tuple, number, text, word } kind = tuple;
  std::vector<Node> items;
  U128 value;
  bool negative = false;
  std::string s;
};

class LiteralParser {
 public:
  explicit LiteralParser(std::string_view t) : t_(t) {}
  bool parse(Node *out) {
    if (!node(out)) return false;
    blanks();
    return i_ == t_.size();
  }

 private:
  void blanks() {
    while (i_ < t_.size() && t_[i_] == ' ') ++i_;
  }
  bool node(Node *n) {
    blanks();
    if (i_ >= t_.size()) return false;
    char ch = t_[i_];
    if (ch == '(') {
      ++i_;
      n->kind = Node::tuple;
      while (true) {
        blanks();
        if (i_ < t_.size() && t_[i_] == ')') {
          ++i_;
          return true;
        }
        n->items.emplace_back();
        if (!node(&n->items.back())) return false;
        blanks();
        if (i_ < t_.size() && t_[i_] == ',') {
          ++i_;
        } else if (i_ < t_.size() && t_[i_] == ')') {
          // A bracketed item without a comma is the item itself: ('name') is a name.
          ++i_;
          if (n->items.size() == 1) {
            Node inner = n->items[0];
            *n = inner;
          }
          return true;
        } else {
          return false;
        }
      }
    }
    if (ch == '\'') {
      size_t end = t_.find('\'', i_ + 1);
      if (end == std::string_view::npos) return false;
      n->kind = Node::text;
      n->s = str(t_.substr(i_ + 1, end - i_ - 1));
      i_ = end + 1;
      return true;
    }
    if (ch == '-' || (ch >= '0' && ch <= '9')) {
      n->kind = Node::number;
      if (ch == '-') n->negative = true, ++i_;
      unsigned base = 10;
      if (t_.substr(i_, 2) == "0x" || t_.substr(i_, 2) == "0X") base = 16, i_ += 2;
      size_t start = i_;
      while (i_ < t_.size() && (std::isdigit(static_cast<unsigned char>(t_[i_])) ||
                                (base == 16 && std::isxdigit(static_cast<unsigned char>(t_[i_])))))
        ++i_;
      std::string_view digits = t_.substr(start, i_ - start);
      if (digits.empty()) return false;
      U128 v;
      for (char c : digits) {
        unsigned d = c <= '9' ? unsigned(c - '0') : unsigned((c | 0x20) - 'a' + 10);
        if (base == 16) {
          v.hi = v.hi << 4 | v.lo >> 60;
          v.lo = v.lo << 4 | d;
        } else {
          v.lo = v.lo * 10 + d;
        }
      }
      n->value = v;
      return true;
    }
    size_t start = i_;
    while (i_ < t_.size() && ((t_[i_] >= 'A' && t_[i_] <= 'Z') || (t_[i_] >= 'a' && t_[i_] <= 'z'))) ++i_;
    if (i_ == start) return false;
    n->kind = Node::word;
    n->s = str(t_.substr(start, i_ - start));
    return true;
  }

  std::string_view t_;
  size_t i_ = 0;
};


}  // namespace

std::string status_name(uint32_t status) {
  switch (status) {
    case 0: return "BF_SUCCESS";
    case 2: return "BF_NO_SYS_RESOURCES";
    case 3: return "BF_INVALID_ARG";
    case 4: return "BF_ALREADY_EXISTS";
    case 6: return "BF_OBJECT_NOT_FOUND";
    case 7: return "BF_KEY_NOT_FOUND";
    case 9: return "BF_NO_SPACE";
    case 10: return "BF_END_OF_WALK";
    case 11: return "BF_IN_USE";
    case 12: return "BF_TABLE_MISMATCH";
    case 13: return "BF_INDEX_OUT_OF_RANGE";
    case 15: return "BF_UNEXPECTED";
    case 17: return "BF_NOT_SUPPORTED";
    case 99: return "BF_INJECTED_FAULT";
    default: return "unknown status";
  }
}

// ---- Commands ----

struct Console::Command {
  const char *name;
  const char *usage;    // the arguments
  int min_args, max_args;  // max -1: any number
  const char *brief;
  const char *text;
  const char *example;
  void (Console::*run)(const Args &, std::string &);
};

static const char *const kValueForms =
    "Values: decimal, 0x hex, 0b binary; a MAC address (00:11:22:33:44:55) for an Oui/Station pair,\n"
    "a MAC half (00:11:22) for one 24-bit half; dotted IPv4 for a 32-bit field; IPv6 for a 128-bit\n"
    "field; VALUE&&&MASK for a ternary field; ADDRESS/LEN for an lpm field. Key fields and parameters\n"
    "go by position (table_info shows the order), or as NAME=VALUE after the positional ones.\n";

#define CMD(name, usage, lo, hi, brief, text, example) \
  Console::Command { #name, usage, lo, hi, brief, text, example, &Console::name }

const std::vector<Console::Command> &Console::commands() {
  static const std::vector<Console::Command> list = {
      CMD(show_tables, "", 0, 0, "List the tables.",
          "One line per table: its name, match kind and handle, and the action profile whose members and\n"
          "groups its entries bind to, if any.",
          "show_tables"),
      CMD(show_actions, "", 0, 0, "List the actions with their parameters.",
          "One line per action of the program, with each parameter's name and width in bits.",
          "show_actions"),
      CMD(table_info, "TABLE", 1, 1, "Show a table's key, in table_add's order, and its actions.",
          "The key fields in the order table_add takes them (a MAC pair is one position), each with its\n"
          "match kind, width and form, and the table's entry and default actions.",
          "table_info l2Lookup"),
      CMD(table_show_actions, "TABLE", 1, 1, "List a table's actions.",
          "Each action of the table with its parameters, and whether it is an entry action, a default\n"
          "action or both.",
          "table_show_actions l2Lookup"),
      CMD(table_add, "TABLE ACTION KEY... => PARAM... [PRIORITY]", 2, -1, "Add an entry; prints its handle.",
          "Key values, then '=>', then the action's parameters, each by position or as NAME=VALUE after\n"
          "the positional ones. A ternary field left out matches anything, one without &&&MASK matches\n"
          "exactly; an lpm field without /LEN is a whole-width prefix. A table with ternary fields takes\n"
          "the entry's priority after the parameters (0 when left out).",
          "table_add l2Lookup l2LookupKnownUcast 00:11:22:33:44:55 0x123 => 7"),
      CMD(table_modify, "TABLE ACTION HANDLE [=>] PARAM...", 3, -1, "Give an entry another action.",
          "The entry, by handle, takes the action with these parameters; its key stays.",
          "table_modify l2Lookup l2LookupKnownUcast 0x1 => 9"),
      CMD(table_delete, "TABLE HANDLE", 2, 2, "Delete an entry by handle.", "The entry of that handle goes.",
          "table_delete l2Lookup 0x1"),
      CMD(table_set_default, "TABLE ACTION [=>] PARAM...", 2, -1, "Set the default entry.",
          "The action taken on a miss, with its parameters; prints the default entry's handle.",
          "table_set_default l2ForwardParams l2ForwardParamsSet => 0x10"),
      CMD(table_reset_default, "TABLE", 1, 1, "Reset the default entry.",
          "The default entry goes back to the program's initial one (on the driver model: unset).",
          "table_reset_default l2ForwardParams"),
      CMD(table_num_entries, "TABLE", 1, 1, "Print the number of entries.",
          "The number of entries of the table, the default entry not counted.", "table_num_entries l2Lookup"),
      CMD(table_dump, "TABLE", 1, 1, "Print every entry and the default entry.",
          "A line per entry in handle order, with field names and addresses in their forms, then the\n"
          "default entry.",
          "table_dump l2Lookup"),
      CMD(table_dump_entry, "TABLE HANDLE", 2, 2, "Print one entry.",
          "The entry of that handle, as table_dump shows it.", "table_dump_entry l2Lookup 0x1"),
      CMD(table_dump_entry_from_key, "TABLE KEY... [PRIORITY]", 1, -1, "Print the entry of a key.",
          "The entry whose key is this one, in table_add's forms (and, for a table with ternary fields,\n"
          "the priority it was added with), as table_dump shows it.",
          "table_dump_entry_from_key l2Lookup 00:11:22:33:44:55 0x123"),
      CMD(table_clear, "TABLE", 1, 1, "Delete every entry.", "Every entry of the table goes; the default entry stays.",
          "table_clear l2Lookup"),
      CMD(table_indirect_add, "TABLE KEY... => MEMBER [PRIORITY]", 3, -1, "Add an entry bound to a member.",
          "For a table bound to an action profile: the entry's key, then '=>' and the member it takes\n"
          "its action from (act_prof_create_member); prints the entry's handle.",
          "table_indirect_add ecmpGroup 0x10 => 0x1"),
      CMD(table_indirect_add_with_group, "TABLE KEY... => GROUP [PRIORITY]", 3, -1,
          "Add an entry bound to a selector group.",
          "For a table bound to an action profile: the entry's key, then '=>' and the group whose\n"
          "members share its traffic (act_prof_create_group); prints the entry's handle.",
          "table_indirect_add_with_group ecmpGroup 0x11 => 0x1"),
      CMD(table_indirect_set_default, "TABLE MEMBER", 2, 2, "Bind the default entry to a member.",
          "For a table bound to an action profile: a miss takes the member's action.",
          "table_indirect_set_default ecmpGroup 0x1"),
      CMD(table_indirect_set_default_with_group, "TABLE GROUP", 2, 2, "Bind the default entry to a group.",
          "For a table bound to an action profile: a miss is shared by the group's members.",
          "table_indirect_set_default_with_group ecmpGroup 0x1"),
      CMD(act_prof_info, "PROFILE", 1, 1, "Show an action profile.",
          "Its handles, the table bound to it, its member actions and how many members and groups it has.",
          "act_prof_info ecmpMemberActionProfile"),
      CMD(act_prof_create_member, "PROFILE ACTION [=>] PARAM...", 2, -1, "Create a member; prints its handle.",
          "A member is an action with its parameters, which entries of the bound table and groups share.",
          "act_prof_create_member ecmpMemberActionProfile setEcmpNextHop => 0x21"),
      CMD(act_prof_modify_member, "PROFILE ACTION MEMBER [=>] PARAM...", 3, -1, "Give a member new parameters.",
          "The member keeps its action; every entry and group that uses it changes with it.",
          "act_prof_modify_member ecmpMemberActionProfile setEcmpNextHop 0x1 => 0x22"),
      CMD(act_prof_delete_member, "PROFILE MEMBER", 2, 2, "Delete a member.",
          "The driver refuses while an entry or group uses it (BF_IN_USE).",
          "act_prof_delete_member ecmpMemberActionProfile 0x1"),
      CMD(act_prof_create_group, "PROFILE [MAX_SIZE]", 1, 2, "Create a selector group; prints its handle.",
          "A group of at most MAX_SIZE members (128 when left out), among which the hash picks.",
          "act_prof_create_group ecmpMemberActionProfile 16"),
      CMD(act_prof_delete_group, "PROFILE GROUP", 2, 2, "Delete a selector group.",
          "The driver refuses while an entry uses it.", "act_prof_delete_group ecmpMemberActionProfile 0x1"),
      CMD(act_prof_add_member_to_group, "PROFILE MEMBER GROUP", 3, 3, "Add a member to a group.",
          "The member joins the group's members.", "act_prof_add_member_to_group ecmpMemberActionProfile 0x1 0x1"),
      CMD(act_prof_remove_member_from_group, "PROFILE MEMBER GROUP", 3, 3, "Remove a member from a group.",
          "The member leaves the group; it stays a member of the profile.",
          "act_prof_remove_member_from_group ecmpMemberActionProfile 0x1 0x1"),
      CMD(act_prof_dump, "PROFILE", 1, 1, "Print a profile's members and groups.",
          "Each member with its action and parameters, then each group with its members.",
          "act_prof_dump ecmpMemberActionProfile"),
      CMD(show_resources, "", 0, 0, "List counters, meters, registers, digests, value sets and hashes.",
          "Each resource of the program with its handle and how it is addressed: by an entry of its table\n"
          "(direct) or by index.",
          "show_resources"),
      CMD(counter_read, "COUNTER ENTRY|INDEX", 2, 2, "Read a counter cell from the hardware.",
          "A direct counter's cell is named by an entry handle of its table, an indirect one's by index.",
          "counter_read arpCount 0x1"),
      CMD(counter_write, "COUNTER ENTRY|INDEX PACKETS BYTES", 4, 4, "Write a counter cell.",
          "Sets the cell's packets and bytes (0 0 clears it).", "counter_write arpCount 0x1 0 0"),
      CMD(meter_set_rates, "METER ENTRY|INDEX CIR:CBURST PIR:PBURST [color_aware]", 4, 5, "Set a meter cell.",
          "The committed and peak rates and bursts, in the meter's units (show_resources); colour\n"
          "unaware unless told otherwise.",
          "meter_set_rates stormControlMeter 0x1 1000:64 2000:128"),
      CMD(meter_get_rates, "METER ENTRY|INDEX", 2, 2, "Read a meter cell.", "The rates and bursts as last set.",
          "meter_get_rates stormControlMeter 0x1"),
      CMD(register_read, "REGISTER INDEX", 2, 2, "Read a register index.",
          "The hardware's values of the index, one per pipe.", "register_read ingStpCheckData 10"),
      CMD(register_write, "REGISTER INDEX VALUE", 3, 3, "Write a register index.",
          "Every pipe's value of the index; these one-bit registers take any non-zero value as 1.",
          "register_write ingStpCheckData 10 1"),
      CMD(register_reset, "REGISTER", 1, 1, "Reset every index of a register.", "Every cell goes back to 0.",
          "register_reset ingStpCheckData"),
      CMD(hash_calc, "HASH WIDTH:VALUE...", 1, -1, "Compute a dynamic hash of field values.",
          "The hash the chip computes of these fields, first field most significant, each given with its\n"
          "width in bits, by the hash's algorithm and seed.",
          "hash_calc hashOuterIpv4Hdr 32:10.0.0.1 32:10.0.0.2 8:6"),
      CMD(pvs_add, "VALUE_SET VALUE[&&&MASK] [ingress|egress]", 2, 3, "Add a parser value set entry.",
          "The parser takes the value (under the mask) as one of the set's; prints the entry's handle.",
          "pvs_add vxlan_ports 4789"),
      CMD(pvs_dump, "VALUE_SET", 1, 1, "Print a parser value set's entries.", "Each entry with its handle and mask.",
          "pvs_dump vxlan_ports"),
      CMD(digest_show, "[DIGEST]", 0, 1, "Print the learning digests delivered.",
          "The records delivered since the last digest_show, field by field; the console acknowledges\n"
          "each batch as it arrives.",
          "digest_show macLearningDigest"),
      CMD(schema, "TABLE|PROFILE", 1, 1, "Print a table's or profile's schema text.",
          "The library's schema text: the Python literal a client evaluates to learn the key fields,\n"
          "their widths and forms, and the actions.",
          "schema l2Lookup"),
      CMD(label, "TABLE HANDLE", 2, 2, "Print an entry's counter label.",
          "The text the library gives the counted entry of a table with a direct counter.", "label arpCount 0x1"),
      CMD(check, "[TABLE]", 0, 1, "Check the device against the kept placement data.",
          "The console keeps the placement data of each table it changes; check compares every kept\n"
          "entry with the device and prints what differs (every table kept, or one).",
          "check l2Lookup"),
      CMD(model_traffic, "TABLE ENTRY PACKETS BYTES", 4, 4, "Count traffic in an entry's direct counter.",
          "The model's data plane hits the entry: its counter grows by these packets and bytes.",
          "model_traffic arpCount 0x1 10 1500"),
      CMD(model_advance_clock, "MILLISECONDS", 1, 1, "Move the model's clock on.",
          "Entries age and learning digests due are delivered.", "model_advance_clock 5"),
      CMD(model_learn, "DIGEST FIELD=VALUE...", 1, -1, "Learn a digest record in the model.",
          "The data plane sends a record of the digest (fields left out are 0; a MAC address for an\n"
          "...Oui/...Station pair by its stem); it is delivered with its batch.",
          "model_learn macLearningDigest ingMd_smac=00:11:22:33:44:55 ingMd_ingL2Domain=10 ingMd_ingL2Aintf=3"),
      CMD(model_flip, "TABLE ENTRY", 2, 2, "Flip a bit of an entry in the device.",
          "A soft error of the chip: the last bit of the entry's action data flips, without the library;\n"
          "check finds it.",
          "model_flip l2Lookup 0x1"),
      CMD(model_calls, "", 0, 0, "Print the driver calls since the last model_calls.",
          "The calls the driver model recorded since the console started or the last model_calls: the\n"
          "function, its handles, key and action images, and the status; then forgets them.",
          "model_calls"),
      CMD(help, "[COMMAND]", 0, 1, "List the commands, or show one.", "With a command: its arguments, what it does and an example.",
          "help table_add"),
      CMD(quit, "", 0, 0, "Leave the console (also exit, or end of input).", "Ends the session.", "quit"),
  };
  return list;
}

// ---- Set-up: the names of every table, action and profile ----

Console::Console(const Options &options) : options_(options), cat_(catalog()) {
  for (const Command &c : commands()) commands_[c.name] = &c;
  static const Command exit_command{"exit", "", 0, 0, "Leave the console.", "Ends the session.", "exit",
                                    &Console::quit};
  commands_["exit"] = &exit_command;

  action_info_.resize(cat_.nactions);
  for (size_t i = 0; i < cat_.nactions; ++i) {
    const ActionDesc *a = &cat_.actions[i];
    action_names_[a->name] = a;
    ActionInfo &ai = action_info_[a->number];
    ai.d = a;
    std::vector<const char *> names, hints;
    std::vector<uint16_t> widths;
    for (int p = 0; p < a->nparams; ++p) {
      names.push_back(a->params[p].name);
      hints.push_back(a->params[p].hint);
      widths.push_back(a->params[p].width);
    }
    positions_of(&ai.positions, a->nparams, names.data(), hints.data(), widths.data());
    // Names: each parameter, with or without "action_"; a MAC pair by its stem unless a parameter
    // has that name.
    for (int p = 0; p < a->nparams; ++p) {
      std::string_view n = a->params[p].name;
      ai.names[n] = {false, p};
      arena_.push_back("action_" + str(n));
      ai.names[arena_.back()] = {false, p};
      ai.name_list.push_back(str(n));
      ai.completions.push_back(str(n) + "=");
    }
    for (size_t k = 0; k < ai.positions.size(); ++k) {
      const Position &pos = ai.positions[k];
      if (pos.station < 0 || ai.names.count(pos.name)) continue;
      ai.names[pos.name] = {true, int(k)};
      ai.name_list.push_back(str(pos.name));
      ai.completions.push_back(str(pos.name) + "=");
    }
  }

  tables_.resize(cat_.ntables);
  for (size_t i = 0; i < cat_.ntables; ++i) {
    const TableDesc *d = &cat_.tables[i];
    TableInfo &t = tables_[i];
    t.d = d;
    table_list_.push_back(d->name);
    std::vector<const char *> names, hints;
    std::vector<uint16_t> widths;
    for (int f = 0; f < d->nkey; ++f) {
      names.push_back(d->key[f].name);
      hints.push_back(d->key[f].hint);
      widths.push_back(d->key[f].width);
    }
    positions_of(&t.positions, d->nkey, names.data(), hints.data(), widths.data());
    // Columns in schema order: each field's value, then its mask or prefix length.
    for (int f = 0; f < d->nkey; ++f) {
      const FieldDesc &fd = d->key[f];
      t.value_column.push_back(int(t.columns.size()));
      t.columns.push_back({fd.name, f, Role::value});
      if (fd.match == Match::ternary) {
        arena_.push_back(str(fd.name) + "Mask");
        t.columns.push_back({arena_.back(), f, Role::mask});
      } else if (fd.match == Match::lpm) {
        arena_.push_back(str(fd.name) + "PrefixLength");
        t.columns.push_back({arena_.back(), f, Role::prefix});
      }
    }
    // Names: MAC pairs by their stems, then every column by its short name and its record name
    // (a column wins over a stem of the same name).
    for (size_t k = 0; k < t.positions.size(); ++k)
      if (t.positions[k].station >= 0) t.names[t.positions[k].name] = {true, int(k)};
    for (size_t c = 0; c < t.columns.size(); ++c) {
      const Column &col = t.columns[c];
      t.names[col.name] = {false, int(c)};
      const FieldDesc &fd = d->key[col.field];
      std::string member = col.role == Role::value  ? str(fd.member)
                           : col.role == Role::mask ? str(fd.member) + "_mask"
                                                    : str(fd.member) + "_prefix_length";
      arena_.push_back(member);
      t.names[arena_.back()] = {false, int(c)};
    }
    for (const Column &col : t.columns) t.name_list.push_back(str(col.name));
    for (const Position &p : t.positions) {
      if (p.station >= 0) t.name_list.push_back(str(p.name));
    }
    for (const std::string &n : t.name_list) t.completions.push_back(n + "=");
    std::sort(t.completions.begin(), t.completions.end());
    for (int a = 0; a < d->nactions; ++a) t.actions[d->actions[a].action->name] = a;
  }
  for (const TableInfo &t : tables_) table_names_[t.d->name] = &t;
  for (size_t i = 0; i < cat_.nprofiles; ++i) profile_names_[cat_.profiles[i].name] = &cat_.profiles[i];
  for (size_t i = 0; i < cat_.ncounters; ++i) counter_names_[cat_.counters[i].name] = &cat_.counters[i];
  for (size_t i = 0; i < cat_.nmeters; ++i) meter_names_[cat_.meters[i].name] = &cat_.meters[i];
  for (size_t i = 0; i < cat_.nregisters; ++i) register_names_[cat_.registers[i].name] = &cat_.registers[i];
  for (size_t i = 0; i < cat_.nvalue_sets; ++i) value_set_names_[cat_.value_sets[i].name] = &cat_.value_sets[i];
  for (size_t i = 0; i < cat_.nhashes; ++i) hash_names_[cat_.hashes[i].name] = &cat_.hashes[i];
  for (size_t i = 0; i < cat_.ndigests; ++i) digest_names_[cat_.digests[i].name] = &cat_.digests[i];
  // Learning digests come to the console, which keeps them for digest_show; a record waits at most
  // a millisecond for its batch.
  delivered_.resize(cat_.ndigests);
  for (size_t i = 0; i < cat_.ndigests; ++i) {
    Call c = base_call();
    c.digest_cb = &Console::on_digest;
    c.cookie = this;
    cat_.digests[i].register_cb(c);
  }
  p4_pd_corvin_switch_set_learning_timeout(options_.session, uint8_t(options_.device), 1000);
}

// The positions of fields or parameters: each on its own, except a MAC address held as an ...Oui
// and a ...Station half of 24 bits with the hint 'mac' (or plainly 'oui' and 'station'), which is
// one position, named by the stem (or 'mac'), where the first half stands.
void Console::positions_of(std::vector<Position> *out, int n, const char *const *names, const char *const *hints,
                           const uint16_t *widths) {
  auto is_mac = [&](int i) { return hints[i] && std::string_view(hints[i]) == "mac" && widths[i] == 24; };
  std::vector<int> partner(size_t(n), -1);
  std::vector<std::string_view> stem(static_cast<size_t>(n));
  for (int i = 0; i < n; ++i) {
    if (!is_mac(i)) continue;
    std::string_view name = names[i];
    for (int j = 0; j < n; ++j) {
      if (j == i || !is_mac(j)) continue;
      std::string_view other = names[j];
      if (ends_with(name, "Oui") && other.size() == name.size() + 4 &&
          other.substr(0, name.size() - 3) == name.substr(0, name.size() - 3) && ends_with(other, "Station")) {
        arena_.push_back(str(name.substr(0, name.size() - 3)));
        partner[size_t(i)] = j, partner[size_t(j)] = i;
        stem[size_t(i)] = stem[size_t(j)] = arena_.back();
      } else if (name == "oui" && other == "station") {
        partner[size_t(i)] = j, partner[size_t(j)] = i;
        stem[size_t(i)] = stem[size_t(j)] = "mac";
      }
    }
  }
  std::vector<bool> placed(size_t(n), false);
  for (int i = 0; i < n; ++i) {
    if (placed[size_t(i)]) continue;
    int j = partner[size_t(i)];
    if (j < 0) {
      out->push_back({names[i], i, -1});
      continue;
    }
    placed[size_t(i)] = placed[size_t(j)] = true;
    bool oui_first = ends_with(names[i], "Oui") || std::string_view(names[i]) == "oui";
    out->push_back({stem[size_t(i)], oui_first ? i : j, oui_first ? j : i});
  }
}

std::vector<std::string> Console::command_names() const {
  std::vector<std::string> names;
  for (const Command &c : commands()) names.push_back(c.name);
  names.push_back("exit");
  std::sort(names.begin(), names.end());
  return names;
}

const Console::TableInfo &Console::table(std::string_view name) const {
  auto it = table_names_.find(name);
  if (it == table_names_.end()) throw Error(unknown_name("table", name, "the program", table_list_));
  return *it->second;
}

const TableActionDesc &Console::table_action(const TableInfo &t, std::string_view name, const char *family) const {
  const TableDesc *d = t.d;
  if (d->profile)
    throw Error("table " + str(d->name) + " binds its entries to members and groups of action profile " +
                str(d->profile) + ", not to actions of its own: use table_indirect_add(_with_group) and " +
                "table_indirect_set_default(_with_group)");
  auto it = t.actions.find(name);
  if (it == t.actions.end()) {
    std::vector<std::string> names;
    for (int a = 0; a < d->nactions; ++a) names.push_back(d->actions[a].action->name);
    throw Error(unknown_name("action", name, "table " + str(d->name), names));
  }
  const TableActionDesc &ta = d->actions[it->second];
  std::string_view f = family;
  if ((f == "add" || f == "modify") && !ta.add)
    throw Error("table " + str(d->name) + ": " + str(name) + " is only a default action (table_set_default)");
  if (f == "default" && !ta.set_default)
    throw Error("table " + str(d->name) + ": " + str(name) + " is never a default action");
  return ta;
}

Call Console::base_call() const {
  Call c;
  c.sess = options_.session;
  c.tgt.device_id = options_.device;
  c.tgt.dev_pipe_id = options_.pipe;
  return c;
}

std::string Console::function_name(const TableDesc *t, const char *family, const ActionDesc *a) const {
  return "p4_pd_corvin_switch_" + str(t->name) + family + (a ? a->name : "");
}

void Console::driver_error(const std::string &function, p4_pd_status_t status) const {
  throw Error(function + " returned " + std::to_string(status) + " (" + status_name(status) + ")");
}

// ---- Requests ----

template <class Where, class Positional, class Surplus, class On>
void Console::walk_values(const ValueNames &n, const Args &tokens, const ValueNouns &nouns, Where where,
                          Positional positional, Surplus surplus, On on) {
  size_t next = 0;
  bool named_seen = false;
  for (std::string_view tok : tokens) {
    std::string_view name, value;
    Target target;
    if (named(tok, &name, &value)) {
      auto it = n.names.find(name);
      if (it == n.names.end()) throw Error(unknown_name(nouns.name, name, where(), n.name_list));
      target = it->second;
      named_seen = true;
    } else {
      if (named_seen)
        throw Error(where() + ": " + nouns.positional + " " + quoted(tok) + " stands after a named " + nouns.named +
                    "; positional values come first");
      if (next >= n.positions.size()) throw Error(surplus(tok));
      const Position &p = n.positions[next];
      name = p.name;
      value = tok;
      target = positional(p, int(next));
      ++next;
    }
    on(name, value, target);
  }
}

void Console::put_slot(size_t i, const U128 &v, std::string_view given, const std::string &where,
                       std::string_view name) {
  Slot &s = slots_[i];
  if (s.set)
    throw Error(where + ": " + str(name) + " is given twice, by " + quoted(s.given) + " and by " + quoted(given));
  s.set = true;
  s.value = v;
  s.given = given;
}

void Console::parse_key(const TableInfo &t, const Args &tokens, uint8_t *record) {
  const TableDesc *d = t.d;
  std::string_view tname = d->name;
  auto where = [&] { return "table " + str(tname); };
  if (d->nkey == 0) {
    if (!tokens.empty()) {
      std::string_view n, v;
      throw Error(named(tokens[0], &n, &v) ? unknown_name("key field", n, where() + " (keyless)", {})
                                           : where() + " is keyless: surplus key value " + quoted(tokens[0]));
    }
    return;
  }
  slots_.assign(t.columns.size(), Slot());
  auto put = [&](int column, const U128 &v, std::string_view given) {
    put_slot(size_t(column), v, given, where(), t.columns[size_t(column)].name);
  };
  auto composite = [&](std::string_view value, Match m, const What &what) {
    if (value.find("&&&") != std::string_view::npos && m != Match::ternary)
      throw Error(what.str() + ": VALUE&&&MASK is for a ternary field; this one is " + match_name(m));
    if (value.find('/') != std::string_view::npos && m != Match::lpm)
      throw Error(what.str() + ": ADDRESS/LEN is for an lpm field; this one is " + match_name(m));
  };
  auto split_ternary = [&](std::string_view value, const What &what, std::string_view *v, std::string_view *m) {
    size_t at = value.find("&&&");
    if (at == std::string_view::npos) {
      *v = value;
      *m = std::string_view();
      return false;
    }
    *v = value.substr(0, at);
    *m = value.substr(at + 3);
    if (trim(*v).empty() || trim(*m).empty())
      throw Error(what.str() + ": " + quoted(value) + ": VALUE&&&MASK with both sides");
    return true;
  };
  auto prefix_length = [&](const FieldDesc &f, std::string_view text, const What &what) {
    What w{what.a, what.b, " prefix length"};
    U128 n = parse_number(text, 16, w);
    if (n.lo > f.width)
      throw Error(what.str() + ": prefix length " + std::to_string(n.lo) + " is longer than the field's " +
                  std::to_string(f.width) + " bits");
    return n;
  };

  walk_values(
      t, tokens, {"key field", "key value", "field"}, where,
      [&](const Position &p, int index) {
        return p.station >= 0 ? Target{true, index} : Target{false, t.value_column[size_t(p.field)]};
      },
      [&](std::string_view tok) {
        std::vector<std::string> names;
        for (const Position &p : t.positions) names.push_back(str(p.name));
        return where() + ": surplus key value " + quoted(tok) + "; the key has " + std::to_string(names.size()) +
               (names.size() == 1 ? " field (" : " fields (") + join(names, ", ") + ")";
      },
      [&](std::string_view name, std::string_view value, Target target) {
        What what{tname, name, ""};
        if (target.pair) {
          const Position &p = t.positions[size_t(target.index)];
          const FieldDesc &oui = d->key[p.field], &station = d->key[p.station];
          composite(value, oui.match, what);
          std::string_view v = value, m;
          bool masked = oui.match == Match::ternary && split_ternary(value, what, &v, &m);
          U128 mac = parse_mac48(v, what);
          put(t.value_column[size_t(p.field)], mac.shr(24), name);
          put(t.value_column[size_t(p.station)], U128{0, mac.lo & 0xffffff}, name);
          if (masked) {
            U128 mm = parse_mac48(m, What{tname, name, " mask"});
            put(t.value_column[size_t(p.field)] + 1, mm.shr(24), name);
            put(t.value_column[size_t(p.station)] + 1, U128{0, mm.lo & 0xffffff}, name);
          }
          (void)station;
          return;
        }
        const Column &col = t.columns[size_t(target.index)];
        const FieldDesc &f = d->key[col.field];
        int vc = t.value_column[size_t(col.field)];
        if (col.role == Role::value) {
          composite(value, f.match, what);
          if (f.match == Match::ternary) {
            std::string_view v, m;
            bool masked = split_ternary(value, what, &v, &m);
            put(vc, parse_number(v, f.width, what), name);
            if (masked) put(vc + 1, parse_number(m, f.width, What{tname, name, " mask"}), name);
          } else if (f.match == Match::lpm) {
            size_t slash = value.rfind('/');
            if (slash != std::string_view::npos) {
              std::string_view v = value.substr(0, slash), n = trim(value.substr(slash + 1));
              bool digits =
                  !n.empty() && std::all_of(n.begin(), n.end(), [](char ch) { return ch >= '0' && ch <= '9'; });
              if (!digits || trim(v).empty())
                throw Error(what.str() + ": " + quoted(value) + ": ADDRESS/LEN with a decimal length");
              put(vc, parse_number(v, f.width, what), name);
              put(vc + 1, prefix_length(f, n, what), name);
            } else {
              put(vc, parse_number(value, f.width, what), name);
            }
          } else {
            put(vc, parse_number(value, f.width, what), name);
          }
        } else if (col.role == Role::mask) {
          put(vc + 1, parse_number(value, f.width, what), name);
        } else {
          put(vc + 1, prefix_length(f, value, what), name);
        }
      });

  // What was left out: a ternary field matches anything (or exactly, given without a mask); an
  // lpm field is a whole-width prefix; an exact or lpm field must be given.
  std::vector<std::string> missing;
  for (int fi = 0; fi < d->nkey; ++fi) {
    const FieldDesc &f = d->key[fi];
    Slot &v = slots_[size_t(t.value_column[size_t(fi)])];
    if (f.match == Match::ternary) {
      Slot &m = slots_[size_t(t.value_column[size_t(fi)] + 1)];
      if (!v.set && !m.set) {
        v.set = m.set = true;
      } else if (!m.set) {
        m.set = true;
        m.value = U128::ones(f.width);
      } else if (!v.set) {
        v.set = true;
      }
    } else if (!v.set) {
      missing.push_back(f.name);
    } else if (f.match == Match::lpm) {
      Slot &n = slots_[size_t(t.value_column[size_t(fi)] + 1)];
      if (!n.set) n.set = true, n.value = U128{0, f.width};
    }
  }
  if (!missing.empty()) {
    std::vector<std::string> pairs;
    for (const Position &p : t.positions)
      if (p.station >= 0 && std::find(missing.begin(), missing.end(), d->key[p.field].name) != missing.end() &&
          std::find(missing.begin(), missing.end(), d->key[p.station].name) != missing.end())
        pairs.push_back(str(p.name));
    throw Error(where() + ": the key needs " + join(missing, ", ") +
                (pairs.empty() ? "" : " (MAC pairs: " + join(pairs, ", ") + ")"));
  }
  std::memset(record, 0, d->key_size);
  for (size_t c = 0; c < t.columns.size(); ++c) {
    const Column &col = t.columns[c];
    const FieldDesc &f = d->key[col.field];
    if (col.role == Role::value)
      store(record, f.offset, f.size, slots_[c].value);
    else if (col.role == Role::mask)
      store(record, f.extra, f.size, slots_[c].value);
    else
      store(record, f.extra, 2, slots_[c].value);
  }
}

void Console::parse_params(const std::string &owner, const ActionDesc *a, const Args &tokens, uint8_t *record,
                           const TableDesc *adding) {
  const ActionInfo &ai = action_info(a);
  auto where = [&] { return owner + ", action " + str(a->name); };
  slots_.assign(a->nparams, Slot());
  auto put = [&](int param, const U128 &v, std::string_view given) {
    put_slot(size_t(param), v, given, where(), a->params[param].name);
  };
  walk_values(
      ai, tokens, {"parameter", "parameter value", "parameter"}, where,
      [&](const Position &p, int index) { return p.station >= 0 ? Target{true, index} : Target{false, p.field}; },
      [&](std::string_view tok) {
        std::vector<std::string> names;
        for (const Position &p : ai.positions) names.push_back(str(p.name));
        std::string has = names.empty() ? "takes no parameters"
                                        : "takes " + std::to_string(names.size()) +
                                              (names.size() == 1 ? " parameter (" : " parameters (") +
                                              join(names, ", ") + ")";
        if (adding && adding->priority)
          has += ", and the entry's priority is the last value";
        else if (adding)
          has += ", and table " + str(adding->name) + " is " + adding->kind + ": its entries have no priority";
        return where() + ": surplus value " + quoted(tok) + "; the action " + has;
      },
      [&](std::string_view name, std::string_view value, Target target) {
        What what{a->name, name, ""};
        if (target.pair) {
          const Position &p = ai.positions[size_t(target.index)];
          U128 mac = parse_mac48(value, what);
          put(p.field, mac.shr(24), name);
          put(p.station, U128{0, mac.lo & 0xffffff}, name);
        } else {
          put(target.index, parse_number(value, a->params[target.index].width, what), name);
        }
      });
  std::vector<std::string> missing;
  for (int p = 0; p < a->nparams; ++p)
    if (!slots_[size_t(p)].set) missing.push_back(a->params[p].name);
  if (!missing.empty()) {
    std::vector<std::string> pairs;
    for (const Position &p : ai.positions)
      if (p.station >= 0 && !slots_[size_t(p.field)].set && !slots_[size_t(p.station)].set)
        pairs.push_back(str(p.name));
    throw Error(where() + ": the parameters need " + join(missing, ", ") +
                (pairs.empty() ? "" : " (MAC pairs: " + join(pairs, ", ") + ")"));
  }
  if (a->record_size) std::memset(record, 0, a->record_size);
  for (int p = 0; p < a->nparams; ++p) store(record, a->params[p].offset, a->params[p].size, slots_[size_t(p)].value);
}

// ---- Entries ----

void Console::table_add(const Args &args, std::string &out) {
  const TableInfo &t = table(args[0]);
  const TableDesc *d = t.d;
  if (d->nkey == 0)
    throw Error("table " + str(d->name) + " is keyless: its only entry is the default entry (table_set_default)");
  const TableActionDesc &ta = table_action(t, args[1], "add");
  const ActionDesc *a = ta.action;
  size_t arrow = 2;
  while (arrow < args.size() && args[arrow] != "=>") ++arrow;
  if (arrow == args.size())
    throw Error("table " + str(d->name) + ", action " + a->name +
                ": '=>' must follow the key, before the action's parameters (even when there are none)");
  Args key(args.begin() + 2, args.begin() + long(arrow));
  Args params(args.begin() + long(arrow) + 1, args.end());
  std::string_view priority_text = take_priority(d, &params, action_info(a).positions.size());
  alignas(16) uint8_t key_record[kRecordRoom], param_record[kRecordRoom];
  parse_key(t, key, key_record);
  parse_params("table " + str(d->name), a, params, param_record, d);
  Call c = base_call();
  if (!priority_text.empty()) c.priority = parse_u32(priority_text, What{d->name, "", " priority"});
  if (a->index_param >= 0 && slots_[size_t(a->index_param)].value.lo > 0xFFFF) {
    char v[24];
    std::snprintf(v, sizeof v, "0x%llx", static_cast<unsigned long long>(slots_[size_t(a->index_param)].value.lo));
    throw Error("table " + str(d->name) + ", action " + a->name + ": " + a->params[a->index_param].name +
                " is a counter or meter index, which an added entry keeps in 16 bits: " + v + " is too large");
  }
  p4_pd_meter_spec_t meter{};
  p4_pd_entry_hdl_t handle = 0;
  c.key = key_record;
  c.params = a->nparams ? param_record : nullptr;
  c.meter = d->meter_spec ? &meter : nullptr;  // a table whose entries carry a meter spec gets zeros
  c.entry_out = &handle;
  p4_pd_status_t st = ta.add(c);
  if (st) driver_error(function_name(d, "_table_add_with_", a), st);
  changed(d);
  char line[64];
  std::snprintf(line, sizeof line, "Entry has been added with handle 0x%x\n", handle);
  out += line;
}

std::string_view Console::take_priority(const TableDesc *d, Args *params, size_t positions) const {
  std::string_view priority_text;
  if (!d->priority) return priority_text;
  for (size_t i = 0; i < params->size(); ++i) {
    std::string_view n, v;
    if (named((*params)[i], &n, &v) && n == "priority") {
      priority_text = v;
      params->erase(params->begin() + long(i));
      return priority_text;
    }
  }
  if (params->empty()) return priority_text;
  size_t bare = 0, named_count = 0;
  std::string_view n, v;
  for (std::string_view p : *params) (named(p, &n, &v) ? named_count : bare)++;
  bool after_named = named_count > 0 && !named(params->back(), &n, &v);
  if (!named(params->back(), &n, &v) && (bare > positions || after_named)) {
    priority_text = params->back();
    params->pop_back();
  }
  return priority_text;
}


void Console::table_modify(const Args &args, std::string &out) {
  const TableInfo &t = table(args[0]);
  const TableDesc *d = t.d;
  if (d->nkey == 0)
    throw Error("table " + str(d->name) + " is keyless: it has no entries; set its default entry (table_set_default)");
  const TableActionDesc &ta = table_action(t, args[1], "modify");
  const ActionDesc *a = ta.action;
  uint32_t handle = parse_u32(args[2], What{"", "entry handle", ""});
  alignas(16) uint8_t param_record[kRecordRoom];
  parse_params("table " + str(d->name), a, after_arrow(args, 3), param_record);
  Call c = base_call();
  c.entry = handle;
  c.params = a->nparams ? param_record : nullptr;
  p4_pd_status_t st = ta.modify(c);
  if (st) driver_error(function_name(d, "_table_modify_with_", a), st);
  changed(d);
  out += "Entry " + hex(handle) + " has been modified\n";
}

void Console::table_delete(const Args &args, std::string &out) {
  const TableInfo &t = table(args[0]);
  if (!t.d->del)
    throw Error("table " + str(t.d->name) +
                " is keyless: it has no entries to delete; reset its default entry (table_reset_default)");
  uint32_t handle = parse_u32(args[1], What{"", "entry handle", ""});
  Call c = base_call();
  c.entry = handle;
  p4_pd_status_t st = t.d->del(c);
  if (st) driver_error(function_name(t.d, "_table_delete"), st);
  changed(t.d);
  out += "Entry " + hex(handle) + " has been deleted\n";
}

void Console::table_set_default(const Args &args, std::string &out) {
  const TableInfo &t = table(args[0]);
  const TableActionDesc &ta = table_action(t, args[1], "default");
  const ActionDesc *a = ta.action;
  alignas(16) uint8_t param_record[kRecordRoom];
  parse_params("table " + str(t.d->name), a, after_arrow(args, 2), param_record);
  Call c = base_call();
  p4_pd_entry_hdl_t handle = 0;
  c.params = a->nparams ? param_record : nullptr;
  c.entry_out = &handle;
  p4_pd_status_t st = ta.set_default(c);
  if (st) driver_error(function_name(t.d, "_set_default_action_", a), st);
  changed(t.d);
  out += "Default entry has been set, handle " + hex(handle) + "\n";
}

void Console::table_reset_default(const Args &args, std::string &out) {
  const TableInfo &t = table(args[0]);
  p4_pd_status_t st = t.d->reset_default(base_call());
  if (st) driver_error(function_name(t.d, "_table_reset_default_entry"), st);
  changed(t.d);
  out += "Default entry has been reset\n";
}

void Console::table_num_entries(const Args &args, std::string &out) {
  const TableInfo &t = table(args[0]);
  Call c = base_call();
  uint32_t count = 0;
  c.count_out = &count;
  p4_pd_status_t st = t.d->count(c);
  if (st) driver_error(function_name(t.d, "_get_entry_count"), st);
  out += std::to_string(count) + "\n";
}

std::vector<uint32_t> Console::entry_handles(const TableInfo &t) const {
  p4_pd_dev_target_t tgt{options_.device, options_.pipe};
  return walk_handles(
      "p4_pd_corvin_switch_entry_hdl_first", "p4_pd_corvin_switch_entry_hdl_next",
      [&](uint32_t *h) { return p4_pd_corvin_switch_entry_hdl_first(options_.session, tgt, t.d->handle, h); },
      [&](uint32_t from, int n, uint32_t *page) {
        return p4_pd_corvin_switch_entry_hdl_next(options_.session, tgt, t.d->handle, from, n, page);
      });
}

// The entry of a handle through its value text: ((KEY, ACTION), (PRIORITY, True)), KEY one number per
// schema column or () for a default entry, ACTION (name, (numbers)) or a selector's binding.
bool Console::read_entry(const TableInfo &t, uint32_t handle, Entry *e) const {
  char buf[kValueRoom];
  int n = p4_pd_corvin_switch_entry_value(options_.session, uint8_t(options_.device), t.d->handle, handle, 0, buf);
  if (n <= 0) return false;
  std::string_view text(buf, size_t(n));
  auto bad = [&] { return Error("the value text of entry " + hex(handle) + " of table " + t.d->name +
                                " does not read as its schema says: " + str(text)); };
  Node v;
  if (!LiteralParser(text).parse(&v)) throw bad();
  if (v.kind != Node::tuple || v.items.size() != 2 || v.items[1].kind != Node::tuple || v.items[1].items.empty() ||
      v.items[1].items[0].kind != Node::number)
    throw bad();
  const Node &body = v.items[0], &prio = v.items[1].items[0];
  if (body.kind != Node::tuple || body.items.empty() || body.items[0].kind != Node::tuple) throw bad();
  *e = Entry();
  e->handle = handle;
  e->priority = prio.negative ? -int64_t(prio.value.lo) : int64_t(prio.value.lo);
  const Node &key = body.items[0];
  if (key.items.empty()) {
    e->is_default = true;  // a keyed table's default entry, or a keyless table's only entry
  } else {
    if (key.items.size() != t.columns.size()) throw bad();
    for (const Node &k : key.items) {
      if (k.kind != Node::number) throw bad();
      e->key.push_back(k.value);
    }
  }
  e->bound = t.d->profile != nullptr;
  if (body.items.size() < 2) return true;
  const Node &act = body.items[1];
  if (act.kind != Node::tuple || act.items.size() != 2 || act.items[0].kind != Node::text ||
      act.items[1].kind != Node::tuple)
    throw bad();
  const std::string &name = act.items[0].s;
  if (e->bound && (name == "setMbrHdl" || name == "setGrpHdl") && act.items[1].items.size() == 1) {
    (name == "setMbrHdl" ? e->has_member : e->has_group) = true;
    (name == "setMbrHdl" ? e->member : e->group) = uint32_t(act.items[1].items[0].value.lo);
    return true;
  }
  auto it = action_names_.find(name);
  if (it == action_names_.end() || it->second->nparams != act.items[1].items.size()) throw bad();
  e->action = name;
  for (const Node &p : act.items[1].items) e->params.push_back(p.value);
  return true;
}

// The default entry, if one is set: asked of the table's get_default_entry first, since the
// default-entry handle is issued by the first question for it.
bool Console::read_default(const TableInfo &t, Entry *e) const {
  Call c = base_call();
  p4_pd_corvin_switch_action_spec_t spec;
  uint8_t is_member = 0, is_group = 0;
  p4_pd_mbr_hdl_t mbr = 0;
  p4_pd_grp_hdl_t grp = 0;
  c.action_out = &spec;
  c.is_member_out = &is_member;
  c.is_group_out = &is_group;
  c.mbr_out = &mbr;
  c.grp_out = &grp;
  p4_pd_status_t st = t.d->get_default(c);
  if (st == kObjectNotFound) return false;
  if (st) driver_error(function_name(t.d, "_table_get_default_entry"), st);
  p4_pd_entry_hdl_t h = kNoHandle;
  p4_pd_dev_target_t tgt{options_.device, options_.pipe};
  st = p4_pd_corvin_switch_entry_hdl_default(options_.session, tgt, t.d->handle, &h);
  if (st) driver_error("p4_pd_corvin_switch_entry_hdl_default", st);
  if (h == kNoHandle || !read_entry(t, h, e)) return false;
  e->is_default = true;
  return true;
}

// An entry in people's words, as the Python client shows one: addresses by their hints, MAC pairs
// joined, "(default)" and the priority in the head.
std::string Console::describe(const TableInfo &t, const Entry &e) const {
  const TableDesc *d = t.d;
  std::vector<std::string> parts;
  if (!e.key.empty()) {
    for (int fi = 0; fi < d->nkey; ++fi) {
      const FieldDesc &f = d->key[fi];
      const Position *pair = nullptr;
      bool station = false;
      for (const Position &p : t.positions) {
        if (p.station < 0) continue;
        if (p.field == fi) pair = &p;
        if (p.station == fi) station = true;
      }
      if (station) continue;
      int vc = t.value_column[size_t(fi)];
      const U128 &v = e.key[size_t(vc)];
      bool masked = f.match == Match::ternary;
      if (pair) {
        int sc = t.value_column[size_t(pair->station)];
        std::string text = show_mac(uint32_t(v.lo), uint32_t(e.key[size_t(sc)].lo));
        if (masked) text += "&&&" + show_mac(uint32_t(e.key[size_t(vc + 1)].lo), uint32_t(e.key[size_t(sc + 1)].lo));
        parts.push_back(str(pair->name) + "=" + text);
        continue;
      }
      std::string text = show(v, f.width, f.hint);
      if (masked) {
        std::string_view h = f.hint ? f.hint : "";
        bool numeric = h == "port" || h == "vport" || h == "dec";
        text += "&&&" + show(e.key[size_t(vc + 1)], f.width, numeric ? nullptr : f.hint);
      }
      if (f.match == Match::lpm) text += "/" + std::to_string(e.key[size_t(vc + 1)].lo);
      parts.push_back(str(f.name) + "=" + text);
    }
  }
  std::string head = str(d->name) + " " + hex(e.handle) + (e.is_default ? " (default)" : "");
  if (d->priority && !e.is_default) head += " priority " + std::to_string(uint32_t(e.priority));
  std::string what;
  if (e.has_member) {
    what = "member " + hex(e.member);
  } else if (e.has_group) {
    what = "group " + hex(e.group);
  } else if (e.action.empty()) {
    what = "no member or group";
  } else {
    const ActionDesc *a = action_names_.at(e.action);
    what = e.action + "(";
    for (int p = 0; p < a->nparams; ++p)
      what += (p ? ", " : "") + str(a->params[p].name) + "=" +
              show(e.params[size_t(p)], a->params[p].width, a->params[p].hint);
    what += ")";
  }
  return head + ": " + (parts.empty() ? "()" : join(parts, " ")) + " -> " + what;
}

void Console::table_dump(const Args &args, std::string &out) {
  const TableInfo &t = table(args[0]);
  std::vector<uint32_t> handles = entry_handles(t);
  std::string text = str(t.d->name) + ": " + std::to_string(handles.size()) +
                     (handles.size() == 1 ? " entry\n" : " entries\n");
  Entry e;
  for (uint32_t h : handles) {
    if (!read_entry(t, h, &e)) throw Error("table " + str(t.d->name) + ": entry " + hex(h) + " cannot be read back");
    text += describe(t, e) + "\n";
  }
  if (read_default(t, &e))
    text += describe(t, e) + "\n";
  else
    text += str(t.d->name) + ": no default entry\n";
  out += text;
}

void Console::table_dump_entry(const Args &args, std::string &out) {
  const TableInfo &t = table(args[0]);
  uint32_t handle = parse_u32(args[1], What{"", "entry handle", ""});
  Entry e;
  if (!read_entry(t, handle, &e)) throw Error("table " + str(t.d->name) + " has no entry " + hex(handle));
  out += describe(t, e) + "\n";
}

void Console::table_dump_entry_from_key(const Args &args, std::string &out) {
  const TableInfo &t = table(args[0]);
  const TableDesc *d = t.d;
  if (!d->key_to_handle)
    throw Error("table " + str(d->name) + " is keyless: its only entry is the default entry (table_dump)");
  Args key(args.begin() + 1, args.end());
  std::string_view priority_text = take_priority(d, &key, t.positions.size());
  alignas(16) uint8_t key_record[kRecordRoom];
  parse_key(t, key, key_record);
  Call c = base_call();
  if (!priority_text.empty()) c.priority = parse_u32(priority_text, What{d->name, "", " priority"});
  p4_pd_entry_hdl_t handle = 0;
  c.key = key_record;
  c.entry_out = &handle;
  p4_pd_status_t st = d->key_to_handle(c);
  if (st == 7 || st == kObjectNotFound)
    throw Error("table " + str(d->name) + " has no entry of that key" +
                (d->priority && priority_text.empty() ? " at priority 0 (give the priority after the key)" : ""));
  if (st) driver_error(function_name(d, "_match_spec_to_entry_hdl"), st);
  Entry e;
  if (!read_entry(t, handle, &e)) throw Error("table " + str(d->name) + " has no entry " + hex(handle));
  out += describe(t, e) + "\n";
}

void Console::table_clear(const Args &args, std::string &out) {
  const TableInfo &t = table(args[0]);
  std::vector<uint32_t> handles = entry_handles(t);
  size_t done = 0;
  for (uint32_t h : handles) {
    Call c = base_call();
    c.entry = h;
    p4_pd_status_t st = t.d->del(c);
    if (st && done) changed(t.d);
    if (st)
      throw Error("table " + str(t.d->name) + ": " + std::to_string(done) + " of " + std::to_string(handles.size()) +
                  " entries deleted; then " + function_name(t.d, "_table_delete") + " of entry " + hex(h) +
                  " returned " + std::to_string(st) + " (" + status_name(st) + ")");
    ++done;
  }
  if (done) changed(t.d);
  out += str(t.d->name) + ": " + std::to_string(done) + (done == 1 ? " entry" : " entries") + " deleted\n";
}

// ---- Reflection ----

void Console::schema(const Args &args, std::string &out) {
  uint32_t handle;
  auto p = profile_names_.find(args[0]);
  if (p != profile_names_.end()) {
    handle = p->second->handle;
  } else if (table_names_.count(args[0])) {
    handle = table(args[0]).d->handle;
  } else {
    std::vector<std::string> names(table_list_);
    for (const auto &kv : profile_names_) names.push_back(str(kv.first));
    throw Error(unknown_name("table or action profile", args[0], "the program", names));
  }
  std::vector<char> buf(kSchemaRoom);
  int n = p4_pd_corvin_switch_cli_schema(handle, buf.data());
  out.append(buf.data(), size_t(n > 0 ? n : 0));
  out += "\n";
}

void Console::label(const Args &args, std::string &out) {
  const TableInfo &t = table(args[0]);
  if (!t.d->counted) {
    size_t counted = 0;
    for (const TableInfo &x : tables_) counted += x.d->counted;
    throw Error("table " + str(t.d->name) + " has no counter labels: only the " + std::to_string(counted) +
                " tables with a direct counter have them (table_info says so of each)");
  }
  uint32_t handle = parse_u32(args[1], What{"", "entry handle", ""});
  Entry e;
  if (!read_entry(t, handle, &e)) throw Error("table " + str(t.d->name) + " has no entry " + hex(handle));
  char buf[kValueRoom * 2];
  int n = p4_pd_corvin_switch_stringify_counter_matchspec(options_.session, uint8_t(options_.device), t.d->handle,
                                                          handle, buf);
  out += n > 0 ? std::string(buf, size_t(n)) : std::string("(empty label)");
  out += "\n";
}

void Console::model_calls(const Args &, std::string &out) {
  size_t n = drvm_call_count();
  if (n == 0) {
    out += options_.recording ? "no driver calls\n" : "no driver calls: the model records none (--no-record)\n";
    return;
  }
  for (size_t i = 0; i < n; ++i) {
    const drvm_call_t *c = drvm_call(i);
    std::string line = c->fn;
    if (c->tbl_hdl) line += " tbl=" + hex08(c->tbl_hdl);
    if (c->act_fn_hdl) line += " act=" + hex08(c->act_fn_hdl);
    if (c->ent_hdl) line += " ent=" + hex(c->ent_hdl);
    // Images of what was sent; a read's records are buffers for the answer.
    bool sent = std::strstr(c->fn, "_get") == nullptr;
    if (c->has_match && sent) {
      const pipe_tbl_match_spec_t &m = c->match;
      if (m.num_match_bytes && m.match_value_bytes) line += " value=" + bytes_hex(m.match_value_bytes, m.num_match_bytes);
      if (m.num_match_bytes && m.match_mask_bytes) line += " mask=" + bytes_hex(m.match_mask_bytes, m.num_match_bytes);
      line += " prio=" + std::to_string(m.priority);
    }
    if (sent && c->has_action && c->action.act_data.num_action_data_bytes && c->action.act_data.action_data_bytes)
      line += " data=" + bytes_hex(c->action.act_data.action_data_bytes, c->action.act_data.num_action_data_bytes);
    out += line + " -> " + status_name(uint32_t(c->status)) + "\n";
  }
  drvm_clear_calls();
}

// ---- Descriptions ----

void Console::show_tables(const Args &, std::string &out) {
  size_t width = 0;
  for (const TableInfo &t : tables_) width = std::max(width, std::strlen(t.d->name));
  for (const TableInfo &t : tables_) {
    std::string line = pad(t.d->name, width + 2) + pad(t.d->kind, 9) + hex08(t.d->handle);
    if (t.d->profile) line += "  profile " + str(t.d->profile);
    out += line + "\n";
  }
}

void Console::show_actions(const Args &, std::string &out) {
  for (size_t i = 0; i < cat_.nactions; ++i) out += params_text(&cat_.actions[i]) + "\n";
}

void Console::table_info(const Args &args, std::string &out) {
  const TableInfo &t = table(args[0]);
  const TableDesc *d = t.d;
  std::string text = str(d->name) + ": " + d->kind + " table, handle " + hex08(d->handle);
  if (d->priority) text += ", entries have a priority";
  text += "\n";
  if (d->nkey == 0) {
    text += "keyless: its only entry is the default entry\n";
  } else {
    text += "key, in the order table_add takes it:\n";
    size_t width = 0;
    for (const Position &p : t.positions) width = std::max(width, p.name.size());
    for (const Position &p : t.positions) {
      const FieldDesc &f = d->key[p.field];
      std::string line = "  " + pad(str(p.name), width + 2) + pad(match_name(f.match), 9);
      if (p.station >= 0) {
        line += pad("48 bits", 10) + "MAC address: " + str(f.name) + ", " + d->key[p.station].name;
      } else {
        line += pad(std::to_string(f.width) + " bits", 10);
        std::vector<std::string> notes;
        if (const char *h = hint_words(f.hint)) notes.push_back(h);
        if (f.slice) notes.push_back("slice " + str(f.slice));
        line += join(notes, ", ");
      }
      while (!line.empty() && line.back() == ' ') line.pop_back();
      text += line + "\n";
    }
  }
  if (d->profile) {
    text += "entries bind to members and groups of action profile " + str(d->profile) + "\n";
  } else {
    std::vector<std::string> entry, dflt;
    for (int a = 0; a < d->nactions; ++a) {
      if (d->actions[a].add) entry.push_back(d->actions[a].action->name);
      if (d->actions[a].set_default) dflt.push_back(d->actions[a].action->name);
    }
    if (!entry.empty()) text += "entry actions: " + join(entry, ", ") + "\n";
    if (!dflt.empty()) text += "default actions: " + join(dflt, ", ") + "\n";
  }
  if (d->counted) text += "direct counter: entries have counter labels (label)\n";
  out += text;
}

void Console::table_show_actions(const Args &args, std::string &out) {
  const TableInfo &t = table(args[0]);
  const TableDesc *d = t.d;
  if (d->profile) {
    const ProfileDesc *p = profile_names_.at(d->profile);
    out += str(d->name) + " binds its entries to members and groups of action profile " + p->name +
           ", whose actions are:\n";
    for (int a = 0; a < p->nactions; ++a) out += params_text(p->actions[a].action) + "\n";
    return;
  }
  std::vector<std::string> lines;
  size_t width = 0;
  for (int a = 0; a < d->nactions; ++a) width = std::max(width, params_text(d->actions[a].action).size());
  for (int a = 0; a < d->nactions; ++a) {
    const TableActionDesc &ta = d->actions[a];
    out += pad(params_text(ta.action), width + 2) +
           (ta.add && ta.set_default ? "entry, default" : ta.add ? "entry" : "default") + "\n";
  }
}

void Console::help(const Args &args, std::string &out) {
  if (args.empty()) {
    out += "Commands (help COMMAND for one, with an example):\n";
    size_t width = 0;
    for (const Command &c : commands()) width = std::max(width, std::strlen(c.name));
    for (const Command &c : commands()) out += "  " + pad(c.name, width + 2) + c.brief + "\n";
    out += kValueForms;
    return;
  }
  auto it = commands_.find(args[0]);
  if (it == commands_.end()) throw Error(unknown_name("command", args[0], "the console", command_names()));
  const Command &c = *it->second;
  out += str(c.name) + (*c.usage ? " " : "") + c.usage + "\n";
  std::string text = c.text;
  size_t i = 0;
  while (i < text.size()) {
    size_t nl = text.find('\n', i);
    if (nl == std::string::npos) nl = text.size();
    out += "  " + text.substr(i, nl - i) + "\n";
    i = nl + 1;
  }
  out += "  Example: " + str(c.example) + "\n";
}

void Console::quit(const Args &, std::string &) { finished_ = true; }

// ---- Running a line ----

// The commands whose output ends in the handle of what they made: $NAME = COMMAND keeps it.
static bool makes_handle(std::string_view command) {
  static const char *const makers[] = {"table_add", "table_indirect_add", "table_indirect_add_with_group",
                                       "table_set_default", "table_indirect_set_default",
                                       "table_indirect_set_default_with_group", "act_prof_create_member",
                                       "act_prof_create_group", "pvs_add"};
  for (const char *m : makers)
    if (command == m) return true;
  return false;
}

bool Console::execute(std::string_view line, std::string &out, std::string &err) {
  split(line, &tokens_);
  if (tokens_.empty() || tokens_[0][0] == '#') return true;
  // $NAME = COMMAND ...: the handle the command prints is kept as $NAME, which later lines may
  // give wherever a value goes (alone, or after NAME=).
  std::string_view keep;
  if (tokens_[0][0] == '$' && tokens_.size() >= 2 && tokens_[1] == "=") {
    keep = tokens_[0];
    tokens_.erase(tokens_.begin(), tokens_.begin() + 2);
    if (tokens_.empty()) {
      err = "missing the command whose handle " + str(keep) + " keeps";
      return false;
    }
  }
  expanded_.clear();
  for (std::string_view &tok : tokens_) {
    size_t at = tok[0] == '$' ? 0 : tok.find("=$");
    if (at == std::string_view::npos) continue;
    size_t from = tok[0] == '$' ? 0 : at + 1;
    std::string_view name = tok.substr(from);
    auto v = handles_.find(str(name));
    if (v == handles_.end()) {
      std::vector<std::string> known;
      for (const auto &kv : handles_) known.push_back(kv.first);
      err = str(tokens_[0]) + ": " + unknown_name("handle", name, "the session", known);
      return false;
    }
    expanded_.push_back(str(tok.substr(0, from)) + v->second);
    tok = expanded_.back();
  }
  auto it = commands_.find(tokens_[0]);
  if (it == commands_.end()) {
    err = unknown_name("command", tokens_[0], "the console", command_names());
    return false;
  }
  const Command &c = *it->second;
  if (!keep.empty() && !makes_handle(c.name)) {
    err = str(c.name) + ": makes no handle for " + str(keep) + " to keep";
    return false;
  }
  Args args(tokens_.begin() + 1, tokens_.end());
  size_t start = out.size();
  try {
    if (int(args.size()) < c.min_args) {
      std::vector<std::string_view> words;
      split(c.usage, &words);
      std::string missing;
      for (size_t i = args.size(); i < size_t(c.min_args) && i < words.size(); ++i)
        missing += (missing.empty() ? "" : " ") + str(words[i]);
      throw Error("missing " + missing + " (usage: " + c.name + " " + c.usage + ")");
    }
    if (c.max_args >= 0 && int(args.size()) > c.max_args)
      throw Error("surplus argument " + quoted(args[size_t(c.max_args)]) + " (usage: " + c.name +
                  (*c.usage ? " " : "") + c.usage + ")");
    (this->*c.run)(args, out);
  } catch (const Error &e) {
    out.resize(start);
    err = str(c.name) + ": " + e.what();
    return false;
  }
  if (!keep.empty()) {
    std::string said = out.substr(start);
    while (!said.empty() && said.back() == '\n') said.pop_back();
    handles_[str(keep)] = said.substr(said.rfind(' ') + 1);
  }
  return true;
}

// ---- Completion ----

std::vector<std::string> Console::complete(std::string_view before) const {
  std::vector<std::string_view> words;
  split(before, &words);
  std::string_view word;
  if (!before.empty() && !(before.back() == ' ' || before.back() == '\t') && !words.empty()) {
    word = words.back();
    words.pop_back();
  }
  std::vector<std::string> pool;
  auto tables = [&] { pool.insert(pool.end(), table_list_.begin(), table_list_.end()); };
  size_t k = words.size();
  if (k == 0) {
    pool = command_names();
  } else {
    std::string_view cmd = words[0];
    bool table_first = cmd.substr(0, 6) == "table_" || cmd == "label" || cmd == "check" || cmd == "model_traffic" ||
                       cmd == "model_flip";
    auto names_of = [&](const auto &map) {
      for (const auto &kv : map) pool.push_back(str(kv.first));
    };
    if (k == 1 && cmd.substr(0, 9) == "act_prof_") {
      names_of(profile_names_);
    } else if (k == 1 && cmd.substr(0, 8) == "counter_") {
      names_of(counter_names_);
    } else if (k == 1 && cmd.substr(0, 6) == "meter_") {
      names_of(meter_names_);
    } else if (k == 1 && cmd.substr(0, 9) == "register_") {
      names_of(register_names_);
    } else if (k == 1 && cmd == "hash_calc") {
      names_of(hash_names_);
    } else if (k == 1 && cmd.substr(0, 4) == "pvs_") {
      names_of(value_set_names_);
    } else if (k == 1 && (cmd == "digest_show" || cmd == "model_learn")) {
      names_of(digest_names_);
    } else if (k == 2 && (cmd == "act_prof_create_member" || cmd == "act_prof_modify_member")) {
      auto p = profile_names_.find(words[1]);
      if (p == profile_names_.end()) return {};
      for (int a = 0; a < p->second->nactions; ++a) pool.push_back(p->second->actions[a].action->name);
    } else if (k >= 2 && (cmd == "table_indirect_add" || cmd == "table_indirect_add_with_group" ||
                          cmd == "table_dump_entry_from_key")) {
      auto t = table_names_.find(words[1]);
      if (t == table_names_.end()) return {};
      bool arrow = std::find(words.begin() + 2, words.end(), std::string_view("=>")) != words.end();
      if (!arrow && (word.find('=') == std::string_view::npos || word == "=" || word == "=>")) {
        std::vector<std::string_view> given;
        for (size_t i = 2; i < k; ++i) {
          std::string_view n, v;
          if (named(words[i], &n, &v)) given.push_back(n);
        }
        for (const std::string &n : t->second->completions)
          if (std::find(given.begin(), given.end(), std::string_view(n).substr(0, n.size() - 1)) == given.end())
            pool.push_back(n);
        if (cmd != "table_dump_entry_from_key") pool.push_back("=>");
      }
    } else if (cmd == "help" && k == 1) {
      pool = command_names();
    } else if (cmd == "schema" && k == 1) {
      tables();
      names_of(profile_names_);
    } else if (table_first && k == 1) {
      tables();
    } else if ((cmd == "table_add" || cmd == "table_modify" || cmd == "table_set_default") && k >= 2) {
      auto t = table_names_.find(words[1]);
      if (t == table_names_.end()) return {};
      const TableInfo &ti = *t->second;
      const TableDesc *d = ti.d;
      if (k == 2) {
        for (int a = 0; a < d->nactions; ++a) {
          const TableActionDesc &ta = d->actions[a];
          if (cmd == "table_set_default" ? ta.set_default != nullptr : ta.add != nullptr)
            pool.push_back(ta.action->name);
        }
      } else if (word.find('=') == std::string_view::npos || word == "=" || word == "=>") {
        auto ta = ti.actions.find(words[2]);
        if (ta == ti.actions.end()) return {};
        const ActionInfo &ai = action_info(d->actions[ta->second].action);
        bool arrow = std::find(words.begin() + 3, words.end(), std::string_view("=>")) != words.end();
        size_t params_from = cmd == "table_modify" ? 4 : 3;
        bool in_key = cmd == "table_add" && !arrow;
        if (cmd == "table_modify" && k == 3) return {};  // the handle
        // Names given already are not offered again.
        std::vector<std::string_view> given;
        for (size_t i = 3; i < k; ++i) {
          std::string_view n, v;
          if (named(words[i], &n, &v)) given.push_back(n);
        }
        const std::vector<std::string> &names = in_key ? ti.completions : ai.completions;
        for (const std::string &n : names)
          if (std::find(given.begin(), given.end(), std::string_view(n).substr(0, n.size() - 1)) == given.end())
            pool.push_back(n);
        if (in_key || (!arrow && k == params_from)) pool.push_back("=>");
      }
    }
  }
  std::vector<std::string> out;
  for (const std::string &p : pool)
    if (std::string_view(p).substr(0, word.size()) == word) out.push_back(p);
  std::sort(out.begin(), out.end());
  out.erase(std::unique(out.begin(), out.end()), out.end());
  return out;
}

}  // namespace cvcli
