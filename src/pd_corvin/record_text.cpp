// Records as text: the value text of a key or an action (a Python literal that pairs position for
// position with its schema) and the printers' indented lines. Numbers up to 32 bits are lower-case
// hexadecimal padded to a digit per four bits of the width, the member cut to the field's slice
// mask (a parameter to its width); a 128-bit field is its 16 bytes in record order as 32
// upper-case digits, never masked; a prefix length is a 16-bit number.
#include <stdio.h>

#include <cstdint>
#include <cstring>

#include "assertion.h"
#include "reflect.h"

namespace cv::pd {
namespace {

int digits(uint16_t width) { return (width + 3) / 4; }

const uint8_t *wide_member(const void *rec, uint16_t off) { return static_cast<const uint8_t *>(rec) + off; }

// The two hexadecimal digits of every byte value, lower- or upper-case.
struct HexPairs {
  char text[512];
  explicit constexpr HexPairs(const char *alphabet) : text() {
    for (int i = 0; i < 256; ++i) {
      text[2 * i] = alphabet[i >> 4];
      text[2 * i + 1] = alphabet[i & 15];
    }
  }
};
constexpr HexPairs kLowerPairs("0123456789abcdef");
constexpr HexPairs kUpperPairs("0123456789ABCDEF");

// 32 upper-case digits of 16 bytes, first byte first, written at out without a terminator.
void wide_digits(char *out, const uint8_t *bytes) {
  for (int i = 0; i < 16; ++i) std::memcpy(out + 2 * i, kUpperPairs.text + 2 * bytes[i], 2);
}

// The printers' helper of the 128-bit form: the digits in a buffer of the library's, which the
// next call overwrites.
char g_decode[33];

const char *decode(const uint8_t *bytes) {
  wide_digits(g_decode, bytes);
  return g_decode;
}

// The value text's helper of the 128-bit form: "0x", 32 digits and ",", no terminator; 35.
int decodev(char *out, const uint8_t *bytes) {
  out[0] = '0';
  out[1] = 'x';
  wide_digits(out + 2, bytes);
  out[34] = ',';
  return 35;
}

bool is_slice(const TextField &f) { return f.width <= 32 && f.slice_lo != width_mask(f.width); }

// The value texts' own formatting, no printf: these are the texts a client reads in bulk.
int put(char *out, const char *s) {
  size_t n = std::strlen(s);
  std::memcpy(out, s, n);
  return static_cast<int>(n);
}

// "0x", the value in lower-case hexadecimal padded to d digits (1 to 8), and ",": the eight digits
// made a byte at a time from the table of pairs, and the last d of them kept.
__attribute__((always_inline)) inline int put_number(char *out, uint32_t v, int d) {
  char all[8];
  std::memcpy(all + 6, kLowerPairs.text + 2 * (v & 0xFF), 2);
  std::memcpy(all + 4, kLowerPairs.text + 2 * ((v >> 8) & 0xFF), 2);
  std::memcpy(all + 2, kLowerPairs.text + 2 * ((v >> 16) & 0xFF), 2);
  std::memcpy(all, kLowerPairs.text + 2 * (v >> 24), 2);
  out[0] = '0';
  out[1] = 'x';
  // The last d digits by copies of fixed sizes (no call for a few bytes).
  const char *from = all + 8 - d;
  char *to = out + 2;
  if (d == 8) {
    std::memcpy(to, from, 8);
  } else {
    if (d & 4) std::memcpy(to, from, 4), to += 4, from += 4;
    if (d & 2) std::memcpy(to, from, 2), to += 2, from += 2;
    if (d & 1) *to = *from;
  }
  out[2 + d] = ',';
  return d + 3;
}

// Lower-case hexadecimal without padding.
int put_hex(char *out, uint32_t v) {
  static constexpr char kDigits[] = "0123456789abcdef";
  int d = 1;
  while (d < 8 && (v >> (4 * d)) != 0) ++d;
  for (int i = d - 1; i >= 0; --i, v >>= 4) out[i] = kDigits[v & 0xF];
  return d;
}

int put_decimal(char *out, int32_t value) {
  char digits[11];
  int n = 0, len = 0;
  uint32_t v = static_cast<uint32_t>(value);
  if (value < 0) {
    out[len++] = '-';
    v = 0u - v;
  }
  do digits[n++] = static_cast<char>('0' + v % 10);
  while ((v /= 10) != 0);
  while (n > 0) out[len++] = digits[--n];
  return len;
}

}  // namespace

const TextAction *find_action(const TextAction *const *actions, uint8_t n, uint32_t number) {
  for (uint8_t i = 0; i < n; ++i)
    if (actions[i]->number == number) return actions[i];
  return nullptr;
}

// ( 0x..,0x..,),
int write_key_value(const TextTable &t, const void *rec, char *buf) {
  char *o = buf;
  *o++ = '(';
  *o++ = ' ';
  for (const TextField *f = t.fields, *end = t.fields + t.nfields; f != end; ++f) {
    if (f->width > 32) {
      o += decodev(o, wide_member(rec, f->value_off));
      if (f->match == Match::ternary) o += decodev(o, wide_member(rec, f->aux_off));
    } else {
      const uint32_t slice = static_cast<uint32_t>(f->slice_lo);
      const int d = digits(f->width);
      o += put_number(o, load_member(rec, f->value_off, f->member_bytes) & slice, d);
      if (f->match == Match::ternary) o += put_number(o, load_member(rec, f->aux_off, f->member_bytes) & slice, d);
    }
    if (f->match == Match::lpm) o += put_number(o, load_member(rec, f->aux_off, 2), 4);
  }
  *o++ = ')';
  *o++ = ',';
  *o = '\0';
  return static_cast<int>(o - buf);
}

// ('name',(0x..,)),   or, without parameters, ('name',()),
int write_action_value(const TextAction &a, const void *params, char *buf) {
  int n = put(buf, "('");
  n += put(buf + n, a.name);
  n += put(buf + n, "',(");
  for (uint8_t i = 0; i < a.nparams; ++i) {
    const TextParam &p = a.params[i];
    n += put_number(buf + n, load_member(params, p.member_off, p.member_bytes) & width_mask(p.width), digits(p.width));
  }
  n += put(buf + n, ")),");
  buf[n] = '\0';
  return n;
}

int write_entry_body(const TextTable &t, const char *function, const void *key, const EntryAction &a, char *buf) {
  int n = key ? write_key_value(t, key, buf) : put(buf, "(),");
  if (a.bound) {
    // No comma behind a binding text, and none at all without one.
    if (a.has_member || a.has_group) {
      n += put(buf + n, a.has_member ? "('setMbrHdl',(0x" : "('setGrpHdl',(0x");
      n += put_hex(buf + n, a.has_member ? a.member : a.group);
      n += put(buf + n, ",))");
    }
    return n;
  }
  const TextAction *act = find_action(t.actions, t.nactions, a.number);
  if (act == nullptr) CV_HARD_ASSERT("false && \"unknown action\"", function);
  return n + write_action_value(*act, a.params, buf + n);
}

int write_datum_value(const TextTable &t, const char *function, const void *key, const EntryAction &a, char *buf) {
  int n = put(buf, "(");
  n += write_entry_body(t, function, key, a, buf + n);
  buf[n++] = ')';
  buf[n] = '\0';
  return n;
}

int write_member_value(const TextProfile &p, const char *function, uint32_t number, const void *params, char *buf) {
  const TextAction *a = find_action(p.actions, p.nactions, number);
  if (a == nullptr) CV_HARD_ASSERT("NULL", function);
  return write_action_value(*a, params, buf);
}

int write_entry_value(const TextTable &t, const char *function, const void *key, const EntryAction &a,
                      uint32_t priority, char *buf) {
  int n = put(buf, "((");
  n += write_entry_body(t, function, key, a, buf + n);
  n += put(buf + n, "),(");
  n += put_decimal(buf + n, static_cast<int32_t>(priority));
  n += put(buf + n, ",True))");
  buf[n] = '\0';
  return n;
}

// A heading at the indent, then one line per schema tuple one column further right ("%*c " writes
// at least one character, so indent 0 gives two blanks).
int print_key(const TextTable &t, int fd, int indent, const void *rec) {
  int r = dprintf(fd, "%*sp4_pd_corvin_switch_%s_match_spec_t:\n", indent, "", t.name);
  for (uint8_t i = 0; i < t.nfields; ++i) {
    const TextField &f = t.fields[i];
    if (f.width > 32) {
      r = dprintf(fd, "%*c %s: 0x%s\n", indent, ' ', f.name, decode(wide_member(rec, f.value_off)));
      if (f.match == Match::ternary)
        r = dprintf(fd, "%*c %s_mask: 0x%s\n", indent, ' ', f.name, decode(wide_member(rec, f.aux_off)));
    } else {
      uint32_t slice = static_cast<uint32_t>(f.slice_lo);
      uint32_t v = load_member(rec, f.value_off, f.member_bytes) & slice;
      if (is_slice(f))
        r = dprintf(fd, "%*c %s mask 0x%x: 0x%0*x\n", indent, ' ', f.name, slice, digits(f.width), v);
      else
        r = dprintf(fd, "%*c %s: 0x%0*x\n", indent, ' ', f.name, digits(f.width), v);
      if (f.match == Match::ternary) {
        uint32_t m = load_member(rec, f.aux_off, f.member_bytes) & slice;
        if (is_slice(f))
          r = dprintf(fd, "%*c %s_mask mask 0x%x: 0x%0*x\n", indent, ' ', f.name, slice, digits(f.width), m);
        else
          r = dprintf(fd, "%*c %s_mask: 0x%0*x\n", indent, ' ', f.name, digits(f.width), m);
      }
    }
    if (f.match == Match::lpm) r = dprintf(fd, "%*c %s_prefix_length: 0x%04x\n", indent, ' ', f.name, load_member(rec, f.aux_off, 2));
  }
  return r;
}

int print_params(const TextAction &a, int fd, int indent, const void *params) {
  int r = 0;
  for (uint8_t i = 0; i < a.nparams; ++i) {
    const TextParam &p = a.params[i];
    r = dprintf(fd, "%*c action_%s: 0x%0*x\n", indent, ' ', p.name, digits(p.width),
                load_member(params, p.member_off, p.member_bytes) & width_mask(p.width));
  }
  return r;
}

// An action's heading and its parameters' lines.
static int print_action(const TextAction &a, int fd, int indent, const void *params) {
  int r = dprintf(fd, "%*s%s:\n", indent, "", p4_pd_corvin_switch_action_enum_to_string(
                                                   static_cast<p4_pd_corvin_switch_action_enum_t>(a.number)));
  return a.nparams ? print_params(a, fd, indent, params) : r;
}

int print_datum(const TextTable &t, const char *function, int fd, int indent, const void *key, const EntryAction &a) {
  if (t.nfields == 0)
    dprintf(fd, "%*sp4_pd_corvin_switch_%s:\n", indent, "", t.name);
  else if (key)
    print_key(t, fd, indent, key);
  if (a.bound) return 0;  // the member or group is the profile's to show
  const TextAction *act = find_action(t.actions, t.nactions, a.number);
  if (act == nullptr) CV_HARD_ASSERT("NULL", function);
  print_action(*act, fd, indent, a.params);
  return 0;
}

void print_member(const TextProfile &p, const char *function, int fd, int indent, uint32_t number,
                  const void *params) {
  const TextAction *a = find_action(p.actions, p.nactions, number);
  if (a == nullptr) CV_HARD_ASSERT("NULL", function);
  print_action(*a, fd, indent, params);
}

}  // namespace cv::pd
