// The managed system name of a subnode, AA:KEY:TTT, as pure text.
#pragma once

enum { MANAGED_SYSTEM_NAME_SIZE = 33 };

// At most 32 characters: of a product name longer than two characters the two from position 1, in upper case; 25
// characters of the key; 3 of the type. Into `buffer` (33 bytes), or into a malloc'd text if it is null. Null for a
// null argument.
char* generateSubnodeManagedSystemName(const char* appl, const char* key, const char* type, char* buffer);
