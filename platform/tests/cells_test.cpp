// The model's resource cells: counters, meters, WRED, registers and idle time. On one world holding
// every kind of cell: what each driver call records, pass-through, every documented refusal (exact
// status, nothing written, nothing changed, the call recorded), each call with each allocation of the
// model's own memory failing in turn; then the behaviour of each family: traffic, syncs and their
// callbacks, pipes, direct cells and their entries, read-backs, widths, ageing and hit states.
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "alloc_fault.h"
#include "test_util.h"

namespace {

// Declared resources of the world.
constexpr uint32_t kCtr = 0x4000013;   // counter, 8 cells
constexpr uint32_t kMtr = 0x5000002;   // meter, 8 cells
constexpr uint32_t kDMtr = 0x5000001;  // direct meter of kMat
constexpr uint32_t kWred = 0x7000001;  // WRED, 4 cells
constexpr uint32_t kReg = 0x6000001;   // register, 6 cells, 2 instances, 4 bytes, reset 01020304
constexpr uint32_t kDReg = 0x6000009;  // direct register of kMat, 2 instances, 2 bytes
constexpr uint32_t kMat = 0x100002d;   // match table with the direct meter and register
constexpr uint32_t kIdle = 0x1000022;  // match table with idle time
constexpr uint32_t kOther = 0x9999;    // a resource handle nothing declares
// Entries of the world.
enum : uint32_t { e1 = 1, e2, i1, i2, kNextEnt };
constexpr uint8_t kFill = 0xA5;

template <class T>
std::string hexof(const T &v) {
  return hex(reinterpret_cast<const uint8_t *>(&v), sizeof v);
}

pipe_stful_mem_spec_t cell(std::initializer_list<uint8_t> b) {
  pipe_stful_mem_spec_t c;
  std::memset(&c, 0, sizeof c);
  size_t i = 0;
  for (uint8_t x : b) c.bytes[i++] = x;
  return c;
}
pipe_stat_data_t stat(uint64_t bytes, uint64_t packets) { return pipe_stat_data_t{bytes, packets}; }
std::string show(const pipe_stat_data_t &s) { return cat(s.bytes, "B/", s.packets, "P"); }

// Records with every field in use: 64-bit fields with their high words set, a meter type above 1.
const pipe_meter_spec_t kMeter = {
    7, 1, 0x1122334455667788ull, 0x99AABBCCDDEEFF00ull, 3, 0x0102030405060708ull, 0xF0E0D0C0B0A09080ull};
const pipe_meter_spec_t kMeter2 = {0, 0, 1000, 2000, 0, 3000, 4000};
const pipe_wred_spec_t kWredSpec = {0xA1, 0xB2, 0xC3, 0xD4};
const pipe_stat_data_t kStat = {0x1122, 3};

pipe_res_spec_t res(uint32_t hdl, const void *data, size_t n) {
  pipe_res_spec_t r;
  std::memset(&r, 0, sizeof r);
  r.tbl_hdl = hdl;
  std::memcpy(r.data.bytes, data, n);
  r.tag = PIPE_RES_TAG_ATTACHED;
  return r;
}
pipe_res_spec_t meter_res(const pipe_meter_spec_t &m, uint32_t hdl = kDMtr) { return res(hdl, &m, sizeof m); }

// What the callbacks were told, in order. Each stops failing allocations first: it runs after a
// call succeeded (see the allocation failure test).
std::vector<std::string> g_told;
int g_cookie;
void sync_cb(bf_dev_id_t dev, void *cookie) {
  alloc_fault::disarm();
  g_told.push_back(cat("sync ", dev, cookie == &g_cookie ? " cookie" : " ?"));
}
void done_cb(bf_dev_id_t dev, void *cookie) {
  alloc_fault::disarm();
  g_told.push_back(cat("done ", dev, cookie == &g_cookie ? " cookie" : " ?"));
}
void expiry_cb(bf_dev_id_t dev, pipe_mat_ent_hdl_t ent, void *cookie) {
  g_told.push_back(cat("expired ", dev, " ", ent, cookie == &g_cookie ? " cookie" : " ?"));
}
void expiry_cb2(bf_dev_id_t dev, pipe_mat_ent_hdl_t ent, void *) { g_told.push_back(cat("expired2 ", dev, " ", ent)); }

pipe_idle_time_params_t params(uint32_t mode, pipe_idle_tmo_expiry_cb cb = expiry_cb, void *cookie = &g_cookie) {
  pipe_idle_time_params_t p;
  std::memset(&p, 0, sizeof p);
  p.mode = mode;
  p.ttl_query_interval = 1000;
  p.max_ttl = 60000;
  p.min_ttl = 50;
  p.callback_fn = cb;
  p.client_data = cookie;
  return p;
}

// An add of key k to a table, with the given action resources.
bf_status_t add_with(uint32_t tbl, uint32_t k, std::vector<pipe_res_spec_t> rs, uint32_t ttl, uint32_t *hdl) {
  Request r(key(k), kMask4);
  r.action.resource_count = static_cast<uint8_t>(rs.size());
  for (size_t i = 0; i < rs.size(); ++i) r.action.resources[i] = rs[i];
  return add(r, hdl, tbl, 0, ttl);
}

// ---- The world ----
//
// Pipes: 4. Entries e1, e2 of kMat (e1 added with kMeter as its direct meter), i1 (TTL 100 ms) and
// i2 (TTL 0) of kIdle. Counter kCtr: pipe 1 index 2 counted 5 packets of 500 bytes, synced, then 1 of
// 100 more, not synced. Meter kMtr: pipe 0 index 1 is kMeter2; byte count adjustment -4 on pipe 2.
// WRED kWred: pipe 3 index 0 is kWredSpec. Register kReg: index 1 is 11223344 in both instances;
// instance 1 of index 2 has 0a0b0c0d in hardware only; the rest is the reset value. e1: direct
// counter set to 10 bytes / 1 packet, then 20 bytes / 2 packets of traffic, not synced; its direct
// register written abcd (set_resource), then instance 1's hardware 0102. kIdle: notify mode with
// expiry_cb and g_cookie, enabled, aged 30 ms (i1 has 70 ms left); i2 was hit. No call recorded,
// nothing told.
class CellTest : public ModelTest {
 protected:
  void SetUp() override {
    ModelTest::SetUp();
    pipe_stful_mem_spec_t reset = cell({1, 2, 3, 4, 5, 6});
    ASSERT_EQ(drvm_declare_counter(kCtr, 8), BF_SUCCESS);
    ASSERT_EQ(drvm_declare_meter(kMtr, 8), BF_SUCCESS);
    ASSERT_EQ(drvm_declare_direct_meter(kMat, kDMtr), BF_SUCCESS);
    ASSERT_EQ(drvm_declare_wred(kWred, 4), BF_SUCCESS);
    ASSERT_EQ(drvm_declare_register(kReg, 6, 2, 4, &reset), BF_SUCCESS);
    ASSERT_EQ(drvm_declare_direct_register(kMat, kDReg, 2, 2), BF_SUCCESS);
    ASSERT_EQ(drvm_declare_idle_table(kIdle), BF_SUCCESS);
    uint32_t h = 0;
    ASSERT_EQ(add_with(kMat, 1, {meter_res(kMeter)}, 0, &h), BF_SUCCESS);
    ASSERT_EQ(h, e1);
    ASSERT_EQ(add_with(kMat, 2, {}, 0, &h), BF_SUCCESS);
    ASSERT_EQ(add_with(kIdle, 3, {}, 100, &h), BF_SUCCESS);
    ASSERT_EQ(add_with(kIdle, 4, {}, 0, &h), BF_SUCCESS);
    ASSERT_EQ(h, i2);

    ASSERT_EQ(drvm_stat_count(0, 1, kCtr, 2, 5, 500), BF_SUCCESS);
    ASSERT_EQ(pipe_mgr_stat_ent_database_sync(1, 0, 1, kCtr, 2), BF_SUCCESS);
    ASSERT_EQ(drvm_stat_count(0, 1, kCtr, 2, 1, 100), BF_SUCCESS);
    pipe_meter_spec_t m2 = kMeter2;
    ASSERT_EQ(pipe_mgr_meter_ent_set(1, 0, 0, kMtr, 1, &m2, 0), BF_SUCCESS);
    ASSERT_EQ(pipe_mgr_meter_set_bytecount_adjust(1, 0, 2, kMtr, -4), BF_SUCCESS);
    pipe_wred_spec_t w = kWredSpec;
    ASSERT_EQ(pipe_mgr_wred_ent_set(1, 0, 3, kWred, 0, &w, 0), BF_SUCCESS);
    pipe_stful_mem_spec_t c1 = cell({0x11, 0x22, 0x33, 0x44}), c2 = cell({0xA, 0xB, 0xC, 0xD});
    ASSERT_EQ(pipe_stful_ent_set(1, 0, BF_DEV_PIPE_ALL, kReg, 1, &c1, 0), BF_SUCCESS);
    ASSERT_EQ(drvm_register_hw_write(0, 1, kReg, 2, &c2), BF_SUCCESS);

    pipe_stat_data_t s1 = stat(10, 1);
    ASSERT_EQ(pipe_mgr_mat_ent_direct_stat_set(1, 0, kMat, e1, &s1), BF_SUCCESS);
    ASSERT_EQ(drvm_stat_direct_count(0, kMat, e1, 2, 20), BF_SUCCESS);
    const uint8_t abcd[] = {0xAB, 0xCD, 0xEF};
    pipe_res_spec_t r = res(kDReg, abcd, sizeof abcd);
    ASSERT_EQ(pipe_mgr_mat_ent_set_resource(1, 0, kMat, e1, &r, 1, 0), BF_SUCCESS);
    pipe_stful_mem_spec_t c3 = cell({1, 2});
    ASSERT_EQ(drvm_register_direct_hw_write(0, kMat, e1, 1, &c3), BF_SUCCESS);

    ASSERT_EQ(pipe_mgr_idle_set_params(1, 0, kIdle, params(PIPE_IDLE_TIME_MODE_NOTIFY)), BF_SUCCESS);
    ASSERT_EQ(pipe_mgr_idle_tmo_set_enable(1, 0, kIdle, true), BF_SUCCESS);
    drvm_advance_clock(30000);
    ASSERT_EQ(drvm_idle_hit(0, kIdle, i2), BF_SUCCESS);
    drvm_clear_calls();
    g_told.clear();
  }
  void Restart() {
    drvm_reset();
    SetUp();
  }

