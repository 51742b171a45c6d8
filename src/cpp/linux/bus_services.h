#ifndef SRC_CPP_LINUX_BUS_SERVICES_H_
#define SRC_CPP_LINUX_BUS_SERVICES_H_

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>

#include "deadline.h"
#include "glib_ptr.h"
#include "session_bus.h"

namespace kiv {

// Returns the unique name of the connection that owns `bus_name`, or an empty string when the name
// has no owner. Returns nothing, with the reason in `error`, when the call fails.
std::optional<std::string> OwnerOf(GDBusConnection* bus, const char* bus_name,
                                   const Deadline& deadline, GErrorPtr* error);

// Returns the process that owns a connection's unique name, or nothing when the call fails.
std::optional<pid_t> ProcessIdOf(GDBusConnection* bus, const std::string& unique_name,
                                 const Deadline& deadline);

// Returns the "version" property of the object's interface, or nothing with the reason in `error`.
// The call may start the service.
std::optional<uint32_t> InterfaceVersion(GDBusConnection* bus, const BusObject& object,
                                         const Deadline& deadline, GErrorPtr* error);

// Whether the error means that the service, object, interface or method does not exist.
bool SaysAbsent(const GError* error);

// Remembers that the name's present owner (or a bus on which the name has no owner) lacks a
// service. The service is asked again only after the name's owner has changed.
class AbsenceMemory {
 public:
  void Note(const std::string& owner) { owner_ = owner; }
  bool Knows(const std::string& owner) const { return owner_ == owner; }

 private:
  std::optional<std::string> owner_;
};

}  // namespace kiv

#endif  // SRC_CPP_LINUX_BUS_SERVICES_H_
