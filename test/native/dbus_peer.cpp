// Another program on the bus, for the tests: sends signals and answers method calls as told, wrong
// answers and none included. Calls are answered on GDBus's own thread, whatever JavaScript does.

#include <gio/gio.h>
#include <nan.h>

#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace {

using CallInfo = Nan::FunctionCallbackInfo<v8::Value>;

struct Answer {
  std::string body;        // GVariant text of the reply's tuple
  std::string error_name;  // an error instead of a reply
  std::string copy;        // a file that is copied to where the call's last argument says, first
  bool hang = false;
  std::vector<std::string> calls;  // the arguments of each, as text
};

std::mutex answers_mutex;
std::map<std::string, Answer> answers;  // by "path interface.member"
GDBusConnection* bus = nullptr;

std::string Text(v8::Local<v8::Value> value) { return *Nan::Utf8String(value); }

// The first three arguments: path, interface, member.
std::string Key(const CallInfo& info) {
  return Text(info[0]) + " " + Text(info[1]) + "." + Text(info[2]);
}

bool Throw(GError* error) {
  if (!error) return false;
  Nan::ThrowError(error->message);
  g_error_free(error);
  return true;
}

GVariant* Parse(const std::string& text) {
  GError* error = nullptr;
  GVariant* value = g_variant_parse(nullptr, text.c_str(), nullptr, nullptr, &error);
  return Throw(error) ? nullptr : value;
}

std::string Describe(GVariant* body) {
  if (!body) return "()";
  const std::unique_ptr<char, decltype(&g_free)> text(g_variant_print(body, FALSE), g_free);
  return text.get();
}

void CopyToLastArgument(const std::string& source, GVariant* body) {
  if (source.empty() || !body) return;
  GVariant* last = g_variant_get_child_value(body, g_variant_n_children(body) - 1);
  std::ofstream(g_variant_get_string(last, nullptr), std::ios::binary)
      << std::ifstream(source, std::ios::binary).rdbuf();
  g_variant_unref(last);
}

GDBusMessage* OnMessage(GDBusConnection* connection, GDBusMessage* message, gboolean incoming,
                        gpointer /*data*/) {
  if (!incoming || g_dbus_message_get_message_type(message) != G_DBUS_MESSAGE_TYPE_METHOD_CALL) {
    return message;
  }
  const char* interface = g_dbus_message_get_interface(message);
  const std::string key = std::string(g_dbus_message_get_path(message)) + " " +
                          (interface ? interface : "") + "." + g_dbus_message_get_member(message);
  const std::lock_guard<std::mutex> lock(answers_mutex);
  const auto found = answers.find(key);
  if (found == answers.end()) return message;
  Answer& answer = found->second;
  GVariant* arguments = g_dbus_message_get_body(message);
  answer.calls.push_back(Describe(arguments));
  CopyToLastArgument(answer.copy, arguments);
  if (!answer.hang) {
    const char* body = answer.body.c_str();
    GDBusMessage* reply = answer.error_name.empty() ? g_dbus_message_new_method_reply(message)
                                                    : g_dbus_message_new_method_error_literal(
                                                          message, answer.error_name.c_str(), body);
    if (answer.error_name.empty()) {
      g_dbus_message_set_body(reply, g_variant_parse(nullptr, body, nullptr, nullptr, nullptr));
    }
    g_dbus_connection_send_message(connection, reply, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr,
                                   nullptr);
    g_object_unref(reply);
  }
  g_object_unref(message);
  return nullptr;
}

// connect(address): without one, on the connection that the whole process shares.
void Connect(const CallInfo& info) {
  GError* error = nullptr;
  const auto flags =
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
  bus = info[0]->IsUndefined() ? g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, &error)
                               : g_dbus_connection_new_for_address_sync(
                                     Text(info[0]).c_str(), flags, nullptr, nullptr, &error);
  if (Throw(error)) return;
  g_dbus_connection_add_filter(bus, OnMessage, nullptr, nullptr);
}

