// Value forms and nearest names; see values.h.
#include "values.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <unordered_map>

namespace cvcli {

bool U128::fits(unsigned width) const {
  if (width >= 128) return true;
  if (width >= 64) return (hi >> (width - 64)) == 0;
  return hi == 0 && (lo >> width) == 0;
}

U128 U128::ones(unsigned width) {
  if (width >= 128) return {~0ull, ~0ull};
  if (width >= 64) return {width == 64 ? 0 : (~0ull >> (128 - width)), ~0ull};
  return {0, width == 0 ? 0 : (~0ull >> (64 - width))};
}

U128 U128::shr(unsigned n) const {
  if (n == 0) return *this;
  if (n >= 128) return {};
  if (n >= 64) return {0, hi >> (n - 64)};
  return {hi >> n, (lo >> n) | (hi << (64 - n))};
}

void U128::to_be(uint8_t out[16]) const {
  for (int i = 0; i < 8; ++i) {
    out[i] = uint8_t(hi >> (56 - 8 * i));
    out[8 + i] = uint8_t(lo >> (56 - 8 * i));
  }
}

U128 U128::from_be(const uint8_t in[16]) {
  U128 v;
  for (int i = 0; i < 8; ++i) {
    v.hi = v.hi << 8 | in[i];
    v.lo = v.lo << 8 | in[8 + i];
  }
  return v;
}

std::string What::str() const {
  std::string s(a);
  if (!b.empty()) {
    if (!s.empty()) s += '.';
    s += b;
  }
  s += suffix;
  return s;
}

std::string quoted(std::string_view s) {
  // Python's repr: single quotes unless the text has one and no double quote.
  bool single = s.find('\'') != std::string_view::npos, dbl = s.find('"') != std::string_view::npos;
  char q = single && !dbl ? '"' : '\'';
  std::string out(1, q);
  for (char ch : s) {
    if (ch == q || ch == '\\') out += '\\';
    out += ch;
  }
  out += q;
  return out;
}

std::string hex(uint64_t v) {
  char buf[24];
  std::snprintf(buf, sizeof buf, "0x%llx", static_cast<unsigned long long>(v));
  return buf;
}

static std::string hex128(const U128 &v) {
  char buf[40];
  if (v.hi)
    std::snprintf(buf, sizeof buf, "0x%llx%016llx", static_cast<unsigned long long>(v.hi),
                  static_cast<unsigned long long>(v.lo));
  else
    std::snprintf(buf, sizeof buf, "0x%llx", static_cast<unsigned long long>(v.lo));
  return buf;
}

namespace {

[[noreturn]] void fail(const What &what, const std::string &text) { throw Error(what.str() + ": " + text); }

bool is_hex(char ch) { return std::isxdigit(static_cast<unsigned char>(ch)) != 0; }
bool is_digit(char ch) { return ch >= '0' && ch <= '9'; }

std::string_view strip(std::string_view s) {
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.front()))) s.remove_prefix(1);
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.back()))) s.remove_suffix(1);
  return s;
}

// Octets of one or two hexadecimal digits separated by ':' or '-' (either, mixed); their values.
bool octets(std::string_view s, std::vector<unsigned> *out, bool dash_only = false) {
  out->clear();
  size_t i = 0;
  while (true) {
    size_t start = i;
    while (i < s.size() && is_hex(s[i]) && i - start < 3) ++i;
    size_t n = i - start;
    if (n < 1 || n > 2) return false;
    out->push_back(unsigned(std::stoul(std::string(s.substr(start, n)), nullptr, 16)));
    if (i == s.size()) return true;
    if (s[i] == '-' || (!dash_only && s[i] == ':'))
      ++i;
    else
      return false;
  }
}

uint64_t octets_value(const std::vector<unsigned> &parts) {
  uint64_t v = 0;
  for (unsigned p : parts) v = v << 8 | p;
  return v;
}

// Multiplies by a small base and adds a digit; false on overflow past 128 bits.
bool mul_add(U128 *v, unsigned base, unsigned digit) {
  uint64_t limbs[4] = {v->lo & 0xffffffffu, v->lo >> 32, v->hi & 0xffffffffu, v->hi >> 32};
  uint64_t carry = digit;
  for (uint64_t &l : limbs) {
    uint64_t x = l * base + carry;
    l = x & 0xffffffffu;
    carry = x >> 32;
  }
  v->lo = limbs[0] | limbs[1] << 32;
  v->hi = limbs[2] | limbs[3] << 32;
  return carry == 0;
}

