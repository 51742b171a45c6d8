#ifndef SRC_CPP_LINUX_SESSION_BUS_H_
#define SRC_CPP_LINUX_SESSION_BUS_H_

#include <string>

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

// Where the session bus is; empty, with the reason in `error`, when nothing tells. Reads the
// environment: main thread only.
std::string SessionBusAddress(GErrorPtr* error);
// A connection there for the caller alone, or null with the reason in `error`. Any thread; blocks
// until the daemon answers or `cancellable` is cancelled.
GObjectPtr<GDBusConnection> OpenSessionBus(const std::string& address, GCancellable* cancellable,
                                           GErrorPtr* error);

struct BusObject {
  const char* bus_name;
  const char* object_path;
  const char* interface;
};

constexpr int kDefaultTimeout = -1;  // the bus's own, 25 seconds

// Calls a method on such a connection and waits for at most so many milliseconds. The reply, or
// null with the reason in `error`. A service of another version may answer anything: a reply that
// is not of `reply_type` counts as an error; a null type takes any. Consumes floating parameters,
// which refer to `descriptors`, if any, by index.
GVariantPtr CallSessionBus(const BusObject& object, const char* method, GVariant* parameters,
                           const char* reply_type, GErrorPtr* error,
                           int milliseconds = kDefaultTimeout, GUnixFDList* descriptors = nullptr);
// The same on a connection that the caller holds; any thread.
GVariantPtr CallSessionBus(GDBusConnection* bus, const BusObject& object, const char* method,
                           GVariant* parameters, const char* reply_type, GErrorPtr* error,
                           int milliseconds = kDefaultTimeout, GUnixFDList* descriptors = nullptr);
// Starts a call that may take for ever and returns at once; `done` ends it with
// FinishSessionBusCall.
void StartSessionBusCall(GDBusConnection* bus, const BusObject& object, const char* method,
                         GAsyncReadyCallback done, gpointer user_data);
// The reply, as CallSessionBus returns it; `source` and `result` are those of `done`.
GVariantPtr FinishSessionBusCall(GObject* source, GAsyncResult* result, const char* reply_type,
                                 GErrorPtr* error);

// False, with an error, for a reply of another type; a null type takes any.
bool CheckReplyType(GVariant* reply, const char* reply_type, GErrorPtr* error);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_SESSION_BUS_H_
