// Small conveniences whose exact behaviour shows in the results: numbers from texts, trimming, substitution of
// variables, host names.
#pragma once

#include "foundation/Timestamp.h"

// strtoll in base 10. Null, or a text that strtoll calls invalid, gives 0; leftover characters and an overflow keep
// the number. Each of these is traced.
long long factory_atoll(const char* text);

// Removes blanks, tabs, carriage returns and line feeds at both ends, in place.
void trim_string(char* text);

// Whether ${NAME} may be replaced in a text of the reference file.
bool isSubstituteAllowed(const char* name);

// The fully qualified name of a host into `out` (256 bytes), empty if none is known. Returns 0.
int getfqhostname(const char* host, char* out);

class Utilities {
  public:
    // setpriority on the process.
    static void setPriority(int priority);

    // Replaces each ${NAME}, line by line. With a subnode type and ID the value is the subnode's, else the plain
    // configuration property. Unless `allowAll`, only names that isSubstituteAllowed knows are replaced; any other
    // reference disappears. The caller frees the result. Defined in config/.
    static char* substituteEnvVars(const char* text, const char* subnodeType, const char* subnodeId, bool allowAll);

    // The weighted mean used for durations and queue figures. Kept: an average of -1.0 or a count of 0 gives the
    // value, otherwise (value / count + average) / (1 + 1 / count).
    static double calculateAverage(double average, double value, int count);
};
