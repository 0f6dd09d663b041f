#include "tempfile.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>

#include "exitcode.h"

namespace bmtree::tools {

TempFile::TempFile(std::string pattern) : path_(std::move(pattern)), file_(::mkostemp(path_.data(), O_CLOEXEC)) {
  if (file_.get() < 0) throwSystemFailure(errno, "making the temporary file " + path_);
}

TempFile::~TempFile() { ::unlink(path_.c_str()); }

}  // namespace bmtree::tools
