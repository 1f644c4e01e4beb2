// Private parts of the model's telemetry (learning digests, parser value sets, dynamic hashes and
// snapshots): the per-family resets that drvm_reset runs, the hash algorithms, and the recording
// helpers the four families share.
#ifndef CV_DRIVER_MODEL_TELEMETRY_H
#define CV_DRIVER_MODEL_TELEMETRY_H

#include <cstddef>
#include <cstdint>

#include "model_internal.h"

namespace drvm {

// ---- Parts of reset_telemetry ----

void reset_learning();
void reset_value_sets();
void reset_hashes();
void reset_snapshots();

// ---- Hash algorithms (hash_algorithms.cpp) ----

// Whether kind is one of the DRVM_HASH_* kinds of drv/model_telemetry.h.
bool hash_kind_known(uint32_t kind);

// The hash of len bytes at stream (null only for len 0) by the algorithm of that kind and the seed,
// placed big-endian into hash_len bytes at hash (see drvm_hash_compute). kind must be known, hash
// non-null. Allocates nothing and cannot fail.
void hash_compute(uint32_t kind, uint64_t seed, const uint8_t *stream, size_t len, uint8_t *hash,
                  size_t hash_len);

// ---- Recording ----

// The fields of a call that takes a session and a bare device id, and names an object by handle:
// the device target is (dev, all pipes).
inline void record_dev_obj(RecordedCall &r, uint32_t sess, bf_dev_id_t dev, uint32_t hdl) {
  r.call.sess_hdl = sess;
  r.call.dev_tgt = dev_target_t{dev, BF_DEV_PIPE_ALL};
  r.call.tbl_hdl = hdl;
}

// A function pointer as the identity a record keeps of it.
template <class Fn>
inline const void *fn_identity(Fn fn) {
  return reinterpret_cast<const void *>(fn);
}

}  // namespace drvm

#endif
