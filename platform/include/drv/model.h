/** @file
 * The driver model: an in-memory stand-in for the chip driver, for tests of a control plane.
 *
 * It really stores entries per device and table, issues handles, refuses bad requests with the
 * statuses of drv/bf_types.h and leaves its store unchanged after every refusal. Every driver
 * function that reaches it is recorded with copies of the records and images it was given, so a
 * test can assert the exact traffic. Tests can inject faults: a refusal of the next call of a
 * function, allocation failure, and the driver's debug mode.
 *
 * The model is process-global, as the real driver is, and thread-safe, as the real driver is: one
 * lock guards all of its state, every driver call holds it from its record to its status (so each
 * call is atomic), and every function of this header holds it while it reads or changes the model.
 * Callbacks (update and sync callbacks, the hitless replay, idle expiries, learning deliveries,
 * device hooks) run without it, so a callback may call the driver or the model from any thread.
 * Pointers into the model that functions hand out stay valid as each says, until the change that
 * frees them, made by any thread. Plain C99. */
#ifndef DRV_MODEL_H
#define DRV_MODEL_H

#include "drv/bf_drv.h"
#include "drv/bf_snapshot.h"
#include "drv/pipe_mgr.h"
#include "drv/pipe_resources.h"

#ifdef __cplusplus
extern "C" {
#endif

/** @name Whole-model control */
/** @{ */

/** Forgets everything: entries, handles, clients, recorded calls, log lines and faults. Debug mode
 * goes off and recording goes on. */
void drvm_reset(void);

/** Recording of calls, on by default. Off, calls are served but not recorded. */
void drvm_set_recording(int on);

/** Pass-through mode for speed measurements: pipe_mgr_* and pipe_register_* calls return 0 at once,
 * store, call back, record and lock nothing; the entry, member and group handles they write are one
 * running count (threads using it at once may be given the same number). */
void drvm_set_passthrough(int on);

/** The model's clock, in microseconds from 0 at drvm_reset. It stands still until a test moves it:
 * moving it ages idle-time entries (expiry callbacks fire) and honours the learning timeout
 * (batches due are delivered), in that order, before drvm_advance_clock returns. */
uint64_t drvm_clock_us(void);
/** Moves the model's clock on by usecs microseconds, ageing entries and delivering due batches. */
void drvm_advance_clock(uint64_t usecs);

/** @} */

/** @name Recorded calls */
/** @{ */

/** One recorded driver call. Pointers in a record point into memory owned by the model, valid until
 * the next drvm_reset or drvm_clear_calls (by any thread). The match and action records are copies of what the
 * caller passed, with their image pointers redirected to copies of the images; a pointer the caller
 * passed as null stays null. */
typedef struct drvm_call {
  const char *fn;                /**< the driver function's name, e.g. "pipe_mgr_mat_ent_add" */
  bf_status_t status;            /**< what the model returned */
  uint32_t sess_hdl;             /**< the session passed */
  dev_target_t dev_tgt;          /**< the device and pipe passed (pipe 0xFFFF for a bare device id) */
  uint32_t tbl_hdl;              /**< table, profile or resource handle, as the function takes */
  uint32_t act_fn_hdl;           /**< the action handle passed, or written */
  uint32_t ttl;                  /**< the TTL passed */
  uint32_t flags;                /**< the pipe_api_flags passed */
  uint32_t ent_hdl;              /**< the entry handle written, or passed in */
  uint32_t arg_u32[4];           /**< further 32-bit arguments, in order, where a function has them */
  const char *text;              /**< a string argument (client name), or null */
  int has_match;                 /**< match is a copy of a record the caller passed */
  pipe_tbl_match_spec_t match;   /**< the match record passed, if has_match */
  int has_action;                /**< action is a copy of a record the caller passed */
  pipe_action_spec_t action;     /**< the action record passed, if has_action */
  const void *ptr_arg;           /**< a pointer argument as passed (identity only, never read): a
                                    callback, an output array */
  const void *ptr_arg2;          /**< a second one: the cookie that goes with a callback */
  const uint8_t *bytes;          /**< a copy of a byte-string or record argument (a hash value, a
                                    counter or meter record, a register cell...), or null */
  uint32_t num_bytes;            /**< its length */
  const uint8_t *bytes2;         /**< a copy of a second one (a trigger mask), or null */
  uint32_t num_bytes2;           /**< its length */
  uint64_t arg_u64;              /**< a 64-bit argument (a hash seed) */
} drvm_call_t;

/** The number of calls recorded since the last reset or clear. */
size_t drvm_call_count(void);
/** The i-th call since the last reset, from 0; null past the end. */
const drvm_call_t *drvm_call(size_t i);
/** The last call of the function named fn (any function for null); null if none. */
const drvm_call_t *drvm_last_call(const char *fn);
/** How many calls of fn (any function for null) are recorded. */
size_t drvm_count_calls(const char *fn);
/** Forgets the recorded calls. */
void drvm_clear_calls(void);

/** @} */

/** @name Faults */
/** @{ */

/** The next call of the function named fn returns status without any effect (and is recorded with
 * that status). Several can be queued; each is used once. bf_drv_register is included. */
void drvm_fail_next(const char *fn, bf_status_t status);
/** Every bf_sys_calloc from the n-th call on (0: the next one) returns null, until
 * drvm_fail_alloc_off. The model's own allocations are not affected. */
void drvm_fail_alloc_after(size_t n);
/** Ends the allocation failure of drvm_fail_alloc_after. */
void drvm_fail_alloc_off(void);
/** Number of bf_sys_calloc blocks not yet freed by bf_sys_free. */
size_t drvm_live_allocs(void);

/** @} */

/** @name bf_sys */
/** @{ */

/** Sets what bf_sys_dbg_mode returns: 1 for non-zero, else 0. */
void drvm_set_debug_mode(int on);
/** Lines logged by bf_sys_log_and_trace since the last reset or clear, formatted. */
size_t drvm_log_count(void);
/** The i-th line, from 0, valid until a clear or reset; null past the end. */
const char *drvm_log_line(size_t i);
/** The module passed with the i-th line; -1 past the end. */
int drvm_log_module(size_t i);
/** The level passed with the i-th line; -1 past the end. */
int drvm_log_level(size_t i);
/** Forgets the logged lines. */
void drvm_clear_log(void);

/** @} */

/** @name Clients and device hooks */
/** @{ */

/** The handle of the registered client of that name, or 0 if none is registered. */
bf_drv_client_handle_t drvm_client_handle(const char *client_name);
/** The priority passed with the client's callbacks, or -1 if it registered none. */
int drvm_client_callback_prio(bf_drv_client_handle_t client);
/** The client's callback slot, as stored, or null. */
bf_drv_generic_cb_t drvm_client_callback(bf_drv_client_handle_t client, unsigned slot);
/** Fires the device-remove hook (slot 3) of every registered client that has one, in registration
 * order, as the driver does; the result is the first non-zero status, else 0. */
bf_status_t drvm_fire_dev_remove(bf_dev_id_t dev);
/** Fires the device-log hook (slot 4) of every registered client as drvm_fire_dev_remove does,
 * each adding its state of the device to the JSON object. */
bf_status_t drvm_fire_dev_log(bf_dev_id_t dev, struct cJSON *state);
/** Fires the device-restore hook (slot 5) of every registered client as drvm_fire_dev_remove does,
 * each restoring its state of the device from the JSON object. */
bf_status_t drvm_fire_dev_restore(bf_dev_id_t dev, struct cJSON *state);

/** @} */

/** @name The entry store */
/** @{ */

/** Number of entries stored in a table of a device. */
size_t drvm_entry_count(bf_dev_id_t dev, uint32_t tbl_hdl);
/** The stored entry of that handle: copies of its match record (images included), action handle
 * and action record. Returns BF_OBJECT_NOT_FOUND for an unknown handle. The pointers in *match and
 * *action point into the store and stay valid until the entry changes or the model is reset. */
bf_status_t drvm_entry_get(bf_dev_id_t dev, uint32_t tbl_hdl, uint32_t ent_hdl,
                           pipe_tbl_match_spec_t *match, uint32_t *act_fn_hdl,
                           pipe_action_spec_t *action, uint32_t *ttl);

/** The program's initial default entry of a table on a device: what the table's default entry is
 * before any pipe_mgr_mat_default_entry_set, and what pipe_mgr_mat_tbl_default_entry_reset restores.
 * A table with no initial default configured has none: its default entry reads as unset. The action
 * record is copied. */
bf_status_t drvm_set_initial_default(bf_dev_id_t dev, uint32_t tbl_hdl, uint32_t act_fn_hdl,
                                     const pipe_action_spec_t *action);

/** The table's current default entry, as the model keeps it (not a driver call; not recorded):
 * its handle (0 while none is issued), action handle and action record, whose image pointer points
 * into the model and stays valid until the default changes or the model is reset. Any output
 * pointer may be null. BF_OBJECT_NOT_FOUND, with nothing written, while the default is unset. */
bf_status_t drvm_default_entry_get(bf_dev_id_t dev, uint32_t tbl_hdl, uint32_t *ent_hdl,
                                   uint32_t *act_fn_hdl, pipe_action_spec_t *action);

/** The entry-update callback and cookie registered for a table of a device by
 * pipe_register_mat_update_cb (not a driver call; not recorded). Any output pointer may be null.
 * BF_OBJECT_NOT_FOUND, with nothing written, while none is registered. */
bf_status_t drvm_mat_update_cb(bf_dev_id_t dev, uint32_t tbl_hdl, pipe_mat_update_cb *cb,
                               void **cookie);

/** @} */

/** @name Action profiles
 *
 * Action data tables hold members, selector tables hold groups of them; see platform/README.md.
 * Which action data table, selector table and match table form one action profile is known to the
 * model by declaration (drvm_set_profile) or, failing that, from the first use that shows it: the
 * first member added to a group of a selector, or made its fallback member, pairs the selector with
 * the member's table; the first entry bound to a member or a group pairs the match table with that
 * profile. Once paired, a member or group of another profile is refused (BF_TABLE_MISMATCH); a
 * profile that knows its match table still serves others. The hitless replay names a group's
 * action data table by its selector's pairing. drvm_reset forgets every pairing. These functions
 * are not driver calls: they are not recorded and take no queued refusal. */
/** @{ */

/** Declares an action profile, for every device: its action data table, its selector table and the
 * match table bound to it (0 for none yet). Completes a pairing known in part; BF_TABLE_MISMATCH,
 * changing nothing, if it contradicts one; BF_INVALID_ARG for a 0 action data or selector table
 * handle. */
bf_status_t drvm_set_profile(uint32_t adt_tbl_hdl, uint32_t sel_tbl_hdl, uint32_t mat_tbl_hdl);
/** The action data table of the profile a table handle belongs to (whatever its place); 0 while
 * unknown. */
uint32_t drvm_profile_adt(uint32_t tbl_hdl);
/** The selector table of the profile a table handle belongs to; 0 while unknown. */
uint32_t drvm_profile_sel(uint32_t tbl_hdl);
/** The match table of the profile a table handle belongs to; 0 while unknown. */
uint32_t drvm_profile_mat(uint32_t tbl_hdl);

/** Number of members of an action data table of a device. */
size_t drvm_member_count(bf_dev_id_t dev, uint32_t adt_tbl_hdl);
/** A member as the model keeps it: its action handle, its action record (whose image pointer points
 * into the model and stays valid until the member changes or the model is reset), its pipe scope
 * and the number of references that keep it from being deleted (groups holding it, entries bound
 * to it, selectors' fallback settings). Any output may be null. BF_OBJECT_NOT_FOUND, writing
 * nothing, for an unknown member. */
bf_status_t drvm_member_get(bf_dev_id_t dev, uint32_t adt_tbl_hdl, uint32_t mbr_hdl, uint32_t *act_fn_hdl,
                            pipe_action_spec_t *action, uint32_t *pipe, uint32_t *refs);
/** Number of groups of a selector table of a device. */
size_t drvm_group_count(bf_dev_id_t dev, uint32_t sel_tbl_hdl);
/** A group: its maximum size, pipe scope and number of members. BF_OBJECT_NOT_FOUND if unknown. */
bf_status_t drvm_group_get(bf_dev_id_t dev, uint32_t sel_tbl_hdl, uint32_t grp_hdl, uint32_t *max_size,
                           uint32_t *pipe, uint32_t *num_mbrs);
/** The i-th member of a group (from 0, in the order they joined) and whether it is active.
 * BF_OBJECT_NOT_FOUND past the last one. */
bf_status_t drvm_group_member(bf_dev_id_t dev, uint32_t sel_tbl_hdl, uint32_t grp_hdl, size_t i, uint32_t *mbr_hdl,
                              int *active);
/** The fallback member of a selector table set for exactly that pipe (0xFFFF: the one set for all
 * pipes). BF_OBJECT_NOT_FOUND while none is set. */
bf_status_t drvm_fallback_member(bf_dev_id_t dev, uint32_t sel_tbl_hdl, uint32_t pipe, uint32_t *mbr_hdl);
/** The callback and cookie registered for an action data table of a device by
 * pipe_register_adt_update_cb. BF_OBJECT_NOT_FOUND while none is. */
bf_status_t drvm_adt_update_cb(bf_dev_id_t dev, uint32_t adt_tbl_hdl, pipe_adt_update_cb *cb, void **cookie);
/** The callback and cookie registered for a selector table of a device by
 * pipe_register_sel_update_cb. BF_OBJECT_NOT_FOUND while none is. */
bf_status_t drvm_sel_update_cb(bf_dev_id_t dev, uint32_t sel_tbl_hdl, pipe_sel_update_cb *cb, void **cookie);
/** The callback and cookie registered for a selector table of a device by
 * pipe_mgr_sel_tbl_register_cb. BF_OBJECT_NOT_FOUND while none is. */
bf_status_t drvm_sel_tbl_cb(bf_dev_id_t dev, uint32_t sel_tbl_hdl, pipe_sel_tbl_update_cb *cb, void **cookie);
/** @} */

#ifdef __cplusplus
}
#endif

/* The model's resource cells (counters, meters, WRED, registers, idle time) and its telemetry
 * (learning digests, parser value sets, dynamic hashes, snapshots). */
#include "drv/model_cells.h"
#include "drv/model_telemetry.h"

#endif
