#include "runtime/check/ReferenceCheck.h"

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>

#include "actions/TakeActionStatus.h"
#include "collection/rows/Metric.h"
#include "collection/rows/RawMetricType.h"
#include "collection/status/StatusTables.h"
#include "foundation/HashMap.h"
#include "foundation/Utilities.h"
#include "runtime/check/AvailabilityCheck.h"
#include "runtime/check/DerivedCheck.h"
#include "runtime/check/FormulaCheck.h"
#include "runtime/check/TaskCheck.h"
#include "runtime/check/Words.h"
#include "runtime/reference/SectionSchema.h"
#include "runtime/reference/XMLConfigParser.h"

namespace {

// Every section the file may hold, also those of data sources that this build lacks.
constexpr const char* kSections[] = {
    "appl", "env_variable", "repeatable_section", "metadata", "perf_object_enum_list", "process_list", "app_ping_list",
    "process", "script", "ping", "cimom", "custom_provider_client_list", "custom", "jmx", "jdbc", "ovrix_jms",
    "ovrix_rest", "log_monitor", "join", "rollup", "filter", "config_discovery", "snmp", "snmp_event", "task"};

constexpr int kTimestampLength = 16;
constexpr const char* kMadeByAgent[] = {"Performance_Object_Status", "Thread_Pool_Status", "Take_Action_Status"};

bool isInteger(const std::string& text) {
    const std::size_t start = !text.empty() && (text[0] == '-' || text[0] == '+') ? 1 : 0;
    return text.size() > start && text.find_first_not_of("0123456789", start) == std::string::npos;
}

class Checker {
  public:
    Checker(const std::string& text, std::vector<Problem>* problems) : text_(text), problems_(problems) {}

    void check(const XmlDocument& document) {
        for (const XmlElement& e : document.elements()) walk(e, true);
        if (document.elements().empty()) error(0, "the file holds no element");
        checkApplication();
        for (const XmlElement* section : sections_) checkSection(*section);
        for (const XmlElement* group : groups_) checkGroup(*group);
        for (const XmlElement* section : providers_) {
            checkProvider(*section);
            checkVariables(*section, *section);
        }
        for (const XmlElement* section : fixedShapes_) checkFixedShape(*section);
        checkDerivedTables(providers_, text_, problems_);
        checkTasks(sections_, text_, problems_);
        checkUnused();
    }

  private:
    void error(std::size_t offset, const std::string& text) { problems_->push_back({offset, Problem::Error, text}); }
    void warning(std::size_t offset, const std::string& text) { problems_->push_back({offset, Problem::Warning, text}); }

    static std::size_t placeOf(const XmlElement& e, const char* attribute) {
        const XmlAttribute* found = e.find(attribute);
        return found ? found->valueOffset : e.offset;
    }

    // True if the element opens a section or leads to one.
    bool walk(const XmlElement& e, bool top) {
        checkName(e);
        if (findXMLConfigParser(e.name.c_str())) {
            sections_.push_back(&e);
            return true;
        }
        const bool known = std::any_of(std::begin(kSections), std::end(kSections),
                                       [&](const char* s) { return e.name == s; });
        if (known) {
            error(e.offset, "the data source '" + e.name + "' is not part of this build; its attribute group stays empty");
            return true;
        }
        bool leads = false;
        for (const XmlElement& child : e.children) leads = walk(child, false) || leads;
        if (!leads && (!top || e.children.empty())) {
            error(e.offset, "unknown section '" + e.name + "'" +
                                didYouMean(e.name, std::vector<const char*>(std::begin(kSections), std::end(kSections))));
        }
        return leads || !top;
    }

    void checkName(const XmlElement& e) {
        const auto control = [](const std::string& text) { return text.find_first_of("\t\r\n") != std::string::npos; };
        if (control(e.name)) {
            error(e.offset, "the tag goes over two lines or holds a tab: a tag stands on one line, parted by blanks only");
        }
        for (const XmlAttribute& a : e.attributes) {
            if (control(a.name)) {
                error(a.offset, "the tag goes over two lines or holds a tab: a tag stands on one line, parted by blanks only");
            } else if (a.name.find(' ') != std::string::npos) {
                error(a.offset, "a blank before '=' becomes part of the attribute's name '" + a.name + "'");
            }
        }
    }

