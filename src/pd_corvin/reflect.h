// The reflection layer: the pipeline as text, over the descriptors of catalog_text.h. The exports
// of its families are thin entries into the text engine; nothing below this layer knows text.
#pragma once

#include <stdio.h>

#include <cstddef>
#include <tuple>
#include <type_traits>

#include "text_descriptors.h"

extern "C" {
#include "corvin_switch/pd.h"
}

namespace cv::pd {

// ---- Schema texts: Python literals a client evaluates into nested tuples ----

// The key schema of a table with a key, and the schema of an action, made once each into storage
// that lives as long as the process (an action's on every call after its first gives the same text).
const char *make_key_schema(const TextTable &t);
const char *make_action_schema(const TextAction &a);
// A table's or a profile's whole schema, joined from its key literal (null for a keyless table)
// and its actions' literals into buf; the number of characters written.
int write_table_schema(const TextTable &t, const char *key, char *buf);
int write_profile_schema(const TextProfile &p, char *buf);

template <const TextTable &X>
inline const char *match_spec_schema() {
  static const char *const text = make_key_schema(X);
  return text;
}

template <const TextAction &Y>
inline const char *action_schema() {
  return make_action_schema(Y);
}

template <const TextTable &X>
inline int table_schema(char *buf) {
  if constexpr (X.nfields > 0)
    return write_table_schema(X, match_spec_schema<X>(), buf);
  else
    return write_table_schema(X, nullptr, buf);
}

template <const TextProfile &Z>
inline int profile_schema(char *buf) {
  return write_profile_schema(Z, buf);
}

// The action of that number among a table's or a profile's; null if none.
const TextAction *find_action(const TextAction *const *actions, uint8_t n, uint32_t number);

// ---- Value texts: one record as a Python literal, position for position with its schema ----

int write_key_value(const TextTable &t, const void *rec, char *buf);
int write_action_value(const TextAction &a, const void *params, char *buf);

template <const TextTable &X>
inline int match_spec_value(const void *rec, char *buf) {
  return write_key_value(X, rec, buf);
}

template <const TextAction &Y>
inline int action_value(const void *params, char *buf) {
  return write_action_value(Y, params, buf);
}

// ---- Entry texts ----

// What an entry does, as a reading gave it: an action with its parameters, or, in a table of a
// selector's profile, the member or group it is bound to (or neither).
struct EntryAction {
  uint32_t number = 0;  // action number
  const void *params = nullptr;
  bool bound = false;  // a selector's table: the fields below stand for the action
  bool has_member = false;
  bool has_group = false;
  uint32_t member = 0;
  uint32_t group = 0;
};

// The key text (or "()," for a null key: a default entry or a keyless table), then the action text
// or the binding text, at buf; the number of characters written, no terminator. An action the
// table does not have ends the process.
int write_entry_body(const TextTable &t, const char *function, const void *key, const EntryAction &a, char *buf);
// ((<body>),(<priority>,True)) and the terminator; the length.
int write_entry_value(const TextTable &t, const char *function, const void *key, const EntryAction &a,
                      uint32_t priority, char *buf);

// (<body>) and the terminator, the entry text of a placement datum; the length.
int write_datum_value(const TextTable &t, const char *function, const void *key, const EntryAction &a, char *buf);

template <class F>
struct FnArgs;
template <class R, class... A>
struct FnArgs<R (*)(A...)> {
  template <size_t I>
  using arg = std::remove_pointer_t<std::tuple_element_t<I, std::tuple<A...>>>;
};

struct NoKey {};

// One entry as a reading or a placement datum gave it.
template <class Key>
struct Entry {
  Key key;
  uint32_t priority = 0;
  uint8_t is_default = 0;
  p4_pd_corvin_switch_action_spec_t spec;
  EntryAction action;

