/** @file
 * Driver clients: registration and the table of device hooks. Plain C99. */
#ifndef DRV_BF_DRV_H
#define DRV_BF_DRV_H

#include "drv/bf_types.h"

#ifdef __cplusplus
extern "C" {
#endif

struct cJSON;

/** The callback table a client hands the driver: 31 pointer-sized slots, each a hook or null.
 * Slots 3, 4 and 5 are the device hooks below; the others are hooks this system does not use. */
#define BF_DRV_CLIENT_CB_SLOTS 31
/** Slot of the hook called when a device is removed (a bf_drv_device_remove_cb_t). */
#define BF_DRV_CB_DEVICE_REMOVE 3
/** Slot of the hook that adds a client's state of a device to a JSON record (a
 * bf_drv_device_log_cb_t). */
#define BF_DRV_CB_DEVICE_LOG 4
/** Slot of the hook that restores a client's state of a device from such a record (a
 * bf_drv_device_restore_cb_t). */
#define BF_DRV_CB_DEVICE_RESTORE 5

/** The type of a slot: a hook, cast to this type and back to its own. */
typedef void (*bf_drv_generic_cb_t)(void);
/** Device removed: the client forgets what it holds for the device. */
typedef bf_status_t (*bf_drv_device_remove_cb_t)(bf_dev_id_t dev);
/** Device state logged: the client adds its state of the device to the JSON object. */
typedef bf_status_t (*bf_drv_device_log_cb_t)(bf_dev_id_t dev, struct cJSON *state);
/** Device state restored: the client rebuilds its state of the device from the JSON object. */
typedef bf_status_t (*bf_drv_device_restore_cb_t)(bf_dev_id_t dev, struct cJSON *state);

/** A client's callback table. */
typedef struct bf_drv_client_callbacks {
  bf_drv_generic_cb_t slot[BF_DRV_CLIENT_CB_SLOTS]; /**< The hooks by slot number; null for none. */
} bf_drv_client_callbacks_t;

/** The priority a client's hooks are called at. */
typedef int bf_drv_client_prio_t;

/** Registers a client under a name and writes its new handle. BF_ALREADY_EXISTS for a name
 * registered already; BF_INVALID_ARG for a null name or handle pointer. */
bf_status_t bf_drv_register(const char *client_name, bf_drv_client_handle_t *client_hdl);
/** Forgets a client; BF_OBJECT_NOT_FOUND for an unknown handle, a second deregistration
 * included. */
bf_status_t bf_drv_deregister(bf_drv_client_handle_t client_hdl);
/** Copies a client's callback table and priority, replacing any former ones. BF_OBJECT_NOT_FOUND
 * for an unknown client; BF_INVALID_ARG for a null table. */
bf_status_t bf_drv_client_register_callbacks(bf_drv_client_handle_t client_hdl,
                                             bf_drv_client_callbacks_t *callbacks,
                                             bf_drv_client_prio_t prio);

#ifdef __cplusplus
}
#endif

#endif
