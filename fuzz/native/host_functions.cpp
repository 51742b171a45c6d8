// The host's four functions as a careless host would write them.

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "fuzz.h"

#define KIV_HOST_FUNCTION extern "C" __attribute__((visibility("default")))

namespace {

std::vector<uint8_t> plan;
std::unique_ptr<FuzzedDataProvider> steps;

// True when the function returns at all.
bool Behave() {
  if (!steps) return true;
  switch (steps->ConsumeIntegralInRange(0, 9)) {
    case 0:
      throw std::runtime_error("host");
    case 1:
      throw 1;
    case 2:
      return false;
    default:
      return true;
  }
}

void Answer(std::string& out) {
  Behave();
  if (!steps) {
    out = "text/";
    return;
  }
  if (steps->ConsumeBool()) out = steps->ConsumeRandomLengthString();
  if (steps->ConsumeIntegralInRange(0, 20) == 0) out.append(size_t{1} << 20, '\xff');
}

void Touch(const void* data, uint64_t size) {
  const auto* bytes = static_cast<const uint8_t*>(data);
  volatile uint8_t sum = 0;
  for (uint64_t i = 0; i < size; i += 64) sum = sum ^ bytes[i];
  if (size > 0) sum = sum ^ bytes[size - 1];
}

}  // namespace

namespace fuzz {

void PlanHostFunctions(const uint8_t* data, size_t size) {
  plan.assign(data, data + size);
  steps = std::make_unique<FuzzedDataProvider>(plan.data(), plan.size());
}

}  // namespace fuzz

KIV_HOST_FUNCTION void KivoUtilsCreateGUID(std::string& out) { Answer(out); }

KIV_HOST_FUNCTION void KivoUtilsNormalizeAndCreatePath(std::string& path) { Answer(path); }

KIV_HOST_FUNCTION bool KivoUtilsWriteFile(const std::string& /*name*/, const void* data,
                                          uint64_t size) {
  Touch(data, size);
  return Behave();
}

KIV_HOST_FUNCTION void KivoUtilsCreateSHA256Hash(std::string& out, const void* data,
                                                 uint64_t size) {
  Touch(data, size);
  Answer(out);
}
