// Which entry a new call's party belongs to.
#include <gtest/gtest.h>

#include "Items.h"
#include "JournalHarness.h"

namespace {

Contact contact(const std::string& surname, const std::string& number, NumberType::NT type = NumberType::NT_NONE) {
  Contact c;
  c.setSurname(surname);
  c.setNumber(number);
  c.setNumberType(type);
  return c;
}

TEST(ContactMatching, NewestOccurrenceDecidesByNumberOrByPhonebookName) {
  JournalHarness phone;
  JournalService& s = *phone.service;
  auto anna = makeEntry<MissedCallItem>("E1", "100", "2024-03-05T10:00:00");
  anna.setSurname("Anna");
  auto anonymous = makeEntry<ReceivedCallItem>("E2", "", "2024-03-05T10:00:00");
  anonymous.setSurname("");
  struct Row {
    Contact party;
    bool matchesAnna, matchesAnonymous;
  } rows[] = {
      {contact("Anna", "100"), true, false},                         // same number
      {contact("Anna", "200", NumberType::NT_MOBILE), true, false},  // her other number, from the phonebook
      {contact("Anna", "200"), false, false},                        // a network name alone is not enough
      {contact("", "100"), true, false},                             // unnamed: by number only
      {contact("", ""), false, true},                                // anonymous merges with anonymous
      {contact("Anna", ""), false, false},                           // named, no number: names and no number
  };
  for (const Row& row : rows) {
    EXPECT_EQ(s.contactMatchesMissedCall(anna, row.party), row.matchesAnna) << row.party.getSurname() << row.party.getNumber();
    EXPECT_EQ(s.contactMatchesReceivedCall(anonymous, row.party), row.matchesAnonymous) << row.party.getNumber();
  }
  anna.infos().clear();
  EXPECT_FALSE(s.contactMatchesMissedCall(anna, contact("Anna", "100")));  // no occurrence, no match

  auto dialled = makeEntry<DialledCallItem>("D1", "*21100", "2024-03-05T10:00:00");
  dialled.setJournalSeviceGroupBy("100");
  EXPECT_TRUE(s.contactMatchesDialledCall(dialled, contact("", "100")));  // by group-by, not by the digits
  EXPECT_FALSE(s.contactMatchesDialledCall(dialled, contact("", "*21100")));
  EXPECT_TRUE(s.contactMatchesCallBack(makeCallBack("C1", "100"), contact("", "100")));

  EXPECT_FALSE(JournalService::partiesAreNotTheSame("", "100"));
  EXPECT_TRUE(JournalService::partiesAreNotTheSame("100", "1000"));
}

TEST(ContactMatching, PhonebookAndDiallingPlanQueriesNeedTheirServices) {
  JournalHarness phone;
  Contact bob = contact("", "300");
  Contact known = contact("Bob", "300", NumberType::NT_HOME);
  phone.directory.add(known);
  EXPECT_FALSE(phone.service->contactIsInPhonebook(bob));  // not started: no directory yet
  phone.start();
  EXPECT_TRUE(phone.service->contactIsInPhonebook(bob));
  EXPECT_EQ(bob, known);
  Contact stranger = contact("", "999");
  EXPECT_TRUE(phone.service->contactNotInPhonebook(stranger));
  EXPECT_TRUE(phone.service->isaFeatureAccessCode("*21"));
  EXPECT_FALSE(phone.service->isaFeatureAccessCode("0301234"));
}

}  // namespace
