/* The driver's records for table entries, and its match-table functions. Plain C99.
 *
 * On the 32-bit x86 target pointers are 4 bytes and 64-bit fields are 4-byte aligned; the offsets
 * given beside each field are those of that target and are checked at compile time there. */
#ifndef DRV_PIPE_MGR_H
#define DRV_PIPE_MGR_H

#include <stdbool.h>

#include "drv/bf_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* A 64-bit field aligned to 4 bytes on every target, as the target ABI has it. */
typedef uint64_t pipe_u64_a4_t __attribute__((aligned(4)));

/* A key as the driver takes it: value and mask images, both num_match_bytes long. */
typedef struct pipe_tbl_match_spec {
  uint8_t *match_value_bytes;    /*  0 */
  uint8_t *match_mask_bytes;     /*  4 */
  uint32_t partition_index;      /*  8 */
  uint32_t priority;             /* 12 */
  uint16_t num_valid_match_bits; /* 16 */
  uint16_t num_match_bytes;      /* 18 */
  uint32_t reserved;             /* 20 */
} pipe_tbl_match_spec_t;

/* Rates and bursts of a meter, in the driver's units. 44 bytes. */
typedef struct pipe_meter_spec {
  uint32_t meter_type; /*  0 */
  uint32_t cir_unit;   /*  4 */
  pipe_u64_a4_t cir;   /*  8 */
  pipe_u64_a4_t cburst;/* 16 */
  uint32_t pir_unit;   /* 24 */
  pipe_u64_a4_t pir;   /* 28 */
  pipe_u64_a4_t pburst;/* 36 */
} pipe_meter_spec_t;

/* Resource tags: whether the entry's action uses the resource. 0 leaves it to the driver. */
enum { PIPE_RES_TAG_NONE = 0, PIPE_RES_TAG_ATTACHED = 1, PIPE_RES_TAG_DETACHED = 2 };

/* One counter, meter or register attached to an entry. 56 bytes. */
typedef struct pipe_res_spec {
  uint32_t tbl_hdl; /*  0 */
  uint32_t tbl_idx; /*  4 */
  union {
    pipe_meter_spec_t meter;
    uint8_t bytes[44];
  } data;           /*  8 */
  uint32_t tag;     /* 52 */
} pipe_res_spec_t;

#define PIPE_NUM_RES_SPECS 4

/* Action data of an action record: counts and the big-endian image. */
typedef struct pipe_action_data_spec {
  uint16_t num_valid_action_data_bits; /* 4, in the action record */
  uint16_t num_action_data_bytes;      /* 6 */
  uint8_t *action_data_bytes;          /* 8 */
} pipe_action_data_spec_t;

/* What an entry does. 244 bytes. */
enum {
  PIPE_ACTION_DATA_TYPE = 1, /* the record carries an action image */
  PIPE_ACTION_MBR_TYPE = 2,  /* the entry points at a profile member */
  PIPE_ACTION_GRP_TYPE = 4   /* the entry points at a selector group */
};

typedef struct pipe_action_spec {
  uint8_t action_data_type;                   /*  0 */
  uint8_t resource_count;                     /*  1 */
  uint16_t reserved;                          /*  2 */
  pipe_action_data_spec_t act_data;           /*  4 */
  uint32_t member_hdl;                        /* 12 */
  uint32_t group_hdl;                         /* 16 */
  pipe_res_spec_t resources[PIPE_NUM_RES_SPECS]; /* 20 */
} pipe_action_spec_t;

/* Adds an entry; writes its handle through ent_hdl_p. The records are read during the call only. */
pipe_status_t pipe_mgr_mat_ent_add(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                   pipe_mat_tbl_hdl_t mat_tbl_hdl,
                                   pipe_tbl_match_spec_t *match_spec,
                                   pipe_act_fn_hdl_t act_fn_hdl, pipe_action_spec_t *act_spec,
                                   uint32_t ttl, uint32_t pipe_api_flags,
                                   pipe_mat_ent_hdl_t *ent_hdl_p);

/* Changes an entry's action, found by handle or by its match record as add sent it. */
pipe_status_t pipe_mgr_mat_ent_set_action(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                          pipe_mat_tbl_hdl_t mat_tbl_hdl, pipe_mat_ent_hdl_t mat_ent_hdl,
                                          pipe_act_fn_hdl_t act_fn_hdl, pipe_action_spec_t *act_spec,
                                          uint32_t pipe_api_flags);
