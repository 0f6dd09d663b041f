// A file that vanishes with its owner: bitmap-file operations work on named files, also when the bytes come from a
// pipe or go to one.
#pragma once

#include <filesystem>

#include "filedescriptor.h"

namespace bmtree::tools {

class TempFile {
 public:
  // Makes an empty file where temporary files belong.
  TempFile() : TempFile(std::filesystem::temp_directory_path() / "bmtree-XXXXXX") {}
  TempFile(const TempFile&) = delete;
  TempFile& operator=(const TempFile&) = delete;
  ~TempFile();

  const std::string& path() const { return path_; }
  const FileDescriptor& file() const { return file_; }

 private:
  explicit TempFile(std::string pattern);

  std::string path_;
  FileDescriptor file_;
};

}  // namespace bmtree::tools
