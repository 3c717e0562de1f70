#include "Cmn_PolyVector.h"

#include <gtest/gtest.h>

#include <string>

#include "Cmn_BitArray.h"

namespace {
// Counts live instances, so leaks and double destruction show.
struct Tracked {
    static inline int sLive = 0;
    explicit Tracked(std::string iText) : mText(std::move(iText)) { ++sLive; }
    Tracked(const Tracked& iOther) : mText(iOther.mText) { ++sLive; }
    Tracked(Tracked&& iOther) noexcept : mText(std::move(iOther.mText)) { ++sLive; }
    ~Tracked() { --sLive; }
    std::string mText;
};

std::string Join(const Cmn_PolyVector<Tracked>& iVector) {
    std::string joined;
    for (const Tracked& element : iVector) joined += element.mText;
    return joined;
}
}  // namespace

TEST(Cmn_PolyVector, InsertsEraseAndDestroysEveryElementOnce) {
    {
        Cmn_PolyVector<Tracked> vector;
        for (const char* text : {"a", "b", "c", "d", "e"}) vector.PushBack(Tracked(text));
        vector.Insert(2, Tracked("X"));
        EXPECT_EQ(Join(vector), "abXcde");
        vector.Erase(0);
        vector.Erase(1, 3);
        EXPECT_EQ(Join(vector), "bde");
        const Tracked more[] = {Tracked("1"), Tracked("2")};
        vector.Insert(1, more, more + 2);
        EXPECT_EQ(Join(vector), "b12de");
        Cmn_PolyVector<Tracked> copy(vector);
        vector.Init();
        EXPECT_TRUE(vector.IsEmpty());
        EXPECT_EQ(Join(copy), "b12de");
        EXPECT_EQ(Tracked::sLive, 5 + 2);
    }
    EXPECT_EQ(Tracked::sLive, 0);
}

TEST(Cmn_PolyVector, InsertingAnElementOfTheSameVectorCopiesItFirst) {
    Cmn_PolyVector<Tracked> vector;
    vector.Reserve(8);  // room to spare: the element must not be moved away before it is copied
    for (const char* text : {"a", "b", "c"}) vector.PushBack(Tracked(text));
    vector.Insert(0, vector[1]);
    EXPECT_EQ(Join(vector), "babc");
    vector.Insert(4, vector[0]);
    EXPECT_EQ(Join(vector), "babcb");
}

TEST(Cmn_BitArray, FlagsSpanWordsAndEqualityIgnoresUnusedBits) {
    Cmn_BitArray<128> flags;
    for (int bit : {0, 31, 32, 127}) flags.Set(bit, true);
    EXPECT_TRUE(flags.Get(31) && flags.Get(32) && flags.Get(127) && !flags.Get(1) && !flags.Get(126));
    EXPECT_EQ(flags.GetWord(0), 0x80000001u);
    EXPECT_EQ(flags.GetWord(1), 1u);
    EXPECT_EQ(flags.GetWord(3), 0x80000000u);
    flags.Set(31, false);
    EXPECT_EQ(flags.GetWord(0), 1u);

    Cmn_BitArray<40> a, b;
    a.SetAll();
    EXPECT_EQ(a.GetWord(1), 0xFFu);
    b.InvertAll();
    EXPECT_EQ(a, b);
    a.InvertAll();
    b.ClearAll();
    EXPECT_EQ(a, b);
}
