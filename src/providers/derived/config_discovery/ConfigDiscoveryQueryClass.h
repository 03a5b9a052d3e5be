// The configuration discovery provider: a discovery group takes its rows from the agent's configuration, one row for
// each section of one subnode type that has an ID.
#pragma once

#include <atomic>
#include <string>

#include "collection/ResultsManager.h"

class ConfigDiscoveryQueryClass : public ResultsManager {
  public:
    // As the reference file declares it; null texts count as empty ones.
    ConfigDiscoveryQueryClass(const char* app, const char* ag, const char* subnodeType, const char* subnodeAffinity);
    ~ConfigDiscoveryQueryClass() override;

    void printResults() override;
    void internalCollectData(const char* requestId) override;
    const char* getPerfObjectName() override { return attributeGroupName_.c_str(); }
    int getPerfObjectStatus() override { return status_; }
    int getPerfErrorCode() override { return errorCode_; }
    const char* getClassName() const { return attributeGroupName_.c_str(); }

  private:
    void refreshSnodesFromConfig();
    void freeKeys();
    const char* valueOf(const char* attribute, const char* key) const;
    void addRow(const char* key);

    std::string productCode_;
    int subnodeCount_ = 0;
    char** subnodeKeys_ = nullptr;  // of the last collection; by the thread that collects alone
    std::string subnodeType_;
    std::string subnodeAffinity_;
    std::string attributeGroupName_;
    const PERF_OBJECT_STATUS status_ = PERF_OBJECT_ACTIVE;
    std::atomic<int> errorCode_{OBJECT_ACTIVE};
};
