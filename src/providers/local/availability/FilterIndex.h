// The process filters, found by base name: a process costs what matches it, not the number of filters.
#pragma once

#include <string_view>
#include <unordered_map>
#include <vector>

#include "providers/local/availability/ProcessListElement.h"

class FilterIndex {
  public:
    // The chain of filters outlives the index.
    explicit FilterIndex(const ProcessListElement* first);

    std::size_t count() const { return filters_.size(); }
    const ProcessListElement& filter(std::size_t number) const { return *filters_[number]; }
    // Numbers of the filters that match the process, ascending; valid until the next call.
    const std::vector<std::size_t>& matching(ProcessText& process);

  private:
    using Numbers = std::vector<std::size_t>;

    std::vector<const ProcessListElement*> filters_;      // in the order of the reference file
    std::unordered_map<std::string_view, Numbers> named_;  // by folded base name
    Numbers wildcards_;
    Numbers matching_;
};
