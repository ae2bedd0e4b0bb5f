// What a call of the library came to, for one comparison.
#pragma once

#include <ostream>
#include <type_traits>

#include "lib/report.h"

struct Outcome {
    long result;         // of a pointer 0, of NULL -1
    int code = kErrNone; // that the call noted

    bool operator==(const Outcome &) const = default;
    friend std::ostream &operator<<(std::ostream &stream, const Outcome &outcome)
    {
        return stream << outcome.result << " with code 0x" << std::hex << outcome.code << std::dec;
    }
};

// EXPECT_EQ(outcome(NLIBCFileTouch, "/"), (Outcome{-1, kErrOpen}))
template <typename Call, typename... Arguments> Outcome outcome(const Call &call, Arguments... arguments)
{
    NLIBCErrSet(kErrNone, "", 0);
    const auto result = call(arguments...);
    if constexpr (std::is_pointer_v<decltype(result)>)
        return {result == nullptr ? -1 : 0, NLIBCErrGet()};
    else
        return {static_cast<long>(result), NLIBCErrGet()};
}
