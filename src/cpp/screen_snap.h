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

// One snapshot: the encoded picture, its thumbnail and what was active when it was taken. A value:
// whoever makes one fills a local one and publishes it to the agent's record in one step, since
// everybody else may read the record whenever JavaScript runs.
struct ScreenSnap {
  // A block of exactly `size` bytes from one array-new; null when empty.
  struct image_data {
    std::unique_ptr<unsigned char[]> buffer;
    size_t size = 0;

    // Frees a block that a JavaScript buffer has taken over; null is allowed.
    static void free_callback(char* data, void* /*hint*/) {
      delete[] reinterpret_cast<unsigned char*>(data);
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

// Moves a picture (size, blocks and, where one was set, the file's name) into the record; what was
// active stays. A picture of width and height 0 says that there is none.
inline void PublishPicture(ScreenSnap* record, ScreenSnap picture) {
  record->width = picture.width;
  record->height = picture.height;
  if (!picture.filename.empty()) record->filename = std::move(picture.filename);
  record->image = std::move(picture.image);
  record->thumbnail = std::move(picture.thumbnail);
}

// The same, what was active included.
inline void PublishSnap(ScreenSnap* record, ScreenSnap snap) {
  record->activeWindowTitle = std::move(snap.activeWindowTitle);
  record->activeProcessName = std::move(snap.activeProcessName);
  PublishPicture(record, std::move(snap));
}

// Takes a published snapshot: the record keeps texts and size, and no bytes.
inline ScreenSnap TakeSnap(ScreenSnap* record) {
  return {record->filename,
          record->activeWindowTitle,
          record->activeProcessName,
          record->width,
          record->height,
          std::exchange(record->image, {}),
          std::exchange(record->thumbnail, {})};
}

}  // namespace kiv

#endif  // SRC_CPP_SCREEN_SNAP_H_
