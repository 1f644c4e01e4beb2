// The catalog-driven cases of the fault-injection test (tests/gen_fault_cases.py writes them): for
// every export that reaches the driver, a call with valid arguments on a world made for it, and the
// rules of what a refused driver call or a failed allocation inside it must give.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

extern "C" {
#include "corvin_switch/pd.h"
#include "drv/model.h"
}

namespace fault {

inline constexpr p4_pd_sess_hdl_t kSess = 7;
inline constexpr uint32_t kDev = 1;
inline constexpr p4_pd_dev_target_t kTgt = {1, 0xFFFF};
inline constexpr uint8_t kPattern = 0x5A;  // what every output byte holds before a call

// What the world of one case holds: the handles its set-up made, for the call to use.
struct World {
  uint32_t e1 = 0, e2 = 0;   // two entries of the subject table (keyed tables)
  uint32_t dflt = 0;         // the subject table's default-entry handle
  uint32_t mbr[8] = {};      // one member per member action of the profile, in catalog order
  uint32_t mbr_free = 0;     // a member in no group and bound by nothing
  uint32_t mbr_x = 0;        // a member in no group, to be added to one
  uint32_t grp_bound = 0;    // a group of two members, bound by an entry
  uint32_t grp_del = 0;      // a group of two members, bound by nothing
  uint32_t pvs1 = 0, pvs2 = 0;
  uint32_t snap = 0;
  void *list = nullptr;      // the subject table's placement list, and its first datum
  void *datum = nullptr;
  void *mlist = nullptr;     // the profile's member placement list, and a member's datum
  void *mdatum = nullptr;
  pipe_flow_lrn_msg_t *msg = nullptr;
  int fd = -1;               // a file the printers write to
  int cookie = 0;
};

// The output area: every output argument of a call is a slot in it, filled with kPattern before
// the call. Slots are taken in the order of the call's arguments, so that one call always gets the
// same ones.
struct Outs {
  static constexpr size_t kBytes = 64 * 1024;
  struct Slot {
    const char *name;
    size_t off, size;
  };
  alignas(16) uint8_t bytes[kBytes];
  Slot slots[16];
  size_t nslots = 0;
  size_t used = 0;

