#include "runtime/check/DerivedCheck.h"

#include <map>
#include <set>

#include "collection/rows/RawMetricType.h"
#include "providers/derived/filter/FilterExpression.h"
#include "runtime/check/ReferenceCheck.h"
#include "runtime/check/Words.h"

namespace {

using Names = std::map<std::string, const XmlElement*>;  // an attribute's name and its metric

constexpr const char* kStatistics[] = {"Minimum", "Maximum", "Average", "Total", "Standard_Deviation"};
constexpr int kDeepestJoin = 10;  // joins of joins that show all attributes; a ring ends there

template <class Map>
std::vector<const char*> keysOf(const Map& map) {
    std::vector<const char*> keys;
    keys.reserve(map.size());
    for (const auto& entry : map) keys.push_back(entry.first.c_str());
    return keys;
}

bool isTrue(const XmlElement& e, const char* attribute) {
    const char* value = e.value(attribute);
    return value && std::string(value) == "true";
}

class DerivedCheck {
  public:
    DerivedCheck(const std::vector<const XmlElement*>& sections, const std::string& text, std::vector<Problem>* problems)
        : text_(text), problems_(problems) {
        for (const XmlElement* section : sections) {
            if (const char* group = section->value("ag")) sections_[group] = section;
        }
    }

    void check(const XmlElement& section) {
        if (section.name == "join") checkJoin(section);
        if (section.name == "rollup") checkRollup(section);
        if (section.name == "filter") checkFilter(section);
    }

  private:
    void tell(std::size_t offset, Problem::Severity severity, const std::string& text) {
        problems_->push_back({offset, severity, text});
    }
    static std::size_t placeOf(const XmlElement& e, const char* attribute) {
        const XmlAttribute* found = e.find(attribute);
        return found ? found->valueOffset : e.offset;
    }
    // Where the byte of a value stands in the file: an entity is several bytes there.
    std::size_t placeIn(const XmlAttribute& attribute, std::size_t byte) const {
        std::size_t at = attribute.valueOffset;
        for (; byte > 0 && at < text_.size(); --byte) {
            const std::size_t end = text_[at] == '&' ? text_.find(';', at) : std::string::npos;
            at = end == std::string::npos ? at + 1 : end + 1;
        }
        return at;
    }

    // The attributes of a group. Null if they are not known: nobody fills it, the agent itself does, or its metrics
    // are wrong in ways that are told elsewhere.
    const Names* attributesOf(const std::string& group, int depth = 0) {
        const auto known = attributes_.find(group);
        if (known != attributes_.end()) return &known->second;
        const auto section = sections_.find(group);
        if (section == sections_.end() || depth > kDeepestJoin) return nullptr;
        Names names;
        for (const XmlElement& child : section->second->children) {
            if (child.value("name")) names[child.value("name")] = &child;
        }
        const bool showsAll = section->second->name == "join" && section->second->children.empty();
        for (const char* source : {"class1", "class2"}) {
            const char* its = showsAll ? section->second->value(source) : nullptr;
            const Names* more = its ? attributesOf(its, depth + 1) : nullptr;
            if (more) names.insert(more->begin(), more->end());
        }
        if (names.empty()) return nullptr;
        return &attributes_.insert_or_assign(group, std::move(names)).first->second;
    }

    void checkGroup(const XmlElement& section, std::size_t offset, const std::string& group) {
        const char* own = section.value("ag");
        if (own && group == own) {
            tell(offset, Problem::Error, "a " + section.name + " cannot read its own rows");
        } else if (!sections_.count(group) && !isMadeByAgent(group)) {
            auto others = sections_;
            if (own) others.erase(own);
            tell(offset, Problem::Error, "no section fills attribute group '" + group + "'" + didYouMean(group, keysOf(others)));
        }
    }
    static bool isMadeByAgent(const std::string& group) {
        return group == "Thread_Pool_Status" || group == "Take_Action_Status" || group == "Availability" ||
               group.find("Performance_Object_Status") != std::string::npos;
    }

    // The metric behind an attribute; null, and an error unless the group is not known, if there is none.
    const XmlElement* checkAttribute(std::size_t offset, const std::string& group, const std::string& attribute) {
        const Names* names = attributesOf(group);
        if (!names) return nullptr;
        const auto found = names->find(attribute);
        if (found != names->end()) return found->second;
        tell(offset, Problem::Error, "attribute group '" + group + "' has no attribute '" + attribute + "'" + didYouMean(attribute, keysOf(*names)));
        return nullptr;
    }

    static bool isComputed(const XmlElement& metric) { return metric.value("formula") || metric.value("arg1"); }

    void checkJoin(const XmlElement& join) {
        for (const char* side : {"class1", "class2"}) {
            const char* group = join.value(side);
            if (!group) continue;
            checkGroup(join, placeOf(join, side), group);
            checkJoinAttribute(join, side, group);
        }
        for (const XmlElement& metric : join.children) checkJoinMetric(join, metric);
    }

