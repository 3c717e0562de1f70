#include "Cmn_ChunkyPODVector.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <vector>

#include "AllocCounter.h"
#include "AssertCapture.h"

namespace {
struct Record {
    int mKey;
    short mTag;
};
using Vector = Cmn_ChunkyPODVector<Record>;
using Keys = std::vector<int>;

std::vector<Record> Sequence(int iFirst, int iCount) {
    std::vector<Record> records;
    for (int i = 0; i < iCount; ++i) records.push_back({iFirst + i, static_cast<short>(i)});
    return records;
}

// Inserts the keys iFirst, iFirst + 1, ... at iPos.
void InsertSequence(Vector& ioVector, size_t iPos, int iFirst, int iCount) {
    const auto records = Sequence(iFirst, iCount);
    ioVector.Insert(iPos, records.size(), records.data());
}

template <class TContainer>
Keys KeysOf(const TContainer& iRecords) {
    Keys keys;
    for (const Record& record : iRecords) keys.push_back(record.mKey);
    return keys;
}

// The runs GetContiguous reports must tile the vector exactly, each within one chunk.
void ExpectRunsTile(const Vector& iVector) {
    const Cmn_ChunkyVecImpl& impl = iVector.GetImpl();
    size_t index = 0;
    while (index < impl.GetSize()) {
        size_t run = 0;
        auto* recordP = static_cast<const Record*>(impl.GetContiguous(index, &run));
        ASSERT_TRUE(run > 0 && run <= impl.GetRecordsPerChunk()) << run;
        for (size_t i = 0; i < run; ++i) ASSERT_EQ(recordP[i].mKey, iVector[index + i].mKey);
        index += run;
    }
    EXPECT_EQ(index, impl.GetSize());
}
}  // namespace

TEST(Cmn_ChunkyPODVector, MatchesAPlainVectorUnderRandomEdits) {
    std::mt19937 random(1234);
    for (size_t perChunk : {1u, 3u, 8u}) {
        Vector vector(perChunk);
        std::vector<Record> model;
        for (int step = 0; step < 600; ++step) {
            const size_t size = model.size();
            if (random() % 3 != 0 || size == 0) {  // runs longer than a chunk, so inserts split chunks
                const size_t pos = random() % (size + 1);
                const auto records = Sequence(step * 1000, static_cast<int>(random() % (2 * perChunk + 2)) + 1);
                vector.Insert(pos, records.size(), records.data());
                model.insert(model.begin() + static_cast<ptrdiff_t>(pos), records.begin(), records.end());
            } else {
                const size_t first = random() % size;
                const size_t last = first + random() % std::min<size_t>(size - first + 1, 3 * perChunk + 1);
                vector.GetImpl().Erase(first, last);
                model.erase(model.begin() + static_cast<ptrdiff_t>(first), model.begin() + static_cast<ptrdiff_t>(last));
            }
            ASSERT_EQ(KeysOf(vector), KeysOf(model)) << "step " << step << ", " << perChunk << " per chunk";
        }
        ExpectRunsTile(vector);
        // Erasure keeps chunks from going sparse: neighbours are never both half empty.
        EXPECT_LE(vector.GetImpl().GetNumChunks(), 2 * vector.GetSize() / perChunk + 2);
        vector.Erase(vector.begin(), vector.end());
        EXPECT_TRUE(vector.IsEmpty());
        EXPECT_EQ(vector.GetImpl().GetNumChunks(), 0u);
    }
}

TEST(Cmn_ChunkyPODVector, PartitionPointAndReadingAgreeWithAPlainVectorWithoutTouchingTheHeap) {
    std::mt19937 random(77);
    for (size_t perChunk : {1u, 3u, 8u}) {
        Vector vector(perChunk);
        std::vector<Record> model;  // sorted by key, repeats allowed
        for (int step = 0; step < 200; ++step) {
            const Record record{static_cast<int>(random() % 50), 0};
            const auto at = std::upper_bound(model.begin(), model.end(), record.mKey, [](int iKey, const Record& iR) { return iKey < iR.mKey; });
            vector.Insert(static_cast<size_t>(at - model.begin()), 1, &record);
            model.insert(at, record);
            const int key = static_cast<int>(random() % 52) - 1;
            auto before = [key](const Record& iR) { return iR.mKey < key; };
            AllocCounter counter;  // reading never touches the heap
            const size_t found = vector.PartitionPoint(before);
            long sum = 0;
            for (const Record& stored : vector) sum += stored.mKey;
            ASSERT_EQ(counter.Count(), 0u);
            ASSERT_EQ(found, static_cast<size_t>(std::partition_point(model.begin(), model.end(), before) - model.begin()));
            ASSERT_EQ(sum, std::accumulate(model.begin(), model.end(), 0L, [](long iSum, const Record& iR) { return iSum + iR.mKey; }));
        }
    }
}

