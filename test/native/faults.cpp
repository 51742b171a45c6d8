// Misbehaviour of a host, its libraries or other native code, on demand. Loaded with RTLD_GLOBAL
// before the libraries whose functions it overrides.

#include <dlfcn.h>
#include <gtk/gtk.h>
#include <nan.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

namespace {

using CallInfo = Nan::FunctionCallbackInfo<v8::Value>;

bool save_fails = false;

void FailSave(const CallInfo& /*info*/) { save_fails = true; }
void Iterate(const CallInfo& /*info*/) { g_main_context_iteration(nullptr, FALSE); }

void DestroyWindows(const CallInfo& /*info*/) {
  const auto destroy = [](gpointer window) { gtk_widget_destroy(GTK_WIDGET(window)); };
  g_list_free_full(gtk_window_list_toplevels(), destroy);
}

// What a host may have open when a selection starts. Each takes pointer and keyboard for itself.
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

// Forks a child that runs all exit handlers and destructors of this process. Returns its status.
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

void Setup(v8::Local<v8::Object> exports, v8::Local<v8::Value> /*module*/, void* /*priv*/) {
  // failSave(): from now on, encoding fails after a few bytes, without setting an error.
  Nan::SetMethod(exports, "failSave", FailSave);
  // iterate(): one GLib iteration called from JavaScript, as in a modal dialog.
  Nan::SetMethod(exports, "iterate", Iterate);
  Nan::SetMethod(exports, "openModalWindow", OpenModalWindow);
  Nan::SetMethod(exports, "openMenu", OpenMenu);
  Nan::SetMethod(exports, "openPopup", OpenPopup);
  Nan::SetMethod(exports, "forkAndExit", ForkAndExit);
  Nan::SetMethod(exports, "destroyWindows", DestroyWindows);
}

}  // namespace

extern "C" __attribute__((visibility("default"))) gboolean gdk_pixbuf_save_to_callbackv(
    GdkPixbuf* pixbuf, GdkPixbufSaveFunc sink, gpointer data, const char* type, char** keys,
    char** values, GError** error) {
  if (!save_fails) {
    const auto original = reinterpret_cast<decltype(&gdk_pixbuf_save_to_callbackv)>(
        dlsym(RTLD_NEXT, "gdk_pixbuf_save_to_callbackv"));
    return original(pixbuf, sink, data, type, keys, values, error);
  }
  sink("partial", 7, error, data);
  return FALSE;
}

NODE_MODULE(kiv_faults, Setup)
