// The catalog's counters, meters, registers, idle-time tables, digests, value sets, hashes and
// snapshot record, with each one's exports and the handles its calls must carry, as the catalog
// gives them (tests/gen_resource_cases.py).
#pragma once

#include <cstddef>
#include <cstdint>

extern "C" {
#include "corvin_switch/pd.h"
#include "drv/model.h"
}

using Sess = p4_pd_sess_hdl_t;
using Tgt = p4_pd_dev_target_t;
using Status = p4_pd_status_t;

struct CounterCase {
  const char *name;
  bool direct;
  uint32_t call_handle;  // what every driver call takes: the table's handle for a direct counter
  Status (*read)(Sess, Tgt, uint32_t, uint32_t, p4_pd_counter_value_t *);
  Status (*write)(Sess, Tgt, uint32_t, p4_pd_counter_value_t);
  Status (*hw_sync)(Sess, Tgt, p4_pd_stat_sync_cb, void *);
};

struct MeterCase {
  const char *name;
  bool direct;
  uint32_t handle;  // the meter's own (a resource handle for the direct one)
  uint32_t table;
  uint32_t unit;  // the driver's unit word
  Status (*set)(Sess, Tgt, uint32_t, p4_pd_meter_spec_t *);
  Status (*read)(Sess, Tgt, uint32_t, p4_pd_meter_spec_t *);
  Status (*adjust_set)(Sess, Tgt, int32_t);
  Status (*adjust_get)(Sess, Tgt, int32_t *);
};

struct RegisterCase {
  const char *name;
  uint32_t handle;
  Status (*read)(Sess, Tgt, uint32_t, uint32_t, uint8_t *, int *);
  Status (*write)(Sess, Tgt, uint32_t, uint8_t *);
  Status (*write_all)(Sess, Tgt, uint8_t *);
  Status (*reset_all)(Sess, Tgt);
  Status (*range_reset)(Sess, Tgt, uint32_t, uint32_t);
  Status (*range_read)(Sess, Tgt, uint32_t, uint32_t, uint32_t, uint32_t *, uint8_t *, int *);
  Status (*hw_sync)(Sess, Tgt, p4_pd_register_sync_cb, void *);
};

struct IdleCase {
  const char *name;
  uint32_t table;
  Status (*enable)(Sess, uint32_t, p4_pd_idle_time_params_t);
  Status (*disable)(Sess, uint32_t);
  Status (*register_tmo_cb)(Sess, uint32_t, p4_pd_idle_tmo_expiry_cb, void *);
  Status (*params_get)(Sess, uint32_t, p4_pd_idle_time_params_t *);
  Status (*set_ttl)(Sess, uint32_t, p4_pd_entry_hdl_t, uint32_t);
  Status (*get_ttl)(Sess, uint32_t, p4_pd_entry_hdl_t, uint32_t *);
  Status (*reset_ttl)(Sess, uint32_t, p4_pd_entry_hdl_t);
  Status (*update_hit_state)(Sess, uint32_t, p4_pd_idle_tmo_update_complete_cb, void *);
  Status (*get_hit_state)(Sess, uint32_t, p4_pd_entry_hdl_t, p4_pd_idle_time_hit_state_e *);
};

struct DigestFieldCase {
  const char *name;
  uint32_t offset;
  uint32_t length;
};

struct DigestCase {
  const char *name;
  uint32_t handle;
  uint32_t entry_bytes;
  Status (*reg)(Sess, uint8_t, p4_pd_digest_notify_cb, void *);
  Status (*dereg)(Sess, uint8_t);
  Status (*ack)(Sess, p4_pd_digest_msg_t *);
  size_t nfields;
  DigestFieldCase fields[16];
};

