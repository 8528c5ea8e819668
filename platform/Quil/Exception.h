// Exception.h: what is thrown, all under one root. A broken invariant is no exception: see Assert.h.
#pragma once

#include <exception>

#include "Quil/Export.h"
#include "Quil/Text.h"

namespace Quil {

class L2RIB_EXPORT Exception : public std::exception {
 public:
    explicit Exception(String message);
    ~Exception() override;
    const char* what() const noexcept override { return text_.c_str(); }

 protected:
    String text_;
};

// A value outside its bounds. message() names the bounds; what() puts the path of the field before them.
class L2RIB_EXPORT RangeException : public Exception {
 public:
    explicit RangeException(String message, String field = {});
    ~RangeException() override;
    const String& message() const { return message_; }
    const String& field() const { return field_; }
    // The same error as seen from the composite that holds the field.
    RangeException inside(std::string_view outer) const;

 private:
    String message_;
    String field_;  // "host.key", outermost first; empty for a bare value
};

// "no man's land", or misuse of a table: the caller's mistake.
class L2RIB_EXPORT AssertionException : public Exception {
 public:
    using Exception::Exception;
    ~AssertionException() override;
};

// A handler that must be overridden.
class L2RIB_EXPORT NoImplementationException : public Exception {
 public:
    using Exception::Exception;
    ~NoImplementationException() override;
};

// More elements than a fixed-capacity array holds.
class L2RIB_EXPORT InvalidSizeException : public Exception {
 public:
    using Exception::Exception;
    ~InvalidSizeException() override;
};

// Memory, disk space or descriptors ran out.
class L2RIB_EXPORT MemoryResourceException : public Exception {
 public:
    using Exception::Exception;
    ~MemoryResourceException() override;
};

// A call of the operating system failed; the text names it.
class L2RIB_EXPORT SystemException : public Exception {
 public:
    using Exception::Exception;
    ~SystemException() override;
};

}  // namespace Quil
