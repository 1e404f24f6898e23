#include "tests/support/DocsPage.h"

#include "tests/support/ReadFile.h"

#include <algorithm>
#include <cctype>

namespace {

std::string readText(const std::string& path)
{
    const std::vector<uint8_t> bytes = readFile(path);
    return std::string(bytes.begin(), bytes.end());
}

std::string withoutSpace(std::string text)
{
    const auto isSpace = [](unsigned char c) { return std::isspace(c); };
    text.erase(std::remove_if(text.begin(), text.end(), isSpace), text.end());
    return text;
}

} // namespace

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
