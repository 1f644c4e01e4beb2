// The value forms people type, turned into numbers for a field of a given width, and back; the
// nearest names to a misspelt one. The rules are those of the Python client
// (python/corvin_switch_pd/values.py and errors.py), so that a value means the same in both and a
// refusal reads the same:
//
//     5, 0x1f, 31, 0b101, 0o17        a number: any field
//     10.0.0.1                        dotted IPv4: a 32-bit field
//     2001:db8::1                     IPv6: a 128-bit field
//     00:11:22                        one half of a MAC address: a 24-bit field
//     00:11:22:33:44:55               a MAC address: the pair of an ...Oui and a ...Station field
//     VALUE&&&MASK                    a ternary field
//     ADDRESS/LEN                     an lpm field
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace cvcli {

// A refusal: one line that names what is at fault and why. Nothing has reached the device.
struct Error : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// An unsigned number of up to 128 bits.
struct U128 {
  uint64_t hi = 0, lo = 0;
  bool operator==(const U128 &o) const { return hi == o.hi && lo == o.lo; }
  bool fits(unsigned width) const;        // no bit at or above `width`
  static U128 ones(unsigned width);       // 2^width - 1
  U128 shr(unsigned n) const;
  U128 band(const U128 &o) const { return {hi & o.hi, lo & o.lo}; }
  void to_be(uint8_t out[16]) const;      // most significant byte first
  static U128 from_be(const uint8_t in[16]);
};

// `a.b` and a suffix: the subject of a message, built only when a message is.
struct What {
  std::string_view a, b, suffix;
  std::string str() const;
};

// Python's repr of a text: 'text'.
std::string quoted(std::string_view s);

// A value of one field of `width` bits, in any form its width allows.
U128 parse_number(std::string_view text, unsigned width, const What &what);
// A whole MAC address: six octets, or a number of 48 bits.
U128 parse_mac48(std::string_view text, const What &what);
// A number that fits 32 bits (handles, priorities).
uint32_t parse_u32(std::string_view text, const What &what);

// A value as people read it, by width and hint: dotted IPv4, IPv6, a MAC half, decimal for ports
// and decimal hints, else hexadecimal of the field's digits.
std::string show(const U128 &v, unsigned width, const char *hint);
std::string show_mac(uint32_t oui, uint32_t station);
std::string show_ipv6(const U128 &v);
std::string hex(uint64_t v);  // 0x%x

// The candidates closest to a name: by spelling (the ratio of difflib.get_close_matches, cutoff
// 0.6), then those that contain it or that it contains; at most n.
std::vector<std::string> nearest(std::string_view name, const std::vector<std::string> &candidates, size_t n = 4);
// "<where> has no <what> 'name'; nearest: a, b" (or what it has, or that it has none).
std::string unknown_name(std::string_view what, std::string_view name, std::string_view where,
                         const std::vector<std::string> &candidates);

}  // namespace cvcli
