#ifndef SRC_CPP_LINUX_PRIVATE_CONTEXT_H_
#define SRC_CPP_LINUX_PRIVATE_CONTEXT_H_

#include <gio/gio.h>

namespace kiv {

// While it exists, asynchronous calls of this thread complete in it, and the host's sources wait.
// GLib aborts when no descriptor is left to create one.
class PrivateContext {
 public:
  PrivateContext() : context_(g_main_context_new()) {
    g_main_context_push_thread_default(context_);
  }
  ~PrivateContext() {
    g_main_context_pop_thread_default(context_);
    g_main_context_unref(context_);
  }
  PrivateContext(const PrivateContext&) = delete;
  PrivateContext& operator=(const PrivateContext&) = delete;

  // Waits for a source and dispatches it.
  void Iterate() { g_main_context_iteration(context_, TRUE); }
  // Dispatches what is ready.
  void Drain() {
    while (g_main_context_iteration(context_, FALSE)) {
    }
  }
  // Runs `work` with the thread's previous default context.
  template <typename Work>
  void Outside(const Work& work) {
    g_main_context_pop_thread_default(context_);
    work();
    g_main_context_push_thread_default(context_);
  }
  void CancelAfter(guint milliseconds, GCancellable* cancellable) {
    GSource* source = g_timeout_source_new(milliseconds);
    const auto cancel = [](gpointer data) -> gboolean {
      g_cancellable_cancel(G_CANCELLABLE(data));
      return G_SOURCE_REMOVE;
    };
    g_source_set_callback(source, cancel, g_object_ref(cancellable), g_object_unref);
    g_source_attach(source, context_);
    g_source_unref(source);
  }

 private:
  GMainContext* context_;
};

}  // namespace kiv

#endif  // SRC_CPP_LINUX_PRIVATE_CONTEXT_H_
