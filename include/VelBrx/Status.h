#pragma once

#include <string>
#include <utility>

namespace VelBrx {

/// Success, or one line of text that says what is wrong and what to do. Nothing in this library throws for
/// bad input.
class [[nodiscard]] Status
{
public:
    Status() = default;

    static Status failure(std::string message)
    {
        Status status;
        status._failed = true;
        status._message = std::move(message);
        return status;
    }

    bool ok() const { return !_failed; }
    explicit operator bool() const { return ok(); }
    const std::string& message() const { return _message; }

private:
    bool _failed = false;
    std::string _message;
};

} // namespace VelBrx
