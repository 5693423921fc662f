// Upload of a visitor's call log: the document built from the store's read replies, sent by HTTP
// PUT through libcurl (loaded on the first HTTP upload) or written atomically to a local file.
#include "mobility_upload/UploadMobilityService.h"

#include <fcntl.h>
#include <unistd.h>

#include <sys/stat.h>
#include <cerrno>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "CurlLibrary.h"
#include "framework/JournalServiceHelper.h"
#include "framework/JournalServiceHelperXml.h"
#include "framework/Logging.h"

namespace {

const char kLogHandle[] = "Mobility Service";

bool startsWith(const std::string& text, const char* prefix) { return text.rfind(prefix, 0) == 0; }

// A store reply without its XML declaration, so that it can sit inside another document.
std::string withoutDeclaration(const std::string& reply) {
  size_t start = reply.find_first_not_of(" \t\r\n");
  if (start != std::string::npos && reply.compare(start, 5, "<?xml") == 0) {
    const size_t end = reply.find("?>", start);
    if (end != std::string::npos) return reply.substr(end + 2);
  }
  return reply;
}

// The body of the PUT, handed to libcurl piece by piece.
struct Upload {
  const std::string* document;
  size_t sent;
};

size_t readBody(char* buffer, size_t size, size_t count, void* userData) {
  auto* upload = static_cast<Upload*>(userData);
  const size_t n = std::min(size * count, upload->document->size() - upload->sent);
  std::memcpy(buffer, upload->document->data() + upload->sent, n);
  upload->sent += n;
  return n;
}

// The server's answer text is not needed.
size_t discardBody(char*, size_t size, size_t count, void*) { return size * count; }

bool writeAll(int fd, const std::string& data) {
  size_t done = 0;
  while (done < data.size()) {
    const ssize_t n = ::write(fd, data.data() + done, data.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    done += static_cast<size_t>(n);
  }
  return true;
}

}  // namespace

UploadMobilityService::UploadMobilityService(DataAccessServiceIfc* store, std::string url, std::string visitorId,
                                             int timeoutMs)
    : m_store(store), m_visitorId(std::move(visitorId)), m_timeoutMs(timeoutMs), m_url(std::move(url)) {}

void UploadMobilityService::setUrl(std::string url) {
  fw::MutexLock lock(m_urlMutex);
  m_url = std::move(url);
}

std::string UploadMobilityService::lastError() const {
  fw::MutexLock upload(m_uploadMutex);
  return m_lastError;
}

bool UploadMobilityService::fail(const std::string& text, int line) {
  m_lastError = text;
  logAppUni(kLogHandle, __FILE__, 2, line, "%s", text.c_str());
  return false;
}

bool UploadMobilityService::buildDocument(std::string& document, std::string& error) {
  if (!m_store) {
    error = "no store to read the call lists from";
    return false;
  }
  document = "<?xml version=\"1.0\" encoding=\"UTF-8\"?><visitorCallLog visitor=\"";
  journalxml::appendEscapedAttribute(document, m_visitorId.data(), m_visitorId.size());
  document += "\">";
  using H = JournalServiceHelper;
  const std::pair<const char*, std::string> reads[] = {{H::DAS_CALLLOGMISSEDCALLS, H::readMissedCallList()},
                                                       {H::DAS_CALLLOGRECEIVEDCALLS, H::readReceivedCallList()},
                                                       {H::DAS_CALLLOGDIALLEDCALLS, H::readDialledCallList()},
                                                       {H::DAS_CALLLOGFORWARDEDCALLS, H::readForwardedCallList()}};
  for (const auto& [table, request] : reads) {
    const std::string reply = m_store->processRequest(request);
    if (reply == "failed" || reply.empty()) {  // the store's one failure value
      error = std::string("reading ") + table + " from the store failed";
      return false;
    }
    document += withoutDeclaration(reply);
  }
  document += "</visitorCallLog>";
  return true;
}

bool UploadMobilityService::saveVisitorCallLog() {
  fw::MutexLock upload(m_uploadMutex);
  std::string url;
  {
    fw::MutexLock lock(m_urlMutex);
    url = m_url;
  }
  if (url.empty()) return fail("no upload URL is configured", __LINE__);
  const bool http = startsWith(url, "http://") || startsWith(url, "https://");
  if (!http && !startsWith(url, "file://")) return fail("unsupported upload URL '" + url + "'", __LINE__);
  std::string document, error;
  if (!buildDocument(document, error)) return fail(error + " (upload to " + url + ")", __LINE__);
  const bool ok = http ? putHttp(url, document) : writeFile(url, document);
  if (ok) m_lastError.clear();
  return ok;
}

bool UploadMobilityService::putHttp(const std::string& url, const std::string& document) {
  std::string loadError;
  const CurlLibrary* lib = CurlLibrary::load(loadError);
  if (!lib) return fail(loadError + ": no HTTP upload to " + url, __LINE__);
  CURL* curl = lib->easy_init();
  if (!curl) return fail("no libcurl handle for the upload to " + url, __LINE__);
  char errorText[CURL_ERROR_SIZE] = {};
  Upload body{&document, 0};
  curl_slist* headers = lib->slist_append(nullptr, "Content-Type: application/xml");
  // No "100 continue" round trip before the body: servers that do not answer it stall the upload.
  headers = lib->slist_append(headers, "Expect:");
  lib->easy_setopt(curl, CURLOPT_URL, url.c_str());
  lib->easy_setopt(curl, CURLOPT_UPLOAD, 1L);
  lib->easy_setopt(curl, CURLOPT_READFUNCTION, readBody);
  lib->easy_setopt(curl, CURLOPT_READDATA, &body);
  lib->easy_setopt(curl, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(document.size()));
  lib->easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
  lib->easy_setopt(curl, CURLOPT_WRITEFUNCTION, discardBody);
  lib->easy_setopt(curl, CURLOPT_ERRORBUFFER, errorText);
  lib->easy_setopt(curl, CURLOPT_TIMEOUT_MS, static_cast<long>(m_timeoutMs));
  lib->easy_setopt(curl, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(m_timeoutMs));
  lib->easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);  // time-outs without SIGALRM: the caller may be any thread
  const CURLcode code = lib->easy_perform(curl);
  long status = 0;
  lib->easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
  lib->slist_free_all(headers);
  lib->easy_cleanup(curl);
  if (code != CURLE_OK)
    return fail("upload to " + url + " failed: " + (errorText[0] ? errorText : lib->easy_strerror(code)), __LINE__);
  if (status < 200 || status > 299)
    return fail("upload to " + url + " was refused with HTTP status " + std::to_string(status), __LINE__);
  return true;
}

