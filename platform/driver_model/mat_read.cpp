// Reading the driver's tables: an entry by handle, a handle by key, walks and counts. The walks and
// counts serve the three kinds of table alike: a match table's entries, an action data table's
// members and a selector table's groups.
#include <cstring>
#include <map>

#include "mat_common.h"
#include "profile_store.h"

using namespace drvm;

namespace {

// The members of an action data table, or the groups of a selector table, visible on a pipe, as a
// walk sees them: ascending handles.
template <class Map>
struct ProfileWalk {
  const Map &objects;
  uint32_t pipe;

  typename Map::const_iterator next_visible(typename Map::const_iterator it) const {
    while (it != objects.end() && !visible(it->second.pipe, pipe)) ++it;
    return it;
  }
  bf_status_t first(uint32_t *hdl) const {
    auto it = next_visible(objects.begin());
    if (it == objects.end()) return BF_END_OF_WALK;
    *hdl = it->first;
    return BF_SUCCESS;
  }
  bf_status_t next(uint32_t start, int n, uint32_t *out, uint32_t *written) const {
    auto at = objects.find(start);
    if (at == objects.end() || !visible(at->second.pipe, pipe)) return BF_OBJECT_NOT_FOUND;
    int k = 0;
    for (auto it = next_visible(std::next(at)); it != objects.end() && k < n; it = next_visible(std::next(it)))
      out[k++] = it->first;
    for (int i = k; i < n; ++i) out[i] = 0xFFFFFFFFu;
    *written = static_cast<uint32_t>(k);
    return k ? BF_SUCCESS : BF_END_OF_WALK;
  }
  uint32_t count() const {
    uint32_t c = 0;
    for (const auto &kv : objects) c += visible(kv.second.pipe, pipe) ? 1 : 0;
    return c;
  }
};

// Runs `on(walk)` over the table a handle names on a device: its members or its groups if it is an
// action data or selector table there; otherwise returns false.
template <class F>
bool with_profile_walk(bf_dev_id_t dev, uint32_t tbl, uint32_t pipe, F &&on) {
  if (const AdtTable *t = find_adt(dev, tbl)) {
    on(ProfileWalk<std::map<uint32_t, Member>>{t->members, pipe});
    return true;
  }
  if (const SelTable *t = find_sel(dev, tbl)) {
    on(ProfileWalk<std::map<uint32_t, Group>>{t->groups, pipe});
    return true;
  }
  return false;
}

}  // namespace

