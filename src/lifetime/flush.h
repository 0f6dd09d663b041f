// Taking the pages of a tree out of this process's cache, below the operation on a root.
#pragma once

#include "bitmap.h"

// Takes the page `pageRef` of `level` in a tree of `kind` out of the private cache, after all pages below it. Nothing
// for reference 0.
void removeFromPrivateCache(PageCacheSType* pc, unsigned long pageRef, int level, int mode, BmTreeKindEType kind);