    void checkJoinAttribute(const XmlElement& join, const std::string& side, const char* group) {
        if (isTrue(join, "singleton") || isTrue(join, "class1Singleton") || isTrue(join, "class2Singleton")) return;
        const std::string name = side + "Attr";
        const char* attribute = join.value(name.c_str());
        if (!attribute) {
            tell(join.offset, Problem::Error, "'" + name + "' is missing: without it and without singletons no row has a partner");
            return;
        }
        // The first metric of that name in the join tells what the source calls it.
        for (const XmlElement& metric : join.children) {
            const char* its = metric.value("name");
            if (!its || std::string(its) != attribute) continue;
            const char* source = metric.value("metricName");
            const char* from = metric.value("ag");
            if (source && from && std::string(from) != group) checkAttribute(placeOf(join, name.c_str()), group, source);
            return;
        }
        checkAttribute(placeOf(join, name.c_str()), group, attribute);
    }

    void checkJoinMetric(const XmlElement& join, const XmlElement& metric) {
        if (isComputed(metric)) return;
        const char* group = metric.value("ag");
        const char* source = metric.value("metricName");
        if (!group || !source) {
            tell(metric.offset, Problem::Error, std::string("the metric gets no value: it needs the attribute '") + (group ? "metricName" : "ag") + "'");
            return;
        }
        std::vector<const char*> sides;
        for (const char* side : {"class1", "class2"}) {
            if (join.value(side)) sides.push_back(join.value(side));
        }
        for (const char* side : sides) {
            if (std::string(side) != group) continue;
            checkAttribute(placeOf(metric, "metricName"), group, source);
            return;
        }
        tell(placeOf(metric, "ag"), Problem::Error, std::string("'") + group + "' is no side of this join" + didYouMean(group, sides));
    }

    void checkRollup(const XmlElement& rollup) {
        const char* group = rollup.value("rollupAg");
        const char* attribute = rollup.value("rollupAttr");
        if (group) checkGroup(rollup, placeOf(rollup, "rollupAg"), group);
        if (group && attribute) {
            const XmlElement* source = checkAttribute(placeOf(rollup, "rollupAttr"), group, attribute);
            if (source && rawMetricTypeFromText(source->value("type")) == STRING_DATA) {
                tell(placeOf(rollup, "rollupAttr"), Problem::Warning, std::string("'") + attribute + "' is a text: its values count as 0");
            }
        }
        bool averaged = false;
        for (const XmlElement& metric : rollup.children) {
            const std::string name = metric.value("name") ? metric.value("name") : "";
            if (name.empty() || isComputed(metric)) continue;
            const std::vector<const char*> known(std::begin(kStatistics), std::end(kStatistics));
            if (std::set<std::string>(known.begin(), known.end()).count(name) == 0) {
                tell(placeOf(metric, "name"), Problem::Error, "'" + name + "' is no statistic, and the rollup gives no row" + didYouMean(name, known));
            }
            averaged = averaged || name == "Average";
            if (name == "Standard_Deviation" && !averaged) {
                tell(placeOf(metric, "name"), Problem::Warning, "'Average' must stand ahead of 'Standard_Deviation', which takes its value");
            }
        }
    }

    void checkFilter(const XmlElement& filter) {
        std::vector<std::string> groups;
        if (const XmlAttribute* names = filter.find("raw_attribute_group_name")) {
            for (std::size_t from = 0; from < names->value.size();) {
                const std::size_t end = std::min(names->value.find(',', from), names->value.size());
                groups.push_back(names->value.substr(from, end - from));
                checkGroup(filter, placeIn(*names, from), groups.back());
                from = end + 1;
            }
        }
        if (const XmlAttribute* text = filter.find("filter")) checkExpression(*text, groups);
        for (const XmlElement& metric : filter.children) {
            if (isComputed(metric)) continue;
            const char* source = metric.value("metric_name");
            if (!source) {
                tell(metric.offset, Problem::Error, "the metric gets no value, and the filter no row: it needs the attribute 'metric_name'");
                continue;
            }
            for (const std::string& group : groups) checkAttribute(placeOf(metric, "metric_name"), group, source);
        }
    }

    void checkExpression(const XmlAttribute& text, const std::vector<std::string>& groups) {
        const FilterExpression filter(text.value.c_str());
        if (!filter.isValid()) tell(placeIn(text, filter.errorOffset()), Problem::Error, filter.errorText());
        for (const FilterExpression::Name& name : filter.names()) {
            const std::size_t place = placeIn(text, name.offset);
            for (const std::string& group : groups) {
                const XmlElement* source = checkAttribute(place, group, name.name);
                const int type = source ? rawMetricTypeFromText(source->value("type")) : STRING_DATA;
                if (type == STRING_DATA || type == PREVIOUS_STRING_DATA || type == VALUE_CHANGED) continue;
                tell(place, Problem::Error, "'" + name.name + "' is a number; a filter compares texts alone");
            }
        }
    }

    const std::string& text_;
    std::vector<Problem>* problems_;
    std::map<std::string, const XmlElement*> sections_;  // by the group they fill; the last of several, as joins see them
    std::map<std::string, Names> attributes_;
};

}  // namespace

void checkDerivedTables(const std::vector<const XmlElement*>& sections, const std::string& text, std::vector<Problem>* problems) {
    DerivedCheck check(sections, text, problems);
    for (const XmlElement* section : sections) check.check(*section);
}
