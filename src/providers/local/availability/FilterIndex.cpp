#include "providers/local/availability/FilterIndex.h"

#include <algorithm>
#include <iterator>

FilterIndex::FilterIndex(const ProcessListElement* first) {
    for (const auto* f = first; f; f = static_cast<const ProcessListElement*>(f->getNextElement())) {
        (f->isWildcard() ? wildcards_ : named_[f->foldedBaseName()]).push_back(filters_.size());
        filters_.push_back(f);
    }
}

const std::vector<std::size_t>& FilterIndex::matching(ProcessText& process) {
    matching_ = wildcards_;
    const auto named = named_.find(process.baseName());
    if (named == named_.end()) return matching_;
    std::copy_if(named->second.begin(), named->second.end(), std::back_inserter(matching_),
                 [&](std::size_t number) { return filters_[number]->isEqual(process); });
    const auto middle = matching_.begin() + static_cast<std::ptrdiff_t>(wildcards_.size());
    std::inplace_merge(matching_.begin(), middle, matching_.end());
    return matching_;
}
