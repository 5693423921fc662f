// The CSTA requests modules send to the switch through CSTAServiceIfc::sendRequest, and their
// responses. A request is filled by the module, handed to the CSTA service on the module's thread
// and carries its response code and response back; it is a plain value, not shared between threads.
#pragma once

#include <map>
#include <string>

#include "framework/CallLogEntryEvent.h"
#include "framework/Csta.h"

#pragma GCC visibility push(default)

class Executable;

// Which event categories a monitor reports. A filter names only the categories it sets; each set
// category carries true (filtered out: not reported) or false (reported), as in ECMA-269.
class CSTAMonitorFilter {
 public:
  void setCallControlFilter(bool on) { set("callControl", on); }
  void setHeldFilter(bool on) { set("held", on); }
  void setRetrievedFilter(bool on) { set("retrieved", on); }
  void setServiceInitiatedFilter(bool on) { set("serviceInitiated", on); }
  void setTransferredFilter(bool on) { set("transferred", on); }
  void setCallAssociatedFilter(bool on) { set("callAssociated", on); }
  void setCallInformationFilter(bool on) { set("callInformation", on); }
  void setPhysicalDeviceFilter(bool on) { set("physicalDevice", on); }
  void setLogicalDeviceFilter(bool on) { set("logicalDevice", on); }
  void setVendorSpecificFilter(bool on) { set("vendorSpecific", on); }
  void setCallLogEntryFilter(bool on) { set("callLogEntry", on); }
  void setSystemFilter(bool on) { set("system", on); }
  void setSystemStatusFilter(bool on) { set("systemStatus", on); }
  void setFS_DNDFilter(bool on) { set("doNotDisturb", on); }
  void setFS_COCFilter(bool on) { set("callOffering", on); }

  // Category name -> value, for the categories that were set.
  const std::map<std::string, bool>& settings() const { return m_settings; }
  bool operator==(const CSTAMonitorFilter& o) const { return m_settings == o.m_settings; }

 private:
  void set(const char* category, bool on) { m_settings[category] = on; }
  std::map<std::string, bool> m_settings;
};

// One entry of the switch's call log, as the phone reports it (delete) in an escape request.
// Fields: action, log target, time format, subscriber number, then five pairs of presentation
// value and text, in the order of CallLogEntryEvent's first five fields; a null text pointer gives
// an empty text.
class CallLogEntryRequest {
 public:
  using Field = CallLogEntryEvent::Field;
  static constexpr int kFieldCount = 5;

  CallLogEntryRequest() = default;
  CallLogEntryRequest(CallLogEntryEvent::_Action action, CallLogEntryEvent::_LogTarget target,
                      CallLogEntryEvent::_TFormat format, std::string subscriberNumber,
                      CallLogEntryEvent::_PresentationValue p1, std::string s1,
                      CallLogEntryEvent::_PresentationValue p2, const std::string* s2,
                      CallLogEntryEvent::_PresentationValue p3, const std::string* s3,
                      CallLogEntryEvent::_PresentationValue p4, const std::string* s4,
                      CallLogEntryEvent::_PresentationValue p5, const std::string* s5);

  CallLogEntryEvent::_Action action = CallLogEntryEvent::ACTION_ADD;
  CallLogEntryEvent::_LogTarget logTarget = CallLogEntryEvent::LT_RECEIVED;
  CallLogEntryEvent::_TFormat timeFormat = CallLogEntryEvent::TF_LOCAL;
  std::string subscriberNumber;
  Field fields[kFieldCount];

  bool operator==(const CallLogEntryRequest& o) const;
};

// A request made by a service for a device: who asks, where the device's events go, which device.
class CSTADeviceRequest : public CSTARequest {
 public:
  void setSourceService(Executable* source) { m_source = source; }
  void setCSTAEventIfc(CSTAEventIfc* sink) { m_sink = sink; }
  void setDeviceObject(const std::string& device) { m_device = device; }
  Executable* getSourceService() const { return m_source; }
  CSTAEventIfc* getCSTAEventIfc() const { return m_sink; }
  const std::string& getDeviceObject() const { return m_device; }

 private:
  Executable* m_source = nullptr;
  CSTAEventIfc* m_sink = nullptr;
  std::string m_device;
};

// Starts a monitor on a device; without a filter every category is reported.
class CSTAMonitorStartRequest : public CSTADeviceRequest {
 public:
  const char* requestName() const override { return "MonitorStart"; }
  void setRequestedMonitorFilter(const CSTAMonitorFilter& filter) {
    m_filter = filter;
    m_hasFilter = true;
  }
  bool hasMonitorFilter() const { return m_hasFilter; }
  const CSTAMonitorFilter& getRequestedMonitorFilter() const { return m_filter; }

 private:
  CSTAMonitorFilter m_filter;
  bool m_hasFilter = false;
};

class CSTAMonitorStopRequest : public CSTARequest {
 public:
  const char* requestName() const override { return "MonitorStop"; }
  void setMonitorCrossRefID(const std::string& id) { m_crossRefId = id; }
  const std::string& getMonitorCrossRefID() const { return m_crossRefId; }

 private:
  std::string m_crossRefId;
};

// Changes the filter of the monitor that the device's earlier start made.
class CSTAChangeMonitorFilterRequest : public CSTADeviceRequest {
 public:
  const char* requestName() const override { return "ChangeMonitorFilter"; }
  void setRequestedFilterList(const CSTAMonitorFilter& filter) { m_filter = filter; }
  const CSTAMonitorFilter& getRequestedFilterList() const { return m_filter; }

 private:
  CSTAMonitorFilter m_filter;
};

class CSTASystemStatusRequest : public CSTARequest {
 public:
  const char* requestName() const override { return "SystemRegister"; }
  void setSourceService(Executable* source) { m_source = source; }
  Executable* getSourceService() const { return m_source; }

 private:
  Executable* m_source = nullptr;
};

// A private (vendor) request; event type 0 carries a call-log entry.
class CSTAEscapeRequest : public CSTARequest {
 public:
  static constexpr int kPrivateRequestCallLogEntry = 0;

  const char* requestName() const override { return "Escape"; }
  void setEventType(int type) { m_eventType = type; }
  int getEventType() const { return m_eventType; }
  void setCallLogEntry(const CallLogEntryRequest& entry) { m_entry = entry; }
  const CallLogEntryRequest& getCallLogEntry() const { return m_entry; }

 private:
  int m_eventType = kPrivateRequestCallLogEntry;
  CallLogEntryRequest m_entry;
};

// Response of the requests above: an error flag, and for a monitor start the monitor's
// cross-reference id.
class CSTAGenericResponse : public CSTAResponse {
 public:
  explicit CSTAGenericResponse(bool error = false) : m_error(error) {}
  bool isError() const override { return m_error; }

 private:
  bool m_error;
};

class CSTAMonitorStartResponse : public CSTAGenericResponse {
 public:
  CSTAMonitorStartResponse(std::string crossRefId, bool error = false)
      : CSTAGenericResponse(error), m_crossRefId(std::move(crossRefId)) {}
  const std::string& GetMonitorCrossRefID() const { return m_crossRefId; }

 private:
  std::string m_crossRefId;
};

#pragma GCC visibility pop
