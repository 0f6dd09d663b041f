// The competitors: one function per adapter file. Which libraries were found when this was built decides who takes
// part.
#pragma once

#include <vector>

#include "numberset.h"

// All that take part, those in memory first, this library first among its like. The durable ones keep their files
// below `directory`, which exists.
std::vector<Competitor> allCompetitors(const std::string& directory);

// Names of the libraries that were not found when this was built.
std::vector<std::string> missingCompetitors();

Competitor bitmapCompetitor();
Competitor roaringCompetitor();
Competitor judyCompetitor();
Competitor stdSetCompetitor();
Competitor sortedVectorCompetitor();

// A sorted vector that adds and takes out many numbers at once, for the answers that all others are compared with.
std::unique_ptr<NumberSet> makeReferenceSet();

Competitor storeCompetitor(const std::string& directory);
std::vector<Competitor> lmdbCompetitors(const std::string& directory);
std::vector<Competitor> rocksDbCompetitors(const std::string& directory);
std::vector<Competitor> sqliteCompetitors(const std::string& directory);
