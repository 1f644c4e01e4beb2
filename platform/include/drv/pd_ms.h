/** @file
 * The member-selector state layer: what the control plane knows of the members and selector
 * groups of an action profile, per device.
 *
 * One state object per action profile. Within it, per device: the members, each with its action
 * handle (once set) and a resource pair; the groups, each with its action handle (once set), a
 * resource pair and its members. Links between members and groups are kept both ways: a member is
 * in a group's members exactly when the group is in the member's groups. Handles are the driver's
 * member and group handles and mean nothing across state objects or devices; every 32-bit value,
 * 0 included, is a valid handle.
 *
 * Statuses are those of drv/bf_types.h: 0 for success. On any refusal (any non-zero status) the
 * state is left unchanged and nothing is written through an output pointer. A device the state
 * holds nothing for answers like one whose members and groups were all deleted. BF_INVALID_ARG
 * for a null state object wherever one is taken (p4_pd_ms_grp_update_res: a null aux);
 * BF_NO_SYS_RESOURCES if memory runs short.
 *
 * Threads: every function is safe to call from any thread at any time, on the same or different
 * state objects. Each state object has its own lock; every call on a state object is atomic with
 * respect to the others on it, except that p4_pd_ms_mbr_apply_to_grps calls fn without the lock
 * (each such call is a call of its own). The transaction functions lock every state object at once
 * and are atomic with respect to every other call. A state object must not be freed while another
 * thread may still use it.
 *
 * Transactions: a device may have one open transaction (p4_pd_ms_begin_txn). While it is open,
 * every change to any state object for that device is journaled; p4_pd_ms_abort_txn undoes them
 * all, in reverse order, so that every query answers exactly as it did at the begin;
 * p4_pd_ms_commit_txn keeps them. Refused calls journal nothing. Devices are independent: a
 * transaction on one neither sees nor undoes changes for another. It covers state objects made
 * while it is open; a state object freed while it is open is gone, and an abort does not bring it
 * back.
 *
 * Plain C99; also valid C++. */
#ifndef DRV_PD_MS_H
#define DRV_PD_MS_H

#include "drv/bf_types.h"

