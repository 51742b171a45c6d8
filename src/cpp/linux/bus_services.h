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

// The unique name of the connection that owns a name on the session bus; empty when nobody does.
// Nothing, with the reason in `error`, when the bus does not say.
std::optional<std::string> OwnerOf(GDBusConnection* bus, const char* bus_name,
                                   const Deadline& deadline, GErrorPtr* error);

// The process behind a connection's unique name; nothing when the bus does not say.
std::optional<pid_t> ProcessIdOf(GDBusConnection* bus, const std::string& unique_name,
                                 const Deadline& deadline);

// The "version" property of an object's interface. Nothing, with the reason in `error`, when it
// cannot be read. May start the service.
std::optional<uint32_t> InterfaceVersion(GDBusConnection* bus, const BusObject& object,
                                         const Deadline& deadline, GErrorPtr* error);

// Whether an error says that there is no such service, object, interface or method.
bool SaysAbsent(const GError* error);

// Remembers that the present owner of a name, or the bus where nobody owns it, lacks a service, so
// that it is not asked again before the name has another owner.
class AbsenceMemory {
 public:
  void Note(const std::string& owner) { owner_ = owner; }
  bool Knows(const std::string& owner) const { return owner_ == owner; }

 private:
  std::optional<std::string> owner_;
};

}  // namespace kiv

#endif  // SRC_CPP_LINUX_BUS_SERVICES_H_
