/** @file
 * The driver model's counters, meters, WRED, registers and idle time. Plain C99.
 *
 * Indirect resources (counters, meters, WRED and registers addressed by an index) are declared to
 * the model before use, with their sizes; the driver refuses an undeclared handle with
 * BF_OBJECT_NOT_FOUND and an index past the last cell with BF_INDEX_OUT_OF_RANGE. Direct resources
 * belong to the entries of a match table: every entry has a counter cell, and a table's direct meter
 * and direct register are declared by naming the table. Idle time works on declared tables only.
 * Declarations hold for every device, until drvm_reset.
 *
 * Indirect counters, meters, WRED cells and byte count adjustments are per pipe; the model has
 * drvm_num_pipes() pipes (4 after drvm_reset). Registers have their own number of pipe instances:
 * pipe p of a request names instance p. A request on pipe 0xFFFF (BF_DEV_PIPE_ALL) names them all.
 *
 * Traffic is the model's to make: the functions below count packets into counters, write register
 * values as the data plane would, and hit idle-time entries. Moving the model's clock
 * (drvm_advance_clock in drv/model.h) ages entries. None of these functions is a driver call: they
 * are not recorded and take no queued refusal. Each returns BF_SUCCESS or a refusal that changes
 * nothing: BF_INVALID_ARG (a null pointer, a bad size, a pipe the resource does not have; 0xFFFF is
 * no single pipe for counter traffic and the views), BF_OBJECT_NOT_FOUND (an undeclared handle, an entry the
 * entry store does not hold), BF_INDEX_OUT_OF_RANGE, BF_ALREADY_EXISTS (a second declaration),
 * BF_NOT_SUPPORTED (idle calls on a table without idle time), BF_NO_SYS_RESOURCES (the model's own
 * memory ran out). See platform/README.md, "Resource cells". */
#ifndef DRV_MODEL_CELLS_H
#define DRV_MODEL_CELLS_H

#include "drv/model.h"

