// Telemetry: learning digests, parser value sets, dynamic hashes and snapshots. Each family keeps
// its store in its own file (lrn_calls.cpp, pvs_calls.cpp, hash_calls.cpp, snapshot_calls.cpp);
// drvm_reset forgets them all here.
#include "telemetry.h"

namespace drvm {

void reset_telemetry() {
  reset_learning();
  reset_value_sets();
  reset_hashes();
  reset_snapshots();
}

}  // namespace drvm
