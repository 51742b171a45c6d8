#include "logging.h"

#include <iostream>
#include <locale>
#include <utility>

#include "conversions.h"
#include "js_callback.h"

namespace kiv {

namespace {

// A logger that logs calls itself. V8 stops endless recursion in a JavaScript function, but not
// when the logger is one of our exported functions: that would overflow the stack.
constexpr int kMostNested = 400;
int nested = 0;

// Throws what V8 throws. Without an exception, a logger that logs twice would make 2^400 calls.
void EndRecursion() {
  if (EntryScope* const entry = EntryScope::Current()) {
    entry->Hold(Nan::RangeError("Maximum call stack size exceeded"));
  }
}

}  // namespace

const std::string LogMessage::trace("trace");
const std::string LogMessage::debug("debug");
const std::string LogMessage::info("info");
const std::string LogMessage::warn("warn");
const std::string LogMessage::error("error");

std::unique_ptr<Nan::Callback> LogMessage::logger_;

void LogMessage::Setup(std::unique_ptr<Nan::Callback> logger) { logger_ = std::move(logger); }

LogMessage::LogMessage(const std::string& level) : level_(level), stream_(std::ios_base::out) {
  // The host's global locale must not add separators to numbers.
  stream_.imbue(std::locale::classic());
}

LogMessage::~LogMessage() {
  const std::string text = stream_.str();
  if (logger_) {
    JsScope scope;
    if (scope.usable() && nested == kMostNested) {
      EndRecursion();
    } else if (scope.usable()) {
      v8::Local<v8::Value> argv[] = {ToJsString(level_), ToJsString(text)};
      ++nested;
      scope.Call(*logger_, 2, argv);
      --nested;
      return;
    }
  }
  std::cerr << "[" << level_ << "] " << text << "\n" << std::flush;
}

}  // namespace kiv
