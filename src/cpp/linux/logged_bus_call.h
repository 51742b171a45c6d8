#ifndef SRC_CPP_LINUX_LOGGED_BUS_CALL_H_
#define SRC_CPP_LINUX_LOGGED_BUS_CALL_H_

#include "session_bus.h"

namespace kiv {

// Calls CallSessionBus with the bus's default time-out. On failure logs `request_id` and the
// reason, which enters JavaScript, and sets `error`.
GVariantPtr CallSessionBusOrLog(const char* request_id, const BusObject& object, const char* method,
                                GVariant* parameters, const char* reply_type, GErrorPtr* error);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_LOGGED_BUS_CALL_H_
