/** @file
 * The driver model's learning digests, parser value sets, dynamic hashes and snapshots: what a test
 * or a user declares to the model before the driver functions of drv/pipe_resources.h and
 * drv/bf_snapshot.h serve them, the model calls that play the traffic (learned records, packets
 * through a snapshot), and views of what the model keeps. See platform/README.md, "Telemetry".
 *
 * None of these functions is a driver call: they are not recorded, take no queued refusal and do
 * not answer in pass-through mode. Each returns BF_SUCCESS or a refusal that changes nothing;
 * BF_NO_SYS_RESOURCES if the model's own memory ran out. drvm_reset forgets every declaration and
 * every setting made here. Plain C99. */
#ifndef DRV_MODEL_TELEMETRY_H
#define DRV_MODEL_TELEMETRY_H

#include "drv/model.h"

#ifdef __cplusplus
extern "C" {
#endif

/** @name Learning digests
 *
 * Per device and digest: a registered callback, a pending batch of learned records, and the
 * messages delivered and not yet acknowledged. A batch is delivered, as one pipe_flow_lrn_msg_t, to
 * the callback when it holds the batch size of records (at once, from drvm_learn) or when the
 * device's learning timeout has passed since its first record (from drvm_learn, or as the model
 * clock moves: drvm_advance_clock). Records learned while no callback is registered are dropped and
 * counted. */
/** @{ */

/** Declares a digest, for every device: its handle and the size of one record in bytes (1 to
 * 65535). BF_INVALID_ARG for size 0 or over 65535; BF_ALREADY_EXISTS for a handle declared with
 * another size (the same declaration again succeeds and changes nothing). */
bf_status_t drvm_declare_digest(uint32_t digest_hdl, uint32_t entry_size);

/** The number of records a batch holds when it is delivered for being full, for every digest of every
 * device; 64 after drvm_reset. 1 to 65535, else BF_INVALID_ARG. A smaller size does not cut a
 * pending batch at once: it is cut at the next drvm_learn of its digest. */
bf_status_t drvm_set_learn_batch_size(uint32_t records);

/** Traffic: n records of the digest, learned on a pipe of a device, packed one after the other
 * (n times the digest's entry size bytes at records). They join the digest's pending batch on the
 * device; every batch that becomes full is delivered, oldest records first, and then the rest too
 * if the timeout has passed since its first record (a timeout of 0 delivers every record at once).
 * With no callback registered the records are dropped (drvm_learn_dropped). Deliveries happen
 * before drvm_learn returns, after the model has taken everything in; a callback may call the
 * driver and the model, drvm_learn included. BF_OBJECT_NOT_FOUND for an undeclared digest;
 * BF_INVALID_ARG for null records with n over 0; n 0 does nothing. */
bf_status_t drvm_learn(bf_dev_id_t dev, bf_dev_pipe_t pipe, uint32_t digest_hdl, const void *records, uint32_t n);

/** The number of records in the digest's pending batch on a device (0 for an unknown digest). */
uint32_t drvm_learn_pending(bf_dev_id_t dev, uint32_t digest_hdl);
/** The number of records dropped on a device since drvm_reset: learned with no callback registered,
 * or pending when the callback was deregistered. */
uint64_t drvm_learn_dropped(bf_dev_id_t dev, uint32_t digest_hdl);
/** The number of messages of the digest delivered on a device since drvm_reset. */
uint64_t drvm_learn_delivered(bf_dev_id_t dev, uint32_t digest_hdl);
/** The number of messages of the digest on a device delivered and not yet acknowledged. */
size_t drvm_learn_outstanding_count(bf_dev_id_t dev, uint32_t digest_hdl);
/** The i-th of them, from 0, in delivery order; null past the last. The message and its records stay
 * valid, at the same address, until pipe_mgr_flow_lrn_notify_ack releases it or drvm_reset. */
const pipe_flow_lrn_msg_t *drvm_learn_outstanding(bf_dev_id_t dev, uint32_t digest_hdl, size_t i);
/** The callback, cookie and session registered for the digest on a device. Any output may be null.
 * BF_OBJECT_NOT_FOUND, writing nothing, while none is registered. */
bf_status_t drvm_learn_callback(bf_dev_id_t dev, uint32_t digest_hdl, pipe_flow_lrn_notify_cb *cb, void **cookie,
                                pipe_sess_hdl_t *sess_hdl);
/** The device's learning timeout in microseconds (pipe_mgr_flow_lrn_set_timeout); 1000 until set. */
uint32_t drvm_learn_timeout(bf_dev_id_t dev);

/** @} */

/** @name Parser value sets */
/** @{ */

/** Declares a value set, for every device: its handle, the number of entries it holds per device (1
 * or more) and the width of its parser field in bits (1 to 32; a value or mask with a bit above the
 * width is refused). BF_INVALID_ARG for a capacity of 0 or a width out of range; BF_ALREADY_EXISTS
 * for a handle declared otherwise (the same declaration again succeeds and changes nothing). */
bf_status_t drvm_declare_value_set(uint32_t pvs_hdl, uint32_t capacity, uint32_t field_bits);
/** The number of entries of the set on a device, in every scope (0 for an unknown set). */
uint32_t drvm_pvs_entry_count(bf_dev_id_t dev, uint32_t pvs_hdl);

/** @} */

/** @name Dynamic hashes */
/** @{ */

/** Algorithm kinds, each a standard hash of the catalogue of parametrised CRCs (width, polynomial,
 * initial value, reflection of input and output, final XOR), and the identity. For every CRC the
 * seed's low width bits are XORed into the initial value (as the catalogue writes it, before any
 * reflection); the identity XORs the seed into its result. The check value is the CRC of the nine
 * ASCII bytes "123456789" with seed 0. */
enum {
  /** The stream's low bits: its last bytes, as many as the result holds, XOR the seed. */
  DRVM_HASH_IDENTITY = 0,
  /** CRC-8/SMBUS: width 8, poly 0x07, init 0x00, not reflected, xorout 0x00; check 0xF4. */
  DRVM_HASH_CRC_8 = 1,
  /** CRC-16/ARC: width 16, poly 0x8005, init 0x0000, reflected, xorout 0x0000; check 0xBB3D. */
  DRVM_HASH_CRC_16 = 2,
  /** CRC-16/IBM-3740 (the "CCITT-FALSE" one): width 16, poly 0x1021, init 0xFFFF, not reflected,
   * xorout 0x0000; check 0x29B1. */
  DRVM_HASH_CRC_16_IBM_3740 = 3,
  /** CRC-32/ISO-HDLC (IEEE 802.3): width 32, poly 0x04C11DB7, init 0xFFFFFFFF, reflected, xorout
   * 0xFFFFFFFF; check 0xCBF43926. */
  DRVM_HASH_CRC_32 = 4,
  /** CRC-32C/ISCSI (Castagnoli): width 32, poly 0x1EDC6F41, init 0xFFFFFFFF, reflected, xorout
   * 0xFFFFFFFF; check 0xE3069283. */
  DRVM_HASH_CRC_32C = 5
};

/** Declares an algorithm handle as one of the kinds above, for every device. BF_INVALID_ARG for
 * handle 0 or an unknown kind; BF_ALREADY_EXISTS for a handle declared as another kind (the same
 * declaration again succeeds and changes nothing). */
bf_status_t drvm_declare_hash_algorithm(uint32_t algo_hdl, uint32_t kind);

/** Declares a dynamic hash, for every device: its handle, the handle of its one input (field list)
 * and its initial algorithm, a declared algorithm handle. On each device the hash starts with that
 * input and algorithm, seed 0 and no field attributes. BF_INVALID_ARG for a hash or input handle of
 * 0; BF_OBJECT_NOT_FOUND for an undeclared algorithm; BF_ALREADY_EXISTS for a hash declared
 * otherwise (the same declaration again succeeds and changes nothing). */
bf_status_t drvm_declare_hash(uint32_t hash_hdl, uint32_t input_hdl, uint32_t algo_hdl);

/** Computes, as pipe_mgr_hash_calc_calculate_hash_value does, the hash of stream_len bytes at stream
 * by the algorithm kind and seed, into hash_len bytes at hash: the result as a big-endian number,
 * right-aligned (a result narrower than hash_len bytes has zero bytes before it; a wider one keeps
 * its low hash_len bytes). BF_INVALID_ARG for an unknown kind, a null hash, hash_len 0 or a null
 * stream with stream_len over 0, writing nothing. */
bf_status_t drvm_hash_compute(uint32_t kind, uint64_t seed, const uint8_t *stream, uint32_t stream_len,
                              uint8_t *hash, uint32_t hash_len);

/** @} */

/** @name Snapshots */
/** @{ */

/** The chip the snapshots run on: its number of match stages (20 after drvm_reset), the size of one
 * stage's block in the driver's capture buffer (1024) and the size of the field record of the packet
 * header vector (809), the size of a trigger's value and mask and of a captured stage's record.
 * BF_INVALID_ARG for 0 stages, a record size of 0, or a block smaller than the record;
 * BF_IN_USE while a snapshot exists. */
bf_status_t drvm_snapshot_configure(uint32_t stages, uint32_t per_stage_size, uint32_t field_record_size);

/** Traffic: a packet passes the pipe of a device (not BF_DEV_PIPE_ALL) with the field record at
 * phv_record (field record size bytes). If the snapshot covers that pipe, has a trigger and has not
 * captured on that pipe since the trigger was set, and the trigger matches the record ((phv & mask)
 * == (value & mask), byte by byte, over the whole record), the snapshot captures: each stage of its
 * range keeps a copy of the record. A capture stays until the next bf_snapshot_capture_trigger_set
 * of the snapshot re-arms it. *captured (if not null) says whether this packet was captured.
 * BF_OBJECT_NOT_FOUND for an unknown handle; BF_INVALID_ARG for a null record or pipe
 * BF_DEV_PIPE_ALL. */
bf_status_t drvm_snapshot_packet(pipe_snapshot_hdl_t hdl, bf_dev_pipe_t pipe, const uint8_t *phv_record,
                                 int *captured);

/** The number of snapshots that exist. */
size_t drvm_snapshot_count(void);
/** A snapshot's trigger as the model keeps it: pointers to its value and mask (field record size
 * bytes each), valid until the trigger is set again, the snapshot deleted or the model reset. Either
 * output may be null. BF_OBJECT_NOT_FOUND for an unknown handle or one without a trigger, writing
 * nothing. */
bf_status_t drvm_snapshot_trigger(pipe_snapshot_hdl_t hdl, const uint8_t **value, const uint8_t **mask);
/** @} */

#ifdef __cplusplus
}
#endif

#endif
