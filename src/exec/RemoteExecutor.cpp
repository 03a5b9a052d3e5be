#include "exec/RemoteExecutor.h"

#include <atomic>

namespace {
constinit std::atomic<RemoteExecutorFactory> registered{nullptr};
}

void registerRemoteExecutorFactory(RemoteExecutorFactory factory) { registered.store(factory); }

RemoteExecutorFactory remoteExecutorFactory() { return registered.load(); }
