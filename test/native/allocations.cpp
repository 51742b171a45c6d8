// Stands in front of the C library's allocator and refuses one allocation on demand. For
// LD_PRELOAD.

#include <dlfcn.h>
#include <link.h>
#include <malloc.h>
#include <ucontext.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <initializer_list>

#define KIV_EXPORT extern "C" __attribute__((visibility("default")))

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
}

namespace {

// Whose allocations may fail.
enum Victims : int {
  kAll = 0,
  // Not GLib's and the runtime's, which end the process, nor libxcb's, which may wait for the rest
  // of a reply that it had no memory for.
  kLibraries = 1,
  // Nor libX11's: it ends the process for any request that it cannot remember.
  kNotXlib = 2,
};

struct Range {
  const char* begin;
  const char* end;
  Victims spared_from;
};

constexpr int kMaxSpared = 32;
Range spared[kMaxSpared];
int spared_count = 0;

thread_local long left = 0;
thread_local bool failed = false;
thread_local Victims victims = kAll;

// The least of the victims that this library is none of; kAll when it always may fail.
Victims SparedFrom(const char* name) {
  // The program itself has no name.
  if (!*name) return kLibraries;
  for (const char* library :
       {"libglib-2.0", "libgobject-2.0", "libgio-2.0", "libnode", "ld-linux", "libxcb"}) {
    if (std::strstr(name, library)) return kLibraries;
  }
  return std::strstr(name, "libX11") ? kNotXlib : kAll;
}

int Note(dl_phdr_info* info, size_t /*size*/, void* /*data*/) {
  const Victims from = SparedFrom(info->dlpi_name);
  if (from == kAll) return 0;
  for (int i = 0; i < info->dlpi_phnum && spared_count < kMaxSpared; ++i) {
    const auto& part = info->dlpi_phdr[i];
    if (part.p_type != PT_LOAD || !(part.p_flags & PF_X)) continue;
    const auto* begin = reinterpret_cast<const char*>(info->dlpi_addr + part.p_vaddr);
    spared[spared_count++] = {begin, begin + part.p_memsz, from};
  }
  return 0;
}

// Tells whose null it was that somebody used.
void NameTheLibrary(int signal, siginfo_t* /*info*/, void* context) {
  const auto* place = static_cast<ucontext_t*>(context);
#if defined(__x86_64__)
  const auto address = place->uc_mcontext.gregs[REG_RIP];
#else
  const auto address = place->uc_mcontext.pc;
#endif
  Dl_info library = {};
  dladdr(reinterpret_cast<void*>(address), &library);
  const char* name = library.dli_fname ? library.dli_fname : "nowhere";
  for (const char* text : {"crash in ", name, "\n"}) {
    if (write(STDERR_FILENO, text, std::strlen(text)) < 0) break;
  }
  raise(signal);
}

bool Refuses(const void* caller) {
  if (left <= 0) return false;
  for (int i = 0; i < spared_count; ++i) {
    const Range& range = spared[i];
    if (victims < range.spared_from) continue;
    if (caller >= range.begin && caller < range.end) return false;
  }
  if (--left > 0) return false;
  failed = true;
  errno = ENOMEM;
  return true;
}

}  // namespace

KIV_EXPORT void kiv_fail_allocation(long count, int whose) {
  if (spared_count == 0) {
    dl_iterate_phdr(Note, nullptr);
    struct sigaction action = {};
    action.sa_sigaction = NameTheLibrary;
    action.sa_flags = SA_SIGINFO | static_cast<int>(SA_RESETHAND);
    sigaction(SIGSEGV, &action, nullptr);
  }
  failed = false;
  victims = static_cast<Victims>(whose);
  left = count;
}

KIV_EXPORT bool kiv_allocation_failed() { return failed; }

KIV_EXPORT void* malloc(size_t size) {
  return Refuses(__builtin_return_address(0)) ? nullptr : __libc_malloc(size);
}

KIV_EXPORT void* calloc(size_t count, size_t size) {
  return Refuses(__builtin_return_address(0)) ? nullptr : __libc_calloc(count, size);
}

KIV_EXPORT void* realloc(void* block, size_t size) {
  return Refuses(__builtin_return_address(0)) ? nullptr : __libc_realloc(block, size);
}

KIV_EXPORT void* aligned_alloc(size_t alignment, size_t size) {
  return Refuses(__builtin_return_address(0)) ? nullptr : __libc_memalign(alignment, size);
}

KIV_EXPORT int posix_memalign(void** block, size_t alignment, size_t size) {
  if (Refuses(__builtin_return_address(0))) return ENOMEM;
  *block = __libc_memalign(alignment, size);
  return *block ? 0 : ENOMEM;
}