// answer(path, interface, member, {body, error, hang, copy})
void SetAnswer(const CallInfo& info) {
  const auto how = info[3].As<v8::Object>();
  const auto get = [&](const char* key) {
    const auto value = Nan::Get(how, Nan::New(key).ToLocalChecked()).ToLocalChecked();
    return value->IsUndefined() ? std::string() : Text(value);
  };
  const std::lock_guard<std::mutex> lock(answers_mutex);
  answers[Key(info)] = {get("body"), get("error"), get("copy"), !get("hang").empty(), {}};
}

// calls(path, interface, member): how often it has been called since its answer was set.
void Calls(const CallInfo& info) {
  const std::lock_guard<std::mutex> lock(answers_mutex);
  info.GetReturnValue().Set(static_cast<uint32_t>(answers[Key(info)].calls.size()));
}

// argumentsOf(path, interface, member): the arguments of each of those calls, as text.
void ArgumentsOf(const CallInfo& info) {
  const std::lock_guard<std::mutex> lock(answers_mutex);
  const auto result = Nan::New<v8::Array>();
  for (const std::string& call : answers[Key(info)].calls) {
    Nan::Set(result, result->Length(), Nan::New(call).ToLocalChecked());
  }
  info.GetReturnValue().Set(result);
}

// call(name, path, interface, member, body): the reply as text; body is the text of a tuple.
void Call(const CallInfo& info) {
  GVariant* body = Parse(Text(info[4]));
  if (!body) return;
  GError* error = nullptr;
  GVariant* reply = g_dbus_connection_call_sync(
      bus, Text(info[0]).c_str(), Text(info[1]).c_str(), Text(info[2]).c_str(),
      Text(info[3]).c_str(), body, nullptr, G_DBUS_CALL_FLAGS_NONE, 10000, nullptr, &error);
  if (Throw(error)) return;
  info.GetReturnValue().Set(Nan::New(Describe(reply)).ToLocalChecked());
  g_variant_unref(reply);
}

// own(name): on return the bus knows it.
void Own(const CallInfo& info) {
  GError* error = nullptr;
  GVariant* reply =
      g_dbus_connection_call_sync(bus, "org.freedesktop.DBus", "/", "org.freedesktop.DBus",
                                  "RequestName", g_variant_new("(su)", Text(info[0]).c_str(), 4U),
                                  nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
  if (!Throw(error)) g_variant_unref(reply);
}

// emit(path, interface, member, body, times): body is the text of a tuple, or empty for none.
void Emit(const CallInfo& info) {
  const std::string text = Text(info[3]);
  const int times = info.Length() > 4 ? Nan::To<int>(info[4]).FromMaybe(1) : 1;
  GError* error = nullptr;
  for (int i = 0; i < times; ++i) {
    GVariant* body = nullptr;
    if (!text.empty() && !(body = Parse(text))) return;
    g_dbus_connection_emit_signal(bus, nullptr, Text(info[0]).c_str(), Text(info[1]).c_str(),
                                  Text(info[2]).c_str(), body, &error);
    if (Throw(error)) return;
  }
  g_dbus_connection_flush_sync(bus, nullptr, &error);
  Throw(error);
}

void Close(const CallInfo& /*info*/) {
  if (!bus) return;
  g_dbus_connection_close_sync(bus, nullptr, nullptr);
  g_clear_object(&bus);
}

void Setup(v8::Local<v8::Object> exports, v8::Local<v8::Value> /*module*/, void* /*priv*/) {
  Nan::SetMethod(exports, "connect", Connect);
  Nan::SetMethod(exports, "own", Own);
  Nan::SetMethod(exports, "answer", SetAnswer);
  Nan::SetMethod(exports, "calls", Calls);
  Nan::SetMethod(exports, "argumentsOf", ArgumentsOf);
  Nan::SetMethod(exports, "call", Call);
  Nan::SetMethod(exports, "emit", Emit);
  Nan::SetMethod(exports, "close", Close);
}

}  // namespace

NODE_MODULE(dbus_peer, Setup)
