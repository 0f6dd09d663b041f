#include "competitors.h"

std::vector<Competitor> allCompetitors(const std::string& directory) {
  std::vector<Competitor> all{bitmapCompetitor()};
#ifdef BENCH_WITH_ROARING
  all.push_back(roaringCompetitor());
#endif
#ifdef BENCH_WITH_JUDY
  all.push_back(judyCompetitor());
#endif
  all.push_back(stdSetCompetitor());
  all.push_back(sortedVectorCompetitor());
  const auto add = [&all](const std::vector<Competitor>& some) { all.insert(all.end(), some.begin(), some.end()); };
  add({storeCompetitor(directory)});
  add(lmdbCompetitors(directory));
#ifdef BENCH_WITH_ROCKSDB
  add(rocksDbCompetitors(directory));
#endif
#ifdef BENCH_WITH_SQLITE
  add(sqliteCompetitors(directory));
#endif
  return all;
}

std::vector<std::string> missingCompetitors() {
  std::vector<std::string> missing;
#ifndef BENCH_WITH_ROARING
  missing.emplace_back("CRoaring");
#endif
#ifndef BENCH_WITH_JUDY
  missing.emplace_back("Judy1");
#endif
#ifndef BENCH_WITH_ROCKSDB
  missing.emplace_back("RocksDB");
#endif
#ifndef BENCH_WITH_SQLITE
  missing.emplace_back("SQLite");
#endif
  return missing;
}
