#include "tests/support/EditedStore.h"
#include "tests/support/ReadFile.h"
#include "tests/support/TempFolder.h"
#include "tests/tools/RunBrx.h"

#include <VelBrx/EditHistory.h>
#include <VelBrx/EditJournal.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

using nlohmann::json;

namespace {

constexpr uint32_t kPoints = 500;

/// A store with two edits by anna and an undo.
class History : public testing::Test
{
protected:
    History()
    {
        const EditedStore::Journal journal = EditedStore::open(store);
        uint64_t number = 0;
        uint64_t points = 0;
        EXPECT_TRUE(EditedStore::hide(journal, store, {{1, 4}, {2, 4}, {3, 4}}, number));
        afterFirst = readFile(store);
        EXPECT_TRUE(EditedStore::hide(journal, store, {{3, 2}, {9, 4}}, number));
        afterSecond = readFile(store);
        EXPECT_TRUE(journal->moveTo(1, "bernd", nullptr, points));
    }

    const TempFolder folder;
    const std::vector<uint8_t> original = EditedStore::bytes(kPoints);
    const std::string store = folder.write("store.brx", original);
    std::vector<uint8_t> afterFirst;
    std::vector<uint8_t> afterSecond;
};

void expectFailure(const ProgramResult& result, const std::string& said)
{
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_NE(result.err.find(said), std::string::npos) << result.err;
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
}

} // namespace

TEST_F(History, ListsEditsByAuthorAndTime)
{
    const ProgramResult listed = brx({"history", store, "--json"});
    ASSERT_EQ(listed.exitStatus, 0) << listed.err;
    const json told = json::parse(listed.out);
    EXPECT_EQ(told.at("state"), 1);
    ASSERT_EQ(told.at("entries").size(), 3u);
    const json& second = told.at("entries")[1];
    EXPECT_EQ(second.at("author"), "anna");
    EXPECT_EQ(second.at("operation").at("op"), "cull");
    EXPECT_EQ(second.at("points"), 2);
    EXPECT_EQ(second.at("done"), false);
    EXPECT_EQ(told.at("entries")[2].at("kind"), "undo");
    EXPECT_EQ(told.at("entries")[2].at("change"), 2);

    const auto numbers = [&](const std::vector<std::string>& words) {
        std::vector<std::string> call = {"history", store, "--json"};
        call.insert(call.end(), words.begin(), words.end());
        std::vector<int> found;
        const json filtered = json::parse(brx(call).out);
        for (const json& entry : filtered.at("entries"))
            found.push_back(entry.at("number"));
        return found;
    };
    EXPECT_EQ(numbers({"--by", "bernd"}), std::vector<int>{3});
    EXPECT_EQ(numbers({"--since", second.at("time")}), (std::vector<int>{2, 3}));
    EXPECT_EQ(numbers({"--since", "2100-01-01"}), std::vector<int>());
    EXPECT_EQ(brx({"history", store, "--since", "yesterday"}).exitStatus, 2);

    const ProgramResult text = brx({"history", store});
    EXPECT_EQ(std::count(text.out.begin(), text.out.end(), '\n'), 3) << text.out;
    for (const char* part :
         {"anna  3 points, hidden bits: {\"op\":\"cull\"}\n", "(undone)", "bernd  undo of 2"})
        EXPECT_NE(text.out.find(part), std::string::npos) << text.out;
    const std::string unedited = folder.write("unedited.brx", original);
    EXPECT_NE(brx({"history", unedited}).out.find("no edits are written down"), std::string::npos);
    expectFailure(brx({"history", folder.file("none.brx")}), "none.brx: cannot be opened");
}

TEST_F(History, OfAnEnemySteersNoTerminalAndExhaustsNoStack)
{
    constexpr size_t kDeep = 300000;
    const EditedStore::Journal journal = EditedStore::open(store);
    VelBrx::EditRecorder recorder(*journal);
    VelBrx::EditDescription edit;
    edit.author = "\x1b[2Jeve\n";
    edit.operation = std::string(kDeep, '[') + std::string(kDeep, ']');
    ASSERT_TRUE(recorder.begin(edit));
    VelBrx::EditRuns runs(recorder);
    const auto flags = static_cast<uint8_t>(afterFirst[EditedStore::kStart + 20 * 36 + 15] & 0x0F);
    runs.add(20, 1, flags, flags ^ 4);
    uint64_t number = 0;
    ASSERT_TRUE(runs.finish() && recorder.commit(number));

    const ProgramResult listed = brx({"history", store});
    EXPECT_EQ(listed.exitStatus, 0) << listed.err;
    EXPECT_NE(listed.out.find("  ?[2Jeve?  "), std::string::npos) << listed.out;
    EXPECT_LT(listed.out.size(), 1000u);
    const ProgramResult asJson = brx({"history", store, "--json"});
    EXPECT_EQ(asJson.exitStatus, 0) << asJson.err;
    EXPECT_NE(asJson.out.find("\"[[["), std::string::npos) << "a text that is no operation is told as a text";
}