  // Everything the world holds, as text: each cell that is not at its initial value, the entries
  // (table_state) and the idle state.
  static std::string state() {
    std::string s =
        cat("pipes=", drvm_num_pipes(), " clock=", drvm_clock_us(), " direct=", drvm_direct_cell_count(), "\n");
    for (uint32_t p = 0; p < 4; ++p) {
      for (uint32_t i = 0; i < 8; ++i) {
        pipe_stat_data_t hw, sw;
        if (drvm_stat_get(0, p, kCtr, i, &hw, &sw) == BF_SUCCESS && (hw.bytes || hw.packets || sw.bytes || sw.packets))
          s += cat("ctr p", p, " [", i, "] ", show(hw), " ", show(sw), "\n");
        pipe_meter_spec_t m;
        if (drvm_meter_get(0, p, kMtr, i, &m) == BF_SUCCESS && hexof(m) != hexof(pipe_meter_spec_t{}))
          s += cat("mtr p", p, " [", i, "] ", hexof(m), "\n");
        pipe_wred_spec_t w;
        if (i < 4 && drvm_wred_get(0, p, kWred, i, &w) == BF_SUCCESS && hexof(w) != hexof(pipe_wred_spec_t{}))
          s += cat("wred p", p, " [", i, "] ", hexof(w), "\n");
      }
      for (uint32_t h : {kMtr, kDMtr}) {
        int32_t adj = 0;
        if (drvm_meter_bytecount_adjust(0, p, h, &adj) == BF_SUCCESS && adj)
          s += cat("adj p", p, " ", h, " ", adj, "\n");
      }
    }
    for (uint32_t p = 0; p < 2; ++p)
      for (uint32_t i = 0; i < 6; ++i) {
        pipe_stful_mem_spec_t hw, sw;
        EXPECT_EQ(drvm_register_get(0, p, kReg, i, &hw, &sw), BF_SUCCESS);
        s += cat("reg p", p, " [", i, "] ", hex(hw.bytes, 16), " ", hex(sw.bytes, 16), "\n");
      }
    for (uint32_t e = 1; e < kNextEnt + 2; ++e) {
      pipe_stat_data_t hw, sw;
      if (drvm_stat_direct_get(0, kMat, e, &hw, &sw) == BF_SUCCESS) s += cat("ent ", e, " ", show(hw), " ", show(sw));
      for (uint32_t h : {kDMtr, kDReg, kOther}) {
        uint8_t data[44];
        if (drvm_entry_resource_get(0, kMat, e, h, data) == BF_SUCCESS) s += cat(" res ", h, "=", hex(data, 44));
      }
      for (uint32_t p = 0; p < 2; ++p) {
        pipe_stful_mem_spec_t rhw, rsw;
        if (drvm_register_direct_get(0, kMat, e, p, &rhw, &rsw) == BF_SUCCESS)
          s += cat(" reg", p, "=", hex(rhw.bytes, 16), "/", hex(rsw.bytes, 16));
      }
      uint32_t left = 0, hw_hit = 0, sw_hit = 0;
      int expired = 0;
      if (drvm_idle_entry_get(0, kIdle, e, &left, &expired, &hw_hit, &sw_hit) == BF_SUCCESS)
        s += cat("idle ", e, " left=", left, " expired=", expired, " hit=", hw_hit, "/", sw_hit);
      s += "\n";
    }
    pipe_idle_time_params_t p;
    int enabled = 0;
    EXPECT_EQ(drvm_idle_table_get(0, kIdle, &p, &enabled), BF_SUCCESS);
    s += cat("idle mode=", p.mode, " ", p.ttl_query_interval, " ", p.max_ttl, " ", p.min_ttl, " ", p.reserved, " ",
             p.reserved2, " cb=",
             p.callback_fn == expiry_cb    ? 1
             : p.callback_fn == expiry_cb2 ? 2
                                           : 0,
             " cookie=", p.client_data == &g_cookie ? 1 : 0, " enabled=", enabled, "\n");
    return s + table_state(0, kMat) + table_state(0, kIdle);
  }
};

// The caller's output memory of one call, unwritten: all 0xA5 but for the pointers of the arrays and
// the query records (room for 2 values each).
struct Out {
  pipe_stat_data_t stat[2];
  pipe_stat_data_t *stat_ptrs[2];
  pipe_meter_spec_t meter;
  int32_t i32;
  int num;
  uint32_t w[2];
  pipe_stful_mem_spec_t cells[8];
  pipe_stful_mem_query_t q[4];
  pipe_idle_time_params_t params;

  Out() {
    std::memset(this, kFill, sizeof *this);
    stat_ptrs[0] = &stat[0];
    stat_ptrs[1] = &stat[1];
    for (int i = 0; i < 4; ++i) q[i] = pipe_stful_mem_query_t{2, &cells[2 * i]};
  }
  Out(const Out &) = delete;

