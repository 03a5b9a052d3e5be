// The availability table, "Availability": is each process running that the reference file names, and does each
// functionality test pass? One for the agent, of fixed shape, filled by the sections `process_list` and `app_ping_list`. A
// row comes for each functionality test, for each process that matches a filter (a process that two filters match has two),
// for each filter without a match, and for each child of a matching process where the filter asks for it.
//
// The filters are added while the reference file is read, on one thread, and stay as they are. Not for subnodes.
#pragma once

#include <memory>

#include "collection/FixedMetrics.h"
#include "collection/ResultsManager.h"
#include "providers/local/availability/ApplicationPingListElement.h"
#include "providers/local/availability/AvailabilityResult.h"
#include "providers/local/availability/ElementChain.h"
#include "providers/local/availability/ProcessListElement.h"
#include "providers/local/availability/ServiceListElement.h"

extern const FixedMetric AVAIL_METRICS[];  // ended by a null name; the first is the key

class AvailabilityList : public ResultsManager {
  public:
    static constexpr const char* kAttributeGroup = "Availability";

    explicit AvailabilityList(const char* application);
    ~AvailabilityList() override;

    void printResults() override;
    const char* getPerfObjectName() override { return kAttributeGroup; }
    int getPerfObjectStatus() override { return 0; }
    int getPerfErrorCode() override { return 0; }

    // Traces the filter and adds it behind those before.
    void addProcess(const ProcessFilter& filter);
    // Both take over the element.
    void addService(ServiceListElement* service) { services_.append(service); }
    void addFunctionalityTest(ApplicationPingListElement* test) { tests_.append(test); }

    const ProcessListElement* firstProcessFilter() const { return processes_.first(); }
    const ServiceListElement* firstServiceFilter() const { return services_.first(); }
    ApplicationPingListElement* firstFunctionalityTest() const { return tests_.first(); }

  protected:
    // A row of 16 cells in the order of the columns, named by its component. Texts are taken as UTF-8.
    std::unique_ptr<ResultInstance> makeRow(const AvailabilityResultListElement& result) const;
    void addResult(const AvailabilityResultListElement& result) { addResultInstance(makeRow(result).release()); }
    // Runs each functionality test, one after the other, and adds its row. Takes up to the time-out of each.
    void collectAppPingData();

  private:
    ElementChain<ProcessListElement> processes_;
    ElementChain<ServiceListElement> services_;
    ElementChain<ApplicationPingListElement> tests_;
};

// The agent's availability table; null until a section asks for it.
extern AvailabilityList* availList;

// The table of this platform. The second argument is passed on unread.
AvailabilityList* getPlatformSpecificAvailabilityList(const char* application, void* unused);

// availList, made and put among all query classes by the first call. Only while the reference file is read.
AvailabilityList* requireAvailabilityList();
