// The model's telemetry: on one world of digests, value sets, hashes and snapshots, what each call
// records, pass-through, every documented refusal (exact status, nothing written, nothing changed,
// the call recorded), each call with each allocation of the model's own memory failing in turn; and
// the behaviour of learning (batches by size and by timeout on the model clock, acknowledgements,
// callbacks that call the driver), value sets (properties, scopes, walks, counts), hashes (every
// algorithm against a bit-by-bit reference and its check value) and snapshots (handles, ranges,
// triggers, the capture buffer).
#include <algorithm>
#include <cstddef>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "alloc_fault.h"
#include "test_util.h"

namespace {

constexpr uint32_t kMac = 0x9000000, kVtep = 0x9000001;    // digests of 14 and 36 bytes
constexpr uint32_t kPvs = 0x1fc, kPvs2 = 0x200001f8;       // value sets: 4 entries of 16 bits; 8 of 32
constexpr uint32_t kHash = 0x8000000, kHash2 = 0x8000001;  // hashes
constexpr uint32_t kIn = 0x21000000, kIn2 = 0x21000001;    // their inputs
constexpr uint32_t kAlgo32 = 0x23000000, kAlgo32C = 0x23000001, kAlgo16 = 0x23000002;
constexpr uint32_t kUnset = 0xBEEFu;
constexpr uint64_t kUnset64 = 0xBEEFBEEFBEEFBEEFull;
constexpr uint32_t kRecord = 809, kPerStage = 1024;
constexpr uint32_t kAll = BF_DEV_PIPE_ALL, kGressAll = PIPE_MGR_PVS_GRESS_ALL, kParserAll = PIPE_MGR_PVS_PARSER_ALL;
constexpr uint32_t kIng = PIPE_MGR_PVS_GRESS_INGRESS, kEgr = PIPE_MGR_PVS_GRESS_EGRESS;

// The world's objects: value set entries e1 and e2, snapshots s1 (ingress, serial 1) and s2 (egress,
// serial 2), and the handles the next ones get.
enum : uint32_t { e1 = 1, e2 = 2, kNextEntry = 3 };
enum : uint32_t { s1 = 1u << 2, s2 = (2u << 2) | BF_SNAPSHOT_HDL_EGRESS_BIT, kNextIngress = 3u << 2 };

// A CRC-32 of bytes, to show a long byte string short.
uint32_t crc_of(const uint8_t *p, size_t n) {
  uint8_t out[4];
  EXPECT_EQ(drvm_hash_compute(DRVM_HASH_CRC_32, 0, p, static_cast<uint32_t>(n), out, 4), BF_SUCCESS);
  return uint32_t(out[0]) << 24 | uint32_t(out[1]) << 16 | uint32_t(out[2]) << 8 | out[3];
}
std::string short_hex(const uint8_t *p, size_t n) {
  if (p == nullptr || n <= 32) return hex(p, n);
  return cat(n, ":", hexn(crc_of(p, n)));
}

// n learned records of a digest of `size` bytes, the i-th record's bytes (first + i) * 16 + j.
Bytes records(uint32_t first, uint32_t n, uint32_t size = 14) {
  Bytes b;
  for (uint32_t i = 0; i < n; ++i)
    for (uint32_t j = 0; j < size; ++j) b.push_back(uint8_t((first + i) * 16 + j));
  return b;
}

// ---- What the learning callbacks were given ----

struct Got {
  pipe_sess_hdl_t sess;
  dev_target_t tgt;
  uint32_t digest;
  uint16_t n, size;
  Bytes bytes;
  pipe_flow_lrn_msg_t *msg;
  void *cookie;
};
std::vector<Got> g_got;
bool g_ack_in_cb = false;
// What the callback does after taking note: nothing, acknowledge every outstanding kMac message of
// device 0 (those of its own delivery not yet called back included), or reset the model.
enum class Then { nothing, ack_all, reset } g_then = Then::nothing;
int g_cookie;

pipe_status_t lrn_cb(pipe_sess_hdl_t sess, pipe_flow_lrn_msg_t *msg, void *cookie) {
  alloc_fault::disarm();  // it runs after a call succeeded (see the allocation failure tests)
  g_got.push_back(Got{sess, msg->dev_tgt, msg->flow_lrn_fld_lst_hdl, msg->num_entries, msg->entry_size,
                      Bytes(msg->entries, msg->entries + size_t(msg->num_entries) * msg->entry_size), msg, cookie});
  if (g_ack_in_cb) {
    EXPECT_EQ(pipe_mgr_flow_lrn_notify_ack(sess, msg->flow_lrn_fld_lst_hdl, msg), BF_SUCCESS);
  }
  if (g_then == Then::ack_all) {
    while (const pipe_flow_lrn_msg_t *m = drvm_learn_outstanding(0, kMac, 0)) {
      EXPECT_EQ(pipe_mgr_flow_lrn_notify_ack(sess, kMac, const_cast<pipe_flow_lrn_msg_t *>(m)), BF_SUCCESS);
    }
  }
  if (g_then == Then::reset) drvm_reset();
  return BF_SUCCESS;
}
pipe_status_t other_cb(pipe_sess_hdl_t, pipe_flow_lrn_msg_t *, void *) { return BF_SUCCESS; }

// ---- Records ----

using Attr = pipe_hash_calc_input_field_attribute_t;
const Attr kAttrs[2] = {{1, 0, 0, 2, 7, 0x11}, {2, 0, 0, 3, 8, 0x22}};

// The trigger of s1: byte 3 is 0x81 in the packets it captures; and a packet that matches it.
struct Phv {
  uint8_t value[kRecord] = {}, mask[kRecord] = {}, packet[kRecord] = {}, other[kRecord] = {};
  Phv() {
    value[3] = 0x81;
    mask[3] = 0xFF;
    for (uint32_t i = 0; i < kRecord; ++i) packet[i] = other[i] = uint8_t(i * 7);
    packet[3] = 0x81;
    other[3] = 0x80;
  }
};
const Phv kPhv;

// The delivered message of the world, not acknowledged.
pipe_flow_lrn_msg_t *g_msg = nullptr;

// The world, on device 0. Digests kMac (14 bytes; a callback with cookie g_cookie, session 7) and
// kVtep (36 bytes; none); batch size 4; six kMac records learned on pipe 1: one message of four
// delivered (g_msg, outstanding), two pending. Value set kPvs (4 entries of 16 bits): e1 (ingress,
// pipe 0, parser 0, 0x12B5/0xFFFF) and e2 (all, all, all, 0x0800/0xFF00), pipe scope single for
// ingress; kPvs2 (8 of 32 bits) empty. Algorithms kAlgo32 (CRC-32), kAlgo32C (CRC-32C) and kAlgo16
// (CRC-16); hashes kHash (kIn, kAlgo32; seed 5 and two attributes set on device 0) and kHash2 (kIn2,
// kAlgo32C). Snapshots s1 (ingress, pipe 1, stages 2 to 4, trigger byte 3 = 0x81, one packet
// captured) and s2 (egress, all pipes, stages 0 to 19, no trigger). No call recorded, nothing told.
class TelemetryTest : public ModelTest {
 protected:
  void SetUp() override {
    ModelTest::SetUp();
    g_got.clear();
    g_ack_in_cb = false;
    g_then = Then::nothing;
    ASSERT_EQ(drvm_declare_digest(kMac, 14), BF_SUCCESS);
    ASSERT_EQ(drvm_declare_digest(kVtep, 36), BF_SUCCESS);
    ASSERT_EQ(drvm_set_learn_batch_size(4), BF_SUCCESS);
    ASSERT_EQ(pipe_mgr_lrn_digest_notification_register(7, 0, kMac, lrn_cb, &g_cookie), BF_SUCCESS);
    const Bytes six = records(0, 6);
    ASSERT_EQ(drvm_learn(0, 1, kMac, six.data(), 6), BF_SUCCESS);
    ASSERT_EQ(g_got.size(), 1u);
    g_msg = g_got[0].msg;

    ASSERT_EQ(drvm_declare_value_set(kPvs, 4, 16), BF_SUCCESS);
    ASSERT_EQ(drvm_declare_value_set(kPvs2, 8, 32), BF_SUCCESS);
    uint32_t h = 0;
    ASSERT_EQ(pipe_mgr_pvs_entry_add(1, 0, kPvs, kIng, 0, 0, 0x12B5, 0xFFFF, &h), BF_SUCCESS);
    ASSERT_EQ(h, e1);
    ASSERT_EQ(pipe_mgr_pvs_entry_add(1, 0, kPvs, kGressAll, kAll, kParserAll, 0x0800, 0xFF00, &h), BF_SUCCESS);
    ASSERT_EQ(h, e2);
    ASSERT_EQ(pipe_mgr_pvs_set_property(1, 0, kPvs, PIPE_MGR_PVS_PROP_PIPE_SCOPE, {PIPE_MGR_PVS_SCOPE_SINGLE, 0},
                                        {kIng, 0, 0}),
              BF_SUCCESS);

    ASSERT_EQ(drvm_declare_hash_algorithm(kAlgo32, DRVM_HASH_CRC_32), BF_SUCCESS);
    ASSERT_EQ(drvm_declare_hash_algorithm(kAlgo32C, DRVM_HASH_CRC_32C), BF_SUCCESS);
    ASSERT_EQ(drvm_declare_hash_algorithm(kAlgo16, DRVM_HASH_CRC_16), BF_SUCCESS);
    ASSERT_EQ(drvm_declare_hash(kHash, kIn, kAlgo32), BF_SUCCESS);
    ASSERT_EQ(drvm_declare_hash(kHash2, kIn2, kAlgo32C), BF_SUCCESS);
    ASSERT_EQ(pipe_mgr_hash_calc_seed_set(1, 0, kHash, 5), BF_SUCCESS);
    Attr attrs[2] = {kAttrs[0], kAttrs[1]};
    ASSERT_EQ(pipe_mgr_hash_calc_input_field_attribute_set(1, 0, kHash, kIn, 2, attrs), BF_SUCCESS);

    ASSERT_EQ(bf_snapshot_create(0, 1, 2, 4, BF_SNAPSHOT_DIR_INGRESS, &h), BF_SUCCESS);
    ASSERT_EQ(h, s1);
    ASSERT_EQ(bf_snapshot_create(0, kAll, 0, 19, BF_SNAPSHOT_DIR_EGRESS, &h), BF_SUCCESS);
    ASSERT_EQ(h, s2);
    Phv phv;
    ASSERT_EQ(bf_snapshot_capture_trigger_set(s1, phv.value, phv.mask), BF_SUCCESS);
    int captured = 0;
    ASSERT_EQ(drvm_snapshot_packet(s1, 1, kPhv.packet, &captured), BF_SUCCESS);
    ASSERT_EQ(captured, 1);

    drvm_clear_calls();
    g_got.clear();
  }
  void Restart() {
    drvm_reset();
    g_got.clear();
    SetUp();
  }

