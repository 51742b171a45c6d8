#ifndef SRC_CPP_SCREEN_LOCK_MONITOR_H_
#define SRC_CPP_SCREEN_LOCK_MONITOR_H_

#include <nan.h>

#include <memory>

#include "conversions.h"

namespace kiv {

class DesktopSessionAgent;

// The native half of a JavaScript ScreenLockMonitor; lives as long as that object. The newest one
// gets the agent's events; the end of any leaves the agent without a monitor.
class ScreenLockMonitor : public Nan::ObjectWrap {
 public:
  explicit ScreenLockMonitor(DesktopSessionAgent* agent);
  ~ScreenLockMonitor() override;
  ScreenLockMonitor(const ScreenLockMonitor&) = delete;
  ScreenLockMonitor& operator=(const ScreenLockMonitor&) = delete;

  // Ties this to a new JavaScript object.
  void Bind(v8::Local<v8::Object> object) { Wrap(object); }
  void Emit(const char* event);

  // Deletes every monitor, at the runtime's end, which does not collect their objects.
  static void DeleteAll();

 private:
  std::unique_ptr<Nan::Callback> emit_callback_;
  DesktopSessionAgent* agent_;
};

// The constructor: new ScreenLockMonitor()
void CreateScreenLockMonitor(const CallInfo& info);

}  // namespace kiv

#endif  // SRC_CPP_SCREEN_LOCK_MONITOR_H_
