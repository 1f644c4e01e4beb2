// The console's action profile commands: members, selector groups and their membership, and the
// entries of the tables bound to a profile, which name a member or a group instead of an action.
#include "console.h"
#include "console_util.h"

namespace cvcli {

namespace {

constexpr uint32_t kDefaultGroupSize = 128;

std::string profile_where(const ProfileDesc &p) { return "action profile " + str(p.name); }

}  // namespace

const ProfileDesc &Console::profile(std::string_view name) const {
  auto it = profile_names_.find(name);
  if (it != profile_names_.end()) return *it->second;
  std::vector<std::string> names;
  for (size_t i = 0; i < cat_.nprofiles; ++i) names.push_back(cat_.profiles[i].name);
  // A bound table's name for its profile: say which profile it binds to.
  auto t = table_names_.find(name);
  if (t != table_names_.end() && t->second->d->profile)
    throw Error("table " + str(name) + " is bound to action profile " + t->second->d->profile +
                "; the commands act_prof_* take the profile");
  throw Error(unknown_name("action profile", name, "the program", names));
}

const ProfileActionDesc &Console::profile_action(const ProfileDesc &p, std::string_view name) const {
  std::vector<std::string> names;
  for (int a = 0; a < p.nactions; ++a) {
    if (name == p.actions[a].action->name) return p.actions[a];
    names.push_back(p.actions[a].action->name);
  }
  throw Error(unknown_name("member action", name, profile_where(p), names));
}

// ---- Members and groups ----

void Console::act_prof_create_member(const Args &args, std::string &out) {
  const ProfileDesc &p = profile(args[0]);
  const ProfileActionDesc &pa = profile_action(p, args[1]);
  const ActionDesc *a = pa.action;
  alignas(16) uint8_t record[kRecordRoom];
  parse_params(profile_where(p), a, after_arrow(args, 2), record);
  Call c = base_call();
  p4_pd_mbr_hdl_t member = 0;
  c.params = a->nparams ? record : nullptr;
  c.mbr_out = &member;
  p4_pd_status_t st = pa.add(c);
  if (st) driver_error("p4_pd_corvin_switch_" + str(p.name) + "_add_member_with_" + a->name, st);
  out += "Member has been created with handle " + hex(member) + "\n";
}

void Console::act_prof_modify_member(const Args &args, std::string &out) {
  const ProfileDesc &p = profile(args[0]);
  const ProfileActionDesc &pa = profile_action(p, args[1]);
  const ActionDesc *a = pa.action;
  uint32_t member = parse_u32(args[2], What{"", "member handle", ""});
  alignas(16) uint8_t record[kRecordRoom];
  parse_params(profile_where(p), a, after_arrow(args, 3), record);
  Call c = base_call();
  c.mbr = member;
  c.params = a->nparams ? record : nullptr;
  p4_pd_status_t st = pa.modify(c);
  if (st == 0xFFFFFFFFu)
    throw Error(profile_where(p) + ": member " + hex(member) + " has another action than " + a->name +
                "; a member keeps its action (delete it and create another)");
  if (st) driver_error("p4_pd_corvin_switch_" + str(p.name) + "_modify_member_with_" + a->name, st);
  out += "Member " + hex(member) + " has been modified\n";
}

void Console::act_prof_delete_member(const Args &args, std::string &out) {
  const ProfileDesc &p = profile(args[0]);
  Call c = base_call();
  c.mbr = parse_u32(args[1], What{"", "member handle", ""});
  p4_pd_status_t st = p.del_member(c);
  if (st) driver_error("p4_pd_corvin_switch_" + str(p.name) + "_del_member", st);
  out += "Member " + hex(c.mbr) + " has been deleted\n";
}

void Console::act_prof_create_group(const Args &args, std::string &out) {
  const ProfileDesc &p = profile(args[0]);
  Call c = base_call();
  c.max_grp_size = args.size() > 1 ? parse_u32(args[1], What{"", "group size", ""}) : kDefaultGroupSize;
  p4_pd_grp_hdl_t group = 0;
  c.grp_out = &group;
  p4_pd_status_t st = p.create_group(c);
  if (st) driver_error("p4_pd_corvin_switch_" + str(p.name) + "_create_group", st);
  out += "Group has been created with handle " + hex(group) + "\n";
}

void Console::act_prof_delete_group(const Args &args, std::string &out) {
  const ProfileDesc &p = profile(args[0]);
  Call c = base_call();
  c.grp = parse_u32(args[1], What{"", "group handle", ""});
  p4_pd_status_t st = p.del_group(c);
  if (st) driver_error("p4_pd_corvin_switch_" + str(p.name) + "_del_group", st);
  out += "Group " + hex(c.grp) + " has been deleted\n";
}

void Console::act_prof_add_member_to_group(const Args &args, std::string &out) {
  const ProfileDesc &p = profile(args[0]);
  Call c = base_call();
  c.mbr = parse_u32(args[1], What{"", "member handle", ""});
  c.grp = parse_u32(args[2], What{"", "group handle", ""});
  p4_pd_status_t st = p.add_to_group(c);
  if (st) driver_error("p4_pd_corvin_switch_" + str(p.name) + "_add_member_to_group", st);
  out += "Member " + hex(c.mbr) + " has been added to group " + hex(c.grp) + "\n";
}

void Console::act_prof_remove_member_from_group(const Args &args, std::string &out) {
  const ProfileDesc &p = profile(args[0]);
  Call c = base_call();
  c.mbr = parse_u32(args[1], What{"", "member handle", ""});
  c.grp = parse_u32(args[2], What{"", "group handle", ""});
  p4_pd_status_t st = p.del_from_group(c);
  if (st) driver_error("p4_pd_corvin_switch_" + str(p.name) + "_del_member_from_group", st);
  out += "Member " + hex(c.mbr) + " has been removed from group " + hex(c.grp) + "\n";
}

// ---- Reading back ----

std::vector<uint32_t> Console::member_handles(const ProfileDesc &p) const {
  p4_pd_dev_target_t tgt{options_.device, options_.pipe};
  return walk_handles(
      "p4_pd_corvin_switch_member_hdl_first", "p4_pd_corvin_switch_member_hdl_next",
      [&](uint32_t *h) { return p4_pd_corvin_switch_member_hdl_first(options_.session, tgt, p.handle, h); },
      [&](uint32_t from, int n, uint32_t *page) {
        return p4_pd_corvin_switch_member_hdl_next(options_.session, tgt, p.handle, from, n, page);
      });
}

std::vector<uint32_t> Console::group_handles(const ProfileDesc &p) const {
  const std::string fn = "p4_pd_corvin_switch_" + str(p.name);
  return walk_handles(
      fn + "_get_first_group", fn + "_get_next_groups",
      [&](uint32_t *h) {
        Call c = base_call();
        c.grp_out = h;
        return p.first_group(c);
      },
      [&](uint32_t from, int n, uint32_t *page) {
        Call c = base_call();
        c.grp = from;
        c.n = n;
        c.grp_list_out = page;
        return p.next_groups(c);
      });
}

std::vector<uint32_t> Console::group_members(const ProfileDesc &p, uint32_t group) const {
  const std::string fn = "p4_pd_corvin_switch_" + str(p.name);
  return walk_handles(
      fn + "_get_first_group_member", fn + "_get_next_group_members",
      [&](uint32_t *h) {
        Call c = base_call();
        c.grp = group;
        c.mbr_out = h;
        return p.first_group_member(c);
      },
      [&](uint32_t from, int n, uint32_t *page) {
        Call c = base_call();
        c.grp = group;
        c.mbr = from;
        c.n = n;
        c.mbr_list_out = page;
        return p.next_group_members(c);
      });
}

std::string Console::describe_action(const ActionDesc *a, const uint8_t *record) const {
  std::string s = str(a->name) + "(";
  for (int i = 0; i < a->nparams; ++i) {
    const ParamDesc &pd = a->params[i];
    s += (i ? ", " : "") + str(pd.name) + "=" + show(load(record, pd.offset, pd.size), pd.width, pd.hint);
  }
  return s + ")";
}

std::string Console::describe_member(const ProfileDesc &p, uint32_t member) const {
  p4_pd_corvin_switch_action_spec_t spec;
  std::memset(&spec, 0, sizeof spec);
  Call c = base_call();
  c.mbr = member;
  c.action_out = &spec;
  p4_pd_status_t st = p.get_member(c);
  if (st) driver_error("p4_pd_corvin_switch_" + str(p.name) + "_get_member", st);
  for (int a = 0; a < p.nactions; ++a) {
    const ActionDesc *ad = p.actions[a].action;
    if (ad->number == uint32_t(spec.name))
      return describe_action(ad, reinterpret_cast<const uint8_t *>(&spec.u));
  }
  return "action " + std::to_string(uint32_t(spec.name)) + " (not one of the profile's)";
}

void Console::act_prof_info(const Args &args, std::string &out) {
  const ProfileDesc &p = profile(args[0]);
  std::string text = str(p.name) + ": action profile, handle " + hex08(p.handle) + ", selector " + hex08(p.selector) +
                     "\nentries of table " + p.table + " bind to its members and groups\nmember actions:\n";
  for (int a = 0; a < p.nactions; ++a) text += "  " + params_text(p.actions[a].action) + "\n";
  size_t members = member_handles(p).size(), groups = group_handles(p).size();
  text += std::to_string(members) + (members == 1 ? " member, " : " members, ") + std::to_string(groups) +
          (groups == 1 ? " group\n" : " groups\n");
  out += text;
}

void Console::act_prof_dump(const Args &args, std::string &out) {
  const ProfileDesc &p = profile(args[0]);
  std::vector<uint32_t> members = member_handles(p), groups = group_handles(p);
  std::string text = str(p.name) + ": " + std::to_string(members.size()) +
                     (members.size() == 1 ? " member\n" : " members\n");
  for (uint32_t m : members) text += "  member " + hex(m) + ": " + describe_member(p, m) + "\n";
  text += str(p.name) + ": " + std::to_string(groups.size()) + (groups.size() == 1 ? " group\n" : " groups\n");
  for (uint32_t g : groups) {
    std::vector<uint32_t> in = group_members(p, g);
    std::vector<std::string> hs;
    for (uint32_t m : in) hs.push_back(hex(m));
    text += "  group " + hex(g) + ": " + (in.empty() ? std::string("no members") : "members " + join(hs, ", ")) + "\n";
  }
  out += text;
}

// ---- Entries bound to members and groups ----

void Console::indirect_add(const Args &args, bool group, std::string &out) {
  const TableInfo &t = table(args[0]);
  const TableDesc *d = t.d;
  if (!d->profile)
    throw Error("table " + str(d->name) + " takes actions of its own, not members or groups: use table_add");
  if (d->nkey == 0)
    throw Error("table " + str(d->name) + " is keyless: bind its default entry (table_indirect_set_default" +
                (group ? "_with_group)" : ")"));
  size_t arrow = 1;
  while (arrow < args.size() && args[arrow] != "=>") ++arrow;
  if (arrow == args.size())
    throw Error("table " + str(d->name) + ": '=>' must follow the key, before the " + (group ? "group" : "member") +
                " handle");
  Args key(args.begin() + 1, args.begin() + long(arrow));
  Args rest(args.begin() + long(arrow) + 1, args.end());
  std::string_view priority_text = take_priority(d, &rest, 1);
  if (rest.empty())
    throw Error("table " + str(d->name) + ": the " + (group ? "group" : "member") + " handle must follow '=>'");
  if (rest.size() > 1)
    throw Error("table " + str(d->name) + ": surplus value " + quoted(rest[1]) + " after the " +
                (group ? "group" : "member") + " handle" +
                (d->priority ? "" : "; table " + str(d->name) + " is " + d->kind + ": its entries have no priority"));
  uint32_t handle = parse_u32(rest[0], What{"", group ? "group handle" : "member handle", ""});
  alignas(16) uint8_t key_record[kRecordRoom];
  parse_key(t, key, key_record);
  Call c = base_call();
  if (!priority_text.empty()) c.priority = parse_u32(priority_text, What{d->name, "", " priority"});
  p4_pd_entry_hdl_t entry = 0;
  c.key = key_record;
  (group ? c.grp : c.mbr) = handle;
  c.entry_out = &entry;
  p4_pd_status_t st = (group ? d->add_group_entry : d->add_member_entry)(c);
  if (st) driver_error(function_name(d, group ? "_add_entry_with_selector" : "_add_entry"), st);
  changed(d);
  out += "Entry has been added with handle " + hex(entry) + "\n";
}

void Console::table_indirect_add(const Args &args, std::string &out) { indirect_add(args, false, out); }
void Console::table_indirect_add_with_group(const Args &args, std::string &out) { indirect_add(args, true, out); }

void Console::indirect_default(const Args &args, bool group, std::string &out) {
  const TableInfo &t = table(args[0]);
  const TableDesc *d = t.d;
  if (!d->profile)
    throw Error("table " + str(d->name) + " takes actions of its own, not members or groups: use table_set_default");
  Call c = base_call();
  (group ? c.grp : c.mbr) = parse_u32(args[1], What{"", group ? "group handle" : "member handle", ""});
  p4_pd_entry_hdl_t entry = 0;
  c.entry_out = &entry;
  p4_pd_status_t st = (group ? d->default_group : d->default_member)(c);
  if (st) driver_error(function_name(d, group ? "_set_default_entry_with_selector" : "_set_default_entry"), st);
  changed(d);
  out += "Default entry has been set, handle " + hex(entry) + "\n";
}

void Console::table_indirect_set_default(const Args &args, std::string &out) { indirect_default(args, false, out); }
void Console::table_indirect_set_default_with_group(const Args &args, std::string &out) {
  indirect_default(args, true, out);
}

}  // namespace cvcli
