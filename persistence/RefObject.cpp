#include "persistence/RefObject.h"

namespace varitap {

void RefObject::release() {
    if (--refCount_ == 0) delete this;
}

void RefObject::retain() { ++refCount_; }

int32_t RefObject::retainCount() const { return refCount_; }

bool RefObject::writeProperties(PropertyList&) { return true; }

bool RefObject::readProperties(PropertyList&) { return true; }

bool RefObject::isEqual(const RefObject* other) const { return other == this; }

}  // namespace varitap
