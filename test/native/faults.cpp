// What a host, its libraries or other native code may do to the module, on demand. Loaded with
// RTLD_GLOBAL before the libraries that it stands in front of.

#include <dlfcn.h>
#include <gtk/gtk.h>
#include <nan.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace {

using CallInfo = Nan::FunctionCallbackInfo<v8::Value>;

int calls_until_failure = -1;
const char* save_error = nullptr;  // empty: fails without an error

void FailNewPixbuf(const CallInfo& info) { calls_until_failure = Nan::To<int>(info[0]).FromJust(); }
void FailSave(const CallInfo& info) {
  save_error = Nan::To<bool>(info[0]).FromJust() ? "" : "expected";
}
void Iterate(const CallInfo& /*info*/) { g_main_context_iteration(nullptr, FALSE); }

void DestroyWindows(const CallInfo& /*info*/) {
  const auto destroy = [](gpointer window) { gtk_widget_destroy(GTK_WIDGET(window)); };
  g_list_free_full(gtk_window_list_toplevels(), destroy);
}

// What a host may have open when a selection starts; each takes pointer and keys for themselves.
void OpenModalWindow(const CallInfo& /*info*/) {
  GtkWidget* window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
  gtk_window_set_modal(GTK_WINDOW(window), TRUE);
  gtk_widget_show_all(window);
}

void OpenMenu(const CallInfo& /*info*/) {
  GtkWidget* menu = gtk_menu_new();
  gtk_menu_shell_append(GTK_MENU_SHELL(menu), gtk_menu_item_new());
  gtk_widget_show_all(menu);
  G_GNUC_BEGIN_IGNORE_DEPRECATIONS
  gtk_menu_popup(GTK_MENU(menu), nullptr, nullptr, nullptr, nullptr, 0, GDK_CURRENT_TIME);
  G_GNUC_END_IGNORE_DEPRECATIONS
}

void OpenPopup(const CallInfo& /*info*/) {
  GtkWidget* popup = gtk_window_new(GTK_WINDOW_POPUP);
  gtk_widget_show_all(popup);
  gtk_grab_add(popup);
  GdkSeat* seat = gdk_display_get_default_seat(gdk_display_get_default());
  gdk_seat_grab(seat, gtk_widget_get_window(popup), GDK_SEAT_CAPABILITY_ALL, TRUE, nullptr, nullptr,
                nullptr, nullptr);
}

// A child that leaves with all exit handlers and destructors of this process; its status.
void ForkAndExit(const CallInfo& info) {
  const pid_t child = fork();
  if (child == 0) {
    alarm(10);
    exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  info.GetReturnValue().Set(status);
}

// A line once the process runs its exit handlers, which GDK leaves out.
void TellAtExit(const CallInfo& /*info*/) {
  atexit([] { fputs("exit handlers\n", stderr); });
}

void Setup(v8::Local<v8::Object> exports, v8::Local<v8::Value> /*module*/, void* /*priv*/) {
  // failNewPixbuf(n): the n-th coming call of gdk_pixbuf_new has no memory.
  Nan::SetMethod(exports, "failNewPixbuf", FailNewPixbuf);
  // failSave(silent): from now on every picture's encoding fails after a few bytes.
  Nan::SetMethod(exports, "failSave", FailSave);
  // iterate(): one round of a GLib loop beneath JavaScript, as a modal dialog runs it.
  Nan::SetMethod(exports, "iterate", Iterate);
  Nan::SetMethod(exports, "openModalWindow", OpenModalWindow);
  Nan::SetMethod(exports, "openMenu", OpenMenu);
  Nan::SetMethod(exports, "openPopup", OpenPopup);
  Nan::SetMethod(exports, "forkAndExit", ForkAndExit);
  Nan::SetMethod(exports, "tellAtExit", TellAtExit);
  Nan::SetMethod(exports, "destroyWindows", DestroyWindows);
}

}  // namespace

// The library's own function.
#define ORIGINAL(name) reinterpret_cast<decltype(&name)>(dlsym(RTLD_NEXT, #name))
#define INTERPOSED extern "C" __attribute__((visibility("default")))

INTERPOSED GdkPixbuf* gdk_pixbuf_new(GdkColorspace colorspace, gboolean alpha, int bits, int width,
                                     int height) {
  if (calls_until_failure > 0 && --calls_until_failure == 0) return nullptr;
  return ORIGINAL(gdk_pixbuf_new)(colorspace, alpha, bits, width, height);
}

INTERPOSED gboolean gdk_pixbuf_save_to_callbackv(GdkPixbuf* pixbuf, GdkPixbufSaveFunc sink,
                                                 gpointer data, const char* type, char** keys,
                                                 char** values, GError** error) {
  const auto original = ORIGINAL(gdk_pixbuf_save_to_callbackv);
  if (!save_error) return original(pixbuf, sink, data, type, keys, values, error);
  sink("partial", 7, error, data);
  if (*save_error) g_set_error_literal(error, GDK_PIXBUF_ERROR, 0, save_error);
  return FALSE;
}

NODE_MODULE(kiv_faults, Setup)
