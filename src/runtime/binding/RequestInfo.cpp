#include "runtime/binding/RequestInfo.h"

#include <cstdlib>
#include <cstring>

#include "foundation/Trace.h"

namespace {

constexpr const char* kOperators[] = {"None", "EQ", "NE", "GE", "LE", "LT", "GT", "OR", "AND", "NOT"};
constexpr const char* kFunctions[] = {"None",   "PARMA", "MATCH", "FIRST",  "LAST",    "EVENT",  "STRSCAN", "SUBSTR",
                                      "MKTIME", "TRIM",  "TARGET", "HISTORY", "SEARCH", "REGE",   "REGESUB", "CHGRATE"};
constexpr const char* kParma = "PARMA";
constexpr int kParmaSize = 300;
constexpr int kTraceWidth = 32;

template <std::size_t N>
const char* nameAt(const char* const (&names)[N], int i) {
    return i >= 0 && i < static_cast<int>(N) ? names[i] : nullptr;
}

char* copyOf(const char* text) { return text ? strdup(text) : nullptr; }

ZFL1_FILTERINFO* nextElement(aghbx* request) {
    ZFL1_FILTERINFO* element = nullptr;
    return request->GetFilterInfo(&element) == 0 ? element : nullptr;
}

bool isParma(const ZFL1_FILTERINFO& e) { return e.column && std::strcmp(e.column, kParma) == 0; }

bool isNumber(const ZFL1_FILTERINFO& e) { return e.dataType == HBX_DATA_INT32 || e.dataType == HBX_DATA_INT64; }

std::string elementText(const ZFL1_FILTERINFO& e) {
    const char* column = e.column ? e.column : "";
    const char* oper = filterOperatorName(e.oper);
    std::string text = "(";
    if (e.function == HBX_FN_SCAN) {
        text += std::string("SCAN(") + column + ")";
    } else if (e.function == HBX_FN_SUBSTR) {
        text += std::string("SUBSTR(") + column + ")";
    } else {
        text += column;
    }
    text += std::string(" ") + (oper ? oper : "None") + " ";
    text += isNumber(e) ? filterValueText(e) : "'" + filterValueText(e) + "'";
    return text + ") ";
}

}  // namespace

const char* filterOperatorName(int number) { return nameAt(kOperators, number); }
const char* filterFunctionName(int number) { return nameAt(kFunctions, number); }

RequestInfoList::~RequestInfoList() {
    while (auto* e = static_cast<RequestInfoEntry*>(pop())) {
        std::free(e->name);
        std::free(e->value);
        std::free(e->firstOperator);
        std::free(e->secondOperator);
        delete e;
    }
}

void RequestInfoList::addEntry(const char* name, char* value, int firstOperator, int secondOperator) {
    add(new RequestInfoEntry{copyOf(name), value, copyOf(filterOperatorName(firstOperator)),
                             copyOf(filterOperatorName(secondOperator))});
}

std::string filterValueText(const ZFL1_FILTERINFO& e) {
    if (!e.value) return "";
    if (e.dataType == HBX_DATA_INT32) return std::to_string(*static_cast<const int*>(e.value));
    if (e.dataType == HBX_DATA_INT64) return std::to_string(*static_cast<const long long*>(e.value));
    return std::string(static_cast<const char*>(e.value), static_cast<std::size_t>(e.valueLength > 0 ? e.valueLength : 0));
}

const char* filterElementName(const ZFL1_FILTERINFO& e) {
    TRACE_MESSAGES();
    if (!isParma(e) || e.size != kParmaSize || !e.hasName || !e.name) return e.column ? e.column : "";
    trace_detail("Replacing PARMA with %s", e.name);
    return e.name;
}

std::string serializeFilter(aghbx* request) {
    TRACE_FUNCTION();
    std::string text = "(";
    bool first = true;
    int connective = INTF_NONE;  // the operator of the element printed last
    request->ResetFilterIndex();
    while (const ZFL1_FILTERINFO* e = nextElement(request)) {
        if (isParma(*e)) continue;
        if (!first) {
            const char* oper = filterOperatorName(connective);
            text += connective == INTF_OR ? std::string(") OR (") : " " + std::string(oper ? oper : "AND") + " ";
        }
        text += elementText(*e);
        connective = e->oper2;
        first = false;
    }
    request->ResetFilterIndex();
    text += ")";
    trace_detail("filter : %s\n", text.c_str());
    return text;
}

void dumpFilter(aghbx* request) {
    TRACE_FUNCTION();
    int number = 0;
    request->ResetFilterIndex();
    while (const ZFL1_FILTERINFO* e = nextElement(request)) {
        const char* function = filterFunctionName(e->function);
        const char* oper = filterOperatorName(e->oper);
        const char* oper2 = filterOperatorName(e->oper2);
        trace_detail("filter[%d] function=%s column=%s oper=%s value=%.*s oper2=%s type=%d", number++,
                     function ? function : "?", e->column ? e->column : "", oper ? oper : "?", kTraceWidth,
                     filterValueText(*e).c_str(), oper2 ? oper2 : "?", e->dataType);
    }
    request->ResetFilterIndex();
}

void addFilterEntries(aghbx* request, const HashMap& wanted, RequestInfoList* entries) {
    TRACE_FUNCTION();
    request->ResetFilterIndex();
    const ZFL1_FILTERINFO* e = nextElement(request);
    while (e) {
        const char* name = filterElementName(*e);
        if (wanted.contains(name)) {
            entries->addEntry(name, strdup(filterValueText(*e).c_str()), e->oper, e->oper2);
        }
        const bool scan = e->function == HBX_FN_SCAN;
        e = nextElement(request);
        if (scan && !e) trace_detail("STRSCAN element of filter not complete.");
    }
    request->ResetFilterIndex();
}
