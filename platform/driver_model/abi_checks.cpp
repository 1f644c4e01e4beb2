// Compile-time checks of the driver records against the target ABI (32-bit x86 Linux), where
// pointers are 4 bytes and 64-bit fields are 4-byte aligned. On other hosts the records hold the
// same fields, at offsets of that host.
#include <cstddef>

#include "drv/bf_drv.h"
#include "drv/bf_snapshot.h"
#include "drv/pipe_mgr.h"
#include "drv/pipe_resources.h"

#if defined(__i386__)

#define CV_AT(type, field, off) static_assert(offsetof(type, field) == (off), #type "." #field)

static_assert(sizeof(pipe_tbl_match_spec_t) == 24, "match record size");
CV_AT(pipe_tbl_match_spec_t, match_value_bytes, 0);
CV_AT(pipe_tbl_match_spec_t, match_mask_bytes, 4);
CV_AT(pipe_tbl_match_spec_t, partition_index, 8);
CV_AT(pipe_tbl_match_spec_t, priority, 12);
CV_AT(pipe_tbl_match_spec_t, num_valid_match_bits, 16);
CV_AT(pipe_tbl_match_spec_t, num_match_bytes, 18);
CV_AT(pipe_tbl_match_spec_t, reserved, 20);

static_assert(sizeof(pipe_action_spec_t) == 244, "action record size");
CV_AT(pipe_action_spec_t, action_data_type, 0);
CV_AT(pipe_action_spec_t, resource_count, 1);
CV_AT(pipe_action_spec_t, act_data.num_valid_action_data_bits, 4);
CV_AT(pipe_action_spec_t, act_data.num_action_data_bytes, 6);
CV_AT(pipe_action_spec_t, act_data.action_data_bytes, 8);
CV_AT(pipe_action_spec_t, member_hdl, 12);
CV_AT(pipe_action_spec_t, group_hdl, 16);
CV_AT(pipe_action_spec_t, resources, 20);

static_assert(sizeof(pipe_res_spec_t) == 56, "resource record size");
CV_AT(pipe_res_spec_t, tbl_hdl, 0);
CV_AT(pipe_res_spec_t, tbl_idx, 4);
CV_AT(pipe_res_spec_t, data, 8);
CV_AT(pipe_res_spec_t, data.meter.meter_type, 8);
CV_AT(pipe_res_spec_t, data.meter.cir_unit, 12);
CV_AT(pipe_res_spec_t, data.meter.cir, 16);
CV_AT(pipe_res_spec_t, data.meter.cburst, 24);
CV_AT(pipe_res_spec_t, data.meter.pir_unit, 32);
CV_AT(pipe_res_spec_t, data.meter.pir, 36);
CV_AT(pipe_res_spec_t, data.meter.pburst, 44);
CV_AT(pipe_res_spec_t, tag, 52);

static_assert(sizeof(pipe_meter_spec_t) == 44, "meter record size");
static_assert(sizeof(bf_drv_client_callbacks_t) == 31 * 4, "callback table size");
static_assert(sizeof(dev_target_t) == 8, "device target size");

static_assert(sizeof(pipe_stat_data_t) == 16, "counter record size");
CV_AT(pipe_stat_data_t, bytes, 0);
CV_AT(pipe_stat_data_t, packets, 8);

CV_AT(pipe_meter_spec_t, meter_type, 0);
CV_AT(pipe_meter_spec_t, cir_unit, 4);
CV_AT(pipe_meter_spec_t, cir, 8);
CV_AT(pipe_meter_spec_t, cburst, 16);
CV_AT(pipe_meter_spec_t, pir_unit, 24);
CV_AT(pipe_meter_spec_t, pir, 28);
CV_AT(pipe_meter_spec_t, pburst, 36);

static_assert(sizeof(pipe_wred_spec_t) == 16, "WRED record size");
static_assert(sizeof(pipe_stful_mem_spec_t) == 16, "register cell record size");
static_assert(sizeof(pipe_stful_mem_query_t) == 8, "register query record size");
CV_AT(pipe_stful_mem_query_t, pipe_count, 0);
CV_AT(pipe_stful_mem_query_t, data, 4);

static_assert(sizeof(pipe_idle_time_params_t) == 32, "idle parameters size");
CV_AT(pipe_idle_time_params_t, mode, 0);
CV_AT(pipe_idle_time_params_t, ttl_query_interval, 4);
CV_AT(pipe_idle_time_params_t, max_ttl, 8);
CV_AT(pipe_idle_time_params_t, min_ttl, 12);
CV_AT(pipe_idle_time_params_t, callback_fn, 16);
CV_AT(pipe_idle_time_params_t, reserved, 20);
CV_AT(pipe_idle_time_params_t, client_data, 24);
CV_AT(pipe_idle_time_params_t, reserved2, 28);

static_assert(sizeof(pipe_mgr_pvs_prop_value_t) == 8, "value set property value size");
static_assert(sizeof(pipe_mgr_pvs_prop_args_t) == 12, "value set property argument size");

static_assert(sizeof(pipe_hash_calc_input_field_attribute_t) == 24, "hash field attribute size");
CV_AT(pipe_hash_calc_input_field_attribute_t, input_field, 0);
CV_AT(pipe_hash_calc_input_field_attribute_t, order, 12);
CV_AT(pipe_hash_calc_input_field_attribute_t, type, 16);
CV_AT(pipe_hash_calc_input_field_attribute_t, value, 20);

#undef CV_AT

#endif
