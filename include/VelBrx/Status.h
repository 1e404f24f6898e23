#pragma once

#include <string>
#include <utility>

namespace VelBrx {

/// Success, or one line of text that says what is wrong and what to do, and the kind of the failure. Nothing
/// in this library throws for bad input.
class [[nodiscard]] Status
{
public:
    /// What a caller may want to react to; the text says the rest.
    enum class Kind
    {
        OK,
        CANCELLED, ///< as the caller asked
        NO_SPACE,  ///< a disk or a quota is full
        NO_MEMORY,
        DAMAGED, ///< a file is not what it should be
        IN_USE,  ///< another process edits the file
        OTHER
    };

    Status() = default;

    static Status failure(std::string message, Kind kind = Kind::OTHER)
    {
        Status status;
        status._kind = kind;
        status._message = std::move(message);
        return status;
    }

    bool ok() const { return _kind == Kind::OK; }
    explicit operator bool() const { return ok(); }
    Kind kind() const { return _kind; }
    const std::string& message() const { return _message; }

    /// A failure with the name of what it is about before its message; a success as it is.
    Status of(const std::string& name) const { return ok() ? *this : failure(name + ": " + _message, _kind); }

private:
    Kind _kind = Kind::OK;
    std::string _message;
};

} // namespace VelBrx
