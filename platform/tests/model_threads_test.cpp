// The driver model and the member-selector layer from several threads at once.
//
// Workers change entries, members, groups and memberships of tables of their own on one device
// (so that they share its handle count and store) and allocate from the system services, while
// readers look at the model through driver calls, walks, placement lists and the model's own views.
// Every status must be what the worker's own model says, every handle must be issued once, and the
// end state must be the union of the workers' models. Then each kind of callback hands a call to
// another thread and waits for it: were any called with a lock held, that call would wait for the
// callback, and the callback would time out.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <functional>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include "drv/bf_sys.h"
#include "drv/model.h"
#include "drv/pd_ms.h"

namespace {

constexpr bf_dev_id_t kDev = 0;
constexpr int kWorkers = 4, kReaders = 2;
constexpr uint32_t kMatBase = 0x1000100, kAdtBase = 0x2000100, kSelBase = 0x3000100;  // + worker
constexpr uint32_t kAct = 0x20000001;
constexpr uint32_t kKeys = 64;    // each worker's key space
constexpr uint32_t kGroupMax = 4;  // members per group

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kIters = 3000;
#else
constexpr int kIters = 12000;
#endif

dev_target_t all_pipes() { return dev_target_t{kDev, BF_DEV_PIPE_ALL}; }

// A 4-byte entry request whose image is 4 bytes of data; the key and data are the caller's.
struct Entry {
  uint8_t value[4], mask[4], image[4];
  pipe_tbl_match_spec_t match{};
  pipe_action_spec_t action{};

