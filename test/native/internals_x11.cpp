// The X11 helpers for the tests, on a connection of their own.

// Xlib's macros break the headers of the engine that come after them.
// clang-format off
#include <nan.h>
// clang-format on

#include "internals_x11.h"

#include <X11/Xlib.h>

#include <optional>

#include "../../src/cpp/conversions.h"
#include "../../src/cpp/linux/desktop_session_agent_linux.h"
#include "../../src/cpp/linux/tools_x11_linux.h"
#include "../../src/cpp/linux/x_error_guard.h"

namespace {

using CallInfo = Nan::FunctionCallbackInfo<v8::Value>;

Display* display = nullptr;
int errors_seen = 0;

int CountError(Display* /*display*/, XErrorEvent* /*event*/) { return ++errors_seen; }

// xOpen(name): also puts a handler that counts errors in the place of the process's.
void Open(const CallInfo& info) {
  display = XOpenDisplay(*Nan::Utf8String(info[0]));
  if (!display) return Nan::ThrowError("no display");
  XSetErrorHandler(CountError);
}

// xErrors(): how many errors that handler has seen.
void Errors(const CallInfo& info) { info.GetReturnValue().Set(errors_seen); }

// xProperty(window, atom or name): outputs that were left alone are 77.
void Property(const CallInfo& info) {
  const auto window = static_cast<Window>(Nan::To<int64_t>(info[0]).FromJust());
  unsigned long count = 77;
  int format = 77;
  const Nan::Utf8String name(info[1]);
  const auto atom = static_cast<Atom>(Nan::To<int64_t>(info[1]).FromJust());
  const auto items = info[1]->IsString()
                         ? tools_x11::get_property(display, window, *name, &count, &format)
                         : tools_x11::get_property(display, window, atom, &count, &format);
  const auto result = Nan::New<v8::Object>();
  const auto* bytes = reinterpret_cast<const char*>(items.data());
  kiv::SetKey(result, "items",
              Nan::CopyBuffer(bytes, static_cast<uint32_t>(items.size())).ToLocalChecked());
  kiv::SetKey(result, "count", static_cast<double>(count));
  kiv::SetKey(result, "format", format);
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
  kiv::SetKey(result, "window", static_cast<double>(window));
  kiv::SetKey(result, "title", kiv::ToJsString(data.snap.activeWindowTitle));
  kiv::SetKey(result, "process", kiv::ToJsString(data.snap.activeProcessName));
  info.GetReturnValue().Set(result);
}

void Screens(const CallInfo& info) {
  const auto result = Nan::New<v8::Array>();
  for (const XineramaScreenInfo& screen : tools_x11::xinerama_query_screens(display)) {
    const auto entry = Nan::New<v8::Array>();
    const int values[] = {screen.x_org, screen.y_org, screen.width, screen.height};
    for (const int value : values) Nan::Set(entry, entry->Length(), Nan::New(value));
    Nan::Set(result, result->Length(), entry);
  }
  info.GetReturnValue().Set(result);
}

}  // namespace

void AddX11Helpers(v8::Local<v8::Object> exports) {
  Nan::SetMethod(exports, "xOpen", Open);
  Nan::SetMethod(exports, "xErrors", Errors);
  Nan::SetMethod(exports, "xProperty", Property);
  Nan::SetMethod(exports, "xTopLevel", TopLevel);
  Nan::SetMethod(exports, "xScreens", Screens);
}
