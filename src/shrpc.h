// Operations of the surrounding store's shared page cache that the module calls. The host defines them.
#pragma once

#include "reposdisk.h"

// State of the shared page cache inside a PageCacheSType. The module hands its address on and never looks in.
struct ShrPcStateSType {
  void* hostState = nullptr;  // free for the host
};

// Marks a page changed. Called after every change to a page of a tree with treeKind above 0, never for a heap
// page; `mode` is always 3.
void ShrSetDirtyNoCheck(ShrPcStateSType* state, RepPageHdrSType* page, unsigned char mode);

// Gives up the page that the shared cache holds locked for this caller, if any.
void ShrPcClearLockedPage(ShrPcStateSType* state);
