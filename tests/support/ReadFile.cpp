#include "tests/support/ReadFile.h"

#include <fstream>
#include <iterator>
#include <stdexcept>

std::vector<uint8_t> readFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("cannot read " + path);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(file), {});
}
