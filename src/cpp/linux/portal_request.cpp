#include "portal_request.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "handed_over_file.h"
#include "portal_names.h"
#include "session_bus.h"

namespace kiv {

namespace {

constexpr char kRequestInterface[] = "org.freedesktop.portal.Request";
constexpr guint kBusWatchMilliseconds = 100;

std::string RandomToken() {
  const GCharPtr token(g_strdup_printf("kiv%08x%08x", g_random_int(), g_random_int()));
  return token.get();
}

// Returns the object path that the portal gives a request with this token.
std::string RequestPath(GDBusConnection* bus, const std::string& token) {
  std::string sender = g_dbus_connection_get_unique_name(bus) + 1;
  std::replace(sender.begin(), sender.end(), '.', '_');
  return std::string(kPortalPath) + "/request/" + sender + "/" + token;
}

}  // namespace

void DeletePicture(const PortalAnswer& answer) {
  const std::string path = answer.code == 0 ? PathOfUri(answer.uri) : "";
  if (path.empty()) return;
  GErrorPtr error;
  const HandedOverFile file(path, answer.asked, &error);
}

// Outlives a request that is destroyed during its call.
struct PortalRequest::Call {
  PortalRequest* request;
  GObjectPtr<GCancellable> cancellable;
};

PortalRequest::PortalRequest(GDBusConnection* bus, std::string owner, Done done)
    : bus_(RetainGObject(bus)),
      owner_(std::move(owner)),
      done_(std::move(done)),
      asked_(std::time(nullptr)) {
  const std::string token = RandomToken();
  WatchOwner();
  WatchBus();
  // Subscribe before the call: the answer may come at once.
  Follow(RequestPath(bus, token));
  Start(token);
}

PortalRequest::PortalRequest(const PortalRequest& other, Done done)
    : bus_(RetainGObject(other.bus_.get())),
      owner_(other.owner_),
      done_(std::move(done)),
      asked_(other.asked_) {
  WatchOwner();
  WatchBus();
  Follow(other.path_);
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
}

// The connection emits "closed" in the context in which it was opened, not in this one.
void PortalRequest::WatchBus() {
  bus_watch_.reset(g_timeout_source_new(kBusWatchMilliseconds));
  const GSourceFunc look = [](gpointer data) -> gboolean {
    auto* self = static_cast<PortalRequest*>(data);
    if (!g_dbus_connection_is_closed(self->bus_.get())) return G_SOURCE_CONTINUE;
    self->Fail("The session bus has been closed");
    return G_SOURCE_REMOVE;
  };
  g_source_set_callback(bus_watch_.get(), look, this, nullptr);
  g_source_attach(bus_watch_.get(), g_main_context_get_thread_default());
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
  bus_watch_.reset();
  g_cancellable_cancel(cancellable_.get());
}

void PortalRequest::End(PortalAnswer answer) {
  Release();
  answer.asked = asked_;
  const Done done = std::exchange(done_, nullptr);
  if (done) done(std::move(answer));
}

}  // namespace kiv
