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

std::vector<Record> Sequence(int iFirst, int iCount) {
    std::vector<Record> records;
    for (int i = 0; i < iCount; ++i) records.push_back({iFirst + i, static_cast<short>(i)});
    return records;
}

template <class TContainer>
std::vector<int> Keys(const TContainer& iRecords) {
    std::vector<int> keys;
    for (const Record& record : iRecords) keys.push_back(record.mKey);
    return keys;
}

// The runs GetContiguous reports must tile the vector exactly, each within one chunk.
void ExpectRunsTile(const Cmn_ChunkyPODVector<Record>& iVector) {
    const Cmn_ChunkyVecImpl& impl = iVector.GetImpl();
    size_t index = 0;
    while (index < impl.GetSize()) {
        size_t run = 0;
        auto* recordP = static_cast<const Record*>(impl.GetContiguous(index, &run));
        ASSERT_GT(run, 0u);
        ASSERT_LE(run, impl.GetRecordsPerChunk());
        for (size_t i = 0; i < run; ++i) ASSERT_EQ(recordP[i].mKey, iVector[index + i].mKey);
        index += run;
    }
    EXPECT_EQ(index, impl.GetSize());
}
}  // namespace

TEST(Cmn_ChunkyPODVector, InsertsAcrossChunkBoundaries) {
    Cmn_ChunkyPODVector<Record> vector(4);
    const auto first = Sequence(0, 10);
    vector.Insert(size_t{0}, first.size(), first.data());  // spans three chunks at once
    EXPECT_EQ(vector.GetSize(), 10u);
    EXPECT_EQ(vector.GetImpl().GetNumChunks(), 3u);
    const auto middle = Sequence(100, 3);
    vector.Insert(size_t{4}, middle.size(), middle.data());  // exactly at a chunk boundary
    vector.Insert(size_t{6}, middle.size(), middle.data());  // inside a full chunk: splits it
    vector.Insert(vector.GetSize(), middle.size(), middle.data());
    EXPECT_EQ(Keys(vector), (std::vector<int>{0, 1, 2, 3, 100, 101, 100, 101, 102, 102, 4, 5, 6, 7, 8, 9, 100, 101, 102}));
    ExpectRunsTile(vector);
}

TEST(Cmn_ChunkyPODVector, ErasesAcrossChunkBoundariesAndMergesSparseChunks) {
    Cmn_ChunkyPODVector<Record> vector(4);
    const auto records = Sequence(0, 16);
    vector.Insert(size_t{0}, records.size(), records.data());
    vector.Erase(vector.begin() + 3, vector.begin() + 13);  // leaves parts of the first and last chunk
    EXPECT_EQ(Keys(vector), (std::vector<int>{0, 1, 2, 13, 14, 15}));
    EXPECT_EQ(vector.GetImpl().GetNumChunks(), 2u);
    vector.Erase(vector.begin());
    vector.Erase(vector.end() - 1);
    EXPECT_EQ(Keys(vector), (std::vector<int>{1, 2, 13, 14}));
    EXPECT_EQ(vector.GetImpl().GetNumChunks(), 1u);
    ExpectRunsTile(vector);
    vector.Erase(vector.begin(), vector.end());
    EXPECT_TRUE(vector.IsEmpty());
    EXPECT_EQ(vector.GetImpl().GetNumChunks(), 0u);
}

TEST(Cmn_ChunkyPODVector, MatchesAPlainVectorUnderRandomEdits) {
    std::mt19937 random(1234);
    for (size_t perChunk : {1u, 3u, 8u}) {
        Cmn_ChunkyPODVector<Record> vector(perChunk);
        std::vector<Record> model;
        int nextKey = 0;
        for (int step = 0; step < 600; ++step) {
            const size_t size = model.size();
            if (random() % 3 != 0 || size == 0) {
                const size_t pos = random() % (size + 1);
                const auto records = Sequence(nextKey, static_cast<int>(random() % (2 * perChunk + 2)) + 1);
                nextKey += 1000;
                vector.Insert(pos, records.size(), records.data());
                model.insert(model.begin() + static_cast<ptrdiff_t>(pos), records.begin(), records.end());
            } else {
                const size_t first = random() % size;
                const size_t last = first + random() % std::min<size_t>(size - first + 1, 3 * perChunk + 1);
                vector.GetImpl().Erase(first, last);
                model.erase(model.begin() + static_cast<ptrdiff_t>(first), model.begin() + static_cast<ptrdiff_t>(last));
            }
            ASSERT_EQ(Keys(vector), Keys(model)) << "step " << step << ", " << perChunk << " per chunk";
        }
        ExpectRunsTile(vector);
        // Erasure keeps chunks from going sparse: neighbours are never both half empty.
        const Cmn_ChunkyVecImpl& impl = vector.GetImpl();
        EXPECT_LE(impl.GetNumChunks(), 2 * impl.GetSize() / perChunk + 2);
    }
}

