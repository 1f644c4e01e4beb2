// The driver's allocator as the library sees it in the fault-injection test: the driver model's
// bf_sys_calloc and bf_sys_free (so that its counting and its injected failures hold), wrapped to
// record each allocation the library asks for, and to hand the library a block that only the
// library points to. The model keeps a table of its live blocks, through which LeakSanitizer would
// take every block as reachable; the library's own block is not in it, so a block the library loses
// is a leak LeakSanitizer reports, with the library's frames.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace fault_alloc {

struct Allocation {
  size_t count, size;   // as asked for
  size_t calls_before;  // driver calls recorded before it
  bool failed;          // the model refused it (an injected failure)
  uintptr_t block;      // what the library got, kept as no pointer to it (0 if failed)
  bool live;            // not freed yet
};

// Starts a new record of the library's allocations.
void start();
// The allocations since start(), in order.
const std::vector<Allocation> &allocations();
// The bytes of a live block of the record (its count times its size).
std::vector<uint8_t> contents(const Allocation &a);

}  // namespace fault_alloc
