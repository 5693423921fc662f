#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "digit_analysis/ConfiguredDigitAnalysis.h"
#include "framework/LocalMgmt.h"

namespace {

// Blanks around a code are dropped (" *61" is "*61") and empty entries ignored (an empty code would
// be a prefix of every number).
TEST(ConfiguredDigitAnalysis, FeatureAccessCodesArePrefixesFromTheConfiguration) {
  FileLocalMgmt mgmt;
  EXPECT_FALSE(ConfiguredDigitAnalysis(mgmt).isFeatureAccessCode("*21"));  // nothing configured
  mgmt.setValue(ConfiguredDigitAnalysis::kConfigKey, " *21, *61,, # ,** ,");
  ConfiguredDigitAnalysis analysis(mgmt);
  for (const char* code : {"*21", "*21*0301234#", "*61", "#31#", "**4"})
    EXPECT_TRUE(analysis.isFeatureAccessCode(code)) << code;
  for (const char* call : {"*2", "*62", "0301234", "+4930*21", ""})
    EXPECT_FALSE(analysis.isFeatureAccessCode(call)) << call;
  analysis.configure(" , ");
  EXPECT_FALSE(analysis.isFeatureAccessCode("*21"));
}

}  // namespace
