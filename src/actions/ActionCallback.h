// The door through which every action comes in: shutdown, changes of the configuration, declared tasks, command text.
#pragma once

#include <memory>
#include <string>
#include <vector>

class AghbxAutomationCapsule;
class aghbx;
struct ConfigOpStatus;

// Carries out the capsule's command on this thread and finishes the capsule. Several may run at once. Returns 0.
extern "C" int actionCallback(AghbxAutomationCapsule* capsule);

// Whether the command starts with the name and a blank, a '[' or nothing follows.
bool commandNameIs(const char* command, const char* name);

// The arguments of "NAME[first:second][third]…": pure. `present` is false where there is no '['.
struct BracketArguments {
    bool present = false;
    std::string first;
    bool hasSecond = false;
    std::string second;
    std::vector<std::string> rest;
};
BracketArguments parseBracketArguments(const char* command);

// Carries out ADDCONFIG and REMOVECONFIG; null for any other command.
std::unique_ptr<ConfigOpStatus> handleConfigUpdates(const char* command);

// The managed system that a request is for, into a malloc'd text (null if none is known). True if it is a subnode.
bool determineName(aghbx* request, int row, char** name);