  Entry(uint32_t key, uint32_t data) {
    for (int i = 0; i < 4; ++i) {
      value[i] = static_cast<uint8_t>(key >> (24 - 8 * i));
      mask[i] = 0xFF;
      image[i] = static_cast<uint8_t>(data >> (24 - 8 * i));
    }
    match = {value, mask, 0, 0, 32, 4, 0};
    action.action_data_type = PIPE_ACTION_DATA_TYPE;
    action.act_data = {32, 4, image};
  }
  Entry(const Entry &) = delete;
};

uint32_t word_of(const uint8_t *p) {
  return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | uint32_t(p[3]);
}

// Data a worker writes for a key: the key in the low byte, so that a reader can tell a torn or
// misplaced entry; the rest changes with each change.
uint32_t data_for(uint32_t key, uint32_t version) { return version << 8 | (key & 0xFF); }

// What a worker expects of its own tables.
struct WorkerModel {
  std::map<uint32_t, std::pair<uint32_t, uint32_t>> entries;  // key -> (handle, data)
  std::map<uint32_t, uint32_t> members;                        // member -> data
  std::map<uint32_t, std::vector<uint32_t>> groups;            // group -> members, in join order
  std::vector<uint32_t> handles;                               // every handle it was issued
  size_t adds = 0;                                             // pipe_mgr_mat_ent_add calls made
};

// The references that keep a member from being deleted: the groups holding it.
bool in_a_group(const WorkerModel &m, uint32_t mbr) {
  for (const auto &[g, mbrs] : m.groups)
    for (uint32_t x : mbrs)
      if (x == mbr) return true;
  return false;
}

template <class Map>
uint32_t pick(const Map &m, std::mt19937 &rng) {
  auto it = m.begin();
  std::advance(it, std::uniform_int_distribution<size_t>(0, m.size() - 1)(rng));
  return it->first;
}

void work(int t, WorkerModel &m, std::atomic<long> &ops) {
  const uint32_t mat = kMatBase + static_cast<uint32_t>(t), adt = kAdtBase + static_cast<uint32_t>(t),
                 sel = kSelBase + static_cast<uint32_t>(t);
  std::mt19937 rng(static_cast<uint32_t>(t) * 7919u + 1);
  auto below = [&](uint32_t n) { return std::uniform_int_distribution<uint32_t>(0, n - 1)(rng); };
  for (int i = 0; i < kIters; ++i) {
    const uint32_t op = below(100), version = static_cast<uint32_t>(i);
    if (op < 25) {
      const uint32_t key = below(kKeys);
      Entry e(key, data_for(key, version));
      uint32_t hdl = 0;
      ++m.adds;
      const bf_status_t st = pipe_mgr_mat_ent_add(1, all_pipes(), mat, &e.match, kAct, &e.action, 0, 0, &hdl);
      if (m.entries.count(key)) {
        ASSERT_EQ(st, BF_ALREADY_EXISTS);
      } else {
        ASSERT_EQ(st, BF_SUCCESS);
        m.entries[key] = {hdl, data_for(key, version)};
        m.handles.push_back(hdl);
      }
    } else if (op < 35 && !m.entries.empty()) {
      const uint32_t key = pick(m.entries, rng);
      Entry e(key, data_for(key, version));
      ASSERT_EQ(pipe_mgr_mat_ent_set_action(1, kDev, mat, m.entries[key].first, kAct, &e.action, 0), BF_SUCCESS);
      m.entries[key].second = data_for(key, version);
    } else if (op < 50 && !m.entries.empty()) {
      const uint32_t key = pick(m.entries, rng);
      if (below(2)) {
        ASSERT_EQ(pipe_mgr_mat_ent_del(1, kDev, mat, m.entries[key].first, 0), BF_SUCCESS);
      } else {
        Entry e(key, 0);
        ASSERT_EQ(pipe_mgr_mat_ent_del_by_match_spec(1, all_pipes(), mat, &e.match, 0), BF_SUCCESS);
      }
      m.entries.erase(key);
    } else if (op < 58 && !m.entries.empty()) {
      const uint32_t key = pick(m.entries, rng);
      uint8_t value[4], mask[4], image[8];
      pipe_tbl_match_spec_t match{value, mask, 0, 0, 0, 4, 0};
      pipe_action_spec_t action{};
      action.act_data = {0, sizeof image, image};
      uint32_t act = 0;
      ASSERT_EQ(pipe_mgr_get_entry(1, mat, all_pipes(), m.entries[key].first, &match, &action, &act, false, 0, nullptr),
                BF_SUCCESS);
      ASSERT_EQ(word_of(value), key);
      ASSERT_EQ(act, kAct);
      ASSERT_EQ(action.act_data.num_action_data_bytes, 4u);
      ASSERT_EQ(word_of(image), m.entries[key].second);
    } else if (op < 68) {
      Entry e(0, data_for(0, version));
      uint32_t mbr = 0;
      ASSERT_EQ(pipe_mgr_adt_ent_add(1, all_pipes(), adt, kAct, 0, &e.action, &mbr, 0), BF_SUCCESS);
      m.members[mbr] = data_for(0, version);
      m.handles.push_back(mbr);
    } else if (op < 74 && !m.members.empty()) {
      const uint32_t mbr = pick(m.members, rng);
      ASSERT_EQ(pipe_mgr_adt_ent_del(1, kDev, adt, mbr, 0), in_a_group(m, mbr) ? BF_IN_USE : BF_SUCCESS);
      if (!in_a_group(m, mbr)) m.members.erase(mbr);
    } else if (op < 78) {
      uint32_t grp = 0;
      ASSERT_EQ(pipe_mgr_sel_grp_add(1, all_pipes(), sel, 0, kGroupMax, 0xdeadbeef, &grp, 0), BF_SUCCESS);
      m.groups[grp];
      m.handles.push_back(grp);
    } else if (op < 81 && !m.groups.empty()) {
      const uint32_t grp = pick(m.groups, rng);
      ASSERT_EQ(pipe_mgr_sel_grp_del(1, kDev, sel, grp, 0), BF_SUCCESS);
      m.groups.erase(grp);
    } else if (op < 91 && !m.groups.empty() && !m.members.empty()) {
      const uint32_t grp = pick(m.groups, rng), mbr = pick(m.members, rng);
      std::vector<uint32_t> &mbrs = m.groups[grp];
      const bool in = std::find(mbrs.begin(), mbrs.end(), mbr) != mbrs.end();
      const bf_status_t want = in ? BF_ALREADY_EXISTS : mbrs.size() == kGroupMax ? BF_NO_SPACE : BF_SUCCESS;
      ASSERT_EQ(pipe_mgr_sel_grp_mbr_add(1, kDev, sel, grp, kAct, mbr, 0), want);
      if (want == BF_SUCCESS) mbrs.push_back(mbr);
    } else if (op < 96 && !m.groups.empty()) {
      const uint32_t grp = pick(m.groups, rng);
      std::vector<uint32_t> &mbrs = m.groups[grp];
      if (mbrs.empty()) continue;
      const size_t k = below(static_cast<uint32_t>(mbrs.size()));
      ASSERT_EQ(pipe_mgr_sel_grp_mbr_del(1, kDev, sel, grp, mbrs[k], 0), BF_SUCCESS);
      mbrs.erase(mbrs.begin() + static_cast<long>(k));
    } else {
      // The system services: a block of the library's kind, and a log line.
      void *p = bf_sys_calloc(4, 8);
      ASSERT_NE(p, nullptr);
      std::memset(p, t, 32);
      bf_sys_free(p);
      bf_sys_log_and_trace(0, 2, "worker %d at %d", t, i);
    }
    ops.fetch_add(1, std::memory_order_relaxed);
  }
}

// A reader: every look must be consistent in itself, whatever the workers are doing.
void read(int r, const std::atomic<bool> &stop, std::atomic<long> &ops) {
  std::mt19937 rng(static_cast<uint32_t>(r) + 1000);
  while (!stop.load(std::memory_order_relaxed)) {
    const uint32_t t = rng() % kWorkers, mat = kMatBase + t;
    // A walk of one table: every handle it gives reads back as an entry of its key space, or is
    // gone by the time it is read.
    uint32_t hdl = 0, next[16];
    bf_status_t st = pipe_mgr_get_first_entry_handle(1, mat, all_pipes(), &hdl);
    ASSERT_TRUE(st == BF_SUCCESS || st == BF_END_OF_WALK) << st;
    while (st == BF_SUCCESS) {
      uint8_t value[4], mask[4], image[8];
      pipe_tbl_match_spec_t match{value, mask, 0, 0, 0, 4, 0};
      pipe_action_spec_t action{};
      action.act_data = {0, sizeof image, image};
      uint32_t act = 0;
      const bf_status_t got = pipe_mgr_get_entry(1, mat, all_pipes(), hdl, &match, &action, &act, false, 0, nullptr);
      ASSERT_TRUE(got == BF_SUCCESS || got == BF_OBJECT_NOT_FOUND) << got;
      if (got == BF_SUCCESS) {
        ASSERT_LT(word_of(value), kKeys);
        ASSERT_EQ(word_of(image) & 0xFF, word_of(value)) << "a torn or misplaced entry";
      }
      st = pipe_mgr_get_next_entry_handles(1, mat, all_pipes(), hdl, 16, next);
      ASSERT_TRUE(st == BF_SUCCESS || st == BF_END_OF_WALK || st == BF_OBJECT_NOT_FOUND) << st;
      hdl = next[0];
      ops.fetch_add(2, std::memory_order_relaxed);
    }
    // Counts, in both views; the model's own views in a burst, over every worker's tables.
    uint32_t count = 0;
    ASSERT_EQ(pipe_mgr_get_entry_count(1, all_pipes(), mat, false, &count), BF_SUCCESS);
    ASSERT_LE(count, kKeys);
    for (int i = 0; i < 16; ++i) {
      const uint32_t w = static_cast<uint32_t>(i % kWorkers);
      ASSERT_LE(drvm_entry_count(kDev, kMatBase + w), kKeys);
      const uint32_t probe = rng() % 4096;
      pipe_tbl_match_spec_t match{};
      pipe_action_spec_t action{};
      uint32_t act = 0;
      if (drvm_entry_get(kDev, kMatBase + w, probe, &match, &act, &action, nullptr) == BF_SUCCESS) {
        ASSERT_EQ(act, kAct);
      }
      uint32_t refs = 0;
      (void)drvm_member_get(kDev, kAdtBase + w, probe, nullptr, nullptr, nullptr, &refs);
      (void)drvm_member_count(kDev, kAdtBase + w);
      uint32_t n = 0;
      if (drvm_group_get(kDev, kSelBase + w, probe, nullptr, nullptr, &n) == BF_SUCCESS) {
        ASSERT_LE(n, kGroupMax);
      }
      (void)drvm_group_count(kDev, kSelBase + w);
    }
    // A placement list: a copy of one moment, every datum of it decoding to an entry of the space.
    void *list = nullptr;
    ASSERT_EQ(pipe_mgr_plcmt_mat_data_get(kDev, &list, mat), BF_SUCCESS);
    for (uint32_t i = 0; i < pipe_mgr_plcmt_list_count(list); ++i) {
      uint32_t owner = 0;
      void *datum = pipe_mgr_plcmt_list_datum(list, i, &owner);
      uint8_t value[4], mask[4], image[8];
      pipe_tbl_match_spec_t match{value, mask, 0, 0, 0, 4, 0};
      pipe_action_spec_t action{};
      action.act_data = {0, sizeof image, image};
      uint32_t act = 0;
      ASSERT_EQ(pipe_mgr_plcmt_mat_data_get_entry(datum, &match, &action, &act), BF_SUCCESS);
      ASSERT_EQ(word_of(image) & 0xFF, word_of(value));
    }
    pipe_mgr_plcmt_list_destroy(list);
    // The recorded calls and the log: the last call of a function is one of it.
    const drvm_call_t *last = drvm_last_call("pipe_mgr_mat_ent_add");
    if (last != nullptr) {
      ASSERT_STREQ(last->fn, "pipe_mgr_mat_ent_add");
    }
    ASSERT_GE(drvm_call_count(), drvm_count_calls("pipe_mgr_mat_ent_add"));
    (void)drvm_log_count();
    (void)drvm_live_allocs();
    ops.fetch_add(6, std::memory_order_relaxed);
  }
}

TEST(ModelThreads, WorkersAndReadersOnOneDeviceEndInTheUnionOfTheWorkersModels) {
  drvm_reset();
  const size_t live_before = drvm_live_allocs();
  std::vector<WorkerModel> models(kWorkers);
  std::atomic<long> ops{0};
  std::atomic<bool> stop{false};
  std::vector<std::thread> readers, workers;
  const auto start = std::chrono::steady_clock::now();
  for (int r = 0; r < kReaders; ++r) readers.emplace_back(read, r, std::cref(stop), std::ref(ops));
  for (int t = 0; t < kWorkers; ++t) workers.emplace_back(work, t, std::ref(models[size_t(t)]), std::ref(ops));
  for (std::thread &w : workers) w.join();
  stop = true;
  for (std::thread &r : readers) r.join();
  const double secs = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::printf("model threads: %ld operations in %.2f s, %.0f per second\n", ops.load(), secs, ops.load() / secs);

  // Every handle was issued once, across the workers.
  std::set<uint32_t> issued;
  size_t adds = 0;
  for (const WorkerModel &m : models) {
    for (uint32_t h : m.handles) EXPECT_TRUE(issued.insert(h).second) << "handle " << h << " issued twice";
    adds += m.adds;
  }
  // Every call was recorded, refused ones included.
  EXPECT_EQ(drvm_count_calls("pipe_mgr_mat_ent_add"), adds);
  EXPECT_EQ(drvm_live_allocs(), live_before);
  // The store is the union of the workers' models.
  for (int t = 0; t < kWorkers; ++t) {
    SCOPED_TRACE(t);
    const WorkerModel &m = models[size_t(t)];
    const uint32_t mat = kMatBase + uint32_t(t), adt = kAdtBase + uint32_t(t), sel = kSelBase + uint32_t(t);
    ASSERT_EQ(drvm_entry_count(kDev, mat), m.entries.size());
    for (const auto &[key, he] : m.entries) {
      pipe_tbl_match_spec_t match{};
      pipe_action_spec_t action{};
      uint32_t act = 0;
      ASSERT_EQ(drvm_entry_get(kDev, mat, he.first, &match, &act, &action, nullptr), BF_SUCCESS);
      EXPECT_EQ(word_of(match.match_value_bytes), key);
      EXPECT_EQ(word_of(action.act_data.action_data_bytes), he.second);
    }
    ASSERT_EQ(drvm_member_count(kDev, adt), m.members.size());
    for (const auto &[mbr, data] : m.members) {
      pipe_action_spec_t action{};
      uint32_t refs = 0;
      ASSERT_EQ(drvm_member_get(kDev, adt, mbr, nullptr, &action, nullptr, &refs), BF_SUCCESS);
      EXPECT_EQ(word_of(action.act_data.action_data_bytes), data);
    }
    ASSERT_EQ(drvm_group_count(kDev, sel), m.groups.size());
    for (const auto &[grp, mbrs] : m.groups) {
      uint32_t n = 0;
      ASSERT_EQ(drvm_group_get(kDev, sel, grp, nullptr, nullptr, &n), BF_SUCCESS);
      ASSERT_EQ(n, mbrs.size());
      for (size_t i = 0; i < mbrs.size(); ++i) {
        uint32_t mbr = 0;
        int active = 0;
        ASSERT_EQ(drvm_group_member(kDev, sel, grp, i, &mbr, &active), BF_SUCCESS);
        EXPECT_EQ(mbr, mbrs[i]) << "join order";
      }
    }
  }
}

// ---- Callbacks run without the locks ----

// Another thread, which runs one job at a time for a callback; the callback waits for the job.
class Helper {
 public:
  Helper() : thread_([this] { loop(); }) {}
  ~Helper() {
    {
      std::lock_guard<std::mutex> l(mu_);
      quit_ = true;
    }
    cv_.notify_all();
    thread_.join();
  }
  Helper(const Helper &) = delete;
  Helper &operator=(const Helper &) = delete;

