#ifndef SRC_CPP_LINUX_LATE_PICTURES_H_
#define SRC_CPP_LINUX_LATE_PICTURES_H_

#include "portal_request.h"

namespace kiv {

// The portal finishes a request that its caller has given up, and leaves the picture to the caller.

// Waits in the thread's default main context, for half a minute at most, for the answer to a
// request, which may be destroyed then, and deletes its picture. Main thread only.
void DeletePictureWhenItComes(const PortalRequest& request);
// Ends all waiting.
void ForgetLatePictures();

}  // namespace kiv

#endif  // SRC_CPP_LINUX_LATE_PICTURES_H_
