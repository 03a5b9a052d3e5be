// Calls of the event console protocol. They do nothing and return 0 unless the correction "event-console" is
// on; rnq_errno tells why rnq_create_OPX_handle gave no handle.
#pragma once

extern thread_local int rnq_errno;

// Turns the working calls on (the correction "event-console") or off; off at start.
void rnq_enable(bool on);

int rnq_create_OPX_handle(char* configurationFile, int mode, int flags);
int rnq_destroy_handle(int handle);
int rnq_agent_getenv_r(int handle, char* name);
int rnq_put_event(int handle, char* text);