#ifdef __cplusplus
extern "C" {
#endif

/** @name Pipes */
/** @{ */

/** The number of pipes of every device, 1 to 64. BF_IN_USE once a counter, meter, WRED cell or byte
 * count adjustment was written (set it right after drvm_reset). */
bf_status_t drvm_set_num_pipes(uint32_t num_pipes);
/** The number of pipes of every device: 4 after drvm_reset. */
uint32_t drvm_num_pipes(void);

/** @} */

/** @name Declarations */
/** @{ */

/** An indirect counter of num_cells cells per pipe (at least 1). Cells start at zero. */
bf_status_t drvm_declare_counter(uint32_t stat_tbl_hdl, uint32_t num_cells);
/** An indirect meter of num_cells cells per pipe (at least 1). Cells start at zero. */
bf_status_t drvm_declare_meter(uint32_t meter_tbl_hdl, uint32_t num_cells);
/** A WRED table of num_cells cells per pipe (at least 1). Cells start at zero. */
bf_status_t drvm_declare_wred(uint32_t wred_tbl_hdl, uint32_t num_cells);
/** The direct meter of a match table: the resource handle that names it in the entries' resource
 * records (pipe_mgr_mat_ent_set_resource, and the action records of adds and changes), and that
 * byte count adjustment takes. One per table. */
bf_status_t drvm_declare_direct_meter(uint32_t mat_tbl_hdl, uint32_t meter_tbl_hdl);
/** An indirect register: num_cells indexes, each with num_pipe_instances values (1 to 64) of
 * cell_bytes bytes (1 to 16: the first bytes of the 16-byte cell record; the others read as 0). Its
 * cells start at the reset value, the first cell_bytes bytes of *reset_value (null: 0), which a
 * reset of the driver's with a null record also writes. */
bf_status_t drvm_declare_register(uint32_t stful_tbl_hdl, uint32_t num_cells, uint32_t num_pipe_instances,
                                  uint32_t cell_bytes, const pipe_stful_mem_spec_t *reset_value);
/** The direct register of a match table: stful_tbl_hdl names it in the entries' resource records (it
 * may be the table's own handle); each entry has num_pipe_instances values of cell_bytes bytes,
 * starting at 0. One per table. */
bf_status_t drvm_declare_direct_register(uint32_t mat_tbl_hdl, uint32_t stful_tbl_hdl, uint32_t num_pipe_instances,
                                         uint32_t cell_bytes);
/** A match table with idle time. Its entries added after this have an idle record from their add on;
 * entries present before get theirs at the table's first idle call or add on their device. */
bf_status_t drvm_declare_idle_table(uint32_t mat_tbl_hdl);

/** @} */

/** @name Traffic */
/** @{ */

/** Adds to the hardware value of an indirect counter cell of one pipe. Queries see it only after a
 * sync. */
bf_status_t drvm_stat_count(bf_dev_id_t dev, bf_dev_pipe_t pipe, uint32_t stat_tbl_hdl, uint32_t index,
                            uint64_t packets, uint64_t bytes);
/** Adds to the hardware value of an entry's direct counter. Queries see it only after a sync. */
bf_status_t drvm_stat_direct_count(bf_dev_id_t dev, uint32_t mat_tbl_hdl, uint32_t ent_hdl, uint64_t packets,
                                   uint64_t bytes);
/** Writes the hardware value of an index of an indirect register in one instance, or in all for
 * pipe 0xFFFF (cut to the register's width). */
bf_status_t drvm_register_hw_write(bf_dev_id_t dev, bf_dev_pipe_t pipe, uint32_t stful_tbl_hdl, uint32_t index,
                                   const pipe_stful_mem_spec_t *value);
/** Writes the hardware value of an entry's direct register in one instance, or in all for pipe
 * 0xFFFF (cut to the register's width). */
bf_status_t drvm_register_direct_hw_write(bf_dev_id_t dev, uint32_t mat_tbl_hdl, uint32_t ent_hdl, bf_dev_pipe_t pipe,
                                          const pipe_stful_mem_spec_t *value);
/** A packet hits an entry of a table with idle time: its hardware hit state becomes active (poll
 * mode), its time to live starts again and it may expire again (notify mode). */
bf_status_t drvm_idle_hit(bf_dev_id_t dev, uint32_t mat_tbl_hdl, uint32_t ent_hdl);

/** @} */

/** @name Views
 * What the model holds, without any effect. Any output pointer may be null. */
/** @{ */

/** A counter cell of one pipe: the hardware value and the driver's copy. */
bf_status_t drvm_stat_get(bf_dev_id_t dev, bf_dev_pipe_t pipe, uint32_t stat_tbl_hdl, uint32_t index,
                          pipe_stat_data_t *hw, pipe_stat_data_t *sw);
/** An entry's direct counter: the hardware value and the driver's copy. */
bf_status_t drvm_stat_direct_get(bf_dev_id_t dev, uint32_t mat_tbl_hdl, uint32_t ent_hdl, pipe_stat_data_t *hw,
                                 pipe_stat_data_t *sw);
/** A meter cell of one pipe, as last written. */
bf_status_t drvm_meter_get(bf_dev_id_t dev, bf_dev_pipe_t pipe, uint32_t meter_tbl_hdl, uint32_t index,
                           pipe_meter_spec_t *spec);
/** A WRED cell of one pipe, as last written. */
bf_status_t drvm_wred_get(bf_dev_id_t dev, bf_dev_pipe_t pipe, uint32_t wred_tbl_hdl, uint32_t index,
                          pipe_wred_spec_t *spec);
/** The byte count adjustment of a meter (indirect, or a direct meter's resource handle) on one pipe. */
bf_status_t drvm_meter_bytecount_adjust(bf_dev_id_t dev, bf_dev_pipe_t pipe, uint32_t meter_tbl_hdl,
                                        int32_t *bytecount);
/** A register cell of one instance (pipe): hardware value and copy. */
bf_status_t drvm_register_get(bf_dev_id_t dev, bf_dev_pipe_t pipe, uint32_t stful_tbl_hdl, uint32_t index,
                              pipe_stful_mem_spec_t *hw, pipe_stful_mem_spec_t *sw);
/** An entry's direct register in one instance (pipe): hardware value and copy. */
bf_status_t drvm_register_direct_get(bf_dev_id_t dev, uint32_t mat_tbl_hdl, uint32_t ent_hdl, bf_dev_pipe_t pipe,
                                     pipe_stful_mem_spec_t *hw, pipe_stful_mem_spec_t *sw);
/** The 44 data bytes last written to a resource of an entry (by pipe_mgr_mat_ent_set_resource, or by
 * the action record of an add or change for the table's declared direct meter) into data[44].
 * BF_OBJECT_NOT_FOUND if none was. */
bf_status_t drvm_entry_resource_get(bf_dev_id_t dev, uint32_t mat_tbl_hdl, uint32_t ent_hdl, uint32_t res_hdl,
                                    uint8_t *data);
/** The number of entries the model keeps direct cells for (entries whose counter, resources or direct
 * register were written). Cells go with their entry's delete. */
size_t drvm_direct_cell_count(void);
/** A table's idle state on a device: its parameters as set (with the callback of the latest
 * registration) and whether it is enabled. All zero before any idle call. */
bf_status_t drvm_idle_table_get(bf_dev_id_t dev, uint32_t mat_tbl_hdl, pipe_idle_time_params_t *params,
                                int *enabled);
/** An entry's idle state: the remaining time to live in milliseconds (rounded up; 0 once expired or
 * for a TTL of 0), whether its expiry was reported since its last restart, and its hit state in the
 * hardware and in the driver's copy (PIPE_IDLE_TIME_HIT_STATE_ACTIVE or _IDLE). */
bf_status_t drvm_idle_entry_get(bf_dev_id_t dev, uint32_t mat_tbl_hdl, uint32_t ent_hdl, uint32_t *remaining_ms,
                                int *expired, uint32_t *hw_hit_state, uint32_t *sw_hit_state);
/** @} */

#ifdef __cplusplus
}
#endif

#endif
