/** @file
 * The driver's pipeline snapshots: captures of the packet header vector over a range of match
 * stages, taken when a trigger comes true. Plain C99. */
#ifndef DRV_BF_SNAPSHOT_H
#define DRV_BF_SNAPSHOT_H

#include "drv/bf_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Issued by bf_snapshot_create. Bit 1 is set for an egress snapshot and clear for an ingress one. */
typedef uint32_t pipe_snapshot_hdl_t;

/** Directions of a snapshot: the ingress or the egress pipeline, each with its own field record. */
enum { BF_SNAPSHOT_DIR_INGRESS = 0, BF_SNAPSHOT_DIR_EGRESS = 1 };
/** The bit of a snapshot handle that is set for an egress snapshot. */
#define BF_SNAPSHOT_HDL_EGRESS_BIT 0x2u

/** The chip's number of match stages: at most this many stages are captured. */
#define BF_SNAPSHOT_MAX_STAGES 20

/** What the driver says of each captured stage. */
typedef struct bf_snapshot_capture_ctrl_info {
  uint32_t stage_id;           /**< the match stage */
  uint8_t valid;               /**< the stage was captured */
  uint8_t prev_stage_trigger;  /**< the capture began in an earlier stage */
  uint8_t timer_trigger;       /**< the capture was taken on the timer */
  uint8_t local_stage_trigger; /**< the trigger came true in this stage */
  uint32_t next_table_hdl;     /**< the table the packet went on to, 0 if none */
} bf_snapshot_capture_ctrl_info_t;

/** What the driver says of each stage of a capture, in stage order from the first of its range. */
typedef struct bf_snapshot_capture_ctrl_info_arr {
  bf_snapshot_capture_ctrl_info_t ctrl[BF_SNAPSHOT_MAX_STAGES]; /**< One record per stage. */
} bf_snapshot_capture_ctrl_info_arr_t;

/** Creates a snapshot of stages start_stage to end_stage of one pipe (0xFFFF: every pipe) in one
 * direction, and writes its handle. */
bf_status_t bf_snapshot_create(bf_dev_id_t dev_id, bf_dev_pipe_t pipe, uint32_t start_stage, uint32_t end_stage,
                               uint32_t direction, pipe_snapshot_hdl_t *hdl);
/** Deletes a snapshot. */
bf_status_t bf_snapshot_delete(pipe_snapshot_hdl_t hdl);
/** The trigger as a value and a mask over the direction's field record, multi-byte fields in network
 * order. The driver copies both. */
bf_status_t bf_snapshot_capture_trigger_set(pipe_snapshot_hdl_t hdl, void *trig_spec, void *trig_mask);
/** The size of a buffer that holds every stage of the snapshot, and the size of one stage's record
 * in it (at least the field record's size). */
bf_status_t bf_snapshot_capture_phv_fields_dict_size(pipe_snapshot_hdl_t hdl, uint32_t *total_size,
                                                     uint32_t *per_stage_size);
/** Fills capture with one record per stage, at the per-stage stride, and ctrl with what each stage
 * says; *num_captures is the number of stages captured. */
bf_status_t bf_snapshot_capture_get(pipe_snapshot_hdl_t hdl, bf_dev_pipe_t pipe, uint8_t *capture,
                                    bf_snapshot_capture_ctrl_info_arr_t *ctrl, int *num_captures);

#ifdef __cplusplus
}
#endif

#endif
