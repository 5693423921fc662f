// Base classes of everything the framework runs, and the Context a service gets at start-up.
//
// A service is an Executable: the framework constructs it (through a plug-in factory), calls
// init(Context&) once, delivers timer expiries to timerEvent(int) on its timer thread, and
// finally deletes it. Services find each other by name through the Context; interfaces are
// reached from the Executable* by dynamic_cast.
#pragma once

#include <string>

#pragma GCC visibility push(default)

class Context;
class CommsChannelIfc;
class CommsChannelDataContainerMessage;

class Threadable {
 public:
  virtual ~Threadable();
  virtual void run();
  virtual int getThreadPriorityForPlatform();
  virtual const char* type() const;
};

class Executable {
 public:
  virtual ~Executable();
  virtual void init(Context& context);
  virtual void shutdown();
  virtual void timerEvent(int timerId);
};

class Service : public Executable, public Threadable {
 public:
  ~Service() override;
  // Messages of the framework's own channels; the journal keeps this default, which ignores them.
  virtual void handleMsg(const char* name, int id, std::string data, CommsChannelIfc& channel,
                         CommsChannelDataContainerMessage* message);
  void run() override;
};

// What a service may ask of the framework. Timers are one-shot: createTimer arms a timer that
// fires once after `delayMs`; restartTimer arms it again with the same delay counted from now;
// deleteTimer forgets it. Expiries are delivered to owner->timerEvent(id) on the timer thread.
class Context {
 public:
  virtual ~Context();
  // The service registered under `name`, or null.
  virtual Executable* findService(const std::string& name) = 0;
  // Returns the new timer's id (positive), or -1 when no timer can be made.
  virtual int createTimer(Executable* owner, int delayMs) = 0;
  // False for an unknown id.
  virtual bool restartTimer(int timerId) = 0;
  virtual bool deleteTimer(int timerId) = 0;
};

#pragma GCC visibility pop
