// The console's engine: commands over the catalog's descriptors, run line by line against the
// device through the library, with no terminal of its own (main.cpp gives it one). Tests drive it
// directly.
#pragma once

#include <cstdint>
#include <deque>
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
  void schema(const Args &, std::string &out);
  void label(const Args &, std::string &out);
  void model_calls(const Args &, std::string &out);
  void help(const Args &, std::string &out);
  void quit(const Args &, std::string &out);

  // Names.
  const TableInfo &table(std::string_view name) const;
  const TableActionDesc &table_action(const TableInfo &t, std::string_view name, const char *family) const;
  const ActionInfo &action_info(const ActionDesc *a) const { return action_info_[a->number]; }
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
  // `adding`: table_add's parameters, which the entry's priority may follow.
  void parse_params(const TableInfo &t, const ActionDesc *a, const Args &tokens, uint8_t *record,
                    bool adding = false);
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
  std::vector<Slot> slots_;                 // scratch of the request being parsed
  std::vector<std::string_view> tokens_;    // of the line being run
  bool finished_ = false;
};

// The driver's status as its name: "BF_ALREADY_EXISTS".
std::string status_name(uint32_t status);

}  // namespace cvcli
