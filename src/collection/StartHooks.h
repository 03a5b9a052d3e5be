// Registered starts: query classes that need threads, sockets or subscriptions of their own open them at the end of the
// loader, never in a constructor while the reference file is read. Signals are not blocked yet at that time, and a mere
// check of the file must not open a port.
#pragma once

#include <functional>

void registerStart(std::function<void()> start);
// Runs what has been registered, once each, in order. Called by the loader.
void runRegisteredStarts();
