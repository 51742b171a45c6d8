#ifndef SRC_CPP_CONVERSIONS_H_
#define SRC_CPP_CONVERSIONS_H_

#include <nan.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace kiv {

using CallInfo = Nan::FunctionCallbackInfo<v8::Value>;

// Convert the argument at `index` by JavaScript's rules; a missing one is undefined. When the
// result is empty, the conversion threw and its exception is pending: return at once.
std::optional<std::string> StringArgument(const CallInfo& info, int index);
std::optional<int64_t> IntegerArgument(const CallInfo& info, int index);
bool BooleanArgument(const CallInfo& info, int index);

// Return a callback that owns the function, or null when the value is not a function.
std::unique_ptr<Nan::Callback> FunctionArgument(const CallInfo& info, int index);
std::unique_ptr<Nan::Callback> MakeCallback(v8::Local<v8::Value> value);

// Decodes `bytes` as UTF-8. Replaces invalid sequences, keeps NULs.
v8::Local<v8::String> ToJsString(const std::string& bytes);

void SetKey(v8::Local<v8::Object> object, const char* key, v8::Local<v8::Value> value);
void SetKey(v8::Local<v8::Object> object, const char* key, double value);
void SetKey(v8::Local<v8::Object> object, const char* key, const std::string& bytes);

}  // namespace kiv

#endif  // SRC_CPP_CONVERSIONS_H_