  // Everything the world holds, as text. The driver calls made here are not recorded.
  static std::string state() {
    std::string s;
    drvm_set_recording(0);
    for (bf_dev_id_t dev : {0u, 1u}) {
      s += cat("device ", dev, " timeout=", drvm_learn_timeout(dev), "\n");
      for (uint32_t dg : {kMac, kVtep}) {
        pipe_flow_lrn_notify_cb cb = nullptr;
        void *cookie = nullptr;
        pipe_sess_hdl_t sess = 0;
        const bf_status_t st = drvm_learn_callback(dev, dg, &cb, &cookie, &sess);
        s += cat("digest ", dg, " cb=", st, "/", cb == lrn_cb, "/", cookie == &g_cookie, "/", sess,
                 " pending=", drvm_learn_pending(dev, dg), " dropped=", drvm_learn_dropped(dev, dg),
                 " delivered=", drvm_learn_delivered(dev, dg), " outstanding=", drvm_learn_outstanding_count(dev, dg));
        for (size_t i = 0; const pipe_flow_lrn_msg_t *m = drvm_learn_outstanding(dev, dg, i); ++i)
          s += cat(" [", m->dev_tgt.device_id, "/", m->dev_tgt.dev_pipe_id, " ", m->flow_lrn_fld_lst_hdl, " ",
                   m->num_entries, "x", m->entry_size, " ", hex(m->entries, size_t(m->num_entries) * m->entry_size),
                   "]");
        s += "\n";
      }
      for (uint32_t pvs : {kPvs, kPvs2}) {
        s += cat("pvs ", pvs, " count=", drvm_pvs_entry_count(dev, pvs));
        for (uint32_t h = 1; h < 8; ++h) {
          uint32_t v = 0, m = 0, g = 0, p = 0, r = 0;
          if (pipe_mgr_pvs_entry_get(1, dev, pvs, h, &v, &m, &g, &p, &r) == BF_SUCCESS)
            s += cat(" [", h, ": ", g, "/", p, "/", r, " ", hexn(v), "/", hexn(m), "]");
        }
        for (uint32_t prop = 0; prop < 3; ++prop)
          for (uint32_t arg : {kIng, kEgr, kGressAll}) {
            pipe_mgr_pvs_prop_value_t v{kUnset, kUnset};
            s += cat(" p", prop, "/", arg, "=", pipe_mgr_pvs_get_property(1, dev, pvs, prop, &v, {arg, 0, 0}), ":",
                     v.value);
          }
        s += "\n";
      }
      for (uint32_t hs : {kHash, kHash2}) {
        uint32_t in = 0, algo = 0, n = 0, filled = 0;
        uint64_t seed = 0;
        Attr attrs[4] = {};
        uint8_t out[4] = {};
        uint8_t stream[3] = {1, 2, 3};
        pipe_mgr_hash_calc_input_get(1, dev, hs, &in);
        pipe_mgr_hash_calc_algorithm_get(1, dev, hs, &algo, nullptr, nullptr);
        pipe_mgr_hash_calc_seed_get(1, dev, hs, &seed);
        pipe_mgr_hash_calc_input_field_attribute_count_get(1, dev, hs, in, &n);
        pipe_mgr_hash_calc_input_field_attribute_get(1, dev, hs, in, 4, attrs, &filled);
        pipe_mgr_hash_calc_calculate_hash_value(1, dev, hs, stream, 3, out, 4);
        s += cat("hash ", hs, " in=", in, " algo=", algo, " seed=", seed, " attrs=", n, "/", filled, " ",
                 hex(reinterpret_cast<const uint8_t *>(attrs), filled * sizeof(Attr)), " h=", hex(out, 4), "\n");
      }
    }
    s += cat("snapshots ", drvm_snapshot_count(), "\n");
    for (uint32_t serial = 1; serial < 6; ++serial)
      for (uint32_t egress : {0u, BF_SNAPSHOT_HDL_EGRESS_BIT}) {
        const uint32_t h = serial << 2 | egress;
        uint32_t total = 0, per = 0;
        if (bf_snapshot_capture_phv_fields_dict_size(h, &total, &per) != BF_SUCCESS) continue;
        const uint8_t *v = nullptr, *m = nullptr;
        s += cat("snapshot ", h, " size=", total, "/", per, " trigger=", drvm_snapshot_trigger(h, &v, &m), " ",
                 short_hex(v, v ? kRecord : 0), " ", short_hex(m, m ? kRecord : 0));
        for (uint32_t pipe : {0u, 1u, 2u, kAll}) {
          std::vector<uint8_t> buf(total, 0xA5);
          bf_snapshot_capture_ctrl_info_arr_t ctrl;
          std::memset(&ctrl, 0xA5, sizeof ctrl);
          int num = -7;
          const bf_status_t st = bf_snapshot_capture_get(h, pipe, buf.data(), &ctrl, &num);
          s += cat(" [pipe ", pipe, ": ", st, " ", num, " ", short_hex(buf.data(), buf.size()), " ",
                   short_hex(reinterpret_cast<const uint8_t *>(&ctrl), sizeof ctrl), "]");
        }
        s += "\n";
      }
    drvm_set_recording(1);
    return s;
  }
};

// The caller's output memory of one call, unwritten.
struct Out {
  uint32_t w[4] = {kUnset, kUnset, kUnset, kUnset};
  uint64_t seed = kUnset64;
  uint8_t hash[8] = {0xA5, 0xA5, 0xA5, 0xA5, 0xA5, 0xA5, 0xA5, 0xA5};
  pipe_mgr_pvs_prop_value_t prop{kUnset, kUnset};
  Attr attrs[3];
  std::vector<uint8_t> buf = std::vector<uint8_t>(20 * kPerStage, 0xA5);
  bf_snapshot_capture_ctrl_info_arr_t ctrl;
  int num = -7;
  Out() {
    std::memset(attrs, 0xA5, sizeof attrs);
    std::memset(&ctrl, 0xA5, sizeof ctrl);
  }
  std::string written() const {
    std::string s;
    for (int i = 0; i < 4; ++i) s += w[i] != kUnset ? cat(" w", i, "=", w[i]) : std::string();
    if (seed != kUnset64) s += " seed";
    for (uint8_t b : hash) s += b != 0xA5 ? " hash" : "";
    if (prop.value != kUnset || prop.reserved != kUnset) s += " prop";
    for (size_t i = 0; i < sizeof attrs; ++i) s += reinterpret_cast<const uint8_t *>(attrs)[i] != 0xA5 ? " attrs" : "";
    for (uint8_t b : buf) s += b != 0xA5 ? " buf" : "";
    for (size_t i = 0; i < sizeof ctrl; ++i) s += reinterpret_cast<const uint8_t *>(&ctrl)[i] != 0xA5 ? " ctrl" : "";
    if (num != -7) s += " num";
    return s;
  }
};
using Call = std::function<bf_status_t(Out &)>;

Phv g_trigger;  // the caller's trigger records of the ops below
uint8_t kStream[9] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};

// A call record as text: the function, then every field that is not 0 (numbers from 0xffff up in
// hex), its byte strings (long ones as length and CRC), and which pointers ptr_arg and ptr_arg2 are.
std::string fields(const drvm_call_t &c, const Out &o) {
  std::string s = c.fn;
  const std::pair<const char *, uint64_t> f[] = {{"st", uint32_t(c.status)},
                                                 {"sess", c.sess_hdl},
                                                 {"dev", c.dev_tgt.device_id},
                                                 {"pipe", c.dev_tgt.dev_pipe_id},
                                                 {"tbl", c.tbl_hdl},
                                                 {"act", c.act_fn_hdl},
                                                 {"ttl", c.ttl},
                                                 {"flags", c.flags},
                                                 {"ent", c.ent_hdl},
                                                 {"a0", c.arg_u32[0]},
                                                 {"a1", c.arg_u32[1]},
                                                 {"a2", c.arg_u32[2]},
                                                 {"a3", c.arg_u32[3]},
                                                 {"u64", c.arg_u64}};
  for (auto [name, v] : f)
    if (v) s += cat(" ", name, "=", v < 0xFFFF ? std::to_string(v) : hexn(v));
  if (c.text || c.has_match || c.has_action) s += " other";
  if (c.bytes) s += cat(" bytes=", short_hex(c.bytes, c.num_bytes));
  if (c.bytes2) s += cat(" bytes2=", short_hex(c.bytes2, c.num_bytes2));
  const std::pair<const void *, const char *> ptrs[] = {
      {nullptr, ""},     {o.w, "w0"},           {&o.w[1], "w1"},    {&o.seed, "seed"},
      {o.hash, "hash"},  {&o.prop, "prop"},     {o.attrs, "attrs"}, {o.buf.data(), "buf"},
      {&o.ctrl, "ctrl"}, {&g_cookie, "cookie"}, {g_msg, "msg"},     {reinterpret_cast<const void *>(&lrn_cb), "cb"}};
  for (const void *p : {c.ptr_arg, c.ptr_arg2}) {
    std::string name = "?";
    for (auto q : ptrs) name = p == q.first ? q.second : name;
    if (!name.empty()) s += cat(p == c.ptr_arg ? " ptr=" : " ptr2=", name);
  }
  return s;
}

struct Op {
  bool writes_handle;  // pvs_entry_add: the running count in pass-through
  Call call;
  std::string record;  // what fields() shows of its record, starting with the function's name
  std::string fn() const { return record.substr(0, record.find(' ')); }
  bool is_pipe() const { return fn().rfind("pipe_", 0) == 0; }
  bf_status_t status() const {
    const size_t at = record.find(" st=");
    return at == std::string::npos ? BF_SUCCESS : std::stoi(record.substr(at + 4));
  }
};

// The hash a driver call computes: `kind` over the nine check bytes with a seed, in 4 bytes.
std::string expect_hash(uint32_t kind, uint64_t seed, uint32_t len = 4) {
  uint8_t out[8];
  EXPECT_EQ(drvm_hash_compute(kind, seed, kStream, 9, out, len), BF_SUCCESS);
  return hex(out, len);
}

// One call of each telemetry function on the world. None allocates anything of its own.
std::vector<Op> ops() {
  Attr one[1] = {{9, 0, 0, 10, 1, 0x33}};
  static Attr s_one[1];
  s_one[0] = one[0];
  return {
      {false, CALL(pipe_mgr_lrn_digest_notification_register(3, 1, kMac, lrn_cb, &g_cookie)),
       "pipe_mgr_lrn_digest_notification_register sess=3 dev=1 pipe=0xffff tbl=0x9000000 ptr=cb ptr2=cookie"},
      {false, CALL(pipe_mgr_lrn_digest_notification_deregister(3, 0, kMac)),
       "pipe_mgr_lrn_digest_notification_deregister sess=3 pipe=0xffff tbl=0x9000000"},
      {false, CALL(pipe_mgr_flow_lrn_notify_ack(3, kMac, g_msg)),
       "pipe_mgr_flow_lrn_notify_ack sess=3 tbl=0x9000000 ptr=msg"},
      {false, CALL(pipe_mgr_flow_lrn_set_timeout(3, 0, 250)),
       "pipe_mgr_flow_lrn_set_timeout sess=3 pipe=0xffff a0=250"},
      {false,
       CALL(pipe_mgr_pvs_set_property(3, 0, kPvs, PIPE_MGR_PVS_PROP_PARSER_SCOPE, {PIPE_MGR_PVS_SCOPE_SINGLE, 0},
                                      {kEgr, 0, 0xdead})),
       "pipe_mgr_pvs_set_property sess=3 pipe=0xffff tbl=508 a0=2 bytes=0100000000000000 "
       "bytes2=0100000000000000adde0000"},
      {false, CALL(pipe_mgr_pvs_get_property(3, 0, kPvs, PIPE_MGR_PVS_PROP_PIPE_SCOPE, &o.prop, {kIng, 7, 8})),
       "pipe_mgr_pvs_get_property sess=3 pipe=0xffff tbl=508 a0=1 a1=1 bytes2=000000000700000008000000 ptr=prop"},
      {true, CALL(pipe_mgr_pvs_entry_add(3, 0, kPvs, kEgr, 2, 1, 0x0101, 0xFFFF, o.w)),
       "pipe_mgr_pvs_entry_add sess=3 pipe=2 tbl=508 ent=3 a0=1 a1=1 a2=257 a3=0xffff ptr=w0"},
      {false, CALL(pipe_mgr_pvs_entry_modify(3, 0, kPvs, e1, 0x1234, 0xFFF0)),
       "pipe_mgr_pvs_entry_modify sess=3 pipe=0xffff tbl=508 ent=1 a0=4660 a1=65520"},
      {false, CALL(pipe_mgr_pvs_entry_delete(3, 0, kPvs, e2)),
       "pipe_mgr_pvs_entry_delete sess=3 pipe=0xffff tbl=508 ent=2"},
      {false, CALL(pipe_mgr_pvs_entry_get(3, 0, kPvs, e1, &o.w[0], &o.w[1], nullptr, nullptr, nullptr)),
       "pipe_mgr_pvs_entry_get sess=3 pipe=0xffff tbl=508 ent=1 a0=3 ptr=w0 ptr2=w1"},
      {false, CALL(pipe_mgr_pvs_entry_handle_get(3, 0, kPvs, kGressAll, kAll, kParserAll, 0x0800, 0xFF00, o.w)),
       "pipe_mgr_pvs_entry_handle_get sess=3 pipe=0xffff tbl=508 ent=2 a0=255 a1=255 a2=2048 a3=65280 ptr=w0"},
      {false, CALL(pipe_mgr_pvs_entry_get_first(3, 0, kPvs, kEgr, 0, 0, o.w)),
       "pipe_mgr_pvs_entry_get_first sess=3 tbl=508 ent=2 a0=1 ptr=w0"},
      {false, CALL(pipe_mgr_pvs_entry_get_next(3, 0, kPvs, kIng, 0, 0, e1, 3, o.w)),
       "pipe_mgr_pvs_entry_get_next sess=3 tbl=508 ent=1 a2=3 a3=1 ptr=w0"},
      {false, CALL(pipe_mgr_pvs_entry_get_count(3, 0, kPvs, kIng, 0, kParserAll, true, o.w)),
       "pipe_mgr_pvs_entry_get_count sess=3 tbl=508 a1=255 a2=1 a3=2 ptr=w0"},
      {false, CALL(pipe_mgr_hash_calc_input_set(3, 0, kHash, kIn)),
       "pipe_mgr_hash_calc_input_set sess=3 pipe=0xffff tbl=0x8000000 a0=0x21000000"},
      {false, CALL(pipe_mgr_hash_calc_input_get(3, 0, kHash, o.w)),
       "pipe_mgr_hash_calc_input_get sess=3 pipe=0xffff tbl=0x8000000 a0=0x21000000 ptr=w0"},
      {false, CALL(pipe_mgr_hash_calc_algorithm_set(3, 0, kHash, kAlgo32C, nullptr, 0, 0)),
       "pipe_mgr_hash_calc_algorithm_set sess=3 pipe=0xffff tbl=0x8000000 a0=0x23000001"},
      {false, CALL(pipe_mgr_hash_calc_algorithm_get(3, 0, kHash, &o.w[0], nullptr, &o.w[1])),
       "pipe_mgr_hash_calc_algorithm_get sess=3 pipe=0xffff tbl=0x8000000 a0=0x23000000 a1=5 ptr=w0"},
      {false, CALL(pipe_mgr_hash_calc_seed_set(3, 0, kHash, 0x1122334455667788ull)),
       "pipe_mgr_hash_calc_seed_set sess=3 pipe=0xffff tbl=0x8000000 u64=0x1122334455667788"},
      {false, CALL(pipe_mgr_hash_calc_seed_get(3, 0, kHash, &o.seed)),
       "pipe_mgr_hash_calc_seed_get sess=3 pipe=0xffff tbl=0x8000000 u64=5 ptr=seed"},
      {false, CALL(pipe_mgr_hash_calc_input_field_attribute_set(3, 0, kHash, kIn, 1, s_one)),
       "pipe_mgr_hash_calc_input_field_attribute_set sess=3 pipe=0xffff tbl=0x8000000 a0=0x21000000 a1=1 "
       "bytes=0900000000000000000000000a0000000100000033000000 ptr=?"},
      {false, CALL(pipe_mgr_hash_calc_input_field_attribute_count_get(3, 0, kHash, kIn, o.w)),
       "pipe_mgr_hash_calc_input_field_attribute_count_get sess=3 pipe=0xffff tbl=0x8000000 a0=0x21000000 a1=2 "
       "ptr=w0"},
      {false, CALL(pipe_mgr_hash_calc_input_field_attribute_get(3, 0, kHash, kIn, 3, o.attrs, &o.w[0])),
       "pipe_mgr_hash_calc_input_field_attribute_get sess=3 pipe=0xffff tbl=0x8000000 a0=0x21000000 a1=3 a2=2 "
       "ptr=attrs"},
      {false, CALL(pipe_mgr_hash_calc_calculate_hash_value(3, 0, kHash, kStream, 9, o.hash, 4)),
       "pipe_mgr_hash_calc_calculate_hash_value sess=3 pipe=0xffff tbl=0x8000000 a0=9 a1=4 bytes=313233343536373839 "
       "bytes2=" +
           expect_hash(DRVM_HASH_CRC_32, 5) + " ptr=hash"},
      {false, CALL(bf_snapshot_create(2, 1, 0, 3, BF_SNAPSHOT_DIR_EGRESS, o.w)),
       "bf_snapshot_create dev=2 pipe=1 tbl=14 a1=3 a2=1 ptr=w0"},
      {false, CALL(bf_snapshot_delete(s2)), "bf_snapshot_delete tbl=10"},
      {false, CALL(bf_snapshot_capture_trigger_set(s2, g_trigger.value, g_trigger.mask)),
       "bf_snapshot_capture_trigger_set tbl=10 bytes=809:" + hexn(crc_of(g_trigger.value, kRecord)) +
           " bytes2=809:" + hexn(crc_of(g_trigger.mask, kRecord))},
      {false, CALL(bf_snapshot_capture_phv_fields_dict_size(s1, &o.w[0], &o.w[1])),
       "bf_snapshot_capture_phv_fields_dict_size tbl=4 a0=3072 a1=1024 ptr=w0 ptr2=w1"},
      {false, CALL(bf_snapshot_capture_get(s1, 1, o.buf.data(), &o.ctrl, &o.num)),
       "bf_snapshot_capture_get pipe=1 tbl=4 a0=3 ptr=buf ptr2=ctrl"},
  };
}

