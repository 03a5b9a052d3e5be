// What the agent can be told to do, declared to the framework by name.
#pragma once

// Declares the agent's own commands and the tasks of the library, in the order of the reference file, and tells how a
// task's command is made of its values. Once, when the reference file has been read.
void declareTasks();
