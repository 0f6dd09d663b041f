// The page store in one file, over LMDB.
//
// One LMDB database: the key of a page is its id as eight bytes, high byte first, its value the page; under the
// key 0 stands the catalogue, its version in the first eight bytes. Snapshots are LMDB read transactions and view
// pages in the memory map. A writer holds a lock on the file (a BSD lock, which goes with the process); the LMDB
// write transaction lives only while pages are put, and long runs of pages go in several of them, so that a commit
// of any size takes bounded memory.
#pragma once

#include <filesystem>
#include <memory>

#include "pagestore.h"
#include "store.h"

namespace bmtree {

// Opens the file as options.mode says. Throws as Store::open does. An LMDB file without a catalogue is accepted
// only if it is empty and the mode is `create`.
std::unique_ptr<PageStore> openLmdbPageStore(const std::filesystem::path& path, const StoreOptions& options);

}  // namespace bmtree
