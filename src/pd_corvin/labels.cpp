// Counter labels: the one engine over the label descriptors of catalog_labels.h, and the address
// formatters its address forms use, which the library exports as well. Labels are written at
// diagnostic rate, by the C library's formatting.
#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstdio>
#include <cstring>

#include "labels.h"

namespace cv::pd {
namespace {

const uint8_t *bytes_at(const void *rec, uint16_t off) { return static_cast<const uint8_t *>(rec) + off; }

// The hexadecimal digits of a slice mask: the digits its values are shown with (0x38000 gives 5).
int digits(uint32_t slice) {
  int d = 1;
  while (d < 8 && (slice >> (4 * d)) != 0) ++d;
  return d;
}

// As many ones from bit 0 as the slice has bits: the mask that matches the whole slice (0x38000
// gives 7), which a masked field shows without its mask.
uint32_t whole_mask(uint32_t slice) {
  int n = __builtin_popcount(slice);
  return n == 32 ? 0xFFFFFFFFu : (1u << n) - 1;
}

int masked(char *out, const char *label, uint32_t v, uint32_t m, uint32_t slice) {
  if (m == 0) return 0;
  if (m == whole_mask(slice)) return std::sprintf(out, "%s 0x%0*x ", label, digits(slice), v & slice);
  return std::sprintf(out, "%s & 0x%x 0x%0*x ", label, m, digits(slice), v & slice);
}

int named(char *out, const LabelFragment &f, uint32_t v, uint32_t m, uint32_t slice) {
  if ((m & f.mask_and) != 0) {
    uint32_t w = v & m & f.mask_and;
    for (uint8_t i = 0; i < f.nnames; ++i)
      if (f.names[i].value == w) return std::sprintf(out, "%s", f.names[i].text);
  }
  return masked(out, f.label, v, m, slice);
}

// A field of up to 32 bits: its value and (ternary) mask members, and its slice mask.
struct Word {
  uint32_t v, m, slice;
  Word(const TextField &k, const void *key)
      : v(load_member(key, k.value_off, k.member_bytes)),
        m(k.match == Match::ternary ? load_member(key, k.aux_off, k.member_bytes) : 0),
        slice(static_cast<uint32_t>(k.slice_lo)) {}
};

int fragment(const LabelFragment &f, const void *key, char *out) {
  const TextField &k = *f.field;
  switch (f.form) {
    case LabelForm::number: {
      Word w(k, key);
      return std::sprintf(out, "%s 0x%0*x ", f.label, digits(w.slice), w.v & w.slice);
    }
    case LabelForm::masked: {
      Word w(k, key);
      return masked(out, f.label, w.v, w.m, w.slice);
    }
    case LabelForm::flag: {
      Word w(k, key);
      if ((w.m & 1) == 0) return 0;
      return std::sprintf(out, (w.v & w.m & 1) ? "%s " : "!%s ", f.label);
    }
    case LabelForm::named: {
      Word w(k, key);
      return named(out, f, w.v, w.m, w.slice);
    }
    case LabelForm::v4_ternary: {
      Word w(k, key);
      return p4_pd_corvin_switch__print_v4addr_ternary(out, f.label, w.v, w.m);
    }
    case LabelForm::v6_exact:
      return p4_pd_corvin_switch__print_v6addr_exact(out, f.label, bytes_at(key, k.value_off));
    case LabelForm::v6_ternary:
      return p4_pd_corvin_switch__print_v6addr_ternary(out, f.label, bytes_at(key, k.value_off),
                                                       bytes_at(key, k.aux_off));
    case LabelForm::mac_ternary: {
      Word oui(k, key), station(*f.station, key);
      return p4_pd_corvin_switch__print_mac_ternary(out, f.label, oui.v, oui.m, station.v, station.m);
    }
    case LabelForm::hidden:
      break;
  }
  return 0;
}

// An IPv6 address as inet_ntop writes it, in a buffer of the longest such text; "Decode error"
// where it cannot be written.
struct V6Text {
  char text[INET6_ADDRSTRLEN] = "Decode error";
  explicit V6Text(const uint8_t *addr) { inet_ntop(AF_INET6, addr, text, sizeof text); }
};

// "xxxx.xxxx.xxxx" of a MAC address's two 24-bit halves.
struct MacText {
  char text[15];
  MacText(uint32_t oui, uint32_t station) {
    std::sprintf(text, "%02x%02x.%02x%02x.%02x%02x", (oui >> 16) & 0xFFu, (oui >> 8) & 0xFFu, oui & 0xFFu,
                 (station >> 16) & 0xFFu, (station >> 8) & 0xFFu, station & 0xFFu);
  }
};

}  // namespace

int write_counter_label(const CounterLabel &l, const void *key, char *buf) {
  int n = 0;
  for (uint8_t i = 0; i < l.nfragments; ++i) n += fragment(l.fragments[i], key, buf + n);
  return n;
}

}  // namespace cv::pd

