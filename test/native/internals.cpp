// Reaches the module's internals for the tests; never shipped.

#include <gdk-pixbuf/gdk-pixbuf.h>
#include <nan.h>

#include <memory>
#include <string>
#include <vector>

#include "../../src/cpp/addon.h"
#include "../../src/cpp/conversions.h"
#include "../../src/cpp/js_callback.h"
#include "../../src/cpp/js_runtime.h"
#include "../../src/cpp/linux/active_window.h"
#include "../../src/cpp/linux/byte_sink.h"
#include "../../src/cpp/linux/dbus_screenshot.h"
#include "../../src/cpp/linux/glib_ptr.h"
#include "../../src/cpp/linux/image_encoder.h"
#include "../../src/cpp/linux/upgrade_script.h"
#include "../../src/cpp/logging.h"
#include "../../src/cpp/screen_snap.h"
#include "internals_x11.h"

namespace {

using kiv::CallInfo;

// An agent of this add-on's own, for the record and the guard; set up by activeTask() alone.
kiv::DesktopSessionAgent& agent = *new kiv::DesktopSessionAgent;

}  // namespace

namespace kiv {

DesktopSessionAgent& Agent() { return agent; }

}  // namespace kiv

namespace {

int IntArgument(const CallInfo& info, int index) {
  return Nan::To<int32_t>(info[index]).FromMaybe(0);
}

v8::Local<v8::Value> CopyOf(const kiv::ScreenSnap::image_data& block) {
  const auto* bytes = reinterpret_cast<const char*>(block.buffer.get());
  return Nan::CopyBuffer(bytes, static_cast<uint32_t>(block.size)).ToLocalChecked();
}

// A picture whose every pixel differs from its neighbours, or null for width 0.
kiv::GObjectPtr<GdkPixbuf> Pattern(int width, int height) {
  if (width == 0) return nullptr;
  auto pixbuf = kiv::AdoptGObject(gdk_pixbuf_new(GDK_COLORSPACE_RGB, FALSE, 8, width, height));
  guchar* pixels = gdk_pixbuf_get_pixels(pixbuf.get());
  const ptrdiff_t stride = gdk_pixbuf_get_rowstride(pixbuf.get());
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      guchar* pixel = pixels + y * stride + ptrdiff_t{x} * 3;
      pixel[0] = static_cast<guchar>(x);
      pixel[1] = static_cast<guchar>(y);
      pixel[2] = static_cast<guchar>(x ^ y);
    }
  }
  return pixbuf;
}

// encode(patternWidth, patternHeight, width, height, jpeg, scale, prefix): the record afterwards;
// `prefix` bytes stand in the picture's block beforehand.
void Encode(const CallInfo& info) {
  kiv::ScreenSnap snap;
  snap.filename = "untouched";
  const auto prefix = static_cast<size_t>(IntArgument(info, 6));
  if (prefix > 0) {
    snap.image.buffer = std::make_unique<unsigned char[]>(prefix);
    snap.image.size = prefix;
  }
  const auto pixbuf = Pattern(IntArgument(info, 0), IntArgument(info, 1));
  kiv::FetchPixbufImage(snap, pixbuf.get(), static_cast<unsigned>(IntArgument(info, 2)),
                        static_cast<unsigned>(IntArgument(info, 3)),
                        Nan::To<bool>(info[4]).FromJust(), Nan::To<bool>(info[5]).FromJust());
  const auto result = Nan::New<v8::Object>();
  kiv::SetKey(result, "filename", kiv::ToJsString(snap.filename));
  kiv::SetKey(result, "image", CopyOf(snap.image));
  kiv::SetKey(result, "thumbnail", CopyOf(snap.thumbnail));
  info.GetReturnValue().Set(result);
}

// sink(pieces): what a sink makes of an array of buffers.
void Sink(const CallInfo& info) {
  kiv::ByteSink sink;
  const auto pieces = info[0].As<v8::Array>();
  for (uint32_t i = 0; i < pieces->Length(); ++i) {
    const auto piece = Nan::Get(pieces, i).ToLocalChecked();
    sink.Append(node::Buffer::Data(piece), node::Buffer::Length(piece));
  }
  kiv::ScreenSnap::image_data block;
  sink.Finish(&block);
  info.GetReturnValue().Set(CopyOf(block));
}

