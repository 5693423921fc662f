// Interfaces of the framework services the journal uses besides clock and local management.
// Each service registers itself with the Context under the interface's name
// ("DataAccessServiceIfc", ...); users find it with Context::findService and dynamic_cast.
#pragma once

#include <string>

#include "framework/CallItems.h"

#pragma GCC visibility push(default)

// The store: one synchronous exchange of XML texts. A reply of "failed" is the one failure value.
class DataAccessServiceIfc {
 public:
  virtual ~DataAccessServiceIfc();
  virtual std::string processRequest(const std::string& request) = 0;
};

// The phonebook.
class DirectoryServiceIfc {
 public:
  virtual ~DirectoryServiceIfc();
  // Looks up contact.getNumber(); when found fills the contact and returns true.
  virtual bool lookupContact(Contact& contact) = 0;
};

// The dialling plan.
class DigitAnalysisServiceIfc {
 public:
  virtual ~DigitAnalysisServiceIfc();
  // True when `digits` invoke a telephone feature rather than call a party.
  virtual bool isFeatureAccessCode(const std::string& digits) = 0;
};

// Visitors logged on to the phone.
class MobilityServiceIfc {
 public:
  virtual ~MobilityServiceIfc();
  // Uploads the visitor's call log to the deployment server; true on success.
  virtual bool saveVisitorCallLog() = 0;
};

// The phone's hardware, as far as modules need to know it.
class HardwareVersion {
 public:
  // The sub-platform variant of the device (4 and 3 carry the LumaUX user interface).
  static int getHWSubPlatformVariant();
  // Set by the host from its configuration ("hw-sub-platform-variant"); 0 until then.
  static void setHWSubPlatformVariant(int variant);
};

#pragma GCC visibility pop