using namespace cv::pd;

extern "C" {

P4_PD_EXPORT int p4_pd_corvin_switch__print_v4addr_exact(char *dst, const char *label, uint32_t addr) {
  return std::sprintf(dst, "%s %u.%u.%u.%u ", label, addr >> 24, (addr >> 16) & 0xFFu, (addr >> 8) & 0xFFu,
                      addr & 0xFFu);
}

P4_PD_EXPORT int p4_pd_corvin_switch__print_v4addr_lpm(char *dst, const char *label, uint32_t addr,
                                                       uint16_t prefix_len) {
  return std::sprintf(dst, "%s %u.%u.%u.%u/%u ", label, addr >> 24, (addr >> 16) & 0xFFu, (addr >> 8) & 0xFFu,
                      addr & 0xFFu, unsigned{prefix_len});
}

// The prefix is the run of ones from bit 31 down: a mask with a hole counts up to the hole alone.
P4_PD_EXPORT int p4_pd_corvin_switch__print_v4addr_ternary(char *dst, const char *label, uint32_t addr, uint32_t mask) {
  if (mask == 0) return 0;
  uint16_t prefix = ~mask == 0 ? 32 : static_cast<uint16_t>(__builtin_clz(~mask));
  return p4_pd_corvin_switch__print_v4addr_lpm(dst, label, addr, prefix);
}

P4_PD_EXPORT int p4_pd_corvin_switch__print_v6addr_exact(char *dst, const char *label, const uint8_t *addr) {
  return std::sprintf(dst, "%s %s", label, V6Text(addr).text);
}

P4_PD_EXPORT int p4_pd_corvin_switch__print_v6addr_lpm(char *dst, const char *label, const uint8_t *addr,
                                                       uint16_t prefix_len) {
  return std::sprintf(dst, "%s %s/%u ", label, V6Text(addr).text, unsigned{prefix_len});
}

P4_PD_EXPORT int p4_pd_corvin_switch__print_v6addr_ternary(char *dst, const char *label, const uint8_t *addr,
                                                           const uint8_t *mask) {
  static constexpr uint8_t kNone[16] = {};
  if (std::memcmp(mask, kNone, sizeof kNone) == 0) return 0;
  return std::sprintf(dst, "%s %s/%s ", label, V6Text(addr).text, V6Text(mask).text);
}

P4_PD_EXPORT int p4_pd_corvin_switch__print_mac_exact(char *dst, const char *label, uint32_t oui, uint32_t station) {
  return std::sprintf(dst, "%s %s ", label, MacText(oui, station).text);
}

// The masks count by their 24 bits, the bits of the address they mask.
P4_PD_EXPORT int p4_pd_corvin_switch__print_mac_ternary(char *dst, const char *label, uint32_t oui, uint32_t oui_mask,
                                                        uint32_t station, uint32_t station_mask) {
  constexpr uint32_t kHalf = 0xFFFFFF;
  if ((oui_mask & kHalf) == kHalf && (station_mask & kHalf) == kHalf)
    return p4_pd_corvin_switch__print_mac_exact(dst, label, oui, station);
  if ((oui_mask & kHalf) == 0 && (station_mask & kHalf) == 0) return 0;
  return std::sprintf(dst, "%s %s/%s ", label, MacText(oui, station).text, MacText(oui_mask, station_mask).text);
}

}  // extern "C"
