#pragma once

#include <VelBrx/Builder.h>

#include <gtest/gtest.h>

#include <string>

/// Builds a store of one file, in place of one that is there. Fails the test where that fails.
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