    void checkApplication() {
        const XmlElement* appl = nullptr;
        bool metadataSeen = false;
        for (const XmlElement* s : sections_) {
            if (s->name == "metadata") metadataSeen = true;
            if (s->name == "repeatable_section" && appl) {
                warning(s->offset, "repeatable_section stands behind appl, which loads the configuration: it comes too late");
            }
            if (s->name != "appl") continue;
            if (appl) error(s->offset, "a second appl element");
            if (metadataSeen) error(s->offset, "appl must stand before metadata: tables take the application's name when they are read");
            appl = s;
        }
        if (!appl) {
            error(0, "no appl element: the application has no name and no configuration");
            return;
        }
        const char* affinity = appl->value("affinity");
        if (!affinity || (*affinity != '%' && *affinity != '&')) return;
        const char* version = appl->value("internalAgentVersion");
        const int number = version ? std::atoi(version) : 0;
        if (number < 1 || number > 12) {
            error(placeOf(*appl, "internalAgentVersion"), "internalAgentVersion must be 1 to 12 with an affinity that begins with % or &");
        }
    }

    void checkSection(const XmlElement& section) {
        const SectionSchema* schema = findSectionSchema(section.name.c_str());
        if (!schema) return;
        if (schema->makesQueryClass) providers_.push_back(&section);
        if (schema->fills) fixedShapes_.push_back(&section);
        checkElement(section, *schema);
    }

    void checkElement(const XmlElement& e, const SectionSchema& schema) {
        const ElementSchema* own = nullptr;
        std::vector<const char*> names;
        for (const ElementSchema* s = schema.elements; s->element; ++s) {
            names.push_back(s->element);
            if (e.name == s->element) own = s;
        }
        if (!own) {
            checkName(e);
            error(e.offset, "unknown element '" + e.name + "' in section '" + schema.section + "'" + didYouMean(e.name, names));
            return;
        }
        checkAttributes(e, *own);
        if (e.name == "ag") groups_.push_back(&e);
        for (const XmlElement& child : e.children) {
            checkName(child);
            if (child.name == schema.section) {
                error(child.offset, "a '" + child.name + "' inside a '" + child.name + "' ends the outer one early");
            }
            checkElement(child, schema);
        }
    }

    void checkAttributes(const XmlElement& e, const ElementSchema& schema) {
        std::set<std::string> seen;
        std::vector<const char*> names;
        for (const AttributeSchema* a = schema.attributes; a->name; ++a) names.push_back(a->name);
        for (const XmlAttribute& a : e.attributes) {
            if (!seen.insert(a.name).second) error(a.offset, "attribute '" + a.name + "' stands twice; the last one counts");
            const AttributeSchema* own = nullptr;
            for (const AttributeSchema* s = schema.attributes; s->name; ++s) {
                if (a.name == s->name) own = s;
            }
            if (!own) {
                if (a.name.find_first_of(" \t\r\n") != std::string::npos) continue;  // told already
                error(a.offset, "unknown attribute '" + a.name + "' of '" + e.name + "'" + didYouMean(a.name, names));
                continue;
            }
            checkValue(a, *own);
        }
        for (const AttributeSchema* s = schema.attributes; s->name; ++s) {
            const bool required = s->kind == AttributeSchema::Required || s->kind == AttributeSchema::RequiredInteger;
            if (required && !e.find(s->name)) error(e.offset, "'" + e.name + "' needs the attribute '" + s->name + "'");
        }
    }

    void checkValue(const XmlAttribute& a, const AttributeSchema& schema) {
        const AttributeSchema::Kind kind = schema.kind;
        const bool isNumber = kind == AttributeSchema::Integer || kind == AttributeSchema::RequiredInteger;
        if (kind == AttributeSchema::Boolean && a.value != "true" && a.value != "false") {
            warning(a.valueOffset, "only the exact text \"true\" is true; '" + a.value + "' counts as false");
        }
        if (isNumber && !isInteger(a.value)) {
            error(a.valueOffset, "'" + a.value + "' is no number; it would count as " + std::to_string(std::atoi(a.value.c_str())));
        } else if (schema.texts) {
            checkText(a, schema.texts, !isNumber);
        }
    }

