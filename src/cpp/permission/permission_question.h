#ifndef SRC_CPP_PERMISSION_PERMISSION_QUESTION_H_
#define SRC_CPP_PERMISSION_PERMISSION_QUESTION_H_

#include <functional>
#include <optional>

#include "../linux/glib_ptr.h"
#include "../linux/portal_request.h"
#include "../uv_ptr.h"
#include "permission_state.h"

namespace kiv {

// Has the desktop ask the person for the permission, unless the state is known already. Looks up
// the state on a thread of GLib's pool, which does not delay the process's exit, and on a
// connection of its own. Its events come through the default GLib main context. Keeps the libuv
// loop alive until its end, 50 seconds at most, even when no GLib loop runs. Main thread only.
class PermissionQuestion {
 public:
  // Called once, by one of the loops, with the state after the answer, unless the question is
  // destroyed first. May destroy the question.
  using Done = std::function<void(PermissionState state)>;

  PermissionQuestion(uv_loop_t* loop, Done done);
  ~PermissionQuestion();
  PermissionQuestion(const PermissionQuestion&) = delete;
  PermissionQuestion& operator=(const PermissionQuestion&) = delete;

 private:
  struct Lookup;
  using Next = void (PermissionQuestion::*)(const PermissionReading& reading);

  void LookUp(Next next);
  void TakeLookup(const Lookup& lookup);
  void AskUnlessSettled(const PermissionReading& reading);
  void LookAgain();
  void Finish(const PermissionReading& reading);

  Done done_;
  UvPtr<uv_timer_t> limit_;
  GObjectPtr<GDBusConnection> bus_;       // null until the first lookup ends
  GObjectPtr<GCancellable> cancellable_;  // of the current lookup, which may outlive the question
  std::optional<PortalRequest> request_;
};

}  // namespace kiv

#endif  // SRC_CPP_PERMISSION_PERMISSION_QUESTION_H_
