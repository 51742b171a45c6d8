#ifndef SRC_CPP_REQUIREMENTS_H_
#define SRC_CPP_REQUIREMENTS_H_

// binding.gyp includes this before every source file.
#if __cplusplus <= 201703L
#error "kiv_native needs a compiler in C++20 mode"
#endif

#endif  // SRC_CPP_REQUIREMENTS_H_
