#ifndef SRC_CPP_ARGUMENTS_H_
#define SRC_CPP_ARGUMENTS_H_

#include <nan.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace kiv {

using CallInfo = Nan::FunctionCallbackInfo<v8::Value>;

// Arguments by position under the runtime's own conversions; a missing one reads as undefined. An
// empty result means that the conversion threw: the exception is pending, return at once.
std::optional<std::string> StringArgument(const CallInfo& info, int index);
std::optional<int64_t> IntegerArgument(const CallInfo& info, int index);
bool BooleanArgument(const CallInfo& info, int index);

// Empty when the argument is not a function.
std::unique_ptr<Nan::Callback> FunctionArgument(const CallInfo& info, int index);

}  // namespace kiv

#endif  // SRC_CPP_ARGUMENTS_H_