// The ops that write into the caller's memory on success (pass-through writes nothing but entry
// add's handle).
TEST_F(TelemetryTest, EachCallIsRecordedWithItsArgumentsAndResults) {
  for (const Op &op : ops()) {
    SCOPED_TRACE(op.record);
    Restart();
    Out o;
    const bf_status_t st = op.call(o);
    ASSERT_EQ(drvm_call_count(), 1u);
    EXPECT_EQ(drvm_call(0)->status, st);
    EXPECT_EQ(st, op.status());
    EXPECT_EQ(fields(*drvm_call(0), o), op.record);
  }
  // Refused calls record what was passed, and 0 for what they did not write.
  const std::pair<Call, std::string> rows[] = {
      {CALL(pipe_mgr_pvs_entry_add(3, 0, kPvs, kIng, 0, 0, 0x12B5, 0xFFFF, o.w)),
       "pipe_mgr_pvs_entry_add st=4 sess=3 tbl=508 a2=4789 a3=0xffff ptr=w0"},
      {CALL(pipe_mgr_pvs_entry_handle_get(3, 0, kPvs, kIng, 0, 0, 1, 1, o.w)),
       "pipe_mgr_pvs_entry_handle_get st=7 sess=3 tbl=508 a2=1 a3=1 ptr=w0"},
      {CALL(pipe_mgr_pvs_entry_get_next(3, 0, kPvs, kGressAll, kAll, kParserAll, e2, 2, o.w)),
       "pipe_mgr_pvs_entry_get_next st=10 sess=3 pipe=0xffff tbl=508 ent=2 a0=255 a1=255 a2=2 ptr=w0"},
      {CALL(pipe_mgr_hash_calc_calculate_hash_value(3, 0, kHash, kStream, 9, o.hash, 0)),
       "pipe_mgr_hash_calc_calculate_hash_value st=3 sess=3 pipe=0xffff tbl=0x8000000 a0=9 bytes=313233343536373839 "
       "ptr=hash"},
      {CALL(bf_snapshot_create(0, 0, 3, 2, BF_SNAPSHOT_DIR_INGRESS, o.w)), "bf_snapshot_create st=3 a0=3 a1=2 ptr=w0"},
      {CALL(bf_snapshot_capture_trigger_set(s1, nullptr, g_trigger.mask)),
       "bf_snapshot_capture_trigger_set st=3 tbl=4 bytes2=809:" + hexn(crc_of(g_trigger.mask, kRecord))},
      {CALL(pipe_mgr_flow_lrn_notify_ack(3, kVtep, g_msg)),
       "pipe_mgr_flow_lrn_notify_ack st=12 sess=3 tbl=0x9000001 ptr=msg"},
  };
  for (const auto &[call, want] : rows) {
    SCOPED_TRACE(want);
    Restart();
    Out o;
    call(o);
    ASSERT_EQ(drvm_call_count(), 1u);
    EXPECT_EQ(fields(*drvm_call(0), o), want);
  }
}

TEST_F(TelemetryTest, PassThroughAnswersEveryPipeFunctionAtOnceAndNoSnapshotFunction) {
  const std::string before = state();
  drvm_fail_next("pipe_mgr_pvs_entry_delete", BF_INJECTED_FAULT);
  drvm_set_passthrough(1);
  uint32_t running = 0;
  size_t snapshot_calls = 0;
  for (const Op &op : ops()) {
    if (!op.is_pipe()) {
      ++snapshot_calls;
      continue;
    }
    Out o;
    EXPECT_EQ(op.call(o), BF_SUCCESS) << op.fn();
    if (op.writes_handle) {
      EXPECT_EQ(std::exchange(o.w[0], kUnset), ++running) << op.fn();
    }
    EXPECT_EQ(o.written(), "") << op.fn();
  }
  uint32_t h = 0;
  EXPECT_EQ(pipe_mgr_pvs_entry_add(1, 0, kPvs, 0, 0, 0, 0, 0, nullptr), BF_SUCCESS) << "a null pointer skips the write";
  EXPECT_EQ(pipe_mgr_pvs_entry_add(1, 0, 0x77, 0, 0, 0, 0, 0, &h), BF_SUCCESS);
  EXPECT_EQ(h, running + 2) << "the count went on";
  EXPECT_EQ(drvm_call_count(), 0u);
  EXPECT_TRUE(g_got.empty());
  drvm_set_passthrough(0);
  EXPECT_EQ(state(), before);
  EXPECT_EQ(pipe_mgr_pvs_entry_delete(1, 0, kPvs, e1), BF_INJECTED_FAULT) << "the queued refusal waited";
  // The snapshot functions are not of those: they are served and recorded all the same.
  size_t served = 0;
  for (const Op &op : ops()) {
    if (op.is_pipe()) continue;
    Restart();
    drvm_set_passthrough(1);
    Out o;
    EXPECT_EQ(op.call(o), op.status()) << op.fn();
    ASSERT_EQ(drvm_call_count(), 1u) << op.fn();
    EXPECT_EQ(fields(*drvm_call(0), o), op.record);
    ++served;
  }
  EXPECT_EQ(served, snapshot_calls);
  EXPECT_EQ(served, 5u);
}

// ---- Every documented refusal ----

struct Refusal {
  std::string what;
  bf_status_t st;
  Call call;
  std::function<void()> then;        // if set, runs after the checks
  std::function<void()> prep;        // if set, changes the world first (not recorded)
  uint32_t next_entry = kNextEntry;  // the value set entry handle device 0 issues next
};

