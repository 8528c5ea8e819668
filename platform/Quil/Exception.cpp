#include "Quil/Exception.h"

#include <utility>

namespace Quil {

// The destructors stand here so that each type has one home, which a catch in another library recognises.
Exception::Exception(String message) : text_(std::move(message)) {}
Exception::~Exception() = default;
RangeException::~RangeException() = default;
AssertionException::~AssertionException() = default;
NoImplementationException::~NoImplementationException() = default;
InvalidSizeException::~InvalidSizeException() = default;
MemoryResourceException::~MemoryResourceException() = default;
SystemException::~SystemException() = default;

RangeException::RangeException(String message, String field)
    : Exception(field.empty() ? message : cat(field, ": ", message)),
      message_(std::move(message)),
      field_(std::move(field)) {}

RangeException RangeException::inside(std::string_view outer) const {
    return RangeException(message_, field_.empty() ? String(outer) : cat(outer, ".", field_));
}

}  // namespace Quil
