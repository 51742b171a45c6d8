#ifndef SRC_CPP_LINUX_COMPOSITOR_AREA_H_
#define SRC_CPP_LINUX_COMPOSITOR_AREA_H_

namespace kiv {

enum class CompositorArea { kWorkspace, kActiveScreen };

}  // namespace kiv

#endif  // SRC_CPP_LINUX_COMPOSITOR_AREA_H_
