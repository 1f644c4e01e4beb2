// The operations of every action profile and of the table bound to it, behind one set of
// signatures (tests/gen_profile_ops.py writes them from the catalog), so that a test drives all
// six profiles alike.
#pragma once

#include <cstddef>
#include <cstdint>

extern "C" {
#include "corvin_switch/pd.h"
}

namespace cvtest {

struct ProfileOps {
  const char *name;
  uint32_t adt_handle;      // the action data table's handle
  const char *table;        // the bound table
  uint32_t table_handle;
  int nactions;             // member actions, in catalog order
  const uint32_t *actions;  // their driver handles
  uint32_t key_ids;         // distinct keys add_entry/add_group_entry make (id modulo this)
  // A member of member action `action`, its parameters made from `seed`.
  p4_pd_status_t (*add_member)(int action, uint32_t seed, p4_pd_sess_hdl_t, p4_pd_dev_target_t, p4_pd_mbr_hdl_t *);
  p4_pd_status_t (*del_member)(p4_pd_sess_hdl_t, uint32_t dev, p4_pd_mbr_hdl_t);
  p4_pd_status_t (*create_group)(p4_pd_sess_hdl_t, p4_pd_dev_target_t, uint32_t max, p4_pd_grp_hdl_t *);
  p4_pd_status_t (*del_group)(p4_pd_sess_hdl_t, uint32_t dev, p4_pd_grp_hdl_t);
  p4_pd_status_t (*add_to_group)(p4_pd_sess_hdl_t, uint32_t dev, p4_pd_grp_hdl_t, p4_pd_mbr_hdl_t);
  p4_pd_status_t (*del_from_group)(p4_pd_sess_hdl_t, uint32_t dev, p4_pd_grp_hdl_t, p4_pd_mbr_hdl_t);
  // An entry of the bound table with key `id`, on a member or on a group; deleted, or moved.
  p4_pd_status_t (*add_entry)(p4_pd_sess_hdl_t, p4_pd_dev_target_t, uint32_t id, uint32_t mbr, p4_pd_entry_hdl_t *);
  p4_pd_status_t (*add_group_entry)(p4_pd_sess_hdl_t, p4_pd_dev_target_t, uint32_t id, uint32_t grp,
                                    p4_pd_entry_hdl_t *);
  p4_pd_status_t (*del_entry)(p4_pd_sess_hdl_t, uint32_t dev, p4_pd_entry_hdl_t);
  p4_pd_status_t (*modify_entry)(p4_pd_sess_hdl_t, uint32_t dev, p4_pd_entry_hdl_t, p4_pd_mbr_hdl_t);
  p4_pd_status_t (*modify_group_entry)(p4_pd_sess_hdl_t, uint32_t dev, p4_pd_entry_hdl_t, p4_pd_grp_hdl_t);
};

extern const ProfileOps kProfileOps[];
extern const size_t kProfileOpsCount;

}  // namespace cvtest
