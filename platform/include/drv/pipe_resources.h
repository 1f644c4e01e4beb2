/** @file
 * The driver's stateful resources: counters, meters and WRED, registers (stateful tables), idle
 * time, learning digests, parser value sets and dynamic hashes. Plain C99.
 *
 * Offsets beside record fields are those of the 32-bit x86 target, checked at compile time there.
 * Every function returns BF_SUCCESS or a refusal of drv/bf_types.h, and a refusal changes nothing. */
#ifndef DRV_PIPE_RESOURCES_H
#define DRV_PIPE_RESOURCES_H

#include <stdbool.h>

#include "drv/pipe_mgr.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef uint32_t pipe_stat_tbl_hdl_t;  /**< A counter, by the program's handle. */
typedef uint32_t pipe_meter_tbl_hdl_t; /**< A meter, by the program's handle. */
typedef uint32_t pipe_wred_tbl_hdl_t;  /**< A WRED table, by the program's handle. */
typedef uint32_t pipe_stful_tbl_hdl_t; /**< A register, by the program's handle. */
typedef uint32_t pipe_fld_lst_hdl_t;   /**< A learning digest (its field list), by the program's handle. */
typedef uint32_t pipe_pvs_hdl_t;       /**< A parser value set, by the program's handle. */
typedef uint32_t pipe_hash_calc_hdl_t; /**< A dynamic hash, by the program's handle. */

/** A background refresh of a whole counter or register is done: called once per sync request, on
 * the driver's side, after the request has returned. */
typedef void (*pipe_mgr_sync_cb)(bf_dev_id_t dev_id, void *cookie);

/** @name Counters */
/** @{ */

/** One counter cell. 16 bytes; bytes first. */
typedef struct pipe_stat_data {
  pipe_u64_a4_t bytes;   /**< Offset 0 */
  pipe_u64_a4_t packets; /**< Offset 8 */
} pipe_stat_data_t;

/** Refreshes the copy of one entry's direct counter from the chip. Direct counters: a cell per
 * entry of a match table, addressed by the entry handle. The driver keeps a software copy of every
 * cell; query reads the copy, the syncs refresh it from the chip. */
pipe_status_t pipe_mgr_direct_stat_ent_database_sync(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                                      bf_dev_pipe_t pipe_id, pipe_mat_tbl_hdl_t mat_tbl_hdl,
                                                      pipe_mat_ent_hdl_t ent_hdl);
/** Reads the copy of an entry's direct counter. */
pipe_status_t pipe_mgr_mat_ent_direct_stat_query(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                                 pipe_mat_tbl_hdl_t mat_tbl_hdl, pipe_mat_ent_hdl_t ent_hdl,
                                                 pipe_stat_data_t *stat_data);
/** Writes an entry's direct counter, on the chip and in the copy. */
pipe_status_t pipe_mgr_mat_ent_direct_stat_set(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                               pipe_mat_tbl_hdl_t mat_tbl_hdl, pipe_mat_ent_hdl_t ent_hdl,
                                               pipe_stat_data_t *stat_data);
/** Refreshes the copies of the direct counters of every entry of a table, then calls cb. */
pipe_status_t pipe_mgr_direct_stat_database_sync(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                                 bf_dev_pipe_t pipe_id, pipe_mat_tbl_hdl_t mat_tbl_hdl,
                                                 pipe_mgr_sync_cb cb, void *cookie);

/** Refreshes the copy of one indirect counter cell from the chip. Indirect counters: an array of
 * cells per pipe, addressed by an index. */
pipe_status_t pipe_mgr_stat_ent_database_sync(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, bf_dev_pipe_t pipe_id,
                                              pipe_stat_tbl_hdl_t stat_tbl_hdl, uint32_t index);
/** Fills *stat_data[i] with the cell of indexes[i], for i below num_indexes. */
pipe_status_t pipe_mgr_stat_ent_query(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, bf_dev_pipe_t pipe_id,
                                      pipe_stat_tbl_hdl_t stat_tbl_hdl, uint32_t *indexes, uint32_t num_indexes,
                                      pipe_stat_data_t **stat_data);
/** Writes an indirect counter cell, on the chip and in the copy. */
pipe_status_t pipe_mgr_stat_ent_set(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, bf_dev_pipe_t pipe_id,
                                    pipe_stat_tbl_hdl_t stat_tbl_hdl, uint32_t index, pipe_stat_data_t *stat_data);
