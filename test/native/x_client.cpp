// A client with its own X connection, for tests: makes windows, sets properties, injects input.

// Xlib's macros break the headers of the engine that come after them.
// clang-format off
#include <nan.h>
// clang-format on

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XInput2.h>
#include <X11/extensions/XRes.h>
#include <X11/extensions/XTest.h>
#include <X11/extensions/scrnsaver.h>

#include <array>
#include <climits>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {

using Info = const Nan::FunctionCallbackInfo<v8::Value>&;

// Collects the errors of one connection's requests; those of other connections go where they went.
class ErrorTrap {
 public:
  explicit ErrorTrap(Display* display) : display_(display) {
    XSync(display_, False);
    current_ = this;
    previous_ = XSetErrorHandler(&ErrorTrap::OnError);
  }
  ~ErrorTrap() { Finish(); }
  ErrorTrap(const ErrorTrap&) = delete;
  ErrorTrap& operator=(const ErrorTrap&) = delete;

  const std::string& Finish() {
    if (current_ == this) {
      XSync(display_, False);
      XSetErrorHandler(previous_);
      current_ = nullptr;
    }
    return error_;
  }

 private:
  static int OnError(Display* display, XErrorEvent* event) {
    if (display != current_->display_) {
      return current_->previous_ ? current_->previous_(display, event) : 0;
    }
    std::array<char, 256> text{};
    XGetErrorText(display, event->error_code, text.data(), static_cast<int>(text.size()));
    if (current_->error_.empty()) {
      current_->error_ = std::string(text.data()) + " (request " +
                         std::to_string(event->request_code) + ", resource " +
                         std::to_string(event->resourceid) + ")";
    }
    return 0;
  }

  inline static ErrorTrap* current_ = nullptr;
  Display* display_;
  XErrorHandler previous_ = nullptr;
  std::string error_;
};

