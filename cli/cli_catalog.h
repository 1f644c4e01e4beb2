// The console's descriptors of the catalog: tables, their key fields and actions, actions and
// their parameters, profiles, counters, meters, registers, value sets, hashes and digests.
// codegen/cli_tables.py writes them, with one thunk per export the console calls, into the build
// tree (cli_tables.cpp); the console is one engine over them.
#pragma once

#include <cstddef>
#include <cstdint>

#include "corvin_switch/pd.h"

namespace cvcli {

// Room the console gives a key or parameter record; the generated source checks every record
// against it at compile time.
constexpr size_t kRecordRoom = 256;

// The arguments of one call into the library. Every thunk takes this one record and passes on the
// members its export declares; the others are not read.
struct Call {
  p4_pd_sess_hdl_t sess = 0;
  p4_pd_dev_target_t tgt{0, PD_DEV_PIPE_ALL};
  void *key = nullptr;                    // the table's key record
  uint32_t priority = 0;
  void *params = nullptr;                 // the action's parameter record
  p4_pd_meter_spec_t *meter = nullptr;    // tables whose entries carry a meter spec
  uint32_t ttl = 0;                       // idle-time tables that take a TTL
  p4_pd_entry_hdl_t entry = 0;            // an entry named by handle
  p4_pd_entry_hdl_t *entry_out = nullptr;
  uint32_t *count_out = nullptr;
  uint8_t read_from_hw = 0;
  p4_pd_corvin_switch_action_spec_t *action_out = nullptr;  // a default entry read back
  uint8_t *is_member_out = nullptr;       // ... of a table bound to a profile
  uint8_t *is_group_out = nullptr;
  p4_pd_mbr_hdl_t *mbr_out = nullptr;
  p4_pd_grp_hdl_t *grp_out = nullptr;
  void **plcmt_out = nullptr;             // a table's placement list
  // Profiles: a member or group named, a new group's size, a page of a walk.
  p4_pd_mbr_hdl_t mbr = 0;
  p4_pd_grp_hdl_t grp = 0;
  uint32_t max_grp_size = 0;
  int n = 0;
  p4_pd_mbr_hdl_t *mbr_list_out = nullptr;
  p4_pd_grp_hdl_t *grp_list_out = nullptr;
  // Resources: a cell by index (an entry's cell by `entry`), read flags, values.
  uint32_t index = 0;
  uint32_t flags = 0;
  p4_pd_counter_value_t counter{};
  p4_pd_counter_value_t *counter_out = nullptr;
  uint8_t *bytes_in = nullptr;            // a register value
  uint8_t *bytes_out = nullptr;           // register values read, or a hash
  uint32_t bytes_len = 0;                 // ... the hash's size
  int *value_count_out = nullptr;
  // Parser value sets.
  p4_pd_pvs_gress_t gress = 0;
  uint32_t pipe_id = PD_DEV_PIPE_ALL;
  uint8_t parser_id = PD_PVS_PARSER_ALL;
  uint32_t pvs_value = 0, pvs_mask = 0;
  uint32_t *pvs_value_out = nullptr, *pvs_mask_out = nullptr;
  p4_pd_pvs_hdl_t pvs = 0;
  p4_pd_pvs_hdl_t *pvs_out = nullptr;
  p4_pd_pvs_hdl_t *pvs_list_out = nullptr;
  // Hashes: fields with their widths.
  uint32_t attr_count = 0;
  p4_pd_hash_calc_input_field_attribute_t *attr_list = nullptr;
  uint32_t *attr_sizes = nullptr;
  // Digests.
  p4_pd_digest_notify_cb digest_cb = nullptr;
  void *cookie = nullptr;
  p4_pd_digest_msg_t *digest_msg = nullptr;
};
using Thunk = p4_pd_status_t (*)(const Call &);

enum class Match : uint8_t { exact, ternary, lpm };

// One key field, in key order (the order of the schema text and of the key value text).
struct FieldDesc {
  const char *name;     // short name, as the schema shows it
  const char *member;   // the key record's member
  const char *hint;     // "mac", "v4addr", "v6addr", "port", "vport", "dec" or null
  const char *slice;    // the bits the table matches, in hexadecimal, where it keys on a slice of
                        // the field; null where it keys on the whole field
  uint16_t width;       // bits of the whole field
  Match match;
  uint16_t offset;      // the value member: offset and size (1, 2, 4, or 16 for a 128-bit array)
  uint16_t size;
  uint16_t extra;       // offset of the mask member (ternary) or the prefix length (lpm)
};

struct ParamDesc {
  const char *name;     // without "action_"
  const char *hint;
  uint16_t width;
  uint16_t offset;
  uint16_t size;
};

struct ActionDesc {
  const char *name;
  uint16_t number;      // the action enumeration
  uint16_t nparams;
  const ParamDesc *params;
  uint16_t record_size; // 0 without parameters
  int16_t index_param;  // the parameter that indexes a counter or meter, or -1
};

// An action of a table, with the thunks of the families that exist for it (null where none does:
// an action that is only a default has no add).
struct TableActionDesc {
  const ActionDesc *action;
  Thunk add;
  Thunk modify;
  Thunk set_default;
};

struct TableDesc {
  const char *name;
  uint32_t handle;
  const char *kind;     // "exact", "ternary", "lpm", "keyless"
  const char *profile;  // the action profile whose members and groups the entries bind to, or null
  bool priority;        // entries have a priority (tables with ternary fields)
  bool counted;         // a direct counter: counter labels exist
  bool meter_spec;      // add and modify take a meter spec
  bool ttl;             // add takes a TTL
  uint16_t nkey;
  const FieldDesc *key;
  uint16_t key_size;
  uint16_t nactions;
  const TableActionDesc *actions;
  Thunk del;            // null for a keyless table
  Thunk reset_default;
  Thunk count;
  Thunk get_default;
  Thunk plcmt;          // the placement list
  Thunk key_to_handle;  // the entry of a key (null for a keyless table)
  // A table bound to a profile: entries and the default entry by member or by group (null for
  // other tables).
  Thunk add_member_entry;
  Thunk add_group_entry;
  Thunk default_member;
  Thunk default_group;
};

// An action of a profile's members.
struct ProfileActionDesc {
  const ActionDesc *action;
  Thunk add;
  Thunk modify;
};

struct ProfileDesc {
  const char *name;
  uint32_t handle;      // the action data table's handle
  uint32_t selector;    // the selector's handle
  const char *table;    // the table bound to it
  uint16_t nactions;
  const ProfileActionDesc *actions;
  Thunk del_member, create_group, del_group, add_to_group, del_from_group, get_member;
  Thunk first_group, next_groups, first_group_member, next_group_members;
};

struct CounterDesc {
  const char *name;
  uint32_t handle;
  bool direct;          // a cell per entry of `table`; else cells by index
  const char *table;
  Thunk read, write;
};

struct MeterDesc {
  const char *name;
  uint32_t handle;
  bool direct;
  const char *table;
  const char *unit;     // "bytes" or "packets"
  Thunk set, read;
};

struct RegisterDesc {
  const char *name;
  uint32_t handle;
  Thunk read, write, reset;
};

struct ValueSetDesc {
  const char *name;
  uint32_t handle;
  Thunk add, get, first, next;
};

struct HashDesc {
  const char *name;
  uint32_t handle;
  uint32_t input;       // its field list's handle
  uint32_t algorithm;   // its algorithm's handle
  Thunk value;
};

struct DigestFieldDesc {
  const char *name;
  uint16_t bytes;
};

struct DigestDesc {
  const char *name;
  uint32_t handle;
  uint16_t entry_bytes;
  uint16_t nfields;
  const DigestFieldDesc *fields;
  Thunk register_cb, deregister_cb, ack;
};

struct CatalogDesc {
  const char *program;
  size_t ntables;
  const TableDesc *tables;
  size_t nactions;
  const ActionDesc *actions;
  size_t nprofiles;
  const ProfileDesc *profiles;
  size_t ncounters;
  const CounterDesc *counters;
  size_t nmeters;
  const MeterDesc *meters;
  size_t nregisters;
  const RegisterDesc *registers;
  size_t nvalue_sets;
  const ValueSetDesc *value_sets;
  size_t nhashes;
  const HashDesc *hashes;
  size_t ndigests;
  const DigestDesc *digests;
};

const CatalogDesc &catalog();

}  // namespace cvcli
