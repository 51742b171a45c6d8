#include "tools_x11_linux.h"

#include <cstring>

namespace tools_x11 {

namespace {

// The rest of the property, however long.
constexpr long kWholeValue = -1;

template <typename Item>
unsigned long FirstAs(const unsigned char* data) {
  Item item;
  std::memcpy(&item, data, sizeof item);
  return static_cast<unsigned long>(item);
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

WindowProperty read_property(Display* display, Window window, Atom property) {
  WindowProperty result;
  unsigned char* data = nullptr;
  unsigned long bytes_after = 0;
  result.status =
      XGetWindowProperty(display, window, property, 0, kWholeValue, False, AnyPropertyType,
                         &result.type, &result.format, &result.count, &bytes_after, &data);
  if (result.status == Success) result.data.reset(data);
  return result;
}

}  // namespace tools_x11
