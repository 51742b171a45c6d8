// One add-on with the module, libFuzzer and the native targets.

#include <X11/Xatom.h>
#include <fuzzer/FuzzedDataProvider.h>
#include <gtk/gtk.h>
#include <nan.h>
// This add-on registers the module itself.
#undef NODE_MODULE
#define NODE_MODULE(name, setup)
#include <fstream>

#include "../../src/cpp/addon.cpp"  // NOLINT(bugprone-suspicious-include)
#include "../../src/cpp/linux/picture_file.h"
#include "../../src/cpp/linux/tools_x11_linux.h"

extern "C" int LLVMFuzzerRunDriver(int* argc, char*** argv, int (*target)(const uint8_t*, size_t));

namespace {

FuzzedDataProvider Bytes(const kiv::CallInfo& info) {
  return {reinterpret_cast<uint8_t*>(node::Buffer::Data(info[0])), node::Buffer::Length(info[0])};
}

void Pictures(const kiv::CallInfo& info) {
  static const std::string path = std::string(g_get_tmp_dir()) + "/picture";
  std::ofstream(path, std::ios::binary) << Bytes(info).ConsumeRemainingBytesAsString();
  kiv::GErrorPtr error;
  const auto picture = kiv::ReadPicture(path, &error);
  g_assert(!picture != !error);
  g_assert(!picture || gdk_pixbuf_get_byte_length(picture.get()) <= size_t{4} << 27);  // RGBA
}

void Properties(const kiv::CallInfo& info) {
  static Display* const display = XOpenDisplay(nullptr);
  static Window root = DefaultRootWindow(display);
  static const kiv::ActiveWindowAtoms atoms = kiv::InternActiveWindowAtoms(display);
  auto bytes = Bytes(info);
  const auto set = [](Atom name, int format, const void* items, size_t count) {
    XChangeProperty(display, root, name, XA_STRING, format, PropModeReplace,
                    static_cast<const unsigned char*>(items), static_cast<int>(count));
  };
  for (const Atom name :
       {atoms.atom_net_active_window, atoms.atom_net_wm_pid, atoms.atom_net_wm_name}) {
    const int format = bytes.PickValueInArray({8, 16, 32});
    const std::string value = bytes.ConsumeRandomLengthString();
    // Xlib takes 32-bit items as longs; the other formats read fewer bytes of them.
    const std::vector<long> items(value.begin(), value.end());
    set(name, format, items.data(), items.size());
  }
  if (bytes.ConsumeBool()) set(atoms.atom_net_active_window, 32, &root, 1);
  kiv::ReadActiveTask(display, atoms);
}

v8::Local<v8::Function> target;

int OnInput(const uint8_t* data, size_t size) {
  const Nan::HandleScope scope;
  v8::Local<v8::Value> input =
      Nan::CopyBuffer(reinterpret_cast<const char*>(data), size).ToLocalChecked();
  Nan::Call(target, Nan::GetCurrentContext()->Global(), 1, &input).IsEmpty();
  // The main script never returns, so its loops do not run by themselves.
  for (int i = 0; i < 50 && g_main_context_iteration(nullptr, FALSE); ++i) continue;
  uv_run(uv_default_loop(), UV_RUN_NOWAIT);
  return 0;
}

// run(target, arguments): starts libFuzzer, which exits the process.
void Run(const kiv::CallInfo& info) {
  target = info[0].As<v8::Function>();
  char** argv = g_strsplit(*Nan::Utf8String(info[1]), " ", 0);
  auto argc = static_cast<int>(g_strv_length(argv));
  LLVMFuzzerRunDriver(&argc, &argv, OnInput);
}

void SetupFuzz(v8::Local<v8::Object> exports, v8::Local<v8::Value> module, void* priv) {
  gtk_init_check(nullptr, nullptr);
  kiv::Setup(exports, module, priv);
  Nan::SetMethod(exports, "pictures", Pictures);
  Nan::SetMethod(exports, "properties", Properties);
  Nan::SetMethod(exports, "run", Run);
}

}  // namespace

NODE_MODULE_X(kiv_fuzz, SetupFuzz, NULL, 0)
