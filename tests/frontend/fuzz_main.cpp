// libFuzzer's entry points. MURMELA_FUZZ_TARGET chooses what the bytes become: "chunks" (the
// user's text) or "vocabulary" (a vocab.json).

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "fuzz_targets.h"

namespace {

bool fuzzingChunks = true;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    const char* target = std::getenv("MURMELA_FUZZ_TARGET");
    if (target == nullptr ||
        (std::strcmp(target, "chunks") != 0 && std::strcmp(target, "vocabulary") != 0)) {
        std::fprintf(stderr, "set MURMELA_FUZZ_TARGET to chunks or vocabulary\n");
        std::exit(2);
    }
    fuzzingChunks = std::strcmp(target, "chunks") == 0;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size) {
    if (fuzzingChunks) {
        murmela::fuzzing::chunks(MURMELA_TEST_VOICE_DIR, data, size);
    } else {
        murmela::fuzzing::vocabulary(data, size);
    }
    return 0;
}
