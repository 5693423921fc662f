// The entry ids in use on the phone, so that no two entries ever share one: clients name entries
// by id, and an id that named two entries would make a deletion or a viewed mark act on both.
//
// An id is a time stamp of the second it was made and eight hexadecimal digits. A new id takes the
// digits its call gives, or the next value that is free: held by no entry of the four call lists
// or the callbacks, and not handed out before within the same time stamp (an id handed out for an
// occurrence that merged into an earlier entry stays taken for that second, so two calls of one
// second never share one). Ids of an earlier second cannot meet a new one, so only the current
// second's are remembered besides the entries'.
//
// Owned by the journal service. The lists report every entry that arrives or leaves under their
// own locks; ids are handed out on the CSTA event thread. The registry's lock is a leaf.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "framework/Semaphore.h"
#include "framework/ThreadAnnotations.h"

class EntryIds {
 public:
  EntryIds();

  // `stamp` followed by the first free value from `digits` on, as eight upper-case hexadecimal
  // digits; taken until the time stamp changes or an entry holds it.
  std::string handOut(const std::string& stamp, uint32_t digits);
  // An entry with `id` arrived in a list. False when another entry holds it already (the entry
  // is then counted too, and must be given another id or leave).
  bool hold(const std::string& id);
  // The first id free after `taken` in its time stamp (or, for an id of another form, after `taken`
  // itself), held at once for an entry that has to give up `taken`.
  std::string holdFree(const std::string& taken);
  // An entry with `id` left its list.
  void release(const std::string& id);

  // The digits of an id of this form; false for another form.
  static bool splitId(const std::string& id, std::string& stamp, uint32_t& digits);

 private:
  bool isFreeLocked(const std::string& id) const REQUIRES(m_lock);

  mutable Semaphore m_lock;  // a leaf: nothing is taken while it is held
  // Ids of the entries in the lists, with how many hold each.
  std::unordered_map<std::string, unsigned> m_held GUARDED_BY(m_lock);
  std::string m_stamp GUARDED_BY(m_lock);  // the time stamp of the ids in m_handedOut
  std::unordered_set<std::string> m_handedOut GUARDED_BY(m_lock);
};
