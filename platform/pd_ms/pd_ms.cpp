// The member-selector state layer.
//
// Layout. A state object maps each device to a DevState: members and groups in hash maps by
// handle, each member with its groups as a sorted vector (a member is in few groups), each group
// with its members as a hash set (a group may be large). Walks and the JSON form sort on the way
// out.
//
// Transactions. A registry knows every state object and the devices with an open transaction. A
// state object holds one journal per such device: a vector of undo records, pushed under the
// state's lock before the change it undoes is made (so a change whose record cannot be stored is
// not made). Whatever a change removes goes into its record whole, as a node handle, so that an
// abort puts back the very nodes it took out and allocates nothing: containers only grow their
// capacity, never shrink it, so a container always has room again for what was taken from it.
// begin, commit and abort lock the registry and then every state object, in address order;
// every other call takes one state's lock at a time, so there is no cycle.
#include "drv/pd_ms.h"

#include <cjson/cJSON.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <mutex>
#include <new>
#include <set>
#include <stdexcept>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <variant>
#include <vector>

namespace {

struct Res {
  uint32_t hdl = 0;
  uint32_t idx = 0;
};

struct Act {
  bool set = false;
  uint32_t hdl = 0;
};

using GrpList = std::vector<uint32_t>;        // a member's groups, sorted
using MbrSet = std::unordered_set<uint32_t>;  // a group's members

struct Member {
  Act act;
  Res res;
  GrpList grps;
};

struct Group {
  Act act;
  Res res;
  MbrSet mbrs;
};

using MbrMap = std::unordered_map<uint32_t, Member>;
using GrpMap = std::unordered_map<uint32_t, Group>;

struct DevState {
  MbrMap mbrs;
  GrpMap grps;
};

using DevMap = std::map<bf_dev_id_t, DevState>;

// ---- Undo records: each says how to take back one change ----

namespace undo {
struct NewMbr {
  uint32_t mbr;
};
struct NewGrp {
  uint32_t grp;
};
struct MbrAct {
  uint32_t mbr;
  Act old;
};
struct GrpAct {
  uint32_t grp;
  Act old;
};
struct MbrRes {
  uint32_t mbr;
  Res old;
};
struct GrpRes {
  uint32_t grp;
  Res old;
};
struct Link {
  uint32_t mbr, grp;
};
struct Unlink {
  uint32_t mbr, grp;
  MbrSet::node_type link;  // the member's node of the group's set
};
struct DelMbr {
  MbrMap::node_type mbr;               // the member, with its groups
  std::vector<MbrSet::node_type> links;  // its node of each group's set, in the order of its groups
};
struct DelGrp {
  GrpMap::node_type grp;  // the group, with its members
};
struct Replace {  // a destroy or a restore
  DevMap::node_type old;  // the device's former state; empty if it had none
};
}  // namespace undo

using Record = std::variant<undo::NewMbr, undo::NewGrp, undo::MbrAct, undo::GrpAct, undo::MbrRes,
                            undo::GrpRes, undo::Link, undo::Unlink, undo::DelMbr, undo::DelGrp,
                            undo::Replace>;
using Journal = std::vector<Record>;

}  // namespace

struct p4_pd_ms_state {
  std::mutex mu;
  DevMap devs;
  std::map<bf_dev_id_t, Journal> journals;  // one per device with an open transaction
};

namespace {

using Lock = std::lock_guard<std::mutex>;

// Every state object and the devices with an open transaction. Made on first use and never
// destroyed, so that a state object freed during static destruction still finds it.
struct Registry {
  std::mutex mu;
  std::set<p4_pd_ms_state *> states;  // ordered by address: the order their locks are taken in
  std::set<bf_dev_id_t> open;
};

Registry &registry() {
  static Registry *const r = new Registry;
  return *r;
}

// Holds the registry's lock and then every state object's, for begin, commit and abort.
class AllLocked {
 public:
  AllLocked() : reg_(registry()), lock_(reg_.mu) {
    for (p4_pd_ms_state *s : reg_.states) s->mu.lock();
  }
  ~AllLocked() {
    for (p4_pd_ms_state *s : reg_.states) s->mu.unlock();
  }
  AllLocked(const AllLocked &) = delete;
  AllLocked &operator=(const AllLocked &) = delete;
  Registry &reg() { return reg_; }

