#ifndef SRC_CPP_LINUX_LOGGED_BUS_CALL_H_
#define SRC_CPP_LINUX_LOGGED_BUS_CALL_H_

#include "session_bus.h"

namespace kiv {

// CallSessionBus with the bus's default time-out; the reason for a failure goes into the log, after
// `request_id`, which enters JavaScript. `error` keeps it for the caller.
GVariantPtr CallSessionBusOrLog(const char* request_id, const BusObject& object, const char* method,
                                GVariant* parameters, const char* reply_type, GErrorPtr* error);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_LOGGED_BUS_CALL_H_
