/** @file
 * The driver's records for table entries, and its match-table functions. Plain C99.
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

/** A 64-bit field aligned to 4 bytes on every target, as the target ABI has it. */
typedef uint64_t pipe_u64_a4_t __attribute__((aligned(4)));

/** A key as the driver takes it: value and mask images, both num_match_bytes long. */
typedef struct pipe_tbl_match_spec {
  uint8_t *match_value_bytes;    /**< Offset 0 */
  uint8_t *match_mask_bytes;     /**< Offset 4 */
  uint32_t partition_index;      /**< Offset 8 */
  uint32_t priority;             /**< Offset 12 */
  uint16_t num_valid_match_bits; /**< Offset 16 */
  uint16_t num_match_bytes;      /**< Offset 18 */
  uint32_t reserved;             /**< Offset 20 */
} pipe_tbl_match_spec_t;

/** Rates and bursts of a meter, in the driver's units. 44 bytes. */
typedef struct pipe_meter_spec {
  uint32_t meter_type; /**< Offset 0 */
  uint32_t cir_unit;   /**< Offset 4 */
  pipe_u64_a4_t cir;   /**< Offset 8 */
  pipe_u64_a4_t cburst;/**< Offset 16 */
  uint32_t pir_unit;   /**< Offset 24 */
  pipe_u64_a4_t pir;   /**< Offset 28 */
  pipe_u64_a4_t pburst;/**< Offset 36 */
} pipe_meter_spec_t;

/** Resource tags: whether the entry's action uses the resource. 0 leaves it to the driver. */
enum { PIPE_RES_TAG_NONE = 0, PIPE_RES_TAG_ATTACHED = 1, PIPE_RES_TAG_DETACHED = 2 };

/** One counter, meter or register attached to an entry. 56 bytes. */
typedef struct pipe_res_spec {
  uint32_t tbl_hdl; /**< Offset 0 */
  uint32_t tbl_idx; /**< Offset 4 */
  union {
    pipe_meter_spec_t meter; /**< a meter's rates and bursts */
    uint8_t bytes[44];       /**< any other resource's cell, such as a register value */
  } data;           /**< Offset 8 */
  uint32_t tag;     /**< Offset 52 */
} pipe_res_spec_t;

/** The number of resource records of an action record. */
#define PIPE_NUM_RES_SPECS 4

/** Action data of an action record: counts and the big-endian image. */
typedef struct pipe_action_data_spec {
  uint16_t num_valid_action_data_bits; /**< Offset 4, in the action record */
  uint16_t num_action_data_bytes;      /**< Offset 6 */
  uint8_t *action_data_bytes;          /**< Offset 8 */
} pipe_action_data_spec_t;

/** What an action record holds (its action_data_type). */
enum {
  PIPE_ACTION_DATA_TYPE = 1, /**< the record carries an action image */
  PIPE_ACTION_MBR_TYPE = 2,  /**< the entry points at a profile member */
  PIPE_ACTION_GRP_TYPE = 4   /**< the entry points at a selector group */
};

/** What an entry does. 244 bytes. */
typedef struct pipe_action_spec {
  uint8_t action_data_type;                   /**< Offset 0 */
  uint8_t resource_count;                     /**< Offset 1 */
  uint16_t reserved;                          /**< Offset 2 */
  pipe_action_data_spec_t act_data;           /**< Offset 4 */
  uint32_t member_hdl;                        /**< Offset 12 */
  uint32_t group_hdl;                         /**< Offset 16 */
  pipe_res_spec_t resources[PIPE_NUM_RES_SPECS]; /**< Offset 20 */
} pipe_action_spec_t;

/** @name Match tables */
/** @{ */

/** Adds an entry; writes its handle through ent_hdl_p. The records are read during the call only. */
pipe_status_t pipe_mgr_mat_ent_add(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                   pipe_mat_tbl_hdl_t mat_tbl_hdl,
                                   pipe_tbl_match_spec_t *match_spec,
                                   pipe_act_fn_hdl_t act_fn_hdl, pipe_action_spec_t *act_spec,
                                   uint32_t ttl, uint32_t pipe_api_flags,
                                   pipe_mat_ent_hdl_t *ent_hdl_p);

