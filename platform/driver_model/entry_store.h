// The model's entry store: match-table entries, default entries, properties and update callbacks,
// per device and table.
//
// Layout, chosen for many entries and cheap adds, finds and deletes:
//  - a table keeps its entries in a vector of compact fixed-size records (StoredEntry), with no
//    holes: a delete moves the last entry into the freed slot. Each entry's variable parts (value
//    and mask images, action image, resource records that are not all zero) sit in one heap block;
//  - a table's key index is an open-addressing hash table from the key (value image, mask image,
//    priority, partition index) to the entry's slot in that vector; deletes use backward shifting,
//    so the index has no tombstones;
//  - a table's walk order (HandleOrder) is the vector of its entry handles in ascending order,
//    with a two-level bitmap of the live ones; since a device issues handles in ascending order,
//    an add appends, and a delete clears a bit (the vector is compacted when more than half of it
//    is dead);
//  - a device maps each entry handle it issued to (table, slot) in a vector indexed by handle;
//    default-entry handles map to (table, kDefaultSlot) and deleted handles to (kNoTable, kNoSlot).
#ifndef CV_DRIVER_MODEL_ENTRY_STORE_H
#define CV_DRIVER_MODEL_ENTRY_STORE_H

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

#include "drv/pipe_mgr.h"

namespace drvm {

// Grows a vector geometrically so that one push_back cannot throw. May throw std::bad_alloc.
template <class V>
void room_for_one(V &v) {
  if (v.size() == v.capacity()) v.reserve(v.capacity() < 16 ? 16 : 2 * v.capacity());
}

// An entry's key as the driver compares keys.
struct KeyRef {
  const uint8_t *value;
  const uint8_t *mask;
  uint16_t num_bytes;
  uint32_t priority;
  uint32_t partition_index;
};

uint32_t key_hash(const KeyRef &key);

enum : uint8_t { kNullValue = 1, kNullMask = 2, kNullActionData = 4 };

// One stored entry. The block holds, in order: value image, mask image (num_match_bytes each),
// action image (act_bytes), then res_kept resource records; resource records after those are
// all zero. null_images says which image pointers the caller passed as null.
struct StoredEntry {
  uint8_t *block;
  uint32_t handle;
  uint32_t hash;  // key_hash of the entry's key
  uint32_t partition_index;
  uint32_t priority;
  uint32_t match_reserved;
  uint32_t act_fn_hdl;
  uint32_t ttl;
  uint32_t member_hdl;
  uint32_t group_hdl;
  uint16_t act_bits;
  uint16_t act_bytes;
  uint16_t act_reserved;
  uint8_t act_type;
  uint8_t resource_count;
  uint8_t res_kept;
  uint8_t null_images;
};

// Hash index from key to slot: linear probing over a power-of-two array of (hash, slot + 1).
class KeyIndex {
 public:
  static constexpr uint32_t kNone = UINT32_MAX;

  // The slot of the entry with this hash for which same(slot) holds, or kNone.
  template <class Same>
  uint32_t find(uint32_t hash, Same &&same) const {
    if (buckets_.empty()) return kNone;
    size_t mask = buckets_.size() - 1;
    for (size_t i = hash & mask;; i = (i + 1) & mask) {
      const Bucket &b = buckets_[i];
      if (b.slot_plus1 == 0) return kNone;
      if (b.hash == hash && same(b.slot_plus1 - 1)) return b.slot_plus1 - 1;
    }
  }
  // Makes room for one more key, growing the array if needed. May throw std::bad_alloc.
  void reserve_one();
  // Adds a key; reserve_one must have been called for it.
  void insert(uint32_t hash, uint32_t slot);
  // Removes the key of that hash stored for that slot (which must be present).
  void erase(uint32_t hash, uint32_t slot);
  // The key of that hash stored for slot `from` now belongs to slot `to`.
  void relink(uint32_t hash, uint32_t from, uint32_t to);

 private:
  struct Bucket {
    uint32_t hash;
    uint32_t slot_plus1;  // 0: empty
  };
  void place(uint32_t hash, uint32_t slot_plus1);
  size_t locate(uint32_t hash, uint32_t slot) const;
  std::vector<Bucket> buckets_;
  size_t used_ = 0;
};

// A table's entry handles in ascending order, for walks. See the file comment.
class HandleOrder {
 public:
  static constexpr size_t npos = SIZE_MAX;

