// The member-selector layer's JSON restore, on any input: p4_pd_ms_restore_state either refuses
// with BF_INVALID_ARG and leaves the state byte for byte as it was (every device's JSON form), or
// restores exactly the record it was given (its JSON form is the record's, in canonical order, and
// every query answers by it) and nothing else. Which of the two is decided here independently, by
// the record's form as drv/pd_ms.h states it. Inside a transaction an abort brings the state before
// the restore back. The same records also go through the library's device hooks (dev_restore
// after dev_log), where each profile's state must end as its last valid element says, or as it was.
//
// Input: a byte of flags and device, a few operations that make the state before, then the JSON
// text (the rest of the input).
#include <cjson/cJSON.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "fuzz_support.h"

extern "C" {
#include "drv/pd_ms.h"
}

namespace {

using namespace fz;

constexpr bf_dev_id_t kDevices = 3;

// ---- The record's form, judged independently ----

struct RefMember {
  std::optional<uint32_t> act;
  uint32_t res[2];
};
struct RefGroup {
  std::optional<uint32_t> act;
  uint32_t res[2];
  std::set<uint32_t> mbrs;
};
struct RefState {
  std::map<uint32_t, RefMember> mbrs;
  std::map<uint32_t, RefGroup> grps;
};

bool u32_of(const cJSON *item, uint32_t *out) {
  if (!cJSON_IsNumber(item)) return false;
  double d = item->valuedouble;
  if (std::isnan(d) || std::signbit(d) || d < 0 || d > 4294967295.0 || std::floor(d) != d) return false;
  *out = static_cast<uint32_t>(d);
  return true;
}

bool res_of(const cJSON *item, uint32_t res[2]) {
  if (!cJSON_IsArray(item) || cJSON_GetArraySize(item) != 2) return false;
  return u32_of(cJSON_GetArrayItem(item, 0), &res[0]) && u32_of(cJSON_GetArrayItem(item, 1), &res[1]);
}

// One element: its handle key, optional action, resource pair and (groups) member list, each once,
// no other key.
bool element_of(const cJSON *o, bool group, uint32_t *hdl, std::optional<uint32_t> *act, uint32_t res[2],
                const cJSON **mbrs) {
  if (!cJSON_IsObject(o)) return false;
  const char *hkey = group ? "grp_hdl" : "mbr_hdl";
  int seen_h = 0, seen_a = 0, seen_r = 0, seen_m = 0;
  for (const cJSON *c = o->child; c; c = c->next) {
    if (c->string == nullptr) return false;
    std::string k = c->string;
    if (k == hkey) {
      if (seen_h++ || !u32_of(c, hdl)) return false;
    } else if (k == "act_fn_hdl") {
      uint32_t a;
      if (seen_a++ || !u32_of(c, &a)) return false;
      *act = a;
    } else if (k == "res") {
      if (seen_r++ || !res_of(c, res)) return false;
    } else if (group && k == "mbrs") {
      if (seen_m++ || !cJSON_IsArray(c)) return false;
      *mbrs = c;
    } else {
      return false;
    }
  }
  return seen_h && seen_r && (!group || seen_m);
}

std::optional<RefState> judge(const cJSON *obj) {
  if (!cJSON_IsObject(obj)) return std::nullopt;
  const cJSON *mbrs = nullptr, *grps = nullptr;
  for (const cJSON *c = obj->child; c; c = c->next) {
    if (c->string == nullptr) return std::nullopt;
    const cJSON **slot = std::strcmp(c->string, "members") == 0  ? &mbrs
                         : std::strcmp(c->string, "groups") == 0 ? &grps
                                                                 : nullptr;
    if (!slot) continue;
    if (*slot || !cJSON_IsArray(c)) return std::nullopt;
    *slot = c;
  }
  if (!mbrs || !grps) return std::nullopt;
  RefState s;
  for (const cJSON *e = mbrs->child; e; e = e->next) {
    uint32_t h = 0;
    RefMember m{};
    if (!element_of(e, false, &h, &m.act, m.res, nullptr) || s.mbrs.count(h)) return std::nullopt;
    s.mbrs[h] = m;
  }
  for (const cJSON *e = grps->child; e; e = e->next) {
    uint32_t h = 0;
    RefGroup g{};
    const cJSON *list = nullptr;
    if (!element_of(e, true, &h, &g.act, g.res, &list) || s.grps.count(h)) return std::nullopt;
    for (const cJSON *m = list->child; m; m = m->next) {
      uint32_t mh;
      if (!u32_of(m, &mh) || !s.mbrs.count(mh) || !g.mbrs.insert(mh).second) return std::nullopt;
    }
    s.grps[h] = g;
  }
  return s;
}

// The JSON form of a state as the layer writes it: by increasing handle, keys in their order.
std::string canonical(const RefState &s) {
  cJSON *o = cJSON_CreateObject();
  cJSON *mbrs = cJSON_AddArrayToObject(o, "members");
  for (const auto &[h, m] : s.mbrs) {
    cJSON *e = cJSON_CreateObject();
    cJSON_AddNumberToObject(e, "mbr_hdl", h);
    if (m.act) cJSON_AddNumberToObject(e, "act_fn_hdl", *m.act);
    cJSON *r = cJSON_AddArrayToObject(e, "res");
    cJSON_AddItemToArray(r, cJSON_CreateNumber(m.res[0]));
    cJSON_AddItemToArray(r, cJSON_CreateNumber(m.res[1]));
    cJSON_AddItemToArray(mbrs, e);
  }
  cJSON *grps = cJSON_AddArrayToObject(o, "groups");
  for (const auto &[h, g] : s.grps) {
    cJSON *e = cJSON_CreateObject();
    cJSON_AddNumberToObject(e, "grp_hdl", h);
    if (g.act) cJSON_AddNumberToObject(e, "act_fn_hdl", *g.act);
    cJSON *r = cJSON_AddArrayToObject(e, "res");
    cJSON_AddItemToArray(r, cJSON_CreateNumber(g.res[0]));
    cJSON_AddItemToArray(r, cJSON_CreateNumber(g.res[1]));
    cJSON *l = cJSON_AddArrayToObject(e, "mbrs");
    for (uint32_t m : g.mbrs) cJSON_AddItemToArray(l, cJSON_CreateNumber(m));
    cJSON_AddItemToArray(grps, e);
  }
  char *text = cJSON_PrintUnformatted(o);
  std::string out = text ? text : "";
  cJSON_free(text);
  cJSON_Delete(o);
  return out;
}

std::string print(const cJSON *o) {
  char *text = cJSON_PrintUnformatted(o);
  FZ_CHECK(text != nullptr, "cannot print a JSON object");
  std::string out = text;
  cJSON_free(text);
  return out;
}

// A device's state in its JSON form.
std::string logged(p4_pd_ms_state_t *state, bf_dev_id_t dev) {
  cJSON *o = cJSON_CreateObject();
  bf_status_t st = p4_pd_ms_log_state(dev, state, o);
  FZ_CHECK(st == 0, "log_state of device %d: status %d", dev, st);
  std::string s = print(o);
  cJSON_Delete(o);
  return s;
}

std::vector<std::string> all_logged(p4_pd_ms_state_t *state) {
  std::vector<std::string> v;
  for (bf_dev_id_t d = 0; d < kDevices; ++d) v.push_back(logged(state, d));
  return v;
}

std::vector<uint32_t> walk(bf_status_t (*fn)(p4_pd_ms_state_t *, bf_dev_id_t, uint32_t, uint32_t *, uint32_t *),
                           p4_pd_ms_state_t *s, bf_dev_id_t dev) {
  uint32_t count = 0;
  FZ_CHECK(fn(s, dev, 0, nullptr, &count) == 0, "a walk failed");
  std::vector<uint32_t> v(count);
  uint32_t again = 0;
  FZ_CHECK(fn(s, dev, count, v.data(), &again) == 0 && again == count, "a walk changed its count");
  return v;
}

// Every query of the layer answers by the record.
void check_queries(p4_pd_ms_state_t *s, bf_dev_id_t dev, const RefState &r) {
  std::vector<uint32_t> mbrs = walk(p4_pd_ms_get_mbrs, s, dev), grps = walk(p4_pd_ms_get_grps, s, dev);
  FZ_CHECK(mbrs.size() == r.mbrs.size() && grps.size() == r.grps.size(), "restored %zu members, %zu groups; want %zu, %zu",
           mbrs.size(), grps.size(), r.mbrs.size(), r.grps.size());
  for (const auto &[h, m] : r.mbrs) {
    uint32_t act = 0, rh = 0, ri = 0;
    bf_status_t st = p4_pd_ms_get_mbr_act(s, dev, h, &act);
    FZ_CHECK(m.act ? st == 0 && act == *m.act : st == BF_OBJECT_NOT_FOUND, "member %u: action status %d", h, st);
    FZ_CHECK(p4_pd_ms_mbr_get_res(s, dev, h, &rh, &ri) == 0 && rh == m.res[0] && ri == m.res[1], "member %u: res", h);
    uint32_t count = 0;
    FZ_CHECK(p4_pd_ms_get_mbr_grps(s, dev, h, 0, nullptr, &count) == 0, "member %u: groups", h);
    std::vector<uint32_t> gs(count);
    FZ_CHECK(p4_pd_ms_get_mbr_grps(s, dev, h, count, gs.data(), &count) == 0, "member %u: groups", h);
    std::vector<uint32_t> want;
    for (const auto &[gh, g] : r.grps)
      if (g.mbrs.count(h)) want.push_back(gh);
    FZ_CHECK(gs == want, "member %u: in %zu groups, want %zu", h, gs.size(), want.size());
  }
  for (const auto &[h, g] : r.grps) {
    uint32_t act = 0, rh = 0, ri = 0;
    bf_status_t st = p4_pd_ms_get_grp_act(s, dev, h, &act);
    FZ_CHECK(g.act ? st == 0 && act == *g.act : st == BF_OBJECT_NOT_FOUND, "group %u: action status %d", h, st);
    FZ_CHECK(p4_pd_ms_grp_get_res(s, dev, h, &rh, &ri) == 0 && rh == g.res[0] && ri == g.res[1], "group %u: res", h);
    uint32_t count = 0;
    FZ_CHECK(p4_pd_ms_get_grp_mbrs(s, dev, h, 0, nullptr, &count) == 0 && count == g.mbrs.size(), "group %u: members", h);
  }
}

// A state before the restore, made by a few operations from the input on any device.
void populate(Input &in, p4_pd_ms_state_t *s) {
  for (int n = in.u8() % 12; n > 0; --n) {
    uint8_t op = in.u8();
    bf_dev_id_t dev = op % kDevices;
    uint32_t a = in.u8() % 6, b = in.u8() % 6;
    switch (op / kDevices % 6) {
      case 0: p4_pd_ms_new_mbr(kSess, s, dev, a); break;
      case 1: p4_pd_ms_set_mbr_act(s, dev, a, 0x20000000u + b); break;
      case 2: p4_pd_ms_new_grp(kSess, s, dev, a); break;
      case 3: p4_pd_ms_add_mbr_to_grp(kSess, s, dev, a, b); break;
      case 4: p4_pd_ms_set_grp_act(s, dev, a, 0x20000000u + b); break;
      default: p4_pd_ms_set_mbr_res(s, dev, a, b, a * b); break;
    }
  }
}

void layer_restore(Input &in, uint8_t flags) {
  bf_dev_id_t dev = flags % kDevices;
  p4_pd_ms_state_t *s = p4_pd_ms_init_state();
  FZ_CHECK(s != nullptr, "no state object");
  populate(in, s);
  std::string text = in.rest();
  cJSON *obj = cJSON_ParseWithLength(text.data(), text.size());
  bool txn = flags & 8, abort_txn = flags & 16;
  std::vector<std::string> before = all_logged(s);
  std::string obj_before = obj ? print(obj) : "";
  std::optional<RefState> want = obj ? judge(obj) : std::nullopt;
  if (txn) FZ_CHECK(p4_pd_ms_begin_txn(dev) == 0, "begin_txn");
  bf_status_t st = p4_pd_ms_restore_state(dev, s, obj);
  std::vector<std::string> after = all_logged(s);
  if (!want) {
    FZ_CHECK(st == BF_INVALID_ARG, "refusable record restored with status %d: %s", st, text.c_str());
    for (bf_dev_id_t d = 0; d < kDevices; ++d)
      FZ_CHECK(after[d] == before[d], "a refused restore changed device %d: %s -> %s", d, before[d].c_str(),
               after[d].c_str());
  } else {
    FZ_CHECK(st == 0, "a record of the form refused with status %d: %s", st, text.c_str());
    std::string c = canonical(*want);
    FZ_CHECK(after[dev] == c, "restored %s, want %s", after[dev].c_str(), c.c_str());
    for (bf_dev_id_t d = 0; d < kDevices; ++d)
      if (d != dev) FZ_CHECK(after[d] == before[d], "a restore of device %d changed device %d", dev, d);
    check_queries(s, dev, *want);
    // The JSON form restores as itself, in a state of its own.
    p4_pd_ms_state_t *copy = p4_pd_ms_init_state();
    cJSON *again = cJSON_Parse(after[dev].c_str());
    FZ_CHECK(again && p4_pd_ms_restore_state(dev, copy, again) == 0 && logged(copy, dev) == after[dev],
             "the JSON form does not restore as itself: %s", after[dev].c_str());
    cJSON_Delete(again);
    p4_pd_ms_free_state(copy);
  }
  if (obj) FZ_CHECK(print(obj) == obj_before, "the restore changed the caller's record");
  if (txn) {
    FZ_CHECK((abort_txn ? p4_pd_ms_abort_txn(dev) : p4_pd_ms_commit_txn(dev)) == 0, "end of the transaction");
    std::vector<std::string> end = all_logged(s);
    FZ_CHECK(end == (abort_txn ? before : after), "the transaction's %s left another state", abort_txn ? "abort" : "commit");
  }
  cJSON_Delete(obj);
  p4_pd_ms_free_state(s);
}

// ---- Through the library's device hooks ----

const char *const kProfileNames[] = {"egrMirrorLagPortActionProfile", "mirrorLagPortActionProfile",
                                     "foldedPipeActionProfile",       "ecmpMemberActionProfile",
                                     "tunnelMemberActionProfile",     "lagPortActionProfile"};

// The device record dev_log writes, each profile's part as JSON text by name.
std::map<std::string, std::string> device_record(bf_dev_id_t dev) {
  cJSON *root = cJSON_CreateObject();
  FZ_CHECK(drvm_fire_dev_log(dev, root) == 0, "dev_log");
  std::map<std::string, std::string> out;
  const cJSON *profs = cJSON_GetObjectItem(root, "act_profs");
  FZ_CHECK(cJSON_IsArray(profs) && cJSON_GetArraySize(profs) == 6, "dev_log: act_profs");
  for (const cJSON *p = profs->child; p; p = p->next) {
    const cJSON *name = cJSON_GetObjectItem(p, "name");
    FZ_CHECK(cJSON_IsString(name), "dev_log: a profile without a name");
    cJSON *copy = cJSON_Duplicate(p, 1);
    cJSON_DeleteItemFromObject(copy, "name");
    out[name->valuestring] = print(copy);
    cJSON_Delete(copy);
  }
  cJSON_Delete(root);
  return out;
}

void library_restore(Input &in, uint8_t flags) {
  bf_dev_id_t dev = flags % kDevices;
  FZ_CHECK(drvm_fire_dev_remove(dev) == 0, "dev_remove");
  // A state before, by the hitless replay: a few members, groups and memberships of the profiles.
  for (int n = in.u8() % 8; n > 0; --n) {
    const Profile &p = kProfiles[in.u8() % kProfileCount];
    const ProfileMember &m = p.members[in.u8() % p.nmembers];
    uint32_t mbr = in.u8() % 4, grp = in.u8() % 4;
    p4_pd_corvin_switch_ha_restore_state_from_adt_sel(kSess, dev, p.adt_handle, m.handle, grp, mbr, 0);
  }
  // The record: elements named after profiles, each the rest of the input's JSON object, or a copy
  // of what dev_log wrote.
  std::vector<std::string> names;
  for (int n = 1 + in.u8() % 3; n > 0; --n) names.push_back(kProfileNames[in.u8() % 6]);
  std::string text = in.rest();
  cJSON *obj = cJSON_ParseWithLength(text.data(), text.size());
  if (!cJSON_IsObject(obj)) {
    cJSON_Delete(obj);
    return;
  }
  cJSON_DeleteItemFromObjectCaseSensitive(obj, "name");
  while (cJSON_GetObjectItem(obj, "name")) cJSON_DeleteItemFromObject(obj, "name");
  std::map<std::string, std::string> before = device_record(dev), want = before;
  cJSON *root = cJSON_CreateObject();
  cJSON *profs = cJSON_AddArrayToObject(root, "act_profs");
  for (const std::string &name : names) {
    cJSON *e = cJSON_Duplicate(obj, 1);
    cJSON_AddItemToObject(e, "name", cJSON_CreateString(name.c_str()));
    cJSON_AddItemToArray(profs, e);
    if (std::optional<RefState> r = judge(obj)) want[name] = canonical(*r);
  }
  FZ_CHECK(drvm_fire_dev_restore(dev, root) == 0, "dev_restore");
  std::map<std::string, std::string> after = device_record(dev);
  for (const auto &[name, text_want] : want)
    FZ_CHECK(after[name] == text_want, "dev_restore: %s is %s, want %s", name.c_str(), after[name].c_str(),
             text_want.c_str());
  cJSON_Delete(root);
  cJSON_Delete(obj);
  FZ_CHECK(drvm_fire_dev_remove(dev) == 0, "dev_remove");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  start_library(default_algorithm_kind);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Input in(data, size);
  uint8_t flags = in.u8();
  if (flags & 128) library_restore(in, flags);
  else layer_restore(in, flags);
  drvm_clear_calls();
  return 0;
}