/** Refreshes the copies of every cell of an indirect counter, then calls cb. */
pipe_status_t pipe_mgr_stat_database_sync(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, bf_dev_pipe_t pipe_id,
                                          pipe_stat_tbl_hdl_t stat_tbl_hdl, pipe_mgr_sync_cb cb, void *cookie);

/** @} */

/** @name Meters and WRED */
/** @{ */

/** Meter units of pipe_meter_spec_t's cir_unit and pir_unit. */
enum { PIPE_METER_RATE_UNIT_BYTES = 0, PIPE_METER_RATE_UNIT_PACKETS = 1 };

/** Writes an indexed meter cell. */
pipe_status_t pipe_mgr_meter_ent_set(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, bf_dev_pipe_t pipe_id,
                                     pipe_meter_tbl_hdl_t meter_tbl_hdl, uint32_t index,
                                     pipe_meter_spec_t *meter_spec, uint32_t pipe_api_flags);
/** Writes the direct resources of an entry (a direct meter, a direct register cell): each record
 * names its resource in tbl_hdl and carries the cell in data. */
pipe_status_t pipe_mgr_mat_ent_set_resource(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                            pipe_mat_tbl_hdl_t mat_tbl_hdl, pipe_mat_ent_hdl_t ent_hdl,
                                            pipe_res_spec_t *resources, int resource_count,
                                            uint32_t pipe_api_flags);
/** Reads an indexed meter cell as last written. */
pipe_status_t pipe_mgr_meter_read_entry_idx(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, bf_dev_pipe_t pipe_id,
                                            pipe_meter_tbl_hdl_t meter_tbl_hdl, uint32_t index,
                                            pipe_meter_spec_t *meter_spec, bool from_hw);
/** Reads the direct meter of an entry. */
pipe_status_t pipe_mgr_meter_read_entry(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, bf_dev_pipe_t pipe_id,
                                        pipe_mat_tbl_hdl_t mat_tbl_hdl, pipe_mat_ent_hdl_t ent_hdl,
                                        pipe_meter_spec_t *meter_spec);
/** Bytes added to (or, negative, taken from) every packet's length before a byte meter counts it. */
pipe_status_t pipe_mgr_meter_set_bytecount_adjust(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                                  bf_dev_pipe_t pipe_id, pipe_meter_tbl_hdl_t meter_tbl_hdl,
                                                  int32_t bytecount);
/** Reads a meter's byte count adjustment. */
pipe_status_t pipe_mgr_meter_get_bytecount_adjust(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                                  bf_dev_pipe_t pipe_id, pipe_meter_tbl_hdl_t meter_tbl_hdl,
                                                  int32_t *bytecount);

/** A WRED cell: four words whose meaning is the driver's. 16 bytes. */
typedef struct pipe_wred_spec {
  uint32_t time_constant;     /**< Offset 0 */
  uint32_t red_min_threshold; /**< Offset 4 */
  uint32_t red_max_threshold; /**< Offset 8 */
  uint32_t max_probability;   /**< Offset 12 */
} pipe_wred_spec_t;

/** Writes an indexed WRED cell. */
pipe_status_t pipe_mgr_wred_ent_set(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, bf_dev_pipe_t pipe_id,
                                    pipe_wred_tbl_hdl_t wred_tbl_hdl, uint32_t index, pipe_wred_spec_t *wred_spec,
                                    uint32_t pipe_api_flags);

/** @} */

/** @name Registers (stateful tables) */
/** @{ */

/** One register value. 16 bytes; a register of one-bit or one-byte cells uses the first byte. */
typedef struct pipe_stful_mem_spec {
  uint8_t bytes[16]; /**< The value, first byte first. */
} pipe_stful_mem_spec_t;

/** The values of one index: one per pipe instance, pipe_count of them at data. 8 bytes. */
typedef struct pipe_stful_mem_query {
  uint32_t pipe_count;         /**< Offset 0: in, the room at data; out, the values written */
  pipe_stful_mem_spec_t *data; /**< Offset 4 */
} pipe_stful_mem_query_t;

/** Flag of the query functions: read from the chip, not the software copy. */
#define PIPE_FLAG_SYNC_REQ 1u

/** The number of values one index gives: the pipe instances that hold a copy of the register. */
pipe_status_t pipe_stful_query_get_sizes(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                         pipe_stful_tbl_hdl_t stful_tbl_hdl, int *num_pipes);
/** Reads the values of one index into a query record: the chip's with PIPE_FLAG_SYNC_REQ, else the
 * copies. */
