#include "formats/MailDate.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto date = velmo::parseDate({reinterpret_cast<const char*>(data), size});
    // A day beyond the years that the calendar takes is possible at their ends, by the zone.
    constexpr std::int64_t bound = 10'000LL * 366 * 86'400'000;
    if (date && (velmo::unixMilliseconds(*date) > bound || velmo::unixMilliseconds(*date) < -bound)) std::abort();
    return 0;
}
