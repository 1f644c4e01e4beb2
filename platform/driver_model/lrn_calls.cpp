// Learning digests: the driver's registration, acknowledgement and timeout calls, and the delivery
// of learned records in batches (drvm_learn, the model clock).
//
// Per device and digest the model keeps the registered callback, the pending batch (the records
// and the pipe each came from) and counts; the delivered messages not yet acknowledged sit in one
// list in delivery order, each owning its records. A delivery is planned and made room for in full
// (messages built, lists reserved), then committed without anything that can fail, and only then,
// with the model's lock released, are the callbacks called, so that a callback sees a whole store
// and may call the driver.
#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "telemetry.h"

using namespace drvm;

namespace {

constexpr uint32_t kDefaultBatch = 64;
constexpr uint32_t kDefaultTimeoutUs = 1000;

// A delivered message and the records it owns.
struct Msg {
  pipe_flow_lrn_msg_t msg{};
  std::unique_ptr<uint8_t[]> records;
  uint64_t serial = 0;  // names it for good: its address may serve another message once it is freed
};

// One digest on one device.
struct Lrn {
  pipe_flow_lrn_notify_cb cb = nullptr;
  void *cookie = nullptr;
  pipe_sess_hdl_t sess = 0;
  std::vector<uint8_t> pending;  // the pending batch's records, packed
  std::vector<uint32_t> pipes;   // the pipe of each
  uint64_t first_us = 0;         // when its first record was learned
  uint64_t dropped = 0;
  uint64_t delivered = 0;
};

using Key = std::pair<bf_dev_id_t, uint32_t>;

std::map<uint32_t, uint32_t> g_digests;  // declared digests: handle -> entry size
std::map<Key, Lrn> g_lrn;
std::map<bf_dev_id_t, uint32_t> g_timeout_us;
uint32_t g_batch = kDefaultBatch;
std::vector<std::unique_ptr<Msg>> g_outstanding;  // delivered, not acknowledged, in delivery order
uint64_t g_generation = 0;                        // moved on by every reset
uint64_t g_acks = 0;                              // acknowledgements served since the start
uint64_t g_serial = 0;                            // the last message serial given

struct Delivery {
  pipe_flow_lrn_notify_cb cb;
  pipe_sess_hdl_t sess;
  void *cookie;
  pipe_flow_lrn_msg_t *msg;
  uint64_t serial;
};

uint32_t timeout_of(bf_dev_id_t dev) {
  auto it = g_timeout_us.find(dev);
  return it == g_timeout_us.end() ? kDefaultTimeoutUs : it->second;
}

Lrn *find_lrn(bf_dev_id_t dev, uint32_t digest) {
  auto it = g_lrn.find(Key{dev, digest});
  return it == g_lrn.end() ? nullptr : &it->second;
}

bool outstanding(uint64_t serial) {
  for (const auto &m : g_outstanding)
    if (m->serial == serial) return true;
  return false;
}

// What one delivery step of a digest on a device makes: the messages, and what stays pending.
// Built apart from the store (may throw), then committed (cannot fail).
struct Plan {
  std::vector<std::unique_ptr<Msg>> msgs;
  std::vector<uint8_t> rest;
  std::vector<uint32_t> rest_pipes;
  uint64_t rest_first_us = 0;
};

// Plans the delivery of the first `deliver` of `total` records (records, pipes: the pending batch
// followed by what is being learned) in messages of at most the batch size, keeping the rest.
void plan(Plan &p, bf_dev_id_t dev, uint32_t digest, uint32_t size, const uint8_t *records, const uint32_t *pipes,
          size_t total, size_t deliver) {
  for (size_t at = 0; at < deliver;) {
    const size_t k = std::min<size_t>(g_batch, deliver - at);
    auto m = std::make_unique<Msg>();
    m->records.reset(new uint8_t[k * size]);
    std::memcpy(m->records.get(), records + at * size, k * size);
    uint32_t pipe = pipes[at];
    for (size_t i = at + 1; i < at + k; ++i)
      if (pipes[i] != pipe) pipe = BF_DEV_PIPE_ALL;
    m->msg.dev_tgt = dev_target_t{dev, pipe};
    m->msg.flow_lrn_fld_lst_hdl = digest;
    m->msg.num_entries = static_cast<uint16_t>(k);
    m->msg.entry_size = static_cast<uint16_t>(size);
    m->msg.entries = m->records.get();
    p.msgs.push_back(std::move(m));
    at += k;
  }
  p.rest.assign(records + deliver * size, records + total * size);
  p.rest_pipes.assign(pipes + deliver, pipes + total);
}

// Commits a plan: the messages become outstanding and their deliveries are listed. Room in both
// lists was made before (reserve).
void commit(Plan &p, Lrn &l, std::vector<Delivery> &out) {
  for (auto &m : p.msgs) {
    m->serial = ++g_serial;
    out.push_back(Delivery{l.cb, l.sess, l.cookie, &m->msg, m->serial});
    g_outstanding.push_back(std::move(m));
  }
  l.delivered += p.msgs.size();
  l.pending.swap(p.rest);
  l.pipes.swap(p.rest_pipes);
  l.first_us = p.rest_first_us;
}

// Calls the callbacks of deliveries committed, in order, without the lock; gen and acks are the
// reset generation and the acknowledgement count as they were at the commit. A message
// acknowledged before its turn is not delivered; a reset (from a callback or another thread) ends
// the deliveries.
void call_back(const std::vector<Delivery> &ds, uint64_t gen, uint64_t acks) {
  for (const Delivery &d : ds) {
    {
      const ModelLock lock;
      if (g_generation != gen) return;
      if (g_acks != acks && !outstanding(d.serial)) continue;  // looked for only once a message was acknowledged
    }
    d.cb(d.sess, d.msg, d.cookie);
  }
}

}  // namespace

