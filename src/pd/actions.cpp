// Conversions between action numbers and their name texts.
#include <cstring>

#include "action_names.h"

extern "C" {
#include "corvin_switch/pd.h"
}

extern "C" {

// Reads the exported array at each call, so a user's change to an element shows here.
const char *p4_pd_corvin_switch_action_enum_to_string(uint32_t action) {
  if (action >= cv::pd::kActionCount) return nullptr;
  return p4_pd_corvin_switch_action_name_strings[action];
}

// A straight search over the library's own copy of the texts, in number order.
p4_pd_corvin_switch_action_enum_t p4_pd_corvin_switch_action_string_to_enum(const char *name) {
  if (name == nullptr) return p4_pd_corvin_switch_action_enum_none;
  for (uint32_t n = 0; n < cv::pd::kActionCount; ++n) {
    if (std::strcmp(name, cv::pd::kActionNameTexts[n]) == 0) return static_cast<p4_pd_corvin_switch_action_enum_t>(n);
  }
  return p4_pd_corvin_switch_action_enum_none;
}

}  // extern "C"
