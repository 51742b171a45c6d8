#ifndef SRC_CPP_LINUX_IMAGE_ENCODER_H_
#define SRC_CPP_LINUX_IMAGE_ENCODER_H_

#include <gdk-pixbuf/gdk-pixbuf.h>

namespace kiv {

struct ScreenSnap;

// Appends the encoded `pixbuf` to snap.image and its 620 x 320 thumbnail to snap.thumbnail, and
// sets snap.filename. `scale` resamples to width x height first; otherwise both are ignored. A null
// pixbuf changes nothing. The caller keeps the pixbuf and sets the snapshot's size. Logs an
// encoder's error, which enters JavaScript, so nothing else may use `snap`. Bytes written before an
// error stay in the blocks.
void FetchPixbufImage(ScreenSnap& snap, GdkPixbuf* pixbuf, unsigned int width, unsigned int height,
                      bool jpeg, bool scale);

}  // namespace kiv

#endif  // SRC_CPP_LINUX_IMAGE_ENCODER_H_
