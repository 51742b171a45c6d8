// A client with its own X connection, for tests: makes windows, sets properties, injects input.

// Xlib's macros break the headers of the engine that come after them.
// clang-format off
#include <nan.h>
// clang-format on

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XRes.h>
#include <X11/extensions/XTest.h>
#include <X11/extensions/scrnsaver.h>

#include <climits>
#include <cstring>
#include <initializer_list>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

using Info = const Nan::FunctionCallbackInfo<v8::Value>&;

template <typename T>
using XPtr = std::unique_ptr<T, int (*)(void*)>;

double Number(v8::Local<v8::Value> value, double fallback = 0) {
  return value->IsNumber() ? Nan::To<double>(value).FromMaybe(fallback) : fallback;
}

v8::Local<v8::String> Name(const char* text) { return Nan::New(text).ToLocalChecked(); }

// One call of a client's method: its connection, its arguments and its result.
struct Call {
  int Int(int index, int fallback = 0) const {
    return static_cast<int>(Number(info[index], fallback));
  }
  unsigned Size(int index) const { return static_cast<unsigned>(Int(index)); }
  XID Id() const { return static_cast<XID>(Number(info[0])); }
  bool Flag(int index) const { return Nan::To<bool>(info[index]).FromMaybe(false); }
  std::string Text(int index) const { return *Nan::Utf8String(info[index]); }
  Atom AtomOf(const std::string& name) const { return XInternAtom(display, name.c_str(), False); }
  int Screen(int index) const { return Int(index, DefaultScreen(display)); }

  void Return(v8::Local<v8::Value> value) const { info.GetReturnValue().Set(value); }
  void Return(double value) const { Return(Nan::New(value)); }
  void Return(std::initializer_list<std::pair<const char*, double>> values) const {
    const auto object = Nan::New<v8::Object>();
    for (const auto& [key, value] : values) Nan::Set(object, Name(key), Nan::New(value));
    Return(object);
  }

  Display* display;
  Info info;
};

// The error of the call under way; those of other connections go where they went.
Display* watched = nullptr;
XErrorHandler previous_handler = nullptr;
std::string error_text;

int OnError(Display* display, XErrorEvent* event) {
  if (display != watched) return previous_handler ? previous_handler(display, event) : 0;
  char text[256];
  XGetErrorText(display, event->error_code, text, sizeof text);
  error_text = std::string(text) + " (request " + std::to_string(event->request_code) + ")";
  return 0;
}

void CreateWindow(Call call) {
  if (!call.info[0]->IsObject()) return Nan::ThrowTypeError("createWindow wants an object");
  const auto options = call.info[0].As<v8::Object>();
  const auto get = [&](const char* name) { return Nan::Get(options, Name(name)).ToLocalChecked(); };
  const auto option = [&](const char* name, int fallback) {
    return static_cast<int>(Number(get(name), fallback));
  };
  Display* display = call.display;
  const int screen = option("screen", DefaultScreen(display));
  // The contents, not the frame, belong at the position asked for.
  XSizeHints size{};
  size.flags = USPosition | USSize | PWinGravity;
  size.x = option("x", 0);
  size.y = option("y", 0);
  size.width = option("width", 100);
  size.height = option("height", 100);
  size.win_gravity = StaticGravity;
  XSetWindowAttributes attributes{};
  attributes.override_redirect = Nan::To<bool>(get("overrideRedirect")).FromJust() ? True : False;
  // The servers have 24 bits to a pixel: 0xRRGGBB.
  attributes.background_pixel = static_cast<unsigned>(option("color", 0xffffff));
  const auto root = static_cast<double>(RootWindow(display, screen));
  const Window window = XCreateWindow(
      display, static_cast<Window>(Number(get("parent"), root)), size.x, size.y,
      static_cast<unsigned>(size.width), static_cast<unsigned>(size.height), 0, CopyFromParent,
      InputOutput, nullptr, CWOverrideRedirect | CWBackPixel, &attributes);
  XSetWMNormalHints(display, window, &size);
  call.Return(static_cast<double>(window));
}

// setProperty(id, name, type, format, buffer): Xlib wants 32-bit items as longs.
void SetProperty(Call call) {
  if (!node::Buffer::HasInstance(call.info[4])) return Nan::ThrowTypeError("no Buffer");
  const int format = call.Int(3);
  const char* data = node::Buffer::Data(call.info[4]);
  const size_t count = node::Buffer::Length(call.info[4]) * 8 / static_cast<size_t>(format);
  // Never empty: what has no items needs an address, too.
  std::vector<long> longs(count + 1);
  for (size_t i = 0; format == 32 && i < count; ++i) {
    int32_t item = 0;
    std::memcpy(&item, data + i * sizeof item, sizeof item);
    longs[i] = item;
  }
  const void* items = format == 32 || count == 0 ? static_cast<const void*>(longs.data()) : data;
  XChangeProperty(call.display, call.Id(), call.AtomOf(call.Text(1)), call.AtomOf(call.Text(2)),
                  format, PropModeReplace, static_cast<const unsigned char*>(items),
                  static_cast<int>(count));
}

