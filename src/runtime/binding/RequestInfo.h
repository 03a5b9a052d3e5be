// Request info: what a request says beyond its filter to the query classes of groups that ask for it, and the filter as
// text.
#pragma once

#include <string>

#include "foundation/HashMap.h"
#include "foundation/List.h"
#include "platform/zhb.h"

// One entry; all texts malloc'd, the operators may be null.
struct RequestInfoEntry {
    char* name = nullptr;
    char* value = nullptr;
    char* firstOperator = nullptr;
    char* secondOperator = nullptr;
};

// A list of RequestInfoEntry* that it owns.
class RequestInfoList : public List {
  public:
    ~RequestInfoList() override;
    // Takes over `value`.
    void addEntry(const char* name, char* value, int firstOperator, int secondOperator);
};

// "EQ" and the like for numbers 0 to 9, else null.
const char* filterOperatorName(int number);
// "STRSCAN" and the like for numbers 0 to 15, else null.
const char* filterFunctionName(int number);
// The value of an element as text: decimal for the two integer types, the bytes otherwise.
std::string filterValueText(const ZFL1_FILTERINFO& element);
// The column an element stands for: the name it carries replaces "PARMA".
const char* filterElementName(const ZFL1_FILTERINFO& element);

// The request's filter as one condition: "((CPU GT 80)  AND (NAME EQ 'x') )"; "OR" closes and opens a group.
std::string serializeFilter(aghbx* request);
// Traces each element, values cut to 32 bytes.
void dumpFilter(aghbx* request);
// Adds an entry for each element whose column is in the map.
void addFilterEntries(aghbx* request, const HashMap& wanted, RequestInfoList* entries);
