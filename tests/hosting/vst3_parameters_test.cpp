// Parameter plumbing of the VST 3 bridge: which parameters VST 2 sees, and the queues between
// the host's threads and the processor.
#include "hosting/vst3/vst3_parameter_changes.h"
#include "hosting/vst3/vst3_parameter_map.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace {

using namespace Steinberg;
using namespace Steinberg::Vst;

struct FlagCase {
    const char* name;
    int32 flags;
    bool exported;
};

void PrintTo(const FlagCase& c, std::ostream* out) {
    *out << c.name;
}

class ParameterFilter : public testing::TestWithParam<FlagCase> {};

TEST_P(ParameterFilter, Exported) {
    EXPECT_EQ(Vst3ParameterMap::exported(GetParam().flags), GetParam().exported);
}

INSTANTIATE_TEST_SUITE_P(
    Table, ParameterFilter,
    testing::Values(
        FlagCase{"Plain", 0, true}, FlagCase{"Automatable", ParameterInfo::kCanAutomate, true},
        FlagCase{"HiddenStillOffered", ParameterInfo::kIsHidden, true},
        FlagCase{"ListStillOffered", ParameterInfo::kIsList, true},
        FlagCase{"ReadOnlyMeter", ParameterInfo::kIsReadOnly, false},
        FlagCase{"ReadOnlyHidden", ParameterInfo::kIsReadOnly | ParameterInfo::kIsHidden, false},
        FlagCase{"ProgramChange", ParameterInfo::kIsProgramChange | ParameterInfo::kIsList, false},
        FlagCase{"Bypass", ParameterInfo::kIsBypass | ParameterInfo::kCanAutomate, false}),
    [](const auto& info) { return std::string(info.param.name); });

ParameterInfo parameter(ParamID id, int32 flags, int32 steps = 0) {
    ParameterInfo info{};
    info.id = id;
    info.flags = flags;
    info.stepCount = steps;
    return info;
}

TEST(ParameterMap, IndicesFollowControllerOrderSkippingWhatVst2CannotSet) {
    // Shaped like a real limiter: host-information values, a program list, three controls, meters.
    Vst3ParameterMap map;
    map.build({parameter(0, ParameterInfo::kIsReadOnly | ParameterInfo::kIsHidden),
               parameter(3, ParameterInfo::kIsProgramChange, 4),
               parameter(4, ParameterInfo::kCanAutomate), parameter(5, ParameterInfo::kCanAutomate),
               parameter(9, ParameterInfo::kIsBypass, 1), parameter(6, ParameterInfo::kCanAutomate),
               parameter(8, ParameterInfo::kIsReadOnly)});
    ASSERT_EQ(map.size(), 3);
    EXPECT_EQ(map.controllerCount(), 7);
    const std::vector<std::pair<ParamID, int32>> expected{{4, 2}, {5, 3}, {6, 5}};
    for (int32 index = 0; index < map.size(); ++index) {
        EXPECT_EQ(map.at(index)->id, expected[static_cast<size_t>(index)].first);
        EXPECT_EQ(map.at(index)->controllerIndex, expected[static_cast<size_t>(index)].second);
        EXPECT_EQ(map.indexOf(expected[static_cast<size_t>(index)].first), index);
    }
    EXPECT_EQ(map.at(3), nullptr);
    EXPECT_EQ(map.at(-1), nullptr);
    EXPECT_EQ(map.indexOf(8), std::nullopt);
    ASSERT_TRUE(map.bypass());
    EXPECT_EQ(map.bypass()->id, 9u);
    ASSERT_TRUE(map.programChange());
    EXPECT_EQ(map.programChange()->stepCount, 4);
}

TEST(ParameterMap, RepeatedIdIsOfferedOnce) {
    Vst3ParameterMap map;
    map.build({parameter(7, 0), parameter(7, 0), parameter(8, 0)});
    EXPECT_EQ(map.size(), 2);
    EXPECT_EQ(map.indexOf(8), 1);
}

std::vector<std::pair<ParamID, ParamValue>> contents(Vst3ParameterChanges& changes) {
    std::vector<std::pair<ParamID, ParamValue>> found;
    for (int32 index = 0; index < changes.getParameterCount(); ++index) {
        IParamValueQueue* queue = changes.getParameterData(index);
        int32 offset = 0;
        ParamValue value = 0;
        EXPECT_EQ(queue->getPoint(queue->getPointCount() - 1, offset, value), kResultOk);
        found.emplace_back(queue->getParameterId(), value);
    }
    return found;
}

TEST(PendingChanges, RepeatsMergeAndTheNewestValueIsReadBack) {
    Vst3PendingChanges pending;
    pending.push(4, 0.1);
    pending.push(5, 0.2);
    pending.push(4, 0.3);
    EXPECT_EQ(pending.latest(4), 0.3);
    EXPECT_EQ(pending.latest(6), std::nullopt);
    Vst3ParameterChanges changes(8);
    pending.moveInto(changes);
    EXPECT_EQ(contents(changes), (std::vector<std::pair<ParamID, ParamValue>>{{4, 0.3}, {5, 0.2}}));
    // Moved means gone: the next block does not apply them again.
    EXPECT_EQ(pending.latest(4), std::nullopt);
}

