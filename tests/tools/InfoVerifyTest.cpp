#include "tests/support/TempFolder.h"
#include "tests/support/TestStore.h"
#include "tests/tools/RunBrx.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

using nlohmann::json;

namespace {

/// The words of `text`, one blank between any two.
std::string squeezed(const std::string& text)
{
    std::istringstream words(text);
    std::string result;
    for (std::string word; words >> word;)
        result += word + ' ';
    return result;
}

class InfoAndVerify : public testing::Test
{
protected:
    std::string write(const TestStore& store) const { return _folder.write("small.brx", store.bytes()); }

    const TempFolder _folder;
};

} // namespace

TEST_F(InfoAndVerify, DescribeASoundStoreInJson)
{
    TestStore store = smallStore();
    store.points[0].classCode = 200; // edits after the build
    store.points[1].flags = 0x04;
    const std::string path = write(store);

    const ProgramResult info = brx({"info", path, "--json"});
    EXPECT_EQ(info.exitStatus, 0) << info.err;
    EXPECT_EQ(info.err, "");
    const json told = json::parse(info.out);
    EXPECT_EQ(told.at("points"), 14);
    EXPECT_EQ(told.at("hiddenPoints"), 1);
    EXPECT_EQ(told.at("cells"), 5);
    const json levels = json::parse(R"([{"level":0,"cells":1,"points":4}, {"level":1,"cells":2,"points":5},
                                        {"level":2,"cells":2,"points":5}])");
    EXPECT_EQ(told.at("levels"), levels);
    EXPECT_EQ(told.at("bounds").at("min"), json::parse("[635992.01, 848993.0, 393.0]"));
    EXPECT_EQ(told.at("scale"), json::parse("[0.01, 0.01, 0.01]"));
    EXPECT_EQ(told.at("offset"), json::parse("[636000.0, 849000.0, 400.0]"));
    EXPECT_EQ(told.at("coordinateSystem"), store.coordinateSystem);
    EXPECT_EQ(told.at("storeId"), "0123456789abcdef");
    EXPECT_EQ(told.at("formatVersion"), 1);
    EXPECT_EQ(told.at("pointsByClass").at("200"), 1);
    EXPECT_EQ(told.at("pointsByReturn").at("1"), store.index.statistics.pointsByReturn[1]);
    EXPECT_EQ(told.at("pointsByNumberOfReturns"), json::parse(R"({"2":14})"));

    const ProgramResult verify = brx({"verify", path, "--json"});
    EXPECT_EQ(verify.exitStatus, 0);
    EXPECT_EQ(verify.err, "");
    EXPECT_EQ(json::parse(verify.out), json::parse(R"({"sound":true, "problems":[]})"));
}

TEST_F(InfoAndVerify, DescribeASoundStoreToPeople)
{
    TestStore store = smallStore();
    store.coordinateSystem = "LOCAL_CS[\"\x1b[31m\xff\"]"; // a colour code, and a byte that is not UTF-8
    const std::string path = write(store);

    const ProgramResult info = brx({"info", path});
    EXPECT_EQ(info.exitStatus, 0) << info.err;
    EXPECT_EQ(info.out.find('\x1b'), std::string::npos);
    const std::string text = squeezed(info.out);
    for (const char* part : {"points 14 ", "cells 5 ", "largest x y z 636007.99 849007.99 407.70 ",
                             "store id 0123456789abcdef ", "level cells points 0 1 4 1 2 5 2 2 5 "})
        EXPECT_NE(text.find(part), std::string::npos) << part << "\nin:\n" << info.out;
    EXPECT_TRUE(json::accept(brx({"info", path, "--json"}).out));

    const ProgramResult verify = brx({"verify", path});
    EXPECT_EQ(verify.exitStatus, 0);
    EXPECT_EQ(verify.out, path + ": sound\n");
}

TEST_F(InfoAndVerify, RefuseADamagedStore)
{
    TestStore store = smallStore();
    store.points[6].x = -5; // outside its cell; the header and the index do not tell
    std::string path = write(store);
    EXPECT_EQ(brx({"info", path}).exitStatus, 0);
    ProgramResult verify = brx({"verify", path});
    EXPECT_EQ(verify.exitStatus, 1);
    EXPECT_EQ(verify.out.rfind(path + ": cell 01-0000000000000007: 1 of its points lie outside it", 0), 0u)
        << verify.out;
    EXPECT_EQ(verify.err,
              "brx: " + path + ": is damaged (problems found: 1); restore it from a copy or build it anew\n");

    std::vector<uint8_t> file = store.bytes();
    file.back() ^= 1;
    path = _folder.write("small.brx", file);
    const ProgramResult info = brx({"info", path, "--json"});
    EXPECT_EQ(info.exitStatus, 1);
    EXPECT_EQ(info.out, "");
    EXPECT_NE(info.err.find(path + ": the octree index does not match its checksum; "), std::string::npos)
        << info.err;
    verify = brx({"verify", path, "--json"});
    EXPECT_EQ(verify.exitStatus, 1);
    EXPECT_EQ(json::parse(verify.out).at("sound"), false);
    EXPECT_EQ(json::parse(verify.out).at("problems").size(), 1u);
}

/// What is told of the source, of COPC made of it and of the store is the same.
TEST_F(InfoAndVerify, DescribeOtherFilesWithoutBuilding)
{
    const std::string las = _folder.file("survey.las");
    const std::string store = _folder.file("survey.brx");
    const std::string copc = _folder.file("survey.copc.laz");
    ASSERT_EQ(brx({"sample", las, "--points", "20000"}).exitStatus, 0);
    ASSERT_EQ(brx({"build", las, "-o", store}).exitStatus, 0);
    ASSERT_EQ(brx({"export", store, copc}).exitStatus, 0);
    const json ofStore = json::parse(brx({"info", store, "--json"}).out);
    const json ofLas = json::parse(brx({"info", las, "--json"}).out);
    const json ofCopc = json::parse(brx({"info", copc, "--json"}).out);
    for (const char* fact : {"points", "bounds", "coordinateSystem", "scale", "pointsByClass",
                             "pointsByReturn", "pointsByNumberOfReturns"}) {
        EXPECT_EQ(ofLas.at(fact), ofStore.at(fact)) << fact;
        EXPECT_EQ(ofCopc.at(fact), ofStore.at(fact)) << fact;
    }
    EXPECT_TRUE(ofCopc.at("copc") && ofCopc.at("compressed") && !ofLas.at("compressed"));
    EXPECT_EQ(ofCopc.at("gpsTime"), ofLas.at("gpsTime"));
    EXPECT_LT(ofLas.at("gpsTime")[0], ofLas.at("gpsTime")[1]);
    const std::string text = squeezed(brx({"info", las}).out);
    for (const char* part : {"format LAS 1.4 ", " ground ", "edits", "record LASF_Projection 2112, "})
        EXPECT_EQ(text.find(part) != std::string::npos, part != std::string("edits")) << part << text;

    const ProgramResult verify = brx({"verify", las});
    EXPECT_EQ(verify.exitStatus, 1);
    EXPECT_EQ(verify.out, "");
    EXPECT_EQ(verify.err,
              "brx: " + las + ": is a LAS file without an octree index; build a store with 'brx build'\n");
}
