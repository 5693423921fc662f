#include <gtest/gtest.h>

#include "framework/CallItems.h"

namespace {

MissedCallItem::MissedCallInfo missedInfo(const std::string& time) {
  MissedCallItem::MissedCallInfo info;
  info.timeDate = time;
  return info;
}

TEST(CallItems, AddCallInfoPutsNewestFirstAndKeepsTen) {
  MissedCallItem item;
  for (int i = 0; i < 12; ++i) item.addCallInfoToList(missedInfo("t" + std::to_string(i)));
  const auto& infos = item.getMissedCallInfoList();
  ASSERT_EQ(infos.size(), kMaxCallInfos);
  EXPECT_EQ(infos.front().timeDate, "t11");
  EXPECT_EQ(infos.back().timeDate, "t2");  // t0 and t1 were dropped from the back
}

TEST(CallItems, CopiesAreDeepAndIndependent) {
  ReceivedCallItem a("id", "Surname", "First", {});
  ReceivedCallItem::ReceivedCallInfo info;
  info.number = "123";
  a.addCallInfoToList(info);
  ReceivedCallItem b = a;
  b.getReceivedCallInfoList().front().number = "456";
  EXPECT_EQ(a.getReceivedCallInfoList().front().number, "123");
  EXPECT_FALSE(a == b);
}

TEST(CallItems, DeflectPresentationIsSeparateFromCallerPresentation) {
  MissedCallItem::MissedCallInfo info;
  info.CallInfo::numberPresentation = CallLogEntryEvent::PV_SHOWN;
  info.Deflect::numberPresentation = CallLogEntryEvent::PV_RESTRICTED;
  MissedCallItem::MissedCallInfo other = info;
  EXPECT_TRUE(info == other);
  other.Deflect::numberPresentation = CallLogEntryEvent::PV_SHOWN;
  EXPECT_FALSE(info == other);
}

TEST(CallItems, DefaultsAreEmpty) {
  Contact contact;
  EXPECT_TRUE(contact.getNumber().empty());
  EXPECT_EQ(contact.getNumberType(), NumberType::NT_NONE);
  CallBackItem callback;
  EXPECT_EQ(callback.getCallBackType(), CallBackItem::CBT_NONE);
  DialledCallItem dialled;
  EXPECT_FALSE(dialled.getDialledCallInfoList().size());
  MissedCallItem missed;
  EXPECT_FALSE(missed.getViewed());
}

}  // namespace
