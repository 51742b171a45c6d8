#ifndef SRC_CPP_PERMISSION_PERMISSION_QUESTION_H_
#define SRC_CPP_PERMISSION_PERMISSION_QUESTION_H_

#include <functional>
#include <optional>
#include <string>

#include "../linux/portal_request.h"
#include "../uv_ptr.h"
#include "permission_state.h"

namespace kiv {

// Has the desktop ask the person for the permission, where it has not been settled yet. Looks up
// the state on a thread of libuv's pool; the events of the question itself come through the default
// GLib main context. Keeps the loop alive until it has ended. Main thread only.
class PermissionQuestion {
 public:
  // Called once, by the loop, with the state after the answer; may destroy the question, which
  // otherwise ends without it.
  using Done = std::function<void(const char* state)>;

  PermissionQuestion(uv_loop_t* loop, Done done);
  ~PermissionQuestion();
  PermissionQuestion(const PermissionQuestion&) = delete;
  PermissionQuestion& operator=(const PermissionQuestion&) = delete;

 private:
  struct Lookup;
  using Next = void (PermissionQuestion::*)(const PermissionState& state);

  void LookUp(Next next);
  void AskUnlessSettled(const PermissionState& state);
  void OnAnswer(const PortalAnswer& answer);
  void LookAgain();
  void Finish(const PermissionState& state);

  uv_loop_t* loop_;
  Done done_;
  Lookup* lookup_ = nullptr;  // the one under way, which frees itself
  std::optional<PortalRequest> request_;
  UvPtr<uv_timer_t> limit_;
};

}  // namespace kiv

#endif  // SRC_CPP_PERMISSION_PERMISSION_QUESTION_H_
