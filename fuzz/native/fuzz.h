#ifndef FUZZ_NATIVE_FUZZ_H_
#define FUZZ_NATIVE_FUZZ_H_

#include <cstddef>
#include <cstdint>

// What the parts of the fuzzer's add-on know of each other. A target handles one input.
namespace fuzz {

using Target = void (*)(const uint8_t* data, size_t size);

void Picture(const uint8_t* data, size_t size);
void CommandLine(const uint8_t* data, size_t size);
void Properties(const uint8_t* data, size_t size);
void Replies(const uint8_t* data, size_t size);
// Lock signals as another program sends them; returns when the module has had them.
void Signals(const uint8_t* data, size_t size);

// The process whose command line `CommandLine` writes.
void SetVictim(int pid);
// How the host's functions behave from now on.
void PlanHostFunctions(const uint8_t* data, size_t size);

// Ends the process, so that the input is kept, when `held` is false.
void Check(bool held, const char* what);
// Gives the loops of GLib and libuv their turns; events only where no loop is running already.
void Settle();

}  // namespace fuzz

#endif  // FUZZ_NATIVE_FUZZ_H_
