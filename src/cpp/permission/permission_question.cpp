#include "permission_question.h"

#include <memory>
#include <utility>

#include "../linux/session_bus.h"

namespace kiv {

namespace {

// The portal waits 25 seconds for the person; 1.15 and 1.16 do not tell when they give up.
constexpr uint64_t kLimitMilliseconds = 40000;

}  // namespace

// The pool's work cannot be called back: it may outlive the question.
struct PermissionQuestion::Lookup {
  uv_work_t work;
  PermissionQuestion* question;  // null when that has gone
  Next next;
  SessionFacts session;
  PermissionState state;
};

PermissionQuestion::PermissionQuestion(uv_loop_t* loop, Done done)
    : loop_(loop), done_(std::move(done)) {
  LookUp(&PermissionQuestion::AskUnlessSettled);
}

PermissionQuestion::~PermissionQuestion() {
  if (lookup_) lookup_->question = nullptr;
}

void PermissionQuestion::LookUp(Next next) {
  lookup_ = new Lookup{{}, this, next, {}, {}};
  lookup_->work.data = lookup_;
  const auto run = [](uv_work_t* work) {
    auto* lookup = static_cast<Lookup*>(work->data);
    PortalMemory nothing_yet;
    lookup->state = ReadPermissionState(lookup->session, &nothing_yet);
  };
  const auto ended = [](uv_work_t* work, int) {
    const std::unique_ptr<Lookup> lookup(static_cast<Lookup*>(work->data));
    PermissionQuestion* question = lookup->question;
    if (!question) return;
    question->lookup_ = nullptr;
    (question->*lookup->next)(lookup->state);
  };
  uv_queue_work(loop_, &lookup_->work, run, ended);
}

void PermissionQuestion::AskUnlessSettled(const PermissionState& state) {
  if (state.portal.empty()) return Finish(state);
  GErrorPtr error;
  const auto bus = ConnectSessionBus(&error);
  if (!bus) return Finish({"unavailable", {}});
  limit_ = MakeUvHandle(uv_timer_init, loop_, this);
  uv_timer_start(
      limit_.get(),
      [](uv_timer_t* timer) { static_cast<PermissionQuestion*>(timer->data)->LookAgain(); },
      kLimitMilliseconds, 0);
  request_.emplace(bus.get(), state.portal,
                   [this](const PortalAnswer& answer) { OnAnswer(answer); });
}

void PermissionQuestion::OnAnswer(const PortalAnswer& answer) {
  DeletePicture(answer);
  LookAgain();
}

void PermissionQuestion::LookAgain() {
  request_.reset();
  limit_.reset();
  LookUp(&PermissionQuestion::Finish);
}

void PermissionQuestion::Finish(const PermissionState& state) {
  const Done done = std::move(done_);
  done(state.text);
}

}  // namespace kiv
