// Parser value sets: properties, and entries under a scope (gress, pipe, parser) with a value and a
// mask, each with a handle the model issues.
//
// Per device and set the model keeps the entries in a map by handle (the walk order) and the
// property values by (property, argument). Handles are issued per device, across all its sets, from
// 1 up, and never again until drvm_reset. Sets are small (their declared capacity), so a duplicate
// or a scope is found by a pass over the set's entries.
#include <map>
#include <utility>

#include "telemetry.h"

using namespace drvm;

namespace {

constexpr uint32_t kGressAll = PIPE_MGR_PVS_GRESS_ALL;
constexpr uint32_t kPipeAll = BF_DEV_PIPE_ALL;
constexpr uint32_t kParserAll = PIPE_MGR_PVS_PARSER_ALL;
constexpr uint32_t kLastHandle = 0xFFFFFFFEu;  // 0xFFFFFFFF ends a walk's array

struct Decl {
  uint32_t capacity;
  uint32_t field_bits;
};

struct Entry {
  uint32_t gress, pipe, parser, value, mask;
};

struct Set {
  std::map<uint32_t, Entry> entries;                    // by handle
  std::map<std::pair<uint32_t, uint32_t>, uint32_t> props;  // (property, argument) -> value
};

using Key = std::pair<bf_dev_id_t, uint32_t>;

std::map<uint32_t, Decl> g_decls;
std::map<Key, Set> g_sets;
std::map<bf_dev_id_t, uint32_t> g_issued;  // the last handle issued per device

// A scope asked for: each part a value or its wildcard.
struct Scope {
  uint32_t gress, pipe, parser;
};

bool one_sees(uint32_t asked, uint32_t stored, uint32_t all) { return asked == all || stored == all || asked == stored; }

// Whether a walk or count of scope q sees an entry: in each part, either is the wildcard or they
// are equal.
bool sees(const Scope &q, const Entry &e) {
  return one_sees(q.gress, e.gress, kGressAll) && one_sees(q.pipe, e.pipe, kPipeAll) &&
         one_sees(q.parser, e.parser, kParserAll);
}

bool same_scope(const Scope &q, const Entry &e) { return q.gress == e.gress && q.pipe == e.pipe && q.parser == e.parser; }

// A gress the model knows (ingress, egress, all) and a parser id of one byte (0xFF: all).
bool good_scope(const Scope &s) {
  return (s.gress == PIPE_MGR_PVS_GRESS_INGRESS || s.gress == PIPE_MGR_PVS_GRESS_EGRESS || s.gress == kGressAll) &&
         s.parser <= kParserAll;
}

// Whether a value or mask has no bit above the set's field.
bool fits(const Decl &d, uint32_t v) { return d.field_bits >= 32 || (v >> d.field_bits) == 0; }

bool good_property(uint32_t p) {
  return p == PIPE_MGR_PVS_PROP_GRESS_SCOPE || p == PIPE_MGR_PVS_PROP_PIPE_SCOPE || p == PIPE_MGR_PVS_PROP_PARSER_SCOPE;
}

const Decl *decl_of(uint32_t pvs) {
  auto it = g_decls.find(pvs);
  return it == g_decls.end() ? nullptr : &it->second;
}

Set *find_set(bf_dev_id_t dev, uint32_t pvs) {
  auto it = g_sets.find(Key{dev, pvs});
  return it == g_sets.end() ? nullptr : &it->second;
}

// The entry of a handle in a set of a device, or null.
Entry *find_entry(bf_dev_id_t dev, uint32_t pvs, uint32_t hdl) {
  Set *s = find_set(dev, pvs);
  if (s == nullptr) return nullptr;
  auto it = s->entries.find(hdl);
  return it == s->entries.end() ? nullptr : &it->second;
}

// An entry of exactly that scope, value and mask other than `except`, or 0.
uint32_t find_key(const Set &s, const Scope &q, uint32_t value, uint32_t mask, uint32_t except = 0) {
  for (const auto &[h, e] : s.entries)
    if (h != except && same_scope(q, e) && e.value == value && e.mask == mask) return h;
  return 0;
}

void record_scope(RecordedCall &r, uint32_t sess, bf_dev_id_t dev, uint32_t pvs, uint32_t gress, uint32_t pipe,
                  uint32_t parser) {
  r.call.sess_hdl = sess;
  r.call.dev_tgt = dev_target_t{dev, pipe};
  r.call.tbl_hdl = pvs;
  r.call.arg_u32[0] = gress;
  r.call.arg_u32[1] = parser;
}

}  // namespace

namespace drvm {

void reset_value_sets() {
  g_decls.clear();
  g_sets.clear();
  g_issued.clear();
}

}  // namespace drvm

