#ifndef SRC_CPP_LINUX_DBUS_SCREENSHOT_NAMES_H_
#define SRC_CPP_LINUX_DBUS_SCREENSHOT_NAMES_H_

#include "session_bus.h"

namespace kiv {

// The compositors' screenshot services on the session bus.

constexpr char kGnomeDbusBusName[] = "org.gnome.Shell.Screenshot";
constexpr char kGnomeDbusObjectPath[] = "/org/gnome/Shell/Screenshot";
constexpr char kGnomeDbusInterface[] = "org.gnome.Shell.Screenshot";
constexpr char kGnomeDbusFunctionScreenshot[] = "Screenshot";
constexpr char kGnomeDbusFunctionScreenshotArea[] = "ScreenshotArea";
constexpr char kGnomeDbusFunctionSelectArea[] = "SelectArea";
constexpr char kKdeDbusBusName[] = "org.kde.KWin";
constexpr char kKdeDbusObjectPath[] = "/Screenshot";
constexpr char kKdeDbusInterface[] = "org.kde.kwin.Screenshot";
constexpr char kKdeDbusFunctionScreenshot[] = "screenshotFullscreen";
constexpr char kKdeDbusFunctionScreenshotScreen[] = "screenshotScreen";
constexpr char kKdeDbusErrorNoAuthorized[] = "org.kde.kwin.Screenshot.Error.NoAuthorized";

constexpr BusObject kGnome = {kGnomeDbusBusName, kGnomeDbusObjectPath, kGnomeDbusInterface};
constexpr BusObject kKde = {kKdeDbusBusName, kKdeDbusObjectPath, kKdeDbusInterface};
constexpr BusObject kScreenShot2 = {kKdeDbusBusName, "/org/kde/KWin/ScreenShot2",
                                    "org.kde.KWin.ScreenShot2"};

}  // namespace kiv

#endif  // SRC_CPP_LINUX_DBUS_SCREENSHOT_NAMES_H_
