// Fault injection over every export that reaches the driver, driven from the catalog
// (tests/gen_fault_cases.py): each call runs once on a world made for it, which records the driver
// functions it calls and the allocations it makes; then again with each of those driver functions
// refusing (status kInjected), and with each of those allocations failing. Every run must give the
// status its family's rules say, leave the outputs as the rules say (as they were, unless named),
// leave the device and the member-selector state as they were, free everything it allocated and
// log nothing. Then the one leak by design: the resource list of a default-entry read-back whose
// action the table does not have, which is exactly that list, and which LeakSanitizer's
// suppressions (tools/lsan.supp) cover, and nothing else.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "fault_alloc.h"
#include "fault_cases.h"

extern "C" {
#include <cjson/cJSON.h>
}

namespace fault {

// ---- The test's callbacks: passed on by the library, called by the model at most ----

void cb_mat(bf_dev_id_t, pipe_mat_tbl_hdl_t, pipe_mat_update_type_t, pipe_mat_ent_hdl_t, pipe_act_fn_hdl_t, void *) {}
void cb_sel_tbl(bf_dev_id_t, pipe_sel_tbl_hdl_t, pipe_sel_grp_hdl_t, pipe_adt_ent_hdl_t, bool, void *) {}
void cb_adt(bf_dev_id_t, pipe_adt_tbl_hdl_t, pipe_adt_update_type_t, pipe_adt_ent_hdl_t, pipe_act_fn_hdl_t, void *) {}
void cb_sel(bf_dev_id_t, pipe_sel_tbl_hdl_t, pipe_sel_update_type_t, pipe_sel_grp_hdl_t, pipe_adt_ent_hdl_t, void *) {}
void cb_sync(bf_dev_id_t, void *) {}
void cb_idle(bf_dev_id_t, pipe_mat_ent_hdl_t, void *) {}
pipe_status_t cb_digest(pipe_sess_hdl_t, pipe_flow_lrn_msg_t *, void *) { return 0; }

namespace {

constexpr uint32_t kInjected = 0x4242;
constexpr uint32_t kNoMemory = 2;

std::string g_setup_failure;

// The library's device hooks, as it handed them to the driver: the state of a device dropped, and
// written as JSON (the member-selector state the fingerprints compare).
bf_drv_device_remove_cb_t g_dev_remove = nullptr;
bf_drv_device_log_cb_t g_dev_log = nullptr;
int g_fd = -1;

class Environment : public ::testing::Environment {
 public:
  void SetUp() override {
    drvm_reset();
    p4_pd_corvin_switch_init();
    bf_drv_client_handle_t h = drvm_client_handle("p4_pd_corvin_switch_pd");
    g_dev_remove = reinterpret_cast<bf_drv_device_remove_cb_t>(drvm_client_callback(h, 3));
    g_dev_log = reinterpret_cast<bf_drv_device_log_cb_t>(drvm_client_callback(h, 4));
    FILE *f = std::tmpfile();
    g_fd = f ? dup(fileno(f)) : -1;
    if (f) std::fclose(f);
  }
};
const auto *const g_env = ::testing::AddGlobalTestEnvironment(new Environment);

// ---- Fingerprints of what the device holds ----

struct Bytes {
  std::string s;
  template <class T>
  void put(const T &v) {
    s.append(reinterpret_cast<const char *>(&v), sizeof v);
  }
  void raw(const void *p, size_t n) {
    if (p) s.append(static_cast<const char *>(p), n);
    put(n);
  }
};

void put_action(Bytes &b, const pipe_action_spec_t &a) {
  b.put(a.action_data_type);
  b.put(a.resource_count);
  b.put(a.act_data.num_valid_action_data_bits);
  b.put(a.act_data.num_action_data_bytes);
  b.raw(a.act_data.action_data_bytes, a.act_data.num_action_data_bytes);
  b.put(a.member_hdl);
  b.put(a.group_hdl);
  b.raw(a.resources, sizeof a.resources);
}

void table_print(Bytes &b, uint32_t tbl, uint32_t res, const World &w) {
  b.put(drvm_entry_count(kDev, tbl));
  for (uint32_t h : {w.e1, w.e2}) {
    if (h == 0) continue;
    pipe_tbl_match_spec_t m{};
    pipe_action_spec_t a{};
    uint32_t act = 0, ttl = 0;
    bf_status_t st = drvm_entry_get(kDev, tbl, h, &m, &act, &a, &ttl);
    b.put(st);
    if (st == 0) {
      b.put(m.priority);
      b.put(m.partition_index);
      b.put(m.num_match_bytes);
      b.raw(m.match_value_bytes, m.num_match_bytes);
      b.raw(m.match_mask_bytes, m.num_match_bytes);
      b.put(act);
      put_action(b, a);
      b.put(ttl);
    }
    pipe_stat_data_t hw{}, sw{};
    b.put(drvm_stat_direct_get(kDev, tbl, h, &hw, &sw));
    b.raw(&hw, sizeof hw);
    b.raw(&sw, sizeof sw);
    if (res) {
      uint8_t data[44] = {};
      b.put(drvm_entry_resource_get(kDev, tbl, h, res, data));
      b.raw(data, sizeof data);
    }
    uint32_t left = 0, hw_hit = 0, sw_hit = 0;
    int expired = 0;
    b.put(drvm_idle_entry_get(kDev, tbl, h, &left, &expired, &hw_hit, &sw_hit));
    b.put(left);
    b.put(expired);
    b.put(hw_hit);
    b.put(sw_hit);
  }
  uint32_t dh = 0, dact = 0;
  pipe_action_spec_t da{};
  bf_status_t st = drvm_default_entry_get(kDev, tbl, &dh, &dact, &da);
  b.put(st);
  if (st == 0) {
    b.put(dh);
    b.put(dact);
    put_action(b, da);
  }
  pipe_mat_update_cb cb = nullptr;
  void *cookie = nullptr;
  b.put(drvm_mat_update_cb(kDev, tbl, &cb, &cookie));
  b.put(cb);
  b.put(cookie);
  pipe_idle_time_params_t ip{};
  int enabled = 0;
  b.put(drvm_idle_table_get(kDev, tbl, &ip, &enabled));
  b.put(ip.mode);
  b.put(ip.ttl_query_interval);
  b.put(ip.max_ttl);
  b.put(ip.min_ttl);
  b.put(ip.callback_fn);
  b.put(ip.client_data);
  b.put(enabled);
}

std::string ms_state() {
  cJSON *o = cJSON_CreateObject();
  g_dev_log(kDev, o);
  char *text = cJSON_PrintUnformatted(o);
  std::string s = text ? text : "";
  cJSON_free(text);
  cJSON_Delete(o);
  return s;
}

void profile_print(Bytes &b, const Subject &s, const World &w) {
  b.put(drvm_member_count(kDev, s.adt));
  std::vector<uint32_t> mbrs(std::begin(w.mbr), std::end(w.mbr));
  mbrs.push_back(w.mbr_free);
  mbrs.push_back(w.mbr_x);
  for (uint32_t m : mbrs) {
    if (m == 0) continue;
    uint32_t act = 0, pipe = 0, refs = 0;
    pipe_action_spec_t a{};
    bf_status_t st = drvm_member_get(kDev, s.adt, m, &act, &a, &pipe, &refs);
    b.put(st);
    if (st == 0) {
      b.put(act);
      b.put(pipe);
      b.put(refs);
      put_action(b, a);
    }
  }
  b.put(drvm_group_count(kDev, s.sel));
  for (uint32_t g : {w.grp_bound, w.grp_del}) {
    uint32_t max = 0, pipe = 0, n = 0;
    bf_status_t st = drvm_group_get(kDev, s.sel, g, &max, &pipe, &n);
    b.put(st);
    b.put(max);
    b.put(n);
    for (size_t i = 0; st == 0 && i < n; ++i) {
      uint32_t m = 0;
      int active = 0;
      b.put(drvm_group_member(kDev, s.sel, g, i, &m, &active));
      b.put(m);
      b.put(active);
    }
  }
  uint32_t fb = 0;
  b.put(drvm_fallback_member(kDev, s.sel, 0xFFFF, &fb));
  b.put(fb);
  pipe_adt_update_cb adt_cb = nullptr;
  pipe_sel_update_cb sel_cb = nullptr;
  pipe_sel_tbl_update_cb tbl_cb = nullptr;
  void *c1 = nullptr, *c2 = nullptr, *c3 = nullptr;
  b.put(drvm_adt_update_cb(kDev, s.adt, &adt_cb, &c1));
  b.put(drvm_sel_update_cb(kDev, s.sel, &sel_cb, &c2));
  b.put(drvm_sel_tbl_cb(kDev, s.sel, &tbl_cb, &c3));
  b.put(adt_cb);
  b.put(sel_cb);
  b.put(tbl_cb);
  b.put(c1);
  b.put(c2);
  b.put(c3);
  b.s += ms_state();
  table_print(b, s.tbl, 0, w);
}

// Values read through the driver's own getters, unrecorded: no refusal is queued when they run.
void hash_print(Bytes &b, uint32_t hash) {
  drvm_set_recording(0);
  uint32_t input = 0, algo = 0, count = 0, filled = 0;
  uint64_t seed = 0;
  b.put(pipe_mgr_hash_calc_input_get(kSess, kDev, hash, &input));
  b.put(pipe_mgr_hash_calc_algorithm_get(kSess, kDev, hash, &algo, nullptr, nullptr));
  b.put(pipe_mgr_hash_calc_seed_get(kSess, kDev, hash, &seed));
  b.put(pipe_mgr_hash_calc_input_field_attribute_count_get(kSess, kDev, hash, input, &count));
  pipe_hash_calc_input_field_attribute_t attrs[8] = {};
  b.put(pipe_mgr_hash_calc_input_field_attribute_get(kSess, kDev, hash, input, 8, attrs, &filled));
  b.put(input);
  b.put(algo);
  b.put(seed);
  b.put(count);
  b.raw(attrs, sizeof(attrs[0]) * std::min<uint32_t>(filled, 8));
  drvm_set_recording(1);
}

void value_set_print(Bytes &b, uint32_t pvs, const World &w) {
  b.put(drvm_pvs_entry_count(kDev, pvs));
  drvm_set_recording(0);
  for (uint32_t h : {w.pvs1, w.pvs2}) {
    uint32_t value = 0, mask = 0, gress = 0, parser = 0;
    bf_dev_pipe_t pipe = 0;
    b.put(pipe_mgr_pvs_entry_get(kSess, kDev, pvs, h, &value, &mask, &gress, &pipe, &parser));
    b.put(value);
    b.put(mask);
    b.put(gress);
    b.put(pipe);
    b.put(parser);
  }
  for (uint32_t prop = 0; prop < 3; ++prop) {
    pipe_mgr_pvs_prop_value_t v{};
    pipe_mgr_pvs_prop_args_t a{};
    b.put(pipe_mgr_pvs_get_property(kSess, kDev, pvs, prop, &v, a));
    b.put(v.value);
  }
  drvm_set_recording(1);
}

std::string fingerprint(const Case &c, const World &w) {
  Bytes b;
  for (size_t i = 0; i < kAllTableCount; ++i) b.put(drvm_entry_count(kDev, kAllTables[i]));
  for (size_t i = 0; i < kAllProfileCount; ++i) {
    b.put(drvm_member_count(kDev, kAllProfiles[i].adt));
    b.put(drvm_group_count(kDev, kAllProfiles[i].sel));
  }
  b.put(drvm_direct_cell_count());
  b.put(drvm_snapshot_count());
  const Subject &s = c.subject;
  switch (s.kind) {
    case Kind::none:
      break;
    case Kind::table:
      table_print(b, s.tbl, s.res, w);
      break;
    case Kind::profile:
      profile_print(b, s, w);
      break;
    case Kind::counter:
      for (uint32_t p = 0; p < 4; ++p) {
        pipe_stat_data_t hw{}, sw{};
        b.put(drvm_stat_get(kDev, p, s.res, s.index, &hw, &sw));
        b.raw(&hw, sizeof hw);
        b.raw(&sw, sizeof sw);
      }
      break;
    case Kind::meter:
      for (uint32_t p = 0; p < 4; ++p) {
        pipe_meter_spec_t m{};
        int32_t adjust = 0;
        b.put(drvm_meter_get(kDev, p, s.res, s.index, &m));
        b.raw(&m, sizeof m);
        b.put(drvm_meter_bytecount_adjust(kDev, p, s.res, &adjust));
        b.put(adjust);
      }
      break;
    case Kind::wred:
      for (uint32_t p = 0; p < 4; ++p) {
        pipe_wred_spec_t m{};
        b.put(drvm_wred_get(kDev, p, s.res, s.index, &m));
        b.raw(&m, sizeof m);
      }
      break;
    case Kind::reg:
      for (uint32_t i = 0; i < 8; ++i)
        for (uint32_t p = 0; p < 2; ++p) {
          pipe_stful_mem_spec_t hw{}, sw{};
          b.put(drvm_register_get(kDev, p, s.res, i, &hw, &sw));
          b.raw(&hw, sizeof hw);
          b.raw(&sw, sizeof sw);
        }
      break;
    case Kind::direct_register:
      for (uint32_t p = 0; p < 2; ++p) {
        pipe_stful_mem_spec_t hw{}, sw{};
        b.put(drvm_register_direct_get(kDev, s.tbl, w.e1, p, &hw, &sw));
        b.raw(&hw, sizeof hw);
        b.raw(&sw, sizeof sw);
      }
      table_print(b, s.tbl, s.res, w);
      break;
    case Kind::digest: {
      pipe_flow_lrn_notify_cb cb = nullptr;
      void *cookie = nullptr;
      pipe_sess_hdl_t sess = 0;
      b.put(drvm_learn_callback(kDev, s.res, &cb, &cookie, &sess));
      b.put(cb);
      b.put(cookie);
      b.put(sess);
      b.put(drvm_learn_outstanding_count(kDev, s.res));
      b.put(drvm_learn_pending(kDev, s.res));
      b.put(drvm_learn_delivered(kDev, s.res));
      b.put(drvm_learn_dropped(kDev, s.res));
      b.put(drvm_learn_timeout(kDev));
      break;
    }
    case Kind::value_set:
      value_set_print(b, s.res, w);
      break;
    case Kind::hash:
      hash_print(b, s.res);
      break;
    case Kind::snapshot: {
      const uint8_t *v = nullptr, *m = nullptr;
      bf_status_t st = drvm_snapshot_trigger(w.snap, &v, &m);
      b.put(st);
      if (st == 0) {
        b.raw(v, 809);
        b.raw(m, 809);
      }
      break;
    }
  }
  return b.s;
}

// ---- One run of a case ----

struct Run {
  int64_t result = 0;
  std::vector<std::string> fns;        // the driver calls made, in order
  std::vector<uint32_t> statuses;      // and what each returned
  std::vector<fault_alloc::Allocation> allocs;
  size_t logs = 0;
  std::string fd_text;
};

std::string fd_contents() {
  std::string out;
  if (g_fd < 0) return out;
  lseek(g_fd, 0, SEEK_SET);
  char chunk[4096];
  for (ssize_t n; (n = read(g_fd, chunk, sizeof chunk)) > 0;) out.append(chunk, size_t(n));
  return out;
}

void release(World &w) {
  if (w.list) pipe_mgr_plcmt_list_destroy(w.list);
  if (w.mlist) pipe_mgr_plcmt_list_destroy(w.mlist);
  w = World{};
}

// A new world for the case: the device and the library's state of it as new, then the case's own.
void make_world(const Case &c, World &w) {
  release(w);
  g_dev_remove(kDev);
  drvm_reset();
  g_setup_failure.clear();
  declare_resources();
  w.fd = g_fd;
  c.setup(w);
  if (c.prep) c.prep(w);
  drvm_clear_calls();
  drvm_clear_log();
}

Run run(const Case &c, World &w, Outs &o) {
  o.reset();
  if (g_fd >= 0) {
    if (ftruncate(g_fd, 0) != 0) ADD_FAILURE() << "cannot empty the printers' file";
    lseek(g_fd, 0, SEEK_SET);
  }
  drvm_clear_calls();
  drvm_clear_log();
  fault_alloc::start();
  Run r;
  r.result = c.call(w, o);
  for (size_t i = 0; i < drvm_call_count(); ++i) {
    r.fns.push_back(drvm_call(i)->fn);
    r.statuses.push_back(drvm_call(i)->status);
  }
  r.allocs = fault_alloc::allocations();
  r.logs = drvm_log_count();
  r.fd_text = fd_contents();
  return r;
}

std::string with_subject(const char *text, const Case &c) {
  std::string s = text;
  size_t at = s.find("{subject}");
  if (at != std::string::npos) s.replace(at, 9, c.text_name);
  return s;
}

// The output area after a failed call: every byte as it was but in the slots that `writes` names,
// which hold what it says.
void check_outs(const Case &c, const Outs &o, const Written *writes, size_t n) {
  static uint8_t pattern[Outs::kBytes];
  if (pattern[0] != kPattern) std::memset(pattern, kPattern, sizeof pattern);
  std::vector<std::pair<size_t, size_t>> allowed;
  for (size_t i = 0; i < n; ++i) {
    const Outs::Slot *s = o.find(writes[i].slot);
    if (s == nullptr) {
      ADD_FAILURE() << "no output " << writes[i].slot;
      continue;
    }
    allowed.push_back({s->off, s->off + s->size});
    const uint8_t *p = o.bytes + s->off;
    switch (writes[i].kind) {
      case Write::u32: {
        uint32_t v = 0;
        std::memcpy(&v, p, 4);
        EXPECT_EQ(v, writes[i].value) << "output " << s->name;
        EXPECT_EQ(std::memcmp(p + 4, pattern, s->size - 4), 0) << "output " << s->name << " past its word";
        break;
      }
      case Write::any:
        break;
      case Write::text: {
        std::string want = with_subject(writes[i].text, c);
        EXPECT_EQ(std::string(reinterpret_cast<const char *>(p), strnlen(reinterpret_cast<const char *>(p), s->size)),
                  want)
            << "output " << s->name;
        break;
      }
    }
  }
  std::sort(allowed.begin(), allowed.end());
  size_t at = 0;
  for (auto [from, to] : allowed) {
    if (from > at && std::memcmp(o.bytes + at, pattern, from - at) != 0) {
      for (size_t i = 0; i < o.nslots; ++i) {
        const Outs::Slot &s = o.slots[i];
        if (s.off < from && s.off + s.size > at && std::memcmp(o.bytes + s.off, pattern, s.size) != 0)
          ADD_FAILURE() << "output " << s.name << " written";
      }
    }
    at = std::max(at, to);
  }
  if (at < Outs::kBytes && std::memcmp(o.bytes + at, pattern, Outs::kBytes - at) != 0) {
    bool named = false;
    for (size_t i = 0; i < o.nslots; ++i) {
      const Outs::Slot &s = o.slots[i];
      if (s.off + s.size > at && std::memcmp(o.bytes + s.off, pattern, s.size) != 0) {
        ADD_FAILURE() << "output " << s.name << " written";
        named = true;
      }
    }
    if (!named) ADD_FAILURE() << "the output area written outside every output";
  }
}

const Rule &rule_for(const Case &c, const std::string &fn) {
  for (size_t i = 0; i + 1 < c.nrules; ++i)
    if (fn == c.rules[i].fn) return c.rules[i];
  return c.rules[c.nrules - 1];
}

bool base_ok(const Case &c, int64_t r) { return c.base_status == kPositive ? r > 0 : r == c.base_status; }

struct Counts {
  size_t exports = 0, driver = 0, alloc = 0, stops = 0;
};
std::map<std::string, Counts> &counts() {
  static std::map<std::string, Counts> m;
  return m;
}

// Every fault of one case.
void run_case(const Case &c, World &w, Outs &o) {
  SCOPED_TRACE(c.name);
  Counts &n = counts()[c.family];
  ++n.exports;

  // The call as it goes.
  make_world(c, w);
  EXPECT_EQ(g_setup_failure, "") << "set-up";
  const std::string before = fingerprint(c, w);
  const size_t live = drvm_live_allocs();
  const Run base = run(c, w, o);
  EXPECT_TRUE(base_ok(c, base.result)) << "the call on its world gives " << base.result;
  EXPECT_EQ(drvm_live_allocs(), live) << "the call leaves memory allocated";
  EXPECT_EQ(base.logs, 0u) << "the call logs";
  if (c.after) c.after(w, o, base.result);
  for (const auto &a : base.allocs) EXPECT_FALSE(a.live) << "an allocation of the call is not freed";

  bool fresh = false;  // the world is as set up
  auto world = [&]() {
    if (!fresh) make_world(c, w);
    fresh = true;
  };

  // Each driver function it calls, refusing.
  std::set<std::string> seen;
  for (size_t i = 0; i < base.fns.size(); ++i) {
    const std::string &fn = base.fns[i];
    if (!seen.insert(fn).second) {
      ADD_FAILURE() << fn << " called twice: only its first call can be refused";
      continue;
    }
    const Rule &rule = rule_for(c, fn);
    if (rule.status == Status::stop) {
      ++n.stops;
      continue;
    }
    SCOPED_TRACE(fn + " refuses");
    world();
    drvm_fail_next(fn.c_str(), kInjected);
    const bool paired = rule.status == Status::paired && i + 1 < base.fns.size();
    if (paired) drvm_fail_next(base.fns[i + 1].c_str(), kInjected);
    const Run r = run(c, w, o);
    ++n.driver;
    // The same calls up to the refused one, which took the refusal.
    bool taken = r.fns.size() > i && r.fns[i] == fn && r.statuses[i] == kInjected;
    EXPECT_TRUE(taken) << "the refusal is not taken by the same call";
    for (size_t k = 0; k < i && k < r.fns.size(); ++k) EXPECT_EQ(r.fns[k], base.fns[k]);
    if (!taken) {
      fresh = false;  // a refusal may still be queued: the next world is made anew
      drvm_reset();
      continue;
    }
    switch (rule.status) {
      case Status::injected:
        EXPECT_EQ(r.result, int64_t(kInjected));
        break;
      case Status::fixed:
        EXPECT_EQ(r.result, int64_t(rule.value));
        break;
      case Status::dropped:
        EXPECT_NE(r.result, int64_t(kInjected));
        break;
      case Status::paired:
        EXPECT_TRUE(paired) << "no call after it to refuse";
        EXPECT_EQ(r.result, int64_t(kInjected));
        break;
      default:
        break;
    }
    if (rule.status == Status::dropped) {
      // Not looked at: the calls that follow are made all the same.
      EXPECT_EQ(std::vector<std::string>(r.fns.begin() + long(i) + 1, r.fns.end()),
                std::vector<std::string>(base.fns.begin() + long(i) + 1, base.fns.end()))
          << "the calls after a refusal that is not looked at";
    } else if (paired) {
      EXPECT_EQ(r.fns, std::vector<std::string>(base.fns.begin(), base.fns.begin() + long(i) + 2))
          << "the call after a refusal that is not looked at";
    } else {
      EXPECT_EQ(r.fns.size(), i + 1) << "driver calls after the refusal";
    }
    check_outs(c, o, rule.writes, rule.nwrites);
    if (rule.fd_text) {
      EXPECT_EQ(r.fd_text, with_subject(rule.fd_text, c));
    }
    EXPECT_EQ(drvm_live_allocs(), live) << "memory left allocated";
    EXPECT_EQ(r.logs, 0u) << "a refusal logs";
    if (rule.state_may_change) {
      fresh = false;
    } else {
      const std::string after = fingerprint(c, w);
      EXPECT_TRUE(after == before) << "the device or the profile's state changed";
      if (after != before) fresh = false;
    }
  }

  // Each allocation it makes, failing (and every one after it).
  for (size_t k = 0; k < base.allocs.size(); ++k) {
    SCOPED_TRACE("allocation " + std::to_string(k) + " fails");
    world();
    drvm_fail_alloc_after(k);
    const Run r = run(c, w, o);
    drvm_fail_alloc_off();
    ++n.alloc;
    ASSERT_GT(r.allocs.size(), k);
    EXPECT_TRUE(r.allocs[k].failed) << "the allocation did not fail";
    EXPECT_EQ(drvm_live_allocs(), live) << "memory left allocated";
    EXPECT_EQ(r.logs, 0u) << "an allocation failure logs";
    if (c.alloc_status == Status::fixed) {
      EXPECT_EQ(r.result, int64_t(kNoMemory));
      // Allocations made together are all attempted before any is tested; none comes after.
      EXPECT_LE(r.allocs.size(), base.allocs.size());
      for (size_t j = k; j < r.allocs.size(); ++j) EXPECT_TRUE(r.allocs[j].failed);
      EXPECT_EQ(r.fns, std::vector<std::string>(base.fns.begin(), base.fns.begin() + long(base.allocs[k].calls_before)))
          << "driver calls after the failed allocation";
      check_outs(c, o, c.alloc_writes, c.nalloc_writes);
      const std::string after = fingerprint(c, w);
      EXPECT_TRUE(after == before) << "the device or the profile's state changed";
      if (after != before) fresh = false;
    } else {
      // A read-back's resource list: out of memory reads as no list, the read goes on (and a
      // comparison may find the lost list a difference).
      if (c.alloc_status == Status::same) {
        EXPECT_EQ(r.result, base.result);
      }
      EXPECT_EQ(r.fns, base.fns);
      fresh = false;
    }
  }
}

std::vector<const Case *> all_cases() {
  std::vector<const Case *> v;
  for (size_t p = 0; p < kCaseParts_n; ++p)
    for (size_t i = 0; i < kCasePartCounts[p]; ++i) v.push_back(&kCaseParts[p][i]);
  return v;
}

// The report, after every test: per family, the exports run and the faults injected.
class Report : public ::testing::Environment {
 public:
  void TearDown() override {
    if (counts().empty()) return;
    size_t exports = 0, driver = 0, alloc = 0, stops = 0;
    std::ostringstream out;
    out << "\nInjected faults per family (exports; refused driver calls; failed allocations; refusals not "
           "injected because they stop the process by design):\n";
    for (const auto &[family, k] : counts()) {
      out << "  " << family << ": " << k.exports << "; " << k.driver << "; " << k.alloc;
      if (k.stops) out << "; " << k.stops;
      out << "\n";
      exports += k.exports;
      driver += k.driver;
      alloc += k.alloc;
      stops += k.stops;
    }
    size_t pure = 0;
    for (size_t i = 0; i < kPureFamilyCount; ++i) pure += kPureFamilies[i].exports;
    out << "Families with no driver call and no allocation: " << kPureFamilyCount << " (" << pure << " exports)\n";
    out << "Total: " << exports << " exports, " << driver << " refused driver calls, " << alloc
        << " failed allocations, " << stops << " not injected\n";
    std::cout << out.str();
  }
};
const auto *const g_report = ::testing::AddGlobalTestEnvironment(new Report);

// ---- The tests ----

class FaultInjection : public ::testing::TestWithParam<std::string> {};

std::vector<std::string> family_names() {
  std::vector<std::string> v;
  std::set<std::string> seen;
  for (const Case *c : all_cases())
    if (seen.insert(c->family).second) v.push_back(c->family);
  return v;
}

TEST_P(FaultInjection, EveryDriverRefusalAndAllocationFailure) {
  World w;
  static Outs o;
  for (const Case *c : all_cases())
    if (GetParam() == c->family) run_case(*c, w, o);
  release(w);
}

std::string param_name(const ::testing::TestParamInfo<std::string> &info) {
  std::string s;
  for (char ch : info.param) s += std::isalnum(static_cast<unsigned char>(ch)) ? ch : '_';
  return s + "_" + std::to_string(info.index);
}

INSTANTIATE_TEST_SUITE_P(Families, FaultInjection, ::testing::ValuesIn(family_names()), param_name);

// The sizes' status is not looked at: with the sizes refused (and so the capture, by a driver
// that refuses both for the snapshot), the capture's refusal is the result; nothing is copied,
// nothing left allocated.
TEST(SnapshotCapture, RefusedSizesAreNotLookedAt) {
  drvm_reset();
  p4_pd_snapshot_hdl_t hdl = 0;
  ASSERT_EQ(bf_snapshot_create(kDev, 0xFFFF, 0, 5, BF_SNAPSHOT_DIR_EGRESS, &hdl), 0);
  static p4_pd_corvin_switch_snapshot_capture_arr_t capture;
  std::memset(&capture, kPattern, sizeof capture);
  p4_pd_snapshot_capture_ctrl_info_arr_t ctrl;
  std::memset(&ctrl, kPattern, sizeof ctrl);
  int num = 7;
  const size_t live = drvm_live_allocs();
  drvm_clear_calls();
  drvm_fail_next("bf_snapshot_capture_phv_fields_dict_size", kInjected);
  drvm_fail_next("bf_snapshot_capture_get", kInjected + 1);
  EXPECT_EQ(p4_pd_corvin_switch_snapshot_capture_data_get(hdl, 0, &capture, &ctrl, &num), kInjected + 1);
  EXPECT_EQ(num, 0);
  EXPECT_EQ(drvm_count_calls("bf_snapshot_capture_get"), 1u);
  EXPECT_EQ(drvm_live_allocs(), live);
  for (size_t i = 0; i < sizeof capture; ++i) ASSERT_EQ(reinterpret_cast<const uint8_t *>(&capture)[i], kPattern);
  // With the sizes, the same call captures.
  EXPECT_EQ(p4_pd_corvin_switch_snapshot_capture_data_get(hdl, 0, &capture, &ctrl, &num), 0u);
  EXPECT_EQ(drvm_count_calls("bf_snapshot_capture_get"), 2u);
  EXPECT_EQ(drvm_live_allocs(), live);
}

}  // namespace

void setup_failed(const char *what, uint32_t status) {
  if (g_setup_failure.empty()) g_setup_failure = std::string(what) + " gives " + std::to_string(status);
}

}  // namespace fault
