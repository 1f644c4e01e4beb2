// Dynamic hashes: the input in force, the algorithm, the seed and the field attributes of each hash
// on each device, and the hash of a field stream computed in software.
//
// A hash and the algorithm handles are declared to the model (drvm_declare_hash,
// drvm_declare_hash_algorithm). A device's state of a hash is made at its first change; until then
// it reads as the declaration: the declared input and algorithm, seed 0, no attributes.
#include <algorithm>
#include <cstring>
#include <map>
#include <utility>
#include <vector>

#include "telemetry.h"

using namespace drvm;

namespace {

using Attr = pipe_hash_calc_input_field_attribute_t;

struct Decl {
  uint32_t input;
  uint32_t algo;
};

struct State {
  uint32_t algo = 0;
  uint64_t seed = 0;
  std::vector<Attr> attrs;
};

using Key = std::pair<bf_dev_id_t, uint32_t>;

std::map<uint32_t, uint32_t> g_algos;  // declared algorithm handles -> kind
std::map<uint32_t, Decl> g_hashes;     // declared hashes
std::map<Key, State> g_states;

const Decl *decl_of(uint32_t hash) {
  auto it = g_hashes.find(hash);
  return it == g_hashes.end() ? nullptr : &it->second;
}

// The state of a hash on a device, as it reads (the declaration's until the first change).
struct View {
  uint32_t algo;
  uint64_t seed;
  const std::vector<Attr> *attrs;
};
View view_of(bf_dev_id_t dev, uint32_t hash, const Decl &d) {
  static const std::vector<Attr> kNone;
  auto it = g_states.find(Key{dev, hash});
  if (it == g_states.end()) return View{d.algo, 0, &kNone};
  return View{it->second.algo, it->second.seed, &it->second.attrs};
}

// The state to change, made from the declaration if new. May throw, changing nothing.
State &touch(bf_dev_id_t dev, uint32_t hash, const Decl &d) {
  auto [it, made] = g_states.try_emplace(Key{dev, hash});
  if (made) it->second.algo = d.algo;
  return it->second;
}

}  // namespace

namespace drvm {

void reset_hashes() {
  g_algos.clear();
  g_hashes.clear();
  g_states.clear();
}

}  // namespace drvm

extern "C" {

pipe_status_t pipe_mgr_hash_calc_input_set(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_hash_calc_hdl_t handle,
                                           uint32_t input_hdl) {
  return DRIVER_CALL(
      "pipe_mgr_hash_calc_input_set", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_dev_obj(r, sess_hdl, dev_id, handle);
        r.call.arg_u32[0] = input_hdl;
      },
      [&](RecordedCall *, Notices &) -> bf_status_t {
        const Decl *d = decl_of(handle);
        if (d == nullptr) return BF_OBJECT_NOT_FOUND;
        // A hash has one input: setting it is choosing it again, which changes nothing.
        return input_hdl == d->input ? BF_SUCCESS : BF_INVALID_ARG;
      });
}

