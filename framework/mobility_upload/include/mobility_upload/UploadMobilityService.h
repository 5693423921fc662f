// The mobility service that uploads a visitor's call log to the deployment server: the four
// stored call lists read from the store, as one XML document
//   <visitorCallLog visitor="..."> <storeReply ...>...</storeReply> x4 </visitorCallLog>
// holding each store read reply (missed, received, dialled, forwarded) unchanged.
//
// The URL decides where the document goes:
//   http://, https://  an HTTP PUT (Content-Type: application/xml) through libcurl, which is
//                      loaded by the first such upload (a missing libcurl is that upload's
//                      failure); only a 2xx status is success; the exchange is limited to the time-out;
//   file://            the local file at the URL's path, replaced atomically (temporary file in the
//                      same directory, fsync, rename); a missing directory is a failure.
// Anything else (an empty URL, another scheme) fails. Failures are logged under
// "Mobility Service" at level 2 and kept as plain text in lastError().
#pragma once

#include <string>

#include "framework/Executable.h"
#include "framework/Mutex.h"
#include "framework/Services.h"

#pragma GCC visibility push(default)

class UploadMobilityService : public Service, public MobilityServiceIfc {
 public:
  UploadMobilityService(DataAccessServiceIfc* store, std::string url, std::string visitorId, int timeoutMs = 10000);

  // True only when the four lists were read and the whole upload succeeded. Uploads are
  // serialised: a second caller waits for the first.
  bool saveVisitorCallLog() override;
  // A configuration change; takes effect at the next upload. Thread-safe.
  void setUrl(std::string url);
  // Plain text of the last failure (empty after a success); waits while an upload runs.
  std::string lastError() const;

  // The document an upload sends; false with `error` set when a store read failed.
  bool buildDocument(std::string& document, std::string& error);

 private:
  // The three run within an upload, with m_uploadMutex held.
  bool fail(const std::string& text, int line) REQUIRES(m_uploadMutex);
  bool putHttp(const std::string& url, const std::string& document) REQUIRES(m_uploadMutex);
  bool writeFile(const std::string& url, const std::string& document) REQUIRES(m_uploadMutex);

  DataAccessServiceIfc* m_store;
  std::string m_visitorId;
  int m_timeoutMs;
  fw::Mutex m_urlMutex ACQUIRED_AFTER(m_uploadMutex);  // leaf; guards m_url
  std::string m_url GUARDED_BY(m_urlMutex);
  mutable fw::Mutex m_uploadMutex;  // one upload at a time; guards m_lastError
  std::string m_lastError GUARDED_BY(m_uploadMutex);
};

#pragma GCC visibility pop
