#include "permission_question.h"

#include <string>
#include <utility>

#include "../linux/session_bus.h"

namespace kiv {

namespace {

// Enough to open a connection and to read the state from services that hang.
constexpr uint64_t kLookupMilliseconds = 5000;
// The portal waits 25 seconds for the person. Versions 1.15 and 1.16 do not report a time-out.
constexpr uint64_t kQuestionMilliseconds = 40000;

}  // namespace

// The thread's input. The thread must not read the environment, which JavaScript may change
// meanwhile.
struct PermissionQuestion::Lookup {
  Next next;
  SessionFacts session;
  std::string address;
  GObjectPtr<GDBusConnection> bus;
  PermissionReading reading;

  void Run(GCancellable* cancellable) {
    GErrorPtr error;
    if (bus && g_dbus_connection_is_closed(bus.get())) bus.reset();
    if (!bus && !address.empty()) bus = OpenSessionBus(address, cancellable, &error);
    AbsenceMemory nothing_yet;
    reading = ReadPermissionState(session, bus.get(), &nothing_yet);
  }
};

PermissionQuestion::PermissionQuestion(uv_loop_t* loop, Done done)
    : done_(std::move(done)), limit_(MakeUvHandle(uv_timer_init, loop, this)) {
  LookUp(&PermissionQuestion::AskUnlessSettled);
}

PermissionQuestion::~PermissionQuestion() { g_cancellable_cancel(cancellable_.get()); }

void PermissionQuestion::LookUp(Next next) {
  const auto on_limit = [](uv_timer_t* timer) {
    static_cast<PermissionQuestion*>(timer->data)->Finish({});
  };
  uv_timer_start(limit_.get(), on_limit, kLookupMilliseconds, 0);
  const auto run = [](GTask* task, gpointer, gpointer data, GCancellable* cancellable) {
    static_cast<Lookup*>(data)->Run(cancellable);
    g_task_return_boolean(task, TRUE);
  };
  const auto ended = [](GObject*, GAsyncResult* result, gpointer self) {
    GTask* task = G_TASK(result);
    if (g_cancellable_is_cancelled(g_task_get_cancellable(task))) return;
    static_cast<PermissionQuestion*>(self)->TakeLookup(
        *static_cast<Lookup*>(g_task_get_task_data(task)));
  };
  GErrorPtr error;
  auto* lookup = new Lookup{next, {}, SessionBusAddress(&error), RetainGObject(bus_.get()), {}};
  cancellable_.reset(g_cancellable_new());
  const auto task = AdoptGObject(g_task_new(nullptr, cancellable_.get(), ended, this));
  g_task_set_task_data(task.get(), lookup,
                       [](gpointer data) { delete static_cast<Lookup*>(data); });
  g_task_run_in_thread(task.get(), run);
}

void PermissionQuestion::TakeLookup(const Lookup& lookup) {
  bus_ = RetainGObject(lookup.bus.get());
  (this->*lookup.next)(lookup.reading);
}

void PermissionQuestion::AskUnlessSettled(const PermissionReading& reading) {
  if (!reading.portal) return Finish(reading);
  const auto on_limit = [](uv_timer_t* timer) {
    static_cast<PermissionQuestion*>(timer->data)->LookAgain();
  };
  uv_timer_start(limit_.get(), on_limit, kQuestionMilliseconds, 0);
  request_.emplace(bus_.get(), *reading.portal, [this](const PortalAnswer& answer) {
    DeletePicture(answer);
    LookAgain();
  });
}

void PermissionQuestion::LookAgain() {
  request_.reset();
  LookUp(&PermissionQuestion::Finish);
}

void PermissionQuestion::Finish(const PermissionReading& reading) {
  const PermissionState state = reading.state;
  const Done done = std::move(done_);
  done(state);
}

}  // namespace kiv