void GetProperty(Call call) {
  Atom type = None;
  int format = 0;
  unsigned long count = 0;
  unsigned long left = 0;
  unsigned char* data = nullptr;
  XGetWindowProperty(call.display, call.Id(), call.AtomOf(call.Text(1)), 0, INT_MAX / 4, False,
                     AnyPropertyType, &type, &format, &count, &left, &data);
  const XPtr<unsigned char> owner(data, XFree);
  call.Return(Nan::Null());
  if (type == None) return;
  const size_t stride = format == 32 ? sizeof(long) : static_cast<size_t>(format) / 8;
  std::string bytes;
  for (size_t i = 0; i < count; ++i) {
    bytes.append(reinterpret_cast<const char*>(data) + i * stride, static_cast<size_t>(format) / 8);
  }
  const auto result = Nan::New<v8::Object>();
  Nan::Set(result, Name("count"), Nan::New(static_cast<double>(count)));
  Nan::Set(result, Name("data"),
           Nan::CopyBuffer(bytes.data(), static_cast<uint32_t>(bytes.size())).ToLocalChecked());
  call.Return(result);
}

// fillRect(id, x, y, width, height, color)
void FillRect(Call call) {
  XGCValues values{};
  values.foreground = call.Size(5);
  const GC context = XCreateGC(call.display, call.Id(), GCForeground, &values);
  XFillRectangle(call.display, call.Id(), context, call.Int(1), call.Int(2), call.Size(3),
                 call.Size(4));
  XFreeGC(call.display, context);
}

// drawImage(id, x, y, width, height, bgrx). Xlib cuts the image into requests that fit.
void DrawImage(Call call) {
  const unsigned width = call.Size(3);
  const unsigned height = call.Size(4);
  if (!node::Buffer::HasInstance(call.info[5]) ||
      node::Buffer::Length(call.info[5]) != size_t{width} * height * 4) {
    return Nan::ThrowTypeError("the pixels are no Buffer of width * height * 4 bytes");
  }
  XWindowAttributes window{};
  if (!XGetWindowAttributes(call.display, call.Id(), &window)) return;
  XImage* image = XCreateImage(call.display, window.visual, static_cast<unsigned>(window.depth),
                               ZPixmap, 0, node::Buffer::Data(call.info[5]), width, height, 32, 0);
  image->byte_order = LSBFirst;
  const GC context = XCreateGC(call.display, call.Id(), 0, nullptr);
  XPutImage(call.display, call.Id(), context, image, 0, 0, call.Int(1), call.Int(2), width, height);
  XFreeGC(call.display, context);
  image->data = nullptr;
  XDestroyImage(image);
}

// getImage(id, x, y, width, height): BGRX; parts that other windows cover hold what these show.
void GetImage(Call call) {
  XImage* image = XGetImage(call.display, call.Id(), call.Int(1), call.Int(2), call.Size(3),
                            call.Size(4), AllPlanes, ZPixmap);
  if (!image) return;
  call.Return(Nan::CopyBuffer(image->data, call.Size(3) * call.Size(4) * 4).ToLocalChecked());
  XDestroyImage(image);
}

// The parent of a window and the windows beneath it, lowest first.
std::pair<Window, v8::Local<v8::Array>> Tree(Call call) {
  Window root = None;
  Window parent = None;
  Window* windows = nullptr;
  unsigned count = 0;
  XQueryTree(call.display, call.Id(), &root, &parent, &windows, &count);
  const XPtr<Window> owner(windows, XFree);
  const auto children = Nan::New<v8::Array>();
  for (unsigned i = 0; i < count; ++i) {
    Nan::Set(children, i, Nan::New(static_cast<double>(windows[i])));
  }
  return {parent, children};
}

// resources(id): how many of each kind the client that made a resource has on the server.
void Resources(Call call) {
  XResType* types = nullptr;
  int count = 0;
  XResQueryClientResources(call.display, call.Id(), &count, &types);
  const XPtr<XResType> owner(types, XFree);
  const auto result = Nan::New<v8::Object>();
  for (int i = 0; i < count; ++i) {
    const XPtr<char> name(XGetAtomName(call.display, types[i].resource_type), XFree);
    Nan::Set(result, Name(name.get()), Nan::New(types[i].count));
  }
  call.Return(result);
}