// int(text, 0) of Python: an optional sign, then 0x, 0o or 0b digits, or decimal without a leading
// zero (zeros alone excepted); single underscores between digits (and after the prefix).
enum class Parse { ok, malformed, overflow };
Parse python_int(std::string_view s, U128 *out, bool *negative) {
  *negative = false;
  if (!s.empty() && (s[0] == '+' || s[0] == '-')) {
    *negative = s[0] == '-';
    s.remove_prefix(1);
  }
  unsigned base = 10;
  bool prefixed = false;
  if (s.size() >= 2 && s[0] == '0') {
    char p = char(std::tolower(static_cast<unsigned char>(s[1])));
    if (p == 'x' || p == 'o' || p == 'b') {
      base = p == 'x' ? 16 : p == 'o' ? 8 : 2;
      prefixed = true;
      s.remove_prefix(2);
      if (!s.empty() && s[0] == '_') s.remove_prefix(1);
    }
  }
  if (s.empty() || s.front() == '_' || s.back() == '_') return Parse::malformed;
  U128 v;
  bool overflow = false, nonzero = false;
  char prev = 0;
  for (char ch : s) {
    if (ch == '_') {
      if (prev == '_') return Parse::malformed;
      prev = ch;
      continue;
    }
    unsigned d;
    if (is_digit(ch))
      d = unsigned(ch - '0');
    else if (std::isalpha(static_cast<unsigned char>(ch)))
      d = unsigned(std::tolower(static_cast<unsigned char>(ch)) - 'a' + 10);
    else
      return Parse::malformed;
    if (d >= base) return Parse::malformed;
    // Decimal: a number that starts with 0 is zeros only.
    if (!prefixed && !nonzero && prev != 0 && d != 0) return Parse::malformed;
    if (d) nonzero = true;
    if (!overflow && !mul_add(&v, base, d)) overflow = true;
    prev = ch;
  }
  *out = v;
  if (*negative && !nonzero) *negative = false;  // -0 is 0
  return overflow ? Parse::overflow : Parse::ok;
}

bool dotted_digits(std::string_view s) {  // \d+(\.\d+)+
  size_t parts = 0, i = 0;
  while (true) {
    size_t start = i;
    while (i < s.size() && is_digit(s[i])) ++i;
    if (i == start) return false;
    ++parts;
    if (i == s.size()) return parts >= 2;
    if (s[i] != '.') return false;
    ++i;
  }
}

bool ipv4(std::string_view s, uint32_t *out) {
  uint32_t v = 0;
  size_t parts = 0, i = 0;
  while (true) {
    size_t start = i;
    while (i < s.size() && is_digit(s[i])) ++i;
    size_t n = i - start;
    if (n == 0 || n > 3 || (n > 1 && s[start] == '0')) return false;
    unsigned octet = unsigned(std::stoul(std::string(s.substr(start, n))));
    if (octet > 255) return false;
    v = v << 8 | octet;
    ++parts;
    if (i == s.size()) break;
    if (s[i] != '.') return false;
    ++i;
  }
  if (parts != 4) return false;
  *out = v;
  return true;
}

U128 text_number(std::string_view text, unsigned width, const What &what) {
  if (text.empty()) fail(what, "an empty text");
  std::vector<unsigned> parts;
  bool dashed = octets(text, &parts, true) && parts.size() >= 3 && parts.size() <= 6;
  if (text.find(':') != std::string_view::npos || dashed) {
    if (width != 128 && octets(text, &parts) && parts.size() == 6)
      fail(what, "a MAC address is 48 bits; this field has " + std::to_string(width) +
                     " (give the pair of halves by their common name)");
    if (width == 128) {
      uint8_t bytes[16];
      std::string t(text);
      if (inet_pton(AF_INET6, t.c_str(), bytes) != 1) fail(what, quoted(text) + " is not an IPv6 address");
      return U128::from_be(bytes);
    }
    if (width == 24) {
      if (!octets(text, &parts) || parts.size() != 3)
        fail(what, quoted(text) + " is not a MAC half (3 octets like 00:00:00)");
      return {0, octets_value(parts)};
    }
    fail(what, quoted(text) + " is not a value of a " + std::to_string(width) + "-bit field");
  }
  if (dotted_digits(text)) {
    if (width == 128) fail(what, quoted(text) + ": an IPv6 address is written with colons");
    uint32_t a;
    if (!ipv4(text, &a)) fail(what, quoted(text) + " is not an IPv4 address");
    if (width != 32) fail(what, "an IPv4 address is 32 bits; this field has " + std::to_string(width));
    return {0, a};
  }
  U128 v;
  bool negative;
  Parse p = python_int(text, &v, &negative);
  if (p == Parse::malformed)
    fail(what, quoted(text) + " is not a number (decimal, 0x.., 0b.. or 0o..) or an address");
  if (negative) fail(what, std::string(text) + " is negative");
  if (p == Parse::overflow || !v.fits(width))  // overflow: wider than 128 bits
    fail(what, std::string(text) + " does not fit " + std::to_string(width) + " bits (at most " +
                   hex128(U128::ones(width)) + ")");
  return v;
}

}  // namespace

