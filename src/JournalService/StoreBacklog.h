// What the journal could not store yet, and the state of the store as the journal sees it.
//
// The lists are the authority: a change the store refuses (locked by another program, disk full,
// I/O errors) stays in the list and observers are told at once; the change waits in its list's
// backlog and is written when the store works again, in order: the table emptied, rows deleted,
// then the entries written as they are by then (oldest first). A new entry whose write failed has
// no unique id, so that its later write makes a row of its own. Once a write failed the store is
// "down": changes go straight to the backlogs, without waiting on the store for each, until a
// retry on the service's timer (growing delays) finds it working and writes the backlogs.
//
// Private to the module; owned by the JournalService. Each ListBacklog is guarded by its list's
// lock (the service reaches it only through backlogOf<Item>(), which requires that lock); the rest
// as noted.
#pragma once

#include <atomic>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "framework/Executable.h"
#include "framework/Semaphore.h"
#include "framework/ThreadAnnotations.h"

// The four stored lists, in the order the retry writes their backlogs.
constexpr int kStoredListCount = 4;

struct ListBacklog {
  bool clearTable = false;           // the whole list was deleted: the table is emptied first
  std::vector<std::string> deletes;  // delete bodies of entries that left the list, each with a row
  std::set<int64_t> writes;          // list orders of the entries to write

  bool empty() const { return !clearTable && deletes.empty() && writes.empty(); }
  size_t size() const { return (clearTable ? 1 : 0) + deletes.size() + writes.size(); }
};

struct StoreBacklog {
  static constexpr int kFirstRetryMs = 1000;
  static constexpr int kLongestRetryMs = 16000;

  ListBacklog lists[kStoredListCount];  // each guarded by its list's lock: see backlogOf<Item>()
  std::atomic<bool> down{false};        // a retry is due: changes go to the backlogs
  std::atomic<bool> failing{false};     // from the "store fails" line to the "works again" line
  std::atomic<size_t> waiting{0};       // changes in all backlogs (a list's part changes under its lock)

  // A leaf: taken under a list lock or none, nothing is taken while it is held (the context's
  // timer table and the logger aside, which are leaves too).
  Semaphore lock{1, 1, false, "m_storeBacklog.lock"};
  std::string failingSince GUARDED_BY(lock);  // time text of the first failure
  size_t written GUARDED_BY(lock) = 0;        // changes written since the store failed
  int retryTimer GUARDED_BY(lock) = -1;       // the armed retry, -1 when none
  int retryDelayMs GUARDED_BY(lock) = kFirstRetryMs;

  // Arms the retry on `owner`'s timer of `context` unless one is armed; while it is, changes go
  // straight to the backlogs. Without a context the next change of a list tries the store itself.
  void armRetry(Context* context, Executable* owner) REQUIRES(lock) {
    if (retryTimer == -1 && context) retryTimer = context->createTimer(owner, retryDelayMs);
    down = retryTimer != -1;
  }
};
