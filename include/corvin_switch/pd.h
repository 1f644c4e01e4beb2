/** @file
 * libcv_bf_pd_qent_tofino2: the control-plane interface of the corvin_switch pipeline.
 * Include this header alone; it brings every record and prototype. Plain C99; valid C++. */
#ifndef CORVIN_SWITCH_PD_H
#define CORVIN_SWITCH_PD_H

#include "corvin_switch/pd_types.h"
#include "corvin_switch/pd_actions.h"  /* generated from the catalog */
#include "corvin_switch/pd_records.h"  /* generated from the catalog */
#include "corvin_switch/pd_tables.h"   /* generated from the catalog */
#include "corvin_switch/pd_decoders.h" /* generated from the catalog */
#include "corvin_switch/pd_profiles.h" /* generated from the catalog */
#include "corvin_switch/pd_resources.h" /* generated from the catalog */
#include "corvin_switch/pd_generic.h"
#include "corvin_switch/pd_labels.h"
#include "corvin_switch/pd_reflection.h" /* generated from the catalog */

#ifdef __cplusplus
extern "C" {
#endif

/** Client handle written by the driver at registration; 0 before p4_pd_corvin_switch_init. */
extern P4_PD_EXPORT uint32_t bf_drv_hdl;

/** Starts the library: prepares the member-selector layer and its six state objects, and registers
 * the client "p4_pd_corvin_switch_pd" with the driver with its device hooks. Ends the process if
 * the driver refuses the registration. */
P4_PD_EXPORT void p4_pd_corvin_switch_init(void);
/** Deregisters from the driver and returns its status; frees nothing. */
P4_PD_EXPORT p4_pd_status_t p4_pd_corvin_switch_cleanup(void);
/** Does nothing. */
P4_PD_EXPORT void p4_pd_corvin_switch_device_state_cleanup(void);

/** After a hitless restart: asks the driver to replay every member, group and membership of the
 * program's action profiles into p4_pd_corvin_switch_ha_restore_state_from_adt_sel, which rebuilds
 * the member-selector state from them. The five words go to the driver unchanged; returns its
 * status. */
P4_PD_EXPORT p4_pd_status_t p4_pd_corvin_switch_restore_virtual_dev_state(p4_pd_sess_hdl_t sess_hdl, uint32_t dev_id,
                                                                          uint32_t pipe_id, uint32_t arg3,
                                                                          uint32_t arg4);
/** One replayed fact: a member (group 0), a group (member 0) or a membership (both handles), of the
 * profile whose action data table handle is adt_tbl_hdl. Unknown tables are ignored. */
P4_PD_EXPORT void p4_pd_corvin_switch_ha_restore_state_from_adt_sel(p4_pd_sess_hdl_t sess_hdl, uint32_t dev_id,
                                                                    uint32_t adt_tbl_hdl, uint32_t act_fn_hdl,
                                                                    p4_pd_grp_hdl_t grp_hdl, p4_pd_mbr_hdl_t mbr_hdl,
                                                                    uint32_t res_indicator);

#ifdef __cplusplus
}
#endif

#endif
