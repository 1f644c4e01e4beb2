// Counters, meters and registers, resource by resource: each function is one or two driver calls
// with its records on the stack (a register read's arrays excepted), and converts the caller's
// records into the driver's and back.
#pragma once

#include "assertion.h"
#include "encode.h"

extern "C" {
#include "corvin_switch/pd.h"
#include "drv/bf_sys.h"
}

namespace cv::pd {

// Bit 0 of a read's flags asks for the hardware; the driver takes it as 0 or 1.
CV_INLINE uint32_t hw_flag(uint32_t flags) { return flags & 1u; }

// ---- Counters ----

// The caller's packets and bytes are the driver's bytes and packets: every conversion exchanges
// the two fields and does nothing else.
template <const CounterDesc &C>
CV_INLINE p4_pd_status_t counter_read(p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt, uint32_t cell, uint32_t flags,
                                      p4_pd_counter_value_t *value) {
  pipe_stat_data_t d{};
  pipe_status_t st;
  if constexpr (C.direct) {
    if (hw_flag(flags)) {
      st = pipe_mgr_direct_stat_ent_database_sync(sess, tgt.device_id, tgt.dev_pipe_id, C.handle, cell);
      if (st != 0) return static_cast<p4_pd_status_t>(st);
    }
    st = pipe_mgr_mat_ent_direct_stat_query(sess, tgt.device_id, C.handle, cell, &d);
  } else {
    if (hw_flag(flags)) {
      st = pipe_mgr_stat_ent_database_sync(sess, tgt.device_id, tgt.dev_pipe_id, C.handle, cell);
      if (st != 0) return static_cast<p4_pd_status_t>(st);
    }
    uint32_t indexes[1] = {cell};
    pipe_stat_data_t *records[1] = {&d};
    st = pipe_mgr_stat_ent_query(sess, tgt.device_id, tgt.dev_pipe_id, C.handle, indexes, 1, records);
  }
  if (st != 0) return static_cast<p4_pd_status_t>(st);
  value->packets = d.packets;
  value->bytes = d.bytes;
  return 0;
}

template <const CounterDesc &C>
CV_INLINE p4_pd_status_t counter_write(p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt, uint32_t cell,
                                       p4_pd_counter_value_t value) {
  pipe_stat_data_t d;
  d.bytes = value.bytes;
  d.packets = value.packets;
  if constexpr (C.direct)
    return static_cast<p4_pd_status_t>(pipe_mgr_mat_ent_direct_stat_set(sess, tgt.device_id, C.handle, cell, &d));
  else
    return static_cast<p4_pd_status_t>(
        pipe_mgr_stat_ent_set(sess, tgt.device_id, tgt.dev_pipe_id, C.handle, cell, &d));
}

// The callback and cookie go to the driver as they are; the library never calls them.
template <const CounterDesc &C>
CV_INLINE p4_pd_status_t counter_hw_sync(p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt, p4_pd_stat_sync_cb cb,
                                         void *cookie) {
  if constexpr (C.direct)
    return static_cast<p4_pd_status_t>(
        pipe_mgr_direct_stat_database_sync(sess, tgt.device_id, tgt.dev_pipe_id, C.handle, cb, cookie));
  else
    return static_cast<p4_pd_status_t>(
        pipe_mgr_stat_database_sync(sess, tgt.device_id, tgt.dev_pipe_id, C.handle, cb, cookie));
}

// ---- Meters ----

// The driver's meter record of a spec: the type converted as for table operations (pre-colouring
// present), the unit the program gives the meter, the four numbers zero-extended.
template <const MeterDesc &M>
CV_INLINE void meter_record(pipe_meter_spec_t &m, const p4_pd_meter_spec_t &spec, const char *function) {
  fill_meter(m, spec, function);
  m.cir_unit = M.unit;
  m.pir_unit = M.unit;
}

// The direct meter is written as a resource of its entry, on the match table's handle; the others
// by index, on their own.
template <const MeterDesc &M>
CV_INLINE p4_pd_status_t meter_set(const char *function, p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt,
                                   uint32_t cell, p4_pd_meter_spec_t *spec) {
  if constexpr (M.direct) {
    pipe_res_spec_t r{};
    r.tbl_hdl = M.handle;
    meter_record<M>(r.data.meter, *spec, function);
    r.tag = PIPE_RES_TAG_ATTACHED;
    return static_cast<p4_pd_status_t>(pipe_mgr_mat_ent_set_resource(sess, tgt.device_id, M.table, cell, &r, 1, 0));
  } else {
    pipe_meter_spec_t m{};
    meter_record<M>(m, *spec, function);
    return static_cast<p4_pd_status_t>(
        pipe_mgr_meter_ent_set(sess, tgt.device_id, tgt.dev_pipe_id, M.handle, cell, &m, 0));
  }
}

// The driver's numbers cut to their low 32 bits, and its type word as it stands.
CV_INLINE void meter_spec_of(p4_pd_meter_spec_t *spec, const pipe_meter_spec_t &m) {
  spec->cir = static_cast<uint32_t>(m.cir);
  spec->cburst = static_cast<uint32_t>(m.cburst);
  spec->pir = static_cast<uint32_t>(m.pir);
  spec->pburst = static_cast<uint32_t>(m.pburst);
  spec->meter_type = m.meter_type;
}

template <const MeterDesc &M>
CV_INLINE p4_pd_status_t meter_read(p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt, uint32_t cell,
                                    p4_pd_meter_spec_t *spec) {
  pipe_meter_spec_t m{};
  pipe_status_t st;
  if constexpr (M.direct)
    st = pipe_mgr_meter_read_entry(sess, tgt.device_id, tgt.dev_pipe_id, M.table, cell, &m);
  else
    st = pipe_mgr_meter_read_entry_idx(sess, tgt.device_id, tgt.dev_pipe_id, M.handle, cell, &m, 0);
  if (st != 0) return static_cast<p4_pd_status_t>(st);
  meter_spec_of(spec, m);
  return 0;
}

// The byte count adjustment goes by the meter's own handle, the direct meter's resource handle
// included, unlike its read.
template <const MeterDesc &M>
CV_INLINE p4_pd_status_t meter_bytecount_adjust_set(p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt, int32_t bytecount) {
  return static_cast<p4_pd_status_t>(
      pipe_mgr_meter_set_bytecount_adjust(sess, tgt.device_id, tgt.dev_pipe_id, M.handle, bytecount));
}

template <const MeterDesc &M>
CV_INLINE p4_pd_status_t meter_bytecount_adjust_get(p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt,
                                                    int32_t *bytecount) {
  int32_t v = 0;
  pipe_status_t st = pipe_mgr_meter_get_bytecount_adjust(sess, tgt.device_id, tgt.dev_pipe_id, M.handle, &v);
  if (st != 0) return static_cast<p4_pd_status_t>(st);
  *bytecount = v;
  return 0;
}

// ---- Registers ----

// The program's registers hold one bit, offered as a byte: a cell record carries it in its first
// byte, any non-zero byte being a 1.
CV_INLINE pipe_stful_mem_spec_t register_cell(const uint8_t *value) {
  pipe_stful_mem_spec_t c{};
  c.bytes[0] = *value != 0 ? 1 : 0;
  return c;
}

// One index gives one value per pipe instance of the register: as many as the driver says.
template <const HandleDesc &R>
CV_INLINE p4_pd_status_t register_read(p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt, uint32_t index, uint32_t flags,
                                       uint8_t *values, int *value_count) {
  int size = 0;
  pipe_status_t st = pipe_stful_query_get_sizes(sess, tgt.device_id, R.handle, &size);
  if (st != 0) return static_cast<p4_pd_status_t>(st);
  auto *cells = static_cast<pipe_stful_mem_spec_t *>(bf_sys_calloc(static_cast<size_t>(size), sizeof(pipe_stful_mem_spec_t)));
  if (cells == nullptr) return kStatusNoMemory;
  pipe_stful_mem_query_t q;
  q.pipe_count = static_cast<uint32_t>(size);
  q.data = cells;
  st = pipe_stful_ent_query(sess, tgt.device_id, tgt.dev_pipe_id, R.handle, index, &q, hw_flag(flags));
  if (st != 0) {
    bf_sys_free(cells);
    return static_cast<p4_pd_status_t>(st);
  }
  *value_count = static_cast<int>(q.pipe_count);
  for (int i = 0; i < *value_count; ++i) values[i] = cells[i].bytes[0];
  bf_sys_free(cells);
  return 0;
}

template <const HandleDesc &R>
CV_INLINE p4_pd_status_t register_write(p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt, uint32_t index,
                                        uint8_t *value) {
  pipe_stful_mem_spec_t c = register_cell(value);
  return static_cast<p4_pd_status_t>(
      pipe_stful_ent_set(sess, tgt.device_id, tgt.dev_pipe_id, R.handle, index, &c, 0));
}

template <const HandleDesc &R>
CV_INLINE p4_pd_status_t register_write_all(p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt, uint8_t *value) {
  pipe_stful_mem_spec_t c = register_cell(value);
  return static_cast<p4_pd_status_t>(pipe_stful_table_reset(sess, tgt.device_id, tgt.dev_pipe_id, R.handle, &c));
}

template <const HandleDesc &R>
CV_INLINE p4_pd_status_t register_reset_all(p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt) {
  return static_cast<p4_pd_status_t>(pipe_stful_table_reset(sess, tgt.device_id, tgt.dev_pipe_id, R.handle, nullptr));
}

template <const HandleDesc &R>
CV_INLINE p4_pd_status_t register_range_reset(p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt, uint32_t index,
                                              uint32_t count) {
  return static_cast<p4_pd_status_t>(
      pipe_stful_table_reset_range(sess, tgt.device_id, tgt.dev_pipe_id, R.handle, index, count, nullptr));
}

template <const HandleDesc &R>
CV_INLINE p4_pd_status_t register_hw_sync(p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt, p4_pd_register_sync_cb cb,
                                          void *cookie) {
  return static_cast<p4_pd_status_t>(
      pipe_stful_database_sync(sess, tgt.device_id, tgt.dev_pipe_id, R.handle, cb, cookie));
}

// A range in one driver call: one query record per index, each with its slice of the cells. The
// values come back packed, index after index, the pipe instances of an index together.
p4_pd_status_t register_range_read(uint32_t handle, p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt, uint32_t index,
                                   uint32_t count, uint32_t flags, uint32_t *num_read, uint8_t *values,
                                   int *value_count);

template <const HandleDesc &R>
CV_INLINE p4_pd_status_t register_range_read(p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt, uint32_t index,
                                             uint32_t count, uint32_t flags, uint32_t *num_read, uint8_t *values,
                                             int *value_count) {
  return register_range_read(R.handle, sess, tgt, index, count, flags, num_read, values, value_count);
}

}  // namespace cv::pd
