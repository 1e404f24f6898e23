#pragma once

#include "tests/support/ReadFile.h"
#include "tests/support/TempFolder.h"

#include <VelBrx/Builder.h>
#include <VelBrx/ExportLas.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

/// Builds a store of one file or folder, in place of one that is there. Fails the test where that fails.
inline void buildStoreOf(const std::string& input, const std::string& output)
{
    VelBrx::BuildOptions options;
    options.inputs = {input};
    options.output = output;
    options.overwrite = true;
    VelBrx::BuildReport report;
    const VelBrx::Status status = VelBrx::buildStore(options, report);
    ASSERT_TRUE(status) << status.message();
}

/// The bytes of the files that a store was built from, as an export of each gives them back.
inline std::vector<std::vector<uint8_t>> sourcesOf(const std::string& store)
{
    const TempFolder folder;
    VelBrx::ExportOptions options;
    options.store = store;
    options.output = folder.file("sources");
    options.form = VelBrx::ExportForm::Split;
    VelBrx::ExportReport report;
    const VelBrx::Status status = VelBrx::exportLas(options, report);
    EXPECT_TRUE(status) << status.message();
    std::vector<std::vector<uint8_t>> sources;
    for (const VelBrx::ExportedFile& file : report.files)
        sources.push_back(readFile(file.path));
    return sources;
}
