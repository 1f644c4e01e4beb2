// Counter labels: the key of an entry of a table with a direct counter, in words, for a reader of
// its counts ("IPv4 !bcast TCP "). A label is one fragment per key field in key order, each ending
// with a blank unless it is empty; which words each field gives is catalog data
// (catalog_labels.h, from the catalog's [[counter_label]] rows), read here by one engine.
#pragma once

#include <cstdint>

#include "reflect.h"
#include "text_descriptors.h"

extern "C" {
#include "corvin_switch/pd.h"
}

namespace cv::pd {

// How a fragment shows its field (v, m: the value and mask members; s: the slice mask of the
// field; D: the hexadecimal digits of s; F: as many ones as s has bits).
enum class LabelForm : uint8_t {
  number,       // "L 0x<v & s, D digits>"
  masked,       // nothing for m 0; "L 0x<v & s>" for m F; else "L & 0x<m> 0x<v & s>"
  flag,         // bit 0 alone: nothing for m clear, "L" if v & m set, else "!L"
  named,        // where m & mask_and is not 0, the text of v & m & mask_and if it has one; else masked
  v4_ternary,   // p4_pd_corvin_switch__print_v4addr_ternary
  v6_exact,     // p4_pd_corvin_switch__print_v6addr_exact: no blank at the end
  v6_ternary,   // p4_pd_corvin_switch__print_v6addr_ternary, the whole 16 bytes of each
  mac_ternary,  // p4_pd_corvin_switch__print_mac_ternary over the field (OUI) and the station half
  hidden,       // nothing
};

// A value of a named field with a text of its own, given whole with its blanks.
struct LabelName {
  uint32_t value;
  const char *text;
};

struct LabelFragment {
  LabelForm form;
  const TextField *field;
  const TextField *station;  // mac_ternary: the station half; null otherwise
  const char *label;         // the leading words; null for a hidden field
  uint32_t mask_and;         // named: the mask bits that let a name apply
  uint8_t nnames;
  const LabelName *names;
};

struct CounterLabel {
  uint8_t nfragments;
  const LabelFragment *fragments;
};

// The label of a key record at buf, NUL-terminated unless empty; its length. An empty label
// writes nothing at all.
int write_counter_label(const CounterLabel &l, const void *key, char *buf);

template <const CounterLabel &L>
inline int match_spec_stringify_for_counter(const void *key, char *buf) {
  return write_counter_label(L, key, buf);
}

// The label of an entry's key as the device holds it, read through the table's get_entry; 0 when
// the reading fails. The entry's action is read and not used.
template <const TextTable &X, const CounterLabel &L, auto GetEntry>
int stringify_counter_match_spec(p4_pd_sess_hdl_t sess, uint8_t dev, p4_pd_entry_hdl_t ent, char *buf) {
  EntryOf<X, GetEntry, 4> e;
  if (read_entry<X, GetEntry>(sess, dev, ent, 1, e) != 0) return 0;
  return write_counter_label(L, &e.key, buf);
}

}  // namespace cv::pd
