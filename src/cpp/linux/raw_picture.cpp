#include "raw_picture.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <vector>

#include "picture_file.h"

namespace kiv {

namespace {

constexpr int kBytesPerPixel = 4;
// QImage formats by byte order in memory. The fourth byte is ignored, because a screen is opaque.
constexpr guint32 kBlueFirst[] = {4, 5, 6};    // RGB32, ARGB32, ARGB32_Premultiplied
constexpr guint32 kRedFirst[] = {16, 17, 18};  // RGBX8888, RGBA8888, RGBA8888_Premultiplied
// Padding that a driver may add to a row.
constexpr gint64 kMaxPadding = 4096;
// Rows are read and converted in blocks of about this size.
constexpr size_t kBlockBytes = 1 << 20;

constexpr char kLate[] = "The picture does not arrive";

void SetError(GErrorPtr* error, GIOErrorEnum code, const char* message) {
  g_set_error_literal(CollectError(error), G_IO_ERROR, code, message);
}

guint32 Number(GVariant* description, const char* key) {
  guint32 number = 0;
  g_variant_lookup(description, key, "u", &number);
  return number;
}

bool IsRaw(GVariant* description) {
  const char* type = nullptr;
  return g_variant_lookup(description, "type", "&s", &type) && std::strcmp(type, "raw") == 0;
}

// Waits for readable bytes. Returns false with the reason in `error` after the deadline.
bool WaitForBytes(int fd, const Deadline& deadline, GErrorPtr* error) {
  pollfd wanted = {fd, POLLIN, 0};
  int ready = 0;
  do {
    ready = poll(&wanted, 1, deadline.Remaining());
  } while (ready < 0 && errno == EINTR);
  if (ready <= 0) SetError(error, G_IO_ERROR_TIMED_OUT, kLate);
  return ready > 0;
}

// Fills the whole block.
bool ReadBlock(int fd, unsigned char* block, size_t size, const Deadline& deadline,
               GErrorPtr* error) {
  while (size > 0) {
    const ssize_t count = read(fd, block, size);
    if (count > 0) {
      block += count;
      size -= static_cast<size_t>(count);
    } else if (count < 0 && errno == EAGAIN) {
      if (!WaitForBytes(fd, deadline, error)) return false;
    } else if (count == 0 || errno != EINTR) {
      SetError(error, G_IO_ERROR_PARTIAL_INPUT, "The picture ends early");
      return false;
    }
  }
  return true;
}

template <int kRed, int kBlue>
void ConvertRow(const unsigned char* from, guchar* to, int width) {
  for (int x = 0; x < width; ++x, from += kBytesPerPixel, to += 3) {
    to[0] = from[kRed];
    to[1] = from[1];
    to[2] = from[kBlue];
  }
}

bool Contains(const guint32 (&formats)[3], guint32 format) {
  return std::find(std::begin(formats), std::end(formats), format) != std::end(formats);
}

}  // namespace

std::optional<RawPictureShape> ReadRawPictureShape(GVariant* description, GErrorPtr* error) {
  const guint32 format = Number(description, "format");
  const bool red_first = Contains(kRedFirst, format);
  if (!IsRaw(description) || (!red_first && !Contains(kBlueFirst, format))) {
    SetError(error, G_IO_ERROR_INVALID_DATA, "The picture has an unknown format");
    return std::nullopt;
  }
  const gint64 width = Number(description, "width");
  const gint64 height = Number(description, "height");
  const gint64 stride = Number(description, "stride");
  const gint64 row = width * kBytesPerPixel;
  if (width == 0 || height == 0 || height > kMaxPixels / width || stride < row ||
      stride > row + kMaxPadding) {
    g_set_error(CollectError(error), G_IO_ERROR, G_IO_ERROR_INVALID_DATA,
                "The picture claims %" G_GINT64_FORMAT " x %" G_GINT64_FORMAT
                " pixels in rows of %" G_GINT64_FORMAT " bytes",
                width, height, stride);
    return std::nullopt;
  }
  return RawPictureShape{static_cast<int>(width), static_cast<int>(height),
                         static_cast<size_t>(stride), red_first};
}

GObjectPtr<GdkPixbuf> ReadRawPicture(int fd, const RawPictureShape& shape, const Deadline& deadline,
                                     GErrorPtr* error) {
  auto picture =
      AdoptGObject(gdk_pixbuf_new(GDK_COLORSPACE_RGB, FALSE, 8, shape.width, shape.height));
  if (!picture) {
    SetError(error, G_IO_ERROR_NO_SPACE, "There is no memory for the picture");
    return nullptr;
  }
  fcntl(fd, F_SETFL, O_NONBLOCK);
  const int rows_of_block = std::max<int>(1, static_cast<int>(kBlockBytes / shape.stride));
  std::vector<unsigned char> block(rows_of_block * shape.stride);
  const auto convert = shape.red_first ? ConvertRow<0, 2> : ConvertRow<2, 0>;
  guchar* to = gdk_pixbuf_get_pixels(picture.get());
  for (int done = 0; done < shape.height; done += rows_of_block) {
    const int rows = std::min(rows_of_block, shape.height - done);
    // A slow writer that always has a few bytes ready never makes poll() time out.
    if (deadline.Passed()) return SetError(error, G_IO_ERROR_TIMED_OUT, kLate), nullptr;
    if (!ReadBlock(fd, block.data(), rows * shape.stride, deadline, error)) return nullptr;
    for (int row = 0; row < rows; ++row, to += gdk_pixbuf_get_rowstride(picture.get())) {
      convert(block.data() + row * shape.stride, to, shape.width);
    }
  }
  return picture;
}

}  // namespace kiv