bool UploadMobilityService::writeFile(const std::string& url, const std::string& document) {
  std::string path = url.substr(std::strlen("file://"));
  if (startsWith(path, "localhost/")) path.erase(0, std::strlen("localhost"));
  if (path.empty() || path[0] != '/' || path.back() == '/')
    return fail("upload URL '" + url + "' does not name a local file", __LINE__);
  const std::string directory = path.substr(0, path.rfind('/') + 1);
  std::string temporary = path + ".XXXXXX";
  const int fd = ::mkstemp(temporary.data());
  if (fd < 0)
    return fail("upload to " + url + " failed: cannot create a file in " + directory + ": " + std::strerror(errno),
                __LINE__);
  const bool written = writeAll(fd, document) && ::fsync(fd) == 0;
  const int writeErrno = errno;
  if (::close(fd) != 0 || !written) {
    ::unlink(temporary.c_str());
    return fail("upload to " + url + " failed: cannot write " + temporary + ": " + std::strerror(writeErrno), __LINE__);
  }
  // mkstemp makes the file private; the call log is for the deployment server to read.
  ::chmod(temporary.c_str(), 0644);
  if (::rename(temporary.c_str(), path.c_str()) != 0) {
    const int renameErrno = errno;
    ::unlink(temporary.c_str());
    return fail("upload to " + url + " failed: cannot replace " + path + ": " + std::strerror(renameErrno), __LINE__);
  }
  // The rename itself is durable only once the directory is on disk.
  const int dirFd = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY);
  if (dirFd >= 0) {
    ::fsync(dirFd);
    ::close(dirFd);
  }
  return true;
}
