#include "image_encoder.h"

#include <new>

#include "../log_request_ids.h"
#include "../logging.h"
#include "../screen_snap.h"
#include "byte_sink.h"
#include "glib_ptr.h"

namespace kiv {

namespace {

constexpr int kThumbnailWidth = 620;
constexpr int kThumbnailHeight = 320;
constexpr char kQualityFull[] = "25";
constexpr char kQualityReduced[] = "50";

void SetOutOfMemory(GError** error) {
  g_set_error_literal(error, GDK_PIXBUF_ERROR, GDK_PIXBUF_ERROR_INSUFFICIENT_MEMORY,
                      "Not enough memory for the encoded picture");
}

// An exception must not propagate through the encoder's C frames.
gboolean FetchPixbufImageCallback(const char* buf, size_t count, GError** error, void* data) {
  try {
    static_cast<ByteSink*>(data)->Append(buf, count);
    return TRUE;
  } catch (const std::bad_alloc&) {
    SetOutOfMemory(error);
    return FALSE;
  }
}

struct Format {
  const char* type;
  const char* filename;
  const char* quality;  // null for a format without
};

void Save(GdkPixbuf* pixbuf, const Format& format, ScreenSnap::image_data* block,
          GErrorPtr* error) {
  const char* keys[] = {format.quality ? "quality" : nullptr, nullptr};
  const char* values[] = {format.quality, nullptr};
  ByteSink sink;
  const bool saved = gdk_pixbuf_save_to_callbackv(pixbuf, FetchPixbufImageCallback, &sink,
                                                  format.type, const_cast<char**>(keys),
                                                  const_cast<char**>(values), CollectError(error));
  // The PNG saver fails without setting an error when it runs out of memory.
  if (!saved && !*error) SetOutOfMemory(CollectError(error));
  try {
    sink.Finish(block);
  } catch (const std::bad_alloc&) {
    if (!*error) SetOutOfMemory(CollectError(error));
  }
}

}  // namespace

void FetchPixbufImage(ScreenSnap& snap, GdkPixbuf* pixbuf, unsigned int width, unsigned int height,
                      bool jpeg, bool scale) {
  if (!pixbuf) return;
  GObjectPtr<GdkPixbuf> scaled;
  if (scale) {
    if (width == 0 || height == 0) return;
    scaled = AdoptGObject(gdk_pixbuf_scale_simple(pixbuf, static_cast<int>(width),
                                                  static_cast<int>(height), GDK_INTERP_BILINEAR));
    pixbuf = scaled.get();
    if (!pixbuf) return;
  }
  const auto thumbnail = AdoptGObject(
      gdk_pixbuf_scale_simple(pixbuf, kThumbnailWidth, kThumbnailHeight, GDK_INTERP_BILINEAR));
  const Format format = jpeg ? Format{"jpeg", "screen.jpg", scale ? kQualityReduced : kQualityFull}
                             : Format{"png", "screen.png", nullptr};
  GErrorPtr error;
  Save(pixbuf, format, &snap.image, &error);
  snap.filename = format.filename;
  // If the picture failed, skip the thumbnail.
  if (thumbnail && !error) Save(thumbnail.get(), format, &snap.thumbnail, &error);
  if (error) {
    LogMessage(LogMessage::error).stream()
        << kLoggingRequestId_FetchImageError << ":" << error->code << ":" << error->message;
  }
}

}  // namespace kiv
