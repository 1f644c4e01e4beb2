// The member-selector state objects of the action profiles: created by p4_pd_corvin_switch_init,
// one per profile in the library's canonical order, and never freed. Their contents belong to the
// p4_pd_ms_* layer; the library only hands them over.
#pragma once

#include "program.h"

extern "C" {
#include "drv/pd_ms.h"
}

namespace cv::pd {

extern p4_pd_ms_state_t *ms_states[kProfileCount];

}  // namespace cv::pd
