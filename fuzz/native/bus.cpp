// Another program on the session bus: sends the lock signals that a stranger may send, and answers
// as a compositor of any version may.

#include <fuzzer/FuzzedDataProvider.h>
#include <gio/gio.h>
#include <nan.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "../../src/cpp/addon.h"
#include "../../src/cpp/conversions.h"
#include "../../src/cpp/linux/dbus_idletime.h"
#include "../../src/cpp/linux/dbus_screenshot.h"
#include "../../src/cpp/linux/glib_ptr.h"
#include "../../src/cpp/snap_completion.h"
#include "fuzz.h"

namespace fuzz {

namespace {

constexpr int kMaxDepth = 4;
constexpr unsigned kMaxMembers = 4;
constexpr unsigned kPatienceMs = 10000;
constexpr char kDoneInterface[] = "fuzz.Done";
constexpr char kDonePath[] = "/fuzz";

std::string AnyType(FuzzedDataProvider* bytes, int depth) {
  constexpr char kBasic[] = "ybnqiuxtdsogv";
  const auto basic = [&](size_t count) {
    return std::string(1, kBasic[bytes->ConsumeIntegralInRange<size_t>(0, count - 1)]);
  };
  const int kind = depth < kMaxDepth ? bytes->ConsumeIntegralInRange(0, 7) : 0;
  if (kind < 5) return basic(sizeof kBasic - 1);
  if (kind == 5) return "a" + AnyType(bytes, depth + 1);
  if (kind == 6) return "a{" + basic(sizeof kBasic - 2) + AnyType(bytes, depth + 1) + "}";
  std::string type = "(";
  const auto members = bytes->ConsumeIntegralInRange(1U, kMaxMembers);
  for (unsigned i = 0; i < members; ++i) type += AnyType(bytes, depth + 1);
  return type + ")";
}

// A tuple whose first members often have the wanted types, of bytes that need mean nothing.
kiv::GVariantPtr AnyBody(FuzzedDataProvider* bytes, const char* wanted) {
  std::string type = bytes->ConsumeBool() ? wanted : "";
  const auto members = bytes->ConsumeIntegralInRange(0U, kMaxMembers);
  for (unsigned i = 0; i < members; ++i) type += AnyType(bytes, 0);
  const std::string data = bytes->ConsumeRandomLengthString();
  GBytes* copy = g_bytes_new(data.data(), data.size());
  const std::string tuple = "(" + type + ")";
  const kiv::GVariantPtr raw(
      g_variant_ref_sink(g_variant_new_from_bytes(G_VARIANT_TYPE(tuple.c_str()), copy, FALSE)));
  g_bytes_unref(copy);
  return kiv::GVariantPtr(g_variant_get_normal_form(raw.get()));
}

// KWin's word for a path is taken, deletion included: whatever it says stays in the own folder.
kiv::GVariantPtr PathBody(FuzzedDataProvider* bytes) {
  std::string name = bytes->ConsumeRandomLengthString(300);
  std::replace(name.begin(), name.end(), '/', '_');
  std::replace(name.begin(), name.end(), '.', '_');
  const std::string path = std::string(std::getenv("TMPDIR")) + "/" + name.c_str();
  const bool sendable = g_utf8_validate(path.c_str(), -1, nullptr);
  return kiv::GVariantPtr(
      g_variant_ref_sink(g_variant_new("(s)", sendable ? path.c_str() : std::getenv("TMPDIR"))));
}

struct Answer {
  kiv::GVariantPtr body;
  std::string error;
  std::string file;  // written where the call's last argument or the answer says, first
};

std::mutex answers_mutex;
std::vector<Answer> answers;  // the next one last; the first one again and again

void WriteFile(GVariant* body, const std::string& content) {
  if (content.empty() || !body || g_variant_n_children(body) == 0) return;
  const kiv::GVariantPtr last(g_variant_get_child_value(body, g_variant_n_children(body) - 1));
  if (!g_variant_is_of_type(last.get(), G_VARIANT_TYPE_STRING)) return;
  const std::string path = g_variant_get_string(last.get(), nullptr);
  if (path.rfind(std::getenv("TMPDIR"), 0) == 0) {
    std::ofstream(path, std::ios::binary) << content;
  }
}

GDBusMessage* OnMessage(GDBusConnection* connection, GDBusMessage* message, gboolean incoming,
                        gpointer /*data*/) {
  if (!incoming || g_dbus_message_get_message_type(message) != G_DBUS_MESSAGE_TYPE_METHOD_CALL) {
    return message;
  }
  const std::lock_guard<std::mutex> lock(answers_mutex);
  if (answers.empty()) return message;
  const Answer& answer = answers.back();
  WriteFile(g_dbus_message_get_body(message), answer.file);
  GDBusMessage* reply = nullptr;
  if (answer.error.empty()) {
    WriteFile(answer.body.get(), answer.file);
    reply = g_dbus_message_new_method_reply(message);
    g_dbus_message_set_body(reply, answer.body.get());
  } else {
    reply = g_dbus_message_new_method_error_literal(message, "fuzz.Error", answer.error.c_str());
  }
  // What the wire does not carry is an error, as from a program that cannot say it.
  if (!g_dbus_connection_send_message(connection, reply, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr,
                                      nullptr)) {
    GDBusMessage* refusal = g_dbus_message_new_method_error_literal(message, "fuzz.Error", "");
    g_dbus_connection_send_message(connection, refusal, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr,
                                   nullptr);
    g_object_unref(refusal);
  }
  g_object_unref(reply);
  g_object_unref(message);
  if (answers.size() > 1) answers.pop_back();
  return nullptr;
}

void Own(GDBusConnection* bus, const char* name) {
  const kiv::GVariantPtr reply(g_dbus_connection_call_sync(
      bus, "org.freedesktop.DBus", "/", "org.freedesktop.DBus", "RequestName",
      g_variant_new("(su)", name, 4U), nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
  Check(reply != nullptr, "a name on the bus");
}

GDBusConnection* Peer() {
  static GDBusConnection* bus = nullptr;
  if (bus && !g_dbus_connection_is_closed(bus)) return bus;
  const auto flags =
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
  bus = g_dbus_connection_new_for_address_sync(std::getenv("DBUS_SESSION_BUS_ADDRESS"), flags,
                                               nullptr, nullptr, nullptr);
  Check(bus != nullptr, "a session bus");
  g_dbus_connection_add_filter(bus, OnMessage, nullptr, nullptr);
  for (const char* name :
       {"org.gnome.Mutter.IdleMonitor", "org.gnome.Shell.Screenshot", "org.kde.KWin"}) {
    Own(bus, name);
  }
  return bus;
}

std::string SmallPng() {
  const auto picture = kiv::AdoptGObject(gdk_pixbuf_new(GDK_COLORSPACE_RGB, FALSE, 8, 8, 8));
  gdk_pixbuf_fill(picture.get(), 0x336699ff);
  gchar* bytes = nullptr;
  gsize size = 0;
  gdk_pixbuf_save_to_buffer(picture.get(), &bytes, &size, "png", nullptr, nullptr);
  const kiv::GCharPtr owner(bytes);
  return std::string(bytes, size);
}

Answer AnyAnswer(FuzzedDataProvider* bytes, const char* wanted) {
  static const std::string png = SmallPng();
  Answer answer;
  const int kind = bytes->ConsumeIntegralInRange(0, 9);
  if (kind == 0) answer.error = "e" + bytes->ConsumeRandomLengthString(200);
  if (!g_utf8_validate(answer.error.c_str(), -1, nullptr)) answer.error = "error";
  if (kind > 2) answer.file = bytes->ConsumeBool() ? png : bytes->ConsumeRandomLengthString(64);
  const bool path = wanted[0] == 's' && bytes->ConsumeBool();
  answer.body = path ? PathBody(bytes) : AnyBody(bytes, wanted);
  // A path of no one's choosing must not be deleted.
  if (wanted[0] == 's' && g_variant_is_of_type(answer.body.get(), G_VARIANT_TYPE("(s)")) && !path) {
    answer.body = PathBody(bytes);
  }
  return answer;
}

void SetAnswers(Answer first, Answer second = {}) {
  const std::lock_guard<std::mutex> lock(answers_mutex);
  answers.clear();
  if (second.body) answers.push_back(std::move(second));
  answers.push_back(std::move(first));
}

// Runs the loop until `done` or for as long as nobody would wait.
template <typename Done>
void Await(Done done, const char* what) {
  bool late = false;
  const guint timer = g_timeout_add(
      kPatienceMs, [](gpointer flag) -> gboolean { return *static_cast<bool*>(flag) = true; },
      &late);
  while (!done() && !late) g_main_context_iteration(nullptr, TRUE);
  g_source_remove(timer);
  Check(!late, what);
}

void Select(FuzzedDataProvider* bytes) {
  static int completions = 0;
  SetAnswers(AnyAnswer(bytes, "iiii"), AnyAnswer(bytes, "bs"));
  const auto count = [](const kiv::CallInfo& /*info*/) { ++completions; };
  const auto function =
      Nan::GetFunction(Nan::New<v8::FunctionTemplate>(static_cast<Nan::FunctionCallback>(count)))
          .ToLocalChecked();
  completions = 0;
  kiv::Agent().TakeSnapGuard();
  std::make_shared<kiv::GnomeDbusScreenshot>()->SnapSelection(&kiv::Agent().data_,
                                                              new Nan::Callback(function));
  Await([] { return completions > 0; }, "a selection that does not end");
  Check(completions == 1 && kiv::Agent().SnapGuardIsFree(), "a selection that ends twice");
}

struct LockSignal {
  const char* path;
  const char* interface;
  const char* member;
  const char* wanted;
};

constexpr LockSignal kLockSignals[] = {
    {"/org/gnome/ScreenSaver", "org.gnome.ScreenSaver", "ActiveChanged", "b"},
    {"/org/freedesktop/ScreenSaver", "org.freedesktop.ScreenSaver", "ActiveChanged", "b"},
    {"/org/cinnamon/ScreenSaver", "org.cinnamon.ScreenSaver", "ActiveChanged", "b"},
    {"/com/ubuntu/Upstart", "com.ubuntu.Upstart0_6", "EventEmitted", "s"},
};

void SendLockSignal(GDBusConnection* peer, FuzzedDataProvider* bytes) {
  const LockSignal& signal =
      kLockSignals[bytes->ConsumeIntegralInRange<size_t>(0, std::size(kLockSignals) - 1)];
  auto body = AnyBody(bytes, signal.wanted);
  if (signal.wanted[0] == 's' && bytes->ConsumeBool()) {
    const char* event = bytes->ConsumeBool() ? "desktop-lock" : "desktop-unlock";
    body.reset(g_variant_ref_sink(g_variant_new("(s)", event)));
  }
  g_dbus_connection_emit_signal(peer, nullptr, signal.path, signal.interface, signal.member,
                                body.get(), nullptr);
}

}  // namespace

void Replies(const uint8_t* data, size_t size) {
  FuzzedDataProvider bytes(data, size);
  Peer();
  const int service = bytes.ConsumeIntegralInRange(0, 3);
  if (service == 0) return Select(&bytes);
  kiv::GObjectPtr<GdkPixbuf> picture;
  if (service == 1) {
    SetAnswers(AnyAnswer(&bytes, "t"));
    long long idle = 0;
    kiv::GnomeIdleTime::GetIdleTime(idle);
  } else if (service == 2) {
    SetAnswers(AnyAnswer(&bytes, "bs"));
    picture.reset(kiv::GnomeDbusScreenshot().SnapWholeDesktop());
  } else {
    SetAnswers(AnyAnswer(&bytes, "s"));
    kiv::PlasmaDbusScreenshot backend;
    picture.reset(bytes.ConsumeBool() ? backend.SnapActiveDisplay() : backend.SnapWholeDesktop());
  }
}

void Signals(const uint8_t* data, size_t size) {
  FuzzedDataProvider bytes(data, size);
  GDBusConnection* peer = Peer();
  const auto bus = kiv::RetainGObject(kiv::Agent().data_.bus);
  if (!bus) return;
  bool done = false;
  // Addressed to the connection, so that no rule has to reach the daemon first.
  const guint id = g_dbus_connection_signal_subscribe(
      bus.get(), nullptr, kDoneInterface, nullptr, kDonePath, nullptr,
      G_DBUS_SIGNAL_FLAGS_NO_MATCH_RULE,
      [](GDBusConnection*, const char*, const char*, const char*, const char*, GVariant*,
         gpointer flag) { *static_cast<bool*>(flag) = true; },
      &done, nullptr);
  const auto count = bytes.ConsumeIntegralInRange(1, 4);
  for (int i = 0; i < count; ++i) SendLockSignal(peer, &bytes);
  g_dbus_connection_emit_signal(peer, g_dbus_connection_get_unique_name(bus.get()), kDonePath,
                                kDoneInterface, "Done", nullptr, nullptr);
  g_dbus_connection_flush_sync(peer, nullptr, nullptr);
  // The daemon shows a peer out that sends what it does not like.
  const auto over = [&] {
    return done || g_dbus_connection_is_closed(bus.get()) || g_dbus_connection_is_closed(peer);
  };
  Await(over, "a lost signal");
  g_dbus_connection_signal_unsubscribe(bus.get(), id);
}

}  // namespace fuzz
