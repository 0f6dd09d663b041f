#include "file/files.h"

#include <dirent.h>

int openDescriptors() {
  int count = 0;
  DIR* directory = opendir("/proc/self/fd");
  if (directory == nullptr) return -1;
  while (readdir(directory) != nullptr) ++count;
  closedir(directory);
  return count;
}
