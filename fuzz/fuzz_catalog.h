// The pipeline as the fuzz targets see it: every table, action, profile and hash of the catalog,
// with the layout of its records and thunks of one shape per family over the library's exports,
// so that a target picks a table or an action by index and calls it without code of its own per
// table. fuzz/gen_fuzz_catalog.py writes the data (fuzz_catalog.cpp) from the catalog.
#pragma once

#include <cstddef>
#include <cstdint>

extern "C" {
#include "corvin_switch/pd.h"
#include "drv/model.h"
}

namespace fz {

// The session and device every target works on.
inline constexpr p4_pd_sess_hdl_t kSess = 7;
inline constexpr uint32_t kDev = 1;
inline constexpr p4_pd_dev_target_t kTgt = {kDev, 0xFFFF};

enum class Kind : uint8_t { exact, ternary, lpm, keyless };
enum class Match : uint8_t { exact, ternary, lpm };

// A member of a caller's record: its name (null for reserved bytes), offset and size in bytes (1,
// 2, 4, or 16 for a 128-bit field's byte array; any size for reserved bytes).
struct Member {
  const char *name;
  uint16_t off;
  uint16_t size;
};

// A key field in image order: its width and match kind, whether it is a partition field, where its
// image starts, and its members in the key record (aux: `_mask` or `_prefix_length`).
struct Field {
  const char *name;
  uint16_t width;
  Match match;
  bool partition;
  uint16_t image_off;
  uint16_t value_off;
  uint16_t aux_off;
  uint8_t member_bytes;  // 1, 2, 4, or 16
  uint32_t slice;        // the bits the table matches, for a field of up to 32 bits
};

// A fragment of a counter label, as the catalog's label rows give it: how it shows its field (an
// index into the table's fields; station: the other half of a MAC address), its words, and for a
// named form the values with texts of their own and the mask bits that let them apply.
enum class LabelForm : uint8_t { number, masked, flag, named, v4_ternary, v6_exact, v6_ternary, mac_ternary, hidden };
struct LabelName {
  uint32_t value;
  const char *text;
};
struct LabelFragment {
  LabelForm form;
  uint8_t field;
  int8_t station;
  const char *label;
  uint32_t mask_and;
  uint8_t nnames;
  const LabelName *names;
};

struct Param {
  const char *name;
  uint16_t width;
  uint16_t off;
  uint8_t member_bytes;
};

struct Action {
  const char *name;
  uint16_t number;
  uint16_t record_size;  // 0 without parameters
  uint8_t nparams;
  const Param *params;
  int (*value)(const void *params, char *buf);
  int (*print)(int fd, int indent, const void *params);       // null without parameters
  int (*equal)(const void *a, const void *b, char *buf);      // null without parameters
  void (*unbuild)(pipe_action_data_spec_t *data, p4_pd_res_spec_t *res, int nres, void *params);  // idem
  const char *(*schema)(void);
};

// An action as one table allows it. The index parameter, where the action has one, names the
// index of the table's resource: on add its low 16 bits go to the resource record, and unless
// index_in_image its image bytes stay zero.
struct TableAction {
  const Action *action;
  uint32_t handle;
  bool entry;
  bool dflt;
  int8_t index_param;  // position, or -1
  bool index_in_image;
  p4_pd_status_t (*add)(const void *key, uint32_t prio, const void *params, p4_pd_meter_spec_t *meter, uint32_t ttl,
                        p4_pd_entry_hdl_t *h);  // null for a default-only action
  p4_pd_status_t (*modify)(p4_pd_entry_hdl_t h, const void *params, p4_pd_meter_spec_t *meter);  // idem
  p4_pd_status_t (*modify_by_key)(const void *key, uint32_t prio, const void *params, p4_pd_meter_spec_t *meter);
  p4_pd_status_t (*set_default)(const void *params, p4_pd_meter_spec_t *meter, p4_pd_entry_hdl_t *h);  // null
};

struct Profile;

struct Table {
  const char *name;
  uint32_t handle;
  Kind kind;
  bool priority;
  bool meter_spec;  // add and default take a meter spec
  bool ttl;         // add takes a TTL
  uint16_t key_bits, key_bytes, record_size;
  uint8_t nfields;
  const Field *fields;
  uint8_t nmembers;
  const Member *members;  // the key record's members in record order, reserved bytes included
  uint8_t nactions;
  const TableAction *actions;
  const Profile *profile;  // the profile whose members and groups the entries bind to, or null
  uint32_t resource;       // the resource handle of its entries, or 0
  // get_entry of a table that holds actions (key and prio null for a keyless table)
  p4_pd_status_t (*get_entry)(p4_pd_entry_hdl_t h, uint8_t hw, void *key, uint32_t *prio, char *name, void *params,
                              p4_pd_corvin_switch_action_enum_t *act, uint8_t *dflt);
  // get_entry of a table bound to a profile
  p4_pd_status_t (*get_bound_entry)(p4_pd_entry_hdl_t h, uint8_t hw, void *key, uint32_t *prio, uint8_t *is_mbr,
                                    uint8_t *is_grp, p4_pd_grp_hdl_t *grp, p4_pd_mbr_hdl_t *mbr, uint8_t *dflt);
  p4_pd_status_t (*add_bound)(const void *key, uint32_t prio, uint32_t mbr_or_grp, bool group, p4_pd_entry_hdl_t *h);
  p4_pd_status_t (*find)(const void *key, uint32_t prio, p4_pd_entry_hdl_t *h);
  p4_pd_status_t (*del)(p4_pd_entry_hdl_t h);
  p4_pd_status_t (*del_by_key)(const void *key, uint32_t prio);
  p4_pd_status_t (*count)(uint32_t *n);
  p4_pd_status_t (*get_default)(p4_pd_corvin_switch_action_spec_t *spec);  // null for a bound table
  p4_pd_status_t (*reset_default)(void);
  void (*unbuild_key)(pipe_tbl_match_spec_t *ms, void *key);
  void (*unbuild_mask)(pipe_tbl_match_spec_t *ms, void *key);  // null without a ternary or lpm field
  int (*key_value)(const void *key, char *buf);
  int (*key_print)(int fd, int indent, const void *key);
  int (*key_equal)(const void *a, const void *b, char *buf);
  int (*label)(const void *key, char *buf);  // the counter label, or null
  uint16_t label_bound;  // the most bytes a label can take, its terminator included
  uint8_t nfragments;
  const LabelFragment *fragments;
  const char *(*key_schema)(void);
  int (*schema)(char *buf);
  p4_pd_status_t (*get_plcmt_data)(uint32_t dev, void **list);
};

struct ProfileMember {
  const Action *action;
  uint32_t handle;
  p4_pd_status_t (*add)(const void *params, p4_pd_mbr_hdl_t *mbr);
};

struct Profile {
  const char *name;
  uint32_t adt_handle, sel_handle;
  uint8_t nmembers;
  const ProfileMember *members;
  p4_pd_status_t (*get_member)(p4_pd_mbr_hdl_t mbr, uint8_t hw, p4_pd_corvin_switch_action_spec_t *spec);
  p4_pd_status_t (*del_member)(p4_pd_mbr_hdl_t mbr);
  p4_pd_status_t (*create_group)(uint32_t max_size, p4_pd_grp_hdl_t *grp);
  p4_pd_status_t (*add_to_group)(p4_pd_grp_hdl_t grp, p4_pd_mbr_hdl_t mbr);
  p4_pd_status_t (*del_group)(p4_pd_grp_hdl_t grp);
  int (*schema)(char *buf);
  p4_pd_status_t (*get_plcmt_data)(uint32_t dev, void **list);  // of its members
};

struct Hash {
  const char *name;
  uint32_t handle, input, algorithm;
  p4_pd_status_t (*calculate)(uint32_t n, p4_pd_hash_calc_input_field_attribute_t *attrs, uint32_t *widths, uint8_t *out,
                              uint32_t out_len);
  p4_pd_status_t (*seed_set)(uint64_t seed);
};

extern const Table kTables[];
extern const size_t kTableCount;
extern const Action kActions[];  // by number
extern const size_t kActionCount;
extern const Profile kProfiles[];
extern const size_t kProfileCount;
extern const Hash kHashes[];
extern const size_t kHashCount;

// Declares to the driver model what the program's tables need of it beyond their entries (direct
// meters, idle-time tables, the dynamic hashes with the given algorithm kind per algorithm handle).
void declare_program(uint32_t (*algorithm_kind)(uint32_t algorithm_handle));

}  // namespace fz
