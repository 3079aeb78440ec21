#pragma once

#include <system_error>

// The error code a call throws, or an empty code when it returns normally.
std::error_code ErrorOf(auto&& call) {
    try {
        call();
    } catch (const std::system_error& error) {
        return error.code();
    }
    return {};
}