struct Client {
  explicit Client(Display* opened) : display(opened) {}
  ~Client() { Close(); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  void Close() {
    if (display) XCloseDisplay(display);
    display = nullptr;
  }
  Atom Intern(const std::string& name) const { return XInternAtom(display, name.c_str(), False); }

  Display* display;
};

// Closed when the process ends at the latest; nothing here refers to the JavaScript engine.
std::vector<std::unique_ptr<Client>>& Clients() {
  static std::vector<std::unique_ptr<Client>> clients;
  return clients;
}

double Number(v8::Local<v8::Value> value, double fallback = 0) {
  return value->IsNumber() ? Nan::To<double>(value).FromMaybe(fallback) : fallback;
}

int Int(Info info, int index, int fallback = 0) {
  return static_cast<int>(Number(info[index], fallback));
}

XID Id(Info info, int index = 0) { return static_cast<XID>(Number(info[index])); }

std::string Text(v8::Local<v8::Value> value) {
  Nan::Utf8String text(value);
  return *text ? std::string(*text, static_cast<size_t>(text.length())) : std::string();
}

v8::Local<v8::Value> Get(v8::Local<v8::Object> object, const char* name) {
  return Nan::Get(object, Nan::New(name).ToLocalChecked())
      .FromMaybe(Nan::Undefined().As<v8::Value>());
}

void Set(v8::Local<v8::Object> object, const char* name, v8::Local<v8::Value> value) {
  Nan::Set(object, Nan::New(name).ToLocalChecked(), value).Check();
}

void Set(v8::Local<v8::Object> object, const char* name, double value) {
  Set(object, name, Nan::New(value));
}

bool ScreenOf(const Client& client, int screen) {
  if (screen >= 0 && screen < ScreenCount(client.display)) return true;
  Nan::ThrowRangeError("no such screen");
  return false;
}

// Returns the number of an opaque colour given as 0xRRGGBB.
unsigned long Pixel(const Client& client, int screen, unsigned rgb) {
  XColor color{};
  color.red = static_cast<unsigned short>(((rgb >> 16) & 0xff) * 0x101);
  color.green = static_cast<unsigned short>(((rgb >> 8) & 0xff) * 0x101);
  color.blue = static_cast<unsigned short>((rgb & 0xff) * 0x101);
  XAllocColor(client.display, DefaultColormap(client.display, screen), &color);
  return color.pixel;
}

void CreateWindow(Client& client, Info info) {
  if (!info[0]->IsObject()) return Nan::ThrowTypeError("createWindow wants an object");
  auto options = info[0].As<v8::Object>();
  auto option = [&](const char* name, double fallback) {
    return static_cast<long>(Number(Get(options, name), fallback));
  };
  const int screen = static_cast<int>(option("screen", DefaultScreen(client.display)));
  if (!ScreenOf(client, screen)) return;
  const auto x = static_cast<int>(option("x", 0));
  const auto y = static_cast<int>(option("y", 0));
  const auto width = static_cast<int>(option("width", 100));
  const auto height = static_cast<int>(option("height", 100));
  const auto parent = static_cast<Window>(
      option("parent", static_cast<double>(RootWindow(client.display, screen))));

  XSetWindowAttributes attributes{};
  attributes.override_redirect =
      Nan::To<bool>(Get(options, "overrideRedirect")).FromMaybe(false) ? True : False;
  attributes.background_pixel =
      Pixel(client, screen, static_cast<unsigned>(option("color", 0xffffff)));
  attributes.event_mask = StructureNotifyMask | PropertyChangeMask;
  const Window window =
      XCreateWindow(client.display, parent, x, y, static_cast<unsigned>(width),
                    static_cast<unsigned>(height), 0, CopyFromParent, InputOutput, nullptr,
                    CWOverrideRedirect | CWBackPixel | CWEventMask, &attributes);

  // The contents, not the frame, belong at the position asked for.
  XSizeHints size{};
  size.flags = USPosition | USSize | PWinGravity;
  size.x = x;
  size.y = y;
  size.width = width;
  size.height = height;
  size.win_gravity = StaticGravity;
  XSetWMNormalHints(client.display, window, &size);
  XWMHints hints{};
  hints.flags = InputHint;
  hints.input = True;
  XSetWMHints(client.display, window, &hints);
  Atom protocol = client.Intern("WM_DELETE_WINDOW");
  XSetWMProtocols(client.display, window, &protocol, 1);
  info.GetReturnValue().Set(static_cast<double>(window));
}

void Map(Client& client, Info info) { XMapWindow(client.display, Id(info)); }
void Unmap(Client& client, Info info) { XUnmapWindow(client.display, Id(info)); }
void Destroy(Client& client, Info info) { XDestroyWindow(client.display, Id(info)); }
void KillClient(Client& client, Info info) { XKillClient(client.display, Id(info)); }
void Raise(Client& client, Info info) { XRaiseWindow(client.display, Id(info)); }

void MoveResize(Client& client, Info info) {
  XMoveResizeWindow(client.display, Id(info), Int(info, 1), Int(info, 2),
                    static_cast<unsigned>(Int(info, 3)), static_cast<unsigned>(Int(info, 4)));
}

// setProperty(id, name, type, format, buffer): Xlib wants items as shorts and longs.
void SetProperty(Client& client, Info info) {
  if (!node::Buffer::HasInstance(info[4])) return Nan::ThrowTypeError("the data is no Buffer");
  const char* data = node::Buffer::Data(info[4]);
  const size_t length = node::Buffer::Length(info[4]);
  const int format = Int(info, 3);
  if ((format != 8 && format != 16 && format != 32) || length % (format / 8) != 0) {
    return Nan::ThrowRangeError("the format is 8, 16 or 32 and the data a multiple of it");
  }
  const size_t count = length / (format / 8);
  std::vector<long> longs;
  if (format == 32) {
    longs.resize(count);
    for (size_t i = 0; i < count; ++i) {
      int32_t item = 0;
      std::memcpy(&item, data + i * sizeof item, sizeof item);
      longs[i] = item;
    }
    data = reinterpret_cast<const char*>(longs.data());
  }
  // An empty vector has no address, and Xlib reads none.
  static const unsigned char kNothing = 0;
  XChangeProperty(client.display, Id(info), client.Intern(Text(info[1])),
                  client.Intern(Text(info[2])), format, PropModeReplace,
                  count ? reinterpret_cast<const unsigned char*>(data) : &kNothing,
                  static_cast<int>(count));
}

void DeleteProperty(Client& client, Info info) {
  XDeleteProperty(client.display, Id(info), client.Intern(Text(info[1])));
}

void GetProperty(Client& client, Info info) {
  Atom type = None;
  int format = 0;
  unsigned long count = 0;
  unsigned long left = 0;
  unsigned char* data = nullptr;
  const int status =
      XGetWindowProperty(client.display, Id(info), client.Intern(Text(info[1])), 0, INT_MAX / 4,
                         False, AnyPropertyType, &type, &format, &count, &left, &data);
  const std::unique_ptr<unsigned char, int (*)(void*)> owner(data, XFree);
  info.GetReturnValue().SetNull();
  if (status != Success || type == None) return;

  std::string bytes;
  if (format == 32) {
    for (unsigned long i = 0; i < count; ++i) {
      long item = 0;
      std::memcpy(&item, data + i * sizeof item, sizeof item);
      const auto low = static_cast<int32_t>(item);
      bytes.append(reinterpret_cast<const char*>(&low), sizeof low);
    }
  } else {
    bytes.assign(reinterpret_cast<const char*>(data), count * static_cast<size_t>(format / 8));
  }
  const std::unique_ptr<char, int (*)(void*)> name(XGetAtomName(client.display, type), XFree);
  auto result = Nan::New<v8::Object>();
  Set(result, "type", Nan::New(name ? name.get() : "").ToLocalChecked());
  Set(result, "format", format);
  Set(result, "count", static_cast<double>(count));
  Set(result, "data",
      Nan::CopyBuffer(bytes.data(), static_cast<uint32_t>(bytes.size())).ToLocalChecked());
  info.GetReturnValue().Set(result);
}

void Atom_(Client& client, Info info) {
  info.GetReturnValue().Set(static_cast<double>(client.Intern(Text(info[0]))));
}

void RootWindow_(Client& client, Info info) {
  const int screen = Int(info, 0, DefaultScreen(client.display));
  if (!ScreenOf(client, screen)) return;
  info.GetReturnValue().Set(static_cast<double>(RootWindow(client.display, screen)));
}

void FillRect(Client& client, Info info) {
  XWindowAttributes attributes{};
  if (!XGetWindowAttributes(client.display, Id(info), &attributes)) return;
  XGCValues values{};
  values.foreground = Pixel(client, XScreenNumberOfScreen(attributes.screen),
                            static_cast<unsigned>(Number(info[5])));
  const GC context = XCreateGC(client.display, Id(info), GCForeground, &values);
  XFillRectangle(client.display, Id(info), context, Int(info, 1), Int(info, 2),
                 static_cast<unsigned>(Int(info, 3)), static_cast<unsigned>(Int(info, 4)));
  XFreeGC(client.display, context);
}

// drawImage(id, x, y, width, height, bgrx). Xlib cuts the image into requests that fit.
void DrawImage(Client& client, Info info) {
  const int width = Int(info, 3);
  const int height = Int(info, 4);
  if (!node::Buffer::HasInstance(info[5]) || width <= 0 || height <= 0 ||
      node::Buffer::Length(info[5]) != static_cast<size_t>(width) * height * 4) {
    return Nan::ThrowTypeError("the pixels are no Buffer of width * height * 4 bytes");
  }
  XWindowAttributes attributes{};
  if (!XGetWindowAttributes(client.display, Id(info), &attributes)) return;
  if (attributes.depth < 24) return Nan::ThrowRangeError("the window's depth is not 24 or 32");
  XImage* image =
      XCreateImage(client.display, attributes.visual, static_cast<unsigned>(attributes.depth),
                   ZPixmap, 0, node::Buffer::Data(info[5]), static_cast<unsigned>(width),
                   static_cast<unsigned>(height), 32, width * 4);
  if (!image) return Nan::ThrowError("XCreateImage failed");
  image->byte_order = LSBFirst;
  const GC context = XCreateGC(client.display, Id(info), 0, nullptr);
  XPutImage(client.display, Id(info), context, image, 0, 0, Int(info, 1), Int(info, 2),
            static_cast<unsigned>(width), static_cast<unsigned>(height));
  XFreeGC(client.display, context);
  image->data = nullptr;
  XDestroyImage(image);
}

// getImage(id, x, y, width, height): BGRX; parts that other windows cover hold what these show.
void GetImage(Client& client, Info info) {
  const int width = Int(info, 3);
  const int height = Int(info, 4);
  XImage* image =
      XGetImage(client.display, Id(info), Int(info, 1), Int(info, 2), static_cast<unsigned>(width),
                static_cast<unsigned>(height), AllPlanes, ZPixmap);
  if (!image) return;
  if (image->bits_per_pixel == 32 && image->bytes_per_line == width * 4) {
    info.GetReturnValue().Set(
        Nan::CopyBuffer(image->data, static_cast<uint32_t>(width * height * 4)).ToLocalChecked());
  }
  XDestroyImage(image);
}

// children(id): the windows beneath a window, lowest first.
void Children(Client& client, Info info) {
  Window root = None;
  Window parent = None;
  Window* windows = nullptr;
  unsigned count = 0;
  auto result = Nan::New<v8::Array>();
  info.GetReturnValue().Set(result);
  if (!XQueryTree(client.display, Id(info), &root, &parent, &windows, &count)) return;
  const std::unique_ptr<Window, int (*)(void*)> owner(windows, XFree);
  for (unsigned i = 0; i < count; ++i) {
    Nan::Set(result, i, Nan::New(static_cast<double>(windows[i]))).Check();
  }
}

// resources(id): how many of each kind the client that made a resource has on the server.
void Resources(Client& client, Info info) {
  XResType* types = nullptr;
  int count = 0;
  if (!XResQueryClientResources(client.display, Id(info), &count, &types)) {
    return Nan::ThrowError("the server has no resource extension");
  }
  const std::unique_ptr<XResType, int (*)(void*)> owner(types, XFree);
  auto result = Nan::New<v8::Object>();
  for (int i = 0; i < count; ++i) {
    const std::unique_ptr<char, int (*)(void*)> name(
        XGetAtomName(client.display, types[i].resource_type), XFree);
    Set(result, name.get(), types[i].count);
  }
  info.GetReturnValue().Set(result);
}

// resourcesOfProcess(pid): how many connections it has, the sum of each kind of their resources,
// and the bytes of their pixmaps.
void ResourcesOfProcess(Client& client, Info info) {
  XResClientIdSpec every = {None, XRES_CLIENT_ID_PID_MASK};
  long count = 0;
  XResClientIdValue* ids = nullptr;
  if (XResQueryClientIds(client.display, 1, &every, &count, &ids) != Success) {
    return Nan::ThrowError("the server does not know its clients' processes");
  }
  int connections = 0;
  double bytes = 0;
  std::map<std::string, int> sums;
  for (long i = 0; i < count; ++i) {
    if (XResGetClientPid(&ids[i]) != Int(info, 0)) continue;
    ++connections;
    const XID owner = ids[i].spec.client;
    unsigned long pixmaps = 0;
    if (XResQueryClientPixmapBytes(client.display, owner, &pixmaps)) {
      bytes += static_cast<double>(pixmaps);
    }
    XResType* types = nullptr;
    int kinds = 0;
    if (!XResQueryClientResources(client.display, owner, &kinds, &types)) continue;
    const std::unique_ptr<XResType, int (*)(void*)> types_owner(types, XFree);
    for (int kind = 0; kind < kinds; ++kind) {
      const std::unique_ptr<char, int (*)(void*)> name(
          XGetAtomName(client.display, types[kind].resource_type), XFree);
      sums[name.get()] += static_cast<int>(types[kind].count);
    }
  }
  XResClientIdsDestroy(count, ids);
  auto result = Nan::New<v8::Object>();
  auto resources = Nan::New<v8::Object>();
  for (const auto& [name, sum] : sums) Set(resources, name.c_str(), sum);
  Set(result, "connections", connections);
  Set(result, "pixmapBytes", bytes);
  Set(result, "resources", resources);
  info.GetReturnValue().Set(result);
}

void Key(Client& client, Info info) {
  XTestFakeKeyEvent(client.display, static_cast<unsigned>(Int(info, 0)),
                    Nan::To<bool>(info[1]).FromMaybe(false), CurrentTime);
}

void Keycode(Client& client, Info info) {
  const KeySym symbol = XStringToKeysym(Text(info[0]).c_str());
  info.GetReturnValue().Set(static_cast<int>(XKeysymToKeycode(client.display, symbol)));
}

void Button(Client& client, Info info) {
  XTestFakeButtonEvent(client.display, static_cast<unsigned>(Int(info, 0)),
                       Nan::To<bool>(info[1]).FromMaybe(false), CurrentTime);
}

void Motion(Client& client, Info info) {
  XTestFakeMotionEvent(client.display, Int(info, 2, -1), Int(info, 0), Int(info, 1), CurrentTime);
}

void Warp(Client& client, Info info) {
  const int screen = Int(info, 2, DefaultScreen(client.display));
  if (!ScreenOf(client, screen)) return;
  XWarpPointer(client.display, None, RootWindow(client.display, screen), 0, 0, 0, 0, Int(info, 0),
               Int(info, 1));
}

void Pointer(Client& client, Info info) {
  Window root = None;
  Window child = None;
  int x = 0;
  int y = 0;
  int inner_x = 0;
  int inner_y = 0;
  unsigned mask = 0;
  XQueryPointer(client.display, DefaultRootWindow(client.display), &root, &child, &x, &y, &inner_x,
                &inner_y, &mask);
  auto result = Nan::New<v8::Object>();
  Set(result, "root", static_cast<double>(root));
  Set(result, "x", x);
  Set(result, "y", y);
  info.GetReturnValue().Set(result);
}

void GrabKeyboard(Client& client, Info /*info*/) {
  XGrabKeyboard(client.display, DefaultRootWindow(client.display), False, GrabModeAsync,
                GrabModeAsync, CurrentTime);
}

// addMaster(name), removeMaster(name): another pair of master devices with slaves of its own.
void AddMaster(Client& client, Info info) {
  std::string name = Text(info[0]);
  XIAnyHierarchyChangeInfo change{};
  change.add.type = XIAddMaster;
  change.add.name = name.data();
  change.add.send_core = True;
  change.add.enable = True;
  XIChangeHierarchy(client.display, &change, 1);
}

void RemoveMaster(Client& client, Info info) {
  const std::string wanted = Text(info[0]) + " pointer";
  int count = 0;
  XIDeviceInfo* devices = XIQueryDevice(client.display, XIAllMasterDevices, &count);
  for (int i = 0; i < count; ++i) {
    if (wanted != devices[i].name) continue;
    XIAnyHierarchyChangeInfo change{};
    change.remove.type = XIRemoveMaster;
    change.remove.deviceid = devices[i].deviceid;
    change.remove.return_mode = XIFloating;
    XIChangeHierarchy(client.display, &change, 1);
  }
  XIFreeDeviceInfo(devices);
}

void Focus(Client& client, Info info) {
  XSetInputFocus(client.display, Id(info), RevertToParent, CurrentTime);
}

void FocusedWindow(Client& client, Info info) {
  Window window = None;
  int revert = 0;
  XGetInputFocus(client.display, &window, &revert);
  info.GetReturnValue().Set(static_cast<double>(window));
}

void SendMessage(Client& client, Window to, Window about, const char* type, long first, long mask) {
  XEvent event{};
  event.xclient.type = ClientMessage;
  event.xclient.window = about;
  event.xclient.message_type = client.Intern(type);
  event.xclient.format = 32;
  event.xclient.data.l[0] = first;
  event.xclient.data.l[1] = CurrentTime;
  XSendEvent(client.display, to, False, mask, &event);
}

// The window manager makes the window active, as a pager's request: source indication 2.
void Activate(Client& client, Info info) {
  XWindowAttributes attributes{};
  if (!XGetWindowAttributes(client.display, Id(info), &attributes)) return;
  SendMessage(client, attributes.root, Id(info), "_NET_ACTIVE_WINDOW", 2,
              SubstructureRedirectMask | SubstructureNotifyMask);
}

void CloseWindow(Client& client, Info info) {
  SendMessage(client, Id(info), Id(info), "WM_PROTOCOLS",
              static_cast<long>(client.Intern("WM_DELETE_WINDOW")), NoEventMask);
}

void Geometry(Client& client, Info info) {
  XWindowAttributes attributes{};
  if (!XGetWindowAttributes(client.display, Id(info), &attributes)) return;
  int x = 0;
  int y = 0;
  Window child = None;
  XTranslateCoordinates(client.display, Id(info), attributes.root, 0, 0, &x, &y, &child);
  auto result = Nan::New<v8::Object>();
  Set(result, "x", x);
  Set(result, "y", y);
  Set(result, "width", attributes.width);
  Set(result, "height", attributes.height);
  Set(result, "depth", attributes.depth);
  Set(result, "screen", XScreenNumberOfScreen(attributes.screen));
  Set(result, "viewable", Nan::New(attributes.map_state == IsViewable));
  info.GetReturnValue().Set(result);
}

void Parent(Client& client, Info info) {
  Window root = None;
  Window parent = None;
  Window* children = nullptr;
  unsigned count = 0;
  if (!XQueryTree(client.display, Id(info), &root, &parent, &children, &count)) return;
  XFree(children);
  info.GetReturnValue().Set(static_cast<double>(parent));
}

// Takes all waiting events and returns their types.
void PendingEvents(Client& client, Info info) {
  auto types = Nan::New<v8::Array>();
  for (uint32_t i = 0; XPending(client.display) > 0; ++i) {
    XEvent event;
    XNextEvent(client.display, &event);
    Nan::Set(types, i, Nan::New(event.type)).Check();
  }
  info.GetReturnValue().Set(types);
}

void IdleMs(Client& client, Info info) {
  XScreenSaverInfo state{};
  if (!XScreenSaverQueryInfo(client.display, DefaultRootWindow(client.display), &state)) {
    return Nan::ThrowError("the server has no screen saver extension");
  }
  info.GetReturnValue().Set(static_cast<double>(state.idle));
}

void Sync(Client& client, Info) { XSync(client.display, False); }

Client* Unwrap(Info info) {
  return static_cast<Client*>(Nan::GetInternalFieldPointer(info.This(), 0));
}

// Runs one operation with its X errors turned into exceptions.
template <void (*Operation)(Client&, Info)>
void Call(Info info) {
  Client* client = Unwrap(info);
  if (!client->display) return Nan::ThrowError("the client is closed");
  ErrorTrap trap(client->display);
  Operation(*client, info);
  const std::string& error = trap.Finish();
  if (!error.empty()) Nan::ThrowError(error.c_str());
}

void Close(Info info) { Unwrap(info)->Close(); }

Nan::Persistent<v8::ObjectTemplate>& Template() {
  static Nan::Persistent<v8::ObjectTemplate> object_template;
  return object_template;
}

void Open(Info info) {
  const std::string name = info[0]->IsString() ? Text(info[0]) : std::string();
  Display* display = XOpenDisplay(name.empty() ? nullptr : name.c_str());
  if (!display) return Nan::ThrowError(("cannot open display " + name).c_str());
  auto object = Nan::NewInstance(Nan::New(Template())).ToLocalChecked();
  Clients().push_back(std::make_unique<Client>(display));
  Nan::SetInternalFieldPointer(object, 0, Clients().back().get());
  info.GetReturnValue().Set(object);
}

void Init(v8::Local<v8::Object> exports, v8::Local<v8::Value>, void*) {
  auto methods = Nan::New<v8::ObjectTemplate>();
  methods->SetInternalFieldCount(1);
  Template().Reset(methods);
  Nan::SetMethod(methods, "close", Close);
  Nan::SetMethod(methods, "createWindow", Call<CreateWindow>);
  Nan::SetMethod(methods, "map", Call<Map>);
  Nan::SetMethod(methods, "unmap", Call<Unmap>);
  Nan::SetMethod(methods, "destroy", Call<Destroy>);
  Nan::SetMethod(methods, "killClient", Call<KillClient>);
  Nan::SetMethod(methods, "raise", Call<Raise>);
  Nan::SetMethod(methods, "moveResize", Call<MoveResize>);
  Nan::SetMethod(methods, "setProperty", Call<SetProperty>);
  Nan::SetMethod(methods, "deleteProperty", Call<DeleteProperty>);
  Nan::SetMethod(methods, "getProperty", Call<GetProperty>);
  Nan::SetMethod(methods, "atom", Call<Atom_>);
  Nan::SetMethod(methods, "rootWindow", Call<RootWindow_>);
  Nan::SetMethod(methods, "fillRect", Call<FillRect>);
  Nan::SetMethod(methods, "drawImage", Call<DrawImage>);
  Nan::SetMethod(methods, "getImage", Call<GetImage>);
  Nan::SetMethod(methods, "children", Call<Children>);
  Nan::SetMethod(methods, "resources", Call<Resources>);
  Nan::SetMethod(methods, "resourcesOfProcess", Call<ResourcesOfProcess>);
  Nan::SetMethod(methods, "key", Call<Key>);
  Nan::SetMethod(methods, "keycode", Call<Keycode>);
  Nan::SetMethod(methods, "button", Call<Button>);
  Nan::SetMethod(methods, "motion", Call<Motion>);
  Nan::SetMethod(methods, "warp", Call<Warp>);
  Nan::SetMethod(methods, "pointer", Call<Pointer>);
  Nan::SetMethod(methods, "grabKeyboard", Call<GrabKeyboard>);
  Nan::SetMethod(methods, "addMaster", Call<AddMaster>);
  Nan::SetMethod(methods, "removeMaster", Call<RemoveMaster>);
  Nan::SetMethod(methods, "focus", Call<Focus>);
  Nan::SetMethod(methods, "focusedWindow", Call<FocusedWindow>);
  Nan::SetMethod(methods, "activate", Call<Activate>);
  Nan::SetMethod(methods, "closeWindow", Call<CloseWindow>);
  Nan::SetMethod(methods, "geometry", Call<Geometry>);
  Nan::SetMethod(methods, "parent", Call<Parent>);
  Nan::SetMethod(methods, "pendingEvents", Call<PendingEvents>);
  Nan::SetMethod(methods, "idleMs", Call<IdleMs>);
  Nan::SetMethod(methods, "sync", Call<Sync>);
  Nan::SetMethod(exports, "open", Open);
}

}  // namespace

NODE_MODULE(x_client, Init)
