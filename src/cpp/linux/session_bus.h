#ifndef SRC_CPP_LINUX_SESSION_BUS_H_
#define SRC_CPP_LINUX_SESSION_BUS_H_

#include "glib_ptr.h"

namespace kiv {

// An open connection to the session bus, or null with the reason in `error`: the one that somebody
// got here and still holds, else the process's shared connection. A closed shared one, which GLib
// hands out as long as anybody holds it, is replaced by a new connection. The death of the bus
// never ends the process. A daemon that does not answer holds the caller for five seconds at most;
// a process without descriptors for a call gets an error, since GLib would abort then.
GObjectPtr<GDBusConnection> ConnectSessionBus(GErrorPtr* error);
// Closes it for everybody who shares it; it is not returned again.
void CloseSessionBus(GDBusConnection* bus);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_SESSION_BUS_H_