  // Runs job on the helper's thread; true if it finished within the wait. A job that waits for a
  // lock its caller holds does not finish in time (and finishes once the lock is released).
  bool run(std::function<void()> job) {
    std::unique_lock<std::mutex> l(mu_);
    job_ = std::move(job);
    done_ = false;
    cv_.notify_all();
    return cv_.wait_for(l, std::chrono::seconds(10), [&] { return done_; });
  }

 private:
  void loop() {
    std::unique_lock<std::mutex> l(mu_);
    for (;;) {
      cv_.wait(l, [&] { return quit_ || job_ != nullptr; });
      if (job_ != nullptr) {
        std::function<void()> job = std::move(job_);
        job_ = nullptr;
        l.unlock();
        job();
        l.lock();
        done_ = true;
        cv_.notify_all();
      } else {
        return;
      }
    }
  }

  std::mutex mu_;
  std::condition_variable cv_;
  std::function<void()> job_;
  bool done_ = false, quit_ = false;
  std::thread thread_;  // last: it starts once the rest is made
};

// What the callbacks did: each waits for a driver call on the helper's thread.
struct Told {
  Helper *helper = nullptr;
  std::atomic<int> calls{0}, in_time{0};
  std::atomic<uint32_t> seen{0};

  void wait_for(std::function<void()> job) {
    ++calls;
    if (helper->run(std::move(job))) ++in_time;
  }
};
Told *g_told = nullptr;

// Each job writes to the Told it was given, which outlives the helper's thread (ModelCallbacks).
void on_mat_update(bf_dev_id_t dev, pipe_mat_tbl_hdl_t tbl, pipe_mat_update_type_t, pipe_mat_ent_hdl_t,
                   pipe_act_fn_hdl_t, void *) {
  Told *told = g_told;
  told->wait_for([=] {
    uint32_t n = 0;
    if (pipe_mgr_get_entry_count(2, dev_target_t{dev, BF_DEV_PIPE_ALL}, tbl, false, &n) == BF_SUCCESS) told->seen = n;
  });
}

void on_sel_update(bf_dev_id_t dev, pipe_sel_tbl_hdl_t sel, pipe_sel_update_type_t, pipe_sel_grp_hdl_t,
                   pipe_adt_ent_hdl_t, void *) {
  Told *told = g_told;
  told->wait_for([=] { told->seen = static_cast<uint32_t>(drvm_group_count(dev, sel)); });
}

void on_replay(pipe_sess_hdl_t, bf_dev_id_t dev, pipe_adt_tbl_hdl_t adt, pipe_act_fn_hdl_t act, pipe_sel_grp_hdl_t,
               pipe_adt_ent_hdl_t, uint32_t) {
  Told *told = g_told;
  told->wait_for([=] {
    Entry e(0, 0x55);
    uint32_t mbr = 0;
    if (pipe_mgr_adt_ent_add(2, dev_target_t{dev, BF_DEV_PIPE_ALL}, adt, act, 0, &e.action, &mbr, 0) == BF_SUCCESS)
      told->seen = mbr;
  });
}

void on_expiry(bf_dev_id_t dev, pipe_mat_ent_hdl_t ent, void *cookie) {
  const uint32_t tbl = *static_cast<const uint32_t *>(cookie);
  Told *told = g_told;
  told->wait_for([=] {
    int expired = 0;
    if (drvm_idle_entry_get(dev, tbl, ent, nullptr, &expired, nullptr, nullptr) == BF_SUCCESS)
      told->seen = static_cast<uint32_t>(expired);
  });
}

pipe_status_t on_digest(pipe_sess_hdl_t sess, pipe_flow_lrn_msg_t *msg, void *) {
  Told *told = g_told;
  const uint32_t digest = msg->flow_lrn_fld_lst_hdl;
  told->wait_for([=] {
    if (pipe_mgr_flow_lrn_notify_ack(sess, digest, msg) == BF_SUCCESS) told->seen = 1;
  });
  return BF_SUCCESS;
}

bf_status_t on_dev_remove(bf_dev_id_t) {
  Told *told = g_told;
  told->wait_for([=] { told->seen = drvm_client_handle("threads test client"); });
  return BF_SUCCESS;
}

class ModelCallbacks : public ::testing::Test {
 protected:
  void SetUp() override {
    drvm_reset();
    told_.helper = &helper_;
    g_told = &told_;
  }
  void TearDown() override {
    g_told = nullptr;
    drvm_reset();
  }
  // Every callback was called, and each driver call it waited for finished in time.
  void expect_all_in_time(int calls) {
    EXPECT_EQ(told_.calls.load(), calls);
    EXPECT_EQ(told_.in_time.load(), told_.calls.load()) << "a callback ran with a lock held";
  }