  static bool dirty(const void *p, size_t n) {
    for (size_t i = 0; i < n; ++i)
      if (static_cast<const uint8_t *>(p)[i] != kFill) return true;
    return false;
  }
  std::string written() const {
    std::string s;
    if (dirty(stat, sizeof stat)) s += " stat";
    if (stat_ptrs[0] != &stat[0] || stat_ptrs[1] != &stat[1]) s += " stat_ptrs";
    if (dirty(&meter, sizeof meter)) s += " meter";
    if (dirty(&i32, sizeof i32)) s += " i32";
    if (dirty(&num, sizeof num)) s += " num";
    if (dirty(w, sizeof w)) s += " w";
    if (dirty(cells, sizeof cells)) s += " cells";
    for (int i = 0; i < 4; ++i)
      if (q[i].pipe_count != 2 || q[i].data != &cells[2 * i]) s += cat(" q", i);
    if (dirty(&params, sizeof params)) s += " params";
    return s;
  }
};
using Call = std::function<bf_status_t(Out &)>;

// A call record as text: the function, then every field that is not 0, numbers from 0xffff up in
// hex; the byte string; which of the caller's pointers ptr_arg and ptr_arg2 are.
std::string fields(const drvm_call_t &c, const Out &o) {
  std::string s = c.fn;
  const std::pair<const char *, uint32_t> f[] = {{"st", uint32_t(c.status)},
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
                                                 {"a3", c.arg_u32[3]}};
  char buf[16];
  for (auto [name, v] : f)
    if (v) s += cat(" ", name, "=", (std::snprintf(buf, sizeof buf, v < 0xFFFF ? "%u" : "0x%x", v), buf));
  if (c.has_match || c.has_action || c.text || c.bytes2 || c.num_bytes2 || c.arg_u64) s += " other";
  if (c.bytes) s += cat(" bytes=", hex(c.bytes, c.num_bytes));
  if (!c.bytes && c.num_bytes) s += " num_bytes";
  const std::pair<const void *, const char *> ptrs[] = {{nullptr, ""},
                                                        {o.stat, "stat"},
                                                        {o.stat_ptrs, "stat_ptrs"},
                                                        {&o.meter, "meter"},
                                                        {&o.i32, "i32"},
                                                        {&o.num, "num"},
                                                        {o.w, "w0"},
                                                        {o.q, "q"},
                                                        {&o.params, "params"},
                                                        {&g_cookie, "cookie"},
                                                        {reinterpret_cast<const void *>(&sync_cb), "sync_cb"},
                                                        {reinterpret_cast<const void *>(&done_cb), "done_cb"},
                                                        {reinterpret_cast<const void *>(&expiry_cb), "expiry_cb"},
                                                        {reinterpret_cast<const void *>(&expiry_cb2), "expiry_cb2"}};
  auto name_of = [&ptrs](const void *p) {
    std::string name = "?";
    for (auto [q, n] : ptrs) name = p == q ? n : name;
    return name;
  };
  if (c.ptr_arg) s += cat(" ptr=", name_of(c.ptr_arg));
  if (c.ptr_arg2) s += cat(" ptr2=", name_of(c.ptr_arg2));
  return s;
}

// Records the world's calls pass, kept where the call keeps a pointer to them.
pipe_stat_data_t g_stat;
pipe_meter_spec_t g_meter;
pipe_wred_spec_t g_wred;
pipe_stful_mem_spec_t g_cell;
pipe_res_spec_t g_res[2];
uint32_t g_idx[2];
pipe_idle_time_params_t g_params;
void fresh_records() {
  g_stat = kStat;
  g_meter = kMeter;
  g_wred = kWredSpec;
  g_cell = cell({0xF1, 0xF2, 0xF3, 0xF4, 0xF5});
  const uint8_t reg[] = {0x77, 0x88, 0x99};
  g_res[0] = meter_res(kMeter2);
  g_res[1] = res(kDReg, reg, sizeof reg);
  g_idx[0] = 2;
  g_idx[1] = 5;
  g_params = params(PIPE_IDLE_TIME_MODE_POLL, expiry_cb2, &g_cookie);
  g_params.reserved = 0x51;
  g_params.reserved2 = 0x52;
}

struct Op {
  Call call;
  std::string record;  // what fields() shows of its record, starting with the function's name
  std::string fn() const { return record.substr(0, record.find(' ')); }
};

// One call of each function of the cells on the world, each a success. None allocates anything of
// its own.
std::vector<Op> ops() {
  fresh_records();
  return {
      {CALL(pipe_mgr_direct_stat_ent_database_sync(7, 0, 1, kMat, e1)),
       "pipe_mgr_direct_stat_ent_database_sync sess=7 pipe=1 tbl=0x100002d ent=1"},
      {CALL(pipe_mgr_mat_ent_direct_stat_query(7, 0, kMat, e1, &o.stat[0])),
       "pipe_mgr_mat_ent_direct_stat_query sess=7 pipe=0xffff tbl=0x100002d ent=1 ptr=stat"},
      {CALL(pipe_mgr_mat_ent_direct_stat_set(7, 0, kMat, e2, &g_stat)),
       "pipe_mgr_mat_ent_direct_stat_set sess=7 pipe=0xffff tbl=0x100002d ent=2 "
       "bytes=22110000000000000300000000000000"},
      {CALL(pipe_mgr_direct_stat_database_sync(7, 0, BF_DEV_PIPE_ALL, kMat, sync_cb, &g_cookie)),
       "pipe_mgr_direct_stat_database_sync sess=7 pipe=0xffff tbl=0x100002d ptr=sync_cb ptr2=cookie"},
      {CALL(pipe_mgr_stat_ent_database_sync(7, 0, 1, kCtr, 2)),
       "pipe_mgr_stat_ent_database_sync sess=7 pipe=1 tbl=0x4000013 ent=2"},
      {CALL(pipe_mgr_stat_ent_query(7, 0, 1, kCtr, g_idx, 2, o.stat_ptrs)),
       "pipe_mgr_stat_ent_query sess=7 pipe=1 tbl=0x4000013 a0=2 bytes=0200000005000000 ptr=stat_ptrs"},
      {CALL(pipe_mgr_stat_ent_set(7, 0, 3, kCtr, 7, &g_stat)),
       "pipe_mgr_stat_ent_set sess=7 pipe=3 tbl=0x4000013 ent=7 bytes=22110000000000000300000000000000"},
      {CALL(pipe_mgr_stat_database_sync(7, 0, 2, kCtr, sync_cb, &g_cookie)),
       "pipe_mgr_stat_database_sync sess=7 pipe=2 tbl=0x4000013 ptr=sync_cb ptr2=cookie"},
      {CALL(pipe_mgr_meter_ent_set(7, 0, 2, kMtr, 5, &g_meter, 9)),
       "pipe_mgr_meter_ent_set sess=7 pipe=2 tbl=0x5000002 flags=9 ent=5 bytes=07000000010000008877665544332211"
       "00ffeeddccbbaa99030000000807060504030201"
       "8090a0b0c0d0e0f0"},
      {CALL(pipe_mgr_mat_ent_set_resource(7, 0, kMat, e1, g_res, 2, 4)),
       cat("pipe_mgr_mat_ent_set_resource sess=7 pipe=0xffff tbl=0x100002d flags=4 ent=1 a0=2 bytes=",
           hex(reinterpret_cast<const uint8_t *>(g_res), sizeof g_res))},
      {CALL(pipe_mgr_meter_read_entry_idx(7, 0, 0, kMtr, 1, &o.meter, true)),
       "pipe_mgr_meter_read_entry_idx sess=7 tbl=0x5000002 ent=1 a0=1 ptr=meter"},
      {CALL(pipe_mgr_meter_read_entry(7, 0, 1, kMat, e1, &o.meter)),
       "pipe_mgr_meter_read_entry sess=7 pipe=1 tbl=0x100002d ent=1 ptr=meter"},
      {CALL(pipe_mgr_meter_set_bytecount_adjust(7, 0, 1, kMtr, -3)),
       "pipe_mgr_meter_set_bytecount_adjust sess=7 pipe=1 tbl=0x5000002 a0=0xfffffffd"},
      {CALL(pipe_mgr_meter_get_bytecount_adjust(7, 0, 2, kMtr, &o.i32)),
       "pipe_mgr_meter_get_bytecount_adjust sess=7 pipe=2 tbl=0x5000002 a0=0xfffffffc ptr=i32"},
      {CALL(pipe_mgr_wred_ent_set(7, 0, BF_DEV_PIPE_ALL, kWred, 3, &g_wred, 1)),
       "pipe_mgr_wred_ent_set sess=7 pipe=0xffff tbl=0x7000001 flags=1 ent=3 bytes=a1000000b2000000c3000000d4000000"},
      {CALL(pipe_stful_query_get_sizes(7, 0, kReg, &o.num)),
       "pipe_stful_query_get_sizes sess=7 pipe=0xffff tbl=0x6000001 a0=2 ptr=num"},
      {CALL(pipe_stful_ent_query(7, 0, BF_DEV_PIPE_ALL, kReg, 1, &o.q[0], PIPE_FLAG_SYNC_REQ)),
       "pipe_stful_ent_query sess=7 pipe=0xffff tbl=0x6000001 flags=1 ent=1 a0=2 a1=2 ptr=q"},
      {CALL(pipe_stful_ent_query_range(7, 0, 1, kReg, 4, 3, o.q, &o.w[0], 0)),
       "pipe_stful_ent_query_range sess=7 pipe=1 tbl=0x6000001 ent=4 a0=3 a1=2 ptr=q ptr2=w0"},
      {CALL(pipe_stful_ent_set(7, 0, 0, kReg, 3, &g_cell, 2)),
       "pipe_stful_ent_set sess=7 tbl=0x6000001 flags=2 ent=3 bytes=f1f2f3f4f50000000000000000000000"},
      {CALL(pipe_stful_direct_ent_query(7, 0, kMat, e1, &o.q[0], 0)),
       "pipe_stful_direct_ent_query sess=7 pipe=0xffff tbl=0x100002d ent=1 a0=2 a1=2 ptr=q"},
      {CALL(pipe_stful_database_sync(7, 0, BF_DEV_PIPE_ALL, kReg, sync_cb, &g_cookie)),
       "pipe_stful_database_sync sess=7 pipe=0xffff tbl=0x6000001 ptr=sync_cb ptr2=cookie"},
      {CALL(pipe_stful_direct_database_sync(7, 0, 1, kMat, sync_cb, nullptr)),
       "pipe_stful_direct_database_sync sess=7 pipe=1 tbl=0x100002d ptr=sync_cb"},
      {CALL(pipe_stful_table_reset(7, 0, BF_DEV_PIPE_ALL, kReg, nullptr)),
       "pipe_stful_table_reset sess=7 pipe=0xffff tbl=0x6000001"},
      {CALL(pipe_stful_table_reset_range(7, 0, 1, kReg, 2, 3, &g_cell)),
       "pipe_stful_table_reset_range sess=7 pipe=1 tbl=0x6000001 ent=2 a0=3 bytes=f1f2f3f4f50000000000000000000000"},
      {CALL(pipe_mgr_idle_set_params(7, 0, kIdle, g_params)),
       cat("pipe_mgr_idle_set_params sess=7 pipe=0xffff tbl=0x1000022 bytes=", hexof(g_params),
           " ptr=expiry_cb2 ptr2=cookie")},
      {CALL(pipe_mgr_idle_get_params(7, 0, kIdle, &o.params)),
       "pipe_mgr_idle_get_params sess=7 pipe=0xffff tbl=0x1000022 ptr=params"},
      {CALL(pipe_mgr_idle_tmo_set_enable(7, 0, kIdle, false)),
       "pipe_mgr_idle_tmo_set_enable sess=7 pipe=0xffff tbl=0x1000022"},
      {CALL(pipe_mgr_idle_register_tmo_cb(7, 0, kIdle, expiry_cb2, &g_cookie)),
       "pipe_mgr_idle_register_tmo_cb sess=7 pipe=0xffff tbl=0x1000022 ptr=expiry_cb2 ptr2=cookie"},
      {CALL(pipe_mgr_mat_ent_set_idle_ttl(7, 0, kIdle, i1, 500, 6, true)),
       "pipe_mgr_mat_ent_set_idle_ttl sess=7 pipe=0xffff tbl=0x1000022 ttl=500 flags=6 ent=3 a0=500 a1=1"},
      {CALL(pipe_mgr_mat_ent_get_idle_ttl(7, 0, kIdle, i1, &o.w[0])),
       "pipe_mgr_mat_ent_get_idle_ttl sess=7 pipe=0xffff tbl=0x1000022 ent=3 a0=70 ptr=w0"},
      {CALL(pipe_mgr_mat_ent_reset_idle_ttl(7, 0, kIdle, i1)),
       "pipe_mgr_mat_ent_reset_idle_ttl sess=7 pipe=0xffff tbl=0x1000022 ent=3"},
      {CALL(pipe_mgr_idle_time_update_hit_state(7, 0, kIdle, done_cb, &g_cookie)),
       "pipe_mgr_idle_time_update_hit_state sess=7 pipe=0xffff tbl=0x1000022 ptr=done_cb ptr2=cookie"},
      {CALL(pipe_mgr_idle_time_get_hit_state(7, 0, kIdle, i2, &o.w[0])),
       "pipe_mgr_idle_time_get_hit_state sess=7 pipe=0xffff tbl=0x1000022 ent=4 ptr=w0"},
  };
}

TEST_F(CellTest, EachCallIsRecordedWithItsArgumentsAndResults) {
  for (const Op &op : ops()) {
    SCOPED_TRACE(op.record);
    Restart();
    Out o;
    ASSERT_EQ(op.call(o), BF_SUCCESS);
    ASSERT_EQ(drvm_call_count(), 1u);
    EXPECT_EQ(drvm_call(0)->status, BF_SUCCESS);
    EXPECT_EQ(fields(*drvm_call(0), o), op.record);
  }
  // A null record is recorded as none; a refused call as passed.
  const std::pair<Call, std::string> rows[] = {
      {CALL(pipe_stful_table_reset_range(1, 0, 0, kReg, 5, 2, nullptr)),
       "pipe_stful_table_reset_range st=13 sess=1 tbl=0x6000001 ent=5 a0=2"},
      {CALL(pipe_mgr_mat_ent_set_resource(1, 0, kMat, e1, g_res, 5, 0)),
       "pipe_mgr_mat_ent_set_resource st=3 sess=1 pipe=0xffff tbl=0x100002d ent=1 a0=5"},
      {CALL(pipe_mgr_mat_ent_direct_stat_set(1, 0, kMat, e1, nullptr)),
       "pipe_mgr_mat_ent_direct_stat_set st=3 sess=1 pipe=0xffff tbl=0x100002d ent=1"},
      {CALL(pipe_stful_ent_query(1, 0, 0, kReg, 9, &o.q[0], 0)),
       "pipe_stful_ent_query st=13 sess=1 tbl=0x6000001 ent=9 a0=2 ptr=q"},
      {CALL(pipe_mgr_mat_ent_get_idle_ttl(1, 0, kMat, e1, &o.w[0])),
       "pipe_mgr_mat_ent_get_idle_ttl st=17 sess=1 pipe=0xffff tbl=0x100002d ent=1 ptr=w0"},
      {CALL(pipe_mgr_stat_database_sync(1, 0, 4, kCtr, nullptr, nullptr)),
       "pipe_mgr_stat_database_sync st=3 sess=1 pipe=4 tbl=0x4000013"}};
  for (const auto &[call, want] : rows) {
    SCOPED_TRACE(want);
    Restart();
    Out o;
    call(o);
    ASSERT_EQ(drvm_call_count(), 1u);
    EXPECT_EQ(fields(*drvm_call(0), o), want);
  }
}

TEST_F(CellTest, TheIdleParametersAreRecordedAsTheirRecordWithItsPaddingZero) {
  pipe_idle_time_params_t p;
  std::memset(&p, 0xEE, sizeof p);  // padding (on a 64-bit host) that is not zero
  p.mode = 1;
  p.ttl_query_interval = 2;
  p.max_ttl = 3;
  p.min_ttl = 4;
  p.callback_fn = expiry_cb;
  p.reserved = 5;
  p.client_data = &g_cookie;
  p.reserved2 = 6;
  ASSERT_EQ(pipe_mgr_idle_set_params(1, 0, kIdle, p), BF_SUCCESS);
  const drvm_call_t *c = drvm_last_call("pipe_mgr_idle_set_params");
  ASSERT_NE(c, nullptr);
  pipe_idle_time_params_t want;
  std::memset(&want, 0, sizeof want);
  want.mode = 1;
  want.ttl_query_interval = 2;
  want.max_ttl = 3;
  want.min_ttl = 4;
  want.callback_fn = expiry_cb;
  want.reserved = 5;
  want.client_data = &g_cookie;
  want.reserved2 = 6;
  ASSERT_EQ(c->num_bytes, sizeof want);
  EXPECT_EQ(std::memcmp(c->bytes, &want, sizeof want), 0);
  EXPECT_EQ(sizeof(void *) == 4 ? c->num_bytes : 32u, 32u) << "32 bytes on the 32-bit target";
}

TEST_F(CellTest, PassThroughAnswersEveryCellFunctionAtOnce) {
  const std::string before = state();
  drvm_fail_next("pipe_mgr_stat_ent_set", BF_INJECTED_FAULT);
  drvm_set_passthrough(1);
  for (const Op &op : ops()) {
    Out o;
    EXPECT_EQ(op.call(o), BF_SUCCESS) << op.fn();
    EXPECT_EQ(o.written(), "") << op.fn();
  }
  drvm_set_passthrough(0);
  EXPECT_EQ(drvm_call_count(), 0u);
  EXPECT_TRUE(g_told.empty());
  EXPECT_EQ(state(), before);
  EXPECT_EQ(pipe_mgr_stat_ent_set(1, 0, 0, kCtr, 0, &g_stat), BF_INJECTED_FAULT) << "the queued refusal waited";
}

// ---- Every documented refusal ----

struct Refusal {
  std::string what;
  bf_status_t st;
  Call call;
};

std::vector<Refusal> refusals() {
  std::vector<Refusal> v;
  auto row = [&v](std::string what, bf_status_t st, Call call) { v.push_back({std::move(what), st, std::move(call)}); };
  for (const Op &op : ops())
    row(cat(op.fn(), ": a queued fault"), BF_INJECTED_FAULT, [op](Out &o) {
      drvm_fail_next(op.fn().c_str(), BF_INJECTED_FAULT);
      return op.call(o);
    });
  const uint32_t kAll = BF_DEV_PIPE_ALL;
  // Direct counters.
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_direct_stat_ent_database_sync(1, 0, 0, kMat, i1));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_direct_stat_ent_database_sync(1, 0, 0, kMat, 99));
  REFUSE(BF_INVALID_ARG, pipe_mgr_mat_ent_direct_stat_query(1, 0, kMat, e1, nullptr));  // direct query: a null record
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_mat_ent_direct_stat_query(1, 1, kMat, e1, &o.stat[0]));
  REFUSE(BF_INVALID_ARG, pipe_mgr_mat_ent_direct_stat_set(1, 0, kMat, e1, nullptr));  // direct set: a null record
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_mat_ent_direct_stat_set(1, 0, kMat, 0, &g_stat));
  // Indirect counters.
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_stat_ent_database_sync(1, 0, 0, kMtr, 0));    // stat sync: undeclared
  REFUSE(BF_INVALID_ARG, pipe_mgr_stat_ent_database_sync(1, 0, 4, kCtr, 0));         // stat sync: pipe 4 of 4
  REFUSE(BF_INDEX_OUT_OF_RANGE, pipe_mgr_stat_ent_database_sync(1, 0, 1, kCtr, 8));  // stat sync: index 8 of 8
  REFUSE(BF_INVALID_ARG, pipe_mgr_stat_ent_query(1, 0, 1, kCtr, nullptr, 2, o.stat_ptrs));
  REFUSE(BF_INVALID_ARG, pipe_mgr_stat_ent_query(1, 0, 1, kCtr, g_idx, 2, nullptr));  // stat query: a null record array
  row("stat query: a null record", BF_INVALID_ARG, [](Out &o) {
    pipe_stat_data_t *ptrs[2] = {&o.stat[0], nullptr};
    return pipe_mgr_stat_ent_query(1, 0, 1, kCtr, g_idx, 2, ptrs);
  });
  row("stat query: the second index out of range", BF_INDEX_OUT_OF_RANGE, [](Out &o) {
    uint32_t idx[2] = {2, 8};
    return pipe_mgr_stat_ent_query(1, 0, 1, kCtr, idx, 2, o.stat_ptrs);
  });
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_stat_ent_query(1, 0, 1, kWred, g_idx, 2, o.stat_ptrs));
  REFUSE(BF_INVALID_ARG, pipe_mgr_stat_ent_query(1, 0, 7, kCtr, g_idx, 2, o.stat_ptrs));  // stat query: pipe 7
  REFUSE(BF_INVALID_ARG, pipe_mgr_stat_ent_set(1, 0, 1, kCtr, 1, nullptr));               // stat set: a null record
  REFUSE(BF_INDEX_OUT_OF_RANGE, pipe_mgr_stat_ent_set(1, 0, kAll, kCtr, 8, &g_stat));     // stat set: index 8
  REFUSE(BF_INVALID_ARG, pipe_mgr_stat_ent_set(1, 0, 4, kCtr, 1, &g_stat));               // stat set: pipe 4
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_stat_ent_set(1, 0, 1, 5, 1, &g_stat));             // stat set: undeclared
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_stat_database_sync(1, 0, kAll, kReg, sync_cb, nullptr));
  REFUSE(BF_INVALID_ARG, pipe_mgr_stat_database_sync(1, 0, 4, kCtr, sync_cb, nullptr));  // stat database sync: pipe 4
  // Meters and WRED.
  REFUSE(BF_INVALID_ARG, pipe_mgr_meter_ent_set(1, 0, 0, kMtr, 0, nullptr, 0));        // meter set: a null record
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_meter_ent_set(1, 0, 0, kCtr, 0, &g_meter, 0));  // meter set: a counter's handle
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_meter_ent_set(1, 0, 0, kDMtr, 0, &g_meter, 0));
  REFUSE(BF_INVALID_ARG, pipe_mgr_meter_ent_set(1, 0, 4, kMtr, 0, &g_meter, 0));         // meter set: pipe 4
  REFUSE(BF_INDEX_OUT_OF_RANGE, pipe_mgr_meter_ent_set(1, 0, 0, kMtr, 8, &g_meter, 0));  // meter set: index 8
  REFUSE(BF_INVALID_ARG, pipe_mgr_mat_ent_set_resource(1, 0, kMat, e1, nullptr, 1, 0));  // set_resource: a null array
  REFUSE(BF_INVALID_ARG, pipe_mgr_mat_ent_set_resource(1, 0, kMat, e1, g_res, 0, 0));    // set_resource: count 0
  REFUSE(BF_INVALID_ARG, pipe_mgr_mat_ent_set_resource(1, 0, kMat, e1, g_res, -1, 0));   // set_resource: count -1
  REFUSE(BF_INVALID_ARG, pipe_mgr_mat_ent_set_resource(1, 0, kMat, e1, g_res, 5, 0));    // set_resource: count 5
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_mat_ent_set_resource(1, 0, kMat, i1, g_res, 1, 0));
  REFUSE(BF_INVALID_ARG, pipe_mgr_meter_read_entry_idx(1, 0, 0, kMtr, 1, nullptr, false));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_meter_read_entry_idx(1, 0, 0, kWred, 1, &o.meter, false));
  REFUSE(BF_INVALID_ARG, pipe_mgr_meter_read_entry_idx(1, 0, 5, kMtr, 1, &o.meter, false));  // read_entry_idx: pipe 5
  REFUSE(BF_INDEX_OUT_OF_RANGE, pipe_mgr_meter_read_entry_idx(1, 0, kAll, kMtr, 9, &o.meter, false));
  REFUSE(BF_INVALID_ARG, pipe_mgr_meter_read_entry(1, 0, 0, kMat, e1, nullptr));  // read_entry: a null record
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_meter_read_entry(1, 0, 0, kIdle, i1, &o.meter));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_meter_read_entry(1, 0, 0, kMat, i1, &o.meter));  // read_entry: an unknown entry
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_meter_set_bytecount_adjust(1, 0, 0, kWred, 1));
  REFUSE(BF_INVALID_ARG, pipe_mgr_meter_set_bytecount_adjust(1, 0, 4, kMtr, 1));  // set_bytecount_adjust: pipe 4
  REFUSE(BF_INVALID_ARG, pipe_mgr_meter_get_bytecount_adjust(1, 0, 0, kMtr, nullptr));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_meter_get_bytecount_adjust(1, 0, 0, kMat, &o.i32));
  REFUSE(BF_INVALID_ARG, pipe_mgr_meter_get_bytecount_adjust(1, 0, 4, kMtr, &o.i32));   // get_bytecount_adjust: pipe 4
  REFUSE(BF_INVALID_ARG, pipe_mgr_wred_ent_set(1, 0, 0, kWred, 0, nullptr, 0));         // wred set: a null record
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_wred_ent_set(1, 0, 0, kMtr, 0, &g_wred, 0));     // wred set: a meter's handle
  REFUSE(BF_INVALID_ARG, pipe_mgr_wred_ent_set(1, 0, 4, kWred, 0, &g_wred, 0));         // wred set: pipe 4
  REFUSE(BF_INDEX_OUT_OF_RANGE, pipe_mgr_wred_ent_set(1, 0, 0, kWred, 4, &g_wred, 0));  // wred set: index 4 of 4
  // Registers.
  REFUSE(BF_INVALID_ARG, pipe_stful_query_get_sizes(1, 0, kReg, nullptr));      // get_sizes: a null pointer
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_stful_query_get_sizes(1, 0, kCtr, &o.num));  // get_sizes: undeclared
  REFUSE(BF_INVALID_ARG, pipe_stful_ent_query(1, 0, 0, kReg, 0, nullptr, 0));   // ent_query: a null query
  row("ent_query: null values", BF_INVALID_ARG, [](Out &o) {
    o.q[0].data = nullptr;
    const bf_status_t st = pipe_stful_ent_query(1, 0, 0, kReg, 0, &o.q[0], 0);
    o.q[0].data = &o.cells[0];
    return st;
  });
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_stful_ent_query(1, 0, 0, kDReg, 0, &o.q[0], 0));   // ent_query: undeclared
  REFUSE(BF_INVALID_ARG, pipe_stful_ent_query(1, 0, 2, kReg, 0, &o.q[0], 0));         // ent_query: instance 2 of 2
  REFUSE(BF_INDEX_OUT_OF_RANGE, pipe_stful_ent_query(1, 0, 0, kReg, 6, &o.q[0], 0));  // ent_query: index 6 of 6
  row("ent_query: room for 1 value of 2", BF_NO_SPACE, [](Out &o) {
    o.q[0].pipe_count = 1;
    const bf_status_t st = pipe_stful_ent_query(1, 0, kAll, kReg, 0, &o.q[0], 0);
    EXPECT_EQ(o.q[0].pipe_count, 1u);
    o.q[0].pipe_count = 2;
    return st;
  });
  REFUSE(BF_INVALID_ARG, pipe_stful_ent_query_range(1, 0, 0, kReg, 0, 2, o.q, nullptr, 0));
  REFUSE(BF_INVALID_ARG, pipe_stful_ent_query_range(1, 0, 0, kReg, 0, 2, nullptr, &o.w[0], 0));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_stful_ent_query_range(1, 0, 0, kMtr, 0, 2, o.q, &o.w[0], 0));
  REFUSE(BF_INVALID_ARG, pipe_stful_ent_query_range(1, 0, 3, kReg, 0, 2, o.q, &o.w[0], 0));  // query_range: pipe 3
  REFUSE(BF_INDEX_OUT_OF_RANGE, pipe_stful_ent_query_range(1, 0, 0, kReg, 6, 1, o.q, &o.w[0], 0));
  row("query_range: null values in the second record", BF_INVALID_ARG, [](Out &o) {
    o.q[1].data = nullptr;
    const bf_status_t st = pipe_stful_ent_query_range(1, 0, 0, kReg, 0, 2, o.q, &o.w[0], 0);
    o.q[1].data = &o.cells[2];
    return st;
  });
  row("query_range: no room in the third record", BF_NO_SPACE, [](Out &o) {
    o.q[2].pipe_count = 1;
    const bf_status_t st = pipe_stful_ent_query_range(1, 0, kAll, kReg, 0, 3, o.q, &o.w[0], 0);
    o.q[2].pipe_count = 2;
    return st;
  });
  REFUSE(BF_INVALID_ARG, pipe_stful_ent_set(1, 0, 0, kReg, 0, nullptr, 0));         // ent_set: a null record
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_stful_ent_set(1, 0, 0, kMat, 0, &g_cell, 0));    // ent_set: undeclared
  REFUSE(BF_INVALID_ARG, pipe_stful_ent_set(1, 0, 2, kReg, 0, &g_cell, 0));         // ent_set: instance 2
  REFUSE(BF_INDEX_OUT_OF_RANGE, pipe_stful_ent_set(1, 0, 0, kReg, 6, &g_cell, 0));  // ent_set: index 6
  REFUSE(BF_INVALID_ARG, pipe_stful_direct_ent_query(1, 0, kMat, e1, nullptr, 0));  // direct_ent_query: a null query
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_stful_direct_ent_query(1, 0, kIdle, i1, &o.q[0], 0));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_stful_direct_ent_query(1, 0, kMat, 77, &o.q[0], 0));
  row("direct_ent_query: room for 1 value of 2", BF_NO_SPACE, [](Out &o) {
    o.q[0].pipe_count = 1;
    const bf_status_t st = pipe_stful_direct_ent_query(1, 0, kMat, e1, &o.q[0], 0);
    o.q[0].pipe_count = 2;
    return st;
  });
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_stful_database_sync(1, 0, kAll, kCtr, sync_cb, nullptr));
  REFUSE(BF_INVALID_ARG, pipe_stful_database_sync(1, 0, 5, kReg, sync_cb, nullptr));  // stful database sync: instance 5
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_stful_direct_database_sync(1, 0, kAll, kIdle, sync_cb, nullptr));
  REFUSE(BF_INVALID_ARG, pipe_stful_direct_database_sync(1, 0, 2, kMat, sync_cb, nullptr));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_stful_table_reset(1, 0, kAll, kMtr, nullptr));  // table_reset: undeclared
  REFUSE(BF_INVALID_ARG, pipe_stful_table_reset(1, 0, 3, kReg, &g_cell));          // table_reset: instance 3
  REFUSE(BF_INDEX_OUT_OF_RANGE, pipe_stful_table_reset_range(1, 0, kAll, kReg, 4, 3, &g_cell));
  REFUSE(BF_INDEX_OUT_OF_RANGE, pipe_stful_table_reset_range(1, 0, kAll, kReg, 1, 0xFFFFFFFFu, nullptr));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_stful_table_reset_range(1, 0, kAll, kWred, 0, 1, nullptr));
  REFUSE(BF_INVALID_ARG, pipe_stful_table_reset_range(1, 0, 2, kReg, 0, 1, nullptr));  // reset_range: instance 2
  // Idle time.
  REFUSE(BF_NOT_SUPPORTED, pipe_mgr_idle_set_params(1, 0, kMat, params(1)));  // set_params: a table without idle time
  REFUSE(BF_INVALID_ARG, pipe_mgr_idle_set_params(1, 0, kIdle, params(2)));   // set_params: mode 2
  REFUSE(BF_INVALID_ARG, pipe_mgr_idle_get_params(1, 0, kIdle, nullptr));     // get_params: a null record
  REFUSE(BF_NOT_SUPPORTED, pipe_mgr_idle_get_params(1, 0, kMat, &o.params));  // get_params: a table without idle time
  REFUSE(BF_NOT_SUPPORTED, pipe_mgr_idle_tmo_set_enable(1, 0, kMat, false));  // set_enable: a table without idle time
  REFUSE(BF_NOT_SUPPORTED, pipe_mgr_idle_register_tmo_cb(1, 0, kMat, expiry_cb2, nullptr));
  REFUSE(BF_NOT_SUPPORTED, pipe_mgr_mat_ent_set_idle_ttl(1, 0, kMat, e1, 5, 0, false));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_mat_ent_set_idle_ttl(1, 0, kIdle, e1, 5, 0, true));
  REFUSE(BF_INVALID_ARG, pipe_mgr_mat_ent_get_idle_ttl(1, 0, kIdle, i1, nullptr));  // get_idle_ttl: a null pointer
  REFUSE(BF_NOT_SUPPORTED, pipe_mgr_mat_ent_get_idle_ttl(1, 0, kMat, e1, &o.w[0]));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_mat_ent_get_idle_ttl(1, 2, kIdle, i1, &o.w[0]));  // get_idle_ttl: another device
  REFUSE(BF_NOT_SUPPORTED, pipe_mgr_mat_ent_reset_idle_ttl(1, 0, kMat, e1));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_mat_ent_reset_idle_ttl(1, 0, kIdle, 50));  // reset_idle_ttl: an unknown entry
  REFUSE(BF_NOT_SUPPORTED, pipe_mgr_idle_time_update_hit_state(1, 0, kMat, done_cb, nullptr));
  REFUSE(BF_INVALID_ARG, pipe_mgr_idle_time_get_hit_state(1, 0, kIdle, i1, nullptr));  // get_hit_state: a null pointer
  REFUSE(BF_NOT_SUPPORTED, pipe_mgr_idle_time_get_hit_state(1, 0, kMat, e1, &o.w[0]));
  REFUSE(BF_OBJECT_NOT_FOUND, pipe_mgr_idle_time_get_hit_state(1, 0, kIdle, e2, &o.w[0]));
  return v;
}

