#include "tools_x11_linux.h"

#include <algorithm>
#include <cstring>
#include <map>

#include "desktop_session_data_linux.h"
#include "process_command_line.h"

namespace tools_x11 {

namespace {

constexpr char kActiveWindow[] = "_NET_ACTIVE_WINDOW";

std::map<std::string, unsigned long> g_atoms;

template <typename Item>
unsigned long FirstAs(const unsigned char* data) {
  Item item;
  std::memcpy(&item, data, sizeof item);
  return static_cast<unsigned long>(item);
}

template <typename Value>
void Put(Value* output, Value value) {
  if (output) *output = value;
}

std::vector<Window> get_property_active_windows(Display* display, Window window) {
  const std::vector<uint8_t> bytes = get_property(display, window, kActiveWindow);
  std::vector<Window> windows;
  for (size_t at = 0; at + sizeof(uint32_t) <= bytes.size(); at += sizeof(uint32_t)) {
    windows.push_back(FirstAs<uint32_t>(bytes.data() + at));
  }
  return windows;
}

std::string Title(Display* display, Window window) {
  std::vector<uint8_t> bytes = get_property(display, window, "_NET_WM_NAME");
  if (bytes.empty()) bytes = get_property(display, window, "WM_NAME");
  return std::string(bytes.begin(), bytes.end());
}

std::string CommandLine(Display* display, Window window) {
  int format = 0;
  const std::vector<uint8_t> bytes = get_property(display, window, "_NET_WM_PID", nullptr, &format);
  if (format != 32 || bytes.empty()) return kiv::kUndefined;
  const auto pid = static_cast<int32_t>(FirstAs<uint32_t>(bytes.data()));
  return kiv::ReadCommandLine(pid).value_or(kiv::kUndefined);
}

// The ancestor of `window`, or itself, that is a child of the root window.
Window TopLevelOf(Display* display, Window window) {
  while (get_property_active_windows(display, window).empty()) {
    Window root = None;
    Window parent = None;
    Window* children = nullptr;
    unsigned count = 0;
    const Status found = XQueryTree(display, window, &root, &parent, &children, &count);
    const kiv::XPtr<Window> owner(found ? children : nullptr);
    if (!found) return None;
    if (parent == root) break;
    window = parent;
  }
  return window;
}

}  // namespace

unsigned long WindowProperty::FirstItem() const {
  if (!data || count == 0) return 0;
  if (format == 32) return FirstAs<unsigned long>(data.get());
  if (format == 16) return FirstAs<unsigned short>(data.get());
  return FirstAs<unsigned char>(data.get());
}

std::string WindowProperty::CString() const {
  if (!data) return std::string();
  const auto* text = reinterpret_cast<const char*>(data.get());
  return std::string(text, strnlen(text, count * ItemSize()));
}

size_t WindowProperty::ItemSize() const {
  if (format == 32) return sizeof(long);
  if (format == 16) return sizeof(short);
  return sizeof(char);
}

WindowProperty read_property(Display* display, Window window, Atom property, long units) {
  WindowProperty result;
  unsigned char* data = nullptr;
  unsigned long bytes_after = 0;
  result.status =
      XGetWindowProperty(display, window, property, 0, units, False, AnyPropertyType, &result.type,
                         &result.format, &result.count, &bytes_after, &data);
  if (result.status != Success) return result;
  result.data.reset(data);
  result.total = result.count;
  if (result.format != 0) result.total += bytes_after / (static_cast<unsigned>(result.format) / 8);
  return result;
}

std::vector<uint8_t> get_property(Display* display, Window window, Atom property,
                                  unsigned long* count, int* format, unsigned long* type) {
  if (window == None) {
    Put(count, 0UL);
    Put(format, 0);
    return {};
  }
  const WindowProperty value = read_property(display, window, property, kWholeProperty);
  if (value.status != Success) {
    Put(count, 0UL);
    return {};
  }
  Put(type, value.type);
  Put(count, value.count);
  Put(format, value.format);
  if (!value.data) return {};
  const size_t stride = value.ItemSize();
  const auto size = static_cast<size_t>(value.format) / 8;
  std::vector<uint8_t> items(value.count * size);
  for (size_t i = 0; i < value.count; ++i) {
    if (size == sizeof(uint32_t)) {
      const auto item =
          static_cast<uint32_t>(FirstAs<unsigned long>(value.data.get() + i * stride));
      std::memcpy(items.data() + i * size, &item, size);
    } else {
      std::memcpy(items.data() + i * size, value.data.get() + i * stride, size);
    }
  }
  return items;
}

std::vector<uint8_t> get_property(Display* display, Window window, const char* name,
                                  unsigned long* count, int* format, unsigned long* type) {
  auto known = g_atoms.find(name);
  if (known == g_atoms.end()) {
    known = g_atoms.emplace(name, XInternAtom(display, name, True)).first;
  }
  return get_property(display, window, known->second, count, format, type);
}

Window find_top_level_active_window(Display* display, kiv::DesktopSessionData* data) {
  const Atom active = XInternAtom(display, kActiveWindow, True);
  const std::vector<Window> windows =
      get_property_active_windows(display, DefaultRootWindow(display));
  const auto first =
      std::find_if(windows.begin(), windows.end(), [](Window w) { return w != None; });
  if (first == windows.end()) return None;
  data->snap.activeProcessName = CommandLine(display, *first);
  data->snap.activeWindowTitle = Title(display, *first);
  if (active != None) return TopLevelOf(display, *first);
  Window focused = None;
  int revert_to = 0;
  XGetInputFocus(display, &focused, &revert_to);
  return focused;
}

std::vector<XineramaScreenInfo> xinerama_query_screens(Display* display) {
  int count = 0;
  const kiv::XPtr<XineramaScreenInfo> screens(XineramaQueryScreens(display, &count));
  if (!screens) return {};
  return std::vector<XineramaScreenInfo>(screens.get(), screens.get() + count);
}

}  // namespace tools_x11
