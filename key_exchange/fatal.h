#pragma once

// States that the package's own callers cannot produce from well-formed data
// end the program here instead of being reported.
[[noreturn]] void KeyExchangeFatal(const char* message);
