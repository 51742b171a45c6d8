#include "portal_request.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "portal_names.h"
#include "session_bus.h"

namespace kiv {

namespace {

constexpr char kRequestInterface[] = "org.freedesktop.portal.Request";

std::string RandomToken() {
  const GCharPtr token(g_strdup_printf("kiv%08x%08x", g_random_int(), g_random_int()));
  return token.get();
}

// Where the portal puts the object of a request with this token.
std::string RequestPath(GDBusConnection* bus, const std::string& token) {
  std::string sender = g_dbus_connection_get_unique_name(bus) + 1;
  std::replace(sender.begin(), sender.end(), '.', '_');
  return std::string(kPortalPath) + "/request/" + sender + "/" + token;
}

}  // namespace

// Outlives a request that is destroyed while its call is under way.
struct PortalRequest::Call {
  PortalRequest* request;
  GObjectPtr<GCancellable> cancellable;
};

PortalRequest::PortalRequest(GDBusConnection* bus, std::string owner, Done done)
    : bus_(RetainGObject(bus)), owner_(std::move(owner)), done_(std::move(done)) {
  const std::string token = RandomToken();
  WatchOwner();
  // Before the call: the answer may come at once.
  Follow(RequestPath(bus, token));
  Start(token);
}

PortalRequest::~PortalRequest() { Release(); }

void PortalRequest::Close() {
  g_dbus_connection_call(bus_.get(), owner_.c_str(), path_.c_str(), kRequestInterface, "Close",
                         nullptr, nullptr, G_DBUS_CALL_FLAGS_NONE, kDefaultTimeout, nullptr,
                         nullptr, nullptr);
}

void PortalRequest::WatchOwner() {
  owner_changed_id_ = g_dbus_connection_signal_subscribe(
      bus_.get(), "org.freedesktop.DBus", "org.freedesktop.DBus", "NameOwnerChanged",
      "/org/freedesktop/DBus", owner_.c_str(), G_DBUS_SIGNAL_FLAGS_NONE,
      [](GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*, GVariant*,
         gpointer self) { static_cast<PortalRequest*>(self)->Fail("The portal has ended"); },
      this, nullptr);
  const auto on_closed = [](GDBusConnection*, gboolean, GError*, gpointer self) {
    static_cast<PortalRequest*>(self)->Fail("The session bus has been closed");
  };
  connection_signals_.Connect(
      bus_.get(), "closed",
      G_CALLBACK(static_cast<void (*)(GDBusConnection*, gboolean, GError*, gpointer)>(on_closed)),
      this);
}

void PortalRequest::Follow(std::string path) {
  if (response_id_ != 0) g_dbus_connection_signal_unsubscribe(bus_.get(), response_id_);
  path_ = std::move(path);
  response_id_ = g_dbus_connection_signal_subscribe(
      bus_.get(), owner_.c_str(), kRequestInterface, "Response", path_.c_str(), nullptr,
      G_DBUS_SIGNAL_FLAGS_NONE,
      [](GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*,
         GVariant* parameters,
         gpointer self) { static_cast<PortalRequest*>(self)->TakeResponse(parameters); },
      this, nullptr);
}

void PortalRequest::Start(const std::string& token) {
  GVariantBuilder options;
  g_variant_builder_init(&options, G_VARIANT_TYPE_VARDICT);
  g_variant_builder_add(&options, "{sv}", "handle_token", g_variant_new_string(token.c_str()));
  g_variant_builder_add(&options, "{sv}", "interactive", g_variant_new_boolean(FALSE));
  auto call = std::make_unique<Call>(Call{this, RetainGObject(cancellable_.get())});
  g_dbus_connection_call(
      bus_.get(), owner_.c_str(), kPortalPath, kPortalScreenshot, "Screenshot",
      g_variant_new("(sa{sv})", "", &options), nullptr, G_DBUS_CALL_FLAGS_NONE, kDefaultTimeout,
      cancellable_.get(),
      [](GObject* source, GAsyncResult* result, gpointer data) {
        const std::unique_ptr<Call> ended(static_cast<Call*>(data));
        if (g_cancellable_is_cancelled(ended->cancellable.get())) return;
        ended->request->TakeHandle(source, result);
      },
      call.release());
}

void PortalRequest::TakeHandle(GObject* source, GAsyncResult* result) {
  PortalAnswer answer;
  const auto reply = FinishSessionBusCall(source, result, "(o)", &answer.error);
  if (!reply) return End(std::move(answer));
  const char* handle = nullptr;
  g_variant_get(reply.get(), "(&o)", &handle);
  // Portals before 0.9 choose the path themselves.
  if (path_ != handle) Follow(handle);
}

void PortalRequest::TakeResponse(GVariant* parameters) {
  if (!g_variant_is_of_type(parameters, G_VARIANT_TYPE("(ua{sv})"))) {
    return Fail("The portal's answer has another type");
  }
  PortalAnswer answer;
  guint32 code = 0;
  GVariant* raw_results = nullptr;
  g_variant_get(parameters, "(u@a{sv})", &code, &raw_results);
  const GVariantPtr results(raw_results);
  answer.code = code;
  const char* uri = nullptr;
  if (g_variant_lookup(results.get(), "uri", "&s", &uri)) answer.uri = uri;
  End(std::move(answer));
}

void PortalRequest::Fail(const char* reason) {
  PortalAnswer answer;
  g_set_error_literal(CollectError(&answer.error), G_IO_ERROR, G_IO_ERROR_FAILED, reason);
  End(std::move(answer));
}

void PortalRequest::Release() {
  for (guint* id : {&response_id_, &owner_changed_id_}) {
    if (*id != 0) g_dbus_connection_signal_unsubscribe(bus_.get(), std::exchange(*id, 0));
  }
  connection_signals_.Disconnect();
  g_cancellable_cancel(cancellable_.get());
}

void PortalRequest::End(PortalAnswer answer) {
  Release();
  const Done done = std::exchange(done_, nullptr);
  if (done) done(std::move(answer));
}

}  // namespace kiv
