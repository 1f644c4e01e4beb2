// The console's engine: commands over the catalog's descriptors, run line by line against the
// device through the library, with no terminal of its own (main.cpp gives it one). Tests drive it
// directly.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "cli_catalog.h"
#include "values.h"

namespace cvcli {

struct Options {
  p4_pd_sess_hdl_t session = 0;
  uint32_t device = 0;
  uint32_t pipe = PD_DEV_PIPE_ALL;
  bool recording = true;  // the driver model records calls (model_calls)
};

class Console {
 public:
  explicit Console(const Options &options = Options());
  ~Console();
  Console(const Console &) = delete;
  Console &operator=(const Console &) = delete;

  // Runs one line. Output is appended to `out`. A refusal returns false with its one line, without
  // a newline, in `err`; it changed nothing on the device, and `out` is as it was.
  bool execute(std::string_view line, std::string &out, std::string &err);

  // The completions of the word that ends the text before the cursor: whole words (a field or
  // parameter name with its "="), sorted.
  std::vector<std::string> complete(std::string_view before_cursor) const;

  // Whether a quit or exit command has run.
  bool finished() const { return finished_; }

  std::vector<std::string> command_names() const;

 private:
  struct Command;
  using Args = std::vector<std::string_view>;
  static const std::vector<Command> &commands();

  // A key field or parameter as people give it: one record member, or a MAC pair of two.
  struct Position {
    std::string_view name;
    int field;        // the field or parameter (the OUI half of a pair)
    int station;      // the station half of a pair, or -1
  };
  enum class Role : uint8_t { value, mask, prefix };
  // A column of the key's schema text: a field's value, mask or prefix length.
  struct Column {
    std::string_view name;
    int field;
    Role role;
  };
  // What a name given as NAME=VALUE stands for: a column, or a MAC pair (by its position).
  struct Target {
    bool pair;
    int index;
  };
  // The names of a key's or an action's values as people give them.
  struct ValueNames {
    std::vector<Position> positions;  // the order the values are taken in
    std::unordered_map<std::string_view, Target> names;
    std::vector<std::string> name_list;    // every name, for nearest names
    std::vector<std::string> completions;  // the names people type
  };
  struct TableInfo : ValueNames {  // Target.index: the column, or the position of a MAC pair
    const TableDesc *d = nullptr;
    std::vector<Column> columns;    // schema order
    std::vector<int> value_column;  // per field
    std::unordered_map<std::string_view, int> actions;  // name: index in d->actions
  };
  struct ActionInfo : ValueNames {  // Target.index: the parameter, or the position of a MAC pair
    const ActionDesc *d = nullptr;
  };
  // The words of a request's refusals: what a name is ("key field"), what a value by position is
  // ("key value") and what a value by name is ("field").
  struct ValueNouns {
    const char *name;
    const char *positional;
    const char *named;
  };
  // One value given for a column or parameter.
  struct Slot {
    bool set = false;
    U128 value;
    std::string_view given;
  };
  // An entry read back through its value text.
  struct Entry {
    uint32_t handle = 0;
    bool is_default = false;
    std::vector<U128> key;
    std::string action;
    std::vector<U128> params;
    int64_t priority = 0;
    bool bound = false, has_member = false, has_group = false;
    uint32_t member = 0, group = 0;
  };

