#pragma once

#include "text/ExceptionText.hpp"

#include <exception>
#include <optional>
#include <string>
#include <utility>

namespace Zel::Tools::Nimhost {

// The answer of one module query as the report shows it: the value, or the
// exception that the query threw instead. A failed field shows in its own
// cell and does not stop the report.
template <typename T>
struct Outcome {
    std::optional<T> value;
    std::string errorType;
    std::string errorMessage;
    // The query failed because the file holds no such value: shown as
    // "not set", not as an error.
    bool notSet = false;
    // What a user reads about the failure, where nimhost knows better than
    // the exception's own text; empty otherwise.
    std::string userText;

    bool Ok() const { return value.has_value(); }
};

// The one place where the report turns a throwing query into a cell.
template <typename Query>
auto Attempt(Query&& query) -> Outcome<decltype(query())>
{
    Outcome<decltype(query())> outcome;
    try {
        outcome.value.emplace(query());
    } catch (const std::exception& e) {
        outcome.errorType = ExceptionTypeName(e);
        outcome.errorMessage = e.what();
    } catch (...) {
        outcome.errorType = "unknown exception";
    }
    return outcome;
}

} // namespace Zel::Tools::Nimhost
