#ifndef SRC_CPP_LINUX_PORTAL_REQUEST_H_
#define SRC_CPP_LINUX_PORTAL_REQUEST_H_

#include <cstdint>
#include <ctime>
#include <functional>
#include <memory>
#include <string>

#include "glib_ptr.h"

namespace kiv {

// The outcome of a request: the portal's answer, or `error`.
struct PortalAnswer {
  GErrorPtr error;
  uint32_t code = 0;  // 0: done; 1: cancelled by the person; 2: ended otherwise
  std::string uri;    // the picture's file; empty without one
  time_t asked = 0;   // when the request was made
};

// Deletes the picture of an answer that will not be read.
void DeletePicture(const PortalAnswer& answer);

// Asks the desktop portal for a picture of the whole desktop. The portal may show a question first;
// then it answers when the person has. The request uses the thread-default main context of its
// construction, and that thread must destroy it.
class PortalRequest {
 public:
  // Called once, from that context, unless the request is destroyed first. May destroy the request.
  using Done = std::function<void(PortalAnswer answer)>;

  // `owner` is the portal's unique name.
  PortalRequest(GDBusConnection* bus, std::string owner, Done done);
  // Waits for the answer to `other`, which may be destroyed meanwhile.
  PortalRequest(const PortalRequest& other, Done done);
  // Unsubscribes and cancels. One callback, which does nothing, is still pending in the context.
  ~PortalRequest();
  PortalRequest(const PortalRequest&) = delete;
  PortalRequest& operator=(const PortalRequest&) = delete;

  // Tells the portal that the request is abandoned. Does not wait for a reply.
  void Close();

 private:
  struct Call;
  struct EndSource {
    void operator()(GSource* source) const {
      g_source_destroy(source);
      g_source_unref(source);
    }
  };

  void WatchOwner();
  void WatchBus();
  void Follow(std::string path);
  void Start(const std::string& token);
  void TakeHandle(GObject* source, GAsyncResult* result);
  void TakeResponse(GVariant* parameters);
  void Fail(const char* reason);
  void Release();
  void End(PortalAnswer answer);

  GObjectPtr<GDBusConnection> bus_;
  std::string owner_;
  Done done_;  // empty after the end
  time_t asked_;
  std::string path_;  // of the request's object
  guint response_id_ = 0;
  guint owner_changed_id_ = 0;
  std::unique_ptr<GSource, EndSource> bus_watch_;
  GObjectPtr<GCancellable> cancellable_{g_cancellable_new()};
};

}  // namespace kiv

#endif  // SRC_CPP_LINUX_PORTAL_REQUEST_H_
