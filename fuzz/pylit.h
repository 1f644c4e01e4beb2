// A reader of the Python literals the library writes (value texts and schema texts), as a client's
// eval of them sees them: tuples, integers (decimal or hexadecimal, with a sign), quoted strings,
// True, False and None, with Python's rules for brackets and commas: "(x)" is x, "(x,)" and "x,"
// are one-tuples, "()" is the empty tuple. Anything else is refused with a reason.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace fz::py {

using u128 = unsigned __int128;

struct Value {
  enum Type { tuple, integer, string, true_, false_, none } type = none;
  std::vector<Value> items;  // a tuple's elements
  u128 magnitude = 0;        // an integer's absolute value (at most 128 bits)
  bool negative = false;
  int hex_digits = -1;  // the digits of a hexadecimal integer as written; -1 for a decimal one
  std::string text;     // a string's characters

  bool is_int() const { return type == integer; }
  bool is_tuple(size_t n) const { return type == tuple && items.size() == n; }
};

// Parses the whole of text[0, len) as one expression (a top-level comma makes a tuple, as in an
// eval). False, with *why saying where, for anything that is not such a literal.
bool parse(const char *text, size_t len, Value *out, std::string *why);

// The value as text, for messages.
std::string show(const Value &v);

}  // namespace fz::py
