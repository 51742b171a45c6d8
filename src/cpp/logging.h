#ifndef SRC_CPP_LOGGING_H_
#define SRC_CPP_LOGGING_H_

#include <memory>
#include <sstream>
#include <string>

namespace Nan {
class Callback;
}

namespace kiv {

// One log message. The destructor emits the text that was streamed into it: to the JavaScript
// logger as (level, text), or to standard error as "[level] text" when it cannot be called or its
// calls are nested 400 deep.
// Emitting may enter JavaScript. Create a message on the main thread, for one statement only:
//
//   LogMessage(LogMessage::warn).stream() << kLoggingRequestId_X << ":" << value;
class LogMessage {
 public:
  static const std::string trace;
  static const std::string debug;
  static const std::string info;
  static const std::string warn;
  static const std::string error;

  // Installs the logger. A null pointer switches back to standard error.
  static void Setup(std::unique_ptr<Nan::Callback> logger);

  // `level` must be one of the five strings above.
  explicit LogMessage(const std::string& level);
  ~LogMessage();
  LogMessage(const LogMessage&) = delete;
  LogMessage& operator=(const LogMessage&) = delete;

  std::ostream& stream() { return stream_; }

 private:
  static std::unique_ptr<Nan::Callback> logger_;

  const std::string& level_;
  std::ostringstream stream_;
};

}  // namespace kiv

#endif  // SRC_CPP_LOGGING_H_
