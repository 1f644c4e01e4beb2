// The model's resource cells: counters, meters, WRED, registers and idle time. Shared by the files of
// their driver functions (stat_calls.cpp, meter_calls.cpp, stful_calls.cpp, idle_calls.cpp) and by the
// entry functions, which tell the cells about entries added, changed and deleted (the entry hooks).
//
// Layout:
//  - declarations (drv/model_cells.h) are per handle, for every device;
//  - indirect cells are per (device, handle): one vector of pipes x cells (registers: cells x
//    instances), made at the first write on that device, so that a device that was never written
//    reads the initial values without storing anything;
//  - direct cells are per (device, entry handle), in an ordered map: the counter cell, the data of
//    each resource written to the entry (pipe_mgr_mat_ent_set_resource, or the entry's own action
//    record for a declared direct meter) and the direct register's values. An entry without a node
//    reads as zero. Nodes go with their entry: the delete hook erases them;
//  - idle state is per (device, match table), with one record per entry of the table, in ascending
//    handle order; it is made at the first idle call or add of the table on the device.
// Every change makes what it needs off to the side first (a new node, a new vector) and then puts
// it in place by moves that cannot fail, so that a refusal or an allocation failure changes nothing.
#ifndef CV_DRIVER_MODEL_CELLS_H
#define CV_DRIVER_MODEL_CELLS_H

#include <cstdint>
#include <cstring>
#include <map>
#include <new>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "entry_store.h"
#include "model_internal.h"

namespace drvm {

constexpr uint32_t kDefaultPipes = 4;
constexpr uint32_t kMaxPipes = 64;
constexpr uint32_t kCellBytes = sizeof(pipe_stful_mem_spec_t);  // 16: one register value
constexpr uint32_t kResBytes = 44;                              // the data of a resource record

static_assert(sizeof(pipe_res_spec_t{}.data) == kResBytes, "resource data size");

// A device and a handle (or an entry handle) as one key.
using DevKey = uint64_t;
inline DevKey dev_key(bf_dev_id_t dev, uint32_t hdl) { return (uint64_t{dev} << 32) | hdl; }

// The pipes, or register instances, a request names: one, or all for BF_DEV_PIPE_ALL.
struct Pipes {
  uint32_t first = 0, end = 0;
};
// False for a pipe that is neither BF_DEV_PIPE_ALL nor one of n.
inline bool pipes_of(uint32_t pipe, uint32_t n, Pipes *out) {
  if (pipe == BF_DEV_PIPE_ALL) {
    *out = Pipes{0, n};
    return true;
  }
  if (pipe >= n) return false;
  *out = Pipes{pipe, pipe + 1};
  return true;
}
// The one pipe a read of one value looks at: the pipe named, or pipe 0 for all pipes.
inline uint32_t read_pipe(uint32_t pipe) { return pipe == BF_DEV_PIPE_ALL ? 0 : pipe; }

// A vector of n values, its size counted in 64 bits: too large for memory is an allocation failure.
template <class T>
std::vector<T> make_cells(uint64_t n, const T &init = T()) {
  if (n > uint64_t{PTRDIFF_MAX} / sizeof(T) / 2) throw std::bad_alloc();
  return std::vector<T>(static_cast<size_t>(n), init);
}

// ---- Declarations ----

struct RegisterDecl {
  uint32_t cells = 0;      // 1 for a direct register
  uint32_t instances = 0;  // pipe instances: values per index
  uint32_t width = 0;      // bytes of a value kept, 1 to 16
  uint8_t reset[kCellBytes] = {};
  uint32_t hdl = 0;  // a direct register's own handle
};

// ---- Cells ----

struct StatCell {
  pipe_stat_data_t hw;  // what traffic counts
  pipe_stat_data_t sw;  // the driver's copy, which queries read
};

// Register values of one array: for each index, each instance, the hardware value and then the
// software copy, 16 bytes each, the bytes past the register's width 0.
inline size_t reg_offset(uint32_t instances, uint32_t index, uint32_t inst, bool sw) {
  return ((size_t{index} * instances + inst) * 2 + (sw ? 1 : 0)) * kCellBytes;
}
// A value cut to a register's width.
inline pipe_stful_mem_spec_t masked(const uint8_t *v, uint32_t width) {
  pipe_stful_mem_spec_t out;
  std::memset(&out, 0, sizeof out);
  std::memcpy(out.bytes, v, width);
  return out;
}
// All values of one array at a value (hardware and copy).
std::vector<uint8_t> reg_values(uint64_t cells, uint32_t instances, const uint8_t *value16);

// The data written to one resource of an entry.
struct ResData {
  uint32_t hdl;
  uint8_t data[kResBytes];
};

// The direct cells of one entry.
struct EntryCells {
  uint32_t tbl = 0;
  StatCell stat{};
  std::vector<ResData> res;  // in the order first written
  std::vector<uint8_t> reg;  // the direct register's values (one index); empty while all 0

