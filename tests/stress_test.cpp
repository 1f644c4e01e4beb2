// The library from several threads at once, against the driver model and the member-selector layer.
//
// Four workers each own a match table (exact, lpm, two ternary) and an action profile with its bound
// table. Each adds, changes, reads and deletes entries, adds, changes and deletes members, creates
// and deletes groups, moves members in and out of them and binds entries to members and groups, at
// random, and keeps its own model: every status must be the one the model says, and every read
// must give what the model holds. Beside them, two readers walk, count, read, take placement lists
// and value texts of all those tables and log the device's state, checking that each look is
// consistent in itself. At the end every table and profile is checked against its owner's model,
// entry by entry, member by member and group by group, in the driver and in the member-selector
// state. The run prints its operations per second; no speed is asserted.
#include <cjson/cJSON.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <new>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "test_support.h"

namespace {

using cvtest::hex;

constexpr p4_pd_sess_hdl_t kSess = 7;
constexpr p4_pd_dev_target_t kTgt = {1, 0xFFFF};
constexpr uint32_t kDev = 1;
constexpr int kWorkers = 4, kReaders = 2;
constexpr uint32_t kKeys = 48;        // each table's key space
constexpr uint32_t kGroupMax = 4;     // members per group
constexpr size_t kParamBytes = 8;     // the parameter bytes compared (the largest record used is 8)
constexpr p4_pd_status_t kOtherAction = 0xFFFFFFFFu;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kIters = 6000;
#else
constexpr int kIters = 30000;
#endif

// ---- Texts that stand for what a read gives, compared whole ----

// An entry of a plain table: its key record, priority, action number and parameter bytes.
template <class Key>
std::string entry_text(const Key &key, uint32_t prio, uint32_t action, const void *params) {
  return "key " + hex(reinterpret_cast<const uint8_t *>(&key), sizeof key) + " prio " + std::to_string(prio) +
         " action " + std::to_string(action) + " params " + hex(static_cast<const uint8_t *>(params), kParamBytes);
}

// An entry of a bound table: its key record, priority and what it binds to.
template <class Key>
std::string bound_text(const Key &key, uint32_t prio, bool is_group, uint32_t hdl) {
  return "key " + hex(reinterpret_cast<const uint8_t *>(&key), sizeof key) + " prio " + std::to_string(prio) +
         (is_group ? " group " : " member ") + std::to_string(hdl);
}

// A member: its action number and parameter bytes.
std::string member_text(uint32_t action, const void *params) {
  return "action " + std::to_string(action) + " params " + hex(static_cast<const uint8_t *>(params), kParamBytes);
}

// The parameters a worker writes for key (or member) k at version v carry k in their low byte, so
// that a reader can tell a torn or misplaced record.
uint32_t param_of(uint32_t k, uint32_t v) { return (v << 8) | k; }

// Records are compared as bytes, so each is zeroed whole, the bytes between its members included,
// and filled in place: a copy need not keep those bytes.
template <class Rec>
struct Zeroed {
  Rec rec;
  Zeroed() { std::memset(&rec, 0, sizeof rec); }
  Zeroed(const Zeroed &) = delete;
  Zeroed &operator=(const Zeroed &) = delete;
};

// A zeroed parameter area, as a read fills the union of a tagged action record, with at most one
// parameter record made at its start.
struct Params {
  alignas(8) uint8_t bytes[sizeof(p4_pd_corvin_switch_action_spec_t::u)] = {};
  template <class Rec>
  Rec &make() {
    static_assert(sizeof(Rec) <= kParamBytes);
    return *new (bytes) Rec;  // its bytes stay the zeroes they are
  }
};

// ---- A worker's plain match table, through its exports ----
//
// A version v picks the entry's action (even: the action with parameters) and its parameters.
struct PlainTable {
  const char *name;
  uint32_t handle = 0;
  std::function<p4_pd_status_t(uint32_t k, uint32_t v, p4_pd_entry_hdl_t *)> add;
  std::function<p4_pd_status_t(p4_pd_entry_hdl_t, uint32_t k, uint32_t v)> modify;
  std::function<p4_pd_status_t(uint32_t k, uint32_t v)> modify_by_key;
  std::function<p4_pd_status_t(p4_pd_entry_hdl_t)> del;
  std::function<p4_pd_status_t(uint32_t k)> del_by_key;
  std::function<p4_pd_status_t(uint32_t k, p4_pd_entry_hdl_t *)> find;
  std::function<p4_pd_status_t(p4_pd_entry_hdl_t, std::string *)> read;
  std::function<std::string(uint32_t k, uint32_t v)> expected;
  std::function<p4_pd_status_t(uint32_t *)> count;
  std::function<p4_pd_status_t(p4_pd_entry_hdl_t *)> first;
  std::function<p4_pd_status_t(p4_pd_entry_hdl_t, int, p4_pd_entry_hdl_t *)> next;
  std::function<p4_pd_status_t(void **)> placement;
  // A datum's entry as a text, and whether it is the default entry's.
  std::function<p4_pd_status_t(void *, std::string *, bool *)> read_datum;
};

// The families every plain table has the same way, by the table's name T; after it, nothing for a
// table without a priority, or `, prio(k)` (an empty argument, then the priority). `key` fills a key
// record for k; each table's own code sets add, modify, modify_by_key and expected.
#define CV_PLAIN_FAMILIES(t, T, ...)                                                                              \
  t.name = #T;                                                                                                  \
  p4_pd_corvin_switch_##T##_get_mat_table_handle(&t.handle);                                                    \
  t.del = [](p4_pd_entry_hdl_t h) { return p4_pd_corvin_switch_##T##_table_delete(kSess, kDev, h); };            \
  t.del_by_key = [=](uint32_t k) {                                                                              \
    Zeroed<Key> r;                                                                                              \
    key(k, r.rec);                                                                                              \
    return p4_pd_corvin_switch_##T##_table_delete_by_match_spec(kSess, kTgt, &r.rec __VA_ARGS__);               \
  };                                                                                                            \
  t.find = [=](uint32_t k, p4_pd_entry_hdl_t *h) {                                                              \
    Zeroed<Key> r;                                                                                              \
    key(k, r.rec);                                                                                              \
    return p4_pd_corvin_switch_##T##_match_spec_to_entry_hdl(kSess, kTgt, &r.rec __VA_ARGS__, h);               \
  };                                                                                                            \
  t.count = [](uint32_t *n) { return p4_pd_corvin_switch_##T##_get_entry_count(kSess, kTgt, n); };              \
  t.first = [](p4_pd_entry_hdl_t *h) { return p4_pd_corvin_switch_##T##_get_first_entry_handle(kSess, kTgt, h); }; \
  t.next = [](p4_pd_entry_hdl_t h, int n, p4_pd_entry_hdl_t *out) {                                             \
    return p4_pd_corvin_switch_##T##_get_next_entry_handles(kSess, kTgt, h, n, out);                            \
  };                                                                                                            \
  t.placement = [](void **list) { return p4_pd_corvin_switch_##T##_get_plcmt_data(kDev, list); }

// The read families: with a priority (ternary) or without.
#define CV_PLAIN_READ_NO_PRIO(t, T)                                                                             \
  t.read = [](p4_pd_entry_hdl_t h, std::string *out) {                                                          \
    Zeroed<Key> r;                                                                                              \
    Zeroed<p4_pd_corvin_switch_action_spec_t> a;                                                                \
    char name[128];                                                                                             \
    uint8_t dflt = 9;                                                                                           \
    p4_pd_status_t st =                                                                                         \
        p4_pd_corvin_switch_##T##_get_entry(kSess, kDev, h, 0, &r.rec, name, &a.rec.u, &a.rec.name, &dflt);     \
    if (st == 0) *out = entry_text(r.rec, 0, a.rec.name, &a.rec.u) + (dflt ? " default" : "");                  \
    return st;                                                                                                  \
  };                                                                                                            \
  t.read_datum = [](void *d, std::string *out, bool *dflt) {                                                    \
    Zeroed<Key> r;                                                                                              \
    Zeroed<p4_pd_corvin_switch_action_spec_t> a;                                                                \
    uint8_t is_default = 0;                                                                                     \
    p4_pd_status_t st = p4_pd_corvin_switch_##T##_get_entry_from_plcmt_data(d, &r.rec, &a.rec, &is_default);    \
    if (st == 0) *out = entry_text(r.rec, 0, a.rec.name, &a.rec.u);                                             \
    *dflt = is_default != 0;                                                                                    \
    return st;                                                                                                  \
  }

#define CV_PLAIN_READ_PRIO(t, T)                                                                                \
  t.read = [](p4_pd_entry_hdl_t h, std::string *out) {                                                          \
    Zeroed<Key> r;                                                                                              \
    uint32_t p = 0;                                                                                             \
    Zeroed<p4_pd_corvin_switch_action_spec_t> a;                                                                \
    char name[128];                                                                                             \
    uint8_t dflt = 9;                                                                                           \
    p4_pd_status_t st =                                                                                         \
        p4_pd_corvin_switch_##T##_get_entry(kSess, kDev, h, 0, &r.rec, &p, name, &a.rec.u, &a.rec.name, &dflt); \
    if (st == 0) *out = entry_text(r.rec, p, a.rec.name, &a.rec.u) + (dflt ? " default" : "");                  \
    return st;                                                                                                  \
  };                                                                                                            \
  t.read_datum = [](void *d, std::string *out, bool *dflt) {                                                    \
    Zeroed<Key> r;                                                                                              \
    uint32_t p = 0;                                                                                             \
    Zeroed<p4_pd_corvin_switch_action_spec_t> a;                                                                \
    uint8_t is_default = 0;                                                                                     \
    p4_pd_status_t st = p4_pd_corvin_switch_##T##_get_entry_from_plcmt_data(d, &r.rec, &p, &a.rec, &is_default); \
    if (st == 0) *out = entry_text(r.rec, p, a.rec.name, &a.rec.u);                                             \
    *dflt = is_default != 0;                                                                                    \
    return st;                                                                                                  \
  }

// l2Lookup: exact; l2LookupKnownUcast (egrL2Aintf, 21 bits) or l2LookupDrop.
PlainTable l2_lookup() {
  using Key = p4_pd_corvin_switch_l2Lookup_match_spec_t;
  using Ucast = p4_pd_corvin_switch_l2LookupKnownUcast_action_spec_t;
  auto key = [](uint32_t k, Key &r) {
    r.egrMd_dmacOui = 0x00AB00 | k;
    r.egrMd_dmacStation = (k * 2654435761u) & 0xFFFFFF;
    r.egrMd_egrL2Domain = static_cast<uint16_t>(k);
  };
  auto ucast = [](uint32_t k, uint32_t v, Ucast &a) { a.action_egrL2Aintf = param_of(k, v) & 0x1FFFFF; };
  PlainTable t;
  CV_PLAIN_FAMILIES(t, l2Lookup, );
  CV_PLAIN_READ_NO_PRIO(t, l2Lookup);
  t.add = [=](uint32_t k, uint32_t v, p4_pd_entry_hdl_t *h) {
    Zeroed<Key> r;
    key(k, r.rec);
    if (v % 2) return p4_pd_corvin_switch_l2Lookup_table_add_with_l2LookupDrop(kSess, kTgt, &r.rec, h);
    Zeroed<Ucast> a;
    ucast(k, v, a.rec);
    return p4_pd_corvin_switch_l2Lookup_table_add_with_l2LookupKnownUcast(kSess, kTgt, &r.rec, &a.rec, h);
  };
  t.modify = [=](p4_pd_entry_hdl_t h, uint32_t k, uint32_t v) {
    if (v % 2) return p4_pd_corvin_switch_l2Lookup_table_modify_with_l2LookupDrop(kSess, kDev, h);
    Zeroed<Ucast> a;
    ucast(k, v, a.rec);
    return p4_pd_corvin_switch_l2Lookup_table_modify_with_l2LookupKnownUcast(kSess, kDev, h, &a.rec);
  };
  t.modify_by_key = [=](uint32_t k, uint32_t v) {
    Zeroed<Key> r;
    key(k, r.rec);
    if (v % 2) return p4_pd_corvin_switch_l2Lookup_table_modify_with_l2LookupDrop_by_match_spec(kSess, kTgt, &r.rec);
    Zeroed<Ucast> a;
    ucast(k, v, a.rec);
    return p4_pd_corvin_switch_l2Lookup_table_modify_with_l2LookupKnownUcast_by_match_spec(kSess, kTgt, &r.rec, &a.rec);
  };
  t.expected = [=](uint32_t k, uint32_t v) {
    Zeroed<Key> r;
    key(k, r.rec);
    Params p;
    if (v % 2) return entry_text(r.rec, 0, p4_pd_corvin_switch_l2LookupDrop, p.bytes);
    ucast(k, v, p.make<Ucast>());
    return entry_text(r.rec, 0, p4_pd_corvin_switch_l2LookupKnownUcast, p.bytes);
  };
  return t;
}

// ipv4ShortMaskLpm: lpm; setNextHop (nextHop, 32 bits) or ipv4ShortMaskLpmMiss. The prefix bits
// past the length are 0, as the library keeps them.
PlainTable ipv4_lpm() {
  using Key = p4_pd_corvin_switch_ipv4ShortMaskLpm_match_spec_t;
  using Hop = p4_pd_corvin_switch_setNextHop_action_spec_t;
  auto key = [](uint32_t k, Key &r) {
    r.l3Info_vrfId = static_cast<uint16_t>(k);
    r.ingIpv4_dip_prefix_length = static_cast<uint16_t>(8 + k % 24);
    r.ingIpv4_dip = (0x0A000000u | k * 0x01010101u) & ~(0xFFFFFFFFu >> r.ingIpv4_dip_prefix_length);
  };
  auto hop = [](uint32_t k, uint32_t v, Hop &a) { a.action_nextHop = param_of(k, v); };
  PlainTable t;
  CV_PLAIN_FAMILIES(t, ipv4ShortMaskLpm, );
  CV_PLAIN_READ_NO_PRIO(t, ipv4ShortMaskLpm);
  t.add = [=](uint32_t k, uint32_t v, p4_pd_entry_hdl_t *h) {
    Zeroed<Key> r;
    key(k, r.rec);
    if (v % 2) return p4_pd_corvin_switch_ipv4ShortMaskLpm_table_add_with_ipv4ShortMaskLpmMiss(kSess, kTgt, &r.rec, h);
    Zeroed<Hop> a;
    hop(k, v, a.rec);
    return p4_pd_corvin_switch_ipv4ShortMaskLpm_table_add_with_setNextHop(kSess, kTgt, &r.rec, &a.rec, h);
  };
  t.modify = [=](p4_pd_entry_hdl_t h, uint32_t k, uint32_t v) {
    if (v % 2) return p4_pd_corvin_switch_ipv4ShortMaskLpm_table_modify_with_ipv4ShortMaskLpmMiss(kSess, kDev, h);
    Zeroed<Hop> a;
    hop(k, v, a.rec);
    return p4_pd_corvin_switch_ipv4ShortMaskLpm_table_modify_with_setNextHop(kSess, kDev, h, &a.rec);
  };
  t.modify_by_key = [=](uint32_t k, uint32_t v) {
    Zeroed<Key> r;
    key(k, r.rec);
    if (v % 2)
      return p4_pd_corvin_switch_ipv4ShortMaskLpm_table_modify_with_ipv4ShortMaskLpmMiss_by_match_spec(kSess, kTgt,
                                                                                                       &r.rec);
    Zeroed<Hop> a;
    hop(k, v, a.rec);
    return p4_pd_corvin_switch_ipv4ShortMaskLpm_table_modify_with_setNextHop_by_match_spec(kSess, kTgt, &r.rec,
                                                                                           &a.rec);
  };
  t.expected = [=](uint32_t k, uint32_t v) {
    Zeroed<Key> r;
    key(k, r.rec);
    Params p;
    if (v % 2) return entry_text(r.rec, 0, p4_pd_corvin_switch_ipv4ShortMaskLpmMiss, p.bytes);
    hop(k, v, p.make<Hop>());
    return entry_text(r.rec, 0, p4_pd_corvin_switch_setNextHop, p.bytes);
  };
  return t;
}

// l2SmacCheck: ternary, with a priority; setIllegalSmac or NoAction, neither with parameters. Masks
// differ from key to key; values keep only the bits their masks keep.
PlainTable l2_smac_check() {
  using Key = p4_pd_corvin_switch_l2SmacCheck_match_spec_t;
  auto key = [](uint32_t k, Key &r) {
    r.outerEthHdr_smacOui_mask = 0xFFFF00u | k;
    r.outerEthHdr_smacOui = (0x123400u | k) & r.outerEthHdr_smacOui_mask;
    r.outerEthHdr_smacStation_mask = 0xFFFFFFu >> (k % 8);
    r.outerEthHdr_smacStation = (k * 0x9E3779u) & r.outerEthHdr_smacStation_mask;
  };
  auto prio = [](uint32_t k) { return 100 + k; };
  PlainTable t;
  CV_PLAIN_FAMILIES(t, l2SmacCheck, , prio(k));
  CV_PLAIN_READ_PRIO(t, l2SmacCheck);
  t.add = [=](uint32_t k, uint32_t v, p4_pd_entry_hdl_t *h) {
    Zeroed<Key> r;
    key(k, r.rec);
    return v % 2 ? p4_pd_corvin_switch_l2SmacCheck_table_add_with_NoAction(kSess, kTgt, &r.rec, prio(k), h)
                 : p4_pd_corvin_switch_l2SmacCheck_table_add_with_setIllegalSmac(kSess, kTgt, &r.rec, prio(k), h);
  };
  t.modify = [=](p4_pd_entry_hdl_t h, uint32_t, uint32_t v) {
    return v % 2 ? p4_pd_corvin_switch_l2SmacCheck_table_modify_with_NoAction(kSess, kDev, h)
                 : p4_pd_corvin_switch_l2SmacCheck_table_modify_with_setIllegalSmac(kSess, kDev, h);
  };
  t.modify_by_key = [=](uint32_t k, uint32_t v) {
    Zeroed<Key> r;
    key(k, r.rec);
    return v % 2 ? p4_pd_corvin_switch_l2SmacCheck_table_modify_with_NoAction_by_match_spec(kSess, kTgt, &r.rec,
                                                                                            prio(k))
                 : p4_pd_corvin_switch_l2SmacCheck_table_modify_with_setIllegalSmac_by_match_spec(kSess, kTgt, &r.rec,
                                                                                                  prio(k));
  };
  t.expected = [=](uint32_t k, uint32_t v) {
    Zeroed<Key> r;
    key(k, r.rec);
    return entry_text(r.rec, prio(k), v % 2 ? p4_pd_corvin_switch_NoAction : p4_pd_corvin_switch_setIllegalSmac,
                      Params().bytes);
  };
  return t;
}

// mcastPrune: ternary of five fields, with a priority; setPruneParams (l1xId, 16 bits) or
// setPruneParamsUnused.
PlainTable mcast_prune() {
  using Key = p4_pd_corvin_switch_mcastPrune_match_spec_t;
  using Prune = p4_pd_corvin_switch_setPruneParams_action_spec_t;
  auto key = [](uint32_t k, Key &r) {
    r.egrMd_decapType_mask = 7;
    r.egrMd_decapType = static_cast<uint8_t>(k % 8);
    r.egrMd_routed_mask = static_cast<uint8_t>(k % 2);
    r.egrMd_routed = static_cast<uint8_t>((k / 2) % 2) & r.egrMd_routed_mask;
    r.phase0_portType_mask = 3;
    r.phase0_portType = static_cast<uint8_t>((k / 8) % 4);
    r.egrMd_egrL2AintfUnresolved_mask = 0x1FFFFF;
    r.egrMd_egrL2AintfUnresolved = k * 40503u & 0x1FFFFF;
    r.ig_intr_md_for_tm_mcast_grp_a_mask = 0xF000;
    r.ig_intr_md_for_tm_mcast_grp_a = static_cast<uint16_t>(k << 12);
  };
  auto prio = [](uint32_t k) { return 7 * k + 1; };
  auto prune = [](uint32_t k, uint32_t v, Prune &a) { a.action_l1xId = static_cast<uint16_t>(param_of(k, v)); };
  PlainTable t;
  CV_PLAIN_FAMILIES(t, mcastPrune, , prio(k));
  CV_PLAIN_READ_PRIO(t, mcastPrune);
  t.add = [=](uint32_t k, uint32_t v, p4_pd_entry_hdl_t *h) {
    Zeroed<Key> r;
    key(k, r.rec);
    if (v % 2)
      return p4_pd_corvin_switch_mcastPrune_table_add_with_setPruneParamsUnused(kSess, kTgt, &r.rec, prio(k), h);
    Zeroed<Prune> a;
    prune(k, v, a.rec);
    return p4_pd_corvin_switch_mcastPrune_table_add_with_setPruneParams(kSess, kTgt, &r.rec, prio(k), &a.rec, h);
  };
  t.modify = [=](p4_pd_entry_hdl_t h, uint32_t k, uint32_t v) {
    if (v % 2) return p4_pd_corvin_switch_mcastPrune_table_modify_with_setPruneParamsUnused(kSess, kDev, h);
    Zeroed<Prune> a;
    prune(k, v, a.rec);
    return p4_pd_corvin_switch_mcastPrune_table_modify_with_setPruneParams(kSess, kDev, h, &a.rec);
  };
  t.modify_by_key = [=](uint32_t k, uint32_t v) {
    Zeroed<Key> r;
    key(k, r.rec);
    if (v % 2)
      return p4_pd_corvin_switch_mcastPrune_table_modify_with_setPruneParamsUnused_by_match_spec(kSess, kTgt, &r.rec,
                                                                                                 prio(k));
    Zeroed<Prune> a;
    prune(k, v, a.rec);
    return p4_pd_corvin_switch_mcastPrune_table_modify_with_setPruneParams_by_match_spec(kSess, kTgt, &r.rec, prio(k),
                                                                                         &a.rec);
  };
  t.expected = [=](uint32_t k, uint32_t v) {
    Zeroed<Key> r;
    key(k, r.rec);
    Params p;
    if (v % 2) return entry_text(r.rec, prio(k), p4_pd_corvin_switch_setPruneParamsUnused, p.bytes);
    prune(k, v, p.make<Prune>());
    return entry_text(r.rec, prio(k), p4_pd_corvin_switch_setPruneParams, p.bytes);
  };
  return t;
}

// ---- A worker's action profile and its bound table, through their exports ----
//
// A member's version v picks its action (even: the action with parameters) and its parameters; a
// member keeps its action for life, so a change keeps the parity of the version.
struct Profile {
  const char *name;
  uint32_t act_handle[2] = {};  // the action handles of the even and the odd versions
  std::function<p4_pd_status_t(uint32_t v, p4_pd_mbr_hdl_t *)> add_member;
  std::function<p4_pd_status_t(p4_pd_mbr_hdl_t, uint32_t v)> modify_member;
  std::function<p4_pd_status_t(p4_pd_mbr_hdl_t)> del_member;
  std::function<p4_pd_status_t(p4_pd_mbr_hdl_t, std::string *)> read_member;
  std::function<std::string(p4_pd_mbr_hdl_t, uint32_t v)> expected_member;
  std::function<p4_pd_status_t(uint32_t max, p4_pd_grp_hdl_t *)> create_group;
  std::function<p4_pd_status_t(p4_pd_grp_hdl_t)> del_group;
  std::function<p4_pd_status_t(p4_pd_grp_hdl_t, p4_pd_mbr_hdl_t)> add_to_group;
  std::function<p4_pd_status_t(p4_pd_grp_hdl_t, p4_pd_mbr_hdl_t)> del_from_group;
  std::function<p4_pd_status_t(p4_pd_grp_hdl_t, uint32_t *)> group_size;
  std::function<p4_pd_status_t(p4_pd_grp_hdl_t, p4_pd_mbr_hdl_t *)> first_in_group;
  std::function<p4_pd_status_t(p4_pd_grp_hdl_t, p4_pd_mbr_hdl_t, int, p4_pd_mbr_hdl_t *)> next_in_group;
  std::function<p4_pd_status_t(uint32_t *)> member_count, group_count;
  std::function<p4_pd_status_t(p4_pd_mbr_hdl_t *)> first_member, first_group;
  std::function<p4_pd_status_t(uint32_t, int, uint32_t *)> next_members, next_groups;
  // The bound table: an entry of key k bound to a member or a group.
  std::function<p4_pd_status_t(uint32_t k, bool grp, uint32_t hdl, p4_pd_entry_hdl_t *)> bind;
  std::function<p4_pd_status_t(p4_pd_entry_hdl_t, bool grp, uint32_t hdl)> rebind;
  std::function<p4_pd_status_t(p4_pd_entry_hdl_t)> unbind;
  std::function<p4_pd_status_t(p4_pd_entry_hdl_t, std::string *)> read_bound;
  std::function<std::string(uint32_t k, bool grp, uint32_t hdl)> expected_bound;
  std::function<p4_pd_status_t(uint32_t *)> bound_count;
  std::function<p4_pd_status_t(p4_pd_entry_hdl_t *)> first_bound;
  std::function<p4_pd_status_t(p4_pd_entry_hdl_t, int, p4_pd_entry_hdl_t *)> next_bound;
};

// The families every profile has the same way, by the profile's and the bound table's names.
#define CV_PROFILE_FAMILIES(p, P, B)                                                                           \
  p.name = #P;                                                                                                  \
  p.del_member = [](p4_pd_mbr_hdl_t m) { return p4_pd_corvin_switch_##P##_del_member(kSess, kDev, m); };        \
  p.read_member = [](p4_pd_mbr_hdl_t m, std::string *out) {                                                     \
    Zeroed<p4_pd_corvin_switch_action_spec_t> a;                                                                \
    p4_pd_status_t st = p4_pd_corvin_switch_##P##_get_member(kSess, kDev, m, 0, &a.rec);                        \
    if (st == 0) *out = member_text(a.rec.name, &a.rec.u);                                                      \
    return st;                                                                                                  \
  };                                                                                                            \
  p.create_group = [](uint32_t max, p4_pd_grp_hdl_t *g) {                                                       \
    return p4_pd_corvin_switch_##P##_create_group(kSess, kTgt, max, g);                                         \
  };                                                                                                            \
  p.del_group = [](p4_pd_grp_hdl_t g) { return p4_pd_corvin_switch_##P##_del_group(kSess, kDev, g); };          \
  p.add_to_group = [](p4_pd_grp_hdl_t g, p4_pd_mbr_hdl_t m) {                                                   \
    return p4_pd_corvin_switch_##P##_add_member_to_group(kSess, kDev, g, m);                                    \
  };                                                                                                            \
  p.del_from_group = [](p4_pd_grp_hdl_t g, p4_pd_mbr_hdl_t m) {                                                 \
    return p4_pd_corvin_switch_##P##_del_member_from_group(kSess, kDev, g, m);                                  \
  };                                                                                                            \
  p.group_size = [](p4_pd_grp_hdl_t g, uint32_t *n) {                                                           \
    return p4_pd_corvin_switch_##P##_get_selector_group_member_count(kSess, kDev, g, n);                        \
  };                                                                                                            \
  p.first_in_group = [](p4_pd_grp_hdl_t g, p4_pd_mbr_hdl_t *m) {                                                \
    return p4_pd_corvin_switch_##P##_get_first_group_member(kSess, kDev, g, m);                                 \
  };                                                                                                            \
  p.next_in_group = [](p4_pd_grp_hdl_t g, p4_pd_mbr_hdl_t m, int n, p4_pd_mbr_hdl_t *out) {                     \
    return p4_pd_corvin_switch_##P##_get_next_group_members(kSess, kDev, g, m, n, out);                         \
  };                                                                                                            \
  p.member_count = [](uint32_t *n) {                                                                            \
    return p4_pd_corvin_switch_##P##_get_act_prof_entry_count(kSess, kTgt, n);                                  \
  };                                                                                                            \
  p.group_count = [](uint32_t *n) {                                                                             \
    return p4_pd_corvin_switch_##P##_get_selector_group_count(kSess, kTgt, n);                                  \
  };                                                                                                            \
  p.first_member = [](p4_pd_mbr_hdl_t *m) { return p4_pd_corvin_switch_##P##_get_first_member(kSess, kTgt, m); }; \
  p.first_group = [](p4_pd_grp_hdl_t *g) { return p4_pd_corvin_switch_##P##_get_first_group(kSess, kTgt, g); };   \
  p.next_members = [](uint32_t m, int n, uint32_t *out) {                                                       \
    return p4_pd_corvin_switch_##P##_get_next_members(kSess, kTgt, m, n, out);                                  \
  };                                                                                                            \
  p.next_groups = [](uint32_t g, int n, uint32_t *out) {                                                        \
    return p4_pd_corvin_switch_##P##_get_next_groups(kSess, kTgt, g, n, out);                                   \
  };                                                                                                            \
  p.rebind = [](p4_pd_entry_hdl_t e, bool grp, uint32_t h) {                                                    \
    return grp ? p4_pd_corvin_switch_##B##_modify_entry_with_selector(kSess, kDev, e, h)                        \
               : p4_pd_corvin_switch_##B##_modify_entry(kSess, kDev, e, h);                                     \
  };                                                                                                            \
  p.unbind = [](p4_pd_entry_hdl_t e) { return p4_pd_corvin_switch_##B##_table_delete(kSess, kDev, e); };        \
  p.bound_count = [](uint32_t *n) { return p4_pd_corvin_switch_##B##_get_entry_count(kSess, kTgt, n); };        \
  p.first_bound = [](p4_pd_entry_hdl_t *e) {                                                                    \
    return p4_pd_corvin_switch_##B##_get_first_entry_handle(kSess, kTgt, e);                                    \
  };                                                                                                            \
  p.next_bound = [](p4_pd_entry_hdl_t e, int n, p4_pd_entry_hdl_t *out) {                                       \
    return p4_pd_corvin_switch_##B##_get_next_entry_handles(kSess, kTgt, e, n, out);                            \
  }

// The bound table's key-dependent families, for a table without a priority (exact) and one with
// (ternary); `key` fills the key record of k, `prio` gives its priority.
#define CV_BOUND_EXACT(p, B)                                                                                    \
  p.bind = [=](uint32_t k, bool grp, uint32_t h, p4_pd_entry_hdl_t *e) {                                        \
    Zeroed<p4_pd_corvin_switch_##B##_match_spec_t> r;                                                           \
    key(k, r.rec);                                                                                              \
    return grp ? p4_pd_corvin_switch_##B##_add_entry_with_selector(kSess, kTgt, &r.rec, h, e)                   \
               : p4_pd_corvin_switch_##B##_add_entry(kSess, kTgt, &r.rec, h, e);                                \
  };                                                                                                            \
  p.read_bound = [](p4_pd_entry_hdl_t e, std::string *out) {                                                    \
    Zeroed<p4_pd_corvin_switch_##B##_match_spec_t> r;                                                           \
    uint8_t is_mbr = 9, is_grp = 9, dflt = 9;                                                                   \
    p4_pd_grp_hdl_t g = 0;                                                                                      \
    p4_pd_mbr_hdl_t m = 0;                                                                                      \
    p4_pd_status_t st =                                                                                         \
        p4_pd_corvin_switch_##B##_get_entry(kSess, kDev, e, 0, &r.rec, &is_mbr, &is_grp, &g, &m, &dflt);        \
    if (st == 0)                                                                                                \
      *out = bound_text(r.rec, 0, is_grp != 0, is_grp ? g : m) + (is_mbr == is_grp ? " neither" : "") +         \
             (dflt ? " default" : "");                                                                          \
    return st;                                                                                                  \
  };                                                                                                            \
  p.expected_bound = [=](uint32_t k, bool grp, uint32_t h) {                                                    \
    Zeroed<p4_pd_corvin_switch_##B##_match_spec_t> r;                                                           \
    key(k, r.rec);                                                                                              \
    return bound_text(r.rec, 0, grp, h);                                                                        \
  }

#define CV_BOUND_TERNARY(p, B)                                                                                  \
  p.bind = [=](uint32_t k, bool grp, uint32_t h, p4_pd_entry_hdl_t *e) {                                        \
    Zeroed<p4_pd_corvin_switch_##B##_match_spec_t> r;                                                           \
    key(k, r.rec);                                                                                              \
    return grp ? p4_pd_corvin_switch_##B##_add_entry_with_selector(kSess, kTgt, &r.rec, prio(k), h, e)          \
               : p4_pd_corvin_switch_##B##_add_entry(kSess, kTgt, &r.rec, prio(k), h, e);                       \
  };                                                                                                            \
  p.read_bound = [](p4_pd_entry_hdl_t e, std::string *out) {                                                    \
    Zeroed<p4_pd_corvin_switch_##B##_match_spec_t> r;                                                           \
    uint32_t pr = 0;                                                                                            \
    uint8_t is_mbr = 9, is_grp = 9, dflt = 9;                                                                   \
    p4_pd_grp_hdl_t g = 0;                                                                                      \
    p4_pd_mbr_hdl_t m = 0;                                                                                      \
    p4_pd_status_t st =                                                                                         \
        p4_pd_corvin_switch_##B##_get_entry(kSess, kDev, e, 0, &r.rec, &pr, &is_mbr, &is_grp, &g, &m, &dflt);   \
    if (st == 0)                                                                                                \
      *out = bound_text(r.rec, pr, is_grp != 0, is_grp ? g : m) + (is_mbr == is_grp ? " neither" : "") +        \
             (dflt ? " default" : "");                                                                          \
    return st;                                                                                                  \
  };                                                                                                            \
  p.expected_bound = [=](uint32_t k, bool grp, uint32_t h) {                                                    \
    Zeroed<p4_pd_corvin_switch_##B##_match_spec_t> r;                                                           \
    key(k, r.rec);                                                                                              \
    return bound_text(r.rec, prio(k), grp, h);                                                                  \
  }

// A profile's member families for two actions: A with a parameter record (filled by `fill(m, v,
// rec)`, m the member's handle, 0 when it is added) and Z without.
#define CV_MEMBER_FAMILIES(p, P, A, Z)                                                                          \
  p.add_member = [=](uint32_t v, p4_pd_mbr_hdl_t *m) {                                                          \
    if (v % 2) return p4_pd_corvin_switch_##P##_add_member_with_##Z(kSess, kTgt, m);                            \
    Zeroed<p4_pd_corvin_switch_##A##_action_spec_t> a;                                                          \
    fill(0, v, a.rec);                                                                                          \
    return p4_pd_corvin_switch_##P##_add_member_with_##A(kSess, kTgt, &a.rec, m);                               \
  };                                                                                                            \
  p.modify_member = [=](p4_pd_mbr_hdl_t m, uint32_t v) {                                                        \
    if (v % 2) return p4_pd_corvin_switch_##P##_modify_member_with_##Z(kSess, kDev, m);                         \
    Zeroed<p4_pd_corvin_switch_##A##_action_spec_t> a;                                                          \
    fill(m, v, a.rec);                                                                                          \
    return p4_pd_corvin_switch_##P##_modify_member_with_##A(kSess, kDev, m, &a.rec);                            \
  };                                                                                                            \
  p.expected_member = [=](p4_pd_mbr_hdl_t m, uint32_t v) {                                                      \
    Params params;                                                                                              \
    if (v % 2) return member_text(p4_pd_corvin_switch_##Z, params.bytes);                                       \
    fill(m, v, params.make<p4_pd_corvin_switch_##A##_action_spec_t>());                                         \
    return member_text(p4_pd_corvin_switch_##A, params.bytes);                                                  \
  }

// ecmpMemberActionProfile: setEcmpNextHop (nextHopTable, 8 bits; nextHop, 32 bits) or NoAction;
// bound table ecmpGroup (exact).
Profile ecmp() {
  auto fill = [](p4_pd_mbr_hdl_t m, uint32_t v, p4_pd_corvin_switch_setEcmpNextHop_action_spec_t &a) {
    a.action_nextHopTable = static_cast<uint8_t>(v);
    a.action_nextHop = param_of(m & 0xFF, v);
  };
  auto key = [](uint32_t k, p4_pd_corvin_switch_ecmpGroup_match_spec_t &r) {
    r.l3_nextHop = static_cast<uint16_t>(k * 37);
  };
  Profile p;
  p.act_handle[0] = 0x20000098;
  p.act_handle[1] = 0x20000099;
  CV_PROFILE_FAMILIES(p, ecmpMemberActionProfile, ecmpGroup);
  CV_MEMBER_FAMILIES(p, ecmpMemberActionProfile, setEcmpNextHop, NoAction);
  CV_BOUND_EXACT(p, ecmpGroup);
  return p;
}

// lagPortActionProfile: setLagPort (egrL2AintfPort, 9 bits) or setPhysicalPort; bound table lagGroup
// (ternary).
Profile lag() {
  auto fill = [](p4_pd_mbr_hdl_t, uint32_t v, p4_pd_corvin_switch_setLagPort_action_spec_t &a) {
    a.action_egrL2AintfPort = static_cast<uint16_t>(v & 0x1FF);
  };
  auto key = [](uint32_t k, p4_pd_corvin_switch_lagGroup_match_spec_t &r) {
    r.egrMd_egrL2AintfUnresolved_mask = 0x1FFFFF >> (k % 4);
    r.egrMd_egrL2AintfUnresolved = (k * 0x2F1Bu) & r.egrMd_egrL2AintfUnresolved_mask;
  };
  auto prio = [](uint32_t k) { return 1000 - k; };
  Profile p;
  p.act_handle[0] = 0x200000e3;
  p.act_handle[1] = 0x200000e4;
  CV_PROFILE_FAMILIES(p, lagPortActionProfile, lagGroup);
  CV_MEMBER_FAMILIES(p, lagPortActionProfile, setLagPort, setPhysicalPort);
  CV_BOUND_TERNARY(p, lagGroup);
  return p;
}

// tunnelMemberActionProfile: setTunnelEgressInfo (egrL2AintfUnresolved, 21 bits; tunnelInfoIdx, 32
// bits) or NoAction; bound table tunnelResolve (exact).
Profile tunnel() {
  auto fill = [](p4_pd_mbr_hdl_t m, uint32_t v, p4_pd_corvin_switch_setTunnelEgressInfo_action_spec_t &a) {
    a.action_egrL2AintfUnresolved = v & 0x1FFFFF;
    a.action_tunnelInfoIdx = param_of(m & 0xFF, v);
  };
  auto key = [](uint32_t k, p4_pd_corvin_switch_tunnelResolve_match_spec_t &r) {
    r.egrMd_tunnelNextHop = static_cast<uint16_t>(k * 5);
  };
  Profile p;
  p.act_handle[0] = 0x200000c8;
  p.act_handle[1] = 0x200000ca;
  CV_PROFILE_FAMILIES(p, tunnelMemberActionProfile, tunnelResolve);
  CV_MEMBER_FAMILIES(p, tunnelMemberActionProfile, setTunnelEgressInfo, NoAction);
  CV_BOUND_EXACT(p, tunnelResolve);
  return p;
}

// mirrorLagPortActionProfile: setLagMemberSelector (lagMemberSelector, 10 bits) or NoAction; bound
// table ingressMirrorLagGroup (exact).
Profile mirror_lag() {
  auto fill = [](p4_pd_mbr_hdl_t, uint32_t v, p4_pd_corvin_switch_setLagMemberSelector_action_spec_t &a) {
    a.action_lagMemberSelector = static_cast<uint16_t>(v & 0x3FF);
  };
  auto key = [](uint32_t k, p4_pd_corvin_switch_ingressMirrorLagGroup_match_spec_t &r) {
    r.ingMirrorMd_mirrorSession = static_cast<uint16_t>(k * 11);
  };
  Profile p;
  p.act_handle[0] = 0x200000d1;
  p.act_handle[1] = 0x200000d2;
  CV_PROFILE_FAMILIES(p, mirrorLagPortActionProfile, ingressMirrorLagGroup);
  CV_MEMBER_FAMILIES(p, mirrorLagPortActionProfile, setLagMemberSelector, NoAction);
  CV_BOUND_EXACT(p, ingressMirrorLagGroup);
  return p;
}

// ---- What a worker expects ----

struct Member {
  uint32_t version;  // its parity is the member's action
  std::string text;  // as it should read back
};
struct Group {
  std::set<uint32_t> mbrs;
  uint32_t action = 0;  // the action handle of the member added last; 0 before any
};
struct Bound {
  p4_pd_entry_hdl_t ent;
  bool grp;
  uint32_t hdl;
};

struct WorkerModel {
  std::map<uint32_t, std::pair<p4_pd_entry_hdl_t, uint32_t>> entries;  // key -> (handle, version)
  std::map<uint32_t, Member> members;
  std::map<uint32_t, Group> groups;
  std::map<uint32_t, Bound> bound;  // key -> binding
  std::atomic<long> told_adds{0}, told_dels{0};  // from the table's update callback
  long ops = 0;

  // What keeps a member from being deleted: a group holding it, an entry bound to it.
  bool member_held(uint32_t m) const {
    for (const auto &[g, grp] : groups)
      if (grp.mbrs.count(m)) return true;
    for (const auto &[k, b] : bound)
      if (!b.grp && b.hdl == m) return true;
    return false;
  }
  bool group_bound(uint32_t g) const {
    for (const auto &[k, b] : bound)
      if (b.grp && b.hdl == g) return true;
    return false;
  }
};

template <class Map>
uint32_t pick(const Map &m, std::mt19937 &rng) {
  auto it = m.begin();
  std::advance(it, std::uniform_int_distribution<size_t>(0, m.size() - 1)(rng));
  return it->first;
}

// The table's update callback counts adds and deletes, and calls the library back to read the table,
// as a client may: the driver calls it with no lock held.
void on_update(bf_dev_id_t, uint32_t, pipe_mat_update_type_t type, uint32_t, uint32_t, void *cookie) {
  auto *w = static_cast<std::pair<WorkerModel *, const PlainTable *> *>(cookie);
  if (type == PIPE_MAT_UPDATE_ADD) ++w->first->told_adds;
  if (type == PIPE_MAT_UPDATE_DEL) ++w->first->told_dels;
  uint32_t n = 0;
  EXPECT_EQ(w->second->count(&n), 0u);
}

// ---- The workers ----

void work_table(const PlainTable &t, WorkerModel &m, std::mt19937 &rng, uint32_t version) {
  auto below = [&](uint32_t n) { return std::uniform_int_distribution<uint32_t>(0, n - 1)(rng); };
  const uint32_t op = below(100), k = below(kKeys);
  const bool known = m.entries.count(k) != 0;
  if (op < 35) {
    p4_pd_entry_hdl_t h = 0;
    ASSERT_EQ(t.add(k, version, &h), known ? uint32_t(BF_ALREADY_EXISTS) : 0u) << t.name;
    if (!known) m.entries[k] = {h, version};
  } else if (op < 50) {
    if (known) {
      ASSERT_EQ(t.modify(m.entries[k].first, k, version), 0u) << t.name;
    } else {
      ASSERT_EQ(t.modify_by_key(k, version), uint32_t(BF_KEY_NOT_FOUND)) << t.name;
      return;
    }
    m.entries[k].second = version;
  } else if (op < 58) {
    ASSERT_EQ(t.modify_by_key(k, version), known ? 0u : uint32_t(BF_KEY_NOT_FOUND)) << t.name;
    if (known) m.entries[k].second = version;
  } else if (op < 70) {
    if (known) {
      ASSERT_EQ(t.del(m.entries[k].first), 0u) << t.name;
    } else {
      ASSERT_EQ(t.del_by_key(k), uint32_t(BF_KEY_NOT_FOUND)) << t.name;
    }
    m.entries.erase(k);
  } else if (op < 76) {
    ASSERT_EQ(t.del_by_key(k), known ? 0u : uint32_t(BF_KEY_NOT_FOUND)) << t.name;
    m.entries.erase(k);
  } else if (op < 84) {
    p4_pd_entry_hdl_t h = 0;
    ASSERT_EQ(t.find(k, &h), known ? 0u : uint32_t(BF_KEY_NOT_FOUND)) << t.name;
    if (known) {
      ASSERT_EQ(h, m.entries[k].first) << t.name;
    }
  } else if (known) {
    std::string got;
    ASSERT_EQ(t.read(m.entries[k].first, &got), 0u) << t.name;
    ASSERT_EQ(got, t.expected(k, m.entries[k].second)) << t.name;
  }
}

void work_profile(const Profile &p, WorkerModel &m, std::mt19937 &rng, uint32_t version) {
  auto below = [&](uint32_t n) { return std::uniform_int_distribution<uint32_t>(0, n - 1)(rng); };
  const uint32_t op = below(100);
  if (op < 12) {
    p4_pd_mbr_hdl_t mbr = 0;
    ASSERT_EQ(p.add_member(version, &mbr), 0u) << p.name;
    m.members[mbr] = {version, p.expected_member(0, version)};
  } else if (op < 20 && !m.members.empty()) {
    const uint32_t mbr = pick(m.members, rng);
    Member &mm = m.members[mbr];
    if (below(8) == 0) {
      // Another action: refused, the member as it was.
      ASSERT_EQ(p.modify_member(mbr, (version & ~1u) | ((mm.version & 1) ^ 1)), kOtherAction) << p.name;
    } else {
      const uint32_t v = (version & ~1u) | (mm.version & 1);
      ASSERT_EQ(p.modify_member(mbr, v), 0u) << p.name;
      mm = {v, p.expected_member(mbr, v)};
    }
  } else if (op < 30 && !m.members.empty()) {
    const uint32_t mbr = pick(m.members, rng);
    const bool held = m.member_held(mbr);
    ASSERT_EQ(p.del_member(mbr), held ? uint32_t(BF_IN_USE) : 0u) << p.name;
    if (!held) m.members.erase(mbr);
  } else if (op < 38 && !m.members.empty()) {
    const uint32_t mbr = pick(m.members, rng);
    std::string got;
    ASSERT_EQ(p.read_member(mbr, &got), 0u) << p.name;
    ASSERT_EQ(got, m.members[mbr].text) << p.name;
  } else if (op < 43) {
    p4_pd_grp_hdl_t g = 0;
    ASSERT_EQ(p.create_group(kGroupMax, &g), 0u) << p.name;
    m.groups[g];
  } else if (op < 47 && !m.groups.empty()) {
    const uint32_t g = pick(m.groups, rng);
    const bool bound = m.group_bound(g);
    ASSERT_EQ(p.del_group(g), bound ? uint32_t(BF_IN_USE) : 0u) << p.name;
    if (!bound) m.groups.erase(g);
  } else if (op < 60 && !m.groups.empty() && !m.members.empty()) {
    const uint32_t g = pick(m.groups, rng), mbr = pick(m.members, rng);
    Group &grp = m.groups[g];
    const p4_pd_status_t want = grp.mbrs.count(mbr)             ? uint32_t(BF_ALREADY_EXISTS)
                                : grp.mbrs.size() == kGroupMax ? uint32_t(BF_NO_SPACE)
                                                               : 0u;
    ASSERT_EQ(p.add_to_group(g, mbr), want) << p.name;
    if (want == 0) {
      grp.mbrs.insert(mbr);
      grp.action = p.act_handle[m.members[mbr].version & 1];
    }
  } else if (op < 68 && !m.groups.empty()) {
    const uint32_t g = pick(m.groups, rng);
    Group &grp = m.groups[g];
    if (grp.mbrs.empty()) {
      ASSERT_EQ(p.del_from_group(g, 0xFFFF0000u), uint32_t(BF_OBJECT_NOT_FOUND)) << p.name;
      return;
    }
    auto it = grp.mbrs.begin();
    std::advance(it, below(static_cast<uint32_t>(grp.mbrs.size())));
    ASSERT_EQ(p.del_from_group(g, *it), 0u) << p.name;
    grp.mbrs.erase(it);
  } else if (op < 72 && !m.groups.empty()) {
    const uint32_t g = pick(m.groups, rng);
    uint32_t n = 0;
    ASSERT_EQ(p.group_size(g, &n), 0u) << p.name;
    ASSERT_EQ(n, m.groups[g].mbrs.size()) << p.name;
  } else if (op < 84) {
    // Bind a key to a member or a group: a group with no action yet cannot be bound to.
    const uint32_t k = below(kKeys);
    const bool to_group = below(2) && !m.groups.empty();
    if (!to_group && m.members.empty()) return;
    const uint32_t h = to_group ? pick(m.groups, rng) : pick(m.members, rng);
    const bool no_action = to_group && m.groups[h].action == 0;
    auto it = m.bound.find(k);
    if (it == m.bound.end()) {
      p4_pd_entry_hdl_t e = 0;
      ASSERT_EQ(p.bind(k, to_group, h, &e), no_action ? uint32_t(BF_OBJECT_NOT_FOUND) : 0u) << p.name;
      if (!no_action) m.bound[k] = {e, to_group, h};
    } else {
      ASSERT_EQ(p.rebind(it->second.ent, to_group, h), no_action ? uint32_t(BF_OBJECT_NOT_FOUND) : 0u) << p.name;
      if (!no_action) it->second = {it->second.ent, to_group, h};
    }
  } else if (op < 92 && !m.bound.empty()) {
    const uint32_t k = pick(m.bound, rng);
    ASSERT_EQ(p.unbind(m.bound[k].ent), 0u) << p.name;
    m.bound.erase(k);
  } else if (!m.bound.empty()) {
    const uint32_t k = pick(m.bound, rng);
    const Bound &b = m.bound[k];
    std::string got;
    ASSERT_EQ(p.read_bound(b.ent, &got), 0u) << p.name;
    ASSERT_EQ(got, p.expected_bound(k, b.grp, b.hdl)) << p.name;
  }
}

void work(int t, const PlainTable &table, const Profile &profile, WorkerModel &m) {
  std::mt19937 rng(static_cast<uint32_t>(t) * 104729u + 11);
  for (int i = 0; i < kIters; ++i) {
    const uint32_t version = static_cast<uint32_t>(i) + 2;
    if (rng() % 2) {
      work_table(table, m, rng, version);
    } else {
      work_profile(profile, m, rng, version);
    }
    if (::testing::Test::HasFatalFailure()) return;
    ++m.ops;
  }
}

// ---- The readers ----

// Walks a table (entries, members or groups) by handle: first, then batches. Handles may go while
// it walks: a start that is gone ends the walk (BF_OBJECT_NOT_FOUND).
std::vector<uint32_t> walk(const std::function<p4_pd_status_t(uint32_t *)> &first,
                           const std::function<p4_pd_status_t(uint32_t, int, uint32_t *)> &next, long *ops) {
  std::vector<uint32_t> seen;
  uint32_t h = 0;
  p4_pd_status_t st = first(&h);
  ++*ops;
  EXPECT_TRUE(st == 0 || st == BF_END_OF_WALK) << st;
  if (st != 0) return seen;
  seen.push_back(h);
  uint32_t batch[8];
  for (int guard = 0; guard < 1000; ++guard) {
    st = next(seen.back(), 8, batch);
    ++*ops;
    EXPECT_TRUE(st == 0 || st == BF_END_OF_WALK || st == BF_OBJECT_NOT_FOUND) << st;
    if (st != 0) break;
    for (uint32_t x : batch) {
      if (x == 0xFFFFFFFFu) break;
      EXPECT_GT(x, seen.back()) << "ascending handles";
      seen.push_back(x);
    }
  }
  return seen;
}

// What a reader accepts as a text of a table: one its owner may have written. That is the text of
// some key with the action without parameters, or the text of some key with the action with
// parameters, whose parameters carry the key in their low byte (whatever the version).
class Accepted {
 public:
  explicit Accepted(const PlainTable &t) {
    for (uint32_t k = 0; k < kKeys; ++k) {
      plain_.insert(t.expected(k, 1));
      const std::string even = t.expected(k, 0);
      const size_t at = even.find(" params ") + 8;
      with_params_[even.substr(0, at)] = even.substr(at, 2);
    }
  }
  bool operator()(const std::string &text) const {
    if (plain_.count(text)) return true;
    const size_t at = text.find(" params ");
    if (at == std::string::npos) return false;
    auto it = with_params_.find(text.substr(0, at + 8));
    return it != with_params_.end() && text.compare(at + 8, 2, it->second) == 0;
  }

 private:
  std::set<std::string> plain_;
  std::map<std::string, std::string> with_params_;  // text up to the parameters -> their low byte
};

// Every group of each profile's logged state lists members of that state: a state is logged
// whole, between two changes.
void check_logged_state(long *ops) {
  cJSON *root = cJSON_CreateObject();
  ASSERT_EQ(drvm_fire_dev_log(kDev, root), 0);
  ++*ops;
  const cJSON *profiles = cJSON_GetObjectItem(root, "act_profs");
  ASSERT_NE(profiles, nullptr);
  for (const cJSON *prof = profiles->child; prof; prof = prof->next) {
    std::set<double> mbrs;
    for (const cJSON *m = cJSON_GetObjectItem(prof, "members")->child; m; m = m->next)
      mbrs.insert(cJSON_GetObjectItem(m, "mbr_hdl")->valuedouble);
    for (const cJSON *g = cJSON_GetObjectItem(prof, "groups")->child; g; g = g->next)
      for (const cJSON *x = cJSON_GetObjectItem(g, "mbrs")->child; x; x = x->next)
        EXPECT_TRUE(mbrs.count(x->valuedouble)) << "a group lists a member its state does not hold";
  }
  cJSON_Delete(root);
}

void read_all(int r, const std::vector<PlainTable> &tables, const std::vector<Profile> &profiles,
              const std::atomic<bool> &stop, long *ops) {
  std::mt19937 rng(static_cast<uint32_t>(r) + 5);
  std::vector<Accepted> accepted;
  for (const PlainTable &t : tables) accepted.emplace_back(t);
  char text[8192];
  while (!stop.load(std::memory_order_relaxed)) {
    const size_t ti = rng() % tables.size();
    const PlainTable &t = tables[ti];
    const Accepted &plausible = accepted[ti];
    const Profile &p = profiles[rng() % profiles.size()];
    // A walk, each entry read back (or gone by then) and consistent in itself.
    for (uint32_t h : walk(t.first, t.next, ops)) {
      std::string got;
      const p4_pd_status_t st = t.read(h, &got);
      ++*ops;
      ASSERT_TRUE(st == 0 || st == BF_OBJECT_NOT_FOUND) << t.name << " " << st;
      if (st == 0) {
        ASSERT_TRUE(plausible(got)) << t.name << ": " << got;
      }
      // The value text by handle: the entry's, or nothing once it is gone.
      text[0] = '\0';
      const int n = p4_pd_corvin_switch_entry_value(kSess, kDev, t.handle, h, 0, text);
      ++*ops;
      ASSERT_GE(n, 0);
      if (n > 0) {
        ASSERT_EQ(std::strlen(text), size_t(n));
      }
    }
    uint32_t count = 0;
    ASSERT_EQ(t.count(&count), 0u);
    ASSERT_LE(count, kKeys);
    // A placement list: one moment of the table, every datum one its owner may have written.
    void *list = nullptr;
    ASSERT_EQ(t.placement(&list), 0u);
    *ops += 1;
    for (uint32_t i = 0; i < pipe_mgr_plcmt_list_count(list); ++i) {
      std::string got;
      bool dflt = false;
      ASSERT_EQ(t.read_datum(pipe_mgr_plcmt_list_datum(list, i, nullptr), &got, &dflt), 0u) << t.name;
      ++*ops;
      if (!dflt) {
        ASSERT_TRUE(plausible(got)) << t.name << " datum: " << got;
      }
    }
    pipe_mgr_plcmt_list_destroy(list);
    // A profile: its members and groups walked, counted and read.
    for (uint32_t mbr : walk(p.first_member, p.next_members, ops)) {
      std::string got;
      const p4_pd_status_t st = p.read_member(mbr, &got);
      ++*ops;
      ASSERT_TRUE(st == 0 || st == BF_OBJECT_NOT_FOUND) << p.name << " " << st;
    }
    for (uint32_t g : walk(p.first_group, p.next_groups, ops)) {
      uint32_t n = 0;
      const p4_pd_status_t st = p.group_size(g, &n);
      ++*ops;
      ASSERT_TRUE(st == 0 || st == BF_OBJECT_NOT_FOUND) << p.name << " " << st;
      if (st == 0) {
        ASSERT_LE(n, kGroupMax);
      }
    }
    uint32_t members = 0, groups = 0, bound = 0;
    ASSERT_EQ(p.member_count(&members), 0u);
    ASSERT_EQ(p.group_count(&groups), 0u);
    ASSERT_EQ(p.bound_count(&bound), 0u);
    ASSERT_LE(bound, kKeys);
    *ops += 4;
    if (rng() % 8 == 0) check_logged_state(ops);
  }
}

// ---- The end state against the models ----

void check_table(const PlainTable &t, const WorkerModel &m) {
  SCOPED_TRACE(t.name);
  uint32_t count = 0;
  ASSERT_EQ(t.count(&count), 0u);
  EXPECT_EQ(count, m.entries.size());
  long ops = 0;
  std::set<uint32_t> walked;
  for (uint32_t h : walk(t.first, t.next, &ops)) walked.insert(h);
  std::set<uint32_t> want;
  for (const auto &[k, e] : m.entries) {
    want.insert(e.first);
    std::string got;
    ASSERT_EQ(t.read(e.first, &got), 0u) << "key " << k;
    EXPECT_EQ(got, t.expected(k, e.second)) << "key " << k;
    p4_pd_entry_hdl_t h = 0;
    ASSERT_EQ(t.find(k, &h), 0u);
    EXPECT_EQ(h, e.first);
  }
  EXPECT_EQ(walked, want) << "nothing extra, nothing missing";
  EXPECT_EQ(m.told_adds - m.told_dels, long(m.entries.size())) << "the update callback saw every add and delete";
}

// The profile in the driver, and in the member-selector state as the device's state record logs it.
void check_profile(const Profile &p, const WorkerModel &m, const cJSON *logged) {
  SCOPED_TRACE(p.name);
  long ops = 0;
  uint32_t n = 0;
  ASSERT_EQ(p.member_count(&n), 0u);
  EXPECT_EQ(n, m.members.size());
  std::set<uint32_t> walked, want;
  for (uint32_t h : walk(p.first_member, p.next_members, &ops)) walked.insert(h);
  for (const auto &[mbr, mm] : m.members) {
    want.insert(mbr);
    std::string got;
    ASSERT_EQ(p.read_member(mbr, &got), 0u);
    EXPECT_EQ(got, mm.text) << "member " << mbr;
  }
  EXPECT_EQ(walked, want) << "members";
  ASSERT_EQ(p.group_count(&n), 0u);
  EXPECT_EQ(n, m.groups.size());
  walked.clear();
  want.clear();
  for (uint32_t h : walk(p.first_group, p.next_groups, &ops)) walked.insert(h);
  for (const auto &[g, grp] : m.groups) {
    want.insert(g);
    ASSERT_EQ(p.group_size(g, &n), 0u);
    EXPECT_EQ(n, grp.mbrs.size()) << "group " << g;
    std::set<uint32_t> in;
    for (uint32_t h : walk([&](uint32_t *x) { return p.first_in_group(g, x); },
                           [&](uint32_t x, int k, uint32_t *out) { return p.next_in_group(g, x, k, out); }, &ops))
      in.insert(h);
    EXPECT_EQ(in, grp.mbrs) << "group " << g;
  }
  EXPECT_EQ(walked, want) << "groups";
  ASSERT_EQ(p.bound_count(&n), 0u);
  EXPECT_EQ(n, m.bound.size());
  walked.clear();
  want.clear();
  for (uint32_t h : walk(p.first_bound, p.next_bound, &ops)) walked.insert(h);
  for (const auto &[k, b] : m.bound) {
    want.insert(b.ent);
    std::string got;
    ASSERT_EQ(p.read_bound(b.ent, &got), 0u);
    EXPECT_EQ(got, p.expected_bound(k, b.grp, b.hdl)) << "key " << k;
  }
  EXPECT_EQ(walked, want) << "bound entries";

  // The member-selector state: the same members with their actions, the same groups with their
  // members and the action of the member added last.
  const cJSON *prof = nullptr;
  for (const cJSON *x = cJSON_GetObjectItem(logged, "act_profs")->child; x; x = x->next)
    if (std::strcmp(cJSON_GetObjectItem(x, "name")->valuestring, p.name) == 0) prof = x;
  ASSERT_NE(prof, nullptr);
  std::map<uint32_t, uint32_t> state_mbrs;
  for (const cJSON *x = cJSON_GetObjectItem(prof, "members")->child; x; x = x->next)
    state_mbrs[uint32_t(cJSON_GetObjectItem(x, "mbr_hdl")->valuedouble)] =
        uint32_t(cJSON_GetObjectItem(x, "act_fn_hdl")->valuedouble);
  std::map<uint32_t, uint32_t> want_mbrs;
  for (const auto &[mbr, mm] : m.members) want_mbrs[mbr] = p.act_handle[mm.version & 1];
  EXPECT_EQ(state_mbrs, want_mbrs) << "the state's members";
  std::map<uint32_t, std::pair<uint32_t, std::set<uint32_t>>> state_grps, want_grps;
  for (const cJSON *x = cJSON_GetObjectItem(prof, "groups")->child; x; x = x->next) {
    auto &g = state_grps[uint32_t(cJSON_GetObjectItem(x, "grp_hdl")->valuedouble)];
    const cJSON *act = cJSON_GetObjectItem(x, "act_fn_hdl");
    g.first = act ? uint32_t(act->valuedouble) : 0;
    for (const cJSON *y = cJSON_GetObjectItem(x, "mbrs")->child; y; y = y->next)
      g.second.insert(uint32_t(y->valuedouble));
  }
  for (const auto &[g, grp] : m.groups) want_grps[g] = {grp.action, grp.mbrs};
  EXPECT_EQ(state_grps, want_grps) << "the state's groups";
}

class Stress : public cvtest::LibraryTest {};

TEST_F(Stress, WorkersAndReadersOnTheirOwnTablesAndProfilesEndAsTheirModelsSay) {
  // Readers make hundreds of thousands of calls: the model serves them without recording them.
  drvm_set_recording(0);
  const std::vector<PlainTable> tables = {l2_lookup(), ipv4_lpm(), l2_smac_check(), mcast_prune()};
  const std::vector<Profile> profiles = {ecmp(), lag(), tunnel(), mirror_lag()};
  std::vector<WorkerModel> models(kWorkers);
  std::vector<std::pair<WorkerModel *, const PlainTable *>> cookies;
  for (int t = 0; t < kWorkers; ++t) cookies.emplace_back(&models[size_t(t)], &tables[size_t(t)]);
  const p4_pd_status_t registered[] = {
      p4_pd_corvin_switch_l2Lookup_register_mat_update_cb(kSess, kDev, on_update, &cookies[0]),
      p4_pd_corvin_switch_ipv4ShortMaskLpm_register_mat_update_cb(kSess, kDev, on_update, &cookies[1]),
      p4_pd_corvin_switch_l2SmacCheck_register_mat_update_cb(kSess, kDev, on_update, &cookies[2]),
      p4_pd_corvin_switch_mcastPrune_register_mat_update_cb(kSess, kDev, on_update, &cookies[3])};
  for (p4_pd_status_t st : registered) ASSERT_EQ(st, 0u);

  std::atomic<bool> stop{false};
  std::vector<long> reader_ops(kReaders, 0);
  std::vector<std::thread> readers, workers;
  const auto start = std::chrono::steady_clock::now();
  for (int r = 0; r < kReaders; ++r)
    readers.emplace_back(read_all, r, std::cref(tables), std::cref(profiles), std::cref(stop), &reader_ops[size_t(r)]);
  for (int t = 0; t < kWorkers; ++t)
    workers.emplace_back(work, t, std::cref(tables[size_t(t)]), std::cref(profiles[size_t(t)]),
                         std::ref(models[size_t(t)]));
  for (std::thread &w : workers) w.join();
  stop = true;
  for (std::thread &r : readers) r.join();
  const double secs = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  long writes = 0, reads = 0;
  for (const WorkerModel &m : models) writes += m.ops;
  for (long n : reader_ops) reads += n;
  std::printf("stress: %d workers, %d readers: %ld worker and %ld reader operations in %.2f s: "
              "%.0f operations per second\n",
              kWorkers, kReaders, writes, reads, secs, (writes + reads) / secs);
  RecordProperty("operations_per_second", std::to_string(static_cast<long>((writes + reads) / secs)));
  ASSERT_FALSE(HasFailure());
  for (const WorkerModel &m : models) EXPECT_EQ(m.ops, kIters) << "every worker ran to the end";

  // The end state, entry by entry.
  for (int t = 0; t < kWorkers; ++t) check_table(tables[size_t(t)], models[size_t(t)]);
  cJSON *logged = cJSON_CreateObject();
  ASSERT_EQ(drvm_fire_dev_log(kDev, logged), 0);
  for (int t = 0; t < kWorkers; ++t) check_profile(profiles[size_t(t)], models[size_t(t)], logged);
  cJSON_Delete(logged);
  EXPECT_EQ(drvm_live_allocs(), 0u) << "every block the library took it gave back";
  EXPECT_EQ(drvm_log_count(), 0u) << "no assertion fired";
}

}  // namespace