TEST_F(History, GoesBackAndForwardAgain)
{
    const std::pair<const char*, const std::vector<uint8_t>*> states[] = {
        {"0", &original}, {"2", &afterSecond}, {"3", &afterFirst}, {"2", &afterSecond}, {"1", &afterFirst}};
    for (const auto& [entry, bytes] : states) {
        const ProgramResult reverted = brx({"revert", store, "--to", entry});
        EXPECT_EQ(reverted.exitStatus, 0) << reverted.err;
        EXPECT_TRUE(readFile(store) == *bytes) << entry;
        EXPECT_EQ(VelBrx::verifyEdits(store), std::vector<std::string>());
    }
    expectFailure(brx({"revert", store, "--to", "99"}), "has no entry 99");
    const json told = json::parse(brx({"history", store, "--json"}).out);
    EXPECT_EQ(told.at("state"), 1);
    EXPECT_EQ(told.at("entries").size(), 3u + 6u) << "every step is an entry";

    std::vector<uint8_t> foreign = afterFirst;
    foreign[EditedStore::kStart + 2 * 36 + 15] ^= 1;
    folder.write("store.brx", foreign);
    expectFailure(brx({"revert", store, "--to", "0"}), "point 2 of cell 00-0000000000000000");
    const ProgramResult verified = brx({"verify", store});
    EXPECT_EQ(verified.exitStatus, 1);
    EXPECT_NE(verified.out.find("edit 1: 1 of its points are not as the journal says"), std::string::npos);
    EXPECT_NE(verified.err.find("does not fit its journal"), std::string::npos) << verified.err;
}

TEST_F(History, PrintsWhatIsInEffectAsAScript)
{
    const ProgramResult whole = brx({"history", store, "--script", "1..2"});
    EXPECT_EQ(json::parse(whole.out), json::parse(R"([{"op":"cull"}, {"op":"cull"}])")) << whole.err;
    EXPECT_EQ(json::parse(brx({"history", store, "--script", "1..3"}).out),
              json::parse(R"([{"op":"cull"}])"));
    EXPECT_EQ(json::parse(brx({"history", store, "--script", "2"}).out).size(), 1u);
    expectFailure(brx({"history", store, "--script", "3"}), "takes edit 2 back; begin there");
    expectFailure(brx({"history", store, "--script", "2..4"}), "no entries 2 to 4");
    EXPECT_EQ(brx({"history", store, "--script", "x"}).exitStatus, 2);
}

TEST_F(History, ForgetsWhatIsOldAndSaysHowMuch)
{
    EXPECT_EQ(brx({"history", store, "--forget"}).exitStatus, 2) << "before what?";
    EXPECT_EQ(brx({"history", store, "--forget", "--before", "2000-01-01"}).out,
              store + ": 0 entries forgotten\n");
    EXPECT_EQ(brx({"history", store, "--forget", "--before", "2100-01-01T00:00:00Z"}).out,
              store + ": 3 entries forgotten\n");
    expectFailure(brx({"revert", store, "--to", "0"}), "has no entry 0, but 3 to 3");
    EXPECT_TRUE(readFile(store) == afterFirst);
}

TEST_F(History, OfAStoreIsNotThrownAwayByABuild)
{
    const std::string survey = folder.file("survey.las");
    ASSERT_EQ(brx({"sample", survey, "--points", "2000"}).exitStatus, 0);
    const std::vector<uint8_t> journal = readFile(store + ".edits");
    const std::string copy = folder.file("copy.brx");
    std::filesystem::copy_file(store, copy);
    std::filesystem::copy_file(store + ".edits", copy + ".edits");
    EXPECT_EQ(brx({"build", survey, "-o", copy, "--keep-edits"}).exitStatus, 2) << "nothing is replaced";
    const ProgramResult kept = brx({"build", survey, "-o", copy, "--force", "--keep-edits", "--json"});
    EXPECT_EQ(json::parse(kept.out).at("edits"),
              json::parse(R"({"kept":0, "points":4, "lost":2, "lostPoints":4})"))
        << kept.err;
    for (const bool isThere : {true, false}) {
        if (!isThere) std::filesystem::remove(store);
        expectFailure(brx({"build", survey, "-o", store, "--force"}),
                      "store.brx.edits: is a journal of 3 edits");
        EXPECT_EQ(std::filesystem::exists(store), isThere);
        EXPECT_TRUE(readFile(store + ".edits") == journal);
    }
    std::filesystem::remove(store + ".edits");
    EXPECT_EQ(brx({"build", survey, "-o", store}).exitStatus, 0);
}
