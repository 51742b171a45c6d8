// One add-on that is the module, libFuzzer and the native targets.

#include <X11/Xatom.h>
#include <fuzzer/FuzzedDataProvider.h>
#include <gtk/gtk.h>
#include <nan.h>
// The module is registered by this add-on's own registration.
#undef NODE_MODULE
#define NODE_MODULE(name, setup)
#include <fstream>

#include "../../src/cpp/addon.cpp"  // NOLINT(bugprone-suspicious-include)
#include "../../src/cpp/linux/lock_watcher.h"
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

// A tuple of any type that a signature can have, of bytes that need mean nothing.
void Signals(const kiv::CallInfo& info) {
  auto bytes = Bytes(info);
  const bool upstart = bytes.ConsumeBool();
  std::string type = "(" + bytes.ConsumeRandomLengthString(12) + ")";
  const bool sendable = g_variant_is_signature(type.c_str());
  if (!sendable || !g_variant_type_string_is_valid(type.c_str())) type = upstart ? "(s)" : "(b)";
  const auto data = bytes.ConsumeRemainingBytes<char>();
  const kiv::GVariantPtr raw(g_variant_ref_sink(g_variant_new_from_data(
      G_VARIANT_TYPE(type.c_str()), data.data(), data.size(), FALSE, nullptr, nullptr)));
  const kiv::GVariantPtr body(g_variant_get_normal_form(raw.get()));
  const kiv::GCharPtr text(g_variant_print(body.get(), FALSE));
  std::optional<bool> expected;
  if (g_str_has_prefix(text.get(), upstart ? "('desktop-lock'" : "(true")) expected = true;
  if (g_str_has_prefix(text.get(), upstart ? "('desktop-unlock'" : "(false")) expected = false;
  const char* const name = upstart ? "EventEmitted" : "ActiveChanged";
  g_assert(kiv::ReadLockSignal(name, body.get()) == expected);
}

// The text that the property is for whoever reads it as one.
std::string SetAny(Display* display, Window window, Atom name, FuzzedDataProvider* bytes) {
  const int format = bytes->PickValueInArray({0, 8, 16, 32});
  const std::string value = bytes->ConsumeRandomLengthString();
  XDeleteProperty(display, window, name);
  if (format == 0) return kiv::kUndefined;
  std::string items;  // as Xlib wants them
  for (const long item : value) {
    items.append(reinterpret_cast<const char*>(&item), format == 32 ? sizeof item : format / 8);
  }
  XChangeProperty(display, window, name, XA_STRING, format, PropModeReplace,
                  reinterpret_cast<unsigned char*>(items.data()), static_cast<int>(value.size()));
  return items.c_str();
}

void Properties(const kiv::CallInfo& info) {
  static Display* const display = XOpenDisplay(nullptr);
  static Window root = DefaultRootWindow(display);
  static const kiv::ActiveWindowAtoms atoms = kiv::InternActiveWindowAtoms(display);
  auto bytes = Bytes(info);
  const bool active = bytes.ConsumeBool();
  SetAny(display, root, atoms.atom_net_active_window, &bytes);
  if (active) {
    XChangeProperty(display, root, atoms.atom_net_active_window, XA_WINDOW, 32, PropModeReplace,
                    reinterpret_cast<unsigned char*>(&root), 1);
  }
  SetAny(display, root, atoms.atom_net_wm_pid, &bytes);
  const auto title = SetAny(display, root, atoms.atom_net_wm_name, &bytes);
  const auto found = kiv::ReadActiveTask(display, atoms).title;
  g_assert(found == (active ? title : kiv::kUndefined));
}

v8::Local<v8::Function> target;

int OnInput(const uint8_t* data, size_t size) {
  const Nan::HandleScope scope;
  v8::Local<v8::Value> input =
      Nan::CopyBuffer(reinterpret_cast<const char*>(data), size).ToLocalChecked();
  Nan::Call(target, Nan::GetCurrentContext()->Global(), 1, &input).IsEmpty();
  // The main script never returns, so these are the only loops.
  for (int i = 0; i < 50 && g_main_context_iteration(nullptr, FALSE); ++i) continue;
  uv_run(uv_default_loop(), UV_RUN_NOWAIT);
  return 0;
}

// run(target, arguments): hands the process over to libFuzzer, which ends it.
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
  Nan::SetMethod(exports, "signals", Signals);
  Nan::SetMethod(exports, "run", Run);
}

}  // namespace

NODE_MODULE_X(kiv_fuzz, SetupFuzz, NULL, 0)
