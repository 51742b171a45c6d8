#include "host_utils.h"

#include <dlfcn.h>

namespace kiv {

namespace {

template <typename Function>
void LookUp(const char* name, Function* function) {
  *function = reinterpret_cast<Function>(dlsym(RTLD_DEFAULT, name));
}

}  // namespace

bool HostUtils::Available() {
  if (!looked_up) {
    LookUp("KivoUtilsCreateGUID", &create_guid);
    LookUp("KivoUtilsCreateSHA256Hash", &create_sha256_hash);
    LookUp("KivoUtilsNormalizeAndCreatePath", &normalize_and_create_path);
    LookUp("KivoUtilsWriteFile", &write_file);
    looked_up = true;
  }
  return create_guid && create_sha256_hash && normalize_and_create_path && write_file;
}

}  // namespace kiv