pipe_status_t pipe_mgr_hash_calc_input_get(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_hash_calc_hdl_t handle,
                                           uint32_t *input_hdl) {
  return DRIVER_CALL(
      "pipe_mgr_hash_calc_input_get", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_dev_obj(r, sess_hdl, dev_id, handle);
        r.call.ptr_arg = input_hdl;
      },
      [&](RecordedCall *rec, Notices &) -> bf_status_t {
        const Decl *d = decl_of(handle);
        if (d == nullptr) return BF_OBJECT_NOT_FOUND;
        if (input_hdl == nullptr) return BF_INVALID_ARG;
        *input_hdl = d->input;
        if (rec) rec->call.arg_u32[0] = d->input;
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_hash_calc_algorithm_set(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                               pipe_hash_calc_hdl_t handle, uint32_t algo_hdl, const void *algorithm,
                                               uint32_t rotate, uint32_t seed_bits) {
  return DRIVER_CALL(
      "pipe_mgr_hash_calc_algorithm_set", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_dev_obj(r, sess_hdl, dev_id, handle);
        r.call.arg_u32[0] = algo_hdl;
        r.call.arg_u32[1] = rotate;
        r.call.arg_u32[2] = seed_bits;
        r.call.ptr_arg = algorithm;
      },
      [&](RecordedCall *, Notices &) -> bf_status_t {
        const Decl *d = decl_of(handle);
        if (d == nullptr) return BF_OBJECT_NOT_FOUND;
        if (g_algos.count(algo_hdl) == 0) return BF_INVALID_ARG;
        if (algorithm != nullptr || rotate != 0 || seed_bits != 0) return BF_NOT_SUPPORTED;
        touch(dev_id, handle, *d).algo = algo_hdl;
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_hash_calc_algorithm_get(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                               pipe_hash_calc_hdl_t handle, uint32_t *algo_hdl, void *algorithm,
                                               uint32_t *rotate) {
  return DRIVER_CALL(
      "pipe_mgr_hash_calc_algorithm_get", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_dev_obj(r, sess_hdl, dev_id, handle);
        r.call.arg_u32[1] = (algo_hdl ? 1u : 0u) | (algorithm ? 2u : 0u) | (rotate ? 4u : 0u);
        r.call.ptr_arg = algo_hdl;
        r.call.ptr_arg2 = algorithm;
      },
      [&](RecordedCall *rec, Notices &) -> bf_status_t {
        const Decl *d = decl_of(handle);
        if (d == nullptr) return BF_OBJECT_NOT_FOUND;
        if (algo_hdl == nullptr) return BF_INVALID_ARG;
        const View v = view_of(dev_id, handle, *d);
        *algo_hdl = v.algo;
        // The model has no refinement of an algorithm: nothing is written through `algorithm`, and
        // the rotation is always 0.
        if (rotate) *rotate = 0;
        if (rec) rec->call.arg_u32[0] = v.algo;
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_hash_calc_seed_set(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_hash_calc_hdl_t handle,
                                          uint64_t seed) {
  return DRIVER_CALL(
      "pipe_mgr_hash_calc_seed_set", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_dev_obj(r, sess_hdl, dev_id, handle);
        r.call.arg_u64 = seed;
      },
      [&](RecordedCall *, Notices &) -> bf_status_t {
        const Decl *d = decl_of(handle);
        if (d == nullptr) return BF_OBJECT_NOT_FOUND;
        touch(dev_id, handle, *d).seed = seed;
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_hash_calc_seed_get(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_hash_calc_hdl_t handle,
                                          uint64_t *seed) {
  return DRIVER_CALL(
      "pipe_mgr_hash_calc_seed_get", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_dev_obj(r, sess_hdl, dev_id, handle);
        r.call.ptr_arg = seed;
      },
      [&](RecordedCall *rec, Notices &) -> bf_status_t {
        const Decl *d = decl_of(handle);
        if (d == nullptr) return BF_OBJECT_NOT_FOUND;
        if (seed == nullptr) return BF_INVALID_ARG;
        const View v = view_of(dev_id, handle, *d);
        *seed = v.seed;
        if (rec) rec->call.arg_u64 = v.seed;
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_hash_calc_input_field_attribute_set(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                                           pipe_hash_calc_hdl_t handle, uint32_t input_hdl,
                                                           uint32_t attr_count, Attr *attr_list) {
  return DRIVER_CALL(
      "pipe_mgr_hash_calc_input_field_attribute_set", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_dev_obj(r, sess_hdl, dev_id, handle);
        r.call.arg_u32[0] = input_hdl;
        r.call.arg_u32[1] = attr_count;
        r.call.ptr_arg = attr_list;
        r.copy_bytes(reinterpret_cast<const uint8_t *>(attr_list), attr_list ? size_t(attr_count) * sizeof(Attr) : 0);
      },
      [&](RecordedCall *, Notices &) -> bf_status_t {
        const Decl *d = decl_of(handle);
        if (d == nullptr) return BF_OBJECT_NOT_FOUND;
        if (input_hdl != d->input || (attr_list == nullptr && attr_count != 0)) return BF_INVALID_ARG;
        std::vector<Attr> list(attr_list, attr_list + (attr_list ? attr_count : 0));  // may throw
        touch(dev_id, handle, *d).attrs.swap(list);                                   // may throw first
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_hash_calc_input_field_attribute_count_get(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                                                 pipe_hash_calc_hdl_t handle, uint32_t input_hdl,
                                                                 uint32_t *attr_count) {
  return DRIVER_CALL(
      "pipe_mgr_hash_calc_input_field_attribute_count_get", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_dev_obj(r, sess_hdl, dev_id, handle);
        r.call.arg_u32[0] = input_hdl;
        r.call.ptr_arg = attr_count;
      },
      [&](RecordedCall *rec, Notices &) -> bf_status_t {
        const Decl *d = decl_of(handle);
        if (d == nullptr) return BF_OBJECT_NOT_FOUND;
        if (input_hdl != d->input || attr_count == nullptr) return BF_INVALID_ARG;
        const uint32_t n = static_cast<uint32_t>(view_of(dev_id, handle, *d).attrs->size());
        *attr_count = n;
        if (rec) rec->call.arg_u32[1] = n;
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_hash_calc_input_field_attribute_get(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                                           pipe_hash_calc_hdl_t handle, uint32_t input_hdl,
                                                           uint32_t max_attr_count, Attr *attr_list,
                                                           uint32_t *num_attr_filled) {
  return DRIVER_CALL(
      "pipe_mgr_hash_calc_input_field_attribute_get", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_dev_obj(r, sess_hdl, dev_id, handle);
        r.call.arg_u32[0] = input_hdl;
        r.call.arg_u32[1] = max_attr_count;
        r.call.ptr_arg = attr_list;
      },
      [&](RecordedCall *rec, Notices &) -> bf_status_t {
        const Decl *d = decl_of(handle);
        if (d == nullptr) return BF_OBJECT_NOT_FOUND;
        if (input_hdl != d->input || num_attr_filled == nullptr || (attr_list == nullptr && max_attr_count != 0))
          return BF_INVALID_ARG;
        const std::vector<Attr> &attrs = *view_of(dev_id, handle, *d).attrs;
        const uint32_t n = std::min<uint32_t>(max_attr_count, static_cast<uint32_t>(attrs.size()));
        if (n) std::memcpy(attr_list, attrs.data(), n * sizeof(Attr));
        *num_attr_filled = n;
        if (rec) rec->call.arg_u32[2] = n;
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_hash_calc_calculate_hash_value(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id,
                                                      pipe_hash_calc_hdl_t handle, uint8_t *stream,
                                                      uint32_t stream_len, uint8_t *hash, uint32_t hash_len) {
  return DRIVER_CALL(
      "pipe_mgr_hash_calc_calculate_hash_value", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_dev_obj(r, sess_hdl, dev_id, handle);
        r.call.arg_u32[0] = stream_len;
        r.call.arg_u32[1] = hash_len;
        r.call.ptr_arg = hash;
        r.copy_bytes(stream, stream ? stream_len : 0);
      },
      [&](RecordedCall *rec, Notices &) -> bf_status_t {
        const Decl *d = decl_of(handle);
        if (d == nullptr) return BF_OBJECT_NOT_FOUND;
        if (hash == nullptr || hash_len == 0 || (stream == nullptr && stream_len != 0)) return BF_INVALID_ARG;
        const View v = view_of(dev_id, handle, *d);
        const uint32_t kind = g_algos.at(v.algo);
        if (rec == nullptr) {  // nothing to copy: straight into the caller's buffer
          hash_compute(kind, v.seed, stream, stream_len, hash, hash_len);
          return BF_SUCCESS;
        }
        // The record's copy of the result is made before the caller's buffer is written.
        std::vector<uint8_t> out(hash_len);
        hash_compute(kind, v.seed, stream, stream_len, out.data(), hash_len);
        rec->copy_bytes2(out.data(), hash_len);
        std::memcpy(hash, out.data(), hash_len);
        return BF_SUCCESS;
      });
}

// ---- The model's side ----

bf_status_t drvm_declare_hash_algorithm(uint32_t algo_hdl, uint32_t kind) {
  const ModelLock lock;
  if (algo_hdl == 0 || !hash_kind_known(kind)) return BF_INVALID_ARG;
  auto it = g_algos.find(algo_hdl);
  if (it != g_algos.end()) return it->second == kind ? BF_SUCCESS : BF_ALREADY_EXISTS;
  try {
    g_algos.emplace(algo_hdl, kind);
  } catch (const std::bad_alloc &) {
    return BF_NO_SYS_RESOURCES;
  }
  return BF_SUCCESS;
}

bf_status_t drvm_declare_hash(uint32_t hash_hdl, uint32_t input_hdl, uint32_t algo_hdl) {
  const ModelLock lock;
  if (hash_hdl == 0 || input_hdl == 0) return BF_INVALID_ARG;
  if (g_algos.count(algo_hdl) == 0) return BF_OBJECT_NOT_FOUND;
  auto it = g_hashes.find(hash_hdl);
  if (it != g_hashes.end())
    return it->second.input == input_hdl && it->second.algo == algo_hdl ? BF_SUCCESS : BF_ALREADY_EXISTS;
  try {
    g_hashes.emplace(hash_hdl, Decl{input_hdl, algo_hdl});
  } catch (const std::bad_alloc &) {
    return BF_NO_SYS_RESOURCES;
  }
  return BF_SUCCESS;
}

}  // extern "C"
