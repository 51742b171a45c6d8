#ifndef SRC_CPP_LINUX_PORTAL_REQUEST_H_
#define SRC_CPP_LINUX_PORTAL_REQUEST_H_

#include <cstdint>
#include <ctime>
#include <functional>
#include <memory>
#include <string>

#include "glib_ptr.h"

namespace kiv {

// How a request has ended: with the portal's answer, or with `error` when there is none.
struct PortalAnswer {
  GErrorPtr error;
  uint32_t code = 0;  // 0: done; 1: cancelled by the person; 2: ended otherwise
  std::string uri;    // of the picture's file; empty when the answer has none
  time_t asked = 0;   // when the request was made
};

// Deletes the picture of an answer that nobody reads.
void DeletePicture(const PortalAnswer& answer);

// Asks the desktop portal for a picture of the whole desktop. The portal may bring up a question
// first, and answers when the person has. The events of the request are those of the thread's
// default main context at its construction, whose thread must destroy it.
class PortalRequest {
 public:
  // Called once, from that context, unless the request is destroyed first; it may destroy it.
  using Done = std::function<void(PortalAnswer answer)>;

  // `owner` is the portal's unique name.
  PortalRequest(GDBusConnection* bus, std::string owner, Done done);
  // Waits for the answer to another one, which may be destroyed then.
  PortalRequest(const PortalRequest& other, Done done);
  // Ends the request here. Its last callback, which does nothing, is then ready in the context.
  ~PortalRequest();
  PortalRequest(const PortalRequest&) = delete;
  PortalRequest& operator=(const PortalRequest&) = delete;

  // Tells the portal that nobody waits any more; does not wait for it to hear that.
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
  Done done_;  // empty once it has ended
  time_t asked_;
  std::string path_;  // of the request's object
  guint response_id_ = 0;
  guint owner_changed_id_ = 0;
  std::unique_ptr<GSource, EndSource> bus_watch_;
  GObjectPtr<GCancellable> cancellable_{g_cancellable_new()};
};

}  // namespace kiv

#endif  // SRC_CPP_LINUX_PORTAL_REQUEST_H_