pipe_status_t pipe_mgr_mat_ent_set_action_by_match_spec(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                                        pipe_mat_tbl_hdl_t mat_tbl_hdl,
                                                        pipe_tbl_match_spec_t *match_spec,
                                                        pipe_act_fn_hdl_t act_fn_hdl,
                                                        pipe_action_spec_t *act_spec, uint32_t pipe_api_flags);

/* Deletes an entry, found by handle or by its match record. */
pipe_status_t pipe_mgr_mat_ent_del(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_mat_tbl_hdl_t mat_tbl_hdl,
                                   pipe_mat_ent_hdl_t mat_ent_hdl, uint32_t pipe_api_flags);
pipe_status_t pipe_mgr_mat_ent_del_by_match_spec(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                                 pipe_mat_tbl_hdl_t mat_tbl_hdl,
                                                 pipe_tbl_match_spec_t *match_spec, uint32_t pipe_api_flags);

/* Default entries: the action on a miss. */
pipe_status_t pipe_mgr_mat_default_entry_set(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                             pipe_mat_tbl_hdl_t mat_tbl_hdl, pipe_act_fn_hdl_t act_fn_hdl,
                                             pipe_action_spec_t *act_spec, uint32_t pipe_api_flags,
                                             pipe_mat_ent_hdl_t *ent_hdl_p);
pipe_status_t pipe_mgr_mat_tbl_default_entry_reset(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                                   pipe_mat_tbl_hdl_t mat_tbl_hdl, uint32_t pipe_api_flags);
pipe_status_t pipe_mgr_table_get_default_entry_handle(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                                      pipe_mat_tbl_hdl_t mat_tbl_hdl,
                                                      pipe_mat_ent_hdl_t *ent_hdl_p);
/* Fills *act_spec: action_data_type, counts, the image into act_data.action_data_bytes (whose
 * capacity the caller gives in act_data.num_action_data_bytes), member and group handles and the
 * resource records; and the action handle. */
pipe_status_t pipe_mgr_table_get_default_entry(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                               pipe_mat_tbl_hdl_t mat_tbl_hdl, pipe_action_spec_t *act_spec,
                                               pipe_act_fn_hdl_t *act_fn_hdl_p, bool from_hw,
                                               uint32_t res_get_flags, void *res_data);

/* Reads an entry by handle: the images into the caller's buffers (num_match_bytes each), priority
 * and partition index into *match_spec, and the action as pipe_mgr_table_get_default_entry does. A
 * default entry reads back with a null value image and num_match_bytes 0. */
pipe_status_t pipe_mgr_get_entry(pipe_sess_hdl_t sess_hdl, pipe_mat_tbl_hdl_t mat_tbl_hdl, dev_target_t dev_tgt,
                                 pipe_mat_ent_hdl_t mat_ent_hdl, pipe_tbl_match_spec_t *match_spec,
                                 pipe_action_spec_t *act_spec, pipe_act_fn_hdl_t *act_fn_hdl_p, bool from_hw,
                                 uint32_t res_get_flags, void *res_data);

/* Finds the handle of the entry whose match record is the one given, as add sent it. */
pipe_status_t pipe_mgr_match_spec_to_ent_hdl(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                             pipe_mat_tbl_hdl_t mat_tbl_hdl, pipe_tbl_match_spec_t *match_spec,
                                             pipe_mat_ent_hdl_t *ent_hdl_p, bool light_pipe_validation);

/* Iteration over a table's entries, in a stable order. */
pipe_status_t pipe_mgr_get_first_entry_handle(pipe_sess_hdl_t sess_hdl, pipe_mat_tbl_hdl_t mat_tbl_hdl,
                                              dev_target_t dev_tgt, pipe_mat_ent_hdl_t *ent_hdl_p);
pipe_status_t pipe_mgr_get_next_entry_handles(pipe_sess_hdl_t sess_hdl, pipe_mat_tbl_hdl_t mat_tbl_hdl,
                                              dev_target_t dev_tgt, pipe_mat_ent_hdl_t mat_ent_hdl, int n,
                                              pipe_mat_ent_hdl_t *next_ent_hdls);
pipe_status_t pipe_mgr_get_entry_count(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                       pipe_mat_tbl_hdl_t mat_tbl_hdl, bool read_from_hw, uint32_t *count_p);

