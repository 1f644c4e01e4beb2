// Catalog-driven cases of the record texts: each writes a record's value text and prints it, and
// checks both against the text its catalog row gives (tests/gen_text_cases.py).
#pragma once

#include <cstddef>
#include <functional>

extern "C" {
#include "corvin_switch/pd.h"
}

// What a case checks with: a buffer for value texts, and a descriptor whose output is read back.
class TextCheck {
 public:
  virtual ~TextCheck() = default;
  virtual char *buf() = 0;
  // The value text in buf() and the length returned for it.
  virtual void value(int returned, const char *want) = 0;
  // The lines `print` writes to a descriptor, and that it returns the last line's length.
  virtual void print(int indent, const std::function<int(int)> &print, const char *want) = 0;
  // A comparison's answer: different with the text in buf(), or equal (a null text) with buf()
  // untouched.
  virtual void equal(int returned, const char *difference) = 0;
};

struct TextCase {
  const char *name;
  void (*run)(TextCheck &);
};

extern const TextCase kTextCases[];
extern const size_t kTextCaseCount;
