#include "framework/Executable.h"

Threadable::~Threadable() = default;
void Threadable::run() {}
int Threadable::getThreadPriorityForPlatform() { return 0; }
const char* Threadable::type() const { return "Threadable"; }

Executable::~Executable() = default;
void Executable::init(Context&) {}
void Executable::shutdown() {}
void Executable::timerEvent(int) {}

Service::~Service() = default;
void Service::handleMsg(const char*, int, std::string, CommsChannelIfc&, CommsChannelDataContainerMessage*) {}
void Service::run() {}

Context::~Context() = default;
