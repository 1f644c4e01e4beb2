// Counter calls. Each cell has a hardware value, which traffic changes (drvm_stat_count), and the
// driver's copy, which queries read and the syncs refresh from the hardware value.
#include "cells.h"

using namespace drvm;

namespace {

// An indirect counter of a request: declared (BF_OBJECT_NOT_FOUND), on one of the model's pipes or
// all of them (BF_INVALID_ARG).
bf_status_t counter_of(uint32_t hdl, uint32_t pipe, uint32_t *cells, Pipes *pipes) {
  auto it = g_cells.counters.find(hdl);
  if (it == g_cells.counters.end()) return BF_OBJECT_NOT_FOUND;
  if (!pipes_of(pipe, g_cells.num_pipes, pipes)) return BF_INVALID_ARG;
  *cells = it->second;
  return BF_SUCCESS;
}

std::vector<StatCell> *stat_cells(bf_dev_id_t dev, uint32_t hdl) {
  auto it = g_cells.stat_cells.find(dev_key(dev, hdl));
  return it == g_cells.stat_cells.end() ? nullptr : &it->second;
}

}  // namespace

extern "C" {

// ---- Direct counters ----

pipe_status_t pipe_mgr_direct_stat_ent_database_sync(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                                     bf_dev_pipe_t pipe_id, pipe_mat_tbl_hdl_t mat_tbl_hdl,
                                                     pipe_mat_ent_hdl_t ent_hdl) {
  return DRIVER_CALL(
      "pipe_mgr_direct_stat_ent_database_sync", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_cells(r, sess_hdl, dev_id, pipe_id, mat_tbl_hdl);
        r.call.ent_hdl = ent_hdl;
      },
      [&](RecordedCall *, Notices &) -> bf_status_t {
        if (entry_of(dev_id, mat_tbl_hdl, ent_hdl) == nullptr) return BF_OBJECT_NOT_FOUND;
        auto it = g_cells.entries.find(dev_key(dev_id, ent_hdl));
        if (it != g_cells.entries.end()) it->second.stat.sw = it->second.stat.hw;
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_mat_ent_direct_stat_query(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                                 pipe_mat_tbl_hdl_t mat_tbl_hdl, pipe_mat_ent_hdl_t ent_hdl,
                                                 pipe_stat_data_t *stat_data) {
  return DRIVER_CALL(
      "pipe_mgr_mat_ent_direct_stat_query", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_cells(r, sess_hdl, dev_id, BF_DEV_PIPE_ALL, mat_tbl_hdl);
        r.call.ent_hdl = ent_hdl;
        r.call.ptr_arg = stat_data;
      },
      [&](RecordedCall *, Notices &) -> bf_status_t {
        if (stat_data == nullptr) return BF_INVALID_ARG;
        if (entry_of(dev_id, mat_tbl_hdl, ent_hdl) == nullptr) return BF_OBJECT_NOT_FOUND;
        const EntryCells *e = entry_cells(dev_id, ent_hdl);
        pipe_stat_data_t v{0, 0};
        if (e != nullptr) v = e->stat.sw;
        *stat_data = v;
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_mat_ent_direct_stat_set(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                               pipe_mat_tbl_hdl_t mat_tbl_hdl, pipe_mat_ent_hdl_t ent_hdl,
                                               pipe_stat_data_t *stat_data) {
  return DRIVER_CALL(
      "pipe_mgr_mat_ent_direct_stat_set", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_cells(r, sess_hdl, dev_id, BF_DEV_PIPE_ALL, mat_tbl_hdl);
        r.call.ent_hdl = ent_hdl;
        record_copy(r, stat_data);
      },
      [&](RecordedCall *, Notices &) -> bf_status_t {
        if (stat_data == nullptr) return BF_INVALID_ARG;
        if (entry_of(dev_id, mat_tbl_hdl, ent_hdl) == nullptr) return BF_OBJECT_NOT_FOUND;
        EntryEdit edit(dev_id, mat_tbl_hdl, ent_hdl);
        edit.cells().stat.hw = edit.cells().stat.sw = *stat_data;
        edit.commit();
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_direct_stat_database_sync(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, bf_dev_pipe_t pipe_id,
                                                 pipe_mat_tbl_hdl_t mat_tbl_hdl, pipe_mgr_sync_cb cb, void *cookie) {
  return DRIVER_CALL(
      "pipe_mgr_direct_stat_database_sync", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_cells(r, sess_hdl, dev_id, pipe_id, mat_tbl_hdl);
        record_cb_cookie(r, cb, cookie);
      },
      [&](RecordedCall *, Notices &notices) -> bf_status_t {
        notices.reserve(1);
        // The device's entries sit together in the map, in handle order.
        for (auto it = g_cells.entries.lower_bound(dev_key(dev_id, 0));
             it != g_cells.entries.end() && (it->first >> 32) == dev_id; ++it)
          if (it->second.tbl == mat_tbl_hdl) it->second.stat.sw = it->second.stat.hw;
        notices.add(sync_notice(cb, dev_id, cookie));
        return BF_SUCCESS;
      });
}

// ---- Indirect counters ----

pipe_status_t pipe_mgr_stat_ent_database_sync(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, bf_dev_pipe_t pipe_id,
                                              pipe_stat_tbl_hdl_t stat_tbl_hdl, uint32_t index) {
  return DRIVER_CALL(
      "pipe_mgr_stat_ent_database_sync", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_cells(r, sess_hdl, dev_id, pipe_id, stat_tbl_hdl);
        r.call.ent_hdl = index;
      },
      [&](RecordedCall *, Notices &) -> bf_status_t {
        uint32_t cells = 0;
        Pipes p;
        if (bf_status_t st = counter_of(stat_tbl_hdl, pipe_id, &cells, &p)) return st;
        if (index >= cells) return BF_INDEX_OUT_OF_RANGE;
        if (std::vector<StatCell> *v = stat_cells(dev_id, stat_tbl_hdl))
          for (uint32_t q = p.first; q < p.end; ++q)
            (*v)[size_t{q} * cells + index].sw = (*v)[size_t{q} * cells + index].hw;
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_stat_ent_query(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, bf_dev_pipe_t pipe_id,
                                      pipe_stat_tbl_hdl_t stat_tbl_hdl, uint32_t *indexes, uint32_t num_indexes,
                                      pipe_stat_data_t **stat_data) {
  return DRIVER_CALL(
      "pipe_mgr_stat_ent_query", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_cells(r, sess_hdl, dev_id, pipe_id, stat_tbl_hdl);
        r.call.arg_u32[0] = num_indexes;
        r.call.ptr_arg = stat_data;
        record_copy(r, indexes, num_indexes);
      },
      [&](RecordedCall *, Notices &) -> bf_status_t {
        if (indexes == nullptr || stat_data == nullptr) return BF_INVALID_ARG;
        for (uint32_t i = 0; i < num_indexes; ++i)
          if (stat_data[i] == nullptr) return BF_INVALID_ARG;
        uint32_t cells = 0;
        Pipes p;
        if (bf_status_t st = counter_of(stat_tbl_hdl, pipe_id, &cells, &p)) return st;
        for (uint32_t i = 0; i < num_indexes; ++i)
          if (indexes[i] >= cells) return BF_INDEX_OUT_OF_RANGE;
        const std::vector<StatCell> *v = stat_cells(dev_id, stat_tbl_hdl);
        for (uint32_t i = 0; i < num_indexes; ++i) {
          // The sum of the pipes' copies.
          pipe_stat_data_t sum{0, 0};
          for (uint32_t q = p.first; v != nullptr && q < p.end; ++q) {
            const StatCell &c = (*v)[size_t{q} * cells + indexes[i]];
            sum.bytes += c.sw.bytes;
            sum.packets += c.sw.packets;
          }
          *stat_data[i] = sum;
        }
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_stat_ent_set(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, bf_dev_pipe_t pipe_id,
                                    pipe_stat_tbl_hdl_t stat_tbl_hdl, uint32_t index, pipe_stat_data_t *stat_data) {
  return DRIVER_CALL(
      "pipe_mgr_stat_ent_set", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_cells(r, sess_hdl, dev_id, pipe_id, stat_tbl_hdl);
        r.call.ent_hdl = index;
        record_copy(r, stat_data);
      },
      [&](RecordedCall *, Notices &) -> bf_status_t {
        if (stat_data == nullptr) return BF_INVALID_ARG;
        uint32_t cells = 0;
        Pipes p;
        if (bf_status_t st = counter_of(stat_tbl_hdl, pipe_id, &cells, &p)) return st;
        if (index >= cells) return BF_INDEX_OUT_OF_RANGE;
        const pipe_stat_data_t value = *stat_data;
        std::vector<StatCell> &v =
            touch_cells(g_cells.stat_cells, dev_key(dev_id, stat_tbl_hdl), uint64_t{cells} * g_cells.num_pipes);
        // On all pipes the value goes to pipe 0 and the others' cells are cleared, so that the sum a
        // query on all pipes reads is the value set.
        for (uint32_t q = p.first; q < p.end; ++q) {
          StatCell &c = v[size_t{q} * cells + index];
          c.hw = c.sw = q == p.first ? value : pipe_stat_data_t{0, 0};
        }
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_stat_database_sync(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, bf_dev_pipe_t pipe_id,
                                          pipe_stat_tbl_hdl_t stat_tbl_hdl, pipe_mgr_sync_cb cb, void *cookie) {
  return DRIVER_CALL(
      "pipe_mgr_stat_database_sync", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_cells(r, sess_hdl, dev_id, pipe_id, stat_tbl_hdl);
        record_cb_cookie(r, cb, cookie);
      },
      [&](RecordedCall *, Notices &notices) -> bf_status_t {
        uint32_t cells = 0;
        Pipes p;
        if (bf_status_t st = counter_of(stat_tbl_hdl, pipe_id, &cells, &p)) return st;
        notices.reserve(1);
        if (std::vector<StatCell> *v = stat_cells(dev_id, stat_tbl_hdl))
          for (size_t i = size_t{p.first} * cells; i < size_t{p.end} * cells; ++i) (*v)[i].sw = (*v)[i].hw;
        notices.add(sync_notice(cb, dev_id, cookie));
        return BF_SUCCESS;
      });
}

}  // extern "C"
