// Corrections: old rules that give wrong figures on today's machines stand as they are; CDP_CORRECTIONS (names
// separated by commas, or "all") turns on the right behaviour beside them, one by one.
#pragma once

struct Correction {
    const char* name;
    const char* changes;  // one line for people
};

// All corrections, ended by a null name.
const Correction* corrections();

// Whether a correction is on; read from the environment once. An unknown name in CDP_CORRECTIONS is traced.
bool correctionIsOn(const char* name);

// Reads the environment again (tests).
void reloadCorrections();
