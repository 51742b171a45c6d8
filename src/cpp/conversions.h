#ifndef SRC_CPP_CONVERSIONS_H_
#define SRC_CPP_CONVERSIONS_H_

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

// A callback that owns the argument or `value`; empty when that is not a function.
std::unique_ptr<Nan::Callback> FunctionArgument(const CallInfo& info, int index);
std::unique_ptr<Nan::Callback> MakeCallback(v8::Local<v8::Value> value);

// Bytes taken as UTF-8; invalid sequences become replacement characters, NULs are kept.
v8::Local<v8::String> ToJsString(const std::string& bytes);

void SetKey(v8::Local<v8::Object> object, const char* key, v8::Local<v8::Value> value);
void SetKey(v8::Local<v8::Object> object, const char* key, double value);
void SetKey(v8::Local<v8::Object> object, const char* key, const std::string& bytes);

}  // namespace kiv

#endif  // SRC_CPP_CONVERSIONS_H_
