#include "arguments.h"

#include "js_callback.h"

namespace kiv {

std::optional<std::string> StringArgument(const CallInfo& info, int index) {
  v8::Local<v8::String> text;
  if (!Nan::To<v8::String>(info[index]).ToLocal(&text)) return std::nullopt;
  const Nan::Utf8String utf8(text);
  return std::string(*utf8, static_cast<size_t>(utf8.length()));
}

std::optional<int64_t> IntegerArgument(const CallInfo& info, int index) {
  const Nan::Maybe<int64_t> value = Nan::To<int64_t>(info[index]);
  if (value.IsNothing()) return std::nullopt;
  return value.FromJust();
}

bool BooleanArgument(const CallInfo& info, int index) {
  return Nan::To<bool>(info[index]).FromMaybe(false);
}

std::unique_ptr<Nan::Callback> FunctionArgument(const CallInfo& info, int index) {
  return MakeCallback(info[index]);
}

}  // namespace kiv