 private:
  Registry &reg_;
  std::unique_lock<std::mutex> lock_;
};

template <class M>
auto *find_in(M &m, uint32_t key) {
  auto it = m.find(key);
  return it == m.end() ? nullptr : &it->second;
}

DevState *find_dev(p4_pd_ms_state *s, bf_dev_id_t dev) {
  auto it = s->devs.find(dev);
  return it == s->devs.end() ? nullptr : &it->second;
}

Member *find_mbr(p4_pd_ms_state *s, bf_dev_id_t dev, uint32_t mbr) {
  DevState *d = find_dev(s, dev);
  return d ? find_in(d->mbrs, mbr) : nullptr;
}

Group *find_grp(p4_pd_ms_state *s, bf_dev_id_t dev, uint32_t grp) {
  DevState *d = find_dev(s, dev);
  return d ? find_in(d->grps, grp) : nullptr;
}

// The device's journal, or null if it has no open transaction.
Journal *journal_of(p4_pd_ms_state *s, bf_dev_id_t dev) {
  if (s->journals.empty()) return nullptr;
  auto it = s->journals.find(dev);
  return it == s->journals.end() ? nullptr : &it->second;
}

// Pushes an undo record if the device has a transaction; returns it, or null if there is none.
// Call before making the change; if the change then fails, pop the record.
template <class R>
R *journal(p4_pd_ms_state *s, bf_dev_id_t dev, R rec) {
  Journal *j = journal_of(s, dev);
  if (j == nullptr) return nullptr;
  return &std::get<R>(j->emplace_back(std::move(rec)));
}

void unjournal(p4_pd_ms_state *s, bf_dev_id_t dev) { journal_of(s, dev)->pop_back(); }

// A member's groups stay sorted. Insert only where there is room (see ensure_room), so that it
// cannot fail.
void ensure_room(GrpList &v) {
  if (v.size() == v.capacity()) v.reserve(std::max<size_t>(4, 2 * v.size()));
}
void sorted_insert(GrpList &v, uint32_t x) { v.insert(std::lower_bound(v.begin(), v.end(), x), x); }
void sorted_erase(GrpList &v, uint32_t x) {
  auto it = std::lower_bound(v.begin(), v.end(), x);
  if (it != v.end() && *it == x) v.erase(it);
}

// Runs a call under the state's lock; a failed allocation becomes BF_NO_SYS_RESOURCES.
template <class F>
bf_status_t locked(p4_pd_ms_state *s, F &&f) {
  if (s == nullptr) return BF_INVALID_ARG;
  try {
    Lock lock(s->mu);
    return f();
  } catch (const std::bad_alloc &) {
    return BF_NO_SYS_RESOURCES;
  } catch (const std::length_error &) {
    return BF_NO_SYS_RESOURCES;
  }
}

// ---- Undo ----
// Each undo finds the state exactly as the change left it (every later change is undone
// already), so what it looks up is there and what it puts back has room.

struct Undoer {
  DevMap &devs;
  bf_dev_id_t dev;