pipe_status_t pipe_stful_ent_query(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, bf_dev_pipe_t pipe_id,
                                   pipe_stful_tbl_hdl_t stful_tbl_hdl, uint32_t index,
                                   pipe_stful_mem_query_t *stful_query, uint32_t pipe_api_flags);
/** Reads num_indices_to_read indexes from stful_ent_idx, one query record each, and says how many it
 * read. */
pipe_status_t pipe_stful_ent_query_range(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, bf_dev_pipe_t pipe_id,
                                         pipe_stful_tbl_hdl_t stful_tbl_hdl, uint32_t stful_ent_idx,
                                         uint32_t num_indices_to_read, pipe_stful_mem_query_t *stful_query,
                                         uint32_t *num_indices_read, uint32_t pipe_api_flags);
/** Writes one index of a register, on the chip and in the copy, on the instances named. */
pipe_status_t pipe_stful_ent_set(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, bf_dev_pipe_t pipe_id,
                                 pipe_stful_tbl_hdl_t stful_tbl_hdl, uint32_t index, pipe_stful_mem_spec_t *stful_spec,
                                 uint32_t pipe_api_flags);
/** The register cell of a match entry. */
pipe_status_t pipe_stful_direct_ent_query(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                          pipe_mat_tbl_hdl_t mat_tbl_hdl, pipe_mat_ent_hdl_t ent_hdl,
                                          pipe_stful_mem_query_t *stful_query, uint32_t pipe_api_flags);
/** Refreshes the copies of every index of a register, then calls cb. */
pipe_status_t pipe_stful_database_sync(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, bf_dev_pipe_t pipe_id,
                                       pipe_stful_tbl_hdl_t stful_tbl_hdl, pipe_mgr_sync_cb cb, void *cookie);
/** Refreshes the copies of the direct register of every entry of a table, then calls cb. */
pipe_status_t pipe_stful_direct_database_sync(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, bf_dev_pipe_t pipe_id,
                                              pipe_mat_tbl_hdl_t mat_tbl_hdl, pipe_mgr_sync_cb cb, void *cookie);
/** Sets every cell to *stful_spec, or to the register's reset value for a null stful_spec. */
pipe_status_t pipe_stful_table_reset(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, bf_dev_pipe_t pipe_id,
                                     pipe_stful_tbl_hdl_t stful_tbl_hdl, pipe_stful_mem_spec_t *stful_spec);
/** Sets num_indices cells from stful_ent_idx on to *stful_spec, or to the register's reset value for
 * a null stful_spec. */
pipe_status_t pipe_stful_table_reset_range(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, bf_dev_pipe_t pipe_id,
                                           pipe_stful_tbl_hdl_t stful_tbl_hdl, uint32_t stful_ent_idx,
                                           uint32_t num_indices, pipe_stful_mem_spec_t *stful_spec);

/** @} */

/** @name Idle time */
/** @{ */

/** Idle modes: poll (hit states read on demand) and notify (expiry callbacks). */
enum { PIPE_IDLE_TIME_MODE_POLL = 0, PIPE_IDLE_TIME_MODE_NOTIFY = 1, PIPE_IDLE_TIME_MODE_INVALID = 2 };
/** Hit state of an entry in poll mode. */
enum { PIPE_IDLE_TIME_HIT_STATE_IDLE = 0, PIPE_IDLE_TIME_HIT_STATE_ACTIVE = 1 };

/** An entry's time to live ran out (notify mode). */
typedef void (*pipe_idle_tmo_expiry_cb)(bf_dev_id_t dev_id, pipe_mat_ent_hdl_t ent_hdl, void *cookie);
/** A hit-state update of a whole table is done. */
typedef void (*pipe_idle_tmo_update_complete_cb)(bf_dev_id_t dev_id, void *cookie);

/** A table's idle parameters. 32 bytes. The query interval and the TTLs are in milliseconds. */
typedef struct pipe_idle_time_params {
  uint32_t mode;                       /**< Offset 0 */
  uint32_t ttl_query_interval;         /**< Offset 4 */
  uint32_t max_ttl;                    /**< Offset 8 */
  uint32_t min_ttl;                    /**< Offset 12 */
  pipe_idle_tmo_expiry_cb callback_fn; /**< Offset 16 */
  uint32_t reserved;                   /**< Offset 20: 0 */
  void *client_data;                   /**< Offset 24 */
  uint32_t reserved2;                  /**< Offset 28: 0 */
} pipe_idle_time_params_t;

