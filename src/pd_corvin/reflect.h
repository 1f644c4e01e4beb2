// The reflection layer: the pipeline as text, over the descriptors of catalog_text.h. The exports
// of its families are thin entries into the text engine; nothing below this layer knows text.
#pragma once

#include "text_descriptors.h"

namespace cv::pd {

// ---- Schema texts: Python literals a client evaluates into nested tuples ----

// The key schema of a table with a key, and the schema of an action, made once each into storage
// that lives as long as the process.
const char *make_key_schema(const TextTable &t);
const char *make_action_schema(const TextAction &a);
// A table's or a profile's whole schema, written to buf; the number of characters written.
int write_table_schema(const TextTable &t, char *buf);
int write_profile_schema(const TextProfile &p, char *buf);

template <const TextTable &X>
inline const char *match_spec_schema() {
  static const char *const text = make_key_schema(X);
  return text;
}

template <const TextAction &Y>
inline const char *action_schema() {
  static const char *const text = make_action_schema(Y);
  return text;
}

template <const TextTable &X>
inline int table_schema(char *buf) {
  return write_table_schema(X, buf);
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
