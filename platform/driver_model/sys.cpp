// The driver's system services: debug mode, captured log lines and the counted allocator.
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <new>
#include <string>
#include <cstdint>
#include <unordered_set>

#include "drv/bf_sys.h"
#include "model_internal.h"

namespace drvm {
namespace {

struct LogLine {
  int module;
  int level;
  std::string text;
};

int g_debug_mode = 0;
std::deque<LogLine> g_log;  // a deque keeps the texts at their addresses as lines are added

// Blocks handed out by bf_sys_calloc and not yet freed, by their addresses' complements: kept so,
// the set holds no pointer to a block, and a leak checker still finds a block its owner lost. Kept
// across drvm_reset: the blocks are still somebody's memory.
std::unordered_set<uintptr_t> g_live;
uintptr_t key_of(const void *p) { return ~reinterpret_cast<uintptr_t>(p); }
bool g_fail_alloc = false;
size_t g_fail_alloc_after = 0;
size_t g_allocs_since_armed = 0;

}  // namespace

void reset_sys() {
  g_debug_mode = 0;
  g_log.clear();
  g_fail_alloc = false;
}

}  // namespace drvm

using namespace drvm;

extern "C" {

int bf_sys_dbg_mode(void) {
  const ModelLock lock;
  return g_debug_mode;
}

int bf_sys_log_and_trace(int module, int level, const char *fmt, ...) {
  if (fmt == nullptr) return -1;
  va_list ap;
  va_start(ap, fmt);
  va_list ap2;
  va_copy(ap2, ap);
  int n = std::vsnprintf(nullptr, 0, fmt, ap);
  va_end(ap);
  std::string text;
  if (n > 0) {
    text.resize(static_cast<size_t>(n) + 1);
    std::vsnprintf(&text[0], text.size(), fmt, ap2);
    text.resize(static_cast<size_t>(n));
  }
  va_end(ap2);
  const ModelLock lock;
  g_log.push_back(LogLine{module, level, std::move(text)});
  return 0;
}

void *bf_sys_calloc(size_t count, size_t size) {
  const ModelLock lock;
  if (g_fail_alloc && g_allocs_since_armed++ >= g_fail_alloc_after) return nullptr;
  if (size != 0 && count > static_cast<size_t>(-1) / size) return nullptr;
  // A request of zero bytes still gets a distinct block, so that it can be freed and counted.
  void *p = std::calloc(count && size ? count : 1, count && size ? size : 1);
  if (p == nullptr) return nullptr;
  try {
    g_live.insert(key_of(p));
  } catch (const std::bad_alloc &) {
    std::free(p);
    return nullptr;
  }
  return p;
}

void bf_sys_free(void *ptr) {
  if (ptr == nullptr) return;
  {
    const ModelLock lock;
    if (g_live.erase(key_of(ptr)) == 0) {
      std::fprintf(stderr, "bf_sys_free: %p was not allocated by bf_sys_calloc or is freed twice\n",
                   ptr);
      std::abort();
    }
  }
  std::free(ptr);
}

void drvm_set_debug_mode(int on) {
  const ModelLock lock;
  g_debug_mode = on != 0;
}

size_t drvm_log_count(void) {
  const ModelLock lock;
  return g_log.size();
}

const char *drvm_log_line(size_t i) {
  const ModelLock lock;
  return i < g_log.size() ? g_log[i].text.c_str() : nullptr;
}

int drvm_log_module(size_t i) {
  const ModelLock lock;
  return i < g_log.size() ? g_log[i].module : -1;
}

int drvm_log_level(size_t i) {
  const ModelLock lock;
  return i < g_log.size() ? g_log[i].level : -1;
}

void drvm_clear_log(void) {
  const ModelLock lock;
  g_log.clear();
}

void drvm_fail_alloc_after(size_t n) {
  const ModelLock lock;
  g_fail_alloc = true;
  g_fail_alloc_after = n;
  g_allocs_since_armed = 0;
}

void drvm_fail_alloc_off(void) {
  const ModelLock lock;
  g_fail_alloc = false;
}

size_t drvm_live_allocs(void) {
  const ModelLock lock;
  return g_live.size();
}

}  // extern "C"
