/** @file
 * The resource functions that take a handle as an argument, for callers that work with the
 * driver's handles, and the program-wide ones: learning timeout, digest reflection, snapshots.
 * Plain C99; valid C++. Included by corvin_switch/pd.h. */
#ifndef CORVIN_SWITCH_PD_GENERIC_H
#define CORVIN_SWITCH_PD_GENERIC_H

#include "corvin_switch/pd_types.h"
#include "corvin_switch/pd_resources.h" /* generated: the snapshot records */

#ifdef __cplusplus
extern "C" {
#endif

/** @name Registers by handle: the driver's records, passed on without a look */
/** @{ */

/** The register cell of a match entry. The pipe of dev_tgt is not passed on. */
P4_PD_EXPORT p4_pd_status_t p4_pd_corvin_switch_register_read_direct(p4_pd_sess_hdl_t sess_hdl,
                                                                     p4_pd_dev_target_t dev_tgt, uint32_t tbl_hdl,
                                                                     p4_pd_entry_hdl_t entry_hdl, uint32_t flags,
                                                                     p4_pd_stful_mem_query_t *stful_query);
/** Writes the 16 bytes at data as the entry's register cell: a resource record whose handle is
 * `handle`, on the table `handle`. Only the low 8 bits of the device id count. */
P4_PD_EXPORT p4_pd_status_t p4_pd_corvin_switch_register_write_direct(p4_pd_sess_hdl_t sess_hdl, uint8_t dev_id,
                                                                      uint32_t handle, p4_pd_entry_hdl_t entry_hdl,
                                                                      uint8_t *data);
/** Reads one index of a register into the driver's query record: the hardware's values when bit 0
 * of flags is set, else the driver's copies. */
P4_PD_EXPORT p4_pd_status_t p4_pd_corvin_switch_register_read_indirect(p4_pd_sess_hdl_t sess_hdl,
                                                                       p4_pd_dev_target_t dev_tgt, uint32_t handle,
                                                                       uint32_t index, uint32_t flags,
                                                                       p4_pd_stful_mem_query_t *stful_query);
/** Writes one index of a register to *stful_spec. */
P4_PD_EXPORT p4_pd_status_t p4_pd_corvin_switch_register_write_indirect(p4_pd_sess_hdl_t sess_hdl,
                                                                        p4_pd_dev_target_t dev_tgt, uint32_t handle,
                                                                        uint32_t index,
                                                                        p4_pd_stful_mem_spec_t *stful_spec);
/** Refreshes the driver's copies of the direct register of every entry of the table `handle`, then
 * the driver calls cb. */
P4_PD_EXPORT p4_pd_status_t p4_pd_corvin_switch_register_hw_sync_direct(p4_pd_sess_hdl_t sess_hdl,
                                                                        p4_pd_dev_target_t dev_tgt, uint32_t handle,
                                                                        p4_pd_register_sync_cb cb, void *cookie);
/** Refreshes the driver's copies of every index of a register, then the driver calls cb. */
P4_PD_EXPORT p4_pd_status_t p4_pd_corvin_switch_register_hw_sync_indirect(p4_pd_sess_hdl_t sess_hdl,
                                                                          p4_pd_dev_target_t dev_tgt, uint32_t handle,
                                                                          p4_pd_register_sync_cb cb, void *cookie);
/** Every cell to the driver's reset value. */
P4_PD_EXPORT p4_pd_status_t p4_pd_corvin_switch_register_reset_all_indirect(p4_pd_sess_hdl_t sess_hdl,
                                                                            p4_pd_dev_target_t dev_tgt,
                                                                            uint32_t handle);
/** Sets count cells from index on to the driver's reset value. */
P4_PD_EXPORT p4_pd_status_t p4_pd_corvin_switch_register_range_reset_indirect(p4_pd_sess_hdl_t sess_hdl,
                                                                              p4_pd_dev_target_t dev_tgt,
                                                                              uint32_t handle, uint32_t index,
                                                                              uint32_t count);
/** Every cell to *stful_spec. */
P4_PD_EXPORT p4_pd_status_t p4_pd_corvin_switch_register_write_all_indirect(p4_pd_sess_hdl_t sess_hdl,
                                                                            p4_pd_dev_target_t dev_tgt,
                                                                            uint32_t handle,
                                                                            p4_pd_stful_mem_spec_t *stful_spec);

/** @} */

/** @name Meters and WRED by handle */
/** @{ */

/** Sets an indexed meter cell in packets or in bytes. A colour-aware type needs has_pre_color; a
 * type other than PD_METER_TYPE_COLOR_AWARE or PD_METER_TYPE_COLOR_UNAWARE, or colour-aware
 * without pre-colouring, ends the process. Without pre-colouring the meter is colour-unaware. */
P4_PD_EXPORT p4_pd_status_t p4_pd_corvin_switch_packets_meter_set(p4_pd_sess_hdl_t sess_hdl,
                                                                  p4_pd_dev_target_t dev_tgt, uint32_t meter_handle,
                                                                  uint32_t index, p4_pd_meter_spec_t *meter_spec,
                                                                  uint8_t has_pre_color);
/** As p4_pd_corvin_switch_packets_meter_set, for a meter in bytes. */
P4_PD_EXPORT p4_pd_status_t p4_pd_corvin_switch_bytes_meter_set(p4_pd_sess_hdl_t sess_hdl, p4_pd_dev_target_t dev_tgt,
                                                                uint32_t meter_handle, uint32_t index,
                                                                p4_pd_meter_spec_t *meter_spec, uint8_t has_pre_color);
/** Reads an indexed meter cell: the numbers' low 32 bits and the driver's type word. */
P4_PD_EXPORT p4_pd_status_t p4_pd_corvin_switch_packets_meter_read(p4_pd_sess_hdl_t sess_hdl,
                                                                   p4_pd_dev_target_t dev_tgt, uint32_t meter_handle,
                                                                   uint32_t index, p4_pd_meter_spec_t *meter_spec);
/** As p4_pd_corvin_switch_packets_meter_read, for a meter in bytes. */
P4_PD_EXPORT p4_pd_status_t p4_pd_corvin_switch_bytes_meter_read(p4_pd_sess_hdl_t sess_hdl,
                                                                 p4_pd_dev_target_t dev_tgt, uint32_t meter_handle,
                                                                 uint32_t index, p4_pd_meter_spec_t *meter_spec);
/** Writes an indexed WRED cell: the four words, in their order. */
P4_PD_EXPORT p4_pd_status_t p4_pd_corvin_switch_wred_set(p4_pd_sess_hdl_t sess_hdl, p4_pd_dev_target_t dev_tgt,
                                                         uint32_t handle, uint32_t index,
                                                         p4_pd_wred_spec_t *wred_spec);

/** @} */

/** @name Learning */
/** @{ */

/** The longest a learned record waits for its batch, for the whole device; the unit is the
 * driver's. */
P4_PD_EXPORT p4_pd_status_t p4_pd_corvin_switch_set_learning_timeout(p4_pd_sess_hdl_t sess_hdl, uint8_t dev_id,
                                                                     uint32_t timeout);
/** The address of a field in a digest record, by the digest's and the field's names, and its
 * length in bytes through len. An unknown digest or field ends the process. */
P4_PD_EXPORT uint8_t *p4_pd_corvin_switch_get_digest_entry_field(void *entry, const char *digest_name,
                                                                 const char *field_name, uint32_t *len);
/** The size of a digest's record in bytes; 0 for an unknown name. */
P4_PD_EXPORT uint32_t p4_pd_corvin_switch_get_digest_entry_size(const char *digest_name);

/** @} */

/** @name Snapshots */
/** @{ */

/** Creates a snapshot of stages start_stage to end_stage of dev_tgt in one direction
 * (PD_SNAPSHOT_DIR_INGRESS or PD_SNAPSHOT_DIR_EGRESS). */
P4_PD_EXPORT p4_pd_status_t p4_pd_corvin_switch_snapshot_create(p4_pd_dev_target_t dev_tgt, uint8_t start_stage,
                                                                uint8_t end_stage, p4_pd_snapshot_dir_t direction,
                                                                p4_pd_snapshot_hdl_t *hdl);
/** Deletes a snapshot. */
P4_PD_EXPORT p4_pd_status_t p4_pd_corvin_switch_snapshot_delete(p4_pd_snapshot_hdl_t hdl);
/** Sets the trigger: a value and a mask in the snapshot direction's form, multi-byte fields in host
 * order. The caller's records are not changed. */
P4_PD_EXPORT p4_pd_status_t p4_pd_corvin_switch_snapshot_capture_trigger_set(
    p4_pd_snapshot_hdl_t hdl, p4_pd_corvin_switch_snapshot_trig_spec_t *trig_spec,
    p4_pd_corvin_switch_snapshot_trig_spec_t *trig_mask);
/** Copies the captured stages, at most the number of stages the chip has, as the driver gave them,
 * and writes the number of captures. Returns the driver's status of the capture, or 2 without
 * memory for it. */
P4_PD_EXPORT p4_pd_status_t p4_pd_corvin_switch_snapshot_capture_data_get(
    p4_pd_snapshot_hdl_t hdl, uint32_t pipe_id, p4_pd_corvin_switch_snapshot_capture_arr_t *capture,
    p4_pd_snapshot_capture_ctrl_info_arr_t *capture_ctrl_arr, int *num_captures);
/** @} */

#ifdef __cplusplus
}
#endif

#endif