#ifdef __cplusplus
extern "C" {
#endif

struct cJSON;

/** A state object; opaque. */
typedef struct p4_pd_ms_state p4_pd_ms_state_t;

/** A function run on a member's groups by p4_pd_ms_mbr_apply_to_grps. */
typedef bf_status_t (*p4_pd_ms_grp_fn_t)(bf_dev_id_t dev, pipe_adt_ent_hdl_t mbr_hdl,
                                         pipe_sel_grp_hdl_t grp_hdl, void *aux);

/** Prepares the layer. Call once per process before anything else; later calls are harmless.
 * Returns 0. */
bf_status_t p4_pd_ms_init(void);

/** A new, empty state object, or null if memory is short. It lives until p4_pd_ms_free_state. */
p4_pd_ms_state_t *p4_pd_ms_init_state(void);
/** Frees a state object and all it holds, its journals included; null is ignored. */
void p4_pd_ms_free_state(p4_pd_ms_state_t *state);

/** @name Members */
/** @{ */

/** Records a member with no action, a zero resource pair and no groups. BF_ALREADY_EXISTS if
 * known. */
bf_status_t p4_pd_ms_new_mbr(pipe_sess_hdl_t sess, p4_pd_ms_state_t *state, bf_dev_id_t dev,
                             pipe_adt_ent_hdl_t mbr_hdl);
/** Sets a known member's action, over any former one. BF_OBJECT_NOT_FOUND for an unknown
 * member. */
bf_status_t p4_pd_ms_set_mbr_act(p4_pd_ms_state_t *state, bf_dev_id_t dev,
                                 pipe_adt_ent_hdl_t mbr_hdl, pipe_act_fn_hdl_t act_fn_hdl);
/** Writes a member's action to *act_fn_hdl. BF_OBJECT_NOT_FOUND for an unknown member or one whose
 * action is not set; BF_INVALID_ARG for a null act_fn_hdl. */
bf_status_t p4_pd_ms_get_mbr_act(p4_pd_ms_state_t *state, bf_dev_id_t dev,
                                 pipe_adt_ent_hdl_t mbr_hdl, pipe_act_fn_hdl_t *act_fn_hdl);
/** Forgets a member, and its place in every group that holds it. BF_OBJECT_NOT_FOUND if unknown. */
bf_status_t p4_pd_ms_del_mbr(pipe_sess_hdl_t sess, p4_pd_ms_state_t *state, bf_dev_id_t dev,
                             pipe_adt_ent_hdl_t mbr_hdl);

/** @} */

/** @name Groups */
/** @{ */

/** Records a group with no action, no members and a zero resource pair. BF_ALREADY_EXISTS if
 * known. */
bf_status_t p4_pd_ms_new_grp(pipe_sess_hdl_t sess, p4_pd_ms_state_t *state, bf_dev_id_t dev,
                             pipe_sel_grp_hdl_t grp_hdl);
/** Sets a known group's action, over any former one. BF_OBJECT_NOT_FOUND for an unknown group. */
bf_status_t p4_pd_ms_set_grp_act(p4_pd_ms_state_t *state, bf_dev_id_t dev,
                                 pipe_sel_grp_hdl_t grp_hdl, pipe_act_fn_hdl_t act_fn_hdl);
/** Writes a group's action to *act_fn_hdl. BF_OBJECT_NOT_FOUND for an unknown group or one whose
 * action is not set; BF_INVALID_ARG for a null act_fn_hdl. */
bf_status_t p4_pd_ms_get_grp_act(p4_pd_ms_state_t *state, bf_dev_id_t dev,
                                 pipe_sel_grp_hdl_t grp_hdl, pipe_act_fn_hdl_t *act_fn_hdl);
/** Forgets a group and removes it from every member that holds it. mbr_hdls lists num_mbrs members
 * the caller knows to be in the group; since links are kept both ways, those are among the
 * members the group is removed from anyway, and unknown or unlinked ones are passed over.
 * mbr_hdls may be null when num_mbrs is 0. BF_OBJECT_NOT_FOUND for an unknown group;
 * BF_INVALID_ARG for a null list of non-zero length. */
bf_status_t p4_pd_ms_del_grp(pipe_sess_hdl_t sess, p4_pd_ms_state_t *state, bf_dev_id_t dev,
                             pipe_sel_grp_hdl_t grp_hdl, uint32_t num_mbrs,
                             const pipe_adt_ent_hdl_t *mbr_hdls);

/** @} */

/** @name Membership */
/** @{ */

/** Links a known member and a known group. The group's action is not touched. BF_OBJECT_NOT_FOUND
 * if either is unknown, BF_ALREADY_EXISTS if they are linked already. */
bf_status_t p4_pd_ms_add_mbr_to_grp(pipe_sess_hdl_t sess, p4_pd_ms_state_t *state,
                                    bf_dev_id_t dev, pipe_adt_ent_hdl_t mbr_hdl,
                                    pipe_sel_grp_hdl_t grp_hdl);
/** Unlinks them. The group keeps its action, even with no members left. BF_OBJECT_NOT_FOUND if
 * either is unknown or they are not linked. */
bf_status_t p4_pd_ms_del_mbr_from_grp(pipe_sess_hdl_t sess, p4_pd_ms_state_t *state,
                                      bf_dev_id_t dev, pipe_adt_ent_hdl_t mbr_hdl,
                                      pipe_sel_grp_hdl_t grp_hdl);
/** Calls fn(dev, mbr_hdl, group, aux) for each group that holds the member when the call starts,
 * in increasing group handle order, without holding the state's lock (fn may call into the
 * layer). Returns the first non-zero status of fn, after calling it for all groups;
 * BF_OBJECT_NOT_FOUND, calling nothing, for an unknown member (member handle 0 of a device that
 * has no member 0 is such); BF_INVALID_ARG for a null fn. */
bf_status_t p4_pd_ms_mbr_apply_to_grps(p4_pd_ms_state_t *state, bf_dev_id_t dev,
                                       pipe_adt_ent_hdl_t mbr_hdl, p4_pd_ms_grp_fn_t fn,
                                       void *aux);

/** @} */

/** @name Direct resources
 * Each member and group has a resource pair of two 32-bit words: a resource handle and an
 * index, both 0 when made. A member's is set by p4_pd_ms_set_mbr_res; a group takes its member's
 * by p4_pd_ms_grp_update_res. */
/** @{ */

/** Sets a known member's resource pair. BF_OBJECT_NOT_FOUND for an unknown member. */
bf_status_t p4_pd_ms_set_mbr_res(p4_pd_ms_state_t *state, bf_dev_id_t dev,
                                 pipe_adt_ent_hdl_t mbr_hdl, uint32_t res_hdl, uint32_t res_idx);
/** Copy the member's (group's) resource pair to *res_hdl and *res_idx; a null pointer is skipped.
 * BF_OBJECT_NOT_FOUND if unknown. */
bf_status_t p4_pd_ms_mbr_get_res(p4_pd_ms_state_t *state, bf_dev_id_t dev,
                                 pipe_adt_ent_hdl_t mbr_hdl, uint32_t *res_hdl, uint32_t *res_idx);
/** Copy the group's resource pair to *res_hdl and *res_idx; a null pointer is skipped.
 * BF_OBJECT_NOT_FOUND if unknown. */
bf_status_t p4_pd_ms_grp_get_res(p4_pd_ms_state_t *state, bf_dev_id_t dev,
                                 pipe_sel_grp_hdl_t grp_hdl, uint32_t *res_hdl, uint32_t *res_idx);
/** A p4_pd_ms_grp_fn_t whose aux is the state object: sets the group's resource pair to the
 * member's, whether or not they are linked. BF_OBJECT_NOT_FOUND if either is unknown,
 * BF_INVALID_ARG for a null aux. */
bf_status_t p4_pd_ms_grp_update_res(bf_dev_id_t dev, pipe_adt_ent_hdl_t mbr_hdl,
                                    pipe_sel_grp_hdl_t grp_hdl, void *aux);

/** @} */

/** @name Walks
 * Each writes the handles of a set in increasing order: the first min(max, total) of them to
 * hdls[0 .. ], and the total to *count. A total over max is not a refusal: the caller compares
 * *count with max, and a call with max 0 (hdls may then be null) only counts. BF_INVALID_ARG for
 * a null count, or a null hdls with max over 0. A device the state holds nothing for has no
 * members and no groups. */
/** @{ */

/** The device's members. */
bf_status_t p4_pd_ms_get_mbrs(p4_pd_ms_state_t *state, bf_dev_id_t dev, uint32_t max,
                              pipe_adt_ent_hdl_t *hdls, uint32_t *count);
/** The device's groups. */
bf_status_t p4_pd_ms_get_grps(p4_pd_ms_state_t *state, bf_dev_id_t dev, uint32_t max,
                              pipe_sel_grp_hdl_t *hdls, uint32_t *count);
/** A group's members. BF_OBJECT_NOT_FOUND for an unknown group. */
bf_status_t p4_pd_ms_get_grp_mbrs(p4_pd_ms_state_t *state, bf_dev_id_t dev,
                                  pipe_sel_grp_hdl_t grp_hdl, uint32_t max,
                                  pipe_adt_ent_hdl_t *hdls, uint32_t *count);
/** A member's groups (those p4_pd_ms_mbr_apply_to_grps visits). BF_OBJECT_NOT_FOUND for an
 * unknown member. */
bf_status_t p4_pd_ms_get_mbr_grps(p4_pd_ms_state_t *state, bf_dev_id_t dev,
                                  pipe_adt_ent_hdl_t mbr_hdl, uint32_t max,
                                  pipe_sel_grp_hdl_t *hdls, uint32_t *count);

/** @} */

/** @name Transactions (see the top of this file) */
/** @{ */

/** Opens a transaction on the device, over every state object. BF_ALREADY_EXISTS if one is open
 * on it already (transactions do not nest). */
bf_status_t p4_pd_ms_begin_txn(bf_dev_id_t dev);
/** Closes the device's transaction, keeping its changes, and frees its journal.
 * BF_OBJECT_NOT_FOUND if none is open. */
bf_status_t p4_pd_ms_commit_txn(bf_dev_id_t dev);
/** Closes the device's transaction, undoing every change journaled since the begin in reverse
 * order, and frees its journal. Needs no memory and cannot fail part way. BF_OBJECT_NOT_FOUND if
 * none is open. */
bf_status_t p4_pd_ms_abort_txn(bf_dev_id_t dev);
/** Writes the number of changes journaled by the device's open transaction, over all state
 * objects, to *count. BF_OBJECT_NOT_FOUND if none is open; BF_INVALID_ARG for a null count. */
bf_status_t p4_pd_ms_get_txn_changes(bf_dev_id_t dev, uint32_t *count);

/** @} */

/** @name Device lifecycle */
/** @{ */

/** Frees all the state object holds for the device; the object itself stays. Returns 0, also when
 * nothing is held. Within a transaction the device's state goes to the journal, and an abort
 * brings it back. Note the argument order: state first. */
bf_status_t p4_pd_ms_destroy_state_for_dev(p4_pd_ms_state_t *state, bf_dev_id_t dev);
/** Drops the device's transaction state: an open transaction is closed and its journal freed, and
 * every change it journaled is kept, as by p4_pd_ms_commit_txn. (A device being removed has its
 * states destroyed first; undoing that would bring them back.) Returns 0, also when no
 * transaction is open. */
bf_status_t p4_pd_ms_destroy_txn_state_for_dev(bf_dev_id_t dev);

/** Adds the device's state to a JSON object (device first), as the keys "members" and "groups":
 * @code
 *   "members": [ {"mbr_hdl": N, "act_fn_hdl": N, "res": [hdl, idx]}, ... ]
 *   "groups":  [ {"grp_hdl": N, "act_fn_hdl": N, "res": [hdl, idx], "mbrs": [N, ...]}, ... ]
 * @endcode
 * Every N is a 32-bit unsigned integer. Members and groups are in increasing handle order, keys in
 * the order shown, "mbrs" in increasing order; "act_fn_hdl" is absent while no action is set. A
 * member's groups are not written: they are the groups that list it. A device with no state gives
 * two empty arrays. The other keys of obj are left as they are. On a refusal obj is unchanged.
 * BF_INVALID_ARG for a null obj or one that is not a JSON object; BF_ALREADY_EXISTS if obj has a
 * "members" or "groups" key already. */
bf_status_t p4_pd_ms_log_state(bf_dev_id_t dev, p4_pd_ms_state_t *state, struct cJSON *obj);
/** Replaces the device's state, whole, with the one a record of the form above describes; the keys
 * of obj other than "members" and "groups" are ignored, and elements may come in any order. Every
 * query then answers as it did for the state that was logged. BF_INVALID_ARG, with the state
 * unchanged, for a null obj and for anything but such a record: obj not an object; "members" or
 * "groups" missing, repeated or not an array; an element not an object, missing a key, with a key
 * twice or a key not of the form; a handle, action or resource word that is not a number, or is
 * negative (-0 included), fractional or over 4294967295; "res" not an array of exactly two; a
 * member or group handle twice; a group listing a handle that is not a member, or one twice. */
bf_status_t p4_pd_ms_restore_state(bf_dev_id_t dev, p4_pd_ms_state_t *state, struct cJSON *obj);
/** @} */

#ifdef __cplusplus
}
#endif

#endif
