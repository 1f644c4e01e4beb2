// A table's walk order: its entry handles in ascending order, with a two-level bitmap of the live
// ones. Finding the next live position is a few word operations whatever lies between.
#include <algorithm>

#include "entry_store.h"

namespace drvm {
namespace {

inline unsigned low_bit(uint64_t w) { return static_cast<unsigned>(__builtin_ctzll(w)); }

}  // namespace

void HandleOrder::reserve_one() {
  const size_t p = hdls_.size();
  room_for_one(hdls_);
  if ((p >> 6) == bits_.size()) room_for_one(bits_);
  if ((p >> 12) == summary_.size()) room_for_one(summary_);
}

void HandleOrder::append(uint32_t hdl) {
  const size_t p = hdls_.size();
  hdls_.push_back(hdl);
  if ((p >> 6) == bits_.size()) bits_.push_back(0);
  if ((p >> 12) == summary_.size()) summary_.push_back(0);
  bits_[p >> 6] |= uint64_t{1} << (p & 63);
  summary_[p >> 12] |= uint64_t{1} << ((p >> 6) & 63);
}

size_t HandleOrder::find(uint32_t hdl) const {
  size_t p;
  if (hint_ < hdls_.size() && hdls_[hint_] == hdl) {
    p = hint_;
  } else {
    auto it = std::lower_bound(hdls_.begin(), hdls_.end(), hdl);
    if (it == hdls_.end() || *it != hdl) return npos;
    p = static_cast<size_t>(it - hdls_.begin());
  }
  return (bits_[p >> 6] >> (p & 63)) & 1 ? p : npos;
}

void HandleOrder::erase_at(size_t pos) {
  const size_t w = pos >> 6;
  bits_[w] &= ~(uint64_t{1} << (pos & 63));
  if (bits_[w] == 0) summary_[w >> 6] &= ~(uint64_t{1} << (w & 63));
  ++dead_;
  if (dead_ >= 64 && dead_ > live()) compact();
}

size_t HandleOrder::next_live(size_t pos) const {
  if (pos >= hdls_.size()) return npos;
  size_t w = pos >> 6;
  const uint64_t here = bits_[w] & (~uint64_t{0} << (pos & 63));
  if (here) return (w << 6) + low_bit(here);
  // The next word that has a live position, by the summary.
  ++w;
  size_t s = w >> 6;
  if (s >= summary_.size()) return npos;
  uint64_t sw = summary_[s] & (~uint64_t{0} << (w & 63));
  while (sw == 0) {
    if (++s >= summary_.size()) return npos;
    sw = summary_[s];
  }
  w = (s << 6) + low_bit(sw);
  return (w << 6) + low_bit(bits_[w]);
}

size_t HandleOrder::first_live() const {
  const size_t p = next_live(head_);
  head_ = p == npos ? hdls_.size() : p;
  return p;
}

void HandleOrder::compact() {
  // Move the live handles to the front, in order; no allocation.
  size_t n = 0;
  for (size_t p = next_live(0); p != npos; p = next_live(p + 1)) hdls_[n++] = hdls_[p];
  hdls_.resize(n);
  bits_.assign((n + 63) >> 6, ~uint64_t{0});
  if (n & 63) bits_.back() = (uint64_t{1} << (n & 63)) - 1;
  summary_.assign((bits_.size() + 63) >> 6, ~uint64_t{0});
  if (bits_.size() & 63) summary_.back() = (uint64_t{1} << (bits_.size() & 63)) - 1;
  dead_ = 0;
  hint_ = 0;
  head_ = 0;
}

}  // namespace drvm