// resourcesOfProcess(pid): how many connections it has, the sum of each kind of their resources,
// and the bytes of their pixmaps.
void ResourcesOfProcess(Call call) {
  XResClientIdSpec every = {None, XRES_CLIENT_ID_PID_MASK};
  long count = 0;
  XResClientIdValue* ids = nullptr;
  if (XResQueryClientIds(call.display, 1, &every, &count, &ids) != Success) {
    return Nan::ThrowError("the server does not know its clients' processes");
  }
  int connections = 0;
  double bytes = 0;
  std::map<std::string, double> sums;
  for (long i = 0; i < count; ++i) {
    if (XResGetClientPid(&ids[i]) != call.Int(0)) continue;
    ++connections;
    const XID owner = ids[i].spec.client;
    unsigned long pixmaps = 0;
    if (XResQueryClientPixmapBytes(call.display, owner, &pixmaps)) {
      bytes += static_cast<double>(pixmaps);
    }
    XResType* types = nullptr;
    int kinds = 0;
    if (!XResQueryClientResources(call.display, owner, &kinds, &types)) continue;
    const XPtr<XResType> types_owner(types, XFree);
    for (int kind = 0; kind < kinds; ++kind) {
      const XPtr<char> name(XGetAtomName(call.display, types[kind].resource_type), XFree);
      sums[name.get()] += types[kind].count;
    }
  }
  XResClientIdsDestroy(count, ids);
  const auto result = Nan::New<v8::Object>();
  const auto resources = Nan::New<v8::Object>();
  for (const auto& [name, sum] : sums) Nan::Set(resources, Name(name.c_str()), Nan::New(sum));
  Nan::Set(result, Name("connections"), Nan::New(connections));
  Nan::Set(result, Name("pixmapBytes"), Nan::New(bytes));
  Nan::Set(result, Name("resources"), resources);
  call.Return(result);
}

void Pointer(Call call) {
  Window window = None;
  int x = 0;
  int y = 0;
  int inner = 0;
  unsigned mask = 0;
  XQueryPointer(call.display, DefaultRootWindow(call.display), &window, &window, &x, &y, &inner,
                &inner, &mask);
  call.Return({{"x", x}, {"y", y}});
}

void Geometry(Call call) {
  XWindowAttributes window{};
  if (!XGetWindowAttributes(call.display, call.Id(), &window)) return;
  int x = 0;
  int y = 0;
  Window child = None;
  XTranslateCoordinates(call.display, call.Id(), window.root, 0, 0, &x, &y, &child);
  const double viewable = window.map_state == IsViewable;
  call.Return({{"x", x},
               {"y", y},
               {"width", window.width},
               {"height", window.height},
               {"viewable", viewable}});
}

void FocusedWindow(Call call) {
  Window window = None;
  int revert = 0;
  XGetInputFocus(call.display, &window, &revert);
  call.Return(static_cast<double>(window));
}

void SendMessage(Call call, Window to, const char* type, long first, long mask) {
  XEvent event{};
  event.xclient.type = ClientMessage;
  event.xclient.window = call.Id();
  event.xclient.message_type = call.AtomOf(type);
  event.xclient.format = 32;
  event.xclient.data.l[0] = first;
  XSendEvent(call.display, to, False, mask, &event);
}

void IdleMs(Call call) {
  XScreenSaverInfo state{};
  XScreenSaverQueryInfo(call.display, DefaultRootWindow(call.display), &state);
  call.Return(static_cast<double>(state.idle));
}

struct Method {
  const char* name;
  void (*run)(Call call);
};

