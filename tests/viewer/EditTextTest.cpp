#include "viewer/edit/EditText.h"

#include "terminal/ClassList.h"
#include "terminal/EndSignals.h"

#include <gtest/gtest.h>

#include <csignal>

TEST(ClassList, IsReadAndWrittenAsPeopleTypeIt)
{
    EXPECT_TRUE(parseClasses("")->all());
    EXPECT_EQ(listClasses(*parseClasses("6,2,255")), (std::vector<int>{2, 6, 255}));
    const ClassSet allBut = *parseClasses("-7,18");
    EXPECT_EQ(allBut.count(), 254u);
    EXPECT_FALSE(allBut[7] || allBut[18]);
    EXPECT_TRUE(parseClasses("-0")->count() == 255);
    for (const std::string wrong : {"256", "2,", ",2", "-", "2,-3", "a", "2 3", "99999999999999999999", "+2"})
        EXPECT_FALSE(parseClasses(wrong)) << wrong;
    for (const std::string text : {"2,6", "-7,18", "0", "-255"})
        EXPECT_EQ(formatClasses(*parseClasses(text)), text);
    EXPECT_EQ(formatClasses(ClassSet().set()), "all");
}

TEST(EditText, TellsWhatWasDoneAndWhatIsNotSaved)
{
    using Lines = std::vector<std::string>;
    VelOsgDBBrx::EditOutcome outcome;
    outcome.operation = "classify";
    outcome.points = 1234567;
    outcome.classes.emplace();
    outcome.classes->selected = 1234577;
    outcome.classes->before[2] = 1234567;
    outcome.classes->before[9] = outcome.classes->after[9] = 10;
    outcome.classes->after[6] = 1234567;
    EXPECT_EQ(describe(outcome),
              (Lines{"classify: 1 234 567 of 1 234 577 points", "  class 2 ground: 1 234 567 -> 0",
                     "  class 6 building: 0 -> 1 234 567", "  class 9 water: 10"}));
    outcome = VelOsgDBBrx::EditOutcome();
    outcome.operation = "hide inside";
    outcome.ok = false;
    outcome.message = "a.brx cannot be written";
    EXPECT_EQ(describe(outcome), (Lines{"hide inside: not done", "a.brx cannot be written"}));
    EXPECT_EQ(describeUnsaved({{"a.brx", 1}, {"b.brx", 0}, {"c.brx", 1000}}),
              (Lines{"a.brx: the classes of 1 point are not saved",
                     "c.brx: the classes of 1 000 points are not saved"}));
    EXPECT_EQ(describeHidden(0, {}, 1), "");
    EXPECT_EQ(describeHidden(1, {"a.brx"}, 1), "1 point of a.brx is hidden");
    EXPECT_EQ(describeHidden(1000, {"a.brx"}, 2), "1 000 points in 1 of 2 stores are hidden");
    EXPECT_EQ(namesOf({"a", "b", "c", "d", "e"}), "a, b, c and 2 more");
    EXPECT_EQ(firstOf({"a", "b", "c", "d", "e"}), (Lines{"a", "b", "c", "d", "e"}));
    EXPECT_EQ(firstOf(Lines(1006, "a")),
              (Lines{"a", "a", "a", "a", "a", "1 001 more; standard error names all"}));
}

TEST(EndSignals, NoteTheFirstSignalAndLeaveTheSecondAlone)
{
    {
        const EndSignals signals;
        EXPECT_FALSE(signals.received());
        std::raise(SIGTERM);
        EXPECT_TRUE(signals.received());
        EXPECT_EXIT(std::raise(SIGTERM), testing::KilledBySignal(SIGTERM), "");
    }
    const EndSignals again;
    EXPECT_FALSE(again.received());
}
