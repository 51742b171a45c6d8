#ifndef SRC_CPP_SCREEN_SNAP_H_
#define SRC_CPP_SCREEN_SNAP_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

namespace kiv {

// An unknown window title or process.
constexpr char kUndefined[] = "Undefined";

// One snapshot: the encoded picture, its thumbnail, and the active window's title and process. Fill
// a local one and publish it to the agent's record in one step, because any JavaScript that runs in
// between may read the record.
struct ScreenSnap {
  // A block of exactly `size` bytes, allocated with new[]. Null when empty.
  struct image_data {
    std::unique_ptr<unsigned char[]> buffer;
    size_t size = 0;

    // Frees a block that a JavaScript buffer owns. `data` may be null.
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

// Moves the picture (size, blocks and a file name, if set) into the record and keeps the record's
// title and process. Width and height 0 mean that there is no picture.
inline void PublishPicture(ScreenSnap* record, ScreenSnap picture) {
  record->width = picture.width;
  record->height = picture.height;
  if (!picture.filename.empty()) record->filename = std::move(picture.filename);
  record->image = std::move(picture.image);
  record->thumbnail = std::move(picture.thumbnail);
}

// Moves the whole snapshot, title and process included, into the record.
inline void PublishSnap(ScreenSnap* record, ScreenSnap snap) {
  record->activeWindowTitle = std::move(snap.activeWindowTitle);
  record->activeProcessName = std::move(snap.activeProcessName);
  PublishPicture(record, std::move(snap));
}

// Takes a published snapshot out of the record. The record keeps its texts and size, but no bytes.
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