/* Table properties: codes and values are the driver's own 32-bit words. */
pipe_status_t pipe_mgr_tbl_set_property(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_mat_tbl_hdl_t tbl_hdl,
                                        uint32_t property, uint32_t value, uint32_t args, uint32_t pipe_api_flags);
pipe_status_t pipe_mgr_tbl_get_property(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_mat_tbl_hdl_t tbl_hdl,
                                        uint32_t property, uint32_t *value_p, uint32_t *args_p);

/* Entry updates, reported to a callback registered per device and table. */
typedef enum pipe_mat_update_type {
  PIPE_MAT_UPDATE_ADD = 0,
  PIPE_MAT_UPDATE_SET_ACTION = 1,
  PIPE_MAT_UPDATE_DEL = 2,
  PIPE_MAT_UPDATE_SET_DEFAULT = 3,
  PIPE_MAT_UPDATE_CLEAR_DEFAULT = 4
} pipe_mat_update_type_t;

typedef void (*pipe_mat_update_cb)(bf_dev_id_t dev_id, pipe_mat_tbl_hdl_t mat_tbl_hdl,
                                   pipe_mat_update_type_t update_type, pipe_mat_ent_hdl_t mat_ent_hdl,
                                   pipe_act_fn_hdl_t act_fn_hdl, void *cookie);

pipe_status_t pipe_register_mat_update_cb(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                          pipe_mat_tbl_hdl_t mat_tbl_hdl, pipe_mat_update_cb cb, void *cookie);

/* ==== Action profiles: action data tables (members) and selector tables (groups) ====
 *
 * An action profile is an action data table, whose entries are members (an action handle and its
 * action data), fronted by a selector table, whose entries are groups of those members. A match
 * table bound to the profile holds entries that point at one member (action_data_type
 * PIPE_ACTION_MBR_TYPE, member_hdl) or one group (PIPE_ACTION_GRP_TYPE, group_hdl). Member and
 * group handles are issued by the driver. */

typedef uint32_t pipe_adt_tbl_hdl_t;
typedef uint32_t pipe_sel_tbl_hdl_t;

/* Whether a member of a group takes part in selection. */
typedef uint32_t pipe_sel_grp_mbr_state_t;
enum { PIPE_SEL_GRP_MBR_STATE_ACTIVE = 0, PIPE_SEL_GRP_MBR_STATE_INACTIVE = 1 };

/* ---- Members ---- */

/* Adds a member: an action handle and the action data of *action_spec (its image and counts; its
 * resource records, if any). mat_tbl_hdl names a match table the member is meant for, 0 for any.
 * Writes the new member's handle through adt_ent_hdl_p. */
pipe_status_t pipe_mgr_adt_ent_add(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt, pipe_adt_tbl_hdl_t adt_tbl_hdl,
                                   pipe_act_fn_hdl_t act_fn_hdl, pipe_mat_tbl_hdl_t mat_tbl_hdl,
                                   pipe_action_spec_t *action_spec, pipe_adt_ent_hdl_t *adt_ent_hdl_p,
                                   uint32_t pipe_api_flags);
/* Replaces a member's action handle and action data. */
pipe_status_t pipe_mgr_adt_ent_set(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_adt_tbl_hdl_t adt_tbl_hdl,
                                   pipe_adt_ent_hdl_t adt_ent_hdl, pipe_act_fn_hdl_t act_fn_hdl,
                                   pipe_action_spec_t *action_spec, uint32_t pipe_api_flags);
pipe_status_t pipe_mgr_adt_ent_del(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_adt_tbl_hdl_t adt_tbl_hdl,
                                   pipe_adt_ent_hdl_t adt_ent_hdl, uint32_t pipe_api_flags);

/* Reads a member: its action handle, and its image into adt_data_spec->action_data_bytes, whose
 * capacity the caller gives in adt_data_spec->num_action_data_bytes. */
pipe_status_t pipe_mgr_get_action_data_entry(pipe_adt_tbl_hdl_t adt_tbl_hdl, dev_target_t dev_tgt,
                                             pipe_adt_ent_hdl_t adt_ent_hdl,
                                             pipe_action_data_spec_t *adt_data_spec,
                                             pipe_act_fn_hdl_t *act_fn_hdl_p, bool from_hw);

