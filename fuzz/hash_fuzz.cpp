// calculate_hash_value of every dynamic hash against a reference written a bit at a time: the
// fields packed into one big-endian bit string, right-aligned, first field most significant (a
// value wider than its width spilling into the field before it as the packing does, byte by byte),
// then each algorithm the driver model offers (its CRCs and the identity) computed bit by bit from
// its parameters, with the seed, placed right-aligned in the result. The stream the driver
// receives is checked as well as the result.
//
// Input: hash, algorithm, seed, result size, the number of fields, then per field its width, its
// value and whether the value is cut to its width; a field over 32 bits takes its bytes.
#include <cstdint>
#include <cstring>
#include <vector>

#include "fuzz_support.h"

namespace {

using namespace fz;

// Algorithm handles of the model's kinds, declared beside the program's own: any hash may be set to
// any of them.
constexpr uint32_t kKindHandleBase = 0x230000F0u;
constexpr uint32_t kKinds = 6;

struct CrcParams {
  unsigned width;
  uint32_t poly, init;
  bool reflected;
  uint32_t xorout;
};

// The catalogue's parameters of the kinds DRVM_HASH_CRC_8 to DRVM_HASH_CRC_32C.
const CrcParams kCrc[kKinds] = {
    {0, 0, 0, false, 0},                                  // identity
    {8, 0x07, 0x00, false, 0x00},                         // CRC-8/SMBUS
    {16, 0x8005, 0x0000, true, 0x0000},                   // CRC-16/ARC
    {16, 0x1021, 0xFFFF, false, 0x0000},                  // CRC-16/IBM-3740
    {32, 0x04C11DB7, 0xFFFFFFFF, true, 0xFFFFFFFF},       // CRC-32/ISO-HDLC
    {32, 0x1EDC6F41, 0xFFFFFFFF, true, 0xFFFFFFFF},       // CRC-32C/ISCSI
};

uint32_t reflect(uint32_t v, unsigned w) {
  uint32_t r = 0;
  for (unsigned i = 0; i < w; ++i) r |= ((v >> i) & 1u) << (w - 1 - i);
  return r;
}

// The register shifted a message bit at a time, most significant first (or each byte's least
// significant first, reflected), the seed's low bits XORed into the initial value.
uint32_t crc_bitwise(const CrcParams &c, uint64_t seed, const uint8_t *p, size_t n) {
  const uint64_t mask = (uint64_t{1} << c.width) - 1;
  uint64_t reg = (c.init ^ seed) & mask;
  for (size_t i = 0; i < n; ++i) {
    for (int k = 0; k < 8; ++k) {
      unsigned bit = c.reflected ? (p[i] >> k) & 1u : (p[i] >> (7 - k)) & 1u;
      unsigned top = static_cast<unsigned>(reg >> (c.width - 1)) & 1u;
      reg = (reg << 1) & mask;
      if (top ^ bit) reg ^= c.poly;
    }
  }
  uint32_t r = static_cast<uint32_t>(reg);
  if (c.reflected) r = reflect(r, c.width);
  return (r ^ c.xorout) & static_cast<uint32_t>(mask);
}

// A big-endian number of `bytes` bytes, right-aligned in out_len bytes (its low bytes if it is
// longer).
void place(const std::vector<uint8_t> &be, uint8_t *out, size_t out_len) {
  for (size_t i = 0; i < out_len; ++i) {
    size_t from_end = out_len - 1 - i;
    out[i] = from_end < be.size() ? be[be.size() - 1 - from_end] : 0;
  }
}

void hash_reference(uint32_t kind, uint64_t seed, const std::vector<uint8_t> &stream, uint8_t *out, size_t out_len) {
  if (kind == DRVM_HASH_IDENTITY) {
    place(stream, out, out_len);
    for (size_t i = 0; i < out_len && i < 8; ++i) out[out_len - 1 - i] ^= static_cast<uint8_t>(seed >> (8 * i));
    return;
  }
  const CrcParams &c = kCrc[kind];
  uint32_t r = crc_bitwise(c, seed, stream.data(), stream.size());
  std::vector<uint8_t> be;
  for (unsigned i = c.width / 8; i-- > 0;) be.push_back(static_cast<uint8_t>(r >> (8 * i)));
  place(be, out, out_len);
}

struct FieldIn {
  uint32_t width;
  std::vector<uint8_t> source;  // big-endian, (width + 7) / 8 bytes
};

// The stream a bit at a time. A field of width w at bit offset o from the stream's least
// significant end, p = o mod 8, with n = ceil(w / 8) source bytes, sets the bits of its source from
// bit 0 up at o and on: all 8n of them when the field starts on a byte, or when it needs a byte
// beyond its first n - 1 boundaries; otherwise the first 8n - p, up to the byte where it ends. So a
// value within its width lands exactly; the bits above the width of one that is not spill upwards
// as the byte-wise packing carries them.
std::vector<uint8_t> pack(const std::vector<FieldIn> &fields) {
  uint64_t total = 0;
  for (const FieldIn &f : fields) total += f.width;
  std::vector<uint8_t> s((total + 7) / 8, 0);
  uint64_t o = 0;
  for (size_t i = fields.size(); i-- > 0;) {
    const FieldIn &f = fields[i];
    if (f.width == 0) continue;
    uint64_t n = f.source.size(), p = o % 8;
    uint64_t len = 8 * n - p >= f.width ? 8 * n - p : 8 * n;
    for (uint64_t j = 0; j < len; ++j) {
      if (!((f.source[n - 1 - j / 8] >> (j % 8)) & 1)) continue;
      uint64_t at = o + j;
      FZ_CHECK(at < 8 * s.size(), "reference: a bit beyond the stream");
      s[s.size() - 1 - at / 8] |= static_cast<uint8_t>(1u << (at % 8));
    }
    o += f.width;
  }
  return s;
}

uint32_t kind_of(uint32_t handle) {
  if (handle >= kKindHandleBase && handle < kKindHandleBase + kKinds) return handle - kKindHandleBase;
  return default_algorithm_kind(handle);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  start_library(default_algorithm_kind);
  for (uint32_t k = 0; k < kKinds; ++k)
    FZ_CHECK(drvm_declare_hash_algorithm(kKindHandleBase + k, k) == 0, "cannot declare algorithm kind %u", k);
  // The bit-by-bit CRCs against their catalogue check values.
  const uint8_t check[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
  const uint32_t want[kKinds] = {0, 0xF4, 0xBB3D, 0x29B1, 0xCBF43926, 0xE3069283};
  for (uint32_t k = 1; k < kKinds; ++k)
    FZ_CHECK(crc_bitwise(kCrc[k], 0, check, sizeof check) == want[k], "reference CRC kind %u: check value", k);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Input in(data, size);
  drvm_clear_calls();
  const Hash &h = kHashes[in.u8() % kHashCount];
  uint32_t algo = in.u8() % (kKinds + 1);
  uint32_t algo_hdl = algo == kKinds ? h.algorithm : kKindHandleBase + algo;
  FZ_CHECK(pipe_mgr_hash_calc_algorithm_set(kSess, kDev, h.handle, algo_hdl, nullptr, 0, 0) == 0,
           "%s: cannot set algorithm 0x%x", h.name, algo_hdl);
  uint64_t seed = in.u64();
  FZ_CHECK(h.seed_set(seed) == 0, "%s: seed_set", h.name);
  uint32_t out_len = 1 + in.u8() % 8;
  size_t nfields = in.u8() % 17;
  std::vector<FieldIn> fields(nfields);
  std::vector<p4_pd_hash_calc_input_field_attribute_t> attrs(nfields);
  std::vector<uint32_t> widths(nfields);
  for (size_t i = 0; i < nfields; ++i) {
    uint8_t w = in.u8();
    FieldIn &f = fields[i];
    f.width = w & 0x80 ? 33 + w % 96 : w % 33;
    widths[i] = f.width;
    attrs[i].input_field = static_cast<uint32_t>(i);
    attrs[i].type = 0;
    f.source.resize((f.width + 7) / 8);
    if (f.width > 32) {
      in.bytes(f.source.data(), f.source.size());
      attrs[i].value.stream = f.source.data();
    } else {
      uint32_t v = in.u32();
      if (in.bit()) v &= width_mask(f.width);  // within its width, or as given: the top byte may spill
      attrs[i].value.val = v;
      for (size_t b = 0; b < f.source.size(); ++b)
        f.source[b] = static_cast<uint8_t>(v >> (8 * (f.source.size() - 1 - b)));
    }
  }
  std::vector<uint8_t> out(out_len + 8, 0xA7);
  p4_pd_status_t st = h.calculate(static_cast<uint32_t>(nfields), attrs.data(), widths.data(), out.data(), out_len);
  FZ_CHECK(st == 0, "%s: calculate_hash_value status %u", h.name, st);
  for (size_t i = out_len; i < out.size(); ++i) FZ_CHECK(out[i] == 0xA7, "%s: written past the result", h.name);

  std::vector<uint8_t> stream = pack(fields);
  const drvm_call_t *c = drvm_last_call("pipe_mgr_hash_calc_calculate_hash_value");
  FZ_CHECK(c != nullptr, "%s: the driver was not asked", h.name);
  FZ_CHECK(c->arg_u32[0] == stream.size() && (stream.empty() || std::memcmp(c->bytes, stream.data(), stream.size()) == 0),
           "%s: stream %s, want %s", h.name, hex(c->bytes, c->arg_u32[0]).c_str(),
           hex(stream.data(), stream.size()).c_str());
  std::vector<uint8_t> want(out_len);
  hash_reference(kind_of(algo_hdl), seed, stream, want.data(), out_len);
  FZ_CHECK(std::memcmp(out.data(), want.data(), out_len) == 0, "%s: kind %u seed %llx: hash %s, want %s", h.name,
           kind_of(algo_hdl), static_cast<unsigned long long>(seed), hex(out.data(), out_len).c_str(),
           hex(want.data(), out_len).c_str());
  return 0;
}
