#include "hostfiles.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <string>
#include <string_view>

#include "utl.h"

namespace {

constexpr int READ_FLAGS = 0;
constexpr int FLAG_WRITE_ONLY = 0x1;
constexpr int FLAG_APPEND = 0x8;
constexpr int FLAG_CREATE = 0x100;
constexpr int FLAG_EXCLUSIVE = 0x400;
static_assert((FLAG_WRITE_ONLY | FLAG_APPEND | FLAG_CREATE | FLAG_EXCLUSIVE) == BM_HOST_CREATE_FLAGS);

std::atomic<bool> logIsKept{false};

// ---------------------------------------------------------------------------------------------------------
// Names

bool isNameCharacter(char c, bool first) {
  return c == '_' || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (!first && c >= '0' && c <= '9');
}

std::string homeDirectory() {
  if (const char* home = std::getenv("HOME")) return home;
  const passwd* user = getpwuid(getuid());
  return user != nullptr && user->pw_dir != nullptr ? user->pw_dir : "~";
}

// What stands for the variable at the front of `text`, which begins with $; *length is how much of it that replaces.
std::string expandVariable(std::string_view text, size_t* length) {
  *length = 1;
  while (*length < text.size() && isNameCharacter(text[*length], *length == 1)) ++*length;
  const std::string name(text.substr(1, *length - 1));
  const char* value = name.empty() ? nullptr : std::getenv(name.c_str());
  return value != nullptr ? value : std::string(text.substr(0, *length));
}

std::string expandName(std::string_view in) {
  std::string out;
  if (in == "~" || in.substr(0, 2) == "~/") {
    out = homeDirectory();
    in.remove_prefix(1);
  }
  while (!in.empty()) {
    size_t length = 1;
    out += in[0] == '$' ? expandVariable(in, &length) : std::string(1, in[0]);
    in.remove_prefix(length);
  }
  return out;
}

// Copies a name to `out`, or an empty one if it does not fit.
void putName(const std::string& name, char* out, unsigned long outSize) {
  if (outSize == 0) return;
  const size_t length = name.size() < outSize ? name.size() : 0;
  name.copy(out, length);
  out[length] = '\0';
}

// ---------------------------------------------------------------------------------------------------------
// Descriptors

// Whether the file exists; what is known about it goes to *info.
bool lookUp(const char* name, struct stat* info, HostErrSType* err) {
  const bool there = stat(name, info) == 0;
  if (err != nullptr) err->code = there ? 0 : errno;
  return there;
}

int fail(int code, int* err) {
  if (err != nullptr) *err = code;
  return 0;
}

// Calls `move(at, left)` until `bytes` bytes are moved. `endCode` is the failure of a call that moves none.
template <class Byte, class Move>
int moveAll(Byte* at, long bytes, int endCode, int* err, Move move) {
  if (bytes < 0) return fail(EINVAL, err);
  while (bytes > 0) {
    const ssize_t moved = move(at, static_cast<size_t>(bytes));
    if (moved < 0 && errno == EINTR) continue;
    if (moved < 0) return fail(errno, err);
    if (moved == 0) return fail(endCode, err);
    at += moved;
    bytes -= moved;
  }
  return 1;
}

}  // namespace

void HostExpandFileName(const char* in, char* out, unsigned long outSize, int) {
  putName(expandName(in), out, outSize);
}

int HostFileExist(const char* name, HostErrSType* err) {
  struct stat info;
  return lookUp(name, &info, err) ? 1 : 0;
}

int HostFileExistSize(const char* name, long* size, int* third, HostErrSType* err) {
  struct stat info;
  if (third != nullptr) *third = 0;
  if (!lookUp(name, &info, err)) return 0;
  *size = info.st_size;
  return 1;
}

int HostOpen(const char* name, int flags, int mode) {
  int systemFlags;
  if (flags == READ_FLAGS) {
    systemFlags = O_RDONLY | O_NONBLOCK;
  } else if ((flags & ~BM_HOST_CREATE_FLAGS) == 0 && (flags & FLAG_WRITE_ONLY) != 0) {
    systemFlags = O_WRONLY;
    if ((flags & FLAG_APPEND) != 0) systemFlags |= O_APPEND;
    if ((flags & FLAG_CREATE) != 0) systemFlags |= O_CREAT;
    if ((flags & FLAG_EXCLUSIVE) != 0) systemFlags |= O_EXCL;
  } else {
    errno = EINVAL;
    return -1;
  }
  int fd;
  do {
    fd = open(name, systemFlags | O_CLOEXEC, static_cast<mode_t>(mode));
  } while (fd == -1 && errno == EINTR);
  return fd;
}

int HostReadFile(int fd, char* buf, long bytes, int* err) {
  return moveAll(buf, bytes, ENODATA, err, [fd](char* at, size_t left) { return read(fd, at, left); });
}

int HostWriteFile(int fd, char* buf, long bytes, int* err) {
  return moveAll(buf, bytes, ENOSPC, err, [fd](const char* at, size_t left) { return write(fd, at, left); });
}

void HostTempFileSpec(char* out, unsigned long outSize) {
  static std::atomic<unsigned> number{0};
  const char* directory = std::getenv("TMPDIR");
  const auto now = std::chrono::system_clock::now().time_since_epoch().count();
  putName(std::string(directory != nullptr && *directory != '\0' ? directory : "/tmp") + "/bitmap-" +
              std::to_string(getpid()) + "-" + std::to_string(number++) + "-" + std::to_string(now),
          out, outSize);
}

void UtlRemoveLogOnExit(int remove) { logIsKept = remove == 0; }

bool HostLogIsKept() { return logIsKept; }
