/* Types shared by every exported function of libcv_bf_pd_qent_tofino2. Plain C99; valid C++.
 *
 * The caller's side of the library speaks in host order: key records, parameter records and meter
 * specs below hold plain integers. */
#ifndef CORVIN_SWITCH_PD_TYPES_H
#define CORVIN_SWITCH_PD_TYPES_H

#include <stdint.h>

#include "drv/pipe_mgr.h"

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define P4_PD_EXPORT __attribute__((visibility("default")))
#else
#define P4_PD_EXPORT
#endif

/* 0 for success, a driver status unchanged, or one of the library's own few values. */
typedef uint32_t p4_pd_status_t;
/* A session with the driver, obtained by the caller. */
typedef uint32_t p4_pd_sess_hdl_t;
/* Entry, member and group handles are issued by the driver and never interpreted here. */
typedef uint32_t p4_pd_entry_hdl_t;
typedef uint32_t p4_pd_mbr_hdl_t;
typedef uint32_t p4_pd_grp_hdl_t;

/* A device and a pipe on it, passed by value; pipe 0xFFFF means all pipes. */
typedef struct p4_pd_dev_target {
  uint32_t device_id;
  uint32_t dev_pipe_id;
} p4_pd_dev_target_t;

#define PD_DEV_PIPE_ALL 0xFFFFu

/* Requested meter type of a meter spec. */
typedef enum p4_pd_meter_type {
  PD_METER_TYPE_COLOR_AWARE = 0,
  PD_METER_TYPE_COLOR_UNAWARE = 1
} p4_pd_meter_type_t;

/* The caller's meter spec: rates and bursts in the driver's units. */
typedef struct p4_pd_meter_spec {
  uint32_t cir;
  uint32_t cburst;
  uint32_t pir;
  uint32_t pburst;
  uint32_t meter_type; /* a p4_pd_meter_type_t */
} p4_pd_meter_spec_t;

/* One resource of a read-back entry that its action uses, and the index it uses. */
typedef struct p4_pd_res_spec {
  uint32_t tbl_hdl;
  uint32_t tbl_idx;
} p4_pd_res_spec_t;

/* Table property codes and values are the driver's own words, passed through unchanged. */
typedef uint32_t p4_pd_tbl_prop_type_t;
typedef uint32_t p4_pd_tbl_prop_value_t;
typedef uint32_t p4_pd_tbl_prop_args_t;

/* Called by the driver when an entry of the table changes; registered per device and table. */
typedef pipe_mat_update_cb p4_pd_mat_update_cb;

/* Whether a member of a selector group takes part in selection: an unsigned 32-bit word holding one
 * of the two values below. A word, not a C enum type, so that any value a caller passes is a value
 * of the type, in C and in C++ alike. */
typedef uint32_t p4_pd_grp_mbr_state_e;
enum {
  P4_PD_GRP_MBR_STATE_ACTIVE = 0,
  P4_PD_GRP_MBR_STATE_INACTIVE = 1
};

/* Called by the driver when a member joins or leaves a group of a profile's selector. */
typedef pipe_sel_tbl_update_cb p4_pd_sel_tbl_update_cb;
/* Called by the driver when a member of a profile is added, changed or deleted. */
typedef pipe_adt_update_cb p4_pd_adt_update_cb;
/* Called by the driver when a group of a profile's selector, or its membership, changes. */
typedef pipe_sel_update_cb p4_pd_sel_update_cb;

#ifdef __cplusplus
}
#endif

#endif
