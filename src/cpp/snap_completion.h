#ifndef SRC_CPP_SNAP_COMPLETION_H_
#define SRC_CPP_SNAP_COMPLETION_H_

namespace kiv {

struct ScreenSnap;

constexpr int kSnapCompleted = 0;
constexpr int kSnapSelectionFailed = 102003;
constexpr int kSnapSelectionCancelled = 102005;

// Completes an asynchronous snapshot: calls the request's function with the result, deletes
// `context` (the request's Nan::Callback) and, with release_guard, allows the next request. Call it
// exactly once per accepted request, on the main thread. Takes the blocks of `snap`, the agent's
// record. For any code but kSnapCompleted, the caller sets width and height to 0 first. The call
// may run any JavaScript, teardown included.
void OnScreenSnapCompleted(int error_code, ScreenSnap* snap, void* context, bool release_guard);

// Used instead when the runtime ends: deletes `context` and frees the guard, calls no function.
void DropScreenSnapRequest(void* context);

}  // namespace kiv

#endif  // SRC_CPP_SNAP_COMPLETION_H_
