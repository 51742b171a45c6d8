#ifndef TEST_NATIVE_INTERNALS_X11_H_
#define TEST_NATIVE_INTERNALS_X11_H_

#include <nan.h>

void AddX11Helpers(v8::Local<v8::Object> exports);

#endif  // TEST_NATIVE_INTERNALS_X11_H_
