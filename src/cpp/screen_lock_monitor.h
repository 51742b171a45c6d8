#ifndef SRC_CPP_SCREEN_LOCK_MONITOR_H_
#define SRC_CPP_SCREEN_LOCK_MONITOR_H_

#include <nan.h>

#include <memory>

#include "conversions.h"

namespace kiv {

class DesktopSessionAgent;

// The native half of a JavaScript ScreenLockMonitor; lives as long as that object. The newest
// monitor gets the agent's events. Destroying any monitor leaves the agent without one.
class ScreenLockMonitor : public Nan::ObjectWrap {
 public:
  explicit ScreenLockMonitor(DesktopSessionAgent* agent);
  ~ScreenLockMonitor() override;
  ScreenLockMonitor(const ScreenLockMonitor&) = delete;
  ScreenLockMonitor& operator=(const ScreenLockMonitor&) = delete;

  // Wraps this in a new JavaScript object.
  void Bind(v8::Local<v8::Object> object) { Wrap(object); }
  void Emit(const char* event);

  // Deletes every monitor when the runtime ends, because the runtime does not collect them then.
  static void DeleteAll();

 private:
  std::unique_ptr<Nan::Callback> emit_callback_;
  DesktopSessionAgent* agent_;
};

// Constructor: new ScreenLockMonitor()
void CreateScreenLockMonitor(const CallInfo& info);

}  // namespace kiv

#endif  // SRC_CPP_SCREEN_LOCK_MONITOR_H_
