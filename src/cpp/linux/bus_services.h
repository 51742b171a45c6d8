#ifndef SRC_CPP_LINUX_BUS_SERVICES_H_
#define SRC_CPP_LINUX_BUS_SERVICES_H_

#include <optional>
#include <string>

#include "deadline.h"
#include "glib_ptr.h"

namespace kiv {

// The unique name of the connection that owns a name on the session bus; empty when nobody does.
// Nothing, with the reason in `error`, when the bus does not say.
std::optional<std::string> OwnerOf(const char* bus_name, const Deadline& deadline,
                                   GErrorPtr* error);

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