namespace drvm {

void reset_learning() {
  g_digests.clear();
  g_lrn.clear();
  g_timeout_us.clear();
  g_batch = kDefaultBatch;
  g_outstanding.clear();
  ++g_generation;
}

// Delivers every pending batch, of a digest with a callback, whose timeout has passed: all its
// records, in messages of at most the batch size, by device and digest handle. If the model's
// memory runs out, the batches not yet taken stay pending for the next move of the clock.
void learn_clock_tick() {
  std::vector<Delivery> ds;
  uint64_t gen = 0, acks = 0;
  {
    const ModelLock lock;
    const uint64_t now_us = g_clock_us;
    gen = g_generation;
    acks = g_acks;
    try {
      for (auto &[key, l] : g_lrn) {
        if (l.cb == nullptr || l.pipes.empty() || now_us - l.first_us < timeout_of(key.first)) continue;
        const uint32_t size = g_digests.at(key.second);
        Plan p;
        plan(p, key.first, key.second, size, l.pending.data(), l.pipes.data(), l.pipes.size(), l.pipes.size());
        g_outstanding.reserve(g_outstanding.size() + p.msgs.size());
        ds.reserve(ds.size() + p.msgs.size());
        commit(p, l, ds);
      }
    } catch (const std::bad_alloc &) {
    }
  }
  call_back(ds, gen, acks);
}

}  // namespace drvm

