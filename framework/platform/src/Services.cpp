#include <atomic>

#include "framework/Services.h"

DataAccessServiceIfc::~DataAccessServiceIfc() = default;
DirectoryServiceIfc::~DirectoryServiceIfc() = default;
DigitAnalysisServiceIfc::~DigitAnalysisServiceIfc() = default;
MobilityServiceIfc::~MobilityServiceIfc() = default;

namespace {
std::atomic<int> g_subPlatformVariant{0};
}

int HardwareVersion::getHWSubPlatformVariant() { return g_subPlatformVariant.load(); }
void HardwareVersion::setHWSubPlatformVariant(int variant) { g_subPlatformVariant.store(variant); }