struct ValueSetCase {
  const char *name;
  uint32_t handle;
  Status (*set_property)(Sess, uint32_t, p4_pd_pvs_prop_type_t, p4_pd_pvs_prop_value_t, p4_pd_pvs_prop_args_t);
  Status (*get_property)(Sess, uint32_t, p4_pd_pvs_prop_type_t, p4_pd_pvs_prop_value_t *, p4_pd_pvs_prop_args_t);
  Status (*add)(Sess, uint32_t, p4_pd_pvs_gress_t, uint32_t, uint8_t, uint32_t, uint32_t, p4_pd_pvs_hdl_t *);
  Status (*modify)(Sess, uint32_t, p4_pd_pvs_hdl_t, uint32_t, uint32_t);
  Status (*del)(Sess, uint32_t, p4_pd_pvs_hdl_t);
  Status (*get)(Sess, uint32_t, p4_pd_pvs_hdl_t, uint32_t *, uint32_t *);
  Status (*handle_get)(Sess, uint32_t, p4_pd_pvs_gress_t, uint32_t, uint8_t, uint32_t, uint32_t, p4_pd_pvs_hdl_t *);
  Status (*get_first)(Sess, uint32_t, p4_pd_pvs_gress_t, uint32_t, uint8_t, p4_pd_pvs_hdl_t *);
  Status (*get_next)(Sess, uint32_t, p4_pd_pvs_gress_t, uint32_t, uint8_t, p4_pd_pvs_hdl_t, int, p4_pd_pvs_hdl_t *);
  Status (*get_count)(Sess, uint32_t, p4_pd_pvs_gress_t, uint32_t, uint8_t, uint8_t, uint32_t *);
};

struct HashCase {
  const char *name;
  uint32_t handle;
  uint32_t input;
  uint32_t algorithm;
  Status (*input_set)(Sess, uint32_t, p4_pd_hash_calc_input_t);
  Status (*input_get)(Sess, uint32_t, p4_pd_hash_calc_input_t *);
  Status (*algorithm_set)(Sess, uint32_t, p4_pd_hash_calc_algorithm_t);
  Status (*algorithm_get)(Sess, uint32_t, p4_pd_hash_calc_algorithm_t *);
  Status (*seed_set)(Sess, uint32_t, uint64_t);
  Status (*seed_get)(Sess, uint32_t, uint64_t *);
  Status (*attribute_set)(Sess, uint32_t, p4_pd_hash_calc_input_t, uint32_t, p4_pd_hash_calc_input_field_attribute_t *);
  Status (*attribute_count_get)(Sess, uint32_t, p4_pd_hash_calc_input_t, uint32_t *);
  Status (*attribute_get)(Sess, uint32_t, p4_pd_hash_calc_input_t, uint32_t, p4_pd_hash_calc_input_field_attribute_t *,
                          uint32_t *);
  Status (*calculate)(Sess, uint32_t, uint32_t, p4_pd_hash_calc_input_field_attribute_t *, uint32_t *, uint8_t *,
                      uint32_t);
};

// The multi-byte fields of one form of the snapshot record.
struct SnapshotForm {
  const uint16_t *u16;
  size_t n16;
  const uint16_t *u32;
  size_t n32;
};

extern const CounterCase kCounters[];
extern const size_t kCounterCount;
extern const MeterCase kMeters[];
extern const size_t kMeterCount;
extern const RegisterCase kRegisters[];
extern const size_t kRegisterCount;
extern const IdleCase kIdleTables[];
extern const size_t kIdleTableCount;
extern const DigestCase kDigestCases[];
extern const size_t kDigestCount;
extern const ValueSetCase kValueSets[];
extern const size_t kValueSetCount;
extern const HashCase kHashes[];
extern const size_t kHashCount;
extern const SnapshotForm kSnapshotIngressForm;
extern const SnapshotForm kSnapshotEgressForm;
extern const size_t kSnapshotRecordSize;
extern const size_t kSnapshotStages;

// Cells of each indirect counter, meter and register, and entries of each value set, as declared.
inline constexpr uint32_t kIndirectCells = 1024;
inline constexpr uint32_t kValueSetCapacity = 64;

// Declares every resource of the program to the driver model: indirect counters, meters and
// registers with kIndirectCells cells (registers with register_instances values per index), the
// direct meter, the idle-time tables, the digests, the value sets, and the hashes with their
// algorithms (0x23000000 as CRC-32, 0x23000001 as CRC-32C).
void declare_program_resources(uint32_t register_instances);
