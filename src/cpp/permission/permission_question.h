#ifndef SRC_CPP_PERMISSION_PERMISSION_QUESTION_H_
#define SRC_CPP_PERMISSION_PERMISSION_QUESTION_H_

#include <functional>
#include <optional>

#include "../linux/glib_ptr.h"
#include "../linux/portal_request.h"
#include "../uv_ptr.h"
#include "permission_state.h"

namespace kiv {

// Has the desktop ask the person for the permission, where it has not been settled yet. Looks up
// the state on a thread of GLib's pool, which the end of the process does not wait for, and on a
// connection of its own; its events come through the default GLib main context. Keeps the libuv
// loop alive until it has ended, which takes 50 seconds at most, even if nobody runs GLib's. Main
// thread only.
class PermissionQuestion {
 public:
  // Called once, by one of the loops, with the state after the answer; may destroy the question,
  // which otherwise ends without it.
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
  GObjectPtr<GDBusConnection> bus_;       // null before the first lookup has ended
  GObjectPtr<GCancellable> cancellable_;  // of the lookup under way, which may outlive the question
  std::optional<PortalRequest> request_;
};

}  // namespace kiv

#endif  // SRC_CPP_PERMISSION_PERMISSION_QUESTION_H_
