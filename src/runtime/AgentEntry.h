// The entry functions of the agent, known by name, and the objects of the process.
#pragma once

extern "C" {
// Derives the instance name, reads the reference file, makes the lists. Returns the seven application texts
// (agentInfo), or null for an instance argument without a separator. A bad reference file ends the process.
void* AgPreInit(int argc, char** argv);
// Declares the agent to the framework and registers the loader and the command callback. Returns 0.
int AgInit();
// Called once by the framework, on the main thread, at the end of its loop.
void AgTerminate();
}

// The loader: makes the parsed reference file live tables. Returns 0.
int load_agents();

// The atexit hook; writes trace entries only.
void stop_exit();

// The instance name that the arguments and the environment give. False for an argument without a separator.
bool deriveInstanceName(int argc, const char* const* argv, const char* hostName, char** instance);

// Collects all discovery classes once and compares what they report. One pass of the discovery thread.
void updateDiscoveryAttributeGroups();

// Starts the discovery thread; stops pool, refresh, discovery and zombie threads. stopBackgroundThreads is false if one of them
// did not end in time or a request still runs; then their objects stay.
void startDiscoveryThread();
bool stopBackgroundThreads(long milliseconds);
