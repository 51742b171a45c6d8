#ifndef SRC_CPP_LINUX_LATE_PICTURES_H_
#define SRC_CPP_LINUX_LATE_PICTURES_H_

#include "portal_request.h"

namespace kiv {

// The portal completes a request that its caller has abandoned, and the picture's file stays.

// Waits for the request's answer in the thread-default main context, for 30 seconds at most, and
// deletes the picture. The caller may destroy `request`. Main thread only.
void DeletePictureWhenItComes(const PortalRequest& request);
// Stops waiting for all of them.
void ForgetLatePictures();

}  // namespace kiv

#endif  // SRC_CPP_LINUX_LATE_PICTURES_H_
