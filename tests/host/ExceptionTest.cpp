#include <gtest/gtest.h>

#include <boost/exception/diagnostic_information.hpp>

#include "host/except/MessageCatalog.hpp"
#include "toolbox/vantro/io/parquet/core/common/Utils.hpp"

namespace except = foundation::core::except;

namespace {

// Counts the distinct holes {0}, {1}, ... of a catalogue text.
size_t holes(std::string_view text) {
  size_t count = 0;
  for (char digit = '0'; digit <= '9'; ++digit) {
    if (text.find(std::string("{") + digit + "}") != std::string_view::npos) ++count;
  }
  return count;
}

}  // namespace

TEST(MessageCatalog, HasATextWithOneHolePerArgumentForEveryLibraryIdentifier) {
  const std::pair<const char*, size_t> identifiers[] = {
      {"VANTRO:parquetio:read:InternalInvalidRead", 2},
      {"VANTRO:parquetio:read:ReaderLoadFailed", 2},
      {"VANTRO:parquetio:read:InternalUnsupportedParquetType", 1},
      {"VANTRO:parquetio:read:DictionaryInNestedStructure", 1},
      {"VANTRO:parquetio:read:InternalError", 2},
      {"VANTRO:parquetio:read:UnsupportedRowFilterVariable", 2},
      {"VANTRO:parquetio:write:InvalidWrite", 2},
      {"VANTRO:parquetio:write:InvalidWriteVars", 1},
      {"VANTRO:parquetio:write:InvalidZeroVars", 0},
      {"VANTRO:parquetio:write:InvalidOption", 2},
      {"VANTRO:parquetio:write:WrongOptionNumel", 2},
      {"VANTRO:parquetio:write:LeafColumnPathsEmpty", 0},
      {"VANTRO:parquetio:write:LeafColumnPathsOffsetsAcending", 0},
      {"VANTRO:parquetio:write:LeafColumnPathsSizeMismatch", 0},
      {"VANTRO:parquetio:write:LeafColumnPathsNumTopLevelCols", 2},
      {"VANTRO:parquetio:write:RowGroupedListOfDictionaries", 1},
      {"VANTRO:parquetio:write:NestedRowGroupedListOfDictionaries", 1},
  };
  for (const auto& [identifier, arguments] : identifiers) {
    const auto text = except::catalogueText(identifier);
    EXPECT_FALSE(text.empty()) << identifier;
    EXPECT_EQ(holes(text), arguments) << identifier;
  }
}

TEST(MessageCatalog, FillsHolesFromEveryArgumentKind) {
  const auto text = except::formatMessage("VANTRO:parquetio:write:WrongOptionNumel",
                                          {std::string("VariableEncoding"), int64_t{-3}});
  EXPECT_EQ(text, "Option 'VariableEncoding' must have -3 elements.");
  EXPECT_EQ(except::formatMessage("VANTRO:parquetio:read:InternalInvalidRead",
                                  {std::u16string(u"f\u00e9.parquet"), std::u16string(u"IOError")}),
            "Unable to read 'f\xC3\xA9.parquet'. IOError");
}

TEST(MessageCatalog, UnknownIdentifiersStillShowTheirArguments) {
  EXPECT_EQ(except::formatMessage("X:y:z", {int64_t{7}, std::string("a")}), "X:y:z 7 a");
}

TEST(HostException, IsCaughtByEveryBaseAndKeepsItsIdentifier) {
  using Tag = VANTRO::parquetio::write::InvalidOption;
  auto raise = [] {
    throw except::Exception<Tag>(Tag::component, Tag::key,
                                 {std::string("Version"), std::string("2.6")});
  };
  using Exact = except::Exception<Tag, std::exception>;
  EXPECT_THROW(raise(), Exact);
  EXPECT_THROW(raise(), except::IUserException);
  EXPECT_THROW(raise(), except::IException);
  EXPECT_THROW(raise(), boost::exception);
  try {
    raise();
  } catch (const std::exception& e) {
    EXPECT_STREQ(e.what(), "Invalid value for option 'Version': '2.6'.");
    const auto& id = dynamic_cast<const except::IMsgIDException&>(e);
    EXPECT_EQ(id.identifier(), "VANTRO:parquetio:write:InvalidOption");
    EXPECT_EQ(id.component(), "VANTRO:parquetio:write");
    EXPECT_EQ(id.arguments().size(), 2u);
    // Boost's diagnostic text works on it, as the library's catch sites log it.
    EXPECT_NE(boost::diagnostic_information(e).find("2.6"), std::string::npos);
  }
}