TEST_F(CellTest, EachRefusalReturnsItsStatusAndChangesNothing) {
  for (const Refusal &r : refusals()) {
    SCOPED_TRACE(r.what);
    Restart();
    const std::string before = state();
    Out o;
    EXPECT_EQ(r.call(o), r.st);
    EXPECT_EQ(o.written(), "");
    EXPECT_TRUE(g_told.empty());
    ASSERT_EQ(drvm_call_count(), 1u);
    EXPECT_EQ(drvm_call(0)->status, r.st);
    EXPECT_EQ(state(), before);
  }
}

// The calls of other families that tell the cells about entries: adds and changes that carry a
// table's direct meter, adds to a table with idle time, deletes. Their requests are made here, before
// any allocation is made to fail.
std::vector<Op> entry_ops() {
  auto request = [](uint32_t k, std::vector<pipe_res_spec_t> rs) {
    auto r = std::make_shared<Request>(key(k), kMask4);
    r->action.resource_count = static_cast<uint8_t>(rs.size());
    for (size_t i = 0; i < rs.size(); ++i) r->action.resources[i] = rs[i];
    return r;
  };
  std::shared_ptr<Request> metered = request(9, {meter_res(kMeter2)}), plain = request(9, {});
  return {
      {[metered](Out &o) { return add(*metered, &o.w[0], kMat); }, "pipe_mgr_mat_ent_add"},
      {[plain](Out &o) { return add(*plain, &o.w[0], kIdle, 0, 40); }, "pipe_mgr_mat_ent_add"},
      {[metered](Out &) { return pipe_mgr_mat_ent_set_action(1, 0, kMat, e2, kAct, &metered->action, 0); },
       "pipe_mgr_mat_ent_set_action"},
      {CALL(pipe_mgr_mat_ent_del(1, 0, kMat, e1, 0)), "pipe_mgr_mat_ent_del"},
      {CALL(pipe_mgr_mat_ent_del(1, 0, kIdle, i1, 0)), "pipe_mgr_mat_ent_del"},
  };
}

