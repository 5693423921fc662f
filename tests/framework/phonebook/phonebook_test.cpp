#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "LogCapture.h"
#include "framework/LocalMgmt.h"
#include "phonebook/FilePhonebook.h"

namespace {

using Loaded = std::optional<std::size_t>;

class Phonebook : public ::testing::Test {
 protected:
  void TearDown() override { std::filesystem::remove_all(dir); }
  std::string write(const std::string& name, const std::string& content) {
    std::ofstream(dir + "/" + name, std::ios::binary | std::ios::trunc) << content;
    return dir + "/" + name;
  }
  // "surname|firstname|type|picture" of the contact found for `number`, or "unknown" (the contact untouched).
  std::string find(const std::string& number) {
    Contact c;
    c.setNumber(number);
    c.setSurname("From the network");
    if (const Contact before = c; !book.lookupContact(c)) return c == before ? "unknown" : "unknown, but changed";
    EXPECT_EQ(c.getNumber(), number);  // the journal compares the number as the call gave it
    return c.getSurname() + "|" + c.getFirstname() + "|" + std::to_string(c.getNumberType()) + "|" + c.getPictureClip();
  }

  char pattern[27] = "/tmp/phonebook-test-XXXXXX";
  const std::string dir = [this] {
    const char* made = mkdtemp(pattern);
    return made ? std::string(made) : std::string();
  }();
  void SetUp() override { ASSERT_FALSE(dir.empty()) << "no temporary directory under /tmp"; }
  std::string error;
  FilePhonebook book;
  LogCapture log;
};

TEST_F(Phonebook, CsvReadsQuotedUtf8FieldsRepairsOtherTextAndSkipsEachMalformedLineNamingIt) {
  const std::string path = write("book.csv",
                                 "\xEF\xBB\xBFSurname, First Name ,Phone,Type,Photo,Company\r\n"
                                 "\"Lindqvist, Jr.\",\"Åsa \"\"Ace\"\"\",+46 8 555 010 20,Mobile,pics/a.png,\r\n"
                                 "Nakamura,Kenji,030/555-77,cell,,\"Two\r\nlines\"\r\n"
                                 "Short,Row,555 1,work,\r\nBad\"quote,X,555 2,home,,\r\nLetters,Y,555-CALL,,,\r\n\r\n"
                                 "Plain,Z,555 3,fax,,\r\nTwice,W,5553,,,\r\nLatin1,\xE5sa,555 6,,,\r\n"
                                 "\"Open,Q,555 4,,,\r\nLast,R,555 5,,,\r\nStray \"quote,S,555 7,,,\r\n"
                                 "\"Unclosed,T,555 8,,,\r\n");
  EXPECT_EQ(book.load(path, error), Loaded(6)) << error;
  EXPECT_EQ(find("+4685550102 0"), "Lindqvist, Jr.|Åsa \"Ace\"|2|pics/a.png");
  EXPECT_EQ(find("03055577"), "Nakamura|Kenji|2|");
  EXPECT_EQ(find("5553"), "Plain|Z|4|");                // unknown type is other; the first of two equal numbers is kept
  EXPECT_EQ(find("5555"), "Last|R|4|");                 // a stray opening quote does not swallow the lines after it
  EXPECT_EQ(find("5556"), "Latin1|\xEF\xBF\xBDsa|4|");  // a Latin-1 byte: U+FFFD in its place
  for (const char* skipped : {"5551", "5552", "5554", "5557", "5558"}) EXPECT_EQ(find(skipped), "unknown");
  EXPECT_EQ(book.size(), 5u);
  for (const char* line :
       {":5: expected 6 fields, found 5", ":6: misplaced quote character", ":7: '555-CALL' is not a telephone number",
        ":12: quoted field is not closed properly (misplaced quote at line 14)", ":14: misplaced quote character",
        ":15: quoted field is not closed"})
    EXPECT_TRUE(log.contains(path + line, fw::kLogError)) << line;
  for (const char* line : {":9: unknown number type 'fax'", ":10: number 5553 is listed at line 9 already",
                           ":11: text is not UTF-8, shown with U+FFFD"})
    EXPECT_TRUE(log.contains(path + line, fw::kLogNotable)) << line;
}

TEST_F(Phonebook, VCardUnfoldsLinesAndFindsEveryNumberOfACardWithItsType) {
  const std::string path = write(
      "cards.vcf",
      "BEGIN:VCARD\r\nVERSION:3.0\r\nN:Fernández;María José;;;\r\nFN:María José Fernández\r\n"
      "item1.TEL;TYPE=WORK,VOICE:+34 91 555\r\n  01 23\r\nTEL;TYPE=cell;TYPE=work:+34 600 555 123\r\n"
      "TEL;HOME:+34 91 555 99 99\r\nPHOTO;VALUE=uri:http://pictures.example/\r\n\tmaria.jpg\r\nEND:VCARD\r\n"
      "BEGIN:VCARD\nVERSION:4.0\nFN:Front Desk\\, North\nTEL;VALUE=uri;TYPE=\"voice,home\":tel:+1-555-0100;ext=7\n"
      "PHOTO:data:image/png;base64,AAAA\nEND:VCARD\nNOTE:stray\nBEGIN:VCARD\nN:Unfinished;Card\nTEL:555 0199\n"
      "BEGIN:VCARD\nN:M\xFCller;Jan\nTEL:555 0177\nEND:VCARD\n");
  EXPECT_EQ(book.load(path, error), Loaded(2)) << error;
  const std::string maria = "Fernández|María José|", photo = "|http://pictures.example/maria.jpg";
  EXPECT_EQ(find("+34915550123"), maria + "1" + photo);
  EXPECT_EQ(find("+34600555123"), maria + "2" + photo);   // cell before work
  EXPECT_EQ(find("+34915559999"), maria + "3" + photo);   // a bare 2.1 type
  EXPECT_EQ(find("+15550100"), "Front Desk, North||3|");  // FN stands in for N; inline photos are not kept
  EXPECT_EQ(find("5550199"), "unknown");
  EXPECT_EQ(find("5550177"), "M\xEF\xBF\xBDller|Jan|4|");
  EXPECT_TRUE(log.contains(path + ":18: property outside BEGIN:VCARD", fw::kLogError));
  EXPECT_TRUE(log.contains(path + ":19: card has no END:VCARD", fw::kLogError));
  EXPECT_TRUE(log.contains(path + ":23: text is not UTF-8, shown with U+FFFD", fw::kLogNotable));
}

TEST(FilePhonebook, NumbersMatchHoweverTheyAreWritten) {
  std::string number, got;
  for (const char* text : {"+49 (30) 123-45", "+49 (0)30 123.45", "\t030/123\xC2\xA0\x34\x35 ", "*21#", "0(0)1", "",
                           " - ", "+", "12+3", "555-CALL", "+49 30 12 ext 4"})
    got += (FilePhonebook::normaliseNumber(text, number) ? number : "refused") + ",";
  EXPECT_EQ(got, "+493012345,+493012345,03012345,*21#,001,refused,refused,refused,refused,refused,refused,");
}

// The shipped examples load without complaint; a refused file keeps the contacts held before.
TEST_F(Phonebook, ShippedExamplesLoadAndARefusedFileKeepsThem) {
  EXPECT_EQ(book.load(EXAMPLES_DIR "/phonebook.vcf", error), Loaded(0)) << error;
  EXPECT_EQ(book.size(), 3u);
  EXPECT_EQ(find("+34600555123"),
            "Fernández Ruiz|María José|2|http://pictures.example/contacts/fernandez-ruiz/maria-jose.jpg");
  ASSERT_EQ(book.load(EXAMPLES_DIR "/phonebook.csv", error), Loaded(0)) << error;
  const std::pair<std::string, std::string> refused[] = {
      {write("bad.csv", "surname,firstname\nNo,Number\n"),
       ":1: the header row names no number column (number, phone or telephone)"},
      {write("twice.csv", "number,Number\n1,2\n"), ":1: the header names the number column twice"},
      {dir + "/missing.csv", ": cannot be opened"}};
  for (const auto& [file, message] : refused) {
    EXPECT_EQ(book.load(file, error), std::nullopt) << file;
    EXPECT_EQ(error.find(file + message), 0u) << error;
  }
  EXPECT_EQ(book.size(), 5u);
  EXPECT_EQ(find("+33155501234"), "Dubois|Léa|1|");
  EXPECT_EQ(book.path(), EXAMPLES_DIR "/phonebook.csv");
}

// Look-ups run while the file is reloaded again and again, its format changing with the content
// (the name gives none): each sees one whole version of the phonebook, never a mix.
TEST_F(Phonebook, ReloadSwapsTheWholeIndexUnderConcurrentLookups) {
  const std::string csv = "number,surname,type\n100,Old,home\n200,Gone,home\n";
  const std::string vcard = "BEGIN:VCARD\nN:New\nTEL;TYPE=cell:100\nEND:VCARD\n";
  ASSERT_TRUE(book.load(write("book.txt", csv), error)) << error;
  std::atomic<bool> done{false};
  std::vector<std::string> seen;
  std::thread reader([&] {
    for (std::string found; !done;)
      if ((found = find("100")) != "Old||3|" && found != "New||2|") seen.push_back(found);
  });
  for (int i = 1; i <= 21; ++i) {
    write("book.txt", i % 2 ? vcard : csv);
    EXPECT_EQ(book.reload(error), Loaded(0)) << error;
  }
  done = true;
  reader.join();
  EXPECT_EQ(std::vector<std::string>{}, seen);
  EXPECT_EQ(find("100"), "New||2|");
  EXPECT_EQ(find("200"), "unknown");
}

}  // namespace
