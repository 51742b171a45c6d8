// One add-on that is the module, libFuzzer and the targets.

#include <glib.h>
#include <nan.h>

// The module is registered by this add-on's own registration.
#undef NODE_MODULE
#define NODE_MODULE(name, setup)
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "../../src/cpp/addon.cpp"  // NOLINT(bugprone-suspicious-include)
#include "fuzz.h"

extern "C" int LLVMFuzzerRunDriver(int* argc, char*** argv,
                                   int (*target)(const uint8_t* data, size_t size));

namespace {

using kiv::CallInfo;

const std::map<std::string, fuzz::Target> kTargets = {
    {"pictures", fuzz::Picture},
    {"command_line", fuzz::CommandLine},
    {"properties", fuzz::Properties},
    {"replies", fuzz::Replies},
};

fuzz::Target native_target = nullptr;
v8::Local<v8::Function> script_target;

void CallScript(const uint8_t* data, size_t size) {
  const auto* bytes = reinterpret_cast<const char*>(data);
  v8::Local<v8::Value> argv[] = {
      Nan::CopyBuffer(bytes, static_cast<uint32_t>(size)).ToLocalChecked()};
  const Nan::TryCatch raised;
  Nan::Call(script_target, Nan::GetCurrentContext()->Global(), 1, argv);
  if (!raised.HasCaught()) return;
  const auto stack = raised.StackTrace().FromMaybe(raised.Exception());
  fuzz::Check(false, *Nan::Utf8String(stack));
}

int OnInput(const uint8_t* data, size_t size) {
  const Nan::HandleScope scope;
  if (native_target) {
    native_target(data, size);
  } else {
    CallScript(data, size);
  }
  fuzz::Settle();
  return 0;
}

// run(arguments, target): hands the process over to libFuzzer, which ends it. The target is the
// name of a native one, or a function of one input that throws when it finds a fault.
void Run(const CallInfo& info) {
  const auto list = info[0].As<v8::Array>();
  std::vector<std::string> texts;
  for (uint32_t i = 0; i < list->Length(); ++i) {
    texts.emplace_back(*Nan::Utf8String(Nan::Get(list, i).ToLocalChecked()));
  }
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  if (info[1]->IsFunction()) {
    script_target = info[1].As<v8::Function>();
  } else {
    native_target = kTargets.at(*Nan::Utf8String(info[1]));
  }
  auto argc = static_cast<int>(texts.size());
  char** argv = pointers.data();
  LLVMFuzzerRunDriver(&argc, &argv, OnInput);
}

template <auto Target>
void WithBytes(const CallInfo& info) {
  Target(reinterpret_cast<const uint8_t*>(node::Buffer::Data(info[0])),
         node::Buffer::Length(info[0]));
}

void SetVictim(const CallInfo& info) { fuzz::SetVictim(Nan::To<int32_t>(info[0]).FromJust()); }

void Iterate(const CallInfo& /*info*/) { g_main_context_iteration(nullptr, false); }

void Settle(const CallInfo& /*info*/) { fuzz::Settle(); }

void SetupFuzz(v8::Local<v8::Object> exports, v8::Local<v8::Value> module, void* priv) {
  kiv::Setup(exports, module, priv);
  const auto tools = Nan::New<v8::Object>();
  Nan::Set(exports, Nan::New("fuzz").ToLocalChecked(), tools);
  Nan::SetMethod(tools, "run", Run);
  Nan::SetMethod(tools, "signals", WithBytes<fuzz::Signals>);
  Nan::SetMethod(tools, "planHostFunctions", WithBytes<fuzz::PlanHostFunctions>);
  Nan::SetMethod(tools, "setVictim", SetVictim);
  Nan::SetMethod(tools, "iterate", Iterate);
  Nan::SetMethod(tools, "settle", Settle);
}

}  // namespace

namespace fuzz {

void Check(bool held, const char* what) {
  if (held) return;
  std::fprintf(stderr, "finding: %s\n", what);
  std::abort();
}

void Settle() {
  constexpr int kTurns = 50;
  for (int i = 0; i < kTurns && g_main_context_iteration(nullptr, false); ++i) {
  }
  // The main script never returns, so this is the only loop of libuv.
  uv_run(uv_default_loop(), UV_RUN_NOWAIT);
}

}  // namespace fuzz

NODE_MODULE_X(kiv_fuzz, SetupFuzz, NULL, 0)