extern "C" {

pipe_status_t pipe_mgr_get_entry(pipe_sess_hdl_t sess_hdl, pipe_mat_tbl_hdl_t mat_tbl_hdl, dev_target_t dev_tgt,
                                 pipe_mat_ent_hdl_t mat_ent_hdl, pipe_tbl_match_spec_t *match_spec,
                                 pipe_action_spec_t *act_spec, pipe_act_fn_hdl_t *act_fn_hdl_p, bool from_hw,
                                 uint32_t res_get_flags, void *res_data) {
  return DRIVER_CALL(
      "pipe_mgr_get_entry", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_mat(r, sess_hdl, dev_tgt, mat_tbl_hdl);
        r.call.ent_hdl = mat_ent_hdl;
        r.call.arg_u32[0] = from_hw ? 1 : 0;
        r.call.arg_u32[1] = res_get_flags;
        r.call.ptr_arg = res_data;
        r.copy_match(match_spec);
        r.copy_action(act_spec);
      },
      [&](RecordedCall *rec, Notices &) -> bf_status_t {
        if (match_spec == nullptr || act_spec == nullptr || act_fn_hdl_p == nullptr) return BF_INVALID_ARG;
        const Lookup l = store_lookup(dev_tgt.device_id, mat_tbl_hdl, mat_ent_hdl);
        if (l.is_default) {
          // The default entry reads back with no value image and no key bytes.
          if (!l.table->default_entry) return BF_OBJECT_NOT_FOUND;
          const ActionView v{l.table->default_entry->act_fn_hdl, l.table->default_entry->view()};
          bf_status_t st = check_action_fits(v, *act_spec);
          if (st != BF_SUCCESS) return st;
          match_spec->match_value_bytes = nullptr;
          match_spec->num_match_bytes = 0;
          match_spec->priority = 0;
          match_spec->partition_index = 0;
          write_action(v, act_spec, act_fn_hdl_p);
          if (rec) rec->call.act_fn_hdl = v.act_fn_hdl;
          return BF_SUCCESS;
        }
        if (l.entry == nullptr) return BF_OBJECT_NOT_FOUND;
        const Table &t = *l.table;
        const StoredEntry &e = *l.entry;
        const uint16_t nb = t.match_bytes;
        if (match_spec->num_match_bytes != nb) return BF_INVALID_ARG;
        if (nb != 0 && (match_spec->match_value_bytes == nullptr || match_spec->match_mask_bytes == nullptr))
          return BF_INVALID_ARG;
        const ActionView v = action_of(t, e);
        bf_status_t st = check_action_fits(v, *act_spec);
        if (st != BF_SUCCESS) return st;
        if (nb) {
          std::memmove(match_spec->match_value_bytes, e.block, nb);
          std::memmove(match_spec->match_mask_bytes, e.block + nb, nb);
        }
        match_spec->priority = e.priority;
        match_spec->partition_index = e.partition_index;
        write_action(v, act_spec, act_fn_hdl_p);
        if (rec) rec->call.act_fn_hdl = v.act_fn_hdl;
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_match_spec_to_ent_hdl(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                             pipe_mat_tbl_hdl_t mat_tbl_hdl, pipe_tbl_match_spec_t *match_spec,
                                             pipe_mat_ent_hdl_t *ent_hdl_p, bool light_pipe_validation) {
  return DRIVER_CALL(
      "pipe_mgr_match_spec_to_ent_hdl", PassThrough::handle(ent_hdl_p),
      [&](RecordedCall &r) {
        record_mat(r, sess_hdl, dev_tgt, mat_tbl_hdl);
        r.call.arg_u32[0] = light_pipe_validation ? 1 : 0;
        r.call.ptr_arg = ent_hdl_p;
        r.copy_match(match_spec);
      },
      [&](RecordedCall *rec, Notices &) -> bf_status_t {
        if (bad_match(match_spec) || ent_hdl_p == nullptr) return BF_INVALID_ARG;
        Table *t = nullptr;
        uint32_t slot = 0;
        bf_status_t st = store_find_key(dev_tgt.device_id, mat_tbl_hdl, *match_spec, &t, &slot);
        if (st != BF_SUCCESS) return st;
        *ent_hdl_p = t->entries[slot].handle;
        if (rec) rec->call.ent_hdl = *ent_hdl_p;
        return BF_SUCCESS;
      });
}

pipe_status_t pipe_mgr_get_first_entry_handle(pipe_sess_hdl_t sess_hdl, pipe_mat_tbl_hdl_t mat_tbl_hdl,
                                              dev_target_t dev_tgt, pipe_mat_ent_hdl_t *ent_hdl_p) {
  return DRIVER_CALL(
      "pipe_mgr_get_first_entry_handle", PassThrough::handle(ent_hdl_p),
      [&](RecordedCall &r) {
        record_mat(r, sess_hdl, dev_tgt, mat_tbl_hdl);
        r.call.ptr_arg = ent_hdl_p;
      },
      [&](RecordedCall *rec, Notices &) -> bf_status_t {
        if (ent_hdl_p == nullptr) return BF_INVALID_ARG;
        bf_status_t st = BF_END_OF_WALK;
        if (!with_profile_walk(dev_tgt.device_id, mat_tbl_hdl, dev_tgt.dev_pipe_id,
                               [&](const auto &w) { st = w.first(ent_hdl_p); })) {
          const Table *t = store_table(dev_tgt.device_id, mat_tbl_hdl);
          if (t == nullptr) return BF_END_OF_WALK;
          const size_t p = t->order.first_live();
          if (p == HandleOrder::npos) return BF_END_OF_WALK;
          t->order.note(p);
          *ent_hdl_p = t->order.at(p);
          st = BF_SUCCESS;
        }
        if (rec && st == BF_SUCCESS) rec->call.ent_hdl = *ent_hdl_p;
        return st;
      });
}

pipe_status_t pipe_mgr_get_next_entry_handles(pipe_sess_hdl_t sess_hdl, pipe_mat_tbl_hdl_t mat_tbl_hdl,
                                              dev_target_t dev_tgt, pipe_mat_ent_hdl_t mat_ent_hdl, int n,
                                              pipe_mat_ent_hdl_t *next_ent_hdls) {
  return DRIVER_CALL(
      "pipe_mgr_get_next_entry_handles", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_mat(r, sess_hdl, dev_tgt, mat_tbl_hdl);
        r.call.ent_hdl = mat_ent_hdl;
        r.call.arg_u32[0] = static_cast<uint32_t>(n);
        r.call.ptr_arg = next_ent_hdls;
      },
      [&](RecordedCall *rec, Notices &) -> bf_status_t {
        if (n <= 0 || next_ent_hdls == nullptr) return BF_INVALID_ARG;
        uint32_t written = 0;
        bf_status_t st = BF_OBJECT_NOT_FOUND;
        if (!with_profile_walk(dev_tgt.device_id, mat_tbl_hdl, dev_tgt.dev_pipe_id,
                               [&](const auto &w) { st = w.next(mat_ent_hdl, n, next_ent_hdls, &written); })) {
          const Lookup l = store_lookup(dev_tgt.device_id, mat_tbl_hdl, mat_ent_hdl);
          if (l.entry == nullptr) return BF_OBJECT_NOT_FOUND;
          const HandleOrder &order = l.table->order;
          size_t last = order.find(mat_ent_hdl);
          int k = 0;
          while (k < n) {
            const size_t p = order.next_live(last + 1);
            if (p == HandleOrder::npos) break;
            next_ent_hdls[k++] = order.at(p);
            last = p;
          }
          order.note(last);
          for (int i = k; i < n; ++i) next_ent_hdls[i] = 0xFFFFFFFFu;
          written = static_cast<uint32_t>(k);
          st = k ? BF_SUCCESS : BF_END_OF_WALK;
        }
        if (rec) rec->call.arg_u32[1] = written;
        return st;
      });
}

pipe_status_t pipe_mgr_get_entry_count(pipe_sess_hdl_t sess_hdl, dev_target_t dev_tgt,
                                       pipe_mat_tbl_hdl_t mat_tbl_hdl, bool read_from_hw, uint32_t *count_p) {
  return DRIVER_CALL(
      "pipe_mgr_get_entry_count", PassThrough::zero(),
      [&](RecordedCall &r) {
        record_mat(r, sess_hdl, dev_tgt, mat_tbl_hdl);
        r.call.arg_u32[0] = read_from_hw ? 1 : 0;
        r.call.ptr_arg = count_p;
      },
      [&](RecordedCall *rec, Notices &) -> bf_status_t {
        if (count_p == nullptr) return BF_INVALID_ARG;
        if (!with_profile_walk(dev_tgt.device_id, mat_tbl_hdl, dev_tgt.dev_pipe_id,
                               [&](const auto &w) { *count_p = w.count(); })) {
          const Table *t = store_table(dev_tgt.device_id, mat_tbl_hdl);
          *count_p = t ? static_cast<uint32_t>(t->entries.size()) : 0;
        }
        if (rec) rec->call.arg_u32[1] = *count_p;
        return BF_SUCCESS;
      });
}

}  // extern "C"
