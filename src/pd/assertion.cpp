#include "assertion.h"

// The assertion path calls the process's assertion handler directly, in every build.
#undef NDEBUG
#include <assert.h>
#include <execinfo.h>
#include <unwind.h>

extern "C" {
#include "drv/bf_sys.h"
}

namespace cv::pd {
namespace {

struct SoftText {
  const char *expression;
  const char *message;
};

constexpr SoftText kSoft[] = {
    {"0", "ASSERTION FAILED: \"0\" (0) from %s:%d"},
    {"((void *)0)", "ASSERTION FAILED: \"((void *)0)\" (NULL) from %s:%d"},
    {"has_pre_color == 1", "ASSERTION FAILED: \"has_pre_color == 1\" (has_pre_color == true) from %s:%d"},
};

constexpr int kLogModule = 0;
constexpr int kLogLevel = 2;
constexpr int kBacktraceDepth = 128;

// The addresses of the frames from the caller up, as far as unwind tables go: to the export that
// asserted, whose glue has none (src/CMakeLists.txt). Not backtrace(): on i386 it would go on by
// frame pointers, which this library does not keep, and log made-up frames.
struct Frames {
  void **pcs;
  int count;  // -1 until this function's own frame is passed
  int max;
};

_Unwind_Reason_Code add_frame(_Unwind_Context *context, void *arg) {
  Frames &f = *static_cast<Frames *>(arg);
  if (f.count == f.max) return _URC_END_OF_STACK;
  if (f.count >= 0) f.pcs[f.count] = reinterpret_cast<void *>(_Unwind_GetIP(context));
  ++f.count;
  return _URC_NO_REASON;
}

__attribute__((noinline)) int caller_frames(void **pcs, int max) {
  Frames f{pcs, -1, max};
  _Unwind_Backtrace(add_frame, &f);
  if (f.count > 1 && pcs[f.count - 1] == nullptr) --f.count;  // the null above the process's first frame
  return f.count < 0 ? 0 : f.count;
}

}  // namespace

uint32_t soft_assert(Soft which, const char *file, int line, const char *function) {
  const SoftText &text = kSoft[static_cast<int>(which)];
  if (bf_sys_dbg_mode()) {
    void *frames[kBacktraceDepth];
    int depth = caller_frames(frames, kBacktraceDepth);
    char **lines = backtrace_symbols(frames, depth);
    if (lines && depth >= 1) {
      for (int i = 0; i < depth; ++i) bf_sys_log_and_trace(kLogModule, kLogLevel, "%s", lines[i]);
    }
    __assert_fail(text.expression, file, static_cast<unsigned>(line), function);
  }
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  bf_sys_log_and_trace(kLogModule, kLogLevel, text.message, function, line);
#pragma GCC diagnostic pop
  return kStatusInconsistent;
}

void hard_assert(const char *expression, const char *file, int line, const char *function) {
  __assert_fail(expression, file, static_cast<unsigned>(line), function);
}

}  // namespace cv::pd
