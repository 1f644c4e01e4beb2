// Schema texts: how each table, key, action and profile looks, as a Python literal of nested
// tuples. No blank after a comma, a trailing comma behind the last element of every tuple that has
// elements, names in apostrophes, widths in decimal, masks in lower-case hexadecimal without
// padding; blanks only where the forms below put them.
#include <atomic>
#include <cstddef>
#include <cstring>

#include "program.h"
#include "reflect.h"

namespace cv::pd {
namespace {

// Writes text at out, or only counts it while out is null.
class Writer {
 public:
  explicit Writer(char *out) : out_(out) {}

  Writer &put(const char *s) {
    size_t n = std::strlen(s);
    if (out_) std::memcpy(out_ + len_, s, n);
    len_ += n;
    return *this;
  }

  Writer &dec(uint32_t v) {
    char digits[10];
    int n = 0;
    do digits[n++] = static_cast<char>('0' + v % 10);
    while ((v /= 10) != 0);
    while (n > 0) put_char(digits[--n]);
    return *this;
  }

  // "0x" and the value's lower-case digits, without leading zeros.
  Writer &hex(uint64_t lo, uint64_t hi) {
    put("0x");
    bool started = false;
    for (int i = 31; i >= 0; --i) {
      uint64_t word = i >= 16 ? hi : lo;
      unsigned digit = static_cast<unsigned>(word >> (4 * (i % 16))) & 0xF;
      if (digit == 0 && !started && i != 0) continue;
      started = true;
      put_char("0123456789abcdef"[digit]);
    }
    return *this;
  }

  Writer &name(const char *s) { return put("'").put(s).put("'"); }

  Writer &hint(Hint h) {
    static constexpr const char *kWords[] = {nullptr, "mac", "v4addr", "v6addr", "port", "vport", "dec"};
    return h == Hint::none ? put("None") : name(kWords[static_cast<int>(h)]);
  }

  size_t length() const { return len_; }

  void terminate() {
    if (out_) out_[len_] = '\0';
  }

 private:
  void put_char(char c) {
    if (out_) out_[len_] = c;
    ++len_;
  }

  char *out_;
  size_t len_ = 0;
};

// ( 'label','name',width,mask,hint,None,None)
void field_tuple(Writer &w, const char *label, const char *label_tail, const char *name, const char *name_tail,
                 uint32_t width, uint64_t lo, uint64_t hi, Hint hint) {
  w.put("( '").put(label).put(label_tail).put("','").put(name).put(name_tail).put("',").dec(width).put(",");
  w.hex(lo, hi).put(",").hint(hint).put(",None,None)");
}

// One tuple per key field, then a mask tuple behind a ternary field and a prefix-length tuple behind
// an lpm one.
void key_schema(Writer &w, const TextTable &t) {
  w.put("(");
  for (uint8_t i = 0; i < t.nfields; ++i) {
    const TextField &f = t.fields[i];
    field_tuple(w, f.label, "", f.name, "", f.width, f.slice_lo, f.slice_hi, f.hint);
    w.put(",");
    if (f.match == Match::ternary) {
      field_tuple(w, f.label, "Mask", f.name, "_mask", f.width, f.slice_lo, f.slice_hi, Hint::none);
      w.put(",");
    } else if (f.match == Match::lpm) {
      field_tuple(w, f.label, "PrefixLength", f.name, "_prefix_length", 16, 0xFFFF, 0, Hint::none);
      w.put(",");
    }
  }
  w.put(")");
}

// ( ('name'),(('param',hint,width,None),...)): the name in brackets of its own evaluates to a
// plain string.
void action_schema(Writer &w, const TextAction &a) {
  w.put("( ('").put(a.name).put("'),(");
  for (uint8_t i = 0; i < a.nparams; ++i) {
    const TextParam &p = a.params[i];
    w.put("(").name(p.name).put(",").hint(p.hint).put(",").dec(p.width).put(",None),");
  }
  w.put("))");
}

// The actions' texts, made once each on first use and kept for the process; a thread that loses a
// race to make one drops its copy.
std::atomic<const char *> g_action_texts[kActionCount];

// A table's or profile's action literals, joined.
void action_list(Writer &w, const TextAction *const *actions, uint8_t n) {
  for (uint8_t i = 0; i < n; ++i) w.put(make_action_schema(*actions[i])).put(",");
}

// The entries of a selector's table bind to a member or a group: the same two forms for every such
// table, blanks as they have always stood.
constexpr const char *kSelectorTail =
    "( ('setMbrHdl',(('mbrHdl',None,32,None),)),( 'setGrpHdl', ( ( 'grpHdl', None, 32, None ), ) ) ))";

void table_schema(Writer &w, const TextTable &t, const char *key) {
  w.put("( ('").put(t.name).put("','mat',(").put(t.selector ? "True" : "False").put(",)),");
  w.put(key ? key : "()");
  w.put(",");
  if (t.selector) {
    w.put(kSelectorTail);
  } else {
    w.put("(");
    action_list(w, t.actions, t.nactions);
    w.put("))");
  }
}

// A text made once: measured, then written into storage of its exact size that is never freed.
template <class Write>
const char *make(Write &&write) {
  Writer measure(nullptr);
  write(measure);
  char *text = new char[measure.length() + 1];
  Writer out(text);
  write(out);
  out.terminate();
  return text;
}

}  // namespace

const char *make_key_schema(const TextTable &t) {
  return make([&](Writer &w) { key_schema(w, t); });
}

const char *make_action_schema(const TextAction &a) {
  std::atomic<const char *> &slot = g_action_texts[a.number];
  const char *text = slot.load(std::memory_order_acquire);
  if (text != nullptr) return text;
  const char *made = make([&](Writer &w) { action_schema(w, a); });
  if (slot.compare_exchange_strong(text, made, std::memory_order_acq_rel)) return made;
  delete[] made;
  return text;
}

int write_table_schema(const TextTable &t, const char *key, char *buf) {
  Writer w(buf);
  table_schema(w, t, key);
  w.terminate();
  return static_cast<int>(w.length());
}

int write_profile_schema(const TextProfile &p, char *buf) {
  Writer w(buf);
  w.put("(");
  action_list(w, p.actions, p.nactions);
  w.put(")");
  w.terminate();
  return static_cast<int>(w.length());
}

}  // namespace cv::pd
