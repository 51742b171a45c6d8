#ifndef SRC_CPP_LOGGING_H_
#define SRC_CPP_LOGGING_H_

#include <memory>
#include <sstream>
#include <string>

namespace Nan {
class Callback;
}

namespace kiv {

// One diagnostic. The text streamed into it is emitted when the object is destroyed: to the
// JavaScript logger as (level, text), or to standard error as "[level] text" while there is none
// and beneath 400 calls of the logger.
// Emitting may enter JavaScript, so a message lives on the main thread and for one statement:
//
//   LogMessage(LogMessage::warn).stream() << kLoggingRequestId_X << ":" << value;
class LogMessage {
 public:
  static const std::string trace;
  static const std::string debug;
  static const std::string info;
  static const std::string warn;
  static const std::string error;

  // Installs the logger; an empty pointer goes back to standard error.
  static void Setup(std::unique_ptr<Nan::Callback> logger);

  // `level` is one of the five above.
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
