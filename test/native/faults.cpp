// Makes a library call fail on demand. Loaded with RTLD_GLOBAL before what it stands in front of.

#include <dlfcn.h>
#include <nan.h>

namespace {

int calls_until_failure = -1;

void FailNewPixbuf(const Nan::FunctionCallbackInfo<v8::Value>& info) {
  calls_until_failure = Nan::To<int>(info[0]).FromJust();
}

// Allocations through what stands in front of malloc when kiv_allocations is preloaded.
void FailAllocation(const Nan::FunctionCallbackInfo<v8::Value>& info) {
  using Function = void (*)(long, int);
  const auto fail = reinterpret_cast<Function>(dlsym(RTLD_DEFAULT, "kiv_fail_allocation"));
  if (!fail) return Nan::ThrowError("kiv_allocations is not preloaded");
  fail(Nan::To<int>(info[0]).FromJust(), Nan::To<int>(info[1]).FromJust());
}

void AllocationFailed(const Nan::FunctionCallbackInfo<v8::Value>& info) {
  using Function = bool (*)();
  info.GetReturnValue().Set(
      reinterpret_cast<Function>(dlsym(RTLD_DEFAULT, "kiv_allocation_failed"))());
}

void Setup(v8::Local<v8::Object> exports, v8::Local<v8::Value> /*module*/, void* /*priv*/) {
  // failNewPixbuf(n): the n-th coming call of gdk_pixbuf_new has no memory.
  Nan::SetMethod(exports, "failNewPixbuf", FailNewPixbuf);
  // failAllocation(n, victims): the n-th coming allocation of this thread fails, once. 0: none.
  Nan::SetMethod(exports, "failAllocation", FailAllocation);
  Nan::SetMethod(exports, "allocationFailed", AllocationFailed);
}

}  // namespace

extern "C" __attribute__((visibility("default"))) void* gdk_pixbuf_new(int colorspace, int alpha,
                                                                       int bits, int width,
                                                                       int height) {
  using Function = void* (*)(int, int, int, int, int);
  static void* library = dlopen("libgdk_pixbuf-2.0.so.0", RTLD_LAZY);
  static const auto original = reinterpret_cast<Function>(dlsym(library, "gdk_pixbuf_new"));
  if (calls_until_failure > 0 && --calls_until_failure == 0) return nullptr;
  return original(colorspace, alpha, bits, width, height);
}

NODE_MODULE(kiv_faults, Setup)
