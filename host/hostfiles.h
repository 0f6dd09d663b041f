// Files of the bitmap module on the actual file system: what a real program gets for the file imports of hostlayer.h.
//
//   names    HostExpandFileName puts the home directory in place of a leading ~ (alone or before a slash) and the
//            value of the environment variable NAME in place of each $NAME. A variable that is not set leaves
//            $NAME as it stands. A name that does not fit comes out empty, never cut short: it would name another
//            file.
//   opening  Only the flags of BM_HOST_CREATE_FLAGS are known; others give EINVAL. Reading never waits for a writer
//            of a pipe.
//   moving   Short reads and writes go on, interrupted ones start again. A file that ends too early fails with
//            ENODATA.
#pragma once

#include "hostlayer.h"

// Where the host's operations that take one leave the system's error code, 0 if there is none.
struct HostErrSType {
  int code = 0;
};

// Whether the module has asked, after a failed transfer, that the process's log be kept at exit.
bool HostLogIsKept();
