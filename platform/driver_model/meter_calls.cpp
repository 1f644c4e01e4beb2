// Meter and WRED calls, and the direct resources of entries (pipe_mgr_mat_ent_set_resource). A meter or
// WRED cell reads back exactly the record last written; the model does not interpret its fields.
#include "cells.h"

using namespace drvm;

namespace {

// An indexed cell of a request: a declared handle (BF_OBJECT_NOT_FOUND), a pipe of the model or all
// (BF_INVALID_ARG), an index in range (BF_INDEX_OUT_OF_RANGE).
bf_status_t cell_of(const std::unordered_map<uint32_t, uint32_t> &decls, uint32_t hdl, uint32_t pipe, uint32_t index,
                    uint32_t *cells, Pipes *pipes) {
  auto it = decls.find(hdl);
  if (it == decls.end()) return BF_OBJECT_NOT_FOUND;
  if (!pipes_of(pipe, g_cells.num_pipes, pipes)) return BF_INVALID_ARG;
  if (index >= it->second) return BF_INDEX_OUT_OF_RANGE;
  *cells = it->second;
  return BF_SUCCESS;
}

// Writes a record into the cell of an index on the pipes named: the set of a meter or WRED cell.
template <class T>
bf_status_t set_cell(std::unordered_map<DevKey, std::vector<T>> &store,
                     const std::unordered_map<uint32_t, uint32_t> &decls, bf_dev_id_t dev, uint32_t pipe, uint32_t hdl,
                     uint32_t index, const T *spec) {
  if (spec == nullptr) return BF_INVALID_ARG;
  uint32_t cells = 0;
  Pipes p;
  if (bf_status_t st = cell_of(decls, hdl, pipe, index, &cells, &p)) return st;
  const T value = *spec;
  T zero;
  std::memset(&zero, 0, sizeof zero);
  std::vector<T> &v = touch_cells(store, dev_key(dev, hdl), uint64_t{cells} * g_cells.num_pipes, zero);
  for (uint32_t q = p.first; q < p.end; ++q) v[size_t{q} * cells + index] = value;
  return BF_SUCCESS;
}

}  // namespace

extern "C" {

pipe_status_t pipe_mgr_meter_ent_set(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, bf_dev_pipe_t pipe_id,
                                     pipe_meter_tbl_hdl_t meter_tbl_hdl, uint32_t index, pipe_meter_spec_t *meter_spec,
                                     uint32_t pipe_api_flags) {
  return DRIVER_CALL(
      "pipe_mgr_meter_ent_set", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_cells(r, sess_hdl, dev_id, pipe_id, meter_tbl_hdl);
        r.call.ent_hdl = index;
        r.call.flags = pipe_api_flags;
        record_copy(r, meter_spec);
      },
      [&](RecordedCall *, Notices &) -> bf_status_t {
        return set_cell(g_cells.meter_cells, g_cells.meters, dev_id, pipe_id, meter_tbl_hdl, index,
                        static_cast<const pipe_meter_spec_t *>(meter_spec));
      });
}

