// The reflection layer: the pipeline as text, over the descriptors of catalog_text.h. The exports
// of its families are thin entries into the text engine; nothing below this layer knows text.
#pragma once

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

template <class F>
struct FnArgs;
template <class R, class... A>
struct FnArgs<R (*)(A...)> {
  template <size_t I>
  using arg = std::remove_pointer_t<std::tuple_element_t<I, std::tuple<A...>>>;
};

// An entry read through the table's get_entry as the value text of an entry from the driver; 0,
// with the buffer untouched, when the reading fails.
template <const TextTable &X, auto GetEntry>
int table_value(const char *function, p4_pd_sess_hdl_t sess, uint8_t dev, p4_pd_entry_hdl_t ent, uint8_t hw,
                char *buf) {
  using Args = FnArgs<decltype(GetEntry)>;
  uint32_t priority = 0;
  uint8_t is_default = 0;
  EntryAction a;
  p4_pd_status_t st;
  if constexpr (X.nfields == 0) {
    char name[128];
    p4_pd_corvin_switch_action_spec_t spec;
    p4_pd_corvin_switch_action_enum_t number = p4_pd_corvin_switch_action_enum_none;
    st = GetEntry(sess, dev, ent, hw, name, &spec.u, &number, &is_default);
    if (st != 0) return 0;
    a.number = number;
    a.params = &spec.u;
    return write_entry_value(X, function, nullptr, a, priority, buf);
  } else {
    typename Args::template arg<4> key;
    if constexpr (X.selector) {
      uint8_t has_member = 0, has_group = 0;
      uint32_t group = 0, member = 0;
      if constexpr (X.priority)
        st = GetEntry(sess, dev, ent, hw, &key, &priority, &has_member, &has_group, &group, &member, &is_default);
      else
        st = GetEntry(sess, dev, ent, hw, &key, &has_member, &has_group, &group, &member, &is_default);
      if (st != 0) return 0;
      a.bound = true;
      a.has_member = has_member != 0;
      a.has_group = has_group != 0;
      a.member = member;
      a.group = group;
    } else {
      char name[128];
      p4_pd_corvin_switch_action_spec_t spec;
      p4_pd_corvin_switch_action_enum_t number = p4_pd_corvin_switch_action_enum_none;
      if constexpr (X.priority)
        st = GetEntry(sess, dev, ent, hw, &key, &priority, name, &spec.u, &number, &is_default);
      else
        st = GetEntry(sess, dev, ent, hw, &key, name, &spec.u, &number, &is_default);
      if (st != 0) return 0;
      a.number = number;
      a.params = &spec.u;
      return write_entry_value(X, function, is_default ? nullptr : &key, a, priority, buf);
    }
    return write_entry_value(X, function, is_default ? nullptr : &key, a, priority, buf);
  }
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
