#include "session_bus.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "../logging.h"

namespace kiv {

namespace {

// GLib's own limits begin once there is a connection; a daemon that hangs would hold the host for
// as long as it does.
constexpr guint kPatienceMilliseconds = 5000;
constexpr int kDefaultTimeout = -1;

// GLib aborts when it finds no descriptor for a main context of its own, as every synchronous call
// needs one; opening a connection needs several more.
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

// The connection opened last, as long as somebody holds it. Never cleared: GLib has no weak
// reference that a static destructor could end safely.
GWeakRef* LastConnection() {
  static auto* const reference = new GWeakRef();
  return reference;
}

// GLib's worker thread notices a while after the call that a connection was closed; the mark tells at
// once.
constexpr char kClosedMark[] = "kiv-closed";

bool IsOpen(GDBusConnection* bus) {
  return !g_dbus_connection_is_closed(bus) && !g_object_get_data(G_OBJECT(bus), kClosedMark);
}

GObjectPtr<GDBusConnection> OpenConnection() {
  auto bus = AdoptGObject(static_cast<GDBusConnection*>(g_weak_ref_get(LastConnection())));
  if (bus && !IsOpen(bus.get())) bus.reset();
  return bus;
}

// A main context of its own, in which asynchronous calls of this thread end while it lives; the
// host's sources wait meanwhile.
class PrivateContext {
 public:
  PrivateContext() : context_(g_main_context_new()) {
    g_main_context_push_thread_default(context_);
  }
  ~PrivateContext() {
    g_main_context_pop_thread_default(context_);
    g_main_context_unref(context_);
  }
  PrivateContext(const PrivateContext&) = delete;
  PrivateContext& operator=(const PrivateContext&) = delete;

  void Iterate() { g_main_context_iteration(context_, TRUE); }
  // Cancels in so many milliseconds.
  void CancelAfter(guint milliseconds, GCancellable* cancellable) {
    GSource* source = g_timeout_source_new(milliseconds);
    const auto cancel = [](gpointer data) -> gboolean {
      g_cancellable_cancel(G_CANCELLABLE(data));
      return G_SOURCE_REMOVE;
    };
    g_source_set_callback(source, cancel, g_object_ref(cancellable), g_object_unref);
    g_source_attach(source, context_);
    g_source_unref(source);
  }

 private:
  GMainContext* context_;
};

// Closes a connection that belongs to `context`. Until its last source has run there, the two keep
// each other alive.
void CloseIn(PrivateContext* context, GObjectPtr<GDBusConnection> connection,
             GCancellable* cancellable) {
  bool closed = false;
  const auto on_closed =
      +[](GDBusConnection*, gboolean, GError*, gpointer flag) { *static_cast<bool*>(flag) = true; };
  const gulong handler =
      g_signal_connect(connection.get(), "closed", G_CALLBACK(on_closed), &closed);
  g_dbus_connection_close_sync(connection.get(), nullptr, nullptr);
  while (!closed && !g_cancellable_is_cancelled(cancellable)) context->Iterate();
  g_signal_handler_disconnect(connection.get(), handler);
}

struct Probe {
  GObjectPtr<GDBusConnection> connection;
  GErrorPtr error;
  bool ended = false;
};

void OnProbeEnded(GObject* /*source*/, GAsyncResult* result, gpointer data) {
  auto* probe = static_cast<Probe*>(data);
  probe->connection =
      AdoptGObject(g_dbus_connection_new_for_address_finish(result, CollectError(&probe->error)));
  probe->ended = true;
}

// Whether a daemon lets this user in within the time limit. Asked on a connection that is closed at
// once: the one that is kept has to belong to the default main context, and the calls that open
// such a one have no time limit.
bool Answers(const char* address, GErrorPtr* error) {
  PrivateContext context;
  const auto cancellable = AdoptGObject(g_cancellable_new());
  context.CancelAfter(kPatienceMilliseconds, cancellable.get());
  Probe probe;
  g_dbus_connection_new_for_address(address, G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT, nullptr,
                                    cancellable.get(), OnProbeEnded, &probe);
  while (!probe.ended) context.Iterate();
  if (probe.connection) {
    CloseIn(&context, std::move(probe.connection), cancellable.get());
    return true;
  }
  if (g_error_matches(probe.error.get(), G_IO_ERROR, G_IO_ERROR_CANCELLED)) {
    g_set_error_literal(CollectError(error), G_IO_ERROR, G_IO_ERROR_TIMED_OUT,
                        "The session bus does not answer");
  } else {
    *error = std::move(probe.error);
  }
  return false;
}

}  // namespace

GObjectPtr<GDBusConnection> ConnectSessionBus(GErrorPtr* error) {
  if (auto bus = OpenConnection()) {
    return HasDescriptors(kDescriptorsOfCall, error) ? std::move(bus) : nullptr;
  }
  if (!HasDescriptors(kDescriptorsOfOpening, error)) return nullptr;
  const GCharPtr address(
      g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SESSION, nullptr, CollectError(error)));
  if (!address || !Answers(address.get(), error)) return nullptr;
  auto bus = AdoptGObject(g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, CollectError(error)));
  if (bus && !IsOpen(bus.get())) {
    const auto flags =
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    bus = AdoptGObject(g_dbus_connection_new_for_address_sync(address.get(), flags, nullptr,
                                                              nullptr, CollectError(error)));
  }
  if (!bus) return nullptr;
  g_dbus_connection_set_exit_on_close(bus.get(), FALSE);
  g_weak_ref_set(LastConnection(), bus.get());
  return bus;
}

GVariantPtr CallSessionBus(const BusObject& object, const char* method, GVariant* parameters,
                           const char* reply_type, GErrorPtr* error) {
  const GVariantPtr owned(parameters ? g_variant_ref_sink(parameters) : nullptr);
  const auto bus = ConnectSessionBus(error);
  if (!bus) return nullptr;
  GVariantPtr reply(g_dbus_connection_call_sync(
      bus.get(), object.bus_name, object.object_path, object.interface, method, owned.get(),
      nullptr, G_DBUS_CALL_FLAGS_NONE, kDefaultTimeout, nullptr, CollectError(error)));
  if (reply && !CheckReplyType(reply.get(), reply_type, error)) return nullptr;
  return reply;
}

GVariantPtr CallSessionBusOrLog(const char* request_id, const BusObject& object, const char* method,
                                GVariant* parameters, const char* reply_type) {
  GErrorPtr error;
  auto reply = CallSessionBus(object, method, parameters, reply_type, &error);
  if (!reply) LogMessage(LogMessage::error).stream() << request_id << error->message;
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
  g_dbus_connection_close_sync(bus, nullptr, nullptr);
}

}  // namespace kiv
