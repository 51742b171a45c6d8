#ifndef SRC_CPP_SNAP_CALLS_H_
#define SRC_CPP_SNAP_CALLS_H_

#include "conversions.h"

namespace kiv {

// getScreenSnap(type, jpeg, folder)
void GetScreenSnap(const CallInfo& info);
// getScreenSnapAsync(type, callback)
void GetScreenSnapAsync(const CallInfo& info);

}  // namespace kiv

#endif  // SRC_CPP_SNAP_CALLS_H_