  DevState &d() { return devs.at(dev); }
  void operator()(undo::NewMbr &r) { d().mbrs.erase(r.mbr); }
  void operator()(undo::NewGrp &r) { d().grps.erase(r.grp); }
  void operator()(undo::MbrAct &r) { d().mbrs.at(r.mbr).act = r.old; }
  void operator()(undo::GrpAct &r) { d().grps.at(r.grp).act = r.old; }
  void operator()(undo::MbrRes &r) { d().mbrs.at(r.mbr).res = r.old; }
  void operator()(undo::GrpRes &r) { d().grps.at(r.grp).res = r.old; }
  void operator()(undo::Link &r) {
    d().grps.at(r.grp).mbrs.erase(r.mbr);
    sorted_erase(d().mbrs.at(r.mbr).grps, r.grp);
  }
  void operator()(undo::Unlink &r) {
    d().grps.at(r.grp).mbrs.insert(std::move(r.link));
    sorted_insert(d().mbrs.at(r.mbr).grps, r.grp);
  }
  void operator()(undo::DelMbr &r) {
    DevState &ds = d();
    const GrpList &grps = r.mbr.mapped().grps;
    for (size_t i = 0; i < grps.size(); ++i) ds.grps.at(grps[i]).mbrs.insert(std::move(r.links[i]));
    ds.mbrs.insert(std::move(r.mbr));
  }
  void operator()(undo::DelGrp &r) {
    DevState &ds = d();
    const uint32_t grp = r.grp.key();
    for (uint32_t mbr : r.grp.mapped().mbrs) sorted_insert(ds.mbrs.at(mbr).grps, grp);
    ds.grps.insert(std::move(r.grp));
  }
  void operator()(undo::Replace &r) {
    devs.erase(dev);
    if (!r.old.empty()) devs.insert(std::move(r.old));
  }
};

// Undoes a journal, last change first. Cannot fail (see the top of this file); were it ever to,
// the state could not be trusted, so that ends the process.
void roll_back(p4_pd_ms_state *s, bf_dev_id_t dev, Journal &j) noexcept {
  Undoer u{s->devs, dev};
  for (auto it = j.rbegin(); it != j.rend(); ++it) std::visit(u, *it);
}

// ---- JSON form ----

const char *const kMembers = "members";
const char *const kGroups = "groups";
const char *const kMbrHdl = "mbr_hdl";
const char *const kGrpHdl = "grp_hdl";
const char *const kAct = "act_fn_hdl";
const char *const kRes = "res";
const char *const kMbrs = "mbrs";

// Deletes a JSON item on every path unless released.
struct JsonHolder {
  cJSON *item;
  ~JsonHolder() { cJSON_Delete(item); }
  cJSON *release() { return std::exchange(item, nullptr); }
};

bool add_number(cJSON *o, const char *key, uint32_t v) {
  return cJSON_AddNumberToObject(o, key, static_cast<double>(v)) != nullptr;
}

bool append_number(cJSON *arr, uint32_t v) {
  cJSON *n = cJSON_CreateNumber(static_cast<double>(v));
  return n != nullptr && cJSON_AddItemToArray(arr, n);
}

// Adds a new object to an array and returns it, or null.
cJSON *append_object(cJSON *arr) {
  cJSON *o = cJSON_CreateObject();
  if (o == nullptr) return nullptr;
  if (!cJSON_AddItemToArray(arr, o)) {
    cJSON_Delete(o);
    return nullptr;
  }
  return o;
}

bool add_common(cJSON *o, const char *hdl_key, uint32_t hdl, const Act &act, const Res &res) {
  if (!add_number(o, hdl_key, hdl)) return false;
  if (act.set && !add_number(o, kAct, act.hdl)) return false;
  cJSON *r = cJSON_AddArrayToObject(o, kRes);
  return r != nullptr && append_number(r, res.hdl) && append_number(r, res.idx);
}

template <class M>
std::vector<uint32_t> sorted_keys(const M &m) {
  std::vector<uint32_t> v;
  v.reserve(m.size());
  for (const auto &kv : m) v.push_back(kv.first);
  std::sort(v.begin(), v.end());
  return v;
}

// The two arrays of a device's state, made apart from the caller's object.
bool build_arrays(const DevState *d, cJSON *mbrs, cJSON *grps) {
  if (d == nullptr) return true;
  for (uint32_t hdl : sorted_keys(d->mbrs)) {
    const Member &m = d->mbrs.find(hdl)->second;
    cJSON *o = append_object(mbrs);
    if (o == nullptr || !add_common(o, kMbrHdl, hdl, m.act, m.res)) return false;
  }
  std::vector<uint32_t> list;
  for (uint32_t hdl : sorted_keys(d->grps)) {
    const Group &g = d->grps.find(hdl)->second;
    cJSON *o = append_object(grps);
    if (o == nullptr || !add_common(o, kGrpHdl, hdl, g.act, g.res)) return false;
    cJSON *arr = cJSON_AddArrayToObject(o, kMbrs);
    if (arr == nullptr) return false;
    list.assign(g.mbrs.begin(), g.mbrs.end());
    std::sort(list.begin(), list.end());
    for (uint32_t mbr : list)
      if (!append_number(arr, mbr)) return false;
  }
  return true;
}

// A JSON number that is a 32-bit unsigned integer: not negative (nor -0), not fractional, not
// over 2^32 - 1.
bool as_u32(const cJSON *item, uint32_t *out) {
  if (!cJSON_IsNumber(item)) return false;
  const double d = item->valuedouble;
  if (!(d >= 0 && d <= 4294967295.0) || std::signbit(d) || std::floor(d) != d) return false;
  *out = static_cast<uint32_t>(d);
  return true;
}

bool as_res(const cJSON *item, Res *res) {
  if (!cJSON_IsArray(item)) return false;
  const cJSON *first = item->child;
  const cJSON *second = first ? first->next : nullptr;
  return second != nullptr && second->next == nullptr && as_u32(first, &res->hdl) &&
         as_u32(second, &res->idx);
}

// The keys an element of the form may hold; each at most once.
enum Key : unsigned { kKeyHdl = 1, kKeyAct = 2, kKeyRes = 4, kKeyMbrs = 8 };

// Reads the keys of a member (with_mbrs false) or group element. Refuses a key not of the form, a
// key twice, or a value of the wrong kind; *mbrs is the group's list, unread.
bool read_element(const cJSON *o, const char *hdl_key, bool with_mbrs, uint32_t *hdl, Act *act,
                  Res *res, const cJSON **mbrs) {
  if (!cJSON_IsObject(o)) return false;
  unsigned seen = 0;
  for (const cJSON *c = o->child; c != nullptr; c = c->next) {
    unsigned key;
    bool ok;
    if (c->string == nullptr) return false;
    if (std::strcmp(c->string, hdl_key) == 0) {
      key = kKeyHdl;
      ok = as_u32(c, hdl);
    } else if (std::strcmp(c->string, kAct) == 0) {
      key = kKeyAct;
      act->set = true;
      ok = as_u32(c, &act->hdl);
    } else if (std::strcmp(c->string, kRes) == 0) {
      key = kKeyRes;
      ok = as_res(c, res);
    } else if (with_mbrs && std::strcmp(c->string, kMbrs) == 0) {
      key = kKeyMbrs;
      ok = cJSON_IsArray(c);
      *mbrs = c;
    } else {
      return false;
    }
    if (!ok || (seen & key) != 0) return false;
    seen |= key;
  }
  const unsigned needed = kKeyHdl | kKeyRes | (with_mbrs ? kKeyMbrs : 0u);
  return (seen & needed) == needed;
}

size_t array_size(const cJSON *arr) {
  size_t n = 0;
  for (const cJSON *c = arr->child; c != nullptr; c = c->next) ++n;
  return n;
}

// Reads a record into *out, which starts empty. False for anything but a record of the form.
bool parse_dev_state(const cJSON *obj, DevState *out) {
  if (!cJSON_IsObject(obj)) return false;
  const cJSON *mbrs = nullptr, *grps = nullptr;
  for (const cJSON *c = obj->child; c != nullptr; c = c->next) {
    if (c->string == nullptr) return false;
    const cJSON **slot = std::strcmp(c->string, kMembers) == 0  ? &mbrs
                         : std::strcmp(c->string, kGroups) == 0 ? &grps
                                                                 : nullptr;
    if (slot == nullptr) continue;  // the caller's keys
    if (*slot != nullptr || !cJSON_IsArray(c)) return false;
    *slot = c;
  }
  if (mbrs == nullptr || grps == nullptr) return false;

  out->mbrs.reserve(array_size(mbrs));
  for (const cJSON *it = mbrs->child; it != nullptr; it = it->next) {
    uint32_t hdl = 0;
    Member m;
    if (!read_element(it, kMbrHdl, false, &hdl, &m.act, &m.res, nullptr)) return false;
    if (!out->mbrs.try_emplace(hdl, std::move(m)).second) return false;
  }
  out->grps.reserve(array_size(grps));
  bool sorted = true;  // whether each member's groups came in increasing order
  for (const cJSON *it = grps->child; it != nullptr; it = it->next) {
    uint32_t hdl = 0;
    Group g;
    const cJSON *list = nullptr;
    if (!read_element(it, kGrpHdl, true, &hdl, &g.act, &g.res, &list)) return false;
    auto [git, fresh] = out->grps.try_emplace(hdl, std::move(g));
    if (!fresh) return false;
    MbrSet &set = git->second.mbrs;
    set.reserve(array_size(list));
    for (const cJSON *m = list->child; m != nullptr; m = m->next) {
      uint32_t mbr = 0;
      if (!as_u32(m, &mbr)) return false;
      auto mit = out->mbrs.find(mbr);
      if (mit == out->mbrs.end() || !set.insert(mbr).second) return false;
      GrpList &mg = mit->second.grps;
      if (!mg.empty() && mg.back() > hdl) sorted = false;
      mg.push_back(hdl);
    }
  }
  if (!sorted)
    for (auto &kv : out->mbrs) std::sort(kv.second.grps.begin(), kv.second.grps.end());
  return true;
}

// ---- Walks ----

// Writes the smallest min(max, total) handles of a range, in increasing order, to out[0 ..], using
// out itself as a max-heap of the smallest seen so far.
template <class Range, class Key>
uint32_t write_smallest(const Range &range, Key key, uint32_t max, uint32_t *out) {
  uint32_t total = 0;
  for (const auto &e : range) {
    const uint32_t h = key(e);
    if (total < max) {
      out[total] = h;
      if (total + 1 == max) std::make_heap(out, out + max);
    } else if (max > 0 && h < out[0]) {
      std::pop_heap(out, out + max);
      out[max - 1] = h;
      std::push_heap(out, out + max);
    }
    ++total;
  }
  if (total < max) {
    std::sort(out, out + total);
  } else {
    std::sort_heap(out, out + max);
  }
  return total;
}

// The checks common to the walks, then the walk under the state's lock. A walk's only refusals
// come before it writes anything.
template <class F>
bf_status_t walk(p4_pd_ms_state *s, uint32_t max, uint32_t *hdls, uint32_t *count, F &&f) {
  if (count == nullptr || (hdls == nullptr && max > 0)) return BF_INVALID_ARG;
  return locked(s, f);
}

// Closes the device's transaction, undoing its changes first if asked to.
bf_status_t end_txn(bf_dev_id_t dev, bool undo_changes) {
  AllLocked all;
  Registry &reg = all.reg();
  if (reg.open.erase(dev) == 0) return BF_OBJECT_NOT_FOUND;
  for (p4_pd_ms_state *s : reg.states) {
    auto it = s->journals.find(dev);
    if (it == s->journals.end()) continue;
    if (undo_changes) roll_back(s, dev, it->second);
    s->journals.erase(it);
  }
  return BF_SUCCESS;
}

}  // namespace

