#include "base/UserError.h"

#include "base/Localisation.h"

#include <boost/asio/error.hpp>
#include <boost/system/system_error.hpp>

namespace velmo {

bool isCancellation(const std::exception_ptr& error) {
    if (!error) return false;
    try {
        std::rethrow_exception(error);
    } catch (const Cancelled&) {
        return true;
    } catch (const boost::system::system_error& system) {
        return system.code() == boost::asio::error::operation_aborted;
    } catch (...) {
        return false;
    }
}

std::string sentenceOf(const std::exception_ptr& error) {
    try {
        if (error) std::rethrow_exception(error);
    } catch (const UserError& known) {
        return known.sentence();
    } catch (const std::exception& other) {
        return tr("Something went wrong: {}", other.what());
    } catch (...) {
    }
    return tr("Something went wrong.");
}

}
