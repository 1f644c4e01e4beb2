/* The member-selector state layer: what the control plane knows of the members and selector
 * groups of an action profile, per device.
 *
 * One state object per action profile. Within it, per device: the members, each with its action
 * handle (once set) and a resource pair; the groups, each with its action handle (once set), a
 * resource pair and its members. Handles are the driver's member and group handles and mean
 * nothing across state objects or devices.
 *
 * Every function is safe to call from any thread: each state object has its own lock. Statuses are
 * those of drv/bf_types.h: 0 for success, and on any refusal the state is left unchanged.
 * Plain C99; also valid C++. */
#ifndef DRV_PD_MS_H
#define DRV_PD_MS_H

#include "drv/bf_types.h"

#ifdef __cplusplus
extern "C" {
#endif

struct cJSON;

/* A state object; opaque. */
typedef struct p4_pd_ms_state p4_pd_ms_state_t;

/* A function run on a member's groups by p4_pd_ms_mbr_apply_to_grps. */
typedef bf_status_t (*p4_pd_ms_grp_fn_t)(bf_dev_id_t dev, pipe_adt_ent_hdl_t mbr_hdl,
                                         pipe_sel_grp_hdl_t grp_hdl, void *aux);

/* Prepares the layer. Call once per process before anything else; later calls are harmless.
 * Returns 0. */
bf_status_t p4_pd_ms_init(void);

/* A new, empty state object, or null if memory is short. It lives until p4_pd_ms_free_state. */
p4_pd_ms_state_t *p4_pd_ms_init_state(void);
/* Frees a state object and all it holds; null is ignored. */
void p4_pd_ms_free_state(p4_pd_ms_state_t *state);

/* ---- Members ---- */

/* Records a member with no action and a zero resource pair. BF_ALREADY_EXISTS if known. */
bf_status_t p4_pd_ms_new_mbr(pipe_sess_hdl_t sess, p4_pd_ms_state_t *state, bf_dev_id_t dev,
                             pipe_adt_ent_hdl_t mbr_hdl);
/* Sets a known member's action. BF_OBJECT_NOT_FOUND for an unknown member. */
bf_status_t p4_pd_ms_set_mbr_act(p4_pd_ms_state_t *state, bf_dev_id_t dev,
                                 pipe_adt_ent_hdl_t mbr_hdl, pipe_act_fn_hdl_t act_fn_hdl);
/* Writes a member's action. BF_OBJECT_NOT_FOUND, writing nothing, for an unknown member or one
 * whose action is not set. */
bf_status_t p4_pd_ms_get_mbr_act(p4_pd_ms_state_t *state, bf_dev_id_t dev,
                                 pipe_adt_ent_hdl_t mbr_hdl, pipe_act_fn_hdl_t *act_fn_hdl);
/* Forgets a member, and its place in every group that holds it. BF_OBJECT_NOT_FOUND if unknown. */
bf_status_t p4_pd_ms_del_mbr(pipe_sess_hdl_t sess, p4_pd_ms_state_t *state, bf_dev_id_t dev,
                             pipe_adt_ent_hdl_t mbr_hdl);

/* ---- Groups ---- */

/* Records a group with no action, no members and a zero resource pair. BF_ALREADY_EXISTS if
 * known. */
bf_status_t p4_pd_ms_new_grp(pipe_sess_hdl_t sess, p4_pd_ms_state_t *state, bf_dev_id_t dev,
                             pipe_sel_grp_hdl_t grp_hdl);
/* Sets a known group's action, over any former one. BF_OBJECT_NOT_FOUND for an unknown group. */
bf_status_t p4_pd_ms_set_grp_act(p4_pd_ms_state_t *state, bf_dev_id_t dev,
                                 pipe_sel_grp_hdl_t grp_hdl, pipe_act_fn_hdl_t act_fn_hdl);
/* Writes a group's action. BF_OBJECT_NOT_FOUND, writing nothing, for an unknown group or one whose
 * action is not set. */
bf_status_t p4_pd_ms_get_grp_act(p4_pd_ms_state_t *state, bf_dev_id_t dev,
                                 pipe_sel_grp_hdl_t grp_hdl, pipe_act_fn_hdl_t *act_fn_hdl);
/* Forgets a group and removes it from its members: from those the state links to it and from the
 * num_mbrs members listed (unknown ones are skipped). mbr_hdls may be null when num_mbrs is 0.
 * BF_OBJECT_NOT_FOUND for an unknown group; BF_INVALID_ARG for a null list of non-zero length. */
bf_status_t p4_pd_ms_del_grp(pipe_sess_hdl_t sess, p4_pd_ms_state_t *state, bf_dev_id_t dev,
                             pipe_sel_grp_hdl_t grp_hdl, uint32_t num_mbrs,
                             const pipe_adt_ent_hdl_t *mbr_hdls);

/* ---- Membership ---- */

/* Links a known member and a known group. The group's action is not touched. BF_OBJECT_NOT_FOUND
 * if either is unknown, BF_ALREADY_EXISTS if they are linked already. */
bf_status_t p4_pd_ms_add_mbr_to_grp(pipe_sess_hdl_t sess, p4_pd_ms_state_t *state,
                                    bf_dev_id_t dev, pipe_adt_ent_hdl_t mbr_hdl,
                                    pipe_sel_grp_hdl_t grp_hdl);
/* Unlinks them. The group keeps its action, even with no members left. BF_OBJECT_NOT_FOUND if
 * either is unknown or they are not linked. */
bf_status_t p4_pd_ms_del_mbr_from_grp(pipe_sess_hdl_t sess, p4_pd_ms_state_t *state,
                                      bf_dev_id_t dev, pipe_adt_ent_hdl_t mbr_hdl,
                                      pipe_sel_grp_hdl_t grp_hdl);
/* Calls fn(dev, mbr_hdl, group, aux) for each group that holds the member, in increasing group
 * handle order, without holding the state's lock (fn may call into the layer). Returns the first
 * non-zero status of fn, after calling it for all groups; BF_OBJECT_NOT_FOUND for an unknown
 * member, BF_INVALID_ARG for a null fn. */
bf_status_t p4_pd_ms_mbr_apply_to_grps(p4_pd_ms_state_t *state, bf_dev_id_t dev,
                                       pipe_adt_ent_hdl_t mbr_hdl, p4_pd_ms_grp_fn_t fn,
                                       void *aux);

/* ---- Direct resources ----
 * Each member and group has a resource pair of two 32-bit words: a resource handle and an
 * index. A member's is set by p4_pd_ms_set_mbr_res; a group takes its member's by
 * p4_pd_ms_grp_update_res. */

bf_status_t p4_pd_ms_set_mbr_res(p4_pd_ms_state_t *state, bf_dev_id_t dev,
                                 pipe_adt_ent_hdl_t mbr_hdl, uint32_t res_hdl, uint32_t res_idx);
/* Copy the member's (group's) resource pair to *res_hdl and *res_idx; a null pointer is skipped.
 * BF_OBJECT_NOT_FOUND, writing nothing, if unknown. */
bf_status_t p4_pd_ms_mbr_get_res(p4_pd_ms_state_t *state, bf_dev_id_t dev,
                                 pipe_adt_ent_hdl_t mbr_hdl, uint32_t *res_hdl, uint32_t *res_idx);
bf_status_t p4_pd_ms_grp_get_res(p4_pd_ms_state_t *state, bf_dev_id_t dev,
                                 pipe_sel_grp_hdl_t grp_hdl, uint32_t *res_hdl, uint32_t *res_idx);
/* A p4_pd_ms_grp_fn_t whose aux is the state object: sets the group's resource pair to the
 * member's. BF_OBJECT_NOT_FOUND if either is unknown, BF_INVALID_ARG for a null aux. */
bf_status_t p4_pd_ms_grp_update_res(bf_dev_id_t dev, pipe_adt_ent_hdl_t mbr_hdl,
                                    pipe_sel_grp_hdl_t grp_hdl, void *aux);

/* ---- Device lifecycle ---- */

/* Frees all the state object holds for the device; the object itself stays. Returns 0, also when
 * nothing is held. Note the argument order: state first. */
bf_status_t p4_pd_ms_destroy_state_for_dev(p4_pd_ms_state_t *state, bf_dev_id_t dev);
/* Frees the transaction state of the device. The layer applies every change at once and keeps no
 * transaction state, so this returns 0 and changes nothing. */
bf_status_t p4_pd_ms_destroy_txn_state_for_dev(bf_dev_id_t dev);

/* Adds the device's state to a JSON object (device first), as the keys "members" and "groups":
 *   "members": [ {"mbr_hdl": N, "act_fn_hdl": N, "res": [hdl, idx]}, ... ]    by member handle
 *   "groups":  [ {"grp_hdl": N, "act_fn_hdl": N, "res": [hdl, idx], "mbrs": [N, ...]}, ... ]
 * "act_fn_hdl" is absent while no action is set; "mbrs" is in increasing order. A device with no
 * state gives two empty arrays. BF_INVALID_ARG for a null state or object. */
bf_status_t p4_pd_ms_log_state(bf_dev_id_t dev, p4_pd_ms_state_t *state, struct cJSON *obj);
/* Replaces the device's state with what log_state wrote into obj; other keys of obj are ignored.
 * BF_INVALID_ARG, with the state unchanged, if obj is not such a record (a key missing, a value
 * not a 32-bit unsigned integer, a handle twice, a group member that is not a member). */
bf_status_t p4_pd_ms_restore_state(bf_dev_id_t dev, p4_pd_ms_state_t *state, struct cJSON *obj);

#ifdef __cplusplus
}
#endif

#endif
