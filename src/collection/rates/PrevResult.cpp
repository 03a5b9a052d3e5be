#include "collection/rates/PrevResult.h"

#include <cstdlib>
#include <cstring>
#include <functional>
#include <string_view>
#include <utility>

namespace {

constexpr std::size_t kFewestBuckets = 16;

std::size_t hashOf(const char* name) { return std::hash<std::string_view>{}(name); }

template <class T>
void deleteChain(T* first) {
    while (first) {
        T* next = static_cast<T*>(first->getNextElement());
        delete first;
        first = next;
    }
}

}  // namespace

PrevResult::PrevResult(const char* name) {
    if (!name) name = "";
    const std::size_t size = std::strlen(name) + 1;
    name_ = size <= kInlineName ? inlineName_ : static_cast<char*>(std::malloc(size));
    if (!name_) std::abort();
    std::memcpy(name_, name, size);
}

PrevResult::~PrevResult() {
    if (name_ != inlineName_) std::free(name_);
    std::free(const_cast<char*>(valueString_));
    delete valueUTF8_;
}

void PrevResult::setValue(const char* text) {
    if (text != valueString_) std::free(const_cast<char*>(valueString_));
    valueString_ = text;
}

void PrevResult::setValue(UTF8String* text) {
    if (text != valueUTF8_) delete valueUTF8_;
    valueUTF8_ = text;
}

PrevResultInstance::PrevResultInstance(const char* instanceName)
    : instanceName_(strdup(instanceName ? instanceName : "")), hash_(hashOf(instanceName_)) {}

PrevResultInstance::~PrevResultInstance() {
    deleteChain(first_);
    std::free(instanceName_);
}

void PrevResultInstance::addPrevResult(PrevResult* added) {
    added->setNextElement(nullptr);
    (last_ ? last_->setNextElement(added) : void(first_ = added));
    last_ = added;
    next_ = nullptr;
}

PrevResult* PrevResultInstance::find(const char* name) {
    if (!name) name = "";
    const auto is = [name](const PrevResult* held) { return std::strcmp(held->getName(), name) == 0; };
    PrevResult* found = next_ ? next_ : first_;
    if (!found || !is(found)) {  // names are held once, so any match is the first
        for (found = first_; found && !is(found);) found = static_cast<PrevResult*>(found->getNextElement());
    }
    if (found) next_ = static_cast<PrevResult*>(found->getNextElement());
    return found;
}

void PrevResultList::grow(std::size_t buckets) {
    buckets_.assign(buckets, nullptr);
    // From the oldest to the newest, so that each bucket again begins with what was pushed last.
    PrevResultInstance* oldest = first_;
    while (oldest && oldest->getNextElement()) oldest = static_cast<PrevResultInstance*>(oldest->getNextElement());
    for (; oldest; oldest = static_cast<PrevResultInstance*>(oldest->getPrevElement())) {
        PrevResultInstance*& bucket = bucketOf(oldest->hash_);
        oldest->nextOfBucket_ = bucket;
        bucket = oldest;
    }
}

void PrevResultList::reserve(std::size_t rows) {
    std::size_t buckets = kFewestBuckets;
    while (buckets < rows) buckets *= 2;
    if (buckets > buckets_.size()) grow(buckets);
}

void PrevResultList::push(PrevResultInstance* instance) {
    if (count_ >= buckets_.size()) grow(buckets_.empty() ? kFewestBuckets : buckets_.size() * 2);
    instance->setPrevElement(nullptr);
    instance->setNextElement(first_);
    if (first_) first_->setPrevElement(instance);
    first_ = instance;
    PrevResultInstance*& bucket = bucketOf(instance->hash_);
    instance->nextOfBucket_ = bucket;
    bucket = instance;
    ++count_;
}

PrevResultInstance* PrevResultList::take(const char* name) {
    if (!first_ || !name) return nullptr;
    const std::size_t hash = hashOf(name);
    for (PrevResultInstance** link = &bucketOf(hash); *link; link = &(*link)->nextOfBucket_) {
        PrevResultInstance* found = *link;
        if (found->hash_ != hash || std::strcmp(found->getInstanceName(), name) != 0) continue;
        *link = found->nextOfBucket_;
        found->nextOfBucket_ = nullptr;
        ListElement* previous = found->getPrevElement();
        ListElement* next = found->getNextElement();
        (previous ? previous->setNextElement(next) : void(first_ = static_cast<PrevResultInstance*>(next)));
        if (next) next->setPrevElement(previous);
        found->setPrevElement(nullptr);
        found->setNextElement(nullptr);
        --count_;
        return found;
    }
    return nullptr;
}

void PrevResultList::clear() {
    deleteChain(std::exchange(first_, nullptr));
    count_ = 0;
    buckets_.clear();
    buckets_.shrink_to_fit();
}

void PrevResultList::swap(PrevResultList& other) noexcept {
    std::swap(first_, other.first_);
    std::swap(count_, other.count_);
    buckets_.swap(other.buckets_);
}