/** Changes an entry's action, found by handle. */
pipe_status_t pipe_mgr_mat_ent_set_action(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                          pipe_mat_tbl_hdl_t mat_tbl_hdl, pipe_mat_ent_hdl_t mat_ent_hdl,
                                          pipe_act_fn_hdl_t act_fn_hdl, pipe_action_spec_t *act_spec,
                                          uint32_t pipe_api_flags);
/** Changes an entry's action, found by its match record as add sent it. */
pipe_status_t pipe_mgr_mat_ent_set_action_by_match_spec(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                                        pipe_mat_tbl_hdl_t mat_tbl_hdl,
                                                        pipe_tbl_match_spec_t *match_spec,
                                                        pipe_act_fn_hdl_t act_fn_hdl,
                                                        pipe_action_spec_t *act_spec, uint32_t pipe_api_flags);

/** Deletes an entry, found by handle. */
pipe_status_t pipe_mgr_mat_ent_del(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_mat_tbl_hdl_t mat_tbl_hdl,
                                   pipe_mat_ent_hdl_t mat_ent_hdl, uint32_t pipe_api_flags);
/** Deletes an entry, found by its match record as add sent it. */
pipe_status_t pipe_mgr_mat_ent_del_by_match_spec(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                                 pipe_mat_tbl_hdl_t mat_tbl_hdl,
                                                 pipe_tbl_match_spec_t *match_spec, uint32_t pipe_api_flags);

/** Sets a table's default entry, the action on a miss, and writes the default entry's handle. */
pipe_status_t pipe_mgr_mat_default_entry_set(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                             pipe_mat_tbl_hdl_t mat_tbl_hdl, pipe_act_fn_hdl_t act_fn_hdl,
                                             pipe_action_spec_t *act_spec, uint32_t pipe_api_flags,
                                             pipe_mat_ent_hdl_t *ent_hdl_p);
/** Puts a table's default entry back to the program's initial default, or unset if it has none. */
pipe_status_t pipe_mgr_mat_tbl_default_entry_reset(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                                   pipe_mat_tbl_hdl_t mat_tbl_hdl, uint32_t pipe_api_flags);
/** Writes the handle of a table's default entry, whether it is set or not. */
pipe_status_t pipe_mgr_table_get_default_entry_handle(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                                      pipe_mat_tbl_hdl_t mat_tbl_hdl,
                                                      pipe_mat_ent_hdl_t *ent_hdl_p);
/** Fills *act_spec: action_data_type, counts, the image into act_data.action_data_bytes (whose
 * capacity the caller gives in act_data.num_action_data_bytes), member and group handles and the
 * resource records; and the action handle. */
pipe_status_t pipe_mgr_table_get_default_entry(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                               pipe_mat_tbl_hdl_t mat_tbl_hdl, pipe_action_spec_t *act_spec,
                                               pipe_act_fn_hdl_t *act_fn_hdl_p, bool from_hw,
                                               uint32_t res_get_flags, void *res_data);

/** Reads an entry by handle: the images into the caller's buffers (num_match_bytes each), priority
 * and partition index into *match_spec, and the action as pipe_mgr_table_get_default_entry does. A
 * default entry reads back with a null value image and num_match_bytes 0. */
pipe_status_t pipe_mgr_get_entry(pipe_sess_hdl_t sess_hdl, pipe_mat_tbl_hdl_t mat_tbl_hdl, dev_target_t dev_tgt,
                                 pipe_mat_ent_hdl_t mat_ent_hdl, pipe_tbl_match_spec_t *match_spec,
                                 pipe_action_spec_t *act_spec, pipe_act_fn_hdl_t *act_fn_hdl_p, bool from_hw,
                                 uint32_t res_get_flags, void *res_data);

/** Finds the handle of the entry whose match record is the one given, as add sent it. */
pipe_status_t pipe_mgr_match_spec_to_ent_hdl(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                             pipe_mat_tbl_hdl_t mat_tbl_hdl, pipe_tbl_match_spec_t *match_spec,
                                             pipe_mat_ent_hdl_t *ent_hdl_p, bool light_pipe_validation);

