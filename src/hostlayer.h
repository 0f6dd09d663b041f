// Operations of the surrounding process's host layer: files, words and the debugger. The host defines all but
// the word operations, which are inline so that hot loops keep them in registers.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

struct HostErrSType;  // the host's; the module always passes null

// Reports a failed guarantee. Control may come back; the result is not used.
int HostCallDebuggerMsg_fl(const char* text, const char* file, int line);

// Writes the expanded form of the file name `in` to `out`, terminated, within `outSize` bytes. `flag` is 0.
void HostExpandFileName(const char* in, char* out, unsigned long outSize, int flag);

// Nonzero when the file exists. `err` is null.
int HostFileExist(const char* name, HostErrSType* err);

// Nonzero when the file exists; then *size is its size in bytes. `third` and `err` are null.
int HostFileExistSize(const char* name, long* size, int* third, HostErrSType* err);

// Opens a file: a descriptor, or -1 with errno set. `flags` 0 reads; BM_HOST_CREATE_FLAGS makes a new file.
int HostOpen(const char* name, int flags, int mode);
constexpr int BM_HOST_CREATE_FLAGS = 0x509;  // write-only 0x1, append 0x8, create 0x100, exclusive 0x400
constexpr int BM_HOST_OWNER_MODE = 0x180;    // owner read and write

// Nonzero when all `bytes` were moved; otherwise 0, with the failure code in *err unless `err` is null.
int HostReadFile(int fd, char* buf, long bytes, int* err);
int HostWriteFile(int fd, char* buf, long bytes, int* err);

// Writes a name for a temporary file to `out`, terminated, within `outSize` bytes.
void HostTempFileSpec(char* out, unsigned long outSize);

// ---------------------------------------------------------------------------------------------------------
// Word operations

// Index of the lowest set bit of `word`, which is not 0.
inline int HostAsmFFS8(uint64_t word) { return std::countr_zero(word); }

// Copies `words` 64-bit words; source and target do not overlap.
inline void HostAsmMemcpySmallWords(uint64_t* target, const uint64_t* source, unsigned long words) {
  if (words <= 8) {
    for (unsigned long i = 0; i < words; ++i) target[i] = source[i];
  } else {
    std::memcpy(target, source, words * sizeof *target);
  }
}

// The value with its bytes reversed.
inline uint32_t HostAsmSwapInt(uint32_t value) { return __builtin_bswap32(value); }
inline uint64_t HostAsmSwapUInt64(uint64_t value) { return __builtin_bswap64(value); }
