#include "late_pictures.h"

#include <memory>
#include <vector>

namespace kiv {

namespace {

constexpr guint kLimitSeconds = 30;

class LatePicture {
 public:
  explicit LatePicture(const PortalRequest& request);
  ~LatePicture() {
    if (limit_ != 0) g_source_remove(limit_);
  }
  LatePicture(const LatePicture&) = delete;
  LatePicture& operator=(const LatePicture&) = delete;

 private:
  void Remove();

  PortalRequest request_;
  guint limit_ = 0;
};

// Never destroyed, because GLib may be gone when static destructors run.
std::vector<std::unique_ptr<LatePicture>>& All() {
  static auto* const all = new std::vector<std::unique_ptr<LatePicture>>();
  return *all;
}

LatePicture::LatePicture(const PortalRequest& request)
    : request_(request, [this](const PortalAnswer& answer) {
        DeletePicture(answer);
        Remove();
      }) {
  const GSourceFunc give_up = [](gpointer data) -> gboolean {
    auto* late = static_cast<LatePicture*>(data);
    late->limit_ = 0;
    late->request_.Close();
    late->Remove();
    return G_SOURCE_REMOVE;
  };
  limit_ = g_timeout_add_seconds(kLimitSeconds, give_up, this);
}

void LatePicture::Remove() {
  std::erase_if(All(), [this](const auto& late) { return late.get() == this; });
}

}  // namespace

void DeletePictureWhenItComes(const PortalRequest& request) {
  All().push_back(std::make_unique<LatePicture>(request));
}

void ForgetLatePictures() { All().clear(); }

}  // namespace kiv