/** Writes the first handle of a table's entries: iteration over them, in a stable order. */
pipe_status_t pipe_mgr_get_first_entry_handle(pipe_sess_hdl_t sess_hdl, pipe_mat_tbl_hdl_t mat_tbl_hdl,
                                              dev_target_t dev_tgt, pipe_mat_ent_hdl_t *ent_hdl_p);
/** Writes up to n handles that follow mat_ent_hdl, and 0xFFFFFFFF into the slots after the last
 * one written. */
pipe_status_t pipe_mgr_get_next_entry_handles(pipe_sess_hdl_t sess_hdl, pipe_mat_tbl_hdl_t mat_tbl_hdl,
                                              dev_target_t dev_tgt, pipe_mat_ent_hdl_t mat_ent_hdl, int n,
                                              pipe_mat_ent_hdl_t *next_ent_hdls);
/** Writes the number of a table's entries; the default entry does not count. */
pipe_status_t pipe_mgr_get_entry_count(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                       pipe_mat_tbl_hdl_t mat_tbl_hdl, bool read_from_hw, uint32_t *count_p);

/** Sets a table property: codes and values are the driver's own 32-bit words. */
pipe_status_t pipe_mgr_tbl_set_property(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_mat_tbl_hdl_t tbl_hdl,
                                        uint32_t property, uint32_t value, uint32_t args, uint32_t pipe_api_flags);
/** Reads a table property as set. */
pipe_status_t pipe_mgr_tbl_get_property(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_mat_tbl_hdl_t tbl_hdl,
                                        uint32_t property, uint32_t *value_p, uint32_t *args_p);

/** Entry updates, reported to a callback registered per device and table. */
typedef enum pipe_mat_update_type {
  PIPE_MAT_UPDATE_ADD = 0,          /**< an entry was added */
  PIPE_MAT_UPDATE_SET_ACTION = 1,   /**< an entry's action was changed */
  PIPE_MAT_UPDATE_DEL = 2,          /**< an entry was deleted */
  PIPE_MAT_UPDATE_SET_DEFAULT = 3,  /**< the default entry was set */
  PIPE_MAT_UPDATE_CLEAR_DEFAULT = 4 /**< the default entry was reset */
} pipe_mat_update_type_t;

/** Called after each change of an entry of the table, with the entry's handle and its action
 * handle. */
typedef void (*pipe_mat_update_cb)(bf_dev_id_t dev_id, pipe_mat_tbl_hdl_t mat_tbl_hdl,
                                   pipe_mat_update_type_t update_type, pipe_mat_ent_hdl_t mat_ent_hdl,
                                   pipe_act_fn_hdl_t act_fn_hdl, void *cookie);

/** Registers a table's update callback and its cookie on a device, replacing any former one; a
 * null cb removes it. */
pipe_status_t pipe_register_mat_update_cb(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                          pipe_mat_tbl_hdl_t mat_tbl_hdl, pipe_mat_update_cb cb, void *cookie);

/** @} */

/** @name Action profiles: action data tables (members) and selector tables (groups)
 *
 * An action profile is an action data table, whose entries are members (an action handle and its
 * action data), fronted by a selector table, whose entries are groups of those members. A match
 * table bound to the profile holds entries that point at one member (action_data_type
 * PIPE_ACTION_MBR_TYPE, member_hdl) or one group (PIPE_ACTION_GRP_TYPE, group_hdl). Member and
 * group handles are issued by the driver. */
/** @{ */

typedef uint32_t pipe_adt_tbl_hdl_t; /**< An action data table, by the program's handle. */
typedef uint32_t pipe_sel_tbl_hdl_t; /**< A selector table, by the program's handle. */

/** Whether a member of a group takes part in selection. */
typedef uint32_t pipe_sel_grp_mbr_state_t;
/** The two member states: active (takes part) and inactive. */
enum { PIPE_SEL_GRP_MBR_STATE_ACTIVE = 0, PIPE_SEL_GRP_MBR_STATE_INACTIVE = 1 };

