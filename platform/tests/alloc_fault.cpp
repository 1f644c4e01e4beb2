// The test binary's operator new and delete: malloc and free, with the failure of alloc_fault.h.
#include "alloc_fault.h"

#include <cstdlib>
#include <new>

namespace alloc_fault {
namespace {

bool g_armed = false;
bool g_fired = false;
size_t g_left = 0;  // allocations to let through before the one that fails

// Whether this allocation is the one to fail.
bool fail_now() {
  if (!g_armed) return false;
  if (g_left > 0) {
    --g_left;
    return false;
  }
  g_armed = false;
  g_fired = true;
  return true;
}

void *allocate(size_t n, size_t align) {
  if (fail_now()) return nullptr;
  if (n == 0) n = 1;
  if (align <= alignof(std::max_align_t)) return std::malloc(n);
  void *p = nullptr;
  return posix_memalign(&p, align, n) == 0 ? p : nullptr;
}

void *allocate_or_throw(size_t n, size_t align) {
  void *p = allocate(n, align);
  if (p == nullptr) throw std::bad_alloc();
  return p;
}

}  // namespace

void arm(size_t k) {
  g_armed = true;
  g_fired = false;
  g_left = k;
}

bool disarm() {
  g_armed = false;
  return g_fired;
}

}  // namespace alloc_fault

using alloc_fault::allocate;
using alloc_fault::allocate_or_throw;
constexpr size_t kPlain = alignof(std::max_align_t);

void *operator new(size_t n) { return allocate_or_throw(n, kPlain); }
void *operator new[](size_t n) { return allocate_or_throw(n, kPlain); }
void *operator new(size_t n, const std::nothrow_t &) noexcept { return allocate(n, kPlain); }
void *operator new[](size_t n, const std::nothrow_t &) noexcept { return allocate(n, kPlain); }
void *operator new(size_t n, std::align_val_t a) { return allocate_or_throw(n, size_t(a)); }
void *operator new[](size_t n, std::align_val_t a) { return allocate_or_throw(n, size_t(a)); }
void *operator new(size_t n, std::align_val_t a, const std::nothrow_t &) noexcept { return allocate(n, size_t(a)); }
void *operator new[](size_t n, std::align_val_t a, const std::nothrow_t &) noexcept { return allocate(n, size_t(a)); }

void operator delete(void *p) noexcept { std::free(p); }
void operator delete[](void *p) noexcept { std::free(p); }
void operator delete(void *p, size_t) noexcept { std::free(p); }
void operator delete[](void *p, size_t) noexcept { std::free(p); }
void operator delete(void *p, const std::nothrow_t &) noexcept { std::free(p); }
void operator delete[](void *p, const std::nothrow_t &) noexcept { std::free(p); }
void operator delete(void *p, std::align_val_t) noexcept { std::free(p); }
void operator delete[](void *p, std::align_val_t) noexcept { std::free(p); }
void operator delete(void *p, size_t, std::align_val_t) noexcept { std::free(p); }
void operator delete[](void *p, size_t, std::align_val_t) noexcept { std::free(p); }
void operator delete(void *p, std::align_val_t, const std::nothrow_t &) noexcept { std::free(p); }
void operator delete[](void *p, std::align_val_t, const std::nothrow_t &) noexcept { std::free(p); }
