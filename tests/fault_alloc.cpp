// The test binary's bf_sys_calloc and bf_sys_free (see fault_alloc.h). They take the place of the
// driver model's for every library of the process, and call the model's through the dynamic
// linker's next definition.
#include "fault_alloc.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unordered_map>

extern "C" {
#include "drv/model.h"
}

namespace fault_alloc {
namespace {

using CallocFn = void *(*)(size_t, size_t);
using FreeFn = void (*)(void *);

CallocFn model_calloc() {
  static CallocFn fn = reinterpret_cast<CallocFn>(dlsym(RTLD_NEXT, "bf_sys_calloc"));
  return fn;
}

FreeFn model_free() {
  static FreeFn fn = reinterpret_cast<FreeFn>(dlsym(RTLD_NEXT, "bf_sys_free"));
  return fn;
}

// A block's address, kept so that it is no pointer to the block: LeakSanitizer must not find the
// block through this table.
uintptr_t hide(const void *p) { return ~reinterpret_cast<uintptr_t>(p); }

struct Held {
  void *token;   // the model's block of the same size, which counts the allocation
  size_t index;  // in the record, or SIZE_MAX when the record was started again since
  size_t bytes;
};

std::unordered_map<uintptr_t, Held> &held() {
  static auto *m = new std::unordered_map<uintptr_t, Held>;
  return *m;
}

std::vector<Allocation> &record() {
  static auto *r = new std::vector<Allocation>;
  return *r;
}

}  // namespace

void start() {
  record().clear();
  for (auto &kv : held()) kv.second.index = SIZE_MAX;
}

const std::vector<Allocation> &allocations() { return record(); }

std::vector<uint8_t> contents(const Allocation &a) {
  if (!a.live || a.block == 0) return {};
  const uint8_t *p = reinterpret_cast<const uint8_t *>(~a.block);
  return std::vector<uint8_t>(p, p + a.count * a.size);
}

}  // namespace fault_alloc

using namespace fault_alloc;

extern "C" {

void *bf_sys_calloc(size_t count, size_t size) {
  Allocation a{count, size, drvm_call_count(), false, 0, false};
  void *token = model_calloc()(count, size);
  if (token == nullptr) {
    a.failed = true;
    record().push_back(a);
    return nullptr;
  }
  const size_t bytes = count && size ? count * size : 1;
  void *p = std::calloc(bytes, 1);
  if (p == nullptr) {
    model_free()(token);
    a.failed = true;
    record().push_back(a);
    return nullptr;
  }
  a.block = hide(p);
  a.live = true;
  held()[hide(p)] = Held{token, record().size(), bytes};
  record().push_back(a);
  return p;
}

void bf_sys_free(void *ptr) {
  if (ptr == nullptr) return;
  auto it = held().find(hide(ptr));
  if (it == held().end()) {
    // Not a block of the library's: the model's own check (and its abort) for a stray pointer.
    model_free()(ptr);
    return;
  }
  if (it->second.index != SIZE_MAX && it->second.index < record().size()) record()[it->second.index].live = false;
  model_free()(it->second.token);
  held().erase(it);
  std::free(ptr);
}

}  // extern "C"