  const ResData *find_res(uint32_t hdl) const;
  // May throw std::bad_alloc.
  void put_res(uint32_t hdl, const uint8_t *data);
};
using EntryMap = std::map<DevKey, EntryCells>;

// ---- Idle time ----

struct IdleEnt {
  uint32_t hdl = 0;
  bool expired = false;  // reported since its last restart
  bool hw_hit = false;   // hit since the last hit-state update
  bool sw_hit = false;   // the driver's copy
  uint64_t restart = 0;  // the table's aged time at the entry's last restart
};

struct IdleTable {
  IdleTable() { std::memset(&params, 0, sizeof params); }
  pipe_idle_time_params_t params;
  bool enabled = false;
  uint64_t aged_us = 0;       // time the table spent ageing (enabled in notify mode)
  std::vector<IdleEnt> ents;  // one per entry of the table, ascending handle

  bool ageing() const { return enabled && params.mode == PIPE_IDLE_TIME_MODE_NOTIFY; }
  IdleEnt *find(uint32_t hdl);
  const IdleEnt *find(uint32_t hdl) const { return const_cast<IdleTable *>(this)->find(hdl); }
  // The microseconds an entry of this TTL (ms) has left; 0 when none (or a TTL of 0).
  uint64_t remaining_us(const IdleEnt &e, uint32_t ttl) const;
};

// ---- The store ----

struct CellStore {
  uint32_t num_pipes = kDefaultPipes;

  std::unordered_map<uint32_t, uint32_t> counters;  // handle -> cells
  std::unordered_map<uint32_t, uint32_t> meters;    // handle -> cells
  std::unordered_map<uint32_t, uint32_t> wreds;     // handle -> cells
  std::unordered_map<uint32_t, RegisterDecl> registers;
  std::unordered_map<uint32_t, uint32_t> direct_meters;         // match table -> meter handle
  std::unordered_map<uint32_t, RegisterDecl> direct_registers;  // match table -> register
  std::unordered_set<uint32_t> idle_tables;