extern "C" {

// ---- Driver calls ----

pipe_status_t pipe_mgr_lrn_digest_notification_register(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                                        pipe_fld_lst_hdl_t flow_lrn_fld_lst_hdl,
                                                        pipe_flow_lrn_notify_cb cb, void *cookie) {
  return DRIVER_CALL(
      "pipe_mgr_lrn_digest_notification_register", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_dev_obj(r, sess_hdl, dev_id, flow_lrn_fld_lst_hdl);
        r.call.ptr_arg = fn_identity(cb);
        r.call.ptr_arg2 = cookie;
      },
      [&](RecordedCall *, Notices &) -> bf_status_t {
        if (g_digests.count(flow_lrn_fld_lst_hdl) == 0) return BF_OBJECT_NOT_FOUND;
        if (cb == nullptr) return BF_INVALID_ARG;
        const Lrn *known = find_lrn(dev_id, flow_lrn_fld_lst_hdl);
        if (known && known->cb) return BF_ALREADY_EXISTS;
        Lrn &l = g_lrn[Key{dev_id, flow_lrn_fld_lst_hdl}];  // may throw: nothing else is changed yet
        l.cb = cb;
        l.cookie = cookie;
        l.sess = sess_hdl;
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_lrn_digest_notification_deregister(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                                          pipe_fld_lst_hdl_t flow_lrn_fld_lst_hdl) {
  return DRIVER_CALL(
      "pipe_mgr_lrn_digest_notification_deregister", PassThrough::zero(),
      [&](RecordedCall &r) { record_dev_obj(r, sess_hdl, dev_id, flow_lrn_fld_lst_hdl); },
      [&](RecordedCall *, Notices &) -> bf_status_t {
        if (g_digests.count(flow_lrn_fld_lst_hdl) == 0) return BF_OBJECT_NOT_FOUND;
        Lrn *l = find_lrn(dev_id, flow_lrn_fld_lst_hdl);
        if (l == nullptr || l->cb == nullptr) return BF_OBJECT_NOT_FOUND;
        l->cb = nullptr;
        l->cookie = nullptr;
        l->sess = 0;
        l->dropped += l->pipes.size();
        std::vector<uint8_t>().swap(l->pending);
        std::vector<uint32_t>().swap(l->pipes);
        l->first_us = 0;
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_flow_lrn_notify_ack(pipe_sess_hdl_t sess_hdl, pipe_fld_lst_hdl_t flow_lrn_fld_lst_hdl,
                                           pipe_flow_lrn_msg_t *msg) {
  return DRIVER_CALL(
      "pipe_mgr_flow_lrn_notify_ack", PassThrough::zero(),
      [&](RecordedCall &r) {
        r.call.sess_hdl = sess_hdl;
        r.call.tbl_hdl = flow_lrn_fld_lst_hdl;
        r.call.ptr_arg = msg;
      },
      [&](RecordedCall *, Notices &) -> bf_status_t {
        if (msg == nullptr) return BF_INVALID_ARG;
        // Found by address alone: an unknown pointer is never read.
        auto it = std::find_if(g_outstanding.begin(), g_outstanding.end(),
                               [msg](const std::unique_ptr<Msg> &m) { return &m->msg == msg; });
        if (it == g_outstanding.end()) return BF_OBJECT_NOT_FOUND;
        if ((*it)->msg.flow_lrn_fld_lst_hdl != flow_lrn_fld_lst_hdl) return BF_TABLE_MISMATCH;
        g_outstanding.erase(it);
        ++g_acks;
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_flow_lrn_set_timeout(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, uint32_t usecs) {
  return DRIVER_CALL(
      "pipe_mgr_flow_lrn_set_timeout", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_dev_obj(r, sess_hdl, dev_id, 0);
        r.call.arg_u32[0] = usecs;
      },
      [&](RecordedCall *, Notices &) -> bf_status_t {
        g_timeout_us[dev_id] = usecs;  // may throw before anything changes
        return BF_SUCCESS;
      });
}

// ---- The model's side ----

bf_status_t drvm_declare_digest(uint32_t digest_hdl, uint32_t entry_size) {
  const ModelLock lock;
  if (entry_size == 0 || entry_size > 0xFFFFu) return BF_INVALID_ARG;
  auto it = g_digests.find(digest_hdl);
  if (it != g_digests.end()) return it->second == entry_size ? BF_SUCCESS : BF_ALREADY_EXISTS;
  try {
    g_digests.emplace(digest_hdl, entry_size);
  } catch (const std::bad_alloc &) {
    return BF_NO_SYS_RESOURCES;
  }
  return BF_SUCCESS;
}

bf_status_t drvm_set_learn_batch_size(uint32_t records) {
  const ModelLock lock;
  if (records == 0 || records > 0xFFFFu) return BF_INVALID_ARG;
  g_batch = records;
  return BF_SUCCESS;
}

bf_status_t drvm_learn(bf_dev_id_t dev, bf_dev_pipe_t pipe, uint32_t digest_hdl, const void *records, uint32_t n) {
  std::vector<Delivery> ds;
  uint64_t gen = 0, acks = 0;
  {
    const ModelLock lock;
    auto d = g_digests.find(digest_hdl);
    if (d == g_digests.end()) return BF_OBJECT_NOT_FOUND;
    if (records == nullptr && n != 0) return BF_INVALID_ARG;
    if (n == 0) return BF_SUCCESS;
    const size_t size = d->second;
    if (n > SIZE_MAX / size / 2) return BF_INVALID_ARG;  // no such buffer fits in memory
    gen = g_generation;
    acks = g_acks;
    try {
      Lrn *l = find_lrn(dev, digest_hdl);
      if (l == nullptr || l->cb == nullptr) {
        if (l == nullptr) l = &g_lrn[Key{dev, digest_hdl}];
        l->dropped += n;
        return BF_SUCCESS;
      }
      // The pending batch followed by the new records.
      const size_t old = l->pipes.size(), total = old + n;
      std::vector<uint8_t> all(total * size);
      std::vector<uint32_t> pipes(total, pipe);
      if (old) {
        std::memcpy(all.data(), l->pending.data(), old * size);
        std::copy(l->pipes.begin(), l->pipes.end(), pipes.begin());
      }
      std::memcpy(all.data() + old * size, records, size_t(n) * size);
      // Full batches go now; the rest too if its first record has waited the timeout.
      const uint64_t now = g_clock_us;
      size_t deliver = total - total % g_batch;
      const uint64_t rest_first = deliver < old ? l->first_us : now;
      if (deliver < total && now - rest_first >= timeout_of(dev)) deliver = total;
      Plan p;
      plan(p, dev, digest_hdl, static_cast<uint32_t>(size), all.data(), pipes.data(), total, deliver);
      p.rest_first_us = deliver < total ? rest_first : 0;
      g_outstanding.reserve(g_outstanding.size() + p.msgs.size());
      ds.reserve(p.msgs.size());
      commit(p, *l, ds);
    } catch (const std::bad_alloc &) {
      return BF_NO_SYS_RESOURCES;
    }
  }
  call_back(ds, gen, acks);
  return BF_SUCCESS;
}

uint32_t drvm_learn_pending(bf_dev_id_t dev, uint32_t digest_hdl) {
  const ModelLock lock;
  const Lrn *l = find_lrn(dev, digest_hdl);
  return l ? static_cast<uint32_t>(l->pipes.size()) : 0;
}

uint64_t drvm_learn_dropped(bf_dev_id_t dev, uint32_t digest_hdl) {
  const ModelLock lock;
  const Lrn *l = find_lrn(dev, digest_hdl);
  return l ? l->dropped : 0;
}

uint64_t drvm_learn_delivered(bf_dev_id_t dev, uint32_t digest_hdl) {
  const ModelLock lock;
  const Lrn *l = find_lrn(dev, digest_hdl);
  return l ? l->delivered : 0;
}

size_t drvm_learn_outstanding_count(bf_dev_id_t dev, uint32_t digest_hdl) {
  const ModelLock lock;
  size_t n = 0;
  for (const auto &m : g_outstanding)
    n += m->msg.dev_tgt.device_id == dev && m->msg.flow_lrn_fld_lst_hdl == digest_hdl ? 1 : 0;
  return n;
}

const pipe_flow_lrn_msg_t *drvm_learn_outstanding(bf_dev_id_t dev, uint32_t digest_hdl, size_t i) {
  const ModelLock lock;
  for (const auto &m : g_outstanding)
    if (m->msg.dev_tgt.device_id == dev && m->msg.flow_lrn_fld_lst_hdl == digest_hdl && i-- == 0) return &m->msg;
  return nullptr;
}

bf_status_t drvm_learn_callback(bf_dev_id_t dev, uint32_t digest_hdl, pipe_flow_lrn_notify_cb *cb, void **cookie,
                                pipe_sess_hdl_t *sess_hdl) {
  const ModelLock lock;
  const Lrn *l = find_lrn(dev, digest_hdl);
  if (l == nullptr || l->cb == nullptr) return BF_OBJECT_NOT_FOUND;
  if (cb) *cb = l->cb;
  if (cookie) *cookie = l->cookie;
  if (sess_hdl) *sess_hdl = l->sess;
  return BF_SUCCESS;
}

uint32_t drvm_learn_timeout(bf_dev_id_t dev) {
  const ModelLock lock;
  return timeout_of(dev);
}

}  // extern "C"
