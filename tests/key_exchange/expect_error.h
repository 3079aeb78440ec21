#pragma once

#include <system_error>
#include <utility>

// The error code a call throws, or an empty code when it returns normally.
template <typename Call>
std::error_code ErrorOf(Call&& call) {
    try {
        std::forward<Call>(call)();
    } catch (const std::system_error& error) {
        return error.code();
    }
    return {};
}
