// Idle-time calls and the ageing of entries.
//
// A table with idle time (drvm_declare_idle_table) keeps per device its parameters, whether it is
// enabled, and the time it has spent ageing: enabled in notify mode. Each entry's countdown is the
// table's ageing time since the entry's last restart (its add, a hit, a reset or a set of its TTL with
// restart), against the TTL the entry store keeps for it. The clock (idle_clock_tick) adds the
// elapsed time to every ageing table, then reports the entries whose countdown ran out.
#include <algorithm>

#include "cells.h"

using namespace drvm;

namespace {

// A table of a request: one with idle time (BF_NOT_SUPPORTED).
bool has_idle(uint32_t tbl) { return g_cells.idle_tables.count(tbl) != 0; }

// An entry of an idle table: BF_NOT_SUPPORTED for a table without idle time, BF_OBJECT_NOT_FOUND for
// an entry the store does not hold.
bf_status_t idle_entry_of(bf_dev_id_t dev, uint32_t tbl, uint32_t ent, StoredEntry **out) {
  if (!has_idle(tbl)) return BF_NOT_SUPPORTED;
  StoredEntry *e = entry_of(dev, tbl, ent);
  if (e == nullptr) return BF_OBJECT_NOT_FOUND;
  *out = e;
  return BF_SUCCESS;
}

// The record of an entry of a table that has idle state (every entry of such a table has one).
IdleEnt &record_of(IdleTable &t, uint32_t ent) { return *t.find(ent); }

// An entry's countdown starts again: it may expire (and be reported) again.
void restart(IdleTable &t, IdleEnt &e) {
  e.restart = t.aged_us;
  e.expired = false;
}

// The remaining TTL in milliseconds, rounded up; an entry of a table without idle state has all of it.
uint32_t remaining_ms(const IdleTable *t, uint32_t ent, uint32_t ttl) {
  if (t == nullptr) return ttl;
  const IdleEnt *e = t->find(ent);
  if (e == nullptr) return ttl;
  return static_cast<uint32_t>((t->remaining_us(*e, ttl) + 999) / 1000);
}

// An expiry to report.
struct Expiry {
  pipe_idle_tmo_expiry_cb cb;
  bf_dev_id_t dev;
  uint32_t ent;
  void *cookie;
};

// Marks up to n expired entries of ageing tables as reported, in device, table and handle order, and
// gives them. No allocation.
size_t take_expiries(Expiry *out, size_t n) {
  size_t k = 0;
  for (auto &[key, t] : g_cells.idle) {
    if (!t.ageing()) continue;
    for (IdleEnt &e : t.ents) {
      if (k == n) return k;
      if (e.expired) continue;
      const StoredEntry *se = entry_of(key.first, key.second, e.hdl);
      if (se == nullptr || se->ttl == 0 || t.remaining_us(e, se->ttl) != 0) continue;
      e.expired = true;
      out[k++] = Expiry{t.params.callback_fn, key.first, e.hdl, t.params.client_data};
    }
  }
  return k;
}

}  // namespace

namespace drvm {

void idle_clock_tick() {
  {
    const ModelLock lock;
    const uint64_t now_us = g_clock_us;
    const uint64_t elapsed = now_us - g_cells.idle_clock_us;
    g_cells.idle_clock_us = now_us;
    for (auto &[key, t] : g_cells.idle)
      if (t.ageing()) t.aged_us += elapsed;
  }
  // The ageing is done; now the reports, a batch at a time, each batch taken under the lock before
  // any of its callbacks runs, and the callbacks called without it. A callback may call the driver
  // (delete the entry, hit it, move the clock): the next batch is taken afresh.
  constexpr size_t kBatch = 64;
  Expiry batch[kBatch];
  for (;;) {
    size_t n = 0;
    {
      const ModelLock lock;
      n = take_expiries(batch, kBatch);
    }
    for (size_t i = 0; i < n; ++i)
      if (batch[i].cb) batch[i].cb(batch[i].dev, batch[i].ent, batch[i].cookie);
    if (n < kBatch) break;
  }
}

}  // namespace drvm