  const void *key_or_null(const TextTable &t) const { return is_default || t.nfields == 0 ? nullptr : &key; }
};

// The entry of a table's function whose key pointer is argument I (NoKey for a keyless table).
template <const TextTable &X, auto Fn, size_t I>
using EntryOf = Entry<std::conditional_t<X.nfields == 0, NoKey, typename FnArgs<decltype(Fn)>::template arg<I>>>;

// Reads an entry through the table's get_entry; its status.
template <const TextTable &X, auto GetEntry>
p4_pd_status_t read_entry(p4_pd_sess_hdl_t sess, uint8_t dev, p4_pd_entry_hdl_t ent, uint8_t hw,
                          EntryOf<X, GetEntry, 4> &e) {
  p4_pd_status_t st;
  if constexpr (X.selector) {
    uint8_t has_member = 0, has_group = 0;
    if constexpr (X.priority)
      st = GetEntry(sess, dev, ent, hw, &e.key, &e.priority, &has_member, &has_group, &e.action.group,
                    &e.action.member, &e.is_default);
    else
      st = GetEntry(sess, dev, ent, hw, &e.key, &has_member, &has_group, &e.action.group, &e.action.member,
                    &e.is_default);
    e.action.bound = true;
    e.action.has_member = has_member != 0;
    e.action.has_group = has_group != 0;
  } else {
    char name[128];
    p4_pd_corvin_switch_action_enum_t number = p4_pd_corvin_switch_action_enum_none;
    if constexpr (X.nfields == 0)
      st = GetEntry(sess, dev, ent, hw, name, &e.spec.u, &number, &e.is_default);
    else if constexpr (X.priority)
      st = GetEntry(sess, dev, ent, hw, &e.key, &e.priority, name, &e.spec.u, &number, &e.is_default);
    else
      st = GetEntry(sess, dev, ent, hw, &e.key, name, &e.spec.u, &number, &e.is_default);
    e.action.number = number;
    e.action.params = &e.spec.u;
  }
  return st;
}

// Decodes a placement datum through the table's decoder; its status.
template <const TextTable &X, auto Decode>
p4_pd_status_t decode_entry(void *datum, EntryOf<X, Decode, 1> &e) {
  p4_pd_status_t st;
  if constexpr (X.selector) {
    uint8_t has_member = 0, has_group = 0;
    if constexpr (X.priority)
      st = Decode(datum, &e.key, &e.priority, &e.action.member, &e.action.group, &has_member, &has_group,
                  &e.is_default);
    else
      st = Decode(datum, &e.key, &e.action.member, &e.action.group, &has_member, &has_group, &e.is_default);
    e.action.bound = true;
    e.action.has_member = has_member != 0;
    e.action.has_group = has_group != 0;
  } else {
    if constexpr (X.nfields == 0)
      st = Decode(datum, &e.spec, &e.is_default);
    else if constexpr (X.priority)
      st = Decode(datum, &e.key, &e.priority, &e.spec, &e.is_default);
    else
      st = Decode(datum, &e.key, &e.spec, &e.is_default);
    if (st != 0) return st;  // the record is as it was: uninitialised
    e.action.number = e.spec.name;
    e.action.params = &e.spec.u;
  }
  return st;
}

// An entry read through the table's get_entry as the value text of an entry from the driver; 0,
// with the buffer untouched, when the reading fails.
template <const TextTable &X, auto GetEntry>
int table_value(const char *function, p4_pd_sess_hdl_t sess, uint8_t dev, p4_pd_entry_hdl_t ent, uint8_t hw,
                char *buf) {
  EntryOf<X, GetEntry, 4> e;
  if (read_entry<X, GetEntry>(sess, dev, ent, hw, e) != 0) return 0;
  return write_entry_value(X, function, e.key_or_null(X), e.action, e.priority, buf);
}

// ---- Placement data as text ----

// A datum decoded by the table's decoder as the entry text of a placement datum; 0, with the
// buffer untouched, when decoding fails.
template <const TextTable &X, auto Decode>
int plcmt_data_value(const char *function, void *datum, char *buf) {
  EntryOf<X, Decode, 1> e;
  if (decode_entry<X, Decode>(datum, e) != 0) return 0;
  return write_datum_value(X, function, e.key_or_null(X), e.action, buf);
}

// The lines of a decoded datum: the key (none for a default entry; the table's heading for a
// keyless one), then the action's heading and parameters (none for a table of a profile). The
// decoding's status; a failure is told at column 0.
int print_datum(const TextTable &t, const char *function, int fd, int indent, const void *key, const EntryAction &a);

template <const TextTable &X, auto Decode>
int plcmt_data_print(const char *function, int fd, int indent, void *datum) {
  EntryOf<X, Decode, 1> e;
  p4_pd_status_t st = decode_entry<X, Decode>(datum, e);
  if (st != 0) {
    dprintf(fd, "cannot decode plcmt_data for p4_pd_corvin_switch_%s\n", X.name);
    return static_cast<int>(st);
  }
  return print_datum(X, function, fd, indent, e.key_or_null(X), e.action);
}

// A member's datum as its action text, and as lines; an action the profile does not have ends the
// process.
int write_member_value(const TextProfile &p, const char *function, uint32_t number, const void *params, char *buf);
void print_member(const TextProfile &p, const char *function, int fd, int indent, uint32_t number,
                  const void *params);

template <const TextProfile &Z, auto Decode>
int profile_plcmt_data_value(const char *function, void *datum, char *buf) {
  p4_pd_corvin_switch_action_spec_t spec;
  if (Decode(datum, &spec) != 0) return 0;
  return write_member_value(Z, function, spec.name, &spec.u, buf);
}

template <const TextProfile &Z, auto Decode>
int adt_plcmt_data_print(const char *function, int fd, int indent, void *datum) {
  p4_pd_corvin_switch_action_spec_t spec;
  p4_pd_status_t st = Decode(datum, &spec);
  if (st != 0) {
    dprintf(fd, "cannot decode plcmt_data for %s\n", function);
    return static_cast<int>(st);
  }
  print_member(Z, function, fd, indent, spec.name, &spec.u);
  return 0;
}

// ---- Hardware agreement: a datum against the entry the device holds now ----

// 1 when the two entries agree by the table's rules, else 0 with the first difference in buf.
int entries_agree(const TextTable &t, const char *function, const void *pd_key, const void *hw_key, uint8_t pd_default,
                  uint8_t hw_default, const EntryAction &pd, const EntryAction &hw, char *buf);
[[noreturn]] void undecodable_datum(const TextTable &t, const char *function);

template <const TextTable &X, auto Decode, auto GetEntry>
int plcmt_data_eq_to_hw(const char *function, p4_pd_sess_hdl_t sess, uint8_t dev, uint32_t, p4_pd_entry_hdl_t ent,
                        void *datum, char *buf) {
  EntryOf<X, Decode, 1> pd;
  if (decode_entry<X, Decode>(datum, pd) != 0) undecodable_datum(X, function);
  EntryOf<X, GetEntry, 4> hw;
  if (read_entry<X, GetEntry>(sess, dev, ent, 1, hw) != 0) {
    sprintf(buf, "p4_pd_corvin_switch_%s_get_entry failed", X.name);
    return 0;
  }
  return entries_agree(X, function, &pd.key, &hw.key, pd.is_default, hw.is_default, pd.action, hw.action, buf);
}

// ---- Comparisons: 1 for equal, 0 for different with the first difference's text in buf ----

int keys_equal(const TextTable &t, const void *a, const void *b, char *buf);
int params_equal(const TextAction &act, const void *a, const void *b, char *buf);

template <const TextTable &X>
inline int match_specs_are_equal(const void *a, const void *b, char *buf) {
  return keys_equal(X, a, b, buf);
}

template <const TextAction &Y>
inline int action_specs_are_equal(const void *a, const void *b, char *buf) {
  return params_equal(Y, a, b, buf);
}

// ---- Printers: one record as indented lines on a descriptor; the last dprintf's result ----

int print_key(const TextTable &t, int fd, int indent, const void *rec);
int print_params(const TextAction &a, int fd, int indent, const void *params);

template <const TextTable &X>
inline int match_spec_print(int fd, int indent, const void *rec) {
  return print_key(X, fd, indent, rec);
}

template <const TextAction &Y>
inline int action_print(int fd, int indent, const void *params) {
  return print_params(Y, fd, indent, params);
}

}  // namespace cv::pd
