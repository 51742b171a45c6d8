#ifndef SRC_CPP_LINUX_BYTE_SINK_H_
#define SRC_CPP_LINUX_BYTE_SINK_H_

#include <cstddef>
#include <memory>
#include <vector>

#include "../screen_snap.h"

namespace kiv {

// Collects an encoder's output, thousands of small pieces, in chunks that never move. Finish copies
// them once into one block of the exact length.
class ByteSink {
 public:
  // Both may throw std::bad_alloc; `block` and the bytes appended before are then unchanged.
  void Append(const char* bytes, size_t count);
  // Appends all bytes to `block` and empties the sink.
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
