#include "collection/expression/DerivedStorage.h"

struct DerivedStorage::Records {};

DerivedStorage::DerivedStorage() = default;
DerivedStorage::~DerivedStorage() = default;

void DerivedStorage::clear() { records_.reset(); }
