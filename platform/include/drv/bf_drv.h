/* Driver clients: registration and the table of device hooks. Plain C99. */
#ifndef DRV_BF_DRV_H
#define DRV_BF_DRV_H

#include "drv/bf_types.h"

#ifdef __cplusplus
extern "C" {
#endif

struct cJSON;

/* The callback table a client hands the driver: 31 pointer-sized slots, each a hook or null.
 * Slots 3, 4 and 5 are the device hooks below; the others are hooks this system does not use. */
#define BF_DRV_CLIENT_CB_SLOTS 31
#define BF_DRV_CB_DEVICE_REMOVE 3
#define BF_DRV_CB_DEVICE_LOG 4
#define BF_DRV_CB_DEVICE_RESTORE 5

typedef void (*bf_drv_generic_cb_t)(void);
typedef bf_status_t (*bf_drv_device_remove_cb_t)(bf_dev_id_t dev);
typedef bf_status_t (*bf_drv_device_log_cb_t)(bf_dev_id_t dev, struct cJSON *state);
typedef bf_status_t (*bf_drv_device_restore_cb_t)(bf_dev_id_t dev, struct cJSON *state);

typedef struct bf_drv_client_callbacks {
  bf_drv_generic_cb_t slot[BF_DRV_CLIENT_CB_SLOTS];
} bf_drv_client_callbacks_t;

typedef int bf_drv_client_prio_t;

bf_status_t bf_drv_register(const char *client_name, bf_drv_client_handle_t *client_hdl);
bf_status_t bf_drv_deregister(bf_drv_client_handle_t client_hdl);
bf_status_t bf_drv_client_register_callbacks(bf_drv_client_handle_t client_hdl,
                                             bf_drv_client_callbacks_t *callbacks,
                                             bf_drv_client_prio_t prio);

#ifdef __cplusplus
}
#endif

#endif
