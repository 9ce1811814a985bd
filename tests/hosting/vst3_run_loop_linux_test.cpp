// The Linux run loop editors register with: descriptors fire when readable, registrations are
// counted references, and handlers may unregister from inside their own callback.
#include "hosting/vst3/vst3_com.h"
#include "hosting/vst3/vst3_run_loop.h"
#include "tests/common/test_pipe.h"

#include "pluginterfaces/gui/iplugview.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

using namespace Steinberg;

class CountingHandler final : public Linux::IEventHandler, public Linux::ITimerHandler {
  public:
    void PLUGIN_API onFDIsSet(Linux::FileDescriptor) override {
        ++readable;
        if (loop && unregisterOnCall)
            loop->unregisterEventHandler(this);
    }
    void PLUGIN_API onTimer() override { ++timers; }
    tresult PLUGIN_API queryInterface(const TUID iid, void** object) override {
        if (vst3_com::offer<Linux::IEventHandler>(this, iid, object) ||
            vst3_com::offer<Linux::ITimerHandler>(this, iid, object))
            return kResultOk;
        return vst3_com::refuse(object);
    }
    uint32 PLUGIN_API addRef() override { return ++references; }
    uint32 PLUGIN_API release() override { return --references; }

    int readable = 0;
    int timers = 0;
    uint32 references = 1;
    Linux::IRunLoop* loop = nullptr;
    bool unregisterOnCall = false;
};

Linux::IRunLoop* runLoopOf(Vst3RunLoop& owner) {
    void* object = nullptr;
    EXPECT_TRUE(owner.query(Linux::IRunLoop::iid, &object));
    return static_cast<Linux::IRunLoop*>(object);
}

TEST(Vst3RunLoop, ReadableDescriptorFiresItsHandlerOnlyWhenReadable) {
    auto owner = Vst3RunLoop::create();
    IPtr<Linux::IRunLoop> loop = owned(runLoopOf(*owner));
    testing_support::TestPipe pipe;
    CountingHandler handler;
    ASSERT_EQ(loop->registerEventHandler(&handler, pipe.readEnd), kResultTrue);
    EXPECT_EQ(handler.references, 2u);
    EXPECT_EQ(owner->descriptors(), std::vector<int>{pipe.readEnd});
    owner->dispatchDue();
    EXPECT_EQ(handler.readable, 0);
    ASSERT_EQ(::write(pipe.writeEnd, "x", 1), 1);
    owner->dispatchDue();
    EXPECT_EQ(handler.readable, 1);
    EXPECT_EQ(loop->unregisterEventHandler(&handler), kResultTrue);
    EXPECT_EQ(handler.references, 1u);
    EXPECT_EQ(loop->unregisterEventHandler(&handler), kResultFalse);
    owner->dispatchDue();
    EXPECT_EQ(handler.readable, 1);
}

TEST(Vst3RunLoop, HandlerMayUnregisterItselfWhileCalled) {
    auto owner = Vst3RunLoop::create();
    IPtr<Linux::IRunLoop> loop = owned(runLoopOf(*owner));
    testing_support::TestPipe pipe;
    CountingHandler handler;
    handler.loop = loop;
    handler.unregisterOnCall = true;
    loop->registerEventHandler(&handler, pipe.readEnd);
    ASSERT_EQ(::write(pipe.writeEnd, "x", 1), 1);
    owner->dispatchDue();
    owner->dispatchDue();
    EXPECT_EQ(handler.readable, 1);
    EXPECT_EQ(handler.references, 1u);
    EXPECT_TRUE(owner->descriptors().empty());
}

TEST(Vst3RunLoop, TimersAreCountedAndDroppedWithTheLoop) {
    CountingHandler handler;
    {
        auto owner = Vst3RunLoop::create();
        IPtr<Linux::IRunLoop> loop = owned(runLoopOf(*owner));
        EXPECT_LT(owner->millisecondsToNextTimer(), 0);
        ASSERT_EQ(loop->registerTimer(&handler, 60000), kResultTrue);
        EXPECT_GE(owner->millisecondsToNextTimer(), 0);
        EXPECT_EQ(handler.references, 2u);
        EXPECT_EQ(loop->registerTimer(nullptr, 10), kInvalidArgument);
        EXPECT_EQ(loop->registerEventHandler(&handler, -1), kInvalidArgument);
    }
    // An editor that forgets to unregister does not keep its handler referenced by us.
    EXPECT_EQ(handler.references, 1u);
}

TEST(Vst3RunLoop, AnswersOnlyTheRunLoopInterfaceAndAttachesX11Windows) {
    auto owner = Vst3RunLoop::create();
    void* object = nullptr;
    EXPECT_FALSE(owner->query(IPlugFrame::iid, &object));
    EXPECT_STREQ(vst3EditorPlatformType(), kPlatformTypeX11EmbedWindowID);
}

} // namespace
