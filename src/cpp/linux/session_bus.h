#ifndef SRC_CPP_LINUX_SESSION_BUS_H_
#define SRC_CPP_LINUX_SESSION_BUS_H_

#include <string>

#include "glib_ptr.h"

namespace kiv {

// Returns an open connection to the session bus, or null with the reason in `error`. Prefers the
// connection that this function returned last, if somebody still owns it, to the process's shared
// one. Replaces a closed shared connection, which GLib would return until its last reference is
// dropped. The bus's death does not exit the process. Blocks for five seconds at most. Returns an
// error when the process is out of descriptors, because GLib would abort.
GObjectPtr<GDBusConnection> ConnectSessionBus(GErrorPtr* error);
// Closes the connection for all who share it. It is not returned again.
void CloseSessionBus(GDBusConnection* bus);

// Returns the address of the session bus, or an empty string with the reason in `error`. Reads the
// environment: main thread only.
std::string SessionBusAddress(GErrorPtr* error);
// Opens a connection that is not shared, or returns null with the reason in `error`. Any thread.
// Blocks until the daemon answers or `cancellable` is cancelled.
GObjectPtr<GDBusConnection> OpenSessionBus(const std::string& address, GCancellable* cancellable,
                                           GErrorPtr* error);

struct BusObject {
  const char* bus_name;
  const char* object_path;
  const char* interface;
};

constexpr int kDefaultTimeout = -1;  // the bus's own, 25 seconds

// Calls a method and waits for `milliseconds` at most. Returns the reply, or null with the reason
// in `error`. A reply that is not of `reply_type` is an error; a null type accepts any. Takes
// ownership of floating parameters. Handles in them are indices into `descriptors`.
GVariantPtr CallSessionBus(const BusObject& object, const char* method, GVariant* parameters,
                           const char* reply_type, GErrorPtr* error,
                           int milliseconds = kDefaultTimeout, GUnixFDList* descriptors = nullptr);
// The same on a connection that the caller owns; on any thread.
GVariantPtr CallSessionBus(GDBusConnection* bus, const BusObject& object, const char* method,
                           GVariant* parameters, const char* reply_type, GErrorPtr* error,
                           int milliseconds = kDefaultTimeout, GUnixFDList* descriptors = nullptr);
// Starts a call without a time limit and returns at once. `done` must call FinishSessionBusCall.
void StartSessionBusCall(GDBusConnection* bus, const BusObject& object, const char* method,
                         GAsyncReadyCallback done, gpointer user_data);
// Returns the reply, as CallSessionBus does. `source` and `result` are those of `done`.
GVariantPtr FinishSessionBusCall(GObject* source, GAsyncResult* result, const char* reply_type,
                                 GErrorPtr* error);

// Returns false and sets `error` for a reply of another type. A null type accepts any.
bool CheckReplyType(GVariant* reply, const char* reply_type, GErrorPtr* error);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_SESSION_BUS_H_
