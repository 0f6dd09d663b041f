// A writing process is killed at random moments; what it had committed must be there, and nothing half done.
#include <fcntl.h>

#include <chrono>
#include <cstring>
#include <fstream>
#include <iostream>
#include <thread>

#include "childprocess.h"
#include "storefixture.h"

namespace bmtree::test {
namespace {

constexpr uint64_t stagedBytes = uint64_t{4} * 16384;  // so that most commits take several steps
constexpr uint64_t largeEvery = 4;
constexpr uint64_t largeWidth = uint64_t{300} * 130752;

class CrashTest : public StoreTest {
 protected:
  // Appends one line, with one write, to the journal of finished commits.
  static void journal(int fd, uint64_t commit) {
    const std::string line = std::to_string(commit) + "\n";
    if (::write(fd, line.data(), line.size()) != static_cast<ssize_t>(line.size())) std::abort();
  }

  // The last commit that the journal has; 0 if none.
  uint64_t lastJournalled() const {
    std::ifstream file(path("journal"));
    uint64_t last = 0;
    for (uint64_t commit = 0; file >> commit;) last = commit;
    return last;
  }

  // Begins afresh now and then, so that the trees stay small enough to be compared often.
  static void clearTrees(Writer& writer, Model& model) {
    for (auto& [name, numbers] : model) {
      writer.tree(name).clearAll();
      numbers.clear();
    }
  }

  // The changes of the commit of that number, which depend on the seed and the number alone.
  static void change(Writer& writer, Model& model, uint64_t seed, uint64_t commit) {
    RandomChanges changes(seed + commit * 1000003);
    if (commit % 8 == 0) clearTrees(writer, model);
    for (uint64_t steps = 1 + changes.below(4); steps > 0; --steps) changes.step(writer, model);
    writer.treeOrNew("last commit").set(commit);
    model["last commit"].insert(commit);
    if (commit % largeEvery == 0) {  // one that takes a while
      Tree large = writer.treeOrNew("large");
      large.clearAll();
      large.setRange(commit * 1000, commit * 1000 + largeWidth);
    }
  }

  // Commits, and tells so, until it is killed. The model is what the store holds when it begins.
  int commitForever(uint64_t seed, uint64_t commit, Model model, const Pipe& told) {
    const int fd = ::open(path("journal").c_str(), O_WRONLY | O_APPEND | O_CREAT, 0644);
    Store store = Store::open(path(), {.syncCommits = false, .stagedBytes = stagedBytes});
    for (;;) {
      ++commit;
      Writer writer = store.beginWrite();
      change(writer, model, seed, commit);
      writer.commit();
      journal(fd, commit);
      told.send();
    }
  }

  // The model after the commits behind `from` up to `to`, made by way of a scratch store.
  void advance(Model& model, uint64_t seed, uint64_t from, uint64_t to) {
    Store scratch = Store::open(path("scratch"), {.mode = OpenMode::create, .syncCommits = false});
    Writer writer = scratch.beginWrite();
    for (const auto& [name, numbers] : model) writer.create(name).set(listOf(numbers));
    for (uint64_t commit = from + 1; commit <= to; ++commit) change(writer, model, seed, commit);
  }
};

TEST_F(CrashTest, WhatWasCommittedSurvivesKillsAtAnyMoment) {
  const uint64_t seed = testSeed();
  std::mt19937_64 random(seed);
  Model model;
  uint64_t commits = 0;
  int cutOff = 0;  // kills between two steps of a commit
  { make(); }
  constexpr int kills = sanitized ? 50 : 200;
  for (int kill = 0; kill < kills && !HasFailure(); ++kill) {
    const Pipe told;
    const ChildProcess child([&] { return commitForever(seed, commits, model, told); });
    for (uint64_t wanted = random() % 4; wanted > 0; --wanted) told.wait();
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 12000));
    child.kill();
    EXPECT_EQ(child.wait(), -1);
    const uint64_t journalled = std::max(lastJournalled(), commits);
    const Store store = reopen();
    const uint64_t present = store.info().stamp - 1;
    ASSERT_GE(present, journalled);
    ASSERT_LE(present, journalled + 1);
    advance(model, seed, commits, present);
    commits = present;
    const VerifyReport report = store.verify();
    for (const Finding& finding : report.findings) ADD_FAILURE() << finding.tree << ": " << finding.message;
    EXPECT_TRUE(report.sound());
    if (report.uncommittedPages > 0) ++cutOff;
    Reader reader = store.beginRead();
    if (const uint64_t largeFrom = commits / largeEvery * largeEvery; largeFrom > 0) {
      EXPECT_EQ(reader.tree("large").first(), largeFrom * 1000);
      EXPECT_EQ(reader.tree("large").count(), largeWidth + 1);
    }
    for (const auto& [name, numbers] : model) {
      EXPECT_TRUE(numbersOf(reader.tree(name)) == listOf(numbers)) << name << " after " << commits << " commits";
    }
  }
  std::cout << commits << " commits, " << cutOff << " more cut off between two steps" << std::endl;
}

}  // namespace
}  // namespace bmtree::test
