#include "byte_sink.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace kiv {

namespace {

constexpr size_t kSmallestChunk = size_t{64} << 10;
constexpr size_t kLargestChunk = size_t{1} << 20;

// Not zeroed, because every byte is overwritten.
std::unique_ptr<unsigned char[]> AllocateBytes(size_t count) {
  return std::unique_ptr<unsigned char[]>(new unsigned char[count]);
}

}  // namespace

void ByteSink::Append(const char* bytes, size_t count) {
  while (count > 0) {
    if (chunks_.empty() || chunks_.back().used == chunks_.back().capacity) {
      const size_t capacity = std::clamp(size_, kSmallestChunk, kLargestChunk);
      chunks_.push_back({AllocateBytes(capacity), capacity, 0});
    }
    Chunk& chunk = chunks_.back();
    const size_t part = std::min(count, chunk.capacity - chunk.used);
    std::memcpy(chunk.bytes.get() + chunk.used, bytes, part);
    chunk.used += part;
    size_ += part;
    bytes += part;
    count -= part;
  }
}

void ByteSink::Finish(ScreenSnap::image_data* block) {
  if (size_ == 0) return;
  auto whole = AllocateBytes(block->size + size_);
  unsigned char* end = whole.get();
  if (block->size > 0) std::memcpy(end, block->buffer.get(), block->size);
  end += block->size;
  for (Chunk& chunk : chunks_) {
    std::memcpy(end, chunk.bytes.get(), chunk.used);
    end += chunk.used;
    chunk.bytes.reset();
  }
  block->buffer = std::move(whole);
  block->size += size_;
  chunks_.clear();
  size_ = 0;
}

}  // namespace kiv