    void checkText(const XmlAttribute& a, const char* const* texts, bool maySuggest) {
        std::vector<const char*> known;
        for (; *texts; ++texts) known.push_back(*texts);
        if (std::any_of(known.begin(), known.end(), [&](const char* t) { return strcasecmp(t, a.value.c_str()) == 0; })) return;
        std::string upper = a.value;
        for (char& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        warning(a.valueOffset, a.name + " '" + a.value + "' is unknown and has no meaning of its own" +
                                   (maySuggest ? didYouMean(upper, known) : ""));
    }

    static std::vector<const XmlElement*> attributesOf(const XmlElement& group) {
        std::vector<const XmlElement*> found;
        for (const XmlElement& child : group.children) {
            if (child.name == "attr" && child.value("name")) found.push_back(&child);
        }
        return found;
    }

    static std::string plainName(const XmlElement& attr) {
        const std::string name = attr.value("name");
        return name[0] == '-' ? name.substr(1) : name;
    }

    void checkGroup(const XmlElement& group) {
        const char* name = group.value("name");
        const char* table = group.value("table");
        if (name) {
            if (groupsByName_.count(name)) error(placeOf(group, "name"), std::string("attribute group '") + name + "' is declared twice");
            groupsByName_[name] = &group;
        }
        if (table && !tables_.insert(table).second) error(placeOf(group, "table"), std::string("table '") + table + "' is declared twice");
        std::set<std::string> seen;
        for (const XmlElement* attr : attributesOf(group)) {
            if (!seen.insert(plainName(*attr)).second) {
                error(placeOf(*attr, "name"), "attribute '" + plainName(*attr) + "' is declared twice in this group");
            }
            checkLayout(*attr);
        }
        const std::string groupName = name ? name : "";
        if (groupName.find("Performance_Object_Status") != std::string::npos) checkStatusGroup(group, PERF_METRICS);
        if (groupName == "Thread_Pool_Status") checkStatusGroup(group, TP_METRICS);
        if (groupName == "Take_Action_Status") checkStatusGroup(group, TS_METRICS);
    }

    void checkLayout(const XmlElement& attr) {
        const char* typeText = attr.value("type");
        const char* sizeText = attr.value("size");
        if (!typeText || !sizeText) return;
        const int type = std::atoi(typeText);
        const int size = std::atoi(sizeText);
        if (type < 0 || type > 9) {
            error(placeOf(attr, "type"), std::string("type ") + typeText + " is none: 0 and 3 to 5 are integers of up to 32 bits, 1 and 2 texts, 6 to 9 integers of 64 bits");
        } else if (type == 1 || type == 2) {
            if (size < 1) error(placeOf(attr, "size"), "a text needs a size of at least 1");
        } else if (type >= 6 && size != 8) {
            error(placeOf(attr, "size"), std::string("a 64-bit integer has size 8, not ") + sizeText);
        } else if (type < 6 && size != 2 && size != 4) {
            error(placeOf(attr, "size"), std::string("an integer of type ") + typeText + " has size 2 or 4, not " + sizeText);
        }
    }

    void checkTimestamp(const XmlElement& group) {
        const auto attrs = attributesOf(group);
        if (attrs.empty()) return;
        const XmlElement& first = *attrs[0];
        const char* type = first.value("type");
        const char* size = first.value("size");
        const bool text = type && (std::atoi(type) == 1 || std::atoi(type) == 2);
        if (!text || !size || std::atoi(size) < kTimestampLength) {
            error(first.offset, "the first attribute of a group takes the time stamp: a text of 16 bytes");
        }
    }

    void checkStatusGroup(const XmlElement& group, const FixedMetric* metrics) {
        checkTimestamp(group);
        std::vector<const char*> names;
        for (const FixedMetric* m = metrics; m->name; ++m) names.push_back(m->column);
        std::size_t next = 0;
        const auto attrs = attributesOf(group);
        for (std::size_t i = 1; i < attrs.size(); ++i) {
            const std::string name = plainName(*attrs[i]);
            const auto found = std::find_if(names.begin(), names.end(), [&](const char* n) { return name == n; });
            if (found == names.end()) {
                error(placeOf(*attrs[i], "name"), "'" + name + "' is no column of this table" + didYouMean(name, names));
                continue;
            }
            const auto place = static_cast<std::size_t>(found - names.begin());
            if (place < next) error(placeOf(*attrs[i], "name"), "'" + name + "' stands out of order: cells match attributes by position");
            next = std::max(next, place + 1);
        }
    }

    void checkProvider(const XmlElement& section) {
        const SectionSchema& schema = *findSectionSchema(section.name.c_str());
        const char* ag = section.value("ag");
        const auto group = ag ? groupsByName_.find(ag) : groupsByName_.end();
        if (ag && filled_.count(ag)) error(placeOf(section, "ag"), std::string("attribute group '") + ag + "' has a data source already");
        if (ag) filled_.insert(ag);
        if (ag && group == groupsByName_.end()) {
            std::vector<const char*> names;
            for (const auto& g : groupsByName_) names.push_back(g.first.c_str());
            error(placeOf(section, "ag"), std::string("attribute group '") + ag + "' is not declared in the metadata" + didYouMean(ag, names));
        }
        std::vector<const XmlElement*> metrics;
        for (const XmlElement& child : section.children) {
            for (const ElementSchema* s = schema.elements; s->element; ++s) {
                if (child.name == s->element && s->isMetric) metrics.push_back(&child);
            }
        }
        if (metrics.empty() && schema.metricsMayBeLeftOut) return;
        if (metrics.empty()) warning(section.offset, "the section has no metric; its rows have no values");
        std::set<std::string> seen;
        for (const XmlElement* metric : metrics) {
            checkMetric(*metric, &seen);
            if (metric->value("formula")) checkFormulaOf(*metric, metrics);
        }
        if (group != groupsByName_.end()) matchColumns(section, schema, metrics, *group->second);
    }

    // A section that fills, with others, a table whose columns are the agent's.
    void checkFixedShape(const XmlElement& section) {
        const char* ag = findSectionSchema(section.name.c_str())->fills;
        if (section.name == "app_ping_list") checkVariables(section, section);  // process_list may name any variable
        if (!filledTogether_.insert(ag).second) return;
        if (!filled_.insert(ag).second) error(section.offset, std::string("attribute group '") + ag + "' has a data source already");
        const auto group = groupsByName_.find(ag);
        if (group == groupsByName_.end()) {
            error(section.offset, std::string("attribute group '") + ag + "', which this section fills, is not declared in the metadata");
        } else {
            checkTimestamp(*group->second);
        }
        checkAvailability(fixedShapes_, group == groupsByName_.end() ? nullptr : group->second, problems_);
    }

    void checkMetric(const XmlElement& metric, std::set<std::string>* seen) {
        const char* name = metric.value("name");
        const char* type = metric.value("type");
        if (name && seen->count(name)) error(placeOf(metric, "name"), std::string("metric '") + name + "' is declared twice");
        const RAW_METRIC_TYPE raw = rawMetricTypeFromText(type);
        checkTypeText(metric, type, raw);
        if (const char* map = metric.value("map")) checkMap(metric, map, raw);
        if (metric.value("arg1")) checkComputation(metric, *seen);
        if (name) seen->insert(name);
    }

    void checkTypeText(const XmlElement& metric, const char* type, RAW_METRIC_TYPE raw) {
        if (!type || raw != NUMERIC_DATA || std::strcmp(type, "NUMERIC_DATA") == 0) return;
        std::vector<const char*> known = {"NUMERIC_DATA"};
        for (int i = 1; i <= PERCENT_DELTA_64BIT_DATA; ++i) {
            if (const char* text = rawMetricTypeText(i)) known.push_back(text);
        }
        warning(placeOf(metric, "type"), std::string("type '") + type + "' is unknown and counts as a plain number" + didYouMean(type, known));
    }

    void checkMap(const XmlElement& metric, const char* map, RAW_METRIC_TYPE raw) {
        if (raw != NUMERIC_DATA) {
            error(placeOf(metric, "map"), "only a plain number can have a map; it is left out");
            return;
        }
        const ParsedMap parsed = parseMapText(map);
        std::free(parsed.values);
        if (parsed.fault == ParsedMap::Empty) error(placeOf(metric, "map"), "an empty map ends the agent; it starts with the default value");
        if (parsed.fault == ParsedMap::BadEntry) {
            error(placeOf(metric, "map"), "a wrong map ends the agent: behind the default stand triples of operator (0 to 5), value and mapped value");
        }
    }

    void checkComputation(const XmlElement& metric, const std::set<std::string>& earlier) {
        if (!metric.value("arg2") || !metric.value("op")) error(placeOf(metric, "arg1"), "arg1 needs arg2 and op beside it");
        for (const char* operand : {"arg1", "arg2"}) {
            const char* text = metric.value(operand);
            if (!text || !*text || std::isdigit(static_cast<unsigned char>(*text)) || *text == '-' || *text == '+') continue;
            if (!earlier.count(text)) {
                warning(placeOf(metric, operand),
                        std::string("'") + text + "' is no metric declared ahead of this one; it is a text, and 0 beside a number");
            }
        }
        const char* op = metric.value("op");
        if (op && (!*op || !std::strchr("+-*/%", *op))) error(placeOf(metric, "op"), std::string("'") + op + "' is no operator; there are + - * / %");
        if (metric.value("formula")) warning(placeOf(metric, "arg1"), "the metric has a formula; arg1, op and arg2 do not count");
    }

    static bool isDerived(const XmlElement& metric) { return metric.value("formula") || metric.value("arg1"); }

    void checkFormulaOf(const XmlElement& metric, const std::vector<const XmlElement*>& metrics) {
        FormulaScope scope;
        bool behind = false;
        for (const XmlElement* other : metrics) {
            behind = behind || other == &metric;
            const char* name = other->value("name");
            if (name) (behind && isDerived(*other) ? scope.later : scope.present).push_back(name);
        }
        scope.type = rawMetricTypeFromText(metric.value("type"));
        const XmlAttribute& formula = *metric.find("formula");
        for (Problem& p : checkFormula(formula.value, scope)) {
            if (p.severity == Problem::Error) p.text += "; the metric would be -1";
            problems_->push_back({placeInValue(text_, formula, p.offset), p.severity, std::move(p.text)});
        }
    }

    // Cells meet attributes by position alone: the i-th visible metric writes the i-th attribute behind the time stamp.
    void matchColumns(const XmlElement& section, const SectionSchema& schema, const std::vector<const XmlElement*>& metrics,
                      const XmlElement& group) {
        if (schema.hasTimestampColumn) checkTimestamp(group);
        const auto attrs = attributesOf(group);
        std::size_t next = schema.hasTimestampColumn ? 1 : 0;
        std::set<std::string> metricNames;
        for (const XmlElement* metric : metrics) {
            const char* name = metric->value("name");
            if (name) metricNames.insert(name);
            const char* visible = metric->value("visible");
            if (!name || !visible || std::strcmp(visible, "true") != 0) continue;
            if (next >= attrs.size()) {
                error(metric->offset, std::string("metric '") + name + "' has no attribute left in the group's metadata");
                continue;
            }
            const XmlElement& attr = *attrs[next++];
            if (plainName(attr) != name) {
                error(placeOf(*metric, "name"), std::string("metric '") + name + "' meets attribute '" + plainName(attr) +
                                                    "' of the metadata: cells match attributes by position, not by name");
            } else {
                checkKinds(*metric, attr);
            }
        }
        for (; next < attrs.size(); ++next) {
            const bool hidden = metricNames.count(plainName(*attrs[next])) != 0;
            error(attrs[next]->offset, "attribute '" + plainName(*attrs[next]) + "' gets no value: " +
                                           (hidden ? "its metric is not visible" : "section '" + section.name + "' has no metric for it"));
        }
    }

    void checkKinds(const XmlElement& metric, const XmlElement& attr) {
        const int raw = rawMetricTypeFromText(metric.value("type"));
        const int type = attr.value("type") ? std::atoi(attr.value("type")) : 0;
        const bool textCell = raw == STRING_DATA || raw == PREVIOUS_STRING_DATA;
        const bool textColumn = type == 1 || type == 2;
        if (textCell == textColumn || raw == VALUE_CHANGED) return;
        error(placeOf(metric, "type"), std::string("a ") + (textCell ? "text" : "number") + " meets an attribute of type " +
                                           (attr.value("type") ? attr.value("type") : "0") + ", which is for " + (textColumn ? "texts" : "numbers"));
    }

    // ${NAME} in any value of a provider's section. References are replaced while the section's start tag is read, so an
    // env_variable behind it comes too late.
    void checkVariables(const XmlElement& section, const XmlElement& e) {
        for (const XmlAttribute& a : e.attributes) {
            std::size_t open = a.value.find("${");
            for (; open != std::string::npos; open = a.value.find("${", open)) {
                const std::size_t end = a.value.find_first_of("}\n", open);
                if (end == std::string::npos || a.value[end] == '\n') {
                    open += 2;
                    continue;
                }
                checkVariable(section, a, a.value.substr(open + 2, end - open - 2));
                open = end + 1;
            }
        }
        for (const XmlElement& child : e.children) checkVariables(section, child);
    }

    void checkVariable(const XmlElement& section, const XmlAttribute& a, const std::string& name) {
        if (!isSubstituteAllowed(name.c_str())) {
            error(a.valueOffset, "'${" + name + "}' may not be substituted and disappears; write $" + shellName(name) +
                                     " where the shell is to replace it");
            return;
        }
        const auto takes = [&](const XmlElement* s) {
            const char* taken = s->name == "env_variable" ? s->value("name") : nullptr;
            return taken && name == taken;
        };
        const auto found = std::find_if(sections_.begin(), sections_.end(), takes);
        if (found == sections_.end()) {
            warning(a.valueOffset, "no env_variable element takes '" + name + "' from the environment: '${" + name +
                                       "}' is empty unless the instance's configuration sets it");
        } else if ((*found)->offset > section.offset) {
            warning(a.valueOffset, "the env_variable element of '" + name + "' stands behind this section: it comes too late");
        }
    }

    // What a shell would take as the variable of ${NAME}, ${NAME:-default} and the like.
    static std::string shellName(const std::string& reference) {
        std::size_t end = 0;
        while (end < reference.size() && (std::isalnum(static_cast<unsigned char>(reference[end])) || reference[end] == '_')) ++end;
        return end > 0 ? reference.substr(0, end) : "NAME";
    }

    void checkUnused() {
        for (const auto& g : groupsByName_) {
            if (filled_.count(g.first)) continue;
            const bool made = std::any_of(std::begin(kMadeByAgent), std::end(kMadeByAgent), [&](const char* n) { return g.first == n; }) ||
                              g.first.find("_Performance_Object_Status") != std::string::npos;
            if (!made) warning(g.second->offset, "attribute group '" + g.first + "' has no data source; it becomes no table");
        }
    }

    const std::string& text_;
    std::vector<Problem>* problems_;
    std::vector<const XmlElement*> sections_;
    std::vector<const XmlElement*> groups_;
    std::vector<const XmlElement*> providers_;
    std::vector<const XmlElement*> fixedShapes_;
    std::map<std::string, const XmlElement*> groupsByName_;
    std::set<std::string> tables_;
    std::set<std::string> filled_;
    std::set<std::string> filledTogether_;
};

}  // namespace

std::vector<Problem> checkReferenceText(const std::string& text) {
    std::vector<Problem> problems;
    const std::size_t zero = text.find('\0');
    if (zero != std::string::npos) problems.push_back({zero, Problem::Error, "a zero byte: what follows is not read"});
    const XmlDocument document(text, &problems);
    Checker(text, &problems).check(document);
    std::stable_sort(problems.begin(), problems.end(), [](const Problem& a, const Problem& b) { return a.offset < b.offset; });
    return problems;
}

std::string formatProblem(const std::string& file, const std::string& text, const Problem& problem) {
    const std::size_t at = std::min(problem.offset, text.size());
    const auto line = 1 + std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(at), '\n');
    const std::size_t before = at == 0 ? std::string::npos : text.rfind('\n', at - 1);
    const std::size_t start = before == std::string::npos ? 0 : before + 1;
    const std::size_t end = std::min(text.find('\n', start), text.size());
    std::string shown;
    for (const char c : text.substr(start, end - start)) {
        const auto byte = static_cast<unsigned char>(c);
        shown += byte < 0x20 && c != '\t' ? '?' : c;
    }
    std::string caret;
    for (std::size_t i = start; i < at; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if ((byte & 0xC0) != 0x80) caret += text[i] == '\t' ? '\t' : ' ';  // one column for each character
    }
    return file + ":" + std::to_string(line) + ":" + std::to_string(at - start + 1) + ": " +
           (problem.severity == Problem::Error ? "error: " : "warning: ") + problem.text + "\n    " + shown + "\n    " + caret + "^\n";
}
