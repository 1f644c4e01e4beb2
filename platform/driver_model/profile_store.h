// The model's action profiles: action data tables of members and selector tables of groups, per
// device, and which match table binds to which profile.
//
// Layout: per device, each action data table keeps its members in a map by handle, each selector
// table its groups in a map by handle; a group keeps its members in the order they joined. Member
// and group handles come from the device's one running count, which entry handles come from too,
// so that a handle names one object of the device. A member counts what refers to it (groups,
// bound entries, fallback settings), a group the entries bound to it, so that a delete of what is
// still referred to is refused at once. A member is a compact record (StoredAction) and one block
// for its image, in a map node: about 130 bytes beside its image.
#ifndef CV_DRIVER_MODEL_PROFILE_STORE_H
#define CV_DRIVER_MODEL_PROFILE_STORE_H

#include <cstdint>
#include <map>
#include <vector>

#include "entry_store.h"
#include "model_internal.h"

namespace drvm {

struct Member {
  StoredAction action;  // the action handle and the record, image and resources copied
  uint32_t pipe = BF_DEV_PIPE_ALL;
  uint32_t refs = 0;  // groups holding it, entries and default entries bound to it, fallback settings
};

struct GroupMember {
  uint32_t mbr;
  bool active;
};

struct Group {
  uint32_t pipe = BF_DEV_PIPE_ALL;
  uint32_t max_size = 0;
  uint32_t mat_tbl_hdl = 0;  // as the add gave it
  uint32_t grp_id = 0;       // as the add gave it
  std::vector<GroupMember> mbrs;  // in the order they joined
  uint32_t bound = 0;             // entries and default entries bound to it

  GroupMember *find(uint32_t mbr);
};

struct AdtTable {
  std::map<uint32_t, Member> members;
  pipe_adt_update_cb cb = nullptr;
  void *cookie = nullptr;
};

struct SelTable {
  std::map<uint32_t, Group> groups;
  std::map<uint32_t, uint32_t> fallback;  // pipe -> member
  pipe_sel_update_cb cb = nullptr;
  void *cookie = nullptr;
  pipe_sel_tbl_update_cb tbl_cb = nullptr;
  void *tbl_cookie = nullptr;
};

struct ProfileDevice {
  std::map<uint32_t, AdtTable> adts;
  std::map<uint32_t, SelTable> sels;
};

// ---- Access ----

ProfileDevice *profile_device(bf_dev_id_t dev);
// May throw std::bad_alloc.
ProfileDevice &touch_profile_device(bf_dev_id_t dev);
AdtTable *find_adt(bf_dev_id_t dev, uint32_t adt_tbl_hdl);
SelTable *find_sel(bf_dev_id_t dev, uint32_t sel_tbl_hdl);

// A member of the device, in whichever action data table holds it.
struct MemberRef {
  uint32_t adt = 0;
  Member *m = nullptr;
};
MemberRef find_member(bf_dev_id_t dev, uint32_t mbr);
struct GroupRef {
  uint32_t sel = 0;
  Group *g = nullptr;
};
GroupRef find_group(bf_dev_id_t dev, uint32_t grp);

// Whether an object scoped to `obj_pipe` is seen by a request on `pipe`.
inline bool visible(uint32_t obj_pipe, uint32_t pipe) {
  return pipe == BF_DEV_PIPE_ALL || obj_pipe == BF_DEV_PIPE_ALL || obj_pipe == pipe;
}

// ---- Profiles: which tables belong together ----

// The place of a table in an action profile.
enum class Role : uint8_t { adt, sel, mat };

// The action data table paired with a selector or match table, the selector paired with an action
// data or match table; 0 while none is known.
uint32_t adt_of(uint32_t tbl_hdl);
uint32_t sel_of(uint32_t tbl_hdl);
// Whether a use that puts table a (as ra) and table b (as rb) in one profile fits what is known:
// BF_TABLE_MISMATCH if they are known in two different profiles, or if one is known in a profile
// whose place for the other holds another table. A match table's place excepted: a profile may
// serve more match tables than the one it knows, and learns none of them then. Makes room for the
// pairing the use shows. May throw std::bad_alloc.
bf_status_t check_profile(uint32_t a, Role ra, uint32_t b, Role rb);
// Keeps the pairing a successful use that check_profile passed shows. Cannot fail.
void learn_profile(uint32_t a, Role ra, uint32_t b, Role rb);

// ---- Bindings of match entries ----

// What a match table's action record binds to: a member, a group, or nothing.
struct Binding {
  enum class Kind : uint8_t { none, member, group } kind = Kind::none;
  uint32_t hdl = 0;
};
Binding binding_of(const pipe_action_spec_t &a);
Binding binding_of(const StoredEntry &e);

// Checks a binding about to be stored for an entry of a match table: it names a member or group of
// the device (BF_OBJECT_NOT_FOUND), of the table's profile (BF_TABLE_MISMATCH, see check_profile),
// and a member with the action handle given (BF_INVALID_ARG). A record that binds nothing passes.
// Makes room for the pairing the binding may show. May throw std::bad_alloc.
bf_status_t check_binding(bf_dev_id_t dev, uint32_t mat_tbl_hdl, uint32_t act_fn_hdl, const Binding &b);
// After a successful change of an entry: the former binding is released, the new one taken, and
// the pairing it shows kept. Cannot fail.
void rebind(bf_dev_id_t dev, uint32_t mat_tbl_hdl, const Binding &before, const Binding &after);

}  // namespace drvm

#endif
