// What the processor offers beyond the plain instruction set, asked at run time. Every routine with wide vector code
// has a plain twin that gives the same result.
#pragma once

#if defined(__x86_64__)
#define BM_WIDE_VECTORS 1
#else
#define BM_WIDE_VECTORS 0
#endif

#if BM_WIDE_VECTORS
// 256-bit integer vectors.
inline bool processorHasAvx2() { return __builtin_cpu_supports("avx2") != 0; }

// 512-bit vectors with masks.
inline bool processorHasAvx512() { return __builtin_cpu_supports("avx512f") != 0; }

// The same, with population counts of words.
inline bool processorHasAvx512Counts() {
  return processorHasAvx512() && __builtin_cpu_supports("avx512vpopcntdq") != 0;
}

// 512-bit vectors, with permutation of bytes and their compression by a mask.
inline bool processorHasAvx512Bytes() {
  return processorHasAvx512() && __builtin_cpu_supports("avx512bw") != 0 &&
         __builtin_cpu_supports("avx512vbmi") != 0 && __builtin_cpu_supports("avx512vbmi2") != 0;
}
#endif
