#ifndef SRC_CPP_LINUX_INPUT_ACTIVITY_H_
#define SRC_CPP_LINUX_INPUT_ACTIVITY_H_

struct _XDisplay;

namespace kiv {

struct DesktopSessionData;

// Selects raw key and button events on every root window.
void SelectRawInput(_XDisplay* display);

// Starts reading the agent's connection from the loop; false when libuv refuses.
bool StartInputPoll(DesktopSessionData* data);
void StopInputPoll(DesktopSessionData* data);

// To be called after every round trip on the agent's connection: what the round trip has read into
// Xlib's queue leaves the descriptor silent, so the loop is told to handle it in its next turn.
void AfterRoundTrip(DesktopSessionData* data);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_INPUT_ACTIVITY_H_