pipe_status_t pipe_mgr_mat_ent_set_resource(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                            pipe_mat_tbl_hdl_t mat_tbl_hdl, pipe_mat_ent_hdl_t ent_hdl,
                                            pipe_res_spec_t *resources, int resource_count, uint32_t pipe_api_flags) {
  const bool count_ok = resource_count >= 1 && resource_count <= PIPE_NUM_RES_SPECS;
  return DRIVER_CALL(
      "pipe_mgr_mat_ent_set_resource", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_cells(r, sess_hdl, dev_id, BF_DEV_PIPE_ALL, mat_tbl_hdl);
        r.call.ent_hdl = ent_hdl;
        r.call.arg_u32[0] = static_cast<uint32_t>(resource_count);
        r.call.flags = pipe_api_flags;
        if (count_ok) record_copy(r, resources, static_cast<size_t>(resource_count));
      },
      [&](RecordedCall *, Notices &) -> bf_status_t {
        if (resources == nullptr || !count_ok) return BF_INVALID_ARG;
        if (entry_of(dev_id, mat_tbl_hdl, ent_hdl) == nullptr) return BF_OBJECT_NOT_FOUND;
        auto reg = g_cells.direct_registers.find(mat_tbl_hdl);
        const RegisterDecl *d = reg == g_cells.direct_registers.end() ? nullptr : &reg->second;
        EntryEdit edit(dev_id, mat_tbl_hdl, ent_hdl);
        EntryCells &c = edit.cells();
        for (int i = 0; i < resource_count; ++i) {
          const pipe_res_spec_t &rs = resources[i];
          c.put_res(rs.tbl_hdl, rs.data.bytes);
          if (d != nullptr && rs.tbl_hdl == d->hdl) {
            // The direct register's value, in every instance, hardware and copy.
            if (c.reg.empty()) c.reg = make_cells<uint8_t>(uint64_t{d->instances} * 2 * kCellBytes);
            const pipe_stful_mem_spec_t m = masked(rs.data.bytes, d->width);
            for (size_t at = 0; at < c.reg.size(); at += kCellBytes) std::memcpy(&c.reg[at], &m, kCellBytes);
          }
        }
        edit.commit();
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_meter_read_entry_idx(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, bf_dev_pipe_t pipe_id,
                                            pipe_meter_tbl_hdl_t meter_tbl_hdl, uint32_t index,
                                            pipe_meter_spec_t *meter_spec, bool from_hw) {
  return DRIVER_CALL(
      "pipe_mgr_meter_read_entry_idx", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_cells(r, sess_hdl, dev_id, pipe_id, meter_tbl_hdl);
        r.call.ent_hdl = index;
        r.call.arg_u32[0] = from_hw ? 1 : 0;
        r.call.ptr_arg = meter_spec;
      },
      [&](RecordedCall *, Notices &) -> bf_status_t {
        if (meter_spec == nullptr) return BF_INVALID_ARG;
        uint32_t cells = 0;
        Pipes p;
        if (bf_status_t st = cell_of(g_cells.meters, meter_tbl_hdl, pipe_id, index, &cells, &p)) return st;
        pipe_meter_spec_t v;
        std::memset(&v, 0, sizeof v);
        auto it = g_cells.meter_cells.find(dev_key(dev_id, meter_tbl_hdl));
        if (it != g_cells.meter_cells.end()) v = it->second[size_t{read_pipe(pipe_id)} * cells + index];
        *meter_spec = v;
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_meter_read_entry(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, bf_dev_pipe_t pipe_id,
                                        pipe_mat_tbl_hdl_t mat_tbl_hdl, pipe_mat_ent_hdl_t ent_hdl,
                                        pipe_meter_spec_t *meter_spec) {
  return DRIVER_CALL(
      "pipe_mgr_meter_read_entry", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_cells(r, sess_hdl, dev_id, pipe_id, mat_tbl_hdl);
        r.call.ent_hdl = ent_hdl;
        r.call.ptr_arg = meter_spec;
      },
      [&](RecordedCall *, Notices &) -> bf_status_t {
        if (meter_spec == nullptr) return BF_INVALID_ARG;
        auto m = g_cells.direct_meters.find(mat_tbl_hdl);
        if (m == g_cells.direct_meters.end()) return BF_OBJECT_NOT_FOUND;
        if (entry_of(dev_id, mat_tbl_hdl, ent_hdl) == nullptr) return BF_OBJECT_NOT_FOUND;
        pipe_meter_spec_t v;
        std::memset(&v, 0, sizeof v);
        const EntryCells *e = entry_cells(dev_id, ent_hdl);
        if (const ResData *r = e ? e->find_res(m->second) : nullptr) std::memcpy(&v, r->data, sizeof v);
        *meter_spec = v;
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_meter_set_bytecount_adjust(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, bf_dev_pipe_t pipe_id,
                                                  pipe_meter_tbl_hdl_t meter_tbl_hdl, int32_t bytecount) {
  return DRIVER_CALL(
      "pipe_mgr_meter_set_bytecount_adjust", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_cells(r, sess_hdl, dev_id, pipe_id, meter_tbl_hdl);
        r.call.arg_u32[0] = static_cast<uint32_t>(bytecount);
      },
      [&](RecordedCall *, Notices &) -> bf_status_t {
        if (!is_meter(meter_tbl_hdl)) return BF_OBJECT_NOT_FOUND;
        Pipes p;
        if (!pipes_of(pipe_id, g_cells.num_pipes, &p)) return BF_INVALID_ARG;
        std::vector<int32_t> &v = touch_cells(g_cells.bytecount, dev_key(dev_id, meter_tbl_hdl), g_cells.num_pipes);
        for (uint32_t q = p.first; q < p.end; ++q) v[q] = bytecount;
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_meter_get_bytecount_adjust(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, bf_dev_pipe_t pipe_id,
                                                  pipe_meter_tbl_hdl_t meter_tbl_hdl, int32_t *bytecount) {
  return DRIVER_CALL(
      "pipe_mgr_meter_get_bytecount_adjust", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_cells(r, sess_hdl, dev_id, pipe_id, meter_tbl_hdl);
        r.call.ptr_arg = bytecount;
      },
      [&](RecordedCall *rec, Notices &) -> bf_status_t {
        if (bytecount == nullptr) return BF_INVALID_ARG;
        if (!is_meter(meter_tbl_hdl)) return BF_OBJECT_NOT_FOUND;
        Pipes p;
        if (!pipes_of(pipe_id, g_cells.num_pipes, &p)) return BF_INVALID_ARG;
        int32_t v = 0;
        auto it = g_cells.bytecount.find(dev_key(dev_id, meter_tbl_hdl));
        if (it != g_cells.bytecount.end()) v = it->second[read_pipe(pipe_id)];
        *bytecount = v;
        if (rec) rec->call.arg_u32[0] = static_cast<uint32_t>(v);
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_wred_ent_set(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, bf_dev_pipe_t pipe_id,
                                    pipe_wred_tbl_hdl_t wred_tbl_hdl, uint32_t index, pipe_wred_spec_t *wred_spec,
                                    uint32_t pipe_api_flags) {
  return DRIVER_CALL(
      "pipe_mgr_wred_ent_set", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_cells(r, sess_hdl, dev_id, pipe_id, wred_tbl_hdl);
        r.call.ent_hdl = index;
        r.call.flags = pipe_api_flags;
        record_copy(r, wred_spec);
      },
      [&](RecordedCall *, Notices &) -> bf_status_t {
        return set_cell(g_cells.wred_cells, g_cells.wreds, dev_id, pipe_id, wred_tbl_hdl, index,
                        static_cast<const pipe_wred_spec_t *>(wred_spec));
      });
}

}  // extern "C"
