// The entry store: see entry_store.h for its layout.
#include "entry_store.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "model_internal.h"

namespace drvm {
namespace {

std::unordered_map<bf_dev_id_t, Device> g_devices;

// The pointer handed out for an image that is present but empty.
uint8_t g_empty_image[1];

// An entry's block, from the model's own memory: null when it runs out.
uint8_t *new_block(size_t size) { return new (std::nothrow) uint8_t[size]; }
void free_block(uint8_t *block) { delete[] block; }

inline uint64_t mix(uint64_t h, uint64_t w) {
  h = (h ^ w) * 0x9E3779B97F4A7C15ull;
  return h ^ (h >> 29);
}

void absorb(uint64_t &h, const uint8_t *p, size_t n) {
  for (; n >= 8; p += 8, n -= 8) {
    uint64_t w;
    std::memcpy(&w, p, 8);
    h = mix(h, w);
  }
  if (n) {
    uint64_t w = 0;
    std::memcpy(&w, p, n);
    h = mix(h, w ^ (static_cast<uint64_t>(n) << 56));
  }
}

bool all_zero(const void *p, size_t n) {
  const uint8_t *b = static_cast<const uint8_t *>(p);
  for (size_t i = 0; i < n; ++i)
    if (b[i]) return false;
  return true;
}

const uint8_t *image(const StoredEntry &e, uint8_t null_bit, size_t offset, size_t len) {
  if (e.null_images & null_bit) return nullptr;
  return len ? e.block + offset : g_empty_image;
}

// The action part of an entry's block: the action image, then the resource records up to the
// last one that is not all zero.
struct ActionPart {
  size_t image_bytes;
  uint8_t res_kept;
  size_t bytes() const { return image_bytes + res_kept * sizeof(pipe_res_spec_t); }
};

ActionPart action_part(const pipe_action_spec_t &a) {
  ActionPart p{a.act_data.num_action_data_bytes, 0};
  for (unsigned i = 0; i < PIPE_NUM_RES_SPECS; ++i)
    if (!all_zero(&a.resources[i], sizeof a.resources[i])) p.res_kept = static_cast<uint8_t>(i + 1);
  return p;
}

void write_action_part(uint8_t *dst, const pipe_action_spec_t &a, const ActionPart &p) {
  if (p.image_bytes) std::memcpy(dst, a.act_data.action_data_bytes, p.image_bytes);
  if (p.res_kept) std::memcpy(dst + p.image_bytes, a.resources, p.res_kept * sizeof(pipe_res_spec_t));
}

void set_action_fields(StoredEntry &e, uint32_t act_fn_hdl, const pipe_action_spec_t &a,
                       const ActionPart &p) {
  e.act_fn_hdl = act_fn_hdl;
  e.member_hdl = a.member_hdl;
  e.group_hdl = a.group_hdl;
  e.act_bits = a.act_data.num_valid_action_data_bits;
  e.act_bytes = a.act_data.num_action_data_bytes;
  e.act_reserved = a.reserved;
  e.act_type = a.action_data_type;
  e.resource_count = a.resource_count;
  e.res_kept = p.res_kept;
  e.null_images = static_cast<uint8_t>((e.null_images & ~kNullActionData) |
                                       (a.act_data.action_data_bytes ? 0 : kNullActionData));
}

// The per-entry record is what most of an entry's overhead is: keep it small.
static_assert(sizeof(StoredEntry) <= 56, "stored entry record size");

}  // namespace

uint32_t key_hash(const KeyRef &key) {
  uint64_t h = mix(0x243F6A8885A308D3ull,
                   (static_cast<uint64_t>(key.priority) << 32) | key.partition_index);
  if (key.num_bytes) {
    absorb(h, key.value, key.num_bytes);
    absorb(h, key.mask, key.num_bytes);
  }
  return static_cast<uint32_t>(h ^ (h >> 32));
}

// ---- KeyIndex ----

void KeyIndex::place(uint32_t hash, uint32_t slot_plus1) {
  size_t mask = buckets_.size() - 1;
  size_t i = hash & mask;
  while (buckets_[i].slot_plus1 != 0) i = (i + 1) & mask;
  buckets_[i] = Bucket{hash, slot_plus1};
}

void KeyIndex::reserve_one() {
  // Load factor at most 3/4.
  if ((used_ + 1) * 4 <= buckets_.size() * 3) return;
  std::vector<Bucket> old(buckets_.empty() ? 16 : 2 * buckets_.size(), Bucket{0, 0});
  old.swap(buckets_);
  for (const Bucket &b : old)
    if (b.slot_plus1 != 0) place(b.hash, b.slot_plus1);
}

void KeyIndex::insert(uint32_t hash, uint32_t slot) {
  place(hash, slot + 1);
  ++used_;
}

size_t KeyIndex::locate(uint32_t hash, uint32_t slot) const {
  const size_t mask = buckets_.size() - 1;
  size_t i = hash & mask;
  for (size_t probes = 0; buckets_[i].slot_plus1 != slot + 1; ++probes) {
    if (buckets_[i].slot_plus1 == 0 || probes == mask) {
      // The key of a stored entry is always indexed: the store is inconsistent.
      std::fprintf(stderr, "driver model: key index has no bucket for slot %u\n", slot);
      std::abort();
    }
    i = (i + 1) & mask;
  }
  return i;
}

void KeyIndex::erase(uint32_t hash, uint32_t slot) {
  const size_t mask = buckets_.size() - 1;
  size_t hole = locate(hash, slot);
  // Backward shift: move up every later bucket of the run that may live in the hole.
  for (size_t j = (hole + 1) & mask; buckets_[j].slot_plus1 != 0; j = (j + 1) & mask) {
    const size_t home = buckets_[j].hash & mask;
    // The bucket at j stays if its home lies cyclically in (hole, j].
    const bool stays = hole <= j ? (hole < home && home <= j) : (hole < home || home <= j);
    if (!stays) {
      buckets_[hole] = buckets_[j];
      hole = j;
    }
  }
  buckets_[hole] = Bucket{0, 0};
  --used_;
}

void KeyIndex::relink(uint32_t hash, uint32_t from, uint32_t to) {
  buckets_[locate(hash, from)].slot_plus1 = to + 1;
}

// ---- ActionCopy ----

ActionCopy ActionCopy::of(uint32_t act_fn_hdl, const pipe_action_spec_t &action) {
  ActionCopy c;
  c.act_fn_hdl = act_fn_hdl;
  c.spec = action;
  c.spec.act_data.action_data_bytes = nullptr;
  c.image_null = action.act_data.action_data_bytes == nullptr;
  if (!c.image_null)
    c.image.assign(action.act_data.action_data_bytes,
                   action.act_data.action_data_bytes + action.act_data.num_action_data_bytes);
  return c;
}

pipe_action_spec_t ActionCopy::view() const {
  pipe_action_spec_t s = spec;
  s.act_data.action_data_bytes =
      image_null ? nullptr : image.empty() ? g_empty_image : const_cast<uint8_t *>(image.data());
  return s;
}

// ---- StoredAction ----

// A member's fixed part is what most of its overhead is: keep it small.
static_assert(sizeof(StoredAction) <= 32, "stored action record size");

StoredAction StoredAction::of(uint32_t act_fn_hdl, const pipe_action_spec_t &action) {
  const ActionPart part = action_part(action);
  StoredAction a;
  if (part.bytes()) {
    a.block_.reset(new uint8_t[part.bytes()]);
    write_action_part(a.block_.get(), action, part);
  }
  a.act_fn_hdl_ = act_fn_hdl;
  a.member_hdl_ = action.member_hdl;
  a.group_hdl_ = action.group_hdl;
  a.bits_ = action.act_data.num_valid_action_data_bits;
  a.bytes_ = action.act_data.num_action_data_bytes;
  a.reserved_ = action.reserved;
  a.type_ = action.action_data_type;
  a.resource_count_ = action.resource_count;
  a.res_kept_ = part.res_kept;
  a.image_null_ = action.act_data.action_data_bytes == nullptr;
  return a;
}

const uint8_t *StoredAction::image() const {
  if (image_null_) return nullptr;
  return bytes_ ? block_.get() : g_empty_image;
}

pipe_action_spec_t StoredAction::view() const {
  pipe_action_spec_t s;
  std::memset(&s, 0, sizeof s);
  s.action_data_type = type_;
  s.resource_count = resource_count_;
  s.reserved = reserved_;
  s.act_data.num_valid_action_data_bits = bits_;
  s.act_data.num_action_data_bytes = bytes_;
  s.act_data.action_data_bytes = const_cast<uint8_t *>(image());
  s.member_hdl = member_hdl_;
  s.group_hdl = group_hdl_;
  if (res_kept_) std::memcpy(s.resources, block_.get() + bytes_, res_kept_ * sizeof(pipe_res_spec_t));
  return s;
}

// ---- Table and Device ----

Table::~Table() {
  for (StoredEntry &e : entries) free_block(e.block);
}

KeyRef Table::key_of(const StoredEntry &e) const {
  return KeyRef{e.block, e.block + match_bytes, match_bytes, e.priority, e.partition_index};
}

uint32_t Table::find(const KeyRef &key, uint32_t hash) const {
  return index.find(hash, [&](uint32_t slot) {
    const StoredEntry &e = entries[slot];
    if (e.priority != key.priority || e.partition_index != key.partition_index) return false;
    if (key.num_bytes == 0) return true;
    return std::memcmp(e.block, key.value, key.num_bytes) == 0 &&
           std::memcmp(e.block + key.num_bytes, key.mask, key.num_bytes) == 0;
  });
}

Device::Device() { by_handle.push_back(EntryLoc{kNoTable, kNoSlot}); }

Table *Device::find_table(uint32_t tbl_hdl) {
  auto it = table_index.find(tbl_hdl);
  return it == table_index.end() ? nullptr : tables[it->second].get();
}

Table &Device::touch_table(uint32_t tbl_hdl) {
  if (Table *t = find_table(tbl_hdl)) return *t;
  std::unique_ptr<Table> t(new Table(tbl_hdl));
  t->index_in_device = static_cast<uint32_t>(tables.size());
  room_for_one(tables);
  table_index.emplace(tbl_hdl, t->index_in_device);
  tables.push_back(std::move(t));  // cannot throw: room was made
  return *tables.back();
}

bf_status_t Device::ensure_default_hdl(Table &t) {
  if (t.default_hdl != 0) return BF_SUCCESS;
  if (by_handle.size() >= size_t{UINT32_MAX}) return BF_NO_SPACE;  // handles are 32-bit
  room_for_one(by_handle);
  t.default_hdl = static_cast<uint32_t>(by_handle.size());
  by_handle.push_back(EntryLoc{t.index_in_device, kDefaultSlot});
  return BF_SUCCESS;
}

bf_status_t Device::handle_room() {
  if (by_handle.size() >= size_t{UINT32_MAX}) return BF_NO_SPACE;  // handles are 32-bit
  room_for_one(by_handle);
  return BF_SUCCESS;
}

uint32_t Device::issue_object_handle() {
  const uint32_t hdl = static_cast<uint32_t>(by_handle.size());
  by_handle.push_back(EntryLoc{kNoTable, kNoSlot});
  return hdl;
}

// ---- Access ----

Device *store_device(bf_dev_id_t dev) {
  auto it = g_devices.find(dev);
  return it == g_devices.end() ? nullptr : &it->second;
}

Device &store_touch_device(bf_dev_id_t dev) { return g_devices[dev]; }

Table *store_table(bf_dev_id_t dev, uint32_t tbl_hdl) {
  Device *d = store_device(dev);
  return d ? d->find_table(tbl_hdl) : nullptr;
}

Lookup store_lookup(bf_dev_id_t dev, uint32_t tbl_hdl, uint32_t ent_hdl) {
  Device *d = store_device(dev);
  if (d == nullptr || ent_hdl == 0 || ent_hdl >= d->by_handle.size()) return {};
  const EntryLoc loc = d->by_handle[ent_hdl];
  if (loc.table == kNoTable) return {};
  Table *t = d->tables[loc.table].get();
  if (t->hdl != tbl_hdl) return {};
  if (loc.slot == kDefaultSlot) return Lookup{t, nullptr, true};
  return Lookup{t, &t->entries[loc.slot], false};
}

// ---- Changes ----

bf_status_t store_add(bf_dev_id_t dev, uint32_t tbl_hdl, const pipe_tbl_match_spec_t &match,
                      uint32_t act_fn_hdl, const pipe_action_spec_t &action, uint32_t ttl,
                      uint32_t *ent_hdl, Table **table) {
  const uint16_t nb = match.num_match_bytes;
  const KeyRef key{match.match_value_bytes, match.match_mask_bytes, nb, match.priority,
                   match.partition_index};

  Device &d = store_touch_device(dev);
  Table *t = d.find_table(tbl_hdl);
  const uint32_t hash = key_hash(key);
  if (t != nullptr && t->key_fixed) {
    if (!t->same_key_size(match)) return BF_INVALID_ARG;
    if (t->find(key, hash) != KeyIndex::kNone) return BF_ALREADY_EXISTS;
  }
  if (d.by_handle.size() >= size_t{UINT32_MAX}) return BF_NO_SPACE;  // handles are 32-bit

  // The entry and its block.
  const ActionPart part = action_part(action);
  const size_t size = 2 * size_t{nb} + part.bytes();
  StoredEntry e{};
  if (size) {
    e.block = new_block(size);
    if (e.block == nullptr) return BF_NO_SYS_RESOURCES;
    if (nb) {
      std::memcpy(e.block, match.match_value_bytes, nb);
      std::memcpy(e.block + nb, match.match_mask_bytes, nb);
    }
    write_action_part(e.block + 2 * nb, action, part);
  }
  e.hash = hash;
  e.partition_index = match.partition_index;
  e.priority = match.priority;
  e.match_reserved = match.reserved;
  e.ttl = ttl;
  e.null_images = static_cast<uint8_t>((match.match_value_bytes ? 0 : kNullValue) |
                                       (match.match_mask_bytes ? 0 : kNullMask));
  set_action_fields(e, act_fn_hdl, action, part);

  // Make room everywhere first, so that the commit below cannot fail half way. A table created
  // here and left empty by a failure is no different from none.
  try {
    if (t == nullptr) t = &d.touch_table(tbl_hdl);
    room_for_one(t->entries);
    t->index.reserve_one();
    t->order.reserve_one();
    room_for_one(d.by_handle);
  } catch (const std::bad_alloc &) {
    free_block(e.block);
    return BF_NO_SYS_RESOURCES;
  }

  if (!t->key_fixed) {
    t->key_fixed = true;
    t->match_bytes = nb;
    t->match_bits = match.num_valid_match_bits;
  }
  const uint32_t slot = static_cast<uint32_t>(t->entries.size());
  e.handle = static_cast<uint32_t>(d.by_handle.size());
  t->entries.push_back(e);
  t->index.insert(hash, slot);
  t->order.append(e.handle);
  d.by_handle.push_back(EntryLoc{t->index_in_device, slot});
  *ent_hdl = e.handle;
  *table = t;
  return BF_SUCCESS;
}

bf_status_t store_find_key(bf_dev_id_t dev, uint32_t tbl_hdl, const pipe_tbl_match_spec_t &match,
                           Table **table, uint32_t *slot) {
  Table *t = store_table(dev, tbl_hdl);
  if (t == nullptr || !t->key_fixed) return BF_KEY_NOT_FOUND;
  if (!t->same_key_size(match)) return BF_INVALID_ARG;
  const KeyRef key{match.match_value_bytes, match.match_mask_bytes, match.num_match_bytes,
                   match.priority, match.partition_index};
  const uint32_t s = t->find(key, key_hash(key));
  if (s == KeyIndex::kNone) return BF_KEY_NOT_FOUND;
  *table = t;
  *slot = s;
  return BF_SUCCESS;
}

bf_status_t store_set_action(Table &t, uint32_t slot, uint32_t act_fn_hdl,
                             const pipe_action_spec_t &action) {
  StoredEntry &e = t.entries[slot];
  const size_t key_bytes = 2 * size_t{t.match_bytes};
  const ActionPart part = action_part(action);
  const size_t size = key_bytes + part.bytes();
  uint8_t *block = nullptr;
  if (size) {
    block = new_block(size);
    if (block == nullptr) return BF_NO_SYS_RESOURCES;
    if (key_bytes) std::memcpy(block, e.block, key_bytes);
    write_action_part(block + key_bytes, action, part);
  }
  free_block(e.block);
  e.block = block;
  set_action_fields(e, act_fn_hdl, action, part);
  return BF_SUCCESS;
}

void store_delete(bf_dev_id_t dev, Table &t, uint32_t slot) {
  Device &d = *store_device(dev);
  StoredEntry &e = t.entries[slot];
  const uint32_t hdl = e.handle;
  t.index.erase(e.hash, slot);
  t.order.erase_at(t.order.find(hdl));
  free_block(e.block);
  d.by_handle[hdl] = EntryLoc{kNoTable, kNoSlot};
  const uint32_t last = static_cast<uint32_t>(t.entries.size() - 1);
  if (slot != last) {
    // Keep the vector without holes: the last entry moves into the freed slot.
    e = t.entries[last];
    t.index.relink(e.hash, last, slot);
    d.by_handle[e.handle].slot = slot;
  }
  t.entries.pop_back();
}

// ---- Reading ----

void store_read(const Table &t, const StoredEntry &e, pipe_tbl_match_spec_t *match,
                pipe_action_spec_t *action) {
  const size_t nb = t.match_bytes;
  if (match != nullptr) {
    std::memset(match, 0, sizeof *match);
    match->match_value_bytes = const_cast<uint8_t *>(image(e, kNullValue, 0, nb));
    match->match_mask_bytes = const_cast<uint8_t *>(image(e, kNullMask, nb, nb));
    match->partition_index = e.partition_index;
    match->priority = e.priority;
    match->num_valid_match_bits = t.match_bits;
    match->num_match_bytes = t.match_bytes;
    match->reserved = e.match_reserved;
  }
  if (action != nullptr) {
    std::memset(action, 0, sizeof *action);
    action->action_data_type = e.act_type;
    action->resource_count = e.resource_count;
    action->reserved = e.act_reserved;
    action->act_data.num_valid_action_data_bits = e.act_bits;
    action->act_data.num_action_data_bytes = e.act_bytes;
    action->act_data.action_data_bytes =
        const_cast<uint8_t *>(image(e, kNullActionData, 2 * nb, e.act_bytes));
    action->member_hdl = e.member_hdl;
    action->group_hdl = e.group_hdl;
    if (e.res_kept)
      std::memcpy(action->resources, e.block + 2 * nb + e.act_bytes,
                  e.res_kept * sizeof(pipe_res_spec_t));
  }
}

ActionView action_of(const Table &t, const StoredEntry &e) {
  ActionView v;
  v.act_fn_hdl = e.act_fn_hdl;
  store_read(t, e, nullptr, &v.spec);
  return v;
}

bf_status_t check_action_fits(const ActionView &a, const pipe_action_spec_t &out) {
  const uint16_t n = a.spec.act_data.num_action_data_bytes;
  if (n == 0) return BF_SUCCESS;
  if (out.act_data.action_data_bytes == nullptr || n > out.act_data.num_action_data_bytes)
    return BF_NO_SPACE;
  return BF_SUCCESS;
}

void write_action(const ActionView &a, pipe_action_spec_t *out, uint32_t *act_fn_hdl) {
  uint8_t *buf = out->act_data.action_data_bytes;
  const uint16_t n = a.spec.act_data.num_action_data_bytes;
  *out = a.spec;
  out->act_data.action_data_bytes = buf;
  if (n) std::memmove(buf, a.spec.act_data.action_data_bytes, n);
  if (act_fn_hdl) *act_fn_hdl = a.act_fn_hdl;
}

void reset_store() { g_devices.clear(); }

}  // namespace drvm
