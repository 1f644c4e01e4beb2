/** @file
 * Types shared by every exported function of libcv_bf_pd_qent_tofino2. Plain C99; valid C++.
 *
 * The caller's side of the library speaks in host order: key records, parameter records and meter
 * specs below hold plain integers. */
#ifndef CORVIN_SWITCH_PD_TYPES_H
#define CORVIN_SWITCH_PD_TYPES_H

#include <stdint.h>

#include "drv/bf_snapshot.h"
#include "drv/pipe_mgr.h"
#include "drv/pipe_resources.h"

#ifdef __cplusplus
extern "C" {
#endif

/** @def P4_PD_EXPORT
 * Marks a declaration as one of the library's exports: default visibility, the library's symbols
 * being hidden otherwise. */
#if defined(__GNUC__)
#define P4_PD_EXPORT __attribute__((visibility("default")))
#else
#define P4_PD_EXPORT
#endif

/** 0 for success, a driver status unchanged, or one of the library's own few values. */
typedef uint32_t p4_pd_status_t;
/** A session with the driver, obtained by the caller. */
typedef uint32_t p4_pd_sess_hdl_t;
/** Entry, member and group handles are issued by the driver and never interpreted here. */
typedef uint32_t p4_pd_entry_hdl_t;
typedef uint32_t p4_pd_mbr_hdl_t; /**< A member of an action profile, issued by the driver. */
typedef uint32_t p4_pd_grp_hdl_t; /**< A selector group of an action profile, issued by the driver. */

/** A device and a pipe on it, passed by value; pipe 0xFFFF means all pipes. */
typedef struct p4_pd_dev_target {
  uint32_t device_id;   /**< The device. */
  uint32_t dev_pipe_id; /**< The pipe, or PD_DEV_PIPE_ALL. */
} p4_pd_dev_target_t;

/** The pipe of a target that stands for all pipes of the device. */
#define PD_DEV_PIPE_ALL 0xFFFFu

/** Requested meter type of a meter spec. */
typedef enum p4_pd_meter_type {
  PD_METER_TYPE_COLOR_AWARE = 0,  /**< the meter takes the packet's colour into account */
  PD_METER_TYPE_COLOR_UNAWARE = 1 /**< the meter colours every packet afresh */
} p4_pd_meter_type_t;

/** The caller's meter spec: rates and bursts in the driver's units. */
typedef struct p4_pd_meter_spec {
  uint32_t cir;        /**< committed information rate */
  uint32_t cburst;     /**< committed burst size */
  uint32_t pir;        /**< peak information rate */
  uint32_t pburst;     /**< peak burst size */
  uint32_t meter_type; /**< a p4_pd_meter_type_t */
} p4_pd_meter_spec_t;

/** One resource of a read-back entry that its action uses, and the index it uses. */
typedef struct p4_pd_res_spec {
  uint32_t tbl_hdl; /**< the resource's handle */
  uint32_t tbl_idx; /**< the index the action uses */
} p4_pd_res_spec_t;

/** Table property codes and values are the driver's own words, passed through unchanged. */
typedef uint32_t p4_pd_tbl_prop_type_t;
typedef uint32_t p4_pd_tbl_prop_value_t; /**< A table property's value. */
typedef uint32_t p4_pd_tbl_prop_args_t;  /**< A table property's argument word. */

/** Called by the driver when an entry of the table changes; registered per device and table. */
typedef pipe_mat_update_cb p4_pd_mat_update_cb;

/** Whether a member of a selector group takes part in selection: an unsigned 32-bit word holding one
 * of the two values below. A word, not a C enum type, so that any value a caller passes is a value
 * of the type, in C and in C++ alike. */
typedef uint32_t p4_pd_grp_mbr_state_e;
/** The two states of a group member. */
enum {
  P4_PD_GRP_MBR_STATE_ACTIVE = 0,  /**< takes part in selection */
  P4_PD_GRP_MBR_STATE_INACTIVE = 1 /**< stays in the group, left out of selection */
};

/** Called by the driver when a member joins or leaves a group of a profile's selector. */
typedef pipe_sel_tbl_update_cb p4_pd_sel_tbl_update_cb;
/** Called by the driver when a member of a profile is added, changed or deleted. */
typedef pipe_adt_update_cb p4_pd_adt_update_cb;
/** Called by the driver when a group of a profile's selector, or its membership, changes. */
typedef pipe_sel_update_cb p4_pd_sel_update_cb;

/** @name Counters, meters, WRED and registers */
/** @{ */

/** A counter cell as the caller sees it. */
typedef struct p4_pd_counter_value {
  uint64_t packets; /**< packets counted */
  uint64_t bytes;   /**< bytes counted */
} p4_pd_counter_value_t;

/** Bit 0 of a read's flags: refresh the cell from the hardware before reading it. Other bits are
 * ignored. */
#define COUNTER_READ_HW_SYNC 1u
/** Bit 0 of a register read's flags: read the hardware's values, not the driver's copies. Other
 * bits are ignored. */
#define REGISTER_READ_HW_SYNC 1u

/** Called by the driver when a background refresh of a whole counter is done. */
typedef pipe_mgr_sync_cb p4_pd_stat_sync_cb;
/** Called by the driver when a background refresh of a whole register is done. */
typedef pipe_mgr_sync_cb p4_pd_register_sync_cb;

/** A WRED cell: four words the library moves unchanged; their meaning is the driver's. */
typedef struct p4_pd_wred_spec {
  uint32_t time_constant;     /**< first word */
  uint32_t red_min_threshold; /**< second word */
  uint32_t red_max_threshold; /**< third word */
  uint32_t max_probability;   /**< fourth word */
} p4_pd_wred_spec_t;

/** The driver's register value, for the functions that take a register by handle. */
typedef pipe_stful_mem_spec_t p4_pd_stful_mem_spec_t;
/** The driver's register query record, for the functions that take a register by handle. */
typedef pipe_stful_mem_query_t p4_pd_stful_mem_query_t;

/** @} */

/** @name Idle time */
/** @{ */

/** Called by the driver when an entry's time to live runs out (notify mode). */
typedef pipe_idle_tmo_expiry_cb p4_pd_idle_tmo_expiry_cb;
/** Called by the driver when a hit-state update of a whole table is done. */
typedef pipe_idle_tmo_update_complete_cb p4_pd_idle_tmo_update_complete_cb;

/** Idle modes: poll (hit state read on demand) and notify (expiry callback). */
enum { PD_IDLE_TIME_MODE_POLL = 0, PD_IDLE_TIME_MODE_NOTIFY = 1 };

/** A table's idle parameters. In notify mode all the words count; in another only the mode. */
typedef struct p4_pd_idle_time_params {
  uint32_t mode;                     /**< PD_IDLE_TIME_MODE_POLL or _NOTIFY */
  uint32_t ttl_query_interval;       /**< milliseconds between the driver's looks at the entries */
  uint32_t max_ttl;                  /**< the longest time to live, in milliseconds */
  uint32_t min_ttl;                  /**< the shortest time to live, in milliseconds */
  p4_pd_idle_tmo_expiry_cb callback; /**< called for each entry whose time to live runs out */
  void *cookie;                      /**< passed to the callback */
  uint8_t flag; /**< not passed to the driver; cleared by a read in notify mode */
} p4_pd_idle_time_params_t;

/** An entry's hit state: one of the driver's PIPE_IDLE_TIME_HIT_STATE_* words. */
typedef uint32_t p4_pd_idle_time_hit_state_e;

/** @} */

/** @name Learning digests */
/** @{ */

/** A batch of digest records, as the driver delivers it and takes it back on acknowledgement. */
typedef pipe_flow_lrn_msg_t p4_pd_digest_msg_t;
/** Called by the driver with each batch of a digest's records. */
typedef pipe_flow_lrn_notify_cb p4_pd_digest_notify_cb;

/** @} */

/** @name Parser value sets */
/** @{ */

/** Properties, values and gresses of the value-set functions: the driver's own numbers. */
typedef uint32_t p4_pd_pvs_prop_type_t;
typedef uint32_t p4_pd_pvs_prop_value_t; /**< A value-set property's value. */
typedef uint32_t p4_pd_pvs_prop_args_t;  /**< A value-set property's argument: the gress it applies to. */
typedef uint32_t p4_pd_pvs_gress_t;      /**< The gress of an entry's scope. */
/** The value-set properties: gress, pipe and parser scope. */
enum { PD_PVS_GRESS_SCOPE = 0, PD_PVS_PIPE_SCOPE = 1, PD_PVS_PARSER_SCOPE = 2 };
/** The values of a scope property: shared by all, or one set each. */
enum { PD_PVS_SCOPE_ALL = 0, PD_PVS_SCOPE_SINGLE = 1 };
/** The gresses; PD_PVS_GRESS_ALL for both. */
enum { PD_PVS_GRESS_INGRESS = 0, PD_PVS_GRESS_EGRESS = 1, PD_PVS_GRESS_ALL = 0xFF };
/** The parser id of an entry's scope that stands for all parsers. */
#define PD_PVS_PARSER_ALL 0xFFu
/** A value-set entry, issued by the driver. */
typedef uint32_t p4_pd_pvs_hdl_t;

/** @} */

/** @name Dynamic hashes */
/** @{ */

/** The caller's choice of a hash's input field list and of its algorithm: each hash has one of
 * each, enumerator 0. */
typedef uint32_t p4_pd_hash_calc_input_t;
typedef uint32_t p4_pd_hash_calc_algorithm_t; /**< The caller's choice of a hash's algorithm. */
/** A hash's one input field list. */
enum { PD_HASH_CALC_INPUT_FIELD_LIST = 0 };
/** A hash's one algorithm. */
enum { PD_HASH_CALC_ALGORITHM = 0 };

/** One attribute of an input field; for a hash calculation, one field with its value: the value
 * itself for a field of up to 32 bits, else a big-endian byte string of (width + 7) / 8 bytes. */
typedef struct p4_pd_hash_calc_input_field_attribute {
  uint32_t input_field; /**< the field's place in the field list, from 0 */
  uint32_t type;        /**< the kind of attribute */
  union {
    uint32_t val;     /**< a value of up to 32 bits */
    uint8_t *stream;  /**< a wider value, big-endian */
  } value;            /**< the attribute's value */
} p4_pd_hash_calc_input_field_attribute_t;

/** @} */

/** @name Snapshots */
/** @{ */

/** A snapshot, issued by the driver; bit 1 is set for an egress one. */
typedef pipe_snapshot_hdl_t p4_pd_snapshot_hdl_t;
/** A snapshot's direction: PD_SNAPSHOT_DIR_INGRESS or _EGRESS. */
typedef uint32_t p4_pd_snapshot_dir_t;
/** The two directions of a snapshot. */
enum { PD_SNAPSHOT_DIR_INGRESS = 0, PD_SNAPSHOT_DIR_EGRESS = 1 };
/** What the driver says of each captured stage. */
typedef bf_snapshot_capture_ctrl_info_arr_t p4_pd_snapshot_capture_ctrl_info_arr_t;
/** @} */

#ifdef __cplusplus
}
#endif

#endif
