#ifndef SRC_CPP_SNAP_COMPLETION_H_
#define SRC_CPP_SNAP_COMPLETION_H_

namespace kiv {

struct ScreenSnap;

constexpr int kSnapCompleted = 0;
constexpr int kSnapSelectionFailed = 102003;
constexpr int kSnapSelectionCancelled = 102005;

// The one way out of an asynchronous snapshot: calls the request's function once with the result,
// deletes `context` and, with release_guard, lets the next request in. Exactly once per accepted
// request, on the main thread. `context` is what the request was started with, a Nan::Callback, and
// is nobody's afterwards. `snap` is the agent's record;
// its blocks are taken over. Whoever passes another code than kSnapCompleted has set its width and
// height to 0. Anything may have happened when it returns, teardown included.
void OnScreenSnapCompleted(int error_code, ScreenSnap* snap, void* context, bool release_guard);

// At the runtime's end, in place of the completion: frees `context` and the guard; nobody is told.
void DropScreenSnapRequest(void* context);

}  // namespace kiv

#endif  // SRC_CPP_SNAP_COMPLETION_H_
