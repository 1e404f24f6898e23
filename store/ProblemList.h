#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace VelBrx {

/// Problems found in a store, one line each, at most `kMostOfAKind` of a kind: a damaged store may have
/// billions. One thread at a time.
class ProblemList
{
public:
    static constexpr size_t kMostOfAKind = 100;

    /// `kind` names the kind in the line that counts those left out.
    void add(const std::string& kind, std::string line)
    {
        if (++_countByKind[kind] <= kMostOfAKind) _lines.push_back(std::move(line));
    }

    bool empty() const { return _countByKind.empty(); }

    /// The lines in the order found, then one line for each kind of which some were left out.
    std::vector<std::string> lines() const
    {
        std::vector<std::string> result = _lines;
        for (const auto& [kind, count] : _countByKind)
            if (count > kMostOfAKind)
                result.push_back(kind + ": " + std::to_string(count - kMostOfAKind) + " more");
        return result;
    }

private:
    std::vector<std::string> _lines;
    std::map<std::string, size_t> _countByKind;
};

} // namespace VelBrx