std::vector<Refusal> refusals() {
  std::vector<Refusal> v;
  auto row = [&v](std::string what, bf_status_t st, Call call, std::function<void()> then = nullptr) {
    v.push_back({std::move(what), st, std::move(call), std::move(then), nullptr});
  };
  auto prepared = [&v](std::string what, bf_status_t st, std::function<void()> prep, uint32_t next, Call call) {
    v.push_back({std::move(what), st, std::move(call), nullptr, std::move(prep), next});
  };
  for (const Op &op : ops())
    row(
        cat(op.fn(), ": a queued fault"), BF_INJECTED_FAULT,
        [op](Out &o) {
          drvm_fail_next(op.fn().c_str(), BF_INJECTED_FAULT);
          return op.call(o);
        },
        [op] {
          Out again;
          EXPECT_EQ(op.call(again), op.status());
        });
  constexpr uint32_t kNoDigest = 0x9000005, kNoPvs = 0x1f0, kNoHash = 0x8000009;
  // Learning digests.
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_lrn_digest_notification_register(1, 0, kNoDigest, lrn_cb, nullptr));
  REFUSE(BF_INVALID_ARG, pipe_mgr_lrn_digest_notification_register(1, 0, kVtep, nullptr, nullptr));
  REFUSE(BF_ALREADY_EXISTS, pipe_mgr_lrn_digest_notification_register(1, 0, kMac, other_cb, nullptr));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_lrn_digest_notification_deregister(1, 0, kVtep));  // deregister: none registered
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_lrn_digest_notification_deregister(1, 1, kMac));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_lrn_digest_notification_deregister(1, 0, kNoDigest));
  REFUSE(BF_INVALID_ARG, pipe_mgr_flow_lrn_notify_ack(1, kMac, nullptr));  // notify_ack: a null message
  row("notify_ack: an unknown message", BF_OBJECT_NOT_FOUND, [](Out &) {
    pipe_flow_lrn_msg_t copy = *g_msg;  // the same contents elsewhere
    return pipe_mgr_flow_lrn_notify_ack(1, kMac, &copy);
  });
  REFUSE(BF_TABLE_MISMATCH, pipe_mgr_flow_lrn_notify_ack(1, kVtep, g_msg));  // notify_ack: another digest's handle
  // Value sets.
  REFUSE(BF_OBJECT_NOT_FOUND,
         pipe_mgr_pvs_set_property(1, 0, kNoPvs, PIPE_MGR_PVS_PROP_GRESS_SCOPE, {0, 0}, {0, 0, 0}));
  REFUSE(BF_INVALID_ARG, pipe_mgr_pvs_set_property(1, 0, kPvs, 3, {0, 0}, {0, 0, 0}));
  REFUSE(BF_INVALID_ARG, pipe_mgr_pvs_set_property(1, 0, kPvs, PIPE_MGR_PVS_PROP_GRESS_SCOPE, {2, 0}, {0, 0, 0}));
  REFUSE(BF_INVALID_ARG, pipe_mgr_pvs_get_property(1, 0, kPvs, 7, &o.prop, {0, 0, 0}));
  REFUSE(BF_INVALID_ARG, pipe_mgr_pvs_get_property(1, 0, kPvs, 0, nullptr, {0, 0, 0}));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_pvs_get_property(1, 0, kNoPvs, 0, &o.prop, {0, 0, 0}));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_pvs_entry_add(1, 0, kNoPvs, kIng, 0, 0, 1, 1, o.w));
  REFUSE(BF_INVALID_ARG, pipe_mgr_pvs_entry_add(1, 0, kPvs, kIng, 0, 0, 1, 1, nullptr));
  REFUSE(BF_INVALID_ARG, pipe_mgr_pvs_entry_add(1, 0, kPvs, 2, 0, 0, 1, 1, o.w));  // entry_add: a gress that is none
  REFUSE(BF_INVALID_ARG, pipe_mgr_pvs_entry_add(1, 0, kPvs, kIng, 0, 0x100, 1, 1, o.w));
  REFUSE(BF_INVALID_ARG, pipe_mgr_pvs_entry_add(1, 0, kPvs, kIng, 0, 0, 0x10000, 1, o.w));
  REFUSE(BF_INVALID_ARG, pipe_mgr_pvs_entry_add(1, 0, kPvs, kIng, 0, 0, 1, 0x1FFFF, o.w));
  REFUSE(BF_ALREADY_EXISTS, pipe_mgr_pvs_entry_add(1, 0, kPvs, kGressAll, kAll, kParserAll, 0x0800, 0xFF00, o.w));
  // Device 1 holds 3 entries of kPvs (4 added, 1 deleted), device 0 the 4 it can.
  prepared(
      "entry_add: a full set", BF_NO_SPACE,
      [] {
        uint32_t h;
        for (uint32_t v = 1; v <= 4; ++v)
          EXPECT_EQ(pipe_mgr_pvs_entry_add(1, 1, kPvs, kIng, 0, 0, v, 1, &h), BF_SUCCESS);
        EXPECT_EQ(pipe_mgr_pvs_entry_delete(1, 1, kPvs, h), BF_SUCCESS);
        for (uint32_t v = 3; v <= 4; ++v)
          EXPECT_EQ(pipe_mgr_pvs_entry_add(1, 0, kPvs, kIng, 0, 0, v, 1, &h), BF_SUCCESS);
      },
      kNextEntry + 2, CALL(pipe_mgr_pvs_entry_add(1, 0, kPvs, kEgr, 1, 1, 5, 5, o.w)));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_pvs_entry_modify(1, 0, kPvs, 9, 1, 1));    // entry_modify: an unknown entry
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_pvs_entry_modify(1, 0, kPvs2, e1, 1, 1));  // entry_modify: another set's entry
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_pvs_entry_modify(1, 1, kPvs, e1, 1, 1));   // entry_modify: another device
  REFUSE(BF_INVALID_ARG, pipe_mgr_pvs_entry_modify(1, 0, kPvs, e1, 0x10000, 1));
  prepared(
      "entry_modify: to another entry's key", BF_ALREADY_EXISTS,
      [] {
        uint32_t h;
        EXPECT_EQ(pipe_mgr_pvs_entry_add(1, 0, kPvs, kIng, 0, 0, 1, 1, &h), BF_SUCCESS);
      },
      kNextEntry + 1, CALL(pipe_mgr_pvs_entry_modify(1, 0, kPvs, e1, 1, 1)));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_pvs_entry_delete(1, 0, kPvs, kNextEntry));  // entry_delete: an unknown entry
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_pvs_entry_delete(1, 0, kNoPvs, e1));        // entry_delete: an undeclared set
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_pvs_entry_get(1, 0, kPvs, 0, &o.w[0], &o.w[1], &o.w[2], &o.w[3], nullptr));
  REFUSE(BF_KEY_NOT_FOUND, pipe_mgr_pvs_entry_handle_get(1, 0, kPvs, kIng, 0, 0, 0x12B5, 0xFFF0, o.w));
  REFUSE(BF_KEY_NOT_FOUND, pipe_mgr_pvs_entry_handle_get(1, 0, kPvs, kIng, kAll, 0, 0x12B5, 0xFFFF, o.w));
  REFUSE(BF_INVALID_ARG, pipe_mgr_pvs_entry_handle_get(1, 0, kPvs, kIng, 0, 0, 0x12B5, 0xFFFF, nullptr));
  REFUSE(BF_END_OF_WALK, pipe_mgr_pvs_entry_get_first(1, 0, kPvs2, kIng, 0, 0, o.w));  // get_first: none in the scope
  REFUSE(BF_INVALID_ARG, pipe_mgr_pvs_entry_get_first(1, 0, kPvs, 5, 0, 0, o.w));  // get_first: a gress that is none
  REFUSE(BF_INVALID_ARG, pipe_mgr_pvs_entry_get_first(1, 0, kPvs, kIng, 0, 0, nullptr));    // get_first: a null pointer
  REFUSE(BF_INVALID_ARG, pipe_mgr_pvs_entry_get_next(1, 0, kPvs, kIng, 0, 0, e1, 0, o.w));  // get_next: n 0
  REFUSE(BF_INVALID_ARG, pipe_mgr_pvs_entry_get_next(1, 0, kPvs, kIng, 0, 0, e1, 2, nullptr));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_pvs_entry_get_next(1, 0, kPvs, kEgr, 0, 0, e1, 2, o.w));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_pvs_entry_get_next(1, 0, kPvs, kIng, 0, 0, 9, 2, o.w));
  REFUSE(BF_INVALID_ARG, pipe_mgr_pvs_entry_get_count(1, 0, kPvs, kIng, 0, 0, false, nullptr));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_pvs_entry_get_count(1, 0, kNoPvs, kIng, 0, 0, false, o.w));
  // Hashes.
  REFUSE(BF_INVALID_ARG, pipe_mgr_hash_calc_input_set(1, 0, kHash, 0));           // input_set: 0
  REFUSE(BF_INVALID_ARG, pipe_mgr_hash_calc_input_set(1, 0, kHash, kIn2));        // input_set: another hash's input
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_hash_calc_input_set(1, 0, kNoHash, kIn));  // input_set: an undeclared hash
  REFUSE(BF_INVALID_ARG, pipe_mgr_hash_calc_input_get(1, 0, kHash, nullptr));     // input_get: a null pointer
  REFUSE(BF_INVALID_ARG, pipe_mgr_hash_calc_algorithm_set(1, 0, kHash, 0, nullptr, 0, 0));  // algorithm_set: 0
  REFUSE(BF_INVALID_ARG, pipe_mgr_hash_calc_algorithm_set(1, 0, kHash, 0x23000009, nullptr, 0, 0));
  REFUSE(BF_NOT_SUPPORTED, pipe_mgr_hash_calc_algorithm_set(1, 0, kHash, kAlgo16, o.hash, 0, 0));
  REFUSE(BF_NOT_SUPPORTED, pipe_mgr_hash_calc_algorithm_set(1, 0, kHash, kAlgo16, nullptr, 1, 0));
  REFUSE(BF_NOT_SUPPORTED, pipe_mgr_hash_calc_algorithm_set(1, 0, kHash, kAlgo16, nullptr, 0, 8));
  REFUSE(BF_INVALID_ARG, pipe_mgr_hash_calc_algorithm_get(1, 0, kHash, nullptr, nullptr, &o.w[1]));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_hash_calc_algorithm_get(1, 0, kNoHash, &o.w[0], nullptr, &o.w[1]));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_hash_calc_seed_set(1, 0, kNoHash, 1));  // seed_set: an undeclared hash
  REFUSE(BF_INVALID_ARG, pipe_mgr_hash_calc_seed_get(1, 0, kHash, nullptr));   // seed_get: a null pointer
  REFUSE(BF_INVALID_ARG, pipe_mgr_hash_calc_input_field_attribute_set(1, 0, kHash, 0, 0, nullptr));
  REFUSE(BF_INVALID_ARG, pipe_mgr_hash_calc_input_field_attribute_set(1, 0, kHash, kIn, 1, nullptr));
  REFUSE(BF_INVALID_ARG, pipe_mgr_hash_calc_input_field_attribute_count_get(1, 0, kHash, kIn2, o.w));
  REFUSE(BF_INVALID_ARG, pipe_mgr_hash_calc_input_field_attribute_count_get(1, 0, kHash, kIn, nullptr));
  REFUSE(BF_INVALID_ARG, pipe_mgr_hash_calc_input_field_attribute_get(1, 0, kHash, kIn, 3, o.attrs, nullptr));
  REFUSE(BF_INVALID_ARG, pipe_mgr_hash_calc_input_field_attribute_get(1, 0, kHash, kIn, 3, nullptr, o.w));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_hash_calc_input_field_attribute_get(1, 0, kNoHash, kIn, 3, o.attrs, o.w));
  REFUSE(BF_INVALID_ARG, pipe_mgr_hash_calc_calculate_hash_value(1, 0, kHash, kStream, 9, nullptr, 4));
  REFUSE(BF_INVALID_ARG, pipe_mgr_hash_calc_calculate_hash_value(1, 0, kHash, nullptr, 9, o.hash, 4));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_hash_calc_calculate_hash_value(1, 0, kNoHash, kStream, 9, o.hash, 4));
  // Snapshots.
  REFUSE(BF_INVALID_ARG, bf_snapshot_create(0, 0, 5, 4, BF_SNAPSHOT_DIR_INGRESS, o.w));  // create: end before start
  REFUSE(BF_INVALID_ARG, bf_snapshot_create(0, 0, 0, 20, BF_SNAPSHOT_DIR_INGRESS, o.w));
  REFUSE(BF_INVALID_ARG, bf_snapshot_create(0, 0, 0, 1, 2, o.w));  // create: an unknown direction
  REFUSE(BF_INVALID_ARG, bf_snapshot_create(0, 0, 0, 1, BF_SNAPSHOT_DIR_INGRESS, nullptr));
  REFUSE(BF_OBJECT_NOT_FOUND, bf_snapshot_delete(kNextIngress));  // delete: an unknown handle
  REFUSE(BF_OBJECT_NOT_FOUND, bf_snapshot_delete(s1 | BF_SNAPSHOT_HDL_EGRESS_BIT));
  REFUSE(BF_OBJECT_NOT_FOUND, bf_snapshot_capture_trigger_set(0, g_trigger.value, g_trigger.mask));
  REFUSE(BF_INVALID_ARG, bf_snapshot_capture_trigger_set(s2, g_trigger.value, nullptr));  // trigger_set: a null mask
  REFUSE(BF_OBJECT_NOT_FOUND, bf_snapshot_capture_phv_fields_dict_size(kNextIngress, &o.w[0], &o.w[1]));
  REFUSE(BF_INVALID_ARG, bf_snapshot_capture_phv_fields_dict_size(s1, &o.w[0], nullptr));  // dict_size: a null pointer
  REFUSE(BF_OBJECT_NOT_FOUND, bf_snapshot_capture_get(kNextIngress, 1, o.buf.data(), &o.ctrl, &o.num));
  REFUSE(BF_INVALID_ARG, bf_snapshot_capture_get(s1, 0, o.buf.data(), &o.ctrl, &o.num));
  REFUSE(BF_INVALID_ARG, bf_snapshot_capture_get(s1, 1, nullptr, &o.ctrl, &o.num));  // capture_get: a null buffer
  REFUSE(BF_INVALID_ARG, bf_snapshot_capture_get(s1, 1, o.buf.data(), &o.ctrl, nullptr));
  return v;
}

TEST_F(TelemetryTest, EachRefusalReturnsItsStatusAndChangesNothing) {
  for (const Refusal &r : refusals()) {
    SCOPED_TRACE(r.what);
    Restart();
    if (r.prep) {
      drvm_set_recording(0);
      r.prep();
      drvm_set_recording(1);
    }
    Out o;
    const std::string before = state();
    EXPECT_EQ(r.call(o), r.st);
    EXPECT_EQ(o.written(), "");
    EXPECT_TRUE(g_got.empty());
    ASSERT_EQ(drvm_call_count(), 1u);
    EXPECT_EQ(drvm_call(0)->status, r.st);
    EXPECT_EQ(state(), before);
    // Nor did it use a handle.
    uint32_t h = 0;
    drvm_set_recording(0);
    EXPECT_EQ(bf_snapshot_create(0, 0, 0, 0, BF_SNAPSHOT_DIR_INGRESS, &h), BF_SUCCESS);
    EXPECT_EQ(h, kNextIngress);
    EXPECT_EQ(pipe_mgr_pvs_entry_add(1, 0, kPvs2, kIng, 0, 0, 1, 1, &h), BF_SUCCESS);
    EXPECT_EQ(h, r.next_entry);
    drvm_set_recording(1);
    if (r.then) r.then();
  }
}

// Each call, with each allocation of the model's own memory failing in turn: BF_NO_SYS_RESOURCES,
// the world as it was, nothing written or delivered, no handle used.
using TelemetryAllocationFailureTest = TelemetryTest;
TEST_F(TelemetryAllocationFailureTest, EachCallAnswersNoSysResourcesAndChangesNothing) {
  for (const Op &op : ops()) {
    const auto [st, failures] = alloc_fault::sweep<Out>(
        op.fn(), [&] { Restart(); }, [&](Out &o) { return op.call(o); }, [&] { return state(); },
        [&] {
          EXPECT_TRUE(g_got.empty());
          uint32_t h = 0;  // nor did it use a handle
          EXPECT_EQ(bf_snapshot_create(0, 0, 0, 0, BF_SNAPSHOT_DIR_INGRESS, &h), BF_SUCCESS);
          EXPECT_EQ(h, kNextIngress);
          EXPECT_EQ(pipe_mgr_pvs_entry_add(1, 0, kPvs2, kIng, 0, 0, 1, 1, &h), BF_SUCCESS);
          EXPECT_EQ(h, kNextEntry);
        });
    EXPECT_EQ(st, op.status());
    EXPECT_GT(failures, 0u) << op.fn() << " allocates at least its record";
  }
}

// The model's own calls that take memory: learning, a packet's capture, the declarations. After a
// failed declaration the handle is still free (`free` declares it otherwise, successfully).
TEST_F(TelemetryAllocationFailureTest, ModelCallsAnswerNoSysResourcesAndChangeNothing) {
  struct Row {
    std::string what;
    std::function<bf_status_t()> call;
    std::function<bf_status_t()> free;
  };
  static const Bytes nine = records(10, 9), one = records(10, 1, 36);
  const Row rows[] = {
      {"learn two full batches and one more", [] { return drvm_learn(0, 2, kMac, nine.data(), 9); }, nullptr},
      {"learn with no callback", [] { return drvm_learn(1, 2, kVtep, one.data(), 1); }, nullptr},
      {"a packet captured", [] { return drvm_snapshot_packet(s2, 3, kPhv.packet, nullptr); }, nullptr},
      {"a digest declared", [] { return drvm_declare_digest(0x9000002, 8); },
       [] { return drvm_declare_digest(0x9000002, 9); }},
      {"a value set declared", [] { return drvm_declare_value_set(0x1f1, 8, 8); },
       [] { return drvm_declare_value_set(0x1f1, 9, 8); }},
      {"an algorithm declared", [] { return drvm_declare_hash_algorithm(0x23000005, DRVM_HASH_IDENTITY); },
       [] { return drvm_declare_hash_algorithm(0x23000005, DRVM_HASH_CRC_8); }},
      {"a hash declared", [] { return drvm_declare_hash(0x8000005, 0x21000005, kAlgo16); },
       [] { return drvm_declare_hash(0x8000005, 0x21000006, kAlgo16); }},
  };
  for (const Row &row : rows) {
    size_t failures = 0;
    for (size_t k = 0;; ++k) {
      SCOPED_TRACE(cat(row.what, ": allocation ", k, " fails"));
      Restart();
      drvm_set_recording(0);
      ASSERT_EQ(bf_snapshot_capture_trigger_set(s2, g_trigger.value, g_trigger.mask), BF_SUCCESS);
      drvm_set_recording(1);
      const std::string before = state();
      alloc_fault::arm(k);
      const bf_status_t st = row.call();
      if (!alloc_fault::disarm()) {
        EXPECT_EQ(st, BF_SUCCESS);
        break;
      }
      ++failures;
      EXPECT_EQ(st, BF_NO_SYS_RESOURCES);
      EXPECT_TRUE(g_got.empty());
      EXPECT_EQ(state(), before);
      if (row.free) {
        EXPECT_EQ(row.free(), BF_SUCCESS);
      }
    }
    EXPECT_GT(failures, 0u) << row.what;
  }
}

