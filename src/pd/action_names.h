// The texts of the action numbers, as the reverse conversion knows them.
#pragma once

#include "program.h"

namespace cv::pd {
extern const char *const kActionNameTexts[kActionCount];
}
