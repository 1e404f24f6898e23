#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <stdlib.h>

/// A folder of a test's own, removed with all in it at the end of its life.
class TempFolder
{
public:
    TempFolder()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "velbrx-test-XXXXXX").string();
        if (!mkdtemp(pattern.data())) throw std::runtime_error("no temporary folder can be made");
        _path = pattern;
    }

    ~TempFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(_path, ignored);
    }

    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::filesystem::path& path() const { return _path; }

    /// Path of a file in the folder.
    std::string file(const std::string& name) const { return (_path / name).string(); }

    /// Writes a file into the folder and gives its path.
    std::string write(const std::string& name, const std::vector<uint8_t>& bytes) const
    {
        std::ofstream stream(file(name), std::ios::binary);
        stream.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        if (!stream.flush()) throw std::runtime_error("cannot write " + file(name));
        return file(name);
    }

private:
    std::filesystem::path _path;
};
