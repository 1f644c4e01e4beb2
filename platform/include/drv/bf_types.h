/** @file
 * Basic types and status codes shared by the driver model, the member-selector layer and the
 * control-plane library. Plain C99; also valid C++. */
#ifndef DRV_BF_TYPES_H
#define DRV_BF_TYPES_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Driver status: 0 is success; every other value is a refusal, returned by the model with the
 * request left without effect. The library passes these through unchanged. */
typedef int bf_status_t;
/** The same statuses, as the match-table and resource functions return them. */
typedef bf_status_t pipe_status_t;

/** The statuses. */
enum {
  BF_SUCCESS = 0,           /**< the request was served */
  BF_NO_SYS_RESOURCES = 2,  /**< an allocation failed (or was made to fail) */
  BF_INVALID_ARG = 3,       /**< malformed request: null pointer, sizes that disagree */
  BF_ALREADY_EXISTS = 4,    /**< an entry with the same match record is already stored */
  BF_OBJECT_NOT_FOUND = 6,  /**< unknown handle: entry, table, device, client, property */
  BF_KEY_NOT_FOUND = 7,     /**< no entry of the table has that match record */
  BF_NO_SPACE = 9,          /**< a result buffer is too small, or a store is full */
  BF_END_OF_WALK = 10,      /**< an iteration has no (further) entry */
  BF_IN_USE = 11,           /**< a member or group is still referred to: by a group, an entry, a
                               default entry or as a fallback member */
  BF_TABLE_MISMATCH = 12,   /**< a member or group of another action profile, or of a pipe the
                               request's object is not on */
  BF_INDEX_OUT_OF_RANGE = 13, /**< an index past the last cell of a counter, meter, WRED table or
                                 register */
  BF_UNEXPECTED = 15,       /**< an internal inconsistency */
  BF_NOT_SUPPORTED = 17,    /**< the model does not implement the request */
  BF_INJECTED_FAULT = 99    /**< default status of a refusal injected by a test */
};

typedef uint32_t bf_dev_id_t;            /**< A device. */
typedef uint32_t bf_dev_pipe_t;          /**< A pipe of a device; 0xFFFF (BF_DEV_PIPE_ALL) for all. */
typedef uint32_t bf_drv_client_handle_t; /**< A registered client, issued by bf_drv_register. */

typedef uint32_t pipe_sess_hdl_t;    /**< A session with the driver. */
typedef uint32_t pipe_mat_tbl_hdl_t; /**< A match table, by the program's handle. */
typedef uint32_t pipe_act_fn_hdl_t;  /**< An action of a table or profile, by the program's handle. */
typedef uint32_t pipe_mat_ent_hdl_t; /**< A match entry, issued by the driver. */
typedef uint32_t pipe_adt_ent_hdl_t; /**< A member of an action data table, issued by the driver. */
typedef uint32_t pipe_sel_grp_hdl_t; /**< A group of a selector table, issued by the driver. */
typedef uint32_t pipe_tbl_hdl_t;     /**< Any table of the program, by its handle. */

/** A device and a pipe on it; pipe 0xFFFF stands for all pipes. Passed by value. */
typedef struct dev_target {
  bf_dev_id_t device_id;     /**< The device. */
  bf_dev_pipe_t dev_pipe_id; /**< The pipe, or BF_DEV_PIPE_ALL. */
} dev_target_t;

/** The pipe of a target that stands for all pipes of the device. */
#define BF_DEV_PIPE_ALL 0xFFFFu

#ifdef __cplusplus
}
#endif

#endif