// A batch due while memory runs out stays pending and goes at the next move of the clock. (Each
// allocation fails in turn: one of them is the delivery's.)
TEST_F(TelemetryAllocationFailureTest, ATimeoutWithoutMemoryDeliversAtTheNextTick) {
  size_t held = 0;
  for (size_t k = 0;; ++k) {
    SCOPED_TRACE(cat("allocation ", k, " fails"));
    Restart();
    drvm_advance_clock(999);
    ASSERT_TRUE(g_got.empty());
    alloc_fault::arm(k);
    drvm_advance_clock(1);
    if (!alloc_fault::disarm()) {
      EXPECT_EQ(g_got.size(), 1u);
      break;
    }
    if (!g_got.empty()) continue;  // another part of the clock's move went without
    ++held;
    EXPECT_EQ(drvm_learn_pending(0, kMac), 2u);
    EXPECT_EQ(drvm_learn_outstanding_count(0, kMac), 1u);
    EXPECT_EQ(drvm_learn_delivered(0, kMac), 1u);
    drvm_advance_clock(0);
    ASSERT_EQ(g_got.size(), 1u);
    EXPECT_EQ(g_got[0].bytes, records(4, 2));
    EXPECT_EQ(drvm_learn_pending(0, kMac), 0u);
  }
  EXPECT_GT(held, 0u);
}

// ---- Learning digests ----

using LearnTest = TelemetryTest;

TEST_F(LearnTest, FullBatchesAreDeliveredAtOnceWithExactlyTheRecordsLearned) {
  // Two pending (records 4 and 5); nine more on pipe 2: records 4 to 7, then 8 to 11, go at once;
  // 12 to 14 wait.
  const Bytes nine = records(6, 9);
  ASSERT_EQ(drvm_learn(0, 2, kMac, nine.data(), 9), BF_SUCCESS);
  ASSERT_EQ(g_got.size(), 2u);
  EXPECT_EQ(g_got[0].bytes, records(4, 4));
  EXPECT_EQ(g_got[1].bytes, records(8, 4));
  for (const Got &g : g_got) {
    EXPECT_EQ(g.sess, 7u);
    EXPECT_EQ(g.cookie, &g_cookie);
    EXPECT_EQ(g.digest, kMac);
    EXPECT_EQ(g.n, 4);
    EXPECT_EQ(g.size, 14);
    EXPECT_EQ(g.tgt.device_id, 0u);
  }
  EXPECT_EQ(g_got[0].tgt.dev_pipe_id, kAll) << "records of pipes 1 and 2";
  EXPECT_EQ(g_got[1].tgt.dev_pipe_id, 2u);
  EXPECT_EQ(drvm_learn_pending(0, kMac), 3u);
  EXPECT_EQ(drvm_learn_delivered(0, kMac), 3u);
  EXPECT_EQ(drvm_learn_outstanding_count(0, kMac), 3u);
  EXPECT_EQ(drvm_learn_outstanding(0, kMac, 0), g_msg);
  EXPECT_EQ(drvm_learn_outstanding(0, kMac, 1), g_got[0].msg);
  EXPECT_EQ(drvm_learn_outstanding(0, kMac, 3), nullptr);
  // The first message, still outstanding, holds records 0 to 3 on pipe 1.
  EXPECT_EQ(Bytes(g_msg->entries, g_msg->entries + 56), records(0, 4));
  EXPECT_EQ(g_msg->dev_tgt.dev_pipe_id, 1u);
  EXPECT_EQ(drvm_call_count(), 0u) << "delivery is no driver call";
}

TEST_F(LearnTest, ABatchGoesWhenTheTimeoutHasPassedSinceItsFirstRecord) {
  drvm_advance_clock(600);
  const Bytes one = records(20, 1);
  ASSERT_EQ(drvm_learn(0, 1, kMac, one.data(), 1), BF_SUCCESS);
  drvm_advance_clock(399);
  EXPECT_TRUE(g_got.empty()) << "999 us since the first pending record";
  drvm_advance_clock(1);
  ASSERT_EQ(g_got.size(), 1u);
  Bytes want = records(4, 2);
  want.insert(want.end(), one.begin(), one.end());
  EXPECT_EQ(g_got[0].bytes, want);
  EXPECT_EQ(g_got[0].n, 3);
  EXPECT_EQ(drvm_learn_pending(0, kMac), 0u);
  // A new batch starts its own wait; the device's timeout may change.
  ASSERT_EQ(pipe_mgr_flow_lrn_set_timeout(1, 0, 50), BF_SUCCESS);
  EXPECT_EQ(drvm_learn_timeout(0), 50u);
  EXPECT_EQ(drvm_learn_timeout(1), 1000u);
  ASSERT_EQ(drvm_learn(0, 1, kMac, one.data(), 1), BF_SUCCESS);
  drvm_advance_clock(49);
  EXPECT_EQ(g_got.size(), 1u);
  drvm_advance_clock(1);
  EXPECT_EQ(g_got.size(), 2u);
  drvm_advance_clock(1000);
  EXPECT_EQ(g_got.size(), 2u) << "nothing pending, nothing delivered";
}

TEST_F(LearnTest, ATimeoutOfZeroDeliversEveryRecordAtOnce) {
  ASSERT_EQ(pipe_mgr_flow_lrn_set_timeout(1, 0, 0), BF_SUCCESS);
  EXPECT_TRUE(g_got.empty()) << "the pending batch goes at the next learn or tick";
  const Bytes one = records(30, 1);
  ASSERT_EQ(drvm_learn(0, 1, kMac, one.data(), 1), BF_SUCCESS);
  ASSERT_EQ(g_got.size(), 1u);
  EXPECT_EQ(g_got[0].n, 3);
  ASSERT_EQ(drvm_learn(0, 1, kMac, one.data(), 1), BF_SUCCESS);
  EXPECT_EQ(g_got.size(), 2u);
}

TEST_F(LearnTest, UnacknowledgedMessagesAreKeptAndLaterBatchesStillDelivered) {
  const Bytes many = records(6, 14);
  ASSERT_EQ(drvm_learn(0, 1, kMac, many.data(), 14), BF_SUCCESS);
  ASSERT_EQ(g_got.size(), 4u);
  EXPECT_EQ(drvm_learn_outstanding_count(0, kMac), 5u);
  for (size_t i = 0; i < 4; ++i) EXPECT_EQ(drvm_learn_outstanding(0, kMac, i + 1), g_got[i].msg);
  // Released out of order; the others stay as they were.
  ASSERT_EQ(pipe_mgr_flow_lrn_notify_ack(1, kMac, g_got[2].msg), BF_SUCCESS);
  EXPECT_EQ(drvm_learn_outstanding_count(0, kMac), 4u);
  EXPECT_EQ(drvm_learn_outstanding(0, kMac, 3), g_got[3].msg);
  EXPECT_EQ(Bytes(g_got[3].msg->entries, g_got[3].msg->entries + 56), records(16, 4));
}

TEST_F(LearnTest, TheCallbackMayAcknowledgeFromInside) {
  g_ack_in_cb = true;
  const Bytes eight = records(6, 8);
  ASSERT_EQ(drvm_learn(0, 1, kMac, eight.data(), 8), BF_SUCCESS);
  ASSERT_EQ(g_got.size(), 2u);
  EXPECT_EQ(drvm_learn_outstanding_count(0, kMac), 1u) << "only the world's message is left";
  EXPECT_EQ(drvm_count_calls("pipe_mgr_flow_lrn_notify_ack"), 2u);
  EXPECT_EQ(drvm_last_call(nullptr)->status, BF_SUCCESS);
  // And from a delivery on the clock.
  drvm_advance_clock(1000);
  EXPECT_EQ(g_got.size(), 3u);
  EXPECT_EQ(drvm_learn_outstanding_count(0, kMac), 1u);
}

TEST_F(LearnTest, AMessageAcknowledgedBeforeItsTurnIsNotDeliveredAndAResetEndsTheDeliveries) {
  g_then = Then::ack_all;
  const Bytes ten = records(6, 10);
  ASSERT_EQ(drvm_learn(0, 1, kMac, ten.data(), 10), BF_SUCCESS);
  ASSERT_EQ(g_got.size(), 1u) << "the first callback acknowledged the second message too";
  EXPECT_EQ(g_got[0].bytes, records(4, 4));
  EXPECT_EQ(drvm_learn_outstanding_count(0, kMac), 0u);
  EXPECT_EQ(drvm_learn_delivered(0, kMac), 4u) << "counted as delivered when handed over";
  EXPECT_EQ(drvm_learn_pending(0, kMac), 0u);
  Restart();
  g_then = Then::reset;
  ASSERT_EQ(drvm_learn(0, 1, kMac, ten.data(), 10), BF_SUCCESS);
  EXPECT_EQ(g_got.size(), 1u);
  EXPECT_EQ(drvm_learn_outstanding_count(0, kMac), 0u);
  EXPECT_EQ(drvm_learn(0, 1, kMac, ten.data(), 1), BF_OBJECT_NOT_FOUND);
}

