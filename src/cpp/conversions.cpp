#include "conversions.h"

#include <algorithm>

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

std::unique_ptr<Nan::Callback> MakeCallback(v8::Local<v8::Value> value) {
  if (!value->IsFunction()) return nullptr;
  return std::make_unique<Nan::Callback>(value.As<v8::Function>());
}

v8::Local<v8::String> ToJsString(const std::string& bytes) {
  const auto length =
      static_cast<int>(std::min<size_t>(bytes.size(), static_cast<size_t>(v8::String::kMaxLength)));
  return Nan::New<v8::String>(bytes.data(), length).FromMaybe(Nan::EmptyString());
}

void SetKey(v8::Local<v8::Object> object, const char* key, v8::Local<v8::Value> value) {
  Nan::Set(object, Nan::New(key).ToLocalChecked(), value);
}

void SetKey(v8::Local<v8::Object> object, const char* key, double value) {
  SetKey(object, key, v8::Local<v8::Value>(Nan::New(value)));
}

void SetKey(v8::Local<v8::Object> object, const char* key, const std::string& bytes) {
  SetKey(object, key, v8::Local<v8::Value>(ToJsString(bytes)));
}

}  // namespace kiv