  void reset() {
    std::memset(bytes, kPattern, sizeof bytes);
    nslots = 0;
    used = 0;
  }
  template <class T>
  T *get(const char *name, size_t n = 1) {
    used = (used + 15) & ~size_t(15);
    T *p = reinterpret_cast<T *>(bytes + used);
    slots[nslots++] = {name, used, sizeof(T) * n};
    used += sizeof(T) * n;
    return p;
  }
  // The slot of that name, as the call took it.
  template <class T>
  T *get_existing(const char *name) {
    const Slot *s = find(name);
    return s ? reinterpret_cast<T *>(bytes + s->off) : nullptr;
  }
  const Slot *find(const char *name) const {
    for (size_t i = 0; i < nslots; ++i)
      if (std::strcmp(slots[i].name, name) == 0) return &slots[i];
    return nullptr;
  }
};

// What a refusal of a driver function, or a failed allocation, must give.
enum class Status : uint8_t {
  injected,  // the refusal's status, unchanged
  fixed,     // the value `status`
  dropped,   // the refusal is not looked at: the call goes on to the driver calls that follow
  stop,      // the process stops by design (a hard assertion): not injected
  paired,    // not looked at, and no driver refuses it alone: the call after it is refused too, and
             // that refusal is the result
  same,      // (allocations) what the call gives without the failure
};

enum class Write : uint8_t { u32, any, text };

// An output that the call writes although it fails: with this 32-bit value, anything, or a text
// ("{subject}" stands for the case's text name).
struct Written {
  const char *slot;
  Write kind;
  uint32_t value;
  const char *text;
};

struct Rule {
  const char *fn;  // the refused driver function; null for any
  Status status;
  uint32_t value;           // for Status::fixed
  bool state_may_change;    // a change made by an earlier, accepted driver call stays
  const Written *writes;
  size_t nwrites;
  const char *fd_text;      // what a printer writes to its descriptor ("{subject}" as above)
};

// What the fingerprint of the device covers, besides every table's and profile's counts.
enum class Kind : uint8_t { none, table, profile, counter, meter, reg, digest, value_set, hash, snapshot, wred, direct_register };

struct Subject {
  Kind kind;
  const char *name;  // the table, profile or resource
  uint32_t tbl;      // the match table (tables, profiles: the bound table; direct resources)
  uint32_t adt, sel; // profiles
  uint32_t res;      // a resource's own handle (a direct resource's on its table)
  uint32_t index;    // the cell a call uses
};

struct Case {
  const char *name;    // the export
  const char *family;  // its family (a pattern of names), or the export itself for a one-off
  const char *text_name;  // the table's or profile's name in the texts it writes
  Subject subject;
  void (*setup)(World &);
  void (*prep)(World &);                    // after the set-up, before the call: may be null
  int64_t (*call)(World &, Outs &);         // the export, its result widened
  void (*after)(World &, Outs &, int64_t);  // releases what a successful call handed over: may be null
  bool int_result;                          // the export returns a count or a length, not a status
  const Rule *rules;                        // by refused function; the last one (fn null) for the others
  size_t nrules;
  Status alloc_status;                      // a failed allocation: Status::fixed (2), Status::same, or
                                            // Status::dropped (a comparison: a difference may show)
  const Written *alloc_writes;
  size_t nalloc_writes;
  int64_t base_status;                      // what the call gives on the world as set up; kPositive: a
                                            // length, not 0
};

inline constexpr int64_t kPositive = -1;

extern const Case *const kCaseParts[];
extern const size_t kCasePartCounts[];
extern const size_t kCaseParts_n;

// The catalog's tables and profiles, for the counts every fingerprint takes.
extern const uint32_t kAllTables[];
extern const size_t kAllTableCount;
struct ProfileHandles {
  const char *name;
  uint32_t adt, sel, tbl;
};
extern const ProfileHandles kAllProfiles[];
extern const size_t kAllProfileCount;

// The families of the catalog that make no driver call and allocate nothing, with their number of
// exports: the report lists them with no fault.
struct PureFamily {
  const char *family;
  size_t exports;
};
extern const PureFamily kPureFamilies[];
extern const size_t kPureFamilyCount;

// For the leak of the default-entry read-back: every table whose actions are held directly, with
// its handle, its own action handles and its default-entry read.
struct DirectTable {
  const char *name;
  uint32_t handle;
  uint32_t action;  // one of its actions
  p4_pd_status_t (*get_default)(p4_pd_sess_hdl_t, p4_pd_dev_target_t, uint8_t, p4_pd_corvin_switch_action_spec_t *);
};
extern const DirectTable kDirectTables[];
extern const size_t kDirectTableCount;
// The profile-bound tables' default-entry reads, which allocate nothing.
struct BoundTable {
  const char *name;
  uint32_t handle;
  p4_pd_status_t (*get_default)(p4_pd_sess_hdl_t, p4_pd_dev_target_t, uint8_t, uint8_t *, uint8_t *, p4_pd_grp_hdl_t *,
                                p4_pd_mbr_hdl_t *);
};
extern const BoundTable kBoundTables[];
extern const size_t kBoundTableCount;
// Every export name of the catalog, for the check of the leak suppressions.
extern const char *const kExportNames[];
extern const size_t kExportNameCount;

// Declares the program's resources to the driver model (after each drvm_reset).
void declare_resources();

// The test's callbacks, of each type the exports pass on.
void cb_mat(bf_dev_id_t, pipe_mat_tbl_hdl_t, pipe_mat_update_type_t, pipe_mat_ent_hdl_t, pipe_act_fn_hdl_t, void *);
void cb_sel_tbl(bf_dev_id_t, pipe_sel_tbl_hdl_t, pipe_sel_grp_hdl_t, pipe_adt_ent_hdl_t, bool, void *);
void cb_adt(bf_dev_id_t, pipe_adt_tbl_hdl_t, pipe_adt_update_type_t, pipe_adt_ent_hdl_t, pipe_act_fn_hdl_t, void *);
void cb_sel(bf_dev_id_t, pipe_sel_tbl_hdl_t, pipe_sel_update_type_t, pipe_sel_grp_hdl_t, pipe_adt_ent_hdl_t, void *);
void cb_sync(bf_dev_id_t, void *);
void cb_idle(bf_dev_id_t, pipe_mat_ent_hdl_t, void *);
pipe_status_t cb_digest(pipe_sess_hdl_t, pipe_flow_lrn_msg_t *, void *);

// A failed check of a set-up step: recorded, and the case goes on.
void setup_failed(const char *what, uint32_t status);
inline void must(const char *what, uint32_t status) {
  if (status != 0) setup_failed(what, status);
}

}  // namespace fault
