// Allocation failures on purpose, for tests of what the model answers when its own memory runs out.
//
// The test binary replaces the global operator new and delete (alloc_fault.cpp), which every library
// of the process then uses, the model included. arm(k) makes the k-th allocation from then on (0: the
// next one) throw std::bad_alloc, or return null for the nothrow forms; later ones succeed again.
// Between arm and disarm only the call under test may run: the caller's own arguments are made
// before arm.
#ifndef CV_PLATFORM_ALLOC_FAULT_H
#define CV_PLATFORM_ALLOC_FAULT_H

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <utility>

#include "drv/model.h"

namespace alloc_fault {

void arm(size_t k);
// Stops failing allocations; true if one was failed since arm. A second disarm changes nothing, so
// that a callback of the model may disarm before it allocates for itself.
bool disarm();

// The sweep of every call table of the model's tests: `call(out)` from a fresh world (`restart`)
// with its k-th allocation failing, for k = 0, 1, ... until a run needs no more. Each failed run
// must answer BF_NO_SYS_RESOURCES, write nothing into its Out, make at most its own record (with
// that status), leave `state()` as it was, and pass `after()`, the caller's own checks that nothing
// else happened. Returns the status of the run that went through and the number of failed runs.
template <class Out, class Restart, class Call, class State, class After>
std::pair<bf_status_t, size_t> sweep(const std::string &what, Restart restart, Call call, State state, After after) {
  for (size_t k = 0;; ++k) {
    SCOPED_TRACE(what + ": allocation " + std::to_string(k) + " fails");
    restart();
    const std::string before = state();
    Out o;
    arm(k);
    const bf_status_t st = call(o);
    if (!disarm()) return {st, k};
    EXPECT_EQ(st, BF_NO_SYS_RESOURCES);
    EXPECT_EQ(o.written(), "");
    if (drvm_call_count() > 1) {
      ADD_FAILURE() << drvm_call_count() << " calls recorded for one";
      return {st, k};
    }
    if (drvm_call_count() == 1) {
      EXPECT_EQ(drvm_call(0)->status, BF_NO_SYS_RESOURCES);
    }
    EXPECT_EQ(state(), before);
    after();
  }
}

}  // namespace alloc_fault

#endif
