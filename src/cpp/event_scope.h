#ifndef SRC_CPP_EVENT_SCOPE_H_
#define SRC_CPP_EVENT_SCOPE_H_

namespace kiv {

class EntryScope;

// First object of every event handler that may enter JavaScript. The event loop may run inside an
// exported function (a modal dialog of the host). An exception of the handler's callback is then an
// uncaught exception at once and does not propagate through that function.
class EventScope {
 public:
  EventScope();
  ~EventScope();
  EventScope(const EventScope&) = delete;
  EventScope& operator=(const EventScope&) = delete;

 private:
  EntryScope* beneath_;
};

}  // namespace kiv

#endif  // SRC_CPP_EVENT_SCOPE_H_
