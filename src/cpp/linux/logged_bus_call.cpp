#include "logged_bus_call.h"

#include "../logging.h"

namespace kiv {

GVariantPtr CallSessionBusOrLog(const char* request_id, const BusObject& object, const char* method,
                                GVariant* parameters, const char* reply_type, GErrorPtr* error) {
  auto reply = CallSessionBus(object, method, parameters, reply_type, error);
  if (!reply) LogMessage(LogMessage::error).stream() << request_id << (*error)->message;
  return reply;
}

}  // namespace kiv
