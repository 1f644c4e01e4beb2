// The resource cells: the store of counters, meters, WRED, registers and idle state (see cells.h),
// the entry hooks, and the model's API of declarations, traffic and views (drv/model_cells.h) but
// for idle time (idle_calls.cpp).
#include "cells.h"

#include <algorithm>

namespace drvm {

CellStore g_cells;

void reset_cells() { g_cells = CellStore(); }

std::vector<uint8_t> reg_values(uint64_t cells, uint32_t instances, const uint8_t *value16) {
  std::vector<uint8_t> v = make_cells<uint8_t>(cells * instances * 2 * kCellBytes);
  for (size_t at = 0; at < v.size(); at += kCellBytes) std::memcpy(&v[at], value16, kCellBytes);
  return v;
}

const ResData *EntryCells::find_res(uint32_t hdl) const {
  for (const ResData &r : res)
    if (r.hdl == hdl) return &r;
  return nullptr;
}

void EntryCells::put_res(uint32_t hdl, const uint8_t *data) {
  for (ResData &r : res)
    if (r.hdl == hdl) {
      std::memcpy(r.data, data, kResBytes);
      return;
    }
  ResData r;
  r.hdl = hdl;
  std::memcpy(r.data, data, kResBytes);
  res.push_back(r);
}

IdleEnt *IdleTable::find(uint32_t hdl) {
  auto it = std::lower_bound(ents.begin(), ents.end(), hdl, [](const IdleEnt &e, uint32_t h) { return e.hdl < h; });
  return it != ents.end() && it->hdl == hdl ? &*it : nullptr;
}

uint64_t IdleTable::remaining_us(const IdleEnt &e, uint32_t ttl) const {
  const uint64_t ttl_us = uint64_t{ttl} * 1000;
  const uint64_t aged = aged_us - e.restart;
  return aged < ttl_us ? ttl_us - aged : 0;
}

const RegisterDecl *register_decl(uint32_t hdl) {
  auto it = g_cells.registers.find(hdl);
  return it == g_cells.registers.end() ? nullptr : &it->second;
}

const RegisterDecl *any_register_decl(uint32_t hdl) {
  if (const RegisterDecl *d = register_decl(hdl)) return d;
  for (const auto &[mat, d] : g_cells.direct_registers)
    if (d.hdl == hdl) return &d;
  return nullptr;
}

bool is_meter(uint32_t hdl) {
  if (g_cells.meters.count(hdl)) return true;
  for (const auto &[mat, m] : g_cells.direct_meters)
    if (m == hdl) return true;
  return false;
}

std::vector<uint8_t> &touch_reg_cells(bf_dev_id_t dev, uint32_t hdl, const RegisterDecl &d) {
  const DevKey key = dev_key(dev, hdl);
  auto it = g_cells.reg_cells.find(key);
  if (it != g_cells.reg_cells.end()) return it->second;
  std::vector<uint8_t> v = reg_values(d.cells, d.instances, d.reset);
  return g_cells.reg_cells.emplace(key, std::move(v)).first->second;
}

const EntryCells *entry_cells(bf_dev_id_t dev, uint32_t ent) {
  auto it = g_cells.entries.find(dev_key(dev, ent));
  return it == g_cells.entries.end() ? nullptr : &it->second;
}

namespace {

// A node holding one entry's cells, not yet in the store. May throw std::bad_alloc.
EntryMap::node_type make_node(DevKey key, EntryCells cells) {
  EntryMap one;
  one.emplace(key, std::move(cells));
  return one.extract(one.begin());
}

// Puts a node's cells in place: they replace the entry's, or the node joins the map. No allocation.
void put_node(EntryMap::node_type &&node) noexcept {
  auto it = g_cells.entries.find(node.key());
  if (it != g_cells.entries.end())
    it->second = std::move(node.mapped());
  else
    g_cells.entries.insert(std::move(node));
}

}  // namespace

EntryEdit::EntryEdit(bf_dev_id_t dev, uint32_t tbl, uint32_t ent) {
  const DevKey key = dev_key(dev, ent);
  auto it = g_cells.entries.find(key);
  EntryCells cells;
  if (it != g_cells.entries.end()) {
    cells = it->second;
  } else {
    cells.tbl = tbl;
  }
  node_ = make_node(key, std::move(cells));
}

void EntryEdit::commit() noexcept { put_node(std::move(node_)); }

IdleTable *idle_table(bf_dev_id_t dev, uint32_t tbl) {
  auto it = g_cells.idle.find({dev, tbl});
  return it == g_cells.idle.end() ? nullptr : &it->second;
}

IdleTable &touch_idle_table(bf_dev_id_t dev, uint32_t tbl) {
  if (IdleTable *t = idle_table(dev, tbl)) return *t;
  IdleTable t;
  if (const Table *mt = store_table(dev, tbl)) {
    t.ents.reserve(mt->entries.size());
    for (const StoredEntry &e : mt->entries) {
      IdleEnt r;
      r.hdl = e.handle;
      t.ents.push_back(r);
    }
    std::sort(t.ents.begin(), t.ents.end(), [](const IdleEnt &a, const IdleEnt &b) { return a.hdl < b.hdl; });
  }
  return g_cells.idle.emplace(std::make_pair(dev, tbl), std::move(t)).first->second;
}

// ---- Entry hooks ----

EntryPrep cells_prepare_entry(bf_dev_id_t dev, uint32_t tbl, uint32_t ent, const pipe_action_spec_t &action) {
  EntryPrep prep;
  if (!g_cells.direct_meters.empty()) {
    auto m = g_cells.direct_meters.find(tbl);
    if (m != g_cells.direct_meters.end()) {
      // The last record naming the table's meter among those the record counts.
      const pipe_res_spec_t *rec = nullptr;
      const unsigned n = std::min<unsigned>(action.resource_count, PIPE_NUM_RES_SPECS);
      for (unsigned i = 0; i < n; ++i)
        if (action.resources[i].tbl_hdl == m->second) rec = &action.resources[i];
      if (rec != nullptr) {
        EntryCells cells;
        if (const EntryCells *now = ent ? entry_cells(dev, ent) : nullptr) {
          cells = *now;
        } else {
          cells.tbl = tbl;
        }
        cells.put_res(m->second, rec->data.bytes);
        prep.cells = make_node(dev_key(dev, ent), std::move(cells));
      }
    }
  }
  if (ent == 0 && !g_cells.idle_tables.empty() && g_cells.idle_tables.count(tbl)) {
    IdleTable &t = touch_idle_table(dev, tbl);
    room_for_one(t.ents);
    prep.idle = &t;
  }
  return prep;
}

void cells_commit_entry(EntryPrep &prep, bf_dev_id_t dev, uint32_t ent) noexcept {
  if (!prep.cells.empty()) {
    prep.cells.key() = dev_key(dev, ent);
    put_node(std::move(prep.cells));
  }
  if (prep.idle != nullptr) {
    // Handles only grow, so the new entry's record goes last.
    IdleEnt r;
    r.hdl = ent;
    r.restart = prep.idle->aged_us;
    prep.idle->ents.push_back(r);  // room was made
  }
}

void cells_forget_entry(bf_dev_id_t dev, uint32_t tbl, uint32_t ent) noexcept {
  g_cells.entries.erase(dev_key(dev, ent));
  if (IdleTable *t = idle_table(dev, tbl)) {
    if (IdleEnt *e = t->find(ent)) t->ents.erase(t->ents.begin() + (e - t->ents.data()));
  }
}

}  // namespace drvm

