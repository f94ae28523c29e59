#pragma once
// What the fuzz targets share. Each target returns normally for any input and aborts on a
// broken promise, which libFuzzer and the random-input tests both report.
//
// MURMELA_FUZZ_ENTRY(Name, target, count) makes `target(data, size)` the entry point: libFuzzer's
// in a fuzzer (built with MURMELA_LIBFUZZER); elsewhere the test RandomInput.Name, which feeds it
// `count` mutations of the seeds in MURMELA_FUZZ_SEEDS.

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#ifdef MURMELA_LIBFUZZER
#define MURMELA_FUZZ_ENTRY(Name, target, count)                               \
    extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) { \
        target(data, size);                                                   \
        return 0;                                                             \
    }
#else
#include <gtest/gtest.h>

#include "support/random_inputs.h"
#define MURMELA_FUZZ_ENTRY(Name, target, count)                                   \
    TEST(RandomInput, Name) {                                                     \
        for (const std::string& input :                                           \
             murmela::testing::mutatedSeeds(MURMELA_FUZZ_SEEDS, count, 1)) {      \
            target(reinterpret_cast<const uint8_t*>(input.data()), input.size()); \
        }                                                                         \
    }
#endif

namespace murmela::fuzzing {

[[noreturn]] inline void broken(const char* promise) {
    std::fprintf(stderr, "broken promise: %s\n", promise);
    std::abort();
}

// An anonymous file holding `bytes`, open for reading and writing from its start; its path is
// /proc/self/fd/<descriptor>. The caller closes it.
inline int memoryFile(std::string_view bytes) {
    const int descriptor = ::memfd_create("fuzz", MFD_CLOEXEC);
    if (descriptor < 0 ||
        (!bytes.empty() &&
         ::write(descriptor, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) ||
        ::lseek(descriptor, 0, SEEK_SET) != 0) {
        broken("an anonymous file can be written");
    }
    return descriptor;
}

// Everything written to `descriptor`, from its start.
inline std::string contents(int descriptor) {
    std::string text;
    char buffer[65536];
    ssize_t count;
    while ((count = ::pread(descriptor, buffer, sizeof buffer, static_cast<off_t>(text.size()))) >
           0) {
        text.append(buffer, static_cast<size_t>(count));
    }
    return text;
}

}  // namespace murmela::fuzzing