/** @} */

/** @name Members */
/** @{ */

/** Adds a member: an action handle and the action data of *action_spec (its image and counts; its
 * resource records, if any). mat_tbl_hdl names a match table the member is meant for, 0 for any.
 * Writes the new member's handle through adt_ent_hdl_p. */
pipe_status_t pipe_mgr_adt_ent_add(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt, pipe_adt_tbl_hdl_t adt_tbl_hdl,
                                   pipe_act_fn_hdl_t act_fn_hdl, pipe_mat_tbl_hdl_t mat_tbl_hdl,
                                   pipe_action_spec_t *action_spec, pipe_adt_ent_hdl_t *adt_ent_hdl_p,
                                   uint32_t pipe_api_flags);
/** Replaces a member's action handle and action data. */
pipe_status_t pipe_mgr_adt_ent_set(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_adt_tbl_hdl_t adt_tbl_hdl,
                                   pipe_adt_ent_hdl_t adt_ent_hdl, pipe_act_fn_hdl_t act_fn_hdl,
                                   pipe_action_spec_t *action_spec, uint32_t pipe_api_flags);
/** Deletes a member that no group, entry or fallback setting holds. */
pipe_status_t pipe_mgr_adt_ent_del(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_adt_tbl_hdl_t adt_tbl_hdl,
                                   pipe_adt_ent_hdl_t adt_ent_hdl, uint32_t pipe_api_flags);

/** Reads a member: its action handle, and its image into adt_data_spec->action_data_bytes, whose
 * capacity the caller gives in adt_data_spec->num_action_data_bytes. */
pipe_status_t pipe_mgr_get_action_data_entry(pipe_adt_tbl_hdl_t adt_tbl_hdl, dev_target_t dev_tgt,
                                             pipe_adt_ent_hdl_t adt_ent_hdl,
                                             pipe_action_data_spec_t *adt_data_spec,
                                             pipe_act_fn_hdl_t *act_fn_hdl_p, bool from_hw);

/** @} */

/** @name Groups */
/** @{ */

/** Creates an empty group of at most max_grp_size members. mat_tbl_hdl names a match table the
 * group is meant for (0 for any); grp_id is a caller's id for the group (0xdeadbeef for none). */
pipe_status_t pipe_mgr_sel_grp_add(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt, pipe_sel_tbl_hdl_t sel_tbl_hdl,
                                   pipe_mat_tbl_hdl_t mat_tbl_hdl, uint32_t max_grp_size, uint32_t grp_id,
                                   pipe_sel_grp_hdl_t *sel_grp_hdl_p, uint32_t pipe_api_flags);
/** Deletes a group, with whatever members it still holds. */
pipe_status_t pipe_mgr_sel_grp_del(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_sel_tbl_hdl_t sel_tbl_hdl,
                                   pipe_sel_grp_hdl_t sel_grp_hdl, uint32_t pipe_api_flags);
/** Adds a member, whose action handle the caller gives, to a group; it joins active. */
pipe_status_t pipe_mgr_sel_grp_mbr_add(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_sel_tbl_hdl_t sel_tbl_hdl,
                                       pipe_sel_grp_hdl_t sel_grp_hdl, pipe_act_fn_hdl_t act_fn_hdl,
                                       pipe_adt_ent_hdl_t adt_ent_hdl, uint32_t pipe_api_flags);
/** Takes a member out of a group; the others keep their order. */
pipe_status_t pipe_mgr_sel_grp_mbr_del(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_sel_tbl_hdl_t sel_tbl_hdl,
                                       pipe_sel_grp_hdl_t sel_grp_hdl, pipe_adt_ent_hdl_t adt_ent_hdl,
                                       uint32_t pipe_api_flags);
/** A member of a group joins selection (becomes active) while staying in the group. */
pipe_status_t pipe_mgr_sel_grp_mbr_enable(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                          pipe_sel_tbl_hdl_t sel_tbl_hdl, pipe_sel_grp_hdl_t sel_grp_hdl,
                                          pipe_adt_ent_hdl_t adt_ent_hdl, uint32_t pipe_api_flags);
