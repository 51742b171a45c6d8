#include "input_calls.h"

#include <utility>

#include "addon.h"
#include "js_callback.h"

namespace kiv {

namespace {

double SecondsOrMinusOne(const OptionalSeconds& seconds) {
  return seconds.set ? static_cast<double>(seconds.value) : -1.0;
}

}  // namespace

void GetInputInfo(const CallInfo& info) {
  const EntryScope entry;
  Agent().UpdateLastTimes();
  const DesktopSessionData& data = Agent().data_;
  const v8::Local<v8::Object> last = Nan::New<v8::Object>();
  SetKey(last, "input", SecondsOrMinusOne(data.last_input));
  SetKey(last, "keyPress", SecondsOrMinusOne(data.last_key_press));
  SetKey(last, "mouseClick", SecondsOrMinusOne(data.last_mouse_click));
  SetKey(last, "mouseMove", SecondsOrMinusOne(data.last_mouse_move));
  const v8::Local<v8::Object> result = Nan::New<v8::Object>();
  SetKey(result, "last", last);
  SetKey(result, "keyboardActivity", static_cast<double>(data.keyboard_activity));
  SetKey(result, "mouseActivity", static_cast<double>(data.mouse_activity));
  info.GetReturnValue().Set(result);
}

void SetInterval(const CallInfo& info) {
  const EntryScope entry;
  auto callback = FunctionArgument(info, 0);
  const auto interval = IntegerArgument(info, 1);
  if (!interval) return;
  Agent().SetInterval(std::move(callback), static_cast<int32_t>(static_cast<uint32_t>(*interval)));
}

}  // namespace kiv