extern "C" {

pipe_status_t pipe_mgr_idle_set_params(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_mat_tbl_hdl_t mat_tbl_hdl,
                                       pipe_idle_time_params_t params) {
  return DRIVER_CALL(
      "pipe_mgr_idle_set_params", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_cells(r, sess_hdl, dev_id, BF_DEV_PIPE_ALL, mat_tbl_hdl);
        // The record field by field, its padding (on a 64-bit host) zero.
        pipe_idle_time_params_t p;
        std::memset(&p, 0, sizeof p);
        p.mode = params.mode;
        p.ttl_query_interval = params.ttl_query_interval;
        p.max_ttl = params.max_ttl;
        p.min_ttl = params.min_ttl;
        p.callback_fn = params.callback_fn;
        p.reserved = params.reserved;
        p.client_data = params.client_data;
        p.reserved2 = params.reserved2;
        record_copy(r, &p);
        record_cb_cookie(r, params.callback_fn, params.client_data);
      },
      [&](RecordedCall *, Notices &) -> bf_status_t {
        if (params.mode != PIPE_IDLE_TIME_MODE_POLL && params.mode != PIPE_IDLE_TIME_MODE_NOTIFY) return BF_INVALID_ARG;
        if (!has_idle(mat_tbl_hdl)) return BF_NOT_SUPPORTED;
        IdleTable &t = touch_idle_table(dev_id, mat_tbl_hdl);
        t.params = params;
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_idle_get_params(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_mat_tbl_hdl_t mat_tbl_hdl,
                                       pipe_idle_time_params_t *params) {
  return DRIVER_CALL(
      "pipe_mgr_idle_get_params", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_cells(r, sess_hdl, dev_id, BF_DEV_PIPE_ALL, mat_tbl_hdl);
        r.call.ptr_arg = params;
      },
      [&](RecordedCall *, Notices &) -> bf_status_t {
        if (params == nullptr) return BF_INVALID_ARG;
        if (!has_idle(mat_tbl_hdl)) return BF_NOT_SUPPORTED;
        const IdleTable *t = idle_table(dev_id, mat_tbl_hdl);
        *params = t ? t->params : IdleTable().params;
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_idle_tmo_set_enable(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_mat_tbl_hdl_t mat_tbl_hdl,
                                           bool enable) {
  return DRIVER_CALL(
      "pipe_mgr_idle_tmo_set_enable", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_cells(r, sess_hdl, dev_id, BF_DEV_PIPE_ALL, mat_tbl_hdl);
        r.call.arg_u32[0] = enable ? 1 : 0;
      },
      [&](RecordedCall *, Notices &) -> bf_status_t {
        if (!has_idle(mat_tbl_hdl)) return BF_NOT_SUPPORTED;
        touch_idle_table(dev_id, mat_tbl_hdl).enabled = enable;
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_idle_register_tmo_cb(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                            pipe_mat_tbl_hdl_t mat_tbl_hdl, pipe_idle_tmo_expiry_cb cb, void *cookie) {
  return DRIVER_CALL(
      "pipe_mgr_idle_register_tmo_cb", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_cells(r, sess_hdl, dev_id, BF_DEV_PIPE_ALL, mat_tbl_hdl);
        record_cb_cookie(r, cb, cookie);
      },
      [&](RecordedCall *, Notices &) -> bf_status_t {
        if (!has_idle(mat_tbl_hdl)) return BF_NOT_SUPPORTED;
        IdleTable &t = touch_idle_table(dev_id, mat_tbl_hdl);
        t.params.callback_fn = cb;
        t.params.client_data = cookie;
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_mat_ent_set_idle_ttl(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                            pipe_mat_tbl_hdl_t mat_tbl_hdl, pipe_mat_ent_hdl_t ent_hdl, uint32_t ttl,
                                            uint32_t pipe_api_flags, bool reset) {
  return DRIVER_CALL(
      "pipe_mgr_mat_ent_set_idle_ttl", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_cells(r, sess_hdl, dev_id, BF_DEV_PIPE_ALL, mat_tbl_hdl);
        r.call.ent_hdl = ent_hdl;
        r.call.ttl = ttl;
        r.call.arg_u32[0] = ttl;
        r.call.arg_u32[1] = reset ? 1 : 0;
        r.call.flags = pipe_api_flags;
      },
      [&](RecordedCall *, Notices &) -> bf_status_t {
        StoredEntry *e = nullptr;
        if (bf_status_t st = idle_entry_of(dev_id, mat_tbl_hdl, ent_hdl, &e)) return st;
        IdleTable &t = touch_idle_table(dev_id, mat_tbl_hdl);
        IdleEnt &r = record_of(t, ent_hdl);
        e->ttl = ttl;
        r.expired = false;
        if (reset) restart(t, r);
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_mat_ent_get_idle_ttl(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                            pipe_mat_tbl_hdl_t mat_tbl_hdl, pipe_mat_ent_hdl_t ent_hdl, uint32_t *ttl) {
  return DRIVER_CALL(
      "pipe_mgr_mat_ent_get_idle_ttl", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_cells(r, sess_hdl, dev_id, BF_DEV_PIPE_ALL, mat_tbl_hdl);
        r.call.ent_hdl = ent_hdl;
        r.call.ptr_arg = ttl;
      },
      [&](RecordedCall *rec, Notices &) -> bf_status_t {
        if (ttl == nullptr) return BF_INVALID_ARG;
        StoredEntry *e = nullptr;
        if (bf_status_t st = idle_entry_of(dev_id, mat_tbl_hdl, ent_hdl, &e)) return st;
        *ttl = remaining_ms(idle_table(dev_id, mat_tbl_hdl), ent_hdl, e->ttl);
        if (rec) rec->call.arg_u32[0] = *ttl;
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_mat_ent_reset_idle_ttl(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                              pipe_mat_tbl_hdl_t mat_tbl_hdl, pipe_mat_ent_hdl_t ent_hdl) {
  return DRIVER_CALL(
      "pipe_mgr_mat_ent_reset_idle_ttl", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_cells(r, sess_hdl, dev_id, BF_DEV_PIPE_ALL, mat_tbl_hdl);
        r.call.ent_hdl = ent_hdl;
      },
      [&](RecordedCall *, Notices &) -> bf_status_t {
        StoredEntry *e = nullptr;
        if (bf_status_t st = idle_entry_of(dev_id, mat_tbl_hdl, ent_hdl, &e)) return st;
        IdleTable &t = touch_idle_table(dev_id, mat_tbl_hdl);
        restart(t, record_of(t, ent_hdl));
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_idle_time_update_hit_state(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                                  pipe_mat_tbl_hdl_t mat_tbl_hdl, pipe_idle_tmo_update_complete_cb cb,
                                                  void *cookie) {
  return DRIVER_CALL(
      "pipe_mgr_idle_time_update_hit_state", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_cells(r, sess_hdl, dev_id, BF_DEV_PIPE_ALL, mat_tbl_hdl);
        record_cb_cookie(r, cb, cookie);
      },
      [&](RecordedCall *, Notices &notices) -> bf_status_t {
        if (!has_idle(mat_tbl_hdl)) return BF_NOT_SUPPORTED;
        notices.reserve(1);
        if (IdleTable *t = idle_table(dev_id, mat_tbl_hdl))
          for (IdleEnt &e : t->ents) {
            e.sw_hit = e.hw_hit;
            e.hw_hit = false;
          }
        notices.add(sync_notice(cb, dev_id, cookie));
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_idle_time_get_hit_state(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                               pipe_mat_tbl_hdl_t mat_tbl_hdl, pipe_mat_ent_hdl_t ent_hdl,
                                               uint32_t *hit_state) {
  return DRIVER_CALL(
      "pipe_mgr_idle_time_get_hit_state", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_cells(r, sess_hdl, dev_id, BF_DEV_PIPE_ALL, mat_tbl_hdl);
        r.call.ent_hdl = ent_hdl;
        r.call.ptr_arg = hit_state;
      },
      [&](RecordedCall *rec, Notices &) -> bf_status_t {
        if (hit_state == nullptr) return BF_INVALID_ARG;
        StoredEntry *e = nullptr;
        if (bf_status_t st = idle_entry_of(dev_id, mat_tbl_hdl, ent_hdl, &e)) return st;
        IdleTable *t = idle_table(dev_id, mat_tbl_hdl);
        const IdleEnt *r = t ? t->find(ent_hdl) : nullptr;
        *hit_state = r && r->sw_hit ? PIPE_IDLE_TIME_HIT_STATE_ACTIVE : PIPE_IDLE_TIME_HIT_STATE_IDLE;
        if (rec) rec->call.arg_u32[0] = *hit_state;
        return BF_SUCCESS;
      });
}

// ---- The model's idle API ----

bf_status_t drvm_idle_hit(bf_dev_id_t dev, uint32_t mat_tbl_hdl, uint32_t ent_hdl) {
  const ModelLock lock;
  StoredEntry *e = nullptr;
  if (bf_status_t st = idle_entry_of(dev, mat_tbl_hdl, ent_hdl, &e)) return st;
  try {
    IdleTable &t = touch_idle_table(dev, mat_tbl_hdl);
    IdleEnt &r = record_of(t, ent_hdl);
    r.hw_hit = true;
    restart(t, r);
  } catch (const std::bad_alloc &) {
    return BF_NO_SYS_RESOURCES;
  }
  return BF_SUCCESS;
}

bf_status_t drvm_idle_table_get(bf_dev_id_t dev, uint32_t mat_tbl_hdl, pipe_idle_time_params_t *params, int *enabled) {
  const ModelLock lock;
  if (!has_idle(mat_tbl_hdl)) return BF_NOT_SUPPORTED;
  const IdleTable *t = idle_table(dev, mat_tbl_hdl);
  if (params) *params = t ? t->params : IdleTable().params;
  if (enabled) *enabled = t && t->enabled ? 1 : 0;
  return BF_SUCCESS;
}

bf_status_t drvm_idle_entry_get(bf_dev_id_t dev, uint32_t mat_tbl_hdl, uint32_t ent_hdl, uint32_t *remaining,
                                int *expired, uint32_t *hw_hit_state, uint32_t *sw_hit_state) {
  const ModelLock lock;
  StoredEntry *e = nullptr;
  if (bf_status_t st = idle_entry_of(dev, mat_tbl_hdl, ent_hdl, &e)) return st;
  IdleTable *t = idle_table(dev, mat_tbl_hdl);
  const IdleEnt *r = t ? t->find(ent_hdl) : nullptr;
  if (remaining) *remaining = remaining_ms(t, ent_hdl, e->ttl);
  if (expired) *expired = r && r->expired ? 1 : 0;
  if (hw_hit_state) *hw_hit_state = r && r->hw_hit ? PIPE_IDLE_TIME_HIT_STATE_ACTIVE : PIPE_IDLE_TIME_HIT_STATE_IDLE;
  if (sw_hit_state) *sw_hit_state = r && r->sw_hit ? PIPE_IDLE_TIME_HIT_STATE_ACTIVE : PIPE_IDLE_TIME_HIT_STATE_IDLE;
  return BF_SUCCESS;
}

}  // extern "C"
