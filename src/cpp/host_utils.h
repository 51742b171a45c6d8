#ifndef SRC_CPP_HOST_UTILS_H_
#define SRC_CPP_HOST_UTILS_H_

#include <cstdint>
#include <string>

namespace kiv {

// Four functions that the host process may export. Both sides must use one std::string layout.
struct HostUtils {
  bool looked_up = false;
  void (*create_guid)(std::string& out) = nullptr;
  void (*create_sha256_hash)(std::string& out, const void* data, uint64_t size) = nullptr;
  void (*normalize_and_create_path)(std::string& path) = nullptr;
  bool (*write_file)(const std::string& name, const void* data, uint64_t size) = nullptr;

  // Looks the four functions up in the global scope, once per process. Returns true when all exist.
  bool Available();
};

}  // namespace kiv

#endif  // SRC_CPP_HOST_UTILS_H_
