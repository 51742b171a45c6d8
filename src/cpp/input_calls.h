#ifndef SRC_CPP_INPUT_CALLS_H_
#define SRC_CPP_INPUT_CALLS_H_

#include "arguments.h"

namespace kiv {

// getInputInfo()
void GetInputInfo(const CallInfo& info);
// setInterval(callback, interval)
void SetInterval(const CallInfo& info);

}  // namespace kiv

#endif  // SRC_CPP_INPUT_CALLS_H_
