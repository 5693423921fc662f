#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "digit_analysis/ConfiguredDigitAnalysis.h"
#include "framework/LocalMgmt.h"

namespace {

TEST(ConfiguredDigitAnalysis, FeatureAccessCodesArePrefixesFromTheConfiguration) {
  FileLocalMgmt mgmt;
  EXPECT_TRUE(ConfiguredDigitAnalysis(mgmt).codes().empty());
  mgmt.setValue(ConfiguredDigitAnalysis::kConfigKey, " *21, *61,, # ,** ,");
  ConfiguredDigitAnalysis analysis(mgmt);
  EXPECT_EQ(analysis.codes(), (std::vector<std::string>{"*21", "*61", "#", "**"}));
  for (const char* code : {"*21", "*21*0301234#", "#31#", "**4"})
    EXPECT_TRUE(analysis.isFeatureAccessCode(code)) << code;
  for (const char* call : {"*2", "*62", "0301234", "+4930*21", ""})
    EXPECT_FALSE(analysis.isFeatureAccessCode(call)) << call;
  analysis.configure(" , ");
  EXPECT_FALSE(analysis.isFeatureAccessCode("*21"));
}

}  // namespace
