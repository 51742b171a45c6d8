#ifndef SRC_CPP_LOG_REQUEST_IDS_H_
#define SRC_CPP_LOG_REQUEST_IDS_H_

namespace kiv {

// The fixed prefix of each kind of log message. A value follows after ":", unless the prefix itself
// ends with ":" or ": ". The spellings are part of the interface.
constexpr char kLoggingRequestId_GetScreenSnapAsync[] = "GetScreenSnapAsync";
constexpr char kLoggingRequestId_OnScreenSnapAsyncBusy[] =
    "Async. ScreenSnap is already in progress, the call is ignored.";
constexpr char kLoggingRequestId_DbusIdleTimeError[] = "DBUS IdleTime: ";
constexpr char kLoggingRequestId_OnScreenSnapCompleted[] = "OnScreenSnapCompleted";
constexpr char kLoggingRequestId_End[] = "End";
constexpr char kLoggingRequestId_DisplayLost[] = "Session: X connection lost";
constexpr char kLoggingRequestId_SessionBusSignal[] = "Session: screen lock changed";
constexpr char kLoggingRequestId_ActiveTaskInfoValuesError[] = "Get Active Task info: v-error";
constexpr char kLoggingRequestId_ActiveTaskInfoCountError[] = "Get Active Task info: c-error";
constexpr char kLoggingRequestId_ActiveTaskInfoStatusError[] = "Get Active Task info: s-error";
constexpr char kLoggingRequestId_FetchActiveTaskInfo_XGetWindowProperty1r4[] = "XGetWP1r4";
constexpr char kLoggingRequestId_FetchActiveTaskInfo_XGetWindowProperty2r1[] = "XGetWP2r1";
constexpr char kLoggingRequestId_FetchActiveTaskInfo_XGetWindowProperty4r1[] = "XGetWP4r1";
constexpr char kLoggingRequestId_SnapDesktopError[] = "Snap desktop error";
constexpr char kLoggingRequestId_SnapDisplayError[] = "Snap display error";
constexpr char kLoggingRequestId_ScreenSnapCreateBasePixmapError[] =
    "Screensnap: creating base pixmap error";
constexpr char kLoggingRequestId_ScreenSnapCreateBlandedPixmapError[] =
    "Screensnap: creating blanded pixmap error";
constexpr char kLoggingRequestId_ScreenSnapSelectionError[] = "Screensnap: selection error:";
constexpr char kLoggingRequestId_FetchImageError[] = "Fetch image error";
constexpr char kLoggingRequestId_DbusScreenshotError[] = "DBUS Screenshot: ";
constexpr char kLoggingRequestId_UpgradeFileNameError[] = "Upgrade: fn-error";
constexpr char kLoggingRequestId_UpgradeFileInfoError[] = "Upgrade: fi-error";
constexpr char kLoggingRequestId_UpgradeNotFileError[] = "Upgrade: nf-error";
constexpr char kLoggingRequestId_UpgradePackageExtentionError[] = "Upgrade: ext-error";
constexpr char kLoggingRequestId_StartProcess[] = "Process started";
constexpr char kLoggingRequestId_StartProcessError[] = "Start porcess error";
constexpr char kLoggingRequestId_UpgradeStartProcessFail[] = "Upgrade start process fail";

}  // namespace kiv

#endif  // SRC_CPP_LOG_REQUEST_IDS_H_