/* ---- Groups ---- */

/* Creates an empty group of at most max_grp_size members. mat_tbl_hdl names a match table the
 * group is meant for (0 for any); grp_id is a caller's id for the group (0xdeadbeef for none). */
pipe_status_t pipe_mgr_sel_grp_add(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt, pipe_sel_tbl_hdl_t sel_tbl_hdl,
                                   pipe_mat_tbl_hdl_t mat_tbl_hdl, uint32_t max_grp_size, uint32_t grp_id,
                                   pipe_sel_grp_hdl_t *sel_grp_hdl_p, uint32_t pipe_api_flags);
/* Deletes a group, with whatever members it still holds. */
pipe_status_t pipe_mgr_sel_grp_del(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_sel_tbl_hdl_t sel_tbl_hdl,
                                   pipe_sel_grp_hdl_t sel_grp_hdl, uint32_t pipe_api_flags);
/* Adds a member, whose action handle the caller gives, to a group; it joins active. */
pipe_status_t pipe_mgr_sel_grp_mbr_add(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_sel_tbl_hdl_t sel_tbl_hdl,
                                       pipe_sel_grp_hdl_t sel_grp_hdl, pipe_act_fn_hdl_t act_fn_hdl,
                                       pipe_adt_ent_hdl_t adt_ent_hdl, uint32_t pipe_api_flags);
pipe_status_t pipe_mgr_sel_grp_mbr_del(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_sel_tbl_hdl_t sel_tbl_hdl,
                                       pipe_sel_grp_hdl_t sel_grp_hdl, pipe_adt_ent_hdl_t adt_ent_hdl,
                                       uint32_t pipe_api_flags);
/* A member of a group joins (enable) or leaves (disable) selection while staying in the group. */
pipe_status_t pipe_mgr_sel_grp_mbr_enable(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                          pipe_sel_tbl_hdl_t sel_tbl_hdl, pipe_sel_grp_hdl_t sel_grp_hdl,
                                          pipe_adt_ent_hdl_t adt_ent_hdl, uint32_t pipe_api_flags);
pipe_status_t pipe_mgr_sel_grp_mbr_disable(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                           pipe_sel_tbl_hdl_t sel_tbl_hdl, pipe_sel_grp_hdl_t sel_grp_hdl,
                                           pipe_adt_ent_hdl_t adt_ent_hdl, uint32_t pipe_api_flags);
pipe_status_t pipe_mgr_sel_grp_mbr_state_get(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                             pipe_sel_tbl_hdl_t sel_tbl_hdl, pipe_sel_grp_hdl_t sel_grp_hdl,
                                             pipe_adt_ent_hdl_t adt_ent_hdl, pipe_sel_grp_mbr_state_t *mbr_state_p);
/* The member a hash value picks among the group's active members. */
pipe_status_t pipe_mgr_sel_grp_mbr_get_from_hash(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                                 pipe_sel_tbl_hdl_t sel_tbl_hdl, pipe_sel_grp_hdl_t sel_grp_hdl,
                                                 uint8_t *hash, uint32_t hash_len,
                                                 pipe_adt_ent_hdl_t *adt_ent_hdl_p);
/* The number of members now in a group, active or not. */
pipe_status_t pipe_mgr_get_sel_grp_mbr_count(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                             pipe_sel_tbl_hdl_t sel_tbl_hdl, pipe_sel_grp_hdl_t sel_grp_hdl,
                                             uint32_t *count_p);
/* Up to mbrs_size members of a group, with one state byte each (a pipe_sel_grp_mbr_state_t value);
 * writes how many it filled. */
pipe_status_t pipe_mgr_sel_grp_mbrs_get(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_sel_tbl_hdl_t sel_tbl_hdl,
                                        pipe_sel_grp_hdl_t sel_grp_hdl, uint32_t mbrs_size,
                                        pipe_adt_ent_hdl_t *mbrs, uint8_t *mbr_states, uint32_t *mbrs_populated,
                                        uint32_t pipe_api_flags);
/* The member that serves a group of the table with no active member, on a pipe (or all pipes). */
pipe_status_t pipe_mgr_sel_fallback_mbr_set(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                            pipe_sel_tbl_hdl_t sel_tbl_hdl, pipe_adt_ent_hdl_t adt_ent_hdl,
                                            uint32_t pipe_api_flags);