  std::unordered_map<DevKey, std::vector<StatCell>> stat_cells;  // [pipe * cells + index]
  std::unordered_map<DevKey, std::vector<pipe_meter_spec_t>> meter_cells;
  std::unordered_map<DevKey, std::vector<pipe_wred_spec_t>> wred_cells;
  std::unordered_map<DevKey, std::vector<int32_t>> bytecount;  // [pipe]
  std::unordered_map<DevKey, std::vector<uint8_t>> reg_cells;  // see reg_offset
  EntryMap entries;                                            // (device, entry)
  std::map<std::pair<bf_dev_id_t, uint32_t>, IdleTable> idle;  // (device, match table)
  uint64_t idle_clock_us = 0;                                  // the clock at the last tick
};
extern CellStore g_cells CV_DRVM_HIDDEN;

// Declarations, or null.
const RegisterDecl *register_decl(uint32_t hdl);      // indirect
const RegisterDecl *any_register_decl(uint32_t hdl);  // indirect, else a direct register's handle
bool is_meter(uint32_t hdl);                          // indirect meter or direct meter resource

// An indirect array of a device, made at its initial values if missing, and put in place. May throw;
// a new array is no change (it reads as no array did).
template <class T>
std::vector<T> &touch_cells(std::unordered_map<DevKey, std::vector<T>> &m, DevKey key, uint64_t n,
                            const T &init = T()) {
  auto it = m.find(key);
  if (it != m.end()) return it->second;
  std::vector<T> v = make_cells<T>(n, init);
  return m.emplace(key, std::move(v)).first->second;
}
std::vector<uint8_t> &touch_reg_cells(bf_dev_id_t dev, uint32_t hdl, const RegisterDecl &d);

// The stored entry of a table, or null.
inline StoredEntry *entry_of(bf_dev_id_t dev, uint32_t tbl, uint32_t ent) { return store_lookup(dev, tbl, ent).entry; }

// The direct cells of an entry, or null while it has none.
const EntryCells *entry_cells(bf_dev_id_t dev, uint32_t ent);

// A new version of an entry's cells, made off to the side from the current one (or from zero);
// commit puts it in place and cannot fail. The constructor may throw std::bad_alloc.
class EntryEdit {
 public:
  EntryEdit(bf_dev_id_t dev, uint32_t tbl, uint32_t ent);
  EntryCells &cells() { return node_.mapped(); }
  void commit() noexcept;

 private:
  EntryMap::node_type node_;
};

// The idle state of a table of a device, or null while it has none.
IdleTable *idle_table(bf_dev_id_t dev, uint32_t tbl);
// The same, made (with a record for each of the table's entries) if missing. May throw; a new state
// is no change: it reads as none did.
IdleTable &touch_idle_table(bf_dev_id_t dev, uint32_t tbl);

// ---- Entry hooks (called by the match-table entry functions) ----

// What the cells will keep of an entry being added or given a new action: the record of the table's
// declared direct meter, and room for the entry's idle record.
struct EntryPrep {
  EntryMap::node_type cells;  // empty: no change of direct cells
  IdleTable *idle = nullptr;  // an add to a table with idle time: room is made for its record
};
// Before the change (ent 0 for an add). May throw std::bad_alloc; changes nothing that shows.
EntryPrep cells_prepare_entry(bf_dev_id_t dev, uint32_t tbl, uint32_t ent, const pipe_action_spec_t &action);
// After the change succeeded, with the entry's handle.
void cells_commit_entry(EntryPrep &prep, bf_dev_id_t dev, uint32_t ent) noexcept;
// The entry is deleted: its cells and idle record go.
void cells_forget_entry(bf_dev_id_t dev, uint32_t tbl, uint32_t ent) noexcept;

// ---- Recording ----

inline void record_cells(RecordedCall &r, uint32_t sess, bf_dev_id_t dev, uint32_t pipe, uint32_t hdl) {
  r.call.sess_hdl = sess;
  r.call.dev_tgt = dev_target_t{dev, pipe};
  r.call.tbl_hdl = hdl;
}
// A copy of the record passed, nothing (num_bytes 0) for null.
template <class T>
inline void record_copy(RecordedCall &r, const T *p, size_t n = 1) {
  if (p != nullptr) r.copy_bytes(reinterpret_cast<const uint8_t *>(p), sizeof(T) * n);
}
// A callback and its cookie.
template <class Cb>
inline void record_cb_cookie(RecordedCall &r, Cb cb, void *cookie) {
  r.call.ptr_arg = reinterpret_cast<const void *>(cb);
  r.call.ptr_arg2 = cookie;
}
// A completion callback (dev, cookie) to call once the call is finished.
inline Notice sync_notice(void (*cb)(bf_dev_id_t, void *), bf_dev_id_t dev, void *cookie) {
  Notice n;
  n.kind = Notice::Kind::sync;
  n.cb = reinterpret_cast<void (*)()>(cb);
  n.cookie = cookie;
  n.dev = dev;
  return n;
}

}  // namespace drvm

#endif
