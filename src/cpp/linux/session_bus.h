#ifndef SRC_CPP_LINUX_SESSION_BUS_H_
#define SRC_CPP_LINUX_SESSION_BUS_H_

#include "glib_ptr.h"

namespace kiv {

// An open connection to the session bus, or null with the reason in `error`. The process's shared
// connection where it is open; a closed one, which GLib keeps handing out as long as anybody holds
// it, is replaced by a connection of the caller's own. The death of the bus never ends the process,
// and a daemon that does not answer holds the caller for five seconds at most.
GObjectPtr<GDBusConnection> ConnectSessionBus(GErrorPtr* error);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_SESSION_BUS_H_
