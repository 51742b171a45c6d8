#include "overlay_window.h"

namespace kiv {

namespace {

constexpr auto kWindowEvents =
    static_cast<int>(GDK_EXPOSURE_MASK | GDK_POINTER_MOTION_MASK | GDK_BUTTON_PRESS_MASK |
                     GDK_BUTTON_RELEASE_MASK | GDK_KEY_PRESS_MASK | GDK_FOCUS_CHANGE_MASK);

// Adds our own reference to GTK's.
GtkWindowPtr NewWindow() {
  return GtkWindowPtr(static_cast<GtkWidget*>(g_object_ref(gtk_window_new(GTK_WINDOW_TOPLEVEL))));
}

void CloseMenus() {
  GList* windows = gtk_window_list_toplevels();
  g_list_foreach(
      windows, [](gpointer window, gpointer) { g_object_ref(window); }, nullptr);
  for (const GList* entry = windows; entry; entry = entry->next) {
    GtkWindowGroup* group = gtk_window_get_group(GTK_WINDOW(entry->data));
    GtkWidget* grabbing = gtk_window_group_get_current_grab(group);
    if (GTK_IS_MENU_SHELL(grabbing)) gtk_menu_shell_cancel(GTK_MENU_SHELL(grabbing));
  }
  g_list_free_full(windows, g_object_unref);
}

}  // namespace

OverlayWindow::OverlayWindow(GdkPoint origin, int width, int height, double scale)
    : window_(NewWindow()),
      drawing_area_(gtk_drawing_area_new()),
      scale_(scale > 0 ? scale : gtk_widget_get_scale_factor(window_.get())),
      width_(width),
      height_(height) {
  GtkWindow* window = GTK_WINDOW(window_.get());
  // Its own window group keeps it usable while a modal window of the host is open.
  const auto group = AdoptGObject(gtk_window_group_new());
  gtk_window_group_add_window(group.get(), window);
  GtkAllocation allocation = {0, 0, ToPoints(width), ToPoints(height)};
  gtk_widget_size_allocate(window_.get(), &allocation);
  gtk_window_fullscreen(window);
  gtk_window_set_keep_above(window, TRUE);
  gtk_widget_set_size_request(window_.get(), allocation.width, allocation.height);
  gtk_window_move(window, origin.x, origin.y);
  gtk_widget_set_events(window_.get(), kWindowEvents);
  gtk_container_add(GTK_CONTAINER(window), drawing_area_);
}

int OverlayWindow::ToPoints(int pixels) const { return PointsFor(pixels, scale_); }

void OverlayWindow::Show() {
  gtk_widget_show_all(window_.get());
  const auto cursor = AdoptGObject(
      gdk_cursor_new_for_display(gtk_widget_get_display(window_.get()), GDK_CROSSHAIR));
  gdk_window_set_cursor(gtk_widget_get_window(window_.get()), cursor.get());
}

void OverlayWindow::Present() { gtk_window_present(GTK_WINDOW(window_.get())); }

void OverlayWindow::Hide() { gtk_widget_hide(window_.get()); }

void OverlayWindow::Invalidate() {
  gtk_widget_queue_draw_area(window_.get(), 0, 0, ToPoints(width_), ToPoints(height_));
}

void EndGrabs() {
  CloseMenus();
  GdkDisplay* display = gdk_display_get_default();
  GList* devices = gdk_device_manager_list_devices(gdk_display_get_device_manager(display),
                                                   GDK_DEVICE_TYPE_MASTER);
  for (const GList* entry = devices; entry; entry = entry->next) {
    GdkDevice* device = GDK_DEVICE(entry->data);
    if (gdk_display_device_is_grabbed(display, device)) gdk_device_ungrab(device, GDK_CURRENT_TIME);
  }
  g_list_free(devices);
}

}  // namespace kiv
