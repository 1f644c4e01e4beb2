// The model's entry store: match-table entries per device and table.
//
// Layout, chosen for many entries and cheap adds:
//  - a table keeps its entries in a vector of compact fixed-size records (StoredEntry); each
//    entry's variable parts (value and mask images, action image, resource records that are not all
//    zero) sit in one heap block;
//  - a table's key index is an open-addressing hash table from the key (value image, mask image,
//    priority, partition index) to the entry's slot in that vector;
//  - a device maps each entry handle it issued to (table, slot) in a vector indexed by handle.
#ifndef CV_DRIVER_MODEL_ENTRY_STORE_H
#define CV_DRIVER_MODEL_ENTRY_STORE_H

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include "drv/pipe_mgr.h"

namespace drvm {

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

 private:
  struct Bucket {
    uint32_t hash;
    uint32_t slot_plus1;  // 0: empty
  };
  void place(uint32_t hash, uint32_t slot_plus1);
  std::vector<Bucket> buckets_;
  size_t used_ = 0;
};

class Table {
 public:
  Table(uint32_t hdl, uint16_t match_bytes, uint16_t match_bits)
      : hdl(hdl), match_bytes(match_bytes), match_bits(match_bits) {}
  ~Table();
  Table(const Table &) = delete;
  Table &operator=(const Table &) = delete;

  KeyRef key_of(const StoredEntry &e) const;
  uint32_t find(const KeyRef &key, uint32_t hash) const;

  const uint32_t hdl;
  const uint16_t match_bytes;  // fixed by the table's first entry
  const uint16_t match_bits;
  std::vector<StoredEntry> entries;
  KeyIndex index;
};

struct EntryLoc {
  uint32_t table;  // index into Device::tables
  uint32_t slot;   // index into Table::entries
};

struct Device {
  Device();
  Table *find_table(uint32_t tbl_hdl);

  std::vector<std::unique_ptr<Table>> tables;
  std::unordered_map<uint32_t, uint32_t> table_index;  // table handle -> index into tables
  std::vector<EntryLoc> by_handle;                      // entry handle -> location; [0] unused
};

// Stores an entry; the request has been checked for null pointers and a resource count over 4.
// On success writes the new handle to *ent_hdl. On refusal nothing changes.
bf_status_t store_add(bf_dev_id_t dev, uint32_t tbl_hdl, const pipe_tbl_match_spec_t &match,
                      uint32_t act_fn_hdl, const pipe_action_spec_t &action, uint32_t ttl,
                      uint32_t *ent_hdl);

// The entry of that handle in that table of that device, or null.
const StoredEntry *store_find(bf_dev_id_t dev, uint32_t tbl_hdl, uint32_t ent_hdl,
                              const Table **table);
const Table *store_table(bf_dev_id_t dev, uint32_t tbl_hdl);

// Fills caller records from a stored entry; image pointers point into the store.
void store_read(const Table &t, const StoredEntry &e, pipe_tbl_match_spec_t *match,
                pipe_action_spec_t *action);

}  // namespace drvm

#endif