pipe_status_t pipe_mgr_sel_fallback_mbr_reset(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                              pipe_sel_tbl_hdl_t sel_tbl_hdl, uint32_t pipe_api_flags);

/* Walks of a group's members. Walks of a profile's members and groups, and their counts, go
 * through pipe_mgr_get_first_entry_handle, pipe_mgr_get_next_entry_handles and
 * pipe_mgr_get_entry_count with the action data or selector table handle. */
pipe_status_t pipe_mgr_get_first_group_member(pipe_sess_hdl_t sess_hdl, pipe_sel_tbl_hdl_t sel_tbl_hdl,
                                              bf_dev_id_t dev_id, pipe_sel_grp_hdl_t sel_grp_hdl,
                                              pipe_adt_ent_hdl_t *adt_ent_hdl_p);
pipe_status_t pipe_mgr_get_next_group_members(pipe_sess_hdl_t sess_hdl, pipe_sel_tbl_hdl_t sel_tbl_hdl,
                                              bf_dev_id_t dev_id, pipe_sel_grp_hdl_t sel_grp_hdl,
                                              pipe_adt_ent_hdl_t adt_ent_hdl, int n,
                                              pipe_adt_ent_hdl_t *next_adt_ent_hdls);

/* Active members by selector word, on a pipe. */
pipe_status_t pipe_mgr_get_word_llp_active_member_count(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                                        pipe_sel_tbl_hdl_t sel_tbl_hdl, uint32_t word_index,
                                                        uint32_t *count_p);
pipe_status_t pipe_mgr_get_word_llp_active_members(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                                   pipe_sel_tbl_hdl_t sel_tbl_hdl, uint32_t word_index,
                                                   uint32_t count, pipe_adt_ent_hdl_t *mbrs);

/* ---- Update callbacks ---- */

/* Called for each member that joins (is_add true) or leaves a group of the selector table. */
typedef void (*pipe_sel_tbl_update_cb)(bf_dev_id_t dev_id, pipe_sel_tbl_hdl_t sel_tbl_hdl,
                                       pipe_sel_grp_hdl_t sel_grp_hdl, pipe_adt_ent_hdl_t adt_ent_hdl,
                                       bool is_add, void *cookie);
pipe_status_t pipe_mgr_sel_tbl_register_cb(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                           pipe_sel_tbl_hdl_t sel_tbl_hdl, pipe_sel_tbl_update_cb cb,
                                           void *cookie);

typedef enum pipe_adt_update_type {
  PIPE_ADT_UPDATE_ADD = 0,
  PIPE_ADT_UPDATE_SET = 1,
  PIPE_ADT_UPDATE_DEL = 2
} pipe_adt_update_type_t;

typedef void (*pipe_adt_update_cb)(bf_dev_id_t dev_id, pipe_adt_tbl_hdl_t adt_tbl_hdl,
                                   pipe_adt_update_type_t update_type, pipe_adt_ent_hdl_t adt_ent_hdl,
                                   pipe_act_fn_hdl_t act_fn_hdl, void *cookie);
pipe_status_t pipe_register_adt_update_cb(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                          pipe_adt_tbl_hdl_t adt_tbl_hdl, pipe_adt_update_cb cb, void *cookie);

typedef enum pipe_sel_update_type {
  PIPE_SEL_UPDATE_GROUP_CREATE = 0,
  PIPE_SEL_UPDATE_GROUP_DESTROY = 1,
  PIPE_SEL_UPDATE_ADD = 2,
  PIPE_SEL_UPDATE_DEL = 3,
  PIPE_SEL_UPDATE_ACTIVATE = 4,
  PIPE_SEL_UPDATE_DEACTIVATE = 5,
  PIPE_SEL_UPDATE_SET_FALLBACK = 6,
  PIPE_SEL_UPDATE_CLEAR_FALLBACK = 7
} pipe_sel_update_type_t;

typedef void (*pipe_sel_update_cb)(bf_dev_id_t dev_id, pipe_sel_tbl_hdl_t sel_tbl_hdl,
                                   pipe_sel_update_type_t update_type, pipe_sel_grp_hdl_t sel_grp_hdl,
                                   pipe_adt_ent_hdl_t adt_ent_hdl, void *cookie);
pipe_status_t pipe_register_sel_update_cb(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                          pipe_sel_tbl_hdl_t sel_tbl_hdl, pipe_sel_update_cb cb, void *cookie);

