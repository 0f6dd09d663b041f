// The gate to a page that is about to be written.
//
// In a careful tree a page may be changed in place only if its stamp is the current one. A write to any other
// page goes to a copy; the copy's id replaces the old one in the parent, and that change obeys the same rule, up
// to the root. Below a page of the current stamp there may be older pages, never above one.
#pragma once

#include "bitmap.h"

// A writable page with the contents of `page`, a page of the careful tree of `root`: the page itself if its stamp is
// current, otherwise a copy. The old id enters obsoleteCarefulBm. Null when no page is to be had; then nothing has
// changed. The parent is not touched.
RepPageHdrSType* shadowCarefulBmPage(PageCacheSType* pc, RepPageHdrSType* page, RepTreeRootSType* root);

// The page at path->levels[level], writable; `path`, the pages above and `root` name it. Null when no page is to be
// had for a copy, or when a leaf reference of 0 names none: then path, tree and both id sets are as they were.
RepPageHdrSType* locateForWrite(PageCacheSType* pc, RepTreeRootSType* root, int level, BmPathSType* path);
