#include "session_bus.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <utility>

#include "private_context.h"

namespace kiv {

namespace {

// GLib's own time limits apply only once connected; a daemon that hangs would block the host.
constexpr guint kPatienceMilliseconds = 5000;

// GLib aborts when no descriptor is left for a main context, which every synchronous call creates.
// Opening a connection needs several more.
constexpr int kDescriptorsOfCall = 2;
constexpr int kDescriptorsOfOpening = 12;

bool HasDescriptors(int wanted, GErrorPtr* error) {
  int taken[kDescriptorsOfOpening];
  int count = 0;
  while (count < wanted && (taken[count] = eventfd(0, EFD_CLOEXEC)) >= 0) ++count;
  for (int i = 0; i < count; ++i) close(taken[i]);
  if (count == wanted) return true;
  g_set_error_literal(CollectError(error), G_IO_ERROR, G_IO_ERROR_TOO_MANY_OPEN_FILES,
                      g_strerror(EMFILE));
  return false;
}

// GLib notices a close some time after the call, on its worker thread. The mark takes effect at
// once.
constexpr char kClosedMark[] = "kiv-closed";

// The kernel knows at once that the daemon is gone.
bool HasHungUp(GDBusConnection* bus) {
  GIOStream* stream = g_dbus_connection_get_stream(bus);
  if (!G_IS_SOCKET_CONNECTION(stream)) return false;
  GSocket* socket = g_socket_connection_get_socket(G_SOCKET_CONNECTION(stream));
  return (g_socket_condition_check(socket, G_IO_HUP) & G_IO_HUP) != 0;
}

bool IsOpen(GDBusConnection* bus) {
  return !g_dbus_connection_is_closed(bus) && !g_object_get_data(G_OBJECT(bus), kClosedMark) &&
         !HasHungUp(bus);
}

// The connection opened last, while somebody owns it. Never destroyed, because GLib may clear the
// reference after this library's static destructors.
GWeakRef* LastConnection() {
  static auto* const reference = new GWeakRef();
  return reference;
}

GObjectPtr<GDBusConnection> OpenConnection() {
  auto bus = AdoptGObject(static_cast<GDBusConnection*>(g_weak_ref_get(LastConnection())));
  if (bus && !IsOpen(bus.get())) bus.reset();
  return bus;
}

// Returns the shared connection, or a new one when that is closed but still referenced.
GObjectPtr<GDBusConnection> Open(GCancellable* cancellable, GErrorPtr* error) {
  auto bus = AdoptGObject(g_bus_get_sync(G_BUS_TYPE_SESSION, cancellable, CollectError(error)));
  if (bus && IsOpen(bus.get())) return bus;
  // Callers share one attempt and its failure, so this may be an earlier caller's time limit.
  const bool of_others = g_error_matches(error->get(), G_IO_ERROR, G_IO_ERROR_CANCELLED) &&
                         !g_cancellable_is_cancelled(cancellable);
  if (!bus && !of_others) return nullptr;
  const std::string address = SessionBusAddress(error);
  return address.empty() ? nullptr : OpenSessionBus(address, cancellable, error);
}

// Runs on GLib's thread pool, where the default main context is the host's: a connection delivers
// its signals to the context of the thread that opened it.
void OpenInPool(GTask* task, gpointer /*source*/, gpointer /*data*/, GCancellable* cancellable) {
  GErrorPtr error;
  auto bus = Open(cancellable, &error);
  if (bus) {
    g_task_return_pointer(task, bus.release(), g_object_unref);
  } else {
    g_task_return_error(task, error.release());
  }
}

struct Opening {
  GObjectPtr<GDBusConnection> bus;
  GErrorPtr error;
  bool ended = false;
};

void OnOpened(GObject* /*source*/, GAsyncResult* result, gpointer data) {
  auto* opening = static_cast<Opening*>(data);
  opening->bus.reset(static_cast<GDBusConnection*>(
      g_task_propagate_pointer(G_TASK(result), CollectError(&opening->error))));
  opening->ended = true;
}

// A result that arrives after the time limit is dropped with its task.
GObjectPtr<GDBusConnection> OpenInTime(GErrorPtr* error) {
  PrivateContext context;
  const auto cancellable = AdoptGObject(g_cancellable_new());
  context.CancelAfter(kPatienceMilliseconds, cancellable.get());
  Opening opening;
  const auto task = AdoptGObject(g_task_new(nullptr, cancellable.get(), OnOpened, &opening));
  g_task_set_return_on_cancel(task.get(), TRUE);
  g_task_run_in_thread(task.get(), OpenInPool);
  while (!opening.ended) context.Iterate();
  if (g_error_matches(opening.error.get(), G_IO_ERROR, G_IO_ERROR_CANCELLED)) {
    g_set_error_literal(CollectError(error), G_IO_ERROR, G_IO_ERROR_TIMED_OUT,
                        "The session bus does not answer");
  } else {
    *error = std::move(opening.error);
  }
  return std::move(opening.bus);
}

}  // namespace

GObjectPtr<GDBusConnection> ConnectSessionBus(GErrorPtr* error) {
  auto bus = OpenConnection();
  if (!HasDescriptors(bus ? kDescriptorsOfCall : kDescriptorsOfOpening, error)) return nullptr;
  if (!bus) bus = OpenInTime(error);
  if (!bus) return nullptr;
  g_dbus_connection_set_exit_on_close(bus.get(), FALSE);
  g_weak_ref_set(LastConnection(), bus.get());
  return bus;
}

std::string SessionBusAddress(GErrorPtr* error) {
  const GCharPtr address(
      g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SESSION, nullptr, CollectError(error)));
  return address ? address.get() : "";
}