/** A member of a group leaves selection (becomes inactive) while staying in the group. */
pipe_status_t pipe_mgr_sel_grp_mbr_disable(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                           pipe_sel_tbl_hdl_t sel_tbl_hdl, pipe_sel_grp_hdl_t sel_grp_hdl,
                                           pipe_adt_ent_hdl_t adt_ent_hdl, uint32_t pipe_api_flags);
/** Writes a member's state in a group: PIPE_SEL_GRP_MBR_STATE_ACTIVE or _INACTIVE. */
pipe_status_t pipe_mgr_sel_grp_mbr_state_get(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                             pipe_sel_tbl_hdl_t sel_tbl_hdl, pipe_sel_grp_hdl_t sel_grp_hdl,
                                             pipe_adt_ent_hdl_t adt_ent_hdl, pipe_sel_grp_mbr_state_t *mbr_state_p);
/** The member a hash value picks among the group's active members. */
pipe_status_t pipe_mgr_sel_grp_mbr_get_from_hash(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                                 pipe_sel_tbl_hdl_t sel_tbl_hdl, pipe_sel_grp_hdl_t sel_grp_hdl,
                                                 uint8_t *hash, uint32_t hash_len,
                                                 pipe_adt_ent_hdl_t *adt_ent_hdl_p);
/** The number of members now in a group, active or not. */
pipe_status_t pipe_mgr_get_sel_grp_mbr_count(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                             pipe_sel_tbl_hdl_t sel_tbl_hdl, pipe_sel_grp_hdl_t sel_grp_hdl,
                                             uint32_t *count_p);
/** Up to mbrs_size members of a group, with one state byte each (a pipe_sel_grp_mbr_state_t value);
 * writes how many it filled. */
pipe_status_t pipe_mgr_sel_grp_mbrs_get(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_sel_tbl_hdl_t sel_tbl_hdl,
                                        pipe_sel_grp_hdl_t sel_grp_hdl, uint32_t mbrs_size,
                                        pipe_adt_ent_hdl_t *mbrs, uint8_t *mbr_states, uint32_t *mbrs_populated,
                                        uint32_t pipe_api_flags);
/** The member that serves a group of the table with no active member, on a pipe (or all pipes). */
pipe_status_t pipe_mgr_sel_fallback_mbr_set(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                            pipe_sel_tbl_hdl_t sel_tbl_hdl, pipe_adt_ent_hdl_t adt_ent_hdl,
                                            uint32_t pipe_api_flags);
/** Clears the fallback member of the table on a pipe (or all pipes). */
pipe_status_t pipe_mgr_sel_fallback_mbr_reset(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                              pipe_sel_tbl_hdl_t sel_tbl_hdl, uint32_t pipe_api_flags);

/** Writes the first member of a group: walks of a group's members, in ascending member handle.
 * Walks of a profile's members and groups, and their counts, go through
 * pipe_mgr_get_first_entry_handle, pipe_mgr_get_next_entry_handles and pipe_mgr_get_entry_count
 * with the action data or selector table handle. */
pipe_status_t pipe_mgr_get_first_group_member(pipe_sess_hdl_t sess_hdl, pipe_sel_tbl_hdl_t sel_tbl_hdl,
                                              bf_dev_id_t dev_id, pipe_sel_grp_hdl_t sel_grp_hdl,
                                              pipe_adt_ent_hdl_t *adt_ent_hdl_p);
/** Writes up to n members of a group that follow adt_ent_hdl, and 0xFFFFFFFF into the slots after
 * the last one written. */
pipe_status_t pipe_mgr_get_next_group_members(pipe_sess_hdl_t sess_hdl, pipe_sel_tbl_hdl_t sel_tbl_hdl,
                                              bf_dev_id_t dev_id, pipe_sel_grp_hdl_t sel_grp_hdl,
                                              pipe_adt_ent_hdl_t adt_ent_hdl, int n,
                                              pipe_adt_ent_hdl_t *next_adt_ent_hdls);