  // Commands.
  void show_tables(const Args &, std::string &out);
  void show_actions(const Args &, std::string &out);
  void table_info(const Args &, std::string &out);
  void table_show_actions(const Args &, std::string &out);
  void table_add(const Args &, std::string &out);
  void table_modify(const Args &, std::string &out);
  void table_delete(const Args &, std::string &out);
  void table_set_default(const Args &, std::string &out);
  void table_reset_default(const Args &, std::string &out);
  void table_num_entries(const Args &, std::string &out);
  void table_dump(const Args &, std::string &out);
  void table_dump_entry(const Args &, std::string &out);
  void table_clear(const Args &, std::string &out);
  void table_dump_entry_from_key(const Args &, std::string &out);
  void table_indirect_add(const Args &, std::string &out);
  void table_indirect_add_with_group(const Args &, std::string &out);
  void table_indirect_set_default(const Args &, std::string &out);
  void table_indirect_set_default_with_group(const Args &, std::string &out);
  void act_prof_info(const Args &, std::string &out);
  void act_prof_create_member(const Args &, std::string &out);
  void act_prof_modify_member(const Args &, std::string &out);
  void act_prof_delete_member(const Args &, std::string &out);
  void act_prof_create_group(const Args &, std::string &out);
  void act_prof_delete_group(const Args &, std::string &out);
  void act_prof_add_member_to_group(const Args &, std::string &out);
  void act_prof_remove_member_from_group(const Args &, std::string &out);
  void act_prof_dump(const Args &, std::string &out);
  void show_resources(const Args &, std::string &out);
  void counter_read(const Args &, std::string &out);
  void counter_write(const Args &, std::string &out);
  void meter_set_rates(const Args &, std::string &out);
  void meter_get_rates(const Args &, std::string &out);
  void register_read(const Args &, std::string &out);
  void register_write(const Args &, std::string &out);
  void register_reset(const Args &, std::string &out);
  void hash_calc(const Args &, std::string &out);
  void pvs_add(const Args &, std::string &out);
  void pvs_dump(const Args &, std::string &out);
  void digest_show(const Args &, std::string &out);
  void schema(const Args &, std::string &out);
  void label(const Args &, std::string &out);
  void check(const Args &, std::string &out);
  void model_traffic(const Args &, std::string &out);
  void model_advance_clock(const Args &, std::string &out);
  void model_learn(const Args &, std::string &out);
  void model_flip(const Args &, std::string &out);
  void model_calls(const Args &, std::string &out);
  void help(const Args &, std::string &out);
  void quit(const Args &, std::string &out);

  // Names.
  const TableInfo &table(std::string_view name) const;
  const TableActionDesc &table_action(const TableInfo &t, std::string_view name, const char *family) const;
  const ActionInfo &action_info(const ActionDesc *a) const { return action_info_[a->number]; }
  const ProfileDesc &profile(std::string_view name) const;
  const ProfileActionDesc &profile_action(const ProfileDesc &p, std::string_view name) const;
  const CounterDesc &counter(std::string_view name) const;
  const MeterDesc &meter(std::string_view name) const;
  const RegisterDesc &register_desc(std::string_view name) const;
  const ValueSetDesc &value_set(std::string_view name) const;
  const HashDesc &hash(std::string_view name) const;
  const DigestDesc &digest(std::string_view name) const;
  // A resource's cell: an entry handle of its table for a direct one, else an index.
  void resource_cell(bool direct, std::string_view text, Call *c) const;
  void positions_of(std::vector<Position> *out, int n, const char *const *names, const char *const *hints,
                    const uint16_t *widths);