TEST(Cmn_ChunkyPODVector, IteratorsMoveByIndexAndWorkWithStandardAlgorithms) {
    Vector vector(4);
    for (int i = 0; i < 20; ++i) vector.PushBack({i * 10, 0});
    const Cmn_ChunkyVecImpl& impl = vector.GetImpl();
    Cmn_ChunkyVecImpl_Iterator it(&impl, 0);
    it.Add(7);
    EXPECT_EQ(static_cast<Record*>(it.GetPtr())->mKey, 70);
    it.Add(-3);
    EXPECT_EQ(static_cast<Record*>(it.GetPtr())->mKey, 40);
    EXPECT_EQ(impl.End().Subtract(it), 16);
    EXPECT_EQ(it.Subtract(impl.End()), -16);
    EXPECT_TRUE(impl.Begin() < it);
    EXPECT_EQ(Cmn_ChunkyVecImpl_Iterator(&impl, 20), impl.End());

    const auto byKey = [](const Record& iA, const Record& iB) { return iA.mKey < iB.mKey; };
    const auto upper = std::upper_bound(vector.begin(), vector.end(), Record{95, 0}, byKey);
    EXPECT_EQ(upper - vector.begin(), 10);
    vector.Insert(upper, Record{95, 1});
    EXPECT_EQ(vector[10].mKey, 95);
    EXPECT_TRUE(std::is_sorted(vector.begin(), vector.end(), byKey));
    std::reverse(vector.begin(), vector.end());
    EXPECT_EQ(vector[0].mKey, 190);
}

TEST(Cmn_ChunkyPODVector, RangeInsertTakesFromAnyVectorIncludingItself) {
    Vector source(3), target(5);
    InsertSequence(source, 0, 0, 8);
    target.Insert(target.end(), source.begin() + 2, source.begin() + 7);
    EXPECT_EQ(KeysOf(target), (Keys{2, 3, 4, 5, 6}));
    source.Insert(source.begin() + 1, source.begin(), source.end());
    EXPECT_EQ(KeysOf(source), (Keys{0, 0, 1, 2, 3, 4, 5, 6, 7, 1, 2, 3, 4, 5, 6, 7}));
}

TEST(Cmn_ChunkyPODVector, CopiesAndAssignmentsAreIndependent) {
    Vector original(4);
    InsertSequence(original, 0, 0, 9);
    Vector copy(original), assigned(2), viaAssign(4);
    assigned.PushBack({77, 0});
    assigned = original;
    viaAssign.Assign(original);
    original[0].mKey = -1;
    original.Erase(original.begin() + 5);
    for (const Vector* vectorP : {&copy, &assigned, &viaAssign}) EXPECT_EQ(KeysOf(*vectorP), KeysOf(Sequence(0, 9)));
    original.Destruct();
    EXPECT_TRUE(original.IsEmpty());
    original.PushBack({5, 0});  // usable again after Destruct
    EXPECT_EQ(original[0].mKey, 5);
}

TEST(Cmn_ChunkyPODVector, OutOfRangePositionsAreReportedAndClamped) {
    Vector vector(4);
    AssertCapture asserts;
    InsertSequence(vector, 9, 0, 3);
    EXPECT_EQ(KeysOf(vector), (Keys{0, 1, 2}));
    vector.GetImpl().Erase(1, 10);
    EXPECT_EQ(KeysOf(vector), (Keys{0}));
    EXPECT_EQ(vector.GetImpl().GetPtr(1), nullptr);
    ASSERT_EQ(asserts.Count(), 3u);
    EXPECT_EQ(asserts.Condition(0), "iPos <= mSize");
    EXPECT_EQ(asserts.Condition(1), "iLast <= mSize");
    EXPECT_EQ(asserts.Condition(2), "iIndex < mSize");
}

// Bulk inserts spread over many directory groups; erasures and merges cross them; the key
// search agrees with a search of the records, also after keys were changed in place.
TEST(Cmn_ChunkyPODVector, ManyGroupsKeepOrderAndTheKeySearchFindsItsBound) {
    std::mt19937 random(99);
    for (size_t perChunk : {1u, 5u}) {
        Vector vector(perChunk);
        std::vector<Record> model = Sequence(0, 3000);
        vector.Insert(0, model.size(), model.data());
        for (int step = 0; step < 200; ++step) {
            const size_t first = random() % model.size(), last = std::min(model.size(), first + random() % 700);
            vector.GetImpl().Erase(first, last);
            model.erase(model.begin() + static_cast<ptrdiff_t>(first), model.begin() + static_cast<ptrdiff_t>(last));
            const std::vector<Record> records(1 + random() % 700, Record{static_cast<int>(random() % 4000), 0});  // a run of one key keeps the order
            const size_t at = static_cast<size_t>(std::lower_bound(model.begin(), model.end(), records.front().mKey, [](const Record& iR, int iKey) { return iR.mKey < iKey; }) - model.begin());
            vector.Insert(at, records.size(), records.data());
            model.insert(model.begin() + static_cast<ptrdiff_t>(at), records.begin(), records.end());
            if (step % 50 == 0) {  // keys changed in place are taken up again by RefreshKeys
                for (Record& record : vector) record.mKey *= 2;
                for (Record& record : model) record.mKey *= 2;
                vector.GetImpl().RefreshKeys();
            }
            ASSERT_EQ(KeysOf(vector), KeysOf(model)) << step;
            const int wanted = static_cast<int>(random() % 8000);
            const auto before = [wanted](const void* iKeyP) { return static_cast<const Record*>(iKeyP)->mKey < wanted; };
            const auto expected = std::partition_point(model.begin(), model.end(), [wanted](const Record& iR) { return iR.mKey < wanted; });
            ASSERT_EQ(vector.GetImpl().PartitionPoint(before, true), static_cast<size_t>(expected - model.begin())) << step;
        }
        ExpectRunsTile(vector);
    }
}
