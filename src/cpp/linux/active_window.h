#ifndef SRC_CPP_LINUX_ACTIVE_WINDOW_H_
#define SRC_CPP_LINUX_ACTIVE_WINDOW_H_

namespace kiv {

struct DesktopSessionData;

// Writes the active window's title and its process's command line into the snapshot record;
// "Undefined" for what cannot be found. Asks the default root window of the agent's connection.
void FetchActiveTaskInfo(DesktopSessionData* data);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_ACTIVE_WINDOW_H_
