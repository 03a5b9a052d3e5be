#include "config/ConfigIndex.h"

#include <charconv>
#include <cstring>

namespace {

constexpr std::string_view kLabel = "_IDLABEL_";

struct Label {
    std::string_view stem;
    int index = 0;  // 0: the name is no label's
};

// Of STEM_IDLABEL_N with N written as the map writes it: above 0, in decimal, no zero in front.
Label labelOf(std::string_view name) {
    const std::size_t at = name.rfind(kLabel);
    if (at == std::string_view::npos) return {};
    const char* number = name.data() + at + kLabel.size();
    const char* end = name.data() + name.size();
    Label label{name.substr(0, at), 0};
    const auto [stop, error] = std::from_chars(number, end, label.index);
    if (error != std::errc() || stop != end || *number == '0' || label.index < 1) return {};
    return label;
}

std::string keyOf(std::string_view stem, const char* value) {
    std::string key(stem);
    key += '\n';
    return key += value;
}

std::string_view lastPart(const char* name) {
    const char* last = std::strrchr(name, '_');
    return last ? last + 1 : std::string_view();
}

}  // namespace

void ConfigIndex::entered(const char* name, const char* value) {
    if (!std::strchr(name, '_')) return;
    byLastPart_[std::string(lastPart(name))].insert(name);
    if (const Label label = labelOf(name); label.index > 0) labels_[keyOf(label.stem, value)].insert(label.index);
}

void ConfigIndex::leaves(const char* name, const char* value) {
    const auto part = byLastPart_.find(lastPart(name));
    if (part != byLastPart_.end()) {
        part->second.erase(name);
        if (part->second.empty()) byLastPart_.erase(part);
    }
    const Label label = labelOf(name);
    if (label.index == 0) return;
    const auto found = labels_.find(keyOf(label.stem, value));
    if (found == labels_.end()) return;
    found->second.erase(label.index);
    if (found->second.empty()) labels_.erase(found);
}

int ConfigIndex::lowestIndex(const std::string& stem, const char* label, int highest) const {
    const auto found = labels_.find(keyOf(stem, label));
    if (found == labels_.end()) return 0;
    const int lowest = *found->second.begin();
    return lowest <= highest ? lowest : 0;
}