// sinkNanoseconds(bytes, exact): time to collect that much as a PNG encoder hands it over; with
// `exact` the way that keeps the block at its exact length after every piece.
void SinkNanoseconds(const CallInfo& info) {
  const auto total = static_cast<size_t>(Nan::To<int64_t>(info[0]).FromJust());
  const bool exact = Nan::To<bool>(info[1]).FromJust();
  const std::vector<char> piece(8192, 'x');
  constexpr size_t kPieces[] = {8, 8192, 4};
  const uint64_t start = uv_hrtime();
  kiv::ScreenSnap::image_data block;
  kiv::ByteSink sink;
  for (size_t sent = 0, i = 0; sent < total; ++i) {
    const size_t count = kPieces[i % 3];
    sink.Append(piece.data(), count);
    if (exact) sink.Finish(&block);
    sent += count;
  }
  sink.Finish(&block);
  info.GetReturnValue().Set(static_cast<double>(uv_hrtime() - start));
}

std::weak_ptr<kiv::DbusScreenshot> selecting;

void ReleaseRuntime() {
  agent.OnRuntimeEnd();
  kiv::LogMessage::Setup(nullptr);
}

// selectArea(function): starts a selection as an accepted request does; nobody but the request
// keeps its backend. False without a compositor. One that cannot select takes nothing over.
void SelectArea(const CallInfo& info) {
  const kiv::EntryScope entry;
  const auto chosen = kiv::DbusScreenshot::Create();
  info.GetReturnValue().Set(chosen != nullptr);
  if (!chosen) return;
  selecting = chosen;
  auto context = kiv::FunctionArgument(info, 0);
  if (!chosen->SnapSelectionSupported()) {
    return chosen->SnapSelection(&agent.data_, context.get());
  }
  agent.TakeSnapGuard();
  chosen->SnapSelection(&agent.data_, context.release());
}

// script(package, log): the one for Debian, filled, for process 1.
void Script(const CallInfo& info) {
  const kiv::UpgradeRun run = {1, *Nan::Utf8String(info[0]), *Nan::Utf8String(info[1]), false};
  info.GetReturnValue().Set(kiv::ToJsString(kiv::UpgradeScript(kiv::PackageFamily::kDebian, run)));
}

// activeTask(): what every snapshot begins with, alone.
void ActiveTask(const CallInfo& info) {
  if (!agent.data_.display()) agent.Setup();
  const kiv::ActiveTask task = kiv::ReadActiveTask(agent.data_.display(), agent.data_);
  const auto result = Nan::New<v8::Object>();
  kiv::SetKey(result, "title", task.title);
  kiv::SetKey(result, "process", task.process);
  info.GetReturnValue().Set(result);
}

struct Method {
  const char* name;
  Nan::FunctionCallback run;
};

const Method kMethods[] = {
    {"encode", Encode},
    {"sink", Sink},
    {"sinkNanoseconds", SinkNanoseconds},
    {"script", Script},
    {"activeTask", ActiveTask},
    {"selectArea", SelectArea},
    {"setupLogger",
     [](const CallInfo& info) { kiv::LogMessage::Setup(kiv::FunctionArgument(info, 0)); }},
    // Whether the last selection's backend still exists.
    {"selectionBackendAlive",
     [](const CallInfo& info) { info.GetReturnValue().Set(!selecting.expired()); }},
    {"guardIsFree",
     [](const CallInfo& info) { info.GetReturnValue().Set(agent.SnapGuardIsFree()); }},
    // Nothing keeps the loop alive any more.
    {"unrefHandles",
     [](const CallInfo& /*info*/) {
       const auto unref = [](uv_handle_t* handle, void* /*data*/) { uv_unref(handle); };
       uv_walk(uv_default_loop(), unref, nullptr);
     }},
};

void Setup(v8::Local<v8::Object> exports, v8::Local<v8::Value> /*module*/, void* /*priv*/) {
  kiv::JsRuntime::Get().Start(ReleaseRuntime);
  for (const Method& method : kMethods) Nan::SetMethod(exports, method.name, method.run);
  AddX11Helpers(exports);
}

}  // namespace

NODE_MODULE(kiv_internals, Setup)