/** Writes the number of active members of the group of a selector word, on a pipe: word w is the
 * w-th group seen on the pipe, in ascending group handle. */
pipe_status_t pipe_mgr_get_word_llp_active_member_count(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                                        pipe_sel_tbl_hdl_t sel_tbl_hdl, uint32_t word_index,
                                                        uint32_t *count_p);
/** Writes the first count active members of the group of a selector word, in join order, and
 * 0xFFFFFFFF into the slots after the last one. */
pipe_status_t pipe_mgr_get_word_llp_active_members(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                                   pipe_sel_tbl_hdl_t sel_tbl_hdl, uint32_t word_index,
                                                   uint32_t count, pipe_adt_ent_hdl_t *mbrs);

/** @} */

/** @name Update callbacks */
/** @{ */

/** Called for each member that joins (is_add true) or leaves a group of the selector table. */
typedef void (*pipe_sel_tbl_update_cb)(bf_dev_id_t dev_id, pipe_sel_tbl_hdl_t sel_tbl_hdl,
                                       pipe_sel_grp_hdl_t sel_grp_hdl, pipe_adt_ent_hdl_t adt_ent_hdl,
                                       bool is_add, void *cookie);
/** Registers a selector table's membership callback and its cookie on a device, replacing any
 * former one; a null cb removes it. */
pipe_status_t pipe_mgr_sel_tbl_register_cb(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                           pipe_sel_tbl_hdl_t sel_tbl_hdl, pipe_sel_tbl_update_cb cb,
                                           void *cookie);

/** Changes of a member, as reported to an action data table's update callback. */
typedef enum pipe_adt_update_type {
  PIPE_ADT_UPDATE_ADD = 0, /**< a member was added */
  PIPE_ADT_UPDATE_SET = 1, /**< a member's action was replaced */
  PIPE_ADT_UPDATE_DEL = 2  /**< a member was deleted */
} pipe_adt_update_type_t;

/** Called after each change of a member of the table, with its (new) action handle. */
typedef void (*pipe_adt_update_cb)(bf_dev_id_t dev_id, pipe_adt_tbl_hdl_t adt_tbl_hdl,
                                   pipe_adt_update_type_t update_type, pipe_adt_ent_hdl_t adt_ent_hdl,
                                   pipe_act_fn_hdl_t act_fn_hdl, void *cookie);
/** Registers an action data table's update callback and its cookie on a device, replacing any
 * former one; a null cb removes it. */
pipe_status_t pipe_register_adt_update_cb(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                          pipe_adt_tbl_hdl_t adt_tbl_hdl, pipe_adt_update_cb cb, void *cookie);

/** Changes of a selector table, as reported to its update callback. */
typedef enum pipe_sel_update_type {
  PIPE_SEL_UPDATE_GROUP_CREATE = 0,  /**< a group was created (member 0) */
  PIPE_SEL_UPDATE_GROUP_DESTROY = 1, /**< a group was deleted (member 0) */
  PIPE_SEL_UPDATE_ADD = 2,           /**< a member was added to a group */
  PIPE_SEL_UPDATE_DEL = 3,           /**< a member was taken out of a group */
  PIPE_SEL_UPDATE_ACTIVATE = 4,      /**< a member of a group was made active */
  PIPE_SEL_UPDATE_DEACTIVATE = 5,    /**< a member of a group was made inactive */
  PIPE_SEL_UPDATE_SET_FALLBACK = 6,  /**< a fallback member was set (group 0) */
  PIPE_SEL_UPDATE_CLEAR_FALLBACK = 7 /**< a fallback member was cleared (group 0) */
} pipe_sel_update_type_t;

/** Called after each change of the selector table, with the group and member it concerns. */
typedef void (*pipe_sel_update_cb)(bf_dev_id_t dev_id, pipe_sel_tbl_hdl_t sel_tbl_hdl,
                                   pipe_sel_update_type_t update_type, pipe_sel_grp_hdl_t sel_grp_hdl,
                                   pipe_adt_ent_hdl_t adt_ent_hdl, void *cookie);
