// Text from outside: ill-formed UTF-8 and characters XML cannot carry replaced, lengths cut at
// character boundaries.
#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "framework/Utf8.h"

namespace {

const std::string R = fw::utf8::kReplacement;

TEST(Utf8, SanitizeReplacesEachMaximalIllFormedSubpartOnce) {
  const std::pair<std::string, std::string> cases[] = {
      {"Åsa Öberg €5 \xF0\x9F\x93\x9E", "Åsa Öberg €5 \xF0\x9F\x93\x9E"},  // well-formed, kept
      {"M\xFCller", "M" + R + "ller"},                                     // Latin-1 byte
      {"a\xE2\x82", "a" + R},                                              // cut-off euro sign: one
      {"\xE2\x82z", R + "z"},
      {"\xFF\xFE", R + R},                     // bytes that start nothing: one each
      {"\xC0\xAF", R + R},                     // overlong '/'
      {"\xED\xA0\x80", R + R + R},             // a UTF-16 surrogate
      {"\xF4\x90\x80\x80", R + R + R + R},     // past U+10FFFF
      {"\xF0\x9F\x93", R},                     // three of four bytes
      {"tab\tline\ncr\r", "tab\tline\ncr\r"},  // the controls XML allows
      {std::string("nul\0bell\x07", 9), "nul" + R + "bell" + R},
      {"\xEF\xBF\xBE\xEF\xBF\xBF\xEF\xBF\xBD", R + R + R},  // U+FFFE, U+FFFF, U+FFFD itself
      {"", ""}};
  for (const auto& [in, out] : cases) {
    EXPECT_EQ(fw::utf8::sanitize(in), out) << in;
    EXPECT_EQ(fw::utf8::isClean(in), in == out) << in;
    EXPECT_TRUE(fw::utf8::isClean(fw::utf8::sanitize(in))) << in;
  }
}

TEST(Utf8, TruncateCutsAtTheEndOfACharacter) {
  std::string text = "ab€cd";  // the euro sign is bytes 2..4
  EXPECT_EQ(fw::utf8::truncate(text, 4), "€cd");
  EXPECT_EQ(text, "ab");
  text = "ab€cd";
  EXPECT_EQ(fw::utf8::truncate(text, 5), "cd");
  EXPECT_EQ(text, "ab€");
  EXPECT_EQ(fw::utf8::truncate(text, 5), "");
  EXPECT_EQ(text, "ab€");
}

}  // namespace
