#ifndef SRC_CPP_LINUX_X_CONNECTION_H_
#define SRC_CPP_LINUX_X_CONNECTION_H_

namespace kiv {

struct DesktopSessionData;

// Opens the agent's connection to the default display and finds the X Input extension; false when
// either is missing. When the server goes away, data->display_lost becomes true and requests fail,
// where libX11 can report that (1.7 and later) instead of ending the process.
bool OpenXConnection(DesktopSessionData* data);
// Closes it, lost or not. May be called again.
void CloseXConnection(DesktopSessionData* data);

// Fills the record's atoms.
void InternAtoms(DesktopSessionData* data);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_X_CONNECTION_H_
