// Comparison of two key records or two parameter records, field by field in schema order, with a
// line of text for the first difference only; equal records leave the text buffer as it was. A
// field counts only within its slice mask (a 128-bit one too, byte by byte, first byte most
// significant), a parameter within its width; a ternary field's value and mask members are two
// fields, and so are an lpm field's value and prefix length. On these rests the hardware agreement of
// a placement datum with the entry the device holds now.
#include <cstdio>
#include <cstring>

#include "assertion.h"
#include "reflect.h"

namespace cv::pd {
namespace {

// One member of up to 32 bits under a mask; the text names it with an optional suffix.
bool same_word(const void *a, const void *b, uint16_t off, uint8_t bytes, uint32_t mask, const char *name,
               const char *suffix, char *buf) {
  uint32_t x = load_member(a, off, bytes) & mask, y = load_member(b, off, bytes) & mask;
  if (x == y) return true;
  sprintf(buf, "mspec %s%s differs 0x%x vs 0x%x", name, suffix, x, y);
  return false;
}

bool same_wide(const void *a, const void *b, uint16_t off, const TextField &f, const char *suffix, char *buf) {
  const uint8_t *x = static_cast<const uint8_t *>(a) + off, *y = static_cast<const uint8_t *>(b) + off;
  for (int i = 0; i < 16; ++i) {
    uint64_t word = i < 8 ? f.slice_hi : f.slice_lo;
    uint8_t mask = static_cast<uint8_t>(word >> (8 * (7 - i % 8)));
    if ((x[i] ^ y[i]) & mask) {
      sprintf(buf, "mspec %s%s differs", f.name, suffix);
      return false;
    }
  }
  return true;
}

}  // namespace

int keys_equal(const TextTable &t, const void *a, const void *b, char *buf) {
  for (uint8_t i = 0; i < t.nfields; ++i) {
    const TextField &f = t.fields[i];
    bool wide = f.width > 32;
    uint32_t slice = static_cast<uint32_t>(f.slice_lo) & width_mask(f.width);
    if (wide ? !same_wide(a, b, f.value_off, f, "", buf)
             : !same_word(a, b, f.value_off, f.member_bytes, slice, f.name, "", buf))
      return 0;
    if (f.match == Match::ternary &&
        (wide ? !same_wide(a, b, f.aux_off, f, "_mask", buf)
              : !same_word(a, b, f.aux_off, f.member_bytes, slice, f.name, "_mask", buf)))
      return 0;
    if (f.match == Match::lpm && !same_word(a, b, f.aux_off, 2, 0xFFFF, f.name, "_prefix_length", buf)) return 0;
  }
  return 1;
}

int params_equal(const TextAction &act, const void *a, const void *b, char *buf) {
  for (uint8_t i = 0; i < act.nparams; ++i) {
    const TextParam &p = act.params[i];
    uint32_t x = load_member(a, p.member_off, p.member_bytes) & width_mask(p.width);
    uint32_t y = load_member(b, p.member_off, p.member_bytes) & width_mask(p.width);
    if (x != y) {
      sprintf(buf, "aspec action_%s differs 0x%x vs 0x%x", p.name, x, y);
      return 0;
    }
  }
  return 1;
}

// Which member or group a datum of a profile's table and the device's entry bind to: a member
// handle of 0 on the device, or a group on both sides whatever its handle, is no disagreement.
static int bindings_agree(uint8_t pd_default, const EntryAction &pd, const EntryAction &hw, char *buf) {
  if (pd.has_member) {
    if (!hw.has_member) return sprintf(buf, "no mbr_hdl in hw"), 0;
    if (hw.member != 0 && hw.member != pd.member)
      return sprintf(buf, "mbr_hdl differs: mbr_hdl_pd=0x%x, mbr_hdl_hw=0x%x", pd.member, hw.member), 0;
    return 1;
  }
  if (pd.has_group) {
    if (hw.has_group || pd_default) return 1;
    return sprintf(buf, "pd has group handle but not hw"), 0;
  }
  if (hw.has_member) return hw.member == 0 ? 1 : (sprintf(buf, "hw has mbr_hdl but not pd"), 0);
  if (hw.has_group) return hw.group == 0 ? 1 : (sprintf(buf, "hw has grp_hdl but not pd"), 0);
  return 1;
}

int entries_agree(const TextTable &t, const char *function, const void *pd_key, const void *hw_key, uint8_t pd_default,
                  uint8_t hw_default, const EntryAction &pd, const EntryAction &hw, char *buf) {
  if (t.nfields != 0) {
    // A default on the device against a datum that is none falls to the key comparison.
    if (pd_default && !hw_default) return sprintf(buf, "pd entry is default but not hw"), 0;
    if (!pd_default && !keys_equal(t, pd_key, hw_key, buf)) return 0;
  }
  if (pd.bound) return bindings_agree(pd_default, pd, hw, buf);
  if (pd.number != hw.number) return sprintf(buf, "actions differ 0x%x, vs 0x%x", pd.number, hw.number), 0;
  const TextAction *a = find_action(t.actions, t.nactions, pd.number);
  if (a == nullptr) CV_HARD_ASSERT("false && \"unknown action\"", function);
  return a->nparams ? params_equal(*a, pd.params, hw.params, buf) : 1;
}

void undecodable_datum(const TextTable &t, const char *function) {
  char expression[160];
  snprintf(expression, sizeof expression, "false && \"Failed to decode plcmt_data in table %s\"", t.name);
  CV_HARD_ASSERT(expression, function);
}

}  // namespace cv::pd