  Told told_;
  Helper helper_;  // after told_: a late job still finds it
};

TEST_F(ModelCallbacks, UpdateCallbacksMayWaitForAnotherThreadsDriverCall) {
  const uint32_t mat = kMatBase, adt = kAdtBase, sel = kSelBase;
  ASSERT_EQ(pipe_register_mat_update_cb(1, kDev, mat, on_mat_update, nullptr), BF_SUCCESS);
  ASSERT_EQ(pipe_register_sel_update_cb(1, kDev, sel, on_sel_update, nullptr), BF_SUCCESS);
  Entry e(7, 1);
  uint32_t hdl = 0, mbr = 0, grp = 0;
  ASSERT_EQ(pipe_mgr_mat_ent_add(1, all_pipes(), mat, &e.match, kAct, &e.action, 0, 0, &hdl), BF_SUCCESS);
  EXPECT_EQ(told_.seen.load(), 1u) << "the other thread saw the entry added";
  ASSERT_EQ(pipe_mgr_mat_ent_del(1, kDev, mat, hdl, 0), BF_SUCCESS);
  EXPECT_EQ(told_.seen.load(), 0u);
  ASSERT_EQ(pipe_mgr_adt_ent_add(1, all_pipes(), adt, kAct, 0, &e.action, &mbr, 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_sel_grp_add(1, all_pipes(), sel, 0, 4, 0xdeadbeef, &grp, 0), BF_SUCCESS);
  EXPECT_EQ(told_.seen.load(), 1u);
  expect_all_in_time(3);
}

TEST_F(ModelCallbacks, TheHitlessReplayMayWaitForAnotherThreadsDriverCall) {
  Entry e(0, 1);
  uint32_t mbr = 0;
  ASSERT_EQ(pipe_mgr_adt_ent_add(1, all_pipes(), kAdtBase, kAct, 0, &e.action, &mbr, 0), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_hitless_ha_restore_virtual_dev_state(1, kDev, BF_DEV_PIPE_ALL, 0, 0, on_replay), BF_SUCCESS);
  expect_all_in_time(1);
  EXPECT_GT(told_.seen.load(), mbr) << "the other thread added a member during the replay";
  EXPECT_EQ(drvm_member_count(kDev, kAdtBase), 2u);
}

TEST_F(ModelCallbacks, IdleExpiriesMayWaitForAnotherThreadsDriverCall) {
  static const uint32_t kIdleTbl = kMatBase + 50;
  ASSERT_EQ(drvm_declare_idle_table(kIdleTbl), BF_SUCCESS);
  pipe_idle_time_params_t p{};
  p.mode = PIPE_IDLE_TIME_MODE_NOTIFY;
  p.callback_fn = on_expiry;
  p.client_data = const_cast<uint32_t *>(&kIdleTbl);
  ASSERT_EQ(pipe_mgr_idle_set_params(1, kDev, kIdleTbl, p), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_idle_tmo_set_enable(1, kDev, kIdleTbl, true), BF_SUCCESS);
  Entry e(1, 1);
  uint32_t hdl = 0;
  ASSERT_EQ(pipe_mgr_mat_ent_add(1, all_pipes(), kIdleTbl, &e.match, kAct, &e.action, 10, 0, &hdl), BF_SUCCESS);
  drvm_advance_clock(20000);
  expect_all_in_time(1);
  EXPECT_EQ(told_.seen.load(), 1u) << "the other thread saw the entry expired";
}

TEST_F(ModelCallbacks, LearningDeliveriesMayWaitForAnotherThreadsAcknowledgement) {
  constexpr uint32_t kDigest = 0x5000001;
  ASSERT_EQ(drvm_declare_digest(kDigest, 4), BF_SUCCESS);
  ASSERT_EQ(drvm_set_learn_batch_size(1), BF_SUCCESS);
  ASSERT_EQ(pipe_mgr_lrn_digest_notification_register(1, kDev, kDigest, on_digest, nullptr), BF_SUCCESS);
  const uint8_t records[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  ASSERT_EQ(drvm_learn(kDev, 0, kDigest, records, 2), BF_SUCCESS);
  expect_all_in_time(2);
  EXPECT_EQ(told_.seen.load(), 1u);
  EXPECT_EQ(drvm_learn_outstanding_count(kDev, kDigest), 0u) << "the other thread acknowledged both";
}

TEST_F(ModelCallbacks, DeviceHooksMayWaitForAnotherThreadsDriverCall) {
  bf_drv_client_handle_t client = 0;
  ASSERT_EQ(bf_drv_register("threads test client", &client), BF_SUCCESS);
  bf_drv_client_callbacks_t callbacks;
  std::memset(&callbacks, 0, sizeof callbacks);
  callbacks.slot[BF_DRV_CB_DEVICE_REMOVE] = reinterpret_cast<bf_drv_generic_cb_t>(&on_dev_remove);
  ASSERT_EQ(bf_drv_client_register_callbacks(client, &callbacks, 1), BF_SUCCESS);
  EXPECT_EQ(drvm_fire_dev_remove(kDev), BF_SUCCESS);
  expect_all_in_time(1);
  EXPECT_EQ(told_.seen.load(), client);
}

// The member-selector layer calls the function of mbr_apply_to_grps without the state's lock.
bf_status_t on_group(bf_dev_id_t dev, pipe_adt_ent_hdl_t mbr, pipe_sel_grp_hdl_t, void *aux) {
  auto *state = static_cast<p4_pd_ms_state_t *>(aux);
  Told *told = g_told;
  told->wait_for([=] {
    pipe_act_fn_hdl_t act = 0;
    if (p4_pd_ms_get_mbr_act(state, dev, mbr, &act) == BF_SUCCESS) told->seen = act;
  });
  return BF_SUCCESS;
}

TEST_F(ModelCallbacks, TheMemberSelectorLayersGroupFunctionMayWaitForAnotherThreadsCall) {
  ASSERT_EQ(p4_pd_ms_init(), BF_SUCCESS);
  p4_pd_ms_state_t *state = p4_pd_ms_init_state();
  ASSERT_NE(state, nullptr);
  ASSERT_EQ(p4_pd_ms_new_mbr(0, state, kDev, 3), BF_SUCCESS);
  ASSERT_EQ(p4_pd_ms_set_mbr_act(state, kDev, 3, kAct), BF_SUCCESS);
  for (uint32_t g : {10u, 11u}) {
    ASSERT_EQ(p4_pd_ms_new_grp(0, state, kDev, g), BF_SUCCESS);
    ASSERT_EQ(p4_pd_ms_add_mbr_to_grp(0, state, kDev, 3, g), BF_SUCCESS);
  }
  EXPECT_EQ(p4_pd_ms_mbr_apply_to_grps(state, kDev, 3, on_group, state), BF_SUCCESS);
  expect_all_in_time(2);
  EXPECT_EQ(told_.seen.load(), kAct);
  p4_pd_ms_free_state(state);
}

// ---- Pass-through ----

TEST(ModelThreads, PassThroughAnswersManyThreadsAtOnce) {
  drvm_reset();
  drvm_set_passthrough(1);
  std::vector<std::thread> threads;
  std::atomic<int> zero_handles{0};
  for (int t = 0; t < kWorkers; ++t) {
    threads.emplace_back([&zero_handles] {
      Entry e(1, 1);
      for (int i = 0; i < 2000; ++i) {
        uint32_t hdl = 0;
        if (pipe_mgr_mat_ent_add(1, all_pipes(), kMatBase, &e.match, kAct, &e.action, 0, 0, &hdl) != BF_SUCCESS ||
            hdl == 0)
          ++zero_handles;
      }
    });
  }
  for (std::thread &t : threads) t.join();
  drvm_set_passthrough(0);
  EXPECT_EQ(zero_handles.load(), 0);
  EXPECT_EQ(drvm_call_count(), 0u) << "nothing recorded";
  EXPECT_EQ(drvm_entry_count(kDev, kMatBase), 0u) << "nothing stored";
  drvm_reset();
}

}  // namespace