/** Sets a table's idle parameters, mode and callback included. */
pipe_status_t pipe_mgr_idle_set_params(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_mat_tbl_hdl_t mat_tbl_hdl,
                                       pipe_idle_time_params_t params);
/** Reads a table's idle parameters as set. */
pipe_status_t pipe_mgr_idle_get_params(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_mat_tbl_hdl_t mat_tbl_hdl,
                                       pipe_idle_time_params_t *params);
/** Turns a table's ageing on or off. */
pipe_status_t pipe_mgr_idle_tmo_set_enable(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                           pipe_mat_tbl_hdl_t mat_tbl_hdl, bool enable);
/** Replaces the expiry callback and its cookie of a table's idle parameters. */
pipe_status_t pipe_mgr_idle_register_tmo_cb(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                            pipe_mat_tbl_hdl_t mat_tbl_hdl, pipe_idle_tmo_expiry_cb cb,
                                            void *cookie);
/** Sets an entry's time to live, in milliseconds; with reset, its countdown starts again. */
pipe_status_t pipe_mgr_mat_ent_set_idle_ttl(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                            pipe_mat_tbl_hdl_t mat_tbl_hdl, pipe_mat_ent_hdl_t ent_hdl, uint32_t ttl,
                                            uint32_t pipe_api_flags, bool reset);
/** Writes an entry's remaining time to live, in milliseconds. */
pipe_status_t pipe_mgr_mat_ent_get_idle_ttl(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                            pipe_mat_tbl_hdl_t mat_tbl_hdl, pipe_mat_ent_hdl_t ent_hdl,
                                            uint32_t *ttl);
/** Starts an entry's countdown again. */
pipe_status_t pipe_mgr_mat_ent_reset_idle_ttl(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                              pipe_mat_tbl_hdl_t mat_tbl_hdl, pipe_mat_ent_hdl_t ent_hdl);
/** Copies the chip's hit state of every entry of a table into the driver's copy, clears the chip's,
 * then calls cb. */
pipe_status_t pipe_mgr_idle_time_update_hit_state(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                                  pipe_mat_tbl_hdl_t mat_tbl_hdl,
                                                  pipe_idle_tmo_update_complete_cb cb, void *cookie);
/** Writes an entry's hit state as the driver's copy holds it: PIPE_IDLE_TIME_HIT_STATE_ACTIVE or
 * _IDLE. */
pipe_status_t pipe_mgr_idle_time_get_hit_state(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                               pipe_mat_tbl_hdl_t mat_tbl_hdl, pipe_mat_ent_hdl_t ent_hdl,
                                               uint32_t *hit_state);

/** @} */

/** @name Learning digests */
/** @{ */

/** A batch of learned records of one digest: num_entries packed records of the digest's entry size
 * at entries, without padding, in the field layout of the program. Owned by the driver until
 * acknowledged. */
typedef struct pipe_flow_lrn_msg {
  dev_target_t dev_tgt;                    /**< the device, and the pipe the records were learned on */
  pipe_fld_lst_hdl_t flow_lrn_fld_lst_hdl; /**< the digest */
  uint16_t num_entries;                    /**< the number of records */
  uint16_t entry_size;                     /**< the size of one record in bytes */
  uint8_t *entries;                        /**< the records */
} pipe_flow_lrn_msg_t;

/** Called on the driver's side with each batch; the message stays the driver's until the callback,
 * or later code, passes it to pipe_mgr_flow_lrn_notify_ack. */
typedef pipe_status_t (*pipe_flow_lrn_notify_cb)(pipe_sess_hdl_t sess_hdl, pipe_flow_lrn_msg_t *msg, void *cookie);

/** Registers a digest's callback, its cookie and the session it is called with, on a device. */
pipe_status_t pipe_mgr_lrn_digest_notification_register(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                                        pipe_fld_lst_hdl_t flow_lrn_fld_lst_hdl,
                                                        pipe_flow_lrn_notify_cb cb, void *cookie);
/** Removes a digest's callback on a device. */
pipe_status_t pipe_mgr_lrn_digest_notification_deregister(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                                          pipe_fld_lst_hdl_t flow_lrn_fld_lst_hdl);
/** Gives a delivered message back to the driver, which releases it. */
pipe_status_t pipe_mgr_flow_lrn_notify_ack(pipe_sess_hdl_t sess_hdl, pipe_fld_lst_hdl_t flow_lrn_fld_lst_hdl,
                                           pipe_flow_lrn_msg_t *msg);
