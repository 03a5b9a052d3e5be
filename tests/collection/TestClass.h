// A query class whose collection is a function of the test, groups to go with it, and a sink that keeps rows.
#pragma once

#include <atomic>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "collection/ResultsManager.h"
#include "collection/RowSink.h"
#include "collection/SubnodeDirectory.h"
#include "foundation/Trace.h"
#include "foundation/UTF8String.h"
#include "runtime/reference/AttributeGroupMeta.h"

namespace almanac::test {

struct Attr {
    const char* name;  // a leading '-' hides it
    int type;
    int length;
    const char* hint = nullptr;
};

// A group with ORIGINNODE and a time stamp in front, known under its name (also its table's) while it lives.
class Group {
  public:
    Group(const char* name, const std::vector<Attr>& attributes, const char* subnodeType = nullptr)
        : name_(name), meta(new AttributeGroupMeta("APP", name)) {
        List list;
        int offset = 32;
        list.add(new AttributeMeta("ORIGINNODE", nullptr, 1, 32, 0));
        place(&list, {"TIMESTAMP", 1, 16}, &offset);
        for (const Attr& a : attributes) place(&list, a, &offset);
        meta->setRowSize(offset);
        meta->updateColumns(list);
        if (subnodeType) meta->setSubnodeType(strdup(subnodeType));
        metaMap.put(name_.c_str(), meta);
    }
    ~Group() {
        metaMap.remove(name_.c_str(), nullptr);
        delete meta;
    }
    Group(const Group&) = delete;
    Group& operator=(const Group&) = delete;

  private:
    static void place(List* list, const Attr& a, int* offset) {
        const bool hidden = *a.name == '-';
        auto* attribute = new AttributeMeta(a.name + hidden, a.hint, a.type, a.length);
        if (!hidden) placeAttribute(attribute, "", offset);
        list->add(attribute);
    }
    std::string name_;

  public:
    AttributeGroupMeta* const meta;
};

class TestClass : public ResultsManager {
  public:
    using Collector = std::function<void(TestClass&)>;

    explicit TestClass(const char* group, Collector collector = nullptr, VX_CLIENT_CLASS_TYPE type = VX_SHELL)
        : ResultsManager("ZZZ", group, type), collector_(std::move(collector)) {
        setAttributeGroupMeta(findAttributeGroupMeta(group));
    }
    TestClass(const TestClass* source, const char* key) : ResultsManager(source, key), collector_(source->collector_) {}

    void internalCollectData(const char* requestId) override {
        ++collections;
        {
            const std::lock_guard guard(mutex_);
            lastRequest_ = requestId ? requestId : "";
        }
        if (collector_) collector_(*this);
    }
    void printResults() override { traceResults(ZTR1_STATE, "rows"); }
    const char* getPerfObjectName() override { return "object"; }
    int getPerfObjectStatus() override { return 1; }
    int getPerfErrorCode() override { return errorCode; }
    VXClientClass* subnodeCopy(const char* key, VXClientClassList*) override { return new TestClass(this, key); }
    void setRequestInfo(const char* id, const List* info) override {
        if (onRequestInfo) onRequestInfo(id, info);
    }
    void removeRequestInfo(const char* id) override {
        if (onRequestInfo) onRequestInfo(id, nullptr);
    }

    Metric* metric(const char* name, RAW_METRIC_TYPE type = NUMERIC_DATA, bool key = false, bool hidden = false) {
        auto* m = new Metric;
        m->setQMPVName(name);
        m->setMetricName(name);
        m->setRawMetricType(type);
        m->setIsKey(key);
        m->setIsHidden(hidden);
        addMetricObject(m);
        return m;
    }
    ResultInstance* row() { return new ResultInstance("", getMetricCount()); }
    // A row of a text key NAME and a number, for classes with these two metrics.
    ResultInstance* named(const char* name, int number) {
        ResultInstance* r = row();
        r->addMetric(new ResultMetric(findMetric("NAME"), name));
        r->addMetric(new ResultMetric(findMetric("N"), number));
        return r;
    }
    TestClass* withNameAndNumber() {
        metric("NAME", STRING_DATA, true);
        metric("N");
        return this;
    }
    std::string lastRequest() {
        const std::lock_guard guard(mutex_);
        return lastRequest_;
    }
    using ResultsManager::setReturnsInstanceName;
    using ResultsManager::setPreserveUnchangedInstances;
    using ResultsManager::setSkipIncompleteRows;

    std::atomic<int> collections{0};
    std::atomic<int> errorCode{0};
    std::function<void(const char*, const List*)> onRequestInfo;

  private:
    Collector collector_;
    std::mutex mutex_;
    std::string lastRequest_;
};

// Attributes that fit withNameAndNumber.
inline std::vector<Attr> nameAndNumber() { return {{"NAME", 2, 8}, {"N", 0, 4}}; }

class RecordingSink : public RowSink {
  public:
    explicit RecordingSink(AttributeGroupMeta* meta) : meta_(meta) {}
    int AddData(char* row, int size) override {
        rows.emplace_back(row, static_cast<std::size_t>(size));
        return 0;
    }
    AttributeGroupMeta* attributeGroupMeta() override { return meta_; }

    // A column of a row: texts without trailing blanks, numbers in decimal.
    std::string column(std::size_t row, const char* name) const {
        const AttributeMeta* a = meta_->findAttribute(name);
        if (!a || a->offset() < 0 || row >= rows.size()) return "(none)";
        std::string bytes = rows[row].substr(static_cast<std::size_t>(a->offset()), static_cast<std::size_t>(a->length()));
        if (a->isText()) return bytes.erase(bytes.find_last_not_of(' ') + 1);
        if (a->length() == 2) return std::to_string(read<short>(bytes));
        if (a->length() == 8) return std::to_string(read<long long>(bytes));
        return std::to_string(read<int>(bytes));
    }
    std::string names(const char* column = "NAME") const {
        std::string all;
        for (std::size_t i = 0; i < rows.size(); ++i) all += this->column(i, column) + ",";
        return all;
    }
    std::vector<std::string> rows;

  private:
    template <class T>
    static T read(const std::string& bytes) {
        T value;
        std::memcpy(&value, bytes.data(), sizeof value);
        return value;
    }
    AttributeGroupMeta* meta_;
};

// The names of the rows that a request would get.
inline std::string namesOf(ResultsManager& queryClass) {
    RecordingSink sink(findAttributeGroupMeta(queryClass.getAttributeGroup()));
    queryClass.sendDataToHBX(&sink, "node");
    return sink.names();
}

}  // namespace almanac::test
