// A GTK window with a button, a text and a picture, for JavaScript: open(label, clicked, closed)
// and show(text, png, enabled). Only one window; after it is closed, show() does nothing.

#include <gtk/gtk.h>
#include <nan.h>

#include <memory>
#include <string>

namespace {

constexpr int kLargestPicture = 320;

struct Unref {
  void operator()(gpointer object) const { g_object_unref(object); }
};

// GTK calls back from the loop, where no JavaScript context is entered.
struct Window {
  Nan::Persistent<v8::Context> context;
  Nan::Callback clicked;
  Nan::Callback closed;
  GtkWidget* window = nullptr;
  GtkWidget* button = nullptr;
  GtkWidget* text = nullptr;
  GtkWidget* picture = nullptr;
};

Window* open_window = nullptr;

void Call(const Nan::Callback& callback) {
  const Nan::HandleScope handles;
  const v8::Local<v8::Context> context = Nan::New(open_window->context);
  const v8::Context::Scope entered(context);
  Nan::AsyncResource resource("example:button_window");
  resource.runInAsyncScope(context->Global(), callback.GetFunction(), 0, nullptr);
}

void OnClicked(GtkButton* /*button*/, gpointer /*data*/) { Call(open_window->clicked); }

void OnDestroy(GtkWidget* /*window*/, gpointer /*data*/) {
  open_window->window = nullptr;
  Call(open_window->closed);
}

// JavaScript must not be called after this.
void OnRuntimeEnd(void* /*unused*/) {
  if (open_window->window) {
    g_signal_handlers_disconnect_by_func(open_window->window, gpointer(OnDestroy), nullptr);
    gtk_widget_destroy(open_window->window);
  }
  open_window->context.Reset();
  delete open_window;
  open_window = nullptr;
}

// Returns the picture scaled down to fit, or null when the bytes are not a picture.
std::unique_ptr<GdkPixbuf, Unref> Decode(const char* bytes, size_t length) {
  const std::unique_ptr<GdkPixbufLoader, Unref> loader(gdk_pixbuf_loader_new());
  const bool written = gdk_pixbuf_loader_write(loader.get(), reinterpret_cast<const guchar*>(bytes),
                                               length, nullptr);
  const bool complete = gdk_pixbuf_loader_close(loader.get(), nullptr);
  GdkPixbuf* whole = gdk_pixbuf_loader_get_pixbuf(loader.get());
  if (!written || !complete || !whole) return nullptr;
  const int width = gdk_pixbuf_get_width(whole);
  const int height = gdk_pixbuf_get_height(whole);
  const int longest = MAX(MAX(width, height), kLargestPicture);
  return std::unique_ptr<GdkPixbuf, Unref>(
      gdk_pixbuf_scale_simple(whole, MAX(width * kLargestPicture / longest, 1),
                              MAX(height * kLargestPicture / longest, 1), GDK_INTERP_BILINEAR));
}

NAN_METHOD(Open) {
  if (open_window) return Nan::ThrowError("A window is already open");
  if (!info[1]->IsFunction() || !info[2]->IsFunction()) return Nan::ThrowTypeError("No function");
  open_window = new Window();
  open_window->context.Reset(Nan::GetCurrentContext());
  open_window->clicked.Reset(info[1].As<v8::Function>());
  open_window->closed.Reset(info[2].As<v8::Function>());
  node::AddEnvironmentCleanupHook(v8::Isolate::GetCurrent(), OnRuntimeEnd, nullptr);

  const Nan::Utf8String label(info[0]);
  open_window->window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
  open_window->button = gtk_button_new_with_label(*label);
  open_window->text = gtk_label_new(nullptr);
  open_window->picture = gtk_image_new();
  gtk_window_set_title(GTK_WINDOW(open_window->window), *label);
  gtk_window_set_default_size(GTK_WINDOW(open_window->window), 400, -1);
  gtk_container_set_border_width(GTK_CONTAINER(open_window->window), 12);
  gtk_label_set_line_wrap(GTK_LABEL(open_window->text), TRUE);
  GtkWidget* box = gtk_box_new(GTK_ORIENTATION_VERTICAL, 12);
  gtk_container_add(GTK_CONTAINER(open_window->window), box);
  gtk_box_pack_start(GTK_BOX(box), open_window->picture, TRUE, TRUE, 0);
  gtk_box_pack_start(GTK_BOX(box), open_window->text, FALSE, FALSE, 0);
  gtk_box_pack_start(GTK_BOX(box), open_window->button, FALSE, FALSE, 0);
  g_signal_connect(open_window->button, "clicked", G_CALLBACK(OnClicked), nullptr);
  g_signal_connect(open_window->window, "destroy", G_CALLBACK(OnDestroy), nullptr);
  gtk_widget_show_all(open_window->window);
}

NAN_METHOD(Show) {
  if (!open_window || !open_window->window) return;
  const Nan::Utf8String text(info[0]);
  gtk_label_set_text(GTK_LABEL(open_window->text), *text);
  std::unique_ptr<GdkPixbuf, Unref> picture;
  if (node::Buffer::HasInstance(info[1])) {
    picture = Decode(node::Buffer::Data(info[1]), node::Buffer::Length(info[1]));
  }
  gtk_image_set_from_pixbuf(GTK_IMAGE(open_window->picture), picture.get());
  gtk_widget_set_sensitive(open_window->button, info[2]->IsTrue());
}

void Init(v8::Local<v8::Object> exports, v8::Local<v8::Value> /*module*/, void* /*priv*/) {
  Nan::SetMethod(exports, "open", Open);
  Nan::SetMethod(exports, "show", Show);
}

}  // namespace

NODE_MODULE(NODE_GYP_MODULE_NAME, Init)
