#ifndef SRC_CPP_EVENT_SCOPE_H_
#define SRC_CPP_EVENT_SCOPE_H_

namespace kiv {

class EntryScope;

// First object of every handler that an event loop calls and that may enter JavaScript. A loop may
// run beneath an exported function, in a modal dialog of the host's: what a callback of the event
// throws is an uncaught exception at once, not one of that function's.
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