GObjectPtr<GDBusConnection> OpenSessionBus(const std::string& address, GCancellable* cancellable,
                                           GErrorPtr* error) {
  if (!HasDescriptors(kDescriptorsOfOpening, error)) return nullptr;
  const auto flags =
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
  return AdoptGObject(g_dbus_connection_new_for_address_sync(address.c_str(), flags, nullptr,
                                                             cancellable, CollectError(error)));
}

GVariantPtr CallSessionBus(const BusObject& object, const char* method, GVariant* parameters,
                           const char* reply_type, GErrorPtr* error, int milliseconds,
                           GUnixFDList* descriptors) {
  const GVariantPtr owned(parameters ? g_variant_ref_sink(parameters) : nullptr);
  const auto bus = ConnectSessionBus(error);
  if (!bus) return nullptr;
  return CallSessionBus(bus.get(), object, method, owned.get(), reply_type, error, milliseconds,
                        descriptors);
}

GVariantPtr CallSessionBus(GDBusConnection* bus, const BusObject& object, const char* method,
                           GVariant* parameters, const char* reply_type, GErrorPtr* error,
                           int milliseconds, GUnixFDList* descriptors) {
  const GVariantPtr owned(parameters ? g_variant_ref_sink(parameters) : nullptr);
  if (!HasDescriptors(kDescriptorsOfCall, error)) return nullptr;
  GVariantPtr reply(g_dbus_connection_call_with_unix_fd_list_sync(
      bus, object.bus_name, object.object_path, object.interface, method, owned.get(), nullptr,
      G_DBUS_CALL_FLAGS_NONE, milliseconds, descriptors, nullptr, nullptr, CollectError(error)));
  if (reply && !CheckReplyType(reply.get(), reply_type, error)) return nullptr;
  return reply;
}

void StartSessionBusCall(GDBusConnection* bus, const BusObject& object, const char* method,
                         GAsyncReadyCallback done, gpointer user_data) {
  g_dbus_connection_call(bus, object.bus_name, object.object_path, object.interface, method,
                         nullptr, nullptr, G_DBUS_CALL_FLAGS_NONE, G_MAXINT, nullptr, done,
                         user_data);
}

GVariantPtr FinishSessionBusCall(GObject* source, GAsyncResult* result, const char* reply_type,
                                 GErrorPtr* error) {
  GVariantPtr reply(
      g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, CollectError(error)));
  if (reply && !CheckReplyType(reply.get(), reply_type, error)) return nullptr;
  return reply;
}

bool CheckReplyType(GVariant* reply, const char* reply_type, GErrorPtr* error) {
  if (!reply_type || g_variant_is_of_type(reply, G_VARIANT_TYPE(reply_type))) return true;
  g_set_error(CollectError(error), G_IO_ERROR, G_IO_ERROR_INVALID_DATA,
              "unexpected reply of type %s, wanted %s", g_variant_get_type_string(reply),
              reply_type);
  return false;
}

void CloseSessionBus(GDBusConnection* bus) {
  g_object_set_data(G_OBJECT(bus), kClosedMark, bus);
  GErrorPtr error;
  if (HasDescriptors(kDescriptorsOfCall, &error)) {
    g_dbus_connection_close_sync(bus, nullptr, nullptr);
  } else {
    g_dbus_connection_close(bus, nullptr, nullptr, nullptr);
  }
}

}  // namespace kiv
