// References written apart from the module on purpose. The least that a snapshot can cost: the same
// calls of GDK and gdk-pixbuf with the same options into a buffer reserved beforehand, and nothing
// else. For the upgrade: a plain fork and exec of a shell.

#include <gdk/gdk.h>
#include <nan.h>
#include <unistd.h>

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

// Encoded bytes of the picture, fitted into 1920 x 1080, which is released.
double Encode(GdkPixbuf* picture, bool jpeg) {
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
  return static_cast<double>(image.used);
}

// desktop(jpeg): encoded bytes of a whole-desktop snapshot fitted into 1920 x 1080.
void Desktop(const Nan::FunctionCallbackInfo<v8::Value>& info) {
  GdkWindow* root = gdk_get_default_root_window();
  GdkPixbuf* picture = gdk_pixbuf_get_from_window(root, 0, 0, gdk_window_get_width(root),
                                                  gdk_window_get_height(root));
  info.GetReturnValue().Set(Encode(picture, Nan::To<bool>(info[0]).FromJust()));
}

GVariant* Ask(const char* name, const char* path, const char* interface, const char* method,
              GVariant* body) {
  GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr);
  GVariant* reply = g_dbus_connection_call_sync(bus, name, path, interface, method, body, nullptr,
                                                G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
  g_object_unref(bus);
  return reply;
}

// compositor(gnome, jpeg): the same through GNOME Shell's or KWin's service.
void Compositor(const Nan::FunctionCallbackInfo<v8::Value>& info) {
  std::string path = std::string(g_get_tmp_dir()) + "/floor";
  GVariant* reply = nullptr;
  if (Nan::To<bool>(info[0]).FromJust()) {
    reply = Ask("org.gnome.Shell.Screenshot", "/org/gnome/Shell/Screenshot",
                "org.gnome.Shell.Screenshot", "Screenshot",
                g_variant_new("(bbs)", FALSE, TRUE, path.c_str()));
  } else {
    reply = Ask("org.kde.KWin", "/Screenshot", "org.kde.kwin.Screenshot", "screenshotFullscreen",
                nullptr);
    const char* chosen = nullptr;
    g_variant_get(reply, "(&s)", &chosen);
    path = chosen;
  }
  g_variant_unref(reply);
  GdkPixbuf* picture = gdk_pixbuf_new_from_file(path.c_str(), nullptr);
  unlink(path.c_str());
  info.GetReturnValue().Set(Encode(picture, Nan::To<bool>(info[1]).FromJust()));
}

// forkExec(): returns once the child is there, without waiting for its end.
void ForkExec(const Nan::FunctionCallbackInfo<v8::Value>& /*info*/) {
  char* const arguments[] = {const_cast<char*>("/bin/bash"), const_cast<char*>("-c"),
                             const_cast<char*>(":"), nullptr};
  if (fork() != 0) return;
  execve(arguments[0], arguments, environ);
  _exit(0);
}

void Setup(v8::Local<v8::Object> exports, v8::Local<v8::Value> /*module*/, void* /*priv*/) {
  Nan::SetMethod(exports, "reserve", Reserve);
  Nan::SetMethod(exports, "forkExec", ForkExec);
  Nan::SetMethod(exports, "desktop", Desktop);
  Nan::SetMethod(exports, "compositor", Compositor);
}

}  // namespace

NODE_MODULE(bench_floor, Setup)
