#ifndef SRC_CPP_LINUX_BYTE_SINK_H_
#define SRC_CPP_LINUX_BYTE_SINK_H_

#include <cstddef>
#include <memory>
#include <vector>

#include "../screen_snap.h"

namespace kiv {

// Collects an encoder's output, which arrives in thousands of small pieces, in chunks that never
// move; Finish copies it once into one block of the exact length.
class ByteSink {
 public:
  // Both throw std::bad_alloc and leave what was there before.
  void Append(const char* bytes, size_t count);
  // Appends everything to `block` and becomes empty.
  void Finish(ScreenSnap::image_data* block);

 private:
  struct Chunk {
    std::unique_ptr<unsigned char[]> bytes;
    size_t capacity;
    size_t used;
  };
  std::vector<Chunk> chunks_;
  size_t size_ = 0;
};

}  // namespace kiv

#endif  // SRC_CPP_LINUX_BYTE_SINK_H_
