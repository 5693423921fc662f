// The journal's client interface: what the phone's user interface and remote clients (through the
// request invoker) may ask of the journal service. Implemented by JournalService; calls may come
// from any thread.
#pragma once

class JournalServiceIfc {
 public:
  virtual ~JournalServiceIfc() = default;
};
