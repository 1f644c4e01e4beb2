// Helpers shared by the driver model tests.
#ifndef CV_PLATFORM_TEST_UTIL_H
#define CV_PLATFORM_TEST_UTIL_H

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <type_traits>
#include <vector>

#include "drv/model.h"

using Bytes = std::vector<uint8_t>;

// Every test starts from a fresh model.
class ModelTest : public ::testing::Test {
 protected:
  void SetUp() override { drvm_reset(); }
  void TearDown() override { drvm_reset(); }
};

constexpr uint32_t kTbl = 0x100002C;
constexpr uint32_t kAct = 0x2000006E;
const Bytes kMask4(4, 0xFF);

// A 4-byte key value made of a number.
inline Bytes key(uint32_t i) { return Bytes{uint8_t(i >> 24), uint8_t(i >> 16), uint8_t(i >> 8), uint8_t(i)}; }
inline Bytes bytes_at(const uint8_t *p, size_t n) { return p ? Bytes(p, p + n) : Bytes(); }
inline dev_target_t tgt(bf_dev_id_t dev = 0, uint32_t pipe = BF_DEV_PIPE_ALL) { return dev_target_t{dev, pipe}; }

// An entry request: the caller's buffers and the two records pointing at them. The records are
// mutable because the driver takes them by non-const pointer (and only reads them).
struct Request {
  Bytes value, mask, adata;
  mutable pipe_tbl_match_spec_t match{};
  mutable pipe_action_spec_t action{};

  Request(Bytes v, Bytes m, uint32_t priority = 0, uint32_t partition = 0, Bytes image = {0x11, 0x22, 0x33})
      : value(std::move(v)), mask(std::move(m)), adata(std::move(image)) {
    match = {value.data(), mask.data(), partition, priority,
             static_cast<uint16_t>(value.empty() ? 0 : value.size() * 8 - 3), static_cast<uint16_t>(value.size()), 0};
    action.action_data_type = PIPE_ACTION_DATA_TYPE;
    action.act_data = {static_cast<uint16_t>(adata.size() * 8), static_cast<uint16_t>(adata.size()), adata.data()};
  }
  Request(const Request &) = delete;  // a copy would point into the source's buffers
};

// The records of a request, for passing a temporary one straight to the driver.
inline pipe_tbl_match_spec_t *match_of(const Request &r) { return &r.match; }
inline pipe_action_spec_t *action_of(const Request &r) { return &r.action; }

inline bf_status_t add(const Request &r, uint32_t *hdl, uint32_t tbl = kTbl, bf_dev_id_t dev = 0, uint32_t ttl = 0,
                       uint32_t act = kAct) {
  return pipe_mgr_mat_ent_add(5, tgt(dev), tbl, &r.match, act, &r.action, ttl, 0, hdl);
}
inline bf_status_t set_action(uint32_t hdl, pipe_action_spec_t *a, uint32_t act, uint32_t tbl = kTbl,
                              bf_dev_id_t dev = 0) {
  return pipe_mgr_mat_ent_set_action(3, dev, tbl, hdl, act, a, 0);
}
inline bf_status_t set_action_by_key(const Request &k, pipe_action_spec_t *a, uint32_t act, uint32_t tbl = kTbl,
                                     bf_dev_id_t dev = 0) {
  return pipe_mgr_mat_ent_set_action_by_match_spec(3, tgt(dev), tbl, &k.match, act, a, 0);
}
inline bf_status_t del(uint32_t hdl, uint32_t tbl = kTbl, bf_dev_id_t dev = 0) {
  return pipe_mgr_mat_ent_del(3, dev, tbl, hdl, 0);
}
inline bf_status_t del_by_key(const Request &k, uint32_t tbl = kTbl, bf_dev_id_t dev = 0) {
  return pipe_mgr_mat_ent_del_by_match_spec(3, tgt(dev), tbl, &k.match, 0);
}
inline bf_status_t find_key(const Request &k, uint32_t *hdl, uint32_t tbl = kTbl, bf_dev_id_t dev = 0) {
  return pipe_mgr_match_spec_to_ent_hdl(1, tgt(dev), tbl, &k.match, hdl, false);
}

// An entry as the model's view shows it.
struct Stored { bf_status_t st; pipe_tbl_match_spec_t match; uint32_t act; pipe_action_spec_t action; uint32_t ttl; };
inline Stored stored(uint32_t hdl, uint32_t tbl = kTbl, bf_dev_id_t dev = 0) {
  Stored s{};
  s.st = drvm_entry_get(dev, tbl, hdl, &s.match, &s.act, &s.action, &s.ttl);
  return s;
}

// A caller's read-back records: value and mask buffers of num_match_bytes each and an action image
// buffer whose capacity the action record gives, all filled with 0xA5.
struct Readback {
  Bytes value, mask, image;
  pipe_tbl_match_spec_t match{};
  pipe_action_spec_t action{};
  uint32_t act = 0xDEADu;

  explicit Readback(size_t num_match_bytes, size_t capacity = 56)
      : value(num_match_bytes, 0xA5), mask(num_match_bytes, 0xA5), image(capacity, 0xA5) {
    match = {value.data(), mask.data(), 0, 0, 0, static_cast<uint16_t>(num_match_bytes), 0};
    action.act_data = {0, static_cast<uint16_t>(capacity), image.data()};
  }
  Readback(const Readback &) = delete;

  bf_status_t get(uint32_t hdl, uint32_t tbl = kTbl, bf_dev_id_t dev = 0) {
    return pipe_mgr_get_entry(1, tbl, tgt(dev), hdl, &match, &action, &act, false, 1, nullptr);
  }
  bf_status_t get_default(uint32_t tbl = kTbl) {
    return pipe_mgr_table_get_default_entry(1, tgt(), tbl, &action, &act, false, 1, nullptr);
  }
  Bytes action_image() const {
    return bytes_at(action.act_data.action_data_bytes, action.act_data.num_action_data_bytes);
  }
};

