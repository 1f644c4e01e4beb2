// Register (stateful table) calls. Each index of a register has one value per pipe instance; each
// value has a hardware side, which traffic changes (drvm_register_hw_write), and the driver's copy,
// which queries read unless they ask for the hardware (PIPE_FLAG_SYNC_REQ) and which the database
// syncs refresh. Writes (set, resets, an entry's resource) write both.
#include <algorithm>

#include "cells.h"

using namespace drvm;

namespace {

// An indirect register of a request: declared (BF_OBJECT_NOT_FOUND), on one of its instances or
// all (BF_INVALID_ARG).
bf_status_t register_of(uint32_t hdl, uint32_t pipe, const RegisterDecl **decl, Pipes *pipes) {
  const RegisterDecl *d = register_decl(hdl);
  if (d == nullptr) return BF_OBJECT_NOT_FOUND;
  if (!pipes_of(pipe, d->instances, pipes)) return BF_INVALID_ARG;
  *decl = d;
  return BF_SUCCESS;
}

// The table's direct register (BF_OBJECT_NOT_FOUND if none is declared).
const RegisterDecl *direct_register_of(uint32_t mat_tbl_hdl) {
  auto it = g_cells.direct_registers.find(mat_tbl_hdl);
  return it == g_cells.direct_registers.end() ? nullptr : &it->second;
}

// Whether a query record has room for n values: BF_INVALID_ARG for a null one, BF_NO_SPACE for too
// little room.
bf_status_t room_for(const pipe_stful_mem_query_t &q, uint32_t n) {
  if (q.data == nullptr) return BF_INVALID_ARG;
  return q.pipe_count < n ? BF_NO_SPACE : BF_SUCCESS;
}

// Fills a query record with the values of one index on the instances named. `values` holds the
// register's values (null: every value is `initial`).
void fill(pipe_stful_mem_query_t &q, const std::vector<uint8_t> *values, const RegisterDecl &d, uint32_t index, Pipes p,
          bool hw, const uint8_t *initial) {
  uint32_t k = 0;
  for (uint32_t i = p.first; i < p.end; ++i, ++k) {
    const uint8_t *v = values ? &(*values)[reg_offset(d.instances, index, i, !hw)] : initial;
    std::memcpy(q.data[k].bytes, v, kCellBytes);
  }
  q.pipe_count = k;
}

// Writes the value (both sides) of indexes [first, end) on the instances named.
void write_values(std::vector<uint8_t> &v, const RegisterDecl &d, uint32_t first, uint32_t end, Pipes p,
                  const uint8_t *value16) {
  const pipe_stful_mem_spec_t m = masked(value16, d.width);
  for (uint32_t index = first; index < end; ++index)
    for (uint32_t i = p.first; i < p.end; ++i) {
      std::memcpy(&v[reg_offset(d.instances, index, i, false)], &m, kCellBytes);
      std::memcpy(&v[reg_offset(d.instances, index, i, true)], &m, kCellBytes);
    }
}

const std::vector<uint8_t> *reg_cells(bf_dev_id_t dev, uint32_t hdl) {
  auto it = g_cells.reg_cells.find(dev_key(dev, hdl));
  return it == g_cells.reg_cells.end() ? nullptr : &it->second;
}

// The copy takes the hardware value, for every index, on the instances named.
void sync_values(std::vector<uint8_t> &v, uint32_t instances, uint32_t cells, Pipes p) {
  for (uint32_t index = 0; index < cells; ++index)
    for (uint32_t i = p.first; i < p.end; ++i)
      std::memcpy(&v[reg_offset(instances, index, i, true)], &v[reg_offset(instances, index, i, false)], kCellBytes);
}

// A reset of indexes [first, first + n) to a value, or to the reset value for null.
bf_status_t reset_range(bf_dev_id_t dev, uint32_t pipe, uint32_t hdl, uint32_t first, uint64_t n,
                        const pipe_stful_mem_spec_t *spec) {
  const RegisterDecl *d = nullptr;
  Pipes p;
  if (bf_status_t st = register_of(hdl, pipe, &d, &p)) return st;
  if (first + n > d->cells) return BF_INDEX_OUT_OF_RANGE;
  const uint8_t *value = spec ? spec->bytes : d->reset;
  std::vector<uint8_t> &v = touch_reg_cells(dev, hdl, *d);
  write_values(v, *d, first, static_cast<uint32_t>(first + n), p, value);
  return BF_SUCCESS;
}

void record_query(RecordedCall &r, const pipe_stful_mem_query_t *q) {
  r.call.ptr_arg = q;
  if (q != nullptr) r.call.arg_u32[0] = q->pipe_count;
}

}  // namespace

