#include "Quilo/PodArray.h"

namespace Quilo {

void throwInvalidSize(std::size_t capacity, std::size_t count, const void* source, std::size_t sourceSize) {
    Quil::String dump;
    for (std::size_t i = 0; i < sourceSize; ++i) {
        const unsigned byte = static_cast<const std::uint8_t*>(source)[i];
        dump += Quil::cat(i == 0 ? "" : " ", byte < 16 ? "0" : "", Quil::hex(byte));
    }
    throw Quil::InvalidSizeException(
        Quil::cat("PodArray::set expected size <= ", capacity, ", instead got ", count, ". Buffer is at address: 0x",
                  Quil::hex(reinterpret_cast<std::uintptr_t>(source)), " with contents: ", dump));
}

}  // namespace Quilo