using namespace drvm;

namespace {

// Whether a new declaration may be made: BF_INVALID_ARG for no cells, BF_ALREADY_EXISTS for a handle
// declared already.
template <class M>
bf_status_t may_declare(const M &m, uint32_t hdl, uint32_t cells) {
  if (cells == 0) return BF_INVALID_ARG;
  return m.count(hdl) ? BF_ALREADY_EXISTS : BF_SUCCESS;
}

bf_status_t check_shape(uint32_t instances, uint32_t width) {
  return instances == 0 || instances > kMaxPipes || width == 0 || width > kCellBytes ? BF_INVALID_ARG : BF_SUCCESS;
}

// A model call that may allocate: BF_NO_SYS_RESOURCES, nothing changed, when the model's memory runs
// out (each makes room before it changes anything).
template <class F>
bf_status_t guarded(F &&f) {
  try {
    return f();
  } catch (const std::bad_alloc &) {
    return BF_NO_SYS_RESOURCES;
  }
}

// An indirect cell addressed by a model call: a declared handle (BF_OBJECT_NOT_FOUND), one pipe
// (BF_INVALID_ARG; all pipes are refused too unless allowed), an index in range (BF_INDEX_OUT_OF_RANGE).
bf_status_t check_cell(const std::unordered_map<uint32_t, uint32_t> &decls, uint32_t hdl, uint32_t pipe, uint32_t index,
                       uint32_t *cells) {
  auto it = decls.find(hdl);
  if (it == decls.end()) return BF_OBJECT_NOT_FOUND;
  if (pipe >= g_cells.num_pipes) return BF_INVALID_ARG;
  if (index >= it->second) return BF_INDEX_OUT_OF_RANGE;
  *cells = it->second;
  return BF_SUCCESS;
}

}  // namespace