const Method kMethods[] = {
    {"createWindow", CreateWindow},
    {"map", [](Call c) { XMapWindow(c.display, c.Id()); }},
    {"unmap", [](Call c) { XUnmapWindow(c.display, c.Id()); }},
    {"destroy", [](Call c) { XDestroyWindow(c.display, c.Id()); }},
    {"killClient", [](Call c) { XKillClient(c.display, c.Id()); }},
    {"raise", [](Call c) { XRaiseWindow(c.display, c.Id()); }},
    {"moveResize",
     [](Call c) {
       XMoveResizeWindow(c.display, c.Id(), c.Int(1), c.Int(2), c.Size(3), c.Size(4));
     }},
    {"setProperty", SetProperty},
    {"deleteProperty", [](Call c) { XDeleteProperty(c.display, c.Id(), c.AtomOf(c.Text(1))); }},
    {"getProperty", GetProperty},
    {"atom", [](Call c) { c.Return(static_cast<double>(c.AtomOf(c.Text(0)))); }},
    {"rootWindow",
     [](Call c) { c.Return(static_cast<double>(RootWindow(c.display, c.Screen(0)))); }},
    {"fillRect", FillRect},
    {"drawImage", DrawImage},
    {"getImage", GetImage},
    {"children", [](Call c) { c.Return(Tree(c).second); }},
    {"parent", [](Call c) { c.Return(static_cast<double>(Tree(c).first)); }},
    {"resources", Resources},
    {"resourcesOfProcess", ResourcesOfProcess},
    {"key", [](Call c) { XTestFakeKeyEvent(c.display, c.Size(0), c.Flag(1), CurrentTime); }},
    {"keycode",
     [](Call c) { c.Return(XKeysymToKeycode(c.display, XStringToKeysym(c.Text(0).c_str()))); }},
    {"button", [](Call c) { XTestFakeButtonEvent(c.display, c.Size(0), c.Flag(1), CurrentTime); }},
    {"motion",
     [](Call c) {
       XTestFakeMotionEvent(c.display, c.Int(2, -1), c.Int(0), c.Int(1), CurrentTime);
     }},
    {"warp",
     [](Call c) {
       const Window root = RootWindow(c.display, c.Screen(2));
       XWarpPointer(c.display, None, root, 0, 0, 0, 0, c.Int(0), c.Int(1));
     }},
    {"pointer", Pointer},
    {"grabKeyboard",
     [](Call c) {
       XGrabKeyboard(c.display, DefaultRootWindow(c.display), False, GrabModeAsync, GrabModeAsync,
                     CurrentTime);
     }},
    {"focus", [](Call c) { XSetInputFocus(c.display, c.Id(), RevertToParent, CurrentTime); }},
    {"focusedWindow", FocusedWindow},
    // The window manager makes the window active, as a pager's request: source indication 2.
    {"activate",
     [](Call c) {
       SendMessage(c, DefaultRootWindow(c.display), "_NET_ACTIVE_WINDOW", 2,
                   SubstructureRedirectMask | SubstructureNotifyMask);
     }},
    {"closeWindow",
     [](Call c) {
       const auto wish = static_cast<long>(c.AtomOf("WM_DELETE_WINDOW"));
       SendMessage(c, c.Id(), "WM_PROTOCOLS", wish, NoEventMask);
     }},
    {"geometry", Geometry},
    {"idleMs", IdleMs},
    {"sync", [](Call c) { XSync(c.display, False); }},
};

Display* DisplayOf(Info info) {
  return static_cast<Display*>(Nan::GetInternalFieldPointer(info.This(), 0));
}

// Runs one method with its X errors turned into an exception.
void Run(Info info) {
  const Call call{DisplayOf(info), info};
  if (!call.display) return Nan::ThrowError("the client is closed");
  XSync(call.display, False);
  watched = call.display;
  previous_handler = XSetErrorHandler(OnError);
  error_text.clear();
  kMethods[Nan::To<int32_t>(info.Data()).FromJust()].run(call);
  XSync(call.display, False);
  XSetErrorHandler(previous_handler);
  if (!error_text.empty()) Nan::ThrowError(error_text.c_str());
}

void Close(Info info) {
  if (Display* display = DisplayOf(info)) XCloseDisplay(display);
  Nan::SetInternalFieldPointer(info.This(), 0, nullptr);
}

// open(name): a client that lasts until its close() or the end of the process.
void Open(Info info) {
  const Nan::Utf8String name(info[0]);
  Display* display = XOpenDisplay(info[0]->IsString() ? *name : nullptr);
  if (!display) return Nan::ThrowError("cannot open the display");
  const auto client = Nan::New<v8::ObjectTemplate>();
  client->SetInternalFieldCount(1);
  Nan::SetMethod(client, "close", Close);
  for (int i = 0; i < static_cast<int>(std::size(kMethods)); ++i) {
    Nan::SetMethod(client, kMethods[i].name, Run, Nan::New(i));
  }
  // Within reach of the leak check, which does not look into the engine's heap.
  static auto* const displays = new std::vector<Display*>;
  displays->push_back(display);
  const auto object = Nan::NewInstance(client).ToLocalChecked();
  Nan::SetInternalFieldPointer(object, 0, display);
  info.GetReturnValue().Set(object);
}

void Init(v8::Local<v8::Object> exports, v8::Local<v8::Value> /*module*/, void* /*priv*/) {
  Nan::SetMethod(exports, "open", Open);
}

}  // namespace

NODE_MODULE(x_client, Init)
