// The entry store: see entry_store.h for its layout.
#include "entry_store.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "model_internal.h"

namespace drvm {
namespace {

std::unordered_map<bf_dev_id_t, Device> g_devices;

// The pointer handed out for an image that is present but empty.
uint8_t g_empty_image[1];

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

// Grows a vector geometrically so that one push_back cannot throw.
template <class V>
void room_for_one(V &v) {
  if (v.size() == v.capacity()) v.reserve(v.capacity() < 16 ? 16 : 2 * v.capacity());
}

const uint8_t *image(const StoredEntry &e, uint8_t null_bit, size_t offset, size_t len) {
  if (e.null_images & null_bit) return nullptr;
  return len ? e.block + offset : g_empty_image;
}

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

Table::~Table() {
  for (StoredEntry &e : entries) std::free(e.block);
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

Device::Device() { by_handle.push_back(EntryLoc{UINT32_MAX, UINT32_MAX}); }

Table *Device::find_table(uint32_t tbl_hdl) {
  auto it = table_index.find(tbl_hdl);
  return it == table_index.end() ? nullptr : tables[it->second].get();
}

bf_status_t store_add(bf_dev_id_t dev, uint32_t tbl_hdl, const pipe_tbl_match_spec_t &match,
                      uint32_t act_fn_hdl, const pipe_action_spec_t &action, uint32_t ttl,
                      uint32_t *ent_hdl) {
  const uint16_t nb = match.num_match_bytes;
  const KeyRef key{match.match_value_bytes, match.match_mask_bytes, nb, match.priority,
                   match.partition_index};

  Device &d = g_devices[dev];
  Table *t = d.find_table(tbl_hdl);
  if (t != nullptr && (t->match_bytes != nb || t->match_bits != match.num_valid_match_bits))
    return BF_INVALID_ARG;
  const uint32_t hash = key_hash(key);
  if (t != nullptr && t->find(key, hash) != KeyIndex::kNone) return BF_ALREADY_EXISTS;
  if (d.by_handle.size() >= size_t{UINT32_MAX}) return BF_NO_SPACE;  // handles are 32-bit

  // The entry and its block.
  const pipe_action_data_spec_t &ad = action.act_data;
  const size_t nab = ad.num_action_data_bytes;
  uint8_t res_kept = 0;
  for (unsigned i = 0; i < PIPE_NUM_RES_SPECS; ++i)
    if (!all_zero(&action.resources[i], sizeof action.resources[i])) res_kept = i + 1;
  const size_t res_bytes = res_kept * sizeof(pipe_res_spec_t);
  const size_t size = 2 * size_t{nb} + nab + res_bytes;

  StoredEntry e{};
  if (size) {
    e.block = static_cast<uint8_t *>(std::malloc(size));
    if (e.block == nullptr) return BF_NO_SYS_RESOURCES;
    if (nb) {
      std::memcpy(e.block, match.match_value_bytes, nb);
      std::memcpy(e.block + nb, match.match_mask_bytes, nb);
    }
    if (nab) std::memcpy(e.block + 2 * nb, ad.action_data_bytes, nab);
    if (res_bytes) std::memcpy(e.block + 2 * nb + nab, action.resources, res_bytes);
  }
  e.partition_index = match.partition_index;
  e.priority = match.priority;
  e.match_reserved = match.reserved;
  e.act_fn_hdl = act_fn_hdl;
  e.ttl = ttl;
  e.member_hdl = action.member_hdl;
  e.group_hdl = action.group_hdl;
  e.act_bits = ad.num_valid_action_data_bits;
  e.act_bytes = ad.num_action_data_bytes;
  e.act_reserved = action.reserved;
  e.act_type = action.action_data_type;
  e.resource_count = action.resource_count;
  e.res_kept = res_kept;
  e.null_images = (match.match_value_bytes ? 0 : kNullValue) |
                  (match.match_mask_bytes ? 0 : kNullMask) |
                  (ad.action_data_bytes ? 0 : kNullActionData);

  // Make room everywhere first, so that the commit below cannot fail half way.
  bool created = false;
  try {
    if (t == nullptr) {
      room_for_one(d.tables);
      d.tables.push_back(std::unique_ptr<Table>(new Table(tbl_hdl, nb, match.num_valid_match_bits)));
      created = true;
      d.table_index.emplace(tbl_hdl, static_cast<uint32_t>(d.tables.size() - 1));
      t = d.tables.back().get();
    }
    room_for_one(t->entries);
    t->index.reserve_one();
    room_for_one(d.by_handle);
  } catch (const std::bad_alloc &) {
    std::free(e.block);
    if (created) {
      d.table_index.erase(tbl_hdl);
      d.tables.pop_back();
    }
    return BF_NO_SYS_RESOURCES;
  }

  const uint32_t slot = static_cast<uint32_t>(t->entries.size());
  e.handle = static_cast<uint32_t>(d.by_handle.size());
  t->entries.push_back(e);
  t->index.insert(hash, slot);
  d.by_handle.push_back(EntryLoc{d.table_index.find(tbl_hdl)->second, slot});
  *ent_hdl = e.handle;
  return BF_SUCCESS;
}

const Table *store_table(bf_dev_id_t dev, uint32_t tbl_hdl) {
  auto it = g_devices.find(dev);
  return it == g_devices.end() ? nullptr : it->second.find_table(tbl_hdl);
}

const StoredEntry *store_find(bf_dev_id_t dev, uint32_t tbl_hdl, uint32_t ent_hdl,
                              const Table **table) {
  auto it = g_devices.find(dev);
  if (it == g_devices.end()) return nullptr;
  const Device &d = it->second;
  if (ent_hdl == 0 || ent_hdl >= d.by_handle.size()) return nullptr;
  const EntryLoc loc = d.by_handle[ent_hdl];
  if (loc.table >= d.tables.size()) return nullptr;
  const Table *t = d.tables[loc.table].get();
  if (t->hdl != tbl_hdl) return nullptr;
  if (table) *table = t;
  return &t->entries[loc.slot];
}

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

void reset_store() { g_devices.clear(); }

}  // namespace drvm