// Each call, with each allocation of the model's own memory failing in turn: BF_NO_SYS_RESOURCES,
// the world as it was, nothing written or told.
using CellAllocationFailureTest = CellTest;
TEST_F(CellAllocationFailureTest, EachCallAnswersNoSysResourcesAndChangesNothing) {
  std::vector<Op> all = ops();
  for (Op &op : entry_ops()) all.push_back(std::move(op));
  for (const Op &op : all) {
    const auto [st, failures] = alloc_fault::sweep<Out>(
        op.fn(), [&] { Restart(); }, [&](Out &o) { return op.call(o); }, [&] { return state(); },
        [&] { EXPECT_TRUE(g_told.empty()); });
    EXPECT_EQ(st, BF_SUCCESS);
    EXPECT_GT(failures, 0u) << op.fn() << " allocates at least its record";
  }
}

TEST_F(CellAllocationFailureTest, TrafficAndDeclarationsChangeNothingWhenMemoryRunsOut) {
  const pipe_stful_mem_spec_t v = cell({9, 9, 9, 9});
  const std::vector<std::pair<std::string, std::function<bf_status_t()>>> calls = {
      {"stat_count on a fresh device", [] { return drvm_stat_count(3, 0, kCtr, 1, 1, 1); }},
      {"stat_direct_count", [] { return drvm_stat_direct_count(0, kMat, e2, 1, 1); }},
      {"register_hw_write on a fresh device", [&v] { return drvm_register_hw_write(3, 0, kReg, 1, &v); }},
      {"register_direct_hw_write", [&v] { return drvm_register_direct_hw_write(0, kMat, e2, 0, &v); }},
      {"idle_hit", [] { return drvm_idle_hit(0, kIdle, i1); }},
      {"declare_counter", [] { return drvm_declare_counter(0x4000099, 3); }},
  };
  for (const auto &[what, call] : calls) {
    for (size_t k = 0;; ++k) {
      SCOPED_TRACE(cat(what, ": allocation ", k, " fails"));
      Restart();
      const std::string before = state();
      alloc_fault::arm(k);
      const bf_status_t st = call();
      if (!alloc_fault::disarm()) {
        EXPECT_EQ(st, BF_SUCCESS);
        break;
      }
      EXPECT_EQ(st, BF_NO_SYS_RESOURCES);
      EXPECT_EQ(state(), before);
    }
  }
  // A declaration refused for want of memory leaves the handle undeclared.
  Restart();
  alloc_fault::arm(0);
  EXPECT_EQ(drvm_declare_counter(0x4000099, 3), BF_NO_SYS_RESOURCES);
  alloc_fault::disarm();
  EXPECT_EQ(drvm_stat_get(0, 0, 0x4000099, 0, nullptr, nullptr), BF_OBJECT_NOT_FOUND);
}

// ---- Counters ----

pipe_stat_data_t query(uint32_t pipe, uint32_t index, uint32_t hdl = kCtr) {
  pipe_stat_data_t out{0xEE, 0xEE}, *p = &out;
  EXPECT_EQ(pipe_mgr_stat_ent_query(1, 0, pipe, hdl, &index, 1, &p), BF_SUCCESS);
  return out;
}
pipe_stat_data_t direct_query(uint32_t ent, uint32_t tbl = kMat) {
  pipe_stat_data_t out{0xEE, 0xEE};
  EXPECT_EQ(pipe_mgr_mat_ent_direct_stat_query(1, 0, tbl, ent, &out), BF_SUCCESS);
  return out;
}

TEST_F(CellTest, CounterQueriesReadTheCopyUntilASyncOfThatCell) {
  EXPECT_EQ(show(query(1, 2)), "500B/5P") << "the copy of the first sync, not the traffic after it";
  ASSERT_EQ(drvm_stat_count(0, 1, kCtr, 3, 7, 70), BF_SUCCESS);
  EXPECT_EQ(show(query(1, 3)), "0B/0P");
  ASSERT_EQ(pipe_mgr_stat_ent_database_sync(1, 0, 1, kCtr, 3), BF_SUCCESS);
  EXPECT_EQ(show(query(1, 3)), "70B/7P");
  EXPECT_EQ(show(query(1, 2)), "500B/5P") << "one cell's sync refreshes that cell only";
  EXPECT_EQ(show(query(2, 3)), "0B/0P") << "nor another pipe's";
  // Several indexes in one query, the same one twice included.
  uint32_t idx[3] = {3, 2, 3};
  pipe_stat_data_t out[3], *ptrs[3] = {&out[0], &out[1], &out[2]};
  ASSERT_EQ(pipe_mgr_stat_ent_query(1, 0, 1, kCtr, idx, 3, ptrs), BF_SUCCESS);
  EXPECT_EQ(cat(show(out[0]), " ", show(out[1]), " ", show(out[2])), "70B/7P 500B/5P 70B/7P");
  // No index at all: nothing to fill.
  EXPECT_EQ(pipe_mgr_stat_ent_query(1, 0, 1, kCtr, idx, 0, ptrs), BF_SUCCESS);
}

TEST_F(CellTest, ACounterDatabaseSyncRefreshesEveryCellAndCallsBackOnceAfterTheCall) {
  ASSERT_EQ(drvm_stat_count(0, 0, kCtr, 0, 1, 10), BF_SUCCESS);
  ASSERT_EQ(drvm_stat_count(0, 3, kCtr, 7, 2, 20), BF_SUCCESS);
  // Only the pipe named.
  ASSERT_EQ(pipe_mgr_stat_database_sync(1, 0, 3, kCtr, sync_cb, &g_cookie), BF_SUCCESS);
  EXPECT_EQ(show(query(3, 7)), "20B/2P");
  EXPECT_EQ(show(query(0, 0)), "0B/0P");
  EXPECT_EQ(show(query(1, 2)), "500B/5P");
  EXPECT_EQ(g_told, (std::vector<std::string>{"sync 0 cookie"}));
  // All pipes; the callback runs once the call's record is finished and may call the driver.
  static std::string seen;
  static pipe_mgr_sync_cb look = [](bf_dev_id_t dev, void *cookie) {
    const drvm_call_t *last = drvm_last_call(nullptr);
    const size_t calls = drvm_call_count();
    seen = cat(dev, " ", cookie == &g_cookie, " ", last->fn, " st=", last->status, " calls=", calls, " ");
    seen += show(query(0, 0));
  };
  drvm_clear_calls();
  ASSERT_EQ(pipe_mgr_stat_database_sync(1, 0, BF_DEV_PIPE_ALL, kCtr, look, &g_cookie), BF_SUCCESS);
  EXPECT_EQ(seen, "0 1 pipe_mgr_stat_database_sync st=0 calls=1 10B/1P");
  EXPECT_EQ(drvm_call_count(), 2u) << "the callback's query is recorded after the sync";
  EXPECT_EQ(show(query(1, 2)), "600B/6P");
  // A null callback is fine.
  EXPECT_EQ(pipe_mgr_stat_database_sync(1, 0, BF_DEV_PIPE_ALL, kCtr, nullptr, nullptr), BF_SUCCESS);
}

TEST_F(CellTest, ACounterSetWritesHardwareAndCopyAndAllPipesReadAsTheirSum) {
  pipe_stat_data_t v = stat(1000, 10);
  ASSERT_EQ(pipe_mgr_stat_ent_set(1, 0, 2, kCtr, 4, &v), BF_SUCCESS);
  pipe_stat_data_t hw, sw;
  ASSERT_EQ(drvm_stat_get(0, 2, kCtr, 4, &hw, &sw), BF_SUCCESS);
  EXPECT_EQ(cat(show(hw), " ", show(sw)), "1000B/10P 1000B/10P");
  ASSERT_EQ(drvm_stat_count(0, 2, kCtr, 4, 1, 1), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_stat_ent_database_sync(1, 0, 2, kCtr, 4), BF_SUCCESS);
  EXPECT_EQ(show(query(2, 4)), "1001B/11P") << "traffic counts on from the value set";
  // All pipes: a query sums the pipes' copies, a sync refreshes every pipe's cell.
  for (uint32_t p = 0; p < 4; ++p) ASSERT_EQ(drvm_stat_count(0, p, kCtr, 5, p + 1, 100 * (p + 1)), BF_SUCCESS);
  EXPECT_EQ(show(query(BF_DEV_PIPE_ALL, 5)), "0B/0P");
  ASSERT_EQ(pipe_mgr_stat_ent_database_sync(1, 0, BF_DEV_PIPE_ALL, kCtr, 5), BF_SUCCESS);
  EXPECT_EQ(show(query(BF_DEV_PIPE_ALL, 5)), "1000B/10P");
  EXPECT_EQ(show(query(3, 5)), "400B/4P");
  // A set on all pipes reads back whole on all pipes: pipe 0 takes the value, the others 0.
  pipe_stat_data_t w = stat(2, 1);
  ASSERT_EQ(pipe_mgr_stat_ent_set(1, 0, BF_DEV_PIPE_ALL, kCtr, 5, &w), BF_SUCCESS);
  EXPECT_EQ(show(query(BF_DEV_PIPE_ALL, 5)), "2B/1P");
  EXPECT_EQ(show(query(0, 5)), "2B/1P");
  EXPECT_EQ(show(query(3, 5)), "0B/0P");
  // Devices are apart.
  EXPECT_EQ(drvm_stat_count(0, 4, kCtr, 5, 1, 1), BF_INVALID_ARG) << "traffic comes in on one pipe";
  EXPECT_EQ(drvm_stat_count(0, BF_DEV_PIPE_ALL, kCtr, 5, 1, 1), BF_INVALID_ARG);
  pipe_stat_data_t on1{7, 7}, *p1 = &on1;
  uint32_t five = 5;
  ASSERT_EQ(pipe_mgr_stat_ent_query(1, 1, BF_DEV_PIPE_ALL, kCtr, &five, 1, &p1), BF_SUCCESS);
  EXPECT_EQ(show(on1), "0B/0P");
}

