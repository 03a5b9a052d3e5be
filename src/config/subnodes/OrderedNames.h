// OrderedNames: a set of texts that keeps the order of adding. Adding, removing and finding are hash probes.
#pragma once

#include <list>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

class OrderedNames {
  public:
    // False if it is there already.
    bool add(std::string_view name) {
        if (contains(name)) return false;
        const auto at = order_.emplace(order_.end(), name);
        places_.emplace(*at, at);
        return true;
    }
    bool remove(std::string_view name) {
        const auto found = places_.find(name);
        if (found == places_.end()) return false;
        const auto at = found->second;
        places_.erase(found);  // first: its key is the text of the list
        order_.erase(at);
        return true;
    }
    bool contains(std::string_view name) const { return places_.find(name) != places_.end(); }
    bool empty() const { return order_.empty(); }
    std::size_t size() const { return order_.size(); }
    std::vector<std::string> inOrder() const { return {order_.begin(), order_.end()}; }

  private:
    std::list<std::string> order_;
    std::unordered_map<std::string_view, std::list<std::string>::iterator> places_;
};
