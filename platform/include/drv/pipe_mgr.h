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

#ifdef __cplusplus
}
#endif

#endif
