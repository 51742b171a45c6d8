// The least that a snapshot can cost: the same calls of GDK and gdk-pixbuf with the same options
// into a buffer reserved beforehand, and nothing else. Written apart from the module on purpose.

#include <gdk/gdk.h>
#include <nan.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

struct Sink {
  std::vector<char> bytes;
  size_t used = 0;
};

gboolean Write(const char* bytes, size_t count, GError** /*error*/, void* data) {
  auto* sink = static_cast<Sink*>(data);
  if (sink->used + count > sink->bytes.size()) return FALSE;
  std::memcpy(sink->bytes.data() + sink->used, bytes, count);
  sink->used += count;
  return TRUE;
}

Sink image;
Sink thumbnail;

void Save(GdkPixbuf* pixbuf, bool jpeg, bool reduced, Sink* sink) {
  sink->used = 0;
  if (jpeg) {
    gdk_pixbuf_save_to_callback(pixbuf, Write, sink, "jpeg", nullptr, "quality",
                                reduced ? "50" : "25", nullptr);
  } else {
    gdk_pixbuf_save_to_callback(pixbuf, Write, sink, "png", nullptr, nullptr);
  }
}

// reserve(bytes): room for one picture and one thumbnail, touched so that it is really there.
void Reserve(const Nan::FunctionCallbackInfo<v8::Value>& info) {
  image.bytes.assign(static_cast<size_t>(Nan::To<int64_t>(info[0]).FromJust()), 1);
  thumbnail.bytes.assign(size_t{1} << 20, 1);
}

// desktop(jpeg): encoded bytes of a whole-desktop snapshot fitted into 1920 x 1080.
void Desktop(const Nan::FunctionCallbackInfo<v8::Value>& info) {
  const bool jpeg = Nan::To<bool>(info[0]).FromJust();
  GdkWindow* root = gdk_get_default_root_window();
  GdkPixbuf* picture = gdk_pixbuf_get_from_window(root, 0, 0, gdk_window_get_width(root),
                                                  gdk_window_get_height(root));
  const bool reduced = gdk_pixbuf_get_width(picture) > 1920;
  if (reduced) {
    GdkPixbuf* fitted = gdk_pixbuf_scale_simple(picture, 1920, 1080, GDK_INTERP_BILINEAR);
    // The module holds the captured picture until its encoding is done, too.
    g_object_set_data_full(G_OBJECT(fitted), "source", picture, g_object_unref);
    picture = fitted;
  }
  GdkPixbuf* small = gdk_pixbuf_scale_simple(picture, 620, 320, GDK_INTERP_BILINEAR);
  Save(picture, jpeg, reduced, &image);
  Save(small, jpeg, reduced, &thumbnail);
  g_object_unref(small);
  g_object_unref(picture);
  info.GetReturnValue().Set(static_cast<double>(image.used));
}

void Setup(v8::Local<v8::Object> exports, v8::Local<v8::Value> /*module*/, void* /*priv*/) {
  Nan::SetMethod(exports, "reserve", Reserve);
  Nan::SetMethod(exports, "desktop", Desktop);
}

}  // namespace

NODE_MODULE(bench_floor, Setup)
