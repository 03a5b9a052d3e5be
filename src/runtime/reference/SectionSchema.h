// SectionSchema: what a section of the reference file may hold, for those who check a file before it is used. The daemon
// itself never reads it. A section's room registers its schema beside its parser.
#pragma once

#include <initializer_list>

struct AttributeSchema {
    enum Kind { Text, Required, Boolean, Integer, RequiredInteger };
    const char* name;  // null ends the list
    Kind kind;
    const char* const* texts = nullptr;  // those that mean something, in any case, ended by null; null: any
};

struct ElementSchema {
    const char* element;  // null ends the list
    const AttributeSchema* attributes;
    bool isMetric;  // one of the group's metric elements, with the attributes all metrics share
};

struct SectionSchema {
    const char* section;
    const ElementSchema* elements;  // the section's own element among them
    bool makesQueryClass;           // its `ag` attribute names the attribute group it fills
    bool hasTimestampColumn;        // the first declared attribute takes the time stamp
    bool metricsMayBeLeftOut = false;  // it then shows what its sources have
    const char* fills = nullptr;       // the attribute group of fixed shape that it and others fill, null for none
};

// `schema` and all it points to must live as long as the process.
void registerSectionSchema(const SectionSchema* schema);
const SectionSchema* findSectionSchema(const char* section);

// The attributes that all metric elements share.
extern const AttributeSchema sharedMetricAttributes[];
// The same with some of a section's own, in a list of the caller's that is never freed.
const AttributeSchema* withSharedMetricAttributes(std::initializer_list<AttributeSchema> own);
