#include "collection/rates/RateDelta.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "collection/rows/ResultMetric.h"
#include "foundation/Convert.h"
#include "foundation/Trace.h"

namespace rates {

namespace {

using U64 = unsigned long long;

constexpr int kMax = INT_MAX;
constexpr int kMin = INT_MIN;

// What a numeric cell's value and the one before give.
struct Change {
    long long delta64 = 0;  // never touched by a wrap
    int delta32 = 0;
    double deltaD = 0.0;
    bool wrapped = false;
};

bool is64BitType(int type) {
    return type == DELTA_64BIT_DATA || type == RATE_64BIT_DATA || type == PERCENT_DELTA_64BIT_DATA;
}

const char* nameOf(const ResultMetric& cell) { return cell.getQMPVMetricName() ? cell.getQMPVMetricName() : ""; }

long long difference(U64 current, U64 previous) { return static_cast<long long>(current - previous); }

Change changeOf(const ResultMetric& cell, U64 current, U64 previous) {
    TRACE_MESSAGES();
    const bool narrow = !is64BitType(cell.getRawMetricType());
    Change c;
    c.delta64 = difference(current, previous);
    c.delta32 = convert::low32(c.delta64);
    if (current < previous && cell.isCounter()) {
        trace_detail("Metric %s value wrapped.  current (%llu) <  prev (%llu)", nameOf(cell), current, previous);
        c.delta32 = 0;
        c.wrapped = true;
    } else if (c.delta64 > kMax && narrow) {
        trace_detail("Metric %s delta of %lld exceeds max.", nameOf(cell), c.delta64);
        trace_detail("Delta = %lld  (%llu - %llu).", c.delta64, current, previous);
        c.delta32 = kMax;
    } else if (c.delta64 < kMin && narrow) {
        trace_detail("Metric %s delta of %lld exceeds max min.", nameOf(cell), c.delta64);
        trace_detail("Delta = %lld  (%lld - %lld).", c.delta64, static_cast<long long>(current), static_cast<long long>(previous));
        c.delta32 = kMin;
    }
    return c;
}

Change changeOf(const ResultMetric& cell, long long current, long long previous) {
    TRACE_MESSAGES();
    const bool narrow = !is64BitType(cell.getRawMetricType());
    Change c;
    c.delta64 = difference(static_cast<U64>(current), static_cast<U64>(previous));
    c.delta32 = convert::low32(c.delta64);
    if (current < 0 || previous < 0) {
        trace_detail("Delta metric %s was computed using negative values.", nameOf(cell));
        trace_detail("Delta = %lld  (%lld - %lld).", c.delta64, current, previous);
    }
    if (current < previous && cell.isCounter()) {
        trace_detail("Metric %s value wrapped.  current (%lld) <  prev (%lld)", nameOf(cell), current, previous);
        c.delta32 = 0;
        c.wrapped = true;
    } else if (c.delta64 > kMax && !narrow) {
        // Kept: the opposite test of the other forms. A 32-bit delta over the maximum keeps its low 32 bits here, and a
        // 64-bit one passes unchanged, as it is stored from delta64.
        trace_detail("Metric %s delta of %lld exceeds max.", nameOf(cell), c.delta64);
        trace_detail("Delta = %lld  (%lld - %lld).", c.delta64, current, previous);
        c.delta32 = kMax;
    } else if (c.delta64 < kMin && narrow) {
        trace_detail("Metric %s delta of %lld exceeds max min.", nameOf(cell), c.delta64);
        trace_detail("Delta = %lld  (%lld - %lld).", c.delta64, current, previous);
        c.delta32 = kMin;
    }
    return c;
}

Change changeOf(const ResultMetric& cell, double current, double previous) {
    TRACE_MESSAGES();
    const bool narrow = !is64BitType(cell.getRawMetricType());
    Change c;
    c.deltaD = current - previous;
    if (current < 0 || previous < 0) {
        trace_detail("Delta metric %s was computed using negative values.", nameOf(cell));
        trace_detail("Delta = %f  (%f - %f).", c.deltaD, current, previous);
    }
    if (current < previous && cell.isCounter()) {
        trace_detail("Metric %s value wrapped.  current (%f) <  prev (%f)", nameOf(cell), current, previous);
        c.deltaD = 0.0;
        c.wrapped = true;
    } else if (c.deltaD > kMax && narrow) {
        // Kept: the maximum goes to the integer delta and leaves the double one as it is, the minimum does the reverse.
        trace_detail("Metric %s delta of %f exceeds max.", nameOf(cell), c.deltaD);
        trace_detail("Delta = %f  (%f - %f).", c.deltaD, current, previous);
        c.delta32 = kMax;
    } else if (c.deltaD < kMin && narrow) {
        trace_detail("Metric %s delta of %f exceeds max min.", nameOf(cell), c.deltaD);
        trace_detail("Delta = %f  (%lld - %lld).", c.deltaD, convert::toInt64(current), convert::toInt64(previous));
        c.deltaD = kMin;
    }
    return c;
}

double asDouble(const Change& c, double) { return c.deltaD; }
template <class T>
double asDouble(const Change& c, T) {
    return static_cast<double>(c.delta64);
}

template <class T>
void storePercent(ResultMetric* cell, const Change& c, T previous) {
    TRACE_MESSAGES();
    double percent = 0.0;
    // Kept: the half rounds positive percentages to the nearest and moves negative ones toward zero; a wrap does not zero
    // this result, as the raw difference stays.
    if (previous != T{}) percent = 0.5 + asDouble(c, previous) / static_cast<double>(previous) * 100.0;
    trace_state("Computed a Percent Delta of %g for %s.", percent, nameOf(*cell));
    if (cell->getRawMetricType() == PERCENT_DELTA_DATA) {
        cell->setMetricValue(convert::toInt32(percent));
    } else {
        cell->setMetricValue(convert::toInt64(percent));
    }
}

// Kept: a 64-bit cell of this type becomes a 32-bit integer cell.
void storePrevious(ResultMetric* cell, long long previous) {
    if (cell->isNumber()) {
        cell->setMetricValue(convert::low32(previous));
    } else {
        cell->setMetricValue(previous > kMax ? kMax : previous < kMin ? kMin : static_cast<int>(previous));
    }
}
void storePrevious(ResultMetric* cell, U64 previous) {
    cell->setMetricValue(previous > kMax ? kMax : static_cast<int>(previous));
}
void storePrevious(ResultMetric* cell, double previous) { cell->setMetricValue(previous); }

// The 32-bit rate of a 64-bit one, limited unless the type is the 64-bit one.
int limitedRate(const ResultMetric& cell, const Change& c, long long rate64, long interval, bool isUnsigned) {
    TRACE_MESSAGES();
    const bool narrow = cell.getRawMetricType() != RATE_64BIT_DATA;
    if (rate64 > kMax && narrow) {
        if (isUnsigned) {
            trace_detail("Metric %s Rate of %llu exceeds max.", nameOf(cell), static_cast<U64>(rate64));
            trace_detail("Rate %llu = %llu / %ld", static_cast<U64>(rate64), static_cast<U64>(c.delta64), interval);
        } else {
            trace_detail("Metric %s Rate of %lld exceeds max.", nameOf(cell), rate64);
            trace_detail("Rate %lld = %lld / %ld.", rate64, c.delta64, interval);
        }
        return kMax;
    }
    if (rate64 < kMin && narrow) {
        trace_detail("Metric %s Rate of %lld exceeds max min.", nameOf(cell), rate64);
        trace_detail("Rate %lld = %lld / %ld.", rate64, c.delta64, interval);
        return kMin;
    }
    return convert::low32(rate64);
}

void storeRate(PrevResult* previous, ResultMetric* cell, const Change& c, time_t now) {
    TRACE_MESSAGES();
    long interval = static_cast<long>(now - previous->getTime());
    if (interval < 1) interval = 1;
    previous->setTime(now);
    if (cell->isNumberDouble()) {
        const double rate = c.wrapped ? 0.0 : c.deltaD / static_cast<double>(interval);
        cell->setMetricValue(rate);
        trace_state("Computed a decimal Rate of %g for %s.", rate, nameOf(*cell));
    } else {
        const long long rate64 = c.wrapped ? 0 : c.delta64 / interval;
        const int rate32 = c.wrapped ? 0 : limitedRate(*cell, c, rate64, interval, cell->isNumberU64());
        if (cell->getRawMetricType() == RATE_64BIT_DATA) {
            cell->setMetricValue(rate64);
            trace_state("Computed a 64 bit Rate of %lld for %s.", rate64, nameOf(*cell));
        } else {
            cell->setMetricValue(rate32);
            trace_state("Computed a Rate of %d for %s.", rate32, nameOf(*cell));
        }
    }
    trace_state("TimeInterval %llu;", static_cast<U64>(interval));
}

void storeDelta(ResultMetric* cell, const Change& c) {
    TRACE_MESSAGES();
    if (cell->isNumberDouble()) {
        trace_state("Computed a Delta of %f for %s.", c.deltaD, nameOf(*cell));
    } else {
        trace_state("Computed a Delta of %d for %s.", c.delta32, nameOf(*cell));
    }
    // Kept: the integer is stored for a double cell too, and makes it an integer cell; outside the limits it is 0.
    cell->setMetricValue(c.delta32);
}

void storeDelta64(ResultMetric* cell, const Change& c) {
    TRACE_MESSAGES();
    if (cell->isNumberDouble()) {
        trace_state("Computed a decimal Delta of %f for %s.", c.deltaD, nameOf(*cell));
        cell->setMetricValue(c.deltaD);
    } else {
        trace_state("Computed a 64 bit Delta of %f for %s.", static_cast<double>(c.delta64), nameOf(*cell));
        // Kept: a counter that wrapped shows the raw negative difference here, not 0.
        cell->setMetricValue(c.delta64);
    }
}

template <class T>
void computeNumber(PrevResult* previous, ResultMetric* cell, T current, T before, time_t now) {
    TRACE_MESSAGES();
    previous->setValue(current);
    const Change c = changeOf(*cell, current, before);
    switch (cell->getRawMetricType()) {
        case VALUE_CHANGED:
            trace_state("Found the value changed as %d for %s.", c.delta32, nameOf(*cell));
            // Kept: looks at the integer delta alone, which a double cell only has at its limits.
            cell->setMetricValue(c.delta32 != 0 ? 1 : 0);
            break;
        case DELTA_DATA:
            storeDelta(cell, c);
            break;
        case DELTA_64BIT_DATA:
            storeDelta64(cell, c);
            break;
        case PERCENT_DELTA_DATA:
        case PERCENT_DELTA_64BIT_DATA:
            storePercent(cell, c, before);
            break;
        case PREVIOUS_NUMERIC_DATA:
            storePrevious(cell, before);
            break;
        default:  // the rates, and also a previous string's type on a number
            storeRate(previous, cell, c, now);
            break;
    }
}

void wrongTextType(const ResultMetric& cell) {
    TRACE_MESSAGES();
    trace_error("Expecting PREVIOUS_STRING_DATA or VALUE_CHANGED for %s\n", nameOf(cell));
}

void computeUtf8(PrevResult* previous, ResultMetric* cell) {
    const UTF8String* held = cell->getUTF8StringData();
    if (!previous->getValueUTF8String()) previous->setValue(held->getDeepCopy());
    std::unique_ptr<UTF8String> current(held->getDeepCopy());
    if (cell->getRawMetricType() == PREVIOUS_STRING_DATA) {
        cell->setMetricValue(previous->getValueUTF8String()->getDeepCopy());
    } else if (cell->getRawMetricType() == VALUE_CHANGED) {
        cell->setMetricValue(current->isEqual(previous->getValueUTF8String()) ? 0 : 1);
    } else {
        wrongTextType(*cell);
    }
    previous->setValue(current.release());
}

void computeText(PrevResult* previous, ResultMetric* cell) {
    const char* held = cell->getStringValue() ? cell->getStringValue() : "";
    if (!previous->getValueString()) previous->setValue(static_cast<const char*>(strdup(held)));
    const char* current = strdup(held);
    if (cell->getRawMetricType() == PREVIOUS_STRING_DATA) {
        cell->setMetricValue(strdup(previous->getValueString()));
    } else if (cell->getRawMetricType() == VALUE_CHANGED) {
        cell->setMetricValue(std::strcmp(current, previous->getValueString()) == 0 ? 0 : 1);
    } else {
        wrongTextType(*cell);
    }
    previous->setValue(current);
}

}  // namespace

PrevResult* previousOf(const ResultMetric& cell, PrevResultInstance* row, time_t now) {
    TRACE_MESSAGES();
    if (PrevResult* found = row->find(cell.getQMPVMetricName())) return found;
    trace_detail("Did not find an already initialized result for %s, creating one\n", nameOf(cell));
    auto* made = new PrevResult(cell.getQMPVMetricName());
    switch (cell.form()) {
        case FORM_INT:
            made->setValue(static_cast<long long>(cell.getMetricValue()));
            break;
        case FORM_INT64:
            made->setValue(cell.getMetricValue64());
            break;
        case FORM_UINT64:
            made->setValue(cell.getMetricValueU64());
            break;
        case FORM_DOUBLE:
            made->setValue(cell.getMetricValueDouble());
            break;
        case FORM_UTF8:
            made->setValue(cell.getUTF8StringData()->getDeepCopy());
            break;
        case FORM_STRING:
            made->setValue(static_cast<const char*>(strdup(cell.getStringValue() ? cell.getStringValue() : "")));
            break;
        default:
            trace_error("Expecting string/unicode/S64/U64 but did not find any, leaving previous metric for %s uninitialized\n",
                        nameOf(cell));
            break;
    }
    made->setTime(now);
    row->addPrevResult(made);
    return made;
}

void compute(PrevResult* previous, ResultMetric* cell, time_t now) {
    TRACE_MESSAGES();
    switch (cell->form()) {
        case FORM_UTF8:
            computeUtf8(previous, cell);
            break;
        case FORM_STRING:
            computeText(previous, cell);
            break;
        case FORM_INT:
            computeNumber(previous, cell, static_cast<long long>(cell->getMetricValue()), previous->getValue64(), now);
            break;
        case FORM_INT64:
            computeNumber(previous, cell, cell->getMetricValue64(), previous->getValue64(), now);
            break;
        case FORM_UINT64:
            computeNumber(previous, cell, cell->getMetricValueU64(), previous->getValueU64(), now);
            break;
        case FORM_DOUBLE:
            computeNumber(previous, cell, cell->getMetricValueDouble(), previous->getValueDouble(), now);
            break;
        default:
            trace_error("Did not enounter a valid rate/delta for %s\n", nameOf(*cell));
            break;
    }
}

}  // namespace rates