  // Makes room for one more handle. May throw std::bad_alloc.
  void reserve_one();
  // Appends a handle greater than every handle ever appended; reserve_one must have been called.
  void append(uint32_t hdl);
  // Position of a live handle, or npos.
  size_t find(uint32_t hdl) const;
  // Marks the handle at a live position dead; may compact (positions then change). No allocation.
  void erase_at(size_t pos);
  // The first live position at or after pos, or npos.
  size_t next_live(size_t pos) const;
  // The first live position, or npos.
  size_t first_live() const;
  uint32_t at(size_t pos) const { return hdls_[pos]; }
  // Remembers a position that a walk reached, to find its handle at once on the next step.
  void note(size_t pos) const { hint_ = pos; }
  size_t live() const { return hdls_.size() - dead_; }

 private:
  void compact();
  std::vector<uint32_t> hdls_;     // ascending; dead ones stay until compaction
  std::vector<uint64_t> bits_;     // bit p: position p is live
  std::vector<uint64_t> summary_;  // bit w: bits_[w] != 0
  size_t dead_ = 0;
  mutable size_t hint_ = 0;  // a position a walk reached last
  mutable size_t head_ = 0;  // no live position lies below it
};

// A deep copy of an action handle and action record (a default entry, an initial default).
struct ActionCopy {
  uint32_t act_fn_hdl = 0;
  pipe_action_spec_t spec{};  // its image pointer is not used: see image and image_null
  std::vector<uint8_t> image;
  bool image_null = true;

  // May throw std::bad_alloc.
  static ActionCopy of(uint32_t act_fn_hdl, const pipe_action_spec_t &action);
  // The record with its image pointer pointing at the copy (null if the caller's was null).
  pipe_action_spec_t view() const;
};

// An action handle and action record kept as compactly as an entry keeps its own: the fixed fields,
// and one heap block holding the action image and then the resource records up to the last one that
// is not all zero (no block when that is nothing). For the members of action data tables.
class StoredAction {
 public:
  // May throw std::bad_alloc.
  static StoredAction of(uint32_t act_fn_hdl, const pipe_action_spec_t &action);

  uint32_t act_fn_hdl() const { return act_fn_hdl_; }
  uint8_t resource_count() const { return resource_count_; }
  uint16_t image_bits() const { return bits_; }
  uint16_t image_bytes() const { return bytes_; }
  // The image; null if the caller's was null.
  const uint8_t *image() const;
  // The whole record, its image pointer pointing into the block (null if the caller's was null).
  pipe_action_spec_t view() const;

 private:
  std::unique_ptr<uint8_t[]> block_;
  uint32_t act_fn_hdl_ = 0;
  uint32_t member_hdl_ = 0;
  uint32_t group_hdl_ = 0;
  uint16_t bits_ = 0;
  uint16_t bytes_ = 0;
  uint16_t reserved_ = 0;
  uint8_t type_ = 0;
  uint8_t resource_count_ = 0;
  uint8_t res_kept_ = 0;
  bool image_null_ = true;
};

// The action side of a stored entry or of a default, for reading back into a caller's record.
struct ActionView {
  uint32_t act_fn_hdl;
  pipe_action_spec_t spec;  // image pointer into the store, or null
};

class Table {
 public:
  explicit Table(uint32_t hdl) : hdl(hdl) {}
  ~Table();
  Table(const Table &) = delete;
  Table &operator=(const Table &) = delete;

  KeyRef key_of(const StoredEntry &e) const;
  // The slot of the entry with that key, or KeyIndex::kNone.
  uint32_t find(const KeyRef &key, uint32_t hash) const;
  // Whether a match record's counts are the table's (false while no entry fixed them).
  bool same_key_size(const pipe_tbl_match_spec_t &m) const {
    return key_fixed && m.num_match_bytes == match_bytes && m.num_valid_match_bits == match_bits;
  }

  const uint32_t hdl;
  uint32_t index_in_device = 0;
  bool key_fixed = false;   // by the table's first successful add
  uint16_t match_bytes = 0;
  uint16_t match_bits = 0;
  std::vector<StoredEntry> entries;
  KeyIndex index;
  HandleOrder order;

