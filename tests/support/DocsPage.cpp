#include "tests/support/DocsPage.h"

#include "tests/support/ReadFile.h"

#include <algorithm>
#include <cctype>
#include <sstream>

namespace {

std::string withoutSpace(std::string text)
{
    const auto isSpace = [](unsigned char c) { return std::isspace(c); };
    text.erase(std::remove_if(text.begin(), text.end(), isSpace), text.end());
    return text;
}

} // namespace

std::string readText(const std::string& path)
{
    const std::vector<uint8_t> bytes = readFile(path);
    return std::string(bytes.begin(), bytes.end());
}

std::vector<std::string> codeBlocks(const std::string& pagePath, const std::string& language)
{
    const std::string text = readText(pagePath);
    const std::string open = "```" + language + "\n";
    std::vector<std::string> found;
    for (size_t begin = text.find(open); begin != std::string::npos; begin = text.find(open, begin)) {
        begin += open.size();
        found.push_back(text.substr(begin, text.find("```", begin) - begin));
    }
    return found;
}

std::vector<std::string> blocksNotIn(const std::string& sourcePath, const std::string& pagePath)
{
    const std::string source = withoutSpace(readText(sourcePath));
    std::vector<std::string> blocks = codeBlocks(pagePath, "cpp");
    if (blocks.empty()) return {pagePath + " shows no code"};
    const auto isThere = [&](const std::string& block) {
        return source.find(withoutSpace(block)) != std::string::npos;
    };
    blocks.erase(std::remove_if(blocks.begin(), blocks.end(), isThere), blocks.end());
    return blocks;
}

std::vector<std::string> keysInTables(const std::string& pagePath)
{
    std::istringstream lines(readText(pagePath));
    std::vector<std::string> keys;
    bool inTable = false;
    bool ofKeys = false;
    for (std::string line; std::getline(lines, line);) {
        const std::string column = line.substr(0, line.find(" |", 2));
        const bool isHead = !inTable;
        inTable = line.rfind("| ", 0) == 0 || line.rfind("|-", 0) == 0;
        if (isHead) ofKeys = inTable && column.find("key") != std::string::npos;
        if (!ofKeys || isHead) continue;
        for (size_t begin = column.find('`'); begin != std::string::npos;) {
            const size_t end = column.find('`', begin + 1);
            keys.push_back(column.substr(begin + 1, end - begin - 1));
            begin = end == std::string::npos ? end : column.find('`', end + 1);
        }
    }
    return keys;
}
