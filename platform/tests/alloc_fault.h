// Allocation failures on purpose, for tests of what the model answers when its own memory runs out.
//
// The test binary replaces the global operator new and delete (alloc_fault.cpp), which every library
// of the process then uses, the model included. arm(k) makes the k-th allocation from then on (0: the
// next one) throw std::bad_alloc, or return null for the nothrow forms; later ones succeed again.
// Between arm and disarm only the call under test may run: the caller's own arguments are made
// before arm.
#ifndef CV_PLATFORM_ALLOC_FAULT_H
#define CV_PLATFORM_ALLOC_FAULT_H

#include <cstddef>

namespace alloc_fault {

void arm(size_t k);
// Stops failing allocations; true if one was failed since arm. A second disarm changes nothing, so
// that a callback of the model may disarm before it allocates for itself.
bool disarm();

}  // namespace alloc_fault

#endif