TEST_F(CellTest, DirectCountersWorkOnAnyEntryAndGoWithIt) {
  EXPECT_EQ(show(direct_query(e1)), "10B/1P") << "the set, not the traffic after it";
  ASSERT_EQ(pipe_mgr_direct_stat_ent_database_sync(1, 0, 0, kMat, e1), BF_SUCCESS);
  EXPECT_EQ(show(direct_query(e1)), "30B/3P");
  EXPECT_EQ(show(direct_query(e2)), "0B/0P") << "a cell starts at zero";
  // The database sync refreshes the table's entries, of that table only, and calls back once.
  ASSERT_EQ(drvm_stat_direct_count(0, kMat, e2, 1, 64), BF_SUCCESS);
  ASSERT_EQ(drvm_stat_direct_count(0, kIdle, i1, 1, 64), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_direct_stat_database_sync(1, 0, BF_DEV_PIPE_ALL, kMat, sync_cb, &g_cookie), BF_SUCCESS);
  EXPECT_EQ(show(direct_query(e2)), "64B/1P");
  EXPECT_EQ(show(direct_query(i1, kIdle)), "0B/0P");
  EXPECT_EQ(g_told, (std::vector<std::string>{"sync 0 cookie"}));
  // A set writes both; a deleted entry's cell is gone, and a new entry starts at zero.
  pipe_stat_data_t v = stat(5, 5);
  ASSERT_EQ(pipe_mgr_mat_ent_direct_stat_set(1, 0, kMat, e2, &v), BF_SUCCESS);
  EXPECT_EQ(show(direct_query(e2)), "5B/5P");
  const size_t cells = drvm_direct_cell_count();
  ASSERT_EQ(del(e2, kMat), BF_SUCCESS);
  EXPECT_EQ(drvm_direct_cell_count(), cells - 1);
  pipe_stat_data_t out{};
  EXPECT_EQ(pipe_mgr_mat_ent_direct_stat_query(1, 0, kMat, e2, &out), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(drvm_stat_direct_count(0, kMat, e2, 1, 1), BF_OBJECT_NOT_FOUND);
  uint32_t h = 0;
  ASSERT_EQ(add_with(kMat, 2, {}, 0, &h), BF_SUCCESS);
  EXPECT_EQ(show(direct_query(h)), "0B/0P");
  // Many entries come and go: their cells do not pile up.
  for (int n = 0; n < 200; ++n) {
    ASSERT_EQ(add_with(kMat, 1000 + n, {}, 0, &h), BF_SUCCESS);
    ASSERT_EQ(drvm_stat_direct_count(0, kMat, h, 1, 1), BF_SUCCESS);
    ASSERT_EQ(del(h, kMat), BF_SUCCESS);
  }
  EXPECT_EQ(drvm_direct_cell_count(), cells - 1);
}

// ---- Meters and WRED ----

TEST_F(CellTest, AMeterCellReadsBackEveryFieldAsSetOnItsPipe) {
  pipe_meter_spec_t m = kMeter, out;
  ASSERT_EQ(pipe_mgr_meter_ent_set(1, 0, 2, kMtr, 5, &m, 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_meter_read_entry_idx(1, 0, 2, kMtr, 5, &out, false), BF_SUCCESS);
  EXPECT_EQ(hexof(out), hexof(kMeter)) << "type 7, both units, the high words";
  ASSERT_EQ(pipe_mgr_meter_read_entry_idx(1, 0, 1, kMtr, 5, &out, true), BF_SUCCESS);
  EXPECT_EQ(hexof(out), hexof(pipe_meter_spec_t{})) << "another pipe's cell";
  // All pipes: a set writes each pipe; a read reads pipe 0.
  m = kMeter2;
  ASSERT_EQ(pipe_mgr_meter_ent_set(1, 0, BF_DEV_PIPE_ALL, kMtr, 6, &m, 0), BF_SUCCESS);
  for (uint32_t p = 0; p < 4; ++p) {
    ASSERT_EQ(drvm_meter_get(0, p, kMtr, 6, &out), BF_SUCCESS);
    EXPECT_EQ(hexof(out), hexof(kMeter2)) << p;
  }
  ASSERT_EQ(pipe_mgr_meter_read_entry_idx(1, 0, BF_DEV_PIPE_ALL, kMtr, 1, &out, false), BF_SUCCESS);
  EXPECT_EQ(hexof(out), hexof(kMeter2));
}

TEST_F(CellTest, ADirectMeterReadsTheLastWriteFromSetResourceOrTheEntrysActionRecord) {
  pipe_meter_spec_t out;
  ASSERT_EQ(pipe_mgr_meter_read_entry(1, 0, 0, kMat, e1, &out), BF_SUCCESS);
  EXPECT_EQ(hexof(out), hexof(kMeter)) << "from the add's action record";
  ASSERT_EQ(pipe_mgr_meter_read_entry(1, 0, 0, kMat, e2, &out), BF_SUCCESS);
  EXPECT_EQ(hexof(out), hexof(pipe_meter_spec_t{})) << "an entry whose meter was never written";
  // set_resource: the meter and another resource in one call.
  pipe_res_spec_t rs[2] = {meter_res(kMeter2), res(kOther, "xyz", 3)};
  ASSERT_EQ(pipe_mgr_mat_ent_set_resource(1, 0, kMat, e1, rs, 2, 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_meter_read_entry(1, 0, 0, kMat, e1, &out), BF_SUCCESS);
  EXPECT_EQ(hexof(out), hexof(kMeter2));
  uint8_t data[44];
  ASSERT_EQ(drvm_entry_resource_get(0, kMat, e1, kOther, data), BF_SUCCESS);
  EXPECT_EQ(hex(data, 3), "78797a");
  // A change of action that carries the meter writes it; one that does not leaves it.
  pipe_action_spec_t a{};
  a.resource_count = 2;
  a.resources[0] = res(kOther, "abc", 3);
  a.resources[1] = meter_res(kMeter);
  ASSERT_EQ(pipe_mgr_mat_ent_set_action(1, 0, kMat, e1, kAct, &a, 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_meter_read_entry(1, 0, 0, kMat, e1, &out), BF_SUCCESS);
  EXPECT_EQ(hexof(out), hexof(kMeter));
  ASSERT_EQ(drvm_entry_resource_get(0, kMat, e1, kOther, data), BF_SUCCESS);
  EXPECT_EQ(hex(data, 3), "78797a") << "only the table's direct meter is taken from an action record";
  a.resource_count = 1;  // the meter's record lies past the records counted
  ASSERT_EQ(pipe_mgr_mat_ent_set_action(1, 0, kMat, e1, kAct, &a, 0), BF_SUCCESS);
  pipe_action_spec_t none{};
  ASSERT_EQ(pipe_mgr_mat_ent_set_action(1, 0, kMat, e1, kAct, &none, 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_meter_read_entry(1, 0, 0, kMat, e1, &out), BF_SUCCESS);
  EXPECT_EQ(hexof(out), hexof(kMeter));
  // The modify of an entry that had no cells yet.
  a.resource_count = 2;
  a.resources[1] = meter_res(kMeter2);
  ASSERT_EQ(pipe_mgr_mat_ent_set_action_by_match_spec(1, tgt(), kMat, match_of({key(2), kMask4}), kAct, &a, 0),
            BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_meter_read_entry(1, 0, 0, kMat, e2, &out), BF_SUCCESS);
  EXPECT_EQ(hexof(out), hexof(kMeter2));
}

TEST_F(CellTest, TheBytecountAdjustmentIsSignedAndPerPipe) {
  int32_t v = 0;
  ASSERT_EQ(pipe_mgr_meter_get_bytecount_adjust(1, 0, 2, kMtr, &v), BF_SUCCESS);
  EXPECT_EQ(v, -4);
  ASSERT_EQ(pipe_mgr_meter_get_bytecount_adjust(1, 0, 1, kMtr, &v), BF_SUCCESS);
  EXPECT_EQ(v, 0);
  ASSERT_EQ(pipe_mgr_meter_set_bytecount_adjust(1, 0, BF_DEV_PIPE_ALL, kDMtr, INT32_MIN), BF_SUCCESS);
  for (uint32_t p = 0; p < 4; ++p) {
    ASSERT_EQ(pipe_mgr_meter_get_bytecount_adjust(1, 0, p, kDMtr, &v), BF_SUCCESS);
    EXPECT_EQ(v, INT32_MIN) << "a direct meter's resource handle, every pipe";
  }
  ASSERT_EQ(pipe_mgr_meter_set_bytecount_adjust(1, 0, 0, kDMtr, 24), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_meter_get_bytecount_adjust(1, 0, BF_DEV_PIPE_ALL, kDMtr, &v), BF_SUCCESS);
  EXPECT_EQ(v, 24) << "all pipes read pipe 0";
}

TEST_F(CellTest, WredCellsReadBackWhatWasSet) {
  pipe_wred_spec_t w = {1, 2, 3, 0xFFFFFFFFu}, out;
  ASSERT_EQ(pipe_mgr_wred_ent_set(1, 0, 1, kWred, 3, &w, 0), BF_SUCCESS);
  ASSERT_EQ(drvm_wred_get(0, 1, kWred, 3, &out), BF_SUCCESS);
  EXPECT_EQ(hexof(out), hexof(w));
  ASSERT_EQ(drvm_wred_get(0, 3, kWred, 0, &out), BF_SUCCESS);
  EXPECT_EQ(hexof(out), hexof(kWredSpec));
  ASSERT_EQ(pipe_mgr_wred_ent_set(1, 0, BF_DEV_PIPE_ALL, kWred, 0, &w, 0), BF_SUCCESS);
  for (uint32_t p = 0; p < 4; ++p) {
    ASSERT_EQ(drvm_wred_get(0, p, kWred, 0, &out), BF_SUCCESS);
    EXPECT_EQ(hexof(out), hexof(w));
  }
}

// ---- Registers ----

// The values one query record gives, as text: "count: v0 v1...", each value as hex of 16 bytes.
std::string values(const pipe_stful_mem_query_t &q) {
  std::string s = cat(q.pipe_count, ":");
  for (uint32_t i = 0; i < q.pipe_count; ++i) s += cat(" ", hex(q.data[i].bytes, 16));
  return s;
}
std::string reg_query(uint32_t pipe, uint32_t index, uint32_t flags = 0) {
  pipe_stful_mem_spec_t cells[2];
  std::memset(cells, 0xEE, sizeof cells);
  pipe_stful_mem_query_t q{2, cells};
  const bf_status_t st = pipe_stful_ent_query(1, 0, pipe, kReg, index, &q, flags);
  return st == BF_SUCCESS ? values(q) : cat("status ", st);
}
const char *const kReset = "01020304000000000000000000000000";

TEST_F(CellTest, ARegisterGivesOneValuePerInstance) {
  int n = 0;
  ASSERT_EQ(pipe_stful_query_get_sizes(1, 0, kReg, &n), BF_SUCCESS);
  EXPECT_EQ(n, 2);
  ASSERT_EQ(pipe_stful_query_get_sizes(1, 0, kDReg, &n), BF_SUCCESS);
  EXPECT_EQ(n, 2) << "a direct register's handle";
  pipe_stful_mem_spec_t a = cell({0xA0}), b = cell({0xB0, 0xB1});
  ASSERT_EQ(pipe_stful_ent_set(1, 0, 0, kReg, 4, &a, 0), BF_SUCCESS);
  ASSERT_EQ(pipe_stful_ent_set(1, 0, 1, kReg, 4, &b, 0), BF_SUCCESS);
  EXPECT_EQ(reg_query(BF_DEV_PIPE_ALL, 4), "2: a0000000000000000000000000000000 b0b10000000000000000000000000000");
  EXPECT_EQ(reg_query(1, 4), "1: b0b10000000000000000000000000000") << "one pipe, its instance only";
  EXPECT_EQ(reg_query(0, 0), cat("1: ", kReset)) << "cells start at the reset value";
  // A query record with more room than needed is filled as far as there are values.
  pipe_stful_mem_spec_t cells[3];
  pipe_stful_mem_query_t q{3, cells};
  ASSERT_EQ(pipe_stful_ent_query(1, 0, BF_DEV_PIPE_ALL, kReg, 1, &q, 0), BF_SUCCESS);
  EXPECT_EQ(values(q), "2: 11223344000000000000000000000000 11223344000000000000000000000000");
  // A set on all pipes writes every instance.
  ASSERT_EQ(pipe_stful_ent_set(1, 0, BF_DEV_PIPE_ALL, kReg, 4, &b, 0), BF_SUCCESS);
  EXPECT_EQ(reg_query(0, 4), "1: b0b10000000000000000000000000000");
}

TEST_F(CellTest, ARangeReadGoesByIndexThenInstanceAndStopsAtTheLastIndex) {
  for (uint8_t i = 0; i < 6; ++i)
    for (uint8_t p = 0; p < 2; ++p) {
      pipe_stful_mem_spec_t v = cell({uint8_t(0x10 * i + p)});
      ASSERT_EQ(pipe_stful_ent_set(1, 0, p, kReg, i, &v, 0), BF_SUCCESS);
    }
  pipe_stful_mem_spec_t cells[8];
  pipe_stful_mem_query_t q[4];
  for (int k = 0; k < 4; ++k) q[k] = pipe_stful_mem_query_t{2, &cells[2 * k]};
  uint32_t n = 0;
  ASSERT_EQ(pipe_stful_ent_query_range(1, 0, BF_DEV_PIPE_ALL, kReg, 1, 3, q, &n, 0), BF_SUCCESS);
  ASSERT_EQ(n, 3u);
  std::string got;
  for (uint32_t k = 0; k < n; ++k)
    for (uint32_t p = 0; p < q[k].pipe_count; ++p) got += cat(hex(q[k].data[p].bytes, 1), " ");
  EXPECT_EQ(got, "10 11 20 21 30 31 ");
  // Past the end: as many as there are.
  ASSERT_EQ(pipe_stful_ent_query_range(1, 0, 1, kReg, 4, 4, q, &n, 0), BF_SUCCESS);
  ASSERT_EQ(n, 2u);
  EXPECT_EQ(values(q[0]), "1: 41000000000000000000000000000000");
  EXPECT_EQ(values(q[1]), "1: 51000000000000000000000000000000");
  EXPECT_EQ(q[2].pipe_count, 2u) << "a record past the last index read is not written";
  ASSERT_EQ(pipe_stful_ent_query_range(1, 0, 1, kReg, 4, 0, nullptr, &n, 0), BF_SUCCESS);
  EXPECT_EQ(n, 0u);
}

TEST_F(CellTest, ResetsWriteTheValueGivenOrTheResetValue) {
  pipe_stful_mem_spec_t v = cell({0xCC, 0xCC});
  ASSERT_EQ(pipe_stful_table_reset(1, 0, BF_DEV_PIPE_ALL, kReg, &v), BF_SUCCESS);
  for (uint32_t i = 0; i < 6; ++i)
    EXPECT_EQ(reg_query(BF_DEV_PIPE_ALL, i, PIPE_FLAG_SYNC_REQ),
              "2: cccc0000000000000000000000000000 cccc0000000000000000000000000000");
  ASSERT_EQ(pipe_stful_table_reset_range(1, 0, 1, kReg, 2, 3, nullptr), BF_SUCCESS);
  EXPECT_EQ(reg_query(1, 1), "1: cccc0000000000000000000000000000");
  EXPECT_EQ(reg_query(1, 2), cat("1: ", kReset));
  EXPECT_EQ(reg_query(1, 4, PIPE_FLAG_SYNC_REQ), cat("1: ", kReset));
  EXPECT_EQ(reg_query(1, 5), "1: cccc0000000000000000000000000000");
  EXPECT_EQ(reg_query(0, 3), "1: cccc0000000000000000000000000000") << "the other instance";
  ASSERT_EQ(pipe_stful_table_reset(1, 0, 0, kReg, nullptr), BF_SUCCESS);
  EXPECT_EQ(reg_query(BF_DEV_PIPE_ALL, 5), cat("2: ", kReset, " cccc0000000000000000000000000000"));
  EXPECT_EQ(pipe_stful_table_reset_range(1, 0, 0, kReg, 6, 0, &v), BF_SUCCESS) << "an empty range at the end";
}

TEST_F(CellTest, OnlyARegistersWidthIsKept) {
  pipe_stful_mem_spec_t all;
  std::memset(&all, 0xFF, sizeof all);
  ASSERT_EQ(pipe_stful_ent_set(1, 0, BF_DEV_PIPE_ALL, kReg, 0, &all, 0), BF_SUCCESS);
  EXPECT_EQ(reg_query(0, 0), "1: ffffffff000000000000000000000000");
  ASSERT_EQ(drvm_register_hw_write(0, 1, kReg, 0, &all), BF_SUCCESS);
  EXPECT_EQ(reg_query(1, 0, PIPE_FLAG_SYNC_REQ), "1: ffffffff000000000000000000000000");
  // A one-byte register of one instance, with a reset value of its width.
  pipe_stful_mem_spec_t reset = cell({0x5A, 0x5B});
  ASSERT_EQ(drvm_declare_register(0x6000002, 3, 1, 1, &reset), BF_SUCCESS);
  pipe_stful_mem_spec_t c[1];
  pipe_stful_mem_query_t q{1, c};
  ASSERT_EQ(pipe_stful_ent_query(1, 0, BF_DEV_PIPE_ALL, 0x6000002, 2, &q, 0), BF_SUCCESS);
  EXPECT_EQ(values(q), "1: 5a000000000000000000000000000000");
  ASSERT_EQ(pipe_stful_table_reset(1, 0, BF_DEV_PIPE_ALL, 0x6000002, &all), BF_SUCCESS);
  ASSERT_EQ(pipe_stful_ent_query(1, 0, 0, 0x6000002, 2, &q, 0), BF_SUCCESS);
  EXPECT_EQ(values(q), "1: ff000000000000000000000000000000");
  // Direct register cells too (2 bytes).
  pipe_res_spec_t r = res(kDReg, "\x01\x02\x03\x04", 4);
  ASSERT_EQ(pipe_mgr_mat_ent_set_resource(1, 0, kMat, e2, &r, 1, 0), BF_SUCCESS);
  pipe_stful_mem_spec_t d[2];
  pipe_stful_mem_query_t dq{2, d};
  ASSERT_EQ(pipe_stful_direct_ent_query(1, 0, kMat, e2, &dq, 0), BF_SUCCESS);
  EXPECT_EQ(values(dq), "2: 01020000000000000000000000000000 01020000000000000000000000000000");
}

TEST_F(CellTest, TheSyncFlagReadsTheHardwareAndADatabaseSyncRefreshesTheCopy) {
  EXPECT_EQ(reg_query(1, 2), cat("1: ", kReset)) << "traffic is not in the copy";
  EXPECT_EQ(reg_query(1, 2, PIPE_FLAG_SYNC_REQ), "1: 0a0b0c0d000000000000000000000000");
  EXPECT_EQ(reg_query(1, 2, 0xFFFE), cat("1: ", kReset)) << "only the sync flag counts";
  EXPECT_EQ(reg_query(1, 2), cat("1: ", kReset)) << "a read from the hardware leaves the copy";
  ASSERT_EQ(pipe_stful_database_sync(1, 0, 0, kReg, sync_cb, &g_cookie), BF_SUCCESS);
  EXPECT_EQ(reg_query(1, 2), cat("1: ", kReset)) << "a sync of instance 0 only";
  ASSERT_EQ(pipe_stful_database_sync(1, 0, BF_DEV_PIPE_ALL, kReg, sync_cb, &g_cookie), BF_SUCCESS);
  EXPECT_EQ(reg_query(1, 2), "1: 0a0b0c0d000000000000000000000000");
  EXPECT_EQ(g_told, (std::vector<std::string>{"sync 0 cookie", "sync 0 cookie"}));
}

TEST_F(CellTest, ADirectRegisterIsWrittenAsAResourceAndReadPerInstance) {
  pipe_stful_mem_spec_t d[2];
  pipe_stful_mem_query_t q{2, d};
  ASSERT_EQ(pipe_stful_direct_ent_query(1, 0, kMat, e1, &q, 0), BF_SUCCESS);
  EXPECT_EQ(values(q), "2: abcd0000000000000000000000000000 abcd0000000000000000000000000000");
  q.pipe_count = 2;
  ASSERT_EQ(pipe_stful_direct_ent_query(1, 0, kMat, e1, &q, PIPE_FLAG_SYNC_REQ), BF_SUCCESS);
  EXPECT_EQ(values(q), "2: abcd0000000000000000000000000000 01020000000000000000000000000000");
  ASSERT_EQ(pipe_stful_direct_database_sync(1, 0, BF_DEV_PIPE_ALL, kMat, sync_cb, &g_cookie), BF_SUCCESS);
  q.pipe_count = 2;
  ASSERT_EQ(pipe_stful_direct_ent_query(1, 0, kMat, e1, &q, 0), BF_SUCCESS);
  EXPECT_EQ(values(q), "2: abcd0000000000000000000000000000 01020000000000000000000000000000");
  EXPECT_EQ(g_told.size(), 1u);
  q.pipe_count = 2;
  ASSERT_EQ(pipe_stful_direct_ent_query(1, 0, kMat, e2, &q, 0), BF_SUCCESS);
  EXPECT_EQ(values(q), "2: 00000000000000000000000000000000 00000000000000000000000000000000");
  // One handle for the table and its register, as a caller may use it.
  ASSERT_EQ(drvm_declare_direct_register(kIdle, kIdle, 1, 16), BF_SUCCESS);
  pipe_res_spec_t r = res(kIdle, "0123456789abcdefXYZ", 19);
  ASSERT_EQ(pipe_mgr_mat_ent_set_resource(1, 0, kIdle, i1, &r, 1, 0), BF_SUCCESS);
  q.pipe_count = 2;
  ASSERT_EQ(pipe_stful_direct_ent_query(1, 0, kIdle, i1, &q, 0), BF_SUCCESS);
  EXPECT_EQ(values(q), "1: 30313233343536373839616263646566");
}

// ---- Idle time ----

uint32_t ttl_of(uint32_t ent, uint32_t tbl = kIdle) {
  uint32_t t = 0xEEEE;
  EXPECT_EQ(pipe_mgr_mat_ent_get_idle_ttl(1, 0, tbl, ent, &t), BF_SUCCESS);
  return t;
}

TEST_F(CellTest, InNotifyModeTheClockAgesEntriesAndEachExpiryIsReportedOnce) {
  uint32_t i3 = 0;
  ASSERT_EQ(add_with(kIdle, 5, {}, 50, &i3), BF_SUCCESS);
  EXPECT_EQ(ttl_of(i1), 70u);
  EXPECT_EQ(ttl_of(i3), 50u) << "a new entry starts with its whole TTL";
  drvm_advance_clock(49999);
  EXPECT_EQ(ttl_of(i1), 21u) << "rounded up";
  EXPECT_EQ(ttl_of(i3), 1u);
  EXPECT_TRUE(g_told.empty());
  drvm_advance_clock(1);
  EXPECT_EQ(g_told, (std::vector<std::string>{cat("expired 0 ", i3, " cookie")}));
  EXPECT_EQ(ttl_of(i3), 0u);
  drvm_advance_clock(20000);
  EXPECT_EQ(g_told, (std::vector<std::string>{cat("expired 0 ", i3, " cookie"), "expired 0 3 cookie"}));
  g_told.clear();
  drvm_advance_clock(1000000);
  EXPECT_TRUE(g_told.empty()) << "once; and i2, of TTL 0, never ages";
  EXPECT_EQ(ttl_of(i2), 0u);
  EXPECT_EQ(drvm_entry_count(0, kIdle), 3u) << "the model deletes nothing";
  // A hit restarts the countdown, and the entry may expire again.
  ASSERT_EQ(drvm_idle_hit(0, kIdle, i1), BF_SUCCESS);
  EXPECT_EQ(ttl_of(i1), 100u);
  drvm_advance_clock(100000);
  EXPECT_EQ(g_told, (std::vector<std::string>{"expired 0 3 cookie"}));
  // So does a reset, and a set of the TTL; a set without restart keeps the time aged.
  g_told.clear();
  ASSERT_EQ(pipe_mgr_mat_ent_reset_idle_ttl(1, 0, kIdle, i1), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_mat_ent_set_idle_ttl(1, 0, kIdle, i3, 30, 0, true), BF_SUCCESS);
  drvm_advance_clock(10000);
  EXPECT_EQ(ttl_of(i1), 90u);
  ASSERT_EQ(pipe_mgr_mat_ent_set_idle_ttl(1, 0, kIdle, i1, 200, 0, false), BF_SUCCESS);
  EXPECT_EQ(ttl_of(i1), 190u);
  EXPECT_EQ(ttl_of(i3), 20u);
  uint32_t kept = 0;
  ASSERT_EQ(drvm_entry_get(0, kIdle, i1, nullptr, nullptr, nullptr, &kept), BF_SUCCESS);
  EXPECT_EQ(kept, 200u) << "the entry store keeps the new TTL";
  drvm_advance_clock(20000);
  EXPECT_EQ(g_told, (std::vector<std::string>{cat("expired 0 ", i3, " cookie")}));
}

TEST_F(CellTest, DisablingOrPollModeStopsTheAgeingAndTheCallbackMayCallTheDriver) {
  ASSERT_EQ(pipe_mgr_idle_tmo_set_enable(1, 0, kIdle, false), BF_SUCCESS);
  drvm_advance_clock(500000);
  EXPECT_EQ(ttl_of(i1), 70u);
  EXPECT_TRUE(g_told.empty());
  ASSERT_EQ(pipe_mgr_idle_tmo_set_enable(1, 0, kIdle, true), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_idle_set_params(1, 0, kIdle, params(PIPE_IDLE_TIME_MODE_POLL)), BF_SUCCESS);
  drvm_advance_clock(500000);
  EXPECT_EQ(ttl_of(i1), 70u);
  // Back to notify mode, with a callback that deletes what expires (as a control plane does).
  static std::vector<std::string> deleted;
  static pipe_idle_tmo_expiry_cb del_cb = [](bf_dev_id_t dev, pipe_mat_ent_hdl_t ent, void *) {
    deleted.push_back(cat(ent, ":", pipe_mgr_mat_ent_del(1, dev, kIdle, ent, 0)));
  };
  ASSERT_EQ(pipe_mgr_idle_set_params(1, 0, kIdle, params(PIPE_IDLE_TIME_MODE_NOTIFY, del_cb)), BF_SUCCESS);
  drvm_advance_clock(70000);
  EXPECT_EQ(deleted, (std::vector<std::string>{"3:0"}));
  EXPECT_EQ(drvm_entry_count(0, kIdle), 1u);
  drvm_advance_clock(1000000);
  EXPECT_EQ(deleted.size(), 1u);
  // Many expiries in one tick, more than one batch of reports.
  deleted.clear();
  std::vector<uint32_t> hs(150);
  for (uint32_t k = 0; k < hs.size(); ++k) ASSERT_EQ(add_with(kIdle, 100 + k, {}, 5, &hs[k]), BF_SUCCESS);
  drvm_advance_clock(5000);
  ASSERT_EQ(deleted.size(), hs.size());
  for (uint32_t k = 0; k < hs.size(); ++k) EXPECT_EQ(deleted[k], cat(hs[k], ":0"));
  EXPECT_EQ(drvm_entry_count(0, kIdle), 1u);
}

TEST_F(CellTest, InPollModeHitsReachTheDriversCopyThroughAnUpdate) {
  ASSERT_EQ(pipe_mgr_idle_set_params(1, 0, kIdle, params(PIPE_IDLE_TIME_MODE_POLL)), BF_SUCCESS);
  auto hit_state = [](uint32_t ent) {
    uint32_t s = 0xEE;
    EXPECT_EQ(pipe_mgr_idle_time_get_hit_state(1, 0, kIdle, ent, &s), BF_SUCCESS);
    return s;
  };
  EXPECT_EQ(hit_state(i2), uint32_t(PIPE_IDLE_TIME_HIT_STATE_IDLE)) << "hit, but not updated yet";
  ASSERT_EQ(pipe_mgr_idle_time_update_hit_state(1, 0, kIdle, done_cb, &g_cookie), BF_SUCCESS);
  EXPECT_EQ(g_told, (std::vector<std::string>{"done 0 cookie"}));
  EXPECT_EQ(hit_state(i2), uint32_t(PIPE_IDLE_TIME_HIT_STATE_ACTIVE));
  EXPECT_EQ(hit_state(i1), uint32_t(PIPE_IDLE_TIME_HIT_STATE_IDLE));
  ASSERT_EQ(drvm_idle_hit(0, kIdle, i1), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_idle_time_update_hit_state(1, 0, kIdle, nullptr, nullptr), BF_SUCCESS);
  EXPECT_EQ(hit_state(i2), uint32_t(PIPE_IDLE_TIME_HIT_STATE_IDLE)) << "the update cleared the hardware's";
  EXPECT_EQ(hit_state(i1), uint32_t(PIPE_IDLE_TIME_HIT_STATE_ACTIVE));
  EXPECT_EQ(g_told.size(), 1u);
  drvm_advance_clock(1000000);
  EXPECT_EQ(g_told.size(), 1u) << "nothing expires in poll mode";
}

TEST_F(CellTest, TheParametersReadBackAsSetWithTheCallbackOfTheLatestRegistration) {
  pipe_idle_time_params_t p = params(PIPE_IDLE_TIME_MODE_NOTIFY), out;
  p.reserved = 0x11;
  p.reserved2 = 0x22;
  ASSERT_EQ(pipe_mgr_idle_set_params(1, 0, kIdle, p), BF_SUCCESS);
  std::memset(&out, 0xEE, sizeof out);
  ASSERT_EQ(pipe_mgr_idle_get_params(1, 0, kIdle, &out), BF_SUCCESS);
  EXPECT_EQ(cat(out.mode, " ", out.ttl_query_interval, " ", out.max_ttl, " ", out.min_ttl, " ", out.reserved, " ",
                out.reserved2),
            "1 1000 60000 50 17 34");
  EXPECT_EQ(out.callback_fn, expiry_cb);
  EXPECT_EQ(out.client_data, &g_cookie);
  ASSERT_EQ(pipe_mgr_idle_register_tmo_cb(1, 0, kIdle, expiry_cb2, nullptr), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_idle_get_params(1, 0, kIdle, &out), BF_SUCCESS);
  EXPECT_EQ(out.callback_fn, expiry_cb2);
  EXPECT_EQ(out.client_data, nullptr);
  EXPECT_EQ(out.max_ttl, 60000u);
  drvm_advance_clock(70000);
  EXPECT_EQ(g_told, (std::vector<std::string>{"expired2 0 3"}));
  // Another device of the same table starts with nothing set; a device's params are its own.
  ASSERT_EQ(pipe_mgr_idle_get_params(1, 1, kIdle, &out), BF_SUCCESS);
  EXPECT_EQ(cat(out.mode, " ", out.max_ttl), "0 0");
  EXPECT_EQ(out.callback_fn, nullptr);
}

TEST_F(CellTest, ATableDeclaredAfterItsEntriesAgesThemFromItsFirstIdleCall) {
  uint32_t a = 0, b = 0;
  ASSERT_EQ(add_with(0x1000048, 1, {}, 10, &a), BF_SUCCESS);
  EXPECT_EQ(pipe_mgr_mat_ent_reset_idle_ttl(1, 0, 0x1000048, a), BF_NOT_SUPPORTED);
  ASSERT_EQ(drvm_declare_idle_table(0x1000048), BF_SUCCESS);
  EXPECT_EQ(drvm_declare_idle_table(0x1000048), BF_ALREADY_EXISTS);
  EXPECT_EQ(ttl_of(a, 0x1000048), 10u);
  ASSERT_EQ(pipe_mgr_idle_set_params(1, 0, 0x1000048, params(PIPE_IDLE_TIME_MODE_NOTIFY)), BF_SUCCESS);
  ASSERT_EQ(add_with(0x1000048, 2, {}, 20, &b), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_idle_tmo_set_enable(1, 0, 0x1000048, true), BF_SUCCESS);
  drvm_advance_clock(10000);
  EXPECT_EQ(g_told, (std::vector<std::string>{cat("expired 0 ", a, " cookie")}));
  EXPECT_EQ(ttl_of(b, 0x1000048), 10u);
}

// ---- Declarations and pipes ----

TEST_F(CellTest, DeclarationsAndPipesRefuseWhatTheyCannotHold) {
  EXPECT_EQ(drvm_declare_counter(kCtr, 3), BF_ALREADY_EXISTS);
  EXPECT_EQ(drvm_declare_counter(0x4000020, 0), BF_INVALID_ARG);
  EXPECT_EQ(drvm_declare_meter(kMtr, 1), BF_ALREADY_EXISTS);
  EXPECT_EQ(drvm_declare_wred(0x7000002, 0), BF_INVALID_ARG);
  EXPECT_EQ(drvm_declare_direct_meter(kMat, 0x5000009), BF_ALREADY_EXISTS);
  EXPECT_EQ(drvm_declare_register(0x6000003, 1, 0, 4, nullptr), BF_INVALID_ARG);
  EXPECT_EQ(drvm_declare_register(0x6000003, 1, 65, 4, nullptr), BF_INVALID_ARG);
  EXPECT_EQ(drvm_declare_register(0x6000003, 1, 1, 17, nullptr), BF_INVALID_ARG);
  EXPECT_EQ(drvm_declare_register(0x6000003, 1, 1, 0, nullptr), BF_INVALID_ARG);
  EXPECT_EQ(drvm_declare_register(kReg, 1, 1, 1, nullptr), BF_ALREADY_EXISTS);
  EXPECT_EQ(drvm_declare_direct_register(kMat, 1, 1, 1), BF_ALREADY_EXISTS);
  EXPECT_EQ(drvm_declare_direct_register(kIdle, 1, 1, 0), BF_INVALID_ARG);
  // A null reset value is 0.
  ASSERT_EQ(drvm_declare_register(0x6000003, 1, 1, 16, nullptr), BF_SUCCESS);
  pipe_stful_mem_spec_t hw, sw;
  ASSERT_EQ(drvm_register_get(0, 0, 0x6000003, 0, &hw, &sw), BF_SUCCESS);
  EXPECT_EQ(cat(hex(hw.bytes, 16), hex(sw.bytes, 16)), std::string(64, '0'));
  // Pipes: fixed once a per-pipe cell is written; free again after a reset.
  EXPECT_EQ(drvm_set_num_pipes(2), BF_IN_USE);
  drvm_reset();
  EXPECT_EQ(drvm_num_pipes(), 4u);
  EXPECT_EQ(drvm_set_num_pipes(0), BF_INVALID_ARG);
  EXPECT_EQ(drvm_set_num_pipes(65), BF_INVALID_ARG);
  ASSERT_EQ(drvm_set_num_pipes(2), BF_SUCCESS);
  ASSERT_EQ(drvm_declare_counter(kCtr, 1), BF_SUCCESS) << "the reset forgot the declaration";
  pipe_stat_data_t v = stat(1, 1);
  EXPECT_EQ(pipe_mgr_stat_ent_set(1, 0, 2, kCtr, 0, &v), BF_INVALID_ARG);
  EXPECT_EQ(pipe_mgr_stat_ent_set(1, 0, 1, kCtr, 0, &v), BF_SUCCESS);
  EXPECT_EQ(drvm_direct_cell_count(), 0u);
}

TEST_F(CellTest, TheModelsCallsRefuseWhatTheDriversDo) {
  const pipe_stful_mem_spec_t v = cell({1});
  const std::string before = state();
  EXPECT_EQ(drvm_stat_count(0, 0, kMtr, 0, 1, 1), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(drvm_stat_count(0, 0, kCtr, 8, 1, 1), BF_INDEX_OUT_OF_RANGE);
  EXPECT_EQ(drvm_stat_direct_count(0, kMat, i1, 1, 1), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(drvm_register_hw_write(0, 0, kReg, 0, nullptr), BF_INVALID_ARG);
  EXPECT_EQ(drvm_register_hw_write(0, 2, kReg, 0, &v), BF_INVALID_ARG);
  EXPECT_EQ(drvm_register_hw_write(0, 0, kReg, 6, &v), BF_INDEX_OUT_OF_RANGE);
  EXPECT_EQ(drvm_register_hw_write(0, 0, kCtr, 0, &v), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(drvm_register_direct_hw_write(0, kIdle, i1, 0, &v), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(drvm_register_direct_hw_write(0, kMat, i1, 0, &v), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(drvm_register_direct_hw_write(0, kMat, e1, 2, &v), BF_INVALID_ARG);
  EXPECT_EQ(drvm_idle_hit(0, kMat, e1), BF_NOT_SUPPORTED);
  EXPECT_EQ(drvm_idle_hit(0, kIdle, e1), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(drvm_stat_get(0, BF_DEV_PIPE_ALL, kCtr, 0, nullptr, nullptr), BF_INVALID_ARG);
  EXPECT_EQ(drvm_register_get(0, BF_DEV_PIPE_ALL, kReg, 0, nullptr, nullptr), BF_INVALID_ARG);
  EXPECT_EQ(drvm_entry_resource_get(0, kMat, e2, kDMtr, nullptr), BF_OBJECT_NOT_FOUND);
  EXPECT_EQ(drvm_idle_table_get(0, kMat, nullptr, nullptr), BF_NOT_SUPPORTED);
  EXPECT_EQ(state(), before);
  EXPECT_EQ(drvm_call_count(), 0u) << "the model's calls are not recorded";
}

}  // namespace
