#include "facts_export.h"

#include <glib.h>

#include <string>
#include <vector>

#include "desktop_facts.h"

namespace kiv {

namespace {

v8::Local<v8::String> ToText(const std::string& text) {
  return Nan::New(text.c_str()).ToLocalChecked();
}

void SetText(v8::Local<v8::Object> object, const char* key, const std::string& text) {
  Nan::Set(object, Nan::New(key).ToLocalChecked(), ToText(text));
}

// owned(names): for each whether it has an owner on the session bus, or null.
NAN_METHOD(Owned) {
  const auto list = info[0].As<v8::Array>();
  std::vector<std::string> names;
  for (uint32_t i = 0; i < list->Length(); ++i) {
    names.emplace_back(*Nan::Utf8String(Nan::Get(list, i).ToLocalChecked()));
  }
  const auto owned = FindOwned(names);
  if (!owned) return info.GetReturnValue().SetNull();
  const auto result = Nan::New<v8::Array>();
  for (uint32_t i = 0; i < owned->size(); ++i) {
    Nan::Set(result, i, Nan::New(static_cast<bool>((*owned)[i])));
  }
  info.GetReturnValue().Set(result);
}

// services(): { gnome, kwin, screenshot2 }, names of errors
NAN_METHOD(Services) {
  const ServiceErrors errors = TryServices();
  const auto result = Nan::New<v8::Object>();
  SetText(result, "gnome", errors.gnome);
  SetText(result, "kwin", errors.kwin);
  SetText(result, "screenshot2", errors.screenshot2);
  info.GetReturnValue().Set(result);
}

// display(): { width, height, window, title } or null
NAN_METHOD(DisplayMethod) {
  const auto facts = ReadDisplay();
  if (!facts) return info.GetReturnValue().SetNull();
  const auto result = Nan::New<v8::Object>();
  Nan::Set(result, Nan::New("width").ToLocalChecked(), Nan::New(facts->width));
  Nan::Set(result, Nan::New("height").ToLocalChecked(), Nan::New(facts->height));
  Nan::Set(result, Nan::New("window").ToLocalChecked(), Nan::New(facts->window_found));
  SetText(result, "title", facts->title);
  info.GetReturnValue().Set(result);
}

// libraries(): { glib, gtk }, versions
NAN_METHOD(Libraries) {
  const auto number = [](guint part) { return std::to_string(part); };
  const auto result = Nan::New<v8::Object>();
  SetText(result, "glib",
          number(glib_major_version) + "." + number(glib_minor_version) + "." +
              number(glib_micro_version));
  SetText(result, "gtk", GtkVersion());
  info.GetReturnValue().Set(result);
}

// hostFunctions(): how many of the four there are
NAN_METHOD(HostFunctions) { info.GetReturnValue().Set(CountHostFunctions()); }

}  // namespace

v8::Local<v8::Object> FactsExport() {
  const auto facts = Nan::New<v8::Object>();
  Nan::SetMethod(facts, "owned", Owned);
  Nan::SetMethod(facts, "services", Services);
  Nan::SetMethod(facts, "display", DisplayMethod);
  Nan::SetMethod(facts, "libraries", Libraries);
  Nan::SetMethod(facts, "hostFunctions", HostFunctions);
  return facts;
}

}  // namespace kiv