extern "C" {

pipe_status_t pipe_mgr_pvs_set_property(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_pvs_hdl_t pvs_hdl,
                                        uint32_t property, pipe_mgr_pvs_prop_value_t value,
                                        pipe_mgr_pvs_prop_args_t args) {
  return DRIVER_CALL(
      "pipe_mgr_pvs_set_property", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_dev_obj(r, sess_hdl, dev_id, pvs_hdl);
        r.call.arg_u32[0] = property;
        r.copy_bytes(reinterpret_cast<const uint8_t *>(&value), sizeof value);
        r.copy_bytes2(reinterpret_cast<const uint8_t *>(&args), sizeof args);
      },
      [&](RecordedCall *, Notices &) -> bf_status_t {
        if (decl_of(pvs_hdl) == nullptr) return BF_OBJECT_NOT_FOUND;
        if (!good_property(property)) return BF_INVALID_ARG;
        if (value.value != PIPE_MGR_PVS_SCOPE_ALL && value.value != PIPE_MGR_PVS_SCOPE_SINGLE) return BF_INVALID_ARG;
        // Either may throw: a new empty set left behind by the second reads as no set at all.
        Set &s = g_sets[Key{dev_id, pvs_hdl}];
        s.props[{property, args.value}] = value.value;
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_pvs_get_property(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_pvs_hdl_t pvs_hdl,
                                        uint32_t property, pipe_mgr_pvs_prop_value_t *value,
                                        pipe_mgr_pvs_prop_args_t args) {
  return DRIVER_CALL(
      "pipe_mgr_pvs_get_property", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_dev_obj(r, sess_hdl, dev_id, pvs_hdl);
        r.call.arg_u32[0] = property;
        r.call.ptr_arg = value;
        r.copy_bytes2(reinterpret_cast<const uint8_t *>(&args), sizeof args);
      },
      [&](RecordedCall *rec, Notices &) -> bf_status_t {
        if (decl_of(pvs_hdl) == nullptr) return BF_OBJECT_NOT_FOUND;
        if (!good_property(property) || value == nullptr) return BF_INVALID_ARG;
        uint32_t v = PIPE_MGR_PVS_SCOPE_ALL;
        if (const Set *s = find_set(dev_id, pvs_hdl)) {
          auto it = s->props.find({property, args.value});
          if (it != s->props.end()) v = it->second;
        }
        value->value = v;
        value->reserved = 0;
        if (rec) rec->call.arg_u32[1] = v;
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_pvs_entry_add(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_pvs_hdl_t pvs_hdl,
                                     uint32_t gress, bf_dev_pipe_t pipe_id, uint32_t parser_id, uint32_t value,
                                     uint32_t mask, uint32_t *entry_hdl) {
  return DRIVER_CALL(
      "pipe_mgr_pvs_entry_add", PassThrough::handle(entry_hdl),
      [&](RecordedCall &r) {
        record_scope(r, sess_hdl, dev_id, pvs_hdl, gress, pipe_id, parser_id);
        r.call.arg_u32[2] = value;
        r.call.arg_u32[3] = mask;
        r.call.ptr_arg = entry_hdl;
      },
      [&](RecordedCall *rec, Notices &) -> bf_status_t {
        const Decl *d = decl_of(pvs_hdl);
        if (d == nullptr) return BF_OBJECT_NOT_FOUND;
        const Scope q{gress, pipe_id, parser_id};
        if (entry_hdl == nullptr || !good_scope(q) || !fits(*d, value) || !fits(*d, mask)) return BF_INVALID_ARG;
        if (const Set *s = find_set(dev_id, pvs_hdl)) {
          if (find_key(*s, q, value, mask)) return BF_ALREADY_EXISTS;
          if (s->entries.size() >= d->capacity) return BF_NO_SPACE;
        }
        auto issued = g_issued.find(dev_id);
        if (issued != g_issued.end() && issued->second >= kLastHandle) return BF_NO_SPACE;
        // Room first (each may throw; what is left behind is empty and reads as nothing), then the
        // entry, the one insertion that can fail last, then the count, which cannot fail.
        uint32_t &last = g_issued[dev_id];
        Set &s = g_sets[Key{dev_id, pvs_hdl}];
        const uint32_t hdl = last + 1;
        s.entries.emplace_hint(s.entries.end(), hdl, Entry{gress, pipe_id, parser_id, value, mask});
        last = hdl;
        *entry_hdl = hdl;
        if (rec) rec->call.ent_hdl = hdl;
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_pvs_entry_modify(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_pvs_hdl_t pvs_hdl,
                                        uint32_t entry_hdl, uint32_t value, uint32_t mask) {
  return DRIVER_CALL(
      "pipe_mgr_pvs_entry_modify", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_dev_obj(r, sess_hdl, dev_id, pvs_hdl);
        r.call.ent_hdl = entry_hdl;
        r.call.arg_u32[0] = value;
        r.call.arg_u32[1] = mask;
      },
      [&](RecordedCall *, Notices &) -> bf_status_t {
        const Decl *d = decl_of(pvs_hdl);
        if (d == nullptr) return BF_OBJECT_NOT_FOUND;
        if (!fits(*d, value) || !fits(*d, mask)) return BF_INVALID_ARG;
        Entry *e = find_entry(dev_id, pvs_hdl, entry_hdl);
        if (e == nullptr) return BF_OBJECT_NOT_FOUND;
        const Scope q{e->gress, e->pipe, e->parser};
        if (find_key(*find_set(dev_id, pvs_hdl), q, value, mask, entry_hdl)) return BF_ALREADY_EXISTS;
        e->value = value;
        e->mask = mask;
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_pvs_entry_delete(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_pvs_hdl_t pvs_hdl,
                                        uint32_t entry_hdl) {
  return DRIVER_CALL(
      "pipe_mgr_pvs_entry_delete", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_dev_obj(r, sess_hdl, dev_id, pvs_hdl);
        r.call.ent_hdl = entry_hdl;
      },
      [&](RecordedCall *, Notices &) -> bf_status_t {
        if (decl_of(pvs_hdl) == nullptr) return BF_OBJECT_NOT_FOUND;
        Set *s = find_set(dev_id, pvs_hdl);
        if (s == nullptr || s->entries.erase(entry_hdl) == 0) return BF_OBJECT_NOT_FOUND;
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_pvs_entry_get(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_pvs_hdl_t pvs_hdl,
                                     uint32_t entry_hdl, uint32_t *value, uint32_t *mask, uint32_t *gress,
                                     bf_dev_pipe_t *pipe_id, uint32_t *parser_id) {
  return DRIVER_CALL(
      "pipe_mgr_pvs_entry_get", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_dev_obj(r, sess_hdl, dev_id, pvs_hdl);
        r.call.ent_hdl = entry_hdl;
        r.call.arg_u32[0] = (value ? 1u : 0u) | (mask ? 2u : 0u) | (gress ? 4u : 0u) | (pipe_id ? 8u : 0u) |
                            (parser_id ? 16u : 0u);
        r.call.ptr_arg = value;
        r.call.ptr_arg2 = mask;
      },
      [&](RecordedCall *, Notices &) -> bf_status_t {
        if (decl_of(pvs_hdl) == nullptr) return BF_OBJECT_NOT_FOUND;
        const Entry *e = find_entry(dev_id, pvs_hdl, entry_hdl);
        if (e == nullptr) return BF_OBJECT_NOT_FOUND;
        if (value) *value = e->value;
        if (mask) *mask = e->mask;
        if (gress) *gress = e->gress;
        if (pipe_id) *pipe_id = e->pipe;
        if (parser_id) *parser_id = e->parser;
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_pvs_entry_handle_get(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_pvs_hdl_t pvs_hdl,
                                            uint32_t gress, bf_dev_pipe_t pipe_id, uint32_t parser_id,
                                            uint32_t value, uint32_t mask, uint32_t *entry_hdl) {
  return DRIVER_CALL(
      "pipe_mgr_pvs_entry_handle_get", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_scope(r, sess_hdl, dev_id, pvs_hdl, gress, pipe_id, parser_id);
        r.call.arg_u32[2] = value;
        r.call.arg_u32[3] = mask;
        r.call.ptr_arg = entry_hdl;
      },
      [&](RecordedCall *rec, Notices &) -> bf_status_t {
        if (decl_of(pvs_hdl) == nullptr) return BF_OBJECT_NOT_FOUND;
        const Scope q{gress, pipe_id, parser_id};
        if (entry_hdl == nullptr || !good_scope(q)) return BF_INVALID_ARG;
        const Set *s = find_set(dev_id, pvs_hdl);
        const uint32_t h = s ? find_key(*s, q, value, mask) : 0;
        if (h == 0) return BF_KEY_NOT_FOUND;
        *entry_hdl = h;
        if (rec) rec->call.ent_hdl = h;
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_pvs_entry_get_first(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_pvs_hdl_t pvs_hdl,
                                           uint32_t gress, bf_dev_pipe_t pipe_id, uint32_t parser_id,
                                           uint32_t *entry_hdl) {
  return DRIVER_CALL(
      "pipe_mgr_pvs_entry_get_first", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_scope(r, sess_hdl, dev_id, pvs_hdl, gress, pipe_id, parser_id);
        r.call.ptr_arg = entry_hdl;
      },
      [&](RecordedCall *rec, Notices &) -> bf_status_t {
        if (decl_of(pvs_hdl) == nullptr) return BF_OBJECT_NOT_FOUND;
        const Scope q{gress, pipe_id, parser_id};
        if (entry_hdl == nullptr || !good_scope(q)) return BF_INVALID_ARG;
        if (const Set *s = find_set(dev_id, pvs_hdl))
          for (const auto &[h, e] : s->entries)
            if (sees(q, e)) {
              *entry_hdl = h;
              if (rec) rec->call.ent_hdl = h;
              return BF_SUCCESS;
            }
        return BF_END_OF_WALK;
      });
}

pipe_status_t pipe_mgr_pvs_entry_get_next(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_pvs_hdl_t pvs_hdl,
                                          uint32_t gress, bf_dev_pipe_t pipe_id, uint32_t parser_id,
                                          uint32_t entry_hdl, int n, uint32_t *next_entry_hdls) {
  return DRIVER_CALL(
      "pipe_mgr_pvs_entry_get_next", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_scope(r, sess_hdl, dev_id, pvs_hdl, gress, pipe_id, parser_id);
        r.call.ent_hdl = entry_hdl;
        r.call.arg_u32[2] = static_cast<uint32_t>(n);
        r.call.ptr_arg = next_entry_hdls;
      },
      [&](RecordedCall *rec, Notices &) -> bf_status_t {
        if (decl_of(pvs_hdl) == nullptr) return BF_OBJECT_NOT_FOUND;
        const Scope q{gress, pipe_id, parser_id};
        if (n <= 0 || next_entry_hdls == nullptr || !good_scope(q)) return BF_INVALID_ARG;
        const Set *s = find_set(dev_id, pvs_hdl);
        if (s == nullptr) return BF_OBJECT_NOT_FOUND;
        auto it = s->entries.find(entry_hdl);
        if (it == s->entries.end() || !sees(q, it->second)) return BF_OBJECT_NOT_FOUND;
        int k = 0;
        for (++it; it != s->entries.end() && k < n; ++it)
          if (sees(q, it->second)) next_entry_hdls[k++] = it->first;
        for (int i = k; i < n; ++i) next_entry_hdls[i] = 0xFFFFFFFFu;
        if (rec) rec->call.arg_u32[3] = static_cast<uint32_t>(k);
        return k ? BF_SUCCESS : BF_END_OF_WALK;
      });
}

pipe_status_t pipe_mgr_pvs_entry_get_count(pipe_sess_hdl_t sess_hdl, bf_dev_id_t dev_id, pipe_pvs_hdl_t pvs_hdl,
                                           uint32_t gress, bf_dev_pipe_t pipe_id, uint32_t parser_id,
                                           bool read_from_hw, uint32_t *count) {
  return DRIVER_CALL(
      "pipe_mgr_pvs_entry_get_count", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_scope(r, sess_hdl, dev_id, pvs_hdl, gress, pipe_id, parser_id);
        r.call.arg_u32[2] = read_from_hw ? 1 : 0;
        r.call.ptr_arg = count;
      },
      [&](RecordedCall *rec, Notices &) -> bf_status_t {
        if (decl_of(pvs_hdl) == nullptr) return BF_OBJECT_NOT_FOUND;
        const Scope q{gress, pipe_id, parser_id};
        if (count == nullptr || !good_scope(q)) return BF_INVALID_ARG;
        uint32_t c = 0;
        if (const Set *s = find_set(dev_id, pvs_hdl))
          for (const auto &[h, e] : s->entries) c += sees(q, e) ? 1 : 0;
        *count = c;
        if (rec) rec->call.arg_u32[3] = c;
        return BF_SUCCESS;
      });
}

// ---- The model's side ----

bf_status_t drvm_declare_value_set(uint32_t pvs_hdl, uint32_t capacity, uint32_t field_bits) {
  const ModelLock lock;
  if (capacity == 0 || field_bits == 0 || field_bits > 32) return BF_INVALID_ARG;
  auto it = g_decls.find(pvs_hdl);
  if (it != g_decls.end())
    return it->second.capacity == capacity && it->second.field_bits == field_bits ? BF_SUCCESS : BF_ALREADY_EXISTS;
  try {
    g_decls.emplace(pvs_hdl, Decl{capacity, field_bits});
  } catch (const std::bad_alloc &) {
    return BF_NO_SYS_RESOURCES;
  }
  return BF_SUCCESS;
}

uint32_t drvm_pvs_entry_count(bf_dev_id_t dev, uint32_t pvs_hdl) {
  const ModelLock lock;
  const Set *s = find_set(dev, pvs_hdl);
  return s ? static_cast<uint32_t>(s->entries.size()) : 0;
}

}  // extern "C"
