#ifndef SRC_CPP_LINUX_PORTAL_NAMES_H_
#define SRC_CPP_LINUX_PORTAL_NAMES_H_

namespace kiv {

// The desktop portal on the session bus. Its back ends use the same object path.
constexpr char kPortalName[] = "org.freedesktop.portal.Desktop";
constexpr char kPortalPath[] = "/org/freedesktop/portal/desktop";
constexpr char kPortalScreenshot[] = "org.freedesktop.portal.Screenshot";

}  // namespace kiv

#endif  // SRC_CPP_LINUX_PORTAL_NAMES_H_