/** Registers a selector table's update callback and its cookie on a device, replacing any former
 * one; a null cb removes it. */
pipe_status_t pipe_register_sel_update_cb(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                          pipe_sel_tbl_hdl_t sel_tbl_hdl, pipe_sel_update_cb cb, void *cookie);

/** @} */

/** @name Hitless restart */
/** @{ */

/** One replayed fact of a profile: a member (group 0), a group (member 0) or a membership (both).
 * act_fn_hdl is the member's action handle (0 for a group); res_indicator is not 0 when the
 * member carries resources. */
typedef void (*pipe_adt_sel_restore_cb)(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                        pipe_adt_tbl_hdl_t adt_tbl_hdl, pipe_act_fn_hdl_t act_fn_hdl,
                                        pipe_sel_grp_hdl_t sel_grp_hdl, pipe_adt_ent_hdl_t adt_ent_hdl,
                                        uint32_t res_indicator);

/** Replays, into cb and before it returns, every member, then every group, then every membership
 * that the driver keeps for a device's profiles. */
pipe_status_t pipe_mgr_hitless_ha_restore_virtual_dev_state(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                                            bf_dev_pipe_t pipe_id, uint32_t arg3, uint32_t arg4,
                                                            pipe_adt_sel_restore_cb cb);

/** @} */

/** @name Placement data
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
/** @{ */

/** Writes a new placement list of the table to *plcmt_list (a pipe_plcmt_list_t *, given as void *
 * so that a client passes it through as one word): BF_INVALID_ARG for a null plcmt_list. A table
 * the device has never stored to gives an empty list. */
pipe_status_t pipe_mgr_plcmt_mat_data_get(bf_dev_id_t dev_id, void **plcmt_list, pipe_mat_tbl_hdl_t mat_tbl_hdl);
/** A new placement list of the members of an action data table, as pipe_mgr_plcmt_mat_data_get. */
pipe_status_t pipe_mgr_plcmt_adt_data_get(bf_dev_id_t dev_id, void **plcmt_list, pipe_adt_tbl_hdl_t adt_tbl_hdl);
/** A new placement list of the groups of a selector table, as pipe_mgr_plcmt_mat_data_get. Its
 * datums have no decoder. */
pipe_status_t pipe_mgr_plcmt_sel_data_get(bf_dev_id_t dev_id, void **plcmt_list, pipe_sel_tbl_hdl_t sel_tbl_hdl);

/** How many datums a list holds; 0 for null. */
uint32_t pipe_mgr_plcmt_list_count(const void *plcmt_list);
/** The index-th datum of a list and, in *hdl (when hdl is not null), the handle of its object: the
 * entry, member or group handle. Null past the end. */
void *pipe_mgr_plcmt_list_datum(const void *plcmt_list, uint32_t index, uint32_t *hdl);
/** Frees a list and its datums; null is ignored. */
void pipe_mgr_plcmt_list_destroy(void *plcmt_list);

/** Decodes a match entry's datum: fills the match record and the action record, and copies the
 * images into the buffers they point to (which must hold the entry's images: its table's key bytes,
 * and its action image), and writes the action handle. A default entry gives num_match_bytes 0
 * and no image copied. BF_INVALID_ARG, nothing written, for a pointer that is no live datum of a
 * match entry, for null records, or for a null image buffer where the entry has an image. */
pipe_status_t pipe_mgr_plcmt_mat_data_get_entry(const void *plcmt_data, pipe_tbl_match_spec_t *match_spec,
                                                pipe_action_spec_t *act_spec, pipe_act_fn_hdl_t *act_fn_hdl);
/** Decodes a member's datum: fills the action record, copies its image as above and writes the
 * action handle. Always writes the action handle when act_fn_hdl is not null: 0 on a refusal. */
pipe_status_t pipe_mgr_plcmt_adt_data_get_entry(const void *plcmt_data, pipe_action_spec_t *act_spec,
                                                pipe_act_fn_hdl_t *act_fn_hdl);
/** @} */

#ifdef __cplusplus
}
#endif

#endif
