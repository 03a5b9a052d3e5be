// ConfigIndex: beside the flat map of the configuration, what is asked of it by value or by the end of a name, so that
// neither needs a walk of all properties.
#pragma once

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>

class ConfigIndex {
  public:
    // Called for each entry that comes into the map, and before it leaves it.
    void entered(const char* name, const char* value);
    void leaves(const char* name, const char* value);

    // The lowest N of 1 to `highest` for which STEM_IDLABEL_N has this value; 0 if there is none.
    int lowestIndex(const std::string& stem, const char* label, int highest) const;
    // Calls f(name) for every name whose part behind its last '_' is `part` (`byPrefix`: begins with it).
    template <class F>
    void forEachEndingWith(const char* part, bool byPrefix, F f) const {
        const std::string_view wanted = part;
        for (auto it = byLastPart_.lower_bound(wanted); it != byLastPart_.end(); ++it) {
            const bool fits = byPrefix ? it->first.compare(0, wanted.size(), wanted) == 0 : it->first == wanted;
            if (!fits) return;
            for (const std::string& name : it->second) f(name);
        }
    }

  private:
    std::unordered_map<std::string, std::set<int>> labels_;  // by STEM, '\n', value
    std::map<std::string, std::set<std::string>, std::less<>> byLastPart_;
};
