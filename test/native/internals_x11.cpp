// The X11 helpers for the tests, on a connection of their own.

// Xlib's macros break the headers of the engine that come after them.
// clang-format off
#include <nan.h>
// clang-format on

#include "internals_x11.h"

#include <X11/Xlib.h>

#include <optional>
#include <string>

#include "../../src/cpp/js_callback.h"
#include "../../src/cpp/linux/desktop_session_agent_linux.h"
#include "../../src/cpp/linux/tools_x11_linux.h"
#include "../../src/cpp/linux/x_error_guard.h"

namespace {

using CallInfo = Nan::FunctionCallbackInfo<v8::Value>;

Display* display = nullptr;
int errors_seen = 0;

int CountError(Display* /*display*/, XErrorEvent* /*event*/) { return ++errors_seen; }

void Set(v8::Local<v8::Object> object, const char* key, v8::Local<v8::Value> value) {
  Nan::Set(object, Nan::New(key).ToLocalChecked(), value);
}

void Set(v8::Local<v8::Object> object, const char* key, double value) {
  Set(object, key, Nan::New(value));
}

// xOpen(name): also puts a handler that counts errors in the place of the process's.
void Open(const CallInfo& info) {
  display = XOpenDisplay(*Nan::Utf8String(info[0]));
  if (!display) return Nan::ThrowError("no display");
  XSetErrorHandler(CountError);
}

void Close(const CallInfo& /*info*/) { XCloseDisplay(display); }

// xState(): requests sent, errors that the process's handler saw, and whether it is still in place.
void State(const CallInfo& info) {
  const XErrorHandler handler = XSetErrorHandler(CountError);
  const auto result = Nan::New<v8::Object>();
  Set(result, "requests", static_cast<double>(NextRequest(display)));
  Set(result, "errors", errors_seen);
  Set(result, "inPlace", Nan::New(handler == CountError));
  info.GetReturnValue().Set(result);
}

// xProperty(window, atom or name): outputs that were left alone are 77.
void Property(const CallInfo& info) {
  const auto window = static_cast<Window>(Nan::To<int64_t>(info[0]).FromJust());
  unsigned long count = 77;
  int format = 77;
  unsigned long type = 77;
  std::vector<uint8_t> items;
  if (info[1]->IsString()) {
    items =
        tools_x11::get_property(display, window, *Nan::Utf8String(info[1]), &count, &format, &type);
    if (items != tools_x11::get_property(display, window, *Nan::Utf8String(info[1]))) {
      return Nan::ThrowError("the outputs change the result");
    }
  } else {
    const auto atom = static_cast<Atom>(Nan::To<int64_t>(info[1]).FromJust());
    items = tools_x11::get_property(display, window, atom, &count, &format, &type);
  }
  const auto result = Nan::New<v8::Object>();
  const std::string bytes(items.begin(), items.end());
  Set(result, "items",
      Nan::CopyBuffer(bytes.data(), static_cast<uint32_t>(bytes.size())).ToLocalChecked());
  Set(result, "count", static_cast<double>(count));
  Set(result, "format", format);
  Set(result, "type", static_cast<double>(type));
  info.GetReturnValue().Set(result);
}

// xTopLevel(guarded): the window and the record afterwards, whose texts were "before".
void TopLevel(const CallInfo& info) {
  kiv::DesktopSessionData data;
  data.snap.activeWindowTitle = data.snap.activeProcessName = "before";
  std::optional<kiv::XErrorGuard> guard;
  if (Nan::To<bool>(info[0]).FromJust()) guard.emplace(display);
  const Window window = tools_x11::find_top_level_active_window(display, &data);
  guard.reset();
  const auto result = Nan::New<v8::Object>();
  Set(result, "window", static_cast<double>(window));
  Set(result, "title", kiv::ToJsString(data.snap.activeWindowTitle));
  Set(result, "process", kiv::ToJsString(data.snap.activeProcessName));
  info.GetReturnValue().Set(result);
}

void Screens(const CallInfo& info) {
  const auto result = Nan::New<v8::Array>();
  for (const XineramaScreenInfo& screen : tools_x11::xinerama_query_screens(display)) {
    const auto entry = Nan::New<v8::Array>();
    const int values[] = {screen.screen_number, screen.x_org, screen.y_org, screen.width,
                          screen.height};
    for (const int value : values) Nan::Set(entry, entry->Length(), Nan::New(value));
    Nan::Set(result, result->Length(), entry);
  }
  info.GetReturnValue().Set(result);
}

}  // namespace

void AddX11Helpers(v8::Local<v8::Object> exports) {
  Nan::SetMethod(exports, "xOpen", Open);
  Nan::SetMethod(exports, "xClose", Close);
  Nan::SetMethod(exports, "xState", State);
  Nan::SetMethod(exports, "xProperty", Property);
  Nan::SetMethod(exports, "xTopLevel", TopLevel);
  Nan::SetMethod(exports, "xScreens", Screens);
}