extern "C" {

pipe_status_t pipe_stful_query_get_sizes(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                         pipe_stful_tbl_hdl_t stful_tbl_hdl, int *num_pipes) {
  return DRIVER_CALL(
      "pipe_stful_query_get_sizes", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_cells(r, sess_hdl, dev_id, BF_DEV_PIPE_ALL, stful_tbl_hdl);
        r.call.ptr_arg = num_pipes;
      },
      [&](RecordedCall *rec, Notices &) -> bf_status_t {
        if (num_pipes == nullptr) return BF_INVALID_ARG;
        const RegisterDecl *d = any_register_decl(stful_tbl_hdl);
        if (d == nullptr) return BF_OBJECT_NOT_FOUND;
        *num_pipes = static_cast<int>(d->instances);
        if (rec) rec->call.arg_u32[0] = d->instances;
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_stful_ent_query(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, bf_dev_pipe_t pipe_id,
                                   pipe_stful_tbl_hdl_t stful_tbl_hdl, uint32_t index,
                                   pipe_stful_mem_query_t *stful_query, uint32_t pipe_api_flags) {
  return DRIVER_CALL(
      "pipe_stful_ent_query", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_cells(r, sess_hdl, dev_id, pipe_id, stful_tbl_hdl);
        r.call.ent_hdl = index;
        r.call.flags = pipe_api_flags;
        record_query(r, stful_query);
      },
      [&](RecordedCall *rec, Notices &) -> bf_status_t {
        if (stful_query == nullptr || stful_query->data == nullptr) return BF_INVALID_ARG;
        const RegisterDecl *d = nullptr;
        Pipes p;
        if (bf_status_t st = register_of(stful_tbl_hdl, pipe_id, &d, &p)) return st;
        if (index >= d->cells) return BF_INDEX_OUT_OF_RANGE;
        if (bf_status_t st = room_for(*stful_query, p.end - p.first)) return st;
        fill(*stful_query, reg_cells(dev_id, stful_tbl_hdl), *d, index, p, pipe_api_flags & PIPE_FLAG_SYNC_REQ,
             d->reset);
        if (rec) rec->call.arg_u32[1] = stful_query->pipe_count;
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_stful_ent_query_range(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, bf_dev_pipe_t pipe_id,
                                         pipe_stful_tbl_hdl_t stful_tbl_hdl, uint32_t stful_ent_idx,
                                         uint32_t num_indices_to_read, pipe_stful_mem_query_t *stful_query,
                                         uint32_t *num_indices_read, uint32_t pipe_api_flags) {
  return DRIVER_CALL(
      "pipe_stful_ent_query_range", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_cells(r, sess_hdl, dev_id, pipe_id, stful_tbl_hdl);
        r.call.ent_hdl = stful_ent_idx;
        r.call.arg_u32[0] = num_indices_to_read;
        r.call.flags = pipe_api_flags;
        r.call.ptr_arg = stful_query;
        r.call.ptr_arg2 = num_indices_read;
      },
      [&](RecordedCall *rec, Notices &) -> bf_status_t {
        if (num_indices_read == nullptr || (stful_query == nullptr && num_indices_to_read != 0)) return BF_INVALID_ARG;
        const RegisterDecl *d = nullptr;
        Pipes p;
        if (bf_status_t st = register_of(stful_tbl_hdl, pipe_id, &d, &p)) return st;
        if (stful_ent_idx >= d->cells) return BF_INDEX_OUT_OF_RANGE;
        // A range past the last index reads up to it.
        const uint32_t n = std::min(num_indices_to_read, d->cells - stful_ent_idx);
        for (uint32_t k = 0; k < n; ++k)
          if (stful_query[k].data == nullptr) return BF_INVALID_ARG;
        for (uint32_t k = 0; k < n; ++k)
          if (bf_status_t st = room_for(stful_query[k], p.end - p.first)) return st;
        const std::vector<uint8_t> *v = reg_cells(dev_id, stful_tbl_hdl);
        for (uint32_t k = 0; k < n; ++k)
          fill(stful_query[k], v, *d, stful_ent_idx + k, p, pipe_api_flags & PIPE_FLAG_SYNC_REQ, d->reset);
        *num_indices_read = n;
        if (rec) rec->call.arg_u32[1] = n;
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_stful_ent_set(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, bf_dev_pipe_t pipe_id,
                                 pipe_stful_tbl_hdl_t stful_tbl_hdl, uint32_t index, pipe_stful_mem_spec_t *stful_spec,
                                 uint32_t pipe_api_flags) {
  return DRIVER_CALL(
      "pipe_stful_ent_set", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_cells(r, sess_hdl, dev_id, pipe_id, stful_tbl_hdl);
        r.call.ent_hdl = index;
        r.call.flags = pipe_api_flags;
        record_copy(r, stful_spec);
      },
      [&](RecordedCall *, Notices &) -> bf_status_t {
        if (stful_spec == nullptr) return BF_INVALID_ARG;
        const RegisterDecl *d = nullptr;
        Pipes p;
        if (bf_status_t st = register_of(stful_tbl_hdl, pipe_id, &d, &p)) return st;
        if (index >= d->cells) return BF_INDEX_OUT_OF_RANGE;
        const pipe_stful_mem_spec_t value = *stful_spec;
        std::vector<uint8_t> &v = touch_reg_cells(dev_id, stful_tbl_hdl, *d);
        write_values(v, *d, index, index + 1, p, value.bytes);
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_stful_direct_ent_query(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_mat_tbl_hdl_t mat_tbl_hdl,
                                          pipe_mat_ent_hdl_t ent_hdl, pipe_stful_mem_query_t *stful_query,
                                          uint32_t pipe_api_flags) {
  return DRIVER_CALL(
      "pipe_stful_direct_ent_query", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_cells(r, sess_hdl, dev_id, BF_DEV_PIPE_ALL, mat_tbl_hdl);
        r.call.ent_hdl = ent_hdl;
        r.call.flags = pipe_api_flags;
        record_query(r, stful_query);
      },
      [&](RecordedCall *rec, Notices &) -> bf_status_t {
        if (stful_query == nullptr || stful_query->data == nullptr) return BF_INVALID_ARG;
        const RegisterDecl *d = direct_register_of(mat_tbl_hdl);
        if (d == nullptr || entry_of(dev_id, mat_tbl_hdl, ent_hdl) == nullptr) return BF_OBJECT_NOT_FOUND;
        if (bf_status_t st = room_for(*stful_query, d->instances)) return st;
        const EntryCells *e = entry_cells(dev_id, ent_hdl);
        static const uint8_t zero[kCellBytes] = {};
        fill(*stful_query, e && !e->reg.empty() ? &e->reg : nullptr, *d, 0, Pipes{0, d->instances},
             pipe_api_flags & PIPE_FLAG_SYNC_REQ, zero);
        if (rec) rec->call.arg_u32[1] = stful_query->pipe_count;
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_stful_database_sync(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, bf_dev_pipe_t pipe_id,
                                       pipe_stful_tbl_hdl_t stful_tbl_hdl, pipe_mgr_sync_cb cb, void *cookie) {
  return DRIVER_CALL(
      "pipe_stful_database_sync", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_cells(r, sess_hdl, dev_id, pipe_id, stful_tbl_hdl);
        record_cb_cookie(r, cb, cookie);
      },
      [&](RecordedCall *, Notices &notices) -> bf_status_t {
        const RegisterDecl *d = nullptr;
        Pipes p;
        if (bf_status_t st = register_of(stful_tbl_hdl, pipe_id, &d, &p)) return st;
        notices.reserve(1);
        auto it = g_cells.reg_cells.find(dev_key(dev_id, stful_tbl_hdl));
        if (it != g_cells.reg_cells.end()) sync_values(it->second, d->instances, d->cells, p);
        notices.add(sync_notice(cb, dev_id, cookie));
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_stful_direct_database_sync(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, bf_dev_pipe_t pipe_id,
                                              pipe_mat_tbl_hdl_t mat_tbl_hdl, pipe_mgr_sync_cb cb, void *cookie) {
  return DRIVER_CALL(
      "pipe_stful_direct_database_sync", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_cells(r, sess_hdl, dev_id, pipe_id, mat_tbl_hdl);
        record_cb_cookie(r, cb, cookie);
      },
      [&](RecordedCall *, Notices &notices) -> bf_status_t {
        const RegisterDecl *d = direct_register_of(mat_tbl_hdl);
        if (d == nullptr) return BF_OBJECT_NOT_FOUND;
        Pipes p;
        if (!pipes_of(pipe_id, d->instances, &p)) return BF_INVALID_ARG;
        notices.reserve(1);
        for (auto it = g_cells.entries.lower_bound(dev_key(dev_id, 0));
             it != g_cells.entries.end() && (it->first >> 32) == dev_id; ++it)
          if (it->second.tbl == mat_tbl_hdl && !it->second.reg.empty()) sync_values(it->second.reg, d->instances, 1, p);
        notices.add(sync_notice(cb, dev_id, cookie));
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_stful_table_reset(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, bf_dev_pipe_t pipe_id,
                                     pipe_stful_tbl_hdl_t stful_tbl_hdl, pipe_stful_mem_spec_t *stful_spec) {
  return DRIVER_CALL(
      "pipe_stful_table_reset", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_cells(r, sess_hdl, dev_id, pipe_id, stful_tbl_hdl);
        record_copy(r, stful_spec);
      },
      [&](RecordedCall *, Notices &) -> bf_status_t {
        const RegisterDecl *d = register_decl(stful_tbl_hdl);
        return reset_range(dev_id, pipe_id, stful_tbl_hdl, 0, d ? d->cells : 0, stful_spec);
      });
}

pipe_status_t pipe_stful_table_reset_range(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, bf_dev_pipe_t pipe_id,
                                           pipe_stful_tbl_hdl_t stful_tbl_hdl, uint32_t stful_ent_idx,
                                           uint32_t num_indices, pipe_stful_mem_spec_t *stful_spec) {
  return DRIVER_CALL(
      "pipe_stful_table_reset_range", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_cells(r, sess_hdl, dev_id, pipe_id, stful_tbl_hdl);
        r.call.ent_hdl = stful_ent_idx;
        r.call.arg_u32[0] = num_indices;
        record_copy(r, stful_spec);
      },
      [&](RecordedCall *, Notices &) -> bf_status_t {
        return reset_range(dev_id, pipe_id, stful_tbl_hdl, stful_ent_idx, num_indices, stful_spec);
      });
}

}  // extern "C"
