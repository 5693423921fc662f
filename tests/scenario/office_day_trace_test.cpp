// The sample office day (examples/traces/office-day.xml) replayed into a journal on a real SQLite
// store and the example phonebook: the trace's settings configure the phone, each event is read by
// the CSTA codec and delivered at its time. The lists it leaves are the ones the trace's comments
// describe.
#include "TraceDay.h"

namespace {

using namespace scenario;

// `kind "Name" <number> hh:mm:ss[ for mm:ss][ to <number>], ...`: one time per occurrence, newest first.
template <class Item>
void render(Lines& out, const char* kind, const std::deque<Item>& list) {
  using Info = typename Item::InfoList::value_type;
  for (const auto& item : list) {
    std::string line = std::string(kind) + " \"" + (item.getFirstname().empty() ? "" : item.getFirstname() + " ") +
                       item.getSurname() + "\" <" + item.infos().front().number + ">";
    for (const Info& info : item.infos()) {
      line += (&info == &item.infos().front() ? " " : ", ") + info.timeDate.substr(11);
      if constexpr (std::is_base_of_v<Duration, Info>)
        if (!info.duration.empty()) line += " for " + info.duration;
      if (!info.connectedNumber.empty()) line += " to <" + info.connectedNumber + ">";
    }
    out.push_back(line);
  }
}

using OfficeDay = TraceDay;

TEST_F(OfficeDay, LeavesTheListsItsCommentsDescribe) {
  std::string error;
  ASSERT_TRUE(phonebook.load(EXAMPLES_DIR "/phonebook.csv", error).has_value()) << error;
  replayHere(EXAMPLES_DIR "/traces/office-day.xml", kSip);  // the hourly save runs on the way
  EXPECT_EQ(phone->service->countTrackedCalls(), 0);

  Lines shown;
  forEachList([&](const char* kind, const auto& list) { render(shown, kind, list); });
  const Lines expected = {
      R"(missed "Piet Janssen" <3318> 13:10:00)",
      R"(missed "Jonas Weber" <+4930555777> 10:30:12, 08:41:05)",
      R"(received "Reception, building B" <3300> 17:35:00 for 00:45)",
      R"(received "Maja Ekström" <+46855501020> 09:52:00 for 06:00)",
      R"(received "Ines Moreau" <3205> 08:02:10 for 04:12)",
      R"(dialled "Chidi Okonkwo" <02015550199> 15:00:00 for 10:00, 11:40:00)",
      R"(dialled "Piet Janssen" <3318> 14:20:00 for 03:00)",
      R"(dialled "Reception, building B" <3300> 09:15:30 for 01:40)",
      R"(forwarded "Tom Berger" <3412> 11:05:00 to <7000>)",
  };
  EXPECT_EQ(shown, expected);
  EXPECT_EQ(kept(entries()), stored());
}

}  // namespace