/* ---- Hitless restart ---- */

/* One replayed fact of a profile: a member (group 0), a group (member 0) or a membership (both).
 * act_fn_hdl is the member's action handle (0 for a group); res_indicator is not 0 when the
 * member carries resources. */
typedef void (*pipe_adt_sel_restore_cb)(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                        pipe_adt_tbl_hdl_t adt_tbl_hdl, pipe_act_fn_hdl_t act_fn_hdl,
                                        pipe_sel_grp_hdl_t sel_grp_hdl, pipe_adt_ent_hdl_t adt_ent_hdl,
                                        uint32_t res_indicator);

/* Replays, into cb and before it returns, every member, then every group, then every membership
 * that the driver keeps for a device's profiles. */
pipe_status_t pipe_mgr_hitless_ha_restore_virtual_dev_state(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                                            bf_dev_pipe_t pipe_id, uint32_t arg3, uint32_t arg4,
                                                            pipe_adt_sel_restore_cb cb);

/* ==== Placement data ====
 *
 * A placement datum is the driver's own record of one object as it was placed: a match entry (its
 * value and mask images, priority, partition index, action handle and action record, and whether it
 * is the table's default entry), a member of an action data table (its action handle and record),
 * or a group of a selector table (its members). A client asks for the placement of a whole table at
 * once and gets a placement list: a copy, taken then, of every object of the table on the device,
 * with one datum each, in ascending handle order (a match table's default entry last, when set). The
 * copy does not follow later changes, so a client may keep it and compare it with the device later.
 * The list, and every datum in it, lives until pipe_mgr_plcmt_list_destroy; a datum outlives no list.
 * A datum is an opaque pointer: only the two decoding functions below read it, and they refuse a
 * pointer that is no live datum of the kind they decode (BF_INVALID_ARG). */

/* Writes a new placement list of the table to *plcmt_list (a pipe_plcmt_list_t *, given as void *
 * so that a client passes it through as one word): BF_INVALID_ARG for a null plcmt_list. A table
 * the device has never stored to gives an empty list. */
pipe_status_t pipe_mgr_plcmt_mat_data_get(bf_dev_id_t dev_id, void **plcmt_list, pipe_mat_tbl_hdl_t mat_tbl_hdl);
pipe_status_t pipe_mgr_plcmt_adt_data_get(bf_dev_id_t dev_id, void **plcmt_list, pipe_adt_tbl_hdl_t adt_tbl_hdl);
pipe_status_t pipe_mgr_plcmt_sel_data_get(bf_dev_id_t dev_id, void **plcmt_list, pipe_sel_tbl_hdl_t sel_tbl_hdl);

/* How many datums a list holds; 0 for null. */
uint32_t pipe_mgr_plcmt_list_count(const void *plcmt_list);
/* The index-th datum of a list and, in *hdl (when hdl is not null), the handle of its object: the
 * entry, member or group handle. Null past the end. */
void *pipe_mgr_plcmt_list_datum(const void *plcmt_list, uint32_t index, uint32_t *hdl);
/* Frees a list and its datums; null is ignored. */
void pipe_mgr_plcmt_list_destroy(void *plcmt_list);

/* Decodes a match entry's datum: fills the match record and the action record, and copies the
 * images into the buffers they point to (which must hold the entry's images: its table's key bytes,
 * and its action image), and writes the action handle. A default entry gives num_match_bytes 0
 * and no image copied. BF_INVALID_ARG, nothing written, for a pointer that is no live datum of a
 * match entry, for null records, or for a null image buffer where the entry has an image. */
pipe_status_t pipe_mgr_plcmt_mat_data_get_entry(const void *plcmt_data, pipe_tbl_match_spec_t *match_spec,
                                                pipe_action_spec_t *act_spec, pipe_act_fn_hdl_t *act_fn_hdl);
/* Decodes a member's datum: fills the action record, copies its image as above and writes the
 * action handle. Always writes the action handle when act_fn_hdl is not null: 0 on a refusal. */
pipe_status_t pipe_mgr_plcmt_adt_data_get_entry(const void *plcmt_data, pipe_action_spec_t *act_spec,
                                                pipe_act_fn_hdl_t *act_fn_hdl);

#ifdef __cplusplus
}
#endif

#endif
