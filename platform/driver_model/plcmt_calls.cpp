// Placement data: copies of a table's objects as they were placed, which a client keeps and
// decodes later without a device read. A placement list owns its datums; the set of live datums
// lets the decoders refuse any other pointer.
#include <algorithm>
#include <cstring>
#include <memory>
#include <unordered_set>

#include "mat_common.h"
#include "profile_store.h"

using namespace drvm;

namespace {

enum class Kind : uint8_t { mat, adt, sel };

// One placed object. A match entry keeps its match record (images copied beside it), default flag
// and action; a member its action; a group its members and size.
struct Datum {
  Kind kind = Kind::mat;
  uint32_t hdl = 0;
  bool is_default = false;
  pipe_tbl_match_spec_t match{};  // image pointers unused: see value and mask
  std::vector<uint8_t> value, mask;
  ActionCopy action;
  uint32_t max_size = 0;
  std::vector<GroupMember> members;
};

struct List {
  std::vector<std::unique_ptr<Datum>> datums;
};

// The datums of every list not yet destroyed, under the model's lock. A list survives drvm_reset:
// it is the client's copy. A list itself is not shared with the model: it is made under the lock,
// never changed until it is destroyed, and read (count, datums) without the lock.
std::unordered_set<const void *> g_live;

// The datum at p if it is a live one of that kind, else null. Under the lock.
const Datum *live(const void *p, Kind kind) {
  if (p == nullptr || g_live.count(p) == 0) return nullptr;
  const Datum *d = static_cast<const Datum *>(p);
  return d->kind == kind ? d : nullptr;
}

// Registers a new list's datums and hands it out. May throw, registering none then.
void publish(std::unique_ptr<List> list, void **out) {
  size_t done = 0;
  try {
    for (; done < list->datums.size(); ++done) g_live.insert(list->datums[done].get());
  } catch (...) {
    for (size_t i = 0; i < done; ++i) g_live.erase(list->datums[i].get());
    throw;
  }
  *out = list.release();
}

std::unique_ptr<Datum> entry_datum(const Table &t, const StoredEntry &e) {
  auto d = std::make_unique<Datum>();
  d->hdl = e.handle;
  pipe_tbl_match_spec_t m;
  pipe_action_spec_t a;
  store_read(t, e, &m, &a);
  d->match = m;
  if (m.match_value_bytes) d->value.assign(m.match_value_bytes, m.match_value_bytes + m.num_match_bytes);
  if (m.match_mask_bytes) d->mask.assign(m.match_mask_bytes, m.match_mask_bytes + m.num_match_bytes);
  d->action = ActionCopy::of(e.act_fn_hdl, a);
  return d;
}

// Copies an action into a caller's record, its image into the buffer the record points at.
bf_status_t give_action(const ActionCopy &c, pipe_action_spec_t *out, pipe_act_fn_hdl_t *act_fn_hdl) {
  const pipe_action_spec_t v = c.view();
  const uint16_t n = v.act_data.num_action_data_bytes;
  if (n != 0 && out->act_data.action_data_bytes == nullptr) return BF_INVALID_ARG;
  write_action(ActionView{c.act_fn_hdl, v}, out, act_fn_hdl);
  return BF_SUCCESS;
}

template <class Fill>
pipe_status_t list_call(const char *fn, bf_dev_id_t dev, void **out, uint32_t tbl, Fill &&fill) {
  return DRIVER_CALL(
      fn, PassThrough::zero(),
      [&](RecordedCall &r) {
        record_mat(r, 0, all_pipes(dev), tbl);
        r.call.ptr_arg = out;
      },
      [&](RecordedCall *, Notices &) -> bf_status_t {
        if (out == nullptr) return BF_INVALID_ARG;
        auto list = std::make_unique<List>();
        fill(*list);
        publish(std::move(list), out);
        return BF_SUCCESS;
      });
}

}  // namespace

