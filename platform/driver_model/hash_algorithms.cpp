// The hash algorithms of the dynamic hashes: table-driven CRCs of the parametrised catalogue, a byte
// at a time, with tables built at compile time, and the identity.
#include <array>
#include <cstring>

#include "telemetry.h"

namespace drvm {
namespace {

using Table = std::array<uint32_t, 256>;

// v's low w bits in reverse order.
constexpr uint32_t reflect(uint32_t v, unsigned w) {
  uint32_t r = 0;
  for (unsigned i = 0; i < w; ++i, v >>= 1) r = (r << 1) | (v & 1u);
  return r;
}

constexpr uint32_t low_bits(unsigned w) { return w >= 32 ? 0xFFFFFFFFu : (1u << w) - 1u; }

// The table of one byte's step. A reflected CRC keeps its register reflected in the low w bits and
// shifts right; a plain one keeps it left-aligned in 32 bits and shifts left, so that one table
// layout serves every width from 8 to 32.
constexpr Table make_table(unsigned w, bool reflected, uint32_t poly) {
  Table t{};
  if (reflected) {
    const uint32_t rp = reflect(poly, w);
    for (uint32_t i = 0; i < 256; ++i) {
      uint32_t c = i;
      for (int k = 0; k < 8; ++k) c = (c & 1u) ? (c >> 1) ^ rp : c >> 1;
      t[i] = c;
    }
  } else {
    const uint32_t p = poly << (32 - w);
    for (uint32_t i = 0; i < 256; ++i) {
      uint32_t c = i << 24;
      for (int k = 0; k < 8; ++k) c = (c & 0x80000000u) ? (c << 1) ^ p : c << 1;
      t[i] = c;
    }
  }
  return t;
}

struct Crc {
  unsigned width;
  bool reflected;  // input and output alike
  uint32_t poly, init, xorout;
  Table table;
};

constexpr Crc crc(unsigned width, bool reflected, uint32_t poly, uint32_t init, uint32_t xorout) {
  return Crc{width, reflected, poly, init, xorout, make_table(width, reflected, poly)};
}

// Indexed by kind; the identity (kind 0) has no CRC.
constexpr Crc kCrcs[] = {
    crc(8, false, 0, 0, 0),                                // DRVM_HASH_IDENTITY: unused
    crc(8, false, 0x07, 0x00, 0x00),                       // DRVM_HASH_CRC_8: CRC-8/SMBUS
    crc(16, true, 0x8005, 0x0000, 0x0000),                 // DRVM_HASH_CRC_16: CRC-16/ARC
    crc(16, false, 0x1021, 0xFFFF, 0x0000),                // DRVM_HASH_CRC_16_IBM_3740
    crc(32, true, 0x04C11DB7, 0xFFFFFFFF, 0xFFFFFFFF),     // DRVM_HASH_CRC_32: CRC-32/ISO-HDLC
    crc(32, true, 0x1EDC6F41, 0xFFFFFFFF, 0xFFFFFFFF)};    // DRVM_HASH_CRC_32C: CRC-32C/ISCSI
constexpr uint32_t kKinds = sizeof kCrcs / sizeof kCrcs[0];

uint32_t run_crc(const Crc &c, uint64_t seed, const uint8_t *p, size_t n) {
  const uint32_t mask = low_bits(c.width);
  const uint32_t init = (c.init ^ static_cast<uint32_t>(seed)) & mask;
  if (c.reflected) {
    uint32_t r = reflect(init, c.width);
    for (size_t i = 0; i < n; ++i) r = (r >> 8) ^ c.table[(r ^ p[i]) & 0xFFu];
    return (r ^ c.xorout) & mask;
  }
  const unsigned shift = 32 - c.width;
  uint32_t r = init << shift;
  for (size_t i = 0; i < n; ++i) r = (r << 8) ^ c.table[(r >> 24) ^ p[i]];
  return ((r >> shift) ^ c.xorout) & mask;
}

// Writes the big-endian bytes of a result of `bytes` bytes (src) right-aligned into out.
void place(const uint8_t *src, size_t bytes, uint8_t *out, size_t out_len) {
  if (out_len >= bytes) {
    std::memset(out, 0, out_len - bytes);
    if (bytes) std::memcpy(out + (out_len - bytes), src, bytes);
  } else {
    std::memcpy(out, src + (bytes - out_len), out_len);
  }
}

}  // namespace

bool hash_kind_known(uint32_t kind) { return kind < kKinds; }

void hash_compute(uint32_t kind, uint64_t seed, const uint8_t *stream, size_t len, uint8_t *hash,
                  size_t hash_len) {
  if (kind == DRVM_HASH_IDENTITY) {
    place(stream, len, hash, hash_len);
    for (size_t i = 0; i < hash_len && i < 8; ++i) hash[hash_len - 1 - i] ^= static_cast<uint8_t>(seed >> (8 * i));
    return;
  }
  const Crc &c = kCrcs[kind];
  const uint32_t r = run_crc(c, seed, stream, len);
  const size_t bytes = c.width / 8;
  uint8_t be[4];
  for (size_t i = 0; i < bytes; ++i) be[i] = static_cast<uint8_t>(r >> (8 * (bytes - 1 - i)));
  place(be, bytes, hash, hash_len);
}

}  // namespace drvm

extern "C" bf_status_t drvm_hash_compute(uint32_t kind, uint64_t seed, const uint8_t *stream, uint32_t stream_len,
                                         uint8_t *hash, uint32_t hash_len) {
  if (!drvm::hash_kind_known(kind) || hash == nullptr || hash_len == 0 || (stream == nullptr && stream_len != 0))
    return BF_INVALID_ARG;
  drvm::hash_compute(kind, seed, stream, stream_len, hash, hash_len);
  return BF_SUCCESS;
}
