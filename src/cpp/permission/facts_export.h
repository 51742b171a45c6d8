#ifndef SRC_CPP_PERMISSION_FACTS_EXPORT_H_
#define SRC_CPP_PERMISSION_FACTS_EXPORT_H_

#include <nan.h>

namespace kiv {

// Exports the functions of desktop_facts.h for `kiv_native doctor`, in an object that is not part
// of the public interface.
v8::Local<v8::Object> FactsExport();

}  // namespace kiv

#endif  // SRC_CPP_PERMISSION_FACTS_EXPORT_H_
