#include "actions/chunk_text.h"

#include <gtest/gtest.h>

namespace tervano::test {
namespace {

std::string textOf(const std::string& bytes) {
  return chunkText(Data(bytes.begin(), bytes.end()));
}

TEST(ChunkTextTest, TextIsAnsweredAsItIs) {
  EXPECT_EQ(textOf(" caf\xC3\xA9\n"), " caf\xC3\xA9\n");
}

TEST(ChunkTextTest, AnEmptyChunkIsAnEmptyText) {
  EXPECT_EQ(textOf(""), "");
}

TEST(ChunkTextTest, WhatIsNoUtf8IsNil) {
  EXPECT_EQ(textOf("caf\xC3"), "(null)");
}

}  // namespace
}  // namespace tervano::test