  // Requests: records filled from what was typed; a refusal throws Error before any call.
  void parse_key(const TableInfo &t, const Args &tokens, uint8_t *record);
  // Each value token with what it stands for: by NAME=VALUE its name's target, otherwise the next
  // position's, given by `positional(position, index)`; values by position come first. `surplus`
  // gives the refusal of a value past the last position. Calls `on(name, value, target)`.
  template <class Where, class Positional, class Surplus, class On>
  static void walk_values(const ValueNames &n, const Args &tokens, const ValueNouns &nouns, Where where,
                          Positional positional, Surplus surplus, On on);
  // Sets slot i to v, as given by `given`; a second value for it is refused, naming it.
  void put_slot(size_t i, const U128 &v, std::string_view given, const std::string &where, std::string_view name);
  // The parameters of an action of `owner` ("table l2Lookup", "action profile ..."). `adding`: the
  // table whose entry's priority may follow the parameters (table_add).
  void parse_params(const std::string &owner, const ActionDesc *a, const Args &tokens, uint8_t *record,
                    const TableDesc *adding = nullptr);
  // table_add's and table_indirect_add's tail: the priority, by priority=N or a last bare value
  // past `positions` values; removed from `params`.
  std::string_view take_priority(const TableDesc *d, Args *params, size_t positions) const;
  // An entry bound to a member or a group: table_indirect_add(_with_group).
  void indirect_add(const Args &args, bool group, std::string &out);
  void indirect_default(const Args &args, bool group, std::string &out);
  // The members of a profile and the groups of its selector, with their members.
  std::vector<uint32_t> member_handles(const ProfileDesc &p) const;
  std::vector<uint32_t> group_handles(const ProfileDesc &p) const;
  std::vector<uint32_t> group_members(const ProfileDesc &p, uint32_t group) const;
  std::string describe_member(const ProfileDesc &p, uint32_t member) const;
  // The action and parameters of a tagged action record: "name(param=value, ...)".
  std::string describe_action(const ActionDesc *a, const uint8_t *record) const;
  Call base_call() const;
  [[noreturn]] void driver_error(const std::string &function, p4_pd_status_t status) const;
  std::string function_name(const TableDesc *t, const char *family, const ActionDesc *a = nullptr) const;

  // Reading back.
  std::vector<uint32_t> entry_handles(const TableInfo &t) const;
  bool read_entry(const TableInfo &t, uint32_t handle, Entry *e) const;
  bool read_default(const TableInfo &t, Entry *e) const;
  std::string describe(const TableInfo &t, const Entry &e) const;

  Options options_;
  const CatalogDesc &cat_;
  std::deque<std::string> arena_;  // names made here (MAC pair stems), which the maps point into
  std::vector<TableInfo> tables_;
  std::vector<ActionInfo> action_info_;  // by action number
  std::unordered_map<std::string_view, const TableInfo *> table_names_;
  std::unordered_map<std::string_view, const ActionDesc *> action_names_;
  std::unordered_map<std::string_view, const ProfileDesc *> profile_names_;
  std::vector<std::string> table_list_;
  std::unordered_map<std::string_view, const Command *> commands_;
  std::unordered_map<std::string_view, const CounterDesc *> counter_names_;
  std::unordered_map<std::string_view, const MeterDesc *> meter_names_;
  std::unordered_map<std::string_view, const RegisterDesc *> register_names_;
  std::unordered_map<std::string_view, const ValueSetDesc *> value_set_names_;
  std::unordered_map<std::string_view, const HashDesc *> hash_names_;
  std::unordered_map<std::string_view, const DigestDesc *> digest_names_;
  // Placement data the console keeps of the tables it changed (check): each table's list as the
  // library gave it after the console's last change, taken again when stale.
  struct Kept {
    void *list = nullptr;
    bool stale = false;
  };
  std::unordered_map<const TableDesc *, Kept> kept_;
  void changed(const TableDesc *d);           // after a change of the console's own
  void keep(const TableDesc *d, Kept *k);     // takes the table's list again
  void keep_stale();
  // Learning digests delivered and not yet shown (digest_show), per digest.
  struct Delivered {
    std::vector<std::vector<uint8_t>> records;
  };
  std::vector<Delivered> delivered_;
  static int on_digest(p4_pd_sess_hdl_t sess, p4_pd_digest_msg_t *msg, void *cookie);
  std::vector<Slot> slots_;                 // scratch of the request being parsed
  std::vector<std::string_view> tokens_;    // of the line being run
  std::deque<std::string> expanded_;        // ... with the handles kept by name put in
  std::map<std::string, std::string> handles_;  // $NAME: the handle a command printed
  bool finished_ = false;
};

// Declares to the driver model what its resource functions serve: the indirect counters, meters
// and registers with 4096 cells, the direct meters, the digests, the value sets (256 entries of 32
// bits) and the hashes with their algorithms. Once after each drvm_reset, before a Console.
void prepare_model(const CatalogDesc &cat);

// The driver's status as its name: "BF_ALREADY_EXISTS".
std::string status_name(uint32_t status);

}  // namespace cvcli