// A whole walk of a table: the first handle, then batches of `batch`, checking the -1 fill of each
// short batch and that the walk ends with BF_END_OF_WALK; a walk that never ends fails the test.
inline constexpr int kMaxWalkRounds = 100000;
inline std::vector<uint32_t> walk(int batch, uint32_t tbl = kTbl, bf_dev_id_t dev = 0) {
  std::vector<uint32_t> seen(1), out(batch);
  if (pipe_mgr_get_first_entry_handle(1, tbl, tgt(dev), &seen[0]) != BF_SUCCESS) return {};
  for (int round = 0;; ++round) {
    if (round == kMaxWalkRounds) {
      ADD_FAILURE() << "the walk does not end";
      return seen;
    }
    const bf_status_t st = pipe_mgr_get_next_entry_handles(1, tbl, tgt(dev), seen.back(), batch, out.data());
    int k = 0;
    while (k < batch && out[k] != 0xFFFFFFFFu) seen.push_back(out[k++]);
    for (int i = k; i < batch; ++i) EXPECT_EQ(out[i], 0xFFFFFFFFu);
    EXPECT_EQ(st, k ? BF_SUCCESS : BF_END_OF_WALK);
    if (st != BF_SUCCESS) return seen;
  }
}

inline std::string hex(const uint8_t *p, size_t n) {
  std::string out = p ? "" : "null";
  char buf[4];
  for (size_t i = 0; p && i < n; ++i) out += (std::snprintf(buf, sizeof buf, "%02x", p[i]), buf);
  return out;
}

// Text of numbers and strings, appended in order.
inline void put(std::string &s, const std::string &t) { s.append(t); }
inline void put(std::string &s, const char *t) { s.append(t); }
template <class N, class = std::enable_if_t<std::is_integral_v<N> || std::is_enum_v<N>>>
inline void put(std::string &s, N n) {
  if constexpr (std::is_enum_v<N>)
    s.append(std::to_string(static_cast<std::underlying_type_t<N>>(n)));
  else
    s.append(std::to_string(n));
}
template <class... T>
std::string cat(const T &...parts) {
  std::string s;
  (put(s, parts), ...);
  return s;
}
inline std::string hexn(uint64_t v) {
  char buf[24];
  std::snprintf(buf, sizeof buf, "0x%llx", static_cast<unsigned long long>(v));
  return buf;
}

// A row of a call table: one driver call on the caller's output memory `o` (of the file's Out).
#define CALL(...) [](Out &o) -> bf_status_t { (void)o; return __VA_ARGS__; }
// A refusal row of such a table, traced by its line.
#define REFUSE(st, ...) row(cat("line ", __LINE__), st, CALL(__VA_ARGS__))

// Every field of a match or action record, as text; images by content.
inline std::string describe(const pipe_tbl_match_spec_t &m) {
  char buf[96];
  std::snprintf(buf, sizeof buf, "p=%u part=%u bits=%u bytes=%u rsv=%u key=", m.priority, m.partition_index,
                m.num_valid_match_bits, m.num_match_bytes, m.reserved);
  return buf + hex(m.match_value_bytes, m.num_match_bytes) + "/" + hex(m.match_mask_bytes, m.num_match_bytes);
}
inline std::string describe(const pipe_action_spec_t &a) {
  char buf[96];
  std::snprintf(buf, sizeof buf, "type=%u rc=%u rsv=%u bits=%u bytes=%u m=%u g=%u img=", a.action_data_type,
                a.resource_count, a.reserved, a.act_data.num_valid_action_data_bits, a.act_data.num_action_data_bytes,
                a.member_hdl, a.group_hdl);
  return buf + hex(a.act_data.action_data_bytes, a.act_data.num_action_data_bytes) +
         " res=" + hex(reinterpret_cast<const uint8_t *>(a.resources), sizeof a.resources);
}

// Everything the model holds for a table, as text: each entry of handles 1 to 64 as the model's view
// shows it, with the handle its key finds; the default entry; the count and the walk. Equal texts mean
// no change. The driver calls made here are not recorded (and recording is on afterwards).
inline std::string table_state(bf_dev_id_t dev = 0, uint32_t tbl = kTbl) {
  std::string out;
  drvm_set_recording(0);
  for (uint32_t h = 1; h <= 64; ++h) {
    Stored s = stored(h, tbl, dev);
    uint32_t found = 0;
    if (s.st != BF_SUCCESS) continue;
    pipe_mgr_match_spec_to_ent_hdl(1, tgt(dev), tbl, &s.match, &found, false);
    for (const std::string &part : {std::string("[") + std::to_string(h), std::string(" found=") + std::to_string(found),
                                     std::string(" act=") + std::to_string(s.act),
                                     std::string(" ttl=") + std::to_string(s.ttl), std::string(" ") + describe(s.match),
                                     std::string(" ") + describe(s.action), std::string("]\n")})
      out.append(part);
  }
  uint32_t dh = 0, dact = 0;
  pipe_action_spec_t da;
  if (drvm_default_entry_get(dev, tbl, &dh, &dact, &da) == BF_SUCCESS)
    out += "[default " + std::to_string(dh) + " act=" + std::to_string(dact) + " " + describe(da) + "]\n";
  out += "count=" + std::to_string(drvm_entry_count(dev, tbl)) + " walk=";
  for (uint32_t h : walk(3, tbl, dev)) out += std::to_string(h) + ",";
  drvm_set_recording(1);
  return out;
}

#endif