/** The longest a learned record waits for its batch, in microseconds, for the whole device. */
pipe_status_t pipe_mgr_flow_lrn_set_timeout(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, uint32_t usecs);

/** @} */

/** @name Parser value sets */
/** @{ */

/** A property value: the value, and a word the driver leaves at 0. 8 bytes. */
typedef struct pipe_mgr_pvs_prop_value {
  uint32_t value;    /**< Offset 0 */
  uint32_t reserved; /**< Offset 4 */
} pipe_mgr_pvs_prop_value_t;

/** A property argument: the argument, and two words the driver does not read. 12 bytes. */
typedef struct pipe_mgr_pvs_prop_args {
  uint32_t value;     /**< Offset 0 */
  uint32_t reserved;  /**< Offset 4 */
  uint32_t reserved2; /**< Offset 8 */
} pipe_mgr_pvs_prop_args_t;

/** Properties and their values. The gress scope says whether the two gresses share one set of
 * entries; the pipe scope whether all pipes do; the parser scope whether all parsers of a pipe do.
 * Property arguments name the gress a pipe or parser scope applies to. */
enum { PIPE_MGR_PVS_PROP_GRESS_SCOPE = 0, PIPE_MGR_PVS_PROP_PIPE_SCOPE = 1, PIPE_MGR_PVS_PROP_PARSER_SCOPE = 2 };
/** The values of a scope property: shared by all, or one set each. */
enum { PIPE_MGR_PVS_SCOPE_ALL = 0, PIPE_MGR_PVS_SCOPE_SINGLE = 1 };
/** The gress of an entry's scope; PIPE_MGR_PVS_GRESS_ALL for both. */
enum { PIPE_MGR_PVS_GRESS_INGRESS = 0, PIPE_MGR_PVS_GRESS_EGRESS = 1, PIPE_MGR_PVS_GRESS_ALL = 0xFF };
/** The parser id of an entry's scope that stands for all parsers. */
#define PIPE_MGR_PVS_PARSER_ALL 0xFFu

/** Keeps a property's value (value.value) for its argument (args.value). */
pipe_status_t pipe_mgr_pvs_set_property(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_pvs_hdl_t pvs_hdl,
                                        uint32_t property, pipe_mgr_pvs_prop_value_t value,
                                        pipe_mgr_pvs_prop_args_t args);
/** Writes the value kept for a property and its argument into value->value. */
pipe_status_t pipe_mgr_pvs_get_property(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_pvs_hdl_t pvs_hdl,
                                        uint32_t property, pipe_mgr_pvs_prop_value_t *value,
                                        pipe_mgr_pvs_prop_args_t args);
/** Adds an entry of a value and a mask under a scope (gress, pipe, parser id) and writes its
 * handle. */
pipe_status_t pipe_mgr_pvs_entry_add(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_pvs_hdl_t pvs_hdl,
                                     uint32_t gress, bf_dev_pipe_t pipe_id, uint32_t parser_id, uint32_t value,
                                     uint32_t mask, uint32_t *entry_hdl);
/** Changes an entry's value and mask; its scope and handle stay. */
pipe_status_t pipe_mgr_pvs_entry_modify(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_pvs_hdl_t pvs_hdl,
                                        uint32_t entry_hdl, uint32_t value, uint32_t mask);
/** Deletes an entry. */
pipe_status_t pipe_mgr_pvs_entry_delete(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_pvs_hdl_t pvs_hdl,
                                        uint32_t entry_hdl);
/** Reads an entry: its value, mask and scope. Any of the five output pointers may be null. */
pipe_status_t pipe_mgr_pvs_entry_get(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_pvs_hdl_t pvs_hdl,
                                     uint32_t entry_hdl, uint32_t *value, uint32_t *mask, uint32_t *gress,
                                     bf_dev_pipe_t *pipe_id, uint32_t *parser_id);
/** Finds the entry of exactly that scope, value and mask and writes its handle. */
pipe_status_t pipe_mgr_pvs_entry_handle_get(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_pvs_hdl_t pvs_hdl,
                                            uint32_t gress, bf_dev_pipe_t pipe_id, uint32_t parser_id,
                                            uint32_t value, uint32_t mask, uint32_t *entry_hdl);
/** Writes the lowest handle of the entries a scope sees: walks in ascending handle. */
pipe_status_t pipe_mgr_pvs_entry_get_first(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_pvs_hdl_t pvs_hdl,
                                           uint32_t gress, bf_dev_pipe_t pipe_id, uint32_t parser_id,
                                           uint32_t *entry_hdl);