TEST(PendingChanges, WhatDoesNotFitWaitsForTheNextBlock) {
    Vst3PendingChanges pending;
    for (ParamID id = 1; id <= 5; ++id)
        pending.push(id, id / 10.0);
    Vst3ParameterChanges changes(2);
    pending.moveInto(changes);
    EXPECT_EQ(changes.getParameterCount(), 2);
    int32 index = 0;
    EXPECT_EQ(changes.addParameterData(99, index), nullptr); // full
    changes.clear();
    pending.moveInto(changes);
    changes.clear();
    pending.moveInto(changes);
    EXPECT_EQ(contents(changes), (std::vector<std::pair<ParamID, ParamValue>>{{5, 0.5}}));
}

TEST(PendingChanges, CopyLeavesEverythingQueued) {
    Vst3PendingChanges pending;
    pending.push(3, 0.5);
    Vst3ParameterChanges changes(4);
    pending.copyInto(changes);
    EXPECT_EQ(contents(changes), (std::vector<std::pair<ParamID, ParamValue>>{{3, 0.5}}));
    EXPECT_FALSE(pending.empty());
    EXPECT_EQ(pending.latest(3), 0.5);
}

TEST(PendingChanges, ClearDropsEverything) {
    Vst3PendingChanges pending;
    pending.push(1, 0.5);
    pending.clear();
    Vst3ParameterChanges changes(4);
    pending.moveInto(changes);
    EXPECT_EQ(changes.getParameterCount(), 0);
}

TEST(ParamValueQueue, PointsStayOrderedAndOneOffsetHoldsOneValue) {
    Vst3ParameterChanges changes(1);
    int32 index = -1;
    IParamValueQueue* queue = changes.addParameterData(12, index);
    ASSERT_NE(queue, nullptr);
    EXPECT_EQ(index, 0);
    int32 point = 0;
    for (const auto& [offset, value] :
         std::vector<std::pair<int32, double>>{{100, 0.5}, {10, 0.1}, {100, 0.7}, {50, 0.3}})
        EXPECT_EQ(queue->addPoint(offset, value, point), kResultOk);
    ASSERT_EQ(queue->getPointCount(), 3);
    const std::vector<std::pair<int32, double>> expected{{10, 0.1}, {50, 0.3}, {100, 0.7}};
    for (int32 at = 0; at < 3; ++at) {
        int32 offset = 0;
        ParamValue value = 0;
        queue->getPoint(at, offset, value);
        EXPECT_EQ(std::pair(offset, value), expected[static_cast<size_t>(at)]);
    }
    int32 offset = 0;
    ParamValue value = 0;
    EXPECT_EQ(queue->getPoint(3, offset, value), kInvalidArgument);
    // The same id again is the same queue.
    EXPECT_EQ(changes.addParameterData(12, index), queue);
}

TEST(ParamValueQueue, FullQueueRefusesNewOffsets) {
    Vst3ParameterChanges changes(1);
    int32 index = 0;
    IParamValueQueue* queue = changes.addParameterData(1, index);
    int32 point = 0;
    for (int32 offset = 0; offset < Vst3ParamValueQueue::maxPoints; ++offset)
        ASSERT_EQ(queue->addPoint(offset, 0.0, point), kResultOk);
    EXPECT_EQ(queue->addPoint(1000, 0.0, point), kResultFalse);
    EXPECT_EQ(queue->addPoint(3, 1.0, point), kResultOk); // an existing offset is still updated
}

TEST(OutputChangeRing, FirstInFirstOutAndNewValuesDroppedWhenFull) {
    Vst3OutputChangeRing ring;
    ring.setCapacity(2);
    EXPECT_TRUE(ring.push(1, 0.1));
    EXPECT_TRUE(ring.push(2, 0.2));
    EXPECT_FALSE(ring.push(3, 0.3));
    ParamID id = 0;
    ParamValue value = 0;
    ASSERT_TRUE(ring.pop(id, value));
    EXPECT_EQ(id, 1u);
    EXPECT_EQ(value, 0.1);
    EXPECT_TRUE(ring.push(4, 0.4)); // room again, across the wrap
    ASSERT_TRUE(ring.pop(id, value));
    EXPECT_EQ(id, 2u);
    ASSERT_TRUE(ring.pop(id, value));
    EXPECT_EQ(id, 4u);
    EXPECT_FALSE(ring.pop(id, value));
}

TEST(OutputChangeRing, WithoutCapacityNothingIsKept) {
    Vst3OutputChangeRing ring;
    EXPECT_FALSE(ring.push(1, 0.5));
    ParamID id = 0;
    ParamValue value = 0;
    EXPECT_FALSE(ring.pop(id, value));
}

} // namespace
