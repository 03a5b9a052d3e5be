// A column of a process table: which figure of a process it shows.
#pragma once

#include <string>

#include "collection/rows/Metric.h"

// The figures by their index in the reference file. Indexes between and beyond are figures that this platform lacks.
enum ProcessFigure : int {
    kBaseName = 0,
    kFullName = 1,
    kCommandLine = 2,
    kPid = 3,
    kParentPid = 4,
    kVirtualBytes = 5,  // 32 bits, which wrap
    kVirtualKilobytes = 6,
    kPages = 7,
    kCpuPercent = 8,
    kUserPercent = 9,
    kSystemPercent = 10,
    kTotalIORate = 11,  // bytes a second, as the other two
    kPageFaultRate = 12,
    kThreadCount = 13,
    kResidentKilobytes = 14,
    kDescriptorCount = 15,  // always 0
    kPrivateBytes = 20,     // always 0
    kReadRate = 21,
    kWriteRate = 22,
    kElapsedText = 23,
    kElapsedSeconds = 24,
    kStartTime = 25,  // always the same text
    kNoFigure = -1,
};

class ProcessQueryMetric : public Metric {
  public:
    ProcessQueryMetric(const char* name, int index) : name_(name ? name : ""), index_(index) {}
    const char* getName() const { return name_.c_str(); }
    int getIndex() const { return index_; }

  private:
    std::string name_;
    int index_;
};
