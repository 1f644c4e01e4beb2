// What the console's command files share: the walk's constants, the words of a line, record
// members, and small text helpers.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "cli_catalog.h"
#include "values.h"

namespace cvcli {

constexpr uint32_t kNoHandle = 0xFFFFFFFFu;
constexpr p4_pd_status_t kObjectNotFound = 6;  // BF_OBJECT_NOT_FOUND
constexpr p4_pd_status_t kEndOfWalk = 10;      // BF_END_OF_WALK
constexpr int kWalkBatch = 64;
constexpr size_t kValueRoom = 1024;    // any entry text (at most 345 characters)
constexpr size_t kSchemaRoom = 16384;  // any schema text (a few thousand)

inline std::string_view trim(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t' || s.front() == '\r' || s.front() == '\n'))
    s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r' || s.back() == '\n'))
    s.remove_suffix(1);
  return s;
}

inline void split(std::string_view line, std::vector<std::string_view> *out) {
  out->clear();
  size_t i = 0;
  while (i < line.size()) {
    while (i < line.size() && (line[i] == ' ' || line[i] == '\t' || line[i] == '\r' || line[i] == '\n')) ++i;
    size_t start = i;
    while (i < line.size() && !(line[i] == ' ' || line[i] == '\t' || line[i] == '\r' || line[i] == '\n')) ++i;
    if (i > start) out->push_back(line.substr(start, i - start));
  }
}

// NAME=VALUE: the name, where the text before the first '=' is an identifier.
inline bool named(std::string_view token, std::string_view *name, std::string_view *value) {
  size_t eq = token.find('=');
  if (eq == std::string_view::npos || eq == 0) return false;
  for (size_t i = 0; i < eq; ++i) {
    char ch = token[i];
    bool ok = ch == '_' || (ch >= 'a' && ch <= 'z') || (ch >= 'A' && ch <= 'Z') || (i > 0 && ch >= '0' && ch <= '9');
    if (!ok) return false;
  }
  *name = token.substr(0, eq);
  *value = token.substr(eq + 1);
  return true;
}

inline std::string join(const std::vector<std::string> &v, const char *sep) {
  std::string s;
  for (size_t i = 0; i < v.size(); ++i) s += (i ? sep : "") + v[i];
  return s;
}

inline std::string str(std::string_view s) { return std::string(s); }

inline std::string hex08(uint32_t v) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "0x%08x", v);
  return buf;
}

inline std::string bytes_hex(const uint8_t *p, size_t n) {
  static const char *digits = "0123456789abcdef";
  std::string s;
  for (size_t i = 0; i < n; ++i) {
    s += digits[p[i] >> 4];
    s += digits[p[i] & 15];
  }
  return s;
}

inline bool ends_with(std::string_view s, std::string_view tail) {
  return s.size() >= tail.size() && s.substr(s.size() - tail.size()) == tail;
}

// Stores a number in a record member: host order up to 32 bits, a 128-bit field's bytes most
// significant first.
inline void store(uint8_t *record, uint16_t offset, uint16_t size, const U128 &v) {
  uint8_t *p = record + offset;
  switch (size) {
    case 1: *p = uint8_t(v.lo); break;
    case 2: { uint16_t x = uint16_t(v.lo); std::memcpy(p, &x, 2); break; }
    case 4: { uint32_t x = uint32_t(v.lo); std::memcpy(p, &x, 4); break; }
    default: v.to_be(p); break;
  }
}

inline const char *hint_words(const char *hint) {
  std::string_view h = hint ? hint : "";
  if (h == "mac") return "MAC half";
  if (h == "v4addr") return "IPv4 address";
  if (h == "v6addr") return "IPv6 address";
  if (h == "port") return "port";
  if (h == "vport") return "virtual port";
  if (h == "dec") return "decimal";
  return nullptr;
}

inline const char *match_name(Match m) {
  return m == Match::exact ? "exact" : m == Match::ternary ? "ternary" : "lpm";
}

inline std::string params_text(const ActionDesc *a) {
  std::string s = std::string(a->name) + "(";
  for (int i = 0; i < a->nparams; ++i)
    s += (i ? ", " : "") + std::string(a->params[i].name) + ":" + std::to_string(a->params[i].width);
  return s + ")";
}

inline std::string pad(std::string s, size_t width) {
  if (s.size() < width) s.append(width - s.size(), ' ');
  return s;
}


// The parameters of table_modify and table_set_default: after an optional '=>'.
inline std::vector<std::string_view> after_arrow(const std::vector<std::string_view> &args, size_t from) {
  if (from < args.size() && args[from] == "=>") ++from;
  return std::vector<std::string_view>(args.begin() + long(std::min(from, args.size())), args.end());
}

// The handles of a walk by a first and a next question: first(&h) and next(from, n, page), each a
// driver status. The end of the walk, or nothing to walk, is no handle more; another status is a
// refusal naming `first_name` or `next_name` with it.
std::string status_name(uint32_t status);
template <class First, class Next>
std::vector<uint32_t> walk_handles(const std::string &first_name, const std::string &next_name, First first,
                                   Next next) {
  std::vector<uint32_t> handles;
  auto refuse = [](const std::string &fn, p4_pd_status_t st) {
    return Error(fn + " returned " + std::to_string(st) + " (" + status_name(st) + ")");
  };
  uint32_t h = kNoHandle;
  p4_pd_status_t st = first(&h);
  if (st == kEndOfWalk || st == kObjectNotFound || (st == 0 && h == kNoHandle)) return handles;
  if (st) throw refuse(first_name, st);
  handles.push_back(h);
  uint32_t page[kWalkBatch];
  while (true) {
    st = next(handles.back(), kWalkBatch, page);
    if (st == kEndOfWalk) break;
    if (st) throw refuse(next_name, st);
    int got = 0;
    for (int i = 0; i < kWalkBatch && page[i] != kNoHandle; ++i, ++got) handles.push_back(page[i]);
    if (got < kWalkBatch) break;
  }
  return handles;
}

// Loads a record member stored as `store` stores it.
inline U128 load(const uint8_t *record, uint16_t offset, uint16_t size) {
  const uint8_t *p = record + offset;
  switch (size) {
    case 1: return U128{0, *p};
    case 2: { uint16_t x; std::memcpy(&x, p, 2); return U128{0, x}; }
    case 4: { uint32_t x; std::memcpy(&x, p, 4); return U128{0, x}; }
    default: return U128::from_be(p);
  }
}

}  // namespace cvcli
