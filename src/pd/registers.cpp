// Register range reads, and the register functions that take a handle as an argument.
#include "resources.h"

using namespace cv::pd;

namespace cv::pd {

p4_pd_status_t register_range_read(uint32_t handle, p4_pd_sess_hdl_t sess, p4_pd_dev_target_t tgt, uint32_t index,
                                   uint32_t count, uint32_t flags, uint32_t *num_read, uint8_t *values,
                                   int *value_count) {
  int size = 0;
  pipe_status_t st = pipe_stful_query_get_sizes(sess, tgt.device_id, handle, &size);
  if (st != 0) return static_cast<p4_pd_status_t>(st);
  // Both arrays are asked for, also for an empty range.
  auto *queries = static_cast<pipe_stful_mem_query_t *>(bf_sys_calloc(count, sizeof(pipe_stful_mem_query_t)));
  auto *cells = static_cast<pipe_stful_mem_spec_t *>(
      bf_sys_calloc(static_cast<size_t>(count) * static_cast<size_t>(size), sizeof(pipe_stful_mem_spec_t)));
  if (queries == nullptr || cells == nullptr) {
    if (queries) bf_sys_free(queries);
    if (cells) bf_sys_free(cells);
    return kStatusNoMemory;
  }
  for (uint32_t i = 0; i < count; ++i) {
    queries[i].pipe_count = static_cast<uint32_t>(size);
    queries[i].data = cells + static_cast<size_t>(i) * static_cast<size_t>(size);
  }
  st = pipe_stful_ent_query_range(sess, tgt.device_id, tgt.dev_pipe_id, handle, index, count, queries, num_read,
                                  hw_flag(flags));
  if (st != 0) {
    bf_sys_free(queries);
    bf_sys_free(cells);
    return static_cast<p4_pd_status_t>(st);
  }
  *value_count = 0;
  uint8_t *out = values;
  for (uint32_t i = 0; i < *num_read; ++i) {
    *value_count += static_cast<int>(queries[i].pipe_count);
    for (uint32_t j = 0; j < queries[i].pipe_count; ++j) *out++ = queries[i].data[j].bytes[0];
  }
  bf_sys_free(queries);
  bf_sys_free(cells);
  return 0;
}

}  // namespace cv::pd

extern "C" {

P4_PD_EXPORT p4_pd_status_t p4_pd_corvin_switch_register_read_direct(p4_pd_sess_hdl_t sess_hdl,
                                                                     p4_pd_dev_target_t dev_tgt, uint32_t tbl_hdl,
                                                                     p4_pd_entry_hdl_t entry_hdl, uint32_t flags,
                                                                     p4_pd_stful_mem_query_t *stful_query) {
  return static_cast<p4_pd_status_t>(
      pipe_stful_direct_ent_query(sess_hdl, dev_tgt.device_id, tbl_hdl, entry_hdl, stful_query, hw_flag(flags)));
}

// One handle is both the table the call goes to and the resource the record names.
P4_PD_EXPORT p4_pd_status_t p4_pd_corvin_switch_register_write_direct(p4_pd_sess_hdl_t sess_hdl, uint8_t dev_id,
                                                                      uint32_t handle, p4_pd_entry_hdl_t entry_hdl,
                                                                      uint8_t *data) {
  pipe_res_spec_t r{};
  r.tbl_hdl = handle;
  memcpy(r.data.bytes, data, sizeof(pipe_stful_mem_spec_t));
  r.tag = PIPE_RES_TAG_ATTACHED;
  return static_cast<p4_pd_status_t>(pipe_mgr_mat_ent_set_resource(sess_hdl, dev_id, handle, entry_hdl, &r, 1, 0));
}

P4_PD_EXPORT p4_pd_status_t p4_pd_corvin_switch_register_read_indirect(p4_pd_sess_hdl_t sess_hdl,
                                                                       p4_pd_dev_target_t dev_tgt, uint32_t handle,
                                                                       uint32_t index, uint32_t flags,
                                                                       p4_pd_stful_mem_query_t *stful_query) {
  return static_cast<p4_pd_status_t>(pipe_stful_ent_query(sess_hdl, dev_tgt.device_id, dev_tgt.dev_pipe_id, handle,
                                                          index, stful_query, hw_flag(flags)));
}

P4_PD_EXPORT p4_pd_status_t p4_pd_corvin_switch_register_write_indirect(p4_pd_sess_hdl_t sess_hdl,
                                                                        p4_pd_dev_target_t dev_tgt, uint32_t handle,
                                                                        uint32_t index,
                                                                        p4_pd_stful_mem_spec_t *stful_spec) {
  return static_cast<p4_pd_status_t>(
      pipe_stful_ent_set(sess_hdl, dev_tgt.device_id, dev_tgt.dev_pipe_id, handle, index, stful_spec, 0));
}

P4_PD_EXPORT p4_pd_status_t p4_pd_corvin_switch_register_hw_sync_direct(p4_pd_sess_hdl_t sess_hdl,
                                                                        p4_pd_dev_target_t dev_tgt, uint32_t handle,
                                                                        p4_pd_register_sync_cb cb, void *cookie) {
  return static_cast<p4_pd_status_t>(
      pipe_stful_direct_database_sync(sess_hdl, dev_tgt.device_id, dev_tgt.dev_pipe_id, handle, cb, cookie));
}

P4_PD_EXPORT p4_pd_status_t p4_pd_corvin_switch_register_hw_sync_indirect(p4_pd_sess_hdl_t sess_hdl,
                                                                          p4_pd_dev_target_t dev_tgt, uint32_t handle,
                                                                          p4_pd_register_sync_cb cb, void *cookie) {
  return static_cast<p4_pd_status_t>(
      pipe_stful_database_sync(sess_hdl, dev_tgt.device_id, dev_tgt.dev_pipe_id, handle, cb, cookie));
}

P4_PD_EXPORT p4_pd_status_t p4_pd_corvin_switch_register_reset_all_indirect(p4_pd_sess_hdl_t sess_hdl,
                                                                            p4_pd_dev_target_t dev_tgt,
                                                                            uint32_t handle) {
  return static_cast<p4_pd_status_t>(
      pipe_stful_table_reset(sess_hdl, dev_tgt.device_id, dev_tgt.dev_pipe_id, handle, nullptr));
}

P4_PD_EXPORT p4_pd_status_t p4_pd_corvin_switch_register_range_reset_indirect(p4_pd_sess_hdl_t sess_hdl,
                                                                              p4_pd_dev_target_t dev_tgt,
                                                                              uint32_t handle, uint32_t index,
                                                                              uint32_t count) {
  return static_cast<p4_pd_status_t>(
      pipe_stful_table_reset_range(sess_hdl, dev_tgt.device_id, dev_tgt.dev_pipe_id, handle, index, count, nullptr));
}

P4_PD_EXPORT p4_pd_status_t p4_pd_corvin_switch_register_write_all_indirect(p4_pd_sess_hdl_t sess_hdl,
                                                                            p4_pd_dev_target_t dev_tgt,
                                                                            uint32_t handle,
                                                                            p4_pd_stful_mem_spec_t *stful_spec) {
  return static_cast<p4_pd_status_t>(
      pipe_stful_table_reset(sess_hdl, dev_tgt.device_id, dev_tgt.dev_pipe_id, handle, stful_spec));
}

}  // extern "C"