extern "C" {

// ---- Pipes and declarations ----

bf_status_t drvm_set_num_pipes(uint32_t num_pipes) {
  const ModelLock lock;
  if (num_pipes == 0 || num_pipes > kMaxPipes) return BF_INVALID_ARG;
  const CellStore &c = g_cells;
  if (!c.stat_cells.empty() || !c.meter_cells.empty() || !c.wred_cells.empty() || !c.bytecount.empty())
    return BF_IN_USE;
  g_cells.num_pipes = num_pipes;
  return BF_SUCCESS;
}

uint32_t drvm_num_pipes(void) {
  const ModelLock lock;
  return g_cells.num_pipes;
}

bf_status_t drvm_declare_counter(uint32_t stat_tbl_hdl, uint32_t num_cells) {
  const ModelLock lock;
  if (bf_status_t st = may_declare(g_cells.counters, stat_tbl_hdl, num_cells)) return st;
  return guarded([&] {
    g_cells.counters.emplace(stat_tbl_hdl, num_cells);
    return BF_SUCCESS;
  });
}

bf_status_t drvm_declare_meter(uint32_t meter_tbl_hdl, uint32_t num_cells) {
  const ModelLock lock;
  if (bf_status_t st = may_declare(g_cells.meters, meter_tbl_hdl, num_cells)) return st;
  return guarded([&] {
    g_cells.meters.emplace(meter_tbl_hdl, num_cells);
    return BF_SUCCESS;
  });
}

bf_status_t drvm_declare_wred(uint32_t wred_tbl_hdl, uint32_t num_cells) {
  const ModelLock lock;
  if (bf_status_t st = may_declare(g_cells.wreds, wred_tbl_hdl, num_cells)) return st;
  return guarded([&] {
    g_cells.wreds.emplace(wred_tbl_hdl, num_cells);
    return BF_SUCCESS;
  });
}

bf_status_t drvm_declare_direct_meter(uint32_t mat_tbl_hdl, uint32_t meter_tbl_hdl) {
  const ModelLock lock;
  if (g_cells.direct_meters.count(mat_tbl_hdl)) return BF_ALREADY_EXISTS;
  return guarded([&] {
    g_cells.direct_meters.emplace(mat_tbl_hdl, meter_tbl_hdl);
    return BF_SUCCESS;
  });
}

bf_status_t drvm_declare_register(uint32_t stful_tbl_hdl, uint32_t num_cells, uint32_t num_pipe_instances,
                                  uint32_t cell_bytes, const pipe_stful_mem_spec_t *reset_value) {
  const ModelLock lock;
  if (bf_status_t st = may_declare(g_cells.registers, stful_tbl_hdl, num_cells)) return st;
  if (bf_status_t st = check_shape(num_pipe_instances, cell_bytes)) return st;
  RegisterDecl d;
  d.cells = num_cells;
  d.instances = num_pipe_instances;
  d.width = cell_bytes;
  d.hdl = stful_tbl_hdl;
  if (reset_value != nullptr) std::memcpy(d.reset, masked(reset_value->bytes, cell_bytes).bytes, kCellBytes);
  return guarded([&] {
    g_cells.registers.emplace(stful_tbl_hdl, d);
    return BF_SUCCESS;
  });
}

bf_status_t drvm_declare_direct_register(uint32_t mat_tbl_hdl, uint32_t stful_tbl_hdl, uint32_t num_pipe_instances,
                                         uint32_t cell_bytes) {
  const ModelLock lock;
  if (g_cells.direct_registers.count(mat_tbl_hdl)) return BF_ALREADY_EXISTS;
  if (bf_status_t st = check_shape(num_pipe_instances, cell_bytes)) return st;
  RegisterDecl d;
  d.cells = 1;
  d.instances = num_pipe_instances;
  d.width = cell_bytes;
  d.hdl = stful_tbl_hdl;
  return guarded([&] {
    g_cells.direct_registers.emplace(mat_tbl_hdl, d);
    return BF_SUCCESS;
  });
}

bf_status_t drvm_declare_idle_table(uint32_t mat_tbl_hdl) {
  const ModelLock lock;
  if (g_cells.idle_tables.count(mat_tbl_hdl)) return BF_ALREADY_EXISTS;
  return guarded([&] {
    g_cells.idle_tables.insert(mat_tbl_hdl);
    return BF_SUCCESS;
  });
}

// ---- Traffic ----

bf_status_t drvm_stat_count(bf_dev_id_t dev, bf_dev_pipe_t pipe, uint32_t stat_tbl_hdl, uint32_t index,
                            uint64_t packets, uint64_t bytes) {
  const ModelLock lock;
  uint32_t cells = 0;
  if (bf_status_t st = check_cell(g_cells.counters, stat_tbl_hdl, pipe, index, &cells)) return st;
  return guarded([&] {
    std::vector<StatCell> &v =
        touch_cells(g_cells.stat_cells, dev_key(dev, stat_tbl_hdl), uint64_t{cells} * g_cells.num_pipes);
    StatCell &c = v[size_t{pipe} * cells + index];
    c.hw.packets += packets;
    c.hw.bytes += bytes;
    return BF_SUCCESS;
  });
}

bf_status_t drvm_stat_direct_count(bf_dev_id_t dev, uint32_t mat_tbl_hdl, uint32_t ent_hdl, uint64_t packets,
                                   uint64_t bytes) {
  const ModelLock lock;
  if (entry_of(dev, mat_tbl_hdl, ent_hdl) == nullptr) return BF_OBJECT_NOT_FOUND;
  return guarded([&] {
    EntryEdit edit(dev, mat_tbl_hdl, ent_hdl);
    edit.cells().stat.hw.packets += packets;
    edit.cells().stat.hw.bytes += bytes;
    edit.commit();
    return BF_SUCCESS;
  });
}

bf_status_t drvm_register_hw_write(bf_dev_id_t dev, bf_dev_pipe_t pipe, uint32_t stful_tbl_hdl, uint32_t index,
                                   const pipe_stful_mem_spec_t *value) {
  const ModelLock lock;
  if (value == nullptr) return BF_INVALID_ARG;
  const RegisterDecl *d = register_decl(stful_tbl_hdl);
  if (d == nullptr) return BF_OBJECT_NOT_FOUND;
  Pipes p;
  if (!pipes_of(pipe, d->instances, &p)) return BF_INVALID_ARG;
  if (index >= d->cells) return BF_INDEX_OUT_OF_RANGE;
  return guarded([&] {
    std::vector<uint8_t> &v = touch_reg_cells(dev, stful_tbl_hdl, *d);
    const pipe_stful_mem_spec_t m = masked(value->bytes, d->width);
    for (uint32_t i = p.first; i < p.end; ++i)
      std::memcpy(&v[reg_offset(d->instances, index, i, false)], &m, kCellBytes);
    return BF_SUCCESS;
  });
}

bf_status_t drvm_register_direct_hw_write(bf_dev_id_t dev, uint32_t mat_tbl_hdl, uint32_t ent_hdl, bf_dev_pipe_t pipe,
                                          const pipe_stful_mem_spec_t *value) {
  const ModelLock lock;
  if (value == nullptr) return BF_INVALID_ARG;
  auto it = g_cells.direct_registers.find(mat_tbl_hdl);
  if (it == g_cells.direct_registers.end()) return BF_OBJECT_NOT_FOUND;
  const RegisterDecl &d = it->second;
  Pipes p;
  if (!pipes_of(pipe, d.instances, &p)) return BF_INVALID_ARG;
  if (entry_of(dev, mat_tbl_hdl, ent_hdl) == nullptr) return BF_OBJECT_NOT_FOUND;
  return guarded([&] {
    EntryEdit edit(dev, mat_tbl_hdl, ent_hdl);
    std::vector<uint8_t> &v = edit.cells().reg;
    if (v.empty()) v = make_cells<uint8_t>(uint64_t{d.instances} * 2 * kCellBytes);
    const pipe_stful_mem_spec_t m = masked(value->bytes, d.width);
    for (uint32_t i = p.first; i < p.end; ++i) std::memcpy(&v[reg_offset(d.instances, 0, i, false)], &m, kCellBytes);
    edit.commit();
    return BF_SUCCESS;
  });
}

// ---- Views ----

bf_status_t drvm_stat_get(bf_dev_id_t dev, bf_dev_pipe_t pipe, uint32_t stat_tbl_hdl, uint32_t index,
                          pipe_stat_data_t *hw, pipe_stat_data_t *sw) {
  const ModelLock lock;
  uint32_t cells = 0;
  if (bf_status_t st = check_cell(g_cells.counters, stat_tbl_hdl, pipe, index, &cells)) return st;
  StatCell c{};
  auto it = g_cells.stat_cells.find(dev_key(dev, stat_tbl_hdl));
  if (it != g_cells.stat_cells.end()) c = it->second[size_t{pipe} * cells + index];
  if (hw) *hw = c.hw;
  if (sw) *sw = c.sw;
  return BF_SUCCESS;
}

bf_status_t drvm_stat_direct_get(bf_dev_id_t dev, uint32_t mat_tbl_hdl, uint32_t ent_hdl, pipe_stat_data_t *hw,
                                 pipe_stat_data_t *sw) {
  const ModelLock lock;
  if (entry_of(dev, mat_tbl_hdl, ent_hdl) == nullptr) return BF_OBJECT_NOT_FOUND;
  StatCell c{};
  if (const EntryCells *e = entry_cells(dev, ent_hdl)) c = e->stat;
  if (hw) *hw = c.hw;
  if (sw) *sw = c.sw;
  return BF_SUCCESS;
}

bf_status_t drvm_meter_get(bf_dev_id_t dev, bf_dev_pipe_t pipe, uint32_t meter_tbl_hdl, uint32_t index,
                           pipe_meter_spec_t *spec) {
  const ModelLock lock;
  uint32_t cells = 0;
  if (bf_status_t st = check_cell(g_cells.meters, meter_tbl_hdl, pipe, index, &cells)) return st;
  pipe_meter_spec_t m;
  std::memset(&m, 0, sizeof m);
  auto it = g_cells.meter_cells.find(dev_key(dev, meter_tbl_hdl));
  if (it != g_cells.meter_cells.end()) m = it->second[size_t{pipe} * cells + index];
  if (spec) *spec = m;
  return BF_SUCCESS;
}

bf_status_t drvm_meter_bytecount_adjust(bf_dev_id_t dev, bf_dev_pipe_t pipe, uint32_t meter_tbl_hdl,
                                        int32_t *bytecount) {
  const ModelLock lock;
  if (!is_meter(meter_tbl_hdl)) return BF_OBJECT_NOT_FOUND;
  if (pipe >= g_cells.num_pipes) return BF_INVALID_ARG;
  int32_t v = 0;
  auto it = g_cells.bytecount.find(dev_key(dev, meter_tbl_hdl));
  if (it != g_cells.bytecount.end()) v = it->second[pipe];
  if (bytecount) *bytecount = v;
  return BF_SUCCESS;
}

bf_status_t drvm_wred_get(bf_dev_id_t dev, bf_dev_pipe_t pipe, uint32_t wred_tbl_hdl, uint32_t index,
                          pipe_wred_spec_t *spec) {
  const ModelLock lock;
  uint32_t cells = 0;
  if (bf_status_t st = check_cell(g_cells.wreds, wred_tbl_hdl, pipe, index, &cells)) return st;
  pipe_wred_spec_t w;
  std::memset(&w, 0, sizeof w);
  auto it = g_cells.wred_cells.find(dev_key(dev, wred_tbl_hdl));
  if (it != g_cells.wred_cells.end()) w = it->second[size_t{pipe} * cells + index];
  if (spec) *spec = w;
  return BF_SUCCESS;
}

bf_status_t drvm_register_get(bf_dev_id_t dev, bf_dev_pipe_t pipe, uint32_t stful_tbl_hdl, uint32_t index,
                              pipe_stful_mem_spec_t *hw, pipe_stful_mem_spec_t *sw) {
  const ModelLock lock;
  const RegisterDecl *d = register_decl(stful_tbl_hdl);
  if (d == nullptr) return BF_OBJECT_NOT_FOUND;
  if (pipe >= d->instances) return BF_INVALID_ARG;
  if (index >= d->cells) return BF_INDEX_OUT_OF_RANGE;
  const uint8_t *h = d->reset, *s = d->reset;
  auto it = g_cells.reg_cells.find(dev_key(dev, stful_tbl_hdl));
  if (it != g_cells.reg_cells.end()) {
    h = &it->second[reg_offset(d->instances, index, pipe, false)];
    s = &it->second[reg_offset(d->instances, index, pipe, true)];
  }
  if (hw) std::memcpy(hw, h, kCellBytes);
  if (sw) std::memcpy(sw, s, kCellBytes);
  return BF_SUCCESS;
}

bf_status_t drvm_register_direct_get(bf_dev_id_t dev, uint32_t mat_tbl_hdl, uint32_t ent_hdl, bf_dev_pipe_t pipe,
                                     pipe_stful_mem_spec_t *hw, pipe_stful_mem_spec_t *sw) {
  const ModelLock lock;
  auto it = g_cells.direct_registers.find(mat_tbl_hdl);
  if (it == g_cells.direct_registers.end()) return BF_OBJECT_NOT_FOUND;
  if (pipe >= it->second.instances) return BF_INVALID_ARG;
  if (entry_of(dev, mat_tbl_hdl, ent_hdl) == nullptr) return BF_OBJECT_NOT_FOUND;
  static const uint8_t zero[kCellBytes] = {};
  const uint8_t *h = zero, *s = zero;
  const EntryCells *e = entry_cells(dev, ent_hdl);
  if (e != nullptr && !e->reg.empty()) {
    h = &e->reg[reg_offset(it->second.instances, 0, pipe, false)];
    s = &e->reg[reg_offset(it->second.instances, 0, pipe, true)];
  }
  if (hw) std::memcpy(hw, h, kCellBytes);
  if (sw) std::memcpy(sw, s, kCellBytes);
  return BF_SUCCESS;
}

bf_status_t drvm_entry_resource_get(bf_dev_id_t dev, uint32_t mat_tbl_hdl, uint32_t ent_hdl, uint32_t res_hdl,
                                    uint8_t *data) {
  const ModelLock lock;
  if (entry_of(dev, mat_tbl_hdl, ent_hdl) == nullptr) return BF_OBJECT_NOT_FOUND;
  const EntryCells *e = entry_cells(dev, ent_hdl);
  const ResData *r = e ? e->find_res(res_hdl) : nullptr;
  if (r == nullptr) return BF_OBJECT_NOT_FOUND;
  if (data) std::memcpy(data, r->data, kResBytes);
  return BF_SUCCESS;
}

size_t drvm_direct_cell_count(void) {
  const ModelLock lock;
  return g_cells.entries.size();
}

}  // extern "C"
