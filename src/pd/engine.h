// Everything the generated glue calls: one engine function per family.
#pragma once

#include "placement.h"
#include "profile.h"
#include "resources.h"
#include "table_add.h"
#include "table_ops.h"
#include "telemetry.h"

namespace cv::pd {

template <const TableDesc &T, size_t I>
CV_INLINE int key_field_width() {
  static_assert(I < T.nfields);
  return T.fields[I].width;
}

}  // namespace cv::pd