  uint32_t default_hdl = 0;                // 0 until issued
  std::optional<ActionCopy> default_entry;  // unset while empty
  bool default_ever_set = false;           // by pipe_mgr_mat_default_entry_set
  std::optional<ActionCopy> initial_default;

  pipe_mat_update_cb update_cb = nullptr;
  void *update_cookie = nullptr;

  std::map<uint32_t, std::pair<uint32_t, uint32_t>> properties;  // code -> (value, args)
};

constexpr uint32_t kNoTable = UINT32_MAX;
constexpr uint32_t kNoSlot = UINT32_MAX;
constexpr uint32_t kDefaultSlot = UINT32_MAX - 1;

struct EntryLoc {
  uint32_t table;  // index into Device::tables, or kNoTable
  uint32_t slot;   // index into Table::entries, kDefaultSlot or kNoSlot
};

struct Device {
  Device();
  Table *find_table(uint32_t tbl_hdl);
  // May throw std::bad_alloc; a table created here is empty and shows no difference from none.
  Table &touch_table(uint32_t tbl_hdl);
  // Issues the table's default-entry handle if it has none. BF_NO_SPACE when handles ran out.
  bf_status_t ensure_default_hdl(Table &t);
  // Room for one more handle of the running count: BF_NO_SPACE when handles ran out. May throw.
  bf_status_t handle_room();
  // The next handle, for a member or group: it names no entry. handle_room made room for it.
  uint32_t issue_object_handle();

  std::vector<std::unique_ptr<Table>> tables;
  std::unordered_map<uint32_t, uint32_t> table_index;  // table handle -> index into tables
  std::vector<EntryLoc> by_handle;                      // entry handle -> location; [0] unused
};

// ---- Access ----

Device *store_device(bf_dev_id_t dev);
// May throw std::bad_alloc.
Device &store_touch_device(bf_dev_id_t dev);
Table *store_table(bf_dev_id_t dev, uint32_t tbl_hdl);

// What a handle names in a table: an entry, the table's default entry, or nothing.
struct Lookup {
  Table *table = nullptr;
  StoredEntry *entry = nullptr;
  bool is_default = false;
};
Lookup store_lookup(bf_dev_id_t dev, uint32_t tbl_hdl, uint32_t ent_hdl);

// ---- Changes. Each checks what the store knows; on refusal nothing changes. ----

// Stores an entry; the request has been checked for null pointers and a resource count over 4.
// On success writes the new handle to *ent_hdl and the table to *table.
bf_status_t store_add(bf_dev_id_t dev, uint32_t tbl_hdl, const pipe_tbl_match_spec_t &match,
                      uint32_t act_fn_hdl, const pipe_action_spec_t &action, uint32_t ttl,
                      uint32_t *ent_hdl, Table **table);

// Finds an entry by key for the by-key forms: BF_KEY_NOT_FOUND for an unknown table or key,
// BF_INVALID_ARG for a key of other sizes than the table's.
bf_status_t store_find_key(bf_dev_id_t dev, uint32_t tbl_hdl, const pipe_tbl_match_spec_t &match,
                           Table **table, uint32_t *slot);

// Replaces the action handle and record of the entry in that slot; the TTL stays.
bf_status_t store_set_action(Table &t, uint32_t slot, uint32_t act_fn_hdl,
                             const pipe_action_spec_t &action);

// Deletes the entry in that slot; its handle is never issued again. Cannot fail.
void store_delete(bf_dev_id_t dev, Table &t, uint32_t slot);

// ---- Reading ----

// Fills caller records from a stored entry; image pointers point into the store.
void store_read(const Table &t, const StoredEntry &e, pipe_tbl_match_spec_t *match,
                pipe_action_spec_t *action);
ActionView action_of(const Table &t, const StoredEntry &e);

// Copies an action into a caller's record whose act_data gives the image buffer and its capacity.
// BF_NO_SPACE (nothing written) if the image does not fit or the buffer is null.
bf_status_t check_action_fits(const ActionView &a, const pipe_action_spec_t &out);
void write_action(const ActionView &a, pipe_action_spec_t *out, uint32_t *act_fn_hdl);

}  // namespace drvm

#endif