U128 parse_number(std::string_view text, unsigned width, const What &what) {
  U128 v = text_number(strip(text), width, what);
  if (!v.fits(width))  // the forms of a fixed width (addresses) already fit
    fail(what, std::string(text) + " does not fit " + std::to_string(width) + " bits (at most " +
                   hex128(U128::ones(width)) + ")");
  return v;
}

U128 parse_mac48(std::string_view text, const What &what) {
  if (text.find(':') != std::string_view::npos || text.find('-') != std::string_view::npos) {
    std::vector<unsigned> parts;
    std::string_view t = strip(text);
    if (!octets(t, &parts) || parts.size() != 6)
      fail(what, quoted(t) + " is not a MAC address (6 octets like 00:00:00:00:00:00)");
    return {0, octets_value(parts)};
  }
  return parse_number(text, 48, what);
}

uint32_t parse_u32(std::string_view text, const What &what) { return uint32_t(parse_number(text, 32, what).lo); }

std::string show_ipv6(const U128 &v) {
  uint8_t b[16];
  v.to_be(b);
  unsigned groups[8];
  for (int i = 0; i < 8; ++i) groups[i] = unsigned(b[2 * i]) << 8 | b[2 * i + 1];
  // The longest run of two or more zero groups (the first of equal runs) becomes "::".
  int best = -1, best_len = 0;
  for (int i = 0; i < 8;) {
    if (groups[i] != 0) {
      ++i;
      continue;
    }
    int j = i;
    while (j < 8 && groups[j] == 0) ++j;
    if (j - i > best_len) best = i, best_len = j - i;
    i = j;
  }
  if (best_len < 2) best = -1;
  std::string s;
  char buf[8];
  for (int i = 0; i < 8; ++i) {
    if (i == best) {
      s += "::";
      i += best_len - 1;
      continue;
    }
    if (!s.empty() && s.back() != ':') s += ':';
    std::snprintf(buf, sizeof buf, "%x", groups[i]);
    s += buf;
  }
  return s;
}

static std::string mac_text(uint64_t v, int octets) {
  std::string s;
  char buf[4];
  for (int i = octets - 1; i >= 0; --i) {
    std::snprintf(buf, sizeof buf, "%02x", unsigned(v >> (8 * i) & 0xff));
    if (!s.empty()) s += ':';
    s += buf;
  }
  return s;
}

std::string show_mac(uint32_t oui, uint32_t station) {
  return mac_text(uint64_t(oui & 0xffffff) << 24 | (station & 0xffffff), 6);
}

std::string show(const U128 &v, unsigned width, const char *hint) {
  std::string_view h = hint ? hint : "";
  char buf[48];
  if (h == "v4addr" && width == 32) {
    std::snprintf(buf, sizeof buf, "%u.%u.%u.%u", unsigned(v.lo >> 24 & 0xff), unsigned(v.lo >> 16 & 0xff),
                  unsigned(v.lo >> 8 & 0xff), unsigned(v.lo & 0xff));
    return buf;
  }
  if (h == "v6addr" || width == 128) return show_ipv6(v);
  if (h == "mac" && width == 24) return mac_text(v.lo, 3);
  if (h == "port" || h == "vport" || h == "dec") {
    std::snprintf(buf, sizeof buf, "%llu", static_cast<unsigned long long>(v.lo));
    return buf;
  }
  std::snprintf(buf, sizeof buf, "0x%0*llx", int((width + 3) / 4), static_cast<unsigned long long>(v.lo));
  return buf;
}

// ---- Nearest names: difflib's SequenceMatcher ratio, without junk (names are short) ----

