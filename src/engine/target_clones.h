#pragma once
// Marks a function whose loops are also built for AVX2, the build picked when the program loads.
// The thread sanitizer's runtime is not ready when load-time choices are made, so its builds
// keep the plain version only.

#if defined(__SANITIZE_THREAD__)
#define MURMELA_ALSO_FOR_AVX2
#else
#define MURMELA_ALSO_FOR_AVX2 __attribute__((target_clones("avx2", "default")))
#endif
