// libcurl loaded at run time, on the first HTTP upload: a daemon whose uploads go to a local file
// (or nowhere) never maps libcurl and the TLS and authentication libraries it pulls in. Only the
// types come from curl's headers; the functions are looked up once in "libcurl.so.4".
// Thread-safe: the first call of load() does the work, later calls return its result.
#pragma once

#include <curl/curl.h>

#include <string>

struct CurlLibrary {
  CURLcode (*global_init)(long flags) = nullptr;
  CURL* (*easy_init)() = nullptr;
  CURLcode (*easy_setopt)(CURL* handle, CURLoption option, ...) = nullptr;
  CURLcode (*easy_perform)(CURL* handle) = nullptr;
  CURLcode (*easy_getinfo)(CURL* handle, CURLINFO info, ...) = nullptr;
  void (*easy_cleanup)(CURL* handle) = nullptr;
  const char* (*easy_strerror)(CURLcode code) = nullptr;
  curl_slist* (*slist_append)(curl_slist* list, const char* text) = nullptr;
  void (*slist_free_all)(curl_slist* list) = nullptr;

  // The library, loaded and globally initialised; nullptr with `error` set when it is missing,
  // lacks a function, or does not initialise. The library stays loaded for the process.
  static const CurlLibrary* load(std::string& error);
};
