// RowSink: what sending rows needs of a request. GenericAgent is one.
#pragma once

class AttributeGroupMeta;

class RowSink {
  public:
    virtual ~RowSink() = default;
    // Takes one row of `size` bytes, which it copies. Returns a status of the framework; 2: the filter left it out.
    virtual int AddData(char* row, int size) = 0;
    // The metadata of the request's table, null if it has none.
    virtual AttributeGroupMeta* attributeGroupMeta() = 0;
};