extern "C" {

pipe_status_t pipe_mgr_plcmt_mat_data_get(bf_dev_id_t dev_id, void **plcmt_list, pipe_mat_tbl_hdl_t mat_tbl_hdl) {
  return list_call("pipe_mgr_plcmt_mat_data_get", dev_id, plcmt_list, mat_tbl_hdl, [&](List &list) {
    const Table *t = store_table(dev_id, mat_tbl_hdl);
    if (t == nullptr) return;
    std::vector<const StoredEntry *> entries;
    entries.reserve(t->entries.size());
    for (const StoredEntry &e : t->entries) entries.push_back(&e);
    std::sort(entries.begin(), entries.end(),
              [](const StoredEntry *a, const StoredEntry *b) { return a->handle < b->handle; });
    list.datums.reserve(entries.size() + 1);
    for (const StoredEntry *e : entries) list.datums.push_back(entry_datum(*t, *e));
    if (t->default_entry) {
      auto d = std::make_unique<Datum>();
      d->hdl = t->default_hdl;
      d->is_default = true;
      d->action = *t->default_entry;
      list.datums.push_back(std::move(d));
    }
  });
}

pipe_status_t pipe_mgr_plcmt_adt_data_get(bf_dev_id_t dev_id, void **plcmt_list, pipe_adt_tbl_hdl_t adt_tbl_hdl) {
  return list_call("pipe_mgr_plcmt_adt_data_get", dev_id, plcmt_list, adt_tbl_hdl, [&](List &list) {
    const AdtTable *t = find_adt(dev_id, adt_tbl_hdl);
    if (t == nullptr) return;
    list.datums.reserve(t->members.size());
    for (const auto &[hdl, m] : t->members) {
      auto d = std::make_unique<Datum>();
      d->kind = Kind::adt;
      d->hdl = hdl;
      d->action = ActionCopy::of(m.action.act_fn_hdl(), m.action.view());
      list.datums.push_back(std::move(d));
    }
  });
}

pipe_status_t pipe_mgr_plcmt_sel_data_get(bf_dev_id_t dev_id, void **plcmt_list, pipe_sel_tbl_hdl_t sel_tbl_hdl) {
  return list_call("pipe_mgr_plcmt_sel_data_get", dev_id, plcmt_list, sel_tbl_hdl, [&](List &list) {
    const SelTable *t = find_sel(dev_id, sel_tbl_hdl);
    if (t == nullptr) return;
    list.datums.reserve(t->groups.size());
    for (const auto &[hdl, g] : t->groups) {
      auto d = std::make_unique<Datum>();
      d->kind = Kind::sel;
      d->hdl = hdl;
      d->max_size = g.max_size;
      d->members = g.mbrs;
      list.datums.push_back(std::move(d));
    }
  });
}

uint32_t pipe_mgr_plcmt_list_count(const void *plcmt_list) {
  return plcmt_list ? static_cast<uint32_t>(static_cast<const List *>(plcmt_list)->datums.size()) : 0;
}

void *pipe_mgr_plcmt_list_datum(const void *plcmt_list, uint32_t index, uint32_t *hdl) {
  if (plcmt_list == nullptr) return nullptr;
  const auto &datums = static_cast<const List *>(plcmt_list)->datums;
  if (index >= datums.size()) return nullptr;
  if (hdl) *hdl = datums[index]->hdl;
  return datums[index].get();
}

void pipe_mgr_plcmt_list_destroy(void *plcmt_list) {
  auto *list = static_cast<List *>(plcmt_list);
  if (list == nullptr) return;
  {
    const ModelLock lock;
    for (const auto &d : list->datums) g_live.erase(d.get());
  }
  delete list;
}

pipe_status_t pipe_mgr_plcmt_mat_data_get_entry(const void *plcmt_data, pipe_tbl_match_spec_t *match_spec,
                                                pipe_action_spec_t *act_spec, pipe_act_fn_hdl_t *act_fn_hdl) {
  return DRIVER_CALL(
      "pipe_mgr_plcmt_mat_data_get_entry", PassThrough::zero(),
      [&](RecordedCall &r) { r.call.ptr_arg = plcmt_data; },
      [&](RecordedCall *rec, Notices &) -> bf_status_t {
        const Datum *d = live(plcmt_data, Kind::mat);
        if (d == nullptr || match_spec == nullptr || act_spec == nullptr || act_fn_hdl == nullptr)
          return BF_INVALID_ARG;
        const uint16_t nb = d->is_default ? 0 : d->match.num_match_bytes;
        if (nb != 0 && (match_spec->match_value_bytes == nullptr || match_spec->match_mask_bytes == nullptr))
          return BF_INVALID_ARG;
        if (d->action.spec.act_data.num_action_data_bytes != 0 && act_spec->act_data.action_data_bytes == nullptr)
          return BF_INVALID_ARG;
        // The caller's image pointers stay; a default entry has no key bytes.
        pipe_tbl_match_spec_t m = d->is_default ? pipe_tbl_match_spec_t{} : d->match;
        m.match_value_bytes = match_spec->match_value_bytes;
        m.match_mask_bytes = match_spec->match_mask_bytes;
        if (nb) {
          std::memcpy(m.match_value_bytes, d->value.data(), nb);
          if (d->mask.empty())
            std::memset(m.match_mask_bytes, 0, nb);
          else
            std::memcpy(m.match_mask_bytes, d->mask.data(), nb);
        }
        *match_spec = m;
        give_action(d->action, act_spec, act_fn_hdl);
        if (rec) {
          rec->call.ent_hdl = d->hdl;
          rec->call.act_fn_hdl = d->action.act_fn_hdl;
        }
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_plcmt_adt_data_get_entry(const void *plcmt_data, pipe_action_spec_t *act_spec,
                                                pipe_act_fn_hdl_t *act_fn_hdl) {
  // The action handle is written before anything else, a refusal included: a decoder reads it
  // whatever the status. A datum does not change while it lives, so it is read without the lock.
  const Datum *d = nullptr;
  {
    const ModelLock lock;
    d = live(plcmt_data, Kind::adt);
  }
  if (act_fn_hdl) *act_fn_hdl = d ? d->action.act_fn_hdl : 0;
  return DRIVER_CALL(
      "pipe_mgr_plcmt_adt_data_get_entry", PassThrough::zero(),
      [&](RecordedCall &r) { r.call.ptr_arg = plcmt_data; },
      [&](RecordedCall *rec, Notices &) -> bf_status_t {
        if (d == nullptr || act_spec == nullptr || act_fn_hdl == nullptr) return BF_INVALID_ARG;
        bf_status_t st = give_action(d->action, act_spec, act_fn_hdl);
        if (rec) {
          rec->call.ent_hdl = d->hdl;
          rec->call.act_fn_hdl = d->action.act_fn_hdl;
        }
        return st;
      });
}

}  // extern "C"
