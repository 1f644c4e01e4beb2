/* libcv_bf_pd_qent_tofino2: the control-plane interface of the corvin_switch pipeline.
 * Include this header alone; it brings every record and prototype. Plain C99; valid C++. */
#ifndef CORVIN_SWITCH_PD_H
#define CORVIN_SWITCH_PD_H

#include "corvin_switch/pd_types.h"
#include "corvin_switch/pd_actions.h"  /* generated from the catalog */
#include "corvin_switch/pd_records.h"  /* generated from the catalog */
#include "corvin_switch/pd_tables.h"   /* generated from the catalog */
#include "corvin_switch/pd_decoders.h" /* generated from the catalog */

#ifdef __cplusplus
extern "C" {
#endif

/* Client handle written by the driver at registration; 0 before p4_pd_corvin_switch_init. */
extern P4_PD_EXPORT uint32_t bf_drv_hdl;

/* Starts the library: prepares the member-selector layer and its six state objects, and registers
 * the client "p4_pd_corvin_switch_pd" with the driver with its device hooks. Ends the process if
 * the driver refuses the registration. */
P4_PD_EXPORT void p4_pd_corvin_switch_init(void);
/* Deregisters from the driver and returns its status; frees nothing. */
P4_PD_EXPORT p4_pd_status_t p4_pd_corvin_switch_cleanup(void);
/* Does nothing. */
P4_PD_EXPORT void p4_pd_corvin_switch_device_state_cleanup(void);

#ifdef __cplusplus
}
#endif

#endif
