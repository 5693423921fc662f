#include "framework/Invoker.h"

InvokerResponse::~InvokerResponse() = default;
ProxyRequest::~ProxyRequest() = default;
Proxy::~Proxy() = default;
Invoker::~Invoker() = default;
void Invoker::initInvoker(FrameworkContext*) {}