namespace {

size_t matching_characters(std::string_view a, std::string_view b) {
  std::unordered_map<char, std::vector<size_t>> b2j;
  for (size_t j = 0; j < b.size(); ++j) b2j[b[j]].push_back(j);
  struct Range {
    size_t alo, ahi, blo, bhi;
  };
  std::vector<Range> queue{{0, a.size(), 0, b.size()}};
  size_t matched = 0;
  while (!queue.empty()) {
    Range r = queue.back();
    queue.pop_back();
    // The longest common block: the earliest in a, then in b.
    size_t besti = r.alo, bestj = r.blo, bestsize = 0;
    std::unordered_map<size_t, size_t> j2len, next;
    for (size_t i = r.alo; i < r.ahi; ++i) {
      next.clear();
      auto it = b2j.find(a[i]);
      if (it != b2j.end()) {
        for (size_t j : it->second) {
          if (j < r.blo) continue;
          if (j >= r.bhi) break;
          auto prev = j > 0 ? j2len.find(j - 1) : j2len.end();
          size_t k = (prev != j2len.end() ? prev->second : 0) + 1;
          next[j] = k;
          if (k > bestsize) besti = i - k + 1, bestj = j - k + 1, bestsize = k;
        }
      }
      std::swap(j2len, next);
    }
    while (besti > r.alo && bestj > r.blo && a[besti - 1] == b[bestj - 1]) --besti, --bestj, ++bestsize;
    while (besti + bestsize < r.ahi && bestj + bestsize < r.bhi && a[besti + bestsize] == b[bestj + bestsize])
      ++bestsize;
    if (bestsize == 0) continue;
    matched += bestsize;
    if (r.alo < besti && r.blo < bestj) queue.push_back({r.alo, besti, r.blo, bestj});
    if (besti + bestsize < r.ahi && bestj + bestsize < r.bhi)
      queue.push_back({besti + bestsize, r.ahi, bestj + bestsize, r.bhi});
  }
  return matched;
}

std::string lower(std::string_view s) {
  std::string out(s);
  for (char &ch : out) ch = char(std::tolower(static_cast<unsigned char>(ch)));
  return out;
}

}  // namespace

std::vector<std::string> nearest(std::string_view name, const std::vector<std::string> &candidates, size_t n) {
  std::vector<std::pair<double, std::string>> scored;
  for (const std::string &c : candidates) {
    size_t total = c.size() + name.size();
    double ratio = total ? 2.0 * double(matching_characters(c, name)) / double(total) : 1.0;
    if (ratio >= 0.6) scored.emplace_back(ratio, c);
  }
  // heapq.nlargest over (score, name): the best first, equal scores by the greater name.
  std::sort(scored.begin(), scored.end(), [](const auto &x, const auto &y) { return x > y; });
  std::vector<std::string> close;
  for (size_t i = 0; i < scored.size() && close.size() < n; ++i) close.push_back(scored[i].second);
  std::string low = lower(name);
  std::vector<std::string> by_length(candidates);
  std::stable_sort(by_length.begin(), by_length.end(),
                   [](const std::string &x, const std::string &y) { return x.size() < y.size(); });
  for (const std::string &c : by_length) {
    if (close.size() >= n) break;
    if (low.empty() || std::find(close.begin(), close.end(), c) != close.end()) continue;
    std::string lc = lower(c);
    if (lc.find(low) != std::string::npos || low.find(lc) != std::string::npos) close.push_back(c);
  }
  return close;
}

std::string unknown_name(std::string_view what, std::string_view name, std::string_view where,
                         const std::vector<std::string> &candidates) {
  std::string text = std::string(where) + " has no " + std::string(what) + " " + quoted(name);
  std::vector<std::string> close = nearest(name, candidates);
  auto join = [](const std::vector<std::string> &v, size_t upto) {
    std::string s;
    for (size_t i = 0; i < v.size() && i < upto; ++i) s += (i ? ", " : "") + v[i];
    return s;
  };
  if (!close.empty()) {
    text += "; nearest: " + join(close, close.size());
  } else if (!candidates.empty()) {
    std::vector<std::string> shown(candidates);
    std::sort(shown.begin(), shown.end());
    text += "; it has: " + join(shown, 12) + (shown.size() > 12 ? ", ..." : "");
  } else {
    text += "; it has none";
  }
  return text;
}

}  // namespace cvcli
