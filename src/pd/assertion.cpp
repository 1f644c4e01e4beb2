#include "assertion.h"

// The assertion path calls the process's assertion handler directly, in every build.
#undef NDEBUG
#include <assert.h>
#include <execinfo.h>

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

}  // namespace

uint32_t soft_assert(Soft which, const char *file, int line, const char *function) {
  const SoftText &text = kSoft[static_cast<int>(which)];
  if (bf_sys_dbg_mode()) {
    void *frames[kBacktraceDepth];
    int depth = backtrace(frames, kBacktraceDepth);
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