extern "C" {

bf_status_t p4_pd_ms_init(void) {
  registry();
  return BF_SUCCESS;
}

p4_pd_ms_state_t *p4_pd_ms_init_state(void) {
  p4_pd_ms_state *s = new (std::nothrow) p4_pd_ms_state();
  if (s == nullptr) return nullptr;
  try {
    Registry &reg = registry();
    Lock lock(reg.mu);
    for (bf_dev_id_t dev : reg.open) s->journals.try_emplace(dev);
    reg.states.insert(s);
  } catch (const std::bad_alloc &) {
    delete s;
    return nullptr;
  }
  return s;
}

void p4_pd_ms_free_state(p4_pd_ms_state_t *state) {
  if (state == nullptr) return;
  {
    Registry &reg = registry();
    Lock lock(reg.mu);
    reg.states.erase(state);
  }
  delete state;
}

bf_status_t p4_pd_ms_new_mbr(pipe_sess_hdl_t, p4_pd_ms_state_t *state, bf_dev_id_t dev,
                             pipe_adt_ent_hdl_t mbr_hdl) {
  return locked(state, [&] {
    // An empty device entry, left behind if the rest fails, changes no answer.
    MbrMap &mbrs = state->devs[dev].mbrs;
    auto [it, fresh] = mbrs.try_emplace(mbr_hdl);
    if (!fresh) return BF_ALREADY_EXISTS;
    try {
      journal(state, dev, undo::NewMbr{mbr_hdl});
    } catch (...) {
      mbrs.erase(it);
      throw;
    }
    return BF_SUCCESS;
  });
}

bf_status_t p4_pd_ms_set_mbr_act(p4_pd_ms_state_t *state, bf_dev_id_t dev,
                                 pipe_adt_ent_hdl_t mbr_hdl, pipe_act_fn_hdl_t act_fn_hdl) {
  return locked(state, [&] {
    Member *m = find_mbr(state, dev, mbr_hdl);
    if (m == nullptr) return BF_OBJECT_NOT_FOUND;
    journal(state, dev, undo::MbrAct{mbr_hdl, m->act});
    m->act = Act{true, act_fn_hdl};
    return BF_SUCCESS;
  });
}

bf_status_t p4_pd_ms_get_mbr_act(p4_pd_ms_state_t *state, bf_dev_id_t dev,
                                 pipe_adt_ent_hdl_t mbr_hdl, pipe_act_fn_hdl_t *act_fn_hdl) {
  if (act_fn_hdl == nullptr) return BF_INVALID_ARG;
  return locked(state, [&] {
    const Member *m = find_mbr(state, dev, mbr_hdl);
    if (m == nullptr || !m->act.set) return BF_OBJECT_NOT_FOUND;
    *act_fn_hdl = m->act.hdl;
    return BF_SUCCESS;
  });
}

bf_status_t p4_pd_ms_del_mbr(pipe_sess_hdl_t, p4_pd_ms_state_t *state, bf_dev_id_t dev,
                             pipe_adt_ent_hdl_t mbr_hdl) {
  return locked(state, [&] {
    DevState *d = find_dev(state, dev);
    if (d == nullptr) return BF_OBJECT_NOT_FOUND;
    auto it = d->mbrs.find(mbr_hdl);
    if (it == d->mbrs.end()) return BF_OBJECT_NOT_FOUND;
    const GrpList &grps = it->second.grps;
    undo::DelMbr *rec = journal(state, dev, undo::DelMbr{});
    if (rec == nullptr) {
      for (uint32_t grp : grps) d->grps.find(grp)->second.mbrs.erase(mbr_hdl);
      d->mbrs.erase(it);
      return BF_SUCCESS;
    }
    try {
      rec->links.reserve(grps.size());
    } catch (...) {
      unjournal(state, dev);
      throw;
    }
    for (uint32_t grp : grps) rec->links.push_back(d->grps.find(grp)->second.mbrs.extract(mbr_hdl));
    rec->mbr = d->mbrs.extract(it);
    return BF_SUCCESS;
  });
}

bf_status_t p4_pd_ms_new_grp(pipe_sess_hdl_t, p4_pd_ms_state_t *state, bf_dev_id_t dev,
                             pipe_sel_grp_hdl_t grp_hdl) {
  return locked(state, [&] {
    GrpMap &grps = state->devs[dev].grps;
    auto [it, fresh] = grps.try_emplace(grp_hdl);
    if (!fresh) return BF_ALREADY_EXISTS;
    try {
      journal(state, dev, undo::NewGrp{grp_hdl});
    } catch (...) {
      grps.erase(it);
      throw;
    }
    return BF_SUCCESS;
  });
}

bf_status_t p4_pd_ms_set_grp_act(p4_pd_ms_state_t *state, bf_dev_id_t dev,
                                 pipe_sel_grp_hdl_t grp_hdl, pipe_act_fn_hdl_t act_fn_hdl) {
  return locked(state, [&] {
    Group *g = find_grp(state, dev, grp_hdl);
    if (g == nullptr) return BF_OBJECT_NOT_FOUND;
    journal(state, dev, undo::GrpAct{grp_hdl, g->act});
    g->act = Act{true, act_fn_hdl};
    return BF_SUCCESS;
  });
}

bf_status_t p4_pd_ms_get_grp_act(p4_pd_ms_state_t *state, bf_dev_id_t dev,
                                 pipe_sel_grp_hdl_t grp_hdl, pipe_act_fn_hdl_t *act_fn_hdl) {
  if (act_fn_hdl == nullptr) return BF_INVALID_ARG;
  return locked(state, [&] {
    const Group *g = find_grp(state, dev, grp_hdl);
    if (g == nullptr || !g->act.set) return BF_OBJECT_NOT_FOUND;
    *act_fn_hdl = g->act.hdl;
    return BF_SUCCESS;
  });
}

bf_status_t p4_pd_ms_del_grp(pipe_sess_hdl_t, p4_pd_ms_state_t *state, bf_dev_id_t dev,
                             pipe_sel_grp_hdl_t grp_hdl, uint32_t num_mbrs,
                             const pipe_adt_ent_hdl_t *mbr_hdls) {
  if (num_mbrs != 0 && mbr_hdls == nullptr) return BF_INVALID_ARG;
  return locked(state, [&] {
    DevState *d = find_dev(state, dev);
    if (d == nullptr) return BF_OBJECT_NOT_FOUND;
    auto it = d->grps.find(grp_hdl);
    if (it == d->grps.end()) return BF_OBJECT_NOT_FOUND;
    // The listed members that hold the group are among its own members (links are kept both
    // ways), so the group's own list is all there is to walk.
    undo::DelGrp *rec = journal(state, dev, undo::DelGrp{});
    for (uint32_t mbr : it->second.mbrs) sorted_erase(d->mbrs.find(mbr)->second.grps, grp_hdl);
    if (rec != nullptr) {
      rec->grp = d->grps.extract(it);
    } else {
      d->grps.erase(it);
    }
    return BF_SUCCESS;
  });
}

bf_status_t p4_pd_ms_add_mbr_to_grp(pipe_sess_hdl_t, p4_pd_ms_state_t *state, bf_dev_id_t dev,
                                    pipe_adt_ent_hdl_t mbr_hdl, pipe_sel_grp_hdl_t grp_hdl) {
  return locked(state, [&] {
    Member *m = find_mbr(state, dev, mbr_hdl);
    Group *g = find_grp(state, dev, grp_hdl);
    if (m == nullptr || g == nullptr) return BF_OBJECT_NOT_FOUND;
    // Room in the member's list first (a larger capacity changes no answer); then the group's
    // side, which may fail and is taken back if the record cannot be stored; then the member's
    // side, which cannot fail.
    ensure_room(m->grps);
    auto [it, fresh] = g->mbrs.insert(mbr_hdl);
    if (!fresh) return BF_ALREADY_EXISTS;
    try {
      journal(state, dev, undo::Link{mbr_hdl, grp_hdl});
    } catch (...) {
      g->mbrs.erase(it);
      throw;
    }
    sorted_insert(m->grps, grp_hdl);
    return BF_SUCCESS;
  });
}

bf_status_t p4_pd_ms_del_mbr_from_grp(pipe_sess_hdl_t, p4_pd_ms_state_t *state, bf_dev_id_t dev,
                                      pipe_adt_ent_hdl_t mbr_hdl, pipe_sel_grp_hdl_t grp_hdl) {
  return locked(state, [&] {
    Member *m = find_mbr(state, dev, mbr_hdl);
    Group *g = find_grp(state, dev, grp_hdl);
    if (m == nullptr || g == nullptr) return BF_OBJECT_NOT_FOUND;
    auto it = g->mbrs.find(mbr_hdl);
    if (it == g->mbrs.end()) return BF_OBJECT_NOT_FOUND;
    if (undo::Unlink *rec = journal(state, dev, undo::Unlink{mbr_hdl, grp_hdl, {}})) {
      rec->link = g->mbrs.extract(it);
    } else {
      g->mbrs.erase(it);
    }
    sorted_erase(m->grps, grp_hdl);
    return BF_SUCCESS;
  });
}

bf_status_t p4_pd_ms_mbr_apply_to_grps(p4_pd_ms_state_t *state, bf_dev_id_t dev,
                                       pipe_adt_ent_hdl_t mbr_hdl, p4_pd_ms_grp_fn_t fn,
                                       void *aux) {
  if (fn == nullptr) return BF_INVALID_ARG;
  GrpList grps;
  bf_status_t st = locked(state, [&] {
    const Member *m = find_mbr(state, dev, mbr_hdl);
    if (m == nullptr) return BF_OBJECT_NOT_FOUND;
    grps = m->grps;
    return BF_SUCCESS;
  });
  if (st != BF_SUCCESS) return st;
  // fn runs without the lock: the layer's own p4_pd_ms_grp_update_res takes it again.
  bf_status_t first = BF_SUCCESS;
  for (uint32_t grp : grps) {
    bf_status_t r = fn(dev, mbr_hdl, grp, aux);
    if (first == BF_SUCCESS) first = r;
  }
  return first;
}

bf_status_t p4_pd_ms_set_mbr_res(p4_pd_ms_state_t *state, bf_dev_id_t dev,
                                 pipe_adt_ent_hdl_t mbr_hdl, uint32_t res_hdl, uint32_t res_idx) {
  return locked(state, [&] {
    Member *m = find_mbr(state, dev, mbr_hdl);
    if (m == nullptr) return BF_OBJECT_NOT_FOUND;
    journal(state, dev, undo::MbrRes{mbr_hdl, m->res});
    m->res = Res{res_hdl, res_idx};
    return BF_SUCCESS;
  });
}

bf_status_t p4_pd_ms_mbr_get_res(p4_pd_ms_state_t *state, bf_dev_id_t dev,
                                 pipe_adt_ent_hdl_t mbr_hdl, uint32_t *res_hdl, uint32_t *res_idx) {
  return locked(state, [&] {
    const Member *m = find_mbr(state, dev, mbr_hdl);
    if (m == nullptr) return BF_OBJECT_NOT_FOUND;
    if (res_hdl) *res_hdl = m->res.hdl;
    if (res_idx) *res_idx = m->res.idx;
    return BF_SUCCESS;
  });
}

bf_status_t p4_pd_ms_grp_get_res(p4_pd_ms_state_t *state, bf_dev_id_t dev,
                                 pipe_sel_grp_hdl_t grp_hdl, uint32_t *res_hdl, uint32_t *res_idx) {
  return locked(state, [&] {
    const Group *g = find_grp(state, dev, grp_hdl);
    if (g == nullptr) return BF_OBJECT_NOT_FOUND;
    if (res_hdl) *res_hdl = g->res.hdl;
    if (res_idx) *res_idx = g->res.idx;
    return BF_SUCCESS;
  });
}

bf_status_t p4_pd_ms_grp_update_res(bf_dev_id_t dev, pipe_adt_ent_hdl_t mbr_hdl,
                                    pipe_sel_grp_hdl_t grp_hdl, void *aux) {
  p4_pd_ms_state *state = static_cast<p4_pd_ms_state *>(aux);
  return locked(state, [&] {
    const Member *m = find_mbr(state, dev, mbr_hdl);
    Group *g = find_grp(state, dev, grp_hdl);
    if (m == nullptr || g == nullptr) return BF_OBJECT_NOT_FOUND;
    journal(state, dev, undo::GrpRes{grp_hdl, g->res});
    g->res = m->res;
    return BF_SUCCESS;
  });
}

bf_status_t p4_pd_ms_get_mbrs(p4_pd_ms_state_t *state, bf_dev_id_t dev, uint32_t max,
                              pipe_adt_ent_hdl_t *hdls, uint32_t *count) {
  return walk(state, max, hdls, count, [&] {
    const DevState *d = find_dev(state, dev);
    *count = d ? write_smallest(d->mbrs, [](const auto &kv) { return kv.first; }, max, hdls) : 0;
    return BF_SUCCESS;
  });
}

bf_status_t p4_pd_ms_get_grps(p4_pd_ms_state_t *state, bf_dev_id_t dev, uint32_t max,
                              pipe_sel_grp_hdl_t *hdls, uint32_t *count) {
  return walk(state, max, hdls, count, [&] {
    const DevState *d = find_dev(state, dev);
    *count = d ? write_smallest(d->grps, [](const auto &kv) { return kv.first; }, max, hdls) : 0;
    return BF_SUCCESS;
  });
}

bf_status_t p4_pd_ms_get_grp_mbrs(p4_pd_ms_state_t *state, bf_dev_id_t dev,
                                  pipe_sel_grp_hdl_t grp_hdl, uint32_t max,
                                  pipe_adt_ent_hdl_t *hdls, uint32_t *count) {
  return walk(state, max, hdls, count, [&] {
    const Group *g = find_grp(state, dev, grp_hdl);
    if (g == nullptr) return BF_OBJECT_NOT_FOUND;
    *count = write_smallest(g->mbrs, [](uint32_t h) { return h; }, max, hdls);
    return BF_SUCCESS;
  });
}

bf_status_t p4_pd_ms_get_mbr_grps(p4_pd_ms_state_t *state, bf_dev_id_t dev,
                                  pipe_adt_ent_hdl_t mbr_hdl, uint32_t max,
                                  pipe_sel_grp_hdl_t *hdls, uint32_t *count) {
  return walk(state, max, hdls, count, [&] {
    const Member *m = find_mbr(state, dev, mbr_hdl);
    if (m == nullptr) return BF_OBJECT_NOT_FOUND;
    const uint32_t n = static_cast<uint32_t>(m->grps.size());
    std::copy_n(m->grps.begin(), std::min(n, max), hdls);  // sorted already
    *count = n;
    return BF_SUCCESS;
  });
}

bf_status_t p4_pd_ms_begin_txn(bf_dev_id_t dev) {
  AllLocked all;
  Registry &reg = all.reg();
  if (reg.open.count(dev)) return BF_ALREADY_EXISTS;
  try {
    for (p4_pd_ms_state *s : reg.states) s->journals.try_emplace(dev);
    reg.open.insert(dev);
  } catch (const std::bad_alloc &) {
    for (p4_pd_ms_state *s : reg.states) s->journals.erase(dev);
    return BF_NO_SYS_RESOURCES;
  }
  return BF_SUCCESS;
}

bf_status_t p4_pd_ms_commit_txn(bf_dev_id_t dev) { return end_txn(dev, false); }

bf_status_t p4_pd_ms_abort_txn(bf_dev_id_t dev) { return end_txn(dev, true); }

bf_status_t p4_pd_ms_get_txn_changes(bf_dev_id_t dev, uint32_t *count) {
  if (count == nullptr) return BF_INVALID_ARG;
  AllLocked all;
  Registry &reg = all.reg();
  if (reg.open.count(dev) == 0) return BF_OBJECT_NOT_FOUND;
  size_t n = 0;
  for (p4_pd_ms_state *s : reg.states)
    if (const Journal *j = journal_of(s, dev)) n += j->size();
  *count = static_cast<uint32_t>(std::min<size_t>(n, UINT32_MAX));
  return BF_SUCCESS;
}

bf_status_t p4_pd_ms_destroy_state_for_dev(p4_pd_ms_state_t *state, bf_dev_id_t dev) {
  return locked(state, [&] {
    auto it = state->devs.find(dev);
    if (it == state->devs.end()) return BF_SUCCESS;
    if (undo::Replace *rec = journal(state, dev, undo::Replace{})) {
      rec->old = state->devs.extract(it);
    } else {
      state->devs.erase(it);
    }
    return BF_SUCCESS;
  });
}

bf_status_t p4_pd_ms_destroy_txn_state_for_dev(bf_dev_id_t dev) {
  end_txn(dev, false);
  return BF_SUCCESS;
}

bf_status_t p4_pd_ms_log_state(bf_dev_id_t dev, p4_pd_ms_state_t *state, struct cJSON *obj) {
  if (obj == nullptr || !cJSON_IsObject(obj)) return BF_INVALID_ARG;
  return locked(state, [&] {
    if (cJSON_GetObjectItemCaseSensitive(obj, kMembers) != nullptr ||
        cJSON_GetObjectItemCaseSensitive(obj, kGroups) != nullptr)
      return BF_ALREADY_EXISTS;
    // Both arrays are made apart and joined to obj last, so that a failure leaves obj as it was.
    JsonHolder mbrs{cJSON_CreateArray()}, grps{cJSON_CreateArray()};
    if (mbrs.item == nullptr || grps.item == nullptr ||
        !build_arrays(find_dev(state, dev), mbrs.item, grps.item))
      return BF_NO_SYS_RESOURCES;
    if (!cJSON_AddItemToObject(obj, kMembers, mbrs.item)) return BF_NO_SYS_RESOURCES;
    mbrs.release();
    if (!cJSON_AddItemToObject(obj, kGroups, grps.item)) {
      cJSON_DeleteItemFromObjectCaseSensitive(obj, kMembers);
      return BF_NO_SYS_RESOURCES;
    }
    grps.release();
    return BF_SUCCESS;
  });
}

bf_status_t p4_pd_ms_restore_state(bf_dev_id_t dev, p4_pd_ms_state_t *state, struct cJSON *obj) {
  if (obj == nullptr) return BF_INVALID_ARG;
  if (state == nullptr) return BF_INVALID_ARG;
  try {
    // Read without the lock: the record is the caller's, and a large one takes a while.
    DevMap fresh;
    DevState &parsed = fresh[dev];
    if (!parse_dev_state(obj, &parsed)) return BF_INVALID_ARG;
    auto node = fresh.extract(dev);
    DevMap::node_type old;  // the former state; declared first, so freed after the lock goes
    Lock lock(state->mu);
    undo::Replace *rec = journal(state, dev, undo::Replace{});
    old = state->devs.extract(dev);
    state->devs.insert(std::move(node));
    if (rec != nullptr) rec->old = std::move(old);
    return BF_SUCCESS;
  } catch (const std::bad_alloc &) {
    return BF_NO_SYS_RESOURCES;
  } catch (const std::length_error &) {
    return BF_NO_SYS_RESOURCES;
  }
}

}  // extern "C"
