// Work on a store as a whole, in the snapshot of a reader.
#pragma once

#include "session.h"

namespace bmtree {

// What Store::verify does.
VerifyReport verifyStore(Session& session, const Progress& progress);

// Writes all trees of `session` to `target`, an empty store of pages without a catalogue.
void compactInto(PageStore& target, Session& session, const Progress& progress);

}  // namespace bmtree
