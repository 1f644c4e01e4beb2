#include "pylit.h"

#include <cstdio>

namespace fz::py {
namespace {

class Parser {
 public:
  Parser(const char *text, size_t len) : p_(text), end_(text + len), begin_(text) {}

  bool whole(Value *out) {
    if (!list(out, /*in_brackets=*/false)) return false;
    skip();
    if (p_ != end_) return fail("text after the literal");
    return true;
  }

  std::string why() const { return why_; }

 private:
  const char *p_, *end_, *begin_;
  std::string why_;
  int depth_ = 0;

  bool fail(const char *msg) {
    if (why_.empty()) why_ = std::string(msg) + " at offset " + std::to_string(p_ - begin_);
    return false;
  }

  void skip() {
    while (p_ != end_ && (*p_ == ' ' || *p_ == '\t' || *p_ == '\n' || *p_ == '\r')) ++p_;
  }

  bool at(char c) {
    skip();
    return p_ != end_ && *p_ == c;
  }

  // expr (',' expr)* [','] : a tuple if there is a comma, else the one expression. Inside brackets
  // an empty list is the empty tuple.
  bool list(Value *out, bool in_brackets) {
    if (in_brackets && at(')')) {
      out->type = Value::tuple;
      return true;
    }
    Value first;
    if (!expr(&first)) return false;
    if (!at(',')) {
      *out = std::move(first);
      return true;
    }
    out->type = Value::tuple;
    out->items.push_back(std::move(first));
    while (at(',')) {
      ++p_;
      skip();
      if (p_ == end_ || *p_ == ')') break;  // a trailing comma
      Value next;
      if (!expr(&next)) return false;
      out->items.push_back(std::move(next));
    }
    return true;
  }

  bool expr(Value *out) {
    skip();
    if (p_ == end_) return fail("missing expression");
    char c = *p_;
    if (c == '(') {
      if (++depth_ > 64) return fail("nested too deep");
      ++p_;
      if (!list(out, true)) return false;
      if (!at(')')) return fail("expected ')'");
      ++p_;
      --depth_;
      return true;
    }
    if (c == '-' || c == '+') {
      ++p_;
      skip();
      if (p_ == end_ || !(*p_ >= '0' && *p_ <= '9')) return fail("a sign without a number");
      if (!number(out)) return false;
      if (c == '-' && out->magnitude != 0) out->negative = true;
      return true;
    }
    if (c >= '0' && c <= '9') return number(out);
    if (c == '\'' || c == '"') return string(out);
    if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_') return name(out);
    return fail("unexpected character");
  }

  bool number(Value *out) {
    out->type = Value::integer;
    u128 v = 0;
    const u128 top = ~static_cast<u128>(0);
    if (*p_ == '0' && p_ + 1 != end_ && (p_[1] == 'x' || p_[1] == 'X')) {
      p_ += 2;
      int n = 0;
      for (; p_ != end_; ++p_, ++n) {
        char c = *p_;
        int d = c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
        if (d < 0) break;
        if (v > (top >> 4)) return fail("integer over 128 bits");
        v = (v << 4) | static_cast<unsigned>(d);
      }
      if (n == 0) return fail("0x without digits");
      out->hex_digits = n;
    } else {
      const char *start = p_;
      for (; p_ != end_ && *p_ >= '0' && *p_ <= '9'; ++p_) {
        unsigned d = static_cast<unsigned>(*p_ - '0');
        if (v > (top - d) / 10) return fail("integer over 128 bits");
        v = v * 10 + d;
      }
      if (p_ - start > 1 && *start == '0') return fail("a decimal integer with a leading zero");
    }
    if (p_ != end_ && ((*p_ >= 'a' && *p_ <= 'z') || (*p_ >= 'A' && *p_ <= 'Z') || *p_ == '_' || *p_ == '.'))
      return fail("a number run into a name");
    out->magnitude = v;
    return true;
  }

  bool string(Value *out) {
    char q = *p_++;
    out->type = Value::string;
    for (;;) {
      if (p_ == end_ || *p_ == '\n') return fail("unterminated string");
      char c = *p_++;
      if (c == q) return true;
      if (c == '\\') {
        if (p_ == end_) return fail("unterminated string");
        char e = *p_++;
        switch (e) {
          case '\\': case '\'': case '"': out->text += e; break;
          case 'n': out->text += '\n'; break;
          case 't': out->text += '\t'; break;
          default: return fail("an escape the texts never use");
        }
        continue;
      }
      out->text += c;
    }
  }

  bool name(Value *out) {
    const char *start = p_;
    while (p_ != end_ && ((*p_ >= 'A' && *p_ <= 'Z') || (*p_ >= 'a' && *p_ <= 'z') || (*p_ >= '0' && *p_ <= '9') ||
                          *p_ == '_'))
      ++p_;
    std::string n(start, p_);
    if (n == "True") out->type = Value::true_;
    else if (n == "False") out->type = Value::false_;
    else if (n == "None") out->type = Value::none;
    else return fail("a name that is no literal");
    return true;
  }
};

}  // namespace

bool parse(const char *text, size_t len, Value *out, std::string *why) {
  Parser parser(text, len);
  *out = Value();
  if (parser.whole(out)) return true;
  if (why) *why = parser.why();
  return false;
}

std::string show(const Value &v) {
  switch (v.type) {
    case Value::tuple: {
      std::string s = "(";
      for (const Value &i : v.items) s += show(i) + ",";
      return s + ")";
    }
    case Value::integer: {
      char buf[40];
      unsigned long long hi = static_cast<unsigned long long>(v.magnitude >> 64);
      unsigned long long lo = static_cast<unsigned long long>(v.magnitude);
      if (hi) std::snprintf(buf, sizeof buf, "%s0x%llx%016llx", v.negative ? "-" : "", hi, lo);
      else std::snprintf(buf, sizeof buf, "%s0x%llx", v.negative ? "-" : "", lo);
      return buf;
    }
    case Value::string: return "'" + v.text + "'";
    case Value::true_: return "True";
    case Value::false_: return "False";
    case Value::none: return "None";
  }
  return "?";
}

}  // namespace fz::py