TEST_F(LearnTest, DeregisterDropsThePendingBatchAndLaterRecordsUntilARegistration) {
  ASSERT_EQ(pipe_mgr_lrn_digest_notification_deregister(1, 0, kMac), BF_SUCCESS);
  EXPECT_EQ(drvm_learn_dropped(0, kMac), 2u);
  EXPECT_EQ(drvm_learn_pending(0, kMac), 0u);
  EXPECT_EQ(drvm_learn_callback(0, kMac, nullptr, nullptr, nullptr), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(pipe_mgr_lrn_digest_notification_deregister(1, 0, kMac), BF_OBJECT_NOT_FOUND) << "the second one";
  const Bytes five = records(40, 5);
  ASSERT_EQ(drvm_learn(0, 1, kMac, five.data(), 5), BF_SUCCESS);
  drvm_advance_clock(5000);
  EXPECT_TRUE(g_got.empty());
  EXPECT_EQ(drvm_learn_dropped(0, kMac), 7u);
  EXPECT_EQ(drvm_learn_outstanding_count(0, kMac), 1u) << "the delivered message stays until acknowledged";
  EXPECT_EQ(pipe_mgr_flow_lrn_notify_ack(1, kMac, g_msg), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_lrn_digest_notification_register(2, 0, kMac, lrn_cb, nullptr), BF_SUCCESS);
  ASSERT_EQ(drvm_learn(0, 1, kMac, five.data(), 5), BF_SUCCESS);
  ASSERT_EQ(g_got.size(), 1u);
  EXPECT_EQ(g_got[0].sess, 2u);
  EXPECT_EQ(g_got[0].cookie, nullptr);
  EXPECT_EQ(g_got[0].bytes, records(40, 4));
}

TEST_F(LearnTest, DevicesAndDigestsAreIndependent) {
  ASSERT_EQ(pipe_mgr_lrn_digest_notification_register(1, 1, kVtep, lrn_cb, &g_cookie), BF_SUCCESS);
  const Bytes vtep = records(0, 4, 36);
  ASSERT_EQ(drvm_learn(0, 0, kVtep, vtep.data(), 4), BF_SUCCESS);
  EXPECT_TRUE(g_got.empty()) << "no callback on device 0";
  EXPECT_EQ(drvm_learn_dropped(0, kVtep), 4u);
  ASSERT_EQ(drvm_learn(1, 3, kVtep, vtep.data(), 4), BF_SUCCESS);
  ASSERT_EQ(g_got.size(), 1u);
  EXPECT_EQ(g_got[0].size, 36);
  EXPECT_EQ(g_got[0].tgt.device_id, 1u);
  EXPECT_EQ(g_got[0].tgt.dev_pipe_id, 3u);
  EXPECT_EQ(g_got[0].bytes, vtep);
  EXPECT_EQ(drvm_learn_pending(0, kMac), 2u);
  EXPECT_EQ(pipe_mgr_flow_lrn_notify_ack(1, kVtep, g_got[0].msg), BF_SUCCESS);
}

TEST_F(LearnTest, TheBatchSizeAndTheModelCallsRefusals) {
  EXPECT_EQ(drvm_set_learn_batch_size(0), BF_INVALID_ARG);
  EXPECT_EQ(drvm_set_learn_batch_size(0x10000), BF_INVALID_ARG);
  ASSERT_EQ(drvm_set_learn_batch_size(1), BF_SUCCESS);
  const Bytes one = records(50, 1);
  ASSERT_EQ(drvm_learn(0, 1, kMac, one.data(), 1), BF_SUCCESS);
  ASSERT_EQ(g_got.size(), 3u) << "the two pending and the new one, one message each";
  EXPECT_EQ(g_got[2].bytes, one);
  EXPECT_EQ(drvm_learn(0, 1, 0x9000007, one.data(), 1), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(drvm_learn(0, 1, kMac, nullptr, 1), BF_INVALID_ARG);
  EXPECT_EQ(drvm_learn(0, 1, kMac, nullptr, 0), BF_SUCCESS);
  EXPECT_EQ(drvm_declare_digest(kMac, 14), BF_SUCCESS);
  EXPECT_EQ(drvm_declare_digest(kMac, 15), BF_ALREADY_EXISTS);
  EXPECT_EQ(drvm_declare_digest(0x9000009, 0), BF_INVALID_ARG);
  EXPECT_EQ(drvm_declare_digest(0x9000009, 0x10000), BF_INVALID_ARG);
  drvm_reset();
  EXPECT_EQ(drvm_learn(0, 1, kMac, one.data(), 1), BF_OBJECT_NOT_FOUND) << "the reset forgot the digest";
  EXPECT_EQ(drvm_learn_outstanding_count(0, kMac), 0u);
}

// ---- Parser value sets ----

using ValueSetTest = TelemetryTest;

// A whole walk of a scope, in batches of `batch`, checking the -1 fill and the end of the walk.
std::vector<uint32_t> pvs_walk(uint32_t pvs, uint32_t gress, uint32_t pipe, uint32_t parser, int batch) {
  std::vector<uint32_t> seen(1), out(batch);
  if (pipe_mgr_pvs_entry_get_first(1, 0, pvs, gress, pipe, parser, &seen[0]) != BF_SUCCESS) return {};
  for (int round = 0;; ++round) {
    if (round == kMaxWalkRounds) {
      ADD_FAILURE() << "the walk does not end";
      return seen;
    }
    const bf_status_t st = pipe_mgr_pvs_entry_get_next(1, 0, pvs, gress, pipe, parser, seen.back(), batch, out.data());
    int k = 0;
    while (k < batch && out[k] != 0xFFFFFFFFu) seen.push_back(out[k++]);
    for (int i = k; i < batch; ++i) EXPECT_EQ(out[i], 0xFFFFFFFFu);
    EXPECT_EQ(st, k ? BF_SUCCESS : BF_END_OF_WALK);
    if (st != BF_SUCCESS) return seen;
  }
}
uint32_t pvs_count(uint32_t pvs, uint32_t gress, uint32_t pipe, uint32_t parser) {
  uint32_t n = kUnset;
  EXPECT_EQ(pipe_mgr_pvs_entry_get_count(1, 0, pvs, gress, pipe, parser, false, &n), BF_SUCCESS);
  return n;
}

TEST_F(ValueSetTest, PropertiesAreKeptPerPropertyAndArgument) {
  pipe_mgr_pvs_prop_value_t v{kUnset, kUnset};
  ASSERT_EQ(pipe_mgr_pvs_get_property(1, 0, kPvs, PIPE_MGR_PVS_PROP_PIPE_SCOPE, &v, {kIng, 0, 0}), BF_SUCCESS);
  EXPECT_EQ(v.value, uint32_t(PIPE_MGR_PVS_SCOPE_SINGLE));
  EXPECT_EQ(v.reserved, 0u);
  ASSERT_EQ(pipe_mgr_pvs_get_property(1, 0, kPvs, PIPE_MGR_PVS_PROP_PIPE_SCOPE, &v, {kEgr, 0, 0}), BF_SUCCESS);
  EXPECT_EQ(v.value, uint32_t(PIPE_MGR_PVS_SCOPE_ALL)) << "another argument, never set";
  ASSERT_EQ(pipe_mgr_pvs_get_property(1, 1, kPvs, PIPE_MGR_PVS_PROP_PIPE_SCOPE, &v, {kIng, 0, 0}), BF_SUCCESS);
  EXPECT_EQ(v.value, uint32_t(PIPE_MGR_PVS_SCOPE_ALL)) << "another device";
  ASSERT_EQ(
      pipe_mgr_pvs_set_property(1, 0, kPvs, PIPE_MGR_PVS_PROP_GRESS_SCOPE, {PIPE_MGR_PVS_SCOPE_SINGLE, 9}, {0, 1, 2}),
      BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_pvs_get_property(1, 0, kPvs, PIPE_MGR_PVS_PROP_GRESS_SCOPE, &v, {0, 5, 6}), BF_SUCCESS);
  EXPECT_EQ(v.value, uint32_t(PIPE_MGR_PVS_SCOPE_SINGLE)) << "the argument's other words are not read";
  ASSERT_EQ(
      pipe_mgr_pvs_set_property(1, 0, kPvs, PIPE_MGR_PVS_PROP_PIPE_SCOPE, {PIPE_MGR_PVS_SCOPE_ALL, 0}, {kIng, 0, 0}),
      BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_pvs_get_property(1, 0, kPvs, PIPE_MGR_PVS_PROP_PIPE_SCOPE, &v, {kIng, 0, 0}), BF_SUCCESS);
  EXPECT_EQ(v.value, uint32_t(PIPE_MGR_PVS_SCOPE_ALL)) << "replaced";
}

TEST_F(ValueSetTest, AddIssuesHandlesAndRefusesDuplicatesAndAFullSet) {
  uint32_t h = 0;
  // The same value under another mask, or the same key in another scope, is another entry.
  ASSERT_EQ(pipe_mgr_pvs_entry_add(1, 0, kPvs, kIng, 0, 0, 0x12B5, 0xFF00, &h), BF_SUCCESS);
  EXPECT_EQ(h, 3u);
  ASSERT_EQ(pipe_mgr_pvs_entry_add(1, 0, kPvs, kIng, 1, 0, 0x12B5, 0xFFFF, &h), BF_SUCCESS);
  EXPECT_EQ(h, 4u);
  EXPECT_EQ(pipe_mgr_pvs_entry_add(1, 0, kPvs, kEgr, 1, 0, 0x12B5, 0xFFFF, &h), BF_NO_SPACE);
  EXPECT_EQ(pipe_mgr_pvs_entry_add(1, 0, kPvs, kIng, 1, 0, 0x12B5, 0xFFFF, &h), BF_ALREADY_EXISTS)
      << "a duplicate is that, even in a full set";
  EXPECT_EQ(h, 4u);
  ASSERT_EQ(pipe_mgr_pvs_entry_delete(1, 0, kPvs, 3), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_pvs_entry_add(1, 0, kPvs, kEgr, 1, 0, 0x12B5, 0xFFFF, &h), BF_SUCCESS);
  EXPECT_EQ(h, 5u) << "a deleted handle is not issued again";
  EXPECT_EQ(drvm_pvs_entry_count(0, kPvs), 4u);
  // Handles are the device's, across sets; another device counts its own.
  ASSERT_EQ(pipe_mgr_pvs_entry_add(1, 0, kPvs2, kIng, 0, 0, 0xFFFFFFFF, 0xFFFFFFFF, &h), BF_SUCCESS);
  EXPECT_EQ(h, 6u);
  ASSERT_EQ(pipe_mgr_pvs_entry_add(1, 1, kPvs, kIng, 0, 0, 1, 1, &h), BF_SUCCESS);
  EXPECT_EQ(h, 1u);
  EXPECT_EQ(drvm_pvs_entry_count(1, kPvs), 1u);
}

TEST_F(ValueSetTest, WalksAndCountsSeeTheirScopeAndWildcardsSeeAll) {
  // e1: ingress/0/0; e2: all/all/all; then e3: egress/1/2, e4: ingress/1/all, e5 (kPvs2).
  uint32_t h = 0;
  ASSERT_EQ(pipe_mgr_pvs_entry_add(1, 0, kPvs, kEgr, 1, 2, 3, 3, &h), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_pvs_entry_add(1, 0, kPvs, kIng, 1, kParserAll, 4, 4, &h), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_pvs_entry_add(1, 0, kPvs2, kIng, 0, 0, 5, 5, &h), BF_SUCCESS);
  using V = std::vector<uint32_t>;
  for (int batch : {1, 2, 3, 5}) {
    EXPECT_EQ(pvs_walk(kPvs, kGressAll, kAll, kParserAll, batch), (V{1, 2, 3, 4})) << batch;
    EXPECT_EQ(pvs_walk(kPvs, kIng, kAll, kParserAll, batch), (V{1, 2, 4})) << batch;
    EXPECT_EQ(pvs_walk(kPvs, kEgr, 1, 2, batch), (V{2, 3})) << batch;
    EXPECT_EQ(pvs_walk(kPvs, kIng, 1, 7, batch), (V{2, 4})) << batch;
    EXPECT_EQ(pvs_walk(kPvs, kIng, 0, 0, batch), (V{1, 2})) << batch;
    EXPECT_EQ(pvs_walk(kPvs, kEgr, 0, 0, batch), (V{2})) << batch;
    EXPECT_EQ(pvs_walk(kPvs2, kGressAll, kAll, kParserAll, batch), (V{5})) << batch;
  }
  EXPECT_EQ(pvs_count(kPvs, kGressAll, kAll, kParserAll), 4u);
  EXPECT_EQ(pvs_count(kPvs, kIng, kAll, kParserAll), 3u);
  EXPECT_EQ(pvs_count(kPvs, kEgr, 1, 2), 2u);
  EXPECT_EQ(pvs_count(kPvs, kEgr, 3, 3), 1u);
  EXPECT_EQ(pvs_count(kPvs2, kEgr, 0, 0), 0u);
  EXPECT_EQ(pvs_count(kPvs, kIng, 0, 0), 2u);
  uint32_t n = kUnset;
  ASSERT_EQ(pipe_mgr_pvs_entry_get_count(1, 1, kPvs, kGressAll, kAll, kParserAll, true, &n), BF_SUCCESS);
  EXPECT_EQ(n, 0u) << "another device";
  // The end of a walk: every slot -1.
  uint32_t out[3] = {1, 2, 3};
  EXPECT_EQ(pipe_mgr_pvs_entry_get_next(1, 0, kPvs, kGressAll, kAll, kParserAll, 4, 3, out), BF_END_OF_WALK);
  EXPECT_EQ(out[0], 0xFFFFFFFFu);
  EXPECT_EQ(out[2], 0xFFFFFFFFu);
  // A walk goes on from a start that is still there, past deleted entries.
  ASSERT_EQ(pipe_mgr_pvs_entry_delete(1, 0, kPvs, 2), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_pvs_entry_get_next(1, 0, kPvs, kGressAll, kAll, kParserAll, 1, 3, out), BF_SUCCESS);
  EXPECT_EQ(out[0], 3u);
  EXPECT_EQ(out[1], 4u);
  EXPECT_EQ(out[2], 0xFFFFFFFFu);
}

TEST_F(ValueSetTest, GetModifyAndHandleGet) {
  uint32_t v = kUnset, m = kUnset, g = kUnset, p = kUnset, r = kUnset;
  ASSERT_EQ(pipe_mgr_pvs_entry_get(1, 0, kPvs, e2, &v, &m, &g, &p, &r), BF_SUCCESS);
  EXPECT_EQ(v, 0x0800u);
  EXPECT_EQ(m, 0xFF00u);
  EXPECT_EQ(g, kGressAll);
  EXPECT_EQ(p, kAll);
  EXPECT_EQ(r, kParserAll);
  // Each output may be null.
  EXPECT_EQ(pipe_mgr_pvs_entry_get(1, 0, kPvs, e1, nullptr, nullptr, nullptr, nullptr, nullptr), BF_SUCCESS);
  v = m = kUnset;
  ASSERT_EQ(pipe_mgr_pvs_entry_get(1, 0, kPvs, e1, nullptr, &m, nullptr, &p, nullptr), BF_SUCCESS);
  EXPECT_EQ(m, 0xFFFFu);
  EXPECT_EQ(p, 0u);
  EXPECT_EQ(v, kUnset);
  // Modify keeps the scope and the handle; the key finds it after.
  ASSERT_EQ(pipe_mgr_pvs_entry_modify(1, 0, kPvs, e1, 0x0001, 0x000F), BF_SUCCESS);
  uint32_t h = kUnset;
  EXPECT_EQ(pipe_mgr_pvs_entry_handle_get(1, 0, kPvs, kIng, 0, 0, 0x12B5, 0xFFFF, &h), BF_KEY_NOT_FOUND);
  EXPECT_EQ(h, kUnset);
  ASSERT_EQ(pipe_mgr_pvs_entry_handle_get(1, 0, kPvs, kIng, 0, 0, 0x0001, 0x000F, &h), BF_SUCCESS);
  EXPECT_EQ(h, e1);
  ASSERT_EQ(pipe_mgr_pvs_entry_modify(1, 0, kPvs, e1, 0x0001, 0x000F), BF_SUCCESS) << "to its own key";
  ASSERT_EQ(pipe_mgr_pvs_entry_handle_get(1, 0, kPvs, kGressAll, kAll, kParserAll, 0x0800, 0xFF00, &h), BF_SUCCESS);
  EXPECT_EQ(h, e2);
  ASSERT_EQ(pipe_mgr_pvs_entry_delete(1, 0, kPvs, e2), BF_SUCCESS);
  EXPECT_EQ(pipe_mgr_pvs_entry_get(1, 0, kPvs, e2, &v, nullptr, nullptr, nullptr, nullptr), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(pipe_mgr_pvs_entry_delete(1, 0, kPvs, e2), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(drvm_pvs_entry_count(0, kPvs), 1u);
}

TEST_F(ValueSetTest, Declarations) {
  EXPECT_EQ(drvm_declare_value_set(kPvs, 4, 16), BF_SUCCESS);
  EXPECT_EQ(drvm_declare_value_set(kPvs, 5, 16), BF_ALREADY_EXISTS);
  EXPECT_EQ(drvm_declare_value_set(kPvs, 4, 8), BF_ALREADY_EXISTS);
  EXPECT_EQ(drvm_declare_value_set(0x1f3, 0, 8), BF_INVALID_ARG);
  EXPECT_EQ(drvm_declare_value_set(0x1f3, 1, 0), BF_INVALID_ARG);
  EXPECT_EQ(drvm_declare_value_set(0x1f3, 1, 33), BF_INVALID_ARG);
  uint32_t h = 0;
  EXPECT_EQ(pipe_mgr_pvs_entry_add(1, 0, 0x1f3, kIng, 0, 0, 1, 1, &h), BF_OBJECT_NOT_FOUND);
  ASSERT_EQ(drvm_declare_value_set(0x1f3, 1, 1), BF_SUCCESS);
  EXPECT_EQ(pipe_mgr_pvs_entry_add(1, 0, 0x1f3, kIng, 0, 0, 2, 1, &h), BF_INVALID_ARG) << "one bit wide";
  EXPECT_EQ(pipe_mgr_pvs_entry_add(1, 0, 0x1f3, kIng, 0, 0, 1, 1, &h), BF_SUCCESS);
}

// ---- Dynamic hashes ----

using HashTest = TelemetryTest;

uint32_t reflect_bits(uint32_t v, unsigned w) {
  uint32_t r = 0;
  for (unsigned i = 0; i < w; ++i) r |= ((v >> i) & 1u) << (w - 1 - i);
  return r;
}

// The catalogue's definition, one bit at a time, with the seed XORed into the initial value.
struct Params {
  uint32_t kind;
  unsigned width;
  uint32_t poly, init;
  bool reflected;
  uint32_t xorout, check;
};
const Params kParams[] = {{DRVM_HASH_CRC_8, 8, 0x07, 0x00, false, 0x00, 0xF4},
                          {DRVM_HASH_CRC_16, 16, 0x8005, 0x0000, true, 0x0000, 0xBB3D},
                          {DRVM_HASH_CRC_16_IBM_3740, 16, 0x1021, 0xFFFF, false, 0x0000, 0x29B1},
                          {DRVM_HASH_CRC_32, 32, 0x04C11DB7, 0xFFFFFFFF, true, 0xFFFFFFFF, 0xCBF43926},
                          {DRVM_HASH_CRC_32C, 32, 0x1EDC6F41, 0xFFFFFFFF, true, 0xFFFFFFFF, 0xE3069283}};

uint32_t crc_bitwise(const Params &a, uint64_t seed, const uint8_t *p, size_t n) {
  const uint32_t mask = a.width == 32 ? 0xFFFFFFFFu : (1u << a.width) - 1;
  const uint32_t top = 1u << (a.width - 1);
  uint32_t reg = (a.init ^ uint32_t(seed)) & mask;
  for (size_t i = 0; i < n; ++i) {
    const uint32_t byte = a.reflected ? reflect_bits(p[i], 8) : p[i];
    for (int bit = 7; bit >= 0; --bit) {
      const bool in = (byte >> bit) & 1u, out = (reg & top) != 0;
      reg = (reg << 1) & mask;
      if (in != out) reg ^= a.poly;
    }
  }
  if (a.reflected) reg = reflect_bits(reg, a.width);
  return (reg ^ a.xorout) & mask;
}

uint64_t be(const uint8_t *p, size_t n) {
  uint64_t v = 0;
  for (size_t i = 0; i < n; ++i) v = v << 8 | p[i];
  return v;
}

TEST_F(HashTest, EachCrcAgreesWithTheBitByBitReferenceOnRandomStreamsAndSeeds) {
  std::mt19937_64 rng(20240611);
  for (const Params &a : kParams) {
    SCOPED_TRACE(a.kind);
    ASSERT_EQ(crc_bitwise(a, 0, kStream, 9), a.check) << "the reference itself";
    for (int round = 0; round < 300; ++round) {
      const size_t n = rng() % 97;
      Bytes stream(n);
      for (uint8_t &b : stream) b = uint8_t(rng());
      const uint64_t seed = round % 4 == 0 ? 0 : rng();
      uint8_t out[4];
      const uint32_t bytes = a.width / 8;
      ASSERT_EQ(drvm_hash_compute(a.kind, seed, stream.data(), uint32_t(n), out, bytes), BF_SUCCESS);
      ASSERT_EQ(be(out, bytes), crc_bitwise(a, seed, stream.data(), n)) << "length " << n << " seed " << seed;
    }
  }
}

TEST_F(HashTest, TheResultIsRightAlignedInTheLengthAsked) {
  uint8_t out[8];
  ASSERT_EQ(drvm_hash_compute(DRVM_HASH_CRC_32, 0, kStream, 9, out, 6), BF_SUCCESS);
  EXPECT_EQ(hex(out, 6), "0000cbf43926");
  ASSERT_EQ(drvm_hash_compute(DRVM_HASH_CRC_32, 0, kStream, 9, out, 2), BF_SUCCESS);
  EXPECT_EQ(hex(out, 2), "3926");
  ASSERT_EQ(drvm_hash_compute(DRVM_HASH_CRC_8, 0, kStream, 9, out, 3), BF_SUCCESS);
  EXPECT_EQ(hex(out, 3), "0000f4");
  // The identity: the stream's last bytes, XOR the seed's low bytes.
  ASSERT_EQ(drvm_hash_compute(DRVM_HASH_IDENTITY, 0, kStream, 9, out, 4), BF_SUCCESS);
  EXPECT_EQ(hex(out, 4), "36373839");
  ASSERT_EQ(drvm_hash_compute(DRVM_HASH_IDENTITY, 0x0102, kStream, 9, out, 4), BF_SUCCESS);
  EXPECT_EQ(hex(out, 4), "3637393b");
  ASSERT_EQ(drvm_hash_compute(DRVM_HASH_IDENTITY, 0x1122334455667788ull, kStream, 2, out, 8), BF_SUCCESS);
  EXPECT_EQ(hex(out, 8), "11223344556646ba");
  ASSERT_EQ(drvm_hash_compute(DRVM_HASH_IDENTITY, 0, nullptr, 0, out, 2), BF_SUCCESS);
  EXPECT_EQ(hex(out, 2), "0000");
  EXPECT_EQ(drvm_hash_compute(6, 0, kStream, 9, out, 4), BF_INVALID_ARG);
  EXPECT_EQ(drvm_hash_compute(DRVM_HASH_CRC_32, 0, kStream, 9, out, 0), BF_INVALID_ARG);
  EXPECT_EQ(drvm_hash_compute(DRVM_HASH_CRC_32, 0, nullptr, 1, out, 4), BF_INVALID_ARG);
  EXPECT_EQ(drvm_hash_compute(DRVM_HASH_CRC_32, 0, kStream, 9, nullptr, 4), BF_INVALID_ARG);
}

TEST_F(HashTest, TheDriverComputesByTheHashsAlgorithmAndSeed) {
  uint8_t out[4];
  // kHash2: CRC-32C, seed 0.
  ASSERT_EQ(pipe_mgr_hash_calc_calculate_hash_value(1, 0, kHash2, kStream, 9, out, 4), BF_SUCCESS);
  EXPECT_EQ(be(out, 4), 0xE3069283u);
  // kHash: CRC-32 with seed 5 on device 0, seed 0 on device 1.
  ASSERT_EQ(pipe_mgr_hash_calc_calculate_hash_value(1, 0, kHash, kStream, 9, out, 4), BF_SUCCESS);
  EXPECT_EQ(be(out, 4), crc_bitwise(kParams[3], 5, kStream, 9));
  ASSERT_EQ(pipe_mgr_hash_calc_calculate_hash_value(1, 1, kHash, kStream, 9, out, 4), BF_SUCCESS);
  EXPECT_EQ(be(out, 4), 0xCBF43926u);
  ASSERT_EQ(pipe_mgr_hash_calc_algorithm_set(1, 1, kHash, kAlgo16, nullptr, 0, 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_hash_calc_calculate_hash_value(1, 1, kHash, kStream, 9, out, 4), BF_SUCCESS);
  EXPECT_EQ(be(out, 4), 0xBB3Du);
  ASSERT_EQ(pipe_mgr_hash_calc_seed_set(1, 1, kHash, 0xFFFFFFFF00000000ull), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_hash_calc_calculate_hash_value(1, 1, kHash, kStream, 9, out, 4), BF_SUCCESS);
  EXPECT_EQ(be(out, 4), 0xBB3Du) << "only the seed's low 16 bits enter a CRC-16";
  // An empty stream (a calculation over no field).
  ASSERT_EQ(pipe_mgr_hash_calc_calculate_hash_value(1, 1, kHash2, nullptr, 0, out, 4), BF_SUCCESS);
  EXPECT_EQ(be(out, 4), 0u) << "CRC-32C of nothing";
  // Recording off, the same result.
  drvm_set_recording(0);
  ASSERT_EQ(pipe_mgr_hash_calc_calculate_hash_value(1, 0, kHash2, kStream, 9, out, 4), BF_SUCCESS);
  EXPECT_EQ(be(out, 4), 0xE3069283u);
}

TEST_F(HashTest, InputAlgorithmSeedAndAttributesAreKeptPerDevice) {
  uint32_t w = kUnset, rot = kUnset;
  ASSERT_EQ(pipe_mgr_hash_calc_input_get(1, 1, kHash2, &w), BF_SUCCESS);
  EXPECT_EQ(w, kIn2);
  ASSERT_EQ(pipe_mgr_hash_calc_input_set(1, 1, kHash2, kIn2), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_hash_calc_algorithm_get(1, 1, kHash2, &w, nullptr, &rot), BF_SUCCESS);
  EXPECT_EQ(w, kAlgo32C);
  EXPECT_EQ(rot, 0u);
  ASSERT_EQ(pipe_mgr_hash_calc_algorithm_set(1, 1, kHash2, kAlgo32, nullptr, 0, 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_hash_calc_algorithm_get(1, 1, kHash2, &w, nullptr, nullptr), BF_SUCCESS);
  EXPECT_EQ(w, kAlgo32);
  ASSERT_EQ(pipe_mgr_hash_calc_algorithm_get(1, 0, kHash2, &w, nullptr, nullptr), BF_SUCCESS);
  EXPECT_EQ(w, kAlgo32C) << "device 0 keeps its own";
  uint64_t seed = 0;
  ASSERT_EQ(pipe_mgr_hash_calc_seed_get(1, 0, kHash, &seed), BF_SUCCESS);
  EXPECT_EQ(seed, 5u);
  ASSERT_EQ(pipe_mgr_hash_calc_seed_set(1, 0, kHash, ~0ull), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_hash_calc_seed_get(1, 0, kHash, &seed), BF_SUCCESS);
  EXPECT_EQ(seed, ~0ull);
  // Attributes: a set replaces the list; a get fills up to its capacity and says how many.
  uint32_t n = kUnset;
  ASSERT_EQ(pipe_mgr_hash_calc_input_field_attribute_count_get(1, 0, kHash, kIn, &n), BF_SUCCESS);
  EXPECT_EQ(n, 2u);
  Attr got[3];
  std::memset(got, 0xA5, sizeof got);
  ASSERT_EQ(pipe_mgr_hash_calc_input_field_attribute_get(1, 0, kHash, kIn, 1, got, &n), BF_SUCCESS);
  EXPECT_EQ(n, 1u);
  EXPECT_EQ(std::memcmp(&got[0], &kAttrs[0], sizeof(Attr)), 0);
  EXPECT_EQ(got[1].input_field, 0xA5A5A5A5u) << "nothing past the capacity";
  ASSERT_EQ(pipe_mgr_hash_calc_input_field_attribute_get(1, 0, kHash, kIn, 3, got, &n), BF_SUCCESS);
  EXPECT_EQ(n, 2u);
  EXPECT_EQ(std::memcmp(got, kAttrs, sizeof kAttrs), 0);
  ASSERT_EQ(pipe_mgr_hash_calc_input_field_attribute_get(1, 0, kHash, kIn, 0, nullptr, &n), BF_SUCCESS);
  EXPECT_EQ(n, 0u);
  Attr three[3] = {kAttrs[1], kAttrs[0], kAttrs[1]};
  ASSERT_EQ(pipe_mgr_hash_calc_input_field_attribute_set(1, 0, kHash, kIn, 3, three), BF_SUCCESS);
  three[0].value = 99;  // the caller's list is copied
  ASSERT_EQ(pipe_mgr_hash_calc_input_field_attribute_get(1, 0, kHash, kIn, 3, got, &n), BF_SUCCESS);
  EXPECT_EQ(n, 3u);
  EXPECT_EQ(got[0].value, kAttrs[1].value);
  ASSERT_EQ(pipe_mgr_hash_calc_input_field_attribute_set(1, 0, kHash, kIn, 0, nullptr), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_hash_calc_input_field_attribute_count_get(1, 0, kHash, kIn, &n), BF_SUCCESS);
  EXPECT_EQ(n, 0u) << "cleared";
  ASSERT_EQ(pipe_mgr_hash_calc_input_field_attribute_count_get(1, 1, kHash, kIn, &n), BF_SUCCESS);
  EXPECT_EQ(n, 0u) << "device 1 never had any";
}

TEST_F(HashTest, Declarations) {
  EXPECT_EQ(drvm_declare_hash_algorithm(0, DRVM_HASH_CRC_32), BF_INVALID_ARG);
  EXPECT_EQ(drvm_declare_hash_algorithm(0x23000007, 6), BF_INVALID_ARG);
  EXPECT_EQ(drvm_declare_hash_algorithm(kAlgo32, DRVM_HASH_CRC_32), BF_SUCCESS);
  EXPECT_EQ(drvm_declare_hash_algorithm(kAlgo32, DRVM_HASH_CRC_32C), BF_ALREADY_EXISTS);
  EXPECT_EQ(drvm_declare_hash(0x8000007, 0x21000007, 0x23000007), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(drvm_declare_hash(0, 0x21000007, kAlgo32), BF_INVALID_ARG);
  EXPECT_EQ(drvm_declare_hash(0x8000007, 0, kAlgo32), BF_INVALID_ARG);
  EXPECT_EQ(drvm_declare_hash(kHash, kIn, kAlgo32), BF_SUCCESS);
  EXPECT_EQ(drvm_declare_hash(kHash, kIn2, kAlgo32), BF_ALREADY_EXISTS);
  EXPECT_EQ(drvm_declare_hash(kHash, kIn, kAlgo32C), BF_ALREADY_EXISTS);
  ASSERT_EQ(drvm_declare_hash_algorithm(0x23000007, DRVM_HASH_IDENTITY), BF_SUCCESS);
  ASSERT_EQ(drvm_declare_hash(0x8000007, 0x21000007, 0x23000007), BF_SUCCESS);
  uint8_t out[2];
  ASSERT_EQ(pipe_mgr_hash_calc_calculate_hash_value(1, 0, 0x8000007, kStream, 9, out, 2), BF_SUCCESS);
  EXPECT_EQ(hex(out, 2), "3839");
}

// ---- Snapshots ----

using SnapshotTest = TelemetryTest;

TEST_F(SnapshotTest, HandlesCarryTheDirectionAndAreNeverReused) {
  EXPECT_EQ(s1 & BF_SNAPSHOT_HDL_EGRESS_BIT, 0u);
  EXPECT_EQ(s2 & BF_SNAPSHOT_HDL_EGRESS_BIT, BF_SNAPSHOT_HDL_EGRESS_BIT);
  ASSERT_EQ(bf_snapshot_delete(s1), BF_SUCCESS);
  EXPECT_EQ(bf_snapshot_delete(s1), BF_OBJECT_NOT_FOUND);
  uint32_t h = 0, seen[8];
  for (uint32_t i = 0; i < 8; ++i) {
    ASSERT_EQ(bf_snapshot_create(0, 0, 0, 0, i % 2, &h), BF_SUCCESS);
    seen[i] = h;
    EXPECT_EQ((h & BF_SNAPSHOT_HDL_EGRESS_BIT) != 0, i % 2 == 1);
    EXPECT_NE(h, s1);
    EXPECT_NE(h, s2);
    for (uint32_t j = 0; j < i; ++j) EXPECT_NE(seen[j], h);
  }
  EXPECT_EQ(drvm_snapshot_count(), 9u);
  EXPECT_EQ(drvm_snapshot_configure(30, 1024, 809), BF_IN_USE) << "while snapshots exist";
}

TEST_F(SnapshotTest, RangesMustLieInTheConfiguredStages) {
  uint32_t h = kUnset;
  EXPECT_EQ(bf_snapshot_create(0, 0, 19, 19, BF_SNAPSHOT_DIR_INGRESS, &h), BF_SUCCESS);
  EXPECT_EQ(bf_snapshot_create(0, 0, 0, 20, BF_SNAPSHOT_DIR_INGRESS, &h), BF_INVALID_ARG);
  EXPECT_EQ(bf_snapshot_create(0, 0, 20, 20, BF_SNAPSHOT_DIR_EGRESS, &h), BF_INVALID_ARG);
  EXPECT_EQ(bf_snapshot_create(0, 0, 3, 2, BF_SNAPSHOT_DIR_EGRESS, &h), BF_INVALID_ARG);
  drvm_reset();
  EXPECT_EQ(drvm_snapshot_configure(0, 1024, 809), BF_INVALID_ARG);
  EXPECT_EQ(drvm_snapshot_configure(30, 808, 809), BF_INVALID_ARG);
  EXPECT_EQ(drvm_snapshot_configure(30, 1024, 0), BF_INVALID_ARG);
  EXPECT_EQ(drvm_snapshot_configure(0x10000, 0x10000, 1), BF_INVALID_ARG) << "the buffer size overflows";
  ASSERT_EQ(drvm_snapshot_configure(30, 1024, 809), BF_SUCCESS);
  EXPECT_EQ(bf_snapshot_create(0, 0, 0, 29, BF_SNAPSHOT_DIR_INGRESS, &h), BF_SUCCESS);
  EXPECT_EQ(bf_snapshot_create(0, 0, 0, 30, BF_SNAPSHOT_DIR_INGRESS, &h), BF_INVALID_ARG);
}

TEST_F(SnapshotTest, ATriggerMatchCapturesEachStageOnceUntilTheTriggerIsSetAgain) {
  std::vector<uint8_t> buf(3 * kPerStage, 0xA5);
  bf_snapshot_capture_ctrl_info_arr_t ctrl;
  int num = -1;
  ASSERT_EQ(bf_snapshot_capture_get(s1, 1, buf.data(), &ctrl, &num), BF_SUCCESS);
  EXPECT_EQ(num, 3);
  for (uint32_t i = 0; i < 3; ++i) {
    SCOPED_TRACE(i);
    const uint8_t *block = buf.data() + i * kPerStage;
    EXPECT_EQ(std::memcmp(block, kPhv.packet, kRecord), 0) << "the record at the stride";
    EXPECT_EQ(std::count(block + kRecord, block + kPerStage, 0), std::ptrdiff_t(kPerStage - kRecord))
        << "the rest zero";
    EXPECT_EQ(ctrl.ctrl[i].stage_id, 2 + i);
    EXPECT_EQ(ctrl.ctrl[i].valid, 1);
    EXPECT_EQ(ctrl.ctrl[i].local_stage_trigger, i == 0);
    EXPECT_EQ(ctrl.ctrl[i].prev_stage_trigger, i > 0);
    EXPECT_EQ(ctrl.ctrl[i].timer_trigger, 0);
    EXPECT_EQ(ctrl.ctrl[i].next_table_hdl, 0u);
  }
  EXPECT_EQ(ctrl.ctrl[3].stage_id, 0u) << "past the range all zero";
  EXPECT_EQ(ctrl.ctrl[3].valid, 0);
  // A second matching packet does not replace the capture.
  int captured = -1;
  Phv p;
  std::memcpy(p.packet, kPhv.packet, kRecord);
  p.packet[100] ^= 0xFF;
  ASSERT_EQ(drvm_snapshot_packet(s1, 1, p.packet, &captured), BF_SUCCESS);
  EXPECT_EQ(captured, 0);
  // Setting the trigger again (the same) re-arms: no capture until a packet matches.
  Phv t;
  ASSERT_EQ(bf_snapshot_capture_trigger_set(s1, t.value, t.mask), BF_SUCCESS);
  ASSERT_EQ(bf_snapshot_capture_get(s1, 1, buf.data(), &ctrl, &num), BF_SUCCESS);
  EXPECT_EQ(num, 0);
  EXPECT_EQ(std::count(buf.begin(), buf.end(), 0), std::ptrdiff_t(buf.size()))
      << "before a capture the buffer is zeroed";
  EXPECT_EQ(ctrl.ctrl[0].stage_id, 2u);
  EXPECT_EQ(ctrl.ctrl[0].valid, 0);
  ASSERT_EQ(drvm_snapshot_packet(s1, 1, kPhv.other, &captured), BF_SUCCESS);
  EXPECT_EQ(captured, 0) << "byte 3 is 0x80, not 0x81";
  ASSERT_EQ(drvm_snapshot_packet(s1, 2, kPhv.packet, &captured), BF_SUCCESS);
  EXPECT_EQ(captured, 0) << "a pipe the snapshot is not on";
  ASSERT_EQ(drvm_snapshot_packet(s1, 1, p.packet, &captured), BF_SUCCESS);
  EXPECT_EQ(captured, 1);
  ASSERT_EQ(bf_snapshot_capture_get(s1, 1, buf.data(), &ctrl, &num), BF_SUCCESS);
  EXPECT_EQ(num, 3);
  EXPECT_EQ(std::memcmp(buf.data() + 2 * kPerStage, p.packet, kRecord), 0);
  // A snapshot without a trigger captures nothing.
  ASSERT_EQ(drvm_snapshot_packet(s2, 1, kPhv.packet, &captured), BF_SUCCESS);
  EXPECT_EQ(captured, 0);
  EXPECT_EQ(drvm_snapshot_packet(s2, kAll, kPhv.packet, &captured), BF_INVALID_ARG);
  EXPECT_EQ(drvm_snapshot_packet(s2, 1, nullptr, &captured), BF_INVALID_ARG);
  EXPECT_EQ(drvm_snapshot_packet(kNextIngress, 1, kPhv.packet, &captured), BF_OBJECT_NOT_FOUND);
}

TEST_F(SnapshotTest, ATriggerComparesOnlyTheMaskedBits) {
  Phv t;
  t.value[0] = 0xF0;
  t.mask[0] = 0xF0;  // the high nibble of byte 0
  t.value[808] = 0x01;
  t.mask[808] = 0x01;  // the low bit of the last byte
  t.value[5] = 0xFF;   // not in the mask
  ASSERT_EQ(bf_snapshot_capture_trigger_set(s2, t.value, t.mask), BF_SUCCESS);
  const uint8_t *v = nullptr, *m = nullptr;
  ASSERT_EQ(drvm_snapshot_trigger(s2, &v, &m), BF_SUCCESS);
  EXPECT_EQ(std::memcmp(v, t.value, kRecord), 0);
  EXPECT_EQ(std::memcmp(m, t.mask, kRecord), 0);
  Phv p;
  int captured = -1;
  p.packet[0] = 0xE7;
  p.packet[808] = 0xFF;
  ASSERT_EQ(drvm_snapshot_packet(s2, 0, p.packet, &captured), BF_SUCCESS);
  EXPECT_EQ(captured, 0);
  p.packet[0] = 0xF7;
  p.packet[808] = 0xFE;
  ASSERT_EQ(drvm_snapshot_packet(s2, 0, p.packet, &captured), BF_SUCCESS);
  EXPECT_EQ(captured, 0);
  p.packet[808] = 0x03;
  ASSERT_EQ(drvm_snapshot_packet(s2, 0, p.packet, &captured), BF_SUCCESS);
  EXPECT_EQ(captured, 1);
  // On all pipes each pipe captures apart; BF_DEV_PIPE_ALL reads the lowest pipe that captured.
  p.packet[1] = 0x42;
  ASSERT_EQ(drvm_snapshot_packet(s2, 3, p.packet, &captured), BF_SUCCESS);
  EXPECT_EQ(captured, 1);
  std::vector<uint8_t> buf(20 * kPerStage);
  int num = 0;
  ASSERT_EQ(bf_snapshot_capture_get(s2, 3, buf.data(), nullptr, &num), BF_SUCCESS) << "ctrl may be null";
  EXPECT_EQ(num, 20);
  EXPECT_EQ(buf[19 * kPerStage + 1], 0x42);
  ASSERT_EQ(bf_snapshot_capture_get(s2, kAll, buf.data(), nullptr, &num), BF_SUCCESS);
  EXPECT_EQ(buf[19 * kPerStage + 1], p.other[1]) << "pipe 0's";
  ASSERT_EQ(bf_snapshot_capture_get(s2, 1, buf.data(), nullptr, &num), BF_SUCCESS);
  EXPECT_EQ(num, 0);
  EXPECT_EQ(drvm_snapshot_trigger(s1 | 0x100, &v, &m), BF_OBJECT_NOT_FOUND);
  ASSERT_EQ(bf_snapshot_delete(s2), BF_SUCCESS);
  EXPECT_EQ(drvm_snapshot_trigger(s2, &v, &m), BF_OBJECT_NOT_FOUND);
}

TEST_F(SnapshotTest, ThirtyStagesGiveThirtyRecordsInABufferOfTheSizeSaid) {
  drvm_reset();
  ASSERT_EQ(drvm_snapshot_configure(30, 1000, kRecord), BF_SUCCESS);
  uint32_t h = 0, total = 0, per = 0;
  ASSERT_EQ(bf_snapshot_create(0, 0, 0, 29, BF_SNAPSHOT_DIR_EGRESS, &h), BF_SUCCESS);
  ASSERT_EQ(bf_snapshot_capture_phv_fields_dict_size(h, &total, &per), BF_SUCCESS);
  EXPECT_EQ(per, 1000u);
  EXPECT_EQ(total, 30000u);
  Phv t;
  ASSERT_EQ(bf_snapshot_capture_trigger_set(h, t.value, t.mask), BF_SUCCESS);  // byte 3 is 0x81
  ASSERT_EQ(drvm_snapshot_packet(h, 0, kPhv.packet, nullptr), BF_SUCCESS);
  std::vector<uint8_t> buf(total + 64, 0xA5);  // 64 bytes past the end to see that nothing is written there
  bf_snapshot_capture_ctrl_info_arr_t ctrl;
  int num = 0;
  ASSERT_EQ(bf_snapshot_capture_get(h, 0, buf.data(), &ctrl, &num), BF_SUCCESS);
  EXPECT_EQ(num, 30);
  for (uint32_t i = 0; i < 30; ++i) {
    EXPECT_EQ(std::memcmp(buf.data() + i * per, kPhv.packet, kRecord), 0) << i;
    EXPECT_EQ(buf[i * per + kRecord], 0) << i;
    EXPECT_EQ(buf[i * per + per - 1], 0) << i;
  }
  EXPECT_EQ(std::count(buf.begin() + total, buf.end(), 0xA5), 64) << "nothing past the total size";
  for (uint32_t i = 0; i < BF_SNAPSHOT_MAX_STAGES; ++i) {
    EXPECT_EQ(ctrl.ctrl[i].stage_id, i);
    EXPECT_EQ(ctrl.ctrl[i].valid, 1);
  }
  // A range inside the thirty.
  ASSERT_EQ(bf_snapshot_create(0, 0, 25, 29, BF_SNAPSHOT_DIR_INGRESS, &h), BF_SUCCESS);
  ASSERT_EQ(bf_snapshot_capture_phv_fields_dict_size(h, &total, &per), BF_SUCCESS);
  EXPECT_EQ(total, 5000u);
}

}  // namespace
