// Digest records by name: where a field lies in a raw record, and how long a record is. Pure
// functions over the program's digest layouts.
#include <cstring>

#include "assertion.h"
#include "catalog_desc.h"

extern "C" {
#include "corvin_switch/pd.h"
}

using namespace cv::pd;

namespace {

const DigestDesc *digest_named(const char *name) {
  for (const DigestDesc &d : desc::kDigests)
    if (std::strcmp(name, d.name) == 0) return &d;
  return nullptr;
}

}  // namespace

extern "C" {

// The field's address in the record and its slot's length; the bytes are as the driver stores
// them. An unknown digest or field name is a caller's error that ends the process.
P4_PD_EXPORT uint8_t *p4_pd_corvin_switch_get_digest_entry_field(void *entry, const char *digest_name,
                                                                 const char *field_name, uint32_t *len) {
  const DigestDesc *d = digest_named(digest_name);
  if (d == nullptr) CV_HARD_ASSERT("0", __func__);
  for (uint8_t i = 0; i < d->nfields; ++i) {
    if (std::strcmp(field_name, d->fields[i].name) == 0) {
      *len = d->fields[i].length;
      return static_cast<uint8_t *>(entry) + d->fields[i].offset;
    }
  }
  CV_HARD_ASSERT("0", __func__);
}

// Unlike the field lookup, an unknown name is an answer here: 0.
P4_PD_EXPORT uint32_t p4_pd_corvin_switch_get_digest_entry_size(const char *digest_name) {
  const DigestDesc *d = digest_named(digest_name);
  return d ? d->entry_bytes : 0;
}

}  // extern "C"
