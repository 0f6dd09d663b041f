// A context for heap trees on the host of real programs, with a directory for files.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdlib>
#include <string>

#include "bitmap.h"
#include "hostfiles.h"
#include "hostmemory.h"

class HostTest : public ::testing::Test {
 protected:
  HostTest() {
    char pattern[] = "/tmp/bitmap-host-XXXXXX";
    directory = mkdtemp(pattern);
    directory += "/";
    pc.owner = &owner;
    BmInitTreeRoots(&pc);
  }
  ~HostTest() override {
    EXPECT_TRUE(HostMemoryInUse().empty());
    EXPECT_EQ(stats.numHeapBmPages, 0);
    EXPECT_EQ(std::system(("rm -rf " + directory).c_str()), 0);
  }

  static std::string expanded(const std::string& name, unsigned long room = 1024) {
    std::string out(room + 16, '#');
    HostExpandFileName(name.c_str(), out.data(), room, 0);
    EXPECT_EQ(out.substr(room), std::string(16, '#')) << "overrun";
    return out.c_str();
  }

  std::string directory;
  OwnerStatsSType stats{};
  OwnerSType owner{&stats};
  PageCacheSType pc{};
};
