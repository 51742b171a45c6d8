#ifndef SRC_CPP_SCREEN_SNAP_H_
#define SRC_CPP_SCREEN_SNAP_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

namespace kiv {

// A window's title or process that is not known.
constexpr char kUndefined[] = "Undefined";

// One snapshot: the encoded picture, its thumbnail and what was active when it was taken.
// The agent owns the record that JavaScript's results are made from. It is no scratch space: a
// picture is encoded into a snapshot of the caller's and published in one step.
struct ScreenSnap {
  // A block of exactly `size` bytes from one array-new; null when empty.
  struct image_data {
    std::unique_ptr<unsigned char[]> buffer;
    size_t size = 0;

    // Frees a block that a JavaScript buffer has taken over; null is allowed.
    static void free_callback(char* data, void* /*hint*/) {
      delete[] reinterpret_cast<unsigned char*>(data);
    }
    void Clear() {
      buffer.reset();
      size = 0;
    }
  };

  std::string filename;           // "screen.jpg" or "screen.png"
  std::string activeWindowTitle;  // bytes as the window gave them, or "Undefined"
  std::string activeProcessName;  // command line with its NUL separators, or "Undefined"
  uint32_t width = 0;             // pixels of the encoded picture; 0 when there is none
  uint32_t height = 0;
  image_data image;
  image_data thumbnail;
};

// Moves a picture (size, blocks and, where one was set, the file's name) into the record; who was
// active stays. A picture of width and height 0 says that there is none.
inline void PublishPicture(ScreenSnap* record, ScreenSnap picture) {
  record->width = picture.width;
  record->height = picture.height;
  if (!picture.filename.empty()) record->filename = std::move(picture.filename);
  record->image = std::move(picture.image);
  record->thumbnail = std::move(picture.thumbnail);
}

}  // namespace kiv

#endif  // SRC_CPP_SCREEN_SNAP_H_