TEST(Cmn_ChunkyPODVector, IteratorsMoveByIndexAndWorkWithStandardAlgorithms) {
    Cmn_ChunkyPODVector<Record> vector(4);
    std::vector<Record> records;
    for (int i = 0; i < 20; ++i) records.push_back({i * 10, 0});
    vector.Insert(size_t{0}, records.size(), records.data());

    Cmn_ChunkyVecImpl_Iterator it(&vector.GetImpl(), 0);
    it.Add(7);
    EXPECT_EQ(static_cast<Record*>(it.GetPtr())->mKey, 70);
    it.Add(-3);
    EXPECT_EQ(static_cast<Record*>(it.GetPtr())->mKey, 40);
    EXPECT_EQ(vector.GetImpl().End().Subtract(it), 16);
    EXPECT_EQ(it.Subtract(vector.GetImpl().End()), -16);
    EXPECT_TRUE(vector.GetImpl().Begin() < it);
    EXPECT_EQ(Cmn_ChunkyVecImpl_Iterator(&vector.GetImpl(), 20), vector.GetImpl().End());

    const auto upper = std::upper_bound(vector.begin(), vector.end(), 95,
                                        [](int iKey, const Record& iRecord) { return iKey < iRecord.mKey; });
    EXPECT_EQ(upper - vector.begin(), 10);
    vector.Insert(upper, Record{95, 1});
    EXPECT_EQ(vector[10].mKey, 95);
    EXPECT_TRUE(std::is_sorted(vector.begin(), vector.end(), [](const Record& iA, const Record& iB) { return iA.mKey < iB.mKey; }));
    std::reverse(vector.begin(), vector.end());
    EXPECT_EQ(vector[0].mKey, 190);
}

TEST(Cmn_ChunkyPODVector, RangeInsertTakesFromAnyVectorIncludingItself) {
    Cmn_ChunkyPODVector<Record> source(3), target(5);
    const auto records = Sequence(0, 8);
    source.Insert(size_t{0}, records.size(), records.data());
    target.Insert(target.end(), source.begin() + 2, source.begin() + 7);
    EXPECT_EQ(Keys(target), (std::vector<int>{2, 3, 4, 5, 6}));
    source.Insert(source.begin() + 1, source.begin(), source.end());
    EXPECT_EQ(Keys(source), (std::vector<int>{0, 0, 1, 2, 3, 4, 5, 6, 7, 1, 2, 3, 4, 5, 6, 7}));
}

TEST(Cmn_ChunkyPODVector, CopiesAndAssignmentsAreIndependent) {
    Cmn_ChunkyPODVector<Record> original(4);
    const auto records = Sequence(0, 9);
    original.Insert(size_t{0}, records.size(), records.data());
    Cmn_ChunkyPODVector<Record> copy(original);
    Cmn_ChunkyPODVector<Record> assigned(2);
    assigned.PushBack({77, 0});
    assigned = original;
    Cmn_ChunkyPODVector<Record> viaAssign(4);
    viaAssign.Assign(original);
    original[0].mKey = -1;
    original.Erase(original.begin() + 5);
    for (const auto* vectorP : {&copy, &assigned, &viaAssign}) EXPECT_EQ(Keys(*vectorP), Keys(records));
    original.Destruct();
    EXPECT_TRUE(original.IsEmpty());
    original.PushBack({5, 0});  // usable again after Destruct
    EXPECT_EQ(original[0].mKey, 5);
}

TEST(Cmn_ChunkyPODVector, ReadingNeverTouchesTheHeap) {
    Cmn_ChunkyPODVector<Record> vector(4);
    const auto records = Sequence(0, 50);
    vector.Insert(size_t{0}, records.size(), records.data());
    AllocCounter counter;
    long sum = 0;
    for (const Record& record : vector) sum += record.mKey;
    sum += std::lower_bound(vector.begin(), vector.end(), 25, [](const Record& iR, int iKey) { return iR.mKey < iKey; })->mKey;
    EXPECT_EQ(counter.Count(), 0u);
    EXPECT_EQ(sum, 49 * 50 / 2 + 25);
}

TEST(Cmn_ChunkyPODVector, OutOfRangePositionsAreReportedAndClamped) {
    Cmn_ChunkyPODVector<Record> vector(4);
    const auto records = Sequence(0, 3);
    AssertCapture asserts;
    vector.Insert(size_t{9}, records.size(), records.data());
    EXPECT_EQ(Keys(vector), (std::vector<int>{0, 1, 2}));
    vector.GetImpl().Erase(1, 10);
    EXPECT_EQ(Keys(vector), (std::vector<int>{0}));
    EXPECT_EQ(vector.GetImpl().GetPtr(1), nullptr);
    ASSERT_EQ(asserts.Count(), 3u);
    EXPECT_EQ(asserts.Condition(0), "iPos <= mSize");
    EXPECT_EQ(asserts.Condition(1), "iLast <= mSize");
    EXPECT_EQ(asserts.Condition(2), "iIndex < mSize");
}
