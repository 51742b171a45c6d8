// Properties as any X client may set them, on the root and on the window that is called active.

#include <fuzzer/FuzzedDataProvider.h>

// Xlib's macros break headers that come after them.
// clang-format off
#include "../../src/cpp/addon.h"
#include "../../src/cpp/linux/active_window.h"
#include "../../src/cpp/linux/tools_x11_linux.h"
#include "../../src/cpp/linux/x_error_guard.h"
#include <X11/Xatom.h>
#include <X11/Xlib.h>
// clang-format on

#include <array>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "fuzz.h"

namespace fuzz {

namespace {

constexpr std::array kNames = {"_NET_ACTIVE_WINDOW", "_NET_WM_PID", "_NET_WM_NAME", "_WM_NAME",
                               "WM_NAME"};
constexpr int kMaxProperties = 6;
constexpr size_t kActive = 0;
constexpr size_t kTitle = 2;

class Stranger {
 public:
  Stranger() : display_(XOpenDisplay(nullptr)) {
    Check(display_ != nullptr, "a display");
    root_ = DefaultRootWindow(display_);
    outer_ = XCreateSimpleWindow(display_, root_, 0, 0, 8, 8, 0, 0, 0);
    inner_ = XCreateSimpleWindow(display_, outer_, 0, 0, 8, 8, 0, 0, 0);
    for (size_t i = 0; i < kNames.size(); ++i) {
      atoms_[i] = XInternAtom(display_, kNames[i], False);
    }
  }

  // The title that the module has to find; empty where this does not know.
  std::optional<std::string> Lie(FuzzedDataProvider* bytes) {
    for (const Window window : {root_, outer_, inner_}) {
      for (const Atom atom : atoms_) XDeleteProperty(display_, window, atom);
    }
    active_ = {};
    title_ = kiv::kUndefined;
    for (int i = 0; i < kMaxProperties && bytes->remaining_bytes() > 0; ++i) Set(bytes);
    XSync(display_, False);
    if (active_ == None) return kiv::kUndefined;
    // Any other id may be a window of another client's, the host's among them.
    return active_ == inner_ ? title_ : std::nullopt;
  }

 private:
  void Set(FuzzedDataProvider* bytes) {
    const Window window = bytes->PickValueInArray({root_, outer_, inner_});
    const auto name = bytes->ConsumeIntegralInRange<size_t>(0, kNames.size() - 1);
    const int format = bytes->PickValueInArray({8, 16, 32});
    const auto type = bytes->ConsumeIntegralInRange<Atom>(1, XA_LAST_PREDEFINED);
    std::string value;
    // Whoever lies about the rest often has a window to show.
    if (name == kActive && bytes->ConsumeBool()) value.append(Item(inner_, format));
    value += bytes->ConsumeRandomLengthString();
    Send(window, name, type, format, value);
    if (window == root_ && name == kActive) NoteActive(format, value);
    if (window == inner_ && name == kTitle) NoteTitle(format, value);
  }

  static std::string Item(Window window, int format) {
    const auto id = static_cast<uint32_t>(window);
    return std::string(reinterpret_cast<const char*>(&id), format == 32 ? sizeof id : 1);
  }

  // Xlib wants 32-bit items as longs.
  void Send(Window window, size_t name, Atom type, int format, const std::string& value) {
    const size_t count = value.size() / (static_cast<size_t>(format) / 8);
    std::vector<long> items(value.size() + 1);
    if (format == 32) {
      for (size_t i = 0; i < count; ++i) {
        uint32_t item = 0;
        std::memcpy(&item, value.data() + i * sizeof item, sizeof item);
        items[i] = static_cast<int32_t>(item);
      }
    } else {
      std::memcpy(items.data(), value.data(), value.size());
    }
    XChangeProperty(display_, window, atoms_[name], type, format, PropModeReplace,
                    reinterpret_cast<const unsigned char*>(items.data()), static_cast<int>(count));
  }

  void NoteActive(int format, const std::string& value) {
    uint32_t id = 0;
    const size_t size = static_cast<size_t>(format) / 8;
    if (value.size() >= size) std::memcpy(&id, value.data(), size);
    active_ = id;
  }

  void NoteTitle(int format, const std::string& value) {
    title_.reset();
    if (format == 8) title_ = value.c_str();
  }

  Display* display_;
  Window root_ = None;
  Window outer_ = None;
  Window inner_ = None;
  std::array<Atom, kNames.size()> atoms_{};
  Window active_ = None;
  std::optional<std::string> title_;
};

}  // namespace

void Properties(const uint8_t* data, size_t size) {
  static Stranger stranger;
  FuzzedDataProvider bytes(data, size);
  const auto title = stranger.Lie(&bytes);
  kiv::DesktopSessionData& record = kiv::Agent().data_;
  Display* const display = record.display();
  Check(!title || kiv::ReadActiveTask(display, record).title == *title, "another title");
  const kiv::XErrorGuard guard(display);
  tools_x11::find_top_level_active_window(display, &record);
  for (const char* name : kNames) {
    tools_x11::get_property(display, DefaultRootWindow(display), name);
  }
}

}  // namespace fuzz
