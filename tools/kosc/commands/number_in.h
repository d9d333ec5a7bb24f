// A check for options that take numbers with a fraction. CLI::Range lets "nan" through, which compares with nothing.
#ifndef KOSC_TOOL_NUMBER_IN_H
#define KOSC_TOOL_NUMBER_IN_H

#include <sstream>
#include <string>

#include <CLI/CLI.hpp>

// Takes numbers from `low` to `high` and nothing else.
inline CLI::Validator number_in(double low, double high)
{
    std::ostringstream limits;
    limits << low << " to " << high;
    const auto refusal = [low, high, limits = limits.str()](const std::string& text) -> std::string {
        double value = 0.0;
        const bool good = CLI::detail::lexical_cast(text, value) && value >= low && value <= high;
        return good ? "" : text + " is not a number from " + limits;
    };
    return CLI::Validator(refusal, "from " + limits.str());
}

#endif