/** Writes up to n handles the scope sees after entry_hdl, and 0xFFFFFFFF into the slots after the
 * last one written. */
pipe_status_t pipe_mgr_pvs_entry_get_next(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_pvs_hdl_t pvs_hdl,
                                          uint32_t gress, bf_dev_pipe_t pipe_id, uint32_t parser_id,
                                          uint32_t entry_hdl, int n, uint32_t *next_entry_hdls);
/** Writes the number of entries a scope sees. */
pipe_status_t pipe_mgr_pvs_entry_get_count(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_pvs_hdl_t pvs_hdl,
                                           uint32_t gress, bf_dev_pipe_t pipe_id, uint32_t parser_id,
                                           bool read_from_hw, uint32_t *count);

/** @} */

/** @name Dynamic hashes */
/** @{ */

/** One attribute of an input field of a hash's field list. 24 bytes. */
typedef struct pipe_hash_calc_input_field_attribute {
  uint32_t input_field;  /**< Offset 0: the field's id in the list */
  uint32_t slice_start;  /**< Offset 4: first bit of the field used; 0 for the whole field */
  uint32_t slice_length; /**< Offset 8: bits used; 0 for the whole field */
  uint32_t order;        /**< Offset 12: the field's place in the stream, from 1 */
  uint32_t type;         /**< Offset 16: the kind of attribute */
  uint32_t value;        /**< Offset 20: its value */
} pipe_hash_calc_input_field_attribute_t;

/** Chooses a hash's input field list. */
pipe_status_t pipe_mgr_hash_calc_input_set(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                           pipe_hash_calc_hdl_t handle, uint32_t input_hdl);
/** Writes a hash's input field list in force. */
pipe_status_t pipe_mgr_hash_calc_input_get(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                           pipe_hash_calc_hdl_t handle, uint32_t *input_hdl);
/** The algorithm by handle; algorithm, rotate and seed_bits are the driver's refinements, 0 for the
 * handle's own. */
pipe_status_t pipe_mgr_hash_calc_algorithm_set(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                               pipe_hash_calc_hdl_t handle, uint32_t algo_hdl, const void *algorithm,
                                               uint32_t rotate, uint32_t seed_bits);
/** Writes a hash's algorithm handle, and its refinements where the pointers are not null. */
pipe_status_t pipe_mgr_hash_calc_algorithm_get(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                               pipe_hash_calc_hdl_t handle, uint32_t *algo_hdl, void *algorithm,
                                               uint32_t *rotate);
/** Sets a hash's 64-bit seed. */
pipe_status_t pipe_mgr_hash_calc_seed_set(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_hash_calc_hdl_t handle,
                                          uint64_t seed);
/** Writes a hash's seed. */
pipe_status_t pipe_mgr_hash_calc_seed_get(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_hash_calc_hdl_t handle,
                                          uint64_t *seed);
/** Replaces the attributes of an input; attr_count 0 with a null list clears them. */
pipe_status_t pipe_mgr_hash_calc_input_field_attribute_set(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                                           pipe_hash_calc_hdl_t handle, uint32_t input_hdl,
                                                           uint32_t attr_count,
                                                           pipe_hash_calc_input_field_attribute_t *attr_list);
/** Writes the number of attributes of an input. */
pipe_status_t pipe_mgr_hash_calc_input_field_attribute_count_get(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                                                 pipe_hash_calc_hdl_t handle, uint32_t input_hdl,
                                                                 uint32_t *attr_count);
/** Copies up to max_attr_count attributes of an input and writes how many it copied. */
pipe_status_t pipe_mgr_hash_calc_input_field_attribute_get(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                                           pipe_hash_calc_hdl_t handle, uint32_t input_hdl,
                                                           uint32_t max_attr_count,
                                                           pipe_hash_calc_input_field_attribute_t *attr_list,
                                                           uint32_t *num_attr_filled);
/** The hash of a packed field stream (big-endian, right-aligned) by the hash's algorithm and seed,
 * written big-endian into hash_len bytes. */
pipe_status_t pipe_mgr_hash_calc_calculate_hash_value(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                                      pipe_hash_calc_hdl_t handle, uint8_t *stream,
                                                      uint32_t stream_len, uint8_t *hash, uint32_t hash_len);
/** @} */

#ifdef __cplusplus
}
#endif

#endif
