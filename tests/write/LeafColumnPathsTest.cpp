#include "toolbox/vantro/io/parquet/core/write/LeafColumnPaths.hpp"

#include <gtest/gtest.h>

#include "tests/support/TestSupport.hpp"

namespace {

using namespace vantro::io::parquet::core::write;

using Offsets = std::vector<uint64_t>;
using Paths = std::vector<std::u16string>;

const Paths kThreePaths = {u"a.list.element", u"a.list.other", u"b"};

TEST(LeafColumnPaths, GroupsPathsByOffsets) {
  const auto paths = makeLeafColumnPaths({0, 2, 3}, kThreePaths);
  ASSERT_NE(paths, nullptr);
  EXPECT_EQ(paths->numVariables(), 2u);
  EXPECT_EQ(paths->offsets(), (Offsets{0, 2, 3}));
  EXPECT_EQ(paths->paths(), kThreePaths);
}

TEST(LeafColumnPaths, FirstOffsetNeedNotBeZero) {
  const auto paths = makeLeafColumnPaths({1, 3}, kThreePaths);
  EXPECT_EQ(paths->numVariables(), 1u);
}

TEST(LeafColumnPaths, SingleOffsetDescribesNoVariable) {
  EXPECT_EQ(makeLeafColumnPaths({3}, kThreePaths)->numVariables(), 0u);
}

struct InvalidCase {
  const char* name;
  Offsets offsets;
  Paths paths;
  const char* identifier;
};

class InvalidLeafColumnPaths : public ::testing::TestWithParam<InvalidCase> {};

TEST_P(InvalidLeafColumnPaths, ThrowsWithoutArguments) {
  const auto& c = GetParam();
  const auto arguments =
      vxtest::expectHostError([&] { makeLeafColumnPaths(c.offsets, c.paths); }, c.identifier);
  ASSERT_TRUE(arguments);
  EXPECT_TRUE(arguments->empty());
}

INSTANTIATE_TEST_SUITE_P(
    Checks, InvalidLeafColumnPaths,
    ::testing::Values(
        InvalidCase{"BothEmpty", {}, {}, "VANTRO:parquetio:write:LeafColumnPathsEmpty"},
        InvalidCase{"NoOffsets", {}, {u"a"}, "VANTRO:parquetio:write:LeafColumnPathsEmpty"},
        InvalidCase{"NoPaths", {0, 1}, {}, "VANTRO:parquetio:write:LeafColumnPathsEmpty"},
        InvalidCase{"EqualNeighbours",
                    {0, 2, 2},
                    {u"a", u"b"},
                    "VANTRO:parquetio:write:LeafColumnPathsOffsetsAcending"},
        // Order is checked before size, though the size is wrong too.
        InvalidCase{"Decreasing",
                    {0, 3, 2},
                    {u"a", u"b", u"c"},
                    "VANTRO:parquetio:write:LeafColumnPathsOffsetsAcending"},
        InvalidCase{"LastOffsetShort",
                    {0, 2},
                    {u"a", u"b", u"c"},
                    "VANTRO:parquetio:write:LeafColumnPathsSizeMismatch"},
        InvalidCase{"LastOffsetLong",
                    {0, 4},
                    {u"a", u"b", u"c"},
                    "VANTRO:parquetio:write:LeafColumnPathsSizeMismatch"}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
