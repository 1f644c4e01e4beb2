// The assertion path: the one way the library reports a state that should not occur.
#pragma once

#include <cstdint>

#ifndef CV_ASSERT_FILE
#error "CV_ASSERT_FILE names the source path embedded in assertions; the build defines it"
#endif

namespace cv::pd {

// Soft assertions, each with the expression handed to the process's assertion handler in debug
// mode and the ready message logged otherwise.
enum class Soft : uint8_t {
  zero,          // a spec type read back or a meter type that the table does not know
  null_pointer,  // an action handle outside the table's set
  pre_color,     // a colour-aware meter type requested where pre-colouring is absent
};

// The library's own statuses: an internal inconsistency, and an allocation that failed.
inline constexpr uint32_t kStatusInconsistent = 15;
inline constexpr uint32_t kStatusNoMemory = 2;

// In debug mode: logs a backtrace and ends the process. Otherwise logs one line and returns 15.
// Called from the export's own frame: an engine function that asserts is always inlined into its
// export. The generated glue carries no unwind tables (src/CMakeLists.txt), so the backtrace goes up
// to the export that asserted and stops there.
uint32_t soft_assert(Soft which, const char *file, int line, const char *function);

// Ends the process at once through the process's assertion handler.
[[noreturn]] void hard_assert(const char *expression, const char *file, int line, const char *function);

}  // namespace cv::pd

#define CV_SOFT_ASSERT(which, function) ::cv::pd::soft_assert((which), CV_ASSERT_FILE, __LINE__, (function))
#define CV_HARD_ASSERT(expression, function) ::cv::pd::hard_assert((expression), CV_ASSERT_FILE, __LINE__, (function))
