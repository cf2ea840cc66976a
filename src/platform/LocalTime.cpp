#include "platform/LocalTime.h"

#include <ctime>

namespace velmo {

CivilTime localTime(Date date) {
    const std::time_t seconds = std::chrono::floor<std::chrono::seconds>(date).time_since_epoch().count();
    std::tm local{};
    if (localtime_r(&seconds, &local) == nullptr) return civilTime(date);
    return civilTime(date, std::chrono::floor<std::chrono::minutes>(std::chrono::seconds{local.tm_gmtoff}));
}

}
