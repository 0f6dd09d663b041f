// One round trip of the file code.
#pragma once

#include "bitmap.h"

// Writes a heap tree of `numBits` random bits below 2^31 to a temporary file, reads it back and requires the same
// set. Returns 1; or 0 after a message on standard output when writing or reading failed, and then leaves the file.
int doBmTestBitmapToFileCode(PageCacheSType* pc, int numBits);
