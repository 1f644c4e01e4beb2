// The text layers on arbitrary records: value texts, printers, comparisons, counter labels and
// schema texts. Each text is written into a buffer of exactly the size its bound allows, so that
// AddressSanitizer sees any write past it, and the bytes behind the terminator must keep their fill.
// Every value text must read as a Python literal of the shape its schema text gives, with the
// numbers of the record; the schema texts themselves are read the same way and held against the
// record layouts. Printers are read back from a memory file and compared line by line with what
// the schema and the record say; comparisons with the first difference by the schema.
//
// Input: a mode byte, a row index (16 bits), then the records' bytes and numbers each mode reads.
#include <arpa/inet.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "pylit.h"
#include "ref_codec.h"

namespace {

using namespace fz;
using py::u128;

// Bounds of the texts: the longest value text with its terminator, and the longest schema text.
constexpr size_t kValueTextBytes = 346;
constexpr size_t kSchemaTextBytes = 3028;

// ---- The schema texts, read once ----

struct KeyTuple {
  std::string name;
  unsigned width;
  u128 slice;
  const Member *member;
};

struct ParamTuple {
  std::string name;
  unsigned width;
  const Param *param;
};

struct ActionSchema {
  std::vector<ParamTuple> params;
};

struct TableSchema {
  bool selector = false;
  std::vector<KeyTuple> key;
  std::vector<std::string> actions;
  size_t compare_bound = 0;  // the longest difference text of a key comparison, and its terminator
};

std::vector<TableSchema> g_tables;    // by table index
std::vector<ActionSchema> g_actions;  // by action number
std::vector<size_t> g_action_compare_bound;
std::vector<std::string> g_table_texts, g_profile_texts;
int g_memfd = -1;

struct Pair {
  const Table *table;
  const TableAction *action;
};
std::vector<Pair> g_entry_pairs, g_default_pairs;
std::vector<const Table *> g_keyed, g_labelled, g_bound;

py::Value parse_or_die(const char *text, size_t n, const char *what) {
  py::Value v;
  std::string why;
  FZ_CHECK(py::parse(text, n, &v, &why), "%s is no Python literal (%s): %.*s", what, why.c_str(), static_cast<int>(n),
           text);
  return v;
}

bool is_str(const py::Value &v, const char *s = nullptr) {
  return v.type == py::Value::string && (s == nullptr || v.text == s);
}

unsigned small_int(const py::Value &v, const char *what) {
  FZ_CHECK(v.is_int() && !v.negative && v.magnitude <= 128, "%s: not a width: %s", what, py::show(v).c_str());
  return static_cast<unsigned>(v.magnitude);
}

size_t hex_len(u128 v) {
  size_t d = 1;
  while (d < 32 && (v >> (4 * d)) != 0) ++d;
  return d;
}

u128 full(unsigned width) { return width >= 128 ? ~static_cast<u128>(0) : (static_cast<u128>(1) << width) - 1; }

// An action schema: ( ('name'),( (param tuple), ... ) ), each parameter ('name',hint,width,None).
ActionSchema read_action_schema(const py::Value &v, const Action &a) {
  FZ_CHECK(v.is_tuple(2) && is_str(v.items[0], a.name) && v.items[1].type == py::Value::tuple,
           "action schema of %s: %s", a.name, py::show(v).c_str());
  const auto &ps = v.items[1].items;
  FZ_CHECK(ps.size() == a.nparams, "action schema of %s: %zu parameters, the record has %u", a.name, ps.size(), a.nparams);
  ActionSchema s;
  for (size_t i = 0; i < ps.size(); ++i) {
    const py::Value &p = ps[i];
    FZ_CHECK(p.is_tuple(4) && is_str(p.items[0]) && (is_str(p.items[1]) || p.items[1].type == py::Value::none) &&
                 p.items[3].type == py::Value::none,
             "action schema of %s: parameter %s", a.name, py::show(p).c_str());
    unsigned w = small_int(p.items[2], a.name);
    FZ_CHECK(p.items[0].text == a.params[i].name && w == a.params[i].width && w >= 1 && w <= 32,
             "action schema of %s: parameter %zu is %s/%u, the record's %s/%u", a.name, i, p.items[0].text.c_str(), w,
             a.params[i].name, a.params[i].width);
    s.params.push_back({p.items[0].text, w, &a.params[i]});
  }
  return s;
}

const Member *member_named(const Table &t, const std::string &name) {
  for (uint8_t i = 0; i < t.nmembers; ++i)
    if (t.members[i].name && name == t.members[i].name) return &t.members[i];
  return nullptr;
}

TableSchema read_table_schema(const Table &t, const std::string &text) {
  py::Value v = parse_or_die(text.data(), text.size(), t.name);
  TableSchema s;
  FZ_CHECK(v.is_tuple(3), "schema of %s: not three parts", t.name);
  const py::Value &head = v.items[0];
  FZ_CHECK(head.is_tuple(3) && is_str(head.items[0], t.name) && is_str(head.items[1], "mat") && head.items[2].is_tuple(1) &&
               (head.items[2].items[0].type == py::Value::true_ || head.items[2].items[0].type == py::Value::false_),
           "schema of %s: head %s", t.name, py::show(head).c_str());
  s.selector = head.items[2].items[0].type == py::Value::true_;
  FZ_CHECK(s.selector == (t.profile != nullptr), "schema of %s: selector flag", t.name);
  const py::Value &key = v.items[1];
  FZ_CHECK(key.type == py::Value::tuple, "schema of %s: key", t.name);
  size_t members = 0;
  for (uint8_t i = 0; i < t.nmembers; ++i) members += t.members[i].name != nullptr;
  FZ_CHECK(key.items.size() == members, "schema of %s: %zu key tuples for %zu record members", t.name, key.items.size(),
           members);
  size_t bound = 1;
  for (const py::Value &k : key.items) {
    FZ_CHECK(k.is_tuple(7) && is_str(k.items[0]) && is_str(k.items[1]) && k.items[3].is_int() && !k.items[3].negative &&
                 (is_str(k.items[4]) || k.items[4].type == py::Value::none) && k.items[5].type == py::Value::none &&
                 k.items[6].type == py::Value::none,
             "schema of %s: key tuple %s", t.name, py::show(k).c_str());
    KeyTuple kt{k.items[1].text, small_int(k.items[2], t.name), k.items[3].magnitude, member_named(t, k.items[1].text)};
    FZ_CHECK(kt.member != nullptr, "schema of %s: %s names no member of the key record", t.name, kt.name.c_str());
    FZ_CHECK((kt.width <= 32 && kt.member->size == (kt.width <= 8 ? 1u : kt.width <= 16 ? 2u : 4u)) ||
                 (kt.member->size == 16 && kt.width == 128) || (kt.width <= 32 && kt.member->size >= (kt.width + 7) / 8),
             "schema of %s: %s of width %u in a member of %u bytes", t.name, kt.name.c_str(), kt.width, kt.member->size);
    FZ_CHECK(kt.slice != 0 && (kt.slice & ~full(kt.width)) == 0, "schema of %s: slice of %s", t.name, kt.name.c_str());
    size_t text = kt.width > 32 ? std::strlen("mspec ") + kt.name.size() + std::strlen(" differs")
                                : std::strlen("mspec ") + kt.name.size() + std::strlen(" differs 0x") +
                                      hex_len(kt.slice) + std::strlen(" vs 0x") + hex_len(kt.slice);
    bound = std::max(bound, text + 1);
    s.key.push_back(kt);
  }
  s.compare_bound = bound;
  const py::Value &acts = v.items[2];
  if (s.selector) {
    static const char kTail[] =
        "( ('setMbrHdl',(('mbrHdl',None,32,None),)),( 'setGrpHdl', ( ( 'grpHdl', None, 32, None ), ) ) )";
    py::Value tail = parse_or_die(kTail, sizeof kTail - 1, "the selector tail");
    FZ_CHECK(py::show(acts) == py::show(tail), "schema of %s: selector tail %s", t.name, py::show(acts).c_str());
    return s;
  }
  FZ_CHECK(acts.type == py::Value::tuple && acts.items.size() == t.nactions, "schema of %s: %zu actions, the table has %u",
           t.name, acts.items.size(), t.nactions);
  for (const py::Value &a : acts.items) {
    FZ_CHECK(a.is_tuple(2) && is_str(a.items[0]), "schema of %s: action %s", t.name, py::show(a).c_str());
    const TableAction *ta = nullptr;
    for (uint8_t i = 0; i < t.nactions; ++i)
      if (a.items[0].text == t.actions[i].action->name) ta = &t.actions[i];
    FZ_CHECK(ta != nullptr, "schema of %s: action %s is not the table's", t.name, a.items[0].text.c_str());
    read_action_schema(a, *ta->action);
    FZ_CHECK(s.actions.empty() || s.actions.back() < a.items[0].text, "schema of %s: actions out of byte order", t.name);
    s.actions.push_back(a.items[0].text);
  }
  return s;
}

// ---- Numbers of value texts ----

u128 member_number(const uint8_t *rec, const Member &m) {
  if (m.size == 16) {
    u128 v = 0;
    for (int i = 0; i < 16; ++i) v = v << 8 | rec[m.off + i];
    return v;
  }
  return load(rec, m.off, static_cast<uint8_t>(m.size));
}

// A key text's number: the member cut to its slice (a 128-bit one whole), with a digit per four
// bits of the width.
void check_key_number(const py::Value &v, const KeyTuple &k, const uint8_t *rec, const char *what) {
  u128 want = member_number(rec, *k.member);
  if (k.width <= 32) want &= k.slice;
  int digits = k.width > 32 ? 32 : static_cast<int>((k.width + 3) / 4);
  FZ_CHECK(v.is_int() && !v.negative && v.magnitude == want && v.hex_digits == digits,
           "%s: %s reads %s, want 0x%llx in %d digits", what, k.name.c_str(), py::show(v).c_str(),
           static_cast<unsigned long long>(want), digits);
}

void check_key_text(const py::Value &key, const Table &t, const uint8_t *rec, const char *what) {
  const TableSchema &s = g_tables[&t - kTables];
  FZ_CHECK(key.type == py::Value::tuple && key.items.size() == s.key.size(), "%s: key %s of %zu numbers, want %zu", what,
           py::show(key).c_str(), key.items.size(), s.key.size());
  for (size_t i = 0; i < s.key.size(); ++i) check_key_number(key.items[i], s.key[i], rec, what);
}

void check_action_text(const py::Value &act, const Action &a, const uint8_t *params, const char *what) {
  const ActionSchema &s = g_actions[a.number];
  FZ_CHECK(act.is_tuple(2) && is_str(act.items[0], a.name) && act.items[1].type == py::Value::tuple &&
               act.items[1].items.size() == s.params.size(),
           "%s: action %s, want %s with %zu numbers", what, py::show(act).c_str(), a.name, s.params.size());
  for (size_t i = 0; i < s.params.size(); ++i) {
    const Param &p = *s.params[i].param;
    uint32_t want = load(params, p.off, p.member_bytes) & width_mask(s.params[i].width);
    const py::Value &v = act.items[1].items[i];
    FZ_CHECK(v.is_int() && !v.negative && v.magnitude == want && v.hex_digits == static_cast<int>((p.width + 3) / 4),
             "%s: %s.%s reads %s, want 0x%x", what, a.name, p.name, py::show(v).c_str(), want);
  }
}

// A text written into a buffer of its bound: its length as returned, terminated there, nothing
// written behind the terminator, and read as a literal.
py::Value read_text(Buffer &b, int n, const char *what) {
  FZ_CHECK(n > 0 && static_cast<size_t>(n) < b.size(), "%s: length %d in a buffer of %zu", what, n, b.size());
  FZ_CHECK(b.data()[n] == '\0' && std::strlen(b.data()) == static_cast<size_t>(n), "%s: length %d, text of %zu", what, n,
           std::strlen(b.data()));
  FZ_CHECK(b.untouched_from(static_cast<size_t>(n) + 1), "%s: written behind its terminator", what);
  return parse_or_die(b.data(), static_cast<size_t>(n), what);
}

// ---- Records from the input ----

void read_record(Input &in, uint8_t *rec, size_t n) {
  std::memset(rec, 0, kRecordMax);
  in.bytes(rec, n);
}

// ---- Modes ----

void key_value_text(Input &in) {
  const Table &t = *g_keyed[in.u16() % g_keyed.size()];
  alignas(16) uint8_t rec[kRecordMax];
  read_record(in, rec, t.record_size);
  Buffer b(kValueTextBytes);
  int n = t.key_value(rec, b.data());
  py::Value v = read_text(b, n, t.name);
  FZ_CHECK(v.is_tuple(1), "%s: the key text is no one-tuple", t.name);
  check_key_text(v.items[0], t, rec, t.name);
}

void action_value_text(Input &in) {
  const Action &a = kActions[in.u16() % kActionCount];
  alignas(16) uint8_t rec[kRecordMax];
  read_record(in, rec, a.record_size);
  Buffer b(kValueTextBytes);
  int n = a.value(rec, b.data());
  py::Value v = read_text(b, n, a.name);
  FZ_CHECK(v.is_tuple(1), "%s: the action text is no one-tuple", a.name);
  check_action_text(v.items[0], a, rec, a.name);
}

// The memory file's contents after a print.
template <class F>
std::string printed(F &&print) {
  FZ_CHECK(ftruncate(g_memfd, 0) == 0 && lseek(g_memfd, 0, SEEK_SET) == 0, "cannot reset the memory file");
  print(g_memfd);
  off_t end = lseek(g_memfd, 0, SEEK_CUR);
  std::string s(static_cast<size_t>(end), '\0');
  FZ_CHECK(pread(g_memfd, &s[0], s.size(), 0) == static_cast<ssize_t>(s.size()), "cannot read the memory file");
  return s;
}

std::string upper_hex(const uint8_t *p, size_t n) {
  std::string s = hex(p, n);
  for (char &c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return s;
}

std::string fmt(const char *f, ...) __attribute__((format(printf, 1, 2)));
std::string fmt(const char *f, ...) {
  char buf[512];
  va_list ap;
  va_start(ap, f);
  std::vsnprintf(buf, sizeof buf, f, ap);
  va_end(ap);
  return buf;
}

// The lines a key printer must write: a heading at the indent, then a line per schema tuple, whose
// text starts with the indent's blanks (one at least) and one more.
std::string expected_key_lines(const Table &t, const uint8_t *rec, int indent) {
  std::string lead = std::string(static_cast<size_t>(std::max(indent, 1)), ' ') + " ";
  std::string want = std::string(static_cast<size_t>(indent), ' ') + "p4_pd_corvin_switch_" + t.name + "_match_spec_t:\n";
  for (const KeyTuple &k : g_tables[&t - kTables].key) {
    if (k.width > 32) {
      want += lead + k.name + ": 0x" + upper_hex(rec + k.member->off, 16) + "\n";
      continue;
    }
    uint32_t v = static_cast<uint32_t>(member_number(rec, *k.member) & k.slice);
    std::string tag = k.slice != full(k.width) ? fmt(" mask 0x%x", static_cast<uint32_t>(k.slice)) : "";
    want += lead + k.name + tag + fmt(": 0x%0*x\n", static_cast<int>((k.width + 3) / 4), v);
  }
  return want;
}

std::string expected_param_lines(const Action &a, const uint8_t *rec, int indent) {
  std::string lead = std::string(static_cast<size_t>(std::max(indent, 1)), ' ') + " ";
  std::string want;
  for (const ParamTuple &p : g_actions[a.number].params)
    want += lead + "action_" + p.name +
            fmt(": 0x%0*x\n", static_cast<int>((p.width + 3) / 4),
                load(rec, p.param->off, p.param->member_bytes) & width_mask(p.width));
  return want;
}

void printers(Input &in) {
  int indent = in.u8() % 41;
  alignas(16) uint8_t rec[kRecordMax];
  if (in.bit()) {
    const Table &t = *g_keyed[in.u16() % g_keyed.size()];
    read_record(in, rec, t.record_size);
    std::string out = printed([&](int fd) { t.key_print(fd, indent, rec); });
    std::string want = expected_key_lines(t, rec, indent);
    FZ_CHECK(out == want, "%s printed at %d:\n%s\nwant:\n%s", t.name, indent, out.c_str(), want.c_str());
  } else {
    const Action &a = kActions[in.u16() % kActionCount];
    if (!a.print) return;
    read_record(in, rec, a.record_size);
    std::string out = printed([&](int fd) { a.print(fd, indent, rec); });
    std::string want = expected_param_lines(a, rec, indent);
    FZ_CHECK(out == want, "%s printed at %d:\n%s\nwant:\n%s", a.name, indent, out.c_str(), want.c_str());
  }
}

// A second record: the first with a few bytes changed, so that equal and nearly equal records come
// often.
void mutated(Input &in, const uint8_t *a, uint8_t *b, size_t n) {
  std::memcpy(b, a, kRecordMax);
  int changes = in.u8() % 4;
  for (int i = 0; i < changes && n; ++i) {
    size_t at = in.u8() % n;
    b[at] ^= in.u8();
  }
}

void check_compare(Buffer &b, int r, const std::string &want, const char *what) {
  if (want.empty()) {
    FZ_CHECK(r == 1, "%s: different, want equal: %.120s", what, b.data());
    FZ_CHECK(b.untouched_from(0), "%s: equal records, but the text buffer was written", what);
    return;
  }
  FZ_CHECK(r == 0, "%s: equal, want different (%s)", what, want.c_str());
  FZ_CHECK(std::memchr(b.data(), 0, b.size()) && want == b.data(), "%s: text '%.120s', want '%s'", what, b.data(),
           want.c_str());
  FZ_CHECK(b.untouched_from(want.size() + 1), "%s: written behind the text", what);
}

void comparisons(Input &in) {
  alignas(16) uint8_t r1[kRecordMax], r2[kRecordMax];
  if (in.bit()) {
    const Table &t = *g_keyed[in.u16() % g_keyed.size()];
    const TableSchema &s = g_tables[&t - kTables];
    read_record(in, r1, t.record_size);
    mutated(in, r1, r2, t.record_size);
    std::string want;
    for (const KeyTuple &k : s.key) {
      u128 x = member_number(r1, *k.member), y = member_number(r2, *k.member);
      if (((x ^ y) & k.slice) == 0) continue;
      want = k.width > 32 ? "mspec " + k.name + " differs"
                          : fmt("mspec %s differs 0x%x vs 0x%x", k.name.c_str(), static_cast<uint32_t>(x & k.slice),
                                static_cast<uint32_t>(y & k.slice));
      break;
    }
    Buffer b(s.compare_bound);
    check_compare(b, t.key_equal(r1, r2, b.data()), want, t.name);
  } else {
    const Action &a = kActions[in.u16() % kActionCount];
    if (!a.equal) return;
    read_record(in, r1, a.record_size);
    mutated(in, r1, r2, a.record_size);
    std::string want;
    for (const ParamTuple &p : g_actions[a.number].params) {
      uint32_t m = width_mask(p.width);
      uint32_t x = load(r1, p.param->off, p.param->member_bytes) & m, y = load(r2, p.param->off, p.param->member_bytes) & m;
      if (x == y) continue;
      want = fmt("aspec action_%s differs 0x%x vs 0x%x", p.name.c_str(), x, y);
      break;
    }
    Buffer b(g_action_compare_bound[a.number]);
    check_compare(b, a.equal(r1, r2, b.data()), want, a.name);
  }
}

std::string v6_text(const uint8_t *a) {
  char s[INET6_ADDRSTRLEN];
  FZ_CHECK(inet_ntop(AF_INET6, a, s, sizeof s) != nullptr, "inet_ntop failed");
  return s;
}

// The address formatters, with a label of any length, into a buffer of the label, 93 more and the
// terminator.
void formatters(Input &in) {
  std::string label;
  for (int n = in.u8() % 64; n > 0; --n) label += static_cast<char>(' ' + in.u8() % 95);
  uint32_t a = in.u32(), m = in.u32(), s = in.u32(), sm = in.u32();
  uint16_t plen = in.u16();
  uint8_t v6[16], v6m[16];
  in.bytes(v6, 16);
  in.bytes(v6m, 16);
  Buffer b(label.size() + 94);
  std::string want;
  int n = 0;
  const char *l = label.c_str();
  auto quad = [](uint32_t x) { return fmt("%u.%u.%u.%u", x >> 24, (x >> 16) & 255, (x >> 8) & 255, x & 255); };
  auto mac = [](uint32_t o, uint32_t st) {
    return fmt("%02x%02x.%02x%02x.%02x%02x", (o >> 16) & 255, (o >> 8) & 255, o & 255, (st >> 16) & 255, (st >> 8) & 255,
               st & 255);
  };
  switch (in.u8() % 8) {
    case 0:
      n = p4_pd_corvin_switch__print_v4addr_exact(b.data(), l, a);
      want = label + " " + quad(a) + " ";
      break;
    case 1:
      n = p4_pd_corvin_switch__print_v4addr_lpm(b.data(), l, a, plen);
      want = label + " " + quad(a) + fmt("/%u ", plen);
      break;
    case 2: {
      n = p4_pd_corvin_switch__print_v4addr_ternary(b.data(), l, a, m);
      unsigned ones = 0;
      while (ones < 32 && (m >> (31 - ones) & 1)) ++ones;
      if (m) want = label + " " + quad(a) + fmt("/%u ", ones);
      break;
    }
    case 3:
      n = p4_pd_corvin_switch__print_v6addr_exact(b.data(), l, v6);
      want = label + " " + v6_text(v6);
      break;
    case 4:
      n = p4_pd_corvin_switch__print_v6addr_lpm(b.data(), l, v6, plen);
      want = label + " " + v6_text(v6) + fmt("/%u ", plen);
      break;
    case 5: {
      n = p4_pd_corvin_switch__print_v6addr_ternary(b.data(), l, v6, v6m);
      static const uint8_t zero[16] = {};
      if (std::memcmp(v6m, zero, 16) != 0) want = label + " " + v6_text(v6) + "/" + v6_text(v6m) + " ";
      break;
    }
    case 6:
      n = p4_pd_corvin_switch__print_mac_exact(b.data(), l, a, s);
      want = label + " " + mac(a, s) + " ";
      break;
    default: {
      n = p4_pd_corvin_switch__print_mac_ternary(b.data(), l, a, m, s, sm);
      bool all = (m & 0xFFFFFF) == 0xFFFFFF && (sm & 0xFFFFFF) == 0xFFFFFF;
      bool none = (m & 0xFFFFFF) == 0 && (sm & 0xFFFFFF) == 0;
      if (all) want = label + " " + mac(a, s) + " ";
      else if (!none) want = label + " " + mac(a, s) + "/" + mac(m, sm) + " ";
      break;
    }
  }
  FZ_CHECK(n == static_cast<int>(want.size()), "formatter: length %d, want %zu ('%s')", n, want.size(), want.c_str());
  if (n == 0) return;
  FZ_CHECK(want == b.data(), "formatter: '%s', want '%s'", b.data(), want.c_str());
  FZ_CHECK(b.untouched_from(want.size() + 1), "formatter: written behind the text");
}

// A counter label by the label grammar, from the table's fragments: with v, m the value and mask
// members of a fragment's field and s its slice, D the hexadecimal digits of s and F as many ones
// from bit 0 as s has.
std::string expected_label(const Table &t, const uint8_t *rec) {
  std::string out;
  auto quad = [](uint32_t x) { return fmt("%u.%u.%u.%u", x >> 24, (x >> 16) & 255, (x >> 8) & 255, x & 255); };
  auto mac = [](uint32_t o, uint32_t st) {
    return fmt("%02x%02x.%02x%02x.%02x%02x", (o >> 16) & 255, (o >> 8) & 255, o & 255, (st >> 16) & 255, (st >> 8) & 255,
               st & 255);
  };
  for (uint8_t i = 0; i < t.nfragments; ++i) {
    const LabelFragment &fr = t.fragments[i];
    const Field &f = t.fields[fr.field];
    if (fr.form == LabelForm::hidden) continue;
    std::string l = fr.label ? fr.label : "";
    if (fr.form == LabelForm::v6_exact || fr.form == LabelForm::v6_ternary) {
      const uint8_t *v = rec + f.value_off;
      if (fr.form == LabelForm::v6_exact) {
        out += l + " " + v6_text(v);
      } else {
        static const uint8_t zero[16] = {};
        if (std::memcmp(rec + f.aux_off, zero, 16) != 0) out += l + " " + v6_text(v) + "/" + v6_text(rec + f.aux_off) + " ";
      }
      continue;
    }
    uint32_t v = load(rec, f.value_off, f.member_bytes);
    uint32_t m = f.match == Match::ternary ? load(rec, f.aux_off, f.member_bytes) : 0;
    uint32_t sl = f.slice;
    int d = static_cast<int>(hex_len(sl));
    int ones = __builtin_popcount(sl);
    uint32_t whole = ones == 32 ? 0xFFFFFFFFu : (1u << ones) - 1;
    auto masked = [&]() -> std::string {
      if (m == 0) return "";
      if (m == whole) return l + fmt(" 0x%0*x ", d, v & sl);
      return l + fmt(" & 0x%x 0x%0*x ", m, d, v & sl);
    };
    switch (fr.form) {
      case LabelForm::number: out += l + fmt(" 0x%0*x ", d, v & sl); break;
      case LabelForm::masked: out += masked(); break;
      case LabelForm::flag:
        if (m & 1) out += ((v & m & 1) ? "" : "!") + l + " ";
        break;
      case LabelForm::named: {
        const char *name = nullptr;
        if (m & fr.mask_and)
          for (uint8_t k = 0; k < fr.nnames; ++k)
            if (fr.names[k].value == (v & m & fr.mask_and)) name = fr.names[k].text;
        out += name ? std::string(name) : masked();
        break;
      }
      case LabelForm::v4_ternary: {
        if (m == 0) break;
        unsigned n = 0;
        while (n < 32 && (m >> (31 - n) & 1)) ++n;
        out += l + " " + quad(v) + fmt("/%u ", n);
        break;
      }
      case LabelForm::mac_ternary: {
        const Field &st = t.fields[fr.station];
        uint32_t sv = load(rec, st.value_off, st.member_bytes), sm = load(rec, st.aux_off, st.member_bytes);
        bool all = (m & 0xFFFFFF) == 0xFFFFFF && (sm & 0xFFFFFF) == 0xFFFFFF;
        bool none = (m & 0xFFFFFF) == 0 && (sm & 0xFFFFFF) == 0;
        if (all) out += l + " " + mac(v, sv) + " ";
        else if (!none) out += l + " " + mac(v, sv) + "/" + mac(m, sm) + " ";
        break;
      }
      default: break;
    }
  }
  return out;
}

void labels(Input &in) {
  if (in.u8() % 4 == 0) return formatters(in);
  const Table &t = *g_labelled[in.u16() % g_labelled.size()];
  alignas(16) uint8_t rec[kRecordMax];
  read_record(in, rec, t.record_size);
  Buffer b(t.label_bound);
  int n = t.label(rec, b.data());
  FZ_CHECK(n >= 0 && static_cast<size_t>(n) < b.size(), "%s: label of length %d in a buffer of %zu", t.name, n, b.size());
  if (n == 0) {
    std::string want = expected_label(t, rec);
    FZ_CHECK(want.empty(), "%s: empty label, want '%s'", t.name, want.c_str());
    return;
  }
  FZ_CHECK(b.data()[n] == '\0' && std::strlen(b.data()) == static_cast<size_t>(n), "%s: label length %d, text %zu", t.name,
           n, std::strlen(b.data()));
  for (int i = 0; i < n; ++i)
    FZ_CHECK(b.data()[i] >= ' ' && b.data()[i] <= '~', "%s: label byte 0x%02x", t.name, b.data()[i] & 0xFF);
  FZ_CHECK(b.untouched_from(static_cast<size_t>(n) + 1), "%s: label written behind its terminator", t.name);
  std::string want = expected_label(t, rec);
  FZ_CHECK(want == b.data(), "%s: label '%s', want '%s'", t.name, b.data(), want.c_str());
}

void schemas(Input &in) {
  uint32_t h = in.u32();
  uint8_t pick = in.u8();
  if (pick % 4 == 0) h = kTables[h % kTableCount].handle;
  else if (pick % 4 == 1) h = kProfiles[h % kProfileCount].adt_handle;
  else if (pick % 4 == 2) h = kTables[h % kTableCount].handle ^ (1u << (in.u8() % 32));
  Buffer b(kSchemaTextBytes);
  int n = p4_pd_corvin_switch_cli_schema(h, b.data());
  py::Value v = read_text(b, n, "cli_schema");
  const std::string *want = nullptr;
  for (size_t i = 0; i < kTableCount; ++i)
    if (kTables[i].handle == h) want = &g_table_texts[i];
  for (size_t i = 0; i < kProfileCount; ++i)
    if (kProfiles[i].adt_handle == h) want = &g_profile_texts[i];
  std::string text(b.data(), static_cast<size_t>(n));
  if (want) FZ_CHECK(text == *want, "cli_schema of 0x%x: not the table's text", h);
  else FZ_CHECK(text == "()" && v.is_tuple(0), "cli_schema of the unknown handle 0x%x: %s", h, text.c_str());
}

// ---- Entries through the driver ----

// An entry's value text from the driver, the same from its placement datum, the datum's agreement
// with the hardware, and its counter label.
void check_entry_texts(const Table &t, p4_pd_entry_hdl_t h, const uint8_t *key_back, bool is_default, uint32_t prio,
                       const Action *a, const uint8_t *params_back, int binding, uint32_t bound_hdl) {
  for (int from_datum = 0; from_datum < 2; ++from_datum) {
    Buffer b(kValueTextBytes);
    void *list = nullptr, *datum = nullptr;
    int n;
    if (from_datum) {
      p4_pd_status_t st = t.get_plcmt_data(kDev, &list);
      FZ_CHECK(st == 0, "%s: get_plcmt_data status %u", t.name, st);
      for (uint32_t i = 0, c = pipe_mgr_plcmt_list_count(list); i < c; ++i) {
        uint32_t dh = 0;
        void *d = pipe_mgr_plcmt_list_datum(list, i, &dh);
        if (dh == h) datum = d;
      }
      FZ_CHECK(datum != nullptr, "%s: no placement datum of entry %u", t.name, h);
      n = p4_pd_corvin_switch_plcmt_data_value(t.handle, datum, b.data());
    } else {
      n = p4_pd_corvin_switch_entry_value(kSess, static_cast<uint8_t>(kDev), t.handle, h, 0, b.data());
    }
    const char *what = from_datum ? "placement value text" : "entry value text";
    py::Value v = read_text(b, n, what);
    const py::Value *body = &v;
    if (!from_datum) {
      FZ_CHECK(v.is_tuple(2) && v.items[1].is_tuple(2) && v.items[1].items[0].is_int() &&
                   v.items[1].items[1].type == py::Value::true_,
               "%s %s: %s", t.name, what, b.data());
      const py::Value &pv = v.items[1].items[0];
      int32_t want = t.priority ? static_cast<int32_t>(prio) : 0;
      int64_t got = pv.negative ? -static_cast<int64_t>(pv.magnitude) : static_cast<int64_t>(pv.magnitude);
      FZ_CHECK(got == want && pv.hex_digits < 0, "%s %s: priority %s, want %d", t.name, what, py::show(pv).c_str(), want);
      body = &v.items[0];
    }
    size_t parts = (t.profile && binding == 0) ? 1 : 2;
    FZ_CHECK(body->is_tuple(parts), "%s %s: %s", t.name, what, b.data());
    const py::Value &key = body->items[0];
    if (is_default || t.nfields == 0) FZ_CHECK(key.is_tuple(0), "%s %s: a key for a default entry", t.name, what);
    else check_key_text(key, t, key_back, what);
    if (t.profile) {
      if (binding) {
        const py::Value &bv = body->items[1];
        FZ_CHECK(bv.is_tuple(2) && is_str(bv.items[0], binding == 1 ? "setMbrHdl" : "setGrpHdl") &&
                     bv.items[1].is_tuple(1) && bv.items[1].items[0].is_int() &&
                     bv.items[1].items[0].magnitude == bound_hdl,
                 "%s %s: binding %s, want handle %u", t.name, what, py::show(bv).c_str(), bound_hdl);
      }
    } else {
      check_action_text(body->items[1], *a, params_back, what);
    }
    if (from_datum) {
      // The datum agrees with what the device holds; the text buffer stays as it was.
      Buffer why(160);
      int eq = p4_pd_corvin_switch_plcmt_data_eq_to_hw(kSess, static_cast<uint8_t>(kDev), t.handle, h, datum, 0,
                                                       why.data());
      FZ_CHECK(eq == 1 && why.untouched_from(0), "%s: the datum disagrees with the hardware: %.150s", t.name, why.data());
      // Printed: the key unless the entry is a default (a keyless table's heading instead), then the
      // action's heading and parameters, except for a table bound to a profile.
      int indent = static_cast<int>(h % 7);
      std::string out = printed([&](int fd) { p4_pd_corvin_switch_plcmt_data_print(fd, indent, t.handle, datum); });
      std::string want;
      if (t.nfields == 0) want = std::string(static_cast<size_t>(indent), ' ') + "p4_pd_corvin_switch_" + t.name + ":\n";
      else if (!is_default) want = expected_key_lines(t, key_back, indent);
      if (!t.profile)
        want += std::string(static_cast<size_t>(indent), ' ') + "p4_pd_corvin_switch_" + a->name + ":\n" +
                expected_param_lines(*a, params_back, indent);
      FZ_CHECK(out == want, "%s: placement print\n%s\nwant\n%s", t.name, out.c_str(), want.c_str());
      pipe_mgr_plcmt_list_destroy(list);
    }
  }
  // The counter label of the entry is the label of its key as read back; no label for others.
  Buffer lb(t.label ? t.label_bound : 64);
  int n = p4_pd_corvin_switch_stringify_counter_matchspec(kSess, static_cast<uint8_t>(kDev), t.handle, h, lb.data());
  if (!t.label || is_default) {
    if (!t.label) FZ_CHECK(n == 0 && lb.untouched_from(0), "%s: a counter label of a table without one", t.name);
    return;
  }
  Buffer want(t.label_bound);
  int wn = t.label(key_back, want.data());
  FZ_CHECK(n == wn && (n == 0 || std::strcmp(lb.data(), want.data()) == 0), "%s: label of the entry '%.*s', want '%.*s'",
           t.name, n, lb.data(), wn, want.data());
}

// A member's text and print from its placement datum.
void check_member_texts(const Profile &p, p4_pd_mbr_hdl_t m, const Action &a, const uint8_t *params) {
  void *list = nullptr, *datum = nullptr;
  p4_pd_status_t st = p.get_plcmt_data(kDev, &list);
  FZ_CHECK(st == 0, "%s: get_plcmt_data status %u", p.name, st);
  for (uint32_t i = 0, c = pipe_mgr_plcmt_list_count(list); i < c; ++i) {
    uint32_t dh = 0;
    void *d = pipe_mgr_plcmt_list_datum(list, i, &dh);
    if (dh == m) datum = d;
  }
  FZ_CHECK(datum != nullptr, "%s: no placement datum of member %u", p.name, m);
  Buffer b(kValueTextBytes);
  int n = p4_pd_corvin_switch_adt_plcmt_data_value(p.adt_handle, datum, b.data());
  py::Value v = read_text(b, n, "member value text");
  FZ_CHECK(v.is_tuple(1), "%s: the member text is no one-tuple", p.name);
  check_action_text(v.items[0], a, params, "member value text");
  int indent = static_cast<int>(m % 5);
  std::string out = printed([&](int fd) { p4_pd_corvin_switch_adt_plcmt_data_print(fd, indent, p.adt_handle, datum); });
  std::string want = std::string(static_cast<size_t>(indent), ' ') + "p4_pd_corvin_switch_" + a.name + ":\n" +
                     expected_param_lines(a, params, indent);
  FZ_CHECK(out == want, "%s: member print\n%s\nwant\n%s", p.name, out.c_str(), want.c_str());
  pipe_mgr_plcmt_list_destroy(list);
}

void entries(Input &in) {
  alignas(16) uint8_t key[kRecordMax], params[kRecordMax], key_back[kRecordMax], params_back[kRecordMax];
  uint8_t kind = in.u8() % 3;
  if (kind == 0) {
    const Pair &pr = g_entry_pairs[in.u16() % g_entry_pairs.size()];
    const Table &t = *pr.table;
    const TableAction &ta = *pr.action;
    read_record(in, key, t.record_size);
    uint32_t prio = in.u32();
    read_record(in, params, ta.action->record_size);
    p4_pd_meter_spec_t meter = {in.u32(), in.u32(), in.u32(), in.u32(), in.u8() & 1u};
    p4_pd_entry_hdl_t h = 0;
    p4_pd_status_t st = ta.add(key, prio, params, &meter, in.u32(), &h);
    FZ_CHECK(st == 0, "%s/%s: add status %u", t.name, ta.action->name, st);
    ref::expected_after_round_trip(t, key, key_back);
    std::vector<uint8_t> img = ref::encode_action(*ta.action, params, -1, true);
    uint32_t index = 0;
    if (ta.index_param >= 0) {
      const Param &p = ta.action->params[ta.index_param];
      index = load(params, p.off, p.member_bytes) & 0xFFFF;
    }
    ref::decode_action(*ta.action, img.data(), params_back, ta.index_param, ta.index_in_image, index);
    check_entry_texts(t, h, key_back, false, prio, ta.action, params_back, 0, 0);
    st = t.del(h);
    FZ_CHECK(st == 0, "%s: delete status %u", t.name, st);
  } else if (kind == 1) {
    const Pair &pr = g_default_pairs[in.u16() % g_default_pairs.size()];
    const Table &t = *pr.table;
    const TableAction &ta = *pr.action;
    read_record(in, params, ta.action->record_size);
    p4_pd_meter_spec_t meter = {in.u32(), in.u32(), in.u32(), in.u32(), in.u8() & 1u};
    p4_pd_entry_hdl_t h = 0;
    p4_pd_status_t st = ta.set_default(params, &meter, &h);
    FZ_CHECK(st == 0, "%s/%s: set_default status %u", t.name, ta.action->name, st);
    std::vector<uint8_t> img = ref::encode_action(*ta.action, params, -1, true);
    ref::decode_action(*ta.action, img.data(), params_back, -1, true, 0);
    check_entry_texts(t, h, nullptr, true, 0, ta.action, params_back, 0, 0);
    st = t.reset_default();
    FZ_CHECK(st == 0, "%s: reset_default_entry status %u", t.name, st);
  } else {
    const Table &t = *g_bound[in.u16() % g_bound.size()];
    const Profile &p = *t.profile;
    const ProfileMember &pm = p.members[in.u8() % p.nmembers];
    read_record(in, key, t.record_size);
    uint32_t prio = in.u32();
    read_record(in, params, pm.action->record_size);
    bool group = in.bit();
    p4_pd_mbr_hdl_t m = 0;
    p4_pd_grp_hdl_t g = 0;
    p4_pd_status_t st = pm.add(params, &m);
    FZ_CHECK(st == 0, "%s: add_member status %u", p.name, st);
    if (group) {
      FZ_CHECK(p.create_group(4, &g) == 0 && p.add_to_group(g, m) == 0, "%s: group", p.name);
    }
    p4_pd_entry_hdl_t h = 0;
    st = t.add_bound(key, prio, group ? g : m, group, &h);
    FZ_CHECK(st == 0, "%s: add_entry status %u", t.name, st);
    ref::expected_after_round_trip(t, key, key_back);
    check_entry_texts(t, h, key_back, false, prio, nullptr, nullptr, group ? 2 : 1, group ? g : m);
    check_member_texts(p, m, *pm.action, params);
    FZ_CHECK(t.del(h) == 0, "%s: delete", t.name);
    if (group) FZ_CHECK(p.del_group(g) == 0, "%s: del_group", p.name);
    FZ_CHECK(p.del_member(m) == 0, "%s: del_member", p.name);
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  start_library(default_algorithm_kind);
  g_memfd = memfd_create("fuzz_text", 0);
  FZ_CHECK(g_memfd >= 0, "no memory file");
  g_actions.resize(kActionCount);
  g_action_compare_bound.assign(kActionCount, 1);
  for (size_t i = 0; i < kActionCount; ++i) {
    const Action &a = kActions[i];
    const char *text = a.schema();
    g_actions[a.number] = read_action_schema(parse_or_die(text, std::strlen(text), a.name), a);
    for (const ParamTuple &p : g_actions[a.number].params)
      g_action_compare_bound[a.number] =
          std::max(g_action_compare_bound[a.number], std::strlen("aspec action_") + p.name.size() +
                                                         std::strlen(" differs 0x") + hex_len(width_mask(p.width)) +
                                                         std::strlen(" vs 0x") + hex_len(width_mask(p.width)) + 1);
  }
  for (size_t i = 0; i < kTableCount; ++i) {
    const Table &t = kTables[i];
    Buffer b(kSchemaTextBytes);
    int n = t.schema(b.data());
    FZ_CHECK(n > 0 && static_cast<size_t>(n) < b.size() && b.untouched_from(static_cast<size_t>(n) + 1),
             "%s: schema length %d", t.name, n);
    g_table_texts.emplace_back(b.data(), static_cast<size_t>(n));
    g_tables.push_back(read_table_schema(t, g_table_texts.back()));
    if (t.nfields) {
      const char *ks = t.key_schema();
      py::Value kv = parse_or_die(ks, std::strlen(ks), t.name);
      FZ_CHECK(kv.type == py::Value::tuple && kv.items.size() == g_tables.back().key.size(), "%s: key schema", t.name);
      g_keyed.push_back(&t);
    }
    if (t.label) g_labelled.push_back(&t);
    if (t.profile) g_bound.push_back(&t);
    for (uint8_t k = 0; k < t.nactions; ++k) {
      if (t.actions[k].entry) g_entry_pairs.push_back({&t, &t.actions[k]});
      if (t.actions[k].dflt) g_default_pairs.push_back({&t, &t.actions[k]});
    }
  }
  // The longest entry texts of every table action: their lengths do not depend on the numbers but
  // on the priority, which is longest at INT32_MIN.
  for (const Pair &pr : g_entry_pairs) {
    alignas(16) uint8_t key[kRecordMax] = {}, params[kRecordMax] = {}, key_back[kRecordMax];
    const Table &t = *pr.table;
    p4_pd_meter_spec_t meter = {0, 0, 0, 0, 0};
    p4_pd_entry_hdl_t h = 0;
    FZ_CHECK(pr.action->add(key, 0x80000000u, params, &meter, 0, &h) == 0, "%s: add", t.name);
    ref::expected_after_round_trip(t, key, key_back);
    check_entry_texts(t, h, key_back, false, 0x80000000u, pr.action->action, params, 0, 0);
    FZ_CHECK(t.del(h) == 0, "%s: delete", t.name);
  }
  drvm_clear_calls();
  for (size_t i = 0; i < kProfileCount; ++i) {
    const Profile &p = kProfiles[i];
    Buffer b(kSchemaTextBytes);
    int n = p.schema(b.data());
    FZ_CHECK(n > 0 && static_cast<size_t>(n) < b.size(), "%s: schema length %d", p.name, n);
    g_profile_texts.emplace_back(b.data(), static_cast<size_t>(n));
    py::Value v = parse_or_die(b.data(), static_cast<size_t>(n), p.name);
    FZ_CHECK(v.type == py::Value::tuple && v.items.size() == p.nmembers, "%s: profile schema", p.name);
  }
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Input in(data, size);
  drvm_clear_calls();
  switch (in.u8() % 7) {
    case 0: key_value_text(in); break;
    case 1: action_value_text(in); break;
    case 2: printers(in); break;
    case 3: comparisons(in); break;
    case 4: labels(in); break;
    case 5: schemas(in); break;
    default: entries(in); break;
  }
  FZ_CHECK(drvm_log_count() == 0, "the library logged: %s", drvm_log_line(0));
  return 0;
}
