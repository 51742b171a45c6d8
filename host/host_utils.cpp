// The host's four utility functions. They are found by name in the process's global scope, so this
// add-on is loaded with RTLD_GLOBAL.

#include <glib.h>
#include <nan.h>

#include <cstdint>
#include <exception>
#include <string>

#include "../src/cpp/linux/glib_ptr.h"

#define KIV_HOST_FUNCTION extern "C" __attribute__((visibility("default")))

namespace {

using kiv::GCharPtr;

// The callers use a C interface and expect no exception. On failure `out` stays empty.
void Assign(std::string& out, const char* text, const char* suffix = "") noexcept {
  try {
    out.assign(text ? text : "").append(suffix);
  } catch (const std::exception&) {
    out.clear();
  }
}

// The C functions below would truncate such a name.
bool HasNul(const std::string& text) { return text.find('\0') != std::string::npos; }

void Init(v8::Local<v8::Object>, v8::Local<v8::Value>, void*) {}

}  // namespace

KIV_HOST_FUNCTION void KivoUtilsCreateGUID(std::string& out) {
  const GCharPtr guid(g_uuid_string_random());
  Assign(out, guid.get());
}

// The result ends in "/", because the caller appends a file name to it.
KIV_HOST_FUNCTION void KivoUtilsNormalizeAndCreatePath(std::string& path) {
  if (HasNul(path)) return;
  const GCharPtr folder(g_canonicalize_filename(path.c_str(), nullptr));
  g_mkdir_with_parents(folder.get(), 0700);
  Assign(path, folder.get(), g_str_has_suffix(folder.get(), "/") ? "" : "/");
}

KIV_HOST_FUNCTION bool KivoUtilsWriteFile(const std::string& name, const void* data,
                                          uint64_t size) {
  if (name.empty() || HasNul(name) || size > G_MAXSSIZE || (!data && size > 0)) return false;
  const auto flags = static_cast<GFileSetContentsFlags>(G_FILE_SET_CONTENTS_CONSISTENT |
                                                        G_FILE_SET_CONTENTS_ONLY_EXISTING);
  return g_file_set_contents_full(name.c_str(), static_cast<const gchar*>(data),
                                  static_cast<gssize>(size), flags, 0600, nullptr);
}

KIV_HOST_FUNCTION void KivoUtilsCreateSHA256Hash(std::string& out, const void* data,
                                                 uint64_t size) {
  if (size > G_MAXSSIZE || (!data && size > 0)) return out.clear();
  const GCharPtr digest(
      g_compute_checksum_for_data(G_CHECKSUM_SHA256, static_cast<const guchar*>(data), size));
  Assign(out, digest.get());
}

NODE_MODULE(NODE_GYP_MODULE_NAME, Init)
