// Tables for derived ones to read, written down as text, and what a derived table made of them.
//
//   Disks                       a table
//     name=s:sda size=l:500     a row of it: attribute = form : value
//     -                         a row without cells
//
// Forms: s text, u UTF-8 text, i 32 bits, l 64 bits, q unsigned 64 bits, d double. A `!` ahead of the name makes a
// derived cell, a `*` a key. The metrics of a table are its attributes in the order in which they appear.
#pragma once

#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "collection/TestClass.h"

namespace almanac::test {

inline RAW_METRIC_TYPE typeOf(char form) {
    if (form == 's' || form == 'u') return STRING_DATA;
    return form == 'l' || form == 'q' ? NUMERIC_64BIT_DATA : NUMERIC_DATA;
}

inline ResultMetric* cellOf(const Metric* metric, char form, const std::string& value) {
    switch (form) {
        case 's':
            return new ResultMetric(metric, value.c_str());
        case 'u': {
            auto* text = new UTF8String;
            text->initFromUTF8String(value.c_str());
            return new ResultMetric(metric, text);
        }
        case 'i':
            return new ResultMetric(metric, std::atoi(value.c_str()));
        case 'l':
            return new ResultMetric(metric, std::atoll(value.c_str()));
        case 'q':
            return new ResultMetric(metric, std::strtoull(value.c_str(), nullptr, 10));
        default:
            return new ResultMetric(metric, std::strtod(value.c_str(), nullptr));
    }
}

class SourceTable : public TestClass {
  public:
    explicit SourceTable(const char* group, VX_CLIENT_CLASS_TYPE type = VX_SHELL)
        : TestClass(group, [](TestClass& c) { static_cast<SourceTable&>(c).fill(); }, type) {}
    SourceTable(SourceTable* prototype, const char* key) : TestClass(prototype, key) {}

    // A further row of the next collection.
    SourceTable& add(const std::string& line) {
        lines_.push_back(line);
        makeRow(line);  // makes the metrics
        return *this;
    }
    SourceTable& clear() {
        lines_.clear();
        return *this;
    }
    std::unique_ptr<ResultInstance> makeRow(const std::string& line) {
        auto row = std::make_unique<ResultInstance>("", 0);
        std::istringstream words(line);
        std::string word;
        while (words >> word) {
            const std::size_t equals = word.find('=');
            if (equals == std::string::npos) continue;
            std::string name = word.substr(0, equals);
            const bool derived = name[0] == '!', key = name[0] == '*';
            if (derived || key) name.erase(0, 1);
            const char form = word[equals + 1];
            Metric* metric = derived ? derivedMetric(name) : known(name, form, key);
            ResultMetric* cell = cellOf(metric, form, word.substr(equals + 3));
            derived ? row->addDerivedMetric(cell) : row->addMetric(cell);
        }
        return row;
    }

  private:
    void fill() {
        for (const std::string& line : lines_) addResultInstance(makeRow(line).release());
    }
    Metric* known(const std::string& name, char form, bool key) {
        Metric* found = findMetric(name.c_str());
        return found ? found : metric(name.c_str(), typeOf(form), key);
    }
    Metric* derivedMetric(const std::string& name) {
        for (const auto& m : derived_) {
            if (name == m->getQMPVMetricName()) return m.get();
        }
        derived_.push_back(std::make_unique<Metric>());
        derived_.back()->setQMPVName(name.c_str());
        return derived_.back().get();
    }
    std::vector<std::string> lines_;
    std::vector<std::unique_ptr<Metric>> derived_;  // not of the class: their cells come with the rows
};

using SourceTables = std::vector<std::unique_ptr<SourceTable>>;

inline SourceTables tablesOf(const std::string& text) {
    SourceTables tables;
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        if (line.empty()) continue;
        if (line[0] != ' ') {
            tables.push_back(std::make_unique<SourceTable>(line.c_str()));
        } else {
            tables.back()->add(line);
        }
    }
    return tables;
}

inline std::string valueOf(const ResultMetric* cell) {
    std::ostringstream text;
    switch (cell->form()) {
        case FORM_INT:
            text << "integer " << cell->getMetricValue();
            break;
        case FORM_INT64:
            text << "64-bit " << cell->getMetricValue64();
            break;
        case FORM_UINT64:
            text << "unsigned " << cell->getMetricValueU64();
            break;
        case FORM_DOUBLE:
            text << "double " << cell->getMetricValueDouble();
            break;
        case FORM_STRING:
            text << "text <" << cell->getStringValue() << ">";
            break;
        case FORM_UTF8:
            text << "UTF-8 <" << cell->getUTF8StringData()->getUTF8Value() << ">";
            break;
    }
    return text.str();
}

inline std::string statusOf(VXClientClass& c) {
    return std::string(perfObjectStatusName(c.getPerfObjectStatus())) + " " + perfObjectErrorCodeName(c.getPerfErrorCode());
}

// Status, code and the current rows with their names and cells.
inline std::string report(ResultsManager& c) {
    std::string text = statusOf(c) + "\n";
    for (ListCursor r = c.getResultInstanceListCursor(); r.hasMoreElements(); r.setToNext()) {
        const auto* row = static_cast<ResultInstance*>(r.getCurrentElement());
        text += std::string("row <") + row->getInstanceName() + ">\n";
        for (const ResultMetric* cell = row->firstCell(); cell; cell = nextCell(cell)) {
            text += std::string("  ") + cell->getQMPVMetricName() + " " + valueOf(cell) + "\n";
        }
    }
    return text;
}

// The values of one attribute over all current rows.
inline std::string column(ResultsManager& c, const char* name) {
    std::string text;
    for (ListCursor r = c.getResultInstanceListCursor(); r.hasMoreElements(); r.setToNext()) {
        const ResultMetric* cell = static_cast<ResultInstance*>(r.getCurrentElement())->getMetric(name);
        text += (cell ? valueOf(cell) : "none") + ", ";
    }
    return text;
}

// The list of all query classes, for the length of a test. Deletes the classes in it in the order of the list, as the agent does at
// its end: sources ahead of those that read them.
class AllClasses {
  public:
    AllClasses() { queryClassList = &list; }
    ~AllClasses() {
        queryClassList = nullptr;
        std::vector<VXClientClass*> all;
        for (ListCursor c = list.getClassListCursor(); c.hasMoreElements(); c.setToNext()) {
            all.push_back(static_cast<VXClientClass*>(c.getCurrentElement()));
        }
        for (VXClientClass* c : all) {
            list.removeClientClass(c);
            delete c;
        }
    }
    AllClasses(const AllClasses&) = delete;
    AllClasses& operator=(const AllClasses&) = delete;
    template <class T>
    T* add(T* c) {
        list.addClientClass(c);
        return c;
    }
    VXClientClassList list;
};

}  // namespace almanac::test
