#pragma once

// Arithmetic over blocks is compiled for several processors and chosen when the program starts. Thread
// sanitizer's runtime is not ready at that moment.
#if defined(__GNUC__) && !defined(__clang__) && defined(__x86_64__) && !defined(__SANITIZE_THREAD__)
#define VELBRX_VECTOR_CLONES __attribute__((target_clones("avx512f", "avx2", "default")))
#else
#define VELBRX_VECTOR_CLONES
#endif
