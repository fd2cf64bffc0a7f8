#include <gtest/gtest.h>

#include "host/unicode/ustring.hpp"

using foundation::unicode::to_ustring;
using foundation::unicode::ustring_to_utf8;
using foundation::unicode::utf8_to_ustring;

TEST(Unicode, RoundTripsEveryPlane) {
  const std::string text = "abc \xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80 \xE4\xB8\xAD";  // é € 😀 中
  const std::u16string wide = utf8_to_ustring(text);
  EXPECT_EQ(wide, u"abc é € 😀 中");
  EXPECT_EQ(ustring_to_utf8(wide), text);
}

TEST(Unicode, InvalidUtf8BecomesReplacementCharacters) {
  EXPECT_EQ(utf8_to_ustring("a\xFF"
                            "b"),
            u"a\uFFFDb");
  EXPECT_EQ(utf8_to_ustring("\xC3"), u"\uFFFD");                      // truncated at the end
  EXPECT_EQ(utf8_to_ustring("\xC0\xAF"), u"\uFFFD\uFFFD");            // overlong slash
  EXPECT_EQ(utf8_to_ustring("\xED\xA0\x80"), u"\uFFFD\uFFFD\uFFFD");  // encoded surrogate
  EXPECT_EQ(utf8_to_ustring("\xF4\x90\x80\x80"), u"\uFFFD\uFFFD\uFFFD\uFFFD");  // > U+10FFFF
  EXPECT_EQ(utf8_to_ustring("\xE2\x82x"), u"\uFFFDx");  // a bad continuation is not swallowed
}

TEST(Unicode, LoneSurrogatesBecomeReplacementCharacters) {
  const std::u16string lone = {u'a', 0xD800, u'b', 0xDC00};
  EXPECT_EQ(ustring_to_utf8(lone),
            "a\xEF\xBF\xBD"
            "b\xEF\xBF\xBD");
}

TEST(Unicode, EmbeddedNulsAndNullPointers) {
  EXPECT_EQ(utf8_to_ustring(std::string("a\0b", 3)), std::u16string(u"a\0b", 3));
  EXPECT_EQ(to_ustring(nullptr), u"");
  EXPECT_EQ(to_ustring("plain"), u"plain");
}
